#include "native_call.hpp"

#include <dlfcn.h>
#include <ffi.h>

#include <array>
#include <utility>
#include <vector>

#include "kestrel/frame/unicode.hpp"

namespace kestrel::native::detail {
namespace {

// Where every integer argument travels the same way whatever the callee's
// declared convention, a call through a function pointer of the right
// arity is what the compiler would emit for a direct call and costs far
// less than an ffi_call. A 32-bit x86 build needs stdcall and cdecl told
// apart and takes libffi for everything.
#if defined(__x86_64__) || defined(__aarch64__)
constexpr size_t kMaxDirectWords = 12;
#else
constexpr size_t kMaxDirectWords = 0;
#endif

// The callee is declared with integer parameters of the caller's choosing;
// that is the point of the class, so the sanitizer's function-type check
// has nothing to say about it.
#if defined(__clang__)
#define KESTREL_NO_FUNCTION_CHECK __attribute__((no_sanitize("function")))
#else
#define KESTREL_NO_FUNCTION_CHECK
#endif

template <size_t... I>
KESTREL_NO_FUNCTION_CHECK intptr_t CallDirect(void* function, const intptr_t* words,
                                              std::index_sequence<I...>) {
  using Function = intptr_t (*)(decltype((void)I, intptr_t{})...);
  return reinterpret_cast<Function>(function)(words[I]...);
}

template <size_t N>
intptr_t CallArity(void* function, const intptr_t* words) {
  return CallDirect(function, words, std::make_index_sequence<N>{});
}

using DirectCall = intptr_t (*)(void*, const intptr_t*);

template <size_t... N>
constexpr std::array<DirectCall, sizeof...(N)> MakeDirectCalls(std::index_sequence<N...>) {
  return {&CallArity<N>...};
}

constexpr auto kDirectCalls = MakeDirectCalls(std::make_index_sequence<kMaxDirectWords + 1>{});

ffi_abi AbiOf([[maybe_unused]] Convention convention) {
#if defined(__i386__)
  return convention == Convention::kStdCall ? FFI_STDCALL : FFI_SYSV;
#else
  return FFI_DEFAULT_ABI;
#endif
}

ffi_type* WordType() {
  return sizeof(intptr_t) == 8 ? &ffi_type_sint64 : &ffi_type_sint32;
}

intptr_t CallThroughFfi(void* function, Convention convention, const intptr_t* words,
                        size_t count) {
  std::vector<ffi_type*> types(count, WordType());
  std::vector<void*> values(count);
  for (size_t i = 0; i < count; ++i) values[i] = const_cast<intptr_t*>(words + i);
  ffi_cif cif;
  // Only a bad ABI or type description fails here, and both are fixed above.
  ffi_prep_cif(&cif, AbiOf(convention), static_cast<unsigned>(count), WordType(), types.data());
  ffi_arg result = 0;
  ffi_call(&cif, FFI_FN(function), &result, values.data());
  return static_cast<intptr_t>(result);
}

}  // namespace

void* OpenLibrary(const std::string& name, std::u16string& error) {
  void* module = ::dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    const char* text = ::dlerror();
    error = FromUtf8(text != nullptr ? text : "");
  }
  return module;
}

void CloseLibrary(void* module) noexcept {
  if (module != nullptr) ::dlclose(module);
}

void* FindSymbol(void* module, const std::string& name) noexcept {
  return ::dlsym(module, name.c_str());
}

intptr_t CallWords(void* function, Convention convention, const intptr_t* words, size_t count) {
  if (count <= kMaxDirectWords) return kDirectCalls[count](function, words);
  return CallThroughFfi(function, convention, words, count);
}

}  // namespace kestrel::native::detail
