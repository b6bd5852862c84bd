// libvlmCmnLib: the agent's repository site list.
//
// sitehlp::CSitesHelper reads, caches, writes, merges, checks, imports and
// rewrites site list documents (SiteList.xml, ServerSiteList.xml). Sites live
// in memory as a singly linked list of fixed-size tag_Site records.
//
// Thread safety: a CSitesHelper object is used by one thread at a time. The
// process-wide cache (m_pSiteList, m_iChange) and the files are guarded by the
// named inter-process locks "SiteListLock" and "SmartSiteListLock", which also
// exclude other processes of the agent.
//
// Result codes: ResultCode below; operations answering bool or 1/0 say so.
//
// Ownership: a list handed out through a tag_Site** belongs to the caller and
// is released with FreeSiteListMemory, except the one SmartReadSiteList hands
// out, which belongs to the process-wide cache.
#ifndef VLM_SITEHLP_SITESHELPER_H
#define VLM_SITEHLP_SITESHELPER_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/ABuffer.h"
#include "platform/AString.h"
#include "platform/Forward.h"
#include "sitehlp/export.h"

namespace sitehlp {

// Kind discriminator of tag_Site::nSiteType; the values are fixed.
enum SiteKind : int32_t {
  SITE_TYPE_HTTP = 0,   // HttpSite, SpipeSite, SuperAgentSite
  SITE_TYPE_FTP = 1,    // FTPSite
  SITE_TYPE_UNC = 2,    // UNCSite
  SITE_TYPE_LOCAL = 3,  // LocalSite
  SITE_TYPE_PROXY = 4,  // ProxyConfigList / ProxyConfig
};

// Result of the helper's operations: 0 success, negative failure. The values
// are fixed; a read or write error of the XML parser that carries an error
// code of its own is passed through as it is.
enum ResultCode : int32_t {
  c_success = 0,
  c_generalFailure = -1,  // no sites, no fallback site, key files not placed, ...
  c_missingArgument = -2,
  c_outOfMemory = -3,
  c_fileMissing = -4,
  c_notWellFormed = -5,
  c_noSpipeSite = -8,
  c_sourceChecksFailed = -9,
  c_fileUnreadable = -10,
  c_fileNotWritten = -11,  // also a parser read/write error in GetCaCertificates
};

// Capacities in wchar_t, terminator included.
enum : unsigned int {
  c_nameCapacity = 260,
  c_pathCapacity = 520,
  c_serverNameCapacity = 261,
  c_serverIPCapacity = 100,
  c_exclusionListCapacity = 4001,
};

// Record layout: every array is wchar_t (4 bytes), every number 4 bytes, so
// the bodies are 4-byte aligned and tag_Site is 8-byte aligned for pNext.
// Offsets and sizes are part of the ABI and pinned by static_assert below.

struct tag_HttpSite {
  wchar_t szSiteElement[260];  // "HttpSite", "SpipeSite" or "SuperAgentSite"
  wchar_t szName[260];
  wchar_t szServer[260];
  wchar_t szServerIP[100];
  int32_t nPort;
  int32_t nServerIPPort;
  int32_t nServerNamePort;
  wchar_t szRelativePath[520];
  wchar_t szServerName[261];  // one more than the other names, deliberately
  int32_t nUseAuth;
  wchar_t szUserName[260];
  wchar_t szPassword[260];  // clear text
  wchar_t szVersion[260];   // SPIPE sites only
  uint32_t nSecurePort;
};

struct tag_FtpSite {
  wchar_t szName[260];
  wchar_t szServer[260];
  wchar_t szRelativePath[520];
  wchar_t szUserName[260];
  wchar_t szPassword[260];
  int32_t nPort;
  uint32_t nSecurePort;
};

struct tag_UncSite {
  wchar_t szName[260];
  wchar_t szServer[260];  // bare host, not split
  wchar_t szRelativePath[520];
  wchar_t szDomainName[260];
  wchar_t szUserName[260];
  wchar_t szPassword[260];
  int32_t nUseLoggedonUserAccount;
  wchar_t szShareName[260];
};

struct tag_LocalSite {
  wchar_t szName[260];
  wchar_t szRelativePath[520];
  wchar_t szDomainName[260];
  wchar_t szUserName[260];
  wchar_t szPassword[260];
  int32_t nUseLoggedonUserAccount;
};

struct tag_ProxySettings {
  wchar_t szProxyKind[260];  // "HttpSite", "FTPSite", "FtpHttp" or empty
  wchar_t szName[260];
  wchar_t szHttpProxyServer[260];
  int32_t nHttpProxyPort;
  wchar_t szFtpProxyServer[260];
  int32_t nFtpProxyPort;
  int32_t bAllowUserToConfigureProxy;
  int32_t bBypassLocalAddress;
  int32_t bUseIEConfig;
  int32_t nExclusionCount;
  wchar_t szExclusionList[4001];  // hosts joined with ";", at most 3,999 characters
  int32_t bFtpUseAuth;
  int32_t bHttpUseAuth;
  wchar_t szHttpProxyUser[260];
  wchar_t szHttpProxyPassword[260];
  wchar_t szFtpProxyUser[260];
  wchar_t szFtpProxyPassword[260];
  int32_t bAlternateFtpUseAuth;
  int32_t bAlternateHttpUseAuth;
  wchar_t szAlternateHttpProxyUser[260];
  wchar_t szAlternateHttpProxyPassword[260];
  wchar_t szAlternateFtpProxyUser[260];
  wchar_t szAlternateFtpProxyPassword[260];
};

// One site. Allocated with calloc(1, sizeof(tag_Site)) whatever its kind, so
// any record can be overwritten by another kind or copied with memcpy; it owns
// no memory, so freeing it is one free().
typedef struct tag_Site {
  int32_t bEnabled;
  int32_t bSpipeOrSuperAgent;
  int32_t bMirror;
  int32_t bLocal;
  int32_t nOrder;     // 0 for a fallback site
  int32_t nSiteType;  // SiteKind
  wchar_t szType[260];
  struct tag_Site* pNext;
  union {
    tag_HttpSite httpSite;
    tag_FtpSite ftpSite;
    tag_UncSite uncSite;
    tag_LocalSite localSite;
    tag_ProxySettings proxySettings;
  };
} tag_Site;

#if defined(__x86_64__) || defined(__aarch64__)
static_assert(sizeof(wchar_t) == 4, "records hold UTF-32 text");
static_assert(sizeof(tag_HttpSite) == 9784, "tag_HttpSite layout is ABI");
static_assert(sizeof(tag_FtpSite) == 6248, "tag_FtpSite layout is ABI");
static_assert(sizeof(tag_UncSite) == 8324, "tag_UncSite layout is ABI");
static_assert(sizeof(tag_LocalSite) == 6244, "tag_LocalSite layout is ABI");
static_assert(sizeof(tag_ProxySettings) == 28524, "tag_ProxySettings layout is ABI");
static_assert(offsetof(tag_Site, nOrder) == 16, "tag_Site layout is ABI");
static_assert(offsetof(tag_Site, nSiteType) == 20, "tag_Site layout is ABI");
static_assert(offsetof(tag_Site, szType) == 24, "tag_Site layout is ABI");
static_assert(offsetof(tag_Site, pNext) == 1064, "tag_Site layout is ABI");
static_assert(offsetof(tag_Site, httpSite) == 1072, "tag_Site layout is ABI");
static_assert(offsetof(tag_HttpSite, nPort) == 3520, "tag_HttpSite layout is ABI");
static_assert(offsetof(tag_HttpSite, szServerName) == 5612, "tag_HttpSite layout is ABI");
static_assert(offsetof(tag_HttpSite, nSecurePort) == 9780, "tag_HttpSite layout is ABI");
static_assert(offsetof(tag_FtpSite, nPort) == 6240, "tag_FtpSite layout is ABI");
static_assert(offsetof(tag_UncSite, szShareName) == 7284, "tag_UncSite layout is ABI");
static_assert(offsetof(tag_ProxySettings, szExclusionList) == 4184, "tag_ProxySettings layout is ABI");
static_assert(offsetof(tag_ProxySettings, bFtpUseAuth) == 20188, "tag_ProxySettings layout is ABI");
static_assert(sizeof(tag_Site) == 29600, "tag_Site layout is ABI");
#endif

// How a site element maps onto a record; internal to the library.
struct SiteElementSpec;

// Constants of the helper's namespace.
constexpr const wchar_t c_sitelistName[] = L"SiteList.xml";
constexpr const wchar_t c_serverSitelistName[] = L"ServerSiteList.xml";
constexpr int c_defaultHttpPort = 80;
constexpr int c_delaySiteUnavailable = 65535;
constexpr const char c_siteListLock[] = "SiteListLock";
constexpr const char smartSiteListLock[] = "SmartSiteListLock";
constexpr const wchar_t c_proxyParamDelimiter[] = L";";
constexpr const wchar_t c_agentEnvMacroStartDelimiter[] = L"<";
constexpr const wchar_t c_agentEnvMacroEndDelimiter[] = L">";
constexpr const wchar_t c_agentEnvMacroStartDelimiterExpanded[] = L"%%lt%%";
constexpr const wchar_t c_agentEnvMacroEndDelimiterExpanded[] = L"%%gt%%";
// Wait argument of every lock call: in effect no time limit.
constexpr int c_lockWaitForever = 0x7FFFFFFF;

// What CheckSiteListDocument found, and where a document was refused as not
// well formed (CSitesHelper::GetLastXmlRefusal).
struct tag_DocumentCheck {
  std::wstring szPath;         // the file; empty for text handed in memory
  uint32_t nLine = 0;          // 1-based; 0 when there is no place (e.g. a file that cannot be read)
  uint32_t nColumn = 0;        // 1-based, in characters; 0 when there is no place
  std::wstring szDescription;  // the XML parser's own words for the fault, or why the file could not be read
  std::wstring szRootElement;  // the document element's name, prefix included, when the document is well formed
};

// Splits "host:port" at the last colon. False (outputs untouched) when there
// is no colon; otherwise true, with the port as a stream extraction leaves it.
VLM_EXPORT bool split_host_and_port(const std::wstring& text, std::wstring& host, unsigned int& port);

// One file of a change placed by CSitesHelper::PlaceSiteFiles.
struct SiteFile {
  std::wstring path;      // the file; all files of one change share one directory
  ABuffer contents;       // its exact new bytes
  uint32_t nMode = 0644;  // permission bits (at most 0777) it gets if it did not exist
  bool bAbsent = false;   // true: the file must not exist afterwards (contents, nMode unused)
};

class VLM_EXPORT CSitesHelper {
 public:
  // ---- Construction and policy settings ---------------------------------
  // Helper for the agent's own list: <framework data dir>/etc/SiteList.xml.
  // Reads that file's versions and type; a missing file is not an error.
  CSitesHelper();
  // Helper for the site list at a full path.
  explicit CSitesHelper(std::wstring siteListPath);
  virtual ~CSitesHelper();

