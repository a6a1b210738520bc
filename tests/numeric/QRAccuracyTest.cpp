// The QR kernels against LAPACK on the shapes of the phase bandpass, against their own loops and against the
// factors they claim.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "QRTestSupport.h"

namespace {

using QRAccuracyTest = AQRVariantTest;

// The ways a test lays out its operands: dense row-major, contiguous elements with padded rows and
// batches, strided elements everywhere (the general path), and column-major with the right-hand
// sides interleaved (general path, row strides below element strides).
enum Layout { Dense, Padded, General, ColumnMajor };
const char* const kLayoutName[] = {"dense", "padded", "general", "column-major"};

// Byte strides for an h x w problem with `count` right-hand sides: matrix (a1, a2), right-hand sides
// (b0 batch, b1 element), solutions (x0 batch, x1 element).
struct AStrides {
    int a1, a2, b0, b1, x0, x1;
};

// An h x w problem with `count` right-hand sides laid out as l: the matrix a in qr, the right-hand
// sides (b holds them one after the other) in bs, and a sentinel-filled store for the solutions.
struct AProblem {
    int h, w, count;
    AStrides s;
    std::vector<double> a, b;
    AStrided qr, bs, xs;
    int solveMany(QRSolveManyFn f, double* buf) {
        return f(qr.base(), s.a1, s.a2, buf, bs.base(), s.b0, s.b1, xs.base(), s.x0, s.x1, w, h, count);
    }
};

AProblem makeProblem(std::mt19937_64& rng, int h, int w, int n, Layout l) {
    const AStrides all[] = {{w * 8, 8, h * 8, 8, w * 8, 8},
                            {(w + 3) * 8, 8, (h + 1) * 8, 8, (w + 2) * 8, 8},
                            {(2 * w + 1) * 8, 16, 8, n * 8, 8, (n + 1) * 8},
                            {8, h * 8, 8, n * 8, 8, n * 8}};
    const AStrides s = all[l];
    AProblem p{h,
               w,
               n,
               s,
               RandomMatrix(rng, h, w),
               RandomValues(rng, n * h),
               AStrided(h, w, s.a1, s.a2),
               AStrided(n, h, s.b0, s.b1),
               AStrided(n, w, s.x0, s.x1)};
    for (int i = 0; i < h; ++i)
        for (int j = 0; j < w; ++j) p.qr.at(i, j) = p.a[i * w + j];
    for (int c = 0; c < n; ++c)
        for (int i = 0; i < h; ++i) p.bs.at(c, i) = p.b[c * h + i];
    return p;
}

#if defined(MEROVANE_HAVE_LAPACK)
// Decompose (to a second matrix and in place), QRSolve per right-hand side and QRSolveMany over all of
// them, checked against dgels and against each other.
void checkAgainstLapack(const AVariantUnderTest& v, std::mt19937_64& rng, int h, int w, int count, Layout l) {
    SCOPED_TRACE(std::string(v.name) + " " + std::to_string(h) + "x" + std::to_string(w) + " " +
                 kLayoutName[l] + " count " + std::to_string(count));
    AProblem p = makeProblem(rng, h, w, count, l);
    const std::vector<double> ref = ReferenceSolve(p.a, h, w, p.b, count);
    ASSERT_FALSE(ref.empty()) << "dgels failed";
    AStrided src = p.qr;
    std::fill(p.qr.store.begin(), p.qr.store.end(), kSentinel);
    std::vector<double> buf(h);
    ASSERT_EQ(v.decompose(src.base(), p.s.a1, p.s.a2, buf.data(), p.qr.base(), p.s.a1, p.s.a2, w, h),
              QRStatusOk);
    EXPECT_EQ(p.qr.touchedOutside(), 0);
    ASSERT_EQ(v.decompose(src.base(), p.s.a1, p.s.a2, buf.data(), src.base(), p.s.a1, p.s.a2, w, h),
              QRStatusOk);
    EXPECT_EQ(src.store, p.qr.store) << "in place differs from a second matrix";

    const std::vector<double> bBefore = p.bs.store;
    ASSERT_EQ(p.solveMany(v.solveMany, buf.data()), QRStatusOk);
    EXPECT_EQ(p.bs.store, bBefore) << "b changed";
    EXPECT_EQ(p.xs.touchedOutside(), 0);
    const bool strided = l == General || l == ColumnMajor;
    const int bStride = strided ? 24 : 8, xStride = strided ? 16 : 8;
    for (int c = 0; c < count; ++c) {
        // QRSolve with the element strides of this layout.
        AStrided b1(h, 1, bStride, 8), x1(w, 1, xStride, 8);
        for (int i = 0; i < h; ++i) b1.at(i, 0) = p.b[c * h + i];
        ASSERT_EQ(
            v.solve(p.qr.base(), p.s.a1, p.s.a2, buf.data(), b1.base(), bStride, x1.base(), xStride, w, h),
            QRStatusOk);
        EXPECT_EQ(x1.touchedOutside(), 0);
        double scale = 1.0;
        for (int j = 0; j < w; ++j) scale = std::max(scale, std::fabs(ref[c * w + j]));
        for (int j = 0; j < w; ++j) {
            const double one = x1.at(j, 0), many = p.xs.at(c, j);
            EXPECT_NEAR(one, ref[c * w + j], 1e-10 * scale) << "QRSolve rhs " << c << " x" << j;
            EXPECT_NEAR(many, ref[c * w + j], 1e-10 * scale) << "QRSolveMany rhs " << c << " x" << j;
            // QRSolveMany gives each right-hand side what QRSolve gives it, to the bit, whatever the
            // grouping.
            EXPECT_EQ(many, one) << "rhs " << c << " x" << j;
        }
    }
}

TEST_P(QRAccuracyTest, MatchesLapackOnBandpassShapes) {
    std::mt19937_64 rng(20260101);
    // (rows, columns): the baselines and unknowns of 2 to 10 telescopes and the larger arrays, and a
    // few in between.
    const std::pair<int, int> shapes[] = {{1, 1},  {2, 1},  {2, 2},  {3, 2},   {3, 3},  {4, 4},
                                          {5, 5},  {6, 6},  {6, 5},  {7, 3},   {10, 4}, {15, 5},
                                          {21, 6}, {36, 8}, {45, 9}, {105, 14}};
    for (auto [h, w] : shapes)
        for (Layout l : {Dense, Padded, General, ColumnMajor})
            for (int count : {1, 3, 11}) checkAgainstLapack(GetParam(), rng, h, w, count, l);
    // Counts on both sides of every group size of right-hand sides the vector variants use.
    for (auto [h, w] : {std::pair<int, int>{45, 9}, {7, 7}, {12, 1}})
        for (int count : {2, 4, 5, 8, 9, 17, 37}) checkAgainstLapack(GetParam(), rng, h, w, count, Dense);
    checkAgainstLapack(GetParam(), rng, 190, 19, 21, Dense);
    checkAgainstLapack(GetParam(), rng, 190, 19, 6, General);
    checkAgainstLapack(GetParam(), rng, 190, 19, 5, ColumnMajor);
    checkAgainstLapack(GetParam(), rng, 2016, 63, 9, Dense);
    checkAgainstLapack(GetParam(), rng, 2016, 63, 2, General);
    // Taller than the vector variants' group scratch holds, and tall enough for the smaller groups only.
    checkAgainstLapack(GetParam(), rng, 8200, 2, 3, Dense);
    checkAgainstLapack(GetParam(), rng, 3000, 3, 20, Padded);
}
#endif

// The straight-line bodies of square sizes 3 to 6 give the loops' results up to rounding.
TEST_P(QRAccuracyTest, SquareBodiesMatchLoops) {
    const AVariantUnderTest& v = GetParam();
    std::mt19937_64 rng(99);
    for (int n = 3; n <= 6; ++n)
        for (Layout l : {Dense, General}) {
            SCOPED_TRACE(std::to_string(n) + " " + kLayoutName[l]);
            AProblem body = makeProblem(rng, n, n, 7, l);
            std::vector<double> buf(n);
            const AStrides& s = body.s;
            ASSERT_EQ(v.decompose(body.qr.base(), s.a1, s.a2, buf.data(), body.qr.base(), s.a1, s.a2, n, n),
                      QRStatusOk);
            AProblem loops = body;
            ASSERT_EQ(body.solveMany(v.solveMany, buf.data()), QRStatusOk);
            ASSERT_EQ(loops.solveMany(v.solveManyLoops, buf.data()), QRStatusOk);
            for (int c = 0; c < 7; ++c) {
                // Single solves with the element strides of the layout.
                AStrided one(n, 1, s.x1, 8), oneLoops = one;
                const double* bc = &body.bs.at(c, 0);
                ASSERT_EQ(v.solve(body.qr.base(), s.a1, s.a2, buf.data(), bc, s.b1, one.base(), s.x1, n, n),
                          QRStatusOk);
                ASSERT_EQ(v.solveLoops(body.qr.base(), s.a1, s.a2, buf.data(), bc, s.b1, oneLoops.base(),
                                       s.x1, n, n),
                          QRStatusOk);
                for (int j = 0; j < n; ++j) {
                    const double expected = loops.xs.at(c, j), tol = 1e-12 * (1.0 + std::fabs(expected));
                    EXPECT_NE(expected, 0.0);
                    EXPECT_NE(expected, kSentinel);
                    EXPECT_NEAR(body.xs.at(c, j), expected, tol);
                    EXPECT_NEAR(one.at(j, 0), expected, tol);
                    EXPECT_NEAR(oneLoops.at(j, 0), expected, tol);
                }
            }
        }
}

// The factors rebuild the matrix: A = H0 H1 ... Hn-1 R with Hk = I - 2 v v' / (v' v), v[k] = 1 and
// v below the diagonal of column k, R the upper triangle. Computed here in long double. All variants
// factor alike up to rounding, so each is held to the scalar one (the SSE2 one for the scalar one) too.
TEST_P(QRAccuracyTest, FactorsRebuildTheMatrix) {
    const AVariantUnderTest& v = GetParam();
    std::mt19937_64 rng(5);
    for (auto [h, w] : {std::pair<int, int>{5, 3}, {6, 6}, {45, 9}, {64, 17}, {190, 19}}) {
        SCOPED_TRACE(std::to_string(h) + "x" + std::to_string(w));
        const std::vector<double> a = RandomMatrix(rng, h, w);
        std::vector<double> qr(a.size()), alike(a.size()), buf(h);
        ASSERT_EQ(v.decompose(a.data(), w * 8, 8, buf.data(), qr.data(), w * 8, 8, w, h), QRStatusOk);
        const QRDecomposeFn other = v.decompose == QRDecomposeScalar ? QRDecomposeSSE2 : QRDecomposeScalar;
        ASSERT_EQ(other(a.data(), w * 8, 8, buf.data(), alike.data(), w * 8, 8, w, h), QRStatusOk);
        for (std::size_t i = 0; i < qr.size(); ++i)
            ASSERT_NEAR(qr[i], alike[i], 1e-12 * (1.0 + std::fabs(alike[i]))) << "element " << i;
        std::vector<long double> m(a.size(), 0.0L);
        for (int i = 0; i < h; ++i)
            for (int j = i; j < w; ++j) m[i * w + j] = qr[i * w + j];
        for (int k = (w == h ? w - 1 : w) - 1; k >= 0; --k) {
            std::vector<long double> vk(h, 0.0L);
            vk[k] = 1.0L;
            long double vv = 1.0L;
            for (int i = k + 1; i < h; ++i) {
                vk[i] = qr[i * w + k];
                vv += vk[i] * vk[i];
            }
            for (int j = 0; j < w; ++j) {
                long double d = 0.0L;
                for (int i = k; i < h; ++i) d += vk[i] * m[i * w + j];
                for (int i = k; i < h; ++i) m[i * w + j] -= 2.0L * vk[i] * d / vv;
            }
        }
        for (int i = 0; i < h; ++i)
            for (int j = 0; j < w; ++j)
                EXPECT_NEAR(static_cast<double>(m[i * w + j]), a[i * w + j], 1e-12 * w) << i << "," << j;
    }
}

INSTANTIATE_TEST_SUITE_P(Variants, QRAccuracyTest, ::testing::ValuesIn(AllVariants()), VariantName);

}  // namespace
