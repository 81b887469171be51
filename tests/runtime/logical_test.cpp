#include "kestrel/runtime/logical.hpp"

#include <gtest/gtest.h>

#include <string>

#include "kestrel/frame/errors.hpp"
#include "runtime_error_matchers.hpp"
#include "value_matchers.hpp"

namespace kestrel::runtime {
namespace {

using namespace kestrel::testing;
using Op = Value (*)(const Value&, const Value&);

const Value kT(true), kF(false);
constexpr Kind kBool = Kind::kBoolean, kInt = Kind::kInteger, kLng = Kind::kLong,
               kLL = Kind::kLongLong, kByt = Kind::kByte, kNul = Kind::kNull;
constexpr Op And = LogicalAnd, Or = LogicalOr, Xor = LogicalXor, Eqv = LogicalEqv, Imp = LogicalImp;
Value Not(const Value& a, const Value&) {
  return LogicalNot(a);
}

TEST(LogicalOperators, KindsTruthTablesAndNull) {
  struct Case {
    Op op;
    Value a, b;
    Kind kind;
    Value want;
  };
  // clang-format off
  const Case cases[] = {
      // Boolean and Byte only in pairs; Single, Double, Date and text via CLng.
      {And, kT, kF, kBool, kF}, {And, I(12), I(10), kInt, I(8)}, {And, B(12), B(10), kByt, B(8)},
      {And, B(200), kT, kInt, I(200)}, {And, L(-1), I(5), kLng, L(5)},
      {And, D(2.5), I(3), kLng, L(2)}, {And, D(3.5), I(7), kLng, L(4)},
      {And, T(u"6"), I(3), kLng, L(2)}, {And, LL(-1), D(3), kLL, LL(3)}, {And, E, kT, kInt, I(0)},
      {Or, I(12), I(10), kInt, I(14)}, {Xor, I(12), I(10), kInt, I(6)}, {Xor, kT, kT, kBool, kF},
      {Eqv, kF, kF, kBool, kT}, {Eqv, I(12), I(10), kInt, I(-7)}, {Eqv, B(12), B(10), kByt, B(249)},
      {Imp, kT, kF, kBool, kF}, {Imp, kF, kT, kBool, kT}, {Imp, I(12), I(10), kInt, I(-5)},
      {Not, kT, E, kBool, kF}, {Not, E, E, kInt, I(-1)}, {Not, B(0), E, kByt, B(255)},
      {Not, D(2.5), E, kLng, L(-3)}, {Not, T(u"5"), E, kLng, L(-6)}, {Not, LL(0), E, kLL, LL(-1)},
      // Null: the known side decides only when every bit of it does.
      {And, N, kF, kBool, kF}, {And, kT, N, kNul, E}, {And, N, I(0), kInt, I(0)},
      {And, I(5), N, kNul, E}, {And, N, E, kInt, I(0)}, {And, N, N, kNul, E},
      {Or, N, kT, kBool, kT}, {Or, kF, N, kNul, E}, {Or, N, I(-1), kInt, I(-1)},
      {Or, B(255), N, kByt, B(255)}, {Or, N, I(3), kNul, E}, {Xor, N, kT, kNul, E},
      {Eqv, kT, N, kNul, E}, {Imp, kT, N, kNul, E}, {Imp, kF, N, kBool, kT},
      {Imp, N, kT, kBool, kT}, {Imp, N, kF, kNul, E}, {Imp, B(0), N, kByt, B(255)},
      {Imp, N, N, kNul, E}, {Not, N, E, kNul, E},
  };
  // clang-format on
  for (size_t i = 0; i < std::size(cases); ++i) {
    const Case& c = cases[i];
    SCOPED_TRACE("row " + std::to_string(i) + ": " + Describe(c.a) + ", " + Describe(c.b));
    ExpectKindAndValue(c.op(c.a, c.b), c.kind, c.want);
  }
}

TEST(LogicalOperators, RaiseForOperandsWithoutANumber) {
  for (const Op op : {And, Or, Xor, Eqv, Imp, Op{Not}}) {
    EXPECT_RAISES(op(D(3e9), I(1)), errors::kOverflow);
    EXPECT_RAISES(op(T(u""), N), errors::kTypeMismatch);
    EXPECT_RAISES(op(Value::Missing(), N), errors::kTypeMismatch);
    EXPECT_RAISES(op(Value::VariantArray({I(1)}), I(1)), errors::kTypeMismatch);
  }
  EXPECT_RAISES(And(N, Value::Nothing()), errors::kTypeMismatch);
}

}  // namespace
}  // namespace kestrel::runtime
