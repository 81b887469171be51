#include "kestrel/runtime/convert.hpp"

#include <chrono>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>
#include <system_error>

#include "detail/significant_digits.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/dates.hpp"

namespace kestrel::runtime {

namespace {

// ---------------------------------------------------------------------------
// Text to number

enum class ParseStatus { kOk, kNotNumeric, kOverflow };

// A parsed number. Plain integer text is kept exact in `integer` so that
// LongLong conversions of 19-digit text do not lose digits through Double.
struct ParsedNumber {
  ParseStatus status = ParseStatus::kNotNumeric;
  bool exact = false;
  int64_t integer = 0;
  double value = 0;
};

// The blanks that may surround numeric text.
bool IsBlank(char16_t c) noexcept { return c == u' ' || c == u'\t' || (c >= 0x0A && c <= 0x0D); }
// The blanks Val skips wherever they appear.
bool IsValBlank(char16_t c) noexcept { return c == u' ' || c == u'\t' || c == u'\n'; }
bool IsDigit(char16_t c) noexcept { return c >= u'0' && c <= u'9'; }

int DigitValue(char16_t c, int base) noexcept {
  int d = -1;
  if (c >= u'0' && c <= u'9') d = c - u'0';
  else if (c >= u'A' && c <= u'F') d = c - u'A' + 10;
  else if (c >= u'a' && c <= u'f') d = c - u'a' + 10;
  return d < base ? d : -1;
}

// "&H" and "&O" literals take the width of the smallest integer that holds
// their bits: up to 16 bits are an Integer (so &HFFFF is -1), up to 32 bits a
// Long (&HFFFFFFFF is -1). Leading zeros do not widen a literal.
int64_t LiteralValue(uint64_t bits) noexcept {
  if (bits <= 0xFFFF) return static_cast<int16_t>(static_cast<uint16_t>(bits));
  return static_cast<int32_t>(static_cast<uint32_t>(bits));
}

// The decimal parts of a number, as ASCII digits without separators.
struct DecimalParts {
  bool negative = false;
  std::string_view int_digits;
  std::string_view frac_digits;
  bool exp_negative = false;
  std::string_view exp_digits;
};

// Converts decimal parts to a Double with correct rounding. Magnitudes past
// the Double range overflow; those below its smallest value become 0.
ParsedNumber ConvertDecimal(const DecimalParts& p) {
  ParsedNumber out;
  out.status = ParseStatus::kOk;

  if (p.frac_digits.empty() && p.exp_digits.empty() && p.int_digits.size() <= 19) {
    uint64_t magnitude = 0;
    for (char c : p.int_digits) magnitude = magnitude * 10 + static_cast<uint64_t>(c - '0');
    const uint64_t limit = p.negative ? uint64_t{1} << 63 : (uint64_t{1} << 63) - 1;
    if (magnitude <= limit) {
      out.exact = true;
      out.integer = p.negative ? static_cast<int64_t>(0 - magnitude)
                               : static_cast<int64_t>(magnitude);
      out.value = p.negative ? -static_cast<double>(magnitude) : static_cast<double>(magnitude);
      return out;
    }
  }

  // Assemble "-ddd.ddde-ddd" for from_chars, which is locale-independent.
  const size_t length = 4 + p.int_digits.size() + p.frac_digits.size() + p.exp_digits.size();
  char stack[128];
  std::string heap;
  char* buffer = stack;
  if (length > sizeof(stack)) {
    heap.resize(length);
    buffer = heap.data();
  }
  char* w = buffer;
  if (p.negative) *w++ = '-';
  if (p.int_digits.empty()) *w++ = '0';
  std::memcpy(w, p.int_digits.data(), p.int_digits.size());
  w += p.int_digits.size();
  if (!p.frac_digits.empty()) {
    *w++ = '.';
    std::memcpy(w, p.frac_digits.data(), p.frac_digits.size());
    w += p.frac_digits.size();
  }
  if (!p.exp_digits.empty()) {
    *w++ = 'e';
    if (p.exp_negative) *w++ = '-';
    std::memcpy(w, p.exp_digits.data(), p.exp_digits.size());
    w += p.exp_digits.size();
  }

  double value = 0;
  auto [end, ec] = std::from_chars(buffer, w, value, std::chars_format::general);
  if (ec == std::errc() && end == w && std::isfinite(value)) {
    out.value = value;
    return out;
  }

  // Out of range: decide between overflow and underflow from the decimal
  // magnitude, i.e. the position of the first significant digit.
  int64_t exponent = 0;
  for (char c : p.exp_digits) {
    exponent = exponent * 10 + (c - '0');
    if (exponent > 100000) break;  // far beyond either end of the range
  }
  if (p.exp_negative) exponent = -exponent;
  int64_t magnitude = 0;
  size_t first = p.int_digits.find_first_not_of('0');
  if (first != std::string_view::npos) {
    magnitude = static_cast<int64_t>(p.int_digits.size() - first) - 1 + exponent;
  } else {
    size_t frac_first = p.frac_digits.find_first_not_of('0');
    if (frac_first == std::string_view::npos) {  // all zeros
      out.value = p.negative ? -0.0 : 0.0;
      return out;
    }
    magnitude = -static_cast<int64_t>(frac_first) - 1 + exponent;
  }
  if (magnitude < 0) {
    out.value = p.negative ? -0.0 : 0.0;
    return out;
  }
  out.status = ParseStatus::kOverflow;
  return out;
}

// Collects the ASCII digits of text[i..) that satisfy `accept`, skipping
// `skip` characters between them, into `digits`. Returns the new position.
template <class Accept, class Skip>
size_t CollectDigits(std::u16string_view text, size_t i, std::string& digits, Accept accept,
                     Skip skip) {
  while (i < text.size()) {
    char16_t c = text[i];
    if (accept(c)) {
      digits.push_back(static_cast<char>(c));
    } else if (!skip(c)) {
      break;
    }
    ++i;
  }
  return i;
}

// Strict parse: the whole text, less surrounding blanks, must be a number.
ParsedNumber ParseText(std::u16string_view text) {
  ParsedNumber out;
  size_t i = 0;
  size_t n = text.size();
  while (i < n && IsBlank(text[i])) ++i;
  while (n > i && IsBlank(text[n - 1])) --n;
  if (i == n) return out;

  if (text[i] == u'&') {
    if (++i == n) return out;
    int base = 0;
    if (text[i] == u'H' || text[i] == u'h') base = 16;
    if (text[i] == u'O' || text[i] == u'o') base = 8;
    if (base == 0 || ++i == n) return out;
    uint64_t bits = 0;
    bool overflow = false;
    for (; i < n; ++i) {
      int d = DigitValue(text[i], base);
      if (d < 0) return out;
      bits = bits * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
      if (bits > 0xFFFFFFFFu) {
        overflow = true;
        bits = 0xFFFFFFFFu + 1;  // keep it from wrapping on longer text
      }
    }
    if (overflow) {
      out.status = ParseStatus::kOverflow;
      return out;
    }
    out.status = ParseStatus::kOk;
    out.exact = true;
    out.integer = LiteralValue(bits);
    out.value = static_cast<double>(out.integer);
    return out;
  }

  // Digits are ASCII, so the scan can copy them into one narrow buffer:
  // integer digits, then fraction digits, then exponent digits.
  std::string digits;
  digits.reserve(n - i);
  DecimalParts p;
  if (text[i] == u'+' || text[i] == u'-') {
    p.negative = text[i] == u'-';
    ++i;
  }
  // Group separators are allowed anywhere in the integer part once it has
  // started; their placement is not checked.
  size_t j = i;
  if (j < n && IsDigit(text[j])) {
    j = CollectDigits(text.substr(0, n), j, digits, IsDigit, [](char16_t c) { return c == u','; });
  }
  const size_t int_count = digits.size();
  size_t frac_count = 0;
  if (j < n && text[j] == u'.') {
    j = CollectDigits(text.substr(0, n), j + 1, digits, IsDigit, [](char16_t) { return false; });
    frac_count = digits.size() - int_count;
  }
  if (int_count + frac_count == 0) return out;
  size_t exp_count = 0;
  if (j < n && (text[j] == u'E' || text[j] == u'e' || text[j] == u'D' || text[j] == u'd')) {
    ++j;
    if (j < n && (text[j] == u'+' || text[j] == u'-')) {
      p.exp_negative = text[j] == u'-';
      ++j;
    }
    j = CollectDigits(text.substr(0, n), j, digits, IsDigit, [](char16_t) { return false; });
    exp_count = digits.size() - int_count - frac_count;
    if (exp_count == 0) return out;
  }
  if (j != n) return out;

  std::string_view all(digits);
  p.int_digits = all.substr(0, int_count);
  p.frac_digits = all.substr(int_count, frac_count);
  p.exp_digits = all.substr(int_count + frac_count, exp_count);
  return ConvertDecimal(p);
}

// Reads numeric text for a conversion: 13 when it is not a number, 6 when
// its magnitude is beyond Double.
ParsedNumber ParseForConversion(std::u16string_view text) {
  ParsedNumber parsed = ParseText(text);
  if (parsed.status == ParseStatus::kNotNumeric) RaiseStandard(errors::kTypeMismatch);
  if (parsed.status == ParseStatus::kOverflow) RaiseStandard(errors::kOverflow);
  return parsed;
}

// ---------------------------------------------------------------------------
// Number to text

using detail::Digits;
using detail::RoundToDigits;

// Writes the text form of `value` with `precision` significant digits into
// `out` (at least 48 units) and returns its length. The Str form puts a
// space before non-negative numbers and drops the "0" before the point.
template <class Float>
size_t FormatFloat(Float value, int precision, bool str_form, char16_t* out) {
  char16_t* w = out;
  auto put = [&w](const char* s) {
    while (*s) *w++ = static_cast<char16_t>(*s++);
  };
  if (std::isnan(value)) {
    put("NaN");
    return static_cast<size_t>(w - out);
  }
  if (std::isinf(value)) {
    put(value < 0 ? "-Infinity" : (str_form ? " Infinity" : "Infinity"));
    return static_cast<size_t>(w - out);
  }
  if (value == 0) {  // -0 prints as 0
    put(str_form ? " 0" : "0");
    return static_cast<size_t>(w - out);
  }

  Digits d = RoundToDigits(value, precision);
  if (d.negative) *w++ = u'-';
  else if (str_form) *w++ = u' ';

  const int e = d.exponent;
  // Fixed form needs -e-1 leading zeros after the point for small numbers;
  // when that pushes the digits past the precision, exponent form is used.
  const int after_point = d.count - 1 - e;
  const bool exponent_form = e >= precision || e < -4 || after_point > precision;
  if (exponent_form) {
    *w++ = static_cast<char16_t>(d.digits[0]);
    if (d.count > 1) {
      *w++ = u'.';
      for (int k = 1; k < d.count; ++k) *w++ = static_cast<char16_t>(d.digits[k]);
    }
    *w++ = u'E';
    *w++ = e < 0 ? u'-' : u'+';
    int magnitude = e < 0 ? -e : e;
    char exp_text[8];
    auto r = std::to_chars(exp_text, exp_text + sizeof(exp_text), magnitude);
    if (r.ptr - exp_text < 2) *w++ = u'0';
    for (char* q = exp_text; q < r.ptr; ++q) *w++ = static_cast<char16_t>(*q);
  } else if (e >= 0) {
    for (int k = 0; k <= e; ++k) *w++ = static_cast<char16_t>(k < d.count ? d.digits[k] : '0');
    if (d.count > e + 1) {
      *w++ = u'.';
      for (int k = e + 1; k < d.count; ++k) *w++ = static_cast<char16_t>(d.digits[k]);
    }
  } else {
    if (!str_form) *w++ = u'0';
    *w++ = u'.';
    for (int k = 0; k < -e - 1; ++k) *w++ = u'0';
    for (int k = 0; k < d.count; ++k) *w++ = static_cast<char16_t>(d.digits[k]);
  }
  return static_cast<size_t>(w - out);
}

constexpr int kDoubleDigits = 15;
constexpr int kSingleDigits = 7;

std::u16string IntegerToText(int64_t value, bool str_form) {
  char buffer[24];
  char* start = buffer;
  if (str_form && value >= 0) *start++ = ' ';
  auto r = std::to_chars(start, buffer + sizeof(buffer), value);
  return std::u16string(buffer, r.ptr);
}

// ---------------------------------------------------------------------------
// Dates

// The Date kind's range, as exclusive bounds: the day before 1 January 100
// and the day after 31 December 9999 (every moment of both limit days is in).
constexpr double kDayBeforeFirstDate = -657435.0;
constexpr double kDayAfterLastDate = 2958466.0;

void CheckDateRange(double serial) {
  if (!(serial > kDayBeforeFirstDate && serial < kDayAfterLastDate)) {
    RaiseStandard(errors::kOverflow);
  }
}

void PutNumber(char16_t*& w, int value, int min_width) {
  char buffer[12];
  auto r = std::to_chars(buffer, buffer + sizeof(buffer), value);
  for (int pad = min_width - static_cast<int>(r.ptr - buffer); pad > 0; --pad) *w++ = u'0';
  for (char* q = buffer; q < r.ptr; ++q) *w++ = static_cast<char16_t>(*q);
}

// ---------------------------------------------------------------------------
// Integer conversions

// Rounds to nearest, ties to even, and checks the result against [lo, hi].
int64_t RoundToRange(double value, double lo, double hi_exclusive) {
  double r = RoundHalfEven(value);
  if (!(r >= lo && r < hi_exclusive)) RaiseStandard(errors::kOverflow);
  return static_cast<int64_t>(r);
}

[[noreturn]] void RaiseForKind(const Value& value) {
  if (value.IsNull()) RaiseStandard(errors::kInvalidUseOfNull);
  RaiseStandard(errors::kTypeMismatch);
}

// Converts to a signed integer within [lo, hi]. Integer sources are checked
// exactly; floating sources and text are rounded half to even first.
int64_t ToIntegerInRange(const Value& value, int64_t lo, int64_t hi) {
  int64_t result = 0;
  switch (static_cast<Kind>(value.code())) {
    case Kind::kEmpty: return 0;
    case Kind::kInteger: result = value.integer(); break;
    case Kind::kLong: result = value.long_value(); break;
    case Kind::kLongLong: result = value.long_long(); break;
    case Kind::kByte: result = value.byte(); break;
    case Kind::kBoolean: result = value.boolean() ? -1 : 0; break;
    case Kind::kSingle:
    case Kind::kDouble:
    case Kind::kDate:
    case Kind::kString: {
      double d = 0;
      if (value.IsString()) {
        ParsedNumber parsed = ParseForConversion(value.string());
        if (parsed.exact) {
          result = parsed.integer;
          break;
        }
        d = parsed.value;
      } else {
        d = value.kind() == Kind::kSingle ? value.single() : value.dbl();
      }
      // 2^63 is the first Double past the LongLong range; the narrower
      // kinds are checked below on the exact integer.
      result = RoundToRange(d, -9223372036854775808.0, 9223372036854775808.0);
      break;
    }
    default: RaiseForKind(value);
  }
  if (result < lo || result > hi) RaiseStandard(errors::kOverflow);
  return result;
}

bool EqualsIgnoringAsciiCase(std::u16string_view text, std::u16string_view word) noexcept {
  if (text.size() != word.size()) return false;
  for (size_t k = 0; k < text.size(); ++k) {
    char16_t c = text[k];
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + (u'a' - u'A'));
    if (c != word[k]) return false;
  }
  return true;
}

// Val's reader: the longest numeric prefix, with Val's blanks ignored.
class ValReader {
 public:
  explicit ValReader(std::u16string_view text) : text_(text) {}

