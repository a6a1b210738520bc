// A simulated observation exported to UVFITS and imported again gives back its records and tables.
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <AFitsExport.h>
#include <AFitsImport.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/UVXTableLayouts.h>

#include "FitsTestFiles.h"
#include "UVXSimulator.h"

namespace {

// Every record of two files side by side; times to `timeTol` seconds, everything else exact.
void ExpectSameRecords(const std::string& a, const std::string& b, double timeTol) {
    AUVXFile fa, fb;
    ASSERT_TRUE(fa.Open(a.c_str())) << fa.m_errMsg.GetString();
    ASSERT_TRUE(fb.Open(b.c_str())) << fb.m_errMsg.GetString();
    ASSERT_EQ(fa.nGroups, fb.nGroups);
    AUVXRecordReader ra, rb;
    ASSERT_TRUE(ra.Open(fa));
    ASSERT_TRUE(rb.Open(fb));
    ASSERT_EQ(ra.ElementCount(), rb.ElementCount());
    std::vector<AUVXComplex> ea(ra.ElementCount()), eb(rb.ElementCount());
    AUVXGroup ga, gb;
    int n = 0, flagged = 0;
    double worst = 0;
    while (ra.Next(ga, ea.data())) {
        ASSERT_TRUE(rb.Next(gb, eb.data())) << "record " << n;
        worst = std::max(worst, std::fabs(ga.time - gb.time));
        ASSERT_EQ(+ga.ant1, +gb.ant1) << n;
        ASSERT_EQ(+ga.ant2, +gb.ant2) << n;
        ASSERT_EQ(+ga.sourceId, +gb.sourceId) << n;
        ASSERT_EQ(+ga.freqId, +gb.freqId) << n;
        ASSERT_EQ(+ga.flags, +gb.flags) << n;
        // u v w travel as the same floats.
        ASSERT_EQ(+ga.u, +gb.u) << n;
        ASSERT_EQ(+ga.v, +gb.v) << n;
        ASSERT_EQ(+ga.w, +gb.w) << n;
        ASSERT_EQ(0, std::memcmp(ea.data(), eb.data(), ea.size() * sizeof(AUVXComplex))) << "record " << n;
        for (const AUVXComplex& e : ea) flagged += e.wt <= 0;
        ++n;
    }
    EXPECT_FALSE(rb.Next(gb, eb.data()));
    EXPECT_LE(worst, timeTol);
    EXPECT_GT(flagged, 0) << "the simulation should flag some elements, so that flags are seen to travel";
}

// Tables by name: the same columns, keywords and row bytes; the scan list's times to `timeTol`.
void ExpectSameTables(const std::string& a, const std::string& b, double timeTol) {
    AUVXFile fa, fb;
    ASSERT_TRUE(fa.Open(a.c_str()));
    ASSERT_TRUE(fb.Open(b.c_str()));
    ASSERT_EQ(fa.TablePositions().count, fb.TablePositions().count);
    for (const AUVXTableLayout* layout : {&kLayoutAN, &kLayoutSU, &kLayoutFQ, &kLayoutSL, &kLayoutAI}) {
        std::unique_ptr<AUVXTable> ta(fa.GetTable(layout->name)), tb(fb.GetTable(layout->name));
        ASSERT_TRUE(ta && tb) << layout->name;
        ASSERT_EQ(ta->nCols, tb->nCols) << layout->name;
        ASSERT_EQ(ta->nRows, tb->nRows) << layout->name;
        ASSERT_EQ(ta->rowBytes, tb->rowBytes) << layout->name;
        for (int c = 0; c < ta->nCols; ++c) {
            EXPECT_EQ(ta->ColumnName(c), tb->ColumnName(c)) << layout->name;
            EXPECT_EQ(ta->ParseFormat(c).type, tb->ParseFormat(c).type) << layout->name;
            EXPECT_EQ(ta->ParseFormat(c).count, tb->ParseFormat(c).count) << layout->name;
        }
        for (int k = 0; k < ta->keywords.count; ++k) {
            const AXTblKeyword& kw = ta->keywords[k];
            double va = 0, vb = 0;
            CString sa, sb;
            if (ta->GetKeyword(kw.name, va)) {
                ASSERT_TRUE(tb->GetKeyword(kw.name, vb)) << layout->name << " " << kw.name;
                EXPECT_EQ(va, vb) << kw.name;
            } else if (ta->GetKeyword(kw.name, sa)) {
                ASSERT_TRUE(tb->GetKeyword(kw.name, sb)) << layout->name << " " << kw.name;
                EXPECT_EQ(sa, sb) << kw.name;
            }
        }
        if (layout == &kLayoutSL) {
            for (int r = 0; r < ta->nRows; ++r) {
                EXPECT_NEAR(ta->GetDouble(r, kSLStart), tb->GetDouble(r, kSLStart), timeTol);
                EXPECT_NEAR(ta->GetDouble(r, kSLEnd), tb->GetDouble(r, kSLEnd), timeTol);
                EXPECT_EQ(ta->GetDouble(r, kSLSourceId), tb->GetDouble(r, kSLSourceId));
            }
        } else {
            EXPECT_EQ(0, std::memcmp(ta->rows, tb->rows, static_cast<std::size_t>(ta->nRows) * ta->rowBytes))
                << layout->name;
        }
    }
}

}  // namespace

TEST(FitsRoundTrip, SimulatedObservationComesBackUnchanged) {
    ASimConfig config;
    config.nIF = 2;
    config.nChan = 8;
    config.duration = 900;
    // Across midnight: record times beyond one day must travel too.
    config.startTime = 85800;
    config.flagFraction = 0.01;
    const std::string sim = FitsTmpPath("roundtrip-sim.uvx");
    const std::string fits = FitsTmpPath("roundtrip.uvfits");
    const std::string back = FitsTmpPath("roundtrip-back.uvx");
    CString error;
    ASSERT_TRUE(Simulate(config, sim.c_str(), nullptr, nullptr, nullptr, &error)) << error.GetString();

    AFitsExport exporter;
    ASSERT_TRUE(exporter.Export(sim.c_str(), fits.c_str())) << exporter.m_errMsg.GetString();
    EXPECT_FALSE(FitsFileExists(fits + ".part"));
    EXPECT_EQ(AFitsImport::Detect(fits.c_str()), AFitsImport::kUVFITS);
    AFitsImport importer;
    ASSERT_TRUE(importer.Import(fits.c_str(), back.c_str())) << importer.m_errMsg.GetString();
    EXPECT_EQ(importer.m_records, exporter.m_records);
    EXPECT_EQ(importer.m_handedness, "declared by XYZHAND");

    AUVXFile a, b;
    ASSERT_TRUE(a.Open(sim.c_str()));
    ASSERT_TRUE(b.Open(back.c_str()));
    const AUVXHeader& ha = a.GetHeader();
    const AUVXHeader& hb = b.GetHeader();
    // The header except its origin, field by field (the statistics follow from the same records).
    EXPECT_EQ(0, std::memcmp(&ha, &hb, offsetof(AUVXHeader, origin)));
    EXPECT_EQ(0, std::memcmp(ha.reserved, hb.reserved, sizeof ha.reserved));
    EXPECT_GT(+ha.nIF, 1);
    a.Close();
    b.Close();

    ExpectSameRecords(sim, back, 1e-6);
    ExpectSameTables(sim, back, 1e-6);
}
