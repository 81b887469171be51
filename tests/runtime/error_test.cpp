#include "kestrel/runtime/error.hpp"

#include <gtest/gtest.h>

#include <string>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

RuntimeError SampleError(int32_t last_dll_error, int32_t help_context = 0) {
  return RuntimeError(1004, u"Sheet.Calc", u"Calculation failed", u"calc.hlp", help_context,
                      last_dll_error);
}

// "Number|Source|Description|HelpFile|HelpContext|LastDllError|CallStack".
std::string Fields(const Error& e) {
  return std::to_string(e.Number()) + "|" +
         ToUtf8(e.Source() + u"|" + e.Description() + u"|" + e.HelpFile() + u"|" +
                e.HelpContext()) +
         "|" + std::to_string(e.LastDllError()) + "|" + ToUtf8(e.CallStack());
}

// What Raise throws, as "number|source|description|help file|help context".
std::string Raised(const Error& e) {
  try {
    e.Raise();
  } catch (const RuntimeError& r) {
    return std::to_string(r.number()) + "|" +
           ToUtf8(r.source() + u"|" + r.description() + u"|" + r.help_file()) + "|" +
           std::to_string(r.help_context());
  }
  return "nothing raised";
}

TEST(Error, StoreCopiesEveryFieldButCallStack) {
  Error e;
  EXPECT_EQ(Fields(e), "0|||||0|");
  e.SetCallStack(u"Main > Calc");
  e.Store(SampleError(-5));
  // HelpContext is kept as decimal text: "0", not "".
  EXPECT_EQ(Fields(e), "1004|Sheet.Calc|Calculation failed|calc.hlp|0|-5|Main > Calc");
  e.Store(SampleError(3, 77));
  EXPECT_EQ(Raised(e), "1004|Sheet.Calc|Calculation failed|calc.hlp|77");
  // Raise leaves the fields alone.
  EXPECT_EQ(Fields(e), "1004|Sheet.Calc|Calculation failed|calc.hlp|77|3|Main > Calc");
  e.Clear();
  EXPECT_EQ(Fields(e), "0|||||0|");
  // A status wider than 16 bits overflows after the other fields are copied.
  e.SetLastDllError(12);
  EXPECT_RAISES(e.Store(SampleError(70000)), errors::kOverflow);
  EXPECT_EQ(Fields(e), "1004|Sheet.Calc|Calculation failed|calc.hlp|0|12|");
}

TEST(Error, LastDllErrorIsSixteenBits) {
  Error e;
  for (int32_t value : {-32768, 32767, -32769, 32768}) {
    SCOPED_TRACE(value);
    e.SetLastDllError(1);
    if (value >= -32768 && value <= 32767) {
      e.SetLastDllError(value);
      EXPECT_EQ(e.LastDllError(), value);
    } else {
      EXPECT_RAISES(e.SetLastDllError(value), errors::kOverflow);
      EXPECT_EQ(e.LastDllError(), 1);
    }
  }
}

TEST(Error, RaiseWithOddFieldsDoesWhatTheRuntimesRaiseDoes) {
  Error e;
  e.SetHelpContext(u"0");
  EXPECT_RAISES(e.Raise(), errors::kInvalidProcedureCall);  // number 0
  e.SetNumber(9);
  EXPECT_EQ(Raised(e), "9||Subscript out of range||0");  // the standard text
  e.SetHelpContext(u"abc");
  EXPECT_RAISES(e.Raise(), errors::kTypeMismatch);
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
