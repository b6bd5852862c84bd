// sitelist set-server: points the agent's site list at a management server.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

#include "Command.h"
#include "Context.h"

namespace sitelist {
namespace {

struct ServerOptions {
  unsigned int port = 0;
  std::string ip;
  std::string server;
  std::string netbios;
};

int Run(Context& ctx, const ServerOptions& o) {
  sitehlp::CSitesHelper& helper = ctx.Helper();
  const int rc = helper.SetSpipeSiteForUpdSite(o.port, Wide(o.ip), Wide(o.server), Wide(o.netbios));
  if (rc != 0) return ctx.FailCode(rc);
  std::printf("management server %s:%u (%s, %s) set in %s\n", o.server.c_str(), o.port, o.ip.c_str(),
              o.netbios.c_str(), Narrow(helper.GetSiteListPath()).c_str());
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<ServerOptions>();
  CLI::App* sub = app.add_subcommand("set-server", "Point the agent's site list at a management server");
  sub->add_option("--port", o->port, "Port of the server, its address and its name")
      ->required()
      ->check(CLI::Range(1u, 65535u))
      ->type_name("N");
  sub->add_option("--ip", o->ip, "IP address of the server")->required()->type_name("ADDR");
  sub->add_option("--server", o->server, "Host name or FQDN of the server")->required()->type_name("NAME");
  sub->add_option("--netbios", o->netbios, "NetBIOS name of the server")->required()->type_name("NAME");
  sub->footer("Updates the first SPIPE site in place, or adds one (Vantor_MasterSite, path\n"
              "Software) and stamps a new local version.\n"
              "Example:\n  sitelist set-server --port 443 --ip 192.0.2.30 --server mgmt2.corp.example --netbios MGMT02");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(80, &Setup);

}  // namespace
}  // namespace sitelist
