// Tests of AVanFlakeCorrect: the quantisation factor of each antenna's digitiser applied per baseline.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include <merovane/digitisation/AVanFlakeCorrect.h>

#include "DigitisationFixtures.h"

using digtest::Interval;
using digtest::Item;
using digtest::Scaled;

namespace {

// The published losses for 1 to 8 bits per sample, as the correction keeps them (32-bit floats).
const float kLoss[8] = {0.63662f, 0.88f, 0.94f, 0.96f, 0.98f, 0.99f, 0.996f, 0.998f};

double ScaleFor(float fa, float fb) {
    return 1.0 / std::sqrt(static_cast<double>(fa) * static_cast<double>(fb));
}

// Fills a record with varied values, so that a scale or product rounded in float instead of double
// shows in some of them. A few elements are flagged.
void Vary(AUVXVisibility& v, float offset) {
    for (int k = 0; k < v.count; ++k) {
        v.data[k].re = offset + 0.0137f * k - 3.0f;
        v.data[k].im = -offset + 0.0071f * k;
        v.data[k].wt = (k % 7 == 3) ? -1.0f : (k % 11 == 5 ? 0.0f : 0.5f + 0.01f * k);
    }
}

void ExpectScaledBy(const AUVXVisibility& got, const std::vector<AUVXComplex>& before, double s,
                    const char* what) {
    ASSERT_EQ(got.count, static_cast<int>(before.size()));
    for (int k = 0; k < got.count; ++k) {
        ASSERT_EQ(got.data[k].re, Scaled(before[k].re, s)) << what << " element " << k;
        ASSERT_EQ(got.data[k].im, Scaled(before[k].im, s)) << what << " element " << k;
        ASSERT_EQ(got.data[k].wt, before[k].wt) << what << " element " << k;
    }
}

std::vector<AUVXComplex> Copy(const AUVXVisibility& v) {
    return std::vector<AUVXComplex>(v.begin(), v.end());
}

}  // namespace

TEST(AVanFlakeCorrect, FactorTable) {
    for (int n = 1; n <= 8; ++n)
        EXPECT_EQ(AVanFlakeCorrect::Factor(n), static_cast<double>(kLoss[n - 1])) << n;
    EXPECT_EQ(AVanFlakeCorrect::Factor(0), 1.0);
    EXPECT_EQ(AVanFlakeCorrect::Factor(-2), 1.0);
    EXPECT_EQ(AVanFlakeCorrect::Factor(9), 1.0);
    EXPECT_EQ(AVanFlakeCorrect::Factor(64), 1.0);
    // The one-bit loss is 2/pi to five places.
    EXPECT_NEAR(AVanFlakeCorrect::Factor(1), 2.0 / std::acos(-1.0), 5e-6);
}

TEST(AVanFlakeCorrect, AutocorrelationsStayBitForBit) {
    AAIShortTbl table;
    table.Add(Item(1, 1, 1, 0.0, 100.0));
    table.Add(Item(2, 1, 2, 0.0, 100.0));
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
    AAIShortTbl table;
    table.Add(Item(1, 1, 2, 0.0, 100.0));
    table.Add(Item(2, 1, 2, 0.0, 100.0));
    table.Add(Item(3, 1, 1, 0.0, 100.0));
    table.Add(Item(4, 1, 1, 0.0, 100.0));
    AVanFlakeCorrect van;
    van.Init(table);
    EXPECT_EQ(van.table, &table);
    Interval iv(2, 16, 2);
    AUVXVisibility& twoTwo = iv.Add(1, 2, 0.0f, 0.0f, 1.0f, 5.0);
    AUVXVisibility& oneOne = iv.Add(3, 4, 0.0f, 0.0f, 1.0f, 5.0);
    AUVXVisibility& oneTwo = iv.Add(3, 2, 0.0f, 0.0f, 1.0f, 5.0);
    AUVXVisibility& twoOne = iv.Add(1, 4, 0.0f, 0.0f, 1.0f, 5.0);
    Vary(twoTwo, 1.0f);
    Vary(oneOne, 2.0f);
    Vary(oneTwo, 3.0f);
    Vary(twoOne, 4.0f);
    const auto b22 = Copy(twoTwo), b11 = Copy(oneOne), b12 = Copy(oneTwo), b21 = Copy(twoOne);
    EXPECT_TRUE(van.Calculate(iv.vis, iv.groups, 0.0, 100.0));
    ExpectScaledBy(twoTwo, b22, ScaleFor(0.88f, 0.88f), "2 and 2 bits");
    ExpectScaledBy(oneOne, b11, ScaleFor(0.63662f, 0.63662f), "1 and 1 bit");
    ExpectScaledBy(oneTwo, b12, ScaleFor(0.63662f, 0.88f), "1 and 2 bits");
    ExpectScaledBy(twoOne, b21, ScaleFor(0.88f, 0.63662f), "2 and 1 bits");
    // Against the plain numbers: divided by 0.88, by 0.63662, and by sqrt(0.63662 x 0.88).
    EXPECT_NEAR(twoTwo.data[0].re, b22[0].re / 0.88, 1e-6 * std::fabs(b22[0].re));
    EXPECT_NEAR(oneOne.data[5].im, b11[5].im / 0.63662, 1e-6 * std::fabs(b11[5].im));
    EXPECT_NEAR(oneTwo.data[9].re, b12[9].re / std::sqrt(0.63662 * 0.88), 1e-6 * std::fabs(b12[9].re));
}

