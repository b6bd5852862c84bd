// Files and paths of the platform: AFile (whole-file read, crash-safe write,
// delete, copy, writability), AFiler (directories), APath, joinPath and
// splitPath. Paths are wide; the system calls see their UTF-8 form.
#ifndef VLM_PORT_FS_AFILE_H
#define VLM_PORT_FS_AFILE_H

#include <sys/types.h>

#include <cstddef>

#include "platform/ABuffer.h"
#include "platform/AString.h"

class AFile {
 public:
  // True when path names an existing file of any kind; a symbolic link is
  // followed, so a dangling one does not exist.
  static bool exists(const AString& path);
  // Reads the whole regular file; false when it cannot be read or is not a
  // regular file (never waits on a FIFO).
  static bool read(const AString& path, ABuffer& contents);
  // Replaces the whole file crash-safely (see SafeWrite.h); a new file gets
  // newFileMode, an existing one keeps its owner, group and mode.
  static bool write(const AString& path, const unsigned char* data, std::size_t size, mode_t newFileMode = 0644);
  // Like write, but the file always ends with exactly mode (an existing file
  // with wider permissions is narrowed): for secrets such as request keys.
  static bool writeWithMode(const AString& path, const unsigned char* data, std::size_t size, mode_t mode);
  // Size in bytes of the file path names (a symbolic link is followed); false
  // when it cannot be asked.
  static bool size(const AString& path, unsigned long long& bytes);
  // Deletes the file. True when no file is left at path (a missing file
  // counts: the caller wanted it gone); false when it could not be deleted.
  static bool remove(const AString& path);
  // Copies the bytes of from to to (crash-safe); false when from is unreadable.
  static bool copy(const AString& from, const AString& to);
  // Answers whether path may be written: a missing path may. False when the
  // question itself fails. Root passes every permission check of the kernel,
  // so for root a file with no write bit at all counts as not writable: an
  // administrator who made a key file read-only wants it left alone.
  static bool isWritable(const AString& path, bool& writable);
};

class AFiler {
 public:
  // Creates dir and its missing parents, each new one made durable (its
  // parent fsynced); true when it exists afterwards.
  static bool createDirectories(const AString& dir);
};

// dir + one "/" + name ("/" is not doubled; an empty dir gives name).
AString joinPath(const AString& dir, const AString& name);
// Splits at the last "/": "a/b/c.xml" gives "a/b" and "c.xml"; "c.xml" gives
// "" and "c.xml"; "/c.xml" gives "/" and "c.xml".
void splitPath(const AString& path, AString& dir, AString& name);

// A path built by joining components.
class APath : public AString {
 public:
  explicit APath(const AString& dir) : AString(dir) {}
  APath(const AString& dir, const AString& name) : AString(joinPath(dir, name)) {}
  APath& append(const AString& name) {
    AString::operator=(joinPath(*this, name));
    return *this;
  }
};

#endif  // VLM_PORT_FS_AFILE_H