  double Read() {
    SkipBlanks();
    if (At(u'&')) return ReadLiteral();
    DecimalParts p;
    if (At(u'+') || At(u'-')) {
      p.negative = text_[i_] == u'-';
      ++i_;
    }
    ReadDigits();
    const size_t int_count = digits_.size();
    SkipBlanks();
    if (At(u'.')) {
      ++i_;
      ReadDigits();
    }
    const size_t frac_count = digits_.size() - int_count;
    if (int_count + frac_count == 0) return 0;
    SkipBlanks();
    if (At(u'E') || At(u'e') || At(u'D') || At(u'd')) {
      ++i_;
      SkipBlanks();
      if (At(u'+') || At(u'-')) {
        p.exp_negative = text_[i_] == u'-';
        ++i_;
      }
      ReadDigits();
    }
    std::string_view all(digits_);
    p.int_digits = all.substr(0, int_count);
    p.frac_digits = all.substr(int_count, frac_count);
    p.exp_digits = all.substr(int_count + frac_count);
    return ConvertLongestPrefix(p);
  }

 private:
  bool At(char16_t c) const { return i_ < text_.size() && text_[i_] == c; }
  void SkipBlanks() {
    while (i_ < text_.size() && IsValBlank(text_[i_])) ++i_;
  }
  void ReadDigits() {
    i_ = CollectDigits(text_, i_, digits_, IsDigit, IsValBlank);
  }

