#include "ToolProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>

namespace tooltest {
namespace {

struct Pipe {
  int fd[2] = {-1, -1};
  Pipe() {
    if (pipe2(fd, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  }
  ~Pipe() {
    CloseRead();
    CloseWrite();
  }
  void CloseRead() {
    if (fd[0] >= 0) close(fd[0]);
    fd[0] = -1;
  }
  void CloseWrite() {
    if (fd[1] >= 0) close(fd[1]);
    fd[1] = -1;
  }
};

}  // namespace

ToolResult RunTool(const std::vector<std::string>& args, const std::map<std::string, std::string>& env,
                   const std::string& input) {
  return RunToolThrough({}, args, env, input);
}

ToolResult RunToolThrough(const std::vector<std::string>& wrapper, const std::vector<std::string>& args,
                          const std::map<std::string, std::string>& env, const std::string& input) {
  std::vector<std::string> argStrings = wrapper;
  argStrings.push_back(VLM_SITELIST_TOOL);
  argStrings.insert(argStrings.end(), args.begin(), args.end());
  std::vector<std::string> envStrings;
  for (const auto& [name, value] : env) envStrings.push_back(name + "=" + value);
  for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"})
    if (const char* value = std::getenv(name); value && !env.count(name))
      envStrings.push_back(std::string(name) + "=" + value);
  std::vector<char*> argv, envp;
  for (std::string& s : argStrings) argv.push_back(s.data());
  argv.push_back(nullptr);
  for (std::string& s : envStrings) envp.push_back(s.data());
  envp.push_back(nullptr);

  Pipe in, out, err;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.fd[0], 0);
  posix_spawn_file_actions_adddup2(&actions, out.fd[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err.fd[1], 2);
  pid_t pid = -1;
  const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) throw std::runtime_error("posix_spawn failed");
  in.CloseRead();
  out.CloseWrite();
  err.CloseWrite();

  // Feed stdin and drain both outputs together, so that no pipe fills up.
  signal(SIGPIPE, SIG_IGN);
  ToolResult result;
  std::size_t written = 0;
  if (input.empty()) in.CloseWrite();
  while (out.fd[0] >= 0 || err.fd[0] >= 0) {
    pollfd fds[3];
    int n = 0;
    if (in.fd[1] >= 0) fds[n++] = {in.fd[1], POLLOUT, 0};
    if (out.fd[0] >= 0) fds[n++] = {out.fd[0], POLLIN, 0};
    if (err.fd[0] >= 0) fds[n++] = {err.fd[0], POLLIN, 0};
    if (poll(fds, n, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (int i = 0; i < n; ++i) {
      if (!fds[i].revents) continue;
      if (fds[i].fd == in.fd[1]) {
        const ssize_t w = write(in.fd[1], input.data() + written, input.size() - written);
        if (w > 0) written += static_cast<std::size_t>(w);
        if (w < 0 || written == input.size()) in.CloseWrite();
        continue;
      }
      char buf[4096];
      const ssize_t r = read(fds[i].fd, buf, sizeof buf);
      const bool isOut = fds[i].fd == out.fd[0];
      if (r > 0) {
        (isOut ? result.out : result.err).append(buf, static_cast<std::size_t>(r));
      } else if (r == 0 || errno != EINTR) {
        if (isOut)
          out.CloseRead();
        else
          err.CloseRead();
      }
    }
  }
  in.CloseWrite();
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

}  // namespace tooltest
