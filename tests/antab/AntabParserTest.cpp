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
    AAntabTlsc& T(int i = 0) { return *data.m_tlscs[i]; }
    std::string Msg() { return data.GetErrMsg().GetString(); }
    // Row r of telescope i, every column; empty when there is no such row.
    Doubles Row(int r, int i = 0) {
        const ATsysTable& t = T(i).m_tsys;
        return r < t.rows ? Doubles(t.Row(r), t.Row(r) + t.cols) : Doubles();
    }
    AAntabData data;
    bool ok = false;
};

// "pol first last" of each item, items separated by " | ".
std::string Items(const AArray<AColumnInfo>& list) {
    std::string s;
    for (int i = 0; i < list.count; ++i)
        s += (i ? " | " : "") + std::to_string(list[i].pol) + " " + std::to_string(list[i].first) + " " +
             std::to_string(list[i].last);
    return s;
}

Doubles Poly(const AAntabTlsc& t) {
    return Doubles(t.m_poly.data, t.m_poly.data + t.m_poly.count);
}

const double kDay = 1.0 / 86400.0;
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
    ASSERT_EQ(p.data.m_tlscs.count, 1);
    AAntabTlsc& t = p.T();
    EXPECT_EQ(p.data.m_current, &t);
    EXPECT_STREQ(t.m_name, "AA");
    EXPECT_EQ(t.m_polyType, 1);
    EXPECT_EQ((Doubles{t.m_dpfu[0], t.m_dpfu[1], t.m_freqLow, t.m_freqHigh, t.m_timeOff, t.m_ft}),
              (Doubles{0.5, 0.6, 1e9, 2e9, 0.0, 1.1}));
    EXPECT_EQ(Poly(t), (Doubles{1.0, -0.01}));
    EXPECT_EQ(Items(t.m_index), "-1 1 2 | -2 1 1 | -2 2 2");
    EXPECT_EQ(t.m_index2.count, 0);
    EXPECT_EQ((std::vector<int>{t.m_nCol, t.m_nPol, t.m_nIF, t.m_tsys.cols, t.m_tsys.rows}),
              (std::vector<int>{3, 2, 2, 6, 1}));
    Doubles row = p.Row(0);
    ASSERT_EQ(row.size(), 6u);
    EXPECT_DOUBLE_EQ(row[1], (10 * 3600 + 20.5 * 60) * kDay);
    row[1] = 0;
    EXPECT_EQ(row, (Doubles{123, 0, 50, 50, 60, 70}));
}

TEST(AntabParser, TimeForms) {
    // hh:mm.mm and hh:mm:ss, midnight and the last minute of the day.
    Parsed p(
        "GAIN AA ELEV\nTSYS AA INDEX='R1:2','L1:2' /\n1 10:20.5 1 2\n1 10:20:30 1 2\n1 0:00 1 2\n1 23:59.5 1 "
        "2\n");
    ASSERT_EQ(p.Msg(), NoUvxMessage());
    ASSERT_EQ(p.T().m_tsys.rows, 4);
    EXPECT_DOUBLE_EQ(p.T().m_tsys.Row(0)[1], 37230 * kDay);
    EXPECT_DOUBLE_EQ(p.T().m_tsys.Row(1)[1], 37230 * kDay);
    EXPECT_EQ(p.T().m_tsys.Row(2)[1], 0.0);
    EXPECT_DOUBLE_EQ(p.T().m_tsys.Row(3)[1], (23 * 3600 + 59.5 * 60) * kDay);
}

