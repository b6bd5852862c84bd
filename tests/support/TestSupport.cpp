#include "support/TestSupport.h"

#include <grp.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/AString.h"
#include "port/config/IConfiguration.h"
#include "sitehlp/Logging.h"

namespace testsupport {

TempDir::TempDir() {
  const char* base = getenv("TMPDIR");
  std::string tmpl = std::string(base && *base ? base : "/tmp") + "/vlmtest.XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  if (!mkdtemp(buf.data())) throw std::runtime_error("mkdtemp failed");
  m_path = buf.data();
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(m_path, ec);
}

std::wstring TempDir::wpath() const { return Wide(m_path); }
std::string TempDir::file(const std::string& name) const { return m_path + "/" + name; }
std::wstring TempDir::wfile(const std::string& name) const { return Wide(file(name)); }

CapturingLogSink::CapturingLogSink()
    : m_previous(port::SetLogSink(this)), m_previousThreshold(port::GetLogThreshold()) {
  port::SetLogThreshold(port::LogLevel::Detail);
}

CapturingLogSink::~CapturingLogSink() {
  port::SetLogSink(m_previous);
  port::SetLogThreshold(m_previousThreshold);
}

void CapturingLogSink::Write(port::LogLevel level, bool internal, const std::wstring& component,
                             const std::wstring& message) {
  m_lines.push_back(LogLine{level, internal, component, message});
}

static bool IsTraceLine(const std::wstring& m) {
  return m.rfind(L"Entering ", 0) == 0 || m.rfind(L"Leaving ", 0) == 0;
}

std::vector<std::wstring> CapturingLogSink::messages(port::LogLevel level) const {
  std::vector<std::wstring> out;
  for (const auto& l : m_lines)
    if (l.level == level && !IsTraceLine(l.message)) out.push_back(l.message);
  return out;
}

std::vector<std::wstring> CapturingLogSink::allMessages() const {
  std::vector<std::wstring> out;
  for (const auto& l : m_lines)
    if (!IsTraceLine(l.message)) out.push_back(l.message);
  return out;
}

bool CapturingLogSink::contains(const std::wstring& message) const {
  for (const auto& l : m_lines)
    if (l.message == message) return true;
  return false;
}

DefaultLogScope::DefaultLogScope(const std::string& sink, const std::string& level)
    : m_previous(port::SetLogSink(nullptr)) {
  port::ResetConfigValues();
  port::SetConfigValue(port::ConfigKey::LogSink, sink);
  Set(port::ConfigKey::LogLevel, level);
}

DefaultLogScope::~DefaultLogScope() {
  sitehlp::SetLogSink(nullptr, nullptr);
  port::SetLogSink(m_previous);
  port::ResetConfigValues();
  port::ResetLogConfiguration();
}

void DefaultLogScope::Set(port::ConfigKey key, const std::string& value) {
  port::SetConfigValue(key, value);
  port::ResetLogConfiguration();
}

ConfigScope::ConfigScope() {
  std::filesystem::create_directories(m_dir.file("data/etc"));
  port::ResetConfigValues();
  port::SetConfigValue(port::ConfigKey::DataDir, m_dir.file("data"));
  port::SetConfigValue(port::ConfigKey::LockDir, m_dir.file("locks"));
  port::SetConfigValue(port::ConfigKey::KeyDir, m_dir.file("keys"));
  port::SetConfigValue(port::ConfigKey::Managed, "0");
  port::SetConfigValue(port::ConfigKey::RootPrefix, m_dir.file("root"));
}

ConfigScope::~ConfigScope() { port::ResetConfigValues(); }

std::string ConfigScope::dataDir() const { return m_dir.file("data"); }
std::wstring ConfigScope::wdataDir() const { return Wide(dataDir()); }
std::wstring ConfigScope::defaultSiteList() const { return Wide(m_dir.file("data/etc/SiteList.xml")); }

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out) throw std::runtime_error("cannot write " + path);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

int RunAsOtherUser(const std::function<int()>& body) {
  const pid_t pid = fork();
  if (pid < 0) return -2;
  if (pid == 0) {
    const gid_t group = kOtherGroup;
    if (setgroups(1, &group) != 0 || setgid(kOtherGroup) != 0 || setuid(kOtherUser) != 0 || geteuid() != kOtherUser)
      _exit(255);
    // _exit: no destructor, atexit handler or test framework code of the
    // parent runs in the child.
    _exit(body() & 0xFF);
  }
  int status = 0;
  if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -2;
  return WEXITSTATUS(status) == 255 ? -1 : WEXITSTATUS(status);
}

void OpenToOtherUsers(const std::string& dir) {
  if (chmod(dir.c_str(), 0777) != 0) throw std::runtime_error("cannot open " + dir + " to other users");
}

std::vector<std::string> ListDir(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir)) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

UmaskScope::UmaskScope(mode_t mask) : m_old(umask(mask)) {}
UmaskScope::~UmaskScope() { umask(m_old); }

int MakeSpecialFile(const std::string& kind, const std::string& path) {
  if (kind == "fifo") return mkfifo(path.c_str(), 0644) == 0 ? -1 : -2;
  if (kind == "device") return mknod(path.c_str(), S_IFCHR | 0644, makedev(1, 3)) == 0 ? -1 : -2;
  if (kind == "directory") return mkdir(path.c_str(), 0755) == 0 ? -1 : -2;
  if (kind != "socket") return -2;
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    if (fd >= 0) close(fd);
    return -2;
  }
  return fd;
}

bool FileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

std::string Narrow(const std::wstring& s) { return ACharString(s); }
std::wstring Wide(const std::string& s) { return AString(s); }

}  // namespace testsupport
