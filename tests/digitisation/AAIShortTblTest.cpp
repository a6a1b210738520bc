// Tests of AAIShortTbl: reading the "AI" table, row lookup, the level check and its repair, copies.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "DigitisationFixtures.h"

using digtest::AIRow;
using digtest::Item;
using digtest::MakeAITable;

namespace {

AUVXGroup Group(int ant1, int ant2, int freqId, double time) {
    AUVXGroup group;
    std::memset(&group, 0, sizeof(group));
    group.ant1 = static_cast<std::int8_t>(ant1);
    group.ant2 = static_cast<std::int8_t>(ant2);
    group.freqId = static_cast<std::int8_t>(freqId);
    group.time = time;
    return group;
}

// The "AN" table: names, positions, telescope IDs.
std::unique_ptr<AUVXTable> MakeANTable(const std::vector<std::pair<int, const char*>>& stations) {
    auto table = std::make_unique<AUVXTable>("AN");
    const int cName = table->AddColumn("ANNAME", 'A', 8);
    table->AddColumn("STABXYZ", 'D', 3, "METERS");
    const int cId = table->AddColumn("NOSTA", 'J');
    for (const auto& station : stations) {
        const int r = table->AddRow();
        table->SetText(r, cName, station.second);
        table->SetDouble(r, cId, station.first);
    }
    return table;
}

}  // namespace

TEST(AAIShortTbl, LevelCountsLoadAsRoundedBits) {
    const std::vector<int> levels = {2, 3, 4, 8, 16, 256, 1};
    const std::vector<int> bits = {1, 2, 2, 3, 4, 8, 0};
    std::vector<AIRow> rows;
    for (size_t i = 0; i < levels.size(); ++i)
        rows.push_back({0.5, 0.25f, static_cast<int>(i) + 1, levels[i], 1});
    auto table = MakeAITable(rows);
    AAIShortTbl tbl(table.get());
    ASSERT_EQ(tbl.count, static_cast<int>(levels.size()));
    for (size_t i = 0; i < levels.size(); ++i) {
        EXPECT_EQ(tbl[static_cast<int>(i)].noLevels, bits[i]) << "NO_LEVELS " << levels[i];
        EXPECT_EQ(tbl[static_cast<int>(i)].antenna, static_cast<int>(i) + 1);
        EXPECT_EQ(tbl[static_cast<int>(i)].freqId, 1);
    }
    EXPECT_EQ(tbl.capacity, tbl.count);
    EXPECT_EQ(tbl.growBy, 256);
}

TEST(AAIShortTbl, CentreAndLengthInDaysBecomeRangeInSeconds) {
    // Centre 1.5 days = 129600 s, length 0.125 days = 10800 s.
    auto table = MakeAITable({{1.5, 0.125f, 3, 4, 2}, {0.0, 0.0f, 4, 4, 2}});
    AAIShortTbl tbl(table.get());
    ASSERT_EQ(tbl.count, 2);
    EXPECT_EQ(tbl[0].start, 129600.0 - 5400.0);
    EXPECT_EQ(tbl[0].end, 129600.0 + 5400.0);
    EXPECT_EQ(tbl[1].start, 0.0);
    EXPECT_EQ(tbl[1].end, 0.0);

    // Load replaces the whole content.
    auto other = MakeAITable({{0.25, 0.5f, 9, 16, 5}});
    tbl.Load(other.get());
    ASSERT_EQ(tbl.count, 1);
    EXPECT_EQ(tbl[0].antenna, 9);
    EXPECT_EQ(tbl[0].freqId, 5);
    EXPECT_EQ(tbl[0].noLevels, 4);
    EXPECT_EQ(tbl[0].start, 0.0);
    EXPECT_EQ(tbl[0].end, 43200.0);
}

