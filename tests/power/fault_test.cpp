// A fault at every system call: each operation runs once per call of its
// sequence, with that one call failing (EIO, ENOSPC, EINTR, EACCES) or, for
// writes, writing half of what it was given. Whatever fails, the operation
// answers success or one of its documented codes; its files are whole, old
// or new (after the next reader, all old or all new where they change as
// one), and new when it answered success; it leaves no descriptor open, and
// under the address sanitizer no memory unreachable; the next run without a
// fault succeeds and leaves no temporary behind.
#include <gtest/gtest.h>

#include <dirent.h>
#include <errno.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "port/fs/SysCalls.h"
#include "port/log/Log.h"
#include "power/Operations.h"
#include "power/Outcome.h"
#include "power/VolatileDisk.h"
#include "sitehlp/SitesHelper.h"
#include "stress/Workload.h"
#include "support/TestSupport.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#define VLM_FAULT_LSAN 1
#endif

namespace {

using powertest::FileState;
using powertest::kSourceUnread;
using powertest::Layout;
using powertest::Operation;
using testsupport::Wide;

// ---- the faulting system call table ----

long g_calls = 0;
long g_writes = 0;
long g_failAt = 0;
int g_error = 0;  // 0: the write numbered g_failAt is short instead

const port::SysCalls& Real() { return port::RealSysCalls(); }

// True when this call is the one to fail (errno is set).
bool Hit() {
  if (++g_calls != g_failAt || g_error == 0) return false;
  errno = g_error;
  return true;
}

port::SysCalls FaultTable() {
  port::SysCalls t = Real();
  t.open = [](const char* p, int f, mode_t m) { return Hit() ? -1 : Real().open(p, f, m); };
  // The kernel releases the descriptor whatever close answers.
  t.close = [](int fd) {
    if (!Hit()) return Real().close(fd);
    const int err = errno;
    Real().close(fd);
    errno = err;
    return -1;
  };
  t.read = [](int fd, void* b, size_t n) -> ssize_t { return Hit() ? -1 : Real().read(fd, b, n); };
  t.write = [](int fd, const void* b, size_t n) -> ssize_t {
    if (Hit()) return -1;
    if (++g_writes == g_failAt && g_error == 0 && n > 1) return Real().write(fd, b, n / 2);
    return Real().write(fd, b, n);
  };
  t.fsync = [](int fd) { return Hit() ? -1 : Real().fsync(fd); };
  t.fstat = [](int fd, struct stat* st) { return Hit() ? -1 : Real().fstat(fd, st); };
  t.stat = [](const char* p, struct stat* st) { return Hit() ? -1 : Real().stat(p, st); };
  t.lstat = [](const char* p, struct stat* st) { return Hit() ? -1 : Real().lstat(p, st); };
  t.fchmod = [](int fd, mode_t m) { return Hit() ? -1 : Real().fchmod(fd, m); };
  t.fchown = [](int fd, uid_t u, gid_t g) { return Hit() ? -1 : Real().fchown(fd, u, g); };
  t.rename = [](const char* a, const char* b) { return Hit() ? -1 : Real().rename(a, b); };
  t.unlink = [](const char* p) { return Hit() ? -1 : Real().unlink(p); };
  t.mkdir = [](const char* p, mode_t m) { return Hit() ? -1 : Real().mkdir(p, m); };
  t.access = [](const char* p, int m) { return Hit() ? -1 : Real().access(p, m); };
  t.fcntlLock = [](int fd, int c, struct flock* l) { return Hit() ? -1 : Real().fcntlLock(fd, c, l); };
  t.opendir = [](const char* p) { return Hit() ? nullptr : Real().opendir(p); };
  t.readdir = [](DIR* d) { return Hit() ? nullptr : Real().readdir(d); };
  t.closedir = [](DIR* d) {
    if (!Hit()) return Real().closedir(d);
    const int err = errno;
    Real().closedir(d);
    errno = err;
    return -1;
  };
  t.link = [](const char* a, const char* b) { return Hit() ? -1 : Real().link(a, b); };
  t.renameNoReplace = [](const char* a, const char* b) { return Hit() ? -1 : Real().renameNoReplace(a, b); };
  t.getrandom = [](void* b, size_t n, unsigned f) -> ssize_t { return Hit() ? -1 : Real().getrandom(b, n, f); };
  return t;
}

int OpenDescriptors() {
  int count = 0;
  if (DIR* d = opendir("/proc/self/fd")) {
    while (const dirent* e = readdir(d))
      if (e->d_name[0] != '.') ++count;
    closedir(d);
  }
  return count - 1;  // the listing's own
}

bool Leaked() {
#ifdef VLM_FAULT_LSAN
  return __lsan_do_recoverable_leak_check() != 0;
#else
  return false;
#endif
}

// ---- one run with a fault ----

struct Run {
  long rc = -999;
  long calls = 0;
  long writes = 0;
  long descriptorsLeft = 0;
  long leaked = 0;
  std::vector<FileState> files;  // after the next reader
  long nextRc = -999;
  std::vector<FileState> filesAfterNext;
  std::vector<std::string> leftovers;
};

bool RunWithFault(const Operation& op, const Layout& layout, long failAt, int error, const std::string& report,
                  Run& run) {
  const bool ended = powertest::InChild([&]() {
    std::string out;
    {
      const int before = OpenDescriptors();
      long rc = 0;
      {
        port::ScopedSysCallOverride faults(FaultTable());
        g_calls = g_writes = 0;
        g_failAt = failAt;
        g_error = error;
        rc = op.run(layout);
      }
      const long descriptorsLeft = OpenDescriptors() - before;
      const bool leaked = Leaked();
      sitehlp::CSitesHelper reader(Wide(layout.list()));
      sitehlp::tag_Site* list = nullptr;
      reader.ReadSiteList(Wide(layout.list()), &list);
      reader.FreeSiteListMemory(list);
      powertest::Put(out, rc);
      powertest::Put(out, g_calls);
      powertest::Put(out, g_writes);
      powertest::Put(out, descriptorsLeft);
      powertest::Put(out, leaked ? 1L : 0L);
      powertest::PutStates(out, powertest::States(op, layout));
      powertest::Put(out, op.run(layout));
      powertest::PutStates(out, powertest::States(op, layout));
      const std::vector<std::string> leftovers = powertest::Leftovers(op, layout);
      powertest::Put(out, static_cast<long>(leftovers.size()));
      for (const std::string& name : leftovers) powertest::Put(out, name);
    }
    powertest::WriteReport(report, out);
    return 0;
  });
  if (!ended) return false;
  const std::string in = testsupport::ReadFile(report);
  std::size_t pos = 0;
  long count = 0;
  using powertest::Take;
  if (!Take(in, pos, run.rc) || !Take(in, pos, run.calls) || !Take(in, pos, run.writes) ||
      !Take(in, pos, run.descriptorsLeft) || !Take(in, pos, run.leaked) ||
      !powertest::TakeStates(in, pos, run.files) || !Take(in, pos, run.nextRc) ||
      !powertest::TakeStates(in, pos, run.filesAfterNext) || !Take(in, pos, count))
    return false;
  run.leftovers.assign(static_cast<std::size_t>(count), std::string());
  for (std::string& name : run.leftovers) Take(in, pos, name);
  return true;
}

const char* ErrorName(int error) {
  switch (error) {
    case EIO: return "EIO";
    case ENOSPC: return "ENOSPC";
    case EINTR: return "EINTR";
    case EACCES: return "EACCES";
    default: return "short write";
  }
}

// Every fault of every kind for op; allowed are the codes it documents for a
// failure (besides 0).
// The calls the construction of a helper for the agent's list makes.
long ConstructionCalls(const std::string& report) {
  const bool ended = powertest::InChild([&]() {
    {
      port::ScopedSysCallOverride counting(FaultTable());
      g_calls = g_writes = 0;
      g_failAt = 0;
      sitehlp::CSitesHelper helper;
    }
    std::string out;
    powertest::Put(out, g_calls);
    powertest::WriteReport(report, out);
    return 0;
  });
  long calls = -1;
  std::size_t pos = 0;
  if (!ended || !powertest::Take(testsupport::ReadFile(report), pos, calls)) return -1;
  return calls;
}

// firstCallAfterConstruction: the faults start after the calls of the
// helper's construction, which has no way to report a failure (its versions
// are then taken as those of a missing list).
void FaultEverywhere(const std::string& name, const std::set<long>& allowed,
                     bool firstCallAfterConstruction = false) {
  const Operation op = powertest::WritingOperation(name);
  ASSERT_EQ(name, op.name);
  workload::CountingNullSink sink;
  port::LogSink* previous = port::SetLogSink(&sink);
  workload::DataDir dir;
  testsupport::TempDir reports;
  const Layout layout{dir.root()};
  const std::string report = reports.file("report");
  ASSERT_TRUE(powertest::InChild([&]() { return op.setup(layout) ? 0 : 1; }));
  const powertest::Image before = powertest::ReadTree(layout.root);

  // The run without a fault, and the states before and after it.
  Run clean;
  ASSERT_TRUE(RunWithFault(op, layout, 0, EIO, report, clean));
  ASSERT_EQ(0, clean.rc);
  ASSERT_EQ(0, clean.nextRc);
  const std::vector<FileState> newFiles = clean.files;
  powertest::WriteTree(layout.root, before);
  std::vector<FileState> oldFiles;
  ASSERT_TRUE(powertest::InChild([&]() {
    std::string out;
    powertest::PutStates(out, powertest::States(op, layout));
    powertest::WriteReport(report, out);
    return 0;
  }));
  {
    std::size_t pos = 0;
    ASSERT_TRUE(powertest::TakeStates(testsupport::ReadFile(report), pos, oldFiles));
  }

  const long first = firstCallAfterConstruction ? ConstructionCalls(report) + 1 : 1;
  ASSERT_GT(first, 0);
  int reported = 0;
  for (int error : {EIO, ENOSPC, EINTR, EACCES, 0}) {
    const long points = error == 0 ? clean.writes : clean.calls;
    std::map<long, long> results;
    long failures = 0;
    for (long k = error == 0 ? 1 : first; k <= points; ++k) {
      powertest::WriteTree(layout.root, before);
      Run run;
      std::string what;
      if (!RunWithFault(op, layout, k, error, report, run)) {
        what = "the process did not end normally. ";
      } else {
        ++results[run.rc];
        if (run.rc != 0 && !allowed.count(run.rc)) what += "answered " + std::to_string(run.rc) + ". ";
        bool allOld = true, allNew = true;
        for (std::size_t i = 0; i < op.targets.size(); ++i) {
          const bool isOld = run.files[i] == oldFiles[i];
          const bool isNew = run.files[i] == newFiles[i];
          if (!isOld && !isNew) what += op.targets[i] + " is neither old nor new (" + powertest::Describe(run.files[i]) + "). ";
          allOld = allOld && isOld;
          allNew = allNew && isNew;
        }
        if (run.rc == 0 && !allNew) what += "success without the new files. ";
        if (op.bTogether && !allOld && !allNew) what += "the files of one change are part old, part new. ";
        if (run.descriptorsLeft != 0) what += std::to_string(run.descriptorsLeft) + " descriptors left open. ";
        if (run.leaked) what += "memory leaked. ";
        if (run.nextRc != 0) what += "the next run answered " + std::to_string(run.nextRc) + ". ";
        for (std::size_t i = 0; i < op.targets.size(); ++i)
          if (!(run.filesAfterNext[i] == newFiles[i]))
            what += op.targets[i] + " after the next run is " + powertest::Describe(run.filesAfterNext[i]) + ". ";
        for (const std::string& left : run.leftovers) what += "left behind: " + left + ". ";
      }
      if (what.empty()) continue;
      ++failures;
      if (++reported <= 10) ADD_FAILURE() << name << ", " << ErrorName(error) << " at call " << k << ": " << what;
    }
    std::ostringstream counts;
    for (const auto& [rc, n] : results) counts << " " << rc << ":" << n;
    std::printf("fault: %s, %s: calls %ld to %ld failed one at a time; results (code:runs)%s; %ld failed\n",
                name.c_str(), ErrorName(error), error == 0 ? 1 : first, points, counts.str().c_str(), failures);
  }
  port::SetLogSink(previous);
}

TEST(FaultAtEveryCall, ImportSiteList) { FaultEverywhere("ImportSiteList", {-1, -4, -9, -10, -11}); }
TEST(FaultAtEveryCall, InstallSiteList) { FaultEverywhere("InstallSiteList", {-1, -4, -10, -11}); }
TEST(FaultAtEveryCall, ServerSiteListFromSiteList) { FaultEverywhere("createServerSiteListFromSiteList", {-1}); }
TEST(FaultAtEveryCall, CreateServerSiteList) { FaultEverywhere("CreateServerSiteList", {-1, kSourceUnread}); }
TEST(FaultAtEveryCall, ModifySiteList) { FaultEverywhere("modifySiteList", {-1}); }
// The helper's construction reads the versions of the agent's list; when
// that read fails, the list written takes versions of its own. The faults of
// this operation start after the construction.
TEST(FaultAtEveryCall, CreateSiteListFromBuffer) {
  FaultEverywhere("CreateSiteListFromBuffer", {-10, -11, kSourceUnread}, true);
}
TEST(FaultAtEveryCall, PlaceSiteFiles) { FaultEverywhere("PlaceSiteFiles", {-11, kSourceUnread}); }

}  // namespace
