// Value: the tagged variant that carries almost every argument and result.
//
// A Value holds one of the kinds below, identified by the numeric kind code
// that automation clients test for (Empty 0, Null 1, Integer 2, ... Byte 17,
// LongLong 20, arrays 0x2000 + element code). It is 16 bytes, moves without
// allocating and has value semantics: strings and arrays are shared
// copy-on-write, so no holder can observe another's changes. Objects are
// shared by intrusive reference count.
//
// This header only holds and shapes data. Conversions between kinds,
// comparison and arithmetic follow the macro runtime's rules and live in
// kestrel/runtime/. A Value is not synchronised: do not mutate one Value from
// two threads. Copies may be used on different threads.
//
//   kestrel::Value v = kestrel::Value::FromUtf8("abc");
//   kestrel::Value a = kestrel::Value::NewArray(kestrel::Kind::kVariant, {{0, 9}});
//   a.SetElement({3}, v);   // a(3) = "abc"
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/object.hpp"

namespace kestrel {

// Kind codes. kArray is a flag combined with the element kind; kVariant only
// ever appears as an element kind (an array of Values).
enum class Kind : uint16_t {
  kEmpty = 0,
  kNull = 1,
  kInteger = 2,    // signed 16-bit
  kLong = 3,       // signed 32-bit
  kSingle = 4,     // 32-bit float
  kDouble = 5,     // 64-bit float
  kDate = 7,       // days since 1899-12-30, fraction = time of day
  kString = 8,     // UTF-16 code units, any unit allowed (NUL included)
  kObject = 9,     // object reference or Nothing
  kError = 10,     // 32-bit status code (Missing is one of them)
  kBoolean = 11,   // True -1, False 0
  kVariant = 12,   // element kind of an array of Values
  kByte = 17,      // unsigned 8-bit
  kLongLong = 20,  // signed 64-bit; carries addresses and handles
};

inline constexpr uint16_t kArrayFlag = 0x2000;

// The status code of an omitted optional argument.
inline constexpr int32_t kMissingCode = static_cast<int32_t>(0x80020004u);

// Inclusive bounds of one array dimension. An empty dimension has upper = lower - 1.
struct Bounds {
  int32_t lower = 0;
  int32_t upper = -1;
  int64_t Count() const { return int64_t{upper} - lower + 1; }
};

inline constexpr int kMaxArrayDimensions = 60;

namespace detail {
// A string's one allocation: this header followed by `size` code units.
// Immutable once built, shared by reference count. Visible here only so
// that reading a string's text is inline on hot paths (sorting, compares).
struct StringRep {
  std::atomic<uint32_t> refs;
  uint32_t size;
  const char16_t* data() const noexcept { return reinterpret_cast<const char16_t*>(this + 1); }
  char16_t* data() noexcept { return reinterpret_cast<char16_t*>(this + 1); }
};
struct ArrayRep;
class NestedRelease;
}  // namespace detail

class KESTREL_API Value {
 public:
  // --- construction -------------------------------------------------------
  Value() noexcept : head_(0), bits_(0) {}
  // The payload is written whole, as one 8-byte store of the value with
  // its upper bytes zero, not zeroed and then partly overwritten: a load of
  // the payload cannot take its data from two stores, and most values are
  // read or moved right after they are made.
  Value(int16_t v) noexcept : head_(uint16_t(Kind::kInteger)), bits_(static_cast<uint16_t>(v)) {}
  Value(int32_t v) noexcept : head_(uint16_t(Kind::kLong)), bits_(static_cast<uint32_t>(v)) {}
  Value(int64_t v) noexcept : head_(uint16_t(Kind::kLongLong)), bits_(static_cast<uint64_t>(v)) {}
  Value(uint8_t v) noexcept : head_(uint16_t(Kind::kByte)), bits_(v) {}
  Value(float v) noexcept
      : head_(uint16_t(Kind::kSingle)), bits_(std::bit_cast<uint32_t>(v)) {}
  Value(double v) noexcept : head_(uint16_t(Kind::kDouble)), bits_(std::bit_cast<uint64_t>(v)) {}
  Value(bool v) noexcept : head_(uint16_t(Kind::kBoolean)), bits_(v ? 0xffffu : 0u) {}
  Value(std::u16string_view text);
  Value(const char16_t* text) : Value(std::u16string_view(text)) {}
  Value(const std::u16string& text) : Value(std::u16string_view(text)) {}
  Value(Object* object) noexcept;  // Nothing when null
  template <class T>
  Value(const Ref<T>& object) noexcept : Value(static_cast<Object*>(object.get())) {}
  // Narrow text is ambiguous (which code page?) and would otherwise silently
  // become a Boolean; say FromUtf8 or FromAnsi instead.
  Value(const char*) = delete;