  double ReadLiteral() {
    ++i_;
    SkipBlanks();
    int base = 0;
    if (At(u'H') || At(u'h')) base = 16;
    if (At(u'O') || At(u'o')) base = 8;
    if (base == 0) return 0;
    ++i_;
    uint64_t bits = 0;
    for (; i_ < text_.size(); ++i_) {
      if (IsValBlank(text_[i_])) continue;
      int d = DigitValue(text_[i_], base);
      if (d < 0) break;
      uint64_t next = bits * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
      if (next > 0xFFFFFFFFu) break;  // the prefix that still fits is the number
      bits = next;
    }
    return static_cast<double>(LiteralValue(bits));
  }

  // A prefix whose value overflows is not numeric, so a shorter one is the
  // answer: exponent digits go first, then integer digits (dropping those
  // also drops the fraction, which follows them).
  static double ConvertLongestPrefix(DecimalParts p) {
    ParsedNumber parsed = ConvertDecimal(p);
    while (parsed.status == ParseStatus::kOverflow && !p.exp_digits.empty()) {
      p.exp_digits.remove_suffix(1);
      parsed = ConvertDecimal(p);
    }
    if (parsed.status == ParseStatus::kOverflow) {
      // Without an exponent only more than 308 significant integer digits
      // overflow; 309 of them may or may not.
      size_t first = p.int_digits.find_first_not_of('0');
      if (first == std::string_view::npos) return 0;
      p.int_digits = p.int_digits.substr(0, first + 309);
      p.frac_digits = {};
      parsed = ConvertDecimal(p);
      if (parsed.status == ParseStatus::kOverflow) {
        p.int_digits.remove_suffix(1);
        parsed = ConvertDecimal(p);
      }
    }
    return parsed.value;
  }