TEST(AAIShortTbl, ColumnsAreSteppedByTypeAndRepeatAndFoundByNameSubstring) {
    // Columns in an unusual order, with repeated elements and value-less types in between. The
    // length column stands before the centre column, so "TIME_INTERVAL" must be tested first.
    AUVXTable table("AI");
    const int cFreq = table.AddColumn("FREQID", 'E', 3);   // 12 bytes, the first value counts
    const int cName = table.AddColumn("STATION", 'A', 5);  // 5 bytes, ignored
    const int cInterval = table.AddColumn("TIME_INTERVAL", 'E');
    const int cShort = table.AddColumn("POLA", 'I', 3);  // 6 bytes
    const int cFlag = table.AddColumn("VALID", 'L');     // 1 byte
    const int cTime = table.AddColumn("TIME", 'D', 2);   // 16 bytes, the first value counts
    const int cAnt = table.AddColumn("ANTENNA_NO", 'J');
    const int cLevels = table.AddColumn("MY_NO_LEVELS", 'E');  // substring of the name
    const int cExtra = table.AddColumn("GAIN", 'D');
    ASSERT_GE(cExtra, 0);
    const int r = table.AddRow();
    table.SetDouble(r, cFreq, 5.0, 0);
    table.SetDouble(r, cFreq, 7.0, 1);
    table.SetDouble(r, cFreq, 9.0, 2);
    table.SetText(r, cName, "ZZZZZ");
    table.SetDouble(r, cInterval, 0.5);
    for (int e = 0; e < 3; ++e) table.SetDouble(r, cShort, 1234.0, e);
    table.SetDouble(r, cFlag, 1.0);
    table.SetDouble(r, cTime, 2.0, 0);
    table.SetDouble(r, cTime, 100.0, 1);
    table.SetDouble(r, cAnt, 17.0);
    table.SetDouble(r, cLevels, 4.0);
    table.SetDouble(r, cExtra, 99.0);

    AAIShortTbl tbl(&table);
    ASSERT_EQ(tbl.count, 1);
    EXPECT_EQ(tbl[0].freqId, 5);
    EXPECT_EQ(tbl[0].antenna, 17);
    EXPECT_EQ(tbl[0].noLevels, 2);
    EXPECT_EQ(tbl[0].start, 2.0 * 86400.0 - 0.25 * 86400.0);
    EXPECT_EQ(tbl[0].end, 2.0 * 86400.0 + 0.25 * 86400.0);
}

TEST(AAIShortTbl, EmptyTable) {
    auto table = MakeAITable({});
    AAIShortTbl tbl(table.get());
    EXPECT_EQ(tbl.count, 0);
    EXPECT_EQ(tbl.data, nullptr);
    AUVXGroup group = Group(1, 2, 1, 0.0);
    EXPECT_EQ(tbl.FindItem(group, true), nullptr);
    auto an = MakeANTable({{1, "EF"}});
    EXPECT_TRUE(tbl.IsOK(an.get()));
    tbl.Correct();
    EXPECT_EQ(tbl.count, 0);

    AAIShortTbl none(nullptr);
    EXPECT_EQ(none.count, 0);
}

TEST(AAIShortTbl, FindItemGoesByAntennaSetupAndEndInTableOrder) {
    AAIShortTbl tbl;
    tbl.Add(Item(1, 1, 1, 0.0, 100.0));    // 0
    tbl.Add(Item(2, 1, 2, 0.0, 1000.0));   // 1
    tbl.Add(Item(1, 2, 3, 0.0, 1000.0));   // 2: another setup
    tbl.Add(Item(1, 1, 4, 100.0, 200.0));  // 3
    tbl.Add(Item(5, -56, 5, 0.0, 10.0));   // 4: a setup number above 127 in the group's signed byte

    auto find = [&](int ant1, int ant2, int freqId, double time, bool first) -> int {
        AUVXGroup group = Group(ant1, ant2, freqId, time);
        AAIShortTblItem* item = tbl.FindItem(group, first);
        return item == nullptr ? -1 : static_cast<int>(item - tbl.data);
    };
    EXPECT_EQ(find(1, 2, 1, 50.0, true), 0);
    EXPECT_EQ(find(1, 2, 1, 99.999, true), 0);
    // A record at a row's end lies outside it.
    EXPECT_EQ(find(1, 2, 1, 100.0, true), 3);
    EXPECT_EQ(find(1, 2, 1, 150.0, true), 3);
    // At or past the end of every row: the last matching row of the table.
    EXPECT_EQ(find(1, 2, 1, 200.0, true), 3);
    EXPECT_EQ(find(1, 2, 1, 1.0e6, true), 3);
    // Before every row: the first, start is not consulted.
    EXPECT_EQ(find(1, 2, 1, -500.0, true), 0);
    // The setup chooses among the rows.
    EXPECT_EQ(find(1, 2, 2, 150.0, true), 2);
    EXPECT_EQ(find(1, 2, 3, 150.0, true), -1);
    // first false looks at ant2.
    EXPECT_EQ(find(1, 2, 1, 150.0, false), 1);
    EXPECT_EQ(find(2, 1, 1, 150.0, true), 1);
    EXPECT_EQ(find(1, 7, 1, 150.0, false), -1);
    // Setup numbers are signed bytes.
    EXPECT_EQ(find(5, 5, 200, 5.0, true), 4);
    EXPECT_EQ(find(5, 5, -56, 5.0, true), 4);

    // The pointer refers to the row itself.
    AUVXGroup group = Group(1, 2, 1, 150.0);
    tbl.FindItem(group, true)->noLevels = 42;
    EXPECT_EQ(tbl[3].noLevels, 42);
}

