#include "kestrel/frame/value.hpp"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "frame/node_memory.hpp"
#include "frame/string_release.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"

namespace kestrel {
namespace detail {

namespace {
StringRep* MakeString(std::u16string_view text) {
  void* raw = AllocateNode(sizeof(StringRep) + text.size() * sizeof(char16_t));
  auto* rep = new (raw) StringRep{{1}, static_cast<uint32_t>(text.size())};
  std::memcpy(rep->data(), text.data(), text.size() * sizeof(char16_t));
  return rep;
}
}  // namespace

void FreeString(StringRep* rep) noexcept {
  const size_t bytes = sizeof(StringRep) + rep->size * sizeof(char16_t);
  rep->~StringRep();
  FreeNode(rep, bytes);
}

void ApplyReleases(StringRep* rep, uint32_t count) noexcept {
  if (rep->refs.fetch_sub(count, std::memory_order_acq_rel) == count) FreeString(rep);
}

void HeldReleases::ApplyAll() noexcept {
  for (size_t i = 0; i < used_count; ++i) {
    Slot& slot = slots[used[i]];
    ApplyReleases(slot.rep, slot.count);
    slot = {};
  }
  used_count = 0;
}

[[gnu::tls_model("initial-exec")]] thread_local HeldReleases* t_held = nullptr;

DeferredStringReleases::DeferredStringReleases() noexcept : owner_(t_held == nullptr) {
  if (!owner_) return;
  // One table per thread, made once and kept for the thread's life: a
  // scope opens for every tree released, and most trees are small. On the
  // heap, because a library loaded at run time has little room for
  // thread-local data of its own.
  thread_local std::unique_ptr<HeldReleases> table;
  if (!table) {
    table.reset(new (std::nothrow) HeldReleases());
    if (!table) {
      owner_ = false;  // decrements are then applied one by one, as always
      return;
    }
  }
  t_held = table.get();
}

DeferredStringReleases::~DeferredStringReleases() {
  if (!owner_) return;
  HeldReleases* held = t_held;
  // Closed before the held drops are applied: the scope is over for them.
  t_held = nullptr;
  held->ApplyAll();
}

static_assert(alignof(StringRep) >= alignof(char16_t));

// Array storage, shared copy-on-write. Byte arrays keep plain bytes so they
// can be handed to I/O and digests as they are; every other element kind is
// held as Values of exactly that kind.
struct ArrayRep {
  std::atomic<uint32_t> refs{1};
  Kind element;
  std::vector<Bounds> bounds;
  std::vector<Value> values;
  std::vector<uint8_t> bytes;

