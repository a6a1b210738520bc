// Phase bandpass by approximation: Calculate_PHA_CS_APR (a polynomial through the unwrapped phases
// padded with zeros) and ABPass_Ph_CS_Apr (a straight line on the averaged baselines to telescope 2).
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <vector>

#include <merovane/bandpass/ABPass_Ph_CS_Apr.h>

#include "bandpass/PhaseTestSupport.h"
#include "support/MessageCapture.h"

namespace {

constexpr int kRR = -1, kLL = -2, kRL = -3;
constexpr double kTwoPi = 6.283185307179586;

// Least-squares line a + b x through (x[i], y[i]), in long double from the centred sums: a second
// way to the fit that the calculators make with the polynomial class.
void Line(const std::vector<double>& x, const std::vector<double>& y, long double& a, long double& b) {
    long double mx = 0, my = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        mx += x[i];
        my += y[i];
    }
    mx /= x.size();
    my /= y.size();
    long double sxy = 0, sxx = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        sxy += (x[i] - mx) * (y[i] - my);
        sxx += (x[i] - mx) * (x[i] - mx);
    }
    b = sxy / sxx;
    a = my - b * mx;
}

// With order 1 the polynomial is the mean over all 2 nChan - 1 entries, nChan - 1 of them zeros: a
// constant phase c gives c nChan / (2 nChan - 1), about half of it; the sign says which end of the
// baseline the reference is.
TEST(PhaseApprox, OrderOneGivesAboutHalfTheMeanPhase) {
    const int nChan = 16;
    APhaseInterval iv(1, nChan, {kRR}, {1, 2, 3});
    iv.Add(1, 2, [](int, int, int) { return 0.9; });   // reference 2 at ant2: +fit to telescope 1
    iv.Add(2, 3, [](int, int, int) { return -0.6; });  // reference 2 at ant1: -fit to telescope 3
    iv.Fresh();
    ASSERT_TRUE(iv.bp.Calculate_PHA_CS_APR(iv.vis, iv.groups, 0, 0, 2, 1, false, true));
    const double scale = static_cast<double>(nChan) / (2 * nChan - 1);
    for (int c = 0; c < nChan; ++c) {
        EXPECT_ROTATION(iv.Coef(1, 0, 0, c), iv.Measured(0, 0, c, 0) * scale, "telescope 1 channel " << c);
        EXPECT_ROTATION(iv.Coef(3, 0, 0, c), -iv.Measured(1, 0, c, 0) * scale, "telescope 3 channel " << c);
        EXPECT_EQ(iv.Coef(2, 0, 0, c), std::complex<float>(1.0f, 0.0f));
    }
    // About half: 0.9 x 16/31 = 0.4645.
    EXPECT_NEAR(std::arg(iv.Coef(1, 0, 0, 0)), 0.4645, 1e-3);
}

// A straight line (order 2) over the unwrapped phases and the zero padding: the same line as a
// least-squares fit computed here over the padded entries, for a slope that wraps three times.
TEST(PhaseApprox, LineOverPaddedUnwrappedPhases) {
    const int nChan = 24;
    APhaseInterval iv(2, nChan, {kRR, kLL}, {1, 2});
    iv.Add(1, 2, [](int iIF, int c, int s) { return 0.4 + (0.8 + 0.1 * iIF + 0.3 * s) * c; });
    iv.Fresh();
    ASSERT_TRUE(iv.bp.Calculate_PHA_CS_APR(iv.vis, iv.groups, 0, 0, 1, 2, false, true));
    for (int s = 0; s < 2; ++s)
        for (int iIF = 0; iIF < 2; ++iIF) {
            std::vector<double> x(2 * nChan - 1, 0.0), y(2 * nChan - 1, 0.0);
            double unwrapped = 0;
            for (int c = 0; c < nChan; ++c) {
                const double raw = iv.Measured(0, iIF, c, s);
                if (c == 0) {
                    unwrapped = raw;
                } else {
                    const double prev = iv.Measured(0, iIF, c - 1, s);
                    unwrapped += std::remainder(raw - prev, kTwoPi);
                }
                x[c] = c;
                y[c] = unwrapped;
            }
            EXPECT_GT(y[nChan - 1] - y[0], 2 * kTwoPi);  // the slope really wraps
            long double a = 0, b = 0;
            Line(x, y, a, b);
            for (int c = 0; c < nChan; ++c)
                EXPECT_ROTATION(iv.Coef(2, s, iIF, c), -static_cast<double>(a + b * c),
                                "product " << s << " IF " << iIF << " channel " << c);
        }
}

