// Crash-safe file replacement: modes, symbolic links, failure of every step,
// and a writer killed at random moments.
#include <errno.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "port/fs/SafeWrite.h"
#include "port/fs/SysCalls.h"
#include "port/fs/Temporary.h"
#include "support/TestSupport.h"

namespace {

using testsupport::ListDir;
using testsupport::ReadFile;
using testsupport::UmaskScope;
using testsupport::TempDir;
using testsupport::WriteFile;

mode_t ModeOf(const std::string& path) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) return static_cast<mode_t>(-1);
  return st.st_mode & 07777;
}

uid_t OwnerOf(const std::string& path) {
  struct stat st {};
  return lstat(path.c_str(), &st) == 0 ? st.st_uid : static_cast<uid_t>(-1);
}

gid_t GroupOf(const std::string& path) {
  struct stat st {};
  return lstat(path.c_str(), &st) == 0 ? st.st_gid : static_cast<gid_t>(-1);
}

int Replace(const std::string& path, const std::string& bytes, mode_t mode = 0644) {
  return port::ReplaceFileContents(path, bytes.data(), bytes.size(), mode);
}

TEST(SafeWrite, NewFileGetsExactModeWhateverTheUmask) {
  TempDir dir;
  UmaskScope mask(022);
  ASSERT_EQ(0, Replace(dir.file("private"), "secret", 0600));
  EXPECT_EQ(0600u, ModeOf(dir.file("private")));
  EXPECT_EQ("secret", ReadFile(dir.file("private")));

  // The umask would have removed the group and other write bits.
  ASSERT_EQ(0, Replace(dir.file("shared"), "x", 0666));
  EXPECT_EQ(0666u, ModeOf(dir.file("shared")));
  EXPECT_EQ((std::vector<std::string>{"private", "shared"}), ListDir(dir.path()));
}

TEST(SafeWrite, ReplacingKeepsTheExistingMode) {
  TempDir dir;
  const std::string target = dir.file("list.xml");
  WriteFile(target, "old content");
  ASSERT_EQ(0, chmod(target.c_str(), 0640));
  ASSERT_EQ(0, Replace(target, "new", 0600));
  EXPECT_EQ(0640u, ModeOf(target));
  EXPECT_EQ("new", ReadFile(target));
  EXPECT_EQ(std::vector<std::string>{"list.xml"}, ListDir(dir.path()));
}

TEST(SafeWrite, EmptyContentMakesAnEmptyFile) {
  TempDir dir;
  const std::string target = dir.file("empty");
  WriteFile(target, "something");
  ASSERT_EQ(0, port::ReplaceFileContents(target, nullptr, 0));
  EXPECT_EQ("", ReadFile(target));
}

TEST(SafeWrite, SymlinkIsReplacedNotFollowed) {
  TempDir dir;
  const std::string dest = dir.file("dest");
  const std::string link = dir.file("link");
  WriteFile(dest, "destination");
  ASSERT_EQ(0, chmod(dest.c_str(), 0600));
  ASSERT_EQ(0, symlink(dest.c_str(), link.c_str()));

  ASSERT_EQ(0, Replace(link, "replacement", 0644));
  struct stat st {};
  ASSERT_EQ(0, lstat(link.c_str(), &st));
  EXPECT_TRUE(S_ISREG(st.st_mode));
  // A link's own mode is meaningless: the new file gets newFileMode.
  EXPECT_EQ(0644u, st.st_mode & 07777);
  EXPECT_EQ("replacement", ReadFile(link));
  EXPECT_EQ("destination", ReadFile(dest));
  EXPECT_EQ(0600u, ModeOf(dest));
}

TEST(SafeWrite, MissingDirectoryIsENOENT) {
  TempDir dir;
  EXPECT_EQ(ENOENT, Replace(dir.file("no/such/file"), "x"));
  EXPECT_TRUE(ListDir(dir.path()).empty());
}

TEST(SafeWrite, DirectoryTargetIsRefused) {
  TempDir dir;
  ASSERT_EQ(0, mkdir(dir.file("sub").c_str(), 0755));
  EXPECT_EQ(EISDIR, Replace(dir.file("sub"), "x"));
  EXPECT_EQ(EISDIR, Replace(dir.file("sub") + "/", "x"));
  EXPECT_EQ(std::vector<std::string>{"sub"}, ListDir(dir.path()));
}

// ---- failure injection -------------------------------------------------------

