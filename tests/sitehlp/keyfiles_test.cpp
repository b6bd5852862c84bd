// Key files beside a site list: reading a pair only whole, the unversioned
// list's classic server key, writing in order with the stale request key
// removed, writability checks before any write, the FIPS marker, modes and
// symbolic links.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "port/fs/SysCalls.h"
#include "sitehlp/OutsideListText.h"
#include "sitehlp/SiteRecordTestUtil.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using port::LogLevel;
using sitehlp::CSitesHelper;
using sitetest::SiteList;
using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::Wide;
using testsupport::WriteFile;
using Texts = std::vector<std::wstring>;

// Opaque key bytes, NUL and high bytes included.
const std::string kSrPub("classic-server-key\0\xff\x01", 22);
const std::string kReqSec("classic-request-key\0\x80", 21);
const std::string kSr2048Pub("2048-server-key\0\xfe", 17);
const std::string kReq2048Sec("2048-request-key\0\x7f", 18);

mode_t ModeOf(const std::string& path) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) return 0;
  return st.st_mode & 07777;
}

std::string Bytes(const ABuffer& buffer) {
  return std::string(reinterpret_cast<const char*>(buffer.getBytes()), buffer.size());
}

class KeyFilesTest : public ::testing::Test {
 protected:
  KeyFilesTest() : m_target(m_config.dataDir() + "/etc") {}

  // Writes the outside list into the source directory and reads it.
  void ReadSource(bool versioned) {
    outsidelist::SpipeSiteText spipe;
    if (!versioned) spipe.version = "";
    WriteFile(m_source.file("SiteList.xml"), outsidelist::Document({outsidelist::SpipeSite(spipe)}));
    ASSERT_EQ(0, m_helper.ReadSiteList(m_source.wfile("SiteList.xml"), m_list.out()));
  }
  bool Copy(const std::wstring& keyDir = L"") {
    m_log.clear();
    return m_helper.createDirectoriesAndCopyKeyFiles(m_source.wfile("SiteList.xml"), m_list.head(), keyDir);
  }
  std::string Target(const std::string& name) const { return m_target + "/" + name; }

  testsupport::ConfigScope m_config;
  testsupport::TempDir m_source;
  testsupport::TempDir m_keyDir;
  testsupport::CapturingLogSink m_log;
  CSitesHelper m_helper;
  SiteList m_list{m_helper};
  std::string m_target;
};

TEST_F(KeyFilesTest, ReadKeyFileOfAMissingFileFailsWithoutALogLine) {
  ABuffer contents;
  m_log.clear();
  EXPECT_FALSE(m_helper.readKeyFile(m_source.wpath(), L"srpubkey.bin", contents));
  EXPECT_TRUE(m_log.allMessages().empty());
}

TEST_F(KeyFilesTest, ReadKeyFileOfAnEmptyFileLogsItInvalidWithTheHint) {
  WriteFile(m_source.file("srpubkey.bin"), "");
  ABuffer contents;
  m_log.clear();
  EXPECT_FALSE(m_helper.readKeyFile(m_source.wpath(), L"srpubkey.bin", contents));
  EXPECT_EQ(Texts{m_source.wfile("srpubkey.bin") + L" is invalid"}, m_log.messages(LogLevel::Error));
  EXPECT_EQ(Texts{L"There could be another set of key files to be used."}, m_log.messages(LogLevel::Info));
}

TEST_F(KeyFilesTest, ReadKeyFileReadsTheBytesAsTheyAre) {
  WriteFile(m_source.file("srpubkey.bin"), kSrPub);
  ABuffer contents;
  EXPECT_TRUE(m_helper.readKeyFile(m_source.wpath(), L"srpubkey.bin", contents));
  EXPECT_EQ(kSrPub, Bytes(contents));
}

TEST_F(KeyFilesTest, VersionedListWithOnlyThe2048PairSetsOnlyThe2048Flags) {
  ReadSource(true);
  WriteFile(m_source.file("sr2048pubkey.bin"), kSr2048Pub);
  WriteFile(m_source.file("req2048seckey.bin"), kReq2048Sec);
  ABuffer a, b, c, d;
  bool hasSr = false, hasReq = false, hasSr2048 = false, hasReq2048 = false;
  EXPECT_TRUE(m_helper.readKeyFiles(m_source.wfile("SiteList.xml"), m_list.head(), L"", a, b, c, d, hasSr, hasReq,
                                    hasSr2048, hasReq2048));
  EXPECT_FALSE(hasSr);
  EXPECT_FALSE(hasReq);
  EXPECT_TRUE(hasSr2048);
  EXPECT_TRUE(hasReq2048);
  EXPECT_EQ(kSr2048Pub, Bytes(c));
  EXPECT_EQ(kReq2048Sec, Bytes(d));
}

