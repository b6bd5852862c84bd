// sitelist fips [FILE]: the FIPS mode flag of a site list.
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
  // The FIPS query answers -1 both for an unreadable file and for a list
  // without the flag; the version query tells the two apart.
  std::wstring global, local, type;
  const int rc = helper.GetSitelistVersions(Wide(file), global, local, type);
  if (rc < 0) return ctx.FailCode(rc);
  std::wstring mode;
  const bool set = helper.GetSitelistFipsMode(Wide(file), mode) == 0;
  PrintFields({{"FIPS mode", set ? Narrow(mode) : "(not set)"}});
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto file = std::make_shared<std::string>();
  CLI::App* sub = app.add_subcommand("fips", "FIPS mode flag of a site list (\"1\" means FIPS mode)");
  sub->add_option("FILE", *file, "Site list file (default: the agent's own)")->type_name("");
  sub->footer("Example:\n  sitelist fips");
  return {sub, [file, &ctx] { return Run(ctx, *file); }};
}

const Registration c_registration(30, &Setup);

}  // namespace
}  // namespace sitelist
