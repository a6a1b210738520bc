// Tests of the per-baseline time averaging.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "IntervalFixtures.h"

using namespace ivtest;

namespace {

// The records of one interval, built by hand, and the result of a call.
struct Interval {
    APtrArray<AUVXVisibility*> vis, outVis;
    AArray<AUVXGroup> groups, outGroups;
    int nElem;
    explicit Interval(int n) : nElem(n) {}

    // One record of nElem elements {value + e, -value, 1}, element 0 weighing wt0; u, v, w = value,
    // 2 value, -value.
    AUVXVisibility& Add(int ant1, int ant2, float wt0, float value, int sourceId = 1,
                        std::uint8_t flags = 0) {
        AUVXVisibility* v = new AUVXVisibility(1, nElem, 1);
        for (int e = 0; e < nElem; ++e) v->data[e] = AUVXComplex{value + e, -value, 1.0f};
        v->data[0].wt = wt0;
        vis.Add(v);
        AUVXGroup g = MakeGroup(100, ant1, ant2, sourceId);
        g.u = value;
        g.v = 2 * value;
        g.w = -value;
        g.flags = flags;
        g.freqId = 3;
        groups.Add(g);
        return *v;
    }
};

// Counts its calls and can reject records by index.
class CountingMean : public AMeanCalc {
public:
    int calls = 0;
    int reject = -1;

protected:
    bool Filter(AUVXVisibility& vis, AUVXGroup& group, int index, int flags) override {
        ++calls;
        return index != reject && AMeanCalc::Filter(vis, group, index, flags);
    }
};

}  // namespace

TEST(MeanCalc, MeansInFloatWithTheWeightRuleOnElementZero) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    Interval in(2);
    // Baseline (2,5): four records, of which the one with 0.2499 in element 0 does not count.
    in.Add(2, 5, 0.25f, 16777216.0f, -1);
    in.Add(2, 5, 0.2499f, 1000.0f, -9);
    in.Add(2, 5, nan, 1.0f, -2).data[1].wt = -1.0f;  // a flagged later element is added in full
    in.Add(2, 5, 1.0f, 1.0f, -2);
    // Baseline (1,3): three records whose sums show the rounding of scale = 1 / n.
    in.Add(1, 3, 1.0f, 1.0f, 1);
    in.Add(1, 3, 1.0f, 2.0f, 2);
    in.Add(1, 3, 1.0f, 2.0f, 2);
    // Baseline (4,4): no record counts.
    in.Add(4, 4, 0.1f, 7.0f, 7, 1);

    AMeanCalc mean;
    ASSERT_TRUE(mean.Calculate(in.vis, in.groups, 10, 30, in.outVis, in.outGroups, 0));
    ASSERT_EQ(in.outVis.count, 3);
    ASSERT_EQ(in.outGroups.count, 3);
    EXPECT_EQ(in.outVis.capacity, 3);
    EXPECT_EQ(in.outGroups.capacity, 3);
    // Every result: its baseline in ABaseLine order, the middle time, flags and freqId 0.
    const int ants[3][2] = {{1, 3}, {2, 5}, {4, 4}};
    for (int b = 0; b < 3; ++b) {
        const AUVXGroup& g = in.outGroups[b];
        EXPECT_EQ(+g.ant1, ants[b][0]);
        EXPECT_EQ(+g.ant2, ants[b][1]);
        EXPECT_EQ(+g.time, 20.0);
        EXPECT_EQ(+g.flags, 0);
        EXPECT_EQ(+g.freqId, 0);
    }

    // (1,3): the sums 5 and 10 scaled by the float 1/3, which differs from dividing by 3. (2,5): float
    // sums, 16777216 + 1 + 1 stays 16777216 in float (18 more in double), the weights 1, -1 (flagged),
    // 1 of element 1 add up to 1. (4,4): nothing counted, zeros.
    const float third = 1.0f / 3.0f, big = 16777216.0f * third;
    ASSERT_NE(5.0f * third, 5.0f / 3.0f);
    ASSERT_NE(big, static_cast<float>(16777218.0 / 3));
    const AUVXComplex *d13 = in.outVis[0]->data, *d25 = in.outVis[1]->data, *d44 = in.outVis[2]->data;
    const AUVXGroup &g13 = in.outGroups[0], &g25 = in.outGroups[1], &g44 = in.outGroups[2];
    EXPECT_EQ(d13[0].re, 5.0f * third);
    EXPECT_EQ(d13[1].re, 8.0f * third);
    EXPECT_EQ(d13[0].im, -5.0f * third);
    EXPECT_EQ(d13[0].wt, 3.0f * third);
    EXPECT_EQ(+g13.u, 5.0f * third);
    EXPECT_EQ(+g13.v, 10.0f * third);
    EXPECT_EQ(d25[0].re, big);
    EXPECT_EQ(+g25.u, big);
    EXPECT_EQ(d25[1].wt, (1.0f - 1.0f + 1.0f) * third);
    EXPECT_EQ(+g44.u, 0);
    EXPECT_EQ(+g44.w, 0);
    EXPECT_EQ(d44[0].re, 0);
    EXPECT_EQ(d44[1].re, 0);
    EXPECT_EQ(d44[0].wt, 0);
    EXPECT_EQ(d44[1].wt, 0);
    EXPECT_TRUE(std::isnan(d25[0].wt));  // the NaN weight was added
    // The mean source ID is truncated toward zero: 5 / 3 and -5 / 3.
    EXPECT_EQ(+g13.sourceId, 1);
    EXPECT_EQ(+g25.sourceId, -1);
    EXPECT_EQ(+g44.sourceId, 0);
}

