// sitelist fips [FILE] [--json]: the FIPS mode flag of a site list.
#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "Command.h"
#include "Context.h"
#include "Output.h"

namespace sitelist {
namespace {

struct FipsOptions {
  std::string file;
  bool json = false;
};

int Run(Context& ctx, const FipsOptions& o) {
  sitehlp::CSitesHelper& helper = ctx.Helper();
  const std::string path = o.file.empty() ? ctx.OwnListPath() : o.file;
  if (const int status = ctx.CheckList(path)) return status;
  const std::size_t mark = ctx.Log().Mark();
  // The FIPS query answers -1 both for an unreadable file and for a list
  // without the flag; the version query tells the two apart.
  std::wstring global, local, type;
  const int rc = helper.GetSitelistVersions(Wide(path), global, local, type);
  if (rc < 0) return ctx.ReadFailure(path, rc, mark);
  std::wstring mode;
  const bool set = helper.GetSitelistFipsMode(Wide(path), mode) == 0;
  if (o.json)
    PrintJson({{"path", path}, {"fipsMode", set ? Json(Narrow(mode)) : Json()}});
  else
    PrintFields({{"FIPS mode", set ? Narrow(mode) : "(not set)"}});
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<FipsOptions>();
  CLI::App* sub = app.add_subcommand("fips", "FIPS mode flag of a site list (\"1\" means FIPS mode)");
  sub->add_option("FILE", o->file, "Site list file (default: the agent's own)")->type_name("");
  sub->add_flag("--json", o->json, "Print one JSON document (fipsMode null when not set)");
  sub->footer("Example:\n  sitelist fips");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(30, &Setup);

}  // namespace
}  // namespace sitelist
