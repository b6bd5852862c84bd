// A file of any bytes given to ReadSiteList; whatever list comes back is
// checked, written with CreateSiteList and read back to the same length.
#include <cstddef>
#include <cstdint>

#include "FuzzSupport.h"
#include "SiteListMutator.h"
#include "platform/AString.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzzsupport::Environment& env = fuzzsupport::Env();
  fuzzsupport::WriteBytes(env.input, data, size);

  sitehlp::CSitesHelper helper{AString(env.siteList)};
  sitehlp::tag_Site* list = nullptr;
  const int rc = helper.ReadSiteList(AString(env.input), &list);
  // 0 or -1 (last element gave no body), -5 malformed, -10 unreadable, -3
  // out of memory; a parser read/write code is an errno (positive).
  if (rc < 0) fuzzsupport::RequireCode(rc, {-1, -3, -5, -10}, "ReadSiteList");
  if (rc == -5) fuzzsupport::Require(list == nullptr, "a malformed document yields no list");
  const std::size_t n = fuzzsupport::CheckList(list);

  if (rc == 0 || rc == -1) {
    const int written = helper.CreateSiteList(list, AString(env.siteList), L"1", L"2", L"Client", {L"C"});
    fuzzsupport::RequireCode(written, {0}, "CreateSiteList of a list just read");
    sitehlp::tag_Site* again = nullptr;
    const int reread = helper.ReadSiteList(AString(env.siteList), &again);
    fuzzsupport::RequireCode(reread, {0}, "ReadSiteList of a list just written");
    fuzzsupport::Require(fuzzsupport::CheckList(again) == n, "a written list reads back with as many records");
    helper.FreeSiteListMemory(again);
  }
  helper.FreeSiteListMemory(list);
  return 0;
}

// Mutations of the document's elements and attributes besides libFuzzer's
// byte mutations (SiteListMutator.h).
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
  return fuzzsupport::MutateSiteList(data, size, maxSize, seed);
}
