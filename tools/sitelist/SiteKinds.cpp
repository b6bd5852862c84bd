#include "SiteKinds.h"

#include <cwchar>

#include "Context.h"
#include "xmlschema/sitelist.h"

namespace sitelist {

// Not among the schema constants, but the value that marks the fallback site.
const wchar_t c_typeFallback[] = L"fallback";

std::string ElementOf(const sitehlp::tag_Site& site) {
  switch (site.nSiteType) {
    case sitehlp::SITE_TYPE_HTTP:
      return Narrow(site.httpSite.szSiteElement[0] ? site.httpSite.szSiteElement : ZEL_XML_SITELIST_HTTP_SITE);
    case sitehlp::SITE_TYPE_FTP: return Narrow(ZEL_XML_SITELIST_FTP_SITE);
    case sitehlp::SITE_TYPE_UNC: return Narrow(ZEL_XML_SITELIST_UNC_SITE);
    case sitehlp::SITE_TYPE_LOCAL: return Narrow(ZEL_XML_SITELIST_LOCAL_SITE);
    case sitehlp::SITE_TYPE_PROXY: return Narrow(ZEL_XML_PROXY_CONFIG);
    default: return "?";
  }
}

namespace {

// The name field of either a record or a read-only record.
template <typename Site>
auto NameFieldOf(Site& site) -> decltype(&site.httpSite.szName[0]) {
  switch (site.nSiteType) {
    case sitehlp::SITE_TYPE_HTTP: return site.httpSite.szName;
    case sitehlp::SITE_TYPE_FTP: return site.ftpSite.szName;
    case sitehlp::SITE_TYPE_UNC: return site.uncSite.szName;
    case sitehlp::SITE_TYPE_LOCAL: return site.localSite.szName;
    case sitehlp::SITE_TYPE_PROXY: return site.proxySettings.szName;
    default: return nullptr;
  }
}

}  // namespace

wchar_t* NameField(sitehlp::tag_Site& site) { return NameFieldOf(site); }

std::string NameOf(const sitehlp::tag_Site& site) {
  const wchar_t* name = NameFieldOf(site);
  return name ? Narrow(name) : "";
}

std::string Described(const sitehlp::tag_Site& site) { return ElementOf(site) + " \"" + NameOf(site) + "\""; }

bool IsSpipe(const sitehlp::tag_Site& site) {
  return site.nSiteType == sitehlp::SITE_TYPE_HTTP &&
         wcscasecmp(site.httpSite.szSiteElement, ZEL_XML_SITELIST_SPIPE_SITE) == 0;
}

bool IsFallback(const sitehlp::tag_Site& site) { return wcscasecmp(site.szType, c_typeFallback) == 0; }

bool IsMirror(const sitehlp::tag_Site& site) { return wcscasecmp(site.szType, STR_SITE_TYPE_MIRROR) == 0; }

bool IsProxy(const sitehlp::tag_Site& site) { return site.nSiteType == sitehlp::SITE_TYPE_PROXY; }

}  // namespace sitelist
