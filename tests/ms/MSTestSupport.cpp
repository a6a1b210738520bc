// MSTestSupport: observations, file contents and comparisons for the tests of the Measurement Set bridge.
#include "MSTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <filesystem>

#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/UVXTableLayouts.h>

namespace fs = std::filesystem;

ASimConfig MSSimConfig() {
    ASimConfig c;
    c.stations = {"EF", "WB", "ON"};
    c.sources = {"3C84", "4C39.25"};
    c.nIF = 2;
    c.nChan = 8;
    c.intTime = 10.0;
    c.duration = 570.0;
    c.scanLength = 120.0;
    c.scanGap = 30.0;
    c.minElevation = -90.0;
    c.flags = true;
    c.flagFraction = 0.05;
    return c;
}

const AUVXTable* AUVXContent::Table(const char* name) const {
    for (const auto& t : tables)
        if (t->GetName() == name) return t.get();
    return nullptr;
}

AUVXContent LoadUVX(const std::string& path) {
    AUVXContent c;
    AUVXFile file;
    if (!file.Open(path.c_str())) {
        c.error = file.m_errMsg.GetString();
        return c;
    }
    c.header = file.GetHeader();
    const AArray<std::int64_t>& positions = file.TablePositions();
    for (int i = 0; i < positions.count; ++i) {
        file.Seek(positions[i]);
        auto t = std::make_unique<AUVXTable>(*file.file);
        if (!t->IsValid()) {
            c.error = t->m_errMsg.GetString();
            return c;
        }
        c.tables.push_back(std::move(t));
    }
    AUVXRecordReader reader;
    if (!reader.Open(file)) {
        c.error = reader.m_errMsg.GetString();
        return c;
    }
    AUVXGroup g;
    AUVXVisibility vis(file);
    while (reader.Next(g, vis)) {
        c.groups.push_back(g);
        c.data.emplace_back(vis.data, vis.data + vis.count);
    }
    if (reader.Failed()) c.error = reader.m_errMsg.GetString();
    return c;
}

bool WriteUVX(const std::string& path, const AUVXBuild& b, std::string& error) {
    AUVXFile file;
    if (!file.Create(path.c_str())) {
        error = file.m_errMsg.GetString();
        return false;
    }
    AUVXRecordWriter writer;
    if (!writer.Open(file, b.header)) {
        error = writer.m_errMsg.GetString();
        return false;
    }
    for (std::size_t i = 0; i < b.groups.size(); ++i)
        if (!writer.Write(b.groups[i], b.data[i].data())) {
            error = writer.m_errMsg.GetString();
            return false;
        }
    if (!writer.Finish()) {
        error = writer.m_errMsg.GetString();
        return false;
    }
    const int nIF = std::max(1, int(b.header.nIF));
    AUVXTable an, su, fq, sl;
    CreateTable(an, kLayoutAN, nIF);
    an.SetKeyword(kKeyXyzHand, b.xyzHand.c_str());
    for (std::size_t i = 0; i < b.stationIds.size(); ++i) {
        const int r = an.AddRow();
        an.SetText(r, kANName, ("S" + std::to_string(b.stationIds[i])).c_str());
        for (int e = 0; e < 3; ++e) an.SetDouble(r, kANStabXyz, b.stationXyz[3 * i + e], e);
        an.SetDouble(r, kANNoSta, b.stationIds[i]);
    }
    CreateTable(su, kLayoutSU, nIF);
    for (std::size_t i = 0; i < b.sourceIds.size(); ++i) {
        const int r = su.AddRow();
        su.SetDouble(r, kSUId, b.sourceIds[i]);
        su.SetText(r, kSUSource, ("SRC" + std::to_string(b.sourceIds[i])).c_str());
        su.SetDouble(r, kSURaEpo, b.sourceRaDec[2 * i]);
        su.SetDouble(r, kSUDecEpo, b.sourceRaDec[2 * i + 1]);
    }
    CreateTable(fq, kLayoutFQ, nIF);
    const int r = fq.AddRow();
    fq.SetDouble(r, kFQFrqSel, 1);
    for (int i = 0; i < nIF; ++i) {
        fq.SetDouble(r, kFQIfFreq, b.ifOffsets[i], i);
        fq.SetDouble(r, kFQChWidth, b.header.chanWidth, i);
        fq.SetDouble(r, kFQTotalBandwidth, b.header.totalBandwidth, i);
        fq.SetDouble(r, kFQSideband, 1, i);
    }
    CreateTable(sl, kLayoutSL, nIF);
    sl.SetKeyword(kKeyRefDay, static_cast<std::int64_t>(std::llround(b.header.refJD - 2400000.5)));
    for (std::size_t i = 0; i + 1 < b.scanStartEnd.size(); i += 2) {
        const int s = sl.AddRow();
        sl.SetDouble(s, kSLStart, b.scanStartEnd[i]);
        sl.SetDouble(s, kSLEnd, b.scanStartEnd[i + 1]);
        sl.SetDouble(s, kSLSourceId, b.sourceIds.empty() ? 1 : b.sourceIds[0]);
    }
    if (!file.AddTable(an) || !file.AddTable(su) || !file.AddTable(fq) ||
        (!b.scanStartEnd.empty() && !file.AddTable(sl)) || !file.Close()) {
        error = file.m_errMsg.GetString();
        return false;
    }
    return true;
}

