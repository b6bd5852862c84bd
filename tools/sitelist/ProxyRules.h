// When check goes through the site list's proxy. The proxy configuration
// names an HTTP proxy (for the HTTP family of sites: repositories, SuperAgent
// sites, the management server) and an FTP proxy (for FTP sites), hosts that
// are reached without it, and whether local addresses are. A configuration
// that defers to the system's settings (UseIEConfig) takes them from the
// environment, as other programs on the device do: http_proxy, ftp_proxy and
// no_proxy (or their upper-case names).
#ifndef VLM_TOOLS_SITELIST_PROXYRULES_H
#define VLM_TOOLS_SITELIST_PROXYRULES_H

#include <optional>
#include <string>
#include <vector>

#include "HostPins.h"
#include "sitehlp/SitesHelper.h"

namespace sitelist {

struct ProxyServer {
  Endpoint endpoint;
  std::string user;
  std::string password;  // clear text, as the library read it; never shown
};

enum class Traffic { Http, Ftp };

class ProxyRules {
 public:
  // No proxy: every site is reached directly.
  ProxyRules() = default;
  explicit ProxyRules(const sitehlp::tag_ProxySettings& settings);

  // The proxy a connection of that traffic to host goes through, if any: the
  // configured proxy unless host is excluded, or is local while local
  // addresses bypass the proxy.
  std::optional<ProxyServer> For(Traffic traffic, const std::string& host) const;

 private:
  void FromEnvironment();

  std::optional<ProxyServer> m_http, m_ftp;
  std::vector<std::string> m_exclusions;  // patterns; '*' stands for any text
  bool m_bypassLocal = false;
};

// A local address as the bypass means it: a name without a dot (an intranet
// name such as "fileserver"), or a loopback address.
bool IsLocalAddress(const std::string& host);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_PROXYRULES_H
