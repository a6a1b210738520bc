// Tests of Init, CheckValid and Calibrate: binding to the AN table, SEFD factors and their messages.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <merovane/antab/AAntabData.h>
#include <merovane/uvx/AUVXRecords.h>

#include "AntabTestUvx.h"

namespace {

// SEFDs at 01:00 of day 1: AA R IF1 50/0.5 = 100, AA R IF2 100/0.5 = 200, AA L 40/0.2 = 200,
// BB R 60/0.3 = 200, BB L 90/0.3 = 300.
const char kTwoStations[] =
    "GAIN AA ELEV DPFU=0.5,0.2 /\nTSYS AA INDEX='R1','R2','L1:2' /\n1 00:00 50 100 40\n1 23:59 50 100 40\n/\n"
    "GAIN BB ELEV DPFU=0.3,0.3 /\nTSYS BB INDEX='R1:2','L1:2' /\n1 00:00 60 90\n1 12:00 60 90\n/\n";

// A GAIN and TSYS block with one row at 0h of day 1: one value for R and one for L, both IFs.
std::string Block(const std::string& station, const std::string& gain, const std::string& tsys,
                  const std::string& values) {
    return "GAIN " + station + " ELEV " + gain + " /\nTSYS " + station + " " + tsys +
           " INDEX='R1:2','L1:2' /\n1 0:00 " + values + "\n";
}

AUVXGroup Group(int ant1, int ant2, double time = 3600.0, int source = 1) {
    AUVXGroup g{};
    g.freqId = 1;
    g.sourceId = static_cast<std::int16_t>(source);
    g.time = time;
    g.ant1 = static_cast<std::int8_t>(ant1);
    g.ant2 = static_cast<std::int8_t>(ant2);
    return g;
}

// Stations AA (ID 1) and BB (ID 2) loaded from `antab`.
struct Loaded : Bound {
    explicit Loaded(const std::string& antab, const std::vector<int>& stokes = {-1, -2, -3, -4}, int nIF = 2)
        : Bound("AA BB", stokes, nIF) {
        loadOk = Load(antab);
    }
    // Calibrates `vis` as a record of baseline ant1-ant2 at `time` seconds from 0h of 1 January.
    bool Cal(int ant1, int ant2, AUVXVisibility& vis, double time = 3600.0, int source = 1) {
        AUVXGroup g = Group(ant1, ant2, time, source);
        return data.Calibrate(g, vis);
    }
    bool loadOk = false;
};

void Fill(AUVXVisibility& vis, float re, float im, float wt) {
    for (int i = 0; i < vis.count; ++i) vis.data[i] = AUVXComplex{re, im, wt};
}

}  // namespace

