// The README's demo: a helper for the bundled example site list, in a data
// directory inside the build tree, showing its versions, type, FIPS mode and
// sites. Uses the public API only, like any caller of the library.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/AString.h"
#include "sitehlp/SitesHelper.h"

namespace {

std::string N(const std::wstring& s) { return ACharString(s); }

const char* KindName(int kind) {
  switch (kind) {
    case sitehlp::SITE_TYPE_HTTP: return "HTTP";
    case sitehlp::SITE_TYPE_FTP: return "FTP";
    case sitehlp::SITE_TYPE_UNC: return "UNC";
    case sitehlp::SITE_TYPE_LOCAL: return "Local";
    case sitehlp::SITE_TYPE_PROXY: return "Proxy";
    default: return "?";
  }
}

std::string Server(const sitehlp::tag_Site& s) {
  switch (s.nSiteType) {
    case sitehlp::SITE_TYPE_HTTP: return N(s.httpSite.szServer) + ":" + std::to_string(s.httpSite.nPort);
    case sitehlp::SITE_TYPE_FTP: return N(s.ftpSite.szServer) + ":" + std::to_string(s.ftpSite.nPort);
    case sitehlp::SITE_TYPE_UNC: return N(s.uncSite.szServer);
    case sitehlp::SITE_TYPE_LOCAL: return N(s.localSite.szRelativePath);
    case sitehlp::SITE_TYPE_PROXY: return N(s.proxySettings.szHttpProxyServer) + ":" + std::to_string(s.proxySettings.nHttpProxyPort);
    default: return "";
  }
}

std::string Name(const sitehlp::tag_Site& s) {
  switch (s.nSiteType) {
    case sitehlp::SITE_TYPE_HTTP: return N(s.httpSite.szName) + " (" + N(s.httpSite.szSiteElement) + ")";
    case sitehlp::SITE_TYPE_FTP: return N(s.ftpSite.szName);
    case sitehlp::SITE_TYPE_UNC: return N(s.uncSite.szName);
    case sitehlp::SITE_TYPE_LOCAL: return N(s.localSite.szName);
    case sitehlp::SITE_TYPE_PROXY: return N(s.proxySettings.szName);
    default: return "";
  }
}

}  // namespace

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  const fs::path dataDir = argc > 1 ? fs::path(argv[1]) : fs::path(VLM_DEMO_DATA_DIR);
  const fs::path example = fs::path(VLM_EXAMPLES_DIR) / "agent" / "SiteList.xml";
  std::error_code ec;
  fs::create_directories(dataDir / "etc", ec);
  fs::copy_file(example, dataDir / "etc" / "SiteList.xml", fs::copy_options::overwrite_existing, ec);
  if (ec) {
    std::fprintf(stderr, "cannot seed %s: %s\n", dataDir.c_str(), ec.message().c_str());
    return 1;
  }
  // The library reads its directories from the environment; errors go to
  // stderr rather than the system log.
  setenv("VLM_FRAMEWORK_DATA_DIR", dataDir.c_str(), 1);
  setenv("VLM_LOG_SINK", "stderr", 0);
  setenv("VLM_LOG_LEVEL", "error", 0);

  sitehlp::CSitesHelper helper;
  std::printf("Site list      %s\n", N(helper.GetSiteListPath()).c_str());
  std::printf("Global version %s\n", N(helper.GetGlobalVersion()).c_str());
  std::printf("Local version  %s\n", N(helper.GetLocalVersion()).c_str());
  std::printf("Type           %s\n", N(helper.GetSiteListType()).c_str());
  std::wstring fips;
  const int fipsResult = helper.GetSitelistFipsMode(L"", fips);
  std::printf("FIPS mode      %s\n", fipsResult == 0 ? N(fips).c_str() : "(not set)");

  sitehlp::tag_Site* sites = nullptr;
  const int result = helper.ReadSiteList(L"", &sites);
  if (result < 0) {
    std::fprintf(stderr, "reading the site list failed (%d)\n", result);
    return 1;
  }
  std::printf("\n%-6s %-11s %-34s %-34s %s\n", "Kind", "Type", "Name", "Server", "Order");
  for (const sitehlp::tag_Site* s = sites; s; s = s->pNext)
    std::printf("%-6s %-11s %-34s %-34s %d\n", KindName(s->nSiteType), N(s->szType).c_str(), Name(*s).c_str(),
                Server(*s).c_str(), s->nOrder);
  helper.FreeSiteListMemory(sites);
  return 0;
}
