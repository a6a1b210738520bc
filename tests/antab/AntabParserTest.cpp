// Tests of the ANTAB parser: line handling, keyword order, every parse message and the open cases.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <merovane/antab/AAntabData.h>

#include "AntabTestUvx.h"

namespace {

// Loads without a UVX file: a parse that goes through ends in the binding's "uvx == NULL" message.
struct Parsed {
    explicit Parsed(const std::string& text, int nIF = 2, int nPol = 2) {
        data.m_nIF = nIF;
        data.m_nPol = nPol;
        ok = LoadText(data, text);
    }
    AAntabTlsc& T(int i = 0) { return *data.m_tlscs[i]; }
    std::string Msg() { return data.GetErrMsg().GetString(); }
    AAntabData data;
    bool ok = false;
};

const double kDay = 1.0 / 86400.0;

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
    EXPECT_EQ(t.m_dpfu[0], 0.5);
    EXPECT_EQ(t.m_dpfu[1], 0.6);
    EXPECT_EQ(t.m_freqLow, 1e9);
    EXPECT_EQ(t.m_freqHigh, 2e9);
    ASSERT_EQ(t.m_poly.count, 2);
    EXPECT_EQ(t.m_poly[0], 1.0);
    EXPECT_EQ(t.m_poly[1], -0.01);
    EXPECT_EQ(t.m_timeOff, 0.0);
    EXPECT_EQ(t.m_ft, 1.1);
    ASSERT_EQ(t.m_index.count, 3);
    EXPECT_EQ(t.m_index2.count, 0);
    EXPECT_EQ(t.m_nCol, 3);
    EXPECT_EQ(t.m_index[0].pol, -1);
    EXPECT_EQ(t.m_index[0].first, 1);
    EXPECT_EQ(t.m_index[0].last, 2);
    EXPECT_EQ(t.m_index[1].pol, -2);
    EXPECT_EQ(t.m_index[1].first, 1);
    EXPECT_EQ(t.m_index[1].last, 1);
    EXPECT_EQ(t.m_index[2].pol, -2);
    EXPECT_EQ(t.m_index[2].first, 2);
    EXPECT_EQ(t.m_index[2].last, 2);
    EXPECT_EQ(t.m_nPol, 2);
    EXPECT_EQ(t.m_nIF, 2);
    ASSERT_EQ(t.m_tsys.cols, 6);
    ASSERT_EQ(t.m_tsys.rows, 1);
    const double* row = t.m_tsys.Row(0);
    EXPECT_EQ(row[0], 123.0);
    EXPECT_DOUBLE_EQ(row[1], (10 * 3600 + 20.5 * 60) * kDay);
    EXPECT_EQ(row[2], 50.0);
    EXPECT_EQ(row[3], 50.0);
    EXPECT_EQ(row[4], 60.0);
    EXPECT_EQ(row[5], 70.0);
}

TEST(AntabParser, TimeForms) {
    // hh:mm.mm, hh:mm:ss and a day fraction past midnight's next day all give the same fraction rule.
    Parsed p(
        "GAIN AA ELEV\n"
        "TSYS AA INDEX='R1:2','L1:2' /\n"
        "1 10:20.5 1 2\n"
        "1 10:20:30 1 2\n"
        "1 0:00 1 2\n"
        "1 23:59.5 1 2\n");
    ASSERT_EQ(p.Msg(), NoUvxMessage());
    AAntabTlsc& t = p.T();
    ASSERT_EQ(t.m_tsys.rows, 4);
    EXPECT_DOUBLE_EQ(t.m_tsys.Row(0)[1], 37230 * kDay);
    EXPECT_DOUBLE_EQ(t.m_tsys.Row(1)[1], 37230 * kDay);
    EXPECT_EQ(t.m_tsys.Row(2)[1], 0.0);
    EXPECT_DOUBLE_EQ(t.m_tsys.Row(3)[1], (23 * 3600 + 59.5 * 60) * kDay);
}

