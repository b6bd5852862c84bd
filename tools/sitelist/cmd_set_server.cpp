// sitelist set-server: points the agent's site list at a management server.
#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "Change.h"
#include "Command.h"
#include "Context.h"
#include "SiteInput.h"

namespace sitelist {
namespace {

struct ServerOptions {
  unsigned int port = 0;
  std::string ip;
  std::string server;
  std::string netbios;
  ChangeOptions change;
};

// The SPIPE site's fields take the values whole or not at all.
std::optional<InputError> Check(const ServerOptions& o) {
  if (auto e = CheckLength("--server", o.server, sitehlp::c_nameCapacity - 1, true)) return e;
  if (auto e = CheckLength("--netbios", o.netbios, sitehlp::c_serverNameCapacity - 1, true)) return e;
  if (!IsIpAddress(o.ip)) return InputError{"--ip: \"" + o.ip + "\" is neither an IPv4 nor an IPv6 address"};
  return CheckLength("--ip", o.ip, sitehlp::c_serverIPCapacity - 1);
}

int Run(Context& ctx, const ServerOptions& o) {
  if (auto error = Check(o)) return ctx.Fail(error->text, c_exitUsage);
  const ChangeTarget target{ctx.OwnListPath(), false, true};
  return ApplyChange(ctx, target, o.change, [&](const std::string& file, const std::string& shownFile) {
    if (const int status = ctx.CheckList(file, shownFile)) return StepResult{status, false, ""};
    const std::size_t mark = ctx.Log().Mark();
    const int rc = ctx.MakeHelper(file)->SetSpipeSiteForUpdSite(o.port, Wide(o.ip), Wide(o.server), Wide(o.netbios));
    if (rc != 0) return StepResult{ctx.ReadFailure(shownFile, rc, mark), false, ""};
    return StepResult{0, true,
                      "management server " + o.server + ":" + std::to_string(o.port) + " (" + o.ip + ", " +
                          o.netbios + ") set in " + shownFile};
  });
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<ServerOptions>();
  CLI::App* sub = app.add_subcommand("set-server", "Point the agent's site list at a management server");
  sub->add_option("--port", o->port, "Port of the server, its address and its name")
      ->required()
      ->check(CLI::Range(1u, 65535u))
      ->type_name("N");
  sub->add_option("--ip", o->ip, "IP address of the server (IPv4 or IPv6)")->required()->type_name("ADDR");
  sub->add_option("--server", o->server, "Host name or FQDN of the server")->required()->type_name("NAME");
  sub->add_option("--netbios", o->netbios, "NetBIOS name of the server")->required()->type_name("NAME");
  AddChangeOptions(*sub, o->change);
  sub->footer("Updates the first SPIPE site in place, or adds one (Vantor_MasterSite, path\n"
              "Software) and stamps a new local version. Nothing is written when a value is\n"
              "refused (an empty name, an address that is not IPv4 or IPv6).\n"
              "Example:\n  sitelist set-server --port 443 --ip 192.0.2.30 --server mgmt2.corp.example --netbios MGMT02");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(80, &Setup);

}  // namespace
}  // namespace sitelist

