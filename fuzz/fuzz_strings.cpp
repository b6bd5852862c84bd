// split_host_and_port and FormatEnvSymbols on any text, against their
// definitions: the split is at the last colon; the formatting turns each
// "%%lt%%" into "<" and each "%%gt%%" into ">" within the buffer's capacity.
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <string>
#include <vector>

#include "FuzzSupport.h"

namespace {

std::wstring Expanded(std::wstring text) {
  for (const auto& [from, to] : {std::pair<std::wstring, std::wstring>{L"%%lt%%", L"<"}, {L"%%gt%%", L">"}}) {
    for (std::wstring::size_type at = 0; (at = text.find(from, at)) != std::wstring::npos; at += to.size())
      text.replace(at, from.size(), to);
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::wstring text = fuzzsupport::Latin1(data + 2, size - 2);

  std::wstring host = L"untouched";
  unsigned int port = 4242;
  const bool split = sitehlp::split_host_and_port(text, host, port);
  const std::wstring::size_type colon = text.rfind(L':');
  fuzzsupport::Require(split == (colon != std::wstring::npos), "split exactly when there is a colon");
  if (split) fuzzsupport::Require(host == text.substr(0, colon), "the host is the text before the last colon");
  else fuzzsupport::Require(host == L"untouched" && port == 4242, "a failed split leaves the outputs alone");

  // A buffer of the given capacity holding the text cut to fit.
  const unsigned capacity = 1u + ((static_cast<unsigned>(data[0]) << 8 | data[1]) % 600u);
  std::vector<wchar_t> buffer(capacity, L'\0');
  const std::wstring fitted = text.substr(0, capacity - 1);
  std::wmemcpy(buffer.data(), fitted.data(), fitted.size());
  sitehlp::CSitesHelper helper(L"/nonexistent/SiteList.xml");
  fuzzsupport::RequireCode(helper.FormatEnvSymbols(buffer.data(), capacity), {0}, "FormatEnvSymbols");
  fuzzsupport::Require(std::wmemchr(buffer.data(), L'\0', capacity) != nullptr, "the result ends within capacity");
  // Shortening never needs more room: the whole expansion always fits.
  const std::wstring expected = Expanded(fitted.substr(0, std::wcslen(fitted.c_str())));
  fuzzsupport::Require(std::wstring(buffer.data()) == expected, "every macro delimiter is expanded, nothing else");
  return 0;
}
