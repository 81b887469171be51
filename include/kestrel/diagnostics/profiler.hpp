// The call profiler and its data sinks.
//
// A Profiler times named steps: StepIn(name) opens a ProfilerItem stamped
// with the profiler time, StepOut(name) closes it and hands it to the data
// sink (innermost first, so an item's Ticks include its nested steps).
// Profiler time is the 32-bit millisecond tick count (diagnostics::
// GetTickCount) minus the time the timer spent switched off, so the cost of
// tracing itself can be left out; all of it is 32-bit signed arithmetic in
// which overflow raises 6.
//
// Ownership: the profiler owns its call stack and the open items; the sink
// handed to SetData is shared, not owned. Any object can be a sink: a C++
// class deriving from IProfileData is called directly, anything else is
// called by name (Add(item), Data, Clear), so a client's late-bound sink
// plugs in too. Not thread-safe.
//
// ProfileDataFile is the sink provided: one line per completed step,
// "<date> <time>\tID\tParentID\tTicksIn\tTicks\tMethodName\tCallDepth",
// ANSI (Windows-1252), CR LF, each line one write so that a crash loses no
// completed line. The date and time are the library's fixed locale: short
// date m/d/yyyy, a space, long time h:nn:ss AM/PM ("3/5/2024 1:02:03 PM").
// The method name is written as given, tabs and line breaks included.
//
//   auto sink = kestrel::MakeRef<kestrel::diagnostics::ProfileDataFile>();
//   sink->OpenFile("/tmp/run.prof");
//   kestrel::diagnostics::Profiler p;  p.SetData(sink);
//   p.StepIn(u"Main");  /* ... */  p.StepOut(u"Main");
//
// Registered as Kestrel.Profiler, Kestrel.ProfilerItem (not creatable),
// Kestrel.IProfileData and Kestrel.ProfileDataFile.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "kestrel/containers/stack.hpp"
#include "kestrel/files/file.hpp"
#include "kestrel/files/text_file.hpp"
#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel::diagnostics {

// Published for clients; no member takes or returns it.
enum ProfilerCallDirection : int32_t {
  ProfilerCallDirectionIn = 1,
  ProfilerCallDirectionOut = 2,
};

// One profiled step. Created by the Profiler; clients cannot create one.
class KESTREL_API ProfilerItem : public Dispatchable<ProfilerItem> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.ProfilerItem";

  const std::u16string& Name() const noexcept { return name_; }
  void SetName(std::u16string_view name) { name_ = name; }
  int32_t TicksIn() const noexcept { return ticks_in_; }
  void SetTicksIn(int32_t v) noexcept { ticks_in_ = v; }
  // 0 until the step is closed.
  int32_t TicksOut() const noexcept { return ticks_out_; }
  void SetTicksOut(int32_t v) noexcept { ticks_out_ = v; }
  // Open steps when this one was entered (0 for an outermost step).
  int32_t CallDepth() const noexcept { return call_depth_; }
  void SetCallDepth(int32_t v) noexcept { call_depth_ = v; }
  int32_t ID() const noexcept { return id_; }
  void SetID(int32_t v) noexcept { id_ = v; }
  // ID of the enclosing step, 0 for an outermost one.
  int32_t ParentID() const noexcept { return parent_id_; }
  void SetParentID(int32_t v) noexcept { parent_id_ = v; }
  // TicksOut - TicksIn; 6 when the difference leaves the 32-bit range.
  int32_t Ticks() const;

  static const DispatchTable<ProfilerItem>& Dispatch();

 private:
  std::u16string name_;
  int32_t ticks_in_ = 0;
  int32_t ticks_out_ = 0;
  int32_t call_depth_ = 0;
  int32_t id_ = 0;
  int32_t parent_id_ = 0;
};

// The profile-data sink interface. Its own members do nothing (Data is "");
// sinks override them. A derived class overrides TypeName and Invoke so that
// late-bound callers reach its own dispatch table.
class KESTREL_API IProfileData : public Dispatchable<IProfileData> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.IProfileData";

  virtual std::u16string Data();
  virtual void Add(ProfilerItem& item);
  virtual void Clear();

  static const DispatchTable<IProfileData>& Dispatch();
};

class KESTREL_API Profiler : public Dispatchable<Profiler> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.Profiler";

  // Error numbers of the bad-stack faults (source "Profiler").
  static constexpr int32_t kJumpOutError = errors::kObjectErrorBase + 1000;
  static constexpr int32_t kEmptyStackError = errors::kObjectErrorBase + 1001;

  Profiler();

  // The sink (null when none). It must be set before the first StepOut.
  const Ref<Object>& Data() const noexcept { return data_; }
  void SetData(Ref<Object> sink) noexcept { data_ = std::move(sink); }
  bool RaiseErrorOnBadStack() const noexcept { return raise_on_bad_stack_; }
  void SetRaiseErrorOnBadStack(bool v) noexcept { raise_on_bad_stack_ = v; }
  bool TimerOn() const noexcept { return timer_on_; }
  // Switching on removes the time since the last switch-off from profiler
  // time; setting the current value changes nothing.
  void SetTimerOn(bool on);
  // Clears the sink and the timing state (not the open steps, not the IDs).
  void Reset();
  void StepIn(std::u16string_view name);
  // Closes `name`. A name other than the innermost open step raises
  // kJumpOutError (stack untouched), an empty stack kEmptyStackError; with
  // RaiseErrorOnBadStack False the first is unwound and the second ignored.
  void StepOut(std::u16string_view name);

  static const DispatchTable<Profiler>& Dispatch();

 private:
  // GetTickCount() - pausedTicks.
  int32_t Now() const;
  // Stamps the top item's TicksOut, passes it to the sink, pops it.
  void CloseTop();
  void SinkAdd(const Ref<ProfilerItem>& item);

  Ref<Object> data_;
  int32_t paused_ticks_ = 0;
  int32_t paused_at_ = 0;
  bool timer_on_ = false;
  Ref<Stack> stack_;
  bool raise_on_bad_stack_ = true;
  int32_t last_id_ = 0;  // never reset
};

// Writes one tab-separated line per completed step to a text file.
class KESTREL_API ProfileDataFile : public IProfileData {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.ProfileDataFile";

  // The file object of the open file (null before OpenFile).
  const Ref<files::File>& File() const noexcept { return file_; }
  // Creates or truncates `path`, or with `append` opens it for appending
  // (creating it when missing). File errors pass to the caller.
  void OpenFile(const std::string& path, bool append = false);
  // Writes one line; 91 before OpenFile.
  void Add(int32_t id, int32_t parent_id, int32_t ticks_in, int32_t ticks,
           std::u16string_view method_name, int32_t call_depth);
  void Add(ProfilerItem& item) override;
  // The whole file as written so far; 91 before OpenFile.
  std::u16string Data() override;
  // Empties the file and keeps it open for writing; 91 before OpenFile.
  void Clear() override;

  std::u16string_view TypeName() const noexcept override;
  Value Invoke(std::u16string_view name, CallKind kind, std::span<Value> args) override;
  static const DispatchTable<ProfileDataFile>& Dispatch();

 private:
  files::TextFileWriter writer_;
  Ref<files::File> file_;
};

}  // namespace kestrel::diagnostics
