// Utilities: substitution of absent values, comparison, rounding and the
// control-state walk.
//
// Members reach each other through Shared(), the calling thread's instance,
// exactly as a client would, so the chain of calls (TestValue -> Equals ->
// ArrayEquals) is the same from C++ and from late binding.

#include <cmath>
#include <exception>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/arithmetic.hpp"
#include "kestrel/runtime/compare.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dispatch.hpp"
#include "kestrel/utilities/utilities.hpp"

namespace kestrel {

Value Utilities::Nz(const Value& value, const Value& value_if_null) {
  return value.IsNull() ? value_if_null : value;
}

Value Utilities::Ez(const Value& value, const Value& value_if_empty) {
  return value.IsEmpty() ? value_if_empty : value;
}

Value Utilities::Mz(const Value& value, const Value& value_if_missing) {
  return value.IsMissing() ? value_if_missing : value;
}

Value Utilities::NEMz(const Value& value, const Value& value_if_null_or_empty_or_missing) {
  return Shared().NEM(value) ? value_if_null_or_empty_or_missing : value;
}

bool Utilities::NEM(const Value& value) {
  return value.IsNull() || value.IsEmpty() || value.IsMissing();
}

// The second argument is checked first, so Max(Null, Null) is the first
// argument; a tie goes to the second. Comparison errors reach the caller.
Value Utilities::Max(const Value& value1, const Value& value2) {
  if (Shared().NEM(value2)) return value1;
  if (Shared().NEM(value1)) return value2;
  return runtime::Compare(value1, value2) == Ordering::kGreater ? value1 : value2;
}

Value Utilities::Min(const Value& value1, const Value& value2) {
  if (Shared().NEM(value2)) return value1;
  if (Shared().NEM(value1)) return value2;
  return runtime::Compare(value1, value2) == Ordering::kLess ? value1 : value2;
}

bool Utilities::Equals(const Value& x, const Value& y, CompareMethod compare) {
  try {
    if (x.IsNull() && y.IsNull()) return true;
    if (x.IsEmpty() && y.IsEmpty()) return true;
    // One side Null or Empty and the other not: never equal, so Empty is
    // not 0 or "" here as it is in an ordinary comparison.
    if (x.IsNull() || y.IsNull() || x.IsEmpty() || y.IsEmpty()) return false;
    if (x.IsString() && y.IsString()) {
      return runtime::StrComp(x.string(), y.string(), compare) == 0;
    }
    if (!x.IsArray() && !y.IsArray()) return runtime::IsEqual(x, y);
    if (x.IsArray() && y.IsArray()) return Shared().ArrayEquals(x, y, compare);
    return false;
  } catch (const std::exception&) {
    // Incomparable kinds (objects, error codes) and anything else: not equal.
    return false;
  }
}

// x - Int(x) rather than a truncation, so negative numbers give the distance
// up from the floor: -1.25 gives 0.75.
Value Utilities::FractionalPart(const Value& x) {
  return runtime::Subtract(x, runtime::Int(x));
}

double Utilities::Round(Value value, int32_t decimals) {
  // The factor goes through a Long: 10 or more decimals overflow (6), and a
  // negative count rounds the factor to 0, which makes the division below
  // 0 / 0 (6 as well).
  const int32_t factor = runtime::ToLong(runtime::Power(Value(int16_t{10}), Value(decimals)));
  const double number = runtime::ToDouble(value);
  const double sign = number > 0 ? 1.0 : (number < 0 ? -1.0 : 0.0);
  const double scaled = std::floor(std::fabs(number) * factor + 0.5);
  if (factor == 0 || !std::isfinite(scaled)) RaiseStandard(errors::kOverflow);
  return sign * scaled / factor;
}

Value Utilities::ValueOrMissing(const Value& test_value, const Value& missing_value) {
  // The second argument comes back itself (not the Missing marker) when the
  // two compare equal.
  return runtime::IsEqual(test_value, missing_value) ? missing_value : test_value;
}

Value Utilities::GetValue(const Value& value) {
  return value;
}

Value Utilities::MissingValue() {
  return Shared().GetValue();
}

Value Utilities::Increment(Value& value, const Value& increment_by) {
  value = runtime::Add(value, increment_by);
  return value;
}

Value Utilities::TestValue(const Value& value, const Value& compare_to,
                           const Value& value_when_equals_compare_to) {
  return Shared().Equals(value, compare_to, CompareMethod::kBinary) ? value_when_equals_compare_to
                                                                    : value;
}

namespace {

// Reads `property` of the control and of each Parent in turn while it is
// True, stopping after the Parent that is `loop_untill` (which is never read
// itself). Any failure ends the walk with the last value read.
bool WalkParents(const Value& control, const Value& loop_untill, std::u16string_view property) {
  bool result = false;
  try {
    Value current = control;
    for (;;) {
      result = runtime::ToBoolean(CallByName(current, property, CallKind::kGet));
      current = CallByName(current, u"Parent", CallKind::kGet);
      if (!result || runtime::IsSameObject(current, loop_untill)) break;
    }
  } catch (const std::exception&) {
    // The top of the chain has no Parent (or no such property): done.
  }
  return result;
}

}  // namespace

bool Utilities::IsControlVisible(const Value& control, const Value& loop_untill) {
  return WalkParents(control, loop_untill, u"Visible");
}

bool Utilities::IsControlEnabled(const Value& control, const Value& loop_untill) {
  return WalkParents(control, loop_untill, u"Enabled");
}

std::u16string Utilities::GetWindowsVersionString() {
  return utilities::detail::OsVersionString();
}

}  // namespace kestrel
