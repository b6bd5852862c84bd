// Whole-file text I/O of the XML facade: reading with byte order mark
// detection and strict decoding, and crash-safe UTF-8 writing.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <pugixml.hpp>

#include "port/config/IConfiguration.h"
#include "port/fs/SafeWrite.h"
#include "port/fs/SysCalls.h"
#include "port/xml/AdvXMLParser.h"

namespace AdvXMLParser {

namespace {

// A failed call that left errno at 0 (a broken override) still reports an error.
int LastError() { return errno != 0 ? errno : EIO; }

[[noreturn]] void ThrowIo(int code, const char* step, const std::string& path) {
  throw ReadWriteException(code, std::string(step) + " " + path + ": " + std::strerror(code));
}

[[noreturn]] void ThrowBadText(const char* encoding, std::size_t offset) {
  throw ReadWriteException(EILSEQ, std::string("invalid ") + encoding + " text at byte " + std::to_string(offset));
}

class Descriptor {
 public:
  explicit Descriptor(int fd) : m_fd(fd) {}
  ~Descriptor() {
    const int saved = errno;
    if (m_fd >= 0) port::Sys().close(m_fd);
    errno = saved;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int release() {
    const int fd = m_fd;
    m_fd = -1;
    return fd;
  }

 private:
  int m_fd;
};

// A site list larger than the configured limit is not read: its tree alone
// would take several times its size.
void CheckSize(unsigned long long bytes) {
  const unsigned long long limit = port::MaxSiteListBytes();
  if (bytes <= limit) return;
  throw ReadWriteException(EFBIG, "larger than the limit of " + std::to_string(limit) +
                                      " bytes (VLM_MAX_SITELIST_BYTES): " + std::to_string(bytes) + " bytes or more");
}

// Opens a site list for reading without ever blocking: O_NONBLOCK keeps the
// open of a FIFO from waiting for a writer (and is no-op for the regular
// file read afterwards), and the type is checked on the descriptor itself,
// so nothing can be swapped in between. Only a regular file within the size
// limit is read; a socket cannot even be opened (ENXIO). Returns the
// descriptor; st receives its status.
int OpenForReading(const std::string& narrow, struct stat& st) {
  errno = 0;
  const int fd = port::Sys().open(narrow.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0);
  if (fd < 0) {
    const int code = LastError();
    if (code == ENXIO) throw ReadWriteException(code, "cannot read " + narrow + ": not a regular file");
    ThrowIo(code, "cannot open", narrow);
  }
  Descriptor guard(fd);
  errno = 0;
  if (port::Sys().fstat(fd, &st) != 0) ThrowIo(LastError(), "cannot stat", narrow);
  if (!S_ISREG(st.st_mode))
    throw ReadWriteException(S_ISDIR(st.st_mode) ? EISDIR : EINVAL, "cannot read " + narrow + ": not a regular file");
  CheckSize(static_cast<unsigned long long>(st.st_size));
  return guard.release();
}

static_assert(sizeof(wchar_t) == 4, "wide text is UTF-32");

// Stores 16 bytes as 16 wide characters if all of them are ASCII; false (and
// nothing stored) otherwise.
inline bool WidenAscii16(const unsigned char* p, wchar_t* d) {
#if defined(__SSE2__)
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  if (_mm_movemask_epi8(bytes) != 0) return false;
  const __m128i zero = _mm_setzero_si128();
  const __m128i lo = _mm_unpacklo_epi8(bytes, zero);
  const __m128i hi = _mm_unpackhi_epi8(bytes, zero);
  __m128i* out = reinterpret_cast<__m128i*>(d);
  _mm_storeu_si128(out, _mm_unpacklo_epi16(lo, zero));
  _mm_storeu_si128(out + 1, _mm_unpackhi_epi16(lo, zero));
  _mm_storeu_si128(out + 2, _mm_unpacklo_epi16(hi, zero));
  _mm_storeu_si128(out + 3, _mm_unpackhi_epi16(hi, zero));
  return true;
#else
  std::uint64_t halves[2];
  std::memcpy(halves, p, 16);
  if ((halves[0] | halves[1]) & 0x8080808080808080ull) return false;
  for (int k = 0; k < 16; ++k) d[k] = static_cast<wchar_t>(p[k]);
  return true;
#endif
}

// Strict UTF-8. base is the offset of bytes in the caller's buffer, for the
// error message.
AString DecodeUtf8(const unsigned char* p, std::size_t n, std::size_t base) {
  std::wstring out;
  out.resize(n);  // never more characters than bytes
  wchar_t* d = &out[0];
  const unsigned char* const begin = p;
  const unsigned char* const end = p + n;
  while (p < end) {
    // Site lists are nearly all ASCII: take sixteen bytes at a time while no
    // high bit is set.
    while (end - p >= 16 && WidenAscii16(p, d)) {
      d += 16;
      p += 16;
    }
    if (p == end) break;
    const unsigned c = *p;
    if (c < 0x80) {
      *d++ = static_cast<wchar_t>(c);
      ++p;
      continue;
    }
    std::ptrdiff_t len;
    std::uint32_t cp;
    std::uint32_t min;
    if (c >= 0xC2 && c <= 0xDF) {
      len = 2, cp = c & 0x1F, min = 0x80;
    } else if (c >= 0xE0 && c <= 0xEF) {
      len = 3, cp = c & 0x0F, min = 0x800;
    } else if (c >= 0xF0 && c <= 0xF4) {
      len = 4, cp = c & 0x07, min = 0x10000;
    } else {
      ThrowBadText("UTF-8", base + static_cast<std::size_t>(p - begin));
    }
    if (end - p < len) ThrowBadText("UTF-8", base + static_cast<std::size_t>(p - begin));
    for (std::ptrdiff_t k = 1; k < len; ++k) {
      const unsigned cc = p[k];
      if ((cc & 0xC0) != 0x80) ThrowBadText("UTF-8", base + static_cast<std::size_t>(p - begin));
      cp = (cp << 6) | (cc & 0x3F);
    }
    // Overlong forms, surrogates and values beyond Unicode.
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
      ThrowBadText("UTF-8", base + static_cast<std::size_t>(p - begin));
    *d++ = static_cast<wchar_t>(cp);
    p += len;
  }
  out.resize(static_cast<std::size_t>(d - out.data()));
  return AString(std::move(out));
}

AString DecodeUtf16(const unsigned char* p, std::size_t n, bool bigEndian, std::size_t base) {
  const char* name = bigEndian ? "UTF-16 BE" : "UTF-16 LE";
  if (n % 2 != 0) ThrowBadText(name, base + n - 1);
  const std::size_t units = n / 2;
  auto unit = [p, bigEndian](std::size_t i) -> std::uint32_t {
    const unsigned char* u = p + 2 * i;
    return bigEndian ? (std::uint32_t{u[0]} << 8) | u[1] : (std::uint32_t{u[1]} << 8) | u[0];
  };
  std::wstring out;
  out.resize(units);
  wchar_t* d = &out[0];
  for (std::size_t i = 0; i < units; ++i) {
    const std::uint32_t u = unit(i);
    if (u < 0xD800 || u > 0xDFFF) {
      *d++ = static_cast<wchar_t>(u);
      continue;
    }
    // A high surrogate must be followed by a low one; anything else is unpaired.
    if (u >= 0xDC00 || i + 1 >= units) ThrowBadText(name, base + 2 * i);
    const std::uint32_t low = unit(i + 1);
    if (low < 0xDC00 || low > 0xDFFF) ThrowBadText(name, base + 2 * i);
    *d++ = static_cast<wchar_t>(0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
    ++i;
  }
  out.resize(static_cast<std::size_t>(d - out.data()));
  return AString(std::move(out));
}

AString DecodeUtf32(const unsigned char* p, std::size_t n, bool bigEndian, std::size_t base) {
  const char* name = bigEndian ? "UTF-32 BE" : "UTF-32 LE";
  if (n % 4 != 0) ThrowBadText(name, base + n - n % 4);
  std::wstring out;
  out.resize(n / 4);
  for (std::size_t i = 0; i < n / 4; ++i) {
    const unsigned char* u = p + 4 * i;
    const std::uint32_t cp =
        bigEndian ? (std::uint32_t{u[0]} << 24) | (std::uint32_t{u[1]} << 16) | (std::uint32_t{u[2]} << 8) | u[3]
                  : (std::uint32_t{u[3]} << 24) | (std::uint32_t{u[2]} << 16) | (std::uint32_t{u[1]} << 8) | u[0];
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) ThrowBadText(name, base + 4 * i);
    out[i] = static_cast<wchar_t>(cp);
  }
  return AString(std::move(out));
}

bool StartsWith(const unsigned char* bytes, std::size_t size, const char* bom, std::size_t bomSize) {
  return size >= bomSize && std::memcmp(bytes, bom, bomSize) == 0;
}

// True when all 64 bytes are ASCII: one test per cache line of text.
inline bool Ascii64(const unsigned char* p) {
#if defined(__SSE2__)
  const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16));
  const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 32));
  const __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 48));
  return _mm_movemask_epi8(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d))) == 0;
