// ABPass_Base: coefficient items, Init, GetTlscIndex, the stored-interval search, Calibrate and shared items.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "BandpassFixtures.h"
#include "support/MessageCapture.h"

using namespace bptest;

TEST(ABPassCoefItem, CopiesAndMovesAreDeep) {
    ABPassCoefItem a;
    EXPECT_EQ(a.start, 0.0);
    EXPECT_EQ(a.end, 0.0);
    EXPECT_EQ(a.tlsc, 0);
    ASSERT_TRUE(a.Init(2, 3, 4));
    EXPECT_EQ(a.count(), 24u);
    a.Fill(Cf(2, 3));
    a.tlsc = 7;
    a.start = 1.5;
    a.end = 9.5;

    ABPassCoefItem copy(a);
    ABPassCoefItem moved(std::move(copy));
    ABPassCoefItem assigned;
    assigned = a;
    ABPassCoefItem moveAssigned;
    moveAssigned = std::move(assigned);
    for (ABPassCoefItem* item : {&copy, &moved, &moveAssigned}) {
        EXPECT_NE(item->data, a.data);
        ASSERT_EQ(item->count(), 24u);
        EXPECT_EQ(At(*item, 1, 2, 3), Cf(2, 3));
        EXPECT_EQ(item->tlsc, 7);
        EXPECT_EQ(item->start, 1.5);
        EXPECT_EQ(item->end, 9.5);
    }
    At(moved, 0, 0, 0) = Cf(-1, -1);
    EXPECT_EQ(At(a, 0, 0, 0), Cf(2, 3));

    ABPassCountItem counts;
    EXPECT_FALSE(counts.Init(2, 0, 4));  // a zero would close the extent list early
    EXPECT_TRUE(counts.Init(1, 1, 5));
    EXPECT_EQ(counts.GetDims(), 3u);
}

TEST(ABPassBase, InitCountsTheParallelHandsOfTheFirstCodes) {
    struct Case {
        AUVXHeader header;
        int nPol;
    };
    AUVXHeader limited = Header({-1, -2}, 1, 4);
    limited.nStokes = 1;  // LL stands beyond the products and is not counted
    const Case cases[] = {
        {Header({-1, -2}, 1, 4), 2},
        {Header({-2}, 1, 4), 1},
        {Header({-1, -2, -3, -4}, 1, 4), 2},
        {Header({-5, -6, -7, -8}, 1, 4), 2},
        {Header({1}, 1, 4), 0},
        {Header({-3, -4}, 1, 4), 0},
        {limited, 1},
    };
    for (const Case& c : cases) {
        AUVXHeader h = c.header;
        AUVXAntenns antennas;
        ABPass_Base base;
        EXPECT_FALSE(base.Init(h, antennas, 4));
        EXPECT_EQ(base.nPol, c.nPol);
        EXPECT_EQ(base.sourceId, 4);
        EXPECT_EQ(base.header, &h);
        EXPECT_EQ(base.antennas, &antennas);
    }
}

TEST(ABPassBase, GetTlscIndexFindsTheFirstItemOrShowsTheId) {
    ABPass_Base base;
    base.coefs.Add(Item(3, 0, 0, 1, 1, 1, Cf(1, 0)));
    base.coefs.Add(Item(8, 0, 0, 1, 1, 1, Cf(1, 0)));
    base.coefs.Add(Item(3, 0, 0, 1, 1, 1, Cf(1, 0)));
    MessageCapture capture;
    EXPECT_EQ(base.GetTlscIndex(3), 0);
    EXPECT_EQ(base.GetTlscIndex(8), 1);
    EXPECT_TRUE(capture.messages().empty());
    EXPECT_EQ(base.GetTlscIndex(17), -1);
    EXPECT_EQ(base.GetTlscIndex(-2), -1);
    EXPECT_EQ(capture.messages(),
              (std::vector<std::string>{"Error GetTlscIndex 17", "Error GetTlscIndex -2"}));

    // The base's calculation does nothing.
    AInterval rec;
    rec.Add(Group(3, 3), 1, 1, 1, 5.0f);
    EXPECT_TRUE(base.Calculate(rec.vis, rec.groups, 0, 1));
    EXPECT_EQ(rec.vis[0]->At(0, 0, 0).re, 5.0f);
    EXPECT_EQ(base.stored.count, 0);
}

