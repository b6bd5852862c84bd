// PlaceSiteFiles: a set of files placed as one change, all or nothing, under
// the exclusive "SiteListLock", keeping owners, groups and modes.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "port/lock/InterProcessLock.h"
#include "sitehlp/SitesHelper.h"
#include "support/StopAt.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::SiteFile;
using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::Wide;
using testsupport::WriteFile;

const char kOldList[] =
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"1\" LocalVersion=\"1\" Type=\"Client\">"
    "<SiteList Default=\"1\" Name=\"SomeGUID\"><HttpSite Type=\"repository\" Name=\"Old\" Order=\"1\" Enabled=\"1\" "
    "Local=\"0\" Server=\"old.corp.example:80\"><RelativePath>u</RelativePath></HttpSite></SiteList></ns:SiteLists>\n";
const char kNewList[] =
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"2\" LocalVersion=\"2\" Type=\"Client\">"
    "<SiteList Default=\"1\" Name=\"SomeGUID\"><HttpSite Type=\"repository\" Name=\"New\" Order=\"1\" Enabled=\"1\" "
    "Local=\"0\" Server=\"new.corp.example:80\"><RelativePath>u</RelativePath></HttpSite></SiteList></ns:SiteLists>\n";
const std::string kNewKey("new key\0\xff", 9);

