// Tests of AAIShortTbl: reading the "AI" table, row lookup, the level check and its repair, copies.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include <merovane/uvx/UVXTableLayouts.h>

#include "DigitisationFixtures.h"

using namespace digtest;

namespace {

// An "AI" table with its five columns in the usual order; each row is centre and length in days,
// antenna, level count (2^bits) and setup.
std::unique_ptr<AUVXTable> MakeAITable(const std::vector<std::vector<double>>& rows) {
    auto table = std::make_unique<AUVXTable>();
    CreateTable(*table, kLayoutAI, 1);
    for (const auto& row : rows) {
        const int r = table->AddRow();
        for (int c = 0; c < 5; ++c) table->SetDouble(r, c, row[c]);
    }
    return table;
}

// Index of the row FindItem gives, -1 for none.
int Found(AAIShortTbl& tbl, int ant1, int ant2, int freqId, double time, bool first = true) {
    AUVXGroup group = Group(ant1, ant2, freqId, time);
    AAIShortTblItem* item = tbl.FindItem(group, first);
    return item == nullptr ? -1 : static_cast<int>(item - tbl.data);
}

}  // namespace

TEST(AAIShortTbl, LoadsLevelCountsAsRoundedBitsAndCentreAndLengthAsRange) {
    const int levels[7] = {2, 3, 4, 8, 16, 256, 1}, bits[7] = {1, 2, 2, 3, 4, 8, 0};
    std::vector<std::vector<double>> rows;
    for (int i = 0; i < 7; ++i) rows.push_back({1.5, 0.125, i + 1.0, double(levels[i]), 2});
    auto table = MakeAITable(rows);
    AAIShortTbl tbl(table.get());
    ASSERT_EQ(tbl.count, 7);
    EXPECT_EQ(tbl.capacity, 7);
    EXPECT_EQ(tbl.growBy, 256);
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(tbl[i].noLevels, bits[i]) << "NO_LEVELS " << levels[i];
        EXPECT_EQ(tbl[i].antenna, i + 1);
        EXPECT_EQ(tbl[i].freqId, 2);
        // Centre 1.5 days = 129600 s, length 0.125 days = 10800 s.
        EXPECT_EQ(tbl[i].start, 129600.0 - 5400.0);
        EXPECT_EQ(tbl[i].end, 129600.0 + 5400.0);
    }
    // Load replaces the whole content; a null or empty table leaves nothing.
    auto other = MakeAITable({{0.25, 0.5, 9, 16, 5}});
    tbl.Load(other.get());
    ASSERT_EQ(tbl.count, 1);
    EXPECT_EQ(tbl[0].antenna, 9);
    tbl.Load(nullptr);
    EXPECT_EQ(tbl.count, 0);
    auto empty = MakeAITable({});
    AAIShortTbl none(empty.get());
    EXPECT_EQ(none.count, 0);
    EXPECT_EQ(none.data, nullptr);
}

TEST(AAIShortTbl, ColumnsAreSteppedByTypeAndRepeatAndFoundByNameSubstring) {
    // Columns in an unusual order, with repeated elements and value-less types in between. The
    // length column stands before the centre column, so "TIME_INTERVAL" must be told from "TIME".
    AUVXTable table("AI");
    table.AddColumn("FREQID", 'E', 3);  // 12 bytes, the first value counts
    table.AddColumn("STATION", 'A', 5);
    table.AddColumn("TIME_INTERVAL", 'E');
    table.AddColumn("POLA", 'I', 3);  // 6 bytes
    table.AddColumn("VALID", 'L');
    table.AddColumn("TIME", 'D', 2);  // 16 bytes, the first value counts
    table.AddColumn("ANTENNA_NO", 'J');
    table.AddColumn("MY_NO_LEVELS", 'E');  // a substring of the name
    ASSERT_EQ(table.AddColumn("GAIN", 'D'), 8);
    const int r = table.AddRow();
    for (int e = 0; e < 3; ++e) table.SetDouble(r, 0, 5.0 + 2 * e, e), table.SetDouble(r, 3, 1234.0, e);
    table.SetText(r, 1, "ZZZZZ");
    // {column, element, value}
    const double values[7][3] = {{2, 0, 0.5}, {4, 0, 1}, {5, 0, 2.0}, {5, 1, 100},
                                 {6, 0, 17},  {7, 0, 4}, {8, 0, 99}};
    for (const auto& v : values) table.SetDouble(r, int(v[0]), v[2], int(v[1]));

    AAIShortTbl tbl(&table);
    ASSERT_EQ(tbl.count, 1);
    EXPECT_EQ(tbl[0].freqId, 5);
    EXPECT_EQ(tbl[0].antenna, 17);
    EXPECT_EQ(tbl[0].noLevels, 2);
    EXPECT_EQ(tbl[0].start, 2.0 * 86400.0 - 0.25 * 86400.0);
    EXPECT_EQ(tbl[0].end, 2.0 * 86400.0 + 0.25 * 86400.0);
}

