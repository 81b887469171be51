// TypeName, VarType and the Is functions.

#include "kestrel/runtime/type_info.hpp"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/object.hpp"

namespace kestrel::runtime {
namespace {

std::u16string_view KindName(Kind kind) {
  switch (kind) {
    case Kind::kEmpty:
      return u"Empty";
    case Kind::kNull:
      return u"Null";
    case Kind::kInteger:
      return u"Integer";
    case Kind::kLong:
      return u"Long";
    case Kind::kSingle:
      return u"Single";
    case Kind::kDouble:
      return u"Double";
    case Kind::kDate:
      return u"Date";
    case Kind::kString:
      return u"String";
    case Kind::kObject:
      return u"Object";
    case Kind::kError:
      return u"Error";
    case Kind::kBoolean:
      return u"Boolean";
    case Kind::kVariant:
      return u"Variant";
    case Kind::kByte:
      return u"Byte";
    case Kind::kLongLong:
      return u"LongLong";
  }
  return u"Unknown";
}

}  // namespace

std::u16string TypeName(const Value& value) {
  if (value.IsArray()) return std::u16string(KindName(value.kind())) + u"()";
  if (value.IsObject()) {
    return std::u16string(value.IsNothing() ? u"Nothing" : value.object()->TypeName());
  }
  return std::u16string(KindName(value.kind()));
}

// An object used as a value stands for its default property. Calling it
// with no arguments tells whether there is one: 438 says the object has no
// default member, 449 that the default member needs arguments (a
// collection's Item), 450 that it is not a property; either way the object
// is just an object. Other errors are the property's own and propagate.
int32_t VarType(const Value& value) {
  if (!value.IsObject() || value.IsNothing()) return value.code();
  Value result;
  try {
    // Hold the object: the property may drop the caller's last reference.
    const Ref<Object> hold(value.object());
    result = hold->Invoke(std::u16string_view(), CallKind::kGet, std::span<Value>());
  } catch (const RuntimeError& e) {
    if (e.number() == errors::kMemberNotSupported || e.number() == errors::kArgumentNotOptional ||
        e.number() == errors::kWrongArgumentCount) {
      return static_cast<int32_t>(Kind::kObject);
    }
    throw;
  }
  return result.code();
}

bool IsArray(const Value& value) {
  return value.IsArray();
}

bool IsEmpty(const Value& value) {
  return value.IsEmpty();
}

bool IsNull(const Value& value) {
  return value.IsNull();
}

bool IsObject(const Value& value) {
  return value.IsObject();
}

bool IsError(const Value& value) {
  return value.IsErrorCode();
}

bool IsMissing(const Value& value) {
  return value.IsMissing();
}

}  // namespace kestrel::runtime
