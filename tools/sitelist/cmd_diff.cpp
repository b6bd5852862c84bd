// sitelist diff A B [--json]: what differs between two site lists, by
// meaning rather than by text.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

#include "Command.h"
#include "Context.h"
#include "DiffOutput.h"
#include "ListDiff.h"

namespace sitelist {
namespace {

struct DiffOptions {
  std::string a, b;
  bool json = false;
};

int Read(Context& ctx, const std::string& path, ListState& state) {
  if (const int status = ctx.CheckList(path)) return status;
  const std::size_t mark = ctx.Log().Mark();
  const int rc = ReadListState(ctx, path, state);
  if (rc != 0) return ctx.ReadFailure(path, rc, mark);
  if (!state.exists) return ctx.ReadFailure(path, -4, mark);
  return 0;
}

int Run(Context& ctx, const DiffOptions& o) {
  ListState a, b;
  if (const int status = Read(ctx, o.a, a)) return status;
  if (const int status = Read(ctx, o.b, b)) return status;
  const ListDiff diff = DiffLists(a, b);
  if (o.json)
    PrintJson(DiffJson(diff));
  else
    std::printf("%s", DiffText(diff, o.a, o.b).c_str());
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<DiffOptions>();
  CLI::App* sub = app.add_subcommand("diff", "Compare two site lists: versions, FIPS mode, policies, certificates, sites");
  sub->add_option("A", o->a, "The list before")->required()->type_name("");
  sub->add_option("B", o->b, "The list after")->required()->type_name("");
  sub->add_flag("--json", o->json, "Print one JSON document");
  sub->footer("Sites are matched by element and name; for a changed site every changed field is\n"
              "shown old -> new, passwords only as changed, set or cleared. CA certificates are\n"
              "compared by SHA-256 fingerprint. Exit status 0 whether or not the lists differ.\n"
              "Example:\n  sitelist diff /var/backups/SiteList.xml /opt/Velmora/orx/scratch/etc/SiteList.xml");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(15, &Setup);

}  // namespace
}  // namespace sitelist