// fit false: no coefficient changes; the counts of the reference and of every telescope with a
// baseline to it are marked, a telescope without one keeps 0. Baselines without the reference and
// autocorrelations (even the reference's own) are not read; a cross-hand product is passed over.
TEST(PhaseApprox, CountsOnlyAndUnreadRecords) {
    for (bool fit : {false, true}) {
        SCOPED_TRACE(fit ? "fit" : "no fit");
        APhaseInterval iv(1, 4, {kRR, kRL}, {1, 2, 3, 4});
        const double nan = std::numeric_limits<double>::quiet_NaN();
        iv.Add(1, 2, [](int, int c, int) { return 0.1 * c; });
        iv.Add(1, 1, [&](int, int, int) { return nan; });  // the reference's autocorrelation
        iv.Add(3, 4, [&](int, int, int) { return nan; });  // no reference
        iv.Fresh();
        const auto before = iv.AllCoefs();
        ASSERT_TRUE(iv.bp.Calculate_PHA_CS_APR(iv.vis, iv.groups, 0, 0, 1, 3, false, fit));
        if (!fit) {
            EXPECT_EQ(iv.AllCoefs(), before);
        }
        for (int c = 0; c < 4; ++c) {
            EXPECT_EQ(iv.Count(1, 0, 0, c), 1);
            EXPECT_EQ(iv.Count(2, 0, 0, c), 1);
            EXPECT_EQ(iv.Count(3, 0, 0, c), 0);
            EXPECT_EQ(iv.Count(4, 0, 0, c), 0);
            EXPECT_EQ(iv.Coef(1, 0, 0, c), std::complex<float>(1.0f, 0.0f));
            EXPECT_EQ(iv.Coef(3, 0, 0, c), std::complex<float>(1.0f, 0.0f));
            EXPECT_EQ(iv.Coef(4, 0, 0, c), std::complex<float>(1.0f, 0.0f));
            EXPECT_FALSE(std::isnan(iv.Coef(2, 0, 0, c).real()));
        }
        // nPol is 1: the cross-hand product has no index of its own to mark.
        EXPECT_EQ(iv.bp.nPol, 1);
    }
}

// A telescope with several records to the reference is multiplied by each; a negative reference
// lets the preference list choose ("WB", telescope 2, before "YS").
TEST(PhaseApprox, SeveralRecordsMultiplyAndChosenReference) {
    APhaseInterval iv(1, 3, {kRR}, {1, 2, 3}, {"YS", "WB", "ZZ"});
    iv.Add(
        2, 3, [](int, int, int) { return 0.5; }, 5.0);
    iv.Add(
        2, 3, [](int, int, int) { return 0.3; }, 15.0);
    iv.Fresh({1, 2, 3});
    ASSERT_TRUE(iv.bp.Calculate_PHA_CS_APR(iv.vis, iv.groups, 0, 0, -1, 1, false, true));
    const double scale = 3.0 / 5.0;
    EXPECT_ROTATION(iv.Coef(3, 0, 0, 1), -(iv.Measured(0, 0, 1, 0) + iv.Measured(1, 0, 1, 0)) * scale,
                    "telescope 3");
    EXPECT_EQ(iv.Coef(1, 0, 0, 1), std::complex<float>(1.0f, 0.0f));
    EXPECT_EQ(iv.Count(1, 0, 0, 1), 0);
    EXPECT_EQ(iv.Count(2, 0, 0, 1), 1);
}

