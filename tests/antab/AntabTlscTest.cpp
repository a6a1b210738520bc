// Tests of one telescope: INDEX items, row dates, Tsys lookup (scan and index alike) and the gain.
#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include <merovane/antab/AAntabTlsc.h>
#include <merovane/platform/Afx.h>

#include "AntabTestUvx.h"

namespace {

// A telescope named AA with one row per entry of `rows`: {day, fraction, values...}.
AAntabTlsc MakeTlsc(int positions, std::initializer_list<std::initializer_list<double>> rows = {},
                    bool scan = false) {
    AAntabTlsc t;
    t.m_name = "AA";
    t.m_forceScan = scan;
    t.m_tsys.SetCols(positions + 2);
    for (const auto& values : rows) {
        double* row = t.m_tsys.AddRow();
        for (double v : values) *row++ = v;
    }
    return t;
}

AUVXSourceItem Source(double ra, double dec) {
    AUVXSourceItem s;
    std::memset(&s, 0, sizeof s);
    s.id = 1;
    s.ra = ra;
    s.dec = dec;
    return s;
}

struct Query {
    double time;
    int position;
    double expected;
};

// Each query answered, with exactly the expected value or (`near`) within 4 ulps of it.
void ExpectTsys(AAntabTlsc& t, std::initializer_list<Query> queries, bool near = false) {
    for (const Query& q : queries) {
        double v = 0;
        ASSERT_TRUE(t.GetTsys(q.time, q.position, v)) << q.time << " " << q.position;
        if (near)
            EXPECT_DOUBLE_EQ(v, q.expected) << q.time << " " << q.position << " scan " << t.m_forceScan;
        else
            EXPECT_EQ(v, q.expected) << q.time << " " << q.position << " scan " << t.m_forceScan;
    }
}

}  // namespace

TEST(AntabTlsc, ColumnInfoParse) {
    AAntabTlsc t;
    struct Case {
        const char* text;
        int pol, first, last;
    } cases[] = {
        {"R1:4", -1, 1, 4},  {"L3", -2, 3, 3},       {"X", 0, -1, -1},   {"X5:9", 0, -1, -1},
        {"R12", -1, 12, 12}, {"L2.9", -2, 2, 2},     {"R3:1", -1, 3, 1}, {"R", -1, 0, 0},
        {"R1|L1", -1, 1, 1}, {"L33:64", -2, 33, 64}, {"", 0, -1, -1},    {"Y1", 0, -1, -1},
        {":4", 0, -1, -1},
    };
    for (const Case& c : cases) {
        CString text(c.text);
        AColumnInfo info{99, 99, 99};
        EXPECT_TRUE(t.ColumnInfoParse(text, info));
        EXPECT_EQ(info.pol, c.pol) << c.text;
        EXPECT_EQ(info.first, c.first) << c.text;
        EXPECT_EQ(info.last, c.last) << c.text;
    }
}

TEST(AntabTlsc, FixDate) {
    // 2021-01-01 is MJD 59215; 2021-02-01 is 59246; 2022-01-01 is 59580. A day 1 behind day 366
    // makes no year change.
    AAntabTlsc t = MakeTlsc(1, {{1, 0.25, 1}, {32.7, 0.5, 1}, {366, 0.0, 1}, {1, 0.0, 1}});
    t.FixDate(2459215.5 + 0.3);  // during 2021-01-01
    const double expected[4][2] = {{59215, 0.25}, {59246, 0.5}, {59580, 0}, {59215, 0}};
    for (int r = 0; r < 4; ++r) {
        EXPECT_EQ(t.m_tsys.Row(r)[0], expected[r][0]) << r;
        EXPECT_EQ(t.m_tsys.Row(r)[1], expected[r][1]) << r;
    }

    // Leap year: day 60 of 2020 is 29 February, MJD 58908; day 61 is 1 March.
    AAntabTlsc leap = MakeTlsc(1, {{60, 0, 1}, {61, 0, 1}});
    leap.FixDate(2458849.5);  // 2020-01-01
    EXPECT_EQ(leap.m_tsys.Row(0)[0], 58908.0);
    EXPECT_EQ(leap.m_tsys.Row(1)[0], 58909.0);

    // A reference date before 1900 cannot be turned into a year.
    AAntabTlsc old = MakeTlsc(1);
    EXPECT_THROW(old.FixDate(2400000.5), COleException);
}

