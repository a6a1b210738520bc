// QRVariantAVX: the AVX variant of the QR kernels (dispatch index 5), sums and updates in 256-bit registers.
#include <merovane/numeric/QRVariants.h>

#include <immintrin.h>

// Built for AVX only. This file defines the 256-bit register and its operations; the kernel bodies
// come from the shared include files, compiled here as this file's own copy with internal linkage. Only
// the entry points QRDecomposeAVX, QRSolveAVX, QRSolveLoopsAVX, QRSolveManyAVX and
// QRSolveManyLoopsAVX are visible outside.
#define MEROVANE_QR_VARIANT AVX
#include <merovane/numeric/QRVariantBase.inc>

namespace {

using Vec = __m256d;
constexpr int kLanes = 4;

inline Vec vzero() {
    return _mm256_setzero_pd();
}
inline Vec vset1(double a) {
    return _mm256_set1_pd(a);
}
inline Vec vadd(Vec a, Vec b) {
    return _mm256_add_pd(a, b);
}
inline Vec vsub(Vec a, Vec b) {
    return _mm256_sub_pd(a, b);
}
inline Vec vmul(Vec a, Vec b) {
    return _mm256_mul_pd(a, b);
}
inline Vec vdiv(Vec a, Vec b) {
    return _mm256_div_pd(a, b);
}
inline Vec vload(const double* p) {
    return _mm256_load_pd(p);
}
inline void vstore(double* p, Vec a) {
    _mm256_store_pd(p, a);
}
inline Vec vloadu(const double* p) {
    return _mm256_loadu_pd(p);
}
inline void vstoreu(double* p, Vec a) {
    _mm256_storeu_pd(p, a);
}
// kLanes elements spaced `stride` bytes apart.
inline Vec vgather(const char* p, Index stride) {
    return _mm256_set_pd(rd(p + 3 * stride), rd(p + 2 * stride), rd(p + stride), rd(p));
}
inline void vscatter(char* p, Index stride, Vec a) {
    alignas(32) double t[kLanes];
    _mm256_store_pd(t, a);
    wr(p) = t[0];
    wr(p + stride) = t[1];
    wr(p + 2 * stride) = t[2];
    wr(p + 3 * stride) = t[3];
}
// The lanes summed in pairs: (a0 + a1) + (a2 + a3).
inline double hsum(Vec a) {
    alignas(32) double t[kLanes];
    _mm256_store_pd(t, a);
    return (t[0] + t[1]) + (t[2] + t[3]);
}

}  // namespace

#include <merovane/numeric/QRVariantPacked.inc>

#include <merovane/numeric/QRVariantEntries.inc>
