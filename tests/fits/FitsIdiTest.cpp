// FITS-IDI files in the layout correlators write: records, tables, flags, the antenna information
// and the a-priori tables, which become an ANTAB text that calibrates as the original ANTAB does.
#include <cmath>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <AFitsImport.h>
#include <merovane/antab/AAntabData.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/UVXTableLayouts.h>

#include "FitsTestFiles.h"
#include "UVXSimulator.h"

namespace {

struct ASimFiles {
    std::string uvx, antab, truthPath;
    ASimTruth truth;
};

ASimFiles SimulateSmall(const std::string& name) {
    ASimFiles f;
    f.uvx = FitsTmpPath(name + ".uvx");
    f.antab = FitsTmpPath(name + ".antab");
    f.truthPath = FitsTmpPath(name + ".truth");
    ASimConfig c;
    c.nIF = 2;
    c.nChan = 8;
    c.duration = 900;
    c.tsysStep = 30;
    CString error;
    EXPECT_TRUE(Simulate(c, f.uvx.c_str(), f.antab.c_str(), f.truthPath.c_str(), &f.truth, &error))
        << error.GetString();
    return f;
}

std::unique_ptr<AUVXTable> Table(const std::string& path, const char* name) {
    AUVXFile f;
    if (!f.Open(path.c_str())) return nullptr;
    return std::unique_ptr<AUVXTable>(f.GetTable(name));
}

void ExpectSameTableRows(const std::string& a, const std::string& b, const char* name) {
    auto ta = Table(a, name), tb = Table(b, name);
    ASSERT_TRUE(ta && tb) << name;
    ASSERT_EQ(ta->nRows, tb->nRows) << name;
    ASSERT_EQ(ta->rowBytes, tb->rowBytes) << name;
    EXPECT_EQ(0, std::memcmp(ta->rows, tb->rows, static_cast<std::size_t>(ta->nRows) * ta->rowBytes)) << name;
}

}  // namespace

