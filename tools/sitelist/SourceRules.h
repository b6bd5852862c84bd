// The source checks of an import, rule by rule. The library checks an
// outside list and logs one line for each rule that fails; the tool knows
// the rules, tells which apply to a list, and gives each its verdict from
// those lines, naming the rule and the site at fault.
#ifndef VLM_TOOLS_SITELIST_SOURCERULES_H
#define VLM_TOOLS_SITELIST_SOURCERULES_H

#include <cstddef>
#include <string>
#include <vector>

#include "Output.h"
#include "sitehlp/SitesHelper.h"

namespace sitelist {

class Context;

// What decides which rules apply to a list.
struct CheckFacts {
  bool managed = false;
  bool hasSites = false;
  bool hasSpipe = false;
  std::string spipeName;     // the first SPIPE site's, the one the rules check
  std::string spipeVersion;  // a versioned server also needs its key files
};

CheckFacts FactsOf(const sitehlp::tag_Site* list, bool managed);

struct RuleVerdict {
  std::string rule;         // e.g. "not-local"
  std::string requirement;  // what the rule asks for
  std::string verdict;      // "passed", "failed" or "not applied"
  bool aboutSite = false;   // the rule looks at the SPIPE site (not at the whole list)
  std::string site;         // that site's name
  std::string message;      // the library's line for a failed rule
};

// Every rule with its verdict, from the library's lines since mark; the lines
// of failed rules are restated by the caller's report, so they are left out
// of the library's own output (kept with -v).
std::vector<RuleVerdict> Verdicts(Context& ctx, const CheckFacts& facts, std::size_t mark);

// "sitelist CMD: FILE: refused by the source checks (CODE):" and one line
// per failed rule: "  RULE: SPIPE site "NAME": what is wrong". Returns c_exitRefused.
int ReportRefusal(Context& ctx, const std::string& file, int code, const std::vector<RuleVerdict>& verdicts);

Json VerdictsJson(const std::vector<RuleVerdict>& verdicts);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_SOURCERULES_H