TEST(AAIShortTbl, OverlappingRowsFirstInTableWins) {
    AAIShortTbl tbl;
    tbl.Add(Item(3, 1, 1, 0.0, 300.0));
    tbl.Add(Item(3, 1, 2, 50.0, 150.0));
    AUVXGroup group = Group(3, 4, 1, 100.0);
    ASSERT_NE(tbl.FindItem(group, true), nullptr);
    EXPECT_EQ(tbl.FindItem(group, true)->noLevels, 1);

    AAIShortTbl reversed;
    reversed.Add(Item(3, 1, 2, 50.0, 150.0));
    reversed.Add(Item(3, 1, 1, 0.0, 300.0));
    ASSERT_NE(reversed.FindItem(group, true), nullptr);
    EXPECT_EQ(reversed.FindItem(group, true)->noLevels, 2);
    // Past the first row's end the later row takes over.
    group.time = 200.0;
    EXPECT_EQ(reversed.FindItem(group, true)->noLevels, 1);
}

TEST(AAIShortTbl, IsOKChecksLevelsAgainstStationNames) {
    auto an = MakeANTable({{1, "RA"}, {2, "EF"}, {3, "XRAY"}, {4, "RAKU"}});
    auto check = [&](std::vector<AAIShortTblItem> items) {
        AAIShortTbl tbl;
        for (const auto& item : items) tbl.Add(item);
        return tbl.IsOK(an.get());
    };
    EXPECT_TRUE(check({Item(1, 1, 1, 0, 1)}));
    EXPECT_TRUE(check({Item(4, 1, 2, 0, 1)}));
    EXPECT_FALSE(check({Item(1, 1, 0, 0, 1)}));  // 0 bits fails whatever the name
    EXPECT_FALSE(check({Item(2, 1, 3, 0, 1)}));
    EXPECT_TRUE(check({Item(2, 1, 4, 0, 1)}));
    EXPECT_FALSE(check({Item(3, 1, 3, 0, 1)}));  // "RA" not at the start
    EXPECT_TRUE(check({Item(3, 1, 4, 0, 1)}));
    EXPECT_FALSE(check({Item(2, 1, 0, 0, 1)}));
    // Every row counts, not only the first.
    EXPECT_FALSE(check({Item(1, 1, 1, 0, 1), Item(2, 1, 8, 0, 1), Item(2, 1, 3, 0, 1)}));
    EXPECT_TRUE(check({Item(1, 1, 1, 0, 1), Item(2, 1, 8, 0, 1), Item(3, 1, 4, 0, 1)}));

    // A level count of 1 loads as 0 bits, which no station passes.
    auto ai = MakeAITable({{0.5, 0.1f, 1, 1, 1}});
    AAIShortTbl loaded(ai.get());
    EXPECT_FALSE(loaded.IsOK(an.get()));

    // The check changes nothing.
    AAIShortTbl tbl;
    tbl.Add(Item(2, 1, 3, 0, 1));
    tbl.Add(Item(1, 1, 0, 5, 6));
    std::vector<AAIShortTblItem> before(tbl.begin(), tbl.end());
    EXPECT_FALSE(tbl.IsOK(an.get()));
    ASSERT_EQ(tbl.count, 2);
    EXPECT_EQ(std::memcmp(before.data(), tbl.data, sizeof(AAIShortTblItem) * 2), 0);
}

TEST(AAIShortTbl, CorrectRewritesLevels) {
    const std::vector<int> oldValues = {1, 2, 3, 4, 5, 6, 11, 12, 22, 23, 45};
    const std::vector<int> newValues = {2, 4, 8, 8, 8, 16, 16, 32, 32, 64, 64};
    AAIShortTbl tbl;
    for (size_t i = 0; i < oldValues.size(); ++i)
        tbl.Add(Item(static_cast<int>(i) + 1, 3, oldValues[i], 10.0 * i, 10.0 * i + 5.0));
    tbl.Correct();
    ASSERT_EQ(tbl.count, static_cast<int>(oldValues.size()));
    for (size_t i = 0; i < oldValues.size(); ++i) {
        const AAIShortTblItem& item = tbl[static_cast<int>(i)];
        EXPECT_EQ(item.noLevels, newValues[i]) << "old " << oldValues[i];
        EXPECT_EQ(item.antenna, static_cast<int>(i) + 1);
        EXPECT_EQ(item.freqId, 3);
        EXPECT_EQ(item.start, 10.0 * i);
        EXPECT_EQ(item.end, 10.0 * i + 5.0);
    }
}

