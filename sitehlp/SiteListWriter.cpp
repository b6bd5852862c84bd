// A list of records into a site list document, written crash-safely under
// the exclusive "SiteListLock" (or staged as part of a change, by import).
#include <ctime>
#include <cwchar>
#include <iterator>
#include <map>
#include <new>

#include "port/log/Log.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/PasswordCipher.h"
#include "sitehlp/Allocation.h"
#include "sitehlp/Component.h"
#include "sitehlp/SiteListChange.h"
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

void AppendCaBundle(AdvXMLParser::Element& root, const std::vector<std::wstring>& caCertificates) {
  if (caCertificates.empty()) return;
  AdvXMLParser::Element bundle = root.AppendElement(ZEL_XML_CABUNDLE);
  for (const std::wstring& certificate : caCertificates)
    bundle.AppendElement(ZEL_XML_CACERTIFICATE).SetValue(certificate);
}

void AppendPolicies(AdvXMLParser::Element& root, const std::map<std::wstring, std::wstring>& settings) {
  if (settings.empty()) return;
  AdvXMLParser::Element policies = root.AppendElement(ZEL_XML_POLICIES);
  for (const auto& setting : settings) {  // ascending name order
    AdvXMLParser::Element element = policies.AppendElement(L"Setting");
    element.SetValue(setting.second);
    element.SetAttribute(L"name", setting.first);
  }
}

// The Add operation of each kind, by the kind's value.
using AddOperation = int (CSitesHelper::*)(tag_Site*, int);
constexpr AddOperation kAddOperations[] = {
    &CSitesHelper::AddHTTPSite, &CSitesHelper::AddFTPSite, &CSitesHelper::AddUNCSite,
    &CSitesHelper::AddLocalSite, &CSitesHelper::AddProxySite,
};
static_assert(SITE_TYPE_HTTP == 0 && SITE_TYPE_PROXY == 4, "one Add operation per kind, by value");

}  // namespace

bool CSitesHelper::BuildSiteListText(tag_Site* sites, const std::wstring& target, const std::wstring& globalVersion,
                                     const std::wstring& localVersion, const std::wstring& type,
                                     const std::vector<std::wstring>& caCertificates, std::string& text, int& result) {
  ADetailTrace trace(c_component, L"Creating Sitelist");
  // The passwords of the document share one encryption object.
  PasswordCipherScope passwords;
  result = c_success;
  std::wstring local = localVersion;
  if (local.empty()) {
    local = LocalTimeStamp();
    logDetail(c_component, L"Local version of " + target + L" is " + local);
  }

  try {
    if (AllocationFails(AllocationUse::Document)) throw std::bad_alloc();
    AdvXMLParser::Document document;
    AdvXMLParser::Element root = document.CreateRoot(ZEL_XML_SITELISTS);
    root.SetAttribute(ZEL_XML_NAMESPACE, ZEL_XML_SITELISTS_NAMESPACE);
    root.SetAttribute(ZEL_XML_SITELISTS_GLOBAL_VERSION, FirstNonEmpty(globalVersion, m_globalVersion, local));
    root.SetAttribute(ZEL_XML_SITELISTS_LOCAL_VERSION, local);
    static const std::wstring client(ZEL_XML_SITELIST_TYPE_CLIENT);
    root.SetAttribute(ZEL_XML_SITELISTS_TYPE, FirstNonEmpty(type, m_siteListType, client));
    AppendCaBundle(root, caCertificates);
    AppendPolicies(root, m_policySettings);
    AdvXMLParser::Element siteList = root.AppendElement(ZEL_XML_SITELIST);
    siteList.SetAttribute(ZEL_XML_SITELIST_DEFAULT, L"1");
    siteList.SetAttribute(ZEL_XML_SITE_NAME, L"SomeGUID");
    m_pLastSiteElement = siteList.GetRef();

    // The result is the last record's: nothing is written for a record of
    // unknown kind, which makes it a general failure unless a known one
    // follows. The index counts every record.
    int index = 0;
    for (tag_Site* site = sites; site; site = site->pNext, ++index) {
      const int32_t kind = site->nSiteType;
      const bool known = kind >= 0 && static_cast<std::size_t>(kind) < std::size(kAddOperations);
      result = known ? (this->*kAddOperations[kind])(site, index) : c_generalFailure;
    }
    text = document.GenerateUtf8(false);
  } catch (...) {
    // The document could not be built (memory ran out): nothing is written,
    // and the caller is told so.
    logError(c_component, L"Unable to build the site list for " + target);
    result = c_fileNotWritten;
    return false;
  }
  return true;
}

int CSitesHelper::CreateSiteList(tag_Site* sites, const std::wstring& path, const std::wstring& globalVersion,
                                 const std::wstring& localVersion, const std::wstring& type,
                                 const std::vector<std::wstring>& caCertificates) {
  const std::wstring& target = path.empty() ? m_siteListPath : path;
  std::string text;
  int result = c_success;
  if (!BuildSiteListText(sites, target, globalVersion, localVersion, type, caCertificates, text, result))
    return result;
  return WriteUnderSiteListLock(target, text, c_component) ? result : c_fileNotWritten;
}

}  // namespace sitehlp
