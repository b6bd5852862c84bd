// Logging: one sink at a time (syslog by default), one level threshold.
#include "port/log/Log.h"

#include <syslog.h>

#include <atomic>
#include <cstdio>
#include <mutex>

#include "platform/AString.h"
#include "port/config/IConfiguration.h"

namespace port {
namespace {

class SyslogSink : public LogSink {
 public:
  void Write(LogLevel level, bool internal, const std::wstring& component, const std::wstring& message) override {
    static std::once_flag opened;
    std::call_once(opened, [] { openlog("vlmCmnLib", LOG_PID, LOG_DAEMON); });
    const int priority = level == LogLevel::Error ? LOG_ERR : level == LogLevel::Info ? LOG_INFO : LOG_DEBUG;
    syslog(priority, "%s%s: %s", internal ? "internal error: " : "", ACharString(component).c_str(),
           ACharString(message).c_str());
  }
};

LogLevel LevelFromConfiguration() {
  const std::string v = GetConfigValue(ConfigKey::LogLevel);
  if (v == "error") return LogLevel::Error;
  if (v == "detail" || v == "debug") return LogLevel::Detail;
  return LogLevel::Info;
}

// -1: not yet taken from the configuration.
std::atomic<int> g_threshold{-1};
std::atomic<LogSink*> g_sink{nullptr};

class NullSink : public LogSink {
 public:
  void Write(LogLevel, bool, const std::wstring&, const std::wstring&) override {}
};

// The sink used when none is installed: the configured one, chosen once.
LogSink& DefaultSink() {
  static SyslogSink syslogSink;
  static StderrLogSink stderrSink;
  static NullSink nullSink;
  static LogSink* chosen = [] {
    const std::string v = GetConfigValue(ConfigKey::LogSink);
    if (v == "stderr") return static_cast<LogSink*>(&stderrSink);
    if (v == "none") return static_cast<LogSink*>(&nullSink);
    return static_cast<LogSink*>(&syslogSink);
  }();
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
    t = static_cast<int>(LevelFromConfiguration());
    g_threshold.store(t, std::memory_order_relaxed);
  }
  return static_cast<LogLevel>(t);
}

bool LogEnabled(LogLevel level) { return static_cast<int>(level) <= static_cast<int>(GetLogThreshold()); }

void StderrLogSink::Write(LogLevel level, bool internal, const std::wstring& component, const std::wstring& message) {
  const char* name = level == LogLevel::Error ? (internal ? "INTERNAL" : "ERROR") : level == LogLevel::Info ? "INFO" : "DETAIL";
  std::fprintf(stderr, "[%s] %s: %s\n", name, ACharString(component).c_str(), ACharString(message).c_str());
}

}  // namespace port

void logError(const wchar_t* component, const std::wstring& message) {
  port::Emit(port::LogLevel::Error, false, component, message);
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