TEST(AntabParser, KeywordOrderAndSubstrings) {
    // FT in front of TIMEOFF is thrown away with the text in front of TIMEOFF.
    Parsed a("GAIN AA ELEV\nTSYS AA FT=1.2 TIMEOFF=3 INDEX='R1' /\n");
    ASSERT_EQ(a.Msg(), NoUvxMessage());
    EXPECT_EQ((Doubles{a.T().m_ft, a.T().m_timeOff}), (Doubles{1.0, 3.0}));
    EXPECT_EQ(a.T().m_nCol, 1);

    // POLY in front of DPFU is lost; DPFU after it still counts.
    Parsed b("GAIN AA ELEV POLY=1,2 / DPFU=0.5\n");
    ASSERT_EQ(b.Msg(), NoUvxMessage());
    EXPECT_EQ(b.T().m_poly.count, 0);
    EXPECT_EQ((Doubles{b.T().m_dpfu[0], b.T().m_dpfu[1]}), (Doubles{0.5, 0.5}));

    // POLY in front of FREQ is lost, and so is INDEX in front of INDEX2.
    Parsed c("GAIN AA ELEV POLY=2 / FREQ=100\nTSYS AA INDEX='R1' / INDEX2='L1','L2' /\n");
    ASSERT_EQ(c.Msg(), NoUvxMessage());
    EXPECT_EQ(c.T().m_freqLow, 1e8);
    EXPECT_EQ(c.T().m_poly.count, 0);
    EXPECT_EQ(c.T().m_index.count, 0);
    EXPECT_EQ(c.T().m_index2.count, 2);
    EXPECT_EQ(c.T().m_nCol, 2);

    // INDEX2 then INDEX on one line: the column count is that of INDEX; a row fills both lists.
    Parsed d("GAIN AA ELEV\nTSYS AA INDEX2='L1','L2','X' / INDEX='R1','R2' /\n5 1:00 11 22\n");
    ASSERT_EQ(d.Msg(), NoUvxMessage());
    EXPECT_EQ(d.T().m_nCol, 2);
    EXPECT_EQ(d.Row(0), (Doubles{5, 3600 * kDay, 11, 22, 11, 22}));

    // A later INDEX appends behind the earlier entries and sets the count to its own; rows read the
    // lists from their start.
    Parsed e("GAIN AA ELEV\nTSYS AA INDEX='R1','R2','L1','L2' /\nINDEX='L2' /\n5 1:00 7\n");
    ASSERT_EQ(e.Msg(), NoUvxMessage());
    EXPECT_EQ(e.T().m_index.count, 5);
    EXPECT_EQ(e.T().m_nCol, 1);
    EXPECT_EQ(e.Row(0), (Doubles{5, 3600 * kDay, 7, 0, 0, 0}));

    // BIF= and EIF= in front of GAIN on the same line; values truncated towards zero. The kind is
    // the last word: no blank behind it, so no kind.
    Parsed f("BIF=2.9 EIF=-3.7 GAIN AA ALTAZ\n");
    ASSERT_EQ(f.Msg(), NoUvxMessage());
    EXPECT_EQ(f.data.m_bif, 2);
    EXPECT_EQ(f.data.m_eif, -3);
    EXPECT_EQ(f.T().m_polyType, 0);

    // LEFT holds FT; what stands between the keyword and "=" is skipped.
    Parsed g("GAIN AA ELEV\nTSYS AA TIMEOFF=0 LEFT=2.5 INDEX='R1' /\n");
    ASSERT_EQ(g.Msg(), NoUvxMessage());
    EXPECT_EQ(g.T().m_ft, 2.5);

    // AGAIN holds GAIN.
    Parsed h("AGAIN BB EQUAT DPFU=0.3\n");
    ASSERT_EQ(h.Msg(), NoUvxMessage());
    ASSERT_EQ(h.data.m_tlscs.count, 1);
    EXPECT_STREQ(h.T().m_name, "BB");
    EXPECT_EQ(h.T().m_polyType, 3);

    // SOFT on a keyword line without "=" stops the load with the FT message; the same word behind
    // "!" is a comment.
    Parsed i("GAIN AA ELEV\nSOFT WARE\n");
    EXPECT_FALSE(i.ok);
    EXPECT_EQ(i.Msg(), "Error> <AAntabData> error parse FT. ");
    Parsed j("GAIN AA ELEV ! SOFT WARE\n! FT GAIN TSYS\n");
    EXPECT_EQ(j.Msg(), NoUvxMessage());
    EXPECT_EQ(j.data.m_tlscs.count, 1);

    // Case does not matter, tabs count as blanks.
    Parsed k("gain\taa\taltaz\tdpfu=0.25\n");
    ASSERT_EQ(k.Msg(), NoUvxMessage());
    EXPECT_STREQ(k.T().m_name, "AA");
    EXPECT_EQ(k.T().m_polyType, 2);
    EXPECT_EQ(k.T().m_dpfu[1], 0.25);
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
        EXPECT_EQ(a.data.m_bif, 3);
        EXPECT_EQ(a.T().m_dpfu[0], 0.7);
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
    EXPECT_EQ(f.T().m_dpfu[0], 0.4);
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
        EXPECT_EQ(p.data.m_bif, 1);
    }

    // No station at all, TIMEOFF first: no check.
    Parsed c("GAIN AA ELEV\nTSYS TIMEOFF=0 FT=1.0 INDEX='R1' /\n");
    EXPECT_EQ(c.Msg(), NoUvxMessage());
    EXPECT_EQ(c.T().m_nCol, 1);
    EXPECT_STREQ(Parsed("GAIN AA\n").T().m_name, "");

    // What was read before the error stays: the row that failed is kept, its day in column 0.
    Parsed q("GAIN AA ELEV\nTSYS AA INDEX='R1' /\n7 1:00 5\n8 1:00 5 6\n");
    ASSERT_EQ(q.data.m_tlscs.count, 1);
    EXPECT_EQ(q.T().m_tsys.rows, 2);
    EXPECT_EQ(q.T().m_tsys.Row(0)[0], 7.0);

    // No RR or LL in the file.
    Parsed none("GAIN AA ELEV\n", 2, 0);
    EXPECT_EQ(none.Msg(), "Error> <AAntabData> no RR or LL product in the UVX file");
    EXPECT_EQ(none.data.m_tlscs.count, 0);
}

