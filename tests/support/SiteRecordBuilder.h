// Sample site records for the tests and the benchmarks, built field by field:
//
//   tag_Site* ftp = SiteBuilder(SITE_TYPE_FTP).Type(L"repository").Order(1).Enabled()
//                       .Name(L"Ftp").Server(L"ftp.example", 21).Path(L"pub").Release();
//
// Records are allocated as the library allocates them (calloc of the whole
// record, so every field not set is zero) and released with free() or
// FreeSiteListMemory. Setting a field the kind does not have, or a text that
// does not fit its field, throws: it is a mistake in the test.
#ifndef VLM_TESTS_SUPPORT_SITERECORDBUILDER_H
#define VLM_TESTS_SUPPORT_SITERECORDBUILDER_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>
#include <stdexcept>
#include <string>

#include "sitehlp/SitesHelper.h"

namespace sitesample {

using sitehlp::tag_Site;

// A zeroed record of the given kind.
inline tag_Site* NewSite(int kind) {
  tag_Site* site = static_cast<tag_Site*>(std::calloc(1, sizeof(tag_Site)));
  if (!site) throw std::bad_alloc();
  site->nSiteType = kind;
  return site;
}

// Fills a fixed-capacity field; the text must fit (capacity - 1 characters).
template <std::size_t N>
void Set(wchar_t (&field)[N], const std::wstring& text) {
  if (text.size() >= N) throw std::length_error("text does not fit the field");
  std::wmemset(field, 0, N);
  std::wmemcpy(field, text.data(), text.size());
}

// A copy of every record of a list, linked in the same order.
inline tag_Site* CopyList(const tag_Site* list) {
  tag_Site* head = nullptr;
  tag_Site* tail = nullptr;
  for (const tag_Site* s = list; s; s = s->pNext) {
    tag_Site* copy = NewSite(s->nSiteType);
    std::memcpy(copy, s, sizeof(tag_Site));
    copy->pNext = nullptr;
    (tail ? tail->pNext : head) = copy;
    tail = copy;
  }
  return head;
}

class SiteBuilder {
 public:
  explicit SiteBuilder(int kind) : m_site(NewSite(kind)) {}
  ~SiteBuilder() { std::free(m_site); }
  SiteBuilder(const SiteBuilder&) = delete;
  SiteBuilder& operator=(const SiteBuilder&) = delete;

  // Hands the record over.
  tag_Site* Release() {
    tag_Site* site = m_site;
    m_site = nullptr;
    return site;
  }

  // ---- the header ----
  SiteBuilder& Type(const std::wstring& type) { return Do([&] { Set(m_site->szType, type); }); }
  SiteBuilder& Order(int32_t order) { return Do([&] { m_site->nOrder = order; }); }
  SiteBuilder& Enabled(int32_t value = 1) { return Do([&] { m_site->bEnabled = value; }); }
  SiteBuilder& Local(int32_t value = 1) { return Do([&] { m_site->bLocal = value; }); }
  SiteBuilder& Mirror(int32_t value = 1) { return Do([&] { m_site->bMirror = value; }); }
  SiteBuilder& SpipeOrSuperAgent(int32_t value = 1) { return Do([&] { m_site->bSpipeOrSuperAgent = value; }); }

