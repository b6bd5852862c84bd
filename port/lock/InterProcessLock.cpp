// Why open-file-description locks.
//
// Classic POSIX fcntl locks (F_SETLK) belong to the process: two threads of
// one process never exclude each other, and closing ANY descriptor of the
// file (even one opened by unrelated code to read it) silently drops every
// lock the process holds on it. flock() has saner ownership but locks the
// whole file only and has had odd semantics over NFS (emulated with fcntl
// locks, or local only). OFD locks (F_OFD_SETLK) combine the good parts:
// byte-range fcntl locks owned by the open file description, so each lock
// object excludes every other one, in this process or another, and the
// kernel releases them when the description goes away (also on a crash).
//
// A descriptor inherited through fork() shares the description and thus the
// lock; unlock() therefore releases explicitly with F_UNLCK before closing,
// rather than relying on the last close.
#include "port/lock/InterProcessLock.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <set>
#include <thread>

#include "platform/AString.h"
#include "port/config/IConfiguration.h"
#include "port/fs/AFile.h"
#include "port/fs/SysCalls.h"
#include "port/log/Log.h"

namespace {

constexpr int kWaitForever = 0x7FFFFFFF;
constexpr wchar_t kComponent[] = L"SiteHlp";

// Texts this process has already acted on once: lock files whose mode it has
// checked (a lock file is never deleted, so once checked it keeps its mode,
// and every later lock of it saves the fstat: a lock is a handful of system
// calls, and the cache hit of the site list is little more than one lock),
// and the reports it has logged.
bool FirstTime(const std::string& key) {
  static std::mutex mutex;
  static std::set<std::string> seen;
  std::lock_guard<std::mutex> guard(mutex);
  return seen.insert(key).second;
}

std::wstring Octal(unsigned mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", mode & 07777);
  return AString(std::string(text));
}

// Creates the lock folder (and its missing parents) with its mode exact,
// whatever the umask: no other user may lock, create or list lock files.
bool CreateLockFolder(const std::string& dir, unsigned mode) {
  const std::string::size_type slash = dir.rfind('/');
  if (slash != std::string::npos && slash > 0 && !AFiler::createDirectories(AString(dir.substr(0, slash))))
    return false;
  if (port::Sys().mkdir(dir.c_str(), mode) != 0) return errno == EEXIST;
  const port::Fd fd(port::Sys().open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
  return fd.get() >= 0 && port::Sys().fchmod(fd.get(), mode) == 0;
}

// An existing folder open to other users lets them replace lock files: it is
// reported once, not changed (it may be a folder other programs share).
void CheckLockFolder(const std::string& dir, unsigned folderMode) {
  struct stat st {};
  if (port::Sys().stat(dir.c_str(), &st) != 0 || (st.st_mode & 0007) == 0) return;
  if (FirstTime("folder " + dir))
    logError(kComponent, L"Lock folder " + AString(dir) + L" is open to other users (mode " + Octal(st.st_mode) +
                             L"); it should be " + Octal(folderMode));
}

// A lock file this process owns gets exactly the configured mode (a wider
// one is narrowed, one the umask cut is completed); one of another owner
// that other users may open is reported once and used as it is.
void CheckLockFile(int fd, const std::string& path, unsigned mode) {
  struct stat st {};
  if (port::Sys().fstat(fd, &st) != 0) return;
  if (st.st_uid == geteuid()) {
    if ((st.st_mode & 07777) != mode) port::Sys().fchmod(fd, mode);
    return;
  }
  if ((st.st_mode & 0007) != 0 && FirstTime("file " + path))
    logError(kComponent, L"Lock file " + AString(path) + L" is open to other users (mode " + Octal(st.st_mode) +
                             L") and owned by another user: it is used as it is");
}

// The configured lock file mode; a refused setting is logged once.
unsigned LockMode() {
  bool valid = true;
  const unsigned mode = port::LockFileMode(valid);
  if (valid) return mode;
  const std::string setting = port::GetConfigValue(port::ConfigKey::LockMode);
  if (FirstTime("mode " + setting))
    logError(kComponent, L"VLM_LOCK_MODE " + AString(setting) +
                             L" is refused (it must be octal, give other users no access and let the owner read "
                             L"and write): lock files are made " + Octal(mode));
  return mode;
}

// Opens (creating if needed) the lock file, and its folder when missing.
int OpenLockFile(const std::string& name) {
  const unsigned mode = LockMode();
  const std::string dir = port::LockDirectory();
  const std::string path = dir + "/" + name + ".lock";
  int fd = port::Sys().open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, mode);
  if (fd < 0 && errno == ENOENT) {
    if (!CreateLockFolder(dir, port::LockFolderMode(mode))) return -1;
    fd = port::Sys().open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, mode);
  }
  if (fd >= 0 && FirstTime("lock " + path)) {
    CheckLockFolder(dir, port::LockFolderMode(mode));
    CheckLockFile(fd, path, mode);
  }
  return fd;
}

using port::WholeFile;

bool AcquireBlocking(int fd, short type) {
  for (;;) {
    struct flock fl = WholeFile(type);
    if (port::Sys().fcntlLock(fd, F_OFD_SETLKW, &fl) == 0) return true;
    if (errno != EINTR) return false;
  }
}

// Polls F_OFD_SETLK: the kernel has no timed wait for these locks.
bool AcquireTimed(int fd, short type, int waitMs) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(waitMs > 0 ? waitMs : 0);
  for (;;) {
    struct flock fl = WholeFile(type);
    if (port::Sys().fcntlLock(fd, F_OFD_SETLK, &fl) == 0) return true;
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EACCES) return false;
    const Clock::time_point now = Clock::now();
    if (now >= deadline) {
      errno = EAGAIN;
      return false;
    }
    std::this_thread::sleep_for(std::min<Clock::duration>(std::chrono::milliseconds(1), deadline - now));
  }
}

}  // namespace

InterProcessLock::InterProcessLock(const char* name, bool exclusive)
    : m_name(name ? name : ""), m_bExclusive(exclusive) {}

InterProcessLock::~InterProcessLock() { unlock(); }

bool InterProcessLock::lock(int waitMs) {
  if (m_bLocked) return true;
  port::Fd fd(OpenLockFile(m_name));
  if (fd.get() < 0) return false;
  const short type = m_bExclusive ? F_WRLCK : F_RDLCK;
  const bool ok = waitMs >= kWaitForever ? AcquireBlocking(fd.get(), type) : AcquireTimed(fd.get(), type, waitMs);
  if (!ok) return false;
  m_fd = fd.release();
  m_bLocked = true;
  return true;
}

void InterProcessLock::unlock() {
  if (!m_bLocked) return;
  struct flock fl = WholeFile(F_UNLCK);
  port::Sys().fcntlLock(m_fd, F_OFD_SETLK, &fl);
  port::Sys().close(m_fd);
  m_fd = -1;
  m_bLocked = false;
}
