// Tests of the driver's output: pass-through copies, header statistics, tables, failures of the streams.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "IntervalFixtures.h"

using namespace ivtest;

namespace {

constexpr int kBlock = 4194304;
constexpr std::int64_t kFirstRecord = AUVXFile::kFirstRecordPos;
constexpr double kInf = std::numeric_limits<double>::infinity();

// Records 0..n-1 at times 0..n-1 with values spread over both signs, the same for every run.
std::vector<Record> SpreadRecords(int n, int nElem) {
    std::vector<Record> recs;
    std::uint32_t seed = 12345;
    for (int i = 0; i < n; ++i) {
        Record r = MakeRecord(i, i, nElem);
        for (AUVXComplex& c : r.data) {
            seed = seed * 1664525u + 1013904223u;
            c.re = static_cast<float>(static_cast<int>(seed >> 8) - (1 << 23)) / 1024.0f;
            seed = seed * 1664525u + 1013904223u;
            c.im = static_cast<float>(static_cast<int>(seed >> 8) - (1 << 23)) / 4096.0f;
            c.wt = (seed & 7) == 0 ? -1.0f : 1.0f;
        }
        recs.push_back(r);
    }
    return recs;
}

std::vector<unsigned char> UVStream(const std::vector<unsigned char>& file, std::int64_t bytes) {
    return std::vector<unsigned char>(file.begin() + kFirstRecord, file.begin() + kFirstRecord + bytes);
}

}  // namespace

TEST(IntervalOutput, PassThroughIsByteIdenticalWithTrueStatistics) {
    // More than one 4 MB block, so records straddle block edges on both sides.
    const int nElem = 205;
    std::vector<Record> recs = SpreadRecords(1800, nElem);
    AUVXHeader h = MakeHeader(1, nElem, 1);
    h.reMin = h.reMax = h.imMin = h.imMax = 0.125;  // narrower than the data: widened to its range
    std::vector<unsigned char> bytes = BuildFile(h, recs, [](AUVXFile& out) {
        AddScanList(out, kRefMJD, {{0, 5000}});
        AddOtherTable(out, "AN", 4);
    });
    Files f(bytes);
    RecordingHost host;
    host.logPercent = false;
    host.mode = RecordingHost::Mode::PassThrough;
    // Records before 100 are passed through by DropTimeData, the rest by WriteData, 7 s at a time.
    ASSERT_TRUE(host.IntervalsExec(&f.in, &f.out, 100, 7, nullptr)) << host.m_errMsg.GetString();

    double reMin = 0.125, reMax = 0.125, imMin = 0.125, imMax = 0.125;
    for (const Record& r : recs)
        for (const AUVXComplex& c : r.data) {
            reMin = std::min<double>(reMin, c.re);
            reMax = std::max<double>(reMax, c.re);
            imMin = std::min<double>(imMin, c.im);
            imMax = std::max<double>(imMax, c.im);
        }
    ASSERT_TRUE(reMin < 0 && reMax > 0.125 && imMin < 0 && imMax > 0.125);
    AMemFile copy;
    AUVXFile result;
    ASSERT_TRUE(f.OpenOutput(copy, result)) << result.m_errMsg.GetString();
    ASSERT_EQ(result.nGroups, 1800);
    const std::int64_t streamBytes = 1800 * AUVXFile::RecordBytes(h);
    EXPECT_TRUE(UVStream(copy.Bytes(), streamBytes) == UVStream(bytes, streamBytes));
    const AUVXHeader& out = result.GetHeader();
    EXPECT_EQ(+out.reMin, reMin);
    EXPECT_EQ(+out.reMax, reMax);
    EXPECT_EQ(+out.imMin, imMin);
    EXPECT_EQ(+out.imMax, imMax);
    // Nothing else of the header changes.
    EXPECT_EQ(std::memcmp(&out, &h, 128), 0);
    EXPECT_EQ(std::memcmp(&out.objRA, &h.objRA, sizeof(AUVXHeader) - 160), 0);
    // The tables follow in their order, whole.
    f.ExpectSameTables(copy, result);
}

