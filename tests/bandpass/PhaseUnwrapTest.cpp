// APhaseUnwrap: the choice among the three candidate steps, the start of a series and long wrapped slopes.
#include <gtest/gtest.h>

#include <cmath>
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
