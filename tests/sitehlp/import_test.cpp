// Import and install of an outside site list: the policy warning, the checks
// only on import, the order correction, the source's versions, type and
// certificates in the written list, key files and list placed as one change
// (whatever step a crash stops), and a failed
// import leaving the agent's list byte for byte as it was, also when the
// importing process is killed.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <random>
#include <regex>
#include <string>
#include <vector>

#include "sitehlp/OutsideListText.h"
#include "sitehlp/SiteRecordTestUtil.h"
#include "sitehlp/SitesHelper.h"
#include "support/StopAt.h"
#include "support/TestSupport.h"

namespace {

using port::LogLevel;
using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using sitetest::SiteList;
using testsupport::FileExists;
using testsupport::Narrow;
using testsupport::ReadFile;
using testsupport::Wide;
using testsupport::WriteFile;
using Texts = std::vector<std::wstring>;

const char kCertificate1[] = "-----BEGIN CERTIFICATE-----\nMIIBbranch1\n-----END CERTIFICATE-----";
const char kCertificate2[] = "-----BEGIN CERTIFICATE-----\nMIIBbranch2\n-----END CERTIFICATE-----";

// The agent's list before any import.
const std::string kOwnList = outsidelist::Document(
    {outsidelist::HttpSite("OwnHttp", "own.corp.example:80", 1)},
    "GlobalVersion=\"20250101000000\" LocalVersion=\"20250101000001\" Type=\"Client\"");

struct stat StatOf(const std::string& path) {
  struct stat st {};
  lstat(path.c_str(), &st);
  return st;
}

class ImportTest : public ::testing::Test {
 protected:
  ImportTest() : m_target(m_config.dataDir() + "/etc") {
    WriteFile(Target("SiteList.xml"), kOwnList);
    // The first encryption creates the key and says so; do it here so the
    // tests see only the lines of the operation under test.
    std::wstring encrypted;
    m_helper.EncryptPassword(L"warm-up", encrypted);
  }

  // A versioned source with both classic keys beside it.
  void WriteVersionedSource(const outsidelist::SpipeSiteText& spipe = {}, bool withKeys = true) {
    WriteFile(m_source.file("SiteList.xml"),
              outsidelist::Document({outsidelist::SpipeSite(spipe),
                                     outsidelist::HttpSite("VendorHttp", "update.vlm.example:80", 3),
                                     outsidelist::FtpSite("VendorFtp", "ftp.vlm.example:21", 2)},
                                    "GlobalVersion=\"20261101090000\" LocalVersion=\"20261101091500\" Type=\"Branch\"",
                                    outsidelist::CaBundle({kCertificate1, kCertificate2})));
    if (withKeys) {
      WriteFile(m_source.file("srpubkey.bin"), "server key");
      WriteFile(m_source.file("reqseckey.bin"), "request key");
    }
  }
  // An unversioned list without any SPIPE site.
  void WriteRepositoryOnlySource() {
    WriteFile(m_source.file("SiteList.xml"),
              outsidelist::Document({outsidelist::HttpSite("Mirror", "mirror.branch.example:8080", 1)}));
  }
  std::wstring Source() const { return m_source.wfile("SiteList.xml"); }
  std::string Target(const std::string& name) const { return m_target + "/" + name; }
  int Import(const std::wstring& keyDir = L"") {
    m_log.clear();
    return m_helper.ImportSiteList(Source(), keyDir);
  }
  void ExpectOwnListUntouched() { EXPECT_EQ(kOwnList, ReadFile(Target("SiteList.xml"))); }
  bool Traced(const std::wstring& message) const {
    for (const auto& line : m_log.lines())
      if (line.message == message && line.component == L"SiteHlp") return true;
    return false;
  }

