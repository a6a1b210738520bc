// Tests of the uvx-cal program: exit codes, options in any order, the report's PNG plots, real files.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "HostTestSupport.h"

#if defined(MEROVANE_HOST_FITS)
#include "FitsTestFiles.h"
#endif

namespace fs = std::filesystem;

namespace {

const std::string kUvxCal = std::string(MEROVANE_BINARY_DIR) + "/tools/uvx-cal/uvx-cal";

struct ARun {
    int code = -1;
    std::string out, err;
};

// Runs uvx-cal with `args` (already quoted where needed), stdout and stderr to files of the test.
ARun UvxCal(const std::string& args) {
    const std::string o = HostPath("-stdout.txt"), e = HostPath("-stderr.txt");
    const int status = std::system((kUvxCal + " " + args + " >" + o + " 2>" + e).c_str());
    ARun r;
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = Slurp(o);
    r.err = Slurp(e);
    return r;
}

class UvxCalTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASimConfig c = HostConfig();
        SimulateFor(c, "", truth, uvx, antab);
        out = HostPath("-out.uvx");
        fs::remove(out);
    }
    ASimTruth truth;
    std::string uvx, antab, out;
};

TEST_F(UvxCalTest, ExitCodesAndMessages) {
    struct ACase {
        std::string args;
        int code;
        std::string text;  // in stderr (or stdout for --help)
    };
    const std::string missing = HostPath("-missing.uvx");
    const std::vector<ACase> cases = {
        {"--help", 0, "usage: uvx-cal [options] IN OUT"},
        {"", 2, "uvx-cal: give one input and one output file\nusage:"},
        {uvx, 2, "uvx-cal: give one input and one output file"},
        {"--frobnicate " + uvx + " " + out, 2, "uvx-cal: unknown option --frobnicate"},
        {"--bp-phase cubic " + uvx + " " + out, 2, "uvx-cal: --bp-phase takes lms, lms1 or apr, not cubic"},
        {"--average -5 " + uvx + " " + out, 2, "uvx-cal: --average needs seconds above 0"},
        {"--bp-range 7-3 --bp-amp " + uvx + " " + out, 2,
         "a channel range must have its last channel after its first"},
        {"--fix-bits " + uvx + " " + out, 2, "uvx-cal: --fix-bits needs the correction by bits (--dig-bits)"},
        {"--antab " + antab + " " + missing + " " + out, 1, "uvx-cal: " + missing + ": no such file"},
        {"--antab " + HostPath("-none.antab") + " " + uvx + " " + out, 1,
         "uvx-cal: " + HostPath("-none.antab") + ": cannot read the ANTAB file"},
        {uvx + " " + HostPath("-no-such-dir/out.uvx"), 1,
         HostPath("-no-such-dir/out.uvx") + ": cannot be written"},
        {"--source NGC1 " + uvx + " " + out, 1,
         "no source \"NGC1\" in the source table; the file has 3C84 4C39.25"},
    };
    for (const ACase& c : cases) {
        const ARun r = UvxCal(c.args);
        EXPECT_EQ(r.code, c.code) << c.args << "\n" << r.err;
        EXPECT_NE((c.code == 0 ? r.out : r.err).find(c.text), std::string::npos) << c.args << "\n" << r.err;
        if (c.code != 0) {
            EXPECT_FALSE(fs::exists(out)) << c.args;
        }
    }
}

TEST_F(UvxCalTest, OptionsInAnyOrderRunThePassesInTheOneOrder) {
    const std::string a = HostPath("-a.uvx"), b = HostPath("-b.uvx"), lib = HostPath("-lib.uvx");
    const ARun first =
        UvxCal("--average 60 --antab " + antab + " --bp-amp --dig-bits --dig-power " + uvx + " " + a);
    ASSERT_EQ(first.code, 0) << first.err;
    const ARun second =
        UvxCal("--dig-power " + uvx + " --dig-bits --bp-amp --antab " + antab + " --average 60 " + b);
    ASSERT_EQ(second.code, 0) << second.err;
    const std::string passes =
        "passes: digitisation by power, digitisation by bits, amplitude bandpass (solve, apply), amplitude "
        "calibration, averaging\n";
    EXPECT_EQ(first.out.rfind(passes, 0), 0u) << first.out;
    EXPECT_EQ(second.out.rfind(passes, 0), 0u) << second.out;
    // The same bytes, and the same as the host layer gives.
    ACalOptions opt;
    opt.digPower = opt.digBits = opt.bpAmplitude = true;
    opt.antab = antab;
    opt.avgStep = 60;
    ACalPipeline run;
    ASSERT_TRUE(run.Run(uvx, lib, opt)) << run.m_errMsg;
    const std::string bytes = Slurp(a);
    ASSERT_GT(bytes.size(), 1000u);
    EXPECT_EQ(bytes, Slurp(b));
    EXPECT_EQ(bytes, Slurp(lib));
    // Two walks, as the bandpass needs.
    EXPECT_NE(first.err.find("uvx-cal: bandpass solve (walk 1/2) 100%"), std::string::npos) << first.err;
    EXPECT_NE(first.err.find("uvx-cal: calibrate (walk 2/2) 100%"), std::string::npos) << first.err;
}

