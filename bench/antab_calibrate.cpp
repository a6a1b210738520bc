// Amplitude calibration of records against a long ANTAB table: Tsys by forward scan and by index, on
// records spread over the day and on records as a correlator writes them, beside the floor: a plain
// loop that scales the same elements by one factor per band and product.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
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
constexpr int kRows = 3000;       // Tsys rows per station
constexpr double kRowStep = 25;   // seconds between rows: 3000 rows span about 20.8 hours
constexpr int kRecords = 512;     // records of the spread stream calibrated per benchmark iteration
constexpr int kStamps = 10;       // time stamps of the correlator stream per benchmark iteration
constexpr double kStampStep = 2;  // seconds between them

struct Station {
    const char* name;
    double x, y, z;
};

const Station kStations[] = {
    {"EF", 4033947.2, 486990.8, 4900431.0},  {"WB", 3828750.7, 442589.2, 5064921.6},
    {"ON", 3370605.8, 711917.7, 5349830.9},  {"MC", 4461369.7, 919597.1, 4449559.4},
    {"NT", 4934562.8, 1321201.5, 3806484.7}, {"TR", 3638558.5, 1221969.7, 5077036.8},
    {"YS", 4848761.8, -261484.1, 4123085.1}, {"HH", 5085442.8, 2668263.5, -2768697.0},
    {"JB", 3822626.0, -154105.6, 5086486.0}, {"SV", 2730173.6, 1562442.8, 5529969.2}};
constexpr int kStationCount = sizeof kStations / sizeof kStations[0];
constexpr int kSpreadStations = 4;                                  // the spread stream uses the first four
constexpr int kPerStamp = kStationCount * (kStationCount + 1) / 2;  // 45 baselines, 10 autocorrelations

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
        // Spread: any two of four stations at any time of the table.
        for (int i = 0; i < kRecords; ++i) {
            AUVXGroup g{};
            g.freqId = 1;
            g.sourceId = 1;
            g.time = first + (last - first) * unit(rng);
            g.ant1 = static_cast<std::int8_t>(1 + i % kSpreadStations);
            g.ant2 = static_cast<std::int8_t>(1 + (i / kSpreadStations + 1 + i) % kSpreadStations);
            spread.push_back(g);
        }
        // As a correlator writes them: per time stamp every baseline and autocorrelation of the ten
        // stations, time stamps in order.
        for (int k = 0; k < kStamps; ++k)
            for (int a = 1; a <= kStationCount; ++a)
                for (int b = a; b <= kStationCount; ++b) {
                    AUVXGroup g{};
                    g.freqId = 1;
                    g.sourceId = 1;
                    g.time = 7200.0 + k * kStampStep;
                    g.ant1 = static_cast<std::int8_t>(a);
                    g.ant2 = static_cast<std::int8_t>(b);
                    stream.push_back(g);
                }
        AUVXVisibility proto(kIF, kChan, 2);
        for (int i = 0; i < proto.count; ++i)
            proto.data[i] = AUVXComplex{static_cast<float>(unit(rng)), static_cast<float>(unit(rng)), 1.0f};
        raw.assign(proto.data, proto.data + proto.count);
        for (int p = 0; p < kIF * 2; ++p) floorFactors.push_back(100.0 + 400.0 * unit(rng));

        // The reporting way (every telescope scanning) and the fast one (index and kept lookups) must
        // give the same records, bit for bit, on both streams.
        for (const std::vector<AUVXGroup>* records : {&spread, &stream}) {
            for (const AUVXGroup& g : *records) {
                AUVXGroup ga = g, gb = g;
                AUVXVisibility a(kIF, kChan, 2), b(kIF, kChan, 2);
                std::memcpy(a.data, raw.data(), raw.size() * sizeof(AUVXComplex));
                std::memcpy(b.data, raw.data(), raw.size() * sizeof(AUVXComplex));
                SetScan(false);
                Check(data.Calibrate(ga, a), data.GetErrMsg());
                SetScan(true);
                Check(data.Calibrate(gb, b), data.GetErrMsg());
                Check(std::memcmp(a.data, b.data, raw.size() * sizeof(AUVXComplex)) == 0,
                      "the scan and the fast way differ");
            }
        }
        SetScan(false);
    }

    void SetScan(bool scan) {
        for (int t = 0; t < data.m_tlscs.count; ++t) data.m_tlscs[t]->m_forceScan = scan;
    }

    AMemFile mem;
    AUVXFile file;
    AAntabData data;
    std::vector<AUVXGroup> spread, stream;
    std::vector<AUVXComplex> raw;
    std::vector<double> floorFactors;  // per band and product
};

