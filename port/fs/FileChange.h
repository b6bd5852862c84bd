// One change of several files of one directory, all or nothing, across
// crashes and power cuts: a site list with its key files, for example.
//
// How it works (the record's format is in ChangeRecord.h):
//   1. stage: every new content is written to a temporary beside its target,
//      with the target's owner, group and mode (Temporary.h), and fsynced.
//      The temporaries stay locked. Nothing the readers see has changed.
//      prepare writes the record to a temporary of its own and fsyncs the
//      directory: every temporary is durable under its name before a record
//      naming it can be.
//   2. commit, under the caller's exclusive lock of the directory's files:
//      a. a change of the directory that was interrupted is finished first;
//      b. the record naming every step, written to its own temporary and
//         fsynced beforehand (prepare), is renamed to ".pending-change",
//         and the directory fsynced.
//         This is the moment the change happens: before it, no target has
//         been touched and the temporaries are swept as garbage; after it,
//         the change is completed whatever comes;
//      c. every temporary is renamed over its target, every removal made;
//      d. the directory is fsynced, so that all of (c) is durable before the
//         record goes, and the record is removed.
//   A process that dies, or a machine that loses power, anywhere in (c) or
//   (d) leaves the record behind. FinishInterruptedChange, called by the next
//   reader or writer of the directory while it holds the lock, redoes (c) and
//   (d) from the record: a temporary still present is renamed, one already
//   gone was renamed before; removals of files already gone are done. Redoing
//   is harmless however often it is interrupted itself. The sweep of stale
//   temporaries never removes one a pending record names.
//   The record's removal is not fsynced on its own: if a power cut undoes
//   it, the record comes back and is redone, which then changes nothing.
//
// The fsyncs, and why none of them can go (a change of N files makes N + 4:
// one per temporary, one for the record, three of the directory). A power cut
// keeps of a file only what its last fsync covered, and of a directory only
// the entries its last fsync covered; of the rest it may keep any part, in
// any order. So:
//   - each temporary is fsynced before the record names it: after the cut a
//     redo renames it, and its bytes must be whole;
//   - the directory is fsynced in prepare, before the record's rename: the
//     cut may otherwise keep the record's name and lose a temporary's, and
//     the redo would take that file for one already renamed and leave it old
//     beside the new ones;
//   - the record is fsynced before it is renamed into place: a record whose
//     name survived but whose bytes did not is damaged, and would be removed
//     while some renames of (c) survived, leaving the files half changed;
//   - the directory is fsynced after the record's rename and before the
//     first rename of (c): otherwise the cut may keep a rename of (c) and
//     lose the record's, with nothing left to finish the change;
//   - the directory is fsynced again after (c) and before the record goes:
//     otherwise the cut may keep the removal and lose a rename, with the
//     same result.
// Only the last step (the record's removal) is left unsynced, for the reason
// above. A single file's replacement has no record and no first directory
// fsync: one rename is all or nothing by itself.
//
// Who may finish: the record exists only while its writer holds the
// exclusive lock of the directory's files, or after that writer died. So
// whoever holds that lock, shared or exclusive, and finds a record, knows its
// writer is gone. Two holders of the shared lock finishing the same record at
// once do the same renames; the one that comes second finds them done.
//
// A change of one file without removals needs no record: one rename is
// already all or nothing.
#ifndef VLM_PORT_FS_FILECHANGE_H
#define VLM_PORT_FS_FILECHANGE_H

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "port/fs/ChangeRecord.h"
#include "port/fs/SafeWrite.h"
#include "port/fs/Temporary.h"

namespace port {

class FileChange {
 public:
  // A change of files of dir (which must exist when staging).
  explicit FileChange(std::string dir);
  // Removes the temporaries of a change that was not committed.
  ~FileChange();
  FileChange(const FileChange&) = delete;
  FileChange& operator=(const FileChange&) = delete;

  const std::string& directory() const { return m_dir; }
  bool empty() const { return m_steps.empty(); }

  // Stages the new content of the file name (a name within the directory):
  // the attributes are those ReplaceFileContents gives. 0 or errno (EINVAL
  // for a name that is not a plain name or is staged already, EISDIR for a
  // directory); a failed stage leaves the change as it was.
  int stage(const std::string& name, const void* data, std::size_t size, mode_t newFileMode,
            ModeChoice policy = ModeChoice::KeepExisting);
  // Stages the removal of the file name; a missing file counts as removed.
  // 0, EINVAL, EISDIR or errno.
  int stageRemoval(const std::string& name);
  // True when name is staged, for content or for removal.
  bool staged(const std::string& name) const;

  // Writes the record of the change and makes it durable, without showing
  // it yet; nothing may be staged afterwards. 0 or errno. Optional: commit
  // does it when it was not done, but done before taking the directory's
  // lock it keeps that lock's hold short.
  int prepare();
  // Applies every staged step; the caller holds the directory's lock
  // exclusively. 0, or the errno of the failed step. A failure before the
  // record was durable changes no file; one after it (a rename refused by the
  // file system) leaves the record, and the next FinishInterruptedChange
  // completes the change. A committed change cannot be committed again.
  int commit();
  // Whether the last failed commit got past the moment of change.
  bool decided() const { return m_bDecided; }

 private:
  int commitWithRecord();
  bool NeedsRecord() const;

  std::string m_dir;
  std::vector<ChangeStep> m_steps;
  std::vector<std::unique_ptr<Temporary>> m_temporaries;  // one per put, in step order
  std::unique_ptr<Temporary> m_record;                    // the prepared record
  bool m_bDecided = false;
};

// Finishes the interrupted change of dir, if there is one; the caller holds
// the lock of dir's files (shared is enough). 0 when there was none or it
// has been finished; EBADMSG when the record was damaged (it is removed: it
// cannot be finished); or the errno of the step that failed.
int FinishInterruptedChange(const std::string& dir);

}  // namespace port

#endif  // VLM_PORT_FS_FILECHANGE_H
