/* Kestrel's C ABI: create classes by qualified name, call members by name,
 * marshal every value kind and arrays, walk collections, describe objects,
 * and plug in objects of the caller's own. Enough for any language binding.
 *
 * A kestrel_value is the library's 16-byte value. All-zero bytes are Empty,
 * the same as kestrel_value_init; release a value with kestrel_value_clear.
 * The kind and, for scalar kinds (every kind but String, Object and arrays),
 * the payload may be read in place; a value holding a scalar may also be
 * overwritten in place with another scalar (kind and payload together).
 * Strings, objects and arrays hold counted storage: only the functions
 * below touch those. Arguments of kestrel_call are passed by reference: a
 * member that assigns to an argument changes the caller's kestrel_value.
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
  uint16_t kind; /* KESTREL_KIND_*; arrays: KESTREL_KIND_ARRAY | element kind */
  uint16_t reserved[3];
  union {
    int16_t integer; /* Integer; Boolean (-1 True, 0 False) */
    int32_t long_value;
    int64_t longlong;
    uint8_t byte;
    float single;
    double dbl; /* Double; Date (serial days since 1899-12-30) */
    int32_t error;
    uint64_t bits;
  } as;
} kestrel_value;

typedef struct kestrel_object kestrel_object;

/* Call kinds, as automation clients number them. */
enum { KESTREL_CALL_METHOD = 1, KESTREL_CALL_GET = 2, KESTREL_CALL_LET = 4, KESTREL_CALL_SET = 8 };

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
  KESTREL_KIND_VARIANT = 12, /* element kind of an array of values */
  KESTREL_KIND_BYTE = 17,
  KESTREL_KIND_LONGLONG = 20,
  KESTREL_KIND_ARRAY = 0x2000
};

/* The error code of Missing, the mark of an omitted optional argument. */
#define KESTREL_MISSING_CODE ((int32_t)0x80020004u)
/* max_args of a member whose last parameter takes any number of values. */
#define KESTREL_PARAM_ARRAY 65536

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
KESTREL_C_API void kestrel_value_set_integer(kestrel_value* value, int16_t number);
KESTREL_C_API void kestrel_value_set_long(kestrel_value* value, int32_t number);
KESTREL_C_API void kestrel_value_set_longlong(kestrel_value* value, int64_t number);
KESTREL_C_API void kestrel_value_set_byte(kestrel_value* value, uint8_t number);
KESTREL_C_API void kestrel_value_set_single(kestrel_value* value, float number);
KESTREL_C_API void kestrel_value_set_double(kestrel_value* value, double number);
/* An Error-kind value (a status code; KESTREL_MISSING_CODE is Missing). */
KESTREL_C_API void kestrel_value_set_error(kestrel_value* value, int32_t code);
/* A Date from its serial: days since 1899-12-30, the time as the fraction
 * (negative serials count days back, the fraction still adding time). */
KESTREL_C_API void kestrel_value_set_date(kestrel_value* value, double serial);
/* A Date from calendar parts, years 100 to 9999; parts out of range roll
 * over as DateSerial and TimeSerial roll them; 5 outside the date range. */
KESTREL_C_API int32_t kestrel_value_set_date_parts(kestrel_value* value, int32_t year,
                                                   int32_t month, int32_t day, int32_t hour,
                                                   int32_t minute, int32_t second);
/* UTF-8 text of `length` bytes (NUL bytes allowed inside). */
KESTREL_C_API int32_t kestrel_value_set_utf8(kestrel_value* value, const char* text, size_t length);
/* UTF-16 text of `length` code units, any unit allowed. */
KESTREL_C_API int32_t kestrel_value_set_utf16(kestrel_value* value, const uint16_t* text,
                                              size_t length);
/* Adds a reference to `object` (NULL makes Nothing). */
KESTREL_C_API void kestrel_value_set_object(kestrel_value* value, kestrel_object* object);

