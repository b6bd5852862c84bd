// The process-wide cached site list (smart reads and change notices), the
// insisting read, and reads racing a writer across processes.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "port/log/Log.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using testsupport::Narrow;
using testsupport::Wide;

tag_Site* const kUntouched = reinterpret_cast<tag_Site*>(static_cast<std::uintptr_t>(0x5a5a5a50));

// A document with one HttpSite per name.
std::string DocumentWithSites(const std::vector<std::string>& names) {
  std::string sites;
  for (const std::string& name : names)
    sites += "<HttpSite Type=\"repository\" Name=\"" + name + "\" Order=\"1\" Enabled=\"1\" Server=\"" + name +
             ".corp.example:80\"/>";
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<ns:SiteLists xmlns:ns=\"zelSiteList\" GlobalVersion=\"20200101010101\" "
         "LocalVersion=\"20200202020202\" Type=\"Client\"><SiteList Default=\"1\" Name=\"SomeGUID\">" +
         sites + "</SiteList></ns:SiteLists>\n";
}

std::vector<std::wstring> Names(const tag_Site* list) {
  std::vector<std::wstring> names;
  for (const tag_Site* p = list; p; p = p->pNext) names.push_back(p->httpSite.szName);
  return names;
}

std::size_t Count(const tag_Site* list) {
  std::size_t n = 0;
  for (const tag_Site* p = list; p; p = p->pNext) ++n;
  return n;
}

// Drops every line while it lives.
class NullLogSink : public port::LogSink {
 public:
  NullLogSink() : m_previous(port::SetLogSink(this)) {}
  ~NullLogSink() override { port::SetLogSink(m_previous); }
  void Write(port::LogLevel, bool, const std::wstring&, const std::wstring&) override {}

 private:
  port::LogSink* m_previous;
};

class SiteListCacheTest : public ::testing::Test {
 protected:
  void SetUp() override { ResetCache(); }
  void TearDown() override { ResetCache(); }

  void ResetCache() {
    m_helper.FreeSiteListMemory(CSitesHelper::m_pSiteList);
    CSitesHelper::m_pSiteList = nullptr;
    CSitesHelper::m_iChange = 0;
  }

  void WriteSites(const std::vector<std::string>& names) { testsupport::WriteFile(m_path, DocumentWithSites(names)); }

  testsupport::ConfigScope m_config;
  std::string m_path = m_config.dir().file("SiteList.xml");
  std::wstring m_wpath = Wide(m_path);
  CSitesHelper m_helper{m_wpath};
};

// ---- SmartReadSiteList ------------------------------------------------------------------------------

TEST_F(SiteListCacheTest, FirstSmartReadGoesToTheFileAndLogsCounterZero) {
  WriteSites({"alpha", "beta"});
  testsupport::CapturingLogSink sink;
  tag_Site* list = nullptr;
  EXPECT_EQ(m_helper.SmartReadSiteList(m_wpath, &list), 0);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list, CSitesHelper::m_pSiteList);
  EXPECT_EQ(CSitesHelper::m_iChange, 1);
  EXPECT_EQ(Names(list), (std::vector<std::wstring>{L"alpha", L"beta"}));
  EXPECT_EQ(sink.messages(port::LogLevel::Detail), std::vector<std::wstring>{L"Reading from FILE0"});
  EXPECT_TRUE(sink.messages(port::LogLevel::Error).empty());
  EXPECT_EQ(m_helper.GetCurrentPath(), m_wpath);
}

