// Lookups built from the tables of a UVX file, the baseline set, the record shapes and the table builder.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include <merovane/foundation/AMemFile.h>
#include <merovane/uvx/ABaseLine.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXFqTbl.h>
#include <merovane/uvx/AUVXRecords.h>
#include <merovane/uvx/AUVXSkanList.h>
#include <merovane/uvx/AUVXSources.h>

#include "UVXTestFiles.h"

using namespace uvxtest;

TEST(UVXLookup, AntennasFromTheFile) {
    for (bool left : {false, true}) {
        AMemFile mem(FileBytes(20, true, left));
        AUVXFile in;
        ASSERT_TRUE(in.Open(&mem)) << in.m_errMsg.GetString();
        std::unique_ptr<AUVXTable> table(in.GetTable("AN"));
        ASSERT_TRUE(table);
        AUVXAntenns ants(*table);
        EXPECT_EQ(ants.rightHanded, !left);
        ASSERT_EQ(ants.count, 4);
        // IDs 1, 2, 3, 5: rows 0..3; ID 4 lies in the gap and 6 beyond.
        EXPECT_EQ(ants.IndexForID(1), 0);
        EXPECT_EQ(ants.IndexForID(5), 3);
        EXPECT_LT(ants.IndexForID(4), 0);
        EXPECT_LT(ants.IndexForID(6), 0);
        EXPECT_LT(ants.IndexForID(0), 0);
        EXPECT_EQ(ants.ForID(2).Name(), "WB");
        // An 8-character name fills its column without a NUL.
        EXPECT_EQ(ants.ForID(3).Name(), "JODRELL2");
        // The coordinates come back as stored, y included: negating it is the user's part.
        EXPECT_EQ(ants.ForID(5).x, 4033947.0 + 3);
        EXPECT_EQ(ants.ForID(5).y, 486990.5 - 3);
        EXPECT_EQ(ants.ForID(5).z, 4900430.25 * 4);
        const AUVXTlscItem& none = ants.ForID(4);
        EXPECT_EQ(none.Name(), "");
        EXPECT_EQ(none.id, 0);
        EXPECT_EQ(none.x, 0.0);
        EXPECT_EQ(none.y, 0.0);
        EXPECT_EQ(none.z, 0.0);
    }
}

TEST(UVXLookup, AntennaTablesWithoutKeywordOrColumns) {
    AUVXTable t("AN");
    t.AddColumn("ANNAME", 'A', 8);
    t.AddColumn("STABXYZ", 'D', 3);
    t.AddColumn("NOSTA", 'J');
    t.SetText(t.AddRow(), 0, "KP");
    AUVXAntenns ants;
    ants.rightHanded = false;
    ASSERT_TRUE(ants.Init(t));
    EXPECT_TRUE(ants.rightHanded);  // no XYZHAND: right-handed
    EXPECT_EQ(ants.count, 1);

    t.SetKeyword("XYZHAND", "left");
    ASSERT_TRUE(ants.Init(t));
    EXPECT_FALSE(ants.rightHanded);
    EXPECT_EQ(ants.count, 1);  // Init replaces, it does not append

    AUVXTable bad("AN");
    bad.AddColumn("ANNAME", 'A', 8);
    bad.AddColumn("NOSTA", 'J');
    bad.AddRow();
    EXPECT_FALSE(ants.Init(bad));
    EXPECT_EQ(ants.count, 0);
}

