// UTF-8 at the boundary: any bytes decode without crashing, and what they
// decode to encodes and decodes again to the same UTF-16.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "kestrel/frame/unicode.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  std::u16string decoded = kestrel::FromUtf8(bytes);
  std::string encoded = kestrel::ToUtf8(decoded);
  if (kestrel::FromUtf8(encoded) != decoded) std::abort();
  // Valid input survives byte for byte.
  if (decoded.find(u'\uFFFD') == std::u16string::npos && encoded != bytes) std::abort();
  return 0;
}
