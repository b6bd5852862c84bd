// Named reader/writer locks across threads and processes.
#include "port/lock/InterProcessLock.h"

#include <errno.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <set>
#include <vector>
#include <string>
#include <thread>

#include "port/config/IConfiguration.h"
#include "port/fs/SysCalls.h"
#include "support/TestSupport.h"

namespace {

using testsupport::ConfigScope;
using testsupport::FileExists;
using testsupport::UmaskScope;
using testsupport::WriteFile;


constexpr int kGotLock = 10;
constexpr int kNoLock = 20;

// Runs one lock attempt in a forked child and returns its verdict
// (kGotLock or kNoLock; anything else is a broken child).
int TryInChild(const char* name, bool exclusive, int waitMs) {
  const pid_t pid = fork();
  if (pid < 0) return -1;
  if (pid == 0) {
    InterProcessLock lock(name, exclusive);
    // _exit: no destructors, no gtest, no inherited lock touched.
    _exit(lock.lock(waitMs) ? kGotLock : kNoLock);
  }
  int status = 0;
  if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -2;
  return WEXITSTATUS(status);
}

bool TryInThread(const char* name, bool exclusive, int waitMs) {
  bool got = false;
  std::thread t([&] {
    InterProcessLock lock(name, exclusive);
    got = lock.lock(waitMs);
  });
  t.join();
  return got;
}

bool IsDir(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

class LockTest : public ::testing::Test {
 protected:
  ConfigScope config;
  std::string lockDir() const { return config.dir().file("locks"); }
};

TEST_F(LockTest, LockDirectoryAndFileAreCreatedOnDemand) {
  ASSERT_FALSE(FileExists(lockDir()));
  InterProcessWriteLock w("sitelist");
  // Nothing happens before lock().
  EXPECT_FALSE(FileExists(lockDir()));
  EXPECT_EQ("sitelist", w.name());
  ASSERT_TRUE(w.lock(0));
  EXPECT_TRUE(w.isLocked());
  EXPECT_TRUE(IsDir(lockDir()));
  EXPECT_TRUE(FileExists(lockDir() + "/sitelist.lock"));
  w.unlock();
  EXPECT_FALSE(w.isLocked());
  // The file stays: a waiter must never find a different inode.
  EXPECT_TRUE(FileExists(lockDir() + "/sitelist.lock"));
}

TEST_F(LockTest, NestedLockDirectoryIsCreated) {
  port::SetConfigValue(port::ConfigKey::LockDir, config.dir().file("deep/er/locks"));
  InterProcessReadLock r("n");
  ASSERT_TRUE(r.lock(0));
  EXPECT_TRUE(FileExists(config.dir().file("deep/er/locks/n.lock")));
}

TEST_F(LockTest, ReadersShare) {
  InterProcessReadLock r1("shared");
  InterProcessReadLock r2("shared");
  ASSERT_TRUE(r1.lock(0));
  EXPECT_TRUE(r2.lock(0));
  EXPECT_TRUE(TryInThread("shared", false, 0));
  EXPECT_EQ(kGotLock, TryInChild("shared", false, 0));
}

TEST_F(LockTest, ReaderExcludesWriter) {
  InterProcessReadLock r("rw");
  ASSERT_TRUE(r.lock(0));
  EXPECT_FALSE(TryInThread("rw", true, 0));
  EXPECT_EQ(kNoLock, TryInChild("rw", true, 0));
  r.unlock();
  EXPECT_TRUE(TryInThread("rw", true, 0));
  EXPECT_EQ(kGotLock, TryInChild("rw", true, 0));
}

TEST_F(LockTest, WriterExcludesEveryoneInThisProcess) {
  InterProcessWriteLock w("x");
  ASSERT_TRUE(w.lock(0));
  // Same thread, another object: OFD locks do not merge per process.
  InterProcessReadLock sameThread("x");
  EXPECT_FALSE(sameThread.lock(0));
  EXPECT_FALSE(sameThread.isLocked());
  EXPECT_FALSE(TryInThread("x", false, 0));
  EXPECT_FALSE(TryInThread("x", true, 0));
  // Another name is another lock.
  EXPECT_TRUE(TryInThread("y", true, 0));
  w.unlock();
  EXPECT_TRUE(TryInThread("x", false, 0));
  EXPECT_TRUE(TryInThread("x", true, 0));
}

TEST_F(LockTest, WriterExcludesOtherProcesses) {
  InterProcessWriteLock w("x");
  ASSERT_TRUE(w.lock(0));
  EXPECT_EQ(kNoLock, TryInChild("x", false, 0));
  EXPECT_EQ(kNoLock, TryInChild("x", true, 0));
  EXPECT_EQ(kNoLock, TryInChild("x", true, 20));
  w.unlock();
  EXPECT_EQ(kGotLock, TryInChild("x", false, 0));
  EXPECT_EQ(kGotLock, TryInChild("x", true, 0));
}

TEST_F(LockTest, LockOfAKilledHolderIsReleased) {
  int ready[2];
  ASSERT_EQ(0, pipe(ready));
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    close(ready[0]);
    InterProcessWriteLock w("crash");
    const char verdict = w.lock(0) ? 'L' : 'F';
    if (write(ready[1], &verdict, 1) != 1) _exit(3);
    for (;;) pause();
  }
  close(ready[1]);
  char verdict = 0;
  ASSERT_EQ(1, read(ready[0], &verdict, 1));
  close(ready[0]);
  ASSERT_EQ('L', verdict);

  InterProcessWriteLock mine("crash");
  EXPECT_FALSE(mine.lock(0));
  ASSERT_EQ(0, kill(pid, SIGKILL));
  int status = 0;
  ASSERT_EQ(pid, waitpid(pid, &status, 0));
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_TRUE(mine.lock(0));
}

TEST_F(LockTest, TimedWaitGivesUpAfterTheWait) {
  InterProcessWriteLock w("t");
  ASSERT_TRUE(w.lock(0));
  InterProcessReadLock r("t");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(r.lock(50));
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(50));
  EXPECT_FALSE(r.isLocked());
}