TEST(AAIShortTbl, OddValuesLoadWithoutUndefinedConversions) {
    AUVXTable table("AI");
    for (const char* name : {"TIME", "ANTENNA_NO", "NO_LEVELS"}) table.AddColumn(name, 'D');
    table.AddColumn("FREQID", 'A', 4);  // a type that gives no value
    // No level count above 0: no bits. log2(2.9) = 1.54 rounds to 2; 1e300 is 996.6 bits.
    const double levels[4] = {0.0, -4.0, 2.9, 1.0e300}, antennas[4] = {1.0e12, -1.0e12, -2.7, 2.7};
    const int bits[4] = {0, 0, 2, 997};
    // Truncated towards zero, clamped to 32 bits.
    const int ids[4] = {2147483647, -2147483647 - 1, -2, 2};
    for (int i = 0; i < 4; ++i) {
        const int r = table.AddRow();
        table.SetDouble(r, 0, 1.0);
        table.SetDouble(r, 1, antennas[i]);
        table.SetDouble(r, 2, levels[i]);
        table.SetText(r, 3, "ABCD");
    }
    AAIShortTbl tbl(&table);
    ASSERT_EQ(tbl.count, 4);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(tbl[i].noLevels, bits[i]) << i;
        EXPECT_EQ(tbl[i].antenna, ids[i]) << i;
    }
    // The missing length and the value-less setup column leave 0.
    EXPECT_EQ(tbl[0].freqId, 0);
    EXPECT_EQ(tbl[0].start, 86400.0);
    EXPECT_EQ(tbl[0].end, 86400.0);
}

TEST(AAIShortTbl, FindItemGoesByAntennaSetupAndEndInTableOrder) {
    // Row 2 is another setup; row 4 has a setup number above 127 as the group's signed byte holds it.
    AAIShortTbl tbl = Table({{1, 1, 1, 0.0, 100.0},
                             {2, 1, 2, 0.0, 1000.0},
                             {1, 2, 3, 0.0, 1000.0},
                             {1, 1, 4, 100.0, 200.0},
                             {5, -56, 5, 0.0, 10.0}});
    // {ant1, ant2, freqId, time, first, row found}
    const double cases[][6] = {{1, 2, 1, 50.0, 1, 0},    // inside the first row
                               {1, 2, 1, 99.999, 1, 0},  // just before its end
                               {1, 2, 1, 100.0, 1, 3},   // at a row's end: outside it
                               {1, 2, 1, 150.0, 1, 3},   // inside the later row
                               {1, 2, 1, 200.0, 1, 3},   // at or past every end: the last matching row
                               {1, 2, 1, -500.0, 1, 0},  // before every row: start is not consulted
                               {1, 2, 2, 150.0, 1, 2},   // the setup chooses among the rows
                               {1, 2, 3, 150.0, 1, -1},  // no row of that setup
                               {1, 2, 1, 150.0, 0, 1},   // first false looks at ant2
                               {2, 1, 1, 150.0, 1, 1},   // first true looks at ant1
                               {1, 7, 1, 150.0, 0, -1},  // no row of that antenna
                               {5, 5, 200, 5.0, 1, 4}};  // setup 200 as a signed byte
    for (const auto& c : cases)
        EXPECT_EQ(Found(tbl, int(c[0]), int(c[1]), int(c[2]), c[3], c[4] != 0), int(c[5])) << "time " << c[3];

    // Overlapping rows: the first in the table wins until its end.
    AAIShortTbl wideFirst = Table({{3, 1, 1, 0.0, 300.0}, {3, 1, 2, 50.0, 150.0}});
    AAIShortTbl narrowFirst = Table({{3, 1, 2, 50.0, 150.0}, {3, 1, 1, 0.0, 300.0}});
    EXPECT_EQ(Found(wideFirst, 3, 4, 1, 100.0), 0);
    EXPECT_EQ(Found(narrowFirst, 3, 4, 1, 100.0), 0);
    EXPECT_EQ(Found(narrowFirst, 3, 4, 1, 200.0), 1);
}