namespace {

// Telescope 3 with intervals [0, 10), [10, 20), [30, 40), a zero-length one at 50 and [60, 70);
// telescope 4's items interleaved, so the search must skip them.
struct SearchStore : ::testing::Test {
    ATestBPass pass;
    void SetUp() override {
        const double spans[][2] = {{0, 10}, {10, 20}, {30, 40}, {50, 50}, {60, 70}};
        for (const auto& span : spans) {
            pass.stored.Add(Item(3, span[0], span[1], 1, 1, 1, Cf(1, 0)));
            pass.stored.Add(Item(4, span[0] + 1000, span[1] + 1000, 1, 1, 1, Cf(1, 0)));
        }
    }
};

}  // namespace

TEST_F(SearchStore, WalkAndLookupAgreeOnEveryCase) {
    struct Case {
        const char* what;
        double time;
        int tlsc, index, before, after;
    };
    // Telescope 3's items sit at stored positions 0, 2, 4, 6, 8.
    const Case cases[] = {
        {"inside the first", 5, 3, 0, 0, 0},
        {"start of the first", 0, 3, 0, 0, 0},
        {"end of one, start of the next: the next", 10, 3, 2, 2, 2},
        {"just before an end", std::nextafter(10.0, 0.0), 3, 0, 0, 0},
        {"gap, nearer the earlier middle", 24.9, 3, 2, 2, 4},
        {"gap, exactly midway: the later", 25, 3, 4, 2, 4},
        {"gap, nearer the later middle", 25.1, 3, 4, 2, 4},
        {"end of an interval before a gap", 20, 3, 2, 2, 4},
        {"a zero-length interval by distance", 50, 3, 6, 6, 8},
        {"between zero length and the next, midway", 57.5, 3, 8, 6, 8},
        {"before everything", -1e9, 3, 0, 0, 0},
        {"after everything", 1e9, 3, 8, 8, 8},
        {"at the last end", 70, 3, 8, 8, 8},
        {"the other telescope", 1005, 4, 1, 1, 1},
        {"a telescope without items", 5, 9, -1, -1, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        int before = 99, after = 99;
        EXPECT_EQ(pass.SearchIndexWalk(c.time, c.tlsc, before, after), c.index);
        EXPECT_EQ(before, c.before);
        EXPECT_EQ(after, c.after);
        before = after = 99;
        EXPECT_EQ(pass.SearchIndex(c.time, c.tlsc, before, after), c.index);
        EXPECT_EQ(before, c.before);
        EXPECT_EQ(after, c.after);
    }
}

TEST_F(SearchStore, LookupFollowsTheStoreAsItGrowsAndIsRebuilt) {
    int before = 0, after = 0;
    EXPECT_EQ(pass.SearchIndex(1e9, 3, before, after), 8);
    pass.stored.Add(Item(3, 80, 90, 1, 1, 1, Cf(1, 0)));
    EXPECT_EQ(pass.SearchIndex(1e9, 3, before, after), 10);
    EXPECT_EQ(pass.SearchIndex(85, 7, before, after), -1);
    pass.stored.Add(Item(7, 80, 90, 1, 1, 1, Cf(1, 0)));
    EXPECT_EQ(pass.SearchIndex(85, 7, before, after), 11);

    // A store emptied and refilled is indexed afresh.
    ATestBPass other;
    other.stored.Add(Item(5, 0, 10, 1, 1, 1, Cf(1, 0)));
    EXPECT_EQ(other.SearchIndex(5, 5, before, after), 0);
    other.ReleaseList(other.stored);
    EXPECT_EQ(other.SearchIndex(5, 5, before, after), -1);
    other.stored.Add(Item(6, 0, 10, 1, 1, 1, Cf(1, 0)));
    EXPECT_EQ(other.SearchIndex(5, 5, before, after), -1);
    EXPECT_EQ(other.SearchIndex(5, 6, before, after), 0);
}

namespace {

// A pass over RR LL RL LR, one IF, `nChan` channels, with telescope 1 and 2 items when asked.
struct CalibrateStore : ::testing::Test {
    AUVXHeader header = Header({-1, -2, -3, -4}, 1, 3);
    AUVXAntenns antennas;
    ABPass pass;
    void SetUp() override { pass.Init(header, antennas, 1); }
    ABPassCoefItem& Store(int tlsc, Cf p0, Cf p1, double start = 0, double end = 100) {
        ABPassCoefItem* item = Item(tlsc, start, end, 2, 1, 3, p0);
        for (int c = 0; c < 3; ++c) At(*item, 1, 0, c) = p1;
        pass.stored.Add(item);
        return *item;
    }
};

void ExpectSample(const AUVXComplex& e, float re, float im) {
    EXPECT_NEAR(e.re, re, 1e-5f * (1 + std::fabs(re)));
    EXPECT_NEAR(e.im, im, 1e-5f * (1 + std::fabs(im)));
}

}  // namespace

TEST_F(CalibrateStore, ProductsTakeTheirPolarisationIndexOnEachSide) {
    Store(1, Cf(4, 0), Cf(9, 0));
    Store(2, Cf(1, 0), Cf(16, 0));
    AInterval rec;
    AUVXVisibility& v = rec.Add(Group(1, 2, 50), 1, 3, 4, 24.0f, 0.0f, 2.0f);
    AUVXGroup g = rec.groups[0];
    ASSERT_TRUE(pass.Calibrate(g, v));
    // RR sqrt(4 x 1), LL sqrt(9 x 16), RL ant1 index 0 with ant2 index 1 sqrt(4 x 16), LR sqrt(9 x 1).
    const float expected[4] = {12.0f, 2.0f, 3.0f, 8.0f};
    for (int s = 0; s < 4; ++s)
        for (int c = 0; c < 3; ++c) {
            ExpectSample(v.At(0, c, s), expected[s], 0.0f);
            EXPECT_EQ(v.At(0, c, s).wt, 2.0f);
        }
}

TEST_F(CalibrateStore, AMissingSideCountsAsOne) {
    AInterval rec;
    AUVXVisibility& untouched = rec.Add(Group(1, 2, 50), 1, 3, 4, 6.0f, 2.0f);
    AUVXGroup g = rec.groups[0];
    ASSERT_TRUE(pass.Calibrate(g, untouched));
    for (const AUVXComplex& e : untouched) ExpectSample(e, 6.0f, 2.0f);

    Store(1, Cf(4, 0), Cf(4, 0));
    AUVXVisibility& oneSide = rec.Add(Group(1, 2, 50), 1, 3, 4, 6.0f, 2.0f);
    ASSERT_TRUE(pass.Calibrate(g, oneSide));
    for (const AUVXComplex& e : oneSide) ExpectSample(e, 3.0f, 1.0f);
}

TEST_F(CalibrateStore, AnAutocorrelationIsDividedByTheMagnitude) {
    Store(1, Cf(3, 4), Cf(3, 4));
    AInterval rec;
    AUVXVisibility& v = rec.Add(Group(1, 1, 50), 1, 3, 4, 10.0f, 10.0f);
    AUVXGroup g = rec.groups[0];
    ASSERT_TRUE(pass.Calibrate(g, v));
    for (int c = 0; c < 3; ++c) {
        ExpectSample(v.At(0, c, 0), 2.0f, 2.0f);
        ExpectSample(v.At(0, c, 1), 2.0f, 2.0f);
    }
}

TEST_F(CalibrateStore, PhasesActAtHalfStrengthThroughThePrincipalRoot) {
    struct Case {
        double a, b;  // phases of ant1's and ant2's coefficient
        double removed;
    };
    const Case cases[] = {
        {1.0, 0.0, 0.5},   // a phase alone: half of it
        {1.2, -1.2, 1.2},  // a pair of opposite phases: all of it
        {-0.7, 0.7, -0.7},
        {2.0, -2.0, 2.0 - M_PI},  // 4 rad lies beyond pi: the principal root takes (4 - 2 pi) / 2
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.a);
        ABPass fresh;
        fresh.Init(header, antennas, 1);
        fresh.stored.Add(Item(1, 0, 100, 2, 1, 3, Cf(std::cos(c.a), std::sin(c.a))));
        fresh.stored.Add(Item(2, 0, 100, 2, 1, 3, Cf(std::cos(c.b), std::sin(c.b))));
        AInterval rec;
        AUVXVisibility& v = rec.Add(Group(1, 2, 50), 1, 3, 4, 1.0f, 0.0f);
        AUVXGroup g = rec.groups[0];
        ASSERT_TRUE(fresh.Calibrate(g, v));
        ExpectSample(v.At(0, 0, 0), std::cos(-c.removed), std::sin(-c.removed));
    }
}

