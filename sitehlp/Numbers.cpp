#include "sitehlp/Numbers.h"

#include <cstdlib>
#include <limits>

#include "platform/AString.h"

namespace sitehlp {

namespace {
bool IsStreamSpace(wchar_t c) { return c == L' ' || (c >= L'\t' && c <= L'\r'); }
}  // namespace

int Atoi(const std::wstring& text) { return std::atoi(ACharString(text).c_str()); }

// A stream per call would cost more than reading the whole site element.
void StreamExtractUnsigned(const wchar_t* p, const wchar_t* end, unsigned int& value) {
  while (p != end && IsStreamSpace(*p)) ++p;
  if (p == end) return;
  bool negative = false;
  if (*p == L'-' || *p == L'+') {
    negative = *p == L'-';
    ++p;
  }
  unsigned long long acc = 0;
  bool digits = false;
  bool overflow = false;
  for (; p != end && *p >= L'0' && *p <= L'9'; ++p) {
    digits = true;
    if (!overflow) {
      acc = acc * 10 + static_cast<unsigned>(*p - L'0');
      if (acc > std::numeric_limits<unsigned int>::max()) overflow = true;
    }
  }
  if (!digits) {
    value = 0;
  } else if (overflow) {
    value = std::numeric_limits<unsigned int>::max();
  } else {
    const unsigned int v = static_cast<unsigned int>(acc);
    value = negative ? 0u - v : v;
  }
}

}  // namespace sitehlp
