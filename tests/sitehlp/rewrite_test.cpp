// Rewriting the helper's own site list document in place from another list:
// the vendor's default repositories, the SPIPE sites and the CA bundle, the
// key files of the new list, and everything else kept as it stands.
#include <gtest/gtest.h>
#include <errno.h>

#include <filesystem>
#include <string>
#include <vector>

#include "port/config/IConfiguration.h"
#include "port/crypto/KeyCache.h"
#include "port/fs/SysCalls.h"
#include "port/log/Log.h"
#include "port/xml/AnXml.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using testsupport::CapturingLogSink;
using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::Wide;
using testsupport::WriteFile;

const char kDecl[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const char kRootOpen[] =
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20240101000000\" LocalVersion=\"20240102030405\" "
    "Type=\"Client\" Extra=\"kept\">";
const char kPolicies[] = "<Policies><Setting name=\"OverwriteClientSites\">0</Setting></Policies>";
const char kOwnBundle[] = "<CaBundle><CaCertificate>own-cert</CaCertificate></CaBundle>";

std::string Doc(const std::string& sites, const std::string& before = kPolicies, const std::string& after = "") {
  return std::string(kDecl) + kRootOpen + before + "<SiteList Default=\"1\" Name=\"SomeGUID\">" + sites +
         "</SiteList>" + after + "</ns:SiteLists>";
}

// A site the client defined itself, with an attribute the library does not know.
const std::string kClientSite =
    "<HttpSite Type=\"repository\" Name=\"Branch\" Order=\"5\" Enabled=\"1\" Local=\"1\" Zone=\"east\" "
    "Server=\"branch.corp.example:8080\"><RelativePath>Updates</RelativePath><UseAuth>0</UseAuth>"
    "<UserName></UserName><Password Encrypted=\"1\"></Password></HttpSite>";
const std::string kProxy =
    "<ProxyConfigList><ProxyConfig Name=\"p\" Local=\"1\" HttpProxyServer=\"proxy.corp.example\" "
    "HttpProxyPort=\"8080\"><AllowUserToConfigureProxy>0</AllowUserToConfigureProxy><ExclusionList>"
    "<ExclusionHost>a.corp.example</ExclusionHost></ExclusionList></ProxyConfig></ProxyConfigList>";
const std::string kOwnSpipe =
    "<SpipeSite Type=\"master\" Name=\"Vantor_MasterSite\" Order=\"1\" Enabled=\"1\" Local=\"0\" "
    "Server=\"mgmt.corp.example:80\" ServerName=\"MGMT01:80\" ServerIP=\"192.0.2.10:80\" Version=\"5.1\">"
    "<RelativePath>Software</RelativePath><UseAuth>0</UseAuth><UserName></UserName>"
    "<Password Encrypted=\"1\"></Password></SpipeSite>";

std::string VendorHttp(const std::string& name, const std::string& type, const std::string& order,
                       const std::string& path = "Current") {
  return "<HttpSite Type=\"" + type + "\" Name=\"" + name + "\" Order=\"" + order +
         "\" Enabled=\"1\" Local=\"0\" Server=\"update.vlm.example:80\"><RelativePath>" + path +
         "</RelativePath><UseAuth>0</UseAuth><UserName>" + name + "-user</UserName>"
         "<Password Encrypted=\"1\">" + name + "-pw</Password></HttpSite>";
}

std::string VendorFtp(const std::string& name, const std::string& type, const std::string& order) {
  return "<FTPSite Type=\"" + type + "\" Name=\"" + name + "\" Order=\"" + order +
         "\" Server=\"ftp.vlm.example:21\" Enabled=\"1\" Local=\"0\"><RelativePath>Current</RelativePath>"
         "<UserName>anonymous</UserName><Password Encrypted=\"1\">" + name + "-pw</Password></FTPSite>";
}

// A vendor site as the rewrite re-creates it: Server first (the element is
// found or made by it), then the new site's attributes with the own order
// and type; the sub-elements copied one level deep.
std::string ReplacedHttp(const std::string& name, const std::string& type, const std::string& order) {
  return "<HttpSite Server=\"update.vlm.example:80\" Type=\"" + type + "\" Name=\"" + name + "\" Order=\"" + order +
         "\" Enabled=\"1\" Local=\"0\"><RelativePath>Current</RelativePath><UseAuth>0</UseAuth><UserName>" + name +
         "-user</UserName><Password Encrypted=\"1\">" + name + "-pw</Password></HttpSite>";
}

std::string ReplacedFtp(const std::string& name, const std::string& type, const std::string& order) {
  return "<FTPSite Server=\"ftp.vlm.example:21\" Type=\"" + type + "\" Name=\"" + name + "\" Order=\"" + order +
         "\" Enabled=\"1\" Local=\"0\"><RelativePath>Current</RelativePath><UserName>anonymous</UserName>"
         "<Password Encrypted=\"1\">" + name + "-pw</Password></FTPSite>";
}

std::string NewSpipe(const std::string& host, const std::string& order) {
  return "<SpipeSite Type=\"master\" Name=\"Vantor_MasterSite\" Order=\"" + order +
         "\" Enabled=\"1\" Local=\"0\" Server=\"" + host + ":443\" ServerName=\"" + host +
         "-nb:443\" ServerIP=\"192.0.2.20:443\"><RelativePath>Software</RelativePath><UseAuth>0</UseAuth>"
         "<UserName>agent</UserName><Password Encrypted=\"1\">sp-pw</Password></SpipeSite>";
}

std::string CopiedSpipe(const std::string& host) {
  return "<SpipeSite Type=\"master\" Name=\"Vantor_MasterSite\" Enabled=\"1\" Local=\"0\" Server=\"" + host +
         ":443\" ServerName=\"" + host +
         "-nb:443\" ServerIP=\"192.0.2.20:443\"><RelativePath>Software</RelativePath><UseAuth>0</UseAuth>"
         "<UserName>agent</UserName><Password Encrypted=\"1\">sp-pw</Password></SpipeSite>";
}

class SiteListRewriteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    port::ClearKeyCache();
    port::SetConfigValue(port::ConfigKey::DefaultHttpHost, "update.vlm.example");
    port::SetConfigValue(port::ConfigKey::DefaultFtpHost, "ftp.vlm.example");
    std::filesystem::create_directories(m_config.dir().file("new"));
  }
  void TearDown() override { port::ClearKeyCache(); }

  std::string OwnPath() const { return m_config.dataDir() + "/etc/SiteList.xml"; }
  std::string NewPath() const { return m_config.dir().file("new/SiteList.xml"); }
  bool Modify(bool bRepositories, bool bServer, const std::string& keyDir = std::string()) {
    const std::wstring path = Wide(NewPath());
    return m_helper.modifySiteList(path.c_str(), bRepositories, bServer, AString(Wide(keyDir)));
  }
  void WriteKeyPair2048() {
    WriteFile(m_config.dir().file("new/sr2048pubkey.bin"), "server-2048");
    WriteFile(m_config.dir().file("new/req2048seckey.bin"), "request-2048");
  }

  testsupport::ConfigScope m_config;
  CSitesHelper m_helper{Wide(m_config.dataDir() + "/etc/SiteList.xml")};
};

