// Tests of the driver's output: pass-through copies, header statistics, tables, failures of the streams.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "IntervalFixtures.h"

using namespace ivtest;

namespace {

constexpr int kBlock = 4194304;
constexpr std::int64_t kFirstRecord = AUVXFile::kFirstRecordPos;

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

void ResetStatistics(RecordingHost& host) {
    host.onInit = [](RecordingHost& self) {
        self.m_header.reMin = self.m_header.imMin = std::numeric_limits<double>::infinity();
        self.m_header.reMax = self.m_header.imMax = -std::numeric_limits<double>::infinity();
    };
}

}  // namespace

TEST(IntervalOutput, PassThroughIsByteIdenticalWithTrueStatistics) {
    // More than one 4 MB block, so records straddle block edges on both sides.
    const int nElem = 205;
    std::vector<Record> recs = SpreadRecords(1800, nElem);
    AUVXHeader h = MakeHeader(1, nElem, 1);
    h.reMin = h.reMax = h.imMin = h.imMax = 0.125;  // narrower than the data; reset by the host
    std::vector<unsigned char> bytes = BuildFile(h, recs, [](AUVXFile& out) {
        AddScanList(out, kRefMJD, {{0, 5000}});
        AddOtherTable(out, "AN", 4);
    });
    Files f(bytes);
    RecordingHost host;
    host.logPercent = false;
    host.mode = RecordingHost::Mode::PassThrough;
    ResetStatistics(host);
    // Records before 100 are passed through by DropTimeData, the rest by WriteData, 7 s at a time.
    ASSERT_TRUE(host.IntervalsExec(&f.in, &f.out, 100, 7, nullptr)) << host.m_errMsg.GetString();

    double reMin = INFINITY, reMax = -INFINITY, imMin = INFINITY, imMax = -INFINITY;
    for (const Record& r : recs)
        for (const AUVXComplex& c : r.data) {
            reMin = std::min<double>(reMin, c.re);
            reMax = std::max<double>(reMax, c.re);
            imMin = std::min<double>(imMin, c.im);
            imMax = std::max<double>(imMax, c.im);
        }

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
    ASSERT_EQ(result.TablePositions().count, 2);
    for (int t = 0; t < 2; ++t) {
        std::int64_t a = f.in.TablePositions()[t] - f.in.TablePositions()[0];
        std::int64_t b = result.TablePositions()[t] - result.TablePositions()[0];
        EXPECT_EQ(a, b);
    }
    std::int64_t tablesIn = f.in.TablePositions()[0], tablesOut = result.TablePositions()[0];
    std::int64_t tableBytes = static_cast<std::int64_t>(bytes.size()) - tablesIn - (2 + 2 * 8);
    EXPECT_TRUE(std::equal(bytes.begin() + tablesIn, bytes.begin() + tablesIn + tableBytes,
                           copy.Bytes().begin() + tablesOut));
}

TEST(IntervalOutput, StatisticsOnlyWiden) {
    std::vector<Record> recs = SpreadRecords(20, 3);
    AUVXHeader h = MakeHeader(1, 3, 1);
    h.reMin = -1e9;
    h.reMax = 1e9;
    h.imMin = 0.0;  // the data go below 0 and above 0
    h.imMax = 0.0;
    Files f(BuildFile(h, recs));
    RecordingHost host;
    host.mode = RecordingHost::Mode::PassThrough;
    ASSERT_TRUE(host.IntervalsExec(&f.in, &f.out, 0, 4, nullptr));
    EXPECT_EQ(+host.m_header.reMin, -1e9);
    EXPECT_EQ(+host.m_header.reMax, 1e9);
    double imMin = 0, imMax = 0;
    for (const Record& r : recs)
        for (const AUVXComplex& c : r.data) {
            imMin = std::min<double>(imMin, c.im);
            imMax = std::max<double>(imMax, c.im);
        }
    EXPECT_EQ(+host.m_header.imMin, imMin);
    EXPECT_EQ(+host.m_header.imMax, imMax);

    // Records dropped without an output file change nothing.
    Files g(BuildFile(h, recs), false);
    RecordingHost dropper;
    ASSERT_TRUE(dropper.IntervalsExec(&g.in, nullptr, 1000, 4, nullptr));
    EXPECT_EQ(std::count_if(dropper.log.begin(), dropper.log.end(),
                            [](const std::string& s) { return s[0] == 'D'; }),
              20);
    EXPECT_EQ(std::memcmp(&dropper.m_header, &h, sizeof(AUVXHeader)), 0);
}

