#include "kestrel/diagnostics/tracer.hpp"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "kestrel/diagnostics/log.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dates.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel::diagnostics {
namespace {

double FixedClock() {
  return runtime::DateSerial(2024, 3, 5) + runtime::TimeSerial(13, 2, 3);
}
const std::u16string D = u"03/05/2024 13:02:03 ";

// A client object reached only by name, as log sink and as profiler: it
// records every call it gets as "Member argument".
class Recorder : public Object {
 public:
  std::vector<std::u16string> calls;
  std::u16string_view TypeName() const noexcept override { return u"Recorder"; }
  Value Invoke(std::u16string_view name, CallKind, std::span<Value> args) override {
    calls.push_back(std::u16string(name) + (args.empty() ? u"" : u" " + runtime::ToText(args[0])));
    return Value(true);
  }
};

class TracerTest : public ::testing::Test {
 protected:
  void SetUp() override { tracer_->SetLogTo(log_); }
  ~TracerTest() override { runtime::SetClockSource(previous_); }

  runtime::ClockSource previous_ = runtime::SetClockSource(&FixedClock);
  Ref<LogString> log_ = MakeRef<LogString>();
  Ref<Tracer> tracer_ = MakeRef<Tracer>();
};

TEST_F(TracerTest, WriteBackThroughDispatch) {
  std::vector<Value> args = {Value(u"DoWork"), Value(u"M1"), Value(-1), Value(u"")};
  EXPECT_TRUE(runtime::ToBoolean(CallByName(tracer_, u"TraceIn", CallKind::kMethod, args)));
  EXPECT_EQ(log_->Log(), D + u"0010 0001 >    >>>[M1!DoWork] \n");
  EXPECT_EQ(runtime::ToText(args[0]), u"M1!DoWork");
  EXPECT_EQ(runtime::ToLong(args[2]), 10);
  EXPECT_EQ(runtime::ToText(args[3]), u">>>[M1!DoWork] ");
  tracer_->SetLogSeverity(-1);
  args = {Value(u"m"), Value(-1)};
  CallByName(tracer_, u"Trace", CallKind::kMethod, args);
  EXPECT_EQ(runtime::ToLong(args[1]), 25);
  EXPECT_EQ(runtime::ToText(CallByName(tracer_, u"StackString", CallKind::kGet)), u"M1!DoWork");
  tracer_->TraceIn(u"B", u"M");
  EXPECT_EQ(runtime::ToText(CallByName(tracer_, u"StackString", CallKind::kGet, {Value(u"/")})),
            u"M1!DoWork/M!B");
}

TEST_F(TracerTest, WritersLayOutTheirLines) {
  const std::tuple<const char*, void (*)(Tracer&), std::u16string> cases[] = {
      {"trace without severity is filtered", [](Tracer& t) { t.Trace(u"m"); }, u""},
      {"threshold -1 lets the default through",
       [](Tracer& t) { t.SetLogSeverity(-1), t.Trace(u"m"); }, D + u"0025 0000    m\n"},
      {"below threshold", [](Tracer& t) { t.SetLogSeverity(High), t.Trace(u"m", Info); }, u""},
      {"trace level default", [](Tracer& t) { t.TraceLevel(u"m"); }, D + u"0025 0000 * m\n"},
      {"trace level depth and offset", [](Tracer& t) { t.TraceLevel(u"m", 2, Fatal, 1); },
       D + u"0100 0002 *        m\n"},
      {"split at LF, CR kept", [](Tracer& t) { t.Trace(u"a\r\nb", 25); },
       D + u"0025 0000    a\r\n" + D + u"0025 0000    b\n"},
      {"no outdent",
       [](Tracer& t) { t.SetOutdent(false), t.TraceIn(u"A", u"", 50, u"go"), t.TraceOut(u"A"); },
       D + u"0050 0001 > >>>[A] go\n" + D + u"0010 0001 < <<<[A] \n"},
      {"trace off silences all",
       [](Tracer& t) {
         t.SetTraceOn(false), t.Trace(u"m", 25), t.TraceLevel(u"m"), t.TraceIn(u"A"),
             t.TraceOut(u"A");
       },
       u""},
      {"reset, then banners with the previous marker",
       [](Tracer& t) {
         t.TraceLevel(u"m"), t.SetResetOnTraceStart(true), t.TraceStart(), t.TraceFinish();
       },
       D + u"0000 0000 * Vela Trace Started 03/05/2024 13:02:03\n" + D +
           u"0000 0000 * Vela Trace Finished 03/05/2024 13:02:03\n"},
      {"jump out without a match pops the top, an empty stack nothing",
       [](Tracer& t) {
         t.SetRaiseErrorOnBadStack(false);
         t.TraceIn(u"A"), t.Clear(), t.TraceOut(u"X"), t.TraceOut(u"Y");
       },
       D + u"0010 0001 <    <<<[X] \n"},
  };
  for (const auto& [name, run, expected] : cases) {
    SCOPED_TRACE(name);
    Tracer t;
    t.SetLogTo(log_);
    log_->Clear();
    run(t);
    EXPECT_EQ(log_->Log(), expected);
    EXPECT_EQ(t.StackString(), u"");
  }
}

TEST_F(TracerTest, FailuresRaiseTheirNumbers) {
  tracer_->TraceIn(u"A");
  EXPECT_RAISES(tracer_->TraceOut(u"X"), -2147220504);  // jump out detected
  EXPECT_EQ(tracer_->StackString(), u"A");              // left as it was
  tracer_->TraceOut(u"A");
  EXPECT_RAISES(tracer_->TraceOut(u"A"), -2147220504);  // empty stack
  EXPECT_RAISES(tracer_->TraceLevel(u"m", 0, 25, -1), 5);
  Tracer bare;
  EXPECT_RAISES(bare.TraceIn(u"A"), 91);
  EXPECT_EQ(bare.StackString(), u"A");  // pushed before the write failed
}

TEST_F(TracerTest, LateBoundSinkAndProfiler) {
  auto rec = MakeRef<Recorder>();
  tracer_->SetLogTo(rec);
  tracer_->SetProfiler(rec);
  tracer_->SetProfilerOn(true);
  tracer_->SetTraceOn(false);  // the profiler is still driven
  EXPECT_FALSE(tracer_->TraceIn(u"A", u"M"));
  tracer_->SetTraceOn(true);
  tracer_->SetResetOnTraceStart(true);
  EXPECT_TRUE(tracer_->TraceStart());
  tracer_->SuspendProfilerTimer();
  const std::vector<std::u16string> expected = {
      u"StepIn M!A",   u"TimerOn False",
      u"TimerOn True", u"Clear",
      u"Reset",        u"LogLine " + D + u"0000 0000   Vela Trace Started 03/05/2024 13:02:03",
      u"TimerOn False"};
  EXPECT_EQ(rec->calls, expected);
}

}  // namespace
}  // namespace kestrel::diagnostics
