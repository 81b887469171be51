#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "kestrel/frame/unicode.hpp"
#include "kestrel/native/call_ptr.hpp"
#include "kestrel/native/dll_loader.hpp"
#include "kestrel/runtime/registry.hpp"

namespace kestrel {
namespace {

const std::string kTestLib = KESTREL_NATIVE_TEST_LIB;

// What every kt_argsN of the test library computes from its arguments.
int64_t Fold(const std::vector<int64_t>& args) {
  uint64_t h = 0x5EED;
  for (int64_t a : args) h = h * 1000003u + static_cast<uint64_t>(a);
  return static_cast<int64_t>(h);
}

// Distinct values using all 64 bits: a truncated or swapped one changes the fold.
std::vector<int64_t> Arguments(int n) {
  std::vector<int64_t> args;
  for (uint64_t i = 1; i <= uint64_t(n); ++i)
    args.push_back(static_cast<int64_t>(0x0123456789ABCDEFu * i ^ (uint64_t{1} << 63)));
  return args;
}

void SetParameters(CallPTR& call, const std::vector<int64_t>& args) {
  call.ClearParameters();
  for (int64_t a : args) call.AddParameter(a);
}

// Whether the dynamic loader still holds the library, without loading it.
bool IsLoaded() {
  void* h = ::dlopen(kTestLib.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (h != nullptr) ::dlclose(h);
  return h != nullptr;
}

TEST(CallPTR, EveryArgumentCountByNameAndByAddress) {
  CallPTR call;
  call.LoadDLL(kTestLib);
  void* module = ::dlopen(kTestLib.c_str(), RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(module, nullptr);
  for (int n : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 16}) {
    const std::string name = "kt_args" + std::to_string(n);
    for (mcCallTypeEnum type : {mcCallStdCall, mcCallDeclSpec}) {
      SCOPED_TRACE(name + ", call type " + std::to_string(type));
      call.SetCallType(type);
      SetParameters(call, Arguments(n));
      EXPECT_EQ(call.CallDLLFunctionByName(name), Fold(Arguments(n)));
      call.SetFunctionAddress(reinterpret_cast<intptr_t>(::dlsym(module, name.c_str())));
      EXPECT_EQ(call.CallFunction(), Fold(Arguments(n)));
    }
  }
  ::dlclose(module);
}

TEST(CallPTR, ObjectCallsPassThePointerFirstAndTheResultHolderLast) {
  CallPTR call;
  call.LoadDLL(kTestLib);
  call.AddParameter(1000);
  const int64_t object = call.CallDLLFunctionByName("kt_object_create");
  ASSERT_NE(object, 0);
  call.SetObjectPointer(object);
  const int64_t scale = call.MethodAddress(0), divide = call.MethodAddress(1);
  const int64_t remember = call.MethodAddress(2), recall = call.MethodAddress(3);
  constexpr int32_t kDivideByZero = static_cast<int32_t>(0x80020012u);
  constexpr int64_t kWide = 0x7EDCBA9876543210;
  struct {
    mcCallTypeEnum type;
    int64_t method;
    std::vector<int64_t> args;
    int64_t result;
    int32_t h_result;
  } rows[] = {
      {mcCallCOMSub, scale, {6, 7}, 1042, 0},
      {mcCallCOMFunction, divide, {84, 2}, 1042, 0},
      // The holder starts at 0 on every call: a failing method's result is 0.
      {mcCallCOMFunction, divide, {84, 0}, 0, kDivideByZero},
      // Calls of the other types leave the last status alone.
      {mcCallCOMSub, remember, {kWide}, kWide, kDivideByZero},
      {mcCallCOMSub, recall, {}, kWide, kDivideByZero},
      {mcCallCOMFunction, divide, {kWide, 1}, kWide + 1000, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::Message() << "type " << row.type << ", method " << row.method);
    call.SetCallType(row.type);
    call.SetFunctionAddress(row.method);
    SetParameters(call, row.args);
    const int64_t result = call.CallFunction();
    if (row.method != remember) {  // returns nothing
      EXPECT_EQ(result, row.result);
    }
    EXPECT_EQ(call.HResult(), row.h_result);
  }
  call.SetCallType(mcCallStdCall);
  SetParameters(call, {object});
  call.CallDLLFunctionByName("kt_object_destroy");
}

// "number source: description" of what fn raised.
template <class F>
std::string Raised(F&& fn) {
  try {
    fn();
  } catch (const RuntimeError& e) {
    return std::to_string(e.number()) + " " + ToUtf8(e.source()) + ": " + ToUtf8(e.description());
  }
  return "nothing raised";
}

TEST(CallPTR, ErrorsCarryTheirSourceAndDescription) {
  struct {
    const char* what;
    void (*act)(CallPTR&);
    const char* raised;
  } rows[] = {
      {"missing library", [](CallPTR& c) { c.LoadDLL(u"/nonexistent/libkt_missing.so"); },
       "-2147221504 clsCallFunction.LoadDLL: Load DLL failed"},
      {"nothing loaded", [](CallPTR& c) { c.CallDLLFunctionByName(u"getpid"); },
       "-2147221504 clsCallFunction.CallDLLFunctionByName: No Dll loaded"},
      {"a failed load frees the library before",
       [](CallPTR& c) {
         c.LoadDLL(kTestLib);
         (void)Raised([&] { c.LoadDLL(u"libkt_missing.so"); });
         c.CallDLLFunctionByName(u"kt_args0");
       },
       "-2147221504 clsCallFunction.CallDLLFunctionByName: No Dll loaded"},
      {"unknown function",
       [](CallPTR& c) {
         c.LoadDLL(kTestLib);
         c.CallDLLFunctionByName(u"kt_missing");
       },
       "-2147221504 clsCallFunction.CallDLLFunctionByName: Function not found"},
      {"a reload forgets the functions found before",
       [](CallPTR& c) {
         c.LoadDLL(kTestLib);
         c.CallDLLFunctionByName(u"kt_args0");
         c.LoadDLL(u"libc.so.6");
         c.CallDLLFunctionByName(u"kt_args0");
       },
       "-2147221504 clsCallFunction.CallDLLFunctionByName: Function not found"},
      {"address 0", [](CallPTR& c) { c.CallFunction(); },
       "-2147221504 clsCallFunction.CallFunction: Function not found"},
      {"object call without object, checked before the address",
       [](CallPTR& c) {
         c.SetCallType(mcCallCOMSub);
         c.CallFunction();
       },
       "-2147221504 clsCallFunction.CallFunction: Cannot call Null COM object"},
      {"method table without object", [](CallPTR& c) { c.MethodAddress(0); },
       "-2147221504 clsCallFunction.MethodAddress: Cannot call Null COM object"},
      {"object function without object, by name",
       [](CallPTR& c) {
         c.SetCallType(mcCallCOMFunction);
         c.LoadDLL(kTestLib);
         c.CallDLLFunctionByName(u"kt_args0");
       },
       "-2147221504 clsCallFunction.CallFunction: Cannot call Null COM object"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    CallPTR call;
    EXPECT_EQ(Raised([&] { row.act(call); }), row.raised);
  }
  CallPTR call;
  (void)Raised([&] { call.LoadDLL(u"/nonexistent/libkt_missing.so"); });
  EXPECT_NE(ToUtf8(call.LastLoadError()).find("libkt_missing.so"), std::string::npos);
}

TEST(CallPTR, FreesItsLibraryOnUnloadReloadAndRelease) {
  ASSERT_FALSE(IsLoaded());
  {
    CallPTR call;
    call.LoadDLL(kTestLib);
    EXPECT_TRUE(IsLoaded());
    call.UnloadDLL();
    EXPECT_FALSE(IsLoaded());
    call.LoadDLL(kTestLib);
    call.LoadDLL(u"libc.so.6");
    EXPECT_FALSE(IsLoaded());
    call.LoadDLL(kTestLib);
  }
  EXPECT_FALSE(IsLoaded());
}

TEST(CallPTR, LateBoundCallWritesThroughAPointerArgument) {
  Ref<Object> call = CreateObject(u"Kestrel.CallPTR");
  CallByName(call, u"LoadDLL", CallKind::kMethod, {Value(FromUtf8(kTestLib))});
  // The client's variables, passed by reference: a pointer as a LongLong and
  // a Long that must arrive sign-extended.
  int64_t target = 0;
  std::vector<Value> pointer{Value(reinterpret_cast<intptr_t>(&target))};
  std::vector<Value> value{Value(int32_t{-5})};
  CallByName(call, u"AddParameter", CallKind::kMethod, pointer);
  CallByName(call, u"AddParameter", CallKind::kMethod, value);
  Value result = CallByName(call, u"CallDLLFunctionByName", CallKind::kMethod, {u"kt_store"});
  EXPECT_EQ(result.kind(), Kind::kLongLong);
  EXPECT_EQ(result.long_long(), 1);
  EXPECT_EQ(target, -5);
  EXPECT_EQ(value[0].kind(), Kind::kLong);  // taken by value: left as it was

  CallByName(call, u"ObjectPointer", CallKind::kLet, {Value(int32_t{77})});
  Value object = CallByName(call, u"ObjectPointer", CallKind::kGet, {});
  EXPECT_EQ(object.kind(), Kind::kLongLong);
  EXPECT_EQ(object.long_long(), 77);
}

TEST(CallPTR, CallsIntoTheCLibraryLeaveNoWritableCode) {
  CallPTR call;
  call.LoadDLL(u"libc.so.6");
  EXPECT_EQ(call.CallDLLFunctionByName(u"getpid"), ::getpid());

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

TEST(DllLoader, OneLoadPerNameAndFreedByNameOrRelease) {
  ASSERT_FALSE(IsLoaded());
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
    EXPECT_TRUE(IsLoaded());
    loader.UnloadDLL(u"TEST");
    EXPECT_FALSE(IsLoaded());
    // One unload frees a library however often its name was loaded.
    loader.LoadDLL(u"test", path);
    loader.LoadDLL(u"test", path);
    loader.UnloadDLL(u"test");
    EXPECT_FALSE(IsLoaded());

    EXPECT_EQ(loader.LoadDLL(u"missing", u"libkt_missing.so"), 0);
    EXPECT_NE(ToUtf8(loader.LastLoadError()).find("libkt_missing.so"), std::string::npos);
    loader.LoadDLL(u"test", path);
    loader.LoadDLL(u"libc", u"libc.so.6");
  }
  EXPECT_FALSE(IsLoaded());
}

TEST(DllLoader, LateBoundLoadReturnsALongLongHandle) {
  Ref<Object> loader = CreateObject(u"Kestrel.DllLoader");
  Value handle = CallByName(loader, u"LoadDLL", CallKind::kMethod,
                            {Value(u"test"), Value(FromUtf8(kTestLib))});
  EXPECT_EQ(handle.kind(), Kind::kLongLong);
  EXPECT_NE(handle.long_long(), 0);
  loader = nullptr;  // the last reference: the loader is released
  EXPECT_FALSE(IsLoaded());
}

}  // namespace
}  // namespace kestrel
