/* Kestrel's C ABI: create classes by qualified name, call members by name,
 * release objects, read the last error. For clients in other languages.
 *
 * A kestrel_value is the library's 16-byte value, opaque to C. Initialise
 * every value with kestrel_value_init (it is then Empty) and release it with
 * kestrel_value_clear. Arguments of kestrel_call are passed by reference:
 * a member that assigns to an argument changes the caller's kestrel_value.
 *
 * Functions that can fail return 0 on success or the error number; the
 * error then is this thread's last error, read with kestrel_last_error_*.
 * No C++ exception ever crosses this interface. Objects and values belong to
 * the thread that made them.
 *
 *   kestrel_object* err = kestrel_create("Kestrel.Error");
 *   kestrel_value v; kestrel_value_init(&v); kestrel_value_set_long(&v, 5);
 *   kestrel_call(err, "Number", KESTREL_CALL_LET, &v, 1, NULL);
 *   kestrel_value_clear(&v); kestrel_release(err);
 */
#ifndef KESTREL_C_API_H_
#define KESTREL_C_API_H_

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(KESTREL_BUILDING)
#define KESTREL_C_API __attribute__((visibility("default")))
#else
#define KESTREL_C_API
#endif

typedef struct kestrel_value {
  uint64_t opaque[2];
} kestrel_value;

typedef struct kestrel_object kestrel_object;

/* Call kinds, as automation clients number them. */
enum {
  KESTREL_CALL_METHOD = 1,
  KESTREL_CALL_GET = 2,
  KESTREL_CALL_LET = 4,
  KESTREL_CALL_SET = 8
};

/* Kind codes of kestrel_value_kind (arrays: 0x2000 + element kind). */
enum {
  KESTREL_KIND_EMPTY = 0,
  KESTREL_KIND_NULL = 1,
  KESTREL_KIND_INTEGER = 2,
  KESTREL_KIND_LONG = 3,
  KESTREL_KIND_SINGLE = 4,
  KESTREL_KIND_DOUBLE = 5,
  KESTREL_KIND_DATE = 7,
  KESTREL_KIND_STRING = 8,
  KESTREL_KIND_OBJECT = 9,
  KESTREL_KIND_ERROR = 10,
  KESTREL_KIND_BOOLEAN = 11,
  KESTREL_KIND_BYTE = 17,
  KESTREL_KIND_LONGLONG = 20,
  KESTREL_KIND_ARRAY = 0x2000
};

/* --- values --- */
KESTREL_C_API void kestrel_value_init(kestrel_value* value);
KESTREL_C_API void kestrel_value_clear(kestrel_value* value);
KESTREL_C_API void kestrel_value_copy(kestrel_value* destination, const kestrel_value* source);
KESTREL_C_API uint16_t kestrel_value_kind(const kestrel_value* value);
/* True when the value is the mark of an omitted optional argument. */
KESTREL_C_API int kestrel_value_is_missing(const kestrel_value* value);

KESTREL_C_API void kestrel_value_set_null(kestrel_value* value);
KESTREL_C_API void kestrel_value_set_missing(kestrel_value* value);
KESTREL_C_API void kestrel_value_set_bool(kestrel_value* value, int truth);
KESTREL_C_API void kestrel_value_set_long(kestrel_value* value, int32_t number);
KESTREL_C_API void kestrel_value_set_longlong(kestrel_value* value, int64_t number);
KESTREL_C_API void kestrel_value_set_double(kestrel_value* value, double number);
/* UTF-8 text of `length` bytes (NUL bytes allowed inside). */
KESTREL_C_API int32_t kestrel_value_set_utf8(kestrel_value* value, const char* text, size_t length);
/* Adds a reference to `object` (NULL makes Nothing). */
KESTREL_C_API void kestrel_value_set_object(kestrel_value* value, kestrel_object* object);

/* Conversions with the runtime's rules (13 type mismatch, 6 overflow, 94
 * invalid use of Null, ...). */
KESTREL_C_API int32_t kestrel_value_to_long(const kestrel_value* value, int32_t* out);
KESTREL_C_API int32_t kestrel_value_to_double(const kestrel_value* value, double* out);
/* The value as UTF-8 text, NUL-terminated in `buffer` when it fits.
 * `*needed` receives the byte length without the terminator. */
KESTREL_C_API int32_t kestrel_value_to_utf8(const kestrel_value* value, char* buffer,
                                            size_t size, size_t* needed);
/* The object a value refers to, with a new reference (NULL for Nothing);
 * 424 when the value is not an object. */
KESTREL_C_API int32_t kestrel_value_get_object(const kestrel_value* value, kestrel_object** out);

/* --- objects --- */
/* A new instance of a class by qualified name ("Kestrel.Error"); NULL on
 * failure (429 when the class is unknown or not creatable). */
KESTREL_C_API kestrel_object* kestrel_create(const char* qualified_name);
/* This thread's shared instance of a global class; NULL on failure. */
KESTREL_C_API kestrel_object* kestrel_global(const char* qualified_name);
/* Calls member `name`. args[0] is the first argument; arguments are
 * written back. `result` (may be NULL) receives the result. */
KESTREL_C_API int32_t kestrel_call(kestrel_object* object, const char* name, int call_kind,
                                   kestrel_value* args, size_t arg_count,
                                   kestrel_value* result);
KESTREL_C_API void kestrel_addref(kestrel_object* object);
KESTREL_C_API void kestrel_release(kestrel_object* object);

/* --- the last error of this thread --- */
KESTREL_C_API int32_t kestrel_last_error_number(void);
/* UTF-8, valid until the next call into the library on this thread. */
KESTREL_C_API const char* kestrel_last_error_source(void);
KESTREL_C_API const char* kestrel_last_error_description(void);
KESTREL_C_API void kestrel_clear_last_error(void);

#ifdef __cplusplus
}
#endif

#endif /* KESTREL_C_API_H_ */