TEST(AntabCalibrate, WorkedFactorAndProducts) {
    Loaded s(kTwoStations);
    ASSERT_TRUE(s.loadOk) << s.Msg();
    EXPECT_EQ(s.data.m_nPol, 2);
    EXPECT_EQ(s.data.m_nIF, 2);

    AUVXGroup g = Group(1, 2);
    const AUVXGroup before = g;
    AUVXVisibility vis(2, 3, 4);
    Fill(vis, 2.0f, 1.0f, 4.0f);
    ASSERT_TRUE(s.data.Calibrate(g, vis)) << s.Msg();
    EXPECT_EQ(std::memcmp(&g, &before, sizeof g), 0);

    // RR of IF 1: SEFD 100 and 200, factor 141.42..., 2 + 1i to 282.84... + 141.42...i, weight 4 to 0.0002.
    EXPECT_FLOAT_EQ(vis.At(0, 0, 0).re, 282.842712f);
    EXPECT_FLOAT_EQ(vis.At(0, 0, 0).im, 141.421356f);
    EXPECT_FLOAT_EQ(vis.At(0, 0, 0).wt, 0.0002f);

    // factor[iIF][iStokes] from the hand SEFDs: RR A-R x B-R, LL A-L x B-L, RL A-R x B-L, LR A-L x B-R.
    const double f[2][4] = {{std::sqrt(100.0 * 200), std::sqrt(200.0 * 300), std::sqrt(100.0 * 300), 200.0},
                            {200.0, std::sqrt(200.0 * 300), std::sqrt(200.0 * 300), 200.0}};
    for (int iIF = 0; iIF < 2; ++iIF)
        for (int iChan = 0; iChan < 3; ++iChan)
            for (int iStokes = 0; iStokes < 4; ++iStokes) {
                const AUVXComplex& c = vis.At(iIF, iChan, iStokes);
                const double k = f[iIF][iStokes];
                EXPECT_NEAR(c.re, 2 * k, 2 * k * 1e-6) << iIF << iChan << iStokes;
                EXPECT_NEAR(c.im, k, k * 1e-6) << iIF << iChan << iStokes;
                EXPECT_NEAR(c.wt, 4 / (k * k), 4 / (k * k) * 1e-6) << iIF << iChan << iStokes;
            }

    // The same baseline the other way round swaps the roles in RL and LR.
    AUVXVisibility vis2(2, 1, 4);
    Fill(vis2, 1.0f, 0.0f, 1.0f);
    ASSERT_TRUE(s.Cal(2, 1, vis2));
    EXPECT_NEAR(vis2.At(0, 0, 2).re, 200.0, 1e-4);                   // B-R x A-L
    EXPECT_NEAR(vis2.At(0, 0, 3).re, std::sqrt(300.0 * 100), 1e-3);  // B-L x A-R

    // The autocorrelation of AA: SEFD A exactly.
    Fill(vis2, 1.0f, -3.0f, 1.0f);
    ASSERT_TRUE(s.Cal(1, 1, vis2));
    EXPECT_EQ(vis2.At(0, 0, 0).re, 100.0f);
    EXPECT_EQ(vis2.At(0, 0, 0).im, -300.0f);
    EXPECT_EQ(vis2.At(0, 0, 0).wt, 1e-4f);
    EXPECT_EQ(vis2.At(1, 0, 1).re, 200.0f);
}

