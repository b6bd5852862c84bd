// sitelist set-order NAME N: the rank at which the agent tries one site.
#include <CLI/CLI.hpp>

#include <climits>
#include <memory>
#include <string>

#include "Command.h"
#include "Context.h"
#include "EditableList.h"
#include "SiteKinds.h"

namespace sitelist {
namespace {

struct OrderOptions {
  SiteChoice site;
  int order = 0;
  ChangeOptions change;
};

EditResult SetOrder(Context& ctx, EditableList& list, const OrderOptions& o) {
  int status = 0;
  sitehlp::tag_Site* site = list.Find(o.site, status);
  if (!site) return {status};
  const std::string described = Described(*site);
  // The reader gives a fallback site order 0 whatever the file says, and the
  // writer leaves a mirror's order out.
  if (IsFallback(*site)) return {ctx.Fail(described + " is the fallback site, which takes no order (it is tried last)")};
  if (IsMirror(*site)) return {ctx.Fail(described + " is a mirror, which takes no order")};
  site->nOrder = o.order;
  const std::string order = std::to_string(o.order);
  return {0, described + " now has order " + order + " in " + list.ShownFile(),
          described + " in " + list.ShownFile() + " already has order " + order + "; nothing to change"};
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<OrderOptions>();
  CLI::App* sub = app.add_subcommand("set-order", "Set the order (rank) of a site of the agent's site list");
  AddSiteChoice(*sub, o->site);
  sub->add_option("N", o->order, "The new order; the agent tries lower orders first")
      ->required()
      ->check(CLI::Range(1, INT_MAX));
  AddChangeOptions(*sub, o->change);
  sub->footer("The other sites keep their orders.\n"
              "Example:\n  sitelist set-order VendorHttp 1");
  return {sub, [o, &ctx] {
            return RunEdit(ctx, o->change, [&](EditableList& list) { return SetOrder(ctx, list, *o); });
          }};
}

const Registration c_registration(76, &Setup);

}  // namespace
}  // namespace sitelist
