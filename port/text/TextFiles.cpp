// Whole-file text I/O of the XML facade: reading with byte order mark
// detection and strict decoding, and crash-safe UTF-8 writing.
#include <errno.h>
#include <fcntl.h>

#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

#include <pugixml.hpp>

#include "port/config/IConfiguration.h"
#include "port/fs/SafeWrite.h"
#include "port/fs/WholeFile.h"
#include "port/text/Unicode.h"
#include "port/xml/AdvXMLParser.h"

namespace AdvXMLParser {

namespace {

using port::text::Encoding;

[[noreturn]] void ThrowIo(int code, const char* step, const std::string& path) {
  throw ReadWriteException(code, std::string(step) + " " + path + ": " + std::strerror(code));
}

[[noreturn]] void ThrowOutOfMemory() { throw ReadWriteException(ENOMEM, "out of memory decoding text"); }

[[noreturn]] void ThrowBadText(Encoding encoding, std::size_t offset) {
  throw ReadWriteException(EILSEQ, std::string("invalid ") + port::text::EncodingName(encoding) + " text at byte " +
                                       std::to_string(offset));
}

Encoding ToCodec(UTF_ENCODINGS encoding) {
  switch (encoding) {
    case UTF_16_LE: return Encoding::Utf16Le;
    case UTF_16_BE: return Encoding::Utf16Be;
    case UTF_32_LE: return Encoding::Utf32Le;
    case UTF_32_BE: return Encoding::Utf32Be;
    default: return Encoding::Utf8;
  }
}

UTF_ENCODINGS FromCodec(Encoding encoding) {
  switch (encoding) {
    case Encoding::Utf16Le: return UTF_16_LE;
    case Encoding::Utf16Be: return UTF_16_BE;
    case Encoding::Utf32Le: return UTF_32_LE;
    case Encoding::Utf32Be: return UTF_32_BE;
    default: return UTF_8;
  }
}

// A buffer from pugixml's allocator, so that the parser can take it over.
port::ByteBuffer ParserBuffer() {
  return port::ByteBuffer(pugi::get_memory_allocation_function(), pugi::get_memory_deallocation_function());
}

// Reads a site list whole, within the configured size limit (its tree alone
// would take several times its size), or throws what failed. Only a regular
// file is read; a socket cannot even be opened (ENXIO).
void ReadSiteListBytes(const std::string& path, port::ByteBuffer& bytes) {
  const unsigned long long limit = port::MaxSiteListBytes();
  const port::ReadResult read = port::ReadWholeFile(path, O_NOCTTY, limit, bytes);
  switch (read.step) {
    case port::ReadStep::Done: return;
    case port::ReadStep::Open:
      if (read.code != ENXIO) ThrowIo(read.code, "cannot open", path);
      [[fallthrough]];
    case port::ReadStep::NotRegular: throw ReadWriteException(read.code, "cannot read " + path + ": not a regular file");
    case port::ReadStep::Stat: ThrowIo(read.code, "cannot stat", path);
    case port::ReadStep::TooLarge:
      throw ReadWriteException(EFBIG, "larger than the limit of " + std::to_string(limit) +
                                          " bytes (VLM_MAX_SITELIST_BYTES): " + std::to_string(read.bytes) +
                                          " bytes or more");
    default: ThrowIo(read.code, "cannot read", path);
  }
}

}  // namespace

void ConvertBufferToUnicode(const unsigned char* bytes, std::size_t size, AString& text, UTF_ENCODINGS& encoding) {
  if (!bytes) size = 0;
  std::size_t skip = 0;
  const Encoding used = port::text::DetectByteOrderMark(bytes, size, ToCodec(encoding), skip);
  // Decoded aside, so that text is untouched when the bytes are refused.
  std::wstring decoded;
  std::size_t bad = 0;
  try {
    if (!port::text::Decode(used, bytes + skip, size - skip, port::text::Errors::Refuse, decoded, bad))
      ThrowBadText(used, skip + bad);
  } catch (const std::bad_alloc&) {
    ThrowOutOfMemory();
  }
  text.swap(decoded);
  encoding = FromCodec(used);
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

// Makes text of the bytes read (the buffer has room for one byte more): a UTF-8 file (the usual case) is checked and
// kept as it is, its byte order mark dropped; UTF-16 and UTF-32 are decoded
// strictly as ConvertBufferToUnicode does, then encoded for the parser.
// Widening UTF-8 only to narrow it again for the parser would cost two passes
// and a buffer four times the file's size.
void TakeUtf8(port::ByteBuffer& bytes, Utf8Text& text) {
  const unsigned char* raw = reinterpret_cast<const unsigned char*>(bytes.data());
  std::size_t used = bytes.size();
  std::size_t skip = 0;
  const Encoding found = port::text::DetectByteOrderMark(raw, used, Encoding::Utf8, skip);
  if (found != Encoding::Utf8) {
    AString wide;
    UTF_ENCODINGS encoding = UTF_8;
    ConvertBufferToUnicode(raw, used, wide, encoding);
    port::ByteBuffer converted = ParserBuffer();
    try {
      const std::string utf8 = port::text::EncodeUtf8(wide.data(), wide.size());
      if (!converted.reserve(utf8.size() + 1)) ThrowOutOfMemory();
      std::memcpy(converted.data(), utf8.c_str(), utf8.size() + 1);
      converted.resize(utf8.size());
    } catch (const std::bad_alloc&) {
      ThrowOutOfMemory();
    }
    const std::size_t size = converted.size();
    Utf8TextMaker::Set(text, converted.release(), size, encoding, true);
    return;
  }
  const std::size_t bad = skip + port::text::FindMalformedUtf8(raw + skip, used - skip);
  if (bad != used) ThrowBadText(Encoding::Utf8, bad);
  if (skip) std::memmove(bytes.data(), bytes.data() + skip, used - skip);
  used -= skip;
  bytes.data()[used] = '\0';
  Utf8TextMaker::Set(text, bytes.release(), used, UTF_8, skip != 0);
}

}  // namespace

void ReadBufferFromFile(const AString& path, AString& text, UTF_ENCODINGS& encoding, FilterFunction filter) {
  const ACharString narrow(path);
  port::ByteBuffer bytes;
  ReadSiteListBytes(narrow, bytes);
  UTF_ENCODINGS found = UTF_8;
  AString decoded;
  ConvertBufferToUnicode(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), decoded, found);
  if (filter) filter(decoded);
  text.swap(decoded);
  encoding = found;
}

