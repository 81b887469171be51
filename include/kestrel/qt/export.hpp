// Symbol visibility for the kestrel_qt shared library.
#pragma once

#if defined(KESTREL_QT_BUILDING)
#define KESTREL_QT_API __attribute__((visibility("default")))
#else
#define KESTREL_QT_API
#endif
