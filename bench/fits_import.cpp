// Speed of a UVFITS import beside a plain copy of the same file, in the same run.
//
//   bench_fits_import [benchmark options] [--mb N]
// The setup writes a UVFITS file of at least N MB (256 by default) into a fresh folder under the
// system's temporary directory (a UVX file of synthetic records, exported); both runs read that file
// and write a file of about its size beside it; the folder is removed at the end. The counter
// "ratio" of BM_ImportVsCopy is the import's rate over the copy's, each iteration timing both.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#ifdef MEROVANE_HAVE_FITS
#include <AFitsExport.h>
#include <AFitsImport.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/UVXTableLayouts.h>
#endif

namespace fs = std::filesystem;

namespace {

long g_megabytes = 256;
fs::path g_dir;

#ifdef MEROVANE_HAVE_FITS
// Records of 8 IF x 64 channels x 4 products: 24.6 kB, as a VLBI correlator gives them.
constexpr int kIF = 8, kChan = 64, kStokes = 4;

fs::path FitsPath() {
    return g_dir / "big.uvfits";
}

// Writes the UVX file of synthetic records and exports it; false with a message on stderr.
bool MakeInput() {
    std::random_device rd;
    g_dir = fs::temp_directory_path() / ("merovane-bench-fits-" + std::to_string(rd()));
    fs::create_directories(g_dir);
    const std::string uvxPath = (g_dir / "source.uvx").string();
    AUVXHeader h;
    h.refJD = 2460409.5;
    AUVXHeader::SetText(h.dateObs, sizeof h.dateObs, "2024-04-09");
    h.refFreq = 4.99e9;
    h.chanWidth = 250e3;
    h.totalBandwidth = 16e6;
    h.equinox = 2000;
    h.intTime = 1;
    h.refChan = 1;
    h.sideband = 1;
    h.nStokes = kStokes;
    for (int s = 0; s < kStokes; ++s) h.stokes[s] = static_cast<std::int16_t>(-1 - s);
    h.nIF = kIF;
    h.nChan = kChan;
    AUVXFile file;
    if (!file.Create(uvxPath.c_str())) return false;
    AUVXRecordWriter writer;
    if (!writer.Open(file, h)) return false;
    const long long recordBytes = AUVXFile::RecordBytes(h);
    const long long records = (g_megabytes * 1048576LL) / recordBytes + 1;
    std::vector<AUVXComplex> e(static_cast<std::size_t>(kIF) * kChan * kStokes);
    std::mt19937 random(7);
    std::normal_distribution<float> noise(0.0f, 1.0f);
    for (AUVXComplex& c : e) c = {noise(random), noise(random), 1.0f};
    const int nAnt = 10;
    for (long long r = 0; r < records; ++r) {
        AUVXGroup g{};
        const int bl = static_cast<int>(r % (nAnt * (nAnt - 1) / 2));
        int a1 = 1, k = bl;
        while (k >= nAnt - a1) k -= nAnt - a1++;
        g.ant1 = static_cast<std::int8_t>(a1);
        g.ant2 = static_cast<std::int8_t>(a1 + 1 + k);
        g.sourceId = 1;
        g.freqId = 1;
        g.time = 36000.0 + static_cast<double>(r / 45);
        g.u = 0.01f * a1;
        g.v = -0.01f * k;
        g.w = 0.001f;
        e[r % e.size()].re += 0.5f;
        if (!writer.Write(g, e.data())) return false;
    }
    if (!writer.Finish()) return false;
    AUVXTable an, su, fq;
    CreateTable(an, kLayoutAN, kIF);
    for (int a = 1; a <= nAnt; ++a) {
        const int row = an.AddRow();
        an.SetText(row, kANName, ("S" + std::to_string(a)).c_str());
        an.SetDouble(row, kANStabXyz, 4e6 + a * 1e5, 0);
        an.SetDouble(row, kANStabXyz, 1e6 - a * 1e5, 1);
        an.SetDouble(row, kANStabXyz, 4.8e6, 2);
        an.SetDouble(row, kANNoSta, a);
    }
    an.SetKeyword(kKeyXyzHand, "RIGHT");
    CreateTable(su, kLayoutSU, kIF);
    su.AddRow();
    su.SetDouble(0, kSUId, 1);
    su.SetText(0, kSUSource, "BENCH");
    CreateTable(fq, kLayoutFQ, kIF);
    fq.AddRow();
    fq.SetDouble(0, kFQFrqSel, 1);
    for (int i = 0; i < kIF; ++i) {
        fq.SetDouble(0, kFQIfFreq, i * 16e6, i);
        fq.SetDouble(0, kFQChWidth, 250e3, i);
        fq.SetDouble(0, kFQTotalBandwidth, 16e6, i);
        fq.SetDouble(0, kFQSideband, 1, i);
    }
    if (!file.AddTable(an) || !file.AddTable(su) || !file.AddTable(fq) || !file.Close()) return false;
    AFitsExport exporter;
    if (!exporter.Export(uvxPath.c_str(), FitsPath().string().c_str())) {
        std::fprintf(stderr, "bench_fits_import: %s\n", exporter.m_errMsg.GetString());
        return false;
    }
    fs::remove(uvxPath);
    return true;
}

// The baseline: read the file and write it again, in 4 MiB blocks.
void PlainCopy(const fs::path& from, const fs::path& to) {
    std::ifstream in(from, std::ios::binary);
    std::ofstream out(to, std::ios::binary | std::ios::trunc);
    std::vector<char> block(4 << 20);
    while (in) {
        in.read(block.data(), static_cast<std::streamsize>(block.size()));
        out.write(block.data(), in.gcount());
    }
}

void Import(const fs::path& from, const fs::path& to, benchmark::State& state) {
    AFitsImport import;
    if (!import.Import(from.string().c_str(), to.string().c_str()))
        state.SkipWithError(import.m_errMsg.GetString());
}

void BM_PlainCopy(benchmark::State& state) {
    const auto bytes = static_cast<std::int64_t>(fs::file_size(FitsPath()));
    for (auto _ : state) PlainCopy(FitsPath(), g_dir / "copy.bin");
    state.SetBytesProcessed(state.iterations() * bytes);
    fs::remove(g_dir / "copy.bin");
}

void BM_FitsImport(benchmark::State& state) {
    const auto bytes = static_cast<std::int64_t>(fs::file_size(FitsPath()));
    for (auto _ : state) Import(FitsPath(), g_dir / "import.uvx", state);
    state.SetBytesProcessed(state.iterations() * bytes);
    fs::remove(g_dir / "import.uvx");
}

// Both in each iteration, so that the ratio compares runs under the same conditions. The order
// alternates and each output is removed before the next run, so that neither run pays for the
// write-back of the other's output.
void BM_ImportVsCopy(benchmark::State& state) {
    using clock = std::chrono::steady_clock;
    const double mb = static_cast<double>(fs::file_size(FitsPath())) / 1048576.0;
    double copySeconds = 0, importSeconds = 0;
    long turn = 0;
    for (auto _ : state) {
        for (int step = 0; step < 2; ++step) {
            const bool copy = (step == 0) == (turn % 2 == 0);
            const auto t0 = clock::now();
            if (copy) {
                PlainCopy(FitsPath(), g_dir / "copy.bin");
            } else {
                Import(FitsPath(), g_dir / "import.uvx", state);
            }
            (copy ? copySeconds : importSeconds) += std::chrono::duration<double>(clock::now() - t0).count();
            state.PauseTiming();
            fs::remove(g_dir / (copy ? "copy.bin" : "import.uvx"));
            state.ResumeTiming();
        }
        ++turn;
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["file_MB"] = mb;
    state.counters["copy_MBps"] = mb * n / copySeconds;
    state.counters["import_MBps"] = mb * n / importSeconds;
    state.counters["ratio"] = copySeconds / importSeconds;
}

BENCHMARK(BM_PlainCopy)->Unit(benchmark::kMillisecond)->MinTime(1.0)->UseRealTime();
BENCHMARK(BM_FitsImport)->Unit(benchmark::kMillisecond)->MinTime(1.0)->UseRealTime();
BENCHMARK(BM_ImportVsCopy)->Unit(benchmark::kMillisecond)->Iterations(4);
#else
void BM_FitsImportUnavailable(benchmark::State& state) {
    for (auto _ : state) state.SkipWithError("built without the FITS bridge (cfitsio not found)");
}
BENCHMARK(BM_FitsImportUnavailable);
#endif

}  // namespace

int main(int argc, char** argv) {
    // --mb N before the benchmark library sees the arguments.
    std::vector<char*> args;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--mb") == 0 && i + 1 < argc) {
            g_megabytes = std::max(1L, std::strtol(argv[++i], nullptr, 10));
            continue;
        }
        args.push_back(argv[i]);
    }
    int n = static_cast<int>(args.size());
    benchmark::Initialize(&n, args.data());
#ifdef MEROVANE_HAVE_FITS
    if (!MakeInput()) {
        std::fprintf(stderr, "bench_fits_import: cannot write the input file under %s\n",
                     g_dir.string().c_str());
        std::error_code ec;
        fs::remove_all(g_dir, ec);
        return 1;
    }
#endif
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
#ifdef MEROVANE_HAVE_FITS
    std::error_code ec;
    fs::remove_all(g_dir, ec);
#endif
    return 0;
}