TEST(AVanFlakeCorrect, EveryBitCountHasItsFactor) {
    for (int n = 1; n <= 8; ++n) {
        AAIShortTbl table;
        table.Add(Item(1, 1, n, 0.0, 100.0));
        table.Add(Item(2, 1, n, 0.0, 100.0));
        AVanFlakeCorrect van;
        van.Init(table);
        Interval iv(1, 1, 1);
        AUVXVisibility& v = iv.Add(1, 2, 1000.0f, -500.0f, 3.0f, 1.0);
        van.Calculate(iv.vis, iv.groups, 0.0, 0.0);
        EXPECT_EQ(v.data[0].re, Scaled(1000.0f, ScaleFor(kLoss[n - 1], kLoss[n - 1]))) << n << " bits";
        EXPECT_NEAR(v.data[0].re, 1000.0 / kLoss[n - 1], 1e-3) << n << " bits";
        EXPECT_NEAR(v.data[0].im, -500.0 / kLoss[n - 1], 1e-3) << n << " bits";
        EXPECT_EQ(v.data[0].wt, 3.0f);
    }
}

TEST(AVanFlakeCorrect, MissingRowsAndLevelsOutsideTheTableCountAsOne) {
    AAIShortTbl table;
    table.Add(Item(1, 1, 2, 0.0, 100.0));
    table.Add(Item(2, 1, 0, 0.0, 100.0));   // 1 level: no factor
    table.Add(Item(3, 1, 9, 0.0, 100.0));   // beyond 8 bits
    table.Add(Item(4, 1, 64, 0.0, 100.0));  // what Correct makes of 45
    table.Add(Item(5, 2, 1, 0.0, 100.0));   // another frequency setup
    AVanFlakeCorrect van;
    van.Init(table);
    Interval iv(1, 4, 1);
    AUVXVisibility& known6 = iv.Add(1, 6, 2.0f, 1.0f, 1.0f, 50.0);  // antenna 6 has no row
    AUVXVisibility& known0 = iv.Add(2, 1, 2.0f, 1.0f, 1.0f, 50.0);
    AUVXVisibility& unknown = iv.Add(3, 4, 2.0f, 1.0f, 1.0f, 50.0);
    AUVXVisibility& otherSetup = iv.Add(5, 6, 2.0f, 1.0f, 1.0f, 50.0);
    van.Calculate(iv.vis, iv.groups, 0.0, 100.0);
    const double s = 1.0 / std::sqrt(static_cast<double>(0.88f));
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(known6.data[k].re, Scaled(2.0f, s));
        EXPECT_EQ(known6.data[k].im, Scaled(1.0f, s));
        EXPECT_EQ(known0.data[k].re, Scaled(2.0f, s));
        EXPECT_EQ(unknown.data[k].re, 2.0f);
        EXPECT_EQ(unknown.data[k].im, 1.0f);
        EXPECT_EQ(otherSetup.data[k].re, 2.0f);
    }
}

TEST(AVanFlakeCorrect, FactorFollowsTheRecordTime) {
    AAIShortTbl table;
    table.Add(Item(1, 1, 1, 0.0, 100.0));
    table.Add(Item(1, 1, 2, 100.0, 200.0));
    table.Add(Item(2, 1, 2, 0.0, 200.0));
    AVanFlakeCorrect van;
    van.Init(table);
    Interval iv(1, 1, 1);
    AUVXVisibility& early = iv.Add(1, 2, 1.0f, 1.0f, 1.0f, 99.0);
    AUVXVisibility& atEdge = iv.Add(1, 2, 1.0f, 1.0f, 1.0f, 100.0);
    AUVXVisibility& late = iv.Add(2, 1, 1.0f, 1.0f, 1.0f, 500.0);
    van.Calculate(iv.vis, iv.groups, 0.0, 0.0);
    EXPECT_EQ(early.data[0].re, Scaled(1.0f, ScaleFor(0.63662f, 0.88f)));
    EXPECT_EQ(atEdge.data[0].re, Scaled(1.0f, ScaleFor(0.88f, 0.88f)));
    EXPECT_EQ(late.data[0].re, Scaled(1.0f, ScaleFor(0.88f, 0.88f)));
}

TEST(AVanFlakeCorrect, NothingToDo) {
    AAIShortTbl table;
    table.Add(Item(1, 1, 2, 0.0, 100.0));
    table.Add(Item(2, 1, 2, 0.0, 100.0));
    // Zero records.
    AVanFlakeCorrect van;
    van.Init(table);
    Interval empty(1, 4, 1);
    EXPECT_TRUE(van.Calculate(empty.vis, empty.groups, 0.0, 0.0));
    // Without a table every antenna lacks a row.
    AVanFlakeCorrect bare;
    Interval iv(1, 4, 1);
    iv.Add(1, 2, 3.0f, 4.0f, 1.0f);
    const auto before = iv.Snapshot();
    EXPECT_TRUE(bare.Calculate(iv.vis, iv.groups, 0.0, 0.0));
    EXPECT_EQ(iv.Snapshot(), before);
    // A copy uses the same table.
    AVanFlakeCorrect copy = van;
    EXPECT_EQ(copy.table, &table);
    copy.Calculate(iv.vis, iv.groups, 0.0, 0.0);
    EXPECT_EQ(iv.vis[0]->data[2].re, Scaled(3.0f, ScaleFor(0.88f, 0.88f)));
}
