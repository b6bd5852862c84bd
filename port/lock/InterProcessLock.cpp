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
#include <mutex>
#include <set>
#include <thread>

#include "platform/AString.h"
#include "port/config/IConfiguration.h"
#include "port/fs/AFile.h"
#include "port/fs/SysCalls.h"

namespace {

constexpr int kWaitForever = 0x7FFFFFFF;

void CloseKeepErrno(int fd) {
  const int saved = errno;
  port::Sys().close(fd);
  errno = saved;
}

// Lock files whose mode this process has already checked. A lock file is
// never deleted, so once checked it keeps its mode: every later lock of it
// saves the fstat (a lock is a handful of system calls, and the cache hit of
// the site list is little more than one lock).
bool FirstOpenOf(const std::string& path) {
  static std::mutex mutex;
  static std::set<std::string> checked;
  std::lock_guard<std::mutex> guard(mutex);
  return checked.insert(path).second;
}

// Opens (creating if needed) the lock file, and its directory when missing.
int OpenLockFile(const std::string& name) {
  const std::string dir = port::LockDirectory();
  const std::string path = dir + "/" + name + ".lock";
  int fd = port::Sys().open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0 && errno == ENOENT) {
    if (!AFiler::createDirectories(AString(dir))) return -1;
    fd = port::Sys().open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  }
  // Agent processes of other users must be able to open the file read-write
  // to lock it: undo the umask on a lock file we own.
  struct stat st {};
  if (fd >= 0 && FirstOpenOf(path) && port::Sys().fstat(fd, &st) == 0 && st.st_uid == geteuid() &&
      (st.st_mode & 0666) != 0666)
    port::Sys().fchmod(fd, 0666);
  return fd;
}

struct flock WholeFile(short type) {
  struct flock fl {};
  fl.l_type = type;
  fl.l_whence = SEEK_SET;
  fl.l_start = 0;
  fl.l_len = 0;  // to the end of the file, however large it grows
  fl.l_pid = 0;  // must be 0 for OFD locks
  return fl;
}

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
  const int fd = OpenLockFile(m_name);
  if (fd < 0) return false;
  const short type = m_bExclusive ? F_WRLCK : F_RDLCK;
  const bool ok = waitMs >= kWaitForever ? AcquireBlocking(fd, type) : AcquireTimed(fd, type, waitMs);
  if (!ok) {
    CloseKeepErrno(fd);
    return false;
  }
  m_fd = fd;
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
