// sitelist validate FILE: the source checks an import would run.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

#include "Command.h"
#include "Context.h"

namespace sitelist {
namespace {

int Run(Context& ctx, const std::string& file) {
  ctx.WantInformationLines();  // every failed rule is an information line
  sitehlp::CSitesHelper& helper = ctx.Helper();
  const bool managed = ctx.Managed();
  sitehlp::tag_Site* sites = nullptr;
  int rc = helper.MustReadSiteList(Wide(file), &sites);
  if (rc < 0) {
    helper.FreeSiteListMemory(sites);
    return ctx.FailCode(rc);
  }
  if (!sites) return ctx.Fail("the site list holds no site");
  rc = helper.SourceSiteListCheck(sites, managed);
  helper.FreeSiteListMemory(sites);
  if (rc != 0) return ctx.FailCode(rc);
  std::printf("%s: accepted for %s agent\n", file.c_str(), managed ? "a managed" : "an unmanaged");
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto file = std::make_shared<std::string>();
  CLI::App* sub = app.add_subcommand("validate", "Run the source checks of an import on a site list file");
  sub->add_option("FILE", *file, "The outside site list to check")->required()->type_name("");
  sub->footer("Every failed rule is printed; exit status 0 only when the list would be accepted.\n"
              "The management server rules apply to a managed agent (--managed, --unmanaged\n"
              "or VLM_MANAGED); a versioned management server also needs its key files\n"
              "beside FILE.\n"
              "Example:\n  sitelist validate --managed /tmp/incoming/SiteList.xml");
  return {sub, [file, &ctx] { return Run(ctx, *file); }};
}

const Registration c_registration(50, &Setup);

}  // namespace
}  // namespace sitelist
