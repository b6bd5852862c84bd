// Logging: one sink at a time (the configured default, syslog unless said
// otherwise), one level threshold.
#include "port/log/Log.h"

#include <syslog.h>

#include <atomic>
#include <cstdio>
#include <mutex>

#include "platform/AString.h"
#include "port/config/IConfiguration.h"

namespace port {
namespace {

// syslog(3) under the host's identity and facility: openlog and closelog are
// the host's to call, and the priority carries no facility bits.
class SyslogSink : public LogSink {
 public:
  void Write(LogLevel level, bool internal, const std::wstring& component, const std::wstring& message) override {
    syslog(Priority(level), "%s%s: %s", internal ? "internal error: " : "", ACharString(component).c_str(),
           ACharString(message).c_str());
  }

 private:
  static int Priority(LogLevel level) {
    switch (level) {
      case LogLevel::Error: return LOG_ERR;
      case LogLevel::Warning: return LOG_WARNING;
      case LogLevel::Info: return LOG_INFO;
      case LogLevel::Detail: break;
    }
    return LOG_DEBUG;
  }
};

class NullSink : public LogSink {
 public:
  void Write(LogLevel, bool, const std::wstring&, const std::wstring&) override {}
};

// A configured value that names nothing known is said once on stderr (the
// log itself may be what is misconfigured), then the default is used.
void ReportUnknownValue(const char* variable, const std::string& value, const char* known, const char* used) {
  std::fprintf(stderr, "vlmCmnLib: unknown %s '%s' (known: %s); using %s\n", variable, value.c_str(), known, used);
}

LogLevel LevelFromConfiguration() {
  const std::string v = GetConfigValue(ConfigKey::LogLevel);
  if (v == "error") return LogLevel::Error;
  if (v == "warning") return LogLevel::Warning;
  if (v == "info") return LogLevel::Info;
  if (v == "detail" || v == "debug") return LogLevel::Detail;
  ReportUnknownValue("VLM_LOG_LEVEL", v, "error, warning, info, detail", "info");
  return LogLevel::Info;
}

LogSink* SinkFromConfiguration() {
  static SyslogSink syslogSink;
  static StderrLogSink stderrSink;
  static NullSink nullSink;
  const std::string v = GetConfigValue(ConfigKey::LogSink);
  if (v == "syslog") return &syslogSink;
  if (v == "stderr") return &stderrSink;
  if (v == "none") return &nullSink;
  ReportUnknownValue("VLM_LOG_SINK", v, "syslog, stderr, none", "syslog");
  return &syslogSink;
}

// Both are taken from the configuration on first use, under the mutex so
// that an unknown value is reported once. -1 / NULL: not taken yet.
std::mutex g_configurationMutex;
std::atomic<int> g_threshold{-1};
std::atomic<LogSink*> g_defaultSink{nullptr};
std::atomic<LogSink*> g_sink{nullptr};

LogSink& DefaultSink() {
  LogSink* chosen = g_defaultSink.load(std::memory_order_acquire);
  if (chosen) return *chosen;
  std::lock_guard<std::mutex> guard(g_configurationMutex);
  chosen = g_defaultSink.load(std::memory_order_relaxed);
  if (!chosen) {
    chosen = SinkFromConfiguration();
    g_defaultSink.store(chosen, std::memory_order_release);
  }
  return *chosen;
}

LogSink& CurrentSink() {
  LogSink* s = g_sink.load(std::memory_order_acquire);
  return s ? *s : DefaultSink();
}

void Emit(LogLevel level, bool internal, const wchar_t* component, const std::wstring& message) {
  if (!LogEnabled(level)) return;
  CurrentSink().Write(level, internal, component ? component : L"", message);
}

}  // namespace

LogSink* SetLogSink(LogSink* sink) { return g_sink.exchange(sink, std::memory_order_acq_rel); }

void SetLogThreshold(LogLevel level) { g_threshold.store(static_cast<int>(level), std::memory_order_relaxed); }

LogLevel GetLogThreshold() {
  int t = g_threshold.load(std::memory_order_relaxed);
  if (t < 0) {
    std::lock_guard<std::mutex> guard(g_configurationMutex);
    t = g_threshold.load(std::memory_order_relaxed);
    if (t < 0) {
      t = static_cast<int>(LevelFromConfiguration());
      g_threshold.store(t, std::memory_order_relaxed);
    }
  }
  return static_cast<LogLevel>(t);
}

bool LogEnabled(LogLevel level) { return static_cast<int>(level) <= static_cast<int>(GetLogThreshold()); }

void ResetLogConfiguration() {
  std::lock_guard<std::mutex> guard(g_configurationMutex);
  g_threshold.store(-1, std::memory_order_relaxed);
  g_defaultSink.store(nullptr, std::memory_order_release);
}

void StderrLogSink::Write(LogLevel level, bool internal, const std::wstring& component, const std::wstring& message) {
  const char* name = level == LogLevel::Error     ? (internal ? "INTERNAL" : "ERROR")
                     : level == LogLevel::Warning ? "WARNING"
                     : level == LogLevel::Info    ? "INFO"
                                                  : "DETAIL";
  std::fprintf(stderr, "[%s] %s: %s\n", name, ACharString(component).c_str(), ACharString(message).c_str());
}

}  // namespace port

void logError(const wchar_t* component, const std::wstring& message) {
  port::Emit(port::LogLevel::Error, false, component, message);
}
void logWarning(const wchar_t* component, const std::wstring& message) {
  port::Emit(port::LogLevel::Warning, false, component, message);
}
void logInfo(const wchar_t* component, const std::wstring& message) {
  port::Emit(port::LogLevel::Info, false, component, message);
}
void logDetail(const wchar_t* component, const std::wstring& message) {
  port::Emit(port::LogLevel::Detail, false, component, message);
}
void logInternalError(const wchar_t* component, const std::wstring& message) {
  port::Emit(port::LogLevel::Error, true, component, message);
}

ADetailTrace::ADetailTrace(port::LogLevel level, const wchar_t* component, const std::wstring& message)
    : m_level(level), m_bActive(port::LogEnabled(level)), m_component(component) {
  if (!m_bActive) return;
  m_message = message;
  port::Emit(m_level, false, m_component, L"Entering " + m_message);
}

ADetailTrace::ADetailTrace(const wchar_t* component, const wchar_t* message)
    : m_level(port::LogLevel::Detail), m_bActive(port::LogEnabled(port::LogLevel::Detail)), m_component(component) {
  // The message is only copied when detail lines are wanted: trace scopes sit
  // on hot paths such as reading every site element.
  if (!m_bActive) return;
  m_message = message ? message : L"";
  port::Emit(m_level, false, m_component, L"Entering " + m_message);
}

ADetailTrace::ADetailTrace(const wchar_t* component, const std::wstring& message)
    : ADetailTrace(port::LogLevel::Detail, component, message) {}

ADetailTrace::~ADetailTrace() {
  if (m_bActive) port::Emit(m_level, false, m_component, L"Leaving " + m_message);
}

AnInfoTrace::AnInfoTrace(const wchar_t* component, const std::wstring& message)
    : ADetailTrace(port::LogLevel::Info, component, message) {}
