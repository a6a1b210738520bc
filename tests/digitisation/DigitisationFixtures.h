// Builders shared by the digitisation tests: groups, "AI" rows and intervals of records.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include <merovane/digitisation/AAIShortTbl.h>
#include <merovane/uvx/AUVXRecords.h>

namespace digtest {

inline AUVXGroup Group(int ant1, int ant2, int freqId, double time) {
    AUVXGroup group{};
    group.ant1 = static_cast<std::int8_t>(ant1);
    group.ant2 = static_cast<std::int8_t>(ant2);
    group.freqId = static_cast<std::int8_t>(freqId);
    group.time = time;
    return group;
}

inline AAIShortTbl Table(const std::vector<AAIShortTblItem>& items) {
    AAIShortTbl table;
    for (const AAIShortTblItem& item : items) table.Add(item);
    return table;
}

// The records of one interval, as the interval driver hands them over.
struct Interval {
    APtrArray<AUVXVisibility*> vis;
    AArray<AUVXGroup> groups;
    int nIF, nChan, nStokes;

    Interval(int nIF, int nChan, int nStokes) : nIF(nIF), nChan(nChan), nStokes(nStokes) {}

    // Appends a record of baseline ant1-ant2 whose elements are all (re, im, wt).
    AUVXVisibility& Add(int ant1, int ant2, float re = 1.0f, float im = 0.0f, float wt = 1.0f,
                        double time = 0.0) {
        groups.Add(Group(ant1, ant2, 1, time));
        auto* v = new AUVXVisibility(nIF, nChan, nStokes);
        for (auto& e : *v) e = AUVXComplex{re, im, wt};
        vis.Add(v);
        return *v;
    }

    // Every element of every record, as bytes, to compare before and after.
    std::vector<unsigned char> Snapshot() const {
        std::vector<unsigned char> bytes;
        for (const AUVXVisibility* v : vis) {
            const auto* p = reinterpret_cast<const unsigned char*>(v->data);
            bytes.insert(bytes.end(), p, p + sizeof(AUVXComplex) * v->count);
        }
        return bytes;
    }
};

// A value scaled by s the way every correction here does it: in double, rounded back to float.
inline float Scaled(float x, double s) {
    return static_cast<float>(static_cast<double>(x) * s);
}

inline void ExpectElement(const AUVXComplex& got, float re, float im, float wt, const char* what) {
    EXPECT_EQ(got.re, re) << what;
    EXPECT_EQ(got.im, im) << what;
    EXPECT_EQ(got.wt, wt) << what;
}

}  // namespace digtest
