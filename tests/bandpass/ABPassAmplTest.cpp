// Amplitude bandpass from autocorrelations: Calculate_A_AC, ModifyAmpl and ABPass_ACorr.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "BandpassFixtures.h"
#include "support/MessageCapture.h"

using namespace bptest;

namespace {

// RR LL RL LR, one IF, four channels; telescopes 1 and 2 with fresh current items.
struct AmplPass : ::testing::Test {
    AUVXHeader header = Header({-1, -2, -3, -4}, 1, 4);
    AUVXAntenns antennas;
    ATestBPass pass;
    AInterval rec;
    void SetUp() override {
        pass.Init(header, antennas, 7);
        AArray<int> ids;
        ids.Add(1);
        ids.Add(2);
        ASSERT_TRUE(pass.InitInernalGain(ids));
    }
    // An autocorrelation of `tlsc` with these real parts in product s (others 1.0).
    AUVXVisibility& Auto(int tlsc, int s, std::vector<float> re, int source = 7) {
        AUVXVisibility& v = rec.Add(Group(tlsc, tlsc, 0, source), 1, 4, 4, 1.0f, 0.5f);
        for (int c = 0; c < 4; ++c) v.At(0, c, s).re = re[c];
        return v;
    }
    std::vector<Cf> Coefs(int t, int p) {
        std::vector<Cf> out;
        for (int c = 0; c < 4; ++c) out.push_back(At(*pass.coefs[t], p, 0, c));
        return out;
    }
};

std::vector<Cf> Real(std::vector<float> values) {
    std::vector<Cf> out;
    for (float v : values) out.push_back(Cf(v, 0));
    return out;
}

}  // namespace

TEST_F(AmplPass, EachSpectrumOverItsMeanMultipliesIntoItsTelescope) {
    Auto(1, 0, {1, 2, 3, 6});
    Auto(1, 1, {2, 2, 4, 8});
    At(*pass.coefs[0], 1, 0, 2) = Cf(2, 1);  // factors multiply what is there
    ASSERT_TRUE(pass.Calculate_A_AC(rec.vis, rec.groups, 0, 0));
    EXPECT_EQ(Coefs(0, 0), Real({1.0f / 3.0f, 2.0f / 3.0f, 1.0f, 2.0f}));
    const std::vector<Cf> ll = Coefs(0, 1);
    EXPECT_EQ(ll[0], Cf(0.5f, 0));
    EXPECT_EQ(ll[2], Cf(2.0f, 1.0f));
    EXPECT_EQ(ll[3], Cf(2.0f, 0));
    EXPECT_EQ(Coefs(1, 0), Real({1, 1, 1, 1}));  // telescope 2 had no record
    for (int c = 0; c < 4; ++c) {
        EXPECT_EQ(At(*pass.counts[0], 0, 0, c), 1);
        EXPECT_EQ(At(*pass.counts[0], 1, 0, c), 1);
        EXPECT_EQ(At(*pass.counts[1], 0, 0, c), 0);
    }
}

TEST_F(AmplPass, OnlyAutocorrelationsOfTheSourceAndParallelHandsCount) {
    AUVXVisibility& cross = rec.Add(Group(1, 2, 0, 7), 1, 4, 4, 9.0f);
    cross.At(0, 0, 0).re = 100.0f;
    Auto(2, 0, {1, 1, 1, 9}, 8);  // another source
    Auto(2, 2, {1, 2, 3, 4});     // RL of telescope 2: no polarisation index of its own
    ASSERT_TRUE(pass.Calculate_A_AC(rec.vis, rec.groups, 0, 0));
    EXPECT_EQ(Coefs(0, 0), Real({1, 1, 1, 1}));
    EXPECT_EQ(Coefs(1, 0), Real({1, 1, 1, 1}));
    EXPECT_EQ(Coefs(1, 1), Real({1, 1, 1, 1}));
    EXPECT_EQ(At(*pass.counts[1], 1, 0, 0), 1);  // the parallel products of the record were used
    EXPECT_EQ(At(*pass.counts[0], 0, 0, 0), 0);
}

TEST_F(AmplPass, TheMeanSkipsFlaggedChannelsButEveryChannelIsDivided) {
    struct Case {
        const char* what;
        std::vector<float> re, wt;
        std::vector<Cf> coefs;
    };
    const Case cases[] = {
        {"a flagged channel", {1, 100, 3, 2}, {1, -1, 1, 1}, Real({0.5f, 50.0f, 1.5f, 1.0f})},
        {"all flagged: factors 1", {1, 2, 3, 4}, {0, 0, -1, 0}, Real({1, 1, 1, 1})},
        {"negative mean, sign included", {2, -6, -2, -2}, {1, 1, 1, 1}, Real({-1, 3, 1, 1})},
        {"a zero mean: factors 1", {1, -1, 2, -2}, {1, 1, 1, 1}, Real({1, 1, 1, 1})},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        rec.Clear();
        AUVXVisibility& v = Auto(1, 0, c.re);
        for (int k = 0; k < 4; ++k) v.At(0, k, 0).wt = c.wt[k];
        ASSERT_TRUE(pass.Calculate_A_AC(rec.vis, rec.groups, 0, 0));
        EXPECT_EQ(Coefs(0, 0), c.coefs);
        EXPECT_EQ(At(*pass.counts[0], 0, 0, 3), 1);
    }
}

