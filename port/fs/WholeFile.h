// Reading a whole file: a descriptor opened without ever blocking, checked to
// be a regular file within a size limit, and read to its end into a buffer
// that grows. The one read loop of the port layer is ReadFully.
#ifndef VLM_PORT_FS_WHOLEFILE_H
#define VLM_PORT_FS_WHOLEFILE_H

#include <sys/stat.h>

#include <cstddef>
#include <string>

namespace port {

// Bytes in memory of one allocator: malloc's, or the XML parser's for a
// buffer it takes over. Not copyable.
class ByteBuffer {
 public:
  using Allocate = void* (*)(std::size_t);
  using Deallocate = void (*)(void*);
  ByteBuffer();
  ByteBuffer(Allocate allocate, Deallocate deallocate);
  ~ByteBuffer();
  ByteBuffer(const ByteBuffer&) = delete;
  ByteBuffer& operator=(const ByteBuffer&) = delete;
  // Grows to capacity bytes, keeping the first size() ones; false when
  // memory runs out (nothing changed then).
  bool reserve(std::size_t capacity);
  char* data() const { return m_p; }
  std::size_t size() const { return m_size; }
  std::size_t capacity() const { return m_capacity; }
  // Within the capacity.
  void resize(std::size_t size) { m_size = size; }
  // Gives the memory up; the caller frees it with the deallocation function.
  char* release();

 private:
  Allocate m_allocate;
  Deallocate m_deallocate;
  char* m_p = nullptr;
  std::size_t m_size = 0;
  std::size_t m_capacity = 0;
};

// Reads into buffer until size bytes are read or the file ends, retrying an
// interrupted read: 0 with got set, or the errno of the failed read.
int ReadFully(int fd, void* buffer, std::size_t size, std::size_t& got);

// Where reading a whole file stopped.
enum class ReadStep { Done, Open, Stat, NotRegular, TooLarge, Memory, Read };

struct ReadResult {
  ReadStep step = ReadStep::Done;
  int code = 0;                // errno: EISDIR or EINVAL for NotRegular, EFBIG for TooLarge
  unsigned long long bytes = 0;  // TooLarge: the size seen, at least limit + 1
  mode_t mode = 0;             // the file's permission bits
};

// Reads the whole regular file path (opened with O_RDONLY | O_NONBLOCK |
// O_CLOEXEC and extraFlags) into bytes, whose size becomes the file's.
// O_NONBLOCK keeps the open of a FIFO from waiting for a writer, and the type
// is checked on the descriptor itself, so nothing can be swapped in between.
// A file larger than limit bytes, when opened or while it grows, is refused
// without reading more than limit + 1 bytes. The buffer starts at the size
// fstat tells plus one, so that the end is normally seen without a second
// allocation. bytes keeps what was read when a step fails.
ReadResult ReadWholeFile(const std::string& path, int extraFlags, unsigned long long limit, ByteBuffer& bytes);

}  // namespace port

#endif  // VLM_PORT_FS_WHOLEFILE_H