TEST(AAIShortTbl, CopiesAreDeepAndExact) {
    AAIShortTbl source;
    source.growBy = 7;
    source.Add(Item(1, 1, 2, 0, 10));
    source.Add(Item(2, 1, 3, 0, 20));
    source.Add(Item(3, 1, 4, 0, 30));
    ASSERT_EQ(source.capacity, 7);

    AAIShortTbl copy(source);
    EXPECT_EQ(copy.count, 3);
    EXPECT_EQ(copy.capacity, 3);
    EXPECT_EQ(copy.growBy, 7);
    ASSERT_NE(copy.data, source.data);
    EXPECT_EQ(std::memcmp(copy.data, source.data, sizeof(AAIShortTblItem) * 3), 0);
    copy[1].noLevels = 8;
    EXPECT_EQ(source[1].noLevels, 3);

    AAIShortTbl assigned;
    assigned.Add(Item(9, 9, 9, 0, 1));
    assigned = source;
    EXPECT_EQ(assigned.count, 3);
    EXPECT_EQ(assigned.capacity, 3);
    EXPECT_EQ(assigned[2].antenna, 3);

    AAIShortTbl empty;
    empty.growBy = 11;
    assigned = empty;
    EXPECT_EQ(assigned.count, 0);
    EXPECT_EQ(assigned.capacity, 0);
    EXPECT_EQ(assigned.data, nullptr);
    EXPECT_EQ(assigned.growBy, 11);

    AAIShortTbl& self = source;
    source = self;
    EXPECT_EQ(source.count, 3);
    EXPECT_EQ(source[2].noLevels, 4);
}

TEST(AAIShortTbl, OddValuesLoadWithoutUndefinedConversions) {
    AUVXTable table("AI");
    const int cTime = table.AddColumn("TIME", 'D');
    const int cAnt = table.AddColumn("ANTENNA_NO", 'D');
    const int cLevels = table.AddColumn("NO_LEVELS", 'D');
    const int cFreq = table.AddColumn("FREQID", 'A', 4);  // a type that gives no value
    const double levels[4] = {0.0, -4.0, 2.9, 1.0e300};
    const double antennas[4] = {1.0e12, -1.0e12, -2.7, 2.7};
    for (int i = 0; i < 4; ++i) {
        const int r = table.AddRow();
        table.SetDouble(r, cTime, 1.0);
        table.SetDouble(r, cAnt, antennas[i]);
        table.SetDouble(r, cLevels, levels[i]);
        table.SetText(r, cFreq, "ABCD");
    }
    AAIShortTbl tbl(&table);
    ASSERT_EQ(tbl.count, 4);
    // No level count above 0: no bits. log2(2.9) = 1.54 rounds to 2; 1e300 is 996.6 bits.
    EXPECT_EQ(tbl[0].noLevels, 0);
    EXPECT_EQ(tbl[1].noLevels, 0);
    EXPECT_EQ(tbl[2].noLevels, 2);
    EXPECT_EQ(tbl[3].noLevels, 997);
    // Truncated towards zero, clamped to 32 bits.
    EXPECT_EQ(tbl[0].antenna, 2147483647);
    EXPECT_EQ(tbl[1].antenna, -2147483647 - 1);
    EXPECT_EQ(tbl[2].antenna, -2);
    EXPECT_EQ(tbl[3].antenna, 2);
    // The missing length and the value-less setup column leave 0.
    EXPECT_EQ(tbl[0].freqId, 0);
    EXPECT_EQ(tbl[0].start, 86400.0);
    EXPECT_EQ(tbl[0].end, 86400.0);

    // Correct leaves a count below 1 alone and keeps large ones within an int.
    // log2(997) = 9.96 gives t = 10 and 2^11; log2(2e9) = 30.9 would need 2^32.
    tbl[1].noLevels = 2000000000;
    tbl.Correct();
    EXPECT_EQ(tbl[0].noLevels, 0);
    EXPECT_EQ(tbl[1].noLevels, 1 << 30);
    EXPECT_EQ(tbl[2].noLevels, 4);
    EXPECT_EQ(tbl[3].noLevels, 2048);
}
