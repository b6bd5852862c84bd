#include "sitehlp/SiteListFile.h"

#include "port/fs/AFile.h"
#include "port/lock/InterProcessLock.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Component.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

bool SiteListFileExists(const std::wstring& path) { return AFile::exists(path); }

bool ReadSiteListUtf8(const std::wstring& path, AdvXMLParser::Utf8Text& text, std::string* why) {
  InterProcessReadLock lock(c_siteListLock);
  if (!LockOrLog(lock)) {
    if (why) *why = std::string("cannot take the lock ") + c_siteListLock;
    return false;
  }
  try {
    AdvXMLParser::ReadUtf8FromFile(path, text);
  } catch (const std::exception& e) {
    lock.unlock();
    if (why) *why = e.what();
    return false;
  } catch (...) {
    lock.unlock();
    if (why) *why = "cannot read";
    return false;
  }
  lock.unlock();
  return true;
}

}  // namespace sitehlp
