// Tests of the host layer: the order of the passes, the closed loop, the choices it offers, abort and
// failures that leave nothing behind.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>

#include <merovane/antab/AAntabData.h>
#include <merovane/digitisation/AAIShortTbl.h>
#include <merovane/digitisation/ADigErrCorrect.h>
#include <merovane/digitisation/AVanFlakeCorrect.h>
#include <merovane/host/ACalPipeline.h>
#include <merovane/interval/AUVXTimeWorks.h>
#include <merovane/platform/Terminal.h>

#include "HostTestSupport.h"

namespace fs = std::filesystem;

namespace {

// Mean amplitude of the parallel-hand cross-correlation elements with weight above 0, per source,
// over the simulated flux.
std::map<int, double> FluxRatios(const std::string& path, const ASimTruth& truth) {
    AUVXHeader header;
    std::vector<AHostRecord> records;
    EXPECT_TRUE(ReadRecords(path, header, records));
    std::map<int, std::pair<double, int>> sums;
    for (const auto& r : records) {
        if (r.group.ant1 == r.group.ant2) continue;
        for (std::size_t e = 0; e < r.data.size(); ++e) {
            const int s = static_cast<int>(e % static_cast<std::size_t>(header.nStokes));
            if (header.stokes[s] != -1 && header.stokes[s] != -2) continue;
            if (!(r.data[e].wt > 0)) continue;
            sums[r.group.sourceId].first += std::hypot(r.data[e].re, r.data[e].im);
            ++sums[r.group.sourceId].second;
        }
    }
    std::map<int, double> ratios;
    for (const auto& [id, s] : sums) ratios[id] = s.first / s.second / truth.Source(id)->flux;
    return ratios;
}

// The wrong order, as a user would write it: amplitude calibration first, then the power
// correction on the calibrated autocorrelations.
class AWrongOrderHost : public AUVXTimeWorks {
public:
    AAntabData antab;
    ADigErrCorrect power;

protected:
    bool IntervalsExec_Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start,
                                 double end) override {
        for (int k = 0; k < vis.count; ++k) antab.Calibrate(groups[k], *vis[k]);
        power.Calculate(vis, groups, start, end);
        return WriteData(vis, groups, start, end);
    }
};

class PipelineTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASimConfig c = HostConfig();
        c.bandpass = false;
        SimulateFor(c, "", truth, uvx, antab);
        out = HostPath("-out.uvx");
        fs::remove(out);
        fs::remove(out + ".part");
    }
    ASimTruth truth;
    std::string uvx, antab, out;
};

TEST_F(PipelineTest, DigitisationThenAmplitudeCalibrationThenAveragingRecoversTheFluxes) {
    ACalOptions opt;
    opt.avgStep = 60.0;
    opt.antab = antab;
    opt.digBits = true;
    opt.digPower = true;
    ACalPipeline run;
    ASSERT_TRUE(run.Run(uvx, out, opt)) << run.m_errMsg;
    const auto ratios = FluxRatios(out, truth);
    ASSERT_EQ(ratios.size(), 2u);
    for (const auto& [id, ratio] : ratios) EXPECT_NEAR(ratio, 1.0, 1e-3) << "source " << id;
    EXPECT_EQ(run.m_summary.passes, (std::vector<std::string>{"digitisation by power", "digitisation by bits",
                                                              "amplitude calibration", "averaging"}));
    EXPECT_EQ(run.m_summary.stationsCalibrated, (std::vector<std::string>{"EF", "WB", "ON"}));
    EXPECT_EQ(run.m_summary.recordsRead, run.m_summary.recordsIn);
    EXPECT_EQ(run.m_summary.DroppedTotal(), 0);
    // One record per baseline (three autocorrelations and three cross) for each 60 s interval: two per
    // 120 s scan, four scans.
    EXPECT_EQ(run.m_summary.intervals, 8);
    EXPECT_EQ(run.m_summary.recordsWritten, 8 * 6);
    EXPECT_EQ(run.m_summary.recordsAveraged, run.m_summary.recordsIn - 8 * 6);

    // The same passes in the order of the negative control miss the fluxes by far.
    AUVXFile in, wrongOut;
    ASSERT_TRUE(in.Open(uvx.c_str()));
    const std::string wrong = HostPath("-wrong.uvx");
    ASSERT_TRUE(wrongOut.Create(wrong.c_str()));
    AUVXHeader header(in);
    std::unique_ptr<AUVXTable> an(in.GetTable("AN"));
    AUVXAntenns antennas(*an);
    AWrongOrderHost host;
    std::ifstream text(antab);
    ASSERT_TRUE(host.antab.Init(in) && host.antab.Load(text));
    host.power.Init(header, antennas);
    ASSERT_TRUE(host.IntervalsExec(&in, &wrongOut, 0.0, 60.0, nullptr));
    for (const auto& [id, ratio] : FluxRatios(wrong, truth)) EXPECT_GT(std::fabs(ratio - 1.0), 0.5) << id;
}

