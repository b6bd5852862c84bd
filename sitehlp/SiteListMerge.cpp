// Merging site lists: a new chain of copies built from a given list, a base
// list and the agent's own list, carrying the right management server (SPIPE)
// sites and fallback site.
//
// Ownership: the result never shares a record with an input. The one chain
// that is linked rather than copied, the SPIPE copies handed to
// UpdateSpipeSite, belongs to the result once it is reachable from the
// result's head; whatever of it is not reachable is freed by MergeSiteLists.
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "port/log/Log.h"
#include "port/strings/Strings.h"
#include "sitehlp/Allocation.h"
#include "sitehlp/Component.h"
#include "sitehlp/SiteKinds.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

namespace {

constexpr wchar_t c_siteTypeFallback[] = L"fallback";

bool HasFallbackType(const tag_Site* site) { return wcsicmp(site->szType, c_siteTypeFallback) == 0; }

// A record copied whole (header and the largest body, so every kind's part
// is included), detached from the source's chain.
void CopyRecord(tag_Site* copy, const tag_Site* source) {
  std::memcpy(copy, source, sizeof(tag_Site));
  copy->pNext = nullptr;
}

tag_Site* LastOf(tag_Site* chain) {
  while (chain && chain->pNext) chain = chain->pNext;
  return chain;
}

bool IsReachable(const tag_Site* head, const tag_Site* record) {
  for (const tag_Site* site = head; site; site = site->pNext)
    if (site == record) return true;
  return false;
}

}  // namespace

int CSitesHelper::MergeThisSiteList(tag_Site* pSiteList, bool bSkipProxy, tag_Site** ppTail, tag_Site** ppHead) {
  ADetailTrace trace(c_component, L"Merge this sitelist");
  if (!pSiteList || !ppTail || !ppHead) return c_missingArgument;
  int result = c_success;
  for (const tag_Site* source = pSiteList; source; source = source->pNext) {
    tag_Site* copy = AllocateRecord();
    if (!copy) {
      result = c_outOfMemory;
      break;
    }
    const bool keep = (source->nSiteType >= SITE_TYPE_HTTP && source->nSiteType <= SITE_TYPE_LOCAL) ||
                      (source->nSiteType == SITE_TYPE_PROXY && !bSkipProxy);
    if (!keep) {
      std::free(copy);
      continue;
    }
    CopyRecord(copy, source);
    if (*ppTail == nullptr) {
      *ppHead = copy;
    } else {
      (*ppTail)->pNext = copy;
    }
    *ppTail = copy;
  }
  if (*ppTail) (*ppTail)->pNext = nullptr;
  return result;
}

int CSitesHelper::GetSpipeSite(tag_Site* pSiteList, tag_Site** ppSpipeSites) {
  ADetailTrace trace(c_component, L"Getting Spipe site");
  if (!pSiteList || !ppSpipeSites) return c_missingArgument;
  int result = c_noSpipeSite;
  *ppSpipeSites = nullptr;
  tag_Site* tail = nullptr;
  for (const tag_Site* site = pSiteList; site; site = site->pNext) {
    if (!IsSpipeSite(site)) continue;
    tag_Site* copy = AllocateRecord();
    if (!copy) {
      result = c_outOfMemory;  // the copies made so far stay in *ppSpipeSites
      break;
    }
    CopyRecord(copy, site);
    if (tail)
      tail->pNext = copy;
    else
      *ppSpipeSites = copy;
    tail = copy;
    result = c_success;
  }
  return result;
}

int CSitesHelper::GetFallbackSite(tag_Site* pSiteList, tag_Site** ppFallbackSite) {
  ADetailTrace trace(c_component, L"Getting fallback site");
  if (!pSiteList || !ppFallbackSite) return c_missingArgument;
  for (const tag_Site* site = pSiteList; site; site = site->pNext) {
    if (!HasFallbackType(site) || (site->nSiteType != SITE_TYPE_HTTP && site->nSiteType != SITE_TYPE_FTP)) continue;
    tag_Site* copy = AllocateRecord();
    *ppFallbackSite = copy;
    if (!copy) return c_outOfMemory;
    CopyRecord(copy, site);
    return c_success;  // only the first fallback site counts
  }
  return c_generalFailure;
}

int CSitesHelper::UpdateFallbackSite(tag_Site* pFallbackSite, tag_Site** ppTail, tag_Site** ppHead) {
  ADetailTrace trace(c_component, L"Updating fallback site");
  if (!pFallbackSite || !ppTail || !ppHead) return c_missingArgument;
  tag_Site* found = *ppHead;
  while (found && !HasFallbackType(found)) found = found->pNext;

  if (*ppHead == nullptr) {
    *ppHead = pFallbackSite;
    pFallbackSite->pNext = nullptr;
  } else if (found && (pFallbackSite->nSiteType == SITE_TYPE_HTTP || pFallbackSite->nSiteType == SITE_TYPE_FTP)) {
    // The fallback site keeps its place in the chain; only its contents change.
    tag_Site* next = found->pNext;
    std::memcpy(found, pFallbackSite, sizeof(tag_Site));
    found->pNext = next;
    std::free(pFallbackSite);
  } else if (*ppTail) {
    (*ppTail)->pNext = pFallbackSite;
    *ppTail = pFallbackSite;
    pFallbackSite->pNext = nullptr;
  } else {
    // A chain without a known tail cannot take it; the site is consumed
    // all the same, so the caller never has to tell the cases apart.
    std::free(pFallbackSite);
  }
  return c_success;
}

