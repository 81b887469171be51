// Value against the plain C++ types a user would otherwise hold: copying,
// comparing and sorting 1,000,000 doubles and short strings.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>
#include <vector>

#include "bench_data.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/compare.hpp"
#include "ratio_reporter.hpp"

namespace {

using kestrel::Ordering;
using kestrel::Value;
using kestrel::bench::AsValues;
using kestrel::bench::RandomDoubles;
using kestrel::bench::RandomStrings;
using kestrel::bench::StdSortCopies;

// The library's ordering predicate, a function object as std::less<> is.
using ValueLess = kestrel::runtime::LessThan;

// --- copying ---------------------------------------------------------------

template <class Vector>
void Copy(benchmark::State& state, const Vector& source) {
  for (auto _ : state) {
    Vector copy(source);
    benchmark::DoNotOptimize(copy.data());
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(source.size()));
}

void CopyDoublesKestrel(benchmark::State& s) {
  Copy(s, AsValues(RandomDoubles()));
}
void CopyDoublesStd(benchmark::State& s) {
  Copy(s, RandomDoubles());
}
void CopyStringsKestrel(benchmark::State& s) {
  Copy(s, AsValues(RandomStrings()));
}
void CopyStringsStd(benchmark::State& s) {
  Copy(s, RandomStrings());
}

// --- comparing neighbours ----------------------------------------------------

template <class Vector, class Less>
void CompareAll(benchmark::State& state, const Vector& data, Less less) {
  for (auto _ : state) {
    size_t count = 0;
    for (size_t i = 1; i < data.size(); ++i) count += less(data[i - 1], data[i]);
    benchmark::DoNotOptimize(count);
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(data.size() - 1));
}

void CompareDoublesKestrel(benchmark::State& s) {
  CompareAll(s, AsValues(RandomDoubles()), ValueLess());
}
void CompareDoublesStd(benchmark::State& s) {
  CompareAll(s, RandomDoubles(), std::less<>());
}
void CompareStringsKestrel(benchmark::State& s) {
  CompareAll(s, AsValues(RandomStrings()), ValueLess());
}
void CompareStringsStd(benchmark::State& s) {
  CompareAll(s, RandomStrings(), std::less<>());
}

// --- sorting -----------------------------------------------------------------

void SortDoublesKestrel(benchmark::State& s) {
  StdSortCopies(s, AsValues(RandomDoubles()), ValueLess());
}
void SortDoublesStd(benchmark::State& s) {
  StdSortCopies(s, RandomDoubles(), std::less<>());
}
void SortStringsKestrel(benchmark::State& s) {
  StdSortCopies(s, AsValues(RandomStrings()), ValueLess());
}
void SortStringsStd(benchmark::State& s) {
  StdSortCopies(s, RandomStrings(), std::less<>());
}

}  // namespace

BENCHMARK(CopyDoublesKestrel)->Name("Copy1M/doubles/kestrel")->Unit(benchmark::kMillisecond);
BENCHMARK(CopyDoublesStd)->Name("Copy1M/doubles/std::vector")->Unit(benchmark::kMillisecond);
BENCHMARK(CopyStringsKestrel)->Name("Copy1M/strings/kestrel")->Unit(benchmark::kMillisecond);
BENCHMARK(CopyStringsStd)->Name("Copy1M/strings/std::u16string")->Unit(benchmark::kMillisecond);
BENCHMARK(CompareDoublesKestrel)->Name("Compare1M/doubles/kestrel")->Unit(benchmark::kMillisecond);
BENCHMARK(CompareDoublesStd)->Name("Compare1M/doubles/std::vector")->Unit(benchmark::kMillisecond);
BENCHMARK(CompareStringsKestrel)->Name("Compare1M/strings/kestrel")->Unit(benchmark::kMillisecond);
BENCHMARK(CompareStringsStd)
    ->Name("Compare1M/strings/std::u16string")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(SortDoublesKestrel)->Name("Sort1M/doubles/kestrel")->Unit(benchmark::kMillisecond);
BENCHMARK(SortDoublesStd)->Name("Sort1M/doubles/std::vector")->Unit(benchmark::kMillisecond);
BENCHMARK(SortStringsKestrel)->Name("Sort1M/strings/kestrel")->Unit(benchmark::kMillisecond);
BENCHMARK(SortStringsStd)->Name("Sort1M/strings/std::u16string")->Unit(benchmark::kMillisecond);

KESTREL_BENCHMARK_MAIN();
