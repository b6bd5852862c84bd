// The conversions of platform/AString.h: the codec's replacing mode.
#include "platform/AString.h"

#include <cstdint>

#include "port/text/Unicode.h"

namespace sitehlp {

std::wstring Utf8ToWide(const char* s, std::size_t n) { return port::text::DecodeUtf8(s, n); }

std::string WideToUtf8(const wchar_t* s, std::size_t n) { return port::text::EncodeUtf8(s, n); }

void AppendUtf8(std::string& out, unsigned long cp) {
  char bytes[4];
  const std::uint32_t c = cp > 0x10FFFF ? 0xFFFD : static_cast<std::uint32_t>(cp);
  out.append(bytes, port::text::PutUtf8(bytes, c));
}

}  // namespace sitehlp
