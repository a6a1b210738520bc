// Tests of the interval driver: hook order, interval edges with and without a step or a scan list.
#include <gtest/gtest.h>

#include <algorithm>

#include "IntervalFixtures.h"

using namespace ivtest;

namespace {

std::vector<Record> RecordsAt(const std::vector<double>& times, int nElem = 1) {
    std::vector<Record> r;
    for (std::size_t i = 0; i < times.size(); ++i)
        r.push_back(MakeRecord(static_cast<int>(i), times[i], nElem));
    return r;
}

// Only the Calculate lines of a log.
std::vector<std::string> Calculations(const std::vector<std::string>& log) {
    std::vector<std::string> out;
    for (const auto& s : log)
        if (s.rfind("Calculate", 0) == 0) out.push_back(s);
    return out;
}

}  // namespace

TEST(TimeWorks, HookOrderOnTheGrid) {
    // start 100, step 10: the intervals [100,110), [110,120), and, after a jump, [130,140).
    std::vector<Record> recs = RecordsAt({95, 100, 105, 107, 109.5, 110, 135, 128, 139.9}, 2);
    Files f(BuildFile(MakeHeader(1, 2, 1), recs));
    RecordingHost host;
    host.filter = [](AUVXGroup&, int index) { return index != 3; };
    ASSERT_TRUE(host.IntervalsExec(&f.in, &f.out, 100, 10, nullptr)) << host.m_errMsg.GetString();
    std::vector<std::string> expected = {
        "Init",
        "Percent 11",
        "Filter 0 #0 t=95 re0=0",
        "Drop 0 #0",
        "Percent 22",
        "Filter 1 #1 t=100 re0=10",
        "Percent 33",
        "Filter 2 #2 t=105 re0=20",
        "Percent 44",
        "Filter 3 #3 t=107 re0=30",
        "Percent 56",
        "Filter 4 #4 t=109.5 re0=40",
        "Percent 67",
        "Filter 5 #5 t=110 re0=50",
        "Calculate 100 110 [1 2 4]",
        // A jump over one empty grid step: one close, for the interval that held a record.
        "Percent 78",
        "Filter 6 #6 t=135 re0=60",
        "Calculate 110 120 [5]",
        // Backwards below the open interval: dropped.
        "Percent 89",
        "Filter 7 #7 t=128 re0=70",
        "Drop 7 #7",
        "Percent 100",
        "Filter 8 #8 t=139.9 re0=80",
        "Calculate 130 140 [6 8]",
        "Finalize",
    };
    EXPECT_EQ(host.log, expected);

    // Passed through, the records leave in the order of the writes: a dropped record at once, an
    // interval's records when it closes; the filtered record not at all.
    Files g(BuildFile(MakeHeader(1, 2, 1), recs));
    RecordingHost writer;
    writer.mode = RecordingHost::Mode::PassThrough;
    writer.filter = host.filter;
    ASSERT_TRUE(writer.IntervalsExec(&g.in, &g.out, 100, 10, nullptr)) << writer.m_errMsg.GetString();
    AMemFile copy;
    AUVXFile result;
    ASSERT_TRUE(g.OpenOutput(copy, result));
    std::vector<int> ids;
    for (const Record& r : ReadRecords(result)) ids.push_back(r.group.sourceId);
    EXPECT_EQ(ids, (std::vector<int>{0, 1, 2, 4, 5, 7, 6, 8}));
}

TEST(TimeWorks, StepNotAboveZeroGivesOneIntervalPerTimeStamp) {
    for (double step : {0.0, -5.0}) {
        std::vector<Record> recs = RecordsAt({50, 60, 60, 70, 65, 70, 80});
        Files f(BuildFile(MakeHeader(1, 1, 1), recs));
        RecordingHost host;
        host.logPercent = false;
        ASSERT_TRUE(host.IntervalsExec(&f.in, nullptr, 60, step, nullptr));
        std::vector<std::string> calc = {"Calculate 60 60 [1 2]", "Calculate 70 70 [3 5]",
                                         "Calculate 80 80 [6]"};
        EXPECT_EQ(Calculations(host.log), calc) << "step " << step;
        // 50 lies before start, 65 went back below the open interval.
        EXPECT_EQ(std::count(host.log.begin(), host.log.end(), "Drop 0 #0"), 1);
        EXPECT_EQ(std::count(host.log.begin(), host.log.end(), "Drop 4 #4"), 1);
    }
}

