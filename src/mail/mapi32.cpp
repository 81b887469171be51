#include "kestrel/mail/mapi32.hpp"

#include <dlfcn.h>

#include <string>

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/native/call_ptr.hpp"
#include "kestrel/runtime/convert.hpp"
#include "kestrel/runtime/registry.hpp"
#include "mapi_records.hpp"
#include "object_arg.hpp"

namespace kestrel {

KESTREL_REGISTER_CLASS(MAPI32, MAPI32::kQualifiedName, Instancing::kCreatable);
KESTREL_REGISTER_CLASS(MAPI32PTR, MAPI32PTR::kQualifiedName, Instancing::kNotCreatable);

namespace {

int64_t AddressOf(const void* p) {
  return static_cast<int64_t>(reinterpret_cast<intptr_t>(p));
}

// The functions return a 32-bit ULONG; the rest of the register is not
// theirs to define.
int32_t Result(int64_t returned) {
  return static_cast<int32_t>(static_cast<uint32_t>(returned));
}

// Loads the provider file by name, looks for the three calls, and lets it
// go again.
bool ProviderAvailable() {
  void* library = ::dlopen(ToUtf8(kDefaultMapiLibrary).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return false;
  const bool found = ::dlsym(library, "MAPILogon") != nullptr &&
                     ::dlsym(library, "MAPILogoff") != nullptr &&
                     ::dlsym(library, "MAPISendMail") != nullptr;
  ::dlclose(library);
  return found;
}

[[noreturn]] void RaiseMapiError(int32_t code) {
  Raise(errors::kObjectErrorBase, u"MAPI32.ComposeAndShow",
        u"MAPI ERROR: " + runtime::ToText(Value(code)));
}

struct ResultText {
  int32_t code;
  std::u16string_view text;
};

// The capitals are uneven, and clients compare these texts as they are.
constexpr ResultText kResultTexts[] = {
    {0, u"MAPI Success"},
    {1, u"MAPI User Cancel"},
    {2, u"MAPI Failure"},
    {3, u"MAPI Login failure"},
    {4, u"MAPI Disk full"},
    {5, u"MAPI Insufficient memory"},
    {6, u"MAPI Block too small"},
    {8, u"MAPI Too many sessions"},
    {9, u"MAPI too many files"},
    {10, u"MAPI Too many attachments"},
    {11, u"MAPI Attachment not found"},
    {12, u"MAPI Attachment open failure"},
    {13, u"MAPI Attachment Write Failure"},
    {14, u"MAPI Unknown recipient"},
    {15, u"MAPI Bad recipient type"},
    {16, u"MAPI No messages"},
    {17, u"MAPI Invalid message"},
    {18, u"MAPI Text too large"},
    {19, u"MAPI Invalid session"},
    {20, u"MAPI Type not supported"},
    {21, u"MAPI Ambiguous recipient"},
    {22, u"MAPI Message in use"},
    {23, u"MAPI Network failure"},
    {24, u"MAPI Invalid edit fields"},
    {25, u"MAPI Invalid Recipients"},
    {26, u"MAPI Not supported"},
    {998, u"MAPI Invalid parameter"},
    {999, u"MAPI No Library"},
};

// One mail call on a loaded library: the arguments in order, the function
// by name.
int32_t CallOn(CallPTR& call, std::u16string_view function, std::initializer_list<int64_t> args) {
  call.ClearParameters();
  for (const int64_t a : args) call.AddParameter(a);
  return Result(call.CallDLLFunctionByName(function));
}

CallPTR& LoadMapi(CallPTR& call, const std::u16string& library) {
  call.SetCallType(mcCallStdCall);
  call.LoadDLL(library);
  return call;
}

// One mail call through a fresh CallPTR on the library.
int32_t CallMapi(const std::u16string& library, std::u16string_view function,
                 std::initializer_list<int64_t> args) {
  CallPTR call;
  return CallOn(LoadMapi(call, library), function, args);
}

using detail::ObjectArg;

}  // namespace

MAPI32::MAPI32()
    : records_(std::make_unique<detail::MapiRecords>()), strings_(MakeRef<ByteStore>()) {}
MAPI32::~MAPI32() = default;

bool MAPI32::IsAvailable() const {
  return ProviderAvailable();
}

void MAPI32::SetParentWindowHandle(int64_t) {
  // Kept as clients know it: the property assigned itself without end, so
  // the assignment always ran out of stack and the handle stayed 0.
  RaiseStandard(errors::kOutOfStackSpace);
}

int32_t MAPI32::Logon() {
  const int64_t profile = strings_->AddString(profile_name_, false);
  const int64_t password = strings_->AddString(password_, false);
  const int32_t rc = CallMapi(mapi_path_, u"MAPILogon",
                              {parent_window_, profile, password, int64_t{logon_flags_}, 0,
                               AddressOf(&last_loggedon_session_)});
  last_result_ = rc;
  session_ = last_loggedon_session_;
  return rc;
}

int32_t MAPI32::Logoff() {
  last_result_ =
      CallMapi(mapi_path_, u"MAPILogoff", {Session(), parent_window_, int64_t{logoff_flags_}, 0});
  return last_result_;
}

int32_t MAPI32::SendMail() {
  const int64_t record = records_->Build(message_.get(), *strings_);
  last_result_ = CallMapi(mapi_path_, u"MAPISendMail",
                          {Session(), parent_window_, record, int64_t{send_mail_flags_}, 0});
  return last_result_;
}

std::u16string_view MAPI32::LastResultDescription() const noexcept {
  for (const ResultText& r : kResultTexts)
    if (r.code == last_result_) return r.text;
  return {};
}

MAPI32PTR::MAPI32PTR()
    : records_(std::make_unique<detail::MapiRecords>()), strings_(MakeRef<ByteStore>()) {}
MAPI32PTR::~MAPI32PTR() = default;

bool MAPI32PTR::IsAvailable() const {
  return ProviderAvailable();
}

void MAPI32PTR::ComposeAndShow() {
  // The three calls share one load of the library.
  CallPTR call;
  LoadMapi(call, mapi_path_);
  int32_t rc = CallOn(call, u"MAPILogon",
                      {0, strings_->AddString(profile_name_, false),
                       strings_->AddString(password_, false), 0, 0, AddressOf(&session_)});
  if (rc != 0) RaiseMapiError(rc);

  // No error is caught from here on: a failure skips the steps after it and
  // leaves the session logged on, as clients of this member know it.
  const int64_t record = records_->Build(message_.get(), *strings_);
  const auto session = static_cast<int64_t>(session_);
  rc = CallOn(call, u"MAPISendMail",
              {session, 0, record, int64_t{MAPI_LOGON_UI} | int64_t{MAPI_DIALOG}, 0});
  if (rc != 0 && rc != 1) RaiseMapiError(rc);  // 1: the user cancelled

  rc = CallOn(call, u"MAPILogoff", {session, 0, 0, 0});
  if (rc != 0) RaiseMapiError(rc);
  call.UnloadDLL();
}

const DispatchTable<MAPI32>& MAPI32::Dispatch() {
  using M = MAPI32;
  static const auto table =
      DispatchTable<M>::Builder(u"MAPI32")
          .Property(
              u"MAPIPath", [](M& m, Args&) { return Value(m.MAPIPath()); },
              [](M& m, Args&, const Value& v) { m.SetMAPIPath(runtime::ToText(v)); })
          .Method(u"IsAvailable", 0, 0, [](M& m, Args&) { return Value(m.IsAvailable()); })
          .Property(
              u"Session", [](M& m, Args&) { return Value(m.Session()); },
              [](M& m, Args&, const Value& v) { m.SetSession(runtime::ToLongLong(v)); })
          .Get(u"LastLoggedonSession", [](M& m, Args&) { return Value(m.LastLoggedonSession()); })
          .Property(
              u"LogonFlags", [](M& m, Args&) { return Value(int32_t{m.LogonFlags()}); },
              [](M& m, Args&, const Value& v) {
                m.SetLogonFlags(static_cast<MAPILogonFlagsEnum>(runtime::ToLong(v)));
              })
          .Property(
              u"LogoffFlags", [](M& m, Args&) { return Value(int32_t{m.LogoffFlags()}); },
              [](M& m, Args&, const Value& v) {
                m.SetLogoffFlags(static_cast<MAPILogoffFlagsEnum>(runtime::ToLong(v)));
              })
          .Property(
              u"SendMailFlags", [](M& m, Args&) { return Value(int32_t{m.SendMailFlags()}); },
              [](M& m, Args&, const Value& v) {
                m.SetSendMailFlags(static_cast<MAPISendMailFlagsEnum>(runtime::ToLong(v)));
              })
          .Property(
              u"ParentWindowHandle", [](M& m, Args&) { return Value(m.ParentWindowHandle()); },
              [](M& m, Args&, const Value& v) { m.SetParentWindowHandle(runtime::ToLongLong(v)); })
          .Get(u"Message", [](M& m, Args&) { return Value(m.Message()); })
          .Set(u"Message",
               [](M& m, Args&, const Value& v) { m.SetMessage(ObjectArg<kestrel::Message>(v)); })
          .Method(u"Logon", 0, 0, [](M& m, Args&) { return Value(m.Logon()); })
          .Method(u"Logoff", 0, 0, [](M& m, Args&) { return Value(m.Logoff()); })
          .Method(u"SendMail", 0, 0, [](M& m, Args&) { return Value(m.SendMail()); })
          .Get(u"LastResultDescription",
               [](M& m, Args&) { return Value(m.LastResultDescription()); })
          .Build();
  return table;
}

const DispatchTable<MAPI32PTR>& MAPI32PTR::Dispatch() {
  using M = MAPI32PTR;
  static const auto table =
      DispatchTable<M>::Builder(u"MAPI32PTR")
          .Property(
              u"MAPIPath", [](M& m, Args&) { return Value(m.MAPIPath()); },
              [](M& m, Args&, const Value& v) { m.SetMAPIPath(runtime::ToText(v)); })
          .Method(u"IsAvailable", 0, 0, [](M& m, Args&) { return Value(m.IsAvailable()); })
          .Get(u"Message", [](M& m, Args&) { return Value(m.Message()); })
          .Set(u"Message",
               [](M& m, Args&, const Value& v) { m.SetMessage(ObjectArg<kestrel::Message>(v)); })
          .Method(u"ComposeAndShow", 0, 0,
                  [](M& m, Args&) {
                    m.ComposeAndShow();
                    return Value();
                  })
          .Build();
  return table;
}

}  // namespace kestrel