TEST(AntabParser, KeywordOrderOnOneLine) {
    // FT in front of TIMEOFF is thrown away with the text in front of TIMEOFF.
    Parsed a("GAIN AA ELEV\nTSYS AA FT=1.2 TIMEOFF=3 INDEX='R1' /\n");
    ASSERT_EQ(a.Msg(), NoUvxMessage());
    EXPECT_EQ(a.T().m_ft, 1.0);
    EXPECT_EQ(a.T().m_timeOff, 3.0);
    EXPECT_EQ(a.T().m_nCol, 1);

    // POLY in front of DPFU is lost; DPFU after it still counts.
    Parsed b("GAIN AA ELEV POLY=1,2 / DPFU=0.5\n");
    ASSERT_EQ(b.Msg(), NoUvxMessage());
    EXPECT_EQ(b.T().m_poly.count, 0);
    EXPECT_EQ(b.T().m_dpfu[0], 0.5);
    EXPECT_EQ(b.T().m_dpfu[1], 0.5);

    // POLY in front of FREQ is lost, and so is INDEX in front of INDEX2.
    Parsed c("GAIN AA ELEV POLY=2 / FREQ=100\nTSYS AA INDEX='R1' / INDEX2='L1','L2' /\n");
    ASSERT_EQ(c.Msg(), NoUvxMessage());
    EXPECT_EQ(c.T().m_freqLow, 1e8);
    EXPECT_EQ(c.T().m_poly.count, 0);
    EXPECT_EQ(c.T().m_index.count, 0);
    EXPECT_EQ(c.T().m_index2.count, 2);
    EXPECT_EQ(c.T().m_nCol, 2);

    // INDEX2 then INDEX on one line: the column count is that of INDEX; a row fills both lists.
    Parsed d(
        "GAIN AA ELEV\nTSYS AA INDEX2='L1','L2','X' / INDEX='R1','R2' /\n"
        "5 1:00 11 22\n");
    ASSERT_EQ(d.Msg(), NoUvxMessage());
    EXPECT_EQ(d.T().m_nCol, 2);
    const double* row = d.T().m_tsys.Row(0);
    EXPECT_EQ(row[2], 11.0);
    EXPECT_EQ(row[3], 22.0);
    EXPECT_EQ(row[4], 11.0);
    EXPECT_EQ(row[5], 22.0);

    // A later INDEX appends behind the earlier entries and sets the count to its own; rows read the
    // lists from their start.
    Parsed e(
        "GAIN AA ELEV\nTSYS AA INDEX='R1','R2','L1','L2' /\nINDEX='L2' /\n"
        "5 1:00 7\n");
    ASSERT_EQ(e.Msg(), NoUvxMessage());
    EXPECT_EQ(e.T().m_index.count, 5);
    EXPECT_EQ(e.T().m_nCol, 1);
    EXPECT_EQ(e.T().m_tsys.Row(0)[2], 7.0);
    EXPECT_EQ(e.T().m_tsys.Row(0)[5], 0.0);

    // BIF= and EIF= in front of GAIN on the same line; values truncated towards zero.
    Parsed f("BIF=2.9 EIF=-3.7 GAIN AA ALTAZ\n");
    ASSERT_EQ(f.Msg(), NoUvxMessage());
    EXPECT_EQ(f.data.m_bif, 2);
    EXPECT_EQ(f.data.m_eif, -3);
    EXPECT_EQ(f.T().m_polyType, 0);  // the kind is the last word: no blank behind it
}

