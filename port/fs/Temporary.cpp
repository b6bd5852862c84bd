#include "port/fs/Temporary.h"

#include <dirent.h>
#include <errno.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>

#include "port/fs/ChangeRecord.h"
#include "port/fs/SysCalls.h"

namespace port {

namespace {

std::uint64_t Mix(std::uint64_t x) {
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

// Six random name characters. The kernel's generator is preferred; if it is
// unavailable, clock, pid and a counter still make collisions rare, and
// O_EXCL plus a retry make them harmless.
std::string RandomSuffix() {
  static const char kChars[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  static std::atomic<std::uint64_t> counter{0};
  std::uint64_t bits = 0;
  if (Sys().getrandom(&bits, sizeof bits, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof bits)) {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    bits = Mix(static_cast<std::uint64_t>(ts.tv_nsec) ^ (static_cast<std::uint64_t>(ts.tv_sec) << 32) ^
               (static_cast<std::uint64_t>(getpid()) << 16) ^ counter.fetch_add(1));
  }
  std::string s;
  for (int i = 0; i < 6; ++i) {
    s.push_back(kChars[bits % (sizeof kChars - 1)]);
    bits /= (sizeof kChars - 1);
  }
  return s;
}

// Takes the write lock of a temporary just created, waiting while a sweep
// holds it. 0 when locked and still linked; EAGAIN when a sweep removed it
// first (the caller tries another name); or errno.
int LockNewTemporary(int fd) {
  for (;;) {
    struct flock fl = WholeFile(F_WRLCK);
    errno = 0;
    if (Sys().fcntlLock(fd, F_OFD_SETLKW, &fl) == 0) break;
    if (errno != EINTR) return LastError();
  }
  struct stat st {};
  errno = 0;
  if (Sys().fstat(fd, &st) != 0) return LastError();
  return st.st_nlink == 0 ? EAGAIN : 0;
}

int WriteAll(int fd, const unsigned char* p, std::size_t size) {
  while (size > 0) {
    errno = 0;
    const ssize_t n = Sys().write(fd, p, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return LastError();
    }
    // A zero-byte write of a non-empty buffer would loop forever.
    if (n == 0) return EIO;
    p += n;
    size -= static_cast<std::size_t>(n);
  }
  return 0;
}

// Gives the file the replaced file's owner and group. Only root may give a
// file away; another process keeps its own ownership (EPERM is no failure).
int Chown(int fd, const Attributes& attributes) {
  if (!attributes.bKeepOwner) return 0;
  if (attributes.uid == geteuid() && attributes.gid == getegid()) return 0;
  errno = 0;
  if (Sys().fchown(fd, attributes.uid, attributes.gid) == 0) return 0;
  return errno == EPERM ? 0 : LastError();
}

// Removes the temporary at path if its writer is gone. The lock is taken
// before the pending change is looked at: a writer that dies after writing
// its record has already written it.
void SweepOne(const std::string& dir, const std::string& entry) {
  const std::string path = dir + "/" + entry;
  const Fd fd(Sys().open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0));
  if (fd.get() < 0) return;
  struct stat held {};
  struct stat named {};
  struct flock fl = WholeFile(F_RDLCK);
  if (Sys().fstat(fd.get(), &held) == 0 && S_ISREG(held.st_mode) && Sys().fcntlLock(fd.get(), F_OFD_SETLK, &fl) == 0 &&
      !PendingChangeNames(dir, entry) && Sys().lstat(path.c_str(), &named) == 0 && named.st_ino == held.st_ino &&
      named.st_dev == held.st_dev) {
    Sys().unlink(path.c_str());
  }
}

}  // namespace

int LastError() { return errno != 0 ? errno : EIO; }

void SplitTarget(const std::string& path, std::string& dir, std::string& name) {
  const std::string::size_type slash = path.rfind('/');
  dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  name = slash == std::string::npos ? path : path.substr(slash + 1);
}

int SyncDirectory(const std::string& dir) {
  errno = 0;
  const Fd fd(Sys().open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
  if (fd.get() < 0) return LastError();
  errno = 0;
  if (Sys().fsync(fd.get()) != 0 && errno != EINVAL) return LastError();
  return 0;
}

int AttributesFor(const std::string& path, mode_t newFileMode, ModeChoice policy, Attributes& attributes) {
  attributes = Attributes();
  attributes.mode = newFileMode & 07777;
  struct stat st {};
  errno = 0;
  // lstat, not stat: a symbolic link is replaced, not followed, so neither
  // its attributes nor its destination's matter.
  if (Sys().lstat(path.c_str(), &st) != 0) return errno == ENOENT ? 0 : LastError();
  if (S_ISDIR(st.st_mode)) return EISDIR;
  if (S_ISLNK(st.st_mode)) return 0;
  attributes.bKeepOwner = true;
  attributes.uid = st.st_uid;
  attributes.gid = st.st_gid;
  if (policy == ModeChoice::KeepExisting) attributes.mode = st.st_mode & 07777;
  return 0;
}

std::string TemporaryPrefix(const std::string& name) {
  // Keeps the temporary's name within NAME_MAX even for long target names.
  return "." + name.substr(0, 200) + ".tmp.";
}

Temporary::~Temporary() {
  const int saved = errno;
  if (!m_path.empty()) Sys().unlink(m_path.c_str());
  // Closing drops the lock; only then may a sweep take the file.
  if (m_fd >= 0) Sys().close(m_fd);
  errno = saved;
}

int Temporary::create(const std::string& dir, const std::string& name) {
  const std::string prefix = dir + "/" + TemporaryPrefix(name);
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string candidate = prefix + RandomSuffix();
    // 0600 until the content is complete: nobody reads a partial file.
    errno = 0;
    Fd fd(Sys().open(candidate.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (fd.get() < 0) {
      if (errno == EEXIST) continue;
      return LastError();
    }
    const int locked = LockNewTemporary(fd.get());
    if (locked == 0) {
      m_fd = fd.release();
      m_path = std::move(candidate);
      return 0;
    }
    fd.close();
    if (locked != EAGAIN) {
      Sys().unlink(candidate.c_str());
      return locked;
    }
  }
  return EEXIST;
}

int Temporary::fill(const void* data, std::size_t size, const Attributes& attributes) {
  if (int rc = WriteAll(m_fd, static_cast<const unsigned char*>(data), size)) return rc;
  if (int rc = Chown(m_fd, attributes)) return rc;
  // fchmod after creation (and after fchown, which may clear set-id bits):
  // the mode must be exact, whatever the umask.
  errno = 0;
  if (Sys().fchmod(m_fd, attributes.mode) != 0) return LastError();
  errno = 0;
  if (Sys().fsync(m_fd) != 0) return LastError();
  return 0;
}

int Temporary::renameOver(const std::string& target) {
  errno = 0;
  if (Sys().rename(m_path.c_str(), target.c_str()) != 0) return LastError();
  m_path.clear();
  return 0;
}

std::string Temporary::name() const {
  std::string dir;
  std::string name;
  SplitTarget(m_path, dir, name);
  return name;
}

void SweepTemporaries(const std::string& dir, const std::string& name) {
  DIR* d = Sys().opendir(dir.c_str());
  if (!d) return;
  const std::string prefix = TemporaryPrefix(name);
  while (const dirent* entry = Sys().readdir(d)) {
    const std::string entryName(entry->d_name);
    if (entryName.size() > prefix.size() && entryName.compare(0, prefix.size(), prefix) == 0) SweepOne(dir, entryName);
  }
  Sys().closedir(d);
}

}  // namespace port
