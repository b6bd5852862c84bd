// sitelist validate FILE [--json]: the source checks an import would run,
// rule by rule.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

#include "Command.h"
#include "Context.h"
#include "Output.h"
#include "SourceRules.h"

namespace sitelist {
namespace {

struct ValidateOptions {
  std::string file;
  bool json = false;
};

int Run(Context& ctx, const ValidateOptions& o) {
  ctx.WantInformationLines();  // every failed rule is an information line
  sitehlp::CSitesHelper& helper = ctx.Helper();
  const bool managed = ctx.Managed();
  if (const int status = ctx.CheckList(o.file)) return status;
  std::size_t mark = ctx.Log().Mark();
  sitehlp::tag_Site* sites = nullptr;
  int rc = helper.MustReadSiteList(Wide(o.file), &sites);
  if (rc < 0) {
    helper.FreeSiteListMemory(sites);
    return ctx.ReadFailure(o.file, rc, mark);
  }
  mark = ctx.Log().Mark();
  rc = helper.SourceSiteListCheck(sites, managed);
  const std::vector<RuleVerdict> verdicts = Verdicts(ctx, FactsOf(sites, managed), mark);
  helper.FreeSiteListMemory(sites);
  if (o.json)
    PrintJson({{"path", o.file}, {"managed", managed}, {"accepted", rc == 0}, {"result", rc},
               {"rules", VerdictsJson(verdicts)}});
  // Every failure of the checks is a refusal: -9 for failed rules, the code
  // of finding no SPIPE site (-8, or -2 for a list without sites) otherwise.
  if (rc < 0) return o.json ? c_exitRefused : ReportRefusal(ctx, o.file, rc, verdicts);
  if (!o.json) std::printf("%s: accepted for %s agent\n", o.file.c_str(), managed ? "a managed" : "an unmanaged");
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<ValidateOptions>();
  CLI::App* sub = app.add_subcommand("validate", "Run the source checks of an import on a site list file");
  sub->add_option("FILE", o->file, "The outside site list to check")->required()->type_name("");
  sub->add_flag("--json", o->json, "Print one JSON document with every rule and its verdict");
  sub->footer("Every failed rule is printed with the site at fault; exit status 0 when the list\n"
              "would be accepted, 5 when the checks refuse it. The management server rules\n"
              "apply to a managed agent (--managed, --unmanaged or VLM_MANAGED); a versioned\n"
              "management server also needs its key files beside FILE.\n"
              "Example:\n  sitelist validate --managed /tmp/incoming/SiteList.xml");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(50, &Setup);

}  // namespace
}  // namespace sitelist
