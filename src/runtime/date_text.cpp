// Date text: reading dates the way the conversions do, and Format.
#include <optional>
#include <string>
#include <string_view>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dates.hpp"

namespace kestrel::runtime {

std::optional<double> ParseDate(std::u16string_view) { return std::nullopt; }

double ToDate(const Value&) { RaiseStandard(errors::kInvalidProcedureCall); }

bool IsDate(const Value& value) { return value.kind() == Kind::kDate; }

std::u16string Format(const Value& value, std::u16string_view) {
  if (value.IsNull()) return {};
  return ToText(value);
}

}  // namespace kestrel::runtime
