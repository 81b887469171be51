#include "frame/node_memory.hpp"

#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <new>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer)
#define KESTREL_NODE_MEMORY_DIRECT 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define KESTREL_NODE_MEMORY_DIRECT 1
#endif

namespace kestrel::detail {

#if defined(KESTREL_NODE_MEMORY_DIRECT)

void* AllocateNode(std::size_t size) {
  return ::operator new(size);
}

void FreeNode(void* block, std::size_t) noexcept {
  ::operator delete(block);
}

#else

namespace {

// Blocks are kept by size in steps of 16 bytes, from 24 up to 520: the
// sizes a 64-bit malloc's chunks can hold without waste, so rounding a
// request up to its class costs no memory there. Past 520, four classes to
// each doubling up to 4 KB, for the entry and item blocks of larger
// records and lists (at most a quarter wasted).
constexpr std::size_t kSmallest = 24;
constexpr std::size_t kGranule = 16;
constexpr std::size_t kSmallClasses = 32;
constexpr std::size_t kLargestSmall = kSmallest + (kSmallClasses - 1) * kGranule;
constexpr std::size_t kLargeBytes[] = {632,  760,  888,  1016, 1272, 1528,
                                       1784, 2040, 2552, 3064, 3576, 4088};
constexpr std::size_t kClasses = kSmallClasses + std::size(kLargeBytes);

// The class of a block of `size` bytes; kClasses when it has none.
constexpr std::size_t ClassOf(std::size_t size) noexcept {
  if (size <= kLargestSmall) {
    return size <= kSmallest ? 0 : (size - kSmallest + kGranule - 1) / kGranule;
  }
  std::size_t large = 0;
  while (large < std::size(kLargeBytes) && kLargeBytes[large] < size) ++large;
  return kSmallClasses + large;
}
constexpr std::size_t ClassBytes(std::size_t size_class) noexcept {
  return size_class < kSmallClasses ? kSmallest + size_class * kGranule
                                    : kLargeBytes[size_class - kSmallClasses];
}
static_assert(ClassOf(520) == 31 && ClassOf(521) == 32 && ClassOf(4088) == kClasses - 1 &&
              ClassOf(4089) == kClasses && ClassBytes(ClassOf(1000)) == 1016);
// What a thread keeps at most; past it, freed blocks go back to malloc.
constexpr std::size_t kMostKeptBytes = std::size_t{8} << 20;

// The kept blocks of one size, as a stack of their addresses. Keeping the
// addresses apart from the blocks means neither freeing nor reusing a block
// reads or writes it: a freed node is cold, and a free list threaded
// through the blocks would miss the cache on every reuse.
struct Shelf {
  void** blocks = nullptr;
  std::uint32_t count = 0;
  std::uint32_t capacity = 0;
};

struct Cache {
  Shelf shelves[kClasses];
  std::size_t kept = 0;

  ~Cache();
};

// 0 before the thread's cache exists, 1 while it lives, 2 once the thread
// is ending and it is gone (blocks then go straight to malloc).
enum class State : unsigned char { kNone, kLive, kGone };

// One pointer at a fixed offset from the thread pointer: reached without a
// call, on the path of every block.
[[gnu::tls_model("initial-exec")]] thread_local Cache* t_cache = nullptr;
[[gnu::tls_model("initial-exec")]] thread_local State t_state = State::kNone;

Cache::~Cache() {
  t_cache = nullptr;
  t_state = State::kGone;
  for (Shelf& shelf : shelves) {
    for (std::uint32_t i = 0; i < shelf.count; ++i) ::operator delete(shelf.blocks[i]);
    std::free(shelf.blocks);
  }
}

// Room for one more address on a full shelf; false when there is none.
bool Widen(Shelf& shelf) noexcept {
  const std::uint32_t capacity = shelf.capacity == 0 ? 256 : shelf.capacity * 2;
  void* wider = std::realloc(shelf.blocks, capacity * sizeof(void*));
  if (wider == nullptr) return false;
  shelf.blocks = static_cast<void**>(wider);
  shelf.capacity = capacity;
  return true;
}

// The thread's cache, made on first use; nullptr while the thread ends.
Cache* ThreadCache() noexcept {
  if (t_state == State::kGone) return nullptr;
  // Registers the cache's release at thread exit.
  thread_local Cache cache;
  t_cache = &cache;
  t_state = State::kLive;
  return &cache;
}

// The paths of a block that the thread's shelves cannot serve: apart, so
// that the common ones stay short and call nothing.
[[gnu::noinline]] void* AllocateUnkept(std::size_t size) {
  const std::size_t size_class = ClassOf(size);
  // Its whole class's size, so that it can serve any size of the class
  // once it is kept.
  return ::operator new(size_class < kClasses ? ClassBytes(size_class) : size);
}

[[gnu::noinline]] void FreeUnkept(void* block, std::size_t size) noexcept {
  if (block == nullptr) return;
  const std::size_t size_class = ClassOf(size);
  if (size_class < kClasses) {
    Cache* cache = t_cache != nullptr ? t_cache : ThreadCache();
    const std::size_t bytes = ClassBytes(size_class);
    if (cache != nullptr && cache->kept + bytes <= kMostKeptBytes) {
      Shelf& shelf = cache->shelves[size_class];
      if (shelf.count < shelf.capacity || Widen(shelf)) {
        shelf.blocks[shelf.count++] = block;
        cache->kept += bytes;
        return;
      }
    }
  }
  ::operator delete(block);
}

}  // namespace

void* AllocateNode(std::size_t size) {
  const std::size_t size_class = ClassOf(size);
  if (Cache* cache = t_cache; cache != nullptr && size_class < kClasses) {
    if (Shelf& shelf = cache->shelves[size_class]; shelf.count != 0) {
      cache->kept -= ClassBytes(size_class);
      void* block = shelf.blocks[--shelf.count];
      // The next block of this size is most likely asked for soon, and a
      // kept block is mostly out of cache: fetch it for writing now.
      if (shelf.count != 0) __builtin_prefetch(shelf.blocks[shelf.count - 1], 1);
      return block;
    }
  }
  return AllocateUnkept(size);
}

void FreeNode(void* block, std::size_t size) noexcept {
  const std::size_t size_class = ClassOf(size);
  if (Cache* cache = t_cache; cache != nullptr && size_class < kClasses && block != nullptr) {
    Shelf& shelf = cache->shelves[size_class];
    const std::size_t bytes = ClassBytes(size_class);
    if (shelf.count < shelf.capacity && cache->kept + bytes <= kMostKeptBytes) {
      shelf.blocks[shelf.count++] = block;
      cache->kept += bytes;
      return;
    }
  }
  FreeUnkept(block, size);
}

#endif

}  // namespace kestrel::detail