int CSitesHelper::UpdateSpipeSite(tag_Site* pSpipeSites, tag_Site** ppTail, tag_Site** ppHead) {
  ADetailTrace trace(c_component, L"Updating Sitelist site");
  if (!pSpipeSites || !ppTail || !ppHead) return c_missingArgument;
  if (*ppHead == nullptr) {
    *ppHead = pSpipeSites;
    return c_success;
  }

  // The walk goes over the links themselves (starting with the head pointer,
  // in place of a leading scratch record), so the head is examined and
  // unlinked like any other record.
  tag_Site** link = ppHead;
  while (*link && !IsSpipeSite(*link)) link = &(*link)->pNext;

  if (*link) {
    // Remove every SPIPE site from the first one on. After a removal the
    // scan steps twice, so the record right behind a removed SPIPE site is
    // never examined (of two adjacent SPIPE sites the second stays).
    while (*link) {
      tag_Site* site = *link;
      if (!IsSpipeSite(site)) {
        link = &site->pNext;
        continue;
      }
      tag_Site* next = site->pNext;
      *link = next;
      std::free(site);
      if (!next) break;  // the removed site was the last one: the walk ends
      link = &next->pNext;
    }
    tag_Site** end = ppHead;
    while (*end) end = &(*end)->pNext;
    *end = pSpipeSites;
    // The old tail may have been freed above; the new last record is known.
    *ppTail = LastOf(pSpipeSites);
  } else if (*ppTail) {
    // The tail record itself is not linked to the SPIPE chain: the chain ends
    // up reachable only through *ppTail, not from the head.
    tag_Site* savedNext = (*ppTail)->pNext;
    *ppTail = pSpipeSites;
    LastOf(pSpipeSites)->pNext = savedNext;
  }
  return c_success;
}

int CSitesHelper::MergeSiteLists(tag_Site* pSiteList, tag_Site* pBaseSiteList, bool bMergeWithBase,
                                 tag_Site** ppFinalSiteList) {
  ADetailTrace trace(c_component, L"Merge SiteLists");
  if (!ppFinalSiteList) {
    logError(c_component, L"Final SiteList parameter is invalid");
    return c_missingArgument;
  }
  int result = c_success;
  // An allocation failure anywhere fails the whole merge, even when a later
  // step succeeds: a half-copied list must never be handed out (and written).
  bool outOfMemory = false;
  tag_Site* tail = nullptr;
  tag_Site* current = nullptr;  // the agent's own list, read from disk
  tag_Site* spipeSites = nullptr;  // the SPIPE copies taken for the result
  std::size_t spipeCount = 0;

  // Puts the fallback site of source into the result; absence changes nothing.
  auto takeFallback = [&](tag_Site* source) {
    tag_Site* fallback = nullptr;
    const int hr = GetFallbackSite(source, &fallback);
    if (hr == c_outOfMemory) outOfMemory = true;
    if (hr == c_success && fallback && UpdateFallbackSite(fallback, &tail, ppFinalSiteList) != 0) std::free(fallback);
  };
  // Replaces the result's SPIPE sites by those of source, whose success is
  // then the result; absence changes nothing.
  auto takeSpipeSites = [&](tag_Site* source) {
    const int hr = GetSpipeSite(source, &spipeSites);
    if (hr == c_outOfMemory) outOfMemory = true;
    for (const tag_Site* site = spipeSites; site; site = site->pNext) ++spipeCount;
    if (hr == c_success && spipeSites) result = UpdateSpipeSite(spipeSites, &tail, ppFinalSiteList);
  };
  // Notes a step that ran out of memory (copying, or reading the own list).
  auto noteMemory = [&](int hr) {
    if (hr == c_outOfMemory) outOfMemory = true;
    return hr;
  };

  if (bMergeWithBase) {
    if (pBaseSiteList) result = noteMemory(MergeThisSiteList(pBaseSiteList, false, &tail, ppFinalSiteList));
    if (pSiteList) {
      result = noteMemory(MergeThisSiteList(pSiteList, true, &tail, ppFinalSiteList));
    } else {
      result = noteMemory(ReadSiteList(L"", &current));
      if (result >= 0 && current) {
        takeFallback(current);
        takeSpipeSites(current);
      }
    }
  } else {
    result = noteMemory(ReadSiteList(L"", &current));
    if (result >= 0 && current) result = noteMemory(MergeThisSiteList(current, false, &tail, ppFinalSiteList));
    if (pSiteList) {
      takeFallback(pSiteList);
      takeSpipeSites(pSiteList);
    }
  }

  // Clean-up.
  FreeSiteListMemory(current);
  if (outOfMemory) result = c_outOfMemory;
  // SPIPE copies linked into the result belong to it. A chain that is not
  // reachable from the head (hung only on the tail pointer, or left by a
  // failed copy) is freed here, exactly its own records: after the tail rule
  // its last record may link into the result.
  if (spipeSites && !IsReachable(*ppFinalSiteList, spipeSites)) {
    for (std::size_t i = 0; i < spipeCount; ++i) {
      tag_Site* next = spipeSites->pNext;
      std::free(spipeSites);
      spipeSites = next;
    }
  }
  if (result < 0 && *ppFinalSiteList) {
    FreeSiteListMemory(*ppFinalSiteList);
    *ppFinalSiteList = nullptr;
  }
  return result;
}

}  // namespace sitehlp