AUVXBuild OffsetSourceBuild(double l, double m) {
    const double c = 299792458.0;
    AUVXBuild b;
    AUVXHeader& h = b.header;
    AUVXHeader::SetText(h.dateObs, sizeof h.dateObs, "2024-04-09");
    h.refJD = 2460409.5;
    AUVXHeader::SetText(h.object, sizeof h.object, "SRC1");  // a single source names the file
    AUVXHeader::SetText(h.telescope, sizeof h.telescope, "VLBI");
    AUVXHeader::SetText(h.origin, sizeof h.origin, "ms-tests");
    h.refFreq = 4.99e9;
    h.chanWidth = 4e6;
    h.totalBandwidth = 16e6;
    h.equinox = 2000.0;
    h.intTime = 2.0f;
    h.refChan = 1;
    h.sideband = 1;
    h.objRA = 50.0;
    h.objDec = 40.0;
    h.nStokes = 2;
    h.stokes[0] = -1;
    h.stokes[1] = -2;
    h.nIF = 2;
    h.nChan = 4;
    b.stationIds = {1, 2, 3, 4};
    // Geocentric positions of four European stations, metres.
    b.stationXyz = {4033947.2, 486990.8, 4900431.0, 3828750.7, 442589.2, 5064921.6,
                    3370965.9, 711466.2, 5349664.2, 4461369.7, 919597.1, 4449559.4};
    b.sourceIds = {1};
    b.sourceRaDec = {50.0, 40.0};
    b.ifOffsets = {0.0, 16e6};
    b.scanStartEnd = {72000.0, 72010.0};
    const double pi = 3.14159265358979323846;
    const double dec = 40.0 * pi / 180.0;
    const double n1 = std::sqrt(1.0 - l * l - m * m) - 1.0;
    for (int t = 0; t < 5; ++t) {
        const double time = 72001.0 + 2.0 * t;
        const double hour = 0.3 + 2.0 * pi * time / 86164.0905;
        for (int a1 = 1; a1 <= 4; ++a1)
            for (int a2 = a1 + 1; a2 <= 4; ++a2) {
                const double bx = b.stationXyz[3 * (a2 - 1)] - b.stationXyz[3 * (a1 - 1)];
                const double by = b.stationXyz[3 * (a2 - 1) + 1] - b.stationXyz[3 * (a1 - 1) + 1];
                const double bz = b.stationXyz[3 * (a2 - 1) + 2] - b.stationXyz[3 * (a1 - 1) + 2];
                AUVXGroup g{};
                g.freqId = 1;
                g.sourceId = 1;
                g.u = static_cast<float>((std::sin(hour) * bx + std::cos(hour) * by) / c);
                g.v = static_cast<float>((-std::sin(dec) * std::cos(hour) * bx +
                                          std::sin(dec) * std::sin(hour) * by + std::cos(dec) * bz) /
                                         c);
                g.w = static_cast<float>((std::cos(dec) * std::cos(hour) * bx -
                                          std::cos(dec) * std::sin(hour) * by + std::sin(dec) * bz) /
                                         c);
                g.time = time;
                g.ant1 = static_cast<std::int8_t>(a1);
                g.ant2 = static_cast<std::int8_t>(a2);
                std::vector<AUVXComplex> vis;
                for (int iIF = 0; iIF < 2; ++iIF)
                    for (int k = 0; k < 4; ++k) {
                        const double f = h.refFreq + b.ifOffsets[iIF] + (k + 1 - h.refChan) * h.chanWidth;
                        const double phase =
                            -2.0 * pi * f * (double(g.u) * l + double(g.v) * m + double(g.w) * n1);
                        for (int p = 0; p < 2; ++p)
                            vis.push_back(AUVXComplex{static_cast<float>(std::cos(phase)),
                                                      static_cast<float>(std::sin(phase)), 64.0f});
                    }
                b.groups.push_back(g);
                b.data.push_back(vis);
            }
    }
    return b;
}

