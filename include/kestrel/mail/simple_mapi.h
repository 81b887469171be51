/* The Simple MAPI calls and records as the kestrel_mapi provider exports
 * them: MAPILogon, MAPILogoff and MAPISendMail with the published argument
 * lists and result codes, and MapiMessage, MapiRecipDesc and MapiFileDesc
 * in the 64-bit layout (ULONG and FLAGS are 32-bit on every platform,
 * ULONG_PTR and LHANDLE as wide as a pointer), so that records built for
 * the published interface can be handed over unchanged. Strings are
 * Windows-1252 ("ANSI") and NUL-terminated; a null pointer is an empty text.
 *
 *   LHANDLE session = 0;
 *   if (MAPILogon(0, NULL, NULL, 0, 0, &session) == SUCCESS_SUCCESS)
 *     MAPISendMail(session, 0, &message, 0, 0);
 *
 * The constants are enumerators rather than macros, so that the C++ enums
 * of the same names in namespace kestrel can be used next to this header.
 * The provider's functions may be called from any thread. */
#ifndef KESTREL_MAIL_SIMPLE_MAPI_H
#define KESTREL_MAIL_SIMPLE_MAPI_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define KESTREL_MAPI_API __attribute__((visibility("default")))
#else
#define KESTREL_MAPI_API
#endif

typedef uint32_t ULONG;
typedef uint32_t FLAGS;
typedef uintptr_t ULONG_PTR;
typedef uintptr_t LHANDLE;
typedef LHANDLE* LPLHANDLE;
typedef char* LPSTR;
typedef void* LPVOID;

/* One sender or recipient. */
typedef struct MapiRecipDesc {
  ULONG ulReserved;   /* 0 */
  ULONG ulRecipClass; /* MAPI_ORIG, MAPI_TO, MAPI_CC or MAPI_BCC */
  LPSTR lpszName;     /* display name */
  LPSTR lpszAddress;  /* "SMTP:user@example.com" or "user@example.com" */
  ULONG ulEIDSize;    /* 0 */
  LPVOID lpEntryID;   /* NULL */
} MapiRecipDesc, *lpMapiRecipDesc;

/* One attachment. */
typedef struct MapiFileDesc {
  ULONG ulReserved;   /* 0 */
  ULONG flFlags;      /* MAPI_OLE, MAPI_OLE_STATIC or 0 */
  ULONG nPosition;    /* 0xFFFFFFFF: no position in the body */
  LPSTR lpszPathName; /* file to attach */
  LPSTR lpszFileName; /* name the recipient sees; NULL: from the path */
  LPVOID lpFileType;  /* NULL */
} MapiFileDesc, *lpMapiFileDesc;

/* The message. */
typedef struct MapiMessage {
  ULONG ulReserved;
  LPSTR lpszSubject;
  LPSTR lpszNoteText;
  LPSTR lpszMessageType;
  LPSTR lpszDateReceived;
  LPSTR lpszConversationID;
  FLAGS flFlags;
  MapiRecipDesc* lpOriginator;
  ULONG nRecipCount;
  MapiRecipDesc* lpRecips;
  ULONG nFileCount;
  MapiFileDesc* lpFiles;
} MapiMessage, *lpMapiMessage;

enum {
  /* ulRecipClass */
  MAPI_ORIG = 0,
  MAPI_TO = 1,
  MAPI_CC = 2,
  MAPI_BCC = 3,
  /* MapiFileDesc.flFlags */
  MAPI_OLE = 0x1,
  MAPI_OLE_STATIC = 0x2,
  /* MapiMessage.flFlags */
  MAPI_UNREAD = 0x1,
  MAPI_RECEIPT_REQUESTED = 0x2,
  MAPI_SENT = 0x4,
  /* flFlags of the calls */
  MAPI_LOGON_UI = 0x1,
  MAPI_NEW_SESSION = 0x2,
  MAPI_DIALOG = 0x8,
  MAPI_EXTENDED = 0x20,
  MAPI_FORCE_DOWNLOAD = 0x1000,
  MAPI_PASSWORD_UI = 0x20000,
  MAPI_LOGOFF_SHARED = 0x1,
  MAPI_LOGOFF_UI = 0x2
};

/* Result codes. */
enum {
  SUCCESS_SUCCESS = 0,
  MAPI_USER_ABORT = 1,
  MAPI_E_FAILURE = 2,
  MAPI_E_LOGON_FAILURE = 3,
  MAPI_E_DISK_FULL = 4,
  MAPI_E_INSUFFICIENT_MEMORY = 5,
  MAPI_E_ACCESS_DENIED = 6,
  MAPI_E_TOO_MANY_SESSIONS = 8,
  MAPI_E_TOO_MANY_FILES = 9,
  MAPI_E_TOO_MANY_RECIPIENTS = 10,
  MAPI_E_ATTACHMENT_NOT_FOUND = 11,
  MAPI_E_ATTACHMENT_OPEN_FAILURE = 12,
  MAPI_E_ATTACHMENT_WRITE_FAILURE = 13,
  MAPI_E_UNKNOWN_RECIPIENT = 14,
  MAPI_E_BAD_RECIPTYPE = 15,
  MAPI_E_NO_MESSAGES = 16,
  MAPI_E_INVALID_MESSAGE = 17,
  MAPI_E_TEXT_TOO_LARGE = 18,
  MAPI_E_INVALID_SESSION = 19,
  MAPI_E_TYPE_NOT_SUPPORTED = 20,
  MAPI_E_AMBIGUOUS_RECIPIENT = 21,
  MAPI_E_MESSAGE_IN_USE = 22,
  MAPI_E_NETWORK_FAILURE = 23,
  MAPI_E_INVALID_EDITFIELDS = 24,
  MAPI_E_INVALID_RECIPS = 25,
  MAPI_E_NOT_SUPPORTED = 26
};

/* Checks the configuration and writes a new session handle (never 0) to
 * *lplhSession; MAPI_E_LOGON_FAILURE when no way of sending is configured. */
KESTREL_MAPI_API ULONG MAPILogon(ULONG_PTR ulUIParam, LPSTR lpszProfileName, LPSTR lpszPassword,
                                 FLAGS flFlags, ULONG ulReserved, LPLHANDLE lplhSession);
/* Ends a session; MAPI_E_INVALID_SESSION for a handle it did not hand out. */
KESTREL_MAPI_API ULONG MAPILogoff(LHANDLE lhSession, ULONG_PTR ulUIParam, FLAGS flFlags,
                                  ULONG ulReserved);
/* Sends the message, or with MAPI_DIALOG opens the user's mail composer
 * with it. Session 0 logs on for this call only. */
KESTREL_MAPI_API ULONG MAPISendMail(LHANDLE lhSession, ULONG_PTR ulUIParam, lpMapiMessage lpMessage,
                                    FLAGS flFlags, ULONG ulReserved);

#ifdef __cplusplus
}
#endif

#endif /* KESTREL_MAIL_SIMPLE_MAPI_H */
