// Tests of AVanFlakeCorrect: the quantisation factor of each antenna's digitiser applied per baseline.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include <merovane/digitisation/AVanFlakeCorrect.h>

#include "DigitisationFixtures.h"

using namespace digtest;

namespace {

// The published losses for 1 to 8 bits per sample, as the correction keeps them (32-bit floats).
const float kLoss[8] = {0.63662f, 0.88f, 0.94f, 0.96f, 0.98f, 0.99f, 0.996f, 0.998f};

// Fills a record with varied values, so that a scale or product rounded in float instead of double
// shows in some of them. A few elements are flagged.
void Vary(AUVXVisibility& v, float offset) {
    for (int k = 0; k < v.count; ++k)
        v.data[k] = AUVXComplex{offset + 0.0137f * k - 3.0f, -offset + 0.0071f * k,
                                (k % 7 == 3) ? -1.0f : (k % 11 == 5 ? 0.0f : 0.5f + 0.01f * k)};
}

double ScaleFor(float f1, float f2) {
    return 1.0 / std::sqrt(static_cast<double>(f1) * static_cast<double>(f2));
}

}  // namespace

TEST(AVanFlakeCorrect, FactorTable) {
    for (int n = 1; n <= 8; ++n)
        EXPECT_EQ(AVanFlakeCorrect::Factor(n), static_cast<double>(kLoss[n - 1])) << n;
    EXPECT_EQ(AVanFlakeCorrect::Factor(0), 1.0);
    EXPECT_EQ(AVanFlakeCorrect::Factor(-2), 1.0);
    EXPECT_EQ(AVanFlakeCorrect::Factor(9), 1.0);
    // The one-bit loss is 2/pi to five places.
    EXPECT_NEAR(AVanFlakeCorrect::Factor(1), 2.0 / std::acos(-1.0), 5e-6);
}

TEST(AVanFlakeCorrect, AutocorrelationsStayBitForBit) {
    AAIShortTbl table = Table({{1, 1, 1, 0.0, 100.0}, {2, 1, 2, 0.0, 100.0}});
    AVanFlakeCorrect van;
    van.Init(table);
    Interval iv(2, 8, 4);
    Vary(iv.Add(1, 1, 0.0f, 0.0f, 1.0f, 10.0), 1.7f);
    Vary(iv.Add(2, 2, 0.0f, 0.0f, 1.0f, 10.0), -0.3f);
    const auto before = iv.Snapshot();
    EXPECT_TRUE(van.Calculate(iv.vis, iv.groups, 0.0, 100.0));
    EXPECT_EQ(iv.Snapshot(), before);
}

TEST(AVanFlakeCorrect, BaselineDividedByGeometricMeanOfFactors) {
    // Antennas 1 and 2 have 2 bits, 3 and 4 one bit.
    AAIShortTbl table =
        Table({{1, 1, 2, 0.0, 100.0}, {2, 1, 2, 0.0, 100.0}, {3, 1, 1, 0.0, 100.0}, {4, 1, 1, 0.0, 100.0}});
    AVanFlakeCorrect van;
    van.Init(table);
    const int ants[4][2] = {{1, 2}, {3, 4}, {3, 2}, {1, 4}};
    const float f1[4] = {0.88f, 0.63662f, 0.63662f, 0.88f}, f2[4] = {0.88f, 0.63662f, 0.88f, 0.63662f};
    Interval iv(2, 16, 2);
    std::vector<AUVXComplex> before[4];
    for (int b = 0; b < 4; ++b) {
        AUVXVisibility& v = iv.Add(ants[b][0], ants[b][1], 0.0f, 0.0f, 1.0f, 5.0);
        Vary(v, 1.0f + b);
        before[b].assign(v.begin(), v.end());
    }
    EXPECT_TRUE(van.Calculate(iv.vis, iv.groups, 0.0, 100.0));
    for (int b = 0; b < 4; ++b)
        for (int k = 0; k < iv.vis[b]->count; ++k) {
            const AUVXComplex& got = iv.vis[b]->data[k];
            ASSERT_EQ(got.re, Scaled(before[b][k].re, ScaleFor(f1[b], f2[b])))
                << "baseline " << b << " element " << k;
            ASSERT_EQ(got.im, Scaled(before[b][k].im, ScaleFor(f1[b], f2[b])))
                << "baseline " << b << " element " << k;
            ASSERT_EQ(got.wt, before[b][k].wt) << "baseline " << b << " element " << k;
        }
    // Against the plain numbers: divided by 0.88, by 0.63662, and by sqrt(0.63662 x 0.88).
    EXPECT_NEAR(iv.vis[0]->data[0].re, before[0][0].re / 0.88, 1e-6 * std::fabs(before[0][0].re));
    EXPECT_NEAR(iv.vis[1]->data[5].im, before[1][5].im / 0.63662, 1e-6 * std::fabs(before[1][5].im));
    EXPECT_NEAR(iv.vis[2]->data[9].re, before[2][9].re / std::sqrt(0.63662 * 0.88),
                1e-6 * std::fabs(before[2][9].re));
}

