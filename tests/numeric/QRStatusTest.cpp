// Status codes, check order and the small exact cases of the QR kernels, for every variant.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "QRTestSupport.h"

namespace {

class QRKernelTest : public ::testing::TestWithParam<AVariantUnderTest> {
protected:
    void SetUp() override {
        if ((ReadCpuFeatures() & GetParam().needs) != GetParam().needs)
            GTEST_SKIP() << "this processor cannot run the " << GetParam().name << " variant";
    }
};

TEST_P(QRKernelTest, DecomposeChecksInOrder) {
    const AVariantUnderTest& v = GetParam();
    double a[6] = {1, 2, 3, 4, 5, 6}, d[6] = {}, buf[3] = {};
    // A null pointer wins over a bad width.
    EXPECT_EQ(v.decompose(nullptr, 16, 8, buf, d, 16, 8, 0, 3), QRStatusNullPointer);
    EXPECT_EQ(v.decompose(a, 16, 8, nullptr, d, 16, 8, 0, 3), QRStatusNullPointer);
    EXPECT_EQ(v.decompose(a, 16, 8, buf, nullptr, 16, 8, 0, 3), QRStatusNullPointer);
    // A bad size wins over a bad stride.
    EXPECT_EQ(v.decompose(a, 12, 8, buf, d, 16, 8, 0, 3), QRStatusBadSize);
    EXPECT_EQ(v.decompose(a, 16, 8, buf, d, 16, 0, 2, 0), QRStatusBadSize);
    EXPECT_EQ(v.decompose(a, 16, 8, buf, d, 16, 8, -1, 3), QRStatusBadSize);
    // A bad stride in any position wins over a wide matrix.
    for (int pos = 0; pos < 4; ++pos)
        for (int bad : {0, -8, 12, 4}) {
            int s[4] = {16, 8, 16, 8};
            s[pos] = bad;
            EXPECT_EQ(v.decompose(a, s[0], s[1], buf, d, s[2], s[3], 3, 2), QRStatusBadStride)
                << "position " << pos << " stride " << bad;
        }
    EXPECT_EQ(v.decompose(a, 24, 8, buf, d, 24, 8, 3, 2), QRStatusWideMatrix);
    // Nothing was written by any refused call.
    for (double e : d) EXPECT_EQ(e, 0.0);
}

TEST_P(QRKernelTest, SolveChecksInOrder) {
    const AVariantUnderTest& v = GetParam();
    double q[6] = {1, 2, 0, 3, 0, 0}, b[3] = {1, 1, 1}, x[2] = {}, buf[3] = {};
    EXPECT_EQ(v.solve(nullptr, 16, 8, buf, b, 8, x, 8, 0, 3), QRStatusNullPointer);
    EXPECT_EQ(v.solve(q, 16, 8, nullptr, b, 8, x, 8, 0, 3), QRStatusNullPointer);
    EXPECT_EQ(v.solve(q, 16, 8, buf, nullptr, 8, x, 8, 0, 3), QRStatusNullPointer);
    EXPECT_EQ(v.solve(q, 16, 8, buf, b, 8, nullptr, 8, 0, 3), QRStatusNullPointer);
    EXPECT_EQ(v.solve(q, 16, 8, buf, b, 9, x, 8, 0, 3), QRStatusBadSize);
    EXPECT_EQ(v.solve(q, 16, 8, buf, b, 9, x, 8, 2, 0), QRStatusBadSize);
    for (int pos = 0; pos < 4; ++pos)
        for (int bad : {0, -16, 20}) {
            int s[4] = {16, 8, 8, 8};
            s[pos] = bad;
            EXPECT_EQ(v.solve(q, s[0], s[1], buf, b, s[2], x, s[3], 4, 3), QRStatusBadStride)
                << "position " << pos << " stride " << bad;
        }
    EXPECT_EQ(v.solve(q, 16, 8, buf, b, 8, x, 8, 4, 3), QRStatusWideMatrix);
    EXPECT_EQ(x[0], 0.0);
    EXPECT_EQ(x[1], 0.0);
}

TEST_P(QRKernelTest, SolveManyChecksInOrder) {
    const AVariantUnderTest& v = GetParam();
    double q[6] = {1, 2, 0, 3, 0, 0}, b[6] = {1, 1, 1, 1, 1, 1}, x[4] = {}, buf[3] = {};
    EXPECT_EQ(v.solveMany(nullptr, 16, 8, buf, b, 24, 8, x, 16, 8, 2, 3, 0), QRStatusNullPointer);
    EXPECT_EQ(v.solveMany(q, 16, 8, nullptr, b, 24, 8, x, 16, 8, 2, 3, 0), QRStatusNullPointer);
    EXPECT_EQ(v.solveMany(q, 16, 8, buf, nullptr, 24, 8, x, 16, 8, 2, 3, 0), QRStatusNullPointer);
    EXPECT_EQ(v.solveMany(q, 16, 8, buf, b, 24, 8, nullptr, 16, 8, 2, 3, 0), QRStatusNullPointer);
    // The count comes before the size.
    EXPECT_EQ(v.solveMany(q, 16, 8, buf, b, 24, 8, x, 16, 8, 0, 3, 0), QRStatusBadCount);
    EXPECT_EQ(v.solveMany(q, 16, 8, buf, b, 24, 8, x, 16, 8, 0, 0, -1), QRStatusBadCount);
    EXPECT_EQ(v.solveMany(q, 16, 8, buf, b, 4, 8, x, 16, 8, 0, 3, 2), QRStatusBadSize);
    for (int pos = 0; pos < 6; ++pos)
        for (int bad : {0, -24, 10}) {
            int s[6] = {16, 8, 24, 8, 16, 8};
            s[pos] = bad;
            EXPECT_EQ(v.solveMany(q, s[0], s[1], buf, b, s[2], s[3], x, s[4], s[5], 4, 3, 2),
                      QRStatusBadStride)
                << "position " << pos << " stride " << bad;
        }
    EXPECT_EQ(v.solveMany(q, 16, 8, buf, b, 24, 8, x, 16, 8, 4, 3, 2), QRStatusWideMatrix);
    for (double e : x) EXPECT_EQ(e, 0.0);
}

TEST_P(QRKernelTest, OneByOne) {
    const AVariantUnderTest& v = GetParam();
    double buf[1];
    for (double value : {0.0, -2.5, 3.0}) {
        double a = value, d = 7.0;
        EXPECT_EQ(v.decompose(&a, 8, 8, buf, &d, 8, 8, 1, 1), QRStatusOk) << value;
        EXPECT_EQ(d, value);
    }
    double q = 2.0, b = 6.0, x = 0.0;
    EXPECT_EQ(v.solve(&q, 8, 8, buf, &b, 8, &x, 8, 1, 1), QRStatusOk);
    EXPECT_EQ(x, 3.0);
    double bs[3] = {6.0, -1.0, 0.5}, xs[3] = {};
    EXPECT_EQ(v.solveMany(&q, 8, 8, buf, bs, 8, 8, xs, 8, 8, 1, 1, 3), QRStatusOk);
    EXPECT_EQ(xs[0], 3.0);
    EXPECT_EQ(xs[1], -0.5);
    EXPECT_EQ(xs[2], 0.25);
}

// A 2 x 1 column (3, 4): length 5, the reflector (1, 0.5), beta = -1.6. A positive pivot gives a
// negative R(0,0), a negative pivot a positive one, and a pivot of exactly 0 takes the negative root.
TEST_P(QRKernelTest, SignOfTheDiagonal) {
    const AVariantUnderTest& v = GetParam();
    double buf[2];
    struct Case {
        double a0, a1, r, v1;
    };
    for (const Case& c :
         {Case{3, 4, -5, 0.5}, Case{-3, 4, 5, -0.5}, Case{0, 4, 4, -1}, Case{-3, -4, 5, 0.5}}) {
        double a[2] = {c.a0, c.a1}, d[2] = {};
        ASSERT_EQ(v.decompose(a, 8, 8, buf, d, 8, 8, 1, 2), QRStatusOk);
        EXPECT_NEAR(d[0], c.r, 1e-14) << c.a0 << ", " << c.a1;
        EXPECT_NEAR(d[1], c.v1, 1e-15) << c.a0 << ", " << c.a1;
    }
}

TEST_P(QRKernelTest, ZeroColumns) {
    const AVariantUnderTest& v = GetParam();
    double buf[3];
    // All-zero first column: -10 at once, dst holds the copy.
    {
        const double a[6] = {0, 1, 0, 2, 0, 3};
        double d[6] = {99, 99, 99, 99, 99, 99};
        EXPECT_EQ(v.decompose(a, 16, 8, buf, d, 16, 8, 2, 3), QRStatusZeroColumn);
        for (int i = 0; i < 6; ++i) EXPECT_EQ(d[i], a[i]) << i;
    }
    // Zero second column: the first reflector stands finished.
    {
        const double a[6] = {1, 0, 1, 0, 1, 0};
        double d[6] = {};
        EXPECT_EQ(v.decompose(a, 16, 8, buf, d, 16, 8, 2, 3), QRStatusZeroColumn);
        const double r = std::sqrt(3.0);
        EXPECT_NEAR(d[0], -r, 1e-14);
        EXPECT_NEAR(d[2], 1.0 / (1.0 + r), 1e-14);
        EXPECT_NEAR(d[4], 1.0 / (1.0 + r), 1e-14);
    }
    // A square matrix's last column gets no reflector and no test.
    {
        const double a[4] = {1, 0, 1, 0};
        double d[4] = {};
        EXPECT_EQ(v.decompose(a, 16, 8, buf, d, 16, 8, 2, 2), QRStatusOk);
        EXPECT_NEAR(d[0], -std::sqrt(2.0), 1e-14);
    }
    // The squared length is what is tested: 1.2e-8 squared is below 2^-52, 1.5e-8 squared is not.
    {
        double a[2] = {1.2e-8, 0.0}, d[2];
        EXPECT_EQ(v.decompose(a, 8, 8, buf, d, 8, 8, 1, 2), QRStatusZeroColumn);
        a[0] = 1.5e-8;
        EXPECT_EQ(v.decompose(a, 8, 8, buf, d, 8, 8, 1, 2), QRStatusOk);
        EXPECT_NEAR(d[0], -1.5e-8, 1e-22);
    }
}

TEST_P(QRKernelTest, ConsistentOverdeterminedSystem) {
    const AVariantUnderTest& v = GetParam();
    // x = (1, 2) fits 1 + 2 t at t = 1, 2, 3 exactly.
    const double a[6] = {1, 1, 1, 2, 1, 3};
    const double b[3] = {3, 5, 7};
    double q[6], buf[3], x[2] = {};
    ASSERT_EQ(v.decompose(a, 16, 8, buf, q, 16, 8, 2, 3), QRStatusOk);
    ASSERT_EQ(v.solve(q, 16, 8, buf, b, 8, x, 8, 2, 3), QRStatusOk);
    EXPECT_NEAR(x[0], 1.0, 1e-14);
    EXPECT_NEAR(x[1], 2.0, 1e-14);
    EXPECT_EQ(b[0], 3.0);
    EXPECT_EQ(b[1], 5.0);
    EXPECT_EQ(b[2], 7.0);
}

// A zero on the diagonal is not tested: the solution is not finite and the status stays 0.
TEST_P(QRKernelTest, ZeroDiagonalIsNotTested) {
    const AVariantUnderTest& v = GetParam();
    const double q[4] = {1, 0, 0, 0};
    const double b[2] = {1, 1};
    double x[2] = {}, buf[2];
    EXPECT_EQ(v.solve(q, 16, 8, buf, b, 8, x, 8, 2, 2), QRStatusOk);
    EXPECT_FALSE(std::isfinite(x[1]));
    double xs[4] = {};
    const double bs[4] = {1, 1, 2, 2};
    EXPECT_EQ(v.solveMany(q, 16, 8, buf, bs, 16, 8, xs, 16, 8, 2, 2, 2), QRStatusOk);
    EXPECT_FALSE(std::isfinite(xs[1]));
    EXPECT_FALSE(std::isfinite(xs[3]));
}

TEST_P(QRKernelTest, InPlaceEqualsSecondMatrix) {
    const AVariantUnderTest& v = GetParam();
    std::mt19937_64 rng(7);
    for (auto shape : {std::pair<int, int>{7, 4}, {6, 6}, {45, 9}}) {
        const int h = shape.first, w = shape.second;
        const std::vector<double> a = RandomMatrix(rng, h, w);
        for (int general = 0; general < 2; ++general) {
            const int s2 = general ? 16 : 8, s1 = (w + 1) * s2;
            AStrided in(h, w, s1, s2), other(h, w, s1, s2);
            for (int i = 0; i < h; ++i)
                for (int j = 0; j < w; ++j) in.at(i, j) = a[i * w + j];
            const AStrided src = in;
            std::vector<double> buf(h);
            ASSERT_EQ(v.decompose(src.base(), s1, s2, buf.data(), other.base(), s1, s2, w, h), QRStatusOk);
            ASSERT_EQ(v.decompose(in.base(), s1, s2, buf.data(), in.base(), s1, s2, w, h), QRStatusOk);
            for (int i = 0; i < h; ++i)
                for (int j = 0; j < w; ++j)
                    ASSERT_EQ(in.at(i, j), other.at(i, j))
                        << h << "x" << w << " general " << general << " at " << i << "," << j;
        }
    }
}

std::string variantName(const ::testing::TestParamInfo<AVariantUnderTest>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Variants, QRKernelTest, ::testing::ValuesIn(AllVariants()), variantName);

}  // namespace
