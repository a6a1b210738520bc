// Operating-system file primitives with 64-bit offsets, beneath the byte streams.
#pragma once

#include <cstdint>

#include <merovane/platform/CString.h>
#include <merovane/platform/Export.h>

enum class PlatformOpenMode {
    Read,       // existing file, read only
    ReadWrite,  // existing file, read and write
    Create,     // new or truncated file, read and write
};

// Returns a descriptor >= 0, or -1 with `error` (if not null) set to the system's reason.
MEROVANE_API int PlatformFileOpen(const char* path, PlatformOpenMode mode, CString* error);
// Transfers up to n bytes, retrying short transfers; returns the bytes moved, -1 on an error.
// A read returns fewer than n only at the end of the file.
MEROVANE_API std::int64_t PlatformFileRead(int fd, void* dst, std::int64_t n);
MEROVANE_API std::int64_t PlatformFileWrite(int fd, const void* src, std::int64_t n);
// Moves to an absolute position; returns it, or -1.
MEROVANE_API std::int64_t PlatformFileSeek(int fd, std::int64_t pos);
MEROVANE_API std::int64_t PlatformFileTell(int fd);
// Size in bytes, -1 on failure.
MEROVANE_API std::int64_t PlatformFileSize(int fd);
MEROVANE_API bool PlatformFileClose(int fd);
MEROVANE_API bool PlatformFileRemove(const char* path);
// The system's text for the last failure of the calling thread.
MEROVANE_API CString PlatformLastErrorText();
// Peak resident set size of this process in bytes, for the memory measurements of the benchmarks.
MEROVANE_API std::int64_t PlatformPeakResidentBytes();
