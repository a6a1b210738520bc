// Tests of ADigErrCorrect and ACube: power measured from autocorrelations, scaling of every baseline.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <type_traits>
#include <vector>

#include <merovane/digitisation/ADigErrCorrect.h>

#include "DigitisationFixtures.h"

using digtest::AddAntenna;
using digtest::Interval;
using digtest::MakeHeader;
using digtest::Scaled;

namespace {

constexpr int RR = -1, LL = -2, RL = -3, LR = -4;

// Antennas 1, 2, 3 (rows 0, 1, 2).
void ThreeAntennas(AUVXAntenns& antennas) {
    AddAntenna(antennas, 1, "AA");
    AddAntenna(antennas, 2, "BB");
    AddAntenna(antennas, 3, "CC");
}

void ExpectElement(const AUVXComplex& got, float re, float im, float wt, const char* what) {
    EXPECT_EQ(got.re, re) << what;
    EXPECT_EQ(got.im, im) << what;
    EXPECT_EQ(got.wt, wt) << what;
}

}  // namespace

static_assert(!std::is_copy_constructible<ADigErrCorrect>::value, "ADigErrCorrect owns its tables");
static_assert(!std::is_copy_assignable<ADigErrCorrect>::value, "ADigErrCorrect owns its tables");

TEST(ACube, CreateFillFree) {
    ACube<double> cube;
    EXPECT_EQ(cube.rows, nullptr);
    cube.Free();  // harmless when empty
    cube.Create(3, 2, 2);
    EXPECT_EQ(cube.nAnt, 3);
    EXPECT_EQ(cube.nIF, 2);
    EXPECT_EQ(cube.nPol, 2);
    cube.Fill(2.5);
    for (int a = 0; a < 3; ++a)
        for (int f = 0; f < 2; ++f) {
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(cube[a][f]) % 32, 0u);
            for (int p = 0; p < 2; ++p) EXPECT_EQ(cube[a][f][p], 2.5);
        }
    cube[2][1][1] = 7.0;
    EXPECT_EQ(cube.rows[2][1][1], 7.0);
    EXPECT_EQ(cube[2][1][0], 2.5);

    // Create again: a new shape, the old rows released (the sanitizer build sees leaks).
    ACube<int> counts;
    counts.Create(2, 1, 0);
    counts.Fill(1);
    counts.Create(5, 4, 3);
    counts.Fill(-1);
    EXPECT_EQ(counts.nAnt, 5);
    EXPECT_EQ(counts[4][3][2], -1);
    counts.Free();
    EXPECT_EQ(counts.rows, nullptr);
    counts.Free();
}

TEST(ADigErrCorrect, InitSizesTablesByAntennasBandsAndParallelHands) {
    AUVXAntenns antennas;
    ThreeAntennas(antennas);
    AUVXHeader header = MakeHeader({RR, LL, RL, LR}, 4, 8);
    ADigErrCorrect dig;
    EXPECT_EQ(dig.header, nullptr);
    EXPECT_EQ(dig.antennas, nullptr);
    dig.Init(header, antennas);
    EXPECT_EQ(dig.header, &header);
    EXPECT_EQ(dig.antennas, &antennas);
    EXPECT_EQ(dig.sums.nAnt, 3);
    EXPECT_EQ(dig.sums.nIF, 4);
    EXPECT_EQ(dig.sums.nPol, 2);
    EXPECT_EQ(dig.counts.nPol, 2);

    AUVXHeader linear = MakeHeader({-5, -6, -7, -8}, 0, 8);
    dig.Init(linear, antennas);
    EXPECT_EQ(dig.sums.nIF, 1);
    EXPECT_EQ(dig.sums.nPol, 0);

    AUVXHeader none = MakeHeader({}, 2, 8);
    dig.Init(none, antennas);
    EXPECT_EQ(dig.counts.nPol, 0);
}