TEST(FitsIdi, TwoUvDataTablesFlagsAndAntennaInformation) {
    ASimFiles sim = SimulateSmall("idi-a");
    AUVXFile simFile;
    ASSERT_TRUE(simFile.Open(sim.uvx.c_str()));
    const double refJD = simFile.GetHeader().refJD;
    AUVXRecordReader first;
    ASSERT_TRUE(first.Open(simFile));
    AUVXGroup g0;
    std::vector<AUVXComplex> tmp(first.ElementCount());
    ASSERT_TRUE(first.Next(g0, tmp.data()));
    first.Close();
    simFile.Close();
    const double t0 = g0.time / 86400.0;

    AIdiOptions options;
    options.splitAt = 1000;
    // Station 2, band 1, RR and LL, for 200 s; the edges fall between integrations, as the float
    // TIMERANG of the table cannot place them on a record's time to the millisecond.
    AIdiFlagRow byAntenna;
    byAntenna.ant1 = 2;
    byAntenna.t0 = t0 + 98 / 86400.0;
    byAntenna.t1 = t0 + 298 / 86400.0;
    byAntenna.bands = {1, 0};
    byAntenna.pflags = {1, 1, 0, 0};
    AIdiFlagRow byBaseline;  // baseline 1-3, channels 2 and 3, all the time
    byBaseline.ant1 = 3;
    byBaseline.ant2 = 1;
    byBaseline.t0 = -1;
    byBaseline.t1 = 2;
    byBaseline.chan0 = 2;
    byBaseline.chan1 = 3;
    options.flags = {byAntenna, byBaseline};
    const std::string idi = FitsTmpPath("idi-a.fits");
    std::string error;
    ASSERT_TRUE(WriteIdiFromUvx(sim.uvx, &sim.truth, idi, options, error)) << error;
    ASSERT_EQ(AFitsImport::Detect(idi.c_str()), AFitsImport::kFITSIDI);

    const std::string out = FitsTmpPath("idi-a-out.uvx");
    AFitsImport import;
    ASSERT_TRUE(import.Import(idi.c_str(), out.c_str())) << import.m_errMsg.GetString();
    EXPECT_EQ(import.m_antabPath, AFitsImport::AntabPathFor(out.c_str()));
    EXPECT_EQ(import.m_antabPath, FitsTmpPath("idi-a-out.antab").c_str());

    AUVXFile a, b;
    ASSERT_TRUE(a.Open(sim.uvx.c_str()));
    ASSERT_TRUE(b.Open(out.c_str()));
    ASSERT_EQ(a.nGroups, b.nGroups);
    ASSERT_GT(a.nGroups, 1000);
    EXPECT_EQ(import.m_records, a.nGroups);
    EXPECT_EQ(+b.GetHeader().refJD, refJD);
    EXPECT_EQ(+b.GetHeader().nIF, 2);
    EXPECT_EQ(+b.GetHeader().nChan, 8);
    EXPECT_EQ(+b.GetHeader().refFreq, +a.GetHeader().refFreq);
    AUVXRecordReader ra, rb;
    ASSERT_TRUE(ra.Open(a));
    ASSERT_TRUE(rb.Open(b));
    std::vector<AUVXComplex> ea(ra.ElementCount()), eb(rb.ElementCount());
    AUVXGroup ga, gb;
    const int nChan = 8, nStokes = 4;
    int flaggedByRows[2] = {0, 0};
    while (ra.Next(ga, ea.data())) {
        ASSERT_TRUE(rb.Next(gb, eb.data()));
        ASSERT_NEAR(+ga.time, +gb.time, 1e-6);
        ASSERT_EQ(+ga.ant1, +gb.ant1);
        ASSERT_EQ(+ga.ant2, +gb.ant2);
        ASSERT_EQ(+ga.sourceId, +gb.sourceId);
        ASSERT_EQ(+ga.u, +gb.u);
        ASSERT_EQ(+ga.w, +gb.w);
        const double days = ga.time / 86400.0;
        for (int i = 0; i < 2; ++i)
            for (int c = 0; c < nChan; ++c)
                for (int s = 0; s < nStokes; ++s) {
                    const int k = (i * nChan + c) * nStokes + s;
                    const bool rowA = (ga.ant1 == 2 || ga.ant2 == 2) && days >= byAntenna.t0 &&
                                      days <= byAntenna.t1 && i == 0 && s < 2;
                    const bool rowB = ga.ant1 == 1 && ga.ant2 == 3 && (c == 1 || c == 2);
                    flaggedByRows[0] += rowA;
                    flaggedByRows[1] += rowB;
                    const float want = (rowA || rowB) && ea[k].wt > 0 ? -ea[k].wt : ea[k].wt;
                    ASSERT_EQ(eb[k].re, ea[k].re);
                    ASSERT_EQ(eb[k].im, ea[k].im);
                    ASSERT_EQ(eb[k].wt, want)
                        << "record at " << ga.time << " " << int(ga.ant1) << "-" << int(ga.ant2) << " IF "
                        << i << " channel " << c << " product " << s;
                }
    }
    EXPECT_GT(flaggedByRows[0], 0);
    EXPECT_GT(flaggedByRows[1], 0);
    a.Close();
    b.Close();
    // NO_LEVELS and its rows reach the antenna-information table unchanged; stations, sources and
    // frequencies likewise.
    ExpectSameTableRows(sim.uvx, out, kLayoutAI.name);
    ExpectSameTableRows(sim.uvx, out, kLayoutAN.name);
    ExpectSameTableRows(sim.uvx, out, kLayoutSU.name);
    ExpectSameTableRows(sim.uvx, out, kLayoutFQ.name);
}