int FailFsyncEIO(int) {
  errno = EIO;
  return -1;
}
ssize_t FailWriteENOSPC(int, const void*, size_t) {
  errno = ENOSPC;
  return -1;
}
int FailRenameEXDEV(const char*, const char*) {
  errno = EXDEV;
  return -1;
}
int FailFchmodEPERM(int, mode_t) {
  errno = EPERM;
  return -1;
}
int FailFchownEIO(int, uid_t, gid_t) {
  errno = EIO;
  return -1;
}
int FailLockENOLCK(int, int, struct flock*) {
  errno = ENOLCK;
  return -1;
}
int FailLstatEACCES(const char*, struct stat*) {
  errno = EACCES;
  return -1;
}

struct Injection {
  const char* step;
  int expected;
  void (*apply)(port::SysCalls&);
};

// Without this gtest prints the parameter's raw bytes, padding included,
// which memcheck rightly reports as a read of uninitialised memory.
void PrintTo(const Injection& injection, std::ostream* os) { *os << injection.step; }

class SafeWriteFailure : public ::testing::TestWithParam<Injection> {};

TEST_P(SafeWriteFailure, ReturnsErrnoAndLeavesOldFileAndNoTemporary) {
  TempDir dir;
  const std::string target = dir.file("SiteList.xml");
  std::string old(5000, '\0');
  for (std::size_t i = 0; i < old.size(); ++i) old[i] = static_cast<char>(i * 7);
  WriteFile(target, old);
  ASSERT_EQ(0, chmod(target.c_str(), 0640));
  // Owned by another user, so that the new file must be given away.
  ASSERT_EQ(0, chown(target.c_str(), testsupport::kOtherUser, testsupport::kOtherGroup));

  port::SysCalls table = port::RealSysCalls();
  GetParam().apply(table);
  {
    port::ScopedSysCallOverride scope(table);
    EXPECT_EQ(GetParam().expected, Replace(target, std::string(8000, 'n')));
  }
  EXPECT_EQ(old, ReadFile(target));
  EXPECT_EQ(0640u, ModeOf(target));
  EXPECT_EQ(testsupport::kOtherUser, OwnerOf(target));
  EXPECT_EQ(std::vector<std::string>{"SiteList.xml"}, ListDir(dir.path()));
}

INSTANTIATE_TEST_SUITE_P(
    Steps, SafeWriteFailure,
    ::testing::Values(Injection{"fsync", EIO, [](port::SysCalls& t) { t.fsync = FailFsyncEIO; }},
                      Injection{"write", ENOSPC, [](port::SysCalls& t) { t.write = FailWriteENOSPC; }},
                      Injection{"rename", EXDEV, [](port::SysCalls& t) { t.rename = FailRenameEXDEV; }},
                      Injection{"fchmod", EPERM, [](port::SysCalls& t) { t.fchmod = FailFchmodEPERM; }},
                      Injection{"fchown", EIO, [](port::SysCalls& t) { t.fchown = FailFchownEIO; }},
                      Injection{"lock", ENOLCK, [](port::SysCalls& t) { t.fcntlLock = FailLockENOLCK; }},
                      Injection{"lstat", EACCES, [](port::SysCalls& t) { t.lstat = FailLstatEACCES; }}),
    [](const ::testing::TestParamInfo<Injection>& info) { return std::string(info.param.step); });

TEST(SafeWrite, OverrideIsRestoredAfterTheScope) {
  {
    port::SysCalls table = port::RealSysCalls();
    table.rename = FailRenameEXDEV;
    port::ScopedSysCallOverride scope(table);
    EXPECT_EQ(&FailRenameEXDEV, port::Sys().rename);
  }
  EXPECT_EQ(port::RealSysCalls().rename, port::Sys().rename);
}

// Short writes and EINTR: every byte still arrives, in order.
int g_writeCalls = 0;
ssize_t ChoppyWrite(int fd, const void* buf, size_t n) {
  if (++g_writeCalls % 3 == 0) {
    errno = EINTR;
    return -1;
  }
  return port::RealSysCalls().write(fd, buf, std::min<size_t>(n, 7));
}

TEST(SafeWrite, ShortWritesAndEINTRAreRetried) {
  TempDir dir;
  std::string data;
  for (int i = 0; i < 1000; ++i) data.push_back(static_cast<char>('A' + i % 26));
  g_writeCalls = 0;
  port::SysCalls table = port::RealSysCalls();
  table.write = ChoppyWrite;
  {
    port::ScopedSysCallOverride scope(table);
    ASSERT_EQ(0, Replace(dir.file("f"), data));
  }
  EXPECT_EQ(data, ReadFile(dir.file("f")));
  // 1000 bytes in 7-byte pieces is 143 writes, plus one EINTR per two writes.
  EXPECT_EQ(143 + 71, g_writeCalls);
}