/* Conversions with the runtime's rules (13 type mismatch, 6 overflow, 94
 * invalid use of Null, ...). */
KESTREL_C_API int32_t kestrel_value_to_long(const kestrel_value* value, int32_t* out);
KESTREL_C_API int32_t kestrel_value_to_longlong(const kestrel_value* value, int64_t* out);
KESTREL_C_API int32_t kestrel_value_to_double(const kestrel_value* value, double* out);
/* The value as UTF-8 text, NUL-terminated in `buffer` when it fits.
 * `*needed` receives the byte length without the terminator. */
KESTREL_C_API int32_t kestrel_value_to_utf8(const kestrel_value* value, char* buffer, size_t size,
                                            size_t* needed);
/* A String's own UTF-16 units without copying: valid while the value is
 * neither changed nor cleared. 13 for any other kind. */
KESTREL_C_API int32_t kestrel_value_utf16(const kestrel_value* value, const uint16_t** units,
                                          size_t* length);
/* The calendar parts of a Date (or of anything CDate reads), to the second.
 * Any pointer may be NULL. */
KESTREL_C_API int32_t kestrel_value_get_date_parts(const kestrel_value* value, int32_t* year,
                                                   int32_t* month, int32_t* day, int32_t* hour,
                                                   int32_t* minute, int32_t* second);
/* The object a value refers to, with a new reference (NULL for Nothing);
 * 424 when the value is not an object. */
KESTREL_C_API int32_t kestrel_value_get_object(const kestrel_value* value, kestrel_object** out);

/* --- arrays --- */
typedef struct kestrel_bounds {
  int32_t lower;
  int32_t upper; /* inclusive; lower - 1 for an empty dimension */
} kestrel_bounds;

/* A new array of `dimensions` (0 to 60; 0 makes an unallocated array) with
 * every element the element kind's default (0, "", Empty, Nothing). The
 * first subscript varies fastest in storage. 9 for more than 60 dimensions,
 * 13 for an element kind that arrays cannot hold. */
KESTREL_C_API int32_t kestrel_array_new(kestrel_value* value, uint16_t element_kind,
                                        const kestrel_bounds* bounds, int dimensions);
/* Dimensions of an array; 0 for an unallocated array and for non-arrays. */
KESTREL_C_API int kestrel_array_dimensions(const kestrel_value* value);
/* Bounds of dimension 1 .. dimensions; 9 otherwise. */
KESTREL_C_API int32_t kestrel_array_bounds(const kestrel_value* value, int dimension,
                                           kestrel_bounds* out);
/* Element by subscripts, one per dimension (9 when out of range, 13 for a
 * non-array). */
KESTREL_C_API int32_t kestrel_array_get(const kestrel_value* array, const int32_t* subscripts,
                                        int count, kestrel_value* out);
/* Assigns an element, converting the item to the element kind as the
 * runtime's assignment does (13, 6). */
KESTREL_C_API int32_t kestrel_array_set(kestrel_value* array, const int32_t* subscripts, int count,
                                        const kestrel_value* item);
/* A Byte array 0 .. length-1 holding a copy of `data`. */
KESTREL_C_API int32_t kestrel_value_set_bytes(kestrel_value* value, const uint8_t* data,
                                              size_t length);
/* Copies a Byte array's bytes into `buffer` when `size` holds them all;
 * `*needed` receives their count. 13 when the value is not a Byte array. */
KESTREL_C_API int32_t kestrel_value_get_bytes(const kestrel_value* value, uint8_t* buffer,
                                              size_t size, size_t* needed);

/* --- objects --- */
/* A new instance of a class by qualified name ("Kestrel.Error"); NULL on
 * failure (429 when the class is unknown or not creatable). */