TEST_F(KeyFilesTest, VersionedListWithOnlyThe2048PairWritesBothAndDeletesNothing) {
  ReadSource(true);
  WriteFile(m_source.file("sr2048pubkey.bin"), kSr2048Pub);
  WriteFile(m_source.file("req2048seckey.bin"), kReq2048Sec);
  WriteFile(Target("reqseckey.bin"), "old request key");
  EXPECT_TRUE(Copy());
  EXPECT_EQ(kSr2048Pub, ReadFile(Target("sr2048pubkey.bin")));
  EXPECT_EQ(kReq2048Sec, ReadFile(Target("req2048seckey.bin")));
  EXPECT_FALSE(FileExists(Target("srpubkey.bin")));
  EXPECT_EQ("old request key", ReadFile(Target("reqseckey.bin")));
}

TEST_F(KeyFilesTest, AnEmptyClassicServerKeyIsLoggedAndTheValid2048PairStillSucceeds) {
  ReadSource(true);
  WriteFile(m_source.file("srpubkey.bin"), "");
  WriteFile(m_source.file("reqseckey.bin"), kReqSec);
  WriteFile(m_source.file("sr2048pubkey.bin"), kSr2048Pub);
  WriteFile(m_source.file("req2048seckey.bin"), kReq2048Sec);
  EXPECT_TRUE(Copy());
  EXPECT_EQ(Texts{m_source.wfile("srpubkey.bin") + L" is invalid"}, m_log.messages(LogLevel::Error));
  EXPECT_EQ(Texts{L"There could be another set of key files to be used."}, m_log.messages(LogLevel::Info));
  EXPECT_EQ(kSr2048Pub, ReadFile(Target("sr2048pubkey.bin")));
  EXPECT_EQ(kReq2048Sec, ReadFile(Target("req2048seckey.bin")));
  // The classic request key was never read: its pair did not start.
  EXPECT_FALSE(FileExists(Target("reqseckey.bin")));
  EXPECT_FALSE(FileExists(Target("srpubkey.bin")));
}

TEST_F(KeyFilesTest, APublicKeyWithoutItsRequestKeySetsNoFlagButKeepsTheBytesRead) {
  ReadSource(true);
  WriteFile(m_source.file("srpubkey.bin"), kSrPub);
  ABuffer a, b, c, d;
  bool hasSr = false, hasReq = false, hasSr2048 = false, hasReq2048 = false;
  EXPECT_FALSE(m_helper.readKeyFiles(m_source.wfile("SiteList.xml"), m_list.head(), L"", a, b, c, d, hasSr, hasReq,
                                     hasSr2048, hasReq2048));
  EXPECT_FALSE(hasSr || hasReq || hasSr2048 || hasReq2048);
  EXPECT_EQ(kSrPub, Bytes(a));
}

TEST_F(KeyFilesTest, AVersionedListWithNoValidPairFailsAndWritesNothing) {
  ReadSource(true);
  WriteFile(m_source.file("sr2048pubkey.bin"), kSr2048Pub);
  WriteFile(m_source.file("reqseckey.bin"), kReqSec);
  EXPECT_FALSE(Copy());
  for (const char* name : {"srpubkey.bin", "reqseckey.bin", "sr2048pubkey.bin", "req2048seckey.bin"})
    EXPECT_FALSE(FileExists(Target(name))) << name;
}

