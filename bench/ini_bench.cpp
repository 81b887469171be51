// IniFile.GetValue on a file of 500 sections x 20 keys, asked for keys all
// over the file: with the profile engine's validated parsed copy (a stat
// per call proves the file unchanged) against reading and parsing the file
// on every call, which is what a reader without the copy must do to see
// every change. Both sides run the same member with the same buffer logic.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "bench_data.hpp"
#include "kestrel/files/ini_file.hpp"
#include "kestrel/files/profile.hpp"
#include "kestrel/frame/unicode.hpp"
#include "ratio_reporter.hpp"

namespace {

constexpr int kSections = 500;
constexpr int kKeys = 20;

const std::string& FilePath() {
  static const std::string path = [] {
    std::string text;
    for (int s = 0; s < kSections; ++s) {
      text += "[Section" + std::to_string(s) + "]\r\n";
      for (int k = 0; k < kKeys; ++k) {
        text += "Key" + std::to_string(k) + " = value of key " + std::to_string(k) +
                " in section " + std::to_string(s) + "\r\n";
      }
      text += "\r\n";
    }
    return kestrel::bench::TemporaryInputFile(text);
  }();
  return path;
}

// Section and key names visited in a scattered order, prepared once.
struct Lookup {
  std::u16string section, key;
};
const std::vector<Lookup>& Lookups() {
  static const std::vector<Lookup> lookups = [] {
    std::vector<Lookup> all;
    uint32_t x = 7;
    for (int i = 0; i < 4096; ++i) {
      x = x * 1664525u + 1013904223u;
      all.push_back({kestrel::FromUtf8("section" + std::to_string((x >> 8) % kSections)),
                     kestrel::FromUtf8("KEY" + std::to_string((x >> 20) % kKeys))});
    }
    return all;
  }();
  return lookups;
}

void GetValue(benchmark::State& state, bool parsed_copies) {
  kestrel::files::SetProfileCopiesEnabled(parsed_copies);
  kestrel::files::IniFile ini;
  ini.SetFileName(kestrel::FromUtf8(FilePath()));
  const auto& lookups = Lookups();
  size_t i = 0;
  for (auto _ : state) {
    const Lookup& lookup = lookups[i++ % lookups.size()];
    benchmark::DoNotOptimize(ini.GetValue(lookup.section, lookup.key));
  }
  kestrel::files::SetProfileCopiesEnabled(true);
}

void GetValueWithCopy(benchmark::State& state) {
  GetValue(state, true);
}
void GetValueReparsing(benchmark::State& state) {
  GetValue(state, false);
}

BENCHMARK(GetValueWithCopy)->Name("IniGetValue500x20/kestrel")->Unit(benchmark::kMicrosecond);
BENCHMARK(GetValueReparsing)
    ->Name("IniGetValue500x20/reparse_every_call")
    ->Unit(benchmark::kMicrosecond);

}  // namespace

KESTREL_BENCHMARK_MAIN();