// The random temporary name may be taken: the next one is tried.
int g_exclOpens = 0;
std::vector<std::string> g_openPaths;
std::vector<int> g_openFlags;
int CollidingOpen(const char* path, int flags, mode_t mode) {
  g_openPaths.push_back(path);
  g_openFlags.push_back(flags);
  if ((flags & O_EXCL) && ++g_exclOpens <= 2) {
    errno = EEXIST;
    return -1;
  }
  return port::RealSysCalls().open(path, flags, mode);
}

TEST(SafeWrite, TakenTemporaryNameIsRetriedAndDirectoryIsSynced) {
  TempDir dir;
  g_exclOpens = 0;
  g_openPaths.clear();
  g_openFlags.clear();
  port::SysCalls table = port::RealSysCalls();
  table.open = CollidingOpen;
  {
    port::ScopedSysCallOverride scope(table);
    ASSERT_EQ(0, Replace(dir.file("target"), "content"));
  }
  EXPECT_EQ("content", ReadFile(dir.file("target")));
  ASSERT_EQ(4u, g_openPaths.size());
  const std::string prefix = dir.path() + "/.target.tmp.";
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(prefix, g_openPaths[i].substr(0, prefix.size())) << g_openPaths[i];
    EXPECT_EQ(prefix.size() + 6, g_openPaths[i].size()) << g_openPaths[i];
    EXPECT_EQ(O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, g_openFlags[i]);
  }
  // The directory is opened last, to make the rename durable.
  EXPECT_EQ(dir.path(), g_openPaths[3]);
  EXPECT_EQ(O_RDONLY | O_DIRECTORY | O_CLOEXEC, g_openFlags[3]);
  EXPECT_EQ(std::vector<std::string>{"target"}, ListDir(dir.path()));
}

// ---- a writer killed at random moments -------------------------------------

TEST(SafeWrite, KilledWriterLeavesOldOrNewContentNeverATornOne) {
  TempDir dir;
  const std::string target = dir.file("SiteList.xml");
  const std::string a(200 * 1024, 'a');
  const std::string b(200 * 1024, 'b');
  ASSERT_EQ(0, Replace(target, a));

  std::mt19937 rng(20240611);
  std::uniform_int_distribution<int> delayUs(0, 5000);
  int sawA = 0, sawB = 0;
  for (int round = 0; round < 30; ++round) {
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      // Child: alternate forever until killed.
      for (unsigned i = 0;; ++i) {
        const std::string& s = (i % 2) ? a : b;
        port::ReplaceFileContents(target, s.data(), s.size(), 0644);
      }
    }
    const int us = delayUs(rng);
    timespec ts{0, static_cast<long>(us) * 1000};
    nanosleep(&ts, nullptr);
    ASSERT_EQ(0, kill(pid, SIGKILL));
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    ASSERT_TRUE(WIFSIGNALED(status));
    const std::string now = ReadFile(target);
    ASSERT_TRUE(now == a || now == b) << "round " << round << ": torn file of " << now.size() << " bytes";
    (now == a ? sawA : sawB)++;
  }
  EXPECT_EQ(30, sawA + sawB);

  // Kills may leave temporaries behind, all with the temporary's name shape.
  for (const std::string& name : ListDir(dir.path())) {
    if (name != "SiteList.xml") {
      EXPECT_EQ(0u, name.rfind(".SiteList.xml.tmp.", 0)) << name;
    }
  }

  ASSERT_EQ(0, Replace(target, "final"));
  EXPECT_EQ("final", ReadFile(target));
  EXPECT_EQ(0644u, ModeOf(target));
}

}  // namespace

