#include "CheckServers.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <sstream>
#include <stdexcept>

#include "support/TestSupport.h"

extern char** environ;

namespace tooltest {
namespace {

void MustRun(const std::string& command) {
  if (std::system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
}

std::string ReadLine(int fd) {
  std::string line;
  char c = 0;
  while (read(fd, &c, 1) == 1 && c != '\n') line += c;
  return line;
}

}  // namespace

CheckServers::CheckServers(const std::string& root, const std::string& certDir, const std::string& logPath)
    : m_log(logPath) {
  MustRun("bash '" VLM_CHECK_CERTS_SCRIPT "' '" + certDir + "'");
  int in[2], out[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_addopen(&actions, 2, (logPath + ".stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  std::string python = "/usr/bin/python3", script = VLM_CHECK_SERVERS_SCRIPT, r = root, c = certDir, l = logPath;
  char* argv[] = {python.data(), script.data(), r.data(), c.data(), l.data(), nullptr};
  const int spawned = posix_spawn(&m_pid, argv[0], &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(in[0]);
  close(out[1]);
  m_stdin = in[1];
  const std::string ports = spawned == 0 ? ReadLine(out[0]) : "";
  close(out[0]);
  if (ports.empty())
    throw std::runtime_error("the check servers did not start: " + testsupport::ReadFile(logPath + ".stderr"));
  const nlohmann::json p = nlohmann::json::parse(ports);
  http = p["http"], proxy = p["proxy"], tls = p["tls"], tlsOther = p["tlsOther"];
  ftp = p["ftp"], silent = p["silent"], closed = p["closed"];
}

CheckServers::~CheckServers() {
  if (m_stdin >= 0) close(m_stdin);
  int status = 0;
  if (m_pid > 0) waitpid(m_pid, &status, 0);
}

std::vector<std::string> CheckServers::Log() const {
  std::vector<std::string> lines;
  if (!testsupport::FileExists(m_log)) return lines;
  std::istringstream in(testsupport::ReadFile(m_log));
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace tooltest
