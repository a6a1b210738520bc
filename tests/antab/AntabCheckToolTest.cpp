// The antab-check program: exit codes, the file it writes and what it prints.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <merovane/antab/AAntabCheck.h>

namespace {

const std::string kTool = std::string(MEROVANE_BINARY_DIR) + "/tools/antab-check/antab-check";
const std::string kData = std::string(MEROVANE_TEST_DATA) + "/antab/";
const std::string kTmp = std::string(MEROVANE_TEST_TMP) + "/antab-check-tool-";

std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in.is_open()) ADD_FAILURE() << "cannot open " << path;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Runs the tool with `args`, its output into `out`; the exit code.
int RunTool(const std::string& args, std::string& out) {
    const std::string log = kTmp + "log.txt";
    const int rc = std::system((kTool + " " + args + " > " + log + " 2>&1").c_str());
    out = Slurp(log);
    return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
}

bool Exists(const std::string& path) {
    return std::ifstream(path).good();
}

TEST(AntabCheckTool, ExitCodesAndWrittenFile) {
    if (!Exists(kTool)) GTEST_SKIP() << "antab-check is not built";
    std::string out;
    const std::string fixed = kTmp + "gb.antab";
    std::remove(fixed.c_str());
    struct Case {
        std::string args;
        int code;
        const char* says;  // a part of the output
    } cases[] = {
        {"", 2, "antab-check: no ANTAB file"},
        {kData + "gmva_c211a_ef.antab --keep SV", 2, "--keep needs STATION=VALUE"},
        {kData + "gmva_c211a_ef.antab --coverage 0", 2, "--coverage needs minutes above 0"},
        {kData + "gmva_c211a_ef.antab --frobnicate", 2, "unknown option --frobnicate"},
        {kTmp + "missing.antab", 1, "Cannot read ANTAB file"},
        {kData + "gmva_c211a_ef.antab", 0, "0 error(s), 0 loss(es), 0 question(s)"},
        {kData + "eht2017_april_A.antab", 1, "error [gain-first] AP"},
        {kData + "gmva_c212b_gb_tsysonly.antab -o " + fixed, 1,
         "not written: answer the question(s) above first"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(RunTool(c.args, out), c.code) << c.args << "\n" << out;
        EXPECT_NE(out.find(c.says), std::string::npos) << c.args << "\n" << out;
    }
    EXPECT_FALSE(Exists(fixed));

    // Answered: written, and the same text as the library's.
    ASSERT_EQ(
        RunTool(
            kData + "gmva_c212b_gb_tsysonly.antab --gain gb=1 --index \"GB='R1','R2','R3','R4'\" -o " + fixed,
            out),
        0)
        << out;
    EXPECT_NE(out.find("change " + kData + "gmva_c212b_gb_tsysonly.antab:0: GAIN block from --gain"),
              std::string::npos)
        << out;
    AAntabCheck check;
    check.m_options.gain["GB"] = "1";
    check.m_options.index["GB"] = "'R1','R2','R3','R4'";
    AAntabCheckResult r;
    ASSERT_TRUE(check.CheckFile((kData + "gmva_c212b_gb_tsysonly.antab").c_str(), nullptr, r));
    EXPECT_EQ(Slurp(fixed), r.normalised);
    EXPECT_FALSE(Exists(fixed + ".part"));
}

}  // namespace
