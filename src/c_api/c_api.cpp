// The C ABI over Value, Object, the registry and CallByName. Every entry
// point catches everything: an exception must never unwind into C frames.
#include "kestrel/c_api.h"

#include <cstring>
#include <new>
#include <string>
#include <type_traits>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dispatch.hpp"
#include "kestrel/runtime/error.hpp"
#include "kestrel/runtime/registry.hpp"

using kestrel::Object;
using kestrel::Value;

static_assert(sizeof(kestrel_value) == sizeof(Value));
static_assert(alignof(kestrel_value) >= alignof(Value));

namespace {

Value& V(kestrel_value* v) { return *std::launder(reinterpret_cast<Value*>(v)); }
const Value& V(const kestrel_value* v) {
  return *std::launder(reinterpret_cast<const Value*>(v));
}
Object* O(kestrel_object* o) { return reinterpret_cast<Object*>(o); }
kestrel_object* C(Object* o) { return reinterpret_cast<kestrel_object*>(o); }

// Runs body; turns whatever it throws into this thread's last error and
// returns its number (0 on success).
template <class F>
int32_t Guard(F&& body) {
  try {
    body();
    return 0;
  } catch (const kestrel::RuntimeError& e) {
    kestrel::CurrentError().Set(e);
  } catch (const std::bad_alloc&) {
    kestrel::CurrentError().Set(kestrel::RuntimeError(
        kestrel::errors::kOutOfMemory, std::u16string(kestrel::kStandardErrorSource),
        std::u16string(kestrel::StandardErrorText(kestrel::errors::kOutOfMemory))));
  } catch (...) {
    constexpr int32_t kInternalError = 51;
    kestrel::CurrentError().Set(kestrel::RuntimeError(
        kInternalError, std::u16string(kestrel::kStandardErrorSource),
        std::u16string(kestrel::StandardErrorText(kInternalError))));
  }
  return kestrel::CurrentError().Number();
}

// Keeps the UTF-8 copies that kestrel_last_error_* hand out alive.
thread_local std::string last_source_utf8;
thread_local std::string last_description_utf8;

}  // namespace

extern "C" {

void kestrel_value_init(kestrel_value* value) { new (value) Value(); }
void kestrel_value_clear(kestrel_value* value) { V(value) = Value(); }
void kestrel_value_copy(kestrel_value* destination, const kestrel_value* source) {
  V(destination) = V(source);
}
uint16_t kestrel_value_kind(const kestrel_value* value) { return V(value).code(); }
int kestrel_value_is_missing(const kestrel_value* value) { return V(value).IsMissing(); }

void kestrel_value_set_null(kestrel_value* value) { V(value) = Value::Null(); }
void kestrel_value_set_missing(kestrel_value* value) { V(value) = Value::Missing(); }
void kestrel_value_set_bool(kestrel_value* value, int truth) { V(value) = Value(truth != 0); }
void kestrel_value_set_long(kestrel_value* value, int32_t number) { V(value) = Value(number); }
void kestrel_value_set_longlong(kestrel_value* value, int64_t number) {
  V(value) = Value(number);
}
void kestrel_value_set_double(kestrel_value* value, double number) { V(value) = Value(number); }
int32_t kestrel_value_set_utf8(kestrel_value* value, const char* text, size_t length) {
  return Guard([&] { V(value) = Value::FromUtf8(std::string_view(text, length)); });
}
void kestrel_value_set_object(kestrel_value* value, kestrel_object* object) {
  V(value) = Value(O(object));
}

int32_t kestrel_value_to_long(const kestrel_value* value, int32_t* out) {
  return Guard([&] { *out = kestrel::runtime::ToLong(V(value)); });
}
int32_t kestrel_value_to_double(const kestrel_value* value, double* out) {
  return Guard([&] { *out = kestrel::runtime::ToDouble(V(value)); });
}
int32_t kestrel_value_to_utf8(const kestrel_value* value, char* buffer, size_t size,
                              size_t* needed) {
  return Guard([&] {
    std::string text = kestrel::ToUtf8(kestrel::runtime::ToText(V(value)));
    if (needed) *needed = text.size();
    if (buffer && size > text.size()) std::memcpy(buffer, text.c_str(), text.size() + 1);
  });
}
int32_t kestrel_value_get_object(const kestrel_value* value, kestrel_object** out) {
  return Guard([&] {
    const Value& v = V(value);
    if (!v.IsObject()) kestrel::RaiseStandard(kestrel::errors::kObjectRequired);
    if (v.object()) v.object()->AddRef();
    *out = C(v.object());
  });
}

kestrel_object* kestrel_create(const char* qualified_name) {
  Object* created = nullptr;
  Guard([&] {
    created = kestrel::CreateObject(kestrel::FromUtf8(qualified_name)).Detach();
  });
  return C(created);
}

kestrel_object* kestrel_global(const char* qualified_name) {
  Object* instance = nullptr;
  Guard([&] {
    instance =
        kestrel::Registry::Instance().Global(kestrel::FromUtf8(qualified_name)).Detach();
  });
  return C(instance);
}

int32_t kestrel_call(kestrel_object* object, const char* name, int call_kind,
                     kestrel_value* args, size_t arg_count, kestrel_value* result) {
  return Guard([&] {
    auto kind = static_cast<kestrel::CallKind>(call_kind);
    if (kind != kestrel::CallKind::kMethod && kind != kestrel::CallKind::kGet &&
        kind != kestrel::CallKind::kLet && kind != kestrel::CallKind::kSet)
      kestrel::RaiseStandard(kestrel::errors::kInvalidProcedureCall);
    std::span<Value> values(arg_count ? &V(args) : nullptr, arg_count);
    Value out = kestrel::CallByName(O(object), kestrel::FromUtf8(name), kind, values);
    if (result) V(result) = std::move(out);
  });
}

void kestrel_addref(kestrel_object* object) {
  if (object) O(object)->AddRef();
}
void kestrel_release(kestrel_object* object) {
  if (object) O(object)->Release();
}

int32_t kestrel_last_error_number(void) { return kestrel::CurrentError().Number(); }
const char* kestrel_last_error_source(void) {
  last_source_utf8 = kestrel::ToUtf8(kestrel::CurrentError().Source());
  return last_source_utf8.c_str();
}
const char* kestrel_last_error_description(void) {
  last_description_utf8 = kestrel::ToUtf8(kestrel::CurrentError().Description());
  return last_description_utf8.c_str();
}
void kestrel_clear_last_error(void) { kestrel::CurrentError().Clear(); }

}  // extern "C"
