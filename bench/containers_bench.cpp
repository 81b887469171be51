// StringBuilder and Stack against the standard containers a user would
// otherwise reach for: 10,000,000 appends of 16-character texts into one
// builder, and 1,000,000 push / read-top / pop cycles.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "kestrel/containers/stack.hpp"
#include "kestrel/containers/string_builder.hpp"
#include "kestrel/frame/value.hpp"
#include "ratio_reporter.hpp"

namespace {

using kestrel::Value;

constexpr int64_t kAppends = 10'000'000;
constexpr int64_t kCycles = 1'000'000;

// Sixteen different 16-character texts, cycled, so that no copy can be
// folded into a constant.
const std::vector<std::u16string>& Pieces() {
  static const std::vector<std::u16string> pieces = [] {
    std::vector<std::u16string> v;
    for (char16_t c = u'a'; c < u'a' + 16; ++c) v.push_back(std::u16string(16, c));
    return v;
  }();
  return pieces;
}

void AppendKestrel(benchmark::State& state) {
  const auto& pieces = Pieces();
  for (auto _ : state) {
    kestrel::StringBuilder sb;
    for (int64_t i = 0; i < kAppends; ++i) sb.Append(pieces[size_t(i & 15)]);
    benchmark::DoNotOptimize(sb.Length());
  }
  state.SetItemsProcessed(state.iterations() * kAppends);
}

void AppendStd(benchmark::State& state) {
  const auto& pieces = Pieces();
  for (auto _ : state) {
    std::u16string s;
    for (int64_t i = 0; i < kAppends; ++i) s.append(pieces[size_t(i & 15)]);
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations() * kAppends);
}

// Each cycle pushes a number, reads the top as a copy and pops it.
void StackKestrel(benchmark::State& state) {
  kestrel::Stack stack;
  for (auto _ : state) {
    for (int64_t i = 0; i < kCycles; ++i) {
      stack.Add(Value(int32_t(i)));
      Value top = stack.Top();
      benchmark::DoNotOptimize(top);
      stack.Remove();
    }
  }
  state.SetItemsProcessed(state.iterations() * kCycles);
}

void StackStd(benchmark::State& state) {
  std::vector<Value> stack;
  for (auto _ : state) {
    for (int64_t i = 0; i < kCycles; ++i) {
      stack.push_back(Value(int32_t(i)));
      Value top = stack.back();
      benchmark::DoNotOptimize(top);
      stack.pop_back();
    }
  }
  state.SetItemsProcessed(state.iterations() * kCycles);
}

}  // namespace

BENCHMARK(AppendKestrel)->Name("Append10M/kestrel")->Unit(benchmark::kMillisecond);
BENCHMARK(AppendStd)->Name("Append10M/std::u16string")->Unit(benchmark::kMillisecond);
BENCHMARK(StackKestrel)->Name("StackCycle1M/kestrel")->Unit(benchmark::kMillisecond);
BENCHMARK(StackStd)->Name("StackCycle1M/std::vector")->Unit(benchmark::kMillisecond);

KESTREL_BENCHMARK_MAIN();
