// Shared fixtures of the test suite: a temporary directory per test, the
// configuration pointed into it, and a log sink that captures every line.
#ifndef VLM_TESTS_SUPPORT_TESTSUPPORT_H
#define VLM_TESTS_SUPPORT_TESTSUPPORT_H

#include <gtest/gtest.h>

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "port/config/IConfiguration.h"
#include "port/log/Log.h"

namespace testsupport {

// A fresh directory under $TMPDIR (or /tmp), removed with its contents.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return m_path; }
  std::wstring wpath() const;
  // path() + "/" + name
  std::string file(const std::string& name) const;
  std::wstring wfile(const std::string& name) const;

 private:
  std::string m_path;
};

struct LogLine {
  port::LogLevel level;
  bool internal;
  std::wstring component;
  std::wstring message;
};

// Captures every line at every level while it lives (raises the threshold to
// detail and restores it afterwards).
class CapturingLogSink : public port::LogSink {
 public:
  CapturingLogSink();
  ~CapturingLogSink() override;
  void Write(port::LogLevel level, bool internal, const std::wstring& component,
             const std::wstring& message) override;
  const std::vector<LogLine>& lines() const { return m_lines; }
  void clear() { m_lines.clear(); }
  // Messages at one level, trace lines ("Entering ", "Leaving ") left out.
  std::vector<std::wstring> messages(port::LogLevel level) const;
  // Every message of every level except trace lines, in order.
  std::vector<std::wstring> allMessages() const;
  bool contains(const std::wstring& message) const;

 private:
  std::vector<LogLine> m_lines;
  port::LogSink* m_previous;
  port::LogLevel m_previousThreshold;
};

// Logging as in a process where nothing installed a sink: lines go to the
// default destination, taken with the level from the configuration values
// given (log_sink, log_level) when the next line is logged. Afterwards the
// previous sink is back, a host's sink removed and every explicit
// configuration value forgotten.
class DefaultLogScope {
 public:
  DefaultLogScope(const std::string& sink, const std::string& level);
  ~DefaultLogScope();
  DefaultLogScope(const DefaultLogScope&) = delete;
  DefaultLogScope& operator=(const DefaultLogScope&) = delete;
  // Sets one configuration value; the next line takes the log's anew.
  void Set(port::ConfigKey key, const std::string& value);

 private:
  port::LogSink* m_previous;
};

// Points the configuration (data, lock and key directories) into a fresh
// temporary directory for the lifetime of the object, and restores it after.
class ConfigScope {
 public:
  ConfigScope();
  ~ConfigScope();
  const TempDir& dir() const { return m_dir; }
  // <temp>/data, the framework data directory (created, with etc/ inside).
  std::string dataDir() const;
  std::wstring wdataDir() const;
  // <temp>/data/etc/SiteList.xml
  std::wstring defaultSiteList() const;

 private:
  TempDir m_dir;
};

// The user and group a test acts as when it needs a user other than root
// (the tests run as root): nobody and nogroup.
constexpr uid_t kOtherUser = 65534;
constexpr gid_t kOtherGroup = 65534;

// Runs body in a forked child that has dropped to kOtherUser and kOtherGroup
// (supplementary groups cleared, then setgid, then setuid) and returns what
// body returned (0 to 254); -1 when the child could not drop its rights, -2
// when it did not end normally. The child never returns into the test.
int RunAsOtherUser(const std::function<int()>& body);

// Lets other users into dir: mode 0777 (a test directory is made 0700).
void OpenToOtherUsers(const std::string& dir);

// The names in dir, sorted.
std::vector<std::string> ListDir(const std::string& dir);

// Sets the umask for one test and puts the old one back.
class UmaskScope {
 public:
  explicit UmaskScope(mode_t mask);
  ~UmaskScope();
  UmaskScope(const UmaskScope&) = delete;
  UmaskScope& operator=(const UmaskScope&) = delete;

 private:
  mode_t m_old;
};

// Makes a file that is no regular file at path: kind is "fifo", "socket"
// (bound, and kept so while the returned descriptor is open), "device" (a
// character device with the numbers of /dev/null) or "directory". Returns
// the socket's descriptor, -1 for the other kinds, -2 on failure.
int MakeSpecialFile(const std::string& kind, const std::string& path);

// Whole-file helpers.
void WriteFile(const std::string& path, const std::string& bytes);
std::string ReadFile(const std::string& path);
bool FileExists(const std::string& path);
std::string Narrow(const std::wstring& s);
std::wstring Wide(const std::string& s);

}  // namespace testsupport

#endif  // VLM_TESTS_SUPPORT_TESTSUPPORT_H
