// uvx-average: a program built on the installed library alone. It writes a small observation with the
// library's record writer, averages it in intervals of 10 s through the interval driver and
// AMeanCalc, and prints what the averaged file holds.
#include <cstdio>
#include <cstring>
#include <string>

#include <merovane/merovane.h>

namespace {

// Stations 1, 2 and 3; every time stamp has the three cross baselines and one autocorrelation.
struct ABaselineOfRecord {
    int ant1, ant2, index;  // index 0 for the autocorrelation
};
const ABaselineOfRecord kBaselines[] = {{1, 2, 1}, {1, 3, 2}, {2, 3, 3}, {1, 1, 0}};
const int kTimes = 10;  // time stamps 0, 2, ..., 18 s
const int kIF = 2, kChan = 4, kStokes = 2;

// Element e of the record at time t on a baseline of index b: re = t + 100 b + e, im = -t / 2 - 1,
// weight 1. On baseline 2-3 at 8 s the first weight is 0.1, which keeps that record out of the mean.
bool WriteObservation(const std::string& path) {
    AUVXHeader header;
    AUVXHeader::SetText(header.dateObs, 12, "2024-04-09");
    AUVXHeader::SetText(header.object, 16, "MULTI");
    header.refJD = 2460409.5;
    header.refFreq = 4.99e9;
    header.nIF = kIF;
    header.nChan = kChan;
    header.nStokes = kStokes;
    header.stokes[0] = -1;
    header.stokes[1] = -2;

    AUVXFile file;
    if (!file.Create(path.c_str())) {
        std::fprintf(stderr, "%s\n", file.m_errMsg.GetString());
        return false;
    }
    AUVXRecordWriter writer;
    if (!writer.Open(file, header)) {
        std::fprintf(stderr, "%s\n", writer.m_errMsg.GetString());
        return false;
    }
    AUVXVisibility vis(kIF, kChan, kStokes);
    for (int i = 0; i < kTimes; ++i) {
        const double t = 2.0 * i;
        for (const ABaselineOfRecord& b : kBaselines) {
            AUVXGroup group;
            std::memset(&group, 0, sizeof group);
            group.time = t;
            group.ant1 = static_cast<std::int8_t>(b.ant1);
            group.ant2 = static_cast<std::int8_t>(b.ant2);
            group.sourceId = 1;
            group.u = static_cast<float>(t);
            group.v = static_cast<float>(b.index);
            for (int e = 0; e < vis.count; ++e) {
                vis.data[e] = AUVXComplex{static_cast<float>(t + 100 * b.index + e),
                                          static_cast<float>(-t / 2 - 1), 1.0f};
            }
            if (b.index == 3 && t == 8.0) vis.data[0].wt = 0.1f;
            if (!writer.Write(group, vis)) {
                std::fprintf(stderr, "%s\n", writer.m_errMsg.GetString());
                return false;
            }
        }
    }
    if (!writer.Finish() || !file.Close()) {
        std::fprintf(stderr, "%s%s\n", writer.m_errMsg.GetString(), file.m_errMsg.GetString());
        return false;
    }
    return true;
}

// One averaged record per cross baseline and interval.
class AAverageHost : public AUVXTimeWorks {
protected:
    bool IntervalsExec_Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start,
                                 double end) override {
        APtrArray<AUVXVisibility*> outVis;  // owns the averaged records
        AArray<AUVXGroup> outGroups;
        m_mean.Calculate(vis, groups, start, end, outVis, outGroups, AMeanCalc::kNoAutoCorr);
        return WriteData(outVis, outGroups, start, end);
    }

private:
    AMeanCalc m_mean;
};

bool PrintRecords(const std::string& path) {
    AUVXFile file;
    if (!file.Open(path.c_str())) {
        std::fprintf(stderr, "%s\n", file.m_errMsg.GetString());
        return false;
    }
    const AUVXHeader& h = file.GetHeader();
    std::printf("output: %d records, re %g .. %g, im %g .. %g\n", file.nGroups, h.reMin, h.reMax, h.imMin,
                h.imMax);
    AUVXRecordReader reader;
    if (!reader.Open(file)) {
        std::fprintf(stderr, "%s\n", reader.m_errMsg.GetString());
        return false;
    }
    AUVXGroup g;
    AUVXVisibility vis(file);
    while (reader.Next(g, vis)) {
        const AUVXComplex& first = vis.data[0];
        const AUVXComplex& last = vis.data[vis.count - 1];
        std::printf("time %g baseline %d-%d source %d u %g v %g | first %g %g %g | last %g %g %g\n", g.time,
                    g.ant1, g.ant2, g.sourceId, g.u, g.v, first.re, first.im, first.wt, last.re, last.im,
                    last.wt);
    }
    if (reader.Failed()) {
        std::fprintf(stderr, "%s\n", reader.m_errMsg.GetString());
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(
            stderr, "usage: uvx-average FOLDER\n(writes FOLDER/average-in.uvx and FOLDER/average-out.uvx)\n");
        return 2;
    }
    const std::string in = std::string(argv[1]) + "/average-in.uvx",
                      out = std::string(argv[1]) + "/average-out.uvx";
    if (!WriteObservation(in)) return 1;

    AUVXFile inFile, outFile;
    if (!inFile.Open(in.c_str()) || !outFile.Create(out.c_str())) {
        std::fprintf(stderr, "%s%s\n", inFile.m_errMsg.GetString(), outFile.m_errMsg.GetString());
        return 1;
    }
    std::printf("input: %d records\n", inFile.nGroups);
    AAverageHost host;
    if (!host.IntervalsExec(&inFile, &outFile, 0.0, 10.0, nullptr)) {
        std::fprintf(stderr, "%s\n", host.m_errMsg.GetString());
        return 1;
    }
    inFile.Close();
    return PrintRecords(out) ? 0 : 1;
}
