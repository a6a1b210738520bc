// Tests of ADigErrCorrect and ACube: power measured from autocorrelations, scaling of every baseline.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <type_traits>
#include <vector>

#include <merovane/digitisation/ADigErrCorrect.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXHeader.h>

#include "DigitisationFixtures.h"

using namespace digtest;

namespace {

constexpr int RR = -1, LL = -2, RL = -3, LR = -4;

// A corrector over antennas 1 to 4 (rows 0 to 3) and a header of the given products, bands and
// channels, with an interval of records of that shape.
struct Dig {
    AUVXAntenns antennas;
    AUVXHeader header;
    ADigErrCorrect dig;
    Interval iv;

    Dig(const std::vector<int>& stokes, int nIF, int nChan)
        : iv(nIF, nChan, static_cast<int>(stokes.size())) {
        header.nStokes = static_cast<std::int16_t>(stokes.size());
        for (size_t i = 0; i < stokes.size(); ++i) header.stokes[i] = static_cast<std::int16_t>(stokes[i]);
        header.nIF = nIF;
        header.nChan = nChan;
        for (int id = 1; id <= 4; ++id) {
            AUVXTlscItem item{};
            item.id = id;
            antennas.Add(item);
        }
        dig.Init(header, antennas);
    }
    bool Run() { return dig.Calculate(iv.vis, iv.groups, 0.0, 0.0); }
};

}  // namespace

static_assert(!std::is_copy_constructible<ADigErrCorrect>::value, "ADigErrCorrect owns its tables");
static_assert(!std::is_copy_assignable<ADigErrCorrect>::value, "ADigErrCorrect owns its tables");

TEST(ACube, CreateFillFree) {
    ACube<double> cube;
    cube.Free();  // harmless when empty
    cube.Create(3, 2, 2);
    cube.Fill(2.5);
    cube[2][1][1] = 7.0;
    for (int a = 0; a < 3; ++a)
        for (int f = 0; f < 2; ++f) {
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(cube[a][f]) % 32, 0u);
            for (int p = 0; p < 2; ++p) EXPECT_EQ(cube.rows[a][f][p], a == 2 && f == 1 && p == 1 ? 7.0 : 2.5);
        }
    // Create again: a new shape, the old rows released (the sanitizer build sees leaks).
    ACube<int> counts;
    counts.Create(2, 1, 0);
    counts.Create(5, 4, 3);
    counts.Fill(-1);
    EXPECT_EQ(counts.nAnt, 5);
    EXPECT_EQ(counts[4][3][2], -1);
    counts.Free();
    EXPECT_EQ(counts.rows, nullptr);
}

TEST(ADigErrCorrect, InitSizesTablesByAntennasBandsAndParallelHands) {
    Dig d({RR, LL, RL, LR}, 4, 8);
    EXPECT_EQ(d.dig.sums.nAnt, 4);
    EXPECT_EQ(d.dig.sums.nIF, 4);
    EXPECT_EQ(d.dig.sums.nPol, 2);
    EXPECT_EQ(d.dig.counts.nPol, 2);
    // Only linear products and no IF axis: one band, nothing to measure, nothing changes.
    Dig linear({-5, -6, -7, -8}, 0, 2);
    EXPECT_EQ(linear.dig.sums.nIF, 1);
    EXPECT_EQ(linear.dig.sums.nPol, 0);
    linear.iv.Add(1, 1, 4.0f);
    linear.iv.Add(1, 2, 3.0f, 1.0f, 1.0f);
    const auto before = linear.iv.Snapshot();
    linear.Run();
    EXPECT_EQ(linear.iv.Snapshot(), before);
}

