// The control-character escaping: arbitrary UTF-16 through ParseOut, which
// may fail only with its documented errors (5 for an unclosed or out-of-range
// escape, 6 for an oversized code, 13 for one that is not hex), and through
// ParseIn then ParseOut, which must give back exactly the text: ParseIn
// escapes every "/" and every code below 32, and ParseOut is its inverse.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kestrel/frame/errors.hpp"
#include "kestrel/utilities/utilities.hpp"

using namespace kestrel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::u16string text(size / 2, u'\0');
  if (!text.empty()) std::memcpy(text.data(), data, text.size() * 2);

  try {
    (void)utilities::ParseOut(text);
  } catch (const RuntimeError& e) {
    if (e.number() != errors::kInvalidProcedureCall && e.number() != errors::kOverflow &&
        e.number() != errors::kTypeMismatch) {
      std::abort();
    }
  }

  const std::u16string escaped = utilities::ParseIn(text);
  for (char16_t unit : escaped) {
    if (unit < 32) std::abort();
  }
  if (utilities::ParseOut(escaped) != text) std::abort();
  return 0;
}
