// Object-valued properties of the mail classes (Message.Recipients,
// MAPI32.Message, ...) all take their argument the same way.
#pragma once

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/object.hpp"
#include "kestrel/frame/value.hpp"

namespace kestrel::detail {

// An object argument of class T, stored by reference: Nothing is stored as
// Nothing, any other kind of value or object is a type mismatch.
template <class T>
Ref<T> ObjectArg(const Value& v) {
  if (!v.IsObject()) RaiseStandard(errors::kTypeMismatch);
  if (v.IsNothing()) return Ref<T>();
  T* object = dynamic_cast<T*>(v.object());
  if (object == nullptr) RaiseStandard(errors::kTypeMismatch);
  return Ref<T>(object);
}

}  // namespace kestrel::detail
