// Log components and small shared pieces of the sitehlp units.
#ifndef VLM_SITEHLP_COMPONENT_H
#define VLM_SITEHLP_COMPONENT_H

#include <string>

#include "port/lock/InterProcessLock.h"

namespace sitehlp {

// Component of every trace and log line, except the server site list unit.
constexpr const wchar_t c_component[] = L"SiteHlp";
// Component of the server site list unit.
constexpr const wchar_t c_serverComponent[] = L"StSHlp";

// Takes lock with the no-limit wait; on failure logs "Unable to take lock
// <name>" under component and returns false.
bool LockOrLog(InterProcessLock& lock, const wchar_t* component = c_component);

// Decimal text of a result code, for the " hr=" suffix of messages.
inline std::wstring Hr(int code) { return L" hr=" + std::to_wstring(code); }

}  // namespace sitehlp

#endif  // VLM_SITEHLP_COMPONENT_H
