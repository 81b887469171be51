/* Drives Kestrel through its C ABI only, as a client in another language. */
#include "kestrel/c_api.h"

#include <stdio.h>
#include <string.h>

static int passed = 0;
static int failed = 0;

static void check(int ok, int line, const char* what) {
  ok ? ++passed : ++failed;
  if (!ok) fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, line, what);
}
#define CHECK(cond) check((cond) != 0, __LINE__, #cond)
#define COUNT(array) (sizeof(array) / sizeof((array)[0]))

static int text_equals(const kestrel_value* v, const char* expected) {
  char buffer[256];
  size_t needed = 0;
  if (kestrel_value_to_utf8(v, buffer, sizeof buffer, &needed) != 0) return 0;
  return needed == strlen(expected) && strcmp(buffer, expected) == 0;
}

static void set_text(kestrel_value* v, const char* text) {
  kestrel_value_set_utf8(v, text, strlen(text));
}

static void error_object_by_name(void) {
  kestrel_object* err = kestrel_create("kestrel.error"); /* names ignore case */
  CHECK(err != NULL);
  kestrel_value arg, result;
  kestrel_value_init(&arg);
  kestrel_value_init(&result);
  static const struct {
    const char* member;
    const char* text; /* NULL: the number */
    int32_t number;
  } lets[] = {{"Number", NULL, 1234},
              {"Description", "Caf\xc3\xa9 failed", 0},
              {"Source", "demo.c", 0},
              /* HelpContext is kept as text; left empty, Raise fails with 13. */
              {"HelpContext", NULL, 0}};
  for (size_t i = 0; i < COUNT(lets); ++i) {
    if (lets[i].text)
      set_text(&arg, lets[i].text);
    else
      kestrel_value_set_long(&arg, lets[i].number);
    CHECK(kestrel_call(err, lets[i].member, KESTREL_CALL_LET, &arg, 1, NULL) == 0);
  }
  int32_t number = 0;
  CHECK(kestrel_call(err, "number", KESTREL_CALL_GET, NULL, 0, &result) == 0);
  CHECK(kestrel_value_kind(&result) == KESTREL_KIND_LONG);
  CHECK(kestrel_value_to_long(&result, &number) == 0 && number == 1234);

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

  CHECK(kestrel_create("Kestrel.NoSuchClass") == NULL);
  CHECK(kestrel_last_error_number() == 429);
  CHECK(kestrel_global("Kestrel.Error") == NULL); /* creatable, not global */
  CHECK(kestrel_last_error_number() == 429);
  kestrel_value_clear(&arg);
  kestrel_value_clear(&result);
  kestrel_release(err);
}

/* Every scalar kind set through its function and read in place, and the
 * conversions' error numbers. */
