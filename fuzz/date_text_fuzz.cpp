// Date text and Format patterns: arbitrary UTF-16 read by ParseDate and used
// as a Format pattern. Checks that nothing crashes, that ParseDate, ToDate
// and IsDate agree, that an accepted date lies in the Date range, and that
// its default text form reads back as the same moment to the second.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dates.hpp"
#include "kestrel/runtime/format.hpp"

using namespace kestrel;

namespace {

// Two-field dates read the current year; a fixed clock keeps runs repeatable.
double FixedClock() {
  return 46000.25;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool clock_set = (runtime::SetClockSource(FixedClock), true);
  (void)clock_set;
  std::u16string text(size / 2, u'\0');
  std::memcpy(text.data(), data, text.size() * 2);
  const Value value(text);

  const std::optional<double> parsed = runtime::ParseDate(text);
  if (runtime::IsDate(value) != parsed.has_value()) std::abort();
  try {
    const double serial = runtime::ToDate(value);
    if (!parsed || serial != *parsed) std::abort();
  } catch (const RuntimeError& e) {
    if (parsed || e.number() != errors::kTypeMismatch) std::abort();
  }
  if (parsed) {
    if (!(*parsed > -657435.0 && *parsed < 2958466.0)) std::abort();
    const std::optional<double> again = runtime::ParseDate(runtime::DateToText(*parsed));
    if (!again || std::fabs(*again - *parsed) * 86400.0 >= 0.5) std::abort();
  }

  // The same text as a pattern, for a date and for a number: never raises.
  (void)runtime::Format(Value::Date(45356.58876), text);
  (void)runtime::Format(Value(-1234.5678), text);
  return 0;
}
