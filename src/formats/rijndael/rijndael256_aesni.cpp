// Rijndael-256 on the AES instructions (x86-64 with AES-NI, SSSE3, SSE4.1).
//
// A block is two 128-bit halves, columns 0-3 and 4-7, laid out as AES lays
// out its state. One Rijndael-256 round is one AES round on each half, once
// the bytes are moved so that AES's own row shift (offsets 1, 2, 3 within a
// half) lands them where Rijndael-256's offsets 1, 3, 4 across the whole
// block would: the bytes a row needs from the other half are swapped in
// (pblendvb), then rows 2 and 3 are turned by one column within each half
// (pshufb). Decryption mirrors this for AES's
// inverse row shift and runs the equivalent inverse cipher, with the middle
// round keys passed through the inverse column mixing (aesimc). The key
// schedule uses aeskeygenassist. Four blocks are kept in flight, since the
// blocks are independent. This file is compiled with -maes -mssse3 -msse4.1
// and only called after the CPU was found to have them.
#if defined(__x86_64__)

#include <immintrin.h>
#include <string.h>

#include "rijndael256.hpp"

namespace kestrel::rijndael {
namespace {

struct Schedule {
  __m128i k[kRounds + 1][2];
};

// --- key schedule -------------------------------------------------------------

// The next four words after a RotWord/SubWord/Rcon step (i mod 8 == 0).
template <int kRcon>
inline __m128i NextWithRcon(__m128i previous8, __m128i last4) noexcept {
  __m128i t = _mm_shuffle_epi32(_mm_aeskeygenassist_si128(last4, kRcon), 0xFF);
  previous8 = _mm_xor_si128(previous8, _mm_slli_si128(previous8, 4));
  previous8 = _mm_xor_si128(previous8, _mm_slli_si128(previous8, 8));
  return _mm_xor_si128(previous8, t);
}

// The next four words after a SubWord-only step (i mod 8 == 4).
inline __m128i NextWithSubWord(__m128i previous8, __m128i last4) noexcept {
  __m128i t = _mm_shuffle_epi32(_mm_aeskeygenassist_si128(last4, 0), 0xAA);
  previous8 = _mm_xor_si128(previous8, _mm_slli_si128(previous8, 4));
  previous8 = _mm_xor_si128(previous8, _mm_slli_si128(previous8, 8));
  return _mm_xor_si128(previous8, t);
}

// Words 8i .. 8i + 7 of the schedule are round key i, so the schedule is
// the AES-256 expansion carried on to 120 words.
template <int kRcon>
inline void Step(__m128i* w, int i) noexcept {
  w[i] = NextWithRcon<kRcon>(w[i - 2], w[i - 1]);
  w[i + 1] = NextWithSubWord(w[i - 1], w[i]);
}

void Expand(const uint8_t* key, Schedule& s) noexcept {
  __m128i* w = &s.k[0][0];
  w[0] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(key));
  w[1] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(key + 16));
  Step<0x01>(w, 2);
  Step<0x02>(w, 4);
  Step<0x04>(w, 6);
  Step<0x08>(w, 8);
  Step<0x10>(w, 10);
  Step<0x20>(w, 12);
  Step<0x40>(w, 14);
  Step<0x80>(w, 16);
  Step<0x1B>(w, 18);
  Step<0x36>(w, 20);
  Step<0x6C>(w, 22);
  Step<0xD8>(w, 24);
  Step<0xAB>(w, 26);
  Step<0x4D>(w, 28);
}

// --- rounds -------------------------------------------------------------------

// Encryption. After AES's shift, half h must hold columns 4h + c + offset of
// the whole block: row 1 takes column 0 from the other half, row 2 columns
// 0 to 2, row 3 all four; then rows 2 and 3 take the next column.
inline void PrepareEncrypt(__m128i& a, __m128i& b) noexcept {
  const __m128i mask =
      _mm_setr_epi8(0, -128, -128, -128, 0, 0, -128, -128, 0, 0, -128, -128, 0, 0, 0, -128);
  const __m128i order = _mm_setr_epi8(0, 1, 6, 7, 4, 5, 10, 11, 8, 9, 14, 15, 12, 13, 2, 3);
  const __m128i x = _mm_blendv_epi8(a, b, mask);
  const __m128i y = _mm_blendv_epi8(b, a, mask);
  a = _mm_shuffle_epi8(x, order);
  b = _mm_shuffle_epi8(y, order);
}

