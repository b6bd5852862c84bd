// AString: the platform's wide string (UTF-32 wchar_t on Linux), and
// ACharString: its narrow UTF-8 form for file names, numbers and crypto input.
//
// Header-only on purpose: these types appear in the exported API of
// libvlmCmnLib, and callers must be able to use them without linking any
// port-layer symbol. Thread safety: like std::wstring.
#ifndef VLM_PLATFORM_ASTRING_H
#define VLM_PLATFORM_ASTRING_H

#include <cstddef>
#include <cwchar>
#include <string>

namespace platform_detail {

// Decodes UTF-8; malformed sequences become U+FFFD so that no input is lost
// silently into a shorter string.
inline std::wstring Utf8ToWide(const char* s, std::size_t n) {
  std::wstring out;
  out.reserve(n);
  std::size_t i = 0;
  while (i < n) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    if (c < 0x80) {
      out.push_back(static_cast<wchar_t>(c));
      ++i;
      continue;
    }
    int len = (c >= 0xF0 && c <= 0xF4) ? 4 : (c >= 0xE0) && c < 0xF0 ? 3 : (c >= 0xC2 && c < 0xE0) ? 2 : 0;
    if (len == 0 || i + len > n) {
      out.push_back(static_cast<wchar_t>(0xFFFD));
      ++i;
      continue;
    }
    unsigned long cp = c & (0x7F >> len);
    bool ok = true;
    for (int k = 1; k < len; ++k) {
      unsigned char cc = static_cast<unsigned char>(s[i + k]);
      if ((cc & 0xC0) != 0x80) { ok = false; break; }
      cp = (cp << 6) | (cc & 0x3F);
    }
    if (ok && ((len == 3 && (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF))) || (len == 4 && (cp < 0x10000 || cp > 0x10FFFF))))
      ok = false;
    if (!ok) {
      out.push_back(static_cast<wchar_t>(0xFFFD));
      ++i;
      continue;
    }
    out.push_back(static_cast<wchar_t>(cp));
    i += len;
  }
  return out;
}

inline void AppendUtf8(std::string& out, unsigned long cp) {
  if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = 0xFFFD;
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

inline std::string WideToUtf8(const wchar_t* s, std::size_t n) {
  std::string out;
  out.reserve(n);
  for (std::size_t i = 0; i < n; ++i) AppendUtf8(out, static_cast<unsigned long>(s[i]));
  return out;
}

}  // namespace platform_detail

// Wide string of the platform. Converts from narrow text as UTF-8.
class AString : public std::wstring {
 public:
  AString() = default;
  AString(const wchar_t* s) : std::wstring(s ? s : L"") {}
  AString(const std::wstring& s) : std::wstring(s) {}
  AString(std::wstring&& s) : std::wstring(std::move(s)) {}
  AString(const wchar_t* s, std::size_t n) : std::wstring(s, n) {}
  // Narrow text is taken as UTF-8.
  explicit AString(const char* s)
      : std::wstring(s ? platform_detail::Utf8ToWide(s, std::char_traits<char>::length(s)) : std::wstring()) {}
  explicit AString(const std::string& s) : std::wstring(platform_detail::Utf8ToWide(s.data(), s.size())) {}
};

// The UTF-8 form of a wide string, for the narrow system calls.
class ACharString : public std::string {
 public:
  explicit ACharString(const std::wstring& s) : std::string(platform_detail::WideToUtf8(s.data(), s.size())) {}
  explicit ACharString(const wchar_t* s)
      : std::string(s ? platform_detail::WideToUtf8(s, std::wcslen(s)) : std::string()) {}
};

#endif  // VLM_PLATFORM_ASTRING_H
