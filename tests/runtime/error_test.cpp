#include "kestrel/runtime/error.hpp"

#include <gtest/gtest.h>

#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

RuntimeError SampleError(int32_t last_dll_error) {
  return RuntimeError(1004, u"Sheet.Calc", u"Calculation failed", u"calc.hlp", 0,
                      last_dll_error);
}

TEST(Error, NewErrorIsBlank) {
  Error e;
  EXPECT_EQ(e.Number(), 0);
  EXPECT_EQ(e.LastDllError(), 0);
  EXPECT_EQ(e.Description(), u"");
  EXPECT_EQ(e.HelpContext(), u"");
  EXPECT_EQ(e.CallStack(), u"");
}

TEST(Error, StoreCopiesEveryFieldButCallStack) {
  Error e;
  e.SetCallStack(u"Main > Calc");
  e.Store(SampleError(-5));
  EXPECT_EQ(e.Number(), 1004);
  EXPECT_EQ(e.Source(), u"Sheet.Calc");
  EXPECT_EQ(e.Description(), u"Calculation failed");
  EXPECT_EQ(e.HelpFile(), u"calc.hlp");
  EXPECT_EQ(e.HelpContext(), u"0");  // the decimal text, not ""
  EXPECT_EQ(e.LastDllError(), -5);
  EXPECT_EQ(e.CallStack(), u"Main > Calc");
  e.Clear();
  EXPECT_EQ(e.CallStack(), u"");
  EXPECT_EQ(e.Number(), 0);
  EXPECT_EQ(e.HelpContext(), u"");
}

TEST(Error, StoreOverflowsOnAWideStatusAfterTheOtherFields) {
  Error e;
  e.SetLastDllError(12);
  EXPECT_RAISES(e.Store(SampleError(70000)), errors::kOverflow);
  EXPECT_EQ(e.Number(), 1004);
  EXPECT_EQ(e.Description(), u"Calculation failed");
  EXPECT_EQ(e.HelpContext(), u"0");
  EXPECT_EQ(e.HelpFile(), u"calc.hlp");
  EXPECT_EQ(e.Source(), u"Sheet.Calc");
  EXPECT_EQ(e.LastDllError(), 12);
}

TEST(Error, LastDllErrorIsSixteenBits) {
  Error e;
  struct Case {
    int32_t value;
    int32_t error;  // 0: accepted
  };
  for (Case c : {Case{-32768, 0}, Case{32767, 0}, Case{32768, errors::kOverflow},
                 Case{-32769, errors::kOverflow}}) {
    SCOPED_TRACE(c.value);
    e.SetLastDllError(1);
    if (c.error == 0) {
      e.SetLastDllError(c.value);
      EXPECT_EQ(e.LastDllError(), c.value);
    } else {
      EXPECT_RAISES(e.SetLastDllError(c.value), c.error);
      EXPECT_EQ(e.LastDllError(), 1);
    }
  }
}

TEST(Error, StoreThenRaiseGivesTheSameError) {
  Error e;
  e.Store(RuntimeError(513, u"Src", u"Desc", u"file.hlp", 77, 3));
  try {
    e.Raise();
    FAIL();
  } catch (const RuntimeError& raised) {
    EXPECT_EQ(raised.number(), 513);
    EXPECT_EQ(raised.source(), u"Src");
    EXPECT_EQ(raised.description(), u"Desc");
    EXPECT_EQ(raised.help_file(), u"file.hlp");
    EXPECT_EQ(raised.help_context(), 77);
  }
  EXPECT_EQ(e.Number(), 513);  // Raise leaves the fields alone
}

TEST(Error, RaiseWithOddFieldsDoesWhatTheRuntimesRaiseDoes) {
  Error zero;
  zero.SetHelpContext(u"0");
  EXPECT_RAISES(zero.Raise(), errors::kInvalidProcedureCall);
  Error not_numeric;
  not_numeric.SetNumber(9);
  not_numeric.SetHelpContext(u"abc");
  EXPECT_RAISES(not_numeric.Raise(), errors::kTypeMismatch);
  Error standard;
  standard.SetNumber(9);
  standard.SetHelpContext(u"0");
  try {
    standard.Raise();
  } catch (const RuntimeError& raised) {
    EXPECT_EQ(raised.description(), u"Subscript out of range");
  }
}

TEST(Error, StoreFromTheCurrentErrorThroughLateBinding) {
  EXPECT_FALSE(ResumeNext([] { RaiseStandard(errors::kDivisionByZero); }));
  EXPECT_TRUE(ResumeNext([] {}));
  ASSERT_EQ(CurrentError().Number(), errors::kDivisionByZero);

  Ref<Object> saved = CreateObject(Error::kQualifiedName);
  Value current(&CurrentError());
  CallByName(saved, u"Store", CallKind::kMethod, {current});
  EXPECT_EQ(CallByName(saved, u"Number", CallKind::kGet).long_value(), 11);
  EXPECT_EQ(CallByName(saved, u"Description", CallKind::kGet).string(), u"Division by zero");
  EXPECT_EQ(CallByName(saved, u"Source", CallKind::kGet).string(), kStandardErrorSource);
  EXPECT_EQ(CallByName(saved, u"HelpContext", CallKind::kGet).string(), u"0");
  CurrentError().Clear();
  EXPECT_EQ(CurrentError().Number(), 0);
}

}  // namespace
}  // namespace kestrel
