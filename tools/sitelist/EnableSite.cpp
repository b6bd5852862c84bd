#include "EnableSite.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "Context.h"
#include "EditableList.h"
#include "SiteKinds.h"

namespace sitelist {
namespace {

struct EnableOptions {
  bool enable = true;
  SiteChoice site;
  ChangeOptions change;
};

EditResult SetEnabled(EditableList& list, const EnableOptions& o) {
  int status = 0;
  sitehlp::tag_Site* site = list.Find(o.site, status);
  if (!site) return {status};
  site->bEnabled = o.enable;
  const std::string described = Described(*site);
  const std::string state = o.enable ? "enabled" : "disabled";
  return {0, state + " " + described + " in " + list.ShownFile(),
          described + " in " + list.ShownFile() + " is already " + state + "; nothing to change"};
}

}  // namespace

Bound SetupEnableCommand(CLI::App& app, Context& ctx, bool enable) {
  auto o = std::make_shared<EnableOptions>();
  o->enable = enable;
  CLI::App* sub = enable ? app.add_subcommand("enable", "Enable a site of the agent's site list")
                         : app.add_subcommand("disable", "Disable a site of the agent's site list (it stays listed)");
  AddSiteChoice(*sub, o->site);
  AddChangeOptions(*sub, o->change);
  sub->footer(enable ? "Example:\n  sitelist enable VendorFtp" : "Example:\n  sitelist disable --dry-run VendorFtp");
  return {sub, [o, &ctx] { return RunEdit(ctx, o->change, [&](EditableList& list) { return SetEnabled(list, *o); }); }};
}

}  // namespace sitelist
