#include "support/StopAt.h"

#include <sys/wait.h>
#include <unistd.h>

#include "port/fs/SysCalls.h"

namespace testsupport {

namespace {

long g_calls = 0;
long g_stopAt = 0;

void Step() {
  if (++g_calls == g_stopAt) _exit(0);
}

port::SysCalls StoppingTable() {
  port::SysCalls t = port::RealSysCalls();
  t.open = [](const char* p, int f, mode_t m) { return Step(), port::RealSysCalls().open(p, f, m); };
  t.close = [](int fd) { return Step(), port::RealSysCalls().close(fd); };
  t.write = [](int fd, const void* b, size_t n) { return Step(), port::RealSysCalls().write(fd, b, n); };
  t.fsync = [](int fd) { return Step(), port::RealSysCalls().fsync(fd); };
  t.fchmod = [](int fd, mode_t m) { return Step(), port::RealSysCalls().fchmod(fd, m); };
  t.fchown = [](int fd, uid_t u, gid_t g) { return Step(), port::RealSysCalls().fchown(fd, u, g); };
  t.rename = [](const char* a, const char* b) { return Step(), port::RealSysCalls().rename(a, b); };
  t.unlink = [](const char* p) { return Step(), port::RealSysCalls().unlink(p); };
  return t;
}

}  // namespace

long RunStoppedAt(long stopAt, const std::function<int()>& body) {
  int fds[2];
  if (pipe(fds) != 0) return -3;
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    g_calls = 0;
    g_stopAt = stopAt;
    port::Sys() = StoppingTable();
    const int rc = body();
    const long calls = rc == 0 ? g_calls : -1;
    if (write(fds[1], &calls, sizeof calls) != sizeof calls) _exit(3);
    _exit(0);
  }
  close(fds[1]);
  long calls = -2;
  const ssize_t got = pid > 0 ? read(fds[0], &calls, sizeof calls) : -1;
  close(fds[0]);
  int status = 0;
  if (pid > 0) waitpid(pid, &status, 0);
  return got == sizeof calls ? calls : -2;
}

}  // namespace testsupport
