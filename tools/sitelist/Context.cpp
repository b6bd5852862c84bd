#include "Context.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ResultCodes.h"
#include "platform/AString.h"

namespace sitelist {

std::string Narrow(const std::wstring& text) { return ACharString(text); }
std::wstring Wide(const std::string& text) { return AString(text); }

void Context::ApplyEnvironment() {
  if (m_bEnvironmentApplied) return;
  m_bEnvironmentApplied = true;
  // The library reads its configuration from the environment when it needs
  // it, so these settings take effect for the helper made below.
  if (!options.dataDir.empty()) setenv("VLM_FRAMEWORK_DATA_DIR", options.dataDir.c_str(), 1);
  if (options.verbose) {
    setenv("VLM_LOG_SINK", "stderr", 1);
    setenv("VLM_LOG_LEVEL", "detail", 1);
  } else {
    // A person at a shell wants the library's errors beside the tool's own
    // messages, not in the system log; an explicit configuration still wins.
    setenv("VLM_LOG_SINK", "stderr", 0);
    setenv("VLM_LOG_LEVEL", "error", 0);
  }
}

void Context::WantInformationLines() {
  ApplyEnvironment();
  const char* level = std::getenv("VLM_LOG_LEVEL");
  if (level && std::strcmp(level, "error") == 0) setenv("VLM_LOG_LEVEL", "info", 1);
}

sitehlp::CSitesHelper& Context::Helper() {
  if (!m_helper) {
    ApplyEnvironment();
    if (options.siteList.empty())
      m_helper = std::make_unique<sitehlp::CSitesHelper>();
    else
      m_helper = std::make_unique<sitehlp::CSitesHelper>(Wide(options.siteList));
    if (options.managed) m_helper->SetManagedOverride(-1);
    if (options.unmanaged) m_helper->SetManagedOverride(-2);
  }
  return *m_helper;
}

int Context::FailCode(int code) const {
  std::fprintf(stderr, "sitelist %s: %s (%d)\n", m_command.c_str(), ResultMeaning(code), code);
  return 1;
}

int Context::Fail(const std::string& text) const {
  std::fprintf(stderr, "sitelist %s: %s\n", m_command.c_str(), text.c_str());
  return 1;
}

}  // namespace sitelist
