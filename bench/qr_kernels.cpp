// bench_qr_kernels: QRDecompose then QRSolveMany in each processor variant, beside OpenBLAS on one thread.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <merovane/numeric/KernelDispatch.h>
#include <merovane/numeric/QRKernels.h>
#include <merovane/numeric/QRVariants.h>

#if defined(MEROVANE_HAVE_OPENBLAS)
extern "C" {
void openblas_set_num_threads(int n);
void dgeqrf_(const int* m, const int* n, double* a, const int* lda, double* tau, double* work,
             const int* lwork, int* info);
void dormqr_(const char* side, const char* trans, const int* m, const int* n, const int* k, const double* a,
             const int* lda, const double* tau, double* c, const int* ldc, double* work, const int* lwork,
             int* info, std::size_t sideLen, std::size_t transLen);
void dtrsm_(const char* side, const char* uplo, const char* transa, const char* diag, const int* m,
            const int* n, const double* alpha, const double* a, const int* lda, double* b, const int* ldb,
            std::size_t, std::size_t, std::size_t, std::size_t);
}
#endif

namespace {

// (rows, columns, right-hand sides) of the phase bandpass by least squares: 10, 20 and 64 telescopes.
struct AShape {
    int h, w, count;
};
const AShape kShapes[] = {{45, 9, 1024}, {190, 19, 4096}, {2016, 63, 4096}};

// One problem: A row-major, the right-hand sides one after the other (the layout of the bandpass).
struct AProblem {
    explicit AProblem(const AShape& s) : shape(s) {
        std::mt19937_64 rng(42);
        std::uniform_real_distribution<double> u(-1.0, 1.0);
        a.resize(static_cast<std::size_t>(s.h) * s.w);
        for (double& e : a) e = u(rng);
        b.resize(static_cast<std::size_t>(s.h) * s.count);
        for (double& e : b) e = u(rng);
        qr.resize(a.size());
        x.resize(static_cast<std::size_t>(s.w) * s.count);
        buffer.resize(s.h);
    }
    AShape shape;
    std::vector<double> a, b, qr, x, buffer;
};

void runVariant(benchmark::State& state, const AShape& shape, QRDecomposeFn decompose,
                QRSolveManyFn solveMany) {
    AProblem p(shape);
    const int h = shape.h, w = shape.w;
    for (auto _ : state) {
        int s = decompose(p.a.data(), w * 8, 8, p.buffer.data(), p.qr.data(), w * 8, 8, w, h);
        s |= solveMany(p.qr.data(), w * 8, 8, p.buffer.data(), p.b.data(), h * 8, 8, p.x.data(), w * 8, 8, w,
                       h, shape.count);
        if (s != 0) state.SkipWithError("kernel failed");
        benchmark::DoNotOptimize(p.x.data());
        benchmark::ClobberMemory();
    }
}

#if defined(MEROVANE_HAVE_OPENBLAS)
// dgeqrf, dormqr (Q' B) and dtrsm (R X = Q' B) on column-major copies. Copying B back before each
// round is needed as both work in place; it is left out of the time.
void runOpenBLAS(benchmark::State& state, const AShape& shape) {
    AProblem p(shape);
    const int h = shape.h, w = shape.w, n = shape.count;
    std::vector<double> colMajor(p.a.size()), work(p.a.size()), tau(w), bw(p.b.size());
    for (int i = 0; i < h; ++i)
        for (int j = 0; j < w; ++j)
            colMajor[static_cast<std::size_t>(j) * h + i] = p.a[static_cast<std::size_t>(i) * w + j];
    int info = 0, query = -1;
    double q1 = 0.0, q2 = 0.0;
    dgeqrf_(&h, &w, work.data(), &h, tau.data(), &q1, &query, &info);
    dormqr_("L", "T", &h, &n, &w, work.data(), &h, tau.data(), bw.data(), &h, &q2, &query, &info, 1, 1);
    const int lwork = static_cast<int>(q1 > q2 ? q1 : q2);
    std::vector<double> scratch(lwork);
    const double one = 1.0;
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(bw.data(), p.b.data(), bw.size() * sizeof(double));
        state.ResumeTiming();
        std::memcpy(work.data(), colMajor.data(), work.size() * sizeof(double));
        dgeqrf_(&h, &w, work.data(), &h, tau.data(), scratch.data(), &lwork, &info);
        dormqr_("L", "T", &h, &n, &w, work.data(), &h, tau.data(), bw.data(), &h, scratch.data(), &lwork,
                &info, 1, 1);
        dtrsm_("L", "U", "N", "N", &w, &n, &one, work.data(), &h, bw.data(), &h, 1, 1, 1, 1);
        if (info != 0) state.SkipWithError("LAPACK failed");
        benchmark::DoNotOptimize(bw.data());
        benchmark::ClobberMemory();
    }
}
#endif

