// The polynomial fit: Chebyshev basis, normal equations, status codes and the order of the virtual slots.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include <merovane/numeric/ADPolyApr.h>

namespace {

TEST(ADPolyAprTest, BasisIsTheChebyshevRecurrenceOnRawAbscissae) {
    ADPolyApr p(4);
    double out[6] = {-1, -1, -1, -1, -1, -1};
    const double x = 3.0;
    p.Basis(out, 4, &x);
    // T0 = 1, T1 = 3, T2 = 2*9 - 1 = 17, T3 = 4*27 - 3*3 = 99: 3 is used as it is, not mapped to -1..1.
    EXPECT_EQ(out[0], 1.0);
    EXPECT_EQ(out[1], 3.0);
    EXPECT_EQ(out[2], 17.0);
    EXPECT_EQ(out[3], 99.0);
    EXPECT_EQ(out[4], -1.0);
    // n = 1 yields the single 1.0 and writes nothing more.
    double one[2] = {-1, -1};
    p.Basis(one, 1, &x);
    EXPECT_EQ(one[0], 1.0);
    EXPECT_EQ(one[1], -1.0);
}

TEST(ADPolyAprTest, TwoCoefficientsOnTwoSamplesGiveTheLine) {
    ADPolyApr p(2);
    const double x[] = {1.0, 3.0}, y[] = {2.0, 8.0};
    ASSERT_EQ(p.Fit(x, y, 0, 1), 0);
    EXPECT_NEAR(p.Value(1.0), 2.0, 1e-12);
    EXPECT_NEAR(p.Value(3.0), 8.0, 1e-12);
    EXPECT_NEAR(p.Value(2.0), 5.0, 1e-12);
    EXPECT_NEAR(p.coef[0], -1.0, 1e-12);
    EXPECT_NEAR(p.coef[1], 3.0, 1e-12);
}

TEST(ADPolyAprTest, OneCoefficientGivesTheMean) {
    ADPolyApr p(1);
    const double x[] = {0, 5, 9, 2}, y[] = {1.0, 2.0, 6.0, 7.0};
    ASSERT_EQ(p.Fit(x, y, 0, 3), 0);
    EXPECT_NEAR(p.coef[0], 4.0, 1e-14);
    EXPECT_NEAR(p.Value(123.0), 4.0, 1e-14);
    // Samples first..last only: y[1..2] have mean 4 too, y[2..3] mean 6.5.
    ASSERT_EQ(p.Fit(x, y, 2, 3), 0);
    EXPECT_NEAR(p.coef[0], 6.5, 1e-14);
}

TEST(ADPolyAprTest, QuadraticGivesChebyshevCoefficients) {
    // y = 1 + 2x + 3x^2 = 2.5 T0 + 2 T1 + 1.5 T2.
    std::vector<double> x, y;
    for (int i = 0; i < 7; ++i) {
        x.push_back(i);
        y.push_back(1.0 + 2.0 * i + 3.0 * i * i);
    }
    ADPolyApr p(3);
    ASSERT_EQ(p.Fit(x.data(), y.data(), 0, 6), 0);
    EXPECT_NEAR(p.coef[0], 2.5, 1e-9);
    EXPECT_NEAR(p.coef[1], 2.0, 1e-9);
    EXPECT_NEAR(p.coef[2], 1.5, 1e-9);
    for (int i = 0; i < 7; ++i) EXPECT_NEAR(p.Value(x[i]), y[i], 1e-9) << i;
}

TEST(ADPolyAprTest, StatusCodesInOrder) {
    const double x[] = {1, 2, 3, 4}, y[] = {1, 4, 9, 16};
    ADPolyApr five(5);
    EXPECT_EQ(five.Fit(x, y, 0, 3), 3);
    EXPECT_EQ(five.Fit(x, y, 0, 0), 1);
    EXPECT_EQ(five.Fit(x, y, 3, 2), 1);
    ADPolyApr none(0);
    EXPECT_EQ(none.Fit(x, y, 0, 3), 2);
    EXPECT_EQ(none.Fit(x, y, 1, 1), 1);  // the sample count is tested first
    EXPECT_EQ(none.Value(2.0), 0.0);
    ADPolyApr four(4);
    EXPECT_EQ(four.Fit(x, y, 0, 3), 0);
}

TEST(ADPolyAprTest, FailedFitLeavesZeroCoefficients) {
    ADPolyApr p(2);
    const double x[] = {1, 2, 3}, y[] = {5, 7, 9};
    ASSERT_EQ(p.Fit(x, y, 0, 2), 0);
    ASSERT_NE(p.coef[1], 0.0);
    // x all 0: the normal matrix [[3, 0], [0, 0]] is exactly singular.
    const double zeros[] = {0, 0, 0};
    EXPECT_EQ(p.Fit(zeros, y, 0, 2), 4);
    EXPECT_EQ(p.coef[0], 0.0);
    EXPECT_EQ(p.coef[1], 0.0);
    EXPECT_EQ(p.Value(1.0), 0.0);
    EXPECT_EQ(p.normal, nullptr);
    EXPECT_EQ(p.rhs, nullptr);
    // A status 1 or 3 clears them as well.
    ASSERT_EQ(p.Fit(x, y, 0, 2), 0);
    EXPECT_EQ(p.Fit(x, y, 1, 1), 1);
    EXPECT_EQ(p.coef[0], 0.0);
    EXPECT_EQ(p.coef[1], 0.0);
}

// The tolerance is 1e-30 on the absolute value of the last pivot: with x = +-1e-16 it is 2e-32
// (singular), with x = +-1e-15 it is 2e-30 and the fit goes through.
TEST(ADPolyAprTest, AbsoluteTolerance) {
    ADPolyApr p(2);
    const double y[] = {1.0, 3.0};
    const double tiny[] = {1e-16, -1e-16};
    EXPECT_EQ(p.Fit(tiny, y, 0, 1), 4);
    const double small[] = {1e-15, -1e-15};
    ASSERT_EQ(p.Fit(small, y, 0, 1), 0);
    EXPECT_NEAR(p.coef[0], 2.0, 1e-9);
    EXPECT_NEAR(p.coef[1], -1e15, 1e6);
}

// Large raw abscissae make a badly scaled normal matrix; the elimination still recovers the
// polynomial. 0.5 x^2 = 0.25 T2 + 0.25, so y = 2 - x + 0.5 x^2 has coefficients (2.25, -1, 0.25).
TEST(ADPolyAprTest, LargeAbscissae) {
    std::vector<double> x, y;
    for (int i = 0; i < 6; ++i) {
        x.push_back(-40.0 + 17.0 * i);
        y.push_back(2.0 - x.back() + 0.5 * x.back() * x.back());
    }
    ADPolyApr p(3);
    ASSERT_EQ(p.Fit(x.data(), y.data(), 0, 5), 0);
    EXPECT_NEAR(p.coef[0], 2.25, 1e-8);
    EXPECT_NEAR(p.coef[1], -1.0, 1e-9);
    EXPECT_NEAR(p.coef[2], 0.25, 1e-10);
}

// Two basis functions with f0 = 1e-20 everywhere and f1 = the abscissa (0 or 1), so the normal
// matrix is [[n e-40, s e-20], [s e-20, s]] with s the number of samples at 1.
class ATinyBasis : public AAprox<double> {
public:
    ATinyBasis() : AAprox<double>(2) {}
    void Basis(double* out, int, const double* x) override {
        out[0] = 1e-20;
        out[1] = *x;
    }
};

// Samples (0, 1) and (1, 2): M = [[2e-40, 1e-20], [1e-20, 1]], rhs = (3e-20, 2). The first pivot
// search swaps the rows (1e-20 > 2e-40); the swapped-in pivot 1e-20 is used as it is, and the old
// first row is left alone since its element 2e-40 is at or below 1e-30. Back substitution then gives
// c1 = 3e-20 / 1e-20 = 3 and c0 = (2 - 3) / 1e-20 = -1e20.
TEST(AAproxTest, PivotSearchAndToleranceOfTheElimination) {
    ATinyBasis f;
    const double x[] = {0.0, 1.0}, y[] = {1.0, 2.0};
    ASSERT_EQ(f.Fit(x, y, 0, 1), 0);
    EXPECT_NEAR(f.coef[0], -1e20, 1e6);
    EXPECT_NEAR(f.coef[1], 3.0, 1e-12);
}

// f0 = 1e-20 at abscissa 0 and 0 elsewhere, f1 = the abscissa: M = [[1e-40, 0], [0, 1]]. No row
// beats the first pivot, so its own magnitude is tested, and 1e-40 is below 1e-30: singular.
class ATinySplitBasis : public AAprox<double> {
public:
    ATinySplitBasis() : AAprox<double>(2) {}
    void Basis(double* out, int, const double* x) override {
        out[0] = *x == 0.0 ? 1e-20 : 0.0;
        out[1] = *x;
    }
};

TEST(AAproxTest, TinyPivotWithoutSwapIsSingular) {
    ATinySplitBasis f;
    const double x[] = {0.0, 1.0}, y[] = {1.0, 2.0};
    EXPECT_EQ(f.Fit(x, y, 0, 1), 4);
    EXPECT_EQ(f.coef[0], 0.0);
    EXPECT_EQ(f.coef[1], 0.0);
}

// Records the calls of the overridable slots and uses a scale and offset of its own.
class ARecordingFit : public AAprox<double> {
public:
    ARecordingFit() : AAprox<double>(2) {}
    void Basis(double* out, int n, const double* x) override {
        calls += "B";
        for (int i = 0; i < n; ++i) out[i] = std::pow(*x, i);
    }
    void SetScale(const double* x, const double*, int first, int last) override {
        calls += "S(" + std::to_string(first) + "," + std::to_string(last) + ")";
        seenX = x;
        scale = 2.0;
        offset = 1.0;
    }
    void Spare() override { calls += "P"; }
    void OnSamples(int n) override { calls += "N(" + std::to_string(n) + ")"; }
    void OnCoefficients(double* in, double* out) override {
        calls += "C";
        sameArrays = in == coef && out == coef;
    }
    std::string calls;
    const double* seenX = nullptr;
    bool sameArrays = false;
};

TEST(AAproxTest, SlotsAreCalledInOrder) {
    ARecordingFit f;
    const double x[] = {9, 0, 1, 2}, y[] = {0, 3, 7, 11};
    ASSERT_EQ(f.Fit(x, y, 1, 3), 0);
    EXPECT_EQ(f.calls, "S(1,3)N(3)BBBC");
    EXPECT_EQ(f.seenX, x);
    EXPECT_TRUE(f.sameArrays);
    // y = 3 + 4x in x, and t = 2x + 1, so y = 1 + 2t.
    EXPECT_NEAR(f.coef[0], 1.0, 1e-12);
    EXPECT_NEAR(f.coef[1], 2.0, 1e-12);
    // Value maps its abscissa the same way.
    f.calls.clear();
    EXPECT_NEAR(f.Value(5.0), 23.0, 1e-12);
    EXPECT_EQ(f.calls, "B");
    // A failed fit skips the coefficient slot.
    f.calls.clear();
    EXPECT_EQ(f.Fit(x, y, 0, 0), 1);
    EXPECT_EQ(f.calls, "");
}

TEST(AAproxTest, BaseClassesDoNothing) {
    ABAprox<double> root;
    const double x[] = {1, 2}, y[] = {3, 4};
    EXPECT_EQ(root.Value(5.0), 0.0);
    EXPECT_EQ(root.Fit(x, y, 0, 1), 0);
    // Without a basis the normal matrix is all zero: singular.
    AAprox<double> plain(2);
    EXPECT_EQ(plain.Fit(x, y, 0, 1), 4);
    plain.SetScale(x, y, 0, 1);
    EXPECT_EQ(plain.scale, 1.0);
    EXPECT_EQ(plain.offset, 0.0);
}

}  // namespace