  std::u16string_view text_;
  size_t i_ = 0;
  std::string digits_;
};

// Int and Fix share everything but the rounding function.
template <class Round>
Value RoundKeepingKind(const Value& value, Round round) {
  switch (static_cast<Kind>(value.code())) {
    case Kind::kNull: return value;
    case Kind::kEmpty: return Value(int16_t{0});
    case Kind::kInteger:
    case Kind::kLong:
    case Kind::kLongLong:
    case Kind::kByte: return value;
    case Kind::kBoolean: return Value(static_cast<int16_t>(value.boolean() ? -1 : 0));
    case Kind::kSingle: return Value(static_cast<float>(round(double{value.single()})));
    case Kind::kDouble: return Value(round(value.dbl()));
    case Kind::kDate: return Value::Date(round(value.date()));
    case Kind::kString: return Value(round(ParseForConversion(value.string()).value));
    default: RaiseForKind(value);
  }
}

}  // namespace

// ---------------------------------------------------------------------------

std::u16string ToText(const Value& value) {
  switch (static_cast<Kind>(value.code())) {
    case Kind::kEmpty: return std::u16string();
    case Kind::kString: return std::u16string(value.string());
    case Kind::kInteger: return IntegerToText(value.integer(), false);
    case Kind::kLong: return IntegerToText(value.long_value(), false);
    case Kind::kLongLong: return IntegerToText(value.long_long(), false);
    case Kind::kByte: return IntegerToText(value.byte(), false);
    case Kind::kDouble: return DoubleToText(value.dbl());
    case Kind::kSingle: return SingleToText(value.single());
    case Kind::kDate: return DateToText(value.date());
    case Kind::kBoolean: return value.boolean() ? u"True" : u"False";
    default: RaiseForKind(value);
  }
}

