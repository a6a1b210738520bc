// AFitsConventions: dates, sidereal time, baseline codes, Stokes codes and names.
#include "AFitsConventions.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

double AFitsJulianDate(int year, int month, int day) {
    // Fliegel and Van Flandern's integer form gives the Julian day number at noon; 0h is half a day
    // earlier.
    const long a = (14 - month) / 12;
    const long y = year + 4800 - a;
    const long m = month + 12 * a - 3;
    const long jdn = day + (153 * m + 2) / 5 + 365 * y + y / 4 - y / 100 + y / 400 - 32045;
    return static_cast<double>(jdn) - 0.5;
}

void AFitsCalendarDate(double jd, int& year, int& month, int& day) {
    const long jdn = static_cast<long>(std::floor(jd + 0.5));
    const long a = jdn + 32044;
    const long b = (4 * a + 3) / 146097;
    const long c = a - 146097 * b / 4;
    const long d = (4 * c + 3) / 1461;
    const long e = c - 1461 * d / 4;
    const long m = (5 * e + 2) / 153;
    day = static_cast<int>(e - (153 * m + 2) / 5 + 1);
    month = static_cast<int>(m + 3 - 12 * (m / 10));
    year = static_cast<int>(100 * b + d - 4800 + m / 10);
}

bool AFitsParseDate(const std::string& text, double& jd0) {
    int y = 0, m = 0, d = 0;
    char tail = 0;
    const char* s = text.c_str();
    while (*s == ' ') ++s;
    if (std::sscanf(s, "%4d-%2d-%2d%c", &y, &m, &d, &tail) >= 3 && std::strlen(s) >= 10 && s[4] == '-' &&
        s[7] == '-') {
        if (std::strlen(s) > 10 && s[10] != 'T' && s[10] != ' ') return false;
    } else if (std::sscanf(s, "%2d/%2d/%2d", &d, &m, &y) == 3 && std::strlen(s) >= 8 && s[2] == '/' &&
               s[5] == '/') {
        y += 1900;
    } else {
        return false;
    }
    if (m < 1 || m > 12 || d < 1 || d > 31 || y < 1600 || y > 9999) return false;
    jd0 = AFitsJulianDate(y, m, d);
    return true;
}

std::string AFitsDateText(double jd) {
    int y, m, d;
    AFitsCalendarDate(jd, y, m, d);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", y, m, d);
    return text;
}

double AFitsGmstDegrees(double jd0) {
    // IAU 1982 mean sidereal time at 0h UT, in seconds of time, from Julian centuries since J2000.
    const double t = (jd0 - 2451545.0) / 36525.0;
    double seconds = 24110.54841 + t * (8640184.812866 + t * (0.093104 - t * 6.2e-6));
    seconds = std::fmod(seconds, 86400.0);
    if (seconds < 0) seconds += 86400.0;
    return seconds / 240.0;
}

AFitsBaseline AFitsDecodeBaseline(double code) {
    AFitsBaseline b;
    // Nonsense (NaN, negative, beyond any antenna pair) decodes to antenna 0, which callers refuse.
    if (!(code >= 0.0 && code < 1e9)) {
        b.ant1 = b.ant2 = 0;
        return b;
    }
    // The subarray rides in the hundredths; a float of the code keeps them to about 1e-3 for codes
    // below 65536, so the fraction is rounded, not truncated.
    const double whole = std::floor(code + 1e-6);
    const double frac = code - whole;
    b.subarray = static_cast<int>(std::lround(frac * 100.0)) + 1;
    long n = static_cast<long>(whole);
    if (n >= 65536) {
        n -= 65536;
        b.ant1 = static_cast<int>(n / 2048);
        b.ant2 = static_cast<int>(n % 2048);
    } else {
        b.ant1 = static_cast<int>(n / 256);
        b.ant2 = static_cast<int>(n % 256);
    }
    return b;
}

int AFitsToInt(double value) {
    if (!(value == value)) return 0;
    if (value >= 2147483647.0) return 2147483647;
    if (value <= -2147483648.0) return -2147483647 - 1;
    return static_cast<int>(std::lround(value));
}

double AFitsEncodeBaseline(int ant1, int ant2, int subarray) {
    const double frac = (subarray - 1) * 0.01;
    if (ant1 > 255 || ant2 > 255) return 65536.0 + 2048.0 * ant1 + ant2 + frac;
    return 256.0 * ant1 + ant2 + frac;
}

bool AFitsStokesSupported(int code) {
    return (code >= -8 && code <= -1) || (code >= 1 && code <= 4);
}

const char* AFitsStokesName(int code) {
    static const char* const kNegative[] = {"RR", "LL", "RL", "LR", "XX", "YY", "XY", "YX"};
    static const char* const kPositive[] = {"I", "Q", "U", "V"};
    if (code >= -8 && code <= -1) return kNegative[-code - 1];
    if (code >= 1 && code <= 4) return kPositive[code - 1];
    return "?";
}

std::string AFitsTrimName(const char* text, std::size_t size) {
    std::size_t n = 0;
    while (n < size && text[n] != '\0') ++n;
    while (n > 0 && (text[n - 1] == ' ' || text[n - 1] == '\t')) --n;
    return std::string(text, n);
}

std::string AFitsTrimName(const std::string& text) {
    return AFitsTrimName(text.data(), text.size());
}

namespace {

// Sum of squared differences of one sample against the geometry for baseline `b` (metres), the
// better of the two overall signs.
double sampleResidual(const AFitsUvwSample& s, const double b[3]) {
    const double c = 299792458.0;
    const double pi = 3.14159265358979323846;
    const double jd0 = std::floor(s.jd - 0.5) + 0.5;
    const double gmst = AFitsGmstDegrees(jd0) + 360.98564736629 * (s.jd - jd0);
    const double h = (gmst - s.ra) * pi / 180.0;
    const double d = s.dec * pi / 180.0;
    const double bx = b[0] / c, by = b[1] / c, bz = b[2] / c;
    const double u = std::sin(h) * bx + std::cos(h) * by;
    const double v = -std::sin(d) * std::cos(h) * bx + std::sin(d) * std::sin(h) * by + std::cos(d) * bz;
    const double w = std::cos(d) * std::cos(h) * bx - std::cos(d) * std::sin(h) * by + std::sin(d) * bz;
    const double plus = (s.u - u) * (s.u - u) + (s.v - v) * (s.v - v) + (s.w - w) * (s.w - w);
    const double minus = (s.u + u) * (s.u + u) + (s.v + v) * (s.v + v) + (s.w + w) * (s.w + w);
    return std::min(plus, minus);
}

}  // namespace

void AFitsHandednessResiduals(const AFitsUvwSample* samples, int n, double& right, double& left) {
    double sr = 0, sl = 0;
    for (int i = 0; i < n; ++i) {
        const double* b = samples[i].b;
        const double mirrored[3] = {b[0], -b[1], b[2]};
        sr += sampleResidual(samples[i], b);
        sl += sampleResidual(samples[i], mirrored);
    }
    right = n > 0 ? std::sqrt(sr / n) : 0.0;
    left = n > 0 ? std::sqrt(sl / n) : 0.0;
}