TEST(ADigErrCorrect, PowerIsTheMeanOfRecordMeansSummedInFloat) {
    Dig d({RR}, 1, 4);
    // Antenna 1: mean 4.0, so its autocorrelation is quartered and its weight times 16.
    AUVXVisibility& auto1 = d.iv.Add(1, 1, 4.0f, 0.5f, 0.25f);
    // Antenna 2: record means 2 and 8 (flagged channels do not count), mean 5 and not the channel
    // mean 16 / 5; a record without a good channel does not count.
    d.iv.Add(2, 2, 2.0f, 0.0f, 1.0f);
    AUVXVisibility& second = d.iv.Add(2, 2, 8.0f, 0.0f, 1.0f);
    second.At(0, 1, 0) = AUVXComplex{100.0f, 3.0f, 0.0f};
    second.At(0, 2, 0) = AUVXComplex{-50.0f, 1.0f, -1.0f};
    second.At(0, 3, 0) = AUVXComplex{70.0f, 2.0f, -0.0f};
    AUVXVisibility& allFlagged = d.iv.Add(2, 2, 5.0f, 0.0f, 0.0f);
    // Antenna 3: 2^24 + 1 rounds back to 2^24 in float, three times: the sum stays 2^24 and the mean
    // is 2^22. Summed in double (2^24 + 3) or backwards (3 + 2^24 -> 2^24 + 4) it would differ.
    AUVXVisibility& auto3 = d.iv.Add(3, 3);
    auto3.At(0, 0, 0).re = 16777216.0f;
    // Baselines to antenna 4, which has no autocorrelation, go by the other antenna alone.
    AUVXVisibility& c14 = d.iv.Add(1, 4, 3.0f, -6.0f, 1.0f);
    AUVXVisibility& c24 = d.iv.Add(2, 4, 5.0f, 10.0f, 2.0f);
    c24.At(0, 3, 0).wt = -2.0f;
    AUVXVisibility& c34 = d.iv.Add(3, 4, 3.0f, 0.0f, 1.0f);
    EXPECT_TRUE(d.Run());

    EXPECT_EQ(d.dig.counts[0][0][0], 1);
    EXPECT_EQ(d.dig.sums[0][0][0], 4.0);
    EXPECT_EQ(d.dig.counts[1][0][0], 2);
    EXPECT_EQ(d.dig.sums[1][0][0], 10.0);
    const double s2 = 1.0 / std::sqrt(5.0);
    for (int c = 0; c < 4; ++c) {
        ExpectElement(auto1.At(0, c, 0), 1.0f, 0.125f, 4.0f, "autocorrelation of mean 4");
        ExpectElement(c14.At(0, c, 0), 1.5f, -3.0f, 4.0f, "baseline to mean 4");
        ExpectElement(allFlagged.At(0, c, 0), 5.0f, 0.0f, 0.0f, "all flagged");
        if (c < 3)
            ExpectElement(c24.At(0, c, 0), Scaled(5.0f, s2), Scaled(10.0f, s2), 10.0f, "baseline to mean 5");
    }
    ExpectElement(c24.At(0, 3, 0), 5.0f, 10.0f, -2.0f, "flagged cross channel");
    ExpectElement(second.At(0, 1, 0), 100.0f, 3.0f, 0.0f, "weight 0");
    ExpectElement(second.At(0, 2, 0), -50.0f, 1.0f, -1.0f, "negative weight");
    EXPECT_EQ(second.At(0, 0, 0).re, Scaled(8.0f, 1.0 / 5.0));
    EXPECT_EQ(auto3.At(0, 0, 0).re, 4.0f);
    EXPECT_EQ(auto3.At(0, 1, 0).re, std::ldexp(1.0f, -22));
    EXPECT_EQ(auto3.At(0, 0, 0).wt, std::ldexp(1.0f, 44));
    // 1/sqrt(2^22) = 2^-11.
    ExpectElement(c34.At(0, 0, 0), 3.0f * std::ldexp(1.0f, -11), 0.0f, std::ldexp(1.0f, 22),
                  "baseline to 2^22");
}

