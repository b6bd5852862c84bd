// A list of records into a site list document, written crash-safely under
// the exclusive "SiteListLock".
#include <ctime>
#include <cwchar>

#include "port/lock/InterProcessLock.h"
#include "port/log/Log.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Component.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

namespace {

// The local time as a 14-digit version stamp; empty when the time cannot be
// had.
std::wstring LocalTimeStamp() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  if (now == static_cast<std::time_t>(-1) || !localtime_r(&now, &local)) return std::wstring();
  wchar_t stamp[260];
  std::swprintf(stamp, 260, L"%04d%02d%02d%02d%02d%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                local.tm_hour, local.tm_min, local.tm_sec);
  return stamp;
}

const std::wstring& FirstNonEmpty(const std::wstring& a, const std::wstring& b, const std::wstring& c) {
  return !a.empty() ? a : !b.empty() ? b : c;
}

}  // namespace

int CSitesHelper::CreateSiteList(tag_Site* sites, const std::wstring& path, const std::wstring& globalVersion,
                                 const std::wstring& localVersion, const std::wstring& type,
                                 const std::vector<std::wstring>& caCertificates) {
  ADetailTrace trace(c_component, L"Creating Sitelist");
  int result = 0;
  const std::wstring& target = path.empty() ? m_siteListPath : path;
  std::wstring local = localVersion;
  if (local.empty()) {
    local = LocalTimeStamp();
    logDetail(c_component, L"Local version of " + target + L" is " + local);
  }

  std::string text;
  try {
    AdvXMLParser::Document document;
    AdvXMLParser::Element root = document.CreateRoot(ZEL_XML_SITELISTS);
    root.SetAttribute(ZEL_XML_NAMESPACE, ZEL_XML_SITELISTS_NAMESPACE);
    root.SetAttribute(ZEL_XML_SITELISTS_GLOBAL_VERSION, FirstNonEmpty(globalVersion, m_globalVersion, local));
    root.SetAttribute(ZEL_XML_SITELISTS_LOCAL_VERSION, local);
    static const std::wstring client(ZEL_XML_SITELIST_TYPE_CLIENT);
    root.SetAttribute(ZEL_XML_SITELISTS_TYPE, FirstNonEmpty(type, m_siteListType, client));

    if (!caCertificates.empty()) {
      AdvXMLParser::Element bundle = root.AppendElement(ZEL_XML_CABUNDLE);
      for (const std::wstring& certificate : caCertificates)
        bundle.AppendElement(ZEL_XML_CACERTIFICATE).SetValue(certificate);
    }
    if (!m_policySettings.empty()) {
      AdvXMLParser::Element policies = root.AppendElement(ZEL_XML_POLICIES);
      for (const auto& setting : m_policySettings) {  // ascending name order
        AdvXMLParser::Element element = policies.AppendElement(L"Setting");
        element.SetValue(setting.second);
        element.SetAttribute(L"name", setting.first);
      }
    }
    AdvXMLParser::Element siteList = root.AppendElement(ZEL_XML_SITELIST);
    siteList.SetAttribute(ZEL_XML_SITELIST_DEFAULT, L"1");
    siteList.SetAttribute(ZEL_XML_SITE_NAME, L"SomeGUID");
    m_pLastSiteElement = siteList.GetRef();

    int index = 0;
    for (tag_Site* site = sites; site; site = site->pNext, ++index) {
      switch (site->nSiteType) {
        case SITE_TYPE_HTTP: result = AddHTTPSite(site, index); break;
        case SITE_TYPE_FTP: result = AddFTPSite(site, index); break;
        case SITE_TYPE_UNC: result = AddUNCSite(site, index); break;
        case SITE_TYPE_LOCAL: result = AddLocalSite(site, index); break;
        case SITE_TYPE_PROXY: result = AddProxySite(site, index); break;
        default: result = -1; break;  // nothing is written for an unknown kind
      }
    }
    text = document.GenerateUtf8(false);
  } catch (...) {
    // The document could not be built: nothing is written.
    return result;
  }

  InterProcessWriteLock lock(c_siteListLock);
  if (!LockOrLog(lock)) return -11;
  try {
    AdvXMLParser::WriteUtf8BufferToFile(target, text);
  } catch (const std::exception& e) {
    result = -11;
    logError(c_component, L"Unable to write " + target + L": " + std::wstring(AString(e.what())));
  }
  lock.unlock();
  return result;
}

}  // namespace sitehlp
