// Bad input to the Measurement Set bridge: a clear message naming the file, and nothing left behind.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <AMSBridge.h>

#include "MSTestSupport.h"

#ifdef MEROVANE_TEST_CASACORE
#include <casacore/ms/MeasurementSets/MSColumns.h>
#include <casacore/ms/MeasurementSets/MeasurementSet.h>
#include <casacore/tables/Tables/TableRecord.h>
#endif

namespace {

std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in.is_open()) ADD_FAILURE() << "cannot open " << path;
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// Imports `ms` into a UVX path that holds an older file; expects failure with a message that begins
// with `ms` and contains `text`, the older file untouched and no partial file beside it.
void ExpectImportRefused(const std::string& ms, const std::string& text) {
    const std::string out = MSTestPath("-out.uvx");
    {
        std::ofstream old(out, std::ios::binary);
        old << "older content";
    }
    AMSBridge bridge;
    EXPECT_FALSE(bridge.ImportMS(ms.c_str(), out.c_str()));
    const std::string message = bridge.m_errMsg.GetString();
    EXPECT_EQ(message.rfind(ms + ": ", 0), 0u) << message;
    EXPECT_NE(message.find(text), std::string::npos) << message;
    EXPECT_EQ(Slurp(out), "older content");
    EXPECT_FALSE(PathExists(out + ".merovane-partial"));
}

// Exports a small hand-built observation to MSTestPath(".ms").
std::string ExportedSet() {
    const std::string uvx = MSTestPath(".uvx");
    const std::string ms = MSTestPath(".ms");
    std::string error;
    EXPECT_TRUE(WriteUVX(uvx, OffsetSourceBuild(0.0, 0.0), error)) << error;
    RemoveTree(ms);
    AMSBridge bridge;
    EXPECT_TRUE(bridge.ExportMS(uvx.c_str(), ms.c_str())) << bridge.m_errMsg.GetString();
    return ms;
}

}  // namespace

TEST(MSBadInput, PathsThatAreNoMeasurementSet) {
    const std::string file = MSTestPath("-plain.txt");
    {
        std::ofstream f(file);
        f << "not a table\n";
    }
    ExpectImportRefused(file, "is not a Measurement Set: not a directory");
    const std::string dir = MSTestPath("-empty.ms");
    RemoveTree(dir);
    std::filesystem::create_directories(dir + "/inner");
    ExpectImportRefused(dir, "is not a Measurement Set: no casacore table of that type");
    ExpectImportRefused(MSTestPath("-nowhere.ms"), "is not a Measurement Set: not a directory");
    EXPECT_FALSE(AMSBridge::IsMeasurementSet(dir.c_str()));
    EXPECT_TRUE(AMSBridge::IsMeasurementSet(ExportedSet().c_str()));
}

TEST(MSBadInput, MissingSubtable) {
    const std::string ms = ExportedSet();
    ASSERT_TRUE(RemoveTree(ms + "/ANTENNA"));
    ExpectImportRefused(ms, "is not a complete Measurement Set: subtable ANTENNA is missing");
}

TEST(MSBadInput, ExportRefusesAndLeavesNothing) {
    AMSBridge bridge;
    const std::string out = MSTestPath(".ms");
    RemoveTree(out);
    const std::string missing = MSTestPath("-missing.uvx");
    EXPECT_FALSE(bridge.ExportMS(missing.c_str(), out.c_str()));
    EXPECT_NE(std::string(bridge.m_errMsg.GetString()).find(missing), std::string::npos)
        << bridge.m_errMsg.GetString();
    EXPECT_FALSE(PathExists(out));

    // Products without a correlation type of the Measurement Set (Stokes I).
    AUVXBuild b = OffsetSourceBuild(0.0, 0.0);
    b.header.stokes[0] = 1;
    const std::string uvx = MSTestPath("-stokes.uvx");
    std::string error;
    ASSERT_TRUE(WriteUVX(uvx, b, error)) << error;
    EXPECT_FALSE(bridge.ExportMS(uvx.c_str(), out.c_str()));
    EXPECT_EQ(
        std::string(bridge.m_errMsg.GetString()),
        uvx + ": product code 1 has no Measurement Set correlation type (only RR LL RL LR XX YY XY YX do)");
    EXPECT_FALSE(PathExists(out));
    EXPECT_FALSE(PathExists(out + ".merovane-partial"));

    // A record whose station the AN table lacks: found after the MAIN rows were begun.
    b = OffsetSourceBuild(0.0, 0.0);
    b.groups.back().ant2 = 9;
    ASSERT_TRUE(WriteUVX(uvx, b, error)) << error;
    EXPECT_FALSE(bridge.ExportMS(uvx.c_str(), out.c_str()));
    EXPECT_EQ(std::string(bridge.m_errMsg.GetString()),
              uvx + ": record " + std::to_string(b.groups.size()) +
                  " has stations 3 and 9, not both in the AN table");
    EXPECT_FALSE(PathExists(out));
    EXPECT_FALSE(PathExists(out + ".merovane-partial"));

    // An output path that holds something else is never replaced.
    const std::string other = MSTestPath("-other");
    {
        std::ofstream f(other);
        f << "keep me";
    }
    b = OffsetSourceBuild(0.0, 0.0);
    ASSERT_TRUE(WriteUVX(uvx, b, error)) << error;
    EXPECT_FALSE(bridge.ExportMS(uvx.c_str(), other.c_str()));
    EXPECT_EQ(std::string(bridge.m_errMsg.GetString()),
              other + ": exists and is not a Measurement Set; not replaced");
    EXPECT_EQ(Slurp(other), "keep me");
}