static void scalar_kinds(void) {
  kestrel_value v[8];
  for (int i = 0; i < 8; ++i) kestrel_value_init(&v[i]);
  kestrel_value_set_integer(&v[0], -7);
  kestrel_value_set_single(&v[1], 1.5f);
  kestrel_value_set_byte(&v[2], 255);
  kestrel_value_set_date(&v[3], 45000.5);
  kestrel_value_set_error(&v[4], 5);
  kestrel_value_set_longlong(&v[5], (int64_t)1 << 40);
  kestrel_value_set_bool(&v[6], 1);
  kestrel_value_set_missing(&v[7]);
  static const struct {
    uint16_t kind;
    const char* text; /* the runtime's text form; NULL: no text form */
  } expected[8] = {
      {KESTREL_KIND_INTEGER, "-7"},   {KESTREL_KIND_SINGLE, "1.5"},
      {KESTREL_KIND_BYTE, "255"},     {KESTREL_KIND_DATE, "3/15/2023 12:00:00 PM"},
      {KESTREL_KIND_ERROR, NULL},     {KESTREL_KIND_LONGLONG, "1099511627776"},
      {KESTREL_KIND_BOOLEAN, "True"}, {KESTREL_KIND_ERROR, NULL},
  };
  for (int i = 0; i < 8; ++i) {
    CHECK(v[i].kind == expected[i].kind);
    if (expected[i].text) CHECK(text_equals(&v[i], expected[i].text));
  }
  CHECK(v[0].as.integer == -7 && v[1].as.single == 1.5f && v[2].as.byte == 255);
  CHECK(v[3].as.dbl == 45000.5 && v[4].as.error == 5 && v[5].as.longlong == (int64_t)1 << 40);
  CHECK(v[6].as.integer == -1 && v[7].as.error == KESTREL_MISSING_CODE);
  CHECK(kestrel_value_is_missing(&v[7]) && !kestrel_value_is_missing(&v[4]));

  /* A scalar written in place is a value like any other. */
  v[0].kind = KESTREL_KIND_LONG;
  v[0].as.long_value = 70000;
  int64_t wide = 0;
  CHECK(kestrel_value_to_longlong(&v[0], &wide) == 0 && wide == 70000);
  int32_t n = 0;
  kestrel_value_set_double(&v[0], 2.5);
  CHECK(kestrel_value_to_long(&v[0], &n) == 0 && n == 2); /* ties to even */
  set_text(&v[0], "abc");
  CHECK(kestrel_value_to_long(&v[0], &n) == 13);
  kestrel_value_set_null(&v[0]);
  CHECK(kestrel_value_to_long(&v[0], &n) == 94);

  /* UTF-16 in and out keeps any code unit, a lone surrogate included. */
  const uint16_t units[3] = {0x41, 0xD800, 0};
  const uint16_t* seen = NULL;
  size_t length = 0;
  CHECK(kestrel_value_set_utf16(&v[1], units, 3) == 0);
  CHECK(kestrel_value_utf16(&v[1], &seen, &length) == 0 && length == 3);
  CHECK(seen && seen[0] == 0x41 && seen[1] == 0xD800 && seen[2] == 0);
  CHECK(kestrel_value_utf16(&v[2], &seen, &length) == 13);
  for (int i = 0; i < 8; ++i) kestrel_value_clear(&v[i]);
}

/* Dates from calendar parts and back, before and after day 0. */
static void date_parts(void) {
  static const struct {
    int32_t parts[6];
    double serial;
  } rows[] = {
      {{1899, 12, 30, 0, 0, 0}, 0.0},     {{1899, 12, 29, 6, 0, 0}, -1.25},
      {{2023, 3, 15, 12, 0, 0}, 45000.5}, {{1900, 1, 1, 18, 0, 0}, 2.75},
      {{100, 1, 1, 0, 0, 0}, -657434.0},
  };
  kestrel_value v;
  kestrel_value_init(&v);
  for (size_t i = 0; i < COUNT(rows); ++i) {
    const int32_t* p = rows[i].parts;
    int32_t b[6] = {0};
    CHECK(kestrel_value_set_date_parts(&v, p[0], p[1], p[2], p[3], p[4], p[5]) == 0);
    CHECK(v.kind == KESTREL_KIND_DATE && v.as.dbl == rows[i].serial);
    CHECK(kestrel_value_get_date_parts(&v, &b[0], &b[1], &b[2], &b[3], &b[4], &b[5]) == 0);
    CHECK(memcmp(b, p, sizeof b) == 0);
  }
  CHECK(kestrel_value_set_date_parts(&v, 99, 1, 1, 0, 0, 0) == 5);
  CHECK(kestrel_value_set_date_parts(&v, 10000, 1, 1, 0, 0, 0) == 5);
  kestrel_value_clear(&v);
}