TEST(AntabParser, ValueLists) {
    struct Case {
        const char* text;
        double dpfu0, dpfu1, freqLow, freqHigh;
    } cases[] = {
        {"DPFU=0.5", 0.5, 0.5, 0, 1e38},
        {"DPFU=0.5, 0.6", 0.5, 0.5, 0, 1e38},   // a blank behind the comma ends the list
        {"DPFU = 0.2,0.3", 0.2, 0.3, 0, 1e38},  // blanks around "=" are fine
        {"FREQ=1000", 1, 1, 1e9, 1e38},
        {"FREQ=", 1, 1, 0, 1e38},                // an empty FREQ= changes nothing
        {"DPFU= / FREQ=1000", 0, 0, 1e9, 1e38},  // "/" is a word: atof gives 0, as any non-number
    };
    for (const auto& c : cases) {
        Parsed p(std::string("GAIN AA ELEV ") + c.text + "\n");
        EXPECT_EQ(p.Msg(), NoUvxMessage()) << c.text;
        const AAntabTlsc& t = p.T();
        EXPECT_EQ((Doubles{t.m_dpfu[0], t.m_dpfu[1], t.m_freqLow, t.m_freqHigh}),
                  (Doubles{c.dpfu0, c.dpfu1, c.freqLow, c.freqHigh}))
            << c.text;
    }

    // POLY over several lines, each with its own POLY=; commas and blanks both separate; a word
    // that is not a number is the coefficient 0.
    EXPECT_EQ(Poly(Parsed("GAIN AA ELEV POLY=1.5, 2.5 3.5\nPOLY=4.5 ABC /\n").T()),
              (Doubles{1.5, 2.5, 3.5, 4.5, 0.0}));

    // The kind is compared exactly.
    Parsed g("GAIN AA ELEVATION X\nGAIN BB EQUAT X\nGAIN CC ALTAZ X\n");
    EXPECT_EQ(g.T(0).m_polyType, 0);
    EXPECT_EQ(g.T(1).m_polyType, 3);
    EXPECT_EQ(g.T(2).m_polyType, 2);
    EXPECT_EQ(g.data.m_current, &g.T(2));
}