double ToDouble(const Value& value) {
  switch (static_cast<Kind>(value.code())) {
    case Kind::kEmpty: return 0;
    case Kind::kInteger: return value.integer();
    case Kind::kLong: return value.long_value();
    case Kind::kLongLong: return static_cast<double>(value.long_long());
    case Kind::kByte: return value.byte();
    case Kind::kSingle: return value.single();
    case Kind::kDouble: return value.dbl();
    case Kind::kDate: return value.date();
    case Kind::kBoolean: return value.boolean() ? -1 : 0;
    case Kind::kString: return ParseForConversion(value.string()).value;
    default: RaiseForKind(value);
  }
}

float ToSingle(const Value& value) {
  if (value.code() == uint16_t(Kind::kSingle)) return value.single();
  double d = ToDouble(value);
  // Rounding to float turns magnitudes past FLT_MAX (by more than half an
  // ulp) into infinity: that is the overflow.
  float f = static_cast<float>(d);
  if (std::isinf(f) && !std::isinf(d)) RaiseStandard(errors::kOverflow);
  return f;
}

int32_t ToLong(const Value& value) {
  return static_cast<int32_t>(ToIntegerInRange(value, INT32_MIN, INT32_MAX));
}

int16_t ToInteger(const Value& value) {
  return static_cast<int16_t>(ToIntegerInRange(value, INT16_MIN, INT16_MAX));
}

