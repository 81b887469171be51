#include <gtest/gtest.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <tuple>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/utilities/utilities.hpp"
#include "runtime_error_matchers.hpp"
#include "value_matchers.hpp"

namespace kestrel {
namespace {

namespace u = utilities;

struct Case {
  const char* name;
  Value got;
  Value want;
};

// Each case: the same kind and, for numbers and text, the same content.
void Check(std::initializer_list<Case> cases) {
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::ExpectKindAndValue(c.got, c.want.kind(), c.want);
  }
}

// Kinds matter: the substitution members return the chosen argument as it is.
TEST(Utilities, SubstitutionComparisonAndRounding) {
  const Value five(int16_t{5}), two(2), two_d(2.0), null = Value::Null();
  Value counter(int16_t{32767});
  Check({{"Nz Empty", u::Nz(Value(), five), Value()},
         {"Nz Null", u::Nz(null, Value(u"x")), Value(u"x")},
         {"Ez Null", u::Ez(null, five), null},
         {"Mz Missing", u::Mz(Value::Missing(), five), five},
         {"NEMz Empty", u::NEMz(Value(), five), five},
         {"NEMz zero", u::NEMz(Value(0.0), five), Value(0.0)},
         {"ValueOrMissing equal", u::ValueOrMissing(Value(5), Value(5.0)), Value(5.0)},
         {"Increment out of 16 bits", u::Increment(counter), Value(32768)},
         // An absent side is ignored; a tie goes to the second argument.
         {"Max(Null, 3)", u::Max(null, Value(3)), Value(3)},
         {"Max(3, Null)", u::Max(Value(3), null), Value(3)},
         {"Max(Null, Empty)", u::Max(null, Value()), null},
         {"Max(2, 2.0)", u::Max(two, two_d), two_d},
         {"Min(2.0, 2)", u::Min(two_d, two), two},
         {"Max number and string", u::Max(Value(10), Value(u"9")), Value(u"9")},
         {"FractionalPart -1.25", u::FractionalPart(Value(-1.25)), Value(0.75)},
         {"FractionalPart Null", u::FractionalPart(null), null},
         // Half away from zero; 10^decimals overflows outside 0 .. 9.
         {"Round 0.125 to 2", Value(u::Round(Value(0.125), 2)), Value(0.13)},
         {"Round -0.5", Value(u::Round(Value(-0.5))), Value(-1.0)},
         {"Round 7 to 9", Value(u::Round(Value(7), 9)), Value(7.0)}});
  EXPECT_TRUE(u::MissingValue().IsMissing());
  EXPECT_TRUE(u::NEM(u::GetValue()));
  EXPECT_RAISES(u::Increment(counter, Value(u"a")), errors::kTypeMismatch);
  EXPECT_RAISES(u::Max(Value::ErrorCode(5), Value(1)), errors::kTypeMismatch);
  EXPECT_RAISES(u::Round(Value(5), -1), errors::kOverflow);
  EXPECT_RAISES(u::Round(Value(1), 10), errors::kOverflow);
  EXPECT_RAISES(u::Round(Value::Null()), errors::kInvalidUseOfNull);
}

TEST(Utilities, EqualsNeverRaises) {
  const Value abc(u"abc"), upper(u"ABC"), yes(true), no(false);
  const Value object(CreateObject(u"Kestrel.Error"));
  const CompareMethod text = CompareMethod::kText;
  Check({{"text case", Value(u::Equals(abc, upper, text)), yes},
         {"number and text", Value(u::Equals(Value(1), Value(u"1"))), no},
         {"Null Null", Value(u::Equals(Value::Null(), Value::Null())), yes},
         {"Empty Empty", Value(u::Equals(Value(), Value())), yes},
         {"0 Empty", Value(u::Equals(Value(0), Value())), no},
         {"array scalar", Value(u::Equals(Value::VariantArray({abc}), abc)), no},
         {"arrays text",
          Value(u::Equals(Value::VariantArray({abc, Value(1)}),
                          Value::VariantArray({upper, Value(1)}), text)),
          yes},
         {"object", Value(u::Equals(object, Value(1))), no},
         {"Missing", Value(u::Equals(Value::Missing(), Value::Missing())), no},
         // TestValue goes through Equals in binary mode.
         {"TestValue 0", u::TestValue(Value(0), Value(int16_t{0}), Value(u"zero")), Value(u"zero")},
         {"TestValue case", u::TestValue(abc, upper, Value(u"same")), abc}});
}

// A form control as late binding sees it. Without a parent (Empty) it has
// no Parent property at all, like the form at the top of a chain.
class FakeControl : public Object {
 public:
  FakeControl(bool visible, Value parent) : visible_(visible), parent_(std::move(parent)) {}
  std::u16string_view TypeName() const noexcept override { return u"FakeControl"; }
  Value Invoke(std::u16string_view name, CallKind, std::span<Value>) override {
    if (name != u"Parent") return Value(visible_);  // Visible and Enabled
    if (parent_.IsEmpty()) RaiseStandard(errors::kMemberNotSupported);
    return parent_;
  }
  bool visible_;
  Value parent_;
};

Value Control(bool visible, Value parent = Value()) {
  return Value(MakeRef<FakeControl>(visible, std::move(parent)));
}

TEST(Utilities, ControlStateWalksParentsByName) {
  const Value hidden_frame = Control(false, Control(true));
  const Value on_hidden = Control(true, hidden_frame);
  const Value nothing = Value::Nothing();
  const std::tuple<const char*, Value, Value, bool> rows[] = {
      {"all shown", Control(true, Control(true, Control(true))), nothing, true},
      {"hidden frame", on_hidden, nothing, false},
      {"stop at the hidden frame", on_hidden, hidden_frame, true},
      {"Parent Nothing ends the walk", Control(true, nothing), nothing, true},
      {"hidden form", Control(true, Control(false)), nothing, false},
      {"not an object", Value(1), nothing, false},
  };
  for (const auto& [name, control, until, want] : rows) {
    SCOPED_TRACE(name);
    EXPECT_EQ(u::IsControlVisible(control, until), want);
    EXPECT_EQ(u::IsControlEnabled(control, until), want);
  }
}

TEST(Utilities, GetWindowsVersionStringReadsOsRelease) {
  struct utsname uts;
  ASSERT_EQ(uname(&uts), 0);
  const std::string path = ::testing::TempDir() + "kestrel_os_release_" + std::to_string(getpid());
  const std::string previous = u::detail::SetOsReleasePath(path);
  std::ofstream(path) << "# c\nNAME=Old\nNAME=\"Test \\\"OS\\\"\"\nID=x\nVERSION_ID='1.2'\n";
  const std::string full = ToUtf8(u::GetWindowsVersionString());
  std::ofstream(path) << "NAME=Test\n";
  const std::u16string without_version = u::GetWindowsVersionString();
  std::remove(path.c_str());
  const std::u16string without_file = u::GetWindowsVersionString();
  u::detail::SetOsReleasePath(previous);
  EXPECT_EQ(full, std::string("Test \"OS\" 1.2.") + uts.release);
  EXPECT_EQ(without_version, u"");
  EXPECT_EQ(without_file, u"");
}

}  // namespace
}  // namespace kestrel