TEST(AntabTlsc, TsysInterpolationAndHold) {
    for (bool scan : {false, true}) {
        // Position 0 has no measurement at t = 11, position 1 a negative value there, which is no
        // measurement either.
        AAntabTlsc t = MakeTlsc(2, {{10, 0, 20, 7}, {11, 0, 0, 9}, {12, 0, 40, -3}}, scan);
        t.m_ft = 2.0;
        // (20 + 40) / 2 x 2 across the row without a value; the ends held.
        ExpectTsys(t, {{11, 0, 60}, {11.5, 0, 70}, {10.5, 1, 16}}, true);
        ExpectTsys(t, {{9, 0, 40}, {13, 0, 80}, {10, 0, 40}, {12, 0, 80}, {100, 1, 18}, {-100, 1, 14}});

        // Day and fraction both make the time; equal times give the first of them, and the
        // interpolation behind them starts from the second.
        AAntabTlsc e = MakeTlsc(1, {{59215, 0.25, 20}, {59215, 0.25, 30}, {59215, 0.75, 50}}, scan);
        ExpectTsys(e, {{59215.25, 0, 20}});
        ExpectTsys(e, {{59215.5, 0, 40}}, true);

        // A single measured row answers every time.
        AAntabTlsc one = MakeTlsc(1, {{5, 0, 0}, {6, 0, 25}, {7, 0, 0}}, scan);
        ExpectTsys(one, {{0, 0, 25}, {6, 0, 25}, {6.5, 0, 25}, {1e6, 0, 25}});

        // Rows out of order: the scan stops at the first row at or after the time, with the last
        // row below it as the previous one.
        AAntabTlsc u = MakeTlsc(1, {{12, 0, 40}, {10, 0, 20}, {14, 0, 60}}, scan);
        ExpectTsys(u, {{11, 0, 40}, {15, 0, 60}});
        ExpectTsys(u, {{13, 0, 50}}, true);

        // Not found: no rows, no measurement in the column, or a position outside the table.
        AAntabTlsc n = MakeTlsc(2, {}, scan);
        double v = -1;
        EXPECT_FALSE(n.GetTsys(59215.25, 0, v));
        EXPECT_EQ(n.m_errMsg, "Error> <AAntabTlsc> AN=AA, TSYS for 06:00:00.00 not found.");
        n = MakeTlsc(2, {{59215, 0.5, 0, 5}, {59215, 0.6, -2, std::nan("")}}, scan);
        EXPECT_FALSE(n.GetTsys(59216.5 + 30.5 / 86400, 0, v));
        EXPECT_EQ(n.m_errMsg, "Error> <AAntabTlsc> AN=AA, TSYS for 12:00:30.50 not found.");
        EXPECT_EQ(v, -1);
        // A success does not clear the message.
        EXPECT_TRUE(n.GetTsys(59215, 1, v));
        EXPECT_EQ(v, 5.0);
        EXPECT_EQ(n.m_errMsg, "Error> <AAntabTlsc> AN=AA, TSYS for 12:00:30.50 not found.");
        for (int position : {2, -1, -2}) EXPECT_FALSE(n.GetTsys(59215, position, v)) << position;
    }
}

TEST(AntabTlsc, IndexFollowsTableChanges) {
    AAntabTlsc t = MakeTlsc(1, {{10, 0, 20}, {12, 0, 40}});
    ExpectTsys(t, {{13, 0, 40}});
    t.m_tsys.AddRow()[2] = 80;  // a new row is seen without a reset
    t.m_tsys.Row(2)[0] = 14;
    ExpectTsys(t, {{13, 0, 60}}, true);
    t.m_tsys.Row(2)[2] = 100;  // in place: needs the reset
    t.ResetTsysIndex();
    ExpectTsys(t, {{13, 0, 70}}, true);
    t.FixDate(2459215.5);  // rows move to MJDs; FixDate drops the index itself
    // Days 10, 12, 14 of 2021 are MJD 59224, 59226, 59228.
    ExpectTsys(t, {{59225, 0, 30}}, true);
}