static void arrays(void) {
  kestrel_value a, item;
  kestrel_value_init(&a);
  kestrel_value_init(&item);
  const kestrel_bounds bounds[2] = {{1, 3}, {-1, 0}};
  CHECK(kestrel_array_new(&a, KESTREL_KIND_LONG, bounds, 2) == 0);
  CHECK(a.kind == (KESTREL_KIND_ARRAY | KESTREL_KIND_LONG) && kestrel_array_dimensions(&a) == 2);
  kestrel_bounds b = {0, 0};
  CHECK(kestrel_array_bounds(&a, 2, &b) == 0 && b.lower == -1 && b.upper == 0);
  CHECK(kestrel_array_bounds(&a, 3, &b) == 9);

  /* Assignment converts to the element kind; a fresh element is 0. */
  const int32_t at[2] = {3, -1}, first[2] = {1, 0};
  set_text(&item, "42");
  CHECK(kestrel_array_set(&a, at, 2, &item) == 0);
  CHECK(kestrel_array_get(&a, at, 2, &item) == 0);
  CHECK(item.kind == KESTREL_KIND_LONG && item.as.long_value == 42);
  CHECK(kestrel_array_get(&a, first, 2, &item) == 0 && item.as.long_value == 0);
  static const struct {
    int32_t subscripts[2];
    int count;
  } refused[] = {{{4, 0}, 2}, {{1, 1}, 2}, {{1, 0}, 1}}; /* all 9 */
  for (size_t i = 0; i < COUNT(refused); ++i)
    CHECK(kestrel_array_get(&a, refused[i].subscripts, refused[i].count, &item) == 9);
  set_text(&item, "x");
  CHECK(kestrel_array_set(&a, at, 2, &item) == 13);
  CHECK(kestrel_array_new(&item, KESTREL_KIND_EMPTY, bounds, 1) == 13);
  CHECK(kestrel_array_new(&item, KESTREL_KIND_VARIANT, NULL, 0) == 0);
  CHECK(item.kind == (KESTREL_KIND_ARRAY | KESTREL_KIND_VARIANT));
  CHECK(kestrel_array_dimensions(&item) == 0);

  /* Byte arrays in and out in bulk. */
  const uint8_t bytes[4] = {0, 1, 0xFE, 0xFF};
  uint8_t back[4] = {0};
  size_t needed = 0;
  CHECK(kestrel_value_set_bytes(&item, bytes, 4) == 0);
  CHECK(item.kind == (KESTREL_KIND_ARRAY | KESTREL_KIND_BYTE));
  CHECK(kestrel_value_get_bytes(&item, back, 3, &needed) == 0 && needed == 4 && back[0] == 0);
  CHECK(kestrel_value_get_bytes(&item, back, 4, &needed) == 0 && memcmp(back, bytes, 4) == 0);
  CHECK(kestrel_value_get_bytes(&a, back, 4, &needed) == 13);
  kestrel_value_clear(&a);
  kestrel_value_clear(&item);
}

/* For Each over a Collection gives the items, over a Dictionary the keys:
 * Add("a", "b") adds item a to one and key a to the other. Late bound,
 * Next(item) writes the item back into the caller's argument. */
