// Value against the plain C++ types a user would otherwise hold: copying,
// comparing and sorting 1,000,000 doubles and short strings.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/compare.hpp"
#include "bench_data.hpp"
#include "ratio_reporter.hpp"

namespace {

using kestrel::Ordering;
using kestrel::Value;
using kestrel::bench::StdSortCopies;

const std::vector<double>& Doubles() { return kestrel::bench::RandomDoubles(); }
const std::vector<std::u16string>& Strings() { return kestrel::bench::RandomStrings(); }

template <class T>
std::vector<Value> AsValues(const std::vector<T>& plain) {
  return std::vector<Value>(plain.begin(), plain.end());
}

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

void CopyDoublesKestrel(benchmark::State& s) { Copy(s, AsValues(Doubles())); }
void CopyDoublesStd(benchmark::State& s) { Copy(s, Doubles()); }
void CopyStringsKestrel(benchmark::State& s) { Copy(s, AsValues(Strings())); }
void CopyStringsStd(benchmark::State& s) { Copy(s, Strings()); }

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

void CompareDoublesKestrel(benchmark::State& s) { CompareAll(s, AsValues(Doubles()), ValueLess()); }
void CompareDoublesStd(benchmark::State& s) { CompareAll(s, Doubles(), std::less<>()); }
void CompareStringsKestrel(benchmark::State& s) { CompareAll(s, AsValues(Strings()), ValueLess()); }
void CompareStringsStd(benchmark::State& s) { CompareAll(s, Strings(), std::less<>()); }

// --- sorting -----------------------------------------------------------------

void SortDoublesKestrel(benchmark::State& s) { StdSortCopies(s, AsValues(Doubles()), ValueLess()); }
void SortDoublesStd(benchmark::State& s) { StdSortCopies(s, Doubles(), std::less<>()); }
void SortStringsKestrel(benchmark::State& s) { StdSortCopies(s, AsValues(Strings()), ValueLess()); }
void SortStringsStd(benchmark::State& s) { StdSortCopies(s, Strings(), std::less<>()); }

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
