// Logging and tracing of the library.
//
// logError/logWarning/logInfo/logDetail/logInternalError take a component
// ("SiteHlp", "StSHlp") and a message. Lines below the configured level are
// dropped; the rest go to the installed sink: a host's own logger (see
// include/sitehlp/Logging.h), a test's capturing sink, or else the default
// sink the configuration names (syslog, stderr or none).
//
// The syslog sink belongs to the host process: it never calls openlog or
// closelog, so lines carry the identity and facility the host chose, at
// LOG_ERR, LOG_WARNING, LOG_INFO or LOG_DEBUG. An unknown log level or sink in
// the configuration is reported once on stderr and the default used.
//
// Trace scopes log "Entering <message>" on construction and "Leaving
// <message>" on destruction at their level; they cost one level test when
// their level is filtered out.
//
// Never pass a password or key bytes to these functions.
// Thread safety: all functions may be called from any thread; SetLogSink must
// not race with logging.
#ifndef VLM_PORT_LOG_LOG_H
#define VLM_PORT_LOG_LOG_H

#include <string>

namespace port {

enum class LogLevel { Error = 0, Warning = 1, Info = 2, Detail = 3 };

class LogSink {
 public:
  virtual ~LogSink() = default;
  // internal is true for logInternalError lines (level Error).
  virtual void Write(LogLevel level, bool internal, const std::wstring& component, const std::wstring& message) = 0;
};

// Installs sink (not owned; NULL restores the default sink, which the
// configuration's log_sink names: syslog, stderr or none). Returns the
// previous one (NULL for the default).
LogSink* SetLogSink(LogSink* sink);
// Lines above this level are dropped before they reach any sink. The default
// comes from the configuration's log level.
void SetLogThreshold(LogLevel level);
LogLevel GetLogThreshold();
bool LogEnabled(LogLevel level);
// Forgets the level and the default sink taken from the configuration, so
// that the next line takes them (and reports unknown values) again. For tests
// that change VLM_LOG_LEVEL or VLM_LOG_SINK; must not race with logging.
void ResetLogConfiguration();

// Writes "[LEVEL] component: message" lines to stderr.
class StderrLogSink : public LogSink {
 public:
  void Write(LogLevel level, bool internal, const std::wstring& component, const std::wstring& message) override;
};

}  // namespace port

void logError(const wchar_t* component, const std::wstring& message);
void logWarning(const wchar_t* component, const std::wstring& message);
void logInfo(const wchar_t* component, const std::wstring& message);
void logDetail(const wchar_t* component, const std::wstring& message);
void logInternalError(const wchar_t* component, const std::wstring& message);

// Trace scope at detail level.
class ADetailTrace {
 public:
  ADetailTrace(const wchar_t* component, const wchar_t* message);
  ADetailTrace(const wchar_t* component, const std::wstring& message);
  ~ADetailTrace();
  ADetailTrace(const ADetailTrace&) = delete;
  ADetailTrace& operator=(const ADetailTrace&) = delete;

 protected:
  ADetailTrace(port::LogLevel level, const wchar_t* component, const std::wstring& message);

 private:
  port::LogLevel m_level;
  bool m_bActive;
  const wchar_t* m_component;
  std::wstring m_message;
};

// Trace scope at information level.
class AnInfoTrace : public ADetailTrace {
 public:
  AnInfoTrace(const wchar_t* component, const std::wstring& message);
};

#endif  // VLM_PORT_LOG_LOG_H