TEST(IntervalOutput, NaNTakesTheMinimumAndNeverTheMaximum) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    // Record i holds re[i] and im[i], element after element; every element is flagged, which does not
    // matter. The statistics start at min 10, max -10.
    using Parts = std::vector<std::vector<float>>;
    auto run = [&](const Parts& re, const Parts& im) {
        std::vector<Record> recs;
        const int nElem = static_cast<int>(re[0].size());
        for (std::size_t i = 0; i < re.size(); ++i) {
            Record r = MakeRecord(static_cast<int>(i), static_cast<double>(i), nElem);
            for (int e = 0; e < nElem; ++e) r.data[e] = AUVXComplex{re[i][e], im[i][e], -1.0f};
            recs.push_back(r);
        }
        Files f(BuildFile(MakeHeader(1, nElem, 1), recs));
        RecordingHost host;
        host.mode = RecordingHost::Mode::PassThrough;
        host.onInit = [](RecordingHost& self) {
            self.m_header.reMin = self.m_header.imMin = 10;
            self.m_header.reMax = self.m_header.imMax = -10;
        };
        EXPECT_TRUE(host.IntervalsExec(&f.in, &f.out, 0, 1, nullptr));
        return host.m_header;
    };
    AUVXHeader a = run({{5}, {nan}, {3}}, {{-1}, {nan}, {7}});
    EXPECT_EQ(+a.reMin, 3);  // the NaN took the minimum and 3 took it back
    EXPECT_EQ(+a.reMax, 5);
    EXPECT_EQ(+a.imMin, 7);  // 7 replaced the NaN, although -1 came before it
    EXPECT_EQ(+a.imMax, 7);
    AUVXHeader b = run({{5}, {3}, {nan}}, {{nan}, {-2}, {-3}});
    EXPECT_TRUE(std::isnan(b.reMin));
    EXPECT_EQ(+b.reMax, 5);
    EXPECT_EQ(+b.imMin, -3);
    EXPECT_EQ(+b.imMax, -2);

    // The same order holds inside a record of many elements.
    const std::vector<float> ones(9, 1.0f), halves(9, 0.5f);
    const std::vector<float> re0 = {5, 6, 7, 8, 9, 4, nan, 4.5f, 6};
    const std::vector<float> re1 = {1, 2, 3, 4, 5, 6, 7, nan, 100};
    const std::vector<float> im1 = {0, nan, 0, 0, 0, 0, 0, 0, 0};
    const std::vector<float> re2 = {100, 100, 100, 100, 100, 100, 100, 100, nan};
    AUVXHeader c = run({re0}, {ones});
    EXPECT_EQ(+c.reMin, 4.5);  // 4 was taken back by the NaN, 4.5 took the NaN's place
    EXPECT_EQ(+c.reMax, 9);
    EXPECT_EQ(+c.imMin, 1);
    AUVXHeader d = run({re0, re1}, {ones, im1});
    EXPECT_EQ(+d.reMin, 100);
    EXPECT_EQ(+d.reMax, 100);
    EXPECT_EQ(+d.imMin, 0);
    EXPECT_EQ(+d.imMax, 1);
    // A record inside the bounds so far still counts when it holds a NaN.
    AUVXHeader e = run({re0, re1, re2}, {ones, im1, halves});
    EXPECT_TRUE(std::isnan(e.reMin));
    EXPECT_EQ(+e.reMax, 100);
    EXPECT_EQ(+e.imMin, 0);
    EXPECT_EQ(+e.imMax, 1);
    // The same when the NaN lies in the middle of the record and the values around it are inside.
    const std::vector<float> re3 = {0, 100, 50, 50, 50, 50, 50, 50, 50};
    const std::vector<float> im3 = {0, 2, 1, 1, 1, 1, 1, 1, 1};
    const std::vector<float> re4 = {50, 50, 50, 50, 50, nan, 50, 50, 60};
    const std::vector<float> im4 = {1, 1, nan, 1, 1, 1, 1, 1, 1};
    AUVXHeader g = run({re3, re4}, {im3, im4});
    EXPECT_EQ(+g.reMin, 50);
    EXPECT_EQ(+g.reMax, 100);
    EXPECT_EQ(+g.imMin, 1);
    EXPECT_EQ(+g.imMax, 2);
}

