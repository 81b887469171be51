#include "kestrel/diagnostics/profiler.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <tuple>

#include "kestrel/diagnostics/tick_count.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dates.hpp"
#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"
#include "temp_folder.hpp"

namespace kestrel::diagnostics {
namespace {

// The tick count the test scripts step by step.
int32_t g_tick = 0;
int32_t ScriptedTicks() {
  return g_tick;
}
// 5 March 2024, 13:02:03: short date m/d/yyyy, long time h:nn:ss AM/PM.
double FixedClock() {
  return runtime::DateSerial(2024, 3, 5) + runtime::TimeSerial(13, 2, 3);
}
constexpr char kStamp[] = "3/5/2024 1:02:03 PM";

// Expected file text: rows "ID ParentID TicksIn Ticks Name CallDepth"
// separated by "|", each written as a stamped, tab-separated, CR LF line.
std::string Lines(const std::string& rows) {
  std::string out, row;
  std::istringstream in(rows);
  while (std::getline(in, row, '|')) {
    std::replace(row.begin(), row.end(), ' ', '\t');
    out += std::string(kStamp) + "\t" + row + "\r\n";
  }
  return out;
}

// Scripted ticks and the fixed clock for the life of each test.
class ProfilerTest : public ::testing::Test {
 protected:
  void SetUp() override { sink_->OpenFile(path_); }
  ~ProfilerTest() override {
    SetTickSource(previous_ticks_);
    runtime::SetClockSource(previous_clock_);
  }