  // Writes the directory holding the agent's site list (not the file) into
  // buffer, cut to capacity - 1 characters. Returns 0.
  int GetSiteListFilename(wchar_t* buffer, unsigned long capacity);
  void SetPolicySetting(const std::wstring& name, const std::wstring& value);
  // True and value set when name is held; false and value untouched otherwise.
  bool GetPolicySetting(const std::wstring& name, std::wstring& value);
  // -1 override: managed; -2: not managed; otherwise the configuration says.
  bool IsOrxManaged();
  // Sets the managed override: -1 forces managed, -2 forces not managed, any
  // other value defers to the configuration service.
  void SetManagedOverride(int iOverride) { m_iManagedOverride = iOverride; }

  // Read-only views of the helper's state.
  const std::wstring& GetSiteListPath() const { return m_siteListPath; }
  const std::wstring& GetCurrentPath() const { return m_currentPath; }
  const std::wstring& GetLocalVersion() const { return m_localVersion; }
  const std::wstring& GetGlobalVersion() const { return m_globalVersion; }
  const std::wstring& GetSiteListType() const { return m_siteListType; }
  const std::map<std::wstring, std::wstring>& GetPolicySettings() const { return m_policySettings; }

  // ---- Record utilities ---------------------------------------------------
  // Frees every node of pList (NULL allowed). Returns 0.
  int FreeSiteListMemory(tag_Site* pList);
  // Bounded copy into a record field; capacity in wchar_t with terminator.
  // A source that does not fit is cut and the cut logged at detail level.
  void CopyWStr(wchar_t* dst, const wchar_t* src, unsigned int capacity);
  std::wstring ConvertToStr(unsigned int value);
  std::wstring ConvertToStr(int value);
  std::wstring ConvertToStr(bool value);  // "1" or "0"
  // Turns %%lt%% and %%gt%% into < and > in place. Returns 0.
  int FormatEnvSymbols(wchar_t* buffer, unsigned int capacity);