TEST(IntervalOutput, AveragingHostWritesOneRecordPerBaselineAndInterval) {
    // Interval [0, 10): baselines (1,3), (1,2), (1,3), (2,2), (1,2); interval [10, 20): (2,3) only.
    std::vector<Record> recs;
    int ants[][2] = {{1, 3}, {1, 2}, {1, 3}, {2, 2}, {1, 2}, {2, 3}};
    double times[] = {1, 2, 3, 4, 5, 12};
    for (int i = 0; i < 6; ++i) {
        Record r = MakeRecord(i, times[i], 2, ants[i][0], ants[i][1]);
        r.group.u = static_cast<float>(i);
        recs.push_back(r);
    }
    Files f(BuildFile(MakeHeader(1, 2, 1), recs));
    RecordingHost host;
    host.mode = RecordingHost::Mode::Average;
    ResetStatistics(host);
    ASSERT_TRUE(host.IntervalsExec(&f.in, &f.out, 0, 10, nullptr)) << host.m_errMsg.GetString();
    AMemFile copy;
    AUVXFile result;
    ASSERT_TRUE(f.OpenOutput(copy, result));
    std::vector<Record> out = ReadRecords(result);
    ASSERT_EQ(out.size(), 4u);
    // Baseline order (1,2), (1,3), (2,2), then the second interval.
    int expAnts[][2] = {{1, 2}, {1, 3}, {2, 2}, {2, 3}};
    // Means of the records' own numbers: re of element e of record i is 10 i + e.
    float expRe0[] = {(10 + 40) / 2.0f, (0 + 20) / 2.0f, 30, 50};
    float expU[] = {(1 + 4) / 2.0f, (0 + 2) / 2.0f, 3, 5};
    double expTime[] = {5, 5, 5, 15};
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

TEST(IntervalOutput, WriteDataEdges) {
    Files f(BuildFile(MakeHeader(1, 1, 1), {MakeRecord(0, 0, 1)}));
    RecordingHost host;
    bool emptyOk = false, noElementsOk = true;
    CString text;
    std::int64_t writtenBefore = 0, writtenAfter = 0;
    host.onFirstFilter = [&](RecordingHost& self) {
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
        text = self.m_errMsg;
    };
    host.IntervalsExec(&f.in, &f.out, 0, 1, nullptr);
    EXPECT_TRUE(emptyOk);
    EXPECT_EQ(writtenAfter, writtenBefore);
    EXPECT_FALSE(noElementsOk);
    EXPECT_STREQ(text.GetString(), "Error write Visibility data");
}

TEST(IntervalOutput, ReadFailuresNameTheRecord) {
    // The input is read in blocks of 4194304 bytes; the second block fails. The record that crosses
    // the block edge fails in its group or its visibility, whichever the edge cuts.
    for (int nChan : {19, 205}) {
        const int recBytes = 26 + 12 * nChan;
        const int k = kBlock / recBytes;
        const bool inGroup = kBlock % recBytes < 26;
        ASSERT_EQ(inGroup, nChan == 19);
        std::vector<Record> recs;
        for (int i = 0; i < k + 20; ++i) recs.push_back(MakeRecord(i, 0, nChan));
        Files f(BuildFile(MakeHeader(1, nChan, 1), recs));
        RecordingHost host;
        host.logPercent = false;
        host.onFirstFilter = [&](RecordingHost&) { f.inStream.failReadCall = f.inStream.readCalls + 1; };
        EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 10, nullptr));
        std::string expected =
            (inGroup ? "Error reading AUVXGroup #" : "Error reading Visibility #") + std::to_string(k);
        EXPECT_EQ(std::string(host.m_errMsg.GetString()), expected);
        EXPECT_EQ(host.log.back(), "Filter " + std::to_string(k - 1) + " #" + std::to_string(k - 1) +
                                       " t=0 re0=" + std::to_string(10 * (k - 1)));
        EXPECT_TRUE(f.out.IsOpen());
    }
}

TEST(IntervalOutput, WriteFailuresNameThePart) {
    // Every record lies before start and is written by DropTimeData at once; the first full block
    // fails to reach the stream, in the group or the visibility of the record that fills it.
    for (int nChan : {19, 205}) {
        const int recBytes = 26 + 12 * nChan;
        const int k = kBlock / recBytes;
        const bool inGroup = kBlock % recBytes < 26;
        std::vector<Record> recs;
        for (int i = 0; i < k + 20; ++i) recs.push_back(MakeRecord(i, 0, nChan));
        Files f(BuildFile(MakeHeader(1, nChan, 1), recs));
        RecordingHost host;
        host.logPercent = false;
        host.onFirstFilter = [&](RecordingHost&) { f.outStream.failWriteCall = f.outStream.writeCalls + 1; };
        EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 1e9, 10, nullptr));
        EXPECT_STREQ(host.m_errMsg.GetString(),
                     inGroup ? "Error write UVG data" : "Error write Visibility data");
        EXPECT_EQ(host.log.back(), "Drop " + std::to_string(k) + " #" + std::to_string(k));
        EXPECT_TRUE(f.out.IsOpen());
    }
}