TEST(ADigErrCorrect, IntervalWithoutAutocorrelationsIsUnchanged) {
    AUVXAntenns antennas;
    ThreeAntennas(antennas);
    AUVXHeader header = MakeHeader({RR, LL}, 2, 4);
    ADigErrCorrect dig;
    dig.Init(header, antennas);
    Interval iv(2, 4, 2);
    iv.Add(1, 2, 3.5f, -1.25f, 2.0f);
    iv.Add(2, 3, 0.1f, 0.7f, 0.3f);
    iv.Add(1, 3, 9.0f, 9.0f, -1.0f);
    const auto before = iv.Snapshot();
    EXPECT_TRUE(dig.Calculate(iv.vis, iv.groups, 0.0, 10.0));
    EXPECT_EQ(iv.Snapshot(), before);
}

TEST(ADigErrCorrect, AutocorrelationOfMeanFourIsQuarteredAndWeightTimesSixteen) {
    AUVXAntenns antennas;
    ThreeAntennas(antennas);
    AUVXHeader header = MakeHeader({RR}, 1, 4);
    ADigErrCorrect dig;
    dig.Init(header, antennas);
    Interval iv(1, 4, 1);
    AUVXVisibility& auto1 = iv.Add(1, 1, 4.0f, 0.5f, 0.25f);
    // Antenna 2 has no autocorrelation: the baseline goes by antenna 1 alone, 1/sqrt(4).
    AUVXVisibility& cross = iv.Add(1, 2, 3.0f, -6.0f, 1.0f);
    EXPECT_TRUE(dig.Calculate(iv.vis, iv.groups, 0.0, 0.0));
    for (int c = 0; c < 4; ++c) {
        ExpectElement(auto1.At(0, c, 0), 1.0f, 0.125f, 4.0f, "autocorrelation");
        ExpectElement(cross.At(0, c, 0), 1.5f, -3.0f, 4.0f, "cross-correlation");
    }
    EXPECT_EQ(dig.counts[0][0][0], 1);
    EXPECT_EQ(dig.sums[0][0][0], 4.0);
}

TEST(ADigErrCorrect, BaselineDividedByGeometricMeanOfPowers) {
    AUVXAntenns antennas;
    ThreeAntennas(antennas);
    AUVXHeader header = MakeHeader({RR}, 1, 2);
    ADigErrCorrect dig;
    dig.Init(header, antennas);
    Interval iv(1, 2, 1);
    iv.Add(2, 2, 4.0f);
    iv.Add(3, 3, 9.0f);
    AUVXVisibility& cross = iv.Add(2, 3, 6.0f, -12.0f, 2.0f);
    AUVXVisibility& reversed = iv.Add(3, 2, 3.0f, 0.0f, 0.5f);
    AUVXVisibility& unmeasured = iv.Add(1, 3, 3.0f, 6.0f, 1.0f);
    dig.Calculate(iv.vis, iv.groups, 0.0, 0.0);
    for (int c = 0; c < 2; ++c) {
        ExpectElement(cross.At(0, c, 0), 1.0f, -2.0f, 72.0f, "2-3");
        ExpectElement(reversed.At(0, c, 0), 0.5f, 0.0f, 18.0f, "3-2");
        ExpectElement(unmeasured.At(0, c, 0), 1.0f, 2.0f, 9.0f, "1-3");
    }
}