// A fit that refuses its samples (one channel: one measured entry, no padding) leaves the
// coefficients at exp(i 0) = 1 and still marks the counts.
TEST(PhaseApprox, RefusedFitMultipliesByOne) {
    APhaseInterval iv(1, 1, {kRR}, {1, 2});
    iv.Add(1, 2, [](int, int, int) { return 1.0; });
    iv.Fresh();
    iv.Coef(2, 0, 0, 0) = std::complex<float>(0.5f, -0.25f);
    ASSERT_TRUE(iv.bp.Calculate_PHA_CS_APR(iv.vis, iv.groups, 0, 0, 1, 2, false, true));
    EXPECT_EQ(iv.Coef(2, 0, 0, 0), std::complex<float>(0.5f, -0.25f));
    EXPECT_EQ(iv.Count(2, 0, 0, 0), 1);
}

// ---- ABPass_Ph_CS_Apr ----

// The caller's own items for the telescopes of the interval, every coefficient `fill`.
void Items(ABPass_Ph_CS_Apr& calc, const AUVXHeader& h, const std::vector<int>& ids,
           std::complex<float> fill = {1.0f, 0.0f}) {
    for (int id : ids) {
        auto* coef = new ABPass_coef_item<std::complex<float>>();
        auto* count = new ABPass_coef_item<int>();
        ASSERT_TRUE(coef->Init(calc.nPol, h.nIF > 1 ? h.nIF : 1, h.nChan));
        ASSERT_TRUE(count->Init(calc.nPol, h.nIF > 1 ? h.nIF : 1, h.nChan));
        coef->Fill(fill);
        count->ZeroFill();
        coef->tlsc = count->tlsc = id;
        calc.coefs.Add(coef);
        calc.counts.Add(count);
    }
}

std::complex<float> CoefOf(ABPass_Ph_CS_Apr& calc, int id, int p, int iIF, int iChan) {
    for (int t = 0; t < calc.coefs.count; ++t)
        if (calc.coefs[t]->tlsc == id)
            return (*calc.coefs[t])(static_cast<unsigned>(p), static_cast<unsigned>(iIF),
                                    static_cast<unsigned>(iChan));
    ADD_FAILURE() << "no item " << id;
    return {};
}

// The interval is averaged per baseline first (two records of phases 0.2 and 0.4 average to 0.3);
// a constant phase gives a flat line whose value is doubled at the middle channel, so the other
// telescope's coefficient is exp(+-i 0.6). What stood in the coefficients is replaced, and
// telescope 2 becomes 1 + 0i.
TEST(PhaseApprox, StraightLineAveragesThenDoubles) {
    APhaseInterval iv(1, 8, {kRR}, {1, 2, 3});
    iv.Add(
        1, 2, [](int, int, int) { return 0.2; }, 1.0);
    iv.Add(
        1, 2, [](int, int, int) { return 0.4; }, 3.0);
    iv.Add(
        2, 3, [](int, int, int) { return -0.25; }, 1.0);
    iv.Add(
        2, 3, [](int, int, int) { return -0.25; }, 3.0);
    ABPass_Ph_CS_Apr calc;
    calc.Init(iv.header, iv.antennas, 1);
    Items(calc, iv.header, {1, 2, 3}, {3.0f, -1.0f});
    ASSERT_TRUE(calc.Calculate(iv.vis, iv.groups, 0.0, 4.0));
    for (int c = 0; c < 8; ++c) {
        EXPECT_ROTATION(CoefOf(calc, 1, 0, 0, c), 0.6, "telescope 1 channel " << c);  // ref at ant2
        EXPECT_ROTATION(CoefOf(calc, 3, 0, 0, c), 0.5, "telescope 3 channel " << c);  // ref at ant1
        EXPECT_EQ(CoefOf(calc, 2, 0, 0, c), std::complex<float>(1.0f, 0.0f));
    }
    for (int t = 0; t < 3; ++t) EXPECT_EQ((*calc.counts[t])(0u, 0u, 3u), 1) << t;
    EXPECT_EQ(calc.stored.count, 0);  // nothing is stored
}