// ---- repository replacement ------------------------------------------------------------------

TEST_F(SiteListRewriteTest, VendorSitesTakeTheNewRankingWithTheOwnOrderNumbers) {
  WriteFile(OwnPath(), Doc(kOwnSpipe + VendorHttp("OwnHttp", "repository", "1") + kClientSite +
                           VendorFtp("OwnFtp", "repository", "2") + kProxy));
  WriteFile(NewPath(), Doc(VendorHttp("NewHttp", "repository", "4") + VendorFtp("NewFtp", "repository", "3")));
  ASSERT_TRUE(Modify(true, false));
  EXPECT_EQ(Doc(kOwnSpipe + kClientSite + kProxy + ReplacedHttp("NewHttp", "repository", "2") +
                ReplacedFtp("NewFtp", "repository", "1")),
            ReadFile(OwnPath()));
}

TEST_F(SiteListRewriteTest, SameRankingKeepsTheOwnOrders) {
  WriteFile(OwnPath(), Doc(VendorHttp("OwnHttp", "repository", "1") + VendorFtp("OwnFtp", "repository", "2")));
  WriteFile(NewPath(), Doc(VendorHttp("NewHttp", "repository", "3") + VendorFtp("NewFtp", "repository", "9")));
  ASSERT_TRUE(Modify(true, false));
  EXPECT_EQ(Doc(ReplacedHttp("NewHttp", "repository", "1") + ReplacedFtp("NewFtp", "repository", "2")),
            ReadFile(OwnPath()));
}

