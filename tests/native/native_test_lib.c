/* Functions with a known result for every argument, loaded by the native
 * call tests (and the benchmark) at run time.
 *
 * kt_argsN takes N arguments, alternately a 64-bit integer and a pointer,
 * and folds them in order into one 64-bit value, so a swapped, dropped or
 * truncated argument changes the result:
 *   h = 0x5EED; for each argument x: h = h * 1000003 + x  (modulo 2^64)
 *
 * kt_object is an object whose first word points to its method table; each
 * method takes the object first. */
#include <stdint.h>
#include <stdlib.h>

#define KT_MIX(h, x) ((uint64_t)(h)*1000003u + (uint64_t)(x))
#define KT_P(x) ((uint64_t)(uintptr_t)(x))

int64_t kt_args0(void) {
  return 0x5EED;
}
int64_t kt_args1(int64_t a1) {
  return (int64_t)KT_MIX(0x5EEDu, a1);
}
int64_t kt_args2(int64_t a1, const void* a2) {
  return (int64_t)KT_MIX(kt_args1(a1), KT_P(a2));
}
int64_t kt_args3(int64_t a1, const void* a2, int64_t a3) {
  return (int64_t)KT_MIX(kt_args2(a1, a2), a3);
}
int64_t kt_args4(int64_t a1, const void* a2, int64_t a3, const void* a4) {
  return (int64_t)KT_MIX(kt_args3(a1, a2, a3), KT_P(a4));
}
int64_t kt_args5(int64_t a1, const void* a2, int64_t a3, const void* a4, int64_t a5) {
  return (int64_t)KT_MIX(kt_args4(a1, a2, a3, a4), a5);
}
int64_t kt_args6(int64_t a1, const void* a2, int64_t a3, const void* a4, int64_t a5,
                 const void* a6) {
  return (int64_t)KT_MIX(kt_args5(a1, a2, a3, a4, a5), KT_P(a6));
}
int64_t kt_args7(int64_t a1, const void* a2, int64_t a3, const void* a4, int64_t a5, const void* a6,
                 int64_t a7) {
  return (int64_t)KT_MIX(kt_args6(a1, a2, a3, a4, a5, a6), a7);
}
int64_t kt_args8(int64_t a1, const void* a2, int64_t a3, const void* a4, int64_t a5, const void* a6,
                 int64_t a7, const void* a8) {
  return (int64_t)KT_MIX(kt_args7(a1, a2, a3, a4, a5, a6, a7), KT_P(a8));
}
int64_t kt_args9(int64_t a1, const void* a2, int64_t a3, const void* a4, int64_t a5, const void* a6,
                 int64_t a7, const void* a8, int64_t a9) {
  return (int64_t)KT_MIX(kt_args8(a1, a2, a3, a4, a5, a6, a7, a8), a9);
}
int64_t kt_args10(int64_t a1, const void* a2, int64_t a3, const void* a4, int64_t a5,
                  const void* a6, int64_t a7, const void* a8, int64_t a9, const void* a10) {
  return (int64_t)KT_MIX(kt_args9(a1, a2, a3, a4, a5, a6, a7, a8, a9), KT_P(a10));
}
int64_t kt_args11(int64_t a1, const void* a2, int64_t a3, const void* a4, int64_t a5,
                  const void* a6, int64_t a7, const void* a8, int64_t a9, const void* a10,
                  int64_t a11) {
  return (int64_t)KT_MIX(kt_args10(a1, a2, a3, a4, a5, a6, a7, a8, a9, a10), a11);
}
int64_t kt_args12(int64_t a1, const void* a2, int64_t a3, const void* a4, int64_t a5,
                  const void* a6, int64_t a7, const void* a8, int64_t a9, const void* a10,
                  int64_t a11, const void* a12) {
  return (int64_t)KT_MIX(kt_args11(a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11), KT_P(a12));
}
/* Past the register and direct-call limits: the general call path. */
int64_t kt_args16(int64_t a1, const void* a2, int64_t a3, const void* a4, int64_t a5,
                  const void* a6, int64_t a7, const void* a8, int64_t a9, const void* a10,
                  int64_t a11, const void* a12, int64_t a13, const void* a14, int64_t a15,
                  const void* a16) {
  uint64_t h = (uint64_t)kt_args12(a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12);
  return (int64_t)KT_MIX(KT_MIX(KT_MIX(KT_MIX(h, a13), KT_P(a14)), a15), KT_P(a16));
}

/* Stores `value` where `target` points; returns 1. */
int32_t kt_store(int64_t* target, int64_t value) {
  *target = value;
  return 1;
}

struct kt_object;
struct kt_methods {
  /* self->base + a * b */
  int64_t (*scale)(struct kt_object* self, int64_t a, int64_t b);
  /* Status 0 and *quotient = a / b + self->base; b == 0 returns the status
   * 0x80020012 and leaves *quotient alone. */
  int32_t (*divide)(struct kt_object* self, int64_t a, int64_t b, int64_t* quotient);
  /* Keeps value in self->last; returns nothing. */
  void (*remember)(struct kt_object* self, int64_t value);
  /* self->last */
  int64_t (*recall)(struct kt_object* self);
};
struct kt_object {
  const struct kt_methods* methods;
  int64_t base;
  int64_t last;
};

static int64_t kt_scale(struct kt_object* self, int64_t a, int64_t b) {
  return self->base + a * b;
}
static int32_t kt_divide(struct kt_object* self, int64_t a, int64_t b, int64_t* quotient) {
  if (b == 0) return (int32_t)0x80020012u;
  *quotient = a / b + self->base;
  return 0;
}
static void kt_remember(struct kt_object* self, int64_t value) {
  self->last = value;
}
static int64_t kt_recall(struct kt_object* self) {
  return self->last;
}

static const struct kt_methods kt_object_methods = {kt_scale, kt_divide, kt_remember, kt_recall};

struct kt_object* kt_object_create(int64_t base) {
  struct kt_object* self = malloc(sizeof *self);
  if (self != NULL) {
    self->methods = &kt_object_methods;
    self->base = base;
    self->last = 0;
  }
  return self;
}
void kt_object_destroy(struct kt_object* self) {
  free(self);
}
