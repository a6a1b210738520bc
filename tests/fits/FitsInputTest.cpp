// UVFITS written in the other forms writers use, and input the bridge must refuse cleanly.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
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

const double kJD0 = 2458849.5;  // 2020-01-01 0h

// A small standard file: COMPLEX(3) STOKES(nStokes) FREQ(2) IF(2) RA DEC, UU VV WW BASELINE DATE DATE.
AUVFitsPlan StandardPlan(int nStokes) {
    AUVFitsPlan s;
    s.axes = {{"COMPLEX", 3, 1, 1, 1},  {"STOKES", nStokes, -1, -1, 1},
              {"FREQ", 2, 5e9, 1e6, 1}, {"IF", 2, 1, 1, 1},
              {"RA", 1, 10, 1, 1},      {"DEC", 1, 20, 1, 1}};
    s.params = {{"UU---SIN"}, {"VV---SIN"}, {"WW---SIN"}, {"BASELINE"}, {"DATE", 1, kJD0}, {"DATE"}};
    s.nIF = 2;
    s.gcount = 5;
    s.dateObs = "2020-01-01";
    s.fill = [](long g, std::vector<double>& p, std::vector<double>& d) {
        p = {1e-3, 2e-3, 3e-3, 258, 0.5 + g * 1e-4, 0};
        for (std::size_t k = 0; k < d.size(); ++k) d[k] = (k % 3 == 2) ? 1.0 : 0.25 * k;
    };
    return s;
}

std::string ReadText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

}  // namespace

// FREQ before STOKES, no weights on the COMPLEX axis, ANTENNA1/ANTENNA2/SUBARRAY instead of BASELINE,
// scaled u v w, no DATE-OBS (the reference day from the DATE offset), an SU table and SOURCE, a NaN.
TEST(FitsInput, OtherAxisOrderAntennaParametersScalingAndNaN) {
    AUVFitsPlan s;
    s.axes = {{"COMPLEX", 2, 1, 1, 1}, {"FREQ", 3, 8.4e9, 5e5, 2}, {"STOKES", 2, -1, -1, 1},
              {"IF", 2, 1, 1, 1},      {"RA---SIN", 1, 30, 1, 1},  {"DEC--SIN", 1, -40, 1, 1}};
    s.params = {{"UU", 1e-9}, {"VV", 1e-9},      {"WW", 1e-9}, {"ANTENNA1"}, {"ANTENNA2"},
                {"SUBARRAY"}, {"DATE", 1, kJD0}, {"DATE"},     {"SOURCE"},   {"INTTIM"}};
    s.dateObs = "";
    s.withSU = true;
    s.nIF = 2;
    s.gcount = 4;
    auto value = [](long g, int c, int f, int st, int i) {
        return g * 1000.0 + f * 100 + st * 10 + i + c * 0.5;
    };
    s.fill = [&](long g, std::vector<double>& p, std::vector<double>& d) {
        p = {1000.0 + g, -2000.0, 500.0, 1.0, 3.0 - (g % 2), 1.0, 0.25, 1e-5 * g, g % 2 ? 7.0 : 3.0, 2.0};
        // FITS order: COMPLEX fastest, then FREQ, STOKES, IF.
        for (int i = 0; i < 2; ++i)
            for (int st = 0; st < 2; ++st)
                for (int f = 0; f < 3; ++f)
                    for (int c = 0; c < 2; ++c) d[((i * 2 + st) * 3 + f) * 2 + c] = value(g, c, f, st, i);
        if (g == 1) d[((1 * 2 + 0) * 3 + 2) * 2 + 0] = NAN;
    };
    const std::string in = FitsTmpPath("variant.uvfits"), out = FitsTmpPath("variant.uvx");
    std::string error;
    ASSERT_TRUE(WriteUVFits(in, s, error)) << error;
    AFitsImport import;
    ASSERT_TRUE(import.Import(in.c_str(), out.c_str())) << import.m_errMsg.GetString();
    EXPECT_EQ(import.m_nanFlagged, 1);

    AUVXFile uvx;
    ASSERT_TRUE(uvx.Open(out.c_str()));
    const AUVXHeader& h = uvx.GetHeader();
    EXPECT_EQ(+h.refJD, kJD0);
    EXPECT_EQ(+h.nStokes, 2);
    EXPECT_EQ(h.stokes[0], -1);
    EXPECT_EQ(h.stokes[1], -2);
    EXPECT_EQ(+h.nChan, 3);
    EXPECT_EQ(+h.refChan, 2);
    EXPECT_EQ(+h.refFreq, 8.4e9);
    EXPECT_EQ(+h.intTime, 2.0f);
    EXPECT_EQ(+h.objRA, 30.0);
    EXPECT_EQ(+h.objDec, -40.0);
    AUVXRecordReader reader;
    ASSERT_TRUE(reader.Open(uvx));
    std::vector<AUVXComplex> e(reader.ElementCount());
    ASSERT_EQ(e.size(), 2u * 3 * 2);
    AUVXGroup g;
    long n = 0;
    while (reader.Next(g, e.data())) {
        EXPECT_EQ(+g.u, static_cast<float>((1000.0 + n) * 1e-9));
        EXPECT_EQ(+g.v, static_cast<float>(-2000.0 * 1e-9));
        EXPECT_EQ(+g.ant1, 1);
        EXPECT_EQ(+g.ant2, 3 - (n % 2));
        EXPECT_EQ(+g.sourceId, n % 2 ? 7 : 3);
        EXPECT_NEAR(+g.time, (0.25 + static_cast<float>(1e-5 * n)) * 86400.0, 1e-6);
        for (int i = 0; i < 2; ++i)
            for (int f = 0; f < 3; ++f)
                for (int st = 0; st < 2; ++st) {
                    const AUVXComplex& x = e[(i * 3 + f) * 2 + st];
                    if (n == 1 && i == 1 && f == 2 && st == 0) {
                        EXPECT_EQ(x.re, 0.0f);
                        EXPECT_EQ(x.wt, -1.0f) << "a NaN sample is kept, flagged";
                        continue;
                    }
                    EXPECT_EQ(x.re, static_cast<float>(value(n, 0, f, st, i)));
                    EXPECT_EQ(x.im, static_cast<float>(value(n, 1, f, st, i)));
                    EXPECT_EQ(x.wt, 1.0f);
                }
        ++n;
    }
    EXPECT_EQ(n, 4);
    std::unique_ptr<AUVXTable> su(uvx.GetTable(kLayoutSU.name));
    ASSERT_TRUE(su);
    ASSERT_EQ(su->nRows, 2);
    EXPECT_EQ(su->GetDouble(1, kSUId), 7.0);
    EXPECT_EQ(su->GetText(1, kSUSource), "SECOND");
    EXPECT_EQ(su->GetDouble(1, kSUDecEpo), 45.0);
}

