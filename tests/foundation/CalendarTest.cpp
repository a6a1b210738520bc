// Tests of the calendar conversions around the Gregorian reform and the leap-year rule.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

#include <merovane/foundation/Calendar.h>
#include <merovane/platform/Afx.h>

namespace {
// Proleptic Gregorian date of a Julian day number by era arithmetic in 64 bits, independent of the
// steps JulianToDate takes.
void civilFromJulianDay(std::int64_t jdn, int& d, int& m, int& y) {
    std::int64_t z = jdn - 2440588 + 719468;  // days from 1 March of year 0
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const std::int64_t doe = z - era * 146097;
    const std::int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const std::int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const std::int64_t mp = (5 * doy + 2) / 153;
    d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    y = static_cast<int>(yoe + era * 400 + (m <= 2 ? 1 : 0));
}

// The status code that JulianToDate threw, 0 if none; the three integers in any case.
unsigned thrownCode(double jd, int& d, int& m, int& y) {
    try {
        JulianToDate(jd, d, m, y);
    } catch (const COleException& e) {
        return e.m_sc;
    }
    return 0;
}
}  // namespace

TEST(Calendar, JulianToDateAcrossTheGregorianReform) {
    int d = 0, m = 0, y = 0;
    // 0h on 15 October 1582: the first Gregorian day. Stored, then refused for lying before 1900.
    EXPECT_EQ(thrownCode(2299160.5, d, m, y), 0x80004005u);
    EXPECT_EQ(d, 15);
    EXPECT_EQ(m, 10);
    EXPECT_EQ(y, 1582);
    // One day earlier is 4 October 1582 in the Julian calendar.
    EXPECT_EQ(thrownCode(2299159.5, d, m, y), 0x80004005u);
    EXPECT_EQ(d, 4);
    EXPECT_EQ(m, 10);
    EXPECT_EQ(y, 1582);
    EXPECT_EQ(thrownCode(std::nan(""), d, m, y), 0x80004005u);
}

TEST(Calendar, JulianToDateGivesTheDateText) {
    int d = 0, m = 0, y = 0;
    EXPECT_EQ(JulianToDate(2451544.5, d, m, y), "01-01-2000");
    EXPECT_EQ(d, 1);
    EXPECT_EQ(m, 1);
    EXPECT_EQ(y, 2000);
    EXPECT_EQ(JulianToDate(2459278.5, d, m, y), "05-03-2021");
    // Any moment of the day gives that day: jd + 0.5 is truncated.
    EXPECT_EQ(JulianToDate(2453065.49, d, m, y), "29-02-2004");
    EXPECT_EQ(JulianToDate(2415020.5, d, m, y), "01-01-1900");
}

TEST(Calendar, DayOfYearToJulian) {
    EXPECT_EQ(DayOfYearToJulian(1, 1901), 2415385.5);
    EXPECT_EQ(DayOfYearToJulian(60, 2004), 2453064.5);   // 29 February 2004
    EXPECT_EQ(DayOfYearToJulian(61, 2003), 2452700.5);   // 2 March in a common year
    EXPECT_EQ(DayOfYearToJulian(366, 2001), 2452275.5);  // runs on into 1 January 2002
    int d = 0, m = 0, y = 0;
    JulianToDate(DayOfYearToJulian(366, 2001), d, m, y);
    EXPECT_EQ(d, 1);
    EXPECT_EQ(m, 1);
    EXPECT_EQ(y, 2002);
}

TEST(Calendar, JulianToDateFarFromTodayWithin32BitSteps) {
    struct Case {
        double jd;
        const char* text;
    };
    // About 21 million days out, and the last day whose steps stay within 32 bits.
    const Case cases[] = {{21000000.5, "13-12-52783"},
                          {21000000.99, "13-12-52783"},
                          {kJulianDayHighest - 0.5, "22-09-54078"},
                          {kJulianDayHighest + 0.49, "22-09-54078"},
                          {10000000.5, nullptr}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.jd);
        int d = 0, m = 0, y = 0;
        const CString text = JulianToDate(c.jd, d, m, y);
        int ed = 0, em = 0, ey = 0;
        civilFromJulianDay(static_cast<std::int64_t>(c.jd + 0.5), ed, em, ey);
        EXPECT_EQ(d, ed);
        EXPECT_EQ(m, em);
        EXPECT_EQ(y, ey);
        if (c.text != nullptr) {
            EXPECT_STREQ(text.GetString(), c.text);
        }
    }
}

TEST(Calendar, JulianToDateRefusesOnlyWhereTheStepsOverflow) {
    // One day past the highest, one before the lowest, and NaN: nothing is computed, the integers
    // keep what they held.
    for (double jd :
         {kJulianDayHighest + 0.5, kJulianDayHighest + 1e9, kJulianDayLowest - 1.5, -1e300, std::nan("")}) {
        SCOPED_TRACE(jd);
        int d = 7, m = 8, y = 9;
        EXPECT_EQ(thrownCode(jd, d, m, y), 0x80004005u);
        EXPECT_EQ(d, 7);
        EXPECT_EQ(m, 8);
        EXPECT_EQ(y, 9);
    }
    // The lowest day itself runs through the steps: its integers (no real date) are stored, and
    // the range test on them refuses it.
    int d = 7, m = 8, y = 9;
    EXPECT_EQ(thrownCode(kJulianDayLowest - 0.5, d, m, y), 0x80004005u);
    EXPECT_EQ(d, -23);
    EXPECT_EQ(m, -7);
    EXPECT_EQ(y, -63509);
    // Just inside the lower end: jd + 0.5 = -21476238.9 truncates toward zero to the lowest day.
    d = m = y = 0;
    EXPECT_EQ(thrownCode(kJulianDayLowest - 1.4, d, m, y), 0x80004005u);
    EXPECT_EQ(y, -63509);
}