TEST_F(LockTest, TimedWaitGetsALockReleasedMeanwhile) {
  InterProcessWriteLock w("t");
  ASSERT_TRUE(w.lock(0));
  std::thread releaser([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    w.unlock();
  });
  InterProcessWriteLock other("t");
  const bool got = other.lock(10000);
  releaser.join();
  EXPECT_TRUE(got);
  EXPECT_TRUE(other.isLocked());
}

TEST_F(LockTest, UnboundedWaitGetsALockReleasedMeanwhile) {
  InterProcessWriteLock w("t");
  ASSERT_TRUE(w.lock(0));
  std::thread releaser([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    w.unlock();
  });
  InterProcessReadLock other("t");
  const bool got = other.lock(0x7FFFFFFF);
  releaser.join();
  EXPECT_TRUE(got);
}

TEST_F(LockTest, RelockUnlockAndDestructor) {
  {
    InterProcessWriteLock w("d");
    w.unlock();  // not locked: nothing happens
    EXPECT_FALSE(w.isLocked());
    ASSERT_TRUE(w.lock(0));
    EXPECT_TRUE(w.lock(0));  // already held
    EXPECT_TRUE(w.isLocked());
    EXPECT_FALSE(TryInThread("d", false, 0));
  }
  // The destructor released it.
  EXPECT_TRUE(TryInThread("d", true, 0));
  EXPECT_EQ(kGotLock, TryInChild("d", true, 0));
}

TEST_F(LockTest, LockDirectoryThatIsAFileFails) {
  WriteFile(lockDir(), "not a directory");
  InterProcessWriteLock w("f");
  EXPECT_FALSE(w.lock(0));
  EXPECT_FALSE(w.isLocked());
  InterProcessReadLock r("f");
  EXPECT_FALSE(r.lock(0x7FFFFFFF));
  EXPECT_FALSE(r.isLocked());
}

// Counts lock file descriptors (the folder, opened once to set its mode when
// it is made, is not one): a failed lock must not leak its descriptor.
int g_opens = 0;
int g_closes = 0;
std::set<int> g_lockFds;
int CountingOpen(const char* path, int flags, mode_t mode) {
  const int fd = port::RealSysCalls().open(path, flags, mode);
  const std::string p(path);
  if (fd >= 0 && p.size() > 5 && p.compare(p.size() - 5, 5, ".lock") == 0) {
    ++g_opens;
    g_lockFds.insert(fd);
  }
  return fd;
}
int CountingClose(int fd) {
  if (g_lockFds.erase(fd)) ++g_closes;
  return port::RealSysCalls().close(fd);
}
int FailFcntlEIO(int, int, struct flock*) {
  errno = EIO;
  return -1;
}