TEST_F(SiteListCacheTest, SecondSmartReadServesTheSameListFromMemory) {
  WriteSites({"alpha", "beta"});
  tag_Site* first = nullptr;
  ASSERT_EQ(m_helper.SmartReadSiteList(m_wpath, &first), 0);
  ASSERT_NE(first, nullptr);
  // The file is gone: a second read can only be served from memory.
  ASSERT_EQ(std::remove(m_path.c_str()), 0);

  testsupport::CapturingLogSink sink;
  tag_Site* second = nullptr;
  EXPECT_EQ(m_helper.SmartReadSiteList(m_wpath, &second), 0);
  EXPECT_EQ(second, first);
  EXPECT_EQ(CSitesHelper::m_pSiteList, first);
  EXPECT_EQ(CSitesHelper::m_iChange, 1);
  EXPECT_EQ(sink.messages(port::LogLevel::Detail), std::vector<std::wstring>{L"Reading from memory1"});
  EXPECT_TRUE(sink.messages(port::LogLevel::Error).empty());
}

TEST_F(SiteListCacheTest, AnotherHelperObjectSharesTheCache) {
  WriteSites({"alpha"});
  tag_Site* first = nullptr;
  ASSERT_EQ(m_helper.SmartReadSiteList(m_wpath, &first), 0);
  CSitesHelper other{m_config.dir().wfile("unrelated.xml")};
  testsupport::CapturingLogSink sink;
  tag_Site* second = nullptr;
  EXPECT_EQ(other.SmartReadSiteList(m_wpath, &second), 0);
  EXPECT_EQ(second, first);
  EXPECT_TRUE(sink.contains(L"Reading from memory1"));
}

TEST_F(SiteListCacheTest, ChangeNoticeOnlyCountsAndKeepsTheList) {
  WriteSites({"alpha"});
  tag_Site* list = nullptr;
  ASSERT_EQ(m_helper.SmartReadSiteList(m_wpath, &list), 0);
  m_helper.needToUpdateInMemSiteList();
  EXPECT_EQ(CSitesHelper::m_iChange, 2);
  EXPECT_EQ(CSitesHelper::m_pSiteList, list);
  m_helper.needToUpdateInMemSiteList();
  EXPECT_EQ(CSitesHelper::m_iChange, 3);
  EXPECT_EQ(CSitesHelper::m_pSiteList, list);
  EXPECT_EQ(Names(CSitesHelper::m_pSiteList), std::vector<std::wstring>{L"alpha"});
}

TEST_F(SiteListCacheTest, AfterOneNoticeTheCacheIsStillServed) {
  WriteSites({"alpha", "beta"});
  tag_Site* first = nullptr;
  ASSERT_EQ(m_helper.SmartReadSiteList(m_wpath, &first), 0);
  m_helper.needToUpdateInMemSiteList();
  WriteSites({"gamma", "delta", "epsilon"});

  testsupport::CapturingLogSink sink;
  tag_Site* second = nullptr;
  EXPECT_EQ(m_helper.SmartReadSiteList(m_wpath, &second), 0);
  EXPECT_EQ(second, first);
  EXPECT_EQ(Names(second), (std::vector<std::wstring>{L"alpha", L"beta"}));
  EXPECT_EQ(CSitesHelper::m_iChange, 2);
  EXPECT_EQ(sink.messages(port::LogLevel::Detail), std::vector<std::wstring>{L"Reading from memory2"});
}

TEST_F(SiteListCacheTest, AfterTwoNoticesTheChangedFileIsReReadAndTheOldListFreed) {
  WriteSites({"alpha", "beta"});
  tag_Site* first = nullptr;
  ASSERT_EQ(m_helper.SmartReadSiteList(m_wpath, &first), 0);
  m_helper.needToUpdateInMemSiteList();
  m_helper.needToUpdateInMemSiteList();
  WriteSites({"gamma", "delta", "epsilon"});

  testsupport::CapturingLogSink sink;
  tag_Site* second = nullptr;
  EXPECT_EQ(m_helper.SmartReadSiteList(m_wpath, &second), 0);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second, CSitesHelper::m_pSiteList);
  EXPECT_EQ(Names(second), (std::vector<std::wstring>{L"gamma", L"delta", L"epsilon"}));
  EXPECT_EQ(CSitesHelper::m_iChange, 1);
  EXPECT_EQ(sink.messages(port::LogLevel::Detail), std::vector<std::wstring>{L"Reading from FILE3"});
  EXPECT_TRUE(sink.messages(port::LogLevel::Error).empty());

  // Served from memory again until the next two notices.
  sink.clear();
  tag_Site* third = nullptr;
  EXPECT_EQ(m_helper.SmartReadSiteList(m_wpath, &third), 0);
  EXPECT_EQ(third, second);
  EXPECT_EQ(sink.messages(port::LogLevel::Detail), std::vector<std::wstring>{L"Reading from memory1"});
}