TEST(AntabCalibrate, RoundingPolarisationsAndTime) {
    // SEFDs 1 and 2 give the factor sqrt(2), not a float: each component is computed in double
    // and rounded once.
    Loaded r(Block("AA", "", "", "1 1") + Block("BB", "", "", "2 2"), {-1}, 1);
    ASSERT_TRUE(r.loadOk) << r.Msg();
    const float values[] = {1.1f, 3.3f, 7.7f, 0.1f, 123.456f, 0.7f, 9.9f, 2.5f};
    AUVXVisibility v(1, 8, 1);
    for (int i = 0; i < 8; ++i) v.data[i] = AUVXComplex{values[i], -values[7 - i], values[i]};
    ASSERT_TRUE(r.Cal(1, 2, v));
    const double root2 = std::sqrt(2.0);
    bool floatPathDiffers = false;
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(v.data[i].re, static_cast<float>(static_cast<double>(values[i]) * root2)) << i;
        EXPECT_EQ(v.data[i].im, static_cast<float>(static_cast<double>(-values[7 - i]) * root2)) << i;
        EXPECT_EQ(v.data[i].wt, static_cast<float>(static_cast<double>(values[i]) / (root2 * root2))) << i;
        const float inFloat = values[i] * static_cast<float>(root2);
        if (inFloat != v.data[i].re) floatPathDiffers = true;
    }
    EXPECT_TRUE(floatPathDiffers) << "the values must tell float arithmetic from double";

    // Only LL: one polarisation, L Tsys at position iIF, the first DPFU member.
    Loaded s(
        "GAIN AA ELEV DPFU=0.5,0.25 /\nTSYS AA INDEX='L1','L2' /\n1 0:00 50 80\n"
        "GAIN BB ELEV DPFU=0.5,0.1 /\nTSYS BB INDEX='L1','L2' /\n1 0:00 200 80\n",
        {-2}, 2);
    ASSERT_TRUE(s.loadOk) << s.Msg();
    EXPECT_EQ(s.data.m_nPol, 1);
    AUVXVisibility vis(2, 1, 1);
    Fill(vis, 1, 0, 1);
    ASSERT_TRUE(s.Cal(1, 2, vis));
    EXPECT_FLOAT_EQ(vis.At(0, 0, 0).re, 200.0f);  // sqrt(100 x 400)
    EXPECT_FLOAT_EQ(vis.At(1, 0, 0).re, 160.0f);  // sqrt(160 x 160)

    // A file without IF axis is one band.
    Loaded n(kTwoStations, {-1, -2}, 0);
    ASSERT_TRUE(n.loadOk) << n.Msg();
    EXPECT_EQ(n.data.m_nIF, 1);
    AUVXVisibility v0(0, 2, 2);
    ASSERT_EQ(v0.count, 4);
    Fill(v0, 1, 0, 1);
    ASSERT_TRUE(n.Cal(1, 2, v0));
    EXPECT_NEAR(v0.data[0].re, std::sqrt(100.0 * 200), 1e-3);
    EXPECT_NEAR(v0.data[3].re, std::sqrt(200.0 * 300), 1e-3);

    // Day 2 of 2021 at 00:00 and 02:00: 100 and 300 at AA; BB constant SEFD 1. Between the rows
    // interpolated, the ends held.
    Loaded t("GAIN AA ELEV /\nTSYS AA INDEX='R1:2','L1:2' /\n2 00:00 100 100\n2 02:00 300 300\n" +
                 Block("BB", "", "", "1 1"),
             {-1}, 1);
    ASSERT_TRUE(t.loadOk) << t.Msg();
    const double cases[][2] = {{86400 + 3600, 200}, {86400 + 1800, 150}, {0, 100}, {3 * 86400, 300}};
    for (const auto& c : cases) {
        AUVXVisibility one(1, 1, 1);
        Fill(one, 1, 0, 1);
        ASSERT_TRUE(t.Cal(1, 2, one, c[0]));
        EXPECT_NEAR(one.data[0].re, std::sqrt(c[1]), 1e-5) << c[0];
    }
}

TEST(AntabCalibrate, FlagsAndNeutralFactor) {
    // BB's gain polynomial of one coefficient -1: negative SEFD, negative product, flagged.
    Loaded s(Block("AA", "", "", "10 10") + Block("BB", "POLY=-1", "", "10 10"), {-1, -2}, 1);
    ASSERT_TRUE(s.loadOk) << s.Msg();
    AUVXVisibility vis(1, 2, 2);
    Fill(vis, 3.0f, 4.0f, 2.0f);
    vis.data[1].wt = -5.0f;  // already flagged
    ASSERT_TRUE(s.Cal(1, 2, vis));
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(vis.data[i].re, 3.0f);
        EXPECT_EQ(vis.data[i].im, 4.0f);
    }
    EXPECT_EQ(vis.data[0].wt, -2.0f);
    EXPECT_EQ(vis.data[1].wt, -5.0f);
    // The autocorrelation of BB: SEFD squared is positive again.
    Fill(vis, 1, 0, 1);
    ASSERT_TRUE(s.Cal(2, 2, vis));
    EXPECT_FLOAT_EQ(vis.data[0].re, 10.0f);

    // FT 0: SEFD 0, product 0, factor 1: unchanged. An already flagged weight stays negative when
    // scaled.
    Loaded z(Block("AA", "", "FT=0", "10 10") + Block("BB", "", "", "4 4"), {-1}, 1);
    ASSERT_TRUE(z.loadOk) << z.Msg();
    AUVXVisibility v(1, 1, 1);
    Fill(v, 3.0f, 4.0f, 2.0f);
    ASSERT_TRUE(z.Cal(1, 2, v));
    EXPECT_EQ(v.data[0].re, 3.0f);
    EXPECT_EQ(v.data[0].wt, 2.0f);
    v.data[0] = AUVXComplex{1, 1, -8};
    ASSERT_TRUE(z.Cal(2, 2, v));
    EXPECT_EQ(v.data[0].re, 4.0f);
    EXPECT_EQ(v.data[0].wt, -0.5f);
}

