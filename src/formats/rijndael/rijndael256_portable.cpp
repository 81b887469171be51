// Portable constant-time Rijndael-256: bitsliced on 64-bit words.
//
// Two blocks (64 bytes) are processed at once as eight bit planes: bit p of
// plane j is bit j of byte p, with p = 32 * block + 4 * column + row. The
// S-box is the GF(2^8) inverse (x^254 by an addition chain of bitsliced
// multiplications and squarings) followed by the affine map, so it is
// evaluated on all 64 bytes with the same instructions whatever their
// values; row shifting is a rotation of each 32-bit half of a plane, column
// mixing a rotation within each 4-bit nibble. No table is indexed by a
// secret and no branch depends on one.
#include <cstring>

#include "rijndael256.hpp"

namespace kestrel::rijndael {
namespace {

using Planes = uint64_t[8];

// --- bit-plane conversion ---------------------------------------------------

// Transposes an 8 x 8 bit matrix held as 8 bytes (bit k of byte i <-> bit i
// of byte k).
inline uint64_t Transpose8(uint64_t x) noexcept {
  uint64_t t = (x ^ (x >> 7)) & 0x00AA00AA00AA00AAULL;
  x ^= t ^ (t << 7);
  t = (x ^ (x >> 14)) & 0x0000CCCC0000CCCCULL;
  x ^= t ^ (t << 14);
  t = (x ^ (x >> 28)) & 0x00000000F0F0F0F0ULL;
  x ^= t ^ (t << 28);
  return x;
}

void Pack(const uint8_t* in, Planes s) noexcept {
  for (int j = 0; j < 8; ++j) s[j] = 0;
  for (int g = 0; g < 8; ++g) {
    uint64_t x = 0;
    for (int k = 0; k < 8; ++k) x |= uint64_t(in[8 * g + k]) << (8 * k);
    x = Transpose8(x);
    for (int j = 0; j < 8; ++j) s[j] |= ((x >> (8 * j)) & 0xFF) << (8 * g);
  }
}

void Unpack(const Planes s, uint8_t* out) noexcept {
  for (int g = 0; g < 8; ++g) {
    uint64_t x = 0;
    for (int j = 0; j < 8; ++j) x |= ((s[j] >> (8 * g)) & 0xFF) << (8 * j);
    x = Transpose8(x);
    for (int k = 0; k < 8; ++k) out[8 * g + k] = uint8_t(x >> (8 * k));
  }
}

// --- GF(2^8) arithmetic on bit planes (field polynomial x^8+x^4+x^3+x+1) ------

// Folds the terms x^14 .. x^8 back with x^8 = x^4 + x^3 + x + 1.
inline void Reduce(uint64_t p[15], Planes out) noexcept {
  for (int k = 14; k >= 8; --k) {
    p[k - 4] ^= p[k];
    p[k - 5] ^= p[k];
    p[k - 7] ^= p[k];
    p[k - 8] ^= p[k];
  }
  for (int j = 0; j < 8; ++j) out[j] = p[j];
}

void Multiply(const Planes a, const Planes b, Planes out) noexcept {
  uint64_t p[15] = {};
  for (int i = 0; i < 8; ++i)
    for (int j = 0; j < 8; ++j) p[i + j] ^= a[i] & b[j];
  Reduce(p, out);
}

// Squaring is linear: bit i moves to x^(2i).
void Square(const Planes a, Planes out) noexcept {
  uint64_t p[15] = {};
  for (int i = 0; i < 8; ++i) p[2 * i] = a[i];
  Reduce(p, out);
}

// x^254, the multiplicative inverse (0 stays 0).
void Invert(Planes s) noexcept {
  Planes x2, x3, x12, t;
  Square(s, x2);
  Multiply(x2, s, x3);
  Square(x3, t);
  Square(t, x12);
  Multiply(x12, x3, t);                      // x^15
  for (int i = 0; i < 4; ++i) Square(t, t);  // x^240
  Multiply(t, x12, t);                       // x^252
  Multiply(t, x2, s);                        // x^254
}

void SubBytes(Planes s) noexcept {
  Invert(s);
  Planes b;
  for (int i = 0; i < 8; ++i) b[i] = s[i];
  for (int i = 0; i < 8; ++i)
    s[i] = b[i] ^ b[(i + 4) % 8] ^ b[(i + 5) % 8] ^ b[(i + 6) % 8] ^ b[(i + 7) % 8];
  // The affine constant 0x63: bits 0, 1, 5 and 6.
  s[0] = ~s[0];
  s[1] = ~s[1];
  s[5] = ~s[5];
  s[6] = ~s[6];
}

void InvSubBytes(Planes s) noexcept {
  Planes b;
  for (int i = 0; i < 8; ++i) b[i] = s[i];
  for (int i = 0; i < 8; ++i) s[i] = b[(i + 2) % 8] ^ b[(i + 5) % 8] ^ b[(i + 7) % 8];
  // The inverse affine constant 0x05: bits 0 and 2.
  s[0] = ~s[0];
  s[2] = ~s[2];
  Invert(s);
}

// --- row shifting: rotations of each 32-bit half (one block) -----------------

constexpr uint64_t kRow0 = 0x1111111111111111ULL;

constexpr uint64_t LaneLow(int n) {
  const uint64_t m = (uint64_t{1} << n) - 1;
  return m | (m << 32);
}

// Rotates both 32-bit lanes right by k bits (4 bits per column).
template <int k>
inline uint64_t RotateLanes(uint64_t x) noexcept {
  return ((x >> k) & LaneLow(32 - k)) | ((x << (32 - k)) & ~LaneLow(32 - k));
}

// Row r moves left by 0, 1, 3, 4 columns: column c takes column c + offset.
void ShiftRows(Planes s) noexcept {
  for (int j = 0; j < 8; ++j) {
    const uint64_t x = s[j];
    s[j] = (x & kRow0) | RotateLanes<4>(x & (kRow0 << 1)) | RotateLanes<12>(x & (kRow0 << 2)) |
           RotateLanes<16>(x & (kRow0 << 3));
  }
}

void InvShiftRows(Planes s) noexcept {
  for (int j = 0; j < 8; ++j) {
    const uint64_t x = s[j];
    s[j] = (x & kRow0) | RotateLanes<28>(x & (kRow0 << 1)) | RotateLanes<20>(x & (kRow0 << 2)) |
           RotateLanes<16>(x & (kRow0 << 3));
  }
}

// --- column mixing: rotations within each nibble (one column) -----------------

// Row r of each column takes row r + k.
template <int k>
inline uint64_t RotateRows(uint64_t x) noexcept {
  constexpr uint64_t kLow = (k == 1)   ? 0x7777777777777777ULL
                            : (k == 2) ? 0x3333333333333333ULL
                                       : 0x1111111111111111ULL;
  return ((x >> k) & kLow) | ((x << (4 - k)) & ~kLow);
}

// Multiplication by x: a shift of the planes with the reduction folded in.
inline void Xtime(const Planes t, Planes out) noexcept {
  const uint64_t top = t[7];
  out[7] = t[6];
  out[6] = t[5];
  out[5] = t[4];
  out[4] = t[3] ^ top;
  out[3] = t[2] ^ top;
  out[2] = t[1];
  out[1] = t[0] ^ top;
  out[0] = top;
}

// b_r = 2 a_r + 3 a_(r+1) + a_(r+2) + a_(r+3) = 2 (a_r + a_(r+1)) + the rest.
void MixColumns(Planes s) noexcept {
  Planes t, rest;
  for (int j = 0; j < 8; ++j) {
    const uint64_t r1 = RotateRows<1>(s[j]);
    t[j] = s[j] ^ r1;
    rest[j] = r1 ^ RotateRows<2>(s[j]) ^ RotateRows<3>(s[j]);
  }
  Xtime(t, s);
  for (int j = 0; j < 8; ++j) s[j] ^= rest[j];
}

// The inverse mixing (coefficients 14, 11, 13, 9) is the forward one after
// adding 4 (a_r + a_(r+2)) to every row.
void InvMixColumns(Planes s) noexcept {
  Planes t, u;
  for (int j = 0; j < 8; ++j) t[j] = s[j] ^ RotateRows<2>(s[j]);
  Xtime(t, u);
  Xtime(u, t);
  for (int j = 0; j < 8; ++j) s[j] ^= t[j];
  MixColumns(s);
}

inline void AddRoundKey(Planes s, const Planes k) noexcept {
  for (int j = 0; j < 8; ++j) s[j] ^= k[j];
}

// --- key schedule -----------------------------------------------------------

// S-box of the four bytes of a word, through the same bitsliced circuit.
uint32_t SubWord(uint32_t w) noexcept {
  Planes s = {};
  for (int j = 0; j < 8; ++j)
    for (int b = 0; b < 4; ++b) s[j] |= uint64_t((w >> (8 * b + j)) & 1) << b;
  SubBytes(s);
  uint32_t out = 0;
  for (int j = 0; j < 8; ++j)
    for (int b = 0; b < 4; ++b) out |= uint32_t((s[j] >> b) & 1) << (8 * b + j);
  return out;
}

// Round keys as bit planes with the key in both halves (both blocks).
struct PlaneSchedule {
  uint64_t round[kRounds + 1][8];
};

void ExpandPlanes(const uint8_t* key, PlaneSchedule& ps) noexcept {
  uint8_t schedule[kScheduleBytes];
  ExpandKey(key, schedule);
  uint8_t twice[2 * kBlockBytes];
  for (int r = 0; r <= kRounds; ++r) {
    std::memcpy(twice, schedule + kBlockBytes * r, kBlockBytes);
    std::memcpy(twice + kBlockBytes, schedule + kBlockBytes * r, kBlockBytes);
    Pack(twice, ps.round[r]);
  }
  explicit_bzero(schedule, sizeof schedule);
  explicit_bzero(twice, sizeof twice);
}

// --- blocks -------------------------------------------------------------------

void EncryptPair(const PlaneSchedule& ps, const uint8_t* in, uint8_t* out) noexcept {
  Planes s;
  Pack(in, s);
  AddRoundKey(s, ps.round[0]);
  for (int r = 1; r < kRounds; ++r) {
    SubBytes(s);
    ShiftRows(s);
    MixColumns(s);
    AddRoundKey(s, ps.round[r]);
  }
  SubBytes(s);
  ShiftRows(s);
  AddRoundKey(s, ps.round[kRounds]);
  Unpack(s, out);
}

void DecryptPair(const PlaneSchedule& ps, const uint8_t* in, uint8_t* out) noexcept {
  Planes s;
  Pack(in, s);
  AddRoundKey(s, ps.round[kRounds]);
  InvShiftRows(s);
  InvSubBytes(s);
  for (int r = kRounds - 1; r >= 1; --r) {
    AddRoundKey(s, ps.round[r]);
    InvMixColumns(s);
    InvShiftRows(s);
    InvSubBytes(s);
  }
  AddRoundKey(s, ps.round[0]);
  Unpack(s, out);
}

template <void (*Pair)(const PlaneSchedule&, const uint8_t*, uint8_t*) noexcept>
void Run(const uint8_t* key, const uint8_t* in, uint8_t* out, size_t blocks) {
  PlaneSchedule ps;
  ExpandPlanes(key, ps);
  size_t i = 0;
  for (; i + 2 <= blocks; i += 2) Pair(ps, in + kBlockBytes * i, out + kBlockBytes * i);
  if (i < blocks) {
    // An odd last block travels with a zero block whose result is dropped.
    uint8_t pair[2 * kBlockBytes] = {};
    std::memcpy(pair, in + kBlockBytes * i, kBlockBytes);
    Pair(ps, pair, pair);
    std::memcpy(out + kBlockBytes * i, pair, kBlockBytes);
    explicit_bzero(pair, sizeof pair);
  }
  explicit_bzero(&ps, sizeof ps);
}

}  // namespace

void ExpandKey(const uint8_t* key, uint8_t* schedule) noexcept {
  constexpr int kWords = 8 * (kRounds + 1);
  uint32_t w[kWords];
  for (int i = 0; i < 8; ++i)
    w[i] = uint32_t(key[4 * i]) | uint32_t(key[4 * i + 1]) << 8 | uint32_t(key[4 * i + 2]) << 16 |
           uint32_t(key[4 * i + 3]) << 24;
  uint32_t rcon = 1;
  for (int i = 8; i < kWords; ++i) {
    uint32_t t = w[i - 1];
    if (i % 8 == 0) {
      // RotWord moves byte 1 to byte 0 (row 0 is the low byte).
      t = SubWord((t >> 8) | (t << 24)) ^ rcon;
      rcon = (rcon << 1) ^ (0x11B & -(rcon >> 7));
    } else if (i % 8 == 4) {
      t = SubWord(t);
    }
    w[i] = w[i - 8] ^ t;
  }
  for (int i = 0; i < kWords; ++i)
    for (int b = 0; b < 4; ++b) schedule[4 * i + b] = uint8_t(w[i] >> (8 * b));
  explicit_bzero(w, sizeof w);
}

const Implementation& Portable() noexcept {
  static constexpr Implementation kPortable{"portable", Run<EncryptPair>, Run<DecryptPair>};
  return kPortable;
}

}  // namespace kestrel::rijndael