TEST_F(SiteListRewriteTest, OwnFallbackSiteIsNeverReRankedButStillReplaced) {
  WriteFile(OwnPath(), Doc(VendorHttp("OwnHttp", "fallback", "1") + VendorFtp("OwnFtp", "repository", "2")));
  WriteFile(NewPath(), Doc(VendorHttp("NewHttp", "repository", "4") + VendorFtp("NewFtp", "repository", "3")));
  ASSERT_TRUE(Modify(true, false));
  EXPECT_EQ(Doc(ReplacedHttp("NewHttp", "fallback", "1") + ReplacedFtp("NewFtp", "repository", "2")),
            ReadFile(OwnPath()));
}

TEST_F(SiteListRewriteTest, FallbackIsComparedWithItsExactCase) {
  WriteFile(OwnPath(), Doc(VendorHttp("OwnHttp", "Fallback", "1") + VendorFtp("OwnFtp", "repository", "2")));
  WriteFile(NewPath(), Doc(VendorHttp("NewHttp", "repository", "4") + VendorFtp("NewFtp", "repository", "3")));
  ASSERT_TRUE(Modify(true, false));
  EXPECT_EQ(Doc(ReplacedHttp("NewHttp", "Fallback", "2") + ReplacedFtp("NewFtp", "repository", "1")),
            ReadFile(OwnPath()));
}

TEST_F(SiteListRewriteTest, NewListLackingTheVendorFtpSiteReplacesOnlyTheHttpSite) {
  WriteFile(OwnPath(), Doc(VendorHttp("OwnHttp", "repository", "1") + VendorFtp("OwnFtp", "repository", "2") +
                           kClientSite));
  WriteFile(NewPath(), Doc(VendorHttp("NewHttp", "repository", "4")));
  ASSERT_TRUE(Modify(true, false));
  EXPECT_EQ(Doc(VendorFtp("OwnFtp", "repository", "2") + kClientSite + ReplacedHttp("NewHttp", "repository", "1")),
            ReadFile(OwnPath()));
}

TEST_F(SiteListRewriteTest, VendorSiteWithoutOrderIsLeftAlone) {
  const std::string ownHttp =
      "<HttpSite Type=\"repository\" Name=\"OwnHttp\" Enabled=\"1\" Server=\"update.vlm.example:80\"/>";
  WriteFile(OwnPath(), Doc(ownHttp + VendorFtp("OwnFtp", "repository", "x")));
  WriteFile(NewPath(), Doc(VendorHttp("NewHttp", "repository", "4") + VendorFtp("NewFtp", "repository", "3")));
  ASSERT_TRUE(Modify(true, false));
  EXPECT_EQ(Doc(ownHttp + VendorFtp("OwnFtp", "repository", "x")), ReadFile(OwnPath()));
}

TEST_F(SiteListRewriteTest, VendorSitesAreFoundByTheConfiguredHostsAndDefaultPorts) {
  port::SetConfigValue(port::ConfigKey::DefaultHttpHost, "mirror.vlm.example");
  const std::string ownOther = VendorHttp("OwnHttp", "repository", "1");  // update.vlm.example is no vendor host now
  const std::string ownVendor =
      "<HttpSite Type=\"repository\" Name=\"Configured\" Order=\"3\" Server=\"mirror.vlm.example:80\"/>";
  const std::string newVendor =
      "<HttpSite Type=\"repository\" Name=\"NewConfigured\" Order=\"7\" Server=\"mirror.vlm.example:80\"/>";
  WriteFile(OwnPath(), Doc(ownOther + ownVendor));
  WriteFile(NewPath(), Doc(newVendor + VendorHttp("NewHttp", "repository", "4")));
  ASSERT_TRUE(Modify(true, false));
  EXPECT_EQ(Doc(ownOther + "<HttpSite Server=\"mirror.vlm.example:80\" Type=\"repository\" Name=\"NewConfigured\" "
                           "Order=\"3\"/>"),
            ReadFile(OwnPath()));
}

