// sitelist server-info [--all] [--plain-port] [--json]: where the management
// server is.
#include <CLI/CLI.hpp>

#include <limits>
#include <memory>
#include <string>

#include "Command.h"
#include "Context.h"
#include "Output.h"

namespace sitelist {
namespace {

constexpr int c_noPort = std::numeric_limits<int>::min();

struct InfoOptions {
  bool all = false;
  bool plainPort = false;
  bool json = false;
};

int Run(Context& ctx, const InfoOptions& o) {
  std::wstring name, server, ip, netbios, version;
  // The outputs are written only when a SPIPE site was found; a list without
  // any site also answers 0, and leaves the port as it was.
  int port = c_noPort;
  if (const int status = ctx.CheckList(ctx.OwnListPath())) return status;
  const std::size_t mark = ctx.Log().Mark();
  const int rc = ctx.Helper().GetVantorServerInfo(name, server, ip, netbios, port, version, o.all, o.plainPort);
  if (rc == -8) return ctx.FailCode(rc);
  if (rc < 0) return ctx.ReadFailure(ctx.OwnListPath(), rc, mark);
  if (rc > 0 || port == c_noPort) return ctx.Fail("the site list holds no site");
  if (o.json) {
    PrintJson({{"name", Narrow(name)}, {"server", Narrow(server)}, {"serverIP", Narrow(ip)},
               {"netbiosName", Narrow(netbios)}, {"port", port}, {"version", Narrow(version)}});
    return 0;
  }
  PrintFields({{"Name", Narrow(name)},
               {"Server", Narrow(server)},
               {"Server IP", Narrow(ip)},
               {"NetBIOS name", Narrow(netbios)},
               {"Port", std::to_string(port)},
               {"Version", Narrow(version)}});
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<InfoOptions>();
  CLI::App* sub = app.add_subcommand("server-info", "Name, address, port and version of the management server");
  sub->add_flag("--all", o->all, "Also the further SPIPE sites, by order, joined with ';'");
  sub->add_flag("--plain-port", o->plainPort, "The server port even when a secure port is set");
  sub->add_flag("--json", o->json, "Print one JSON document (with --all the texts stay joined with ';')");
  sub->footer("Example:\n  sitelist server-info --all");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(90, &Setup);

}  // namespace
}  // namespace sitelist
