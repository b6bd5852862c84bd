// String helpers of the platform: AStringList and wcsicmp.
#ifndef VLM_PORT_STRINGS_STRINGS_H
#define VLM_PORT_STRINGS_STRINGS_H

#include <string>
#include <vector>

#include "platform/AString.h"

using AStringList = std::vector<AString>;

// Compares without regard to case (simple per-character towlower). <0, 0, >0.
int wcsicmp(const wchar_t* a, const wchar_t* b);

// Joins the parts with ",": the argument list of a trace scope.
std::wstring JoinWithCommas(const AStringList& parts);

#endif  // VLM_PORT_STRINGS_STRINGS_H
