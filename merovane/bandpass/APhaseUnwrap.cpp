// APhaseUnwrap: unwrapping of a phase series by the smallest of three candidate steps; the shared
// pieces of the phase calculators.
#include <merovane/bandpass/APhaseUnwrap.h>

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace {

constexpr double kTwoPi = 6.283185307179586;

// Four lanes of single precision: the width of the baseline vector unit, so that the vector code
// stays vector code on every x86-64; elsewhere the compiler splits it.
typedef float APhaseLanes __attribute__((vector_size(16)));
typedef std::int32_t APhaseMask __attribute__((vector_size(16)));
constexpr int kLanes = 4;

inline APhaseLanes Splat(float v) {
    return APhaseLanes{v, v, v, v};
}

// atan(u) / u as a polynomial in u^2 for |u| up to tan(pi/8): a least-squares fit on Chebyshev
// nodes, within 7e-9 of atan over that range, below the rounding of single precision.
constexpr float kAtan0 = 0.9999999818725112f, kAtan1 = -0.33332796935195336f, kAtan2 = 0.19974404785873354f,
                kAtan3 = -0.13851478426771513f, kAtan4 = 0.079849629110659f;

// atan2(y, x) in each lane; `special` marks the lanes of zeros, infinities and NaN, whose result is
// not to be used.
APhaseLanes Atan2Lanes(APhaseLanes y, APhaseLanes x, APhaseMask& special) {
    const APhaseMask sign = {INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN};
    const APhaseLanes ax = (APhaseLanes)((APhaseMask)x & ~sign), ay = (APhaseLanes)((APhaseMask)y & ~sign);
    const APhaseMask yBig = ay > ax;
    const APhaseLanes big = yBig ? ay : ax, small = yBig ? ax : ay;
    special = ~(big > Splat(0.0f)) | ~(big < Splat(HUGE_VALF)) | (small != small);
    // atan(small / big) in [0, pi/4] from atan(u), |u| <= tan(pi/8): above tan(pi/8) the ratio moves
    // by pi/4, u = (small - big) / (small + big). Lane selects, no branches: the quadrants of measured
    // phases are not predictable.
    const APhaseMask shift = small > Splat(0.41421356f) * big;
    const APhaseLanes u = (shift ? small - big : small) / (shift ? small + big : big);
    const APhaseLanes z = u * u, z2 = z * z;
    const APhaseLanes p =
        (Splat(kAtan0) + Splat(kAtan1) * z) + z2 * ((Splat(kAtan2) + Splat(kAtan3) * z) + z2 * Splat(kAtan4));
    APhaseLanes a = (shift ? Splat(0.78539816f) : Splat(0.0f)) + u * p;
    a = yBig ? Splat(1.57079633f) - a : a;
    a = x < Splat(0.0f) ? Splat(3.14159265f) - a : a;
    return (APhaseLanes)(((APhaseMask)a & ~sign) | ((APhaseMask)y & sign));
}

}  // namespace

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

void PhaseSpectrum(const AUVXVisibility& vis, int iIF, int iStokes, double* out, int outStride) {
    const AUVXComplex* e = vis.data + vis.Index(iIF, 0, iStokes);
    const int stride = vis.nStokes;
    for (int c0 = 0; c0 < vis.nChan; c0 += kLanes) {
        // A short last block repeats its last channel in the lanes beyond the spectrum.
        const int n = vis.nChan - c0 < kLanes ? vis.nChan - c0 : kLanes;
        APhaseLanes re, im;
        for (int i = 0; i < kLanes; ++i) {
            const AUVXComplex& v = e[static_cast<std::ptrdiff_t>(c0 + (i < n ? i : n - 1)) * stride];
            re[i] = v.re;
            im[i] = v.im;
        }
        APhaseMask special;
        const APhaseLanes a = Atan2Lanes(im, re, special);
        for (int i = 0; i < n; ++i) {
            const AUVXComplex& v = e[static_cast<std::ptrdiff_t>(c0 + i) * stride];
            out[static_cast<std::ptrdiff_t>(c0 + i) * outStride] = special[i] ? v.phase() : a[i];
        }
    }
}