// ---- server replacement --------------------------------------------------------------------

TEST_F(SiteListRewriteTest, ReplaceServerTakesBothNewSpipeSitesWithoutOrders) {
  WriteFile(OwnPath(), Doc(kOwnSpipe + kClientSite + kOwnSpipe + kProxy, std::string(kOwnBundle) + kPolicies));
  WriteFile(NewPath(), Doc(NewSpipe("mgmt2.corp.example", "1") + VendorHttp("NewHttp", "repository", "2") +
                               NewSpipe("mgmt3.corp.example", "2"),
                           "<CaBundle><CaCertificate>new-1</CaCertificate><CaCertificate>new-2</CaCertificate>"
                           "</CaBundle>"));
  ASSERT_TRUE(Modify(false, true));
  EXPECT_EQ(Doc(kClientSite + kProxy + CopiedSpipe("mgmt2.corp.example") + CopiedSpipe("mgmt3.corp.example"), kPolicies,
                "<CaBundle><CaCertificate>new-1</CaCertificate><CaCertificate>new-2</CaCertificate></CaBundle>"),
            ReadFile(OwnPath()));
}

TEST_F(SiteListRewriteTest, ReplaceServerWithoutNewBundleRemovesTheOwnBundleAndStillWrites) {
  WriteFile(OwnPath(), Doc(kOwnSpipe + kClientSite, std::string(kOwnBundle) + kPolicies));
  WriteFile(NewPath(), Doc(NewSpipe("mgmt2.corp.example", "1")));
  ASSERT_TRUE(Modify(false, true));
  EXPECT_EQ(Doc(kClientSite + CopiedSpipe("mgmt2.corp.example")), ReadFile(OwnPath()));
}

TEST_F(SiteListRewriteTest, BothEditsTogether) {
  WriteFile(OwnPath(), Doc(kOwnSpipe + VendorHttp("OwnHttp", "repository", "1") + VendorFtp("OwnFtp", "repository", "2"),
                           std::string(kOwnBundle) + kPolicies));
  WriteFile(NewPath(), Doc(NewSpipe("mgmt2.corp.example", "1") + VendorHttp("NewHttp", "repository", "4") +
                           VendorFtp("NewFtp", "repository", "3")));
  ASSERT_TRUE(Modify(true, true));
  EXPECT_EQ(Doc(ReplacedHttp("NewHttp", "repository", "2") + ReplacedFtp("NewFtp", "repository", "1") +
                CopiedSpipe("mgmt2.corp.example")),
            ReadFile(OwnPath()));
}

// ---- key files and what is kept ---------------------------------------------------------------

TEST_F(SiteListRewriteTest, BothFlagsFalseWritesTheOwnDocumentBackUnchangedAfterPlacingTheKeys) {
  const std::string own =
      std::string(kDecl) + kRootOpen + "<!-- managed by the agent -->" + kOwnBundle + kPolicies +
      "<SiteList Default=\"1\" Name=\"SomeGUID\" Custom=\"x\">" + kOwnSpipe + "<!-- client sites -->" + kClientSite +
      "<UNCSite Type=\"repository\" Name=\"Share\" Order=\"6\" Server=\"fs.corp.example\" Enabled=\"1\" Local=\"1\">"
      "<ShareName>repo</ShareName><RelativePath>a &amp; b</RelativePath><UseLoggedonUserAccount>1"
      "</UseLoggedonUserAccount><DomainName>CORP</DomainName><UserName/><Password Encrypted=\"1\"/></UNCSite>" +
      kProxy + "<Unknown a=\"1\">text</Unknown></SiteList></ns:SiteLists>";
  WriteFile(OwnPath(), own);
  WriteFile(NewPath(), Doc(kOwnSpipe));  // versioned: its key files must be placed
  WriteKeyPair2048();
  ASSERT_TRUE(Modify(false, false));
  EXPECT_EQ(own, ReadFile(OwnPath()));
  EXPECT_EQ("server-2048", ReadFile(m_config.dataDir() + "/etc/sr2048pubkey.bin"));
  EXPECT_EQ("request-2048", ReadFile(m_config.dataDir() + "/etc/req2048seckey.bin"));
}

