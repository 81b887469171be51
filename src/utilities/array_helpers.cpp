// Utilities: testing, counting, growing, copying, rebasing, reversing,
// deduplicating, searching and sorting arrays held in Values.
//
// The sorts work on the array's storage directly (a span of Values, or of
// bytes for a Byte array) and swap elements as 16-byte bit swaps; indexing
// is checked only when the requested range reaches outside the array, so
// that a bad range still fails with 9 at the access that leaves it, after
// whatever the algorithm had already done, as an element-by-element sort
// would.

#include <cstdint>
#include <exception>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/compare.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/utilities/utilities.hpp"

namespace kestrel {
namespace {

constexpr uint16_t kVariantArray = kArrayFlag | uint16_t(Kind::kVariant);
constexpr uint16_t kStringArray = kArrayFlag | uint16_t(Kind::kString);

// Parameters typed as an array of one kind accept nothing else.
void RequireArrayOf(const Value& value, uint16_t code) {
  if (value.code() != code) RaiseStandard(errors::kTypeMismatch);
}

Value EmptyValueArray() {
  return Value::NewArray(Kind::kVariant, {{0, -1}});
}

int32_t CheckedLong(int64_t n) {
  if (n < INT32_MIN || n > INT32_MAX) RaiseStandard(errors::kOverflow);
  return static_cast<int32_t>(n);
}

// --- sorting ----------------------------------------------------------------

// Element orders. Each gives the pivot's key and tests an element against
// it; the general one is the runtime's comparison, where a Null result (an
// element is Null) is neither less nor greater. The Double and String orders
// are that same comparison for an array known to hold only Doubles, or only
// Strings (binary mode), with the kind tests done once for the whole range
// instead of at every comparison: the sorts make exactly the same moves.
struct ValueOrder {
  // A copy: the pivot is a value, and its slot may take part in the swaps.
  using Key = Value;
  static Key KeyOf(const Value& v) { return v; }
  static bool Less(const Value& a, const Key& pivot) {
    return runtime::Compare(a, pivot) == Ordering::kLess;
  }
  static bool Greater(const Value& a, const Key& pivot) {
    return runtime::Compare(a, pivot) == Ordering::kGreater;
  }
};

struct DoubleOrder {
  using Key = double;
  static Key KeyOf(const Value& v) { return v.dbl(); }
  static bool Less(const Value& a, Key pivot) { return a.dbl() < pivot; }
  static bool Greater(const Value& a, Key pivot) { return pivot < a.dbl(); }
};

struct StringOrder {
  // Swaps never release a string, so a view of the pivot's text stays
  // valid while its Value moves around the array.
  using Key = std::u16string_view;
  static Key KeyOf(const Value& v) { return v.string(); }
  static bool Less(const Value& a, Key pivot) { return a.string().compare(pivot) < 0; }
  static bool Greater(const Value& a, Key pivot) { return a.string().compare(pivot) > 0; }
};

struct ByteOrder {
  using Key = uint8_t;
  static Key KeyOf(uint8_t v) { return v; }
  static bool Less(uint8_t a, Key pivot) { return a < pivot; }
  static bool Greater(uint8_t a, Key pivot) { return a > pivot; }
};

enum class Homogeneous { kDoubles, kStrings, kMixed };

Homogeneous Classify(std::span<const Value> items) {
  if (items.empty()) return Homogeneous::kMixed;
  const uint16_t code = items.front().code();
  if (code != uint16_t(Kind::kDouble) && code != uint16_t(Kind::kString)) {
    return Homogeneous::kMixed;
  }
  for (const Value& v : items) {
    if (v.code() != code) return Homogeneous::kMixed;
  }
  return code == uint16_t(Kind::kDouble) ? Homogeneous::kDoubles : Homogeneous::kStrings;
}

// Calls fn with the cheapest order that compares exactly like the runtime
// over data[first .. last] (storage positions).
template <class F>
void WithOrderFor(const Value* data, int64_t first, int64_t last, F&& fn) {
  switch (Classify({data + first, size_t(last - first + 1)})) {
    case Homogeneous::kDoubles:
      return fn(DoubleOrder());
    case Homogeneous::kStrings:
      return fn(StringOrder());
    case Homogeneous::kMixed:
      return fn(ValueOrder());
  }
}

// Dimension 1 of an array by its own subscripts. Checked slots raise 9 for a
// subscript outside the array, at the access; unchecked ones are for ranges
// already known to lie inside.
template <class T, bool kChecked>
struct Slots {
  T* data;
  int64_t lower;
  int64_t upper;
  T& operator[](int64_t i) const {
    if constexpr (kChecked) {
      if (i < lower || i > upper) RaiseStandard(errors::kSubscriptOutOfRange);
    }
    return data[i - lower];
  }
};

// (low + high) / 2 as an exact half, rounded to the nearest whole number
// with ties to even: (0 + 5) / 2 picks 2, (0 + 3) / 2 picks 2.
int64_t HalfEvenMidpoint(int64_t low, int64_t high) {
  const int64_t sum = low + high;
  const int64_t floor_half = sum >= 0 ? sum / 2 : -((-sum + 1) / 2);
  if (sum % 2 == 0) return floor_half;
  return floor_half % 2 == 0 ? floor_half : floor_half + 1;
}

// Recursion beyond this depth (only reachable with inputs built against the
// middle-element pivot) reports the runtime's out-of-stack error instead of
// overflowing the thread's stack.
constexpr int kMaxQuickSortDepth = 1 << 14;

template <class Order, class S>
void QuickSortRange(const S& a, int64_t low, int64_t high, int depth) {
  using std::swap;
  if (depth > kMaxQuickSortDepth) RaiseStandard(errors::kOutOfStackSpace);
  for (;;) {
    const typename Order::Key pivot = Order::KeyOf(a[HalfEvenMidpoint(low, high)]);
    int64_t i = low;
    int64_t j = high;
    while (i <= j) {
      while (Order::Less(a[i], pivot) && i < high) ++i;
      while (Order::Greater(a[j], pivot) && j > low) --j;
      if (i <= j) {
        swap(a[i], a[j]);
        ++i;
        --j;
      }
    }
    if (low < j) QuickSortRange<Order>(a, low, j, depth + 1);
    // The second part is the last thing this level does: iterate instead.
    if (i >= high) return;
    low = i;
  }
}

template <class T>
void QuickSortStorage(T* data, Bounds bounds, int64_t low, int64_t high) {
  const int64_t mid = HalfEvenMidpoint(low, high);
  if (mid < bounds.lower || mid > bounds.upper) RaiseStandard(errors::kSubscriptOutOfRange);
  if (low > high) return;  // only the pivot was read
  if (low < bounds.lower || high > bounds.upper) {
    // Fails at the first access outside, after what was done before it.
    Slots<T, true> slots{data, bounds.lower, bounds.upper};
    if constexpr (std::is_same_v<T, uint8_t>) {
      QuickSortRange<ByteOrder>(slots, low, high, 0);
    } else {
      QuickSortRange<ValueOrder>(slots, low, high, 0);
    }
    return;
  }
  Slots<T, false> slots{data, bounds.lower, bounds.upper};
  if constexpr (std::is_same_v<T, uint8_t>) {
    QuickSortRange<ByteOrder>(slots, low, high, 0);
  } else {
    WithOrderFor(data, low - bounds.lower, high - bounds.lower,
                 [&](auto order) { QuickSortRange<decltype(order)>(slots, low, high, 0); });
  }
}

// The iterative sort: the larger part of each partition goes on a fixed
// stack of 33 (low, high) pairs and the smaller one is worked on at once,
// which keeps the stack within log2 of the element count.
constexpr int kSortStackEntries = 33;

template <class Order, class S>
void SQuickSortRange(const S& a, int64_t sort_from, int64_t sort_to) {
  int64_t stack_low[kSortStackEntries];
  int64_t stack_high[kSortStackEntries];
  int pointer = 0;
  stack_low[0] = sort_from;
  stack_high[0] = sort_to;
  auto push = [&](int64_t low, int64_t high) {
    if (pointer >= kSortStackEntries) RaiseStandard(errors::kSubscriptOutOfRange);
    stack_low[pointer] = low;
    stack_high[pointer] = high;
    ++pointer;
  };
  while (pointer >= 0) {
    int64_t l = stack_low[pointer];
    int64_t r = stack_high[pointer];
    while (r > l) {
      const int64_t m = l + (r - l) / 2;
      a[l].swap(a[m]);
      // The pivot stays at l: i starts past it and j never goes below i - 1.
      const typename Order::Key pivot = Order::KeyOf(a[l]);
      int64_t i = l + 1;
      int64_t j = r;
      for (;;) {
        while (i < j && Order::Less(a[i], pivot)) ++i;
        while (j >= i && Order::Greater(a[j], pivot)) --j;
        if (i >= j) break;
        a[i].swap(a[j]);
        ++i;
        --j;
      }
      a[l].swap(a[j]);
      if (j - l > r - j) {
        if (j - 1 > l) push(l, j - 1);
        l = j + 1;
      } else {
        if (j + 1 < r) push(j + 1, r);
        r = j - 1;
      }
    }
    --pointer;
  }
}

}  // namespace

// --- tests and counts ---------------------------------------------------------

bool Utilities::IsEmptyArray(const Value& value_array) {
  try {
    if (!value_array.IsAllocated()) return true;
    const Bounds b = value_array.GetBounds(1);
    return b.upper < b.lower;
  } catch (const std::exception&) {
    return true;
  }
}

int32_t Utilities::DimensionCount(const Value& value_array) {
  // Non-arrays and unallocated arrays answer no bound at all.
  return value_array.IsArray() ? value_array.Dimensions() : 0;
}

Value Utilities::ArrayCount(const Value& value_array, int16_t dimension) {
  if (Shared().IsEmptyArray(value_array)) return Value(int16_t{0});
  return Value(CheckedLong(value_array.GetBounds(dimension).Count()));
}

bool Utilities::ArrayDimMatch(const Value& array_x, const Value& array_y) {
  try {
    if (!array_x.IsArray() || !array_y.IsArray()) return false;
    // Both counts read array_x on purpose: array_y is only checked through
    // its bounds below, so extra dimensions in it go unnoticed.
    const int32_t n = Shared().DimensionCount(array_x);
    if (n != Shared().DimensionCount(array_x)) return false;
    for (int d = 1; d <= n; ++d) {
      const Bounds bx = array_x.GetBounds(d);
      const Bounds by = array_y.GetBounds(d);
      if (bx.upper != by.upper || bx.lower != by.lower) return false;
    }
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

bool Utilities::ArrayEquals(const Value& array_x, const Value& array_y, CompareMethod compare) {
  try {
    if (!Shared().ArrayDimMatch(array_x, array_y)) return false;
    const size_t count = array_x.ElementCount();
    for (size_t i = 0; i < count; ++i) {
      if (!Shared().Equals(array_x.ElementAt(i), array_y.ElementAt(i), compare)) return false;
    }
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

// --- growing and copying --------------------------------------------------------

Value Utilities::AddToArray(Value& value_array, const Value& value, bool unique) {
  if (value.IsArray()) {
    // A copy, so that adding an array to itself walks the original elements.
    const Value items = value;
    const size_t count = items.ElementCount();
    for (size_t i = 0; i < count; ++i) Shared().AddToArray(value_array, items.ElementAt(i), unique);
    return value_array;
  }
  if (runtime::ToLong(Shared().ArrayCount(value_array)) == 0) {
    value_array = Value::NewArray(Kind::kVariant, {{0, 0}});
    value_array.SetElement({0}, value);
    return value_array;
  }
  const Bounds b = value_array.GetBounds(1);
  if (unique) {
    for (int64_t i = b.lower; i <= b.upper; ++i) {
      const Value element = value_array.GetElement({static_cast<int32_t>(i)});
      // Objects match by identity; every other pair by the comparison rules
      // (which reject an object against anything but an object).
      const bool match = element.IsObject() && value.IsObject() ? element.object() == value.object()
                                                                : runtime::IsEqual(element, value);
      if (match) return value_array;
    }
  }
  const int32_t upper = CheckedLong(int64_t{b.upper} + 1);
  value_array.ReDim({{b.lower, upper}}, true);
  const int32_t subscript[] = {upper};
  runtime::AssignElement(value_array, subscript, value);
  return value_array;
}

void Utilities::CloneArray(const Value& source, Value& destination) {
  if (!source.IsArray()) RaiseStandard(errors::kTypeMismatch);
  if (Shared().IsEmptyArray(source)) {
    if (destination.IsArray()) {
      destination.Erase();
    } else {
      destination = Value::UnallocatedArray(Kind::kVariant);
    }
    return;
  }
  // Only dimension 1 is read: a source with more dimensions fails with 9 at
  // its first element. Built aside, so cloning an array onto itself works.
  const Bounds b = source.GetBounds(1);
  Value copy = Value::NewArray(Kind::kVariant, {b});
  std::span<Value> out = copy.MutableElements();
  for (int64_t i = b.lower; i <= b.upper; ++i) {
    out[size_t(i - b.lower)] = source.GetElement({static_cast<int32_t>(i)});
  }
  destination = std::move(copy);
}

Value Utilities::ReboundArray(const Value& value_array, int32_t new_lbound) {
  if (runtime::ToLong(Shared().ArrayCount(value_array)) == 0) return EmptyValueArray();
  const Bounds b = value_array.GetBounds(1);
  const int64_t shift = int64_t{new_lbound} - b.lower;
  if (shift == 0) return value_array;
  Value result =
      Value::NewArray(Kind::kVariant, {{new_lbound, CheckedLong(int64_t{b.upper} + shift)}});
  std::span<Value> out = result.MutableElements();
  for (int64_t i = b.lower; i <= b.upper; ++i) {
    out[size_t(i - b.lower)] = value_array.GetElement({static_cast<int32_t>(i)});
  }
  return result;
}

// --- reshaping ------------------------------------------------------------------

Value Utilities::ReverseOrder(const Value& value_array) {
  RequireArrayOf(value_array, kVariantArray);
  if (Shared().IsEmptyArray(value_array)) return EmptyValueArray();
  const Bounds b = value_array.GetBounds(1);
  Value result = Value::NewArray(Kind::kVariant, {b});
  // UB - i - LB is the mirror position only for a lower bound of 0; any other
  // lower bound sends some element outside the result (9). Kept as it is.
  for (int64_t i = b.lower; i <= b.upper; ++i) {
    const int64_t target = int64_t{b.upper} - i - b.lower;
    if (target < b.lower || target > b.upper) RaiseStandard(errors::kSubscriptOutOfRange);
    result.SetElement({static_cast<int32_t>(target)},
                      value_array.GetElement({static_cast<int32_t>(i)}));
  }
  return result;
}

Value Utilities::UniqueValueArray(const Value& value_array) {
  if (!value_array.IsArray()) RaiseStandard(errors::kTypeMismatch);
  std::vector<Value> taken;
  const size_t count = value_array.ElementCount();
  for (size_t n = 0; n < count; ++n) {
    Value element = value_array.ElementAt(n);
    if (element.IsEmpty()) continue;
    bool seen = false;
    for (const Value& t : taken) {
      // Null compares as Null, never equal: every Null is kept.
      if (runtime::IsEqual(element, t)) {
        seen = true;
        break;
      }
    }
    if (!seen) taken.push_back(std::move(element));
  }
  if (taken.empty()) return EmptyValueArray();
  return Value::VariantArray(taken);
}

Value Utilities::StringArray(const Value& value) {
  RequireArrayOf(value, kVariantArray);
  const int32_t upper = value.UBound(1);
  if (upper < 0) return Value::UnallocatedArray(Kind::kString);
  Value result = Value::NewArray(Kind::kString, {{0, upper}});
  std::span<Value> out = result.MutableElements();
  // From index 0 whatever the lower bound: a lower bound above 0 fails with
  // 9 at the first element, on purpose.
  for (int32_t i = 0; i <= upper; ++i) {
    out[size_t(i)] = Value(runtime::ToText(value.GetElement({i})));
  }
  return result;
}

// --- searching ------------------------------------------------------------------

bool Utilities::IsElement(const Value& value, const Value& value_array) {
  if (Shared().IsEmptyArray(value_array)) return false;
  const size_t count = value_array.ElementCount();
  for (size_t i = 0; i < count; ++i) {
    if (Shared().Equals(value, value_array.ElementAt(i), CompareMethod::kBinary)) return true;
  }
  return false;
}

bool Utilities::IsStringElement(const Value& value, const Value& value_array,
                                CompareMethod compare) {
  RequireArrayOf(value_array, kStringArray);
  const Value text(runtime::ToText(value));
  for (const Value& s : value_array.Elements()) {
    if (Shared().Equals(text, s, compare)) return true;
  }
  return false;
}

// --- sorting --------------------------------------------------------------------

void Utilities::QuickSort(Value& value_array, Value& low, Value& high) {
  if (Shared().IsEmptyArray(value_array)) return;
  if (low.IsMissing()) low = Value(value_array.LBound(1));
  if (high.IsMissing()) high = Value(value_array.UBound(1));
  const int64_t from = runtime::ToLong(low);
  const int64_t to = runtime::ToLong(high);
  // Elements are read with one subscript: the pivot read fails on an array
  // of more dimensions.
  if (value_array.Dimensions() != 1) RaiseStandard(errors::kSubscriptOutOfRange);
  const Bounds b = value_array.GetBounds(1);
  if (value_array.kind() == Kind::kByte) {
    QuickSortStorage(value_array.MutableBytes().data(), b, from, to);
  } else {
    QuickSortStorage(value_array.MutableElements().data(), b, from, to);
  }
}

void Utilities::QuickSort(Value& value_array) {
  Value low = Value::Missing();
  Value high = Value::Missing();
  QuickSort(value_array, low, high);
}

void Utilities::SQuickSort(Value& value_array, int32_t sort_from, int32_t sort_to) {
  RequireArrayOf(value_array, kVariantArray);
  if (sort_to <= sort_from) return;  // nothing is read
  // An unallocated array, or one of more dimensions, fails at the first
  // element read.
  if (value_array.Dimensions() != 1) RaiseStandard(errors::kSubscriptOutOfRange);
  const Bounds b = value_array.GetBounds(1);
  Value* data = value_array.MutableElements().data();
  if (sort_from >= b.lower && sort_to <= b.upper) {
    Slots<Value, false> slots{data, b.lower, b.upper};
    WithOrderFor(data, sort_from - b.lower, sort_to - b.lower,
                 [&](auto order) { SQuickSortRange<decltype(order)>(slots, sort_from, sort_to); });
  } else {
    // Fails at the first access outside, after what was done before it.
    SQuickSortRange<ValueOrder>(Slots<Value, true>{data, b.lower, b.upper}, sort_from, sort_to);
  }
}

}  // namespace kestrel
