// The management server endpoint: pointing the helper's own site list at a
// management server, and telling where that server is.
#include <cstdlib>
#include <map>
#include <vector>

#include "port/log/Log.h"
#include "port/strings/Strings.h"
#include "sitehlp/Allocation.h"
#include "sitehlp/Component.h"
#include "sitehlp/SiteKinds.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

namespace {

constexpr wchar_t c_spipeRelativePath[] = L"Software";

// The first SPIPE site of the list, NULL when there is none.
tag_Site* FirstSpipeSite(tag_Site* list) {
  for (tag_Site* site = list; site; site = site->pNext)
    if (IsSpipeSite(site)) return site;
  return nullptr;
}

// A stored address holding a "[" anywhere is taken as a bracketed IPv6
// literal: its first and last characters are dropped, whatever they are.
std::wstring UnbracketedIP(const wchar_t* stored) {
  const std::wstring ip(stored);
  if (ip.find(L'[') == std::wstring::npos) return ip;
  if (ip.size() < 2) return std::wstring();
  return ip.substr(1, ip.size() - 2);
}

int ServerPort(const tag_HttpSite& site, bool plainPortOnly) {
  if (site.nSecurePort != 0 && !plainPortOnly) return static_cast<int>(site.nSecurePort);
  return site.nPort;
}

// A new SPIPE record for a management server met for the first time: type
// "master", the vendor's name, relative path "Software", the one port for all
// three addresses.
void FillNewSpipeSite(CSitesHelper& helper, tag_Site& site, int32_t port, const std::wstring& serverIP,
                      const std::wstring& server, const std::wstring& netbiosName) {
  site.bEnabled = 1;
  site.bLocal = 0;
  site.nOrder = 0;
  site.nSiteType = SITE_TYPE_HTTP;
  helper.CopyWStr(site.szType, STR_SITE_TYPE_MASTER, c_nameCapacity);
  tag_HttpSite& http = site.httpSite;
  helper.CopyWStr(http.szSiteElement, ZEL_XML_SITELIST_SPIPE_SITE, c_nameCapacity);
  helper.CopyWStr(http.szName, ZEL_XML_SITELIST_VANTOR_MASTER_SITE, c_nameCapacity);
  helper.CopyWStr(http.szServer, server.c_str(), c_nameCapacity);
  helper.CopyWStr(http.szServerIP, serverIP.c_str(), c_serverIPCapacity);
  helper.CopyWStr(http.szServerName, netbiosName.c_str(), c_serverNameCapacity);
  http.nPort = port;
  http.nServerIPPort = port;
  http.nServerNamePort = port;
  helper.CopyWStr(http.szRelativePath, c_spipeRelativePath, c_pathCapacity);
  http.nUseAuth = 0;
  http.szUserName[0] = L'\0';
  http.szPassword[0] = L'\0';
}

}  // namespace