TEST_F(SiteListRewriteTest, LaidOutDocumentKeepsItsLayoutThroughAnEdit) {
  const std::string head = std::string(kDecl) + kRootOpen +
                           "\n  <SiteList Default=\"1\" Name=\"SomeGUID\">\n"
                           "    <!-- vendor -->\n";
  const std::string tail = "  </SiteList>\n</ns:SiteLists>";
  WriteFile(OwnPath(), head + "    " + VendorHttp("OwnHttp", "repository", "1") + "\n    " + kClientSite + "\n" + tail);
  WriteFile(NewPath(), Doc(VendorHttp("NewHttp", "repository", "4")));
  ASSERT_TRUE(Modify(true, false));
  EXPECT_EQ(head + "    " + kClientSite + "\n    " + ReplacedHttp("NewHttp", "repository", "1") + "\n" + tail,
            ReadFile(OwnPath()));
}

TEST_F(SiteListRewriteTest, VersionedNewListWithoutKeyFilesFailsAndWritesNothing) {
  const std::string own = Doc(VendorHttp("OwnHttp", "repository", "1"));
  WriteFile(OwnPath(), own);
  WriteFile(NewPath(), Doc(kOwnSpipe + VendorHttp("NewHttp", "repository", "4")));
  EXPECT_FALSE(Modify(true, false));
  EXPECT_EQ(own, ReadFile(OwnPath()));
}

// The record of a change cannot be put in place: the change never happens.
int FailRecordRename(const char* from, const char* to) {
  const std::string target(to);
  if (target.size() >= 16 && target.compare(target.size() - 16, 16, "/.pending-change") == 0) {
    errno = EIO;
    return -1;
  }
  return port::RealSysCalls().rename(from, to);
}

TEST_F(SiteListRewriteTest, KeysAndListArePlacedTogetherOrNotAtAll) {
  const std::string own = Doc(VendorHttp("OwnHttp", "repository", "1"));
  WriteFile(OwnPath(), own);
  WriteFile(m_config.dataDir() + "/etc/sr2048pubkey.bin", "old server-2048");
  WriteFile(NewPath(), Doc(kOwnSpipe + VendorHttp("NewHttp", "repository", "4")));
  WriteKeyPair2048();
  {
    port::SysCalls table = port::RealSysCalls();
    table.rename = FailRecordRename;
    port::ScopedSysCallOverride failing(table);
    testsupport::CapturingLogSink log;
    EXPECT_FALSE(Modify(true, false));
    EXPECT_EQ(std::vector<std::wstring>{L"Unable to write the files of " + Wide(m_config.dataDir()) +
                                        L"/etc: Input/output error"},
              log.messages(port::LogLevel::Error));
  }
  EXPECT_EQ(own, ReadFile(OwnPath()));
  EXPECT_EQ("old server-2048", ReadFile(m_config.dataDir() + "/etc/sr2048pubkey.bin"));
  EXPECT_FALSE(testsupport::FileExists(m_config.dataDir() + "/etc/req2048seckey.bin"));
  // Without the fault both go in.
  ASSERT_TRUE(Modify(true, false));
  EXPECT_NE(own, ReadFile(OwnPath()));
  EXPECT_EQ("server-2048", ReadFile(m_config.dataDir() + "/etc/sr2048pubkey.bin"));
  EXPECT_EQ("request-2048", ReadFile(m_config.dataDir() + "/etc/req2048seckey.bin"));
}

