// Load across processes: several processes run a random mix of the site list
// operations on one data directory while an observer process keeps reading
// the files on disk without any lock.
//
//   vlm_stress [--processes N] [--ops N] [--seed N] [--watchdog SECONDS]
//
// Passes (exit 0) when every operation gave the result it must give under
// concurrency, every list read held the SPIPE site every writer keeps, every
// file observed was a whole site list document, and every process finished
// before the watchdog. Prints the figures of the run.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "port/fs/SysCalls.h"
#include "port/log/Log.h"
#include "sitehlp/SitesHelper.h"
#include "stress/Workload.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using testsupport::Narrow;
using testsupport::Wide;

enum Op {
  kSmartRead,
  kRead,
  kCreate,
  kNotice,
  kSetSpipe,
  kServerInfo,
  kImport,
  kServerList,
  kOpCount,
};

const char* const kOpNames[kOpCount] = {
    "SmartReadSiteList",     "ReadSiteList",  "CreateSiteList",
    "needToUpdateInMemSiteList", "SetSpipeSiteForUpdSite", "GetVantorServerInfo",
    "ImportSiteList",        "createServerSiteListFromSiteList",
};

// One worker's figures, in memory shared with the parent.
struct WorkerResult {
  std::uint64_t ops[kOpCount];
  std::uint64_t failures[kOpCount];
  std::int64_t slowestUs[kOpCount];
  std::uint64_t lockWaits;
  std::int64_t slowestLockWaitUs;
  std::uint64_t errorLines;
  int done;
  char firstFailure[256];
};

struct ObserverResult {
  std::uint64_t observations;
  std::uint64_t unparsable;
  char firstBad[256];
};

struct Shared {
  std::atomic<int> stop;
  ObserverResult observer;
  WorkerResult workers[64];
};

// ---- lock waits: the blocking lock call is timed through the syscall table ----

int (*g_realFcntlLock)(int, int, struct flock*) = nullptr;
WorkerResult* g_current = nullptr;

int TimedFcntlLock(int fd, int cmd, struct flock* fl) {
  if (cmd != F_OFD_SETLKW || fl->l_type == F_UNLCK) return g_realFcntlLock(fd, cmd, fl);
  const std::int64_t start = workload::NowUs();
  const int rc = g_realFcntlLock(fd, cmd, fl);
  const std::int64_t waited = workload::NowUs() - start;
  ++g_current->lockWaits;
  g_current->slowestLockWaitUs = std::max(g_current->slowestLockWaitUs, waited);
  return rc;
}

void NoteFailure(WorkerResult& r, Op op, const std::string& what) {
  ++r.failures[op];
  if (r.firstFailure[0] == '\0')
    std::snprintf(r.firstFailure, sizeof r.firstFailure, "%s: %s", kOpNames[op], what.c_str());
}

// One operation; true when its result is what it must be.
bool RunOp(Op op, CSitesHelper& helper, const workload::DataDir& dir, std::mt19937& rng, int worker,
           std::string& why) {
  const std::wstring own = Wide(dir.siteList());
  switch (op) {
    case kSmartRead: {
      tag_Site* list = nullptr;
      const int rc = helper.SmartReadSiteList(L"", &list);  // the cache's list: not freed here
      if (rc != 0 || !list || !workload::HasSpipeSite(list)) {
        why = "rc=" + std::to_string(rc) + (list ? "" : " no list");
        return false;
      }
      return true;
    }
    case kRead: {
      tag_Site* list = nullptr;
      const int rc = helper.ReadSiteList(own, &list);
      const bool ok = rc == 0 && list && workload::HasSpipeSite(list);
      if (!ok) why = "rc=" + std::to_string(rc) + (list ? "" : " no list");
      helper.FreeSiteListMemory(list);
      return ok;
    }
    case kCreate: {
      tag_Site* list = workload::BuildList(worker * 100000 + static_cast<int>(rng() % 1000), true);
      const int rc = helper.CreateSiteList(list, L"", L"", L"", L"", {L"CERT-STRESS"});
      helper.FreeSiteListMemory(list);
      if (rc != 0) why = "rc=" + std::to_string(rc);
      return rc == 0;
    }
    case kNotice:
      helper.needToUpdateInMemSiteList();
      return true;
    case kSetSpipe: {
      const unsigned port = 8000 + rng() % 1000;
      const int rc = helper.SetSpipeSiteForUpdSite(port, L"198.51.100." + std::to_wstring(rng() % 250 + 1),
                                                   L"mgmt" + std::to_wstring(worker) + L".corp.example",
                                                   L"MGMT" + std::to_wstring(worker));
      if (rc != 0) why = "rc=" + std::to_string(rc);
      return rc == 0;
    }
    case kServerInfo: {
      std::wstring name, server, ip, netbios, version;
      int port = 0;
      const int rc = helper.GetVantorServerInfo(name, server, ip, netbios, port, version, true, false);
      if (rc != 0 || name.empty() || server.empty()) {
        why = "rc=" + std::to_string(rc) + " name=" + Narrow(name);
        return false;
      }
      return true;
    }
    case kImport: {
      const int rc = helper.ImportSiteList(Wide(dir.outsideList()), L"");
      if (rc != 0) why = "rc=" + std::to_string(rc);
      return rc == 0;
    }
    case kServerList: {
      const bool ok = CSitesHelper::createServerSiteListFromSiteList(Wide(dir.etc()).c_str(), Wide(dir.data()).c_str());
      if (!ok) why = "false";
      return ok;
    }
    case kOpCount:
      break;
  }
  why = "operation not available";
  return false;
}