  // ---- fields several kinds have ----
  SiteBuilder& Name(const std::wstring& name) {
    switch (m_site->nSiteType) {
      case sitehlp::SITE_TYPE_HTTP: Set(m_site->httpSite.szName, name); break;
      case sitehlp::SITE_TYPE_FTP: Set(m_site->ftpSite.szName, name); break;
      case sitehlp::SITE_TYPE_UNC: Set(m_site->uncSite.szName, name); break;
      case sitehlp::SITE_TYPE_LOCAL: Set(m_site->localSite.szName, name); break;
      default: Set(Proxy().szName, name); break;
    }
    return *this;
  }
  // HTTP family and FTP: host and port; UNC: the bare host.
  SiteBuilder& Server(const std::wstring& host, int32_t port) {
    if (m_site->nSiteType == sitehlp::SITE_TYPE_FTP) {
      Set(m_site->ftpSite.szServer, host);
      m_site->ftpSite.nPort = port;
    } else {
      Set(Http().szServer, host);
      m_site->httpSite.nPort = port;
    }
    return *this;
  }
  SiteBuilder& Server(const std::wstring& host) { return Do([&] { Set(Unc().szServer, host); }); }
  SiteBuilder& SecurePort(uint32_t port) {
    if (m_site->nSiteType == sitehlp::SITE_TYPE_FTP)
      m_site->ftpSite.nSecurePort = port;
    else
      Http().nSecurePort = port;
    return *this;
  }
  SiteBuilder& Path(const std::wstring& path) {
    switch (m_site->nSiteType) {
      case sitehlp::SITE_TYPE_HTTP: Set(m_site->httpSite.szRelativePath, path); break;
      case sitehlp::SITE_TYPE_FTP: Set(m_site->ftpSite.szRelativePath, path); break;
      case sitehlp::SITE_TYPE_UNC: Set(m_site->uncSite.szRelativePath, path); break;
      default: Set(LocalBody().szRelativePath, path); break;
    }
    return *this;
  }
  // User name and password (clear text).
  SiteBuilder& Account(const std::wstring& user, const std::wstring& password) {
    switch (m_site->nSiteType) {
      case sitehlp::SITE_TYPE_HTTP: return SetAccount(m_site->httpSite, user, password);
      case sitehlp::SITE_TYPE_FTP: return SetAccount(m_site->ftpSite, user, password);
      case sitehlp::SITE_TYPE_UNC: return SetAccount(m_site->uncSite, user, password);
      default: return SetAccount(LocalBody(), user, password);
    }
  }
  SiteBuilder& Domain(const std::wstring& domain) {
    if (m_site->nSiteType == sitehlp::SITE_TYPE_UNC)
      Set(m_site->uncSite.szDomainName, domain);
    else
      Set(LocalBody().szDomainName, domain);
    return *this;
  }
  SiteBuilder& LoggedOnUser(int32_t value) {
    if (m_site->nSiteType == sitehlp::SITE_TYPE_UNC)
      m_site->uncSite.nUseLoggedonUserAccount = value;
    else
      LocalBody().nUseLoggedonUserAccount = value;
    return *this;
  }

  // ---- the HTTP family ----
  SiteBuilder& Element(const std::wstring& element) { return Do([&] { Set(Http().szSiteElement, element); }); }
  SiteBuilder& ServerName(const std::wstring& name, int32_t port) {
    return Do([&] {
      Set(Http().szServerName, name);
      m_site->httpSite.nServerNamePort = port;
    });
  }
  SiteBuilder& ServerIP(const std::wstring& address, int32_t port) {
    return Do([&] {
      Set(Http().szServerIP, address);
      m_site->httpSite.nServerIPPort = port;
    });
  }
  SiteBuilder& Version(const std::wstring& version) { return Do([&] { Set(Http().szVersion, version); }); }
  SiteBuilder& UseAuth(int32_t value) { return Do([&] { Http().nUseAuth = value; }); }

  // ---- UNC ----
  SiteBuilder& Share(const std::wstring& share) { return Do([&] { Set(Unc().szShareName, share); }); }