SiteFile File(const std::string& path, const std::string& bytes, uint32_t mode = 0644) {
  SiteFile file;
  file.path = Wide(path);
  file.contents = ABuffer(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  file.nMode = mode;
  return file;
}

SiteFile Absent(const std::string& path) {
  SiteFile file;
  file.path = Wide(path);
  file.bAbsent = true;
  return file;
}

struct stat StatOf(const std::string& path) {
  struct stat st {};
  lstat(path.c_str(), &st);
  return st;
}

class PlaceSiteFilesTest : public ::testing::Test {
 protected:
  PlaceSiteFilesTest() : m_etc(m_config.dataDir() + "/etc") {
    WriteFile(Etc("SiteList.xml"), kOldList);
    WriteFile(Etc("srpubkey.bin"), "old key");
    WriteFile(Etc("reqseckey.bin"), "old request key");
  }
  std::string Etc(const std::string& name) const { return m_etc + "/" + name; }
  // The change of the tests: the list and a key replaced, the request key
  // removed, a 2048-bit key added.
  std::vector<SiteFile> Change() const {
    return {File(Etc("SiteList.xml"), kNewList), File(Etc("srpubkey.bin"), kNewKey), Absent(Etc("reqseckey.bin")),
            File(Etc("sr2048pubkey.bin"), "new 2048 key", 0640)};
  }
  // "old", "new", or what a mix holds.
  std::string State() const {
    const bool oldFiles = ReadFile(Etc("SiteList.xml")) == kOldList && ReadFile(Etc("srpubkey.bin")) == "old key" &&
                          FileExists(Etc("reqseckey.bin")) && !FileExists(Etc("sr2048pubkey.bin"));
    const bool newFiles = ReadFile(Etc("SiteList.xml")) == kNewList && ReadFile(Etc("srpubkey.bin")) == kNewKey &&
                          !FileExists(Etc("reqseckey.bin")) && ReadFile(Etc("sr2048pubkey.bin")) == "new 2048 key";
    return oldFiles ? "old" : newFiles ? "new" : "mixed";
  }

  testsupport::ConfigScope m_config;
  std::string m_etc;
};

TEST_F(PlaceSiteFilesTest, PlacesEveryFileWithExactBytesAndKeepsOwnersGroupsAndModes) {
  ASSERT_EQ(0, chown(Etc("SiteList.xml").c_str(), testsupport::kOtherUser, testsupport::kOtherGroup));
  ASSERT_EQ(0, chmod(Etc("SiteList.xml").c_str(), 0640));
  ASSERT_EQ(0, chmod(Etc("srpubkey.bin").c_str(), 0604));
  CSitesHelper helper;
  ASSERT_EQ(0, helper.PlaceSiteFiles(Change()));
  EXPECT_EQ("new", State());
  EXPECT_EQ(testsupport::kOtherUser, StatOf(Etc("SiteList.xml")).st_uid);
  EXPECT_EQ(testsupport::kOtherGroup, StatOf(Etc("SiteList.xml")).st_gid);
  EXPECT_EQ(0640u, StatOf(Etc("SiteList.xml")).st_mode & 07777);
  EXPECT_EQ(0604u, StatOf(Etc("srpubkey.bin")).st_mode & 07777);
  EXPECT_EQ(0640u, StatOf(Etc("sr2048pubkey.bin")).st_mode & 07777);
  EXPECT_EQ(0u, StatOf(Etc("sr2048pubkey.bin")).st_uid);
  EXPECT_EQ((std::vector<std::string>{"SiteList.xml", "sr2048pubkey.bin", "srpubkey.bin"}), testsupport::ListDir(m_etc));
  // A file to be absent that is missing already counts as removed.
  EXPECT_EQ(0, helper.PlaceSiteFiles({Absent(Etc("reqseckey.bin")), File(Etc("srpubkey.bin"), "again")}));
  EXPECT_EQ("again", ReadFile(Etc("srpubkey.bin")));
}

TEST_F(PlaceSiteFilesTest, ArgumentsThatNameNoSetOfFilesOfOneDirectoryGiveMinusTwo) {
  CSitesHelper helper;
  testsupport::TempDir elsewhere;
  const std::vector<std::vector<SiteFile>> bad = {
      {},
      {File("", "x")},
      {File(m_etc + "/", "x")},
      {File(m_etc + "/.", "x")},
      {File(m_etc + "/..", "x")},
      {File(Etc("SiteList.xml"), kNewList), File(elsewhere.file("srpubkey.bin"), "x")},
      {File(Etc("SiteList.xml"), kNewList), Absent(Etc("SiteList.xml"))},
      {File(Etc("srpubkey.bin"), "x", 04755)},
      {File(Etc("srpubkey.bin"), "x", 01000)},
  };
  for (std::size_t i = 0; i < bad.size(); ++i) EXPECT_EQ(-2, helper.PlaceSiteFiles(bad[i])) << "case " << i;
  EXPECT_EQ("old", State());
  EXPECT_FALSE(FileExists(elsewhere.file("srpubkey.bin")));
}

TEST_F(PlaceSiteFilesTest, AFileThatCannotBePlacedLeavesEveryFileAsItWasAndIsLogged) {
  ASSERT_EQ(0, mkdir(Etc("sr2048pubkey.bin").c_str(), 0755));
  CSitesHelper helper;
  testsupport::CapturingLogSink log;
  EXPECT_EQ(-11, helper.PlaceSiteFiles(Change()));
  EXPECT_EQ(ReadFile(Etc("SiteList.xml")), kOldList);
  EXPECT_EQ("old key", ReadFile(Etc("srpubkey.bin")));
  EXPECT_TRUE(FileExists(Etc("reqseckey.bin")));
  EXPECT_EQ(std::vector<std::wstring>{L"Unable to write " + Wide(Etc("sr2048pubkey.bin")) + L": Is a directory"},
            log.messages(port::LogLevel::Error));
  EXPECT_EQ((std::vector<std::string>{"SiteList.xml", "reqseckey.bin", "sr2048pubkey.bin", "srpubkey.bin"}),
            testsupport::ListDir(m_etc));
  log.clear();
  EXPECT_EQ(-11, helper.PlaceSiteFiles({File(m_config.dataDir() + "/missing/SiteList.xml", kNewList)}));
  EXPECT_EQ(std::vector<std::wstring>{L"Unable to write " + Wide(m_config.dataDir()) +
                                      L"/missing/SiteList.xml: No such file or directory"},
            log.messages(port::LogLevel::Error));
}

TEST_F(PlaceSiteFilesTest, TheChangeWaitsForTheExclusiveSiteListLock) {
  CSitesHelper helper;
  InterProcessReadLock reader(sitehlp::c_siteListLock);
  ASSERT_TRUE(reader.lock(0));
  std::atomic<int> result{99};
  std::thread placing([&] { result = helper.PlaceSiteFiles(Change()); });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  // Staged, but not placed while a reader holds the lock.
  EXPECT_EQ(99, result.load());
  EXPECT_EQ("old", State());
  reader.unlock();
  placing.join();
  EXPECT_EQ(0, result.load());
  EXPECT_EQ("new", State());
}

TEST_F(PlaceSiteFilesTest, ACrashAtAnyStepLeavesAllOldOrAllNewFilesForTheNextReader) {
  const auto place = [this] {
    CSitesHelper helper;
    return helper.PlaceSiteFiles(Change());
  };
  const long total = testsupport::RunStoppedAt(0, place);
  ASSERT_GT(total, 10);
  ASSERT_EQ("new", State());
  int oldStates = 0, newStates = 0;
  for (long stopAt = 1; stopAt <= total; ++stopAt) {
    WriteFile(Etc("SiteList.xml"), kOldList);
    WriteFile(Etc("srpubkey.bin"), "old key");
    WriteFile(Etc("reqseckey.bin"), "old request key");
    unlink(Etc("sr2048pubkey.bin").c_str());
    ASSERT_EQ(-2, testsupport::RunStoppedAt(stopAt, place)) << "call " << stopAt;
    // The next reader of the list finishes what the stopped change recorded.
    CSitesHelper reader;
    sitehlp::tag_Site* list = nullptr;
    ASSERT_EQ(0, reader.ReadSiteList(L"", &list)) << "call " << stopAt;
    reader.FreeSiteListMemory(list);
    const std::string state = State();
    ASSERT_TRUE(state == "old" || state == "new") << "stopped at call " << stopAt << " of " << total;
    (state == "old" ? oldStates : newStates)++;
    EXPECT_FALSE(FileExists(Etc(".pending-change"))) << "call " << stopAt;
  }
  EXPECT_GT(oldStates, 0);
  EXPECT_GT(newStates, 0);
}

}  // namespace
