// Speed of a calibration run (digitisation by power and bits, amplitude calibration, averaging) beside
// the interval driver's own pass-through over the same simulated file, in the same process.
//
//   bench_uvx_cal [benchmark options]
// The simulated observation (6 stations, 4 IF x 32 channels x 4 products, 3 hours: about 280 MB) and
// the outputs lie in the build tree and are removed at the end. The target: the calibration runs at no
// less than half the pass-through's rate; the program ends with 1 when it does not.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include <merovane/host/ACalPipeline.h>
#include <merovane/interval/AUVXTimeWorks.h>
#include <merovane/uvx/AUVXFile.h>

#include "UVXSimulator.h"

namespace {

const std::string kBase = std::string(MEROVANE_BENCH_DIR) + "/bench_uvx_cal";
const std::string kIn = kBase + "_in.uvx", kAntab = kBase + "_in.antab", kOut = kBase + "_out.uvx";

double g_fileMB = 0;
double g_rate[2] = {0, 0};  // pass-through, calibration, in MB/s

// The driver's own pass-through: every interval's records written as they came.
class APassHost : public AUVXTimeWorks {
protected:
    bool IntervalsExec_Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start,
                                 double end) override {
        return WriteData(vis, groups, start, end);
    }
};

void Report(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * g_fileMB * 1e6));
}

void BM_PassThrough(benchmark::State& state) {
    for (auto _ : state) {
        AUVXFile in, out;
        APassHost host;
        host.m_useSkanList = true;
        if (!in.Open(kIn.c_str()) || !out.Create(kOut.c_str()) ||
            !host.IntervalsExec(&in, &out, 0, 60.0, nullptr)) {
            state.SkipWithError("pass-through failed");
            return;
        }
    }
    Report(state);
}

void BM_Calibrate(benchmark::State& state) {
    ACalOptions opt;
    opt.digPower = opt.digBits = true;
    opt.antab = kAntab;
    opt.avgStep = 60.0;
    for (auto _ : state) {
        ACalPipeline run;
        if (!run.Run(kIn, kOut, opt)) {
            state.SkipWithError(run.m_errMsg.c_str());
            return;
        }
    }
    Report(state);
}

// Keeps the median rate of each benchmark's repetitions for the ratio after the table.
class ARatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred || run.run_type != Run::RT_Aggregate || run.aggregate_name != "median")
                continue;
            const double seconds = run.real_accumulated_time / static_cast<double>(run.iterations);
            const std::string name = run.benchmark_name();
            g_rate[name.find("Calibrate") != std::string::npos ? 1 : 0] = g_fileMB / seconds;
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

}  // namespace

BENCHMARK(BM_PassThrough)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1)->Repetitions(3);
BENCHMARK(BM_Calibrate)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1)->Repetitions(3);

int main(int argc, char** argv) {
    ASimConfig config;
    config.duration = 10800.0;
    CString error;
    if (!Simulate(config, kIn.c_str(), kAntab.c_str(), nullptr, nullptr, &error)) {
        std::fprintf(stderr, "cannot simulate %s: %s\n", kIn.c_str(), error.GetString());
        return 1;
    }
    g_fileMB = static_cast<double>(std::filesystem::file_size(kIn)) / 1e6;
    benchmark::Initialize(&argc, argv);
    ARatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    std::error_code ec;
    for (const std::string& p : {kIn, kAntab, kOut}) std::filesystem::remove(p, ec);
    if (g_rate[0] <= 0 || g_rate[1] <= 0) return 0;  // a filter left one out
    const double ratio = g_rate[1] / g_rate[0];
    std::printf(
        "file %.1f MB: pass-through %.0f MB/s, calibration (power, bits, amplitude, averaging) %.0f MB/s, "
        "ratio %.2f (target at least 0.50): %s\n",
        g_fileMB, g_rate[0], g_rate[1], ratio, ratio >= 0.5 ? "met" : "NOT MET");
    return ratio >= 0.5 ? 0 : 1;
}
