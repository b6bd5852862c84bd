// Key files when the file system fails: every failing step gives no key,
// one error line that names the step, the file and the reason, and leaves
// no key file and no temporary; an interrupted call is made again.
#include <gtest/gtest.h>

#include <errno.h>
#include <string.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "port/config/IConfiguration.h"
#include "port/crypto/CryptShim.h"
#include "port/crypto/KeyCache.h"
#include "port/fs/SysCalls.h"
#include "support/TestSupport.h"

namespace {

using testsupport::ListDir;
using testsupport::Narrow;
using testsupport::WriteFile;

// What the table below fails: calls on paths containing g_match (open,
// stat), or on the descriptor the matching open gave (the others), once
// g_skip calls of that entry have passed.
std::string g_match;
int g_fd = -1;
int g_error = 0;
int g_skip = 0;
int g_failures = 0;

bool FailNow() {
  if (g_skip > 0) {
    --g_skip;
    return false;
  }
  ++g_failures;
  errno = g_error;
  return true;
}
bool Matches(const char* path) { return !g_match.empty() && std::string(path).find(g_match) != std::string::npos; }

int OpenRemembering(const char* path, int flags, mode_t mode) {
  const int fd = port::RealSysCalls().open(path, flags, mode);
  if (Matches(path)) g_fd = fd;
  return fd;
}
int FailingOpen(const char* path, int flags, mode_t mode) {
  if (Matches(path) && FailNow()) return -1;
  return port::RealSysCalls().open(path, flags, mode);
}
int FailingStat(const char* path, struct stat* st) {
  if (Matches(path) && FailNow()) return -1;
  return port::RealSysCalls().stat(path, st);
}
int FailingFstat(int fd, struct stat* st) { return fd == g_fd && FailNow() ? -1 : port::RealSysCalls().fstat(fd, st); }
ssize_t FailingRead(int fd, void* buf, size_t n) {
  return fd == g_fd && FailNow() ? -1 : port::RealSysCalls().read(fd, buf, n);
}
ssize_t FailingWrite(int fd, const void* buf, size_t n) {
  if (fd != g_fd || !FailNow()) return port::RealSysCalls().write(fd, buf, n);
  return g_error == 0 ? 0 : -1;  // error 0: the write takes nothing
}
int FailingFchmod(int fd, mode_t mode) { return fd == g_fd && FailNow() ? -1 : port::RealSysCalls().fchmod(fd, mode); }
int FailingFsync(int fd) { return fd == g_fd && FailNow() ? -1 : port::RealSysCalls().fsync(fd); }
int FailingClose(int fd) {
  const int rc = port::RealSysCalls().close(fd);
  if (fd != g_fd) return rc;
  g_fd = -1;
  if (!FailNow()) return rc;
  return -1;
}

class KeyFileFaultTest : public ::testing::Test {
 protected:
  void SetUp() override {
    port::ClearKeyCache();
    std::filesystem::create_directories(keyDir());
    port::SetConfigValue(port::ConfigKey::KeyDir, keyDir());
    g_match.clear();
    g_fd = -1;
    g_skip = 0;
    g_failures = 0;
  }
  void TearDown() override { port::ClearKeyCache(); }
  std::string keyDir() const { return m_scope.dir().file("keys"); }
  std::string keyFile() const { return keyDir() + "/kind3.key"; }
  bool GetKey() {
    unsigned char key[KeyConf::c_keySize];
    port::ScopedSysCallOverride faulty(m_table);
    return KeyConf::getKey(ENCRYPTION_TEXT, key);
  }
  // Fails the entry set in m_table on the key file (or its temporary).
  void Fail(const std::string& match, int error, int skip = 0) {
    g_match = match;
    g_error = error;
    g_skip = skip;
  }
  std::vector<std::wstring> Errors() const { return m_log.messages(port::LogLevel::Error); }

