// The process-wide cached list and the change notice.
//
// m_iChange is 1 right after a fill; each notice adds 1, and the cache is
// re-read only once it is above 2, i.e. after the second notice. Lock order:
// "SmartSiteListLock" (here) before "SiteListLock" (inside ReadSiteList).
#include "port/lock/InterProcessLock.h"
#include "port/log/Log.h"
#include "sitehlp/Component.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

int CSitesHelper::SmartReadSiteList(const std::wstring& path, tag_Site** ppSiteList) {
  ADetailTrace trace(c_component, L"Smart read of Site List");
  if (!ppSiteList) return c_missingArgument;
  int result = c_success;
  // Shared even while the cache is replaced: a notice waits for every smart
  // read in progress, while smart reads may run side by side.
  InterProcessReadLock lock(smartSiteListLock);
  if (!LockOrLog(lock)) return c_fileUnreadable;
  if (m_pSiteList == nullptr || m_iChange > 2) {
    logDetail(c_component, L"Reading from FILE" + std::to_wstring(m_iChange));
    if (m_pSiteList) {
      FreeSiteListMemory(m_pSiteList);
      m_pSiteList = nullptr;
    }
    result = ReadSiteList(path, ppSiteList);
    if (result >= 0 && *ppSiteList != nullptr) {
      m_pSiteList = *ppSiteList;
      m_iChange = 1;
    } else {
      logError(c_component, L"Unable to read from SiteList file, error hr=" + std::to_wstring(result));
    }
  } else {
    // The hit is the hot path: the message is only built when detail lines
    // are wanted.
    if (port::LogEnabled(port::LogLevel::Detail))
      logDetail(c_component, L"Reading from memory" + std::to_wstring(m_iChange));
    *ppSiteList = m_pSiteList;
  }
  lock.unlock();
  return result;
}

void CSitesHelper::needToUpdateInMemSiteList() {
  InterProcessWriteLock lock(smartSiteListLock);
  if (!LockOrLog(lock)) return;
  ++m_iChange;
  lock.unlock();
}

int CSitesHelper::MustReadSiteList(const std::wstring& path, tag_Site** ppSiteList) {
  if (path.empty()) {
    logInternalError(c_component, L"path is empty");
    return c_generalFailure;
  }
  if (!ppSiteList) return c_missingArgument;
  const int result = ReadSiteList(path, ppSiteList);
  if (result >= 0 && *ppSiteList != nullptr) return result;
  logError(c_component, L"Failed hr=" + std::to_wstring(result));
  return result;
}

}  // namespace sitehlp
