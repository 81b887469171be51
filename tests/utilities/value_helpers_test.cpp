#include <gtest/gtest.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/utilities/utilities.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

namespace u = utilities;

struct Case {
  const char* name;
  Value got;
  Value want;
};

// Same kind and, for numbers and text, the same content.
void ExpectSame(const Value& got, const Value& want) {
  ASSERT_EQ(got.code(), want.code());
  if (want.IsString()) {
    EXPECT_EQ(ToUtf8(got.string()), ToUtf8(want.string()));
  } else if (want.IsNumeric()) {
    EXPECT_EQ(runtime::ToDouble(got), runtime::ToDouble(want));
  }
}

void Check(std::initializer_list<Case> cases) {
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ExpectSame(c.got, c.want);
  }
}

Value Incremented(Value v, const Value& by = Value(int16_t{1})) {
  return u::Increment(v, by);
}

TEST(Utilities, SubstitutionAndIncrement) {
  const Value five(int16_t{5});
  Check({{"Nz Empty", u::Nz(Value(), five), Value()},
         {"Nz Null", u::Nz(Value::Null(), Value(u"x")), Value(u"x")},
         {"Ez Null", u::Ez(Value::Null(), five), Value::Null()},
         {"Mz Missing", u::Mz(Value::Missing(), five), five},
         {"NEMz Empty", u::NEMz(Value(), five), five},
         {"NEMz zero", u::NEMz(Value(0.0), five), Value(0.0)},
         {"ValueOrMissing equal", u::ValueOrMissing(Value(5), Value(5.0)), Value(5.0)},
         {"ValueOrMissing Null", u::ValueOrMissing(Value::Null(), Value::Null()), Value::Null()},
         {"Increment Empty", Incremented(Value()), Value(int16_t{1})},
         {"Increment out of 16 bits", Incremented(Value(int16_t{32767})), Value(32768)},
         {"Increment text", Incremented(Value(u"a"), Value(u"b")), Value(u"ab")},
         {"Increment Null", Incremented(Value::Null()), Value::Null()}});
  EXPECT_TRUE(u::MissingValue().IsMissing());
  EXPECT_TRUE(u::NEM(u::GetValue()));
  EXPECT_RAISES(Incremented(Value(1), Value(u"a")), errors::kTypeMismatch);
}

TEST(Utilities, MaxAndMinIgnoreAbsentSidesAndLetTheSecondWinTies) {
  const Value two(2), two_d(2.0), null = Value::Null();
  Check({{"Max(Null, 3)", u::Max(null, Value(3)), Value(3)},
         {"Max(3, Null)", u::Max(Value(3), null), Value(3)},
         {"Max(Null, Empty)", u::Max(null, Value()), null},
         {"Max(2, 2.0)", u::Max(two, two_d), two_d},
         {"Min(2.0, 2)", u::Min(two_d, two), two},
         {"Max strings", u::Max(Value(u"10"), Value(u"9")), Value(u"9")},
         {"Max number and string", u::Max(Value(10), Value(u"9")), Value(u"9")},
         {"Min number and string", u::Min(Value(10), Value(u"9")), Value(10)}});
  EXPECT_RAISES(u::Max(Value::ErrorCode(5), Value(1)), errors::kTypeMismatch);
}

TEST(Utilities, EqualsNeverRaises) {
  const Value abc(u"abc"), upper(u"ABC");
  Ref<Object> object(CreateObject(u"Kestrel.Error"));
  struct Row {
    const char* name;
    Value x, y;
    CompareMethod mode;
    bool want;
  } rows[] = {
      {"binary case", abc, upper, CompareMethod::kBinary, false},
      {"text case", abc, upper, CompareMethod::kText, true},
      {"number and text", Value(1), Value(u"1"), CompareMethod::kBinary, false},
      {"Null Null", Value::Null(), Value::Null(), CompareMethod::kBinary, true},
      {"Empty Empty", Value(), Value(), CompareMethod::kBinary, true},
      {"0 Empty", Value(0), Value(), CompareMethod::kBinary, false},
      {"array scalar", Value::VariantArray({abc}), abc, CompareMethod::kBinary, false},
      {"arrays text", Value::VariantArray({abc, Value(1)}), Value::VariantArray({upper, Value(1)}),
       CompareMethod::kText, true},
      {"object", Value(object), Value(1), CompareMethod::kBinary, false},
      {"Missing", Value::Missing(), Value::Missing(), CompareMethod::kBinary, false},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.name);
    EXPECT_EQ(u::Equals(r.x, r.y, r.mode), r.want);
  }
  // TestValue goes through Equals in binary mode.
  ExpectSame(u::TestValue(Value(0), Value(int16_t{0}), Value(u"zero")), Value(u"zero"));
  ExpectSame(u::TestValue(abc, upper, Value(u"same")), abc);
}

TEST(Utilities, FractionalPartAndRound) {
  Check({{"2.75", u::FractionalPart(Value(2.75)), Value(0.75)},
         {"-1.25", u::FractionalPart(Value(-1.25)), Value(0.75)},
         {"-0.5", u::FractionalPart(Value(-0.5)), Value(0.5)},
         {"Null", u::FractionalPart(Value::Null()), Value::Null()}});
  struct Row {
    Value v;
    int32_t decimals;
    double want;
  } rows[] = {{Value(0.125), 2, 0.13}, {Value(-0.5), 0, -1},     {Value(2.5), 0, 3},
              {Value(-2.5), 0, -3},    {Value(1.2345), 2, 1.23}, {Value(u"2.5"), 0, 3},
              {Value(7), 9, 7}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.want);
    EXPECT_DOUBLE_EQ(u::Round(r.v, r.decimals), r.want);
  }
  EXPECT_RAISES(u::Round(Value(5), -1), errors::kOverflow);
  EXPECT_RAISES(u::Round(Value(1), 10), errors::kOverflow);
  EXPECT_RAISES(u::Round(Value::Null()), errors::kInvalidUseOfNull);
  EXPECT_RAISES(u::Round(Value(u"x")), errors::kTypeMismatch);
}

// A form control as late binding sees it. Without a parent (Empty) it has
// no Parent property at all, like the form at the top of a chain.
class FakeControl : public Dispatchable<FakeControl> {
 public:
  FakeControl(bool visible, Value parent) : visible_(visible), parent_(std::move(parent)) {}
  static const DispatchTable<FakeControl>& Dispatch() {
    static const auto table =
        DispatchTable<FakeControl>::Builder(u"FakeControl")
            .Get(u"Visible", [](FakeControl& c, Args&) { return Value(c.visible_); })
            .Get(u"Enabled", [](FakeControl& c, Args&) { return Value(c.visible_); })
            .Get(u"Parent",
                 [](FakeControl& c, Args&) {
                   if (c.parent_.IsEmpty()) RaiseStandard(errors::kMemberNotSupported);
                   return c.parent_;
                 })
            .Build();
    return table;
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
  struct Row {
    const char* name;
    Value control, until;
    bool want;
  } rows[] = {
      {"all shown", Control(true, Control(true, Control(true))), nothing, true},
      {"hidden frame", on_hidden, nothing, false},
      {"stop at the hidden frame", on_hidden, hidden_frame, true},
      {"Parent Nothing ends the walk", Control(true, nothing), nothing, true},
      {"hidden form", Control(true, Control(false)), nothing, false},
      {"not an object", Value(1), nothing, false},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.name);
    EXPECT_EQ(u::IsControlVisible(r.control, r.until), r.want);
    EXPECT_EQ(u::IsControlEnabled(r.control, r.until), r.want);
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
