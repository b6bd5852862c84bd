// Import and install: an outside site list file becomes the agent's own,
// with its key files, FIPS marker, version stamps, type and certificates.
#include <string>
#include <vector>

#include "port/fs/AFile.h"
#include "port/log/Log.h"
#include "port/strings/Strings.h"
#include "sitehlp/Component.h"
#include "sitehlp/OwnedSiteList.h"
#include "sitehlp/SiteListChange.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

namespace {

constexpr wchar_t c_overwriteClientSites[] = L"OverwriteClientSites";


}  // namespace

int CSitesHelper::ImportSiteList(const std::wstring& sourcePath, const std::wstring& keyDir) {
  ADetailTrace trace(c_component, JoinWithCommas({AString(L"ImportSiteList"), AString(sourcePath)}));
  OwnedSiteList list(*this);
  const int hr = MustReadSiteList(sourcePath, list.out());
  // A source without any site is refused too; its code is the reader's (0).
  if (hr < 0 || !list.get()) return hr;

  // Only informs (the import goes on): the management server's list will
  // replace this one later.
  std::wstring overwrite;
  if (GetPolicySetting(c_overwriteClientSites, overwrite) && overwrite != L"0")
    logInfo(c_component, L"WARNING: imported site list \"" + sourcePath + L"\" will be overwritten by Vantor site list");

  const int check = SourceSiteListCheck(list.get(), IsOrxManaged());
  if (check < 0) return check;
  return InternalImportSiteList(sourcePath, list.get(), keyDir);
}

int CSitesHelper::InstallSiteList(const std::wstring& sourcePath, const std::wstring& keyDir) {
  ADetailTrace trace(c_component,
                     JoinWithCommas({AString(L"InstallSiteList"), AString(sourcePath), AString(keyDir)}));
  OwnedSiteList list(*this);
  const int hr = MustReadSiteList(sourcePath, list.out());
  if (hr < 0 || !list.get()) return hr;
  return InternalImportSiteList(sourcePath, list.get(), keyDir);
}

int CSitesHelper::InternalImportSiteList(const std::wstring& sourcePath, tag_Site* pSiteList,
                                         const std::wstring& keyDir) {
  AdjustSitesOrder(pSiteList);

  std::wstring globalVersion, localVersion, siteListType;
  const int hr = GetSitelistVersions(sourcePath, globalVersion, localVersion, siteListType);
  if (hr < 0) {
    logError(c_component, L"Get version failed" + Hr(hr));
    return hr;
  }
  logDetail(c_component, L"Import sitelist from " + sourcePath + L" to " + m_siteListPath);
  logDetail(c_component, L"Original local version of " + sourcePath + L" is " + localVersion);

  // A source without a CA bundle imports with none; one whose bundle cannot
  // be read is not imported without it.
  std::vector<std::wstring> certificates;
  if (const int read = GetCaCertificates(sourcePath, certificates); read < 0) {
    logError(c_component, L"Get certificates failed" + Hr(read));
    return read;
  }

  // The key files and the list are one change: an agent never has keys that
  // do not belong to its list, whatever is interrupted, and two imports at
  // once leave one of them whole. A failure before the commit changes none
  // of the files.
  const AString targetDir = DirectoryOf(m_siteListPath);
  if (!AFiler::createDirectories(targetDir)) return c_generalFailure;
  SiteListChange change(targetDir, c_component);
  if (!StageKeyFiles(*this, change, sourcePath, pSiteList, keyDir)) return c_generalFailure;

  std::string text;
  int written = c_success;
  if (!BuildSiteListText(pSiteList, m_siteListPath, globalVersion, localVersion, siteListType, certificates, text,
                         written) ||
      !change.Stage(FileNameOf(m_siteListPath), reinterpret_cast<const unsigned char*>(text.data()), text.size(),
                    c_newSiteListMode) ||
      !change.Commit())
    written = c_fileNotWritten;
  if (written < 0) {
    logError(c_component, L"CreateSiteList failed" + Hr(written));
    return c_generalFailure;
  }
  CopyFipsMarker(sourcePath, targetDir);
  return c_success;
}

}  // namespace sitehlp
