// Builds against the installed headers and library only, and checks a few
// answers that need the library's code, among them a line routed into the
// host's own log sink.
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>

#include "sitehlp/Logging.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

static_assert(__cplusplus >= 201703L, "the library's headers are compiled as C++17 or later");

namespace {

// Every line the library logs, as "component/level/message".
void Capture(void* context, const char* component, sitehlp::LogLevel level, const char* message) {
  std::string& lines = *static_cast<std::string*>(context);
  lines += std::string(component) + "/" + std::to_string(static_cast<int>(level)) + "/" + message + "\n";
}

}  // namespace

int main() {
  // The host's logger takes every error line from the start.
  std::string lines;
  sitehlp::SetLogLevel(sitehlp::LogLevel::Error);
  sitehlp::SetLogSink(&Capture, &lines);

  sitehlp::CSitesHelper helper(L"/nonexistent/SiteList.xml");
  std::wstring host;
  unsigned int port = 0;
  const bool split = sitehlp::split_host_and_port(L"[::1]:8443", host, port);
  bool ok = split && host == L"[::1]" && port == 8443 && helper.ConvertToStr(true) == L"1" &&
            std::wcscmp(ZEL_XML_SITELIST, L"SiteList") == 0 && helper.GetSiteListType() == L"Client";
  sitehlp::tag_Site* list = nullptr;
  ok = ok && helper.MustReadSiteList(L"", &list) == -1;  // a caller's mistake, logged as an internal error
  sitehlp::SetLogSink(nullptr, nullptr);
  ok = ok && lines == "SiteHlp/3/internal error: path is empty\n";

  std::printf("%s\n", ok ? "consumer ok" : "consumer FAILED");
  if (!ok) std::printf("log lines:\n%s", lines.c_str());
  return ok ? 0 : 1;
}
