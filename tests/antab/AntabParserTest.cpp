// Tests of the ANTAB parser: line handling, keyword order, every parse message and the open cases.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <merovane/antab/AAntabData.h>

#include "AntabTestUvx.h"

namespace {

using Doubles = std::vector<double>;

// Loads without a UVX file: a parse that goes through ends in the binding's "uvx == NULL" message.
struct Parsed {
    explicit Parsed(const std::string& text, int nIF = 2, int nPol = 2) {
        data.m_nIF = nIF;
        data.m_nPol = nPol;
        ok = LoadText(data, text);
    }
    std::string Msg() { return data.GetErrMsg().GetString(); }
    // Row r of telescope i, every column; empty when there is no such row.
    Doubles Row(int r, int i = 0) {
        if (i >= data.m_tlscs.count || r >= data.m_tlscs[i]->m_tsys.rows) return Doubles();
        const ATsysTable& t = data.m_tlscs[i]->m_tsys;
        return Doubles(t.Row(r), t.Row(r) + t.cols);
    }
    AAntabData data;
    bool ok = false;
};

const double kDay = 1.0 / 86400.0;
const double kHour = 3600 * kDay;
const char kRead[] = "Error> <AAntabData> error read file.";

}  // namespace

TEST(AntabParser, WorkedExample) {
    Parsed p(
        "! AA at 1.6 GHz\n"
        "GAIN AA ELEV DPFU=0.5,0.6 FREQ=1000,2000 POLY=1.0,-0.01 /\n"
        "TSYS AA TIMEOFF=0 FT=1.1 INDEX='R1:2','L1','L2' /\n"
        "123 10:20.5 50.0 60.0 70.0\n"
        "/\n");
    EXPECT_FALSE(p.ok);
    EXPECT_EQ(p.Msg(), NoUvxMessage());
    EXPECT_EQ(
        Made(p.data),
        "[AA] kind 1 dpfu 0.5 0.6 freq 1e+09 2e+09 ft 1.1 poly 1 -0.01 ncol 3 index R1:2 L1:1 L2:2 rows 1");
    ASSERT_EQ(p.data.m_tlscs.count, 1);
    const AAntabTlsc& t = *p.data.m_tlscs[0];
    EXPECT_EQ(p.data.m_current, &t);
    EXPECT_EQ((std::vector<int>{t.m_nPol, t.m_nIF, t.m_tsys.cols}), (std::vector<int>{2, 2, 6}));
    Doubles row = p.Row(0);
    ASSERT_EQ(row.size(), 6u);
    EXPECT_DOUBLE_EQ(row[1], (10 * 3600 + 20.5 * 60) * kDay);
    row[1] = 0;
    EXPECT_EQ(row, (Doubles{123, 0, 50, 50, 60, 70}));
}