TEST_F(AmplPass, TheMeanIsSummedInDouble) {
    // In float 2^24 + 1 + 1 + 1 stays 2^24; in double the mean is 4194304.75.
    Auto(1, 0, {16777216.0f, 1, 1, 1});
    ASSERT_TRUE(pass.Calculate_A_AC(rec.vis, rec.groups, 0, 0));
    EXPECT_EQ(Coefs(0, 0)[1], Cf(static_cast<float>(1.0 / 4194304.75), 0));
    EXPECT_NE(Coefs(0, 0)[1], Cf(1.0f / 4194304.0f, 0));
}

TEST_F(AmplPass, RecordsOfOneTelescopeMultiplyAndUnknownTelescopesAreReported) {
    Auto(1, 0, {1, 3, 1, 3});
    Auto(1, 0, {1, 3, 1, 3});
    Auto(5, 0, {1, 3, 1, 3});
    MessageCapture capture;
    ASSERT_TRUE(pass.Calculate_A_AC(rec.vis, rec.groups, 0, 0));
    EXPECT_EQ(Coefs(0, 0), Real({0.25f, 2.25f, 0.25f, 2.25f}));
    EXPECT_EQ(capture.messages(), std::vector<std::string>{"Error GetTlscIndex 5"});

    AInterval none;
    EXPECT_TRUE(pass.Calculate_A_AC(none.vis, none.groups, 0, 0));
}

TEST_F(AmplPass, RangesRepairTheSpectrumBeforeItMultiplies) {
    AArray<ABPCHRange> ranges;
    ranges.Add(ABPCHRange{0, 3, 0});
    pass.ranges = &ranges;
    Auto(1, 0, {1, 9, 9, 4});  // mean 5.75; channels 1 and 2 become the line from 1 to 4
    ASSERT_TRUE(pass.Calculate_A_AC(rec.vis, rec.groups, 0, 0));
    const float first = static_cast<float>(1.0 / 5.75), last = static_cast<float>(4.0 / 5.75);
    const float step = 1.0f / 3.0f;
    EXPECT_EQ(Coefs(0, 0), (std::vector<Cf>{Cf(first, 0), Cf(1.0f * (last - first) * step + first, 0),
                                            Cf(2.0f * (last - first) * step + first, 0), Cf(last, 0)}));
}

TEST(ModifyAmpl, RangesWorkInOrderOnTheirTelescopes) {
    struct Case {
        const char* what;
        std::vector<ABPCHRange> ranges;
        std::vector<float> expected;
    };
    // Spectrum k x k over ten channels, telescope 3.
    const std::vector<float> square = {0, 1, 4, 9, 16, 25, 36, 49, 64, 81};
    const Case cases[] = {
        {"(3, 7): only 4, 5, 6 change", {{3, 7, 0}}, {0, 1, 4, 9, 19, 29, 39, 49, 64, 81}},
        {"(3, 4): nothing between", {{3, 4, 0}}, square},
        {"last beyond the spectrum", {{3, 10, 0}}, square},
        {"last at the end", {{7, 9, 3}}, {0, 1, 4, 9, 16, 25, 36, 49, 65, 81}},
        {"another telescope's range", {{3, 7, 4}}, square},
        {"a flat request", {{3, 7, 0}, {-1, 0, 0}, {0, 9, 0}}, std::vector<float>(10, 1.0f)},
        {"a flat request for another telescope", {{-1, 0, 5}}, square},
        {"a later range sees the earlier", {{3, 7, 3}, {5, 9, 0}}, {0, 1, 4, 9, 19, 29, 42, 55, 68, 81}},
        {"first after last", {{7, 3, 0}}, square},
        {"first beyond the spectrum, last inside", {{12, 5, 0}}, square},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ATestBPass pass;
        AArray<ABPCHRange> ranges;
        for (const ABPCHRange& r : c.ranges) ranges.Add(r);
        AArray<float> spectrum;
        for (float v : square) spectrum.Add(v);
        pass.ModifyAmpl(3, spectrum, ranges);
        EXPECT_EQ(std::vector<float>(spectrum.begin(), spectrum.end()), c.expected);
    }
}