TEST_F(SiteListCacheTest, FileWithoutSitesLeavesTheCacheEmptyAndTheNextReadTriesAgain) {
  WriteSites({});
  testsupport::CapturingLogSink sink;
  tag_Site* list = kUntouched;
  EXPECT_EQ(m_helper.SmartReadSiteList(m_wpath, &list), 0);
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(CSitesHelper::m_pSiteList, nullptr);
  EXPECT_EQ(CSitesHelper::m_iChange, 0);
  EXPECT_EQ(sink.messages(port::LogLevel::Detail), std::vector<std::wstring>{L"Reading from FILE0"});
  EXPECT_EQ(sink.messages(port::LogLevel::Error),
            std::vector<std::wstring>{L"Unable to read from SiteList file, error hr=0"});

  sink.clear();
  list = kUntouched;
  EXPECT_EQ(m_helper.SmartReadSiteList(m_wpath, &list), 0);
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(CSitesHelper::m_pSiteList, nullptr);
  EXPECT_EQ(sink.messages(port::LogLevel::Detail), std::vector<std::wstring>{L"Reading from FILE0"});
  EXPECT_EQ(sink.messages(port::LogLevel::Error),
            std::vector<std::wstring>{L"Unable to read from SiteList file, error hr=0"});

  WriteSites({"alpha"});
  sink.clear();
  list = nullptr;
  EXPECT_EQ(m_helper.SmartReadSiteList(m_wpath, &list), 0);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list, CSitesHelper::m_pSiteList);
  EXPECT_EQ(CSitesHelper::m_iChange, 1);
  EXPECT_EQ(sink.messages(port::LogLevel::Detail), std::vector<std::wstring>{L"Reading from FILE0"});
  EXPECT_TRUE(sink.messages(port::LogLevel::Error).empty());
}

TEST_F(SiteListCacheTest, MissingFileSmartReadReturnsMinusFourAndLogsIt) {
  testsupport::CapturingLogSink sink;
  tag_Site* list = kUntouched;
  EXPECT_EQ(m_helper.SmartReadSiteList(m_wpath, &list), -4);
  EXPECT_EQ(list, kUntouched);
  EXPECT_EQ(CSitesHelper::m_pSiteList, nullptr);
  EXPECT_EQ(CSitesHelper::m_iChange, 0);
  EXPECT_EQ(sink.messages(port::LogLevel::Error),
            std::vector<std::wstring>{L"Unable to read from SiteList file, error hr=-4"});
}

TEST_F(SiteListCacheTest, StaleCacheWhoseFileVanishedIsDroppedAndRetriedLater) {
  WriteSites({"alpha"});
  tag_Site* list = nullptr;
  ASSERT_EQ(m_helper.SmartReadSiteList(m_wpath, &list), 0);
  m_helper.needToUpdateInMemSiteList();
  m_helper.needToUpdateInMemSiteList();
  ASSERT_EQ(std::remove(m_path.c_str()), 0);

  testsupport::CapturingLogSink sink;
  list = kUntouched;
  EXPECT_EQ(m_helper.SmartReadSiteList(m_wpath, &list), -4);
  EXPECT_EQ(CSitesHelper::m_pSiteList, nullptr);
  EXPECT_EQ(CSitesHelper::m_iChange, 3);
  EXPECT_EQ(sink.messages(port::LogLevel::Detail), std::vector<std::wstring>{L"Reading from FILE3"});
  EXPECT_EQ(sink.messages(port::LogLevel::Error),
            std::vector<std::wstring>{L"Unable to read from SiteList file, error hr=-4"});

  WriteSites({"beta", "gamma"});
  sink.clear();
  list = nullptr;
  EXPECT_EQ(m_helper.SmartReadSiteList(m_wpath, &list), 0);
  EXPECT_EQ(Names(list), (std::vector<std::wstring>{L"beta", L"gamma"}));
  EXPECT_EQ(CSitesHelper::m_iChange, 1);
  EXPECT_EQ(sink.messages(port::LogLevel::Detail), std::vector<std::wstring>{L"Reading from FILE3"});
}