// Integer data with BSCALE and BZERO, weights 0 and negative: flagged, never dropped.
TEST(FitsInput, ScaledIntegersAndFlaggedWeights) {
    AUVFitsPlan s = StandardPlan(1);
    s.bitpix = 16;
    s.bscale = 0.5;
    s.bzero = 1.0;
    s.params = {{"UU---SIN", 1e-6}, {"VV---SIN", 1e-6},   {"WW---SIN", 1e-6},
                {"BASELINE"},       {"DATE", 1e-4, kJD0}, {"DATE", 1e-8}};
    s.fill = [](long g, std::vector<double>& p, std::vector<double>& d) {
        p = {100, -200, 300, 259, static_cast<double>(2500 + g), 7};
        for (std::size_t k = 0; k < d.size(); ++k)
            d[k] = k % 3 == 2 ? (k == 2 ? -2.0 : (k == 5 ? -3.0 : 4.0)) : k * 2.0;
    };
    const std::string in = FitsTmpPath("int16.uvfits"), out = FitsTmpPath("int16.uvx");
    std::string error;
    ASSERT_TRUE(WriteUVFits(in, s, error)) << error;
    AFitsImport import;
    ASSERT_TRUE(import.Import(in.c_str(), out.c_str())) << import.m_errMsg.GetString();
    AUVXFile uvx;
    ASSERT_TRUE(uvx.Open(out.c_str()));
    AUVXRecordReader reader;
    ASSERT_TRUE(reader.Open(uvx));
    std::vector<AUVXComplex> e(reader.ElementCount());
    AUVXGroup g;
    ASSERT_TRUE(reader.Next(g, e.data()));
    EXPECT_EQ(+g.u, static_cast<float>(100 * 1e-6));
    EXPECT_EQ(+g.w, static_cast<float>(300 * 1e-6));
    EXPECT_NEAR(+g.time, (2500 * 1e-4 + 7e-8) * 86400.0, 1e-6);
    EXPECT_EQ(e[0].re, 1.0f);  // 0 x 0.5 + 1
    EXPECT_EQ(e[0].im, 2.0f);  // 2 x 0.5 + 1
    EXPECT_EQ(e[0].wt, 0.0f);  // -2 x 0.5 + 1: 0, flagged
    EXPECT_EQ(e[1].wt, -0.5f);
    EXPECT_EQ(e[2].wt, 3.0f);
    EXPECT_EQ(e[1].re, 4.0f);  // 6 x 0.5 + 1
    EXPECT_EQ(e[1].im, 5.0f);  // 8 x 0.5 + 1
}