[[noreturn]] void Worker(Shared* shared, int index, long ops, unsigned seed, const workload::DataDir& dir,
                         const std::vector<Op>& mix) {
  WorkerResult& r = shared->workers[index];
  g_current = &r;
  workload::CountingNullSink sink;
  port::SetLogSink(&sink);
  port::SetLogThreshold(port::LogLevel::Detail);  // every log line is built, as in the field at detail
  port::SysCalls table = port::Sys();
  g_realFcntlLock = table.fcntlLock;
  table.fcntlLock = TimedFcntlLock;
  port::ScopedSysCallOverride timed(table);

  std::mt19937 rng(seed + static_cast<unsigned>(index) * 7919u);
  CSitesHelper helper;
  for (long i = 0; i < ops; ++i) {
    const Op op = mix[rng() % mix.size()];
    std::string why;
    const std::int64_t start = workload::NowUs();
    const bool ok = RunOp(op, helper, dir, rng, index, why);
    const std::int64_t took = workload::NowUs() - start;
    ++r.ops[op];
    r.slowestUs[op] = std::max(r.slowestUs[op], took);
    if (!ok) NoteFailure(r, op, why);
  }
  r.errorLines = sink.errors();
  r.done = 1;
  std::fflush(nullptr);
  _exit(0);
}

[[noreturn]] void Observer(Shared* shared, const workload::DataDir& dir) {
  ObserverResult& r = shared->observer;
  const std::string files[] = {dir.siteList(), dir.serverSiteList()};
  while (shared->stop.load() == 0) {
    for (const std::string& path : files) {
      if (!testsupport::FileExists(path)) continue;
      // No lock: a reader that ignores the lock must still never see a torn file.
      const std::string bytes = testsupport::ReadFile(path);
      ++r.observations;
      if (!workload::DocumentParses(bytes)) {
        if (r.unparsable++ == 0)
          std::snprintf(r.firstBad, sizeof r.firstBad, "%s (%zu bytes)", path.c_str(), bytes.size());
      }
    }
  }
  _exit(0);
}

double Ms(std::int64_t us) { return static_cast<double>(us) / 1000.0; }

}  // namespace

