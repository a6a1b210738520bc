// Tests of the two programs: exit codes and messages for bad arguments and bad files, and a run.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "SimTestSupport.h"

namespace {

struct AResult {
    int code = -1;
    std::string out, err;
};

// Runs a program of the build through the shell, which writes the exit code to a file. Every call
// has files of its own, named after the running test.
AResult RunTool(const std::string& tool, const std::string& args) {
    static int calls = 0;
    const std::string exe = std::string(MEROVANE_BINARY_DIR) + "/tools/" + tool + "/" + tool;
    const std::string base = TestPath("-" + std::to_string(++calls));
    const std::string cmd = "\"" + exe + "\" " + args + " >\"" + base + ".out\" 2>\"" + base +
                            ".err\"; echo $? >\"" + base + ".code\"";
    AResult r;
    if (std::system(cmd.c_str()) != 0) return r;
    r.code = std::atoi(Slurp(base + ".code").c_str());
    r.out = Slurp(base + ".out");
    r.err = Slurp(base + ".err");
    return r;
}

struct AArgCase {
    std::string args;
    int code;
    const char* err;  // text that stderr must hold
};

void CheckArgCases(const char* tool, const std::vector<AArgCase>& cases) {
    for (const AArgCase& k : cases) {
        SCOPED_TRACE(std::string(tool) + " " + k.args);
        const AResult r = RunTool(tool, k.args);
        EXPECT_EQ(r.code, k.code);
        EXPECT_NE(r.err.find(k.err), std::string::npos) << r.err;
        EXPECT_TRUE(r.out.empty()) << r.out;
    }
}

const std::string kSmall =
    "--stations EF,WB,ON,MC --sources 3C84,4C39.25 --nif 2 --nchan 8 --int 10 --duration 600 --scan 120 "
    "--gap 30 --min-elevation -90 ";

}  // namespace

TEST(Programs, SimulatorArguments) {
    CheckArgCases("uvx-sim", {{"", 2, "usage: uvx-sim"},
                              {"--stations EF,XX out.uvx", 2, "uvx-sim: unknown station XX"},
                              {"--nif four out.uvx", 2, "bad integer for --nif: four"},
                              {"--frobnicate 1 out.uvx", 2, "unknown option --frobnicate"},
                              {"a.uvx b.uvx", 2, "usage: uvx-sim"},
                              {"--nchan", 2, "usage: uvx-sim"},
                              {kSmall + "/nonexistent-dir/out.uvx", 1, "cannot create"}});
}

TEST(Programs, InspectorArgumentsAndBadFiles) {
    const std::string text = TestPath("-not-a-uvx.uvx");
    std::ofstream(text) << "GAIN EF ELEV DPFU=1.0 /\n";
    CheckArgCases("uvx-info", {{"", 2, "usage: uvx-info"},
                               {"--bogus x.uvx", 2, "usage: uvx-info"},
                               {"--records x x.uvx", 2, "usage: uvx-info"},
                               {"a.uvx b.uvx", 2, "usage: uvx-info"},
                               {"/nonexistent-dir/x.uvx", 1, "uvx-info: Cannot open UVX file"},
                               {"\"" + text + "\"", 1, "uvx-info: "}});
}

TEST(Programs, SimulateThenInspect) {
    // Four stations give four autocorrelations and six cross-correlations each integration.
    const std::string base = TestPath("");
    AResult r = RunTool("uvx-sim", kSmall + "--products rr,ll \"" + base + "\"");
    ASSERT_EQ(r.code, 0) << r.err;
    // The three files sit side by side; the truth file names the products given in lower case.
    ASimTruth truth;
    CString error;
    ASSERT_TRUE(truth.Load((base + ".truth").c_str(), &error)) << error.GetString();
    EXPECT_EQ(truth.stokes, (std::vector<int>{-1, -2}));
    const std::string antab = Slurp(base + ".antab");
    EXPECT_EQ(antab.find("GAIN EF "), antab.find("GAIN "));

    r = RunTool("uvx-info", "\"" + base + ".uvx\"");
    ASSERT_EQ(r.code, 0) << r.err;
    for (const char* line :
         {"480 records, time 20:00:05.00 .. 20:09:25.00",
          "Baselines (10: 4 autocorrelations, 6 cross-correlations)",
          "2 IF x 8 channels x 2 products (RR LL)", "source 2 4C39.25: 240 records", "Tables (5)"})
        EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;
    EXPECT_EQ(r.out.find("row 1:"), std::string::npos);
    r = RunTool("uvx-info", "--rows \"" + base + ".uvx\"");
    ASSERT_EQ(r.code, 0);
    EXPECT_NE(r.out.find("row 1: ANNAME='EF' STABXYZ=4033947.153 486990.898 4900431.098 NOSTA=1"),
              std::string::npos);
    EXPECT_NE(r.out.find("row 4: START=72450 END=72570 SOURCE ID=2"), std::string::npos);
    EXPECT_EQ(r.out.find("more rows"), std::string::npos);
    // The AN table's four rows print one and name the three left.
    r = RunTool("uvx-info", "--max-rows 1 \"" + base + ".uvx\"");
    EXPECT_NE(r.out.find("row 1: ANNAME='EF'"), std::string::npos);
    EXPECT_EQ(r.out.find("row 2: ANNAME"), std::string::npos);
    EXPECT_NE(r.out.find("... 3 more rows"), std::string::npos);
}
