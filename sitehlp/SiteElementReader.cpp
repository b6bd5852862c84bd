// One site element into a record body: the reader's defaults and odd rules
// (port 80 when a Server has none, also for FTP; the HTTP proxy password
// always in text form; the 3,999-character exclusion list).
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "port/log/Log.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/Component.h"
#include "sitehlp/FieldFill.h"
#include "sitehlp/SchemaNames.h"
#include "sitehlp/Numbers.h"
#include "sitehlp/SiteBodies.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

namespace {

using AdvXMLParser::Element;

// The values of an element's known child elements, found in one walk over its
// children (each child's name read once and compared as bytes); a later
// child of the same name wins.
class ChildValues {
 public:
  ChildValues(const Element& element, const wchar_t* const* names, const NarrowNames& narrow)
      : m_names(names), m_count(narrow.size()) {
    for (Element child : element.Children()) {
      const std::size_t i = narrow.Find(child.GetNameUtf8());
      if (i < m_count && i < kMax) m_children[i] = child;
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
  // The child's text as the tree holds it (UTF-8); NULL when it is absent.
  const char* Utf8(const wchar_t* name) const {
    for (std::size_t i = 0; i < m_count && i < kMax; ++i) {
      if (m_names[i] == name) return m_children[i] ? m_children[i].GetValueUtf8() : nullptr;
    }
    return nullptr;
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

// The attributes a site body reads, fetched in one pass (kSiteAttributes[i]
// into attributes[i]).
const wchar_t* const kSiteAttributes[] = {
    ZEL_XML_SITE_NAME,    ZEL_XML_SITE_SERVER,           ZEL_XML_SITE_SERVER_FQDN, ZEL_XML_SITE_SERVER_VERSION,
    ZEL_XML_SSL_PORT,     ZEL_XML_SERVER_NETBIOS_NAME,   ZEL_XML_SITE_SERVER_IP,
};
enum SiteAttribute { kName, kServer, kServerDns, kVersion, kSecurePort, kServerName, kServerIp, kSiteAttributeCount };
static_assert(sizeof(kSiteAttributes) / sizeof(kSiteAttributes[0]) == kSiteAttributeCount, "one slot per name");

// SecurePort: the stream's unsigned extraction of the value's wide form.
void ExtractUnsignedUtf8(const char* utf8, uint32_t& value) {
  wchar_t wide[64];
  std::size_t length = 0;
  unsigned int v = value;
  if (AdvXMLParser::DecodeUtf8Into(utf8, wide, 64, length)) {
    StreamExtractUnsigned(wide, wide + length, v);
  } else {
    StreamExtractUnsigned(platform_detail::Utf8ToWide(utf8, std::strlen(utf8)), v);
  }
  value = v;
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

// Every text field is filled straight from the tree's UTF-8 (FieldFill.h):
// no wide string is made per value, and numbers are parsed from the UTF-8.
// The order of the field copies is the wide path's, so truncation messages
// come out in the same order too.
int CSitesHelper::FillSiteBody(const Element& element, void* pBody) {
  const char* v = nullptr;

  if (SiteElementOf(element) == SiteElement::ProxyConfig) {
    tag_ProxySettings& proxy = *static_cast<tag_ProxySettings*>(pBody);
    static const NarrowNames narrowProxyChildren(kProxyChildren, sizeof(kProxyChildren) / sizeof(kProxyChildren[0]));
    ChildValues children(element, kProxyChildren, narrowProxyChildren);
    FillField(*this, proxy.szName, element.GetAttributeUtf8(ZEL_XML_SITE_NAME), c_nameCapacity);
    const char* httpServer = element.GetAttributeUtf8(ZEL_XML_PROXY_HTTP_PROXY_SERVER);
    const char* ftpServer = element.GetAttributeUtf8(ZEL_XML_PROXY_FTP_PROXY_SERVER);
    const bool hasHttp = httpServer && *httpServer;
    const bool hasFtp = ftpServer && *ftpServer;
    if (hasHttp) {
      FillField(*this, proxy.szHttpProxyServer, httpServer, c_nameCapacity);
      proxy.nHttpProxyPort = AtoiUtf8(element.GetAttributeUtf8(ZEL_XML_PROXY_HTTP_PROXY_PORT));
      CopyWStr(proxy.szProxyKind, ZEL_XML_SITELIST_HTTP_SITE, c_nameCapacity);
    }
    if (hasFtp) {
      FillField(*this, proxy.szFtpProxyServer, ftpServer, c_nameCapacity);
      proxy.nFtpProxyPort = AtoiUtf8(element.GetAttributeUtf8(ZEL_XML_PROXY_FTP_PROXY_PORT));
      CopyWStr(proxy.szProxyKind, ZEL_XML_SITELIST_FTP_SITE, c_nameCapacity);
    }
    if (hasHttp && hasFtp) CopyWStr(proxy.szProxyKind, ZEL_XML_SITELIST_FTPHTTP_SITE, c_nameCapacity);
    if ((v = element.GetAttributeUtf8(ZEL_XML_PROXY_USE_IE_CONFIG))) proxy.bUseIEConfig = AtoiUtf8(v) != 0;

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
      if ((v = children.Utf8(f.name))) *f.flag = AtoiUtf8(v) != 0;

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
      if ((v = children.Utf8(u.name))) FillField(*this, u.field, v, c_nameCapacity);

    AString value;
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

  const SiteElement kind = SiteElementOf(element);
  const bool isHttp = kind == SiteElement::Http;
  const bool isSpipe = kind == SiteElement::Spipe;
  const bool isSuperAgent = kind == SiteElement::SuperAgent;
  const bool isFtp = kind == SiteElement::Ftp;
  const bool isUnc = kind == SiteElement::Unc;
  const bool isLocal = kind == SiteElement::Local;
  if (!(isHttp || isSpipe || isSuperAgent || isFtp || isUnc || isLocal)) return -1;

  static const NarrowNames narrowSiteChildren(kSiteChildren, sizeof(kSiteChildren) / sizeof(kSiteChildren[0]));
  ChildValues children(element, kSiteChildren, narrowSiteChildren);
  const char* attributes[kSiteAttributeCount];
  element.GetAttributesUtf8(kSiteAttributes, kSiteAttributeCount, attributes);
  AString value;

  if (isHttp || isSpipe || isSuperAgent) {
    tag_HttpSite& site = *static_cast<tag_HttpSite*>(pBody);
    // One port variable for the three splits, as the stream leaves it when a
    // text after the colon holds no number.
    unsigned int port = 0;
    FillField(*this, site.szSiteElement, element.GetNameUtf8(), c_nameCapacity);
    FillField(*this, site.szVersion, isSpipe ? attributes[kVersion] : "", c_nameCapacity);
    // A SuperAgent's ServerDNS, when it has one, replaces its Server.
    const char* dns = isSuperAgent ? attributes[kServerDns] : nullptr;
    if (dns) {
      // The Server split still runs first: its port stays when the ServerDNS
      // text after its colon holds no number.
      std::wstring ignoredHost;
      const char* server = attributes[kServer];
      if (server && std::strchr(server, ':')) {
        split_host_and_port(platform_detail::Utf8ToWide(server, std::strlen(server)), ignoredHost, port);
      } else {
        port = c_defaultHttpPort;
      }
      FillHostPort(*this, site.szServer, c_nameCapacity, dns, port);
    } else {
      FillHostPort(*this, site.szServer, c_nameCapacity, attributes[kServer], port);
    }
    site.nPort = static_cast<int32_t>(port);
    FillField(*this, site.szName, attributes[kName], c_nameCapacity);

    if ((v = attributes[kSecurePort])) ExtractUnsignedUtf8(v, site.nSecurePort);
    FillHostPort(*this, site.szServerName, c_serverNameCapacity, attributes[kServerName], port);
    site.nServerNamePort = static_cast<int32_t>(port);

    FillHostPort(*this, site.szServerIP, c_serverIPCapacity, attributes[kServerIp], port);
    site.nServerIPPort = static_cast<int32_t>(port);

    if ((v = children.Utf8(ZEL_XML_SITE_RELATIVEPATH))) FillField(*this, site.szRelativePath, v, c_pathCapacity);
    if ((v = children.Utf8(ZEL_XML_HTTPSITE_USE_AUTH))) site.nUseAuth = AtoiUtf8(v);
    if ((v = children.Utf8(ZEL_XML_SITE_USER_NAME))) FillField(*this, site.szUserName, v, c_nameCapacity);
    if (children.Get(ZEL_XML_SITE_PASSWORD, value)) ReadPassword(value, site.szPassword, false);
    return 0;
  }

  if (isFtp) {
    tag_FtpSite& site = *static_cast<tag_FtpSite*>(pBody);
    unsigned int port = 0;
    FillHostPort(*this, site.szServer, c_nameCapacity, attributes[kServer], port);
    site.nPort = static_cast<int32_t>(port);
    if ((v = attributes[kSecurePort])) ExtractUnsignedUtf8(v, site.nSecurePort);
    FillField(*this, site.szName, attributes[kName], c_nameCapacity);
    if ((v = children.Utf8(ZEL_XML_SITE_RELATIVEPATH))) FillField(*this, site.szRelativePath, v, c_pathCapacity);
    if ((v = children.Utf8(ZEL_XML_SITE_USER_NAME))) FillField(*this, site.szUserName, v, c_nameCapacity);
    if (children.Get(ZEL_XML_SITE_PASSWORD, value)) ReadPassword(value, site.szPassword, false);
    return 0;
  }

  if (isUnc) {
    tag_UncSite& site = *static_cast<tag_UncSite*>(pBody);
    FillField(*this, site.szServer, attributes[kServer], c_nameCapacity);
    FillField(*this, site.szName, attributes[kName], c_nameCapacity);
    if ((v = children.Utf8(ZEL_XML_SITE_RELATIVEPATH))) FillField(*this, site.szRelativePath, v, c_pathCapacity);
    if ((v = children.Utf8(ZEL_XML_UNCSITE_SHARENAME))) FillField(*this, site.szShareName, v, c_nameCapacity);
    if ((v = children.Utf8(ZEL_XML_SITE_DOMAIN_NAME))) FillField(*this, site.szDomainName, v, c_nameCapacity);
    if ((v = children.Utf8(ZEL_XML_SITE_USER_NAME))) FillField(*this, site.szUserName, v, c_nameCapacity);
    if (children.Get(ZEL_XML_SITE_PASSWORD, value)) ReadPassword(value, site.szPassword, false);
    if ((v = children.Utf8(ZEL_XML_UNCSITE_USE_LOGON_USER_ACCOUNT))) site.nUseLoggedonUserAccount = AtoiUtf8(v);
    return 0;
  }

  tag_LocalSite& site = *static_cast<tag_LocalSite*>(pBody);
  FillField(*this, site.szName, attributes[kName], c_nameCapacity);
  if ((v = children.Utf8(ZEL_XML_SITE_DOMAIN_NAME))) FillField(*this, site.szDomainName, v, c_nameCapacity);
  if ((v = children.Utf8(ZEL_XML_SITE_USER_NAME))) FillField(*this, site.szUserName, v, c_nameCapacity);
  if (children.Get(ZEL_XML_SITE_PASSWORD, value)) ReadPassword(value, site.szPassword, false);
  if ((v = children.Utf8(ZEL_XML_UNCSITE_USE_LOGON_USER_ACCOUNT))) site.nUseLoggedonUserAccount = AtoiUtf8(v);
  if ((v = children.Utf8(ZEL_XML_SITE_RELATIVEPATH))) FillField(*this, site.szRelativePath, v, c_pathCapacity);
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
