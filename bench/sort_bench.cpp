// The array sorts of Utilities against std::sort: on the very same Values
// with the same comparison (the fair measure of the sort itself), and on the
// plain C++ types a user would otherwise hold (the whole cost of Values).
// 1,000,000 random doubles and random 8-letter strings.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>
#include <vector>

#include "bench_data.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/compare.hpp"
#include "kestrel/utilities/utilities.hpp"
#include "ratio_reporter.hpp"

namespace {

using kestrel::Ordering;
using kestrel::Value;
using kestrel::bench::AsValues;
using kestrel::bench::RandomDoubles;
using kestrel::bench::RandomStrings;
using kestrel::bench::StdSortCopies;

// The comparison both sides use: the runtime's, as the sorts call it.
using ValueLess = kestrel::runtime::LessThan;

enum class Member { kSQuickSort, kQuickSort };

template <class T>
void SortWithUtilities(benchmark::State& state, const std::vector<T>& plain, Member member) {
  const Value source = Value::VariantArray(AsValues(plain));
  const int32_t upper = static_cast<int32_t>(plain.size()) - 1;
  for (auto _ : state) {
    state.PauseTiming();
    Value copy = source;
    copy.MutableElements();  // unshare outside the timed part
    state.ResumeTiming();
    if (member == Member::kSQuickSort) {
      kestrel::utilities::SQuickSort(copy, 0, upper);
    } else {
      kestrel::utilities::QuickSort(copy);
    }
    benchmark::DoNotOptimize(copy.Elements().data());
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(plain.size()));
}

void SQuickDoubles(benchmark::State& s) {
  SortWithUtilities(s, RandomDoubles(), Member::kSQuickSort);
}
void SQuickStrings(benchmark::State& s) {
  SortWithUtilities(s, RandomStrings(), Member::kSQuickSort);
}
void QuickDoubles(benchmark::State& s) {
  SortWithUtilities(s, RandomDoubles(), Member::kQuickSort);
}
void QuickStrings(benchmark::State& s) {
  SortWithUtilities(s, RandomStrings(), Member::kQuickSort);
}
void StdValueDoubles(benchmark::State& s) {
  StdSortCopies(s, AsValues(RandomDoubles()), ValueLess());
}
void StdValueStrings(benchmark::State& s) {
  StdSortCopies(s, AsValues(RandomStrings()), ValueLess());
}
void StdPlainDoubles(benchmark::State& s) {
  StdSortCopies(s, RandomDoubles(), std::less<>());
}
void StdPlainStrings(benchmark::State& s) {
  StdSortCopies(s, RandomStrings(), std::less<>());
}

// Each case pairs one Kestrel run with one baseline, so a Kestrel sort
// measured against two baselines appears under two case names.
#define SORT_CASE(fn, name) BENCHMARK(fn)->Name(name)->Unit(benchmark::kMillisecond)

SORT_CASE(SQuickDoubles, "SQuickSort1M/doubles/kestrel");
SORT_CASE(StdValueDoubles, "SQuickSort1M/doubles/std::sort(Value)");
SORT_CASE(SQuickDoubles, "SQuickSort1M/doubles-plain/kestrel");
SORT_CASE(StdPlainDoubles, "SQuickSort1M/doubles-plain/std::sort(double)");
SORT_CASE(SQuickStrings, "SQuickSort1M/strings/kestrel");
SORT_CASE(StdValueStrings, "SQuickSort1M/strings/std::sort(Value)");
SORT_CASE(SQuickStrings, "SQuickSort1M/strings-plain/kestrel");
SORT_CASE(StdPlainStrings, "SQuickSort1M/strings-plain/std::sort(u16string)");
SORT_CASE(QuickDoubles, "QuickSort1M/doubles/kestrel");
SORT_CASE(StdValueDoubles, "QuickSort1M/doubles/std::sort(Value)");
SORT_CASE(QuickDoubles, "QuickSort1M/doubles-plain/kestrel");
SORT_CASE(StdPlainDoubles, "QuickSort1M/doubles-plain/std::sort(double)");
SORT_CASE(QuickStrings, "QuickSort1M/strings/kestrel");
SORT_CASE(StdValueStrings, "QuickSort1M/strings/std::sort(Value)");
SORT_CASE(QuickStrings, "QuickSort1M/strings-plain/kestrel");
SORT_CASE(StdPlainStrings, "QuickSort1M/strings-plain/std::sort(u16string)");

}  // namespace

KESTREL_BENCHMARK_MAIN();
