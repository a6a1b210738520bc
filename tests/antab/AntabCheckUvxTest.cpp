// The ANTAB checker against an observation: stations, INDEX against the IF bands and hands, and
// Tsys coverage of the record times.
#include <string>

#include <gtest/gtest.h>

#include <merovane/antab/AAntabCheck.h>

#include "AntabCheckObservation.h"

namespace {

// AA measured at 10:00 and 10:10 of day 100; CC is not in the observation; BB has no block.
const char kText[] =
    "GAIN AA ELEV DPFU=0.5 POLY=1.0 /\n"
    "TSYS AA INDEX='R1:4','L1:4' /\n"
    "100 10:00.00 50 60\n"
    "100 10:10.00 51 61\n"
    "/\n"
    "GAIN CC ELEV DPFU=0.5 POLY=1.0 /\n"
    "TSYS CC INDEX='R1','L1' /\n"
    "100 10:00.00 50 60\n"
    "/\n";

// Records of AA at 10:00, 10:20, 11:00 and 12:00, of BB at 10:00.
CheckObservation& Observation(CheckObservation& obs, int nIF, std::vector<int> stokes) {
    obs.stations = {"AA", "BB"};
    obs.nIF = nIF;
    obs.stokes = stokes;
    obs.records = {{36000, 1}, {36000, 2}, {37200, 1}, {39600, 1}, {43200, 1}};
    obs.Open();
    return obs;
}

TEST(AntabCheckUvx, StationsIndexAndCoverage) {
    struct Case {
        const char* name;
        double coverage;
        int nIF;
        std::vector<int> stokes;
        const char* findings;  // without the notes
        const char* coverageText;
    } cases[] = {
        // 11:00 and 12:00 lie 50 and 110 min from the last row.
        {"Default",
         30,
         2,
         {-1, -2},
         "error station-missing 0 BB\nwarning tsys-coverage 0 AA\nerror uvx-load 0\n",
         "2 record(s) of AA between MJD 59314 11:00:00 and MJD 59314 12:00:00 lie more than 30 min from any "
         "Tsys "
         "row; the calibration holds the nearest value for them without a word"},
        // 10:20 lies 10 min from 10:10.
        {"FiveMinutes",
         5,
         2,
         {-1, -2},
         "error station-missing 0 BB\nwarning tsys-coverage 0 AA\nerror uvx-load 0\n",
         "3 record(s) of AA between MJD 59314 10:20:00 and MJD 59314 12:00:00 lie more than 5 min from any "
         "Tsys "
         "row; the calibration holds the nearest value for them without a word"},
        {"TwoHours", 120, 2, {-1, -2}, "error station-missing 0 BB\nerror uvx-load 0\n", nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CheckObservation obs;
        Observation(obs, c.nIF, c.stokes);
        AAntabCheck check;
        check.m_options.coverageMinutes = c.coverage;
        AAntabCheckResult r;
        ASSERT_TRUE(check.CheckText(kText, "t.antab", &obs.file, r)) << check.m_errMsg.str();
        EXPECT_EQ(FindingList(r, false), c.findings);
        const AAntabFinding* cov = FindCode(r, "tsys-coverage");
        if (c.coverageText) {
            ASSERT_TRUE(cov);
            EXPECT_EQ(cov->text, c.coverageText);
        }
        const AAntabFinding* missing = FindCode(r, "station-missing");
        ASSERT_TRUE(missing);
        EXPECT_EQ(
            missing->text,
            "antenna BB of the observation's AN table has no block in the ANTAB text; the calibration stops "
            "(\"non found BB in ANTAB data.\")");
        const AAntabFinding* other = FindCode(r, "station-not-observed");
        ASSERT_TRUE(other);
        EXPECT_EQ(other->station, "CC");
        // The text itself is clean: only the observation has problems.
        EXPECT_FALSE(r.changed);
    }
}

// INDEX against the observation's IF bands and hands.
TEST(AntabCheckUvx, IndexHolesAndBandsBeyond) {
    const char text[] =
        "GAIN AA ELEV DPFU=0.5 POLY=1.0 /\nTSYS AA INDEX='R1:4' /\n100 10:00.00 50\n/\n"
        "GAIN BB ELEV DPFU=0.5 POLY=1.0 /\nTSYS BB INDEX='R1','L1','R2','L3' /\n100 10:00.00 50 60 70 "
        "80\n/\n";
    CheckObservation obs;
    Observation(obs, 2, {-1, -2, -3, -4});
    AAntabCheck check;
    check.m_options.coverageMinutes = 180;
    AAntabCheckResult r;
    ASSERT_TRUE(check.CheckText(text, "t.antab", &obs.file, r)) << check.m_errMsg.str();
    EXPECT_EQ(
        FindingList(r),
        "error uvx-load 0\nnote index-beyond-if 2 AA\nerror index-hole 2 AA\nnote index-beyond-if 6 BB\n"
        "error index-hole 6 BB\n");
    const AAntabFinding* hole = FindCode(r, "index-hole");
    EXPECT_EQ(hole->text,
              "the INDEX of AA gives no Tsys for L1, L2 of the observation (2 IF, 2 polarisation(s)); the "
              "calibration stops (\"Has hole INDEX keyword\")");
    // BB misses L2 only: 'L3' lies beyond the two bands.
    EXPECT_EQ(r.findings[4].station, "BB");
    EXPECT_NE(r.findings[4].text.find("gives no Tsys for L2 of the observation"), std::string::npos)
        << r.findings[4].text;
    EXPECT_EQ(FindCode(r, "uvx-load")->text,
              "the text does not load against this observation: Error. Has hole INDEX keyword (pos=2).  "
              "Antenn = AA");

    // With RR alone the same text loads.
    CheckObservation rr;
    Observation(rr, 2, {-1});
    ASSERT_TRUE(check.CheckText(text, "t.antab", &rr.file, r)) << check.m_errMsg.str();
    EXPECT_EQ(FindingList(r, false), "");
}

}  // namespace

namespace {

// The merged file of six stations holds AA from days 115-116 and GB from day 275: an observation
// on day 114 finds them by the coverage of its records, while the other four are measured then.
TEST(AntabCheckUvx, StationsFromOtherSessionsFoundByCoverage) {
    CheckObservation obs;
    obs.stations = {"NN", "BR", "AA", "EF", "GB", "GL"};
    obs.stokes = {-1};
    obs.nIF = 4;
    obs.year = 2021;
    obs.dayOfYear = 113;
    for (int ant = 1; ant <= 6; ++ant) obs.records.push_back({86400 + 2 * 3600 + 600, ant});  // day 114 02:10
    obs.Open();
    AAntabCheck check;
    AAntabCheckResult r;
    ASSERT_TRUE(check.CheckFile((std::string(MEROVANE_TEST_DATA) + "/antab/gmva_c21x_allinone.antab").c_str(),
                                &obs.file, r))
        << check.m_errMsg.str();
    std::string stations;
    for (const AAntabFinding& f : r.findings)
        if (f.code == "tsys-coverage") stations += f.station + " ";
    EXPECT_EQ(stations, "AA GB ");
    EXPECT_EQ(r.Count("error"), 7) << FindingList(r);  // the parser's refusal and six GAIN lines given first
    EXPECT_FALSE(r.stopped);
}

}  // namespace