namespace {

std::string Text(const char* field, int size) {
    return AUVXHeader::Text(field, size).GetString();
}

}  // namespace

void ExpectSameTable(const AUVXTable& e, const AUVXTable& a) {
    const std::string name = e.GetName().GetString();
    ASSERT_EQ(e.nCols, a.nCols) << name;
    ASSERT_EQ(e.nRows, a.nRows) << name;
    for (int c = 0; c < e.nCols; ++c) {
        const AXTblFormat fe = e.ParseFormat(c), fa = a.ParseFormat(c);
        ASSERT_EQ(e.ColumnName(c), a.ColumnName(c)) << name;
        ASSERT_EQ(fe.type, fa.type) << name << " " << e.ColumnName(c).GetString();
        ASSERT_EQ(fe.count, fa.count) << name << " " << e.ColumnName(c).GetString();
        EXPECT_EQ(Text(e.columns[c].unit, 8), Text(a.columns[c].unit, 8)) << name;
        for (int r = 0; r < e.nRows; ++r) {
            if (fe.type == 'A') {
                EXPECT_EQ(e.GetText(r, c), a.GetText(r, c)) << name << " row " << r;
                continue;
            }
            for (int k = 0; k < fe.count; ++k) {
                const double x = e.GetDouble(r, c, k), y = a.GetDouble(r, c, k);
                if (fe.type == 'D')
                    EXPECT_NEAR(x, y, 1e-12 * std::max(1.0, std::fabs(x)))
                        << name << " " << e.ColumnName(c).GetString() << " row " << r;
                else
                    EXPECT_EQ(x, y) << name << " " << e.ColumnName(c).GetString() << " row " << r;
            }
        }
    }
    for (int k = 0; k < e.keywords.count; ++k) {
        const std::string kw = Text(e.keywords[k].name, 16);
        double x = 0, y = 0;
        CString sx, sy;
        if (e.GetKeyword(kw.c_str(), x)) {
            EXPECT_TRUE(a.GetKeyword(kw.c_str(), y)) << name << " keyword " << kw;
            EXPECT_EQ(x, y) << name << " keyword " << kw;
        } else if (e.GetKeyword(kw.c_str(), sx)) {
            EXPECT_TRUE(a.GetKeyword(kw.c_str(), sy)) << name << " keyword " << kw;
            EXPECT_EQ(sx, sy) << name << " keyword " << kw;
        }
    }
}