// A file that holds no u v w geometry of its own handedness (no XYZHAND) keeps a right-handed reading
// when the records cannot tell: here u v w are not the stations' geometry at all.
TEST(FitsInput, NoXyzhandAndNoVerdictStaysRightHanded) {
    AUVFitsPlan s = StandardPlan(2);
    s.xyzhand = "";
    const std::string in = FitsTmpPath("nohand.uvfits"), out = FitsTmpPath("nohand.uvx");
    std::string error;
    ASSERT_TRUE(WriteUVFits(in, s, error)) << error;
    AFitsImport import;
    ASSERT_TRUE(import.Import(in.c_str(), out.c_str())) << import.m_errMsg.GetString();
    EXPECT_GE(import.m_handedness.Find("no XYZHAND; right-handed"), 0) << import.m_handedness.GetString();
    AUVXFile uvx;
    ASSERT_TRUE(uvx.Open(out.c_str()));
    std::unique_ptr<AUVXTable> an(uvx.GetTable(kLayoutAN.name));
    ASSERT_TRUE(an);
    EXPECT_EQ(an->GetDouble(1, kANStabXyz, 1), 5e6);
}

namespace {

struct ABadCase {
    const char* name;
    std::string expect;  // part of the message after "<in>: "
    std::function<bool(const std::string&, std::string&)> write;
};

bool WriteText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    return static_cast<bool>(out);
}

}  // namespace

TEST(FitsInput, BadInputIsRefusedWithItsReasonAndLeavesNothing) {
    ASimConfig c;
    c.nIF = 1;
    c.nChan = 2;
    c.duration = 240;
    c.stations = {"EF", "WB", "ON"};
    const std::string simPath = FitsTmpPath("bad-sim.uvx");
    CString simError;
    ASSERT_TRUE(Simulate(c, simPath.c_str(), nullptr, nullptr, nullptr, &simError)) << simError.GetString();

    const std::vector<ABadCase> cases = {
        {"text", "not a FITS file",
         [](const std::string& p, std::string&) { return WriteText(p, "hello\n"); }},
        {"empty", "not a FITS file", [](const std::string& p, std::string&) { return WriteText(p, ""); }},
        {"nostokes", "the random groups have no STOKES axis",
         [](const std::string& p, std::string& e) {
             AUVFitsPlan s = StandardPlan(1);
             s.axes[1].type = "POL";
             s.axes[1].length = 1;
             return WriteUVFits(p, s, e);
         }},
        {"nine-stokes", "9 Stokes products; a UVX file holds 1 to 8",
         [](const std::string& p, std::string& e) { return WriteUVFits(p, StandardPlan(9), e); }},
        {"noan", "no AIPS AN table (the stations)",
         [](const std::string& p, std::string& e) {
             AUVFitsPlan s = StandardPlan(1);
             s.withAN = false;
             return WriteUVFits(p, s, e);
         }},
        {"nodate", "the random groups have no DATE parameter",
         [](const std::string& p, std::string& e) {
             AUVFitsPlan s = StandardPlan(1);
             s.params[4].name = "TIME";
             s.params[5].name = "TIME2";
             return WriteUVFits(p, s, e);
         }},
        {"truncated", "truncated or unreadable: the data end before group",
         [](const std::string& p, std::string& e) {
             AUVFitsPlan s = StandardPlan(4);
             s.gcount = 3000;
             s.truncateData = true;
             return WriteUVFits(p, s, e);
         }},
        {"antenna-65", "group 1: antenna numbers 1-65 outside 1..64",
         [](const std::string& p, std::string& e) {
             AUVFitsPlan s = StandardPlan(1);
             s.fill = [](long, std::vector<double>& pr, std::vector<double>& d) {
                 pr = {0, 0, 0, 256 + 65, 0.5, 0};
                 for (double& x : d) x = 1;
             };
             return WriteUVFits(p, s, e);
         }},
        {"idi-nofrequency", "no FREQUENCY table",
         [&](const std::string& p, std::string& e) {
             AIdiOptions o;
             o.withFrequency = false;
             return WriteIdiFromUvx(simPath, nullptr, p, o, e);
         }},
        {"idi-nogeometry", "no ARRAY_GEOMETRY table (the stations)",
         [&](const std::string& p, std::string& e) {
             AIdiOptions o;
             o.withGeometry = false;
             return WriteIdiFromUvx(simPath, nullptr, p, o, e);
         }},
        {"idi-nine-stokes", "9 Stokes products; a UVX file holds 1 to 8",
         [&](const std::string& p, std::string& e) {
             AIdiOptions o;
             o.nStokesOverride = 9;
             return WriteIdiFromUvx(simPath, nullptr, p, o, e);
         }},
    };
    for (const ABadCase& bad : cases) {
        SCOPED_TRACE(bad.name);
        const std::string in = FitsTmpPath(std::string("bad-") + bad.name + ".in");
        const std::string out = FitsTmpPath(std::string("bad-") + bad.name + ".uvx");
        FitsRemove(out);
        std::string error;
        ASSERT_TRUE(bad.write(in, error)) << error;
        AFitsImport import;
        EXPECT_FALSE(import.Import(in.c_str(), out.c_str()));
        const std::string message = import.m_errMsg.str();
        EXPECT_EQ(message.rfind(in + ": ", 0), 0u) << message;
        EXPECT_NE(message.find(bad.expect), std::string::npos) << message;
        EXPECT_FALSE(FitsFileExists(out));
        EXPECT_FALSE(FitsFileExists(out + ".part"));
        EXPECT_FALSE(FitsFileExists(AFitsImport::AntabPathFor(out.c_str()).str()));

        // The tool says the same on stderr and exits with 1.
        const std::string errFile = FitsTmpPath(std::string("bad-") + bad.name + ".stderr");
        const std::string cmd = std::string("\"") + MEROVANE_UVX_IMPORT + "\" \"" + in + "\" \"" + out +
                                "\" 2>\"" + errFile + "\" >/dev/null";
        const int status = std::system(cmd.c_str());
        EXPECT_EQ(status / 256, 1);
        EXPECT_EQ(ReadText(errFile), "uvx-import: " + message + "\n");
        EXPECT_FALSE(FitsFileExists(out));
        EXPECT_FALSE(FitsFileExists(out + ".part"));
    }
}

