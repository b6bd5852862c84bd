// Checks the planned sites: every probe at once, local paths on the spot, and
// one result per site.
#ifndef VLM_TOOLS_SITELIST_CHECKRUN_H
#define VLM_TOOLS_SITELIST_CHECKRUN_H

#include <optional>
#include <string>
#include <vector>

#include "CheckPlan.h"
#include "ProbeOutcome.h"
#include "Transfers.h"

namespace sitelist {

struct SiteResult {
  std::string name;
  std::string element;
  std::string check;
  std::string via;                   // "direct", "proxy" or "local"
  std::optional<std::string> proxy;  // host:port of the proxy the site was reached through
  Outcome outcome;                   // of a site with two probes: both together
  long ms = 0;                       // until its last probe ended
};

std::vector<SiteResult> CheckSites(const std::vector<SitePlan>& plans, const TransferSettings& settings);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_CHECKRUN_H