TEST_F(CalibrateStore, SmithDivisionInSinglePrecision) {
    // sqrt(-7 + 24i) = 3 + 4i, and (1 + 0i) / (3 + 4i) = 0.12 - 0.16i; a divisor with |d| < |c| too.
    Store(1, Cf(-7, 24), Cf(1, 0));
    Store(2, Cf(24, -7), Cf(1, 0));
    AInterval rec;
    AUVXVisibility& v1 = rec.Add(Group(1, 1, 50), 1, 3, 4, 1.0f, 0.0f);
    AUVXGroup g1 = Group(1, 3, 50);
    ASSERT_TRUE(pass.Calibrate(g1, v1));
    EXPECT_FLOAT_EQ(v1.At(0, 0, 0).re, 0.12f);
    EXPECT_FLOAT_EQ(v1.At(0, 0, 0).im, -0.16f);
    // sqrt(24 - 7i) = 4.9497 - 0.7071i: 5 + 0i over it.
    AUVXVisibility& v2 = rec.Add(Group(2, 3, 50), 1, 3, 4, 5.0f, 0.0f);
    AUVXGroup g2 = Group(2, 3, 50);
    ASSERT_TRUE(pass.Calibrate(g2, v2));
    const std::complex<double> want = 5.0 / std::sqrt(std::complex<double>(24, -7));
    EXPECT_NEAR(v2.At(0, 0, 0).re, want.real(), 1e-6);
    EXPECT_NEAR(v2.At(0, 0, 0).im, want.imag(), 1e-6);
}

