// How many fsync and fdatasync calls each writing operation makes, counted
// through the system call table. A file written durably needs one fsync of
// its own, a directory whose entries changed one more; a change of several
// files of one directory also writes its record and syncs the directory once
// before the record's rename, once before and once after its renames
// (port/fs/FileChange.h says why). Each
// case records its counts as test properties (bench/run reports them).
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/ABuffer.h"
#include "port/config/IConfiguration.h"
#include "port/crypto/KeyCache.h"
#include "sitehlp/OutsideListText.h"
#include "sitehlp/SitesHelper.h"
#include "support/SyncCounter.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using testsupport::ReadFile;
using testsupport::SyncCounter;
using testsupport::SyncCounts;
using testsupport::Wide;
using testsupport::WriteFile;

const std::string kOwnList = outsidelist::Document(
    {outsidelist::SpipeSite({}), outsidelist::HttpSite("OwnHttp", "own.corp.example:80", 2)},
    "GlobalVersion=\"20250101000000\" LocalVersion=\"20250101000001\" Type=\"Client\"",
    outsidelist::CaBundle({"-----BEGIN CERTIFICATE-----\nMIIBown\n-----END CERTIFICATE-----"}));

// Why a change of several files makes four fsyncs more than the files: its
// record must be whole on disk before the directory shows it, and the
// directory synced once before the record's rename (every temporary it names
// durable first), once before the first rename and once before the record
// goes (port/fs/FileChange.h).
const char kRecordReason[] =
    "the change record (one fsync) and the directory synced before the record's rename and before and after the renames";

class FsyncCountTest : public ::testing::Test {
 protected:
  FsyncCountTest() : m_etc(m_config.dataDir() + "/etc") {
    WriteFile(Own(), kOwnList);
    std::wstring encrypted;
    m_helper.EncryptPassword(L"warm-up", encrypted);  // the key exists before any count
  }

  std::string Own() const { return m_etc + "/SiteList.xml"; }
  // A versioned source with all four key files beside it.
  std::wstring Source() {
    std::filesystem::create_directories(m_config.dir().file("src"));
    WriteFile(m_config.dir().file("src/SiteList.xml"),
              outsidelist::Document({outsidelist::SpipeSite({}),
                                     outsidelist::HttpSite("VendorHttp", "update.vlm.example:80", 3)},
                                    "GlobalVersion=\"20261101090000\" LocalVersion=\"20261101091500\" Type=\"Branch\"",
                                    outsidelist::CaBundle({"-----BEGIN CERTIFICATE-----\nMIIBsrc\n-----END CERTIFICATE-----"})));
    for (const char* key : {"srpubkey.bin", "reqseckey.bin", "sr2048pubkey.bin", "req2048seckey.bin"})
      WriteFile(m_config.dir().file(std::string("src/") + key), std::string("key ") + key);
    return Wide(m_config.dir().file("src/SiteList.xml"));
  }
  // Checks the counts and records them, with the minimum (one fsync per file
  // written, one per directory changed), as test properties for the report.
  void Expect(const char* operation, const SyncCounts& counts, int filesWritten, int directoriesChanged,
              int fileFsyncs, int directoryFsyncs, const char* reason = "") {
    RecordProperty("operation", operation);
    RecordProperty("files_written", filesWritten);
    RecordProperty("directories_changed", directoriesChanged);
    RecordProperty("file_fsyncs", counts.fileFsyncs);
    RecordProperty("directory_fsyncs", counts.directoryFsyncs);
    RecordProperty("fdatasyncs", counts.fdatasyncs);
    if (*reason) RecordProperty("reason", reason);
    EXPECT_EQ(fileFsyncs, counts.fileFsyncs);
    EXPECT_EQ(directoryFsyncs, counts.directoryFsyncs);
    EXPECT_EQ(0, counts.fdatasyncs);
  }
  // A write of one file: at its minimum.
  void ExpectOneFile(const char* operation, const SyncCounts& counts) { Expect(operation, counts, 1, 1, 1, 1); }

  testsupport::ConfigScope m_config;
  CSitesHelper m_helper{Wide(m_config.dataDir() + "/etc/SiteList.xml")};
  std::string m_etc;
};

TEST_F(FsyncCountTest, CreateSiteListSyncsTheListAndItsDirectory) {
  tag_Site* sites = nullptr;
  ASSERT_EQ(0, m_helper.ReadSiteList(Wide(Own()), &sites));
  SyncCounter counter;
  ASSERT_EQ(0, m_helper.CreateSiteList(sites, Wide(Own()), L"20250101000000", L"20250101000002", L"Client", {}));
  const SyncCounts counts = counter.counts();
  m_helper.FreeSiteListMemory(sites);
  ExpectOneFile("CreateSiteList", counts);
}

