// JSON against the parsers a user would pick instead, on the three classic
// documents: nlohmann/json's parse, RapidJSON's Document::Parse (DOM, not in
// situ) and simdjson's DOM parser. Each document is read and, for Kestrel,
// turned into a String once, outside the timing; LargeIntegers is on so
// that every parser builds the whole tree. MB/s count the UTF-8 file size.
//
// Before the timings, the memory each parser's tree keeps and the peak
// while it is built, per input byte. Each figure comes from a child process
// that parses once, with this program's malloc counting the bytes every
// block really takes (malloc_usable_size): every parser is measured the
// same way, whether it allocates with operator new, malloc or aligned
// allocation, and whatever pools it keeps on top.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>
#include <rapidjson/document.h>
#include <simdjson.h>

#include <cstdio>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "kestrel/formats/json.hpp"
#include "kestrel/frame/unicode.hpp"
#include "ratio_reporter.hpp"

// The counting malloc: glibc's own allocator underneath, and a running
// total of live bytes with its peak while g_counting is set (only in the
// footprint children; the timed runs pay one predictable branch each).
namespace {
bool g_counting = false;
size_t g_live = 0;
size_t g_peak = 0;

void Counted(void* block) noexcept {
  if (!g_counting || block == nullptr) return;
  g_live += malloc_usable_size(block);
  if (g_live > g_peak) g_peak = g_live;
}
void Uncounted(void* block) noexcept {
  if (g_counting && block != nullptr) g_live -= malloc_usable_size(block);
}
}  // namespace

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* block);

void* malloc(size_t size) {
  void* block = __libc_malloc(size);
  Counted(block);
  return block;
}
void* calloc(size_t count, size_t size) {
  void* block = __libc_calloc(count, size);
  Counted(block);
  return block;
}
void* realloc(void* block, size_t size) {
  Uncounted(block);
  void* moved = __libc_realloc(block, size);
  Counted(moved != nullptr ? moved : (size == 0 ? nullptr : block));
  return moved;
}
void free(void* block) {
  Uncounted(block);
  __libc_free(block);
}
void* memalign(size_t alignment, size_t size) {
  void* block = __libc_memalign(alignment, size);
  Counted(block);
  return block;
}
void* aligned_alloc(size_t alignment, size_t size) {
  return memalign(alignment, size);
}
int posix_memalign(void** out, size_t alignment, size_t size) {
  void* block = memalign(alignment, size);
  if (block == nullptr) return ENOMEM;
  *out = block;
  return 0;
}
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

struct Footprint {
  double kept = 0, peak = 0;  // bytes per input byte
};

// Parses once in a child process; `parse` returns what holds the tree.
template <class Parse>
Footprint Measure(const Document& doc, Parse parse) {
  int pipe_ends[2];
  if (pipe(pipe_ends) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    close(pipe_ends[0]);
    g_live = g_peak = 0;
    g_counting = true;
    auto tree = parse();
    g_counting = false;
    const size_t bytes[2] = {g_live, g_peak};
    const bool sent = write(pipe_ends[1], bytes, sizeof(bytes)) == static_cast<ssize_t>(sizeof(bytes));
    _exit(sent ? 0 : 1);
  }
  close(pipe_ends[1]);
  size_t bytes[2] = {0, 0};
  const bool got = read(pipe_ends[0], bytes, sizeof(bytes)) == static_cast<ssize_t>(sizeof(bytes));
  close(pipe_ends[0]);
  waitpid(child, nullptr, 0);
  if (!got) return {};
  const auto size = static_cast<double>(doc.utf8.size());
  return {static_cast<double>(bytes[0]) / size, static_cast<double>(bytes[1]) / size};
}

void PrintFootprints() {
  std::printf("%-14s %-10s %10s %10s\n", "memory/byte", "parser", "kept", "peak");
  for (const Document& doc : Documents()) {
    const std::pair<const char*, Footprint> rows[] = {
        {"kestrel", Measure(doc,
                            [&] {
                              kestrel::JSON json;
                              json.SetLargeIntegers(true);
                              json.Parse(doc.text);
                              return json.JSONObject();  // the tree alone
                            })},
        {"nlohmann", Measure(doc, [&] { return nlohmann::json::parse(doc.utf8); })},
        {"rapidjson", Measure(doc,
                              [&] {
                                auto tree = std::make_unique<rapidjson::Document>();
                                tree->Parse(doc.utf8.c_str(), doc.utf8.size());
                                return tree;
                              })},
        {"simdjson", Measure(doc,
                             [&] {
                               auto parser = std::make_unique<simdjson::dom::parser>();
                               simdjson::dom::element tree;
                               if (parser->parse(doc.utf8).get(tree) != simdjson::SUCCESS) {
                                 parser.reset();
                               }
                               return parser;
                             })},
    };
    for (const auto& [parser, memory] : rows) {
      std::printf("%-14s %-10s %10.2f %10.2f\n", doc.name, parser, memory.kept, memory.peak);
    }
  }
  std::printf("\n");
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
