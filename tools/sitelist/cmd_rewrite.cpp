// sitelist rewrite NEWFILE [--repositories] [--server] [--key-dir DIR]:
// replaces sections of the agent's site list document from another list.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

#include "Command.h"
#include "Context.h"

namespace sitelist {
namespace {

struct RewriteOptions {
  std::string file;
  bool repositories = false;
  bool server = false;
  std::string keyDir;
};

int Run(Context& ctx, const RewriteOptions& o) {
  ctx.WantInformationLines();  // key file hints
  sitehlp::CSitesHelper& helper = ctx.Helper();
  if (!helper.modifySiteList(Wide(o.file).c_str(), o.repositories, o.server, AString(Wide(o.keyDir))))
    return ctx.Fail("the site list was not rewritten from " + o.file);
  std::string what;
  if (o.repositories) what = "vendor repositories";
  if (o.server) what += std::string(what.empty() ? "" : ", ") + "SPIPE sites and CA bundle";
  std::printf("rewrote %s from %s (%s replaced)\n", Narrow(helper.GetSiteListPath()).c_str(), o.file.c_str(),
              what.empty() ? "nothing" : what.c_str());
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<RewriteOptions>();
  CLI::App* sub = app.add_subcommand(
      "rewrite", "Replace the vendor repositories and/or the SPIPE sites and CA bundle of the agent's list from NEWFILE");
  sub->add_option("NEWFILE", o->file, "The site list to take the sections from")->required()->type_name("");
  sub->add_flag("--repositories", o->repositories, "Replace the vendor's default HTTP and FTP repositories");
  sub->add_flag("--server", o->server, "Replace the SPIPE sites and the CA bundle");
  sub->add_option("--key-dir", o->keyDir,
                  "Directory holding srpubkey.bin for a list without a versioned management server")
      ->type_name("DIR");
  sub->footer("Everything else in the document is kept as it is; NEWFILE's key files are placed\n"
              "beside the agent's site list.\n"
              "Example:\n  sitelist rewrite --server /tmp/incoming/SiteList.xml");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(110, &Setup);

}  // namespace
}  // namespace sitelist
