#include "port/fs/SafeWrite.h"

#include <errno.h>

#include "port/fs/Temporary.h"

namespace port {

int ReplaceFileContents(const std::string& path, const void* data, std::size_t size, mode_t newFileMode,
                        ModeChoice policy) {
  std::string dir;
  std::string name;
  SplitTarget(path, dir, name);
  if (name.empty()) return EISDIR;

  Attributes attributes;
  if (int rc = AttributesFor(path, newFileMode, policy, attributes)) return rc;
  Temporary tmp;
  if (int rc = tmp.create(dir, name)) return rc;
  if (int rc = tmp.fill(data, size, attributes)) return rc;
  if (int rc = tmp.renameOver(path)) return rc;
  // The target already holds the new content here; a failure is still
  // reported, because the replacement may not survive a crash.
  const int rc = SyncDirectory(dir);
  SweepTemporaries(dir, name);
  return rc;
}

}  // namespace port
