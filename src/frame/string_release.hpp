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

namespace kestrel::detail {

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
