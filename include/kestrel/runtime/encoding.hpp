// The ANSI code page: Windows-1252, fixed, whatever the process locale.
//
// Text handed to "native" interfaces and 8-bit files goes through these.
// Characters outside the code page become "?". The five bytes that
// Windows-1252 leaves undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D) map to and
// from the control characters of the same number, so every byte survives
// a round trip.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"

namespace kestrel::runtime {

KESTREL_API std::string ToAnsi(std::u16string_view text);
KESTREL_API std::u16string FromAnsi(std::string_view bytes);
// FromAnsi into a caller's buffer of at least bytes.size() units, for
// readers that decode a large file chunk by chunk.
KESTREL_API void DecodeAnsi(std::string_view bytes, char16_t* out) noexcept;

// One character: its byte, or nullopt when the code page lacks it.
KESTREL_API std::optional<uint8_t> AnsiByte(char16_t unit) noexcept;
KESTREL_API char16_t AnsiChar(uint8_t byte) noexcept;

}  // namespace kestrel::runtime
