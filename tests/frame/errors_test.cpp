#include "kestrel/frame/errors.hpp"

#include <gtest/gtest.h>

namespace kestrel {
namespace {

TEST(StandardErrorText, RuntimeTexts) {
  const std::pair<int32_t, std::u16string_view> cases[] = {
      {5, u"Invalid procedure call or argument"},
      {75, u"Path/File access error"},
      {91, u"Object variable or With block variable not set"},
      {438, u"Object doesn't support this property or method"},
      {32811, u"Element not found"},
      {0, u"Application-defined or object-defined error"},
      {1004, u"Application-defined or object-defined error"},
      {40000, u"Application-defined or object-defined error"},
  };
  for (const auto& [number, text] : cases) {
    SCOPED_TRACE(number);
    EXPECT_EQ(StandardErrorText(number), text);
  }
}

// RaiseStandard, and Raise with an empty description, take the standard text.
TEST(Raise, CarriesNumberTextAndSource) {
  try {
    RaiseStandard(errors::kTypeMismatch);
    FAIL();
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.number(), 13);
    EXPECT_EQ(e.source(), kStandardErrorSource);
    EXPECT_STREQ(e.what(), "Error 13: Type mismatch");
  }
  try {
    Raise(9, u"Mine", u"");
    FAIL();
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.source(), u"Mine");
    EXPECT_EQ(e.description(), u"Subscript out of range");
  }
}

}  // namespace
}  // namespace kestrel
