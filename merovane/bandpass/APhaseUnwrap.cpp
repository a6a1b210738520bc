// APhaseUnwrap: unwrapping of a phase series by the smallest of three candidate steps; the shared
// pieces of the phase calculators.
#include <merovane/bandpass/APhaseUnwrap.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

constexpr double kTwoPi = 6.283185307179586;

// Four lanes of single precision: the width of the baseline vector unit, so that the vector code
// stays vector code on every x86-64; elsewhere the compiler splits it. (Eight lanes in two registers
// were tried: the compiler's split of the wider type goes through memory and costs twice the time.)
constexpr int kLanes = 4;
typedef float APhaseLanes __attribute__((vector_size(4 * kLanes)));
typedef std::int32_t APhaseMask __attribute__((vector_size(4 * kLanes)));
typedef std::uint32_t APhaseBits __attribute__((vector_size(4 * kLanes)));

inline APhaseLanes Splat(float v) {
    APhaseLanes r;
    for (int i = 0; i < kLanes; ++i) r[i] = v;
    return r;
}

inline APhaseMask SplatInt(std::int32_t v) {
    APhaseMask r;
    for (int i = 0; i < kLanes; ++i) r[i] = v;
    return r;
}

// Lanes of `v` where `m` is set, +0 elsewhere.
inline APhaseLanes And(APhaseMask m, APhaseLanes v) {
    return (APhaseLanes)(m & (APhaseMask)v);
}

// The arctangent below is the C library's single-precision atan2 (the classic argument reduction to
// five intervals and an odd polynomial of eleven terms) taken lane by lane: the same constants, the
// same float operations in the same order, every branch turned into a lane select. Each operation is
// an IEEE operation of its own (no fused multiply-add: the project compiles with -ffp-contract=off),
// so every lane rounds exactly as the scalar code does, and the result equals AUVXComplex::phase()
// to the bit. The constants are written by their bits.
constexpr float kAT0 = 0x1.555556p-2f, kAT1 = -0x1.99999ap-3f, kAT2 = 0x1.24924ap-3f, kAT3 = -0x1.c71c7p-4f,
                kAT4 = 0x1.745cdcp-4f, kAT5 = -0x1.3b0f2ap-4f, kAT6 = 0x1.10d66ap-4f, kAT7 = -0x1.dde2d6p-5f,
                kAT8 = 0x1.97b4b2p-5f, kAT9 = -0x1.2b4442p-5f, kAT10 = 0x1.0ad3aep-6f;
// atan(0.5), atan(1), atan(1.5), atan(inf) split into a float and the float of the rest.
constexpr float kAtanHi0 = 0x1.dac67p-2f, kAtanHi1 = 0x1.921fb4p-1f, kAtanHi2 = 0x1.f730bcp-1f,
                kAtanHi3 = 0x1.921fb4p+0f;
constexpr float kAtanLo0 = 0x1.586ed2p-28f, kAtanLo1 = 0x1.4442dp-25f, kAtanLo2 = 0x1.281f68p-25f,
                kAtanLo3 = 0x1.4442dp-24f;
constexpr float kPiO4 = 0x1.921fb6p-1f, kPiO2 = 0x1.921fb6p+0f, kPi = 0x1.921fb6p+1f;
constexpr float kPiLo = -0x1.777a5cp-24f;  // pi - kPi
constexpr float kTiny = 0x1.4484cp-100f;   // added where the scalar code raises inexact

// Bit patterns of |t| at the interval edges of the reduction.
constexpr std::int32_t kBits7o16 = 0x3ee00000;   // 7/16
constexpr std::int32_t kBits11o16 = 0x3f300000;  // 11/16
constexpr std::int32_t kBits19o16 = 0x3f980000;  // 19/16
constexpr std::int32_t kBits39o16 = 0x401c0000;  // 39/16
constexpr std::int32_t kBitsHuge = 0x4c000000;   // 2^25: atan(t) is pi/2
constexpr std::int32_t kBitsInf = 0x7f800000;

