// modifySiteList with a fixed, valid own list and a new list of any bytes,
// once for each combination of its two flags. The own list must afterwards
// be a document that reads.
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzSupport.h"
#include "SiteListMutator.h"
#include "OwnList.h"
#include "platform/AString.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzzsupport::Environment& env = fuzzsupport::Env();
  fuzzsupport::WriteBytes(env.input, data, size);
  const AString keyDir = (size % 2) ? AString(env.keyDir) : AString();

  for (int flags = 0; flags < 4; ++flags) {
    fuzzsupport::WriteBytes(env.siteList, reinterpret_cast<const std::uint8_t*>(fuzzsupport::kOwnList.data()),
                            fuzzsupport::kOwnList.size());
    sitehlp::CSitesHelper helper{AString(env.siteList)};
    const bool written = helper.modifySiteList(AString(env.input).c_str(), flags & 1, flags & 2, keyDir);

    sitehlp::tag_Site* list = nullptr;
    const int rc = helper.ReadSiteList(AString(env.siteList), &list);
    if (written)
      fuzzsupport::RequireCode(rc, {0, -1}, "ReadSiteList of a rewritten own list");
    else
      fuzzsupport::RequireCode(rc, {0}, "ReadSiteList of an untouched own list");
    fuzzsupport::CheckList(list);
    helper.FreeSiteListMemory(list);
  }
  return 0;
}

// Mutations of the document's elements and attributes besides libFuzzer's
// byte mutations (SiteListMutator.h).
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
  return fuzzsupport::MutateSiteList(data, size, maxSize, seed);
}
