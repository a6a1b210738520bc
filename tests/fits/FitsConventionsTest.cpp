// Conventions of the FITS bridge: dates, sidereal time, baseline codes, Stokes codes, names, handedness.
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <AFitsConventions.h>

TEST(FitsConventions, JulianDatesOfCalendarDays) {
    struct Case {
        int y, m, d;
        double jd;
    };
    const Case cases[] = {{2000, 1, 1, 2451544.5},   {1858, 11, 17, 2400000.5}, {2010, 12, 24, 2455554.5},
                          {1996, 6, 5, 2450239.5},   {2024, 2, 29, 2460369.5},  {2024, 3, 1, 2460370.5},
                          {1999, 12, 31, 2451543.5}, {2017, 4, 9, 2457852.5}};
    for (const Case& c : cases) {
        EXPECT_EQ(AFitsJulianDate(c.y, c.m, c.d), c.jd) << c.y << "-" << c.m << "-" << c.d;
        int y, m, d;
        // Any moment of the day gives back the day.
        AFitsCalendarDate(c.jd + 0.999, y, m, d);
        EXPECT_EQ(y * 10000 + m * 100 + d, c.y * 10000 + c.m * 100 + c.d) << c.jd;
    }
}

TEST(FitsConventions, DateTexts) {
    struct Case {
        const char* text;
        bool ok;
        double jd0;
    };
    const Case cases[] = {{"2010-12-24", true, 2455554.5},  {"2017-04-09T12:30:00.5", true, 2457852.5},
                          {" 2017-04-09", true, 2457852.5}, {"05/06/96", true, 2450239.5},
                          {"1996-06-", false, 0},           {"", false, 0},
                          {"2010-13-01", false, 0},         {"2010-12-24X", false, 0},
                          {"24-12-2010", false, 0}};
    for (const Case& c : cases) {
        double jd = -1;
        EXPECT_EQ(AFitsParseDate(c.text, jd), c.ok) << c.text;
        if (c.ok) {
            EXPECT_EQ(jd, c.jd0) << c.text;
        }
    }
    EXPECT_EQ(AFitsDateText(2455554.5), "2010-12-24");
    EXPECT_EQ(AFitsDateText(2455555.4999), "2010-12-24");
    EXPECT_EQ(AFitsDateText(2455555.5), "2010-12-25");
}

TEST(FitsConventions, SiderealTimeAtZeroHours) {
    // 2000-01-01 0h UT: GMST 6h 39m 52.2707s.
    EXPECT_NEAR(AFitsGmstDegrees(2451544.5), (6 + 39 / 60.0 + 52.2707 / 3600.0) * 15.0, 2e-5);
    // The value AIPS wrote as GSTIA0 into the AN table of the VLBA file of 2010-12-24.
    EXPECT_NEAR(AFitsGmstDegrees(2455554.5), 92.41373817475599, 5e-3);
    // And the one in the EHT file of 2017-04-09.
    EXPECT_NEAR(AFitsGmstDegrees(2457852.5), 197.4309856239707, 5e-3);
}

TEST(FitsConventions, BaselineCodes) {
    struct Case {
        double code;
        int a1, a2, sub;
    };
    // Codes as a float parameter carries them: the subarray's hundredths come back despite rounding.
    const Case cases[] = {{259.0, 1, 3, 1},
                          {static_cast<float>(258.01), 1, 2, 2},
                          {static_cast<float>(2570.03), 10, 10, 4},
                          {16448.0, 64, 64, 1},
                          {65536.0 + 2048.0 * 300 + 5, 300, 5, 1},
                          {65536.0 + 2048.0 * 2 + 1000 + 0.01, 2, 1000, 2}};
    for (const Case& c : cases) {
        const AFitsBaseline b = AFitsDecodeBaseline(c.code);
        EXPECT_EQ(b.ant1, c.a1) << c.code;
        EXPECT_EQ(b.ant2, c.a2) << c.code;
        EXPECT_EQ(b.subarray, c.sub) << c.code;
    }
    EXPECT_EQ(AFitsEncodeBaseline(1, 3), 259.0);
    EXPECT_EQ(AFitsEncodeBaseline(64, 63), 64 * 256.0 + 63);
    EXPECT_NEAR(AFitsEncodeBaseline(1, 2, 3), 258.02, 1e-12);
    EXPECT_EQ(AFitsEncodeBaseline(255, 255), 255 * 256.0 + 255);
    EXPECT_EQ(AFitsEncodeBaseline(256, 1), 65536.0 + 2048.0 * 256 + 1);
    for (int a1 = 1; a1 <= 64; a1 += 7)
        for (int a2 = a1; a2 <= 64; a2 += 5) {
            const AFitsBaseline b = AFitsDecodeBaseline(static_cast<float>(AFitsEncodeBaseline(a1, a2)));
            EXPECT_TRUE(b.ant1 == a1 && b.ant2 == a2 && b.subarray == 1) << a1 << "-" << a2;
        }
}

