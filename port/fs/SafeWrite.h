// Crash-safe replacement of a whole file.
//
// The new content goes to a temporary file in the target's directory
// (".<name>.tmp.XXXXXX", see Temporary.h), is fsynced, renamed over the
// target, and the directory is fsynced. A crash at any moment leaves the old
// file or the new one, never a torn one. The writer holds a lock on its
// temporary while it lives, so a successful write of a target removes at once
// every temporary of that target whose writer is gone (killed before its
// rename), and never one still being written.
//
// The new file takes the owner, group and mode of the file it replaces: the
// owner and group where the process may give them (root may; another user
// keeps its own), the mode always unless ModeChoice::Exact asks for the mode
// given. A new file, or one that replaces a symbolic link (replaced, never
// followed), gets the mode given and the process's owner and group.
#ifndef VLM_PORT_FS_SAFEWRITE_H
#define VLM_PORT_FS_SAFEWRITE_H

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace port {

// Which mode the written file gets.
enum class ModeChoice {
  KeepExisting,  // an existing target keeps its mode; a new one gets the mode given
  Exact,         // always the mode given (secret files that must never be wider)
};

// 0 on success, else the errno of the failed step (nothing is left behind:
// the temporary is removed and the target is untouched).
int ReplaceFileContents(const std::string& path, const void* data, std::size_t size, mode_t newFileMode = 0644,
                        ModeChoice policy = ModeChoice::KeepExisting);

}  // namespace port

#endif  // VLM_PORT_FS_SAFEWRITE_H
