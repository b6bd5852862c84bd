// sitelist load: site list text from stdin to the standard location.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>
#include <iterator>
#include <string>

#include "Command.h"
#include "Context.h"

namespace sitelist {
namespace {

constexpr const char c_standardLocation[] = "/opt/Velmora/orx/scratch/etc/SiteList.xml";

int Run(Context& ctx) {
  const std::string bytes{std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
  const int rc = ctx.Helper().CreateSiteListFromBuffer(Wide(bytes));
  if (rc != 0) return ctx.FailCode(rc);
  std::printf("site list written to the standard location %s\n", c_standardLocation);
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  CLI::App* sub = app.add_subcommand(
      "load", "Write site list text read from stdin to the standard location /opt/Velmora/orx/scratch/etc/SiteList.xml");
  sub->footer("The text is read as UTF-8 and written with fresh version stamps; a list without a\n"
              "CA bundle keeps the certificates of the current site list.\n"
              "Example:\n  sitelist load < /tmp/SiteList.txt");
  return {sub, [&ctx] { return Run(ctx); }};
}

const Registration c_registration(130, &Setup);

}  // namespace
}  // namespace sitelist
