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

std::wstring JoinWithCommas(const AStringList& parts) {
  std::wstring out;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i) out += L",";
    out += parts[i];
  }
  return out;
}
