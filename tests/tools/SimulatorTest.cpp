// Tests of the simulator: a small observation's shape, tables and records against its truth file and
// independent computations, a closed loop through the amplitude calibration, noise, flags and seed,
// the horizon, the switches, and the configurations it refuses.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>

#include <merovane/antab/AAntabData.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXFqTbl.h>
#include <merovane/uvx/AUVXSkanList.h>
#include <merovane/uvx/AUVXSources.h>

#include "SimTestSupport.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

// Unit vector towards a source in the earth-fixed frame (X to Greenwich, Z to the pole), by the
// textbook sidereal time in degrees, written independently of the simulator's step-by-step route.
std::array<double, 3> SourceDirection(double raDeg, double decDeg, double mjd) {
    const double gmst = std::fmod(280.46061837 + 360.98564736629 * (mjd + 2400000.5 - 2451545.0), 360.0);
    const double h = (gmst - raDeg) * kPi / 180.0, d = decDeg * kPi / 180.0;
    return {std::cos(d) * std::cos(h), -std::cos(d) * std::sin(h), std::sin(d)};
}

double Dot(const std::array<double, 3>& a, double x, double y, double z) {
    return a[0] * x + a[1] * y + a[2] * z;
}

double Cell(const AUVXTable& t, int row, const char* column) {
    return t.GetDouble(row, t.ColumnIndex(column));
}

}  // namespace

