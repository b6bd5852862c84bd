#include "stress/Workload.h"

#include <dirent.h>
#include <time.h>

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <stdexcept>

#include "port/config/IConfiguration.h"
#include "port/xml/AdvXMLParser.h"
#include "xmlschema/sitelist.h"

namespace workload {

using sitehlp::tag_Site;

void CountingNullSink::Write(port::LogLevel level, bool, const std::wstring&, const std::wstring& message) {
  if (level != port::LogLevel::Error) return;
  ++m_errors;
  m_lastError = message;
}

DataDir::DataDir() {
  std::filesystem::create_directories(m_dir.file("data/etc"));
  std::filesystem::create_directories(m_dir.file("outside"));
  port::ResetConfigValues();
  port::SetConfigValue(port::ConfigKey::DataDir, m_dir.file("data"));
  port::SetConfigValue(port::ConfigKey::LockDir, m_dir.file("locks"));
  port::SetConfigValue(port::ConfigKey::KeyDir, m_dir.file("keys"));
  port::SetConfigValue(port::ConfigKey::Managed, "0");
  port::SetConfigValue(port::ConfigKey::RootPrefix, m_dir.file("root"));
}

DataDir::~DataDir() { port::ResetConfigValues(); }

namespace {

template <std::size_t N>
void Set(wchar_t (&field)[N], const std::wstring& text) {
  if (text.size() >= N) throw std::length_error("text does not fit the field");
  std::wmemset(field, 0, N);
  std::wmemcpy(field, text.data(), text.size());
}

tag_Site* NewSite(int kind, const wchar_t* type, int order) {
  tag_Site* site = static_cast<tag_Site*>(std::calloc(1, sizeof(tag_Site)));
  if (!site) throw std::bad_alloc();
  site->nSiteType = kind;
  site->bEnabled = 1;
  site->nOrder = order;
  Set(site->szType, type);
  return site;
}

}  // namespace

tag_Site* BuildList(int variant, bool withPasswords) {
  const std::wstring v = std::to_wstring(variant);
  const std::wstring password = withPasswords ? L"pw-" + v : L"";

  tag_Site* spipe = NewSite(sitehlp::SITE_TYPE_HTTP, L"master", 1);
  spipe->bSpipeOrSuperAgent = 1;
  Set(spipe->httpSite.szSiteElement, L"SpipeSite");
  Set(spipe->httpSite.szName, L"Vantor_MasterSite");
  Set(spipe->httpSite.szServer, L"mgmt" + v + L".corp.example");
  Set(spipe->httpSite.szServerIP, L"192.0.2." + std::to_wstring(variant % 250 + 1));
  Set(spipe->httpSite.szServerName, L"MGMT" + v);
  Set(spipe->httpSite.szRelativePath, L"Software");
  Set(spipe->httpSite.szVersion, L"5.10." + v);
  spipe->httpSite.nPort = spipe->httpSite.nServerIPPort = spipe->httpSite.nServerNamePort = 80;
  spipe->httpSite.nSecurePort = 443;

  tag_Site* http = NewSite(sitehlp::SITE_TYPE_HTTP, L"repository", 3);
  Set(http->httpSite.szSiteElement, L"HttpSite");
  Set(http->httpSite.szName, L"VendorHttp");
  Set(http->httpSite.szServer, L"update.vlm.example");
  http->httpSite.nPort = 80;
  Set(http->httpSite.szRelativePath, L"Updates/" + v);
  Set(http->httpSite.szUserName, L"reader" + v);
  Set(http->httpSite.szPassword, password);

  tag_Site* ftp = NewSite(sitehlp::SITE_TYPE_FTP, L"repository", 2);
  Set(ftp->ftpSite.szName, L"VendorFtp");
  Set(ftp->ftpSite.szServer, L"ftp.vlm.example");
  ftp->ftpSite.nPort = 21;
  Set(ftp->ftpSite.szRelativePath, L"Updates");
  Set(ftp->ftpSite.szUserName, L"anonymous");
  Set(ftp->ftpSite.szPassword, password);

  tag_Site* unc = NewSite(sitehlp::SITE_TYPE_UNC, L"repository", 4);
  unc->bLocal = 1;
  Set(unc->uncSite.szName, L"BranchShare" + v);
  Set(unc->uncSite.szServer, L"fileserver.corp.example");
  Set(unc->uncSite.szShareName, L"updates");
  Set(unc->uncSite.szRelativePath, L"agent");
  Set(unc->uncSite.szDomainName, L"CORP");
  Set(unc->uncSite.szUserName, L"svc");
  Set(unc->uncSite.szPassword, password);

  tag_Site* local = NewSite(sitehlp::SITE_TYPE_LOCAL, L"fallback", 0);
  local->bLocal = 1;
  Set(local->localSite.szName, L"LocalCache");
  Set(local->localSite.szRelativePath, L"/var/cache/vlm/" + v);

  tag_Site* proxy = NewSite(sitehlp::SITE_TYPE_PROXY, L"", 0);
  Set(proxy->proxySettings.szName, L"CorpProxy");
  Set(proxy->proxySettings.szHttpProxyServer, L"proxy.corp.example");
  proxy->proxySettings.nHttpProxyPort = 3128;
  Set(proxy->proxySettings.szExclusionList, L"mgmt.corp.example;host" + v + L".corp.example");
  Set(proxy->proxySettings.szHttpProxyUser, L"proxyuser");
  Set(proxy->proxySettings.szHttpProxyPassword, password);

  spipe->pNext = http;
  http->pNext = ftp;
  ftp->pNext = unc;
  unc->pNext = local;
  local->pNext = proxy;
  return spipe;
}

bool DocumentParses(const std::string& bytes) {
  try {
    AdvXMLParser::Parser parser;
    std::unique_ptr<AdvXMLParser::Document> document(parser.ParseUtf8(bytes.data(), bytes.size()));
    if (!document) return false;
    AdvXMLParser::Element root = document->GetRoot();
    return root && root.HasName(ZEL_XML_SITELISTS) && root.GetElement(ZEL_XML_SITELIST);
  } catch (const std::exception&) {
    return false;
  }
}

std::string WithoutCipherText(const std::string& bytes) {
  static const std::string marker = "Encrypted=\"1\">";
  std::string out;
  out.reserve(bytes.size());
  std::string::size_type from = 0;
  for (;;) {
    const std::string::size_type at = bytes.find(marker, from);
    if (at == std::string::npos) break;
    const std::string::size_type textStart = at + marker.size();
    const std::string::size_type textEnd = bytes.find('<', textStart);
    if (textEnd == std::string::npos) break;
    out.append(bytes, from, textStart - from);
    from = textEnd;
  }
  out.append(bytes, from, std::string::npos);
  return out;
}

bool HasSpipeSite(const tag_Site* list) {
  for (const tag_Site* s = list; s; s = s->pNext)
    if (s->nSiteType == sitehlp::SITE_TYPE_HTTP && wcscasecmp(s->httpSite.szSiteElement, L"SpipeSite") == 0)
      return true;
  return false;
}

std::vector<std::string> TemporaryFiles(const std::string& dir) {
  std::vector<std::string> out;
  DIR* d = opendir(dir.c_str());
  if (!d) return out;
  while (dirent* e = readdir(d)) {
    const std::string name = e->d_name;
    if (name.size() > 1 && name[0] == '.' && name.find(".tmp.") != std::string::npos) out.push_back(name);
  }
  closedir(d);
  return out;
}

std::int64_t NowUs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<std::int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

long ArgValue(int argc, char** argv, const char* name, long fallback) {
  for (int i = 1; i + 1 < argc; ++i)
    if (std::strcmp(argv[i], name) == 0) return std::strtol(argv[i + 1], nullptr, 10);
  return fallback;
}

}  // namespace workload