  TickSource previous_ticks_ = SetTickSource(&ScriptedTicks);
  runtime::ClockSource previous_clock_ = runtime::SetClockSource(&FixedClock);
  testing::TempFolder dir_;
  std::string path_ = dir_.File("profile.txt");
  Ref<ProfileDataFile> sink_ = MakeRef<ProfileDataFile>();
};

// Each script runs on a new profiler writing to a fresh file, which must
// then hold exactly the expected lines. Tokens: "L" RaiseErrorOnBadStack
// False; at a tick, "I<name>"/"O<name>" step in/out, "X<name>" step out
// expecting the case's error number, "T"/"F" TimerOn True/False, "R" Reset, "S" set
// the sink (set up front when the script has no "S").
TEST_F(ProfilerTest, ScriptsWriteOneLinePerClosedStepInnermostFirst) {
  struct Case {
    const char* script;
    const char* expected;
    int32_t error = 0;
  };
  const Case cases[] = {
      // Jump out: unwinds to the match, leaving the outer step open.
      {"L IA@100 IB@110 IC@120 OB@130", "3 2 20 10 C 2|2 1 10 20 B 1"},
      // No match: the outermost step closes although its name differs; a
      // step out on the then empty stack is ignored.
      {"L IA@100 IB@110 OX@140 OY@150", "2 1 10 30 B 1|1 0 0 40 A 0"},
      // Off from 110 to 140 removes 30 ticks; repeating the current setting
      // (on at 105, off at 125) changes nothing.
      {"IA@100 T@105 F@110 F@125 T@140 OA@150", "1 0 0 20 A 0"},
      {"IM\tx@-5 OM\tx@7", "1 0 0 12 M\tx 0"},  // names written as given
      // Reset empties the sink but IDs go on. Reset while running keeps the
      // switch-off at 200: time goes on at the raw count minus the gap; reset
      // while stopped: time restarts at 0.
      {"IA@100 OA@150 R@200 IB@260 OB@270", "2 0 200 10 B 0"},
      {"IA@100 OA@150 F@300 R@310 IB@400 OB@404", "2 0 0 4 B 0"},
      {"XA@100", "", -2147220503},                            // no methods in stack
      {"IA@100 Xa@120 OA@130", "1 0 0 30 A 0", -2147220504},  // case-sensitive; stack kept
      // Without a sink the item stays on the stack.
      {"IA@100 XA@110 S OA@125", "1 0 0 25 A 0", errors::kObjectVariableNotSet},
      // Profiler time (raw count minus paused ticks) leaves the 32-bit range.
      {"IA@-2147483643 XA@10", "", errors::kOverflow},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.script);
    sink_->Clear();
    Profiler profiler;
    const std::string script = c.script;
    if (script.find('S') == std::string::npos) profiler.SetData(sink_);
    std::istringstream in(script);
    for (std::string token; std::getline(in, token, ' ');) {
      const size_t at = token.find('@');
      if (at != std::string::npos) g_tick = std::stoi(token.substr(at + 1));
      const std::u16string name = FromUtf8(token.substr(1, at - 1));
      const char op = token[0];
      if (op == 'L') profiler.SetRaiseErrorOnBadStack(false);
      if (op == 'I') profiler.StepIn(name);
      if (op == 'O') profiler.StepOut(name);
      if (op == 'T' || op == 'F') profiler.SetTimerOn(op == 'T');
      if (op == 'R') profiler.Reset();
      if (op == 'S') profiler.SetData(sink_);
      if (op == 'X') {
        EXPECT_RAISES(profiler.StepOut(name), c.error);
      }
    }
    const std::string expected = Lines(c.expected);
    EXPECT_EQ(testing::FileBytes(path_), expected);
    EXPECT_EQ(ToUtf8(sink_->Data()), expected);
  }
}

TEST(ProfilerItem, TicksIsOutMinusInWithOverflow6) {
  ProfilerItem item;
  item.SetTicksIn(INT32_MIN);
  item.SetTicksOut(-1);
  EXPECT_EQ(item.Ticks(), INT32_MAX);
  item.SetTicksOut(INT32_MAX);
  EXPECT_RAISES(item.Ticks(), errors::kOverflow);
  item.SetTicksIn(INT32_MAX);
  item.SetTicksOut(-2);
  EXPECT_RAISES(item.Ticks(), errors::kOverflow);
  EXPECT_RAISES(CreateObject(u"Kestrel.ProfilerItem"), errors::kCannotCreateObject);
}

// A client sink reached only by name: no C++ interface, just the members
// the profiler calls. It reads each item's members by name too.
class ScriptSink : public Object {
 public:
  std::u16string log;
  std::u16string_view TypeName() const noexcept override { return u"ScriptSink"; }
  Value Invoke(std::u16string_view name, CallKind, std::span<Value> args) override {
    if (name == u"Clear") return Value(log += u"cleared;");
    for (const char16_t* m : {u"ID", u"ParentID", u"Ticks", u"Name"})
      log += runtime::ToText(CallByName(args[0], m, CallKind::kGet)) + u",";
    return Value(log += u";");
  }
};

TEST_F(ProfilerTest, LateBoundSinkThroughLateBoundProfiler) {
  auto sink = MakeRef<ScriptSink>();
  Ref<Object> profiler = CreateObject(u"Kestrel.Profiler");
  CallByName(profiler, u"Data", CallKind::kSet, {Value(sink)});
  EXPECT_EQ(CallByName(profiler, u"Data", CallKind::kGet).object(), sink.get());
  for (const auto& [member, tick, name] :
       {std::tuple(u"StepIn", 100, u"A"), std::tuple(u"StepIn", 110, u"B"),
        std::tuple(u"StepOut", 115, u"B"), std::tuple(u"StepOut", 115, u"A")}) {
    g_tick = tick;
    CallByName(profiler, member, CallKind::kMethod, {Value(name)});
  }
  CallByName(profiler, u"Reset", CallKind::kMethod);
  EXPECT_EQ(sink->log, u"2,1,5,B,;1,0,15,A,;cleared;");
}

TEST_F(ProfilerTest, DataFileByNameAppends) {
  Ref<Object> file = CreateObject(u"Kestrel.ProfileDataFile");
  auto add = [&](int32_t id) {
    CallByName(file, u"Add", CallKind::kMethod,
               {Value(id), Value(3), Value(-20), Value(5), Value(u"M"), Value(int16_t{2})});
  };
  CallByName(file, u"OpenFile", CallKind::kMethod, {Value(FromUtf8(path_))});
  add(7);
  CallByName(file, u"OpenFile", CallKind::kMethod, {Value(FromUtf8(path_)), Value(true)});
  add(8);
  const std::string both = Lines("7 3 -20 5 M 2|8 3 -20 5 M 2");
  EXPECT_EQ(testing::FileBytes(path_), both);
  EXPECT_EQ(runtime::ToText(CallByName(file, u"Data", CallKind::kGet)), FromUtf8(both));
  EXPECT_RAISES(ProfileDataFile().Data(), errors::kObjectVariableNotSet);
}

}  // namespace
}  // namespace kestrel::diagnostics