TEST(IntervalOutput, NaNTakesTheMinimumAndNeverTheMaximum) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    using Parts = std::vector<std::vector<float>>;
    // Record i holds re[i] and im[i], element after element; every element is flagged, which does not
    // matter. The statistics start from the input header's, min 10, max -10 unless the case says.
    const std::vector<float> ones(9, 1.0f), halves(9, 0.5f);
    const std::vector<float> re0 = {5, 6, 7, 8, 9, 4, nan, 4.5f, 6};
    const std::vector<float> re1 = {1, 2, 3, 4, 5, 6, 7, nan, 100};
    const std::vector<float> im1 = {0, nan, 0, 0, 0, 0, 0, 0, 0};
    const std::vector<float> re2 = {100, 100, 100, 100, 100, 100, 100, 100, nan};
    const std::vector<float> re3 = {0, 100, 50, 50, 50, 50, 50, 50, 50};
    const std::vector<float> im3 = {0, 2, 1, 1, 1, 1, 1, 1, 1};
    const std::vector<float> re4 = {50, 50, 50, 50, 50, nan, 50, 50, 60};
    const std::vector<float> im4 = {1, 1, nan, 1, 1, 1, 1, 1, 1};
    const struct {
        const char* label;
        Parts re, im;
        double reMin, reMax, imMin, imMax, lo = 10, hi = -10;
    } cases[] = {
        // The statistics only widen.
        {"only widen", {{-5, 0.5f}}, {{0.25f, 3}}, -5, 1, -1, 3, -1, 1},
        // The NaN took the minimum and 3 took it back; 7 replaced the NaN although -1 came before it.
        {"one element", {{5}, {nan}, {3}}, {{-1}, {nan}, {7}}, 3, 5, 7, 7},
        {"NaN last", {{5}, {3}, {nan}}, {{nan}, {-2}, {-3}}, nan, 5, -3, -2},
        // The same order inside a record: 4 was taken back by the NaN, 4.5 took the NaN's place.
        {"many elements", {re0}, {ones}, 4.5, 9, 1, 1},
        {"two records", {re0, re1}, {ones, im1}, 100, 100, 0, 1},
        // A record inside the bounds so far still counts when it holds a NaN, also in its middle.
        {"NaN inside the bounds", {re0, re1, re2}, {ones, im1, halves}, nan, 100, 0, 1},
        {"NaN in the middle", {re3, re4}, {im3, im4}, 50, 100, 1, 2},
    };
    auto same = [](double got, double want) { return std::isnan(want) ? std::isnan(got) : got == want; };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        std::vector<Record> recs;
        const int nElem = static_cast<int>(c.re[0].size());
        for (std::size_t i = 0; i < c.re.size(); ++i) {
            Record r = MakeRecord(static_cast<int>(i), static_cast<double>(i), nElem);
            for (int e = 0; e < nElem; ++e) r.data[e] = AUVXComplex{c.re[i][e], c.im[i][e], -1.0f};
            recs.push_back(r);
        }
        AUVXHeader h = MakeHeader(1, nElem, 1);
        h.reMin = h.imMin = c.lo;
        h.reMax = h.imMax = c.hi;
        Files f(BuildFile(h, recs));
        RecordingHost host;
        host.mode = RecordingHost::Mode::PassThrough;
        EXPECT_TRUE(host.IntervalsExec(&f.in, &f.out, 0, 1, nullptr));
        const AUVXHeader& s = host.m_header;
        EXPECT_TRUE(same(s.reMin, c.reMin)) << s.reMin;
        EXPECT_TRUE(same(s.reMax, c.reMax)) << s.reMax;
        EXPECT_TRUE(same(s.imMin, c.imMin)) << s.imMin;
        EXPECT_TRUE(same(s.imMax, c.imMax)) << s.imMax;

        // Records dropped without an output file change nothing.
        Files g(BuildFile(h, recs), false);
        RecordingHost dropper;
        ASSERT_TRUE(dropper.IntervalsExec(&g.in, nullptr, 1000, 4, nullptr));
        EXPECT_EQ(std::count_if(dropper.log.begin(), dropper.log.end(),
                                [](const std::string& l) { return l[0] == 'D'; }),
                  static_cast<long>(c.re.size()));
        EXPECT_EQ(std::memcmp(&dropper.m_header, &h, sizeof(AUVXHeader)), 0);
    }
}

