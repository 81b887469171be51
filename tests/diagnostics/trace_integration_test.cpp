// A traced program end to end: a Tracer writing through a LogFile and
// driving a Profiler that writes through a ProfileDataFile; both files are
// read back from disk.
#include <gtest/gtest.h>

#include <string>

#include "kestrel/diagnostics/log.hpp"
#include "kestrel/diagnostics/profiler.hpp"
#include "kestrel/diagnostics/tick_count.hpp"
#include "kestrel/diagnostics/tracer.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/dates.hpp"
#include "temp_folder.hpp"

namespace kestrel::diagnostics {
namespace {

// Ticks are set by the test before each call. Stamping a line costs 5 ticks
// whenever the profiler's timer is off, which is exactly while the tracer
// logs in TraceIn/TraceOut: that time must never show in the profile.
int32_t g_tick = 0;
const Profiler* g_profiler = nullptr;
int32_t ScriptedTicks() {
  return g_tick;
}
double FixedClock() {
  if (g_profiler != nullptr && !g_profiler->TimerOn()) g_tick += 5;
  return runtime::DateSerial(2024, 3, 5) + runtime::TimeSerial(13, 2, 3);
}

const std::string D = "03/05/2024 13:02:03 ";
const std::string P = "3/5/2024 1:02:03 PM\t";

class TraceIntegrationTest : public ::testing::Test {
 protected:
  void SetUp() override { Wire(); }
  // Fresh files, profiler and tracer, wired together.
  void Wire() {
    profiler_ = MakeRef<Profiler>();
    tracer_ = MakeRef<Tracer>();
    log_->OpenFile(FromUtf8(dir_.File("trace.log")));
    data_->OpenFile(dir_.File("profile.txt"));
    profiler_->SetData(data_);
    tracer_->SetLogTo(log_);
    tracer_->SetProfiler(profiler_);
    tracer_->SetProfilerOn(true);
    g_profiler = profiler_.get();
  }
  ~TraceIntegrationTest() override {
    g_profiler = nullptr;
    SetTickSource(previous_ticks_);
    runtime::SetClockSource(previous_clock_);
  }
  std::string LogBytes() const { return testing::FileBytes(dir_.File("trace.log")); }
  std::string ProfileBytes() const { return testing::FileBytes(dir_.File("profile.txt")); }
  // TraceIn and TraceOut at a given tick.
  void In(int32_t tick, std::u16string_view name, std::u16string_view module = u"App") {
    g_tick = tick, tracer_->TraceIn(name, module);
  }
  void Out(int32_t tick, std::u16string_view name, std::u16string_view module = u"App") {
    g_tick = tick, tracer_->TraceOut(name, module);
  }

  TickSource previous_ticks_ = SetTickSource(&ScriptedTicks);
  runtime::ClockSource previous_clock_ = runtime::SetClockSource(&FixedClock);
  testing::TempFolder dir_;
  Ref<LogFile> log_ = MakeRef<LogFile>();
  Ref<ProfileDataFile> data_ = MakeRef<ProfileDataFile>();
  Ref<Profiler> profiler_;
  Ref<Tracer> tracer_;
};

TEST_F(TraceIntegrationTest, NestedCallsLogAndProfileWithoutTheLoggingTime) {
  tracer_->TraceStart();
  In(1000, u"Main");                 // profiler time 0 at the first step in
  In(1020, u"Load");                 // 1020 - (1000 + 5 paused) = 15
  tracer_->Trace(u"reading", Info);  // timer on: no profiler involvement
  Out(1100, u"Load");                // 1100 - 1010 = 90, so 75 ticks
  Out(1200, u"Main");                // 1200 - 1015 = 185
  tracer_->TraceFinish();

  EXPECT_EQ(LogBytes(), D + "0000 0000   Vela Trace Started 03/05/2024 13:02:03\r\n" +  //
                            D + "0010 0001 >    >>>[App!Main] \r\n" +                   //
                            D + "0010 0002 >       >>>[App!Load] \r\n" +                //
                            D + "0025 0002          reading\r\n" +                      //
                            D + "0010 0002 <       <<<[App!Load] \r\n" +                //
                            D + "0010 0001 <    <<<[App!Main] \r\n" +                   //
                            D + "0000 0000 < Vela Trace Finished 03/05/2024 13:02:03\r\n");
  EXPECT_EQ(ProfileBytes(), P + "2\t1\t15\t75\tApp!Load\t1\r\n" +  //
                                P + "1\t0\t0\t185\tApp!Main\t0\r\n");
}

TEST_F(TraceIntegrationTest, JumpOutIsRecoveredByBoth) {
  tracer_->SetRaiseErrorOnBadStack(false);  // passed on to the profiler
  In(100, u"A", {});                        // profiler time 0, then 5 paused
  In(110, u"B", {});                        // 5
  In(120, u"C", {});                        // 10
  Out(200, u"A", {});                       // all three close at 200 - 115 = 85

  EXPECT_EQ(LogBytes(), D + "0010 0001 >    >>>[A] \r\n" +                                //
                            D + "0010 0002 >       >>>[B] \r\n" +                         //
                            D + "0010 0003 >          >>>[C] \r\n" +                      //
                            D + "0000 0003 <          <<<[C]  : Jump Out Detected\r\n" +  //
                            D + "0000 0002 <       <<<[B]  : Jump Out Detected\r\n" +     //
                            D + "0010 0001 <    <<<[A] \r\n");
  EXPECT_EQ(ProfileBytes(), P + "3\t2\t10\t75\tC\t2\r\n" +     //
                                P + "2\t1\t5\t80\tB\t1\r\n" +  //
                                P + "1\t0\t0\t85\tA\t0\r\n");
  EXPECT_EQ(tracer_->StackString(), u"");
}

TEST_F(TraceIntegrationTest, BadStackErrorsComeFromTheFirstStrictParty) {
  struct Case {
    bool profiler_raises, step_in_first;
    int32_t number;
    std::u16string source, description;
    bool timer_on_after;  // off only when the tracer raised after pausing it
  };
  const Case cases[] = {
      {true, true, -2147220504, u"Profiler", u"Step out : Jump Out Detected", true},
      {false, true, -2147220504, u"Trace", u"Bad Trace : Jump Out Detected", false},
      {true, false, -2147220503, u"Profiler", u"Step out : No methods in stack", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.number);  // the tracer raises too (its default)
    profiler_->SetRaiseErrorOnBadStack(c.profiler_raises);
    if (c.step_in_first) tracer_->TraceIn(u"A");
    try {
      tracer_->TraceOut(u"X");
      ADD_FAILURE() << "nothing raised";
    } catch (const RuntimeError& e) {
      EXPECT_EQ(e.number(), c.number);
      EXPECT_EQ(e.source(), c.source);
      EXPECT_EQ(e.description(), c.description);
    }
    EXPECT_EQ(tracer_->StackString(), c.step_in_first ? u"A" : u"");  // left as it was
    EXPECT_EQ(profiler_->TimerOn(), c.timer_on_after);
    Wire();
  }
}

}  // namespace
}  // namespace kestrel::diagnostics
