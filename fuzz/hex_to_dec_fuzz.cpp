// HexToDec on arbitrary UTF-16: nothing crashes; the only failure is the
// overflow (6) of a text of 256 characters or more (16^256 is beyond a
// Double, and beyond 32767 the length itself overflows); a result is a decimal
// number text (digits, or the Double exponent form for large values) whose
// value is the sum of the hex digits' weights; HexAsString never fails on
// the same text.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/utilities/utilities.hpp"

using namespace kestrel;

namespace {

int Digit(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  return 0;
}

// Plain digits, or d[.ddd]E+dd for values of 1E+15 and more.
bool IsDecimalText(const std::u16string& s) {
  if (s.empty()) return false;
  size_t i = 0;
  bool seen_e = false;
  for (; i < s.size(); ++i) {
    char16_t c = s[i];
    if (c >= u'0' && c <= u'9') continue;
    if (c == u'.' && !seen_e && i == 1) continue;
    if (c == u'E' && !seen_e && i + 2 < s.size() && s[i + 1] == u'+') {
      seen_e = true;
      ++i;
      continue;
    }
    return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::u16string text(size / 2, u'\0');
  if (!text.empty()) std::memcpy(text.data(), data, text.size() * 2);

  std::u16string result;
  try {
    result = utilities::HexToDec(text);
  } catch (const RuntimeError& e) {
    if (e.number() != errors::kOverflow || text.size() < 256) std::abort();
    return 0;
  }
  if (!IsDecimalText(result)) std::abort();
  double expected = 0;
  for (char16_t c : text) expected = expected * 16 + Digit(c);
  std::optional<double> got = runtime::ParseNumber(result);
  if (!got) std::abort();
  if (std::isfinite(expected)) {
    double scale = std::max(expected, 1.0);
    if (std::fabs(*got - expected) / scale > 1e-13) std::abort();
  }
  (void)utilities::HexAsString(text);
  return 0;
}
