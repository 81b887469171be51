// The exported Simple MAPI entry points and the session table.
#include "kestrel/mail/simple_mapi.h"

#include <cstddef>
#include <map>
#include <mutex>
#include <new>

#include "provider.hpp"

// Records handed over by callers are laid out as the published 64-bit
// interface has them.
static_assert(sizeof(void*) != 8 ||
              (sizeof(MapiRecipDesc) == 40 && offsetof(MapiRecipDesc, lpszAddress) == 16 &&
               offsetof(MapiRecipDesc, lpEntryID) == 32));
static_assert(sizeof(void*) != 8 ||
              (sizeof(MapiFileDesc) == 40 && offsetof(MapiFileDesc, lpszPathName) == 16 &&
               offsetof(MapiFileDesc, lpFileType) == 32));
static_assert(sizeof(void*) != 8 ||
              (sizeof(MapiMessage) == 96 && offsetof(MapiMessage, flFlags) == 48 &&
               offsetof(MapiMessage, nRecipCount) == 64 && offsetof(MapiMessage, lpFiles) == 88));

namespace kestrel::mapi {
namespace {

// Sessions by handle. Each keeps the configuration read at log-on.
struct Sessions {
  std::mutex mutex;
  std::map<LHANDLE, Config> open;
  LHANDLE next = 1;
};

Sessions& TheSessions() {
  static Sessions* sessions = new Sessions();  // lives as long as the process
  return *sessions;
}

std::optional<Config> FindSession(LHANDLE handle) {
  Sessions& s = TheSessions();
  std::lock_guard lock(s.mutex);
  const auto it = s.open.find(handle);
  if (it == s.open.end()) return std::nullopt;
  return it->second;
}

ULONG Send(LHANDLE session, const MapiMessage* message, FLAGS flags) {
  if (message == nullptr) return MAPI_E_FAILURE;
  const bool dialog = (flags & MAPI_DIALOG) != 0;
  std::optional<Config> config;
  if (session != 0) {
    config = FindSession(session);
    if (!config) return MAPI_E_INVALID_SESSION;
  } else if (!dialog) {
    // A session for this call alone.
    config = LoadConfig();
    if (!config) return MAPI_E_LOGON_FAILURE;
  }
  Outgoing m;
  if (const ULONG rc = ReadMessage(*message, !dialog, m); rc != SUCCESS_SUCCESS) return rc;
  if (dialog) return OpenComposer(m);
  if (m.to.empty() && m.cc.empty() && m.bcc.empty()) return MAPI_E_INVALID_RECIPS;
  return config->url.empty() ? SendWithSendmail(*config, m) : SendSmtp(*config, m);
}

}  // namespace
}  // namespace kestrel::mapi

using namespace kestrel::mapi;

extern "C" {

ULONG MAPILogon(ULONG_PTR, LPSTR, LPSTR, FLAGS, ULONG, LPLHANDLE lplhSession) {
  if (lplhSession == nullptr) return MAPI_E_FAILURE;
  try {
    std::optional<Config> config = LoadConfig();
    if (!config) return MAPI_E_LOGON_FAILURE;
    Sessions& s = TheSessions();
    std::lock_guard lock(s.mutex);
    const LHANDLE handle = s.next++;
    s.open.emplace(handle, std::move(*config));
    *lplhSession = handle;
    return SUCCESS_SUCCESS;
  } catch (const std::bad_alloc&) {
    return MAPI_E_INSUFFICIENT_MEMORY;
  } catch (...) {
    return MAPI_E_LOGON_FAILURE;
  }
}

ULONG MAPILogoff(LHANDLE lhSession, ULONG_PTR, FLAGS, ULONG) {
  Sessions& s = TheSessions();
  std::lock_guard lock(s.mutex);
  return s.open.erase(lhSession) == 1 ? SUCCESS_SUCCESS : MAPI_E_INVALID_SESSION;
}

ULONG MAPISendMail(LHANDLE lhSession, ULONG_PTR, lpMapiMessage lpMessage, FLAGS flFlags, ULONG) {
  // Nothing may escape into a C caller.
  try {
    return Send(lhSession, lpMessage, flFlags);
  } catch (const std::bad_alloc&) {
    return MAPI_E_INSUFFICIENT_MEMORY;
  } catch (...) {
    return MAPI_E_FAILURE;
  }
}

}  // extern "C"
