// APhaseUnwrap: unwrapping of a phase series by the smallest of three candidate steps.
#include <merovane/bandpass/APhaseUnwrap.h>

#include <cmath>

namespace {
constexpr double kTwoPi = 6.283185307179586;
}

double APhaseUnwrap::Add(double phase) {
    if (fresh) {
        prev = phase;
        total = phase;
        fresh = false;
        return phase;
    }
    const double d = phase - prev;
    prev = phase;
    // Strict comparisons: a step of exactly pi keeps its sign instead of flipping to -pi.
    double best = d;
    if (std::fabs(d - kTwoPi) < std::fabs(best)) best = d - kTwoPi;
    if (std::fabs(d + kTwoPi) < std::fabs(best)) best = d + kTwoPi;
    total += best;
    return total;
}
