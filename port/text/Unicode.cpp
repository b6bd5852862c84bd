#include "port/text/Unicode.h"

#include <algorithm>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace port {
namespace text {

namespace {

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

// Stores 16 wide characters as 16 bytes if all of them are ASCII; false (and
// d's bytes undefined) otherwise.
inline bool NarrowAscii16(const wchar_t* s, char* d) {
#if defined(__SSE2__)
  const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
  const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 4));
  const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 8));
  const __m128i e = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 12));
  const __m128i high = _mm_and_si128(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, e)), _mm_set1_epi32(~0x7F));
  if (_mm_movemask_epi8(_mm_cmpeq_epi8(high, _mm_setzero_si128())) != 0xFFFF) return false;
  // All values are below 0x80, so the saturating packs just narrow.
  const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, e));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d), bytes);
  return true;
#else
  // Loaded into a local first, so that the compiler need not fear the char
  // stores alias the text and can vectorize both loops.
  std::uint32_t block[16];
  std::uint32_t any = 0;
  for (int k = 0; k < 16; ++k) {
    block[k] = static_cast<std::uint32_t>(s[k]);
    any |= block[k];
  }
  if (any >= 0x80) return false;
  for (int k = 0; k < 16; ++k) d[k] = static_cast<char>(block[k]);
  return true;
#endif
}

// Decodes UTF-8 into d, which has room for size characters (never more
// characters than bytes); returns the end, or null in Refuse mode at the
// first malformed sequence (bad set). Site lists are nearly all ASCII: it
// takes sixteen bytes at a time while no high bit is set.
wchar_t* DecodeUtf8To(const unsigned char* p, std::size_t size, wchar_t* d, Errors errors, std::size_t& bad) {
  const unsigned char* const begin = p;
  const unsigned char* const end = p + size;
  while (p < end) {
    while (end - p >= 16 && WidenAscii16(p, d)) {
      d += 16;
      p += 16;
    }
    if (p == end) break;
    if (*p < 0x80) {
      *d++ = static_cast<wchar_t>(*p++);
      continue;
    }
    std::uint32_t cp = 0;
    const int len = DecodeUtf8Sequence(p, static_cast<std::size_t>(end - p), cp);
    if (len > 0) {
      *d++ = static_cast<wchar_t>(cp);
      p += len;
      continue;
    }
    if (errors == Errors::Refuse) {
      bad = static_cast<std::size_t>(p - begin);
      return nullptr;
    }
    *d++ = kReplacement;
    ++p;
  }
  return d;
}

inline std::uint32_t Unit16(const unsigned char* u, bool bigEndian) {
  return bigEndian ? (std::uint32_t{u[0]} << 8) | u[1] : (std::uint32_t{u[1]} << 8) | u[0];
}

inline std::uint32_t Unit32(const unsigned char* u, bool bigEndian) {
  return bigEndian ? (std::uint32_t{u[0]} << 24) | (std::uint32_t{u[1]} << 16) | (std::uint32_t{u[2]} << 8) | u[3]
                   : (std::uint32_t{u[3]} << 24) | (std::uint32_t{u[2]} << 16) | (std::uint32_t{u[1]} << 8) | u[0];
}

// Strict mode names a text of odd size by its last byte before any fault
// within it.
bool DecodeUtf16(const unsigned char* p, std::size_t size, bool bigEndian, Errors errors, std::wstring& text,
                 std::size_t& bad) {
  if (size % 2 != 0 && errors == Errors::Refuse) {
    bad = size - 1;
    return false;
  }
  const std::size_t units = size / 2;
  text.resize(units + size % 2);
  wchar_t* d = &text[0];
  for (std::size_t i = 0; i < units; ++i) {
    const std::uint32_t u = Unit16(p + 2 * i, bigEndian);
    if (u < 0xD800 || u > 0xDFFF) {
      *d++ = static_cast<wchar_t>(u);
      continue;
    }
    // A high surrogate must be followed by a low one; anything else is unpaired.
    const std::uint32_t low = u < 0xDC00 && i + 1 < units ? Unit16(p + 2 * i + 2, bigEndian) : 0;
    if (low >= 0xDC00 && low <= 0xDFFF) {
      *d++ = static_cast<wchar_t>(0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
      ++i;
    } else if (errors == Errors::Refuse) {
      bad = 2 * i;
      return false;
    } else {
      *d++ = kReplacement;
    }
  }
  if (size % 2 != 0) *d++ = kReplacement;
  text.resize(static_cast<std::size_t>(d - text.data()));
  return true;
}

bool DecodeUtf32(const unsigned char* p, std::size_t size, bool bigEndian, Errors errors, std::wstring& text,
                 std::size_t& bad) {
  const std::size_t rest = size % 4;
  if (rest != 0 && errors == Errors::Refuse) {
    bad = size - rest;
    return false;
  }
  text.resize(size / 4 + (rest != 0 ? 1 : 0));
  for (std::size_t i = 0; i < size / 4; ++i) {
    const std::uint32_t cp = Unit32(p + 4 * i, bigEndian);
    if (IsScalar(cp)) {
      text[i] = static_cast<wchar_t>(cp);
    } else if (errors == Errors::Refuse) {
      bad = 4 * i;
      return false;
    } else {
      text[i] = kReplacement;
    }
  }
  if (rest != 0) text.back() = kReplacement;
  return true;
}

bool StartsWith(const unsigned char* bytes, std::size_t size, const char* mark, std::size_t markSize) {
  return size >= markSize && std::memcmp(bytes, mark, markSize) == 0;
}

}  // namespace

