// The management server endpoint: pointing the helper's own site list at a
// server (update in place or a new SPIPE site merged in), reporting where the
// server is from the cached list, a property run over random lists, and a
// writer and a reader in two processes.
#include <gtest/gtest.h>

#include <errno.h>
#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "port/fs/SysCalls.h"
#include "port/log/Log.h"
#include "sitehlp/AllocationTestUtil.h"
#include "sitehlp/SiteRecordTestUtil.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using sitetest::ListsEqual;
using sitetest::NewSite;
using sitetest::RecordsEqual;
using sitetest::Set;
using sitetest::SiteList;
using testsupport::Narrow;
using testsupport::ReadFile;
using testsupport::Wide;
using Texts = std::vector<std::wstring>;
using sitetest::AllocationControl;
using sitetest::ExpectNoLeak;


// ---- documents ---------------------------------------------------------------------------------

const char kDecl[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const char kCaBundle[] = "<CaBundle><CaCertificate>CERT-ONE</CaCertificate><CaCertificate>CERT-TWO</CaCertificate>"
                         "</CaBundle>";

std::string Document(const std::string& sites, const std::string& type = "Client") {
  return std::string(kDecl) + "\n<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20200101010101\" " +
         "LocalVersion=\"20200202020202\" Type=\"" + type + "\">" + kCaBundle +
         "<SiteList Default=\"1\" Name=\"SomeGUID\">" + sites + "</SiteList></ns:SiteLists>\n";
}

const char kRepoXml[] =
    "<HttpSite Type=\"repository\" Name=\"Repo\" Order=\"1\" Enabled=\"1\" Local=\"0\" Server=\"repo.corp.example:80\">"
    "<RelativePath>Current</RelativePath><UseAuth>0</UseAuth><UserName></UserName></HttpSite>";
const char kFtpXml[] =
    "<FTPSite Type=\"fallback\" Name=\"Ftp\" Order=\"2\" Enabled=\"1\" Local=\"0\" Server=\"ftp.corp.example:21\">"
    "<RelativePath>Pub</RelativePath><UserName></UserName></FTPSite>";

std::string SpipeXml(const std::string& name, int order, const std::string& attrs,
                     const std::string& relativePath = "Software") {
  return "<SpipeSite Type=\"master\" Name=\"" + name + "\" Order=\"" + std::to_string(order) + "\" Local=\"0\" " +
         attrs + "><RelativePath>" + relativePath + "</RelativePath><UseAuth>0</UseAuth></SpipeSite>";
}

// Replaces the texts of elements marked Encrypted="1" (random ciphertexts)
// by "*" and the LocalVersion stamp by "STAMP".
std::string Masked(std::string text) {
  static const std::regex encrypted("<([A-Za-z]+) Encrypted=\"1\">[^<]*</\\1>");
  text = std::regex_replace(text, encrypted, "<$1 Encrypted=\"1\">*</$1>");
  static const std::regex stamp("LocalVersion=\"[0-9]{14}\"");
  return std::regex_replace(text, stamp, "LocalVersion=\"STAMP\"");
}

std::string RootAttribute(const std::string& text, const std::string& name) {
  const std::regex attr(" " + name + "=\"([^\"]*)\"");
  std::smatch m;
  return std::regex_search(text, m, attr) ? m[1].str() : std::string("(absent)");
}

class EndpointTest : public ::testing::Test {
 protected:
  void SetUp() override { ResetCache(); }
  void TearDown() override { ResetCache(); }
  void ResetCache() {
    m_helper.FreeSiteListMemory(CSitesHelper::m_pSiteList);
    CSitesHelper::m_pSiteList = nullptr;
    CSitesHelper::m_iChange = 0;
  }

  void WriteList(const std::string& sites, const std::string& type = "Client") {
    testsupport::WriteFile(m_path, Document(sites, type));
  }
  tag_Site* ReadBack() {
    tag_Site* list = nullptr;
    EXPECT_EQ(m_helper.ReadSiteList(m_wpath, &list), 0);
    return list;
  }

  struct ServerInfo {
    std::wstring name = L"untouched", server = L"untouched", serverIP = L"untouched", netbios = L"untouched";
    int port = -77;
    std::wstring version = L"untouched";
    bool untouched() const {
      return name == L"untouched" && server == L"untouched" && serverIP == L"untouched" && netbios == L"untouched" &&
             port == -77 && version == L"untouched";
    }
  };
  int Info(ServerInfo& info, bool allServers = false, bool plainPortOnly = false) {
    return m_helper.GetVantorServerInfo(info.name, info.server, info.serverIP, info.netbios, info.port, info.version,
                                        allServers, plainPortOnly);
  }

  testsupport::ConfigScope m_config;
  std::string m_path = m_config.dir().file("SiteList.xml");
  std::wstring m_wpath = Wide(m_path);
  CSitesHelper m_helper{m_wpath};
};

// The site SetSpipeSiteForUpdSite builds, as it reads back from the file.
tag_Site* ExpectedNewSpipeSite(const std::wstring& server, const std::wstring& ip, const std::wstring& netbios,
                               int port) {
  tag_Site* s = NewSite(sitehlp::SITE_TYPE_HTTP);
  s->bEnabled = 1;
  s->bSpipeOrSuperAgent = 1;  // set by the reader from the element name
  Set(s->szType, L"master");
  Set(s->httpSite.szSiteElement, L"SpipeSite");
  Set(s->httpSite.szName, L"Vantor_MasterSite");
  Set(s->httpSite.szServer, server);
  Set(s->httpSite.szServerIP, ip);
  Set(s->httpSite.szServerName, netbios);
  s->httpSite.nPort = port;
  s->httpSite.nServerIPPort = port;
  s->httpSite.nServerNamePort = port;
  Set(s->httpSite.szRelativePath, L"Software");
  return s;
}

// ---- SetSpipeSiteForUpdSite: updating in place -------------------------------------------------------

TEST_F(EndpointTest, TheOnlySpipeSiteDisabledIsEnabledKeepingItsOrderTypeAndPath) {
  WriteList(std::string(kRepoXml) +
            SpipeXml("OldName", 4,
                     "Enabled=\"0\" SecurePort=\"443\" Server=\"old.corp.example:80\" ServerName=\"OLDNB:81\" "
                     "ServerIP=\"192.0.2.1:82\" Version=\"5.1.0\"",
                     "Custom/Path") +
            kFtpXml, "Server");
  SiteList before(m_helper, ReadBack());
  testsupport::CapturingLogSink sink;
  EXPECT_EQ(m_helper.SetSpipeSiteForUpdSite(8443, L"192.0.2.50", L"mgmt.corp.example", L"MGMT01"), 0);
  EXPECT_TRUE(sink.messages(port::LogLevel::Error).empty());

  tag_Site* expected = before.at(1);
  expected->bEnabled = 1;
  Set(expected->httpSite.szName, L"Vantor_MasterSite");
  Set(expected->httpSite.szServer, L"mgmt.corp.example");
  Set(expected->httpSite.szServerIP, L"192.0.2.50");
  Set(expected->httpSite.szServerName, L"MGMT01");
  expected->httpSite.nPort = expected->httpSite.nServerIPPort = expected->httpSite.nServerNamePort = 8443;
  SiteList after(m_helper, ReadBack());
  EXPECT_TRUE(ListsEqual(before.head(), after.head()));
  EXPECT_EQ(after.at(1)->nOrder, 4);
  EXPECT_EQ(std::wstring(after.at(1)->szType), L"master");
  EXPECT_EQ(std::wstring(after.at(1)->httpSite.szRelativePath), L"Custom/Path");
  EXPECT_EQ(after.at(1)->httpSite.nSecurePort, 443u);
  EXPECT_EQ(std::wstring(after.at(1)->httpSite.szVersion), L"5.1.0");

  // The versions, the type and the certificates are written back unchanged.
  EXPECT_EQ(Masked(ReadFile(m_path)),
            std::string(kDecl) +
                "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20200101010101\" "
                "LocalVersion=\"STAMP\" Type=\"Server\">" +
                kCaBundle +
                "<SiteList Default=\"1\" Name=\"SomeGUID\">"
                "<HttpSite Type=\"repository\" Name=\"Repo\" Order=\"1\" Enabled=\"1\" Local=\"0\" "
                "Server=\"repo.corp.example:80\"><RelativePath>Current</RelativePath><UseAuth>0</UseAuth>"
                "<UserName></UserName><Password Encrypted=\"1\">*</Password></HttpSite>"
                "<SpipeSite Type=\"master\" Name=\"Vantor_MasterSite\" Order=\"4\" Enabled=\"1\" Local=\"0\" "
                "SecurePort=\"443\" Server=\"mgmt.corp.example:8443\" ServerName=\"MGMT01:8443\" "
                "ServerIP=\"192.0.2.50:8443\" Version=\"5.1.0\"><RelativePath>Custom/Path</RelativePath>"
                "<UseAuth>0</UseAuth><UserName></UserName><Password Encrypted=\"1\">*</Password></SpipeSite>"
                "<FTPSite Type=\"fallback\" Name=\"Ftp\" Order=\"0\" Server=\"ftp.corp.example:21\" Enabled=\"1\" "
                "Local=\"0\"><RelativePath>Pub</RelativePath><UserName></UserName>"
                "<Password Encrypted=\"1\">*</Password></FTPSite>"
                "</SiteList></ns:SiteLists>");
  EXPECT_EQ(RootAttribute(ReadFile(m_path), "LocalVersion"), "20200202020202");
  for (const std::wstring& message : sink.allMessages())
    EXPECT_NE(message.rfind(L"Local version of ", 0), 0u) << Narrow(message);  // nothing was stamped
}

TEST_F(EndpointTest, OfTwoSpipeSitesOnlyTheFirstInListOrderIsUpdated) {
  WriteList(SpipeXml("First", 7, "Enabled=\"1\" Server=\"one.corp.example:80\" ServerName=\"ONE:80\" "
                                 "ServerIP=\"192.0.2.1:80\"") +
            kRepoXml +
            SpipeXml("Second", 3, "Enabled=\"0\" Server=\"two.corp.example:80\" ServerName=\"TWO:80\" "
                                  "ServerIP=\"192.0.2.2:80\""));
  SiteList before(m_helper, ReadBack());
  ASSERT_EQ(m_helper.SetSpipeSiteForUpdSite(443, L"[2001:db8::1]", L"mgmt.corp.example", L"MGMT"), 0);
  tag_Site* first = before.head();
  Set(first->httpSite.szName, L"Vantor_MasterSite");
  Set(first->httpSite.szServer, L"mgmt.corp.example");
  Set(first->httpSite.szServerIP, L"[2001:db8::1]");
  Set(first->httpSite.szServerName, L"MGMT");
  first->httpSite.nPort = first->httpSite.nServerIPPort = first->httpSite.nServerNamePort = 443;
  SiteList after(m_helper, ReadBack());
  EXPECT_TRUE(ListsEqual(before.head(), after.head()));
  EXPECT_EQ(std::wstring(after.at(2)->httpSite.szServer), L"two.corp.example");
  EXPECT_EQ(after.at(2)->bEnabled, 0);
}

TEST_F(EndpointTest, AnFtpSiteNamedSpipeSiteIsNoSpipeSite) {
  // An FTP site keeps its name where an HTTP site keeps its element name.
  SiteList list(m_helper);
  tag_Site* ftp = list.append(NewSite(sitehlp::SITE_TYPE_FTP));
  Set(ftp->szType, L"repository");
  Set(ftp->ftpSite.szName, L"SpipeSite");
  Set(ftp->ftpSite.szServer, L"ftp.corp.example");
  ftp->ftpSite.nPort = 21;
  ASSERT_EQ(m_helper.CreateSiteList(list.head(), m_wpath, L"1", L"2", L"Client", {}), 0);
  ASSERT_EQ(m_helper.SetSpipeSiteForUpdSite(80, L"192.0.2.9", L"m.corp.example", L"M"), 0);
  SiteList after(m_helper, ReadBack());
  ASSERT_EQ(after.size(), 2u);  // a SPIPE site was added, the FTP site left alone
  EXPECT_EQ(std::wstring(after.at(0)->ftpSite.szServer), L"ftp.corp.example");
  EXPECT_EQ(std::wstring(after.at(1)->httpSite.szServer), L"m.corp.example");
}

TEST_F(EndpointTest, ServerIPOf150CharactersIsStoredCutTo100WithTheTruncationLog) {
  WriteList(SpipeXml("S", 1, "Enabled=\"1\" Server=\"s.corp.example:80\" ServerName=\"S:80\" ServerIP=\"192.0.2.3:80\""));
  const std::wstring longIP(150, L'7');
  testsupport::CapturingLogSink sink;
  ASSERT_EQ(m_helper.SetSpipeSiteForUpdSite(80, longIP, L"s.corp.example", L"S"), 0);
  const std::wstring cut(99, L'7');
  EXPECT_TRUE(sink.contains(L"String " + longIP + L" is truncated to " + cut + L" in CopyWStr"));
  SiteList after(m_helper, ReadBack());
  EXPECT_EQ(std::wstring(after.head()->httpSite.szServerIP), cut);
}

TEST_F(EndpointTest, ServerAndNetbiosNameAreCutToTheirFieldCapacities) {
  WriteList("");
  const std::wstring server(300, L's');
  const std::wstring netbios(300, L'n');
  ASSERT_EQ(m_helper.SetSpipeSiteForUpdSite(80, L"192.0.2.3", server, netbios), 0);
  SiteList after(m_helper, ReadBack());
  ASSERT_EQ(after.size(), 1u);
  EXPECT_EQ(std::wstring(after.head()->httpSite.szServer), server.substr(0, 259));
  EXPECT_EQ(std::wstring(after.head()->httpSite.szServerName), netbios.substr(0, 260));
}

// ---- SetSpipeSiteForUpdSite: adding a SPIPE site ---------------------------------------------------------

TEST_F(EndpointTest, AListWithoutSpipeSiteGetsANewOneAndAFreshLocalVersion) {
  WriteList(std::string(kRepoXml) + kFtpXml);
  SiteList before(m_helper, ReadBack());
  testsupport::CapturingLogSink sink;
  EXPECT_EQ(m_helper.SetSpipeSiteForUpdSite(8443, L"192.0.2.50", L"mgmt.corp.example", L"MGMT01"), 0);
  EXPECT_TRUE(sink.messages(port::LogLevel::Error).empty());

  const std::string text = ReadFile(m_path);
  const std::string stamp = RootAttribute(text, "LocalVersion");
  EXPECT_TRUE(std::regex_match(stamp, std::regex("[0-9]{14}"))) << stamp;
  EXPECT_NE(stamp, "20200202020202");
  // The writer was handed an empty local version and stamped one itself.
  EXPECT_TRUE(sink.contains(L"Local version of " + m_wpath + L" is " + Wide(stamp)));
  EXPECT_EQ(Masked(text),
            std::string(kDecl) +
                "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20200101010101\" "
                "LocalVersion=\"STAMP\" Type=\"Client\">" +
                kCaBundle +
                "<SiteList Default=\"1\" Name=\"SomeGUID\">"
                "<HttpSite Type=\"repository\" Name=\"Repo\" Order=\"1\" Enabled=\"1\" Local=\"0\" "
                "Server=\"repo.corp.example:80\"><RelativePath>Current</RelativePath><UseAuth>0</UseAuth>"
                "<UserName></UserName><Password Encrypted=\"1\">*</Password></HttpSite>"
                "<FTPSite Type=\"fallback\" Name=\"Ftp\" Order=\"0\" Server=\"ftp.corp.example:21\" Enabled=\"1\" "
                "Local=\"0\"><RelativePath>Pub</RelativePath><UserName></UserName>"
                "<Password Encrypted=\"1\">*</Password></FTPSite>"
                "<SpipeSite Type=\"master\" Name=\"Vantor_MasterSite\" Order=\"0\" Enabled=\"1\" Local=\"0\" "
                "Server=\"mgmt.corp.example:8443\" ServerName=\"MGMT01:8443\" ServerIP=\"192.0.2.50:8443\">"
                "<RelativePath>Software</RelativePath><UseAuth>0</UseAuth><UserName></UserName>"
                "<Password Encrypted=\"1\">*</Password></SpipeSite>"
                "</SiteList></ns:SiteLists>");

  before.append(ExpectedNewSpipeSite(L"mgmt.corp.example", L"192.0.2.50", L"MGMT01", 8443));
  SiteList after(m_helper, ReadBack());
  EXPECT_TRUE(ListsEqual(before.head(), after.head()));
}

TEST_F(EndpointTest, AListWithoutAnySiteGetsTheNewSpipeSiteAlone) {
  WriteList("");
  ASSERT_EQ(m_helper.SetSpipeSiteForUpdSite(443, L"192.0.2.8", L"m.corp.example", L"M"), 0);
  SiteList expected(m_helper, ExpectedNewSpipeSite(L"m.corp.example", L"192.0.2.8", L"M", 443));
  SiteList after(m_helper, ReadBack());
  EXPECT_TRUE(ListsEqual(expected.head(), after.head()));
  ExpectNoLeak();
}

TEST_F(EndpointTest, AddingKeepsProxyConfigurationsOfTheList) {
  WriteList(std::string("<ProxyConfigList><ProxyConfig Name=\"Proxy\" HttpProxyServer=\"proxy.corp.example\" "
                        "HttpProxyPort=\"3128\"><ExclusionList><ExclusionHost>a.example</ExclusionHost>"
                        "<ExclusionHost>b.example</ExclusionHost></ExclusionList></ProxyConfig></ProxyConfigList>") +
            kRepoXml);
  SiteList before(m_helper, ReadBack());
  ASSERT_EQ(m_helper.SetSpipeSiteForUpdSite(443, L"192.0.2.8", L"m.corp.example", L"M"), 0);
  before.append(ExpectedNewSpipeSite(L"m.corp.example", L"192.0.2.8", L"M", 443));
  SiteList after(m_helper, ReadBack());
  EXPECT_TRUE(ListsEqual(before.head(), after.head()));
  EXPECT_EQ(std::wstring(after.head()->proxySettings.szExclusionList), L"a.example;b.example");
}

// ---- SetSpipeSiteForUpdSite: failures ---------------------------------------------------------------------

TEST_F(EndpointTest, AMissingListFailsWithTheVersionQuerysCodeAndTheDoubledBlank) {
  testsupport::CapturingLogSink sink;
  EXPECT_EQ(m_helper.SetSpipeSiteForUpdSite(80, L"192.0.2.1", L"m.corp.example", L"M"), -4);
  EXPECT_EQ(sink.messages(port::LogLevel::Error), Texts{L"Failed to get  version of site list " + m_wpath + L" hr=-4"});
  EXPECT_FALSE(testsupport::FileExists(m_path));
}

TEST_F(EndpointTest, AMalformedListFailsInTheVersionQueryAndIsLeftAlone) {
  testsupport::WriteFile(m_path, "<ns:SiteLists><SiteList>");
  testsupport::CapturingLogSink sink;
  EXPECT_EQ(m_helper.SetSpipeSiteForUpdSite(80, L"192.0.2.1", L"m.corp.example", L"M"), -1);
  EXPECT_EQ(sink.messages(port::LogLevel::Error), Texts{L"Failed to get  version of site list " + m_wpath + L" hr=-1"});
  EXPECT_EQ(ReadFile(m_path), "<ns:SiteLists><SiteList>");
}

TEST_F(EndpointTest, AReadThatIsNotExactlyZeroFailsAndLeavesTheFileAlone) {
  // A proxy list whose last entry is no ProxyConfig makes the read -1 with
  // every record built; the operation counts that as a failure.
  const std::string document =
      Document(std::string(kRepoXml) + "<ProxyConfigList><ProxyConfig Name=\"P\"/><Other/></ProxyConfigList>");
  testsupport::WriteFile(m_path, document);
  testsupport::CapturingLogSink sink;
  EXPECT_EQ(m_helper.SetSpipeSiteForUpdSite(80, L"192.0.2.1", L"m.corp.example", L"M"), -1);
  EXPECT_EQ(sink.messages(port::LogLevel::Error), Texts{L"Failed to read site list " + m_wpath + L" hr=-1"});
  EXPECT_EQ(ReadFile(m_path), document);
  ExpectNoLeak();  // the half-read list was freed
}

TEST_F(EndpointTest, TheNewRecordNotAllocatedIsMinusThreeWithTheReadsCodeLogged) {
  WriteList(kRepoXml);
  const std::string document = ReadFile(m_path);
  testsupport::CapturingLogSink sink;
  {
    AllocationControl failing(AllocationControl::Once, 0);
    EXPECT_EQ(m_helper.SetSpipeSiteForUpdSite(80, L"192.0.2.1", L"m.corp.example", L"M"), -3);
  }
  EXPECT_EQ(sink.messages(port::LogLevel::Error), Texts{L"Can't allocate memory  hr=0"});
  EXPECT_EQ(ReadFile(m_path), document);
  ExpectNoLeak();
}

TEST_F(EndpointTest, AFailedMergeIsLoggedAndNothingIsWritten) {
  WriteList(std::string(kRepoXml) + kFtpXml);
  const std::string document = ReadFile(m_path);
  testsupport::CapturingLogSink sink;
  {
    AllocationControl failing(AllocationControl::Once, 2);  // the new record, the first copy, then the second copy fails
    EXPECT_EQ(m_helper.SetSpipeSiteForUpdSite(80, L"192.0.2.1", L"m.corp.example", L"M"), -3);
  }
  EXPECT_EQ(sink.messages(port::LogLevel::Error),
            Texts{L"Failed to merge Spipe site to site list " + m_wpath + L" hr=-3"});
  EXPECT_EQ(ReadFile(m_path), document);
  ExpectNoLeak();
}

port::SysCalls FailingRename() {
  port::SysCalls table = port::RealSysCalls();
  table.rename = [](const char*, const char*) {
    errno = EIO;
    return -1;
  };
  return table;
}

TEST_F(EndpointTest, AFailedWriteAfterAnUpdateInPlaceIsLoggedWithTheWritersCode) {
  WriteList(SpipeXml("S", 1, "Enabled=\"1\" Server=\"s.corp.example:80\" ServerName=\"S:80\" ServerIP=\"192.0.2.3:80\""));
  const std::string document = ReadFile(m_path);
  testsupport::CapturingLogSink sink;
  int result = 0;
  {
    port::ScopedSysCallOverride failing(FailingRename());
    result = m_helper.SetSpipeSiteForUpdSite(80, L"192.0.2.1", L"m.corp.example", L"M");
  }
  EXPECT_EQ(result, -11);
  const Texts errors = sink.messages(port::LogLevel::Error);
  ASSERT_FALSE(errors.empty());
  EXPECT_EQ(errors.back(), L"Failed to create site list " + m_wpath + L" hr=-11");
  EXPECT_EQ(ReadFile(m_path), document);
}

TEST_F(EndpointTest, AFailedWriteAfterAddingIsLoggedWithTheWritersCode) {
  WriteList(kRepoXml);
  const std::string document = ReadFile(m_path);
  testsupport::CapturingLogSink sink;
  int result = 0;
  {
    port::ScopedSysCallOverride failing(FailingRename());
    result = m_helper.SetSpipeSiteForUpdSite(80, L"192.0.2.1", L"m.corp.example", L"M");
  }
  EXPECT_EQ(result, -11);
  const Texts errors = sink.messages(port::LogLevel::Error);
  ASSERT_FALSE(errors.empty());
  EXPECT_EQ(errors.back(), L"Failed to create site list " + m_wpath + L" hr=-11");
  for (const auto& line : sink.lines())
    if (line.level == port::LogLevel::Error) {
      EXPECT_EQ(line.component, L"SiteHlp");
    }
  EXPECT_EQ(ReadFile(m_path), document);
  ExpectNoLeak();
}

// ---- GetVantorServerInfo ---------------------------------------------------------------------------------

TEST_F(EndpointTest, ServerInfoReportsTheFirstSpipeSite) {
  WriteList(std::string(kRepoXml) +
            SpipeXml("Main", 3, "Enabled=\"1\" Server=\"main.corp.example:8080\" ServerName=\"MAINNB:81\" "
                                "ServerIP=\"192.0.2.10:82\" Version=\"5.2.1\"") +
            SpipeXml("Other", 1, "Enabled=\"1\" Server=\"other.corp.example:80\""));
  ServerInfo info;
  EXPECT_EQ(Info(info), 0);
  EXPECT_EQ(info.name, L"Main");
  EXPECT_EQ(info.server, L"main.corp.example");
  EXPECT_EQ(info.serverIP, L"192.0.2.10");
  EXPECT_EQ(info.netbios, L"MAINNB");
  EXPECT_EQ(info.port, 8080);
  EXPECT_EQ(info.version, L"5.2.1");
  EXPECT_NE(CSitesHelper::m_pSiteList, nullptr);  // read through the cache
  EXPECT_EQ(CSitesHelper::m_iChange, 1);
}

TEST_F(EndpointTest, ABracketedServerIPIsReturnedWithoutItsBrackets) {
  WriteList(SpipeXml("S", 1, "Enabled=\"1\" Server=\"s.corp.example:80\" ServerIP=\"[::1]:443\""));
  ServerInfo info;
  EXPECT_EQ(Info(info), 0);
  EXPECT_EQ(info.serverIP, L"::1");
}

TEST_F(EndpointTest, AnyBracketMakesTheFirstAndLastCharactersGo) {
  WriteList(SpipeXml("S", 1, "Enabled=\"1\" Server=\"s.corp.example:80\" ServerIP=\"a[b:443\""));
  ServerInfo info;
  EXPECT_EQ(Info(info), 0);
  EXPECT_EQ(info.serverIP, L"[");
}

TEST_F(EndpointTest, AServerIPOfTheBracketAloneBecomesEmpty) {
  WriteList(SpipeXml("S", 1, "Enabled=\"1\" Server=\"s.corp.example:80\" ServerIP=\"[:443\""));
  ServerInfo info;
  EXPECT_EQ(Info(info), 0);
  EXPECT_EQ(info.serverIP, L"");
}

TEST_F(EndpointTest, TheSecurePortIsReportedUnlessOnlyThePlainPortIsAskedFor) {
  WriteList(SpipeXml("S", 1, "Enabled=\"1\" SecurePort=\"443\" Server=\"s.corp.example:80\""));
  ServerInfo secure;
  EXPECT_EQ(Info(secure, false, false), 0);
  EXPECT_EQ(secure.port, 443);
  ServerInfo plain;
  EXPECT_EQ(Info(plain, false, true), 0);
  EXPECT_EQ(plain.port, 80);
}

TEST_F(EndpointTest, WithoutSecurePortThePlainPortIsReportedEitherWay) {
  WriteList(SpipeXml("S", 1, "Enabled=\"1\" Server=\"s.corp.example:80\""));
  ServerInfo secure;
  EXPECT_EQ(Info(secure, false, false), 0);
  EXPECT_EQ(secure.port, 80);
  ServerInfo plain;
  EXPECT_EQ(Info(plain, false, true), 0);
  EXPECT_EQ(plain.port, 80);
}

TEST_F(EndpointTest, AllServersAreAppendedInOrderKeepingTheFirstOfEqualOrders) {
  WriteList(SpipeXml("First", 9, "Enabled=\"1\" SecurePort=\"4430\" Server=\"first.corp.example:80\" "
                                 "ServerName=\"FIRST:80\" ServerIP=\"[fd00::1]:80\" Version=\"1.0\"") +
            SpipeXml("Five", 5, "Enabled=\"1\" Server=\"five.corp.example:85\" ServerName=\"FIVE:80\" "
                                "ServerIP=\"192.0.2.5:80\" Version=\"5.0\" SecurePort=\"4435\"") +
            kRepoXml +
            SpipeXml("TwoA", 2, "Enabled=\"1\" Server=\"twoa.corp.example:82\" ServerName=\"TWOA:80\" "
                                "ServerIP=\"[fd00::2]:80\" Version=\"2.0\"") +
            SpipeXml("TwoB", 2, "Enabled=\"1\" Server=\"twob.corp.example:83\" ServerName=\"TWOB:80\" "
                                "ServerIP=\"192.0.2.22:80\" Version=\"2.1\""));
  ServerInfo info;
  EXPECT_EQ(Info(info, true, false), 0);
  EXPECT_EQ(info.name, L"First;TwoA;Five");
  EXPECT_EQ(info.server, L"first.corp.example;twoa.corp.example;five.corp.example");
  EXPECT_EQ(info.serverIP, L"fd00::1;fd00::2;192.0.2.5");
  EXPECT_EQ(info.netbios, L"FIRST;TWOA;FIVE");
  EXPECT_EQ(info.version, L"1.0;2.0;5.0");
  EXPECT_EQ(info.port, 4435);  // the order-5 site's, not accumulated

  ServerInfo plain;
  EXPECT_EQ(Info(plain, true, true), 0);
  EXPECT_EQ(plain.port, 85);
  ServerInfo firstOnly;
  EXPECT_EQ(Info(firstOnly, false, false), 0);
  EXPECT_EQ(firstOnly.name, L"First");
  EXPECT_EQ(firstOnly.port, 4430);
}

TEST_F(EndpointTest, AllServersWithASingleSpipeSiteAppendsNothing) {
  WriteList(SpipeXml("Only", 1, "Enabled=\"1\" Server=\"only.corp.example:80\" ServerIP=\"192.0.2.1:80\""));
  ServerInfo info;
  EXPECT_EQ(Info(info, true, false), 0);
  EXPECT_EQ(info.name, L"Only");
  EXPECT_EQ(info.serverIP, L"192.0.2.1");
}

TEST_F(EndpointTest, ServerInfoOfAMissingListReturnsTheReadsCodeWithOutputsUntouched) {
  testsupport::CapturingLogSink sink;
  ServerInfo info;
  EXPECT_EQ(Info(info), -4);
  EXPECT_TRUE(info.untouched());
  EXPECT_TRUE(sink.contains(L"Unable to read from SiteList file, error hr=-4"));
}

TEST_F(EndpointTest, ServerInfoOfAListWithoutSitesIsZeroWithOutputsUntouched) {
  WriteList("");
  ServerInfo info;
  EXPECT_EQ(Info(info), 0);
  EXPECT_TRUE(info.untouched());
}

TEST_F(EndpointTest, ServerInfoWithoutSpipeSiteIsMinusEightWithOutputsUntouched) {
  WriteList(std::string(kRepoXml) + kFtpXml);
  ServerInfo info;
  EXPECT_EQ(Info(info), -8);
  EXPECT_TRUE(info.untouched());
}

TEST_F(EndpointTest, ServerInfoOfAHalfReadListFailsAndFreesWhatTheCacheDidNotTake) {
  WriteList(SpipeXml("S", 1, "Enabled=\"1\" Server=\"s.corp.example:80\"") +
            "<ProxyConfigList><ProxyConfig Name=\"P\"/><Other/></ProxyConfigList>");
  ServerInfo info;
  EXPECT_EQ(Info(info), -1);
  EXPECT_TRUE(info.untouched());
  EXPECT_EQ(CSitesHelper::m_pSiteList, nullptr);
  ExpectNoLeak();
}

TEST_F(EndpointTest, ServerInfoOutOfMemoryIsMinusThreeWithOutputsUntouched) {
  WriteList(SpipeXml("S1", 1, "Enabled=\"1\" Server=\"s.corp.example:80\"") +
            SpipeXml("S2", 2, "Enabled=\"1\" Server=\"t.corp.example:80\""));
  ServerInfo info;
  {
    AllocationControl failing(AllocationControl::Once, 1);
    EXPECT_EQ(Info(info, true), -3);
  }
  EXPECT_TRUE(info.untouched());
  ExpectNoLeak();
}

TEST_F(EndpointTest, ServerInfoKeepsServingTheCacheUntilTheSecondNotice) {
  WriteList(SpipeXml("S", 1, "Enabled=\"1\" Server=\"old.corp.example:80\""));
  ServerInfo before;
  ASSERT_EQ(Info(before), 0);
  ASSERT_EQ(before.server, L"old.corp.example");
  ASSERT_EQ(m_helper.SetSpipeSiteForUpdSite(443, L"192.0.2.60", L"new.corp.example", L"NEW"), 0);
  ServerInfo cached;
  ASSERT_EQ(Info(cached), 0);
  EXPECT_EQ(cached.server, L"old.corp.example");
  m_helper.needToUpdateInMemSiteList();
  ServerInfo afterOne;
  ASSERT_EQ(Info(afterOne), 0);
  EXPECT_EQ(afterOne.server, L"old.corp.example");
  m_helper.needToUpdateInMemSiteList();
  ServerInfo afterTwo;
  ASSERT_EQ(Info(afterTwo), 0);
  EXPECT_EQ(afterTwo.name, L"Vantor_MasterSite");
  EXPECT_EQ(afterTwo.server, L"new.corp.example");
  EXPECT_EQ(afterTwo.serverIP, L"192.0.2.60");
  EXPECT_EQ(afterTwo.netbios, L"NEW");
  EXPECT_EQ(afterTwo.port, 443);
  EXPECT_EQ(CSitesHelper::m_iChange, 1);
}

TEST_F(EndpointTest, ServerInfoOpensItsTraceScopeAndTheUpdateOpensNone) {
  WriteList(SpipeXml("S", 1, "Enabled=\"1\" Server=\"s.corp.example:80\""));
  testsupport::CapturingLogSink sink;
  ServerInfo info;
  ASSERT_EQ(Info(info), 0);
  ASSERT_FALSE(sink.lines().empty());
  EXPECT_EQ(sink.lines().front().message, L"Entering Get Vantor Server IP Address");
  EXPECT_EQ(sink.lines().front().component, L"SiteHlp");
  sink.clear();
  ASSERT_EQ(m_helper.SetSpipeSiteForUpdSite(80, L"192.0.2.1", L"m.corp.example", L"M"), 0);
  ASSERT_FALSE(sink.lines().empty());
  EXPECT_EQ(sink.lines().front().message, L"Entering Getting Sitelist versions");
}

// ---- property: random lists through SetSpipeSiteForUpdSite ----------------------------------------------

class RandomLists {
 public:
  explicit RandomLists(unsigned seed) : m_rng(seed) {}

  int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(m_rng); }
  bool Chance(int percent) { return Int(1, 100) <= percent; }
  template <typename T>
  const T& Pick(const std::vector<T>& v) { return v[static_cast<std::size_t>(Int(0, static_cast<int>(v.size()) - 1))]; }

  std::wstring Word(int minLen, int maxLen) {
    static const std::wstring alphabet = L"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_. &'\u00e9\u4e2d";
    std::wstring w;
    const int n = Int(minLen, maxLen);
    for (int i = 0; i < n; ++i) w += alphabet[static_cast<std::size_t>(Int(0, static_cast<int>(alphabet.size()) - 1))];
    return w;
  }
  std::wstring Host() { return Word(1, 12) + L".corp.example"; }
  std::wstring Address() {
    switch (Int(0, 3)) {
      case 0: return L"192.0.2." + std::to_wstring(Int(0, 255));
      case 1: return L"[2001:db8::" + std::to_wstring(Int(1, 999)) + L"]";
      case 2: return L"fd00::" + std::to_wstring(Int(1, 99));
      default: return std::wstring(static_cast<std::size_t>(Int(95, 150)), L'9');
    }
  }

  tag_Site* Site() {
    const int kind = Pick(std::vector<int>{0, 0, 0, 0, 1, 1, 2, 3, 4});
    tag_Site* s = NewSite(kind);
    s->bEnabled = Chance(70);
    s->bLocal = Chance(20);
    s->nOrder = Int(-2, 30);
    Set(s->szType, Pick(std::vector<std::wstring>{L"repository", L"mirror", L"fallback", L"master", L"remediation",
                                                  L"Fallback", L""}));
    switch (kind) {
      case sitehlp::SITE_TYPE_HTTP: {
        sitehlp::tag_HttpSite& h = s->httpSite;
        const std::wstring element = Pick(std::vector<std::wstring>{L"HttpSite", L"SpipeSite", L"SuperAgentSite"});
        Set(h.szSiteElement, element);
        Set(h.szName, Word(0, 20));
        Set(h.szServer, Host());
        h.nPort = Int(1, 65535);
        if (element != L"HttpSite" || Chance(50)) {
          Set(h.szServerIP, Address().substr(0, 99));
          h.nServerIPPort = Int(1, 65535);
          Set(h.szServerName, Word(1, 15));
          h.nServerNamePort = Int(1, 65535);
        }
        if (Chance(40)) h.nSecurePort = static_cast<uint32_t>(Int(1, 65535));
        Set(h.szRelativePath, Word(0, 30));
        h.nUseAuth = Int(0, 1);
        Set(h.szUserName, Word(0, 10));
        if (Chance(10)) Set(h.szPassword, Word(1, 12));
        if (element == L"SpipeSite" && Chance(60)) Set(h.szVersion, L"5." + std::to_wstring(Int(0, 20)));
        break;
      }
      case sitehlp::SITE_TYPE_FTP:
        Set(s->ftpSite.szName, Word(0, 20));
        Set(s->ftpSite.szServer, Host());
        s->ftpSite.nPort = Int(1, 65535);
        if (Chance(30)) s->ftpSite.nSecurePort = static_cast<uint32_t>(Int(1, 65535));
        Set(s->ftpSite.szRelativePath, Word(0, 30));
        Set(s->ftpSite.szUserName, Word(0, 10));
        if (Chance(10)) Set(s->ftpSite.szPassword, Word(1, 12));
        break;
      case sitehlp::SITE_TYPE_UNC:
        Set(s->uncSite.szName, Word(0, 20));
        Set(s->uncSite.szServer, L"\\\\" + Word(1, 10));
        Set(s->uncSite.szShareName, Word(0, 10));
        Set(s->uncSite.szRelativePath, Word(0, 30));
        Set(s->uncSite.szDomainName, Word(0, 10));
        Set(s->uncSite.szUserName, Word(0, 10));
        s->uncSite.nUseLoggedonUserAccount = Int(0, 3);
        break;
      case sitehlp::SITE_TYPE_LOCAL:
        Set(s->localSite.szName, Word(0, 20));
        Set(s->localSite.szRelativePath, L"/srv/" + Word(0, 30));
        Set(s->localSite.szDomainName, Word(0, 10));
        Set(s->localSite.szUserName, Word(0, 10));
        s->localSite.nUseLoggedonUserAccount = Int(0, 1);
        break;
      default: {
        sitehlp::tag_ProxySettings& p = s->proxySettings;
        Set(p.szName, Word(0, 20));
        if (Chance(70)) {
          Set(p.szHttpProxyServer, Host());
          p.nHttpProxyPort = Int(1, 65535);
        }
        if (Chance(40)) {
          Set(p.szFtpProxyServer, Host());
          p.nFtpProxyPort = Int(1, 65535);
        }
        p.bUseIEConfig = Chance(30);
        p.bAllowUserToConfigureProxy = Chance(50);
        p.bBypassLocalAddress = Chance(50);
        std::wstring exclusions;
        const int hosts = Int(0, 4);
        for (int i = 0; i < hosts; ++i) exclusions += (i ? L";" : L"") + Host();
        Set(p.szExclusionList, exclusions);
        p.nExclusionCount = hosts;
        p.bHttpUseAuth = Chance(30);
        Set(p.szHttpProxyUser, Word(0, 8));
        break;
      }
    }
    return s;
  }

  tag_Site* List() {
    tag_Site* head = nullptr;
    tag_Site* tail = nullptr;
    const int n = Int(0, 7);
    for (int i = 0; i < n; ++i) {
      tag_Site* s = Site();
      if (tail)
        tail->pNext = s;
      else
        head = s;
      tail = s;
    }
    return head;
  }

 private:
  std::mt19937 m_rng;
};

