#include "sitehlp/SiteListFile.h"

#include <errno.h>

#include "port/fs/AFile.h"
#include "port/lock/InterProcessLock.h"
#include "port/log/Log.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Component.h"
#include "sitehlp/SiteListChange.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

bool SiteListFileExists(const std::wstring& path) { return AFile::exists(path); }

int MissingFileResult() { return errno == ENOENT || errno == ENOTDIR ? c_fileMissing : c_fileUnreadable; }

bool ReadSiteListUtf8(const std::wstring& path, AdvXMLParser::Utf8Text& text, std::string* why) {
  InterProcessReadLock lock(c_siteListLock);
  if (!LockOrLog(lock)) {
    if (why) *why = std::string("cannot take the lock ") + c_siteListLock;
    return false;
  }
  // The next reader finishes a change its writer could not (SiteListChange.h).
  FinishInterruptedChangeOf(path, c_component);
  try {
    AdvXMLParser::ReadUtf8FromFile(path, text);
  } catch (const AdvXMLParser::ReadWriteException& e) {
    lock.unlock();
    if (why) *why = e.what();
    // A list refused for its size is said: nothing else tells an
    // administrator why a large list is not read.
    if (e.GetErrorCode() == EFBIG) logError(c_component, L"Unable to read " + path + L": " + AString(e.what()));
    return false;
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
