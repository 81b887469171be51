// The millisecond tick count the profiler measures with: a monotonic
// counter (CLOCK_MONOTONIC) wrapped like a 32-bit value, so it runs from
// -2147483648 to 2147483647 and wraps around as the original counter did.
// Arithmetic on ticks is 32-bit signed and overflow raises 6 (the profiler
// does it with runtime rules). The source is a seam: tests install fixed or
// scripted tick counts and check whole lines exactly.
#pragma once

#include <cstdint>

#include "kestrel/frame/export.hpp"

namespace kestrel::diagnostics {

using TickSource = int32_t (*)();

KESTREL_API int32_t GetTickCount();
// Installs a tick source (nullptr restores the monotonic clock) and returns
// the previous one. Affects every thread.
KESTREL_API TickSource SetTickSource(TickSource source) noexcept;

}  // namespace kestrel::diagnostics
