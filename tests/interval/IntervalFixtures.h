// Test fixtures of the interval executive: UVX files built in memory and a host that records its hooks.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <merovane/foundation/AMemFile.h>
#include <merovane/interval/AMeanCalc.h>
#include <merovane/interval/AUVXTimeWorks.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXTable.h>

namespace ivtest {

// Reference day of the test files: MJD 60000.
constexpr double kRefJD = 2460000.5;
constexpr int kRefMJD = 60000;

struct Record {
    AUVXGroup group;
    std::vector<AUVXComplex> data;
};

inline AUVXHeader MakeHeader(int nIF, int nChan, int nStokes) {
    AUVXHeader h;
    AUVXHeader::SetText(h.dateObs, 12, "2023-02-25");
    AUVXHeader::SetText(h.object, 16, "MULTI");
    h.refJD = kRefJD;
    h.refFreq = 4.8e9;
    h.nStokes = static_cast<std::int16_t>(nStokes);
    for (int s = 0; s < nStokes && s < 8; ++s) h.stokes[s] = static_cast<std::int16_t>(-1 - s);
    h.nIF = nIF;
    h.nChan = nChan;
    h.reMin = h.imMin = h.reMax = h.imMax = 0;
    return h;
}

inline AUVXGroup MakeGroup(double time, int ant1, int ant2, int sourceId = 1) {
    AUVXGroup g;
    std::memset(&g, 0, sizeof(g));
    g.time = time;
    g.ant1 = static_cast<std::int8_t>(ant1);
    g.ant2 = static_cast<std::int8_t>(ant2);
    g.sourceId = static_cast<std::int16_t>(sourceId);
    g.u = 1.0f;
    g.v = 2.0f;
    g.w = 3.0f;
    return g;
}

// A record whose elements tell it apart: re = 10 id + e, im = -re / 2, wt = 1. The group's sourceId is
// `id`, so the records can be recognised wherever they turn up.
inline Record MakeRecord(int id, double time, int nElem, int ant1 = 1, int ant2 = 2) {
    Record r{MakeGroup(time, ant1, ant2, id), {}};
    for (int e = 0; e < nElem; ++e)
        r.data.push_back(AUVXComplex{10.0f * id + e, -(10.0f * id + e) / 2, 1.0f});
    return r;
}

// Record i at times[i], made by MakeRecord(i, ...).
inline std::vector<Record> RecordsAt(const std::vector<double>& times, int nElem = 1) {
    std::vector<Record> r;
    for (std::size_t i = 0; i < times.size(); ++i)
        r.push_back(MakeRecord(static_cast<int>(i), times[i], nElem));
    return r;
}

// A table "SL" with the given scans (start, end in seconds from 0h of `refDay`).
inline void AddScanList(AUVXFile& f, int refDay, const std::vector<std::pair<double, double>>& scans) {
    AUVXTable t("SL");
    int cs = t.AddColumn("START", 'D'), ce = t.AddColumn("END", 'D'), cid = t.AddColumn("SOURCE ID", 'J');
    t.SetKeyword("REFDAY", static_cast<std::int64_t>(refDay));
    for (const auto& s : scans) {
        int r = t.AddRow();
        t.SetDouble(r, cs, s.first);
        t.SetDouble(r, ce, s.second);
        t.SetDouble(r, cid, 1);
    }
    f.AddTable(t);
}

// Some other table, so that copies of more than one table can be checked.
inline void AddOtherTable(AUVXFile& f, const char* name, int rows) {
    AUVXTable t(name);
    int c = t.AddColumn("VALUE", 'E');
    t.SetKeyword("NOTE", "copied");
    for (int i = 0; i < rows; ++i) t.SetDouble(t.AddRow(), c, 0.5 * i);
    f.AddTable(t);
}

// The bytes of a complete UVX file.
inline std::vector<unsigned char> BuildFile(AUVXHeader header, const std::vector<Record>& records,
                                            const std::function<void(AUVXFile&)>& addTables = {}) {
    AMemFile stream;
    AUVXFile f;
    f.Create(&stream);
    f.Write(header);
    f.SeekUVGroup(0);
    for (const Record& r : records) {
        stream.Write(&r.group, static_cast<int>(sizeof(AUVXGroup)));
        if (!r.data.empty())
            stream.Write(r.data.data(), static_cast<int>(r.data.size() * sizeof(AUVXComplex)));
    }
    f.Write(header);
    if (addTables) addTables(f);
    f.Close();
    return stream.Bytes();
}

// The records of an opened file, as they lie in its UV stream.
inline std::vector<Record> ReadRecords(AUVXFile& f) {
    std::vector<Record> out;
    const AUVXHeader& h = f.GetHeader();
    int n = (h.nIF > 1 ? h.nIF : 1) * h.nChan * h.nStokes;
    f.SeekUVGroup(0);
    for (int i = 0; i < f.nGroups; ++i) {
        Record r;
        f.file->Read(&r.group, static_cast<int>(sizeof(AUVXGroup)));
        r.data.resize(static_cast<std::size_t>(n));
        f.file->Read(r.data.data(), n * static_cast<int>(sizeof(AUVXComplex)));
        out.push_back(r);
    }
    return out;
}

inline std::string Num(double v) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.10g", v);
    return buf;
}

