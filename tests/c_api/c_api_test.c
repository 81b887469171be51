/* Drives Kestrel through its C ABI only, as a client in another language. */
#include <stdio.h>
#include <string.h>

#include "kestrel/c_api.h"

static int passed = 0;
static int failed = 0;

#define CHECK(cond)                                                   \
  do {                                                                \
    if (cond) {                                                       \
      ++passed;                                                       \
    } else {                                                          \
      ++failed;                                                       \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
    }                                                                 \
  } while (0)

static int text_equals(const kestrel_value* v, const char* expected) {
  char buffer[256];
  size_t needed = 0;
  if (kestrel_value_to_utf8(v, buffer, sizeof buffer, &needed) != 0) return 0;
  return needed == strlen(expected) && strcmp(buffer, expected) == 0;
}

static void error_object_by_name(void) {
  kestrel_object* err = kestrel_create("kestrel.error"); /* names ignore case */
  CHECK(err != NULL);

  kestrel_value arg, result;
  kestrel_value_init(&arg);
  kestrel_value_init(&result);

  kestrel_value_set_long(&arg, 1234);
  CHECK(kestrel_call(err, "Number", KESTREL_CALL_LET, &arg, 1, NULL) == 0);
  CHECK(kestrel_call(err, "number", KESTREL_CALL_GET, NULL, 0, &result) == 0);
  CHECK(kestrel_value_kind(&result) == KESTREL_KIND_LONG);
  int32_t number = 0;
  CHECK(kestrel_value_to_long(&result, &number) == 0 && number == 1234);

  kestrel_value_set_utf8(&arg, "Caf\xc3\xa9 failed", 12);
  CHECK(kestrel_call(err, "Description", KESTREL_CALL_LET, &arg, 1, NULL) == 0);
  kestrel_value_set_utf8(&arg, "demo.c", 6);
  CHECK(kestrel_call(err, "Source", KESTREL_CALL_LET, &arg, 1, NULL) == 0);
  kestrel_value_set_long(&arg, 0);
  CHECK(kestrel_call(err, "HelpContext", KESTREL_CALL_LET, &arg, 1, NULL) == 0);

  /* Raise comes back as this thread's last error, never as an exception. */
  CHECK(kestrel_call(err, "Raise", KESTREL_CALL_METHOD, NULL, 0, NULL) == 1234);
  CHECK(kestrel_last_error_number() == 1234);
  CHECK(strcmp(kestrel_last_error_source(), "demo.c") == 0);
  CHECK(strcmp(kestrel_last_error_description(), "Caf\xc3\xa9 failed") == 0);
  kestrel_clear_last_error();
  CHECK(kestrel_last_error_number() == 0);

  /* LastDllError is 16-bit: 32768 overflows. */
  kestrel_value_set_long(&arg, 32768);
  CHECK(kestrel_call(err, "LastDllError", KESTREL_CALL_LET, &arg, 1, NULL) == 6);
  CHECK(strcmp(kestrel_last_error_description(), "Overflow") == 0);

  CHECK(kestrel_call(err, "NoSuchMember", KESTREL_CALL_METHOD, NULL, 0, NULL) == 438);
  CHECK(kestrel_call(err, "Clear", KESTREL_CALL_METHOD, &arg, 1, NULL) == 450);

  kestrel_value_clear(&arg);
  kestrel_value_clear(&result);
  kestrel_release(err);
}

static void refused_classes(void) {
  CHECK(kestrel_create("Kestrel.NoSuchClass") == NULL);
  CHECK(kestrel_last_error_number() == 429);
  CHECK(kestrel_global("Kestrel.Error") == NULL); /* creatable, not global */
  CHECK(kestrel_last_error_number() == 429);
}

/* A collection enumerated through late binding: Next(item) writes the item
 * back into the caller's argument. */
static void by_reference_write_back(void) {
  kestrel_object* list = kestrel_create("Kestrel.Collection");
  CHECK(list != NULL);
  kestrel_value arg, result;
  kestrel_value_init(&arg);
  kestrel_value_init(&result);
  kestrel_value_set_utf8(&arg, "first", 5);
  CHECK(kestrel_call(list, "Add", KESTREL_CALL_METHOD, &arg, 1, NULL) == 0);
  kestrel_value_set_double(&arg, 2.5);
  CHECK(kestrel_call(list, "Add", KESTREL_CALL_METHOD, &arg, 1, NULL) == 0);

  CHECK(kestrel_call(list, "_NewEnum", KESTREL_CALL_GET, NULL, 0, &result) == 0);
  kestrel_object* items = NULL;
  CHECK(kestrel_value_get_object(&result, &items) == 0 && items != NULL);

  kestrel_value item;
  kestrel_value_init(&item);
  CHECK(kestrel_call(items, "Next", KESTREL_CALL_METHOD, &item, 1, &result) == 0);
  CHECK(text_equals(&item, "first"));
  CHECK(kestrel_call(items, "Next", KESTREL_CALL_METHOD, &item, 1, &result) == 0);
  CHECK(kestrel_value_kind(&item) == KESTREL_KIND_DOUBLE && text_equals(&item, "2.5"));
  CHECK(kestrel_call(items, "Next", KESTREL_CALL_METHOD, &item, 1, &result) == 0);
  CHECK(kestrel_value_kind(&item) == KESTREL_KIND_EMPTY);
  CHECK(kestrel_value_kind(&result) == KESTREL_KIND_BOOLEAN);

  /* Position 3 does not exist. */
  kestrel_value_set_long(&arg, 3);
  CHECK(kestrel_call(list, "Item", KESTREL_CALL_GET, &arg, 1, &result) == 9);

  kestrel_value_clear(&item);
  kestrel_value_clear(&arg);
  kestrel_value_clear(&result);
  kestrel_release(items);
  kestrel_release(list);
}

static void conversions(void) {
  kestrel_value v;
  kestrel_value_init(&v);
  int32_t n = 0;
  kestrel_value_set_double(&v, 2.5);
  CHECK(kestrel_value_to_long(&v, &n) == 0 && n == 2); /* ties to even */
  kestrel_value_set_utf8(&v, "abc", 3);
  CHECK(kestrel_value_to_long(&v, &n) == 13);
  kestrel_value_set_null(&v);
  CHECK(kestrel_value_to_long(&v, &n) == 94);
  kestrel_value_set_missing(&v);
  CHECK(kestrel_value_is_missing(&v));
  kestrel_value_clear(&v);
}

int main(void) {
  error_object_by_name();
  refused_classes();
  by_reference_write_back();
  conversions();
  printf("%d passed, %d failed\n", passed, failed);
  return failed == 0 ? 0 : 1;
}