  // ---- Reading ----------------------------------------------------------------
  // Reads path (empty: the helper's own list) into a new list owned by the
  // caller. 0, or -1 when the last site element gave no body; -2 no path,
  // -4 missing, -10 unreadable (also when whether it exists cannot be told),
  // -5 malformed, or a parser read/write code.
  int ReadSiteList(const std::wstring& path, tag_Site** ppSiteList);
  // Builds one site body in a new calloc block (caller frees). 0, or -1 and
  // *ppBody NULL for an element that is no site.
  int ReadSiteFromSiteList(AdvXMLParser::Element* pElement, void** ppBody);
  // Serves the process-wide cached list, re-reading the file after two change
  // notices. The list handed out belongs to the cache: do not free it.
  int SmartReadSiteList(const std::wstring& path, tag_Site** ppSiteList);
  // Change notice: the file on disk has changed.
  void needToUpdateInMemSiteList();
  // Like ReadSiteList, but -1 for an empty path and a logged failure when the
  // read fails or yields no site.
  int MustReadSiteList(const std::wstring& path, tag_Site** ppSiteList);

  // ---- Well-formedness -----------------------------------------------------------
  // Every operation that reads a site list document (from a file or from
  // memory) first has it judged by a conforming, namespace-aware XML 1.0
  // parser and refuses it, with the code it gives for text that is not well
  // formed (-5 where it reports one), when that parser refuses it. A document
  // type declaration is refused too, and so is an entity reference other than
  // XML's five and character references. The encoding declaration must name
  // the encoding the text is in (its byte order mark, else UTF-8).
  //
  // Reads path (empty: the helper's own list) under the shared "SiteListLock"
  // by exactly the rules ReadSiteList reads it by (existence, file type and
  // size, decoding, well-formedness) and fills check: szPath always; the
  // name of the document element when the answer is 0; the place (line,
  // column) and the parser's description for -5; why for -10. Returns 0 well
  // formed, -2 no path, -4 missing, -10 unreadable or not text in its
  // encoding, -5 not well formed, -3 out of memory. Changes no state of the
  // helper; a refusal is logged at detail level and kept as the calling
  // thread's last refusal.
  int CheckSiteListDocument(const std::wstring& path, tag_DocumentCheck& check);
  // The place of the last refusal of a document as not well formed made on
  // the calling thread, by any operation of any helper: true and refusal set
  // (szPath empty for text handed in memory, szRootElement empty) when there
  // was one since the thread started or since ClearLastXmlRefusal; false and
  // refusal untouched otherwise. A caller that wants the refusal of one
  // operation clears before calling it. Operations answering false (the
  // rewrite, the server site list) leave the place only here.
  static bool GetLastXmlRefusal(tag_DocumentCheck& refusal);
  static void ClearLastXmlRefusal();

