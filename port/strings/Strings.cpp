#include "port/strings/Strings.h"

#include <cwctype>

int wcsicmp(const wchar_t* a, const wchar_t* b) {
  for (;; ++a, ++b) {
    const wint_t ca = std::towlower(static_cast<wint_t>(*a));
    const wint_t cb = std::towlower(static_cast<wint_t>(*b));
    if (ca != cb) return ca < cb ? -1 : 1;
    if (ca == 0) return 0;
  }
}

bool EqualsIgnoringAsciiCase(const char* a, const char* b) {
  for (; *a && *b; ++a, ++b) {
    const char x = (*a >= 'a' && *a <= 'z') ? static_cast<char>(*a - 32) : *a;
    const char y = (*b >= 'a' && *b <= 'z') ? static_cast<char>(*b - 32) : *b;
    if (x != y) return false;
  }
  return *a == *b;
}

std::wstring JoinWithCommas(const AStringList& parts) {
  std::wstring out;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i) out += L",";
    out += parts[i];
  }
  return out;
}
