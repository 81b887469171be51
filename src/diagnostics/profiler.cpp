#include "kestrel/diagnostics/profiler.hpp"

#include <limits>
#include <string>
#include <utility>

#include "kestrel/diagnostics/tick_count.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/dates.hpp"
#include "kestrel/runtime/format.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel::diagnostics {
namespace {

// Tick arithmetic is 32-bit signed with the runtime's overflow error: done
// in 64 bits, then checked.
int32_t Checked(int64_t v) {
  if (v < std::numeric_limits<int32_t>::min() || v > std::numeric_limits<int32_t>::max())
    RaiseStandard(errors::kOverflow);
  return static_cast<int32_t>(v);
}

void AppendDecimal(std::u16string& out, int32_t n) {
  std::string s = std::to_string(n);
  out.append(s.begin(), s.end());
}

}  // namespace

KESTREL_REGISTER_CLASS(ProfilerItem, ProfilerItem::kQualifiedName, Instancing::kNotCreatable);
KESTREL_REGISTER_CLASS(IProfileData, IProfileData::kQualifiedName, Instancing::kCreatable);
KESTREL_REGISTER_CLASS(Profiler, Profiler::kQualifiedName, Instancing::kCreatable);
KESTREL_REGISTER_CLASS(ProfileDataFile, ProfileDataFile::kQualifiedName, Instancing::kCreatable);

// --- ProfilerItem ------------------------------------------------------------------

int32_t ProfilerItem::Ticks() const {
  return Checked(int64_t{ticks_out_} - ticks_in_);
}

const DispatchTable<ProfilerItem>& ProfilerItem::Dispatch() {
  using T = DispatchTable<ProfilerItem>;
  using Self = ProfilerItem;
  static const T table =
      T::Builder(u"ProfilerItem")
          .Property(
              u"Name", [](Self& s, Args&) { return Value(s.Name()); },
              [](Self& s, Args&, const Value& v) { s.SetName(runtime::ToText(v)); })
          .Property(
              u"TicksIn", [](Self& s, Args&) { return Value(s.TicksIn()); },
              [](Self& s, Args&, const Value& v) { s.SetTicksIn(runtime::ToLong(v)); })
          .Property(
              u"TicksOut", [](Self& s, Args&) { return Value(s.TicksOut()); },
              [](Self& s, Args&, const Value& v) { s.SetTicksOut(runtime::ToLong(v)); })
          .Property(
              u"CallDepth", [](Self& s, Args&) { return Value(s.CallDepth()); },
              [](Self& s, Args&, const Value& v) { s.SetCallDepth(runtime::ToLong(v)); })
          .Property(
              u"ID", [](Self& s, Args&) { return Value(s.ID()); },
              [](Self& s, Args&, const Value& v) { s.SetID(runtime::ToLong(v)); })
          .Property(
              u"ParentID", [](Self& s, Args&) { return Value(s.ParentID()); },
              [](Self& s, Args&, const Value& v) { s.SetParentID(runtime::ToLong(v)); })
          .Get(u"Ticks", [](Self& s, Args&) { return Value(s.Ticks()); })
          .Build();
  return table;
}

// --- IProfileData --------------------------------------------------------------------

std::u16string IProfileData::Data() {
  return {};
}
void IProfileData::Add(ProfilerItem&) {}
void IProfileData::Clear() {}

namespace {

// The item argument of Add(item): an object that is a ProfilerItem.
ProfilerItem& ItemArgument(const Value& v) {
  if (!v.IsObject()) RaiseStandard(errors::kObjectRequired);
  if (v.IsNothing()) RaiseStandard(errors::kObjectVariableNotSet);
  auto* item = dynamic_cast<ProfilerItem*>(v.object());
  if (item == nullptr) RaiseStandard(errors::kTypeMismatch);
  return *item;
}

}  // namespace