// Prints the runs as usual and, at the end, each shape's times as ratios to the scalar variant and
// to OpenBLAS. Processor time, not wall time: the build machines are shared, and every contender
// runs on one thread.
class ARatioReporter : public benchmark::ConsoleReporter {
public:
    // Plain text: the table goes to logs and reports.
    ARatioReporter() : ConsoleReporter(OO_Tabular) {}
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs)
            if (!r.error_occurred) times[r.benchmark_name()] = r.GetAdjustedCPUTime();
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\n%-18s %-8s %12s %12s %12s\n", "shape", "variant", "cpu (ms)", "scalar/this",
                    "this/OpenBLAS");
        for (const AShape& s : kShapes) {
            const std::string prefix =
                "QR/" + std::to_string(s.h) + "x" + std::to_string(s.w) + "x" + std::to_string(s.count) + "/";
            const double scalar = find(prefix + "Scalar"), blas = find(prefix + "OpenBLAS");
            for (const char* v : {"SSE2", "Scalar", "SSE41", "AVX", "OpenBLAS"}) {
                const double t = find(prefix + v);
                if (t <= 0.0) continue;
                std::printf("%-18s %-8s %12.3f %12.2f", prefix.substr(3, prefix.size() - 4).c_str(), v, t,
                            scalar > 0.0 ? scalar / t : 0.0);
                if (blas > 0.0)
                    std::printf(" %12.2f\n", t / blas);
                else
                    std::printf(" %12s\n", "-");
            }
        }
    }

private:
    double find(const std::string& name) const {
        auto it = times.find(name);
        return it == times.end() ? 0.0 : it->second;
    }
    std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
    const std::uint64_t f = ReadCpuFeatures();
    struct AVariant {
        const char* name;
        QRDecomposeFn decompose;
        QRSolveManyFn solveMany;
        bool runs;
    };
    const AVariant variants[] = {
        {"SSE2", QRDecomposeSSE2, QRSolveManySSE2, true},
        {"Scalar", QRDecomposeScalar, QRSolveManyScalar, true},
        {"SSE41", QRDecomposeSSE41, QRSolveManySSE41, (f & CpuFeatureSSE41) != 0},
        {"AVX", QRDecomposeAVX, QRSolveManyAVX, (f & CpuFeatureAVX) != 0 && (f & CpuFeatureAVXState) != 0},
    };
#if defined(MEROVANE_HAVE_OPENBLAS)
    openblas_set_num_threads(1);
#endif
    for (const AShape& s : kShapes) {
        const std::string prefix =
            "QR/" + std::to_string(s.h) + "x" + std::to_string(s.w) + "x" + std::to_string(s.count) + "/";
        for (const AVariant& v : variants) {
            if (!v.runs) continue;
            benchmark::RegisterBenchmark((prefix + v.name).c_str(), runVariant, s, v.decompose, v.solveMany)
                ->Unit(benchmark::kMillisecond);
        }
#if defined(MEROVANE_HAVE_OPENBLAS)
        benchmark::RegisterBenchmark((prefix + "OpenBLAS").c_str(), runOpenBLAS, s)
            ->Unit(benchmark::kMillisecond);
#endif
    }
    benchmark::Initialize(&argc, argv);
    ARatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
