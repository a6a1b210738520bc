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

// The stations, sources and scans of a file with a right-handed and one with a left-handed AN table.
TEST(UVXLookup, TablesOfTheFile) {
    for (bool left : {false, true}) {
        SCOPED_TRACE(left);
        AMemFile mem(FileBytes(20, true, left));
        AUVXFile in;
        ASSERT_TRUE(in.Open(&mem)) << in.m_errMsg.GetString();
        std::unique_ptr<AUVXTable> an(in.GetTable("AN")), su(in.GetTable("SU")), sl(in.GetTable("SL"));
        ASSERT_TRUE(an && su && sl);
        AUVXAntenns ants(*an);
        EXPECT_EQ(ants.rightHanded, !left);
        ASSERT_EQ(ants.count, 4);
        // IDs 1, 2, 3, 5: rows 0..3; ID 4 lies in the gap and 6 beyond.
        EXPECT_EQ(ants.IndexForID(1), 0);
        EXPECT_EQ(ants.IndexForID(5), 3);
        for (int missing : {0, 4, 6}) EXPECT_LT(ants.IndexForID(missing), 0) << missing;
        EXPECT_EQ(ants.ForID(2).Name(), "WB");
        // An 8-character name fills its column without a NUL.
        EXPECT_EQ(ants.ForID(3).Name(), "JODRELL2");
        // The coordinates come back as stored, y included: negating it is the user's part.
        EXPECT_EQ(ants.ForID(5).x, 4033947.0 + 3);
        EXPECT_EQ(ants.ForID(5).y, 486990.5 - 3);
        EXPECT_EQ(ants.ForID(5).z, 4900430.25 * 4);
        static const AUVXTlscItem kNone = {};  // empty name, id 0, position 0
        EXPECT_EQ(std::memcmp(&ants.ForID(4), &kNone, sizeof(kNone)), 0);

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

        AUVXSkanList scans;
        ASSERT_TRUE(scans.Create(*sl));
        EXPECT_EQ(scans.refDay, 55554);
        ASSERT_EQ(scans.count, 3);
        EXPECT_EQ(scans[2].start, 4000.0);
        EXPECT_EQ(scans[2].end, 4150.0);
    }
}

TEST(UVXLookup, AntennaTablesWithoutKeywordOrColumns) {
    AUVXTable t, bad;
    Columns(t, "AN", {{"ANNAME", 'A', 8, ""}, {"STABXYZ", 'D', 3, ""}, {"NOSTA", 'J', 1, ""}});
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

    Columns(bad, "AN", {{"ANNAME", 'A', 8, ""}, {"NOSTA", 'J', 1, ""}});
    bad.AddRow();
    EXPECT_FALSE(ants.Init(bad));
    EXPECT_EQ(ants.count, 0);
}

TEST(UVXLookup, Frequencies) {
    AMemFile mem(FileBytes(5, true));
    AUVXFile in;
    ASSERT_TRUE(in.Open(&mem));
    AUVXFqTbl fq;
    ASSERT_TRUE(fq.Init(in));
    EXPECT_EQ(fq.GetFreqSelNum(2), 1);
    EXPECT_EQ(fq.GetFreqSelNum(3), -1);
    // Start of IF 1 in setup 2: reference plus 8 MHz plus 100 MHz.
    EXPECT_EQ(fq.GetStartIFFq(1, 1), 4.6e9 + (8.0e6 + 1.0e8));
    // IF 0 of setup 1, and an IF or a setup outside the table: the reference frequency.
    for (int iIF : {0, 5}) EXPECT_EQ(fq.GetStartIFFq(iIF, 0), 4.6e9) << iIF;
    EXPECT_EQ(fq.GetStartIFFq(0, -1), 4.6e9);
    EXPECT_EQ(fq.rows[0].sideband[1], -1);
    EXPECT_EQ(fq.rows[1].chWidth[0], 2.0e6);

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
    EXPECT_FLOAT_EQ(AUVXComplex({0.0f, 2.0f, 1.0f}).phase(), static_cast<float>(M_PI / 2));
    EXPECT_FLOAT_EQ(AUVXComplex({-1.0f, 0.0f, 1.0f}).phase(), static_cast<float>(M_PI));
    EXPECT_FLOAT_EQ(AUVXComplex({1.0f, -1.0f, 1.0f}).phase(), static_cast<float>(-M_PI / 4));
}

TEST(UVXLookup, TableBuilderConversions) {
    const char types[] = "ALIJEDK";
    const int sizes[] = {1, 1, 2, 4, 4, 8, 0};
    for (int i = 0; i < 7; ++i) EXPECT_EQ(AXTblTypeSize(types[i]), sizes[i]) << types[i];

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
    for (int outside : {4, -1})
        EXPECT_TRUE(t.ParseFormat(outside).type == 0 && t.ParseFormat(outside).count == 0);

    // A first row filled before the table grows past its first blocks must survive the growth.
    EXPECT_EQ(t.AddRow(), 0);
    t.SetDouble(0, 2, -7.5);
    for (int i = 1; i < 40; ++i) EXPECT_EQ(t.AddRow(), i);
    EXPECT_EQ(t.GetDouble(0, 2), -7.5);
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

    t.SetKeyword("N", 5);
    t.SetKeyword("X", 2.5);
    t.SetKeyword("S", "TEXT");
    double d = 0.0;
    CString s;
    EXPECT_TRUE(t.GetKeyword("N", d) && d == 5.0);
    EXPECT_TRUE(t.GetKeyword("X", d) && d == 2.5);
    EXPECT_TRUE(t.GetKeyword("S", s) && s == "TEXT");
    EXPECT_FALSE(t.GetKeyword("S", d) || t.GetKeyword("N", s) || t.GetKeyword("Q", d));
    t.SetKeyword("N", 7.25);  // replaces, with the new type
    EXPECT_EQ(t.keywords.count, 3);
    EXPECT_TRUE(t.GetKeyword("N", d) && d == 7.25);
    EXPECT_EQ(t.keywords[0].type, 'D');
}
