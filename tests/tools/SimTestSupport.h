// SimTestSupport: small observations, per-test file names and record readers for the tests of the tools.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecordStream.h>
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

// A file name in the shared temp folder that belongs to the running test alone, so that tests run in
// parallel (each its own process) and the tests of other subsystems never write the same file.
inline std::string TestPath(const std::string& suffix) {
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    return std::string(MEROVANE_TEST_TMP) + "/tools-" + info->test_suite_name() + "-" + info->name() + suffix;
}

inline std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in.is_open()) ADD_FAILURE() << "cannot open " << path;
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

struct ARecord {
    AUVXGroup group;
    std::vector<AUVXComplex> data;
};

struct ASimRun {
    ASimTruth truth;  // as read back from the truth file
    std::unique_ptr<AUVXFile> file;
    std::vector<ARecord> records;
    std::string antab;  // path of the ANTAB file
};

// Simulates `c` into the files TestPath(tag + ".uvx" / ".antab" / ".truth"), reopens the UVX file,
// reads all its records and loads the truth from its file.
inline void Simulated(const ASimConfig& c, const std::string& tag, ASimRun& run) {
    CString error;
    const std::string base = TestPath(tag);
    run.antab = base + ".antab";
    ASSERT_TRUE(
        Simulate(c, (base + ".uvx").c_str(), run.antab.c_str(), (base + ".truth").c_str(), nullptr, &error))
        << error.GetString();
    ASSERT_TRUE(run.truth.Load((base + ".truth").c_str(), &error)) << error.GetString();
    run.file.reset(new AUVXFile);
    ASSERT_TRUE(run.file->Open((base + ".uvx").c_str())) << run.file->m_errMsg.GetString();
    AUVXFile& file = *run.file;
    AUVXRecordReader reader;
    ASSERT_TRUE(reader.Open(file)) << reader.m_errMsg.GetString();
    AUVXVisibility vis(file);
    ARecord rec;
    while (reader.Next(rec.group, vis)) {
        rec.data.assign(vis.data, vis.data + vis.count);
        run.records.push_back(rec);
    }
    ASSERT_FALSE(reader.Failed()) << reader.m_errMsg.GetString();
    ASSERT_EQ(static_cast<int>(run.records.size()), file.nGroups);
}

// Index of an element in a record of the truth's shape.
inline int Element(const ASimTruth& t, int iIF, int iChan, int iStokes) {
    return (iIF * t.nChan + iChan) * static_cast<int>(t.stokes.size()) + iStokes;
}