// atan(t) for t >= 0 (not NaN) in each lane. The reduction of interval i, t' = (A t - B) / (B t + A),
// is written for all intervals at once: A t is exact for A in {0, 1, 2}, as are 0 t + 1 and t + 0,
// so each lane rounds only where the scalar form does. Below 7/16 the reduced value is t itself
// with hi = lo = 0, and hi - ((s - lo) - t) is then t - s, the scalar form of that interval; below
// 2^-29, where the scalar code returns t at once, s is too small to move t.
inline void AtanLanes(const APhaseLanes& t, APhaseLanes& result) {
    const APhaseMask it = (APhaseMask)t;
    const APhaseMask reduce = it >= SplatInt(kBits7o16), ge1 = it >= SplatInt(kBits11o16),
                     ge2 = it >= SplatInt(kBits19o16), ge3 = it >= SplatInt(kBits39o16);
    const APhaseMask in0 = reduce & ~ge1, in1 = ge1 & ~ge2, in2 = ge2 & ~ge3;
    const APhaseLanes one = Splat(1.0f);
    // Intervals -1, 0, 1, 2, 3: t, (2t - 1) / (t + 2), (t - 1) / (t + 1), (t - 1.5) / (1.5t + 1), -1 / t.
    const APhaseLanes a = And(~ge3, one) + And(in0, one);
    const APhaseLanes b = And(reduce, one) + And(in2, Splat(0.5f));
    const APhaseLanes hi =
        (APhaseLanes)((in0 & (APhaseMask)Splat(kAtanHi0)) | (in1 & (APhaseMask)Splat(kAtanHi1)) |
                      (in2 & (APhaseMask)Splat(kAtanHi2)) | (ge3 & (APhaseMask)Splat(kAtanHi3)));
    const APhaseLanes lo =
        (APhaseLanes)((in0 & (APhaseMask)Splat(kAtanLo0)) | (in1 & (APhaseMask)Splat(kAtanLo1)) |
                      (in2 & (APhaseMask)Splat(kAtanLo2)) | (ge3 & (APhaseMask)Splat(kAtanLo3)));
    const APhaseLanes x = (a * t - b) / (b * t + a);
    const APhaseLanes z = x * x, w = z * z;
    const APhaseLanes s1 =
        z *
        (Splat(kAT0) +
         w * (Splat(kAT2) + w * (Splat(kAT4) + w * (Splat(kAT6) + w * (Splat(kAT8) + w * Splat(kAT10))))));
    const APhaseLanes s2 =
        w * (Splat(kAT1) + w * (Splat(kAT3) + w * (Splat(kAT5) + w * (Splat(kAT7) + w * Splat(kAT9)))));
    const APhaseLanes r = hi - ((x * (s1 + s2) - lo) - x);
    result = it >= SplatInt(kBitsHuge) ? Splat(kAtanHi3 + kAtanLo3) : r;
}

