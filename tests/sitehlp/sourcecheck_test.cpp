// Checks on an outside site list: every rule logged in order, the SPIPE site
// look-up failures, only the first SPIPE site checked, and the key file
// presence rules of a versioned management server.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sitehlp/OutsideListText.h"
#include "sitehlp/SiteRecordTestUtil.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using port::LogLevel;
using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using sitetest::NewSite;
using sitetest::Set;
using sitetest::SiteList;
using testsupport::Narrow;
using testsupport::Wide;
using testsupport::WriteFile;
using Texts = std::vector<std::wstring>;

// A SPIPE record that passes every rule.
tag_Site* GoodSpipeSite(const std::wstring& name = L"Vantor_BranchServer") {
  tag_Site* site = NewSite(sitehlp::SITE_TYPE_HTTP);
  site->bEnabled = 1;
  site->nOrder = 1;
  Set(site->szType, L"master");
  Set(site->httpSite.szSiteElement, L"SpipeSite");
  Set(site->httpSite.szName, name);
  Set(site->httpSite.szServer, L"mgmt.branch.example");
  Set(site->httpSite.szServerIP, L"198.51.100.20");
  Set(site->httpSite.szServerName, L"BRANCH01");
  Set(site->httpSite.szRelativePath, L"Software");
  return site;
}

tag_Site* RepositorySite() {
  tag_Site* site = NewSite(sitehlp::SITE_TYPE_HTTP);
  site->bEnabled = 1;
  Set(site->szType, L"repository");
  Set(site->httpSite.szSiteElement, L"HttpSite");
  Set(site->httpSite.szName, L"VendorHttp");
  Set(site->httpSite.szServer, L"update.vlm.example");
  return site;
}

class SourceCheckTest : public ::testing::Test {
 protected:
  testsupport::ConfigScope m_config;
  testsupport::CapturingLogSink m_log;
  CSitesHelper m_helper;
};

TEST_F(SourceCheckTest, NullListUnmanagedFailsWithMinus9AndLogsOnlyNoSites) {
  m_log.clear();
  EXPECT_EQ(-9, m_helper.SourceSiteListCheck(nullptr, false));
  EXPECT_EQ(Texts{L"no sites in site list"}, m_log.allMessages());
  EXPECT_EQ(Texts{L"no sites in site list"}, m_log.messages(LogLevel::Info));
}

TEST_F(SourceCheckTest, NullListManagedLogsNoSitesThenFailedToGetSpipeSiteMinus2) {
  m_log.clear();
  EXPECT_EQ(-2, m_helper.SourceSiteListCheck(nullptr, true));
  EXPECT_EQ((Texts{L"no sites in site list", L"Failed to get SPIPE site hr=-2"}), m_log.allMessages());
  EXPECT_EQ(Texts{L"Failed to get SPIPE site hr=-2"}, m_log.messages(LogLevel::Error));
}

TEST_F(SourceCheckTest, ListWithoutSpipeSiteManagedFailsWithMinus8) {
  SiteList list(m_helper);
  list.append(RepositorySite());
  m_log.clear();
  EXPECT_EQ(-8, m_helper.SourceSiteListCheck(list.head(), true));
  EXPECT_EQ(Texts{L"Failed to get SPIPE site hr=-8"}, m_log.messages(LogLevel::Error));
  EXPECT_EQ(Texts{L"Failed to get SPIPE site hr=-8"}, m_log.allMessages());
}

TEST_F(SourceCheckTest, AnyListUnmanagedPassesWithoutLookingAtItsSites) {
  SiteList list(m_helper);
  list.append(RepositorySite());
  m_log.clear();
  EXPECT_EQ(0, m_helper.SourceSiteListCheck(list.head(), false));
  EXPECT_TRUE(m_log.allMessages().empty());
}

TEST_F(SourceCheckTest, AGoodSpipeSiteWithoutVersionPassesAndOpensTheTraceScope) {
  SiteList list(m_helper);
  list.append(RepositorySite());
  list.append(GoodSpipeSite());
  m_log.clear();
  EXPECT_EQ(0, m_helper.SourceSiteListCheck(list.head(), true));
  EXPECT_TRUE(m_log.allMessages().empty());
  bool entered = false;
  for (const auto& line : m_log.lines())
    if (line.message == L"Entering SPIPE site checks" && line.component == L"SiteHlp") entered = true;
  EXPECT_TRUE(entered);
}

