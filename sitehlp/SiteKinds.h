// Predicates on a record's kind shared by the sitehlp units.
#ifndef VLM_SITEHLP_SITEKINDS_H
#define VLM_SITEHLP_SITEKINDS_H

#include "port/strings/Strings.h"
#include "sitehlp/SitesHelper.h"
#include "xmlschema/sitelist.h"

namespace sitehlp {

// The management server's site: an HTTP-family record read from a
// "SpipeSite" element (the element name compared without regard to case).
inline bool IsSpipeSite(const tag_Site* site) {
  return site->nSiteType == SITE_TYPE_HTTP && wcsicmp(site->httpSite.szSiteElement, ZEL_XML_SITELIST_SPIPE_SITE) == 0;
}

}  // namespace sitehlp

#endif  // VLM_SITEHLP_SITEKINDS_H