TEST_F(SiteListRewriteTest, UnversionedNewListTakesTheServerKeyFromTheKeyDirectory) {
  WriteFile(OwnPath(), Doc(kClientSite));
  WriteFile(m_config.dataDir() + "/etc/reqseckey.bin", "stale request key");
  WriteFile(NewPath(), Doc(VendorHttp("NewHttp", "repository", "4")));
  std::filesystem::create_directories(m_config.dir().file("keys-in"));
  WriteFile(m_config.dir().file("keys-in/srpubkey.bin"), "server-classic");
  ASSERT_TRUE(Modify(false, false, m_config.dir().file("keys-in")));
  EXPECT_EQ("server-classic", ReadFile(m_config.dataDir() + "/etc/srpubkey.bin"));
  EXPECT_FALSE(FileExists(m_config.dataDir() + "/etc/reqseckey.bin"));
}

// ---- failures ------------------------------------------------------------------------------------

TEST_F(SiteListRewriteTest, MissingOwnListReturnsFalseAndCreatesNothing) {
  WriteFile(NewPath(), Doc(VendorHttp("NewHttp", "repository", "4")));
  EXPECT_FALSE(Modify(true, true));
  EXPECT_FALSE(FileExists(OwnPath()));
}

TEST_F(SiteListRewriteTest, MissingNewListReturnsFalseAndLeavesTheOwnList) {
  const std::string own = Doc(VendorHttp("OwnHttp", "repository", "1"));
  WriteFile(OwnPath(), own);
  EXPECT_FALSE(Modify(true, true));
  EXPECT_EQ(own, ReadFile(OwnPath()));
}

TEST_F(SiteListRewriteTest, GarbageNewListReturnsFalseAndLeavesTheOwnList) {
  const std::string own = Doc(VendorHttp("OwnHttp", "repository", "1"));
  WriteFile(OwnPath(), own);
  WriteFile(NewPath(), "\xFF\xFE<garbage");
  EXPECT_FALSE(Modify(true, true));
  EXPECT_EQ(own, ReadFile(OwnPath()));
}

TEST_F(SiteListRewriteTest, NewListWithAnotherNamespaceReturnsFalse) {
  const std::string own = Doc(VendorHttp("OwnHttp", "repository", "1"));
  WriteFile(OwnPath(), own);
  WriteFile(NewPath(), std::string(kDecl) + "<ns:SiteLists xmlns:ns=\"elsewhere\"><SiteList/></ns:SiteLists>");
  EXPECT_FALSE(Modify(true, false));
  EXPECT_EQ(own, ReadFile(OwnPath()));
}

TEST_F(SiteListRewriteTest, NewListWithoutSiteListReturnsFalseAndLeavesTheOwnList) {
  const std::string own = Doc(VendorHttp("OwnHttp", "repository", "1"));
  WriteFile(OwnPath(), own);
  WriteFile(NewPath(), std::string(kDecl) + kRootOpen + kPolicies + "</ns:SiteLists>");
  EXPECT_FALSE(Modify(false, true));
  EXPECT_EQ(own, ReadFile(OwnPath()));
}

TEST_F(SiteListRewriteTest, OwnListWithoutSiteListReturnsFalse) {
  const std::string own = std::string(kDecl) + kRootOpen + kPolicies + "</ns:SiteLists>";
  WriteFile(OwnPath(), own);
  WriteFile(NewPath(), Doc(VendorHttp("NewHttp", "repository", "4")));
  EXPECT_FALSE(Modify(false, false));
  EXPECT_EQ(own, ReadFile(OwnPath()));
}

TEST_F(SiteListRewriteTest, NewListWithoutSitesFailsTheReadAndWritesNothing) {
  const std::string own = Doc(VendorHttp("OwnHttp", "repository", "1"));
  WriteFile(OwnPath(), own);
  WriteFile(NewPath(), Doc(""));
  CapturingLogSink sink;
  EXPECT_FALSE(Modify(false, true));
  EXPECT_EQ(own, ReadFile(OwnPath()));
  EXPECT_EQ((std::vector<std::wstring>{L"Failed hr=0"}), sink.messages(port::LogLevel::Error));
}

TEST_F(SiteListRewriteTest, NullNewPathReturnsFalse) {
  const std::string own = Doc(VendorHttp("OwnHttp", "repository", "1"));
  WriteFile(OwnPath(), own);
  EXPECT_FALSE(m_helper.modifySiteList(nullptr, true, true, AString()));
  EXPECT_EQ(own, ReadFile(OwnPath()));
}