TEST_F(PipelineTest, AveragedWeightsAreTheMeansOfTheCalibratedWeights) {
    // Calibrated weights are far below the mean's threshold of 0.25; the records must still count.
    ACalOptions calibrated;
    calibrated.antab = antab;
    ACalPipeline full;
    ASSERT_TRUE(full.Run(uvx, HostPath("-cal.uvx"), calibrated)) << full.m_errMsg;
    AUVXHeader h;
    std::vector<AHostRecord> perRecord, averaged;
    ASSERT_TRUE(ReadRecords(HostPath("-cal.uvx"), h, perRecord));
    ASSERT_LT(perRecord[1].data[0].wt, 0.25f);
    calibrated.avgStep = 60.0;
    ASSERT_TRUE(full.Run(uvx, out, calibrated)) << full.m_errMsg;
    ASSERT_TRUE(ReadRecords(out, h, averaged));
    ASSERT_FALSE(averaged.empty());
    // The first averaged record of baseline (1, 2): the float mean of its records' weights in [start, start +
    // 60).
    const AHostRecord* first = nullptr;
    for (const auto& r : averaged)
        if (r.group.ant1 == 1 && r.group.ant2 == 2) {
            first = &r;
            break;
        }
    ASSERT_NE(first, nullptr);
    const double start = first->group.time - 30.0;
    float sum = 0;
    int n = 0;
    for (const auto& r : perRecord)
        if (r.group.ant1 == 1 && r.group.ant2 == 2 && r.group.time >= start && r.group.time < start + 60.0) {
            sum += r.data[5].wt;
            ++n;
        }
    ASSERT_GT(n, 1);
    EXPECT_FLOAT_EQ(first->data[5].wt, sum * (1.0f / static_cast<float>(n)));
    EXPECT_EQ(first->group.freqId, perRecord[0].group.freqId);  // not the mean's setup 0
}

TEST_F(PipelineTest, AbortStopsWithUserAbortAndLeavesNothingUnderTheOutputName) {
    const std::string before = Slurp(uvx);
    WriteText(out, "an earlier result");
    ACalOptions opt;
    opt.antab = antab;
    opt.avgStep = 60.0;
    int abortFlag = 0;
    ARecordingListener listener;
    listener.abortFlag = &abortFlag;
    listener.abortAt = 40;
    ACalPipeline run;
    EXPECT_FALSE(run.Run(uvx, out, opt, &listener, &abortFlag));
    EXPECT_EQ(run.m_errMsg, "User abort");
    EXPECT_EQ(Slurp(out), "an earlier result");
    EXPECT_FALSE(fs::exists(out + ".part"));
    EXPECT_EQ(Slurp(uvx), before);
    EXPECT_LT(run.m_summary.recordsRead, run.m_summary.recordsIn);
}

TEST_F(PipelineTest, InterruptSetsTheAbortFlag) {
    int flag = 0;
    PlatformCatchInterrupt(&flag);
    PlatformRaiseInterrupt();
    PlatformCatchInterrupt(nullptr);
    EXPECT_EQ(flag, 1);
}

TEST_F(PipelineTest, FailuresNameTheFileAndLeaveNoOutput) {
    ACalOptions opt;
    ACalPipeline run;
    const std::string nowhere = HostPath("-missing-dir/out.uvx");
    EXPECT_FALSE(run.Run(uvx, nowhere, opt));
    EXPECT_NE(run.m_errMsg.find(nowhere + ": cannot be written"), std::string::npos) << run.m_errMsg;

    EXPECT_FALSE(run.Run(HostPath("-absent.uvx"), out, opt));
    EXPECT_EQ(run.m_errMsg.rfind(HostPath("-absent.uvx") + ": ", 0), 0u) << run.m_errMsg;
    EXPECT_FALSE(fs::exists(out));

    EXPECT_FALSE(run.Run(uvx, uvx, opt));
    EXPECT_NE(run.m_errMsg.find("would replace the input"), std::string::npos);

    opt.source = "3C999";
    EXPECT_FALSE(run.Run(uvx, out, opt));
    EXPECT_EQ(run.m_errMsg, uvx + ": no source \"3C999\" in the source table; the file has 3C84 4C39.25");

    ACalOptions bad;
    bad.avgStep = -1;
    EXPECT_FALSE(run.Run(uvx, out, bad));
    EXPECT_EQ(run.m_errMsg, "the averaging step must be a number of seconds, 0 or more");
    EXPECT_FALSE(fs::exists(out));
}

