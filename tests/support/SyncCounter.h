// Counts the fsync and fdatasync calls the library makes through the system
// call table while a counter lives, telling files from directories (by
// fstat of the descriptor). The calls themselves are made.
#ifndef VLM_TESTS_SUPPORT_SYNCCOUNTER_H
#define VLM_TESTS_SUPPORT_SYNCCOUNTER_H

#include <sys/stat.h>

#include "port/fs/SysCalls.h"

namespace testsupport {

struct SyncCounts {
  int fileFsyncs = 0;
  int directoryFsyncs = 0;
  int fdatasyncs = 0;
  int total() const { return fileFsyncs + directoryFsyncs + fdatasyncs; }
};

class SyncCounter {
 public:
  SyncCounter() : m_override(Table()) { Counts() = SyncCounts(); }
  SyncCounter(const SyncCounter&) = delete;
  SyncCounter& operator=(const SyncCounter&) = delete;
  SyncCounts counts() const { return Counts(); }

 private:
  static SyncCounts& Counts() {
    static SyncCounts counts;
    return counts;
  }
  static bool IsDirectory(int fd) {
    struct stat st {};
    return port::RealSysCalls().fstat(fd, &st) == 0 && S_ISDIR(st.st_mode);
  }
  static port::SysCalls Table() {
    port::SysCalls table = port::Sys();
    table.fsync = [](int fd) {
      ++(IsDirectory(fd) ? Counts().directoryFsyncs : Counts().fileFsyncs);
      return port::RealSysCalls().fsync(fd);
    };
    table.fdatasync = [](int fd) {
      ++Counts().fdatasyncs;
      return port::RealSysCalls().fdatasync(fd);
    };
    return table;
  }
  port::ScopedSysCallOverride m_override;
};

}  // namespace testsupport

#endif  // VLM_TESTS_SUPPORT_SYNCCOUNTER_H
