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

std::wstring HostPort(const wchar_t* host, int32_t port) {
  return std::wstring(host) + L":" + std::to_wstring(static_cast<unsigned int>(port));
}

}  // namespace

void CSitesHelper::WritePassword(Element& parent, const wchar_t* name, const wchar_t* clear) {
  Element element = parent.AppendElement(name);
  std::wstring encrypted;
  EncryptDecryptPassword(clear, encrypted, true);
  element.SetValue(encrypted);
  element.SetAttribute(L"Encrypted", L"1");
}

int CSitesHelper::AddHTTPSite(tag_Site* pSite, int index) {
  ADetailTrace trace(c_component, L"Adding HTTP site");
  tag_HttpSite& http = pSite->httpSite;
  const wchar_t* name = http.szSiteElement[0] ? http.szSiteElement : ZEL_XML_SITELIST_HTTP_SITE;
  Element site = NewSiteElement(m_pLastSiteElement, name, index);
  site.SetAttribute(ZEL_XML_SITE_TYPE, TypeText(pSite));
  site.SetAttribute(ZEL_XML_SITE_NAME, http.szName);
  if (!IsMirror(pSite)) site.SetAttribute(ZEL_XML_SITE_ORDER, ConvertToStr(static_cast<int>(pSite->nOrder)));
  site.SetAttribute(ZEL_XML_SITE_ENABLED, ConvertToStr(static_cast<int>(pSite->bEnabled)));
  site.SetAttribute(ZEL_XML_SITE_LOCAL, ConvertToStr(static_cast<int>(pSite->bLocal)));
  FormatEnvSymbols(http.szServer, c_nameCapacity);
  if (http.nSecurePort != 0) site.SetAttribute(ZEL_XML_SSL_PORT, ConvertToStr(http.nSecurePort));
  site.SetAttribute(ZEL_XML_SITE_SERVER, HostPort(http.szServer, http.nPort));
  if (wcsicmp(name, ZEL_XML_SITELIST_SPIPE_SITE) == 0) {
    FormatEnvSymbols(http.szServerName, c_serverNameCapacity);
    site.SetAttribute(ZEL_XML_SERVER_NETBIOS_NAME, HostPort(http.szServerName, http.nServerNamePort));
    FormatEnvSymbols(http.szServerIP, c_serverIPCapacity);
    site.SetAttribute(ZEL_XML_SITELIST_SPIPE_IPADDR, HostPort(http.szServerIP, http.nServerIPPort));
    if (http.szVersion[0]) {
      FormatEnvSymbols(http.szVersion, c_nameCapacity);
      site.SetAttribute(ZEL_XML_SITE_SERVER_VERSION, http.szVersion);
    }
  } else if (std::wcscmp(name, ZEL_XML_SITELIST_SUPERAGENT_SITE) == 0) {
    FormatEnvSymbols(http.szServerName, c_serverNameCapacity);
    if (http.szServerName[0])
      site.SetAttribute(ZEL_XML_SERVER_NETBIOS_NAME, HostPort(http.szServerName, http.nServerNamePort));
    FormatEnvSymbols(http.szServerIP, c_serverIPCapacity);
    if (http.szServerIP[0])
      site.SetAttribute(ZEL_XML_SITELIST_SPIPE_IPADDR, HostPort(http.szServerIP, http.nServerIPPort));
  }
  FormatEnvSymbols(http.szRelativePath, c_pathCapacity);
  site.AppendElement(ZEL_XML_SITE_RELATIVEPATH).SetValue(http.szRelativePath);
  site.AppendElement(ZEL_XML_HTTPSITE_USE_AUTH).SetValue(ConvertToStr(static_cast<int>(http.nUseAuth)));
  site.AppendElement(ZEL_XML_SITE_USER_NAME).SetValue(http.szUserName);
  WritePassword(site, ZEL_XML_SITE_PASSWORD, http.szPassword);
  m_pLastSiteElement = site.GetRef();
  return 0;
}