TEST_F(SiteListCacheTest, MalformedFileSmartReadReturnsMinusFiveAndCachesNothing) {
  testsupport::WriteFile(m_path, "<ns:SiteLists><SiteList><HttpSite Name=\"x\"></ns:SiteLists>");
  testsupport::CapturingLogSink sink;
  tag_Site* list = kUntouched;
  EXPECT_EQ(m_helper.SmartReadSiteList(m_wpath, &list), -5);
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(CSitesHelper::m_pSiteList, nullptr);
  EXPECT_EQ(sink.messages(port::LogLevel::Error),
            std::vector<std::wstring>{L"Unable to read from SiteList file, error hr=-5"});
}

TEST_F(SiteListCacheTest, SmartReadOfListEndingInNonProxyEntryPassesTheListThroughUncached) {
  testsupport::WriteFile(m_path,
                         "<ns:SiteLists xmlns:ns=\"zelSiteList\"><SiteList><HttpSite Name=\"h\" Server=\"h:80\"/>"
                         "<ProxyConfigList><Note/></ProxyConfigList></SiteList></ns:SiteLists>");
  testsupport::CapturingLogSink sink;
  tag_Site* list = nullptr;
  EXPECT_EQ(m_helper.SmartReadSiteList(m_wpath, &list), -1);
  EXPECT_EQ(Count(list), 2u);
  EXPECT_EQ(CSitesHelper::m_pSiteList, nullptr);
  EXPECT_EQ(CSitesHelper::m_iChange, 0);
  EXPECT_EQ(sink.messages(port::LogLevel::Error),
            std::vector<std::wstring>{L"Unable to read from SiteList file, error hr=-1"});
  if (list != CSitesHelper::m_pSiteList) m_helper.FreeSiteListMemory(list);  // not the cache's
}

// ---- MustReadSiteList --------------------------------------------------------------------------------

TEST_F(SiteListCacheTest, MustReadWithEmptyPathReturnsMinusOneWithoutTouchingTheFile) {
  WriteSites({"alpha"});
  const std::string before = testsupport::ReadFile(m_path);
  testsupport::CapturingLogSink sink;
  tag_Site* list = kUntouched;
  EXPECT_EQ(m_helper.MustReadSiteList(L"", &list), -1);
  EXPECT_EQ(list, kUntouched);
  if (list != kUntouched) m_helper.FreeSiteListMemory(list);
  // The reader never ran: it would have chosen the helper's own file.
  EXPECT_EQ(m_helper.GetCurrentPath(), L"");
  EXPECT_EQ(testsupport::ReadFile(m_path), before);
  EXPECT_EQ(CSitesHelper::m_pSiteList, nullptr);

  std::vector<testsupport::LogLine> internalErrors;
  for (const auto& line : sink.lines())
    if (line.internal) internalErrors.push_back(line);
  ASSERT_EQ(internalErrors.size(), 1u);
  EXPECT_EQ(internalErrors[0].level, port::LogLevel::Error);
  EXPECT_EQ(internalErrors[0].component, L"SiteHlp");
  EXPECT_EQ(internalErrors[0].message, L"path is empty");
  EXPECT_EQ(sink.messages(port::LogLevel::Error), std::vector<std::wstring>{L"path is empty"});
}

