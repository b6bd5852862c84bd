// One site element into a record body: the reader's defaults and odd rules
// (port 80 when a Server has none, also for FTP; the HTTP proxy password
// always in text form; the 3,999-character exclusion list).
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "port/log/Log.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Component.h"
#include "sitehlp/Numbers.h"
#include "sitehlp/SiteBodies.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

namespace {

using AdvXMLParser::Element;

// The values of an element's known child elements, found in one walk over its
// children; a later child of the same name wins.
class ChildValues {
 public:
  ChildValues(const Element& element, const wchar_t* const* names, std::size_t count)
      : m_names(names), m_count(count) {
    for (Element child : element.Children()) {
      for (std::size_t i = 0; i < count && i < kMax; ++i) {
        if (child.HasName(names[i])) {
          m_children[i] = child;
          break;
        }
      }
    }
  }
  // Present when the child exists.
  bool Get(const wchar_t* name, AString& value) const {
    for (std::size_t i = 0; i < m_count && i < kMax; ++i) {
      if (m_names[i] == name) {
        if (!m_children[i]) return false;
        value = m_children[i].GetValue();
        return true;
      }
    }
    return false;
  }
  const Element& Child(const wchar_t* name) const {
    static const Element none;
    for (std::size_t i = 0; i < m_count && i < kMax; ++i)
      if (m_names[i] == name) return m_children[i];
    return none;
  }

 private:
  static constexpr std::size_t kMax = 20;
  const wchar_t* const* m_names;
  std::size_t m_count;
  Element m_children[kMax];
};

const wchar_t* const kSiteChildren[] = {
    ZEL_XML_SITE_RELATIVEPATH, ZEL_XML_HTTPSITE_USE_AUTH, ZEL_XML_SITE_USER_NAME,
    ZEL_XML_SITE_PASSWORD,     ZEL_XML_UNCSITE_SHARENAME, ZEL_XML_SITE_DOMAIN_NAME,
    ZEL_XML_UNCSITE_USE_LOGON_USER_ACCOUNT,
};

const wchar_t* const kProxyChildren[] = {
    ZEL_XML_PROXY_ALLOWUSERTOCONFIGPROXY, ZEL_XML_PROXY_BYPASSLOCALADDR,      ZEL_XML_PROXY_FTP_USEAUTH,
    ZEL_XML_PROXY_HTTP_USEAUTH,           ZEL_XML_PROXY_ALT_FTP_USEAUTH,      ZEL_XML_PROXY_ALT_HTTP_USEAUTH,
    ZEL_XML_HTTP_PROXY_PROXYUSERNAME,     ZEL_XML_FTP_PROXY_PROXYUSERNAME,    ZEL_XML_HTTP_PROXY_ALT_PROXYUSERNAME,
    ZEL_XML_FTP_PROXY_ALT_PROXYUSERNAME,  ZEL_XML_HTTP_PROXY_PROXYPASSWORD,   ZEL_XML_FTP_PROXY_PROXYPASSWORD,
    ZEL_XML_HTTP_PROXY_ALT_PROXYPASSWORD, ZEL_XML_FTP_PROXY_ALT_PROXYPASSWORD, ZEL_XML_PROXY_EXCLUSIONLIST,
};

// Splits host:port; without a colon the whole text is the host and the port
// is the HTTP default, for FTP sites too.
void SplitOrDefault(const AString& text, std::wstring& host, unsigned int& port) {
  if (!split_host_and_port(text, host, port)) {
    host = text;
    port = c_defaultHttpPort;
  }
}

}  // namespace

std::size_t SiteBodySize(const Element& element) {
  if (element.HasName(ZEL_XML_PROXY_CONFIG)) return sizeof(tag_ProxySettings);
  if (element.HasName(ZEL_XML_SITELIST_HTTP_SITE) || element.HasName(ZEL_XML_SITELIST_SPIPE_SITE) ||
      element.HasName(ZEL_XML_SITELIST_SUPERAGENT_SITE))
    return sizeof(tag_HttpSite);
  if (element.HasName(ZEL_XML_SITELIST_FTP_SITE)) return sizeof(tag_FtpSite);
  if (element.HasName(ZEL_XML_SITELIST_UNC_SITE)) return sizeof(tag_UncSite);
  if (element.HasName(ZEL_XML_SITELIST_LOCAL_SITE)) return sizeof(tag_LocalSite);
  return 0;
}

