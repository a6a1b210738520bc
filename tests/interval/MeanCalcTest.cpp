// Tests of the per-baseline time averaging.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "IntervalFixtures.h"

using namespace ivtest;

namespace {

// The records of one interval, built by hand: each call adds one record of nElem elements.
struct Interval {
    APtrArray<AUVXVisibility*> vis;
    AArray<AUVXGroup> groups;
    int nElem;
    explicit Interval(int n) : nElem(n) {}

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
        if (index == reject) return false;
        return AMeanCalc::Filter(vis, group, index, flags);
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

    APtrArray<AUVXVisibility*> outVis;
    AArray<AUVXGroup> outGroups;
    AMeanCalc mean;
    ASSERT_TRUE(mean.Calculate(in.vis, in.groups, 10, 30, outVis, outGroups, 0));
    ASSERT_EQ(outVis.count, 3);
    ASSERT_EQ(outGroups.count, 3);
    EXPECT_EQ(outVis.capacity, 3);
    EXPECT_EQ(outGroups.capacity, 3);

    const float third = 1.0f / 3.0f;
    // (1,3): the sums 5 and 10 scaled by the float 1/3, which differs from dividing by 3.
    const AUVXGroup& g13 = outGroups[0];
    EXPECT_EQ(+g13.ant1, 1);
    EXPECT_EQ(+g13.ant2, 3);
    ASSERT_NE(5.0f * third, 5.0f / 3.0f);
    EXPECT_EQ(outVis[0]->data[0].re, 5.0f * third);
    EXPECT_EQ(outVis[0]->data[1].re, 8.0f * third);
    EXPECT_EQ(outVis[0]->data[0].im, -5.0f * third);
    EXPECT_EQ(outVis[0]->data[0].wt, 3.0f * third);
    EXPECT_EQ(+g13.u, 5.0f * third);
    EXPECT_EQ(+g13.v, 10.0f * third);
    EXPECT_EQ(+g13.sourceId, 1);  // 5 / 3 truncated
    EXPECT_EQ(+g13.time, 20.0);
    EXPECT_EQ(+g13.flags, 0);
    EXPECT_EQ(+g13.freqId, 0);

    // (2,5): float sums, 16777216 + 1 + 1 stays 16777216 in float (18 more in double).
    const AUVXGroup& g25 = outGroups[1];
    EXPECT_EQ(+g25.ant1, 2);
    EXPECT_EQ(+g25.ant2, 5);
    const float big = 16777216.0f * third;
    ASSERT_NE(big, static_cast<float>(16777218.0 / 3));
    EXPECT_EQ(outVis[1]->data[0].re, big);
    EXPECT_EQ(+g25.u, big);
    EXPECT_TRUE(std::isnan(outVis[1]->data[0].wt));                  // the NaN weight was added
    EXPECT_EQ(outVis[1]->data[1].wt, (1.0f - 1.0f + 1.0f) * third);  // 1, -1 (flagged), 1
    EXPECT_EQ(+g25.sourceId, -1);                                    // -5 / 3 truncated toward zero

