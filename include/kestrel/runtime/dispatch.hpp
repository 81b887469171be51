// Late binding: per-class dispatch tables and CallByName.
//
// A class becomes callable by name by deriving from Dispatchable<Self> and
// describing its members once, in a static table:
//
//   const DispatchTable<Error>& Error::Dispatch() {
//     static const auto table = DispatchTable<Error>::Builder(u"Error")
//         .Property(u"Number",
//                   [](Error& e, Args&) { return Value(e.Number()); },
//                   [](Error& e, Args&, const Value& v) { e.SetNumber(runtime::ToLong(v)); })
//         .Method(u"Raise", 0, 0, [](Error& e, Args&) { e.Raise(); return Value(); })
//         .Build();
//     return table;
//   }
//
// Member names match without regard to case. Arguments arrive as the
// caller's own Values: assigning to args[i] writes back into the caller's
// variable (by-reference arguments). Omitted optional arguments (trailing
// ones not passed) arrive as Missing; an argument the caller passed, even
// Empty or an explicit Missing, arrives as passed.
//
// Parameters come in two sorts, as in the runtime's own late binding. A
// parameter of kind Value takes whatever it is given, Missing included, so
// Mz(Missing, 5) by name behaves as it does from C++. A parameter of a fixed
// kind (String, Long, Boolean, ...) is read through Args' typed accessors
// (Text, Long, Integer, Double, Boolean), which convert as the runtime does
// and raise 449 (argument not optional) for Missing. Fewer arguments than a
// member requires also raise 449; more than it takes raise 450. For property let and set, the
// assigned value is passed separately. A method may also be called as a property get and the other
// way round, as automation clients do; let and set must exist.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>
#include <vector>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/export.hpp"
#include "kestrel/frame/object.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/convert.hpp"

namespace kestrel {

// The arguments of one call. Index past what the caller passed reads as
// Missing (and writes there go nowhere, as for an omitted argument).
class Args {
 public:
  explicit Args(std::span<Value> given) noexcept : given_(given) {}

  Value& operator[](size_t i) noexcept {
    if (i < given_.size()) return given_[i];
    // Each omitted position has its own slot, so a[1] and a[2] held at once
    // are two values; what a member writes there is dropped with the call.
    Value& slot = scratch_[(i - given_.size()) % scratch_.size()];
    slot = Value::Missing();
    return slot;
  }
  // How many the caller passed (trailing omitted ones not counted).
  size_t size() const noexcept { return given_.size(); }
  // Passed and not Missing.
  bool Has(size_t i) const noexcept { return i < given_.size() && !given_[i].IsMissing(); }
  // The arguments from position `first` on (a parameter array).
  std::span<Value> Rest(size_t first) const noexcept {
    return first < given_.size() ? given_.subspan(first) : std::span<Value>();
  }

  // Argument `i` for a parameter of a fixed kind: converted as the runtime
  // converts (13, 6, 94 as the conversion raises); Missing raises 449.
  std::u16string Text(size_t i) { return runtime::ToText(Fixed(i)); }
  int32_t Long(size_t i) { return runtime::ToLong(Fixed(i)); }
  int16_t Integer(size_t i) { return runtime::ToInteger(Fixed(i)); }
  double Double(size_t i) { return runtime::ToDouble(Fixed(i)); }
  bool Boolean(size_t i) { return runtime::ToBoolean(Fixed(i)); }

 private:
  const Value& Fixed(size_t i) {
    const Value& v = (*this)[i];
    if (v.IsMissing()) RaiseStandard(errors::kArgumentNotOptional);
    return v;
  }

  std::span<Value> given_;
  std::array<Value, 8> scratch_;
};

// Use as max_args for a member whose last parameter is a parameter array.
inline constexpr int kParamArray = 1 << 16;

// What a late-bound client can learn about one member without calling it:
// the call kinds it answers and how many arguments each takes (index
// arguments for a property; kParamArray as max_args for a parameter array).
struct MemberInfo {
  std::u16string_view name;
  bool method = false, get = false, let = false, set = false;
  int32_t method_min = 0, method_max = 0;
  int32_t prop_min = 0, prop_max = 0;
};

// The members of an object's class in name order: those of the dispatch
// table built under the object's type name. Empty for an object without a
// table (a client's own object answering by name). The span stays valid for
// the life of the process.
KESTREL_API std::span<const MemberInfo> DescribeMembers(const Object& object);

namespace detail {
// Records a table's members under its class name for DescribeMembers; the
// first table built under a name keeps it.
KESTREL_API void PublishMembers(std::u16string_view class_name, std::vector<MemberInfo> members);
// Case-insensitive (ASCII) ordering of member names.
KESTREL_API int CompareMemberNames(std::u16string_view a, std::u16string_view b) noexcept;
[[noreturn]] KESTREL_API void RaiseUnknownMember();
[[noreturn]] KESTREL_API void RaiseBadCall();
}  // namespace detail

template <class T>
class DispatchTable {
 public:
  using CallFn = Value (*)(T&, Args&);
  using PutFn = void (*)(T&, Args&, const Value&);

