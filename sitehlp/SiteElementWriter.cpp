// One record into one site element behind the writer's cursor. Attribute and
// child orders are those of the document format; macro formatting and the
// exclusion list's tokenising happen in place on the record.
#include <cwchar>

#include "port/log/Log.h"
#include "port/strings/Strings.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Component.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

namespace {

using AdvXMLParser::Element;

// The first site goes first into SiteList (the cursor); every later one right
// behind the previous site.
Element NewSiteElement(AdvXMLParser::ElementRef cursorRef, const wchar_t* name, int index) {
  Element cursor(cursorRef);
  if (index == 0) return cursor.PrependElement(name);
  return cursor.GetParent().InsertElementAfter(name, cursor);
}

const wchar_t* TypeText(const tag_Site* site) {
  return site->szType[0] ? site->szType : STR_SITE_TYPE_REPOSITORY;
}

bool IsMirror(const tag_Site* site) { return wcsicmp(site->szType, STR_SITE_TYPE_MIRROR) == 0; }

// Decimal text of a number, as ConvertToStr writes it, in a small buffer:
// the stream-based conversion cost more than the rest of an attribute.
class Decimal {
 public:
  explicit Decimal(long long value) {
    wchar_t* end = m_text + sizeof m_text / sizeof m_text[0] - 1;
    *end = L'\0';
    m_begin = end;
    const bool negative = value < 0;
    unsigned long long v = negative ? 0ull - static_cast<unsigned long long>(value) : static_cast<unsigned long long>(value);
    do {
      *--m_begin = static_cast<wchar_t>(L'0' + v % 10);
      v /= 10;
    } while (v);
    if (negative) *--m_begin = L'-';
  }
  const wchar_t* c_str() const { return m_begin; }

 private:
  wchar_t m_text[24];
  wchar_t* m_begin;
};

// "host:port" with the port unsigned, built in place (a host fits a field of
// at most 261 characters).
class HostPort {
 public:
  HostPort(const wchar_t* host, int32_t port) {
    const std::size_t n = std::wcslen(host);
    const Decimal digits(static_cast<unsigned int>(port));
    if (n + 16 > sizeof m_fixed / sizeof m_fixed[0]) {
      m_long = std::wstring(host) + L":" + digits.c_str();
      m_p = m_long.c_str();
      return;
    }
    std::wmemcpy(m_fixed, host, n);
    m_fixed[n] = L':';
    std::wcscpy(m_fixed + n + 1, digits.c_str());
    m_p = m_fixed;
  }
  const wchar_t* c_str() const { return m_p; }

 private:
  wchar_t m_fixed[300];
  std::wstring m_long;
  const wchar_t* m_p;
};

// Site elements are new: their attributes are appended, not searched for.
inline void Attr(Element& e, const wchar_t* name, const wchar_t* value) { e.AppendAttribute(name, value); }
inline void Attr(Element& e, const wchar_t* name, long long value) { e.AppendAttribute(name, Decimal(value).c_str()); }
inline void Child(Element& e, const wchar_t* name, const wchar_t* text) { e.AppendElement(name).SetValue(text); }
inline void Child(Element& e, const wchar_t* name, int32_t value) {
  e.AppendElement(name).SetValue(Decimal(value).c_str());
}

}  // namespace

void CSitesHelper::WritePassword(Element& parent, const wchar_t* name, const wchar_t* clear) {
  Element element = parent.AppendElement(name);
  std::wstring encrypted;
  EncryptDecryptPassword(clear, encrypted, true);
  element.SetValue(encrypted);
  element.AppendAttribute(L"Encrypted", L"1");
}

// The Add operations write numbers with Decimal (ConvertToStr's text without
// a stream) and append attributes to their new element (AppendAttribute):
// the same document, built without a temporary string per value.

