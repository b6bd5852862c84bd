#include "SourceRules.h"

#include <cstdio>

#include "Context.h"
#include "SiteKinds.h"

namespace sitelist {
namespace {

enum class Scope { List, Managed, SpipeSite, VersionedServer };
enum class Match { Exact, Prefix, Suffix };

struct Rule {
  const char* id;
  const char* requirement;
  Scope scope;
  const char* level;  // of the library's line when the rule fails
  Match match;
  const char* text;
};

// The library's rules in the order it checks them, with the line it logs
// when one fails.
constexpr Rule c_rules[] = {
    {"sites", "the list holds at least one site", Scope::List, "INFO", Match::Exact, "no sites in site list"},
    {"spipe-site", "a managed agent's list has a SPIPE site", Scope::Managed, "ERROR", Match::Prefix,
     "Failed to get SPIPE site hr="},
    {"not-local", "the SPIPE site is not local", Scope::SpipeSite, "INFO", Match::Exact, "must not be local"},
    {"http-kind", "the SPIPE site is of the HTTP kind", Scope::SpipeSite, "INFO", Match::Prefix,
     "type must be HTTP site not "},
    {"master-type", "the SPIPE site's type is master", Scope::SpipeSite, "INFO", Match::Prefix,
     "site type must be master not "},
    {"spipe-element", "the SPIPE site is a SpipeSite element", Scope::SpipeSite, "INFO", Match::Prefix,
     "proto type must be SpipeSite not "},
    {"name", "the SPIPE site has a name", Scope::SpipeSite, "INFO", Match::Exact, "name cannot be empty"},
    {"server", "the SPIPE site has a server name", Scope::SpipeSite, "INFO", Match::Exact,
     "server name cannot be empty"},
    {"server-ip", "the SPIPE site has an IP address", Scope::SpipeSite, "INFO", Match::Exact,
     "SPIPE IP address cannot be empty"},
    {"computer-name", "the SPIPE site has a computer (NetBIOS) name", Scope::SpipeSite, "INFO", Match::Exact,
     "computer name cannot be empty"},
    {"path", "the SPIPE site has a relative path", Scope::SpipeSite, "INFO", Match::Exact, "path cannot be empty"},
    {"request-key", "a versioned server's request key file lies beside the list", Scope::VersionedServer, "INFO",
     Match::Suffix, "/req2048seckey.bin is invalid"},
    {"server-key", "a versioned server's public key file lies beside the list", Scope::VersionedServer, "INFO",
     Match::Suffix, "/sr2048pubkey.bin is invalid"},
};

bool Applies(const Rule& rule, const CheckFacts& facts) {
  switch (rule.scope) {
    case Scope::List: return true;
    case Scope::Managed: return facts.managed;
    case Scope::SpipeSite: return facts.managed && facts.hasSpipe;
    case Scope::VersionedServer: return facts.managed && facts.hasSpipe && !facts.spipeVersion.empty();
  }
  return false;
}

bool Matches(const Rule& rule, const LogLine& line) {
  if (line.level != rule.level || line.component != "SiteHlp") return false;
  const std::string text = rule.text;
  const std::string& m = line.message;
  switch (rule.match) {
    case Match::Exact: return m == text;
    case Match::Prefix: return m.rfind(text, 0) == 0;
    case Match::Suffix: return m.size() >= text.size() && m.compare(m.size() - text.size(), text.size(), text) == 0;
  }
  return false;
}

}  // namespace

CheckFacts FactsOf(const sitehlp::tag_Site* list, bool managed) {
  CheckFacts facts;
  facts.managed = managed;
  facts.hasSites = list != nullptr;
  for (const sitehlp::tag_Site* site = list; site; site = site->pNext) {
    if (!IsSpipe(*site)) continue;
    facts.hasSpipe = true;
    facts.spipeName = NameOf(*site);
    facts.spipeVersion = Narrow(site->httpSite.szVersion);
    break;
  }
  return facts;
}

std::vector<RuleVerdict> Verdicts(Context& ctx, const CheckFacts& facts, std::size_t mark) {
  const std::vector<LogLine> lines = ctx.Log().LinesSince(mark);
  std::vector<RuleVerdict> verdicts;
  for (const Rule& rule : c_rules) {
    const bool spipeRule = rule.scope == Scope::SpipeSite || rule.scope == Scope::VersionedServer;
    RuleVerdict v{rule.id, rule.requirement, Applies(rule, facts) ? "passed" : "not applied",
                  spipeRule && facts.hasSpipe, facts.spipeName, ""};
    if (!v.aboutSite) v.site.clear();
    for (const LogLine& line : lines) {
      if (!Matches(rule, line)) continue;
      v.verdict = "failed";
      v.message = line.message;
      if (!ctx.options.verbose) ctx.Log().Restated(line);
      break;
    }
    verdicts.push_back(v);
  }
  return verdicts;
}

int ReportRefusal(Context& ctx, const std::string& file, int code, const std::vector<RuleVerdict>& verdicts) {
  std::string text = file + ": refused by the source checks (" + std::to_string(code) + "):";
  for (const RuleVerdict& v : verdicts) {
    if (v.verdict != "failed") continue;
    text += "\n  " + v.rule + ": ";
    if (v.aboutSite) text += "SPIPE site \"" + v.site + "\": ";
    text += v.rule == "spipe-site" && code == -8 ? "the list has no SPIPE site" : v.message;
  }
  return ctx.Fail(text, c_exitRefused);
}

Json VerdictsJson(const std::vector<RuleVerdict>& verdicts) {
  Json rules = Json::array();
  for (const RuleVerdict& v : verdicts) {
    Json rule{{"rule", v.rule}, {"requirement", v.requirement}, {"verdict", v.verdict}};
    rule["site"] = v.aboutSite ? Json(v.site) : Json();
    rule["message"] = v.message.empty() ? Json() : Json(v.message);
    rules.push_back(rule);
  }
  return rules;
}

}  // namespace sitelist
