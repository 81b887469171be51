// What a value is: the runtime's TypeName, VarType and the Is functions.
//
// TypeName spells a value's kind as the runtime does ("Integer", "String",
// "Empty", "Null", "Error" for Missing too, "LongLong"); an object answers
// with its own class name (Object::TypeName) and a null reference is
// "Nothing"; an array is its element kind's name followed by "()"
// ("Variant()", "String()"), allocated or not. VarType gives the kind code,
// 8192 plus the element code for an array (8204 for an array of Values);
// for an object whose default member is a property that takes no argument,
// it is the kind code of that property's value, otherwise 9.
//
//   using namespace kestrel::runtime;
//   TypeName(Value(int16_t{1}))                // u"Integer"
//   VarType(Value::VariantArray({Value()}))    // 8204
//   IsObject(Value::Nothing())                 // true
#pragma once

#include <cstdint>
#include <string>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"

namespace kestrel::runtime {

KESTREL_API std::u16string TypeName(const Value& value);
KESTREL_API int32_t VarType(const Value& value);

// IsArray: any array, allocated or not. IsEmpty and IsNull: exactly those
// kinds (an empty String is not Empty). IsObject: an object reference,
// Nothing included. IsError: an Error-kind value, Missing included.
// IsMissing: an omitted optional argument.
KESTREL_API bool IsArray(const Value& value);
KESTREL_API bool IsEmpty(const Value& value);
KESTREL_API bool IsNull(const Value& value);
KESTREL_API bool IsObject(const Value& value);
KESTREL_API bool IsError(const Value& value);
KESTREL_API bool IsMissing(const Value& value);

}  // namespace kestrel::runtime
