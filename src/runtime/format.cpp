// Format's dispatcher and named formats, the pattern scanner's literal rules,
// and the companion functions (FormatNumber, FormatPercent, FormatCurrency,
// FormatDateTime, MonthName, WeekdayName).
//
// Format first converts the value the way the chosen pattern kind needs:
// numbers keep their exact digits (integers, LongLong included, are never
// routed through a Double), text is read as a number or a date when it is
// one and otherwise comes back unchanged, and arrays and objects raise 13
// through the conversions.
#include "kestrel/runtime/format.hpp"

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "detail/format.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dates.hpp"

namespace kestrel::runtime {

namespace detail {

size_t LiteralAt(std::u16string_view pattern, size_t i, std::u16string* out) {
  if (pattern[i] == u'"') {
    const size_t close = pattern.find(u'"', i + 1);
    const size_t end = close == std::u16string_view::npos ? pattern.size() : close;
    if (out != nullptr) out->append(pattern.substr(i + 1, end - i - 1));
    return end == pattern.size() ? end - i : end - i + 1;
  }
  if (pattern[i] == u'\\') {
    if (i + 1 == pattern.size()) return 1;
    if (out != nullptr) *out += pattern[i + 1];
    return 2;
  }
  return 0;
}

std::vector<std::u16string_view> SplitSections(std::u16string_view pattern, size_t max_sections) {
  std::vector<std::u16string_view> sections;
  size_t start = 0;
  for (size_t i = 0; i < pattern.size();) {
    if (const size_t n = LiteralAt(pattern, i, nullptr)) {
      i += n;
      continue;
    }
    if (pattern[i] == u';') {
      sections.push_back(pattern.substr(start, i - start));
      if (sections.size() == max_sections) return sections;
      start = ++i;
      continue;
    }
    ++i;
  }
  sections.push_back(pattern.substr(start));
  return sections;
}

}  // namespace detail

namespace {

using detail::DecimalNumber;

// --- converting the value --------------------------------------------------------

// The number a value formats as; nullopt for text that is not numeric.
std::optional<DecimalNumber> NumberOf(const Value& value) {
  switch (static_cast<Kind>(value.code())) {
    case Kind::kEmpty:
      return DecimalNumber{};
    case Kind::kInteger:
    case Kind::kBoolean:
      return detail::DecimalFromInteger(value.integer());
    case Kind::kLong:
      return detail::DecimalFromInteger(value.long_value());
    case Kind::kLongLong:
      return detail::DecimalFromInteger(value.long_long());
    case Kind::kByte:
      return detail::DecimalFromInteger(value.byte());
    case Kind::kSingle:
      if (!std::isfinite(value.single())) RaiseStandard(errors::kOverflow);
      return detail::DecimalFromSingle(value.single());
    case Kind::kString: {
      const std::optional<double> number = ParseNumber(value.string());
      if (!number) return std::nullopt;
      return detail::DecimalFromDouble(*number);
    }
    default: {
      // Double and Date; everything else raises 13 here. A pattern asks for
      // digits that an infinity or a NaN does not have.
      const double number = ToDouble(value);
      if (!std::isfinite(number)) RaiseStandard(errors::kOverflow);
      return detail::DecimalFromDouble(number);
    }
  }
}

// The serial a value formats as with a date pattern; nullopt for text that
// is neither a date nor a number.
std::optional<double> SerialOf(const Value& value) {
  if (!value.IsString()) return ToDate(value);
  if (std::optional<double> date = ParseDate(value.string())) return date;
  return ParseNumber(value.string());
}

// "General Number": the number's own text form, without grouping.
std::u16string GeneralNumberText(const Value& value) {
  switch (static_cast<Kind>(value.code())) {
    case Kind::kEmpty:
      return u"0";
    case Kind::kInteger:
    case Kind::kLong:
    case Kind::kLongLong:
    case Kind::kByte:
    case Kind::kSingle:
    case Kind::kDouble:
      return ToText(value);
    default:  // Boolean -1 or 0, a Date's serial; 13 for what is no number
      return DoubleToText(ToDouble(value));
  }
}

// The literal text of a section (the Null section shows no number).
std::u16string LiteralText(std::u16string_view section) {
  std::u16string out;
  for (size_t i = 0; i < section.size();) {
    if (const size_t n = detail::LiteralAt(section, i, &out)) {
      i += n;
    } else {
      out += section[i++];
    }
  }
  return out;
}

// --- named formats -----------------------------------------------------------------

enum class Family : uint8_t { kNumber, kGeneralNumber, kTruthWords, kDate, kGeneralDate };

struct NamedFormat {
  std::u16string_view name;  // lower case
  Family family;
  std::u16string_view pattern;  // kTruthWords: the words for non-zero and zero
};

constexpr NamedFormat kNamedFormats[] = {
    {u"general number", Family::kGeneralNumber, {}},
    {u"currency", Family::kNumber, u"$#,##0.00;($#,##0.00)"},
    {u"fixed", Family::kNumber, u"0.00"},
    {u"standard", Family::kNumber, u"#,##0.00"},
    {u"percent", Family::kNumber, u"0.00%"},
    {u"scientific", Family::kNumber, u"0.00E+00"},
    {u"yes/no", Family::kTruthWords, u"Yes/No"},
    {u"true/false", Family::kTruthWords, u"True/False"},
    {u"on/off", Family::kTruthWords, u"On/Off"},
    {u"general date", Family::kGeneralDate, {}},
    {u"long date", Family::kDate, u"dddd, mmmm dd, yyyy"},
    {u"medium date", Family::kDate, u"dd-mmm-yy"},
    {u"short date", Family::kDate, u"m/d/yyyy"},
    {u"long time", Family::kDate, u"h:nn:ss AM/PM"},
    {u"medium time", Family::kDate, u"hh:nn AM/PM"},
    {u"short time", Family::kDate, u"hh:nn"},
};

const NamedFormat* FindNamedFormat(std::u16string_view pattern) {
  for (const NamedFormat& named : kNamedFormats) {
    if (pattern.size() == named.name.size() && detail::StartsWithWord(pattern, named.name)) {
      return &named;
    }
  }
  return nullptr;
}

std::u16string FormatNamed(const Value& value, const NamedFormat& named, int32_t first_day_of_week,
                           int32_t first_week_of_year) {
  if (value.IsNull()) return {};
  switch (named.family) {
    case Family::kGeneralNumber:
      if (value.IsString()) {
        const std::optional<double> number = ParseNumber(value.string());
        return number ? DoubleToText(*number) : std::u16string(value.string());
      }
      return GeneralNumberText(value);
    case Family::kNumber:
    case Family::kTruthWords: {
      const std::optional<DecimalNumber> number = NumberOf(value);
      if (!number) return std::u16string(value.string());
      if (named.family == Family::kNumber)
        return detail::FormatNumberPattern(*number, named.pattern);
      const size_t slash = named.pattern.find(u'/');
      return std::u16string(number->IsZero() ? named.pattern.substr(slash + 1)
                                             : named.pattern.substr(0, slash));
    }
    case Family::kDate:
    case Family::kGeneralDate: {
      const std::optional<double> serial = SerialOf(value);
      if (!serial) return std::u16string(value.string());
      if (named.family == Family::kGeneralDate) return DateToText(*serial);
      return detail::FormatDatePattern(*serial, named.pattern, first_day_of_week,
                                       first_week_of_year);
    }
  }
  return {};
}

// --- choosing the pattern kind --------------------------------------------------------

enum class PatternKind : uint8_t { kNumber, kDate, kText };

PatternKind KindOf(std::u16string_view first_section) {
  bool placeholder = false, text_mark = false, digit = false;
  for (size_t i = 0; i < first_section.size();) {
    if (const size_t n = detail::LiteralAt(first_section, i, nullptr)) {
      i += n;
      continue;
    }
    const char16_t c = first_section[i++];
    placeholder = placeholder || c == u'@' || c == u'&';
    text_mark = text_mark || c == u'<' || c == u'>' || c == u'!';
    digit = digit || c == u'0' || c == u'#';
  }
  if (placeholder) return PatternKind::kText;
  if (detail::HasDateTokens(first_section)) return PatternKind::kDate;
  if (text_mark && !digit) return PatternKind::kText;
  return PatternKind::kNumber;
}

// --- FormatNumber and its kin ----------------------------------------------------------

enum class Style : uint8_t { kNumber, kPercent, kCurrency };

constexpr int32_t kMaxDigitsAfterDecimal = 255;

bool Resolve(Tristate setting, bool locale_default) {
  switch (setting) {
    case Tristate::kUseDefault:
      return locale_default;
    case Tristate::kTrue:
      return true;
    case Tristate::kFalse:
      return false;
  }
  RaiseStandard(errors::kInvalidProcedureCall);
}

std::u16string FormatStyled(const Value& expression, int32_t digits, Tristate leading_digit,
                            Tristate parens, Tristate group, Style style) {
  if (digits < -1 || digits > kMaxDigitsAfterDecimal) {
    RaiseStandard(errors::kInvalidProcedureCall);
  }
  const bool leading = Resolve(leading_digit, true);
  const bool parentheses = Resolve(parens, style == Style::kCurrency);
  const bool grouping = Resolve(group, true);
  // The value goes to the number formatter as it is: Null and non-numeric
  // text are a type mismatch there, not a Null to propagate.
  if (expression.IsNull()) RaiseStandard(errors::kTypeMismatch);
  std::optional<DecimalNumber> number = NumberOf(expression);
  if (!number) RaiseStandard(errors::kTypeMismatch);

  if (style == Style::kPercent) detail::ScaleDecimal(*number, 2);
  const int32_t places = digits == -1 ? 2 : digits;
  detail::RoundDecimals(*number, places);
  std::string integer = detail::IntegerDigits(*number);
  if (integer.empty() && (leading || places == 0)) integer.push_back('0');

  std::u16string body;
  if (style == Style::kCurrency) body += u'$';
  for (size_t k = 0; k < integer.size(); ++k) {
    body += static_cast<char16_t>(integer[k]);
    const size_t position = integer.size() - 1 - k;
    if (grouping && position > 0 && position % 3 == 0) body += u',';
  }
  if (places > 0) {
    body += u'.';
    for (char c : detail::FractionDigits(*number, static_cast<size_t>(places))) {
      body += static_cast<char16_t>(c);
    }
  }
  if (number->negative) {
    body.insert(body.begin(), parentheses ? u'(' : u'-');
    if (parentheses) body += u')';
  }
  if (style == Style::kPercent) body += u'%';
  return body;
}

}  // namespace

std::u16string Format(const Value& value, std::u16string_view pattern, int32_t first_day_of_week,
                      int32_t first_week_of_year) {
  if (first_day_of_week < 0 || first_day_of_week > 7 || first_week_of_year < 0 ||
      first_week_of_year > 3) {
    RaiseStandard(errors::kInvalidProcedureCall);
  }
  if (pattern.empty()) return value.IsNull() ? std::u16string() : ToText(value);
  if (const NamedFormat* named = FindNamedFormat(pattern)) {
    return FormatNamed(value, *named, first_day_of_week, first_week_of_year);
  }

  switch (KindOf(detail::SplitSections(pattern, 1)[0])) {
    case PatternKind::kText:
      if (value.IsNull()) return detail::FormatTextPattern({}, true, pattern);
      return detail::FormatTextPattern(ToText(value), false, pattern);
    case PatternKind::kDate: {
      if (value.IsNull()) return {};
      const std::optional<double> serial = SerialOf(value);
      if (!serial) return std::u16string(value.string());
      return detail::FormatDatePattern(*serial, pattern, first_day_of_week, first_week_of_year);
    }
    case PatternKind::kNumber:
      break;
  }
  if (value.IsNull()) {
    const std::vector<std::u16string_view> sections = detail::SplitSections(pattern, 4);
    return sections.size() == 4 ? LiteralText(sections[3]) : std::u16string();
  }
  const std::optional<DecimalNumber> number = NumberOf(value);
  if (!number) return std::u16string(value.string());
  return detail::FormatNumberPattern(*number, pattern);
}

std::u16string FormatNumber(const Value& expression, int32_t num_digits_after_decimal,
                            Tristate include_leading_digit, Tristate use_parens_for_negative,
                            Tristate group_digits) {
  return FormatStyled(expression, num_digits_after_decimal, include_leading_digit,
                      use_parens_for_negative, group_digits, Style::kNumber);
}

std::u16string FormatPercent(const Value& expression, int32_t num_digits_after_decimal,
                             Tristate include_leading_digit, Tristate use_parens_for_negative,
                             Tristate group_digits) {
  return FormatStyled(expression, num_digits_after_decimal, include_leading_digit,
                      use_parens_for_negative, group_digits, Style::kPercent);
}

std::u16string FormatCurrency(const Value& expression, int32_t num_digits_after_decimal,
                              Tristate include_leading_digit, Tristate use_parens_for_negative,
                              Tristate group_digits) {
  return FormatStyled(expression, num_digits_after_decimal, include_leading_digit,
                      use_parens_for_negative, group_digits, Style::kCurrency);
}

std::u16string FormatDateTime(const Value& date, int32_t named_format) {
  static constexpr std::u16string_view kPatterns[] = {
      {}, u"dddd, mmmm dd, yyyy", u"m/d/yyyy", u"h:nn:ss AM/PM", u"hh:nn"};
  if (named_format < 0 || named_format > 4) RaiseStandard(errors::kInvalidProcedureCall);
  if (date.IsNull()) RaiseStandard(errors::kTypeMismatch);
  const double serial = ToDate(date);
  if (named_format == 0) return DateToText(serial);
  return detail::FormatDatePattern(serial, kPatterns[named_format], 1, 1);
}

std::u16string MonthName(int32_t month, bool abbreviate) {
  if (month < 1 || month > 12) RaiseStandard(errors::kInvalidProcedureCall);
  const std::u16string_view name = detail::kMonthNames[static_cast<size_t>(month - 1)];
  return std::u16string(abbreviate ? name.substr(0, 3) : name);
}

std::u16string WeekdayName(int32_t weekday, bool abbreviate, int32_t first_day_of_week) {
  if (weekday < 1 || weekday > 7 || first_day_of_week < 0 || first_day_of_week > 7) {
    RaiseStandard(errors::kInvalidProcedureCall);
  }
  const int32_t first = first_day_of_week == 0 ? 1 : first_day_of_week;  // the locale's Sunday
  const std::u16string_view name =
      detail::kWeekdayNames[static_cast<size_t>((weekday - 1 + first - 1) % 7)];
  return std::u16string(abbreviate ? name.substr(0, 3) : name);
}

}  // namespace kestrel::runtime