const char* EncodingName(Encoding encoding) {
  switch (encoding) {
    case Encoding::Utf16Le: return "UTF-16 LE";
    case Encoding::Utf16Be: return "UTF-16 BE";
    case Encoding::Utf32Le: return "UTF-32 LE";
    case Encoding::Utf32Be: return "UTF-32 BE";
    default: return "UTF-8";
  }
}

Encoding DetectByteOrderMark(const unsigned char* bytes, std::size_t size, Encoding fallback, std::size_t& markSize) {
  static const struct {
    const char* mark;
    std::size_t size;
    Encoding encoding;
  } kMarks[] = {
      {"\xEF\xBB\xBF", 3, Encoding::Utf8},        {"\xFF\xFE\x00\x00", 4, Encoding::Utf32Le},
      {"\x00\x00\xFE\xFF", 4, Encoding::Utf32Be}, {"\xFF\xFE", 2, Encoding::Utf16Le},
      {"\xFE\xFF", 2, Encoding::Utf16Be},
  };
  for (const auto& m : kMarks) {
    if (bytes && StartsWith(bytes, size, m.mark, m.size)) {
      markSize = m.size;
      return m.encoding;
    }
  }
  markSize = 0;
  return fallback;
}

bool Decode(Encoding encoding, const unsigned char* bytes, std::size_t size, Errors errors, std::wstring& text,
            std::size_t& bad) {
  switch (encoding) {
    case Encoding::Utf16Le: return DecodeUtf16(bytes, size, false, errors, text, bad);
    case Encoding::Utf16Be: return DecodeUtf16(bytes, size, true, errors, text, bad);
    case Encoding::Utf32Le: return DecodeUtf32(bytes, size, false, errors, text, bad);
    case Encoding::Utf32Be: return DecodeUtf32(bytes, size, true, errors, text, bad);
    default: break;
  }
  text.resize(size);
  wchar_t* end = DecodeUtf8To(bytes, size, &text[0], errors, bad);
  if (!end) return false;
  text.resize(static_cast<std::size_t>(end - text.data()));
  return true;
}

// Most values are ASCII: those are measured and widened by the range
// constructor, which neither zero-fills nor grows.
std::wstring DecodeUtf8(const char* utf8, std::size_t size) {
  if (!utf8) return std::wstring();
  const unsigned char* const begin = reinterpret_cast<const unsigned char*>(utf8);
  const unsigned char* const end = begin + size;
  const unsigned char* p = std::find_if(begin, end, [](unsigned char c) { return c >= 0x80; });
  if (p == end) return std::wstring(begin, end);
  std::wstring text;
  text.resize(size);
  wchar_t* d = std::copy(begin, p, &text[0]);
  std::size_t bad = 0;
  d = DecodeUtf8To(p, static_cast<std::size_t>(end - p), d, Errors::Replace, bad);
  text.resize(static_cast<std::size_t>(d - text.data()));
  return text;
}

std::size_t FindMalformedUtf8(const unsigned char* bytes, std::size_t size) {
  const unsigned char* p = bytes;
  const unsigned char* const end = bytes + size;
  while (p < end) {
    while (end - p >= 64 && Ascii64(p)) p += 64;
    if (p == end) break;
    if (*p < 0x80) {
      ++p;
      continue;
    }
    std::uint32_t cp = 0;
    const int len = DecodeUtf8Sequence(p, static_cast<std::size_t>(end - p), cp);
    if (len == 0) return static_cast<std::size_t>(p - bytes);
    p += len;
  }
  return size;
}

std::size_t EncodeUtf8Into(const wchar_t* wide, std::size_t length, char* out, std::size_t room, std::size_t& written) {
  std::size_t i = 0;
  char* d = out;
  char* const end = out + room;
  while (i < length) {
    // Markup is ASCII: copy runs of sixteen characters while they fit.
    while (length - i >= 16 && end - d >= 16 && NarrowAscii16(wide + i, d)) {
      d += 16;
      i += 16;
    }
    if (i == length) break;
    const std::uint32_t c = static_cast<std::uint32_t>(wide[i]);
    if (static_cast<std::size_t>(end - d) < Utf8Size(c)) break;
    d = PutUtf8(d, c);
    ++i;
  }
  written = static_cast<std::size_t>(d - out);
  return i;
}

std::size_t Utf8Length(const wchar_t* wide, std::size_t length) {
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < length; ++i) bytes += Utf8Size(static_cast<std::uint32_t>(wide[i]));
  return bytes;
}

// Sized for the characters first: ASCII text (the usual case) is encoded in
// one pass; other text is measured once for the rest.
std::string EncodeUtf8(const wchar_t* wide, std::size_t length) {
  std::string utf8;
  if (!wide || length == 0) return utf8;
  utf8.resize(length);
  std::size_t written = 0;
  const std::size_t done = EncodeUtf8Into(wide, length, &utf8[0], utf8.size(), written);
  if (done < length) {
    utf8.resize(written + Utf8Length(wide + done, length - done));
    std::size_t more = 0;
    EncodeUtf8Into(wide + done, length - done, &utf8[written], utf8.size() - written, more);
    written += more;
  }
  utf8.resize(written);
  return utf8;
}

bool EncodeUtf8(const wchar_t* wide, std::size_t length, Errors errors, std::string& utf8, std::size_t& bad) {
  if (errors == Errors::Refuse) {
    for (std::size_t i = 0; i < length; ++i) {
      if (!IsScalar(static_cast<std::uint32_t>(wide[i]))) {
        bad = i;
        return false;
      }
    }
  }
  utf8 = EncodeUtf8(wide, length);
  return true;
}

}  // namespace text
}  // namespace port