// The index must answer exactly as the scan: same success, same value to the bit, same message.
TEST(AntabTlsc, IndexMatchesScanOnRandomQueries) {
    std::mt19937_64 rng(20261123);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const int positions = 4;
    long long queries = 0;
    for (int shape = 0; shape < 7; ++shape) {
        AAntabTlsc fast = MakeTlsc(positions);
        fast.m_ft = 1.3;
        double time = 59215.0;
        // Times: shapes 0, 3, 4 ascend strictly, 1 and 5 have runs of equal times, 2 and 6 a few
        // rows out of order. Values: sparse columns everywhere; shape 3 has a column without any
        // measurement; shapes 4 to 6 have columns 0 and 1 measured in every row.
        const bool equalRuns = shape == 1 || shape == 5;
        const bool unsorted = shape == 2 || shape == 6;
        for (int r = 0; r < 400; ++r) {
            double* row = fast.m_tsys.AddRow();
            if (equalRuns && unit(rng) < 0.3) {
                // same time as the last row
            } else if (unsorted && unit(rng) < 0.05) {
                time -= 0.01;
            } else {
                time += 0.001 + 0.01 * unit(rng);
            }
            row[0] = std::floor(time);
            row[1] = time - std::floor(time);
            for (int p = 0; p < positions; ++p) {
                const double u = unit(rng);
                double value = 50 + 100 * unit(rng);
                if (u < 0.2) value = 0.0;
                if (u < 0.05) value = -1.0;
                if (shape == 3 && (p == 2 || u < 0.9)) value = 0.0;
                if (shape >= 4 && p < 2) value = 50 + 100 * u;
                row[p + 2] = value;
            }
        }
        AAntabTlsc scan(fast);
        scan.m_forceScan = true;
        const double lo = fast.m_tsys.Row(0)[0] - 0.5;
        const double hi = time + 0.5;
        // Every position at one time, as a record asks, and now and then one position alone.
        for (int q = 0; q < 3600; ++q) {
            double t = lo + (hi - lo) * unit(rng);
            if (q % 37 == 0) {  // exactly on a row's time
                const double* row = fast.m_tsys.Row(static_cast<int>(unit(rng) * fast.m_tsys.rows));
                t = row[1] + row[0];
            }
            for (int k = 0; k < positions + 1; ++k) {
                const int p = k < positions ? k : static_cast<int>(unit(rng) * positions);
                const double tq = k < positions ? t : lo + (hi - lo) * unit(rng);
                double a = -7, b = -7;
                const bool okA = fast.GetTsys(tq, p, a);
                const bool okB = scan.GetTsys(tq, p, b);
                ++queries;
                ASSERT_EQ(okA, okB) << shape << " " << q;
                ASSERT_EQ(std::memcmp(&a, &b, sizeof a), 0) << shape << " " << q << " " << a << " " << b;
                ASSERT_EQ(fast.m_errMsg, scan.m_errMsg);
            }
        }
    }
    EXPECT_GE(queries, 100000);
}

TEST(AntabTlsc, Gain) {
    AAntabTlsc t;
    t.m_name = "EF";
    t.m_freqLow = 1e9;
    t.m_freqHigh = 2e9;
    t.m_dpfu[0] = 0.5;
    t.m_dpfu[1] = 0.25;
    auto poly = [&](std::initializer_list<double> coefficients) {
        t.m_poly.Free();
        for (double c : coefficients) t.m_poly.Add(c);
    };
    AUVXSourceItem src = Source(10, 20);
    double g[2] = {0, 0};
    ASSERT_TRUE(t.GetGain(59215, 1e9, src, g));  // both limits belong to the range
    EXPECT_EQ(g[0], 0.5);
    EXPECT_EQ(g[1], 0.25);
    ASSERT_TRUE(t.GetGain(59215, 2e9, src, g));
    for (double freq : {2e9 + 1, 1e9 - 1}) {
        t.m_errMsg = "";
        EXPECT_FALSE(t.GetGain(59215, freq, src, g));
        EXPECT_EQ(t.m_errMsg, "Error> <AAntabTlsc> AN=EF, freq. not in range");
    }

    // One coefficient: a constant factor, whatever the kind.
    poly({0.8});
    ASSERT_TRUE(t.GetGain(59215, 1.5e9, src, g));
    EXPECT_EQ(g[0], 0.4);
    EXPECT_EQ(g[1], 0.2);

    // Two coefficients and no kind.
    poly({0.8, 0.001});
    for (int kind : {0, 7}) {
        t.m_polyType = kind;
        t.m_errMsg = "";
        EXPECT_FALSE(t.GetGain(59215, 1.5e9, src, g));
        EXPECT_EQ(t.m_errMsg, "Error> <AAntabTlsc> AN=EF, m_polyType == 0");
    }

    // At the north pole a source stands at its declination above the horizon at every hour.
    t.m_z = 6356752.0;
    t.m_polyType = 1;
    t.m_dpfu[0] = 2.0;
    t.m_dpfu[1] = 3.0;
    poly({1.0, -0.01, 0.0001});
    for (double time : {59215.0, 59215.3, 60000.9}) {
        AUVXSourceItem s = Source(123.0, 30.0);
        ASSERT_TRUE(t.GetGain(time, 1e9, s, g));
        const double p = 1.0 - 0.01 * 30 + 0.0001 * 900;  // 0.79
        EXPECT_NEAR(g[0], 2 * p, 1e-9);
        EXPECT_NEAR(g[1], 3 * p, 1e-9);
    }
    t.m_polyType = 2;  // zenith angle 60
    poly({0.0, 1.0});
    src = Source(0.0, 30.0);
    ASSERT_TRUE(t.GetGain(59215.1, 1e9, src, g));
    EXPECT_NEAR(g[0], 120.0, 1e-8);
    EXPECT_NEAR(g[1], 180.0, 1e-8);

    // On the equator at longitude 0, at 12h UT of 1 January 2000 (MJD 51544.5): the hour angle of
    // right ascension 0 is the sidereal time, 18.697374558 h = 280.46061837 degrees.
    const double r = 6378137.0;
    t.m_x = r;
    t.m_z = 0.0;
    t.m_polyType = 3;
    t.m_dpfu[0] = 1.0;
    t.m_dpfu[1] = 2.0;
    src = Source(0.0, 10.0);
    ASSERT_TRUE(t.GetGain(51544.5, 1e9, src, g));
    EXPECT_NEAR(g[0], 280.46061837, 1e-3);
    EXPECT_NEAR(g[1], 2 * 280.46061837, 2e-3);
    const double h0 = g[0];
    struct Case {
        double ra, x, y, mjd, offset, tolerance;
        const char* why;
    } cases[] = {
        {-360, r, 0, 51544.5, 360, 1e-9, "not reduced to a range: one turn lower gives H + 360"},
        {360, r, 0, 51544.5, -360, 1e-9, "one turn higher gives H - 360"},
        {30, r, 0, 51544.5, -30, 1e-9, "right ascension 30 degrees is 2 hours"},
        {0, 0, r, 51544.5, 90, 1e-9, "a station 90 degrees east"},
        {0, 0, -r, 51544.5, 270, 1e-9, "90 degrees west: longitude 270 degrees, never negative"},
        {0, r, 0, 51544.75, 6 * 15 * 1.0027379, 1e-3, "six hours of UT: 6 x 1.0027379 sidereal hours"},
    };
    for (const Case& c : cases) {
        t.m_x = c.x;
        t.m_y = c.y;
        src = Source(c.ra, 10.0);
        ASSERT_TRUE(t.GetGain(c.mjd, 1e9, src, g));
        EXPECT_NEAR(g[0], h0 + c.offset, c.tolerance) << c.why;
    }
}

