// Named reader/writer locks across threads and processes.
#include "port/lock/InterProcessLock.h"

#include <errno.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "port/config/IConfiguration.h"
#include "port/fs/SysCalls.h"
#include "support/TestSupport.h"

namespace {

using testsupport::ConfigScope;
using testsupport::FileExists;
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

// Counts descriptors: a failed lock must not leak its lock file descriptor.
int g_opens = 0;
int g_closes = 0;
int CountingOpen(const char* path, int flags, mode_t mode) {
  const int fd = port::RealSysCalls().open(path, flags, mode);
  if (fd >= 0) ++g_opens;
  return fd;
}
int CountingClose(int fd) {
  ++g_closes;
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

}  // namespace
