#include "kestrel/diagnostics/tracer.hpp"

#include <limits>
#include <utility>

#include "kestrel/diagnostics/log.hpp"
#include "kestrel/diagnostics/profiler.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dates.hpp"
#include "kestrel/runtime/format.hpp"
#include "kestrel/runtime/registry.hpp"
#include "kestrel/runtime/strings.hpp"

namespace kestrel::diagnostics {
namespace {

KESTREL_REGISTER_CLASS(Tracer, Tracer::kQualifiedName, Instancing::kCreatable);

constexpr std::u16string_view kJumpOutText = u" : Jump Out Detected";

// Format(n, "0000"): at least four digits, a minus sign before negatives.
void AppendFourDigits(std::u16string& out, int32_t n) {
  int64_t v = n;
  if (v < 0) {
    out += u'-';
    v = -v;
  }
  char16_t digits[12];
  int len = 0;
  do {
    digits[len++] = char16_t(u'0' + v % 10);
    v /= 10;
  } while (v != 0);
  for (int i = len; i < 4; ++i) out += u'0';
  while (len > 0) out += digits[--len];
}

[[noreturn]] void RaiseJumpOut() {
  Raise(Tracer::kJumpOutError, u"Trace", u"Bad Trace : Jump Out Detected");
}

bool SameName(const Value& entry, std::u16string_view name) {
  return entry.IsString() ? entry.string() == name : runtime::ToText(entry) == name;
}

}  // namespace

Tracer::Tracer() : stack_(MakeRef<Stack>()) {}

Tracer::~Tracer() = default;

Value Tracer::Clear() {
  if (!sink_) RaiseStandard(errors::kObjectVariableNotSet);
  if (sink_fast_)
    sink_fast_->Clear();
  else
    CallByName(sink_, u"Clear", CallKind::kMethod);
  return Value();
}

void Tracer::SetLogTo(Ref<Object> sink) {
  sink_ = std::move(sink);
  sink_fast_ = dynamic_cast<ILog*>(sink_.get());
}

void Tracer::SetTraceOn(bool v) noexcept {
  trace_on_ = v;
  if (!v) trace_in_out_on_ = false;
}

void Tracer::SetProfiler(Ref<Object> profiler) {
  profiler_ = std::move(profiler);
  profiler_fast_ = dynamic_cast<diagnostics::Profiler*>(profiler_.get());
}

void Tracer::SetRaiseErrorOnBadStack(bool v) {
  raise_on_bad_stack_ = v;
  if (profiler_fast_)
    profiler_fast_->SetRaiseErrorOnBadStack(v);
  else if (profiler_)
    CallByName(profiler_, u"RaiseErrorOnBadStack", CallKind::kLet, {Value(v)});
}

void Tracer::SuspendProfilerTimer() {
  if (profiler_) ProfilerTimer(false);
}

std::u16string Tracer::StackString(std::u16string_view separator) const {
  std::u16string out;
  for (int32_t i = 1; i <= stack_->Count(); ++i) {
    out += runtime::ToText(stack_->Item(i));
    out += separator;
  }
  if (!out.empty()) out.resize(out.size() - std::min(out.size(), separator.size()));
  return out;
}

// --- lines -------------------------------------------------------------------

const std::u16string& Tracer::DateTimeText() const {
  // The clock is read for every line; the text is formatted again only
  // when the second has changed.
  const double now = runtime::Now();
  if (now != stamp_serial_ || stamp_text_.empty()) {
    stamp_text_ = runtime::Format(Value::Date(now), u"mm/dd/yyyy hh:nn:ss");
    stamp_serial_ = now;
  }
  return stamp_text_;
}

std::u16string Tracer::Prefix(int32_t s, int32_t d, int32_t o) const {
  std::u16string p;
  p.reserve(40 + size_t(indent_width_) * size_t(d < 0 ? 0 : d));
  p += DateTimeText();
  p += u' ';
  AppendFourDigits(p, s);
  p += u' ';
  AppendFourDigits(p, d);
  p += u' ';
  p += marker_;
  if (outdent_) {
    int64_t n = int64_t(indent_width_) * d + o;
    if (n > std::numeric_limits<int32_t>::max() || n < std::numeric_limits<int32_t>::min())
      RaiseStandard(errors::kOverflow);
    // A negative count fails here with 5, as the runtime's repeat does.
    p += runtime::String(int32_t(n), indent_char_);
  }
  p += u' ';
  return p;
}

bool Tracer::WriteLine(const std::u16string& line) {
  if (sink_fast_) return sink_fast_->LogLine(line);
  if (!sink_) RaiseStandard(errors::kObjectVariableNotSet);
  return runtime::ToBoolean(CallByName(sink_, u"LogLine", CallKind::kMethod, {Value(line)}));
}

bool Tracer::WriteMessage(std::u16string_view msg, std::u16string_view head, int32_t s, int32_t d,
                          int32_t o, std::optional<std::u16string>* last_text) {
  bool result = false;
  size_t start = 0;
  // An empty message still gives one line; a trailing line feed gives a
  // last, empty piece.
  while (true) {
    size_t end = msg.find(u'\n', start);
    std::u16string_view piece = msg.substr(
        start, end == std::u16string_view::npos ? std::u16string_view::npos : end - start);
    std::u16string line = Prefix(s, d, o);
    size_t text_at = line.size();
    line += head;
    line += piece;
    if (last_text) *last_text = line.substr(text_at);
    result = WriteLine(line);
    if (end == std::u16string_view::npos) break;
    start = end + 1;
  }
  return result;
}

std::u16string Tracer::Qualify(std::u16string_view method_name, std::u16string_view module_name,
                               TraceWriteBack* written) const {
  std::u16string name;
  if (module_name.empty()) {
    name = method_name;
    return name;
  }
  name.reserve(module_name.size() + separator_.size() + method_name.size());
  name += module_name;
  name += separator_;
  name += method_name;
  if (written) written->method_name = name;
  return name;
}

std::u16string Tracer::InOutHead(char16_t marker, std::u16string_view name) const {
  std::u16string head = runtime::String(indent_width_, marker);
  head += u'[';
  head += name;
  head += u"] ";
  return head;
}

void Tracer::ProfilerStep(bool in, const std::u16string& name) {
  if (profiler_fast_) {
    if (in)
      profiler_fast_->StepIn(name);
    else
      profiler_fast_->StepOut(name);
    return;
  }
  if (!profiler_) RaiseStandard(errors::kObjectVariableNotSet);
  CallByName(profiler_, in ? u"StepIn" : u"StepOut", CallKind::kMethod, {Value(name)});
}

void Tracer::ProfilerTimer(bool on) {
  if (profiler_fast_) return profiler_fast_->SetTimerOn(on);
  if (!profiler_) RaiseStandard(errors::kObjectVariableNotSet);
  CallByName(profiler_, u"TimerOn", CallKind::kLet, {Value(on)});
}

// --- writers -------------------------------------------------------------------

bool Tracer::TraceStart() {
  if (reset_on_trace_start_) {
    Clear();
    if (profiler_fast_)
      profiler_fast_->Reset();
    else if (profiler_)
      CallByName(profiler_, u"Reset", CallKind::kMethod);
  }
  std::u16string line = Prefix(0, 0, 0);
  line += u"Vela Trace Started ";
  line += DateTimeText();
  return WriteLine(line);
}

bool Tracer::TraceFinish() {
  std::u16string line = Prefix(0, 0, 0);
  line += u"Vela Trace Finished ";
  line += DateTimeText();
  return WriteLine(line);
}

namespace {
// -1 stands for the default level; the caller's variable receives the level
// actually used.
void ApplyDefaultSeverity(int32_t& severity, int32_t default_level, TraceWriteBack* written) {
  if (severity != Tracer::kUseDefault) return;
  severity = default_level;
  if (written) written->severity = severity;
}
}  // namespace

bool Tracer::TraceLevel(std::u16string_view msg, int32_t level, int32_t severity, int16_t offset,
                        TraceWriteBack* written) {
  if (!trace_on_) return false;
  ApplyDefaultSeverity(severity, default_trace_level_, written);
  if (severity < log_severity_) return false;
  marker_ = u'*';
  return WriteMessage(msg, {}, severity, level, offset, nullptr);
}

bool Tracer::Trace(std::u16string_view msg, int32_t severity, TraceWriteBack* written) {
  // The threshold sees the severity as passed; the default comes after.
  if (!trace_on_ || severity < log_severity_) return false;
  ApplyDefaultSeverity(severity, default_trace_level_, written);
  marker_ = u' ';
  return WriteMessage(msg, {}, severity, stack_->Count(), 1, nullptr);
}

bool Tracer::TraceIn(std::u16string_view method_name, std::u16string_view module_name,
                     int32_t severity, std::u16string_view msg, TraceWriteBack* written) {
  const std::u16string name = Qualify(method_name, module_name, written);
  if (profiler_on_) {
    ProfilerStep(true, name);
    ProfilerTimer(false);
  }
  bool result = false;
  if (trace_in_out_on_) {
    ApplyDefaultSeverity(severity, default_in_out_level_, written);
    stack_->Add(Value(name));
    if (severity >= log_severity_) {
      marker_ = u'>';
      result = WriteMessage(msg, InOutHead(u'>', name), severity, stack_->Count(), 0,
                            written ? &written->msg : nullptr);
    }
  }
  if (profiler_on_) ProfilerTimer(true);
  return result;
}

bool Tracer::TraceOut(std::u16string_view method_name, std::u16string_view module_name,
                      int32_t severity, std::u16string_view msg, TraceWriteBack* written) {
  const std::u16string name = Qualify(method_name, module_name, written);
  if (profiler_on_) {
    ProfilerStep(false, name);
    ProfilerTimer(false);
  }
  bool result = false;
  if (trace_in_out_on_) {
    ApplyDefaultSeverity(severity, default_in_out_level_, written);
    marker_ = u'<';
    if (stack_->Count() == 0) {
      // An exit with nothing open: an error, or silently nothing to log.
      if (raise_on_bad_stack_) RaiseJumpOut();
    } else {
      if (!SameName(stack_->Top(), name)) {
        if (raise_on_bad_stack_) RaiseJumpOut();
        // Unwind only down to a matching entry; with none, nothing is
        // unwound and the unrelated top is removed below.
        bool found = false;
        for (int32_t i = stack_->Count(); i >= 1 && !found; --i)
          found = SameName(stack_->Item(i), name);
        if (found) {
          while (!SameName(stack_->Top(), name)) {
            std::u16string text = InOutHead(u'<', runtime::ToText(stack_->Top()));
            text += kJumpOutText;
            // The severity column shows the threshold, not the call's level.
            if (severity >= log_severity_)
              result = WriteLine(Prefix(log_severity_, stack_->Count(), 0) + text);
            stack_->Remove();
          }
        }
      }
      if (severity >= log_severity_) {
        marker_ = u'<';
        result = WriteMessage(msg, InOutHead(u'<', name), severity, stack_->Count(), 0,
                              written ? &written->msg : nullptr);
      }
      stack_->Remove();
    }
  }
  if (profiler_on_) ProfilerTimer(true);
  return result;
}

// --- late binding ------------------------------------------------------------------

namespace {

std::u16string TextArg(Args& a, size_t i) {
  return a.Has(i) ? a.Text(i) : u"";
}
int32_t SeverityArg(Args& a, size_t i) {
  return a.Has(i) ? a.Long(i) : Tracer::kUseDefault;
}

// Writes back what the member assigned to its by-reference arguments.
void WriteBack(Args& a, const TraceWriteBack& w, size_t name_at, size_t severity_at,
               size_t msg_at) {
  if (w.method_name) a[name_at] = Value(*w.method_name);
  if (w.severity) a[severity_at] = Value(*w.severity);
  if (w.msg) a[msg_at] = Value(*w.msg);
}

Ref<Object> ObjectArg(const Value& v) {
  if (!v.IsObject()) RaiseStandard(errors::kObjectRequired);
  return Ref<Object>(v.object());
}

template <bool kIn>
Value InOut(Tracer& t, Args& a) {
  TraceWriteBack w;
  const std::u16string method = TextArg(a, 0), module = TextArg(a, 1), msg = TextArg(a, 3);
  bool r = kIn ? t.TraceIn(method, module, SeverityArg(a, 2), msg, &w)
               : t.TraceOut(method, module, SeverityArg(a, 2), msg, &w);
  WriteBack(a, w, 0, 2, 3);
  return Value(r);
}

}  // namespace

const DispatchTable<Tracer>& Tracer::Dispatch() {
  using T = DispatchTable<Tracer>;
  static const T table =
      T::Builder(u"Tracer")
          .Method(u"Clear", 0, 0, [](Tracer& t, Args&) { return t.Clear(); })
          .Get(u"LogTo", [](Tracer& t, Args&) { return Value(t.LogTo()); })
          .Set(u"LogTo", [](Tracer& t, Args&, const Value& v) { t.SetLogTo(ObjectArg(v)); })
          .Property(
              u"ResetOnTraceStart", [](Tracer& t, Args&) { return Value(t.ResetOnTraceStart()); },
              [](Tracer& t, Args&, const Value& v) {
                t.SetResetOnTraceStart(runtime::ToBoolean(v));
              })
          .Property(
              u"TraceOn", [](Tracer& t, Args&) { return Value(t.TraceOn()); },
              [](Tracer& t, Args&, const Value& v) { t.SetTraceOn(runtime::ToBoolean(v)); })
          .Property(
              u"TraceInOutOn", [](Tracer& t, Args&) { return Value(t.TraceInOutOn()); },
              [](Tracer& t, Args&, const Value& v) { t.SetTraceInOutOn(runtime::ToBoolean(v)); })
          .Property(
              u"DefaultTraceLevel", [](Tracer& t, Args&) { return Value(t.DefaultTraceLevel()); },
              [](Tracer& t, Args&, const Value& v) { t.SetDefaultTraceLevel(runtime::ToLong(v)); })
          .Property(
              u"DefaultTraceInOutLevel",
              [](Tracer& t, Args&) { return Value(t.DefaultTraceInOutLevel()); },
              [](Tracer& t, Args&, const Value& v) {
                t.SetDefaultTraceInOutLevel(runtime::ToLong(v));
              })
          .Property(
              u"ModuleNameSeparator",
              [](Tracer& t, Args&) { return Value(t.ModuleNameSeparator()); },
              [](Tracer& t, Args&, const Value& v) {
                t.SetModuleNameSeparator(runtime::ToText(v));
              })
          .Get(u"Profiler", [](Tracer& t, Args&) { return Value(t.Profiler()); })
          .Set(u"Profiler", [](Tracer& t, Args&, const Value& v) { t.SetProfiler(ObjectArg(v)); })
          .Property(
              u"ProfilerOn", [](Tracer& t, Args&) { return Value(t.ProfilerOn()); },
              [](Tracer& t, Args&, const Value& v) { t.SetProfilerOn(runtime::ToBoolean(v)); })
          .Get(
              u"StackString",
              [](Tracer& t, Args& a) {
                return Value(a.Has(0) ? t.StackString(a.Text(0)) : t.StackString());
              },
              0, 1)
          .Property(
              u"Outdent", [](Tracer& t, Args&) { return Value(t.Outdent()); },
              [](Tracer& t, Args&, const Value& v) { t.SetOutdent(runtime::ToBoolean(v)); })
          .Property(
              u"LogSeverity", [](Tracer& t, Args&) { return Value(t.LogSeverity()); },
              [](Tracer& t, Args&, const Value& v) { t.SetLogSeverity(runtime::ToLong(v)); })
          .Property(
              u"RaiseErrorOnBadStack",
              [](Tracer& t, Args&) { return Value(t.RaiseErrorOnBadStack()); },
              [](Tracer& t, Args&, const Value& v) {
                t.SetRaiseErrorOnBadStack(runtime::ToBoolean(v));
              })
          .Method(u"SuspendProfilerTimer", 0, 0,
                  [](Tracer& t, Args&) {
                    t.SuspendProfilerTimer();
                    return Value();
                  })
          .Method(u"TraceStart", 0, 0, [](Tracer& t, Args&) { return Value(t.TraceStart()); })
          .Method(u"TraceFinish", 0, 0, [](Tracer& t, Args&) { return Value(t.TraceFinish()); })
          .Method(u"TraceLevel", 1, 4,
                  [](Tracer& t, Args& a) {
                    TraceWriteBack w;
                    const std::u16string msg = TextArg(a, 0);
                    int32_t level = a.Has(1) ? a.Long(1) : 0;
                    int16_t offset = a.Has(3) ? a.Integer(3) : int16_t(0);
                    bool r = t.TraceLevel(msg, level, SeverityArg(a, 2), offset, &w);
                    WriteBack(a, w, 0, 2, 0);
                    return Value(r);
                  })
          .Method(u"Trace", 1, 2,
                  [](Tracer& t, Args& a) {
                    TraceWriteBack w;
                    bool r = t.Trace(TextArg(a, 0), SeverityArg(a, 1), &w);
                    WriteBack(a, w, 0, 1, 0);
                    return Value(r);
                  })
          .Method(u"TraceIn", 1, 4, &InOut<true>)
          .Method(u"TraceOut", 1, 4, &InOut<false>)
          .Build();
  return table;
}

}  // namespace kestrel::diagnostics
