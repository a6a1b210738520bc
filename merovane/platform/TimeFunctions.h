// Local-time conversions with 64-bit time values, for the calendar functions.
#pragma once

#include <cstdint>
#include <ctime>

#include <merovane/platform/Export.h>

// Normalises `tm` as local time and returns seconds since 1970, or -1 when it cannot be represented.
MEROVANE_API std::int64_t MkTime64(std::tm* tm);
// Breaks `t` into local time; false on failure.
MEROVANE_API bool LocalTime64(std::tm* out, std::int64_t t);
