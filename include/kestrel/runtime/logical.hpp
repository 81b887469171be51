// The runtime's logical operators And, Or, Xor, Eqv, Imp and Not on values.
//
// On Booleans they are the logical operators; on numbers they work bit by
// bit. The result kind follows the operands: two Booleans give a Boolean,
// two Bytes a Byte, any mix of Byte, Integer and Boolean an Integer, then
// Long and LongLong as the wider operand says. Single, Double, Date and
// numeric text are first converted as CLng converts them (ties to even, 6
// outside the Long range, 13 for text that is not numeric) and give a Long
// unless the other side is a LongLong. Empty counts as Integer 0. Objects,
// arrays and Error-kind values raise 13, even next to Null.
//
// Null stands for an unknown value, so a result is Null only when the known
// operand cannot decide it: Null And False is False and Null Or True is True
// (for numbers, Null And 0 is 0 and Null Or -1 is -1), False Imp Null and
// Null Imp True are True; otherwise And, Or and Imp with Null give Null, as
// Xor, Eqv and Not always do.
//
//   using namespace kestrel::runtime;
//   LogicalAnd(Value(int16_t{12}), Value(int16_t{10}))  // Integer 8
//   LogicalOr(Value::Null(), Value(true))               // True
#pragma once

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"

namespace kestrel::runtime {

KESTREL_API Value LogicalAnd(const Value& a, const Value& b);  // a And b
KESTREL_API Value LogicalOr(const Value& a, const Value& b);   // a Or b
KESTREL_API Value LogicalXor(const Value& a, const Value& b);  // a Xor b
KESTREL_API Value LogicalEqv(const Value& a, const Value& b);  // a Eqv b: Not (a Xor b)
KESTREL_API Value LogicalImp(const Value& a, const Value& b);  // a Imp b: (Not a) Or b
KESTREL_API Value LogicalNot(const Value& a);                  // Not a

}  // namespace kestrel::runtime