int CSitesHelper::AddFTPSite(tag_Site* pSite, int index) {
  ADetailTrace trace(c_component, L"Adding FTP site");
  tag_FtpSite& ftp = pSite->ftpSite;
  Element site = NewSiteElement(m_pLastSiteElement, ZEL_XML_SITELIST_FTP_SITE, index);
  site.SetAttribute(ZEL_XML_SITE_TYPE, TypeText(pSite));
  site.SetAttribute(ZEL_XML_SITE_NAME, ftp.szName);
  if (!IsMirror(pSite)) site.SetAttribute(ZEL_XML_SITE_ORDER, ConvertToStr(static_cast<int>(pSite->nOrder)));
  FormatEnvSymbols(ftp.szServer, c_nameCapacity);
  site.SetAttribute(ZEL_XML_SITE_SERVER, HostPort(ftp.szServer, ftp.nPort));
  site.SetAttribute(ZEL_XML_SITE_ENABLED, ConvertToStr(static_cast<int>(pSite->bEnabled)));
  if (ftp.nSecurePort != 0) site.SetAttribute(ZEL_XML_SSL_PORT, ConvertToStr(ftp.nSecurePort));
  site.SetAttribute(ZEL_XML_SITE_LOCAL, ConvertToStr(static_cast<int>(pSite->bLocal)));
  FormatEnvSymbols(ftp.szRelativePath, c_pathCapacity);
  site.AppendElement(ZEL_XML_SITE_RELATIVEPATH).SetValue(ftp.szRelativePath);
  site.AppendElement(ZEL_XML_SITE_USER_NAME).SetValue(ftp.szUserName);
  WritePassword(site, ZEL_XML_SITE_PASSWORD, ftp.szPassword);
  m_pLastSiteElement = site.GetRef();
  return 0;
}

int CSitesHelper::AddUNCSite(tag_Site* pSite, int index) {
  ADetailTrace trace(c_component, L"Adding UNC site");
  tag_UncSite& unc = pSite->uncSite;
  Element site = NewSiteElement(m_pLastSiteElement, ZEL_XML_SITELIST_UNC_SITE, index);
  site.SetAttribute(ZEL_XML_SITE_TYPE, TypeText(pSite));
  site.SetAttribute(ZEL_XML_SITE_NAME, unc.szName);
  if (!IsMirror(pSite)) site.SetAttribute(ZEL_XML_SITE_ORDER, ConvertToStr(static_cast<int>(pSite->nOrder)));
  FormatEnvSymbols(unc.szServer, c_nameCapacity);
  site.SetAttribute(ZEL_XML_SITE_SERVER, unc.szServer);
  site.SetAttribute(ZEL_XML_SITE_ENABLED, ConvertToStr(static_cast<int>(pSite->bEnabled)));
  site.SetAttribute(ZEL_XML_SITE_LOCAL, ConvertToStr(static_cast<int>(pSite->bLocal)));
  site.AppendElement(ZEL_XML_UNCSITE_SHARENAME).SetValue(unc.szShareName);
  FormatEnvSymbols(unc.szRelativePath, c_pathCapacity);
  site.AppendElement(ZEL_XML_SITE_RELATIVEPATH).SetValue(unc.szRelativePath);
  site.AppendElement(ZEL_XML_UNCSITE_USE_LOGON_USER_ACCOUNT)
      .SetValue(ConvertToStr(static_cast<int>(unc.nUseLoggedonUserAccount)));
  FormatEnvSymbols(unc.szDomainName, c_nameCapacity);
  site.AppendElement(ZEL_XML_SITE_DOMAIN_NAME).SetValue(unc.szDomainName);
  site.AppendElement(ZEL_XML_SITE_USER_NAME).SetValue(unc.szUserName);
  WritePassword(site, ZEL_XML_SITE_PASSWORD, unc.szPassword);
  m_pLastSiteElement = site.GetRef();
  return 0;
}

int CSitesHelper::AddLocalSite(tag_Site* pSite, int index) {
  ADetailTrace trace(c_component, L"Adding local site");
  tag_LocalSite& local = pSite->localSite;
  Element site = NewSiteElement(m_pLastSiteElement, ZEL_XML_SITELIST_LOCAL_SITE, index);
  site.SetAttribute(ZEL_XML_SITE_TYPE, TypeText(pSite));
  site.SetAttribute(ZEL_XML_SITE_NAME, local.szName);
  if (!IsMirror(pSite)) site.SetAttribute(ZEL_XML_SITE_ORDER, ConvertToStr(static_cast<int>(pSite->nOrder)));
  site.SetAttribute(ZEL_XML_SITE_ENABLED, ConvertToStr(static_cast<int>(pSite->bEnabled)));
  site.SetAttribute(ZEL_XML_SITE_LOCAL, ConvertToStr(static_cast<int>(pSite->bLocal)));
  site.SetAttribute(ZEL_XML_SITE_SERVER, L"127.0.0.1");
  FormatEnvSymbols(local.szRelativePath, c_pathCapacity);
  site.AppendElement(ZEL_XML_SITE_RELATIVEPATH).SetValue(local.szRelativePath);
  site.AppendElement(ZEL_XML_UNCSITE_USE_LOGON_USER_ACCOUNT)
      .SetValue(ConvertToStr(static_cast<int>(local.nUseLoggedonUserAccount)));
  FormatEnvSymbols(local.szDomainName, c_nameCapacity);
  site.AppendElement(ZEL_XML_SITE_DOMAIN_NAME).SetValue(local.szDomainName);
  site.AppendElement(ZEL_XML_SITE_USER_NAME).SetValue(local.szUserName);
  WritePassword(site, ZEL_XML_SITE_PASSWORD, local.szPassword);
  m_pLastSiteElement = site.GetRef();
  return 0;
}

