// Key files that travel with a site list: read from beside an outside list,
// checked, and written beside the agent's own list, with the FIPS marker.
// Key contents are opaque bytes: copied as they are, never parsed or logged.
// The key files of one placing are one change (SiteListChange.h): all of them
// are placed, or none; an import adds its site list to the same change.
#include <string>

#include <errno.h>

#include "port/fs/AFile.h"
#include "port/log/Log.h"
#include "sitehlp/Component.h"
#include "sitehlp/SiteKinds.h"
#include "sitehlp/SiteListChange.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

namespace {

constexpr wchar_t c_srPubKey[] = L"srpubkey.bin";
constexpr wchar_t c_reqSecKey[] = L"reqseckey.bin";
constexpr wchar_t c_sr2048PubKey[] = L"sr2048pubkey.bin";
constexpr wchar_t c_req2048SecKey[] = L"req2048seckey.bin";
// Appended as it stands (not joined as a path) to both directories.
constexpr wchar_t c_fipsMarkerSuffix[] = L"\\agentfipsmode";

// Public keys may be read by everyone; request keys are the agent's secrets.
constexpr mode_t c_publicKeyMode = 0644;
constexpr mode_t c_secretKeyMode = 0600;

// A list is versioned when one of its SPIPE sites announces a version.
bool IsVersioned(const tag_Site* list) {
  for (const tag_Site* site = list; site; site = site->pNext)
    if (IsSpipeSite(site) && site->httpSite.szVersion[0] != L'\0') return true;
  return false;
}

bool IsRequestKey(const AString& fileName) { return fileName == c_reqSecKey || fileName == c_req2048SecKey; }

// The key files of one placing, and which of them are placed.
struct KeySet {
  bool bSrPubKey, bReqSecKey, bSr2048PubKey, bReq2048SecKey;
  const ABuffer& srPubKey;
  const ABuffer& reqSecKey;
  const ABuffer& sr2048PubKey;
  const ABuffer& req2048SecKey;
};

bool StageKeyFile(SiteListChange& change, const AString& fileName, const ABuffer& contents) {
  // A symbolic link at the target is replaced, not followed. A request key
  // never keeps wider permissions than its own.
  if (IsRequestKey(fileName))
    return change.Stage(fileName, contents.getBytes(), contents.size(), c_secretKeyMode, port::ModeChoice::Exact);
  return change.Stage(fileName, contents.getBytes(), contents.size(), c_publicKeyMode);
}

// What writeKeyFiles writes, in its order; the first file that cannot be
// staged ends it, and then nothing is written at all.
bool StageKeySet(SiteListChange& change, const KeySet& keys) {
  if (keys.bSrPubKey && !StageKeyFile(change, c_srPubKey, keys.srPubKey)) return false;
  if (keys.bSr2048PubKey && !StageKeyFile(change, c_sr2048PubKey, keys.sr2048PubKey)) return false;
  if (keys.bReqSecKey && !StageKeyFile(change, c_reqSecKey, keys.reqSecKey)) return false;
  if (keys.bReq2048SecKey && !StageKeyFile(change, c_req2048SecKey, keys.req2048SecKey)) return false;
  if (!keys.bSrPubKey && !keys.bSr2048PubKey) return true;
  if (keys.bReqSecKey || keys.bReq2048SecKey) return true;
  // A new server key without a request key: a classic request key left from
  // an earlier server must not stay beside it. A stale 2048-bit request key
  // is left alone on purpose. A missing one counts as deleted.
  return change.StageRemoval(c_reqSecKey);
}

}  // namespace

bool CSitesHelper::readKeyFile(const AString& dir, const AString& fileName, ABuffer& contents) {
  const AString path = joinPath(dir, fileName);
  if (!AFile::read(path, contents)) {
    if (errno == 0 || errno == EINVAL) errno = EIO;
    return false;
  }
  if (contents.empty()) {
    logError(c_component, path + L" is invalid");
    logInfo(c_component, L"There could be another set of key files to be used.");
    errno = EINVAL;
    return false;
  }
  return true;
}

namespace {

// After readKeyFile failed: true when the file is there but could not be
// read (not missing, not empty). Such a key set must not be taken for an
// incomplete one and silently left out.
bool KeyFileUnreadable() { return errno != ENOENT && errno != ENOTDIR && errno != EINVAL; }

}  // namespace

