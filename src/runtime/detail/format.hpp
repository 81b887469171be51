// What the Format family's files share: decimal digits with the runtime's
// rounding, the pattern scanner's literal rules, section splitting, and the
// three pattern engines the dispatcher in format.cpp chooses between.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel::runtime::detail {

// --- decimal digits -----------------------------------------------------------
// A number as the decimal digits Format shows: value = 0.d1d2d3... x 10^point.
// Digits carry no leading or trailing zeros, so zero has none. Rounding and
// scaling work on these digits, never on binary fractions, so 1.005 rounds
// to 1.01 and 0.035 shows as 3.5%.
struct DecimalNumber {
  std::string digits;
  int64_t point = 0;
  bool negative = false;
  bool IsZero() const { return digits.empty(); }
};

// A finite Double through its 15 significant digits (the text form's).
DecimalNumber DecimalFromDouble(double value);
// A Single through its 7 significant digits.
DecimalNumber DecimalFromSingle(float value);
// Integers exactly, all 19 digits of a LongLong included.
DecimalNumber DecimalFromInteger(int64_t value);
// Multiplies by 10^power (negative divides).
void ScaleDecimal(DecimalNumber& number, int64_t power);
// Rounds half away from zero to `decimals` places after the point.
void RoundDecimals(DecimalNumber& number, int64_t decimals);
// Rounds half away from zero to `count` significant digits.
void RoundSignificant(DecimalNumber& number, int64_t count);
// The digits before the point without leading zeros ("" below 1).
std::string IntegerDigits(const DecimalNumber& number);
// Exactly `count` digits after the point (padded or cut, not rounded).
std::string FractionDigits(const DecimalNumber& number, size_t count);

// --- pattern scanning ---------------------------------------------------------
inline char16_t AsciiLower(char16_t c) {
  return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + (u'a' - u'A')) : c;
}
// ASCII case-insensitive: does `text` start with the lower-case `word`?
inline bool StartsWithWord(std::u16string_view text, std::u16string_view word) {
  if (text.size() < word.size()) return false;
  for (size_t i = 0; i < word.size(); ++i) {
    if (AsciiLower(text[i]) != word[i]) return false;
  }
  return true;
}

// Quoted text and backslash escapes are literal in every kind of pattern.
// Returns how many units the literal at `i` spans (0 when none starts there)
// and appends its text to `out` when given. An unclosed quote runs to the
// end; a final lone backslash shows nothing.
size_t LiteralAt(std::u16string_view pattern, size_t i, std::u16string* out);
// The pattern cut at ";" outside literals, into at most `max_sections`
// sections (the rest of the pattern is dropped).
std::vector<std::u16string_view> SplitSections(std::u16string_view pattern, size_t max_sections);

// --- the three engines ----------------------------------------------------------
// A numeric pattern (all its sections) applied to a number.
std::u16string FormatNumberPattern(const DecimalNumber& value, std::u16string_view pattern);
// True when the pattern holds a date or time token outside literals.
bool HasDateTokens(std::u16string_view pattern);
// A date pattern applied to a serial (6 when it is not a date).
std::u16string FormatDatePattern(double serial, std::u16string_view pattern,
                                 int32_t first_day_of_week, int32_t first_week_of_year);
// A text pattern (both its sections) applied to text; `is_null` picks the
// second section as "" does.
std::u16string FormatTextPattern(std::u16string_view text, bool is_null,
                                 std::u16string_view pattern);

// --- names --------------------------------------------------------------------------
inline constexpr std::array<std::u16string_view, 12> kMonthNames = {
    u"January", u"February", u"March",     u"April",   u"May",      u"June",
    u"July",    u"August",   u"September", u"October", u"November", u"December"};
inline constexpr std::array<std::u16string_view, 7> kWeekdayNames = {
    u"Sunday", u"Monday", u"Tuesday", u"Wednesday", u"Thursday", u"Friday", u"Saturday"};

}  // namespace kestrel::runtime::detail
