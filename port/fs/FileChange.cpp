#include "port/fs/FileChange.h"

#include <errno.h>

#include <utility>

#include "port/fs/SysCalls.h"

namespace port {

namespace {

// Step (c) of the change: renames and removals, each done or found done.
int ApplySteps(const std::string& dir, const std::vector<ChangeStep>& steps) {
  for (const ChangeStep& step : steps) {
    const std::string target = dir + "/" + step.target;
    errno = 0;
    if (step.bRemove) {
      if (Sys().unlink(target.c_str()) != 0 && errno != ENOENT) return LastError();
      continue;
    }
    const std::string temporary = dir + "/" + step.temporary;
    // A temporary that is gone was renamed before the interruption.
    if (Sys().rename(temporary.c_str(), target.c_str()) != 0 && errno != ENOENT) return LastError();
  }
  return 0;
}

// Step (d): the renames made durable, then the record removed.
int RemoveRecord(const std::string& dir) {
  if (int rc = SyncDirectory(dir)) return rc;
  const std::string record = dir + "/" + kChangeRecordName;
  errno = 0;
  if (Sys().unlink(record.c_str()) != 0 && errno != ENOENT) return LastError();
  return 0;
}

// Step (b), first half: the record, complete and durable in a temporary of
// its own; nothing of it is visible yet.
int WriteRecord(const std::string& dir, const std::vector<ChangeStep>& steps, Temporary& record) {
  const std::string text = FormatChangeRecord(steps);
  Attributes attributes;
  // Readable by the agent's other users, who may finish the change.
  attributes.mode = 0644;
  if (int rc = record.create(dir, kChangeRecordName)) return rc;
  return record.fill(text.data(), text.size(), attributes);
}

}  // namespace

FileChange::FileChange(std::string dir) : m_dir(std::move(dir)) {}

FileChange::~FileChange() = default;

bool FileChange::staged(const std::string& name) const {
  for (const ChangeStep& step : m_steps)
    if (step.target == name) return true;
  return false;
}

bool FileChange::NeedsRecord() const { return m_steps.size() > 1; }

int FileChange::prepare() {
  if (m_record || !NeedsRecord()) return 0;
  auto record = std::make_unique<Temporary>();
  if (int rc = WriteRecord(m_dir, m_steps, *record)) return rc;
  // The temporaries' names made durable before the record can be: a record
  // that outlived a power cut while a temporary it names did not would be
  // taken for a change half done, and the lost file for one already renamed.
  if (int rc = SyncDirectory(m_dir)) return rc;
  m_record = std::move(record);
  return 0;
}

int FileChange::stage(const std::string& name, const void* data, std::size_t size, mode_t newFileMode,
                      ModeChoice policy) {
  if (m_record || !IsPlainName(name) || name == kChangeRecordName || staged(name)) return EINVAL;
  Attributes attributes;
  if (int rc = AttributesFor(m_dir + "/" + name, newFileMode, policy, attributes)) return rc;
  auto temporary = std::make_unique<Temporary>();
  if (int rc = temporary->create(m_dir, name)) return rc;
  if (int rc = temporary->fill(data, size, attributes)) return rc;
  ChangeStep step;
  step.temporary = temporary->name();
  step.target = name;
  m_steps.push_back(step);
  m_temporaries.push_back(std::move(temporary));
  return 0;
}

int FileChange::stageRemoval(const std::string& name) {
  if (m_record || !IsPlainName(name) || name == kChangeRecordName || staged(name)) return EINVAL;
  struct stat st {};
  errno = 0;
  if (Sys().lstat((m_dir + "/" + name).c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return EISDIR;
  if (errno != 0 && errno != ENOENT) return LastError();
  ChangeStep step;
  step.bRemove = true;
  step.target = name;
  m_steps.push_back(step);
  return 0;
}

int FileChange::commit() {
  m_bDecided = false;
  if (m_steps.empty()) return 0;
  if (int rc = prepare()) return rc;
  const int pending = FinishInterruptedChange(m_dir);
  if (pending != 0 && pending != EBADMSG) return pending;
  int rc = 0;
  if (m_steps.size() == 1 && !m_steps.front().bRemove) {
    // One rename is all or nothing by itself.
    rc = m_temporaries.front()->renameOver(m_dir + "/" + m_steps.front().target);
    if (rc == 0) rc = SyncDirectory(m_dir);
  } else if (m_steps.size() == 1) {
    rc = ApplySteps(m_dir, m_steps);
    if (rc == 0) rc = SyncDirectory(m_dir);
  } else {
    rc = commitWithRecord();
  }
  if (rc == 0 || m_bDecided) {
    for (const ChangeStep& step : m_steps) SweepTemporaries(m_dir, step.target);
    SweepTemporaries(m_dir, kChangeRecordName);
  }
  return rc;
}

int FileChange::commitWithRecord() {
  // Step (b), second half: the record under its name, made durable.
  if (int rc = m_record->renameOver(m_dir + "/" + kChangeRecordName)) return rc;
  // From the rename on, the change is decided, even if the sync fails, and
  // the temporaries belong to the record: the renames below, or the next
  // FinishInterruptedChange, move them. Removed here, they would be taken
  // for renamed ones and the change completed without them.
  m_bDecided = true;
  for (auto& temporary : m_temporaries) temporary->release();
  if (int rc = SyncDirectory(m_dir)) return rc;
  int rc = ApplySteps(m_dir, m_steps);
  if (rc == 0) rc = RemoveRecord(m_dir);
  return rc;
}

int FinishInterruptedChange(const std::string& dir) {
  std::vector<ChangeStep> steps;
  const int rc = ReadChangeRecord(dir, steps);
  if (rc == ENOENT) return 0;
  if (rc == EBADMSG) {
    // It cannot be finished, and left in place it would stop every later
    // change: it goes, and the caller reports it.
    Sys().unlink((dir + "/" + kChangeRecordName).c_str());
    return EBADMSG;
  }
  if (rc != 0) return rc;
  if (int applied = ApplySteps(dir, steps)) return applied;
  return RemoveRecord(dir);
}

}  // namespace port
