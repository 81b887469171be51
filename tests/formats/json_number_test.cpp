// Doubles read from JSON must be the correctly rounded value of their text
// whichever conversion path a number takes (one exact operation, the product
// with a 128-bit power of five, or the general conversion), so every row is
// checked bit for bit against the C library's strtod.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "kestrel/formats/json.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/collection.hpp"

namespace kestrel {
namespace {

// A number followed by this much text is read from vector loads; near the
// end of the text, one unit at a time. Decimals with a few whole digits
// take another vector path once a few units precede them. Each row below
// is read all three ways.
const std::u16string kPadding(48, u' ');
struct Place {
  const char16_t* before;
  bool padded;
  const char* name;
};
const Place kPlaces[] = {
    {u"", false, ""}, {u"", true, " (followed by blanks)"}, {u"   ", true, " (between blanks)"}};

Value OnlyItem(const JSON& json) {
  return *dynamic_cast<const Collection&>(*json.JSONObject().object()).begin();
}

TEST(JSON, DoublesAreCorrectlyRounded) {
  const char* const texts[] = {
      "0.0",
      "-0.0",
      "1.5",
      "0.1",
      "-65.613616999999977",
      "3.14159265358979323",
      "9007199254740993.0",  // 2^53 + 1: halfway between two Doubles
      "9007199254740995.0",  // 2^53 + 3: halfway, rounds up to even
      "1.00000000000000011102230246251565404236316680908203125",  // halfway, 55 digits
      "1.0000000000000002220446049250313080847263336181640625",   // 1 + 2^-52, exact
      "2.2250738585072011e-308",
      "4.9406564584124654e-324",
      "1.7976931348623157e308",
      "123456789012345678.9",    // 19 digits
      "1234567890123456789.01",  // 21 digits: the general conversion
      "0.000000000000000000001234",
      "1e22",
      "1e23",
      "1.5e-22",
      "8.5e27",
      "7.1e-27",
      "1.23456789e28",
      "4.35679e-28",
      "9999999999999999999e5",
      "12345.6789E+3",
      "1E-5",
      // Rounding up into the next power of two; the ends of the 128-bit powers.
      "9007199254740991.5",
      "1.9999999999999999",
      "123456789012345678e-27",
      "987654321987654321e27",
      // Runs of one to three digits ending inside one four-unit read.
      "123e-2",
      "45.678E1",
      "-7.0625",
      // Digit runs of 8, 9, 16 and 17 units on either side of the point;
      // numbers of 16 and 17 units (one or two 16-unit compares), and of
      // 31 and 32 (the longest the compares measure, and one more).
      "12345678.87654321",
      "-123456789.123456789",
      "0.1234567890123456",
      "1.2345678901234567",
      "9.999999999999999",
      "-9.9999999999999999",
      "0.00000000000000000000000000001",
      "0.000000000000000000000000000001",
      ".5",
      "-.25",
      // Three whole digits and sixteen after the point, the most one
      // multiply-add chain takes, and one more on either side.
      "-999.9999999999999999",
      "1000.000000000000001",
      "0.00000000000000005",
      "-0.0000000000000001",
      // The bits past the 53 kept of their top 64 are exactly one half:
      // those below decide.
      "54.4246018811743717",
      "-1.6414516223453820",
  };
  for (const char* t : texts) {
    for (const Place& place : kPlaces) {
      SCOPED_TRACE(std::string(t) + place.name);
      JSON json;
      ASSERT_TRUE(json.Parse(u"[" + std::u16string(place.before) + FromUtf8(t) +
                             (place.padded ? kPadding : u"") + u"]"))
          << ToUtf8(json.ParseError());
      const Value v = OnlyItem(json);
      ASSERT_EQ(v.kind(), Kind::kDouble);
      EXPECT_EQ(std::bit_cast<uint64_t>(v.dbl()), std::bit_cast<uint64_t>(std::strtod(t, nullptr)));
    }
  }
}

// Numbers split across the paths at their edges: the kind and value each
// text must give, or the failure that ends its array.
TEST(JSON, IntegerEdges) {
  const struct {
    const char16_t* text;
    bool large;
    Kind kind;
    int64_t value;
  } cases[] = {
      {u"-2147483648", false, Kind::kLong, INT32_MIN},
      {u"-0", false, Kind::kLong, 0},
      {u"000000000000000000042", false, Kind::kLong, 42},  // 21 digits, small value
      {u"2147483648", true, Kind::kLongLong, 2147483648},
      // 8 and 9 digits, 16 and 17: one or two vector loads per run.
      {u"12345678", false, Kind::kLong, 12345678},
      {u"-123456789", false, Kind::kLong, -123456789},
      {u"1234567890123456", true, Kind::kLongLong, 1234567890123456},
      {u"-12345678901234567", true, Kind::kLongLong, -12345678901234567},
      {u"-999999999999999999", true, Kind::kLongLong, -999999999999999999},
      {u"9223372036854775807", true, Kind::kLongLong, INT64_MAX},
  };
  for (const auto& c : cases) {
    for (const Place& place : kPlaces) {
      SCOPED_TRACE(ToUtf8(c.text) + place.name);
      JSON json;
      json.SetLargeIntegers(c.large);
      ASSERT_TRUE(json.Parse(u"[" + std::u16string(place.before) + c.text +
                             (place.padded ? kPadding : u"") + u"]"));
      const Value v = OnlyItem(json);
      ASSERT_EQ(v.kind(), c.kind);
      EXPECT_EQ(c.kind == Kind::kLong ? v.long_value() : v.long_long(), c.value);
    }
  }
  JSON json;
  EXPECT_FALSE(json.Parse(u"[2147483648]"));
  EXPECT_EQ(json.ParseError(), u"Overflow: ]\r\n");
}

}  // namespace
}  // namespace kestrel
