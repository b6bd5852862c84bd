// sitelist certs [FILE]: the CA certificates a site list carries.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "Context.h"

namespace sitelist {
namespace {

int Run(Context& ctx, const std::string& file) {
  std::vector<std::wstring> certificates;
  const int rc = ctx.Helper().GetCaCertificates(Wide(file), certificates);
  if (rc < 0) return ctx.FailCode(rc);
  for (const std::wstring& pem : certificates) std::printf("%s\n", Narrow(pem).c_str());
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto file = std::make_shared<std::string>();
  CLI::App* sub = app.add_subcommand("certs", "The CA certificates of a site list, as PEM texts, one after another");
  sub->add_option("FILE", *file, "Site list file (default: the agent's own)")->type_name("");
  sub->footer("Prints nothing for a list without certificates.\n"
              "Example:\n  sitelist certs > /tmp/agent-ca.pem");
  return {sub, [file, &ctx] { return Run(ctx, *file); }};
}

const Registration c_registration(40, &Setup);

}  // namespace
}  // namespace sitelist
