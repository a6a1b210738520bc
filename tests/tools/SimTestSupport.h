// SimTestSupport: small observations and record readers shared by the tests of the tools.
#pragma once

#include <string>
#include <vector>

#include <merovane/foundation/AReadBuffer.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecords.h>

#include "UVXSimulator.h"

// Three European stations, two sources, four scans of twelve 10 s integrations, no noise, no flags.
inline ASimConfig SmallConfig() {
    ASimConfig c;
    c.stations = {"EF", "WB", "ON"};
    c.sources = {"3C84", "4C39.25"};
    c.fluxes = {2.5, 7.0};
    c.bits = {2, 1, 3};
    c.nIF = 2;
    c.nChan = 8;
    c.intTime = 10.0;
    c.duration = 600.0;
    c.scanLength = 120.0;
    c.scanGap = 30.0;
    c.minElevation = -90.0;
    c.noiseScale = 0.0;
    c.flags = false;
    return c;
}

inline std::string TmpPath(const std::string& name) {
    return std::string(MEROVANE_TEST_TMP) + "/" + name;
}

struct ARecord {
    AUVXGroup group;
    std::vector<AUVXComplex> data;
};

// All records of an open file; empty if one cannot be read.
inline std::vector<ARecord> ReadRecords(AUVXFile& file) {
    std::vector<ARecord> out;
    file.SeekUVGroup(0);
    AReadBuffer reader;
    if (file.nGroups > 0 && !reader.Create(1 << 20, file.file)) return out;
    AUVXVisibility vis(file);
    for (int r = 0; r < file.nGroups; ++r) {
        ARecord rec;
        if (!reader.Read(&rec.group, static_cast<int>(sizeof rec.group)) ||
            !reader.Read(vis.data, vis.count * static_cast<int>(sizeof(AUVXComplex))))
            return {};
        rec.data.assign(vis.data, vis.data + vis.count);
        out.push_back(rec);
    }
    reader.Close();
    return out;
}
