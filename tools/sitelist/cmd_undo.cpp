// sitelist undo: the agent's list (or --site-list) put back as it was before
// the tool's last change; run again, as it was before the change before.
#include <CLI/CLI.hpp>

#include <memory>

#include "Change.h"
#include "Command.h"
#include "Context.h"
#include "PutBack.h"

namespace sitelist {
namespace {

int Run(Context& ctx, const ChangeOptions& options) {
  std::string list;
  std::vector<HistoryEntry> entries;
  if (const int status = LoadHistory(ctx, list, entries)) return status;
  if (entries.empty()) return ctx.Fail("no history of " + list + ": nothing to undo");
  const HistoryEntry* entry = FindEntry(entries, UndoTarget(entries));
  if (!entry)
    return ctx.Fail("nothing left to undo: " + list + " is back before the oldest change its history keeps (entry " +
                    std::to_string(entries.front().id) + ")");
  return RunPutBack(ctx, options, list, *entry);
}

Bound Setup(CLI::App& app, Context& ctx) {
  auto options = std::make_shared<ChangeOptions>();
  CLI::App* sub = app.add_subcommand("undo", "Put the list back as it was before the tool's last change");
  AddChangeOptions(*sub, *options);
  sub->footer("The list, its key files and FIPS marker come back byte for byte from the history\n"
              "(see history); a file that did not exist is removed. An undo is kept in the\n"
              "history like any change, and a second undo goes one change further back rather\n"
              "than taking the first one back; to take an undo back, restore the entry it made.\n"
              "Example:\n  sitelist undo --dry-run\n  sitelist undo");
  return {sub, [options, &ctx] { return Run(ctx, *options); }};
}

const Registration c_registration(134, &Setup);

}  // namespace
}  // namespace sitelist