TEST_F(PipelineTest, AStationWithoutAntabDataIsNamed) {
    // Remove every line of station WB (its GAIN and TSYS blocks with their rows).
    std::ifstream text(antab);
    std::string line, kept;
    bool inWB = false;
    while (std::getline(text, line)) {
        if (line.rfind("GAIN WB", 0) == 0 || line.rfind("TSYS WB", 0) == 0) inWB = true;
        const bool skip = inWB;
        if (inWB && line == "/") inWB = false;
        if (inWB && line.find(" /") != std::string::npos && line.rfind("GAIN WB", 0) == 0) inWB = false;
        if (!skip) kept += line + "\n";
    }
    const std::string partial = HostPath("-partial.antab");
    WriteText(partial, kept);
    ACalOptions opt;
    opt.antab = partial;
    ACalPipeline run;
    EXPECT_FALSE(run.Run(uvx, out, opt));
    EXPECT_EQ(run.m_errMsg.rfind(partial + ": no GAIN and TSYS data for station WB", 0), 0u) << run.m_errMsg;
    EXPECT_FALSE(fs::exists(out));
}

TEST_F(PipelineTest, TheCheckerExplainsALossAndAntabFixRepairsIt) {
    // A blank behind the comma of EF's DPFU list: the parser keeps the first value alone.
    std::ifstream text(antab);
    std::string line, edited;
    int lineNo = 0, gainLine = 0;
    while (std::getline(text, line)) {
        ++lineNo;
        if (line.rfind("GAIN EF ", 0) == 0) {
            const auto comma = line.find(',', line.find("DPFU="));
            line.insert(comma + 1, " ");
            gainLine = lineNo;
        }
        edited += line + "\n";
    }
    ASSERT_GT(gainLine, 0);
    const std::string blank = HostPath("-blank.antab");
    WriteText(blank, edited);
    ACalOptions opt;
    opt.antab = blank;
    opt.digPower = opt.digBits = true;
    ACalPipeline run;
    ASSERT_TRUE(run.Run(uvx, out, opt)) << run.m_errMsg;
    // The checker's finding, beside the AI table's own warning.
    auto findings = [&]() {
        std::vector<std::string> f;
        for (const auto& w : run.m_summary.warnings)
            if (w.rfind(blank + ":", 0) == 0) f.push_back(w);
        return f;
    };
    ASSERT_EQ(findings().size(), 1u);
    EXPECT_EQ(
        findings()[0].rfind(blank + ":" + std::to_string(gainLine) + ": loss [blank-after-comma] EF: ", 0),
        0u)
        << findings()[0];
    EXPECT_TRUE(run.m_summary.antabChanges.empty());
    double worst = 0;
    for (const auto& [id, ratio] : FluxRatios(out, truth)) worst = std::max(worst, std::fabs(ratio - 1.0));
    EXPECT_GT(worst, 0.005) << "the lost DPFU value of EF's L hand must show in the fluxes";

    opt.antabFix = true;
    ASSERT_TRUE(run.Run(uvx, out, opt)) << run.m_errMsg;
    EXPECT_TRUE(findings().empty());
    ASSERT_EQ(run.m_summary.antabChanges.size(), 1u);
    EXPECT_EQ(run.m_summary.antabChanges[0].rfind("line " + std::to_string(gainLine) + ": \"GAIN EF ", 0), 0u)
        << run.m_summary.antabChanges[0];
    for (const auto& [id, ratio] : FluxRatios(out, truth)) EXPECT_NEAR(ratio, 1.0, 1e-3) << id;
}