TEST(Simulator, SmallObservationMatchesTheTruth) {
    ASimRun run;
    Simulated(SmallConfig(), "", run);
    if (HasFatalFailure()) return;
    AUVXFile& f = *run.file;
    const ASimTruth& t = run.truth;
    const AUVXHeader h(f);
    EXPECT_EQ(+h.nIF, 2);
    EXPECT_EQ(+h.nChan, 8);
    ASSERT_EQ(+h.nStokes, 4);
    for (int p = 0; p < 4; ++p) EXPECT_EQ(+h.stokes[p], -1 - p);
    // Day 100 of 2024 is 9 April 2024, MJD 60409.
    EXPECT_EQ(+h.refJD, 2460409.5);
    EXPECT_STREQ(AUVXHeader::Text(h.dateObs, 12).GetString(), "2024-04-09");
    EXPECT_EQ(+h.chanWidth, 2e6);
    EXPECT_EQ(+h.refFreq, 4.99e9);
    EXPECT_EQ(+h.intTime, 10.0f);
    EXPECT_EQ(t.Weight(), 20.0);  // 2 MHz x 10 s in MHz s

    // Scans start every 150 s within 600 s: four of twelve integrations, six baselines each.
    ASSERT_EQ(f.nGroups, 4 * 12 * 6);
    const int pairs[6][2] = {{1, 1}, {1, 2}, {1, 3}, {2, 2}, {2, 3}, {3, 3}};
    double reMin = 1e30, reMax = -1e30;
    for (int r = 0; r < f.nGroups; ++r) {
        const AUVXGroup& g = run.records[r].group;
        const std::vector<AUVXComplex>& data = run.records[r].data;
        const int scan = r / 72, pair = r % 6;
        ASSERT_EQ(+g.time, 72000.0 + scan * 150.0 + (r / 6 % 12 + 0.5) * 10.0) << "record " << r;
        ASSERT_EQ(+g.ant1, pairs[pair][0]);
        ASSERT_EQ(+g.ant2, pairs[pair][1]);
        ASSERT_EQ(+g.sourceId, 1 + scan % 2);
        ASSERT_EQ(+g.freqId, 1);
        for (int iIF = 0; iIF < 2; ++iIF)
            for (int ch = 0; ch < 8; ++ch)
                for (int p = 0; p < 4; ++p) {
                    const AUVXComplex& e = data[Element(t, iIF, ch, p)];
                    const std::complex<double> m = t.RawModel(g, iIF, ch, p);
                    ASSERT_NE(m, std::complex<double>(0.0));
                    ASSERT_EQ(e.re, static_cast<float>(m.real())) << r << " " << iIF << " " << ch << " " << p;
                    ASSERT_EQ(e.im, static_cast<float>(m.imag()));
                    ASSERT_EQ(e.wt, 20.0f);
                    reMin = std::min(reMin, static_cast<double>(e.re));
                    reMax = std::max(reMax, static_cast<double>(e.re));
                }
        if (g.ant1 == g.ant2) {
            EXPECT_EQ(+g.u, 0.0f);
            EXPECT_EQ(+g.w, 0.0f);
            // A parallel hand's autocorrelation is real, and its mean over the channels is the
            // digitiser level m, since the bandpass carries a mean |B|^2 of 1.
            for (int iIF = 0; iIF < 2; ++iIF)
                for (int p = 0; p < 2; ++p) {
                    double sum = 0;
                    for (int ch = 0; ch < 8; ++ch) {
                        const AUVXComplex& e = data[Element(t, iIF, ch, p)];
                        EXPECT_EQ(e.im, 0.0f);
                        EXPECT_GT(e.re, 0.0f);
                        sum += e.re;
                    }
                    EXPECT_NEAR(sum / 8, t.Level(g.ant1, iIF, p), 1e-6);
                }
        } else {
            // u, v, w is the baseline from ant1 to ant2 seen from the source: its length is the
            // stations' distance, and w its component towards the source (the two routes to the
            // sidereal time differ by an arcsecond or two).
            const ASimStationTruth *s1 = t.Station(g.ant1), *s2 = t.Station(g.ant2);
            const double bx = s2->x - s1->x, by = s2->y - s1->y, bz = s2->z - s1->z;
            const double len = std::sqrt(bx * bx + by * by + bz * bz);
            const double uvw =
                std::sqrt(double(g.u) * g.u + double(g.v) * g.v + double(g.w) * g.w) * 299792458.0;
            EXPECT_NEAR(uvw / len, 1.0, 1e-6);
            const ASimSourceTruth& src = *t.Source(g.sourceId);
            EXPECT_NEAR(g.w * 299792458.0, Dot(SourceDirection(src.ra, src.dec, t.Mjd(g.time)), bx, by, bz),
                        1e-4 * len);
        }
    }
    // The header's statistics span the values written.
    EXPECT_EQ(+h.reMin, reMin);
    EXPECT_EQ(+h.reMax, reMax);

    std::unique_ptr<AUVXTable> an(f.GetTable("AN")), su(f.GetTable("SU")), sl(f.GetTable("SL")),
        ai(f.GetTable("AI"));
    ASSERT_TRUE(an && su && sl && ai);
    AUVXAntenns ants(*an);
    ASSERT_EQ(ants.count, 3);
    const char* codes[3] = {"EF", "WB", "ON"};
    for (int i = 0; i < 3; ++i) {
        EXPECT_STREQ(ants.data[i].Name().GetString(), codes[i]);
        EXPECT_EQ(ants.data[i].id, i + 1);
        EXPECT_EQ(ants.data[i].x, ASimCatalogue::Station(codes[i])->x);
        EXPECT_EQ(ants.data[i].z, ASimCatalogue::Station(codes[i])->z);
    }
    EXPECT_TRUE(ants.rightHanded);
    // Effelsberg lies at 6.88 degrees east, 50.52 degrees north (geocentric 50.33).
    EXPECT_NEAR(std::atan2(ants.data[0].y, ants.data[0].x) * 180 / kPi, 6.884, 0.002);
    EXPECT_NEAR(std::atan2(ants.data[0].z, std::hypot(ants.data[0].x, ants.data[0].y)) * 180 / kPi, 50.33,
                0.02);

    AUVXSources srcs;
    ASSERT_TRUE(srcs.Init(*su));
    ASSERT_EQ(srcs.count, 2);
    EXPECT_STREQ(srcs.data[0].Name().GetString(), "3C84");
    EXPECT_STREQ(srcs.data[1].Name().GetString(), "4C39.25");
    // 3C84 at 03h19m48.1601s +41d30m42.104s.
    EXPECT_NEAR(srcs.data[0].ra, 49.950667, 1e-6);
    EXPECT_NEAR(srcs.data[0].dec, 41.511696, 1e-6);

    AUVXFqTbl fq;
    ASSERT_TRUE(fq.Init(f));
    ASSERT_EQ(fq.GetFreqSelNum(1), 0);
    EXPECT_EQ(fq.GetStartIFFq(0, 0), 4.99e9);
    EXPECT_EQ(fq.GetStartIFFq(1, 0), 4.99e9 + 16e6);
    EXPECT_EQ(fq.rows[0].chWidth[1], 2e6);
    EXPECT_EQ(fq.rows[0].sideband[0], 1);

    AUVXSkanList scans;
    ASSERT_TRUE(scans.Create(*sl));
    EXPECT_EQ(scans.refDay, 60409);
    ASSERT_EQ(scans.count, 4);
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(scans.data[k].start, 72000.0 + 150.0 * k);
        EXPECT_EQ(scans.data[k].end, 72120.0 + 150.0 * k);
        EXPECT_EQ(Cell(*sl, k, "SOURCE ID"), 1 + k % 2);
    }

    // Bits 2, 1, 3 give 4, 2, 8 levels; each row's validity spans every record (they are in time
    // order, as checked above).
    ASSERT_EQ(ai->nRows, 3);
    ASSERT_GE(ai->ColumnIndex("TIME"), 0);
    ASSERT_GE(ai->ColumnIndex("TIME_INTERVAL"), 0);
    const int levels[3] = {4, 2, 8};
    for (int r = 0; r < 3; ++r) {
        EXPECT_EQ(Cell(*ai, r, "ANTENNA_NO"), r + 1);
        EXPECT_EQ(Cell(*ai, r, "NO_LEVELS"), levels[r]);
        EXPECT_EQ(Cell(*ai, r, "FREQID"), 1);
        const double centre = Cell(*ai, r, "TIME") * 86400.0, half = Cell(*ai, r, "TIME_INTERVAL") * 43200.0;
        EXPECT_GT(+run.records.front().group.time, centre - half);
        EXPECT_LT(+run.records.back().group.time, centre + half);
    }
    EXPECT_EQ(t.QuantFactor(2), static_cast<double>(0.63662f));
    EXPECT_EQ(t.QuantFactor(3), static_cast<double>(0.94f));
}

