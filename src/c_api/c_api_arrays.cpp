// The C ABI's arrays: creation with bounds, shape, elements, bulk bytes.
#include <cstring>
#include <span>

#include "guard.hpp"
#include "kestrel/c_api.h"
#include "kestrel/runtime/convert.hpp"

using kestrel::Bounds;
using kestrel::Kind;
using kestrel::Value;
using kestrel::c_api::Guard;
using kestrel::c_api::V;

static_assert(sizeof(kestrel_bounds) == sizeof(Bounds));

namespace {

bool IsElementKind(uint16_t kind) {
  switch (static_cast<Kind>(kind)) {
    case Kind::kInteger:
    case Kind::kLong:
    case Kind::kSingle:
    case Kind::kDouble:
    case Kind::kDate:
    case Kind::kString:
    case Kind::kObject:
    case Kind::kError:
    case Kind::kBoolean:
    case Kind::kVariant:
    case Kind::kByte:
    case Kind::kLongLong:
      return true;
    default:
      return false;
  }
}

const Value& ArrayArg(const kestrel_value* value) {
  const Value& v = V(value);
  if (!v.IsArray()) kestrel::RaiseStandard(kestrel::errors::kTypeMismatch);
  return v;
}

}  // namespace

extern "C" {

int32_t kestrel_array_new(kestrel_value* value, uint16_t element_kind, const kestrel_bounds* bounds,
                          int dimensions) {
  return Guard([&] {
    if (!IsElementKind(element_kind)) kestrel::RaiseStandard(kestrel::errors::kTypeMismatch);
    if (dimensions < 0) kestrel::RaiseStandard(kestrel::errors::kSubscriptOutOfRange);
    auto kind = static_cast<Kind>(element_kind);
    if (dimensions == 0) {
      V(value) = Value::UnallocatedArray(kind);
      return;
    }
    V(value) = Value::NewArray(
        kind, std::span<const Bounds>(reinterpret_cast<const Bounds*>(bounds), dimensions));
  });
}

int kestrel_array_dimensions(const kestrel_value* value) {
  return V(value).Dimensions();
}

int32_t kestrel_array_bounds(const kestrel_value* value, int dimension, kestrel_bounds* out) {
  return Guard([&] {
    Bounds b = ArrayArg(value).GetBounds(dimension);
    out->lower = b.lower;
    out->upper = b.upper;
  });
}

int32_t kestrel_array_get(const kestrel_value* array, const int32_t* subscripts, int count,
                          kestrel_value* out) {
  return Guard([&] {
    V(out) = ArrayArg(array).GetElement(
        std::span<const int32_t>(subscripts, count < 0 ? 0 : size_t(count)));
  });
}

int32_t kestrel_array_set(kestrel_value* array, const int32_t* subscripts, int count,
                          const kestrel_value* item) {
  return Guard([&] {
    ArrayArg(array);
    kestrel::runtime::AssignElement(
        V(array), std::span<const int32_t>(subscripts, count < 0 ? 0 : size_t(count)), V(item));
  });
}

int32_t kestrel_value_set_bytes(kestrel_value* value, const uint8_t* data, size_t length) {
  return Guard([&] { V(value) = Value::ByteArray(std::span<const uint8_t>(data, length)); });
}

int32_t kestrel_value_get_bytes(const kestrel_value* value, uint8_t* buffer, size_t size,
                                size_t* needed) {
  return Guard([&] {
    const Value& v = V(value);
    if (v.code() != (kestrel::kArrayFlag | uint16_t(Kind::kByte)))
      kestrel::RaiseStandard(kestrel::errors::kTypeMismatch);
    std::span<const uint8_t> bytes = v.Bytes();
    if (needed) *needed = bytes.size();
    if (buffer && size >= bytes.size() && !bytes.empty())
      std::memcpy(buffer, bytes.data(), bytes.size());
  });
}

}  // extern "C"
