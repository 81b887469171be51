// CallPTR: calls a native function, or a method of a native object, by
// address or by name, with a list of pointer-sized integer arguments.
//
// A CallPTR owns at most one library it loaded itself (LoadDLL) and frees it
// on UnloadDLL, on the next LoadDLL and when it is released. Arguments added
// with AddParameter stay until ClearParameters and are passed in the order
// they were added. The call type chooses what is passed besides them:
//
//   mcCallStdCall, mcCallDeclSpec   the arguments alone; the result is the
//                                   function's pointer-sized return value
//   mcCallCOMSub                    ObjectPointer as a hidden first argument
//   mcCallCOMFunction               ObjectPointer first and, as a hidden
//                                   last argument, the address of a result
//                                   holder: the function's return value
//                                   becomes HResult (32 bits) and the value
//                                   it wrote through that address is the
//                                   result
//
// Port decisions, Linux and 64-bit:
// - Loading is dlopen(RTLD_NOW | RTLD_LOCAL) of the name as given: a name
//   with "/" is a path, a bare name is searched the usual way
//   (LD_LIBRARY_PATH, run paths, system folders). There is no separate
//   "altered search path". The dlerror() text of the last failed load is
//   kept in LastLoadError (an extension) so that a client can see why.
// - Handles, addresses, ObjectPointer, parameters and the result are
//   pointer-sized (int64_t here, LongLong through late binding; the smaller
//   integer kinds are accepted too). HResult keeps 32 bits.
// - Nothing is generated and no memory is ever writable and executable: up
//   to twelve arguments on the platform's own convention go through a
//   direct call of that shape; anything else is a libffi call. On x86-64
//   mcCallStdCall and mcCallDeclSpec are the same C convention; on a 32-bit
//   x86 build mcCallStdCall and the object calls are stdcall and
//   mcCallDeclSpec is cdecl. Call types outside 0 to 3 call like 0.
// - The result holder of mcCallCOMFunction is pointer-sized and set to 0
//   before each call, so a method writing only 32 bits reads back right.
// - Extensions: MethodAddress(index) reads entry `index` of ObjectPointer's
//   method table (the object's first word points to it), and a
//   FunctionAddress of 0 raises "Function not found" instead of jumping to
//   address 0.
// - A wrong address, argument count or call type is not detected: the
//   called code runs with what it receives.
//
// Errors carry the number 0x80040000 (errors::kObjectErrorBase) with the
// sources "clsCallFunction.LoadDLL", "clsCallFunction.CallDLLFunctionByName"
// and "clsCallFunction.CallFunction". Not thread-safe per object.
//
//   kestrel::CallPTR call;
//   call.LoadDLL(u"libc.so.6");
//   int64_t pid = call.CallDLLFunctionByName(u"getpid");
//
// Dispatchable with the members above; registered as Kestrel.CallPTR.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kestrel/frame/export.hpp"
#include "kestrel/frame/value.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel {

// The call types; the enumerators keep their published names.
enum mcCallTypeEnum : int32_t {
  mcCallStdCall = 0,
  mcCallDeclSpec = 1,
  mcCallCOMFunction = 2,
  mcCallCOMSub = 3,
};

class KESTREL_API CallPTR : public Dispatchable<CallPTR> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.CallPTR";

  CallPTR();
  ~CallPTR() override;
  CallPTR(const CallPTR&) = delete;
  CallPTR& operator=(const CallPTR&) = delete;

  // Frees the library loaded before, then loads `dll_name`; raises "Load DLL
  // failed" when the load fails (no library is held then).
  void LoadDLL(std::u16string_view dll_name);
  void LoadDLL(const std::string& dll_name);  // UTF-8
  // Frees the library loaded by LoadDLL, if any.
  void UnloadDLL() noexcept;

  int64_t ObjectPointer() const noexcept { return object_pointer_; }
  void SetObjectPointer(int64_t v) noexcept { object_pointer_ = v; }
  mcCallTypeEnum CallType() const noexcept { return call_type_; }
  void SetCallType(mcCallTypeEnum v) noexcept { call_type_ = v; }
  // Status returned by the last mcCallCOMFunction call (0 before any).
  int32_t HResult() const noexcept { return h_result_; }
  int64_t FunctionAddress() const noexcept { return function_address_; }
  void SetFunctionAddress(int64_t v) noexcept { function_address_ = v; }

  // Forgets every argument added.
  void ClearParameters() noexcept;
  // Appends one argument.
  void AddParameter(int64_t new_val);
  // Number of arguments added (not counting the hidden ones).
  size_t ParameterCount() const noexcept { return words_.size() - 1; }

  // Calls FunctionAddress with the arguments (see the call types above).
  int64_t CallFunction();
  // Looks `function_name` up in the loaded library, makes it the
  // FunctionAddress and calls it.
  int64_t CallDLLFunctionByName(std::u16string_view function_name);
  int64_t CallDLLFunctionByName(const std::string& function_name);  // UTF-8

  // Why the last failed load failed (the loader's text); "" until one fails.
  const std::u16string& LastLoadError() const noexcept { return last_load_error_; }
  // Entry `index` (0-based) of ObjectPointer's method table. ObjectPointer 0
  // raises "Cannot call Null COM object" (source
  // "clsCallFunction.MethodAddress"), a negative index 5.
  int64_t MethodAddress(int32_t index) const;

  static const DispatchTable<CallPTR>& Dispatch();

 private:
  // words_[0] is reserved for the hidden object pointer; the arguments
  // follow, so object calls pass the words from 0 and plain calls from 1
  // without copying.
  std::vector<intptr_t> words_;
  int64_t function_address_ = 0;
  int64_t object_pointer_ = 0;
  intptr_t result_holder_ = 0;
  int32_t h_result_ = 0;
  mcCallTypeEnum call_type_ = mcCallStdCall;
  void* module_ = nullptr;
  // The last name CallDLLFunctionByName looked up in module_, and its address.
  std::string last_symbol_name_;
  void* last_symbol_ = nullptr;
  std::u16string last_load_error_;
};

}  // namespace kestrel
