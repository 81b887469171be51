// Holding back the decrements of shared strings while a tree is released.
//
// The member names of a parsed document are shared by every record that
// uses them, so releasing the tree drops each name's count thousands of
// times, each a locked instruction. While a DeferredStringReleases lives on
// a thread, a release that is not the string's last goes into a small table
// instead and is applied, summed per string, when the table needs the slot
// or when the scope ends. A held-back decrement only keeps a string alive
// a little longer: the count never reads lower than the references that
// remain, so a sole holder's fast path stays exact.
//
//   {
//     detail::DeferredStringReleases batch;   // only the outermost one acts
//     ... release many values ...
//   }                                         // every decrement applied here
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "kestrel/frame/value.hpp"

namespace kestrel::detail {

// Frees a string whose last reference is gone.
[[gnu::noinline]] void FreeString(StringRep* rep) noexcept;
// Drops `count` references at once, freeing the string with the last.
[[gnu::noinline]] void ApplyReleases(StringRep* rep, uint32_t count) noexcept;

// The held-back decrements of a thread: a small direct-mapped table, since
// the strings released over and over in a tree are few (its member names)
// and each lands in its own slot.
struct HeldReleases {
  static constexpr size_t kSlots = 128;
  struct Slot {
    StringRep* rep = nullptr;
    uint32_t count = 0;
  };
  Slot slots[kSlots];
  // The slots in use, so that a small tree's scope does not visit all.
  uint8_t used[kSlots];
  size_t used_count = 0;

  void Hold(StringRep* rep) noexcept {
    const size_t at = (reinterpret_cast<uintptr_t>(rep) >> 4) % kSlots;
    Slot& slot = slots[at];
    if (slot.rep == rep) {
      ++slot.count;
      return;
    }
    if (slot.rep != nullptr) {
      ApplyReleases(slot.rep, slot.count);
    } else {
      used[used_count++] = static_cast<uint8_t>(at);
    }
    slot = {rep, 1};
  }
  void ApplyAll() noexcept;
};

// The table of the DeferredStringReleases scope open on this thread, or
// nullptr.
[[gnu::tls_model("initial-exec")]] extern thread_local HeldReleases* t_held;

// Lets go of one reference to a string: inline, for the loops that release
// a container's values.
[[gnu::always_inline]] inline void ReleaseString(StringRep* rep) noexcept {
  // A sole holder frees without the atomic decrement (see Object::Release).
  if (rep->refs.load(std::memory_order_acquire) == 1) {
    FreeString(rep);
  } else if (HeldReleases* held = t_held; held != nullptr) {
    held->Hold(rep);
  } else if (rep->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    FreeString(rep);
  }
}

class DeferredStringReleases {
 public:
  DeferredStringReleases() noexcept;
  ~DeferredStringReleases();
  DeferredStringReleases(const DeferredStringReleases&) = delete;
  DeferredStringReleases& operator=(const DeferredStringReleases&) = delete;

 private:
  bool owner_;
};

}  // namespace kestrel::detail
