// my_host: two ways to calibrate from one's own program, taken from uvx-cal.
//
//   my_host IN.uvx IN.antab OUT.uvx            the host layer: every pass, one call
//   my_host --own IN.uvx IN.antab OUT.uvx      an own interval host: the same corrections, by hand
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include <merovane/merovane.h>
#include <merovane/host/ACalPipeline.h>

// Progress and messages of a run, as uvx-cal prints them when stderr is not a terminal.
class APrintingListener : public ACalListener {
public:
    void OnProgress(const std::string& stage, int walk, int walks, int percent) override {
        if (percent % 25 == 0) std::fprintf(stderr, "%s (walk %d/%d) %d%%\n", stage.c_str(), walk, walks, percent);
    }
    void OnMessage(ACalLevel level, const std::string& text) override {
        std::fprintf(stderr, "%s%s\n", level == ACalLevel::Warning ? "warning: " : "", text.c_str());
    }
};

int RunWithTheHostLayer(const char* in, const char* antab, const char* out) {
    ACalOptions options;  // the order of the fields does not matter: the passes run in one order
    options.avgStep = 60.0;
    options.antab = antab;
    options.digPower = true;
    options.digBits = true;
    options.bpAmplitude = true;
    APrintingListener listener;
    int abortFlag = 0;  // another thread, or a signal handler, may set it
    ACalPipeline pipeline;
    if (!pipeline.Run(in, out, options, &listener, &abortFlag)) {
        std::fprintf(stderr, "%s\n", pipeline.m_errMsg.c_str());
        return 1;
    }
    std::printf("%s\n", pipeline.m_summary.ToText().c_str());
    return 0;
}

// The same corrections in an own host: digitisation on the raw records of each interval, then the
// amplitude calibration of each record, then the mean. The mean counts a record only when its first
// weight is at least 0.25, and the calibration divides weights by SEFD1 x SEFD2; so the weights are
// scaled by a power of two (exact) for the mean and back afterwards, as uvx-cal does.
class AOwnHost : public AUVXTimeWorks {
public:
    ADigErrCorrect power;
    AVanFlakeCorrect bits;
    AAntabData antab;
    AMeanCalc mean;
    long dropped = 0;

protected:
    bool IntervalsExec_Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start,
                                 double end) override {
        power.Calculate(vis, groups, start, end);  // reads the raw autocorrelations: first
        bits.Calculate(vis, groups, start, end);
        APtrArray<AUVXVisibility*> kept;
        kept.owner = 0;  // the driver owns the records
        AArray<AUVXGroup> keptGroups;
        for (int k = 0; k < vis.count; ++k) {
            if (!antab.Calibrate(groups[k], *vis[k])) {
                ++dropped;  // antab.GetErrMsg() says why
                continue;
            }
            for (int e = 0; e < vis[k]->count; ++e) vis[k]->data[e].wt *= kWeightScale;
            kept.Add(vis[k]);
            keptGroups.Add(groups[k]);
        }
        APtrArray<AUVXVisibility*> outVis;  // owns the means
        AArray<AUVXGroup> outGroups;
        mean.Calculate(kept, keptGroups, start, end, outVis, outGroups, 0);
        for (int b = 0; b < outVis.count; ++b) {
            for (int e = 0; e < outVis[b]->count; ++e) outVis[b]->data[e].wt /= kWeightScale;
            outGroups[b].freqId = keptGroups.count > 0 ? keptGroups[0].freqId : 0;  // the mean writes setup 0
        }
        return WriteData(outVis, outGroups, start, end);
    }

private:
    static constexpr float kWeightScale = 1048576.0f;  // 2^20
};

int RunOwnHost(const char* inPath, const char* antabPath, const char* outPath) {
    AUVXFile in, out;
    if (!in.Open(inPath)) {
        std::fprintf(stderr, "%s\n", in.m_errMsg.GetString());
        return 1;
    }
    AUVXHeader header(in);
    AUVXTable* an = in.GetTable("AN");
    AUVXTable* ai = in.GetTable("AI");
    if (an == nullptr || ai == nullptr) {
        std::fprintf(stderr, "%s: needs the AN and AI tables\n", inPath);
        delete an;
        delete ai;
        return 1;
    }
    AUVXAntenns antennas(*an);
    AAIShortTbl table(ai);
    delete an;
    delete ai;
    AOwnHost host;
    host.power.Init(header, antennas);
    host.bits.Init(table);
    std::ifstream text(antabPath);
    if (!host.antab.Init(in) || !host.antab.Load(text)) {
        std::fprintf(stderr, "%s: %s\n", antabPath, host.antab.GetErrMsg().GetString());
        return 1;
    }
    if (!out.Create(outPath)) {
        std::fprintf(stderr, "%s\n", out.m_errMsg.GetString());
        return 1;
    }
    host.m_useSkanList = true;
    if (!host.IntervalsExec(&in, &out, 0.0, 60.0, nullptr)) {
        std::fprintf(stderr, "%s\n", host.m_errMsg.GetString());
        return 1;
    }
    std::printf("calibrated and averaged; %ld record(s) could not be calibrated\n", host.dropped);
    return 0;
}

int main(int argc, char** argv) {
    if (argc == 5 && std::strcmp(argv[1], "--own") == 0) return RunOwnHost(argv[2], argv[3], argv[4]);
    if (argc == 4) return RunWithTheHostLayer(argv[1], argv[2], argv[3]);
    std::fprintf(stderr, "usage: my_host [--own] IN.uvx IN.antab OUT.uvx\n");
    return 2;
}
