#include "Context.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "FileProblem.h"
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

LibraryLog& Context::Log() {
  if (!m_log) m_log = std::make_unique<LibraryLog>();
  return *m_log;
}

void Context::WantInformationLines() {
  ApplyEnvironment();
  const char* level = std::getenv("VLM_LOG_LEVEL");
  if (level && std::strcmp(level, "error") == 0) setenv("VLM_LOG_LEVEL", "info", 1);
}

std::unique_ptr<sitehlp::CSitesHelper> Context::MakeHelper(const std::string& path) {
  ApplyEnvironment();
  auto helper = std::make_unique<sitehlp::CSitesHelper>(Wide(path));
  if (options.managed) helper->SetManagedOverride(-1);
  if (options.unmanaged) helper->SetManagedOverride(-2);
  return helper;
}

sitehlp::CSitesHelper& Context::Helper() {
  if (!m_helper) {
    ApplyEnvironment();
    if (options.siteList.empty()) {
      m_helper = std::make_unique<sitehlp::CSitesHelper>();
      if (options.managed) m_helper->SetManagedOverride(-1);
      if (options.unmanaged) m_helper->SetManagedOverride(-2);
    } else {
      m_helper = MakeHelper(options.siteList);
    }
  }
  return *m_helper;
}

int Context::FailCode(int code, Origin origin) const {
  std::fprintf(stderr, "sitelist %s: %s (%d)\n", m_command.c_str(), ResultMeaning(code), code);
  return ExitStatusOf(code, origin);
}

int Context::Fail(const std::string& text, int status) const {
  std::fprintf(stderr, "sitelist %s: %s\n", m_command.c_str(), text.c_str());
  return status;
}

int Context::LockFailure(std::size_t mark) {
  const std::string lock = Log().LockNotTakenSince(mark);
  if (lock.empty()) return 0;
  return Fail("the lock \"" + lock + "\" could not be obtained", c_exitLock);
}

int Context::FileFailure(const std::string& path, std::size_t mark) {
  if (const int status = LockFailure(mark)) return status;
  const std::string reason = UnreadableReason(path);
  if (!reason.empty()) return Fail(path + ": " + reason, c_exitFileMissing);
  // The version queries fold a document that is not well formed into -1;
  // the certificate query tells it apart.
  std::vector<std::wstring> certificates;
  if (MakeHelper(path)->GetCaCertificates(Wide(path), certificates) == -5) return FailCode(-5);
  return 0;
}

int Context::ReadFailure(const std::string& path, int code, std::size_t mark) {
  if (code == -1 || code == -4 || code == -5 || code == -10) {
    if (const int status = FileFailure(path, mark)) return status;
  } else if (const int status = LockFailure(mark)) {
    return status;
  }
  return FailCode(code);
}

}  // namespace sitelist