TEST(ADigErrCorrect, BandsAndProductsAreScaledIndependently) {
    AUVXAntenns antennas;
    ThreeAntennas(antennas);
    AUVXHeader header = MakeHeader({RR, LL, RL, LR}, 2, 3);
    ADigErrCorrect dig;
    dig.Init(header, antennas);
    Interval iv(2, 3, 4);
    // Powers per antenna [band][hand R, L].
    const double p1[2][2] = {{4.0, 9.0}, {16.0, 25.0}};
    const double p2[2][2] = {{1.0, 16.0}, {4.0, 36.0}};
    AUVXVisibility& a1 = iv.Add(1, 1, 0.0f, 0.0f, 1.0f);
    AUVXVisibility& a2 = iv.Add(2, 2, 0.0f, 0.0f, 1.0f);
    for (int f = 0; f < 2; ++f)
        for (int c = 0; c < 3; ++c) {
            for (int h = 0; h < 2; ++h) {
                a1.At(f, c, h).re = static_cast<float>(p1[f][h]);
                a2.At(f, c, h).re = static_cast<float>(p2[f][h]);
            }
            // Cross hands of an autocorrelation are not a power: large values must not enter.
            a1.At(f, c, 2).re = 1000.0f;
            a1.At(f, c, 3).re = 1000.0f;
        }
    AUVXVisibility& cross = iv.Add(1, 2, 12.0f, 6.0f, 1.0f);
    dig.Calculate(iv.vis, iv.groups, 0.0, 0.0);

    // Hand of the first and of the second antenna for RR, LL, RL, LR.
    const int h1[4] = {0, 1, 0, 1};
    const int h2[4] = {0, 1, 1, 0};
    for (int f = 0; f < 2; ++f)
        for (int p = 0; p < 4; ++p) {
            const double s = 1.0 / std::sqrt(p1[f][h1[p]] * p2[f][h2[p]]);
            const double sAuto1 = 1.0 / std::sqrt(p1[f][h1[p]] * p1[f][h2[p]]);
            for (int c = 0; c < 3; ++c) {
                const AUVXComplex& e = cross.At(f, c, p);
                EXPECT_EQ(e.re, Scaled(12.0f, s)) << "band " << f << " product " << p;
                EXPECT_EQ(e.im, Scaled(6.0f, s)) << "band " << f << " product " << p;
                EXPECT_EQ(e.wt, static_cast<float>(1.0 / (s * s))) << "band " << f << " product " << p;
                if (p < 2) {
                    EXPECT_EQ(a1.At(f, c, p).re, 1.0f);
                    EXPECT_EQ(a2.At(f, c, p).re, 1.0f);
                } else {
                    EXPECT_EQ(a1.At(f, c, p).re, Scaled(1000.0f, sAuto1));
                }
            }
        }
    // The hand-worked corners: band 0 RR is 12/2, band 1 LR is 12/sqrt(25*4).
    EXPECT_EQ(cross.At(0, 0, 0).re, 6.0f);
    EXPECT_EQ(cross.At(1, 2, 3).re, 1.2f);
}

TEST(ADigErrCorrect, MeanIsSummedInFloatInChannelOrder) {
    AUVXAntenns antennas;
    ThreeAntennas(antennas);
    AUVXHeader header = MakeHeader({RR}, 1, 4);
    ADigErrCorrect dig;
    dig.Init(header, antennas);
    Interval iv(1, 4, 1);
    // 2^24 + 1 rounds back to 2^24 in float, three times: the sum stays 2^24 and the mean is 2^22.
    // Summed in double (2^24 + 3) or backwards (3 + 2^24 -> 2^24 + 4) the mean would differ.
    AUVXVisibility& auto1 = iv.Add(1, 1);
    const float values[4] = {16777216.0f, 1.0f, 1.0f, 1.0f};
    for (int c = 0; c < 4; ++c) auto1.At(0, c, 0).re = values[c];
    AUVXVisibility& cross = iv.Add(1, 2, 3.0f, 0.0f, 1.0f);
    dig.Calculate(iv.vis, iv.groups, 0.0, 0.0);
    EXPECT_EQ(auto1.At(0, 0, 0).re, 4.0f);
    EXPECT_EQ(auto1.At(0, 1, 0).re, std::ldexp(1.0f, -22));
    EXPECT_EQ(auto1.At(0, 0, 0).wt, std::ldexp(1.0f, 44));
    // Baseline to an unmeasured antenna: 1/sqrt(2^22) = 2^-11.
    EXPECT_EQ(cross.At(0, 0, 0).re, 3.0f * std::ldexp(1.0f, -11));
    EXPECT_EQ(cross.At(0, 0, 0).wt, std::ldexp(1.0f, 22));
}