// Wrapped against unwrapped. A slope that wraps several times is fitted far better unwrapped: U is
// taken and the coefficients follow the slope. A spike that unwrapping turns into a lasting step of
// 2 pi is fitted better wrapped: W is taken and the line stays near the flat phase.
TEST(PhaseApprox, StraightLineChoosesWrappedOrUnwrapped) {
    const int nChan = 32;
    {
        APhaseInterval iv(1, nChan, {kRR}, {1, 2});
        iv.Add(
            1, 2, [](int, int c, int) { return 0.1 + 0.7 * c; }, 1.0);  // 3.5 turns
        ABPass_Ph_CS_Apr calc;
        calc.Init(iv.header, iv.antennas, 1);
        Items(calc, iv.header, {1, 2});
        ASSERT_TRUE(calc.Calculate(iv.vis, iv.groups, 1.0, 1.0));  // start = end: records as they are
        const double mid = (nChan - 1) * 0.5;
        for (int c = 0; c < nChan; ++c) {
            const double line = 0.1 + 0.7 * c + (0.1 + 0.7 * mid);
            EXPECT_ROTATION(CoefOf(calc, 1, 0, 0, c), line, "U, channel " << c);
        }
    }
    {
        // Zeros with a +2, -2 pair in the middle: unwrapped, the pair becomes 2, 4.28 and everything
        // after it 2 pi higher.
        APhaseInterval iv(1, nChan, {kRR}, {1, 2});
        iv.Add(
            1, 2, [](int, int c, int) { return c == 15   ? 2.0
                                               : c == 16 ? -2.0
                                                         : 0.0; }, 1.0);
        ABPass_Ph_CS_Apr calc;
        calc.Init(iv.header, iv.antennas, 1);
        Items(calc, iv.header, {1, 2});
        ASSERT_TRUE(calc.Calculate(iv.vis, iv.groups, 1.0, 1.0));
        std::vector<double> x, w;
        for (int c = 0; c < nChan; ++c) {
            x.push_back(c);
            w.push_back(iv.Measured(0, 0, c, 0));
        }
        long double a = 0, b = 0;
        Line(x, w, a, b);
        const double mid = (nChan - 1) * 0.5;
        for (int c = 0; c < nChan; ++c) {
            const double line = static_cast<double>(a + b * c + (a + b * mid));
            EXPECT_ROTATION(CoefOf(calc, 1, 0, 0, c), line, "W, channel " << c);
        }
    }
}

// Without telescope 2 there is no reference item: the lookup says so once, and nothing changes.
TEST(PhaseApprox, StraightLineWithoutTelescopeTwo) {
    APhaseInterval iv(1, 4, {kRR, kLL}, {1, 3});
    iv.Add(
        1, 3, [](int, int c, int) { return 0.1 * c; }, 1.0);
    ABPass_Ph_CS_Apr calc;
    calc.Init(iv.header, iv.antennas, 1);
    Items(calc, iv.header, {1, 3});
    MessageCapture messages;
    ASSERT_TRUE(calc.Calculate(iv.vis, iv.groups, 0.0, 2.0));
    EXPECT_EQ(messages.messages(), std::vector<std::string>{"Error GetTlscIndex 2"});
    EXPECT_EQ(CoefOf(calc, 1, 1, 0, 2), std::complex<float>(1.0f, 0.0f));
    EXPECT_EQ(CoefOf(calc, 3, 0, 0, 3), std::complex<float>(1.0f, 0.0f));
}

