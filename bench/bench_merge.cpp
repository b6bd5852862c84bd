// Merging and the management server endpoint.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <stdexcept>

#include "BenchEnv.h"
#include "Floors.h"
#include "sitehlp/SitesHelper.h"

namespace vlmbench {
namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;

void Sizes(benchmark::internal::Benchmark* b) { b->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond); }

// The given list merged onto a small base list (the agent's own ten sites).
void BM_MergeSiteLists(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  const SizeData& base = BenchEnv::Get().Size(10);
  CSitesHelper helper(data.wlistPath);
  for (auto _ : state) {
    tag_Site* merged = nullptr;
    if (helper.MergeSiteLists(data.records.head, base.records.head, true, &merged) != 0 || !merged)
      state.SkipWithError("merge failed");
    helper.FreeSiteListMemory(merged);
  }
}
BENCHMARK(BM_MergeSiteLists)->Apply(Sizes);

// One calloc and copy per input record.
void BM_Floor_MergeSiteLists(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  const SizeData& base = BenchEnv::Get().Size(10);
  for (auto _ : state) {
    benchmark::DoNotOptimize(FloorCopy(base.records.head));
    benchmark::DoNotOptimize(FloorCopy(data.records.head));
  }
}
BENCHMARK(BM_Floor_MergeSiteLists)->Apply(Sizes);

// A new management server address for a list that has a SPIPE site: read,
// update in place, write back.
void BM_SetSpipeSiteForUpdSite(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  const std::string own = BenchEnv::Get().Scratch("own-" + std::to_string(data.n) + ".xml");
  CopyFile(data.listPath, own);
  CSitesHelper helper(Wide(own));
  unsigned int round = 0;
  for (auto _ : state) {
    const std::wstring ip = L"192.0.2." + std::to_wstring(1 + (round++ % 200));
    if (helper.SetSpipeSiteForUpdSite(443, ip, L"mgmt.corp.example", L"MGMT01") != 0)
      state.SkipWithError("SetSpipeSiteForUpdSite failed");
  }
}
BENCHMARK(BM_SetSpipeSiteForUpdSite)->Apply(Sizes);

// Its floor: the reader's floor and the writer's floor in a row.
void BM_Floor_SetSpipeSiteForUpdSite(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  const std::string target = BenchEnv::Get().Scratch("floor-own-" + std::to_string(data.n) + ".xml");
  for (auto _ : state) {
    benchmark::DoNotOptimize(FloorRead(data.listPath));
    benchmark::DoNotOptimize(
        FloorWrite(data.records.head, data.passwords, data.records.caCertificates, data.policies, target));
  }
}
BENCHMARK(BM_Floor_SetSpipeSiteForUpdSite)->Apply(Sizes);

// Served from the cache, as the agent asks it.
void BM_GetVantorServerInfo(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  CSitesHelper helper(data.wlistPath);
  CSitesHelper::m_iChange = 3;
  tag_Site* list = nullptr;
  if (helper.SmartReadSiteList(data.wlistPath, &list) != 0) throw std::runtime_error("cannot fill the cache");
  std::wstring name, server, ip, netbios, version;
  int port = 0;
  for (auto _ : state) {
    if (helper.GetVantorServerInfo(name, server, ip, netbios, port, version, false, false) != 0 ||
        server != L"mgmt.corp.example")
      state.SkipWithError("GetVantorServerInfo failed");
  }
}
BENCHMARK(BM_GetVantorServerInfo)->Apply(Sizes);

}  // namespace
}  // namespace vlmbench