TEST(FitsIdi, AprioriTablesBecomeAnAntabThatCalibratesLikeTheOriginal) {
    ASimFiles sim = SimulateSmall("idi-b");
    const std::string idi = FitsTmpPath("idi-b.fits");
    std::string error;
    ASSERT_TRUE(WriteIdiFromUvx(sim.uvx, &sim.truth, idi, AIdiOptions(), error)) << error;
    const std::string out = FitsTmpPath("idi-b-out.uvx");
    AFitsImport import;
    ASSERT_TRUE(import.Import(idi.c_str(), out.c_str())) << import.m_errMsg.GetString();
    ASSERT_FALSE(import.m_antabPath.IsEmpty());
    ASSERT_TRUE(FitsFileExists(import.m_antabPath.str()));
    EXPECT_FALSE(FitsFileExists(import.m_antabPath.str() + ".part"));

    // Ours on the imported file, the simulator's own on its file.
    AUVXFile mine, theirs;
    ASSERT_TRUE(mine.Open(out.c_str()));
    ASSERT_TRUE(theirs.Open(sim.uvx.c_str()));
    AAntabData calMine, calTheirs;
    ASSERT_TRUE(calMine.Init(mine)) << calMine.GetErrMsg().GetString();
    ASSERT_TRUE(calTheirs.Init(theirs)) << calTheirs.GetErrMsg().GetString();
    std::ifstream textMine(import.m_antabPath.str()), textTheirs(sim.antab);
    ASSERT_TRUE(calMine.Load(textMine)) << calMine.GetErrMsg().GetString();
    ASSERT_TRUE(calTheirs.Load(textTheirs)) << calTheirs.GetErrMsg().GetString();
    EXPECT_EQ(calMine.m_tlscs.count, static_cast<int>(sim.truth.stations.size()));

    AUVXRecordReader rm, rt;
    ASSERT_TRUE(rm.Open(mine));
    ASSERT_TRUE(rt.Open(theirs));
    const AUVXHeader& h = mine.GetHeader();
    AUVXVisibility vm(h.nIF, h.nChan, h.nStokes), vt(h.nIF, h.nChan, h.nStokes);
    AUVXGroup gm, gt;
    int calibrated = 0;
    double worst = 0;
    while (rm.Next(gm, vm)) {
        ASSERT_TRUE(rt.Next(gt, vt));
        const bool okMine = calMine.Calibrate(gm, vm);
        const bool okTheirs = calTheirs.Calibrate(gt, vt);
        ASSERT_EQ(okMine, okTheirs) << calMine.GetErrMsg().GetString() << " | "
                                    << calTheirs.GetErrMsg().GetString();
        if (!okMine) continue;
        ++calibrated;
        for (int k = 0; k < vm.count; ++k) {
            const AUVXComplex& x = vm.data[k];
            const AUVXComplex& y = vt.data[k];
            const double scale = std::fabs(y.re) + std::fabs(y.im) + 1e-30;
            worst = std::max(worst, (std::fabs(x.re - y.re) + std::fabs(x.im - y.im)) / scale);
            ASSERT_NEAR(x.wt, y.wt, 1e-5 * std::fabs(y.wt));
        }
    }
    EXPECT_GT(calibrated, 1000);
    EXPECT_LT(worst, 1e-5);
}

TEST(FitsIdi, WeightColumnPerBandAndProductWithoutAprioriTables) {
    ASimFiles sim = SimulateSmall("idi-c");
    AIdiOptions options;
    options.weightColumn = true;
    options.apriori = false;
    options.splitAt = 7;
    const std::string idi = FitsTmpPath("idi-c.fits");
    std::string error;
    ASSERT_TRUE(WriteIdiFromUvx(sim.uvx, &sim.truth, idi, options, error)) << error;
    const std::string out = FitsTmpPath("idi-c-out.uvx");
    FitsRemove(AFitsImport::AntabPathFor(out.c_str()).str());
    AFitsImport import;
    ASSERT_TRUE(import.Import(idi.c_str(), out.c_str())) << import.m_errMsg.GetString();
    EXPECT_TRUE(import.m_antabPath.IsEmpty());
    EXPECT_FALSE(FitsFileExists(AFitsImport::AntabPathFor(out.c_str()).str()));

    AUVXFile a, b;
    ASSERT_TRUE(a.Open(sim.uvx.c_str()));
    ASSERT_TRUE(b.Open(out.c_str()));
    AUVXRecordReader ra, rb;
    ASSERT_TRUE(ra.Open(a));
    ASSERT_TRUE(rb.Open(b));
    std::vector<AUVXComplex> ea(ra.ElementCount()), eb(rb.ElementCount());
    AUVXGroup ga, gb;
    int n = 0;
    while (ra.Next(ga, ea.data())) {
        ASSERT_TRUE(rb.Next(gb, eb.data()));
        for (int i = 0; i < 2; ++i)
            for (int c = 0; c < 8; ++c)
                for (int s = 0; s < 4; ++s) {
                    const int k = (i * 8 + c) * 4 + s;
                    ASSERT_EQ(eb[k].re, ea[k].re);
                    ASSERT_EQ(eb[k].wt, std::fabs(ea[(i * 8) * 4 + s].wt))
                        << "the band's weight for every channel";
                }
        ++n;
    }
    EXPECT_EQ(n, a.nGroups);
}
