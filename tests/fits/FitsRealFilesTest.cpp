// The real UVFITS files in tests/data/uv import with their shapes, values and station positions.
#include <cmath>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <AFitsImport.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/UVXTableLayouts.h>

#include "FitsTestFiles.h"

namespace {

// What astropy.io.fits reads from each file (first and last group: Julian date, baseline, u, the first
// element), and what the file says of itself.
struct ARealFile {
    const char* file;
    int groups, nIF, nChan, nStokes;
    std::vector<int> stokes;
    double refJD;
    double jdFirst, jdLast;
    int a1First, a2First, a1Last, a2Last;
    double uFirst, uLast;
    float firstElem[3], lastElemOfLast[3];
    int flagged;
    int stations;
    int scans;  // rows of the NX table, 0 without
    const char* object;
    bool handDeclared;
};

const ARealFile kFiles[] = {
    {"eht2017_e17a10_oj287_hops_2if_4pol.uvfits",
     6220,
     2,
     1,
     4,
     {-1, -2, -3, -4},
     2457852.5,
     2457853.4778356552,
     2457853.6554976702,
     1,
     3,
     5,
     7,
     0.0105976928,
     0.0194264799,
     {0.5029294490814209f, -0.004018919542431831f, 8986.443359375f},
     {-0.04450274631381035f, -0.37003394961357117f, 36.126644134521484f},
     7108,
     8,
     0,
     "OJ287",
     true},
    {"vlba_c_j0414+053_aips_8if16ch_ll.uvfits",
     515,
     8,
     16,
     1,
     {-2},
     2450239.5,
     2450240.3016782654,
     2450240.3034143699,
     1,
     3,
     9,
     10,
     -0.0115503948,
     -0.0130526423,
     {0.48442375659942627f, -0.1101769283413887f, 1.6755547523498535f},
     {-0.04786280170083046f, -0.4944974482059479f, 1.0919891595840454f},
     11504,
     9,
     0,
     "J0414+053A",
     false},
    {"vlba_u_j1033+6051_aips_8if_4pol.uvfits",
     5082,
     8,
     1,
     4,
     {-1, -2, -3, -4},
     2455554.5,
     2455554.7057291865,
     2455555.2154513597,
     2,
     3,
     8,
     9,
     -0.00421769258,
     -0.00121378533,
     {0.5456196665763855f, -0.03217088058590889f, 752.9208984375f},
     {0.058287061750888824f, 0.05343160778284073f, 1592.761962890625f},
     2064,
     10,
     11,
     "J1033+6051",
     true},
};

// Geodetic-free check of station positions: the longitude atan2(y, x) of a right-handed position,
// against the stations' published longitudes (degrees east).
const std::map<std::string, double> kLongitudes = {
    {"BR", -119.683}, {"FD", -103.945}, {"HN", -71.986},  {"KP", -111.612}, {"LA", -106.246},
    {"MK", -155.455}, {"NL", -91.574},  {"OV", -118.277}, {"PT", -108.119}, {"SC", -64.584},
    {"AA", -67.755},  {"AP", -67.759},  {"AZ", -109.891}, {"JC", -155.477}, {"LM", -97.315},
    {"PV", -3.393},   {"SM", -155.478}};

class FitsRealFile : public ::testing::TestWithParam<ARealFile> {};

}  // namespace

