// Phase bandpass by least squares over the baseline network: Calculate_PH_CS_LMS1 per channel and
// Calculate_PH_CS_LMS on whole spectra, their failures and what they leave behind.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "bandpass/PhaseTestSupport.h"
#include "support/MessageCapture.h"

namespace {

constexpr int kRR = -1, kLL = -2, kRL = -3;

// A phase of one channel: a smooth function of channel and IF; from base -1.2 over 20 channels and
// 2 IFs it stays within -1.4 and 0.13 rad, inside +-pi/2.
double Ramp(double base, int iIF, int iChan) {
    return base + 0.07 * iChan - 0.2 * iIF;
}

// Two telescopes, one record with the reference at ant1 and phase f: per channel the other telescope
// gets exp(-i f); the spectrum version also turns the reference by exp(+i f), so that Calibrate
// removes f altogether, while the per-channel version leaves half of it.
TEST(PhaseLeastSquares, TwoTelescopesBothOperations) {
    for (bool spectra : {false, true}) {
        SCOPED_TRACE(spectra ? "Calculate_PH_CS_LMS" : "Calculate_PH_CS_LMS1");
        APhaseInterval iv(2, 20, {kRR}, {1, 2});
        iv.Add(1, 2, [](int iIF, int c, int) { return Ramp(-1.2, iIF, c); });
        iv.Fresh();
        const bool ok = spectra ? iv.bp.Calculate_PH_CS_LMS(iv.vis, iv.groups, 0, 10, 1)
                                : iv.bp.Calculate_PH_CS_LMS1(iv.vis, iv.groups, 0, 10, 1);
        ASSERT_TRUE(ok);
        for (int iIF = 0; iIF < 2; ++iIF)
            for (int c = 0; c < 20; ++c) {
                const double f = iv.Measured(0, iIF, c, 0);
                EXPECT_ROTATION(iv.Coef(2, 0, iIF, c), -f, "other, IF " << iIF << " channel " << c);
                if (spectra)
                    EXPECT_ROTATION(iv.Coef(1, 0, iIF, c), f, "reference, IF " << iIF << " channel " << c);
                else
                    EXPECT_EQ(iv.Coef(1, 0, iIF, c), std::complex<float>(1.0f, 0.0f));
                EXPECT_EQ(iv.Count(1, 0, iIF, c), 1);
                EXPECT_EQ(iv.Count(2, 0, iIF, c), 1);
            }
        // Calibrate with the new coefficients: the spectrum version flattens the baseline, the
        // per-channel one leaves half the phase (the square root of a x conj(b) acts at half strength).
        ASSERT_TRUE(iv.bp.AddGain(0, 10));
        AUVXVisibility copy(*iv.vis[0]);
        ASSERT_TRUE(iv.bp.Calibrate(iv.groups[0], copy));
        for (int iIF = 0; iIF < 2; ++iIF)
            for (int c = 0; c < 20; ++c) {
                const double f = iv.Measured(0, iIF, c, 0);
                const double left = copy.At(iIF, c, 0).phase();
                EXPECT_NEAR(left, spectra ? 0.0 : f / 2, 3e-6) << "IF " << iIF << " channel " << c;
            }
    }
}

// Three telescopes whose phases do not close: the per-channel solve spreads the closure error c
// evenly (x2 = -f12 + c/3, x3 = -f13 - c/3 with c = f12 - f13 + f23), the spectrum version reads
// the two baselines to the reference alone, whatever the third says.
TEST(PhaseLeastSquares, ClosingTriangle) {
    const double f12 = 0.5, f13 = -0.8;
    std::vector<std::complex<float>> spectraRuns[2];
    for (double f23 : {0.9, -0.4}) {
        APhaseInterval iv(1, 4, {kRR}, {1, 2, 3});
        iv.Add(1, 2, [&](int, int c, int) { return f12 + 0.01 * c; });
        iv.Add(1, 3, [&](int, int c, int) { return f13 - 0.02 * c; });
        iv.Add(2, 3, [&](int, int, int) { return f23; });
        iv.Fresh();
        ASSERT_TRUE(iv.bp.Calculate_PH_CS_LMS1(iv.vis, iv.groups, 0, 0, 1));
        for (int c = 0; c < 4; ++c) {
            const double a = iv.Measured(0, 0, c, 0), b = iv.Measured(1, 0, c, 0),
                         d = iv.Measured(2, 0, c, 0);
            const double closure = a - b + d;
            EXPECT_GT(std::fabs(closure), 0.5);  // a real closure error to spread
            EXPECT_ROTATION(iv.Coef(2, 0, 0, c), -a + closure / 3, "telescope 2 channel " << c);
            EXPECT_ROTATION(iv.Coef(3, 0, 0, c), -b - closure / 3, "telescope 3 channel " << c);
            EXPECT_EQ(iv.Coef(1, 0, 0, c), std::complex<float>(1.0f, 0.0f));
        }

        APhaseInterval sp(1, 4, {kRR}, {1, 2, 3});
        sp.Add(1, 2, [&](int, int c, int) { return f12 + 0.01 * c; });
        sp.Add(1, 3, [&](int, int c, int) { return f13 - 0.02 * c; });
        sp.Add(2, 3, [&](int, int, int) { return f23; });
        sp.Fresh();
        ASSERT_TRUE(sp.bp.Calculate_PH_CS_LMS(sp.vis, sp.groups, 0, 0, 1));
        for (int c = 0; c < 4; ++c) {
            const double a = sp.Measured(0, 0, c, 0), b = sp.Measured(1, 0, c, 0);
            EXPECT_ROTATION(sp.Coef(2, 0, 0, c), -a, "telescope 2 channel " << c);
            EXPECT_ROTATION(sp.Coef(3, 0, 0, c), -b, "telescope 3 channel " << c);
            // The reference is turned by every baseline it is ant1 of.
            EXPECT_ROTATION(sp.Coef(1, 0, 0, c), a + b, "reference channel " << c);
        }
        spectraRuns[f23 > 0 ? 0 : 1] = sp.AllCoefs();
    }
    EXPECT_EQ(spectraRuns[0], spectraRuns[1]);
}

// The reference may stand anywhere in the map: first, in the middle or last, the columns follow the
// reduced map, and a consistent network gives each telescope its phase relative to the reference.
TEST(PhaseLeastSquares, ReferenceFirstMiddleOrLast) {
    const std::vector<int> ids = {3, 5, 9, 12};
    const double phi[] = {0.3, -0.4, 0.6, -0.1};  // station phases, baselines stay within +-1
    for (int iref = 0; iref < 4; ++iref) {
        const int ref = ids[iref];
        SCOPED_TRACE("reference " + std::to_string(ref));
        APhaseInterval iv(1, 3, {kRR}, ids);
        for (int a = 0; a < 4; ++a)
            for (int b = a + 1; b < 4; ++b)
                iv.Add(ids[a], ids[b], [&](int, int c, int) { return (phi[a] - phi[b]) * (1.0 + 0.1 * c); });
        iv.Fresh();
        ASSERT_TRUE(iv.bp.Calculate_PH_CS_LMS1(iv.vis, iv.groups, 0, 0, ref));
        for (int j = 0; j < 4; ++j)
            for (int c = 0; c < 3; ++c) {
                const double want = (phi[j] - phi[iref]) * (1.0 + 0.1 * c);
                EXPECT_ROTATION(iv.Coef(ids[j], 0, 0, c), want, "telescope " << ids[j] << " channel " << c);
                EXPECT_EQ(iv.Count(ids[j], 0, 0, c), 1);
            }
    }
}

// RR and LL are separate systems: each solves on its own phases and turns only its own
// polarisation index; a cross-hand product is passed over.
TEST(PhaseLeastSquares, ParallelHandsSolvedSeparately) {
    for (bool spectra : {false, true}) {
        SCOPED_TRACE(spectra ? "Calculate_PH_CS_LMS" : "Calculate_PH_CS_LMS1");
        APhaseInterval iv(1, 5, {kRR, kLL, kRL}, {1, 2, 3});
        // Station phases differ between the hands; RL carries a phase that must not appear anywhere.
        const auto station = [](int id, int c, int s) {
            return s == 0 ? 0.3 * id + 0.01 * c : -0.2 * id * id;
        };
        for (const auto& bl : {std::make_pair(1, 2), std::make_pair(1, 3), std::make_pair(2, 3)}) {
            const int a = bl.first, b = bl.second;
            iv.Add(a, b,
                   [&](int, int c, int s) { return s == 2 ? 1.3 : station(a, c, s) - station(b, c, s); });
        }
        iv.Fresh();
        const bool ok = spectra ? iv.bp.Calculate_PH_CS_LMS(iv.vis, iv.groups, 0, 0, 1)
                                : iv.bp.Calculate_PH_CS_LMS1(iv.vis, iv.groups, 0, 0, 1);
        ASSERT_TRUE(ok);
        ASSERT_EQ(iv.bp.nPol, 2);
        for (int c = 0; c < 5; ++c)
            for (int id : {2, 3})
                for (int s = 0; s < 2; ++s) {
                    const double want = station(id, c, s) - station(1, c, s);
                    EXPECT_ROTATION(iv.Coef(id, s, 0, c), want,
                                    (s == 0 ? "RR" : "LL") << " telescope " << id << " channel " << c);
                }
    }
}

// Failures of the network before any coefficient changes: a telescope with only an autocorrelation
// makes an empty column, fewer cross records than unknowns a wide matrix, no cross record at all no
// matrix. Each gives false with every coefficient and count as it was.
TEST(PhaseLeastSquares, FailuresChangeNothing) {
    struct ACase {
        const char* name;
        std::vector<std::pair<int, int>> baselines;
    };
    const ACase cases[] = {
        // Map 1, 2, 3, 4 without 1: telescope 2 is the first column, and empty.
        {"empty column", {{1, 3}, {1, 4}, {3, 4}, {2, 2}}},
        {"m below n", {{1, 2}, {3, 4}}},
        {"only autocorrelations", {{1, 1}, {2, 2}}},
        {"only the reference", {{1, 1}}},
    };
    for (const ACase& cs : cases)
        for (bool spectra : {false, true}) {
            SCOPED_TRACE(std::string(cs.name) + (spectra ? " (spectra)" : " (per channel)"));
            APhaseInterval iv(1, 3, {kRR}, {1, 2, 3, 4});
            for (const auto& bl : cs.baselines)
                iv.Add(bl.first, bl.second, [](int, int c, int) { return 0.2 * c; });
            iv.Fresh({1, 2, 3, 4});
            const auto coefs = iv.AllCoefs();
            const auto counts = iv.AllCounts();
            MessageCapture messages;
            const bool ok = spectra ? iv.bp.Calculate_PH_CS_LMS(iv.vis, iv.groups, 0, 0, 1)
                                    : iv.bp.Calculate_PH_CS_LMS1(iv.vis, iv.groups, 0, 0, 1);
            EXPECT_FALSE(ok);
            EXPECT_EQ(iv.AllCoefs(), coefs);
            EXPECT_EQ(iv.AllCounts(), counts);
            EXPECT_TRUE(messages.messages().empty());
        }
}

// The last column of a square design matrix is never tested: an autocorrelation-only telescope with
// the highest ID gives a zero on the diagonal, a NaN solution and NaN coefficients, and still true.
TEST(PhaseLeastSquares, SquareMatrixLastColumnUntested) {
    APhaseInterval iv(1, 2, {kRR}, {1, 2, 3, 4});
    iv.Add(1, 2, [](int, int, int) { return 0.3; });
    iv.Add(1, 3, [](int, int, int) { return 0.1; });
    iv.Add(2, 3, [](int, int, int) { return -0.2; });
    iv.Add(4, 4, [](int, int, int) { return 0.0; });
    iv.Fresh();
    ASSERT_TRUE(iv.bp.Calculate_PH_CS_LMS1(iv.vis, iv.groups, 0, 0, 1));
    EXPECT_TRUE(std::isnan(iv.Coef(4, 0, 0, 0).real()));
    EXPECT_EQ(iv.Count(4, 0, 0, 0), 1);
}

// A reference outside the map: the per-channel version says "iref < 0" once, the spectrum version
// says nothing; both end with false and nothing changed. A negative reference lets the preference
// list choose ("EF" here, telescope 3).
TEST(PhaseLeastSquares, ReferenceOutsideTheMapAndChosenReference) {
    for (bool spectra : {false, true}) {
        SCOPED_TRACE(spectra ? "Calculate_PH_CS_LMS" : "Calculate_PH_CS_LMS1");
        APhaseInterval iv(1, 2, {kRR}, {1, 2, 3}, {"XX", "YY", "EF"});
        iv.Add(1, 2, [](int, int, int) { return 0.4; });
        iv.Add(1, 3, [](int, int, int) { return -0.3; });
        iv.Add(2, 3, [](int, int, int) { return -0.7; });
        iv.Fresh();
        const auto coefs = iv.AllCoefs();
        const auto counts = iv.AllCounts();
        {
            MessageCapture messages;
            const bool ok = spectra ? iv.bp.Calculate_PH_CS_LMS(iv.vis, iv.groups, 0, 0, 7)
                                    : iv.bp.Calculate_PH_CS_LMS1(iv.vis, iv.groups, 0, 0, 7);
            EXPECT_FALSE(ok);
            EXPECT_EQ(messages.messages(),
                      spectra ? std::vector<std::string>{} : std::vector<std::string>{"iref < 0"});
            EXPECT_EQ(iv.AllCoefs(), coefs);
            EXPECT_EQ(iv.AllCounts(), counts);
        }
        const bool ok = spectra ? iv.bp.Calculate_PH_CS_LMS(iv.vis, iv.groups, 0, 0, -1)
                                : iv.bp.Calculate_PH_CS_LMS1(iv.vis, iv.groups, 0, 0, -1);
        ASSERT_TRUE(ok);
        // Telescope 3 is the reference: 1 and 2 are turned relative to it.
        EXPECT_ROTATION(iv.Coef(1, 0, 0, 0), spectra ? iv.Measured(1, 0, 0, 0) : -0.3, "telescope 1");
        EXPECT_ROTATION(iv.Coef(2, 0, 0, 0), spectra ? iv.Measured(2, 0, 0, 0) : -0.7, "telescope 2");
        if (!spectra) {
            EXPECT_EQ(iv.Coef(3, 0, 0, 0), std::complex<float>(1.0f, 0.0f));
        } else {
            EXPECT_ROTATION(iv.Coef(3, 0, 0, 0), -iv.Measured(1, 0, 0, 0) - iv.Measured(2, 0, 0, 0),
                            "telescope 3");
        }
    }
}

// Each call multiplies into the current coefficients instead of replacing them.
TEST(PhaseLeastSquares, MultipliesIntoTheCurrentCoefficients) {
    APhaseInterval iv(1, 1, {kRR}, {1, 2});
    iv.Add(1, 2, [](int, int, int) { return 0.4; });
    iv.Fresh();
    iv.Coef(2, 0, 0, 0) = std::complex<float>(0.0f, 2.0f);  // 2 exp(i pi/2)
    ASSERT_TRUE(iv.bp.Calculate_PH_CS_LMS1(iv.vis, iv.groups, 0, 0, 1));
    const std::complex<float> got = iv.Coef(2, 0, 0, 0);
    EXPECT_NEAR(std::abs(got), 2.0f, 1e-6);
    EXPECT_NEAR(std::arg(got), 1.5707963267948966 - iv.Measured(0, 0, 0, 0), 1e-6);
}

}  // namespace
