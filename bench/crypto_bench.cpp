// Crypto against OpenSSL's AES-256-ECB (EVP, which uses AES-NI where the CPU
// has it): 64 MiB encrypted through EncryptData and decrypted through
// DecryptData, and the same 64 MiB through EVP on the same run. Each case
// runs three times and the ratio is taken between medians. The time of one
// EncryptData call on a short message (one block: key schedule included)
// is reported on its own.
//
// The cipher implementation is the one Crypto chooses; run with
// KESTREL_CRYPTO_PORTABLE=1 in the environment for the portable one:
//   build/rel/bench/crypto_bench
//   KESTREL_CRYPTO_PORTABLE=1 build/rel/bench/crypto_bench
#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "kestrel/formats/crypto.hpp"
#include "kestrel/frame/value.hpp"

#include "bench_data.hpp"
#include "ratio_reporter.hpp"

namespace {

constexpr size_t kSize = kestrel::bench::kBigByteArraySize;
constexpr uint8_t kPassword[32] = {'b', 'e', 'n', 'c', 'h', ' ', 'p', 'a', 's', 's', 'w',
                                   'o', 'r', 'd', 1,   2,   3,   4,   5,   6,   7,   8,
                                   9,   10,  11,  12,  13,  14,  15,  16,  17,  18};

const kestrel::Value& Message() {
  return kestrel::bench::BigByteArray();
}

const kestrel::Value& Password() {
  static const kestrel::Value password = kestrel::Value::ByteArray(kPassword);
  return password;
}

const kestrel::Value& Sealed() {
  static const kestrel::Value sealed = kestrel::Crypto().EncryptData(Message(), Password());
  return sealed;
}

void EncryptKestrel(benchmark::State& state) {
  kestrel::Crypto crypto;
  for (auto _ : state) benchmark::DoNotOptimize(crypto.EncryptData(Message(), Password()));
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kSize));
}

void DecryptKestrel(benchmark::State& state) {
  kestrel::Crypto crypto;
  const kestrel::Value& sealed = Sealed();
  for (auto _ : state) benchmark::DoNotOptimize(crypto.DecryptData(sealed, Password()));
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kSize));
}

// AES-256-ECB without padding over the same bytes, into a fresh buffer as
// Crypto returns a fresh array.
void RunOpenssl(benchmark::State& state, bool encrypt) {
  const auto in = encrypt ? Message().Bytes() : Sealed().Bytes().first(kSize);
  EVP_CIPHER* cipher = EVP_CIPHER_fetch(nullptr, "AES-256-ECB", nullptr);
  for (auto _ : state) {
    std::vector<uint8_t> out(in.size());
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    EVP_CipherInit_ex2(ctx, cipher, kPassword, nullptr, encrypt ? 1 : 0, nullptr);
    EVP_CIPHER_CTX_set_padding(ctx, 0);
    int written = 0;
    EVP_CipherUpdate(ctx, out.data(), &written, in.data(), int(in.size()));
    EVP_CIPHER_CTX_free(ctx);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  EVP_CIPHER_free(cipher);
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kSize));
}

void EncryptOpenssl(benchmark::State& state) {
  RunOpenssl(state, true);
}
void DecryptOpenssl(benchmark::State& state) {
  RunOpenssl(state, false);
}

void OneCall(benchmark::State& state) {
  kestrel::Crypto crypto;
  const uint8_t text[] = {'h', 'e', 'l', 'l', 'o'};
  const kestrel::Value message = kestrel::Value::ByteArray(text);
  for (auto _ : state) benchmark::DoNotOptimize(crypto.EncryptData(message, Password()));
}

void Repeated(benchmark::internal::Benchmark* b) {
  b->Repetitions(3)->DisplayAggregatesOnly(true)->Unit(benchmark::kMillisecond);
}

BENCHMARK(EncryptKestrel)->Name("Encrypt64MiB/kestrel")->Apply(Repeated);
BENCHMARK(EncryptOpenssl)->Name("Encrypt64MiB/openssl_aes256_ecb")->Apply(Repeated);
BENCHMARK(DecryptKestrel)->Name("Decrypt64MiB/kestrel")->Apply(Repeated);
BENCHMARK(DecryptOpenssl)->Name("Decrypt64MiB/openssl_aes256_ecb")->Apply(Repeated);
BENCHMARK(OneCall)->Name("EncryptData32Bytes")->Apply(Repeated)->Unit(benchmark::kMicrosecond);

}  // namespace

KESTREL_BENCHMARK_MAIN();