TEST(AntabCalibrate, RecordMessages) {
    Loaded s(kTwoStations);
    ASSERT_TRUE(s.loadOk);
    AUVXVisibility vis(2, 1, 4);
    struct Case {
        int ant1, ant2, source;
        const char* message;
    } cases[] = {
        {1, 2, 5, "Error> <AAntabData> not found source ID 5"},
        {9, 7, 1, "Error> <AAntabData> not found antenna ID 9"},
        {1, 7, 1, "Error> <AAntabData> not found antenna ID 7"},
        {-3, 1, 1, "Error> <AAntabData> not found antenna ID -3"},
    };
    for (const Case& c : cases) {
        EXPECT_FALSE(s.Cal(c.ant1, c.ant2, vis, 3600, c.source));
        EXPECT_EQ(s.Msg(), c.message);
    }

    // A product the table does not know: earlier products of the first IF are corrected already,
    // the rest untouched.
    s.data.m_header.stokes[2] = -5;
    Fill(vis, 1, 1, 1);
    EXPECT_FALSE(s.Cal(1, 2, vis));
    EXPECT_EQ(s.Msg(), "Error> <AAntabData> not interpret stokes -5");
    EXPECT_NEAR(vis.At(0, 0, 0).re, std::sqrt(100.0 * 200), 1e-3);
    EXPECT_NEAR(vis.At(0, 0, 1).re, std::sqrt(200.0 * 300), 1e-3);
    EXPECT_EQ(vis.At(0, 0, 2).re, 1.0f);
    EXPECT_EQ(vis.At(0, 0, 3).re, 1.0f);
    EXPECT_EQ(vis.At(1, 0, 0).re, 1.0f);
    s.data.m_header.stokes[2] = 1;
    EXPECT_FALSE(s.Cal(1, 2, vis));
    EXPECT_EQ(s.Msg(), "Error> <AAntabData> not interpret stokes 1");
    s.data.m_header.stokes[2] = -3;

    // The next record goes on as if nothing happened.
    Fill(vis, 1, 1, 1);
    EXPECT_TRUE(s.Cal(1, 2, vis));
    EXPECT_NEAR(vis.At(1, 0, 2).re, std::sqrt(200.0 * 300), 1e-3);

    // A visibility smaller than its shape says is refused before anything changes.
    AUVXVisibility small(1, 1, 4);
    small.nIF = 2;
    Fill(small, 1, 1, 1);
    EXPECT_FALSE(s.Cal(1, 2, small));
    EXPECT_EQ(s.Msg(), "Error> <AAntabData> visibility shape larger than its data");
    EXPECT_EQ(small.data[0].re, 1.0f);

    // More products than the header has codes: the ninth counts as code 0.
    AUVXVisibility nine(1, 1, 9);
    s.data.m_header.stokes[4] = s.data.m_header.stokes[5] = s.data.m_header.stokes[6] = -1;
    s.data.m_header.stokes[7] = -2;
    Fill(nine, 1, 1, 1);
    EXPECT_FALSE(s.Cal(1, 2, nine));
    EXPECT_EQ(s.Msg(), "Error> <AAntabData> not interpret stokes 0");
}