TEST(ADigErrCorrect, MeanIsDividedInFloatAndScaleAppliedInDouble) {
    AUVXAntenns antennas;
    ThreeAntennas(antennas);
    // Many channels on the baseline: a scale or a product rounded differently shows in some of them.
    const int nChan = 1000;
    AUVXHeader header = MakeHeader({RR}, 1, nChan);
    ADigErrCorrect dig;
    dig.Init(header, antennas);
    Interval iv(1, nChan, 1);
    // Antenna 1: (1, 0, 0) in three good channels, the rest flagged.
    AUVXVisibility& a = iv.Add(1, 1, 0.0f);
    for (int c = 0; c < nChan; ++c)
        a.At(0, c, 0) = AUVXComplex{c == 0 ? 1.0f : 0.0f, 0.0f, c < 3 ? 1.0f : 0.0f};
    AUVXVisibility& cross = iv.Add(1, 2);
    std::vector<AUVXComplex> original(nChan);
    for (int c = 0; c < nChan; ++c) {
        cross.At(0, c, 0) = AUVXComplex{1.0f + 0.001731f * c, -0.5f - 0.00077f * c, 0.1f + 0.013f * c};
        original[c] = cross.At(0, c, 0);
    }
    dig.Calculate(iv.vis, iv.groups, 0.0, 0.0);
    // The mean 1/3 divided in float; the baseline goes by antenna 1 alone.
    const float mean = 1.0f / 3.0f;
    const double s = 1.0 / std::sqrt(static_cast<double>(mean));
    int differsFromDoubleMean = 0;
    for (int c = 0; c < nChan; ++c) {
        const AUVXComplex& e = cross.At(0, c, 0);
        ASSERT_EQ(e.re, Scaled(original[c].re, s)) << c;
        ASSERT_EQ(e.im, Scaled(original[c].im, s)) << c;
        ASSERT_EQ(e.wt, static_cast<float>(static_cast<double>(original[c].wt) / (s * s))) << c;
        if (e.re != Scaled(original[c].re, std::sqrt(3.0))) ++differsFromDoubleMean;
    }
    // The channels really tell a float mean from a double one.
    EXPECT_GT(differsFromDoubleMean, 0);
    // The autocorrelation itself: 1 / mean, in double.
    EXPECT_EQ(a.At(0, 0, 0).re, Scaled(1.0f, 1.0 / static_cast<double>(mean)));
}

TEST(ADigErrCorrect, EachRecordCountsOnceAndFlaggedChannelsAreLeftAlone) {
    AUVXAntenns antennas;
    ThreeAntennas(antennas);
    AUVXHeader header = MakeHeader({RR}, 1, 4);
    ADigErrCorrect dig;
    dig.Init(header, antennas);
    Interval iv(1, 4, 1);
    iv.Add(1, 1, 2.0f, 0.0f, 1.0f);  // mean 2 over 4 channels
    AUVXVisibility& second = iv.Add(1, 1, 8.0f, 0.0f, 1.0f);
    second.At(0, 1, 0) = AUVXComplex{100.0f, 3.0f, 0.0f};
    second.At(0, 2, 0) = AUVXComplex{-50.0f, 1.0f, -1.0f};
    second.At(0, 3, 0) = AUVXComplex{70.0f, 2.0f, -0.0f};
    AUVXVisibility& third = iv.Add(1, 1, 5.0f, 0.0f, 0.0f);  // no good channel: does not count
    AUVXVisibility& cross = iv.Add(1, 2, 5.0f, 10.0f, 2.0f);
    cross.At(0, 3, 0) = AUVXComplex{5.0f, 10.0f, -2.0f};
    dig.Calculate(iv.vis, iv.groups, 0.0, 0.0);
    // Mean of record means (2 + 8) / 2 = 5, not the channel mean 16 / 5.
    EXPECT_EQ(dig.counts[0][0][0], 2);
    EXPECT_EQ(dig.sums[0][0][0], 10.0);
    const double s = 1.0 / std::sqrt(5.0);
    for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(cross.At(0, c, 0).re, Scaled(5.0f, s));
        EXPECT_EQ(cross.At(0, c, 0).im, Scaled(10.0f, s));
        EXPECT_EQ(cross.At(0, c, 0).wt, static_cast<float>(2.0 * 5.0));
    }
    ExpectElement(cross.At(0, 3, 0), 5.0f, 10.0f, -2.0f, "flagged cross channel");
    ExpectElement(second.At(0, 1, 0), 100.0f, 3.0f, 0.0f, "weight 0");
    ExpectElement(second.At(0, 2, 0), -50.0f, 1.0f, -1.0f, "negative weight");
    EXPECT_EQ(second.At(0, 0, 0).re, Scaled(8.0f, 1.0 / 5.0));
    for (int c = 0; c < 4; ++c) ExpectElement(third.At(0, c, 0), 5.0f, 0.0f, 0.0f, "all flagged");
}

