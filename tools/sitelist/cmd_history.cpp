// sitelist history [--json]: the entries kept of the agent's list (or
// --site-list), newest first, and the one undo would put back.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>

#include "Change.h"
#include "Command.h"
#include "Context.h"
#include "History.h"

namespace sitelist {
namespace {

std::string CommandText(const HistoryEntry& entry) {
  if (!entry.restored) return entry.command;
  return entry.command + " (to " + std::to_string(entry.restored) + ")";
}

void PrintTable(const std::vector<HistoryEntry>& entries, long undo) {
  Table table({"ID", "TIME", "COMMAND", "LOCAL VERSION", "SITES"});
  for (auto e = entries.rbegin(); e != entries.rend(); ++e)
    table.AddRow({std::to_string(e->id), e->time, CommandText(*e), e->localVersion ? *e->localVersion : "-",
                  e->sites ? std::to_string(*e->sites) : "-"});
  table.Print();
  if (const HistoryEntry* entry = FindEntry(entries, undo))
    std::printf("undo puts the list back %s\n", EntryPhrase(*entry).c_str());
  else
    std::printf("undo has nothing left to put back\n");
}

int Run(Context& ctx, bool json) {
  const std::string list = AbsoluteListPath(ctx.OwnListPath());
  const History history(list);
  std::vector<HistoryEntry> entries;
  std::string why;
  if (!history.Load(entries, why)) return ctx.Fail(why);
  const long undo = UndoTarget(entries);
  if (json) {
    Json rows = Json::array();
    for (auto e = entries.rbegin(); e != entries.rend(); ++e) rows.push_back(EntryJson(*e));
    PrintJson({{"file", list}, {"folder", history.Folder()}, {"undo", undo ? Json(undo) : Json()}, {"entries", rows}});
    return 0;
  }
  if (entries.empty()) {
    std::printf("no history of %s\n", list.c_str());
    return 0;
  }
  PrintTable(entries, undo);
  return 0;
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto json = std::make_shared<bool>(false);
  CLI::App* sub = app.add_subcommand("history", "The states of the list kept before each change, newest first");
  sub->add_flag("--json", *json, "Print one JSON document");
  sub->footer("Every command that writes keeps the list, its key files and FIPS marker as they\n"
              "were, in the folder <list>.history beside it: the last 10 entries, or as many\n"
              "as --keep or VLM_HISTORY_KEEP say (0 keeps none). LOCAL VERSION and SITES are\n"
              "those of the kept list; '-' when there was none. An undo or restore shows the\n"
              "entry it put back.\n"
              "Example:\n  sitelist history\n  sitelist history --json");
  return {sub, [json, &ctx] { return Run(ctx, *json); }};
}

const Registration c_registration(132, &Setup);

}  // namespace
}  // namespace sitelist