TEST_F(SiteListCacheTest, MustReadReturnsACallerOwnedListAndLeavesTheCacheAlone) {
  WriteSites({"alpha", "beta"});
  testsupport::CapturingLogSink sink;
  tag_Site* list = nullptr;
  EXPECT_EQ(m_helper.MustReadSiteList(m_wpath, &list), 0);
  EXPECT_EQ(Names(list), (std::vector<std::wstring>{L"alpha", L"beta"}));
  EXPECT_EQ(CSitesHelper::m_pSiteList, nullptr);
  EXPECT_EQ(CSitesHelper::m_iChange, 0);
  EXPECT_TRUE(sink.messages(port::LogLevel::Error).empty());
  m_helper.FreeSiteListMemory(list);
}

TEST_F(SiteListCacheTest, MustReadOfMissingFileLogsFailedWithTheCode) {
  testsupport::CapturingLogSink sink;
  tag_Site* list = kUntouched;
  EXPECT_EQ(m_helper.MustReadSiteList(m_wpath, &list), -4);
  EXPECT_EQ(list, kUntouched);
  EXPECT_EQ(sink.messages(port::LogLevel::Error), std::vector<std::wstring>{L"Failed hr=-4"});
}

TEST_F(SiteListCacheTest, MustReadOfFileWithoutSitesReturnsZeroAndLogsFailed) {
  WriteSites({});
  testsupport::CapturingLogSink sink;
  tag_Site* list = kUntouched;
  EXPECT_EQ(m_helper.MustReadSiteList(m_wpath, &list), 0);
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(sink.messages(port::LogLevel::Error), std::vector<std::wstring>{L"Failed hr=0"});
}

TEST_F(SiteListCacheTest, MustReadOfMalformedFileLogsFailedWithMinusFive) {
  testsupport::WriteFile(m_path, "<ns:SiteLists xmlns:ns=\"zelSiteList\"><SiteList>");
  testsupport::CapturingLogSink sink;
  tag_Site* list = kUntouched;
  EXPECT_EQ(m_helper.MustReadSiteList(m_wpath, &list), -5);
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(sink.messages(port::LogLevel::Error), std::vector<std::wstring>{L"Failed hr=-5"});
}

TEST_F(SiteListCacheTest, MustReadOfListEndingInNonProxyEntryLogsFailedWithMinusOne) {
  testsupport::WriteFile(m_path,
                         "<ns:SiteLists xmlns:ns=\"zelSiteList\"><SiteList><HttpSite Name=\"h\" Server=\"h:80\"/>"
                         "<ProxyConfigList><Note/></ProxyConfigList></SiteList></ns:SiteLists>");
  testsupport::CapturingLogSink sink;
  tag_Site* list = nullptr;
  EXPECT_EQ(m_helper.MustReadSiteList(m_wpath, &list), -1);
  EXPECT_EQ(Count(list), 2u);
  EXPECT_EQ(sink.messages(port::LogLevel::Error), std::vector<std::wstring>{L"Failed hr=-1"});
  m_helper.FreeSiteListMemory(list);
}

// ---- several processes -------------------------------------------------------------------------------

// Builds a list of HTTP sites named prefix0, prefix1, ... for the writer.
tag_Site* BuildList(const std::wstring& prefix, int count) {
  tag_Site* head = nullptr;
  tag_Site** link = &head;
  for (int i = 0; i < count; ++i) {
    tag_Site* site = static_cast<tag_Site*>(std::calloc(1, sizeof(tag_Site)));
    site->bEnabled = 1;
    site->nOrder = i + 1;
    site->nSiteType = sitehlp::SITE_TYPE_HTTP;
    std::wcscpy(site->szType, L"repository");
    std::wcscpy(site->httpSite.szSiteElement, L"HttpSite");
    std::wcscpy(site->httpSite.szName, (prefix + std::to_wstring(i)).c_str());
    std::wcscpy(site->httpSite.szServer, L"repo.corp.example");
    site->httpSite.nPort = 80;
    *link = site;
    link = &site->pNext;
  }
  return head;
}