uint8_t ToByte(const Value& value) {
  return static_cast<uint8_t>(ToIntegerInRange(value, 0, UINT8_MAX));
}

int64_t ToLongLong(const Value& value) {
  return ToIntegerInRange(value, INT64_MIN, INT64_MAX);
}

bool ToBoolean(const Value& value) {
  switch (static_cast<Kind>(value.code())) {
    case Kind::kEmpty: return false;
    case Kind::kBoolean: return value.boolean();
    case Kind::kInteger: return value.integer() != 0;
    case Kind::kLong: return value.long_value() != 0;
    case Kind::kLongLong: return value.long_long() != 0;
    case Kind::kByte: return value.byte() != 0;
    case Kind::kSingle: return value.single() != 0;
    case Kind::kDouble: return value.dbl() != 0;
    case Kind::kDate: return value.date() != 0;
    case Kind::kString: {
      // The words are matched exactly (any case, no blanks around them);
      // anything else must be numeric text.
      std::u16string_view text = value.string();
      if (EqualsIgnoringAsciiCase(text, u"true")) return true;
      if (EqualsIgnoringAsciiCase(text, u"false")) return false;
      return ParseForConversion(text).value != 0;
    }
    default: RaiseForKind(value);
  }
}

Value ConvertTo(const Value& value, Kind target) {
  if (target == Kind::kVariant) return value;
  if (value.IsArray()) RaiseStandard(errors::kTypeMismatch);
  switch (target) {
    case Kind::kInteger: return Value(ToInteger(value));
    case Kind::kLong: return Value(ToLong(value));
    case Kind::kLongLong: return Value(ToLongLong(value));
    case Kind::kByte: return Value(ToByte(value));
    case Kind::kSingle: return Value(ToSingle(value));
    case Kind::kDouble: return Value(ToDouble(value));
    case Kind::kBoolean: return Value(ToBoolean(value));
    case Kind::kString:
      if (value.IsString()) return value;  // shares the text, no copy
      return Value(ToText(value));
    case Kind::kDate:
      if (value.kind() == Kind::kDate) return value;
      // Assignment to a Date reads text as CDate does: date text only, so
      // numeric text is a type mismatch; numbers are serials.
      return Value::Date(ToDate(value));
    default:
      // Empty, Null, Object and Error targets take only their own kind.
      if (value.code() == static_cast<uint16_t>(target)) return value;
      if (value.IsNull()) RaiseStandard(errors::kInvalidUseOfNull);
      RaiseStandard(errors::kTypeMismatch);
  }
}

std::u16string DoubleToText(double value) {
  char16_t buffer[48];
  return std::u16string(buffer, FormatFloat(value, kDoubleDigits, false, buffer));
}

std::u16string SingleToText(float value) {
  char16_t buffer[48];
  return std::u16string(buffer, FormatFloat(value, kSingleDigits, false, buffer));
}

