// QRVariantSSE41: the SSE4.1 variant of the QR kernels (dispatch index 4), sums and updates in packed pairs.
#include <merovane/numeric/QRVariants.h>

#include <smmintrin.h>

// Built for SSE4.1 only. This file defines the 128-bit register and its operations; the kernel bodies
// come from the shared include files, compiled here as this file's own copy with internal linkage. Only
// the entry points QRDecomposeSSE41, QRSolveSSE41, QRSolveLoopsSSE41, QRSolveManySSE41 and
// QRSolveManyLoopsSSE41 are visible outside.
#define MEROVANE_QR_VARIANT SSE41
#include <merovane/numeric/QRVariantBase.inc>

namespace {

using Vec = __m128d;
constexpr int kLanes = 2;

inline Vec vzero() {
    return _mm_setzero_pd();
}
inline Vec vset1(double a) {
    return _mm_set1_pd(a);
}
inline Vec vadd(Vec a, Vec b) {
    return _mm_add_pd(a, b);
}
inline Vec vsub(Vec a, Vec b) {
    return _mm_sub_pd(a, b);
}
inline Vec vmul(Vec a, Vec b) {
    return _mm_mul_pd(a, b);
}
inline Vec vdiv(Vec a, Vec b) {
    return _mm_div_pd(a, b);
}
inline Vec vload(const double* p) {
    return _mm_load_pd(p);
}
inline void vstore(double* p, Vec a) {
    _mm_store_pd(p, a);
}
inline Vec vloadu(const double* p) {
    return _mm_loadu_pd(p);
}
inline void vstoreu(double* p, Vec a) {
    _mm_storeu_pd(p, a);
}
// kLanes elements spaced `stride` bytes apart.
inline Vec vgather(const char* p, Index stride) {
    return _mm_loadh_pd(_mm_load_sd(reinterpret_cast<const double*>(p)),
                        reinterpret_cast<const double*>(p + stride));
}
inline void vscatter(char* p, Index stride, Vec a) {
    _mm_storel_pd(reinterpret_cast<double*>(p), a);
    _mm_storeh_pd(reinterpret_cast<double*>(p + stride), a);
}
// The two lanes summed.
inline double hsum(Vec a) {
    return _mm_cvtsd_f64(a) + _mm_cvtsd_f64(_mm_unpackhi_pd(a, a));
}

}  // namespace

#include <merovane/numeric/QRVariantPacked.inc>

#include <merovane/numeric/QRVariantEntries.inc>
