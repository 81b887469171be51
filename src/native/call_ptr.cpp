#include "kestrel/native/call_ptr.hpp"

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"
#include "native_call.hpp"

namespace kestrel {
namespace {

namespace nd = native::detail;

constexpr std::u16string_view kLoadSource = u"clsCallFunction.LoadDLL";
constexpr std::u16string_view kByNameSource = u"clsCallFunction.CallDLLFunctionByName";
constexpr std::u16string_view kCallSource = u"clsCallFunction.CallFunction";
constexpr std::u16string_view kMethodAddressSource = u"clsCallFunction.MethodAddress";
constexpr std::u16string_view kNullObject = u"Cannot call Null COM object";
constexpr std::u16string_view kFunctionNotFound = u"Function not found";

[[noreturn]] void RaiseNative(std::u16string_view source, std::u16string_view description) {
  Raise(errors::kObjectErrorBase, source, description);
}

// Object calls are stdcall where the platform tells conventions apart.
nd::Convention ConventionOf(mcCallTypeEnum type) {
  return type == mcCallDeclSpec ? nd::Convention::kCdecl : nd::Convention::kStdCall;
}

}  // namespace

KESTREL_REGISTER_CLASS(CallPTR, CallPTR::kQualifiedName, Instancing::kCreatable);

CallPTR::CallPTR() {
  // Room for the hidden words and a handful of arguments, so that a call
  // with a few parameters never allocates.
  words_.reserve(16);
  words_.push_back(0);
}

CallPTR::~CallPTR() {
  UnloadDLL();
}

void CallPTR::LoadDLL(const std::string& dll_name) {
  UnloadDLL();
  module_ = nd::OpenLibrary(dll_name, last_load_error_);
  if (module_ == nullptr) RaiseNative(kLoadSource, u"Load DLL failed");
}

void CallPTR::LoadDLL(std::u16string_view dll_name) {
  LoadDLL(ToUtf8(dll_name));
}

void CallPTR::UnloadDLL() noexcept {
  nd::CloseLibrary(module_);
  module_ = nullptr;
  last_symbol_ = nullptr;
}

void CallPTR::ClearParameters() noexcept {
  words_.resize(1);
}

void CallPTR::AddParameter(int64_t new_val) {
  words_.push_back(static_cast<intptr_t>(new_val));
}

int64_t CallPTR::CallFunction() {
  const mcCallTypeEnum type = call_type_;
  const bool on_object = type == mcCallCOMFunction || type == mcCallCOMSub;
  if (on_object && object_pointer_ == 0) RaiseNative(kCallSource, kNullObject);
  if (function_address_ == 0) RaiseNative(kCallSource, kFunctionNotFound);

  void* function = reinterpret_cast<void*>(static_cast<intptr_t>(function_address_));
  if (!on_object)
    return nd::CallWords(function, ConventionOf(type), words_.data() + 1, words_.size() - 1);

  words_[0] = static_cast<intptr_t>(object_pointer_);
  if (type == mcCallCOMSub)
    return nd::CallWords(function, ConventionOf(type), words_.data(), words_.size());

  // The out-pointer rides behind the arguments for this call only, even
  // when the callee unwinds through us.
  struct DropOutPointer {
    std::vector<intptr_t>& words;
    ~DropOutPointer() { words.pop_back(); }
  };
  result_holder_ = 0;
  words_.push_back(reinterpret_cast<intptr_t>(&result_holder_));
  const DropOutPointer drop{words_};
  h_result_ = static_cast<int32_t>(
      nd::CallWords(function, ConventionOf(type), words_.data(), words_.size()));
  return result_holder_;
}

int64_t CallPTR::CallDLLFunctionByName(const std::string& function_name) {
  if (module_ == nullptr) RaiseNative(kByNameSource, u"No Dll loaded");
  // A symbol's address cannot change while its library stays loaded, so a
  // client calling the same function again skips the lookup.
  if (function_name != last_symbol_name_ || last_symbol_ == nullptr) {
    last_symbol_ = nd::FindSymbol(module_, function_name);
    if (last_symbol_ == nullptr) RaiseNative(kByNameSource, kFunctionNotFound);
    last_symbol_name_ = function_name;
  }
  function_address_ = reinterpret_cast<intptr_t>(last_symbol_);
  return CallFunction();
}

int64_t CallPTR::CallDLLFunctionByName(std::u16string_view function_name) {
  return CallDLLFunctionByName(ToUtf8(function_name));
}

int64_t CallPTR::MethodAddress(int32_t index) const {
  if (object_pointer_ == 0) RaiseNative(kMethodAddressSource, kNullObject);
  if (index < 0) RaiseStandard(errors::kInvalidProcedureCall);
  const auto* object = reinterpret_cast<const intptr_t* const*>(object_pointer_);
  return (*object)[index];
}

namespace {

// A pointer-sized parameter: any numeric kind converts as the runtime
// converts to LongLong; an omitted one is not optional.
int64_t Word(Args& a, size_t i) {
  if (a[i].IsMissing()) RaiseStandard(errors::kArgumentNotOptional);
  return runtime::ToLongLong(a[i]);
}

}  // namespace

const DispatchTable<CallPTR>& CallPTR::Dispatch() {
  using T = DispatchTable<CallPTR>;
  static const T table =
      T::Builder(u"CallPTR")
          .Method(u"LoadDLL", 1, 1,
                  [](CallPTR& self, Args& a) {
                    self.LoadDLL(a.Text(0));
                    return Value();
                  })
          .Method(u"UnloadDLL", 0, 0,
                  [](CallPTR& self, Args&) {
                    self.UnloadDLL();
                    return Value();
                  })
          .Property(
              u"ObjectPointer", [](CallPTR& self, Args&) { return Value(self.ObjectPointer()); },
              [](CallPTR& self, Args&, const Value& v) {
                self.SetObjectPointer(runtime::ToLongLong(v));
              })
          .Property(
              u"CallType",
              [](CallPTR& self, Args&) { return Value(static_cast<int32_t>(self.CallType())); },
              [](CallPTR& self, Args&, const Value& v) {
                self.SetCallType(static_cast<mcCallTypeEnum>(runtime::ToLong(v)));
              })
          .Get(u"HResult", [](CallPTR& self, Args&) { return Value(self.HResult()); })
          .Property(
              u"FunctionAddress",
              [](CallPTR& self, Args&) { return Value(self.FunctionAddress()); },
              [](CallPTR& self, Args&, const Value& v) {
                self.SetFunctionAddress(runtime::ToLongLong(v));
              })
          .Method(u"ClearParameters", 0, 0,
                  [](CallPTR& self, Args&) {
                    self.ClearParameters();
                    return Value();
                  })
          .Method(u"AddParameter", 1, 1,
                  [](CallPTR& self, Args& a) {
                    self.AddParameter(Word(a, 0));
                    return Value();
                  })
          .Method(u"CallFunction", 0, 0,
                  [](CallPTR& self, Args&) { return Value(self.CallFunction()); })
          .Method(
              u"CallDLLFunctionByName", 1, 1,
              [](CallPTR& self, Args& a) { return Value(self.CallDLLFunctionByName(a.Text(0))); })
          .Get(u"LastLoadError", [](CallPTR& self, Args&) { return Value(self.LastLoadError()); })
          .Method(u"MethodAddress", 1, 1,
                  [](CallPTR& self, Args& a) { return Value(self.MethodAddress(a.Long(0))); })
          .Build();
  return table;
}

}  // namespace kestrel