TEST(IntervalOutput, AveragingHostWritesOneRecordPerBaselineAndInterval) {
    // Interval [0, 10): baselines (1,3), (1,2), (1,3), (2,2), (1,2); interval [10, 20): (2,3) only.
    std::vector<Record> recs;
    const int ants[][2] = {{1, 3}, {1, 2}, {1, 3}, {2, 2}, {1, 2}, {2, 3}};
    const double times[] = {1, 2, 3, 4, 5, 12};
    for (int i = 0; i < 6; ++i) {
        recs.push_back(MakeRecord(i, times[i], 2, ants[i][0], ants[i][1]));
        recs.back().group.u = static_cast<float>(i);
    }
    AUVXHeader h = MakeHeader(1, 2, 1);
    h.reMin = h.imMin = kInf;
    h.reMax = h.imMax = -kInf;
    Files f(BuildFile(h, recs));
    RecordingHost host;
    host.mode = RecordingHost::Mode::Average;
    ASSERT_TRUE(host.IntervalsExec(&f.in, &f.out, 0, 10, nullptr)) << host.m_errMsg.GetString();
    AMemFile copy;
    AUVXFile result;
    ASSERT_TRUE(f.OpenOutput(copy, result));
    std::vector<Record> out = ReadRecords(result);
    ASSERT_EQ(out.size(), 4u);
    // Baseline order (1,2), (1,3), (2,2), then the second interval. Means of the records' own numbers:
    // re of element e of record i is 10 i + e.
    const int expAnts[][2] = {{1, 2}, {1, 3}, {2, 2}, {2, 3}};
    const float expRe0[] = {(10 + 40) / 2.0f, (0 + 20) / 2.0f, 30, 50};
    const float expU[] = {(1 + 4) / 2.0f, (0 + 2) / 2.0f, 3, 5};
    const double expTime[] = {5, 5, 5, 15};
    for (int b = 0; b < 4; ++b) {
        EXPECT_EQ(+out[b].group.ant1, expAnts[b][0]);
        EXPECT_EQ(+out[b].group.ant2, expAnts[b][1]);
        EXPECT_EQ(+out[b].group.time, expTime[b]);
        EXPECT_EQ(+out[b].group.u, expU[b]);
        EXPECT_EQ(out[b].data[0].re, expRe0[b]);
        EXPECT_EQ(out[b].data[1].re, expRe0[b] + 1);
        EXPECT_EQ(out[b].data[1].im, -(expRe0[b] + 1) / 2);
    }
    // The statistics are those of what was written, the means.
    EXPECT_EQ(+result.GetHeader().reMin, 10);
    EXPECT_EQ(+result.GetHeader().reMax, 51);
}

