// Putting the files of a history entry back: what undo and restore write.
#ifndef VLM_TOOLS_SITELIST_PUTBACK_H
#define VLM_TOOLS_SITELIST_PUTBACK_H

#include <string>

#include "Change.h"
#include "History.h"

namespace sitelist {

class Context;

// Puts every file the entry keeps back as it was, byte for byte, onto the
// list at file (the entry's list, or a scratch copy of it; each other file
// goes where it lies relative to the list's directory): a file that did not
// exist is removed. The files of one directory are placed as one crash-safe
// change under the exclusive "SiteListLock" (PlaceSiteFiles); the FIPS
// marker, whose name puts it beside the list's directory, is a second such
// change, made after the first. A directory whose files are already as
// kept is left alone. Mode, and owner and group where the process may, are
// then set as kept. Returns 0, or prints why and returns the exit status.
int PutBack(Context& ctx, const HistoryEntry& entry, const std::string& file);

// Puts entry back onto the list at list (absolute) through ApplyChange, as
// the command running (undo or restore): a dry run, the diff and --json as
// every write has them, a history entry of its own, and a change notice.
int RunPutBack(Context& ctx, const ChangeOptions& options, const std::string& list, const HistoryEntry& entry);

// The history of the agent's list (or --site-list): its absolute path and
// entries. Prints why and returns the exit status when it cannot be read.
int LoadHistory(Context& ctx, std::string& list, std::vector<HistoryEntry>& entries);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_PUTBACK_H
