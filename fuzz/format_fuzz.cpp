// Format patterns: any value kind with any UTF-16 pattern, and the companion
// functions on the same value. The first byte picks the value's kind, the
// next bytes its payload, one more byte the week settings and the
// companions' arguments; the rest is the pattern. Nothing may crash, hang or
// throw anything but the runtime's errors 5, 6 and 13, and values the
// runtime can always format (in-range numbers and dates, Empty, Null,
// Booleans) never raise.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/format.hpp"

using namespace kestrel;

namespace {

struct Input {
  const uint8_t* data;
  size_t size;

  template <class T>
  T Take() {
    T value{};
    const size_t n = size < sizeof(T) ? size : sizeof(T);
    std::memcpy(&value, data, n);
    data += n;
    size -= n;
    return value;
  }
  std::u16string TakeText(size_t units) {
    units = units < size / 2 ? units : size / 2;
    std::u16string text(units, u'\0');
    std::memcpy(text.data(), data, units * 2);
    data += units * 2;
    size -= units * 2;
    return text;
  }
};

// Numbers in the Date range format with every kind of pattern.
bool InDateRange(double d) {
  return d > -657434.0 && d < 2958465.0;
}

// The value, and whether every pattern must format it without an error.
Value MakeValue(Input& in, bool& always_formats) {
  always_formats = false;
  switch (in.Take<uint8_t>() % 13) {
    case 0: {
      const double d = in.Take<double>();
      always_formats = InDateRange(d);
      return Value(d);
    }
    case 1:
      return Value(in.Take<int32_t>());
    case 2:
      return Value(in.TakeText(in.Take<uint8_t>() % 24));
    case 3: {
      const double serial = in.Take<double>();
      always_formats = InDateRange(serial);
      return Value::Date(serial);
    }
    case 4:
      always_formats = true;
      return Value::Null();
    case 5:
      always_formats = true;
      return Value();
    case 6:
      always_formats = true;
      return Value((in.Take<uint8_t>() & 1) != 0);
    case 7:
      return Value(in.Take<int16_t>());
    case 8:
      return Value(in.Take<int64_t>());
    case 9:
      return Value(in.Take<float>());
    case 10:
      return Value(in.Take<uint8_t>());
    case 11:
      return Value::VariantArray({Value(1.5)});
    default:
      return Value::Nothing();
  }
}

bool Allowed(int32_t number) {
  return number == errors::kInvalidProcedureCall || number == errors::kOverflow ||
         number == errors::kTypeMismatch;
}

template <class F>
void Check(F&& call, bool must_not_raise) {
  try {
    (void)call();
  } catch (const RuntimeError& e) {
    if (must_not_raise || !Allowed(e.number())) std::abort();
  } catch (...) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input in{data, size};
  bool always_formats = false;
  const Value value = MakeValue(in, always_formats);
  const auto settings = in.Take<uint8_t>();
  const int32_t first_day = settings % 8;          // 0..7, all valid
  const int32_t first_week = (settings >> 3) % 4;  // 0..3, all valid
  const std::u16string pattern = in.TakeText(in.size / 2);

  Check([&] { return runtime::Format(value, pattern, first_day, first_week); }, always_formats);

  // The companions take their arguments from the same settings byte.
  const int32_t digits = static_cast<int32_t>(settings % 20) - 1;
  const auto tristate = static_cast<runtime::Tristate>(static_cast<int32_t>(settings % 3) - 2);
  const bool number_ok = always_formats && !value.IsNull();
  Check([&] { return runtime::FormatNumber(value, digits, tristate, tristate, tristate); },
        number_ok);
  Check([&] { return runtime::FormatPercent(value, digits, tristate); }, number_ok);
  Check([&] { return runtime::FormatCurrency(value, digits, tristate, tristate); }, number_ok);
  Check([&] { return runtime::FormatDateTime(value, settings % 5); }, number_ok);
  return 0;
}
