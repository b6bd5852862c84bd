// sitelist import FILE [--key-dir DIR] and sitelist install FILE [--key-dir DIR]:
// an outside site list becomes the agent's own, with its key files.
#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "Change.h"
#include "Command.h"
#include "Context.h"
#include "SourceRules.h"

namespace sitelist {
namespace {

struct ImportOptions {
  std::string file;
  std::string keyDir;
  ChangeOptions change;
};

// Why the import or install of the source failed, rule by rule where the
// source checks refused it.
int ImportFailure(Context& ctx, const ImportOptions& o, int rc, std::size_t mark) {
  if (const int status = ctx.LockFailure(mark)) return status;
  if (rc == -9 || rc == -8 || rc == -2) {
    const std::unique_ptr<sitehlp::CSitesHelper> source = ctx.MakeHelper(o.file);
    sitehlp::tag_Site* sites = nullptr;
    source->ReadSiteList(Wide(o.file), &sites);
    const CheckFacts facts = FactsOf(sites, ctx.Managed());
    source->FreeSiteListMemory(sites);
    return ReportRefusal(ctx, o.file, rc, Verdicts(ctx, facts, mark));
  }
  if (rc == -4 || rc == -5 || rc == -10) return ctx.ReadFailure(o.file, rc, mark);
  if (rc == -1) return ctx.Fail("the key files could not be placed or the site list not written (-1)");
  return ctx.FailCode(rc);
}

// The library answers 0 without writing for a source without any site.
bool HoldsSites(Context& ctx, const std::string& file) {
  sitehlp::tag_Site* sites = nullptr;
  const std::unique_ptr<sitehlp::CSitesHelper> source = ctx.MakeHelper(file);
  source->ReadSiteList(Wide(file), &sites);
  const bool any = sites != nullptr;
  source->FreeSiteListMemory(sites);
  return any;
}

int RunImport(Context& ctx, const ImportOptions& o, bool checked) {
  ctx.WantInformationLines();  // failed rules, the overwrite warning, key file hints
  const ChangeTarget target{ctx.OwnListPath(), true, true};
  return ApplyChange(ctx, target, o.change, [&](const std::string& file, const std::string& shownFile) {
    if (const int status = ctx.CheckList(o.file)) return StepResult{status, false, ""};
    const std::unique_ptr<sitehlp::CSitesHelper> helper = ctx.MakeHelper(file);
    const std::size_t mark = ctx.Log().Mark();
    const int rc = checked ? helper->ImportSiteList(Wide(o.file), Wide(o.keyDir))
                           : helper->InstallSiteList(Wide(o.file), Wide(o.keyDir));
    if (rc != 0) return StepResult{ImportFailure(ctx, o, rc, mark), false, ""};
    if (!HoldsSites(ctx, o.file))
      return StepResult{ctx.Fail(o.file + " holds no site; nothing was " + (checked ? "imported" : "installed")), false,
                        ""};
    return StepResult{0, true, (checked ? "imported " : "installed ") + o.file + " into " + shownFile};
  });
}

CLI::App* AddCommand(CLI::App& app, const char* name, const char* description, ImportOptions& o) {
  CLI::App* sub = app.add_subcommand(name, description);
  sub->add_option("FILE", o.file, "The outside site list")->required()->type_name("");
  sub->add_option("--key-dir", o.keyDir,
                  "Directory holding srpubkey.bin for a list without a versioned management server")
      ->type_name("DIR");
  AddChangeOptions(*sub, o.change);
  return sub;
}

Bound SetupImport(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<ImportOptions>();
  CLI::App* sub = AddCommand(app, "import", "Check an outside site list and make it the agent's own, with its key files",
                             *o);
  sub->footer("Runs the source checks first (see validate; exit status 5 when they refuse the\n"
              "list); key files are taken from beside FILE and placed beside the agent's list.\n"
              "Example:\n  sitelist import --dry-run /tmp/incoming/SiteList.xml\n"
              "  sitelist import /tmp/incoming/SiteList.xml");
  return {sub, [o, &ctx] { return RunImport(ctx, *o, true); }};
}

Bound SetupInstall(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<ImportOptions>();
  CLI::App* sub = AddCommand(app, "install", "Make an outside site list the agent's own without the source checks",
                             *o);
  sub->footer("For setting an agent up; key files are placed as by import.\n"
              "Example:\n  sitelist install --key-dir /tmp/keys /tmp/setup/SiteList.xml");
  return {sub, [o, &ctx] { return RunImport(ctx, *o, false); }};
}

const Registration c_import(60, &SetupImport);
const Registration c_install(70, &SetupInstall);

}  // namespace
}  // namespace sitelist
