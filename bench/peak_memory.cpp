// vlm-bench-peak-memory: the heap's peak while ReadSiteList reads a 1,000-site
// list, against the bound of the records' size plus three times the file's.
//
// Every allocation of the process (the library, pugixml, OpenSSL, the C++
// runtime) goes through the malloc family defined here, which counts live
// bytes (usable sizes) and keeps their high-water mark. The resident set's
// growth over the read is shown beside it.
//   vlm-bench-peak-memory [sites]        prints one JSON object
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "BenchEnv.h"
#include "sitehlp/SitesHelper.h"

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void __libc_free(void*);
void* __libc_memalign(size_t, size_t);
}

namespace {

std::atomic<long long> g_live{0};
std::atomic<long long> g_peak{0};

void Added(void* p) {
  if (!p) return;
  const long long now = g_live.fetch_add(static_cast<long long>(malloc_usable_size(p))) +
                        static_cast<long long>(malloc_usable_size(p));
  long long peak = g_peak.load(std::memory_order_relaxed);
  while (now > peak && !g_peak.compare_exchange_weak(peak, now)) {
  }
}
void Removed(void* p) {
  if (p) g_live.fetch_sub(static_cast<long long>(malloc_usable_size(p)));
}

long ResidentKiB() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

extern "C" {
void* malloc(size_t n) {
  void* p = __libc_malloc(n);
  Added(p);
  return p;
}
void* calloc(size_t n, size_t m) {
  void* p = __libc_calloc(n, m);
  Added(p);
  return p;
}
void* realloc(void* old, size_t n) {
  Removed(old);
  void* p = __libc_realloc(old, n);
  if (p)
    Added(p);
  else if (old && n)
    Added(old);  // the old block stays
  return p;
}
void free(void* p) {
  Removed(p);
  __libc_free(p);
}
void* memalign(size_t alignment, size_t n) {
  void* p = __libc_memalign(alignment, n);
  Added(p);
  return p;
}
void* aligned_alloc(size_t alignment, size_t n) { return memalign(alignment, n); }
int posix_memalign(void** out, size_t alignment, size_t n) {
  void* p = memalign(alignment, n);
  if (!p) return ENOMEM;
  *out = p;
  return 0;
}
void* valloc(size_t n) { return memalign(static_cast<size_t>(sysconf(_SC_PAGESIZE)), n); }
}

int main(int argc, char** argv) {
  const unsigned sites = argc > 1 ? static_cast<unsigned>(std::strtoul(argv[1], nullptr, 10)) : 1000u;
  vlmbench::BenchEnv& env = vlmbench::BenchEnv::Get();
  const vlmbench::SizeData& data = env.Size(sites);
  sitehlp::CSitesHelper helper(data.wlistPath);

  // One read first: keys loaded, lock directory made, the allocator's
  // arenas grown, so only what a read itself needs is measured.
  sitehlp::tag_Site* list = nullptr;
  if (helper.ReadSiteList(data.wlistPath, &list) != 0) return 1;
  helper.FreeSiteListMemory(list);
  list = nullptr;
  malloc_trim(0);

  const long residentBefore = ResidentKiB();
  const long long base = g_live.load();
  g_peak.store(base);
  const int rc = helper.ReadSiteList(data.wlistPath, &list);
  const long long peak = g_peak.load() - base;
  const long residentAfter = ResidentKiB();
  const std::size_t count = vlmbench::CountSites(list);
  helper.FreeSiteListMemory(list);
  if (rc != 0 || count != sites) {
    std::fprintf(stderr, "ReadSiteList failed: %d (%zu sites)\n", rc, count);
    return 1;
  }
  const long long records = static_cast<long long>(sites) * static_cast<long long>(sizeof(sitehlp::tag_Site));
  const long long bound = records + 3 * static_cast<long long>(data.fileSize);
  std::printf(
      "{\"sites\": %u, \"file_bytes\": %zu, \"record_bytes\": %lld, \"bound_bytes\": %lld, "
      "\"heap_peak_bytes\": %lld, \"rss_growth_kib\": %ld}\n",
      sites, data.fileSize, records, bound, peak, residentAfter - residentBefore);
  return peak <= bound ? 0 : 3;
}
