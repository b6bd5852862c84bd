// The benchmark runner.
//
// The heap is kept rather than trimmed after every round: glibc's default
// thresholds move (they rise after the first large block is freed), so with
// them whether a round pays the page faults of a re-grown heap depended on
// which benchmarks had run before it, and the comparison of an operation
// with its floor depended on the order. A long-running agent process keeps
// its heap the same way once its thresholds have risen. Every list is then
// generated and read once, so keys and lock files exist before the first
// benchmark.
#include <benchmark/benchmark.h>

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "BenchEnv.h"
#include "sitehlp/SitesHelper.h"

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  // VLM_BENCH_GLIBC_HEAP=1 keeps glibc's own (moving) thresholds instead.
  const char* glibcHeap = std::getenv("VLM_BENCH_GLIBC_HEAP");
  if (!glibcHeap || std::string(glibcHeap) != "1") {
    mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 512 * 1024 * 1024);
  }
  for (unsigned n : {10u, 100u, 1000u, 10000u}) {
    const vlmbench::SizeData& data = vlmbench::BenchEnv::Get().Size(n);
    sitehlp::CSitesHelper helper(data.wlistPath);
    sitehlp::tag_Site* list = nullptr;
    if (helper.ReadSiteList(data.wlistPath, &list) != 0) {
      std::fprintf(stderr, "the generated %u-site list does not read back\n", n);
      return 1;
    }
    helper.FreeSiteListMemory(list);
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
