#include "kestrel/runtime/logical.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "kestrel/frame/errors.hpp"
#include "runtime_error_matchers.hpp"
#include "value_matchers.hpp"

namespace kestrel::runtime {
namespace {

using namespace kestrel::testing;
using BinaryOp = Value (*)(const Value&, const Value&);

const Value kT(true), kF(false);
constexpr Kind kBool = Kind::kBoolean, kInt = Kind::kInteger, kLng = Kind::kLong,
               kLL = Kind::kLongLong, kByt = Kind::kByte, kNul = Kind::kNull;

Value Not(const Value& a, const Value&) {
  return LogicalNot(a);
}

struct Case {
  BinaryOp op;
  Value a, b;
  Kind kind;
  Value want;
};

TEST(LogicalOperators, KindsTruthTablesAndNull) {
  const Case cases[] = {
      // Kinds: Boolean and Byte only in pairs; numbers and text via CLng.
      {LogicalAnd, kT, kF, kBool, kF},
      {LogicalAnd, I(12), I(10), kInt, I(8)},
      {LogicalAnd, B(12), B(10), kByt, B(8)},
      {LogicalAnd, B(200), kT, kInt, I(200)},
      {LogicalAnd, L(-1), I(5), kLng, L(5)},
      {LogicalAnd, D(2.5), I(3), kLng, L(2)},
      {LogicalAnd, D(3.5), I(7), kLng, L(4)},
      {LogicalAnd, T(u"6"), I(3), kLng, L(2)},
      {LogicalAnd, LL(-1), D(3), kLL, LL(3)},
      {LogicalAnd, E, kT, kInt, I(0)},
      {LogicalOr, I(12), I(10), kInt, I(14)},
      {LogicalXor, I(12), I(10), kInt, I(6)},
      {LogicalXor, kT, kT, kBool, kF},
      {LogicalEqv, kF, kF, kBool, kT},
      {LogicalEqv, I(12), I(10), kInt, I(-7)},
      {LogicalEqv, B(12), B(10), kByt, B(249)},
      {LogicalImp, kT, kF, kBool, kF},
      {LogicalImp, kF, kT, kBool, kT},
      {LogicalImp, I(12), I(10), kInt, I(-5)},
      {Not, kT, E, kBool, kF},
      {Not, E, E, kInt, I(-1)},
      {Not, B(0), E, kByt, B(255)},
      {Not, D(2.5), E, kLng, L(-3)},
      {Not, T(u"5"), E, kLng, L(-6)},
      {Not, LL(0), E, kLL, LL(-1)},
      // Null: the known side decides only when every bit of it does.
      {LogicalAnd, N, kF, kBool, kF},
      {LogicalAnd, kT, N, kNul, E},
      {LogicalAnd, N, I(0), kInt, I(0)},
      {LogicalAnd, I(5), N, kNul, E},
      {LogicalAnd, N, E, kInt, I(0)},
      {LogicalAnd, N, N, kNul, E},
      {LogicalOr, N, kT, kBool, kT},
      {LogicalOr, kF, N, kNul, E},
      {LogicalOr, N, I(-1), kInt, I(-1)},
      {LogicalOr, B(255), N, kByt, B(255)},
      {LogicalOr, N, I(3), kNul, E},
      {LogicalXor, N, kT, kNul, E},
      {LogicalEqv, kT, N, kNul, E},
      {LogicalImp, kT, N, kNul, E},
      {LogicalImp, kF, N, kBool, kT},
      {LogicalImp, N, kT, kBool, kT},
      {LogicalImp, N, kF, kNul, E},
      {LogicalImp, B(0), N, kByt, B(255)},
      {LogicalImp, N, N, kNul, E},
      {Not, N, E, kNul, E},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    const Case& c = cases[i];
    SCOPED_TRACE("row " + std::to_string(i) + ": " + Describe(c.a) + ", " + Describe(c.b));
    ExpectKindAndValue(c.op(c.a, c.b), c.kind, c.want);
  }
}

TEST(LogicalOperators, RaiseForOperandsWithoutANumber) {
  for (const BinaryOp op : {LogicalAnd, LogicalOr, LogicalXor, LogicalEqv, LogicalImp, Not}) {
    EXPECT_RAISES(op(D(3e9), I(1)), errors::kOverflow);
    EXPECT_RAISES(op(T(u"x"), I(1)), errors::kTypeMismatch);
    EXPECT_RAISES(op(T(u""), N), errors::kTypeMismatch);
    EXPECT_RAISES(op(Value::Missing(), N), errors::kTypeMismatch);
    EXPECT_RAISES(op(Value::VariantArray({I(1)}), I(1)), errors::kTypeMismatch);
  }
  EXPECT_RAISES(LogicalAnd(N, Value::Nothing()), errors::kTypeMismatch);
}

}  // namespace
}  // namespace kestrel::runtime
