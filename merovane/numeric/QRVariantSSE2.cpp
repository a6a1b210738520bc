// QRVariantSSE2: the SSE2 variant of the QR kernels (dispatch indices 0 and 1).
#include <merovane/numeric/QRVariants.h>

#include <emmintrin.h>

#include <cstdint>

// The factorisation sums the squares of each reflector in packed pairs; everything else runs element
// by element in index order (the file is built without automatic vectorisation). The kernel bodies
// come from the shared include files, compiled here as this file's own copy with internal linkage; only
// the entry points QRDecomposeSSE2, QRSolveSSE2, QRSolveLoopsSSE2, QRSolveManySSE2 and
// QRSolveManyLoopsSSE2 are visible outside.
#define MEROVANE_QR_VARIANT SSE2
#include <merovane/numeric/QRVariantBase.inc>

namespace {

// Sum of p[i] squared for i in [0, n): scalar until p + i is 16-byte aligned, then blocks of 8
// doubles in packed pairs with two accumulators, then the rest scalar.
double packedSumSquares(const double* p, Index n) {
    double s = 0.0;
    Index i = 0;
    for (; i < n && (reinterpret_cast<std::uintptr_t>(p + i) & 15u) != 0; ++i) s += p[i] * p[i];
    if (i + 8 <= n) {
        __m128d a0 = _mm_setzero_pd(), a1 = _mm_setzero_pd();
        for (; i + 8 <= n; i += 8) {
            const __m128d x0 = _mm_load_pd(p + i), x1 = _mm_load_pd(p + i + 2);
            const __m128d x2 = _mm_load_pd(p + i + 4), x3 = _mm_load_pd(p + i + 6);
            a0 = _mm_add_pd(a0, _mm_mul_pd(x0, x0));
            a1 = _mm_add_pd(a1, _mm_mul_pd(x1, x1));
            a0 = _mm_add_pd(a0, _mm_mul_pd(x2, x2));
            a1 = _mm_add_pd(a1, _mm_mul_pd(x3, x3));
        }
        const __m128d a = _mm_add_pd(a0, a1);
        s += _mm_cvtsd_f64(a) + _mm_cvtsd_f64(_mm_unpackhi_pd(a, a));
    }
    for (; i < n; ++i) s += p[i] * p[i];
    return s;
}

// Sum of v[i] squared for i in [from, to), as the factorisation asks for it.
inline double sumSquares(const double* v, Index from, Index to) {
    return packedSumSquares(v + from, to - from);
}

}  // namespace

#include <merovane/numeric/QRVariantSerial.inc>

#include <merovane/numeric/QRVariantEntries.inc>
