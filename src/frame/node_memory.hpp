// Storage for the small blocks that trees of values are made of: strings,
// dictionaries, collections and their entry blocks.
//
// A parsed document is tens of thousands of such blocks, made in one burst
// and let go in another. Each thread keeps the blocks it frees, by size, up
// to a few megabytes, and hands them out again before asking malloc: a
// block costs a push and a pop instead of a trip through the general
// allocator, whose deferred merging of small freed chunks is most of what
// releasing a large tree costs. A kept block is an ordinary malloc block,
// so any thread may free it; the thread's blocks go back to malloc when it
// ends. Builds with a sanitizer pass every block straight to malloc, so
// that misuse is still caught.
//
//   void* p = kestrel::detail::AllocateNode(48);
//   kestrel::detail::FreeNode(p, 48);   // the size it was allocated with
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

namespace kestrel::detail {

// A block of at least `size` bytes, aligned as malloc aligns; raises
// std::bad_alloc.
void* AllocateNode(std::size_t size);
// Gives back a block of AllocateNode; `size` is the size it was asked with.
void FreeNode(void* block, std::size_t size) noexcept;

// For standard containers whose blocks are as short-lived as their owner.
template <class T>
struct NodeAllocator {
  using value_type = T;
  NodeAllocator() noexcept = default;
  template <class U>
  NodeAllocator(const NodeAllocator<U>&) noexcept {}
  T* allocate(std::size_t n) {
    if (n > SIZE_MAX / sizeof(T)) throw std::bad_array_new_length();
    return static_cast<T*>(AllocateNode(n * sizeof(T)));
  }
  void deallocate(T* block, std::size_t n) noexcept { FreeNode(block, n * sizeof(T)); }
  template <class U>
  bool operator==(const NodeAllocator<U>&) const noexcept {
    return true;
  }
};

}  // namespace kestrel::detail
