// Crash injection: a child process imports outside site lists in a loop,
// alternating two of them, each with its four key files (the agent's list and
// key files, written as one change), and derives the server site list from
// the result; it is killed with SIGKILL at a random moment, again and again.
//
//   vlm_crash [--kills N] [--seed N] [--max-delay-us N]
//
// After every kill: each file is one of the contents the child was writing,
// byte for byte but for the cipher text of its passwords (fresh nonce per
// write), never torn, never empty; documents parse; every file keeps its
// owner and mode (request keys 0600). Once the next reader has read the list
// (finishing a change the child could not), the list and its four key files
// are all those of one import: never the keys of one and the list of the
// other. Both named locks can be taken at once, and a new import through the
// library succeeds and lands, whatever the killed writer left. Exit 0 when
// every round holds.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "port/lock/InterProcessLock.h"
#include "port/log/Log.h"
#include "sitehlp/SitesHelper.h"
#include "stress/Workload.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;
using testsupport::ReadFile;
using testsupport::Wide;

const std::vector<std::wstring> kCertificates = {L"CERT-CRASH-1", L"CERT-CRASH-2"};

using workload::kKeyFiles;

std::string SourceDir(const workload::DataDir& dir, int variant) {
  return dir.root() + "/source" + std::to_string(variant);
}

// One round of the child's writes: the import of a variant (list and key
// files), then the server site list derived from the list.
int WriteAll(CSitesHelper& helper, const workload::DataDir& dir, int variant) {
  if (int rc = helper.ImportSiteList(Wide(SourceDir(dir, variant) + "/SiteList.xml"), L"")) return rc;
  if (!CSitesHelper::createServerSiteListFromSiteList(Wide(dir.etc()).c_str(), Wide(dir.data()).c_str())) return -100;
  return 0;
}

// The files the child writes, with the contents each may hold.
struct Target {
  std::string name;
  std::string path;
  bool document;
  mode_t mode;
  std::set<std::string> allowed;
};

std::string Normalized(const Target& t, const std::string& bytes) {
  return t.document ? workload::WithoutCipherText(bytes) : bytes;
}

[[noreturn]] void Writer(const workload::DataDir& dir) {
  workload::CountingNullSink sink;
  port::SetLogSink(&sink);
  CSitesHelper helper;
  // Variant 1 first: the parent left variant 0 in place.
  for (unsigned i = 1;; ++i) WriteAll(helper, dir, static_cast<int>(i % 2));
}

mode_t ModeOf(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
}

uid_t OwnerOf(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 ? st.st_uid : static_cast<uid_t>(-1);
}

// The variant whose import every one of the five files (the list and the
// four key files, targets 0 and 2 to 5) holds; -1 when they are mixed.
int ImportHeld(const std::vector<Target>& targets, const std::vector<std::vector<std::string>>& contents) {
  for (int variant : {0, 1}) {
    bool all = true;
    for (std::size_t i = 0; i < targets.size(); ++i)
      if (i != 1 && Normalized(targets[i], ReadFile(targets[i].path)) != contents[variant][i]) all = false;
    if (all) return variant;
  }
  return -1;
}

