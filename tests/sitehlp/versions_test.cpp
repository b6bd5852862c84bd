// Version, type and FIPS mode of a site list file.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using testsupport::CapturingLogSink;

const char kServerList[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20200101000000\" LocalVersion=\"20200102000000\" "
    "Type=\"Server\"><SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>";

const char kUntypedList[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20190303030303\" LocalVersion=\"20190404040404\">"
    "<SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>";

const char kGlobalOnlyList[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20180505050505\" Type=\"Client\">"
    "<SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>";

const char kNoVersionsList[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" Type=\"Server\"><SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>";

const char kFipsList[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20200101000000\" LocalVersion=\"20200102000000\" "
    "Type=\"Client\" FipsMode=\"1\"><SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>";

const char kFipsOffList[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" FipsMode=\"0\"><SiteList Default=\"1\" Name=\"SomeGUID\"/></ns:SiteLists>";

const char kMalformedList[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
    "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20200101000000\"><SiteList></ns:SiteLists>";

// The same ASCII text as UTF-16 little endian with its byte order mark.
std::string Utf16LeWithBom(const std::string& ascii) {
  std::string bytes("\xFF\xFE", 2);
  for (char c : ascii) {
    bytes.push_back(c);
    bytes.push_back('\0');
  }
  return bytes;
}

class SiteListVersionQueryTest : public ::testing::Test {
 protected:
  // A file under the test's directory, written with bytes.
  std::wstring Write(const std::string& name, const std::string& bytes) {
    const std::string path = m_config.dir().file(name);
    testsupport::WriteFile(path, bytes);
    return testsupport::Wide(path);
  }

  testsupport::ConfigScope m_config;
  // Built before any list exists: its own versions stay empty.
  CSitesHelper m_helper{m_config.defaultSiteList()};
  std::wstring m_global = L"keepGlobal";
  std::wstring m_local = L"keepLocal";
  std::wstring m_type = L"keepType";
};

// ---- GetSitelistVersions --------------------------------------------------------------------

TEST_F(SiteListVersionQueryTest, ReadsBothVersionsAndTheType) {
  const std::wstring path = Write("list.xml", kServerList);
  EXPECT_EQ(m_helper.GetSitelistVersions(path, m_global, m_local, m_type), 0);
  EXPECT_EQ(m_global, L"20200101000000");
  EXPECT_EQ(m_local, L"20200102000000");
  EXPECT_EQ(m_type, L"Server");
}

TEST_F(SiteListVersionQueryTest, EmptyPathReadsTheHelpersOwnList) {
  const std::wstring own = Write("own.xml", kServerList);
  CSitesHelper helper(own);
  // Another list at the default location must not be the one read.
  testsupport::WriteFile(testsupport::Narrow(m_config.defaultSiteList()), kUntypedList);
  EXPECT_EQ(helper.GetSitelistVersions(L"", m_global, m_local, m_type), 0);
  EXPECT_EQ(m_global, L"20200101000000");
  EXPECT_EQ(m_local, L"20200102000000");
  EXPECT_EQ(m_type, L"Server");
}

TEST_F(SiteListVersionQueryTest, EmptyPathReadsTheOwnListAsItIsAtCallTime) {
  // The helper was made while its list did not exist.
  testsupport::WriteFile(testsupport::Narrow(m_config.defaultSiteList()), kUntypedList);
  EXPECT_EQ(m_helper.GetSitelistVersions(L"", m_global, m_local, m_type), 0);
  EXPECT_EQ(m_global, L"20190303030303");
  EXPECT_EQ(m_local, L"20190404040404");
  EXPECT_EQ(m_type, L"Client");
}

TEST_F(SiteListVersionQueryTest, ListWithoutTypeReportsClient) {
  const std::wstring path = Write("untyped.xml", kUntypedList);
  m_type = L"Server";
  EXPECT_EQ(m_helper.GetSitelistVersions(path, m_global, m_local, m_type), 0);
  EXPECT_EQ(m_global, L"20190303030303");
  EXPECT_EQ(m_local, L"20190404040404");
  EXPECT_EQ(m_type, L"Client");
}

TEST_F(SiteListVersionQueryTest, GlobalVersionWithoutLocalVersionGivesEmptyLocalVersion) {
  const std::wstring path = Write("global-only.xml", kGlobalOnlyList);
  EXPECT_EQ(m_helper.GetSitelistVersions(path, m_global, m_local, m_type), 0);
  EXPECT_EQ(m_global, L"20180505050505");
  EXPECT_EQ(m_local, L"");
  EXPECT_EQ(m_type, L"Client");
}

TEST_F(SiteListVersionQueryTest, ListWithoutVersionsGivesEmptyVersionsAndSucceeds) {
  const std::wstring path = Write("no-versions.xml", kNoVersionsList);
  EXPECT_EQ(m_helper.GetSitelistVersions(path, m_global, m_local, m_type), 0);
  EXPECT_EQ(m_global, L"");
  EXPECT_EQ(m_local, L"");
  EXPECT_EQ(m_type, L"Server");
}

TEST_F(SiteListVersionQueryTest, MissingFileReturnsMinusFourAndLeavesOutputsUntouched) {
  EXPECT_EQ(m_helper.GetSitelistVersions(m_config.dir().wfile("absent.xml"), m_global, m_local, m_type), -4);
  EXPECT_EQ(m_global, L"keepGlobal");
  EXPECT_EQ(m_local, L"keepLocal");
  EXPECT_EQ(m_type, L"keepType");
}

TEST_F(SiteListVersionQueryTest, MissingOwnListWithEmptyPathReturnsMinusFourAndLeavesOutputsUntouched) {
  EXPECT_EQ(m_helper.GetSitelistVersions(L"", m_global, m_local, m_type), -4);
  EXPECT_EQ(m_global, L"keepGlobal");
  EXPECT_EQ(m_local, L"keepLocal");
  EXPECT_EQ(m_type, L"keepType");
}

TEST_F(SiteListVersionQueryTest, UnreadableFileReturnsMinusOneWithVersionsEmptiedAndTypeKept) {
  const std::string dir = m_config.dir().file("a-directory.xml");
  ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
  EXPECT_EQ(m_helper.GetSitelistVersions(testsupport::Wide(dir), m_global, m_local, m_type), -1);
  EXPECT_EQ(m_global, L"");
  EXPECT_EQ(m_local, L"");
  EXPECT_EQ(m_type, L"keepType");
}

TEST_F(SiteListVersionQueryTest, MalformedFileReturnsMinusOneWithVersionsEmptiedAndTypeKept) {
  const std::wstring path = Write("malformed.xml", kMalformedList);
  EXPECT_EQ(m_helper.GetSitelistVersions(path, m_global, m_local, m_type), -1);
  EXPECT_EQ(m_global, L"");
  EXPECT_EQ(m_local, L"");
  EXPECT_EQ(m_type, L"keepType");
}

TEST_F(SiteListVersionQueryTest, EmptyFileReturnsMinusOne) {
  const std::wstring path = Write("empty.xml", "");
  EXPECT_EQ(m_helper.GetSitelistVersions(path, m_global, m_local, m_type), -1);
  EXPECT_EQ(m_global, L"");
  EXPECT_EQ(m_local, L"");
  EXPECT_EQ(m_type, L"keepType");
}

TEST_F(SiteListVersionQueryTest, TextThatIsNoXmlReturnsMinusOne) {
  const std::wstring path = Write("text.xml", "invalid");
  EXPECT_EQ(m_helper.GetSitelistVersions(path, m_global, m_local, m_type), -1);
  EXPECT_EQ(m_type, L"keepType");
}

TEST_F(SiteListVersionQueryTest, Utf16LittleEndianFileWithByteOrderMarkIsRead) {
  std::string xml = kServerList;
  xml.replace(xml.find("UTF-8"), 5, "UTF-16");
  const std::wstring path = Write("utf16.xml", Utf16LeWithBom(xml));
  EXPECT_EQ(m_helper.GetSitelistVersions(path, m_global, m_local, m_type), 0);
  EXPECT_EQ(m_global, L"20200101000000");
  EXPECT_EQ(m_local, L"20200102000000");
  EXPECT_EQ(m_type, L"Server");
}

TEST_F(SiteListVersionQueryTest, Utf8FileWithByteOrderMarkIsRead) {
  const std::wstring path = Write("utf8bom.xml", std::string("\xEF\xBB\xBF") + kServerList);
  EXPECT_EQ(m_helper.GetSitelistVersions(path, m_global, m_local, m_type), 0);
  EXPECT_EQ(m_global, L"20200101000000");
  EXPECT_EQ(m_type, L"Server");
}

TEST_F(SiteListVersionQueryTest, QueryTracesEntryAndExitOnly) {
  const std::wstring path = Write("list.xml", kServerList);
  CapturingLogSink sink;
  EXPECT_EQ(m_helper.GetSitelistVersions(path, m_global, m_local, m_type), 0);
  ASSERT_GE(sink.lines().size(), 2u);
  EXPECT_EQ(sink.lines().front().component, L"SiteHlp");
  EXPECT_EQ(sink.lines().front().message, L"Entering Getting Sitelist versions");
  EXPECT_EQ(sink.lines().back().component, L"SiteHlp");
  EXPECT_EQ(sink.lines().back().message, L"Leaving Getting Sitelist versions");
  EXPECT_TRUE(sink.allMessages().empty());
}

TEST_F(SiteListVersionQueryTest, FailingVersionQueriesLogNoErrorLine) {
  const std::string dir = m_config.dir().file("a-directory.xml");
  ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
  const std::wstring malformed = Write("malformed.xml", kMalformedList);
  const std::wstring empty = Write("empty.xml", "");
  CapturingLogSink sink;
  EXPECT_EQ(m_helper.GetSitelistVersions(m_config.dir().wfile("absent.xml"), m_global, m_local, m_type), -4);
  EXPECT_EQ(m_helper.GetSitelistVersions(testsupport::Wide(dir), m_global, m_local, m_type), -1);
  EXPECT_EQ(m_helper.GetSitelistVersions(malformed, m_global, m_local, m_type), -1);
  EXPECT_EQ(m_helper.GetSitelistVersions(empty, m_global, m_local, m_type), -1);
  EXPECT_EQ(m_helper.GetGlobalSitelistVersion(m_global), -4);
  EXPECT_EQ(sink.messages(port::LogLevel::Error), std::vector<std::wstring>{});
}

// ---- GetGlobalSitelistVersion ------------------------------------------------------------------

TEST_F(SiteListVersionQueryTest, GlobalVersionOfOwnListIsReturnedWithResultZero) {
  testsupport::WriteFile(testsupport::Narrow(m_config.defaultSiteList()), kServerList);
  std::wstring global = L"previous";
  EXPECT_EQ(m_helper.GetGlobalSitelistVersion(global), 0);
  EXPECT_EQ(global, L"20200101000000");
}

TEST_F(SiteListVersionQueryTest, GlobalVersionOfOwnListWithoutGlobalVersionIsEmpty) {
  testsupport::WriteFile(testsupport::Narrow(m_config.defaultSiteList()), kNoVersionsList);
  std::wstring global = L"previous";
  EXPECT_EQ(m_helper.GetGlobalSitelistVersion(global), 0);
  EXPECT_EQ(global, L"");
}

TEST_F(SiteListVersionQueryTest, GlobalVersionOfMissingOwnListReturnsMinusFourAndLeavesOutputUntouched) {
  std::wstring global = L"previous";
  EXPECT_EQ(m_helper.GetGlobalSitelistVersion(global), -4);
  EXPECT_EQ(global, L"previous");
}

TEST_F(SiteListVersionQueryTest, GlobalVersionOfMalformedOwnListReturnsMinusOne) {
  testsupport::WriteFile(testsupport::Narrow(m_config.defaultSiteList()), kMalformedList);
  std::wstring global = L"previous";
  EXPECT_EQ(m_helper.GetGlobalSitelistVersion(global), -1);
  EXPECT_EQ(global, L"");
}

TEST_F(SiteListVersionQueryTest, GlobalVersionLeavesTheHelpersOwnVersionsAlone) {
  testsupport::WriteFile(testsupport::Narrow(m_config.defaultSiteList()), kServerList);
  std::wstring global;
  EXPECT_EQ(m_helper.GetGlobalSitelistVersion(global), 0);
  EXPECT_EQ(m_helper.GetGlobalVersion(), L"");
  EXPECT_EQ(m_helper.GetLocalVersion(), L"");
  EXPECT_EQ(m_helper.GetSiteListType(), L"Client");
}

// ---- GetSitelistFipsMode -------------------------------------------------------------------------

TEST_F(SiteListVersionQueryTest, FipsModeOneIsReportedWithResultZero) {
  const std::wstring path = Write("fips.xml", kFipsList);
  std::wstring fips = L"previous";
  EXPECT_EQ(m_helper.GetSitelistFipsMode(path, fips), 0);
  EXPECT_EQ(fips, L"1");
}

TEST_F(SiteListVersionQueryTest, FipsModeZeroIsReportedAsWritten) {
  const std::wstring path = Write("fips-off.xml", kFipsOffList);
  std::wstring fips = L"previous";
  EXPECT_EQ(m_helper.GetSitelistFipsMode(path, fips), 0);
  EXPECT_EQ(fips, L"0");
}

TEST_F(SiteListVersionQueryTest, ListWithoutFipsModeReturnsMinusOneAndLeavesOutputUnchanged) {
  const std::wstring path = Write("list.xml", kServerList);
  std::wstring fips = L"previous";
  EXPECT_EQ(m_helper.GetSitelistFipsMode(path, fips), -1);
  EXPECT_EQ(fips, L"previous");
}

TEST_F(SiteListVersionQueryTest, FipsModeOfMissingFileReturnsMinusFourAndLeavesOutputUnchanged) {
  std::wstring fips = L"previous";
  EXPECT_EQ(m_helper.GetSitelistFipsMode(m_config.dir().wfile("absent.xml"), fips), -4);
  EXPECT_EQ(fips, L"previous");
}

TEST_F(SiteListVersionQueryTest, FipsModeOfMalformedFileReturnsMinusOneAndLeavesOutputUnchanged) {
  const std::wstring path = Write("malformed.xml", kMalformedList);
  std::wstring fips = L"previous";
  EXPECT_EQ(m_helper.GetSitelistFipsMode(path, fips), -1);
  EXPECT_EQ(fips, L"previous");
}

TEST_F(SiteListVersionQueryTest, FipsModeOfUnreadableFileReturnsMinusOneAndLeavesOutputUnchanged) {
  const std::string dir = m_config.dir().file("a-directory.xml");
  ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
  std::wstring fips = L"previous";
  EXPECT_EQ(m_helper.GetSitelistFipsMode(testsupport::Wide(dir), fips), -1);
  EXPECT_EQ(fips, L"previous");
}

TEST_F(SiteListVersionQueryTest, FipsModeOfEmptyFileReturnsMinusOne) {
  const std::wstring path = Write("empty.xml", "");
  std::wstring fips = L"previous";
  EXPECT_EQ(m_helper.GetSitelistFipsMode(path, fips), -1);
  EXPECT_EQ(fips, L"previous");
}

TEST_F(SiteListVersionQueryTest, FipsModeWithEmptyPathReadsTheHelpersOwnList) {
  const std::wstring own = Write("own.xml", kFipsList);
  CSitesHelper helper(own);
  std::wstring fips = L"previous";
  EXPECT_EQ(helper.GetSitelistFipsMode(L"", fips), 0);
  EXPECT_EQ(fips, L"1");
}

TEST_F(SiteListVersionQueryTest, FipsModeOfUtf16LittleEndianFileWithByteOrderMarkIsRead) {
  std::string xml = kFipsList;
  xml.replace(xml.find("UTF-8"), 5, "UTF-16");
  const std::wstring path = Write("fips16.xml", Utf16LeWithBom(xml));
  std::wstring fips = L"previous";
  EXPECT_EQ(m_helper.GetSitelistFipsMode(path, fips), 0);
  EXPECT_EQ(fips, L"1");
}

TEST_F(SiteListVersionQueryTest, FipsQueryTracesEntryAndExitOnly) {
  const std::wstring path = Write("fips.xml", kFipsList);
  std::wstring fips;
  CapturingLogSink sink;
  EXPECT_EQ(m_helper.GetSitelistFipsMode(path, fips), 0);
  ASSERT_GE(sink.lines().size(), 2u);
  EXPECT_EQ(sink.lines().front().component, L"SiteHlp");
  EXPECT_EQ(sink.lines().front().message, L"Entering Getting Sitelist fips mode");
  EXPECT_EQ(sink.lines().back().message, L"Leaving Getting Sitelist fips mode");
  EXPECT_TRUE(sink.allMessages().empty());
}

TEST_F(SiteListVersionQueryTest, FailingFipsQueriesLogNoErrorLine) {
  const std::string dir = m_config.dir().file("a-directory.xml");
  ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
  const std::wstring malformed = Write("malformed.xml", kMalformedList);
  const std::wstring plain = Write("list.xml", kServerList);
  std::wstring fips = L"previous";
  CapturingLogSink sink;
  EXPECT_EQ(m_helper.GetSitelistFipsMode(m_config.dir().wfile("absent.xml"), fips), -4);
  EXPECT_EQ(m_helper.GetSitelistFipsMode(testsupport::Wide(dir), fips), -1);
  EXPECT_EQ(m_helper.GetSitelistFipsMode(malformed, fips), -1);
  EXPECT_EQ(m_helper.GetSitelistFipsMode(plain, fips), -1);
  EXPECT_EQ(fips, L"previous");
  EXPECT_EQ(sink.messages(port::LogLevel::Error), std::vector<std::wstring>{});
}

}  // namespace
