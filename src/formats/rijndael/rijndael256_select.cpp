// Chooses the Rijndael-256 implementation once per process from the CPU's
// features. Kept apart from the AES-NI file: code here must run on any CPU.
#include <cstdlib>
#include <cstring>

#include "rijndael256.hpp"

namespace kestrel::rijndael {

#if defined(__x86_64__)
extern const Implementation kAesNi;
#endif

const Implementation* AesNi() noexcept {
#if defined(__x86_64__)
  static const bool present = __builtin_cpu_supports("aes") && __builtin_cpu_supports("ssse3") &&
                              __builtin_cpu_supports("sse4.1");
  return present ? &kAesNi : nullptr;
#else
  return nullptr;
#endif
}

const Implementation& Selected() noexcept {
  static const Implementation& chosen = []() -> const Implementation& {
    const char* force = std::getenv("KESTREL_CRYPTO_PORTABLE");
    const bool portable = force != nullptr && std::strcmp(force, "1") == 0;
    const Implementation* fast = AesNi();
    return portable || fast == nullptr ? Portable() : *fast;
  }();
  return chosen;
}

}  // namespace kestrel::rijndael
