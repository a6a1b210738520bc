// Calendar conversions in 32-bit integer arithmetic with truncating divisions.
#include <merovane/foundation/Calendar.h>

#include <cstdint>
#include <ctime>

#include <merovane/platform/Afx.h>
#include <merovane/platform/TimeFunctions.h>

CString JulianToDate(double jd, int& day, int& month, int& year) {
    // The steps below are exact in 32-bit integers for every truncated jd + 0.5 from
    // kJulianDayLowest to kJulianDayHighest. One day beyond either end the century term leaves the
    // 32-bit range: b x 100 - 12210 below, b x 100 after the Gregorian correction above. There is
    // no date to store then (nor for NaN), so the integers are left as they were.
    const double shifted = jd + 0.5;
    if (!(shifted > kJulianDayLowest - 1.0 && shifted < kJulianDayHighest + 1.0))
        AfxThrowOleException(0x80004005u);
    std::int32_t j = static_cast<std::int32_t>(shifted);
    if (j >= 2299161) {  // first day of the Gregorian calendar
        std::int32_t alpha = (j * 100 - 186721625) / 3652425;
        j = j + 1 + alpha - alpha / 4;
    }
    std::int32_t b = j + 1524;
    std::int32_t c = (b * 100 - 12210) / 36525;
    std::int32_t d = c * 36525 / 100;
    std::int32_t e = (b - d) * 10000 / 306001;
    day = b - d - e * 306001 / 10000;
    month = e > 13 ? e - 13 : e - 1;
    year = month < 3 ? c - 4715 : c - 4716;

    if (year < 1900 || month < 1 || month > 12 || day < 1 || day > 31) AfxThrowOleException(0x80004005u);

    std::tm broken{};
    broken.tm_mday = day;
    broken.tm_mon = month - 1;
    broken.tm_year = year - 1900;
    broken.tm_isdst = 0;
    std::int64_t t = MkTime64(&broken);
    if (t == -1) AfxThrowOleException(0x80070057u);
    std::tm local{};
    if (!LocalTime64(&local, t)) AfxThrowOleException(0x80070057u);
    char text[128];
    std::size_t n = std::strftime(text, sizeof text, "%d-%m-%Y", &local);
    return n == 0 ? CString() : CString(text, static_cast<int>(n));
}

double DayOfYearToJulian(int dayOfYear, int year) {
    std::int32_t yy = year - 1900;
    std::int32_t days = dayOfYear + (yy - 1) / 4;
    return days + yy * 365.0 - 0.5 + 2415020.0;
}
