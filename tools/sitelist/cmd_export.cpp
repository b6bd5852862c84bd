// sitelist export: the agent's site list as buffer text on stdout.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>

#include "Command.h"
#include "Context.h"

namespace sitelist {
namespace {

int Run(Context& ctx) {
  std::wstring text;
  if (!ctx.Helper().GetSiteListBuffer(text)) return ctx.Fail("the site list could not be read");
  const std::string bytes = Narrow(text);
  std::fwrite(bytes.data(), 1, bytes.size(), stdout);
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  CLI::App* sub = app.add_subcommand("export", "Print the agent's site list as buffer text (UTF-8) on stdout");
  sub->footer("The text is the library's buffer form: the CA bundle's opening tag is left out.\n"
              "Example:\n  sitelist export > /tmp/SiteList.txt");
  return {sub, [&ctx] { return Run(ctx); }};
}

const Registration c_registration(120, &Setup);

}  // namespace
}  // namespace sitelist