void CSitesHelper::ReadPassword(const std::wstring& value, wchar_t* field, bool bAlwaysTextForm) {
  std::wstring clear;
  // An empty value cannot decrypt to anything: skip the cipher.
  if (!value.empty()) {
    if (m_bReencrypting && !bAlwaysTextForm)
      decrypt_data(value, clear);
    else
      EncryptDecryptPassword(value, clear, false);
  }
  CopyWStr(field, clear.c_str(), c_nameCapacity);
}

int CSitesHelper::FillSiteBody(const Element& element, void* pBody) {
  AString value;
  std::wstring host;

  if (element.HasName(ZEL_XML_PROXY_CONFIG)) {
    tag_ProxySettings& proxy = *static_cast<tag_ProxySettings*>(pBody);
    ChildValues children(element, kProxyChildren, sizeof(kProxyChildren) / sizeof(kProxyChildren[0]));
    CopyWStr(proxy.szName, element.GetAttribute(ZEL_XML_SITE_NAME).c_str(), c_nameCapacity);
    const AString httpServer = element.GetAttribute(ZEL_XML_PROXY_HTTP_PROXY_SERVER);
    const AString ftpServer = element.GetAttribute(ZEL_XML_PROXY_FTP_PROXY_SERVER);
    if (!httpServer.empty()) {
      CopyWStr(proxy.szHttpProxyServer, httpServer.c_str(), c_nameCapacity);
      proxy.nHttpProxyPort = Atoi(element.GetAttribute(ZEL_XML_PROXY_HTTP_PROXY_PORT));
      CopyWStr(proxy.szProxyKind, ZEL_XML_SITELIST_HTTP_SITE, c_nameCapacity);
    }
    if (!ftpServer.empty()) {
      CopyWStr(proxy.szFtpProxyServer, ftpServer.c_str(), c_nameCapacity);
      proxy.nFtpProxyPort = Atoi(element.GetAttribute(ZEL_XML_PROXY_FTP_PROXY_PORT));
      CopyWStr(proxy.szProxyKind, ZEL_XML_SITELIST_FTP_SITE, c_nameCapacity);
    }
    if (!httpServer.empty() && !ftpServer.empty())
      CopyWStr(proxy.szProxyKind, ZEL_XML_SITELIST_FTPHTTP_SITE, c_nameCapacity);
    if (element.GetAttribute(ZEL_XML_PROXY_USE_IE_CONFIG, value)) proxy.bUseIEConfig = Atoi(value) != 0;

    const struct {
      const wchar_t* name;
      int32_t* flag;
    } flags[] = {
        {ZEL_XML_PROXY_ALLOWUSERTOCONFIGPROXY, &proxy.bAllowUserToConfigureProxy},
        {ZEL_XML_PROXY_BYPASSLOCALADDR, &proxy.bBypassLocalAddress},
        {ZEL_XML_PROXY_FTP_USEAUTH, &proxy.bFtpUseAuth},
        {ZEL_XML_PROXY_HTTP_USEAUTH, &proxy.bHttpUseAuth},
        {ZEL_XML_PROXY_ALT_FTP_USEAUTH, &proxy.bAlternateFtpUseAuth},
        {ZEL_XML_PROXY_ALT_HTTP_USEAUTH, &proxy.bAlternateHttpUseAuth},
    };
    for (const auto& f : flags)
      if (children.Get(f.name, value)) *f.flag = Atoi(value) != 0;

    const struct {
      const wchar_t* name;
      wchar_t* field;
    } users[] = {
        {ZEL_XML_HTTP_PROXY_PROXYUSERNAME, proxy.szHttpProxyUser},
        {ZEL_XML_FTP_PROXY_PROXYUSERNAME, proxy.szFtpProxyUser},
        {ZEL_XML_HTTP_PROXY_ALT_PROXYUSERNAME, proxy.szAlternateHttpProxyUser},
        {ZEL_XML_FTP_PROXY_ALT_PROXYUSERNAME, proxy.szAlternateFtpProxyUser},
    };
    for (const auto& u : users)
      if (children.Get(u.name, value)) CopyWStr(u.field, value.c_str(), c_nameCapacity);

    const struct {
      const wchar_t* name;
      wchar_t* field;
      bool alwaysTextForm;
    } passwords[] = {
        // The HTTP proxy password is always in text form, even in a list being
        // re-encrypted.
        {ZEL_XML_HTTP_PROXY_PROXYPASSWORD, proxy.szHttpProxyPassword, true},
        {ZEL_XML_FTP_PROXY_PROXYPASSWORD, proxy.szFtpProxyPassword, false},
        {ZEL_XML_HTTP_PROXY_ALT_PROXYPASSWORD, proxy.szAlternateHttpProxyPassword, false},
        {ZEL_XML_FTP_PROXY_ALT_PROXYPASSWORD, proxy.szAlternateFtpProxyPassword, false},
    };
    for (const auto& p : passwords)
      if (children.Get(p.name, value)) ReadPassword(value, p.field, p.alwaysTextForm);

    if (const Element& exclusions = children.Child(ZEL_XML_PROXY_EXCLUSIONLIST)) {
      std::size_t length = std::wcslen(proxy.szExclusionList);
      const std::size_t delimiterLength = std::wcslen(c_proxyParamDelimiter);
      for (Element host : exclusions.Children()) {
        if (!host.HasName(ZEL_XML_PROXY_EXCLUSIONHOST)) continue;
        const AString text = host.GetValue();
        if (length + text.size() + delimiterLength <= 3999) {
          if (proxy.nExclusionCount != 0) {
            std::wcscpy(proxy.szExclusionList + length, c_proxyParamDelimiter);
            length += delimiterLength;
          }
          std::wcscpy(proxy.szExclusionList + length, text.c_str());
          length += text.size();
          ++proxy.nExclusionCount;
        } else {
          logDetail(c_component, L"Exclusion list of proxy settings is truncated to " +
                                     std::wstring(proxy.szExclusionList) + L" in ReadSiteFromSiteList");
        }
      }
    }
    return 0;
  }

  const bool isHttp = element.HasName(ZEL_XML_SITELIST_HTTP_SITE);
  const bool isSpipe = element.HasName(ZEL_XML_SITELIST_SPIPE_SITE);
  const bool isSuperAgent = element.HasName(ZEL_XML_SITELIST_SUPERAGENT_SITE);
  const bool isFtp = element.HasName(ZEL_XML_SITELIST_FTP_SITE);
  const bool isUnc = element.HasName(ZEL_XML_SITELIST_UNC_SITE);
  const bool isLocal = element.HasName(ZEL_XML_SITELIST_LOCAL_SITE);
  if (!(isHttp || isSpipe || isSuperAgent || isFtp || isUnc || isLocal)) return -1;

  ChildValues children(element, kSiteChildren, sizeof(kSiteChildren) / sizeof(kSiteChildren[0]));

  if (isHttp || isSpipe || isSuperAgent) {
    tag_HttpSite& site = *static_cast<tag_HttpSite*>(pBody);
    unsigned int port = 0;
    CopyWStr(site.szSiteElement, element.GetName().c_str(), c_nameCapacity);
    SplitOrDefault(element.GetAttribute(ZEL_XML_SITE_SERVER), host, port);
    CopyWStr(site.szVersion, isSpipe ? element.GetAttribute(ZEL_XML_SITE_SERVER_VERSION).c_str() : L"",
             c_nameCapacity);
    if (isSuperAgent && element.GetAttribute(ZEL_XML_SITE_SERVER_FQDN, value)) SplitOrDefault(value, host, port);
    CopyWStr(site.szServer, host.c_str(), c_nameCapacity);
    site.nPort = static_cast<int32_t>(port);
    CopyWStr(site.szName, element.GetAttribute(ZEL_XML_SITE_NAME).c_str(), c_nameCapacity);

    SplitOrDefault(element.GetAttribute(ZEL_XML_SERVER_NETBIOS_NAME), host, port);
    if (element.GetAttribute(ZEL_XML_SSL_PORT, value)) StreamExtractUnsigned(value, site.nSecurePort);
    CopyWStr(site.szServerName, host.c_str(), c_serverNameCapacity);
    site.nServerNamePort = static_cast<int32_t>(port);

    SplitOrDefault(element.GetAttribute(ZEL_XML_SITE_SERVER_IP), host, port);
    CopyWStr(site.szServerIP, host.c_str(), c_serverIPCapacity);
    site.nServerIPPort = static_cast<int32_t>(port);

    if (children.Get(ZEL_XML_SITE_RELATIVEPATH, value)) CopyWStr(site.szRelativePath, value.c_str(), c_pathCapacity);
    if (children.Get(ZEL_XML_HTTPSITE_USE_AUTH, value)) site.nUseAuth = Atoi(value);
    if (children.Get(ZEL_XML_SITE_USER_NAME, value)) CopyWStr(site.szUserName, value.c_str(), c_nameCapacity);
    if (children.Get(ZEL_XML_SITE_PASSWORD, value)) ReadPassword(value, site.szPassword, false);
    return 0;
  }

  if (isFtp) {
    tag_FtpSite& site = *static_cast<tag_FtpSite*>(pBody);
    unsigned int port = 0;
    SplitOrDefault(element.GetAttribute(ZEL_XML_SITE_SERVER), host, port);
    CopyWStr(site.szServer, host.c_str(), c_nameCapacity);
    site.nPort = static_cast<int32_t>(port);
    if (element.GetAttribute(ZEL_XML_SSL_PORT, value)) StreamExtractUnsigned(value, site.nSecurePort);
    CopyWStr(site.szName, element.GetAttribute(ZEL_XML_SITE_NAME).c_str(), c_nameCapacity);
    if (children.Get(ZEL_XML_SITE_RELATIVEPATH, value)) CopyWStr(site.szRelativePath, value.c_str(), c_pathCapacity);
    if (children.Get(ZEL_XML_SITE_USER_NAME, value)) CopyWStr(site.szUserName, value.c_str(), c_nameCapacity);
    if (children.Get(ZEL_XML_SITE_PASSWORD, value)) ReadPassword(value, site.szPassword, false);
    return 0;
  }

  if (isUnc) {
    tag_UncSite& site = *static_cast<tag_UncSite*>(pBody);
    CopyWStr(site.szServer, element.GetAttribute(ZEL_XML_SITE_SERVER).c_str(), c_nameCapacity);
    CopyWStr(site.szName, element.GetAttribute(ZEL_XML_SITE_NAME).c_str(), c_nameCapacity);
    if (children.Get(ZEL_XML_SITE_RELATIVEPATH, value)) CopyWStr(site.szRelativePath, value.c_str(), c_pathCapacity);
    if (children.Get(ZEL_XML_UNCSITE_SHARENAME, value)) CopyWStr(site.szShareName, value.c_str(), c_nameCapacity);
    if (children.Get(ZEL_XML_SITE_DOMAIN_NAME, value)) CopyWStr(site.szDomainName, value.c_str(), c_nameCapacity);
    if (children.Get(ZEL_XML_SITE_USER_NAME, value)) CopyWStr(site.szUserName, value.c_str(), c_nameCapacity);
    if (children.Get(ZEL_XML_SITE_PASSWORD, value)) ReadPassword(value, site.szPassword, false);
    if (children.Get(ZEL_XML_UNCSITE_USE_LOGON_USER_ACCOUNT, value)) site.nUseLoggedonUserAccount = Atoi(value);
    return 0;
  }

  tag_LocalSite& site = *static_cast<tag_LocalSite*>(pBody);
  CopyWStr(site.szName, element.GetAttribute(ZEL_XML_SITE_NAME).c_str(), c_nameCapacity);
  if (children.Get(ZEL_XML_SITE_DOMAIN_NAME, value)) CopyWStr(site.szDomainName, value.c_str(), c_nameCapacity);
  if (children.Get(ZEL_XML_SITE_USER_NAME, value)) CopyWStr(site.szUserName, value.c_str(), c_nameCapacity);
  if (children.Get(ZEL_XML_SITE_PASSWORD, value)) ReadPassword(value, site.szPassword, false);
  if (children.Get(ZEL_XML_UNCSITE_USE_LOGON_USER_ACCOUNT, value)) site.nUseLoggedonUserAccount = Atoi(value);
  if (children.Get(ZEL_XML_SITE_RELATIVEPATH, value)) CopyWStr(site.szRelativePath, value.c_str(), c_pathCapacity);
  return 0;
}

int CSitesHelper::ReadSiteFromSiteList(AdvXMLParser::Element* pElement, void** ppBody) {
  ADetailTrace trace(c_component, L"Reading site from SiteList");
  if (!ppBody) return -2;
  *ppBody = nullptr;
  if (!pElement || !*pElement) return -1;
  const std::size_t size = SiteBodySize(*pElement);
  if (size == 0) return -1;
  void* body = std::calloc(1, size);
  if (!body) return -3;
  FillSiteBody(*pElement, body);
  *ppBody = body;
  return 0;
}

}  // namespace sitehlp