Fixture& Shared() {
    static Fixture fixture;
    return fixture;
}

void Run(benchmark::State& state, const std::vector<AUVXGroup>& records, bool scan) {
    Fixture& f = Shared();
    f.SetScan(scan);
    AUVXVisibility vis(kIF, kChan, 2);
    for (auto _ : state) {
        for (const AUVXGroup& record : records) {
            AUVXGroup g = record;
            std::memcpy(vis.data, f.raw.data(), f.raw.size() * sizeof(AUVXComplex));
            const bool ok = f.data.Calibrate(g, vis);
            benchmark::DoNotOptimize(ok);
            benchmark::DoNotOptimize(vis.data[0]);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(records.size()));
    f.SetScan(false);
}

// The floor: the same records' elements scaled by one factor per band and product, the value
// components multiplied and the weight divided by the square in double, each rounded to float.
void BM_Floor(benchmark::State& state) {
    Fixture& f = Shared();
    AUVXVisibility vis(kIF, kChan, 2);
    const double* factor = f.floorFactors.data();
    double square[kIF * 2];
    for (int p = 0; p < kIF * 2; ++p) square[p] = factor[p] * factor[p];
    for (auto _ : state) {
        for (int r = 0; r < kRecords; ++r) {
            std::memcpy(vis.data, f.raw.data(), f.raw.size() * sizeof(AUVXComplex));
            AUVXComplex* c = vis.data;
            for (int iIF = 0; iIF < kIF; ++iIF)
                for (int iChan = 0; iChan < kChan; ++iChan)
                    for (int s = 0; s < 2; ++s, ++c) {
                        const int p = iIF * 2 + s;
                        c->re = static_cast<float>(static_cast<double>(c->re) * factor[p]);
                        c->im = static_cast<float>(static_cast<double>(c->im) * factor[p]);
                        c->wt = static_cast<float>(static_cast<double>(c->wt) / square[p]);
                    }
            benchmark::DoNotOptimize(vis.data[0]);
        }
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}

// Spread records, Tsys by the forward scan over every row: the reference.
void BM_CalibrateScan(benchmark::State& state) {
    Run(state, Shared().spread, true);
}
// Spread records, Tsys by bisection over the per-column index.
void BM_CalibrateIndexed(benchmark::State& state) {
    Run(state, Shared().spread, false);
}
// The correlator's order: each station's lookups serve every record of its time stamp.
void BM_CalibrateStream(benchmark::State& state) {
    Run(state, Shared().stream, false);
}

BENCHMARK(BM_Floor)->Unit(benchmark::kMicrosecond)->Repetitions(3);
BENCHMARK(BM_CalibrateScan)->Unit(benchmark::kMicrosecond)->Repetitions(3);
BENCHMARK(BM_CalibrateIndexed)->Unit(benchmark::kMicrosecond)->Repetitions(3);
BENCHMARK(BM_CalibrateStream)->Unit(benchmark::kMicrosecond)->Repetitions(3);

// Keeps the median time per record of each benchmark, to print the ratios to the floor at the end.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred || run.run_type != Run::RT_Aggregate || run.aggregate_name != "median")
                continue;
            const auto items = run.counters.find("items_per_second");
            if (items == run.counters.end() || items->second.value <= 0) continue;
            perRecord[run.run_name.function_name] = 1.0 / items->second.value;
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> perRecord;  // seconds per record
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    const auto& t = reporter.perRecord;
    const auto floor = t.find("BM_Floor");
    if (floor == t.end()) return 0;
    const double elements = kIF * kChan * 2;
    std::printf("floor %.2f ns per element\n", floor->second * 1e9 / elements);
    for (const char* name : {"BM_CalibrateScan", "BM_CalibrateIndexed", "BM_CalibrateStream"}) {
        const auto it = t.find(name);
        if (it == t.end()) continue;
        std::printf("%-20s %.2f ns per element, %.2f x the floor\n", name, it->second * 1e9 / elements,
                    it->second / floor->second);
    }
    return 0;
}