TEST_F(KeyFilesTest, BothPairsAreWrittenWithRequestKeysOwnerOnly) {
  ReadSource(true);
  WriteFile(m_source.file("srpubkey.bin"), kSrPub);
  WriteFile(m_source.file("reqseckey.bin"), kReqSec);
  WriteFile(m_source.file("sr2048pubkey.bin"), kSr2048Pub);
  WriteFile(m_source.file("req2048seckey.bin"), kReq2048Sec);
  chmod(m_source.file("reqseckey.bin").c_str(), 0644);
  EXPECT_TRUE(Copy());
  EXPECT_EQ(kSrPub, ReadFile(Target("srpubkey.bin")));
  EXPECT_EQ(kReqSec, ReadFile(Target("reqseckey.bin")));
  EXPECT_EQ(kSr2048Pub, ReadFile(Target("sr2048pubkey.bin")));
  EXPECT_EQ(kReq2048Sec, ReadFile(Target("req2048seckey.bin")));
  EXPECT_EQ(0644u, ModeOf(Target("srpubkey.bin")));
  EXPECT_EQ(0644u, ModeOf(Target("sr2048pubkey.bin")));
  EXPECT_EQ(0600u, ModeOf(Target("reqseckey.bin")));
  EXPECT_EQ(0600u, ModeOf(Target("req2048seckey.bin")));
  // Key bytes never reach the log.
  for (const auto& line : m_log.lines()) EXPECT_EQ(std::wstring::npos, line.message.find(L"request-key"));
}

TEST_F(KeyFilesTest, AnExistingWiderRequestKeyIsNarrowedToOwnerOnly) {
  ReadSource(true);
  WriteFile(m_source.file("srpubkey.bin"), kSrPub);
  WriteFile(m_source.file("reqseckey.bin"), kReqSec);
  WriteFile(Target("reqseckey.bin"), "old");
  ASSERT_EQ(0, chmod(Target("reqseckey.bin").c_str(), 0666));
  EXPECT_TRUE(Copy());
  EXPECT_EQ(kReqSec, ReadFile(Target("reqseckey.bin")));
  EXPECT_EQ(0600u, ModeOf(Target("reqseckey.bin")));
}

TEST_F(KeyFilesTest, UnversionedListWithAKeyDirWritesItsServerKeyAndDeletesTheStaleRequestKey) {
  ReadSource(false);
  WriteFile(m_keyDir.file("srpubkey.bin"), kSrPub);
  WriteFile(m_keyDir.file("reqseckey.bin"), kReqSec);  // never taken from the key directory
  WriteFile(Target("reqseckey.bin"), "stale request key");
  WriteFile(Target("req2048seckey.bin"), "stale 2048 request key");
  EXPECT_TRUE(Copy(m_keyDir.wpath()));
  EXPECT_EQ(kSrPub, ReadFile(Target("srpubkey.bin")));
  EXPECT_FALSE(FileExists(Target("reqseckey.bin")));
  // A stale 2048-bit request key is deliberately left alone.
  EXPECT_EQ("stale 2048 request key", ReadFile(Target("req2048seckey.bin")));
}

TEST_F(KeyFilesTest, UnversionedListWithAKeyDirSucceedsWhenThereIsNoRequestKeyToDelete) {
  ReadSource(false);
  WriteFile(m_keyDir.file("srpubkey.bin"), kSrPub);
  EXPECT_TRUE(Copy(m_keyDir.wpath()));
  EXPECT_EQ(kSrPub, ReadFile(Target("srpubkey.bin")));
  EXPECT_FALSE(FileExists(Target("reqseckey.bin")));
}

TEST_F(KeyFilesTest, UnversionedListReadsTheServerKeyFromTheKeyDirItselfNotItsParent) {
  ReadSource(false);
  WriteFile(m_keyDir.file("srpubkey.bin"), kSrPub);
  ASSERT_EQ(0, mkdir(m_keyDir.file("sub").c_str(), 0755));
  EXPECT_FALSE(Copy(m_keyDir.wfile("sub")));
  EXPECT_FALSE(FileExists(Target("srpubkey.bin")));
}

TEST_F(KeyFilesTest, UnversionedListWithAnEmptyKeyDirWritesAndDeletesNothing) {
  ReadSource(false);
  WriteFile(m_source.file("srpubkey.bin"), kSrPub);  // beside the list, but not asked for
  WriteFile(Target("reqseckey.bin"), "kept request key");
  EXPECT_TRUE(Copy(L""));
  EXPECT_FALSE(FileExists(Target("srpubkey.bin")));
  EXPECT_EQ("kept request key", ReadFile(Target("reqseckey.bin")));
}

