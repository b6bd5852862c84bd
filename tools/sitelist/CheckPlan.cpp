#include "CheckPlan.h"

#include <cctype>
#include <cstdio>

#include "Context.h"
#include "SiteKinds.h"

namespace sitelist {
namespace {

std::string Url(const char* scheme, const Endpoint& target, const std::string& path = "") {
  return std::string(scheme) + "://" + Shown(target) + path;
}

unsigned int PortOr(long long port, unsigned int fallback) {
  return port > 0 && port <= 65535 ? static_cast<unsigned int>(port) : fallback;
}

std::string Encoded(const std::string& segment) {
  std::string out;
  for (unsigned char c : segment) {
    if (std::isalnum(c) || std::string("-._~!$&'()*+,;=:@").find(static_cast<char>(c)) != std::string::npos) {
      out += static_cast<char>(c);
    } else {
      char hex[4];
      std::snprintf(hex, sizeof hex, "%%%02X", c);
      out += hex;
    }
  }
  return out;
}

SitePlan Named(const sitehlp::tag_Site& site) {
  SitePlan plan;
  plan.name = NameOf(site);
  plan.element = ElementOf(site);
  return plan;
}

// A probe of the site's relative path on its server.
Probe PathProbe(ProbeKind kind, const char* scheme, const wchar_t* host, long long port, unsigned int defaultPort,
                const wchar_t* relativePath) {
  Probe probe;
  probe.kind = kind;
  probe.target = {Narrow(host), PortOr(port, defaultPort)};
  probe.url = Url(scheme, probe.target, DirectoryPath(Narrow(relativePath)));
  return probe;
}

// A repository or SuperAgent site: HEAD of its relative path, through the
// HTTP proxy as an ordinary forwarded request.
SitePlan HttpPlan(const sitehlp::tag_Site& site, const ProxyRules& proxies) {
  const sitehlp::tag_HttpSite& s = site.httpSite;
  SitePlan plan = Named(site);
  Probe probe = PathProbe(ProbeKind::HttpHead, "http", s.szServer, s.nPort, c_httpPort, s.szRelativePath);
  probe.useAuth = s.nUseAuth != 0;
  if (probe.useAuth) {
    probe.user = Narrow(s.szUserName);
    probe.password = Narrow(s.szPassword);
  }
  probe.proxy = plan.proxy = proxies.For(Traffic::Http, probe.target.host);
  plan.check = "HEAD " + probe.url;
  plan.probes.push_back(probe);
  return plan;
}

// The management server: its name, else its address, else its NetBIOS name.
std::string SpipeHost(const sitehlp::tag_HttpSite& s) {
  if (s.szServer[0]) return Narrow(s.szServer);
  return Narrow(s.szServerIP[0] ? s.szServerIP : s.szServerName);
}

// The management server: a verified TLS handshake on the secure port (when
// it has one) and a connection on the plain port, both tunnelled through the
// HTTP proxy.
SitePlan SpipePlan(const sitehlp::tag_Site& site, const ProxyRules& proxies) {
  const sitehlp::tag_HttpSite& s = site.httpSite;
  SitePlan plan = Named(site);
  const std::string host = SpipeHost(s);
  plan.proxy = proxies.For(Traffic::Http, host);
  Probe plain;
  plain.kind = ProbeKind::TcpConnect;
  plain.target = {host, PortOr(s.nPort, c_httpPort)};
  plain.url = Url("http", plain.target);
  plain.proxy = plan.proxy;
  plain.tunnel = true;
  if (s.nSecurePort != 0) {
    Probe secure = plain;
    secure.kind = ProbeKind::TlsHandshake;
    secure.label = "TLS";
    secure.target.port = PortOr(s.nSecurePort, 443);
    secure.url = Url("https", secure.target);
    plain.label = "TCP";
    plan.probes.push_back(secure);
    plan.check = "TLS " + Shown(secure.target) + ", ";
  }
  plan.check += "TCP " + Shown(plain.target);
  plan.probes.push_back(plain);
  return plan;
}

// An FTP site: log in and change to the relative path, through a tunnel of
// the FTP proxy so that the login is the server's own.
SitePlan FtpPlan(const sitehlp::tag_Site& site, const ProxyRules& proxies) {
  const sitehlp::tag_FtpSite& s = site.ftpSite;
  SitePlan plan = Named(site);
  Probe probe = PathProbe(ProbeKind::FtpLogin, "ftp", s.szServer, s.nPort, c_ftpPort, s.szRelativePath);
  probe.user = Narrow(s.szUserName);
  probe.password = Narrow(s.szPassword);
  probe.useAuth = !probe.user.empty();
  probe.proxy = plan.proxy = proxies.For(Traffic::Ftp, probe.target.host);
  probe.tunnel = true;
  plan.check = "FTP " + probe.url + " as " + (probe.useAuth ? probe.user : "anonymous");
  plan.probes.push_back(probe);
  return plan;
}

// A UNC site: its server answers on the SMB port. No proxy carries SMB.
SitePlan UncPlan(const sitehlp::tag_Site& site) {
  SitePlan plan = Named(site);
  std::string host = Narrow(site.uncSite.szServer);
  host.erase(0, host.find_first_not_of("\\/"));
  Probe probe;
  probe.kind = ProbeKind::TcpConnect;
  probe.target = {host, c_smbPort};
  probe.url = Url("telnet", probe.target);
  plan.check = "TCP " + Shown(probe.target);
  plan.probes.push_back(probe);
  return plan;
}

SitePlan LocalPlan(const sitehlp::tag_Site& site) {
  SitePlan plan = Named(site);
  plan.localPath = Narrow(site.localSite.szRelativePath);
  plan.check = "read " + *plan.localPath;
  return plan;
}

}  // namespace

std::string DirectoryPath(const std::string& relativePath) {
  std::string path = "/";
  std::string segment;
  for (std::size_t i = 0; i <= relativePath.size(); ++i) {
    const char c = i < relativePath.size() ? relativePath[i] : '/';
    if (c != '/' && c != '\\') {
      segment += c;
    } else if (!segment.empty()) {
      path += Encoded(segment) + "/";
      segment.clear();
    }
  }
  return path;
}

SitePlan PlanOf(const sitehlp::tag_Site& site, const ProxyRules& proxies) {
  switch (site.nSiteType) {
    case sitehlp::SITE_TYPE_HTTP: return IsSpipe(site) ? SpipePlan(site, proxies) : HttpPlan(site, proxies);
    case sitehlp::SITE_TYPE_FTP: return FtpPlan(site, proxies);
    case sitehlp::SITE_TYPE_UNC: return UncPlan(site);
    default: return LocalPlan(site);
  }
}

}  // namespace sitelist
