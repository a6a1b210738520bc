// QRSolveMany against QRSolve bit for bit, and every kernel on a thread with a small stack.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <merovane/numeric/KernelDispatch.h>
#include <merovane/platform/PlatformThread.h>
#include "QRTestSupport.h"

namespace {

using QRBatchTest = AQRVariantTest;

// A factored h x w problem with `count` right-hand sides. Dense: row-major, right-hand sides and
// solutions one after the other. Otherwise every element stride is widened (the general path), with
// the right-hand sides interleaved.
struct ABatch {
    int h, w, count;
    bool dense;
    int a1, a2, b0, b1, x0, x1;
    std::vector<double> qr, b, buf;

    ABatch(std::mt19937_64& rng, int h_, int w_, int count_, bool dense_)
        : h(h_), w(w_), count(count_), dense(dense_) {
        a1 = dense ? w * 8 : (2 * w + 1) * 8;
        a2 = dense ? 8 : 16;
        b0 = dense ? h * 8 : 8;
        b1 = dense ? 8 : count * 8;
        x0 = dense ? w * 8 : 8;
        x1 = dense ? 8 : count * 8;
        const std::vector<double> a = RandomMatrix(rng, h, w);
        qr.assign(static_cast<std::size_t>(h) * a1 / 8 + 2, 0.0);
        for (int i = 0; i < h; ++i)
            for (int j = 0; j < w; ++j) qr[(i * std::size_t(a1) + j * std::size_t(a2)) / 8] = a[i * w + j];
        b = RandomValues(rng, h * count);
        buf.assign(static_cast<std::size_t>(h), 0.0);
    }
    std::size_t xElements() const { return static_cast<std::size_t>(w) * count; }
    int decompose(QRDecomposeFn f) { return f(qr.data(), a1, a2, buf.data(), qr.data(), a1, a2, w, h); }
    // All right-hand sides at once.
    int many(QRSolveManyFn f, std::vector<double>& x) {
        x.assign(xElements(), kSentinel);
        return f(qr.data(), a1, a2, buf.data(), b.data(), b0, b1, x.data(), x0, x1, w, h, count);
    }
    // One right-hand side after the other, with the same strides.
    int single(QRSolveFn f, std::vector<double>& x) {
        x.assign(xElements(), kSentinel);
        for (int c = 0; c < count; ++c) {
            const int status =
                f(qr.data(), a1, a2, buf.data(), b.data() + c * b0 / 8, b1, x.data() + c * x0 / 8, x1, w, h);
            if (status != QRStatusOk) return status;
        }
        return QRStatusOk;
    }
};

// The shapes around the kernels' internal choices: the square bodies (3 to 6), the loops on small
// and large squares, every group width of right-hand sides, heights on both sides of what a group's
// scratch holds (192, 384 and 768 rows for groups of eight, four and two doubles), and tall
// problems that take one right-hand side at a time.
struct AShape {
    int h, w;
};
const AShape kShapes[] = {{1, 1},   {2, 1},   {2, 2},   {3, 3},   {4, 4},   {5, 5},    {6, 6},   {7, 7},
                          {3, 2},   {5, 3},   {9, 4},   {10, 4},  {45, 9},  {105, 14}, {191, 6}, {192, 7},
                          {193, 5}, {384, 4}, {385, 3}, {768, 2}, {769, 2}, {900, 5},  {1200, 1}};
const int kCounts[] = {1, 2, 3, 4, 5, 7, 8, 9, 16, 17, 33};

bool sameBits(const std::vector<double>& a, const std::vector<double>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

// The index of the first element whose bits differ, for the message; -1 if none.
long firstDifference(const std::vector<double>& a, const std::vector<double>& b) {
    for (std::size_t i = 0; i < a.size() && i < b.size(); ++i)
        if (std::memcmp(&a[i], &b[i], sizeof(double)) != 0) return static_cast<long>(i);
    return -1;
}

void expectManyIsSingle(QRDecomposeFn decompose, QRSolveFn solve, QRSolveManyFn many, const char* what) {
    std::mt19937_64 rng(31337);
    int compared = 0;
    for (const AShape& s : kShapes)
        for (int count : kCounts)
            for (bool dense : {true, false}) {
                if (s.h > 300 && count > 9) continue;  // tall shapes: a few counts are enough
                SCOPED_TRACE(std::string(what) + " " + std::to_string(s.h) + "x" + std::to_string(s.w) +
                             " count " + std::to_string(count) + (dense ? " dense" : " strided"));
                ABatch p(rng, s.h, s.w, count, dense);
                ASSERT_EQ(p.decompose(decompose), QRStatusOk);
                std::vector<double> xm, xs;
                ASSERT_EQ(p.many(many, xm), QRStatusOk);
                ASSERT_EQ(p.single(solve, xs), QRStatusOk);
                EXPECT_EQ(firstDifference(xm, xs), -1);
                EXPECT_EQ(std::count(xs.begin(), xs.end(), kSentinel), 0) << "a solution not written";
                ++compared;
            }
    EXPECT_GT(compared, 400);
}

}  // namespace

// Each right-hand side of QRSolveMany gets what QRSolve gives it, to the last bit, however the
// batch is grouped, in both paths; the same holds for the entries without the square bodies.
TEST_P(QRBatchTest, ManyEqualsSingleToTheBit) {
    const AVariantUnderTest& v = GetParam();
    expectManyIsSingle(v.decompose, v.solve, v.solveMany, "with square bodies");
    expectManyIsSingle(v.decompose, v.solveLoops, v.solveManyLoops, "loops only");
}

// The same through the dispatch, for the variant the module start chose (MEROVANE_KERNEL_INDEX picks
// it in CI).
TEST(QRBatchDispatch, ManyEqualsSingleToTheBit) {
    SCOPED_TRACE("dispatch index " + std::to_string(KernelDispatchIndex));
    expectManyIsSingle(QRDecompose, QRSolve, QRSolveMany, "dispatched");
}

namespace {

// The kernels of one variant on problems that reach each of their paths, the results kept.
struct ASmallStackRun {
    const AVariantUnderTest* v;
    std::vector<ABatch> problems;
    std::vector<std::vector<double>> many, single;
    std::vector<int> status;
};

void runKernels(void* p) {
    ASmallStackRun& run = *static_cast<ASmallStackRun*>(p);
    for (ABatch& b : run.problems) {
        run.status.push_back(b.decompose(run.v->decompose));
        run.many.emplace_back();
        run.status.push_back(b.many(run.v->solveMany, run.many.back()));
        run.single.emplace_back();
        run.status.push_back(b.single(run.v->solve, run.single.back()));
        std::vector<double> loops;
        run.status.push_back(b.many(run.v->solveManyLoops, loops));
    }
}

void nothing(void*) {}

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

}  // namespace

// Threads of Python, of worker pools and of small C libraries have small stacks. Every kernel runs on
// 64 KiB and uses less than 16 KiB of it.
TEST_P(QRBatchTest, KernelsRunOnASmallStack) {
    std::mt19937_64 rng(4242);
    ASmallStackRun run{&GetParam(), {}, {}, {}, {}};
    const AShape shapes[] = {{4, 4}, {6, 6}, {45, 9}, {192, 7}, {384, 4}, {768, 2}, {2016, 63}};
    for (const AShape& s : shapes)
        for (bool dense : {true, false}) run.problems.emplace_back(rng, s.h, s.w, s.h > 1000 ? 3 : 17, dense);
    std::vector<ABatch> before = run.problems;

    std::size_t idle = 0, used = 0;
    ASSERT_TRUE(PlatformRunWithStack(65536, nothing, nullptr, &idle));
    ASSERT_TRUE(PlatformRunWithStack(65536, runKernels, &run, &used));
    ASSERT_EQ(run.status.size(), 4 * run.problems.size());
    for (int s : run.status) EXPECT_EQ(s, QRStatusOk);

    // What the thread computed is what the same calls give here.
    for (std::size_t k = 0; k < before.size(); ++k) {
        SCOPED_TRACE(k);
        ASSERT_EQ(before[k].decompose(GetParam().decompose), QRStatusOk);
        EXPECT_TRUE(sameBits(before[k].qr, run.problems[k].qr));
        std::vector<double> x;
        ASSERT_EQ(before[k].many(GetParam().solveMany, x), QRStatusOk);
        EXPECT_TRUE(sameBits(x, run.many[k]));
        EXPECT_TRUE(sameBits(run.single[k], run.many[k]));
    }
    EXPECT_GT(used, idle);
    // The sanitizers' instrumentation widens every frame; the bound is for the code as shipped.
    if (!kSanitized) {
        EXPECT_LT(used - idle, 16384u) << "the kernels took " << used - idle << " bytes of stack";
    }
}

INSTANTIATE_TEST_SUITE_P(Variants, QRBatchTest, ::testing::ValuesIn(AllVariants()), VariantName);