const DispatchTable<IProfileData>& IProfileData::Dispatch() {
  using T = DispatchTable<IProfileData>;
  static const T table = T::Builder(u"IProfileData")
                             .Get(u"Data", [](IProfileData& s, Args&) { return Value(s.Data()); })
                             .Method(u"Add", 1, 1,
                                     [](IProfileData& s, Args& a) {
                                       s.Add(ItemArgument(a[0]));
                                       return Value();
                                     })
                             .Method(u"Clear", 0, 0,
                                     [](IProfileData& s, Args&) {
                                       s.Clear();
                                       return Value();
                                     })
                             .Build();
  return table;
}

// --- Profiler ---------------------------------------------------------------------------

Profiler::Profiler() : stack_(MakeRef<Stack>()) {}

int32_t Profiler::Now() const {
  return Checked(int64_t{GetTickCount()} - paused_ticks_);
}

void Profiler::SetTimerOn(bool on) {
  if (on == timer_on_) return;
  timer_on_ = on;
  if (on) {
    // A new profiler has pausedAt 0, so the first switch-on makes profiler
    // time start at 0.
    paused_ticks_ = Checked(int64_t{paused_ticks_} + Checked(int64_t{GetTickCount()} - paused_at_));
  } else {
    paused_at_ = GetTickCount();
  }
}

void Profiler::Reset() {
  if (data_) {
    if (auto* sink = dynamic_cast<IProfileData*>(data_.get()))
      sink->Clear();
    else
      CallByName(data_, u"Clear", CallKind::kMethod);
  }
  paused_ticks_ = 0;
  paused_at_ = 0;
  // Deliberately through the setter: a running profiler records the switch-
  // off time, so after a reset its time continues from the raw tick count
  // minus the gap, while a stopped one restarts at 0. Clients see both.
  SetTimerOn(false);
}

void Profiler::StepIn(std::u16string_view name) {
  SetTimerOn(true);
  last_id_ = Checked(int64_t{last_id_} + 1);
  auto item = MakeRef<ProfilerItem>();
  item->SetName(name);
  item->SetCallDepth(stack_->Count());
  item->SetID(last_id_);
  if (stack_->Count() > 0)
    item->SetParentID(runtime::ToLong(CallByName(stack_->Top(), u"ID", CallKind::kGet)));
  item->SetTicksIn(Now());
  stack_->Add(Value(item));
}

void Profiler::SinkAdd(const Ref<ProfilerItem>& item) {
  if (!data_) RaiseStandard(errors::kObjectVariableNotSet);
  if (auto* sink = dynamic_cast<IProfileData*>(data_.get())) {
    sink->Add(*item);
  } else {
    CallByName(data_, u"Add", CallKind::kMethod, {Value(item)});
  }
}

void Profiler::CloseTop() {
  Ref<ProfilerItem> item(static_cast<ProfilerItem*>(stack_->Top().object()));
  item->SetTicksOut(Now());
  SinkAdd(item);  // a failing sink leaves the item on the stack
  stack_->Remove();
}

namespace {
const std::u16string& TopName(Stack& stack) {
  return static_cast<ProfilerItem*>(stack.Top().object())->Name();
}
}  // namespace

void Profiler::StepOut(std::u16string_view name) {
  SetTimerOn(true);
  if (stack_->Count() == 0) {
    if (raise_on_bad_stack_)
      Raise(kEmptyStackError, u"Profiler", u"Step out : No methods in stack");
    return;
  }
  if (TopName(*stack_) != name) {
    if (raise_on_bad_stack_) Raise(kJumpOutError, u"Profiler", u"Step out : Jump Out Detected");
    while (stack_->Count() >= 2 && TopName(*stack_) != name) CloseTop();
  }
  // After an unwind that found no match this closes the outermost step.
  CloseTop();
}

