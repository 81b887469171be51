// FileSystem's whole-file readers against reading the file with
// std::ifstream into a std::string, sized up front: a 64 MiB text file,
// mostly ASCII with a Windows-1252 letter now and then. ReadFile also
// decodes into UTF-16 (twice the bytes out); ReadBinaryFile fills a Byte
// array. The file is written once and stays in the page cache, so every
// case measures reading, not the disk.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "bench_data.hpp"
#include "kestrel/files/file_system.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/frame/value.hpp"
#include "ratio_reporter.hpp"

namespace {

constexpr size_t kSize = size_t{64} << 20;

const std::string& FilePath() {
  static const std::string path = [] {
    std::string text;
    text.reserve(kSize);
    const std::string line = "The quick brown fox jumps over the lazy dog, caf\xE9 na\xEFve.\r\n";
    while (text.size() + line.size() <= kSize) text += line;
    text.resize(kSize, 'x');
    return kestrel::bench::TemporaryInputFile(text);
  }();
  return path;
}

void ReadFileKestrel(benchmark::State& state) {
  kestrel::files::FileSystem files;
  const std::u16string path = kestrel::FromUtf8(FilePath());
  for (auto _ : state) benchmark::DoNotOptimize(files.ReadFile(path));
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kSize));
}

void ReadBinaryFileKestrel(benchmark::State& state) {
  kestrel::files::FileSystem files;
  const kestrel::Value path = kestrel::Value::FromUtf8(FilePath());
  for (auto _ : state) benchmark::DoNotOptimize(files.ReadBinaryFile(path));
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kSize));
}

// The usual way to slurp a file in C++: size it, then one read.
void ReadIfstream(benchmark::State& state) {
  const std::string& path = FilePath();
  for (auto _ : state) {
    std::ifstream in(path, std::ios::binary);
    in.seekg(0, std::ios::end);
    std::string bytes(static_cast<size_t>(in.tellg()), '\0');
    in.seekg(0);
    in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    benchmark::DoNotOptimize(bytes);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kSize));
}

BENCHMARK(ReadFileKestrel)->Name("ReadFile64MiB/kestrel")->Unit(benchmark::kMillisecond);
BENCHMARK(ReadIfstream)->Name("ReadFile64MiB/ifstream")->Unit(benchmark::kMillisecond);
BENCHMARK(ReadBinaryFileKestrel)
    ->Name("ReadBinaryFile64MiB/kestrel")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ReadIfstream)->Name("ReadBinaryFile64MiB/ifstream")->Unit(benchmark::kMillisecond);

}  // namespace

KESTREL_BENCHMARK_MAIN();