// PNG: the 8-byte signature, then the IHDR chunk of length 13 with a width and height above 0.
void ExpectPng(const std::string& path) {
    const std::string b = Slurp(path);
    ASSERT_GE(b.size(), 33u) << path;
    EXPECT_EQ(b.substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8)) << path;
    EXPECT_EQ(b.substr(8, 8), std::string("\0\0\0\x0dIHDR", 8)) << path;
    auto be32 = [&](std::size_t at) {
        return (static_cast<unsigned char>(b[at]) << 24) | (static_cast<unsigned char>(b[at + 1]) << 16) |
               (static_cast<unsigned char>(b[at + 2]) << 8) | static_cast<unsigned char>(b[at + 3]);
    };
    EXPECT_GT(be32(16), 0u) << path;
    EXPECT_GT(be32(20), 0u) << path;
    EXPECT_NE(b.find("IEND"), std::string::npos) << path;
}

TEST(UvxCalReportTest, ReportHoldsTheSummaryTheBandpassStoreAndValidPngs) {
    ASimConfig c = HostConfig();
    c.nIF = 1;  // fewer plots to draw
    ASimTruth truth;
    std::string uvx, antab;
    SimulateFor(c, "", truth, uvx, antab);
    const std::string dir = HostPath("-report"), out = HostPath("-out.uvx");
    fs::remove_all(dir);
    const ARun r = UvxCal("--quiet --bp-amp --antab " + antab + " --report " + dir + " " + uvx + " " + out);
    ASSERT_EQ(r.code, 0) << r.err;
    const std::string json = Slurp(dir + "/summary.json");
    EXPECT_NE(json.find("\"passes\": [\"amplitude bandpass (solve, apply)\", \"amplitude calibration\"]"),
              std::string::npos)
        << json;
    EXPECT_NE(json.find("\"stations_calibrated\": [\"EF\", \"WB\", \"ON\"]"), std::string::npos) << json;
    // One stored matrix per station and scan (four scans), each 2 x 1 x 8 complex values.
    EXPECT_GT(fs::file_size(dir + "/bandpass.store"), 3u * 4u * (2u * 1u * 8u * 8u));
    std::ifstream list(dir + "/plots.txt");
    ASSERT_TRUE(list.is_open()) << "cannot open " << dir << "/plots.txt";
    std::vector<std::string> pngs;
    for (std::string line; std::getline(list, line);) pngs.push_back(line);
    // Amplitude and phase per station, IF and hand (3 x 1 x 2), and Tsys per station.
    ASSERT_EQ(pngs.size(), 6u + 3u);
    EXPECT_EQ(pngs.front(), "bandpass_EF_IF1_R.png");
    EXPECT_EQ(pngs.back(), "tsys_WB.png");
    for (const auto& p : pngs) ExpectPng(dir + "/" + p);
}

TEST_F(UvxCalTest, AnAbsentStationInTheAntabFileIsNamedWithExitCode1) {
    std::ifstream text(antab);
    ASSERT_TRUE(text.is_open()) << "cannot open " << antab;
    std::string line, kept;
    bool skip = false;
    while (std::getline(text, line)) {
        if (line.rfind("GAIN ON", 0) == 0) continue;  // one line
        if (line.rfind("TSYS ON", 0) == 0) skip = true;
        if (!skip) kept += line + "\n";
        if (skip && line == "/") skip = false;
    }
    const std::string partial = HostPath("-partial.antab");
    WriteText(partial, kept);
    const ARun r = UvxCal("--antab " + partial + " " + uvx + " " + out);
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("uvx-cal: " + partial + ": no GAIN and TSYS data for station ON"), std::string::npos)
        << r.err;
    EXPECT_FALSE(fs::exists(out));
    EXPECT_FALSE(fs::exists(out + ".part"));
}

// Mean amplitude of the parallel-hand cross-correlations over the simulated flux, per source.
std::map<int, double> Recovered(const std::string& path, const ASimTruth& truth) {
    AUVXHeader h;
    std::vector<AHostRecord> records;
    EXPECT_TRUE(ReadRecords(path, h, records)) << path;
    std::map<int, std::pair<double, int>> sums;
    for (const auto& rec : records) {
        if (rec.group.ant1 == rec.group.ant2) continue;
        for (std::size_t e = 0; e < rec.data.size(); ++e) {
            const int s = static_cast<int>(e % static_cast<std::size_t>(h.nStokes));
            if ((h.stokes[s] == -1 || h.stokes[s] == -2) && rec.data[e].wt > 0) {
                sums[rec.group.sourceId].first += std::hypot(rec.data[e].re, rec.data[e].im);
                ++sums[rec.group.sourceId].second;
            }
        }
    }
    std::map<int, double> ratios;
    for (const auto& [id, s] : sums) ratios[id] = s.first / s.second / truth.Source(id)->flux;
    return ratios;
}