  testsupport::ConfigScope m_scope;
  testsupport::CapturingLogSink m_log;
  port::SysCalls m_table = port::RealSysCalls();
};

std::wstring Reason(int error) { return testsupport::Wide(strerror(error)); }

TEST_F(KeyFileFaultTest, NoKeyDirectoryConfiguredGivesNoKeyAndSaysSo) {
  port::SetConfigValue(port::ConfigKey::KeyDir, "");
  EXPECT_FALSE(GetKey());
  EXPECT_EQ(std::vector<std::wstring>{L"No key directory configured"}, Errors());
}

TEST_F(KeyFileFaultTest, AKeyDirectoryThatCannotBeInspectedGivesNoKey) {
  m_table.stat = FailingStat;
  Fail("/keys", EACCES);
  EXPECT_FALSE(GetKey());
  EXPECT_EQ(std::vector<std::wstring>{L"Cannot use key directory " + testsupport::Wide(keyDir()) + L": " +
                                      Reason(EACCES)},
            Errors());
  EXPECT_EQ(std::vector<std::string>{}, ListDir(keyDir()));
}

TEST_F(KeyFileFaultTest, AKeyFileThatCannotBeOpenedInspectedOrReadGivesNoKeyAndIsLeftAlone) {
  const std::string key(KeyConf::c_keySize, 'k');
  WriteFile(keyFile(), key);
  struct Case {
    const char* what;
    int error;
  };
  for (const Case& c : {Case{"Cannot open key file", EACCES}, Case{"Cannot inspect key file", EIO},
                        Case{"Cannot read key file", EIO}}) {
    SCOPED_TRACE(c.what);
    m_log.clear();
    m_table = port::RealSysCalls();
    const std::string what = c.what;
    if (what == "Cannot open key file") {
      m_table.open = FailingOpen;
    } else {
      m_table.open = OpenRemembering;
      if (what == "Cannot inspect key file") m_table.fstat = FailingFstat;
      else m_table.read = FailingRead;
    }
    Fail("/kind3.key", c.error);
    EXPECT_FALSE(GetKey());
    EXPECT_EQ(std::vector<std::wstring>{testsupport::Wide(what + " " + keyFile()) + L": " + Reason(c.error)},
              Errors());
    EXPECT_EQ(key, testsupport::ReadFile(keyFile()));
  }
}

TEST_F(KeyFileFaultTest, AnInterruptedReadOfTheKeyIsMadeAgain) {
  const std::string key(KeyConf::c_keySize, 'k');
  WriteFile(keyFile(), key);
  m_table.open = OpenRemembering;
  m_table.read = [](int fd, void* buf, size_t n) -> ssize_t {
    if (fd == g_fd && g_failures == 0) {  // the first read only
      ++g_failures;
      errno = EINTR;
      return -1;
    }
    return port::RealSysCalls().read(fd, buf, n);
  };
  g_match = "/kind3.key";
  unsigned char got[KeyConf::c_keySize];
  {
    port::ScopedSysCallOverride faulty(m_table);
    ASSERT_TRUE(KeyConf::getKey(ENCRYPTION_TEXT, got));
  }
  EXPECT_EQ(1, g_failures);
  EXPECT_EQ(key, std::string(reinterpret_cast<const char*>(got), sizeof got));
  EXPECT_EQ(std::vector<std::wstring>{}, Errors());
}

// Each failing step of creating a key, on the temporary it writes first.
struct CreateCase {
  const char* what;
  int error;
  void (*set)(port::SysCalls&);
};

TEST_F(KeyFileFaultTest, EveryFailingStepOfCreatingAKeyGivesNoKeyAndLeavesNoFile) {
  const CreateCase cases[] = {
      {"Cannot create key file", EACCES, [](port::SysCalls& t) { t.open = FailingOpen; }},
      {"Cannot set the mode of key file", EPERM, [](port::SysCalls& t) { t.fchmod = FailingFchmod; }},
      {"Cannot write key file", ENOSPC, [](port::SysCalls& t) { t.write = FailingWrite; }},
      {"Cannot write key file", 0, [](port::SysCalls& t) { t.write = FailingWrite; }},
      {"Cannot sync key file", EIO, [](port::SysCalls& t) { t.fsync = FailingFsync; }},
      {"Cannot close key file", EIO, [](port::SysCalls& t) { t.close = FailingClose; }},
  };
  for (const CreateCase& c : cases) {
    SCOPED_TRACE(std::string(c.what) + " " + std::to_string(c.error));
    port::ClearKeyCache();
    m_log.clear();
    m_table = port::RealSysCalls();
    m_table.open = OpenRemembering;
    c.set(m_table);
    Fail("/.kind3.key.", c.error);
    EXPECT_FALSE(GetKey());
    const std::vector<std::wstring> errors = Errors();
    ASSERT_EQ(1u, errors.size());
    const int shown = c.error == 0 ? EIO : c.error;
    const std::regex line(std::string(c.what) + " " + keyDir() + "/\\.kind3\\.key\\.[0-9]+\\.[0-9a-f]{16}: " +
                          strerror(shown));
    EXPECT_TRUE(std::regex_match(Narrow(errors[0]), line)) << Narrow(errors[0]);
    EXPECT_EQ(std::vector<std::string>{}, ListDir(keyDir()));
  }
}

TEST_F(KeyFileFaultTest, AnInterruptedWriteOfANewKeyIsMadeAgain) {
  m_table.open = OpenRemembering;
  m_table.write = [](int fd, const void* buf, size_t n) -> ssize_t {
    if (fd == g_fd && g_failures == 0) {  // the first write only
      ++g_failures;
      errno = EINTR;
      return -1;
    }
    return port::RealSysCalls().write(fd, buf, n);
  };
  g_match = "/.kind3.key.";
  unsigned char got[KeyConf::c_keySize];
  {
    port::ScopedSysCallOverride faulty(m_table);
    ASSERT_TRUE(KeyConf::getKey(ENCRYPTION_TEXT, got));
  }
  EXPECT_EQ(1, g_failures);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(got), sizeof got), testsupport::ReadFile(keyFile()));
  EXPECT_EQ(std::vector<std::string>{"kind3.key"}, ListDir(keyDir()));
}

}  // namespace
