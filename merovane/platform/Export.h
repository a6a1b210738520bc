// Export macro: MEROVANE_API marks the classes, template instantiations and functions a host may call.
#pragma once

// The library is built with hidden visibility; only what carries MEROVANE_API reaches the dynamic
// symbol table. A consumer sees the same attribute, which is harmless on an import.
#if defined(_WIN32)
#if defined(MEROVANE_BUILDING)
#define MEROVANE_API __declspec(dllexport)
#else
#define MEROVANE_API __declspec(dllimport)
#endif
#else
#define MEROVANE_API __attribute__((visibility("default")))
#endif
