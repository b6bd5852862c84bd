// The conforming XML check alone, over the bytes of the generated lists held
// in memory, beside raw expat without handlers; and, for the choice of
// parsers written down in port/xml/WellFormed.h, expat with empty element
// and text handlers (the least a tree built from its callbacks costs) and
// pugixml's read-only parse in place of the same bytes.
#include <benchmark/benchmark.h>
#include <expat.h>

#include <cstring>
#include <map>
#include <string>

#include <pugixml.hpp>

#include "BenchEnv.h"
#include "port/xml/WellFormed.h"

namespace vlmbench {
namespace {

void Sizes(benchmark::internal::Benchmark* b) { b->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond); }
void GrowthSizes(benchmark::internal::Benchmark* b) { Sizes(b); b->Arg(10000); }

const std::string& Bytes(benchmark::State& state) {
  static std::map<unsigned, std::string> bytes;
  const unsigned n = static_cast<unsigned>(state.range(0));
  std::string& b = bytes[n];
  if (b.empty()) b = ReadAll(BenchEnv::Get().Size(n).listPath);
  return b;
}

void BM_XmlCheck(benchmark::State& state) {
  const std::string& bytes = Bytes(state);
  for (auto _ : state) {
    port::xml::Refusal refusal;
    if (!port::xml::CheckWellFormed(bytes.data(), bytes.size(), port::xml::TextSource::Utf8, refusal))
      state.SkipWithError("the generated list is refused");
  }
  state.counters["bytes"] = static_cast<double>(bytes.size());
}
BENCHMARK(BM_XmlCheck)->Apply(GrowthSizes);

bool ExpatPass(const std::string& bytes, bool withHandlers) {
  XML_Parser parser = XML_ParserCreateNS("UTF-8", '\n');
  if (withHandlers) {
    XML_SetElementHandler(
        parser, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*) {});
    XML_SetCharacterDataHandler(parser, [](void*, const XML_Char*, int) {});
  }
  const bool ok = XML_Parse(parser, bytes.data(), static_cast<int>(bytes.size()), XML_TRUE) == XML_STATUS_OK;
  XML_ParserFree(parser);
  return ok;
}

void BM_Floor_XmlCheck(benchmark::State& state) {
  const std::string& bytes = Bytes(state);
  for (auto _ : state) {
    if (!ExpatPass(bytes, false)) state.SkipWithError("expat refuses the generated list");
  }
}
BENCHMARK(BM_Floor_XmlCheck)->Apply(Sizes);

void BM_ExpatEmptyHandlers(benchmark::State& state) {
  const std::string& bytes = Bytes(state);
  for (auto _ : state) {
    if (!ExpatPass(bytes, true)) state.SkipWithError("expat refuses the generated list");
  }
}
BENCHMARK(BM_ExpatEmptyHandlers)->Apply(Sizes);

// As the reader parses: a copy of the bytes (the reader's buffer is the
// file's), parsed in place into a read-only tree.
void BM_PugixmlParseInPlace(benchmark::State& state) {
  const std::string& bytes = Bytes(state);
  for (auto _ : state) {
    pugi::xml_document doc;
    char* buffer = static_cast<char*>(pugi::get_memory_allocation_function()(bytes.size() + 1));
    std::memcpy(buffer, bytes.data(), bytes.size() + 1);
    const unsigned options = pugi::parse_default | pugi::parse_ws_pcdata_single | pugi::parse_embed_pcdata;
    if (!doc.load_buffer_inplace_own(buffer, bytes.size() + 1, options, pugi::encoding_utf8))
      state.SkipWithError("pugixml refuses the generated list");
  }
}
BENCHMARK(BM_PugixmlParseInPlace)->Apply(Sizes);

}  // namespace
}  // namespace vlmbench
