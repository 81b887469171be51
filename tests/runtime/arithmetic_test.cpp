#include "kestrel/runtime/arithmetic.hpp"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "kestrel/frame/errors.hpp"
#include "runtime_error_matchers.hpp"
#include "value_matchers.hpp"

namespace kestrel::runtime {
namespace {

using namespace kestrel::testing;
using BinaryOp = Value (*)(const Value&, const Value&);

const Value kTrue(true);

// Marks a row that raises: the error number is the last column.
constexpr Kind kRaises = static_cast<Kind>(0xFFFF);

struct Case {
  Value a, b;
  Kind kind;          // expected result kind, or kRaises
  Value want;         // expected value (its own kind is not looked at)
  int32_t error = 0;  // expected error number for kRaises
};

template <class Op>
void Walk(const std::vector<Case>& cases, Op op) {
  for (size_t i = 0; i < cases.size(); ++i) {
    const Case& c = cases[i];
    SCOPED_TRACE("row " + std::to_string(i) + ": " + Describe(c.a) + ", " + Describe(c.b));
    if (c.kind == kRaises) EXPECT_RAISES(op(c.a, c.b), c.error);
    else ExpectKindAndValue(op(c.a, c.b), c.kind, c.want);
  }
}

constexpr Kind kInt = Kind::kInteger, kLng = Kind::kLong, kLL = Kind::kLongLong,
               kByt = Kind::kByte, kSng = Kind::kSingle, kDbl = Kind::kDouble,
               kDat = Kind::kDate, kStr = Kind::kString, kNul = Kind::kNull;

TEST(Add, KindsValuesAndErrors) {
  Walk({
      {I(32767), I(1), kLng, L(32768)}, {L(INT32_MAX), L(1), kDbl, D(2147483648.0)},
      {B(1), B(2), kByt, B(3)}, {B(200), B(100), kInt, I(300)}, {L(1), LL(1), kLL, LL(2)},
      {LL(INT64_MAX - 1), I(1), kLL, LL(INT64_MAX)},
      {LL(INT64_MAX), LL(1), kRaises, E, errors::kOverflow},
      {S(FLT_MAX), S(FLT_MAX), kDbl, D(2.0 * FLT_MAX)}, {S(1.5f), I(1), kSng, S(2.5f)},
      {S(1.5f), L(1), kDbl, D(2.5)}, {D(1), LL(INT64_MAX), kDbl, D(9223372036854775808.0)},
      {D(DBL_MAX), D(DBL_MAX), kRaises, E, errors::kOverflow},
      // Boolean counts as Integer: True + True is -2, never a Boolean.
      {kTrue, kTrue, kInt, I(-2)}, {kTrue, B(1), kInt, I(0)},
      // Empty takes the other side's kind.
      {E, E, kInt, I(0)}, {E, Dt(100), kDat, Dt(100)},
      // Strings: two concatenate; Empty + String is the String; a String and
      // a number add as Doubles.
      {T(u"a"), T(u"b"), kStr, T(u"ab")}, {T(u"1"), T(u"2"), kStr, T(u"12")},
      {E, T(u"a"), kStr, T(u"a")}, {T(u"1"), I(2), kDbl, D(3)}, {T(u" 3 "), S(1), kDbl, D(4)},
      {T(u""), I(1), kRaises, E, errors::kTypeMismatch},
      // Dates stay Dates, within years 100 to 9999.
      {Dt(1), Dt(2), kDat, Dt(3)}, {Dt(2958465), D(0.5), kDat, Dt(2958465.5)},
      {Dt(2958465), I(1), kRaises, E, errors::kOverflow},
      // Null wins over everything usable.
      {N, I(1), kNul, E}, {N, T(u"a"), kNul, E}, {E, N, kNul, E},
  }, Add);
}

TEST(Subtract, KindsValuesAndErrors) {
  Walk({
      {I(-32768), I(1), kLng, L(-32769)}, {B(1), B(2), kInt, I(-1)},
      {L(INT32_MIN), L(1), kDbl, D(-2147483649.0)},
      {LL(INT64_MIN), LL(1), kRaises, E, errors::kOverflow}, {Dt(45001), Dt(45000), kDbl, D(1)},
      {Dt(-657434), I(1), kRaises, E, errors::kOverflow},
      {Dt(-657434), D(0.5), kDat, Dt(-657434.5)},  // noon of 1 January 100
      {E, T(u"3"), kDbl, D(-3)}, {T(u"a"), T(u"b"), kRaises, E, errors::kTypeMismatch},
      {E, B(0), kByt, B(0)}, {E, B(5), kInt, I(-5)}, {N, I(1), kNul, E},
  }, Subtract);
}

TEST(Multiply, KindsValuesAndErrors) {
  Walk({
      {I(200), I(200), kLng, L(40000)}, {B(15), B(17), kByt, B(255)}, {B(16), B(16), kInt, I(256)},
      {B(255), B(255), kLng, L(65025)}, {L(65536), L(65536), kDbl, D(4294967296.0)},
      {LL(int64_t{1} << 32), L(INT32_MIN), kLL, LL(INT64_MIN)},
      {LL(int64_t{1} << 32), LL(int64_t{1} << 31), kRaises, E, errors::kOverflow},
      {S(1e30f), S(1e30f), kDbl, D(double{1e30f} * double{1e30f})},
      {D(1e200), D(1e200), kRaises, E, errors::kOverflow}, {Dt(2), I(3), kDbl, D(6)},
      {I(1), N, kNul, E},
  }, Multiply);
}

TEST(Divide, KindsValuesAndErrors) {
  Walk({
      {I(7), I(2), kDbl, D(3.5)},
      // Single stays Single only with Single, Byte, Integer or Boolean.
      {S(1), I(3), kSng, S(1.0f / 3.0f)}, {S(7), L(2), kDbl, D(3.5)},
      {S(FLT_MAX), S(0.5f), kDbl, D(2.0 * FLT_MAX)}, {Dt(45000), I(2), kDbl, D(22500)},
      {D(1e300), D(1e-300), kRaises, E, errors::kOverflow},
      {I(1), I(0), kRaises, E, errors::kDivisionByZero},
      {I(5), E, kRaises, E, errors::kDivisionByZero}, {I(0), I(0), kRaises, E, errors::kOverflow},
      {N, I(0), kNul, E},
  }, Divide);
}

TEST(IntDivide, RoundsOperandsFirstAndPicksAnIntegerKind) {
  Walk({
      {I(-7), I(2), kInt, I(-3)}, {B(7), B(2), kInt, I(3)}, {I(-32768), I(-1), kLng, L(32768)},
      // 5.5 rounds to 6, 4.5 to 4, 2.5 to 2: ties go to even.
      {D(5.5), I(2), kLng, L(3)}, {D(4.5), I(2), kLng, L(2)}, {LL(7), I(2), kLL, LL(3)},
      {L(INT32_MIN), L(-1), kRaises, E, errors::kOverflow},
      {LL(INT64_MIN), LL(-1), kRaises, E, errors::kOverflow},
      {D(1e10), I(2), kRaises, E, errors::kOverflow},
      {I(5), D(0.4), kRaises, E, errors::kDivisionByZero},
      {I(0), I(0), kRaises, E, errors::kDivisionByZero}, {N, I(0), kNul, E},
  }, IntDivide);
}

TEST(Mod, SignFollowsTheDividend) {
  Walk({
      {I(-7), I(3), kInt, I(-1)}, {I(7), I(-3), kInt, I(1)}, {I(-32768), I(-1), kInt, I(0)},
      // 2.5 rounds to 2 and 5.5 to 6 before the division.
      {D(7), D(2.5), kLng, L(1)}, {D(5.5), I(4), kLng, L(2)}, {LL(-7), I(3), kLL, LL(-1)},
      {LL(INT64_MIN), LL(-1), kLL, LL(0)}, {I(5), D(0.5), kRaises, E, errors::kDivisionByZero},
      {D(3e9), I(2), kRaises, E, errors::kOverflow}, {N, I(3), kNul, E},
  }, Mod);
}

TEST(Power, AlwaysDouble) {
  Walk({
      {I(2), D(0.5), kDbl, D(std::sqrt(2.0))}, {I(-2), I(3), kDbl, D(-8)}, {I(0), I(0), kDbl, D(1)},
      {I(-8), D(1.0 / 3.0), kRaises, E, errors::kInvalidProcedureCall},
      {I(0), I(-1), kRaises, E, errors::kInvalidProcedureCall},
      {D(10), I(400), kRaises, E, errors::kOverflow}, {N, I(2), kNul, E},
  }, Power);
}

TEST(Negate, PromotesWhereTheRangeIsNotSymmetric) {
  Walk({
      {I(-32768), E, kLng, L(32768)}, {L(INT32_MIN), E, kDbl, D(2147483648.0)},
      {B(5), E, kInt, I(-5)}, {LL(INT64_MIN), E, kRaises, E, errors::kOverflow},
      {Dt(45000), E, kDat, Dt(-45000)}, {Dt(2000000), E, kRaises, E, errors::kOverflow},
      {kTrue, E, kInt, I(1)}, {N, E, kNul, E}, {T(u"3"), E, kDbl, D(-3)},
      {T(u""), E, kRaises, E, errors::kTypeMismatch},
  }, [](const Value& a, const Value&) { return Negate(a); });
}

TEST(Concat, JoinsTextForms) {
  Walk({
      {T(std::u16string_view(u"a\0b", 3)), T(u"c"), kStr, T(std::u16string_view(u"a\0bc", 4))},
      {N, N, kNul, E}, {N, T(u"a"), kStr, T(u"a")}, {N, E, kStr, T(u"")},
      {I(1), I(2), kStr, T(u"12")}, {D(1e15), E, kStr, T(u"1E+15")},
      {kTrue, Value(false), kStr, T(u"TrueFalse")}, {Dt(45000), E, kStr, T(u"3/15/2023")},
  }, Concat);
}

// clang-format off
TEST(Abs, KeepsTheKind) {
  Walk({
      {I(-5), E, kInt, I(5)}, {kTrue, E, kInt, I(1)}, {E, E, kInt, I(0)}, {B(7), E, kByt, B(7)},
      {L(-7), E, kLng, L(7)}, {LL(-7), E, kLL, LL(7)}, {S(-1.5f), E, kSng, S(1.5f)},
      {D(-2.5), E, kDbl, D(2.5)}, {Dt(-1.25), E, kDat, Dt(1.25)}, {T(u"-3"), E, kDbl, D(3)},
      {N, E, kNul, E}, {I(-32768), E, kRaises, E, errors::kOverflow},
      {L(INT32_MIN), E, kRaises, E, errors::kOverflow},
      {LL(INT64_MIN), E, kRaises, E, errors::kOverflow},
      {T(u"x"), E, kRaises, E, errors::kTypeMismatch},
  }, [](const Value& a, const Value&) { return Abs(a); });
}

TEST(Sgn, GivesAnInteger) {
  Walk({
      {D(-0.1), E, kInt, I(-1)}, {E, E, kInt, I(0)}, {LL(5), E, kInt, I(1)},
      {T(u" 2 "), E, kInt, I(1)}, {kTrue, E, kInt, I(-1)}, {Dt(-1), E, kInt, I(-1)},
      {N, E, kNul, E}, {T(u""), E, kRaises, E, errors::kTypeMismatch},
  }, [](const Value& a, const Value&) { return Sgn(a); });
}

// Round(a, b): b holds the number of decimals.
TEST(Round, HalfToEvenOnTheWrittenDecimal) {
  Walk({
      {D(2.675), I(2), kDbl, D(2.68)}, {D(2.665), I(2), kDbl, D(2.66)}, {D(2.5), I(0), kDbl, D(2)},
      {D(3.5), I(0), kDbl, D(4)}, {D(-2.5), I(0), kDbl, D(-2)}, {D(0.5), I(0), kDbl, D(0)},
      {D(0.15), I(1), kDbl, D(0.2)}, {D(0.25), I(1), kDbl, D(0.2)}, {D(0.05), I(1), kDbl, D(0)},
      {D(0.06), I(1), kDbl, D(0.1)}, {D(9.995), I(2), kDbl, D(10)},
      {D(1234.5678), I(2), kDbl, D(1234.57)}, {D(0.1 + 0.2), I(5), kDbl, D(0.3)},
      {D(1.2345678901234567), I(20), kDbl, D(1.23456789012346)},  // read to 15 digits
      {D(123456789012345678.0), I(0), kDbl, D(123456789012345678.0)},  // whole ones kept
      {D(-1e-5), I(2), kDbl, D(0)}, {S(2.675f), I(2), kSng, S(2.68f)},
      {T(u"2.5"), I(0), kDbl, D(2)}, {Dt(45000.5), I(0), kDat, Dt(45000)},
      {Dt(45000.75), I(0), kDat, Dt(45001)}, {I(7), I(2), kInt, I(7)}, {kTrue, I(0), kInt, I(-1)},
      {L(5), I(1), kLng, L(5)}, {E, I(0), kInt, I(0)}, {N, I(2), kNul, E},
      {N, I(-1), kRaises, E, errors::kInvalidProcedureCall},
      {D(1), I(-1), kRaises, E, errors::kInvalidProcedureCall},
      {T(u"a"), I(0), kRaises, E, errors::kTypeMismatch},
  }, [](const Value& a, const Value& b) { return Round(a, b.integer()); });
}
// clang-format on

// Operands that no operator accepts, on either side, even next to Null.
TEST(Operators, RefuseKindsWithoutANumberOrText) {
  const std::vector<BinaryOp> ops = {Add, Subtract, Multiply, Divide, IntDivide, Mod, Power, Concat};
  for (const Value& bad : {Value::Missing(), Value::ErrorCode(5), Value::Nothing(),
                           Value::VariantArray({I(1)}), Value::UnallocatedArray(Kind::kString)}) {
    SCOPED_TRACE(Describe(bad));
    for (auto unary : {Negate, Abs, Sgn}) EXPECT_RAISES(unary(bad), errors::kTypeMismatch);
    EXPECT_RAISES(Round(bad), errors::kTypeMismatch);
    for (size_t i = 0; i < ops.size(); ++i) {
      SCOPED_TRACE("operator " + std::to_string(i));
      EXPECT_RAISES(ops[i](bad, I(1)), errors::kTypeMismatch);
      EXPECT_RAISES(ops[i](T(u"1"), bad), errors::kTypeMismatch);
      EXPECT_RAISES(ops[i](N, bad), errors::kTypeMismatch);
    }
  }
}

}  // namespace
}  // namespace kestrel::runtime
