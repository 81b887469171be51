// MD5Hash against OpenSSL's EVP MD5 driven directly: one 64 MiB Byte array
// hashed whole, and one 64 MiB file read in 16384-byte blocks. Both sides
// hash the very same bytes; the file is written once and stays in the page
// cache, so the file case measures reading and hashing, not the disk.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "bench_data.hpp"
#include "kestrel/formats/md5_hash.hpp"
#include "kestrel/frame/value.hpp"
#include "ratio_reporter.hpp"

namespace {

constexpr size_t kSize = kestrel::bench::kBigByteArraySize;
constexpr size_t kBlock = 16384;

const kestrel::Value& Block() {
  return kestrel::bench::BigByteArray();
}

// The same bytes in a temporary file, removed at exit.
const std::string& FilePath() {
  static const std::string path = [] {
    auto bytes = Block().Bytes();
    return kestrel::bench::TemporaryInputFile(
        std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
  }();
  return path;
}

void BytesKestrel(benchmark::State& state) {
  kestrel::MD5Hash md5;
  for (auto _ : state) benchmark::DoNotOptimize(md5.HashBytes(Block()));
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kSize));
}

void BytesOpenssl(benchmark::State& state) {
  EVP_MD* md = EVP_MD_fetch(nullptr, "MD5", nullptr);
  auto bytes = Block().Bytes();
  for (auto _ : state) {
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestInit_ex(ctx, md, nullptr);
    EVP_DigestUpdate(ctx, bytes.data(), bytes.size());
    EVP_DigestFinal_ex(ctx, digest, &length);
    EVP_MD_CTX_free(ctx);
    benchmark::DoNotOptimize(digest);
  }
  EVP_MD_free(md);
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kSize));
}

void FileKestrel(benchmark::State& state) {
  kestrel::MD5Hash md5;
  const std::string& path = FilePath();
  for (auto _ : state) benchmark::DoNotOptimize(md5.HashFile(path));
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kSize));
}

void FileOpenssl(benchmark::State& state) {
  EVP_MD* md = EVP_MD_fetch(nullptr, "MD5", nullptr);
  const std::string& path = FilePath();
  std::vector<uint8_t> buffer(kBlock);
  for (auto _ : state) {
    int fd = ::open(path.c_str(), O_RDONLY);
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    EVP_DigestInit_ex(ctx, md, nullptr);
    ssize_t n;
    while ((n = ::read(fd, buffer.data(), buffer.size())) > 0)
      EVP_DigestUpdate(ctx, buffer.data(), size_t(n));
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(ctx, digest, &length);
    EVP_MD_CTX_free(ctx);
    ::close(fd);
    benchmark::DoNotOptimize(digest);
  }
  EVP_MD_free(md);
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kSize));
}

BENCHMARK(BytesKestrel)->Name("HashBytes64MiB/kestrel")->Unit(benchmark::kMillisecond);
BENCHMARK(BytesOpenssl)->Name("HashBytes64MiB/openssl")->Unit(benchmark::kMillisecond);
BENCHMARK(FileKestrel)->Name("HashFile64MiB/kestrel")->Unit(benchmark::kMillisecond);
BENCHMARK(FileOpenssl)->Name("HashFile64MiB/openssl")->Unit(benchmark::kMillisecond);

}  // namespace

KESTREL_BENCHMARK_MAIN();