TEST(ModifyAmpl, TheLineIsComputedInSinglePrecisionInItsOrder) {
    ATestBPass pass;
    AArray<ABPCHRange> ranges;
    ranges.Add(ABPCHRange{0, 3, 0});
    AArray<float> spectrum;
    for (float v : {0.0f, 0.0f, 0.0f, 10.0f}) spectrum.Add(v);
    pass.ModifyAmpl(1, spectrum, ranges);
    // 2 x 10 x (1 / 3) rounds to 6.666667 in float; 20 / 3 would give 6.6666665.
    EXPECT_EQ(spectrum[2], 6.666667f);
    EXPECT_NE(spectrum[2], 20.0f / 3.0f);
}

namespace {

// The caller's own items for ABPass_ACorr: telescopes 1 and 2, RR and LL, one IF, two channels.
struct ACorrPass : ::testing::Test {
    AUVXHeader header = Header({-1, -2}, 1, 2);
    AUVXAntenns antennas;
    ABPass_ACorr pass;
    AInterval rec;
    void SetUp() override {
        pass.Init(header, antennas, 3);
        for (int id : {1, 2}) {
            ABPassCoefItem* coef = Item(id, 0, 0, 2, 1, 2, Cf(9, 9));  // garbage to be zeroed
            auto* count = new ABPassCountItem();
            ASSERT_TRUE(count->Init(2, 1, 2));
            count->Fill(5);
            count->tlsc = id;
            pass.coefs.Add(coef);
            pass.counts.Add(count);
        }
    }
};

}  // namespace

TEST_F(ACorrPass, StoresTheMeanComplexSpectrumOfEachTelescope) {
    rec.Add(Group(1, 1, 0, 3), 1, 2, 2, 2.0f, 1.0f);
    rec.Add(Group(1, 1, 0, 3), 1, 2, 2, 4.0f, 3.0f, -1.0f);  // weights are not read
    rec.Add(Group(1, 2, 0, 3), 1, 2, 2, 50.0f, 50.0f);       // a cross record
    ABPassCoefItem* first = pass.coefs[0];
    ASSERT_TRUE(pass.Calculate(rec.vis, rec.groups, 100, 160));
    EXPECT_EQ(At(*first, 0, 0, 0), Cf(3, 2));
    EXPECT_EQ(At(*first, 1, 0, 1), Cf(3, 2));
    EXPECT_EQ(At(*pass.counts[0], 1, 0, 1), 2);
    EXPECT_EQ(At(*pass.coefs[1], 0, 0, 0), Cf(0, 0));  // telescope 2: no data, zero
    EXPECT_EQ(At(*pass.counts[1], 0, 0, 0), 0);
    ASSERT_EQ(pass.stored.count, 2);
    EXPECT_EQ(pass.stored[0], first);
    EXPECT_EQ(pass.stored[1]->start, 100.0);
    EXPECT_EQ(pass.stored[1]->end, 160.0);
    EXPECT_EQ(pass.coefs.owner, 0);

    // The zero spectrum of telescope 2 makes Calibrate give NaN on its baselines.
    AInterval later;
    AUVXVisibility& v = later.Add(Group(1, 2, 130), 1, 2, 2, 1.0f, 0.0f);
    AUVXGroup g = later.groups[0];
    ASSERT_TRUE(pass.Calibrate(g, v));
    EXPECT_TRUE(std::isnan(v.At(0, 0, 0).re));
}

TEST_F(ACorrPass, SumsInSinglePrecision) {
    rec.Add(Group(2, 2, 0, 3), 1, 2, 2, 16777216.0f, 0.0f);
    for (int k = 0; k < 3; ++k) rec.Add(Group(2, 2, 0, 3), 1, 2, 2, 1.0f, 0.0f);
    ASSERT_TRUE(pass.Calculate(rec.vis, rec.groups, 0, 1));
    EXPECT_EQ(At(*pass.coefs[1], 0, 0, 0), Cf(4194304.0f, 0));  // each added 1 was lost in float
}

TEST_F(ACorrPass, AnIntervalWithoutAutocorrelationsStoresNothing) {
    rec.Add(Group(1, 1, 0, 4), 1, 2, 2, 2.0f);  // another source
    rec.Add(Group(1, 2, 0, 3), 1, 2, 2, 2.0f);
    ASSERT_TRUE(pass.Calculate(rec.vis, rec.groups, 0, 1));
    EXPECT_EQ(pass.stored.count, 0);
    EXPECT_EQ(pass.coefs.owner, 1);
    for (int t = 0; t < 2; ++t)
        for (std::size_t i = 0; i < pass.coefs[t]->count(); ++i) {
            EXPECT_EQ(pass.coefs[t]->data[i], Cf(0, 0));
            EXPECT_EQ(pass.counts[t]->data[i], 0);
        }
}
