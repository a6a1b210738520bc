// QRVariantSSE41: the SSE4.1 variant of the QR kernels (dispatch index 4), sums and updates in packed pairs.
#include <merovane/numeric/QRVariants.h>

#include <smmintrin.h>

#include <cstddef>

// Everything here has internal linkage and is built for SSE4.1 only; no helper is shared with another
// variant.
//
// The factorisation works row by row: the sums of all trailing columns of a step advance together,
// kLanes columns to a register, each column's sum still running in row order. The single solve takes
// its sums in kLanes partial sums. QRSolveMany puts kLanes right-hand sides side by side in a
// register, so each one's arithmetic is exactly that of the loop solve; it applies reflector k - 1
// and sums for reflector k in one pass over the rows, and works in a stack scratch of at most
// kGroupScratch doubles (256 KiB). Heights too large for one group of kLanes take the single solve.

namespace {

using Index = std::ptrdiff_t;
using Vec = __m128d;
constexpr int kLanes = 2;
constexpr Index kGroupScratch = 32768;

// A column whose squared length left is below 2^-52 cannot be reflected.
constexpr double kMinSquaredLength = 2.220446049250313e-16;

inline double rd(const char* p) {
    return *reinterpret_cast<const double*>(p);
}
inline double& wr(char* p) {
    return *reinterpret_cast<double*>(p);
}

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

// kLanes consecutive elements of a row: one load in the contiguous path (C), element by element
// with the caller's stride otherwise.
template <bool C>
inline Vec loadRow(const char* p, Index s2) {
    if (C) return vloadu(reinterpret_cast<const double*>(p));
    return vgather(p, s2);
}
template <bool C>
inline void storeRow(char* p, Index s2, Vec a) {
    if (C)
        vstoreu(reinterpret_cast<double*>(p), a);
    else
        vscatter(p, s2, a);
}

template <bool C>
inline Index elementStride(Index stride) {
    return C ? Index(8) : stride;
}

// t[j] = beta x (a(k, j0 + j) + sum over i > k of a(i, j0 + j) x a(i, k)) for L x kLanes columns
// from j0, column k holding the reflector; each column's sum runs in row order.
template <int L, bool C>
void reflectorSums(const char* a, Index s1, Index s2, Index k, Index j0, Index h, double beta, double* t) {
    Vec acc[L];
    for (int l = 0; l < L; ++l) acc[l] = vzero();
    const char* vk = a + (k + 1) * s1 + k * s2;
    const char* row = a + (k + 1) * s1 + j0 * s2;
    for (Index i = k + 1; i < h; ++i, vk += s1, row += s1) {
        const Vec vi = vset1(rd(vk));
        for (int l = 0; l < L; ++l) acc[l] = vadd(acc[l], vmul(loadRow<C>(row + l * kLanes * s2, s2), vi));
    }
    const Vec vb = vset1(beta);
    const char* top = a + k * s1 + j0 * s2;
    for (int l = 0; l < L; ++l)
        vstoreu(t + l * kLanes, vmul(vb, vadd(loadRow<C>(top + l * kLanes * s2, s2), acc[l])));
}

template <bool C>
int decompose(const double* src, Index ss1, Index ss2, double* buf, double* dst, Index ds1, Index ds2,
              Index w, Index h) {
    ss2 = elementStride<C>(ss2);
    ds2 = elementStride<C>(ds2);
    const char* s = reinterpret_cast<const char*>(src);
    char* a = reinterpret_cast<char*>(dst);
    if (s != a || ss1 != ds1 || ss2 != ds2) {
        for (Index i = 0; i < h; ++i) {
            Index j = 0;
            for (; j + kLanes <= w; j += kLanes)
                storeRow<C>(a + i * ds1 + j * ds2, ds2, loadRow<C>(s + i * ss1 + j * ss2, ss2));
            for (; j < w; ++j) wr(a + i * ds1 + j * ds2) = rd(s + i * ss1 + j * ss2);
        }
    }
    auto A = [&](Index i, Index j) -> double& { return wr(a + i * ds1 + j * ds2); };

    const Index n = w == h ? w - 1 : w;
    for (Index k = 0; k < n; ++k) {
        double x = 0.0;
        for (Index i = k; i < h; ++i) x += A(i, k) * A(i, k);
        if (x < kMinSquaredLength) return -10;
        const double akk = A(k, k);
        const double root = __builtin_sqrt(x);
        const double scale = 1.0 / (akk + (akk > 0.0 ? root : -root));
        // The reflector goes straight to its place below the diagonal; column k's own sum is taken
        // on the way, from the elements it replaces.
        double sv = 0.0, dk = 0.0;
        for (Index i = k + 1; i < h; ++i) {
            const double e = A(i, k);
            const double vi = e * scale;
            sv += vi * vi;
            dk += e * vi;
            A(i, k) = vi;
        }
        const double beta = -2.0 / (1.0 + sv);
        A(k, k) = akk + beta * (akk + dk);

        // Trailing columns k + 1 .. w - 1: their t in buf[0 .. m - 1], then the rank-one update.
        const Index m = w - k - 1;
        Index j = 0;
        for (; j + 4 * kLanes <= m; j += 4 * kLanes)
            reflectorSums<4, C>(a, ds1, ds2, k, k + 1 + j, h, beta, buf + j);
        for (; j + kLanes <= m; j += kLanes) reflectorSums<1, C>(a, ds1, ds2, k, k + 1 + j, h, beta, buf + j);
        for (; j < m; ++j) {
            double d = 0.0;
            for (Index i = k + 1; i < h; ++i) d += A(i, k + 1 + j) * A(i, k);
            buf[j] = beta * (A(k, k + 1 + j) + d);
        }
        for (j = 0; j < m; ++j) A(k, k + 1 + j) += buf[j];
        for (Index i = k + 1; i < h; ++i) {
            const double vi = A(i, k);
            const Vec v4 = vset1(vi);
            char* row = a + i * ds1 + (k + 1) * ds2;
            Index jj = 0;
            for (; jj + kLanes <= m; jj += kLanes) {
                char* p = row + jj * ds2;
                storeRow<C>(p, ds2, vadd(loadRow<C>(p, ds2), vmul(v4, vloadu(buf + jj))));
            }
            for (; jj < m; ++jj) wr(row + jj * ds2) += vi * buf[jj];
        }
    }
    return 0;
}

// One right-hand side; w is the caller's buffer. Sums over a column of qr in kLanes partial sums.
template <bool C>
void solveLoops(const char* q, Index s1, Index s2, double* w, const char* b, Index bs, char* x, Index xs,
                Index width, Index h) {
    s2 = elementStride<C>(s2);
    bs = elementStride<C>(bs);
    xs = elementStride<C>(xs);
    auto Q = [&](Index i, Index j) { return rd(q + i * s1 + j * s2); };
    auto X = [&](Index j) -> double& { return wr(x + j * xs); };
    {
        Index i = 0;
        if (C)
            for (; i + kLanes <= h; i += kLanes)
                vstoreu(w + i, vloadu(reinterpret_cast<const double*>(b) + i));
        for (; i < h; ++i) w[i] = rd(b + i * bs);
    }
    const Index n = width == h ? width - 1 : width;
    for (Index k = 0; k < n; ++k) {
        const char* col = q + k * s2;
        Vec sv4 = vzero(), d4 = vzero();
        Index i = k + 1;
        for (; i + kLanes <= h; i += kLanes) {
            const Vec v = vgather(col + i * s1, s1);
            sv4 = vadd(sv4, vmul(v, v));
            d4 = vadd(d4, vmul(v, vloadu(w + i)));
        }
        double sv = hsum(sv4), d = hsum(d4);
        for (; i < h; ++i) {
            const double vi = rd(col + i * s1);
            sv += vi * vi;
            d += vi * w[i];
        }
        const double t = (-2.0 / (1.0 + sv)) * (w[k] + d);
        w[k] += t;
        const Vec t4 = vset1(t);
        for (i = k + 1; i + kLanes <= h; i += kLanes)
            vstoreu(w + i, vadd(vloadu(w + i), vmul(vgather(col + i * s1, s1), t4)));
        for (; i < h; ++i) w[i] += rd(col + i * s1) * t;
    }
    X(width - 1) = w[width - 1] / Q(width - 1, width - 1);
    for (Index j = width - 2; j >= 0; --j) {
        double s = 0.0;
        for (Index m = j + 1; m < width; ++m) s += Q(j, m) * X(m);
        X(j) = (w[j] - s) / Q(j, j);
    }
}

// Square N x N, N from 3 to 6, one right-hand side: all loops unrolled, w in registers, the buffer
// not touched.
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

// -2 / (1 + sum over i > k of qr(i, k) squared) for each reflector k < n, summed in row order as the
// loop solve does.
void reflectorScales(const char* q, Index s1, Index s2, Index n, Index h, double* beta) {
    for (Index k = 0; k < n; ++k) {
        double sv = 0.0;
        for (Index i = k + 1; i < h; ++i) {
            const double vi = rd(q + i * s1 + k * s2);
            sv += vi * vi;
        }
        beta[k] = -2.0 / (1.0 + sv);
    }
}

// Right-hand sides side by side: lane g of every register belongs to right-hand side first + g. W
// holds h rows of G = L x kLanes doubles; lanes beyond `lanes` carry zeros and are not stored.
template <int L, bool C>
void solveGroup(const char* q, Index s1, Index s2, const double* beta, const char* b, Index bs0, Index bs1,
                char* x, Index xs0, Index xs1, Index width, Index h, int lanes, double* W) {
    constexpr int G = L * kLanes;
    s2 = elementStride<C>(s2);
    bs1 = elementStride<C>(bs1);
    xs1 = elementStride<C>(xs1);
    for (int g = 0; g < G; ++g) {
        if (g < lanes) {
            const char* bg = b + g * bs0;
            for (Index i = 0; i < h; ++i) W[i * G + g] = rd(bg + i * bs1);
        } else {
            for (Index i = 0; i < h; ++i) W[i * G + g] = 0.0;
        }
    }
    auto row = [&](Index i) { return W + i * G; };
    auto Q = [&](Index i, Index j) { return rd(q + i * s1 + j * s2); };

    const Index n = width == h ? width - 1 : width;
    if (n > 0) {
        Vec t[L], S[L];
        for (int l = 0; l < L; ++l) S[l] = vzero();
        {
            const char* v = q + s1;
            for (Index i = 1; i < h; ++i, v += s1) {
                const Vec vi = vset1(rd(v));
                const double* wi = row(i);
                for (int l = 0; l < L; ++l) S[l] = vadd(S[l], vmul(vi, vload(wi + l * kLanes)));
            }
            const Vec b0 = vset1(beta[0]);
            for (int l = 0; l < L; ++l) t[l] = vmul(b0, vadd(vload(row(0) + l * kLanes), S[l]));
        }
        for (Index k = 1; k < n; ++k) {
            // Reflector k - 1 on rows k - 1 and k, then on each further row followed at once by that
            // row's term of reflector k's sum.
            const Vec vkk = vset1(Q(k, k - 1));
            double* wp = row(k - 1);
            double* wk = row(k);
            for (int l = 0; l < L; ++l) {
                vstore(wp + l * kLanes, vadd(vload(wp + l * kLanes), t[l]));
                vstore(wk + l * kLanes, vadd(vload(wk + l * kLanes), vmul(vkk, t[l])));
                S[l] = vzero();
            }
            const char* v = q + (k + 1) * s1 + (k - 1) * s2;
            for (Index i = k + 1; i < h; ++i, v += s1) {
                const Vec vp = vset1(rd(v));
                const Vec vc = vset1(rd(v + s2));
                double* wi = row(i);
                for (int l = 0; l < L; ++l) {
                    const Vec u = vadd(vload(wi + l * kLanes), vmul(vp, t[l]));
                    vstore(wi + l * kLanes, u);
                    S[l] = vadd(S[l], vmul(vc, u));
                }
            }
            const Vec bk = vset1(beta[k]);
            for (int l = 0; l < L; ++l) t[l] = vmul(bk, vadd(vload(wk + l * kLanes), S[l]));
        }
        // The last reflector matters only to the rows the back substitution reads.
        double* wl = row(n - 1);
        for (int l = 0; l < L; ++l) vstore(wl + l * kLanes, vadd(vload(wl + l * kLanes), t[l]));
        for (Index i = n; i < width; ++i) {
            const Vec vi = vset1(Q(i, n - 1));
            double* wi = row(i);
            for (int l = 0; l < L; ++l) vstore(wi + l * kLanes, vadd(vload(wi + l * kLanes), vmul(vi, t[l])));
        }
    }
    // Back substitution; x[j] replaces w[j] in the scratch.
    for (Index j = width - 1; j >= 0; --j) {
        Vec s[L];
        for (int l = 0; l < L; ++l) s[l] = vzero();
        for (Index m = j + 1; m < width; ++m) {
            const Vec qm = vset1(Q(j, m));
            const double* xm = row(m);
            for (int l = 0; l < L; ++l) s[l] = vadd(s[l], vmul(qm, vload(xm + l * kLanes)));
        }
        const Vec d = vset1(Q(j, j));
        double* wj = row(j);
        if (j == width - 1)
            for (int l = 0; l < L; ++l) vstore(wj + l * kLanes, vdiv(vload(wj + l * kLanes), d));
        else
            for (int l = 0; l < L; ++l) vstore(wj + l * kLanes, vdiv(vsub(vload(wj + l * kLanes), s[l]), d));
    }
    for (int g = 0; g < lanes; ++g) {
        char* xg = x + g * xs0;
        for (Index j = 0; j < width; ++j) wr(xg + j * xs1) = W[j * G + g];
    }
}

// Square N x N, N from 3 to 6, kLanes right-hand sides at a time: all loops unrolled, w in
// registers; lanes beyond `lanes` carry zeros and are not stored.
template <int N, bool C>
void solveSquareGroup(const char* q, Index s1, Index s2, const double* beta, const char* b, Index bs0,
                      Index bs1, char* x, Index xs0, Index xs1, int lanes) {
    s2 = elementStride<C>(s2);
    bs1 = elementStride<C>(bs1);
    xs1 = elementStride<C>(xs1);
    auto Q = [&](Index i, Index j) { return vset1(rd(q + i * s1 + j * s2)); };
    alignas(16) double in[N][kLanes];
#pragma GCC unroll 8
    for (int i = 0; i < N; ++i)
#pragma GCC unroll 4
        for (int g = 0; g < kLanes; ++g) in[i][g] = g < lanes ? rd(b + g * bs0 + i * bs1) : 0.0;
    Vec w[N];
#pragma GCC unroll 8
    for (int i = 0; i < N; ++i) w[i] = vload(in[i]);
#pragma GCC unroll 8
    for (int k = 0; k < N - 1; ++k) {
        Vec d = vzero();
#pragma GCC unroll 8
        for (int i = k + 1; i < N; ++i) d = vadd(d, vmul(Q(i, k), w[i]));
        const Vec t = vmul(vset1(beta[k]), vadd(w[k], d));
        w[k] = vadd(w[k], t);
#pragma GCC unroll 8
        for (int i = k + 1; i < N; ++i) w[i] = vadd(w[i], vmul(Q(i, k), t));
    }
    Vec r[N];
    r[N - 1] = vdiv(w[N - 1], Q(N - 1, N - 1));
#pragma GCC unroll 8
    for (int j = N - 2; j >= 0; --j) {
        Vec s = vzero();
#pragma GCC unroll 8
        for (int m = j + 1; m < N; ++m) s = vadd(s, vmul(Q(j, m), r[m]));
        r[j] = vdiv(vsub(w[j], s), Q(j, j));
    }
#pragma GCC unroll 8
    for (int j = 0; j < N; ++j) vstore(in[j], r[j]);
    for (int g = 0; g < lanes; ++g)
#pragma GCC unroll 8
        for (int j = 0; j < N; ++j) wr(x + g * xs0 + j * xs1) = in[j][g];
}

template <int N, bool C>
void solveSquareMany(const char* q, Index s1, Index s2, const char* b, Index bs0, Index bs1, char* x,
                     Index xs0, Index xs1, Index count) {
    double beta[N - 1];
    reflectorScales(q, s1, elementStride<C>(s2), N - 1, N, beta);
    for (Index c = 0; c < count; c += kLanes) {
        const int lanes = count - c < kLanes ? static_cast<int>(count - c) : kLanes;
        solveSquareGroup<N, C>(q, s1, s2, beta, b + c * bs0, bs0, bs1, x + c * xs0, xs0, xs1, lanes);
    }
}

template <int L, bool C>
void solveGroups(const char* q, Index s1, Index s2, const double* beta, const char* b, Index bs0, Index bs1,
                 char* x, Index xs0, Index xs1, Index width, Index h, Index count) {
    constexpr int G = L * kLanes;
    alignas(32) double W[kGroupScratch];
    for (Index c = 0; c < count; c += G) {
        const int lanes = count - c < G ? static_cast<int>(count - c) : G;
        solveGroup<L, C>(q, s1, s2, beta, b + c * bs0, bs0, bs1, x + c * xs0, xs0, xs1, width, h, lanes, W);
    }
}

template <bool C>
void solveMany(const char* q, Index s1, Index s2, double* buf, const char* b, Index bs0, Index bs1, char* x,
               Index xs0, Index xs1, Index width, Index h, Index count, bool squares) {
    if (squares && width == h) {
        switch (width) {
            case 3:
                solveSquareMany<3, C>(q, s1, s2, b, bs0, bs1, x, xs0, xs1, count);
                return;
            case 4:
                solveSquareMany<4, C>(q, s1, s2, b, bs0, bs1, x, xs0, xs1, count);
                return;
            case 5:
                solveSquareMany<5, C>(q, s1, s2, b, bs0, bs1, x, xs0, xs1, count);
                return;
            case 6:
                solveSquareMany<6, C>(q, s1, s2, b, bs0, bs1, x, xs0, xs1, count);
                return;
            default:
                break;
        }
    }
    if (h * kLanes > kGroupScratch) {
        for (Index c = 0; c < count; ++c)
            solveLoops<C>(q, s1, s2, buf, b + c * bs0, bs1, x + c * xs0, xs1, width, h);
        return;
    }
    const Index n = width == h ? width - 1 : width;
    reflectorScales(q, s1, elementStride<C>(s2), n, h, buf);
    if (count > 2 * kLanes && h * 4 * kLanes <= kGroupScratch)
        solveGroups<4, C>(q, s1, s2, buf, b, bs0, bs1, x, xs0, xs1, width, h, count);
    else if (count > kLanes && h * 2 * kLanes <= kGroupScratch)
        solveGroups<2, C>(q, s1, s2, buf, b, bs0, bs1, x, xs0, xs1, width, h, count);
    else
        solveGroups<1, C>(q, s1, s2, buf, b, bs0, bs1, x, xs0, xs1, width, h, count);
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

int QRDecomposeSSE41(const double* src, int ss1, int ss2, double* buffer, double* dst, int ds1, int ds2,
                     int width, int height) {
    const int status = QRCheckDecompose(src, ss1, ss2, buffer, dst, ds1, ds2, width, height);
    if (status != 0) return status;
    if (ss2 == 8 && ds2 == 8) return decompose<true>(src, ss1, ss2, buffer, dst, ds1, ds2, width, height);
    return decompose<false>(src, ss1, ss2, buffer, dst, ds1, ds2, width, height);
}

int QRSolveSSE41(const double* qr, int s1, int s2, double* buffer, const double* b, int bs, double* x, int xs,
                 int width, int height) {
    return solveEntry(qr, s1, s2, buffer, b, bs, x, xs, width, height, true);
}

int QRSolveLoopsSSE41(const double* qr, int s1, int s2, double* buffer, const double* b, int bs, double* x,
                      int xs, int width, int height) {
    return solveEntry(qr, s1, s2, buffer, b, bs, x, xs, width, height, false);
}

int QRSolveManySSE41(const double* qr, int s1, int s2, double* buffer, const double* b, int bs0, int bs1,
                     double* x, int xs0, int xs1, int width, int height, int count) {
    return solveManyEntry(qr, s1, s2, buffer, b, bs0, bs1, x, xs0, xs1, width, height, count, true);
}

int QRSolveManyLoopsSSE41(const double* qr, int s1, int s2, double* buffer, const double* b, int bs0, int bs1,
                          double* x, int xs0, int xs1, int width, int height, int count) {
    return solveManyEntry(qr, s1, s2, buffer, b, bs0, bs1, x, xs0, xs1, width, height, count, false);
}
