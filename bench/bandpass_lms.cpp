// bench_bandpass_lms: the per-channel network phase solve on an interval of 20 telescopes (190
// baselines) x 8 IF x 64 channels x RR and LL, and where its time goes.
//
// BM_Lms1                 the whole Calculate_PH_CS_LMS1 call
// BM_Lms1Kernels          what the call asks of the QR kernels: one QRDecompose, 1024 QRSolve
// BM_Lms1PhaseGather      the measured phases of 190 records for 1024 right-hand sides, as the call
//                         gathers them (whole spectra through the vector phase, equal to phase())
// BM_Lms1PhaseGatherScalar the same through AUVXComplex::phase() one element at a time
// BM_Lms1Rotations        19 x 1024 rotations multiplied into the coefficients
// BM_Lms1Share            the call and the kernels' part of it timed in the same loop; the counter
//                         kernel_share is the kernels' processor time over the call's
#include <benchmark/benchmark.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <ctime>
#include <random>
#include <vector>

#include <merovane/bandpass/ABPass.h>
#include <merovane/bandpass/APhaseUnwrap.h>
#include <merovane/foundation/AMatrix.h>
#include <merovane/numeric/KernelDispatch.h>
#include <merovane/numeric/QRKernels.h>

namespace {

constexpr int kStations = 20, kIF = 8, kChan = 64, kStokes = 2;
constexpr int kBaselines = kStations * (kStations - 1) / 2;
constexpr int kRef = 1;

// One interval: unit-amplitude records whose phases are station phases plus a little noise.
struct AInterval {
    AInterval() {
        DetectKernelCpu();
        header.nIF = kIF;
        header.nChan = kChan;
        header.nStokes = kStokes;
        header.stokes[0] = -1;
        header.stokes[1] = -2;
        for (int id = 1; id <= kStations; ++id) {
            AUVXTlscItem item;
            std::memset(&item, 0, sizeof item);
            item.name[0] = 'T';
            item.name[1] = static_cast<char>('A' + id);
            item.id = id;
            antennas.Add(item);
        }
        std::mt19937_64 rng(11);
        std::uniform_real_distribution<double> u(-0.7, 0.7);
        std::normal_distribution<double> noise(0.0, 0.02);
        std::vector<double> phase(static_cast<std::size_t>(kStations + 1) * kIF * kStokes * kChan);
        for (double& p : phase) p = u(rng);
        const auto at = [&](int id, int iIF, int s, int c) {
            return phase[((static_cast<std::size_t>(id) * kIF + iIF) * kStokes + s) * kChan + c];
        };
        for (int a = 1; a <= kStations; ++a)
            for (int b = a + 1; b <= kStations; ++b) {
                AUVXGroup g;
                std::memset(&g, 0, sizeof g);
                g.ant1 = static_cast<std::int8_t>(a);
                g.ant2 = static_cast<std::int8_t>(b);
                g.time = 5.0;
                auto* v = new AUVXVisibility(kIF, kChan, kStokes);
                for (int iIF = 0; iIF < kIF; ++iIF)
                    for (int c = 0; c < kChan; ++c)
                        for (int s = 0; s < kStokes; ++s) {
                            const double ph = at(a, iIF, s, c) - at(b, iIF, s, c) + noise(rng);
                            v->At(iIF, c, s) = AUVXComplex{static_cast<float>(std::cos(ph)),
                                                           static_cast<float>(std::sin(ph)), 1.0f};
                        }
                groups.Add(g);
                vis.Add(v);
            }
        bp.Init(header, antennas, 1);
        AArray<int> map;
        ABPass::GetTlscMap(groups, map);
        bp.InitInernalGain(map);
    }

