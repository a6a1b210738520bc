// The polynomial fit: Chebyshev basis, normal equations, status codes and the order of the virtual slots.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include <merovane/numeric/ADPolyApr.h>

namespace {

TEST(ADPolyAprTest, BasisIsTheChebyshevRecurrenceOnRawAbscissae) {
    ADPolyApr p(4);
    double out[6] = {-1, -1, -1, -1, -1, -1};
    const double x = 3.0;
    // T0 = 1, T1 = 3, T2 = 2*9 - 1 = 17, T3 = 4*27 - 3*3 = 99: 3 is used as it is, not mapped to -1..1.
    p.Basis(out, 4, &x);
    EXPECT_EQ(std::vector<double>(out, out + 6), (std::vector<double>{1, 3, 17, 99, -1, -1}));
    // n = 1 yields the single 1.0 and writes nothing more.
    double one[2] = {-1, -1};
    p.Basis(one, 1, &x);
    EXPECT_EQ(one[0], 1.0);
    EXPECT_EQ(one[1], -1.0);
}

// Samples x[first..], y[first..]; the expected coefficients with their tolerances.
struct AFitCase {
    const char* label;
    int first;
    std::vector<double> x, y;
    std::vector<std::pair<double, double>> coef;
    bool exact;  // the samples lie on the fitted polynomial
};

// y = 1 + 2x + 3x^2 = 2.5 T0 + 2 T1 + 1.5 T2. Large raw abscissae make a badly scaled normal matrix,
// and the elimination still recovers the polynomial: 0.5 x^2 = 0.25 T2 + 0.25, so y = 2 - x + 0.5 x^2
// gives (2.25, -1, 0.25). The tolerance is 1e-30 on the last pivot, with x = +-1e-15 it is 2e-30: the
// fit goes through.
TEST(ADPolyAprTest, FitsGiveChebyshevCoefficients) {
    auto poly = [](std::vector<double> x, double c0, double c1, double c2) {
        for (double& e : x) e = c0 + c1 * e + c2 * e * e;
        return x;
    };
    const std::vector<double> xq = {0, 1, 2, 3, 4, 5, 6}, xl = {-40, -23, -6, 11, 28, 45};
    const AFitCase cases[] = {
        {"line", 0, {1, 3}, {2, 8}, {{-1, 1e-12}, {3, 1e-12}}, true},
        {"mean", 0, {0, 5, 9, 2}, {1, 2, 6, 7}, {{4, 1e-14}}, false},
        {"mean of samples 2..3 only", 2, {0, 5, 9, 2}, {1, 2, 6, 7}, {{6.5, 1e-14}}, false},
        {"quadratic", 0, xq, poly(xq, 1, 2, 3), {{2.5, 1e-9}, {2, 1e-9}, {1.5, 1e-9}}, true},
        {"large abscissae", 0, xl, poly(xl, 2, -1, 0.5), {{2.25, 1e-8}, {-1, 1e-9}, {0.25, 1e-10}}, false},
        {"pivot 2e-30", 0, {1e-15, -1e-15}, {1, 3}, {{2, 1e-9}, {-1e15, 1e6}}, false},
    };
    for (const AFitCase& c : cases) {
        SCOPED_TRACE(c.label);
        const int n = static_cast<int>(c.coef.size()), last = static_cast<int>(c.x.size()) - 1;
        ADPolyApr p(n);
        ASSERT_EQ(p.Fit(c.x.data(), c.y.data(), c.first, last), 0);
        for (int i = 0; i < n; ++i) EXPECT_NEAR(p.coef[i], c.coef[i].first, c.coef[i].second) << i;
        if (n == 1) {
            EXPECT_NEAR(p.Value(123.0), c.coef[0].first, c.coef[0].second);
        }
        for (int i = c.first; c.exact && i <= last; ++i)
            EXPECT_NEAR(p.Value(c.x[i]), c.y[i], c.coef[0].second) << i;
    }
}

// Status 1 (fewer than 2 samples) comes before 2 (no coefficients) and 3 (more coefficients than
// samples); 4 is a singular normal matrix. After any failure, even right after a good fit, every
// coefficient and the value are 0.0 and the normal equations are gone. With x all 0 the normal matrix
// [[3, 0], [0, 0]] is exactly singular; with x = +-1e-16 the last pivot 2e-32 is below the tolerance.
TEST(ADPolyAprTest, StatusCodesInOrder) {
    struct Case {
        int nCoef;
        std::vector<double> x;
        int first, last, status;
    };
    const std::vector<double> x = {1, 2, 3, 4};
    const Case cases[] = {{5, x, 0, 3, 3}, {5, x, 0, 0, 1},         {5, x, 3, 2, 1},
                          {0, x, 0, 3, 2}, {0, x, 1, 1, 1},         {2, x, INT_MAX, -INT_MAX, 1},
                          {4, x, 0, 3, 0}, {2, {0, 0, 0}, 0, 2, 4}, {2, {1e-16, -1e-16}, 0, 1, 4}};
    const double y[] = {1, 4, 9, 16}, goodX[] = {1, 2, 3, 4, 5, 6, 7, 8},
                 goodY[] = {1, 4, 9, 16, 25, 36, 49, 64};
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.nCoef << " coefficients on " << c.first << ".." << c.last);
        ADPolyApr p(c.nCoef);
        if (c.nCoef > 0) {
            ASSERT_EQ(p.Fit(goodX, goodY, 0, 7), 0);
            ASSERT_NE(p.Value(2.0), 0.0);
        }
        EXPECT_EQ(p.Fit(c.x.data(), y, c.first, c.last), c.status);
        if (c.status != 0) {
            for (int i = 0; i < c.nCoef; ++i) EXPECT_EQ(p.coef[i], 0.0) << i;
            EXPECT_EQ(p.Value(2.0), 0.0);
        }
        EXPECT_EQ(p.normal, nullptr);
        EXPECT_EQ(p.rhs, nullptr);
    }
}

// Two basis functions: f0 = 1e-20 (with split: only at abscissa 0, else 0), f1 = the abscissa.
class ATinyBasis : public AAprox<double> {
public:
    explicit ATinyBasis(bool s) : AAprox<double>(2), split(s) {}
    void Basis(double* out, int, const double* x) override {
        out[0] = split && *x != 0.0 ? 0.0 : 1e-20;
        out[1] = *x;
    }
    bool split;
};

TEST(AAproxTest, PivotSearchAndToleranceOfTheElimination) {
    const double x[] = {0.0, 1.0}, y[] = {1.0, 2.0};
    // M = [[2e-40, 1e-20], [1e-20, 1]], rhs = (3e-20, 2). The first pivot search swaps the rows
    // (1e-20 > 2e-40); the swapped-in pivot 1e-20 is used as it is, and the old first row is left
    // alone since its element 2e-40 is at or below 1e-30. Back substitution then gives
    // c1 = 3e-20 / 1e-20 = 3 and c0 = (2 - 3) / 1e-20 = -1e20.
    ATinyBasis f(false);
    ASSERT_EQ(f.Fit(x, y, 0, 1), 0);
    EXPECT_NEAR(f.coef[0], -1e20, 1e6);
    EXPECT_NEAR(f.coef[1], 3.0, 1e-12);
    // M = [[1e-40, 0], [0, 1]]: no row beats the first pivot, so its own magnitude is tested, and
    // 1e-40 is below 1e-30: singular.
    ATinyBasis g(true);
    EXPECT_EQ(g.Fit(x, y, 0, 1), 4);
    EXPECT_EQ(g.coef[0], 0.0);
    EXPECT_EQ(g.coef[1], 0.0);
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
}

}  // namespace
