// Where ServerSiteList.xml is kept.
#ifndef VLM_SITEHLP_SERVERSITELIST_SERVERSITELISTPATH_H
#define VLM_SITEHLP_SERVERSITELIST_SERVERSITELISTPATH_H

#include <string>

#include "port/config/IConfiguration.h"
#include "sitehlp/SitesHelper.h"

namespace sitehlp {

// The framework data directory, "/" and the name, joined as text: an empty
// data directory gives "/ServerSiteList.xml", never a path relative to the
// working directory.
inline std::wstring ServerSiteListPath() {
  return IConfiguration::GetConfiguration()->GetFrameworkDataDirectory() + L"/" + c_serverSitelistName;
}

}  // namespace sitehlp

#endif  // VLM_SITEHLP_SERVERSITELIST_SERVERSITELISTPATH_H
