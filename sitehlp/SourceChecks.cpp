// Checks on a site list that comes from outside the agent, before it may
// replace the agent's own list. Every rule is checked and logged, so one run
// reports every fault of the list.
#include <string>

#include "port/fs/AFile.h"
#include "port/log/Log.h"
#include "port/strings/Strings.h"
#include "sitehlp/Component.h"
#include "sitehlp/OwnedSiteList.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

namespace {

constexpr wchar_t c_masterSiteType[] = L"master";

// True when path names a file with a non-zero size; only presence and size
// matter, the contents are not read.
bool NonEmptyFile(const AString& path) {
  unsigned long long bytes = 0;
  return AFile::size(path, bytes) && bytes != 0;
}

// One of the two files of a key pair must be there and non-empty; otherwise
// "<first> or <second> is invalid" is logged and false returned.
bool CheckKeyPresent(const AString& dir, const wchar_t* first, const wchar_t* second) {
  const AString firstPath = joinPath(dir, AString(first));
  const AString secondPath = joinPath(dir, AString(second));
  if (NonEmptyFile(firstPath) || NonEmptyFile(secondPath)) return true;
  logInfo(c_component, firstPath + L" or " + secondPath + L" is invalid");
  return false;
}

}  // namespace

int CSitesHelper::SourceSiteListCheck(tag_Site* pSiteList, bool bManaged) {
  int result = c_success;
  if (!pSiteList) {
    result = c_sourceChecksFailed;
    logInfo(c_component, L"no sites in site list");
  }
  if (!bManaged) return result;

  ADetailTrace trace(c_component, L"SPIPE site checks");
  OwnedSiteList spipeSites(*this);
  int hr = GetSpipeSite(pSiteList, spipeSites.out());
  if (hr < 0 || !spipeSites.get()) {
    if (hr >= 0) hr = c_noSpipeSite;  // success without a site is still "no SPIPE site"
    logError(c_component, L"Failed to get SPIPE site" + Hr(hr));
    return hr;
  }

  const tag_Site& spipe = *spipeSites.get();  // only the first one is checked
  const tag_HttpSite& http = spipe.httpSite;
  auto fail = [&result](const std::wstring& line) {
    result = c_sourceChecksFailed;
    logInfo(c_component, line);
  };
  if (spipe.bLocal != 0) fail(L"must not be local");
  if (spipe.nSiteType != SITE_TYPE_HTTP) fail(L"type must be HTTP site not " + std::to_wstring(spipe.nSiteType));
  if (wcsicmp(spipe.szType, c_masterSiteType) != 0) fail(std::wstring(L"site type must be master not ") + spipe.szType);
  if (wcsicmp(http.szSiteElement, ZEL_XML_SITELIST_SPIPE_SITE) != 0)
    fail(std::wstring(L"proto type must be SpipeSite not ") + http.szSiteElement);
  if (http.szName[0] == L'\0') fail(L"name cannot be empty");
  if (http.szServer[0] == L'\0') fail(L"server name cannot be empty");
  if (http.szServerIP[0] == L'\0') fail(L"SPIPE IP address cannot be empty");
  if (http.szServerName[0] == L'\0') fail(L"computer name cannot be empty");
  if (http.szRelativePath[0] == L'\0') fail(L"path cannot be empty");

  // A management server that announces a version hands out key files: they
  // must lie beside the list that was read last (the source being checked).
  if (http.szVersion[0] != L'\0') {
    AString dir;
    AString name;
    splitPath(AString(m_currentPath), dir, name);
    if (!CheckKeyPresent(dir, L"reqseckey.bin", L"req2048seckey.bin")) result = c_sourceChecksFailed;
    if (!CheckKeyPresent(dir, L"srpubkey.bin", L"sr2048pubkey.bin")) result = c_sourceChecksFailed;
  }
  return result;
}

int CSitesHelper::ValidateSiteListForInstall(const std::wstring& sourcePath, bool bManaged) {
  ADetailTrace trace(c_component, JoinWithCommas({AString(L"ValidateSiteListForInstall"), AString(sourcePath)}));
  OwnedSiteList list(*this);
  const int hr = MustReadSiteList(sourcePath, list.out());
  if (hr < 0 || !list.get()) return 0;
  return SourceSiteListCheck(list.get(), bManaged) == c_success ? 1 : 0;
}

}  // namespace sitehlp