bool IsSpipe(const tag_Site* s) {
  return s->nSiteType == sitehlp::SITE_TYPE_HTTP && std::wstring(s->httpSite.szSiteElement) == L"SpipeSite";
}

std::wstring Cut(const std::wstring& text, std::size_t capacity) { return text.substr(0, capacity - 1); }

TEST_F(EndpointTest, RandomListsGetExactlyOneUpdatedOrAddedSpipeSiteAndKeepEverythingElse) {
  // The writes are made durable with fsync; a property run over thousands of
  // lists does not need that.
  port::SysCalls table = port::RealSysCalls();
  table.fsync = [](int) { return 0; };
  port::ScopedSysCallOverride fast(table);

  RandomLists random(20240611u);
  const auto start = std::chrono::steady_clock::now();
  int iterations = 0;
  int updated = 0;
  int added = 0;
  for (; iterations < 3000; ++iterations) {
    SCOPED_TRACE("iteration " + std::to_string(iterations));
    {
      SiteList generated(m_helper, random.List());
      ASSERT_EQ(m_helper.CreateSiteList(generated.head(), m_wpath, L"20200101010101", L"20200202020202", L"Client",
                                        {L"CERT"}),
                0);
    }
    SiteList before(m_helper, ReadBack());
    const unsigned port = static_cast<unsigned>(random.Int(1, 65535));
    const std::wstring ip = random.Address();
    const std::wstring server = random.Chance(5) ? std::wstring(300, L'x') : random.Host();
    const std::wstring netbios = random.Word(0, random.Chance(5) ? 300 : 15);
    ASSERT_EQ(m_helper.SetSpipeSiteForUpdSite(port, ip, server, netbios), 0);

    // The expected list: the first SPIPE site updated, or a new one at the end.
    tag_Site* first = nullptr;
    for (tag_Site* s = before.head(); s && !first; s = s->pNext)
      if (IsSpipe(s)) first = s;
    const std::string text = ReadFile(m_path);
    if (first) {
      ++updated;
      first->bEnabled = 1;
      Set(first->httpSite.szName, L"Vantor_MasterSite");
      Set(first->httpSite.szServer, Cut(server, 260));
      Set(first->httpSite.szServerIP, Cut(ip, 100));
      Set(first->httpSite.szServerName, Cut(netbios, 261));
      first->httpSite.nPort = first->httpSite.nServerIPPort = first->httpSite.nServerNamePort = static_cast<int>(port);
      ASSERT_EQ(RootAttribute(text, "LocalVersion"), "20200202020202");
    } else {
      ++added;
      before.append(ExpectedNewSpipeSite(Cut(server, 260), Cut(ip, 100), Cut(netbios, 261), static_cast<int>(port)));
      ASSERT_NE(RootAttribute(text, "LocalVersion"), "20200202020202");
    }
    ASSERT_EQ(RootAttribute(text, "GlobalVersion"), "20200101010101");
    ASSERT_NE(text.find("<CaBundle><CaCertificate>CERT</CaCertificate></CaBundle>"), std::string::npos);
    SiteList after(m_helper, ReadBack());
    ASSERT_TRUE(ListsEqual(before.head(), after.head()));
  }
  const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("%d random lists (%d updated, %d added) in %.1f s\n", iterations, updated, added, seconds);
  EXPECT_GT(updated, 500);
  EXPECT_GT(added, 500);
}

