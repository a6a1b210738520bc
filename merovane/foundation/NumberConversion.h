// NumberConversion: truncation of doubles from files into ints without undefined behaviour.
#pragma once

#include <cstdint>

// `value` truncated towards zero into the 32-bit range: beyond it the result saturates at
// INT32_MIN or INT32_MAX, and NaN gives 0. A plain cast of such a double is undefined, and values
// read from files (ANTAB text, table rows) can be anything.
inline std::int32_t TruncToInt32(double value) {
    if (!(value == value)) return 0;
    if (value >= 2147483647.0) return INT32_MAX;
    if (value <= -2147483648.0) return INT32_MIN;
    return static_cast<std::int32_t>(value);
}