// The reading of ReadBufferFromFile, into a buffer the parser takes over.
void ReadUtf8FromFile(const AString& path, Utf8Text& text) {
  const ACharString narrow(path);
  port::ByteBuffer bytes = ParserBuffer();
  ReadSiteListBytes(narrow, bytes);
  // Room for the terminating NUL the parser wants.
  if (bytes.size() == bytes.capacity() && !bytes.reserve(bytes.size() + 1)) ThrowIo(ENOMEM, "cannot read", narrow);
  TakeUtf8(bytes, text);
  Utf8TextMaker::SetOrigin(text, narrow);
}

void ConvertBufferToUtf8(const unsigned char* bytes, std::size_t size, Utf8Text& text) {
  if (!bytes) size = 0;
  port::ByteBuffer copy = ParserBuffer();
  if (!copy.reserve(size + 1)) ThrowOutOfMemory();
  if (size) std::memcpy(copy.data(), bytes, size);
  copy.resize(size);
  TakeUtf8(copy, text);
}

void WriteBufferToFile(const AString& path, const AString& text, UTF_ENCODINGS encoding,
                       const ConversionCallbacks* /*callbacks*/) {
  if (encoding != UTF_8)
    throw ReadWriteException(EINVAL, "only UTF-8 is written, not encoding " + std::to_string(encoding));
  std::string utf8;
  try {
    utf8 = port::text::EncodeUtf8(text.data(), text.size());
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