TEST(Simulator, AmplitudeCalibrationRecoversTheFlux) {
    // Both the full set of products and a single left hand, whose Tsys and DPFU take index 0.
    const std::vector<std::vector<std::string>> productSets = {{"RR", "LL", "RL", "LR"}, {"LL"}};
    for (std::size_t set = 0; set < productSets.size(); ++set) {
        SCOPED_TRACE(set);
        ASimConfig c = SmallConfig();
        c.products = productSets[set];
        ASimRun run;
        Simulated(c, std::to_string(set), run);
        if (HasFatalFailure()) return;
        const ASimTruth& t = run.truth;
        AAntabData cal;
        ASSERT_TRUE(cal.Init(*run.file)) << cal.GetErrMsg().GetString();
        std::ifstream in(run.antab);
        ASSERT_TRUE(in.is_open()) << "cannot open " << run.antab;
        ASSERT_TRUE(cal.Load(in)) << cal.GetErrMsg().GetString();
        AUVXVisibility vis(*run.file);
        const int nStokes = vis.nStokes;
        double worst = 0;
        for (ARecord& rec : run.records) {
            std::copy(rec.data.begin(), rec.data.end(), vis.data);
            ASSERT_TRUE(cal.Calibrate(rec.group, vis)) << cal.GetErrMsg().GetString();
            const AUVXGroup& g = rec.group;
            const double q =
                g.ant1 == g.ant2 ? 1.0 : std::sqrt(t.QuantFactor(g.ant1) * t.QuantFactor(g.ant2));
            for (int f = 0; f < 2; ++f)
                for (int ch = 0; ch < 8; ++ch)
                    for (int p = 0; p < nStokes; ++p) {
                        int h1 = 0, h2 = 0;
                        ASSERT_TRUE(ASimTruth::Hands(t.stokes[p], h1, h2));
                        const AUVXComplex& e = vis.data[(f * 8 + ch) * nStokes + p];
                        // Undo the digitiser and the bandpass by their true values.
                        const double m = std::sqrt(t.Level(g.ant1, f, h1) * t.Level(g.ant2, f, h2));
                        const std::complex<double> b =
                            t.Bandpass(g.ant1, f, h1, ch) * std::conj(t.Bandpass(g.ant2, f, h2, ch));
                        const std::complex<double> flux = std::complex<double>(e.re, e.im) / (q * m * b);
                        if (g.ant1 != g.ant2 && h1 == h2) {
                            // The fluxes given in the configuration come back.
                            const double s = g.sourceId == 1 ? 2.5 : 7.0;
                            worst = std::max(worst, std::abs(flux - s) / s);
                        }
                        const std::complex<double> want = t.CalibratedModel(g, f, ch, p, false);
                        ASSERT_LT(std::abs(flux - want), 2e-6 * std::abs(want));
                    }
        }
        EXPECT_LT(worst, 2e-6);
    }
}

