#include "Context.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "FileProblem.h"
#include "platform/AString.h"

namespace sitelist {
namespace {

// The local name of a site list document's root element.
constexpr const char c_rootElement[] = "SiteLists";

}  // namespace

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
  return CheckList(path);
}

int Context::NotWellFormed(const sitehlp::tag_DocumentCheck& refusal, const std::string& shown) const {
  std::string place = shown;
  if (refusal.nLine > 0) place += ":" + std::to_string(refusal.nLine) + ":" + std::to_string(refusal.nColumn);
  std::fprintf(stderr, "%s: %s: %s\n", place.c_str(), ResultMeaning(-5), Narrow(refusal.szDescription).c_str());
  return c_exitNotWellFormed;
}

int Context::CheckList(const std::string& path, const std::string& shown) {
  const std::size_t mark = Log().Mark();
  sitehlp::tag_DocumentCheck check;
  const int rc = Helper().CheckSiteListDocument(Wide(path), check);
  if (rc == 0) {
    const std::string root = Narrow(check.szRootElement);
    const std::size_t colon = root.rfind(':');
    if (root.substr(colon == std::string::npos ? 0 : colon + 1) == c_rootElement) return 0;
    return Fail(shown + ": not a site list: its root element is \"" + root + "\", not " + c_rootElement,
                c_exitNotWellFormed);
  }
  if (const int status = LockFailure(mark)) return status;
  if (rc == -5) return NotWellFormed(check, shown);
  if (rc == -4 || rc == -10) {
    std::string reason = UnreadableReason(path);
    if (reason.empty()) reason = Narrow(check.szDescription);
    if (reason.empty()) reason = ResultMeaning(rc);
    return Fail(shown + ": " + reason, c_exitFileMissing);
  }
  return FailCode(rc);
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
