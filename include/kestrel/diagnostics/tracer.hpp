// The tracer: indented, severity-filtered trace lines written to a log sink,
// with a stack of the open method names and an optional profiler driven by
// the same in/out calls.
//
// Every line is a fixed-layout prefix and a text:
//
//   mm/dd/yyyy hh:nn:ss SSSS DDDD M<indent> <text>
//
// S the severity and D the depth, both Format(.., "0000") (so -1 is
// "-0001"); M a one-character marker that each writer sets and that then
// stays as it was left (" " Trace, "*" TraceLevel, ">" TraceIn, "<"
// TraceOut; the start and finish banners keep the previous one); the indent
// is 3 x depth + offset spaces, present only while Outdent is True. Messages
// are split at line feeds, one prefixed line per piece (a CR before the LF
// stays at the end of its piece).
//
// Ownership: the tracer owns its method stack. The sink (LogTo) and the
// profiler are shared, not owned. Any object can be the sink: an ILog is
// called directly, anything else by name (LogLine, Clear), so a client's
// late-bound sink plugs in too; likewise a Profiler is called directly and
// any other object by name (StepIn, StepOut, TimerOn, Reset,
// RaiseErrorOnBadStack). Not thread-safe.
//
//   auto log = kestrel::MakeRef<kestrel::diagnostics::LogString>();
//   kestrel::diagnostics::Tracer t;  t.SetLogTo(log);
//   t.TraceIn(u"DoWork", u"Module1");  t.Trace(u"working", kestrel::diagnostics::Info);
//   t.TraceOut(u"DoWork", u"Module1");
//
// Registered as Kestrel.Tracer; dispatchable with the published member
// names, the by-reference arguments written back as described at each
// writing member below.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kestrel/containers/stack.hpp"
#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel::diagnostics {

class ILog;
class Profiler;

// Severity levels (higher is more severe). Severity parameters are plain
// 32-bit integers; kUseDefault (-1) selects the tracer's default level.
// The enumerators keep their published names; they live in the diagnostics
// namespace, next to the profiler's enumeration, where they clash with
// nothing.
enum enTraceLevel : int32_t {
  Fatal = 100,
  High = 50,
  Info = 25,
  Low = 10,
  All = 0,
};

// What a writing member hands back to its caller's by-reference arguments;
// a field is set only when the member assigned that argument.
struct TraceWriteBack {
  std::optional<std::u16string> method_name;  // the name qualified by its module
  std::optional<int32_t> severity;            // the default that replaced -1
  std::optional<std::u16string> msg;          // the last in/out text composed
};