TEST(ADigErrCorrect, BaselineDividedByGeometricMeanOfPowersAndMissingMeasuresCountAsOne) {
    Dig d({RR}, 1, 2);
    // Powers: antenna 1 negative, 2 is 4, 3 is 9, 4 unmeasured; antenna 7 is not in the table.
    AUVXVisibility& auto7 = d.iv.Add(7, 7, 4.0f, 0.0f, 1.0f);
    const float powers[3] = {-4.0f, 4.0f, 9.0f};
    for (int a = 1; a <= 3; ++a) d.iv.Add(a, a, powers[a - 1]);
    // {ant1, ant2, re, im, wt before, re, im, wt after}
    const float cases[5][8] = {{2, 3, 6, -12, 2, 1, -2, 72},   // 2-3
                               {3, 2, 3, 0, 0.5, 0.5, 0, 18},  // 3-2
                               {4, 3, 3, 6, 1, 1, 2, 9},       // unmeasured and measured
                               {3, 7, 3, 6, 1, 1, 2, 9},       // measured and unknown
                               {1, 7, 3, 1, 1, 3, 1, 1}};      // negative mean
    for (const auto& c : cases) d.iv.Add(int(c[0]), int(c[1]), c[2], c[3], c[4]);
    d.Run();
    ExpectElement(auto7.At(0, 0, 0), 4.0f, 0.0f, 1.0f, "unknown antenna");
    for (int i = 0; i < 5; ++i)
        for (int c = 0; c < 2; ++c)
            ExpectElement(d.iv.vis[4 + i]->At(0, c, 0), cases[i][5], cases[i][6], cases[i][7], "baseline");
}

TEST(ADigErrCorrect, BandsAndProductsAreScaledIndependently) {
    Dig d({RR, LL, RL, LR}, 2, 3);
    // Powers per antenna [band][hand R, L].
    const double p1[2][2] = {{4.0, 9.0}, {16.0, 25.0}}, p2[2][2] = {{1.0, 16.0}, {4.0, 36.0}};
    AUVXVisibility& a1 = d.iv.Add(1, 1, 0.0f, 0.0f, 1.0f);
    AUVXVisibility& a2 = d.iv.Add(2, 2, 0.0f, 0.0f, 1.0f);
    for (int f = 0; f < 2; ++f)
        for (int c = 0; c < 3; ++c) {
            for (int h = 0; h < 2; ++h) {
                a1.At(f, c, h).re = static_cast<float>(p1[f][h]);
                a2.At(f, c, h).re = static_cast<float>(p2[f][h]);
            }
            // Cross hands of an autocorrelation are not a power: large values must not enter.
            a1.At(f, c, 2).re = a1.At(f, c, 3).re = 1000.0f;
        }
    AUVXVisibility& cross = d.iv.Add(1, 2, 12.0f, 6.0f, 1.0f);
    d.Run();
    // Hand of the first and of the second antenna for RR, LL, RL, LR.
    const int h1[4] = {0, 1, 0, 1}, h2[4] = {0, 1, 1, 0};
    for (int f = 0; f < 2; ++f)
        for (int p = 0; p < 4; ++p) {
            SCOPED_TRACE(testing::Message() << "band " << f << " product " << p);
            const double s = 1.0 / std::sqrt(p1[f][h1[p]] * p2[f][h2[p]]);
            const double sAuto1 = 1.0 / std::sqrt(p1[f][h1[p]] * p1[f][h2[p]]);
            for (int c = 0; c < 3; ++c) {
                const AUVXComplex& e = cross.At(f, c, p);
                EXPECT_EQ(e.re, Scaled(12.0f, s));
                EXPECT_EQ(e.im, Scaled(6.0f, s));
                EXPECT_EQ(e.wt, static_cast<float>(1.0 / (s * s)));
                EXPECT_EQ(a1.At(f, c, p).re, p < 2 ? 1.0f : Scaled(1000.0f, sAuto1));
                EXPECT_EQ(a2.At(f, c, p).re, p < 2 ? 1.0f : 0.0f);
            }
        }
    // The hand-worked corners: band 0 RR is 12/2, band 1 LR is 12/sqrt(25*4).
    EXPECT_EQ(cross.At(0, 0, 0).re, 6.0f);
    EXPECT_EQ(cross.At(1, 2, 3).re, 1.2f);
}

