// The site record's utilities: freeing lists, bounded copies, number texts,
// macro delimiters and host:port splitting.
#include <cstdlib>
#include <cwchar>

#include "port/log/Log.h"
#include "sitehlp/Component.h"
#include "sitehlp/Numbers.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

namespace {

// Replaces every occurrence of from by to, scanning from the start again
// after each replacement.
void ReplaceAll(std::wstring& text, const wchar_t* from, const wchar_t* to) {
  const std::wstring f(from);
  const std::wstring t(to);
  for (std::wstring::size_type pos = text.find(f); pos != std::wstring::npos; pos = text.find(f)) {
    text.replace(pos, f.size(), t);
  }
}

}  // namespace

bool split_host_and_port(const std::wstring& text, std::wstring& host, unsigned int& port) {
  const std::wstring::size_type colon = text.rfind(L':');
  if (colon == std::wstring::npos) return false;
  host.assign(text, 0, colon);
  StreamExtractUnsigned(text.data() + colon + 1, text.data() + text.size(), port);
  return true;
}

int CSitesHelper::FreeSiteListMemory(tag_Site* pList) {
  ADetailTrace trace(c_component, L"Free memory for Sitelist");
  while (pList) {
    tag_Site* next = pList->pNext;  // read before the node holding it is freed
    std::free(pList);
    pList = next;
  }
  return c_success;
}

void CSitesHelper::CopyWStr(wchar_t* dst, const wchar_t* src, unsigned int capacity) {
  if (!dst || capacity == 0) return;
  if (!src) src = L"";
  // wcsncpy pads the rest of the field with zeros, so the field is fully
  // defined whatever it held before.
  std::wcsncpy(dst, src, capacity);
  if (dst[capacity - 1] != L'\0') {
    dst[capacity - 1] = L'\0';
    // The line quotes the whole source: built only when it is logged.
    if (port::LogEnabled(port::LogLevel::Detail))
      logDetail(c_component, L"String " + std::wstring(src) + L" is truncated to " + std::wstring(dst) + L" in CopyWStr");
  }
}

std::wstring CSitesHelper::ConvertToStr(unsigned int value) { return std::to_wstring(value); }
std::wstring CSitesHelper::ConvertToStr(int value) { return std::to_wstring(value); }
std::wstring CSitesHelper::ConvertToStr(bool value) { return value ? L"1" : L"0"; }

int CSitesHelper::FormatEnvSymbols(wchar_t* buffer, unsigned int capacity) {
  ADetailTrace trace(c_component, L"Formatting environment symbols");
  if (!buffer || buffer[0] == L'\0' || capacity == 0) return c_success;
  if (!std::wcschr(buffer, L'%')) {
    // No escape can be present; only the cut to capacity - 1 applies.
    buffer[capacity - 1] = L'\0';
    return c_success;
  }
  std::wstring text(buffer);
  ReplaceAll(text, c_agentEnvMacroStartDelimiterExpanded, c_agentEnvMacroStartDelimiter);
  ReplaceAll(text, c_agentEnvMacroEndDelimiterExpanded, c_agentEnvMacroEndDelimiter);
  std::wcsncpy(buffer, text.c_str(), capacity);
  buffer[capacity - 1] = L'\0';
  return c_success;
}

}  // namespace sitehlp
