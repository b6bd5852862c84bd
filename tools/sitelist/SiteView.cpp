#include "SiteView.h"

#include "Context.h"
#include "SiteKinds.h"

namespace sitelist {
namespace {

std::string HostPort(const wchar_t* host, long long port) { return Narrow(host) + ":" + std::to_string(port); }

// The proxy's server: the HTTP proxy when one is set, else the FTP proxy.
std::string ProxyServer(const sitehlp::tag_ProxySettings& p) {
  if (p.szHttpProxyServer[0]) return HostPort(p.szHttpProxyServer, p.nHttpProxyPort);
  if (p.szFtpProxyServer[0]) return HostPort(p.szFtpProxyServer, p.nFtpProxyPort);
  return "";
}

}  // namespace

bool TriedBefore(int a, int b) {
  if ((a == 0) != (b == 0)) return b == 0;
  return a < b;
}

SiteView ViewOf(const sitehlp::tag_Site& site) {
  SiteView v;
  v.type = Narrow(site.szType);
  v.order = site.nOrder;
  v.enabled = site.bEnabled != 0;
  v.local = site.bLocal != 0;
  v.element = ElementOf(site);
  v.name = NameOf(site);
  switch (site.nSiteType) {
    case sitehlp::SITE_TYPE_HTTP: {
      const sitehlp::tag_HttpSite& s = site.httpSite;
      v.kind = "HTTP";
      v.server = HostPort(s.szServer, static_cast<unsigned int>(s.nPort));
      v.hasPassword = s.szPassword[0] != 0;
      break;
    }
    case sitehlp::SITE_TYPE_FTP: {
      const sitehlp::tag_FtpSite& s = site.ftpSite;
      v.kind = "FTP";
      v.server = HostPort(s.szServer, static_cast<unsigned int>(s.nPort));
      v.hasPassword = s.szPassword[0] != 0;
      break;
    }
    case sitehlp::SITE_TYPE_UNC:
      v.kind = "UNC";
      v.server = Narrow(site.uncSite.szServer);
      v.hasPassword = site.uncSite.szPassword[0] != 0;
      break;
    case sitehlp::SITE_TYPE_LOCAL:
      v.kind = "Local";
      v.server = "127.0.0.1";  // what the document always holds for a local site
      v.hasPassword = site.localSite.szPassword[0] != 0;
      break;
    case sitehlp::SITE_TYPE_PROXY: {
      const sitehlp::tag_ProxySettings& p = site.proxySettings;
      v.kind = "Proxy";
      v.element = "ProxyConfigList";
      v.server = ProxyServer(p);
      v.hasPassword = p.szHttpProxyPassword[0] || p.szFtpProxyPassword[0] || p.szAlternateHttpProxyPassword[0] ||
                      p.szAlternateFtpProxyPassword[0];
      break;
    }
    default:
      v.kind = "?";
      break;
  }
  return v;
}

}  // namespace sitelist