TEST(IntervalOutput, WriteDataAndWriteTableCalledByTheHost) {
    Files f(BuildFile(MakeHeader(1, 1, 1), {MakeRecord(0, 0, 1)}, [](AUVXFile& out) {
        AddOtherTable(out, "AN", 2);
        AddOtherTable(out, "FQ", 2);
    }));
    RecordingHost host;
    bool emptyOk = false, noElementsOk = true, tableOk = true;
    CString dataText, tableText;
    std::int64_t writtenBefore = 0, writtenAfter = 0;
    host.refuseAt = "Finalize";
    host.on = [&](RecordingHost& self, const std::string& line) {
        if (line == "Finalize") {
            // WriteTable's own text names the table whose seek failed.
            f.inStream.failSeekCall = f.inStream.seekCalls + 2;
            tableOk = self.WriteTable(*self.m_inFile, *self.m_outFile);
            tableText = self.m_errMsg;
        }
        if (!StartsWith(line, "Filter 0 ")) return;
        APtrArray<AUVXVisibility*> vis;
        AArray<AUVXGroup> groups;
        self.m_writeBuffer.Flush();
        writtenBefore = f.outStream.bytesWritten;
        emptyOk = self.WriteData(vis, groups, 0, 0);
        self.m_writeBuffer.Flush();
        writtenAfter = f.outStream.bytesWritten;
        vis.Add(new AUVXVisibility(1, 0, 1));
        groups.Add(MakeGroup(0, 1, 2));
        noElementsOk = self.WriteData(vis, groups, 0, 0);
        dataText = self.m_errMsg;
    };
    EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 1, nullptr));
    EXPECT_TRUE(emptyOk);
    EXPECT_EQ(writtenAfter, writtenBefore);
    EXPECT_FALSE(noElementsOk);
    EXPECT_STREQ(dataText.GetString(), "Error write Visibility data");
    EXPECT_FALSE(tableOk);
    EXPECT_STREQ(tableText.GetString(), "Error SEEK to UVX-table #1");
    EXPECT_TRUE(f.out.IsOpen());
}

TEST(IntervalOutput, ReadAndWriteFailuresNameTheRecordAndThePart) {
    // Blocks are 4194304 bytes; the second block fails. The record that crosses the block edge fails in
    // its group or its visibility, whichever the edge cuts. Written, every record lies before start and
    // goes out through DropTimeData at once.
    for (bool reading : {true, false}) {
        for (int nChan : {19, 205}) {
            SCOPED_TRACE(std::string(reading ? "read " : "write ") + std::to_string(nChan));
            const int recBytes = 26 + 12 * nChan;
            const int k = kBlock / recBytes;
            const bool inGroup = kBlock % recBytes < 26;
            ASSERT_EQ(inGroup, nChan == 19);
            std::vector<Record> recs;
            for (int i = 0; i < k + 20; ++i) recs.push_back(MakeRecord(i, 0, nChan));
            Files f(BuildFile(MakeHeader(1, nChan, 1), recs));
            RecordingHost host;
            host.logPercent = false;
            host.on = [&](RecordingHost&, const std::string& line) {
                if (!StartsWith(line, "Filter 0 ")) return;
                if (reading) f.inStream.failReadCall = f.inStream.readCalls + 1;
                if (!reading) f.outStream.failWriteCall = f.outStream.writeCalls + 1;
            };
            EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, reading ? 0 : 1e9, 10, nullptr));
            const std::string i = std::to_string(k - (reading ? 1 : 0));
            if (reading) {
                EXPECT_EQ(std::string(host.m_errMsg.GetString()),
                          (inGroup ? "Error reading AUVXGroup #" : "Error reading Visibility #") +
                              std::to_string(k));
                EXPECT_EQ(host.log.back(),
                          "Filter " + i + " #" + i + " t=0 re0=" + std::to_string(10 * (k - 1)));
            } else {
                EXPECT_STREQ(host.m_errMsg.GetString(),
                             inGroup ? "Error write UVG data" : "Error write Visibility data");
                EXPECT_EQ(host.log.back(), "Drop " + i + " #" + i);
            }
            EXPECT_TRUE(f.out.IsOpen());
        }
    }
}

