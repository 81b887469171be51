// Releasing nested containers without nesting the calls: a Dictionary or
// Collection that holds the last reference to another one would otherwise
// release it from inside its own destructor, one machine-stack level per
// level of the tree, and a parsed document can be many thousands deep.
//
// The outermost container being destroyed on a thread owns a queue of
// objects whose last reference is gone, and deletes them one after another;
// every container destroyed meanwhile only adds its own such objects to that
// queue. Values that are not objects are released in place, since they
// cannot hold containers.
//
//   if (auto* queue = detail::NestedRelease::Active()) {
//     ReleaseItems(*queue);   // inside another release
//   } else {
//     detail::NestedRelease::Outermost([&](auto& queue) { ReleaseItems(queue); });
//   }
#pragma once

#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "frame/string_release.hpp"
#include "kestrel/frame/object.hpp"
#include "kestrel/frame/value.hpp"

namespace kestrel::detail {

class NestedRelease {
 public:
  // Objects whose last reference was dropped, still to be deleted.
  using Queue = std::vector<Object*>;

  // The queue of the release under way on this thread, or nullptr when
  // there is none.
  static Queue* Active() noexcept { return Pending(); }

  // Runs `release(queue)` as the outermost release of the thread, then
  // deletes what it queued, and what their destructors queue in turn.
  // Kept out of line: the destructors' common path inlines `release` once.
  template <class F>
  [[gnu::noinline]] static void Outermost(const F& release) noexcept {
    Queue queue;
    // The member names a tree shares are released many times over.
    DeferredStringReleases strings;
    Pending() = &queue;
    release(queue);
    while (!queue.empty()) {
      Object* last = queue.back();
      queue.pop_back();
      // Its destructor may add to the queue while it runs.
      delete last;
    }
    Pending() = nullptr;
  }

  // Takes the object `value` holds, leaving the value Empty: the object
  // goes onto `queue` when this was its last reference. Any other value is
  // left as it is, for the caller to destroy in place.
  [[gnu::always_inline]] static void Take(Value& value, Queue& queue) {
    if (!value.IsObject()) return;
    Object* object = value.object();
    // The reference is dropped here (or handed to the queue): the value
    // forgets it without releasing it.
    ::new (&value) Value();
    if (object != nullptr && object->DropReference()) queue.push_back(object);
  }

  // Ends `value` for a container's destructor: its object as Take does,
  // its string or array in place. Values of any other kind hold nothing
  // (numbers, the bulk of many lists), and are left as they are.
  [[gnu::always_inline]] static void Release(Value& value, Queue& queue) {
    if (value.IsObject()) {
      Take(value, queue);
    } else if (value.IsString()) {
      // Mostly member names shared across the tree: their drops are held
      // back (string_release.hpp), without a call.
      if (value.str_ != nullptr) ReleaseString(value.str_);
    } else if (value.IsArray()) {
      std::destroy_at(&value);
    }
  }

 private:
  static Queue*& Pending() noexcept {
    // A fixed offset from the thread pointer, not a call per release.
    [[gnu::tls_model("initial-exec")]] static thread_local Queue* pending = nullptr;
    return pending;
  }
};

}  // namespace kestrel::detail
