// A file of any bytes given to GetCaCertificates.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "platform/AString.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzzsupport::Environment& env = fuzzsupport::Env();
  fuzzsupport::WriteBytes(env.input, data, size);
  sitehlp::CSitesHelper helper{AString(env.siteList)};
  std::vector<std::wstring> certificates = {L"kept"};
  const int rc = helper.GetCaCertificates(AString(env.input), certificates);
  fuzzsupport::RequireCode(rc, {0, -5, -10, -11}, "GetCaCertificates");
  fuzzsupport::Require(!certificates.empty() && certificates[0] == L"kept", "certificates are appended, not replaced");
  if (rc != 0) fuzzsupport::Require(certificates.size() == 1, "a failed read appends nothing");
  return 0;
}
