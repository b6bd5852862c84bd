// vlm-bench-gen: writes a generated site list.
//   vlm-bench-gen <sites> <output file> [seed]
// Passwords are encrypted with the keys of the configured key directory
// (VLM_KEY_DIR), so the list reads back only with those keys.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "SiteListGenerator.h"
#include "platform/AString.h"

int main(int argc, char** argv) {
  if (argc < 3 || argc > 4) {
    std::fprintf(stderr, "usage: %s <sites> <output file> [seed]\n", argv[0]);
    return 2;
  }
  const unsigned long sites = std::strtoul(argv[1], nullptr, 10);
  const unsigned long long seed = argc == 4 ? std::strtoull(argv[3], nullptr, 10) : 20260301u;
  const std::wstring path = AString(std::string(argv[2]));
  sitehlp::CSitesHelper helper(path);
  vlmbench::GeneratedList list = vlmbench::GenerateSiteList(static_cast<unsigned>(sites), seed);
  const int rc = vlmbench::WriteGeneratedList(helper, list, path);
  if (rc != 0) {
    std::fprintf(stderr, "writing %s failed: %d\n", argv[2], rc);
    return 1;
  }
  return 0;
}