TEST(AAIShortTbl, IsOKChecksLevelsAgainstStationNames) {
    auto an = std::make_unique<AUVXTable>();
    CreateTable(*an, kLayoutAN, 1);
    for (const char* name : {"RA", "EF", "XRAY", "RAKU"}) {
        const int r = an->AddRow();
        an->SetText(r, 0, name);
        an->SetDouble(r, 2, r + 1);
    }
    // {antenna, bits} rows of each table and whether it passes.
    const std::vector<std::pair<std::vector<std::pair<int, int>>, bool>> cases = {
        {{}, true},                         // empty
        {{{1, 1}}, true},                   // RA with 1 bit
        {{{4, 2}}, true},                   // RAKU with 2 bits
        {{{1, 0}}, false},                  // 0 bits fails whatever the name
        {{{2, 3}}, false},                  // EF with 3 bits
        {{{2, 4}}, true},                   // EF with 4 bits
        {{{3, 3}}, false},                  // RA not at the start
        {{{9, 3}}, false},                  // an ID the AN table lacks has no name
        {{{1, 1}, {2, 8}, {2, 3}}, false},  // every row counts
        {{{1, 1}, {2, 8}, {3, 4}}, true}};
    for (const auto& c : cases) {
        AAIShortTbl tbl;
        for (const auto& row : c.first) tbl.Add(AAIShortTblItem{row.first, 1, row.second, 0.0, 1.0});
        const AAIShortTbl before(tbl);
        EXPECT_EQ(tbl.IsOK(an.get()), c.second) << "case " << (&c - cases.data());
        // The check changes nothing.
        ASSERT_EQ(tbl.count, before.count);
        EXPECT_TRUE(tbl.count == 0 ||
                    std::memcmp(before.data, tbl.data, sizeof(AAIShortTblItem) * tbl.count) == 0);
    }
}

TEST(AAIShortTbl, CorrectRewritesLevels) {
    // Below 1 stays; 2^30 is the cap (log2(2e9) = 30.9 would need 2^32).
    const int oldValues[] = {1, 2, 3, 4, 5, 6, 11, 12, 22, 23, 45, 997, 0, -3, 2000000000};
    const int newValues[] = {2, 4, 8, 8, 8, 16, 16, 32, 32, 64, 64, 2048, 0, -3, 1 << 30};
    AAIShortTbl tbl;
    for (int i = 0; i < 15; ++i) tbl.Add(AAIShortTblItem{i + 1, 3, oldValues[i], 10.0 * i, 10.0 * i + 5.0});
    tbl.Correct();
    ASSERT_EQ(tbl.count, 15);
    for (int i = 0; i < 15; ++i) {
        EXPECT_EQ(tbl[i].noLevels, newValues[i]) << "old " << oldValues[i];
        EXPECT_EQ(tbl[i].antenna, i + 1);
        EXPECT_EQ(tbl[i].end, 10.0 * i + 5.0);
    }
}

TEST(AAIShortTbl, CopiesAreDeepAndExact) {
    AAIShortTbl source;
    source.growBy = 7;
    for (int i = 1; i <= 3; ++i) source.Add(AAIShortTblItem{i, 1, i + 1, 0.0, 10.0 * i});
    ASSERT_EQ(source.capacity, 7);
    AAIShortTbl copy(source), assigned = Table({{9, 9, 9, 0.0, 1.0}});
    assigned = source;
    for (AAIShortTbl* t : {&copy, &assigned}) {
        EXPECT_EQ(t->count, 3);
        EXPECT_EQ(t->capacity, 3);
        EXPECT_EQ(t->growBy, 7);
        ASSERT_NE(t->data, source.data);
        EXPECT_EQ(std::memcmp(t->data, source.data, sizeof(AAIShortTblItem) * 3), 0);
    }
    copy[1].noLevels = 8;
    EXPECT_EQ(source[1].noLevels, 3);

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
