#include "SiteFields.h"

#include "Context.h"
#include "SiteKinds.h"
#include "xmlschema/sitelist.h"

namespace sitelist {
namespace {

class FieldList {
 public:
  void Text(const char* key, const char* label, const std::string& value) { Add(key, label, value, value); }
  void Text(const char* key, const char* label, const wchar_t* value) { Text(key, label, Narrow(value)); }
  void Number(const char* key, const char* label, long long value) {
    Add(key, label, std::to_string(value), value);
  }
  void Flag(const char* key, const char* label, int value) { Add(key, label, value ? "yes" : "no", value != 0); }
  // host:port; nothing when there is no host (the port is then the reader's default).
  void HostPort(const char* key, const char* label, const wchar_t* host, unsigned int port) {
    Text(key, label, host[0] ? Narrow(host) + ":" + std::to_string(port) : "");
  }
  void Password(const char* key, const char* label, const wchar_t* clear) {
    SiteField& f = Add(key, label, clear[0] ? "set" : "", clear[0] != 0);
    f.password = true;
    f.secret = Narrow(clear);
  }
  std::vector<SiteField> Take() { return std::move(m_fields); }

 private:
  SiteField& Add(const char* key, const char* label, std::string text, Json json) {
    m_fields.push_back({key, label, std::move(text), std::move(json), false, ""});
    return m_fields.back();
  }
  std::vector<SiteField> m_fields;
};

void Header(FieldList& f, const sitehlp::tag_Site& site) {
  f.Text("type", "type", site.szType);
  f.Number("order", "order", site.nOrder);
  f.Flag("enabled", "enabled", site.bEnabled);
  f.Flag("local", "local", site.bLocal);
}

void Http(FieldList& f, const sitehlp::tag_Site& site) {
  const sitehlp::tag_HttpSite& s = site.httpSite;
  f.HostPort("server", "server", s.szServer, static_cast<unsigned int>(s.nPort));
  f.Number("securePort", "secure port", s.nSecurePort);
  const std::string element = ElementOf(site);
  if (element == Narrow(ZEL_XML_SITELIST_SPIPE_SITE) || element == Narrow(ZEL_XML_SITELIST_SUPERAGENT_SITE)) {
    f.HostPort("serverName", "server name", s.szServerName, static_cast<unsigned int>(s.nServerNamePort));
    f.HostPort("serverIP", "server IP", s.szServerIP, static_cast<unsigned int>(s.nServerIPPort));
  }
  if (element == Narrow(ZEL_XML_SITELIST_SPIPE_SITE)) f.Text("version", "version", s.szVersion);
  f.Text("relativePath", "path", s.szRelativePath);
  f.Number("useAuth", "use auth", s.nUseAuth);
  f.Text("userName", "user", s.szUserName);
  f.Password("password", "password", s.szPassword);
}

void Ftp(FieldList& f, const sitehlp::tag_FtpSite& s) {
  f.HostPort("server", "server", s.szServer, static_cast<unsigned int>(s.nPort));
  f.Number("securePort", "secure port", s.nSecurePort);
  f.Text("relativePath", "path", s.szRelativePath);
  f.Text("userName", "user", s.szUserName);
  f.Password("password", "password", s.szPassword);
}

// The path and account fields that UNC and local sites share.
template <typename Body>
void PathAndAccount(FieldList& f, const Body& s) {
  f.Text("relativePath", "path", s.szRelativePath);
  f.Number("useLoggedonUserAccount", "use logged-on account", s.nUseLoggedonUserAccount);
  f.Text("domainName", "domain", s.szDomainName);
  f.Text("userName", "user", s.szUserName);
  f.Password("password", "password", s.szPassword);
}

void Unc(FieldList& f, const sitehlp::tag_UncSite& s) {
  f.Text("server", "server", s.szServer);
  f.Text("shareName", "share", s.szShareName);
  PathAndAccount(f, s);
}

std::string ProxyHost(const wchar_t* host, int port) {
  return host[0] ? Narrow(host) + ":" + std::to_string(static_cast<unsigned int>(port)) : "";
}

void Proxy(FieldList& f, const sitehlp::tag_ProxySettings& p) {
  f.Text("httpProxy", "HTTP proxy", ProxyHost(p.szHttpProxyServer, p.nHttpProxyPort));
  f.Text("ftpProxy", "FTP proxy", ProxyHost(p.szFtpProxyServer, p.nFtpProxyPort));
  f.Flag("useIEConfig", "system proxy configuration", p.bUseIEConfig);
  f.Flag("allowUserToConfigureProxy", "user may configure", p.bAllowUserToConfigureProxy);
  f.Flag("bypassLocalAddress", "bypass local addresses", p.bBypassLocalAddress);
  f.Text("exclusionList", "exclusions", p.szExclusionList);
  f.Flag("httpUseAuth", "HTTP proxy auth", p.bHttpUseAuth);
  f.Text("httpProxyUser", "HTTP proxy user", p.szHttpProxyUser);
  f.Password("httpProxyPassword", "HTTP proxy password", p.szHttpProxyPassword);
  f.Flag("ftpUseAuth", "FTP proxy auth", p.bFtpUseAuth);
  f.Text("ftpProxyUser", "FTP proxy user", p.szFtpProxyUser);
  f.Password("ftpProxyPassword", "FTP proxy password", p.szFtpProxyPassword);
  f.Flag("alternateHttpUseAuth", "alternate HTTP proxy auth", p.bAlternateHttpUseAuth);
  f.Text("alternateHttpProxyUser", "alternate HTTP proxy user", p.szAlternateHttpProxyUser);
  f.Password("alternateHttpProxyPassword", "alternate HTTP proxy password", p.szAlternateHttpProxyPassword);
  f.Flag("alternateFtpUseAuth", "alternate FTP proxy auth", p.bAlternateFtpUseAuth);
  f.Text("alternateFtpProxyUser", "alternate FTP proxy user", p.szAlternateFtpProxyUser);
  f.Password("alternateFtpProxyPassword", "alternate FTP proxy password", p.szAlternateFtpProxyPassword);
}

}  // namespace

bool SiteField::SameValue(const SiteField& other) const {
  return password ? secret == other.secret : text == other.text;
}

SiteRecord RecordOf(const sitehlp::tag_Site& site) {
  SiteRecord record{ElementOf(site), NameOf(site), ViewOf(site), {}};
  FieldList f;
  switch (site.nSiteType) {
    case sitehlp::SITE_TYPE_HTTP: Header(f, site); Http(f, site); break;
    case sitehlp::SITE_TYPE_FTP: Header(f, site); Ftp(f, site.ftpSite); break;
    case sitehlp::SITE_TYPE_UNC: Header(f, site); Unc(f, site.uncSite); break;
    case sitehlp::SITE_TYPE_LOCAL: Header(f, site); PathAndAccount(f, site.localSite); break;
    case sitehlp::SITE_TYPE_PROXY: Proxy(f, site.proxySettings); break;
    default: Header(f, site); break;
  }
  record.fields = f.Take();
  return record;
}

Json RecordJson(const SiteRecord& record) {
  Json json{{"element", record.element}, {"name", record.name}};
  for (const SiteField& f : record.fields) json[f.key] = f.json;
  return json;
}

}  // namespace sitelist
