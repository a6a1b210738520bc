// HostTestSupport: simulated observations, per-test file names and record readers for the host tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <merovane/host/ACalPipeline.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecordStream.h>

#include "ASimTruth.h"
#include "UVXSimulator.h"

// Three stations, two sources, four scans of twelve 10 s integrations, no noise, no flags; every
// station above the horizon all the time.
inline ASimConfig HostConfig() {
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

// A file name in the shared temp folder that belongs to the running test alone.
inline std::string HostPath(const std::string& suffix) {
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(info->test_suite_name()) + "-" + info->name();
    for (char& ch : name)
        if (ch == '/') ch = '_';  // parameterised tests
    return std::string(MEROVANE_TEST_TMP) + "/host-" + name + suffix;
}

inline std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in.is_open()) ADD_FAILURE() << "cannot open " << path;
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

inline void WriteText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

struct AHostRecord {
    AUVXGroup group;
    std::vector<AUVXComplex> data;
};

// Every record of a UVX file and its header; false when the file cannot be read.
inline bool ReadRecords(const std::string& path, AUVXHeader& header, std::vector<AHostRecord>& records) {
    AUVXFile file;
    if (!file.Open(path.c_str())) return false;
    header = AUVXHeader(file);
    AUVXRecordReader reader;
    if (!reader.Open(file)) return false;
    AUVXVisibility vis(file);
    AHostRecord rec{};
    records.clear();
    while (reader.Next(rec.group, vis)) {
        rec.data.assign(vis.data, vis.data + vis.count);
        records.push_back(rec);
    }
    return !reader.Failed();
}

// Simulates `c` into HostPath(tag + ".uvx" / ".antab" / ".truth") and loads the truth.
inline void SimulateFor(const ASimConfig& c, const std::string& tag, ASimTruth& truth, std::string& uvx,
                        std::string& antab) {
    CString error;
    const std::string base = HostPath(tag);
    uvx = base + ".uvx";
    antab = base + ".antab";
    ASSERT_TRUE(Simulate(c, uvx.c_str(), antab.c_str(), (base + ".truth").c_str(), &truth, &error))
        << error.GetString();
}

// Records messages and can raise the abort flag once a walk reaches a given percent.
class ARecordingListener : public ACalListener {
public:
    int* abortFlag = nullptr;
    int abortAt = 101;
    int progressCalls = 0;
    std::vector<std::string> messages;

    void OnProgress(const std::string&, int, int, int percent) override {
        ++progressCalls;
        if (abortFlag != nullptr && percent >= abortAt) *abortFlag = 1;
    }
    void OnMessage(ACalLevel, const std::string& text) override { messages.push_back(text); }
};
