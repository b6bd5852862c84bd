// sitelist import FILE [--key-dir DIR] and sitelist install FILE [--key-dir DIR]:
// an outside site list becomes the agent's own, with its key files.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

#include "Command.h"
#include "Context.h"

namespace sitelist {
namespace {

struct ImportOptions {
  std::string file;
  std::string keyDir;
};

int RunImport(Context& ctx, const ImportOptions& o, bool checked) {
  ctx.WantInformationLines();  // failed rules, the overwrite warning, key file hints
  sitehlp::CSitesHelper& helper = ctx.Helper();
  const int rc = checked ? helper.ImportSiteList(Wide(o.file), Wide(o.keyDir))
                         : helper.InstallSiteList(Wide(o.file), Wide(o.keyDir));
  if (rc != 0) return ctx.FailCode(rc);
  std::printf("%s %s into %s\n", checked ? "imported" : "installed", o.file.c_str(),
              Narrow(helper.GetSiteListPath()).c_str());
  return 0;
}

CLI::App* AddCommand(CLI::App& app, const char* name, const char* description, ImportOptions& o) {
  CLI::App* sub = app.add_subcommand(name, description);
  sub->add_option("FILE", o.file, "The outside site list")->required()->type_name("");
  sub->add_option("--key-dir", o.keyDir,
                  "Directory holding srpubkey.bin for a list without a versioned management server")
      ->type_name("DIR");
  return sub;
}

Bound SetupImport(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<ImportOptions>();
  CLI::App* sub = AddCommand(app, "import", "Check an outside site list and make it the agent's own, with its key files",
                             *o);
  sub->footer("Runs the source checks first (see validate); key files are taken from beside FILE\n"
              "and placed beside the agent's site list.\n"
              "Example:\n  sitelist import /tmp/incoming/SiteList.xml");
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
