// Tests of the calendar conversions around the Gregorian reform and the leap-year rule.
#include <gtest/gtest.h>

#include <cmath>

#include <merovane/foundation/Calendar.h>
#include <merovane/platform/Afx.h>

namespace {
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