TEST(AntabParser, DataRows) {
    // Four IF bands: 'R1:8' fills IFs 1 to 4 and passes over the rest; X counts as a column. The
    // leading-blank row added nothing; the row without values and the one after "/" count.
    Parsed a(
        "GAIN AA ELEV\nTSYS AA INDEX='R1:8','X','L2:3' /\n"
        "10 10:20.5 -1.0 99 33\n   10 11:00 5 6 7\n11 1:00\n365 1:00 4\n1 1:00 4\n/\n2 1:00 9\n",
        4, 2);
    ASSERT_EQ(a.Msg(), NoUvxMessage());
    ASSERT_EQ(a.T().m_tsys.cols, 10);
    ASSERT_EQ(a.T().m_tsys.rows, 5);
    const double h = 3600 * kDay;
    Doubles r0 = a.Row(0);
    r0[1] = 0;  // the time is checked in TimeForms
    EXPECT_EQ(r0, (Doubles{10, 0, -1, -1, -1, -1, 0, 33, 33, 0}));
    EXPECT_EQ(a.Row(1), (Doubles{11, h, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(a.Row(2), (Doubles{365, h, 4, 4, 4, 4, 0, 0, 0, 0}));
    EXPECT_EQ(a.Row(3), (Doubles{1, h, 4, 4, 4, 4, 0, 0, 0, 0}));
    EXPECT_EQ(a.Row(4), (Doubles{2, h, 9, 9, 9, 9, 0, 0, 0, 0}));

    // One polarisation: the L items fall on the R positions.
    EXPECT_EQ(Parsed("GAIN AA ELEV\nTSYS AA INDEX='L1','R2' /\n1 1:00 3 4\n", 2, 1).Row(0),
              (Doubles{1, h, 3, 4}));

    // Trailing blanks add no token.
    EXPECT_EQ(Parsed("GAIN AA ELEV\nTSYS AA INDEX='R1' /\n1 1:00 3    \n").Msg(), NoUvxMessage());

    // A digit line before any GAIN is a keyword line without keywords.
    Parsed d("123 10:20 50\nGAIN AA ELEV\n");
    EXPECT_EQ(d.Msg(), NoUvxMessage());
    EXPECT_EQ(d.T().m_tsys.rows, 0);

    // A second GAIN with a seen name makes a separate telescope; rows go to the current one.
    Parsed e("GAIN AA ELEV\nTSYS AA INDEX='R1' /\n1 1:00 3\nGAIN AA ELEV\nTSYS AA INDEX='R2' /\n1 2:00 4\n");
    ASSERT_EQ(e.data.m_tlscs.count, 2);
    EXPECT_EQ(e.T(0).m_tsys.rows, 1);
    EXPECT_EQ(e.Row(0, 1), (Doubles{1, 2 * h, 0, 4, 0, 0}));

    // Empty items and other letters are columns to pass over.
    Parsed i("GAIN AA ELEV\nTSYS AA INDEX='R1',,'Y2','','L2' /\n1 1:00 5 6 7 8 9\n");
    ASSERT_EQ(i.Msg(), NoUvxMessage());
    EXPECT_EQ(Items(i.T().m_index), "-1 1 1 | 0 -1 -1 | 0 -1 -1 | 0 -1 -1 | -2 2 2");
    EXPECT_EQ(i.Row(0), (Doubles{1, h, 5, 0, 0, 9}));
}

TEST(AntabParser, StreamEnds) {
    Parsed empty("");
    EXPECT_EQ(empty.Msg(), NoUvxMessage());
    EXPECT_EQ(empty.data.m_tlscs.count, 0);

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