  // ---- Writing ------------------------------------------------------------------
  // Writes sites (NULL: no sites) to path (empty: the helper's own), stamping
  // a local version when localVersion is empty. Changes the records: macros
  // are put into stored form, proxy exclusion lists cut apart. 0; -1 when the
  // last record has an unknown kind; -11 when the file could not be written,
  // also when memory ran out while the document was built (nothing written).
  int CreateSiteList(tag_Site* sites, const std::wstring& path, const std::wstring& globalVersion,
                     const std::wstring& localVersion, const std::wstring& type,
                     const std::vector<std::wstring>& caCertificates);
  // Append one site element behind the writer's cursor; called by
  // CreateSiteList only. Return 0; an element that cannot be allocated
  // throws std::bad_alloc, which CreateSiteList reports as -11.
  int AddHTTPSite(tag_Site* pSite, int index);
  int AddFTPSite(tag_Site* pSite, int index);
  int AddUNCSite(tag_Site* pSite, int index);
  int AddLocalSite(tag_Site* pSite, int index);
  int AddProxySite(tag_Site* pSite, int index);

  // ---- Version, FIPS and CA certificate queries ------------------------------------
  // 0; -4 missing (outputs untouched); -1 unreadable or malformed.
  int GetSitelistVersions(const std::wstring& siteListPath, std::wstring& globalVersion,
                          std::wstring& localVersion, std::wstring& siteListType);
  int GetGlobalSitelistVersion(std::wstring& globalVersion);
  // 0 when the root carries FipsMode; -4 missing; -1 otherwise.
  int GetSitelistFipsMode(const std::wstring& siteListPath, std::wstring& fipsMode);
  // Appends the CaCertificate texts. 0; -4 missing; -10 unreadable; -5
  // malformed; -11 parser read/write error.
  int GetCaCertificates(const std::wstring& siteListPath, std::vector<std::wstring>& certificates);

