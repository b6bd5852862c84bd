// Files placed together as one change, for callers that keep their own
// copies of the site list and its key files (a history to undo to).
#include <set>
#include <string>

#include "port/log/Log.h"
#include "sitehlp/Component.h"
#include "sitehlp/SiteListChange.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

namespace {

constexpr uint32_t c_permissionBits = 0777;

// c_missingArgument (-2) unless every file names a file of one directory, once, with a mode of
// permission bits only; 0 otherwise.
int CheckSiteFiles(const std::vector<SiteFile>& files) {
  if (files.empty()) return c_missingArgument;
  const AString dir = DirectoryOf(files.front().path);
  std::set<std::wstring> names;
  for (const SiteFile& file : files) {
    const AString name = FileNameOf(file.path);
    if (name.empty() || name == L"." || name == L".." || DirectoryOf(file.path) != dir) return c_missingArgument;
    if (!names.insert(name).second) return c_missingArgument;
    if (!file.bAbsent && (file.nMode & ~c_permissionBits) != 0) return c_missingArgument;
  }
  return c_success;
}

}  // namespace

int CSitesHelper::PlaceSiteFiles(const std::vector<SiteFile>& files) {
  ADetailTrace trace(c_component, L"Placing site files");
  if (const int rc = CheckSiteFiles(files)) return rc;
  SiteListChange change(DirectoryOf(files.front().path), c_component);
  for (const SiteFile& file : files) {
    const AString name = FileNameOf(file.path);
    const bool staged = file.bAbsent ? change.StageRemoval(name)
                                     : change.Stage(name, file.contents.getBytes(), file.contents.size(), file.nMode);
    if (!staged) return c_fileNotWritten;
  }
  return change.Commit() ? c_success : c_fileNotWritten;
}

}  // namespace sitehlp
