// sitelist show [FILE] [--json] [--file-order]: everything about a site list
// at a glance.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "Context.h"
#include "ListState.h"
#include "Output.h"

namespace sitelist {
namespace {

struct ShowOptions {
  std::string file;
  bool json = false;
  bool fileOrder = false;
};

std::string OrDash(const std::string& text) { return text.empty() ? "-" : text; }
const char* YesNo(bool value) { return value ? "yes" : "no"; }

// The sites as the agent tries them; sites of one order keep document order.
std::vector<const SiteView*> Ordered(const ListState& s, bool fileOrder) {
  std::vector<const SiteView*> views;
  for (const SiteRecord& r : s.sites) views.push_back(&r.view);
  if (!fileOrder)
    std::stable_sort(views.begin(), views.end(),
                     [](const SiteView* a, const SiteView* b) { return TriedBefore(a->order, b->order); });
  return views;
}

void PrintTable(const ListState& s, const std::vector<const SiteView*>& sites) {
  std::string policies;
  for (const auto& [name, value] : s.policies) policies += (policies.empty() ? "" : "\n") + name + " = " + value;
  PrintFields({{"Site list", s.path},
               {"Global version", OrDash(s.globalVersion)},
               {"Local version", OrDash(s.localVersion)},
               {"Type", OrDash(s.type)},
               {"FIPS mode", s.fipsMode ? OrDash(*s.fipsMode) : "(not set)"},
               {"CA certificates", std::to_string(s.certificates.size())},
               {"Policy settings", policies.empty() ? "(none)" : policies},
               {"Sites", std::to_string(s.sites.size())}});
  if (sites.empty()) return;
  std::printf("\n");
  Table table({"Kind", "Element", "Type", "Name", "Server", "Order", "Enabled", "Local", "Password"});
  for (const SiteView* v : sites)
    table.AddRow({v->kind, v->element, OrDash(v->type), OrDash(v->name), OrDash(v->server), std::to_string(v->order),
                  YesNo(v->enabled), YesNo(v->local), v->hasPassword ? "set" : "-"});
  table.Print();
}

void PrintShowJson(const ListState& s, const std::vector<const SiteView*>& sites) {
  Json policies = Json::object();
  for (const auto& [name, value] : s.policies) policies[name] = value;
  Json list = Json::array();
  for (const SiteView* v : sites)
    list.push_back({{"kind", v->kind}, {"element", v->element}, {"type", v->type}, {"name", v->name},
                    {"server", v->server}, {"order", v->order}, {"enabled", v->enabled}, {"local", v->local},
                    {"passwordSet", v->hasPassword}});
  PrintJson({{"path", s.path},
             {"globalVersion", s.globalVersion},
             {"localVersion", s.localVersion},
             {"type", s.type},
             {"fipsMode", s.fipsMode ? Json(*s.fipsMode) : Json()},
             {"caCertificates", s.certificates.size()},
             {"policySettings", policies},
             {"sites", list}});
}

int Run(Context& ctx, const ShowOptions& o) {
  const std::string path = o.file.empty() ? ctx.OwnListPath() : o.file;
  if (const int status = ctx.CheckList(path)) return status;
  const std::size_t mark = ctx.Log().Mark();
  ListState s;
  const int rc = ReadListState(ctx, path, s);
  if (rc != 0 || !s.exists) return ctx.ReadFailure(path, rc != 0 ? rc : -4, mark);
  const std::vector<const SiteView*> sites = Ordered(s, o.fileOrder);
  if (o.json)
    PrintShowJson(s, sites);
  else
    PrintTable(s, sites);
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<ShowOptions>();
  CLI::App* sub = app.add_subcommand(
      "show", "Versions, type, FIPS mode, policy settings, CA certificate count and every site of a list");
  sub->add_option("FILE", o->file, "Site list file (default: the agent's own)")->type_name("");
  sub->add_flag("--json", o->json, "Print one JSON document instead of the table");
  sub->add_flag("--file-order", o->fileOrder, "List the sites in document order instead of by order");
  sub->footer("Sites are listed as the agent tries them: by order, those without one (the\n"
              "fallback site, mirrors, the proxy) last. Passwords are never shown, only whether\n"
              "one is set.\n"
              "Example:\n  sitelist show\n  sitelist show --json /tmp/incoming/SiteList.xml");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(10, &Setup);

}  // namespace
}  // namespace sitelist