  testsupport::ConfigScope m_config;
  testsupport::TempDir m_source;
  testsupport::CapturingLogSink m_log;
  CSitesHelper m_helper;
  std::string m_target;
};

TEST_F(ImportTest, WithOverwriteClientSitesSetTo1TheWarningIsLoggedAndTheImportCompletes) {
  WriteVersionedSource();
  m_helper.SetPolicySetting(L"OverwriteClientSites", L"1");
  EXPECT_EQ(0, Import());
  EXPECT_EQ((Texts{L"WARNING: imported site list \"" + Source() + L"\" will be overwritten by Vantor site list",
                   L"Exchanged orders for ZelHttp and ZelFtp."}),
            m_log.messages(LogLevel::Info));
  EXPECT_TRUE(m_log.messages(LogLevel::Warning).empty());
  EXPECT_NE(kOwnList, ReadFile(Target("SiteList.xml")));
}

TEST_F(ImportTest, WithOverwriteClientSitesSetTo0NoWarningIsLogged) {
  WriteVersionedSource();
  m_helper.SetPolicySetting(L"OverwriteClientSites", L"0");
  EXPECT_EQ(0, Import());
  EXPECT_TRUE(m_log.messages(LogLevel::Warning).empty());
  // The only information line is the order correction of this source.
  EXPECT_EQ(Texts{L"Exchanged orders for ZelHttp and ZelFtp."}, m_log.messages(LogLevel::Info));
}

TEST_F(ImportTest, WithoutTheOverwriteSettingNoWarningIsLogged) {
  WriteVersionedSource();
  EXPECT_EQ(0, Import());
  EXPECT_TRUE(m_log.messages(LogLevel::Warning).empty());
  // The only information line is the order correction of this source.
  EXPECT_EQ(Texts{L"Exchanged orders for ZelHttp and ZelFtp."}, m_log.messages(LogLevel::Info));
  EXPECT_TRUE(m_log.messages(LogLevel::Error).empty());
}

TEST_F(ImportTest, AnUnmanagedAgentImportsAListWithoutSpipeSite) {
  WriteRepositoryOnlySource();
  m_helper.SetManagedOverride(-2);
  EXPECT_EQ(0, Import());
  SiteList list(m_helper);
  ASSERT_EQ(0, m_helper.ReadSiteList(L"", list.out()));
  ASSERT_EQ(1u, list.size());
  EXPECT_STREQ(L"Mirror", list.head()->httpSite.szName);
}

TEST_F(ImportTest, AManagedAgentRefusesAListWithoutSpipeSiteWithMinus8) {
  WriteRepositoryOnlySource();
  m_helper.SetManagedOverride(-1);
  EXPECT_EQ(-8, Import());
  EXPECT_EQ(Texts{L"Failed to get SPIPE site hr=-8"}, m_log.messages(LogLevel::Error));
  ExpectOwnListUntouched();
}

TEST_F(ImportTest, InstallAcceptsAListThatImportRefuses) {
  outsidelist::SpipeSiteText spipe;
  spipe.relativePath = "";
  WriteVersionedSource(spipe);
  m_helper.SetManagedOverride(-1);
  EXPECT_EQ(-9, Import());
  EXPECT_EQ(Texts{L"path cannot be empty"}, m_log.messages(LogLevel::Info));
  ExpectOwnListUntouched();

  m_log.clear();
  EXPECT_EQ(0, m_helper.InstallSiteList(Source(), L""));
  SiteList list(m_helper);
  ASSERT_EQ(0, m_helper.ReadSiteList(L"", list.out()));
  EXPECT_STREQ(L"SpipeSite", list.head()->httpSite.szSiteElement);
  EXPECT_STREQ(L"", list.head()->httpSite.szRelativePath);
}

TEST_F(ImportTest, TheWrittenListCarriesTheSourceVersionsTypeAndCertificates) {
  WriteVersionedSource();
  m_helper.SetManagedOverride(-1);
  EXPECT_EQ(0, Import());
  std::wstring global, local, type;
  ASSERT_EQ(0, m_helper.GetSitelistVersions(Wide(Target("SiteList.xml")), global, local, type));
  EXPECT_EQ(L"20261101090000", global);
  EXPECT_EQ(L"20261101091500", local);
  EXPECT_EQ(L"Branch", type);
  std::vector<std::wstring> certificates;
  ASSERT_EQ(0, m_helper.GetCaCertificates(Wide(Target("SiteList.xml")), certificates));
  EXPECT_EQ((Texts{Wide(kCertificate1), Wide(kCertificate2)}), certificates);
}

TEST_F(ImportTest, TheDefaultHttpAndFtpSitesHaveTheirOrdersExchangedWhenFtpRankedFirst) {
  WriteVersionedSource();
  EXPECT_EQ(0, Import());
  SiteList list(m_helper);
  ASSERT_EQ(0, m_helper.ReadSiteList(L"", list.out()));
  ASSERT_EQ(3u, list.size());
  EXPECT_STREQ(L"VendorHttp", list.at(1)->httpSite.szName);
  EXPECT_EQ(2, list.at(1)->nOrder);
  EXPECT_STREQ(L"VendorFtp", list.at(2)->ftpSite.szName);
  EXPECT_EQ(3, list.at(2)->nOrder);
  EXPECT_TRUE(m_log.contains(L"Exchanged orders for ZelHttp and ZelFtp."));
}

TEST_F(ImportTest, TheKeyFilesArePlacedBesideTheAgentsList) {
  WriteVersionedSource();
  EXPECT_EQ(0, Import());
  EXPECT_EQ("server key", ReadFile(Target("srpubkey.bin")));
  EXPECT_EQ("request key", ReadFile(Target("reqseckey.bin")));
  struct stat st {};
  ASSERT_EQ(0, stat(Target("reqseckey.bin").c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 07777);
}

TEST_F(ImportTest, TraceScopesAndDetailLinesNameTheSourceAndTarget) {
  WriteVersionedSource();
  EXPECT_EQ(0, Import());
  EXPECT_TRUE(Traced(L"Entering ImportSiteList," + Source()));
  EXPECT_TRUE(Traced(L"Leaving ImportSiteList," + Source()));
  const std::wstring own = Wide(Target("SiteList.xml"));
  const Texts detail = m_log.messages(LogLevel::Detail);
  EXPECT_NE(std::find(detail.begin(), detail.end(), L"Import sitelist from " + Source() + L" to " + own),
            detail.end());
  EXPECT_NE(std::find(detail.begin(), detail.end(),
                      L"Original local version of " + Source() + L" is 20261101091500"),
            detail.end());

  m_log.clear();
  EXPECT_EQ(0, m_helper.InstallSiteList(Source(), m_source.wpath()));
  EXPECT_TRUE(Traced(L"Entering InstallSiteList," + Source() + L"," + m_source.wpath()));
}

TEST_F(ImportTest, AVersionedSourceWithoutValidKeyFilesFailsWithMinus1AndLeavesTheListAlone) {
  WriteVersionedSource({}, false);
  WriteFile(m_source.file("srpubkey.bin"), "");
  m_helper.SetManagedOverride(-2);  // the key presence rule is a managed-only check
  EXPECT_EQ(-1, Import());
  ExpectOwnListUntouched();
  EXPECT_EQ(Texts{m_source.wfile("srpubkey.bin") + L" is invalid"}, m_log.messages(LogLevel::Error));
}

TEST_F(ImportTest, AManagedImportOfAVersionedSourceWithoutKeysFailsTheCheck) {
  WriteVersionedSource({}, false);
  m_helper.SetManagedOverride(-1);
  EXPECT_EQ(-9, Import());
  ExpectOwnListUntouched();
}

TEST_F(ImportTest, AMissingSourceReturnsMinus4AndLeavesTheListAlone) {
  EXPECT_EQ(-4, Import());
  EXPECT_EQ(Texts{L"Failed hr=-4"}, m_log.messages(LogLevel::Error));
  ExpectOwnListUntouched();
}

TEST_F(ImportTest, AMalformedSourceReturnsMinus5AndLeavesTheListAlone) {
  WriteFile(m_source.file("SiteList.xml"), "<ns:SiteLists xmlns:ns=\"zelSiteList\"><SiteList><HttpSite");
  EXPECT_EQ(-5, Import());
  EXPECT_EQ(Texts{L"Failed hr=-5"}, m_log.messages(LogLevel::Error));
  ExpectOwnListUntouched();
}

TEST_F(ImportTest, ASourceWithoutSitesIsNotImportedAndReturnsTheReadersCode) {
  WriteFile(m_source.file("SiteList.xml"), outsidelist::Document({}));
  EXPECT_EQ(0, Import());
  EXPECT_EQ(Texts{L"Failed hr=0"}, m_log.messages(LogLevel::Error));
  ExpectOwnListUntouched();
  m_log.clear();
  EXPECT_EQ(0, m_helper.InstallSiteList(Source(), L""));
  EXPECT_EQ(Texts{L"Failed hr=0"}, m_log.messages(LogLevel::Error));
  ExpectOwnListUntouched();
}

TEST_F(ImportTest, AnUnwritableTargetFailsWithMinus1AndLeavesTheListAlone) {
  WriteVersionedSource();
  ASSERT_EQ(0, chmod(Target("SiteList.xml").c_str(), 0444));
  EXPECT_EQ(-1, Import());
  EXPECT_EQ(Texts{L"Can't write " + Wide(Target("SiteList.xml"))}, m_log.messages(LogLevel::Error));
  ExpectOwnListUntouched();
  EXPECT_FALSE(FileExists(Target("srpubkey.bin")));
}

TEST_F(ImportTest, AFailedWriteOfTheListIsLoggedAndReturnsMinus1) {
  WriteVersionedSource();
  // A directory where the list should be: the writability check passes (it
  // may be written into), the replacement of the file does not.
  testsupport::TempDir root;
  ASSERT_EQ(0, mkdir(root.file("etc").c_str(), 0755));
  ASSERT_EQ(0, mkdir(root.file("etc/SiteList.xml").c_str(), 0755));
  CSitesHelper helper(root.wfile("etc/SiteList.xml"));
  m_log.clear();
  EXPECT_EQ(-1, helper.ImportSiteList(Source(), L""));
  const Texts errors = m_log.messages(LogLevel::Error);
  ASSERT_EQ(2u, errors.size());
  EXPECT_EQ(0u, errors[0].find(L"Unable to write " + root.wfile("etc/SiteList.xml") + L": "));
  EXPECT_EQ(L"CreateSiteList failed hr=-11", errors[1]);
  // The keys and the list are one change: without the list, no key either.
  EXPECT_FALSE(FileExists(root.file("etc/srpubkey.bin")));
  EXPECT_FALSE(FileExists(root.file("etc/reqseckey.bin")));
}

// The agent's five files: "old", "new", or what a mix holds.
std::string FiveFiles(const std::string& etc) {
  const char* const keys[] = {"srpubkey.bin", "reqseckey.bin", "sr2048pubkey.bin", "req2048seckey.bin"};
  const std::string list = ReadFile(etc + "/SiteList.xml");
  std::string state = list == kOwnList ? "old" : list.find("LocalVersion=\"20261101091500\"") != std::string::npos
                                                     ? "new"
                                                     : "torn";
  for (const char* key : keys) {
    const std::string bytes = ReadFile(etc + "/" + key);
    const std::string is = bytes == std::string("old ") + key ? "old" : bytes == std::string("new ") + key ? "new" : "?";
    if (is != state) return "mixed: list " + state + ", " + key + " " + is;
  }
  return state;
}

TEST_F(ImportTest, ACrashAtAnyStepLeavesTheOldOrTheNewFiveFilesForTheNextReader) {
  WriteVersionedSource({}, false);
  for (const char* key : {"srpubkey.bin", "reqseckey.bin", "sr2048pubkey.bin", "req2048seckey.bin"}) {
    WriteFile(m_source.file(key), std::string("new ") + key);
    WriteFile(Target(key), std::string("old ") + key);
  }
  // Keys owned by the agent's user keep their owner whichever files win.
  ASSERT_EQ(0, chown(Target("reqseckey.bin").c_str(), testsupport::kOtherUser, testsupport::kOtherGroup));
  const auto import = [this] { return m_helper.ImportSiteList(Source(), L""); };
  const long total = testsupport::RunStoppedAt(0, import);
  ASSERT_GT(total, 20);
  ASSERT_EQ("new", FiveFiles(m_target));
  int oldStates = 0, newStates = 0;
  for (long stopAt = 1; stopAt <= total; ++stopAt) {
    WriteFile(Target("SiteList.xml"), kOwnList);
    for (const char* key : {"srpubkey.bin", "reqseckey.bin", "sr2048pubkey.bin", "req2048seckey.bin"})
      WriteFile(Target(key), std::string("old ") + key);
    ASSERT_EQ(-2, testsupport::RunStoppedAt(stopAt, import)) << "call " << stopAt;
    // The next reader finishes what the stopped import recorded.
    CSitesHelper reader;
    SiteList list(reader);
    ASSERT_EQ(0, reader.ReadSiteList(L"", list.out())) << "call " << stopAt;
    const std::string state = FiveFiles(m_target);
    ASSERT_TRUE(state == "old" || state == "new") << "stopped at call " << stopAt << " of " << total << ": " << state;
    (state == "old" ? oldStates : newStates)++;
    EXPECT_EQ(testsupport::kOtherUser, StatOf(Target("reqseckey.bin")).st_uid) << "call " << stopAt;
  }
  EXPECT_GT(oldStates, 0);
  EXPECT_GT(newStates, 0);
  std::printf("an import of %ld calls stopped at each: %d left the old five files, %d the new ones\n", total,
              oldStates, newStates);
}

TEST_F(ImportTest, AVanishedSourceFailsTheVersionReadWithItsCode) {
  WriteVersionedSource();
  SiteList list(m_helper);
  ASSERT_EQ(0, m_helper.ReadSiteList(Source(), list.out()));
  m_log.clear();
  EXPECT_EQ(-4, m_helper.InternalImportSiteList(m_source.wfile("gone.xml"), list.head(), L""));
  EXPECT_EQ(Texts{L"Get version failed hr=-4"}, m_log.messages(LogLevel::Error));
  ExpectOwnListUntouched();
}

TEST_F(ImportTest, TheInternalStepCorrectsTheOrderOfTheCallersRecordsInPlace) {
  WriteVersionedSource();
  SiteList list(m_helper);
  ASSERT_EQ(0, m_helper.ReadSiteList(Source(), list.out()));
  ASSERT_EQ(3, list.at(1)->nOrder);
  EXPECT_EQ(0, m_helper.InternalImportSiteList(Source(), list.head(), L""));
  EXPECT_EQ(2, list.at(1)->nOrder);
  EXPECT_EQ(3, list.at(2)->nOrder);
}

// ---- a process killed while importing ----

// The list's text with the encrypted passwords blanked: each write encrypts
// with a fresh nonce, so only the rest of the text is comparable.
std::string WithoutCiphertexts(const std::string& text) {
  static const std::regex password("<Password Encrypted=\"1\">[^<]*</Password>");
  return std::regex_replace(text, password, "<Password/>");
}

std::string ImportedText(const std::string& sourceDir, const std::string& targetDir) {
  CSitesHelper helper(Wide(targetDir + "/SiteList.xml"));
  if (helper.ImportSiteList(Wide(sourceDir + "/SiteList.xml"), L"") != 0) return "import failed";
  return WithoutCiphertexts(ReadFile(targetDir + "/SiteList.xml"));
}

TEST(ImportKilled, AnImportKilledAtRandomMomentsLeavesTheOldOrTheNewListAndItParses) {
  testsupport::ConfigScope config;
  port::SetLogSink(nullptr);
  testsupport::TempDir work;
  // Two sources and the text each one's import writes.
  std::vector<std::string> sources;
  for (int i = 0; i < 2; ++i) {
    const std::string dir = work.file("source" + std::to_string(i));
    ASSERT_EQ(0, mkdir(dir.c_str(), 0755));
    outsidelist::SpipeSiteText spipe;
    spipe.server = "mgmt" + std::to_string(i) + ".branch.example:80";
    std::vector<std::string> sites{outsidelist::SpipeSite(spipe)};
    for (int n = 0; n < 40; ++n)
      sites.push_back(outsidelist::HttpSite("Mirror" + std::to_string(n), "m" + std::to_string(n) + ".example:80", n + 2));
    WriteFile(dir + "/SiteList.xml", outsidelist::Document(sites));
    WriteFile(dir + "/srpubkey.bin", "server key " + std::to_string(i));
    WriteFile(dir + "/reqseckey.bin", "request key " + std::to_string(i));
    sources.push_back(dir);
  }
  const std::string target = work.file("etc");
  ASSERT_EQ(0, mkdir(target.c_str(), 0755));
  const std::string expected[2] = {ImportedText(sources[0], target), ImportedText(sources[1], target)};
  ASSERT_NE(expected[0], expected[1]);

  std::mt19937 random(20261121);
  constexpr int kRuns = 40;
  int killedMidway = 0;
  for (int run = 0; run < kRuns; ++run) {
    const std::string before = WithoutCiphertexts(ReadFile(target + "/SiteList.xml"));
    std::fflush(nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      alarm(30);
      for (int i = 0;; ++i) ImportedText(sources[(run + i) % 2], target);
    }
    const long delayUs = std::uniform_int_distribution<long>(0, 60000)(random);
    const timespec pause{0, delayUs * 1000};
    nanosleep(&pause, nullptr);
    ASSERT_EQ(0, kill(child, SIGKILL));
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFSIGNALED(status));

    const std::string after = WithoutCiphertexts(ReadFile(target + "/SiteList.xml"));
    if (after != before) ++killedMidway;
    ASSERT_TRUE(after == expected[0] || after == expected[1]) << "run " << run << " left a torn list:\n"
                                                        << after << "\nexpected:\n"
                                                        << expected[0];
    CSitesHelper reader(Wide(target + "/SiteList.xml"));
    SiteList list(reader);
    ASSERT_EQ(0, reader.ReadSiteList(L"", list.out())) << "run " << run;
    ASSERT_EQ(41u, list.size());
    // The locks were released with the process: a new import goes through.
    ASSERT_EQ(expected[run % 2], ImportedText(sources[run % 2], target));
  }
  std::printf("import killed %d times, %d during a change of the list\n", kRuns, killedMidway);
}

}  // namespace
