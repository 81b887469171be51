// Numeric text as the conversions read it: arbitrary UTF-16 through
// ParseNumber, Val, IsNumeric and the converting functions. Checks that
// nothing crashes, that the strict parser and the conversions agree, and
// that a parsed number printed and parsed again keeps its value to the 15
// digits the text form holds.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/convert.hpp"

using namespace kestrel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::u16string text(size / 2, u'\0');
  std::memcpy(text.data(), data, text.size() * 2);
  Value value(text);

  std::optional<double> parsed = runtime::ParseNumber(text);
  if (runtime::IsNumeric(value) != parsed.has_value()) std::abort();
  (void)runtime::Val(text);
  try {
    double d = runtime::ToDouble(value);
    if (!parsed || (d != *parsed && !(std::isnan(d) && std::isnan(*parsed)))) std::abort();
  } catch (const RuntimeError& e) {
    if (parsed && e.number() != errors::kOverflow) std::abort();
  }
  if (parsed && std::isfinite(*parsed)) {
    std::u16string printed = runtime::DoubleToText(*parsed);
    std::optional<double> again = runtime::ParseNumber(printed);
    if (!again) std::abort();
    double scale = std::max(std::fabs(*parsed), 1e-300);
    if (std::fabs(*again - *parsed) / scale > 1e-14) std::abort();
  }
  try {
    (void)runtime::ToLong(value);
  } catch (const RuntimeError& e) {
    if (e.number() != errors::kTypeMismatch && e.number() != errors::kOverflow) std::abort();
  }
  return 0;
}
