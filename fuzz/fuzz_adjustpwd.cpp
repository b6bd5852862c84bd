// A server site list of any bytes given to AdjustPwd (password re-encryption
// into the server site list).
#include <cstddef>
#include <cstdint>

#include "FuzzSupport.h"
#include "platform/ABuffer.h"
#include "platform/AString.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzzsupport::Environment& env = fuzzsupport::Env();
  sitehlp::CSitesHelper helper{AString(env.siteList)};
  const AnObjectBuffer<unsigned char> buffer(data, size);
  const int rc = helper.AdjustPwd(buffer);
  // 0, -1 (last element gave no body), -3, -5, -11 (not written), or a
  // parser read/write code (an errno, positive).
  if (rc < 0) fuzzsupport::RequireCode(rc, {-1, -3, -5, -11}, "AdjustPwd");
  return 0;
}