TEST(Simulator, NoiseFlagsAndSeed) {
    ASimConfig c = SmallConfig();
    c.noiseScale = 1.0;
    c.nChan = 32;
    c.flags = true;
    c.flagFraction = 0.05;
    ASimRun run;
    Simulated(c, "", run);
    if (HasFatalFailure()) return;
    const ASimTruth& t = run.truth;
    double sum = 0, sum2 = 0, autoSum = 0, autoSum2 = 0;
    long n = 0, nAuto = 0, cross = 0, flagged = 0;
    for (const ARecord& rec : run.records) {
        const AUVXGroup& g = rec.group;
        for (int f = 0; f < 2; ++f)
            for (int ch = 0; ch < 32; ++ch)
                for (int p = 0; p < 4; ++p) {
                    const AUVXComplex& e = rec.data[(f * 32 + ch) * 4 + p];
                    // Flags fall on cross-correlations only, as the negative weight (0.5 MHz x 10 s).
                    if (g.ant1 == g.ant2) {
                        ASSERT_EQ(e.wt, 5.0f);
                    } else {
                        ASSERT_EQ(std::abs(e.wt), 5.0f);
                        flagged += e.wt < 0;
                        ++cross;
                    }
                    const std::complex<double> m = t.RawModel(g, f, ch, p);
                    const double sigma = t.NoiseSigma(g, f, ch, p);
                    ASSERT_GT(sigma, 0.0);
                    if (g.ant1 == g.ant2 && p < 2) {
                        ASSERT_EQ(e.im, 0.0f);
                        const double r = (e.re - m.real()) / sigma;
                        autoSum += r;
                        autoSum2 += r * r;
                        ++nAuto;
                        continue;
                    }
                    if (g.ant1 != g.ant2 && p == 0) {
                        // 1 / sqrt(2 x 0.5 MHz channels x 10 s): 1 / sqrt(1e7).
                        const double bb =
                            std::abs(t.Bandpass(g.ant1, f, 0, ch)) * std::abs(t.Bandpass(g.ant2, f, 0, ch));
                        const double lv = std::sqrt(t.Level(g.ant1, f, 0) * t.Level(g.ant2, f, 0));
                        ASSERT_NEAR(sigma / (bb * lv), 1.0 / std::sqrt(1e7), 1e-12);
                    }
                    const double rr = (e.re - m.real()) / sigma, ri = (e.im - m.imag()) / sigma;
                    sum += rr + ri;
                    sum2 += rr * rr + ri * ri;
                    n += 2;
                }
    }
    // Normalised residuals: mean 0, variance 1, within a few standard errors; so the share flagged.
    EXPECT_NEAR(sum / n, 0.0, 5.0 / std::sqrt(double(n)));
    EXPECT_NEAR(sum2 / n, 1.0, 5.0 * std::sqrt(2.0 / n));
    EXPECT_NEAR(autoSum / nAuto, 0.0, 5.0 / std::sqrt(double(nAuto)));
    EXPECT_NEAR(autoSum2 / nAuto, 1.0, 5.0 * std::sqrt(2.0 / nAuto));
    EXPECT_NEAR(double(flagged) / cross, 0.05, 5.0 * std::sqrt(0.05 * 0.95 / cross));

    // The seed decides everything: the same one gives the same bytes, another one other values.
    CString error;
    ASSERT_TRUE(
        Simulate(c, TestPath("B.uvx").c_str(), TestPath("B.antab").c_str(), nullptr, nullptr, &error));
    c.seed = 2;
    ASSERT_TRUE(Simulate(c, TestPath("C.uvx").c_str(), nullptr, nullptr, nullptr, &error));
    const std::string a = Slurp(TestPath(".uvx")), other = Slurp(TestPath("C.uvx"));
    EXPECT_GT(a.size(), 100000u);
    EXPECT_EQ(a, Slurp(TestPath("B.uvx")));
    EXPECT_EQ(Slurp(run.antab), Slurp(TestPath("B.antab")));
    EXPECT_EQ(a.size(), other.size());
    EXPECT_NE(a, other);
}

