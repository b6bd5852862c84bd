// sitelist versions [FILE] [--json]: the version stamps and type of a site list.
#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "Command.h"
#include "Context.h"
#include "Output.h"

namespace sitelist {
namespace {

struct VersionsOptions {
  std::string file;
  bool json = false;
};

int Run(Context& ctx, const VersionsOptions& o) {
  sitehlp::CSitesHelper& helper = ctx.Helper();
  const std::string path = o.file.empty() ? ctx.OwnListPath() : o.file;
  if (const int status = ctx.CheckList(path)) return status;
  const std::size_t mark = ctx.Log().Mark();
  std::wstring global, local, type;
  const int rc = helper.GetSitelistVersions(Wide(path), global, local, type);
  if (rc < 0) return ctx.ReadFailure(path, rc, mark);
  if (o.json)
    PrintJson({{"path", path}, {"globalVersion", Narrow(global)}, {"localVersion", Narrow(local)}, {"type", Narrow(type)}});
  else
    PrintFields({{"Global version", Narrow(global)}, {"Local version", Narrow(local)}, {"Type", Narrow(type)}});
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<VersionsOptions>();
  CLI::App* sub = app.add_subcommand("versions", "Global version, local version and type of a site list");
  sub->add_option("FILE", o->file, "Site list file (default: the agent's own)")->type_name("");
  sub->add_flag("--json", o->json, "Print one JSON document");
  sub->footer("Example:\n  sitelist versions\n  sitelist versions /tmp/incoming/SiteList.xml");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(20, &Setup);

}  // namespace
}  // namespace sitelist
