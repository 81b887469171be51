#include "kestrel/diagnostics/tick_count.hpp"

#include <atomic>
#include <ctime>

namespace kestrel::diagnostics {
namespace {

// Milliseconds of CLOCK_MONOTONIC, truncated to 32 bits: the counter wraps
// every 49.7 days exactly as a 32-bit millisecond tick count does.
int32_t MonotonicTicks() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const uint64_t ms = uint64_t(now.tv_sec) * 1000u + uint64_t(now.tv_nsec) / 1000000u;
  return static_cast<int32_t>(static_cast<uint32_t>(ms));
}

std::atomic<TickSource> source{&MonotonicTicks};

}  // namespace

int32_t GetTickCount() { return source.load(std::memory_order_acquire)(); }

TickSource SetTickSource(TickSource replacement) noexcept {
  return source.exchange(replacement ? replacement : &MonotonicTicks,
                         std::memory_order_acq_rel);
}

}  // namespace kestrel::diagnostics
