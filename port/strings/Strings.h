// String helpers of the platform: AStringList, wcsicmp and an ASCII
// case-insensitive comparison of UTF-8 names.
#ifndef VLM_PORT_STRINGS_STRINGS_H
#define VLM_PORT_STRINGS_STRINGS_H

#include <string>
#include <vector>

#include "platform/AString.h"

using AStringList = std::vector<AString>;

// Compares without regard to case (simple per-character towlower). <0, 0, >0.
int wcsicmp(const wchar_t* a, const wchar_t* b);

// Whether two narrow strings are equal when ASCII letters are compared
// without regard to case (other bytes must be equal): names such as those
// of encodings.
bool EqualsIgnoringAsciiCase(const char* a, const char* b);

// Joins the parts with ",": the argument list of a trace scope.
std::wstring JoinWithCommas(const AStringList& parts);

#endif  // VLM_PORT_STRINGS_STRINGS_H