TEST(AntabParser, SubstringMatches) {
    // LEFT holds FT; what stands between the keyword and "=" is skipped.
    Parsed a("GAIN AA ELEV\nTSYS AA TIMEOFF=0 LEFT=2.5 INDEX='R1' /\n");
    ASSERT_EQ(a.Msg(), NoUvxMessage());
    EXPECT_EQ(a.T().m_ft, 2.5);

    // AGAIN holds GAIN.
    Parsed b("AGAIN BB EQUAT DPFU=0.3\n");
    ASSERT_EQ(b.Msg(), NoUvxMessage());
    ASSERT_EQ(b.data.m_tlscs.count, 1);
    EXPECT_STREQ(b.T().m_name, "BB");
    EXPECT_EQ(b.T().m_polyType, 3);

    // SOFT on a keyword line without "=" stops the load with the FT message; the same word behind
    // "!" is a comment.
    Parsed c("GAIN AA ELEV\nSOFT WARE\n");
    EXPECT_FALSE(c.ok);
    EXPECT_EQ(c.Msg(), "Error> <AAntabData> error parse FT. ");
    Parsed d("GAIN AA ELEV ! SOFT WARE\n! FT GAIN TSYS\n");
    EXPECT_EQ(d.Msg(), NoUvxMessage());
    EXPECT_EQ(d.data.m_tlscs.count, 1);

    // Case does not matter, tabs count as blanks.
    Parsed e("gain\taa\taltaz\tdpfu=0.25\n");
    ASSERT_EQ(e.Msg(), NoUvxMessage());
    EXPECT_STREQ(e.T().m_name, "AA");
    EXPECT_EQ(e.T().m_polyType, 2);
    EXPECT_EQ(e.T().m_dpfu[1], 0.25);
}

TEST(AntabParser, LineLength) {
    const std::string head = "GAIN AA ELEV\n";
    // 1023 characters: read. The DPFU behind the padding proves the whole line was seen.
    std::string line1023 = "BIF=3" + std::string(1023 - 5 - 9, ' ') + "DPFU=0.7";
    line1023 += ' ';
    ASSERT_EQ(line1023.size(), 1023u);
    Parsed a(head + line1023 + "\n");
    EXPECT_EQ(a.Msg(), NoUvxMessage());
    EXPECT_EQ(a.data.m_bif, 3);
    EXPECT_EQ(a.T().m_dpfu[0], 0.7);

    // The same as the last line without a line end.
    Parsed b(head + line1023);
    EXPECT_EQ(b.Msg(), NoUvxMessage());
    EXPECT_EQ(b.T().m_dpfu[0], 0.7);

    // 1024 characters stop the load, with or without a line end, and wherever the line stands.
    const std::string line1024 = line1023 + "X";
    Parsed c(head + line1024 + "\n");
    EXPECT_FALSE(c.ok);
    EXPECT_EQ(c.Msg(), "Error> <AAntabData> error read file.");
    Parsed d(head + line1024);
    EXPECT_EQ(d.Msg(), "Error> <AAntabData> error read file.");
    Parsed e(line1024 + "\n" + head);
    EXPECT_EQ(e.Msg(), "Error> <AAntabData> error read file.");
    EXPECT_EQ(e.data.m_tlscs.count, 0);

    // CRLF line ends pass, the CR counting as a character of the line.
    Parsed f("!" + std::string(1021, 'c') + "\r\nGAIN AA ELEV DPFU=0.4\r\n");
    EXPECT_EQ(f.Msg(), NoUvxMessage());
    EXPECT_EQ(f.T().m_dpfu[0], 0.4);
    Parsed g("!" + std::string(1022, 'c') + "\r\nGAIN AA ELEV DPFU=0.4\r\n");
    EXPECT_EQ(g.Msg(), "Error> <AAntabData> error read file.");
}

TEST(AntabParser, TsysStationCheck) {
    Parsed a("GAIN AA ELEV\nTSYS BB FT=1 INDEX='R1' /\n");
    EXPECT_FALSE(a.ok);
    EXPECT_EQ(a.Msg(), "Error eq antenna in TSYS par BB AA");

    // Nothing behind the name: the word is empty and never equals.
    Parsed b("GAIN AA ELEV\nTSYS AA\n");
    EXPECT_EQ(b.Msg(), "Error eq antenna in TSYS par  AA");

    // No station at all, TIMEOFF first: no check.
    Parsed c("GAIN AA ELEV\nTSYS TIMEOFF=0 FT=1.0 INDEX='R1' /\n");
    EXPECT_EQ(c.Msg(), NoUvxMessage());
    EXPECT_EQ(c.T().m_nCol, 1);

    // No station, FT first: FT=1.0 is taken as the name.
    Parsed d("GAIN AA ELEV\nTSYS FT=1.0 INDEX='R1' /\n");
    EXPECT_EQ(d.Msg(), "Error eq antenna in TSYS par FT=1.0 AA");

    // All GAIN lines first: the TSYS block of the first station meets the last GAIN.
    Parsed e("GAIN AA ELEV\nGAIN BB ELEV\nTSYS AA FT=1 INDEX='R1' /\n");
    EXPECT_EQ(e.Msg(), "Error eq antenna in TSYS par AA BB");

    // An empty station name from "GAIN AA" cannot be matched either.
    Parsed f("GAIN AA\nTSYS  FT=1 INDEX='R1' /\n");
    EXPECT_STREQ(f.T().m_name, "");
    EXPECT_EQ(f.Msg(), "Error eq antenna in TSYS par FT=1 ");
}

