// List and placeholder helpers against the same work written directly on
// std::u16string / std::u16string_view, the way a C++ user would write it.
//
// ListMember is called once per member, as client code walks a list
// (member 1, 2, ... n), so both sides locate member k from the start of the
// text each time: the access pattern the interface implies.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/utilities/utilities.hpp"
#include "ratio_reporter.hpp"

namespace {

using kestrel::Value;

constexpr int kMembers = 10'000;
constexpr int kPlaceholders = 100;

std::u16string Number(int n) {
  std::string s = std::to_string(n);
  return std::u16string(s.begin(), s.end());
}

// Two-character members: ListMember's positions are 16-bit, so the whole
// list must stay under 32,768 characters (10,000 members x 3 = 29,999).
const std::u16string& List() {
  static const std::u16string list = [] {
    std::u16string text;
    for (int i = 1; i <= kMembers; ++i) {
      if (i > 1) text += u',';
      text += static_cast<char16_t>(u'A' + i % 26);
      text += static_cast<char16_t>(u'a' + (i / 26) % 26);
    }
    return text;
  }();
  return list;
}

std::u16string_view NthMember(std::u16string_view list, int n) {
  size_t start = 0;
  for (int i = 1; i < n; ++i) {
    size_t comma = list.find(u',', start);
    if (comma == std::u16string_view::npos) return {};
    start = comma + 1;
  }
  size_t end = list.find(u',', start);
  return list.substr(start, end == std::u16string_view::npos ? end : end - start);
}

void ListWalkKestrel(benchmark::State& state) {
  kestrel::Utilities& u = kestrel::utilities::Instance();
  for (auto _ : state) {
    size_t total = 0;
    for (int i = 1; i <= kMembers; ++i) total += u.ListMember(List(), int16_t(i)).size();
    benchmark::DoNotOptimize(total);
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kMembers);
}

void ListWalkStd(benchmark::State& state) {
  for (auto _ : state) {
    size_t total = 0;
    for (int i = 1; i <= kMembers; ++i) total += std::u16string(NthMember(List(), i)).size();
    benchmark::DoNotOptimize(total);
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kMembers);
}

const std::u16string& Pattern() {
  static const std::u16string pattern = [] {
    std::u16string text;
    for (int k = 0; k < kPlaceholders; ++k) text.append(u"field {").append(Number(k)).append(u"} = ; ");
    return text;
  }();
  return pattern;
}

const std::vector<Value>& Values() {
  static const std::vector<Value> values = [] {
    std::vector<Value> v;
    for (int k = 0; k < kPlaceholders; ++k) v.emplace_back(Value(k * 1.5));
    return v;
  }();
  return values;
}

void BuildStringKestrel(benchmark::State& state) {
  kestrel::Utilities& u = kestrel::utilities::Instance();
  const Value pattern(Pattern());
  for (auto _ : state) benchmark::DoNotOptimize(u.BuildString(pattern, Values()));
}

// Replace every "{k}" by the value's text, value by value.
void BuildStringStd(benchmark::State& state) {
  for (auto _ : state) {
    std::u16string text = Pattern();
    for (int k = 0; k < kPlaceholders; ++k) {
      std::u16string key(u"{");
      key.append(Number(k)).append(u"}");
      const std::u16string value = kestrel::runtime::ToText(Values()[size_t(k)]);
      for (size_t at = text.find(key); at != std::u16string::npos;
           at = text.find(key, at + value.size())) {
        text.replace(at, key.size(), value);
      }
    }
    benchmark::DoNotOptimize(text);
  }
}

}  // namespace

BENCHMARK(ListWalkKestrel)->Name("ListMemberWalk10k/kestrel")->Unit(benchmark::kMillisecond);
BENCHMARK(ListWalkStd)->Name("ListMemberWalk10k/u16string_view")->Unit(benchmark::kMillisecond);
BENCHMARK(BuildStringKestrel)->Name("BuildString100/kestrel")->Unit(benchmark::kMicrosecond);
BENCHMARK(BuildStringStd)->Name("BuildString100/u16string")->Unit(benchmark::kMicrosecond);

KESTREL_BENCHMARK_MAIN();