TEST(ADigErrCorrect, MeanIsDividedInFloatAndScaleAppliedInDouble) {
    // Many channels on the baseline: a scale or a product rounded differently shows in some of them.
    const int nChan = 1000;
    Dig d({RR}, 1, nChan);
    // Antenna 1: (1, 0, 0) in three good channels, the rest flagged.
    AUVXVisibility& a = d.iv.Add(1, 1, 0.0f);
    for (int c = 0; c < nChan; ++c)
        a.At(0, c, 0) = AUVXComplex{c == 0 ? 1.0f : 0.0f, 0.0f, c < 3 ? 1.0f : 0.0f};
    AUVXVisibility& cross = d.iv.Add(1, 2);
    for (int c = 0; c < nChan; ++c)
        cross.At(0, c, 0) = AUVXComplex{1.0f + 0.001731f * c, -0.5f - 0.00077f * c, 0.1f + 0.013f * c};
    const std::vector<AUVXComplex> original(cross.begin(), cross.end());
    d.Run();
    // The mean 1/3 divided in float; the baseline goes by antenna 1 alone.
    const float mean = 1.0f / 3.0f;
    const double s = 1.0 / std::sqrt(static_cast<double>(mean));
    int differsFromDoubleMean = 0;
    for (int c = 0; c < nChan; ++c) {
        const AUVXComplex& e = cross.At(0, c, 0);
        ASSERT_EQ(e.re, Scaled(original[c].re, s)) << c;
        ASSERT_EQ(e.im, Scaled(original[c].im, s)) << c;
        ASSERT_EQ(e.wt, static_cast<float>(static_cast<double>(original[c].wt) / (s * s))) << c;
        differsFromDoubleMean += e.re != Scaled(original[c].re, std::sqrt(3.0));
    }
    // The channels really tell a float mean from a double one.
    EXPECT_GT(differsFromDoubleMean, 0);
    // The autocorrelation itself: 1 / mean, in double.
    EXPECT_EQ(a.At(0, 0, 0).re, Scaled(1.0f, 1.0 / static_cast<double>(mean)));
}

TEST(ADigErrCorrect, OddPolarisationLayouts) {
    Dig ll({LL}, 1, 2);  // one parallel hand: LL uses index 0
    ll.iv.Add(2, 2, 16.0f);
    ll.iv.Add(2, 3, 8.0f, 4.0f, 1.0f);
    ll.Run();
    ExpectElement(ll.iv.vis[1]->At(0, 1, 0), 2.0f, 1.0f, 16.0f, "LL only");

    Dig rrRl({RR, RL}, 1, 2);  // the L hand the RL product wants is missing and counts as 1
    rrRl.iv.Add(1, 1, 4.0f);
    rrRl.iv.Add(2, 2, 9.0f);
    rrRl.iv.Add(1, 2, 6.0f, 6.0f, 1.0f);
    rrRl.Run();
    ExpectElement(rrRl.iv.vis[2]->At(0, 0, 0), 1.0f, 1.0f, 36.0f, "RR");
    ExpectElement(rrRl.iv.vis[2]->At(0, 0, 1), 3.0f, 3.0f, 4.0f, "RL: R of 1 only");

    // A parallel hand behind a cross hand: LL at position 2 has no table entry of its own and is left
    // as it is; RL reads a hand that was never measured, and the autocorrelation's RL at position 1
    // is no power for it.
    Dig behind({RR, RL, LL}, 1, 1);
    EXPECT_EQ(behind.dig.sums.nPol, 2);
    behind.iv.Add(1, 1, 4.0f).At(0, 0, 1).re = 100.0f;
    AUVXVisibility& cross = behind.iv.Add(1, 2, 6.0f, 2.0f, 1.0f);
    AUVXVisibility& reversed = behind.iv.Add(2, 1, 6.0f, 2.0f, 1.0f);
    behind.Run();
    ExpectElement(cross.At(0, 0, 0), 3.0f, 1.0f, 4.0f, "RR");
    ExpectElement(cross.At(0, 0, 1), 3.0f, 1.0f, 4.0f, "RL");
    ExpectElement(cross.At(0, 0, 2), 6.0f, 2.0f, 1.0f, "LL");
    ExpectElement(reversed.At(0, 0, 1), 6.0f, 2.0f, 1.0f, "RL of 2-1: L of 1 never measured");

    Dig noIF({RR, LL}, 0, 2);  // no IF axis: one band
    noIF.iv.Add(3, 3, 4.0f);
    noIF.iv.Add(2, 3, 2.0f, 2.0f, 1.0f);
    noIF.Run();
    ExpectElement(noIF.iv.vis[1]->At(0, 1, 0), 1.0f, 1.0f, 4.0f, "RR without IF axis");
    ExpectElement(noIF.iv.vis[1]->At(0, 1, 1), 1.0f, 1.0f, 4.0f, "LL without IF axis");
}