  size_t count() const noexcept {
    return element == Kind::kByte ? bytes.size() : values.size();
  }
  void Release() noexcept {
    if (refs.load(std::memory_order_acquire) == 1 ||
        refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      delete this;
    }
  }
};

}  // namespace detail

namespace {

bool IsArrayElementKind(Kind k) {
  switch (k) {
    case Kind::kInteger: case Kind::kLong: case Kind::kSingle: case Kind::kDouble:
    case Kind::kDate: case Kind::kString: case Kind::kObject: case Kind::kError:
    case Kind::kBoolean: case Kind::kVariant: case Kind::kByte: case Kind::kLongLong:
      return true;
    default:
      return false;
  }
}

// Validates bounds and returns the element count they describe.
size_t CountElements(std::span<const Bounds> bounds) {
  if (bounds.empty() || bounds.size() > size_t(kMaxArrayDimensions))
    RaiseStandard(errors::kSubscriptOutOfRange);
  // Keep within what a 32-bit client could index; beyond that is out of memory.
  constexpr int64_t kMaxElements = int64_t{1} << 31;
  int64_t total = 1;
  for (const Bounds& b : bounds) {
    int64_t n = b.Count();
    if (n < 0) RaiseStandard(errors::kSubscriptOutOfRange);
    if (n != 0 && total > kMaxElements / n) RaiseStandard(errors::kOutOfMemory);
    total *= n;
  }
  return static_cast<size_t>(total);
}

detail::ArrayRep* MakeArrayRep(Kind element, std::span<const Bounds> bounds) {
  size_t count = CountElements(bounds);
  auto* rep = new detail::ArrayRep{};
  rep->element = element;
  rep->bounds.assign(bounds.begin(), bounds.end());
  try {
    if (element == Kind::kByte) {
      rep->bytes.assign(count, 0);
    } else {
      rep->values.assign(count, DefaultOf(element));
    }
  } catch (const std::bad_alloc&) {
    delete rep;
    RaiseStandard(errors::kOutOfMemory);
  }
  return rep;
}

}  // namespace

Value DefaultOf(Kind kind) {
  switch (kind) {
    case Kind::kInteger: return Value(int16_t{0});
    case Kind::kLong: return Value(int32_t{0});
    case Kind::kSingle: return Value(0.0f);
    case Kind::kDouble: return Value(0.0);
    case Kind::kDate: return Value::Date(0.0);
    case Kind::kString: return Value(std::u16string_view());
    case Kind::kObject: return Value::Nothing();
    case Kind::kError: return Value::ErrorCode(0);
    case Kind::kBoolean: return Value(false);
    case Kind::kByte: return Value(uint8_t{0});
    case Kind::kLongLong: return Value(int64_t{0});
    case Kind::kNull: return Value::Null();
    default: return Value();
  }
}

// --- construction and lifetime ----------------------------------------------

Value::Value(std::u16string_view text) : head_(uint16_t(Kind::kString)), bits_(0) {
  if (!text.empty()) str_ = detail::MakeString(text);
}

Value::Value(Object* object) noexcept : head_(uint16_t(Kind::kObject)), bits_(0) {
  obj_ = object;
  if (obj_) obj_->AddRef();
}

Value Value::ErrorCode(int32_t code) noexcept {
  Value v(Kind::kError);
  v.i32_ = code;
  return v;
}

Value Value::Date(double serial) noexcept {
  Value v(Kind::kDate);
  v.f64_ = serial;
  return v;
}

Value Value::FromUtf8(std::string_view utf8) { return Value(kestrel::FromUtf8(utf8)); }

Value Value::NewArray(Kind element, std::span<const Bounds> bounds) {
  if (!IsArrayElementKind(element)) RaiseStandard(errors::kTypeMismatch);
  Value v(static_cast<Kind>(kArrayFlag | uint16_t(element)));
  v.arr_ = MakeArrayRep(element, bounds);
  return v;
}

Value Value::UnallocatedArray(Kind element) noexcept {
  return Value(static_cast<Kind>(kArrayFlag | uint16_t(element)));
}

Value Value::ByteArray(std::span<const uint8_t> bytes) {
  Value v = NewArray(Kind::kByte, {{0, static_cast<int32_t>(bytes.size()) - 1}});
  std::copy(bytes.begin(), bytes.end(), v.arr_->bytes.begin());
  return v;
}

Value Value::VariantArray(std::span<const Value> items, int32_t lower) {
  Value v = NewArray(Kind::kVariant, {{lower, lower + static_cast<int32_t>(items.size()) - 1}});
  std::copy(items.begin(), items.end(), v.arr_->values.begin());
  return v;
}

void Value::Retain() const noexcept {
  if (code() & kArrayFlag) {
    if (arr_) arr_->refs.fetch_add(1, std::memory_order_relaxed);
  } else if (code() == uint16_t(Kind::kString)) {
    if (str_) str_->refs.fetch_add(1, std::memory_order_relaxed);
  } else if (code() == uint16_t(Kind::kObject)) {
    if (obj_) obj_->AddRef();
  }
}

namespace {
[[gnu::noinline]] void ReleaseHeld(uint16_t code, detail::ArrayRep* array,
                                   Object* object) noexcept {
  if (code & kArrayFlag) {
    if (array) array->Release();
  } else if (code == uint16_t(Kind::kObject)) {
    if (object) object->Release();
  }
}
}  // namespace

void Value::Release() noexcept {
  // Strings apart: most releases are of strings, and their path calls
  // nothing in the common cases, so it needs no stack frame.
  if (code() == uint16_t(Kind::kString)) {
    if (str_) detail::ReleaseString(str_);
  } else {
    ReleaseHeld(code(), arr_, obj_);
  }
  bits_ = 0;
}

// --- scalars ------------------------------------------------------------------

bool Value::IsNumeric() const noexcept {
  switch (static_cast<Kind>(code())) {
    case Kind::kInteger: case Kind::kLong: case Kind::kSingle: case Kind::kDouble:
    case Kind::kDate: case Kind::kBoolean: case Kind::kByte: case Kind::kLongLong:
      return true;
    default:
      return false;
  }
}

std::string Value::ToUtf8String() const { return kestrel::ToUtf8(string()); }

bool Value::SharesStorageWith(const Value& other) const noexcept {
  return code() == other.code() && bits_ == other.bits_ && bits_ != 0 &&
         (IsArray() || IsString() || IsObject());
}

// --- arrays -------------------------------------------------------------------

int Value::Dimensions() const noexcept {
  return IsAllocated() ? static_cast<int>(arr_->bounds.size()) : 0;
}

Bounds Value::GetBounds(int dimension) const {
  if (!IsAllocated() || dimension < 1 || dimension > Dimensions())
    RaiseStandard(errors::kSubscriptOutOfRange);
  return arr_->bounds[size_t(dimension - 1)];
}

size_t Value::ElementCount() const noexcept { return IsAllocated() ? arr_->count() : 0; }

size_t Value::LinearIndex(std::span<const int32_t> subscripts) const {
  if (!IsAllocated() || subscripts.size() != arr_->bounds.size())
    RaiseStandard(errors::kSubscriptOutOfRange);
  size_t linear = 0;
  size_t stride = 1;
  for (size_t d = 0; d < subscripts.size(); ++d) {
    const Bounds& b = arr_->bounds[d];
    if (subscripts[d] < b.lower || subscripts[d] > b.upper)
      RaiseStandard(errors::kSubscriptOutOfRange);
    linear += size_t(int64_t{subscripts[d]} - b.lower) * stride;
    stride *= size_t(b.Count());
  }
  return linear;
}

Value Value::ElementAt(size_t linear) const {
  if (linear >= ElementCount()) RaiseStandard(errors::kSubscriptOutOfRange);
  if (arr_->element == Kind::kByte) return Value(arr_->bytes[linear]);
  return arr_->values[linear];
}

void Value::SetElementAt(size_t linear, Value value) {
  if (linear >= ElementCount()) RaiseStandard(errors::kSubscriptOutOfRange);
  Kind element = arr_->element;
  if (element != Kind::kVariant && value.code() != uint16_t(element))
    RaiseStandard(errors::kTypeMismatch);
  detail::ArrayRep* rep = UniqueArray();
  if (element == Kind::kByte) {
    rep->bytes[linear] = value.byte();
  } else {
    rep->values[linear] = std::move(value);
  }
}

Value Value::GetElement(std::span<const int32_t> subscripts) const {
  return ElementAt(LinearIndex(subscripts));
}

void Value::SetElement(std::span<const int32_t> subscripts, Value value) {
  SetElementAt(LinearIndex(subscripts), std::move(value));
}

std::span<const Value> Value::Elements() const noexcept {
  if (!IsAllocated()) return {};
  return arr_->values;
}

std::span<Value> Value::MutableElements() {
  if (!IsAllocated() || arr_->element == Kind::kByte) return {};
  return UniqueArray()->values;
}

std::span<const uint8_t> Value::Bytes() const noexcept {
  if (!IsAllocated()) return {};
  return arr_->bytes;
}

std::span<uint8_t> Value::MutableBytes() {
  if (!IsAllocated() || arr_->element != Kind::kByte) return {};
  return UniqueArray()->bytes;
}

detail::ArrayRep* Value::UniqueArray() {
  if (arr_->refs.load(std::memory_order_acquire) != 1) {
    auto* copy = new detail::ArrayRep{};
    copy->element = arr_->element;
    copy->bounds = arr_->bounds;
    copy->values = arr_->values;
    copy->bytes = arr_->bytes;
    arr_->Release();
    arr_ = copy;
  }
  return arr_;
}

void Value::ReDim(std::span<const Bounds> bounds, bool preserve) {
  if (!IsArray()) RaiseStandard(errors::kTypeMismatch);
  Kind element = kind();
  if (!preserve || !IsAllocated()) {
    detail::ArrayRep* rep = MakeArrayRep(element, bounds);
    if (arr_) arr_->Release();
    arr_ = rep;
    return;
  }
  // Preserve keeps the storage order, so only the slowest-varying (last)
  // dimension can grow or shrink: everything before it must stay as it is.
  const std::vector<Bounds>& old = arr_->bounds;
  if (bounds.size() != old.size()) RaiseStandard(errors::kSubscriptOutOfRange);
  for (size_t d = 0; d + 1 < old.size(); ++d) {
    if (bounds[d].lower != old[d].lower || bounds[d].upper != old[d].upper)
      RaiseStandard(errors::kSubscriptOutOfRange);
  }
  if (bounds.back().lower != old.back().lower) RaiseStandard(errors::kSubscriptOutOfRange);
  size_t count = CountElements(bounds);
  detail::ArrayRep* rep = UniqueArray();
  try {
    if (element == Kind::kByte) {
      rep->bytes.resize(count, 0);
    } else {
      rep->values.resize(count, DefaultOf(element));
    }
  } catch (const std::bad_alloc&) {
    RaiseStandard(errors::kOutOfMemory);
  }
  rep->bounds.back() = bounds.back();
}

void Value::Erase() noexcept {
  if (IsAllocated()) {
    arr_->Release();
    arr_ = nullptr;
  }
}

}  // namespace kestrel
