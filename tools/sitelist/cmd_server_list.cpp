// sitelist server-list [--from DIR] [--to DIR]: derives ServerSiteList.xml
// from a SiteList.xml without the client's own sites.
#include <CLI/CLI.hpp>

#include <filesystem>
#include <memory>
#include <string>

#include "Change.h"
#include "Command.h"
#include "Context.h"

namespace sitelist {
namespace {

struct ServerListOptions {
  std::string from;
  std::string to;
  ChangeOptions change;
};

// The framework data directory: the parent of the directory that holds the
// agent's site list.
std::string DataDirectory(sitehlp::CSitesHelper& helper) {
  wchar_t etc[4096] = {};
  helper.GetSiteListFilename(etc, sizeof etc / sizeof etc[0]);
  return std::filesystem::path(Narrow(etc)).parent_path().string();
}

int Run(Context& ctx, const ServerListOptions& o) {
  sitehlp::CSitesHelper& helper = ctx.Helper();
  const std::string from =
      o.from.empty() ? std::filesystem::path(Narrow(helper.GetSiteListPath())).parent_path().string() : o.from;
  const std::string to = o.to.empty() ? DataDirectory(helper) : o.to;
  // Not a list the agent reads its sites from: no change notice.
  const ChangeTarget target{(std::filesystem::path(to) / "ServerSiteList.xml").string(), false, false};
  return ApplyChange(ctx, target, o.change, [&](const std::string& file, const std::string&) {
    if (const int status = ctx.CheckList(from + "/SiteList.xml")) return StepResult{status, false, ""};
    const std::size_t mark = ctx.Log().Mark();
    const std::string dir = std::filesystem::path(file).parent_path().string();
    if (!sitehlp::CSitesHelper::createServerSiteListFromSiteList(Wide(from).c_str(), Wide(dir).c_str())) {
      if (const int status = ctx.FileFailure(from + "/SiteList.xml", mark)) return StepResult{status, false, ""};
      return StepResult{ctx.Fail("ServerSiteList.xml was not written from " + from + "/SiteList.xml to " + to), false,
                        ""};
    }
    return StepResult{0, true, "wrote " + to + "/ServerSiteList.xml from " + from + "/SiteList.xml"};
  });
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<ServerListOptions>();
  CLI::App* sub = app.add_subcommand(
      "server-list", "Derive ServerSiteList.xml from SiteList.xml without the client's own (Local=\"1\") sites");
  sub->add_option("--from", o->from, "Directory holding SiteList.xml (default: that of the agent's site list)")
      ->type_name("DIR");
  sub->add_option("--to", o->to, "Directory to write ServerSiteList.xml to (default: the framework data directory)")
      ->type_name("DIR");
  AddChangeOptions(*sub, o->change);
  sub->footer("Example:\n  sitelist server-list --to /tmp/relay");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(100, &Setup);

}  // namespace
}  // namespace sitelist
