#include "kestrel/diagnostics/tick_count.hpp"

#include <gtest/gtest.h>

namespace kestrel::diagnostics {
namespace {

int32_t Fixed() { return -7; }

TEST(TickCount, SourceIsReplaceableAndRestorable) {
  TickSource previous = SetTickSource(&Fixed);
  EXPECT_EQ(GetTickCount(), -7);
  EXPECT_EQ(SetTickSource(nullptr), &Fixed);
  // The monotonic counter never runs backwards between two reads (modulo
  // the 32-bit wrap, which a test run cannot reach twice).
  const uint32_t a = static_cast<uint32_t>(GetTickCount());
  const uint32_t b = static_cast<uint32_t>(GetTickCount());
  EXPECT_LT(b - a, 1000u);
  SetTickSource(previous);
}

}  // namespace
}  // namespace kestrel::diagnostics