KESTREL_C_API kestrel_object* kestrel_create(const char* qualified_name);
/* This thread's shared instance of a global class; NULL on failure. */
KESTREL_C_API kestrel_object* kestrel_global(const char* qualified_name);
/* Calls member `name` ("" is the default member: Item of a collection).
 * args[0] is the first argument; arguments are written back. For LET and
 * SET the assigned value is the last argument. `result` (may be NULL)
 * receives the result. */
KESTREL_C_API int32_t kestrel_call(kestrel_object* object, const char* name, int call_kind,
                                   kestrel_value* args, size_t arg_count, kestrel_value* result);
KESTREL_C_API void kestrel_addref(kestrel_object* object);
KESTREL_C_API void kestrel_release(kestrel_object* object);

/* --- enumeration: what For Each walks --- */
/* A new enumerator over the object's items (438 when it has none). */
KESTREL_C_API int32_t kestrel_enumerate(kestrel_object* object, kestrel_object** enumerator);
/* The next item into `item` and 1 in `*more`, or Empty and 0 at the end. */
KESTREL_C_API int32_t kestrel_next(kestrel_object* enumerator, kestrel_value* item, int* more);

/* --- introspection --- */
enum {
  KESTREL_INSTANCING_GLOBAL = 0,
  KESTREL_INSTANCING_CREATABLE = 1,
  KESTREL_INSTANCING_NOT_CREATABLE = 2
};

typedef struct kestrel_class_info {
  const char* qualified_name; /* UTF-8, as registered */
  int instancing;             /* KESTREL_INSTANCING_* */
} kestrel_class_info;

typedef struct kestrel_member_info {
  const char* name;                             /* UTF-8 */
  int call_kinds;                               /* the KESTREL_CALL_* bits the member answers */
  int32_t method_min_args, method_max_args;     /* KESTREL_PARAM_ARRAY: no limit */
  int32_t property_min_args, property_max_args; /* index arguments */
} kestrel_member_info;

/* The registered classes: up to `capacity` into `out`, the full count into
 * `*count`. Names stay valid until the next kestrel_classes call on this
 * thread. */
KESTREL_C_API int32_t kestrel_classes(kestrel_class_info* out, size_t capacity, size_t* count);
/* The object's class name as clients see it (TypeName), like to_utf8. */
KESTREL_C_API int32_t kestrel_type_name(kestrel_object* object, char* buffer, size_t size,
                                        size_t* needed);
/* The object's members in name order, like kestrel_classes; none for an
 * object that answers by name without describing itself. Names stay valid
 * until the next kestrel_members call on this thread. */
KESTREL_C_API int32_t kestrel_members(kestrel_object* object, kestrel_member_info* out,
                                      size_t capacity, size_t* count);

/* --- client objects: objects of the caller's own --- */
/* invoke answers a call by name (UTF-8) and call kind. Arguments are the
 * caller's values, by reference; `result` is Empty on entry. It returns 0,
 * or an error number, after kestrel_set_error when it has a source and a
 * description to give (otherwise the number's standard text is used); the
 * error reaches whoever called the object as a runtime error. release runs
 * once, when the last reference goes; type_name (may be NULL: "Object")
 * must stay valid until then. */
typedef struct kestrel_client_class {
  int32_t (*invoke)(void* context, const char* name, int call_kind, kestrel_value* args,
                    size_t arg_count, kestrel_value* result);
  void (*release)(void* context);
  const char* (*type_name)(void* context);
} kestrel_client_class;

/* A new object (one reference, the caller's) that answers through `klass`,
 * which must outlive it. It plugs in wherever the library takes an object:
 * a log sink, a profile-data sink, a collection walked by name. */
KESTREL_C_API kestrel_object* kestrel_client_new(const kestrel_client_class* klass, void* context);
/* The context of a client object made with `klass`; NULL for any other. */
KESTREL_C_API void* kestrel_client_context(kestrel_object* object,
                                           const kestrel_client_class* klass);
/* Records the error a client callback is about to return. */
KESTREL_C_API void kestrel_set_error(int32_t number, const char* source, const char* description);

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