TEST_P(FitsRealFile, ImportsWithItsShapeValuesAndStations) {
    const ARealFile& f = GetParam();
    const std::string in = std::string(MEROVANE_TEST_DATA) + "/uv/" + f.file;
    const std::string out = FitsTmpPath(std::string("real-") + f.file + ".uvx");
    ASSERT_EQ(AFitsImport::Detect(in.c_str()), AFitsImport::kUVFITS);
    AFitsImport import;
    ASSERT_TRUE(import.Import(in.c_str(), out.c_str())) << import.m_errMsg.GetString();
    EXPECT_EQ(import.m_records, f.groups);
    EXPECT_EQ(import.m_nanFlagged, 0);

    AUVXFile uvx;
    ASSERT_TRUE(uvx.Open(out.c_str())) << uvx.m_errMsg.GetString();
    const AUVXHeader& h = uvx.GetHeader();
    EXPECT_EQ(uvx.nGroups, f.groups);
    EXPECT_EQ(+h.nIF, f.nIF);
    EXPECT_EQ(+h.nChan, f.nChan);
    ASSERT_EQ(+h.nStokes, f.nStokes);
    for (int s = 0; s < f.nStokes; ++s) EXPECT_EQ(h.stokes[s], f.stokes[s]);
    EXPECT_EQ(+h.refJD, f.refJD);
    EXPECT_EQ(AUVXHeader::Text(h.object, sizeof h.object), f.object);

    AUVXRecordReader reader;
    ASSERT_TRUE(reader.Open(uvx));
    std::vector<AUVXComplex> e(reader.ElementCount());
    AUVXGroup g;
    int n = 0, flagged = 0;
    while (reader.Next(g, e.data())) {
        if (n == 0) {
            // A time from two float DATE parameters is good to their precision, a few milliseconds.
            EXPECT_NEAR(+g.time, (f.jdFirst - f.refJD) * 86400.0, 5e-3);
            EXPECT_EQ(+g.ant1, f.a1First);
            EXPECT_EQ(+g.ant2, f.a2First);
            EXPECT_NEAR(+g.u, f.uFirst, 1e-7 * std::fabs(f.uFirst));
            EXPECT_EQ(e[0].re, f.firstElem[0]);
            EXPECT_EQ(e[0].im, f.firstElem[1]);
            EXPECT_EQ(e[0].wt, f.firstElem[2]);
        }
        if (n == f.groups - 1) {
            EXPECT_NEAR(+g.time, (f.jdLast - f.refJD) * 86400.0, 5e-3);
            EXPECT_EQ(+g.ant1, f.a1Last);
            EXPECT_EQ(+g.ant2, f.a2Last);
            EXPECT_NEAR(+g.u, f.uLast, 1e-7 * std::fabs(f.uLast));
            EXPECT_EQ(e.back().re, f.lastElemOfLast[0]);
            EXPECT_EQ(e.back().im, f.lastElemOfLast[1]);
            EXPECT_EQ(e.back().wt, f.lastElemOfLast[2]);
        }
        for (const AUVXComplex& c : e) flagged += c.wt <= 0;
        EXPECT_EQ(+g.sourceId, 1);
        ++n;
    }
    EXPECT_FALSE(reader.Failed());
    EXPECT_EQ(n, f.groups);
    EXPECT_EQ(flagged, f.flagged);

    // No SU table in these files: one source from OBJECT and the pointing.
    std::unique_ptr<AUVXTable> su(uvx.GetTable(kLayoutSU.name));
    ASSERT_TRUE(su);
    ASSERT_EQ(su->nRows, 1);
    EXPECT_EQ(su->GetText(0, kSUSource), f.object);
    EXPECT_NEAR(su->GetDouble(0, kSURaEpo), +h.objRA, 1e-12);
    std::unique_ptr<AUVXTable> sl(uvx.GetTable(kLayoutSL.name));
    EXPECT_EQ(sl ? sl->nRows : 0, f.scans);

    std::unique_ptr<AUVXTable> an(uvx.GetTable(kLayoutAN.name));
    ASSERT_TRUE(an);
    AUVXAntenns antennas(*an);
    ASSERT_EQ(antennas.count, f.stations);
    EXPECT_TRUE(antennas.rightHanded);
    EXPECT_EQ(import.m_handedness == "declared by XYZHAND", f.handDeclared)
        << import.m_handedness.GetString();
    int checked = 0;
    for (int i = 0; i < antennas.count; ++i) {
        const AUVXTlscItem& t = antennas[i];
        const double radius = std::sqrt(t.x * t.x + t.y * t.y + t.z * t.z);
        EXPECT_NEAR(radius, 6.37e6, 3e4) << t.Name().GetString();
        auto known = kLongitudes.find(t.Name().str());
        if (known == kLongitudes.end()) continue;
        EXPECT_NEAR(std::atan2(t.y, t.x) * 180.0 / 3.14159265358979323846, known->second, 0.05)
            << t.Name().GetString();
        ++checked;
    }
    EXPECT_GE(checked, f.stations - 1);
}

INSTANTIATE_TEST_SUITE_P(TestsData, FitsRealFile, ::testing::ValuesIn(kFiles),
                         [](const ::testing::TestParamInfo<ARealFile>& info) {
                             std::string name = info.param.file;
                             return name.substr(0, name.find('_')) + std::to_string(info.index);
                         });