  // ---- Passwords -------------------------------------------------------------------
  // Decrypts base64 text of the byte form (kind 6). Output untouched on failure.
  bool decrypt_data(const std::wstring& encrypted, std::wstring& clear);
  // 1 when password was encrypted into encrypted (text form, kind 3), else 0
  // with encrypted untouched.
  int EncryptPassword(const std::wstring& password, std::wstring& encrypted);
  // Re-encrypts a server site list held in buffer (kind 6 in, kind 3 out) into
  // <framework data dir>/ServerSiteList.xml. 0, -5, or a parser code.
  int AdjustPwd(const AnObjectBuffer<unsigned char>& buffer);

  // ---- Merging --------------------------------------------------------------------
  // Builds a new list from copies of the inputs into *ppFinalSiteList (owned
  // by the caller; NULL after a failure). 0, -2, -3 or a reader code.
  int MergeSiteLists(tag_Site* pSiteList, tag_Site* pBaseSiteList, bool bMergeWithBase,
                     tag_Site** ppFinalSiteList);
  int MergeThisSiteList(tag_Site* pSiteList, bool bSkipProxy, tag_Site** ppTail, tag_Site** ppHead);
  // Copies every SPIPE site into a new chain. 0, -2, -3, -8 (none).
  int GetSpipeSite(tag_Site* pSiteList, tag_Site** ppSpipeSites);
  // Replaces the chain's SPIPE sites by pSpipeSites (linked, not copied).
  int UpdateSpipeSite(tag_Site* pSpipeSites, tag_Site** ppTail, tag_Site** ppHead);
  // Copies the first fallback site. 0, -1 (none), -2, -3.
  int GetFallbackSite(tag_Site* pSiteList, tag_Site** ppFallbackSite);
  // Puts pFallbackSite into the chain; consumes it unless -2.
  int UpdateFallbackSite(tag_Site* pFallbackSite, tag_Site** ppTail, tag_Site** ppHead);
  // Ranks the vendor's default HTTP update site ahead of its FTP one.
  void AdjustSitesOrder(tag_Site* pSiteList);
  // Points the helper's own list at a management server and writes it.
  int SetSpipeSiteForUpdSite(unsigned int port, const std::wstring& serverIP, const std::wstring& server,
                             const std::wstring& netbiosName);
  // Where the management server is, from the cached list. Outputs written on
  // success only. 0, a read code, -2, -3 or -8.
  int GetVantorServerInfo(std::wstring& name, std::wstring& server, std::wstring& serverIP,
                          std::wstring& netbiosName, int& port, std::wstring& version, bool allServers,
                          bool plainPortOnly);