TEST(AntabCalibrate, TelescopeAndSefdMessages) {
    // IF 2 starts at 1.516 GHz, outside BB's range: IF 1 is done, IF 2 untouched.
    Loaded f(Block("AA", "", "", "10 10") + Block("BB", "FREQ=1000,1510", "", "10 10"));
    ASSERT_TRUE(f.loadOk) << f.Msg();
    AUVXVisibility vis(2, 1, 4);
    Fill(vis, 1, 1, 1);
    EXPECT_FALSE(f.Cal(1, 2, vis));
    EXPECT_EQ(f.Msg(), "Error> <AAntabTlsc> AN=BB, freq. not in range");
    EXPECT_FLOAT_EQ(vis.At(0, 0, 3).re, 10.0f);
    EXPECT_EQ(vis.At(1, 0, 0).re, 1.0f);

    // AA's L2 column never measured.
    Loaded t("GAIN AA ELEV /\nTSYS AA INDEX='R1','R2','L1','L2' /\n1 0:00 10 10 10 0\n1 1:00 10 10 10 -1\n" +
             Block("BB", "", "", "10 10"));
    ASSERT_TRUE(t.loadOk) << t.Msg();
    EXPECT_FALSE(t.Cal(1, 2, vis));
    EXPECT_EQ(t.Msg(), "Error> <AAntabTlsc> AN=AA, TSYS for 01:00:00.00 not found.");
    EXPECT_EQ(t.data.m_tlscs[0]->m_errMsg, t.data.GetErrMsg());

    // A gain of 0 (one coefficient 0) and a gain that is not a number.
    AUVXVisibility one(1, 1, 1);
    for (const char* poly : {"0", "NAN"}) {
        Loaded s(Block("AA", std::string("POLY=") + poly, "", "10 10") + Block("BB", "", "", "10 10"), {-1},
                 1);
        ASSERT_TRUE(s.loadOk) << s.Msg();
        EXPECT_FALSE(s.Cal(2, 1, one, 3600 + 30.25));
        EXPECT_EQ(s.Msg(), " S == 0 => sefd invalid 2-1, 01:00:30.25") << poly;
    }

    // SEFD above 1e15 at B; the limit itself passes at A.
    Loaded big(Block("AA", "", "", "1E15 1E15") + Block("BB", "DPFU=0.5", "", "6E14 6E14"), {-1}, 1);
    ASSERT_TRUE(big.loadOk) << big.Msg();
    EXPECT_FALSE(big.Cal(1, 2, one, 86400 + 7200));
    EXPECT_EQ(big.Msg(), " Invalid sefd. 1-2, 1.00000E+15 6.00000E+14 1/02:00:00.00");
    Fill(one, 1, 0, 1);
    EXPECT_TRUE(big.Cal(1, 1, one));
    EXPECT_FLOAT_EQ(one.data[0].re, 1e15f);

    // Two very negative SEFDs: their product overflows.
    Loaded mul(Block("AA", "POLY=-1", "", "1E200 1E200") + Block("BB", "POLY=-1", "", "2E200 2E200"), {-1},
               1);
    ASSERT_TRUE(mul.loadOk) << mul.Msg();
    EXPECT_FALSE(mul.Cal(1, 2, one, 86400 + 7200));
    EXPECT_EQ(mul.Msg(), "Invalid value mul =INF -1.00000E+200 -2.00000E+200 1-2");
}

