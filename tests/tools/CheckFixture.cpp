#include "CheckFixture.h"

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>

namespace tooltest {
namespace {

std::string Made(const std::string& dir) {
  std::filesystem::create_directories(dir);
  return dir;
}

// The served tree: Updates/ and Software/ with a file each, private/ behind
// the HTTP server's password.
std::string MadeWww(const std::string& dir) {
  for (const char* sub : {"Updates", "Software", "private/Updates"}) {
    Made(dir + "/" + sub);
    testsupport::WriteFile(dir + "/" + sub + "/catalog.z", "catalog");
  }
  return dir;
}

std::string Flag(bool value) { return value ? "1" : "0"; }

std::string Credentials(const std::string& user, const std::string& encryptedPassword) {
  return "<UserName>" + user + "</UserName><Password Encrypted=\"1\">" + encryptedPassword + "</Password>";
}

}  // namespace

std::string At(const std::string& host, unsigned int port) { return host + ":" + std::to_string(port); }

std::vector<std::string> Joined(std::initializer_list<std::vector<std::string>> parts) {
  std::vector<std::string> all;
  for (const std::vector<std::string>& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

CheckTable TableOf(const std::string& out) {
  static const std::regex columns(" {2,}");
  CheckTable table;
  std::istringstream in(out);
  std::string line;
  while (std::getline(in, line) && !line.empty()) {
    Row row(std::sregex_token_iterator(line.begin(), line.end(), columns, -1), std::sregex_token_iterator());
    if (!table.rows.empty() && row.size() > 4) row[4] = "#";
    table.rows.push_back(row);
  }
  std::getline(in, table.summary);
  return table;
}

CheckJson JsonOf(const std::string& out) {
  CheckJson result{Json::parse(out), {}};
  for (Json& site : result.document["sites"]) {
    result.ms.push_back(site["ms"].get<long>());
    site.erase("ms");
  }
  return result;
}

std::string HttpSite(const std::string& name, int order, const std::string& server, const std::string& path,
                     const std::string& user, const std::string& encryptedPassword, bool enabled) {
  return "<HttpSite Type=\"repository\" Name=\"" + name + "\" Order=\"" + std::to_string(order) + "\" Enabled=\"" +
         Flag(enabled) + "\" Local=\"1\" Server=\"" + server + "\"><RelativePath>" + path +
         "</RelativePath><UseAuth>" + Flag(!user.empty()) + "</UseAuth>" + Credentials(user, encryptedPassword) +
         "</HttpSite>\n";
}

std::string SpipeSite(const std::string& name, int order, const std::string& host, unsigned int plainPort,
                      unsigned int securePort) {
  const std::string port = std::to_string(plainPort);
  return "<SpipeSite Type=\"master\" Name=\"" + name + "\" Order=\"" + std::to_string(order) +
         "\" Enabled=\"1\" Local=\"0\"" + (securePort ? " SecurePort=\"" + std::to_string(securePort) + "\"" : "") +
         " Server=\"" + host + ":" + port + "\" ServerName=\"MGMT:" + port + "\" ServerIP=\"192.0.2.1:" + port +
         "\" Version=\"5.0\"><RelativePath>Software</RelativePath><UseAuth>0</UseAuth>" + Credentials("", "") +
         "</SpipeSite>\n";
}

std::string FtpSite(const std::string& name, int order, const std::string& server, const std::string& path,
                    const std::string& user, const std::string& encryptedPassword) {
  return "<FTPSite Type=\"repository\" Name=\"" + name + "\" Order=\"" + std::to_string(order) + "\" Server=\"" +
         server + "\" Enabled=\"1\" Local=\"0\"><RelativePath>" + path + "</RelativePath>" +
         Credentials(user, encryptedPassword) + "</FTPSite>\n";
}

std::string UncSite(const std::string& name, int order, const std::string& server) {
  return "<UNCSite Type=\"repository\" Name=\"" + name + "\" Order=\"" + std::to_string(order) + "\" Server=\"" +
         server + "\" Enabled=\"1\" Local=\"1\"><ShareName>updates</ShareName><RelativePath>agent</RelativePath>"
         "<UseLoggedonUserAccount>0</UseLoggedonUserAccount><DomainName>CORP</DomainName>" +
         Credentials("", "") + "</UNCSite>\n";
}

std::string LocalSite(const std::string& name, int order, const std::string& path) {
  return "<LocalSite Type=\"repository\" Name=\"" + name + "\" Order=\"" + std::to_string(order) +
         "\" Enabled=\"1\" Local=\"1\" Server=\"127.0.0.1\"><RelativePath>" + path +
         "</RelativePath><UseLoggedonUserAccount>0</UseLoggedonUserAccount><DomainName></DomainName>" +
         Credentials("", "") + "</LocalSite>\n";
}

std::string ProxyElement(const ProxyConfig& p) {
  std::string element = "<ProxyConfigList><ProxyConfig Name=\"CorpProxy\"";
  if (p.useSystemSettings) element += " UseIEConfig=\"1\"";
  element += " Local=\"1\"";
  if (!p.httpServer.empty())
    element += " HttpProxyServer=\"" + p.httpServer + "\" HttpProxyPort=\"" + std::to_string(p.httpPort) + "\"";
  if (!p.ftpServer.empty())
    element += " FtpProxyServer=\"" + p.ftpServer + "\" FtpProxyPort=\"" + std::to_string(p.ftpPort) + "\"";
  element += "><AllowUserToConfigureProxy>0</AllowUserToConfigureProxy><BypassLocalAddress>" +
             Flag(p.bypassLocal) + "</BypassLocalAddress><ExclusionList>";
  for (const std::string& host : p.exclusions) element += "<ExclusionHost>" + host + "</ExclusionHost>";
  const std::string auth = Flag(!p.user.empty());
  const std::string password = "Encrypted=\"1\">" + p.encryptedPassword;
  element += "</ExclusionList><FtpUseAuth>" + auth + "</FtpUseAuth><HttpUseAuth>" + auth +
             "</HttpUseAuth><HttpProxyUser>" + p.user + "</HttpProxyUser><HttpProxyPassword " + password +
             "</HttpProxyPassword><FtpProxyUser>" + p.user + "</FtpProxyUser><FtpProxyPassword " + password +
             "</FtpProxyPassword></ProxyConfig></ProxyConfigList>\n";
  return element;
}

CheckTest::CheckTest() : servers(MadeWww(Tmp("www")), Made(Tmp("certs")), Tmp("servers.log")) {}

std::string CheckTest::TestCa() const { return testsupport::ReadFile(Tmp("certs/ca.pem")); }

void CheckTest::WriteList(const std::string& sites, const std::vector<std::string>& certificates) const {
  std::string bundle;
  for (const std::string& pem : certificates) bundle += "<CaCertificate>" + pem + "</CaCertificate>";
  testsupport::WriteFile(
      OwnList(), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                 "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20250101000000\" "
                 "LocalVersion=\"20250102030405\" Type=\"Client\">\n" +
                     (bundle.empty() ? "" : "<CaBundle>" + bundle + "</CaBundle>\n") +
                     "<SiteList Default=\"1\" Name=\"SomeGUID\">\n" + sites + "</SiteList>\n</ns:SiteLists>\n");
}

std::vector<std::string> CheckTest::Pin(const std::string& host, unsigned int port) {
  return {"--resolve", host + ":" + std::to_string(port) + ":127.0.0.1"};
}

ToolResult CheckTest::Check(const std::vector<std::string>& args) const {
  std::vector<std::string> all{"check", "--no-lookup", "--timeout", "10"};
  all.insert(all.end(), args.begin(), args.end());
  return Run(all);
}

std::vector<std::string> CheckTest::Logged(const std::string& kind) const {
  std::vector<std::string> lines;
  for (const std::string& line : servers.Log())
    if (line.rfind(kind + " ", 0) == 0) lines.push_back(line);
  std::sort(lines.begin(), lines.end());
  return lines;
}

}  // namespace tooltest