  struct Member {
    std::u16string_view name;
    CallFn method = nullptr;
    CallFn get = nullptr;
    PutFn let = nullptr;
    PutFn set = nullptr;
    int method_min = 0, method_max = 0;  // argument counts of the method
    int prop_min = 0, prop_max = 0;      // index arguments of the property
  };

  class Builder {
   public:
    explicit Builder(std::u16string_view class_name) : class_name_(class_name) {}
    Builder& Method(std::u16string_view name, int min_args, int max_args, CallFn fn) {
      Member& m = Find(name);
      m.method = fn;
      m.method_min = min_args;
      m.method_max = max_args;
      return *this;
    }
    // A property; min/max count its index arguments (Item(key) has one).
    Builder& Get(std::u16string_view name, CallFn fn, int min_args = 0, int max_args = 0) {
      Member& m = Find(name);
      m.get = fn;
      m.prop_min = min_args;
      m.prop_max = max_args;
      return *this;
    }
    // Let and Set take the same index arguments as the property's Get; a
    // property without a Get states them here.
    Builder& Let(std::u16string_view name, PutFn fn, int min_args = -1, int max_args = -1) {
      Member& m = Find(name);
      m.let = fn;
      return SetIndexCount(m, min_args, max_args);
    }
    Builder& Set(std::u16string_view name, PutFn fn, int min_args = -1, int max_args = -1) {
      Member& m = Find(name);
      m.set = fn;
      return SetIndexCount(m, min_args, max_args);
    }
    // The member called when the name is empty (the object used as a value
    // or indexed directly: list(1) is list.Item(1)).
    Builder& DefaultMember(std::u16string_view name) {
      default_member_ = name;
      return *this;
    }
    Builder& Property(std::u16string_view name, CallFn get, PutFn let) {
      Get(name, get);
      return Let(name, let);
    }
    DispatchTable Build() {
      std::sort(members_.begin(), members_.end(), [](const Member& a, const Member& b) {
        return detail::CompareMemberNames(a.name, b.name) < 0;
      });
      std::vector<MemberInfo> described;
      described.reserve(members_.size());
      for (const Member& m : members_)
        described.push_back(MemberInfo{m.name, m.method != nullptr, m.get != nullptr,
                                       m.let != nullptr, m.set != nullptr, m.method_min,
                                       m.method_max, m.prop_min, m.prop_max});
      detail::PublishMembers(class_name_, std::move(described));
      return DispatchTable(class_name_, default_member_, std::move(members_));
    }

   private:
    Builder& SetIndexCount(Member& m, int min_args, int max_args) {
      if (min_args >= 0) {
        m.prop_min = min_args;
        m.prop_max = max_args < 0 ? min_args : max_args;
      }
      return *this;
    }
    Member& Find(std::u16string_view name) {
      for (Member& m : members_)
        if (detail::CompareMemberNames(m.name, name) == 0) return m;
      members_.push_back(Member{name});
      return members_.back();
    }
    std::u16string_view class_name_;
    std::u16string_view default_member_;
    std::vector<Member> members_;
  };

  std::u16string_view class_name() const noexcept { return class_name_; }
  std::span<const Member> members() const noexcept { return members_; }

  const Member* Lookup(std::u16string_view name) const noexcept {
    if (name.empty()) return nullptr;
    auto it = std::lower_bound(members_.begin(), members_.end(), name,
                               [](const Member& m, std::u16string_view n) {
                                 return detail::CompareMemberNames(m.name, n) < 0;
                               });
    if (it == members_.end() || detail::CompareMemberNames(it->name, name) != 0) return nullptr;
    return &*it;
  }

  Value Invoke(T& self, std::u16string_view name, CallKind kind, std::span<Value> args) const {
    const Member* m = Lookup(name.empty() ? default_member_ : name);
    if (m == nullptr) detail::RaiseUnknownMember();
    switch (kind) {
      case CallKind::kMethod:
      case CallKind::kGet: {
        // Prefer the entry point matching the call kind, fall back on the other.
        bool use_method = m->method && (kind == CallKind::kMethod || !m->get);
        if (use_method) return Call(m->method, self, args, m->method_min, m->method_max);
        if (m->get) return Call(m->get, self, args, m->prop_min, m->prop_max);
        break;
      }
      case CallKind::kLet:
      case CallKind::kSet: {
        PutFn put = kind == CallKind::kLet ? m->let : m->set;
        if (put == nullptr || args.empty()) break;
        std::span<Value> index = args.first(args.size() - 1);
        if (!CountFits(index.size(), m->prop_min, m->prop_max)) break;
        Args a(index);
        put(self, a, args.back());
        return Value();
      }
    }
    detail::RaiseBadCall();
  }

 private:
  DispatchTable(std::u16string_view class_name, std::u16string_view default_member,
                std::vector<Member> members)
      : class_name_(class_name), default_member_(default_member), members_(std::move(members)) {}