TEST(AntabCalibrate, InitAndCheckValidMessages) {
    AntabTestUvx noSu;
    noSu.withSU = false;
    noSu.Open();
    AAntabData a;
    EXPECT_FALSE(a.Init(noSu.file));
    EXPECT_EQ(a.GetErrMsg(), "Error> <AAntabData> SU table not found");
    EXPECT_EQ(a.m_uvx, &noSu.file);
    EXPECT_EQ(a.m_nPol, 2);

    AntabTestUvx cross;
    cross.SetProducts({-3, -4}, 2);
    cross.Open();
    AAntabData b;
    EXPECT_FALSE(b.Init(cross.file));
    EXPECT_EQ(b.GetErrMsg(), "Error> <AAntabData> no RR or LL product in the UVX file");
    EXPECT_FALSE(LoadText(b, kTwoStations));
    EXPECT_EQ(b.GetErrMsg(), "Error> <AAntabData> no RR or LL product in the UVX file");
    EXPECT_EQ(b.m_tlscs.count, 0);

    // Codes past nStokes do not count.
    AntabTestUvx rr;
    rr.SetProducts({-1}, 0);
    rr.header.stokes[1] = -2;
    rr.Open();
    AAntabData c;
    EXPECT_TRUE(c.Init(rr.file));
    const double refJD = c.m_header.refJD;  // a packed field: read it by value
    EXPECT_EQ(D(c.m_nPol, c.m_nIF, refJD), D(1, 1, 2459215.5));

    AntabTestUvx noAn;
    noAn.withAN = false;
    noAn.Open();
    AAntabData d;
    ASSERT_TRUE(d.Init(noAn.file));
    EXPECT_FALSE(LoadText(d, kTwoStations));
    EXPECT_EQ(d.GetErrMsg(), "Error> <AAntabData> not found AN-table.");
    EXPECT_EQ(d.m_tlscs[0]->m_tsys.Row(0)[0], 1.0);  // not dated

    struct Case {
        const char* stations;
        std::string antab;
        const char* message;
    } cases[] = {
        // An antenna without ANTAB data stops everything, before the DPFU of the first telescope.
        {"AA BB CC", std::string("GAIN AA ELEV DPFU=0 /\n") + kTwoStations,
         "Error> <AAntabData> non found CC in ANTAB data."},
        // INDEX covering only R in a file with RR and LL: hole at position m_nIF.
        {"AA BB", "GAIN AA ELEV /\nTSYS AA INDEX='R1:2' /\nGAIN BB ELEV /\nTSYS BB INDEX='R1:2','L1:2' /\n",
         "Error. Has hole INDEX keyword (pos=2).  Antenn = AA"},
        // A hole inside R, the INDEX2 list counting as well, ranges past m_nIF harmless.
        {"AA BB",
         "GAIN AA ELEV /\nTSYS AA INDEX2='L1:8' / INDEX='R1:8','X' /\nGAIN BB ELEV /\nTSYS BB "
         "INDEX='R2:9','L1:2' /\n",
         "Error. Has hole INDEX keyword (pos=0).  Antenn = BB"},
    };
    for (const Case& k : cases) {
        Bound bound(k.stations, {-1, -2}, 2);
        EXPECT_FALSE(bound.Load(k.antab));
        EXPECT_EQ(bound.Msg(), k.message);
    }

    // DPFU 0 also counts for a station outside the AN table; telescopes before it are bound.
    Loaded s(std::string(kTwoStations) + "GAIN ZZ ELEV DPFU=0.5,0 /\nGAIN QQ ELEV DPFU=0 /\n");
    EXPECT_FALSE(s.loadOk);
    EXPECT_EQ(s.Msg(), "Error> <AAntabData> DPFU = 0 for ZZ");
    EXPECT_EQ(s.data.m_tlscs[0]->m_tsys.Row(0)[0], 59215.0);
    EXPECT_EQ(s.data.m_tlscs[1]->m_antID, 2);
    EXPECT_EQ(s.data.m_tlscs[2]->m_antID, -1);
}

TEST(AntabCalibrate, BindingToTheAntennaTable) {
    AntabTestUvx uvx;
    uvx.stations = {{"AA", 1, 4075539.8, 931735.3, 4801629.4}, {"BB", 17, 3828750.7, 442589.2, 5064921.6}};
    uvx.leftHanded = true;
    uvx.SetProducts({-1}, 1);
    uvx.Open();
    AAntabData d;
    ASSERT_TRUE(d.Init(uvx.file));
    ASSERT_TRUE(LoadText(d,
                         "GAIN ZZ ELEV DPFU=0.1 /\nTSYS ZZ INDEX='X' /\n42 1:00 3\n"
                         "GAIN BB ELEV /\nTSYS BB INDEX='R1' /\n3 12:00 5\n"
                         "GAIN AA ELEV /\nTSYS AA INDEX='R1' /\n1 0:00 5\n"
                         "GAIN AA ELEV /\nTSYS AA INDEX='R1' /\n1 0:00 7\n"))
        << d.GetErrMsg().GetString();
    // ZZ, outside the AN table, is passed over: ID -1, its day undated. BB: ID 17, position with y
    // negated (a left-handed table), day 3 of 2021 dated to MJD 59217.
    const AAntabTlsc& zz = *d.m_tlscs[0];
    const AAntabTlsc& bb = *d.m_tlscs[1];
    EXPECT_EQ(D(zz.m_antID, zz.m_tsys.Row(0)[0], bb.m_antID, bb.m_x, bb.m_y, bb.m_z, bb.m_tsys.Row(0)[0],
                bb.m_tsys.Row(0)[1]),
              D(-1, 42, 17, 3828750.7, -442589.2, 5064921.6, 59217, 0.5));

    // A second GAIN under the same name is never used: the first with the ID serves.
    AUVXGroup g = Group(1, 17);
    AUVXVisibility vis(1, 1, 1);
    Fill(vis, 1, 0, 1);
    ASSERT_TRUE(d.Calibrate(g, vis));
    EXPECT_FLOAT_EQ(vis.data[0].re, 5.0f);

    // No telescope at all: true, whatever the AN table holds.
    AAntabData empty;
    ASSERT_TRUE(empty.Init(uvx.file));
    EXPECT_TRUE(LoadText(empty, "! nothing\n"));
}

