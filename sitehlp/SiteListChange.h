// Changes of the files beside a site list (the list itself, its key files,
// the FIPS marker) made all at once, and the finishing of an interrupted one
// by the next reader or writer (port/fs/FileChange.h tells how).
//
// Locks: a change stages its files without any lock (the temporaries are
// its own, and nothing a reader sees changes) and holds "SiteListLock"
// exclusively only while committing, never across a read of the list. The
// commit is the moment the change happens, so two changes at once (two
// imports) are placed one after the other, each whole: the later one wins,
// exactly as if the imports had run one after the other. A lock of the
// changes' own, held from the first staged file on, would add nothing to
// that, and would make every import wait for the fsyncs of another's
// staging.
#ifndef VLM_SITEHLP_SITELISTCHANGE_H
#define VLM_SITEHLP_SITELISTCHANGE_H

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "platform/AString.h"
#include "port/fs/FileChange.h"
#include "port/lock/InterProcessLock.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

// The mode a site list gets when there was none.
constexpr mode_t c_newSiteListMode = 0644;

// The directory part and the name part of path (splitPath).
AString DirectoryOf(const std::wstring& path);
AString FileNameOf(const std::wstring& path);

class SiteListChange {
 public:
  // A change of files of dir; logs under component.
  SiteListChange(const AString& dir, const wchar_t* component);
  SiteListChange(const SiteListChange&) = delete;
  SiteListChange& operator=(const SiteListChange&) = delete;

  const AString& Directory() const { return m_dir; }

  // Stages the new content of the file name of the directory; false, with
  // "Unable to write <path>: <reason>" logged, when it cannot be staged.
  bool Stage(const AString& name, const unsigned char* data, std::size_t size, mode_t newFileMode,
             port::ModeChoice policy = port::ModeChoice::KeepExisting);
  // Stages the removal of the file name (a missing file counts as removed).
  bool StageRemoval(const AString& name);

  // Applies every staged file at once under the exclusive "SiteListLock".
  // False (logged) when nothing was changed, or when the change was decided
  // but could not be completed (the next reader or writer completes it).
  bool Commit();

 private:
  AString m_dir;
  const wchar_t* m_component;
  port::FileChange m_files;
};

// Finishes an interrupted change of the directory of path. The caller holds
// "SiteListLock" (shared or exclusive). A damaged record or a change that
// cannot be finished is logged, once per process for each directory and
// reason; the caller goes on with the files as they are.
void FinishInterruptedChangeOf(const std::wstring& path, const wchar_t* component);

// Replaces the file at path with text under the exclusive "SiteListLock",
// finishing an interrupted change of its directory first. False, with
// "Unable to write <path>: <reason>" logged, when it could not be written.
bool WriteUnderSiteListLock(const std::wstring& path, const std::string& text, const wchar_t* component);

// Stages what createDirectoriesAndCopyKeyFiles places: the key files of the
// outside list at sourcePath (read and checked as that operation does, the
// target files checked writable) and its FIPS marker.
bool StageKeyFiles(CSitesHelper& helper, SiteListChange& change, const std::wstring& sourcePath,
                   tag_Site* pSiteList, const std::wstring& keyDir);
// Copies the FIPS marker of the outside list at sourcePath beside targetDir,
// as createDirectoriesAndCopyKeyFiles does once the keys are placed; a
// missing marker is normal, so the outcome is not reported.
void CopyFipsMarker(const std::wstring& sourcePath, const AString& targetDir);

}  // namespace sitehlp

#endif  // VLM_SITEHLP_SITELISTCHANGE_H