TEST(TimeWorks, FilteredRecordsReachNothing) {
    // A filtered record before start is not dropped, and the first scan look-up waits for the first
    // accepted record: with record 0 (in scan 0) rejected, the first interval is cut by scan 1.
    std::vector<Record> recs = RecordsAt({10, 30, 205, 215});
    Files f(BuildFile(MakeHeader(1, 1, 1), recs, [](AUVXFile& out) {
        AddScanList(out, kRefMJD, {{0, 20}, {200, 212}});
    }));
    RecordingHost host;
    host.logPercent = false;
    host.m_useSkanList = true;
    host.filter = [](AUVXGroup&, int index) { return index != 0; };
    ASSERT_TRUE(host.IntervalsExec(&f.in, &f.out, 20, 1000, nullptr));
    // The first look-up is made for record 1 (t=30), which lies in no scan, so the first interval stays
    // [20, 1020). Had rejected record 0 (t=10, in scan 0) been looked up, it would end at 20.
    std::vector<std::string> calc = {"Calculate 20 1020 [1 2 3]"};
    EXPECT_EQ(Calculations(host.log), calc);
    EXPECT_EQ(
        std::count_if(host.log.begin(), host.log.end(), [](const std::string& s) { return s[0] == 'D'; }), 0);
}

TEST(TimeWorks, ScanListRestartsAndCutsTheGrid) {
    std::vector<Record> recs = RecordsAt({102, 108, 112, 125, 136, 150, 205, 255, 259});
    Files f(BuildFile(MakeHeader(1, 1, 1), recs, [](AUVXFile& out) {
        AddOtherTable(out, "XX", 2);
        AddScanList(out, kRefMJD, {{100, 135}, {200, 260}});
    }));
    RecordingHost host;
    host.logPercent = false;
    host.m_useSkanList = true;
    ASSERT_TRUE(host.IntervalsExec(&f.in, &f.out, 90, 20, nullptr));
    std::vector<std::string> calc = {
        "Calculate 90 110 [0 1]",  // first interval off the grid, from start, cut at 90 + 20
        "Calculate 100 120 [2]",   // grid restarted at the scan's start 100
        "Calculate 120 135 [3]",   // cut at the scan's end
        "Calculate 120 140 [4]",   // 136 lies outside every scan: grid origin stays 100, no cut
        "Calculate 140 160 [5]",
        "Calculate 200 220 [6]",    // second scan: grid from 200
        "Calculate 240 260 [7 8]",  // 240 + 20 = 260 = the scan's end
    };
    EXPECT_EQ(Calculations(host.log), calc);

    // Without the scan list the same records lie on the plain grid from 90.
    Files g(BuildFile(MakeHeader(1, 1, 1), recs, [](AUVXFile& out) {
        AddScanList(out, kRefMJD, {{100, 135}, {200, 260}});
    }));
    RecordingHost plain;
    plain.logPercent = false;
    ASSERT_TRUE(plain.IntervalsExec(&g.in, nullptr, 90, 20, nullptr));
    std::vector<std::string> calcPlain = {
        "Calculate 90 110 [0 1]", "Calculate 110 130 [2 3]", "Calculate 130 150 [4]",
        "Calculate 150 170 [5]",  "Calculate 190 210 [6]",   "Calculate 250 270 [7 8]",
    };
    EXPECT_EQ(Calculations(plain.log), calcPlain);
}