TEST(AntabCalibrate, CopiesOwnTheirTelescopes) {
    Loaded s(kTwoStations);
    ASSERT_TRUE(s.loadOk);
    AAntabData copy(s.data);
    ASSERT_EQ(copy.m_tlscs.count, 2);
    EXPECT_NE(copy.m_tlscs[0], s.data.m_tlscs[0]);
    EXPECT_EQ(copy.m_current, copy.m_tlscs[1]);
    EXPECT_EQ(copy.m_uvx, s.data.m_uvx);
    EXPECT_EQ(copy.m_tlscs[1]->m_tsys.Row(0)[0], 59215.0);

    AAntabData assigned;
    LoadText(assigned, "GAIN QQ ELEV\n");  // something to release
    ASSERT_EQ(assigned.m_tlscs.count, 1);
    assigned = copy;
    ASSERT_EQ(assigned.m_tlscs.count, 2);
    EXPECT_EQ(assigned.m_current, assigned.m_tlscs[1]);
    assigned = assigned;
    ASSERT_EQ(assigned.m_tlscs.count, 2);

    // Each calibrates on its own.
    copy.m_tlscs[0]->m_ft = 4.0;
    AUVXGroup g = Group(1, 2);
    AUVXVisibility a(2, 1, 4), b(2, 1, 4);
    Fill(a, 1, 0, 1);
    Fill(b, 1, 0, 1);
    ASSERT_TRUE(s.data.Calibrate(g, a));
    ASSERT_TRUE(copy.Calibrate(g, b));
    EXPECT_NEAR(b.data[0].re / a.data[0].re, 2.0, 1e-6);
    // Leaving the scope deletes every telescope once (the sanitizer build checks).
}

namespace {

// Five stations with 4 bands of RR, LL, RL, LR and Tsys every ten minutes over three hours: AA with
// an elevation gain curve, BB a flat gain, CC a frequency range without the top band, DD a negative
// L gain (flags), EE a column never measured (Tsys not found).
std::string StreamAntab(std::mt19937_64& rng) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const char* const gains[5] = {"AA ELEV DPFU=0.1,0.12 POLY=0.9,0.003,-3e-5", "BB ELEV DPFU=0.2,0.25",
                                  "CC ELEV DPFU=0.15,0.15 FREQ=1400,1540 POLY=1.0,0.001",
                                  "DD ELEV DPFU=0.1,-0.1", "EE ELEV DPFU=0.3,0.3 POLY=0.95"};
    std::string text;
    for (int s = 0; s < 5; ++s) {
        text += std::string("GAIN ") + gains[s] + " /\n";
        text += std::string("TSYS ") + std::string(gains[s], 2) +
                " INDEX='R1','R2','R3','R4','L1','L2','L3','L4' /\n";
        for (int row = 0; row <= 18; ++row) {
            char line[48];
            std::snprintf(line, sizeof line, "1 %02d:%02d", row / 6, row % 6 * 10);
            text += line;
            for (int c = 0; c < 8; ++c) {
                const double u = unit(rng);
                const bool missing = u < 0.1 || (s == 4 && c == 7);
                text += missing ? " 0" : " " + std::to_string(30 + 50 * unit(rng));
            }
            text += "\n";
        }
        text += "/\n";
    }
    return text;
}

}  // namespace

