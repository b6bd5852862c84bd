// Builds against the installed headers and library only, and checks a few
// answers that need the library's code.
#include <cstdio>
#include <cwchar>

#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

int main() {
  sitehlp::CSitesHelper helper(L"/nonexistent/SiteList.xml");
  std::wstring host;
  unsigned int port = 0;
  const bool split = sitehlp::split_host_and_port(L"[::1]:8443", host, port);
  const bool ok = split && host == L"[::1]" && port == 8443 && helper.ConvertToStr(true) == L"1" &&
                  std::wcscmp(ZEL_XML_SITELIST, L"SiteList") == 0 && helper.GetSiteListType() == L"Client";
  std::printf("%s\n", ok ? "consumer ok" : "consumer FAILED");
  return ok ? 0 : 1;
}
