// Local-time conversions on POSIX.
#include <merovane/platform/TimeFunctions.h>

#include <time.h>

std::int64_t MkTime64(std::tm* tm) {
    return static_cast<std::int64_t>(mktime(tm));
}

bool LocalTime64(std::tm* out, std::int64_t t) {
    time_t value = static_cast<time_t>(t);
    return localtime_r(&value, out) != nullptr;
}
