// Reading the CA certificates of a site list: which elements count, what is
// appended to the caller's list, the failure codes, and the shared lock.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include "port/fs/SysCalls.h"
#include "port/lock/InterProcessLock.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using testsupport::Wide;
using testsupport::WriteFile;
using Certificates = std::vector<std::wstring>;

std::string SiteListWith(const std::string& beforeSiteList) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ns:SiteLists xmlns:ns=\"zelSiteList\" "
         "GlobalVersion=\"20240101000000\" LocalVersion=\"20240101000000\" Type=\"Client\">" +
         beforeSiteList +
         "<SiteList Default=\"1\" Name=\"SomeGUID\"><HttpSite Type=\"repository\" Name=\"h\" Order=\"1\" "
         "Enabled=\"1\" Local=\"0\" Server=\"http.example:80\"/></SiteList></ns:SiteLists>\n";
}

std::atomic<int> g_lockCalls{0};
int CountingFcntlLock(int fd, int cmd, struct flock* lock) {
  ++g_lockCalls;
  return port::RealSysCalls().fcntlLock(fd, cmd, lock);
}

class CaCertificatesTest : public ::testing::Test {
 protected:
  void Put(const std::string& text) { WriteFile(m_path, text); }

  testsupport::ConfigScope m_config;
  std::string m_path = m_config.dir().file("SiteList.xml");
  std::wstring m_wpath = Wide(m_path);
  CSitesHelper m_helper{m_wpath};
  testsupport::CapturingLogSink m_log;
};

TEST_F(CaCertificatesTest, SiteListWithoutCaBundleReturnsZeroAndLeavesTheListAsGiven) {
  Put(SiteListWith("<Policies><Setting name=\"x\">1</Setting></Policies>"));
  Certificates certificates{L"given"};
  EXPECT_EQ(0, m_helper.GetCaCertificates(m_wpath, certificates));
  EXPECT_EQ(Certificates{L"given"}, certificates);
  EXPECT_TRUE(m_log.allMessages().empty());
}

TEST_F(CaCertificatesTest, EmptyCaBundleReturnsZeroAndAppendsNothing) {
  Put(SiteListWith("<CaBundle/>"));
  Certificates certificates;
  EXPECT_EQ(0, m_helper.GetCaCertificates(m_wpath, certificates));
  EXPECT_TRUE(certificates.empty());
}

TEST_F(CaCertificatesTest, TwoCertificatesAndAnotherElementAppendExactlyTwoInDocumentOrder) {
  Put(SiteListWith("<CaBundle><CaCertificate>SECOND-IN-NAME</CaCertificate><Comment>not a certificate</Comment>"
                   "<CaCertificate>FIRST-IN-NAME</CaCertificate></CaBundle>"));
  Certificates certificates{L"already there"};
  EXPECT_EQ(0, m_helper.GetCaCertificates(m_wpath, certificates));
  EXPECT_EQ((Certificates{L"already there", L"SECOND-IN-NAME", L"FIRST-IN-NAME"}), certificates);
}

TEST_F(CaCertificatesTest, CallingTwiceWithTheSameListYieldsEachCertificateTwice) {
  Put(SiteListWith("<CaBundle><CaCertificate>A</CaCertificate><CaCertificate>B</CaCertificate></CaBundle>"));
  Certificates certificates;
  EXPECT_EQ(0, m_helper.GetCaCertificates(m_wpath, certificates));
  EXPECT_EQ(0, m_helper.GetCaCertificates(m_wpath, certificates));
  EXPECT_EQ((Certificates{L"A", L"B", L"A", L"B"}), certificates);
}

TEST_F(CaCertificatesTest, EmptyPathReadsTheHelpersOwnSiteList) {
  Put(SiteListWith("<CaBundle><CaCertificate>OWN</CaCertificate></CaBundle>"));
  // A list at the default location must not be the one read.
  WriteFile(testsupport::Narrow(m_config.defaultSiteList()),
            SiteListWith("<CaBundle><CaCertificate>DEFAULT</CaCertificate></CaBundle>"));
  Certificates certificates;
  EXPECT_EQ(0, m_helper.GetCaCertificates(L"", certificates));
  EXPECT_EQ(Certificates{L"OWN"}, certificates);
}

