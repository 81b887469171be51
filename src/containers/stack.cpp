#include "kestrel/containers/stack.hpp"

#include <new>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {

KESTREL_REGISTER_CLASS(Stack, Stack::kQualifiedName, Instancing::kCreatable);

Stack::Stack() {
  Clear();
}

void Stack::RaiseEmpty() {
  RaiseStandard(errors::kSubscriptOutOfRange);
}

void Stack::Grow() {
  // The bound is a Long computed from a Double: rounded ties to even, 6
  // past the 32-bit range, exactly as the runtime converts it.
  Resize(runtime::ToLong(Value(capacity_ * kGrowthFactor)));
}

void Stack::ShrinkIfHalf(int32_t held) {
  const int32_t half = runtime::ToLong(Value(capacity_ / kGrowthFactor));
  if (held == half) Resize(half);
}

Value Stack::Item(int32_t index) const {
  // Deliberately bounded by the slots, not by Count.
  if (index < 1 || index - 1 > capacity_) RaiseStandard(errors::kSubscriptOutOfRange);
  return items_[static_cast<size_t>(index - 1)];
}

void Stack::Clear() {
  std::vector<Value> fresh(kInitialCapacity + 1);
  items_.swap(fresh);
  capacity_ = kInitialCapacity;
  count_ = 0;
  // The old entries are released with `fresh`, after the stack is reset.
}

void Stack::Resize(int32_t bound) {
  const size_t slots = static_cast<size_t>(bound) + 1;
  if (slots > items_.size()) {
    try {
      items_.reserve(slots);  // exactly: doubling is the bound's own rule
    } catch (const std::bad_alloc&) {
      RaiseStandard(errors::kOutOfMemory);
    }
    items_.resize(slots);  // no allocation left to fail
  } else {
    // Shrinking drops only slots above the top (Empty or Null). The storage
    // is handed back only once it is more than twice what is used, so a
    // stack that hovers around a boundary does not reallocate on every
    // push and pop.
    items_.resize(slots);
    if (items_.capacity() > 2 * slots) items_.shrink_to_fit();
  }
  capacity_ = bound;
}

const DispatchTable<Stack>& Stack::Dispatch() {
  using T = DispatchTable<Stack>;
  static const T table = T::Builder(u"Stack")
                             .Method(u"Add", 1, 1, [](Stack& s, Args& a) { return s.Add(a[0]); })
                             .Method(u"Remove", 0, 0, [](Stack& s, Args&) { return s.Remove(); })
                             .Get(u"Count", [](Stack& s, Args&) { return Value(s.Count()); })
                             .Get(
                                 u"Item", [](Stack& s, Args& a) { return s.Item(a.Long(0)); }, 1, 1)
                             .Get(u"Top", [](Stack& s, Args&) { return s.Top(); })
                             .Method(u"Clear", 0, 0,
                                     [](Stack& s, Args&) {
                                       s.Clear();
                                       return Value();
                                     })
                             .Build();
  return table;
}

}  // namespace kestrel
