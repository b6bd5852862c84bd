#include "HostPins.h"

#include <strings.h>

namespace sitelist {
namespace {

// Splits "HOST:PORT:REST" (HOST may be an IPv6 address in brackets) into the
// parsed HOST:PORT and REST.
std::optional<InputError> SplitLeading(const std::string& what, const std::string& text, Endpoint& leading,
                                       std::string& rest) {
  // The host ends at the first colon, or at the bracket closing an address.
  const std::size_t hostEnd = !text.empty() && text[0] == '[' ? text.find(']') : 0;
  const std::size_t portColon = hostEnd == std::string::npos ? hostEnd : text.find(':', hostEnd);
  const std::size_t restColon = portColon == std::string::npos ? portColon : text.find(':', portColon + 1);
  if (restColon == std::string::npos) return InputError{what + ": \"" + text + "\" is not HOST:PORT:..."};
  HostPort hostPort;
  if (auto e = ParseHostPort(what, text.substr(0, restColon), 255, hostPort)) return e;
  if (!hostPort.port) return InputError{what + ": \"" + text + "\" gives no port"};
  leading = {hostPort.host, *hostPort.port};
  rest = text.substr(restColon + 1);
  return std::nullopt;
}

bool Same(const Endpoint& a, const Endpoint& b) {
  return a.port == b.port && strcasecmp(a.host.c_str(), b.host.c_str()) == 0;
}

}  // namespace

std::string Shown(const Endpoint& endpoint) {
  const bool bareIpv6 = endpoint.host.find(':') != std::string::npos && endpoint.host[0] != '[';
  return (bareIpv6 ? "[" + endpoint.host + "]" : endpoint.host) + ":" + std::to_string(endpoint.port);
}

std::optional<InputError> HostPins::AddResolve(const std::string& text) {
  Endpoint pinned;
  std::string addresses;
  if (auto e = SplitLeading("--resolve", text, pinned, addresses)) return e;
  std::size_t start = 0;
  do {
    const std::size_t comma = addresses.find(',', start);
    const std::string address = addresses.substr(start, comma - start);
    if (!IsIpAddress(address))
      return InputError{"--resolve: \"" + address + "\" in \"" + text + "\" is not an IPv4 or IPv6 address"};
    start = comma == std::string::npos ? comma : comma + 1;
  } while (start != std::string::npos);
  m_pins.push_back({pinned, text});
  return std::nullopt;
}

std::optional<InputError> HostPins::AddConnectTo(const std::string& text) {
  Redirect redirect;
  std::string to;
  if (auto e = SplitLeading("--connect-to", text, redirect.from, to)) return e;
  HostPort hostPort;
  if (auto e = ParseHostPort("--connect-to", to, 255, hostPort)) return e;
  if (!hostPort.port) return InputError{"--connect-to: \"" + text + "\" gives no port to connect to"};
  redirect.to = {hostPort.host, *hostPort.port};
  m_redirects.push_back(redirect);
  m_connectTo.push_back(text);
  return std::nullopt;
}

Endpoint HostPins::Redirected(const Endpoint& target) const {
  for (const Redirect& r : m_redirects)
    if (Same(r.from, target)) return r.to;
  return target;
}

bool HostPins::LookupForbidden(const Endpoint& endpoint) const {
  return m_noLookup && !IsIpAddress(endpoint.host) && ResolveEntriesFor(endpoint).empty();
}

std::vector<std::string> HostPins::ResolveEntriesFor(const Endpoint& endpoint) const {
  std::vector<std::string> entries;
  for (const Pin& pin : m_pins)
    if (Same(pin.endpoint, endpoint)) entries.push_back(pin.entry);
  return entries;
}

}  // namespace sitelist
