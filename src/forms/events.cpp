#include "kestrel/forms/events.hpp"

#include <algorithm>
#include <utility>

#include "kestrel/frame/errors.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel::forms {

EventSource::~EventSource() = default;

EventSource* AsEventSource(const Value& object) noexcept {
  if (!object.IsObject()) return nullptr;
  return dynamic_cast<EventSource*>(object.object());
}

void EventHandlers::Add(const Ref<Object>& handler) {
  if (handler) handlers_.push_back(handler);
}

void EventHandlers::Remove(const Object* handler) noexcept {
  auto it = std::find_if(handlers_.begin(), handlers_.end(),
                         [&](const Ref<Object>& h) { return h.get() == handler; });
  if (it != handlers_.end()) handlers_.erase(it);
}

void EventHandlers::Raise(std::u16string_view name, std::vector<Value> args) {
  // A handler may unadvise itself (or others) while handling: walk a copy,
  // which also keeps each handler alive through its own call.
  const std::vector<Ref<Object>> handlers = handlers_;
  for (const Ref<Object>& h : handlers) {
    std::vector<Value> passed = args;
    try {
      CallByName(h.get(), name, CallKind::kMethod, std::span<Value>(passed));
    } catch (const RuntimeError& e) {
      // A handler without this event's member just does not listen to it.
      if (e.number() != errors::kMemberNotSupported) throw;
    }
  }
}

void RaiseNoEvents() {
  constexpr int32_t kNoEvents = 459;  // "Object or class does not support the set of events"
  RaiseStandard(kNoEvents);
}

namespace {
EventPump g_pump = nullptr;
}  // namespace

EventPump SetEventPump(EventPump pump) noexcept {
  return std::exchange(g_pump, pump);
}

void DoEvents() {
  if (g_pump != nullptr) g_pump();
}

}  // namespace kestrel::forms
