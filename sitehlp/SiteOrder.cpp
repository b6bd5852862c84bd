// Ranking the vendor's default HTTP update site ahead of its default FTP
// update site: only their two orders are exchanged, no record moves.
#include "port/config/IConfiguration.h"
#include "port/log/Log.h"
#include "port/strings/Strings.h"
#include "sitehlp/Component.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

namespace {

constexpr wchar_t c_siteTypeFallback[] = L"fallback";
constexpr int32_t c_defaultFtpPort = 21;

// Enabled (exactly 1), not local and not the fallback site.
bool IsCandidateSite(const tag_Site* site) {
  return site->bEnabled == 1 && site->bLocal == 0 && wcsicmp(site->szType, c_siteTypeFallback) != 0;
}

}  // namespace

void CSitesHelper::AdjustSitesOrder(tag_Site* pSiteList) {
  ADetailTrace trace(c_component, L"Adjusting sitelist order");
  // The hosts are matched as whole texts: no port, sub-domain or trailing dot.
  const AString httpHost = port::DefaultHttpUpdateHost();
  const AString ftpHost = port::DefaultFtpUpdateHost();
  tag_Site* httpSite = nullptr;
  tag_Site* ftpSite = nullptr;
  for (tag_Site* site = pSiteList; site; site = site->pNext) {
    if (!httpSite && site->nSiteType == SITE_TYPE_HTTP && IsCandidateSite(site) &&
        wcsicmp(site->httpSite.szServer, httpHost.c_str()) == 0 && site->httpSite.nPort == c_defaultHttpPort) {
      httpSite = site;
      continue;
    }
    if (!ftpSite && site->nSiteType == SITE_TYPE_FTP && IsCandidateSite(site) &&
        wcsicmp(site->ftpSite.szServer, ftpHost.c_str()) == 0 && site->ftpSite.nPort == c_defaultFtpPort)
      ftpSite = site;
  }
  // An order of 0 means unranked (a fallback site is always read as 0) and
  // never takes part in an exchange.
  if (!httpSite || !ftpSite) return;
  const int32_t httpOrder = httpSite->nOrder;
  const int32_t ftpOrder = ftpSite->nOrder;
  if (httpOrder == 0 || ftpOrder == 0 || ftpOrder >= httpOrder) return;
  httpSite->nOrder = ftpOrder;
  ftpSite->nOrder = httpOrder;
  logInfo(c_component, L"Exchanged orders for ZelHttp and ZelFtp.");
}

}  // namespace sitehlp
