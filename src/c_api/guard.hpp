// What every C entry point shares: the casts between the C handles and the
// library's types, and Guard, which keeps exceptions out of C frames.
#pragma once

#include <cstdint>
#include <cstring>
#include <new>
#include <string>

#include "kestrel/c_api.h"
#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/object.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/error.hpp"

namespace kestrel::c_api {

inline Value& V(kestrel_value* v) {
  return *std::launder(reinterpret_cast<Value*>(v));
}
inline const Value& V(const kestrel_value* v) {
  return *std::launder(reinterpret_cast<const Value*>(v));
}
inline Object* O(kestrel_object* o) {
  return reinterpret_cast<Object*>(o);
}
inline kestrel_object* C(Object* o) {
  return reinterpret_cast<kestrel_object*>(o);
}

// Copies text out the way every text getter of the ABI does: NUL-terminated
// when it fits, its length (without the terminator) always.
inline void CopyText(const std::string& text, char* buffer, size_t size, size_t* needed) {
  if (needed) *needed = text.size();
  if (buffer && size > text.size()) std::memcpy(buffer, text.c_str(), text.size() + 1);
}

// Makes a standard error this thread's last error, as RaiseStandard would
// raise it.
inline void SetStandardError(int32_t number) {
  CurrentError().Set(RuntimeError(number, std::u16string(kStandardErrorSource),
                                  std::u16string(StandardErrorText(number))));
}

// Runs body; turns whatever it throws into this thread's last error and
// returns its number (0 on success).
template <class F>
int32_t Guard(F&& body) {
  try {
    body();
    return 0;
  } catch (const RuntimeError& e) {
    CurrentError().Set(e);
  } catch (const std::bad_alloc&) {
    SetStandardError(errors::kOutOfMemory);
  } catch (...) {
    constexpr int32_t kInternalError = 51;
    SetStandardError(kInternalError);
  }
  return CurrentError().Number();
}

}  // namespace kestrel::c_api
