// Memory running out while a list is read, merged, written or turned from
// text into a file: each allocation of one use is made to fail in turn, and
// the operation must report it, hand out no half-built result as a success,
// write nothing it could not build, and neither leak nor free twice.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "port/config/IConfiguration.h"
#include "port/crypto/KeyCache.h"
#include "port/lock/InterProcessLock.h"
#include "port/log/Log.h"
#include "port/xml/AdvXMLParser.h"
#include "sitehlp/AllocationTestUtil.h"
#include "sitehlp/SiteRecordTestUtil.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::AllocationUse;
using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using sitetest::ExpectNoLeak;
using sitetest::SiteList;
using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::Wide;
using testsupport::WriteFile;

// Makes the allocation of one use with a chosen index fail, and counts that
// use's allocations.
class FailingAllocation : public sitetest::AllocationControl {
 public:
  FailingAllocation(AllocationUse use, int failAt) : AllocationControl(Once, failAt, use) {}
};

const char kDecl[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

std::string Document(const std::string& sites) {
  return std::string(kDecl) +
         "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20240101000000\" "
         "LocalVersion=\"20240102030405\" Type=\"Client\"><SiteList Default=\"1\" Name=\"SomeGUID\">" +
         sites + "</SiteList></ns:SiteLists>";
}

std::string HttpSite(const std::string& name, int order) {
  return "<HttpSite Type=\"repository\" Name=\"" + name + "\" Order=\"" + std::to_string(order) +
         "\" Enabled=\"1\" Local=\"0\" Server=\"" + name + ".corp.example:80\"><RelativePath>Updates</RelativePath>"
         "<UseAuth>0</UseAuth><UserName></UserName><Password Encrypted=\"1\"></Password></HttpSite>";
}

const std::string kSpipeSite =
    "<SpipeSite Type=\"master\" Name=\"Management\" Order=\"4\" Enabled=\"1\" Local=\"0\" "
    "Server=\"mgmt.corp.example:443\" ServerName=\"MGMT:443\" ServerIP=\"192.0.2.10:443\">"
    "<RelativePath>Software</RelativePath><UseAuth>0</UseAuth><UserName></UserName>"
    "<Password Encrypted=\"1\"></Password></SpipeSite>";

const std::string kThreeSites = HttpSite("one", 1) + HttpSite("two", 2) + HttpSite("three", 3);

class OutOfMemoryTest : public ::testing::Test {
 protected:
  void SetUp() override { port::ClearKeyCache(); }
  void TearDown() override { port::ClearKeyCache(); }

  testsupport::ConfigScope m_config;
  std::string m_path = m_config.dir().file("SiteList.xml");
  std::wstring m_wpath = Wide(m_path);
  CSitesHelper m_helper{m_wpath};
};

// ---- reading ---------------------------------------------------------------------------------------

TEST_F(OutOfMemoryTest, ReadingStopsAtTheRecordThatCannotBeAllocatedAndHandsOverWhatWasRead) {
  WriteFile(m_path, Document(kThreeSites));
  for (int failAt = 0; failAt < 3; ++failAt) {
    SCOPED_TRACE("record " + std::to_string(failAt) + " fails");
    SiteList list(m_helper);
    {
      FailingAllocation failing(AllocationUse::ReadRecord, failAt);
      EXPECT_EQ(m_helper.ReadSiteList(m_wpath, list.out()), sitehlp::c_outOfMemory);
      EXPECT_EQ(FailingAllocation::count(), failAt + 1);
    }
    ASSERT_EQ(list.size(), static_cast<std::size_t>(failAt));
    const char* const names[] = {"one", "two"};
    for (int i = 0; i < failAt; ++i) EXPECT_EQ(testsupport::Narrow(list.at(i)->httpSite.szName), names[i]);
  }
  ExpectNoLeak();
}

TEST_F(OutOfMemoryTest, ASmartReadThatRunsOutOfMemoryFillsNoCacheAndLogsTheCode) {
  WriteFile(m_path, Document(kThreeSites));
  testsupport::CapturingLogSink log;
  tag_Site* list = nullptr;
  {
    FailingAllocation failing(AllocationUse::ReadRecord, 1);
    EXPECT_EQ(m_helper.SmartReadSiteList(m_wpath, &list), sitehlp::c_outOfMemory);
  }
  EXPECT_EQ(CSitesHelper::m_pSiteList, nullptr);
  EXPECT_TRUE(log.contains(L"Unable to read from SiteList file, error hr=-3"));
  m_helper.FreeSiteListMemory(list);  // the first record, read before memory ran out
  ExpectNoLeak();
}

TEST_F(OutOfMemoryTest, ABodyThatCannotBeAllocatedIsReportedAndNoneHandedOut) {
  const std::wstring text = L"<SiteList><FTPSite Name=\"F\" Server=\"ftp.corp.example:21\"/></SiteList>";
  AdvXMLParser::Parser parser;
  std::unique_ptr<AdvXMLParser::Document> document(parser.Parse(text.c_str(), text.size()));
  ASSERT_TRUE(document);
  AdvXMLParser::Element ftp = document->GetRoot().FirstChildElement();
  void* body = reinterpret_cast<void*>(static_cast<std::uintptr_t>(0x1234));
  {
    FailingAllocation failing(AllocationUse::SiteBody, 0);
    EXPECT_EQ(m_helper.ReadSiteFromSiteList(&ftp, &body), sitehlp::c_outOfMemory);
  }
  EXPECT_EQ(body, nullptr);
  ExpectNoLeak();
}

// ---- merging -----------------------------------------------------------------------------------------

// The agent's own list cannot be read whole: the merge must fail rather than
// hand out the given list's SPIPE site alone as the merged list.
TEST_F(OutOfMemoryTest, AMergeWhoseOwnListRunsOutOfMemoryFailsAndHandsOutNothing) {
  WriteFile(m_path, Document(kThreeSites));
  WriteFile(m_config.dir().file("given.xml"), Document(kSpipeSite));
  CSitesHelper reader(m_config.dir().wfile("given.xml"));
  SiteList given(reader);
  ASSERT_EQ(reader.ReadSiteList(L"", given.out()), 0);
  for (int failAt = 0; failAt < 3; ++failAt) {
    SCOPED_TRACE("record " + std::to_string(failAt) + " of the own list fails");
    tag_Site* merged = nullptr;
    int code = 0;
    {
      FailingAllocation failing(AllocationUse::ReadRecord, failAt);
      code = m_helper.MergeSiteLists(given.head(), nullptr, false, &merged);
    }
    EXPECT_EQ(code, sitehlp::c_outOfMemory);
    EXPECT_EQ(merged, nullptr);
    m_helper.FreeSiteListMemory(merged);
  }
  ExpectNoLeak();
}

// ---- writing ---------------------------------------------------------------------------------------

// The document, then one element per site, are allocated while the list is
// built; whichever fails, nothing is written, the file in place stays as it
// was, the caller gets -11 and the lock is never taken.
TEST_F(OutOfMemoryTest, ADocumentThatCannotBeBuiltIsNotWrittenAndTheCallerIsTold) {
  WriteFile(m_path, Document(kThreeSites));
  const std::string before = ReadFile(m_path);
  SiteList sites(m_helper);
  ASSERT_EQ(m_helper.ReadSiteList(m_wpath, sites.out()), 0);
  {
    SiteList copy(m_helper, sitetest::CopyList(sites.head()));
    FailingAllocation counting(AllocationUse::Document, -1);
    ASSERT_EQ(m_helper.CreateSiteList(copy.head(), m_config.dir().wfile("other.xml"), L"", L"", L"", {}), 0);
    ASSERT_EQ(FailingAllocation::count(), 4);
  }
  for (int failAt = 0; failAt < 4; ++failAt) {
    SCOPED_TRACE("allocation " + std::to_string(failAt) + " fails");
    SiteList copy(m_helper, sitetest::CopyList(sites.head()));
    testsupport::CapturingLogSink log;
    {
      FailingAllocation failing(AllocationUse::Document, failAt);
      EXPECT_EQ(m_helper.CreateSiteList(copy.head(), m_wpath, L"", L"", L"", {}), sitehlp::c_fileNotWritten);
    }
    EXPECT_EQ(ReadFile(m_path), before);
    EXPECT_EQ(log.messages(port::LogLevel::Error),
              std::vector<std::wstring>{L"Unable to build the site list for " + m_wpath});
    InterProcessWriteLock lock(sitehlp::c_siteListLock);
    EXPECT_TRUE(lock.lock(0)) << "the lock is free";
  }
  ExpectNoLeak();
}

// ---- buffers ---------------------------------------------------------------------------------------

class BufferOutOfMemoryTest : public OutOfMemoryTest {
 protected:
  std::string StandardPath() const { return m_config.dir().file("root/opt/Velmora/orx/scratch/etc/SiteList.xml"); }
  void SetUp() override {
    OutOfMemoryTest::SetUp();
    std::filesystem::create_directories(m_config.dir().file("root/opt/Velmora/orx/scratch/etc"));
  }
};

TEST_F(BufferOutOfMemoryTest, TextWhoseSitesCannotBeAllocatedWritesNothing) {
  const std::wstring text = Wide(Document(kThreeSites));
  for (int failAt = 0; failAt < 3; ++failAt) {
    SCOPED_TRACE("record " + std::to_string(failAt) + " fails");
    FailingAllocation failing(AllocationUse::ReadRecord, failAt);
    EXPECT_EQ(m_helper.CreateSiteListFromBuffer(text), sitehlp::c_outOfMemory);
    EXPECT_FALSE(FileExists(StandardPath()));
  }
  ExpectNoLeak();
}

TEST_F(BufferOutOfMemoryTest, TextWhoseDocumentCannotBeBuiltWritesNothingAndReportsMinusEleven) {
  const std::wstring text = Wide(Document(kThreeSites));
  for (int failAt = 0; failAt < 4; ++failAt) {
    SCOPED_TRACE("allocation " + std::to_string(failAt) + " fails");
    FailingAllocation failing(AllocationUse::Document, failAt);
    EXPECT_EQ(m_helper.CreateSiteListFromBuffer(text), sitehlp::c_fileNotWritten);
    EXPECT_FALSE(FileExists(StandardPath()));
  }
  ExpectNoLeak();
}

}  // namespace