// Decryption, the mirror image: row 1 takes column 3 from the other half,
// row 2 columns 1 to 3, row 3 all four; then rows 2 and 3 take the previous
// column.
inline void PrepareDecrypt(__m128i& a, __m128i& b) noexcept {
  const __m128i mask =
      _mm_setr_epi8(0, 0, 0, -128, 0, 0, -128, -128, 0, 0, -128, -128, 0, -128, -128, -128);
  const __m128i order = _mm_setr_epi8(0, 1, 14, 15, 4, 5, 2, 3, 8, 9, 6, 7, 12, 13, 10, 11);
  const __m128i x = _mm_blendv_epi8(a, b, mask);
  const __m128i y = _mm_blendv_epi8(b, a, mask);
  a = _mm_shuffle_epi8(x, order);
  b = _mm_shuffle_epi8(y, order);
}

template <int kLanes>
inline void EncryptLanes(const Schedule& s, const uint8_t* in, uint8_t* out) noexcept {
  __m128i a[kLanes], b[kLanes];
  for (int l = 0; l < kLanes; ++l) {
    a[l] = _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 32 * l)), s.k[0][0]);
    b[l] = _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 32 * l + 16)),
                         s.k[0][1]);
  }
  for (int r = 1; r < kRounds; ++r) {
    for (int l = 0; l < kLanes; ++l) {
      PrepareEncrypt(a[l], b[l]);
      a[l] = _mm_aesenc_si128(a[l], s.k[r][0]);
      b[l] = _mm_aesenc_si128(b[l], s.k[r][1]);
    }
  }
  for (int l = 0; l < kLanes; ++l) {
    PrepareEncrypt(a[l], b[l]);
    a[l] = _mm_aesenclast_si128(a[l], s.k[kRounds][0]);
    b[l] = _mm_aesenclast_si128(b[l], s.k[kRounds][1]);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 32 * l), a[l]);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 32 * l + 16), b[l]);
  }
}

// `s` holds the decryption keys: round keys 1 .. 13 through aesimc.
template <int kLanes>
inline void DecryptLanes(const Schedule& s, const uint8_t* in, uint8_t* out) noexcept {
  __m128i a[kLanes], b[kLanes];
  for (int l = 0; l < kLanes; ++l) {
    a[l] = _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 32 * l)),
                         s.k[kRounds][0]);
    b[l] = _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 32 * l + 16)),
                         s.k[kRounds][1]);
  }
  for (int r = kRounds - 1; r >= 1; --r) {
    for (int l = 0; l < kLanes; ++l) {
      PrepareDecrypt(a[l], b[l]);
      a[l] = _mm_aesdec_si128(a[l], s.k[r][0]);
      b[l] = _mm_aesdec_si128(b[l], s.k[r][1]);
    }
  }
  for (int l = 0; l < kLanes; ++l) {
    PrepareDecrypt(a[l], b[l]);
    a[l] = _mm_aesdeclast_si128(a[l], s.k[0][0]);
    b[l] = _mm_aesdeclast_si128(b[l], s.k[0][1]);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 32 * l), a[l]);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 32 * l + 16), b[l]);
  }
}

constexpr size_t kInFlight = 4;

void Encrypt(const uint8_t* key, const uint8_t* in, uint8_t* out, size_t blocks) {
  Schedule s;
  Expand(key, s);
  size_t i = 0;
  for (; i + kInFlight <= blocks; i += kInFlight)
    EncryptLanes<kInFlight>(s, in + kBlockBytes * i, out + kBlockBytes * i);
  for (; i < blocks; ++i) EncryptLanes<1>(s, in + kBlockBytes * i, out + kBlockBytes * i);
  explicit_bzero(&s, sizeof s);
}

void Decrypt(const uint8_t* key, const uint8_t* in, uint8_t* out, size_t blocks) {
  Schedule s;
  Expand(key, s);
  for (int r = 1; r < kRounds; ++r) {
    s.k[r][0] = _mm_aesimc_si128(s.k[r][0]);
    s.k[r][1] = _mm_aesimc_si128(s.k[r][1]);
  }
  size_t i = 0;
  for (; i + kInFlight <= blocks; i += kInFlight)
    DecryptLanes<kInFlight>(s, in + kBlockBytes * i, out + kBlockBytes * i);
  for (; i < blocks; ++i) DecryptLanes<1>(s, in + kBlockBytes * i, out + kBlockBytes * i);
  explicit_bzero(&s, sizeof s);
}

}  // namespace

// Defined here, checked by the caller: see Selected.
extern const Implementation kAesNi;
const Implementation kAesNi{"aesni", Encrypt, Decrypt};

}  // namespace kestrel::rijndael

#endif
