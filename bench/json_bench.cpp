// JSON against the parsers a user would pick instead, on the three classic
// documents: nlohmann/json's parse, RapidJSON's Document::Parse (DOM, not in
// situ) and simdjson's DOM parser. Each document is read and, for Kestrel,
// turned into a String once, outside the timing; LargeIntegers is on so
// that every parser builds the whole tree. MB/s count the UTF-8 file size.
//
// Before the timings, the memory each parsed tree keeps (and the peak while
// parsing) per input byte, for Kestrel and nlohmann/json, counted through
// the global operator new. RapidJSON and simdjson allocate with malloc into
// their own pools and are not counted. Counting is on only while those
// footprints are taken: its atomic updates would otherwise tax every
// allocation of the parsers that use operator new, and only theirs.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <rapidjson/document.h>
#include <simdjson.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <new>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "kestrel/formats/json.hpp"
#include "kestrel/frame/unicode.hpp"
#include "ratio_reporter.hpp"

namespace {

bool g_counting = false;
std::atomic<int64_t> g_live{0};
std::atomic<int64_t> g_peak{0};

void Count(void* p) noexcept {
  if (!g_counting) return;
  const int64_t live = g_live += static_cast<int64_t>(malloc_usable_size(p));
  int64_t peak = g_peak.load(std::memory_order_relaxed);
  while (live > peak && !g_peak.compare_exchange_weak(peak, live)) {
  }
}

}  // namespace

void* operator new(size_t size) {
  void* p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) throw std::bad_alloc();
  Count(p);
  return p;
}
void operator delete(void* p) noexcept {
  if (p == nullptr) return;
  if (g_counting) g_live -= static_cast<int64_t>(malloc_usable_size(p));
  std::free(p);
}
void operator delete(void* p, size_t) noexcept {
  operator delete(p);
}

namespace {

struct Document {
  const char* name;
  std::string utf8;
  kestrel::Value text;  // a String, as an automation client passes it
};

std::vector<Document>& Documents() {
  static std::vector<Document> docs = [] {
    std::vector<Document> out;
    for (const char* name : {"twitter", "citm_catalog", "canada"}) {
      std::ifstream in(std::string(KESTREL_BENCH_DATA_DIR "/") + name + ".json", std::ios::binary);
      std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      if (bytes.empty()) {
        std::fprintf(stderr, "missing bench/data/%s.json\n", name);
        std::exit(1);
      }
      kestrel::Value text(kestrel::FromUtf8(bytes));
      out.push_back({name, std::move(bytes), std::move(text)});
    }
    return out;
  }();
  return docs;
}

void Kestrel(benchmark::State& state, const Document* doc) {
  kestrel::JSON json;
  json.SetLargeIntegers(true);
  if (!json.Parse(doc->text)) state.SkipWithError("parse failed");
  for (auto _ : state) benchmark::DoNotOptimize(json.Parse(doc->text));
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(doc->utf8.size()));
}

void Nlohmann(benchmark::State& state, const Document* doc) {
  for (auto _ : state) {
    nlohmann::json tree = nlohmann::json::parse(doc->utf8);
    benchmark::DoNotOptimize(tree);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(doc->utf8.size()));
}

void Rapidjson(benchmark::State& state, const Document* doc) {
  for (auto _ : state) {
    rapidjson::Document tree;
    tree.Parse(doc->utf8.c_str(), doc->utf8.size());
    if (tree.HasParseError()) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(tree);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(doc->utf8.size()));
}

void Simdjson(benchmark::State& state, const Document* doc) {
  simdjson::dom::parser parser;
  const simdjson::padded_string padded(doc->utf8);
  for (auto _ : state) {
    simdjson::dom::element tree;
    if (parser.parse(padded).get(tree) != simdjson::SUCCESS) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(tree);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(doc->utf8.size()));
}

// Bytes a tree keeps, and the peak above the starting point while it is
// built, per byte of UTF-8 input.
template <class Parse>
std::pair<double, double> Footprint(const Document& doc, Parse parse) {
  const int64_t before = g_live.load();
  g_peak = before;
  auto tree = parse();
  const int64_t kept = g_live.load() - before;
  const int64_t peak = g_peak.load() - before;
  const auto size = static_cast<double>(doc.utf8.size());
  return {kept / size, peak / size};
}

void PrintFootprints() {
  g_counting = true;
  std::printf("%-14s %16s %16s %16s %16s\n", "memory/byte", "kestrel kept", "kestrel peak",
              "nlohmann kept", "nlohmann peak");
  for (const Document& doc : Documents()) {
    auto kestrel = Footprint(doc, [&] {
      kestrel::JSON json;
      json.SetLargeIntegers(true);
      json.Parse(doc.text);
      return json.JSONObject();  // the tree alone: the JSON object and its Text go
    });
    auto nlohmann = Footprint(doc, [&] { return nlohmann::json::parse(doc.utf8); });
    std::printf("%-14s %16.2f %16.2f %16.2f %16.2f\n", doc.name, kestrel.first, kestrel.second,
                nlohmann.first, nlohmann.second);
  }
  std::printf("\n");
  g_counting = false;
}

}  // namespace

int main(int argc, char** argv) {
  PrintFootprints();
  for (const Document& doc : Documents()) {
    const std::string name = doc.name;
    for (auto* b : {benchmark::RegisterBenchmark((name + "/kestrel").c_str(), Kestrel, &doc),
                    benchmark::RegisterBenchmark((name + "/nlohmann").c_str(), Nlohmann, &doc),
                    benchmark::RegisterBenchmark((name + "/rapidjson").c_str(), Rapidjson, &doc),
                    benchmark::RegisterBenchmark((name + "/simdjson").c_str(), Simdjson, &doc)}) {
      b->Unit(benchmark::kMillisecond)->Repetitions(3)->ReportAggregatesOnly(true);
    }
  }
  return kestrel::bench::RunWithRatios(argc, argv);
}