TEST_F(LockTest, FcntlFailureFailsWithoutLeakingTheDescriptor) {
  g_opens = g_closes = 0;
  port::SysCalls table = port::RealSysCalls();
  table.open = CountingOpen;
  table.close = CountingClose;
  table.fcntlLock = FailFcntlEIO;
  port::ScopedSysCallOverride scope(table);
  InterProcessWriteLock w("io");
  EXPECT_FALSE(w.lock(1000));
  EXPECT_FALSE(w.isLocked());
  EXPECT_EQ(1, g_opens);
  EXPECT_EQ(1, g_closes);
}

TEST_F(LockTest, DescriptorIsHeldOnlyWhileLocked) {
  g_opens = g_closes = 0;
  port::SysCalls table = port::RealSysCalls();
  table.open = CountingOpen;
  table.close = CountingClose;
  port::ScopedSysCallOverride scope(table);
  InterProcessReadLock r("fd");
  EXPECT_EQ(0, g_opens);
  ASSERT_TRUE(r.lock(0));
  EXPECT_EQ(1, g_opens);
  EXPECT_EQ(0, g_closes);
  r.unlock();
  EXPECT_EQ(1, g_closes);
}

// ---- who may open lock files ---------------------------------------------------

mode_t ModeOf(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : static_cast<mode_t>(-1);
}

// In a child running as another user: 0 when no lock file can be opened or
// locked, but a plain file beside them can be read (the control: what stops
// the user is the lock files' modes, not the way to them).
int OtherUserCanOpenNoLockFile(const std::string& lockDir, const std::string& probe) {
  return testsupport::RunAsOtherUser([&] {
    const int readable = open(probe.c_str(), O_RDONLY);
    if (readable < 0) return 10;
    close(readable);
    for (const char* name : {"SiteListLock", "SmartSiteListLock"}) {
      const std::string path = lockDir + "/" + name + ".lock";
      for (int flags : {O_RDONLY, O_RDWR}) {
        const int fd = open(path.c_str(), flags);
        if (fd >= 0) return 20;
        if (errno != EACCES) return 30;
      }
      InterProcessReadLock lock(name);
      if (lock.lock(0)) return 40;
    }
    return 0;
  });
}

class LockAccessTest : public LockTest {
 protected:
  LockAccessTest() {
    testsupport::OpenToOtherUsers(config.dir().path());
    WriteFile(config.dir().file("probe"), "readable by anyone");
    chmod(config.dir().file("probe").c_str(), 0644);
  }
  void TakeBothLocks() {
    for (const char* name : {"SiteListLock", "SmartSiteListLock"}) {
      InterProcessWriteLock lock(name);
      ASSERT_TRUE(lock.lock(0)) << name;
    }
  }
  std::string lockFile(const char* name) const { return lockDir() + "/" + name + ".lock"; }
  testsupport::CapturingLogSink m_log;
};

TEST_F(LockAccessTest, AProcessOfAnotherUserCanOpenNoLockFile) {
  UmaskScope mask(0);  // the modes must not depend on the umask
  TakeBothLocks();
  EXPECT_EQ(0770u, ModeOf(lockDir()));
  EXPECT_EQ(0660u, ModeOf(lockFile("SiteListLock")));
  EXPECT_EQ(0660u, ModeOf(lockFile("SmartSiteListLock")));
  EXPECT_EQ(0, OtherUserCanOpenNoLockFile(lockDir(), config.dir().file("probe")));
  // Even in a folder open to everyone, the files themselves keep others out.
  ASSERT_EQ(0, chmod(lockDir().c_str(), 0777));
  EXPECT_EQ(0, OtherUserCanOpenNoLockFile(lockDir(), config.dir().file("probe")));
  EXPECT_TRUE(m_log.allMessages().empty());
}

TEST_F(LockAccessTest, TheUmaskDoesNotWidenOrNarrowTheModes) {
  UmaskScope mask(027);
  TakeBothLocks();
  EXPECT_EQ(0770u, ModeOf(lockDir()));
  EXPECT_EQ(0660u, ModeOf(lockFile("SiteListLock")));
}