#else
  std::uint64_t words[8];
  std::memcpy(words, p, 64);
  std::uint64_t any = 0;
  for (std::uint64_t w : words) any |= w;
  return (any & 0x8080808080808080ull) == 0;
#endif
}

// Checks UTF-8 by exactly DecodeUtf8's rules (same faults, same offsets in
// the message) without decoding it.
void CheckUtf8(const unsigned char* p, std::size_t n, std::size_t base) {
  const unsigned char* const begin = p;
  const unsigned char* const end = p + n;
  while (p < end) {
    while (end - p >= 64 && Ascii64(p)) p += 64;
    if (p == end) break;
    const unsigned c = *p;
    if (c < 0x80) {
      ++p;
      continue;
    }
    std::ptrdiff_t len;
    std::uint32_t cp;
    std::uint32_t min;
    if (c >= 0xC2 && c <= 0xDF) {
      len = 2, cp = c & 0x1F, min = 0x80;
    } else if (c >= 0xE0 && c <= 0xEF) {
      len = 3, cp = c & 0x0F, min = 0x800;
    } else if (c >= 0xF0 && c <= 0xF4) {
      len = 4, cp = c & 0x07, min = 0x10000;
    } else {
      ThrowBadText("UTF-8", base + static_cast<std::size_t>(p - begin));
    }
    if (end - p < len) ThrowBadText("UTF-8", base + static_cast<std::size_t>(p - begin));
    for (std::ptrdiff_t k = 1; k < len; ++k) {
      const unsigned cc = p[k];
      if ((cc & 0xC0) != 0x80) ThrowBadText("UTF-8", base + static_cast<std::size_t>(p - begin));
      cp = (cp << 6) | (cc & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
      ThrowBadText("UTF-8", base + static_cast<std::size_t>(p - begin));
    p += len;
  }
}

// A buffer from pugixml's allocator, so that the parser can take it over.
class ParserBuffer {
 public:
  ParserBuffer() = default;
  ~ParserBuffer() {
    if (m_p) pugi::get_memory_deallocation_function()(m_p);
  }
  ParserBuffer(const ParserBuffer&) = delete;
  ParserBuffer& operator=(const ParserBuffer&) = delete;
  // Grows to capacity bytes, keeping the first used ones; false when memory
  // runs out.
  bool reserve(std::size_t capacity, std::size_t used) {
    char* p = static_cast<char*>(pugi::get_memory_allocation_function()(capacity));
    if (!p) return false;
    if (m_p) {
      std::memcpy(p, m_p, used);
      pugi::get_memory_deallocation_function()(m_p);
    }
    m_p = p;
    m_capacity = capacity;
    return true;
  }
  char* data() const { return m_p; }
  std::size_t capacity() const { return m_capacity; }
  char* release() {
    char* p = m_p;
    m_p = nullptr;
    m_capacity = 0;
    return p;
  }

 private:
  char* m_p = nullptr;
  std::size_t m_capacity = 0;
};

}  // namespace

void ConvertBufferToUnicode(const unsigned char* bytes, std::size_t size, AString& text, UTF_ENCODINGS& encoding) {
  if (!bytes) size = 0;
  UTF_ENCODINGS used = encoding;
  std::size_t skip = 0;
  // The UTF-32 LE mark begins with the UTF-16 LE one, so it is tested first.
  if (StartsWith(bytes, size, "\xEF\xBB\xBF", 3)) {
    used = UTF_8, skip = 3;
  } else if (StartsWith(bytes, size, "\xFF\xFE\x00\x00", 4)) {
    used = UTF_32_LE, skip = 4;
  } else if (StartsWith(bytes, size, "\x00\x00\xFE\xFF", 4)) {
    used = UTF_32_BE, skip = 4;
  } else if (StartsWith(bytes, size, "\xFF\xFE", 2)) {
    used = UTF_16_LE, skip = 2;
  } else if (StartsWith(bytes, size, "\xFE\xFF", 2)) {
    used = UTF_16_BE, skip = 2;
  }
  if (used != UTF_16_LE && used != UTF_16_BE && used != UTF_32_LE && used != UTF_32_BE) used = UTF_8;

  const unsigned char* p = bytes + skip;
  const std::size_t n = size - skip;
  // Decoded aside, so that text is untouched when the bytes are refused.
  AString decoded;
  try {
    switch (used) {
      case UTF_16_LE: decoded = DecodeUtf16(p, n, false, skip); break;
      case UTF_16_BE: decoded = DecodeUtf16(p, n, true, skip); break;
      case UTF_32_LE: decoded = DecodeUtf32(p, n, false, skip); break;
      case UTF_32_BE: decoded = DecodeUtf32(p, n, true, skip); break;
      default: decoded = DecodeUtf8(p, n, skip); break;
    }
  } catch (const std::bad_alloc&) {
    throw ReadWriteException(ENOMEM, "out of memory decoding text");
  }
  text.swap(decoded);
  encoding = used;
}

// Fills a Utf8Text (a friend of it).
class Utf8TextMaker {
 public:
  static void Set(Utf8Text& text, char* p, std::size_t size, UTF_ENCODINGS encoding, bool marked) {
    text = Utf8Text();
    text.m_p = p;
    text.m_size = size;
    text.m_encoding = encoding;
    text.m_bMarked = marked;
  }
  static void SetOrigin(Utf8Text& text, const std::string& origin) { text.m_origin = origin; }
};

namespace {

// Makes text of used bytes read into bytes (which has room for one byte
// more): a UTF-8 file (the usual case) is checked and kept as it is, its
// byte order mark dropped; UTF-16 and UTF-32 are decoded strictly as
// ConvertBufferToUnicode does, then encoded for the parser. Widening UTF-8
// only to narrow it again for the parser would cost two passes and a buffer
// four times the file's size.
void TakeUtf8(ParserBuffer& bytes, std::size_t used, Utf8Text& text) {
  const unsigned char* raw = reinterpret_cast<const unsigned char*>(bytes.data());
  const bool utf8Mark = StartsWith(raw, used, "\xEF\xBB\xBF", 3);
  const bool otherMark = !utf8Mark && (StartsWith(raw, used, "\xFF\xFE", 2) || StartsWith(raw, used, "\xFE\xFF", 2) ||
                                       StartsWith(raw, used, "\x00\x00\xFE\xFF", 4));
  if (otherMark) {
    AString wide;
    UTF_ENCODINGS found = UTF_8;
    ConvertBufferToUnicode(raw, used, wide, found);
    std::string utf8;
    try {
      utf8 = platform_detail::WideToUtf8(wide.data(), wide.size());
    } catch (const std::bad_alloc&) {
      throw ReadWriteException(ENOMEM, "out of memory decoding text");
    }
    ParserBuffer converted;
    if (!converted.reserve(utf8.size() + 1, 0)) throw ReadWriteException(ENOMEM, "out of memory decoding text");
    std::memcpy(converted.data(), utf8.data(), utf8.size());
    converted.data()[utf8.size()] = '\0';
    Utf8TextMaker::Set(text, converted.release(), utf8.size(), found, true);
    return;
  }
  const std::size_t skip = utf8Mark ? 3 : 0;
  CheckUtf8(raw + skip, used - skip, skip);
  if (skip) std::memmove(bytes.data(), bytes.data() + skip, used - skip);
  used -= skip;
  bytes.data()[used] = '\0';
  Utf8TextMaker::Set(text, bytes.release(), used, UTF_8, utf8Mark);
}

}  // namespace

void ReadBufferFromFile(const AString& path, AString& text, UTF_ENCODINGS& encoding, FilterFunction filter) {
  const ACharString narrow(path);
  struct stat st {};
  const int fd = OpenForReading(narrow, st);
  Descriptor guard(fd);

  // Sized from fstat plus one byte, so the end is normally seen without a
  // second allocation; a file that grows meanwhile is still read whole.
  std::vector<unsigned char> bytes;
  std::size_t used = 0;
  for (;;) {
    try {
      if (bytes.empty())
        bytes.resize(static_cast<std::size_t>(st.st_size) + 1);
      else if (used == bytes.size())
        bytes.resize(bytes.size() * 2);
    } catch (const std::bad_alloc&) {
      ThrowIo(ENOMEM, "cannot read", narrow);
    } catch (const std::length_error&) {
      ThrowIo(EFBIG, "cannot read", narrow);
    }
    const ssize_t got = port::Sys().read(fd, bytes.data() + used, bytes.size() - used);
    if (got < 0) {
      if (errno == EINTR) continue;
      ThrowIo(LastError(), "cannot read", narrow);
    }
    if (got == 0) break;
    used += static_cast<std::size_t>(got);
    CheckSize(used);  // a file that grows while it is read
  }

  UTF_ENCODINGS found = UTF_8;
  AString decoded;
  ConvertBufferToUnicode(bytes.data(), used, decoded, found);
  if (filter) filter(decoded);
  text.swap(decoded);
  encoding = found;
}

// The reading of ReadBufferFromFile, into a buffer the parser takes over.
void ReadUtf8FromFile(const AString& path, Utf8Text& text) {
  const ACharString narrow(path);
  struct stat st {};
  const int fd = OpenForReading(narrow, st);
  Descriptor guard(fd);

  // One byte more than the size, so the end is normally seen without a
  // second allocation; it also holds the terminating NUL the parser wants.
  ParserBuffer bytes;
  std::size_t used = 0;
  for (;;) {
    if (bytes.capacity() == 0 || used == bytes.capacity()) {
      const std::size_t want = bytes.capacity() == 0 ? static_cast<std::size_t>(st.st_size) + 1 : bytes.capacity() * 2;
      if (want <= used || !bytes.reserve(want, used)) ThrowIo(ENOMEM, "cannot read", narrow);
    }
    const ssize_t got = port::Sys().read(fd, bytes.data() + used, bytes.capacity() - used);
    if (got < 0) {
      if (errno == EINTR) continue;
      ThrowIo(LastError(), "cannot read", narrow);
    }
    if (got == 0) break;
    used += static_cast<std::size_t>(got);
    CheckSize(used);  // a file that grows while it is read
  }
  if (used == bytes.capacity() && !bytes.reserve(used + 1, used)) ThrowIo(ENOMEM, "cannot read", narrow);

  TakeUtf8(bytes, used, text);
  Utf8TextMaker::SetOrigin(text, narrow);
}

void ConvertBufferToUtf8(const unsigned char* bytes, std::size_t size, Utf8Text& text) {
  if (!bytes) size = 0;
  ParserBuffer copy;
  if (!copy.reserve(size + 1, 0)) throw ReadWriteException(ENOMEM, "out of memory decoding text");
  if (size) std::memcpy(copy.data(), bytes, size);
  TakeUtf8(copy, size, text);
}

void WriteBufferToFile(const AString& path, const AString& text, UTF_ENCODINGS encoding,
                       const ConversionCallbacks* /*callbacks*/) {
  if (encoding != UTF_8)
    throw ReadWriteException(EINVAL, "only UTF-8 is written, not encoding " + std::to_string(encoding));
  std::string utf8;
  try {
    utf8 = platform_detail::WideToUtf8(text.data(), text.size());
  } catch (const std::bad_alloc&) {
    throw ReadWriteException(ENOMEM, "out of memory encoding text");
  }
  WriteUtf8BufferToFile(path, utf8, 0644);
}

void WriteUtf8BufferToFile(const AString& path, const std::string& utf8, mode_t newFileMode) {
  const ACharString narrow(path);
  const int rc = port::ReplaceFileContents(narrow, utf8.data(), utf8.size(), newFileMode);
  if (rc != 0) ThrowIo(rc, "cannot write", narrow);
}

}  // namespace AdvXMLParser
