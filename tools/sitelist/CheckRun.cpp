#include "CheckRun.h"

#include <algorithm>
#include <chrono>

#include "LocalPath.h"

namespace sitelist {
namespace {

// A site checked with two probes (the management server's TLS and plain
// ports) passes when both do. A failure gives the reason and detail of the
// first that failed, then any other failure (by its label) that says
// something else; a pass shows what both found.
Outcome Combined(const SitePlan& plan, const std::vector<Outcome>& parts) {
  if (parts.size() == 1) return parts.front();
  Outcome whole;
  whole.ok = std::all_of(parts.begin(), parts.end(), [](const Outcome& o) { return o.ok; });
  const Outcome* first = nullptr;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const Outcome& part = parts[i];
    std::string text;
    if (whole.ok) {
      text = plan.probes[i].label + " " + part.detail;
    } else if (!part.ok && !first) {
      first = &part;
      text = part.detail;
      whole.reason = part.reason;
      whole.certificate = part.certificate;
    } else if (!part.ok && (part.reason != first->reason || part.detail != first->detail)) {
      text = plan.probes[i].label + ": " + part.reason + ": " + part.detail;
    }
    if (!text.empty()) whole.detail += (whole.detail.empty() ? "" : "; ") + text;
  }
  return whole;
}

SiteResult Started(const SitePlan& plan) {
  SiteResult result{plan.name, plan.element, plan.check, "direct", std::nullopt, {}, 0};
  if (plan.localPath) result.via = "local";
  if (plan.proxy) {
    result.via = "proxy";
    result.proxy = Shown(plan.proxy->endpoint);
  }
  return result;
}

SiteResult CheckedLocally(const SitePlan& plan) {
  using Clock = std::chrono::steady_clock;
  SiteResult result = Started(plan);
  const Clock::time_point start = Clock::now();
  result.outcome = CheckLocalPath(*plan.localPath);
  result.ms = static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
  return result;
}

}  // namespace

std::vector<SiteResult> CheckSites(const std::vector<SitePlan>& plans, const TransferSettings& settings) {
  std::vector<ProbeJob> jobs;
  for (const SitePlan& plan : plans)
    for (const Probe& probe : plan.probes)
      jobs.push_back({&probe, plan.name + (probe.label.empty() ? "" : "/" + probe.label)});
  const std::vector<ProbeResult> probeResults = RunProbes(jobs, settings);
  const OutcomeContext context{settings.timeoutMs, settings.caBundle.empty()};

  std::vector<SiteResult> results;
  std::size_t next = 0;
  for (const SitePlan& plan : plans) {
    if (plan.localPath) {
      results.push_back(CheckedLocally(plan));
      continue;
    }
    SiteResult result = Started(plan);
    std::vector<Outcome> parts;
    for (const Probe& probe : plan.probes) {
      const ProbeResult& r = probeResults[next++];
      parts.push_back(OutcomeOf(probe, r, context));
      result.ms = std::max(result.ms, r.ms);
    }
    result.outcome = Combined(plan, parts);
    results.push_back(result);
  }
  return results;
}

}  // namespace sitelist