TEST_F(CalibrateStore, AZeroCoefficientGivesNaNAndKeepsTheWeight) {
    Store(1, Cf(0, 0), Cf(0, 0));
    AInterval rec;
    AUVXVisibility& v = rec.Add(Group(1, 2, 50), 1, 3, 4, 3.0f, 1.0f, 0.5f);
    v.At(0, 1, 0).wt = 0.0f;  // flagged elements keep their parts
    v.At(0, 2, 0) = AUVXComplex{std::numeric_limits<float>::quiet_NaN(), 7.0f, -1.0f};
    AUVXGroup g = rec.groups[0];
    ASSERT_TRUE(pass.Calibrate(g, v));
    EXPECT_TRUE(std::isnan(v.At(0, 0, 0).re));
    EXPECT_TRUE(std::isnan(v.At(0, 0, 0).im));
    EXPECT_EQ(v.At(0, 0, 0).wt, 0.5f);
    EXPECT_EQ(v.At(0, 1, 0).re, 3.0f);
    EXPECT_EQ(v.At(0, 1, 0).im, 1.0f);
    EXPECT_TRUE(std::isnan(v.At(0, 2, 0).re));
    EXPECT_EQ(v.At(0, 2, 0).im, 7.0f);
}

TEST_F(CalibrateStore, ACodeOutsideTheTableStopsWithEarlierProductsCorrected) {
    header = Header({-1, 1, -2}, 1, 3);  // Stokes I between RR and LL
    pass.Init(header, antennas, 1);
    Store(1, Cf(4, 0), Cf(4, 0));
    Store(2, Cf(4, 0), Cf(4, 0));
    AInterval rec;
    AUVXVisibility& v = rec.Add(Group(1, 2, 50), 1, 3, 3, 8.0f, 0.0f);
    AUVXGroup g = rec.groups[0];
    EXPECT_FALSE(pass.Calibrate(g, v));
    for (int c = 0; c < 3; ++c) {
        ExpectSample(v.At(0, c, 0), 2.0f, 0.0f);
        ExpectSample(v.At(0, c, 1), 8.0f, 0.0f);
        ExpectSample(v.At(0, c, 2), 8.0f, 0.0f);
    }
}

TEST_F(CalibrateStore, CrossHandsWithOneParallelHandReadNothingOutside) {
    header = Header({-2, -3}, 2, 3);
    pass.Init(header, antennas, 1);
    ASSERT_EQ(pass.nPol, 1);
    pass.stored.Add(Item(1, 0, 100, 1, 2, 3, Cf(4, 0)));
    pass.stored.Add(Item(2, 0, 100, 1, 2, 3, Cf(9, 0)));
    AInterval rec;
    AUVXVisibility& v = rec.Add(Group(1, 2, 50), 2, 3, 2, 12.0f, 0.0f);
    AUVXGroup g = rec.groups[0];
    ASSERT_TRUE(pass.Calibrate(g, v));
    ExpectSample(v.At(1, 2, 0), 2.0f, 0.0f);  // LL at index 0: sqrt(4 x 9)
    ExpectSample(v.At(1, 2, 1), 6.0f, 0.0f);  // RL: ant2's index 1 does not exist and counts as 1
}

