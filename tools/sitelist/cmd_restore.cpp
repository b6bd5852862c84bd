// sitelist restore ID: the agent's list (or --site-list) put back as history
// entry ID keeps it.
#include <CLI/CLI.hpp>

#include <memory>

#include "Change.h"
#include "Command.h"
#include "Context.h"
#include "PutBack.h"

namespace sitelist {
namespace {

struct RestoreOptions {
  long id = 0;
  ChangeOptions change;
};

std::string KeptIds(const std::vector<HistoryEntry>& entries) {
  if (entries.empty()) return "the history is empty";
  if (entries.size() == 1) return "the history keeps entry " + std::to_string(entries.front().id);
  return "the history keeps entries " + std::to_string(entries.front().id) + " to " + std::to_string(entries.back().id);
}

int Run(Context& ctx, const RestoreOptions& o) {
  std::string list;
  std::vector<HistoryEntry> entries;
  if (const int status = LoadHistory(ctx, list, entries)) return status;
  const HistoryEntry* entry = FindEntry(entries, o.id);
  if (!entry)
    return ctx.Fail("no history entry " + std::to_string(o.id) + " of " + list + "; " + KeptIds(entries));
  return RunPutBack(ctx, o.change, list, *entry);
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<RestoreOptions>();
  CLI::App* sub = app.add_subcommand("restore", "Put the list back as history entry ID keeps it");
  sub->add_option("ID", o->id, "The entry's id, as history shows it")
      ->required()
      ->type_name("")
      ->check(CLI::Range(1L, 999999999L));
  AddChangeOptions(*sub, o->change);
  sub->footer("Like undo, byte for byte, for any entry the history keeps; the restore is kept\n"
              "in the history too, so undo takes it back.\n"
              "Example:\n  sitelist history\n  sitelist restore --dry-run 3\n  sitelist restore 3");
  return {sub, [o, &ctx] { return Run(ctx, *o); }};
}

const Registration c_registration(136, &Setup);

}  // namespace
}  // namespace sitelist