TEST(MeanCalc, FilterCallsFlagsAndTheFlagBit) {
    Interval in(1);
    in.Add(1, 2, 1, 10, 1, 0);
    in.Add(1, 1, 1, 20, 1, 0);
    in.Add(1, 2, 1, 30, 1, 1);  // the same pair with bit 0 of the flags set: a second list item
    in.Add(2, 2, 1, 40, 1, 0);
    CountingMean mean;
    auto run = [&](int flags) {
        return mean.Calculate(in.vis, in.groups, 0, 8, in.outVis, in.outGroups, flags);
    };
    ASSERT_TRUE(run(0));
    // Items (1,1), (1,2,0), (1,2,1), (2,2): once per record for the list, once per record and item.
    EXPECT_EQ(mean.calls, 4 + 4 * 4);
    ASSERT_EQ(in.outGroups.count, 4);
    // The two (1,2) items average the same records: 10 and 30.
    EXPECT_EQ(in.outVis[1]->data[0].re, 20.0f);
    EXPECT_EQ(in.outVis[2]->data[0].re, 20.0f);
    EXPECT_EQ(+in.outGroups[1].ant2, 2);
    EXPECT_EQ(+in.outGroups[2].ant2, 2);
    EXPECT_EQ(+in.outGroups[2].flags, 0);

    ASSERT_TRUE(run(AMeanCalc::kNoAutoCorr));
    ASSERT_EQ(in.outGroups.count, 2);
    EXPECT_EQ(+in.outGroups[0].ant1, 1);
    EXPECT_EQ(+in.outGroups[0].ant2, 2);
    ASSERT_TRUE(run(AMeanCalc::kOnlyAutoCorr));
    ASSERT_EQ(in.outGroups.count, 2);
    EXPECT_EQ(in.outVis[0]->data[0].re, 20.0f);
    EXPECT_EQ(in.outVis[1]->data[0].re, 40.0f);
    ASSERT_TRUE(run(3));
    EXPECT_EQ(in.outVis.count, 0);
    EXPECT_EQ(in.outGroups.count, 0);

    // A record the derived Filter rejects takes no part: (1,2,0) is gone, (1,2,1) averages 30 alone.
    mean.reject = 0;
    ASSERT_TRUE(run(0));
    ASSERT_EQ(in.outGroups.count, 3);
    EXPECT_EQ(in.outVis[1]->data[0].re, 30.0f);
}

TEST(MeanCalc, PassThroughEmptyInputAndTheShapeOfTheFirstRecord) {
    Interval in(1);
    in.Add(1, 2, 0.0f, 10);
    in.Add(3, 3, 1, 20);
    in.Add(1, 4, 1, 30);
    in.outVis.Add(new AUVXVisibility(1, 1, 1));  // emptied (and deleted) by the call
    AMeanCalc mean;
    ASSERT_TRUE(mean.Calculate(in.vis, in.groups, 50, 50, in.outVis, in.outGroups, AMeanCalc::kNoAutoCorr));
    ASSERT_EQ(in.outVis.count, 2);
    EXPECT_EQ(in.outVis.owner, 0);
    EXPECT_EQ(in.outVis[0], in.vis[0]);  // the same objects, weights below 0.25 included
    EXPECT_EQ(in.outVis[1], in.vis[2]);
    ASSERT_EQ(in.outGroups.count, 2);
    EXPECT_EQ(+in.outGroups[1].sourceId, +in.groups[2].sourceId);
    EXPECT_EQ(+in.outGroups[1].u, 30.0f);
    EXPECT_EQ(+in.outGroups[1].freqId, 3);  // copied as it is

    Interval none(1);
    ASSERT_TRUE(mean.Calculate(none.vis, none.groups, 0, 10, none.outVis, none.outGroups, 0));
    EXPECT_EQ(none.outVis.count, 0);
    EXPECT_EQ(none.outGroups.count, 0);

    // A cube without an IF axis: the result has one band of the same channels and products.
    none.vis.Add(new AUVXVisibility(0, 3, 2));
    for (int e = 0; e < 6; ++e) none.vis[0]->data[e] = AUVXComplex{static_cast<float>(e), 0, 1};
    none.groups.Add(MakeGroup(1, 1, 2));
    ASSERT_TRUE(mean.Calculate(none.vis, none.groups, 0, 10, none.outVis, none.outGroups, 0));
    ASSERT_EQ(none.outVis.count, 1);
    EXPECT_EQ(none.outVis[0]->nIF, 1);
    EXPECT_EQ(none.outVis[0]->nChan, 3);
    EXPECT_EQ(none.outVis[0]->nStokes, 2);
    ASSERT_EQ(none.outVis[0]->count, 6);
    EXPECT_EQ(none.outVis[0]->data[5].re, 5.0f);
}
