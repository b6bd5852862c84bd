// sitelist remove-site NAME: takes one site out of the agent's list.
#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "Command.h"
#include "Context.h"
#include "EditableList.h"
#include "SiteKinds.h"

namespace sitelist {
namespace {

struct RemoveOptions {
  SiteChoice site;
  bool force = false;
  ChangeOptions change;
};

std::size_t SpipeSites(const EditableList& list) {
  std::size_t n = 0;
  for (const sitehlp::tag_Site* site : list.Sites()) n += IsSpipe(*site);
  return n;
}

EditResult Remove(Context& ctx, EditableList& list, const RemoveOptions& o) {
  int status = 0;
  sitehlp::tag_Site* site = list.Find(o.site, status);
  if (!site) return {status};
  const std::string described = Described(*site);
  // Without its SPIPE site the agent no longer reaches its management
  // server; without the fallback site it has no last resort.
  if (!o.force && IsSpipe(*site) && SpipeSites(list) == 1)
    return {ctx.Fail(described + " is the last SPIPE site (the management server) of " + list.ShownFile() +
                     "; give --force to remove it all the same")};
  if (!o.force && IsFallback(*site))
    return {ctx.Fail(described + " is the fallback site of " + list.ShownFile() +
                     "; give --force to remove it all the same")};
  list.Remove(site);
  return {0, "removed " + described + " from " + list.ShownFile(), ""};
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<RemoveOptions>();
  CLI::App* sub = app.add_subcommand("remove-site", "Remove a site from the agent's site list");
  AddSiteChoice(*sub, o->site);
  sub->add_flag("--force", o->force, "Also remove the last SPIPE site or the fallback site");
  AddChangeOptions(*sub, o->change);
  sub->footer("Example:\n  sitelist remove-site Branch\n  sitelist remove-site --kind ftp --dry-run VendorFtp");
  return {sub, [o, &ctx] {
            return RunEdit(ctx, o->change, [&](EditableList& list) { return Remove(ctx, list, *o); });
          }};
}

const Registration c_registration(73, &Setup);

}  // namespace
}  // namespace sitelist
