// Amplitude calibration of records against a long ANTAB table: Tsys by forward scan and by index.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <merovane/antab/AAntabData.h>
#include <merovane/foundation/AMemFile.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecords.h>
#include <merovane/uvx/AUVXTable.h>

namespace {

constexpr int kIF = 8;
constexpr int kChan = 64;
constexpr int kRows = 3000;      // Tsys rows per station
constexpr double kRowStep = 25;  // seconds between rows: 3000 rows span about 20.8 hours
constexpr int kRecords = 512;    // records calibrated per benchmark iteration

struct Station {
    const char* name;
    double x, y, z;
};

const Station kStations[] = {{"EF", 4033947.2, 486990.8, 4900431.0},
                             {"WB", 3828750.7, 442589.2, 5064921.6},
                             {"ON", 3370605.8, 711917.7, 5349830.9},
                             {"MC", 4461369.7, 919597.1, 4449559.4}};
constexpr int kStationCount = sizeof kStations / sizeof kStations[0];

void Check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "antab_calibrate: %s\n", what);
        std::exit(1);
    }
}

// A UVX file in memory with RR and LL, 8 IF bands, the stations and one source at 5 GHz.
void MakeUvx(AMemFile& mem, AUVXFile& file) {
    AUVXHeader header;
    header.refJD = 2459215.5;
    header.refFreq = 4.99e9;
    header.nStokes = 2;
    header.stokes[0] = -1;
    header.stokes[1] = -2;
    header.nIF = kIF;
    header.nChan = kChan;
    AUVXFile out;
    Check(out.Create(&mem, false) && out.Write(header), "cannot create the UVX file");
    AUVXTable an("AN");
    const int cName = an.AddColumn("ANNAME", 'A', 8);
    const int cXYZ = an.AddColumn("STABXYZ", 'D', 3);
    const int cId = an.AddColumn("NOSTA", 'J');
    for (int s = 0; s < kStationCount; ++s) {
        const int r = an.AddRow();
        an.SetText(r, cName, kStations[s].name);
        an.SetDouble(r, cXYZ, kStations[s].x, 0);
        an.SetDouble(r, cXYZ, kStations[s].y, 1);
        an.SetDouble(r, cXYZ, kStations[s].z, 2);
        an.SetDouble(r, cId, s + 1);
    }
    AUVXTable su("SU");
    const int cSrc = su.AddColumn("ID. NO.", 'J');
    su.AddColumn("SOURCE", 'A', 16);
    const int cRA = su.AddColumn("RAEPO", 'D');
    const int cDec = su.AddColumn("DECEPO", 'D');
    const int r = su.AddRow();
    su.SetDouble(r, cSrc, 1);
    su.SetDouble(r, cRA, 49.95);
    su.SetDouble(r, cDec, 41.51);
    AUVXTable fq("FQ");
    const int cSel = fq.AddColumn("FRQSEL", 'J');
    const int cFreq = fq.AddColumn("IF FREQ", 'D', kIF);
    fq.AddColumn("CH WIDTH", 'E', kIF);
    fq.AddColumn("TOTAL BANDWIDTH", 'E', kIF);
    fq.AddColumn("SIDEBAND", 'J', kIF);
    const int f = fq.AddRow();
    fq.SetDouble(f, cSel, 1);
    for (int i = 0; i < kIF; ++i) fq.SetDouble(f, cFreq, i * 16e6, i);
    Check(out.AddTable(an) && out.AddTable(su) && out.AddTable(fq) && out.Close(), "cannot write the tables");
    Check(file.Open(&mem, false), "cannot open the UVX file");
}

