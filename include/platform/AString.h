// AString: the platform's wide string (UTF-32 wchar_t on Linux), and
// ACharString: its narrow UTF-8 form for file names, numbers and crypto input.
//
// These types appear in the exported API of libvlmCmnLib; their conversions
// are the library's own (exported, so that callers of the API can use the
// types too). Thread safety: like std::wstring.
#ifndef VLM_PLATFORM_ASTRING_H
#define VLM_PLATFORM_ASTRING_H

#include <cstddef>
#include <cwchar>
#include <string>

#include "sitehlp/export.h"

namespace sitehlp {

// Decodes UTF-8; malformed sequences become U+FFFD so that no input is lost
// silently into a shorter string.
VLM_EXPORT std::wstring Utf8ToWide(const char* s, std::size_t n);
// Encodes UTF-8; a value that is no Unicode scalar value becomes U+FFFD.
VLM_EXPORT std::string WideToUtf8(const wchar_t* s, std::size_t n);
// Appends the UTF-8 of one character, as WideToUtf8 encodes it.
VLM_EXPORT void AppendUtf8(std::string& out, unsigned long cp);

}  // namespace sitehlp

// The names these conversions had when they were inline here.
namespace platform_detail {
using sitehlp::AppendUtf8;
using sitehlp::Utf8ToWide;
using sitehlp::WideToUtf8;
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
      : std::wstring(s ? sitehlp::Utf8ToWide(s, std::char_traits<char>::length(s)) : std::wstring()) {}
  explicit AString(const std::string& s) : std::wstring(sitehlp::Utf8ToWide(s.data(), s.size())) {}
};

// The UTF-8 form of a wide string, for the narrow system calls.
class ACharString : public std::string {
 public:
  explicit ACharString(const std::wstring& s) : std::string(sitehlp::WideToUtf8(s.data(), s.size())) {}
  explicit ACharString(const wchar_t* s)
      : std::string(s ? sitehlp::WideToUtf8(s, std::wcslen(s)) : std::string()) {}
};

#endif  // VLM_PLATFORM_ASTRING_H
