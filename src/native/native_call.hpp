// The pieces CallPTR and DllLoader share: loading a library and entering a
// native function with a list of pointer-sized integer arguments.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kestrel::native::detail {

// How the callee expects its arguments. Only a 32-bit x86 build tells the
// two apart; everywhere else both are the platform's C convention.
enum class Convention { kStdCall, kCdecl };

// dlopen(RTLD_NOW | RTLD_LOCAL) of `name` as given. On failure returns null
// and stores dlerror()'s text in `error`.
void* OpenLibrary(const std::string& name, std::u16string& error);
// dlclose; a failing close leaves nothing the caller could act on.
void CloseLibrary(void* module) noexcept;
// dlsym; null when the name is not found.
void* FindSymbol(void* module, const std::string& name) noexcept;

// Calls `function` with `count` integer arguments taken in order from
// `words` and returns its pointer-sized integer result.
intptr_t CallWords(void* function, Convention convention, const intptr_t* words, size_t count);

}  // namespace kestrel::native::detail