TEST_F(CalibrateStore, EachRecordTakesTheIntervalOfItsOwnTime) {
    Store(1, Cf(4, 0), Cf(4, 0), 0, 10);
    Store(1, Cf(16, 0), Cf(16, 0), 10, 20);
    AInterval rec;
    AUVXVisibility& early = rec.Add(Group(1, 1, 9.5), 1, 3, 4, 8.0f, 0.0f);
    AUVXVisibility& late = rec.Add(Group(1, 1, 10.0), 1, 3, 4, 8.0f, 0.0f);
    for (int k = 0; k < 2; ++k) {
        AUVXGroup g = rec.groups[k];
        ASSERT_TRUE(pass.Calibrate(g, *rec.vis[k]));
    }
    ExpectSample(early.At(0, 0, 0), 2.0f, 0.0f);
    ExpectSample(late.At(0, 0, 0), 0.5f, 0.0f);
}

// Objects copied from one another share their items; each must let go of them once, in any order.
TEST(ABPassSharing, CopiesReleaseSharedItemsOnceInAnyOrder) {
    AUVXHeader header = Header({-1}, 1, 2);
    AUVXAntenns antennas;
    AArray<int> ids;
    ids.Add(1);
    ids.Add(2);

    auto makeStored = [&](ABPass& pass, float value) {
        pass.Init(header, antennas, 1);
        ASSERT_TRUE(pass.InitInernalGain(ids));
        pass.coefs[0]->Fill(Cf(value, 0));
        pass.AddGain(0, 10);
    };

    {  // the copy goes first
        ABPass original;
        makeStored(original, 5);
        {
            ABPass copy(original);
            EXPECT_EQ(copy.stored[0], original.stored[0]);
            EXPECT_EQ(copy.stored.owner, 1);
            EXPECT_EQ(copy.coefs.owner, 0);
        }
        EXPECT_EQ(At(*original.stored[0], 0, 0, 1), Cf(5, 0));
    }
    {  // the original goes first
        auto original = std::make_unique<ABPass>();
        makeStored(*original, 6);
        ABPass copy(std::move(*original));  // a move copies
        EXPECT_EQ(original->stored.count, 2);
        original.reset();
        EXPECT_EQ(At(*copy.stored[0], 0, 0, 0), Cf(6, 0));
    }
    {  // current items shared, then one side starts a new interval
        ABPass original;
        original.Init(header, antennas, 1);
        ASSERT_TRUE(original.InitInernalGain(ids));
        original.coefs[1]->Fill(Cf(7, 0));
        ABPass copy = original;
        EXPECT_EQ(copy.coefs.owner, 1);
        ASSERT_TRUE(original.InitInernalGain(ids));
        EXPECT_EQ(At(*copy.coefs[1], 0, 0, 0), Cf(7, 0));
        copy.AddGain(0, 5);
        ASSERT_TRUE(copy.InitInernalGain(ids));
        EXPECT_EQ(At(*copy.stored[1], 0, 0, 0), Cf(7, 0));
    }
    {  // assignment lets go of the target's own items and shares the source's
        ABPass source, target;
        makeStored(source, 2);
        makeStored(target, 3);
        ABPass third(target);
        target = source;
        EXPECT_EQ(target.stored[0], source.stored[0]);
        EXPECT_EQ(At(*third.stored[0], 0, 0, 0), Cf(3, 0));  // still held by the third
        target = std::move(source);
        target = target;
        EXPECT_EQ(At(*target.stored[0], 0, 0, 0), Cf(2, 0));
    }
    {  // the autocorrelation calculator's copies
        ABPass_ACorr a;
        a.Init(header, antennas, 1);
        a.stored.Add(Item(1, 0, 1, 1, 1, 2, Cf(1, 1)));
        ABPass_ACorr b(a), c;
        c = b;
        ABPass_ACorr d(std::move(c));
        EXPECT_EQ(d.stored[0], a.stored[0]);
    }
}
