// The QR kernels against LAPACK on the shapes of the phase bandpass, against their own loops and against each
// other.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "QRTestSupport.h"

namespace {

// The ways a test lays out its operands: dense row-major, contiguous elements with padded rows and
// batches, strided elements everywhere (the general path), and column-major with the right-hand
// sides interleaved (general path, row strides below element strides).
enum class Layout { Dense, Padded, General, ColumnMajor };

const char* layoutName(Layout l) {
    switch (l) {
        case Layout::Dense:
            return "dense";
        case Layout::Padded:
            return "padded";
        case Layout::General:
            return "general";
        case Layout::ColumnMajor:
            return "column-major";
    }
    return "";
}

// Strides for an h x w problem with `count` right-hand sides.
struct AStrides {
    int a1, a2;  // matrix
    int b0, b1;  // right-hand sides: batch, element
    int x0, x1;  // solutions: batch, element
};

AStrides stridesFor(Layout l, int h, int w, int count) {
    switch (l) {
        case Layout::Dense:
            return {w * 8, 8, h * 8, 8, w * 8, 8};
        case Layout::Padded:
            return {(w + 3) * 8, 8, (h + 1) * 8, 8, (w + 2) * 8, 8};
        case Layout::General:
            return {(2 * w + 1) * 8, 16, 8, count * 8, 8, (count + 1) * 8};
        case Layout::ColumnMajor:
            return {8, h * 8, 8, count * 8, 8, count * 8};
    }
    return {};
}

// Scatters `count` right-hand sides (h elements each, one after the other) into a strided store.
std::vector<double> scatter(const std::vector<double>& b, int h, int count, int s0, int s1) {
    std::vector<double> out(static_cast<std::size_t>((count - 1) * s0 + (h - 1) * s1) / 8 + 1,
                            AStrided::kSentinel);
    for (int c = 0; c < count; ++c)
        for (int i = 0; i < h; ++i)
            out[(static_cast<std::size_t>(c) * s0 + static_cast<std::size_t>(i) * s1) / 8] = b[c * h + i];
    return out;
}

double gather(const std::vector<double>& x, int c, int j, int s0, int s1) {
    return x[(static_cast<std::size_t>(c) * s0 + static_cast<std::size_t>(j) * s1) / 8];
}

double maxAbs(const std::vector<double>& v, int from, int n) {
    double m = 0.0;
    for (int i = from; i < from + n; ++i) m = std::max(m, std::fabs(v[i]));
    return m;
}

class QRAccuracyTest : public ::testing::TestWithParam<AVariantUnderTest> {
protected:
    void SetUp() override {
        if ((ReadCpuFeatures() & GetParam().needs) != GetParam().needs)
            GTEST_SKIP() << "this processor cannot run the " << GetParam().name << " variant";
    }
};

#if defined(MEROVANE_HAVE_LAPACK)
// Decompose, QRSolve per right-hand side and QRSolveMany over all of them, checked against dgels.
void checkAgainstLapack(const AVariantUnderTest& v, std::mt19937_64& rng, int h, int w, int count,
                        Layout layout) {
    SCOPED_TRACE(std::string(v.name) + " " + std::to_string(h) + "x" + std::to_string(w) + " " +
                 layoutName(layout));
    const std::vector<double> a = RandomMatrix(rng, h, w);
    std::vector<double> b;
    for (int c = 0; c < count; ++c) {
        const std::vector<double> bc = RandomVector(rng, h);
        b.insert(b.end(), bc.begin(), bc.end());
    }
    const std::vector<double> ref = ReferenceSolve(a, h, w, b, count);
    ASSERT_FALSE(ref.empty()) << "dgels failed";

    const AStrides s = stridesFor(layout, h, w, count);
    AStrided src(h, w, s.a1, s.a2), qr(h, w, s.a1, s.a2);
    for (int i = 0; i < h; ++i)
        for (int j = 0; j < w; ++j) src.at(i, j) = a[i * w + j];
    std::vector<double> buf(h);
    ASSERT_EQ(v.decompose(src.base(), s.a1, s.a2, buf.data(), qr.base(), s.a1, s.a2, w, h), QRStatusOk);
    EXPECT_EQ(qr.touchedOutside(), 0);

    const std::vector<double> bStore = scatter(b, h, count, s.b0, s.b1);
    std::vector<double> xMany(static_cast<std::size_t>((count - 1) * s.x0 + (w - 1) * s.x1) / 8 + 1,
                              AStrided::kSentinel);
    ASSERT_EQ(v.solveMany(qr.base(), s.a1, s.a2, buf.data(), bStore.data(), s.b0, s.b1, xMany.data(), s.x0,
                          s.x1, w, h, count),
              QRStatusOk);
    EXPECT_EQ(bStore, scatter(b, h, count, s.b0, s.b1)) << "b changed";

    for (int c = 0; c < count; ++c) {
        // QRSolve with the element strides of this layout.
        const bool strided = layout == Layout::General || layout == Layout::ColumnMajor;
        const int bs = strided ? 24 : 8, xs = strided ? 16 : 8;
        std::vector<double> bc(static_cast<std::size_t>(h) * bs / 8),
            xc(static_cast<std::size_t>(w) * xs / 8, 0.0);
        for (int i = 0; i < h; ++i) bc[static_cast<std::size_t>(i) * bs / 8] = b[c * h + i];
        ASSERT_EQ(v.solve(qr.base(), s.a1, s.a2, buf.data(), bc.data(), bs, xc.data(), xs, w, h), QRStatusOk);
        const double scale = std::max(1.0, maxAbs(ref, c * w, w));
        for (int j = 0; j < w; ++j) {
            const double expected = ref[c * w + j];
            EXPECT_NEAR(xc[static_cast<std::size_t>(j) * xs / 8], expected, 1e-10 * scale)
                << "QRSolve rhs " << c << " x" << j;
            EXPECT_NEAR(gather(xMany, c, j, s.x0, s.x1), expected, 1e-10 * scale)
                << "QRSolveMany rhs " << c << " x" << j;
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
        for (Layout l : {Layout::Dense, Layout::Padded, Layout::General, Layout::ColumnMajor})
            for (int count : {1, 3, 11}) checkAgainstLapack(GetParam(), rng, h, w, count, l);
    checkAgainstLapack(GetParam(), rng, 190, 19, 21, Layout::Dense);
    checkAgainstLapack(GetParam(), rng, 190, 19, 6, Layout::General);
    checkAgainstLapack(GetParam(), rng, 190, 19, 5, Layout::ColumnMajor);
    checkAgainstLapack(GetParam(), rng, 2016, 63, 9, Layout::Dense);
    checkAgainstLapack(GetParam(), rng, 2016, 63, 2, Layout::General);
    // Taller than the vector variants' group scratch holds, and tall enough for the smaller groups only.
    checkAgainstLapack(GetParam(), rng, 8200, 2, 3, Layout::Dense);
    checkAgainstLapack(GetParam(), rng, 3000, 3, 20, Layout::Padded);
}
#endif

// The straight-line bodies of square sizes 3 to 6 give the loops' results up to rounding.
TEST_P(QRAccuracyTest, SquareBodiesMatchLoops) {
    const AVariantUnderTest& v = GetParam();
    std::mt19937_64 rng(99);
    for (int n = 3; n <= 6; ++n)
        for (Layout l : {Layout::Dense, Layout::General}) {
            SCOPED_TRACE(std::to_string(n) + " " + layoutName(l));
            const int count = 7;
            const AStrides s = stridesFor(l, n, n, count);
            const std::vector<double> a = RandomMatrix(rng, n, n);
            AStrided qr(n, n, s.a1, s.a2);
            for (int i = 0; i < n; ++i)
                for (int j = 0; j < n; ++j) qr.at(i, j) = a[i * n + j];
            std::vector<double> buf(n);
            ASSERT_EQ(v.decompose(qr.base(), s.a1, s.a2, buf.data(), qr.base(), s.a1, s.a2, n, n),
                      QRStatusOk);
            std::vector<double> b;
            for (int c = 0; c < count; ++c) {
                const std::vector<double> bc = RandomVector(rng, n);
                b.insert(b.end(), bc.begin(), bc.end());
            }
            const std::vector<double> bStore = scatter(b, n, count, s.b0, s.b1);
            const std::size_t xSize = static_cast<std::size_t>((count - 1) * s.x0 + (n - 1) * s.x1) / 8 + 1;
            std::vector<double> body(xSize, 0.0), loops(xSize, 0.0);
            ASSERT_EQ(v.solveMany(qr.base(), s.a1, s.a2, buf.data(), bStore.data(), s.b0, s.b1, body.data(),
                                  s.x0, s.x1, n, n, count),
                      QRStatusOk);
            ASSERT_EQ(v.solveManyLoops(qr.base(), s.a1, s.a2, buf.data(), bStore.data(), s.b0, s.b1,
                                       loops.data(), s.x0, s.x1, n, n, count),
                      QRStatusOk);
            for (int c = 0; c < count; ++c) {
                // Single solves with the element strides of the layout.
                std::vector<double> one(static_cast<std::size_t>(n) * s.x1 / 8, 0.0), oneLoops(one);
                const double* bc = bStore.data() + static_cast<std::size_t>(c) * s.b0 / 8;
                ASSERT_EQ(v.solve(qr.base(), s.a1, s.a2, buf.data(), bc, s.b1, one.data(), s.x1, n, n),
                          QRStatusOk);
                ASSERT_EQ(
                    v.solveLoops(qr.base(), s.a1, s.a2, buf.data(), bc, s.b1, oneLoops.data(), s.x1, n, n),
                    QRStatusOk);
                for (int j = 0; j < n; ++j) {
                    const double expected = gather(loops, c, j, s.x0, s.x1);
                    EXPECT_NE(expected, 0.0);
                    EXPECT_NEAR(gather(body, c, j, s.x0, s.x1), expected,
                                1e-12 * (1.0 + std::fabs(expected)));
                    EXPECT_NEAR(one[static_cast<std::size_t>(j) * s.x1 / 8], expected,
                                1e-12 * (1.0 + std::fabs(expected)));
                    EXPECT_NEAR(oneLoops[static_cast<std::size_t>(j) * s.x1 / 8], expected,
                                1e-12 * (1.0 + std::fabs(expected)));
                }
            }
        }
}

// The factors rebuild the matrix: A = H0 H1 ... Hn-1 R with Hk = I - 2 v v' / (v' v), v[k] = 1 and
// v below the diagonal of column k, R the upper triangle. Computed here in long double.
TEST_P(QRAccuracyTest, FactorsRebuildTheMatrix) {
    const AVariantUnderTest& v = GetParam();
    std::mt19937_64 rng(5);
    for (auto [h, w] : {std::pair<int, int>{5, 3}, {6, 6}, {45, 9}, {64, 17}}) {
        SCOPED_TRACE(std::to_string(h) + "x" + std::to_string(w));
        const std::vector<double> a = RandomMatrix(rng, h, w);
        std::vector<double> qr(a.size()), buf(h);
        ASSERT_EQ(v.decompose(a.data(), w * 8, 8, buf.data(), qr.data(), w * 8, 8, w, h), QRStatusOk);
        std::vector<long double> m(static_cast<std::size_t>(h) * w, 0.0L);
        for (int i = 0; i < h; ++i)
            for (int j = i; j < w; ++j) m[i * w + j] = qr[i * w + j];
        const int n = w == h ? w - 1 : w;
        for (int k = n - 1; k >= 0; --k) {
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

// QRSolveMany gives each right-hand side what QRSolve gives it, whatever the count (the vector
// variants group right-hand sides in registers and pad the last group).
TEST_P(QRAccuracyTest, SolveManyMatchesSolve) {
    const AVariantUnderTest& v = GetParam();
    std::mt19937_64 rng(11);
    for (auto [h, w] : {std::pair<int, int>{45, 9}, {7, 7}, {12, 1}}) {
        const std::vector<double> a = RandomMatrix(rng, h, w);
        std::vector<double> qr(a.size()), buf(h);
        ASSERT_EQ(v.decompose(a.data(), w * 8, 8, buf.data(), qr.data(), w * 8, 8, w, h), QRStatusOk);
        for (int count : {1, 2, 3, 4, 5, 8, 9, 17, 37}) {
            SCOPED_TRACE(std::to_string(h) + "x" + std::to_string(w) + " count " + std::to_string(count));
            std::vector<double> b(static_cast<std::size_t>(h) * count),
                x(static_cast<std::size_t>(w) * count, 0.0);
            for (double& e : b) e = RandomVector(rng, 1)[0];
            ASSERT_EQ(v.solveMany(qr.data(), w * 8, 8, buf.data(), b.data(), h * 8, 8, x.data(), w * 8, 8, w,
                                  h, count),
                      QRStatusOk);
            for (int c = 0; c < count; ++c) {
                std::vector<double> one(w, 0.0);
                ASSERT_EQ(v.solve(qr.data(), w * 8, 8, buf.data(), b.data() + c * h, 8, one.data(), 8, w, h),
                          QRStatusOk);
                for (int j = 0; j < w; ++j)
                    EXPECT_NEAR(x[c * w + j], one[j], 1e-12 * (1.0 + std::fabs(one[j])))
                        << "rhs " << c << " x" << j;
            }
        }
    }
}

std::string variantName(const ::testing::TestParamInfo<AVariantUnderTest>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Variants, QRAccuracyTest, ::testing::ValuesIn(AllVariants()), variantName);

// All variants factor alike up to rounding.
TEST(QRVariantsTest, VariantsAgree) {
    const std::vector<AVariantUnderTest> variants = RunnableVariants();
    ASSERT_GE(variants.size(), 2u);
    std::mt19937_64 rng(3);
    const int h = 190, w = 19;
    const std::vector<double> a = RandomMatrix(rng, h, w);
    std::vector<double> first(a.size()), buf(h);
    ASSERT_EQ(variants[0].decompose(a.data(), w * 8, 8, buf.data(), first.data(), w * 8, 8, w, h),
              QRStatusOk);
    for (std::size_t k = 1; k < variants.size(); ++k) {
        std::vector<double> qr(a.size());
        ASSERT_EQ(variants[k].decompose(a.data(), w * 8, 8, buf.data(), qr.data(), w * 8, 8, w, h),
                  QRStatusOk);
        for (std::size_t i = 0; i < qr.size(); ++i)
            ASSERT_NEAR(qr[i], first[i], 1e-12 * (1.0 + std::fabs(first[i])))
                << variants[k].name << " element " << i;
    }
}

}  // namespace