#ifdef MEROVANE_TEST_CASACORE
using namespace casacore;

TEST(MSBadInput, WhatUVXCannotHold) {
    struct ACase {
        const char* what;
        void (*damage)(const std::string& ms);
        const char* message;
    };
    const ACase cases[] = {
        {"channel counts",
         [](const std::string& ms) {
             Table spw(ms + "/SPECTRAL_WINDOW", Table::Update);
             ScalarColumn<Int>(spw, "NUM_CHAN").put(1, 5);
         },
         "spectral windows of different channel counts (4 and 5): UVX holds one count for every IF band"},
        {"nine products",
         [](const std::string& ms) {
             Table pol(ms + "/POLARIZATION", Table::Update);
             Vector<Int> types(9, 5);
             ArrayColumn<Int>(pol, "CORR_TYPE").put(0, types);
             ScalarColumn<Int>(pol, "NUM_CORR").put(0, 9);
         },
         "9 correlation products: UVX holds 1 to 8"},
        {"Stokes I",
         [](const std::string& ms) {
             Table pol(ms + "/POLARIZATION", Table::Update);
             Vector<Int> types(2, 1);
             ArrayColumn<Int>(pol, "CORR_TYPE").put(0, types);
         },
         "correlation type 1 has no UVX product code (RR LL RL LR XX YY XY YX have)"},
        {"different products per window",
         [](const std::string& ms) {
             Table pol(ms + "/POLARIZATION", Table::Update);
             pol.addRow();
             Vector<Int> types(2);
             types[0] = 9;
             types[1] = 12;
             ArrayColumn<Int>(pol, "CORR_TYPE").put(1, types);
             ArrayColumn<Int>(pol, "CORR_PRODUCT").put(1, Matrix<Int>(2, 2, 0));
             ScalarColumn<Int>(pol, "NUM_CORR").put(1, 2);
             Table dd(ms + "/DATA_DESCRIPTION", Table::Update);
             ScalarColumn<Int>(dd, "POLARIZATION_ID").put(1, 1);
         },
         "data descriptions with different correlation products"},
        {"uneven frequency groups",
         [](const std::string& ms) {
             Table spw(ms + "/SPECTRAL_WINDOW", Table::Update);
             ScalarColumn<Int>(spw, "FREQ_GROUP").put(1, 2);
             Table main(ms, Table::Update);
             // A third window in group 1 for one row.
             Table dd(ms + "/DATA_DESCRIPTION", Table::Update);
             dd.addRow();
             ScalarColumn<Int>(dd, "SPECTRAL_WINDOW_ID").put(2, 0);
             ScalarColumn<Int>(dd, "POLARIZATION_ID").put(2, 0);
             ScalarColumn<Int>(main, "DATA_DESC_ID").put(2, 2);
         },
         "frequency groups of different numbers of spectral windows (2 and 1)"},
        {"antenna beyond 64",
         [](const std::string& ms) {
             Table ant(ms + "/ANTENNA", Table::Update);
             ant.addRow(70);
             Table main(ms, Table::Update);
             ScalarColumn<Int>(main, "ANTENNA2").put(0, 70);
         },
         "antenna 70 in use: UVX numbers 64 stations"},
        {"antenna not in ANTENNA",
         [](const std::string& ms) {
             Table main(ms, Table::Update);
             ScalarColumn<Int>(main, "ANTENNA2").put(0, 7);
         },
         "row 0 names antenna 7, which ANTENNA lacks"},
        {"data shape",
         [](const std::string& ms) {
             Table main(ms, Table::Update);
             ArrayColumn<Complex>(main, "DATA").put(3, Array<Complex>(IPosition(2, 2, 3)));
         },
         "row 3 holds DATA or FLAG of shape [2, 3], not [2, 4]"},
    };
    // One export, a fresh copy of it damaged per case.
    const std::string original = ExportedSet();
    const std::string ms = MSTestPath("-damaged.ms");
    for (const ACase& c : cases) {
        SCOPED_TRACE(c.what);
        RemoveTree(ms);
        std::filesystem::copy(original, ms, std::filesystem::copy_options::recursive);
        c.damage(ms);
        ExpectImportRefused(ms, c.message);
    }
}
#endif
