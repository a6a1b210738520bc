// Export macro of the FITS bridge: MEROVANE_FITS_API marks what a program may call.
#pragma once

// The bridge is built with hidden visibility, like the core library; only what carries this macro
// reaches its dynamic symbol table.
#if defined(_WIN32)
#if defined(MEROVANE_FITS_BUILDING)
#define MEROVANE_FITS_API __declspec(dllexport)
#else
#define MEROVANE_FITS_API __declspec(dllimport)
#endif
#else
#define MEROVANE_FITS_API __attribute__((visibility("default")))
#endif