TEST_F(CaCertificatesTest, GivenPathIsReadInsteadOfTheHelpersOwn) {
  Put(SiteListWith("<CaBundle><CaCertificate>OWN</CaCertificate></CaBundle>"));
  const std::string other = m_config.dir().file("other.xml");
  WriteFile(other, SiteListWith("<CaBundle><CaCertificate>OTHER</CaCertificate></CaBundle>"));
  Certificates certificates;
  EXPECT_EQ(0, m_helper.GetCaCertificates(Wide(other), certificates));
  EXPECT_EQ(Certificates{L"OTHER"}, certificates);
}

TEST_F(CaCertificatesTest, MissingFileReturnsMinusFourPromptlyWhileAnotherHolderHasTheWriteLock) {
  InterProcessWriteLock writer(sitehlp::c_siteListLock);
  ASSERT_TRUE(writer.lock(sitehlp::c_lockWaitForever));
  Certificates certificates{L"given"};
  auto pending = std::async(std::launch::async, [&] {
    return m_helper.GetCaCertificates(m_config.dir().wfile("missing.xml"), certificates);
  });
  const std::future_status status = pending.wait_for(std::chrono::seconds(5));
  writer.unlock();  // lets a call that did wait for the lock finish
  EXPECT_EQ(std::future_status::ready, status) << "the call waited for the lock";
  EXPECT_EQ(-4, pending.get());
  EXPECT_EQ(Certificates{L"given"}, certificates);
}

TEST_F(CaCertificatesTest, MissingFileMakesNoLockCall) {
  Put(SiteListWith("<CaBundle><CaCertificate>A</CaCertificate></CaBundle>"));
  port::SysCalls table = port::RealSysCalls();
  table.fcntlLock = CountingFcntlLock;
  port::ScopedSysCallOverride scope(table);
  Certificates certificates;

  g_lockCalls = 0;
  EXPECT_EQ(-4, m_helper.GetCaCertificates(m_config.dir().wfile("missing.xml"), certificates));
  EXPECT_EQ(0, g_lockCalls.load());

  // The counter does see the lock of a file that exists.
  g_lockCalls = 0;
  EXPECT_EQ(0, m_helper.GetCaCertificates(m_wpath, certificates));
  EXPECT_LT(0, g_lockCalls.load());
  EXPECT_EQ(Certificates{L"A"}, certificates);
}

TEST_F(CaCertificatesTest, ReadingWaitsForAWriterAndSharesWithAReader) {
  Put(SiteListWith("<CaBundle><CaCertificate>A</CaCertificate></CaBundle>"));
  {
    InterProcessReadLock reader(sitehlp::c_siteListLock);
    ASSERT_TRUE(reader.lock(sitehlp::c_lockWaitForever));
    Certificates certificates;
    auto pending = std::async(std::launch::async, [&] { return m_helper.GetCaCertificates(m_wpath, certificates); });
    const std::future_status status = pending.wait_for(std::chrono::seconds(5));
    reader.unlock();
    EXPECT_EQ(std::future_status::ready, status) << "a shared lock does not exclude another reader";
    EXPECT_EQ(0, pending.get());
    EXPECT_EQ(Certificates{L"A"}, certificates);
  }
  {
    InterProcessWriteLock writer(sitehlp::c_siteListLock);
    ASSERT_TRUE(writer.lock(sitehlp::c_lockWaitForever));
    Certificates certificates;
    auto pending = std::async(std::launch::async, [&] { return m_helper.GetCaCertificates(m_wpath, certificates); });
    const std::future_status status = pending.wait_for(std::chrono::milliseconds(400));
    writer.unlock();
    EXPECT_EQ(std::future_status::timeout, status) << "the file is read under the site list lock";
    ASSERT_EQ(std::future_status::ready, pending.wait_for(std::chrono::seconds(20)));
    EXPECT_EQ(0, pending.get());
    EXPECT_EQ(Certificates{L"A"}, certificates);
  }
}

TEST_F(CaCertificatesTest, MalformedFileReturnsMinusFiveAndLeavesTheListAsGiven) {
  Put("<ns:SiteLists xmlns:ns=\"zelSiteList\"><CaBundle><CaCertificate>A</CaCertificate></CaBundle><SiteList>");
  Certificates certificates{L"given"};
  EXPECT_EQ(-5, m_helper.GetCaCertificates(m_wpath, certificates));
  EXPECT_EQ(Certificates{L"given"}, certificates);
  // The refusal's place, at detail level, is the only line.
  EXPECT_EQ(std::vector<std::wstring>{m_wpath + L":1:101: not well formed: no element found"}, m_log.allMessages());
}