class KESTREL_API Tracer : public Dispatchable<Tracer> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.Tracer";
  static constexpr int32_t kUseDefault = -1;
  // Raised by TraceOut on an unbalanced call while RaiseErrorOnBadStack is
  // True (source "Trace", description "Bad Trace : Jump Out Detected").
  static constexpr int32_t kJumpOutError = errors::kObjectErrorBase + 1000;

  Tracer();
  ~Tracer() override;

  // Calls the sink's Clear (91 without a sink). Returns Empty.
  Value Clear();

  // The sink; null when none. Anything written without one raises 91.
  const Ref<Object>& LogTo() const noexcept { return sink_; }
  void SetLogTo(Ref<Object> sink);

  bool ResetOnTraceStart() const noexcept { return reset_on_trace_start_; }
  void SetResetOnTraceStart(bool v) noexcept { reset_on_trace_start_ = v; }
  // Gate for Trace and TraceLevel. Switching it off also switches off
  // TraceInOutOn; switching it on leaves TraceInOutOn as it is.
  bool TraceOn() const noexcept { return trace_on_; }
  void SetTraceOn(bool v) noexcept;
  // Gate for the logging part of TraceIn and TraceOut (the profiler is
  // driven regardless).
  bool TraceInOutOn() const noexcept { return trace_in_out_on_; }
  void SetTraceInOutOn(bool v) noexcept { trace_in_out_on_ = v; }
  int32_t DefaultTraceLevel() const noexcept { return default_trace_level_; }
  void SetDefaultTraceLevel(int32_t v) noexcept { default_trace_level_ = v; }
  int32_t DefaultTraceInOutLevel() const noexcept { return default_in_out_level_; }
  void SetDefaultTraceInOutLevel(int32_t v) noexcept { default_in_out_level_ = v; }
  const std::u16string& ModuleNameSeparator() const noexcept { return separator_; }
  void SetModuleNameSeparator(std::u16string_view v) { separator_ = v; }

  // The profiler driven by TraceIn/TraceOut while ProfilerOn; null when none.
  const Ref<Object>& Profiler() const noexcept { return profiler_; }
  void SetProfiler(Ref<Object> profiler);
  bool ProfilerOn() const noexcept { return profiler_on_; }
  void SetProfilerOn(bool v) noexcept { profiler_on_ = v; }

  // The open method names, outermost first, joined by `separator`.
  std::u16string StackString(std::u16string_view separator = u".") const;

  bool Outdent() const noexcept { return outdent_; }
  void SetOutdent(bool v) noexcept { outdent_ = v; }
  // Lines with a lower severity are not written.
  int32_t LogSeverity() const noexcept { return log_severity_; }
  void SetLogSeverity(int32_t v) noexcept { log_severity_ = v; }
  bool RaiseErrorOnBadStack() const noexcept { return raise_on_bad_stack_; }
  // Also sets the profiler's setting when a profiler is set at this moment.
  void SetRaiseErrorOnBadStack(bool v);

  // Switches the profiler's timer off (if a profiler is set); the next
  // TraceIn or TraceOut switches it back on.
  void SuspendProfilerTimer();

  // The start banner; with ResetOnTraceStart first clears the sink and
  // resets the profiler. TraceOn is not consulted.
  bool TraceStart();
  bool TraceFinish();

  // The writing members return the sink's LogLine result for the last line
  // written, false when nothing was written. `written`, when given,
  // receives what the published members write back into the caller's
  // by-reference arguments.

  // A message at an explicit depth `level`, indented by `offset` more. The
  // default severity is applied before the threshold test; a negative
  // indentation raises 5.
  bool TraceLevel(std::u16string_view msg, int32_t level = 0, int32_t severity = kUseDefault,
                  int16_t offset = 0, TraceWriteBack* written = nullptr);
  // A message at the current depth. The threshold test sees the severity as
  // passed, before the default is applied, so a defaulted call writes
  // nothing while LogSeverity is 0 or more.
  bool Trace(std::u16string_view msg, int32_t severity = kUseDefault,
             TraceWriteBack* written = nullptr);
  // Method entry: qualifies the name with the module, steps the profiler in,
  // pushes the name (whatever the severity) and writes the entry line(s).
  bool TraceIn(std::u16string_view method_name, std::u16string_view module_name = {},
               int32_t severity = kUseDefault, std::u16string_view msg = {},
               TraceWriteBack* written = nullptr);
  // Method exit: steps the profiler out, checks the top of the method stack
  // against the name (raising kJumpOutError, or unwinding the names above a
  // match with a jump-out line each), writes the exit line(s) and removes
  // the top name, whatever it is.
  bool TraceOut(std::u16string_view method_name, std::u16string_view module_name = {},
                int32_t severity = kUseDefault, std::u16string_view msg = {},
                TraceWriteBack* written = nullptr);

  static const DispatchTable<Tracer>& Dispatch();

 private:
  // The current date and time as "mm/dd/yyyy hh:nn:ss".
  const std::u16string& DateTimeText() const;
  // The line prefix for severity s, depth d, offset o.
  std::u16string Prefix(int32_t s, int32_t d, int32_t o) const;
  bool WriteLine(const std::u16string& line);
  // Writes prefix + text for each piece of `msg`; `head` (may be empty)
  // stands before each piece, and the last composed head + piece goes to
  // `last_text` when given.
  bool WriteMessage(std::u16string_view msg, std::u16string_view head, int32_t s, int32_t d,
                    int32_t o, std::optional<std::u16string>* last_text);
  std::u16string Qualify(std::u16string_view method_name, std::u16string_view module_name,
                         TraceWriteBack* written) const;
  std::u16string InOutHead(char16_t marker, std::u16string_view name) const;
  void ProfilerStep(bool in, const std::u16string& name);
  void ProfilerTimer(bool on);

  Ref<Object> sink_;
  ILog* sink_fast_ = nullptr;  // sink_ as an ILog, when it is one
  Ref<Object> profiler_;
  diagnostics::Profiler* profiler_fast_ = nullptr;
  Ref<Stack> stack_;
  mutable double stamp_serial_ = 0;
  mutable std::u16string stamp_text_;
  std::u16string separator_ = u"!";
  char16_t indent_char_ = u' ';
  int32_t indent_width_ = 3;
  char16_t marker_ = u' ';
  int32_t log_severity_ = All;
  int32_t default_trace_level_ = Info;
  int32_t default_in_out_level_ = Low;
  bool outdent_ = true;
  bool raise_on_bad_stack_ = true;
  bool reset_on_trace_start_ = false;
  bool trace_on_ = true;
  bool trace_in_out_on_ = true;
  bool profiler_on_ = false;
};

}  // namespace kestrel::diagnostics