void ExpectSameContent(const AUVXContent& e, const AUVXContent& a, double timeTolerance, bool compareOrigin) {
    ASSERT_EQ(e.error, "");
    ASSERT_EQ(a.error, "");
    // The header is a packed record: its fields are compared as copies (unary +), not bound by reference.
    const AUVXHeader& he = e.header;
    const AUVXHeader& ha = a.header;
    EXPECT_EQ(Text(he.dateObs, 12), Text(ha.dateObs, 12));
    EXPECT_EQ(+he.refJD, +ha.refJD);
    EXPECT_EQ(Text(he.object, 16), Text(ha.object, 16));
    EXPECT_EQ(Text(he.telescope, 16), Text(ha.telescope, 16));
    EXPECT_EQ(Text(he.instrument, 16), Text(ha.instrument, 16));
    EXPECT_EQ(Text(he.observer, 16), Text(ha.observer, 16));
    if (compareOrigin) {
        EXPECT_EQ(Text(he.origin, 32), Text(ha.origin, 32));
    }
    EXPECT_EQ(+he.refFreq, +ha.refFreq);
    EXPECT_EQ(+he.chanWidth, +ha.chanWidth);
    EXPECT_EQ(+he.totalBandwidth, +ha.totalBandwidth);
    EXPECT_EQ(+he.equinox, +ha.equinox);
    EXPECT_EQ(+he.intTime, +ha.intTime);
    EXPECT_EQ(+he.refChan, +ha.refChan);
    EXPECT_EQ(+he.sideband, +ha.sideband);
    EXPECT_NEAR(he.objRA, ha.objRA, 1e-12);
    EXPECT_NEAR(he.objDec, ha.objDec, 1e-12);
    EXPECT_EQ(+he.reMin, +ha.reMin);
    EXPECT_EQ(+he.reMax, +ha.reMax);
    EXPECT_EQ(+he.imMin, +ha.imMin);
    EXPECT_EQ(+he.imMax, +ha.imMax);
    ASSERT_EQ(+he.nStokes, +ha.nStokes);
    for (int p = 0; p < he.nStokes; ++p) EXPECT_EQ(+he.stokes[p], +ha.stokes[p]);
    ASSERT_EQ(+he.nIF, +ha.nIF);
    ASSERT_EQ(+he.nChan, +ha.nChan);

    ASSERT_EQ(e.groups.size(), a.groups.size());
    int differences = 0;
    for (std::size_t i = 0; i < e.groups.size() && differences < 10; ++i) {
        const AUVXGroup& ge = e.groups[i];
        const AUVXGroup& ga = a.groups[i];
        const bool same = ge.flags == ga.flags && ge.freqId == ga.freqId && ge.sourceId == ga.sourceId &&
                          ge.u == ga.u && ge.v == ga.v && ge.w == ga.w &&
                          std::fabs(ge.time - ga.time) <= timeTolerance && ge.ant1 == ga.ant1 &&
                          ge.ant2 == ga.ant2;
        if (!same) {
            ++differences;
            ADD_FAILURE() << "record " << i << ": group differs (time " << ge.time << " vs " << ga.time
                          << ", ants " << int(ge.ant1) << "-" << int(ge.ant2) << " vs " << int(ga.ant1) << "-"
                          << int(ga.ant2) << ")";
            continue;
        }
        ASSERT_EQ(e.data[i].size(), a.data[i].size());
        for (std::size_t k = 0; k < e.data[i].size(); ++k) {
            const AUVXComplex& x = e.data[i][k];
            const AUVXComplex& y = a.data[i][k];
            if (x.re != y.re || x.im != y.im || x.wt != y.wt) {
                ++differences;
                ADD_FAILURE() << "record " << i << " element " << k << ": " << x.re << " " << x.im << " "
                              << x.wt << " became " << y.re << " " << y.im << " " << y.wt;
                break;
            }
        }
    }

    ASSERT_EQ(e.tables.size(), a.tables.size());
    for (const auto& t : e.tables) {
        const AUVXTable* other = a.Table(t->GetName());
        ASSERT_NE(other, nullptr) << "table " << t->GetName().GetString() << " lost";
        ExpectSameTable(*t, *other);
    }
}

std::string MSTestPath(const std::string& suffix) {
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string name =
        info != nullptr ? std::string(info->test_suite_name()) + "-" + info->name() : "fixture";
    return std::string(MEROVANE_TEST_TMP) + "/ms-" + name + suffix;
}

bool RemoveTree(const std::string& path) {
    std::error_code ec;
    fs::remove_all(path, ec);
    return !fs::exists(path, ec);
}

bool PathExists(const std::string& path) {
    std::error_code ec;
    return fs::exists(path, ec);
}

std::vector<std::string> EntriesStartingWith(const std::string& dir, const std::string& prefix) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(dir, ec)) {
        const std::string name = entry.path().filename().string();
        if (name.compare(0, prefix.size(), prefix) == 0) names.push_back(name);
    }
    return names;
}