// An ANTAB text: per station a gain curve in elevation and kRows rows of 16 Tsys values.
std::string MakeAntab(std::mt19937_64& rng) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::ostringstream text;
    for (int s = 0; s < kStationCount; ++s) {
        text << "GAIN " << kStations[s].name
             << " ELEV DPFU=0.14,0.15 FREQ=4000,6000 POLY=0.9,0.003,-3e-5 /\n";
        text << "TSYS " << kStations[s].name
             << " FT=1.0 "
                "INDEX='R1','R2','R3','R4','R5','R6','R7','R8','L1','L2','L3','L4','L5','L6','L7','L8' /\n";
        char line[64];
        for (int row = 0; row < kRows; ++row) {
            const double seconds = 3600.0 + row * kRowStep;
            const int h = static_cast<int>(seconds / 3600);
            const double m = (seconds - h * 3600) / 60;
            std::snprintf(line, sizeof line, "1 %02d:%06.3f", h, m);
            text << line;
            for (int c = 0; c < 2 * kIF; ++c) text << ' ' << static_cast<int>(30 + 20 * unit(rng)) << ".5";
            text << '\n';
        }
        text << "/\n";
    }
    return text.str();
}

struct Fixture {
    Fixture() {
        std::mt19937_64 rng(7);
        MakeUvx(mem, file);
        Check(data.Init(file), data.GetErrMsg());
        std::istringstream in(MakeAntab(rng));
        Check(data.Load(in), data.GetErrMsg());
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        const double first = 3600.0, last = 3600.0 + (kRows - 1) * kRowStep;
        for (int i = 0; i < kRecords; ++i) {
            AUVXGroup g{};
            g.freqId = 1;
            g.sourceId = 1;
            g.time = first + (last - first) * unit(rng);
            g.ant1 = static_cast<std::int8_t>(1 + i % kStationCount);
            g.ant2 = static_cast<std::int8_t>(1 + (i / kStationCount + 1 + i) % kStationCount);
            groups.push_back(g);
        }
        AUVXVisibility proto(kIF, kChan, 2);
        for (int i = 0; i < proto.count; ++i)
            proto.data[i] = AUVXComplex{static_cast<float>(unit(rng)), static_cast<float>(unit(rng)), 1.0f};
        raw.assign(proto.data, proto.data + proto.count);

        // Both lookups must give the same records, bit for bit.
        for (int i = 0; i < kRecords; ++i) {
            AUVXVisibility a(kIF, kChan, 2), b(kIF, kChan, 2);
            std::memcpy(a.data, raw.data(), raw.size() * sizeof(AUVXComplex));
            std::memcpy(b.data, raw.data(), raw.size() * sizeof(AUVXComplex));
            SetScan(false);
            Check(data.Calibrate(groups[i], a), data.GetErrMsg());
            SetScan(true);
            Check(data.Calibrate(groups[i], b), data.GetErrMsg());
            Check(std::memcmp(a.data, b.data, raw.size() * sizeof(AUVXComplex)) == 0,
                  "scan and index differ");
        }
    }

    void SetScan(bool scan) {
        for (int t = 0; t < data.m_tlscs.count; ++t) data.m_tlscs[t]->m_forceScan = scan;
    }

    AMemFile mem;
    AUVXFile file;
    AAntabData data;
    std::vector<AUVXGroup> groups;
    std::vector<AUVXComplex> raw;
};

Fixture& Shared() {
    static Fixture fixture;
    return fixture;
}

void Run(benchmark::State& state, bool scan) {
    Fixture& f = Shared();
    f.SetScan(scan);
    AUVXVisibility vis(kIF, kChan, 2);
    for (auto _ : state) {
        for (int i = 0; i < kRecords; ++i) {
            std::memcpy(vis.data, f.raw.data(), f.raw.size() * sizeof(AUVXComplex));
            const bool ok = f.data.Calibrate(f.groups[i], vis);
            benchmark::DoNotOptimize(ok);
            benchmark::DoNotOptimize(vis.data[0]);
        }
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
    f.SetScan(false);
}

// Tsys by the forward scan over every row, the baseline.
void BM_CalibrateScan(benchmark::State& state) {
    Run(state, true);
}
// Tsys by bisection over the per-column index.
void BM_CalibrateIndexed(benchmark::State& state) {
    Run(state, false);
}

BENCHMARK(BM_CalibrateScan)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CalibrateIndexed)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
