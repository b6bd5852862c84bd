// What check prints: a table of the sites with a closing count, or one JSON
// document.
#ifndef VLM_TOOLS_SITELIST_CHECKOUTPUT_H
#define VLM_TOOLS_SITELIST_CHECKOUTPUT_H

#include <string>
#include <vector>

#include "CheckRun.h"

namespace sitelist {

void PrintCheckTable(const std::vector<SiteResult>& results);
// {"path", "sites": [{"name", "element", "check", "via", "proxy", "ok",
// "reason", "detail", "ms", then "httpStatus" for a HEAD that was answered
// and "certificate" {"subject", "issuer"} for a server that did not verify}]}
void PrintCheckJson(const std::string& path, const std::vector<SiteResult>& results);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_CHECKOUTPUT_H
