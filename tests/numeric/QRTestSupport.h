// QRTestSupport: the kernel variants under test, their fixture, strided operands and the LAPACK reference
// solve.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include <merovane/numeric/KernelDispatch.h>
#include <merovane/numeric/QRKernels.h>
#include <merovane/numeric/QRVariants.h>

struct AVariantUnderTest {
    const char* name;
    QRDecomposeFn decompose;
    QRSolveFn solve, solveLoops;
    QRSolveManyFn solveMany, solveManyLoops;
    std::uint64_t needs;  // feature bits the processor must have to run it
};

inline const std::vector<AVariantUnderTest>& AllVariants() {
    static const std::vector<AVariantUnderTest> all = {
        {"SSE2", QRDecomposeSSE2, QRSolveSSE2, QRSolveLoopsSSE2, QRSolveManySSE2, QRSolveManyLoopsSSE2, 0},
        {"Scalar", QRDecomposeScalar, QRSolveScalar, QRSolveLoopsScalar, QRSolveManyScalar,
         QRSolveManyLoopsScalar, 0},
        {"SSE41", QRDecomposeSSE41, QRSolveSSE41, QRSolveLoopsSSE41, QRSolveManySSE41, QRSolveManyLoopsSSE41,
         CpuFeatureSSE41},
        {"AVX", QRDecomposeAVX, QRSolveAVX, QRSolveLoopsAVX, QRSolveManyAVX, QRSolveManyLoopsAVX,
         CpuFeatureAVX | CpuFeatureAVXState},
    };
    return all;
}

// Every test of a variant is skipped on a processor that cannot run it.
class AQRVariantTest : public ::testing::TestWithParam<AVariantUnderTest> {
protected:
    void SetUp() override {
        if ((ReadCpuFeatures() & GetParam().needs) != GetParam().needs)
            GTEST_SKIP() << "this processor cannot run the " << GetParam().name << " variant";
    }
};

inline std::string VariantName(const ::testing::TestParamInfo<AVariantUnderTest>& info) {
    return info.param.name;
}
inline void PrintTo(const AVariantUnderTest& v, std::ostream* os) {
    *os << v.name;
}

constexpr double kSentinel = -12345.678;

// A store of doubles addressed by byte offsets (i x s1 + j x s2 for a matrix, c x s0 + i x s1 for a
// batch of vectors); elements outside the operand hold a sentinel, so a write outside it shows.
struct AStrided {
    AStrided(int rows, int cols, int stride1, int stride2) : r(rows), c(cols), s1(stride1), s2(stride2) {
        store.assign(((r - 1) * std::size_t(s1) + (c - 1) * std::size_t(s2)) / 8 + 5, kSentinel);
    }
    double& at(int i, int j) { return store[(i * std::size_t(s1) + j * std::size_t(s2)) / 8]; }
    double* base() { return store.data(); }
    // Count of store elements outside the operand that no longer hold the sentinel.
    int touchedOutside() {
        std::vector<double> copy(store);
        for (int i = 0; i < r; ++i)
            for (int j = 0; j < c; ++j) copy[(i * std::size_t(s1) + j * std::size_t(s2)) / 8] = kSentinel;
        int n = 0;
        for (double e : copy) n += e != kSentinel;
        return n;
    }
    int r, c, s1, s2;
    std::vector<double> store;
};

// n values uniform in [-1, 1].
inline std::vector<double> RandomValues(std::mt19937_64& rng, int n) {
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::vector<double> a(n);
    for (double& e : a) e = u(rng);
    return a;
}

// A random, well-conditioned h x w row-major matrix: uniform entries in [-1, 1], and for a square or
// nearly square one a diagonal lifted by the width so it stays far from singular.
inline std::vector<double> RandomMatrix(std::mt19937_64& rng, int h, int w) {
    std::vector<double> a = RandomValues(rng, h * w);
    if (h < 2 * w)
        for (int j = 0; j < w; ++j) a[j * w + j] += a[j * w + j] < 0 ? -w : w;
    return a;
}

#if defined(MEROVANE_HAVE_LAPACK)
extern "C" void dgels_(const char* trans, const int* m, const int* n, const int* nrhs, double* a,
                       const int* lda, double* b, const int* ldb, double* work, const int* lwork, int* info,
                       std::size_t transLen);

// Least-squares solutions by LAPACK: a is h x w row-major, b holds `count` right-hand sides of h
// elements one after the other; gives count x w solutions, or an empty vector if LAPACK failed.
inline std::vector<double> ReferenceSolve(const std::vector<double>& a, int h, int w,
                                          const std::vector<double>& b, int count) {
    std::vector<double> colMajor(a.size()), rhs(b), x;
    for (int i = 0; i < h; ++i)
        for (int j = 0; j < w; ++j) colMajor[std::size_t(j) * h + i] = a[std::size_t(i) * w + j];
    int info = 0, lwork = -1;
    double query = 0.0;
    dgels_("N", &h, &w, &count, colMajor.data(), &h, rhs.data(), &h, &query, &lwork, &info, 1);
    std::vector<double> work(info == 0 ? static_cast<std::size_t>(query) : 1);
    lwork = static_cast<int>(work.size());
    if (info == 0)
        dgels_("N", &h, &w, &count, colMajor.data(), &h, rhs.data(), &h, work.data(), &lwork, &info, 1);
    if (info != 0) return x;
    for (int c = 0; c < count; ++c)
        for (int j = 0; j < w; ++j) x.push_back(rhs[std::size_t(c) * h + j]);
    return x;
}
#endif
