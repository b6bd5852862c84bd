// sitelist notify: a change notice for the cached site list.
#include <CLI/CLI.hpp>

#include <cstdio>

#include "Command.h"
#include "Context.h"

namespace sitelist {
namespace {

int Run(Context& ctx) {
  sitehlp::CSitesHelper& helper = ctx.Helper();
  const int before = sitehlp::CSitesHelper::m_iChange;
  helper.needToUpdateInMemSiteList();
  // The notice counts only once the cache lock was taken.
  if (sitehlp::CSitesHelper::m_iChange == before)
    return ctx.Fail("the change notice was not recorded (lock \"SmartSiteListLock\" not taken)");
  std::printf("change notice recorded\n");
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  CLI::App* sub = app.add_subcommand("notify", "Record a change notice under the cache lock \"SmartSiteListLock\"");
  sub->footer("Waits for every cached read in progress. The notice counter belongs to each\n"
              "process, so from the shell this shows that the cache lock can be taken.\n"
              "Example:\n  sitelist notify");
  return {sub, [&ctx] { return Run(ctx); }};
}

const Registration c_registration(150, &Setup);

}  // namespace
}  // namespace sitelist