TEST_F(PipelineTest, RecordsBeforeTheStartAreDroppedOrCopiedRawOnRequest) {
    const double start = 72000.0 + 150.0;  // the second scan
    ACalOptions opt;
    opt.antab = antab;
    opt.startTime = start;
    ACalPipeline run;
    ASSERT_TRUE(run.Run(uvx, out, opt)) << run.m_errMsg;
    AUVXHeader h;
    std::vector<AHostRecord> in, dropped, raw;
    ASSERT_TRUE(ReadRecords(uvx, h, in));
    ASSERT_TRUE(ReadRecords(out, h, dropped));
    std::int64_t early = 0;
    for (const auto& r : in) early += r.group.time < start;
    ASSERT_GT(early, 0);
    EXPECT_EQ(static_cast<std::int64_t>(dropped.size()), static_cast<std::int64_t>(in.size()) - early);
    ASSERT_EQ(run.m_summary.dropped.size(), 1u);
    EXPECT_EQ(run.m_summary.dropped[0], std::make_pair(std::string("before the start time"), early));

    opt.beforeStart = ACalBeforeStart::CopyRaw;
    ASSERT_TRUE(run.Run(uvx, out, opt)) << run.m_errMsg;
    ASSERT_TRUE(ReadRecords(out, h, raw));
    ASSERT_EQ(raw.size(), in.size());
    EXPECT_EQ(std::memcmp(raw[0].data.data(), in[0].data.data(), in[0].data.size() * sizeof(AUVXComplex)), 0);
    EXPECT_NE(raw.back().data[0].re, in.back().data[0].re);  // calibrated
    ASSERT_EQ(run.m_summary.warnings.size(), 1u);
    EXPECT_EQ(run.m_summary.warnings[0],
              std::to_string(early) +
                  " record(s) before the start time were copied raw, uncalibrated, "
                  "into the output");
}

TEST_F(PipelineTest, AStationWithFarTsysIsNamedAndItsRecordsHeldOrDropped) {
    // ON's Tsys rows stop after the first scan.
    std::ifstream text(antab);
    std::string line, kept;
    bool inON = false;
    int rows = 0;
    while (std::getline(text, line)) {
        if (line.rfind("TSYS ", 0) == 0) inON = line.rfind("TSYS ON", 0) == 0;
        if (inON && !line.empty() && std::isdigit(static_cast<unsigned char>(line[0])) && ++rows > 3)
            continue;
        kept += line + "\n";
    }
    const std::string cut = HostPath("-cut.antab");
    WriteText(cut, kept);
    ACalOptions opt;
    opt.antab = cut;
    opt.farTsysMinutes = 3.0;
    ACalPipeline run;
    ASSERT_TRUE(run.Run(uvx, out, opt)) << run.m_errMsg;
    ASSERT_EQ(run.m_summary.warnings.size(), 1u);
    const std::string& w = run.m_summary.warnings[0];
    EXPECT_EQ(w.rfind("station ON: ", 0), 0u) << w;
    EXPECT_NE(w.find("the nearest Tsys was held for them"), std::string::npos) << w;
    EXPECT_EQ(run.m_summary.DroppedTotal(), 0);

    opt.farTsys = ACalFarTsys::Drop;
    ASSERT_TRUE(run.Run(uvx, out, opt)) << run.m_errMsg;
    ASSERT_EQ(run.m_summary.dropped.size(), 1u);
    EXPECT_EQ(run.m_summary.dropped[0].first, "no Tsys row of ON within 3 min");
    AUVXHeader h;
    std::vector<AHostRecord> written;
    ASSERT_TRUE(ReadRecords(out, h, written));
    for (const auto& r : written)
        if (r.group.ant1 == 3 || r.group.ant2 == 3) {
            EXPECT_LE(r.group.time, 72120.0 + 180.0);
        }
}