static void enumeration(void) {
  static const char* names[2] = {"Kestrel.Collection", "Kestrel.Dictionary"};
  kestrel_value args[2], item, result;
  kestrel_value_init(&args[0]);
  kestrel_value_init(&args[1]);
  kestrel_value_init(&item);
  kestrel_value_init(&result);
  for (int n = 0; n < 2; ++n) {
    kestrel_object* list = kestrel_create(names[n]);
    set_text(&args[0], "a");
    set_text(&args[1], "b");
    CHECK(kestrel_call(list, "Add", KESTREL_CALL_METHOD, args, 2, NULL) == 0);
    kestrel_value_set_double(&args[0], 2.5);
    set_text(&args[1], "d");
    CHECK(kestrel_call(list, "Add", KESTREL_CALL_METHOD, args, 2, NULL) == 0);
    kestrel_object* walk = NULL;
    CHECK(kestrel_enumerate(list, &walk) == 0 && walk != NULL);
    int more = 0, seen = 0;
    while (kestrel_next(walk, &item, &more) == 0 && more)
      CHECK(++seen <= 2 && text_equals(&item, seen == 1 ? "a" : "2.5"));
    CHECK(seen == 2 && item.kind == KESTREL_KIND_EMPTY);
    kestrel_release(walk);

    CHECK(kestrel_call(list, "_NewEnum", KESTREL_CALL_GET, NULL, 0, &result) == 0);
    CHECK(kestrel_value_get_object(&result, &walk) == 0 && walk != NULL);
    CHECK(kestrel_call(walk, "Next", KESTREL_CALL_METHOD, &item, 1, &result) == 0);
    CHECK(text_equals(&item, "a"));
    CHECK(kestrel_call(walk, "Next", KESTREL_CALL_METHOD, &item, 1, &result) == 0);
    CHECK(kestrel_value_kind(&item) == KESTREL_KIND_DOUBLE && text_equals(&item, "2.5"));
    CHECK(kestrel_call(walk, "Next", KESTREL_CALL_METHOD, &item, 1, &result) == 0);
    CHECK(kestrel_value_kind(&item) == KESTREL_KIND_EMPTY);
    CHECK(kestrel_value_kind(&result) == KESTREL_KIND_BOOLEAN);
    kestrel_release(walk);
    kestrel_release(list);
  }
  /* Position 3 does not exist; an error object cannot be walked. */
  kestrel_object* list = kestrel_create("Kestrel.Collection");
  kestrel_value_set_long(&args[0], 3);
  CHECK(kestrel_call(list, "Item", KESTREL_CALL_GET, args, 1, &result) == 9);
  kestrel_release(list);
  kestrel_object* err = kestrel_create("Kestrel.Error");
  kestrel_object* walk = NULL;
  CHECK(kestrel_enumerate(err, &walk) == 438 && walk == NULL);
  kestrel_release(err);
  kestrel_value_clear(&item);
  kestrel_value_clear(&result);
  kestrel_value_clear(&args[0]);
  kestrel_value_clear(&args[1]);
}

static void introspection(void) {
  kestrel_class_info classes[256];
  size_t count = 0;
  CHECK(kestrel_classes(classes, 256, &count) == 0 && count > 0 && count <= 256);
  static const struct {
    const char* name;
    int instancing;
  } known[] = {{"Kestrel.Error", KESTREL_INSTANCING_CREATABLE},
               {"Kestrel.Utilities", KESTREL_INSTANCING_GLOBAL},
               {"Kestrel.File", KESTREL_INSTANCING_NOT_CREATABLE}};
  for (size_t k = 0; k < COUNT(known); ++k) {
    int found = 0;
    for (size_t i = 0; i < count && i < 256; ++i)
      if (strcmp(classes[i].qualified_name, known[k].name) == 0)
        found = classes[i].instancing == known[k].instancing;
    CHECK(found);
  }

  kestrel_object* list = kestrel_create("Kestrel.Collection");
  char name[32];
  size_t needed = 0;
  CHECK(kestrel_type_name(list, name, sizeof name, &needed) == 0 &&
        strcmp(name, "Collection") == 0);
  kestrel_member_info members[32];
  CHECK(kestrel_members(list, members, 32, &count) == 0 && count > 3 && count <= 32);
  static const struct {
    const char* name;
    int kinds, min_args, max_args;
  } rows[] = {{"Add", KESTREL_CALL_METHOD, 1, 4},
              {"Count", KESTREL_CALL_GET, 0, 0},
              {"Item", KESTREL_CALL_METHOD | KESTREL_CALL_GET, 1, 1}};
  for (size_t r = 0; r < COUNT(rows); ++r) {
    int found = 0;
    for (size_t i = 0; i < count; ++i) {
      const kestrel_member_info* m = &members[i];
      const int method = (m->call_kinds & KESTREL_CALL_METHOD) != 0;
      if (strcmp(m->name, rows[r].name) == 0)
        found = m->call_kinds == rows[r].kinds &&
                (method ? m->method_min_args : m->property_min_args) == rows[r].min_args &&
                (method ? m->method_max_args : m->property_max_args) == rows[r].max_args;
    }
    CHECK(found);
  }
  kestrel_release(list);
}

