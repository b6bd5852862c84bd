// Temporaries of crash-safe replacements, and the attributes a replacement
// takes.
//
// A new content is written beside its target under a name of its own,
// ".<name>.tmp.XXXXXX", made durable, and renamed over the target. The writer
// holds an open-file-description write lock on its temporary from the moment
// it exists until after the rename; the kernel drops that lock when the
// writer dies. So a temporary whose lock can be taken has no writer any more:
// the sweep removes it at once, and never touches one being written.
#ifndef VLM_PORT_FS_TEMPORARY_H
#define VLM_PORT_FS_TEMPORARY_H

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "port/fs/SafeWrite.h"

namespace port {

// errno of the step that just failed; EIO when a broken override left it at 0.
int LastError();

// Directory and name of path: "a/b" gives "a" and "b", "b" gives "." and "b",
// "/b" gives "/" and "b".
void SplitTarget(const std::string& path, std::string& dir, std::string& name);

// Makes the renames and removals in dir durable. 0 or errno; a file system
// that cannot sync a directory (EINVAL) counts as success.
int SyncDirectory(const std::string& dir);

// What the new file of a replacement gets.
struct Attributes {
  mode_t mode = 0644;
  bool bKeepOwner = false;  // give it uid and gid (the replaced file's)
  uid_t uid = 0;
  gid_t gid = 0;
};

// The attributes of a new content of path: a regular file there passes on
// its owner and group, and its mode unless policy is Exact; a missing file
// or a symbolic link (replaced, never followed) gives newFileMode and the
// process's own owner and group. 0, EISDIR for a directory, or errno.
int AttributesFor(const std::string& path, mode_t newFileMode, ModeChoice policy, Attributes& attributes);

// One temporary, locked while this object lives. Not copyable.
class Temporary {
 public:
  Temporary() = default;
  // Drops the lock, and removes the file unless it was renamed or released.
  ~Temporary();
  Temporary(const Temporary&) = delete;
  Temporary& operator=(const Temporary&) = delete;

  // Creates and locks a new temporary for the target name in dir. 0 or errno.
  int create(const std::string& dir, const std::string& name);
  // Writes data, gives the file its attributes (the owner and group only
  // where the process may) and makes it durable. 0 or errno.
  int fill(const void* data, std::size_t size, const Attributes& attributes);
  // Renames the temporary over target. 0 or errno.
  int renameOver(const std::string& target);
  // The file was renamed by other means: nothing to remove any more.
  void release() { m_path.clear(); }

  const std::string& path() const { return m_path; }
  // The temporary's own name within its directory.
  std::string name() const;

 private:
  int m_fd = -1;
  std::string m_path;
};

// "." + name (cut to keep within NAME_MAX) + ".tmp.": the start of every
// temporary's name for the target name.
std::string TemporaryPrefix(const std::string& name);

// Removes the temporaries of the target name in dir whose writer is gone:
// those whose lock can be taken and that no pending change of dir names.
// Best effort: nothing is reported.
void SweepTemporaries(const std::string& dir, const std::string& name);

}  // namespace port

#endif  // VLM_PORT_FS_TEMPORARY_H
