// What tracing costs per traced call: one TraceIn + Trace + TraceOut round
// into an in-memory log, without a profiler and with one driving a
// do-nothing data sink. The ratio is the profiler's overhead on a round.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "kestrel/diagnostics/log.hpp"
#include "kestrel/diagnostics/profiler.hpp"
#include "kestrel/diagnostics/tracer.hpp"
#include "ratio_reporter.hpp"

namespace {

using namespace kestrel::diagnostics;

// The log is emptied every so many rounds so that memory stays bounded and
// appends stay in cache-sized buffers, as a client clearing its log would.
constexpr int64_t kClearEvery = 1024;

void Round(benchmark::State& state, bool with_profiler) {
  auto log = kestrel::MakeRef<LogString>();
  auto tracer = kestrel::MakeRef<Tracer>();
  tracer->SetLogTo(log);
  if (with_profiler) {
    auto profiler = kestrel::MakeRef<Profiler>();
    profiler->SetData(kestrel::MakeRef<IProfileData>());
    tracer->SetProfiler(profiler);
    tracer->SetProfilerOn(true);
  }
  int64_t rounds = 0;
  for (auto _ : state) {
    tracer->TraceIn(u"DoWork", u"Module1");
    tracer->Trace(u"working on the next item", Info);
    tracer->TraceOut(u"DoWork", u"Module1");
    if (++rounds % kClearEvery == 0) log->Clear();
  }
  state.SetItemsProcessed(state.iterations());
}

void RoundNoProfiler(benchmark::State& state) {
  Round(state, false);
}
void RoundWithProfiler(benchmark::State& state) {
  Round(state, true);
}

BENCHMARK(RoundNoProfiler)->Name("Round/no-profiler");
BENCHMARK(RoundWithProfiler)->Name("Round/kestrel");

}  // namespace

KESTREL_BENCHMARK_MAIN();
