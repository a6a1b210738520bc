// Tests of the two programs: exit codes and messages for bad arguments and bad files, and a run.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "SimTestSupport.h"

namespace {

struct AResult {
    int code = -1;
    std::string out, err;
};

std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// Runs a program of the build through the shell; the shell writes the exit code to a file.
AResult RunTool(const std::string& tool, const std::string& args) {
    const std::string exe = std::string(MEROVANE_BINARY_DIR) + "/tools/" + tool + "/" + tool;
    const std::string out = TmpPath(tool + ".out"), err = TmpPath(tool + ".err"),
                      code = TmpPath(tool + ".code");
    const std::string cmd =
        "\"" + exe + "\" " + args + " >\"" + out + "\" 2>\"" + err + "\"; echo $? >\"" + code + "\"";
    AResult r;
    if (std::system(cmd.c_str()) != 0) return r;
    r.code = std::atoi(Slurp(code).c_str());
    r.out = Slurp(out);
    r.err = Slurp(err);
    return r;
}

const char* const kSmall =
    "--stations EF,WB,ON --sources 3C84,4C39.25 --nif 2 --nchan 8 --int 10 --duration 600 --scan 120 "
    "--gap 30 --min-elevation -90 ";

}  // namespace

TEST(Programs, SimulatorArguments) {
    AResult r = RunTool("uvx-sim", "");
    EXPECT_EQ(r.code, 2);
    EXPECT_NE(r.err.find("usage: uvx-sim"), std::string::npos);
    r = RunTool("uvx-sim", "--stations EF,XX out.uvx");
    EXPECT_EQ(r.code, 2);
    EXPECT_NE(r.err.find("uvx-sim: unknown station XX"), std::string::npos);
    r = RunTool("uvx-sim", "--nif four out.uvx");
    EXPECT_EQ(r.code, 2);
    EXPECT_NE(r.err.find("bad integer for --nif: four"), std::string::npos);
    r = RunTool("uvx-sim", "--frobnicate 1 out.uvx");
    EXPECT_EQ(r.code, 2);
    EXPECT_NE(r.err.find("unknown option --frobnicate"), std::string::npos);
    r = RunTool("uvx-sim", "a.uvx b.uvx");
    EXPECT_EQ(r.code, 2);
    r = RunTool("uvx-sim", "--nchan");
    EXPECT_EQ(r.code, 2);
    r = RunTool("uvx-sim", std::string(kSmall) + "/nonexistent-dir/out.uvx");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("cannot create"), std::string::npos) << r.err;
}

TEST(Programs, SimulateThenInspect) {
    const std::string base = TmpPath("prog");
    AResult r = RunTool("uvx-sim", std::string(kSmall) + "--products rr,ll \"" + base + "\"");
    ASSERT_EQ(r.code, 0) << r.err;
    // The three files sit side by side; the truth file names the products given in lower case.
    AUVXFile file;
    ASSERT_TRUE(file.Open((base + ".uvx").c_str())) << file.m_errMsg.GetString();
    EXPECT_EQ(file.nGroups, 288);
    EXPECT_EQ(+AUVXHeader(file).nStokes, 2);
    file.Close();
    ASimTruth truth;
    CString error;
    ASSERT_TRUE(truth.Load((base + ".truth").c_str(), &error)) << error.GetString();
    EXPECT_EQ(truth.stokes, (std::vector<int>{-1, -2}));
    EXPECT_EQ(Slurp(base + ".antab").find("GAIN EF "), Slurp(base + ".antab").find("GAIN "));

    r = RunTool("uvx-info", "\"" + base + ".uvx\"");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("288 records, time 20:00:05.00 .. 20:09:25.00"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Baselines (6: 3 autocorrelations, 3 cross-correlations)"), std::string::npos);
    EXPECT_NE(r.out.find("2 IF x 8 channels x 2 products (RR LL)"), std::string::npos);
    EXPECT_NE(r.out.find("source 2 4C39.25: 144 records"), std::string::npos);
    EXPECT_NE(r.out.find("Tables (5)"), std::string::npos);
    EXPECT_EQ(r.out.find("row 1:"), std::string::npos);
    r = RunTool("uvx-info", "--rows \"" + base + ".uvx\"");
    ASSERT_EQ(r.code, 0);
    EXPECT_NE(r.out.find("row 1: ANNAME='EF' STABXYZ=4033947.153 486990.898 4900431.098 NOSTA=1"),
              std::string::npos);
    EXPECT_NE(r.out.find("row 4: START=72450 END=72570 SOURCE ID=2"), std::string::npos);
    r = RunTool("uvx-info", "--max-rows 1 \"" + base + ".uvx\"");
    EXPECT_NE(r.out.find("... 2 more rows"), std::string::npos);
}

TEST(Programs, InspectorArgumentsAndBadFiles) {
    AResult r = RunTool("uvx-info", "");
    EXPECT_EQ(r.code, 2);
    EXPECT_NE(r.err.find("usage: uvx-info"), std::string::npos);
    r = RunTool("uvx-info", "--bogus x.uvx");
    EXPECT_EQ(r.code, 2);
    r = RunTool("uvx-info", "--records x x.uvx");
    EXPECT_EQ(r.code, 2);
    r = RunTool("uvx-info", "a.uvx b.uvx");
    EXPECT_EQ(r.code, 2);
    r = RunTool("uvx-info", "/nonexistent-dir/x.uvx");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("uvx-info: Cannot open UVX file"), std::string::npos) << r.err;
    const std::string text = TmpPath("not-a-uvx.uvx");
    std::ofstream(text) << "GAIN EF ELEV DPFU=1.0 /\n";
    r = RunTool("uvx-info", "\"" + text + "\"");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("uvx-info: "), std::string::npos);
    EXPECT_TRUE(r.out.empty());
}