/* A sink of the caller's own behind Tracer.LogTo: it keeps the lines it
 * is given, or fails every call with its own error. */
struct c_sink {
  char lines[512];
  int fail;
  int released;
};

static int32_t sink_invoke(void* context, const char* name, int call_kind, kestrel_value* args,
                           size_t arg_count, kestrel_value* result) {
  struct c_sink* sink = context;
  if (sink->fail) {
    kestrel_set_error(-2147221504 + 77, "c_sink", "disk on fire");
    return -2147221504 + 77;
  }
  if (strcmp(name, "LogLine") != 0 || call_kind != KESTREL_CALL_METHOD || arg_count != 1)
    return 438;
  char line[256];
  size_t needed = 0;
  kestrel_value_to_utf8(&args[0], line, sizeof line, &needed);
  strncat(sink->lines, line, sizeof sink->lines - strlen(sink->lines) - 2);
  strcat(sink->lines, "\n");
  kestrel_value_set_bool(result, 1);
  return 0;
}
static void sink_release(void* context) {
  ((struct c_sink*)context)->released = 1;
}
static const char* sink_type_name(void* context) {
  (void)context;
  return "CSink";
}
static const kestrel_client_class sink_class = {sink_invoke, sink_release, sink_type_name};

static void client_objects(void) {
  struct c_sink sink = {{0}, 0, 0};
  kestrel_object* object = kestrel_client_new(&sink_class, &sink);
  CHECK(object != NULL && kestrel_client_context(object, &sink_class) == &sink);
  kestrel_object* tracer = kestrel_create("Kestrel.Tracer");
  CHECK(kestrel_client_context(tracer, &sink_class) == NULL);
  char name[16];
  CHECK(kestrel_type_name(object, name, sizeof name, NULL) == 0 && strcmp(name, "CSink") == 0);

  kestrel_value args[2];
  kestrel_value_init(&args[0]);
  kestrel_value_init(&args[1]);
  kestrel_value_set_object(&args[0], object);
  CHECK(kestrel_call(tracer, "LogTo", KESTREL_CALL_SET, args, 1, NULL) == 0);
  kestrel_release(object); /* the tracer holds it now */
  set_text(&args[0], "hello");
  kestrel_value_set_long(&args[1], 50);
  CHECK(kestrel_call(tracer, "Trace", KESTREL_CALL_METHOD, args, 2, NULL) == 0);
  size_t length = strlen(sink.lines);
  CHECK(length > 7 && strcmp(sink.lines + length - 7, " hello\n") == 0);

  /* The sink's own error reaches the tracer's caller. */
  sink.fail = 1;
  CHECK(kestrel_call(tracer, "Trace", KESTREL_CALL_METHOD, args, 2, NULL) == -2147221504 + 77);
  CHECK(strcmp(kestrel_last_error_source(), "c_sink") == 0);
  CHECK(strcmp(kestrel_last_error_description(), "disk on fire") == 0);
  sink.fail = 0;
  CHECK(kestrel_call(tracer, "Clear", KESTREL_CALL_METHOD, NULL, 0, NULL) == 438);

  CHECK(!sink.released);
  kestrel_release(tracer);
  CHECK(sink.released);
  kestrel_value_clear(&args[0]);
  kestrel_value_clear(&args[1]);
}

int main(void) {
  error_object_by_name();
  scalar_kinds();
  date_parts();
  arrays();
  enumeration();
  introspection();
  client_objects();
  printf("%d passed, %d failed\n", passed, failed);
  return failed == 0 ? 0 : 1;
}