TEST(TimeWorks, FirstIntervalIsCutByItsScanAndTruncationGoesTowardZero) {
    // The scan list's day is one day after the file's, so a time t of the file is t + 86400 on the
    // list's axis, and the grid origin (a scan start, 86500) lies far above the records' times: k of a
    // closing record is negative and truncated toward zero, which puts intervalStart above t.
    std::vector<Record> recs = RecordsAt({105, 115, 125, 140});
    Files f(BuildFile(MakeHeader(1, 1, 1), recs, [](AUVXFile& out) {
        AddScanList(out, kRefMJD + 1, {{86500, 86600}});
    }));
    RecordingHost host;
    host.logPercent = false;
    host.m_useSkanList = true;
    ASSERT_TRUE(host.IntervalsExec(&f.in, nullptr, 0, 20, nullptr));
    // Record 0: first interval [0, min(86600, 20)) is closed by it at once, empty. k = trunc((105 -
    // 86500) / 20) = trunc(-4319.75) = -4319: start 120, end 140; record 0 is appended all the same.
    // Record 1 (115 < 120) is dropped; record 2 joins; record 3 closes: k = -4318, [140, 160).
    std::vector<std::string> calc = {"Calculate 120 140 [0 2]", "Calculate 140 160 [3]"};
    EXPECT_EQ(Calculations(host.log), calc);
    EXPECT_EQ(std::count(host.log.begin(), host.log.end(), "Drop 1 #1"), 1);
}

TEST(TimeWorks, ScanLookUp) {
    RecordingHost host;
    AUVXSkanList list;
    list.refDay = kRefMJD;
    list.Add(AUVXSkanListItem{100, 200});
    list.Add(AUVXSkanListItem{150, 300});  // overlaps the first: the lower index wins
    EXPECT_EQ(host.GetIndexFromSL(list, kRefMJD, 99.999), -1);
    EXPECT_EQ(host.GetIndexFromSL(list, kRefMJD, 100), 0);
    EXPECT_EQ(host.GetIndexFromSL(list, kRefMJD, 160), 0);
    EXPECT_EQ(host.GetIndexFromSL(list, kRefMJD, 200), 1);  // end is exclusive
    EXPECT_EQ(host.GetIndexFromSL(list, kRefMJD, 300), -1);
    // x = (refDay - mjd) x 86400 + time.
    EXPECT_EQ(host.GetIndexFromSL(list, kRefMJD - 1, 100 - 86400), 0);
    EXPECT_EQ(host.GetIndexFromSL(list, kRefMJD - 0.5, 250 - 43200), 1);

    // GetSkanList empties the list first and reports a missing table.
    Files none(BuildFile(MakeHeader(1, 1, 1), {}));
    EXPECT_FALSE(host.GetSkanList(none.in, list));
    EXPECT_EQ(list.count, 0);
    Files with(BuildFile(MakeHeader(1, 1, 1), {}, [](AUVXFile& out) {
        AddScanList(out, 59999, {{1, 2}, {3, 4}, {5, 6}});
    }));
    ASSERT_TRUE(host.GetSkanList(with.in, list));
    ASSERT_EQ(list.count, 3);
    EXPECT_EQ(list.refDay, 59999);
    EXPECT_EQ(list[2].end, 6);
}

TEST(TimeWorks, ScanListIsReadOnlyWithAStep) {
    // The list is a table behind the records: reading it costs reads of the input stream.
    auto readsOf = [](bool useList, double step) {
        std::vector<Record> recs = RecordsAt({100, 101});
        Files f(BuildFile(MakeHeader(1, 1, 1), recs, [](AUVXFile& out) {
            AddScanList(out, kRefMJD, {{0, 1}});
        }));
        int before = f.inStream.readCalls;
        RecordingHost host;
        host.m_useSkanList = useList;
        EXPECT_TRUE(host.IntervalsExec(&f.in, nullptr, 0, step, nullptr));
        return f.inStream.readCalls - before;
    };
    EXPECT_EQ(readsOf(true, 0), readsOf(false, 0));
    EXPECT_EQ(readsOf(true, -1), readsOf(false, -1));
    EXPECT_GT(readsOf(true, 10), readsOf(false, 10));
}

