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
#include "support/SiteRecordBuilder.h"
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

tag_Site* BuildList(int variant, bool withPasswords) {
  using sitesample::SiteBuilder;
  const std::wstring v = std::to_wstring(variant);
  const std::wstring password = withPasswords ? L"pw-" + v : L"";

  tag_Site* spipe = SiteBuilder(sitehlp::SITE_TYPE_HTTP)
                        .Type(L"master").Order(1).Enabled().SpipeOrSuperAgent().Element(L"SpipeSite")
                        .Name(L"Vantor_MasterSite").Server(L"mgmt" + v + L".corp.example", 80)
                        .ServerIP(L"192.0.2." + std::to_wstring(variant % 250 + 1), 80).ServerName(L"MGMT" + v, 80)
                        .Path(L"Software").Version(L"5.10." + v).SecurePort(443)
                        .Release();
  tag_Site* http = SiteBuilder(sitehlp::SITE_TYPE_HTTP)
                       .Type(L"repository").Order(3).Enabled().Element(L"HttpSite").Name(L"VendorHttp")
                       .Server(L"update.vlm.example", 80).Path(L"Updates/" + v).Account(L"reader" + v, password)
                       .Release();
  tag_Site* ftp = SiteBuilder(sitehlp::SITE_TYPE_FTP)
                      .Type(L"repository").Order(2).Enabled().Name(L"VendorFtp").Server(L"ftp.vlm.example", 21)
                      .Path(L"Updates").Account(L"anonymous", password)
                      .Release();
  tag_Site* unc = SiteBuilder(sitehlp::SITE_TYPE_UNC)
                      .Type(L"repository").Order(4).Enabled().Local().Name(L"BranchShare" + v)
                      .Server(L"fileserver.corp.example").Share(L"updates").Path(L"agent").Domain(L"CORP")
                      .Account(L"svc", password)
                      .Release();
  tag_Site* local = SiteBuilder(sitehlp::SITE_TYPE_LOCAL)
                        .Type(L"fallback").Order(0).Enabled().Local().Name(L"LocalCache")
                        .Path(L"/var/cache/vlm/" + v)
                        .Release();
  tag_Site* proxy = SiteBuilder(sitehlp::SITE_TYPE_PROXY)
                        .Type(L"").Order(0).Enabled().Name(L"CorpProxy").HttpProxy(L"proxy.corp.example", 3128)
                        .Exclusions(L"mgmt.corp.example;host" + v + L".corp.example", 0)
                        .HttpProxyAccount(L"proxyuser", password)
                        .Release();

  spipe->pNext = http;
  http->pNext = ftp;
  ftp->pNext = unc;
  unc->pNext = local;
  local->pNext = proxy;
  return spipe;
}

const char* const kKeyFiles[4] = {"srpubkey.bin", "sr2048pubkey.bin", "reqseckey.bin", "req2048seckey.bin"};

std::string KeyBytes(int file, int variant) {
  return std::string(3000 + 1000 * file, static_cast<char>('a' + file * 2 + variant));
}

bool WriteOutsideVariant(sitehlp::CSitesHelper& helper, const std::string& dir, int variant,
                         const std::vector<std::wstring>& certificates) {
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (ec) return false;
  tag_Site* list = BuildList(variant, false);
  const int rc = helper.CreateSiteList(list, testsupport::Wide(dir + "/SiteList.xml"), L"20250101000000",
                                       L"2025010100000" + std::to_wstring(variant + 1), L"Client", certificates);
  helper.FreeSiteListMemory(list);
  for (int file = 0; file < 4; ++file) testsupport::WriteFile(dir + "/" + kKeyFiles[file], KeyBytes(file, variant));
  return rc == 0;
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