TEST_F(SiteListRewriteTest, TheRewriteIsTracedUnderTheServerComponent) {
  WriteFile(OwnPath(), Doc(kClientSite));
  WriteFile(NewPath(), Doc(VendorHttp("NewHttp", "repository", "4")));
  CapturingLogSink sink;
  ASSERT_TRUE(Modify(false, false));
  ASSERT_LE(2u, sink.lines().size());
  EXPECT_EQ(L"StSHlp", sink.lines().front().component);
  EXPECT_EQ(L"Entering modifying site list", sink.lines().front().message);
  EXPECT_EQ(L"StSHlp", sink.lines().back().component);
  EXPECT_EQ(L"Leaving modifying site list", sink.lines().back().message);
}

// ---- the document operations on their own ------------------------------------------------------

class XmlCopyTest : public ::testing::Test {
 protected:
  // Opens text as a site list document; the root node.
  AnXmlNode Open(AnXml& xml, const std::string& name, const std::string& inner) {
    WriteFile(m_dir.file(name), std::string(kDecl) + "<ns:SiteLists xmlns:ns=\"zelSiteList\">" + inner +
                                    "</ns:SiteLists>");
    EXPECT_EQ(1, xml.useExistingFile(AString(m_dir.wfile(name)), L"ns:SiteLists", L"xmlns:ns", L"zelSiteList"));
    return xml.getRootNode();
  }
  AnXmlNode Child(const AnXmlNode& parent, const wchar_t* name) {
    AnXmlNode child;
    EXPECT_TRUE(parent.getExistingChild(name, child));
    return child;
  }
  std::string Written(AnXml& xml) {
    EXPECT_EQ(1, xml.writeFile(AString(m_dir.wfile("out.xml")), false, false));
    const std::string text = ReadFile(m_dir.file("out.xml"));
    const std::string open = std::string(kDecl) + "<ns:SiteLists xmlns:ns=\"zelSiteList\">";
    return text.substr(open.size(), text.size() - open.size() - std::string("</ns:SiteLists>").size());
  }

  testsupport::TempDir m_dir;
  testsupport::ConfigScope m_config;
  CSitesHelper m_helper{Wide(m_dir.file("unused.xml"))};
  AnXml m_src;
  AnXml m_dst;
};

TEST_F(XmlCopyTest, CopyXmlAttributesAlterSetsTheOrderAndTypeGivenAndCopiesTheRest) {
  AnXmlNode src = Child(Open(m_src, "s.xml", "<S Type=\"repository\" Order=\"4\" Name=\"n\">t</S>"), L"S");
  AnXmlNode dst = Child(Open(m_dst, "d.xml", "<D Order=\"1\" Keep=\"k\"/>"), L"D");
  m_helper.copyXmlAttributesAlter(src, dst, 7, L"fallback");
  EXPECT_EQ("<D Order=\"7\" Keep=\"k\" Type=\"fallback\" Name=\"n\">t</D>", Written(m_dst));
}

TEST_F(XmlCopyTest, CopyXmlAttributesAlterWithOrderZeroLeavesTheDestinationOrder) {
  AnXmlNode src = Child(Open(m_src, "s.xml", "<S Type=\"master\" Order=\"4\"/>"), L"S");
  AnXmlNode with = Child(Open(m_dst, "d.xml", "<D Order=\"1\"/><E/>"), L"D");
  AnXmlNode without = Child(m_dst.getRootNode(), L"E");
  m_helper.copyXmlAttributesAlter(src, with, 0, L"");
  m_helper.copyXmlAttributesAlter(src, without, 0, L"");
  EXPECT_EQ("<D Order=\"1\" Type=\"master\"/><E Type=\"master\"/>", Written(m_dst));
}

