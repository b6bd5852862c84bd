// What check does for each kind of site: the least that proves the site
// serves. HTTP repositories and SuperAgent sites: a HEAD of the relative
// path. The management server (SPIPE site): a TLS handshake on its secure port
// and a connection on its plain port. FTP sites: a login with the site's user
// and a change to the relative path. UNC sites: a connection to port 445.
// Local sites: the path is read.
#ifndef VLM_TOOLS_SITELIST_CHECKPLAN_H
#define VLM_TOOLS_SITELIST_CHECKPLAN_H

#include <optional>
#include <string>
#include <vector>

#include "HostPins.h"
#include "ProxyRules.h"
#include "sitehlp/SitesHelper.h"

namespace sitelist {

enum class ProbeKind { HttpHead, TlsHandshake, TcpConnect, FtpLogin };

// One connection to make.
struct Probe {
  ProbeKind kind = ProbeKind::TcpConnect;
  std::string label;  // "TLS" or "TCP" where a site needs two probes, else empty
  std::string url;    // without credentials
  Endpoint target;    // the site's host and port
  std::string user;
  std::string password;  // clear text; never shown
  bool useAuth = false;
  std::optional<ProxyServer> proxy;
  // The proxy carries the connection as a tunnel (CONNECT) rather than
  // forwarding requests.
  bool tunnel = false;
};

struct SitePlan {
  std::string name;
  std::string element;
  std::string check;  // what is checked, as the table shows it
  std::vector<Probe> probes;
  std::optional<std::string> localPath;  // a local site: the path to read
  std::optional<ProxyServer> proxy;      // the proxy the probes go through
};

SitePlan PlanOf(const sitehlp::tag_Site& site, const ProxyRules& proxies);

// The relative path as a URL path of a directory: "/", or "/a/b/" with back
// slashes taken for slashes and each segment percent-encoded.
std::string DirectoryPath(const std::string& relativePath);

// The port a site record uses when its own is 0.
constexpr unsigned int c_httpPort = 80, c_ftpPort = 21, c_smbPort = 445;

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_CHECKPLAN_H
