// The helper object: construction, the default site list location, policy
// settings and the managed question.
#include "sitehlp/SitesHelper.h"

#include <cwchar>

#include "port/config/IConfiguration.h"
#include "port/fs/AFile.h"
#include "port/log/Log.h"
#include "sitehlp/Component.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

tag_Site* CSitesHelper::m_pSiteList = nullptr;
int32_t CSitesHelper::m_iChange = 0;

bool LockOrLog(InterProcessLock& lock, const wchar_t* component) {
  if (lock.lock(c_lockWaitForever)) return true;
  logError(component, L"Unable to take lock " + std::wstring(AString(lock.name())));
  return false;
}

CSitesHelper::CSitesHelper()
    : m_siteListType(ZEL_XML_SITELIST_TYPE_CLIENT),
      m_pLastSiteElement(nullptr),
      m_iManagedOverride(0),
      m_bUnusedFlag(false),
      m_bReencrypting(false) {
  ADetailTrace trace(c_component, L"Constructing sites helper object");
  Construct(nullptr);
}

CSitesHelper::CSitesHelper(std::wstring siteListPath)
    : m_siteListType(ZEL_XML_SITELIST_TYPE_CLIENT),
      m_pLastSiteElement(nullptr),
      m_iManagedOverride(0),
      m_bUnusedFlag(false),
      m_bReencrypting(false) {
  ADetailTrace trace(c_component, L"Constructing sites helper object with full path");
  Construct(&siteListPath);
}

void CSitesHelper::Construct(const std::wstring* pPath) {
  if (pPath) {
    m_siteListPath = *pPath;
  } else {
    wchar_t directory[260];
    if (GetSiteListFilename(directory, 260) == c_success)
      m_siteListPath = joinPath(directory, c_sitelistName);
    else
      m_siteListPath = c_sitelistName;
  }
  // A missing or unreadable file leaves the versions as the query left them;
  // the object is usable all the same.
  GetSitelistVersions(m_siteListPath, m_globalVersion, m_localVersion, m_siteListType);
}

CSitesHelper::~CSitesHelper() = default;

int CSitesHelper::GetSiteListFilename(wchar_t* buffer, unsigned long capacity) {
  ADetailTrace trace(c_component, L"Getting Sitelist file name");
  if (!buffer || capacity == 0) return c_success;
  const std::wstring directory = IConfiguration::GetConfiguration()->GetFrameworkDataDirectory() + L"/etc";
  std::wcsncpy(buffer, directory.c_str(), capacity);
  buffer[capacity - 1] = L'\0';
  return c_success;
}

void CSitesHelper::SetPolicySetting(const std::wstring& name, const std::wstring& value) {
  m_policySettings[name] = value;
}

bool CSitesHelper::GetPolicySetting(const std::wstring& name, std::wstring& value) {
  auto it = m_policySettings.find(name);
  if (it == m_policySettings.end()) return false;
  value = it->second;
  return true;
}

bool CSitesHelper::IsOrxManaged() {
  ADetailTrace trace(c_component, L"IsOrxManaged");
  if (m_iManagedOverride == -2) return false;
  if (m_iManagedOverride == -1) return true;
  return IConfiguration::GetConfiguration()->IsManaged();
}

}  // namespace sitehlp
