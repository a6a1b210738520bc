// APhaseUnwrap: unwrapping of a phase series by the smallest of three candidate steps; the shared
// pieces of the phase calculators.
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

int PhaseParallelIndex(int code, int nPol) {
    switch (code) {
        case -1:
        case -5:
            return 0;
        case -2:
        case -6:
            return nPol - 1;
        default:
            return -1;
    }
}

void PhaseRotate(std::complex<float>& coef, double angle) {
    const float c = static_cast<float>(std::cos(angle));
    const float s = static_cast<float>(std::sin(angle));
    const float re = coef.real(), im = coef.imag();
    coef = std::complex<float>(re * c - im * s, re * s + im * c);
}

bool PhaseRecordFits(const AUVXVisibility* vis, int nIF, int nChan, int nStokes) {
    if (vis == nullptr || nIF < 1 || nChan < 1 || nStokes < 1) return false;
    const int visIF = vis->nIF > 1 ? vis->nIF : 1;
    return visIF == nIF && vis->nChan == nChan && vis->nStokes == nStokes &&
           static_cast<long long>(vis->count) >= static_cast<long long>(nIF) * nChan * nStokes &&
           vis->data != nullptr;
}