// 0 when list is exactly A0 A1 or exactly B0 B1 B2.
int CheckOneOfTheTwoLists(const tag_Site* list) {
  const std::vector<std::wstring> names = Names(list);
  if (names == std::vector<std::wstring>{L"A0", L"A1"}) return 0;
  if (names == std::vector<std::wstring>{L"B0", L"B1", L"B2"}) return 0;
  return 1;
}

constexpr int kReaderRounds = 200;
constexpr int kWriterRounds = 100;
constexpr unsigned kWatchdogSeconds = 120;

[[noreturn]] void ReaderChild(const std::wstring& path) {
  alarm(kWatchdogSeconds);
  CSitesHelper helper{path};
  for (int round = 0; round < kReaderRounds; ++round) {
    tag_Site* cached = nullptr;
    if (helper.SmartReadSiteList(path, &cached) != 0) _exit(10);
    const std::size_t cachedCount = Count(cached);
    if (cachedCount != 2 && cachedCount != 3) _exit(11);
    if (CheckOneOfTheTwoLists(cached) != 0) _exit(12);

    tag_Site* own = nullptr;
    if (helper.ReadSiteList(path, &own) != 0) _exit(13);
    const std::size_t ownCount = Count(own);
    const int ownCheck = CheckOneOfTheTwoLists(own);
    helper.FreeSiteListMemory(own);
    if (ownCount != 2 && ownCount != 3) _exit(14);
    if (ownCheck != 0) _exit(15);

    // Two notices now and then, so that smart reads go back to the file.
    if (round % 5 == 0) {
      helper.needToUpdateInMemSiteList();
      helper.needToUpdateInMemSiteList();
    }
  }
  _exit(0);
}

[[noreturn]] void WriterChild(const std::wstring& path) {
  alarm(kWatchdogSeconds);
  CSitesHelper helper{path};
  for (int round = 0; round < kWriterRounds; ++round) {
    tag_Site* list = (round % 2 == 0) ? BuildList(L"B", 3) : BuildList(L"A", 2);
    const int result = helper.CreateSiteList(list, path, L"", L"", L"Client", {});
    helper.FreeSiteListMemory(list);
    if (result != 0) _exit(20);
  }
  _exit(0);
}

TEST_F(SiteListCacheTest, ReadsInSeveralProcessesWhileAnotherRewritesTheFileAlwaysSeeAWholeList) {
  NullLogSink quiet;
  {
    tag_Site* initial = BuildList(L"A", 2);
    ASSERT_EQ(m_helper.CreateSiteList(initial, m_wpath, L"", L"", L"Client", {}), 0);
    m_helper.FreeSiteListMemory(initial);
  }
  ASSERT_EQ(CSitesHelper::m_pSiteList, nullptr);

  constexpr int kReaders = 3;
  std::vector<pid_t> children;
  for (int i = 0; i < kReaders; ++i) {
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) ReaderChild(m_wpath);
    children.push_back(pid);
  }
  const pid_t writer = fork();
  ASSERT_GE(writer, 0);
  if (writer == 0) WriterChild(m_wpath);
  children.push_back(writer);

  for (std::size_t i = 0; i < children.size(); ++i) {
    int status = 0;
    ASSERT_EQ(waitpid(children[i], &status, 0), children[i]);
    const bool writerChild = children[i] == writer;
    EXPECT_TRUE(WIFEXITED(status)) << (writerChild ? "writer" : "reader") << " ended by signal "
                                   << (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    if (WIFEXITED(status)) {
      EXPECT_EQ(WEXITSTATUS(status), 0) << (writerChild ? "writer" : "reader");
    }
  }

  // The file holds one of the two lists when everyone is done.
  tag_Site* last = nullptr;
  ASSERT_EQ(m_helper.ReadSiteList(m_wpath, &last), 0);
  EXPECT_EQ(Names(last), (std::vector<std::wstring>{L"A0", L"A1"}));  // the writer's last round writes A
  m_helper.FreeSiteListMemory(last);
}

}  // namespace
