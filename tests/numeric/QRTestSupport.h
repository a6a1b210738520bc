// QRTestSupport: the kernel variants under test, strided test matrices and the LAPACK reference solve.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
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
    QRSolveFn solve;
    QRSolveFn solveLoops;
    QRSolveManyFn solveMany;
    QRSolveManyFn solveManyLoops;
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

// The variants this processor can run.
inline std::vector<AVariantUnderTest> RunnableVariants() {
    std::vector<AVariantUnderTest> out;
    const std::uint64_t features = ReadCpuFeatures();
    for (const AVariantUnderTest& v : AllVariants())
        if ((features & v.needs) == v.needs) out.push_back(v);
    return out;
}

// A rows x cols matrix at byte strides s1, s2 inside a store whose other elements hold a sentinel,
// so a write outside the matrix shows.
struct AStrided {
    AStrided(int r, int c, int stride1, int stride2) : rows(r), cols(c), s1(stride1), s2(stride2) {
        std::size_t last = 0;
        if (r > 0 && c > 0)
            last = (static_cast<std::size_t>(r - 1) * s1 + static_cast<std::size_t>(c - 1) * s2) / 8;
        store.assign(last + 1 + 4, kSentinel);
    }
    // Dense row-major layout.
    static AStrided Dense(int r, int c) { return AStrided(r, c, c * 8, 8); }

    double& at(int i, int j) {
        return store[(static_cast<std::size_t>(i) * s1 + static_cast<std::size_t>(j) * s2) / 8];
    }
    double at(int i, int j) const {
        return store[(static_cast<std::size_t>(i) * s1 + static_cast<std::size_t>(j) * s2) / 8];
    }
    double* base() { return store.data(); }
    const double* base() const { return store.data(); }

    // Count of store elements outside the matrix that no longer hold the sentinel.
    int touchedOutside() const {
        std::vector<bool> inside(store.size(), false);
        for (int i = 0; i < rows; ++i)
            for (int j = 0; j < cols; ++j)
                inside[(static_cast<std::size_t>(i) * s1 + static_cast<std::size_t>(j) * s2) / 8] = true;
        int n = 0;
        for (std::size_t k = 0; k < store.size(); ++k)
            if (!inside[k] && !(store[k] == kSentinel)) ++n;
        return n;
    }

    static constexpr double kSentinel = -12345.678;
    int rows, cols, s1, s2;
    std::vector<double> store;
};

// A random, well-conditioned height x width matrix: uniform entries in [-1, 1], and for a square or
// nearly square one a diagonal lifted by the width so it stays far from singular.
inline std::vector<double> RandomMatrix(std::mt19937_64& rng, int h, int w) {
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::vector<double> a(static_cast<std::size_t>(h) * w);
    for (double& e : a) e = u(rng);
    if (h < 2 * w)
        for (int j = 0; j < w; ++j)
            a[static_cast<std::size_t>(j) * w + j] += (a[static_cast<std::size_t>(j) * w + j] < 0 ? -w : w);
    return a;
}

inline std::vector<double> RandomVector(std::mt19937_64& rng, int n) {
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::vector<double> v(n);
    for (double& e : v) e = u(rng);
    return v;
}

#if defined(MEROVANE_HAVE_LAPACK)
extern "C" void dgels_(const char* trans, const int* m, const int* n, const int* nrhs, double* a,
                       const int* lda, double* b, const int* ldb, double* work, const int* lwork, int* info,
                       std::size_t transLen);

// Least-squares solutions by LAPACK: a is h x w row-major, b holds `count` right-hand sides of h
// elements one after the other; gives count x w solutions, or an empty vector if LAPACK failed.
inline std::vector<double> ReferenceSolve(const std::vector<double>& a, int h, int w,
                                          const std::vector<double>& b, int count) {
    std::vector<double> colMajor(static_cast<std::size_t>(h) * w);
    for (int i = 0; i < h; ++i)
        for (int j = 0; j < w; ++j)
            colMajor[static_cast<std::size_t>(j) * h + i] = a[static_cast<std::size_t>(i) * w + j];
    std::vector<double> rhs(b);
    int info = 0, lwork = -1;
    double query = 0.0;
    dgels_("N", &h, &w, &count, colMajor.data(), &h, rhs.data(), &h, &query, &lwork, &info, 1);
    if (info != 0) return {};
    lwork = static_cast<int>(query);
    std::vector<double> work(lwork);
    dgels_("N", &h, &w, &count, colMajor.data(), &h, rhs.data(), &h, work.data(), &lwork, &info, 1);
    if (info != 0) return {};
    std::vector<double> x(static_cast<std::size_t>(count) * w);
    for (int c = 0; c < count; ++c)
        for (int j = 0; j < w; ++j)
            x[static_cast<std::size_t>(c) * w + j] = rhs[static_cast<std::size_t>(c) * h + j];
    return x;
}
#endif

// Test names and failure messages show the variant by name.
inline void PrintTo(const AVariantUnderTest& v, std::ostream* os) {
    *os << v.name;
}