TEST(AntabParser, EveryParseMessage) {
    struct Case {
        const char* text;
        const char* message;
    };
    const std::string longLine(1100, 'A');
    const std::string tooLong = "GAIN AA ELEV\n" + longLine + "\n";
    const Case cases[] = {
        {tooLong.c_str(), "Error> <AAntabData> error read file."},
        {"GAIN AA ELEV\n123 10:20 50\n", "Error> <AAntabData> invalid parse temperature. ncol < 3"},
        {"GAIN AA ELEV\nTSYS AA INDEX='R1' /\n123 10:2x 50\n",
         "Error> <AAntabData> Time convert error 10:2X"},
        {"GAIN AA ELEV\nTSYS AA INDEX='R1' /\n123 10:20 50 60\n",
         "Error> <AAntabData> invalid parse temperature, tlsc = AA"},
        {"GAIN AA ELEV DPFU 0.5\n", "Error> <AAntabData> error parse DPFU. "},
        {"GAIN AA ELEV DPFU=1,2,3\n", "Error> <AAntabData> error parse DPFU ( > 1). "},
        {"GAIN AA ELEV FREQ 1400\n", "Error> <AAntabData> error parse FREQ. "},
        {"GAIN AA ELEV FREQ=1,2,3\n", "Error> <AAntabData> invalid  FREQ range"},
        {"GAIN AA ELEV POLY 1 /\n", "Error> <AAntabData> error parse POLY. "},
        {"GAIN AA ELEV\nTSYS XX INDEX='R1' /\n", "Error eq antenna in TSYS par XX AA"},
        {"GAIN AA ELEV\nTSYS AA TIMEOFF 0\n", "Error> <AAntabData> error parse TIMEOFF. "},
        {"GAIN AA ELEV\nTSYS AA TIMEOFF=0 FT 1\n", "Error> <AAntabData> error parse FT. "},
        {"GAIN AA ELEV\nTSYS AA INDEX2 'R1'\n", "Error> <AAntabData> error parse INDEX2. "},
        {"GAIN AA ELEV\nTSYS AA INDEX 'R1'\n", "Error> <AAntabData> error parse INDEX. "},
    };
    for (const Case& c : cases) {
        Parsed p(c.text);
        EXPECT_FALSE(p.ok) << c.text;
        EXPECT_EQ(p.Msg(), c.message) << c.text;
    }

    // What was read before the error stays: the row that failed is kept, its day in column 0.
    Parsed q("GAIN AA ELEV\nTSYS AA INDEX='R1' /\n7 1:00 5\n8 1:00 5 6\n");
    ASSERT_EQ(q.data.m_tlscs.count, 1);
    EXPECT_EQ(q.T().m_tsys.rows, 2);
    EXPECT_EQ(q.T().m_tsys.Row(0)[0], 7.0);
}

