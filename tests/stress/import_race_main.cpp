// Two imports at once: two processes import two different outside lists,
// each with its four key files, into one agent at the same moment, round
// after round. Both must succeed, and afterwards the agent's list and its
// four key files must all be those of one of the two imports, never the keys
// of one and the list of the other; no temporary and no change record may be
// left.
//
//   vlm_import_race [--rounds N]      (VLM_RACE_ROUNDS overrides N)
//
// Exit 0 when every round holds.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "sitehlp/SitesHelper.h"
#include "stress/Workload.h"
#include "support/TestSupport.h"

namespace {

using sitehlp::CSitesHelper;
using testsupport::ReadFile;
using testsupport::Wide;

// The agent's five files as one text: the list without its cipher texts,
// then each key file.
std::string FiveFiles(const workload::DataDir& dir) {
  std::string all = workload::WithoutCipherText(ReadFile(dir.siteList()));
  for (const char* name : workload::kKeyFiles) all += "\n--" + std::string(name) + "--\n" + ReadFile(dir.etc() + "/" + name);
  return all;
}

// An importer: waits for the start signal, imports, exits 0 on success.
pid_t StartImporter(const std::string& source, int startPipe) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  alarm(60);
  char go = 0;
  if (read(startPipe, &go, 1) != 1) _exit(3);
  CSitesHelper helper;
  _exit(helper.ImportSiteList(Wide(source), L"") == 0 ? 0 : 1);
}

bool Succeeded(pid_t pid) {
  int status = 0;
  return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  long rounds = std::max(1L, workload::ArgValue(argc, argv, "--rounds", 1000));
  if (const char* env = std::getenv("VLM_RACE_ROUNDS"); env && std::atol(env) > 0) rounds = std::atol(env);

  workload::DataDir dir;
  workload::CountingNullSink sink;
  port::SetLogSink(&sink);
  CSitesHelper helper;

  // Each import once, alone: the five files it leaves.
  std::string sources[2];
  std::string expected[2];
  for (int variant : {0, 1}) {
    sources[variant] = dir.root() + "/source" + std::to_string(variant);
    if (!workload::WriteOutsideVariant(helper, sources[variant], variant, {L"CERT-RACE"}) ||
        helper.ImportSiteList(Wide(sources[variant] + "/SiteList.xml"), L"") != 0) {
      std::printf("FAIL: import %d alone failed\n", variant);
      return 1;
    }
    expected[variant] = FiveFiles(dir);
  }
  if (expected[0] == expected[1]) {
    std::printf("FAIL: the two imports leave the same files\n");
    return 1;
  }

  long won[2] = {0, 0}, mixed = 0, failedImports = 0, leftovers = 0;
  const std::int64_t start = workload::NowUs();
  std::fflush(nullptr);
  for (long round = 0; round < rounds; ++round) {
    int startPipe[2];
    if (pipe(startPipe) != 0) return 1;
    // Which one is started first alternates.
    const int first = static_cast<int>(round % 2);
    const pid_t a = StartImporter(sources[first] + "/SiteList.xml", startPipe[0]);
    const pid_t b = StartImporter(sources[1 - first] + "/SiteList.xml", startPipe[0]);
    close(startPipe[0]);
    const char go[2] = {'g', 'g'};
    if (write(startPipe[1], go, 2) != 2) return 1;
    close(startPipe[1]);
    const bool okA = Succeeded(a);
    const bool okB = Succeeded(b);
    if (!okA || !okB) ++failedImports;

    const std::string now = FiveFiles(dir);
    if (now == expected[0]) {
      ++won[0];
    } else if (now == expected[1]) {
      ++won[1];
    } else {
      ++mixed;
      if (mixed <= 3) std::printf("FAIL: round %ld: the list and the key files are not those of one import\n", round);
    }
    if (!workload::TemporaryFiles(dir.etc()).empty() || testsupport::FileExists(dir.etc() + "/.pending-change"))
      ++leftovers;
  }
  const double seconds = static_cast<double>(workload::NowUs() - start) / 1e6;

  std::printf("import race: %ld rounds of two imports at once, %.1f s (%.1f ms a round)\n", rounds, seconds,
              1000.0 * seconds / static_cast<double>(rounds));
  std::printf("  rounds left with the files of the first list: %ld, of the second: %ld, mixed: %ld\n", won[0], won[1],
              mixed);
  std::printf("  rounds with a failed import: %ld; with a temporary or change record left: %ld\n", failedImports,
              leftovers);
  std::printf("  error log lines in the checking process: %llu\n", static_cast<unsigned long long>(sink.errors()));
  const bool pass = mixed == 0 && failedImports == 0 && leftovers == 0 && sink.errors() == 0;
  std::printf("%s\n", pass ? "PASS" : "FAIL");
  return pass ? 0 : 1;
}