TEST_F(XmlCopyTest, CopyXmlAttributesAlterOfASourceWithoutTextLeavesNoAttributeValueAsText) {
  AnXmlNode src = Child(Open(m_src, "s.xml", "<S Name=\"n\" Version=\"5.1\"><Child/></S>"), L"S");
  AnXmlNode dst = Child(Open(m_dst, "d.xml", "<D>old</D>"), L"D");
  m_helper.copyXmlAttributesAlter(src, dst, 0, L"");
  EXPECT_EQ("<D Name=\"n\" Version=\"5.1\"></D>", Written(m_dst));
}

TEST_F(XmlCopyTest, CopyXmlAttributesCopiesEveryAttributeAndTheText) {
  AnXmlNode src = Child(Open(m_src, "s.xml", "<Password Encrypted=\"1\" Order=\"3\" Type=\"t\">secret</Password>"),
                        L"Password");
  AnXmlNode dst = Child(Open(m_dst, "d.xml", "<Password Type=\"old\"/>"), L"Password");
  m_helper.copyXmlAttributes(src, dst);
  EXPECT_EQ("<Password Type=\"t\" Encrypted=\"1\" Order=\"3\">secret</Password>", Written(m_dst));
}

TEST_F(XmlCopyTest, CopyXmlSubNodesCopiesOneLevelAndFoldsChildrenOfOneName) {
  AnXmlNode src = Child(Open(m_src, "s.xml",
                             "<S><RelativePath>p</RelativePath><Host a=\"1\">one</Host><Host b=\"2\">two</Host>"
                             "<Deep><Grand/></Deep></S>"),
                        L"S");
  AnXmlNode dst = Child(Open(m_dst, "d.xml", "<D><RelativePath>old</RelativePath></D>"), L"D");
  m_helper.copyXmlSubNodes(src, dst);
  EXPECT_EQ("<D><RelativePath>p</RelativePath><Host a=\"1\" b=\"2\">two</Host><Deep/></D>", Written(m_dst));
}

TEST_F(XmlCopyTest, ReplaceZelRepositoryMovesTheSiteToTheEnd) {
  AnXmlNode newSite =
      Child(Open(m_src, "s.xml", "<HttpSite Type=\"repository\" Order=\"9\" Server=\"h:80\"><UseAuth>1</UseAuth>"
                                 "</HttpSite>"),
            L"HttpSite");
  AnXmlNode ownSiteList = Child(Open(m_dst, "d.xml", "<SiteList><HttpSite Server=\"h:80\" Order=\"2\"/><X/></SiteList>"),
                                L"SiteList");
  AnXmlNode ownSite = Child(ownSiteList, L"HttpSite");
  m_helper.replaceZelRepository(newSite, ownSiteList, ownSite, 2, L"mirror");
  EXPECT_EQ(L"HttpSite", ownSite.getName());
  EXPECT_EQ("<SiteList><X/><HttpSite Server=\"h:80\" Type=\"mirror\" Order=\"2\"><UseAuth>1</UseAuth></HttpSite>"
            "</SiteList>",
            Written(m_dst));
}

TEST_F(XmlCopyTest, DoReplaceVantorSiteAnswersWhetherTheBundleWasCopied) {
  AnXmlNode newRoot = Open(m_src, "s.xml", "<SiteList/><CaBundle><CaCertificate>c</CaCertificate></CaBundle>");
  AnXmlNode ownRoot = Open(m_dst, "d.xml", "<CaBundle/><SiteList><SpipeSite/></SiteList>");
  EXPECT_TRUE(m_helper.doReplaceVantorSite(ownRoot, newRoot));
  EXPECT_EQ("<SiteList/><CaBundle><CaCertificate>c</CaCertificate></CaBundle>", Written(m_dst));
}

TEST_F(XmlCopyTest, DoReplaceVantorSiteWithoutNewSiteListChangesNothing) {
  AnXmlNode newRoot = Open(m_src, "s.xml", "<CaBundle/>");
  AnXmlNode ownRoot = Open(m_dst, "d.xml", "<CaBundle/><SiteList><SpipeSite/></SiteList>");
  EXPECT_FALSE(m_helper.doReplaceVantorSite(ownRoot, newRoot));
  EXPECT_EQ("<CaBundle/><SiteList><SpipeSite/></SiteList>", Written(m_dst));
}

}  // namespace
