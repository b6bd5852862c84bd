#include "sitehlp/SiteListFile.h"

#include "port/fs/AFile.h"
#include "port/lock/InterProcessLock.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Component.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

bool SiteListFileExists(const std::wstring& path) { return AFile::exists(path); }

bool ReadSiteListText(const std::wstring& path, AString& text) {
  InterProcessReadLock lock(c_siteListLock);
  if (!LockOrLog(lock)) return false;
  try {
    AdvXMLParser::UTF_ENCODINGS encoding = AdvXMLParser::UTF_8;
    AdvXMLParser::ReadBufferFromFile(path, text, encoding);
  } catch (...) {
    lock.unlock();
    return false;
  }
  lock.unlock();
  return true;
}

bool ReadSiteListUtf8(const std::wstring& path, AdvXMLParser::Utf8Text& text) {
  InterProcessReadLock lock(c_siteListLock);
  if (!LockOrLog(lock)) return false;
  try {
    AdvXMLParser::ReadUtf8FromFile(path, text);
  } catch (...) {
    lock.unlock();
    return false;
  }
  lock.unlock();
  return true;
}

}  // namespace sitehlp