  static Value Null() noexcept { return Value(Kind::kNull); }
  static Value Nothing() noexcept { return Value(static_cast<Object*>(nullptr)); }
  static Value Missing() noexcept { return ErrorCode(kMissingCode); }
  static Value ErrorCode(int32_t code) noexcept;
  static Value Date(double serial) noexcept;
  static Value FromUtf8(std::string_view utf8);

  // An allocated array: 1 to 60 dimensions, every element initialised to the
  // element kind's default (0, "", Empty, Nothing). Raises 9 for more than 60
  // dimensions or none, 7 when the element count does not fit in memory.
  static Value NewArray(Kind element, std::span<const Bounds> bounds);
  static Value NewArray(Kind element, std::initializer_list<Bounds> bounds) {
    return NewArray(element, std::span<const Bounds>(bounds.begin(), bounds.size()));
  }
  // Declared but never sized: an array with no dimensions.
  static Value UnallocatedArray(Kind element) noexcept;
  // A one-dimensional Byte array 0 .. n-1 holding these bytes.
  static Value ByteArray(std::span<const uint8_t> bytes);
  // A one-dimensional Variant array lower .. lower+n-1 holding these values.
  static Value VariantArray(std::span<const Value> items, int32_t lower = 0);
  static Value VariantArray(std::initializer_list<Value> items, int32_t lower = 0) {
    return VariantArray(std::span<const Value>(items.begin(), items.size()), lower);
  }

  Value(const Value& other) noexcept : head_(Word(other.head_)), bits_(other.bits_) {
    if (Shared()) Retain();
  }
  Value(Value&& other) noexcept : head_(Word(other.head_)), bits_(other.bits_) {
    other.head_ = 0;
    other.bits_ = 0;
  }
  // Assignment takes the new value before letting go of the old one, so a
  // value may be assigned a copy of itself or of something it holds.
  Value& operator=(const Value& other) noexcept {
    Value copy(other);
    swap(copy);
    return *this;
  }
  [[gnu::always_inline]] Value& operator=(Value&& other) noexcept {
    Value moved(std::move(other));
    swap(moved);
    return *this;
  }
  [[gnu::always_inline]] ~Value() {
    if (Shared()) Release();
  }

  void swap(Value& other) noexcept {
    const uint64_t head = Word(head_);
    head_ = Word(other.head_);
    other.head_ = head;
    std::swap(bits_, other.bits_);
  }

  // --- kind -----------------------------------------------------------------
  // The full kind code: for arrays, kArrayFlag | element code.
  uint16_t code() const noexcept { return static_cast<uint16_t>(head_); }
  // The kind of a scalar; for arrays, the element kind.
  Kind kind() const noexcept { return static_cast<Kind>(code() & ~kArrayFlag); }

  bool IsEmpty() const noexcept { return code() == uint16_t(Kind::kEmpty); }
  bool IsNull() const noexcept { return code() == uint16_t(Kind::kNull); }
  bool IsString() const noexcept { return code() == uint16_t(Kind::kString); }
  bool IsObject() const noexcept { return code() == uint16_t(Kind::kObject); }
  bool IsNothing() const noexcept { return IsObject() && obj_ == nullptr; }
  bool IsErrorCode() const noexcept { return code() == uint16_t(Kind::kError); }
  bool IsMissing() const noexcept { return IsErrorCode() && i32_ == kMissingCode; }
  // Set for any array, allocated or not.
  bool IsArray() const noexcept { return (code() & kArrayFlag) != 0; }
  // Integer, Long, Single, Double, Date, Boolean, Byte and LongLong.
  bool IsNumeric() const noexcept;

  // --- scalar access --------------------------------------------------------
  // Each accessor requires the matching kind (checked in debug builds only);
  // the runtime's conversions (kestrel/runtime/convert.hpp) accept any kind.
  int16_t integer() const noexcept { return i16_; }
  int32_t long_value() const noexcept { return i32_; }
  int64_t long_long() const noexcept { return i64_; }
  uint8_t byte() const noexcept { return u8_; }
  float single() const noexcept { return f32_; }
  double dbl() const noexcept { return f64_; }
  double date() const noexcept { return f64_; }
  bool boolean() const noexcept { return i16_ != 0; }
  int32_t error_code() const noexcept { return i32_; }
  std::u16string_view string() const noexcept {
    if (code() != uint16_t(Kind::kString) || str_ == nullptr) return {};
    return {str_->data(), str_->size};
  }
  Object* object() const noexcept { return obj_; }
  std::string ToUtf8String() const;  // for a String; "" for any other kind

