// A fresh agent process: constructs a helper and reads a site list, through
// the shared library, as a tool started on the device does. Prints the time
// from its start (VLM_FRESH_SPAWN_NS, set by the driver) to main, and the
// time spent in main (µs).
//   vlm-bench-fresh-helper <list>
// The configuration (key, lock and data directories) comes from the
// environment the caller sets.
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/AString.h"
#include "sitehlp/SitesHelper.h"

namespace {

double NowUs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) * 1e6 + static_cast<double>(ts.tv_nsec) / 1e3;
}

int ReadOnce(sitehlp::CSitesHelper& helper, const std::wstring& path) {
  sitehlp::tag_Site* list = nullptr;
  const int rc = helper.ReadSiteList(path, &list);
  int n = 0;
  for (const sitehlp::tag_Site* s = list; s; s = s->pNext) ++n;
  helper.FreeSiteListMemory(list);
  return rc == 0 ? n : -1;
}

}  // namespace

int main(int argc, char** argv) {
  const double start = NowUs();
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <list>\n", argv[0]);
    return 2;
  }
  const std::wstring path = AString(std::string(argv[1]));
  sitehlp::CSitesHelper helper(path);
  const int sites = ReadOnce(helper, path);
  const double end = NowUs();
  if (sites <= 0) return 1;
  const char* spawned = std::getenv("VLM_FRESH_SPAWN_NS");
  std::printf("to_main_us=%.1f main_us=%.1f end_us=%.1f sites=%d\n", spawned ? start - std::atof(spawned) / 1e3 : 0.0,
              end - start, end, sites);
  return 0;
}
