// Shorthand for building Values of an exact kind, and for checking the kind
// and value an operation produced.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/frame/value.hpp"

namespace kestrel::testing {

// Typed operands: a bare literal would pick the wrong kind (3 is a Long).
inline Value I(int16_t v) { return Value(v); }
inline Value L(int32_t v) { return Value(v); }
inline Value LL(int64_t v) { return Value(v); }
inline Value B(uint8_t v) { return Value(v); }
inline Value S(float v) { return Value(v); }
inline Value D(double v) { return Value(v); }
inline Value Dt(double serial) { return Value::Date(serial); }
inline Value T(std::u16string_view text) { return Value(text); }
inline const Value E;
inline const Value N = Value::Null();

// The number a numeric value holds, exactly (long double has 64 mantissa
// bits on x86-64, so LongLong values survive).
inline long double NumberOf(const Value& v) {
  switch (v.kind()) {
    case Kind::kInteger:
    case Kind::kBoolean: return v.integer();
    case Kind::kLong: return v.long_value();
    case Kind::kLongLong: return static_cast<long double>(v.long_long());
    case Kind::kByte: return v.byte();
    case Kind::kSingle: return v.single();
    case Kind::kDouble:
    case Kind::kDate: return v.dbl();
    default: return 0;
  }
}

inline std::string Describe(const Value& v) {
  std::string s = "kind " + std::to_string(v.code());
  if (v.IsString()) return s + " \"" + ToUtf8(v.string()) + "\"";
  return v.IsNumeric() ? s + " " + std::to_string(NumberOf(v)) : s;
}

// got has the given kind and, for Strings and numbers, the value want holds
// (want's own kind is not looked at).
inline void ExpectKindAndValue(const Value& got, Kind kind, const Value& want) {
  ASSERT_EQ(got.code(), static_cast<uint16_t>(kind)) << "got " << Describe(got);
  if (kind == Kind::kString) {
    EXPECT_EQ(ToUtf8(got.string()), ToUtf8(want.string()));
  } else if (kind != Kind::kNull && kind != Kind::kEmpty) {
    EXPECT_EQ(NumberOf(got), NumberOf(want)) << "got " << Describe(got);
  }
}

}  // namespace kestrel::testing
