// Errors: the one exception type Kestrel raises, the runtime's standard error
// numbers and texts, and the helpers every raise goes through.
//
// A failing member throws kestrel::RuntimeError carrying what an automation
// client sees as its current error: number, source, description, help file,
// help context and the last native status. Standard errors (5, 9, 13, ...)
// carry the runtime's own text and the source "Kestrel", which is what the
// runtime fills in for a library that names no source of its own; library
// errors carry the numbers, sources and texts of the class that raises them.
//
//   try { kestrel::RaiseStandard(kestrel::errors::kSubscriptOutOfRange); }
//   catch (const kestrel::RuntimeError& e) { e.number();  /* 9 */ }
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

#include "kestrel/frame/export.hpp"

namespace kestrel {

namespace errors {
inline constexpr int32_t kInvalidProcedureCall = 5;
inline constexpr int32_t kOverflow = 6;
inline constexpr int32_t kOutOfMemory = 7;
inline constexpr int32_t kSubscriptOutOfRange = 9;
inline constexpr int32_t kDivisionByZero = 11;
inline constexpr int32_t kTypeMismatch = 13;
inline constexpr int32_t kOutOfStackSpace = 28;
inline constexpr int32_t kBadFileNameOrNumber = 52;
inline constexpr int32_t kFileNotFound = 53;
inline constexpr int32_t kDeviceIoError = 57;
inline constexpr int32_t kFileAlreadyExists = 58;
inline constexpr int32_t kDiskFull = 61;
inline constexpr int32_t kInputPastEndOfFile = 62;
inline constexpr int32_t kPermissionDenied = 70;
inline constexpr int32_t kPathFileAccessError = 75;
inline constexpr int32_t kPathNotFound = 76;
inline constexpr int32_t kObjectVariableNotSet = 91;
inline constexpr int32_t kInvalidPatternString = 93;
inline constexpr int32_t kInvalidUseOfNull = 94;
inline constexpr int32_t kInvalidPropertyValue = 380;
inline constexpr int32_t kObjectRequired = 424;
inline constexpr int32_t kCannotCreateObject = 429;
inline constexpr int32_t kMemberNotSupported = 438;
inline constexpr int32_t kArgumentNotOptional = 449;
inline constexpr int32_t kWrongArgumentCount = 450;
inline constexpr int32_t kDuplicateKey = 457;
inline constexpr int32_t kElementNotFound = 32811;
// Base of the numbers that objects define for themselves (0x80040000).
inline constexpr int32_t kObjectErrorBase = -2147221504;
}  // namespace errors

// The runtime's standard text for an error number; numbers it does not know
// read "Application-defined or object-defined error".
KESTREL_API std::u16string_view StandardErrorText(int32_t number) noexcept;

// The source that standard errors carry.
inline constexpr std::u16string_view kStandardErrorSource = u"Kestrel";

class KESTREL_API RuntimeError : public std::exception {
 public:
  RuntimeError(int32_t number, std::u16string source, std::u16string description,
               std::u16string help_file = {}, int32_t help_context = 0,
               int32_t last_dll_error = 0);

  int32_t number() const noexcept { return number_; }
  const std::u16string& source() const noexcept { return source_; }
  const std::u16string& description() const noexcept { return description_; }
  const std::u16string& help_file() const noexcept { return help_file_; }
  int32_t help_context() const noexcept { return help_context_; }
  // Last status of a native call at the time of the error (errno on Linux).
  int32_t last_dll_error() const noexcept { return last_dll_error_; }

  // "Error <number>: <description>" in UTF-8.
  const char* what() const noexcept override { return what_.c_str(); }

 private:
  int32_t number_;
  std::u16string source_;
  std::u16string description_;
  std::u16string help_file_;
  int32_t help_context_;
  int32_t last_dll_error_;
  std::string what_;
};

// Raises a standard error with its standard text.
[[noreturn]] KESTREL_API void RaiseStandard(int32_t number);
// Raises an error with the given number, source and description; an empty
// description is replaced by the standard text of the number.
[[noreturn]] KESTREL_API void Raise(int32_t number, std::u16string_view source,
                                    std::u16string_view description);

}  // namespace kestrel
