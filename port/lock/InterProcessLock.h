// Named reader/writer locks shared by every process of the agent.
//
// Each name maps to one lock file "<lock dir>/<name>.lock" (lock dir from the
// configuration, created on demand). The lock is a POSIX open-file-description
// lock (F_OFD_SETLK/F_OFD_SETLKW) on the whole file:
//  - it belongs to the open file description, not the process, so two lock
//    objects in one process (two threads) exclude each other like two
//    processes do; classic fcntl locks would not, and would be dropped when
//    any descriptor of the file is closed;
//  - the kernel releases it when the holder dies, so a crashed process never
//    leaves the site list locked;
//  - the lock file is never deleted: deleting it would let a new opener lock
//    a different inode than a waiting one;
//  - other users can neither lock nor open a lock file: holding one would stop
//    the agent. Lock files are made with the configured lock mode (0660 by
//    default, VLM_LOCK_MODE; a mode giving other users any access is refused)
//    in a folder made 0770 (the group's bits only when the lock mode has
//    some). A lock file this process owns is given exactly that mode the
//    first time it is opened, so a wider one is narrowed; one of another
//    owner that other users may open, and a folder open to other users, are
//    logged once and used as they are.
// lock(wait): wait in milliseconds; 0x7FFFFFFF means no practical limit.
// Returns false when the lock cannot be had (the caller logs it).
// A lock object is used by one thread; the destructor releases it.
#ifndef VLM_PORT_LOCK_INTERPROCESSLOCK_H
#define VLM_PORT_LOCK_INTERPROCESSLOCK_H

#include <string>

class InterProcessLock {
 public:
  InterProcessLock(const char* name, bool exclusive);
  ~InterProcessLock();
  InterProcessLock(const InterProcessLock&) = delete;
  InterProcessLock& operator=(const InterProcessLock&) = delete;

  bool lock(int waitMs);
  void unlock();
  bool isLocked() const { return m_bLocked; }
  const std::string& name() const { return m_name; }

 private:
  std::string m_name;
  bool m_bExclusive;
  bool m_bLocked = false;
  int m_fd = -1;
};

class InterProcessReadLock : public InterProcessLock {
 public:
  explicit InterProcessReadLock(const char* name) : InterProcessLock(name, false) {}
};

class InterProcessWriteLock : public InterProcessLock {
 public:
  explicit InterProcessWriteLock(const char* name) : InterProcessLock(name, true) {}
};

#endif  // VLM_PORT_LOCK_INTERPROCESSLOCK_H
