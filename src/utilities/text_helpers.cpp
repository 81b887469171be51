// Utilities: hexadecimal, byte array and date conversions, escaping of
// control characters, delimited lists, joining and filling strings, and the
// MD5 of a text.
//
// Character codes are Windows-1252 codes (Asc / Chr), so a character outside
// the code page reads as "?". Several members keep quirks clients rely on:
// String2ByteArray grows the caller's text by a NUL, StringAsHex does not
// pad, ByteArrayDec2Hex reads hex digits as decimal ones, String2Date turns
// a malformed half into 0 rather than failing.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "kestrel/formats/md5_hash.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/compare.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dates.hpp"
#include "kestrel/runtime/encoding.hpp"
#include "kestrel/runtime/strings.hpp"
#include "kestrel/utilities/utilities.hpp"

namespace kestrel {
namespace {

constexpr int32_t kMaxInteger = 32767;

// Positions and counts held in 16-bit variables overflow past 32767.
int16_t CheckedInteger(int32_t n) {
  if (n > kMaxInteger || n < -32768) RaiseStandard(errors::kOverflow);
  return static_cast<int16_t>(n);
}

int32_t CharCode(char16_t unit) {
  return runtime::Asc(std::u16string_view(&unit, 1));
}

std::u16string HexText(int32_t code) {
  return runtime::ToText(runtime::Hex(Value(code)));
}

// A text part of String2Date: numeric as the runtime reads numbers.
bool AllNumeric(const Value& parts) {
  for (size_t k = 0; k < parts.ElementCount(); ++k) {
    if (!runtime::IsNumeric(parts.ElementAt(k))) return false;
  }
  return true;
}

}  // namespace

// --- hexadecimal ------------------------------------------------------------

int16_t Utilities::HexToNumber(std::u16string_view i) {
  if (i.size() != 1) return 0;
  const char16_t c = i[0];
  if (c >= u'0' && c <= u'9') return static_cast<int16_t>(c - u'0');
  if (c >= u'A' && c <= u'F') return static_cast<int16_t>(c - u'A' + 10);
  if (c >= u'a' && c <= u'f') return static_cast<int16_t>(c - u'a' + 10);
  return 0;
}

std::u16string Utilities::HexToDec(std::u16string_view bin_val) {
  const int16_t length = CheckedInteger(static_cast<int32_t>(
      bin_val.size() > size_t{kMaxInteger} ? kMaxInteger + 1 : bin_val.size()));
  double total = 0;
  double weight = 1;
  for (int32_t i = 0; i < length; ++i) {
    // 16^i and the sum overflow a Double from 256 digits on, as the
    // runtime's arithmetic reports: 6.
    if (i > 0) weight *= 16;
    total += Shared().HexToNumber(bin_val.substr(length - 1 - i, 1)) * weight;
    if (!std::isfinite(weight) || !std::isfinite(total)) RaiseStandard(errors::kOverflow);
  }
  return runtime::DoubleToText(total);
}

std::u16string Utilities::StringAsHex(std::u16string_view value) {
  std::u16string out;
  for (char16_t unit : value) out += HexText(CharCode(unit));
  return out;
}

std::u16string Utilities::HexAsString(std::u16string_view value) {
  std::u16string out;
  const size_t pairs = value.size() / 2;
  for (size_t i = 0; i < pairs; ++i) {
    out += runtime::Chr(runtime::ToLong(Value(Shared().HexToDec(value.substr(2 * i, 2)))));
  }
  return out;
}

// --- byte arrays --------------------------------------------------------------

Value Utilities::String2ByteArray(std::u16string& value, int32_t base) {
  value.push_back(u'\0');
  const int64_t upper = int64_t{base} + static_cast<int64_t>(value.size()) - 1;
  if (upper > INT32_MAX) RaiseStandard(errors::kOverflow);
  Value bytes = Value::NewArray(Kind::kByte, {{base, static_cast<int32_t>(upper)}});
  std::span<uint8_t> out = bytes.MutableBytes();
  for (size_t j = 0; j < value.size(); ++j) {
    const int32_t code = CharCode(value[j]);
    if (code < 0 || code > 255) RaiseStandard(errors::kOverflow);
    out[j] = static_cast<uint8_t>(code);
  }
  return bytes;
}

std::u16string Utilities::ByteArray2String(const Value& value) {
  std::u16string out;
  try {
    if (!value.IsArray() || value.Dimensions() != 1) return out;
    const int32_t lower = value.LBound(1);
    const int32_t upper = value.UBound(1);
    for (int64_t i = lower; i <= upper; ++i) {
      try {
        out += runtime::Chr(runtime::ToLong(value.GetElement({static_cast<int32_t>(i)})));
      } catch (const RuntimeError&) {
        // An element that is not a character code is left out.
      }
    }
  } catch (const RuntimeError&) {
  }
  if (!out.empty()) out.pop_back();
  return out;
}

Value Utilities::ByteArrayDec2Hex(const Value& value) {
  if (value.code() != (kArrayFlag | uint16_t(Kind::kByte))) RaiseStandard(errors::kTypeMismatch);
  Value result = value;
  if (!result.IsAllocated()) return result;
  for (uint8_t& b : result.MutableBytes()) b = runtime::ToByte(Value(HexText(b)));
  return result;
}

// --- dates ----------------------------------------------------------------------

Value Utilities::String2Date(std::u16string_view value) {
  const Value halves = runtime::Split(value, u" ");
  if (halves.ElementCount() != 2) return Value::Null();
  double date = 0;
  const Value dmy = runtime::Split(halves.ElementAt(0).string(), u".");
  if (dmy.ElementCount() == 3 && AllNumeric(dmy)) {
    date = runtime::DateSerial(runtime::ToInteger(dmy.ElementAt(2)),
                               runtime::ToInteger(dmy.ElementAt(1)),
                               runtime::ToInteger(dmy.ElementAt(0)));
  }
  double time = 0;
  const Value hms = runtime::Split(halves.ElementAt(1).string(), u":");
  if (hms.ElementCount() == 3 && AllNumeric(hms)) {
    time = runtime::TimeSerial(runtime::ToInteger(hms.ElementAt(0)),
                               runtime::ToInteger(hms.ElementAt(1)),
                               runtime::ToInteger(hms.ElementAt(2)));
  }
  const double sum = date + time;
  if (sum < runtime::kMinDateSerial || sum > runtime::kMaxDateSerial) {
    RaiseStandard(errors::kOverflow);
  }
  return Value::Date(sum);
}

// --- escaping -------------------------------------------------------------------

std::u16string Utilities::ParseIn(std::u16string_view text) {
  const std::u16string doubled = runtime::Replace(text, u"/", u"//");
  std::u16string out;
  out.reserve(doubled.size());
  for (char16_t unit : doubled) {
    const int32_t code = CharCode(unit);
    if (code < 32) {
      out += u"/&";
      out += HexText(code);
      out += u'/';
    } else {
      out += unit;
    }
  }
  return out;
}

std::u16string Utilities::ParseOut(std::u16string_view text) {
  std::u16string out;
  const int32_t length = static_cast<int32_t>(text.size());
  int32_t i = 1;
  while (i <= length) {
    const char16_t unit = text[i - 1];
    if (unit != u'/') {
      out += unit;
      ++i;
      continue;
    }
    const int32_t next = runtime::InStr(i + 1, text, u"/");
    if (next == i + 1) {
      out += u'/';
      i += 2;
      continue;
    }
    // No closing "/" makes the code's length negative: Mid raises 5.
    const std::u16string code = runtime::Mid(text, i + 2, next - i - 2);
    out += runtime::Chr(runtime::ToLong(Value(u"&H" + code)));
    i = next + 1;
  }
  return out;
}

// --- lists ------------------------------------------------------------------------

std::u16string Utilities::ListMember(std::u16string_view list, int16_t member_number,
                                     std::u16string_view delimiter) {
  if (list.empty()) return {};
  if (member_number < 1) RaiseStandard(errors::kInvalidProcedureCall);
  const int32_t step = static_cast<int32_t>(delimiter.size());
  int32_t start = 1;
  for (int32_t k = 1;; ++k) {
    // InStr(start, list, delimiter) in binary mode, written inline: a walk
    // over a list calls this once per member it passes.
    const size_t at = list.find(delimiter, size_t(start - 1));
    const int32_t found =
        at == std::u16string_view::npos ? 0 : CheckedInteger(int32_t(std::min<size_t>(at, 65535)) + 1);
    if (k == member_number) {
      const size_t from = size_t(start - 1);
      return runtime::Trim(found == 0 ? list.substr(from) : list.substr(from, size_t(found - start)));
    }
    if (found == 0) return {};
    start = CheckedInteger(found + step);
  }
}

int32_t Utilities::ListMemberCount(std::u16string_view list, std::u16string_view delimiter) {
  if (runtime::Trim(list).empty()) return 0;
  return int32_t{Shared().CountSubstring(list, delimiter)} + 1;
}

bool Utilities::IsListMember(std::u16string_view list, std::u16string& member,
                             std::u16string_view delimiter, CompareMethod compare) {
  member = runtime::Trim(member);
  size_t start = 0;
  for (;;) {
    const size_t found =
        delimiter.empty() ? std::u16string_view::npos : list.find(delimiter, start);
    const std::u16string_view piece = list.substr(
        start, found == std::u16string_view::npos ? std::u16string_view::npos : found - start);
    if (runtime::StrComp(runtime::Trim(piece), member, compare) == 0) return true;
    if (found == std::u16string_view::npos) return false;
    start = found + delimiter.size();
  }
}

int16_t Utilities::CountSubstring(std::u16string_view string1, std::u16string_view string2) {
  int32_t count = 0;
  const int32_t length = static_cast<int32_t>(string1.size());
  int32_t start = 1;
  while (start <= length) {
    const int32_t found = runtime::InStr(start, string1, string2);
    if (found == 0) break;
    count = CheckedInteger(count + 1);
    start = found + 1;
  }
  return static_cast<int16_t>(count);
}

std::u16string Utilities::SortList(std::u16string_view list, std::u16string_view delimiter) {
  Value pieces = runtime::Split(list, delimiter);
  Shared().QuickSort(pieces);
  return Shared().MakeList(pieces, delimiter);
}

std::u16string Utilities::MakeList(const Value& values, std::u16string_view delimiter) {
  if (!values.IsArray()) return runtime::ToText(values);
  std::u16string out;
  const size_t count = values.ElementCount();
  for (size_t k = 0; k < count; ++k) {
    const Value element = values.ElementAt(k);
    out += delimiter;
    if (!element.IsNull()) out += runtime::ToText(element);
  }
  return out.substr(std::min(out.size(), delimiter.size()));
}

// --- joining and filling ------------------------------------------------------------

std::u16string Utilities::ConcatenateSeparator(std::u16string_view separator, bool trim,
                                               const Value& value) {
  if (value.code() != (kArrayFlag | uint16_t(Kind::kVariant))) {
    RaiseStandard(errors::kTypeMismatch);
  }
  std::u16string out;
  bool first = true;
  const int32_t upper = value.UBound(1);
  for (int32_t i = 0; i <= upper && i >= 0; ++i) {
    std::u16string text = runtime::ToText(value.GetElement({i}));
    if (trim) text = runtime::Trim(text);
    if (text.empty()) continue;
    if (!first) out += separator;
    out += text;
    first = false;
  }
  return out;
}

std::u16string Utilities::Concatenate(const Value& value) {
  return Shared().ConcatenateSeparator(u" ", true, value);
}

std::u16string Utilities::BuildString(const Value& pattern, std::span<const Value> values) {
  std::u16string out = runtime::ToText(pattern);
  for (size_t k = 0; k < values.size(); ++k) {
    // Built by appending: GCC 12 misreads `u"{" + text + u"}"` at -O3 as an
    // overlapping copy (-Wrestrict).
    std::u16string placeholder(u"{");
    placeholder.append(runtime::DoubleToText(double(k))).append(u"}");
    out = runtime::Replace(out, placeholder, runtime::ToText(values[k]));
  }
  return out;
}

std::u16string Utilities::BuildString2(const Value& pattern, std::span<const Value> values) {
  std::u16string out = runtime::ToText(pattern);
  std::u16string name;
  std::u16string replacement;
  for (const Value& element : values) {
    const std::u16string text = runtime::ToText(element);
    const int32_t equals = runtime::InStr(1, text, u"=", CompareMethod::kText);
    if (equals > 0) {
      name = runtime::Left(text, equals - 1);
      replacement = runtime::Mid(text, equals + 1);
    }
    out = runtime::Replace(out, name, replacement);
  }
  return out;
}

// --- other ---------------------------------------------------------------------------

bool Utilities::StartsWith(const Value& value, const Value& source, bool ignore_case,
                           bool trim_value) {
  std::u16string text = runtime::ToText(value);
  std::u16string prefix = runtime::ToText(source);
  if (trim_value) text = runtime::Trim(text);
  if (ignore_case) {
    text = runtime::UCase(text);
    prefix = runtime::UCase(prefix);
  }
  return runtime::Left(text, static_cast<int32_t>(prefix.size())) == prefix;
}

std::u16string Utilities::CleanupString(std::u16string_view value) {
  std::u16string kept;
  kept.reserve(value.size());
  for (char16_t unit : value) {
    if (CharCode(unit) != 0) kept += unit;
  }
  return runtime::Trim(kept);
}

std::u16string Utilities::MD5(std::u16string_view text) {
  if (text.empty()) return {};
  const std::string bytes = runtime::ToAnsi(text);
  MD5Hash hash;
  return runtime::LCase(hash.HashBytes(
      std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size())));
}

}  // namespace kestrel