TEST(AntabTlsc, CopyAndMove) {
    AAntabTlsc a = MakeTlsc(2, {{10, 0, 20, 30}, {12, 0, 40, 50}});
    a.m_name = "ON";
    a.m_dpfu[1] = 0.7;
    a.m_poly.Add(1.0);
    a.m_index.Add(AColumnInfo{-1, 1, 2});
    a.m_index2.Add(AColumnInfo{-2, 1, 1});
    ExpectTsys(a, {{11, 0, 30}}, true);  // builds the source's index

    AAntabTlsc b(a);
    EXPECT_STREQ(b.m_name, "ON");
    // DPFU, rows; copies hold just what they need: capacities equal to the counts.
    EXPECT_EQ(D(b.m_dpfu[1], b.m_tsys.rows, b.m_tsys.capacity, b.m_poly.capacity, b.m_index.capacity,
                b.m_index2.count),
              D(0.7, 2, 2, 1, 1, 1));
    EXPECT_NE(b.m_tsys.data, a.m_tsys.data);
    EXPECT_NE(b.m_poly.data, a.m_poly.data);
    b.m_tsys.Row(1)[2] = 60;
    ExpectTsys(b, {{11, 0, 40}}, true);
    ExpectTsys(a, {{11, 0, 30}}, true);

    AAntabTlsc c;
    c = std::move(a);  // leaves the source as it was
    EXPECT_EQ(a.m_tsys.rows, 2);
    EXPECT_NE(a.m_tsys.data, nullptr);
    EXPECT_EQ(c.m_tsys.rows, 2);
    EXPECT_NE(c.m_tsys.data, a.m_tsys.data);
    EXPECT_EQ(c.m_index2[0].pol, -2);
    AAntabTlsc d(std::move(c));
    EXPECT_EQ(c.m_poly.count, 1);
    EXPECT_EQ(d.m_poly.count, 1);
    ExpectTsys(d, {{11, 1, 40}}, true);

    // The table grows by its step and keeps its rows.
    ATsysTable table;
    table.SetCols(3);
    table.growBy = 2;
    for (int r = 0; r < 5; ++r) table.AddRow()[0] = r;
    EXPECT_EQ(table.capacity, 6);
    for (int r = 0; r < 5; ++r) EXPECT_EQ(table.Row(r)[0], r);
    ATsysTable copy;
    copy = table;
    EXPECT_EQ(copy.capacity, 5);
    EXPECT_EQ(copy.Row(4)[0], 4.0);
}