TEST_F(PipelineTest, MissingTablesAndAutocorrelationsAreToldAsNotDone) {
    ASimConfig c = HostConfig();
    c.quantisation = false;  // no AI table
    std::string noAI, noAIAntab;
    ASimTruth t;
    SimulateFor(c, "-noai", t, noAI, noAIAntab);
    ACalOptions opt;
    opt.digBits = true;
    opt.digPower = true;
    ACalPipeline run;
    ASSERT_TRUE(run.Run(noAI, out, opt)) << run.m_errMsg;
    ASSERT_EQ(run.m_summary.notDone.size(), 1u);
    EXPECT_EQ(
        run.m_summary.notDone[0],
        "digitisation by bits: the file has no antenna-information table (AI), so the digitiser bits of the "
        "stations are unknown");
    // Without autocorrelations (the source selection cannot remove them, so cut them out by hand).
    AUVXHeader h;
    std::vector<AHostRecord> recs;
    ASSERT_TRUE(ReadRecords(uvx, h, recs));
    AUVXFile in, cross;
    ASSERT_TRUE(in.Open(uvx.c_str()));
    const std::string crossPath = HostPath("-cross.uvx");
    ASSERT_TRUE(cross.Create(crossPath.c_str()));
    AUVXRecordWriter writer;
    ASSERT_TRUE(writer.Open(cross, h));
    AUVXVisibility v(in);
    for (const auto& r : recs) {
        if (r.group.ant1 == r.group.ant2) continue;
        std::copy(r.data.begin(), r.data.end(), v.data);
        ASSERT_TRUE(writer.Write(r.group, v));
    }
    ASSERT_TRUE(writer.Finish());
    const AUVXTableHeader tables(in);
    for (int i = 0; i < tables.nTables; ++i) {
        ASSERT_TRUE(in.Seek(tables.positions[i]));
        AUVXTable table(*in.file);
        ASSERT_TRUE(cross.AddTable(table));
    }
    ASSERT_TRUE(cross.Close());
    opt.digBits = false;
    opt.bpAmplitude = true;
    ASSERT_TRUE(run.Run(crossPath, out, opt)) << run.m_errMsg;
    ASSERT_EQ(run.m_summary.notDone.size(), 2u);
    EXPECT_EQ(
        run.m_summary.notDone[0],
        "digitisation by power: the file has no autocorrelations, so the power of the antennas cannot be "
        "measured");
    EXPECT_EQ(run.m_summary.notDone[1],
              "amplitude bandpass: the file has no autocorrelations to derive it from");
}

TEST(PipelineFlagsTest, DroppedFlaggedElementsLeaveTheMeansOfTheGoodOnes) {
    ASimConfig c = HostConfig();
    c.flags = true;
    c.flagFraction = 0.2;
    ASimTruth truth;
    std::string uvx, antab;
    SimulateFor(c, "", truth, uvx, antab);
    const float rawWeight = static_cast<float>(truth.Weight());
    for (bool drop : {false, true}) {
        ACalOptions opt;
        opt.avgStep = 60.0;
        opt.dropFlagged = drop;
        ACalPipeline run;
        const std::string out = HostPath(drop ? "-drop.uvx" : "-keep.uvx");
        ASSERT_TRUE(run.Run(uvx, out, opt)) << run.m_errMsg;
        AUVXHeader h;
        std::vector<AHostRecord> recs;
        ASSERT_TRUE(ReadRecords(out, h, recs));
        int below = 0, elements = 0;
        for (const auto& r : recs)
            for (const auto& e : r.data) {
                if (!(e.wt > 0)) continue;
                ++elements;
                below += e.wt < rawWeight * 0.999f;
            }
        ASSERT_GT(elements, 0);
        if (drop) {
            EXPECT_EQ(below, 0) << "every mean is of unflagged elements alone";
            EXPECT_EQ(run.m_summary.flaggedAveraged, 0);
        } else {
            EXPECT_GT(below, 0) << "negative weights were added into the means";
            EXPECT_GT(run.m_summary.flaggedAveraged, 0);
            EXPECT_NE(std::find_if(
                          run.m_summary.warnings.begin(), run.m_summary.warnings.end(),
                          [](const std::string& w) { return w.find("--drop-flagged") != std::string::npos; }),
                      run.m_summary.warnings.end());
        }
    }
}

TEST(SummaryTest, JsonAndTextCarryTheCounts) {
    ACalSummary s;
    s.input = "in \"a\".uvx";
    s.passes = {"averaging"};
    s.walks = 1;
    s.recordsIn = 10;
    s.Drop("before the start time", 3);
    s.Drop("not the selected source");
    s.Drop("before the start time");
    s.seconds = 2.0;
    s.inputMB = 8.0;
    EXPECT_EQ(s.DroppedTotal(), 5);
    EXPECT_DOUBLE_EQ(s.MBPerSecond(), 4.0);
    const std::string j = s.ToJson();
    EXPECT_NE(j.find("\"input\": \"in \\\"a\\\".uvx\""), std::string::npos) << j;
    EXPECT_NE(j.find("\"dropped\": {\"before the start time\": 4, \"not the selected source\": 1}"),
              std::string::npos)
        << j;
    EXPECT_NE(j.find("\"mb_per_second\": 4\n"), std::string::npos) << j;
    const std::string t = s.ToText();
    EXPECT_NE(t.find("dropped: 4, before the start time\n"), std::string::npos) << t;
    EXPECT_NE(t.find("time: 2.00 s for 1 walk(s) over 8.0 MB, 4.0 MB/s"), std::string::npos) << t;
}

}  // namespace
