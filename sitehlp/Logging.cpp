// The host's routing of the library's log lines: one adapter from the port
// layer's sink to the host's function.
#include "sitehlp/Logging.h"

#include <mutex>
#include <shared_mutex>

#include "platform/AString.h"
#include "port/log/Log.h"

namespace sitehlp {
namespace {

LogLevel HostLevel(port::LogLevel level) {
  switch (level) {
    case port::LogLevel::Error: return LogLevel::Error;
    case port::LogLevel::Warning: return LogLevel::Warning;
    case port::LogLevel::Info: return LogLevel::Info;
    case port::LogLevel::Detail: break;
  }
  return LogLevel::Debug;
}

port::LogLevel PortLevel(LogLevel level) {
  switch (level) {
    case LogLevel::Error: return port::LogLevel::Error;
    case LogLevel::Warning: return port::LogLevel::Warning;
    case LogLevel::Info: return port::LogLevel::Info;
    case LogLevel::Debug: break;
  }
  return port::LogLevel::Detail;
}

// Lines are written under the shared lock and the function is replaced under
// the exclusive one, so that a replaced sink is never called after
// SetLogSink returns (its context may be gone).
class HostSink : public port::LogSink {
 public:
  void Set(LogSinkFunction function, void* context) {
    std::unique_lock<std::shared_mutex> guard(m_mutex);
    m_function = function;
    m_context = context;
  }

  void Write(port::LogLevel level, bool internal, const std::wstring& component,
             const std::wstring& message) override {
    std::shared_lock<std::shared_mutex> guard(m_mutex);
    if (!m_function) return;  // removed while this line was on its way
    const std::string text = (internal ? "internal error: " : "") + ACharString(message);
    m_function(m_context, ACharString(component).c_str(), HostLevel(level), text.c_str());
  }

 private:
  std::shared_mutex m_mutex;
  LogSinkFunction m_function = nullptr;
  void* m_context = nullptr;
};

HostSink& TheHostSink() {
  static HostSink sink;
  return sink;
}

}  // namespace

void SetLogSink(LogSinkFunction sink, void* context) {
  TheHostSink().Set(sink, context);
  port::SetLogSink(sink ? &TheHostSink() : nullptr);
}

void SetLogLevel(LogLevel level) { port::SetLogThreshold(PortLevel(level)); }

}  // namespace sitehlp
