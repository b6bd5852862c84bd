#include "CheckOutput.h"

#include <cstdio>

#include "Output.h"

namespace sitelist {
namespace {

std::string ViaCell(const SiteResult& r) { return r.proxy ? "proxy " + *r.proxy : r.via; }

std::string DetailCell(const Outcome& o) { return o.ok ? o.detail : o.reason + ": " + o.detail; }

Json SiteJson(const SiteResult& r) {
  const Outcome& o = r.outcome;
  Json site = {{"name", r.name},
               {"element", r.element},
               {"check", r.check},
               {"via", r.via},
               {"proxy", r.proxy ? Json(*r.proxy) : Json()},
               {"ok", o.ok},
               {"reason", o.ok ? Json() : Json(o.reason)},
               {"detail", o.detail},
               {"ms", r.ms}};
  if (o.httpStatus) site["httpStatus"] = *o.httpStatus;
  if (o.certificate) site["certificate"] = {{"subject", o.certificate->subject}, {"issuer", o.certificate->issuer}};
  return site;
}

}  // namespace

void PrintCheckTable(const std::vector<SiteResult>& results) {
  Table table({"Site", "Check", "Via", "Result", "ms", "Detail"});
  std::size_t failed = 0;
  for (const SiteResult& r : results) {
    table.AddRow(
        {r.name, r.check, ViaCell(r), r.outcome.ok ? "ok" : "failed", std::to_string(r.ms), DetailCell(r.outcome)});
    if (!r.outcome.ok) ++failed;
  }
  table.Print();
  std::printf("\nchecked %zu site%s: %zu ok, %zu failed\n", results.size(), results.size() == 1 ? "" : "s",
              results.size() - failed, failed);
}

void PrintCheckJson(const std::string& path, const std::vector<SiteResult>& results) {
  Json sites = Json::array();
  for (const SiteResult& r : results) sites.push_back(SiteJson(r));
  PrintJson({{"path", path}, {"sites", sites}});
}

}  // namespace sitelist
