// Object: the interface every late-bound class implements, and Ref<T>, the
// intrusive pointer that shares objects.
//
// An automation object is reference counted (the count lives in the object,
// so a raw Object* can always be re-wrapped) and answers calls by member
// name through Invoke. Classes normally do not implement Invoke by hand: they
// derive from runtime::Dispatchable and describe their members in a table
// (kestrel/runtime/dispatch.hpp). Objects are used on the thread that
// created them; only the reference count is thread-safe.
//
//   kestrel::Ref<kestrel::Object> err = kestrel::CreateObject(u"Kestrel.Error");
//   kestrel::CallByName(err, u"Number", kestrel::CallKind::kLet, {kestrel::Value(5)});
#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "kestrel/frame/export.hpp"

namespace kestrel {

class Value;
namespace detail {
struct FreshReferences;
class NestedRelease;
}

// How a member is called. The numbers are the late-binding call types that
// automation clients pass to CallByName.
enum class CallKind : int32_t {
  kMethod = 1,
  kGet = 2,
  kLet = 4,
  kSet = 8,
};

template <class T>
class Ref;

class KESTREL_API Object {
 public:
  Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  // Inline: every object of a released tree passes through it.
  virtual ~Object() = default;

  // The class name clients see (TypeName), without the library prefix.
  virtual std::u16string_view TypeName() const noexcept = 0;

  // Calls member `name` (case-insensitive). `args` are the caller's own
  // values: a member that takes an argument by reference assigns to it, and
  // the caller sees the change. For kLet and kSet the assigned value is the
  // last argument. Unknown members raise 438; a known member called with the
  // wrong call kind or argument count raises 450.
  virtual Value Invoke(std::u16string_view name, CallKind kind, std::span<Value> args) = 0;

  // An enumerator over the object's items (what For Each walks), or raises
  // 438 when the object is not a collection.
  virtual Ref<Object> NewEnum();

  void AddRef() const noexcept { refs_.fetch_add(1, std::memory_order_relaxed); }
  // The holder of the only reference is the only thread that can touch the
  // count, so it deletes without the atomic decrement: most objects (every
  // node of a parsed tree) die that way, and the locked instruction is most
  // of the cost of letting one go.
  void Release() const noexcept {
    if (DropReference()) delete this;
  }
  int32_t RefCount() const noexcept { return refs_.load(std::memory_order_relaxed); }

 private:
  friend struct detail::FreshReferences;
  friend class detail::NestedRelease;
  // Lets go of one reference; true when it was the last, and the caller is
  // to delete the object.
  bool DropReference() const noexcept {
    return refs_.load(std::memory_order_acquire) == 1 ||
           refs_.fetch_sub(1, std::memory_order_acq_rel) == 1;
  }
  mutable std::atomic<int32_t> refs_{0};
};

// Intrusive shared pointer. Ref<T>(raw) adopts by adding a reference, so it
// is always safe to wrap an Object* that someone else also holds.
template <class T>
class Ref {
 public:
  Ref() noexcept = default;
  Ref(std::nullptr_t) noexcept {}
  explicit Ref(T* p) noexcept : p_(p) { if (p_) p_->AddRef(); }
  Ref(const Ref& o) noexcept : Ref(o.p_) {}
  Ref(Ref&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U>
  Ref(const Ref<U>& o) noexcept : Ref(static_cast<T*>(o.get())) {}
  template <class U>
  Ref(Ref<U>&& o) noexcept : p_(o.Detach()) {}
  Ref& operator=(Ref o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }
  ~Ref() { if (p_) p_->Release(); }

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  // Gives up ownership without releasing.
  T* Detach() noexcept { return std::exchange(p_, nullptr); }

  friend bool operator==(const Ref& a, const Ref& b) noexcept { return a.p_ == b.p_; }

 private:
  T* p_ = nullptr;
};

template <class T, class... Args>
Ref<T> MakeRef(Args&&... args) {
  return Ref<T>(new T(std::forward<Args>(args)...));
}

}  // namespace kestrel
