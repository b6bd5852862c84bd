// Crash-safe replacement of a whole file.
//
// The new content goes to a temporary file in the target's directory
// (".<name>.tmp.XXXXXX"), is fsynced, renamed over the target, and the
// directory is fsynced. A crash at any moment leaves the old file or the new
// one, never a torn one. A temporary left by a crash has a unique name, so a
// later write never trips over it; a successful write of the same target
// removes those older than kStaleTemporaryAgeSeconds, so they do not pile up.
// An existing target keeps its mode; a new one gets newFileMode. A target that
// is a symbolic link is replaced by the new file, never followed.
#ifndef VLM_PORT_FS_SAFEWRITE_H
#define VLM_PORT_FS_SAFEWRITE_H

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace port {

// Age after which a temporary of a target is taken as left by a killed
// writer: no write holds its temporary open nearly that long.
constexpr long kStaleTemporaryAgeSeconds = 600;

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
