// Writing a list of site records into a site list file: the document's
// shape, the per-kind element and attribute orders, versions, failures, the
// lock, and what the writer does to the records it is given.
#include <gtest/gtest.h>

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <future>
#include <regex>
#include <string>
#include <vector>

#include "port/config/IConfiguration.h"
#include "port/crypto/KeyCache.h"
#include "port/fs/SysCalls.h"
#include "port/lock/InterProcessLock.h"
#include "sitehlp/SiteRecordTestUtil.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using sitetest::NewSite;
using sitetest::Set;
using sitetest::SiteBuilder;
using sitetest::SiteList;
using testsupport::Narrow;
using testsupport::ReadFile;
using testsupport::Wide;

const char kDecl[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const wchar_t kGlobal[] = L"20240101000000";
const wchar_t kLocal[] = L"20240102030405";
const char kRootAttrs[] = "GlobalVersion=\"20240101000000\" LocalVersion=\"20240102030405\" Type=\"Client\"";

// The whole text of a written document.
std::string Doc(const std::string& rootAttrs, const std::string& inner) {
  return std::string(kDecl) + "<ns:SiteLists xmlns:ns=\"zelSiteList\" " + rootAttrs + ">" + inner +
         "</ns:SiteLists>";
}

std::string SiteListElement(const std::string& sites) {
  if (sites.empty()) return "<SiteList Default=\"1\" Name=\"SomeGUID\"/>";
  return "<SiteList Default=\"1\" Name=\"SomeGUID\">" + sites + "</SiteList>";
}

// Replaces the text of every element marked Encrypted="1" by "*" (the
// ciphertexts are random). Returns the number of non-empty texts replaced.
int MaskPasswords(std::string& text) {
  static const std::regex encrypted("<([A-Za-z]+) Encrypted=\"1\">([^<]*)</\\1>");
  std::string out;
  int nonEmpty = 0;
  auto begin = std::sregex_iterator(text.begin(), text.end(), encrypted);
  std::size_t last = 0;
  for (auto it = begin; it != std::sregex_iterator(); ++it) {
    const std::smatch& m = *it;
    out += text.substr(last, static_cast<std::size_t>(m.position(0)) - last);
    out += "<" + m[1].str() + " Encrypted=\"1\">*</" + m[1].str() + ">";
    if (m[2].length() > 0) ++nonEmpty;
    last = static_cast<std::size_t>(m.position(0) + m.length(0));
  }
  out += text.substr(last);
  text = out;
  return nonEmpty;
}

std::string Stamp(std::time_t t) {
  std::tm local{};
  localtime_r(&t, &local);
  char buf[32];
  std::snprintf(buf, sizeof buf, "%04d%02d%02d%02d%02d%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                local.tm_hour, local.tm_min, local.tm_sec);
  return buf;
}

std::vector<std::string> ListDir(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir)) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

// ---- Records used throughout ------------------------------------------------------------------

tag_Site* HttpRepo() {
  // An HttpSite carries neither ServerName, ServerIP nor Version.
  return SiteBuilder(sitehlp::SITE_TYPE_HTTP)
      .Type(L"repository").Order(1).Enabled().Element(L"HttpSite").Name(L"Http Repo")
      .Server(L"http.example", 80).SecurePort(443).ServerName(L"HTTPNAME", 81).ServerIP(L"192.0.2.1", 82)
      .Version(L"9.9").Path(L"Software/Current").UseAuth(1).Account(L"webuser", L"Secr3t-Pa55!")
      .Release();
}
const char kHttpRepoXml[] =
    "<HttpSite Type=\"repository\" Name=\"Http Repo\" Order=\"1\" Enabled=\"1\" Local=\"0\" SecurePort=\"443\" "
    "Server=\"http.example:80\"><RelativePath>Software/Current</RelativePath><UseAuth>1</UseAuth>"
    "<UserName>webuser</UserName><Password Encrypted=\"1\">*</Password></HttpSite>";

tag_Site* SpipeSite() {
  return SiteBuilder(sitehlp::SITE_TYPE_HTTP)
      .Type(L"master").Order(2).Enabled().SpipeOrSuperAgent().Element(L"SpipeSite").Name(L"Management")
      .Server(L"mgmt.example", 443).ServerName(L"MGMTSRV", 80).ServerIP(L"192.0.2.10", 8443).Version(L"5.10.0")
      .Path(L"Software").Account(L"agent", L"Spipe-Pa55!")
      .Release();
}
const char kSpipeXml[] =
    "<SpipeSite Type=\"master\" Name=\"Management\" Order=\"2\" Enabled=\"1\" Local=\"0\" Server=\"mgmt.example:443\" "
    "ServerName=\"MGMTSRV:80\" ServerIP=\"192.0.2.10:8443\" Version=\"5.10.0\"><RelativePath>Software</RelativePath>"
    "<UseAuth>0</UseAuth><UserName>agent</UserName><Password Encrypted=\"1\">*</Password></SpipeSite>";

tag_Site* SuperAgentWithNames() {
  // A SuperAgentSite carries no Version.
  return SiteBuilder(sitehlp::SITE_TYPE_HTTP)
      .Type(L"repository").Order(3).Local().SpipeOrSuperAgent().Element(L"SuperAgentSite").Name(L"SA One")
      .Server(L"sa1.example", 8081).SecurePort(8444).ServerName(L"SA1", 8082).ServerIP(L"192.0.2.21", 8083)
      .Version(L"1.0").Path(L"Software").UseAuth(0).Account(L"sauser", L"SuperAgent-Pa55!")
      .Release();
}
const char kSuperAgentWithNamesXml[] =
    "<SuperAgentSite Type=\"repository\" Name=\"SA One\" Order=\"3\" Enabled=\"0\" Local=\"1\" SecurePort=\"8444\" "
    "Server=\"sa1.example:8081\" ServerName=\"SA1:8082\" ServerIP=\"192.0.2.21:8083\"><RelativePath>Software"
    "</RelativePath><UseAuth>0</UseAuth><UserName>sauser</UserName><Password Encrypted=\"1\">*</Password>"
    "</SuperAgentSite>";

tag_Site* SuperAgentWithoutNames() {
  // No name and no address: neither is written, whatever their ports.
  return SiteBuilder(sitehlp::SITE_TYPE_HTTP)
      .Type(L"repository").Order(4).Enabled().SpipeOrSuperAgent().Element(L"SuperAgentSite").Name(L"SA Two")
      .Server(L"sa2.example", 8091).ServerName(L"", 8092).ServerIP(L"", 8093)
      .Path(L"Software").UseAuth(2).Account(L"sauser2", L"SuperAgent2-Pa55!")
      .Release();
}
const char kSuperAgentWithoutNamesXml[] =
    "<SuperAgentSite Type=\"repository\" Name=\"SA Two\" Order=\"4\" Enabled=\"1\" Local=\"0\" "
    "Server=\"sa2.example:8091\"><RelativePath>Software</RelativePath><UseAuth>2</UseAuth><UserName>sauser2"
    "</UserName><Password Encrypted=\"1\">*</Password></SuperAgentSite>";

tag_Site* FtpFallback() {
  return SiteBuilder(sitehlp::SITE_TYPE_FTP)
      .Type(L"fallback").Order(5).Enabled().Name(L"Ftp Fallback").Server(L"ftp.example", 21).SecurePort(990)
      .Path(L"pub/updates").Account(L"anonymous", L"Ftp-Pa55!")
      .Release();
}
const char kFtpFallbackXml[] =
    "<FTPSite Type=\"fallback\" Name=\"Ftp Fallback\" Order=\"5\" Server=\"ftp.example:21\" Enabled=\"1\" "
    "SecurePort=\"990\" Local=\"0\"><RelativePath>pub/updates</RelativePath><UserName>anonymous</UserName>"
    "<Password Encrypted=\"1\">*</Password></FTPSite>";

tag_Site* UncRepo() {
  return SiteBuilder(sitehlp::SITE_TYPE_UNC)
      .Type(L"remediation").Order(6).Enabled().Local().Name(L"Unc Repo").Server(L"fileserver.example")
      .Share(L"repo$").Path(L"updates\\current").LoggedOnUser(1).Domain(L"CORP").Account(L"uncuser", L"Unc-Pa55!")
      .Release();
}
const char kUncRepoXml[] =
    "<UNCSite Type=\"remediation\" Name=\"Unc Repo\" Order=\"6\" Server=\"fileserver.example\" Enabled=\"1\" "
    "Local=\"1\"><ShareName>repo$</ShareName><RelativePath>updates\\current</RelativePath>"
    "<UseLoggedonUserAccount>1</UseLoggedonUserAccount><DomainName>CORP</DomainName><UserName>uncuser</UserName>"
    "<Password Encrypted=\"1\">*</Password></UNCSite>";

tag_Site* LocalRepo() {
  return SiteBuilder(sitehlp::SITE_TYPE_LOCAL)
      .Type(L"repository").Order(7).Enabled().Local().Name(L"Local Repo").Path(L"/var/repo").LoggedOnUser(0)
      .Domain(L"LOCALDOM").Account(L"localuser", L"Local-Pa55!")
      .Release();
}
const char kLocalRepoXml[] =
    "<LocalSite Type=\"repository\" Name=\"Local Repo\" Order=\"7\" Enabled=\"1\" Local=\"1\" Server=\"127.0.0.1\">"
    "<RelativePath>/var/repo</RelativePath><UseLoggedonUserAccount>0</UseLoggedonUserAccount><DomainName>LOCALDOM"
    "</DomainName><UserName>localuser</UserName><Password Encrypted=\"1\">*</Password></LocalSite>";

tag_Site* FullProxy() {
  // The header of a proxy record is not written.
  return SiteBuilder(sitehlp::SITE_TYPE_PROXY)
      .Type(L"repository").Order(8).Enabled().ProxyKind(L"FtpHttp").Name(L"Proxy Settings").UseIEConfig()
      .HttpProxy(L"proxy.example", 8080).FtpProxy(L"ftpproxy.example", 2121).UserMayConfigure(1).BypassLocal(0)
      .Exclusions(L"intranet.example;*.corp.example", 2).ProxyAuth(1, 1)
      .HttpProxyAccount(L"huser", L"HttpProxy-Pa55!").FtpProxyAccount(L"fuser", L"FtpProxy-Pa55!")
      .AlternateProxyAuth(0, 1).AlternateHttpProxyAccount(L"ahuser", L"AltHttpProxy-Pa55!")
      .AlternateFtpProxyAccount(L"afuser", L"AltFtpProxy-Pa55!")
      .Release();
}
const char kFullProxyXml[] =
    "<ProxyConfigList><ProxyConfig Name=\"Proxy Settings\" UseIEConfig=\"1\" Local=\"1\" "
    "HttpProxyServer=\"proxy.example\" HttpProxyPort=\"8080\" FtpProxyServer=\"ftpproxy.example\" "
    "FtpProxyPort=\"2121\"><AllowUserToConfigureProxy>1</AllowUserToConfigureProxy><BypassLocalAddress>0"
    "</BypassLocalAddress><ExclusionList><ExclusionHost>intranet.example</ExclusionHost><ExclusionHost>"
    "*.corp.example</ExclusionHost></ExclusionList><FtpUseAuth>1</FtpUseAuth><HttpUseAuth>1</HttpUseAuth>"
    "<HttpProxyUser>huser</HttpProxyUser><HttpProxyPassword Encrypted=\"1\">*</HttpProxyPassword><FtpProxyUser>"
    "fuser</FtpProxyUser><FtpProxyPassword Encrypted=\"1\">*</FtpProxyPassword><AlternateFtpUseAuth>0"
    "</AlternateFtpUseAuth><AlternateHttpUseAuth>1</AlternateHttpUseAuth><AlternateHttpProxyUser>ahuser"
    "</AlternateHttpProxyUser><AlternateHttpProxyPassword Encrypted=\"1\">*</AlternateHttpProxyPassword>"
    "<AlternateFtpProxyUser>afuser</AlternateFtpProxyUser><AlternateFtpProxyPassword Encrypted=\"1\">*"
    "</AlternateFtpProxyPassword></ProxyConfig></ProxyConfigList>";

// A proxy record with only the fields a test names; the rest of its document
// text is this fixed tail.
tag_Site* BareProxy(const std::wstring& exclusions) {
  return SiteBuilder(sitehlp::SITE_TYPE_PROXY).Name(L"P").Exclusions(exclusions, 0).Release();
}
const char kBareProxyTail[] =
    "<FtpUseAuth>0</FtpUseAuth><HttpUseAuth>0</HttpUseAuth><HttpProxyUser></HttpProxyUser>"
    "<HttpProxyPassword Encrypted=\"1\">*</HttpProxyPassword><FtpProxyUser></FtpProxyUser>"
    "<FtpProxyPassword Encrypted=\"1\">*</FtpProxyPassword><AlternateFtpUseAuth>0</AlternateFtpUseAuth>"
    "<AlternateHttpUseAuth>0</AlternateHttpUseAuth><AlternateHttpProxyUser></AlternateHttpProxyUser>"
    "<AlternateHttpProxyPassword Encrypted=\"1\">*</AlternateHttpProxyPassword><AlternateFtpProxyUser>"
    "</AlternateFtpProxyUser><AlternateFtpProxyPassword Encrypted=\"1\">*</AlternateFtpProxyPassword>"
    "</ProxyConfig></ProxyConfigList>";

// ---- Fixture ---------------------------------------------------------------------------------

class SiteListWriterTest : public ::testing::Test {
 protected:
  // Writes list to the fixture's file with explicit versions unless given.
  int Write(tag_Site* list, const std::vector<std::wstring>& certificates = {},
            const std::wstring& globalVersion = kGlobal, const std::wstring& localVersion = kLocal,
            const std::wstring& type = L"") {
    return m_helper.CreateSiteList(list, m_wpath, globalVersion, localVersion, type, certificates);
  }
  // The written file with its password texts masked.
  std::string Written() {
    std::string text = ReadFile(m_path);
    MaskPasswords(text);
    return text;
  }
  // The inner text of the written SiteList element.
  std::string WrittenSites() {
    const std::string text = Written();
    const std::string open = "<SiteList Default=\"1\" Name=\"SomeGUID\">";
    const std::size_t begin = text.find(open);
    const std::size_t end = text.rfind("</SiteList>");
    if (begin == std::string::npos || end == std::string::npos || end < begin) return "(no SiteList with sites)";
    return text.substr(begin + open.size(), end - begin - open.size());
  }

  testsupport::ConfigScope m_config;
  std::string m_path = m_config.dir().file("SiteList.xml");
  std::wstring m_wpath = Wide(m_path);
  CSitesHelper m_helper{m_wpath};  // for a missing file: no versions, type Client
  SiteList m_list{m_helper};
};

// ---- Document shape ---------------------------------------------------------------------------

TEST_F(SiteListWriterTest, ListWithoutSitesHasRootWithItsFourAttributesInOrderAndAnEmptySiteList) {
  ASSERT_EQ(0, m_helper.CreateSiteList(nullptr, m_wpath, L"20230405060708", L"20230405060709", L"Server", {}));
  EXPECT_EQ(std::string(kDecl) +
                "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20230405060708\" "
                "LocalVersion=\"20230405060709\" Type=\"Server\"><SiteList Default=\"1\" Name=\"SomeGUID\"/>"
                "</ns:SiteLists>",
            ReadFile(m_path));
}

TEST_F(SiteListWriterTest, NoCaBundleWithoutCertificatesAndNoPoliciesWithoutSettings) {
  m_list.append(HttpRepo());
  ASSERT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(Doc(kRootAttrs, SiteListElement(kHttpRepoXml)), Written());
}

TEST_F(SiteListWriterTest, CaBundleAndPoliciesPrecedeTheSiteListWhenPresent) {
  m_helper.SetPolicySetting(L"OverwriteClientSites", L"1");
  m_list.append(HttpRepo());
  ASSERT_EQ(0, Write(m_list.head(), {L"CERT-ONE"}));
  EXPECT_EQ(Doc(kRootAttrs,
                "<CaBundle><CaCertificate>CERT-ONE</CaCertificate></CaBundle><Policies><Setting "
                "name=\"OverwriteClientSites\">1</Setting></Policies>" +
                    SiteListElement(kHttpRepoXml)),
            Written());
}

TEST_F(SiteListWriterTest, MirrorSiteOfEveryKindHasNoOrderAttribute) {
  for (int kind = sitehlp::SITE_TYPE_HTTP; kind <= sitehlp::SITE_TYPE_LOCAL; ++kind) {
    tag_Site* s = m_list.append(NewSite(kind));
    Set(s->szType, kind % 2 ? L"MIRROR" : L"Mirror");  // compared without regard to case
    s->nOrder = 9;
    s->bMirror = 1;
  }
  ASSERT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(
      "<HttpSite Type=\"Mirror\" Name=\"\" Enabled=\"0\" Local=\"0\" Server=\":0\"><RelativePath></RelativePath>"
      "<UseAuth>0</UseAuth><UserName></UserName><Password Encrypted=\"1\">*</Password></HttpSite>"
      "<FTPSite Type=\"MIRROR\" Name=\"\" Server=\":0\" Enabled=\"0\" Local=\"0\"><RelativePath></RelativePath>"
      "<UserName></UserName><Password Encrypted=\"1\">*</Password></FTPSite>"
      "<UNCSite Type=\"Mirror\" Name=\"\" Server=\"\" Enabled=\"0\" Local=\"0\"><ShareName></ShareName>"
      "<RelativePath></RelativePath><UseLoggedonUserAccount>0</UseLoggedonUserAccount><DomainName></DomainName>"
      "<UserName></UserName><Password Encrypted=\"1\">*</Password></UNCSite>"
      "<LocalSite Type=\"MIRROR\" Name=\"\" Enabled=\"0\" Local=\"0\" Server=\"127.0.0.1\"><RelativePath>"
      "</RelativePath><UseLoggedonUserAccount>0</UseLoggedonUserAccount><DomainName></DomainName><UserName>"
      "</UserName><Password Encrypted=\"1\">*</Password></LocalSite>",
      WrittenSites());
}

TEST_F(SiteListWriterTest, SiteWithEmptyTypeIsWrittenAsRepository) {
  tag_Site* http = m_list.append(HttpRepo());
  Set(http->szType, L"");
  tag_Site* ftp = m_list.append(FtpFallback());
  Set(ftp->szType, L"");
  ASSERT_EQ(0, Write(m_list.head()));
  std::string ftpXml = kFtpFallbackXml;
  ftpXml.replace(ftpXml.find("fallback"), 8, "repository");
  EXPECT_EQ(std::string(kHttpRepoXml) + ftpXml, WrittenSites());
  EXPECT_STREQ(L"", http->szType);  // the record itself is not changed
}

TEST_F(SiteListWriterTest, FtpSiteServerCarriesItsPortAndZeroSecurePortIsLeftOut) {
  tag_Site* s = m_list.append(NewSite(sitehlp::SITE_TYPE_FTP));
  Set(s->szType, L"repository");
  s->nOrder = 1;
  s->bEnabled = 1;
  Set(s->ftpSite.szName, L"Ftp");
  Set(s->ftpSite.szServer, L"ftp1");
  s->ftpSite.nPort = 21;
  s->ftpSite.nSecurePort = 0;
  Set(s->ftpSite.szRelativePath, L"p");
  Set(s->ftpSite.szUserName, L"u");
  ASSERT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(
      "<FTPSite Type=\"repository\" Name=\"Ftp\" Order=\"1\" Server=\"ftp1:21\" Enabled=\"1\" Local=\"0\">"
      "<RelativePath>p</RelativePath><UserName>u</UserName><Password Encrypted=\"1\">*</Password></FTPSite>",
      WrittenSites());
}

TEST_F(SiteListWriterTest, UncSiteServerCarriesNoPort) {
  tag_Site* s = m_list.append(UncRepo());
  Set(s->uncSite.szServer, L"fileserver.example");
  ASSERT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(kUncRepoXml, WrittenSites());
}

TEST_F(SiteListWriterTest, LocalSiteServerIsLoopbackWhateverTheRecordHolds) {
  // A record that was an HTTP site with a server, turned into a local site:
  // the local body's path overlays the HTTP name, which is empty.
  tag_Site* s = m_list.append(NewSite(sitehlp::SITE_TYPE_HTTP));
  Set(s->httpSite.szServer, L"files.example");
  s->httpSite.nPort = 8080;
  s->nSiteType = sitehlp::SITE_TYPE_LOCAL;
  Set(s->szType, L"repository");
  Set(s->localSite.szName, L"Local");
  ASSERT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(
      "<LocalSite Type=\"repository\" Name=\"Local\" Order=\"0\" Enabled=\"0\" Local=\"0\" Server=\"127.0.0.1\">"
      "<RelativePath></RelativePath><UseLoggedonUserAccount>0</UseLoggedonUserAccount><DomainName></DomainName>"
      "<UserName></UserName><Password Encrypted=\"1\">*</Password></LocalSite>",
      WrittenSites());
}

TEST_F(SiteListWriterTest, ExclusionListWithEmptyEntryYieldsTwoExclusionHosts) {
  m_list.append(BareProxy(L"a;;b"));
  ASSERT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(std::string("<ProxyConfigList><ProxyConfig Name=\"P\" Local=\"1\"><AllowUserToConfigureProxy>0"
                        "</AllowUserToConfigureProxy><BypassLocalAddress>0</BypassLocalAddress><ExclusionList>"
                        "<ExclusionHost>a</ExclusionHost><ExclusionHost>b</ExclusionHost></ExclusionList>") +
                kBareProxyTail,
            WrittenSites());
}

TEST_F(SiteListWriterTest, ExclusionListOfDelimitersOnlyYieldsNoExclusionHost) {
  m_list.append(BareProxy(L";;;"));
  ASSERT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(std::string("<ProxyConfigList><ProxyConfig Name=\"P\" Local=\"1\"><AllowUserToConfigureProxy>0"
                        "</AllowUserToConfigureProxy><BypassLocalAddress>0</BypassLocalAddress><ExclusionList/>") +
                kBareProxyTail,
            WrittenSites());
}

TEST_F(SiteListWriterTest, ProxyWithEmptyHttpProxyHostHasNeitherHttpProxyServerNorPort) {
  tag_Site* s = m_list.append(BareProxy(L""));
  s->proxySettings.nHttpProxyPort = 8080;  // no host: the port is not written either
  Set(s->proxySettings.szFtpProxyServer, L"ftpproxy.example");
  s->proxySettings.nFtpProxyPort = 2121;
  ASSERT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(std::string("<ProxyConfigList><ProxyConfig Name=\"P\" Local=\"1\" FtpProxyServer=\"ftpproxy.example\" "
                        "FtpProxyPort=\"2121\"><AllowUserToConfigureProxy>0</AllowUserToConfigureProxy>"
                        "<BypassLocalAddress>0</BypassLocalAddress><ExclusionList/>") +
                kBareProxyTail,
            WrittenSites());
}

TEST_F(SiteListWriterTest, ProxyWithEmptyFtpProxyHostHasNeitherFtpProxyServerNorPortAndNoUseIEConfigWhenUnset) {
  tag_Site* s = m_list.append(BareProxy(L"h"));
  Set(s->proxySettings.szHttpProxyServer, L"proxy.example");
  s->proxySettings.nHttpProxyPort = 3128;
  s->proxySettings.nFtpProxyPort = 2121;
  s->proxySettings.bUseIEConfig = 0;
  ASSERT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(std::string("<ProxyConfigList><ProxyConfig Name=\"P\" Local=\"1\" HttpProxyServer=\"proxy.example\" "
                        "HttpProxyPort=\"3128\"><AllowUserToConfigureProxy>0</AllowUserToConfigureProxy>"
                        "<BypassLocalAddress>0</BypassLocalAddress><ExclusionList><ExclusionHost>h</ExclusionHost>"
                        "</ExclusionList>") +
                kBareProxyTail,
            WrittenSites());
}

TEST_F(SiteListWriterTest, RewrittenListHasNoFipsModeEvenWhenTheReplacedFileHadOne) {
  testsupport::WriteFile(m_path,
                         "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ns:SiteLists xmlns:ns=\"zelSiteList\" "
                         "GlobalVersion=\"20200101010101\" LocalVersion=\"20200101010102\" Type=\"Server\" "
                         "FipsMode=\"1\"><SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>\n");
  CSitesHelper helper(m_wpath);
  ASSERT_EQ(L"20200101010101", helper.GetGlobalVersion());
  ASSERT_EQ(0, helper.CreateSiteList(nullptr, L"", L"", kLocal, L"", {}));
  // The helper's own global version and type are kept; FipsMode is gone.
  EXPECT_EQ(Doc("GlobalVersion=\"20200101010101\" LocalVersion=\"20240102030405\" Type=\"Server\"",
                SiteListElement("")),
            ReadFile(m_path));
}

// ---- Exact element and attribute orders ------------------------------------------------------

TEST_F(SiteListWriterTest, EveryKindIsWrittenWithItsElementAndAttributeOrder) {
  m_list.append(HttpRepo());
  m_list.append(SpipeSite());
  m_list.append(SuperAgentWithNames());
  m_list.append(SuperAgentWithoutNames());
  m_list.append(FtpFallback());
  m_list.append(UncRepo());
  m_list.append(LocalRepo());
  m_list.append(FullProxy());
  ASSERT_EQ(0, m_helper.CreateSiteList(m_list.head(), m_wpath, kGlobal, kLocal, L"Client", {L"CA-1", L"CA-2"}));

  std::string text = ReadFile(m_path);
  ASSERT_GE(text.size(), 3u);
  EXPECT_NE("\xEF\xBB\xBF", text.substr(0, 3)) << "no byte order mark";
  EXPECT_EQ(kDecl, text.substr(0, sizeof(kDecl) - 1));
  EXPECT_EQ(11, MaskPasswords(text)) << "every password is written as a non-empty ciphertext";
  EXPECT_EQ(Doc(kRootAttrs, "<CaBundle><CaCertificate>CA-1</CaCertificate><CaCertificate>CA-2</CaCertificate>"
                            "</CaBundle>" +
                                SiteListElement(std::string(kHttpRepoXml) + kSpipeXml + kSuperAgentWithNamesXml +
                                                kSuperAgentWithoutNamesXml + kFtpFallbackXml + kUncRepoXml +
                                                kLocalRepoXml + kFullProxyXml)),
            text);
}

TEST_F(SiteListWriterTest, FileStartsWithTheXmlDeclarationAndNoByteOrderMark) {
  m_list.append(HttpRepo());
  ASSERT_EQ(0, Write(m_list.head()));
  const std::string text = ReadFile(m_path);
  EXPECT_EQ("<?xml version=\"1.0\" encoding=\"UTF-8\"?><ns:SiteLists ", text.substr(0, 52));
}

TEST_F(SiteListWriterTest, SpipeSiteWritesServerNameAndServerIPEvenWhenEmptyAndNoVersionWhenEmpty) {
  tag_Site* s = m_list.append(SpipeSite());
  Set(s->httpSite.szServerName, L"");
  Set(s->httpSite.szServerIP, L"");
  Set(s->httpSite.szVersion, L"");
  s->httpSite.nSecurePort = 8443;
  ASSERT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(
      "<SpipeSite Type=\"master\" Name=\"Management\" Order=\"2\" Enabled=\"1\" Local=\"0\" SecurePort=\"8443\" "
      "Server=\"mgmt.example:443\" ServerName=\":80\" ServerIP=\":8443\"><RelativePath>Software</RelativePath>"
      "<UseAuth>0</UseAuth><UserName>agent</UserName><Password Encrypted=\"1\">*</Password></SpipeSite>",
      WrittenSites());
}

TEST_F(SiteListWriterTest, SpipeElementNameIsRecognisedWithoutRegardToCase) {
  tag_Site* s = m_list.append(SpipeSite());
  Set(s->httpSite.szSiteElement, L"SPIPESITE");
  ASSERT_EQ(0, Write(m_list.head()));
  std::string expected = kSpipeXml;
  expected.replace(expected.find("<SpipeSite"), 10, "<SPIPESITE");
  expected.replace(expected.find("</SpipeSite>"), 12, "</SPIPESITE>");
  EXPECT_EQ(expected, WrittenSites());
}

TEST_F(SiteListWriterTest, HttpRecordWithoutElementNameIsWrittenAsHttpSite) {
  tag_Site* s = m_list.append(HttpRepo());
  Set(s->httpSite.szSiteElement, L"");
  ASSERT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(kHttpRepoXml, WrittenSites());
}

TEST_F(SiteListWriterTest, NumbersAreWrittenAsTheRecordHoldsThemAndPortsUnsigned) {
  tag_Site* s = m_list.append(HttpRepo());
  s->nOrder = -3;
  s->bEnabled = 2;  // a raw flag is written as it stands
  s->bLocal = -1;
  s->httpSite.nPort = -1;  // ports are unsigned decimal
  s->httpSite.nSecurePort = 4294967295u;
  s->httpSite.nUseAuth = -7;
  ASSERT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(
      "<HttpSite Type=\"repository\" Name=\"Http Repo\" Order=\"-3\" Enabled=\"2\" Local=\"-1\" "
      "SecurePort=\"4294967295\" Server=\"http.example:4294967295\"><RelativePath>Software/Current</RelativePath>"
      "<UseAuth>-7</UseAuth><UserName>webuser</UserName><Password Encrypted=\"1\">*</Password></HttpSite>",
      WrittenSites());
}

TEST_F(SiteListWriterTest, PoliciesAreWrittenInAscendingCharacterCodeOrderAndCertificatesInCallerOrder) {
  m_helper.SetPolicySetting(L"a", L"lower");
  m_helper.SetPolicySetting(L"B", L"upper");
  m_helper.SetPolicySetting(L"_", L"underscore");
  m_helper.SetPolicySetting(L"A", L"");
  ASSERT_EQ(0, Write(nullptr, {L"zeta", L"alpha", L"mu"}));
  EXPECT_EQ(Doc(kRootAttrs,
                "<CaBundle><CaCertificate>zeta</CaCertificate><CaCertificate>alpha</CaCertificate><CaCertificate>"
                "mu</CaCertificate></CaBundle><Policies><Setting name=\"A\"></Setting><Setting name=\"B\">upper"
                "</Setting><Setting name=\"_\">underscore</Setting><Setting name=\"a\">lower</Setting></Policies>" +
                    SiteListElement("")),
            ReadFile(m_path));
}

TEST_F(SiteListWriterTest, TraceScopesNameEveryStepInListOrder) {
  testsupport::CapturingLogSink log;
  m_list.append(HttpRepo());
  m_list.append(FtpFallback());
  m_list.append(UncRepo());
  m_list.append(LocalRepo());
  m_list.append(BareProxy(L""));
  ASSERT_EQ(0, Write(m_list.head()));
  std::vector<std::wstring> entering;
  for (const auto& line : log.lines())
    if (line.message.rfind(L"Entering Adding", 0) == 0 || line.message == L"Entering Creating Sitelist") {
      EXPECT_EQ(L"SiteHlp", line.component);
      EXPECT_EQ(port::LogLevel::Detail, line.level);
      entering.push_back(line.message);
    }
  EXPECT_EQ((std::vector<std::wstring>{L"Entering Creating Sitelist", L"Entering Adding HTTP site",
                                       L"Entering Adding FTP site", L"Entering Adding UNC site",
                                       L"Entering Adding local site", L"Entering Adding Proxy site"}),
            entering);
}

TEST_F(SiteListWriterTest, PasswordThatCannotBeEncryptedIsWrittenAsEmptyMarkedTextAndTheWriteGoesOn) {
  // The key directory lies below a regular file: no key can be read or made.
  const std::string blocker = m_config.dir().file("not-a-directory");
  testsupport::WriteFile(blocker, "plain file");
  port::SetConfigValue(port::ConfigKey::KeyDir, blocker + "/keys");
  port::ClearKeyCache();
  m_list.append(HttpRepo());
  m_list.append(FullProxy());
  const int result = Write(m_list.head());
  port::ClearKeyCache();
  ASSERT_EQ(0, result);
  std::string text = ReadFile(m_path);
  EXPECT_EQ(std::string::npos, text.find("Pa55"));
  EXPECT_EQ(0, MaskPasswords(text)) << "every password text is empty";
  for (const char* element : {"Password", "HttpProxyPassword", "FtpProxyPassword", "AlternateHttpProxyPassword",
                              "AlternateFtpProxyPassword"}) {
    const std::string empty = std::string("<") + element + " Encrypted=\"1\"></" + element + ">";
    EXPECT_NE(std::string::npos, ReadFile(m_path).find(empty)) << empty;
  }
  EXPECT_EQ(Doc(kRootAttrs, SiteListElement(std::string(kHttpRepoXml) + kFullProxyXml)), text);
}

// ---- Validity --------------------------------------------------------------------------------

// Decodes UTF-8 strictly; false for any malformed, overlong or surrogate form.
bool IsValidUtf8(const std::string& s) {
  std::size_t i = 0;
  while (i < s.size()) {
    const unsigned char c = static_cast<unsigned char>(s[i]);
    int n;
    unsigned cp;
    if (c < 0x80) {
      ++i;
      continue;
    } else if ((c & 0xE0) == 0xC0) {
      n = 1;
      cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      n = 2;
      cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      n = 3;
      cp = c & 0x07;
    } else {
      return false;
    }
    for (int k = 1; k <= n; ++k) {
      if (i + k >= s.size()) return false;
      const unsigned char cc = static_cast<unsigned char>(s[i + k]);
      if ((cc & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (cc & 0x3F);
    }
    if ((n == 1 && cp < 0x80) || (n == 2 && cp < 0x800) || (n == 3 && cp < 0x10000)) return false;
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
    i += n + 1;
  }
  return true;
}

TEST_F(SiteListWriterTest, FileWithEveryKindIsWellFormedUtf8WithoutClearTextPasswords) {
  m_list.append(HttpRepo());
  m_list.append(SpipeSite());
  m_list.append(SuperAgentWithNames());
  m_list.append(SuperAgentWithoutNames());
  m_list.append(FtpFallback());
  m_list.append(UncRepo());
  m_list.append(LocalRepo());
  m_list.append(FullProxy());
  // Non-ASCII text and characters the document must escape.
  Set(m_list.at(0)->httpSite.szName, L"Z\u00fcrich \u03a9 \U0001F600 <&> \"quoted\" 'single'");
  Set(m_list.at(5)->uncSite.szShareName, L"\u5171\u6709&share");
  m_helper.SetPolicySetting(L"k&<\"", L"v&<>");
  ASSERT_EQ(0, m_helper.CreateSiteList(m_list.head(), m_wpath, L"", L"", L"", {L"-----BEGIN-----\nAB&<>\n"}));

  const std::string text = ReadFile(m_path);
  EXPECT_TRUE(IsValidUtf8(text));
  EXPECT_NE(std::string::npos, text.find("Z\xC3\xBCrich \xCE\xA9 \xF0\x9F\x98\x80 &lt;&amp;"));
  EXPECT_NE(std::string::npos, text.find("\xE5\x85\xB1\xE6\x9C\x89&amp;share"));
  for (const char* password : {"Secr3t-Pa55!", "Spipe-Pa55!", "SuperAgent-Pa55!", "SuperAgent2-Pa55!", "Ftp-Pa55!",
                               "Unc-Pa55!", "Local-Pa55!", "HttpProxy-Pa55!", "FtpProxy-Pa55!", "AltHttpProxy-Pa55!",
                               "AltFtpProxy-Pa55!", "Pa55"})
    EXPECT_EQ(std::string::npos, text.find(password)) << password;

  const std::string command = "xmllint --noout '" + m_path + "' 2>&1";
  EXPECT_EQ(0, std::system(command.c_str())) << command;
}

// ---- Versions ---------------------------------------------------------------------------------

TEST_F(SiteListWriterTest, NullListWritesAnEmptySiteListAndReturnsZero) {
  ASSERT_EQ(0, Write(nullptr));
  EXPECT_EQ(Doc(kRootAttrs, SiteListElement("")), ReadFile(m_path));
}

TEST_F(SiteListWriterTest, EmptyVersionsStampTheLocalTimeAndUseItAsGlobalVersion) {
  testsupport::CapturingLogSink log;
  const std::string before = Stamp(std::time(nullptr));
  ASSERT_EQ(0, m_helper.CreateSiteList(nullptr, m_wpath, L"", L"", L"", {}));
  const std::string after = Stamp(std::time(nullptr));

  const std::string text = ReadFile(m_path);
  std::smatch m;
  ASSERT_TRUE(std::regex_match(text, m,
                               std::regex(R"re(<\?xml version="1\.0" encoding="UTF-8"\?>)re"
                                          R"re(<ns:SiteLists xmlns:ns="zelSiteList" GlobalVersion="([0-9]{14})" )re"
                                          R"re(LocalVersion="([0-9]{14})" Type="Client">)re"
                                          R"re(<SiteList Default="1" Name="SomeGUID"/></ns:SiteLists>)re")))
      << text;
  const std::string stamp = m[2].str();
  EXPECT_EQ(stamp, m[1].str());
  EXPECT_LE(before, stamp);
  EXPECT_GE(after, stamp);

  std::vector<std::wstring> versionLines;
  for (const auto& line : log.lines())
    if (line.message.rfind(L"Local version of ", 0) == 0) {
      EXPECT_EQ(port::LogLevel::Detail, line.level);
      EXPECT_EQ(L"SiteHlp", line.component);
      versionLines.push_back(line.message);
    }
  EXPECT_EQ(std::vector<std::wstring>{L"Local version of " + m_wpath + L" is " + Wide(stamp)}, versionLines);
}

TEST_F(SiteListWriterTest, EmptyPathWritesTheHelpersOwnListAndNamesItInTheVersionLine) {
  const std::string own = m_config.dir().file("own.xml");
  CSitesHelper helper(Wide(own));
  testsupport::CapturingLogSink log;
  ASSERT_EQ(0, helper.CreateSiteList(nullptr, L"", L"", L"", L"", {}));
  const std::string text = ReadFile(own);
  const std::size_t at = text.find("LocalVersion=\"");
  ASSERT_NE(std::string::npos, at) << text;
  const std::string stamp = text.substr(at + 14, 14);
  EXPECT_TRUE(log.contains(L"Local version of " + Wide(own) + L" is " + Wide(stamp)));
  EXPECT_FALSE(testsupport::FileExists(m_path));
}

TEST_F(SiteListWriterTest, ExplicitLocalVersionIsUsedUnchangedAndNotLogged) {
  testsupport::CapturingLogSink log;
  ASSERT_EQ(0, m_helper.CreateSiteList(nullptr, m_wpath, L"", L"not-a-stamp 1", L"", {}));
  EXPECT_EQ(Doc("GlobalVersion=\"not-a-stamp 1\" LocalVersion=\"not-a-stamp 1\" Type=\"Client\"", SiteListElement("")),
            ReadFile(m_path));
  for (const auto& message : log.allMessages())
    EXPECT_NE(0u, message.rfind(L"Local version of ", 0)) << Narrow(message);
}

TEST_F(SiteListWriterTest, GlobalVersionAndTypeComeFromArgumentsThenTheHelperThenDefaults) {
  testsupport::WriteFile(m_path,
                         "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20190101000000\" "
                         "LocalVersion=\"20190101000001\" Type=\"Server\"><SiteList/></ns:SiteLists>");
  CSitesHelper helper(m_wpath);
  const std::wstring other = m_config.dir().wfile("other.xml");
  ASSERT_EQ(0, helper.CreateSiteList(nullptr, other, L"20250101000000", kLocal, L"Client", {}));
  EXPECT_EQ(Doc("GlobalVersion=\"20250101000000\" LocalVersion=\"20240102030405\" Type=\"Client\"",
                SiteListElement("")),
            ReadFile(Narrow(other)));
  ASSERT_EQ(0, helper.CreateSiteList(nullptr, other, L"", kLocal, L"", {}));
  EXPECT_EQ(Doc("GlobalVersion=\"20190101000000\" LocalVersion=\"20240102030405\" Type=\"Server\"",
                SiteListElement("")),
            ReadFile(Narrow(other)));
}

// ---- Records of unknown kind ------------------------------------------------------------------

TEST_F(SiteListWriterTest, LastRecordOfUnknownKindReturnsMinusOneYetTheOtherSitesAreWritten) {
  m_list.append(HttpRepo());
  m_list.append(FtpFallback());
  tag_Site* unknown = m_list.append(UncRepo());
  unknown->nSiteType = 7;
  EXPECT_EQ(-1, Write(m_list.head()));
  EXPECT_EQ(Doc(kRootAttrs, SiteListElement(std::string(kHttpRepoXml) + kFtpFallbackXml)), Written());
}

TEST_F(SiteListWriterTest, UnknownKindFollowedByAKnownKindReturnsZero) {
  m_list.append(HttpRepo());
  m_list.append(NewSite(7));
  m_list.append(FtpFallback());
  EXPECT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(std::string(kHttpRepoXml) + kFtpFallbackXml, WrittenSites());
}

TEST_F(SiteListWriterTest, UnknownKindFirstReturnsZeroAndTheNextSiteGoesBehindTheUnmovedCursor) {
  // The index advances for the unknown record, so the next site is placed as
  // the next sibling of the cursor, which is still the SiteList element.
  m_list.append(NewSite(-1));
  m_list.append(HttpRepo());
  EXPECT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(Doc(kRootAttrs, SiteListElement("") + kHttpRepoXml), Written());
}

// ---- Unwritable targets ------------------------------------------------------------------------

TEST_F(SiteListWriterTest, TargetInMissingDirectoryReturnsMinusElevenAndCreatesNothing) {
  m_list.append(HttpRepo());
  const std::string missing = m_config.dir().file("missing");
  EXPECT_EQ(-11, m_helper.CreateSiteList(m_list.head(), Wide(missing + "/SiteList.xml"), kGlobal, kLocal, L"", {}));
  EXPECT_FALSE(testsupport::FileExists(missing));
}

int FailRename(const char*, const char*) {
  errno = EIO;
  return -1;
}
int FailFsync(int) {
  errno = ENOSPC;
  return -1;
}

class UnwritableTargetTest : public SiteListWriterTest, public ::testing::WithParamInterface<int> {};

TEST_P(UnwritableTargetTest, FailedWriteReturnsMinusElevenLeavesOldFileUnchangedAndReleasesTheLock) {
  const std::string dir = m_config.dir().file("target");
  ASSERT_TRUE(std::filesystem::create_directory(dir));
  const std::string target = dir + "/SiteList.xml";
  const std::string old = "<?xml version=\"1.0\"?>\r\n<ns:SiteLists GlobalVersion=\"1\"><SiteList/></ns:SiteLists>\n\xff";
  testsupport::WriteFile(target, old);
  m_list.append(HttpRepo());
  port::SysCalls table = port::RealSysCalls();
  if (GetParam() == 0)
    table.rename = FailRename;
  else
    table.fsync = FailFsync;
  int result;
  {
    port::ScopedSysCallOverride scope(table);
    result = m_helper.CreateSiteList(m_list.head(), Wide(target), kGlobal, kLocal, L"", {});
  }
  EXPECT_EQ(-11, result);
  EXPECT_EQ(old, ReadFile(target));
  EXPECT_EQ(std::vector<std::string>{"SiteList.xml"}, ListDir(dir)) << "no temporary file is left";
  InterProcessWriteLock lock(sitehlp::c_siteListLock);
  EXPECT_TRUE(lock.lock(0)) << "the write lock was released";
}

INSTANTIATE_TEST_SUITE_P(RenameOrFsync, UnwritableTargetTest, ::testing::Values(0, 1),
                         [](const ::testing::TestParamInfo<int>& info) {
                           return std::string(info.param == 0 ? "RenameFails" : "FsyncFails");
                         });

// ---- Lock ---------------------------------------------------------------------------------------

TEST_F(SiteListWriterTest, WriteWaitsWhileAnotherHolderHasTheSiteListLock) {
  m_list.append(HttpRepo());
  InterProcessReadLock reader(sitehlp::c_siteListLock);
  ASSERT_TRUE(reader.lock(sitehlp::c_lockWaitForever));
  auto pending = std::async(std::launch::async, [this] { return Write(m_list.head()); });
  const bool finishedWhileHeld = pending.wait_for(std::chrono::milliseconds(400)) == std::future_status::ready;
  const bool writtenWhileHeld = testsupport::FileExists(m_path);
  reader.unlock();
  ASSERT_EQ(std::future_status::ready, pending.wait_for(std::chrono::seconds(20)));
  EXPECT_EQ(0, pending.get());
  EXPECT_FALSE(finishedWhileHeld);
  EXPECT_FALSE(writtenWhileHeld);
  EXPECT_EQ(Doc(kRootAttrs, SiteListElement(kHttpRepoXml)), Written());
}

// ---- Order of sites and changes to the records -------------------------------------------------

TEST_F(SiteListWriterTest, LaterSitesAreSiblingsInListOrderWithProxyListsWhereTheyStand) {
  m_list.append(LocalRepo());
  m_list.append(FullProxy());
  m_list.append(HttpRepo());
  m_list.append(UncRepo());
  m_list.append(BareProxy(L"x"));
  m_list.append(FtpFallback());
  ASSERT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(std::string(kLocalRepoXml) + kFullProxyXml + kHttpRepoXml + kUncRepoXml +
                "<ProxyConfigList><ProxyConfig Name=\"P\" Local=\"1\"><AllowUserToConfigureProxy>0"
                "</AllowUserToConfigureProxy><BypassLocalAddress>0</BypassLocalAddress><ExclusionList><ExclusionHost>"
                "x</ExclusionHost></ExclusionList>" +
                kBareProxyTail + kFtpFallbackXml,
            WrittenSites());
}

TEST_F(SiteListWriterTest, AfterWritingAProxyRecordWhoseExclusionListWasTwoHostsHoldsTheFirstAlone) {
  tag_Site* proxy = m_list.append(BareProxy(L"a;b"));
  proxy->proxySettings.nExclusionCount = 2;
  ASSERT_EQ(0, Write(m_list.head()));
  EXPECT_STREQ(L"a", proxy->proxySettings.szExclusionList);
  EXPECT_EQ(2, proxy->proxySettings.nExclusionCount);
}

TEST_F(SiteListWriterTest, MacroTextInServerAndPathFieldsIsWrittenAsAgentMacroAndKeptInTheRecord) {
  const std::wstring macro = L"%%lt%%X%%gt%%";
  tag_Site* spipe = m_list.append(SpipeSite());
  Set(spipe->httpSite.szName, macro);  // names are not formatted
  Set(spipe->httpSite.szServer, macro + L".example");
  Set(spipe->httpSite.szServerName, macro);
  Set(spipe->httpSite.szServerIP, macro);
  Set(spipe->httpSite.szVersion, macro);
  Set(spipe->httpSite.szRelativePath, L"a/" + macro + L"/b");
  Set(spipe->httpSite.szUserName, macro);  // user names are not formatted
  tag_Site* ftp = m_list.append(FtpFallback());
  Set(ftp->ftpSite.szServer, macro);
  Set(ftp->ftpSite.szRelativePath, macro);
  tag_Site* unc = m_list.append(UncRepo());
  Set(unc->uncSite.szServer, macro);
  Set(unc->uncSite.szRelativePath, macro);
  Set(unc->uncSite.szDomainName, macro);
  Set(unc->uncSite.szShareName, macro);  // share names are not formatted
  tag_Site* local = m_list.append(LocalRepo());
  Set(local->localSite.szRelativePath, macro);
  Set(local->localSite.szDomainName, macro);
  tag_Site* proxy = m_list.append(BareProxy(macro));
  Set(proxy->proxySettings.szHttpProxyServer, macro);
  proxy->proxySettings.nHttpProxyPort = 1;
  Set(proxy->proxySettings.szFtpProxyServer, macro);
  proxy->proxySettings.nFtpProxyPort = 2;
  ASSERT_EQ(0, Write(m_list.head()));

  EXPECT_EQ(
      "<SpipeSite Type=\"master\" Name=\"%%lt%%X%%gt%%\" Order=\"2\" Enabled=\"1\" Local=\"0\" "
      "Server=\"&lt;X>.example:443\" ServerName=\"&lt;X>:80\" ServerIP=\"&lt;X>:8443\" Version=\"&lt;X>\">"
      "<RelativePath>a/&lt;X&gt;/b</RelativePath><UseAuth>0</UseAuth><UserName>%%lt%%X%%gt%%</UserName>"
      "<Password Encrypted=\"1\">*</Password></SpipeSite>"
      "<FTPSite Type=\"fallback\" Name=\"Ftp Fallback\" Order=\"5\" Server=\"&lt;X>:21\" Enabled=\"1\" "
      "SecurePort=\"990\" Local=\"0\"><RelativePath>&lt;X&gt;</RelativePath><UserName>anonymous</UserName>"
      "<Password Encrypted=\"1\">*</Password></FTPSite>"
      "<UNCSite Type=\"remediation\" Name=\"Unc Repo\" Order=\"6\" Server=\"&lt;X>\" Enabled=\"1\" Local=\"1\">"
      "<ShareName>%%lt%%X%%gt%%</ShareName><RelativePath>&lt;X&gt;</RelativePath><UseLoggedonUserAccount>1"
      "</UseLoggedonUserAccount><DomainName>&lt;X&gt;</DomainName><UserName>uncuser</UserName>"
      "<Password Encrypted=\"1\">*</Password></UNCSite>"
      "<LocalSite Type=\"repository\" Name=\"Local Repo\" Order=\"7\" Enabled=\"1\" Local=\"1\" "
      "Server=\"127.0.0.1\"><RelativePath>&lt;X&gt;</RelativePath><UseLoggedonUserAccount>0"
      "</UseLoggedonUserAccount><DomainName>&lt;X&gt;</DomainName><UserName>localuser</UserName>"
      "<Password Encrypted=\"1\">*</Password></LocalSite>"
      "<ProxyConfigList><ProxyConfig Name=\"P\" Local=\"1\" HttpProxyServer=\"&lt;X>\" HttpProxyPort=\"1\" "
      "FtpProxyServer=\"&lt;X>\" FtpProxyPort=\"2\"><AllowUserToConfigureProxy>0</AllowUserToConfigureProxy>"
      "<BypassLocalAddress>0</BypassLocalAddress><ExclusionList><ExclusionHost>&lt;X&gt;</ExclusionHost>"
      "</ExclusionList>" +
          std::string(kBareProxyTail),
      WrittenSites());

  EXPECT_STREQ(L"%%lt%%X%%gt%%", spipe->httpSite.szName);
  EXPECT_STREQ(L"<X>.example", spipe->httpSite.szServer);
  EXPECT_STREQ(L"<X>", spipe->httpSite.szServerName);
  EXPECT_STREQ(L"<X>", spipe->httpSite.szServerIP);
  EXPECT_STREQ(L"<X>", spipe->httpSite.szVersion);
  EXPECT_STREQ(L"a/<X>/b", spipe->httpSite.szRelativePath);
  EXPECT_STREQ(L"%%lt%%X%%gt%%", spipe->httpSite.szUserName);
  EXPECT_STREQ(L"<X>", ftp->ftpSite.szServer);
  EXPECT_STREQ(L"<X>", ftp->ftpSite.szRelativePath);
  EXPECT_STREQ(L"<X>", unc->uncSite.szServer);
  EXPECT_STREQ(L"<X>", unc->uncSite.szRelativePath);
  EXPECT_STREQ(L"<X>", unc->uncSite.szDomainName);
  EXPECT_STREQ(L"%%lt%%X%%gt%%", unc->uncSite.szShareName);
  EXPECT_STREQ(L"<X>", local->localSite.szRelativePath);
  EXPECT_STREQ(L"<X>", local->localSite.szDomainName);
  EXPECT_STREQ(L"<X>", proxy->proxySettings.szHttpProxyServer);
  EXPECT_STREQ(L"<X>", proxy->proxySettings.szFtpProxyServer);
  EXPECT_STREQ(L"<X>", proxy->proxySettings.szExclusionList);
}

TEST_F(SiteListWriterTest, SuperAgentNameAndAddressAreFormattedAndWrittenOnlyWhenNonEmpty) {
  tag_Site* s = m_list.append(SuperAgentWithNames());
  Set(s->httpSite.szServerName, L"%%lt%%N%%gt%%");
  Set(s->httpSite.szServerIP, L"");
  ASSERT_EQ(0, Write(m_list.head()));
  EXPECT_EQ(
      "<SuperAgentSite Type=\"repository\" Name=\"SA One\" Order=\"3\" Enabled=\"0\" Local=\"1\" SecurePort=\"8444\" "
      "Server=\"sa1.example:8081\" ServerName=\"&lt;N>:8082\"><RelativePath>Software</RelativePath><UseAuth>0"
      "</UseAuth><UserName>sauser</UserName><Password Encrypted=\"1\">*</Password></SuperAgentSite>",
      WrittenSites());
  EXPECT_STREQ(L"<N>", s->httpSite.szServerName);
}

}  // namespace
