// The C ABI over Value, Object, the registry and CallByName. Every entry
// point catches everything: an exception must never unwind into C frames.
#include "kestrel/c_api.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>

#include "guard.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dates.hpp"
#include "kestrel/runtime/dispatch.hpp"
#include "kestrel/runtime/registry.hpp"

using kestrel::Value;
using kestrel::c_api::C;
using kestrel::c_api::Guard;
using kestrel::c_api::O;
using kestrel::c_api::V;

// Bindings read and write scalars in place, so the C view of a value must
// be the library's own layout: kind first, payload at byte 8.
static_assert(sizeof(kestrel_value) == sizeof(Value));
static_assert(alignof(kestrel_value) >= alignof(Value));
static_assert(offsetof(kestrel_value, as) == 8);
static_assert(std::is_standard_layout_v<kestrel_value>);

namespace {

// Keeps the UTF-8 copies that kestrel_last_error_* hand out alive.
thread_local std::string last_source_utf8;
thread_local std::string last_description_utf8;

}  // namespace

extern "C" {

void kestrel_value_init(kestrel_value* value) {
  new (value) Value();
}
void kestrel_value_clear(kestrel_value* value) {
  V(value) = Value();
}
void kestrel_value_copy(kestrel_value* destination, const kestrel_value* source) {
  V(destination) = V(source);
}
uint16_t kestrel_value_kind(const kestrel_value* value) {
  return V(value).code();
}
int kestrel_value_is_missing(const kestrel_value* value) {
  return V(value).IsMissing();
}

void kestrel_value_set_null(kestrel_value* value) {
  V(value) = Value::Null();
}
void kestrel_value_set_missing(kestrel_value* value) {
  V(value) = Value::Missing();
}
void kestrel_value_set_bool(kestrel_value* value, int truth) {
  V(value) = Value(truth != 0);
}
void kestrel_value_set_integer(kestrel_value* value, int16_t number) {
  V(value) = Value(number);
}
void kestrel_value_set_long(kestrel_value* value, int32_t number) {
  V(value) = Value(number);
}
void kestrel_value_set_longlong(kestrel_value* value, int64_t number) {
  V(value) = Value(number);
}
void kestrel_value_set_byte(kestrel_value* value, uint8_t number) {
  V(value) = Value(number);
}
void kestrel_value_set_single(kestrel_value* value, float number) {
  V(value) = Value(number);
}
void kestrel_value_set_double(kestrel_value* value, double number) {
  V(value) = Value(number);
}
void kestrel_value_set_error(kestrel_value* value, int32_t code) {
  V(value) = Value::ErrorCode(code);
}
void kestrel_value_set_date(kestrel_value* value, double serial) {
  V(value) = Value::Date(serial);
}
int32_t kestrel_value_set_date_parts(kestrel_value* value, int32_t year, int32_t month, int32_t day,
                                     int32_t hour, int32_t minute, int32_t second) {
  return Guard([&] {
    // DateSerial reads years below 100 as two-digit years; a binding means
    // the year it says, and the runtime has no dates before 100.
    if (year < 100 || year > 9999) kestrel::RaiseStandard(kestrel::errors::kInvalidProcedureCall);
    double date = kestrel::runtime::DateSerial(year, month, day);
    double time = kestrel::runtime::TimeSerial(hour, minute, second);
    // Before day 0 the integer part counts days back while the fraction
    // still adds time: 1899-12-29 06:00 is -1.25, not -0.75.
    V(value) = Value::Date(date < 0 ? date - time : date + time);
  });
}
int32_t kestrel_value_set_utf8(kestrel_value* value, const char* text, size_t length) {
  return Guard([&] { V(value) = Value::FromUtf8(std::string_view(text, length)); });
}
int32_t kestrel_value_set_utf16(kestrel_value* value, const uint16_t* text, size_t length) {
  return Guard([&] {
    std::u16string units(length, u'\0');
    if (length) std::memcpy(units.data(), text, length * sizeof(char16_t));
    V(value) = Value(units);
  });
}
void kestrel_value_set_object(kestrel_value* value, kestrel_object* object) {
  V(value) = Value(O(object));
}

int32_t kestrel_value_to_long(const kestrel_value* value, int32_t* out) {
  return Guard([&] { *out = kestrel::runtime::ToLong(V(value)); });
}
int32_t kestrel_value_to_longlong(const kestrel_value* value, int64_t* out) {
  return Guard([&] { *out = kestrel::runtime::ToLongLong(V(value)); });
}
int32_t kestrel_value_to_double(const kestrel_value* value, double* out) {
  return Guard([&] { *out = kestrel::runtime::ToDouble(V(value)); });
}
int32_t kestrel_value_to_utf8(const kestrel_value* value, char* buffer, size_t size,
                              size_t* needed) {
  return Guard([&] {
    kestrel::c_api::CopyText(kestrel::ToUtf8(kestrel::runtime::ToText(V(value))), buffer, size,
                             needed);
  });
}
int32_t kestrel_value_utf16(const kestrel_value* value, const uint16_t** units, size_t* length) {
  return Guard([&] {
    const Value& v = V(value);
    if (!v.IsString()) kestrel::RaiseStandard(kestrel::errors::kTypeMismatch);
    std::u16string_view text = v.string();
    *units = reinterpret_cast<const uint16_t*>(text.data());
    *length = text.size();
  });
}
int32_t kestrel_value_get_date_parts(const kestrel_value* value, int32_t* year, int32_t* month,
                                     int32_t* day, int32_t* hour, int32_t* minute,
                                     int32_t* second) {
  return Guard([&] {
    double date = kestrel::runtime::ToDate(V(value));
    using namespace kestrel::runtime;
    int32_t parts[6] = {Year(date), Month(date), Day(date), Hour(date), Minute(date), Second(date)};
    int32_t* outs[6] = {year, month, day, hour, minute, second};
    for (int i = 0; i < 6; ++i)
      if (outs[i]) *outs[i] = parts[i];
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
  kestrel::Object* created = nullptr;
  Guard([&] { created = kestrel::CreateObject(kestrel::FromUtf8(qualified_name)).Detach(); });
  return C(created);
}

kestrel_object* kestrel_global(const char* qualified_name) {
  kestrel::Object* instance = nullptr;
  Guard([&] {
    instance = kestrel::Registry::Instance().Global(kestrel::FromUtf8(qualified_name)).Detach();
  });
  return C(instance);
}

int32_t kestrel_call(kestrel_object* object, const char* name, int call_kind, kestrel_value* args,
                     size_t arg_count, kestrel_value* result) {
  return Guard([&] {
    auto kind = static_cast<kestrel::CallKind>(call_kind);
    if (kind != kestrel::CallKind::kMethod && kind != kestrel::CallKind::kGet &&
        kind != kestrel::CallKind::kLet && kind != kestrel::CallKind::kSet)
      kestrel::RaiseStandard(kestrel::errors::kInvalidProcedureCall);
    std::span<Value> values(arg_count ? &V(args) : nullptr, arg_count);
    // Member names are ASCII identifiers: widen them without a UTF-8 decode
    // on the path every late-bound call takes.
    char16_t wide[64];
    size_t length = std::strlen(name);
    bool ascii = length <= std::size(wide);
    for (size_t i = 0; ascii && i < length; ++i) {
      if (static_cast<unsigned char>(name[i]) >= 0x80) ascii = false;
      wide[i] = static_cast<char16_t>(name[i]);
    }
    Value out =
        ascii ? kestrel::CallByName(O(object), std::u16string_view(wide, length), kind, values)
              : kestrel::CallByName(O(object), kestrel::FromUtf8(name), kind, values);
    if (result) V(result) = std::move(out);
  });
}

void kestrel_addref(kestrel_object* object) {
  if (object) O(object)->AddRef();
}
void kestrel_release(kestrel_object* object) {
  if (object) O(object)->Release();
}

int32_t kestrel_last_error_number(void) {
  return kestrel::CurrentError().Number();
}
const char* kestrel_last_error_source(void) {
  last_source_utf8 = kestrel::ToUtf8(kestrel::CurrentError().Source());
  return last_source_utf8.c_str();
}
const char* kestrel_last_error_description(void) {
  last_description_utf8 = kestrel::ToUtf8(kestrel::CurrentError().Description());
  return last_description_utf8.c_str();
}
void kestrel_clear_last_error(void) {
  kestrel::CurrentError().Clear();
}

}  // extern "C"