TEST(ADigErrCorrect, OddPolarisationLayouts) {
    AUVXAntenns antennas;
    ThreeAntennas(antennas);
    {
        // One parallel hand: LL uses index 0.
        AUVXHeader header = MakeHeader({LL}, 1, 2);
        ADigErrCorrect dig;
        dig.Init(header, antennas);
        Interval iv(1, 2, 1);
        iv.Add(2, 2, 16.0f);
        AUVXVisibility& cross = iv.Add(2, 3, 8.0f, 4.0f, 1.0f);
        dig.Calculate(iv.vis, iv.groups, 0.0, 0.0);
        ExpectElement(cross.At(0, 1, 0), 2.0f, 1.0f, 16.0f, "LL only");
    }
    {
        // Only linear products: nothing to measure, nothing changes.
        AUVXHeader header = MakeHeader({-5, -6, -7, -8}, 1, 2);
        ADigErrCorrect dig;
        dig.Init(header, antennas);
        Interval iv(1, 2, 4);
        iv.Add(1, 1, 4.0f);
        iv.Add(1, 2, 3.0f, 1.0f, 1.0f);
        const auto before = iv.Snapshot();
        dig.Calculate(iv.vis, iv.groups, 0.0, 0.0);
        EXPECT_EQ(iv.Snapshot(), before);
    }
    {
        // RR and RL only: the L hand the RL product wants is missing and counts as 1.
        AUVXHeader header = MakeHeader({RR, RL}, 1, 2);
        ADigErrCorrect dig;
        dig.Init(header, antennas);
        Interval iv(1, 2, 2);
        iv.Add(1, 1, 4.0f);
        iv.Add(2, 2, 9.0f);
        AUVXVisibility& cross = iv.Add(1, 2, 6.0f, 6.0f, 1.0f);
        dig.Calculate(iv.vis, iv.groups, 0.0, 0.0);
        ExpectElement(cross.At(0, 0, 0), 1.0f, 1.0f, 36.0f, "RR");
        ExpectElement(cross.At(0, 0, 1), 3.0f, 3.0f, 4.0f, "RL: R of 1 only");
    }
    {
        // A parallel hand behind a cross hand: LL at position 2 has no table entry of its own and is
        // left as it is, RL reads a hand that was never measured.
        AUVXHeader header = MakeHeader({RR, RL, LL}, 1, 1);
        ADigErrCorrect dig;
        dig.Init(header, antennas);
        EXPECT_EQ(dig.sums.nPol, 2);
        Interval iv(1, 1, 3);
        iv.Add(1, 1, 4.0f);
        AUVXVisibility& cross = iv.Add(1, 2, 6.0f, 2.0f, 1.0f);
        dig.Calculate(iv.vis, iv.groups, 0.0, 0.0);
        ExpectElement(cross.At(0, 0, 0), 3.0f, 1.0f, 4.0f, "RR");
        ExpectElement(cross.At(0, 0, 1), 3.0f, 1.0f, 4.0f, "RL");
        ExpectElement(cross.At(0, 0, 2), 6.0f, 2.0f, 1.0f, "LL");
    }
    {
        // No IF axis: one band.
        AUVXHeader header = MakeHeader({RR, LL}, 0, 2);
        ADigErrCorrect dig;
        dig.Init(header, antennas);
        Interval iv(0, 2, 2);
        iv.Add(3, 3, 4.0f);
        AUVXVisibility& cross = iv.Add(2, 3, 2.0f, 2.0f, 1.0f);
        dig.Calculate(iv.vis, iv.groups, 0.0, 0.0);
        ExpectElement(cross.At(0, 1, 0), 1.0f, 1.0f, 4.0f, "RR without IF axis");
        ExpectElement(cross.At(0, 1, 1), 1.0f, 1.0f, 4.0f, "LL without IF axis");
    }
}

