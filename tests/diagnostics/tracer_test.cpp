#include "kestrel/diagnostics/tracer.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "kestrel/diagnostics/log.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dates.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel::diagnostics {
namespace {

double FixedClock() { return runtime::DateSerial(2024, 3, 5) + runtime::TimeSerial(13, 2, 3); }
const std::u16string D = u"03/05/2024 13:02:03 ";

// A client object reached only by name: answers as a log sink (LogLine,
// Clear) and as a profiler (StepIn, StepOut, TimerOn, Reset,
// RaiseErrorOnBadStack), recording every call.
class Recorder : public Dispatchable<Recorder> {
 public:
  std::vector<std::u16string> calls;

  static const DispatchTable<Recorder>& Dispatch() {
    using T = DispatchTable<Recorder>;
    static const T table =
        T::Builder(u"Recorder")
            .Method(u"LogLine", 1, 1, [](Recorder& r, Args& a) { return r.Note(u"LogLine ", a[0]); })
            .Method(u"Clear", 0, 0, [](Recorder& r, Args&) { return r.Note(u"Clear", {}); })
            .Method(u"Reset", 0, 0, [](Recorder& r, Args&) { return r.Note(u"Reset", {}); })
            .Method(u"StepIn", 1, 1, [](Recorder& r, Args& a) { return r.Note(u"StepIn ", a[0]); })
            .Method(u"StepOut", 1, 1, [](Recorder& r, Args& a) { return r.Note(u"StepOut ", a[0]); })
            .Let(u"TimerOn", [](Recorder& r, Args&, const Value& v) { r.Note(u"TimerOn ", v); })
            .Let(u"RaiseErrorOnBadStack",
                 [](Recorder& r, Args&, const Value& v) { r.Note(u"Raise ", v); })
            .Build();
    return table;
  }

 private:
  Value Note(std::u16string_view what, const Value& v) {
    calls.push_back(std::u16string(what) + (v.IsEmpty() ? u"" : runtime::ToText(v)));
    return Value(true);
  }
};

class TracerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    previous_ = runtime::SetClockSource(&FixedClock);
    tracer_->SetLogTo(log_);
  }
  void TearDown() override { runtime::SetClockSource(previous_); }

  runtime::ClockSource previous_ = nullptr;
  Ref<LogString> log_ = MakeRef<LogString>();
  Ref<Tracer> tracer_ = MakeRef<Tracer>();
};

TEST_F(TracerTest, TraceInQualifiesAndWritesBackThroughDispatch) {
  std::vector<Value> args = {Value(u"DoWork"), Value(u"M1"), Value(-1), Value(u"")};
  EXPECT_TRUE(runtime::ToBoolean(CallByName(tracer_, u"TraceIn", CallKind::kMethod, std::span<Value>(args))));
  EXPECT_EQ(log_->Log(), D + u"0010 0001 >    >>>[M1!DoWork] \n");
  EXPECT_EQ(runtime::ToText(args[0]), u"M1!DoWork");
  EXPECT_EQ(runtime::ToLong(args[2]), 10);
  EXPECT_EQ(runtime::ToText(args[3]), u">>>[M1!DoWork] ");
}