std::u16string DateToText(double serial) {
  CheckDateRange(serial);
  // The day is the integer part toward zero; the time of day is the
  // fraction's magnitude, so -1.25 is 29 December 1899 at 6 AM.
  double day_part = std::trunc(serial);
  int64_t day = static_cast<int64_t>(day_part);
  auto seconds = static_cast<int64_t>(std::round(std::fabs(serial - day_part) * 86400.0));
  if (seconds >= 86400) {  // 23:59:59.5 and later belong to the next day
    seconds -= 86400;
    day += 1;  // later in the calendar for negative serials too
  }

  using namespace std::chrono;
  constexpr sys_days kEpoch = year{1899} / December / 30;
  const year_month_day ymd{kEpoch + days{day}};

  char16_t buffer[32];
  char16_t* w = buffer;
  const bool has_date = day != 0;
  const bool has_time = seconds != 0 || !has_date;
  if (has_date) {
    PutNumber(w, static_cast<int>(static_cast<unsigned>(ymd.month())), 1);
    *w++ = u'/';
    PutNumber(w, static_cast<int>(static_cast<unsigned>(ymd.day())), 1);
    *w++ = u'/';
    PutNumber(w, static_cast<int>(ymd.year()), 4);
  }
  if (has_time) {
    if (has_date) *w++ = u' ';
    const int hour = static_cast<int>(seconds / 3600);
    PutNumber(w, hour % 12 == 0 ? 12 : hour % 12, 1);
    *w++ = u':';
    PutNumber(w, static_cast<int>(seconds / 60 % 60), 2);
    *w++ = u':';
    PutNumber(w, static_cast<int>(seconds % 60), 2);
    *w++ = u' ';
    *w++ = hour < 12 ? u'A' : u'P';
    *w++ = u'M';
  }
  return std::u16string(buffer, w);
}

std::optional<double> ParseNumber(std::u16string_view text) {
  ParsedNumber parsed = ParseText(text);
  if (parsed.status != ParseStatus::kOk) return std::nullopt;
  return parsed.value;
}

bool IsNumeric(const Value& value) {
  switch (static_cast<Kind>(value.code())) {
    case Kind::kEmpty:
    case Kind::kInteger:
    case Kind::kLong:
    case Kind::kLongLong:
    case Kind::kByte:
    case Kind::kSingle:
    case Kind::kDouble:
    case Kind::kBoolean:
      return true;
    // A date is not a number to IsNumeric, even though it converts to one.
    case Kind::kDate:
      return false;
    case Kind::kString:
      return ParseText(value.string()).status == ParseStatus::kOk;
    default:
      return false;
  }
}

double Val(std::u16string_view text) {
  return ValReader(text).Read();
}

std::u16string Str(const Value& value) {
  char16_t buffer[48];
  switch (static_cast<Kind>(value.code())) {
    case Kind::kEmpty: return u" 0";
    case Kind::kInteger: return IntegerToText(value.integer(), true);
    case Kind::kLong: return IntegerToText(value.long_value(), true);
    case Kind::kLongLong: return IntegerToText(value.long_long(), true);
    case Kind::kByte: return IntegerToText(value.byte(), true);
    case Kind::kSingle:
      return std::u16string(buffer, FormatFloat(value.single(), kSingleDigits, true, buffer));
    case Kind::kDouble:
      return std::u16string(buffer, FormatFloat(value.dbl(), kDoubleDigits, true, buffer));
    case Kind::kString: {
      ParsedNumber parsed = ParseForConversion(value.string());
      if (parsed.exact) return IntegerToText(parsed.integer, true);
      return std::u16string(buffer, FormatFloat(parsed.value, kDoubleDigits, true, buffer));
    }
    case Kind::kDate:
    case Kind::kBoolean:
      return ToText(value);
    default: RaiseForKind(value);
  }
}

double RoundHalfEven(double value) noexcept {
  // Not nearbyint: the result must not depend on the caller's rounding mode.
  double floor = std::floor(value);
  double diff = value - floor;  // exact for every finite double
  if (diff > 0.5) return floor + 1;
  if (diff < 0.5) return floor;
  return std::fmod(floor, 2.0) == 0 ? floor : floor + 1;
}

Value Int(const Value& value) {
  return RoundKeepingKind(value, [](double d) { return std::floor(d); });
}

Value Fix(const Value& value) {
  return RoundKeepingKind(value, [](double d) { return std::trunc(d); });
}

void AssignElement(Value& array, std::span<const int32_t> subscripts, const Value& value) {
  if (!array.IsArray()) RaiseStandard(errors::kTypeMismatch);
  // The element is located first, so a bad subscript reports 9 whatever
  // the value is.
  size_t linear = array.LinearIndex(subscripts);
  array.SetElementAt(linear, ConvertTo(value, array.kind()));
}

}  // namespace kestrel::runtime
