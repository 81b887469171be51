// Symbol visibility for the shared library: only what is marked KESTREL_API
// is exported, so internals stay internal.
#pragma once

#if defined(KESTREL_BUILDING)
#define KESTREL_API __attribute__((visibility("default")))
#else
#define KESTREL_API
#endif
