// Loads the ANTAB files written by others, each against a UVX file holding its stations.
#include <cmath>
#include <fstream>
#include <memory>
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

}  // namespace

// Each file with the outcome the parser's rules give for it: the message ("" when it loads) and the
// telescopes made until then. IF bands from 86 GHz, 64 MHz apart.
TEST(AntabRealFiles, EachFileWithItsOutcome) {
    const std::vector<int> all{-1, -2, -3, -4};
    struct Case {
        const char* file;
        const char* stations;
        int nIF;
        std::vector<int> stokes;
        int year, day;
        const char* message;
        int telescopes;
    } cases[] = {
        // 8 IFs: the CM block gives 8 INDEX items and rows of 12 values (line 95).
        {"evn_eg078g.antab", "BD CM DA EF JB KN MC O8 SV T6 TA TR UR WB ZC", 8, all, 2014, 311,
         "Error> <AAntabData> invalid parse temperature, tlsc = CM", 2},
        // "GAIN MC" on a line of its own gives an empty name (the last word has no blank behind it),
        // and "TSYS MC" then has an empty word.
        {"evn_rsg12.antab",
         "BD EF JB MC NT O8 SR SV TR WB ZC",
         1,
         {-1, -2},
         2019,
         310,
         "Error eq antenna in TSYS par  ",
         4},
        // All GAIN lines first: the first TSYS block meets the last GAIN.
        {"eht2017_april_A.antab", "AZ PV SM SR JC AA AP LM", 2, all, 2017, 95,
         "Error eq antenna in TSYS par AP LM", 8},
        {"gmva_c21x_allinone.antab", "NN BR AA EF GB GL", 8, all, 2021, 110,
         "Error eq antenna in TSYS par NN GL", 6},
        // A lone TSYS block without GAIN.
        {"gmva_c212b_gb_tsysonly.antab",
         "GB",
         4,
         {-1, -2},
         2021,
         110,
         "Error> <AAntabData> TSYS before any GAIN",
         0},
        // INDEX 'L1|R1' is an L column (the text behind the number is not read), so a file with RR
        // and LL has no R Tsys: a hole at position 0. A file with LL alone loads.
        {"gmva_mg006b_alma.antab", "AA", 8, all, 2021, 115,
         "Error. Has hole INDEX keyword (pos=0).  Antenn = AA", 1},
        {"gmva_mg006b_alma.antab", "AA", 8, {-2}, 2021, 115, "", 1},
        {"gmva_c211a_ef.antab", "EF", 8, all, 2021, 113, "", 1},
    };
    std::vector<std::unique_ptr<Bound>> f;
    for (const Case& c : cases) {
        f.emplace_back(new Bound(c.stations, c.stokes, c.nIF));
        f.back()->uvx.header.refJD = JulianDate(c.year, c.day);
        f.back()->uvx.header.refFreq = 86.0e9;
        f.back()->uvx.ifStep = 64e6;
        const std::string path = std::string(MEROVANE_TEST_DATA) + "/antab/" + c.file;
        std::ifstream in(path, std::ios::binary);
        ASSERT_TRUE(in.is_open()) << "cannot open " << path;
        EXPECT_EQ(f.back()->Load(in), *c.message == '\0') << c.file;
        if (*c.message) {
            EXPECT_EQ(f.back()->Msg(), c.message) << c.file;
        }
        EXPECT_EQ(f.back()->data.m_tlscs.count, c.telescopes) << c.file;
    }
    if (HasFailure()) return;
    auto tlsc = [&](int file, int i) -> AAntabTlsc& { return *f[file]->data.m_tlscs[i]; };

    // EVN BD: FT in front of TIMEOFF is lost (1.0 anyway); FREQ has one number; POLY on its own line.
    // Its first row "311 20:59.95  53.0 ..." holds R1 53.0 and L8 60.7. Listed: frequency range,
    // third coefficient, columns, rows, R1 and L8 of the first row.
    AAntabTlsc& bd = tlsc(0, 0);
    ASSERT_EQ(bd.m_poly.count, 3);
    EXPECT_EQ(D(bd.m_freqLow, bd.m_freqHigh, bd.m_poly[2], bd.m_nCol, bd.m_tsys.rows, bd.m_tsys.Row(0)[2],
                bd.m_tsys.Row(0)[17]),
              D(1380e6, 1e38, -5.43E-5, 16, 76, 53.0, 60.7));
    // CM: POLY in front of FREQ on the GAIN line is lost. Coefficients, upper frequency, columns.
    EXPECT_EQ(D(tlsc(0, 1).m_poly.count, tlsc(0, 1).m_freqHigh, tlsc(0, 1).m_nCol), D(0, 100000e6, 8));

    // The other BD: "DPFU = 0.206, 0.204": the blank ends the list. DPFU, frequency range, the
    // polarisations of the first two INDEX items.
    AAntabTlsc& bd2 = tlsc(1, 0);
    EXPECT_EQ(D(bd2.m_dpfu[0], bd2.m_dpfu[1], bd2.m_freqLow, bd2.m_freqHigh, bd2.m_index[0].pol,
                bd2.m_index[1].pol),
              D(0.206, 0.206, 1412.4e6, 1e38, -2, -1));
    EXPECT_STREQ(tlsc(1, 3).m_name, "");

    EXPECT_EQ(tlsc(2, 3).m_dpfu[1], 0.0077);  // a single DPFU value for both
    EXPECT_EQ(tlsc(3, 1).m_polyType, 2);

    // ALMA with LL: "115 21:0.0043  1.9592 ... 1.9565": day 115 of 2021 is MJD 59329.
    AAntabTlsc& aa = tlsc(6, 0);
    EXPECT_EQ(D(aa.m_dpfu[1], aa.m_tsys.rows), D(0.029, 21346));
    double v = 0;
    ASSERT_TRUE(aa.GetTsys(59329 + (21 * 60 + 0.0043) / 1440.0, 7, v));
    EXPECT_NEAR(v, 1.9565, 1e-9);

    // Effelsberg 3 mm: loads, binds and calibrates.
    AAntabTlsc& ef = tlsc(7, 0);
    ASSERT_EQ(ef.m_poly.count, 6);
    // ID, frequency range, first and last coefficient, rows.
    EXPECT_EQ(D(ef.m_antID, ef.m_freqLow, ef.m_freqHigh, ef.m_poly[0], ef.m_poly[5], ef.m_tsys.rows),
              D(1, 84000e6, 95500e6, -2.5562e-01, -2.0261e-09, 2284));
    // Day 113 of 2021 is MJD 59327. First row "113 09:00.33 169.7 ... 195.5", second "113 09:00.67
    // ... 196.4"; the last "114 13:51.00 195.2 ... 224.2".
    const double t0 = 59327 + (9 * 60 + 0.33) / 1440.0;
    const double t1 = 59327 + (9 * 60 + 0.67) / 1440.0;
    ASSERT_TRUE(ef.GetTsys(t0, 0, v));
    EXPECT_NEAR(v, 169.7, 1e-6);
    ASSERT_TRUE(ef.GetTsys((t0 + t1) / 2, 15, v));
    EXPECT_NEAR(v, (195.5 + 196.4) / 2, 1e-6);
    ASSERT_TRUE(ef.GetTsys(59330, 15, v));
    EXPECT_NEAR(v, 224.2, 1e-9);

    // An autocorrelation at 09:00.33 of day 113 (source at the pole, elevation = station latitude).
    AAntabData& data = f[7]->data;
    data.m_sources[0].dec = 90.0;
    AUVXGroup g{};
    g.freqId = 1;
    g.sourceId = 1;
    g.time = (9 * 60 + 0.33) * 60;  // seconds from 0h of the reference day, day 113
    g.ant1 = g.ant2 = 1;
    AUVXVisibility vis(8, 1, 4);
    for (int i = 0; i < vis.count; ++i) vis.data[i] = AUVXComplex{1, 0, 1};
    ASSERT_TRUE(data.Calibrate(g, vis)) << f[7]->Msg();
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
