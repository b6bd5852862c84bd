#include "sitehlp/SiteListChange.h"

#include <errno.h>

#include <cstring>
#include <mutex>
#include <set>
#include <utility>

#include "port/fs/AFile.h"
#include "port/fs/SafeWrite.h"
#include "port/log/Log.h"
#include "sitehlp/Component.h"

namespace sitehlp {

namespace {

std::wstring Reason(int code) { return AString(std::string(std::strerror(code))); }

std::string NarrowDirectoryOf(const std::wstring& path) {
  const AString dir = DirectoryOf(path);
  return ACharString(dir.empty() ? AString(L".") : dir);
}

// A fault met by every reader of a directory is logged once per process.
bool FirstReport(const std::string& dir, int code) {
  static std::mutex mutex;
  static std::set<std::pair<std::string, int>> reported;
  std::lock_guard<std::mutex> guard(mutex);
  return reported.insert({dir, code}).second;
}

void ReportUnfinished(const std::string& dir, int code, const wchar_t* component) {
  if (!FirstReport(dir, code)) return;
  if (code == EBADMSG)
    logError(component, L"The record of an interrupted change in " + AString(dir) +
                            L" is damaged and was removed; its files are left as they are");
  else
    logError(component, L"Unable to finish the interrupted change in " + AString(dir) + L": " + Reason(code));
}

void FinishInterruptedChangeIn(const std::string& dir, const wchar_t* component) {
  const int rc = port::FinishInterruptedChange(dir);
  if (rc != 0) ReportUnfinished(dir, rc, component);
}

}  // namespace

AString DirectoryOf(const std::wstring& path) {
  AString dir;
  AString name;
  splitPath(AString(path), dir, name);
  return dir;
}

AString FileNameOf(const std::wstring& path) {
  AString dir;
  AString name;
  splitPath(AString(path), dir, name);
  return name;
}

SiteListChange::SiteListChange(const AString& dir, const wchar_t* component)
    : m_dir(dir.empty() ? AString(L".") : dir),
      m_component(component),
      m_files(ACharString(m_dir)) {}

bool SiteListChange::Stage(const AString& name, const unsigned char* data, std::size_t size, mode_t newFileMode,
                           port::ModeChoice policy) {
  const int rc = m_files.stage(ACharString(name), data, size, newFileMode, policy);
  if (rc == 0) return true;
  logError(m_component, L"Unable to write " + joinPath(m_dir, name) + L": " + Reason(rc));
  return false;
}

bool SiteListChange::StageRemoval(const AString& name) {
  const int rc = m_files.stageRemoval(ACharString(name));
  if (rc == 0) return true;
  logError(m_component, L"Unable to remove " + joinPath(m_dir, name) + L": " + Reason(rc));
  return false;
}

bool SiteListChange::Commit() {
  // The record is written before the lock is taken: under it, only renames
  // and directory syncs remain.
  if (const int rc = m_files.prepare()) {
    logError(m_component, L"Unable to write the files of " + m_dir + L": " + Reason(rc));
    return false;
  }
  InterProcessWriteLock lock(c_siteListLock);
  if (!LockOrLog(lock, m_component)) return false;
  FinishInterruptedChangeIn(ACharString(m_dir), m_component);
  const int rc = m_files.commit();
  lock.unlock();
  if (rc == 0) return true;
  if (m_files.decided())
    logError(m_component, L"Unable to complete the change in " + m_dir + L": " + Reason(rc) +
                              L"; the next reader or writer completes it");
  else
    logError(m_component, L"Unable to write the files of " + m_dir + L": " + Reason(rc));
  return false;
}

void FinishInterruptedChangeOf(const std::wstring& path, const wchar_t* component) {
  FinishInterruptedChangeIn(NarrowDirectoryOf(path), component);
}

bool WriteUnderSiteListLock(const std::wstring& path, const std::string& text, const wchar_t* component) {
  InterProcessWriteLock lock(c_siteListLock);
  if (!LockOrLog(lock, component)) return false;
  FinishInterruptedChangeOf(path, component);
  const int rc = port::ReplaceFileContents(ACharString(path), text.data(), text.size(), c_newSiteListMode);
  lock.unlock();
  if (rc == 0) return true;
  logError(component, L"Unable to write " + path + L": " + Reason(rc));
  return false;
}

}  // namespace sitehlp