TEST_F(KeyFilesTest, UnversionedReadClearsTheRequestFlagAndLeavesThe2048Flags) {
  ReadSource(false);
  ABuffer a, b, c, d;
  bool hasSr = true, hasReq = true, hasSr2048 = true, hasReq2048 = false;
  EXPECT_TRUE(m_helper.readKeyFiles(m_source.wfile("SiteList.xml"), m_list.head(), L"", a, b, c, d, hasSr, hasReq,
                                    hasSr2048, hasReq2048));
  EXPECT_FALSE(hasSr);
  EXPECT_FALSE(hasReq);
  EXPECT_TRUE(hasSr2048);
  EXPECT_FALSE(hasReq2048);
}

TEST_F(KeyFilesTest, AReadOnlyServerKeyInTheTargetIsLoggedAndNothingIsWritten) {
  ReadSource(true);
  WriteFile(m_source.file("srpubkey.bin"), kSrPub);
  WriteFile(m_source.file("reqseckey.bin"), kReqSec);
  WriteFile(Target("srpubkey.bin"), "read-only server key");
  ASSERT_EQ(0, chmod(Target("srpubkey.bin").c_str(), 0444));
  EXPECT_FALSE(Copy());
  EXPECT_EQ(Texts{L"Can't write " + Wide(Target("srpubkey.bin"))}, m_log.messages(LogLevel::Error));
  EXPECT_EQ("read-only server key", ReadFile(Target("srpubkey.bin")));
  EXPECT_FALSE(FileExists(Target("reqseckey.bin")));
}

TEST_F(KeyFilesTest, AReadOnlyOwnSiteListStopsBeforeAnyKeyIsWritten) {
  ReadSource(true);
  WriteFile(m_source.file("srpubkey.bin"), kSrPub);
  WriteFile(m_source.file("reqseckey.bin"), kReqSec);
  WriteFile(Target("SiteList.xml"), "<own/>");
  ASSERT_EQ(0, chmod(Target("SiteList.xml").c_str(), 0444));
  EXPECT_FALSE(Copy());
  EXPECT_EQ(Texts{L"Can't write " + Wide(Target("SiteList.xml"))}, m_log.messages(LogLevel::Error));
  EXPECT_FALSE(FileExists(Target("srpubkey.bin")));
}

TEST_F(KeyFilesTest, WritableCountsAMissingPathAsWritable) {
  m_log.clear();
  EXPECT_TRUE(m_helper.writable(m_source.wfile("nothing-here")));
  WriteFile(m_source.file("file"), "x");
  EXPECT_TRUE(m_helper.writable(m_source.wfile("file")));
  EXPECT_TRUE(m_log.allMessages().empty());
}

TEST_F(KeyFilesTest, WritableIsFalseWithoutALogLineWhenTheQuestionFails) {
  WriteFile(m_source.file("file"), "x");
  // A path through a regular file cannot even be asked about.
  m_log.clear();
  EXPECT_FALSE(m_helper.writable(m_source.wfile("file/inner")));
  EXPECT_TRUE(m_log.allMessages().empty());
}

TEST_F(KeyFilesTest, TheTargetDirectoryIsCreatedWithItsParents) {
  testsupport::TempDir root;
  CSitesHelper helper(root.wfile("a/b/etc/SiteList.xml"));
  ReadSource(false);
  EXPECT_TRUE(helper.createDirectoriesAndCopyKeyFiles(m_source.wfile("SiteList.xml"), m_list.head(), L""));
  struct stat st {};
  ASSERT_EQ(0, stat(root.file("a/b/etc").c_str(), &st));
  EXPECT_TRUE(S_ISDIR(st.st_mode));
}

TEST_F(KeyFilesTest, ATargetDirectoryThatCannotBeCreatedFails) {
  testsupport::TempDir root;
  WriteFile(root.file("a"), "a file where a directory should be");
  CSitesHelper helper(root.wfile("a/etc/SiteList.xml"));
  ReadSource(false);
  EXPECT_FALSE(helper.createDirectoriesAndCopyKeyFiles(m_source.wfile("SiteList.xml"), m_list.head(), L""));
}