TEST_F(SourceCheckTest, EmptyNameAndEmptyPathLogBothLinesInRuleOrder) {
  SiteList list(m_helper);
  tag_Site* spipe = list.append(GoodSpipeSite());
  Set(spipe->httpSite.szName, L"");
  Set(spipe->httpSite.szRelativePath, L"");
  m_log.clear();
  EXPECT_EQ(-9, m_helper.SourceSiteListCheck(list.head(), true));
  EXPECT_EQ((Texts{L"name cannot be empty", L"path cannot be empty"}), m_log.messages(LogLevel::Info));
  EXPECT_TRUE(m_log.messages(LogLevel::Error).empty());
}

TEST_F(SourceCheckTest, EveryFailingRuleIsLoggedWithoutStoppingAtTheFirst) {
  SiteList list(m_helper);
  tag_Site* spipe = list.append(GoodSpipeSite());
  spipe->bLocal = 1;
  Set(spipe->szType, L"repository");
  Set(spipe->httpSite.szName, L"");
  Set(spipe->httpSite.szServer, L"");
  Set(spipe->httpSite.szServerIP, L"");
  Set(spipe->httpSite.szServerName, L"");
  Set(spipe->httpSite.szRelativePath, L"");
  m_log.clear();
  EXPECT_EQ(-9, m_helper.SourceSiteListCheck(list.head(), true));
  EXPECT_EQ((Texts{L"must not be local", L"site type must be master not repository", L"name cannot be empty",
                   L"server name cannot be empty", L"SPIPE IP address cannot be empty",
                   L"computer name cannot be empty", L"path cannot be empty"}),
            m_log.messages(LogLevel::Info));
}

TEST_F(SourceCheckTest, TheMasterTypeIsComparedWithoutRegardToCase) {
  SiteList list(m_helper);
  Set(list.append(GoodSpipeSite())->szType, L"MASTER");
  EXPECT_EQ(0, m_helper.SourceSiteListCheck(list.head(), true));
}

TEST_F(SourceCheckTest, OnlyTheFirstSpipeSiteIsChecked) {
  SiteList list(m_helper);
  list.append(GoodSpipeSite(L"First"));
  tag_Site* second = list.append(GoodSpipeSite(L"Second"));
  Set(second->httpSite.szName, L"");
  second->bLocal = 1;
  m_log.clear();
  EXPECT_EQ(0, m_helper.SourceSiteListCheck(list.head(), true));
  EXPECT_TRUE(m_log.allMessages().empty());

  // The other way round the faulty site is the first one and fails.
  SiteList reversed(m_helper);
  tag_Site* first = reversed.append(GoodSpipeSite(L"First"));
  Set(first->httpSite.szName, L"");
  reversed.append(GoodSpipeSite(L"Second"));
  m_log.clear();
  EXPECT_EQ(-9, m_helper.SourceSiteListCheck(reversed.head(), true));
  EXPECT_EQ(Texts{L"name cannot be empty"}, m_log.messages(LogLevel::Info));
}

TEST_F(SourceCheckTest, TheCheckLeavesTheListUnchanged) {
  SiteList list(m_helper);
  list.append(GoodSpipeSite());
  list.append(RepositorySite());
  tag_Site* before = sitetest::CopyList(list.head());
  SiteList copy(m_helper, before);
  EXPECT_EQ(0, m_helper.SourceSiteListCheck(list.head(), true));
  EXPECT_TRUE(sitetest::ListsEqual(copy.head(), list.head()));
}

// ---- key files of a versioned management server, from a source file ----

class KeyPresenceTest : public ::testing::Test {
 protected:
  // Writes an outside list (SPIPE site with or without version) and reads it,
  // so that it is the list this helper read last.
  int Check(const std::string& version) {
    outsidelist::SpipeSiteText spipe;
    spipe.version = version;
    WriteFile(m_source.file("SiteList.xml"), outsidelist::Document({outsidelist::SpipeSite(spipe)}));
    SiteList list(m_helper);
    EXPECT_EQ(0, m_helper.ReadSiteList(m_source.wfile("SiteList.xml"), list.out()));
    m_log.clear();
    return m_helper.SourceSiteListCheck(list.head(), true);
  }
  std::wstring Path(const std::string& name) const { return m_source.wfile(name); }

  testsupport::ConfigScope m_config;
  testsupport::TempDir m_source;
  testsupport::CapturingLogSink m_log;
  CSitesHelper m_helper;
};

TEST_F(KeyPresenceTest, ASpipeSiteWithoutVersionPassesWithoutAnyKeyFile) {
  EXPECT_EQ(0, Check(""));
  EXPECT_TRUE(m_log.allMessages().empty());
}

TEST_F(KeyPresenceTest, AVersionedSpipeSiteWithoutKeyFilesLogsBothPairs) {
  EXPECT_EQ(-9, Check("5.10.2"));
  EXPECT_EQ((Texts{Path("reqseckey.bin") + L" or " + Path("req2048seckey.bin") + L" is invalid",
                   Path("srpubkey.bin") + L" or " + Path("sr2048pubkey.bin") + L" is invalid"}),
            m_log.messages(LogLevel::Info));
}