namespace {

// ---- temporaries of writers that are gone ------------------------------------

std::vector<std::string> TemporariesOf(const std::string& dir, const std::string& name) {
  std::vector<std::string> found;
  for (const std::string& entry : ListDir(dir))
    if (entry.rfind("." + name + ".tmp.", 0) == 0) found.push_back(entry);
  return found;
}

TEST(SafeWrite, ASuccessfulWriteRemovesAtOnceEveryTemporaryOfItsTargetWhoseWriterIsGone) {
  TempDir dir;
  // Just left by killed writers: nobody holds their locks, however young.
  const std::string left1 = dir.file(".SiteList.xml.tmp.AAAAAA");
  const std::string left2 = dir.file(".SiteList.xml.tmp.BBBBBB");
  const std::string other = dir.file(".ServerSiteList.xml.tmp.CCCCCC");
  for (const std::string& p : {left1, left2, other}) WriteFile(p, "left by a killed writer");

  ASSERT_EQ(0, Replace(dir.file("SiteList.xml"), "new"));
  EXPECT_EQ((std::vector<std::string>{".ServerSiteList.xml.tmp.CCCCCC", "SiteList.xml"}), ListDir(dir.path()));
  EXPECT_EQ("new", ReadFile(dir.file("SiteList.xml")));
}

TEST(SafeWrite, ATemporaryBeingWrittenIsNeverRemoved) {
  TempDir dir;
  port::Temporary live;  // a writer that has not renamed yet
  ASSERT_EQ(0, live.create(dir.path(), "SiteList.xml"));
  ASSERT_EQ(0, Replace(dir.file("SiteList.xml"), "new"));
  EXPECT_EQ((std::vector<std::string>{live.name(), "SiteList.xml"}), ListDir(dir.path()));
}

TEST(SafeWrite, ATemporaryAPendingChangeNamesIsKept) {
  TempDir dir;
  const std::string named = ".SiteList.xml.tmp.NNNNNN";
  WriteFile(dir.file(named), "the new list of an interrupted change");
  WriteFile(dir.file(".pending-change"), "change 1\nput " + named + "/SiteList.xml\nend\n");
  ASSERT_EQ(0, Replace(dir.file("SiteList.xml"), "new"));
  EXPECT_EQ((std::vector<std::string>{named, ".pending-change", "SiteList.xml"}), ListDir(dir.path()));
}

TEST(SafeWrite, ATemporaryIsKeptWhileAPendingChangeRecordCannotBeRead) {
  TempDir dir;
  const std::string left = ".SiteList.xml.tmp.BBBBBB";
  WriteFile(dir.file(left), "maybe the new list of an interrupted change");
  WriteFile(dir.file(".pending-change"), "not a change record");
  ASSERT_EQ(0, Replace(dir.file("SiteList.xml"), "new"));
  EXPECT_EQ((std::vector<std::string>{left, ".pending-change", "SiteList.xml"}), ListDir(dir.path()));
}

TEST(SafeWrite, AFailedWriteLeavesOldTemporariesAlone) {
  TempDir dir;
  const std::string left = dir.file(".SiteList.xml.tmp.AAAAAA");
  WriteFile(left, "left by a killed writer");
  port::SysCalls table = port::RealSysCalls();
  table.rename = [](const char*, const char*) -> int {
    errno = EIO;
    return -1;
  };
  port::ScopedSysCallOverride failing(table);
  EXPECT_EQ(EIO, Replace(dir.file("SiteList.xml"), "new"));
  EXPECT_EQ(std::vector<std::string>{".SiteList.xml.tmp.AAAAAA"}, ListDir(dir.path()));
}

// The killed writers: each one stops for good in its first write, after it
// has told the parent through the pipe, with its temporary created and
// locked.
int g_stoppedPipe = -1;
ssize_t StopInWrite(int, const void*, size_t) {
  const char byte = 'w';
  if (write(g_stoppedPipe, &byte, 1) != 1) _exit(3);
  for (;;) pause();
}

// Starts a writer of target that stops for good in its first write, with its
// temporary created and locked; returns its pid once it got there.
pid_t StartStoppedWriter(const std::string& target) {
  int fds[2];
  if (pipe(fds) != 0) return -1;
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    g_stoppedPipe = fds[1];
    port::SysCalls table = port::RealSysCalls();
    table.write = StopInWrite;
    port::Sys() = table;
    Replace(target, "never written");
    _exit(2);
  }
  close(fds[1]);
  char byte = 0;
  const ssize_t got = pid > 0 ? read(fds[0], &byte, 1) : -1;
  close(fds[0]);
  return got == 1 ? pid : -1;
}

bool Kill(pid_t pid) {
  int status = 0;
  return kill(pid, SIGKILL) == 0 && waitpid(pid, &status, 0) == pid && WIFSIGNALED(status);
}