TEST(TimeWorks, AbortStopsBeforeTheNextRecord) {
    std::vector<Record> recs = RecordsAt({0, 1, 2, 3, 4, 5});
    Files f(BuildFile(MakeHeader(1, 1, 1), recs));
    RecordingHost host;
    host.logPercent = false;
    host.abortAtRecord = 4;  // raised while record 3 is filtered
    int abortFlag = 0;
    EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 2, &abortFlag));
    EXPECT_STREQ(host.m_errMsg.GetString(), "User abort");
    std::vector<std::string> expected = {
        "Init",
        "Filter 0 #0 t=0 re0=0",
        "Filter 1 #1 t=1 re0=10",
        "Filter 2 #2 t=2 re0=20",
        "Calculate 0 2 [0 1]",
        "Filter 3 #3 t=3 re0=30",
    };
    EXPECT_EQ(host.log, expected);
    EXPECT_EQ(host.m_abortFlag, &abortFlag);

    // A flag already raised stops the run before the first record.
    Files g(BuildFile(MakeHeader(1, 1, 1), recs));
    RecordingHost early;
    int raised = 7;
    EXPECT_FALSE(early.IntervalsExec(&g.in, nullptr, 0, 2, &raised));
    EXPECT_STREQ(early.m_errMsg.GetString(), "User abort");
    EXPECT_EQ(early.log, std::vector<std::string>{"Init"});
}

TEST(TimeWorks, PercentNeverZeroAndEndsAtHundred) {
    std::vector<double> times(300);
    for (int i = 0; i < 300; ++i) times[static_cast<std::size_t>(i)] = i;
    Files f(BuildFile(MakeHeader(1, 1, 1), RecordsAt(times, 1)));
    RecordingHost host;
    ASSERT_TRUE(host.IntervalsExec(&f.in, nullptr, 0, 50, nullptr));
    // Record 0 gives int(1/3 + 0.5) = 0: silent. From there on each value 1..100 once, in order.
    std::vector<int> expected(100);
    for (int p = 0; p < 100; ++p) expected[static_cast<std::size_t>(p)] = p + 1;
    EXPECT_EQ(host.percents, expected);
    EXPECT_EQ(host.log[1], "Filter 0 #0 t=0 re0=0");  // no percent before the first record

    Files g(BuildFile(MakeHeader(1, 1, 1), RecordsAt({1, 2, 3}, 1)));
    RecordingHost three;
    ASSERT_TRUE(three.IntervalsExec(&g.in, nullptr, 0, 50, nullptr));
    EXPECT_EQ(three.percents, (std::vector<int>{33, 67, 100}));
}

TEST(TimeWorks, FileWithoutRecords) {
    Files f(BuildFile(MakeHeader(2, 3, 2), {}, [](AUVXFile& out) {
        AddOtherTable(out, "AN", 3);
        AddScanList(out, kRefMJD, {{0, 10}});
        AddOtherTable(out, "FQ", 1);
    }));
    ASSERT_EQ(f.in.nGroups, 0);
    RecordingHost host;
    host.m_useSkanList = true;
    int raised = 1;  // not seen: there is no record to look at it for
    ASSERT_TRUE(host.IntervalsExec(&f.in, &f.out, 0, 10, &raised)) << host.m_errMsg.GetString();
    EXPECT_EQ(host.log, (std::vector<std::string>{"Init", "Finalize"}));
    EXPECT_FALSE(f.out.IsOpen());  // closed by the run

    AMemFile copy;
    AUVXFile result;
    ASSERT_TRUE(f.OpenOutput(copy, result)) << result.m_errMsg.GetString();
    EXPECT_EQ(result.nGroups, 0);
    EXPECT_EQ(std::memcmp(&result.GetHeader(), &f.in.GetHeader(), sizeof(AUVXHeader)), 0);
    ASSERT_EQ(result.TablePositions().count, 3);
    const char* names[] = {"AN", "SL", "FQ"};
    for (int t = 0; t < 3; ++t) {
        f.in.Seek(f.in.TablePositions()[t]);
        AUVXTable a(*f.in.file);
        result.Seek(result.TablePositions()[t]);
        AUVXTable b(*result.file);
        ASSERT_TRUE(b.IsValid());
        EXPECT_STREQ(b.GetName().GetString(), names[t]);
        ASSERT_EQ(a.StoredBytes(), b.StoredBytes());
        EXPECT_EQ(std::memcmp(a.rows, b.rows, static_cast<std::size_t>(a.nRows) * a.rowBytes), 0);
    }
}

