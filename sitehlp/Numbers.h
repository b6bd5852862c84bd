// Number parsing of attribute and element texts, with the exact rules of the
// C runtime (atoi) and of a wide string stream (unsigned extraction).
#ifndef VLM_SITEHLP_NUMBERS_H
#define VLM_SITEHLP_NUMBERS_H

#include <string>

namespace sitehlp {

// atoi of the text's narrow form.
int Atoi(const std::wstring& text);

// Extracts an unsigned decimal number as operator>> of a wide string stream
// in the classic locale does: leading blanks skipped, optional sign ("-1"
// wraps), digits to the first non-digit, overflow gives the largest value.
// Nothing but blanks leaves value untouched; text without digits sets 0.
void StreamExtractUnsigned(const wchar_t* begin, const wchar_t* end, unsigned int& value);
inline void StreamExtractUnsigned(const std::wstring& text, unsigned int& value) {
  StreamExtractUnsigned(text.data(), text.data() + text.size(), value);
}

}  // namespace sitehlp

#endif  // VLM_SITEHLP_NUMBERS_H