    // (4,4): listed, but nothing counted: zeros with the middle time and the baseline.
    const AUVXGroup& g44 = outGroups[2];
    EXPECT_EQ(+g44.ant1, 4);
    EXPECT_EQ(+g44.ant2, 4);
    EXPECT_EQ(+g44.time, 20.0);
    EXPECT_EQ(+g44.u, 0.0f);
    EXPECT_EQ(+g44.w, 0.0f);
    EXPECT_EQ(+g44.sourceId, 0);
    EXPECT_EQ(+g44.flags, 0);
    for (int e = 0; e < 2; ++e) {
        EXPECT_EQ(outVis[2]->data[e].re, 0.0f);
        EXPECT_EQ(outVis[2]->data[e].wt, 0.0f);
    }
}

TEST(MeanCalc, FilterCallsFlagsAndTheFlagBit) {
    Interval in(1);
    in.Add(1, 2, 1, 10, 1, 0);
    in.Add(1, 1, 1, 20, 1, 0);
    in.Add(1, 2, 1, 30, 1, 1);  // the same pair with bit 0 of the flags set: a second list item
    in.Add(2, 2, 1, 40, 1, 0);

    APtrArray<AUVXVisibility*> outVis;
    AArray<AUVXGroup> outGroups;
    CountingMean mean;
    ASSERT_TRUE(mean.Calculate(in.vis, in.groups, 0, 8, outVis, outGroups, 0));
    // Items (1,1), (1,2,0), (1,2,1), (2,2): once per record for the list, once per record and item.
    EXPECT_EQ(mean.calls, 4 + 4 * 4);
    ASSERT_EQ(outGroups.count, 4);
    // The two (1,2) items average the same records: 10 and 30.
    EXPECT_EQ(outVis[1]->data[0].re, 20.0f);
    EXPECT_EQ(outVis[2]->data[0].re, 20.0f);
    EXPECT_EQ(+outGroups[1].ant2, 2);
    EXPECT_EQ(+outGroups[2].ant2, 2);
    EXPECT_EQ(+outGroups[2].flags, 0);

    mean.calls = 0;
    ASSERT_TRUE(mean.Calculate(in.vis, in.groups, 0, 8, outVis, outGroups, AMeanCalc::kNoAutoCorr));
    ASSERT_EQ(outGroups.count, 2);
    EXPECT_EQ(+outGroups[0].ant1, 1);
    EXPECT_EQ(+outGroups[0].ant2, 2);
    ASSERT_TRUE(mean.Calculate(in.vis, in.groups, 0, 8, outVis, outGroups, AMeanCalc::kOnlyAutoCorr));
    ASSERT_EQ(outGroups.count, 2);
    EXPECT_EQ(outVis[0]->data[0].re, 20.0f);
    EXPECT_EQ(outVis[1]->data[0].re, 40.0f);
    ASSERT_TRUE(mean.Calculate(in.vis, in.groups, 0, 8, outVis, outGroups, 3));
    EXPECT_EQ(outVis.count, 0);
    EXPECT_EQ(outGroups.count, 0);

    // A record the derived Filter rejects takes no part: (1,2,0) is gone, (1,2,1) averages 30 alone.
    mean.reject = 0;
    ASSERT_TRUE(mean.Calculate(in.vis, in.groups, 0, 8, outVis, outGroups, 0));
    ASSERT_EQ(outGroups.count, 3);
    EXPECT_EQ(outVis[1]->data[0].re, 30.0f);
}

TEST(MeanCalc, PassThroughWithoutASpan) {
    Interval in(1);
    in.Add(1, 2, 0.0f, 10);
    in.Add(3, 3, 1, 20);
    in.Add(1, 4, 1, 30);
    APtrArray<AUVXVisibility*> outVis;
    outVis.Add(new AUVXVisibility(1, 1, 1));  // emptied (and deleted) by the call
    AArray<AUVXGroup> outGroups;
    AMeanCalc mean;
    ASSERT_TRUE(mean.Calculate(in.vis, in.groups, 50, 50, outVis, outGroups, AMeanCalc::kNoAutoCorr));
    ASSERT_EQ(outVis.count, 2);
    EXPECT_EQ(outVis.owner, 0);
    EXPECT_EQ(outVis[0], in.vis[0]);  // the same objects, weights below 0.25 included
    EXPECT_EQ(outVis[1], in.vis[2]);
    ASSERT_EQ(outGroups.count, 2);
    EXPECT_EQ(+outGroups[1].sourceId, +in.groups[2].sourceId);
    EXPECT_EQ(+outGroups[1].u, 30.0f);
    EXPECT_EQ(+outGroups[1].freqId, 3);  // copied as it is
}

TEST(MeanCalc, EmptyInputsAndTheShapeOfTheFirstRecord) {
    APtrArray<AUVXVisibility*> inVis, outVis;
    AArray<AUVXGroup> inGroups, outGroups;
    AMeanCalc mean;
    ASSERT_TRUE(mean.Calculate(inVis, inGroups, 0, 10, outVis, outGroups, 0));
    EXPECT_EQ(outVis.count, 0);
    EXPECT_EQ(outGroups.count, 0);

    // A cube without an IF axis: the result has one band of the same channels and products.
    inVis.Add(new AUVXVisibility(0, 3, 2));
    for (int e = 0; e < 6; ++e) inVis[0]->data[e] = AUVXComplex{static_cast<float>(e), 0, 1};
    inGroups.Add(MakeGroup(1, 1, 2));
    ASSERT_TRUE(mean.Calculate(inVis, inGroups, 0, 10, outVis, outGroups, 0));
    ASSERT_EQ(outVis.count, 1);
    EXPECT_EQ(outVis[0]->nIF, 1);
    EXPECT_EQ(outVis[0]->nChan, 3);
    EXPECT_EQ(outVis[0]->nStokes, 2);
    ASSERT_EQ(outVis[0]->count, 6);
    EXPECT_EQ(outVis[0]->data[5].re, 5.0f);
}
