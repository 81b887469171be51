/* A Simple MAPI provider for tests: it sends nothing, writes down every
 * call with its arguments and the records it was handed, and returns the
 * result codes the test chose. */
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "kestrel/mail/simple_mapi.h"

/* The handle MAPILogon hands out: wider than 32 bits, so that a caller
 * cutting handles short is seen. */
#define RECORDING_SESSION ((LHANDLE)0x123456789AULL)

static char log_text[1 << 16];
static size_t log_used;
static ULONG logon_result, logoff_result, send_result;

static void Put(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = vsnprintf(log_text + log_used, sizeof log_text - log_used, format, args);
  va_end(args);
  const size_t room = sizeof log_text - log_used - 1;
  if (n > 0) log_used += (size_t)n < room ? (size_t)n : room;
}

static void PutText(const char* label, const char* text) {
  if (text == NULL)
    Put(" %s=null", label);
  else
    Put(" %s=\"%s\"", label, text);
}

static void PutRecip(const char* what, const MapiRecipDesc* r) {
  Put("%s reserved=%u class=%u", what, r->ulReserved, r->ulRecipClass);
  PutText("name", r->lpszName);
  PutText("address", r->lpszAddress);
  Put(" eid=%u entry=%s\n", r->ulEIDSize, r->lpEntryID ? "set" : "null");
}

KESTREL_MAPI_API const char* recording_log(void) {
  return log_text;
}

KESTREL_MAPI_API void recording_reset(ULONG logon, ULONG logoff, ULONG send) {
  log_used = 0;
  log_text[0] = '\0';
  logon_result = logon;
  logoff_result = logoff;
  send_result = send;
}

ULONG MAPILogon(ULONG_PTR ulUIParam, LPSTR lpszProfileName, LPSTR lpszPassword, FLAGS flFlags,
                ULONG ulReserved, LPLHANDLE lplhSession) {
  Put("MAPILogon ui=%lu", (unsigned long)ulUIParam);
  PutText("profile", lpszProfileName);
  PutText("password", lpszPassword);
  Put(" flags=%u reserved=%u\n", flFlags, ulReserved);
  if (logon_result == SUCCESS_SUCCESS && lplhSession != NULL) *lplhSession = RECORDING_SESSION;
  return logon_result;
}

ULONG MAPILogoff(LHANDLE lhSession, ULONG_PTR ulUIParam, FLAGS flFlags, ULONG ulReserved) {
  Put("MAPILogoff session=%#lx ui=%lu flags=%u reserved=%u\n", (unsigned long)lhSession,
      (unsigned long)ulUIParam, flFlags, ulReserved);
  return logoff_result;
}

ULONG MAPISendMail(LHANDLE lhSession, ULONG_PTR ulUIParam, lpMapiMessage m, FLAGS flFlags,
                   ULONG ulReserved) {
  Put("MAPISendMail session=%#lx ui=%lu flags=%u reserved=%u\n", (unsigned long)lhSession,
      (unsigned long)ulUIParam, flFlags, ulReserved);
  Put("message reserved=%u", m->ulReserved);
  PutText("subject", m->lpszSubject);
  PutText("note", m->lpszNoteText);
  PutText("type", m->lpszMessageType);
  PutText("date", m->lpszDateReceived);
  PutText("conversation", m->lpszConversationID);
  Put(" flags=%u recips=%u/%s files=%u/%s\n", m->flFlags, m->nRecipCount,
      m->lpRecips ? "set" : "null", m->nFileCount, m->lpFiles ? "set" : "null");
  if (m->lpOriginator == NULL)
    Put("originator null\n");
  else
    PutRecip("originator", m->lpOriginator);
  for (ULONG i = 0; m->lpRecips != NULL && i < m->nRecipCount; ++i)
    PutRecip("recip", &m->lpRecips[i]);
  for (ULONG i = 0; m->lpFiles != NULL && i < m->nFileCount; ++i) {
    const MapiFileDesc* f = &m->lpFiles[i];
    Put("file reserved=%u flags=%u position=%d", f->ulReserved, f->flFlags, (int)f->nPosition);
    PutText("path", f->lpszPathName);
    PutText("name", f->lpszFileName);
    Put(" type=%s\n", f->lpFileType ? "set" : "null");
  }
  return send_result;
}
