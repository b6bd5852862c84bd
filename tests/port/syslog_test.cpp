// What reaches syslog. The library logs under the host process's identity and
// facility: it never calls openlog or closelog, and its priorities carry no
// facility bits. openlog, closelog and syslog are defined in this binary, so
// the library's calls land here instead of in the system log.
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "port/config/IConfiguration.h"
#include "port/log/Log.h"
#include "sitehlp/Logging.h"
#include "sitehlp/SitesHelper.h"
#include "support/TestSupport.h"

namespace {

struct SyslogLine {
  std::string ident;  // the identity in force when the line was written
  int priority;
  std::string text;
};

struct FakeSyslog {
  int openCalls = 0;
  int closeCalls = 0;
  std::string ident;  // empty: never opened
  int facility = LOG_USER;
  std::vector<SyslogLine> lines;
};

FakeSyslog g_syslog;

void Record(int priority, const char* format, va_list args) {
  char text[1024];
  std::vsnprintf(text, sizeof text, format, args);
  g_syslog.lines.push_back({g_syslog.ident, priority, text});
}

}  // namespace

extern "C" {
void openlog(const char* ident, int, int facility) {
  ++g_syslog.openCalls;
  g_syslog.ident = ident ? ident : "";
  g_syslog.facility = facility;
}
void closelog() {
  ++g_syslog.closeCalls;
  g_syslog.ident.clear();
}
void vsyslog(int priority, const char* format, va_list args) { Record(priority, format, args); }
void syslog(int priority, const char* format, ...) {
  va_list args;
  va_start(args, format);
  Record(priority, format, args);
  va_end(args);
}
// What syslog() becomes when built with _FORTIFY_SOURCE.
void __syslog_chk(int priority, int, const char* format, ...) {
  va_list args;
  va_start(args, format);
  Record(priority, format, args);
  va_end(args);
}
}

namespace {

using port::ConfigKey;

// The default destination, taken from the configuration afresh for every
// test; stderr is redirected into a file to see what the library says there.
class SyslogTest : public ::testing::Test {
 protected:
  void SetUp() override { g_syslog = FakeSyslog{}; }

  // Runs body with stderr going to a file; returns what was written there.
  template <typename Body>
  std::string Stderr(Body body) {
    const std::string path = m_dir.file("stderr");
    std::fflush(stderr);
    const int saved = dup(2);
    FILE* file = std::fopen(path.c_str(), "w");
    dup2(fileno(file), 2);
    body();
    std::fflush(stderr);
    dup2(saved, 2);
    close(saved);
    std::fclose(file);
    return testsupport::ReadFile(path);
  }

  std::vector<int> Priorities() const {
    std::vector<int> out;
    for (const SyslogLine& line : g_syslog.lines) out.push_back(line.priority);
    return out;
  }
  std::vector<std::string> Texts() const {
    std::vector<std::string> out;
    for (const SyslogLine& line : g_syslog.lines) out.push_back(line.text);
    return out;
  }

