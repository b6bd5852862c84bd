// Peak memory of reading a large site list: below four times the file plus
// the records the list becomes.
//
//   vlm_peak_read [--sites N] [--attribute-mb N] [--certificate-mb N]
//
// Two lists are written into a temporary directory, each just under the size
// limit of the reader: N sites with one site whose name is a value of
// attribute-mb megabytes (cut to its field when read), and N sites with a CA
// bundle of certificate-mb megabytes (held by the tree, not read into
// records). Each is read by ReadSiteList in a fresh process (this program run
// again with --measure), which reports how much its resident set grew from
// before the read to its peak. Exit 0 when every growth stays below the
// bound.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "sitehlp/SitesHelper.h"
#include "stress/Workload.h"
#include "support/TestSupport.h"

#if defined(__SANITIZE_ADDRESS__)
#include <atomic>
#include <cstddef>

// From the sanitizer runtime's allocator interface (gcc ships no header).
extern "C" {
std::size_t __sanitizer_get_allocated_size(const volatile void* p);
int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, std::size_t),
                                              void (*onFree)(const volatile void*));
}

// Under AddressSanitizer the resident set measures its allocator rather than
// the read: a realloc there always moves the block (old and new both
// resident), where glibc grows a large block in place. So this build takes
// the peak of the live heap bytes, counted by the sanitizer's allocation
// hooks, as the read's peak. The quarantine is off so that the process stays
// small; the hooks see a block as freed either way.
extern "C" const char* __asan_default_options() { return "quarantine_size_mb=0"; }

namespace {
std::atomic<long long> g_live{0};
std::atomic<long long> g_peak{0};

void OnMalloc(const volatile void*, std::size_t size) {
  const long long live = g_live.fetch_add(static_cast<long long>(size)) + static_cast<long long>(size);
  long long peak = g_peak.load();
  while (live > peak && !g_peak.compare_exchange_weak(peak, live)) {
  }
}

void OnFree(const volatile void* ptr) {
  g_live.fetch_sub(static_cast<long long>(__sanitizer_get_allocated_size(ptr)));
}

const bool g_hooked = __sanitizer_install_malloc_and_free_hooks(&OnMalloc, &OnFree) != 0;

// Live heap bytes now, and the peak since the last call.
long long MemoryNow() {
  g_peak.store(g_live.load());
  return g_live.load();
}
long long MemoryPeak() { return g_hooked ? g_peak.load() : -1; }
}  // namespace
#else
namespace {
long long StatusBytes(const char* field);
long long MemoryNow() { return StatusBytes("VmRSS"); }
long long MemoryPeak() { return StatusBytes("VmHWM"); }
}  // namespace
#endif

namespace {

// A value of /proc/self/status in bytes ("VmRSS", "VmHWM").
[[maybe_unused]] long long StatusBytes(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  const std::string key = std::string(field) + ":";
  while (std::getline(status, line))
    if (line.compare(0, key.size(), key) == 0) return std::atoll(line.c_str() + key.size()) * 1024;
  return -1;
}

std::string Site(int i, const std::string& name) {
  return "<HttpSite Type=\"repository\" Name=\"" + name + "\" Order=\"" + std::to_string(i + 2) +
         "\" Enabled=\"1\" Local=\"0\" Server=\"mirror" + std::to_string(i) +
         ".corp.example:8080\" SecurePort=\"8443\"><RelativePath>Updates/Current/" + std::to_string(i) +
         "</RelativePath><UseAuth>0</UseAuth><UserName>reader" + std::to_string(i) +
         "</UserName><Password Encrypted=\"1\"></Password></HttpSite>";
}

std::string List(int sites, const std::string& bundle, const std::string& bigName) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ns:SiteLists xmlns:ns=\"zelSiteList\" "
                     "GlobalVersion=\"20250101000000\" LocalVersion=\"20250101000001\" Type=\"Client\">" +
                     bundle + "<SiteList Default=\"1\" Name=\"SomeGUID\">";
  text += "<SpipeSite Type=\"master\" Name=\"Vantor_MasterSite\" Order=\"1\" Enabled=\"1\" Local=\"0\" "
          "Server=\"mgmt.corp.example:443\"><RelativePath>Software</RelativePath></SpipeSite>";
  if (!bigName.empty()) text += Site(0, bigName);
  for (int i = 1; i < sites; ++i) text += Site(i, "Mirror" + std::to_string(i));
  return text + "</SiteList></ns:SiteLists>\n";
}

