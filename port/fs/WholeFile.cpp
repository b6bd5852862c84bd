#include "port/fs/WholeFile.h"

#include <errno.h>
#include <fcntl.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "port/fs/SysCalls.h"
#include "port/fs/Temporary.h"

namespace port {

ByteBuffer::ByteBuffer() : ByteBuffer(std::malloc, std::free) {}

ByteBuffer::ByteBuffer(Allocate allocate, Deallocate deallocate) : m_allocate(allocate), m_deallocate(deallocate) {}

ByteBuffer::~ByteBuffer() {
  if (m_p) m_deallocate(m_p);
}

bool ByteBuffer::reserve(std::size_t capacity) {
  if (capacity <= m_capacity) return true;
  char* p = static_cast<char*>(m_allocate(capacity));
  if (!p) return false;
  if (m_p) {
    std::memcpy(p, m_p, m_size);
    m_deallocate(m_p);
  }
  m_p = p;
  m_capacity = capacity;
  return true;
}

char* ByteBuffer::release() {
  char* p = m_p;
  m_p = nullptr;
  m_size = 0;
  m_capacity = 0;
  return p;
}

int ReadFully(int fd, void* buffer, std::size_t size, std::size_t& got) {
  got = 0;
  char* const p = static_cast<char*>(buffer);
  while (got < size) {
    errno = 0;
    const ssize_t n = Sys().read(fd, p + got, size - got);
    if (n < 0) {
      if (errno == EINTR) continue;
      return LastError();
    }
    if (n == 0) break;
    got += static_cast<std::size_t>(n);
  }
  return 0;
}

namespace {

ReadResult Failed(ReadStep step, int code, unsigned long long bytes = 0) {
  ReadResult result;
  result.step = step;
  result.code = code;
  result.bytes = bytes;
  return result;
}

// Reads fd to its end into bytes, at most limit + 1 of them.
ReadResult ReadToEnd(int fd, std::size_t sizeHint, unsigned long long limit, ByteBuffer& bytes) {
  const unsigned long long most = limit < ULLONG_MAX ? limit + 1 : limit;
  for (;;) {
    std::size_t used = bytes.size();
    if (used == bytes.capacity()) {
      const std::size_t want = used == 0 ? sizeHint + 1 : used * 2;
      if (want <= used || !bytes.reserve(want)) return Failed(ReadStep::Memory, ENOMEM);
    }
    const std::size_t room = static_cast<std::size_t>(std::min<unsigned long long>(bytes.capacity() - used, most - used));
    std::size_t got = 0;
    const int rc = ReadFully(fd, bytes.data() + used, room, got);
    bytes.resize(used + got);
    if (rc != 0) return Failed(ReadStep::Read, rc);
    if (bytes.size() > limit) return Failed(ReadStep::TooLarge, EFBIG, bytes.size());
    if (got < room) return ReadResult();
  }
}

}  // namespace

ReadResult ReadWholeFile(const std::string& path, int extraFlags, unsigned long long limit, ByteBuffer& bytes) {
  errno = 0;
  Fd fd(Sys().open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | extraFlags, 0));
  if (fd.get() < 0) return Failed(ReadStep::Open, LastError());
  struct stat st {};
  errno = 0;
  if (Sys().fstat(fd.get(), &st) != 0) return Failed(ReadStep::Stat, LastError());
  if (!S_ISREG(st.st_mode)) return Failed(ReadStep::NotRegular, S_ISDIR(st.st_mode) ? EISDIR : EINVAL);
  const unsigned long long size = static_cast<unsigned long long>(st.st_size);
  if (size > limit) return Failed(ReadStep::TooLarge, EFBIG, size);
  ReadResult result = ReadToEnd(fd.get(), static_cast<std::size_t>(size), limit, bytes);
  result.mode = st.st_mode & 07777;
  return result;
}

}  // namespace port
