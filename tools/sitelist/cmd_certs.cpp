// sitelist certs [FILE] [--json]: the CA certificates a site list carries.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "Context.h"
#include "Fingerprint.h"
#include "Output.h"

namespace sitelist {
namespace {

struct CertsOptions {
  std::string file;
  bool json = false;
};

int Run(Context& ctx, const CertsOptions& o) {
  const std::string path = o.file.empty() ? ctx.OwnListPath() : o.file;
  if (const int status = ctx.CheckList(path)) return status;
  const std::size_t mark = ctx.Log().Mark();
  std::vector<std::wstring> certificates;
  const int rc = ctx.Helper().GetCaCertificates(Wide(path), certificates);
  if (rc < 0) return ctx.ReadFailure(path, rc, mark);
  if (!o.json) {
    for (const std::wstring& pem : certificates) std::printf("%s\n", Narrow(pem).c_str());
    return 0;
  }
  Json list = Json::array();
  for (const std::wstring& pem : certificates)
    list.push_back({{"sha256", CertificateFingerprint(Narrow(pem))}, {"text", Narrow(pem)}});
  PrintJson({{"path", path}, {"certificates", list}});
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<CertsOptions>();
  CLI::App* sub = app.add_subcommand("certs", "The CA certificates of a site list, as PEM texts, one after another");
  sub->add_option("FILE", o->file, "Site list file (default: the agent's own)")->type_name("");
  sub->add_flag("--json", o->json, "Print one JSON document with each certificate's SHA-256 fingerprint");
  sub->footer("Prints nothing for a list without certificates.\n"
              "Example:\n  sitelist certs > /tmp/agent-ca.pem");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(40, &Setup);

}  // namespace
}  // namespace sitelist
