#include "kestrel/runtime/compare.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/object.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/convert.hpp"
#include "runtime_error_matchers.hpp"
#include "value_matchers.hpp"

namespace kestrel::runtime {
namespace {

using namespace kestrel::testing;

constexpr Ordering kLt = Ordering::kLess, kEq = Ordering::kEqual, kGt = Ordering::kGreater,
                   kNul = Ordering::kNull;

int Int(Ordering o) {
  return static_cast<int>(o);
}

TEST(Compare, BinaryAndTextModes) {
  struct Case {
    Value a, b;
    Ordering binary, text;
  };
  // clang-format off
  const std::vector<Case> cases = {
      // Binary is code-unit order (upper case first); text folds case fully.
      {T(u"a"), T(u"B"), kGt, kLt},                {T(u"A"), T(u"a"), kLt, kEq},
      {T(u"\u00e9"), T(u"\u00c9"), kGt, kEq},      {T(u"\u00df"), T(u"SS"), kGt, kEq},
      {T(u"a\u00df"), T(u"ASSx"), kGt, kLt},
      {T(u"\u00e0"), T(u"a"), kGt, kGt},  // an accent sorts after the bare letter
      // Supplementary characters: code units in binary, code points in text.
      {T(u"\U0001F600"), T(u"\uFFFF"), kLt, kGt},
      // Trailing blanks and embedded NULs count.
      {T(u"abc"), T(u"ABC "), kGt, kLt},  {T(std::u16string_view(u"a\0b", 3)), T(u"a"), kGt, kGt},
      // A number is below every String and never equal to one.
      {I(1), T(u"1"), kLt, kLt},                   {D(1e300), T(u""), kLt, kLt},
      // Empty is 0 against numbers, "" against Strings.
      {E, I(0), kEq, kEq},  {E, T(u""), kEq, kEq},  {E, E, kEq, kEq},
      // Numbers by value, across kinds.
      {B(255), I(-1), kGt, kGt},                   {Value(true), I(-1), kEq, kEq},
      {S(0.1f), D(0.1), kGt, kGt},  // the Single is the nearest float, above 0.1
      {Dt(45000), L(45000), kEq, kEq},
      // LongLong is compared exactly, not through Double.
      {LL(INT64_MAX), LL(INT64_MAX - 1), kGt, kGt},
      {LL((int64_t{1} << 53) + 1), D(9007199254740992.0), kGt, kGt},
      {D(9223372036854775808.0), LL(INT64_MAX), kGt, kGt},
      {LL(INT64_MIN), D(-9223372036854775808.0), kEq, kEq},  {LL(-3), D(-3.5), kGt, kGt},
      // Null on either side.
      {N, I(1), kNul, kNul},  {T(u"a"), N, kNul, kNul},  {N, E, kNul, kNul},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(Describe(c.a) + " vs " + Describe(c.b));
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
  for (const Value& bad :
       {Value::Missing(), Value::ErrorCode(5), Value::Nothing(), Value(MakeRef<Probe>()),
        Value::VariantArray({I(1)}), Value::UnallocatedArray(Kind::kString)}) {
    SCOPED_TRACE(Describe(bad));
    for (const Value& other : {I(1), T(u""), E, N, bad}) {
      EXPECT_RAISES(Compare(bad, other), errors::kTypeMismatch);
      EXPECT_RAISES(Compare(other, bad, CompareMethod::kText), errors::kTypeMismatch);
    }
  }
}

TEST(Compare, IsEqualIsSameObjectAndModes) {
  EXPECT_TRUE(IsEqual(T(u"abc"), T(u"ABC"), CompareMethod::kText));
  EXPECT_FALSE(IsEqual(T(u"abc"), T(u"ABC")));
  EXPECT_FALSE(IsEqual(N, N));  // Null counts as False
  EXPECT_FALSE(IsEqual(I(0), T(u"0")));
  Ref<Probe> one = MakeRef<Probe>();
  EXPECT_TRUE(IsSameObject(Value(one), Value(one)));
  EXPECT_FALSE(IsSameObject(Value(one), Value(MakeRef<Probe>())));
  EXPECT_FALSE(IsSameObject(Value(one), Value::Nothing()));
  EXPECT_TRUE(IsSameObject(Value::Nothing(), Value::Nothing()));
  EXPECT_RAISES(IsSameObject(I(1), Value(one)), errors::kObjectRequired);
  EXPECT_RAISES(IsSameObject(Value::Nothing(), E), errors::kObjectRequired);
  EXPECT_EQ(ToCompareMethod(0), CompareMethod::kBinary);
  EXPECT_EQ(ToCompareMethod(1), CompareMethod::kText);
  EXPECT_EQ(ToCompareMethod(2), CompareMethod::kDatabase);
  for (int mode : {-1, 3}) EXPECT_RAISES(ToCompareMethod(mode), errors::kInvalidProcedureCall);
}

// The sorting predicate must agree with Compare on its fast paths and off them.
TEST(LessThan, AgreesWithCompare) {
  const Value values[] = {Value(1.5),  Value(-2.0),       Value(u"b"),     Value(u"B"),
                          Value(2),    Value(int16_t{1}), Value(),         Value(u""),
                          Value(true), Value::Null(),     Value::Date(1.0)};
  for (CompareMethod mode : {CompareMethod::kBinary, CompareMethod::kText}) {
    for (const Value& a : values) {
      for (const Value& b : values) {
        SCOPED_TRACE(ToUtf8(u"(" + (a.IsNull() ? u"Null" : ToText(a)) + u", " +
                            (b.IsNull() ? u"Null" : ToText(b)) + u")"));
        EXPECT_EQ(LessThan{mode}(a, b), Compare(a, b, mode) == Ordering::kLess);
      }
    }
  }
}

}  // namespace
}  // namespace kestrel::runtime
