#include "sitehlp/PasswordField.h"

#include <cwchar>

#include "port/log/Log.h"
#include "sitehlp/Component.h"

namespace sitehlp {

void CopyPasswordField(wchar_t* field, const std::wstring& clear, unsigned int capacity, const wchar_t* name) {
  if (!field || capacity == 0) return;
  std::wcsncpy(field, clear.c_str(), capacity);
  if (field[capacity - 1] == L'\0') return;
  field[capacity - 1] = L'\0';
  // The one line of the record utilities that does not quote its source:
  // the source is a password.
  logDetail(c_component, std::wstring(L"String ") + c_maskedPassword + L" is truncated to " + c_maskedPassword +
                             L" in CopyWStr (" + name + L": " + std::to_wstring(std::wcslen(clear.c_str())) +
                             L" characters, " + std::to_wstring(capacity - 1) + L" kept)");
}

}  // namespace sitehlp
