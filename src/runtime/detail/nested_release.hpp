// Releasing nested containers without nesting the calls: a Dictionary or
// Collection that holds the last reference to another one would otherwise
// release it from inside its own destructor, one machine-stack level per
// level of the tree, and a parsed document can be many thousands deep.
//
// The outermost container being destroyed on a thread drains a queue; every
// container destroyed while it drains only moves its object values onto
// that queue. Values that are not objects are released in place, since
// they cannot hold containers.
#pragma once

#include <utility>
#include <vector>

#include "frame/string_release.hpp"
#include "kestrel/frame/value.hpp"

namespace kestrel::detail {

class NestedRelease {
 public:
  NestedRelease() noexcept : pending_(Pending()), owner_(pending_ == nullptr) {
    if (owner_) pending_ = Pending() = &queue_;
  }
  ~NestedRelease() {
    if (!owner_) return;
    // The member names a tree shares are released many times over while
    // the queue drains.
    DeferredStringReleases strings;
    while (!queue_.empty()) {
      // Released here, after leaving the queue: its own destructor may
      // append to the queue while it runs.
      Value last = std::move(queue_.back());
      queue_.pop_back();
    }
    Pending() = nullptr;
  }
  NestedRelease(const NestedRelease&) = delete;
  NestedRelease& operator=(const NestedRelease&) = delete;

  // Defers the release of `value` when it is an object.
  void Take(Value& value) {
    if (value.IsObject() && value.object() != nullptr) pending_->push_back(std::move(value));
  }

 private:
  static std::vector<Value>*& Pending() noexcept {
    // A fixed offset from the thread pointer, not a call per release.
    [[gnu::tls_model("initial-exec")]] static thread_local std::vector<Value>* pending = nullptr;
    return pending;
  }

  // The thread's queue, looked up once: a thread-local in a shared library
  // costs a call per access.
  std::vector<Value>* pending_;
  bool owner_;
  std::vector<Value> queue_;
};

}  // namespace kestrel::detail
