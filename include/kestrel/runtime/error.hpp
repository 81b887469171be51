// Error: a snapshot of a runtime error that can be kept and raised again,
// and ErrObject, the runtime's current error of this thread.
//
// Store copies the current error's number, description, help context (as
// decimal text), help file, source and last native status; Raise throws it
// again as a RuntimeError. LastDllError is held in 16 bits: a status outside
// -32768 .. 32767 raises 6 (overflow) and leaves the field as it was (in
// Store, after the other fields have been copied). CallStack is free text
// for the client and never filled by the library.
//
// Errors that reach an automation boundary (the C ABI, ResumeNext) become
// this thread's current error, CurrentError(), which Store reads.
//
//   kestrel::Error saved;
//   try { risky(); } catch (const kestrel::RuntimeError& e) { saved.Store(e); }
//   saved.Raise();
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/export.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel {

class KESTREL_API Error : public Dispatchable<Error> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.Error";

  void Store(const RuntimeError& e);
  // Store from any object with the current-error members (Number,
  // Description, HelpContext, HelpFile, Source, LastDllError), read through
  // late binding, in that order.
  void Store(Object& e);
  void Clear() noexcept;
  [[noreturn]] void Raise() const;

  const std::u16string& Description() const noexcept { return description_; }
  void SetDescription(std::u16string v) { description_ = std::move(v); }
  const std::u16string& HelpContext() const noexcept { return help_context_; }
  void SetHelpContext(std::u16string v) { help_context_ = std::move(v); }
  const std::u16string& HelpFile() const noexcept { return help_file_; }
  void SetHelpFile(std::u16string v) { help_file_ = std::move(v); }
  const std::u16string& Source() const noexcept { return source_; }
  void SetSource(std::u16string v) { source_ = std::move(v); }
  int32_t LastDllError() const noexcept { return last_dll_error_; }
  void SetLastDllError(int32_t v);
  int32_t Number() const noexcept { return number_; }
  void SetNumber(int32_t v) noexcept { number_ = v; }
  const std::u16string& CallStack() const noexcept { return call_stack_; }
  void SetCallStack(std::u16string v) { call_stack_ = std::move(v); }

  static const DispatchTable<Error>& Dispatch();

 private:
  std::u16string call_stack_;
  int32_t number_ = 0;
  int16_t last_dll_error_ = 0;
  std::u16string source_;
  std::u16string help_file_;
  std::u16string help_context_;
  std::u16string description_;
};

// The runtime's current error (one per thread). Dispatchable with the same
// member names as the runtime's error object, so Error.Store reads it by
// name. Number 0 means no error.
class KESTREL_API ErrObject : public Dispatchable<ErrObject> {
 public:
  void Set(const RuntimeError& e);
  void Clear() noexcept;
  // Raises the current error again.
  [[noreturn]] void Raise() const;

  int32_t Number() const noexcept { return number_; }
  const std::u16string& Source() const noexcept { return source_; }
  const std::u16string& Description() const noexcept { return description_; }
  const std::u16string& HelpFile() const noexcept { return help_file_; }
  int32_t HelpContext() const noexcept { return help_context_; }
  int32_t LastDllError() const noexcept { return last_dll_error_; }

  static const DispatchTable<ErrObject>& Dispatch();

 private:
  int32_t number_ = 0;
  std::u16string source_;
  std::u16string description_;
  std::u16string help_file_;
  int32_t help_context_ = 0;
  int32_t last_dll_error_ = 0;
};

KESTREL_API ErrObject& CurrentError();

// Runs one step of a member whose failures resume at the next statement:
// a RuntimeError from `step` becomes the current error and false is
// returned; true when the step completed.
template <class F>
bool ResumeNext(F&& step) {
  try {
    std::forward<F>(step)();
    return true;
  } catch (const RuntimeError& e) {
    CurrentError().Set(e);
    return false;
  }
}

}  // namespace kestrel
