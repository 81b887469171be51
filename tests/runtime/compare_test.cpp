#include "kestrel/runtime/compare.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/object.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/frame/value.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel::runtime {
namespace {

Value I(int16_t v) { return Value(v); }
Value L(int32_t v) { return Value(v); }
Value LL(int64_t v) { return Value(v); }
Value B(uint8_t v) { return Value(v); }
Value S(float v) { return Value(v); }
Value D(double v) { return Value(v); }
Value Dt(double serial) { return Value::Date(serial); }
Value T(std::u16string_view text) { return Value(text); }
const Value E;
const Value N = Value::Null();

constexpr Ordering kLt = Ordering::kLess;
constexpr Ordering kEq = Ordering::kEqual;
constexpr Ordering kGt = Ordering::kGreater;
constexpr Ordering kNul = Ordering::kNull;

struct Case {
  Value a;
  Value b;
  Ordering binary;
  Ordering text;
};

std::string Describe(const Value& v) {
  std::string s = "kind " + std::to_string(v.code());
  if (v.IsString()) s += " \"" + ToUtf8(v.string()) + "\"";
  return s;
}

int Int(Ordering o) { return static_cast<int>(o); }

TEST(Compare, BinaryAndTextModes) {
  const std::vector<Case> cases = {
      // Binary is code-unit order (upper case first); text folds case fully.
      {T(u"a"), T(u"B"), kGt, kLt},
      {T(u"A"), T(u"a"), kLt, kEq},
      {T(u"Z"), T(u"a"), kLt, kGt},
      {T(u"a"), T(u"b"), kLt, kLt},
      {T(u"\u00e9"), T(u"\u00c9"), kGt, kEq},
      {T(u"\u00df"), T(u"SS"), kGt, kEq},
      {T(u"stra\u00dfe"), T(u"STRASSE"), kGt, kEq},
      {T(u"a\u00df"), T(u"ASSx"), kGt, kLt},
      {T(u"abc\u00c4"), T(u"ABC\u00e4"), kGt, kEq},
      // Supplementary characters: code units in binary, code points in text.
      {T(u"\U0001F600"), T(u"\uFFFF"), kLt, kGt},
      // Trailing blanks and embedded NULs count.
      {T(u"abc "), T(u"abc"), kGt, kGt},
      {T(u"abc"), T(u"ABC "), kGt, kLt},
      {T(std::u16string_view(u"a\0b", 3)), T(u"a"), kGt, kGt},
      {T(u""), T(u""), kEq, kEq},
      {T(u""), T(u"a"), kLt, kLt},
      // A number is below every String and never equal to one.
      {I(1), T(u"1"), kLt, kLt},
      {T(u"1"), D(1), kGt, kGt},
      {D(1e300), T(u""), kLt, kLt},
      {Dt(45000), T(u"a"), kLt, kLt},
      // Empty is 0 against numbers, "" against Strings.
      {E, I(0), kEq, kEq},
      {E, D(-0.5), kGt, kGt},
      {B(0), E, kEq, kEq},
      {E, Value(false), kEq, kEq},
      {E, Value(true), kGt, kGt},
      {E, T(u""), kEq, kEq},
      {E, T(u"a"), kLt, kLt},
      {T(u" "), E, kGt, kGt},
      {E, E, kEq, kEq},
      // Numbers by value, across kinds.
      {I(1), D(1), kEq, kEq},
      {I(2), D(1.5), kGt, kGt},
      {B(255), I(-1), kGt, kGt},
      {Value(true), I(-1), kEq, kEq},
      {S(0.5f), D(0.5), kEq, kEq},
      {S(0.1f), D(0.1), kGt, kGt},  // the Single is the nearest float, above 0.1
      {Dt(45000), L(45000), kEq, kEq},
      {Dt(45000.5), L(45000), kGt, kGt},
      {LL(-5), L(-5), kEq, kEq},
      // LongLong is compared exactly, not through Double.
      {LL(INT64_MAX), LL(INT64_MAX - 1), kGt, kGt},
      {LL((int64_t{1} << 53) + 1), D(9007199254740992.0), kGt, kGt},
      {D(9223372036854775808.0), LL(INT64_MAX), kGt, kGt},
      {LL(INT64_MIN), D(-9223372036854775808.0), kEq, kEq},
      {LL(3), D(3.5), kLt, kLt},
      {LL(-3), D(-3.5), kGt, kGt},
      // Null on either side.
      {N, I(1), kNul, kNul},
      {T(u"a"), N, kNul, kNul},
      {N, N, kNul, kNul},
      {N, E, kNul, kNul},
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    const Case& c = cases[i];
    SCOPED_TRACE("row " + std::to_string(i) + ": " + Describe(c.a) + ", " + Describe(c.b));
    EXPECT_EQ(Int(Compare(c.a, c.b, CompareMethod::kBinary)), Int(c.binary));
    EXPECT_EQ(Int(Compare(c.a, c.b, CompareMethod::kText)), Int(c.text));
    EXPECT_EQ(Int(Compare(c.a, c.b, CompareMethod::kDatabase)), Int(c.text));
    if (c.a.IsString() && c.b.IsString()) {
      EXPECT_EQ(StrComp(c.a.string(), c.b.string(), CompareMethod::kBinary), Int(c.binary));
      EXPECT_EQ(StrComp(c.a.string(), c.b.string(), CompareMethod::kText), Int(c.text));
    }
  }
}

class Probe final : public Object {
 public:
  std::u16string_view TypeName() const noexcept override { return u"Probe"; }
  Value Invoke(std::u16string_view, CallKind, std::span<Value>) override {
    RaiseStandard(errors::kMemberNotSupported);
  }
};

TEST(Compare, RefusesKindsWithoutAnOrder) {
  Ref<Probe> probe = MakeRef<Probe>();
  const std::vector<Value> unusable = {Value::Missing(), Value::ErrorCode(5), Value::Nothing(),
                                       Value(probe), Value::VariantArray({I(1)}),
                                       Value::UnallocatedArray(Kind::kString)};
  for (const Value& bad : unusable) {
    SCOPED_TRACE(Describe(bad));
    for (const Value& other : {I(1), T(u""), E, N, bad}) {
      EXPECT_RAISES(Compare(bad, other), errors::kTypeMismatch);
      EXPECT_RAISES(Compare(other, bad, CompareMethod::kText), errors::kTypeMismatch);
    }
  }
}

TEST(Compare, IsEqualTreatsNullAsFalse) {
  EXPECT_TRUE(IsEqual(T(u"abc"), T(u"ABC"), CompareMethod::kText));
  EXPECT_FALSE(IsEqual(T(u"abc"), T(u"ABC")));
  EXPECT_FALSE(IsEqual(N, N));
  EXPECT_FALSE(IsEqual(I(0), T(u"0")));
}

TEST(Compare, OrdersASortOfMixedValues) {
  std::vector<Value> values = {T(u"b"), D(2.5), T(u"B"), I(-1), T(u""), LL(3), T(u"a"),
                               Value(true), S(0.5f)};
  std::sort(values.begin(), values.end(), [](const Value& x, const Value& y) {
    return Compare(x, y) == Ordering::kLess;
  });
  // True (-1) and Integer -1 are equal; sort is not stable, so check them by value.
  EXPECT_EQ(Int(Compare(values[0], I(-1))), Int(kEq));
  EXPECT_EQ(Int(Compare(values[1], I(-1))), Int(kEq));
  EXPECT_EQ(values[2].single(), 0.5f);
  EXPECT_EQ(values[3].dbl(), 2.5);
  EXPECT_EQ(values[4].long_long(), 3);
  std::u16string order;
  for (size_t i = 5; i < values.size(); ++i) order += std::u16string(values[i].string()) + u"|";
  EXPECT_EQ(ToUtf8(order), "|B|a|b|");
}

TEST(ToCompareMethod, AcceptsTheThreeModes) {
  EXPECT_EQ(ToCompareMethod(0), CompareMethod::kBinary);
  EXPECT_EQ(ToCompareMethod(1), CompareMethod::kText);
  EXPECT_EQ(ToCompareMethod(2), CompareMethod::kDatabase);
  EXPECT_RAISES(ToCompareMethod(-1), errors::kInvalidProcedureCall);
  EXPECT_RAISES(ToCompareMethod(3), errors::kInvalidProcedureCall);
}

TEST(StrComp, ReturnsMinusOneZeroOrOne) {
  EXPECT_EQ(StrComp(u"a", u"zzz"), -1);
  EXPECT_EQ(StrComp(u"zzz", u"a"), 1);
  EXPECT_EQ(StrComp(u"\u00e0", u"a", CompareMethod::kText), 1);
  EXPECT_EQ(StrComp(u"a", u"\u00e0", CompareMethod::kText), -1);
  EXPECT_EQ(StrComp(u"\u00c0BC", u"\u00e0bc", CompareMethod::kText), 0);
}

TEST(IsSameObject, ComparesIdentity) {
  Ref<Probe> one = MakeRef<Probe>();
  Ref<Probe> two = MakeRef<Probe>();
  EXPECT_TRUE(IsSameObject(Value(one), Value(one)));
  EXPECT_FALSE(IsSameObject(Value(one), Value(two)));
  EXPECT_FALSE(IsSameObject(Value(one), Value::Nothing()));
  EXPECT_TRUE(IsSameObject(Value::Nothing(), Value::Nothing()));
  EXPECT_RAISES(IsSameObject(I(1), Value(one)), errors::kObjectRequired);
  EXPECT_RAISES(IsSameObject(Value::Nothing(), E), errors::kObjectRequired);
  EXPECT_RAISES(IsSameObject(N, N), errors::kObjectRequired);
}

}  // namespace
}  // namespace kestrel::runtime
