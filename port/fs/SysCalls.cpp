#include "port/fs/SysCalls.h"

#include <errno.h>
#include <stdio.h>
#include <unistd.h>

namespace port {

namespace {

// Thin wrappers: some libc entries are variadic (open, fcntl) or may be
// macros/inline redirections, so the table points at plain functions of ours.
int RealOpen(const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); }
int RealClose(int fd) { return ::close(fd); }
ssize_t RealRead(int fd, void* buf, size_t n) { return ::read(fd, buf, n); }
ssize_t RealWrite(int fd, const void* buf, size_t n) { return ::write(fd, buf, n); }
int RealFsync(int fd) { return ::fsync(fd); }
int RealFdatasync(int fd) { return ::fdatasync(fd); }
int RealFstat(int fd, struct stat* st) { return ::fstat(fd, st); }
int RealStat(const char* path, struct stat* st) { return ::stat(path, st); }
int RealLstat(const char* path, struct stat* st) { return ::lstat(path, st); }
int RealFchmod(int fd, mode_t mode) { return ::fchmod(fd, mode); }
int RealFchown(int fd, uid_t owner, gid_t group) { return ::fchown(fd, owner, group); }
int RealRename(const char* from, const char* to) { return ::rename(from, to); }
int RealUnlink(const char* path) { return ::unlink(path); }
int RealMkdir(const char* path, mode_t mode) { return ::mkdir(path, mode); }
int RealAccess(const char* path, int mode) { return ::access(path, mode); }
int RealFcntlLock(int fd, int cmd, struct flock* lock) { return ::fcntl(fd, cmd, lock); }
DIR* RealOpendir(const char* path) { return ::opendir(path); }
struct dirent* RealReaddir(DIR* dir) { return ::readdir(dir); }
int RealClosedir(DIR* dir) { return ::closedir(dir); }
int RealLink(const char* from, const char* to) { return ::link(from, to); }
int RealRenameNoReplace(const char* from, const char* to) {
  return ::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
}
ssize_t RealGetrandom(void* buf, size_t n, unsigned flags) { return ::getrandom(buf, n, flags); }

const SysCalls kReal = {
    RealOpen,    RealClose,   RealRead,     RealWrite, RealFsync,           RealFdatasync, RealFstat,
    RealStat,    RealLstat,   RealFchmod,   RealFchown, RealRename,         RealUnlink,    RealMkdir,
    RealAccess,  RealFcntlLock, RealOpendir, RealReaddir, RealClosedir, RealLink, RealRenameNoReplace,
    RealGetrandom,
};

}  // namespace

const SysCalls& RealSysCalls() { return kReal; }

SysCalls& Sys() {
  // Function-local so that it is initialized before any static constructor of
  // another translation unit can reach it.
  static SysCalls table = kReal;
  return table;
}

Fd::~Fd() {
  if (m_fd < 0) return;
  const int saved = errno;
  Sys().close(m_fd);
  errno = saved;
}

int Fd::close() { return Sys().close(release()); }

ScopedSysCallOverride::ScopedSysCallOverride(const SysCalls& table) : m_saved(Sys()) { Sys() = table; }

ScopedSysCallOverride::~ScopedSysCallOverride() { Sys() = m_saved; }

}  // namespace port
