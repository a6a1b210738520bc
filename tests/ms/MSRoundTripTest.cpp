// Round trips UVX -> Measurement Set -> UVX: records, weights, flags, times and tables come back.
#include <gtest/gtest.h>

#include <AMSBridge.h>

#include "MSTestSupport.h"

namespace {

// Simulates the observation of MSSimConfig at MSTestPath(".uvx").
std::string SimulatedFile() {
    const std::string uvx = MSTestPath(".uvx");
    CString error;
    EXPECT_TRUE(Simulate(MSSimConfig(), uvx.c_str(), nullptr, nullptr, nullptr, &error)) << error.GetString();
    return uvx;
}

}  // namespace

TEST(MSRoundTrip, SimulatedObservationComesBackWhole) {
    const std::string uvx = SimulatedFile();
    const std::string ms = MSTestPath(".ms");
    const std::string back = MSTestPath("-back.uvx");
    RemoveTree(ms);
    AMSBridge bridge;
    ASSERT_TRUE(bridge.ExportMS(uvx.c_str(), ms.c_str())) << bridge.m_errMsg.GetString();
    ASSERT_TRUE(bridge.ImportMS(ms.c_str(), back.c_str())) << bridge.m_errMsg.GetString();

    const AUVXContent original = LoadUVX(uvx);
    const AUVXContent returned = LoadUVX(back);
    ASSERT_EQ(original.error, "");
    // The simulation must exercise what is compared: flagged elements, several sources and scans.
    int flagged = 0;
    for (const auto& rec : original.data)
        for (const AUVXComplex& e : rec) flagged += e.wt > 0 ? 0 : 1;
    EXPECT_GT(flagged, 10);
    ASSERT_NE(original.Table("SL"), nullptr);
    EXPECT_GE(original.Table("SL")->nRows, 3);
    ASSERT_NE(original.Table("AI"), nullptr);
    ExpectSameContent(original, returned, 1e-6, false);
    EXPECT_EQ(std::string(AUVXHeader::Text(returned.header.origin, 32).GetString()), "merovane MS import");
}

TEST(MSRoundTrip, ExportReplacesAnEarlierMeasurementSet) {
    const std::string uvx = SimulatedFile();
    const std::string ms = MSTestPath(".ms");
    const std::string back = MSTestPath("-back.uvx");
    RemoveTree(ms);
    AMSBridge bridge;
    ASSERT_TRUE(bridge.ExportMS(uvx.c_str(), ms.c_str())) << bridge.m_errMsg.GetString();
    // A second, different observation written over the first: only the second is found afterwards.
    AUVXBuild b = OffsetSourceBuild(0.0, 0.0);
    const std::string other = MSTestPath("-other.uvx");
    std::string error;
    ASSERT_TRUE(WriteUVX(other, b, error)) << error;
    ASSERT_TRUE(bridge.ExportMS(other.c_str(), ms.c_str())) << bridge.m_errMsg.GetString();
    ASSERT_TRUE(bridge.ImportMS(ms.c_str(), back.c_str())) << bridge.m_errMsg.GetString();
    ExpectSameContent(LoadUVX(other), LoadUVX(back), 1e-6, false);
    const std::string dir = std::string(MEROVANE_TEST_TMP);
    EXPECT_TRUE(EntriesStartingWith(dir, "ms-MSRoundTrip-ExportReplacesAnEarlierMeasurementSet.ms.").empty());
}

// Hand-built records that the simulator never writes: a record flag bit, stations with gaps in their
// IDs, a left-handed AN table, a zero and a negative weight.
TEST(MSRoundTrip, RecordFlagIdGapsAndLeftHandedStations) {
    AUVXBuild b = OffsetSourceBuild(1e-7, 0.0);
    b.stationIds = {2, 5, 7, 9};
    b.xyzHand = "LEFT";
    for (AUVXGroup& g : b.groups) {
        g.ant1 = static_cast<std::int8_t>(b.stationIds[g.ant1 - 1]);
        g.ant2 = static_cast<std::int8_t>(b.stationIds[g.ant2 - 1]);
    }
    b.groups[3].flags = 1;
    b.data[5][2].wt = 0.0f;
    b.data[6][1].wt = -3.5f;
    const std::string uvx = MSTestPath(".uvx");
    const std::string ms = MSTestPath(".ms");
    const std::string back = MSTestPath("-back.uvx");
    std::string error;
    ASSERT_TRUE(WriteUVX(uvx, b, error)) << error;
    RemoveTree(ms);
    AMSBridge bridge;
    ASSERT_TRUE(bridge.ExportMS(uvx.c_str(), ms.c_str())) << bridge.m_errMsg.GetString();
    ASSERT_TRUE(bridge.ImportMS(ms.c_str(), back.c_str())) << bridge.m_errMsg.GetString();
    AUVXContent original = LoadUVX(uvx);
    const AUVXContent returned = LoadUVX(back);
    ASSERT_EQ(returned.error, "");
    ASSERT_EQ(returned.groups.size(), original.groups.size());

    // A flagged record comes back with the bit and every element flagged, weights kept in size.
    EXPECT_EQ(returned.groups[3].flags, 1);
    for (std::size_t k = 0; k < original.data[3].size(); ++k)
        EXPECT_EQ(returned.data[3][k].wt, -original.data[3][k].wt);
    EXPECT_EQ(returned.data[5][2].wt, 0.0f);
    EXPECT_EQ(returned.data[6][1].wt, -3.5f);
    for (std::size_t i = 0; i < original.groups.size(); ++i) {
        EXPECT_EQ(returned.groups[i].ant1, original.groups[i].ant1);
        EXPECT_EQ(returned.groups[i].ant2, original.groups[i].ant2);
    }

    // The stations keep their IDs; their positions arrive right-handed (y negated once).
    const AUVXTable* an = returned.Table("AN");
    ASSERT_NE(an, nullptr);
    ASSERT_EQ(an->nRows, 4);
    CString hand;
    ASSERT_TRUE(an->GetKeyword("XYZHAND", hand));
    EXPECT_EQ(hand, "RIGHT");
    for (int r = 0; r < 4; ++r) {
        EXPECT_EQ(an->GetDouble(r, an->ColumnIndex("NOSTA")), b.stationIds[r]);
        EXPECT_EQ(an->GetDouble(r, an->ColumnIndex("STABXYZ"), 0), b.stationXyz[3 * r]);
        EXPECT_EQ(an->GetDouble(r, an->ColumnIndex("STABXYZ"), 1), -b.stationXyz[3 * r + 1]);
        EXPECT_EQ(an->GetDouble(r, an->ColumnIndex("STABXYZ"), 2), b.stationXyz[3 * r + 2]);
    }
}
