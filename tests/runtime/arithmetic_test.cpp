#include "kestrel/runtime/arithmetic.hpp"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/frame/value.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel::runtime {
namespace {

// Typed operands: a bare literal would pick the wrong kind (3 is a Long).
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
const Value kTrue(true);
const Value kFalse(false);
Value Missing() { return Value::Missing(); }
Value Nothing() { return Value::Nothing(); }
Value Array() { return Value::VariantArray({I(1)}); }

// Marks a row that raises: the error number is the last column.
constexpr Kind kRaises = static_cast<Kind>(0xFFFF);

struct Case {
  Value a;
  Value b;
  Kind kind;         // expected result kind, or kRaises
  Value want;        // expected value (its own kind is not looked at)
  int32_t error = 0; // expected error number for kRaises
};

std::string Describe(const Value& v) {
  std::string s = "kind " + std::to_string(v.code());
  if (v.IsString()) return s + " \"" + ToUtf8(v.string()) + "\"";
  switch (v.kind()) {
    case Kind::kInteger:
    case Kind::kBoolean: return s + " " + std::to_string(v.integer());
    case Kind::kLong: return s + " " + std::to_string(v.long_value());
    case Kind::kLongLong: return s + " " + std::to_string(v.long_long());
    case Kind::kByte: return s + " " + std::to_string(v.byte());
    case Kind::kSingle: return s + " " + std::to_string(v.single());
    case Kind::kDouble:
    case Kind::kDate: return s + " " + std::to_string(v.dbl());
    default: return s;
  }
}

// The number a numeric value holds, exactly (long double has 64 mantissa
// bits on x86-64, so LongLong values survive).
long double NumberOf(const Value& v) {
  switch (v.kind()) {
    case Kind::kInteger:
    case Kind::kBoolean: return v.integer();
    case Kind::kLong: return v.long_value();
    case Kind::kLongLong: return static_cast<long double>(v.long_long());
    case Kind::kByte: return v.byte();
    case Kind::kSingle: return v.single();
    case Kind::kDouble:
    case Kind::kDate: return v.dbl();
    default: return 0;
  }
}

void ExpectResult(const Value& got, Kind kind, const Value& want) {
  ASSERT_EQ(got.code(), static_cast<uint16_t>(kind)) << "got " << Describe(got);
  if (kind == Kind::kString) {
    EXPECT_EQ(ToUtf8(got.string()), ToUtf8(want.string()));
  } else if (kind != Kind::kNull && kind != Kind::kEmpty) {
    EXPECT_EQ(NumberOf(got), NumberOf(want)) << "got " << Describe(got);
  }
}

template <class Op>
void Walk(const std::vector<Case>& cases, Op op) {
  for (size_t i = 0; i < cases.size(); ++i) {
    const Case& c = cases[i];
    SCOPED_TRACE("row " + std::to_string(i) + ": " + Describe(c.a) + ", " + Describe(c.b));
    if (c.kind == kRaises) {
      EXPECT_RAISES(op(c.a, c.b), c.error);
    } else {
      ExpectResult(op(c.a, c.b), c.kind, c.want);
    }
  }
}

// Operands that no operator accepts, on either side, even next to Null.
void ExpectTypeMismatchForUnusableKinds(Value (*op)(const Value&, const Value&)) {
  for (const Value& bad : {Missing(), Value::ErrorCode(5), Nothing(), Array(),
                           Value::UnallocatedArray(Kind::kString)}) {
    SCOPED_TRACE(Describe(bad));
    EXPECT_RAISES(op(bad, I(1)), errors::kTypeMismatch);
    EXPECT_RAISES(op(T(u"1"), bad), errors::kTypeMismatch);
    EXPECT_RAISES(op(N, bad), errors::kTypeMismatch);
  }
}

constexpr int64_t kMaxLL = INT64_MAX;
constexpr int64_t kMinLL = INT64_MIN;
constexpr Kind kInt = Kind::kInteger;
constexpr Kind kLng = Kind::kLong;
constexpr Kind kLL = Kind::kLongLong;
constexpr Kind kByt = Kind::kByte;
constexpr Kind kSng = Kind::kSingle;
constexpr Kind kDbl = Kind::kDouble;
constexpr Kind kDat = Kind::kDate;
constexpr Kind kStr = Kind::kString;
constexpr Kind kNul = Kind::kNull;

TEST(Add, KindsValuesAndErrors) {
  Walk({
      {I(1), I(2), kInt, I(3)},
      {I(32767), I(1), kLng, L(32768)},
      {I(-32768), I(-1), kLng, L(-32769)},
      {L(INT32_MAX), L(1), kDbl, D(2147483648.0)},
      {L(INT32_MIN), I(-1), kDbl, D(-2147483649.0)},
      {B(1), B(2), kByt, B(3)},
      {B(200), B(100), kInt, I(300)},
      {B(1), I(1), kInt, I(2)},
      {I(1), L(1), kLng, L(2)},
      {L(1), LL(1), kLL, LL(2)},
      {LL(kMaxLL - 1), I(1), kLL, LL(kMaxLL)},
      {LL(kMaxLL), LL(1), kRaises, E, errors::kOverflow},
      {LL(kMinLL), I(-1), kRaises, E, errors::kOverflow},
      {S(1.5f), S(2.25f), kSng, S(3.75f)},
      {S(0.1f), S(0.2f), kSng, S(0.1f + 0.2f)},
      {S(FLT_MAX), S(FLT_MAX), kDbl, D(2.0 * FLT_MAX)},
      {S(1.5f), I(1), kSng, S(2.5f)},
      {B(1), S(1.5f), kSng, S(2.5f)},
      {S(1.5f), kTrue, kSng, S(0.5f)},
      {S(1.5f), L(1), kDbl, D(2.5)},
      {LL(1), S(1.5f), kDbl, D(2.5)},
      {S(0.5f), D(0.25), kDbl, D(0.75)},
      {D(0.1), D(0.2), kDbl, D(0.1 + 0.2)},
      {D(1), LL(kMaxLL), kDbl, D(9223372036854775808.0)},
      {D(DBL_MAX), D(DBL_MAX), kRaises, E, errors::kOverflow},
      // Boolean counts as Integer: True + True is -2, never a Boolean.
      {kTrue, kTrue, kInt, I(-2)},
      {kTrue, kFalse, kInt, I(-1)},
      {kTrue, B(1), kInt, I(0)},
      // Empty takes the other side's kind.
      {E, E, kInt, I(0)},
      {E, B(7), kByt, B(7)},
      {I(7), E, kInt, I(7)},
      {E, L(7), kLng, L(7)},
      {E, LL(7), kLL, LL(7)},
      {S(7), E, kSng, S(7)},
      {E, D(7), kDbl, D(7)},
      {E, Dt(100), kDat, Dt(100)},
      {E, kTrue, kInt, I(-1)},
      // Strings: two concatenate; Empty + String is the String; a String and
      // a number add as Doubles.
      {T(u"a"), T(u"b"), kStr, T(u"ab")},
      {T(u"1"), T(u"2"), kStr, T(u"12")},
      {T(u""), T(u""), kStr, T(u"")},
      {E, T(u"a"), kStr, T(u"a")},
      {T(u"a"), E, kStr, T(u"a")},
      {T(u"1"), I(2), kDbl, D(3)},
      {B(2), T(u"1.5"), kDbl, D(3.5)},
      {T(u" 3 "), S(1), kDbl, D(4)},
      {T(u"1"), kTrue, kDbl, D(0)},
      {T(u"a"), I(1), kRaises, E, errors::kTypeMismatch},
      {T(u""), I(1), kRaises, E, errors::kTypeMismatch},
      {I(1), T(u""), kRaises, E, errors::kTypeMismatch},
      // Dates stay Dates, within years 100 to 9999.
      {Dt(45000), I(1), kDat, Dt(45001)},
      {I(1), Dt(45000), kDat, Dt(45001)},
      {Dt(45000), D(0.5), kDat, Dt(45000.5)},
      {Dt(1), Dt(2), kDat, Dt(3)},
      {Dt(45000), T(u"1"), kDat, Dt(45001)},
      {Dt(2958465), D(0.5), kDat, Dt(2958465.5)},
      {Dt(2958465), I(1), kRaises, E, errors::kOverflow},
      {Dt(-657434), I(-1), kRaises, E, errors::kOverflow},
      // Null wins over everything usable.
      {N, I(1), kNul, E},
      {D(1), N, kNul, E},
      {N, N, kNul, E},
      {N, T(u"a"), kNul, E},
      {E, N, kNul, E},
  }, Add);
  ExpectTypeMismatchForUnusableKinds(Add);
}

TEST(Subtract, KindsValuesAndErrors) {
  Walk({
      {I(1), I(2), kInt, I(-1)},
      {I(-32768), I(1), kLng, L(-32769)},
      {B(5), B(3), kByt, B(2)},
      {B(1), B(2), kInt, I(-1)},
      {L(INT32_MIN), L(1), kDbl, D(-2147483649.0)},
      {LL(kMinLL), LL(1), kRaises, E, errors::kOverflow},
      {LL(5), L(7), kLL, LL(-2)},
      {S(1), S(0.25f), kSng, S(0.75f)},
      {D(1), D(0.75), kDbl, D(0.25)},
      {kFalse, kTrue, kInt, I(1)},
      {Dt(45001), Dt(45000), kDbl, D(1)},
      {Dt(45000.75), Dt(45000.25), kDbl, D(0.5)},
      {Dt(45000), I(1), kDat, Dt(44999)},
      {Dt(-657434), I(1), kRaises, E, errors::kOverflow},
      {T(u"5"), T(u"3"), kDbl, D(2)},
      {T(u"3"), E, kDbl, D(3)},
      {E, T(u"3"), kDbl, D(-3)},
      {T(u"a"), T(u"b"), kRaises, E, errors::kTypeMismatch},
      {E, E, kInt, I(0)},
      {E, B(0), kByt, B(0)},
      {E, B(5), kInt, I(-5)},
      {N, I(1), kNul, E},
  }, Subtract);
  ExpectTypeMismatchForUnusableKinds(Subtract);
}

TEST(Multiply, KindsValuesAndErrors) {
  Walk({
      {I(2), I(3), kInt, I(6)},
      {I(200), I(200), kLng, L(40000)},
      {I(-32768), I(-32768), kLng, L(1073741824)},
      {B(15), B(17), kByt, B(255)},
      {B(16), B(16), kInt, I(256)},
      {B(255), B(255), kLng, L(65025)},
      {L(65536), L(65536), kDbl, D(4294967296.0)},
      {LL(int64_t{1} << 31), LL(int64_t{1} << 31), kLL, LL(int64_t{1} << 62)},
      {LL(int64_t{1} << 32), L(INT32_MIN), kLL, LL(kMinLL)},
      {LL(int64_t{1} << 32), LL(int64_t{1} << 31), kRaises, E, errors::kOverflow},
      {S(2), S(0.25f), kSng, S(0.5f)},
      {S(1e30f), S(1e30f), kDbl, D(double{1e30f} * double{1e30f})},
      {S(2), L(3), kDbl, D(6)},
      {D(1e200), D(1e200), kRaises, E, errors::kOverflow},
      {Dt(2), I(3), kDbl, D(6)},
      {T(u"2"), T(u"3"), kDbl, D(6)},
      {kTrue, kTrue, kInt, I(1)},
      {E, B(5), kByt, B(0)},
      {E, E, kInt, I(0)},
      {I(1), N, kNul, E},
  }, Multiply);
  ExpectTypeMismatchForUnusableKinds(Multiply);
}

TEST(Divide, KindsValuesAndErrors) {
  Walk({
      {I(7), I(2), kDbl, D(3.5)},
      {B(7), B(2), kDbl, D(3.5)},
      {L(7), L(2), kDbl, D(3.5)},
      {LL(10), LL(4), kDbl, D(2.5)},
      {kTrue, kTrue, kDbl, D(1)},
      {D(1), D(3), kDbl, D(1.0 / 3.0)},
      // Single stays Single only with Single, Byte, Integer or Boolean.
      {S(7), S(2), kSng, S(3.5f)},
      {S(1), I(3), kSng, S(1.0f / 3.0f)},
      {I(1), S(4), kSng, S(0.25f)},
      {S(1), B(2), kSng, S(0.5f)},
      {S(7), L(2), kDbl, D(3.5)},
      {S(7), D(2), kDbl, D(3.5)},
      {S(FLT_MAX), S(0.5f), kDbl, D(2.0 * FLT_MAX)},
      {Dt(45000), I(2), kDbl, D(22500)},
      {T(u"1"), T(u"4"), kDbl, D(0.25)},
      {E, I(5), kDbl, D(0)},
      {D(1e300), D(1e-300), kRaises, E, errors::kOverflow},
      {I(1), I(0), kRaises, E, errors::kDivisionByZero},
      {I(5), E, kRaises, E, errors::kDivisionByZero},
      {I(0), I(0), kRaises, E, errors::kOverflow},
      {D(0), E, kRaises, E, errors::kOverflow},
      {T(u"x"), I(1), kRaises, E, errors::kTypeMismatch},
      {N, I(0), kNul, E},
  }, Divide);
  ExpectTypeMismatchForUnusableKinds(Divide);
}

TEST(IntDivide, RoundsOperandsFirstAndPicksAnIntegerKind) {
  Walk({
      {I(7), I(2), kInt, I(3)},
      {I(-7), I(2), kInt, I(-3)},
      {B(7), B(2), kInt, I(3)},
      {kTrue, I(1), kInt, I(-1)},
      {E, I(1), kInt, I(0)},
      {I(-32768), I(-1), kLng, L(32768)},
      {L(100000), I(3), kLng, L(33333)},
      // 5.5 rounds to 6, 4.5 to 4, 2.5 to 2: ties go to even.
      {D(5.5), I(2), kLng, L(3)},
      {D(4.5), I(2), kLng, L(2)},
      {D(7), D(2.5), kLng, L(3)},
      {S(7.5f), I(1), kLng, L(8)},
      {Dt(45000.6), I(1), kLng, L(45001)},
      {T(u"7"), T(u"2"), kLng, L(3)},
      {LL(7), I(2), kLL, LL(3)},
      {LL(kMaxLL), LL(2), kLL, LL(kMaxLL / 2)},
      {L(INT32_MIN), L(-1), kRaises, E, errors::kOverflow},
      {LL(kMinLL), LL(-1), kRaises, E, errors::kOverflow},
      {D(1e10), I(2), kRaises, E, errors::kOverflow},
      {I(5), I(0), kRaises, E, errors::kDivisionByZero},
      {I(5), D(0.4), kRaises, E, errors::kDivisionByZero},
      {I(0), I(0), kRaises, E, errors::kDivisionByZero},
      {T(u""), I(1), kRaises, E, errors::kTypeMismatch},
      {N, I(0), kNul, E},
  }, IntDivide);
  ExpectTypeMismatchForUnusableKinds(IntDivide);
}

TEST(Mod, SignFollowsTheDividend) {
  Walk({
      {I(7), I(3), kInt, I(1)},
      {I(-7), I(3), kInt, I(-1)},
      {I(7), I(-3), kInt, I(1)},
      {B(7), B(4), kInt, I(3)},
      {I(-32768), I(-1), kInt, I(0)},
      {E, I(3), kInt, I(0)},
      {L(-7), L(3), kLng, L(-1)},
      // 2.5 rounds to 2 and 5.5 to 6 before the division.
      {D(7), D(2.5), kLng, L(1)},
      {D(5.5), I(4), kLng, L(2)},
      {T(u"8"), I(3), kLng, L(2)},
      {LL(-7), I(3), kLL, LL(-1)},
      {LL(kMinLL), LL(-1), kLL, LL(0)},
      {I(5), I(0), kRaises, E, errors::kDivisionByZero},
      {I(5), D(0.5), kRaises, E, errors::kDivisionByZero},
      {D(3e9), I(2), kRaises, E, errors::kOverflow},
      {T(u"a"), I(2), kRaises, E, errors::kTypeMismatch},
      {N, I(3), kNul, E},
  }, Mod);
  ExpectTypeMismatchForUnusableKinds(Mod);
}

TEST(Power, AlwaysDouble) {
  Walk({
      {I(2), I(3), kDbl, D(8)},
      {B(2), B(8), kDbl, D(256)},
      {I(2), D(0.5), kDbl, D(std::sqrt(2.0))},
      {I(4), D(-0.5), kDbl, D(0.5)},
      {I(-2), I(3), kDbl, D(-8)},
      {I(-2), D(2), kDbl, D(4)},
      {I(0), I(0), kDbl, D(1)},
      {E, E, kDbl, D(1)},
      {T(u"2"), T(u"10"), kDbl, D(1024)},
      {S(2), kTrue, kDbl, D(0.5)},
      {I(-8), D(1.0 / 3.0), kRaises, E, errors::kInvalidProcedureCall},
      {I(0), I(-1), kRaises, E, errors::kInvalidProcedureCall},
      {D(10), I(400), kRaises, E, errors::kOverflow},
      {N, I(2), kNul, E},
      {I(2), N, kNul, E},
  }, Power);
  ExpectTypeMismatchForUnusableKinds(Power);
}

TEST(Negate, PromotesWhereTheRangeIsNotSymmetric) {
  const std::vector<Case> cases = {
      {I(5), E, kInt, I(-5)},
      {I(-32768), E, kLng, L(32768)},
      {L(5), E, kLng, L(-5)},
      {L(INT32_MIN), E, kDbl, D(2147483648.0)},
      {B(5), E, kInt, I(-5)},
      {B(0), E, kInt, I(0)},
      {LL(5), E, kLL, LL(-5)},
      {LL(kMinLL), E, kRaises, E, errors::kOverflow},
      {S(1.5f), E, kSng, S(-1.5f)},
      {D(2.5), E, kDbl, D(-2.5)},
      {Dt(45000), E, kDat, Dt(-45000)},
      {Dt(2000000), E, kRaises, E, errors::kOverflow},
      {kTrue, E, kInt, I(1)},
      {E, E, kInt, I(0)},
      {N, E, kNul, E},
      {T(u"3"), E, kDbl, D(-3)},
      {T(u""), E, kRaises, E, errors::kTypeMismatch},
      {T(u"abc"), E, kRaises, E, errors::kTypeMismatch},
      {Missing(), E, kRaises, E, errors::kTypeMismatch},
      {Nothing(), E, kRaises, E, errors::kTypeMismatch},
      {Array(), E, kRaises, E, errors::kTypeMismatch},
  };
  Walk(cases, [](const Value& a, const Value&) { return Negate(a); });
}

TEST(Concat, JoinsTextForms) {
  Walk({
      {T(u"a"), T(u"b"), kStr, T(u"ab")},
      {T(std::u16string_view(u"a\0b", 3)), T(u"c"), kStr,
       T(std::u16string_view(u"a\0bc", 4))},
      {N, N, kNul, E},
      {N, T(u"a"), kStr, T(u"a")},
      {T(u"a"), N, kStr, T(u"a")},
      {N, E, kStr, T(u"")},
      {E, E, kStr, T(u"")},
      {I(1), I(2), kStr, T(u"12")},
      {LL(-5), B(7), kStr, T(u"-57")},
      {D(1.5), T(u"x"), kStr, T(u"1.5x")},
      {D(1e15), E, kStr, T(u"1E+15")},
      {kTrue, kFalse, kStr, T(u"TrueFalse")},
      {Dt(45000), E, kStr, T(u"3/15/2023")},
  }, Concat);
  ExpectTypeMismatchForUnusableKinds(Concat);
}

}  // namespace
}  // namespace kestrel::runtime
