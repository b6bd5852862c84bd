// Import, the server site list and site lists as text.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "BenchEnv.h"
#include "Floors.h"
#include "port/config/IConfiguration.h"
#include "sitehlp/SitesHelper.h"

namespace vlmbench {
namespace {

using sitehlp::CSitesHelper;

void Sizes(benchmark::internal::Benchmark* b) { b->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond); }

// A source list with its key pairs beside it (its SPIPE site carries a
// version, so its keys come from its own directory).
std::string ImportSource(const SizeData& data) {
  const std::string dir = BenchEnv::Get().Scratch("import-src-" + std::to_string(data.n));
  std::filesystem::create_directories(dir);
  CopyFile(data.listPath, dir + "/SiteList.xml");
  for (const char* key : {"srpubkey.bin", "reqseckey.bin", "sr2048pubkey.bin", "req2048seckey.bin"}) {
    std::FILE* f = std::fopen((dir + "/" + key).c_str(), "wb");
    if (!f) throw std::runtime_error("cannot write a key file");
    const std::string bytes(256, static_cast<char>(key[0]));
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
  }
  return dir + "/SiteList.xml";
}

void BM_ImportSiteList(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  const std::wstring source = Wide(ImportSource(data));
  const std::string targetDir = BenchEnv::Get().Scratch("import-dst-" + std::to_string(data.n));
  std::filesystem::create_directories(targetDir);
  CSitesHelper helper(Wide(targetDir + "/SiteList.xml"));
  for (auto _ : state) {
    if (helper.ImportSiteList(source, L"") != 0) state.SkipWithError("ImportSiteList failed");
  }
}
BENCHMARK(BM_ImportSiteList)->Apply(Sizes);

void BM_createServerSiteListFromSiteList(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  const std::string dst = BenchEnv::Get().Scratch("server-" + std::to_string(data.n));
  std::filesystem::create_directories(dst);
  const std::wstring src = Wide(data.dir);
  const std::wstring wdst = Wide(dst);
  for (auto _ : state) {
    if (!CSitesHelper::createServerSiteListFromSiteList(src.c_str(), wdst.c_str()))
      state.SkipWithError("createServerSiteListFromSiteList failed");
  }
}
BENCHMARK(BM_createServerSiteListFromSiteList)->Apply(Sizes);

void BM_Floor_LoadSave(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  const std::string dst = BenchEnv::Get().Scratch("floor-server-" + std::to_string(data.n) + ".xml");
  for (auto _ : state) benchmark::DoNotOptimize(FloorLoadSave(data.listPath, dst));
}
BENCHMARK(BM_Floor_LoadSave)->Apply(Sizes);

void BM_GetSiteListBuffer(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  CSitesHelper helper(data.wlistPath);
  for (auto _ : state) {
    std::wstring text;
    if (!helper.GetSiteListBuffer(text) || text.empty()) state.SkipWithError("GetSiteListBuffer failed");
  }
}
BENCHMARK(BM_GetSiteListBuffer)->Apply(Sizes);

void BM_Floor_ReadBytes(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(FloorReadBytes(data.listPath));
}
BENCHMARK(BM_Floor_ReadBytes)->Apply(Sizes);

void BM_Floor_ReadWiden(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(FloorReadWiden(data.listPath));
}
BENCHMARK(BM_Floor_ReadWiden)->Apply(Sizes);

void BM_CreateSiteListFromBuffer(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  std::filesystem::create_directories(port::UnderRootPrefix("/opt/Velmora/orx/scratch/etc"));
  const std::wstring text = Wide(ReadAll(data.listPath));
  CSitesHelper helper(data.wlistPath);
  for (auto _ : state) {
    if (helper.CreateSiteListFromBuffer(text) != 0) state.SkipWithError("CreateSiteListFromBuffer failed");
  }
}
BENCHMARK(BM_CreateSiteListFromBuffer)->Apply(Sizes);

// Its floor's first half: the reader's floor on text in memory (the second is
// the writer's floor).
void BM_Floor_ParseWalk(benchmark::State& state) {
  const SizeData& data = BenchEnv::Get().Size(static_cast<unsigned>(state.range(0)));
  const std::string text = ReadAll(data.listPath);
  for (auto _ : state) benchmark::DoNotOptimize(FloorParseWalk(text));
}
BENCHMARK(BM_Floor_ParseWalk)->Apply(Sizes);

}  // namespace
}  // namespace vlmbench
