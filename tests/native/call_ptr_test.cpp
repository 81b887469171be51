#include "kestrel/native/call_ptr.hpp"

#include <dlfcn.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/native/dll_loader.hpp"
#include "kestrel/runtime/registry.hpp"
#include "runtime_error_matchers.hpp"

namespace kestrel {
namespace {

constexpr char kTestLib[] = KESTREL_NATIVE_TEST_LIB;

// The fold every kt_argsN applies to its arguments, in order.
int64_t Fold(const std::vector<int64_t>& args) {
  uint64_t h = 0x5EED;
  for (int64_t a : args) h = h * 1000003u + static_cast<uint64_t>(a);
  return static_cast<int64_t>(h);
}

// Distinct values that use all 64 bits, so a truncated or swapped argument
// shows in the fold.
std::vector<int64_t> Arguments(int n) {
  std::vector<int64_t> args;
  for (int i = 1; i <= n; ++i)
    args.push_back(
        static_cast<int64_t>(0x0123456789ABCDEFu * static_cast<uint64_t>(i) ^ (uint64_t{1} << 63)));
  return args;
}

// Whether the dynamic loader still holds the library (without loading it).
bool IsLoaded(const char* path) {
  void* h = ::dlopen(path, RTLD_NOW | RTLD_NOLOAD);
  if (h != nullptr) ::dlclose(h);
  return h != nullptr;
}

struct Raised {
  int32_t number = 0;
  std::u16string source, description;
};
template <class F>
Raised Catch(F&& fn) {
  try {
    fn();
  } catch (const RuntimeError& e) {
    return {e.number(), e.source(), e.description()};
  }
  ADD_FAILURE() << "nothing was raised";
  return {};
}

TEST(CallPTR, EveryArgumentCountByNameAndByAddress) {
  CallPTR call;
  call.LoadDLL(std::string(kTestLib));
  void* module = ::dlopen(kTestLib, RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(module, nullptr);
  for (int n : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 16}) {
    const std::string name = "kt_args" + std::to_string(n);
    const std::vector<int64_t> args = Arguments(n);
    for (mcCallTypeEnum type : {mcCallStdCall, mcCallDeclSpec}) {
      SCOPED_TRACE(name + " call type " + std::to_string(type));
      call.SetCallType(type);
      call.ClearParameters();
      for (int64_t a : args) call.AddParameter(a);
      EXPECT_EQ(call.ParameterCount(), args.size());
      EXPECT_EQ(call.CallDLLFunctionByName(name), Fold(args));
      call.SetFunctionAddress(reinterpret_cast<intptr_t>(::dlsym(module, name.c_str())));
      EXPECT_EQ(call.CallFunction(), Fold(args));
    }
  }
  ::dlclose(module);
}

TEST(CallPTR, ObjectCallsPassThePointerFirstAndTheResultHolderLast) {
  CallPTR call;
  call.LoadDLL(std::string(kTestLib));
  call.AddParameter(1000);
  const int64_t object = call.CallDLLFunctionByName("kt_object_create");
  ASSERT_NE(object, 0);
  call.SetObjectPointer(object);
  const int64_t scale = call.MethodAddress(0), divide = call.MethodAddress(1);
  const int64_t remember = call.MethodAddress(2), recall = call.MethodAddress(3);
  constexpr int32_t kDivideByZero = static_cast<int32_t>(0x80020012u);

  struct Row {
    mcCallTypeEnum type;
    int64_t method;
    std::vector<int64_t> args;
    int64_t result;
    int32_t h_result;
  };
  const Row rows[] = {
      {mcCallCOMSub, scale, {6, 7}, 1042, 0},
      {mcCallCOMFunction, divide, {84, 2}, 1042, 0},
      // The holder starts at 0 on every call: a failing method's result is 0.
      {mcCallCOMFunction, divide, {84, 0}, 0, kDivideByZero},
      // An object-less call leaves the last status alone.
      {mcCallCOMSub, remember, {int64_t{0x7EDCBA9876543210}}, 0, kDivideByZero},
      {mcCallCOMSub, recall, {}, 0x7EDCBA9876543210, kDivideByZero},
      {mcCallCOMFunction, divide, {int64_t{1} << 40, 1}, (int64_t{1} << 40) + 1000, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(::testing::Message() << "type " << row.type << ", method " << row.method);
    call.SetCallType(row.type);
    call.SetFunctionAddress(row.method);
    call.ClearParameters();
    for (int64_t a : row.args) call.AddParameter(a);
    const int64_t result = call.CallFunction();
    if (row.method != remember) {
      EXPECT_EQ(result, row.result);
    }
    EXPECT_EQ(call.HResult(), row.h_result);
  }
  call.SetCallType(mcCallStdCall);
  call.ClearParameters();
  call.AddParameter(object);
  call.CallDLLFunctionByName("kt_object_destroy");
}

TEST(CallPTR, ErrorsCarryTheirSourceAndDescription) {
  constexpr int32_t kNumber = errors::kObjectErrorBase;
  const std::u16string load = u"clsCallFunction.LoadDLL";
  const std::u16string by_name = u"clsCallFunction.CallDLLFunctionByName";
  const std::u16string call_source = u"clsCallFunction.CallFunction";
  struct Row {
    const char* what;
    void (*act)(CallPTR&);
    std::u16string source, description;
  } rows[] = {
      {"missing library", [](CallPTR& c) { c.LoadDLL(u"/nonexistent/libkt_missing.so"); }, load,
       u"Load DLL failed"},
      {"nothing loaded", [](CallPTR& c) { c.CallDLLFunctionByName(u"getpid"); }, by_name,
       u"No Dll loaded"},
      {"a failed load frees the library before",
       [](CallPTR& c) {
         c.LoadDLL(std::string(kTestLib));
         try {
           c.LoadDLL(u"libkt_missing.so");
         } catch (const RuntimeError&) {
         }
         c.CallDLLFunctionByName(u"kt_args0");
       },
       by_name, u"No Dll loaded"},
      {"unknown function",
       [](CallPTR& c) {
         c.LoadDLL(std::string(kTestLib));
         c.CallDLLFunctionByName(u"kt_missing");
       },
       by_name, u"Function not found"},
      {"address 0", [](CallPTR& c) { c.CallFunction(); }, call_source, u"Function not found"},
      {"object sub without object",
       [](CallPTR& c) {
         c.SetCallType(mcCallCOMSub);
         c.CallFunction();
       },
       call_source, u"Cannot call Null COM object"},
      {"object function without object",
       [](CallPTR& c) {
         c.SetCallType(mcCallCOMFunction);
         c.LoadDLL(std::string(kTestLib));
         c.CallDLLFunctionByName(u"kt_args0");
       },
       call_source, u"Cannot call Null COM object"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    CallPTR call;
    Raised r = Catch([&] { row.act(call); });
    EXPECT_EQ(r.number, kNumber);
    EXPECT_EQ(ToUtf8(r.source), ToUtf8(row.source));
    EXPECT_EQ(ToUtf8(r.description), ToUtf8(row.description));
  }
  CallPTR call;
  EXPECT_RAISES(call.LoadDLL(u"/nonexistent/libkt_missing.so"), kNumber);
  EXPECT_NE(ToUtf8(call.LastLoadError()).find("libkt_missing.so"), std::string::npos);
}

TEST(CallPTR, FreesItsLibraryOnUnloadReloadAndRelease) {
  ASSERT_FALSE(IsLoaded(kTestLib));
  {
    CallPTR call;
    call.LoadDLL(std::string(kTestLib));
    EXPECT_TRUE(IsLoaded(kTestLib));
    call.UnloadDLL();
    EXPECT_FALSE(IsLoaded(kTestLib));
    call.LoadDLL(std::string(kTestLib));
    call.LoadDLL(u"libc.so.6");
    EXPECT_FALSE(IsLoaded(kTestLib));
    call.LoadDLL(std::string(kTestLib));
  }
  EXPECT_FALSE(IsLoaded(kTestLib));
}

TEST(DllLoader, OneLoadPerNameAndFreedByNameOrRelease) {
  ASSERT_FALSE(IsLoaded(kTestLib));
  const std::u16string path = FromUtf8(kTestLib);
  {
    DllLoader loader;
    const int64_t handle = loader.LoadDLL(u"test", path);
    ASSERT_NE(handle, 0);
    // The first handle of a name comes back whatever the path says now.
    EXPECT_EQ(loader.LoadDLL(u"test", u"/nonexistent/libkt_missing.so"), handle);
    EXPECT_EQ(loader.LastLoadError(), u"");
    // Names are case-sensitive: "TEST" is a second record of the library.
    EXPECT_EQ(loader.LoadDLL(u"TEST", path), handle);
    loader.UnloadDLL(u"unknown");
    loader.UnloadDLL(u"test");
    EXPECT_TRUE(IsLoaded(kTestLib));
    loader.UnloadDLL(u"TEST");
    EXPECT_FALSE(IsLoaded(kTestLib));
    // One unload frees a library however often its name was loaded.
    loader.LoadDLL(u"test", path);
    loader.LoadDLL(u"test", path);
    loader.UnloadDLL(u"test");
    EXPECT_FALSE(IsLoaded(kTestLib));

    EXPECT_EQ(loader.LoadDLL(u"missing", u"libkt_missing.so"), 0);
    EXPECT_NE(ToUtf8(loader.LastLoadError()).find("libkt_missing.so"), std::string::npos);
    loader.LoadDLL(u"test", path);
    loader.LoadDLL(u"libc", u"libc.so.6");
  }
  EXPECT_FALSE(IsLoaded(kTestLib));
}

TEST(CallPTR, LateBoundCallWritesThroughAPointerArgument) {
  Ref<Object> call = CreateObject(u"Kestrel.CallPTR");
  CallByName(call, u"LoadDLL", CallKind::kMethod, {Value(FromUtf8(kTestLib))});
  int64_t target = 0;
  // Arguments as a client's variables: a pointer as LongLong and a Long.
  std::vector<Value> pointer{Value(reinterpret_cast<intptr_t>(&target))};
  std::vector<Value> value{Value(int32_t{-5})};
  CallByName(call, u"AddParameter", CallKind::kMethod, pointer);
  CallByName(call, u"AddParameter", CallKind::kMethod, value);
  std::vector<Value> name{Value(u"kt_store")};
  Value result = CallByName(call, u"CallDLLFunctionByName", CallKind::kMethod, name);
  EXPECT_EQ(result.kind(), Kind::kLongLong);
  EXPECT_EQ(result.long_long(), 1);
  EXPECT_EQ(target, -5);
  EXPECT_EQ(value[0].kind(), Kind::kLong);  // taken by value: the variable is untouched

  CallByName(call, u"ObjectPointer", CallKind::kLet, {Value(int32_t{77})});
  Value object = CallByName(call, u"ObjectPointer", CallKind::kGet, {});
  EXPECT_EQ(object.kind(), Kind::kLongLong);
  EXPECT_EQ(object.long_long(), 77);
  EXPECT_EQ(CallByName(call, u"HResult", CallKind::kGet, {}).kind(), Kind::kLong);

  Ref<Object> loader = CreateObject(u"Kestrel.DllLoader");
  Value handle =
      CallByName(loader, u"LoadDLL", CallKind::kMethod, {Value(u"c"), Value(u"libc.so.6")});
  EXPECT_EQ(handle.kind(), Kind::kLongLong);
  EXPECT_NE(handle.long_long(), 0);
}

TEST(CallPTR, CallsIntoTheCLibraryLeaveNoWritableCode) {
  CallPTR call;
  call.LoadDLL(u"libc.so.6");
  EXPECT_EQ(call.CallDLLFunctionByName(u"getpid"), ::getpid());
  call.LoadDLL(std::string(kTestLib));
  for (int64_t a : Arguments(16)) call.AddParameter(a);
  EXPECT_EQ(call.CallDLLFunctionByName(u"kt_args16"), Fold(Arguments(16)));

  std::ifstream maps("/proc/self/maps");
  std::string line;
  int mappings = 0;
  while (std::getline(maps, line)) {
    ++mappings;
    const std::string perms = line.substr(line.find(' ') + 1, 4);
    EXPECT_FALSE(perms[1] == 'w' && perms[2] == 'x') << line;
  }
  EXPECT_GT(mappings, 0);
}

}  // namespace
}  // namespace kestrel
