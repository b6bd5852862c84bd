// Reading a whole file: its bytes and mode, the step and errno of each
// refusal, the size limit while a file grows, buffers of another allocator,
// and the descriptor owner's release and close.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "port/fs/SysCalls.h"
#include "port/fs/WholeFile.h"
#include "support/TestSupport.h"

namespace {

using port::ByteBuffer;
using port::ReadResult;
using port::ReadStep;
using port::ReadWholeFile;
using testsupport::TempDir;
using testsupport::WriteFile;

std::string Text(const ByteBuffer& bytes) { return std::string(bytes.data(), bytes.size()); }

TEST(WholeFile, ARegularFileIsReadWholeWithItsPermissionBits) {
  TempDir dir;
  WriteFile(dir.file("a"), std::string("one\0two", 7));
  ASSERT_EQ(0, chmod(dir.file("a").c_str(), 0640));
  ByteBuffer bytes;
  const ReadResult read = ReadWholeFile(dir.file("a"), 0, 1000, bytes);
  EXPECT_EQ(ReadStep::Done, read.step);
  EXPECT_EQ(0, read.code);
  EXPECT_EQ(0640u, read.mode);
  EXPECT_EQ(std::string("one\0two", 7), Text(bytes));
  // Room for one byte more than the file: the end was seen in one buffer.
  EXPECT_EQ(8u, bytes.capacity());
}

TEST(WholeFile, EachRefusalNamesItsStepAndErrno) {
  TempDir dir;
  ByteBuffer bytes;
  ReadResult read = ReadWholeFile(dir.file("missing"), 0, 1000, bytes);
  EXPECT_EQ(ReadStep::Open, read.step);
  EXPECT_EQ(ENOENT, read.code);
  read = ReadWholeFile(dir.path(), 0, 1000, bytes);
  EXPECT_EQ(ReadStep::NotRegular, read.step);
  EXPECT_EQ(EISDIR, read.code);
  ASSERT_EQ(0, mkfifo(dir.file("fifo").c_str(), 0600));
  read = ReadWholeFile(dir.file("fifo"), 0, 1000, bytes);  // no writer: a blocking open would wait
  EXPECT_EQ(ReadStep::NotRegular, read.step);
  EXPECT_EQ(EINVAL, read.code);
  ASSERT_EQ(0, symlink("missing", dir.file("link").c_str()));
  read = ReadWholeFile(dir.file("link"), O_NOFOLLOW, 1000, bytes);
  EXPECT_EQ(ReadStep::Open, read.step);
  EXPECT_EQ(ELOOP, read.code);
  WriteFile(dir.file("big"), std::string(11, 'b'));
  read = ReadWholeFile(dir.file("big"), 0, 10, bytes);
  EXPECT_EQ(ReadStep::TooLarge, read.step);
  EXPECT_EQ(EFBIG, read.code);
  EXPECT_EQ(11u, read.bytes);
  EXPECT_EQ(0u, bytes.size());
}

std::size_t g_delivered = 0;
ssize_t EndlessRead(int, void* buf, size_t n) {
  std::memset(buf, 'g', n);
  g_delivered += n;
  return static_cast<ssize_t>(n);
}

TEST(WholeFile, AFileGrowingPastTheLimitIsRefusedAfterLimitPlusOneBytes) {
  TempDir dir;
  WriteFile(dir.file("grows"), "<a/>");
  port::SysCalls table = port::RealSysCalls();
  table.read = EndlessRead;
  port::ScopedSysCallOverride scope(table);
  g_delivered = 0;
  ByteBuffer bytes;
  const ReadResult read = ReadWholeFile(dir.file("grows"), 0, 100, bytes);
  EXPECT_EQ(ReadStep::TooLarge, read.step);
  EXPECT_EQ(EFBIG, read.code);
  EXPECT_EQ(101u, read.bytes);
  EXPECT_EQ(101u, g_delivered);
  EXPECT_EQ(std::string(101, 'g'), Text(bytes));
}

int g_failWith = 0;
ssize_t FailingRead(int, void*, size_t) {
  errno = g_failWith;
  return -1;
}

TEST(WholeFile, AFailedReadGivesItsErrnoAndOneThatLeftNoneGivesEio) {
  TempDir dir;
  WriteFile(dir.file("a"), "abc");
  port::SysCalls table = port::RealSysCalls();
  table.read = FailingRead;
  port::ScopedSysCallOverride scope(table);
  ByteBuffer bytes;
  g_failWith = ENOSPC;
  ReadResult read = ReadWholeFile(dir.file("a"), 0, 100, bytes);
  EXPECT_EQ(ReadStep::Read, read.step);
  EXPECT_EQ(ENOSPC, read.code);
  g_failWith = 0;
  read = ReadWholeFile(dir.file("a"), 0, 100, bytes);
  EXPECT_EQ(ReadStep::Read, read.step);
  EXPECT_EQ(EIO, read.code);
}

int g_allocations = 0;
int g_frees = 0;
void* CountingAllocate(std::size_t n) {
  ++g_allocations;
  return std::malloc(n);
}
void CountingFree(void* p) {
  ++g_frees;
  std::free(p);
}

TEST(ByteBuffers, GrowingKeepsTheBytesAndReleaseHandsTheMemoryOver) {
  g_allocations = g_frees = 0;
  char* released = nullptr;
  {
    ByteBuffer bytes(CountingAllocate, CountingFree);
    ASSERT_TRUE(bytes.reserve(3));
    std::memcpy(bytes.data(), "xyz", 3);
    bytes.resize(3);
    ASSERT_TRUE(bytes.reserve(2));  // never shrinks
    EXPECT_EQ(3u, bytes.capacity());
    ASSERT_TRUE(bytes.reserve(6));
    EXPECT_EQ("xyz", Text(bytes));
    EXPECT_EQ(2, g_allocations);
    EXPECT_EQ(1, g_frees);
    released = bytes.release();
    EXPECT_EQ(nullptr, bytes.data());
    EXPECT_EQ(0u, bytes.size());
  }
  EXPECT_EQ(1, g_frees);
  EXPECT_EQ(0, std::memcmp(released, "xyz", 3));
  CountingFree(released);
  EXPECT_EQ(2, g_frees);
}

int g_closes = 0;
int CountingClose(int fd) {
  ++g_closes;
  return ::close(fd);
}

TEST(Descriptors, ReleaseKeepsTheDescriptorOpenAndCloseClosesItOnce) {
  port::SysCalls table = port::RealSysCalls();
  table.close = CountingClose;
  port::ScopedSysCallOverride scope(table);
  g_closes = 0;
  int kept = -1;
  {
    port::Fd fd(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    ASSERT_GE(fd.get(), 0);
    kept = fd.release();
    EXPECT_EQ(-1, fd.get());
  }
  EXPECT_EQ(0, g_closes);
  EXPECT_EQ(FD_CLOEXEC, fcntl(kept, F_GETFD));
  {
    port::Fd fd(kept);
    EXPECT_EQ(0, fd.close());
    EXPECT_EQ(1, g_closes);
  }
  EXPECT_EQ(1, g_closes);
  EXPECT_EQ(-1, fcntl(kept, F_GETFD));
  // The destructor keeps errno for the caller.
  {
    port::Fd fd(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    errno = ENOSPC;
  }
  EXPECT_EQ(ENOSPC, errno);
  EXPECT_EQ(2, g_closes);
}

}  // namespace