TEST(IntervalOutput, TableFailures) {
    auto tables = [](AUVXFile& out) {
        AddOtherTable(out, "AN", 2);
        AddOtherTable(out, "FQ", 2);
    };
    std::vector<Record> recs = {MakeRecord(0, 0, 1), MakeRecord(1, 1, 1)};
    {
        // WriteTable's own text names the table whose seek failed.
        Files f(BuildFile(MakeHeader(1, 1, 1), recs, tables));
        RecordingHost host;
        bool ok = true;
        CString text;
        host.onFinalize = [&](RecordingHost& self) {
            f.inStream.failSeekCall = f.inStream.seekCalls + 2;
            ok = self.WriteTable(*self.m_inFile, *self.m_outFile);
            text = self.m_errMsg;
        };
        host.failFinalize = true;
        EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 1, nullptr));
        EXPECT_FALSE(ok);
        EXPECT_STREQ(text.GetString(), "Error SEEK to UVX-table #1");
        EXPECT_TRUE(f.out.IsOpen());
    }
    {
        // In the driver that text is replaced, and the output stays open.
        Files f(BuildFile(MakeHeader(1, 1, 1), recs, tables));
        RecordingHost host;
        host.onFinalize = [&](RecordingHost&) { f.inStream.failSeekCall = f.inStream.seekCalls + 1; };
        EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 1, nullptr));
        EXPECT_STREQ(host.m_errMsg.GetString(), "Error write UVX-table");
        EXPECT_TRUE(f.out.IsOpen());
    }
    {
        // A table (or the directory behind them) that cannot be written fails the same way.
        Files f(BuildFile(MakeHeader(1, 1, 1), recs, tables));
        RecordingHost host;
        host.mode = RecordingHost::Mode::PassThrough;
        host.onFinalize = [&](RecordingHost&) { f.outStream.failWriteCall = f.outStream.writeCalls + 4; };
        EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 1, nullptr));
        EXPECT_STREQ(host.m_errMsg.GetString(), "Error write UVX-table");
    }
}

TEST(IntervalOutput, OtherFailures) {
    std::vector<Record> recs = {MakeRecord(0, 0, 1), MakeRecord(1, 1, 1)};
    {
        // The first fill of the read block fails: no record is looked at, the files of the run are not
        // taken over.
        Files f(BuildFile(MakeHeader(1, 1, 1), recs));
        RecordingHost host;
        host.onInit = [&](RecordingHost&) { f.inStream.failReadCall = f.inStream.readCalls + 1; };
        EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 1, nullptr));
        EXPECT_STREQ(host.m_errMsg.GetString(), "Can`t create read buffer.");
        EXPECT_EQ(host.log, std::vector<std::string>{"Init"});
        EXPECT_EQ(host.m_inFile, nullptr);
    }
    {
        // The last block does not reach the output.
        Files f(BuildFile(MakeHeader(1, 1, 1), recs));
        RecordingHost host;
        host.mode = RecordingHost::Mode::PassThrough;
        host.onFinalize = [&](RecordingHost&) { f.outStream.failWriteCall = f.outStream.writeCalls + 1; };
        EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 1, nullptr));
        EXPECT_STREQ(host.m_errMsg.GetString(), "Error flush UV data");
    }
    {
        // Nothing waits in the block: the next write is the final header's.
        Files f(BuildFile(MakeHeader(1, 1, 1), recs));
        RecordingHost host;
        host.onFinalize = [&](RecordingHost&) { f.outStream.failWriteCall = f.outStream.writeCalls + 1; };
        EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 1, nullptr));
        EXPECT_STREQ(host.m_errMsg.GetString(), "Error write UVX-header");
    }
    {
        // An output that was never created takes no header.
        Files f(BuildFile(MakeHeader(1, 1, 1), recs), false);
        RecordingHost host;
        EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 1, nullptr));
        EXPECT_STREQ(host.m_errMsg.GetString(), "Error write UVX-header");
        EXPECT_EQ(std::count(host.log.begin(), host.log.end(), "Finalize"), 0);
    }
    {
        RecordingHost host;
        EXPECT_FALSE(host.IntervalsExec(nullptr, nullptr, 0, 1, nullptr));
        EXPECT_STREQ(host.m_errMsg.GetString(), "No input UVX-file");
        EXPECT_TRUE(host.log.empty());
    }
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