TEST_F(TracerTest, WritersLayOutTheirLines) {
  struct Case {
    const char* name;
    std::function<void(Tracer&)> run;
    std::u16string expected;
  };
  const std::vector<Case> cases = {
      {"nested in, trace, out",
       [](Tracer& t) {
         t.TraceIn(u"A");
         t.Trace(u"x", Info);
         t.TraceOut(u"A");
       },
       D + u"0010 0001 >    >>>[A] \n" + D + u"0025 0001       x\n" + D + u"0010 0001 <    <<<[A] \n"},
      {"trace without severity is filtered", [](Tracer& t) { t.Trace(u"m"); }, u""},
      {"trace 25 at depth 0", [](Tracer& t) { t.Trace(u"m", 25); }, D + u"0025 0000    m\n"},
      {"threshold -1 lets the default through",
       [](Tracer& t) {
         t.SetLogSeverity(-1);
         t.Trace(u"m");
       },
       D + u"0025 0000    m\n"},
      {"below threshold", [](Tracer& t) { t.SetLogSeverity(High); t.Trace(u"m", Info); }, u""},
      {"trace level default", [](Tracer& t) { t.TraceLevel(u"m"); }, D + u"0025 0000 * m\n"},
      {"trace level depth and offset", [](Tracer& t) { t.TraceLevel(u"m", 2, Fatal, 1); },
       D + u"0100 0002 *        m\n"},
      {"split at LF, CR kept", [](Tracer& t) { t.Trace(u"a\r\nb", 25); },
       D + u"0025 0000    a\r\n" + D + u"0025 0000    b\n"},
      {"no outdent",
       [](Tracer& t) {
         t.SetOutdent(false);
         t.TraceIn(u"A", u"", 50, u"go");
         t.TraceOut(u"A");
       },
       D + u"0050 0001 > >>>[A] go\n" + D + u"0010 0001 < <<<[A] \n"},
      {"trace off silences everything",
       [](Tracer& t) {
         t.SetTraceOn(false);
         t.Trace(u"m", 25);
         t.TraceLevel(u"m");
         t.TraceIn(u"A");
         t.TraceOut(u"A");
       },
       u""},
      {"banners keep the previous marker",
       [](Tracer& t) {
         t.TraceLevel(u"m");
         t.SetResetOnTraceStart(true);
         t.TraceStart();
         t.TraceFinish();
       },
       D + u"0000 0000 * Vela Trace Started 03/05/2024 13:02:03\n" + D +
           u"0000 0000 * Vela Trace Finished 03/05/2024 13:02:03\n"},
      {"jump out unwinds to the match",
       [](Tracer& t) {
         t.SetRaiseErrorOnBadStack(false);
         t.SetLogSeverity(5);
         t.TraceIn(u"A");
         t.TraceIn(u"B");
         t.TraceIn(u"C");
         t.Clear();
         t.TraceOut(u"A");
       },
       D + u"0005 0003 <          <<<[C]  : Jump Out Detected\n" + D +
           u"0005 0002 <       <<<[B]  : Jump Out Detected\n" + D + u"0010 0001 <    <<<[A] \n"},
      {"jump out without a match pops the top",
       [](Tracer& t) {
         t.SetRaiseErrorOnBadStack(false);
         t.TraceIn(u"A");
         t.Clear();
         t.TraceOut(u"X");
         t.TraceOut(u"Y");  // empty stack: nothing
       },
       D + u"0010 0001 <    <<<[X] \n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Tracer t;
    t.SetLogTo(log_);
    log_->Clear();
    c.run(t);
    EXPECT_EQ(log_->Log(), c.expected);
    EXPECT_EQ(t.StackString(), u"");
  }
}

TEST_F(TracerTest, DefaultSeverityIsWrittenBack) {
  tracer_->SetLogSeverity(-1);
  std::vector<Value> args = {Value(u"m"), Value(-1)};
  CallByName(tracer_, u"Trace", CallKind::kMethod, std::span<Value>(args));
  EXPECT_EQ(runtime::ToLong(args[1]), 25);
}

TEST_F(TracerTest, BadStackRaisesAndLeavesTheStack) {
  auto check = [this](const char* what, std::u16string_view name) {
    SCOPED_TRACE(what);
    try {
      tracer_->TraceOut(name);
      ADD_FAILURE() << "nothing raised";
    } catch (const RuntimeError& e) {
      EXPECT_EQ(e.number(), -2147220504);
      EXPECT_EQ(e.source(), u"Trace");
      EXPECT_EQ(e.description(), u"Bad Trace : Jump Out Detected");
    }
  };
  check("empty stack", u"X");
  tracer_->TraceIn(u"A");
  check("mismatch", u"X");
  EXPECT_EQ(tracer_->StackString(), u"A");
}

TEST_F(TracerTest, StackStringJoinsOutermostFirst) {
  tracer_->TraceIn(u"A", u"M");
  tracer_->TraceIn(u"B", u"M");
  EXPECT_EQ(runtime::ToText(CallByName(tracer_, u"StackString", CallKind::kGet)), u"M!A.M!B");
  EXPECT_EQ(runtime::ToText(CallByName(tracer_, u"StackString", CallKind::kGet, {Value(u"/")})),
            u"M!A/M!B");
}

TEST_F(TracerTest, LateBoundSinkAndProfiler) {
  auto rec = MakeRef<Recorder>();
  tracer_->SetLogTo(rec);
  tracer_->SetProfiler(rec);
  tracer_->SetProfilerOn(true);
  tracer_->SetRaiseErrorOnBadStack(false);
  tracer_->SetTraceOn(false);  // the profiler is still driven
  EXPECT_FALSE(tracer_->TraceIn(u"A", u"M"));
  tracer_->SetTraceInOutOn(true);
  EXPECT_TRUE(tracer_->Trace(u"m", 25) == false);
  tracer_->SetTraceOn(true);
  EXPECT_TRUE(tracer_->Trace(u"m", 25));
  tracer_->SuspendProfilerTimer();
  const std::vector<std::u16string> expected = {
      u"Raise False", u"StepIn M!A", u"TimerOn False", u"TimerOn True",
      u"LogLine " + D + u"0025 0000    m", u"TimerOn False"};
  EXPECT_EQ(rec->calls, expected);
}

TEST_F(TracerTest, FailuresCarryTheRuntimeNumbers) {
  EXPECT_RAISES(tracer_->TraceLevel(u"m", 0, 25, -1), 5);
  EXPECT_RAISES(tracer_->TraceLevel(u"m", -1), 5);
  Tracer bare;
  EXPECT_RAISES(bare.Trace(u"m", 25), 91);
  EXPECT_RAISES(bare.TraceIn(u"A"), 91);
  EXPECT_EQ(bare.StackString(), u"A");  // pushed before the write failed
}

}  // namespace
}  // namespace kestrel::diagnostics
