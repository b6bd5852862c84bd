// Where check connects: host names pinned to addresses (--resolve), host and
// port pairs sent elsewhere (--connect-to), and whether any other name may be
// looked up (--no-lookup). The same rules serve every kind of site, so that a
// UNC site's name is pinned just as an HTTP site's is.
#ifndef VLM_TOOLS_SITELIST_HOSTPINS_H
#define VLM_TOOLS_SITELIST_HOSTPINS_H

#include <optional>
#include <string>
#include <vector>

#include "SiteInput.h"

namespace sitelist {

struct Endpoint {
  std::string host;  // a name, or an address (IPv6 in brackets)
  unsigned int port = 0;
};

class HostPins {
 public:
  // HOST:PORT:ADDRESS[,ADDRESS]..., as curl's --resolve.
  std::optional<InputError> AddResolve(const std::string& text);
  // HOST:PORT:HOST2:PORT2, as curl's --connect-to.
  std::optional<InputError> AddConnectTo(const std::string& text);
  void SetNoLookup(bool noLookup) { m_noLookup = noLookup; }

  // The endpoint a connection to target really goes to (--connect-to). As
  // with curl's, this holds for the connections to sites, not to a proxy.
  Endpoint Redirected(const Endpoint& target) const;
  // Whether connecting to endpoint (redirected already) needs a look-up that
  // --no-lookup forbids: it is a name that no --resolve pins.
  bool LookupForbidden(const Endpoint& endpoint) const;

  // The entries as curl takes them: the --resolve ones that pin endpoint
  // (CURLOPT_RESOLVE), and every --connect-to (CURLOPT_CONNECT_TO).
  std::vector<std::string> ResolveEntriesFor(const Endpoint& endpoint) const;
  const std::vector<std::string>& ConnectToEntries() const { return m_connectTo; }

 private:
  struct Redirect {
    Endpoint from, to;
  };
  struct Pin {
    Endpoint endpoint;
    std::string entry;
  };
  std::vector<std::string> m_connectTo;
  std::vector<Pin> m_pins;
  std::vector<Redirect> m_redirects;
  bool m_noLookup = false;
};

// "host:port", as messages and URLs name an endpoint (an IPv6 address in
// brackets).
std::string Shown(const Endpoint& endpoint);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_HOSTPINS_H
