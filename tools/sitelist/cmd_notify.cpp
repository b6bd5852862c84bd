// sitelist notify: a change notice for the cached site list.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>

#include "Command.h"
#include "Context.h"
#include "Output.h"

namespace sitelist {
namespace {

int Run(Context& ctx, bool json) {
  sitehlp::CSitesHelper& helper = ctx.Helper();
  const std::size_t mark = ctx.Log().Mark();
  const int before = sitehlp::CSitesHelper::m_iChange;
  helper.needToUpdateInMemSiteList();
  // The notice counts only once the cache lock was taken.
  if (sitehlp::CSitesHelper::m_iChange == before) {
    if (const int status = ctx.LockFailure(mark)) return status;
    return ctx.Fail("the change notice was not recorded", c_exitLock);
  }
  if (json)
    PrintJson({{"changeNotice", true}});
  else
    std::printf("change notice recorded\n");
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto json = std::make_shared<bool>(false);
  CLI::App* sub = app.add_subcommand("notify", "Record a change notice under the cache lock \"SmartSiteListLock\"");
  sub->add_flag("--json", *json, "Print one JSON document {\"changeNotice\": true}");
  sub->footer("Waits for every cached read in progress. The notice counter belongs to each\n"
              "process, so from the shell this shows that the cache lock can be taken.\n"
              "Example:\n  sitelist notify");
  return {sub, [json, &ctx] { return Run(ctx, *json); }};
}

const Registration c_registration(150, &Setup);

}  // namespace
}  // namespace sitelist