int CSitesHelper::AddHTTPSite(tag_Site* pSite, int index) {
  ADetailTrace trace(c_component, L"Adding HTTP site");
  tag_HttpSite& http = pSite->httpSite;
  const wchar_t* name = http.szSiteElement[0] ? http.szSiteElement : ZEL_XML_SITELIST_HTTP_SITE;
  Element site = NewSiteElement(m_pLastSiteElement, name, index);
  Attr(site, ZEL_XML_SITE_TYPE, TypeText(pSite));
  Attr(site, ZEL_XML_SITE_NAME, http.szName);
  if (!IsMirror(pSite)) Attr(site, ZEL_XML_SITE_ORDER, pSite->nOrder);
  Attr(site, ZEL_XML_SITE_ENABLED, pSite->bEnabled);
  Attr(site, ZEL_XML_SITE_LOCAL, pSite->bLocal);
  FormatEnvSymbols(http.szServer, c_nameCapacity);
  if (http.nSecurePort != 0) Attr(site, ZEL_XML_SSL_PORT, http.nSecurePort);
  Attr(site, ZEL_XML_SITE_SERVER, HostPort(http.szServer, http.nPort).c_str());
  if (wcsicmp(name, ZEL_XML_SITELIST_SPIPE_SITE) == 0) {
    FormatEnvSymbols(http.szServerName, c_serverNameCapacity);
    Attr(site, ZEL_XML_SERVER_NETBIOS_NAME, HostPort(http.szServerName, http.nServerNamePort).c_str());
    FormatEnvSymbols(http.szServerIP, c_serverIPCapacity);
    Attr(site, ZEL_XML_SITELIST_SPIPE_IPADDR, HostPort(http.szServerIP, http.nServerIPPort).c_str());
    if (http.szVersion[0]) {
      FormatEnvSymbols(http.szVersion, c_nameCapacity);
      Attr(site, ZEL_XML_SITE_SERVER_VERSION, http.szVersion);
    }
  } else if (std::wcscmp(name, ZEL_XML_SITELIST_SUPERAGENT_SITE) == 0) {
    FormatEnvSymbols(http.szServerName, c_serverNameCapacity);
    if (http.szServerName[0])
      Attr(site, ZEL_XML_SERVER_NETBIOS_NAME, HostPort(http.szServerName, http.nServerNamePort).c_str());
    FormatEnvSymbols(http.szServerIP, c_serverIPCapacity);
    if (http.szServerIP[0])
      Attr(site, ZEL_XML_SITELIST_SPIPE_IPADDR, HostPort(http.szServerIP, http.nServerIPPort).c_str());
  }
  FormatEnvSymbols(http.szRelativePath, c_pathCapacity);
  Child(site, ZEL_XML_SITE_RELATIVEPATH, http.szRelativePath);
  Child(site, ZEL_XML_HTTPSITE_USE_AUTH, http.nUseAuth);
  Child(site, ZEL_XML_SITE_USER_NAME, http.szUserName);
  WritePassword(site, ZEL_XML_SITE_PASSWORD, http.szPassword);
  m_pLastSiteElement = site.GetRef();
  return 0;
}

int CSitesHelper::AddFTPSite(tag_Site* pSite, int index) {
  ADetailTrace trace(c_component, L"Adding FTP site");
  tag_FtpSite& ftp = pSite->ftpSite;
  Element site = NewSiteElement(m_pLastSiteElement, ZEL_XML_SITELIST_FTP_SITE, index);
  Attr(site, ZEL_XML_SITE_TYPE, TypeText(pSite));
  Attr(site, ZEL_XML_SITE_NAME, ftp.szName);
  if (!IsMirror(pSite)) Attr(site, ZEL_XML_SITE_ORDER, pSite->nOrder);
  FormatEnvSymbols(ftp.szServer, c_nameCapacity);
  Attr(site, ZEL_XML_SITE_SERVER, HostPort(ftp.szServer, ftp.nPort).c_str());
  Attr(site, ZEL_XML_SITE_ENABLED, pSite->bEnabled);
  if (ftp.nSecurePort != 0) Attr(site, ZEL_XML_SSL_PORT, ftp.nSecurePort);
  Attr(site, ZEL_XML_SITE_LOCAL, pSite->bLocal);
  FormatEnvSymbols(ftp.szRelativePath, c_pathCapacity);
  Child(site, ZEL_XML_SITE_RELATIVEPATH, ftp.szRelativePath);
  Child(site, ZEL_XML_SITE_USER_NAME, ftp.szUserName);
  WritePassword(site, ZEL_XML_SITE_PASSWORD, ftp.szPassword);
  m_pLastSiteElement = site.GetRef();
  return 0;
}

