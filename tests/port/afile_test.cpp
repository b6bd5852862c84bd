// AFile, AFiler and the path helpers.
#include "port/fs/AFile.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "port/fs/SysCalls.h"
#include "support/TestSupport.h"

namespace {

using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::Wide;
using testsupport::WriteFile;

std::string Bytes(const ABuffer& b) { return std::string(reinterpret_cast<const char*>(b.getBytes()), b.size()); }

mode_t ModeOf(const std::string& path) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) return static_cast<mode_t>(-1);
  return st.st_mode & 07777;
}

bool IsDir(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// ---- paths ---------------------------------------------------------------

TEST(JoinPath, PutsExactlyOneSlashBetween) {
  EXPECT_EQ(AString(L"a/b"), joinPath(L"a", L"b"));
  EXPECT_EQ(AString(L"a/b"), joinPath(L"a/", L"b"));
  EXPECT_EQ(AString(L"a/b"), joinPath(L"a", L"/b"));
  EXPECT_EQ(AString(L"/etc/x.xml"), joinPath(L"/etc", L"x.xml"));
  EXPECT_EQ(AString(L"/x.xml"), joinPath(L"/", L"x.xml"));
  EXPECT_EQ(AString(L"x.xml"), joinPath(L"", L"x.xml"));
  EXPECT_EQ(AString(L"/abs"), joinPath(L"", L"/abs"));
}

TEST(JoinPath, APathAppendsComponents) {
  APath p(AString(L"/var"));
  p.append(L"lib").append(L"site.xml");
  EXPECT_EQ(AString(L"/var/lib/site.xml"), static_cast<const AString&>(p));
  EXPECT_EQ(AString(L"d/n"), static_cast<const AString&>(APath(L"d/", L"n")));
}

TEST(SplitPath, SplitsAtTheLastSlash) {
  AString dir, name;
  splitPath(L"a/b/c.xml", dir, name);
  EXPECT_EQ(AString(L"a/b"), dir);
  EXPECT_EQ(AString(L"c.xml"), name);

  splitPath(L"c.xml", dir, name);
  EXPECT_EQ(AString(L""), dir);
  EXPECT_EQ(AString(L"c.xml"), name);

  splitPath(L"/c.xml", dir, name);
  EXPECT_EQ(AString(L"/"), dir);
  EXPECT_EQ(AString(L"c.xml"), name);

  splitPath(L"a//c.xml", dir, name);
  EXPECT_EQ(AString(L"a"), dir);
  EXPECT_EQ(AString(L"c.xml"), name);

  splitPath(L"a/b/", dir, name);
  EXPECT_EQ(AString(L"a/b"), dir);
  EXPECT_EQ(AString(L""), name);
}

TEST(SplitPath, OutputMayAliasInput) {
  AString path(L"/opt/x/SiteList.xml");
  AString name;
  splitPath(path, path, name);
  EXPECT_EQ(AString(L"/opt/x"), path);
  EXPECT_EQ(AString(L"SiteList.xml"), name);
}

// ---- reading and writing ---------------------------------------------------

TEST(AFileRead, MissingFileFailsAndLeavesBufferAlone) {
  TempDir dir;
  const unsigned char before[] = {1, 2, 3};
  ABuffer buf(before, 3);
  EXPECT_FALSE(AFile::read(dir.wfile("missing"), buf));
  EXPECT_EQ(std::string("\x01\x02\x03"), Bytes(buf));
}

TEST(AFileRead, DirectoryFails) {
  TempDir dir;
  ABuffer buf;
  EXPECT_FALSE(AFile::read(dir.wpath(), buf));
  EXPECT_EQ(0u, buf.size());
}

TEST(AFileRead, EmptyFileIsEmptyBuffer) {
  TempDir dir;
  WriteFile(dir.file("empty"), "");
  const unsigned char before[] = {9};
  ABuffer buf(before, 1);
  ASSERT_TRUE(AFile::read(dir.wfile("empty"), buf));
  EXPECT_EQ(0u, buf.size());
}

int g_readCalls = 0;
ssize_t InterruptedRead(int fd, void* buf, size_t n) {
  if (++g_readCalls == 1) {
    errno = EINTR;
    return -1;
  }
  return port::RealSysCalls().read(fd, buf, n < 5 ? n : 5);
}

TEST(AFileRead, ShortReadsAndEINTRStillReadEverything) {
  TempDir dir;
  WriteFile(dir.file("f"), "0123456789abcdefghij!");
  g_readCalls = 0;
  port::SysCalls table = port::RealSysCalls();
  table.read = InterruptedRead;
  ABuffer buf;
  {
    port::ScopedSysCallOverride scope(table);
    ASSERT_TRUE(AFile::read(dir.wfile("f"), buf));
  }
  EXPECT_EQ("0123456789abcdefghij!", Bytes(buf));
  // One EINTR, five reads of at most 5 bytes, and the read that sees the end.
  EXPECT_EQ(7, g_readCalls);
}

TEST(AFileWrite, RoundTripOfBinaryBytes) {
  TempDir dir;
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<char>(i));
  ASSERT_TRUE(AFile::write(dir.wfile("bin"), reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                           0600));
  EXPECT_EQ(0600u, ModeOf(dir.file("bin")));
  ABuffer buf;
  ASSERT_TRUE(AFile::read(dir.wfile("bin"), buf));
  EXPECT_EQ(bytes, Bytes(buf));
}

