// APhaseUnwrap: the choice among the three candidate steps, the start of a series and long wrapped slopes;
// the vector phase of a spectrum.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <merovane/bandpass/APhaseUnwrap.h>

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kTwoPi = 6.283185307179586;

std::vector<double> Unwrapped(const std::vector<double>& raw) {
    APhaseUnwrap u;
    std::vector<double> out;
    for (double p : raw) out.push_back(u.Add(p));
    return out;
}

struct AUnwrapCase {
    const char* name;
    std::vector<double> raw;
    std::vector<double> expected;  // compared exactly: each is one sum of the steps chosen
};

TEST(PhaseUnwrap, ChoosesTheSmallestOfThreeStepsExactly) {
    const AUnwrapCase cases[] = {
        {"first phase unchanged", {-2.5}, {-2.5}},
        {"3 then -3 becomes a small positive step", {3.0, -3.0}, {3.0, 3.0 + (-6.0 + kTwoPi)}},
        {"-3 then 3 becomes a small negative step", {-3.0, 3.0}, {-3.0, -3.0 + (6.0 - kTwoPi)}},
        // Exactly pi and -pi stay: the alternatives are as long, not shorter.
        {"steps of exactly pi and -pi stay", {0.0, kPi, 0.0, -kPi}, {0.0, kPi, 0.0, -kPi}},
        {"step just above pi goes down", {0.0, kPi + 0.25}, {0.0, (kPi + 0.25) - kTwoPi}},
        {"step just below -pi goes up", {0.0, -kPi - 0.25}, {0.0, (-kPi - 0.25) + kTwoPi}},
        // Only one turn is taken off a step, however large: 10 becomes 10 - 2 pi, not 10 - 4 pi.
        {"a step of 10 loses one turn only", {0.0, 10.0}, {0.0, 10.0 - kTwoPi}},
        {"a step of -10 gains one turn only", {0.0, -10.0}, {0.0, -10.0 + kTwoPi}},
        {"small steps are kept as they are",
         {0.1, 0.4, -0.2},
         {0.1, 0.1 + (0.4 - 0.1), 0.1 + (0.4 - 0.1) + (-0.2 - 0.4)}},
    };
    for (const AUnwrapCase& c : cases) {
        const std::vector<double> got = Unwrapped(c.raw);
        ASSERT_EQ(got.size(), c.expected.size()) << c.name;
        for (std::size_t i = 0; i < got.size(); ++i)
            EXPECT_EQ(got[i], c.expected[i]) << c.name << " at " << i;
    }
}

TEST(PhaseUnwrap, KeepsPrevAndTotal) {
    APhaseUnwrap u;
    EXPECT_TRUE(u.fresh);
    u.Add(3.0);
    EXPECT_FALSE(u.fresh);
    EXPECT_EQ(u.prev, 3.0);
    EXPECT_EQ(u.total, 3.0);
    u.Add(-3.0);
    // prev is the raw phase, total the unwrapped one.
    EXPECT_EQ(u.prev, -3.0);
    EXPECT_EQ(u.total, 3.0 + (-6.0 + kTwoPi));
}

TEST(PhaseUnwrap, FreshStartsANewSeriesWithoutTheOldTotal) {
    APhaseUnwrap u;
    for (double p : {1.0, 3.0, -1.5, 1.0}) u.Add(p);  // 1, 3, 4.78, 7.28: more than a turn
    EXPECT_GT(u.total, 7.0);
    u.fresh = true;
    EXPECT_EQ(u.Add(-1.0), -1.0);
    EXPECT_EQ(u.Add(-1.5), -1.5);
}

// Wrapped straight slopes of several turns, rising and falling, come back as the straight lines.
TEST(PhaseUnwrap, RestoresSlopesOfSeveralTurns) {
    for (double slope : {0.9, -0.9, 2.5, -2.5, 3.1}) {
        APhaseUnwrap u;
        const double offset = 0.3;
        for (int c = 0; c < 64; ++c) {
            const double truth = offset + slope * c;
            const double raw = std::atan2(std::sin(truth), std::cos(truth));
            EXPECT_NEAR(u.Add(raw), truth, 1e-9) << "slope " << slope << " channel " << c;
        }
    }
}

}  // namespace

namespace {

// The vector phase of a spectrum: within 3e-7 rad of the exact angle for values of every size and
// quadrant, within two float places of AUVXComplex::phase(), exactly phase() on zeros, infinities and
// NaN, and every channel written at its stride, also in a short last block.
TEST(PhaseSpectrum, AgreesWithTheExactAngleAndPhase) {
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<AUVXComplex> specials = {
        {0.0f, 0.0f, 1},   {-0.0f, 0.0f, 1}, {0.0f, -0.0f, 1},    {-0.0f, -0.0f, 1},  {inf, 1.0f, 1},
        {1.0f, inf, 1},    {-inf, -inf, 1},  {nan, 1.0f, 1},      {1.0f, nan, 1},     {-1.0f, 0.0f, 1},
        {-1.0f, -0.0f, 1}, {0.0f, -2.0f, 1}, {1e-40f, 1e-40f, 1}, {-3e38f, 1e-45f, 1}};
    std::mt19937_64 rng(5);
    std::uniform_real_distribution<double> angle(-kPi, kPi), logMag(-30.0, 30.0);
    std::vector<AUVXComplex> values = specials;
    for (int i = 0; i < 20000; ++i) {
        const double a = angle(rng), m = std::exp(logMag(rng));
        values.push_back({static_cast<float>(m * std::cos(a)), static_cast<float>(m * std::sin(a)), 1});
    }
    values.push_back({1.0f, 0.41421356f, 1});  // the edge of the reduction
    values.push_back({1.0f, 1.0f, 1});
    values.push_back({-2.5f, 1e-3f, 1});
    const int nChan = static_cast<int>(values.size());  // not a multiple of 4
    ASSERT_NE(nChan % 4, 0);
    // Two products: the spectrum of product 1 lies between those of product 0.
    AUVXVisibility vis(1, nChan, 2);
    for (int c = 0; c < nChan; ++c) {
        vis.At(0, c, 0) = {7.0f, -7.0f, 1};
        vis.At(0, c, 1) = values[static_cast<std::size_t>(c)];
    }
    std::vector<double> out(static_cast<std::size_t>(nChan) * 3, 99.0);
    PhaseSpectrum(vis, 0, 1, out.data(), 3);
    double worstExact = 0, worstPhase = 0;
    for (int c = 0; c < nChan; ++c) {
        const AUVXComplex& v = vis.At(0, c, 1);
        const double got = out[static_cast<std::size_t>(c) * 3];
        EXPECT_EQ(out[static_cast<std::size_t>(c) * 3 + 1], 99.0);
        EXPECT_EQ(out[static_cast<std::size_t>(c) * 3 + 2], 99.0);
        if (c < static_cast<int>(specials.size())) {
            const double want = v.phase();
            if (std::isnan(want)) {
                EXPECT_TRUE(std::isnan(got)) << c;
            } else {
                EXPECT_EQ(got, want) << c;
                EXPECT_EQ(std::signbit(got), std::signbit(want)) << c;
            }
            continue;
        }
        worstExact = std::max(
            worstExact, std::fabs(got - std::atan2(static_cast<double>(v.im), static_cast<double>(v.re))));
        worstPhase = std::max(worstPhase, std::fabs(got - static_cast<double>(v.phase())));
    }
    EXPECT_LT(worstExact, 3e-7);
    EXPECT_LT(worstPhase, 5e-7);
}

}  // namespace