TEST(UVXLookup, SourcesScansAndFrequencies) {
    AMemFile mem(FileBytes(5, true));
    AUVXFile in;
    ASSERT_TRUE(in.Open(&mem));

    std::unique_ptr<AUVXTable> su(in.GetTable("SU"));
    ASSERT_TRUE(su);
    AUVXSources sources;
    ASSERT_TRUE(sources.Init(*su));
    ASSERT_EQ(sources.count, 3);
    EXPECT_EQ(sources[1].id, 2);
    EXPECT_EQ(sources[1].Name(), "3C84");
    EXPECT_EQ(sources[2].Name(), "A-SIXTEEN-CHARS!");
    EXPECT_EQ(sources[1].ra, 73.5);
    EXPECT_EQ(sources[1].dec, -4.25);
    EXPECT_EQ(sources.IndexForID(3), 2);
    EXPECT_LT(sources.IndexForID(4), 0);

    std::unique_ptr<AUVXTable> slTable(in.GetTable("SL"));
    ASSERT_TRUE(slTable);
    AUVXSkanList scans;
    ASSERT_TRUE(scans.Create(*slTable));
    EXPECT_EQ(scans.refDay, 55554);
    ASSERT_EQ(scans.count, 3);
    EXPECT_EQ(scans[2].start, 4000.0);
    EXPECT_EQ(scans[2].end, 4150.0);

    AUVXFqTbl fq;
    ASSERT_TRUE(fq.Init(in));
    EXPECT_EQ(fq.refFreq, 4.6e9);
    EXPECT_EQ(fq.GetFreqSelNum(2), 1);
    EXPECT_EQ(fq.GetFreqSelNum(3), -1);
    // Start of IF 1 in setup 2: reference plus 8 MHz plus 100 MHz.
    EXPECT_EQ(fq.GetStartIFFq(1, 1), 4.6e9 + (8.0e6 + 1.0e8));
    EXPECT_EQ(fq.GetStartIFFq(0, 0), 4.6e9);
    EXPECT_EQ(fq.GetStartIFFq(5, 0), 4.6e9);
    EXPECT_EQ(fq.GetStartIFFq(0, -1), 4.6e9);
    EXPECT_EQ(fq.rows[0].sideband[1], -1);
    EXPECT_EQ(fq.rows[1].chWidth[0], 2.0e6);
    // Copyable: the copy answers on its own.
    AUVXFqTbl copy = fq;
    fq.rows.clear();
    EXPECT_EQ(copy.GetStartIFFq(1, 1), 4.6e9 + (8.0e6 + 1.0e8));

    // A file without FQ: every setup answers with the reference frequency.
    AMemFile bare(FileBytes(1, false));
    AUVXFile plain;
    ASSERT_TRUE(plain.Open(&bare));
    AUVXFqTbl none;
    EXPECT_FALSE(none.Init(plain));
    EXPECT_EQ(none.GetFreqSelNum(1), 0);
    EXPECT_EQ(none.GetStartIFFq(1, none.GetFreqSelNum(1)), 4.6e9);
}

TEST(UVXLookup, BaseLinesStaySortedAndUnique) {
    ABaseLine list(0, 64);
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(list.growBy, 64);
    // Records in an arbitrary order, with repeats, the two flag values and a negative antenna byte.
    const int pairs[][3] = {{3, 5, 0},  {1, 2, 1}, {3, 5, 0}, {1, 2, 0}, {2, 3, 0}, {-1, 4, 0},
                            {1, 10, 0}, {3, 4, 0}, {1, 2, 1}, {2, 3, 0}, {10, 1, 0}};
    for (const auto& p : pairs) {
        // The item as the averaging forms it: the group's two antenna bytes copied as they lie.
        AUVXGroup g = {};
        g.ant1 = static_cast<std::int8_t>(p[0]);
        g.ant2 = static_cast<std::int8_t>(p[1]);
        ABaseLineItem item;
        std::memcpy(&item.ants, reinterpret_cast<const unsigned char*>(&g) + 24, 2);
        item.flag = static_cast<std::uint8_t>(p[2]);
        const int at = list.checkBase(item);
        ASSERT_GE(at, 0);
        EXPECT_EQ(static_cast<int>(list[at].ants), static_cast<int>(item.ants));
        EXPECT_EQ(list[at].flag, item.flag);
    }
    const int expected[][3] = {{-1, 4, 0}, {1, 2, 0}, {1, 2, 1}, {1, 10, 0},
                               {2, 3, 0},  {3, 4, 0}, {3, 5, 0}, {10, 1, 0}};
    ASSERT_EQ(list.count, 8);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(ABaseLine::Ant1(list[i]), expected[i][0]) << i;
        EXPECT_EQ(ABaseLine::Ant2(list[i]), expected[i][1]) << i;
        EXPECT_EQ(list[i].flag, expected[i][2]) << i;
    }
    // Make lays the bytes out as the group does: ant1 low, ant2 high.
    ABaseLineItem made = ABaseLine::Make(3, 5, 0);
    EXPECT_EQ(static_cast<int>(made.ants), 3 + 5 * 256);
    EXPECT_EQ(list.checkBase(made), 6);
    EXPECT_EQ(list.count, 8);
}

TEST(UVXLookup, VisibilityShapeAndPhase) {
    AUVXVisibility v(3, 4, 2);
    ASSERT_EQ(v.count, 24);
    EXPECT_EQ(v.Index(2, 1, 1), (2 * 4 + 1) * 2 + 1);
    EXPECT_EQ(&v.At(1, 3, 0), v.data + 14);
    // nIF 0 keeps its value but the cube has one band.
    AUVXVisibility flat(0, 5, 4);
    EXPECT_EQ(flat.nIF, 0);
    EXPECT_EQ(flat.count, 20);
    AUVXVisibility empty(2, 0, 4);
    EXPECT_EQ(empty.count, 0);
    EXPECT_EQ(empty.data, nullptr);
    for (int i = 0; i < flat.count; ++i) flat[i] = AUVXComplex{1.0f, 2.0f, 3.0f};
    flat.ZeroInit();
    for (int i = 0; i < flat.count; ++i) {
        EXPECT_EQ(flat[i].re, 0.0f);
        EXPECT_EQ(flat[i].wt, 0.0f);
    }
    EXPECT_FLOAT_EQ(AUVXComplex({0.0f, 2.0f, 1.0f}).phase(), static_cast<float>(M_PI / 2));
    EXPECT_FLOAT_EQ(AUVXComplex({-1.0f, 0.0f, 1.0f}).phase(), static_cast<float>(M_PI));
    EXPECT_FLOAT_EQ(AUVXComplex({1.0f, -1.0f, 1.0f}).phase(), static_cast<float>(-M_PI / 4));
}