bool CSitesHelper::readKeyFiles(const std::wstring& sourcePath, tag_Site* pSiteList, const std::wstring& keyDir,
                                ABuffer& srPubKey, ABuffer& reqSecKey, ABuffer& sr2048PubKey,
                                ABuffer& req2048SecKey, bool& hasSrPubKey, bool& hasReqSecKey,
                                bool& hasSr2048PubKey, bool& hasReq2048SecKey) {
  if (IsVersioned(pSiteList)) {
    const AString dir = DirectoryOf(sourcePath);
    // A pair counts only whole: a public key without its request key sets no
    // flag, even though its bytes were read.
    if (readKeyFile(dir, c_sr2048PubKey, sr2048PubKey) && readKeyFile(dir, c_req2048SecKey, req2048SecKey)) {
      hasSr2048PubKey = true;
      hasReq2048SecKey = true;
    } else if (KeyFileUnreadable()) {
      logError(c_component, L"Cannot read the key files of " + dir);
      return false;
    }
    if (readKeyFile(dir, c_srPubKey, srPubKey) && readKeyFile(dir, c_reqSecKey, reqSecKey)) {
      hasSrPubKey = true;
      hasReqSecKey = true;
    } else if (KeyFileUnreadable()) {
      logError(c_component, L"Cannot read the key files of " + dir);
      return false;
    }
    return hasSrPubKey || hasReqSecKey || hasSr2048PubKey || hasReq2048SecKey;
  }
  // Unversioned: at most the classic server key, from keyDir itself.
  if (!keyDir.empty()) {
    if (!readKeyFile(AString(keyDir), c_srPubKey, srPubKey)) return false;
    hasSrPubKey = true;
  } else {
    hasSrPubKey = false;
  }
  hasReqSecKey = false;
  return true;
}

bool CSitesHelper::writeKeyFile(const ABuffer& contents, const AString& fileName, const AString& /*extra*/,
                                const AString& dir) {
  SiteListChange change(dir, c_component);
  return StageKeyFile(change, fileName, contents) && change.Commit();
}

bool CSitesHelper::writeKeyFiles(bool writeSrPubKey, bool writeReqSecKey, const ABuffer& srPubKey,
                                 const ABuffer& reqSecKey, bool writeSr2048PubKey, bool writeReq2048SecKey,
                                 const ABuffer& sr2048PubKey, const ABuffer& req2048SecKey, const AString& dir) {
  const KeySet keys{writeSrPubKey, writeReqSecKey, writeSr2048PubKey, writeReq2048SecKey,
                    srPubKey,      reqSecKey,      sr2048PubKey,      req2048SecKey};
  SiteListChange change(dir, c_component);
  return StageKeySet(change, keys) && change.Commit();
}

bool CSitesHelper::writable(const AString& path) {
  bool bWritable = false;
  if (!AFile::isWritable(path, bWritable)) return false;
  if (!bWritable) {
    logError(c_component, L"Can't write " + path);
    return false;
  }
  return true;
}

bool CSitesHelper::createDirectoriesAndCopyKeyFiles(const std::wstring& sourcePath, tag_Site* pSiteList,
                                                    const std::wstring& keyDir) {
  const AString targetDir = DirectoryOf(m_siteListPath);
  if (!AFiler::createDirectories(targetDir)) return false;
  SiteListChange change(targetDir, c_component);
  if (!StageKeyFiles(*this, change, sourcePath, pSiteList, keyDir) || !change.Commit())
    return false;
  CopyFipsMarker(sourcePath, targetDir);
  return true;
}

bool StageKeyFiles(CSitesHelper& helper, SiteListChange& change, const std::wstring& sourcePath, tag_Site* pSiteList,
                   const std::wstring& keyDir) {
  ABuffer srPubKey, reqSecKey, sr2048PubKey, req2048SecKey;
  bool hasSrPubKey = false, hasReqSecKey = false, hasSr2048PubKey = false, hasReq2048SecKey = false;
  if (!helper.readKeyFiles(sourcePath, pSiteList, keyDir, srPubKey, reqSecKey, sr2048PubKey, req2048SecKey,
                           hasSrPubKey, hasReqSecKey, hasSr2048PubKey, hasReq2048SecKey))
    return false;

  // Every target is checked before anything is staged.
  const AString& targetDir = change.Directory();
  if (!helper.writable(AString(helper.GetSiteListPath()))) return false;
  if (hasSrPubKey && !helper.writable(joinPath(targetDir, c_srPubKey))) return false;
  if (hasReqSecKey && !helper.writable(joinPath(targetDir, c_reqSecKey))) return false;
  if (hasSr2048PubKey && !helper.writable(joinPath(targetDir, c_sr2048PubKey))) return false;
  if (hasReq2048SecKey && !helper.writable(joinPath(targetDir, c_req2048SecKey))) return false;

  const KeySet keys{hasSrPubKey, hasReqSecKey, hasSr2048PubKey, hasReq2048SecKey,
                    srPubKey,    reqSecKey,    sr2048PubKey,    req2048SecKey};
  return StageKeySet(change, keys);
}

void CopyFipsMarker(const std::wstring& sourcePath, const AString& targetDir) {
  // The marker is optional: a missing one is normal, so the copy's outcome
  // does not matter. Its name puts it beside the key directory, not in it,
  // so it is not part of the key files' change.
  AFile::copy(DirectoryOf(sourcePath) + c_fipsMarkerSuffix, targetDir + c_fipsMarkerSuffix);
}

}  // namespace sitehlp