TEST_F(KeyPresenceTest, The2048RequestKeyAloneSatisfiesTheRequestPair) {
  WriteFile(m_source.file("req2048seckey.bin"), "request");
  WriteFile(m_source.file("srpubkey.bin"), "public");
  EXPECT_EQ(0, Check("5.10.2"));
  EXPECT_TRUE(m_log.allMessages().empty());
}

TEST_F(KeyPresenceTest, AnEmptyClassicRequestKeyBesideAValid2048OnePasses) {
  WriteFile(m_source.file("reqseckey.bin"), "");
  WriteFile(m_source.file("req2048seckey.bin"), "request");
  WriteFile(m_source.file("sr2048pubkey.bin"), "public");
  EXPECT_EQ(0, Check("5.10.2"));
  EXPECT_TRUE(m_log.allMessages().empty());
}

TEST_F(KeyPresenceTest, EmptyFilesDoNotCount) {
  WriteFile(m_source.file("reqseckey.bin"), "");
  WriteFile(m_source.file("req2048seckey.bin"), "");
  WriteFile(m_source.file("srpubkey.bin"), "public");
  EXPECT_EQ(-9, Check("5.10.2"));
  EXPECT_EQ(Texts{Path("reqseckey.bin") + L" or " + Path("req2048seckey.bin") + L" is invalid"},
            m_log.messages(LogLevel::Info));
}

TEST_F(KeyPresenceTest, AMissingServerKeyIsReportedAfterTheOtherRules) {
  WriteFile(m_source.file("reqseckey.bin"), "request");
  outsidelist::SpipeSiteText spipe;
  spipe.relativePath = "";
  WriteFile(m_source.file("SiteList.xml"), outsidelist::Document({outsidelist::SpipeSite(spipe)}));
  SiteList list(m_helper);
  ASSERT_EQ(0, m_helper.ReadSiteList(m_source.wfile("SiteList.xml"), list.out()));
  m_log.clear();
  EXPECT_EQ(-9, m_helper.SourceSiteListCheck(list.head(), true));
  EXPECT_EQ((Texts{L"path cannot be empty", Path("srpubkey.bin") + L" or " + Path("sr2048pubkey.bin") + L" is invalid"}),
            m_log.messages(LogLevel::Info));
}

// ---- ValidateSiteListForInstall ----

TEST_F(KeyPresenceTest, ValidateAnswers1ForAListThatPassesAndTracesItsArguments) {
  WriteFile(m_source.file("reqseckey.bin"), "request");
  WriteFile(m_source.file("srpubkey.bin"), "public");
  outsidelist::SpipeSiteText spipe;
  WriteFile(m_source.file("SiteList.xml"), outsidelist::Document({outsidelist::SpipeSite(spipe)}));
  m_log.clear();
  EXPECT_EQ(1, m_helper.ValidateSiteListForInstall(m_source.wfile("SiteList.xml"), true));
  ASSERT_FALSE(m_log.lines().empty());
  EXPECT_EQ(L"Entering ValidateSiteListForInstall," + Path("SiteList.xml"), m_log.lines().front().message);
}

TEST_F(KeyPresenceTest, ValidateAnswers0WhenAnyRuleFails) {
  outsidelist::SpipeSiteText spipe;
  spipe.version = "";
  spipe.name = "";
  WriteFile(m_source.file("SiteList.xml"), outsidelist::Document({outsidelist::SpipeSite(spipe)}));
  m_log.clear();
  EXPECT_EQ(0, m_helper.ValidateSiteListForInstall(m_source.wfile("SiteList.xml"), true));
  EXPECT_EQ(Texts{L"name cannot be empty"}, m_log.messages(LogLevel::Info));
  // Unmanaged, the SPIPE rules do not apply.
  EXPECT_EQ(1, m_helper.ValidateSiteListForInstall(m_source.wfile("SiteList.xml"), false));
}

TEST_F(KeyPresenceTest, ValidateAnswers0ForAMissingFileAndAListWithoutSites) {
  m_log.clear();
  EXPECT_EQ(0, m_helper.ValidateSiteListForInstall(m_source.wfile("missing.xml"), false));
  EXPECT_EQ(Texts{L"Failed hr=-4"}, m_log.messages(LogLevel::Error));
  WriteFile(m_source.file("SiteList.xml"), outsidelist::Document({}));
  m_log.clear();
  EXPECT_EQ(0, m_helper.ValidateSiteListForInstall(m_source.wfile("SiteList.xml"), false));
  EXPECT_EQ(Texts{L"Failed hr=0"}, m_log.messages(LogLevel::Error));
}

}  // namespace
