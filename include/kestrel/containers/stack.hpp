// Stack: a last-in first-out list of Values in a growable array of slots.
//
// The stack owns copies of the values pushed on it; objects are held as
// counted references, so pushing an object shares it. Storage starts at a
// bound of 256 (slots 0 .. 256), doubles when a push finds it full (256,
// 512, 1024, ...) and halves on a Remove that starts with exactly half the
// bound in use, never below 256.
//
// Two behaviours are kept on purpose because clients rely on them:
//   - Remove blanks the top slot before reading it, so it returns Null (or
//     Nothing for an object entry), never the entry: read Top first.
//   - Item does not check Count: any position 1 .. bound + 1 reads its slot,
//     Empty above the top, Null where an entry was removed.
// Positions outside the slots raise 9, a bound past the 32-bit range 6; a
// failing call leaves the stack as it was. Not thread-safe.
//
//   auto s = kestrel::MakeRef<kestrel::Stack>();
//   s->Add(kestrel::Value(u"Main"));
//   kestrel::Value name = s->Top();  s->Remove();
//
// Dispatchable as Add, Remove, Count, Item(index), Top and Clear;
// registered as Kestrel.Stack.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel {

class KESTREL_API Stack : public Dispatchable<Stack> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.Stack";

  Stack();

  // Pushes a copy of `value` (a reference for an object). Returns Empty.
  Value Add(const Value& value);
  // Pops the top entry and returns Null, or Nothing when the entry was an
  // object; the stack releases its reference. 9 on an empty stack.
  Value Remove();
  int32_t Count() const noexcept { return count_; }
  // The slot at 1-based position `index` from the bottom (1 the oldest
  // entry); 9 below 1 or above the bound + 1.
  Value Item(int32_t index) const;
  // The newest entry; 9 on an empty stack.
  Value Top() const {
    if (count_ == 0) RaiseEmpty();
    return items_[static_cast<size_t>(count_ - 1)];
  }
  // Releases every entry and returns to the initial bound.
  void Clear();

  static const DispatchTable<Stack>& Dispatch();

 private:
  static constexpr int32_t kInitialCapacity = 256;
  static constexpr double kGrowthFactor = 2.0;

  [[noreturn]] static void RaiseEmpty();
  // Doubles the bound (6 past the 32-bit range).
  void Grow();
  // Halves the bound when `held` entries are exactly half of it.
  void ShrinkIfHalf(int32_t held);
  // New bound for the slots (slots 0 .. bound), keeping their contents.
  void Resize(int32_t bound);

  std::vector<Value> items_;
  int32_t count_ = 0;
  int32_t capacity_ = 0;  // the highest slot index; items_ has capacity_ + 1
};

// Push, top and pop are inline: tracers and profilers do one of each per
// traced call.

inline Value Stack::Add(const Value& value) {
  if (count_ == capacity_) Grow();
  Value copy(value);
  items_[static_cast<size_t>(count_)].swap(copy);
  ++count_;  // cannot overflow: count_ < capacity_ here
  return Value();
}

inline Value Stack::Remove() {
  if (count_ == 0) RaiseEmpty();
  Value& slot = items_[static_cast<size_t>(count_ - 1)];
  // The slot is blanked first and then read, so the caller never gets the
  // entry back; clients are written against this and read Top first. The
  // entry itself is dropped when this call returns, so whatever its release
  // triggers sees a consistent stack.
  Value released = slot.IsObject() ? Value::Nothing() : Value::Null();
  slot.swap(released);
  Value result = slot;
  // The shrink test uses the count from before the removal.
  if (capacity_ > kInitialCapacity) ShrinkIfHalf(count_);
  --count_;
  return result;
}

}  // namespace kestrel