TEST(AntabParser, ValueLists) {
    Parsed a("GAIN AA ELEV DPFU=0.5\n");
    EXPECT_EQ(a.T().m_dpfu[0], 0.5);
    EXPECT_EQ(a.T().m_dpfu[1], 0.5);

    // A blank behind the comma ends the list: the second number stays in the rest.
    Parsed b("GAIN AA ELEV DPFU=0.5, 0.6\n");
    EXPECT_EQ(b.T().m_dpfu[0], 0.5);
    EXPECT_EQ(b.T().m_dpfu[1], 0.5);

    // A blank between DPFU and "=" and behind "=" is fine.
    Parsed c("GAIN AA ELEV DPFU = 0.2,0.3\n");
    EXPECT_EQ(c.T().m_dpfu[0], 0.2);
    EXPECT_EQ(c.T().m_dpfu[1], 0.3);

    Parsed d("GAIN AA ELEV FREQ=1000\n");
    EXPECT_EQ(d.T().m_freqLow, 1e9);
    EXPECT_EQ(d.T().m_freqHigh, 1e38);

    // POLY over several lines, each with its own POLY=; commas and blanks both separate; a word
    // that is not a number is the coefficient 0.
    Parsed e("GAIN AA ELEV POLY=1.5, 2.5 3.5\nPOLY=4.5 ABC /\n");
    ASSERT_EQ(e.T().m_poly.count, 5);
    EXPECT_EQ(e.T().m_poly[0], 1.5);
    EXPECT_EQ(e.T().m_poly[1], 2.5);
    EXPECT_EQ(e.T().m_poly[2], 3.5);
    EXPECT_EQ(e.T().m_poly[3], 4.5);
    EXPECT_EQ(e.T().m_poly[4], 0.0);

    // A bare number line behind GAIN but before INDEX stops the load.
    Parsed f("GAIN AA ELEV POLY=1.0\n-0.5 /\n2.0 /\n");
    EXPECT_EQ(f.Msg(), "Error> <AAntabData> invalid parse temperature. ncol < 3");

    // The kind is compared exactly.
    Parsed g("GAIN AA ELEVATION X\nGAIN BB EQUAT X\nGAIN CC ALTAZ X\n");
    EXPECT_EQ(g.T(0).m_polyType, 0);
    EXPECT_EQ(g.T(1).m_polyType, 3);
    EXPECT_EQ(g.T(2).m_polyType, 2);
    EXPECT_EQ(g.data.m_current, &g.T(2));
}

