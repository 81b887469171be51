// LogFile.LogLine against spdlog's file sink, 100-character lines.
//
// "flushed": spdlog flushes after every line (flush_on(trace)), which gives
// the guarantee LogFile always gives: a line is in the kernel when the call
// returns. "buffered": spdlog with its default stdio buffering, which loses
// the buffered lines when the process dies; LogFile is the same in both
// cases, so that ratio is the price of crash safety. Both write the same
// bytes: the text and CR LF, no prefix.
#include <benchmark/benchmark.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "kestrel/diagnostics/log.hpp"
#include "kestrel/frame/unicode.hpp"
#include "ratio_reporter.hpp"

namespace {

constexpr size_t kLineLength = 100;

std::string BenchFile(const char* name) {
  return (std::filesystem::temp_directory_path() /
          (std::string("kestrel-log-bench-") + std::to_string(::getpid()) + "-" + name))
      .string();
}

std::string Line() {
  std::string line = "line 00000001 ";
  line.resize(kLineLength, 'x');
  return line;
}

void LogLineKestrel(benchmark::State& state) {
  std::string path = BenchFile("kestrel.log");
  const std::u16string line = kestrel::FromUtf8(Line());
  {
    kestrel::diagnostics::LogFile log;
    log.OpenFile(kestrel::FromUtf8(path));
    for (auto _ : state) benchmark::DoNotOptimize(log.LogLine(line));
  }
  std::filesystem::remove(path);
  state.SetItemsProcessed(state.iterations());
}

void LogLineSpdlog(benchmark::State& state, bool flush_every_line) {
  std::string path = BenchFile("spdlog.log");
  const std::string line = Line();
  {
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, true);
    spdlog::logger log("bench", sink);
    log.set_formatter(std::make_unique<spdlog::pattern_formatter>(
        "%v", spdlog::pattern_time_type::local, "\r\n"));
    if (flush_every_line) log.flush_on(spdlog::level::trace);
    for (auto _ : state) log.info(line);
    log.flush();
  }
  std::filesystem::remove(path);
  state.SetItemsProcessed(state.iterations());
}

}  // namespace

BENCHMARK(LogLineKestrel)->Name("LogLine/flushed/kestrel");
BENCHMARK_CAPTURE(LogLineSpdlog, flushed, true)->Name("LogLine/flushed/spdlog");
BENCHMARK(LogLineKestrel)->Name("LogLine/buffered/kestrel");
BENCHMARK_CAPTURE(LogLineSpdlog, buffered, false)->Name("LogLine/buffered/spdlog");

KESTREL_BENCHMARK_MAIN();
