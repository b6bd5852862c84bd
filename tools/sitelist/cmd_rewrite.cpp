// sitelist rewrite NEWFILE [--repositories] [--server] [--key-dir DIR]:
// replaces sections of the agent's site list document from another list.
#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "Change.h"
#include "Command.h"
#include "Context.h"

namespace sitelist {
namespace {

struct RewriteOptions {
  std::string file;
  bool repositories = false;
  bool server = false;
  std::string keyDir;
  ChangeOptions change;
};

std::string Replaced(const RewriteOptions& o) {
  if (o.repositories && o.server) return "vendor repositories, SPIPE sites and CA bundle";
  return o.repositories ? "vendor repositories" : "SPIPE sites and CA bundle";
}

StepResult Rewrite(Context& ctx, const RewriteOptions& o, const std::string& file, const std::string& shownFile) {
  if (const int status = ctx.CheckList(file, shownFile)) return {status, false, ""};
  if (const int status = ctx.CheckList(o.file)) return {status, false, ""};
  const std::size_t mark = ctx.Log().Mark();
  if (ctx.MakeHelper(file)->modifySiteList(Wide(o.file).c_str(), o.repositories, o.server, AString(Wide(o.keyDir))))
    return {0, true, "rewrote " + shownFile + " from " + o.file + " (" + Replaced(o) + " replaced)"};
  // The rewrite answers only yes or no; the files tell why.
  if (const int status = ctx.FileFailure(shownFile, mark)) return {status, false, ""};
  if (const int status = ctx.FileFailure(o.file, mark)) return {status, false, ""};
  return {ctx.Fail("the site list was not rewritten from " + o.file), false, ""};
}

int Run(Context& ctx, const RewriteOptions& o) {
  if (!o.repositories && !o.server) return ctx.Fail("give --repositories, --server or both", c_exitUsage);
  ctx.WantInformationLines();  // key file hints
  const ChangeTarget target{ctx.OwnListPath(), true, true};
  return ApplyChange(ctx, target, o.change, [&](const std::string& file, const std::string& shownFile) {
    return Rewrite(ctx, o, file, shownFile);
  });
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
  AddChangeOptions(*sub, o->change);
  sub->footer("At least one of --repositories and --server is needed. Everything else in the\n"
              "document is kept as it is; NEWFILE's key files are placed beside the agent's list.\n"
              "Example:\n  sitelist rewrite --server /tmp/incoming/SiteList.xml");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(110, &Setup);

}  // namespace
}  // namespace sitelist