TEST_F(LockAccessTest, AWiderLockFileTheLibraryOwnsIsNarrowed) {
  ASSERT_EQ(0, mkdir(lockDir().c_str(), 0777));
  ASSERT_EQ(0, chmod(lockDir().c_str(), 0777));
  for (const char* name : {"SiteListLock", "SmartSiteListLock"}) {
    WriteFile(lockFile(name), "");
    ASSERT_EQ(0, chmod(lockFile(name).c_str(), 0666));
  }
  // The way an earlier version left them: anyone could hold them.
  ASSERT_NE(0, OtherUserCanOpenNoLockFile(lockDir(), config.dir().file("probe")));
  TakeBothLocks();
  EXPECT_EQ(0660u, ModeOf(lockFile("SiteListLock")));
  EXPECT_EQ(0660u, ModeOf(lockFile("SmartSiteListLock")));
  EXPECT_EQ(0, OtherUserCanOpenNoLockFile(lockDir(), config.dir().file("probe")));
  // The folder may be shared with other programs: it is reported, not changed.
  EXPECT_EQ(0777u, ModeOf(lockDir()));
  EXPECT_EQ(std::vector<std::wstring>{L"Lock folder " + testsupport::Wide(lockDir()) +
                                      L" is open to other users (mode 0777); it should be 0770"},
            m_log.messages(port::LogLevel::Error));
}

TEST_F(LockAccessTest, AnOpenLockFileOfAnotherOwnerIsReportedOnceAndUsed) {
  ASSERT_EQ(0, mkdir(lockDir().c_str(), 0770));
  WriteFile(lockFile("SiteListLock"), "");
  ASSERT_EQ(0, chown(lockFile("SiteListLock").c_str(), testsupport::kOtherUser, testsupport::kOtherGroup));
  ASSERT_EQ(0, chmod(lockFile("SiteListLock").c_str(), 0666));
  for (int i = 0; i < 3; ++i) {
    InterProcessWriteLock lock("SiteListLock");
    ASSERT_TRUE(lock.lock(0));
  }
  EXPECT_EQ(0666u, ModeOf(lockFile("SiteListLock")));
  EXPECT_EQ(std::vector<std::wstring>{L"Lock file " + testsupport::Wide(lockFile("SiteListLock")) +
                                      L" is open to other users (mode 0666) and owned by another user: it is used "
                                      L"as it is"},
            m_log.messages(port::LogLevel::Error));
}

TEST_F(LockAccessTest, TheLockModeSettingGivesTheModeOfLockFilesAndTheirFolder) {
  port::SetConfigValue(port::ConfigKey::LockMode, "0600");
  TakeBothLocks();
  EXPECT_EQ(0700u, ModeOf(lockDir()));
  EXPECT_EQ(0600u, ModeOf(lockFile("SiteListLock")));
  EXPECT_TRUE(m_log.allMessages().empty());
}

TEST_F(LockAccessTest, ALockModeThatLetsOtherUsersInOrKeepsTheOwnerOutIsRefused) {
  for (const char* setting : {"0666", "0604", "0661", "0460", "1660", "0o660", "660x", "", "-660"}) {
    SCOPED_TRACE(setting);
    testsupport::TempDir locks;
    port::SetConfigValue(port::ConfigKey::LockDir, locks.file("locks"));
    port::SetConfigValue(port::ConfigKey::LockMode, setting);
    m_log.clear();
    {
      InterProcessWriteLock lock("SiteListLock");
      ASSERT_TRUE(lock.lock(0));
      InterProcessWriteLock again("SmartSiteListLock");
      ASSERT_TRUE(again.lock(0));
    }
    EXPECT_EQ(0660u, ModeOf(locks.file("locks/SiteListLock.lock")));
    EXPECT_EQ(0770u, ModeOf(locks.file("locks")));
    // An empty setting is no setting: the default, and nothing to report.
    const std::vector<std::wstring> expected =
        *setting ? std::vector<std::wstring>{L"VLM_LOCK_MODE " + testsupport::Wide(setting) +
                                             L" is refused (it must be octal, give other users no access and let "
                                             L"the owner read and write): lock files are made 0660"}
                 : std::vector<std::wstring>{};
    EXPECT_EQ(expected, m_log.messages(port::LogLevel::Error));
  }
}

}  // namespace
