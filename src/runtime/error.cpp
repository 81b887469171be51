#include "kestrel/runtime/error.hpp"

#include <limits>
#include <string>

#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {
namespace {

// The last native status is kept in 16 bits on purpose; wider codes are an
// overflow, as the runtime's conversion to Integer would report.
int16_t NarrowStatus(int64_t status) {
  if (status < std::numeric_limits<int16_t>::min() || status > std::numeric_limits<int16_t>::max())
    RaiseStandard(errors::kOverflow);
  return static_cast<int16_t>(status);
}

std::u16string DecimalText(int32_t n) {
  std::string s = std::to_string(n);
  return std::u16string(s.begin(), s.end());
}

}  // namespace

KESTREL_REGISTER_CLASS(Error, Error::kQualifiedName, Instancing::kCreatable);

void Error::Store(const RuntimeError& e) {
  number_ = e.number();
  description_ = e.description();
  help_context_ = DecimalText(e.help_context());
  help_file_ = e.help_file();
  source_ = e.source();
  last_dll_error_ = NarrowStatus(e.last_dll_error());
}

void Error::Store(Object& e) {
  // Field by field, in order: a failure part-way leaves the earlier fields
  // copied, exactly as the step-by-step copy of the runtime's error does.
  auto get = [&e](std::u16string_view name) { return CallByName(&e, name, CallKind::kGet); };
  number_ = runtime::ToLong(get(u"Number"));
  description_ = runtime::ToText(get(u"Description"));
  help_context_ = DecimalText(runtime::ToLong(get(u"HelpContext")));
  help_file_ = runtime::ToText(get(u"HelpFile"));
  source_ = runtime::ToText(get(u"Source"));
  last_dll_error_ = NarrowStatus(runtime::ToLongLong(get(u"LastDllError")));
}

void Error::Clear() noexcept {
  number_ = 0;
  description_.clear();
  help_context_.clear();
  help_file_.clear();
  source_.clear();
  last_dll_error_ = 0;
  call_stack_.clear();
}

void Error::Raise() const {
  // The runtime's raise refuses number 0 as an invalid call, and converts
  // the help context text to a number the usual way: text that is not
  // numeric ("" included) is a type mismatch.
  if (number_ == 0) RaiseStandard(errors::kInvalidProcedureCall);
  int32_t help_context = runtime::ToLong(Value(help_context_));
  std::u16string description =
      description_.empty() ? std::u16string(StandardErrorText(number_)) : description_;
  throw RuntimeError(number_, source_, std::move(description), help_file_, help_context);
}

void Error::SetLastDllError(int32_t v) { last_dll_error_ = NarrowStatus(v); }

const DispatchTable<Error>& Error::Dispatch() {
  using T = DispatchTable<Error>;
  static const T table =
      T::Builder(u"Error")
          .Method(u"Store", 1, 1,
                  [](Error& self, Args& a) {
                    if (!a[0].IsObject()) RaiseStandard(errors::kObjectRequired);
                    if (a[0].IsNothing()) RaiseStandard(errors::kObjectVariableNotSet);
                    self.Store(*a[0].object());
                    return Value();
                  })
          .Method(u"Clear", 0, 0,
                  [](Error& self, Args&) {
                    self.Clear();
                    return Value();
                  })
          .Method(u"Raise", 0, 0,
                  [](Error& self, Args&) -> Value { self.Raise(); })
          .Property(
              u"Description", [](Error& self, Args&) { return Value(self.Description()); },
              [](Error& self, Args&, const Value& v) { self.SetDescription(runtime::ToText(v)); })
          .Property(
              u"HelpContext", [](Error& self, Args&) { return Value(self.HelpContext()); },
              [](Error& self, Args&, const Value& v) { self.SetHelpContext(runtime::ToText(v)); })
          .Property(
              u"HelpFile", [](Error& self, Args&) { return Value(self.HelpFile()); },
              [](Error& self, Args&, const Value& v) { self.SetHelpFile(runtime::ToText(v)); })
          .Property(
              u"Source", [](Error& self, Args&) { return Value(self.Source()); },
              [](Error& self, Args&, const Value& v) { self.SetSource(runtime::ToText(v)); })
          .Property(
              u"LastDllError", [](Error& self, Args&) { return Value(self.LastDllError()); },
              [](Error& self, Args&, const Value& v) { self.SetLastDllError(runtime::ToLong(v)); })
          .Property(
              u"Number", [](Error& self, Args&) { return Value(self.Number()); },
              [](Error& self, Args&, const Value& v) { self.SetNumber(runtime::ToLong(v)); })
          .Property(
              u"CallStack", [](Error& self, Args&) { return Value(self.CallStack()); },
              [](Error& self, Args&, const Value& v) { self.SetCallStack(runtime::ToText(v)); })
          .Build();
  return table;
}

// --- the current error ----------------------------------------------------------

void ErrObject::Set(const RuntimeError& e) {
  number_ = e.number();
  source_ = e.source();
  description_ = e.description();
  help_file_ = e.help_file();
  help_context_ = e.help_context();
  last_dll_error_ = e.last_dll_error();
}

void ErrObject::Clear() noexcept {
  number_ = 0;
  source_.clear();
  description_.clear();
  help_file_.clear();
  help_context_ = 0;
  last_dll_error_ = 0;
}

void ErrObject::Raise() const {
  throw RuntimeError(number_, source_, description_, help_file_, help_context_,
                     last_dll_error_);
}

const DispatchTable<ErrObject>& ErrObject::Dispatch() {
  using T = DispatchTable<ErrObject>;
  static const T table =
      T::Builder(u"ErrObject")
          .Get(u"Number", [](ErrObject& self, Args&) { return Value(self.Number()); })
          .Get(u"Source", [](ErrObject& self, Args&) { return Value(self.Source()); })
          .Get(u"Description",
               [](ErrObject& self, Args&) { return Value(self.Description()); })
          .Get(u"HelpFile", [](ErrObject& self, Args&) { return Value(self.HelpFile()); })
          .Get(u"HelpContext",
               [](ErrObject& self, Args&) { return Value(self.HelpContext()); })
          .Get(u"LastDllError",
               [](ErrObject& self, Args&) { return Value(self.LastDllError()); })
          .Method(u"Clear", 0, 0,
                  [](ErrObject& self, Args&) {
                    self.Clear();
                    return Value();
                  })
          .Method(u"Raise", 0, 0, [](ErrObject& self, Args&) -> Value { self.Raise(); })
          .Build();
  return table;
}

ErrObject& CurrentError() {
  thread_local Ref<ErrObject> current = MakeRef<ErrObject>();
  return *current;
}

}  // namespace kestrel
