// Loads the ANTAB files written by others, each against a UVX file holding its stations.
#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <merovane/antab/AAntabData.h>

#include "AntabTestUvx.h"

namespace {

// JD of 0h of day `dayOfYear` of `year` (Gregorian, 1901-2099).
double JulianDate(int year, int dayOfYear) {
    const int y = year - 1900;
    return 2415020.5 + y * 365 + (y - 1) / 4 + (dayOfYear - 1);
}

struct RealFile {
    explicit RealFile(const std::vector<std::string>& stations, int nIF, std::initializer_list<int> stokes,
                      double refJD) {
        int id = 1;
        for (const std::string& s : stations)
            uvx.stations.push_back({s, id++, 4033947.2, 486990.8, 4900431.0});
        uvx.header.nIF = nIF;
        uvx.header.nStokes = static_cast<std::int16_t>(stokes.size());
        int i = 0;
        for (int s : stokes) uvx.header.stokes[i++] = static_cast<std::int16_t>(s);
        uvx.header.refJD = refJD;
        uvx.header.refFreq = 86.0e9;
        uvx.ifOffsets.clear();
        for (int k = 0; k < nIF; ++k) uvx.ifOffsets.push_back(k * 64e6);
    }

    bool Load(const std::string& name) {
        uvx.Open();
        EXPECT_TRUE(data.Init(uvx.file)) << data.GetErrMsg().GetString();
        std::ifstream in(std::string(MEROVANE_SHARED_DATA) + "/antab/" + name, std::ios::binary);
        EXPECT_TRUE(in.is_open()) << name;
        return data.Load(in);
    }

    std::string Msg() { return data.GetErrMsg().GetString(); }

    AntabTestUvx uvx;
    AAntabData data;
};

}  // namespace

// EVN, 8 IFs: the CM block gives 8 INDEX items and rows of 12 values (line 95).
TEST(AntabRealFiles, EvnEg078g) {
    RealFile f({"BD", "CM", "DA", "EF", "JB", "KN", "MC", "O8", "SV", "T6", "TA", "TR", "UR", "WB", "ZC"}, 8,
               {-1, -2, -3, -4}, JulianDate(2014, 311));
    EXPECT_FALSE(f.Load("evn_eg078g.antab"));
    EXPECT_EQ(f.Msg(), "Error> <AAntabData> invalid parse temperature, tlsc = CM");
    ASSERT_EQ(f.data.m_tlscs.count, 2);
    // BD: FT in front of TIMEOFF is lost (1.0 anyway); FREQ has one number; POLY on its own line.
    AAntabTlsc& bd = *f.data.m_tlscs[0];
    EXPECT_EQ(bd.m_freqLow, 1380e6);
    EXPECT_EQ(bd.m_freqHigh, 1e38);
    ASSERT_EQ(bd.m_poly.count, 3);
    EXPECT_EQ(bd.m_poly[2], -5.43E-5);
    EXPECT_EQ(bd.m_nCol, 16);
    EXPECT_EQ(bd.m_tsys.rows, 76);
    EXPECT_EQ(bd.m_tsys.Row(0)[2], 53.0);   // R1 of "311 20:59.95  53.0 ..."
    EXPECT_EQ(bd.m_tsys.Row(0)[17], 60.7);  // L8
    // CM: POLY in front of FREQ on the GAIN line is lost.
    AAntabTlsc& cm = *f.data.m_tlscs[1];
    EXPECT_EQ(cm.m_poly.count, 0);
    EXPECT_EQ(cm.m_freqHigh, 100000e6);
    EXPECT_EQ(cm.m_nCol, 8);
}

// One IF; "GAIN MC" on a line of its own gives an empty name (the last word has no blank behind
// it), and "TSYS MC" then has an empty word: refused.
TEST(AntabRealFiles, EvnRsg12) {
    RealFile f({"BD", "EF", "JB", "MC", "NT", "O8", "SR", "SV", "TR", "WB", "ZC"}, 1, {-1, -2},
               JulianDate(2019, 310));
    EXPECT_FALSE(f.Load("evn_rsg12.antab"));
    EXPECT_EQ(f.Msg(), "Error eq antenna in TSYS par  ");
    ASSERT_EQ(f.data.m_tlscs.count, 4);
    AAntabTlsc& bd = *f.data.m_tlscs[0];
    EXPECT_EQ(bd.m_dpfu[0], 0.206);  // "DPFU = 0.206, 0.204": the blank ends the list
    EXPECT_EQ(bd.m_dpfu[1], 0.206);
    EXPECT_EQ(bd.m_freqLow, 1412.4e6);
    EXPECT_EQ(bd.m_freqHigh, 1e38);
    EXPECT_EQ(bd.m_index[0].pol, -2);
    EXPECT_EQ(bd.m_index[1].pol, -1);
    EXPECT_STREQ(f.data.m_tlscs[3]->m_name, "");
}

// All GAIN lines first: the first TSYS block (AP) meets the last GAIN (LM).
TEST(AntabRealFiles, Eht2017AprilA) {
    RealFile f({"AZ", "PV", "SM", "SR", "JC", "AA", "AP", "LM"}, 2, {-1, -2, -3, -4}, JulianDate(2017, 95));
    EXPECT_FALSE(f.Load("eht2017_april_A.antab"));
    EXPECT_EQ(f.Msg(), "Error eq antenna in TSYS par AP LM");
    ASSERT_EQ(f.data.m_tlscs.count, 8);
    EXPECT_EQ(f.data.m_tlscs[3]->m_dpfu[1], 0.0077);  // single DPFU value for both
}

