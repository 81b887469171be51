#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/strings.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel::runtime {
namespace {

constexpr CompareMethod kText = CompareMethod::kText;
constexpr int32_t kBadPattern = errors::kInvalidPatternString;

TEST(Like, MatchesInBinaryAndTextMode) {
  struct Case {
    std::u16string_view text, pattern;
    bool binary, text_mode;
  };
  // clang-format off
  const Case cases[] = {
      {u"aBBBa", u"a*a", true, true},      {u"F", u"[A-Z]", true, true},
      {u"f", u"[A-Z]", false, true},       {u"F", u"[!A-Z]", false, false},
      {u"aM5b", u"a[L-P]#[!c-e]", true, true}, {u"CAT123khg", u"B?T*", false, false},
      {u"", u"*", true, true},             {u"", u"?", false, false},
      {u"", u"", true, true},              {u"ab", u"a?b", false, false},
      {u"mississippi", u"m*iss*ppi", true, true}, {u"abcabd", u"*ab?", true, true},
      {u"abcabd", u"*ab", false, false},
      // Special characters in a list are themselves, and "]" outside one.
      {u"*", u"[*]", true, true},          {u"x", u"[*]", false, false},
      {u"?#[", u"[?][#][[]", true, true},  {u"a]", u"a]", true, true},
      // "!" negates only first in a list; "-" first or last is itself.
      {u"!", u"!", true, true},            {u"!", u"[a!]", true, true},
      {u"-", u"[-a]", true, true},         {u"-", u"[a-]", true, true},
      {u"-", u"[!-a]", false, false},      {u"b", u"[!-a]", true, true},
      {u"b", u"[a-cx-z]", true, true},     {u"w", u"[a-cx-z]", false, false},
      // "[]" is the empty text; "#" an ASCII digit; characters are units.
      {u"ab", u"a[]b", true, true},        {u"\u0665", u"#", false, false},
      {u"\U0001F600", u"?", false, false}, {u"\U0001F600", u"??", true, true},
      // Text mode folds beyond ASCII, ranges included.
      {u"\u00C4", u"[\u00E4]", false, true}, {u"\u03A3", u"[\u03B1-\u03C9]", false, true},
  };
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(ToUtf8(c.text) + " Like " + ToUtf8(c.pattern));
    EXPECT_EQ(Like(c.text, c.pattern), c.binary);
    EXPECT_EQ(Like(c.text, c.pattern, kText), c.text_mode);
  }
}

TEST(Like, BadPatternsRaiseWhateverTheText) {
  for (const std::u16string_view pattern : {u"[", u"a[bc", u"[!", u"[z-a]", u"*[b-a]"}) {
    SCOPED_TRACE(ToUtf8(pattern));
    EXPECT_RAISES(Like(u"", pattern), kBadPattern);
    EXPECT_RAISES(Like(u"zzz", pattern, kText), kBadPattern);
  }
  // Ranges are ordered by the mode's characters: folded, [a-Z] is [a-z].
  EXPECT_RAISES(Like(u"b", u"[a-Z]"), kBadPattern);
  EXPECT_TRUE(Like(u"B", u"[a-Z]", kText));
}

// A long text that almost matches many stars: exponential backtracking
// would not finish.
TEST(Like, StarsDoNotBacktrackExponentially) {
  const std::u16string text(20000, u'a');
  std::u16string pattern;
  for (int i = 0; i < 50; ++i) pattern += u"*a";
  EXPECT_FALSE(Like(text, pattern + u"*b"));
  EXPECT_TRUE(Like(text, pattern + u"*"));
}

TEST(Like, ValueFormPropagatesNullAndReadsText) {
  EXPECT_TRUE(Like(Value::Null(), Value(u"*")).IsNull());
  EXPECT_TRUE(Like(Value(u"["), Value::Null()).IsNull());
  const Value matched = Like(Value(int16_t{123}), Value(u"1#3"));
  ASSERT_EQ(matched.kind(), Kind::kBoolean);
  EXPECT_TRUE(matched.boolean());
  EXPECT_RAISES(Like(Value::Nothing(), Value(u"*")), errors::kTypeMismatch);
}

}  // namespace
}  // namespace kestrel::runtime
