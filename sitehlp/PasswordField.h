// Copying a clear password into its record field without ever logging it.
#ifndef VLM_SITEHLP_PASSWORDFIELD_H
#define VLM_SITEHLP_PASSWORDFIELD_H

#include <string>

namespace sitehlp {

// The text that stands for a password's characters in a log line.
constexpr wchar_t c_maskedPassword[] = L"********";

// Copies clear into field as CopyWStr does (cut to capacity - 1 characters,
// the rest of the field zeroed). A cut is logged at detail level like
// CopyWStr's line, but with the password's text masked and the element
// named with both lengths: "String ******** is truncated to ******** in
// CopyWStr (<name>: <n> characters, <capacity - 1> kept)".
void CopyPasswordField(wchar_t* field, const std::wstring& clear, unsigned int capacity, const wchar_t* name);

}  // namespace sitehlp

#endif  // VLM_SITEHLP_PASSWORDFIELD_H
