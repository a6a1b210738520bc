// Builders shared by the digitisation tests: headers, antenna lists, "AI" tables and intervals of records.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include <merovane/digitisation/AAIShortTbl.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecords.h>
#include <merovane/uvx/AUVXTable.h>

namespace digtest {

// A header with the given polarisation codes, IF bands and channels.
inline AUVXHeader MakeHeader(const std::vector<int>& stokes, int nIF, int nChan) {
    AUVXHeader header;
    header.nStokes = static_cast<std::int16_t>(stokes.size());
    for (size_t i = 0; i < stokes.size() && i < 8; ++i)
        header.stokes[i] = static_cast<std::int16_t>(stokes[i]);
    header.nIF = nIF;
    header.nChan = nChan;
    return header;
}

inline void AddAntenna(AUVXAntenns& antennas, int id, const char* name) {
    AUVXTlscItem item;
    std::memset(&item, 0, sizeof(item));
    std::strncpy(item.name, name, sizeof(item.name));
    item.id = id;
    antennas.Add(item);
}

// One row of an antenna-information table as the file gives it: centre and length in days.
struct AIRow {
    double time;     // days
    float interval;  // days
    int antenna;
    int levels;  // level count, 2^bits
    int freqId;
};

// The table a UVX file carries: "AI" with its five columns in the usual order.
inline std::unique_ptr<AUVXTable> MakeAITable(const std::vector<AIRow>& rows) {
    auto table = std::make_unique<AUVXTable>("AI");
    const int cTime = table->AddColumn("TIME", 'D', 1, "DAYS");
    const int cInterval = table->AddColumn("TIME_INTERVAL", 'E', 1, "DAYS");
    const int cAntenna = table->AddColumn("ANTENNA_NO", 'J');
    const int cLevels = table->AddColumn("NO_LEVELS", 'J');
    const int cFreq = table->AddColumn("FREQID", 'J');
    for (const AIRow& row : rows) {
        const int r = table->AddRow();
        table->SetDouble(r, cTime, row.time);
        table->SetDouble(r, cInterval, row.interval);
        table->SetDouble(r, cAntenna, row.antenna);
        table->SetDouble(r, cLevels, row.levels);
        table->SetDouble(r, cFreq, row.freqId);
    }
    return table;
}

inline AAIShortTblItem Item(int antenna, int freqId, int noLevels, double start, double end) {
    AAIShortTblItem item;
    item.antenna = antenna;
    item.freqId = freqId;
    item.noLevels = noLevels;
    item.start = start;
    item.end = end;
    return item;
}

// The records of one interval, as the interval driver hands them over.
struct Interval {
    APtrArray<AUVXVisibility*> vis;
    AArray<AUVXGroup> groups;
    int nIF, nChan, nStokes;

    Interval(int nIF, int nChan, int nStokes) : nIF(nIF), nChan(nChan), nStokes(nStokes) {}

    // Appends a record of baseline ant1-ant2 whose elements are all (re, im, wt).
    AUVXVisibility& Add(int ant1, int ant2, float re = 1.0f, float im = 0.0f, float wt = 1.0f,
                        double time = 0.0, int freqId = 1) {
        AUVXGroup group;
        std::memset(&group, 0, sizeof(group));
        group.ant1 = static_cast<std::int8_t>(ant1);
        group.ant2 = static_cast<std::int8_t>(ant2);
        group.freqId = static_cast<std::int8_t>(freqId);
        group.time = time;
        groups.Add(group);
        auto* v = new AUVXVisibility(nIF, nChan, nStokes);
        for (int k = 0; k < v->count; ++k) v->data[k] = AUVXComplex{re, im, wt};
        vis.Add(v);
        return *v;
    }

    // Every element of every record, as bytes, to compare before and after.
    std::vector<unsigned char> Snapshot() const {
        std::vector<unsigned char> bytes;
        for (int i = 0; i < vis.count; ++i) {
            const auto* p = reinterpret_cast<const unsigned char*>(vis.data[i]->data);
            bytes.insert(bytes.end(), p, p + sizeof(AUVXComplex) * vis.data[i]->count);
        }
        return bytes;
    }
};

// A value scaled by s the way every correction here does it: in double, rounded back to float.
inline float Scaled(float x, double s) {
    return static_cast<float>(static_cast<double>(x) * s);
}

}  // namespace digtest