const DispatchTable<Profiler>& Profiler::Dispatch() {
  using T = DispatchTable<Profiler>;
  static const T table =
      T::Builder(u"Profiler")
          .Get(u"Data", [](Profiler& s, Args&) { return Value(s.Data()); })
          .Set(u"Data",
               [](Profiler& s, Args&, const Value& v) {
                 if (!v.IsObject()) RaiseStandard(errors::kObjectRequired);
                 s.SetData(Ref<Object>(v.object()));
               })
          .Property(
              u"RaiseErrorOnBadStack",
              [](Profiler& s, Args&) { return Value(s.RaiseErrorOnBadStack()); },
              [](Profiler& s, Args&, const Value& v) {
                s.SetRaiseErrorOnBadStack(runtime::ToBoolean(v));
              })
          .Property(
              u"TimerOn", [](Profiler& s, Args&) { return Value(s.TimerOn()); },
              [](Profiler& s, Args&, const Value& v) { s.SetTimerOn(runtime::ToBoolean(v)); })
          .Method(u"Reset", 0, 0,
                  [](Profiler& s, Args&) {
                    s.Reset();
                    return Value();
                  })
          .Method(u"StepIn", 1, 1,
                  [](Profiler& s, Args& a) {
                    s.StepIn(a.Text(0));
                    return Value();
                  })
          .Method(u"StepOut", 1, 1,
                  [](Profiler& s, Args& a) {
                    s.StepOut(a.Text(0));
                    return Value();
                  })
          .Build();
  return table;
}

// --- ProfileDataFile --------------------------------------------------------------------

void ProfileDataFile::OpenFile(const std::string& path, bool append) {
  writer_ = files::TextFileWriter::Open(
      path, append ? files::OpenMode::kAppend : files::OpenMode::kTruncate,
      files::TextEncoding::kAnsi);
  file_ = MakeRef<files::File>(path);
}

void ProfileDataFile::Add(int32_t id, int32_t parent_id, int32_t ticks_in, int32_t ticks,
                          std::u16string_view method_name, int32_t call_depth) {
  if (!writer_.IsOpen()) RaiseStandard(errors::kObjectVariableNotSet);
  const Value now = Value::Date(runtime::Now());
  std::u16string line = runtime::Format(now, u"Short Date");
  line += u' ';
  line += runtime::Format(now, u"Long Time");
  for (int32_t n : {id, parent_id, ticks_in, ticks}) {
    line += u'\t';
    AppendDecimal(line, n);
  }
  line += u'\t';
  line += method_name;
  line += u'\t';
  AppendDecimal(line, call_depth);
  writer_.WriteLine(line);
}

void ProfileDataFile::Add(ProfilerItem& item) {
  Add(item.ID(), item.ParentID(), item.TicksIn(), item.Ticks(), item.Name(), item.CallDepth());
}

std::u16string ProfileDataFile::Data() {
  if (!file_) RaiseStandard(errors::kObjectVariableNotSet);
  return files::ReadAllText(file_->native_path(), files::TextEncoding::kAnsi);
}

void ProfileDataFile::Clear() {
  writer_.Close();
  if (!file_) RaiseStandard(errors::kObjectVariableNotSet);
  const std::string path = file_->native_path();  // OpenFile replaces file_
  OpenFile(path, false);
}

std::u16string_view ProfileDataFile::TypeName() const noexcept {
  return Dispatch().class_name();
}

Value ProfileDataFile::Invoke(std::u16string_view name, CallKind kind, std::span<Value> args) {
  return Dispatch().Invoke(*this, name, kind, args);
}

const DispatchTable<ProfileDataFile>& ProfileDataFile::Dispatch() {
  using T = DispatchTable<ProfileDataFile>;
  using Self = ProfileDataFile;
  static const T table =
      T::Builder(u"ProfileDataFile")
          .Get(u"File", [](Self& s, Args&) { return Value(s.File()); })
          .Method(u"OpenFile", 1, 2,
                  [](Self& s, Args& a) {
                    const bool append = a.Has(1) && a.Boolean(1);
                    s.OpenFile(ToUtf8(a.Text(0)), append);
                    return Value();
                  })
          .Method(u"Clear", 0, 0,
                  [](Self& s, Args&) {
                    s.Clear();
                    return Value();
                  })
          .Get(u"Data", [](Self& s, Args&) { return Value(s.Data()); })
          .Method(u"Add", 6, 6,
                  [](Self& s, Args& a) {
                    s.Add(a.Long(0), a.Long(1), a.Long(2), a.Long(3), a.Text(4), a.Long(5));
                    return Value();
                  })
          .Build();
  return table;
}

}  // namespace kestrel::diagnostics
