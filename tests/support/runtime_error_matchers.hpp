// Assertions on Kestrel's RuntimeError: always the specific number, never
// just "it threw".
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"

namespace kestrel::testing {

// Runs fn and returns the number of the RuntimeError it raised, or 0 (with a
// test failure) when it raised nothing.
template <class F>
int32_t RaisedNumber(F&& fn) {
  try {
    fn();
  } catch (const RuntimeError& e) {
    return e.number();
  }
  ADD_FAILURE() << "expected a RuntimeError, nothing was raised";
  return 0;
}

}  // namespace kestrel::testing

// EXPECT_RAISES(statement, number): the statement raises RuntimeError `number`.
#define EXPECT_RAISES(statement, number) \
  EXPECT_EQ(::kestrel::testing::RaisedNumber([&] { (void)(statement); }), (number)) \
      << "from: " #statement