  // ---- proxy configuration ----
  SiteBuilder& ProxyKind(const std::wstring& kind) { return Do([&] { Set(Proxy().szProxyKind, kind); }); }
  SiteBuilder& UseIEConfig(int32_t value = 1) { return Do([&] { Proxy().bUseIEConfig = value; }); }
  SiteBuilder& HttpProxy(const std::wstring& host, int32_t port) {
    return Do([&] {
      Set(Proxy().szHttpProxyServer, host);
      m_site->proxySettings.nHttpProxyPort = port;
    });
  }
  SiteBuilder& FtpProxy(const std::wstring& host, int32_t port) {
    return Do([&] {
      Set(Proxy().szFtpProxyServer, host);
      m_site->proxySettings.nFtpProxyPort = port;
    });
  }
  // AllowUserToConfigureProxy and BypassLocalAddress.
  SiteBuilder& UserMayConfigure(int32_t value) { return Do([&] { Proxy().bAllowUserToConfigureProxy = value; }); }
  SiteBuilder& BypassLocal(int32_t value) { return Do([&] { Proxy().bBypassLocalAddress = value; }); }
  // The ";"-joined hosts and the count the record claims for them.
  SiteBuilder& Exclusions(const std::wstring& hosts, int32_t count) {
    return Do([&] {
      Set(Proxy().szExclusionList, hosts);
      m_site->proxySettings.nExclusionCount = count;
    });
  }
  // FtpUseAuth and HttpUseAuth; then the alternate pair.
  SiteBuilder& ProxyAuth(int32_t ftp, int32_t http) {
    return Do([&] {
      Proxy().bFtpUseAuth = ftp;
      m_site->proxySettings.bHttpUseAuth = http;
    });
  }
  SiteBuilder& AlternateProxyAuth(int32_t ftp, int32_t http) {
    return Do([&] {
      Proxy().bAlternateFtpUseAuth = ftp;
      m_site->proxySettings.bAlternateHttpUseAuth = http;
    });
  }
  SiteBuilder& HttpProxyAccount(const std::wstring& user, const std::wstring& password) {
    return Do([&] { SetPair(Proxy().szHttpProxyUser, user, m_site->proxySettings.szHttpProxyPassword, password); });
  }
  SiteBuilder& FtpProxyAccount(const std::wstring& user, const std::wstring& password) {
    return Do([&] { SetPair(Proxy().szFtpProxyUser, user, m_site->proxySettings.szFtpProxyPassword, password); });
  }
  SiteBuilder& AlternateHttpProxyAccount(const std::wstring& user, const std::wstring& password) {
    return Do([&] {
      SetPair(Proxy().szAlternateHttpProxyUser, user, m_site->proxySettings.szAlternateHttpProxyPassword, password);
    });
  }
  SiteBuilder& AlternateFtpProxyAccount(const std::wstring& user, const std::wstring& password) {
    return Do([&] {
      SetPair(Proxy().szAlternateFtpProxyUser, user, m_site->proxySettings.szAlternateFtpProxyPassword, password);
    });
  }

 private:
  template <typename F>
  SiteBuilder& Do(F f) {
    f();
    return *this;
  }
  template <typename Body>
  SiteBuilder& SetAccount(Body& body, const std::wstring& user, const std::wstring& password) {
    SetPair(body.szUserName, user, body.szPassword, password);
    return *this;
  }
  template <std::size_t N, std::size_t M>
  static void SetPair(wchar_t (&first)[N], const std::wstring& a, wchar_t (&second)[M], const std::wstring& b) {
    Set(first, a);
    Set(second, b);
  }
  void Require(int kind) const {
    if (m_site->nSiteType != kind) throw std::logic_error("the record's kind has no such field");
  }
  sitehlp::tag_HttpSite& Http() { return Require(sitehlp::SITE_TYPE_HTTP), m_site->httpSite; }
  sitehlp::tag_UncSite& Unc() { return Require(sitehlp::SITE_TYPE_UNC), m_site->uncSite; }
  sitehlp::tag_LocalSite& LocalBody() { return Require(sitehlp::SITE_TYPE_LOCAL), m_site->localSite; }
  sitehlp::tag_ProxySettings& Proxy() { return Require(sitehlp::SITE_TYPE_PROXY), m_site->proxySettings; }

  tag_Site* m_site;
};

}  // namespace sitesample

#endif  // VLM_TESTS_SUPPORT_SITERECORDBUILDER_H
