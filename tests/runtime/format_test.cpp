#include "kestrel/runtime/format.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dates.hpp"
#include "runtime_error_matchers.hpp"
#include "value_matchers.hpp"

namespace kestrel::runtime {
namespace {

using testing::D;
using testing::Dt;
using testing::E;
using testing::L;
using testing::LL;
using testing::N;
using testing::S;
using testing::T;

// Tuesday 5 March 2024, 14:07:09.
const double kWhen = DateSerial(2024, 3, 5) + TimeSerial(14, 7, 9);

struct Row {
  Value input;
  const char16_t* pattern;
  const char16_t* expected;
};

void ExpectRows(std::initializer_list<Row> rows) {
  for (const Row& r : rows) {
    SCOPED_TRACE(ToUtf8(r.pattern));
    EXPECT_EQ(ToUtf8(Format(r.input, r.pattern)), ToUtf8(r.expected));
  }
}

TEST(Format, NamedNumericFormats) {
  ExpectRows({
      {D(1234.567), u"General Number", u"1234.567"},
      {LL(std::numeric_limits<int64_t>::max()), u"general number", u"9223372036854775807"},
      {D(1234.567), u"Currency", u"$1,234.57"},
      {D(-1234.567), u"CURRENCY", u"($1,234.57)"},
      {E, u"Currency", u"$0.00"},
      {D(1234.567), u"Fixed", u"1234.57"},
      {D(0.5), u"Fixed", u"0.50"},
      {D(-0.001), u"Fixed", u"-0.00"},
      {T(u"1234.5"), u"Standard", u"1,234.50"},
      {LL(std::numeric_limits<int64_t>::max()), u"Standard", u"9,223,372,036,854,775,807.00"},
      {D(0.4567), u"Percent", u"45.67%"},
      {D(1234.5), u"Scientific", u"1.23E+03"},
      {D(0.000123), u"Scientific", u"1.23E-04"},
      {L(0), u"Yes/No", u"No"},
      {D(-3), u"Yes/No", u"Yes"},
      {D(0.1), u"True/False", u"True"},
      {E, u"On/Off", u"Off"},
      {T(u"n/a"), u"Fixed", u"n/a"},
      {N, u"Currency", u""},
  });
}

TEST(Format, NamedDateFormats) {
  ExpectRows({
      {Dt(kWhen), u"General Date", u"3/5/2024 2:07:09 PM"},
      {Dt(kWhen), u"Long Date", u"Tuesday, March 05, 2024"},
      {Dt(kWhen), u"medium date", u"05-Mar-24"},
      {Dt(kWhen), u"Short Date", u"3/5/2024"},
      {Dt(kWhen), u"LONG TIME", u"2:07:09 PM"},
      {Dt(kWhen), u"Medium Time", u"02:07 PM"},
      {Dt(kWhen), u"Short Time", u"14:07"},
      {T(u"March 5, 2024"), u"Short Date", u"3/5/2024"},
      {E, u"General Date", u"12:00:00 AM"},
      {T(u"whenever"), u"Long Date", u"whenever"},
  });
}

TEST(Format, NumericPatterns) {
  ExpectRows({
      // The documented table: 5, -5, 0.5 and Null under each pattern.
      {D(0.5), u"0", u"1"},
      {D(-5), u"0.00", u"-5.00"},
      {D(0.5), u"#,##0.00;;;Nil", u"0.50"},
      {N, u"#,##0.00;;;Nil", u"Nil"},
      {D(-5), u"$#,##0;($#,##0)", u"($5)"},
      {D(0.5), u"$#,##0;($#,##0)", u"$1"},
      {D(-5), u"0%", u"-500%"},
      {D(0.5), u"0.00%", u"50.00%"},
      {D(-5), u"0.00E+00", u"-5.00E+00"},
      {D(5), u"0.00E-00", u"5.00E00"},
      {D(0.5), u"0.00E-00", u"5.00E-01"},
      // Sections: the sign of the value itself picks the section; empty sections.
      {D(-0.001), u"0.00", u"-0.00"},
      {D(-0.001), u"0.00;(0.00);\\Z\\e\\r\\o", u"(0.00)"},
      {D(-5), u"$#,##0;;\\Z\\e\\r\\o", u"-$5"},
      {D(0), u"0.0;-0.0;", u"0.0"},
      {N, u"0;0;0", u""},
      // Digits, grouping, scaling.
      {L(7), u"0000", u"0007"},
      {L(-1), u"0000", u"-0001"},
      {L(12345), u"00", u"12345"},
      {D(123456789), u"000-00-0000", u"123-45-6789"},
      {D(0.5), u"#.##", u".5"},
      {D(0), u"#", u""},
      {D(5), u"#.##", u"5."},
      {D(3.14159), u".00", u"3.14"},
      {D(3.1), u"0.0#", u"3.1"},
      {L(5), u"0,000", u"0,005"},
      {D(1234567.891), u"#,##0.0", u"1,234,567.9"},
      {L(1234567), u"#,##0,", u"1,235"},
      {L(1234567), u"0,,", u"1"},
      {D(1900000), u"0,,.0", u"1.9"},
      {LL(std::numeric_limits<int64_t>::min()), u"#,##0", u"-9,223,372,036,854,775,808"},
      // Rounding: half away from zero on the 15-digit decimal value.
      {D(2.5), u"0", u"3"},
      {D(1.005), u"0.00", u"1.01"},
      {D(0.125), u"0.00", u"0.13"},
      {D(0.996), u"0.00", u"1.00"},
      {D(0.035), u"0.0%", u"3.5%"},
      {S(0.1f), u"0.000000000", u"0.100000000"},
      // Exponents.
      {D(2.71828182), u"#.###E+###", u"2.718E+000"},
      {D(0.000123), u"0.00E-00", u"1.23E-04"},
      {D(9.999), u"0.00E+00", u"1.00E+01"},
      {D(0), u"0.00E+00", u"0.00E+00"},
      {D(1e100), u"0E+0", u"1E+100"},
      {D(12345), u"##0.0E+0", u"12.3E+3"},
      {D(0.00012345), u"##0.0E+0", u"123.5E-6"},
      {D(12345), u"0.0e0", u"1.2e4"},
      // Literals: escapes, quotes, characters that are no tokens.
      {L(5), u"0%", u"500%"},
      {L(5), u"0\\%", u"5%"},
      {L(5), u"0\"%\"", u"5%"},
      {L(5), u"\\#0\\#", u"#5#"},
      {D(-5), u"\"Total: \"0", u"-Total: 5"},
      {L(5), u"Foo", u"Foo"},
      {L(5), u"0 Eur", u"5 Eur"},
      // Kinds of values.
      {T(u" 42 "), u"0000", u"0042"},
      {T(u"n/a"), u"0000", u"n/a"},
      {Value(true), u"0", u"-1"},
      {E, u"0.00", u"0.00"},
      {Dt(45356.5), u"0.0", u"45356.5"},
      {D(1.5), u"", u"1.5"},
      {N, u"", u""},
  });
}

TEST(Format, TextPatterns) {
  ExpectRows({
      {T(u"HELLO"), u"<", u"hello"},
      {T(u"This is it"), u">", u"THIS IS IT"},
      {T(u"abc"), u"@@@@@", u"  abc"},
      {T(u"abc"), u"&&&&&", u"abc"},
      {T(u"abc"), u"!@@@@@", u"abc  "},
      {T(u"abcdef"), u"@-@@", u"abcd-ef"},
      {T(u"abcdef"), u"!@-@@", u"a-bcdef"},
      {T(u"5551234567"), u"(@@@) @@@-@@@@", u"(555) 123-4567"},
      {T(u"x"), u"\"[\"@\"]\"", u"[x]"},
      {T(u"mixed"), u">@@@@@@", u" MIXED"},
      {N, u"@;\\N\\o\\n\\e", u"None"},
      {T(u""), u"@;\\N\\o\\n\\e", u"None"},
      {N, u"@", u""},
      {L(123), u"@@@@@", u"  123"},
  });
}

TEST(Format, DateTokens) {
  const Value when = Dt(kWhen);
  const Value midnight = Dt(DateSerial(2024, 3, 5));
  ExpectRows({
      {when, u"mm/dd/yyyy hh:nn:ss", u"03/05/2024 14:07:09"},
      {when, u"M/D/YY h:n:s", u"3/5/24 14:7:9"},
      {when, u"h:nn AM/PM", u"2:07 PM"},
      {when, u"hh:mm a/p", u"02:07 p"},
      {when, u"h\\hmm", u"14h07"},
      {when, u"mm:ss", u"03:09"},  // "m" means minutes only after an hour
      {when, u"h:mm:ss \"am/pm\"", u"14:07:09 am/pm"},
      {when, u"Am/Pm hh AMPM", u"Pm 02 PM"},
      {when, u"dddd, mmmm d", u"Tuesday, March 5"},
      {when, u"ddd d-mmm", u"Tue 5-Mar"},
      {when, u"aaaa oooo", u"Tuesday March"},
      {when, u"ddddd", u"3/5/2024"},
      {when, u"dddddd", u"Tuesday, March 05, 2024"},
      {when, u"ttttt", u"2:07:09 PM"},
      {when, u"c", u"3/5/2024 2:07:09 PM"},
      {midnight, u"c", u"3/5/2024"},
      {Dt(TimeSerial(14, 7, 9)), u"c", u"2:07:09 PM"},
      {when, u"y q w ww", u"65 1 3 10"},
      {when, u"yyyyy", u"202465"},
      {when, u"\"day\" d \\d", u"day 5 d"},
      {midnight, u"h am/pm", u"12 am"},
      {Dt(DateSerial(2024, 3, 5) + 86399.6 / 86400), u"m/d h:nn:ss", u"3/6 0:00:00"},
      {Dt(-1.25), u"yyyy-mm-dd hh:nn", u"1899-12-29 06:00"},
      {T(u"March 5, 2024"), u"yyyy-mm-dd", u"2024-03-05"},
      {T(u"45356"), u"yyyy", u"2024"},
      {D(DateSerial(2024, 3, 5) + 0.5), u"mm/dd/yyyy hh:nn", u"03/05/2024 12:00"},
      {E, u"yyyy-mm-dd", u"1899-12-30"},
      {T(u"whenever"), u"yyyy", u"whenever"},
      {when, u"", u"3/5/2024 2:07:09 PM"},
      {N, u"yyyy", u""},
  });
  EXPECT_EQ(Format(when, u"w ww", 2), u"2 10");  // weeks start on Monday
  EXPECT_EQ(Format(Dt(DateSerial(2024, 12, 31)), u"ww", 1, 3), u"52");
}

TEST(FormatNumber, TristatesAndLocaleDefaults) {
  using F = std::u16string (*)(const Value&, int32_t, Tristate, Tristate, Tristate);
  constexpr Tristate kDef = Tristate::kUseDefault, kYes = Tristate::kTrue, kNo = Tristate::kFalse;
  const struct {
    F function;
    Value input;
    int32_t digits;
    Tristate leading, parens, group;
    const char16_t* expected;
  } cases[] = {
      {FormatNumber, D(1234.567), -1, kDef, kDef, kDef, u"1,234.57"},
      {FormatNumber, D(-0.5), -1, kDef, kDef, kDef, u"-0.50"},
      {FormatNumber, D(-0.5), -1, kNo, kYes, kDef, u"(.50)"},
      {FormatNumber, L(1234567), 0, kDef, kDef, kNo, u"1234567"},
      {FormatNumber, D(-0.001), -1, kDef, kYes, kDef, u"0.00"},
      {FormatNumber, D(2.5), 0, kDef, kDef, kDef, u"3"},
      {FormatNumber, T(u"1e3"), 1, kDef, kDef, kDef, u"1,000.0"},
      {FormatNumber, E, -1, kDef, kDef, kDef, u"0.00"},
      {FormatPercent, D(0.4567), -1, kDef, kDef, kDef, u"45.67%"},
      {FormatPercent, D(-0.5), -1, kDef, kDef, kDef, u"-50.00%"},
      {FormatPercent, D(-0.5), -1, kDef, kYes, kDef, u"(50.00)%"},
      {FormatCurrency, D(1234.567), -1, kDef, kDef, kDef, u"$1,234.57"},
      {FormatCurrency, D(-1), -1, kDef, kDef, kDef, u"($1.00)"},
      {FormatCurrency, D(-1), -1, kDef, kNo, kDef, u"-$1.00"},
      {FormatCurrency, D(0.5), 2, kNo, kDef, kDef, u"$.50"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(ToUtf8(c.expected));
    EXPECT_EQ(ToUtf8(c.function(c.input, c.digits, c.leading, c.parens, c.group)),
              ToUtf8(c.expected));
  }
}

TEST(FormatDateTime, NamedFormatsAndNames) {
  const char16_t* const expected[] = {u"3/5/2024 2:07:09 PM", u"Tuesday, March 05, 2024",
                                      u"3/5/2024", u"2:07:09 PM", u"14:07"};
  for (int32_t code = 0; code < 5; ++code) {
    SCOPED_TRACE(code);
    EXPECT_EQ(ToUtf8(FormatDateTime(Dt(kWhen), code)), ToUtf8(expected[code]));
  }
  EXPECT_EQ(FormatDateTime(T(u"2024-03-05")), u"3/5/2024");
  EXPECT_EQ(MonthName(1), u"January");
  EXPECT_EQ(MonthName(12, true), u"Dec");
  EXPECT_EQ(WeekdayName(1), u"Sunday");
  EXPECT_EQ(WeekdayName(1, true, 2), u"Mon");
  EXPECT_EQ(WeekdayName(7, false, 2), u"Sunday");
  EXPECT_EQ(WeekdayName(3, false, 0), u"Tuesday");
}

TEST(Format, Errors) {
  const Value array = Value::VariantArray({L(1)});
  const struct {
    const char* label;
    std::function<void()> call;
    int32_t error;
  } cases[] = {
      {"date past 9999", [] { Format(D(1e7), u"yyyy"); }, errors::kOverflow},
      {"Date kind past 9999", [] { Format(Dt(1e9), u"General Date"); }, errors::kOverflow},
      {"numeric text past 9999", [] { Format(T(u"1e9"), u"d"); }, errors::kOverflow},
      {"NaN as a date", [] { Format(D(std::nan("")), u"yyyy"); }, errors::kOverflow},
      {"infinity as a number", [] { Format(D(std::numeric_limits<double>::infinity()), u"0"); },
       errors::kOverflow},
      {"Nothing", [] { Format(Value::Nothing(), u"0"); }, errors::kTypeMismatch},
      {"array, numeric", [&] { Format(array, u"0"); }, errors::kTypeMismatch},
      {"array, text", [&] { Format(array, u"@"); }, errors::kTypeMismatch},
      {"first day of week", [] { Format(L(1), u"w", 8); }, errors::kInvalidProcedureCall},
      {"first week of year", [] { Format(L(1), u"w", 1, 4); }, errors::kInvalidProcedureCall},
      {"FormatNumber Null", [] { FormatNumber(N); }, errors::kTypeMismatch},
      {"FormatNumber text", [] { FormatPercent(T(u"abc")); }, errors::kTypeMismatch},
      {"FormatCurrency array", [&] { FormatCurrency(array); }, errors::kTypeMismatch},
      {"digits -2", [] { FormatNumber(L(1), -2); }, errors::kInvalidProcedureCall},
      {"digits 256", [] { FormatNumber(L(1), 256); }, errors::kInvalidProcedureCall},
      {"bad tristate", [] { FormatNumber(L(1), -1, static_cast<Tristate>(1)); },
       errors::kInvalidProcedureCall},
      {"FormatDateTime 5", [] { FormatDateTime(L(1), 5); }, errors::kInvalidProcedureCall},
      {"FormatDateTime Null", [] { FormatDateTime(N); }, errors::kTypeMismatch},
      {"FormatDateTime text", [] { FormatDateTime(T(u"soon")); }, errors::kTypeMismatch},
      {"FormatDateTime range", [] { FormatDateTime(D(1e7)); }, errors::kOverflow},
      {"MonthName 0", [] { MonthName(0); }, errors::kInvalidProcedureCall},
      {"MonthName 13", [] { MonthName(13); }, errors::kInvalidProcedureCall},
      {"WeekdayName 8", [] { WeekdayName(8); }, errors::kInvalidProcedureCall},
      {"WeekdayName first day 8", [] { WeekdayName(1, false, 8); }, errors::kInvalidProcedureCall},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    EXPECT_RAISES(c.call(), c.error);
  }
}

}  // namespace
}  // namespace kestrel::runtime