TEST(AVanFlakeCorrect, EachAntennaGoesByItsRowForSetupAndTime) {
    // Antenna 1 changes from 1 to 2 bits at 100 s. Rows without a factor count as 1.0: 1 level
    // (0 bits), 9 bits, and the 64 that Correct makes of 45; antenna 6 has a row of another setup
    // only, antenna 7 none.
    AAIShortTbl table = Table({{1, 1, 1, 0.0, 100.0},
                               {1, 1, 2, 100.0, 200.0},
                               {2, 1, 2, 0.0, 200.0},
                               {3, 1, 0, 0.0, 200.0},
                               {4, 1, 9, 0.0, 200.0},
                               {5, 1, 64, 0.0, 200.0},
                               {6, 2, 1, 0.0, 200.0}});
    AVanFlakeCorrect van;
    van.Init(table);
    // {ant1, ant2, time, f1, f2}
    const float cases[7][5] = {{1, 2, 99, 0.63662f, 0.88f},  // before the change
                               {1, 2, 100, 0.88f, 0.88f},    // at the first row's end
                               {2, 1, 500, 0.88f, 0.88f},    // past every end
                               {2, 7, 50, 0.88f, 1},         // an antenna without a row
                               {3, 2, 50, 1, 0.88f},         // one level
                               {4, 5, 50, 1, 1},             // beyond 8 bits
                               {6, 7, 50, 1, 1}};            // another setup
    Interval iv(1, 4, 1);
    for (const auto& c : cases) iv.Add(int(c[0]), int(c[1]), 2.0f, 1.0f, 1.0f, c[2]);
    van.Calculate(iv.vis, iv.groups, 0.0, 100.0);
    for (int i = 0; i < 7; ++i) {
        const double s = ScaleFor(cases[i][3], cases[i][4]);
        for (int k = 0; k < 4; ++k)
            ExpectElement(iv.vis[i]->data[k], Scaled(2.0f, s), Scaled(1.0f, s), 1.0f, "row");
    }
}

TEST(AVanFlakeCorrect, NothingToDoAndCopiesShareTheTable) {
    AAIShortTbl table = Table({{1, 1, 2, 0.0, 100.0}, {2, 1, 2, 0.0, 100.0}});
    AVanFlakeCorrect van, bare;
    van.Init(table);
    Interval empty(1, 4, 1), iv(1, 4, 1);
    EXPECT_TRUE(van.Calculate(empty.vis, empty.groups, 0.0, 0.0));
    // Without a table every antenna lacks a row.
    iv.Add(1, 2, 3.0f, 4.0f, 1.0f);
    const auto before = iv.Snapshot();
    EXPECT_TRUE(bare.Calculate(iv.vis, iv.groups, 0.0, 0.0));
    EXPECT_EQ(iv.Snapshot(), before);
    AVanFlakeCorrect copy = van;
    copy.Calculate(iv.vis, iv.groups, 0.0, 0.0);
    EXPECT_EQ(iv.vis[0]->data[2].re, Scaled(3.0f, ScaleFor(0.88f, 0.88f)));
}
