// Speed of one interval pass (records passed through, records averaged) beside a plain file copy.
//
//   bench_interval_pass [benchmark options]   the three runs over a generated file of 280 MB, then
//                                              copies and pass-throughs taken in turn, five of each, with
//                                              the median of their ratios (a machine whose load drifts
//                                              moves both sides of a pair alike)
//   bench_interval_pass --rss <MB>            a pass-through and an averaging run over a generated file
//                                              of <MB> MB, with the process's peak resident size after each
// The generated files lie in the build tree and are removed at the end.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <merovane/foundation/AFile.h>
#include <merovane/interval/AMeanCalc.h>
#include <merovane/interval/AUVXTimeWorks.h>
#include <merovane/platform/PlatformFile.h>
#include <merovane/uvx/AUVXFile.h>

namespace {

// Records of 26 + 4 x 64 x 1 x 12 = 3098 bytes: 10 baselines per second of 5 telescopes.
constexpr int kIF = 4, kChan = 64, kStokes = 1;
constexpr int kBaselines = 10;
constexpr int kBlock = 4194304;

std::string Dir() {
    return MEROVANE_BENCH_DIR;
}
std::string InPath() {
    return Dir() + "/bench_interval_in.uvx";
}
std::string OutPath() {
    return Dir() + "/bench_interval_out.uvx";
}

std::int64_t RecordBytes() {
    AUVXHeader h;
    h.nIF = kIF;
    h.nChan = kChan;
    h.nStokes = kStokes;
    return AUVXFile::RecordBytes(h);
}

// Writes a file of about `megabytes` MB, streaming through one block so that generating costs no
// memory that grows with the file.
bool Generate(const std::string& path, std::int64_t megabytes, std::int64_t& fileBytes) {
    AUVXHeader h;
    AUVXHeader::SetText(h.dateObs, 12, "2024-03-01");
    h.refJD = 2460370.5;
    h.refFreq = 4.8e9;
    h.nIF = kIF;
    h.nChan = kChan;
    h.nStokes = kStokes;
    h.stokes[0] = -1;
    AUVXFile f;
    if (!f.Create(path.c_str())) {
        std::fprintf(stderr, "%s\n", f.m_errMsg.GetString());
        return false;
    }
    f.Write(h);
    f.SeekUVGroup(0);
    const std::int64_t recBytes = RecordBytes();
    const std::int64_t nRecords = megabytes * 1048576 / recBytes;
    const int nElem = kIF * kChan * kStokes;
    std::vector<unsigned char> block;
    block.reserve(kBlock + recBytes);
    std::vector<AUVXComplex> elems(static_cast<std::size_t>(nElem));
    std::uint32_t seed = 1;
    int pairs[kBaselines][2] = {{1, 2}, {1, 3}, {1, 4}, {1, 5}, {2, 3},
                                {2, 4}, {2, 5}, {3, 4}, {3, 5}, {4, 5}};
    for (std::int64_t r = 0; r < nRecords; ++r) {
        AUVXGroup g;
        std::memset(&g, 0, sizeof(g));
        g.time = static_cast<double>(r / kBaselines);
        g.ant1 = static_cast<std::int8_t>(pairs[r % kBaselines][0]);
        g.ant2 = static_cast<std::int8_t>(pairs[r % kBaselines][1]);
        g.sourceId = 1;
        g.u = static_cast<float>(r % 977);
        for (AUVXComplex& c : elems) {
            seed = seed * 1664525u + 1013904223u;
            c.re = static_cast<float>(seed >> 9) * 1e-6f - 4.0f;
            c.im = static_cast<float>(seed & 0xFFFF) * 1e-4f - 3.0f;
            c.wt = 1.0f;
        }
        const unsigned char* gp = reinterpret_cast<const unsigned char*>(&g);
        block.insert(block.end(), gp, gp + sizeof(g));
        const unsigned char* ep = reinterpret_cast<const unsigned char*>(elems.data());
        block.insert(block.end(), ep, ep + nElem * sizeof(AUVXComplex));
        if (static_cast<int>(block.size()) >= kBlock || r + 1 == nRecords) {
            if (!f.file->Write(block.data(), static_cast<int>(block.size()))) return false;
            block.clear();
        }
    }
    f.Write(h);
    if (!f.Close()) return false;
    fileBytes = AUVXFile::kFirstRecordPos + nRecords * recBytes;
    return true;
}

// Writes every interval's records as they came.
class PassHost : public AUVXTimeWorks {
protected:
    bool IntervalsExec_Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start,
                                 double end) override {
        return WriteData(vis, groups, start, end);
    }
};

// Writes one mean record per baseline and interval.
class MeanHost : public AUVXTimeWorks {
protected:
    bool IntervalsExec_Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start,
                                 double end) override {
        APtrArray<AUVXVisibility*> outVis;
        AArray<AUVXGroup> outGroups;
        m_mean.Calculate(vis, groups, start, end, outVis, outGroups, 0);
        return WriteData(outVis, outGroups, start, end);
    }

private:
    AMeanCalc m_mean;
};

bool RunHost(AUVXTimeWorks& host, double step) {
    AUVXFile in, out;
    if (!in.Open(InPath().c_str()) || !out.Create(OutPath().c_str())) return false;
    bool ok = host.IntervalsExec(&in, &out, 0, step, nullptr);
    if (!ok) std::fprintf(stderr, "run failed: %s\n", host.m_errMsg.GetString());
    return ok;
}

std::int64_t g_fileBytes = 0;
double g_rate[3] = {0, 0, 0};  // copy, pass-through, averaging, in MB/s

