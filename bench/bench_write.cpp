// Writing: CreateSiteList beside building the same document in pugixml and
// saving it with the same durability: fsync counted in both, and (_NoSync)
// in neither.
#include <benchmark/benchmark.h>

#include "BenchEnv.h"
#include "FloorCipher.h"
#include "Floors.h"
#include "port/fs/SysCalls.h"
#include "sitehlp/SitesHelper.h"

namespace vlmbench {
namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;

void Sizes(benchmark::internal::Benchmark* b) { b->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond); }
// With the 10,000-site list (about 3 MB): how the cost grows.
void GrowthSizes(benchmark::internal::Benchmark* b) { Sizes(b); b->Arg(10000); }

// fsync taken out of both the library's write and the floor's: the CPU work
// alone. The system call table is the library's own seam for this.
class NoSync {
 public:
  NoSync() : m_override(Table()) {}

 private:
  static port::SysCalls Table() {
    port::SysCalls table = port::Sys();
    table.fsync = [](int) { return 0; };
    return table;
  }
  port::ScopedSysCallOverride m_override;
};

void CreateSiteList(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  const std::string target = BenchEnv::Get().Scratch("written-" + std::to_string(data.n) + ".xml");
  const std::wstring wtarget = Wide(target);
  CSitesHelper helper(wtarget);
  for (const auto& p : data.policies) helper.SetPolicySetting(p.first, p.second);
  for (auto _ : state) {
    // The writer changes the records it is given: each round gets a copy.
    state.PauseTiming();
    tag_Site* copy = CopyList(data.records.head);
    state.ResumeTiming();
    if (helper.CreateSiteList(copy, wtarget, data.records.globalVersion, data.records.localVersion, L"Client",
                              data.records.caCertificates) != 0)
      state.SkipWithError("CreateSiteList failed");
    state.PauseTiming();
    helper.FreeSiteListMemory(copy);
    state.ResumeTiming();
  }
}
void BM_CreateSiteList(benchmark::State& state) { CreateSiteList(state); }
BENCHMARK(BM_CreateSiteList)->Apply(GrowthSizes);

void BM_CreateSiteList_NoSync(benchmark::State& state) {
  NoSync noSync;
  CreateSiteList(state);
}
BENCHMARK(BM_CreateSiteList_NoSync)->Apply(GrowthSizes);

// cipher: the crypto-inclusive floor, which seals every password itself.
void FloorCreateSiteList(benchmark::State& state, FloorCipher* cipher = nullptr) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  const std::string target = BenchEnv::Get().Scratch("floor-" + std::to_string(data.n) + ".xml");
  for (auto _ : state) {
    // The same paused copy as the library's round: both start from freshly
    // copied records and caches disturbed alike.
    state.PauseTiming();
    tag_Site* copy = CopyList(data.records.head);
    state.ResumeTiming();
    benchmark::DoNotOptimize(FloorWrite(copy, data.passwords, data.records.caCertificates, data.policies, target, cipher));
    state.PauseTiming();
    FreeList(copy);
    state.ResumeTiming();
  }
}
void BM_Floor_CreateSiteList(benchmark::State& state) { FloorCreateSiteList(state); }
BENCHMARK(BM_Floor_CreateSiteList)->Apply(GrowthSizes);

void BM_Floor_CreateSiteList_NoSync(benchmark::State& state) {
  NoSync noSync;
  FloorCreateSiteList(state);
}
BENCHMARK(BM_Floor_CreateSiteList_NoSync)->Apply(GrowthSizes);

void BM_Floor_CreateSiteList_Crypto(benchmark::State& state) { FloorCreateSiteList(state, &TheFloorCipher()); }
BENCHMARK(BM_Floor_CreateSiteList_Crypto)->Apply(GrowthSizes);

void BM_Floor_CreateSiteList_Crypto_NoSync(benchmark::State& state) {
  NoSync noSync;
  FloorCreateSiteList(state, &TheFloorCipher());
}
BENCHMARK(BM_Floor_CreateSiteList_Crypto_NoSync)->Apply(GrowthSizes);

// One password encrypted, as the writer does for every Password element.
void BM_EncryptPassword(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(10);
  CSitesHelper helper(data.wlistPath);
  std::wstring encrypted;
  for (auto _ : state) {
    if (helper.EncryptPassword(L"", encrypted) != 1) state.SkipWithError("EncryptPassword failed");
  }
}
BENCHMARK(BM_EncryptPassword)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace vlmbench
