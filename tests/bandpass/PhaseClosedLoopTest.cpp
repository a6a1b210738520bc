// Closed loops of the phase bandpass on simulated observations whose bandpass phases stay within
// +-0.7 rad per station, so that no baseline's phase leaves +-pi/2: the solved phases against the
// simulated ones, and what Calibrate leaves of each baseline's phase afterwards.
#include <gtest/gtest.h>

#if defined(MEROVANE_HAVE_UVXSIM)

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <memory>
#include <vector>

#include <merovane/bandpass/ABPass.h>
#include <merovane/foundation/AMemFile.h>
#include <merovane/interval/AMeanCalc.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecordStream.h>

#include "UVXSimulator.h"

namespace {

constexpr double kPhaseMax = 0.7;
constexpr double kTwoPi = 6.283185307179586;

// One scan of a simulated observation, held as one interval.
struct ASimInterval {
    ASimTruth truth;
    AUVXHeader header;
    AUVXAntenns antennas;
    APtrArray<AUVXVisibility*> vis;
    AArray<AUVXGroup> groups;
    double start = 0, end = 0;
};

ASimConfig LoopConfig(const std::vector<std::string>& stations) {
    ASimConfig c;
    c.stations = stations;
    c.sources = {"3C84"};
    c.fluxes = {10.0};
    c.nIF = 2;
    c.nChan = 32;
    c.products = {"RR", "LL"};
    c.intTime = 10.0;
    c.duration = 120.0;
    c.scanLength = 120.0;
    c.flags = false;
    c.seed = 7;
    c.bandpassPhaseMax = kPhaseMax;
    return c;
}

// Simulates `c` in memory and keeps the records of the first `times` time stamps (all when 0).
void Simulate(const ASimConfig& c, ASimInterval& iv, int times = 0) {
    auto* mem = new AMemFile;
    CString error;
    ASSERT_TRUE(SimulateToStreams(c, mem, nullptr, nullptr, &iv.truth, &error)) << error.GetString();
    AUVXFile file;
    ASSERT_TRUE(file.Open(mem, true)) << file.m_errMsg.GetString();
    iv.header = file.GetHeader();
    std::unique_ptr<AUVXTable> an(file.GetTable("AN"));
    ASSERT_TRUE(an != nullptr);
    ASSERT_TRUE(iv.antennas.Init(*an));
    AUVXRecordReader reader;
    ASSERT_TRUE(reader.Open(file)) << reader.m_errMsg.GetString();
    AUVXGroup g;
    AUVXVisibility v(file);
    int seen = 0;
    double last = -1;
    while (reader.Next(g, v)) {
        if (g.time != last) {
            ++seen;
            last = g.time;
        }
        if (times > 0 && seen > times) break;
        iv.groups.Add(g);
        iv.vis.Add(new AUVXVisibility(v));
    }
    ASSERT_FALSE(reader.Failed()) << reader.m_errMsg.GetString();
    ASSERT_GT(iv.groups.count, 0);
    iv.start = iv.groups[0].time - c.intTime / 2;
    iv.end = iv.groups[iv.groups.count - 1].time + c.intTime / 2;
}

// The simulated bandpass phase of a station, hand and cell.
double TruthPhase(const ASimTruth& t, int id, int iIF, int hand, int iChan) {
    return std::arg(t.Bandpass(id, iIF, hand, iChan));
}

int ItemOf(ABPass& bp, int id) {
    for (int t = 0; t < bp.coefs.count; ++t)
        if (bp.coefs[t]->tlsc == id) return t;
    return -1;
}

std::complex<float> CoefAt(ABPass& bp, int id, int p, int iIF, int iChan) {
    return (*bp.coefs[ItemOf(bp, id)])(static_cast<unsigned>(p), static_cast<unsigned>(iIF),
                                       static_cast<unsigned>(iChan));
}

// Largest phase noise of one sample (radians) over the cross records of the interval: the noise of a
// component over the model's amplitude.
double WorstPhaseSigma(ASimInterval& iv) {
    double worst = 0;
    for (int k = 0; k < iv.groups.count; ++k) {
        const AUVXGroup& g = iv.groups[k];
        if (g.ant1 == g.ant2) continue;
        for (int iIF = 0; iIF < iv.truth.nIF; ++iIF)
            for (int c = 0; c < iv.truth.nChan; ++c)
                for (int s = 0; s < 2; ++s)
                    worst = std::max(
                        worst, iv.truth.NoiseSigma(g, iIF, c, s) / std::abs(iv.truth.RawModel(g, iIF, c, s)));
    }
    return worst;
}

// Per channel, the phases solved over the network are the simulated station phases relative to the
// reference, to within the noise; Calibrate then leaves half of each baseline's phase.
TEST(PhaseClosedLoop, PerChannelSolveMatchesStationPhasesAndCalibrateHalves) {
    ASimInterval iv;
    ASSERT_NO_FATAL_FAILURE(Simulate(LoopConfig({"EF", "WB", "ON", "MC", "NT"}), iv));
    ABPass bp;
    bp.Init(iv.header, iv.antennas, 1);
    AArray<int> map;
    ASSERT_EQ(ABPass::GetTlscMap(iv.groups, map), 5);
    ASSERT_TRUE(bp.InitInernalGain(map));
    ASSERT_TRUE(bp.Calculate_PH_CS_LMS1(iv.vis, iv.groups, iv.start, iv.end, -1));
    const int ref = 1;  // "EF" leads the preference list among these stations

    // Each station has R records per baseline; the solution's standard error on a complete network of
    // N stations is sigma x sqrt(2 / (N R)).
    const int nRec = iv.groups.count / 15;  // 10 baselines and 5 autocorrelations per time stamp
    const double sigma = WorstPhaseSigma(iv);
    const double solSigma = sigma * std::sqrt(2.0 / (5.0 * nRec));
    double sumSq = 0, worst = 0, largestTruth = 0;
    int n = 0;
    for (int id = 1; id <= 5; ++id)
        for (int p = 0; p < 2; ++p)
            for (int iIF = 0; iIF < 2; ++iIF)
                for (int c = 0; c < 32; ++c) {
                    const std::complex<float> coef = CoefAt(bp, id, p, iIF, c);
                    if (id == ref) {
                        EXPECT_EQ(coef, std::complex<float>(1.0f, 0.0f));
                        continue;
                    }
                    EXPECT_NEAR(std::abs(coef), 1.0f, 1e-6);
                    const double want =
                        TruthPhase(iv.truth, id, iIF, p, c) - TruthPhase(iv.truth, ref, iIF, p, c);
                    const double err = std::arg(coef) - want;
                    EXPECT_LT(std::fabs(err), 6 * solSigma)
                        << "telescope " << id << " pol " << p << " IF " << iIF << " channel " << c;
                    sumSq += err * err;
                    worst = std::max(worst, std::fabs(err));
                    largestTruth = std::max(largestTruth, std::fabs(want));
                    ++n;
                }
    EXPECT_GT(largestTruth, 0.5);  // there was a bandpass phase to find
    std::printf(
        "[ residual ] per-channel solve: rms %.2e rad, max %.2e rad over %d phases; "
        "predicted sigma %.2e rad (worst sample %.2e rad)\n",
        std::sqrt(sumSq / n), worst, n, solSigma, sigma);

    // Calibrate: the square root of a x conj(b) acts at half strength, so each baseline keeps half of
    // its phase. Compared on the mean of the baseline's calibrated records.
    ASSERT_TRUE(bp.AddGain(iv.start, iv.end));
    std::vector<std::complex<double>> sum(static_cast<std::size_t>(65 * 65 * 2 * 2 * 32));
    const auto at = [&](const AUVXGroup& g, int p, int iIF, int c) -> std::complex<double>& {
        return sum[static_cast<std::size_t>((((g.ant1 * 64 + g.ant2) * 2 + p) * 2 + iIF) * 32 + c)];
    };
    for (int k = 0; k < iv.groups.count; ++k) {
        if (iv.groups[k].ant1 == iv.groups[k].ant2) continue;
        AUVXVisibility copy(*iv.vis[k]);
        ASSERT_TRUE(bp.Calibrate(iv.groups[k], copy));
        for (int p = 0; p < 2; ++p)
            for (int iIF = 0; iIF < 2; ++iIF)
                for (int c = 0; c < 32; ++c)
                    at(iv.groups[k], p, iIF, c) +=
                        std::complex<double>(copy.At(iIF, c, p).re, copy.At(iIF, c, p).im);
    }
    const double tol = 6 * (sigma / std::sqrt(static_cast<double>(nRec)) + solSigma);
    double halfSumSq = 0, halfWorst = 0;
    int halfN = 0;
    for (int k = 0; k < iv.groups.count / nRec; ++k) {  // the first time stamp names every baseline
        const AUVXGroup& g = iv.groups[k];
        if (g.ant1 == g.ant2) continue;
        for (int p = 0; p < 2; ++p)
            for (int iIF = 0; iIF < 2; ++iIF)
                for (int c = 0; c < 32; ++c) {
                    const double baseline =
                        TruthPhase(iv.truth, g.ant1, iIF, p, c) - TruthPhase(iv.truth, g.ant2, iIF, p, c);
                    const double err = std::arg(at(g, p, iIF, c)) - baseline / 2;
                    EXPECT_LT(std::fabs(err), tol) << "baseline " << int(g.ant1) << "-" << int(g.ant2)
                                                   << " pol " << p << " IF " << iIF << " channel " << c;
                    halfSumSq += err * err;
                    halfWorst = std::max(halfWorst, std::fabs(err));
                    ++halfN;
                }
    }
    EXPECT_EQ(halfN, 10 * 2 * 2 * 32);
    std::printf(
        "[ residual ] after Calibrate, phase minus half the baseline phase: rms %.2e rad, max %.2e rad "
        "over %d baseline cells\n",
        std::sqrt(halfSumSq / halfN), halfWorst, halfN);
}

// Two stations: the spectrum version on the averaged interval turns both ends, and Calibrate then
// flattens the baseline phase of every record to within the noise.
TEST(PhaseClosedLoop, TwoStationSpectraThenCalibrateFlattens) {
    ASimInterval iv;
    ASSERT_NO_FATAL_FAILURE(Simulate(LoopConfig({"EF", "WB"}), iv));
    APtrArray<AUVXVisibility*> avgVis;
    AArray<AUVXGroup> avgGroups;
    AMeanCalc mean;
    ASSERT_TRUE(mean.Calculate(iv.vis, iv.groups, iv.start, iv.end, avgVis, avgGroups, 0));
    ASSERT_EQ(avgGroups.count, 3);  // EF-EF, EF-WB, WB-WB

    ABPass bp;
    bp.Init(iv.header, iv.antennas, 1);
    AArray<int> map;
    ASSERT_EQ(ABPass::GetTlscMap(avgGroups, map), 2);
    ASSERT_TRUE(bp.InitInernalGain(map));
    ASSERT_TRUE(bp.Calculate_PH_CS_LMS(avgVis, avgGroups, iv.start, iv.end, -1));
    ASSERT_TRUE(bp.AddGain(iv.start, iv.end));

    const int nRec = iv.groups.count / 3;
    const double sigma = WorstPhaseSigma(iv);
    // The record's own noise and that of the mean that the coefficients came from.
    const double tol = 6 * sigma * std::sqrt(1.0 + 1.0 / nRec);
    double sumSq = 0, worst = 0, largestBefore = 0;
    int n = 0;
    for (int k = 0; k < iv.groups.count; ++k) {
        const AUVXGroup& g = iv.groups[k];
        if (g.ant1 == g.ant2) continue;
        AUVXVisibility copy(*iv.vis[k]);
        ASSERT_TRUE(bp.Calibrate(iv.groups[k], copy));
        for (int p = 0; p < 2; ++p)
            for (int iIF = 0; iIF < 2; ++iIF)
                for (int c = 0; c < 32; ++c) {
                    largestBefore = std::max(
                        largestBefore, static_cast<double>(std::fabs(iv.vis[k]->At(iIF, c, p).phase())));
                    const double left = copy.At(iIF, c, p).phase();
                    EXPECT_LT(std::fabs(left), tol)
                        << "record " << k << " pol " << p << " IF " << iIF << " channel " << c;
                    sumSq += left * left;
                    worst = std::max(worst, std::fabs(left));
                    ++n;
                }
    }
    EXPECT_GT(largestBefore, 0.5);  // the baseline had a phase to flatten
    std::printf(
        "[ residual ] two stations, spectra then Calibrate: baseline phase rms %.2e rad, max %.2e rad "
        "over %d samples (sample sigma %.2e rad)\n",
        std::sqrt(sumSq / n), worst, n, sigma);
}

// The polynomial of Calculate_PHA_CS_APR: each station's coefficient is exp(-i P(channel)) where P
// is the least-squares quadratic through its unwrapped baseline phases to the reference and
// nChan - 1 points (0, 0), computed here in another basis and another precision.
TEST(PhaseClosedLoop, PolynomialMatchesIndependentPaddedFit) {
    ASimInterval iv;
    ASSERT_NO_FATAL_FAILURE(Simulate(LoopConfig({"EF", "WB", "ON", "MC"}), iv, 1));
    ABPass bp;
    bp.Init(iv.header, iv.antennas, 1);
    AArray<int> map;
    ASSERT_EQ(ABPass::GetTlscMap(iv.groups, map), 4);
    ASSERT_TRUE(bp.InitInernalGain(map));
    ASSERT_TRUE(bp.Calculate_PHA_CS_APR(iv.vis, iv.groups, iv.start, iv.end, -1, 3, false, true));

    const int nChan = 32, nFit = 2 * nChan - 1;
    double worst = 0;
    int checked = 0;
    for (int k = 0; k < iv.groups.count; ++k) {
        const AUVXGroup& g = iv.groups[k];
        if (g.ant1 == g.ant2 || g.ant1 != 1) continue;  // the baselines of the reference, EF at ant1
        for (int p = 0; p < 2; ++p)
            for (int iIF = 0; iIF < 2; ++iIF) {
                // Normal equations of the monomials 1, x, x^2 over the padded entries, in long double.
                long double m[3][4] = {};
                double unwrapped = 0;
                for (int i = 0; i < nFit; ++i) {
                    double x = 0, y = 0;
                    if (i < nChan) {
                        const double raw = iv.vis[k]->At(iIF, i, p).phase();
                        unwrapped = i == 0
                                        ? raw
                                        : unwrapped + std::remainder(
                                                          raw - iv.vis[k]->At(iIF, i - 1, p).phase(), kTwoPi);
                        x = i;
                        y = unwrapped;
                    }
                    const long double b[3] = {1.0L, x, static_cast<long double>(x) * x};
                    for (int r = 0; r < 3; ++r) {
                        for (int cc = 0; cc < 3; ++cc) m[r][cc] += b[r] * b[cc];
                        m[r][3] += b[r] * y;
                    }
                }
                for (int col = 0; col < 3; ++col)
                    for (int r = col + 1; r < 3; ++r) {
                        const long double f = m[r][col] / m[col][col];
                        for (int cc = col; cc < 4; ++cc) m[r][cc] -= f * m[col][cc];
                    }
                long double coef[3];
                for (int r = 2; r >= 0; --r) {
                    long double s = m[r][3];
                    for (int cc = r + 1; cc < 3; ++cc) s -= m[r][cc] * coef[cc];
                    coef[r] = s / m[r][r];
                }
                for (int c = 0; c < nChan; ++c) {
                    const double poly = static_cast<double>(coef[0] + coef[1] * c + coef[2] * c * c);
                    const std::complex<float> got = CoefAt(bp, g.ant2, p, iIF, c);
                    const double err = std::remainder(std::arg(got) + poly, kTwoPi);
                    EXPECT_LT(std::fabs(err), 2e-6)
                        << "telescope " << int(g.ant2) << " pol " << p << " IF " << iIF << " channel " << c;
                    worst = std::max(worst, std::fabs(err));
                    ++checked;
                }
            }
    }
    EXPECT_EQ(checked, 3 * 2 * 2 * nChan);
    // The reference keeps its coefficients.
    EXPECT_EQ(CoefAt(bp, 1, 0, 1, 5), std::complex<float>(1.0f, 0.0f));
    std::printf(
        "[ residual ] padded quadratic: largest difference from the independent fit %.2e rad over %d "
        "channels\n",
        worst, checked);
}

// The option behind these loops: each simulated bandpass phase has exactly the chosen largest
// magnitude, and its amplitudes are those of the default simulation.
TEST(PhaseClosedLoop, SimulatorScalesBandpassPhases) {
    ASimConfig scaled = LoopConfig({"EF", "WB"});
    ASimConfig drawn = scaled;
    drawn.bandpassPhaseMax = 0;
    ASimInterval a, b;
    ASSERT_NO_FATAL_FAILURE(Simulate(scaled, a, 1));
    ASSERT_NO_FATAL_FAILURE(Simulate(drawn, b, 1));
    for (int id = 1; id <= 2; ++id)
        for (int iIF = 0; iIF < 2; ++iIF)
            for (int hand = 0; hand < 2; ++hand) {
                double largest = 0, largestDrawn = 0;
                for (int c = 0; c < 32; ++c) {
                    largest = std::max(largest, std::fabs(TruthPhase(a.truth, id, iIF, hand, c)));
                    largestDrawn = std::max(largestDrawn, std::fabs(TruthPhase(b.truth, id, iIF, hand, c)));
                    EXPECT_NEAR(std::abs(a.truth.Bandpass(id, iIF, hand, c)),
                                std::abs(b.truth.Bandpass(id, iIF, hand, c)), 1e-12);
                }
                EXPECT_NEAR(largest, kPhaseMax, 1e-12);
                EXPECT_GT(largestDrawn, 1.0);  // the drawn slopes wrap: arg() reaches past +-1 rad
            }
}

}  // namespace

#endif