void Report(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * g_fileBytes);
    state.counters["MB/s"] = benchmark::Counter(static_cast<double>(g_fileBytes) / 1048576.0,
                                                benchmark::Counter::kIsIterationInvariantRate);
}

// The file copied in blocks of the driver's size; false if a transfer failed.
bool PlainCopy(std::vector<unsigned char>& block) {
    ABFile in, out;
    if (!in.Open(InPath().c_str(), PlatformOpenMode::Read) ||
        !out.Open(OutPath().c_str(), PlatformOpenMode::Create))
        return false;
    std::int64_t left = in.GetLength();
    while (left > 0) {
        int n = static_cast<int>(left < kBlock ? left : kBlock);
        if (!in.Read(block.data(), n) || !out.Write(block.data(), n)) return false;
        left -= n;
    }
    return out.Close();
}

void BM_PlainCopy(benchmark::State& state) {
    std::vector<unsigned char> block(kBlock);
    for (auto _ : state) {
        if (!PlainCopy(block)) {
            state.SkipWithError("copy failed");
            return;
        }
    }
    Report(state);
}

void BM_PassThrough(benchmark::State& state) {
    for (auto _ : state) {
        PassHost host;
        if (!RunHost(host, 10)) {
            state.SkipWithError("pass-through run failed");
            return;
        }
    }
    Report(state);
}

void BM_Averaging(benchmark::State& state) {
    for (auto _ : state) {
        MeanHost host;
        if (!RunHost(host, 10)) {
            state.SkipWithError("averaging run failed");
            return;
        }
    }
    Report(state);
}

// Collects the median rates of the repetitions to print their ratios after the table.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred || run.run_type != Run::RT_Aggregate || run.aggregate_name != "median")
                continue;
            double seconds = run.real_accumulated_time / static_cast<double>(run.iterations);
            double rate = static_cast<double>(g_fileBytes) / 1048576.0 / seconds;
            std::string name = run.benchmark_name();
            if (name.find("PlainCopy") != std::string::npos) g_rate[0] = rate;
            if (name.find("PassThrough") != std::string::npos) g_rate[1] = rate;
            if (name.find("Averaging") != std::string::npos) g_rate[2] = rate;
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

// Pass-through time over copy time of `rounds` pairs run in turn, the copy first; the median of the
// ratios of copy time to pass-through time (the pass-through's speed as a share of the copy's), or
// -1 when a run failed.
double InterleavedRatio(int rounds) {
    std::vector<unsigned char> block(kBlock);
    std::vector<double> ratios;
    for (int r = 0; r < rounds; ++r) {
        auto t0 = std::chrono::steady_clock::now();
        if (!PlainCopy(block)) return -1;
        auto t1 = std::chrono::steady_clock::now();
        PassHost host;
        if (!RunHost(host, 10)) return -1;
        auto t2 = std::chrono::steady_clock::now();
        const double copy = std::chrono::duration<double>(t1 - t0).count();
        const double pass = std::chrono::duration<double>(t2 - t1).count();
        ratios.push_back(copy / pass);
        std::printf("pair %d: copy %.0f ms, pass-through %.0f ms, %.2f of the copy's speed\n", r + 1,
                    copy * 1e3, pass * 1e3, copy / pass);
    }
    std::sort(ratios.begin(), ratios.end());
    return ratios[ratios.size() / 2];
}

int RssMode(std::int64_t megabytes) {
    std::int64_t bytes = 0;
    if (!Generate(InPath(), megabytes, bytes)) return 1;
    std::int64_t afterGenerate = PlatformPeakResidentBytes();
    PassHost pass;
    bool ok = RunHost(pass, 10);
    std::int64_t afterPass = PlatformPeakResidentBytes();
    MeanHost mean;
    ok = RunHost(mean, 10) && ok;
    std::int64_t afterMean = PlatformPeakResidentBytes();
    PlatformFileRemove(InPath().c_str());
    PlatformFileRemove(OutPath().c_str());
    std::printf(
        "file %.1f MB: peak resident %.1f MB after generating, %.1f MB after the pass-through run, "
        "%.1f MB after the averaging run%s\n",
        bytes / 1048576.0, afterGenerate / 1048576.0, afterPass / 1048576.0, afterMean / 1048576.0,
        ok ? "" : " (a run failed)");
    return ok ? 0 : 1;
}

}  // namespace

BENCHMARK(BM_PlainCopy)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2)->Repetitions(3);
BENCHMARK(BM_PassThrough)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2)->Repetitions(3);
BENCHMARK(BM_Averaging)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2)->Repetitions(3);

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--rss") == 0) return RssMode(std::atoll(argv[2]));

    if (!Generate(InPath(), 280, g_fileBytes)) {
        std::fprintf(stderr, "cannot generate %s\n", InPath().c_str());
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    const double paired = InterleavedRatio(5);
    PlatformFileRemove(InPath().c_str());
    PlatformFileRemove(OutPath().c_str());
    if (g_rate[0] > 0) {
        std::printf(
            "file %.1f MB: copy %.0f MB/s, pass-through %.0f MB/s (%.2f of the copy), averaging %.0f MB/s "
            "(%.2f of the copy)\n",
            g_fileBytes / 1048576.0, g_rate[0], g_rate[1], g_rate[1] / g_rate[0], g_rate[2],
            g_rate[2] / g_rate[0]);
    }
    if (paired > 0)
        std::printf("pass-through in turn with the copy: median %.2f of the copy's speed\n", paired);
    return 0;
}
