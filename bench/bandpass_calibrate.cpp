// Calibrate against a store of 200 intervals for each of 20 telescopes: the walk over the whole store
// against the per-telescope lookup, in the same run.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include <merovane/bandpass/ABPass.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecords.h>

namespace {

constexpr int kTelescopes = 20;
constexpr int kIntervals = 200;
constexpr double kStep = 60.0;  // seconds per interval
constexpr int kIF = 1;
constexpr int kChan = 1;  // one sample per record: the search, not the division, is what is timed
constexpr int kRecords = 1024;

// Reaches the switch between the walk and the lookup.
class ABenchPass : public ABPass {
public:
    void UseWalk(bool walk) { m_searchByWalk = walk; }
    // The two searches of one record, by the walk or by the lookup; returns the sum of the indices.
    int SearchBoth(const AUVXGroup& g, bool walk) {
        int before = 0, after = 0;
        const double time = g.time;
        if (walk)
            return SearchIndexWalk(time, g.ant1, before, after) +
                   SearchIndexWalk(time, g.ant2, before, after);
        return SearchIndex(time, g.ant1, before, after) + SearchIndex(time, g.ant2, before, after);
    }
};

struct AStore {
    AUVXHeader header;
    AUVXAntenns antennas;
    ABenchPass pass;
    std::vector<AUVXGroup> groups;
    std::vector<AUVXComplex> samples;  // the elements every record starts from

    AStore() {
        header.nStokes = 1;
        header.stokes[0] = -1;
        header.nIF = kIF;
        header.nChan = kChan;
        pass.Init(header, antennas, 1);
        std::mt19937_64 rng(2024);
        std::uniform_real_distribution<float> value(0.5f, 1.5f);
        AArray<int> ids;
        for (int id = 1; id <= kTelescopes; ++id) ids.Add(id);
        for (int k = 0; k < kIntervals; ++k) {
            if (!pass.InitInernalGain(ids)) {
                std::fprintf(stderr, "bandpass_calibrate: cannot size the items\n");
                std::exit(1);
            }
            for (ABPassCoefItem* item : pass.coefs)
                for (std::size_t c = 0; c < item->count(); ++c)
                    item->data[c] = {value(rng), value(rng) - 1.0f};
            pass.AddGain(k * kStep, (k + 1) * kStep);
        }
        std::uniform_real_distribution<double> time(-kStep, (kIntervals + 1) * kStep);
        std::uniform_int_distribution<int> ant(1, kTelescopes);
        for (int r = 0; r < kRecords; ++r) {
            AUVXGroup g;
            std::memset(&g, 0, sizeof g);
            g.time = time(rng);
            g.ant1 = static_cast<std::int8_t>(ant(rng));
            g.ant2 = static_cast<std::int8_t>(ant(rng));
            groups.push_back(g);
        }
        for (int i = 0; i < kIF * kChan; ++i) samples.push_back({value(rng), value(rng), 1.0f});
    }
};

AStore& Store() {
    static AStore store;
    return store;
}

void RunCalibrate(benchmark::State& state, bool walk) {
    AStore& store = Store();
    store.pass.UseWalk(walk);
    AUVXVisibility vis(kIF, kChan, 1);
    for (auto _ : state) {
        for (AUVXGroup& g : store.groups) {
            std::memcpy(vis.data, store.samples.data(), sizeof(AUVXComplex) * store.samples.size());
            store.pass.Calibrate(g, vis);
            benchmark::DoNotOptimize(vis.data);
        }
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}

// Every record walks the whole store twice, the baseline.
void BM_CalibrateWalk(benchmark::State& state) {
    RunCalibrate(state, true);
}

// Every record looks at its two telescopes' intervals only, by bisection.
void BM_CalibrateLookup(benchmark::State& state) {
    RunCalibrate(state, false);
}

// The searches alone, the part of Calibrate that the lookup replaces: the root and the division of a
// sample cost the same either way and bound the ratio of whole calls from above.
void RunSearch(benchmark::State& state, bool walk) {
    AStore& store = Store();
    for (auto _ : state) {
        int sum = 0;
        for (const AUVXGroup& g : store.groups) sum += store.pass.SearchBoth(g, walk);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}

void BM_SearchWalk(benchmark::State& state) {
    RunSearch(state, true);
}

void BM_SearchLookup(benchmark::State& state) {
    RunSearch(state, false);
}

}  // namespace

BENCHMARK(BM_CalibrateWalk)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CalibrateLookup)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SearchWalk)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SearchLookup)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