    AUVXHeader header;
    AUVXAntenns antennas;
    APtrArray<AUVXVisibility*> vis;
    AArray<AUVXGroup> groups;
    ABPass bp;
};

AInterval& Interval() {
    static AInterval interval;
    return interval;
}

// The design matrix of the call (reference 1, columns 2..20), and the right-hand sides it solves,
// one per product, IF and channel, gathered once.
struct AKernelWork {
    AKernelWork() {
        AInterval& iv = Interval();
        a.Resize(kBaselines, kStations - 1);
        a.Zero();
        for (int k = 0; k < kBaselines; ++k) {
            const int c1 = iv.groups[k].ant1 - 2, c2 = iv.groups[k].ant2 - 2;
            if (c1 >= 0) a(k, c1) = 1.0;
            if (c2 >= 0) a(k, c2) = -1.0;
        }
        q.Resize(kBaselines, kStations - 1);
        rhs.resize(static_cast<std::size_t>(kStokes) * kIF * kChan * kBaselines);
        std::size_t at = 0;
        for (int s = 0; s < kStokes; ++s)
            for (int iIF = 0; iIF < kIF; ++iIF)
                for (int c = 0; c < kChan; ++c)
                    for (int k = 0; k < kBaselines; ++k) rhs[at++] = iv.vis[k]->At(iIF, c, s).phase();
        work.resize(kBaselines);
        x.resize(kStations - 1);
    }
    // One call's kernel work; gives the status of the last kernel.
    int Run() {
        const int n = kStations - 1, m = kBaselines;
        int status = QRDecompose(a.data, n * 8, 8, work.data(), q.data, n * 8, 8, n, m);
        for (std::size_t r = 0; r < rhs.size(); r += m)
            status |= QRSolve(q.data, n * 8, 8, work.data(), rhs.data() + r, 8, x.data(), 8, n, m);
        return status;
    }
    AMatrix<double> a, q;
    std::vector<double> rhs, work, x;
};

void BM_Lms1(benchmark::State& state) {
    AInterval& iv = Interval();
    for (auto _ : state) {
        if (!iv.bp.Calculate_PH_CS_LMS1(iv.vis, iv.groups, 0.0, 10.0, kRef))
            state.SkipWithError("solve failed");
        benchmark::ClobberMemory();
    }
    state.counters["solves"] =
        benchmark::Counter(kStokes * kIF * kChan, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_Lms1)->Unit(benchmark::kMillisecond);

void BM_Lms1Kernels(benchmark::State& state) {
    AKernelWork w;
    for (auto _ : state) {
        if (w.Run() != 0) state.SkipWithError("kernel failed");
        benchmark::DoNotOptimize(w.x.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Lms1Kernels)->Unit(benchmark::kMillisecond);

// The call's gather: each record's spectrum at once through the vector phase.
void BM_Lms1PhaseGather(benchmark::State& state) {
    AInterval& iv = Interval();
    std::vector<double> phases(static_cast<std::size_t>(kChan) * kBaselines);
    for (auto _ : state) {
        for (int s = 0; s < kStokes; ++s)
            for (int iIF = 0; iIF < kIF; ++iIF) {
                for (int k = 0; k < kBaselines; ++k)
                    PhaseSpectrum(*iv.vis[k], iIF, s, phases.data() + k, kBaselines);
                benchmark::DoNotOptimize(phases.data());
            }
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Lms1PhaseGather)->Unit(benchmark::kMillisecond);

// The same phases one element at a time through AUVXComplex::phase() (the library's atan2f), for
// comparison: this is what the gather would cost without the vector phase.
void BM_Lms1PhaseGatherScalar(benchmark::State& state) {
    AInterval& iv = Interval();
    std::vector<double> b(kBaselines);
    for (auto _ : state) {
        for (int s = 0; s < kStokes; ++s)
            for (int iIF = 0; iIF < kIF; ++iIF)
                for (int c = 0; c < kChan; ++c) {
                    const int element = iv.vis[0]->Index(iIF, c, s);
                    for (int k = 0; k < kBaselines; ++k) b[k] = iv.vis[k]->data[element].phase();
                    benchmark::DoNotOptimize(b.data());
                }
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Lms1PhaseGatherScalar)->Unit(benchmark::kMillisecond);

void BM_Lms1Rotations(benchmark::State& state) {
    std::vector<std::complex<float>> coefs(static_cast<std::size_t>(kStations - 1) * kStokes * kIF * kChan,
                                           std::complex<float>(1.0f, 0.0f));
    double angle = 0.1;
    for (auto _ : state) {
        for (std::complex<float>& c : coefs) {
            PhaseRotate(c, angle);
            angle += 1e-3;
        }
        benchmark::DoNotOptimize(coefs.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Lms1Rotations)->Unit(benchmark::kMillisecond);

void BM_Lms1Share(benchmark::State& state) {
    AInterval& iv = Interval();
    AKernelWork w;
    double call = 0, kernels = 0;
    for (auto _ : state) {
        // Processor time, not wall time: on a shared machine the waits for a core would land in
        // whichever of the two parts happened to be running.
        const std::clock_t t0 = std::clock();
        if (!iv.bp.Calculate_PH_CS_LMS1(iv.vis, iv.groups, 0.0, 10.0, kRef))
            state.SkipWithError("solve failed");
        const std::clock_t t1 = std::clock();
        if (w.Run() != 0) state.SkipWithError("kernel failed");
        const std::clock_t t2 = std::clock();
        call += static_cast<double>(t1 - t0);
        kernels += static_cast<double>(t2 - t1);
        benchmark::ClobberMemory();
    }
    state.counters["kernel_share"] = call > 0 ? kernels / call : 0.0;
    state.counters["dispatch_index"] = KernelDispatchIndex;
}
BENCHMARK(BM_Lms1Share)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
