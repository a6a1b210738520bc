// Text helpers of the UVX layer: numbers by printf formats, times as text and back.
#include <merovane/uvx/UVXText.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// True when `format` has at most one conversion and that one takes an argument of the kind given
// by `conversions` (plain flags, width and precision only; "%%" is text). A format that would read
// its argument as another type is not handed to the printf family.
bool formatFits(const char* format, const char* conversions) {
    int found = 0;
    for (const char* p = format; *p != '\0'; ++p) {
        if (*p != '%') continue;
        ++p;
        if (*p == '%') continue;
        while (*p != '\0' && std::strchr("-+ #0", *p) != nullptr) ++p;
        while (*p >= '0' && *p <= '9') ++p;
        if (*p == '.') {
            ++p;
            while (*p >= '0' && *p <= '9') ++p;
        }
        if (*p == '\0' || std::strchr(conversions, *p) == nullptr) return false;
        if (++found > 1) return false;
    }
    return true;
}

// One field of a time text: digits with at most one decimal point and at least one digit.
bool parseField(const char* begin, const char* end, double& value) {
    int digits = 0, points = 0;
    for (const char* p = begin; p < end; ++p) {
        if (*p >= '0' && *p <= '9')
            ++digits;
        else if (*p == '.')
            ++points;
        else
            return false;
    }
    if (digits == 0 || points > 1) return false;
    // from_chars reads with a point whatever the locale, and rounds correctly.
    return std::from_chars(begin, end, value).ptr == end;
}

}  // namespace

CString toStr(const int& value, const CString& format) {
    CString text;
    text.Format(formatFits(format, "diouxXc") ? format.GetString() : "%d", value);
    return text;
}

CString toStr(const double& value, const CString& format) {
    CString text;
    text.Format(formatFits(format, "eEfFgGaA") ? format.GetString() : "%g", value);
    return text;
}

CString timeToStr(double seconds, int decimals) {
    if (decimals < 0) decimals = 2;
    if (decimals > 9) decimals = 9;
    CString text;
    if (!std::isfinite(seconds)) {
        text.Format("%g", seconds);
        return text;
    }
    double scale = 1.0;
    for (int i = 0; i < decimals; ++i) scale *= 10.0;
    const double magnitude = std::fabs(seconds) * scale;
    // Beyond 2^53 the rounding below is no longer exact; such a time is not a time of day anyway.
    if (magnitude >= 9007199254740992.0) {
        text.Format("%.*f", decimals, seconds);
        return text;
    }
    // Round once, in units of the last decimal, so that 59.999 never shows as 60.00.
    const std::int64_t units = static_cast<std::int64_t>(std::llround(magnitude));
    const std::int64_t perSecond = static_cast<std::int64_t>(scale);
    const std::int64_t whole = units / perSecond;
    const std::int64_t fraction = units % perSecond;
    const std::int64_t days = whole / 86400;
    const int h = static_cast<int>(whole % 86400 / 3600);
    const int m = static_cast<int>(whole % 3600 / 60);
    const int s = static_cast<int>(whole % 60);
    if (seconds < 0.0 && units != 0) text += '-';
    if (days > 0) {
        CString d;
        d.Format("%lld/", static_cast<long long>(days));
        text += d;
    }
    CString hms;
    if (decimals > 0)
        hms.Format("%02d:%02d:%02d.%0*lld", h, m, s, decimals, static_cast<long long>(fraction));
    else
        hms.Format("%02d:%02d:%02d", h, m, s);
    text += hms;
    return text;
}

int strToTime(CString& text, double& seconds) {
    CString t = text;
    t.Trim();
    const char* p = t.GetString();
    const char* end = p + t.GetLength();
    bool negative = false;
    if (p < end && *p == '-') {
        negative = true;
        ++p;
    }
    // An optional day count "d/" in front, as timeToStr writes it.
    double days = 0.0;
    if (const char* slash =
            static_cast<const char*>(std::memchr(p, '/', static_cast<std::size_t>(end - p)))) {
        if (!parseField(p, slash, days) || days != std::floor(days)) return 0;
        p = slash + 1;
    }
    double fields[4];
    int n = 0;
    const char* fieldBegin = p;
    for (const char* q = p;; ++q) {
        if (q == end || *q == ':') {
            if (n == 4 || !parseField(fieldBegin, q, fields[n])) return 0;
            ++n;
            if (q == end) break;
            fieldBegin = q + 1;
        }
    }
    double value = 0.0;
    switch (n) {
        case 1:
            value = fields[0] * 3600.0;
            break;
        case 2:
            value = fields[0] * 3600.0 + fields[1] * 60.0;
            break;
        case 3:
            value = fields[0] * 3600.0 + fields[1] * 60.0 + fields[2];
            break;
        default:
            // "0:h:m:s": the minutes place takes m + s / 60, as "0:h:m.mm" would.
            value = fields[0] * 3600.0 + fields[1] * 60.0 + (fields[2] + fields[3] / 60.0);
            break;
    }
    value += days * 86400.0;
    seconds = negative ? -value : value;
    return 1;
}
