// The per-telescope lookup of stored intervals gives the walk's answers: random stores and random queries.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "BandpassFixtures.h"

using namespace bptest;

namespace {

constexpr int kTelescopes = 20;
constexpr int kIntervals = 200;

// Fills `pass.stored` interval by interval for telescopes 1..20, as AddGain would: random lengths
// (a tenth of them 0) and random gaps (a third of them 0, so one interval's end is the next's start).
// With `shuffled`, every fifth telescope gets its intervals in random order, so its ends do not ascend.
// Returns the times worth asking about: every start, end, middle and gap middle.
std::vector<double> FillStore(ATestBPass& pass, std::mt19937_64& rng, bool shuffled) {
    std::uniform_real_distribution<double> length(0.5, 30.0), gap(0.1, 20.0), unit(0.0, 1.0);
    std::vector<std::vector<std::pair<double, double>>> spans(kTelescopes + 1);
    std::vector<double> times;
    for (int tlsc = 1; tlsc <= kTelescopes; ++tlsc) {
        double t = unit(rng) * 50.0;
        for (int k = 0; k < kIntervals; ++k) {
            const double len = unit(rng) < 0.1 ? 0.0 : length(rng);
            spans[tlsc].push_back({t, t + len});
            times.insert(times.end(), {t, t + len, t * 0.5 + (t + len) * 0.5});
            const double next = t + len + (unit(rng) < 0.33 ? 0.0 : gap(rng));
            times.push_back((t + len) * 0.5 + next * 0.5);
            t = next;
        }
        if (shuffled && tlsc % 5 == 0) std::shuffle(spans[tlsc].begin(), spans[tlsc].end(), rng);
    }
    for (int k = 0; k < kIntervals; ++k)
        for (int tlsc = 1; tlsc <= kTelescopes; ++tlsc)
            pass.stored.Add(Item(tlsc, spans[tlsc][k].first, spans[tlsc][k].second, 1, 1, 1, Cf(1, 0)));
    return times;
}

void CompareOnRandomQueries(bool shuffled, std::uint64_t seed, int queries) {
    std::mt19937_64 rng(seed);
    ATestBPass pass;
    const std::vector<double> edges = FillStore(pass, rng, shuffled);
    double last = 0;
    for (double t : edges) last = std::max(last, t);
    std::uniform_real_distribution<double> anywhere(-100.0, last + 100.0);
    std::uniform_int_distribution<int> tlscOf(-1, kTelescopes + 2),
        pick(0, static_cast<int>(edges.size()) - 1);
    int mismatches = 0, found = 0;
    for (int q = 0; q < queries; ++q) {
        // Half the queries land exactly on an edge or a middle, where the rules decide.
        const double time = (q % 2 == 0) ? edges[static_cast<std::size_t>(pick(rng))] : anywhere(rng);
        const int tlsc = tlscOf(rng);
        int wb = 0, wa = 0, lb = 0, la = 0;
        const int walk = pass.SearchIndexWalk(time, tlsc, wb, wa);
        const int lookup = pass.SearchIndex(time, tlsc, lb, la);
        if (walk != lookup || wb != lb || wa != la) {
            if (++mismatches <= 5)
                ADD_FAILURE() << "time " << time << " telescope " << tlsc << ": walk " << walk << " (" << wb
                              << ", " << wa << "), lookup " << lookup << " (" << lb << ", " << la << ")";
        }
        if (walk >= 0) ++found;
    }
    EXPECT_EQ(mismatches, 0);
    EXPECT_GT(found, queries * 3 / 4);  // most queries name a telescope that has intervals
}

}  // namespace

TEST(SearchLookup, IdenticalToTheWalkOnAHundredThousandQueries) {
    CompareOnRandomQueries(false, 12345, 100000);
}

TEST(SearchLookup, IdenticalToTheWalkWhenEndsDoNotAscend) {
    CompareOnRandomQueries(true, 777, 20000);
}

TEST(SearchLookup, CalibrateGivesTheSameBitsEitherWay) {
    std::mt19937_64 rng(99);
    AUVXHeader header = Header({-1, -2, -3, -4}, 2, 4);
    AUVXAntenns antennas;
    ATestBPass pass;
    pass.Init(header, antennas, 1);
    FillStore(pass, rng, true);
    std::uniform_real_distribution<float> value(-2.0f, 2.0f);
    // Every stored item gets coefficients of its own, so a wrong interval shows in the result.
    for (int i = 0; i < pass.stored.count; ++i) {
        ABPassCoefItem& item = *pass.stored[i];
        ASSERT_TRUE(item.Init(2, 2, 4));
        for (std::size_t c = 0; c < item.count(); ++c) item.data[c] = Cf(value(rng), value(rng));
    }
    std::uniform_real_distribution<double> time(-50.0, 6000.0);
    std::uniform_int_distribution<int> ant(1, kTelescopes);
    for (int r = 0; r < 2000; ++r) {
        AInterval rec;
        AUVXGroup g = Group(ant(rng), ant(rng), time(rng));
        AUVXVisibility& byLookup = rec.Add(g, 2, 4, 4);
        for (AUVXComplex& e : byLookup) e = AUVXComplex{value(rng), value(rng), 1.0f};
        AUVXVisibility& byWalk = rec.Add(g, 2, 4, 4);
        std::memcpy(byWalk.data, byLookup.data, sizeof(AUVXComplex) * byLookup.count);
        pass.m_searchByWalk = false;
        ASSERT_TRUE(pass.Calibrate(g, byLookup));
        pass.m_searchByWalk = true;
        ASSERT_TRUE(pass.Calibrate(g, byWalk));
        ASSERT_EQ(std::memcmp(byWalk.data, byLookup.data, sizeof(AUVXComplex) * byLookup.count), 0) << r;
    }
}
