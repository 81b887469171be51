// Rijndael with a 256-bit block and a 256-bit key (Nb = 8, Nk = 8, 14
// rounds), the cipher under Crypto. Private to the library; the tests and the
// timing tools include it to reach each implementation directly.
//
// Every implementation runs in constant time: no branch and no memory
// address depends on the key or the data. Each one expands its own key
// schedule on every call (the schedule is the only per-key state), takes
// the bytes in the order of the Rijndael definition (byte 4c + r of a block
// is row r of column c) and may work in place (in == out).
//
//   const auto& cipher = kestrel::rijndael::Selected();
//   cipher.encrypt(key, frame, frame, frame_size / kestrel::rijndael::kBlockBytes);
#pragma once

#include <cstddef>
#include <cstdint>

#include "kestrel/frame/export.hpp"

namespace kestrel::rijndael {

inline constexpr size_t kBlockBytes = 32;
inline constexpr size_t kKeyBytes = 32;
inline constexpr int kRounds = 14;
// 15 round keys of one block each.
inline constexpr size_t kScheduleBytes = kBlockBytes * (kRounds + 1);

using BlockFn = void (*)(const uint8_t* key, const uint8_t* in, uint8_t* out, size_t blocks);

struct Implementation {
  const char* name;
  BlockFn encrypt;
  BlockFn decrypt;
};

// Bitsliced, plain 64-bit integer code: every CPU.
KESTREL_API const Implementation& Portable() noexcept;
// AES instructions with byte blends and shuffles; nullptr unless this is an
// x86-64 CPU with AES-NI, SSSE3 and SSE4.1.
KESTREL_API const Implementation* AesNi() noexcept;
// The one Crypto uses, chosen once per process: AES-NI when present, unless
// the environment variable KESTREL_CRYPTO_PORTABLE is set to 1.
KESTREL_API const Implementation& Selected() noexcept;

// The round keys in block byte order, computed without tables in constant
// time; round key r is bytes 32r .. 32r + 31.
void ExpandKey(const uint8_t* key, uint8_t* schedule) noexcept;

}  // namespace kestrel::rijndael
