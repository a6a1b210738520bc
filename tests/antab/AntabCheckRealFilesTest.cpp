// The ANTAB checker on the files written by others: each normalised file loads with the exact parser
// against an observation that holds its stations, and keeps what the original meant.
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <merovane/antab/AAntabCheck.h>
#include <merovane/antab/AAntabData.h>

#include "AntabCheckObservation.h"

namespace {

std::string ReadData(const char* file) {
    const std::string path = std::string(MEROVANE_TEST_DATA) + "/antab/" + file;
    std::ifstream in(path, std::ios::binary);
    if (!in.is_open()) ADD_FAILURE() << "cannot open " << path;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<std::string> Words(const char* text) {
    std::istringstream in(text);
    std::vector<std::string> out;
    for (std::string w; in >> w;) out.push_back(w);
    return out;
}

// Row r of a telescope as (MJD, value at `position`).
std::vector<double> RowAt(AAntabTlsc* t, int r, int position) {
    const double* row = t->m_tsys.Row(r);
    return {row[0] + row[1], row[position + 2]};
}

struct RealCase {
    const char* file;
    std::function<void(AAntabCheckOptions&)> options;
    const char*
        questions;  // codes of the questions without the options, blank-separated; the options answer them
    const char* stations;
    std::vector<int> stokes;
    int nIF, year, day;
    std::function<void(AAntabData&, const CheckObservation&, const AAntabCheckResult&)> meant;
};

TEST(AntabCheckRealFiles, EachFileNormalisesAndLoadsAsMeant) {
    const std::vector<int> all{-1, -2, -3, -4};
    const RealCase cases[] = {
        // JC gives L only, so the observation is taken as LL: both hands then share one position.
        {"eht2017_april_A.antab",
         nullptr,
         "",
         "AZ PV SM SR JC AA AP LM",
         {-2},
         2,
         2017,
         99,
         [](AAntabData& d, const CheckObservation& o, const AAntabCheckResult&) {
             AAntabTlsc* ap = Telescope(d, "AP");
             ASSERT_EQ(d.m_tlscs.count, 8);
             ASSERT_EQ(ap->m_tsys.rows, 210);
             // The two blocks of AP, TIMEOFF -120 s and +120 s, merged in time: "99 23:14:54".
             const double t = o.Mjd(99, 23 + 14 / 60.0 + 54 / 3600.0);
             EXPECT_NEAR(RowAt(ap, 0, 0)[0], t - 120 / 86400.0, 1e-9);
             EXPECT_NEAR(RowAt(ap, 1, 0)[0], t + 120 / 86400.0, 1e-9);
             EXPECT_EQ(D(RowAt(ap, 0, 0)[1], RowAt(ap, 1, 0)[1], ap->m_dpfu[1]),
                       D(154.718184, 154.718184, 0.02496));
             // JC "100 0:46:00" with TIMEOFF 1 s.
             EXPECT_NEAR(RowAt(Telescope(d, "JC"), 0, 0)[0], o.Mjd(100, 46 / 60.0 + 1 / 3600.0), 1e-9);
             EXPECT_EQ(Telescope(d, "AZ")->m_dpfu[1], 0.01681);
         }},
        {"evn_eg078g.antab",
         [](AAntabCheckOptions& o) {
             o.dropExtra = {"ALL"};
             o.keep["SV"] = 1;
         },
         "row-extra row-extra row-extra row-extra station-twice",
         "BD CM DA EF JB KN MC O8 SV T6 TA TR UR WB ZC", all, 8, 2014, 311,
         [](AAntabData& d, const CheckObservation&, const AAntabCheckResult&) {
             ASSERT_EQ(d.m_tlscs.count, 15);
             AAntabTlsc* ur = Telescope(d, "UR");
             AAntabTlsc* sv = Telescope(d, "SV");
             AAntabTlsc* cm = Telescope(d, "CM");
             ASSERT_EQ(cm->m_poly.count, 1);
             // 'R1|L1': R1 and L1 (position 8) hold one column; the first SV block is kept.
             EXPECT_EQ(D(RowAt(ur, 0, 0)[1], RowAt(ur, 0, 8)[1], sv->m_dpfu[0], sv->m_dpfu[1], cm->m_poly[0]),
                       D(RowAt(ur, 0, 0)[1], RowAt(ur, 0, 0)[1], 0.178, 0.137, 1.0));
             EXPECT_GT(RowAt(ur, 0, 8)[1], 0.0);
         }},
        {"evn_rsg12.antab",
         nullptr,
         "",
         "BD EF JB MC NT O8 SR SV TR WB ZC",
         {-1, -2},
         1,
         2019,
         310,
         [](AAntabData& d, const CheckObservation& o, const AAntabCheckResult&) {
             ASSERT_EQ(d.m_tlscs.count, 11);
             AAntabTlsc* mc = Telescope(d, "MC");
             ASSERT_EQ(mc->m_poly.count, 3);
             EXPECT_EQ(D(mc->m_polyType, mc->m_dpfu[0], mc->m_dpfu[1], mc->m_freqHigh,
                         Telescope(d, "BD")->m_dpfu[1]),
                       D(1, 0.123572, 0.1224, 1428.4e6, 0.204));
             // MC "310 10:00:01 62.2 71.7" with INDEX 'L1','R1': R (position 0) is 71.7.
             EXPECT_NEAR(RowAt(mc, 0, 0)[0], o.Mjd(310, 10 + 1 / 3600.0), 1e-9);
             EXPECT_EQ(D(RowAt(mc, 0, 0)[1], RowAt(mc, 0, 1)[1]), D(71.7, 62.2));
         }},
        {"gmva_c211a_ef.antab", nullptr, "", "EF", all, 8, 2021, 113,
         [](AAntabData&, const CheckObservation&, const AAntabCheckResult& r) {
             EXPECT_FALSE(r.changed);
             EXPECT_TRUE(r.Clean()) << FindingList(r);
         }},
        {"gmva_c212b_gb_tsysonly.antab",
         [](AAntabCheckOptions& o) {
             o.gain["GB"] = "1";
             o.index["GB"] = "'R1','R2','R3','R4'";
         },
         "no-index no-gain",
         "GB",
         {-1},
         4,
         2021,
         275,
         [](AAntabData& d, const CheckObservation& o, const AAntabCheckResult&) {
             AAntabTlsc* gb = Telescope(d, "GB");
             ASSERT_EQ(gb->m_tsys.rows, 952);
             EXPECT_NEAR(RowAt(gb, 0, 2)[0], o.Mjd(275, 19 + 36.55 / 60), 1e-9);
             EXPECT_EQ(D(gb->m_dpfu[0], RowAt(gb, 0, 2)[1], RowAt(gb, 0, 3)[1]), D(1, 89.5, 111.7));
         }},
        {"gmva_c21x_allinone.antab",
         nullptr,
         "",
         "NN BR AA EF GB GL",
         {-1},
         4,
         2021,
         113,
         [](AAntabData& d, const CheckObservation&, const AAntabCheckResult&) {
             ASSERT_EQ(d.m_tlscs.count, 6);
             EXPECT_EQ(D(Telescope(d, "NN")->m_dpfu[1], Telescope(d, "BR")->m_polyType,
                         Telescope(d, "GL")->m_dpfu[0]),
                       D(0.415, 2, 0.032));
         }},
        // 'L1|R1': the R positions take the same columns as L.
        {"gmva_mg006b_alma.antab", nullptr, "", "AA", all, 8, 2021, 115,
         [](AAntabData& d, const CheckObservation& o, const AAntabCheckResult&) {
             AAntabTlsc* aa = Telescope(d, "AA");
             ASSERT_EQ(aa->m_tsys.rows, 21346);
             EXPECT_NEAR(RowAt(aa, 0, 0)[0], o.Mjd(115, 21 + 0.0043 / 60), 1e-9);
             EXPECT_EQ(D(RowAt(aa, 0, 0)[1], RowAt(aa, 0, 8)[1], RowAt(aa, 0, 7)[1], RowAt(aa, 0, 15)[1]),
                       D(1.9592, 1.9592, 1.9565, 1.9565));
         }},
    };
    for (const RealCase& c : cases) {
        SCOPED_TRACE(c.file);
        const std::string text = ReadData(c.file);
        ASSERT_FALSE(text.empty());
        AAntabCheck check;
        AAntabCheckResult r;
        // Without the options: the questions, and nothing written.
        if (*c.questions) {
            ASSERT_TRUE(check.CheckText(text, c.file, nullptr, r));
            std::string questions;
            for (const AAntabFinding& f : r.findings)
                if (f.kind == "question") questions += (questions.empty() ? "" : " ") + f.code;
            EXPECT_EQ(questions, c.questions);
            EXPECT_TRUE(r.stopped);
            EXPECT_TRUE(r.normalised.empty());
            c.options(check.m_options);
        }
        // With them, and with an observation that holds the stations: nothing stops the calibration.
        CheckObservation obs;
        for (const std::string& s : Words(c.stations)) obs.stations.push_back(s);
        obs.stokes = c.stokes;
        obs.nIF = c.nIF;
        obs.year = c.year;
        obs.dayOfYear = c.day;
        obs.Open();
        ASSERT_TRUE(check.CheckText(text, c.file, &obs.file, r)) << check.m_errMsg.str();
        ASSERT_FALSE(r.stopped) << FindingList(r);
        EXPECT_EQ(r.Count("question"), 0);
        for (const AAntabFinding& f : r.findings)
            EXPECT_TRUE(f.code != "station-missing" && f.code != "index-hole" && f.code != "uvx-load")
                << FormatAntabFinding(c.file, f);

        AAntabData data;
        std::string msg;
        ASSERT_TRUE(LoadAgainst(obs, r.normalised, data, msg)) << msg;
        c.meant(data, obs, r);
    }
}

#ifdef MEROVANE_HAVE_UVXSIM
}  // namespace
#include "UVXSimulator.h"
namespace {

// The simulator's files load as they are: the normaliser leaves them alone, and the observation's
// records all lie within the coverage span of the Tsys rows.
TEST(AntabCheckRealFiles, SimulatorFilesComeOutUnchanged) {
    ASimConfig config;
    config.stations = {"EF", "WB", "ON"};
    config.nChan = 1;
    config.nIF = 2;
    config.duration = 900;
    config.noiseScale = 0;
    AMemFile mem;
    std::ostringstream antab;
    CString error;
    ASSERT_TRUE(SimulateToStreams(config, &mem, &antab, nullptr, nullptr, &error)) << error.GetString();
    AUVXFile uvx;
    ASSERT_TRUE(uvx.Open(&mem, false)) << uvx.m_errMsg.GetString();
    AAntabCheck check;
    AAntabCheckResult r;
    ASSERT_TRUE(check.CheckText(antab.str(), "sim.antab", &uvx, r)) << check.m_errMsg.str();
    EXPECT_FALSE(r.changed);
    EXPECT_EQ(r.normalised, antab.str());
    EXPECT_TRUE(r.Clean()) << FindingList(r);
    EXPECT_EQ(r.Count("warning"), 0) << FindingList(r);
}
#endif

}  // namespace
