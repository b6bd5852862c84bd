// Site list text of any content given to CreateSiteListFromBuffer; what it
// writes must read back, and GetSiteListBuffer must serve it.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "FuzzSupport.h"
#include "SiteListMutator.h"
#include "platform/AString.h"
#include "port/config/IConfiguration.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzzsupport::Environment& env = fuzzsupport::Env();
  const std::string standard = port::UnderRootPrefix("/opt/Velmora/orx/scratch/etc/SiteList.xml");
  std::remove(standard.c_str());

  sitehlp::CSitesHelper helper{AString(standard)};
  const std::wstring text = fuzzsupport::Utf8(data, size);
  const int rc = helper.CreateSiteListFromBuffer(text);
  if (rc < 0) fuzzsupport::RequireCode(rc, {-1, -3, -5, -11}, "CreateSiteListFromBuffer");
  if (rc == 0) {
    sitehlp::tag_Site* list = nullptr;
    const int reread = helper.ReadSiteList(AString(standard), &list);
    fuzzsupport::RequireCode(reread, {0}, "ReadSiteList of a list written from a buffer");
    fuzzsupport::CheckList(list);
    helper.FreeSiteListMemory(list);
    std::wstring served;
    fuzzsupport::Require(helper.GetSiteListBuffer(served), "GetSiteListBuffer of a written list");
  } else {
    fuzzsupport::Require(access(standard.c_str(), F_OK) != 0, "a failed buffer writes nothing");
  }
  (void)env;
  return 0;
}

// Mutations of the document's elements and attributes besides libFuzzer's
// byte mutations (SiteListMutator.h).
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
  return fuzzsupport::MutateSiteList(data, size, maxSize, seed);
}