bool LockIsFree(const char* name, bool exclusive) {
  InterProcessLock lock(name, exclusive);
  const bool ok = lock.lock(0);  // no wait: a lock left held would fail at once
  lock.unlock();
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  long kills = std::max(1L, workload::ArgValue(argc, argv, "--kills", 200));
  if (const char* env = std::getenv("VLM_CRASH_KILLS"); env && std::atol(env) > 0) kills = std::atol(env);
  const unsigned seed = static_cast<unsigned>(workload::ArgValue(argc, argv, "--seed", 20250102));
  const long maxDelayUs = std::max(1L, workload::ArgValue(argc, argv, "--max-delay-us", 20000));

  workload::DataDir dir;
  workload::CountingNullSink sink;
  port::SetLogSink(&sink);
  CSitesHelper helper;

  // The contents each variant writes.
  std::vector<Target> targets = {{"SiteList.xml", dir.siteList(), true, 0644, {}},
                                 {"ServerSiteList.xml", dir.serverSiteList(), true, 0644, {}}};
  for (const char* name : kKeyFiles) {
    const bool secret = std::string(name).rfind("req", 0) == 0;
    targets.push_back({name, dir.etc() + "/" + name, false, static_cast<mode_t>(secret ? 0600 : 0644), {}});
  }
  std::vector<std::vector<std::string>> contents(2);  // per variant, per target
  for (int variant : {1, 0}) {
    int rc = workload::WriteOutsideVariant(helper, SourceDir(dir, variant), variant, kCertificates) ? 0 : -200;
    if (rc == 0) rc = WriteAll(helper, dir, variant);
    if (rc != 0) {
      std::printf("FAIL: variant %d could not be written (%d)\n", variant, rc);
      return 1;
    }
    for (Target& t : targets) {
      t.allowed.insert(Normalized(t, ReadFile(t.path)));
      contents[variant].push_back(Normalized(t, ReadFile(t.path)));
    }
  }
  const std::vector<std::string>& variantA = contents[0];  // variant 0, written last
  // The agent's files belong to the agent's user; every write as root must
  // leave them so.
  for (const Target& t : targets) {
    if (chown(t.path.c_str(), testsupport::kOtherUser, testsupport::kOtherGroup) != 0) {
      std::printf("FAIL: cannot give %s to the agent's user\n", t.name.c_str());
      return 1;
    }
  }
  long interrupted = 0, mixed = 0;
  long held[2] = {0, 0};

  std::mt19937 rng(seed);
  std::uniform_int_distribution<long> delay(0, maxDelayUs);
  bool pass = true;
  long rounds = 0, changed = 0, temporariesSeen = 0, laterWrites = 0;
  std::size_t maxTemporaries = 0;
  std::vector<std::string> temporaryNames;
  const std::int64_t start = workload::NowUs();
  std::fflush(nullptr);

  for (long round = 0; round < kills && pass; ++round, ++rounds) {
    std::vector<std::string> before;
    for (const Target& t : targets) before.push_back(ReadFile(t.path));
    const std::size_t temporariesBefore =
        workload::TemporaryFiles(dir.etc()).size() + workload::TemporaryFiles(dir.data()).size();

    const pid_t pid = fork();
    if (pid < 0) {
      std::perror("fork");
      return 1;
    }
    if (pid == 0) Writer(dir);
    const long us = delay(rng);
    timespec ts{us / 1000000, (us % 1000000) * 1000};
    nanosleep(&ts, nullptr);
    kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
      std::printf("FAIL: round %ld: the writer ended by itself (status %d)\n", round, status);
      pass = false;
      break;
    }

    // Every file holds one whole content, old or new, and parses.
    for (std::size_t i = 0; i < targets.size(); ++i) {
      const Target& t = targets[i];
      const std::string now = ReadFile(t.path);
      if (!t.allowed.count(Normalized(t, now))) {
        std::printf("FAIL: round %ld: %s holds %zu bytes that are neither content\n", round, t.name.c_str(),
                    now.size());
        pass = false;
      } else if (t.document && !workload::DocumentParses(now)) {
        std::printf("FAIL: round %ld: %s does not parse\n", round, t.name.c_str());
        pass = false;
      }
      if (ModeOf(t.path) != t.mode) {
        std::printf("FAIL: round %ld: %s has mode %o, not %o\n", round, t.name.c_str(), ModeOf(t.path), t.mode);
        pass = false;
      }
      if (OwnerOf(t.path) != testsupport::kOtherUser) {
        std::printf("FAIL: round %ld: %s is owned by %u\n", round, t.name.c_str(), OwnerOf(t.path));
        pass = false;
      }
      if (Normalized(t, now) != Normalized(t, before[i])) ++changed;
    }
    if (testsupport::FileExists(dir.etc() + "/.pending-change")) ++interrupted;
    {
      // The next reader: it finishes a change the killed writer recorded.
      tag_Site* list = nullptr;
      const int rc = helper.ReadSiteList(Wide(dir.siteList()), &list);
      if (rc != 0 || !workload::HasSpipeSite(list)) {
        std::printf("FAIL: round %ld: ReadSiteList gives %d\n", round, rc);
        pass = false;
      }
      helper.FreeSiteListMemory(list);
    }
    // The list and its four key files are those of one import.
    const int variantHeld = ImportHeld(targets, contents);
    if (variantHeld < 0) {
      ++mixed;
      std::printf("FAIL: round %ld: the list and the key files are not those of one import\n", round);
      pass = false;
    } else {
      ++held[variantHeld];
    }

    // The kernel released whatever the writer held.
    for (const char* name : {sitehlp::c_siteListLock, sitehlp::smartSiteListLock}) {
      if (!LockIsFree(name, true)) {
        std::printf("FAIL: round %ld: lock %s still held after the kill\n", round, name);
        pass = false;
      }
    }

    std::vector<std::string> temporaries = workload::TemporaryFiles(dir.etc());
    for (const std::string& name : workload::TemporaryFiles(dir.data())) temporaries.push_back(name);
    if (temporaries.size() > temporariesBefore) ++temporariesSeen;
    maxTemporaries = std::max(maxTemporaries, temporaries.size());
    if (temporaryNames.empty() && !temporaries.empty()) temporaryNames = temporaries;

    // Later writes are not tripped by anything the killed writer left.
    bool landed = WriteAll(helper, dir, 0) == 0;
    for (std::size_t i = 0; i < targets.size(); ++i)
      landed = landed && Normalized(targets[i], ReadFile(targets[i].path)) == variantA[i];
    if (!landed) {
      std::printf("FAIL: round %ld: writes after the kill did not land\n", round);
      pass = false;
    } else {
      ++laterWrites;
    }
  }
  const double seconds = static_cast<double>(workload::NowUs() - start) / 1e6;

  std::printf("crash: %ld writers killed with SIGKILL (seed %u, delays up to %ld us), %.1f s\n", rounds, seed,
              maxDelayUs, seconds);
  std::printf("  files checked after each kill: %zu; file contents changed by a killed writer: %ld\n",
              targets.size(), changed);
  std::printf("  kills that left a change for the next reader to finish: %ld\n", interrupted);
  std::printf("  list and key files of one import after the next read: %ld (first import %ld, second %ld); mixed: %ld\n",
              held[0] + held[1], held[1], held[0], mixed);
  std::printf("  kills that left a new temporary behind (killed mid-write): %ld; most temporaries at once: %zu\n",
              temporariesSeen, maxTemporaries);
  if (!temporaryNames.empty()) std::printf("  e.g. %s\n", temporaryNames.front().c_str());
  std::printf("  writes after a kill that landed: %ld of %ld\n", laterWrites, rounds);
  std::printf("  error log lines in the checking process: %llu\n", static_cast<unsigned long long>(sink.errors()));
  if (sink.errors() != 0) pass = false;
  std::printf("%s\n", pass ? "PASS" : "FAIL");
  return pass ? 0 : 1;
}
