// A file of any bytes given to GetSitelistVersions and GetSitelistFipsMode.
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzSupport.h"
#include "platform/AString.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzzsupport::Environment& env = fuzzsupport::Env();
  fuzzsupport::WriteBytes(env.input, data, size);
  sitehlp::CSitesHelper helper{AString(env.siteList)};
  std::wstring global = L"g", local = L"l", type = L"t", fips = L"untouched";
  const int rc = helper.GetSitelistVersions(AString(env.input), global, local, type);
  fuzzsupport::RequireCode(rc, {0, -1}, "GetSitelistVersions");
  if (rc == -1) {
    fuzzsupport::Require(global.empty() && local.empty(), "a failed query of an existing file empties the versions");
    fuzzsupport::Require(type == L"t", "a failed query leaves the type alone");
  }
  const int frc = helper.GetSitelistFipsMode(AString(env.input), fips);
  fuzzsupport::RequireCode(frc, {0, -1}, "GetSitelistFipsMode");
  if (frc == -1) fuzzsupport::Require(fips == L"untouched", "a failed FIPS query leaves its output alone");
  if (frc == 0) fuzzsupport::Require(rc == 0, "a FIPS mode is only found in a document whose versions read");
  return 0;
}