std::string Bundle(long long bytes) {
  std::string bundle = "<CaBundle>";
  const std::string body(3000, 'M');
  while (static_cast<long long>(bundle.size()) < bytes)
    bundle += "<CaCertificate>-----BEGIN CERTIFICATE-----\n" + body + "\n-----END CERTIFICATE-----</CaCertificate>";
  return bundle + "</CaBundle>";
}

// The measuring process: a warm-up read of a small list (so that the
// library, the parser and the locks are set up), then the read of the large
// one, whose records stay alive until the peak is taken.
int Measure(const std::string& small, const std::string& large) {
  sitehlp::CSitesHelper helper(testsupport::Wide(small));
  sitehlp::tag_Site* list = nullptr;
  if (helper.ReadSiteList(L"", &list) != 0) return 2;
  helper.FreeSiteListMemory(list);
  list = nullptr;
  const long long before = MemoryNow();
  const int rc = helper.ReadSiteList(testsupport::Wide(large), &list);
  const long long peak = MemoryPeak();
  long records = 0;
  for (sitehlp::tag_Site* s = list; s; s = s->pNext) ++records;
  helper.FreeSiteListMemory(list);
  std::printf("%d %ld %lld\n", rc, records, peak - before);
  return 0;
}

struct Result {
  int rc = -99;
  long records = 0;
  long long growth = 0;
};

// Runs this program again with --measure and reads its one line.
Result MeasureInFreshProcess(const char* self, const std::string& small, const std::string& large) {
  int fds[2];
  Result r;
  if (pipe(fds) != 0) return r;
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(fds[1], STDOUT_FILENO);
    close(fds[0]);
    close(fds[1]);
    execl("/proc/self/exe", self, "--measure", small.c_str(), large.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  close(fds[1]);
  char line[256] = {0};
  const ssize_t got = read(fds[0], line, sizeof line - 1);
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  if (got > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0)
    std::sscanf(line, "%d %ld %lld", &r.rc, &r.records, &r.growth);
  return r;
}

bool Check(const char* self, const char* what, const std::string& small, const std::string& large,
           long expectedRecords) {
  const long long fileBytes = static_cast<long long>(testsupport::ReadFile(large).size());
  const Result r = MeasureInFreshProcess(self, small, large);
  const long long recordBytes = static_cast<long long>(r.records) * static_cast<long long>(sizeof(sitehlp::tag_Site));
  const long long bound = 4 * fileBytes + recordBytes;
  const bool pass = r.rc == 0 && r.records == expectedRecords && r.growth > 0 && r.growth < bound;
  std::printf("%s: file %.1f MB, %ld records (%.1f MB), peak growth %.1f MB = %.2f x file + records; bound "
              "%.1f MB, ratio %.3f: %s\n",
              what, fileBytes / 1e6, r.records, recordBytes / 1e6, r.growth / 1e6,
              fileBytes ? static_cast<double>(r.growth - recordBytes) / fileBytes : 0.0, bound / 1e6,
              bound ? static_cast<double>(r.growth) / bound : 0.0, pass ? "ok" : "FAIL");
  if (r.rc != 0) std::printf("  ReadSiteList gave %d\n", r.rc);
  return pass;
}

}  // namespace

int main(int argc, char** argv) {
  setenv("VLM_LOG_SINK", "none", 1);
  if (argc == 4 && std::strcmp(argv[1], "--measure") == 0) return Measure(argv[2], argv[3]);

  const int sites = static_cast<int>(workload::ArgValue(argc, argv, "--sites", 1000));
  const long long attributeBytes = workload::ArgValue(argc, argv, "--attribute-mb", 12) * 1000 * 1000;
  const long long bundleBytes = workload::ArgValue(argc, argv, "--certificate-mb", 12) * 1000 * 1000;
  testsupport::TempDir dir;
  setenv("VLM_LOCK_DIR", dir.file("locks").c_str(), 1);
  setenv("VLM_KEY_DIR", dir.file("keys").c_str(), 1);
  setenv("VLM_FRAMEWORK_DATA_DIR", dir.file("data").c_str(), 1);

  testsupport::WriteFile(dir.file("small.xml"), List(2, "", ""));
  testsupport::WriteFile(dir.file("attribute.xml"), List(sites, "", std::string(attributeBytes, 'n')));
  testsupport::WriteFile(dir.file("bundle.xml"), List(sites, Bundle(bundleBytes), ""));

  bool pass = Check(argv[0], "large attribute", dir.file("small.xml"), dir.file("attribute.xml"), sites + 1);
  pass = Check(argv[0], "large CA bundle", dir.file("small.xml"), dir.file("bundle.xml"), sites) && pass;
  std::printf("%s\n", pass ? "PASS" : "FAIL");
  return pass ? 0 : 1;
}