  // ---- Source checks, key files, import and install --------------------------------
  // 0 when every rule holds; -9 when any fails; or a GetSpipeSite code.
  int SourceSiteListCheck(tag_Site* pSiteList, bool bManaged);
  // 1 when sourcePath reads and passes the checks, else 0.
  int ValidateSiteListForInstall(const std::wstring& sourcePath, bool bManaged);
  // False with errno ENOENT when the key file is missing, EINVAL when it is
  // empty, another errno when it could not be read.
  bool readKeyFile(const AString& dir, const AString& fileName, ABuffer& contents);
  bool readKeyFiles(const std::wstring& sourcePath, tag_Site* pSiteList, const std::wstring& keyDir,
                    ABuffer& srPubKey, ABuffer& reqSecKey, ABuffer& sr2048PubKey, ABuffer& req2048SecKey,
                    bool& hasSrPubKey, bool& hasReqSecKey, bool& hasSr2048PubKey, bool& hasReq2048SecKey);
  bool writeKeyFile(const ABuffer& contents, const AString& fileName, const AString& extra, const AString& dir);
  bool writeKeyFiles(bool writeSrPubKey, bool writeReqSecKey, const ABuffer& srPubKey, const ABuffer& reqSecKey,
                     bool writeSr2048PubKey, bool writeReq2048SecKey, const ABuffer& sr2048PubKey,
                     const ABuffer& req2048SecKey, const AString& dir);
  bool writable(const AString& path);
  bool createDirectoriesAndCopyKeyFiles(const std::wstring& sourcePath, tag_Site* pSiteList,
                                        const std::wstring& keyDir);
  // Checked import of an outside list with its key files. 0 or a code.
  int ImportSiteList(const std::wstring& sourcePath, const std::wstring& keyDir);
  // Unchecked install of an outside list with its key files. 0 or a code.
  int InstallSiteList(const std::wstring& sourcePath, const std::wstring& keyDir);
  int InternalImportSiteList(const std::wstring& sourcePath, tag_Site* pSiteList, const std::wstring& keyDir);

  // Places files as one change, all or nothing: the files are written aside
  // without a lock, and placed under the exclusive "SiteListLock", which is
  // held for the moment of the change only. When it returns 0 every file holds its new
  // bytes (or is absent); when it returns -11 none has changed, except in
  // the one case named below. A crash or power cut at any moment leaves all
  // the files as they were or all as given, once the next reader or writer
  // of the directory has run (each one first finishes a change its writer
  // could not complete). Each replaced file keeps its owner, group and mode;
  // a new file gets nMode and the process's owner and group. A symbolic link
  // at a path is replaced, never followed; a missing file to be absent counts
  // as removed. Passes through neither the reader nor the writer: the bytes
  // are not checked.
  // 0; -2 when files is empty, a path is empty or ends in "/", "." or "..",
  // the paths do not share one directory, a file appears twice, or a mode
  // has bits beyond 0777; -11 (logged) when the files could not be placed: a
  // missing directory, a path that is a directory, a lock not obtained, a
  // write that failed. The one exception: a file system that refuses a
  // rename after the change was recorded gives -11 with the change recorded,
  // and the next reader or writer of the directory completes it (logged as
  // such).
  int PlaceSiteFiles(const std::vector<SiteFile>& files);

  // ---- Server site list, rewriting and buffers --------------------------------------
  // Copies <srcDir>/SiteList.xml without the client's local sites to
  // <dstDir or srcDir>/ServerSiteList.xml. True when written.
  static bool createServerSiteListFromSiteList(const wchar_t* srcDir, const wchar_t* dstDir);
  // Stores a server site list, re-encrypting its passwords when asked and the
  // key size calls for it.
  bool CreateServerSiteList(AnObjectBuffer<unsigned char>& buffer, bool bAdjust);
  // Folds the vendor repositories and/or the SPIPE sites and CA bundle of
  // newPath into the helper's own list. True when written.
  bool modifySiteList(const wchar_t* newPath, bool bReplaceRepositories, bool bReplaceServer, const AString& keyDir);
  bool doReplaceVantorSite(AnXmlNode& ownRoot, AnXmlNode& newRoot);
  void replaceZelRepository(AnXmlNode& newSite, AnXmlNode& ownSiteList, AnXmlNode& ownSite, int order,
                            const wchar_t* siteType);
  void copyXmlAttributesAlter(AnXmlNode& src, AnXmlNode& dst, int order, const wchar_t* siteType);
  void copyXmlAttributes(AnXmlNode& src, AnXmlNode& dst);
  void copyXmlSubNodes(AnXmlNode& src, AnXmlNode& dst);
  // The own list's text with the first "<CaBundle>" tag cut. False when no
  // path, no file, or a read failure.
  bool GetSiteListBuffer(std::wstring& text);
  // Writes list text to the standard site list location. 0 or a code.
  int CreateSiteListFromBuffer(const std::wstring& text);