TEST_F(UvxCalTest, TheGuidesExampleHostCalibratesBothWays) {
    const std::string example = std::string(MEROVANE_BINARY_DIR) + "/tools/uvx-cal/uvx-cal-example-host";
    const std::string layer = HostPath("-layer.uvx"), own = HostPath("-own.uvx"), log = HostPath("-log.txt");
    ASSERT_EQ(std::system((example + " " + uvx + " " + antab + " " + layer + " >" + log + " 2>&1").c_str()),
              0)
        << Slurp(log);
    ASSERT_EQ(
        std::system((example + " --own " + uvx + " " + antab + " " + own + " >" + log + " 2>&1").c_str()), 0)
        << Slurp(log);
    EXPECT_EQ(Slurp(log), "calibrated and averaged; 0 record(s) could not be calibrated\n");
    for (const std::string& path : {layer, own}) {
        const auto ratios = Recovered(path, truth);
        ASSERT_EQ(ratios.size(), 2u) << path;
        // The own host has no bandpass pass: its spectra keep the bandpass, their mean amplitude a few
        // per cent below the flux.
        for (const auto& [id, ratio] : ratios) EXPECT_NEAR(ratio, 1.0, path == layer ? 0.002 : 0.05) << path;
    }
}

class UvxCalRealFileTest : public ::testing::TestWithParam<std::string> {};

TEST_P(UvxCalRealFileTest, RunsAndSaysWhatItCouldNotDo) {
    const std::string in = std::string(MEROVANE_TEST_DATA) + "/uv/" + GetParam();
    const std::string out = HostPath(".uvx");
    const ARun r = UvxCal("--dig-power --dig-bits --average 60 " + in + " " + out);
#if defined(MEROVANE_HOST_FITS)
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.err.find("uvx-cal: read UVFITS " + in + ": "), std::string::npos) << r.err;
    EXPECT_NE(r.out.find("not done: digitisation by power: the file has no autocorrelations"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("not done: digitisation by bits: the file has no antenna-information table (AI)"),
              std::string::npos)
        << r.out;
    AUVXHeader h;
    std::vector<AHostRecord> records;
    ASSERT_TRUE(ReadRecords(out, h, records));
    EXPECT_GT(records.size(), 0u);
    EXPECT_NE(r.out.find(", " + std::to_string(records.size()) + " written"), std::string::npos) << r.out;
#else
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("needs the FITS bridge (libmerovane-fits), which this build does not have"),
              std::string::npos)
        << r.err;
#endif
}

INSTANTIATE_TEST_SUITE_P(Files, UvxCalRealFileTest,
                         ::testing::Values("eht2017_e17a10_oj287_hops_2if_4pol.uvfits",
                                           "vlba_c_j0414+053_aips_8if16ch_ll.uvfits",
                                           "vlba_u_j1033+6051_aips_8if_4pol.uvfits"),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                             return std::string(info.param.substr(0, info.param.find('_'))) +
                                    std::to_string(info.index);
                         });

#if defined(MEROVANE_HOST_FITS)
TEST_F(UvxCalTest, FitsIdiWithItsOwnAprioriTablesIsCalibrated) {
    ASimConfig c = HostConfig();
    c.bandpass = false;
    c.levels = false;
    ASimTruth t;
    std::string simUvx, simAntab;
    SimulateFor(c, "-idi", t, simUvx, simAntab);
    const std::string idi = HostPath("-idi.fits");
    std::string error;
    AIdiOptions options;
    ASSERT_TRUE(WriteIdiFromUvx(simUvx, &t, idi, options, error)) << error;
    const ARun r = UvxCal("--antab input --dig-bits --average 60 " + idi + " " + out);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.err.find("uvx-cal: read FITS-IDI " + idi + ": "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("amplitude calibration from the input's own a-priori tables"), std::string::npos)
        << r.err;
    EXPECT_NE(r.out.find("stations calibrated: EF WB ON"), std::string::npos) << r.out;
    AUVXHeader h;
    std::vector<AHostRecord> records;
    ASSERT_TRUE(ReadRecords(out, h, records));
    std::map<int, std::pair<double, int>> sums;
    for (const auto& rec : records) {
        if (rec.group.ant1 == rec.group.ant2) continue;
        for (std::size_t e = 0; e < rec.data.size(); ++e) {
            const int s = static_cast<int>(e % static_cast<std::size_t>(h.nStokes));
            if ((h.stokes[s] == -1 || h.stokes[s] == -2) && rec.data[e].wt > 0) {
                sums[rec.group.sourceId].first += std::hypot(rec.data[e].re, rec.data[e].im);
                ++sums[rec.group.sourceId].second;
            }
        }
    }
    ASSERT_EQ(sums.size(), 2u);
    for (const auto& [id, s] : sums) EXPECT_NEAR(s.first / s.second / t.Source(id)->flux, 1.0, 0.03) << id;
    // No temporary conversion is left beside the output.
    EXPECT_FALSE(fs::exists(out + ".input.uvx"));
}
#endif

}  // namespace