int CSitesHelper::SetSpipeSiteForUpdSite(unsigned int port, const std::wstring& serverIP, const std::wstring& server,
                                         const std::wstring& netbiosName) {
  const std::wstring path = m_siteListPath;
  std::wstring globalVersion;
  std::wstring localVersion;
  std::wstring siteListType;
  int hr = GetSitelistVersions(path, globalVersion, localVersion, siteListType);
  if (hr != c_success) {
    logError(c_component, L"Failed to get  version of site list " + path + Hr(hr));
    return hr;
  }

  // The certificates are carried over into the rewritten list; when they
  // cannot be read the list is written without them.
  std::vector<std::wstring> caCertificates;
  GetCaCertificates(path, caCertificates);
  tag_Site* list = nullptr;
  hr = ReadSiteList(path, &list);
  if (hr != c_success) {  // a positive code counts as failure too
    logError(c_component, L"Failed to read site list " + path + Hr(hr));
    FreeSiteListMemory(list);
    return hr;
  }

  const int32_t sitePort = static_cast<int32_t>(port);
  tag_Site* newSite = nullptr;
  tag_Site* merged = nullptr;
  if (tag_Site* spipe = FirstSpipeSite(list)) {
    // Updated in place: the site keeps its order, type and path, and the
    // list keeps its versions.
    spipe->bEnabled = 1;
    CopyWStr(spipe->httpSite.szServer, server.c_str(), c_nameCapacity);
    CopyWStr(spipe->httpSite.szServerIP, serverIP.c_str(), c_serverIPCapacity);
    CopyWStr(spipe->httpSite.szServerName, netbiosName.c_str(), c_serverNameCapacity);
    CopyWStr(spipe->httpSite.szName, ZEL_XML_SITELIST_VANTOR_MASTER_SITE, c_nameCapacity);
    spipe->httpSite.nPort = sitePort;
    spipe->httpSite.nServerIPPort = sitePort;
    spipe->httpSite.nServerNamePort = sitePort;
    hr = CreateSiteList(list, path, globalVersion, localVersion, siteListType, caCertificates);
    if (hr != c_success) logError(c_component, L"Failed to create site list " + path + Hr(hr));
  } else {
    newSite = AllocateRecord();
    if (!newSite) {
      FreeSiteListMemory(list);
      logError(c_component, L"Can't allocate memory " + Hr(hr));
      return c_outOfMemory;
    }
    FillNewSpipeSite(*this, *newSite, sitePort, serverIP, server, netbiosName);

    hr = MergeSiteLists(newSite, list, true, &merged);
    if (hr != c_success) {
      logError(c_component, L"Failed to merge Spipe site to site list " + path + Hr(hr));
    } else {
      // An empty local version makes the writer stamp a fresh one.
      localVersion.clear();
      hr = CreateSiteList(merged, path, globalVersion, localVersion, siteListType, caCertificates);
      if (hr != c_success) logError(c_component, L"Failed to create site list " + path + Hr(hr));
    }
  }

  FreeSiteListMemory(list);
  std::free(newSite);
  FreeSiteListMemory(merged);
  return hr;
}

int CSitesHelper::GetVantorServerInfo(std::wstring& name, std::wstring& server, std::wstring& serverIP,
                                      std::wstring& netbiosName, int& port, std::wstring& version, bool allServers,
                                      bool plainPortOnly) {
  ADetailTrace trace(c_component, L"Get Vantor Server IP Address");
  tag_Site* list = nullptr;
  int hr = SmartReadSiteList(L"", &list);
  if (hr < 0 || !list) {
    // A list the cache did not take (a read that failed half-way) is ours.
    if (list && list != m_pSiteList) FreeSiteListMemory(list);
    return hr;
  }

  tag_Site* spipeSites = nullptr;
  hr = GetSpipeSite(list, &spipeSites);
  if (hr != c_success || !spipeSites) {
    FreeSiteListMemory(spipeSites);  // copies made before running out of memory
    return hr;
  }

  const tag_HttpSite& first = spipeSites->httpSite;
  name = first.szName;
  server = first.szServer;
  serverIP = UnbracketedIP(first.szServerIP);
  netbiosName = first.szServerName;
  port = ServerPort(first, plainPortOnly);
  version = first.szVersion;

  if (allServers) {
    // Further servers in ascending order; of equal orders the first in list
    // order is kept.
    std::map<int32_t, const tag_Site*> byOrder;
    for (const tag_Site* site = spipeSites->pNext; site; site = site->pNext) byOrder.emplace(site->nOrder, site);
    for (const auto& entry : byOrder) {
      const tag_HttpSite& further = entry.second->httpSite;
      name += L";" + std::wstring(further.szName);
      server += L";" + std::wstring(further.szServer);
      serverIP += L";" + UnbracketedIP(further.szServerIP);
      netbiosName += L";" + std::wstring(further.szServerName);
      version += L";" + std::wstring(further.szVersion);
      port = ServerPort(further, plainPortOnly);  // the last, highest order wins
    }
  }

  FreeSiteListMemory(spipeSites);
  return hr;
}

}  // namespace sitehlp