// ---- two processes ------------------------------------------------------------------------------------------

// Exit codes of the child processes.
enum : int {
  kChildOk = 0,
  kReaderFirstRead = 10,
  kReaderSync = 11,
  kReaderBeforeNotices = 12,
  kReaderAfterOneNotice = 13,
  kReaderAfterTwoNotices = 14,
  kWriterSet = 20,
  kWriterCounter = 21,
  kWriterRead = 22,
};

int ExitStatus(pid_t pid) {
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -1000;
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return -WTERMSIG(status);
  return -1001;
}

TEST_F(EndpointTest, AnotherProcessSeesTheNewServerAfterItReceivesTwoNotices) {
  WriteList(SpipeXml("S", 1, "Enabled=\"1\" Server=\"old.corp.example:80\" ServerIP=\"192.0.2.1:80\""));
  int ready[2];
  int go[2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe(go), 0);
  std::fflush(nullptr);

  const pid_t reader = fork();
  ASSERT_GE(reader, 0);
  if (reader == 0) {
    alarm(30);  // a hung child must not hang the suite
    close(ready[0]);
    close(go[1]);
    ServerInfo info;
    if (Info(info) != 0 || info.server != L"old.corp.example") _exit(kReaderFirstRead);
    char byte = 'r';
    if (write(ready[1], &byte, 1) != 1 || read(go[0], &byte, 1) != 1) _exit(kReaderSync);
    // The writer's notices counted in its own process: this one still serves
    // its cache.
    ServerInfo before;
    if (Info(before) != 0 || before.server != L"old.corp.example") _exit(kReaderBeforeNotices);
    m_helper.needToUpdateInMemSiteList();
    ServerInfo afterOne;
    if (Info(afterOne) != 0 || afterOne.server != L"old.corp.example") _exit(kReaderAfterOneNotice);
    m_helper.needToUpdateInMemSiteList();
    ServerInfo afterTwo;
    if (Info(afterTwo) != 0 || afterTwo.server != L"new.corp.example" || afterTwo.serverIP != L"192.0.2.99" ||
        afterTwo.netbios != L"NEWSRV" || afterTwo.port != 8443 || afterTwo.name != L"Vantor_MasterSite")
      _exit(kReaderAfterTwoNotices);
    _exit(kChildOk);
  }
  close(ready[1]);
  close(go[0]);
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);  // the reader's cache is filled

  const pid_t writer = fork();
  ASSERT_GE(writer, 0);
  if (writer == 0) {
    alarm(30);
    if (m_helper.SetSpipeSiteForUpdSite(8443, L"192.0.2.99", L"new.corp.example", L"NEWSRV") != 0) _exit(kWriterSet);
    m_helper.needToUpdateInMemSiteList();
    m_helper.needToUpdateInMemSiteList();
    if (CSitesHelper::m_iChange != 2 || CSitesHelper::m_pSiteList != nullptr) _exit(kWriterCounter);
    ServerInfo info;
    if (Info(info) != 0 || info.server != L"new.corp.example") _exit(kWriterRead);
    _exit(kChildOk);
  }
  EXPECT_EQ(ExitStatus(writer), kChildOk);
  ASSERT_EQ(write(go[1], "g", 1), 1);
  EXPECT_EQ(ExitStatus(reader), kChildOk);
  close(ready[0]);
  close(go[1]);
  // Neither child's notices reached this process.
  EXPECT_EQ(CSitesHelper::m_iChange, 0);
  EXPECT_EQ(CSitesHelper::m_pSiteList, nullptr);
}

}  // namespace
