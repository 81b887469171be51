// MAPI32 and MAPI32PTR: sending a Message through the Simple MAPI calls of
// a mail library loaded at run time.
//
// Neither class links to a mail library. Every mail call loads the library
// named by MAPIPath into a fresh CallPTR and calls MAPILogon, MAPISendMail
// or MAPILogoff there by name. Texts are handed over as NUL-terminated ANSI
// copies kept in a ByteStore for the object's whole life (an empty text as
// a null pointer); the MapiMessage, MapiRecipDesc and MapiFileDesc records
// are built inside the object. Result codes are returned, not raised;
// failures to load the library or find a function are CallPTR's errors.
//
// Port decisions: sessions, window handles and addresses are pointer-sized
// (LongLong through late binding). The default library is this library's
// own provider, libkestrel_mapi.so.0, installed next to libkestrel (which
// finds it there by file name); IsAvailable always checks that file.
//
// Kept on purpose, because clients rely on it: assigning
// ParentWindowHandle fails with error 28 (out of stack space) and leaves 0,
// so every call passes no parent window; the message's DateReceived and
// ConversationID and the attachments' Flags are never sent; the string
// store is never emptied. MAPI32PTR::ComposeAndShow logs on, shows the
// message in the composer and logs off, and a failed step raises
// 0x80040000 "MAPI ERROR: <code>" and skips the steps after it (a failed
// send stays logged on). Not thread-safe per object.
//
//   auto mapi = kestrel::MakeRef<kestrel::MAPI32>();
//   mapi->SetMessage(msg);
//   if (mapi->Logon() == 0) { mapi->SendMail(); mapi->Logoff(); }
//
// Dispatchable with the members below; registered as Kestrel.MAPI32
// (creatable) and Kestrel.MAPI32PTR (not creatable).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "kestrel/containers/byte_store.hpp"
#include "kestrel/frame/export.hpp"
#include "kestrel/mail/message.hpp"
#include "kestrel/runtime/dispatch.hpp"

namespace kestrel {

namespace detail {
struct MapiRecords;
}

enum MAPILogonFlagsEnum : int32_t {
  MAPI_LOGON_UI = 1,
  MAPI_NEW_SESSION = 2,
  MAPI_FORCE_DOWNLOAD = 4096,
};

enum MAPILogoffFlagsEnum : int32_t {
  MAPI_LOGOFF_SHARED = 1,
  MAPI_LOGOFF_UI = 2,
};

enum MAPISendMailFlagsEnum : int32_t {
  MAPI_DIALOG = 8,
};

// File name of the provider, the default MAPIPath.
inline constexpr std::u16string_view kDefaultMapiLibrary = u"libkestrel_mapi.so.0";

class KESTREL_API MAPI32 : public Dispatchable<MAPI32> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.MAPI32";

  MAPI32();
  ~MAPI32() override;

  const std::u16string& MAPIPath() const noexcept { return mapi_path_; }
  void SetMAPIPath(std::u16string_view v) { mapi_path_ = v; }
  // Whether the provider file (not MAPIPath) loads and has the three calls.
  bool IsAvailable() const;

  int64_t Session() const noexcept { return static_cast<int64_t>(session_); }
  void SetSession(int64_t v) noexcept { session_ = static_cast<uintptr_t>(v); }
  int64_t LastLoggedonSession() const noexcept {
    return static_cast<int64_t>(last_loggedon_session_);
  }
  MAPILogonFlagsEnum LogonFlags() const noexcept { return logon_flags_; }
  void SetLogonFlags(MAPILogonFlagsEnum v) noexcept { logon_flags_ = v; }
  MAPILogoffFlagsEnum LogoffFlags() const noexcept { return logoff_flags_; }
  void SetLogoffFlags(MAPILogoffFlagsEnum v) noexcept { logoff_flags_ = v; }
  MAPISendMailFlagsEnum SendMailFlags() const noexcept { return send_mail_flags_; }
  void SetSendMailFlags(MAPISendMailFlagsEnum v) noexcept { send_mail_flags_ = v; }
  int64_t ParentWindowHandle() const noexcept { return parent_window_; }
  // Always raises 28 and changes nothing (see above).
  [[noreturn]] void SetParentWindowHandle(int64_t v);

  const Ref<kestrel::Message>& Message() const noexcept { return message_; }
  void SetMessage(Ref<kestrel::Message> v) noexcept { message_ = std::move(v); }

  // The result codes of MAPILogon, MAPILogoff and MAPISendMail.
  int32_t Logon();
  int32_t Logoff();
  int32_t SendMail();
  // Text of the last result code; "" for a code without one.
  std::u16string_view LastResultDescription() const noexcept;

  static const DispatchTable<MAPI32>& Dispatch();

 private:
  MAPILogonFlagsEnum logon_flags_ = MAPILogonFlagsEnum{0};
  MAPILogoffFlagsEnum logoff_flags_ = MAPILogoffFlagsEnum{0};
  MAPISendMailFlagsEnum send_mail_flags_ = MAPISendMailFlagsEnum{0};
  int64_t parent_window_ = 0;
  std::u16string profile_name_;  // never set: the provider's default
  std::u16string password_;
  uintptr_t session_ = 0;
  // Written by MAPILogon through its address: pointer-sized, as LHANDLE is.
  uintptr_t last_loggedon_session_ = 0;
  std::unique_ptr<detail::MapiRecords> records_;
  Ref<ByteStore> strings_;
  Ref<kestrel::Message> message_;
  std::u16string mapi_path_{kDefaultMapiLibrary};
  int32_t last_result_ = 0;
};

class KESTREL_API MAPI32PTR : public Dispatchable<MAPI32PTR> {
 public:
  static constexpr std::u16string_view kQualifiedName = u"Kestrel.MAPI32PTR";

  MAPI32PTR();
  ~MAPI32PTR() override;

  const std::u16string& MAPIPath() const noexcept { return mapi_path_; }
  void SetMAPIPath(std::u16string_view v) { mapi_path_ = v; }
  bool IsAvailable() const;

  const Ref<kestrel::Message>& Message() const noexcept { return message_; }
  void SetMessage(Ref<kestrel::Message> v) noexcept { message_ = std::move(v); }

  // Log on, MAPISendMail with MAPI_LOGON_UI | MAPI_DIALOG (a cancelled
  // composer, result 1, is not a failure), log off.
  void ComposeAndShow();

  static const DispatchTable<MAPI32PTR>& Dispatch();

 private:
  std::u16string profile_name_;
  std::u16string password_;
  uintptr_t session_ = 0;
  std::unique_ptr<detail::MapiRecords> records_;
  Ref<ByteStore> strings_;
  Ref<kestrel::Message> message_;
  std::u16string mapi_path_{kDefaultMapiLibrary};
};

}  // namespace kestrel