int CSitesHelper::AddUNCSite(tag_Site* pSite, int index) {
  ADetailTrace trace(c_component, L"Adding UNC site");
  tag_UncSite& unc = pSite->uncSite;
  Element site = NewSiteElement(m_pLastSiteElement, ZEL_XML_SITELIST_UNC_SITE, index);
  Attr(site, ZEL_XML_SITE_TYPE, TypeText(pSite));
  Attr(site, ZEL_XML_SITE_NAME, unc.szName);
  if (!IsMirror(pSite)) Attr(site, ZEL_XML_SITE_ORDER, pSite->nOrder);
  FormatEnvSymbols(unc.szServer, c_nameCapacity);
  Attr(site, ZEL_XML_SITE_SERVER, unc.szServer);
  Attr(site, ZEL_XML_SITE_ENABLED, pSite->bEnabled);
  Attr(site, ZEL_XML_SITE_LOCAL, pSite->bLocal);
  Child(site, ZEL_XML_UNCSITE_SHARENAME, unc.szShareName);
  FormatEnvSymbols(unc.szRelativePath, c_pathCapacity);
  Child(site, ZEL_XML_SITE_RELATIVEPATH, unc.szRelativePath);
  Child(site, ZEL_XML_UNCSITE_USE_LOGON_USER_ACCOUNT, unc.nUseLoggedonUserAccount);
  FormatEnvSymbols(unc.szDomainName, c_nameCapacity);
  Child(site, ZEL_XML_SITE_DOMAIN_NAME, unc.szDomainName);
  Child(site, ZEL_XML_SITE_USER_NAME, unc.szUserName);
  WritePassword(site, ZEL_XML_SITE_PASSWORD, unc.szPassword);
  m_pLastSiteElement = site.GetRef();
  return 0;
}

int CSitesHelper::AddLocalSite(tag_Site* pSite, int index) {
  ADetailTrace trace(c_component, L"Adding local site");
  tag_LocalSite& local = pSite->localSite;
  Element site = NewSiteElement(m_pLastSiteElement, ZEL_XML_SITELIST_LOCAL_SITE, index);
  Attr(site, ZEL_XML_SITE_TYPE, TypeText(pSite));
  Attr(site, ZEL_XML_SITE_NAME, local.szName);
  if (!IsMirror(pSite)) Attr(site, ZEL_XML_SITE_ORDER, pSite->nOrder);
  Attr(site, ZEL_XML_SITE_ENABLED, pSite->bEnabled);
  Attr(site, ZEL_XML_SITE_LOCAL, pSite->bLocal);
  Attr(site, ZEL_XML_SITE_SERVER, L"127.0.0.1");
  FormatEnvSymbols(local.szRelativePath, c_pathCapacity);
  Child(site, ZEL_XML_SITE_RELATIVEPATH, local.szRelativePath);
  Child(site, ZEL_XML_UNCSITE_USE_LOGON_USER_ACCOUNT, local.nUseLoggedonUserAccount);
  FormatEnvSymbols(local.szDomainName, c_nameCapacity);
  Child(site, ZEL_XML_SITE_DOMAIN_NAME, local.szDomainName);
  Child(site, ZEL_XML_SITE_USER_NAME, local.szUserName);
  WritePassword(site, ZEL_XML_SITE_PASSWORD, local.szPassword);
  m_pLastSiteElement = site.GetRef();
  return 0;
}