TEST(ADigErrCorrect, MissingOrUnusableMeasuresCountAsOne) {
    AUVXAntenns antennas;
    ThreeAntennas(antennas);
    AUVXHeader header = MakeHeader({RR}, 1, 2);
    ADigErrCorrect dig;
    dig.Init(header, antennas);
    Interval iv(1, 2, 1);
    AUVXVisibility& auto7 = iv.Add(7, 7, 4.0f, 0.0f, 1.0f);  // antenna 7 is not in the table
    iv.Add(1, 1, 9.0f);
    iv.Add(2, 2, -4.0f);  // a negative power
    AUVXVisibility& c17 = iv.Add(1, 7, 3.0f, 0.0f, 1.0f);
    AUVXVisibility& c23 = iv.Add(2, 3, 3.0f, 1.0f, 1.0f);
    AUVXVisibility& c37 = iv.Add(3, 7, 3.0f, 1.0f, 1.0f);
    dig.Calculate(iv.vis, iv.groups, 0.0, 0.0);
    ExpectElement(auto7.At(0, 0, 0), 4.0f, 0.0f, 1.0f, "unknown antenna");
    ExpectElement(c17.At(0, 0, 0), 1.0f, 0.0f, 9.0f, "known and unknown");
    ExpectElement(c23.At(0, 0, 0), 3.0f, 1.0f, 1.0f, "negative mean");
    ExpectElement(c37.At(0, 0, 0), 3.0f, 1.0f, 1.0f, "neither measured");
}

TEST(ADigErrCorrect, IntervalsAreIndependent) {
    AUVXAntenns antennas;
    ThreeAntennas(antennas);
    AUVXHeader header = MakeHeader({RR}, 1, 2);
    ADigErrCorrect dig;
    // Before Init nothing is known and nothing changes.
    Interval early(1, 2, 1);
    early.Add(1, 1, 4.0f);
    const auto earlyBefore = early.Snapshot();
    EXPECT_TRUE(dig.Calculate(early.vis, early.groups, 0.0, 0.0));
    EXPECT_EQ(early.Snapshot(), earlyBefore);

    dig.Init(header, antennas);
    Interval first(1, 2, 1);
    first.Add(1, 1, 4.0f);
    AUVXVisibility& c1 = first.Add(1, 2, 2.0f, 0.0f, 1.0f);
    dig.Calculate(first.vis, first.groups, 0.0, 10.0);
    EXPECT_EQ(c1.At(0, 0, 0).re, 1.0f);

    Interval second(1, 2, 1);
    AUVXVisibility& c2 = second.Add(1, 2, 2.0f, 0.0f, 1.0f);
    const auto before = second.Snapshot();
    dig.Calculate(second.vis, second.groups, 10.0, 20.0);
    EXPECT_EQ(second.Snapshot(), before);
    EXPECT_EQ(c2.At(0, 0, 0).re, 2.0f);
    EXPECT_EQ(dig.counts[0][0][0], 0);

    // Zero records.
    Interval empty(1, 2, 1);
    EXPECT_TRUE(dig.Calculate(empty.vis, empty.groups, 0.0, 0.0));
}

TEST(ADigErrCorrect, RecordsOfAnotherShapeAreNeverReadOutside) {
    AUVXAntenns antennas;
    ThreeAntennas(antennas);
    AUVXHeader header = MakeHeader({RR, LL}, 2, 4);
    ADigErrCorrect dig;
    dig.Init(header, antennas);
    Interval iv(2, 4, 2);
    iv.Add(1, 1, 4.0f);
    AUVXVisibility& cross = iv.Add(1, 2, 2.0f, 0.0f, 1.0f);
    // A record that declares more elements than it holds is left alone.
    AUVXVisibility& lying = iv.Add(1, 2, 2.0f, 0.0f, 1.0f);
    lying.nChan = 400;
    // A record with a single band is corrected in that band.
    AUVXVisibility* narrow = new AUVXVisibility(1, 4, 2);
    for (auto& e : *narrow) e = AUVXComplex{2.0f, 0.0f, 1.0f};
    iv.vis.Add(narrow);
    iv.groups.Add(iv.groups[1]);
    // A group without a visibility is not looked at.
    iv.groups.Add(iv.groups[1]);
    dig.Calculate(iv.vis, iv.groups, 0.0, 0.0);
    EXPECT_EQ(cross.At(1, 3, 1).re, 1.0f);
    for (const auto& e : lying) EXPECT_EQ(e.re, 2.0f);
    for (const auto& e : *narrow) EXPECT_EQ(e.re, 1.0f);
    lying.nChan = 4;
}