TEST(TimeWorks, InitSeesTheNewHeaderAndTheOldFiles) {
    AUVXHeader h = MakeHeader(1, 1, 1);
    Files f1(BuildFile(h, RecordsAt({1})));
    h.refFreq = 22.2e9;
    Files f2(BuildFile(h, RecordsAt({1})));
    RecordingHost host;
    std::vector<AUVXFile*> seenIn;
    std::vector<double> seenFreq;
    host.onInit = [&](RecordingHost& self) {
        seenIn.push_back(self.m_inFile);
        seenFreq.push_back(+self.m_header.refFreq);
    };
    ASSERT_TRUE(host.IntervalsExec(&f1.in, nullptr, 0, 1, nullptr));
    ASSERT_TRUE(host.IntervalsExec(&f2.in, nullptr, 0, 1, nullptr));
    EXPECT_EQ(seenIn, (std::vector<AUVXFile*>{nullptr, &f1.in}));
    EXPECT_EQ(seenFreq, (std::vector<double>{4.8e9, 22.2e9}));
    EXPECT_EQ(host.m_inFile, &f2.in);
    EXPECT_EQ(host.m_outFile, nullptr);
}

TEST(TimeWorks, AHookThatRefusesEndsTheRun) {
    std::vector<Record> recs = RecordsAt({0, 1, 2, 3, 4});
    {
        Files f(BuildFile(MakeHeader(1, 1, 1), recs));
        RecordingHost host;
        host.logPercent = false;
        host.failInit = true;
        EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 1, nullptr));
        EXPECT_STREQ(host.m_errMsg.GetString(), "init refused");
        EXPECT_EQ(host.log, std::vector<std::string>{"Init"});
        EXPECT_EQ(host.m_outFile, nullptr);
    }
    {
        // The second interval's calculation refuses: no later record is read, no Finalize. The
        // records it held, and the one that closed it, are released (the sanitizer build checks).
        Files f(BuildFile(MakeHeader(1, 1, 1), recs));
        RecordingHost host;
        host.logPercent = false;
        host.failCalculateCall = 2;
        EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 2, nullptr));
        EXPECT_STREQ(host.m_errMsg.GetString(), "calculation refused");
        EXPECT_EQ(host.log.back(), "Calculate 2 4 [2 3]");
        EXPECT_TRUE(f.out.IsOpen());  // not closed after a failure
    }
    {
        Files f(BuildFile(MakeHeader(1, 1, 1), recs));
        RecordingHost host;
        host.logPercent = false;
        host.failDropIndex = 1;
        host.filter = [](AUVXGroup& g, int index) {
            if (index == 1) g.time = -1;  // sent back before start
            return true;
        };
        EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 2, nullptr));
        EXPECT_STREQ(host.m_errMsg.GetString(), "drop refused");
        EXPECT_EQ(host.log.back(), "Drop 1 #1");
    }
    {
        // A failing last calculation also keeps Finalize away; a failing Finalize keeps the output open.
        Files f(BuildFile(MakeHeader(1, 1, 1), recs));
        RecordingHost host;
        host.logPercent = false;
        host.failCalculateCall = 3;
        EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 2, nullptr));
        EXPECT_EQ(std::count(host.log.begin(), host.log.end(), "Finalize"), 0);

        Files g(BuildFile(MakeHeader(1, 1, 1), recs));
        RecordingHost fin;
        fin.failFinalize = true;
        EXPECT_FALSE(fin.IntervalsExec(&g.in, &g.out, 0, 2, nullptr));
        EXPECT_STREQ(fin.m_errMsg.GetString(), "finalize refused");
        EXPECT_TRUE(g.out.IsOpen());
        // The text stays through a later success.
        Files h(BuildFile(MakeHeader(1, 1, 1), recs));
        fin.failFinalize = false;
        EXPECT_TRUE(fin.IntervalsExec(&h.in, &h.out, 0, 2, nullptr));
        EXPECT_STREQ(fin.m_errMsg.GetString(), "finalize refused");
    }
}