int main(int argc, char** argv) {
  const long processes = std::clamp(workload::ArgValue(argc, argv, "--processes", 8), 1L, 64L);
  // VLM_STRESS_OPS, when set, overrides the count given by the test
  // definition, so that a longer run needs no reconfiguration.
  long ops = std::max(1L, workload::ArgValue(argc, argv, "--ops", 2000));
  if (const char* env = std::getenv("VLM_STRESS_OPS"); env && std::atol(env) > 0) ops = std::atol(env);
  const unsigned seed = static_cast<unsigned>(workload::ArgValue(argc, argv, "--seed", 20250101));
  const long watchdogS = std::max(1L, workload::ArgValue(argc, argv, "--watchdog", 600));

  workload::DataDir dir;
  workload::CountingNullSink parentSink;
  port::SetLogSink(&parentSink);

  // The agent's list to start from, written by the library itself.
  {
    CSitesHelper helper;
    tag_Site* list = workload::BuildList(0, true);
    const int rc = helper.CreateSiteList(list, L"", L"20250101000000", L"", L"Client", {L"CERT-STRESS"});
    helper.FreeSiteListMemory(list);
    if (rc != 0) {
      std::printf("FAIL: the initial site list could not be written (rc=%d)\n", rc);
      return 1;
    }
  }

  // The outside list to import, with its key files.
  for (const char* name : {"SiteList.xml", "srpubkey.bin", "reqseckey.bin", "sr2048pubkey.bin", "req2048seckey.bin"})
    testsupport::WriteFile(dir.outside() + "/" + name, testsupport::ReadFile(std::string(VLM_EXAMPLES_DIR) + "/outside/" + name));

  std::vector<Op> mix = {kSmartRead, kRead, kCreate, kNotice, kSetSpipe, kServerInfo, kImport, kServerList};

  void* mem = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (mem == MAP_FAILED) {
    std::perror("mmap");
    return 1;
  }
  Shared* shared = new (mem) Shared();
  std::fflush(nullptr);

  const std::int64_t start = workload::NowUs();
  const pid_t observer = fork();
  if (observer < 0) return 1;
  if (observer == 0) Observer(shared, dir);

  std::vector<pid_t> workers;
  for (long i = 0; i < processes; ++i) {
    const pid_t pid = fork();
    if (pid < 0) {
      std::perror("fork");
      return 1;
    }
    if (pid == 0) Worker(shared, static_cast<int>(i), ops, seed, dir, mix);
    workers.push_back(pid);
  }

  // Watchdog: every worker must end within the limit.
  bool timedOut = false;
  std::vector<int> statuses(workers.size(), -1);
  std::size_t running = workers.size();
  const std::int64_t deadline = start + watchdogS * 1000000;
  while (running > 0) {
    for (std::size_t i = 0; i < workers.size(); ++i) {
      if (statuses[i] != -1) continue;
      int status = 0;
      if (waitpid(workers[i], &status, WNOHANG) == workers[i]) {
        statuses[i] = status;
        --running;
      }
    }
    if (running == 0) break;
    if (workload::NowUs() > deadline) {
      timedOut = true;
      for (std::size_t i = 0; i < workers.size(); ++i) {
        if (statuses[i] != -1) continue;
        std::printf("FAIL: watchdog: worker %zu (pid %d) still running after %ld s\n", i,
                    static_cast<int>(workers[i]), watchdogS);
        kill(workers[i], SIGKILL);
        waitpid(workers[i], &statuses[i], 0);
      }
      break;
    }
    usleep(10000);
  }
  const std::int64_t elapsed = workload::NowUs() - start;
  shared->stop.store(1);
  int observerStatus = 0;
  waitpid(observer, &observerStatus, 0);

  bool pass = !timedOut;
  std::uint64_t total[kOpCount] = {}, failed[kOpCount] = {};
  std::int64_t slowest[kOpCount] = {};
  std::uint64_t lockWaits = 0, errorLines = 0;
  std::int64_t slowestLock = 0;
  for (std::size_t i = 0; i < workers.size(); ++i) {
    const WorkerResult& r = shared->workers[i];
    if (!WIFEXITED(statuses[i]) || WEXITSTATUS(statuses[i]) != 0 || !r.done) {
      std::printf("FAIL: worker %zu did not finish normally (status %d)\n", i, statuses[i]);
      pass = false;
    }
    for (int op = 0; op < kOpCount; ++op) {
      total[op] += r.ops[op];
      failed[op] += r.failures[op];
      slowest[op] = std::max(slowest[op], r.slowestUs[op]);
    }
    lockWaits += r.lockWaits;
    slowestLock = std::max(slowestLock, r.slowestLockWaitUs);
    errorLines += r.errorLines;
    if (r.firstFailure[0]) std::printf("worker %zu first failure: %s\n", i, r.firstFailure);
  }

  std::uint64_t all = 0, allFailed = 0;
  std::printf("load: %ld processes x %ld operations, seed %u, %.1f s\n", processes, ops, seed, Ms(elapsed) / 1000);
  for (int op = 0; op < kOpCount; ++op) {
    if (total[op] == 0) continue;
    all += total[op];
    allFailed += failed[op];
    std::printf("  %-34s %7llu ops %5llu failed  slowest %8.1f ms\n", kOpNames[op],
                static_cast<unsigned long long>(total[op]), static_cast<unsigned long long>(failed[op]),
                Ms(slowest[op]));
  }
  std::printf("  total %llu operations (%.0f/s), %llu failed, %llu error log lines\n",
              static_cast<unsigned long long>(all), static_cast<double>(all) * 1e6 / static_cast<double>(elapsed),
              static_cast<unsigned long long>(allFailed), static_cast<unsigned long long>(errorLines));
  std::printf("  lock waits %llu, slowest lock wait %.1f ms\n", static_cast<unsigned long long>(lockWaits),
              Ms(slowestLock));
  std::printf("  observer: %llu files observed without lock, %llu unparsable%s%s\n",
              static_cast<unsigned long long>(shared->observer.observations),
              static_cast<unsigned long long>(shared->observer.unparsable), shared->observer.unparsable ? ": " : "",
              shared->observer.firstBad);

  if (all != static_cast<std::uint64_t>(processes * ops)) pass = false;
  if (allFailed != 0 || errorLines != 0) pass = false;
  if (shared->observer.unparsable != 0 || shared->observer.observations == 0) pass = false;
  if (!WIFEXITED(observerStatus) || WEXITSTATUS(observerStatus) != 0) pass = false;

  // The list left behind reads back.
  {
    CSitesHelper helper;
    tag_Site* list = nullptr;
    const int rc = helper.ReadSiteList(Wide(dir.siteList()), &list);
    if (rc != 0 || !workload::HasSpipeSite(list)) {
      std::printf("FAIL: final list reads with rc=%d\n", rc);
      pass = false;
    }
    helper.FreeSiteListMemory(list);
  }
  std::printf("%s\n", pass ? "PASS" : "FAIL");
  return pass ? 0 : 1;
}