TEST(AFileWrite, NonAsciiNameIsUtf8OnDisk) {
  TempDir dir;
  const unsigned char data[] = {'o', 'k'};
  ASSERT_TRUE(AFile::write(dir.wpath() + L"/caf\u00e9.xml", data, 2));
  EXPECT_EQ("ok", ReadFile(dir.file("caf\xc3\xa9.xml")));
}

TEST(AFileWrite, MissingDirectoryFailsWithENOENT) {
  TempDir dir;
  const unsigned char data[] = {'x'};
  errno = 0;
  EXPECT_FALSE(AFile::write(dir.wfile("none/f"), data, 1));
  EXPECT_EQ(ENOENT, errno);
}

TEST(AFileWrite, WithAModeTheFileEndsWithExactlyThatModeNewOrReplaced) {
  TempDir dir;
  const std::string path = dir.file("request.key");
  const unsigned char first[] = {1, 2, 3};
  ASSERT_TRUE(AFile::writeWithMode(Wide(path), first, sizeof first, 0600));
  struct stat st;
  ASSERT_EQ(0, stat(path.c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 07777);
  ASSERT_EQ(0, chmod(path.c_str(), 0644));
  const unsigned char second[] = {4, 5};
  ASSERT_TRUE(AFile::writeWithMode(Wide(path), second, sizeof second, 0600));
  ASSERT_EQ(0, stat(path.c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 07777);
  EXPECT_EQ(std::string("\x04\x05"), ReadFile(path));
}

TEST(AFileWrite, WithAModeAMissingDirectoryFailsWithENOENT) {
  TempDir dir;
  const unsigned char data[] = {1};
  errno = 0;
  EXPECT_FALSE(AFile::writeWithMode(dir.wfile("missing/request.key"), data, sizeof data, 0600));
  EXPECT_EQ(ENOENT, errno);
}

TEST(AFileExists, FilesDirectoriesAndLinksToThemExistADanglingLinkDoesNot) {
  TempDir dir;
  WriteFile(dir.file("f"), "x");
  ASSERT_EQ(0, symlink(dir.file("gone").c_str(), dir.file("dangling").c_str()));
  EXPECT_TRUE(AFile::exists(dir.wfile("f")));
  EXPECT_TRUE(AFile::exists(dir.wpath()));
  EXPECT_FALSE(AFile::exists(dir.wfile("dangling")));
  EXPECT_FALSE(AFile::exists(dir.wfile("gone")));
  ASSERT_EQ(0, symlink(dir.file("f").c_str(), dir.file("link").c_str()));
  EXPECT_TRUE(AFile::exists(dir.wfile("link")));
}

TEST(AFileRemove, RemovesAndCountsAMissingFileAsGone) {
  TempDir dir;
  WriteFile(dir.file("f"), "x");
  EXPECT_TRUE(AFile::remove(dir.wfile("f")));
  EXPECT_FALSE(FileExists(dir.file("f")));
  EXPECT_TRUE(AFile::remove(dir.wfile("f")));
  EXPECT_TRUE(AFile::remove(dir.wfile("never")));
}

TEST(AFileRemove, FailsWhenTheFileCannotBeDeleted) {
  TempDir dir;
  ASSERT_EQ(0, mkdir(dir.file("d").c_str(), 0755));
  // unlink refuses a directory: the path is still taken afterwards.
  EXPECT_FALSE(AFile::remove(dir.wfile("d")));
  EXPECT_TRUE(FileExists(dir.file("d")));
}

TEST(AFileCopy, CopiesBytesAndSourceMode) {
  TempDir dir;
  WriteFile(dir.file("src"), std::string("key\0bytes", 9));
  ASSERT_EQ(0, chmod(dir.file("src").c_str(), 0600));
  ASSERT_TRUE(AFile::copy(dir.wfile("src"), dir.wfile("dst")));
  EXPECT_EQ(std::string("key\0bytes", 9), ReadFile(dir.file("dst")));
  EXPECT_EQ(0600u, ModeOf(dir.file("dst")));
  EXPECT_EQ(std::string("key\0bytes", 9), ReadFile(dir.file("src")));
}

TEST(AFileCopy, OverwritesExistingTargetKeepingItsMode) {
  TempDir dir;
  WriteFile(dir.file("src"), "new");
  WriteFile(dir.file("dst"), "old old old");
  ASSERT_EQ(0, chmod(dir.file("dst").c_str(), 0640));
  ASSERT_TRUE(AFile::copy(dir.wfile("src"), dir.wfile("dst")));
  EXPECT_EQ("new", ReadFile(dir.file("dst")));
  EXPECT_EQ(0640u, ModeOf(dir.file("dst")));
}

TEST(AFileCopy, UnreadableSourceFailsAndCreatesNothing) {
  TempDir dir;
  EXPECT_FALSE(AFile::copy(dir.wfile("missing"), dir.wfile("dst")));
  EXPECT_FALSE(FileExists(dir.file("dst")));
  EXPECT_FALSE(AFile::copy(dir.wpath(), dir.wfile("dst")));
  EXPECT_FALSE(FileExists(dir.file("dst")));
}

// ---- directories -------------------------------------------------------------

TEST(CreateDirectories, CreatesNestedAndAcceptsExisting) {
  TempDir dir;
  ASSERT_TRUE(AFiler::createDirectories(dir.wfile("a/b/c")));
  EXPECT_TRUE(IsDir(dir.file("a")));
  EXPECT_TRUE(IsDir(dir.file("a/b")));
  EXPECT_TRUE(IsDir(dir.file("a/b/c")));
  EXPECT_TRUE(AFiler::createDirectories(dir.wfile("a/b/c")));
  EXPECT_TRUE(AFiler::createDirectories(dir.wfile("a/b")));
  EXPECT_TRUE(AFiler::createDirectories(dir.wfile("a//b/d/")));
  EXPECT_TRUE(IsDir(dir.file("a/b/d")));
  EXPECT_TRUE(AFiler::createDirectories(L"/"));
}

TEST(CreateDirectories, AnEmptyPathFailsWithENOENT) {
  errno = 0;
  EXPECT_FALSE(AFiler::createDirectories(L""));
  EXPECT_EQ(ENOENT, errno);
}

TEST(CreateDirectories, RegularFileInTheWayFails) {
  TempDir dir;
  WriteFile(dir.file("f"), "x");
  EXPECT_FALSE(AFiler::createDirectories(dir.wfile("f")));
  EXPECT_FALSE(AFiler::createDirectories(dir.wfile("f/sub")));
  EXPECT_FALSE(AFiler::createDirectories(dir.wfile("f/sub/deeper")));
  EXPECT_EQ("x", ReadFile(dir.file("f")));
}

int FailMkdirEIO(const char*, mode_t) {
  errno = EIO;
  return -1;
}

TEST(CreateDirectories, MkdirFailureFails) {
  TempDir dir;
  port::SysCalls table = port::RealSysCalls();
  table.mkdir = FailMkdirEIO;
  port::ScopedSysCallOverride scope(table);
  EXPECT_FALSE(AFiler::createDirectories(dir.wfile("x/y")));
  EXPECT_FALSE(FileExists(dir.file("x")));
}

TEST(CreateDirectories, NewDirectoriesAre0755UnderUmask022) {
  TempDir dir;
  const mode_t old = umask(022);
  const bool ok = AFiler::createDirectories(dir.wfile("p/q"));
  umask(old);
  ASSERT_TRUE(ok);
  EXPECT_EQ(0755u, ModeOf(dir.file("p")));
  EXPECT_EQ(0755u, ModeOf(dir.file("p/q")));
}

// ---- writability -------------------------------------------------------------

TEST(IsWritable, MissingPathMayBeWritten) {
  TempDir dir;
  bool writable = false;
  ASSERT_TRUE(AFile::isWritable(dir.wfile("missing"), writable));
  EXPECT_TRUE(writable);
}

TEST(IsWritable, OrdinaryFileIsWritable) {
  TempDir dir;
  WriteFile(dir.file("f"), "x");
  ASSERT_EQ(0, chmod(dir.file("f").c_str(), 0644));
  bool writable = false;
  ASSERT_TRUE(AFile::isWritable(dir.wfile("f"), writable));
  EXPECT_TRUE(writable);
}

TEST(IsWritable, FileWithoutWriteBitsIsReadOnlyEvenForRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "the root-only rule needs euid 0";
  TempDir dir;
  WriteFile(dir.file("f"), "x");
  ASSERT_EQ(0, chmod(dir.file("f").c_str(), 0444));
  bool writable = true;
  ASSERT_TRUE(AFile::isWritable(dir.wfile("f"), writable));
  EXPECT_FALSE(writable);

  // Any one write bit is enough for root.
  ASSERT_EQ(0, chmod(dir.file("f").c_str(), 0464));
  ASSERT_TRUE(AFile::isWritable(dir.wfile("f"), writable));
  EXPECT_TRUE(writable);
}

int FailStatEIO(const char*, struct stat*) {
  errno = EIO;
  return -1;
}

TEST(IsWritable, FailingQuestionIsFalse) {
  TempDir dir;
  WriteFile(dir.file("f"), "x");
  port::SysCalls table = port::RealSysCalls();
  table.stat = FailStatEIO;
  port::ScopedSysCallOverride scope(table);
  bool writable = true;
  EXPECT_FALSE(AFile::isWritable(dir.wfile("f"), writable));
  EXPECT_FALSE(writable);
}

int AccessEROFS(const char*, int) {
  errno = EROFS;
  return -1;
}
int AccessEIO(const char*, int) {
  errno = EIO;
  return -1;
}

TEST(IsWritable, AccessDenialIsAnAnswerAndAccessErrorIsAFailure) {
  TempDir dir;
  WriteFile(dir.file("f"), "x");
  ASSERT_EQ(0, chmod(dir.file("f").c_str(), 0644));
  port::SysCalls table = port::RealSysCalls();
  table.access = AccessEROFS;
  bool writable = true;
  {
    port::ScopedSysCallOverride scope(table);
    ASSERT_TRUE(AFile::isWritable(dir.wfile("f"), writable));
    EXPECT_FALSE(writable);
  }
  table.access = AccessEIO;
  writable = true;
  {
    port::ScopedSysCallOverride scope(table);
    EXPECT_FALSE(AFile::isWritable(dir.wfile("f"), writable));
    EXPECT_FALSE(writable);
  }
}

TEST(IsWritable, PathThroughRegularFileIsAFailedQuestion) {
  TempDir dir;
  WriteFile(dir.file("f"), "x");
  bool writable = true;
  EXPECT_FALSE(AFile::isWritable(dir.wfile("f/sub"), writable));
  EXPECT_FALSE(writable);
}

}  // namespace
