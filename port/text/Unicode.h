// The library's one Unicode codec: UTF-8, UTF-16 and UTF-32 bytes to wide
// text (UTF-32 wchar_t) and wide text to UTF-8, each in one of two modes.
// Refuse: the first malformed unit refuses the whole text, with the byte
// offset (or wide index) of where it starts. Replace: each malformed unit
// becomes U+FFFD, so that no input is lost silently into a shorter text.
//
// Malformed UTF-8 is a byte that cannot begin a sequence, a sequence cut
// short, an overlong form, a surrogate or a value beyond U+10FFFF; replacing
// mode gives one U+FFFD for its first byte and goes on at the next. Malformed
// UTF-16 is an unpaired surrogate (one U+FFFD per unit) or an odd last byte;
// malformed UTF-32 a surrogate, a value beyond U+10FFFF or 1 to 3 last bytes.
//
// The step functions are inline for the parser's hot loops.
#ifndef VLM_PORT_TEXT_UNICODE_H
#define VLM_PORT_TEXT_UNICODE_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace port {
namespace text {

static_assert(sizeof(wchar_t) == 4, "wide text is UTF-32");

constexpr wchar_t kReplacement = 0xFFFD;

enum class Encoding { Utf8, Utf16Le, Utf16Be, Utf32Le, Utf32Be };
enum class Errors { Refuse, Replace };

// The name of an encoding as messages give it ("UTF-8", "UTF-16 LE", ...).
const char* EncodingName(Encoding encoding);

// The encoding a byte order mark at the start of bytes names, with the size
// of the mark; fallback and 0 when there is none. The UTF-32 LE mark begins
// with the UTF-16 LE one and wins over it.
Encoding DetectByteOrderMark(const unsigned char* bytes, std::size_t size, Encoding fallback, std::size_t& markSize);

// True for a Unicode scalar value (no surrogate, nothing beyond U+10FFFF).
constexpr bool IsScalar(std::uint32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

// A byte that continues a UTF-8 sequence: it is no character of its own.
constexpr bool IsUtf8Continuation(unsigned char c) { return (c & 0xC0) == 0x80; }

// Decodes the multi-byte UTF-8 sequence at p (its first byte is >= 0x80),
// of which available bytes may be read: its length, with its value in cp, or
// 0 when it is malformed. Continuation bytes are read one by one, so a NUL
// ends a sequence before anything beyond it is read: NUL-terminated text may
// pass 4 as available.
inline int DecodeUtf8Sequence(const unsigned char* p, std::size_t available, std::uint32_t& cp) {
  const unsigned c = *p;
  int len;
  std::uint32_t min;
  if (c >= 0xC2 && c <= 0xDF) {
    len = 2, cp = c & 0x1F, min = 0x80;
  } else if (c >= 0xE0 && c <= 0xEF) {
    len = 3, cp = c & 0x0F, min = 0x800;
  } else if (c >= 0xF0 && c <= 0xF4) {
    len = 4, cp = c & 0x07, min = 0x10000;
  } else {
    return 0;
  }
  if (available < static_cast<std::size_t>(len)) return 0;
  for (int k = 1; k < len; ++k) {
    const unsigned cc = p[k];
    if (!IsUtf8Continuation(static_cast<unsigned char>(cc))) return 0;
    cp = (cp << 6) | (cc & 0x3F);
  }
  return cp >= min && IsScalar(cp) ? len : 0;
}

// One character of replacing mode from the multi-byte sequence at p (as
// DecodeUtf8Sequence takes it): stores it and returns the position after it.
inline const unsigned char* DecodeUtf8Replacing(const unsigned char* p, std::size_t available, wchar_t& out) {
  std::uint32_t cp = 0;
  const int len = DecodeUtf8Sequence(p, available, cp);
  if (len == 0) {
    out = kReplacement;
    return p + 1;
  }
  out = static_cast<wchar_t>(cp);
  return p + len;
}

// Bytes the UTF-8 form of c takes (U+FFFD's three for no scalar value).
inline std::size_t Utf8Size(std::uint32_t c) {
  if (c < 0x80) return 1;
  if (c < 0x800) return 2;
  if (c < 0x10000 || c > 0x10FFFF) return 3;
  return 4;
}

// Writes the UTF-8 form of c at d (room for 4 bytes), U+FFFD for a value
// that is no scalar value; returns the end.
inline char* PutUtf8(char* d, std::uint32_t c) {
  if (!IsScalar(c)) c = kReplacement;
  if (c < 0x80) {
    *d++ = static_cast<char>(c);
  } else if (c < 0x800) {
    *d++ = static_cast<char>(0xC0 | (c >> 6));
    *d++ = static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    *d++ = static_cast<char>(0xE0 | (c >> 12));
    *d++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *d++ = static_cast<char>(0x80 | (c & 0x3F));
  } else {
    *d++ = static_cast<char>(0xF0 | (c >> 18));
    *d++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    *d++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *d++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  return d;
}

// Decodes size bytes in encoding into text (its old content replaced). True
// when decoded; in Refuse mode false at the first malformed unit, with bad
// its byte offset and text unspecified. Throws std::bad_alloc.
bool Decode(Encoding encoding, const unsigned char* bytes, std::size_t size, Errors errors, std::wstring& text,
            std::size_t& bad);

// UTF-8 in replacing mode.
std::wstring DecodeUtf8(const char* utf8, std::size_t size);

// The byte offset of the first malformed UTF-8 sequence (Decode's rules,
// without decoding); size when there is none.
std::size_t FindMalformedUtf8(const unsigned char* bytes, std::size_t size);

// Encodes length wide characters as UTF-8 into utf8 (its old content
// replaced). In Refuse mode false at the first value that is no scalar
// value, with bad its index; Replace writes U+FFFD for it. Throws
// std::bad_alloc.
bool EncodeUtf8(const wchar_t* wide, std::size_t length, Errors errors, std::string& utf8, std::size_t& bad);

// UTF-8 in replacing mode.
std::string EncodeUtf8(const wchar_t* wide, std::size_t length);

// Replacing mode into a buffer of room bytes: encodes characters from the
// start while they fit, sets written to the bytes they took and returns how
// many were encoded.
std::size_t EncodeUtf8Into(const wchar_t* wide, std::size_t length, char* out, std::size_t room, std::size_t& written);

// The bytes EncodeUtf8 makes of length wide characters.
std::size_t Utf8Length(const wchar_t* wide, std::size_t length);

}  // namespace text
}  // namespace port

#endif  // VLM_PORT_TEXT_UNICODE_H