TEST_F(FsyncCountTest, ImportOfAListWithFourKeyFilesSyncsEachFileTheRecordAndTheDirectoryThrice) {
  const std::wstring source = Source();
  SyncCounter counter;
  ASSERT_EQ(0, m_helper.ImportSiteList(source, L""));
  Expect("ImportSiteList (the list and four key files)", counter.counts(), 5, 1, 6, 3, kRecordReason);
  EXPECT_EQ("key sr2048pubkey.bin", ReadFile(m_etc + "/sr2048pubkey.bin"));
}

TEST_F(FsyncCountTest, InstallOfAListWithFourKeyFilesSyncsEachFileTheRecordAndTheDirectoryThrice) {
  const std::wstring source = Source();
  SyncCounter counter;
  ASSERT_EQ(0, m_helper.InstallSiteList(source, L""));
  Expect("InstallSiteList (the list and four key files)", counter.counts(), 5, 1, 6, 3, kRecordReason);
}

TEST_F(FsyncCountTest, SetSpipeSiteForUpdSiteSyncsTheListAndItsDirectory) {
  SyncCounter counter;
  ASSERT_EQ(0, m_helper.SetSpipeSiteForUpdSite(443, L"192.0.2.7", L"mgmt.corp.example", L"MGMT01"));
  ExpectOneFile("SetSpipeSiteForUpdSite", counter.counts());
}

TEST_F(FsyncCountTest, ServerSiteListFromSiteListSyncsTheNewListAndItsDirectory) {
  const std::wstring dir = Wide(m_etc);
  SyncCounter counter;
  ASSERT_TRUE(CSitesHelper::createServerSiteListFromSiteList(dir.c_str(), nullptr));
  ExpectOneFile("createServerSiteListFromSiteList", counter.counts());
}

TEST_F(FsyncCountTest, CreateServerSiteListSyncsTheListAndItsDirectory) {
  AnObjectBuffer<unsigned char> buffer(reinterpret_cast<const unsigned char*>(kOwnList.data()), kOwnList.size());
  SyncCounter counter;
  ASSERT_TRUE(m_helper.CreateServerSiteList(buffer, false));
  ExpectOneFile("CreateServerSiteList", counter.counts());
}

TEST_F(FsyncCountTest, ModifySiteListWithFourKeyFilesSyncsEachFileTheRecordAndTheDirectoryThrice) {
  const std::wstring source = Source();
  SyncCounter counter;
  ASSERT_TRUE(m_helper.modifySiteList(source.c_str(), true, true, AString()));
  Expect("modifySiteList (the list and four key files)", counter.counts(), 5, 1, 6, 3, kRecordReason);
}

TEST_F(FsyncCountTest, CreateSiteListFromBufferSyncsTheListAndItsDirectory) {
  std::filesystem::create_directories(m_config.dir().file("root/opt/Velmora/orx/scratch/etc"));
  const std::wstring text = Wide(kOwnList);
  SyncCounter counter;
  ASSERT_EQ(0, m_helper.CreateSiteListFromBuffer(text));
  ExpectOneFile("CreateSiteListFromBuffer", counter.counts());
}

TEST_F(FsyncCountTest, PlacingTwoFilesSyncsBothTheRecordAndTheDirectoryThrice) {
  std::vector<sitehlp::SiteFile> files(2);
  files[0].path = Wide(Own());
  files[0].contents = ABuffer(reinterpret_cast<const unsigned char*>(kOwnList.data()), kOwnList.size());
  files[1].path = Wide(m_etc + "/srpubkey.bin");
  files[1].contents = ABuffer(reinterpret_cast<const unsigned char*>("key"), 3);
  SyncCounter counter;
  ASSERT_EQ(0, m_helper.PlaceSiteFiles(files));
  Expect("PlaceSiteFiles (two files)", counter.counts(), 2, 1, 3, 3, kRecordReason);
}

TEST_F(FsyncCountTest, PlacingOneFileSyncsItAndItsDirectory) {
  std::vector<sitehlp::SiteFile> files(1);
  files[0].path = Wide(Own());
  files[0].contents = ABuffer(reinterpret_cast<const unsigned char*>(kOwnList.data()), kOwnList.size());
  SyncCounter counter;
  ASSERT_EQ(0, m_helper.PlaceSiteFiles(files));
  ExpectOneFile("PlaceSiteFiles (one file)", counter.counts());
}

// The key's folder is new too, so its parent is synced as well: otherwise a
// cut could lose the key while a list encrypted with it survives.
TEST_F(FsyncCountTest, TheFirstEncryptionWithoutAKeySyncsTheNewKeyFileItsDirectoryAndItsParent) {
  port::SetConfigValue(port::ConfigKey::KeyDir, m_config.dir().file("fresh-keys"));
  port::ClearKeyCache();
  std::wstring encrypted;
  SyncCounter counter;
  ASSERT_EQ(1, m_helper.EncryptPassword(L"secret", encrypted));
  Expect("EncryptPassword creating its key file and folder", counter.counts(), 1, 2, 1, 2);
  port::ClearKeyCache();
}

}  // namespace