  // --- arrays ---------------------------------------------------------------
  // Number of dimensions: 0 for an unallocated array (and for non-arrays).
  int Dimensions() const noexcept;
  bool IsAllocated() const noexcept { return IsArray() && arr_ != nullptr; }
  // Bounds of dimension 1..Dimensions(); error 9 otherwise (an unallocated
  // array has no bounds).
  Bounds GetBounds(int dimension) const;
  int32_t LBound(int dimension = 1) const { return GetBounds(dimension).lower; }
  int32_t UBound(int dimension = 1) const { return GetBounds(dimension).upper; }
  // Total number of elements; 0 for an unallocated array.
  size_t ElementCount() const noexcept;

  // Element by subscripts (one per dimension, error 9 when the count or any
  // subscript is out of range). The element kind must already match the
  // array (any value for an array of Values); otherwise error 13. The runtime
  // offers converting assignment in runtime::AssignElement.
  Value GetElement(std::span<const int32_t> subscripts) const;
  Value GetElement(std::initializer_list<int32_t> s) const {
    return GetElement(std::span<const int32_t>(s.begin(), s.size()));
  }
  void SetElement(std::span<const int32_t> subscripts, Value value);
  void SetElement(std::initializer_list<int32_t> s, Value value) {
    SetElement(std::span<const int32_t>(s.begin(), s.size()), std::move(value));
  }
  // Linear position of a set of subscripts, the first subscript varying
  // fastest; error 9 when out of range.
  size_t LinearIndex(std::span<const int32_t> subscripts) const;
  Value ElementAt(size_t linear) const;
  void SetElementAt(size_t linear, Value value);

  // Storage views. The mutable views unshare the array first, so writes
  // through them are never seen by other copies. Elements() is for arrays of
  // non-Byte kinds, Bytes() for Byte arrays; the wrong one is empty.
  std::span<const Value> Elements() const noexcept;
  std::span<Value> MutableElements();
  std::span<const uint8_t> Bytes() const noexcept;
  std::span<uint8_t> MutableBytes();

  // ReDim: new bounds for this array (allocated or not), keeping its element
  // kind. With preserve, only the last dimension's upper bound may change on
  // an allocated array (error 9 otherwise) and the elements that remain keep
  // their values; without it every element is reset.
  void ReDim(std::span<const Bounds> bounds, bool preserve);
  void ReDim(std::initializer_list<Bounds> bounds, bool preserve) {
    ReDim(std::span<const Bounds>(bounds.begin(), bounds.size()), preserve);
  }
  // Erase: an allocated array becomes unallocated, kind kept.
  void Erase() noexcept;

  // True when both hold the very same string or array storage, or the same
  // object. Only for tests and diagnostics of the sharing scheme.
  bool SharesStorageWith(const Value& other) const noexcept;

 private:
  // A reader that builds a whole tree on one thread, before any other
  // thread can see it, hands out references without counting each one.
  friend struct detail::FreshReferences;
  // Containers release their values in one loop, strings inline.
  friend class detail::NestedRelease;

  explicit Value(Kind k) noexcept : head_(uint16_t(k)), bits_(0) {}
  // A value is copied as two 8-byte words, never as one 16-byte block:
  // most values are moved just after they were made, by two 8-byte stores,
  // and a 16-byte load cannot take its data from those (the store-forwarding
  // stall costs more than the copy). Passing one word through a register
  // keeps the compiler from merging the two copies.
  [[gnu::always_inline]] static uint64_t Word(uint64_t word) noexcept {
    asm("" : "+r"(word));
    return word;
  }
  // Strings, objects and arrays hold counted storage; every other kind is
  // plain bits, copied and dropped without a call.
  bool Shared() const noexcept {
    return bits_ != 0 && (code() == uint16_t(Kind::kString) || code() == uint16_t(Kind::kObject) ||
                          (code() & kArrayFlag) != 0);
  }
  void Release() noexcept;
  void Retain() const noexcept;
  detail::ArrayRep* UniqueArray();

  // The kind code in the low 16 bits, the rest zero in every value the
  // library makes (only code() is ever read, so a C caller's reserved bits
  // do no harm). One word, so that a value is copied and moved as two whole
  // words: a 2-byte code with its padding stored apart made each move four
  // stores, not two.
  uint64_t head_;
  union {
    uint64_t bits_;
    int16_t i16_;
    int32_t i32_;
    int64_t i64_;
    uint8_t u8_;
    float f32_;
    double f64_;
    detail::StringRep* str_;
    detail::ArrayRep* arr_;
    Object* obj_;
  };
};

static_assert(sizeof(Value) == 16, "Value must stay 16 bytes");

inline void swap(Value& a, Value& b) noexcept {
  a.swap(b);
}

// The default value of an element kind: 0 of that kind, "" for String,
// Nothing for Object, Empty for Variant.
KESTREL_API Value DefaultOf(Kind kind);

}  // namespace kestrel
