// String2Date on arbitrary UTF-16: nothing crashes, failures are only the
// runtime's date and number errors (5 for a date outside the calendar, 6 for
// a part or a sum that overflows), and a Date result lies in the Date range.
// Exactly two space-separated parts are needed for anything but Null.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/dates.hpp"
#include "kestrel/utilities/utilities.hpp"

using namespace kestrel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::u16string text(size / 2, u'\0');
  if (!text.empty()) std::memcpy(text.data(), data, text.size() * 2);

  size_t spaces = 0;
  for (char16_t unit : text) spaces += unit == u' ';
  try {
    Value result = utilities::String2Date(text);
    if (result.IsNull()) {
      if (spaces == 1) std::abort();
      return 0;
    }
    if (spaces != 1 || result.kind() != Kind::kDate || result.IsArray()) std::abort();
    if (!(result.date() >= runtime::kMinDateSerial && result.date() <= runtime::kMaxDateSerial)) {
      std::abort();
    }
  } catch (const RuntimeError& e) {
    if (spaces != 1) std::abort();
    if (e.number() != errors::kInvalidProcedureCall && e.number() != errors::kOverflow) {
      std::abort();
    }
  }
  return 0;
}