TEST_F(CaCertificatesTest, DirectoryReturnsMinusTen) {
  const std::string dir = m_config.dir().file("a-directory");
  ASSERT_TRUE(std::filesystem::create_directory(dir));
  Certificates certificates{L"given"};
  EXPECT_EQ(-10, m_helper.GetCaCertificates(Wide(dir), certificates));
  EXPECT_EQ(Certificates{L"given"}, certificates);
  EXPECT_TRUE(m_log.allMessages().empty());
}

TEST_F(CaCertificatesTest, FileThatIsNotValidUtf8ReturnsMinusTen) {
  Put(SiteListWith("<CaBundle><CaCertificate>A\xC3\x28</CaCertificate></CaBundle>"));
  Certificates certificates;
  EXPECT_EQ(-10, m_helper.GetCaCertificates(m_wpath, certificates));
  EXPECT_TRUE(certificates.empty());
}

TEST_F(CaCertificatesTest, MissingFileLogsNothingButTheTraceScope) {
  Certificates certificates;
  EXPECT_EQ(-4, m_helper.GetCaCertificates(m_config.dir().wfile("missing.xml"), certificates));
  EXPECT_TRUE(m_log.allMessages().empty());
  std::vector<std::wstring> traces;
  for (const auto& line : m_log.lines()) traces.push_back(line.message);
  EXPECT_EQ((std::vector<std::wstring>{L"Entering Getting Certificates", L"Leaving Getting Certificates"}), traces);
}

TEST_F(CaCertificatesTest, CertificateTextWithSurroundingWhiteSpaceIsKeptAsDelivered) {
  Put(SiteListWith("<CaBundle><CaCertificate>\n-----BEGIN CERTIFICATE-----\n\tMIIBkTCB+wIJAL\n"
                   "-----END CERTIFICATE-----\n  </CaCertificate><CaCertificate>  padded  </CaCertificate>"
                   "</CaBundle>"));
  Certificates certificates;
  EXPECT_EQ(0, m_helper.GetCaCertificates(m_wpath, certificates));
  EXPECT_EQ((Certificates{L"\n-----BEGIN CERTIFICATE-----\n\tMIIBkTCB+wIJAL\n-----END CERTIFICATE-----\n  ",
                          L"  padded  "}),
            certificates);
}

TEST_F(CaCertificatesTest, EscapedAndEmptyCertificateTextsAreAppendedDecoded) {
  Put(SiteListWith("<CaBundle><CaCertificate>a&amp;b&lt;c&#x3E;</CaCertificate><CaCertificate/>"
                   "<CaCertificate><![CDATA[<raw>]]></CaCertificate></CaBundle>"));
  Certificates certificates;
  EXPECT_EQ(0, m_helper.GetCaCertificates(m_wpath, certificates));
  EXPECT_EQ((Certificates{L"a&b<c>", L"", L"<raw>"}), certificates);
}

TEST_F(CaCertificatesTest, OnlyDirectCaCertificateChildrenOfTheRootsFirstCaBundleCount) {
  Put("<ns:SiteLists xmlns:ns=\"zelSiteList\"><CaCertificate>AT-ROOT</CaCertificate>"
      "<SiteList><CaBundle><CaCertificate>IN-SITELIST</CaCertificate></CaBundle></SiteList>"
      "<CaBundle><Group><CaCertificate>NESTED</CaCertificate></Group><cacertificate>LOWER</cacertificate>"
      "<CaCertificate>FIRST</CaCertificate></CaBundle>"
      "<CaBundle><CaCertificate>SECOND-BUNDLE</CaCertificate></CaBundle></ns:SiteLists>");
  Certificates certificates;
  EXPECT_EQ(0, m_helper.GetCaCertificates(m_wpath, certificates));
  EXPECT_EQ(Certificates{L"FIRST"}, certificates);
}

TEST_F(CaCertificatesTest, CertificatesWrittenByTheWriterAreReadBackInOrder) {
  const Certificates written{L"-----BEGIN CERTIFICATE-----\nAAA=\n-----END CERTIFICATE-----\n", L" two ",
                             L"th&ree<>"};
  ASSERT_EQ(0, m_helper.CreateSiteList(nullptr, m_wpath, L"", L"", L"", written));
  Certificates certificates;
  EXPECT_EQ(0, m_helper.GetCaCertificates(m_wpath, certificates));
  EXPECT_EQ(written, certificates);
}

}  // namespace