TEST(SafeWrite, AfterAThousandKilledWritersOneWriteLeavesNoTemporary) {
  TempDir dir;
  const std::string target = dir.file("SiteList.xml");
  ASSERT_EQ(0, Replace(target, "old"));
  constexpr std::size_t kKills = 1000;
  for (std::size_t i = 0; i < kKills; ++i) {
    const pid_t pid = StartStoppedWriter(target);
    ASSERT_GT(pid, 0) << "round " << i;
    ASSERT_TRUE(Kill(pid)) << "round " << i;
  }
  ASSERT_EQ(kKills, TemporariesOf(dir.path(), "SiteList.xml").size());

  // One more writer, alive in the middle of its write: the sweep of the
  // next successful write removes the thousand, never the live one.
  const pid_t live = StartStoppedWriter(target);
  ASSERT_GT(live, 0);
  ASSERT_EQ(0, Replace(target, "written beside a live writer"));
  EXPECT_EQ(1u, TemporariesOf(dir.path(), "SiteList.xml").size());
  ASSERT_TRUE(Kill(live));
  ASSERT_EQ(0, Replace(target, "final"));
  EXPECT_EQ(std::vector<std::string>{"SiteList.xml"}, ListDir(dir.path()));
  EXPECT_EQ("final", ReadFile(target));
}

// ---- owner, group and mode of the replaced file ------------------------------

TEST(SafeWrite, AsRootTheReplacementKeepsTheOwnerGroupAndModeOfAnotherUsersFile) {
  ASSERT_EQ(0u, geteuid()) << "the suite runs as root";
  TempDir dir;
  const std::string target = dir.file("SiteList.xml");
  WriteFile(target, "the agent's list");
  ASSERT_EQ(0, chown(target.c_str(), testsupport::kOtherUser, testsupport::kOtherGroup));
  ASSERT_EQ(0, chmod(target.c_str(), 0640));
  ASSERT_EQ(0, Replace(target, "written by root", 0600));
  EXPECT_EQ("written by root", ReadFile(target));
  EXPECT_EQ(testsupport::kOtherUser, OwnerOf(target));
  EXPECT_EQ(testsupport::kOtherGroup, GroupOf(target));
  EXPECT_EQ(0640u, ModeOf(target));
  // A new file is root's own, with the mode given.
  ASSERT_EQ(0, Replace(dir.file("new.bin"), "x", 0600));
  EXPECT_EQ(0u, OwnerOf(dir.file("new.bin")));
  EXPECT_EQ(0u, GroupOf(dir.file("new.bin")));
  EXPECT_EQ(0600u, ModeOf(dir.file("new.bin")));
}

TEST(SafeWrite, AsRootAnExactModeStillKeepsTheOwnerAndGroup) {
  TempDir dir;
  const std::string target = dir.file("reqseckey.bin");
  WriteFile(target, "old key");
  ASSERT_EQ(0, chown(target.c_str(), testsupport::kOtherUser, testsupport::kOtherGroup));
  ASSERT_EQ(0, chmod(target.c_str(), 0644));
  ASSERT_EQ(0, port::ReplaceFileContents(target, "key", 3, 0600, port::ModeChoice::Exact));
  EXPECT_EQ(testsupport::kOtherUser, OwnerOf(target));
  EXPECT_EQ(testsupport::kOtherGroup, GroupOf(target));
  EXPECT_EQ(0600u, ModeOf(target));
}

TEST(SafeWrite, AsAnotherUserTheReplacementKeepsItsOwnFileAndCannotGiveOneAway) {
  TempDir dir;
  testsupport::OpenToOtherUsers(dir.path());
  const std::string own = dir.file("own.xml");
  const std::string roots = dir.file("roots.xml");
  WriteFile(own, "the agent's");
  ASSERT_EQ(0, chown(own.c_str(), testsupport::kOtherUser, testsupport::kOtherGroup));
  ASSERT_EQ(0, chmod(own.c_str(), 0640));
  WriteFile(roots, "root's");
  ASSERT_EQ(0, chmod(roots.c_str(), 0664));
  const int rc = testsupport::RunAsOtherUser([&] {
    if (Replace(own, "replaced by its owner", 0600) != 0) return 1;
    // The folder lets the other user replace root's file, but a process that
    // is not root may not give a file away: the new one is its own.
    if (Replace(roots, "replaced by another user", 0600) != 0) return 2;
    return 0;
  });
  ASSERT_EQ(0, rc);
  EXPECT_EQ("replaced by its owner", ReadFile(own));
  EXPECT_EQ(testsupport::kOtherUser, OwnerOf(own));
  EXPECT_EQ(testsupport::kOtherGroup, GroupOf(own));
  EXPECT_EQ(0640u, ModeOf(own));
  EXPECT_EQ("replaced by another user", ReadFile(roots));
  EXPECT_EQ(testsupport::kOtherUser, OwnerOf(roots));
  EXPECT_EQ(0664u, ModeOf(roots));
}

}  // namespace
