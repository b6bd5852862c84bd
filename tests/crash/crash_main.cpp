// Crash injection: a child process rewrites the agent's files in a loop (the
// site list, the server site list derived from it, the four key files) and
// is killed with SIGKILL at a random moment, again and again.
//
//   vlm_crash [--kills N] [--seed N] [--max-delay-us N]
//
// After every kill: each file is one of the contents the child was writing,
// byte for byte but for the cipher text of its passwords (fresh nonce per
// write), never torn, never empty; documents parse; every file keeps its
// mode (request keys 0600); both named locks can be
// taken at once; and a new write through the library succeeds and lands,
// whatever temporaries the killed writer left. Exit 0 when every round holds.
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

// Writes list variant (0 or 1) to the agent's list with fixed versions, so
// that the bytes of each variant are always the same.
int WriteVariant(CSitesHelper& helper, int variant) {
  tag_Site* list = workload::BuildList(variant, false);
  const int rc = helper.CreateSiteList(list, L"", L"20250101000000", variant ? L"20250101000002" : L"20250101000001",
                                       L"Client", kCertificates);
  helper.FreeSiteListMemory(list);
  return rc;
}

const char* const kKeyFiles[] = {"srpubkey.bin", "sr2048pubkey.bin", "reqseckey.bin", "req2048seckey.bin"};

// Key file contents of a variant: distinct bytes per file and variant, of
// sizes that take more than one write call.
ABuffer KeyBytes(int file, int variant) {
  std::string bytes(3000 + 1000 * file, static_cast<char>('a' + file * 2 + variant));
  return ABuffer(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

bool WriteKeys(CSitesHelper& helper, const std::string& dir, int variant) {
  return helper.writeKeyFiles(true, true, KeyBytes(0, variant), KeyBytes(2, variant), true, true, KeyBytes(1, variant),
                              KeyBytes(3, variant), AString(dir));
}

// One round of the child's writes: the agent's list, the server site list
// derived from it, then the key files beside it.
int WriteAll(CSitesHelper& helper, const workload::DataDir& dir, int variant) {
  if (int rc = WriteVariant(helper, variant)) return rc;
  if (!CSitesHelper::createServerSiteListFromSiteList(Wide(dir.etc()).c_str(), Wide(dir.data()).c_str())) return -100;
  if (!WriteKeys(helper, dir.etc(), variant)) return -101;
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
  for (unsigned i = 0;; ++i) WriteAll(helper, dir, static_cast<int>(i % 2));
}

mode_t ModeOf(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
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
  for (int variant : {1, 0}) {
    if (const int rc = WriteAll(helper, dir, variant)) {
      std::printf("FAIL: variant %d could not be written (%d)\n", variant, rc);
      return 1;
    }
    for (Target& t : targets) t.allowed.insert(Normalized(t, ReadFile(t.path)));
  }
  std::vector<std::string> variantA;  // variant 0, written last
  for (const Target& t : targets) variantA.push_back(Normalized(t, ReadFile(t.path)));

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
      if (Normalized(t, now) != Normalized(t, before[i])) ++changed;
    }
    {
      tag_Site* list = nullptr;
      const int rc = helper.ReadSiteList(Wide(dir.siteList()), &list);
      if (rc != 0 || !workload::HasSpipeSite(list)) {
        std::printf("FAIL: round %ld: ReadSiteList gives %d\n", round, rc);
        pass = false;
      }
      helper.FreeSiteListMemory(list);
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
  std::printf("  kills that left a new temporary behind (killed mid-write): %ld; most temporaries at once: %zu\n",
              temporariesSeen, maxTemporaries);
  if (!temporaryNames.empty()) std::printf("  e.g. %s\n", temporaryNames.front().c_str());
  std::printf("  writes after a kill that landed: %ld of %ld\n", laterWrites, rounds);
  std::printf("  error log lines in the checking process: %llu\n", static_cast<unsigned long long>(sink.errors()));
  if (sink.errors() != 0) pass = false;
  std::printf("%s\n", pass ? "PASS" : "FAIL");
  return pass ? 0 : 1;
}
