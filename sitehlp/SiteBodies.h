// Which record body a site element produces.
#ifndef VLM_SITEHLP_SITEBODIES_H
#define VLM_SITEHLP_SITEBODIES_H

#include <cstddef>

#include "port/xml/AdvXMLParser.h"

namespace sitehlp {

// sizeof the body the element fills (ProxyConfig, the HTTP family, FTPSite,
// UNCSite, LocalSite); 0 for an element that is no site.
std::size_t SiteBodySize(const AdvXMLParser::Element& element);

}  // namespace sitehlp

#endif  // VLM_SITEHLP_SITEBODIES_H