// atan2(y, x) in each lane, equal to std::atan2(y, x) in float. Returns true if some lane holds a
// zero, an infinity or NaN; NaN lanes are marked in `nan` and their result is not to be used (the
// scalar code passes the NaN through by an addition, whose payload the caller takes from it).
inline bool Atan2Lanes(const APhaseLanes& y, const APhaseLanes& x, APhaseLanes& result, APhaseMask& nan) {
    const APhaseMask hx = (APhaseMask)x, hy = (APhaseMask)y;
    const APhaseMask magnitude = SplatInt(INT32_MAX), sign = ~magnitude;
    const APhaseMask ix = hx & magnitude, iy = hy & magnitude;
    const APhaseMask xNeg = hx < SplatInt(0);

    // The quotient's exponent decides whether the arctangent is needed at all: beyond 2^60 the angle
    // is pi/2, below 2^-60 with x negative it is 0 before the quadrant.
    const APhaseMask k = (iy - ix) >> 23;
    APhaseLanes z;
    AtanLanes((APhaseLanes)iy / (APhaseLanes)ix, z);
    z = (xNeg & (k < SplatInt(-60))) ? Splat(0.0f) : z;
    z = k > SplatInt(60) ? Splat(kPiO2 + 0.5f * kPiLo) : z;
    // Quadrants: (+, +) z, (-, +) -z, (+, -) pi - (z - pi_lo), (-, -) (z - pi_lo) - pi; the last is
    // exactly the negative of the third.
    const APhaseLanes right = xNeg ? Splat(kPi) - (z - Splat(kPiLo)) : z;
    result = (APhaseLanes)((APhaseMask)right ^ (hy & sign));

    // Zeros, infinities and NaN: a magnitude of 0 or from infinity up, as unsigned (m - 1) beyond
    // the largest finite.
    const APhaseBits largest = (APhaseBits)SplatInt(0x7f7ffffe);
    const APhaseMask special = ((APhaseBits)(ix - 1) > largest) | ((APhaseBits)(iy - 1) > largest);
    bool any = false;
    for (int i = 0; i < kLanes; ++i) any |= special[i] != 0;
    if (!any) return false;

    // The rules in the reverse of the order in which the scalar code tests them, each later one
    // overriding the earlier. Its shortcut for x = 1, atan(y) at once, gives what the general path
    // gives, so it needs no rule of its own.
    const APhaseMask inf = SplatInt(kBitsInf), yNeg = hy < SplatInt(0);
    nan = (ix > inf) | (iy > inf);
    const APhaseLanes halfPi = yNeg ? Splat(-kPiO2 - kTiny) : Splat(kPiO2 + kTiny);
    const APhaseLanes onAxis =
        xNeg ? (yNeg ? Splat(-kPi - kTiny) : Splat(kPi + kTiny)) : (yNeg ? Splat(-0.0f) : Splat(0.0f));
    const APhaseLanes bothInf = xNeg ? (yNeg ? Splat(-3.0f * kPiO4 - kTiny) : Splat(3.0f * kPiO4 + kTiny))
                                     : (yNeg ? Splat(-kPiO4 - kTiny) : Splat(kPiO4 + kTiny));
    APhaseLanes r = iy == inf ? halfPi : result;
    r = ix == inf ? (iy == inf ? bothInf : onAxis) : r;
    r = ix == SplatInt(0) ? halfPi : r;
    result = iy == SplatInt(0) ? (xNeg ? onAxis : y) : r;
    return true;
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
    const std::ptrdiff_t stride = vis.nStokes;
    typedef double APhasePairs __attribute__((vector_size(16)));
    const APhaseMask realPick = {0, 2, 4, 6}, imagPick = {1, 3, 5, 7};
    for (int c0 = 0; c0 < vis.nChan; c0 += kLanes) {
        // A short last block repeats its last channel in the lanes beyond the spectrum.
        const int n = vis.nChan - c0 < kLanes ? vis.nChan - c0 : kLanes;
        // Each element's real and imaginary part moved as one 8-byte unit, then parted.
        double pair[kLanes];
        for (int i = 0; i < kLanes; ++i)
            std::memcpy(&pair[i], &e[(c0 + (i < n ? i : n - 1)) * stride], sizeof pair[i]);
        const APhasePairs low = {pair[0], pair[1]}, high = {pair[2], pair[3]};
        const APhaseLanes re = __builtin_shuffle((APhaseLanes)low, (APhaseLanes)high, realPick),
                          im = __builtin_shuffle((APhaseLanes)low, (APhaseLanes)high, imagPick);
        APhaseLanes a;
        APhaseMask nan;
        if (Atan2Lanes(im, re, a, nan)) {
            for (int i = 0; i < n; ++i)
                out[(c0 + i) * static_cast<std::ptrdiff_t>(outStride)] =
                    nan[i] ? e[(c0 + i) * stride].phase() : a[i];
            continue;
        }
        for (int i = 0; i < n; ++i) out[(c0 + i) * static_cast<std::ptrdiff_t>(outStride)] = a[i];
    }
}