TEST(ADigErrCorrect, IntervalsAreIndependentAndOneWithoutAutocorrelationsIsUnchanged) {
    Dig d({RR, LL}, 2, 4);
    d.iv.Add(1, 1, 4.0f);
    AUVXVisibility& c12 = d.iv.Add(1, 2, 2.0f, 0.0f, 1.0f);
    // Before Init nothing is known and nothing changes.
    ADigErrCorrect early;
    const auto before = d.iv.Snapshot();
    EXPECT_TRUE(early.Calculate(d.iv.vis, d.iv.groups, 0.0, 0.0));
    EXPECT_EQ(d.iv.Snapshot(), before);
    d.Run();
    EXPECT_EQ(c12.At(1, 3, 1).re, 1.0f);

    Interval next(2, 4, 2), empty(2, 4, 2);
    next.Add(1, 2, 3.5f, -1.25f, 2.0f);
    next.Add(2, 3, 0.1f, 0.7f, 0.3f);
    next.Add(1, 3, 9.0f, 9.0f, -1.0f);
    const auto nextBefore = next.Snapshot();
    EXPECT_TRUE(d.dig.Calculate(next.vis, next.groups, 10.0, 20.0));
    EXPECT_EQ(next.Snapshot(), nextBefore);
    EXPECT_EQ(d.dig.counts[0][0][0], 0);
    EXPECT_TRUE(d.dig.Calculate(empty.vis, empty.groups, 0.0, 0.0));
}

TEST(ADigErrCorrect, RecordsOfAnotherShapeAreNeverReadOutside) {
    Dig d({RR, LL}, 2, 4);
    d.iv.Add(1, 1, 4.0f);
    AUVXVisibility& cross = d.iv.Add(1, 2, 2.0f, 0.0f, 1.0f);
    // A record that declares more elements than it holds is left alone.
    AUVXVisibility& lying = d.iv.Add(1, 2, 2.0f, 0.0f, 1.0f);
    lying.nChan = 400;
    // A record with a single band is corrected in that band.
    auto* narrow = new AUVXVisibility(1, 4, 2);
    for (auto& e : *narrow) e = AUVXComplex{2.0f, 0.0f, 1.0f};
    d.iv.vis.Add(narrow);
    d.iv.groups.Add(d.iv.groups[1]);
    // A group without a visibility is not looked at.
    d.iv.groups.Add(d.iv.groups[1]);
    d.Run();
    EXPECT_EQ(cross.At(1, 3, 1).re, 1.0f);
    for (const auto& e : lying) EXPECT_EQ(e.re, 2.0f);
    for (const auto& e : *narrow) EXPECT_EQ(e.re, 1.0f);
    lying.nChan = 4;
}