  // ---- Process-wide cache ---------------------------------------------------------
  static tag_Site* m_pSiteList;
  static int32_t m_iChange;

 private:
  friend struct CSitesHelperInternals;

  // Text form (kind 3) in either direction; internal, not exported.
  VLM_HIDDEN bool EncryptDecryptPassword(const std::wstring& in, std::wstring& out, bool bEncrypt);
  VLM_HIDDEN void Construct(const std::wstring* pPath);
  // Reads the children of a SiteList element into a new list at *ppHead as
  // the reader does; bSitesOnly drops every child that is not one of the six
  // site elements (proxy lists included). Returns the last body's result.
  VLM_HIDDEN int ReadSitesOfSiteList(const AdvXMLParser::Element& siteList, tag_Site** ppHead, bool bSitesOnly);
  // Reads the SiteList (the last one wins) and Policies children of a site
  // list document's root; parser exceptions pass through. Returns the last
  // body's result (0 without sites).
  VLM_HIDDEN int ReadSiteListRoot(const AdvXMLParser::Element& root, tag_Site** ppHead);
  // Stores the Setting children of a Policies element as policy settings.
  VLM_HIDDEN void ReadPolicies(const AdvXMLParser::Element& policies);
  // Fills a zeroed body of the element's kind as its table says. Returns 0.
  VLM_HIDDEN int FillSiteBody(const AdvXMLParser::Element& element, const SiteElementSpec& spec, void* pBody);
  // Reads the entries of a ProxyConfigList into site's body (the last one
  // wins) and returns the last entry's result, result when it has none.
  VLM_HIDDEN int ReadProxyConfigList(const AdvXMLParser::Element& list, tag_Site& site, int result);
  // Decrypts value into field; name is the element's, for the masked line of
  // a password that does not fit.
  VLM_HIDDEN void ReadPassword(const std::wstring& value, wchar_t* field, bool bAlwaysTextForm, const wchar_t* name);
  // Appends child name holding clear encrypted (text form), marked
  // Encrypted="1"; empty text when it cannot be encrypted.
  VLM_HIDDEN void WritePassword(AdvXMLParser::Element& parent, const wchar_t* name, const wchar_t* clear);
  // Appends pSite, written as a record of kind, behind the writer's cursor
  // as its table says, and moves the cursor to it. Returns 0.
  VLM_HIDDEN int AddSite(tag_Site* pSite, int index, int32_t kind, const wchar_t* traceMessage);
  // The document CreateSiteList writes to target, as text: false when it
  // could not be built (nothing is to be written); result as CreateSiteList
  // gives it (-1 when the last record has an unknown kind).
  VLM_HIDDEN bool BuildSiteListText(tag_Site* sites, const std::wstring& target, const std::wstring& globalVersion,
                                    const std::wstring& localVersion, const std::wstring& type,
                                    const std::vector<std::wstring>& caCertificates, std::string& text, int& result);

  std::wstring m_siteListPath;
  std::wstring m_currentPath;
  std::wstring m_localVersion;
  std::wstring m_globalVersion;
  std::wstring m_siteListType;
  std::wstring m_unusedText;  // kept for layout; no operation uses it
  AdvXMLParser::ElementRef m_pLastSiteElement;
  std::map<std::wstring, std::wstring> m_policySettings;
  int32_t m_iManagedOverride;
  bool m_bUnusedFlag;  // kept for layout; no operation uses it
  bool m_bReencrypting;
};

}  // namespace sitehlp

#endif  // VLM_SITEHLP_SITESHELPER_H
