// Status codes, check order and the small exact cases of the QR kernels, for every variant.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "QRTestSupport.h"

namespace {

using QRKernelTest = AQRVariantTest;

// Null pointer (-8), count (-203, QRSolveMany only), size (-6), stride (-182), wide matrix (-204):
// each case breaks its own rule and every later one, and a refused call writes nothing.
TEST_P(QRKernelTest, ChecksInOrder) {
    const int good[3][6] = {{16, 8, 16, 8}, {16, 8, 8, 8}, {16, 8, 24, 8, 16, 8}};
    const int pointers[3] = {3, 4, 4}, strides[3] = {4, 4, 6};
    for (int kernel = 0; kernel < 3; ++kernel) {
        SCOPED_TRACE("kernel " + std::to_string(kernel));
        double out[6] = {};
        // Kernel 0 (QRDecompose), 1 (QRSolve) or 2 (QRSolveMany) with pointer argument `nul` null (-1:
        // none) and stride `pos` (-1: none) set to `bad`.
        auto call = [&](int nul, int pos, int bad, int w, int h, int count) {
            int s[6];
            std::copy(good[kernel], good[kernel] + 6, s);
            if (pos >= 0) s[pos] = bad;
            double in[6] = {1, 2, 0, 3, 0, 0}, b[6] = {1, 1, 1, 1, 1, 1}, buf[3];
            double* p[4] = {in, buf, kernel == 0 ? out : b, out};
            if (nul >= 0) p[nul] = nullptr;
            const AVariantUnderTest& v = GetParam();
            if (kernel == 0) return v.decompose(p[0], s[0], s[1], p[1], p[2], s[2], s[3], w, h);
            if (kernel == 1) return v.solve(p[0], s[0], s[1], p[1], p[2], s[2], p[3], s[3], w, h);
            return v.solveMany(p[0], s[0], s[1], p[1], p[2], s[2], s[3], p[3], s[4], s[5], w, h, count);
        };
        for (int p = 0; p < pointers[kernel]; ++p)
            EXPECT_EQ(call(p, 0, 12, 0, 3, 0), QRStatusNullPointer) << "pointer " << p;
        if (kernel == 2) {
            EXPECT_EQ(call(-1, 2, 4, 0, 0, 0), QRStatusBadCount);
            EXPECT_EQ(call(-1, -1, 0, 2, 3, -1), QRStatusBadCount);
        }
        for (auto [w, h] : {std::pair<int, int>{0, 3}, {-1, 3}, {2, 0}})
            EXPECT_EQ(call(-1, 1, 0, w, h, 2), QRStatusBadSize) << w << "x" << h;
        for (int pos = 0; pos < strides[kernel]; ++pos)
            for (int bad : {0, -8, -16, 4, 10, 12})
                EXPECT_EQ(call(-1, pos, bad, 3, 2, 2), QRStatusBadStride) << "stride " << pos << " = " << bad;
        EXPECT_EQ(call(-1, -1, 0, 3, 2, 2), QRStatusWideMatrix);
        for (double e : out) EXPECT_EQ(e, 0.0);
    }
}

// Hand-computed cases: 1 x 1 factors and solves; x = (1, 2) fits 1 + 2 t at t = 1, 2, 3 exactly and b
// stays; a zero on the diagonal is not tested (status 0, x not finite).
TEST_P(QRKernelTest, SmallExactCases) {
    const AVariantUnderTest& v = GetParam();
    double buf[3];
    for (double value : {0.0, -2.5, 3.0}) {
        double a = value, d = 7.0;
        EXPECT_EQ(v.decompose(&a, 8, 8, buf, &d, 8, 8, 1, 1), QRStatusOk) << value;
        EXPECT_EQ(d, value);
    }
    double q1 = 2.0, b1 = 6.0, x1 = 0.0, bs[3] = {6.0, -1.0, 0.5}, xs[3] = {};
    EXPECT_EQ(v.solve(&q1, 8, 8, buf, &b1, 8, &x1, 8, 1, 1), QRStatusOk);
    EXPECT_EQ(x1, 3.0);
    EXPECT_EQ(v.solveMany(&q1, 8, 8, buf, bs, 8, 8, xs, 8, 8, 1, 1, 3), QRStatusOk);
    EXPECT_EQ(xs[0], 3.0);
    EXPECT_EQ(xs[1], -0.5);
    EXPECT_EQ(xs[2], 0.25);

    const double a[6] = {1, 1, 1, 2, 1, 3}, b[3] = {3, 5, 7};
    double q[6], x[2] = {};
    ASSERT_EQ(v.decompose(a, 16, 8, buf, q, 16, 8, 2, 3), QRStatusOk);
    ASSERT_EQ(v.solve(q, 16, 8, buf, b, 8, x, 8, 2, 3), QRStatusOk);
    EXPECT_NEAR(x[0], 1.0, 1e-14);
    EXPECT_NEAR(x[1], 2.0, 1e-14);
    EXPECT_EQ(std::vector<double>(b, b + 3), (std::vector<double>{3, 5, 7}));

    const double z[4] = {1, 0, 0, 0}, bz[4] = {1, 1, 2, 2};
    double xz[4] = {};
    EXPECT_EQ(v.solve(z, 16, 8, buf, bz, 8, xz, 8, 2, 2), QRStatusOk);
    EXPECT_FALSE(std::isfinite(xz[1]));
    EXPECT_EQ(v.solveMany(z, 16, 8, buf, bz, 16, 8, xz, 16, 8, 2, 2, 2), QRStatusOk);
    EXPECT_FALSE(std::isfinite(xz[1]));
    EXPECT_FALSE(std::isfinite(xz[3]));
}

// A 2 x 1 column (3, 4): length 5, the reflector (1, 0.5), beta = -1.6. A positive pivot gives a
// negative R(0,0), a negative pivot a positive one, and a pivot of exactly 0 takes the negative root.
TEST_P(QRKernelTest, SignOfTheDiagonal) {
    struct Case {
        double a0, a1, r, v1;
    };
    for (const Case& c :
         {Case{3, 4, -5, 0.5}, Case{-3, 4, 5, -0.5}, Case{0, 4, 4, -1}, Case{-3, -4, 5, 0.5}}) {
        double a[2] = {c.a0, c.a1}, d[2] = {}, buf[2];
        ASSERT_EQ(GetParam().decompose(a, 8, 8, buf, d, 8, 8, 1, 2), QRStatusOk);
        EXPECT_NEAR(d[0], c.r, 1e-14) << c.a0 << ", " << c.a1;
        EXPECT_NEAR(d[1], c.v1, 1e-15) << c.a0 << ", " << c.a1;
    }
}

TEST_P(QRKernelTest, ZeroColumns) {
    const AVariantUnderTest& v = GetParam();
    double buf[3];
    // All-zero first column: -10 at once, dst holds the copy.
    const double a[6] = {0, 1, 0, 2, 0, 3};
    double d[6] = {99, 99, 99, 99, 99, 99};
    EXPECT_EQ(v.decompose(a, 16, 8, buf, d, 16, 8, 2, 3), QRStatusZeroColumn);
    EXPECT_EQ(std::vector<double>(d, d + 6), std::vector<double>(a, a + 6));
    // Zero second column: the first reflector stands finished.
    const double a2[6] = {1, 0, 1, 0, 1, 0};
    const double r = std::sqrt(3.0);
    EXPECT_EQ(v.decompose(a2, 16, 8, buf, d, 16, 8, 2, 3), QRStatusZeroColumn);
    EXPECT_NEAR(d[0], -r, 1e-14);
    EXPECT_NEAR(d[2], 1.0 / (1.0 + r), 1e-14);
    EXPECT_NEAR(d[4], 1.0 / (1.0 + r), 1e-14);
    // A square matrix's last column gets no reflector and no test.
    EXPECT_EQ(v.decompose(a2, 16, 8, buf, d, 16, 8, 2, 2), QRStatusOk);
    EXPECT_NEAR(d[0], -std::sqrt(2.0), 1e-14);
    // The squared length is what is tested: 1.2e-8 squared is below 2^-52, 1.5e-8 squared is not.
    double t[2] = {1.2e-8, 0.0};
    EXPECT_EQ(v.decompose(t, 8, 8, buf, d, 8, 8, 1, 2), QRStatusZeroColumn);
    t[0] = 1.5e-8;
    EXPECT_EQ(v.decompose(t, 8, 8, buf, d, 8, 8, 1, 2), QRStatusOk);
    EXPECT_NEAR(d[0], -1.5e-8, 1e-22);
}

INSTANTIATE_TEST_SUITE_P(Variants, QRKernelTest, ::testing::ValuesIn(AllVariants()), VariantName);

}  // namespace
