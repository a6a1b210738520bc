// MSTestSupport: observations, file contents and comparisons for the tests of the Measurement Set bridge.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecords.h>
#include <merovane/uvx/AUVXTable.h>

#include "UVXSimulator.h"

// Three stations, two sources, two IFs of 8 channels, RR LL RL LR, four scans of 10 s integrations,
// with noise and a few percent of flagged elements, so that values, weights and flags all vary.
ASimConfig MSSimConfig();

// Everything a UVX file holds, read through the UVX layer.
struct AUVXContent {
    AUVXHeader header;
    std::vector<AUVXGroup> groups;
    std::vector<std::vector<AUVXComplex>> data;
    std::vector<std::unique_ptr<AUVXTable>> tables;
    std::string error;  // empty when the file was read whole

    const AUVXTable* Table(const char* name) const;
};
AUVXContent LoadUVX(const std::string& path);

// What a hand-built file holds: header, records and tables (AN, SU, FQ with one setup, SL).
struct AUVXBuild {
    AUVXHeader header;
    std::vector<AUVXGroup> groups;
    std::vector<std::vector<AUVXComplex>> data;
    std::vector<int> stationIds;       // NOSTA of the AN rows
    std::vector<double> stationXyz;    // x y z per station, metres
    std::vector<int> sourceIds;        // ID. NO. of the SU rows
    std::vector<double> sourceRaDec;   // ra dec per source, degrees
    std::vector<double> ifOffsets;     // IF FREQ of the FQ row, Hz
    std::vector<double> scanStartEnd;  // START END per SL row, seconds
    std::string xyzHand = "RIGHT";
};
// Writes `b` with the UVX layer's writer; false with `error`.
bool WriteUVX(const std::string& path, const AUVXBuild& b, std::string& error);

// A point source l, m radians off the phase centre seen by four stations on two IFs of 4 channels,
// RR and LL, five integrations: V = exp(-2 pi i f (u l + v m + w (n - 1))) at each channel's centre f.
AUVXBuild OffsetSourceBuild(double l, double m);

// Compares two contents; adds a failure per difference. Times to `timeTolerance` seconds; u v w, values
// and weights exactly; table values of type D to a relative 1e-12, the rest exactly.
void ExpectSameContent(const AUVXContent& expected, const AUVXContent& actual, double timeTolerance,
                       bool compareOrigin);
void ExpectSameTable(const AUVXTable& expected, const AUVXTable& actual);

// A path of its own for the running test under MEROVANE_TEST_TMP.
std::string MSTestPath(const std::string& suffix);
// Removes a file or directory tree; true if nothing is left there.
bool RemoveTree(const std::string& path);
bool PathExists(const std::string& path);
// Names of the entries of `dir` whose name begins with `prefix`.
std::vector<std::string> EntriesStartingWith(const std::string& dir, const std::string& prefix);
