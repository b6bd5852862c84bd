// The one way every command of the tool writes. A write step runs either on
// the files themselves, followed by a change notice, or, with --dry-run, on
// a scratch copy of them: everything runs as in the real run (source checks,
// locks, the writer), the difference between the files and their scratch
// copy is printed, and nothing is written where the agent's files are.
#ifndef VLM_TOOLS_SITELIST_CHANGE_H
#define VLM_TOOLS_SITELIST_CHANGE_H

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace sitelist {

class Context;

// What a write may touch.
struct ChangeTarget {
  std::string file;       // the site list the write replaces; its meaning is compared
  bool keyFiles = false;  // the key files and the FIPS marker beside it may change too
  bool notify = true;     // a list the agent reads: a change notice follows a real write
  long restores = 0;      // undo and restore: the history entry they put back
};

// What a write step did. A failed step has printed its failure already.
struct StepResult {
  int status = 0;        // the exit status
  bool written = false;  // false when it failed, or found nothing to change
  std::string message;   // success: the result line, e.g. "added HttpSite "x" to FILE"
};

// Runs the step with the path it is to write (the target's file, or its
// scratch copy) and the path to name in messages (always the target's file).
using WriteStep = std::function<StepResult(const std::string& file, const std::string& shownFile)>;

struct ChangeOptions {
  bool dryRun = false;
  bool json = false;
};

// The files a history entry of a change of target keeps: the list, and for
// a list the agent reads the key files and FIPS marker beside it, whether
// or not this change touches them, so that every entry is a whole state.
std::vector<std::string> HistoryFiles(const ChangeTarget& target);

// The path ApplyChange gives a target's file: absolute, normalised.
std::string AbsoluteListPath(const std::string& file);

// Adds --dry-run and --json to a writing command.
void AddChangeOptions(CLI::App& command, ChangeOptions& options);

// Runs step on the target (see above), prints the result line, or the diff
// of a dry run, or with --json one document {command, file, dryRun,
// written, message, changes}. A real write that changed the files is kept
// in the target's history (History.h), unless --keep or VLM_HISTORY_KEEP
// is 0: the files it replaced as they were read just before it. Returns the
// exit status: that of the step, or c_exitLock when the change notice after
// a real write could not be sent.
int ApplyChange(Context& ctx, const ChangeTarget& target, const ChangeOptions& options, const WriteStep& step);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_CHANGE_H