TEST_F(KeyFilesTest, WritingKeyFilesIsAllOrNothing) {
  // sr2048pubkey.bin is a directory in the target: the second file cannot be
  // written, so none is, not even the first.
  ASSERT_EQ(0, mkdir(Target("sr2048pubkey.bin").c_str(), 0755));
  WriteFile(Target("srpubkey.bin"), "old server key");
  ABuffer sr(reinterpret_cast<const unsigned char*>(kSrPub.data()), kSrPub.size());
  ABuffer req(reinterpret_cast<const unsigned char*>(kReqSec.data()), kReqSec.size());
  m_log.clear();
  EXPECT_FALSE(m_helper.writeKeyFiles(true, true, sr, req, true, true, sr, req, Wide(m_target)));
  EXPECT_EQ("old server key", ReadFile(Target("srpubkey.bin")));
  EXPECT_FALSE(FileExists(Target("reqseckey.bin")));
  EXPECT_FALSE(FileExists(Target("req2048seckey.bin")));
  EXPECT_EQ(std::vector<std::wstring>{L"Unable to write " + Wide(Target("sr2048pubkey.bin")) + L": Is a directory"},
            m_log.messages(LogLevel::Error));
  EXPECT_EQ((std::vector<std::string>{"sr2048pubkey.bin", "srpubkey.bin"}), testsupport::ListDir(m_target));
}

TEST_F(KeyFilesTest, WriteKeyFilesWithNoPublicKeyWritesTheRequestKeysAndSucceeds) {
  ABuffer req(reinterpret_cast<const unsigned char*>(kReqSec.data()), kReqSec.size());
  EXPECT_TRUE(m_helper.writeKeyFiles(false, true, ABuffer(), req, false, false, ABuffer(), ABuffer(), Wide(m_target)));
  EXPECT_EQ(kReqSec, ReadFile(Target("reqseckey.bin")));
}

TEST_F(KeyFilesTest, AStaleRequestKeyThatCannotBeDeletedFailsTheWriteAndWritesNothing) {
  ASSERT_EQ(0, mkdir(Target("reqseckey.bin").c_str(), 0755));
  ABuffer sr(reinterpret_cast<const unsigned char*>(kSrPub.data()), kSrPub.size());
  EXPECT_FALSE(m_helper.writeKeyFiles(true, false, sr, ABuffer(), false, false, ABuffer(), ABuffer(), Wide(m_target)));
  EXPECT_FALSE(FileExists(Target("srpubkey.bin")));
  EXPECT_EQ(std::vector<std::string>{"reqseckey.bin"}, testsupport::ListDir(m_target));
}

TEST_F(KeyFilesTest, AKeyFileTargetThatIsASymbolicLinkIsReplacedNotFollowed) {
  testsupport::TempDir elsewhere;
  WriteFile(elsewhere.file("victim"), "must stay");
  ASSERT_EQ(0, symlink(elsewhere.file("victim").c_str(), Target("srpubkey.bin").c_str()));
  ABuffer sr(reinterpret_cast<const unsigned char*>(kSrPub.data()), kSrPub.size());
  EXPECT_TRUE(m_helper.writeKeyFile(sr, L"srpubkey.bin", L"", Wide(m_target)));
  EXPECT_EQ("must stay", ReadFile(elsewhere.file("victim")));
  struct stat st {};
  ASSERT_EQ(0, lstat(Target("srpubkey.bin").c_str(), &st));
  EXPECT_TRUE(S_ISREG(st.st_mode));
  EXPECT_EQ(kSrPub, ReadFile(Target("srpubkey.bin")));
}

TEST_F(KeyFilesTest, TheFipsMarkerIsCopiedUnderItsLiteralBackslashName) {
  ReadSource(false);
  // The marker's path is the directory followed by "\agentfipsmode", so on
  // this system it is a file beside the directory, with the directory's name
  // as the first part of its own.
  const std::string sourceMarker = m_source.path() + "\\agentfipsmode";
  WriteFile(sourceMarker, "1");
  EXPECT_TRUE(Copy());
  EXPECT_EQ("1", ReadFile(m_target + "\\agentfipsmode"));
  EXPECT_FALSE(FileExists(Target("agentfipsmode")));
  unlink(sourceMarker.c_str());
}

TEST_F(KeyFilesTest, AMissingFipsMarkerIsNormal) {
  ReadSource(false);
  EXPECT_TRUE(Copy());
  EXPECT_FALSE(FileExists(m_target + "\\agentfipsmode"));
}

}  // namespace