  static bool CountFits(size_t n, int min_args, int max_args) noexcept {
    return n >= size_t(min_args) && n <= size_t(max_args);
  }
  static Value Call(CallFn fn, T& self, std::span<Value> args, int min_args, int max_args) {
    // A required argument absent from the call is not optional (449). An
    // explicit Missing is an argument like any other: a Value parameter
    // receives it, a fixed-kind one refuses it through Args' accessors.
    if (args.size() < size_t(min_args)) RaiseStandard(errors::kArgumentNotOptional);
    // Trailing Missing values count as omitted; a gap before a passed
    // argument is allowed and reads as Missing.
    size_t n = args.size();
    while (n > size_t(min_args) && args[n - 1].IsMissing()) --n;
    if (n > size_t(max_args)) detail::RaiseBadCall();
    // The member still sees the caller's trailing Missing values: a member
    // that fills in an omitted by-reference argument writes it back there.
    Args a(args.first(std::min(args.size(), size_t(max_args))));
    return fn(self, a);
  }

  std::u16string_view class_name_;
  std::u16string_view default_member_;
  std::vector<Member> members_;
};

// Base of every dispatchable class: routes Invoke to Derived::Dispatch().
template <class Derived>
class Dispatchable : public Object {
 public:
  std::u16string_view TypeName() const noexcept override {
    return Derived::Dispatch().class_name();
  }
  Value Invoke(std::u16string_view name, CallKind kind, std::span<Value> args) override {
    return Derived::Dispatch().Invoke(static_cast<Derived&>(*this), name, kind, args);
  }
};

// CallByName: calls a member of an object by name. The values in `args` are
// passed by reference and see the member's write-backs. A Nothing object
// raises 91; a value that is not an object raises 424.
KESTREL_API Value CallByName(Object* object, std::u16string_view name, CallKind kind,
                             std::span<Value> args = {});
KESTREL_API Value CallByName(const Value& object, std::u16string_view name, CallKind kind,
                             std::span<Value> args = {});
// Convenience for arguments passed by value (no write-back to see).
inline Value CallByName(Object* object, std::u16string_view name, CallKind kind,
                        std::initializer_list<Value> args) {
  std::vector<Value> copy(args);
  return CallByName(object, name, kind, std::span<Value>(copy));
}
inline Value CallByName(const Value& object, std::u16string_view name, CallKind kind,
                        std::initializer_list<Value> args) {
  std::vector<Value> copy(args);
  return CallByName(object, name, kind, std::span<Value>(copy));
}
template <class T>
Value CallByName(const Ref<T>& object, std::u16string_view name, CallKind kind,
                 std::initializer_list<Value> args = {}) {
  return CallByName(static_cast<Object*>(object.get()), name, kind, args);
}
template <class T>
Value CallByName(const Ref<T>& object, std::u16string_view name, CallKind kind,
                 std::span<Value> args) {
  return CallByName(static_cast<Object*>(object.get()), name, kind, args);
}

// What NewEnum hands out: Next gives the items in order, then Empty and
// false. ForEach drives any Enumerator directly, and any other object
// through its late-bound Next.
class KESTREL_API Enumerator {
 public:
  virtual ~Enumerator();
  // Writes the next item into `out`; false (and Empty) at the end.
  virtual bool Next(Value& out) = 0;
  // Starts again from the first item.
  virtual void Reset() = 0;
};

// The late-bound members every enumerator answers: Next(item) writes the
// next item into the caller's variable and returns whether there was one;
// Reset; Done. T needs Next(Value&), Reset() and Done().
template <class T>
DispatchTable<T> EnumeratorDispatchTable(std::u16string_view class_name) {
  return typename DispatchTable<T>::Builder(class_name)
      .Method(u"Next", 1, 1, [](T& e, Args& a) { return Value(e.Next(a[0])); })
      .Method(u"Reset", 0, 0,
              [](T& e, Args&) {
                e.Reset();
                return Value();
              })
      .Get(u"Done", [](T& e, Args&) { return Value(e.Done()); })
      .Build();
}

// An enumerator over a snapshot of values, as the runtime's Collection and
// the library's lists hand out. Dispatchable as Next, Reset, Done.
class KESTREL_API ValueEnumerator : public Dispatchable<ValueEnumerator>, public Enumerator {
 public:
  explicit ValueEnumerator(std::vector<Value> items) : items_(std::move(items)) {}
  bool Next(Value& out) override;
  void Reset() noexcept override { position_ = 0; }
  bool Done() const noexcept { return position_ >= items_.size(); }
  static const DispatchTable<ValueEnumerator>& Dispatch();

 private:
  std::vector<Value> items_;
  size_t position_ = 0;
};

// Walks any object's enumeration (NewEnum) and calls fn with each item.
KESTREL_API void ForEach(Object* collection, void (*fn)(const Value&, void*), void* context);
template <class F>
void ForEach(Object* collection, F&& fn) {
  ForEach(
      collection, [](const Value& v, void* c) { (*static_cast<F*>(c))(v); }, &fn);
}

}  // namespace kestrel
