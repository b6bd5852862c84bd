// The history of a site list: before the tool's change of a list (and of the
// key files and FIPS marker beside it) takes effect, the files as they were
// are kept, so that undo and restore can put them back byte for byte.
//
// The history of <dir>/<name> is the folder <dir>/<name>.history, open to its
// owner only. Each entry is one file, <id>.json: the kept files (bytes,
// mode, owner, group, or that the file did not exist) and the command that
// replaced them. Entries are placed with the library's PlaceSiteFiles, so a
// new entry and the removal of the oldest ones beyond the number kept are
// one crash-safe change; ids grow and are never given twice while an entry
// is kept.
#ifndef VLM_TOOLS_SITELIST_HISTORY_H
#define VLM_TOOLS_SITELIST_HISTORY_H

#include <optional>
#include <string>
#include <vector>

#include "Output.h"

namespace sitelist {

class Context;

// The command name of an undo, as entries record it.
constexpr const char c_undoCommand[] = "undo";

// The number of entries kept when neither --keep nor VLM_HISTORY_KEEP says.
constexpr int c_defaultHistoryKeep = 10;

// One file as it was before a change.
struct KeptFile {
  std::string path;  // absolute
  bool present = false;
  std::string bytes;
  unsigned mode = 0;  // permission bits
  unsigned uid = 0, gid = 0;
};

struct HistoryEntry {
  long id = 0;
  std::string time;     // UTC, e.g. 2026-11-23T14:30:05Z
  std::string command;  // the command whose change replaced these files
  long restored = 0;    // for undo and restore: the entry they put back
  std::string list;     // the list's path when kept
  std::optional<std::string> localVersion;  // none when the list did not exist or could not be read
  std::optional<long> sites;                // the same; proxy configurations are not sites
  std::vector<KeptFile> files;              // the list first

  const KeptFile* ListFile() const { return files.empty() ? nullptr : &files.front(); }
};

// The files at paths as they are now, for an entry.
std::vector<KeptFile> KeepFiles(const std::vector<std::string>& paths);

// "2026-11-23T14:30:05Z" for now.
std::string UtcNow();

class History {
 public:
  // The history of the list at the absolute path list.
  explicit History(const std::string& list);

  const std::string& Folder() const { return m_folder; }

  // Every entry, oldest first; false with why (the folder named) when the
  // folder or an entry cannot be read. A folder not made yet holds none.
  bool Load(std::vector<HistoryEntry>& entries, std::string& why) const;
  // Keeps entry as the newest (its id set), removing the oldest entries
  // beyond keep (at least 1) in the same change. False with why.
  bool Add(Context& ctx, HistoryEntry& entry, int keep, std::string& why) const;
  // Why an entry could not be added to this folder, found before a change
  // is made; empty when nothing stands in the way that can be seen.
  std::string Obstacle() const;

 private:
  std::string m_folder;
};

// One writing run of the tool at a time per list directory, from reading the
// files to keep to keeping them: two administrators' commands at once are
// kept one after the other, each entry holding what the other left. An
// advisory lock of the directory itself (flock), which the library's named
// locks do not touch; none when the directory cannot be opened.
class ChangeSerializer {
 public:
  explicit ChangeSerializer(const std::string& list);
  ~ChangeSerializer();
  ChangeSerializer(const ChangeSerializer&) = delete;
  ChangeSerializer& operator=(const ChangeSerializer&) = delete;

 private:
  int m_fd = -1;
};

// The number of entries to keep: --keep, else VLM_HISTORY_KEEP, else the
// default. Prints why and returns c_exitUsage for a value that is not a
// whole number from 0 on; 0 otherwise.
int HistoryKeep(Context& ctx, int& keep);

// The entry undo puts back: the newest one, unless the newest changes were
// undos, which stand for the changes they took back: an undo that put back
// entry k hands on to entry k - 1, so that undo after undo walks further
// back instead of taking the last undo back. 0 when that walk leads past
// the oldest entry kept. A restore is a change like any other.
long UndoTarget(const std::vector<HistoryEntry>& entries);
const HistoryEntry* FindEntry(const std::vector<HistoryEntry>& entries, long id);

// "as it was before COMMAND (history entry ID, TIME)".
std::string EntryPhrase(const HistoryEntry& entry);

// An entry as JSON for history --json: its files without their bytes.
Json EntryJson(const HistoryEntry& entry);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_HISTORY_H
