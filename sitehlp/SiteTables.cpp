// The tables of the site elements, and the rules that one kind of site alone
// follows beside them.
#include "sitehlp/SiteTables.h"

#include <cstring>
#include <cwchar>

#include "port/log/Log.h"
#include "port/strings/Strings.h"
#include "sitehlp/Component.h"
#include "sitehlp/FieldFill.h"
#include "sitehlp/SchemaNames.h"
#include "xmlschema/sitelist.h"

// offset and capacity of a text member; offset of a 32-bit number member.
#define VLM_TEXT(Body, member) offsetof(Body, member), TextCapacity<decltype(Body::member)>()
#define VLM_NUMBER(Body, member) NumberOffset<decltype(Body::member)>(offsetof(Body, member))

namespace sitehlp {

namespace {

using AdvXMLParser::Element;

constexpr SiteField Field(const wchar_t* name, FieldPlace place, FieldType type, std::size_t offset,
                          unsigned int capacity = 0, std::size_t number = 0) {
  return SiteField{name, place, type, false, offset, capacity, number, nullptr, nullptr, WriteWhen::Always, false};
}
constexpr SiteField Header(const wchar_t* name, FieldType type, std::size_t offset) {
  SiteField f = Field(name, FieldPlace::Attribute, type, offset);
  f.header = true;
  return f;
}

constexpr SiteField TextAttr(const wchar_t* name, std::size_t offset, unsigned int capacity) {
  return Field(name, FieldPlace::Attribute, FieldType::Text, offset, capacity);
}
constexpr SiteField TextChild(const wchar_t* name, std::size_t offset, unsigned int capacity) {
  return Field(name, FieldPlace::Child, FieldType::Text, offset, capacity);
}
constexpr SiteField NumberChild(const wchar_t* name, std::size_t offset) {
  return Field(name, FieldPlace::Child, FieldType::Number, offset);
}
constexpr SiteField FlagChild(const wchar_t* name, std::size_t offset) {
  return Field(name, FieldPlace::Child, FieldType::Flag, offset);
}
constexpr SiteField HostPortAttr(const wchar_t* name, std::size_t offset, unsigned int capacity, std::size_t port) {
  return Field(name, FieldPlace::Attribute, FieldType::HostPort, offset, capacity, port);
}
constexpr SiteField PasswordChild(const wchar_t* name, std::size_t offset, unsigned int capacity) {
  return Field(name, FieldPlace::Child, FieldType::Password, offset, capacity);
}
constexpr SiteField ConstantAttr(const wchar_t* name, const wchar_t* text) {
  return Field(name, FieldPlace::Attribute, FieldType::Constant, 0).Writes(text);
}

// The header attributes every site element but a proxy configuration carries.
constexpr SiteField kType = Header(ZEL_XML_SITE_TYPE, FieldType::SiteType, offsetof(tag_Site, szType));
constexpr SiteField kOrder = Header(ZEL_XML_SITE_ORDER, FieldType::SiteOrder, VLM_NUMBER(tag_Site, nOrder));
constexpr SiteField kEnabled = Header(ZEL_XML_SITE_ENABLED, FieldType::Flag, VLM_NUMBER(tag_Site, bEnabled));
constexpr SiteField kLocal = Header(ZEL_XML_SITE_LOCAL, FieldType::Flag, VLM_NUMBER(tag_Site, bLocal));

// The fields that several bodies hold under the same member name, for a body.
template <typename Body>
constexpr SiteField NameOf() {
  return TextAttr(ZEL_XML_SITE_NAME, VLM_TEXT(Body, szName));
}
template <typename Body>
constexpr SiteField SecurePortOf() {
  return Field(ZEL_XML_SSL_PORT, FieldPlace::Attribute, FieldType::Unsigned, VLM_NUMBER(Body, nSecurePort))
      .When(WriteWhen::NonZero);
}
template <typename Body>
constexpr SiteField HostPortServerOf() {
  return HostPortAttr(ZEL_XML_SITE_SERVER, VLM_TEXT(Body, szServer), VLM_NUMBER(Body, nPort)).Macros();
}
template <typename Body>
constexpr SiteField RelativePathOf() {
  return TextChild(ZEL_XML_SITE_RELATIVEPATH, VLM_TEXT(Body, szRelativePath)).Macros();
}
template <typename Body>
constexpr SiteField DomainOf() {
  return TextChild(ZEL_XML_SITE_DOMAIN_NAME, VLM_TEXT(Body, szDomainName)).Macros();
}
template <typename Body>
constexpr SiteField UseLoggedonUserOf() {
  return NumberChild(ZEL_XML_UNCSITE_USE_LOGON_USER_ACCOUNT, VLM_NUMBER(Body, nUseLoggedonUserAccount));
}
template <typename Body>
constexpr SiteField UserOf() {
  return TextChild(ZEL_XML_SITE_USER_NAME, VLM_TEXT(Body, szUserName));
}
template <typename Body>
constexpr SiteField PasswordOf() {
  return PasswordChild(ZEL_XML_SITE_PASSWORD, VLM_TEXT(Body, szPassword));
}

// The HTTP family's names and addresses; which of them an element writes
// differs.
constexpr SiteField kServerName = HostPortAttr(ZEL_XML_SERVER_NETBIOS_NAME, VLM_TEXT(tag_HttpSite, szServerName),
                                               VLM_NUMBER(tag_HttpSite, nServerNamePort))
                                      .Macros();
constexpr SiteField kServerIP = HostPortAttr(ZEL_XML_SITELIST_SPIPE_IPADDR, VLM_TEXT(tag_HttpSite, szServerIP),
                                             VLM_NUMBER(tag_HttpSite, nServerIPPort))
                                    .Macros();
#define VLM_HTTP_CHILDREN                                                                                    \
  RelativePathOf<tag_HttpSite>(), NumberChild(ZEL_XML_HTTPSITE_USE_AUTH, VLM_NUMBER(tag_HttpSite, nUseAuth)), \
      UserOf<tag_HttpSite>(), PasswordOf<tag_HttpSite>()

// A plain HTTP repository: its ServerName and ServerIP are read (an absent
// one as an empty host with port 80) but never written.
constexpr SiteField kHttpFields[] = {
    kType, NameOf<tag_HttpSite>(), kOrder, kEnabled, kLocal, SecurePortOf<tag_HttpSite>(),
    HostPortServerOf<tag_HttpSite>(), kServerName.When(WriteWhen::Never), kServerIP.When(WriteWhen::Never),
    VLM_HTTP_CHILDREN,
};

// The management server's site always writes its name and address, and its
// version when it has one.
constexpr SiteField kSpipeFields[] = {
    kType, NameOf<tag_HttpSite>(), kOrder, kEnabled, kLocal, SecurePortOf<tag_HttpSite>(),
    HostPortServerOf<tag_HttpSite>(), kServerName, kServerIP,
    TextAttr(ZEL_XML_SITE_SERVER_VERSION, VLM_TEXT(tag_HttpSite, szVersion)).Macros().When(WriteWhen::NonEmpty),
    VLM_HTTP_CHILDREN,
};

// A SuperAgent writes its name and address only when it has them; its
// ServerDNS, when it has one, is read in place of its Server.
constexpr SiteField kSuperAgentFields[] = {
    kType, NameOf<tag_HttpSite>(), kOrder, kEnabled, kLocal, SecurePortOf<tag_HttpSite>(),
    HostPortServerOf<tag_HttpSite>().Partner(ZEL_XML_SITE_SERVER_FQDN), kServerName.When(WriteWhen::NonEmpty),
    kServerIP.When(WriteWhen::NonEmpty), VLM_HTTP_CHILDREN,
};

// The FTP site's Server carries the port as the HTTP family's does (port 80
// when it has none, the HTTP default, also for FTP).
constexpr SiteField kFtpFields[] = {
    kType, NameOf<tag_FtpSite>(), kOrder, HostPortServerOf<tag_FtpSite>(), kEnabled, SecurePortOf<tag_FtpSite>(),
    kLocal, RelativePathOf<tag_FtpSite>(), UserOf<tag_FtpSite>(), PasswordOf<tag_FtpSite>(),
};

// A UNC site's Server is the bare host, not split.
constexpr SiteField kUncFields[] = {
    kType, NameOf<tag_UncSite>(), kOrder,
    TextAttr(ZEL_XML_SITE_SERVER, VLM_TEXT(tag_UncSite, szServer)).Macros(), kEnabled, kLocal,
    TextChild(ZEL_XML_UNCSITE_SHARENAME, VLM_TEXT(tag_UncSite, szShareName)), RelativePathOf<tag_UncSite>(),
    UseLoggedonUserOf<tag_UncSite>(), DomainOf<tag_UncSite>(), UserOf<tag_UncSite>(), PasswordOf<tag_UncSite>(),
};

// A local site's Server is always the loopback address; no field holds it.
constexpr SiteField kLocalFields[] = {
    kType, NameOf<tag_LocalSite>(), kOrder, kEnabled, kLocal, ConstantAttr(ZEL_XML_SITE_SERVER, L"127.0.0.1"),
    RelativePathOf<tag_LocalSite>(), UseLoggedonUserOf<tag_LocalSite>(), DomainOf<tag_LocalSite>(),
    UserOf<tag_LocalSite>(), PasswordOf<tag_LocalSite>(),
};

// A proxy configuration has no header attributes; UseIEConfig is written as
// "1" when set, Local is always "1", and the HTTP proxy password is always in
// the text form.
#define VLM_PROXY(member) VLM_TEXT(tag_ProxySettings, member)
#define VLM_PROXY_NUMBER(member) VLM_NUMBER(tag_ProxySettings, member)
constexpr SiteField kProxyFields[] = {
    NameOf<tag_ProxySettings>(),
    Field(ZEL_XML_PROXY_USE_IE_CONFIG, FieldPlace::Attribute, FieldType::Flag, VLM_PROXY_NUMBER(bUseIEConfig))
        .When(WriteWhen::NonZero)
        .Writes(L"1"),
    ConstantAttr(ZEL_XML_SITE_LOCAL, L"1"),
    Field(ZEL_XML_PROXY_HTTP_PROXY_SERVER, FieldPlace::Attribute, FieldType::ProxyHost, VLM_PROXY(szHttpProxyServer),
          VLM_PROXY_NUMBER(nHttpProxyPort))
        .Partner(ZEL_XML_PROXY_HTTP_PROXY_PORT)
        .Macros(),
    Field(ZEL_XML_PROXY_FTP_PROXY_SERVER, FieldPlace::Attribute, FieldType::ProxyHost, VLM_PROXY(szFtpProxyServer),
          VLM_PROXY_NUMBER(nFtpProxyPort))
        .Partner(ZEL_XML_PROXY_FTP_PROXY_PORT)
        .Macros(),
    FlagChild(ZEL_XML_PROXY_ALLOWUSERTOCONFIGPROXY, VLM_PROXY_NUMBER(bAllowUserToConfigureProxy)),
    FlagChild(ZEL_XML_PROXY_BYPASSLOCALADDR, VLM_PROXY_NUMBER(bBypassLocalAddress)),
    Field(ZEL_XML_PROXY_EXCLUSIONLIST, FieldPlace::Child, FieldType::Exclusions, VLM_PROXY(szExclusionList),
          VLM_PROXY_NUMBER(nExclusionCount)),
    FlagChild(ZEL_XML_PROXY_FTP_USEAUTH, VLM_PROXY_NUMBER(bFtpUseAuth)),
    FlagChild(ZEL_XML_PROXY_HTTP_USEAUTH, VLM_PROXY_NUMBER(bHttpUseAuth)),
    TextChild(ZEL_XML_HTTP_PROXY_PROXYUSERNAME, VLM_PROXY(szHttpProxyUser)),
    Field(ZEL_XML_HTTP_PROXY_PROXYPASSWORD, FieldPlace::Child, FieldType::TextFormPassword,
          VLM_PROXY(szHttpProxyPassword)),
    TextChild(ZEL_XML_FTP_PROXY_PROXYUSERNAME, VLM_PROXY(szFtpProxyUser)),
    PasswordChild(ZEL_XML_FTP_PROXY_PROXYPASSWORD, VLM_PROXY(szFtpProxyPassword)),
    FlagChild(ZEL_XML_PROXY_ALT_FTP_USEAUTH, VLM_PROXY_NUMBER(bAlternateFtpUseAuth)),
    FlagChild(ZEL_XML_PROXY_ALT_HTTP_USEAUTH, VLM_PROXY_NUMBER(bAlternateHttpUseAuth)),
    TextChild(ZEL_XML_HTTP_PROXY_ALT_PROXYUSERNAME, VLM_PROXY(szAlternateHttpProxyUser)),
    PasswordChild(ZEL_XML_HTTP_PROXY_ALT_PROXYPASSWORD, VLM_PROXY(szAlternateHttpProxyPassword)),
    TextChild(ZEL_XML_FTP_PROXY_ALT_PROXYUSERNAME, VLM_PROXY(szAlternateFtpProxyUser)),
    PasswordChild(ZEL_XML_FTP_PROXY_ALT_PROXYPASSWORD, VLM_PROXY(szAlternateFtpProxyPassword)),
};

// ---- Rules of one kind alone -------------------------------------------------------

// An HTTP-family body records the element it came from: that is how a SPIPE or
// SuperAgent site is told apart from a plain repository.
void ReadSiteElementName(CSitesHelper& helper, const Element& element, void* body) {
  tag_HttpSite& site = *static_cast<tag_HttpSite*>(body);
  FillField(helper, site.szSiteElement, element.GetNameUtf8(), c_nameCapacity);
}

// Which proxies a proxy configuration names: "HttpSite", "FTPSite", both
// ("FtpHttp") or none.
void ReadProxyKind(CSitesHelper& helper, const Element&, void* body) {
  tag_ProxySettings& proxy = *static_cast<tag_ProxySettings*>(body);
  const bool http = proxy.szHttpProxyServer[0] != L'\0';
  const bool ftp = proxy.szFtpProxyServer[0] != L'\0';
  if (http) helper.CopyWStr(proxy.szProxyKind, ZEL_XML_SITELIST_HTTP_SITE, c_nameCapacity);
  if (ftp) helper.CopyWStr(proxy.szProxyKind, ZEL_XML_SITELIST_FTP_SITE, c_nameCapacity);
  if (http && ftp) helper.CopyWStr(proxy.szProxyKind, ZEL_XML_SITELIST_FTPHTTP_SITE, c_nameCapacity);
}

}  // namespace

void ReadExclusionList(const Element& list, wchar_t* joined, int32_t& count) {
  std::size_t length = std::wcslen(joined);
  const std::size_t delimiterLength = std::wcslen(c_proxyParamDelimiter);
  for (Element host : list.Children()) {
    if (!host.HasName(ZEL_XML_PROXY_EXCLUSIONHOST)) continue;
    const AString text = host.GetValue();
    if (length + text.size() + delimiterLength > c_exclusionListLimit) {
      logDetail(c_component, L"Exclusion list of proxy settings is truncated to " + std::wstring(joined) +
                                 L" in ReadSiteFromSiteList");
      continue;
    }
    if (count != 0) {
      std::wcscpy(joined + length, c_proxyParamDelimiter);
      length += delimiterLength;
    }
    std::wcscpy(joined + length, text.c_str());
    length += text.size();
    ++count;
  }
}

void WriteExclusionList(CSitesHelper& helper, Element& parent, const wchar_t* name, wchar_t* joined) {
  Element exclusions = parent.AppendElement(name);
  helper.FormatEnvSymbols(joined, c_exclusionListCapacity - 1);
  wchar_t* state = nullptr;
  for (wchar_t* host = std::wcstok(joined, c_proxyParamDelimiter, &state); host;
       host = std::wcstok(nullptr, c_proxyParamDelimiter, &state)) {
    exclusions.AppendElement(ZEL_XML_PROXY_EXCLUSIONHOST).SetValue(host);
  }
}

namespace {

#define VLM_FIELDS(table) table, sizeof(table) / sizeof(table[0])

constexpr SiteElementSpec kSpecs[] = {
    {ZEL_XML_SITELIST_HTTP_SITE, nullptr, SITE_TYPE_HTTP, false, sizeof(tag_HttpSite), VLM_FIELDS(kHttpFields),
     &ReadSiteElementName},
    {ZEL_XML_SITELIST_SPIPE_SITE, nullptr, SITE_TYPE_HTTP, true, sizeof(tag_HttpSite), VLM_FIELDS(kSpipeFields),
     &ReadSiteElementName},
    {ZEL_XML_SITELIST_SUPERAGENT_SITE, nullptr, SITE_TYPE_HTTP, true, sizeof(tag_HttpSite),
     VLM_FIELDS(kSuperAgentFields), &ReadSiteElementName},
    {ZEL_XML_SITELIST_FTP_SITE, nullptr, SITE_TYPE_FTP, false, sizeof(tag_FtpSite), VLM_FIELDS(kFtpFields), nullptr},
    {ZEL_XML_SITELIST_UNC_SITE, nullptr, SITE_TYPE_UNC, false, sizeof(tag_UncSite), VLM_FIELDS(kUncFields), nullptr},
    {ZEL_XML_SITELIST_LOCAL_SITE, nullptr, SITE_TYPE_LOCAL, false, sizeof(tag_LocalSite), VLM_FIELDS(kLocalFields),
     nullptr},
    {ZEL_XML_PROXY_CONFIG, ZEL_XML_PROXY_CONFIG_LIST, SITE_TYPE_PROXY, false, sizeof(tag_ProxySettings),
     VLM_FIELDS(kProxyFields), &ReadProxyKind},
};
constexpr std::size_t kSpecCount = sizeof(kSpecs) / sizeof(kSpecs[0]);
enum SpecIndex { kHttpSpec, kSpipeSpec, kSuperAgentSpec };

// The names a SiteList child is looked up by: every site element, then the
// proxy configuration list.
const NarrowNames& SiteListChildNames() {
  static const NarrowNames names = [] {
    const wchar_t* all[kSpecCount + 1];
    for (std::size_t i = 0; i < kSpecCount; ++i) all[i] = kSpecs[i].element;
    all[kSpecCount] = ZEL_XML_PROXY_CONFIG_LIST;
    return NarrowNames(all, kSpecCount + 1);
  }();
  return names;
}

// The HTTP-family spec an element name text selects for writing.
const SiteElementSpec& HttpFamilySpecOf(const wchar_t* element) {
  if (wcsicmp(element, ZEL_XML_SITELIST_SPIPE_SITE) == 0) return kSpecs[kSpipeSpec];
  if (std::wcscmp(element, ZEL_XML_SITELIST_SUPERAGENT_SITE) == 0) return kSpecs[kSuperAgentSpec];
  return kSpecs[kHttpSpec];
}

}  // namespace

const SiteElementSpec* SiteElementSpecs() { return kSpecs; }
std::size_t SiteElementSpecCount() { return kSpecCount; }

const SiteElementSpec* FindSiteElementSpec(const Element& element) {
  if (!element) return nullptr;
  const std::size_t i = SiteListChildNames().Find(element.GetNameUtf8());
  return i < kSpecCount ? &kSpecs[i] : nullptr;
}

SiteListChild ClassifySiteListChild(const Element& element) {
  SiteListChild child;
  if (!element) return child;
  const std::size_t i = SiteListChildNames().Find(element.GetNameUtf8());
  if (i < kSpecCount && !kSpecs[i].list) {
    child.kind = kSpecs[i].kind;
    child.spec = &kSpecs[i];
  } else if (i == kSpecCount) {
    child.kind = SITE_TYPE_PROXY;
  }
  return child;
}

const SiteElementSpec* WriterSpecOf(int32_t kind, const tag_Site& site) {
  if (kind == SITE_TYPE_HTTP) return &HttpFamilySpecOf(site.httpSite.szSiteElement);
  for (const SiteElementSpec& spec : kSpecs)
    if (spec.kind == kind) return &spec;
  return nullptr;
}

std::size_t SiteBodySize(const Element& element) {
  const SiteElementSpec* spec = FindSiteElementSpec(element);
  return spec ? spec->bodySize : 0;
}

}  // namespace sitehlp