// Records as correlators write them (every baseline and autocorrelation of a time stamp, in time
// order) take the kept per-station lookups; telescopes made to scan take the reporting way without
// them. Both must give the same records, results and messages, failures included, also when a
// telescope changes between two records of one time stamp.
TEST(AntabCalibrate, KeptLookupsGiveWhatTheScanGives) {
    std::mt19937_64 rng(515);
    Bound fast("AA BB CC DD EE", {-1, -2, -3, -4}, 4);
    ASSERT_TRUE(fast.Load(StreamAntab(rng))) << fast.Msg();
    AAntabData scan(fast.data);
    for (int i = 0; i < scan.m_tlscs.count; ++i) scan.m_tlscs[i]->m_forceScan = true;

    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    int records = 0, succeeded = 0, failed = 0;
    std::set<std::string> messages;
    auto compare = [&](AUVXGroup g, int nStokes) {
        AUVXVisibility a(4, 3, nStokes), b(4, 3, nStokes);
        for (int i = 0; i < a.count; ++i) {
            a.data[i] = AUVXComplex{static_cast<float>(unit(rng)), static_cast<float>(unit(rng)),
                                    static_cast<float>(1.5 + unit(rng))};
            b.data[i] = a.data[i];
        }
        const bool okA = fast.data.Calibrate(g, a);
        const bool okB = scan.Calibrate(g, b);
        ++records;
        ASSERT_EQ(okA, okB) << "record " << records;
        ASSERT_EQ(std::memcmp(a.data, b.data, sizeof(AUVXComplex) * a.count), 0) << "record " << records;
        if (!okA) {
            ASSERT_STREQ(fast.data.GetErrMsg().GetString(), scan.GetErrMsg().GetString());
            messages.insert(scan.GetErrMsg().GetString());
            ++failed;
        } else {
            ++succeeded;
        }
        for (int i = 0; i < scan.m_tlscs.count; ++i)
            ASSERT_STREQ(fast.data.m_tlscs[i]->m_errMsg.GetString(), scan.m_tlscs[i]->m_errMsg.GetString());
    };
    auto timeStamp = [&](double time, int nStokes) {
        for (int a = 1; a <= 5; ++a)
            for (int b = a; b <= 5; ++b) compare(Group(a, b, time), nStokes);
    };
    // Every 37 s, now and then exactly on a Tsys row, and a time stamp that comes again later.
    for (int k = 0; k < 60; ++k) timeStamp(k % 10 == 9 ? 600.0 * (k / 10 + 1) : 30.0 + 37.0 * k, 4);
    timeStamp(30.0, 4);
    // A fifth product has no Stokes code: every record fails after its first four products.
    timeStamp(2000.0, 5);

    // Telescopes changed between two records of one time stamp: the next record sees the change.
    auto both = [&](const std::function<void(AAntabTlsc&)>& change) {
        change(*fast.data.m_tlscs[0]);
        change(*scan.m_tlscs[0]);
        compare(Group(1, 2, 4000.0), 4);
        compare(Group(1, 1, 4000.0), 4);
    };
    timeStamp(4000.0, 4);
    both([](AAntabTlsc& t) { t.m_ft = 1.7; });
    both([](AAntabTlsc& t) { t.m_dpfu[1] = 0.3; });
    both([](AAntabTlsc& t) { t.m_poly[1] = 0.004; });
    both([](AAntabTlsc& t) {
        for (int r = 0; r < t.m_tsys.rows; ++r) t.m_tsys.Row(r)[3] *= 2.0;
        t.ResetTsysIndex();
    });
    both([](AAntabTlsc& t) { t.m_freqHigh = 1.52e9; });

    EXPECT_GT(succeeded, 300);
    EXPECT_GT(failed, 300);
    // The failures cover the frequency range, a missing Tsys and an unknown product.
    EXPECT_GE(messages.size(), 3u);
}
