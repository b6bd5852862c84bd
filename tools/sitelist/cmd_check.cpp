// sitelist check [NAME...] [--json] [--timeout SECONDS] [--resolve
// HOST:PORT:ADDRESS]... [--connect-to HOST:PORT:HOST2:PORT2]... [--no-lookup]:
// can this device reach its sites, through its proxy, trusting its CA bundle?
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "CheckOutput.h"
#include "CheckRun.h"
#include "Command.h"
#include "Context.h"
#include "EditableList.h"
#include "SiteView.h"

namespace sitelist {
namespace {

struct CheckOptions {
  std::vector<std::string> names;
  bool json = false;
  double timeout = 5;
  std::vector<std::string> resolve, connectTo;
  bool noLookup = false;
};

std::optional<InputError> Settle(const CheckOptions& o, TransferSettings& settings) {
  settings.timeoutMs = std::max(1L, std::lround(o.timeout * 1000));
  for (const std::string& entry : o.resolve)
    if (auto e = settings.pins.AddResolve(entry)) return e;
  for (const std::string& entry : o.connectTo)
    if (auto e = settings.pins.AddConnectTo(entry)) return e;
  settings.pins.SetNoLookup(o.noLookup);
  return std::nullopt;
}

// The enabled sites, or the named ones (enabled or not), in the order the
// agent tries them.
int Chosen(const EditableList& list, const std::vector<std::string>& names,
           std::vector<const sitehlp::tag_Site*>& out) {
  for (const sitehlp::tag_Site* site : list.Sites())
    if (names.empty() && site->bEnabled) out.push_back(site);
  for (const std::string& name : names) {
    int status = 0;
    const sitehlp::tag_Site* site = list.Find(name, L"", status);
    if (!site) return status;
    if (std::find(out.begin(), out.end(), site) == out.end()) out.push_back(site);
  }
  std::stable_sort(out.begin(), out.end(), [](const sitehlp::tag_Site* a, const sitehlp::tag_Site* b) {
    return TriedBefore(a->nOrder, b->nOrder);
  });
  return 0;
}

int Run(Context& ctx, const CheckOptions& o) {
  TransferSettings settings;
  if (auto error = Settle(o, settings)) return ctx.Fail(error->text, c_exitUsage);
  settings.verbose = ctx.options.verbose;
  const std::string path = ctx.OwnListPath();
  EditableList list(ctx, path, path);
  if (const int status = list.Read()) return status;
  std::vector<const sitehlp::tag_Site*> sites;
  if (const int status = Chosen(list, o.names, sites)) return status;
  const std::vector<sitehlp::tag_Site*> proxies = list.Proxies();
  const ProxyRules rules = proxies.empty() ? ProxyRules() : ProxyRules(proxies.front()->proxySettings);
  settings.caBundle = CaBundle(list.Certificates());
  std::vector<SitePlan> plans;
  for (const sitehlp::tag_Site* site : sites) plans.push_back(PlanOf(*site, rules));
  const std::vector<SiteResult> results = CheckSites(plans, settings);
  if (o.json)
    PrintCheckJson(path, results);
  else if (results.empty())
    std::printf("no enabled site to check in %s\n", path.c_str());
  else
    PrintCheckTable(results);
  const bool passed = std::all_of(results.begin(), results.end(), [](const SiteResult& r) { return r.outcome.ok; });
  return passed ? c_exitSuccess : c_exitFailed;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<CheckOptions>();
  CLI::App* sub = app.add_subcommand("check",
                                     "Whether the device reaches its sites, through its proxy, trusting its "
                                     "CA certificates");
  sub->add_option("NAME", o->names, "Check only these sites (exact name, else without regard to case)")->type_name("");
  sub->add_flag("--json", o->json, "Print one JSON document instead of the table");
  sub->add_option("--timeout", o->timeout, "Bound on each site's check (default 5)")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.001, 3600.0));
  sub->add_option("--resolve", o->resolve, "Connect to ADDRESS for HOST:PORT instead of looking HOST up (repeatable)")
      ->type_name("HOST:PORT:ADDRESS")
      ->allow_extra_args(false);
  sub->add_option("--connect-to", o->connectTo, "Connect to HOST2:PORT2 whenever HOST:PORT is meant (repeatable)")
      ->type_name("HOST:PORT:HOST2:PORT2")
      ->allow_extra_args(false);
  sub->add_flag("--no-lookup", o->noLookup, "Look no name up: a name that no --resolve pins counts as not resolved");
  sub->footer(
      "Checks every enabled site of the agent's list (or the named ones) at once, in the\n"
      "order the agent tries them, doing the least that proves a site serves: HTTP and\n"
      "SuperAgent sites a HEAD of the relative path; the management server a TLS\n"
      "handshake on its secure port, verified against the list's own CA certificates,\n"
      "and a connection on its plain port; FTP sites a login and a change to the\n"
      "relative path; UNC sites a connection to port 445; local sites a read of the\n"
      "path. HTTP-family and FTP sites go through the list's proxy unless their host is\n"
      "excluded, or local while local addresses bypass it. Exit status 0 when every\n"
      "site checked passed, 1 otherwise. With -v the transfer log goes to stderr,\n"
      "passwords masked.\n"
      "Example:\n  sitelist check\n  sitelist check --timeout 2 --resolve mgmt.corp.example:443:192.0.2.10 "
      "Vantor_MasterSite");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(55, &Setup);

}  // namespace
}  // namespace sitelist
