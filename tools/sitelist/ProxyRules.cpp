#include "ProxyRules.h"

#include <arpa/inet.h>
#include <fnmatch.h>

#include <algorithm>
#include <cstdlib>

#include "Context.h"

namespace sitelist {
namespace {

std::optional<ProxyServer> Configured(const wchar_t* host, int port, bool useAuth, const wchar_t* user,
                                      const wchar_t* password) {
  if (!host[0]) return std::nullopt;
  ProxyServer proxy{{Narrow(host), static_cast<unsigned int>(port)}, "", ""};
  if (useAuth) {
    proxy.user = Narrow(user);
    proxy.password = Narrow(password);
  }
  return proxy;
}

const char* Variable(const char* lower, const char* upper) {
  const char* value = std::getenv(lower);
  return value && *value ? value : std::getenv(upper);
}

// "[http://][user:password@]host[:port][/]", as the proxy variables hold a
// proxy; curl's default port 1080 when none is given.
std::optional<ProxyServer> FromVariable(const char* value) {
  if (!value || !*value) return std::nullopt;
  std::string text = value;
  if (const std::size_t scheme = text.find("://"); scheme != std::string::npos) text = text.substr(scheme + 3);
  text = text.substr(0, text.find('/'));
  ProxyServer proxy;
  if (const std::size_t at = text.rfind('@'); at != std::string::npos) {
    const std::string credentials = text.substr(0, at);
    proxy.user = credentials.substr(0, credentials.find(':'));
    if (credentials.find(':') != std::string::npos) proxy.password = credentials.substr(credentials.find(':') + 1);
    text = text.substr(at + 1);
  }
  HostPort hostPort;
  if (ParseHostPort("proxy", text, 255, hostPort)) return std::nullopt;
  proxy.endpoint = {hostPort.host, hostPort.port.value_or(1080)};
  return proxy;
}

// A no_proxy entry names a domain with its subdomains: "corp.example" and
// ".corp.example" both cover corp.example and a.corp.example.
void AddNoProxy(std::vector<std::string>& patterns, const std::string& entry) {
  if (entry == "*") {
    patterns.push_back("*");
    return;
  }
  const std::string domain = entry[0] == '.' ? entry.substr(1) : entry;
  patterns.push_back(domain);
  patterns.push_back("*." + domain);
}

bool IsLoopback(const std::string& address) {
  std::string bare = address;
  if (bare.size() > 2 && bare.front() == '[') bare = bare.substr(1, bare.size() - 2);
  in_addr v4{};
  if (inet_pton(AF_INET, bare.c_str(), &v4) == 1) return ntohl(v4.s_addr) >> 24 == 127;
  in6_addr v6{};
  return inet_pton(AF_INET6, bare.c_str(), &v6) == 1 && IN6_IS_ADDR_LOOPBACK(&v6);
}

// The non-empty items of a list, without surrounding blanks.
std::vector<std::string> Items(const std::string& list, char separator) {
  std::vector<std::string> items;
  for (std::size_t start = 0; start <= list.size();) {
    const std::size_t end = std::min(list.find(separator, start), list.size());
    std::string item = list.substr(start, end - start);
    item.erase(0, item.find_first_not_of(' '));
    item.erase(item.find_last_not_of(' ') + 1);
    if (!item.empty()) items.push_back(item);
    start = end + 1;
  }
  return items;
}

}  // namespace

bool IsLocalAddress(const std::string& host) {
  if (IsIpAddress(host)) return IsLoopback(host);
  return host.find('.') == std::string::npos;
}

ProxyRules::ProxyRules(const sitehlp::tag_ProxySettings& p) : m_bypassLocal(p.bBypassLocalAddress != 0) {
  if (p.bUseIEConfig) {
    FromEnvironment();
    return;
  }
  m_http = Configured(p.szHttpProxyServer, p.nHttpProxyPort, p.bHttpUseAuth, p.szHttpProxyUser, p.szHttpProxyPassword);
  m_ftp = Configured(p.szFtpProxyServer, p.nFtpProxyPort, p.bFtpUseAuth, p.szFtpProxyUser, p.szFtpProxyPassword);
  m_exclusions = Items(Narrow(p.szExclusionList), ';');
}

void ProxyRules::FromEnvironment() {
  m_http = FromVariable(Variable("http_proxy", "HTTP_PROXY"));
  m_ftp = FromVariable(Variable("ftp_proxy", "FTP_PROXY"));
  const char* noProxy = Variable("no_proxy", "NO_PROXY");
  for (const std::string& entry : Items(noProxy ? noProxy : "", ',')) AddNoProxy(m_exclusions, entry);
}

std::optional<ProxyServer> ProxyRules::For(Traffic traffic, const std::string& host) const {
  const std::optional<ProxyServer>& proxy = traffic == Traffic::Http ? m_http : m_ftp;
  if (!proxy) return std::nullopt;
  for (const std::string& pattern : m_exclusions)
    if (fnmatch(pattern.c_str(), host.c_str(), FNM_CASEFOLD) == 0) return std::nullopt;
  if (m_bypassLocal && IsLocalAddress(host)) return std::nullopt;
  return proxy;
}

}  // namespace sitelist