inline bool StartsWith(const std::string& s, const std::string& prefix) {
    return s.rfind(prefix, 0) == 0;
}

// The lines of a log that begin with one of `prefixes`, joined by "; ".
inline std::string Joined(const std::vector<std::string>& log,
                          std::initializer_list<const char*> prefixes = {"Calculate", "Drop"}) {
    std::string out;
    for (const auto& s : log)
        for (const char* p : prefixes)
            if (StartsWith(s, p)) out += (out.empty() ? "" : "; ") + s;
    return out;
}

// A host that logs every hook call with its arguments. Records are named by their sourceId.
class RecordingHost final : public AUVXTimeWorks {
public:
    using AUVXTimeWorks::GetIndexFromSL;
    using AUVXTimeWorks::GetSkanList;
    using AUVXTimeWorks::m_abortFlag;
    using AUVXTimeWorks::m_header;
    using AUVXTimeWorks::m_inFile;
    using AUVXTimeWorks::m_outFile;
    using AUVXTimeWorks::m_writeBuffer;
    using AUVXTimeWorks::WriteData;
    using AUVXTimeWorks::WriteTable;

    enum class Mode { Nothing, PassThrough, Average };

    std::vector<std::string> log;
    std::vector<int> percents;
    bool logPercent = true;
    Mode mode = Mode::Nothing;
    std::function<bool(AUVXGroup&, int)> filter;  // default: accept
    // Runs after a hook logged its line and before the hook refuses or goes on.
    std::function<void(RecordingHost&, const std::string&)> on;
    // The Init, Calculate, Finalize or Drop call whose line begins with this gives false, with the text
    // "refused <line>".
    std::string refuseAt;

protected:
    bool Filter(AUVXVisibility& vis, AUVXGroup& group, int index) override {
        Log("Filter " + std::to_string(index) + " #" + std::to_string(group.sourceId) +
            " t=" + Num(group.time) + " re0=" + Num(vis.count > 0 ? vis.data[0].re : -1));
        return filter ? filter(group, index) : true;
    }
    bool IntervalsExec_Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start,
                                 double end) override {
        std::string s = "Calculate " + Num(start) + " " + Num(end) + " [";
        for (int k = 0; k < groups.count; ++k) s += (k ? " " : "") + std::to_string(groups[k].sourceId);
        if (!Log(s + "]" + (vis.count != groups.count ? " COUNT MISMATCH" : ""))) return false;
        if (mode == Mode::PassThrough) return WriteData(vis, groups, start, end);
        if (mode == Mode::Average) {
            APtrArray<AUVXVisibility*> outVis;
            AArray<AUVXGroup> outGroups;
            mean.Calculate(vis, groups, start, end, outVis, outGroups, 0);
            return WriteData(outVis, outGroups, start, end);
        }
        return true;
    }
    bool IntervalsExec_Init() override { return Log("Init"); }
    bool IntervalsExec_Finalize() override { return Log("Finalize"); }
    void ShowPercent(int percent) override {
        percents.push_back(percent);
        if (logPercent) log.push_back("Percent " + std::to_string(percent));
    }
    bool DropTimeData(AUVXGroup& group, AUVXVisibility& vis, int index) override {
        return Log("Drop " + std::to_string(index) + " #" + std::to_string(group.sourceId)) &&
               AUVXTimeWorks::DropTimeData(group, vis, index);
    }

private:
    bool Log(const std::string& line) {
        log.push_back(line);
        if (on) on(*this, line);
        if (refuseAt.empty() || !StartsWith(line, refuseAt)) return true;
        m_errMsg = ("refused " + line).c_str();
        return false;
    }
    AMeanCalc mean;
};

// An input file on a stream that fails on command, and an output on a plain stream.
struct Files {
    AFailFile inStream;
    AUVXFile in;
    AFailFile outStream;
    AUVXFile out;

    explicit Files(const std::vector<unsigned char>& bytes, bool withOut = true) : inStream(bytes) {
        EXPECT_TRUE(in.Open(&inStream)) << in.m_errMsg.GetString();
        if (withOut) {
            EXPECT_TRUE(out.Create(&outStream)) << out.m_errMsg.GetString();
        }
    }
    // Opens what the run wrote.
    bool OpenOutput(AMemFile& copy, AUVXFile& result) {
        copy.Bytes() = outStream.Bytes();
        return result.Open(&copy);
    }
    // The tables of the output (opened as `result` from `copy`) are those of the input, in their order,
    // byte for byte up to the directory of 2 + 8 n bytes behind them.
    void ExpectSameTables(AMemFile& copy, AUVXFile& result) {
        const std::vector<unsigned char>&a = inStream.Bytes(), &b = copy.Bytes();
        const int n = in.TablePositions().count;
        ASSERT_EQ(result.TablePositions().count, n);
        const std::int64_t pa = in.TablePositions()[0], pb = result.TablePositions()[0];
        for (int t = 1; t < n; ++t) EXPECT_EQ(in.TablePositions()[t] - pa, result.TablePositions()[t] - pb);
        ASSERT_EQ(b.size() - pb, a.size() - pa);
        EXPECT_TRUE(std::equal(a.begin() + pa, a.end() - (2 + 8 * n), b.begin() + pb));
    }
};

}  // namespace ivtest
