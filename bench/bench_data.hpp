// Inputs shared by the benchmarks: the same 1,000,000 random doubles and
// random 8-letter strings for every comparison, made once per process, and
// temporary input files removed at exit.
#pragma once

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "kestrel/frame/value.hpp"

namespace kestrel::bench {

inline constexpr size_t kMillion = 1'000'000;

// A Byte array of 64 MiB of pseudo-random bytes, the same in every run:
// the input of the digest and cipher benchmarks.
inline constexpr size_t kBigByteArraySize = size_t{64} << 20;

inline const Value& BigByteArray() {
  static const Value block = [] {
    Value v =
        Value::NewArray(Kind::kByte, {Bounds{0, static_cast<int32_t>(kBigByteArraySize) - 1}});
    uint32_t x = 12345;
    for (uint8_t& b : v.MutableBytes()) {
      x = x * 1664525u + 1013904223u;
      b = static_cast<uint8_t>(x >> 24);
    }
    return v;
  }();
  return block;
}

inline const std::vector<double>& RandomDoubles() {
  static const std::vector<double> data = [] {
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> dist(-1e6, 1e6);
    std::vector<double> v(kMillion);
    for (double& d : v) d = dist(rng);
    return v;
  }();
  return data;
}

// Eight random letters: past the small-string buffer of std::u16string, as
// most identifiers and keys are.
inline const std::vector<std::u16string>& RandomStrings() {
  static const std::vector<std::u16string> data = [] {
    std::mt19937_64 rng(7);
    std::uniform_int_distribution<int> letter(0, 51);
    std::vector<std::u16string> v(kMillion);
    for (auto& s : v) {
      s.resize(8);
      for (char16_t& c : s) {
        int l = letter(rng);
        c = static_cast<char16_t>(l < 26 ? u'a' + l : u'A' + l - 26);
      }
    }
    return v;
  }();
  return data;
}

// The same data as Values, made once per element type.
template <class T>
const std::vector<Value>& AsValues(const std::vector<T>& plain) {
  static const std::vector<Value> values(plain.begin(), plain.end());
  return values;
}

// Times std::sort of a fresh copy of `data` per iteration (the copy is not
// timed): the baseline every sort is measured against.
template <class Vector, class Less>
void StdSortCopies(benchmark::State& state, const Vector& data, Less less) {
  for (auto _ : state) {
    state.PauseTiming();
    Vector copy(data);
    state.ResumeTiming();
    std::sort(copy.begin(), copy.end(), less);
    benchmark::DoNotOptimize(copy.data());
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(data.size()));
}

// Writes `bytes` to a new file under /tmp, removed when the process exits,
// and returns its path. The files stay in the page cache, so the benchmarks
// that read them measure reading, not the disk.
inline std::string TemporaryInputFile(std::string_view bytes) {
  // Plain storage, so that the exit handler never sees destroyed strings.
  static char names[8][40];
  static int used = 0;
  if (used == 8) std::abort();
  char* name = names[used++];
  std::snprintf(name, sizeof names[0], "/tmp/kestrel-bench-XXXXXX");
  int fd = ::mkstemp(name);
  if (fd < 0 || ::write(fd, bytes.data(), bytes.size()) != ssize_t(bytes.size())) std::abort();
  ::close(fd);
  if (used == 1) {
    std::atexit([] {
      for (int i = 0; i < used; ++i) std::remove(names[i]);
    });
  }
  return name;
}

}  // namespace kestrel::bench
