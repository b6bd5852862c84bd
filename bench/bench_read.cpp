// Reading: the reader, the cache (hit and refill), the version query and the
// CA certificates, each beside its floor.
#include <benchmark/benchmark.h>

#include <stdexcept>

#include "BenchEnv.h"
#include "FloorCipher.h"
#include "Floors.h"
#include "port/lock/InterProcessLock.h"
#include "sitehlp/SitesHelper.h"

namespace vlmbench {
namespace {

using sitehlp::CSitesHelper;
using sitehlp::tag_Site;

void Sizes(benchmark::internal::Benchmark* b) { b->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond); }
// With the 10,000-site list (about 3 MB): how the cost grows.
void GrowthSizes(benchmark::internal::Benchmark* b) { Sizes(b); b->Arg(10000); }

void BM_ReadSiteList(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  CSitesHelper helper(data.wlistPath);
  for (auto _ : state) {
    tag_Site* list = nullptr;
    const int rc = helper.ReadSiteList(data.wlistPath, &list);
    if (rc != 0 || CountSites(list) != data.n) state.SkipWithError("ReadSiteList failed");
    helper.FreeSiteListMemory(list);
  }
  state.counters["bytes"] = static_cast<double>(data.fileSize);
}
BENCHMARK(BM_ReadSiteList)->Apply(GrowthSizes);

// The same list with its password elements emptied: no decryption.
void BM_ReadSiteList_NoPasswords(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  CSitesHelper helper(data.wclearPath);
  for (auto _ : state) {
    tag_Site* list = nullptr;
    const int rc = helper.ReadSiteList(data.wclearPath, &list);
    if (rc != 0 || CountSites(list) != data.n) state.SkipWithError("ReadSiteList failed");
    helper.FreeSiteListMemory(list);
  }
}
BENCHMARK(BM_ReadSiteList_NoPasswords)->Apply(Sizes);

void BM_Floor_ReadSiteList(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  for (auto _ : state) {
    if (FloorRead(data.listPath) != data.n) state.SkipWithError("floor read failed");
  }
}
BENCHMARK(BM_Floor_ReadSiteList)->Apply(GrowthSizes);

// The crypto-inclusive floor: the same, and every password's ciphertext
// opened (one cipher context, keyed once, tag checked).
void BM_Floor_ReadSiteList_Crypto(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  FloorCipher& cipher = TheFloorCipher();
  for (auto _ : state) {
    if (FloorRead(data.listPath, &cipher) != data.n) state.SkipWithError("floor read failed");
  }
}
BENCHMARK(BM_Floor_ReadSiteList_Crypto)->Apply(GrowthSizes);

// Fills the process-wide cache with this size's list.
void FillCache(CSitesHelper& helper, const SizeData& data) {
  CSitesHelper::m_iChange = 3;
  tag_Site* list = nullptr;
  if (helper.SmartReadSiteList(data.wlistPath, &list) != 0 || CountSites(list) != data.n)
    throw std::runtime_error("cannot fill the cache");
}

void BM_SmartReadSiteList_Hit(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  CSitesHelper helper(data.wlistPath);
  FillCache(helper, data);
  for (auto _ : state) {
    tag_Site* list = nullptr;
    if (helper.SmartReadSiteList(data.wlistPath, &list) != 0 || list != CSitesHelper::m_pSiteList)
      state.SkipWithError("cache hit failed");
    benchmark::DoNotOptimize(list);
  }
}
BENCHMARK(BM_SmartReadSiteList_Hit)->Apply(Sizes);

void BM_Floor_SharedLock(benchmark::State& state) {
  BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  for (auto _ : state) {
    InterProcessReadLock lock(sitehlp::smartSiteListLock);
    if (!lock.lock(sitehlp::c_lockWaitForever)) state.SkipWithError("lock failed");
    lock.unlock();
  }
}
BENCHMARK(BM_Floor_SharedLock)->Apply(Sizes);

void BM_SmartReadSiteList_Refill(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  CSitesHelper helper(data.wlistPath);
  for (auto _ : state) {
    CSitesHelper::m_iChange = 3;  // as after two change notices
    tag_Site* list = nullptr;
    if (helper.SmartReadSiteList(data.wlistPath, &list) != 0 || CountSites(list) != data.n)
      state.SkipWithError("refill failed");
  }
}
BENCHMARK(BM_SmartReadSiteList_Refill)->Apply(Sizes);

void BM_GetSitelistVersions(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  CSitesHelper helper(data.wlistPath);
  std::wstring global, local, type;
  for (auto _ : state) {
    if (helper.GetSitelistVersions(data.wlistPath, global, local, type) != 0 || local.size() != 14)
      state.SkipWithError("version query failed");
  }
}
BENCHMARK(BM_GetSitelistVersions)->Apply(Sizes);

void BM_Floor_LoadFile(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  for (auto _ : state) {
    if (!FloorLoad(data.listPath)) state.SkipWithError("floor load failed");
  }
}
BENCHMARK(BM_Floor_LoadFile)->Apply(Sizes);

void BM_GetCaCertificates(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  CSitesHelper helper(data.wlistPath);
  for (auto _ : state) {
    std::vector<std::wstring> certificates;
    if (helper.GetCaCertificates(data.wlistPath, certificates) != 0 || certificates.size() != 3)
      state.SkipWithError("CA certificates failed");
  }
}
BENCHMARK(BM_GetCaCertificates)->Apply(Sizes);

}  // namespace
}  // namespace vlmbench
