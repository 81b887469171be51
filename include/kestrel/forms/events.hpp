// Events: how a control hands its events to a late-bound handler.
//
// An object that raises events implements EventSource. A handler is any
// Object: each event is a late-bound method call on it, by the event's name,
// with the event's arguments (MouseDown(Button, Shift, X, Y) for instance).
// A handler that lacks a member for an event simply does not receive it. The
// source keeps a reference to each advised handler until it is unadvised or
// the source goes away. Not thread-safe: events are raised on the thread
// that owns the control.
//
//   if (auto* source = kestrel::forms::AsEventSource(control)) source->Advise(handler);
//   ...
//   source->Unadvise(handler.get());
#pragma once

#include <string_view>
#include <vector>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/object.hpp"
#include "kestrel/frame/value.hpp"

namespace kestrel::forms {

class KESTREL_API EventSource {
 public:
  virtual ~EventSource();
  virtual void Advise(const Ref<Object>& handler) = 0;
  virtual void Unadvise(const Object* handler) = 0;
};

// The object's EventSource, or nullptr for an object (or value) that raises
// no events.
KESTREL_API EventSource* AsEventSource(const Value& object) noexcept;

// The handler list an event source keeps: Raise calls `name` on every handler
// that has such a member and passes errors of the handler to the caller.
class KESTREL_API EventHandlers {
 public:
  void Add(const Ref<Object>& handler);
  void Remove(const Object* handler) noexcept;
  bool empty() const noexcept { return handlers_.empty(); }
  void Raise(std::u16string_view name, std::vector<Value> args);

 private:
  std::vector<Ref<Object>> handlers_;
};

// The error raised when an object asked for events has none (459).
[[noreturn]] KESTREL_API void RaiseNoEvents();

// "Let the user interface process pending events": the toolkit installs its
// event-pump call here (the Qt adapters install QCoreApplication's). Without
// one, DoEvents does nothing. SetEventPump returns the previous pump.
using EventPump = void (*)();
KESTREL_API EventPump SetEventPump(EventPump pump) noexcept;
KESTREL_API void DoEvents();

}  // namespace kestrel::forms