TEST(IntervalOutput, FailuresAtTheStartAndTheEnd) {
    std::vector<Record> recs = {MakeRecord(0, 0, 1), MakeRecord(1, 1, 1)};
    auto tables = [](AUVXFile& out) {
        AddOtherTable(out, "AN", 2);
        AddOtherTable(out, "FQ", 2);
    };
    // In the driver: a failing stream, the hook after which it fails and the calls until it does.
    enum Stream { kNone, kRead, kSeek, kWrite };
    const struct {
        const char* text;
        const char* hook;
        Stream stream;
        int calls;
        bool passThrough, created, finalized;
    } cases[] = {
        // A failed table seek's own text is replaced; a table (or the directory behind them) that cannot
        // be written fails the same way.
        {"Error write UVX-table", "Finalize", kSeek, 1, false, true, true},
        {"Error write UVX-table", "Finalize", kWrite, 4, true, true, true},
        // The first fill of the read block fails: no record is looked at, the files of the run are not
        // taken over.
        {"Can`t create read buffer.", "Init", kRead, 1, false, true, false},
        // The last block does not reach the output.
        {"Error flush UV data", "Finalize", kWrite, 1, true, true, true},
        // Nothing waits in the block: the next write is the final header's.
        {"Error write UVX-header", "Finalize", kWrite, 1, false, true, true},
        // An output that was never created takes no header.
        {"Error write UVX-header", "", kNone, 0, false, false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " after " + c.hook);
        Files f(BuildFile(MakeHeader(1, 1, 1), recs, tables), c.created);
        RecordingHost host;
        if (c.passThrough) host.mode = RecordingHost::Mode::PassThrough;
        host.on = [&](RecordingHost&, const std::string& line) {
            if (line != c.hook) return;
            if (c.stream == kRead) f.inStream.failReadCall = f.inStream.readCalls + c.calls;
            if (c.stream == kSeek) f.inStream.failSeekCall = f.inStream.seekCalls + c.calls;
            if (c.stream == kWrite) f.outStream.failWriteCall = f.outStream.writeCalls + c.calls;
        };
        EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 1, nullptr));
        EXPECT_STREQ(host.m_errMsg.GetString(), c.text);
        EXPECT_EQ(Joined(host.log, {"Finalize"}), c.finalized ? "Finalize" : "");
        EXPECT_EQ(f.out.IsOpen(), c.created);
        if (c.stream == kRead) {
            EXPECT_EQ(host.log, std::vector<std::string>{"Init"});
            EXPECT_EQ(host.m_inFile, nullptr);
        }
    }
    RecordingHost host;
    EXPECT_FALSE(host.IntervalsExec(nullptr, nullptr, 0, 1, nullptr));
    EXPECT_STREQ(host.m_errMsg.GetString(), "No input UVX-file");
    EXPECT_TRUE(host.log.empty());
}

TEST(IntervalOutput, CopiesShareTheWriteBlockSafely) {
    std::vector<Record> recs = SpreadRecords(30, 2);
    std::vector<unsigned char> bytes = BuildFile(MakeHeader(1, 2, 1), recs);
    const std::int64_t streamBytes = 30 * AUVXFile::RecordBytes(MakeHeader(1, 2, 1));
    auto passThrough = [&](RecordingHost& host) {
        Files f(bytes);
        EXPECT_TRUE(host.IntervalsExec(&f.in, &f.out, 0, 3, nullptr));
        AMemFile copy;
        AUVXFile result;
        EXPECT_TRUE(f.OpenOutput(copy, result));
        return UVStream(copy.Bytes(), streamBytes) == UVStream(bytes, streamBytes);
    };
    auto* original = new RecordingHost;
    original->mode = RecordingHost::Mode::PassThrough;
    ASSERT_TRUE(passThrough(*original));
    ASSERT_NE(original->m_writeBuffer.block, nullptr);
    {
        RecordingHost copy(*original);
        EXPECT_EQ(copy.m_writeBuffer.block, original->m_writeBuffer.block);
        EXPECT_EQ(copy.m_outFile, original->m_outFile);
        // The copy's run takes a block of its own and leaves the shared one alone.
        EXPECT_TRUE(passThrough(copy));
        RecordingHost assigned;
        assigned = copy;
        EXPECT_EQ(assigned.m_writeBuffer.block, copy.m_writeBuffer.block);
    }
    // The original still works on its block after its copies went away, and a second run is fine.
    EXPECT_TRUE(passThrough(*original));
    EXPECT_TRUE(passThrough(*original));
    RecordingHost survivor(*original);
    delete original;
    EXPECT_TRUE(passThrough(survivor));
}
