// Telescope maps, the reference antenna, and the current items from InitInernalGain to AddGain.
#include <gtest/gtest.h>

#include <vector>

#include "BandpassFixtures.h"

using namespace bptest;

namespace {

std::vector<int> Values(const AArray<int>& a) {
    return std::vector<int>(a.begin(), a.end());
}

AArray<int> Map(std::initializer_list<int> ids) {
    AArray<int> map;
    for (int id : ids) map.Add(id);
    return map;
}

}  // namespace

TEST(TelescopeMap, ListsEachIdOnceAscendingAndReplacesTheMap) {
    AArray<AUVXGroup> groups;
    AArray<int> map = Map({42, 43});
    EXPECT_EQ(ABPass::GetTlscMap(groups, map), 0);
    EXPECT_EQ(map.count, 0);
    EXPECT_EQ(map.data, nullptr);

    groups.Add(Group(5, 2));
    groups.Add(Group(9, 9));
    groups.Add(Group(2, 5));
    EXPECT_EQ(ABPass::GetTlscMap(groups, map), 3);
    EXPECT_EQ(Values(map), (std::vector<int>{2, 5, 9}));
    EXPECT_EQ(map.capacity, 3);

    // IDs outside 1..64 have no flag and never reach the map.
    AArray<AUVXGroup> odd;
    odd.Add(Group(0, 64));
    odd.Add(Group(-3, 65));
    odd.Add(Group(1, 127));
    EXPECT_EQ(ABPass::GetTlscMap(odd, map), 2);
    EXPECT_EQ(Values(map), (std::vector<int>{1, 64}));
}

TEST(TelescopeMap, IndexInMapIsTheFirstMatch) {
    AArray<int> empty;
    EXPECT_EQ(IndexInMap(empty, 3), -1);
    AArray<int> map = Map({4, 7, 4, 9});
    EXPECT_EQ(IndexInMap(map, 4), 0);
    EXPECT_EQ(IndexInMap(map, 9), 3);
    EXPECT_EQ(IndexInMap(map, 5), -1);
}

TEST(TelescopeMap, BestReferenceFollowsThePreferenceList) {
    struct Case {
        const char* what;
        AUVXAntenns antennas;
        AArray<int> map;
        int index;
    };
    Case cases[] = {
        {"GB before EF whatever the table order", Antennas({{"EF", 3}, {"GB", 5}, {"ON", 7}}), Map({3, 5, 7}),
         1},
        {"AR in the table but not in the map", Antennas({{"AR", 1}, {"WB", 6}}), Map({2, 6, 8}), 1},
        {"the whole list in order", Antennas({{"YS", 2}, {"WB", 4}, {"EF", 6}}), Map({2, 4, 6}), 2},
        {"YS last of all", Antennas({{"YS", 2}, {"ON", 4}}), Map({2, 4}), 0},
        {"lower case does not match", Antennas({{"gb", 3}, {"ef", 4}}), Map({3, 4, 8}), 2},
        {"no preferred station: the last entry", Antennas({{"ON", 1}, {"MC", 2}}), Map({1, 2, 3}), 2},
        {"only a station's first row counts", Antennas({{"EF", 9}, {"EF", 3}}), Map({3, 4}), 1},
        {"a padded name is not the station", Antennas({{"EF ", 3}}), Map({3, 4}), 1},
        {"an empty map", Antennas({{"EF", 3}}), AArray<int>(), -1},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(GetBestReferenceAntenna(c.map, c.antennas), c.index);
    }
}

namespace {

struct CurrentItems : ::testing::Test {
    AUVXHeader header = Header({-1, -2, -3, -4}, 0, 5);  // no IF axis: one band
    AUVXAntenns antennas;
    ABPass pass;
    void SetUp() override { pass.Init(header, antennas, 1); }
};

}  // namespace

TEST_F(CurrentItems, InitInernalGainMakesUnityItemsInTheOrderGiven) {
    AArray<int> ids = Map({4, 2});
    ASSERT_TRUE(pass.InitInernalGain(ids));
    ASSERT_EQ(pass.coefs.count, 2);
    ASSERT_EQ(pass.counts.count, 2);
    EXPECT_EQ(pass.coefs.owner, 1);
    for (int t = 0; t < 2; ++t) {
        ABPassCoefItem& coef = *pass.coefs[t];
        ABPassCountItem& count = *pass.counts[t];
        EXPECT_EQ(coef.tlsc, ids[t]);
        EXPECT_EQ(count.tlsc, ids[t]);
        EXPECT_EQ(coef.start, 0.0);
        EXPECT_EQ(coef.end, 0.0);
        ASSERT_EQ(coef.GetDims(), 3u);
        EXPECT_EQ(coef.GetDim(0), 2u);
        EXPECT_EQ(coef.GetDim(1), 1u);
        EXPECT_EQ(coef.GetDim(2), 5u);
        EXPECT_EQ(count.count(), coef.count());
        for (std::size_t i = 0; i < coef.count(); ++i) {
            EXPECT_EQ(coef.data[i], Cf(1, 0));
            EXPECT_EQ(count.data[i], 0);
        }
    }

    AArray<int> none;
    ASSERT_TRUE(pass.InitInernalGain(none));
    EXPECT_EQ(pass.coefs.count, 0);
    EXPECT_EQ(pass.counts.count, 0);
    EXPECT_EQ(pass.coefs.owner, 1);
}

TEST_F(CurrentItems, InitInernalGainFailsWhenNoMatrixCanBeSized) {
    header = Header({-3, -4}, 1, 5);  // no parallel hand: a matrix of zero polarisations
    pass.Init(header, antennas, 1);
    AArray<int> ids = Map({1});
    EXPECT_FALSE(pass.InitInernalGain(ids));
    EXPECT_EQ(pass.coefs.count, 0);
    EXPECT_EQ(pass.counts.count, 0);
}

TEST_F(CurrentItems, AddGainMovesTheItemsToTheStore) {
    AArray<int> none;
    ASSERT_TRUE(pass.InitInernalGain(none));
    EXPECT_TRUE(pass.AddGain(0, 10));
    EXPECT_EQ(pass.stored.count, 0);
    EXPECT_EQ(pass.coefs.owner, 0);

    AArray<int> ids = Map({1, 2});
    ASSERT_TRUE(pass.InitInernalGain(ids));
    At(*pass.coefs[0], 1, 0, 4) = Cf(3, 0);
    EXPECT_TRUE(pass.AddGain(0, 10));
    ASSERT_TRUE(pass.InitInernalGain(ids));
    At(*pass.coefs[0], 1, 0, 4) = Cf(5, 0);
    EXPECT_TRUE(pass.AddGain(10, 20));

    ASSERT_EQ(pass.stored.count, 4);
    const int tlsc[] = {1, 2, 1, 2};
    const double start[] = {0, 0, 10, 10};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(pass.stored[i]->tlsc, tlsc[i]);
        EXPECT_EQ(pass.stored[i]->start, start[i]);
        EXPECT_EQ(pass.stored[i]->end, start[i] + 10);
    }
    EXPECT_EQ(pass.coefs[0], pass.stored[2]);           // still reachable until the next interval
    EXPECT_EQ(At(*pass.stored[0], 1, 0, 4), Cf(3, 0));  // the first interval kept its coefficients
    EXPECT_EQ(At(*pass.stored[2], 1, 0, 4), Cf(5, 0));
    EXPECT_EQ(At(*pass.stored[1], 1, 0, 4), Cf(1, 0));
}
