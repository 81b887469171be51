// Prints, after the usual table, how Kestrel compares with the library a
// user would pick instead. Benchmarks come in pairs named
// "<Case>/kestrel" and "<Case>/<baseline>", with any number of baselines per
// case; the ratio is Kestrel's time over the baseline's (below 1.0: Kestrel
// is faster). With repetitions the median decides. Two ratios are printed:
// one from CPU time, which stays steady when other processes share the
// machine (every benchmark here runs on one thread), and one from wall time.
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
      if (run.error_occurred) continue;
      // A median, when there is one, replaces the single runs it sums up.
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (run.run_type != Run::RT_Iteration && !median) continue;
      std::string name = run.run_name.str();
      if (!run.run_name.repetitions.empty())
        name.erase(name.size() - run.run_name.repetitions.size() - 1);
      size_t slash = name.rfind('/');
      if (slash == std::string::npos) continue;
      Case& c = cases_[name.substr(0, slash)];
      std::string side = name.substr(slash + 1);
      Times t{run.GetAdjustedCPUTime(), run.GetAdjustedRealTime()};
      if (side == "kestrel") {
        c.kestrel = t;
      } else {
        c.baselines[side] = t;
      }
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\n%-44s %-18s %10s %10s\n", "case", "baseline", "ratio(cpu)", "ratio(wall)");
    for (const auto& [name, c] : cases_) {
      if (c.kestrel.cpu <= 0 || c.kestrel.wall <= 0) continue;
      for (const auto& [baseline, t] : c.baselines) {
        if (t.cpu <= 0 || t.wall <= 0) continue;
        std::printf("%-44s %-18s %10.3g %10.3g\n", name.c_str(), baseline.c_str(),
                    c.kestrel.cpu / t.cpu, c.kestrel.wall / t.wall);
      }
    }
  }

 private:
  struct Times {
    double cpu = 0;
    double wall = 0;
  };
  struct Case {
    Times kestrel;
    std::map<std::string, Times> baselines;
  };
  std::map<std::string, Case> cases_;
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

#define KESTREL_BENCHMARK_MAIN()                        \
  int main(int argc, char** argv) {                     \
    return ::kestrel::bench::RunWithRatios(argc, argv); \
  }