// Texts that parse through, and what they make.
TEST(AntabParser, KeywordsValuesAndOpenCases) {
    struct Case {
        std::string text;
        const char* made;
    } cases[] = {
        // FT in front of TIMEOFF is thrown away with the text in front of TIMEOFF.
        {"GAIN AA ELEV\nTSYS AA FT=1.2 TIMEOFF=3 INDEX='R1' /\n", "[AA] off 3 ncol 1 index R1:1"},
        // POLY in front of DPFU is lost; DPFU after it still counts.
        {"GAIN AA ELEV POLY=1,2 / DPFU=0.5\n", "[AA] kind 1 dpfu 0.5 0.5"},
        // POLY in front of FREQ is lost, and so is INDEX in front of INDEX2.
        {"GAIN AA ELEV POLY=2 / FREQ=100\nTSYS AA INDEX='R1' / INDEX2='L1','L2' /\n",
         "[AA] kind 1 freq 1e+08 1e+38 ncol 2 index2 L1:1 L2:2"},
        // INDEX2 then INDEX on one line: the column count is that of INDEX.
        {"GAIN AA ELEV\nTSYS AA INDEX2='L1','L2','X' / INDEX='R1','R2' /\n",
         "[AA] ncol 2 index R1:1 R2:2 index2 L1:1 L2:2 X"},
        // A later INDEX appends behind the earlier entries and sets the count to its own.
        {"GAIN AA ELEV\nTSYS AA INDEX='R1','R2','L1','L2' /\nINDEX='L2' /\n",
         "[AA] ncol 1 index R1:1 R2:2 L1:1 L2:2 L2:2"},
        // BIF= and EIF= in front of GAIN on the same line, truncated towards zero. The kind is the
        // last word: no blank behind it, so no kind.
        {"BIF=2.9 EIF=-3.7 GAIN AA ALTAZ\n", "bif 2 eif -3 [AA]"},
        // LEFT holds FT; what stands between the keyword and "=" is skipped. AGAIN holds GAIN.
        {"GAIN AA ELEV\nTSYS AA TIMEOFF=0 LEFT=2.5 INDEX='R1' /\n", "[AA] ft 2.5 ncol 1 index R1:1"},
        {"AGAIN BB EQUAT DPFU=0.3\n", "[BB] kind 3 dpfu 0.3 0.3"},
        // Behind "!" all is comment; case does not matter; tabs count as blanks.
        {"GAIN AA ELEV ! SOFT WARE\n! FT GAIN TSYS\n", "[AA] kind 1"},
        {"gain\taa\taltaz\tdpfu=0.25\n", "[AA] kind 2 dpfu 0.25 0.25"},
        // A blank behind a comma ends the list; blanks around "=" are fine.
        {"GAIN AA ELEV DPFU=0.5, 0.6\n", "[AA] kind 1 dpfu 0.5 0.5"},
        {"GAIN AA ELEV DPFU = 0.2,0.3\n", "[AA] kind 1 dpfu 0.2 0.3"},
        {"GAIN AA ELEV FREQ=1000\n", "[AA] kind 1 freq 1e+09 1e+38"},
        // An empty FREQ= changes nothing; "/" behind DPFU= is a word that atof makes 0.
        {"GAIN AA ELEV FREQ=\n", "[AA] kind 1"},
        {"GAIN AA ELEV DPFU= / FREQ=1000\n", "[AA] kind 1 dpfu 0 0 freq 1e+09 1e+38"},
        // POLY over several lines, each with its own POLY=; commas and blanks both separate; a word
        // that is not a number is the coefficient 0.
        {"GAIN AA ELEV POLY=1.5, 2.5 3.5\nPOLY=4.5 ABC /\n", "[AA] kind 1 poly 1.5 2.5 3.5 4.5 0"},
        // The kind is compared exactly.
        {"GAIN AA ELEVATION X\nGAIN BB EQUAT X\nGAIN CC ALTAZ X\n", "[AA] | [BB] kind 3 | [CC] kind 2"},
        // A kind as the last word of its line has no blank behind it: no kind (as with most GAIN lines
        // here). TSYS without a station, TIMEOFF first: no check. "GAIN AA" alone: an empty name.
        {"GAIN AA ELEV\nTSYS TIMEOFF=0 FT=1.0 INDEX='R1' /\n", "[AA] ncol 1 index R1:1"},
        {"GAIN AA\n", "[]"},
        // A digit line before any GAIN is a keyword line without keywords; trailing blanks add no token.
        {"123 10:20 50\nGAIN AA ELEV\n", "[AA]"},
        {"GAIN AA ELEV\nTSYS AA INDEX='R1' /\n1 1:00 3    \n", "[AA] ncol 1 index R1:1 rows 1"},
        // Empty items and other letters are columns to pass over.
        {"GAIN AA ELEV\nTSYS AA INDEX='R1',,'Y2','','L2' /\n", "[AA] ncol 5 index R1:1 X X X L2:2"},
        {"", ""},
    };
    for (const Case& c : cases) {
        Parsed p(c.text);
        EXPECT_EQ(p.Msg(), NoUvxMessage()) << c.text;
        EXPECT_EQ(Made(p.data), c.made) << c.text;
    }
    Parsed kinds("GAIN AA ELEVATION X\nGAIN BB EQUAT X\nGAIN CC ALTAZ X\n");  // the last is current
    EXPECT_EQ(kinds.data.m_current, kinds.data.m_tlscs[2]);
}

