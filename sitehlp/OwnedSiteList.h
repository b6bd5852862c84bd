// A site list owned by one operation and freed on every path out of it.
#ifndef VLM_SITEHLP_OWNEDSITELIST_H
#define VLM_SITEHLP_OWNEDSITELIST_H

#include "sitehlp/SitesHelper.h"

namespace sitehlp {

class OwnedSiteList {
 public:
  explicit OwnedSiteList(CSitesHelper& helper) : m_helper(helper) {}
  ~OwnedSiteList() { m_helper.FreeSiteListMemory(m_pList); }
  OwnedSiteList(const OwnedSiteList&) = delete;
  OwnedSiteList& operator=(const OwnedSiteList&) = delete;

  // Where an operation that creates a list stores it.
  tag_Site** out() { return &m_pList; }
  tag_Site* get() const { return m_pList; }

 private:
  CSitesHelper& m_helper;
  tag_Site* m_pList = nullptr;
};

}  // namespace sitehlp

#endif  // VLM_SITEHLP_OWNEDSITELIST_H
