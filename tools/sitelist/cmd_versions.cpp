// sitelist versions [FILE]: the version stamps and type of a site list.
#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "Command.h"
#include "Context.h"
#include "Output.h"

namespace sitelist {
namespace {

int Run(Context& ctx, const std::string& file) {
  sitehlp::CSitesHelper& helper = ctx.Helper();
  std::wstring global, local, type;
  const int rc = helper.GetSitelistVersions(Wide(file), global, local, type);
  if (rc < 0) return ctx.FailCode(rc);
  PrintFields({{"Global version", Narrow(global)}, {"Local version", Narrow(local)}, {"Type", Narrow(type)}});
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto file = std::make_shared<std::string>();
  CLI::App* sub = app.add_subcommand("versions", "Global version, local version and type of a site list");
  sub->add_option("FILE", *file, "Site list file (default: the agent's own)")->type_name("");
  sub->footer("Example:\n  sitelist versions\n  sitelist versions /tmp/incoming/SiteList.xml");
  return {sub, [file, &ctx] { return Run(ctx, *file); }};
}

const Registration c_registration(20, &Setup);

}  // namespace
}  // namespace sitelist
