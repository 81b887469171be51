// The logical operators. Each operand is read into its bits, sign-extended
// to 64 bits, and the kind its result takes; the operation is done on the
// 64-bit patterns and the result cut back to the kind, which is exact for
// every bitwise operation. A Null operand is handled bit by bit: the other
// operand decides the result only when every one of its bits does.

#include "kestrel/runtime/logical.hpp"

#include <cstdint>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"

namespace kestrel::runtime {
namespace {

// Result kinds in widening order. Boolean and Byte survive only when both
// operands have them.
enum class Width : uint8_t { kBoolean, kByte, kInteger, kLong, kLongLong };

struct Operand {
  bool null = false;
  Width width = Width::kInteger;
  int64_t bits = 0;
};

Operand Read(const Value& v) {
  switch (static_cast<Kind>(v.code())) {
    case Kind::kNull:
      return {true};
    case Kind::kEmpty:
      return {false, Width::kInteger, 0};
    case Kind::kBoolean:
      return {false, Width::kBoolean, v.boolean() ? -1 : 0};
    case Kind::kByte:
      return {false, Width::kByte, v.byte()};
    case Kind::kInteger:
      return {false, Width::kInteger, v.integer()};
    case Kind::kLong:
      return {false, Width::kLong, v.long_value()};
    case Kind::kLongLong:
      return {false, Width::kLongLong, v.long_long()};
    case Kind::kSingle:
    case Kind::kDouble:
    case Kind::kDate:
    case Kind::kString:
      return {false, Width::kLong, ToLong(v)};
    default:
      RaiseStandard(errors::kTypeMismatch);
  }
}

Width Combine(Width a, Width b) {
  if (a == b) return a;
  const Width wider = a > b ? a : b;
  return wider < Width::kInteger ? Width::kInteger : wider;
}

Value Make(Width width, int64_t bits) {
  switch (width) {
    case Width::kBoolean:
      return Value(bits != 0);
    case Width::kByte:
      return Value(static_cast<uint8_t>(bits));
    case Width::kInteger:
      return Value(static_cast<int16_t>(bits));
    case Width::kLong:
      return Value(static_cast<int32_t>(bits));
    case Width::kLongLong:
      break;
  }
  return Value(bits);
}

bool AllZeros(const Operand& x) {
  return x.bits == 0;
}

// Every bit of the operand's kind set: True, Byte 255, -1.
bool AllOnes(const Operand& x) {
  return x.width == Width::kByte ? x.bits == 0xFF : x.bits == -1;
}

template <class Op>
Value Apply(const Value& a, const Value& b, Op op) {
  const Operand x = Read(a);
  const Operand y = Read(b);
  if (x.null || y.null) return Value::Null();
  return Make(Combine(x.width, y.width), op(x.bits, y.bits));
}

}  // namespace

Value LogicalAnd(const Value& a, const Value& b) {
  const Operand x = Read(a);
  const Operand y = Read(b);
  if (x.null && y.null) return Value::Null();
  if (x.null || y.null) {
    const Operand& known = x.null ? y : x;
    return AllZeros(known) ? Make(known.width, 0) : Value::Null();
  }
  return Make(Combine(x.width, y.width), x.bits & y.bits);
}

Value LogicalOr(const Value& a, const Value& b) {
  const Operand x = Read(a);
  const Operand y = Read(b);
  if (x.null && y.null) return Value::Null();
  if (x.null || y.null) {
    const Operand& known = x.null ? y : x;
    return AllOnes(known) ? Make(known.width, known.bits) : Value::Null();
  }
  return Make(Combine(x.width, y.width), x.bits | y.bits);
}

Value LogicalXor(const Value& a, const Value& b) {
  return Apply(a, b, [](int64_t x, int64_t y) { return x ^ y; });
}

Value LogicalEqv(const Value& a, const Value& b) {
  return Apply(a, b, [](int64_t x, int64_t y) { return ~(x ^ y); });
}

// a Imp b is (Not a) Or b: a known False (0) on the left, or a known True
// (all ones) on the right, decides every bit.
Value LogicalImp(const Value& a, const Value& b) {
  const Operand x = Read(a);
  const Operand y = Read(b);
  if (x.null && y.null) return Value::Null();
  if (y.null) return AllZeros(x) ? Make(x.width, -1) : Value::Null();
  if (x.null) return AllOnes(y) ? Make(y.width, y.bits) : Value::Null();
  return Make(Combine(x.width, y.width), ~x.bits | y.bits);
}

Value LogicalNot(const Value& a) {
  const Operand x = Read(a);
  if (x.null) return Value::Null();
  return Make(x.width, ~x.bits);
}

}  // namespace kestrel::runtime
