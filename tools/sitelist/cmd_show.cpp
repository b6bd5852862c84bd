// sitelist show [FILE] [--json]: everything about a site list at a glance.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "Context.h"
#include "Output.h"
#include "SiteView.h"

namespace sitelist {
namespace {

struct ShowOptions {
  std::string file;
  bool json = false;
};

struct Summary {
  std::wstring path;
  std::wstring globalVersion, localVersion, type;
  bool hasFips = false;
  std::wstring fipsMode;
  std::size_t certificates = 0;
  std::map<std::wstring, std::wstring> policies;
  std::vector<SiteView> sites;
};

std::string OrDash(const std::string& text) { return text.empty() ? "-" : text; }
const char* YesNo(bool value) { return value ? "yes" : "no"; }
const char* JsonBool(bool value) { return value ? "true" : "false"; }

void PrintTable(const Summary& s) {
  std::string policies;
  for (const auto& [name, value] : s.policies) {
    if (!policies.empty()) policies += "\n";
    policies += Narrow(name) + " = " + Narrow(value);
  }
  PrintFields({{"Site list", Narrow(s.path)},
               {"Global version", OrDash(Narrow(s.globalVersion))},
               {"Local version", OrDash(Narrow(s.localVersion))},
               {"Type", OrDash(Narrow(s.type))},
               {"FIPS mode", s.hasFips ? OrDash(Narrow(s.fipsMode)) : "(not set)"},
               {"CA certificates", std::to_string(s.certificates)},
               {"Policy settings", policies.empty() ? "(none)" : policies},
               {"Sites", std::to_string(s.sites.size())}});
  if (s.sites.empty()) return;
  std::printf("\n");
  Table table({"Kind", "Element", "Type", "Name", "Server", "Order", "Enabled", "Local", "Password"});
  for (const SiteView& v : s.sites)
    table.AddRow({v.kind, v.element, OrDash(v.type), OrDash(v.name), OrDash(v.server), std::to_string(v.order),
                  YesNo(v.enabled), YesNo(v.local), v.hasPassword ? "set" : "-"});
  table.Print();
}

void PrintJson(const Summary& s) {
  std::printf("{\n");
  std::printf("  \"path\": %s,\n", JsonString(Narrow(s.path)).c_str());
  std::printf("  \"globalVersion\": %s,\n", JsonString(Narrow(s.globalVersion)).c_str());
  std::printf("  \"localVersion\": %s,\n", JsonString(Narrow(s.localVersion)).c_str());
  std::printf("  \"type\": %s,\n", JsonString(Narrow(s.type)).c_str());
  std::printf("  \"fipsMode\": %s,\n", s.hasFips ? JsonString(Narrow(s.fipsMode)).c_str() : "null");
  std::printf("  \"caCertificates\": %zu,\n", s.certificates);
  std::string policies;
  for (const auto& [name, value] : s.policies)
    policies += (policies.empty() ? "" : ", ") + JsonString(Narrow(name)) + ": " + JsonString(Narrow(value));
  std::printf("  \"policySettings\": {%s},\n", policies.c_str());
  std::printf("  \"sites\": [");
  for (std::size_t i = 0; i < s.sites.size(); ++i) {
    const SiteView& v = s.sites[i];
    std::printf("%s\n    {\"kind\": %s, \"element\": %s, \"type\": %s, \"name\": %s, \"server\": %s, \"order\": %d, "
                "\"enabled\": %s, \"local\": %s, \"passwordSet\": %s}",
                i ? "," : "", JsonString(v.kind).c_str(), JsonString(v.element).c_str(), JsonString(v.type).c_str(),
                JsonString(v.name).c_str(), JsonString(v.server).c_str(), v.order, JsonBool(v.enabled),
                JsonBool(v.local), JsonBool(v.hasPassword));
  }
  std::printf("%s]\n}\n", s.sites.empty() ? "" : "\n  ");
}

int Run(Context& ctx, const ShowOptions& o) {
  sitehlp::CSitesHelper& helper = ctx.Helper();
  Summary s;
  s.path = o.file.empty() ? helper.GetSiteListPath() : Wide(o.file);
  int rc = helper.GetSitelistVersions(s.path, s.globalVersion, s.localVersion, s.type);
  if (rc < 0) return ctx.FailCode(rc);
  s.hasFips = helper.GetSitelistFipsMode(s.path, s.fipsMode) == 0;
  std::vector<std::wstring> certificates;
  rc = helper.GetCaCertificates(s.path, certificates);
  if (rc < 0) return ctx.FailCode(rc);
  s.certificates = certificates.size();
  sitehlp::tag_Site* sites = nullptr;
  rc = helper.ReadSiteList(s.path, &sites);
  for (const sitehlp::tag_Site* site = sites; site; site = site->pNext) s.sites.push_back(ViewOf(*site));
  helper.FreeSiteListMemory(sites);
  if (rc < 0) return ctx.FailCode(rc);
  s.policies = helper.GetPolicySettings();
  if (o.json)
    PrintJson(s);
  else
    PrintTable(s);
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<ShowOptions>();
  CLI::App* sub = app.add_subcommand(
      "show", "Versions, type, FIPS mode, policy settings, CA certificate count and every site of a list");
  sub->add_option("FILE", o->file, "Site list file (default: the agent's own)")->type_name("");
  sub->add_flag("--json", o->json, "Print one JSON document instead of the table");
  sub->footer("Passwords are never shown, only whether one is set.\n"
              "Example:\n  sitelist show\n  sitelist show --json /tmp/incoming/SiteList.xml");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(10, &Setup);

}  // namespace
}  // namespace sitelist
