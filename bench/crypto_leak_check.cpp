// Timing-leak check for the Rijndael-256 implementations behind Crypto, in
// the manner of dudect: two classes of input, one secret held fixed and one
// drawn at random, measured interleaved in random order with the time-stamp
// counter, then compared with Welch's t-test. The test runs on all
// measurements and again on those below several percentiles of the whole
// (cropping the long tail that interrupts and frequency changes leave);
// the largest |t| is reported. |t| above 4.5 is evidence of a leak; below it
// nothing was detected at this sample size.
//
// Secrets: the key (fixed all-zero key against random keys; the call
// includes the key schedule) and the data (fixed block against random
// blocks, random-but-fixed key), each through encryption and decryption.
// Not run by CTest (minutes per implementation). Build the target
// crypto_leak_check and run it on an otherwise idle machine:
//   build/rel/bench/crypto_leak_check [measurements per test, default 2000000]
// It prints one line per implementation, secret and direction, and exits 1
// on a leak. `crypto_leak_check --calibrate [n]` runs the same measurement on
// a deliberately leaky function instead, to show that a leak is seen.
#include <x86intrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "rijndael/rijndael256.hpp"

namespace {

using kestrel::rijndael::Implementation;

constexpr size_t kBatch = 10000;
constexpr size_t kBlocks = 2;  // one bitsliced pair; four AES-NI halves
constexpr size_t kBytes = kBlocks * kestrel::rijndael::kBlockBytes;

inline uint64_t Ticks() noexcept {
  unsigned aux;
  _mm_lfence();
  const uint64_t t = __rdtscp(&aux);
  _mm_lfence();
  return t;
}

struct Welch {
  double n[2] = {}, mean[2] = {}, m2[2] = {};
  void Add(int cls, double x) {
    n[cls] += 1;
    const double d = x - mean[cls];
    mean[cls] += d / n[cls];
    m2[cls] += d * (x - mean[cls]);
  }
  double T() const {
    if (n[0] < 2 || n[1] < 2) return 0;
    const double v0 = m2[0] / (n[0] - 1), v1 = m2[1] / (n[1] - 1);
    return (mean[0] - mean[1]) / std::sqrt(v0 / n[0] + v1 / n[1]);
  }
};

enum class Secret { kKey, kData };

// Largest |t| over the uncropped set and the crops.
double Measure(const Implementation& impl, Secret secret, bool encrypt, size_t total) {
  std::mt19937_64 random(0x5eed);
  const auto fn = encrypt ? impl.encrypt : impl.decrypt;
  uint8_t fixed_key[32] = {}, fixed_data[kBytes] = {}, base_key[32];
  for (uint8_t& b : base_key) b = uint8_t(random());
  std::vector<uint8_t> keys(kBatch * 32), data(kBatch * kBytes), classes(kBatch);
  std::vector<uint64_t> times(kBatch);
  std::vector<std::pair<int, double>> all;
  all.reserve(total);
  uint8_t out[kBytes];
  for (size_t done = 0; done < total; done += kBatch) {
    for (size_t i = 0; i < kBatch; ++i) {
      classes[i] = uint8_t(random() & 1);
      uint8_t* k = &keys[32 * i];
      uint8_t* d = &data[kBytes * i];
      for (size_t j = 0; j < 32; ++j) k[j] = uint8_t(random());
      for (size_t j = 0; j < kBytes; ++j) d[j] = uint8_t(random());
      if (secret == Secret::kKey) {
        if (classes[i] == 0) std::memcpy(k, fixed_key, 32);
      } else {
        std::memcpy(k, base_key, 32);
        if (classes[i] == 0) std::memcpy(d, fixed_data, kBytes);
      }
    }
    for (size_t i = 0; i < kBatch; ++i) {
      const uint64_t start = Ticks();
      fn(&keys[32 * i], &data[kBytes * i], out, kBlocks);
      times[i] = Ticks() - start;
    }
    for (size_t i = 0; i < kBatch; ++i) all.emplace_back(classes[i], double(times[i]));
  }
  std::vector<double> sorted;
  for (const auto& m : all) sorted.push_back(m.second);
  std::sort(sorted.begin(), sorted.end());
  double worst = 0;
  for (const double p : {1.0, 0.99, 0.95, 0.9, 0.75, 0.5}) {
    const double limit = sorted[std::min(sorted.size() - 1, size_t(p * double(sorted.size())))];
    Welch w;
    for (const auto& [cls, x] : all)
      if (p == 1.0 || x < limit) w.Add(cls, x);
    worst = std::max(worst, std::fabs(w.T()));
  }
  return worst;
}

// A deliberately leaky stand-in for --calibrate: it works longer the more
// leading bytes of the key or the data are zero, as an early-exit compare
// would. The check must flag it, or the measurement cannot see leaks.
void Leaky(const uint8_t* key, const uint8_t* in, uint8_t* out, size_t blocks) {
  const size_t bytes = blocks * kestrel::rijndael::kBlockBytes;
  size_t i = 0;
  while (i < 32 && (key[i] == 0 || in[i] == 0)) ++i;
  uint64_t acc = 0;
  for (size_t r = 0; r < i; ++r) acc = acc * 31 + in[r % bytes];
  for (size_t j = 0; j < bytes; ++j) out[j] = uint8_t(in[j] ^ key[j % 32] ^ acc);
}

}  // namespace

int main(int argc, char** argv) {
  static constexpr Implementation kLeaky{"leaky", Leaky, Leaky};
  const bool calibrate = argc > 1 && std::strcmp(argv[1], "--calibrate") == 0;
  const int count_arg = calibrate ? 2 : 1;
  const size_t total = argc > count_arg ? std::strtoull(argv[count_arg], nullptr, 10) : 2000000;
  std::vector<const Implementation*> impls{&kestrel::rijndael::Portable()};
  if (kestrel::rijndael::AesNi() != nullptr) impls.push_back(kestrel::rijndael::AesNi());
  if (calibrate) impls = {&kLeaky};
  double overall = 0;
  for (const Implementation* impl : impls)
    for (const Secret secret : {Secret::kKey, Secret::kData})
      for (const bool encrypt : {true, false}) {
        const double t = Measure(*impl, secret, encrypt, total);
        overall = std::max(overall, t);
        std::printf("%-9s secret=%-4s %-7s measurements=%zu max|t|=%.2f\n", impl->name,
                    secret == Secret::kKey ? "key" : "data", encrypt ? "encrypt" : "decrypt", total,
                    t);
        std::fflush(stdout);
      }
  std::printf("largest |t| = %.2f (%s)\n", overall, overall < 4.5 ? "no leak detected" : "LEAK");
  // Calibration succeeds when the planted leak is found.
  return (overall < 4.5) != calibrate ? 0 : 1;
}
