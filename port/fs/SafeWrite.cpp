#include "port/fs/SafeWrite.h"

#include <dirent.h>
#include <errno.h>
#include <sys/random.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>

#include "port/fs/SysCalls.h"

namespace port {

namespace {

// A step that fails with -1 but left errno at 0 (a broken override) must
// still be reported as a failure.
int LastError() { return errno != 0 ? errno : EIO; }

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
  if (getrandom(&bits, sizeof bits, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof bits)) {
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

// Owns the temporary until it has been renamed: on any early return the
// descriptor is closed and the file unlinked, so nothing is left behind.
class TempFile {
 public:
  TempFile() = default;
  ~TempFile() {
    const int saved = errno;
    if (m_fd >= 0) Sys().close(m_fd);
    if (!m_path.empty()) Sys().unlink(m_path.c_str());
    errno = saved;
  }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;

  // 0 or errno.
  int create(const std::string& dir, const std::string& name) {
    // Keep the temporary's name within NAME_MAX even for long target names.
    const std::string base = name.substr(0, 200);
    for (int attempt = 0; attempt < 100; ++attempt) {
      std::string candidate = dir + "/." + base + ".tmp." + RandomSuffix();
      // 0600 until the content is complete: nobody reads a partial file.
      errno = 0;
      const int fd = Sys().open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
      if (fd >= 0) {
        m_fd = fd;
        m_path = std::move(candidate);
        return 0;
      }
      if (errno != EEXIST) return LastError();
    }
    return EEXIST;
  }

  int fd() const { return m_fd; }
  const std::string& path() const { return m_path; }

  // 0 or errno. Linux releases the descriptor even when close fails, so it
  // is never closed twice.
  int close() {
    const int fd = m_fd;
    m_fd = -1;
    return Sys().close(fd) == 0 ? 0 : LastError();
  }

  // After a successful rename the temporary no longer exists.
  void release() { m_path.clear(); }

 private:
  int m_fd = -1;
  std::string m_path;
};

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

// Makes the rename itself durable.
int SyncDirectory(const std::string& dir) {
  errno = 0;
  const int fd = Sys().open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  if (fd < 0) return LastError();
  int rc = 0;
  errno = 0;
  // Some file systems cannot sync a directory (EINVAL); the data is safe anyway.
  if (Sys().fsync(fd) != 0 && errno != EINVAL) rc = LastError();
  Sys().close(fd);
  return rc;
}

// Removes the temporaries of name that a writer killed before its rename left
// in dir. Only old ones go: a temporary that is younger belongs to a writer
// that may still be running in another process, and taking it away would
// make that writer's rename fail. Best effort: nothing here is reported.
void RemoveStaleTemporaries(const std::string& dir, const std::string& name) {
  DIR* d = opendir(dir.c_str());
  if (!d) return;
  const std::string prefix = "." + name + ".tmp.";
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  while (const dirent* entry = readdir(d)) {
    if (std::string(entry->d_name).compare(0, prefix.size(), prefix) != 0) continue;
    const std::string path = dir + "/" + entry->d_name;
    struct stat st {};
    if (Sys().lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
    if (now.tv_sec - st.st_mtim.tv_sec < kStaleTemporaryAgeSeconds) continue;
    Sys().unlink(path.c_str());
  }
  closedir(d);
}

}  // namespace

int ReplaceFileContents(const std::string& path, const void* data, std::size_t size, mode_t newFileMode,
                        ModeChoice policy) {
  const std::string::size_type slash = path.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  if (name.empty()) return EISDIR;

  // lstat, not stat: a symbolic link is replaced, not followed, so its mode
  // (and its destination's) do not matter.
  mode_t mode = newFileMode & 07777;
  struct stat st {};
  errno = 0;
  if (Sys().lstat(path.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) return EISDIR;
    if (!S_ISLNK(st.st_mode) && policy == ModeChoice::KeepExisting) mode = st.st_mode & 07777;
  } else if (errno != ENOENT) {
    return LastError();
  }

  TempFile tmp;
  if (int rc = tmp.create(dir, name)) return rc;
  if (int rc = WriteAll(tmp.fd(), static_cast<const unsigned char*>(data), size)) return rc;
  errno = 0;
  if (Sys().fsync(tmp.fd()) != 0) return LastError();
  // fchmod after creation: the mode must be exact, whatever the umask.
  errno = 0;
  if (Sys().fchmod(tmp.fd(), mode) != 0) return LastError();
  errno = 0;
  if (int rc = tmp.close()) return rc;
  errno = 0;
  if (Sys().rename(tmp.path().c_str(), path.c_str()) != 0) return LastError();
  tmp.release();
  // The target already holds the new content here; a failure is still
  // reported, because the replacement may not survive a crash.
  const int rc = SyncDirectory(dir);
  RemoveStaleTemporaries(dir, name);
  return rc;
}

}  // namespace port
