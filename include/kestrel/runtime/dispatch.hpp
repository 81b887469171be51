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
// Empty, arrives as passed. For property let and set, the assigned value is
// passed separately. A method may also be called as a property get and the
// other way round, as automation clients do; let and set must exist.
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

 private:
  std::span<Value> given_;
  std::array<Value, 8> scratch_;
};

// Use as max_args for a member whose last parameter is a parameter array.
inline constexpr int kParamArray = 1 << 16;

namespace detail {
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
    // Trailing Missing values count as omitted; a gap before a passed
    // argument is allowed and reads as Missing.
    size_t n = args.size();
    while (n > size_t(min_args) && args[n - 1].IsMissing()) --n;
    if (!CountFits(n, min_args, max_args)) detail::RaiseBadCall();
    for (int i = 0; i < min_args; ++i)
      if (args[size_t(i)].IsMissing()) RaiseStandard(errors::kArgumentNotOptional);
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

// An enumerator over a snapshot of values; what NewEnum hands out for the
// runtime's containers. Next gives the items in order, then Empty with
// `Done` True. Dispatchable as Next, Reset, Done.
class KESTREL_API ValueEnumerator : public Dispatchable<ValueEnumerator> {
 public:
  explicit ValueEnumerator(std::vector<Value> items) : items_(std::move(items)) {}
  // Writes the next item into `out`; false at the end.
  bool Next(Value& out);
  void Reset() noexcept { position_ = 0; }
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
  ForEach(collection, [](const Value& v, void* c) { (*static_cast<F*>(c))(v); }, &fn);
}

}  // namespace kestrel