TEST(FitsInput, ExportRefusesWhatIsNotUvxAndLeavesNothing) {
    const std::string notUvx = FitsTmpPath("export-not.uvx");
    ASSERT_TRUE(WriteText(notUvx, "MEROVUVX but nothing behind it"));
    const std::string out = FitsTmpPath("export-not.uvfits");
    FitsRemove(out);
    struct Case {
        std::string in;
        const char* outName;
        const char* toolMessage;
    };
    const Case cases[] = {{notUvx, "export-not.uvfits", nullptr},
                          {FitsTmpPath("export-missing.uvx"), "export-missing.uvfits", nullptr},
                          {notUvx, "export-not.xyz", "unknown output format"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.outName);
        const std::string target = FitsTmpPath(c.outName);
        if (c.toolMessage == nullptr) {
            AFitsExport exporter;
            EXPECT_FALSE(exporter.Export(c.in.c_str(), target.c_str()));
            EXPECT_EQ(exporter.m_errMsg.str().rfind(c.in + ": ", 0), 0u) << exporter.m_errMsg.GetString();
        }
        const std::string errFile = target + ".stderr";
        const std::string cmd = std::string("\"") + MEROVANE_UVX_EXPORT + "\" \"" + c.in + "\" \"" + target +
                                "\" 2>\"" + errFile + "\" >/dev/null";
        EXPECT_EQ(std::system(cmd.c_str()) / 256, 1);
        const std::string text = ReadText(errFile);
        EXPECT_EQ(text.rfind("uvx-export: ", 0), 0u) << text;
        if (c.toolMessage != nullptr) {
            EXPECT_NE(text.find(c.toolMessage), std::string::npos) << text;
        }
        EXPECT_FALSE(FitsFileExists(target));
        EXPECT_FALSE(FitsFileExists(target + ".part"));
    }
}

// A table that declares itself left-handed is turned: the UVX file is always right-handed.
TEST(FitsInput, DeclaredLeftHandedStationsAreTurned) {
    AUVFitsPlan plan = StandardPlan(1);
    plan.xyzhand = "left";
    const std::string in = FitsTmpPath("lefthand.uvfits"), out = FitsTmpPath("lefthand.uvx");
    std::string error;
    ASSERT_TRUE(WriteUVFits(in, plan, error)) << error;
    AFitsImport import;
    ASSERT_TRUE(import.Import(in.c_str(), out.c_str())) << import.m_errMsg.GetString();
    EXPECT_EQ(import.m_handedness, "declared by XYZHAND");
    AUVXFile uvx;
    ASSERT_TRUE(uvx.Open(out.c_str()));
    std::unique_ptr<AUVXTable> an(uvx.GetTable(kLayoutAN.name));
    ASSERT_TRUE(an);
    ASSERT_EQ(an->nRows, 3);
    for (int r = 0; r < 3; ++r) {
        EXPECT_EQ(an->GetDouble(r, kANStabXyz, 0), plan.stations[r].x);
        EXPECT_EQ(an->GetDouble(r, kANStabXyz, 1), -plan.stations[r].y);
        EXPECT_EQ(an->GetDouble(r, kANStabXyz, 2), plan.stations[r].z);
        EXPECT_EQ(an->GetText(r, kANName), plan.stations[r].name.c_str());
    }
    CString hand;
    ASSERT_TRUE(an->GetKeyword(kKeyXyzHand, hand));
    EXPECT_EQ(hand, "RIGHT");
}
