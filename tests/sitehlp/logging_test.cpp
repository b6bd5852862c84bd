// A host routes the library's lines into its own logger: component, level
// and message in UTF-8, at the syslog priority of each level, filtered by the
// level the host sets.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "port/config/IConfiguration.h"
#include "port/log/Log.h"
#include "sitehlp/Logging.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::LogLevel;

struct HostLine {
  std::string component;
  LogLevel level;
  std::string message;
  bool operator==(const HostLine& o) const {
    return component == o.component && level == o.level && message == o.message;
  }
};

std::ostream& operator<<(std::ostream& os, const HostLine& l) {
  return os << l.component << "/" << static_cast<int>(l.level) << "/" << l.message;
}

void Collect(void* context, const char* component, LogLevel level, const char* message) {
  static_cast<std::vector<HostLine>*>(context)->push_back({component, level, message});
}

class HostLoggingTest : public ::testing::Test {
 protected:
  // Whatever falls back to the default destination goes nowhere.
  testsupport::DefaultLogScope m_log{"none", "info"};
  std::vector<HostLine> m_lines;
};

TEST_F(HostLoggingTest, EveryLevelArrivesAtItsSyslogPriorityWithComponentAndUtf8Message) {
  sitehlp::SetLogLevel(LogLevel::Debug);
  sitehlp::SetLogSink(&Collect, &m_lines);
  logError(L"SiteHlp", L"failed hr=-4");
  logWarning(L"SiteHlp", L"w");
  logInfo(L"StSHlp", L"caf\u00e9 \u20ac");
  logDetail(L"SiteHlp", L"d");
  logInternalError(L"SiteHlp", L"path is empty");

  EXPECT_EQ(m_lines, (std::vector<HostLine>{{"SiteHlp", LogLevel::Error, "failed hr=-4"},
                                            {"SiteHlp", LogLevel::Warning, "w"},
                                            {"StSHlp", LogLevel::Info, "caf\xc3\xa9 \xe2\x82\xac"},
                                            {"SiteHlp", LogLevel::Debug, "d"},
                                            {"SiteHlp", LogLevel::Error, "internal error: path is empty"}}));
  EXPECT_EQ(static_cast<int>(LogLevel::Error), 3);
  EXPECT_EQ(static_cast<int>(LogLevel::Warning), 4);
  EXPECT_EQ(static_cast<int>(LogLevel::Info), 6);
  EXPECT_EQ(static_cast<int>(LogLevel::Debug), 7);
}

TEST_F(HostLoggingTest, TheHostsLevelDropsLessSevereLines) {
  sitehlp::SetLogSink(&Collect, &m_lines);
  sitehlp::SetLogLevel(LogLevel::Warning);
  logError(L"SiteHlp", L"e");
  logWarning(L"SiteHlp", L"w");
  logInfo(L"SiteHlp", L"i");
  logDetail(L"SiteHlp", L"d");
  EXPECT_EQ(m_lines, (std::vector<HostLine>{{"SiteHlp", LogLevel::Error, "e"}, {"SiteHlp", LogLevel::Warning, "w"}}));
  EXPECT_EQ(port::GetLogThreshold(), port::LogLevel::Warning);
}

TEST_F(HostLoggingTest, AtTheInfoLevelOnlyDetailLinesAreDropped) {
  sitehlp::SetLogSink(&Collect, &m_lines);
  sitehlp::SetLogLevel(LogLevel::Info);
  logError(L"SiteHlp", L"e");
  logWarning(L"SiteHlp", L"w");
  logInfo(L"SiteHlp", L"i");
  logDetail(L"SiteHlp", L"d");
  EXPECT_EQ(m_lines, (std::vector<HostLine>{{"SiteHlp", LogLevel::Error, "e"},
                                            {"SiteHlp", LogLevel::Warning, "w"},
                                            {"SiteHlp", LogLevel::Info, "i"}}));
  EXPECT_EQ(port::GetLogThreshold(), port::LogLevel::Info);
}

TEST_F(HostLoggingTest, TheLinesOfALibraryOperationReachTheHost) {
  testsupport::ConfigScope config;
  m_log.Set(port::ConfigKey::LogSink, "none");
  sitehlp::SetLogLevel(LogLevel::Error);
  sitehlp::SetLogSink(&Collect, &m_lines);
  sitehlp::CSitesHelper helper(config.defaultSiteList());
  // The cached read of an empty path is a caller's mistake.
  sitehlp::tag_Site* list = nullptr;
  EXPECT_EQ(helper.MustReadSiteList(L"", &list), -1);
  ASSERT_FALSE(m_lines.empty());
  EXPECT_EQ(m_lines[0], (HostLine{"SiteHlp", LogLevel::Error, "internal error: path is empty"}));
}

TEST_F(HostLoggingTest, ARemovedSinkIsNeverCalledAgainWhileOtherThreadsLog) {
  struct Counter {
    std::atomic<bool> removed{false};
    std::atomic<int> calls{0};
    std::atomic<int> callsAfterRemoval{0};
  };
  auto count = [](void* context, const char*, LogLevel, const char*) {
    auto* c = static_cast<Counter*>(context);
    if (c->removed.load()) ++c->callsAfterRemoval;
    ++c->calls;
  };
  Counter first, second;
  std::atomic<bool> stop{false};
  sitehlp::SetLogSink(count, &first);
  std::vector<std::thread> loggers;
  for (int t = 0; t < 4; ++t)
    loggers.emplace_back([&stop] {
      while (!stop.load()) logError(L"SiteHlp", L"busy");
    });
  while (first.calls.load() < 100) std::this_thread::yield();
  sitehlp::SetLogSink(count, &second);
  first.removed = true;
  while (second.calls.load() < 100) std::this_thread::yield();
  sitehlp::SetLogSink(nullptr, nullptr);
  second.removed = true;
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  stop = true;
  for (std::thread& t : loggers) t.join();

  EXPECT_EQ(first.callsAfterRemoval.load(), 0);
  EXPECT_EQ(second.callsAfterRemoval.load(), 0);
}

}  // namespace
