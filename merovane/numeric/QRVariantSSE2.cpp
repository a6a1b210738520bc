// QRVariantSSE2: the SSE2 variant of the QR kernels (dispatch indices 0 and 1).
#include <merovane/numeric/QRVariants.h>

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

// The factorisation sums the squares of each reflector in packed pairs; everything else runs element
// by element in index order (the file is built without automatic vectorisation). Everything here has
// internal linkage, so no helper is shared with another variant.

namespace {

using Index = std::ptrdiff_t;

// A column whose squared length left is below 2^-52 cannot be reflected.
constexpr double kMinSquaredLength = 2.220446049250313e-16;

inline double rd(const char* p) {
    return *reinterpret_cast<const double*>(p);
}
inline double& wr(char* p) {
    return *reinterpret_cast<double*>(p);
}

// The contiguous path (C) steps through elements with the constant stride 8; the general path with
// the caller's element strides. The arithmetic of the two is the same.
template <bool C>
inline Index elementStride(Index stride) {
    return C ? Index(8) : stride;
}

// Sum of p[i] squared for i in [0, n): scalar until p + i is 16-byte aligned, then blocks of 8
// doubles in packed pairs with two accumulators, then the rest scalar.
double sumSquares(const double* p, Index n) {
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

template <bool C>
int decompose(const double* src, Index ss1, Index ss2, double* v, double* dst, Index ds1, Index ds2, Index w,
              Index h) {
    ss2 = elementStride<C>(ss2);
    ds2 = elementStride<C>(ds2);
    const char* s = reinterpret_cast<const char*>(src);
    char* a = reinterpret_cast<char*>(dst);
    if (s != a || ss1 != ds1 || ss2 != ds2)
        for (Index i = 0; i < h; ++i)
            for (Index j = 0; j < w; ++j) wr(a + i * ds1 + j * ds2) = rd(s + i * ss1 + j * ss2);
    auto A = [&](Index i, Index j) -> double& { return wr(a + i * ds1 + j * ds2); };

    const Index n = w == h ? w - 1 : w;
    for (Index k = 0; k < n; ++k) {
        double x = 0.0;
        for (Index i = k; i < h; ++i) x += A(i, k) * A(i, k);
        if (x < kMinSquaredLength) return -10;
        const double root = __builtin_sqrt(x);
        const double sgn = A(k, k) > 0.0 ? root : -root;
        const double scale = 1.0 / (A(k, k) + sgn);
        v[k] = 1.0;
        for (Index i = k + 1; i < h; ++i) v[i] = A(i, k) * scale;
        const double sv = sumSquares(v + k + 1, h - k - 1);
        const double beta = -2.0 / (1.0 + sv);
        for (Index j = k; j < w; ++j) {
            double d = 0.0;
            for (Index i = k + 1; i < h; ++i) d += A(i, j) * v[i];
            const double t = beta * (A(k, j) + d);
            for (Index i = k; i < h; ++i) A(i, j) += v[i] * t;
        }
        for (Index i = k + 1; i < h; ++i) A(i, k) = v[i];
    }
    return 0;
}

// One right-hand side with the loops; w is the caller's buffer.
template <bool C>
void solveLoops(const char* q, Index s1, Index s2, double* w, const char* b, Index bs, char* x, Index xs,
                Index width, Index h) {
    s2 = elementStride<C>(s2);
    bs = elementStride<C>(bs);
    xs = elementStride<C>(xs);
    auto Q = [&](Index i, Index j) { return rd(q + i * s1 + j * s2); };
    auto X = [&](Index j) -> double& { return wr(x + j * xs); };
    for (Index i = 0; i < h; ++i) w[i] = rd(b + i * bs);
    const Index n = width == h ? width - 1 : width;
    for (Index k = 0; k < n; ++k) {
        double sv = 0.0, d = 0.0;
        for (Index i = k + 1; i < h; ++i) {
            const double vi = Q(i, k);
            sv += vi * vi;
            d += vi * w[i];
        }
        const double t = (-2.0 / (1.0 + sv)) * (w[k] + d);
        w[k] += t;
        for (Index i = k + 1; i < h; ++i) w[i] += Q(i, k) * t;
    }
    X(width - 1) = w[width - 1] / Q(width - 1, width - 1);
    for (Index j = width - 2; j >= 0; --j) {
        double s = 0.0;
        for (Index m = j + 1; m < width; ++m) s += Q(j, m) * X(m);
        X(j) = (w[j] - s) / Q(j, j);
    }
}

// Square N x N, N from 3 to 6: every loop has constant bounds and is unrolled completely, w and x
// stay in registers, the buffer is not touched.
template <int N, bool C>
void solveSquare(const char* q, Index s1, Index s2, const char* b, Index bs, char* x, Index xs) {
    s2 = elementStride<C>(s2);
    bs = elementStride<C>(bs);
    xs = elementStride<C>(xs);
    auto Q = [&](Index i, Index j) { return rd(q + i * s1 + j * s2); };
    double w[N];
#pragma GCC unroll 8
    for (int i = 0; i < N; ++i) w[i] = rd(b + i * bs);
#pragma GCC unroll 8
    for (int k = 0; k < N - 1; ++k) {
        double sv = 0.0, d = 0.0;
#pragma GCC unroll 8
        for (int i = k + 1; i < N; ++i) {
            const double vi = Q(i, k);
            sv += vi * vi;
            d += vi * w[i];
        }
        const double t = (-2.0 / (1.0 + sv)) * (w[k] + d);
        w[k] += t;
#pragma GCC unroll 8
        for (int i = k + 1; i < N; ++i) w[i] += Q(i, k) * t;
    }
    double r[N];
    r[N - 1] = w[N - 1] / Q(N - 1, N - 1);
#pragma GCC unroll 8
    for (int j = N - 2; j >= 0; --j) {
        double s = 0.0;
#pragma GCC unroll 8
        for (int m = j + 1; m < N; ++m) s += Q(j, m) * r[m];
        r[j] = (w[j] - s) / Q(j, j);
    }
#pragma GCC unroll 8
    for (int j = 0; j < N; ++j) wr(x + j * xs) = r[j];
}

// Runs the straight-line body when the matrix is square of size 3 to 6; false otherwise.
template <bool C>
bool solveSquareAny(const char* q, Index s1, Index s2, const char* b, Index bs, char* x, Index xs,
                    Index width, Index h) {
    if (width != h) return false;
    switch (width) {
        case 3:
            solveSquare<3, C>(q, s1, s2, b, bs, x, xs);
            return true;
        case 4:
            solveSquare<4, C>(q, s1, s2, b, bs, x, xs);
            return true;
        case 5:
            solveSquare<5, C>(q, s1, s2, b, bs, x, xs);
            return true;
        case 6:
            solveSquare<6, C>(q, s1, s2, b, bs, x, xs);
            return true;
        default:
            return false;
    }
}

template <bool C>
void solveMany(const char* q, Index s1, Index s2, double* w, const char* b, Index bs0, Index bs1, char* x,
               Index xs0, Index xs1, Index width, Index h, Index count, bool squares) {
    for (Index c = 0; c < count; ++c) {
        const char* bc = b + c * bs0;
        char* xc = x + c * xs0;
        if (squares && solveSquareAny<C>(q, s1, s2, bc, bs1, xc, xs1, width, h)) continue;
        solveLoops<C>(q, s1, s2, w, bc, bs1, xc, xs1, width, h);
    }
}

int solveEntry(const double* qr, int s1, int s2, double* buffer, const double* b, int bs, double* x, int xs,
               int width, int height, bool squares) {
    const int status = QRCheckSolve(qr, s1, s2, buffer, b, bs, x, xs, width, height);
    if (status != 0) return status;
    const char* q = reinterpret_cast<const char*>(qr);
    const char* bp = reinterpret_cast<const char*>(b);
    char* xp = reinterpret_cast<char*>(x);
    if (s2 == 8 && bs == 8 && xs == 8) {
        if (!squares || !solveSquareAny<true>(q, s1, s2, bp, bs, xp, xs, width, height))
            solveLoops<true>(q, s1, s2, buffer, bp, bs, xp, xs, width, height);
    } else {
        if (!squares || !solveSquareAny<false>(q, s1, s2, bp, bs, xp, xs, width, height))
            solveLoops<false>(q, s1, s2, buffer, bp, bs, xp, xs, width, height);
    }
    return 0;
}

int solveManyEntry(const double* qr, int s1, int s2, double* buffer, const double* b, int bs0, int bs1,
                   double* x, int xs0, int xs1, int width, int height, int count, bool squares) {
    const int status = QRCheckSolveMany(qr, s1, s2, buffer, b, bs0, bs1, x, xs0, xs1, width, height, count);
    if (status != 0) return status;
    const char* q = reinterpret_cast<const char*>(qr);
    const char* bp = reinterpret_cast<const char*>(b);
    char* xp = reinterpret_cast<char*>(x);
    if (s2 == 8 && bs1 == 8 && xs1 == 8)
        solveMany<true>(q, s1, s2, buffer, bp, bs0, bs1, xp, xs0, xs1, width, height, count, squares);
    else
        solveMany<false>(q, s1, s2, buffer, bp, bs0, bs1, xp, xs0, xs1, width, height, count, squares);
    return 0;
}

}  // namespace

int QRDecomposeSSE2(const double* src, int ss1, int ss2, double* buffer, double* dst, int ds1, int ds2,
                    int width, int height) {
    const int status = QRCheckDecompose(src, ss1, ss2, buffer, dst, ds1, ds2, width, height);
    if (status != 0) return status;
    if (ss2 == 8 && ds2 == 8) return decompose<true>(src, ss1, ss2, buffer, dst, ds1, ds2, width, height);
    return decompose<false>(src, ss1, ss2, buffer, dst, ds1, ds2, width, height);
}

int QRSolveSSE2(const double* qr, int s1, int s2, double* buffer, const double* b, int bs, double* x, int xs,
                int width, int height) {
    return solveEntry(qr, s1, s2, buffer, b, bs, x, xs, width, height, true);
}

int QRSolveLoopsSSE2(const double* qr, int s1, int s2, double* buffer, const double* b, int bs, double* x,
                     int xs, int width, int height) {
    return solveEntry(qr, s1, s2, buffer, b, bs, x, xs, width, height, false);
}

int QRSolveManySSE2(const double* qr, int s1, int s2, double* buffer, const double* b, int bs0, int bs1,
                    double* x, int xs0, int xs1, int width, int height, int count) {
    return solveManyEntry(qr, s1, s2, buffer, b, bs0, bs1, x, xs0, xs1, width, height, count, true);
}

int QRSolveManyLoopsSSE2(const double* qr, int s1, int s2, double* buffer, const double* b, int bs0, int bs1,
                         double* x, int xs0, int xs1, int width, int height, int count) {
    return solveManyEntry(qr, s1, s2, buffer, b, bs0, bs1, x, xs0, xs1, width, height, count, false);
}