TEST(Simulator, StationsBelowTheHorizonRecordNothing) {
    // 1803+784 never rises at Hartebeesthoek (latitude -25.9): it culminates 14 degrees below.
    ASimConfig c = SmallConfig();
    c.stations = {"EF", "HH"};
    c.sources = {"1803+784", "3C84"};
    c.fluxes.clear();
    c.bits.clear();
    c.minElevation = 0.0;
    ASimRun run;
    Simulated(c, "", run);
    if (HasFatalFailure()) return;
    const ASimTruth& t = run.truth;
    int withHH = 0, efOnly = 0;
    for (const ARecord& rec : run.records) {
        const AUVXGroup& g = rec.group;
        const double mjd = t.Mjd(g.time);
        const ASimSourceInfo& src = *ASimCatalogue::Source(g.sourceId == 1 ? "1803+784" : "3C84");
        for (int id : {1, 2}) {
            const double el = t.Elevation(id, g.sourceId, mjd);
            const ASimStationInfo& st = *ASimCatalogue::Station(id == 1 ? "EF" : "HH");
            const double up = Dot(SourceDirection(src.ra, src.dec, mjd), st.x, st.y, st.z) /
                              std::sqrt(st.x * st.x + st.y * st.y + st.z * st.z);
            EXPECT_NEAR(el, std::asin(up) * 180.0 / kPi, 2e-3);
            if (g.ant1 == id || g.ant2 == id) {
                EXPECT_GE(el, 0.0);
            }
        }
        if (g.sourceId == 1) {
            EXPECT_NE(+g.ant2, 2);
        }
        withHH += g.ant2 == 2;
        efOnly += g.ant1 == 1 && g.ant2 == 1;
    }
    EXPECT_EQ(efOnly, 48);
    // 3C84 is up at Hartebeesthoek at 20h on this day only if the records say so; either way no
    // record of the first source has it.
    EXPECT_EQ(withHH > 0, t.Elevation(2, 2, t.Mjd(72150.0 + 5.0)) >= 0.0);
}