// Effelsberg 3 mm: loads, binds and calibrates.
TEST(AntabRealFiles, GmvaC211aEf) {
    RealFile f({"EF"}, 8, {-1, -2, -3, -4}, JulianDate(2021, 113));
    ASSERT_TRUE(f.Load("gmva_c211a_ef.antab")) << f.Msg();
    ASSERT_EQ(f.data.m_tlscs.count, 1);
    AAntabTlsc& ef = *f.data.m_tlscs[0];
    EXPECT_EQ(ef.m_antID, 1);
    EXPECT_EQ(ef.m_freqLow, 84000e6);
    EXPECT_EQ(ef.m_freqHigh, 95500e6);
    ASSERT_EQ(ef.m_poly.count, 6);
    EXPECT_EQ(ef.m_poly[0], -2.5562e-01);
    EXPECT_EQ(ef.m_poly[5], -2.0261e-09);
    EXPECT_EQ(ef.m_tsys.rows, 2284);
    // Day 113 of 2021 is MJD 59327. First row "113 09:00.33 169.7 ... 195.5", second "113 09:00.67
    // ... 196.4"; the last "114 13:51.00 195.2 ... 224.2".
    const double t0 = 59327 + (9 * 60 + 0.33) / 1440.0;
    const double t1 = 59327 + (9 * 60 + 0.67) / 1440.0;
    double v = 0;
    ASSERT_TRUE(ef.GetTsys(t0, 0, v));
    EXPECT_NEAR(v, 169.7, 1e-6);
    ASSERT_TRUE(ef.GetTsys((t0 + t1) / 2, 15, v));
    EXPECT_NEAR(v, (195.5 + 196.4) / 2, 1e-6);
    ASSERT_TRUE(ef.GetTsys(59330, 15, v));
    EXPECT_NEAR(v, 224.2, 1e-9);

    // An autocorrelation at 09:00.33 of day 113 (source at the pole, elevation = station latitude).
    f.data.m_sources[0].dec = 90.0;
    AUVXGroup g{};
    g.freqId = 1;
    g.sourceId = 1;
    g.time = (9 * 60 + 0.33) * 60;  // seconds from 0h of the reference day, day 113
    g.ant1 = g.ant2 = 1;
    AUVXVisibility vis(8, 1, 4);
    for (int i = 0; i < vis.count; ++i) vis.data[i] = AUVXComplex{1, 0, 1};
    ASSERT_TRUE(f.data.Calibrate(g, vis)) << f.Msg();
    // Elevation: latitude of the station, atan2(z, sqrt(x^2 + y^2)) = 50.5246... degrees.
    const double e =
        std::atan2(4900431.0, std::sqrt(4033947.2 * 4033947.2 + 486990.8 * 486990.8)) * 180 / M_PI;
    const double p[6] = {-2.5562e-01, 8.2089e-02, -1.1622e-03, -1.6508e-05, 4.08003e-07, -2.0261e-09};
    double poly = 0, power = 1;
    for (double c : p) {
        poly += c * power;
        power *= e;
    }
    const double gain = 0.14 * poly;
    EXPECT_NEAR(vis.At(0, 0, 0).re, 169.7 / gain, 169.7 / gain * 1e-6);  // RR, IF 1: SEFD A
    EXPECT_NEAR(vis.At(7, 0, 1).re, 195.5 / gain, 195.5 / gain * 1e-6);  // LL, IF 8
}

// ALMA: INDEX 'L1|R1' is an L column (the text behind the number is not read), so a file with RR
// and LL has no R Tsys: a hole at position 0. A file with LL alone loads.
TEST(AntabRealFiles, GmvaMg006bAlma) {
    RealFile f({"AA"}, 8, {-1, -2, -3, -4}, JulianDate(2021, 115));
    EXPECT_FALSE(f.Load("gmva_mg006b_alma.antab"));
    EXPECT_EQ(f.Msg(), "Error. Has hole INDEX keyword (pos=0).  Antenn = AA");

    RealFile ll({"AA"}, 8, {-2}, JulianDate(2021, 115));
    ASSERT_TRUE(ll.Load("gmva_mg006b_alma.antab")) << ll.Msg();
    AAntabTlsc& aa = *ll.data.m_tlscs[0];
    EXPECT_EQ(aa.m_dpfu[1], 0.029);
    EXPECT_EQ(aa.m_tsys.rows, 21346);
    double v = 0;
    // "115 21:0.0043  1.9592 ... 1.9565": day 115 of 2021 is MJD 59329.
    ASSERT_TRUE(aa.GetTsys(59329 + (21 * 60 + 0.0043) / 1440.0, 7, v));
    EXPECT_NEAR(v, 1.9565, 1e-9);
}

// A merge with all GAIN lines first: the TSYS line of NN meets the last GAIN (GL).
TEST(AntabRealFiles, GmvaC21xAllInOne) {
    RealFile f({"NN", "BR", "AA", "EF", "GB", "GL"}, 8, {-1, -2, -3, -4}, JulianDate(2021, 110));
    EXPECT_FALSE(f.Load("gmva_c21x_allinone.antab"));
    EXPECT_EQ(f.Msg(), "Error eq antenna in TSYS par NN GL");
    ASSERT_EQ(f.data.m_tlscs.count, 6);
    EXPECT_EQ(f.data.m_tlscs[1]->m_polyType, 2);
}

// A lone TSYS block without GAIN.
TEST(AntabRealFiles, GmvaC212bGbTsysOnly) {
    RealFile f({"GB"}, 4, {-1, -2}, JulianDate(2021, 110));
    EXPECT_FALSE(f.Load("gmva_c212b_gb_tsysonly.antab"));
    EXPECT_EQ(f.Msg(), "Error> <AAntabData> TSYS before any GAIN");
    EXPECT_EQ(f.data.m_tlscs.count, 0);
}