int CSitesHelper::AddProxySite(tag_Site* pSite, int index) {
  ADetailTrace trace(c_component, L"Adding Proxy site");
  tag_ProxySettings& proxy = pSite->proxySettings;
  Element list = NewSiteElement(m_pLastSiteElement, ZEL_XML_PROXY_CONFIG_LIST, index);
  Element config = list.AppendElement(ZEL_XML_PROXY_CONFIG);
  Attr(config, ZEL_XML_SITE_NAME, proxy.szName);
  if (proxy.bUseIEConfig) Attr(config, ZEL_XML_PROXY_USE_IE_CONFIG, L"1");
  Attr(config, ZEL_XML_SITE_LOCAL, L"1");
  if (proxy.szHttpProxyServer[0]) {
    FormatEnvSymbols(proxy.szHttpProxyServer, c_nameCapacity);
    Attr(config, ZEL_XML_PROXY_HTTP_PROXY_SERVER, proxy.szHttpProxyServer);
    Attr(config, ZEL_XML_PROXY_HTTP_PROXY_PORT, static_cast<unsigned int>(proxy.nHttpProxyPort));
  }
  if (proxy.szFtpProxyServer[0]) {
    FormatEnvSymbols(proxy.szFtpProxyServer, c_nameCapacity);
    Attr(config, ZEL_XML_PROXY_FTP_PROXY_SERVER, proxy.szFtpProxyServer);
    Attr(config, ZEL_XML_PROXY_FTP_PROXY_PORT, static_cast<unsigned int>(proxy.nFtpProxyPort));
  }
  Child(config, ZEL_XML_PROXY_ALLOWUSERTOCONFIGPROXY, proxy.bAllowUserToConfigureProxy);
  Child(config, ZEL_XML_PROXY_BYPASSLOCALADDR, proxy.bBypassLocalAddress);
  Element exclusions = config.AppendElement(ZEL_XML_PROXY_EXCLUSIONLIST);
  FormatEnvSymbols(proxy.szExclusionList, c_exclusionListCapacity - 1);
  // Tokenised in place: afterwards the record holds only its first host.
  wchar_t* state = nullptr;
  for (wchar_t* host = std::wcstok(proxy.szExclusionList, c_proxyParamDelimiter, &state); host;
       host = std::wcstok(nullptr, c_proxyParamDelimiter, &state)) {
    Child(exclusions, ZEL_XML_PROXY_EXCLUSIONHOST, host);
  }
  Child(config, ZEL_XML_PROXY_FTP_USEAUTH, proxy.bFtpUseAuth);
  Child(config, ZEL_XML_PROXY_HTTP_USEAUTH, proxy.bHttpUseAuth);
  Child(config, ZEL_XML_HTTP_PROXY_PROXYUSERNAME, proxy.szHttpProxyUser);
  WritePassword(config, ZEL_XML_HTTP_PROXY_PROXYPASSWORD, proxy.szHttpProxyPassword);
  Child(config, ZEL_XML_FTP_PROXY_PROXYUSERNAME, proxy.szFtpProxyUser);
  WritePassword(config, ZEL_XML_FTP_PROXY_PROXYPASSWORD, proxy.szFtpProxyPassword);
  Child(config, ZEL_XML_PROXY_ALT_FTP_USEAUTH, proxy.bAlternateFtpUseAuth);
  Child(config, ZEL_XML_PROXY_ALT_HTTP_USEAUTH, proxy.bAlternateHttpUseAuth);
  Child(config, ZEL_XML_HTTP_PROXY_ALT_PROXYUSERNAME, proxy.szAlternateHttpProxyUser);
  WritePassword(config, ZEL_XML_HTTP_PROXY_ALT_PROXYPASSWORD, proxy.szAlternateHttpProxyPassword);
  Child(config, ZEL_XML_FTP_PROXY_ALT_PROXYUSERNAME, proxy.szAlternateFtpProxyUser);
  WritePassword(config, ZEL_XML_FTP_PROXY_ALT_PROXYPASSWORD, proxy.szAlternateFtpProxyPassword);
  m_pLastSiteElement = list.GetRef();
  return 0;
}

}  // namespace sitehlp