TEST(FitsConventions, StokesCodesAndNames) {
    const std::vector<std::pair<int, std::string>> known = {{-1, "RR"}, {-2, "LL"}, {-3, "RL"}, {-4, "LR"},
                                                            {-5, "XX"}, {-6, "YY"}, {-7, "XY"}, {-8, "YX"},
                                                            {1, "I"},   {2, "Q"},   {3, "U"},   {4, "V"}};
    for (const auto& k : known) {
        EXPECT_TRUE(AFitsStokesSupported(k.first)) << k.first;
        EXPECT_EQ(AFitsStokesName(k.first), k.second);
    }
    for (int code : {0, -9, 5, 100}) {
        EXPECT_FALSE(AFitsStokesSupported(code)) << code;
        EXPECT_STREQ(AFitsStokesName(code), "?");
    }
}

TEST(FitsConventions, NamesStopAtNulAndLoseTrailingBlanks) {
    const char field[8] = {'E', 'F', '\0', 'X', 'Y', 'Z', ' ', ' '};
    EXPECT_EQ(AFitsTrimName(field, sizeof field), "EF");
    const char full[8] = {'3', 'C', '8', '4', ' ', ' ', ' ', ' '};
    EXPECT_EQ(AFitsTrimName(full, sizeof full), "3C84");
    EXPECT_EQ(AFitsTrimName(std::string("A B  ")), "A B");
    EXPECT_EQ(AFitsTrimName(std::string(" LEAD")), " LEAD");
    EXPECT_EQ(AFitsTrimName(std::string("    ")), "");
}

// Records made from right-handed positions point to right; the same positions with Y negated (as a
// left-handed table holds them) point to left, whichever sign the writer gave the baseline.
TEST(FitsConventions, HandednessFromTheRecordsGeometry) {
    const double c = 299792458.0, pi = 3.14159265358979323846;
    const double st[3][3] = {{4033947.2, 486990.5, 4900430.9},
                             {-2112065.2, -3705356.5, 4726813.7},
                             {1446374.9, -4447939.7, 4322306.2}};
    std::vector<AFitsUvwSample> right, mirrored;
    for (int k = 0; k < 40; ++k) {
        const int i = k % 3, j = (k + 1) % 3;
        AFitsUvwSample s;
        s.jd = 2455554.5 + k * 0.01;
        s.ra = 158.46;
        s.dec = 60.85;
        double b[3];
        for (int q = 0; q < 3; ++q) b[q] = st[j][q] - st[i][q];
        const double jd0 = std::floor(s.jd - 0.5) + 0.5;
        const double h = (AFitsGmstDegrees(jd0) + 360.98564736629 * (s.jd - jd0) - s.ra) * pi / 180.0;
        const double d = s.dec * pi / 180.0;
        const double sign = k % 2 ? 1.0 : -1.0;
        s.u = sign * (std::sin(h) * b[0] + std::cos(h) * b[1]) / c;
        s.v = sign *
              (-std::sin(d) * std::cos(h) * b[0] + std::sin(d) * std::sin(h) * b[1] + std::cos(d) * b[2]) / c;
        s.w = sign *
              (std::cos(d) * std::cos(h) * b[0] - std::cos(d) * std::sin(h) * b[1] + std::sin(d) * b[2]) / c;
        for (int q = 0; q < 3; ++q) s.b[q] = b[q];
        right.push_back(s);
        s.b[1] = -b[1];
        mirrored.push_back(s);
    }
    double r = 0, l = 0;
    AFitsHandednessResiduals(right.data(), static_cast<int>(right.size()), r, l);
    EXPECT_LT(r, 1e-12);
    EXPECT_GT(l, 1e-3);
    AFitsHandednessResiduals(mirrored.data(), static_cast<int>(mirrored.size()), r, l);
    EXPECT_LT(l, 1e-12);
    EXPECT_GT(r, 1e-3);
    AFitsHandednessResiduals(nullptr, 0, r, l);
    EXPECT_EQ(r, 0.0);
    EXPECT_EQ(l, 0.0);
}

// Values of a damaged file must not reach an integer conversion that has no defined result.
TEST(FitsConventions, NonsenseNumbersBecomeHarmlessIntegers) {
    EXPECT_EQ(AFitsToInt(NAN), 0);
    EXPECT_EQ(AFitsToInt(1e20), 2147483647);
    EXPECT_EQ(AFitsToInt(-1e20), -2147483647 - 1);
    EXPECT_EQ(AFitsToInt(2.5), 3);
    EXPECT_EQ(AFitsToInt(-2.5), -3);
    EXPECT_EQ(AFitsToInt(7.0), 7);
    for (double code : {static_cast<double>(NAN), -5.0, 1e12, static_cast<double>(INFINITY)}) {
        const AFitsBaseline b = AFitsDecodeBaseline(code);
        EXPECT_EQ(b.ant1, 0) << code;
        EXPECT_EQ(b.ant2, 0) << code;
    }
}