TEST(AntabParser, DataRows) {
    // hh:mm.mm and hh:mm:ss, midnight and the last minute of the day.
    Parsed t(
        "GAIN AA ELEV\nTSYS AA INDEX='R1:2','L1:2' /\n1 10:20.5 1 2\n1 10:20:30 1 2\n1 0:00 1 2\n1 23:59.5 1 "
        "2\n");
    ASSERT_EQ(t.Msg(), NoUvxMessage());
    ASSERT_EQ(t.data.m_tlscs[0]->m_tsys.rows, 4);
    EXPECT_DOUBLE_EQ(t.Row(0)[1], 37230 * kDay);
    EXPECT_DOUBLE_EQ(t.Row(1)[1], 37230 * kDay);
    EXPECT_EQ(t.Row(2)[1], 0.0);
    EXPECT_DOUBLE_EQ(t.Row(3)[1], (23 * 3600 + 59.5 * 60) * kDay);

    // Four IF bands: 'R1:8' fills IFs 1 to 4 and passes over the rest; X counts as a column. The
    // leading-blank row added nothing; the row without values and the one after "/" count.
    Parsed a(
        "GAIN AA ELEV\nTSYS AA INDEX='R1:8','X','L2:3' /\n"
        "10 1:00 -1.0 99 33\n   10 11:00 5 6 7\n11 1:00\n365 1:00 4\n1 1:00 4\n/\n2 1:00 9\n",
        4, 2);
    ASSERT_EQ(a.Msg(), NoUvxMessage());
    EXPECT_EQ(Made(a.data), "[AA] ncol 3 index R1:8 X L2:3 rows 5");
    EXPECT_EQ(a.Row(0), (Doubles{10, kHour, -1, -1, -1, -1, 0, 33, 33, 0}));
    EXPECT_EQ(a.Row(1), (Doubles{11, kHour, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(a.Row(2), (Doubles{365, kHour, 4, 4, 4, 4, 0, 0, 0, 0}));
    EXPECT_EQ(a.Row(3), (Doubles{1, kHour, 4, 4, 4, 4, 0, 0, 0, 0}));
    EXPECT_EQ(a.Row(4), (Doubles{2, kHour, 9, 9, 9, 9, 0, 0, 0, 0}));

    struct Case {
        std::string text;
        int nPol, telescope;
        Doubles row;
    } cases[] = {
        // One polarisation: the L items fall on the R positions.
        {"GAIN AA ELEV\nTSYS AA INDEX='L1','R2' /\n1 1:00 3 4\n", 1, 0, {1, kHour, 3, 4}},
        // A row fills INDEX and INDEX2 alike.
        {"GAIN AA ELEV\nTSYS AA INDEX2='L1','L2','X' / INDEX='R1','R2' /\n5 1:00 11 22\n",
         2,
         0,
         {5, kHour, 11, 22, 11, 22}},
        // Rows read the lists from their start.
        {"GAIN AA ELEV\nTSYS AA INDEX='R1','R2','L1','L2' /\nINDEX='L2' /\n5 1:00 7\n",
         2,
         0,
         {5, kHour, 7, 0, 0, 0}},
        // Empty items and other letters are passed over.
        {"GAIN AA ELEV\nTSYS AA INDEX='R1',,'Y2','','L2' /\n1 1:00 5 6 7 8 9\n",
         2,
         0,
         {1, kHour, 5, 0, 0, 9}},
        // A second GAIN with a seen name makes a separate telescope; rows go to the current one.
        {"GAIN AA ELEV\nTSYS AA INDEX='R1' /\n1 1:00 3\nGAIN AA ELEV\nTSYS AA INDEX='R2' /\n1 2:00 4\n",
         2,
         1,
         {1, 2 * kHour, 0, 4, 0, 0}},
    };
    for (const Case& c : cases) {
        Parsed p(c.text, 2, c.nPol);
        EXPECT_EQ(p.Msg(), NoUvxMessage()) << c.text;
        EXPECT_EQ(p.Row(0, c.telescope), c.row) << c.text;
    }
}

TEST(AntabParser, LineLength) {
    const std::string head = "GAIN AA ELEV\n";
    // 1023 characters: read. The DPFU behind the padding proves the whole line was seen; the same
    // as the last line without a line end.
    const std::string line1023 = "BIF=3" + std::string(1023 - 5 - 9, ' ') + "DPFU=0.7 ";
    ASSERT_EQ(line1023.size(), 1023u);
    for (const std::string& text : {head + line1023 + "\n", head + line1023}) {
        Parsed a(text);
        EXPECT_EQ(a.Msg(), NoUvxMessage());
        EXPECT_EQ(Made(a.data), "bif 3 [AA] dpfu 0.7 0.7");
    }

    // 1024 characters stop the load, with or without a line end, and wherever the line stands.
    const std::string line1024 = line1023 + "X";
    for (const std::string& text : {head + line1024 + "\n", head + line1024, line1024 + "\n" + head}) {
        Parsed c(text);
        EXPECT_FALSE(c.ok);
        EXPECT_EQ(c.Msg(), kRead);
    }
    EXPECT_EQ(Parsed(line1024 + "\n" + head).data.m_tlscs.count, 0);

    // CRLF line ends pass, the CR counting as a character of the line.
    Parsed f("!" + std::string(1021, 'c') + "\r\nGAIN AA ELEV DPFU=0.4\r\n");
    EXPECT_EQ(f.Msg(), NoUvxMessage());
    EXPECT_EQ(Made(f.data), "[AA] kind 1 dpfu 0.4 0.4");
    EXPECT_EQ(Parsed("!" + std::string(1022, 'c') + "\r\nGAIN AA ELEV DPFU=0.4\r\n").Msg(), kRead);
}

TEST(AntabParser, EveryParseMessage) {
    struct Case {
        std::string text, message;
    };
    const Case cases[] = {
        {"GAIN AA ELEV\n" + std::string(1100, 'A') + "\n", kRead},
        {"GAIN AA ELEV\n123 10:20 50\n", "Error> <AAntabData> invalid parse temperature. ncol < 3"},
        // A bare number line behind GAIN but before INDEX.
        {"GAIN AA ELEV POLY=1.0\n-0.5 /\n2.0 /\n", "Error> <AAntabData> invalid parse temperature. ncol < 3"},
        {"GAIN AA ELEV\nTSYS AA INDEX='R1' /\n123 10:2x 50\n",
         "Error> <AAntabData> Time convert error 10:2X"},
        // A row of a single token.
        {"GAIN AA ELEV\nTSYS AA INDEX='R1' /\n123\n", "Error> <AAntabData> Time convert error "},
        {"GAIN AA ELEV\nTSYS AA INDEX='R1' /\n123 10:20 50 60\n",
         "Error> <AAntabData> invalid parse temperature, tlsc = AA"},
        {"GAIN AA ELEV DPFU 0.5\n", "Error> <AAntabData> error parse DPFU. "},
        {"GAIN AA ELEV DPFU=\n", "Error> <AAntabData> error parse DPFU. "},  // nothing behind it
        {"GAIN AA ELEV DPFU=1,2,3\n", "Error> <AAntabData> error parse DPFU ( > 1). "},
        {"GAIN AA ELEV FREQ 1400\n", "Error> <AAntabData> error parse FREQ. "},
        {"GAIN AA ELEV FREQ=1,2,3\n", "Error> <AAntabData> invalid  FREQ range"},
        {"GAIN AA ELEV POLY 1 /\n", "Error> <AAntabData> error parse POLY. "},
        {"GAIN AA ELEV\nTSYS AA TIMEOFF 0\n", "Error> <AAntabData> error parse TIMEOFF. "},
        {"GAIN AA ELEV\nTSYS AA TIMEOFF=0 FT 1\n", "Error> <AAntabData> error parse FT. "},
        // SOFT on a keyword line without "=" holds FT.
        {"GAIN AA ELEV\nSOFT WARE\n", "Error> <AAntabData> error parse FT. "},
        {"GAIN AA ELEV\nTSYS AA INDEX2 'R1'\n", "Error> <AAntabData> error parse INDEX2. "},
        {"GAIN AA ELEV\nTSYS AA INDEX 'R1'\n", "Error> <AAntabData> error parse INDEX. "},
        // The station check of TSYS.
        {"GAIN AA ELEV\nTSYS BB FT=1 INDEX='R1' /\n", "Error eq antenna in TSYS par BB AA"},
        // Nothing behind the name: the word is empty and never equals.
        {"GAIN AA ELEV\nTSYS AA\n", "Error eq antenna in TSYS par  AA"},
        // No station, FT first: FT=1.0 is taken as the name.
        {"GAIN AA ELEV\nTSYS FT=1.0 INDEX='R1' /\n", "Error eq antenna in TSYS par FT=1.0 AA"},
        // All GAIN lines first: the TSYS block of the first station meets the last GAIN.
        {"GAIN AA ELEV\nGAIN BB ELEV\nTSYS AA FT=1 INDEX='R1' /\n", "Error eq antenna in TSYS par AA BB"},
        // An empty station name from "GAIN AA" cannot be matched either.
        {"GAIN AA\nTSYS  FT=1 INDEX='R1' /\n", "Error eq antenna in TSYS par FT=1 "},
    };
    for (const Case& c : cases) {
        Parsed p(c.text);
        EXPECT_FALSE(p.ok) << c.text;
        EXPECT_EQ(p.Msg(), c.message) << c.text;
    }
    // Keywords that need a telescope, before any GAIN: what stood in front is kept.
    for (const char* k : {"DPFU", "FREQ", "POLY", "TSYS", "TIMEOFF", "FT", "INDEX2", "INDEX"}) {
        Parsed p(std::string("BIF=1 ") + k + "=1\nGAIN AA ELEV\n");
        EXPECT_EQ(p.Msg(), std::string("Error> <AAntabData> ") + k + " before any GAIN") << k;
        EXPECT_EQ(Made(p.data), "bif 1 ");
    }

    // What was read before the error stays: the row that failed is kept, its day in column 0.
    Parsed q("GAIN AA ELEV\nTSYS AA INDEX='R1' /\n7 1:00 5\n8 1:00 5 6\n");
    EXPECT_EQ(Made(q.data), "[AA] ncol 1 index R1:1 rows 2");
    EXPECT_EQ(q.Row(0)[0], 7.0);

    // No RR or LL in the file.
    Parsed none("GAIN AA ELEV\n", 2, 0);
    EXPECT_EQ(none.Msg(), "Error> <AAntabData> no RR or LL product in the UVX file");
    EXPECT_EQ(none.data.m_tlscs.count, 0);

    // A stream already at its end goes straight to the binding.
    AAntabData data;
    std::istringstream in("GAIN AA ELEV\n");
    std::string skip;
    std::getline(in, skip);
    in.peek();
    ASSERT_TRUE(in.eof());
    EXPECT_FALSE(data.Load(in));
    EXPECT_EQ(data.GetErrMsg(), NoUvxMessage());
    EXPECT_EQ(data.m_tlscs.count, 0);
}