TEST(UVXLookup, TableBuilderConversions) {
    EXPECT_EQ(AXTblTypeSize('A'), 1);
    EXPECT_EQ(AXTblTypeSize('L'), 1);
    EXPECT_EQ(AXTblTypeSize('I'), 2);
    EXPECT_EQ(AXTblTypeSize('J'), 4);
    EXPECT_EQ(AXTblTypeSize('E'), 4);
    EXPECT_EQ(AXTblTypeSize('D'), 8);
    EXPECT_EQ(AXTblTypeSize('K'), 0);

    AUVXTable t("XX");
    EXPECT_EQ(t.AddColumn("BAD", 'K'), -1);
    EXPECT_EQ(t.m_errMsg, "Table \"XX\": unknown column type code 75");
    EXPECT_EQ(t.AddColumn("BAD", 'J', 0), -1);
    EXPECT_EQ(t.m_errMsg, "Table \"XX\": repeat count 0 below 1");
    EXPECT_EQ(t.AddColumn("S", 'I', 2), 0);
    EXPECT_EQ(t.AddColumn("F", 'E'), 1);
    EXPECT_EQ(t.AddColumn("D", 'D'), 2);
    EXPECT_EQ(t.AddColumn("T", 'A', 4), 3);
    EXPECT_EQ(t.rowBytes, 4 + 4 + 8 + 4);
    EXPECT_EQ(t.ColumnOffset(2), 8);
    EXPECT_EQ(t.ColumnOffset(3), 16);
    EXPECT_EQ(t.ColumnIndex("D"), 2);
    EXPECT_EQ(t.ColumnIndex("d"), -1);
    EXPECT_EQ(t.ParseFormat(0).type, 'I');
    EXPECT_EQ(t.ParseFormat(0).count, 2);
    EXPECT_EQ(t.ParseFormat(4).type, 0);
    EXPECT_EQ(t.ParseFormat(4).count, 0);
    EXPECT_EQ(t.ParseFormat(-1).count, 0);

    for (int i = 0; i < 40; ++i) EXPECT_EQ(t.AddRow(), i);  // grows past its first block
    EXPECT_EQ(t.AddColumn("LATE", 'J'), -1);
    EXPECT_EQ(t.m_errMsg, "Table \"XX\": columns must come before the first row");
    t.SetDouble(39, 0, 2.6, 1);
    EXPECT_EQ(t.GetDouble(39, 0, 1), 3.0);  // integers round to nearest
    EXPECT_EQ(t.GetDouble(39, 0, 0), 0.0);  // rows start as zeros
    t.SetDouble(39, 0, 1.0e9, 0);
    EXPECT_EQ(t.GetDouble(39, 0, 0), 32767.0);  // and clamp to their type
    t.SetDouble(39, 1, 0.1);
    EXPECT_EQ(t.GetDouble(39, 1), static_cast<double>(0.1f));  // an E column holds a float
    EXPECT_NE(t.GetDouble(39, 1), 0.1);
    t.SetDouble(39, 2, 0.1);
    EXPECT_EQ(t.GetDouble(39, 2), 0.1);
    t.SetText(39, 3, "ABCDEFG");
    EXPECT_EQ(t.GetText(39, 3), "ABCD");
    EXPECT_EQ(t.GetDouble(39, 3, 1), 'B');
    // Earlier rows survived the growth.
    t.SetDouble(0, 2, -7.5);
    t.AddRow();
    EXPECT_EQ(t.GetDouble(0, 2), -7.5);

    t.SetKeyword("N", 5);
    t.SetKeyword("X", 2.5);
    t.SetKeyword("S", "TEXT");
    double d = 0.0;
    CString s;
    EXPECT_TRUE(t.GetKeyword("N", d));
    EXPECT_EQ(d, 5.0);
    EXPECT_TRUE(t.GetKeyword("X", d));
    EXPECT_EQ(d, 2.5);
    EXPECT_FALSE(t.GetKeyword("S", d));
    EXPECT_TRUE(t.GetKeyword("S", s));
    EXPECT_EQ(s, "TEXT");
    EXPECT_FALSE(t.GetKeyword("N", s));
    EXPECT_FALSE(t.GetKeyword("Q", d));
    t.SetKeyword("N", 7.25);  // replaces, with the new type
    EXPECT_EQ(t.keywords.count, 3);
    EXPECT_TRUE(t.GetKeyword("N", d));
    EXPECT_EQ(d, 7.25);
    EXPECT_EQ(t.keywords[0].type, 'D');
}
