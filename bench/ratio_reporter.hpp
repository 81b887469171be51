// Prints, after the usual table, how Kestrel compares with the library a
// user would pick instead. Benchmarks come in pairs named
// "<Case>/kestrel" and "<Case>/<baseline>"; the ratio is Kestrel's time over
// the baseline's (below 1.0: Kestrel is faster).
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace kestrel::bench {

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      std::string name = run.benchmark_name();
      size_t slash = name.rfind('/');
      if (slash == std::string::npos) continue;
      Pair& p = pairs_[name.substr(0, slash)];
      std::string side = name.substr(slash + 1);
      if (side == "kestrel") {
        p.kestrel = run.GetAdjustedRealTime();
      } else {
        p.baseline = run.GetAdjustedRealTime();
        p.baseline_name = side;
      }
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\n%-44s %-18s %10s\n", "case", "baseline", "ratio");
    for (const auto& [name, p] : pairs_) {
      if (p.kestrel <= 0 || p.baseline <= 0) continue;
      std::printf("%-44s %-18s %10.3g\n", name.c_str(), p.baseline_name.c_str(),
                  p.kestrel / p.baseline);
    }
  }

 private:
  struct Pair {
    double kestrel = 0;
    double baseline = 0;
    std::string baseline_name;
  };
  std::map<std::string, Pair> pairs_;
};

inline int RunWithRatios(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}

}  // namespace kestrel::bench

#define KESTREL_BENCHMARK_MAIN() \
  int main(int argc, char** argv) { return ::kestrel::bench::RunWithRatios(argc, argv); }