// RR and LL each get their own line; LL goes to polarisation index 1.
TEST(PhaseApprox, StraightLinePerHand) {
    APhaseInterval iv(2, 6, {kRR, kLL}, {2, 5});
    iv.Add(
        2, 5, [](int iIF, int, int s) { return s == 0 ? 0.1 + 0.05 * iIF : -0.3; }, 1.0);
    ABPass_Ph_CS_Apr calc;
    calc.Init(iv.header, iv.antennas, 1);
    Items(calc, iv.header, {2, 5});
    ASSERT_TRUE(calc.Calculate(iv.vis, iv.groups, 1.0, 1.0));
    for (int iIF = 0; iIF < 2; ++iIF)
        for (int c = 0; c < 6; ++c) {
            EXPECT_ROTATION(CoefOf(calc, 5, 0, iIF, c), -2 * (0.1 + 0.05 * iIF),
                            "RR IF " << iIF << " channel " << c);
            EXPECT_ROTATION(CoefOf(calc, 5, 1, iIF, c), -2 * -0.3, "LL IF " << iIF << " channel " << c);
        }
}

}  // namespace

namespace {

// Bad input is passed over without a write outside an item or a read outside a record: a caller's
// item of the wrong size keeps its values, a record of another shape than the header's is not read.
TEST(PhaseApprox, ItemsAndRecordsOfAnotherShapeArePassedOver) {
    APhaseInterval iv(1, 8, {kRR}, {1, 2, 3});
    iv.Add(
        1, 2, [](int, int, int) { return 0.3; }, 1.0);
    iv.Add(
        2, 3, [](int, int, int) { return 0.2; }, 1.0);
    ABPass_Ph_CS_Apr calc;
    calc.Init(iv.header, iv.antennas, 1);
    Items(calc, iv.header, {2, 3});
    auto* small = new ABPass_coef_item<std::complex<float>>();
    auto* smallCount = new ABPass_coef_item<int>();
    ASSERT_TRUE(small->Init(1, 1, 4));
    ASSERT_TRUE(smallCount->Init(1, 1, 4));
    small->Fill({5.0f, 0.0f});
    smallCount->ZeroFill();
    small->tlsc = smallCount->tlsc = 1;
    calc.coefs.Add(small);
    calc.counts.Add(smallCount);
    ASSERT_TRUE(calc.Calculate(iv.vis, iv.groups, 1.0, 1.0));
    for (int c = 0; c < 4; ++c) {
        EXPECT_EQ((*small)(0u, 0u, static_cast<unsigned>(c)), std::complex<float>(5.0f, 0.0f));
        EXPECT_EQ((*smallCount)(0u, 0u, static_cast<unsigned>(c)), 0);
    }
    EXPECT_ROTATION(CoefOf(calc, 3, 0, 0, 7), -0.4, "telescope 3");

    // A record with fewer channels than the header says: the polynomial calculator skips it, the
    // network solves refuse the interval.
    APhaseInterval bad(1, 8, {kRR}, {1, 2, 3});
    bad.Add(1, 2, [](int, int, int) { return 0.3; });
    bad.Add(1, 3, [](int, int, int) { return 0.3; });
    bad.Add(2, 3, [](int, int, int) { return 0.3; });
    delete bad.vis[1];
    bad.vis[1] = new AUVXVisibility(1, 4, 1);
    bad.Fresh();
    const auto before = bad.AllCoefs();
    ASSERT_TRUE(bad.bp.Calculate_PHA_CS_APR(bad.vis, bad.groups, 0, 0, 1, 1, false, true));
    EXPECT_EQ(bad.Coef(3, 0, 0, 0), std::complex<float>(1.0f, 0.0f));
    EXPECT_NE(bad.Coef(2, 0, 0, 0), std::complex<float>(1.0f, 0.0f));
    bad.Fresh();
    EXPECT_FALSE(bad.bp.Calculate_PH_CS_LMS1(bad.vis, bad.groups, 0, 0, 1));
    EXPECT_FALSE(bad.bp.Calculate_PH_CS_LMS(bad.vis, bad.groups, 0, 0, 1));
    EXPECT_EQ(bad.AllCoefs(), before);
}

}  // namespace
