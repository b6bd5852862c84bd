// The record of a change of several files of one directory (FileChange.h):
// which temporary goes over which file, and which files go. It lives in the
// directory as ".pending-change" while the change is applied.
//
// Text, one step per line, names only (never a path):
//   change 1
//   put <temporary>/<target>
//   remove <target>
//   end
// A name holds no "/" and no line break, so "/" separates the two names of a
// put. A record without its "end" line, or with any other line, is damaged.
#ifndef VLM_PORT_FS_CHANGERECORD_H
#define VLM_PORT_FS_CHANGERECORD_H

#include <string>
#include <vector>

namespace port {

constexpr char kChangeRecordName[] = ".pending-change";

struct ChangeStep {
  bool bRemove = false;
  std::string temporary;  // empty for a removal
  std::string target;
};

// True for a name a record may hold: not empty, not "." or "..", no "/", no
// line break, no NUL.
bool IsPlainName(const std::string& name);

std::string FormatChangeRecord(const std::vector<ChangeStep>& steps);
// False when text is no whole record or names something else than a plain
// name (a put's temporary must have a temporary's name).
bool ParseChangeRecord(const std::string& text, std::vector<ChangeStep>& steps);

// Reads the record of dir without blocking on anything. 0 with its steps;
// ENOENT when dir has none; EBADMSG when it is damaged (not a regular file,
// too large, or not a whole record); or errno.
int ReadChangeRecord(const std::string& dir, std::vector<ChangeStep>& steps);

// True when dir holds a record naming temporary as a put's temporary.
bool PendingChangeNames(const std::string& dir, const std::string& temporary);

}  // namespace port

#endif  // VLM_PORT_FS_CHANGERECORD_H
