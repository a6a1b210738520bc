// The ANTAB checker rule by rule: a minimal text, what it reports, the rewritten text, and what the
// exact parser then loads from it.
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <merovane/antab/AAntabCheck.h>
#include <merovane/antab/AAntabData.h>

#include "AntabCheckObservation.h"

namespace {

struct RuleCase {
    const char* name;
    std::string input;
    std::function<void(AAntabCheckOptions&)> options;
    std::string findings;    // FindingList of the result
    std::string normalised;  // empty: the normaliser must stop with a question
    std::vector<std::string> stations;
    int nIF;
    // What the parser loads from the normalised text (day 100 of 2021 is the reference day).
    std::function<void(AAntabData&, const CheckObservation&)> loaded;
};

double Tsys(AAntabData& data, const char* station, double mjd, int position) {
    AAntabTlsc* t = Telescope(data, station);
    double v = -1;
    if (t == nullptr || !t->GetTsys(mjd, position, v)) return -1;
    return v;
}

const std::string kGainAA = "GAIN AA ELEV DPFU=0.5 POLY=1.0 /\n";

std::vector<RuleCase> Cases() {
    auto none = [](AAntabCheckOptions&) {};
    return {
        {"GainLinesAllFirst",
         "GAIN AA ELEV DPFU=0.5,0.6 POLY=1.0 /\n"
         "GAIN BB ELEV DPFU=0.7 POLY=1.0 /\n"
         "TSYS AA FT=1.0 INDEX='R1','L1' /\n"
         "100 10:00.00 50 60\n"
         "/\n"
         "TSYS BB FT=1.0 INDEX='R1','L1' /\n"
         "100 10:00.00 70 80\n"
         "/\n",
         none,
         "error parser-refuses 0\nerror gain-first 3 AA\nerror gain-first 6 BB\n",
         "GAIN AA ELEV DPFU=0.5,0.6 POLY=1.0 /\n"
         "TSYS AA FT=1.0 INDEX='R1','L1' /\n"
         "100 10:00.00 50 60\n"
         "/\n"
         "GAIN BB ELEV DPFU=0.7 POLY=1.0 /\n"
         "TSYS BB FT=1.0 INDEX='R1','L1' /\n"
         "100 10:00.00 70 80\n"
         "/\n",
         {"AA", "BB"},
         1,
         [](AAntabData& d, const CheckObservation& o) {
             const double t = o.Mjd(100, 10.0);
             EXPECT_EQ(D(Telescope(d, "AA")->m_dpfu[0], Telescope(d, "AA")->m_dpfu[1],
                         Telescope(d, "BB")->m_dpfu[1], Tsys(d, "AA", t, 0), Tsys(d, "AA", t, 1),
                         Tsys(d, "BB", t, 1)),
                       D(0.5, 0.6, 0.7, 50, 60, 80));
         }},
        {"NameAtLineEndAndKeywordsOnLinesOfTheirOwn",
         "GAIN AA\n"
         "ELEV\n"
         "DPFU = 0.5, 0.6\n"
         "POLY = 1.0, 0.01\n"
         "/\n"
         "TSYS AA\n"
         "FT = 1.1\n"
         "TIMEOFF = 0.0\n"
         "INDEX = 'L1', 'R1'\n"
         "/\n"
         "100 10:00.00 50 60\n"
         "/\n",
         none,
         "error parser-refuses 0\nerror gain-name-at-end 1 AA\nloss gain-kind-own-line 2 AA\n"
         "loss blank-after-comma 3 AA\nerror tsys-name-at-end 6 AA\n",
         "GAIN AA ELEV DPFU=0.5,0.6 POLY=1.0,0.01 /\n"
         "TSYS AA TIMEOFF=0 FT=1.1 INDEX='L1','R1' /\n"
         "100 10:00.00 50 60\n"
         "/\n",
         {"AA"},
         1,
         [](AAntabData& d, const CheckObservation& o) {
             AAntabTlsc* aa = Telescope(d, "AA");
             ASSERT_TRUE(aa);
             ASSERT_EQ(aa->m_poly.count, 2);
             const double t = o.Mjd(100, 10.0);
             // FT 1.1 applies: R (position 0) is the second column, L the first.
             EXPECT_EQ(D(aa->m_polyType, aa->m_dpfu[0], aa->m_dpfu[1], aa->m_poly[1], aa->m_ft),
                       D(1, 0.5, 0.6, 0.01, 1.1));
             EXPECT_DOUBLE_EQ(Tsys(d, "AA", t, 0), 60 * 1.1);
             EXPECT_DOUBLE_EQ(Tsys(d, "AA", t, 1), 50 * 1.1);
         }},
        {"BlankAfterCommaLosesTheSecondValueOnlyWhereItDiffers",
         "GAIN AA ELEV DPFU=0.5, 0.5 FREQ=1000, 2000 POLY=1.0 /\n"
         "TSYS AA INDEX='R1','L1' /\n"
         "100 10:00.00 50 60\n"
         "/\n",
         none,
         "note blank-after-comma 1 AA\nloss blank-after-comma 1 AA\n",
         "GAIN AA ELEV DPFU=0.5,0.5 FREQ=1000,2000 POLY=1.0 /\n"
         "TSYS AA INDEX='R1','L1' /\n"
         "100 10:00.00 50 60\n"
         "/\n",
         {"AA"},
         1,
         [](AAntabData& d, const CheckObservation&) {
             EXPECT_EQ(D(Telescope(d, "AA")->m_freqLow, Telescope(d, "AA")->m_freqHigh), D(1e9, 2e9));
         }},
        {"ItemForTwoPolarisationsFillsBoth",
         kGainAA + "TSYS AA TIMEOFF=0 FT=1.0 INDEX='R1|L1','R2|L2' /\n100 10:00.00 50 60\n/\n",
         none,
         "loss index-pair 2 AA\n",
         kGainAA + "TSYS AA TIMEOFF=0 FT=1.0 INDEX2='L1','L2' / INDEX='R1','R2' /\n100 10:00.00 50 60\n/\n",
         {"AA"},
         2,
         [](AAntabData& d, const CheckObservation& o) {
             const double t = o.Mjd(100, 10.0);
             EXPECT_EQ(D(Tsys(d, "AA", t, 0), Tsys(d, "AA", t, 1), Tsys(d, "AA", t, 2), Tsys(d, "AA", t, 3)),
                       D(50, 60, 50, 60));
         }},
        {"ExtraColumnsAreAQuestion",
         kGainAA + "TSYS AA INDEX='R1','L1' /\n100 10:00.00 50 60 70 80\n100 10:01.00 51 61 71\n/\n",
         none,
         "error parser-refuses 0\nquestion row-extra 3 AA\n",
         "",
         {},
         1,
         nullptr},
        {"ExtraColumnsDroppedOnRequest",
         kGainAA + "TSYS AA INDEX='R1','L1' /\n100 10:00.00 50 60 70 80\n100 10:01.00 51 61 71\n/\n",
         [](AAntabCheckOptions& o) { o.dropExtra = {"aa"}; },
         "error parser-refuses 0\nloss row-extra-dropped 3 AA\n",
         kGainAA + "TSYS AA INDEX='R1','L1' /\n100 10:00.00 50 60\n100 10:01.00 51 61\n/\n",
         {"AA"},
         1,
         [](AAntabData& d, const CheckObservation& o) {
             EXPECT_EQ(Tsys(d, "AA", o.Mjd(100, 10.0 + 1 / 60.0), 1), 61);
         }},
        {"TsysWithoutGainOrIndexAsksTwoQuestions",
         "TSYS GB FT = 1.00 /\n275 19:36.55 0.0 0.0 89.5 111.7",
         none,
         "error parser-refuses 0\nquestion no-index 1 GB\nquestion no-gain 1 GB\n",
         "",
         {},
         1,
         nullptr},
        {"TsysWithoutGainOrIndexAnswered",
         "TSYS GB FT = 1.00 /\n100 19:36.55 0.0 0.0 89.5 111.7",
         [](AAntabCheckOptions& o) {
             o.gain["GB"] = "2";
             o.index["GB"] = "'R1','R2','L1','L2'";
         },
         "error parser-refuses 0\nerror no-index 1 GB\nerror no-gain 1 GB\n",
         // The missing final line end stays missing.
         "GAIN GB ELEV DPFU=2 POLY=1.0 /\nTSYS GB FT=1.00 INDEX='R1','R2','L1','L2' /\n100 19:36.55 0.0 0.0 "
         "89.5 111.7",
         {"GB"},
         2,
         [](AAntabData& d, const CheckObservation& o) {
             const double t = o.Mjd(100, 19 + 36.55 / 60);
             EXPECT_EQ(D(Telescope(d, "GB")->m_dpfu[1], Tsys(d, "GB", t, 2), Tsys(d, "GB", t, 3),
                         Tsys(d, "GB", t, 0)),
                       D(2, 89.5, 111.7, -1));
         }},
        {"UnknownWordInPolyRemoved",
         "GAIN AA ELEV DPFU=0.5 POLY=1.0 opacity_corrected /\nTSYS AA INDEX='R1','L1' /\n100 10:00.00 50 "
         "60\n/\n",
         none,
         "loss unknown-word 1 AA\n",
         "GAIN AA ELEV DPFU=0.5 POLY=1.0 /\nTSYS AA INDEX='R1','L1' /\n100 10:00.00 50 60\n/\n",
         {"AA"},
         1,
         [](AAntabData& d, const CheckObservation&) {
             ASSERT_EQ(Telescope(d, "AA")->m_poly.count, 1);
             EXPECT_EQ(Telescope(d, "AA")->m_poly[0], 1.0);
         }},
        {"StrayWordPassedOver",
         "GAIN AA ELEV DPFU=0.5 POLY=1.0 / measured\nTSYS AA INDEX='R1','L1' /\n100 10:00.00 50 60\n/\n",
         none,
         "note unknown-word 1 AA\n",
         "GAIN AA ELEV DPFU=0.5 POLY=1.0 / measured\nTSYS AA INDEX='R1','L1' /\n100 10:00.00 50 60\n/\n",
         {"AA"},
         1,
         [](AAntabData& d, const CheckObservation&) {
             ASSERT_EQ(Telescope(d, "AA")->m_poly.count, 1);
             EXPECT_EQ(Telescope(d, "AA")->m_dpfu[1], 0.5);
         }},
        {"TimeOffAppliedToTheRows",
         kGainAA +
             "TSYS AA TIMEOFF=-120 FT=1.0 INDEX='R1','L1' /\n100 00:01.00 50 60\n100 10:00.50 55 65\n/\n",
         none,
         "loss timeoff 2 AA\n",
         kGainAA + "TSYS AA TIMEOFF=0 FT=1.0 INDEX='R1','L1' /\n99 23:59.00 50 60\n100 09:58.50 55 65\n/\n",
         {"AA"},
         1,
         [](AAntabData& d, const CheckObservation& o) {
             AAntabTlsc* aa = Telescope(d, "AA");
             ASSERT_EQ(aa->m_tsys.rows, 2);
             EXPECT_EQ(aa->m_timeOff, 0.0);
             EXPECT_NEAR(aa->m_tsys.Row(0)[0] + aa->m_tsys.Row(0)[1], o.Mjd(99, 23 + 59 / 60.0), 1e-9);
             EXPECT_NEAR(aa->m_tsys.Row(1)[0] + aa->m_tsys.Row(1)[1], o.Mjd(100, 10.0 - 1.5 / 60), 1e-9);
         }},
        {"ClockFormsWrittenAsDecimalMinutes",
         kGainAA + "TSYS AA INDEX='R1','L1' /\n100 10:20:30 50 60\n100 10:60.00 51 61\n100 11:16:38 53 63\n"
                   "100 23:60.00 52 62\n/\n",
         none,
         "note time-hms 3 AA\nloss time-overflow 4 AA\n",
         kGainAA +
             "TSYS AA INDEX='R1','L1' /\n100 10:20.50 50 60\n100 11:00.00 51 61\n100 11:16.633333 53 63\n"
             "101 00:00.00 52 62\n/\n",
         {"AA"},
         1,
         [](AAntabData& d, const CheckObservation& o) {
             EXPECT_EQ(Tsys(d, "AA", o.Mjd(100, 10 + 20.5 / 60), 0), 50);
             EXPECT_EQ(Tsys(d, "AA", o.Mjd(100, 11), 0), 51);
             EXPECT_NEAR(Tsys(d, "AA", o.Mjd(100, 11 + 16 / 60.0 + 38 / 3600.0), 0), 53, 1e-6);
             EXPECT_EQ(Tsys(d, "AA", o.Mjd(101, 0), 1), 62);
         }},
        {"IndentedRowTakenIn",
         kGainAA + "TSYS AA INDEX='R1','L1' /\n  100 10:00.00 50 60\n/\n",
         none,
         "loss row-indented 3 AA\n",
         kGainAA + "TSYS AA INDEX='R1','L1' /\n100 10:00.00 50 60\n/\n",
         {"AA"},
         1,
         [](AAntabData& d, const CheckObservation&) { EXPECT_EQ(Telescope(d, "AA")->m_tsys.rows, 1); }},
        {"CrLineEnds",
         "GAIN AA ELEV DPFU=0.5 POLY=1.0 /\r\nTSYS AA INDEX='R1','L1' /\r\n100 10:00.00 50 60\r\n/\r\n",
         none,
         "note cr-line-end 1\n",
         kGainAA + "TSYS AA INDEX='R1','L1' /\n100 10:00.00 50 60\n/\n",
         {"AA"},
         1,
         [](AAntabData& d, const CheckObservation& o) { EXPECT_EQ(Tsys(d, "AA", o.Mjd(100, 10), 1), 60); }},
        {"FactorInFrontOfTimeOffIsLost",
         kGainAA + "TSYS AA FT=1.2 TIMEOFF=0 INDEX='R1','L1' /\n100 10:00.00 50 60\n/\n",
         none,
         "loss keyword-order 2 AA\n",
         kGainAA + "TSYS AA TIMEOFF=0 FT=1.2 INDEX='R1','L1' /\n100 10:00.00 50 60\n/\n",
         {"AA"},
         1,
         [](AAntabData& d, const CheckObservation& o) {
             EXPECT_DOUBLE_EQ(Tsys(d, "AA", o.Mjd(100, 10), 0), 60);
         }},
        {"SameStationTwiceWithOneGain",
         kGainAA + "TSYS AA INDEX='R1','L1' /\n100 11:00.00 52 62\n/\n" +
             "GAIN BB ELEV DPFU=0.7 POLY=1.0 /\nTSYS BB INDEX='R1','L1' /\n100 10:00.00 70 80\n/\n" +
             kGainAA + "TSYS AA INDEX='R1','L1' /\n100 10:00.00 50 60\n/\n",
         none,
         "loss station-twice 9 AA\nloss tsys-twice 10 AA\n",
         kGainAA + "TSYS AA FT=1.0 INDEX='R1','L1' /\n100 10:00.00 50 60\n100 11:00.00 52 62\n/\n" +
             "GAIN BB ELEV DPFU=0.7 POLY=1.0 /\nTSYS BB INDEX='R1','L1' /\n100 10:00.00 70 80\n/\n",
         {"AA", "BB"},
         1,
         [](AAntabData& d, const CheckObservation& o) {
             ASSERT_EQ(d.m_tlscs.count, 2);
             EXPECT_EQ(Tsys(d, "AA", o.Mjd(100, 10.5), 0), 51);
         }},
        {"SameStationTwiceInTimeOrderKeepsItsNotes",
         kGainAA + "TSYS AA INDEX='R1','L1' /\n! scan 1\n100 10:00.00 50 60\n/\n" +
             "GAIN BB ELEV DPFU=0.7 POLY=1.0 /\nTSYS BB INDEX='R1','L1' /\n100 10:00.00 70 80\n/\n" +
             kGainAA + "TSYS AA INDEX='R1','L1' /\n! scan 2\n100 11:00.00 52 62\n/\n",
         none,
         "loss station-twice 10 AA\nloss tsys-twice 11 AA\n",
         kGainAA +
             "TSYS AA FT=1.0 INDEX='R1','L1' /\n! scan 1\n100 10:00.00 50 60\n/\n! scan 2\n100 11:00.00 52 "
             "62\n/\n" +
             "GAIN BB ELEV DPFU=0.7 POLY=1.0 /\nTSYS BB INDEX='R1','L1' /\n100 10:00.00 70 80\n/\n",
         {"AA", "BB"},
         1,
         [](AAntabData& d, const CheckObservation& o) {
             ASSERT_EQ(d.m_tlscs.count, 2);
             EXPECT_EQ(D(Telescope(d, "AA")->m_tsys.rows, Tsys(d, "AA", o.Mjd(100, 10.5), 1)), D(2, 61));
         }},
        {"SameStationTwiceWithDifferentGainsIsAQuestion",
         kGainAA + "TSYS AA INDEX='R1','L1' /\n100 11:00.00 52 62\n/\n" +
             "GAIN AA ELEV DPFU=0.9 POLY=1.0 /\nTSYS AA INDEX='R1','L1' /\n100 10:00.00 50 60\n/\n",
         none,
         "question station-twice 5 AA\n",
         "",
         {},
         1,
         nullptr},
        {"SameStationTwiceKeepTheSecond",
         kGainAA + "TSYS AA INDEX='R1','L1' /\n100 11:00.00 52 62\n/\n" +
             "GAIN BB ELEV DPFU=0.7 POLY=1.0 /\nTSYS BB INDEX='R1','L1' /\n100 10:00.00 70 80\n/\n" +
             "GAIN AA ELEV DPFU=0.9 POLY=1.0 /\nTSYS AA INDEX='R1','L1' /\n100 10:00.00 50 60\n/\n",
         [](AAntabCheckOptions& o) { o.keep["AA"] = 2; },
         "loss station-twice 9 AA\n",
         "GAIN BB ELEV DPFU=0.7 POLY=1.0 /\nTSYS BB INDEX='R1','L1' /\n100 10:00.00 70 80\n/\n"
         "GAIN AA ELEV DPFU=0.9 POLY=1.0 /\nTSYS AA INDEX='R1','L1' /\n100 10:00.00 50 60\n/\n",
         {"AA", "BB"},
         1,
         [](AAntabData& d, const CheckObservation& o) {
             ASSERT_EQ(d.m_tlscs.count, 2);
             EXPECT_EQ(D(Telescope(d, "AA")->m_dpfu[0], Telescope(d, "AA")->m_tsys.rows,
                         Tsys(d, "AA", o.Mjd(100, 11), 0)),
                       D(0.9, 1, 50));
         }},
        {"TwoTsysBlocksSideBySideKept",
         kGainAA + "TSYS AA INDEX='R1','L1' /\n100 10:00.00 50 60\n/\nTSYS AA INDEX='R1','L1' /\n100 "
                   "11:00.00 52 62\n/\n",
         none,
         "note tsys-twice 5 AA\n",
         kGainAA + "TSYS AA INDEX='R1','L1' /\n100 10:00.00 50 60\n/\nTSYS AA INDEX='R1','L1' /\n100 "
                   "11:00.00 52 62\n/\n",
         {"AA"},
         1,
         [](AAntabData& d, const CheckObservation& o) { EXPECT_EQ(Tsys(d, "AA", o.Mjd(100, 10.5), 0), 51); }},
        {"TwoTsysBlocksOutOfOrderMerged",
         kGainAA + "TSYS AA INDEX='R1','L1' /\n100 11:00.00 52 62\n/\nTSYS AA INDEX='R1','L1' /\n100 "
                   "10:00.00 50 60\n/\n",
         none,
         "loss tsys-twice 5 AA\n",
         kGainAA + "TSYS AA FT=1.0 INDEX='R1','L1' /\n100 10:00.00 50 60\n100 11:00.00 52 62\n/\n",
         {"AA"},
         1,
         [](AAntabData& d, const CheckObservation& o) { EXPECT_EQ(Tsys(d, "AA", o.Mjd(100, 10.5), 0), 51); }},
        {"GainWithoutTsysWarned",
         kGainAA + "GAIN BB ELEV DPFU=0.7 POLY=1.0 /\nTSYS BB INDEX='R1','L1' /\n100 10:00.00 70 80\n/\n",
         none,
         "warning no-tsys 1 AA\n",
         kGainAA + "GAIN BB ELEV DPFU=0.7 POLY=1.0 /\nTSYS BB INDEX='R1','L1' /\n100 10:00.00 70 80\n/\n",
         {"BB"},
         1,
         [](AAntabData& d, const CheckObservation& o) { EXPECT_EQ(Tsys(d, "BB", o.Mjd(100, 10), 1), 80); }},
    };
}

void PrintTo(const RuleCase& c, std::ostream* os) {
    *os << c.name;
}

class AntabCheckRule : public ::testing::TestWithParam<RuleCase> {};

TEST_P(AntabCheckRule, ReportsRewritesAndLoadsAsMeant) {
    const RuleCase& c = GetParam();
    AAntabCheck check;
    if (c.options) c.options(check.m_options);
    AAntabCheckResult r;
    ASSERT_TRUE(check.CheckText(c.input, "t.antab", nullptr, r));
    EXPECT_EQ(FindingList(r), c.findings);
    for (const AAntabFinding& f : r.findings) {
        EXPECT_FALSE(f.text.empty()) << f.code;
        EXPECT_FALSE(f.todo.empty()) << f.code;
    }
    EXPECT_EQ(r.stopped, c.normalised.empty());
    EXPECT_EQ(r.normalised, c.normalised);
    if (c.normalised.empty()) return;
    EXPECT_EQ(r.changed, c.normalised != c.input);
    EXPECT_EQ(r.changes.empty(), c.normalised == c.input);
    // Every change names its reason, and a changed line says what it was.
    for (const AAntabChange& ch : r.changes) {
        EXPECT_FALSE(ch.why.empty());
        EXPECT_TRUE(ch.line > 0 || ch.before.empty());
    }

    CheckObservation obs;
    obs.stations = c.stations;
    obs.nIF = c.nIF;
    obs.Open();
    AAntabData data;
    std::string msg;
    ASSERT_TRUE(LoadAgainst(obs, r.normalised, data, msg)) << msg;
    c.loaded(data, obs);

    // A normalised text is normalised already.
    AAntabCheckResult again;
    ASSERT_TRUE(check.CheckText(r.normalised, "t.antab", nullptr, again));
    EXPECT_FALSE(again.changed) << again.normalised;
    EXPECT_EQ(again.Count("error") + again.Count("loss") + again.Count("question"), 0) << FindingList(again);
}

INSTANTIATE_TEST_SUITE_P(Rules, AntabCheckRule, ::testing::ValuesIn(Cases()),
                         [](const ::testing::TestParamInfo<RuleCase>& info) {
                             return std::string(info.param.name);
                         });

// The original texts of some rules, loaded as they stand, lose what the rewrite keeps: the test
// above would pass for a rewrite that changed nothing if these did not differ.
TEST(AntabCheckRules, OriginalsLoseWhatTheRewriteKeeps) {
    CheckObservation obs;
    obs.stations = {"AA"};
    obs.nIF = 2;
    obs.Open();
    {
        AAntabData data;
        std::string msg;
        EXPECT_FALSE(
            LoadAgainst(obs, kGainAA + "TSYS AA INDEX='R1|L1','R2|L2' /\n100 10:00.00 50 60\n", data, msg));
        EXPECT_EQ(msg, "Error. Has hole INDEX keyword (pos=2).  Antenn = AA");
    }
    CheckObservation one;
    one.stations = {"AA"};
    one.Open();
    AAntabData data;
    std::string msg;
    ASSERT_TRUE(LoadAgainst(
        one,
        "GAIN AA ELEV DPFU=0.5, 0.6 POLY=1.0 opacity_corrected /\n"
        "TSYS AA FT=1.2 TIMEOFF=-120 INDEX='R1','L1' /\n  100 10:00.00 50 60\n100 10:01.00 51 61\n",
        data, msg))
        << msg;
    AAntabTlsc* aa = Telescope(data, "AA");
    EXPECT_EQ(D(aa->m_dpfu[1], aa->m_poly.count, aa->m_ft, aa->m_tsys.rows, aa->m_timeOff),
              D(0.5, 2, 1.0, 1, -120));
}

TEST(AntabCheckRules, ExplanationsNameTheStationAndTheCure) {
    AAntabCheck check;
    AAntabCheckResult r;
    ASSERT_TRUE(
        check.CheckText("TSYS GB FT = 1.00 /\n275 19:36.55 0.0 0.0 89.5 111.7\n", "gb.antab", nullptr, r));
    const AAntabFinding* f = FindCode(r, "no-gain");
    ASSERT_TRUE(f);
    EXPECT_EQ(f->todo, "give the gain with --gain GB=DPFU (--gain GB=1 when the Tsys values are SEFDs)");
    EXPECT_EQ(FormatAntabFinding("gb.antab", *f)
                  .rfind("gb.antab:1: question [no-gain] GB: the TSYS block of GB", 0),
              0u);
    const AAntabFinding* p = FindCode(r, "parser-refuses");
    ASSERT_TRUE(p);
    EXPECT_EQ(p->text, "the parser stops with: Error> <AAntabData> TSYS before any GAIN");
}

// Damaged texts give findings, never a crash or a rewrite that guesses.
TEST(AntabCheckRules, DamagedTextsStopWithAReason) {
    struct Case {
        std::string text;
        const char* findings;
        bool stopped;
    } cases[] = {
        {"", "", false},
        {kGainAA +
             "TSYS AA INDEX='R1','L1' /\nnan nan 1 2\n1e300 10:00.00 1 2\n100 99999999999999999999:00 1 2\n"
             "100 10:00.00 1 2\n100 10:00.00 abc 2\n100\n",
         "error parser-refuses 0\nerror row-bad-time 4 AA\nwarning row-word 7 AA\nerror row-no-time 8 AA\n",
         true},
        {kGainAA + "TSYS AA TIMEOFF=1e300 INDEX='R1','L1' /\n100 10:00.00 1 2\n",
         "loss parser-reads-otherwise 2 AA\n", false},
        // The long line continues the GAIN block, which the parser then cannot read.
        {kGainAA + std::string(1100, 'x') + "\n",
         "error parser-refuses 0\nerror parser-reads-otherwise 1 AA\nwarning no-tsys 1 AA\nerror "
         "line-too-long 2\n",
         true},
        {"GAIN\nTSYS\n/\n",
         "error parser-refuses 0\nerror gain-no-name 1\nerror parser-reads-otherwise 2\nquestion no-index 2\n"
         "error tsys-no-station 2\n",
         true},
        // The parser takes a nameless station, which no antenna can match.
        {"GAIN\n/\n", "error gain-no-name 1\n", false},
        // A row before any TSYS line, which the normaliser cannot place: nothing is written.
        {"GAIN AA ELEV /\n100 10:00.00 50\n",
         "error parser-refuses 0\nerror normalised-refused 0\nwarning no-tsys 1 AA\n", true},
    };
    for (const Case& c : cases) {
        AAntabCheck check;
        AAntabCheckResult r;
        ASSERT_TRUE(check.CheckText(c.text, "t.antab", nullptr, r));
        EXPECT_EQ(FindingList(r, false), c.findings) << c.text.substr(0, 200);
        EXPECT_EQ(r.stopped, c.stopped) << c.text.substr(0, 200);
        if (!c.stopped) {
            AAntabData data;
            data.m_nIF = 1;
            std::istringstream in(r.normalised);
            data.Load(in);
            EXPECT_EQ(data.GetErrMsg().str(), "Error> <AAntabData> uvx == NULL. ") << r.normalised;
        }
    }
}

TEST(AntabCheckRules, UnreadableFileNamesIt) {
    AAntabCheck check;
    AAntabCheckResult r;
    const std::string path = std::string(MEROVANE_TEST_TMP) + "/antab-check-missing.antab";
    EXPECT_FALSE(check.CheckFile(path.c_str(), nullptr, r));
    EXPECT_EQ(check.m_errMsg.str(),
              "Cannot read ANTAB file " + path + ": it does not exist or cannot be opened");
}

}  // namespace
