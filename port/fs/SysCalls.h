// The system calls the port layer makes on files and locks, through a table.
//
// Every file and lock operation of the library goes through port::Sys(), so
// that tests can replace single entries to inject failures (EIO on write,
// ENOSPC on fsync, a failing rename, ...) without touching the real file
// system. ScopedSysCallOverride restores the previous table when it ends.
#ifndef VLM_PORT_FS_SYSCALLS_H
#define VLM_PORT_FS_SYSCALLS_H

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace port {

struct SysCalls {
  int (*open)(const char* path, int flags, mode_t mode);
  int (*close)(int fd);
  ssize_t (*read)(int fd, void* buf, size_t n);
  ssize_t (*write)(int fd, const void* buf, size_t n);
  int (*fsync)(int fd);
  int (*fdatasync)(int fd);
  int (*fstat)(int fd, struct stat* st);
  int (*stat)(const char* path, struct stat* st);
  int (*lstat)(const char* path, struct stat* st);
  int (*fchmod)(int fd, mode_t mode);
  int (*fchown)(int fd, uid_t owner, gid_t group);
  int (*rename)(const char* from, const char* to);
  int (*unlink)(const char* path);
  int (*mkdir)(const char* path, mode_t mode);
  int (*access)(const char* path, int mode);
  // fcntl with a struct flock argument (F_OFD_SETLK, F_OFD_SETLKW).
  int (*fcntlLock)(int fd, int cmd, struct flock* lock);
  // Directory listing: a test double may hand out a DIR* of its own making,
  // so callers only pass it back to readdir and closedir.
  DIR* (*opendir)(const char* path);
  struct dirent* (*readdir)(DIR* dir);
  int (*closedir)(DIR* dir);
  int (*link)(const char* from, const char* to);
  // rename that fails with EEXIST instead of replacing to.
  int (*renameNoReplace)(const char* from, const char* to);
  ssize_t (*getrandom)(void* buf, size_t n, unsigned flags);
};

// The table in use.
SysCalls& Sys();

// A descriptor closed (through the table) when the object ends, keeping
// errno for the caller.
class Fd {
 public:
  explicit Fd(int fd) : m_fd(fd) {}
  ~Fd();
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return m_fd; }
  // Gives the descriptor up without closing it.
  int release() {
    const int fd = m_fd;
    m_fd = -1;
    return fd;
  }
  // Closes now and reports the result (a failing close may lose written data).
  int close();

 private:
  int m_fd;
};

// A lock of the whole file, however large it grows, for fcntlLock with the
// open-file-description commands (l_pid must be 0 for them).
inline struct flock WholeFile(short type) {
  struct flock fl {};
  fl.l_type = type;
  fl.l_whence = SEEK_SET;
  fl.l_start = 0;
  fl.l_len = 0;
  fl.l_pid = 0;
  return fl;
}
// The real system calls.
const SysCalls& RealSysCalls();

// Replaces the table for the lifetime of the object (tests).
class ScopedSysCallOverride {
 public:
  explicit ScopedSysCallOverride(const SysCalls& table);
  ~ScopedSysCallOverride();
  ScopedSysCallOverride(const ScopedSysCallOverride&) = delete;
  ScopedSysCallOverride& operator=(const ScopedSysCallOverride&) = delete;

 private:
  SysCalls m_saved;
};

}  // namespace port

#endif  // VLM_PORT_FS_SYSCALLS_H