  testsupport::TempDir m_dir;
  testsupport::DefaultLogScope m_log{"syslog", "detail"};
};

TEST_F(SyslogTest, LinesGoOutUnderTheIdentityAndFacilityTheHostOpenedAndTheLibraryNeverReopens) {
  openlog("hostd", LOG_PID, LOG_LOCAL3);  // what the host process does at start
  logError(L"SiteHlp", L"first");
  logInfo(L"StSHlp", L"second");
  closelog();  // the host's own

  EXPECT_EQ(g_syslog.openCalls, 1);
  EXPECT_EQ(g_syslog.closeCalls, 1);
  ASSERT_EQ(g_syslog.lines.size(), 2u);
  for (const SyslogLine& line : g_syslog.lines) {
    EXPECT_EQ(line.ident, "hostd");
    // No facility of the library's own: the host's LOG_LOCAL3 applies.
    EXPECT_EQ(LOG_FAC(line.priority), 0) << line.text;
  }
  EXPECT_EQ(g_syslog.facility, LOG_LOCAL3);
  EXPECT_EQ(Texts(), (std::vector<std::string>{"SiteHlp: first", "StSHlp: second"}));
}

TEST_F(SyslogTest, ALibraryOperationThatFailsLogsWithoutOpeningTheLog) {
  testsupport::ConfigScope config;  // locks and data in a temporary directory
  m_log.Set(ConfigKey::LogSink, "syslog");
  m_log.Set(ConfigKey::LogLevel, "detail");
  sitehlp::CSitesHelper helper(config.defaultSiteList());
  sitehlp::tag_Site* list = nullptr;
  EXPECT_EQ(helper.MustReadSiteList(config.defaultSiteList(), &list), -4);

  EXPECT_EQ(g_syslog.openCalls, 0);
  EXPECT_EQ(g_syslog.closeCalls, 0);
  std::vector<std::string> errors;
  for (const SyslogLine& line : g_syslog.lines) {
    EXPECT_EQ(line.ident, "");
    EXPECT_TRUE(line.priority == LOG_ERR || line.priority == LOG_DEBUG) << line.priority << " " << line.text;
    if (line.priority == LOG_ERR) errors.push_back(line.text);
  }
  EXPECT_EQ(errors, std::vector<std::string>{"SiteHlp: Failed hr=-4"});
  EXPECT_GT(g_syslog.lines.size(), errors.size()) << "the reader's trace lines go out at LOG_DEBUG";
}

TEST_F(SyslogTest, EachLevelHasItsOwnPriority) {
  logError(L"SiteHlp", L"e");
  logWarning(L"SiteHlp", L"w");
  logInfo(L"SiteHlp", L"i");
  logDetail(L"SiteHlp", L"d");
  logInternalError(L"SiteHlp", L"x");
  EXPECT_EQ(Priorities(), (std::vector<int>{LOG_ERR, LOG_WARNING, LOG_INFO, LOG_DEBUG, LOG_ERR}));
  EXPECT_EQ(Texts(), (std::vector<std::string>{"SiteHlp: e", "SiteHlp: w", "SiteHlp: i", "SiteHlp: d",
                                               "internal error: SiteHlp: x"}));
}

TEST_F(SyslogTest, TheConfiguredLevelDropsLessSevereLinesBeforeSyslog) {
  m_log.Set(ConfigKey::LogLevel, "warning");
  logError(L"SiteHlp", L"e");
  logWarning(L"SiteHlp", L"w");
  logInfo(L"SiteHlp", L"i");
  logDetail(L"SiteHlp", L"d");
  EXPECT_EQ(Priorities(), (std::vector<int>{LOG_ERR, LOG_WARNING}));
}

TEST_F(SyslogTest, AnUnknownLevelIsReportedOnceOnStderrAndInfoIsUsed) {
  m_log.Set(ConfigKey::LogLevel, "loud");
  const std::string said = Stderr([] {
    logInfo(L"SiteHlp", L"i");
    logDetail(L"SiteHlp", L"d");
    logError(L"SiteHlp", L"e");
  });
  EXPECT_EQ(said, "vlmCmnLib: unknown VLM_LOG_LEVEL 'loud' (known: error, warning, info, detail); using info\n");
  EXPECT_EQ(Priorities(), (std::vector<int>{LOG_INFO, LOG_ERR}));
}

TEST_F(SyslogTest, AnUnknownSinkIsReportedOnceOnStderrAndSyslogIsUsed) {
  m_log.Set(ConfigKey::LogSink, "journal");
  const std::string said = Stderr([] {
    logError(L"SiteHlp", L"one");
    logError(L"SiteHlp", L"two");
  });
  EXPECT_EQ(said, "vlmCmnLib: unknown VLM_LOG_SINK 'journal' (known: syslog, stderr, none); using syslog\n");
  EXPECT_EQ(Texts(), (std::vector<std::string>{"SiteHlp: one", "SiteHlp: two"}));
}

TEST_F(SyslogTest, KnownValuesAreNotReported) {
  for (const char* level : {"error", "warning", "info", "detail", "debug"}) {
    m_log.Set(ConfigKey::LogLevel, level);
    for (const char* sink : {"syslog", "stderr", "none"}) {
      m_log.Set(ConfigKey::LogSink, sink);
      // The stderr sink's own line is the only thing on stderr then.
      const std::string said = Stderr([] { logError(L"SiteHlp", L"e"); });
      EXPECT_EQ(said, std::string(sink) == "stderr" ? "[ERROR] SiteHlp: e\n" : "") << level << " " << sink;
    }
  }
}

TEST_F(SyslogTest, TheStderrSinkNamesEachLevelAndLeavesSyslogAlone) {
  m_log.Set(ConfigKey::LogSink, "stderr");
  const std::string said = Stderr([] {
    logError(L"SiteHlp", L"e");
    logWarning(L"SiteHlp", L"w");
    logInfo(L"StSHlp", L"i");
    logDetail(L"SiteHlp", L"d");
    logInternalError(L"SiteHlp", L"x");
  });
  EXPECT_EQ(said, "[ERROR] SiteHlp: e\n[WARNING] SiteHlp: w\n[INFO] StSHlp: i\n[DETAIL] SiteHlp: d\n[INTERNAL] SiteHlp: x\n");
  EXPECT_TRUE(g_syslog.lines.empty());
}

struct HostLine {
  std::string component;
  sitehlp::LogLevel level;
  std::string message;
};

void CollectHostLine(void* context, const char* component, sitehlp::LogLevel level, const char* message) {
  static_cast<std::vector<HostLine>*>(context)->push_back({component, level, message});
}

TEST_F(SyslogTest, AHostSinkTakesTheLinesInsteadOfSyslogUntilItIsRemoved) {
  std::vector<HostLine> host;
  sitehlp::SetLogSink(&CollectHostLine, &host);
  logError(L"SiteHlp", L"to the host");
  sitehlp::SetLogSink(nullptr, nullptr);
  logError(L"SiteHlp", L"to syslog");

  ASSERT_EQ(host.size(), 1u);
  EXPECT_EQ(host[0].message, "to the host");
  EXPECT_EQ(Texts(), (std::vector<std::string>{"SiteHlp: to syslog"}));
}

}  // namespace