TEST(Simulator, SwitchesTurnEffectsOff) {
    ASimConfig c = SmallConfig();
    c.bandpass = false;
    c.levels = false;
    c.quantisation = false;
    ASimRun run;
    Simulated(c, "", run);
    if (HasFatalFailure()) return;
    const ASimTruth& t = run.truth;
    // Without quantisation there is no table of bits.
    EXPECT_FALSE(std::unique_ptr<AUVXTable>(run.file->GetTable("AI")));
    EXPECT_EQ(t.QuantFactor(2), 1.0);
    for (const ARecord& rec : run.records) {
        const AUVXGroup& g = rec.group;
        const double mjd = t.Mjd(g.time);
        for (int f = 0; f < 2; ++f)
            for (int ch = 0; ch < 8; ++ch) {
                const AUVXComplex& rr = rec.data[(f * 8 + ch) * 4];
                if (g.ant1 == g.ant2) {
                    ASSERT_EQ(rr.re, 1.0f);
                    ASSERT_EQ(rr.im, 0.0f);
                    continue;
                }
                // Raw correlation times sqrt(SEFD1 SEFD2) is the flux itself, in every channel.
                const double s = g.sourceId == 1 ? 2.5 : 7.0;
                const double sefd =
                    std::sqrt(t.Sefd(g.ant1, 0, f, g.sourceId, mjd) * t.Sefd(g.ant2, 0, f, g.sourceId, mjd));
                ASSERT_NEAR(rr.re * sefd, s, 1e-6 * s);
                ASSERT_NEAR(rr.im * sefd, 0.0, 1e-6 * s);
            }
    }
}

TEST(Simulator, BadConfigurationsAreRefused) {
    struct ACase {
        void (*change)(ASimConfig&);
        const char* message;  // empty: a configuration at an edge, accepted
    };
    const ACase cases[] = {
        {[](ASimConfig& c) { c.stations[1] = "XX"; }, "unknown station XX"},
        {[](ASimConfig& c) { c.stations[1] = "EF"; }, "station listed twice: EF"},
        {[](ASimConfig& c) { c.sources = {"NOSUCH"}; }, "unknown source NOSUCH"},
        {[](ASimConfig& c) { c.fluxes = {1.0}; }, "give one flux per source"},
        {[](ASimConfig& c) { c.bits[1] = 9; }, "bits per sample must be 1 to 8"},
        {[](ASimConfig& c) { c.bits[0] = 8; }, ""},
        {[](ASimConfig& c) { c.nIF = 0; }, "nIF must be 1 to 16"},
        {[](ASimConfig& c) { c.nIF = 17; }, "nIF must be 1 to 16"},
        {[](ASimConfig& c) { c.nIF = 16; }, ""},
        {[](ASimConfig& c) { c.nChan = 4097; }, "nChan must be 1 to 4096"},
        {[](ASimConfig& c) { c.nChan = 4096; }, ""},
        {[](ASimConfig& c) { c.products[1] = "XY"; }, "unknown product XY"},
        {[](ASimConfig& c) { c.products[0] = "RL"; }, "parallel hands (RR, LL) must come before RL and LR"},
        {[](ASimConfig& c) { std::swap(c.products[0], c.products[1]); }, "RR must come before LL"},
        {[](ASimConfig& c) { c.products = {"RL"}; }, "the products need RR or LL"},
        {[](ASimConfig& c) { c.scanLength = 5.0; }, "a scan must hold at least one integration"},
        {[](ASimConfig& c) { c.scanLength = 10.0; }, ""},
        {[](ASimConfig& c) { c.dayOfYear = 367; }, "day of year must be 1 to 366"},
        {[](ASimConfig& c) { c.dayOfYear = 366; }, ""},
    };
    const std::string path = TestPath(".uvx");
    for (const ACase& k : cases) {
        SCOPED_TRACE(k.message);
        ASimConfig c = SmallConfig();
        k.change(c);
        CString error;
        if (!*k.message) {
            EXPECT_TRUE(CheckSimConfig(c, &error)) << error.GetString();
            continue;
        }
        std::remove(path.c_str());
        EXPECT_FALSE(Simulate(c, path.c_str(), nullptr, nullptr, nullptr, &error));
        EXPECT_STREQ(error.GetString(), k.message);
        EXPECT_FALSE(std::ifstream(path).good()) << "no file for a refused configuration";
    }
    CString error;
    EXPECT_FALSE(Simulate(SmallConfig(), "/nonexistent-dir/x.uvx", nullptr, nullptr, nullptr, &error));
    EXPECT_EQ(error.Find("cannot create UVX file"), 0) << error.GetString();
}