int CSitesHelper::AddProxySite(tag_Site* pSite, int index) {
  ADetailTrace trace(c_component, L"Adding Proxy site");
  tag_ProxySettings& proxy = pSite->proxySettings;
  Element list = NewSiteElement(m_pLastSiteElement, ZEL_XML_PROXY_CONFIG_LIST, index);
  Element config = list.AppendElement(ZEL_XML_PROXY_CONFIG);
  config.SetAttribute(ZEL_XML_SITE_NAME, proxy.szName);
  if (proxy.bUseIEConfig) config.SetAttribute(ZEL_XML_PROXY_USE_IE_CONFIG, L"1");
  config.SetAttribute(ZEL_XML_SITE_LOCAL, L"1");
  if (proxy.szHttpProxyServer[0]) {
    FormatEnvSymbols(proxy.szHttpProxyServer, c_nameCapacity);
    config.SetAttribute(ZEL_XML_PROXY_HTTP_PROXY_SERVER, proxy.szHttpProxyServer);
    config.SetAttribute(ZEL_XML_PROXY_HTTP_PROXY_PORT, ConvertToStr(static_cast<unsigned int>(proxy.nHttpProxyPort)));
  }
  if (proxy.szFtpProxyServer[0]) {
    FormatEnvSymbols(proxy.szFtpProxyServer, c_nameCapacity);
    config.SetAttribute(ZEL_XML_PROXY_FTP_PROXY_SERVER, proxy.szFtpProxyServer);
    config.SetAttribute(ZEL_XML_PROXY_FTP_PROXY_PORT, ConvertToStr(static_cast<unsigned int>(proxy.nFtpProxyPort)));
  }
  config.AppendElement(ZEL_XML_PROXY_ALLOWUSERTOCONFIGPROXY)
      .SetValue(ConvertToStr(static_cast<int>(proxy.bAllowUserToConfigureProxy)));
  config.AppendElement(ZEL_XML_PROXY_BYPASSLOCALADDR).SetValue(ConvertToStr(static_cast<int>(proxy.bBypassLocalAddress)));
  Element exclusions = config.AppendElement(ZEL_XML_PROXY_EXCLUSIONLIST);
  FormatEnvSymbols(proxy.szExclusionList, c_exclusionListCapacity - 1);
  // Tokenised in place: afterwards the record holds only its first host.
  wchar_t* state = nullptr;
  for (wchar_t* host = std::wcstok(proxy.szExclusionList, c_proxyParamDelimiter, &state); host;
       host = std::wcstok(nullptr, c_proxyParamDelimiter, &state)) {
    exclusions.AppendElement(ZEL_XML_PROXY_EXCLUSIONHOST).SetValue(host);
  }
  config.AppendElement(ZEL_XML_PROXY_FTP_USEAUTH).SetValue(ConvertToStr(static_cast<int>(proxy.bFtpUseAuth)));
  config.AppendElement(ZEL_XML_PROXY_HTTP_USEAUTH).SetValue(ConvertToStr(static_cast<int>(proxy.bHttpUseAuth)));
  config.AppendElement(ZEL_XML_HTTP_PROXY_PROXYUSERNAME).SetValue(proxy.szHttpProxyUser);
  WritePassword(config, ZEL_XML_HTTP_PROXY_PROXYPASSWORD, proxy.szHttpProxyPassword);
  config.AppendElement(ZEL_XML_FTP_PROXY_PROXYUSERNAME).SetValue(proxy.szFtpProxyUser);
  WritePassword(config, ZEL_XML_FTP_PROXY_PROXYPASSWORD, proxy.szFtpProxyPassword);
  config.AppendElement(ZEL_XML_PROXY_ALT_FTP_USEAUTH).SetValue(ConvertToStr(static_cast<int>(proxy.bAlternateFtpUseAuth)));
  config.AppendElement(ZEL_XML_PROXY_ALT_HTTP_USEAUTH)
      .SetValue(ConvertToStr(static_cast<int>(proxy.bAlternateHttpUseAuth)));
  config.AppendElement(ZEL_XML_HTTP_PROXY_ALT_PROXYUSERNAME).SetValue(proxy.szAlternateHttpProxyUser);
  WritePassword(config, ZEL_XML_HTTP_PROXY_ALT_PROXYPASSWORD, proxy.szAlternateHttpProxyPassword);
  config.AppendElement(ZEL_XML_FTP_PROXY_ALT_PROXYUSERNAME).SetValue(proxy.szAlternateFtpProxyUser);
  WritePassword(config, ZEL_XML_FTP_PROXY_ALT_PROXYPASSWORD, proxy.szAlternateFtpProxyPassword);
  m_pLastSiteElement = list.GetRef();
  return 0;
}

}  // namespace sitehlp