TEST(AntabParser, DataRows) {
    // Four IF bands: 'R1:8' fills IFs 1 to 4 and passes over the rest; X counts as a column.
    Parsed a(
        "GAIN AA ELEV\nTSYS AA INDEX='R1:8','X','L2:3' /\n"
        "10 10:20.5 -1.0 99 33\n"
        "   10 11:00 5 6 7\n"
        "11 1:00\n"
        "365 1:00 4\n"
        "1 1:00 4\n"
        "/\n"
        "2 1:00 9\n",
        4, 2);
    ASSERT_EQ(a.Msg(), NoUvxMessage());
    AAntabTlsc& t = a.T();
    ASSERT_EQ(t.m_tsys.cols, 10);
    // The leading-blank row added nothing; the row without values and the one after "/" count.
    ASSERT_EQ(t.m_tsys.rows, 5);
    const double* r0 = t.m_tsys.Row(0);
    for (int c = 2; c < 6; ++c) EXPECT_EQ(r0[c], -1.0) << c;
    EXPECT_EQ(r0[6], 0.0);
    EXPECT_EQ(r0[7], 33.0);
    EXPECT_EQ(r0[8], 33.0);
    EXPECT_EQ(r0[9], 0.0);
    for (int c = 2; c < 10; ++c) EXPECT_EQ(t.m_tsys.Row(1)[c], 0.0);
    EXPECT_EQ(t.m_tsys.Row(1)[0], 11.0);
    EXPECT_EQ(t.m_tsys.Row(2)[0], 365.0);
    EXPECT_EQ(t.m_tsys.Row(3)[0], 1.0);
    EXPECT_EQ(t.m_tsys.Row(4)[0], 2.0);
    EXPECT_EQ(t.m_tsys.Row(4)[2], 9.0);

    // One polarisation: the L items fall on the R positions.
    Parsed b("GAIN AA ELEV\nTSYS AA INDEX='L1','R2' /\n1 1:00 3 4\n", 2, 1);
    ASSERT_EQ(b.T().m_tsys.cols, 4);
    EXPECT_EQ(b.T().m_tsys.Row(0)[2], 3.0);
    EXPECT_EQ(b.T().m_tsys.Row(0)[3], 4.0);

    // Trailing blanks add no token.
    Parsed c("GAIN AA ELEV\nTSYS AA INDEX='R1' /\n1 1:00 3    \n");
    EXPECT_EQ(c.Msg(), NoUvxMessage());

    // A digit line before any GAIN is a keyword line without keywords.
    Parsed d("123 10:20 50\nGAIN AA ELEV\n");
    EXPECT_EQ(d.Msg(), NoUvxMessage());
    EXPECT_EQ(d.T().m_tsys.rows, 0);

    // A second GAIN with a seen name makes a separate telescope; rows go to the current one.
    Parsed e("GAIN AA ELEV\nTSYS AA INDEX='R1' /\n1 1:00 3\nGAIN AA ELEV\nTSYS AA INDEX='R2' /\n1 2:00 4\n");
    ASSERT_EQ(e.data.m_tlscs.count, 2);
    EXPECT_EQ(e.T(0).m_tsys.rows, 1);
    EXPECT_EQ(e.T(1).m_tsys.rows, 1);
    EXPECT_EQ(e.T(1).m_tsys.Row(0)[3], 4.0);
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

TEST(AntabParser, OpenCases) {
    // Keywords that need a telescope, before any GAIN.
    const char* before[] = {"DPFU", "FREQ", "POLY", "TSYS", "TIMEOFF", "FT", "INDEX2", "INDEX"};
    for (const char* k : before) {
        Parsed p(std::string("BIF=1 ") + k + "=1\nGAIN AA ELEV\n");
        EXPECT_EQ(p.Msg(), std::string("Error> <AAntabData> ") + k + " before any GAIN") << k;
        EXPECT_EQ(p.data.m_bif, 1);
    }

    // DPFU= with nothing behind it.
    Parsed d("GAIN AA ELEV DPFU=\n");
    EXPECT_EQ(d.Msg(), "Error> <AAntabData> error parse DPFU. ");
    Parsed d2("GAIN AA ELEV DPFU= / FREQ=1000\n");
    EXPECT_EQ(d2.T().m_dpfu[0], 0.0);  // "/" is a word: atof gives 0, as any non-number does

    // An empty FREQ= changes nothing.
    Parsed f("GAIN AA ELEV FREQ=\n");
    EXPECT_EQ(f.Msg(), NoUvxMessage());
    EXPECT_EQ(f.T().m_freqLow, 0.0);
    EXPECT_EQ(f.T().m_freqHigh, 1e38);

    // A row of a single token.
    Parsed r("GAIN AA ELEV\nTSYS AA INDEX='R1' /\n123\n");
    EXPECT_EQ(r.Msg(), "Error> <AAntabData> Time convert error ");

    // Empty items and other letters are columns to pass over.
    Parsed i("GAIN AA ELEV\nTSYS AA INDEX='R1',,'Y2','','L2' /\n1 1:00 5 6 7 8 9\n");
    ASSERT_EQ(i.Msg(), NoUvxMessage());
    AAntabTlsc& t = i.T();
    ASSERT_EQ(t.m_nCol, 5);
    for (int e = 1; e < 4; ++e) {
        EXPECT_EQ(t.m_index[e].pol, 0);
        EXPECT_EQ(t.m_index[e].first, -1);
        EXPECT_EQ(t.m_index[e].last, -1);
    }
    const double* row = t.m_tsys.Row(0);
    EXPECT_EQ(row[2], 5.0);
    EXPECT_EQ(row[3], 0.0);
    EXPECT_EQ(row[4], 0.0);
    EXPECT_EQ(row[5], 9.0);

    // No RR or LL in the file.
    AAntabData none;
    none.m_nPol = 0;
    EXPECT_FALSE(LoadText(none, "GAIN AA ELEV\n"));
    EXPECT_EQ(none.GetErrMsg(), "Error> <AAntabData> no RR or LL product in the UVX file");
    EXPECT_EQ(none.m_tlscs.count, 0);
}
