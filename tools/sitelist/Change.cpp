#include "Change.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "Context.h"
#include "DiffOutput.h"
#include "History.h"
#include "ListDiff.h"
#include "ScratchDir.h"

namespace sitelist {
namespace fs = std::filesystem;
namespace {

// Key files placed beside a site list by an import, install or rewrite.
constexpr const char* c_keyFiles[] = {"srpubkey.bin", "reqseckey.bin", "sr2048pubkey.bin", "req2048seckey.bin"};
// The FIPS marker's path is the list's directory with this text appended
// (not joined as a path), as the library forms it.
constexpr const char c_fipsMarkerSuffix[] = "\\agentfipsmode";

std::vector<std::string> KeyFilesIn(const std::string& dir) {
  std::vector<std::string> files;
  for (const char* name : c_keyFiles) files.push_back((fs::path(dir) / name).string());
  files.push_back(dir + c_fipsMarkerSuffix);
  return files;
}

// The files a write may touch besides a list in dir, by their paths.
std::vector<std::string> CompanionFiles(const ChangeTarget& target, const std::string& dir) {
  if (!target.keyFiles) return {};
  return KeyFilesIn(dir);
}

std::optional<std::string> Contents(const std::string& path) {
  std::error_code ec;
  if (!fs::is_regular_file(path, ec)) return std::nullopt;
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

using Files = std::map<std::string, std::optional<std::string>>;  // shown path -> contents

Files FilesAt(const std::vector<std::string>& shown, const std::vector<std::string>& actual) {
  Files files;
  for (std::size_t i = 0; i < shown.size(); ++i) files[shown[i]] = Contents(actual[i]);
  return files;
}

std::vector<FileChange> FileChanges(const Files& before, const Files& after) {
  std::vector<FileChange> changes;
  for (const auto& [path, old] : before) {
    const std::optional<std::string>& now = after.at(path);
    if (old == now) continue;
    changes.push_back({path, old ? std::optional(old->size()) : std::nullopt,
                       now ? std::optional(now->size()) : std::nullopt});
  }
  return changes;
}

// The copy of a list's directory in a scratch directory: a directory of the
// same name, so that paths the library forms from it (the FIPS marker's)
// stay alike.
std::string CopyDirectory(const ScratchDir& scratch, const std::string& dir) {
  const std::string name = fs::path(dir).filename().string();
  return (fs::path(scratch.Path()) / (name.empty() ? "list" : name)).string();
}

bool CopyIfPresent(const std::string& from, const std::string& to) {
  std::error_code ec;
  if (!fs::is_regular_file(from, ec)) return true;
  if (!fs::copy_file(from, to, fs::copy_options::overwrite_existing, ec)) return false;
  fs::permissions(to, fs::status(from, ec).permissions(), ec);
  return !ec;
}

ListState StateOf(Context& ctx, const std::string& path, std::string& label) {
  ListState state;
  if (ReadListState(ctx, path, state) != 0) {
    // The step decides what an unreadable list means; the diff shows it empty.
    state = ListState{};
    state.path = path;
    state.exists = true;
    label += " (could not be read)";
  }
  return state;
}

void PrintResult(Context& ctx, const ChangeOptions& options, const StepResult& result, const ListDiff* diff) {
  if (!options.json) {
    std::printf("%s\n", result.message.c_str());
    return;
  }
  PrintJson({{"command", ctx.Command()},
             {"file", diff ? diff->oldPath : ""},
             {"dryRun", options.dryRun},
             {"written", result.written && !options.dryRun},
             {"message", result.message},
             {"changes", diff ? DiffJson(*diff) : Json()}});
}

int DryRun(Context& ctx, const ChangeTarget& target, const ChangeOptions& options, const WriteStep& step) {
  ScratchDir scratch("dry-run");
  if (!scratch.Ok()) return ctx.Fail("no scratch directory for the dry run");
  const std::string dir = fs::path(target.file).parent_path().string();
  const std::string copyDir = CopyDirectory(scratch, dir);
  const std::string copy = (fs::path(copyDir) / fs::path(target.file).filename()).string();
  const std::vector<std::string> companions = CompanionFiles(target, dir);
  const std::vector<std::string> copies = CompanionFiles(target, copyDir);
  std::error_code ec;
  bool copied = fs::create_directories(copyDir, ec) && CopyIfPresent(target.file, copy);
  for (std::size_t i = 0; i < companions.size(); ++i) copied = CopyIfPresent(companions[i], copies[i]) && copied;
  if (!copied) return ctx.Fail("the files of " + target.file + " could not be copied for the dry run");
  std::string oldLabel = target.file;
  const ListState before = StateOf(ctx, target.file, oldLabel);
  const StepResult result = step(copy, target.file);
  if (result.status != 0) return result.status;
  std::string newLabel = target.file + " (after " + ctx.Command() + ")";
  ListState after = StateOf(ctx, copy, newLabel);
  after.path = target.file;
  ListDiff diff = DiffLists(before, after);
  diff.files = FileChanges(FilesAt(companions, companions), FilesAt(companions, copies));
  if (options.json) {
    PrintResult(ctx, options, result, &diff);
  } else {
    std::printf("%s", DiffText(diff, oldLabel, newLabel).c_str());
    std::printf("dry run: %s; nothing was written\n", result.message.c_str());
  }
  return result.status;
}

// The change notice that tells the agent's processes to read the list again.
int Notify(Context& ctx) {
  const std::size_t mark = ctx.Log().Mark();
  const int before = sitehlp::CSitesHelper::m_iChange;
  ctx.Helper().needToUpdateInMemSiteList();
  if (sitehlp::CSitesHelper::m_iChange != before) return 0;
  if (const int status = ctx.LockFailure(mark)) return status;
  return ctx.Fail("the change notice was not recorded", c_exitLock);
}

// What the history keeps of the files before a change: read before the
// step runs, kept once it has changed them. The library's lines about a
// list that cannot be read are the step's to say, not these reads'.
HistoryEntry EntryBefore(Context& ctx, const ChangeTarget& target, const ListState& state, bool read) {
  HistoryEntry entry;
  entry.command = ctx.Command();
  entry.restored = target.restores;
  entry.list = target.file;
  entry.files = KeepFiles(HistoryFiles(target));
  if (!read || !state.exists) return entry;
  entry.localVersion = state.localVersion;
  long sites = 0;
  for (const SiteRecord& site : state.sites) sites += site.view.kind == "Proxy" ? 0 : 1;
  entry.sites = sites;
  return entry;
}

void KeepEntry(Context& ctx, const History& history, HistoryEntry& entry, int keep) {
  entry.time = UtcNow();
  std::string why;
  if (!history.Add(ctx, entry, keep, why))
    ctx.Fail("warning: " + why + "; no history entry was kept of this change", c_exitSuccess);
}

int RealRun(Context& ctx, const ChangeTarget& target, const ChangeOptions& options, const WriteStep& step, int keep) {
  const std::vector<std::string> companions = CompanionFiles(target, fs::path(target.file).parent_path().string());
  const History history(target.file);
  const std::unique_ptr<ChangeSerializer> serial = keep > 0 ? std::make_unique<ChangeSerializer>(target.file) : nullptr;
  if (keep > 0) {
    const std::string obstacle = history.Obstacle();
    if (!obstacle.empty()) return ctx.Fail(obstacle + "; no history entry could be kept (--keep 0 writes without one)");
  }
  std::string label = target.file;
  ListState before;
  Files filesBefore;
  bool read = false;
  if (options.json || keep > 0) {
    const std::size_t mark = ctx.Log().Mark();
    read = ReadListState(ctx, target.file, before) == 0;
    if (!read) label += " (could not be read)";
    for (const LogLine& line : ctx.Log().LinesSince(mark)) ctx.Log().Restated(line);
    filesBefore = FilesAt(companions, companions);
  }
  HistoryEntry entry = keep > 0 ? EntryBefore(ctx, target, before, read) : HistoryEntry{};
  if (!read) {
    before = ListState{};
    before.path = target.file;
    before.exists = true;
  }
  // Every real write of the tool passes here, with the files it may replace
  // named by target.
  const StepResult result = step(target.file, target.file);
  if (result.status != 0) return result.status;
  if (result.written && keep > 0) KeepEntry(ctx, history, entry, keep);
  if (result.written && target.notify) {
    if (const int status = Notify(ctx)) return status;
  }
  if (!options.json) {
    PrintResult(ctx, options, result, nullptr);
    return 0;
  }
  std::string afterLabel = target.file;
  ListDiff diff = DiffLists(before, StateOf(ctx, target.file, afterLabel));
  diff.files = FileChanges(filesBefore, FilesAt(companions, companions));
  PrintResult(ctx, options, result, &diff);
  return 0;
}

}  // namespace

void AddChangeOptions(CLI::App& command, ChangeOptions& options) {
  command.add_flag("--dry-run", options.dryRun,
                   "Run everything on a scratch copy and print what would change; write nothing");
  command.add_flag("--json", options.json, "Print the result, and what changed, as one JSON document");
}

std::vector<std::string> HistoryFiles(const ChangeTarget& target) {
  std::vector<std::string> files{target.file};
  if (!target.notify) return files;
  for (const std::string& file : KeyFilesIn(fs::path(target.file).parent_path().string())) files.push_back(file);
  return files;
}

int ApplyChange(Context& ctx, const ChangeTarget& target, const ChangeOptions& options, const WriteStep& step) {
  int keep = 0;
  if (const int status = HistoryKeep(ctx, keep)) return status;
  // An absolute path gives the list a directory whose copy a dry run can make.
  ChangeTarget absolute = target;
  absolute.file = AbsoluteListPath(target.file);
  return options.dryRun ? DryRun(ctx, absolute, options, step) : RealRun(ctx, absolute, options, step, keep);
}

std::string AbsoluteListPath(const std::string& file) { return fs::absolute(file).lexically_normal().string(); }

}  // namespace sitelist
