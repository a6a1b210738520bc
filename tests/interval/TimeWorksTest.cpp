// Tests of the interval driver: hook order, interval edges with and without a step or a scan list.
#include <gtest/gtest.h>

#include "IntervalFixtures.h"

using namespace ivtest;

TEST(TimeWorks, HookOrderOnTheGrid) {
    // start 100, step 10: the intervals [100,110), [110,120), and, after a jump, [130,140).
    std::vector<Record> recs = RecordsAt({95, 100, 105, 107, 109.5, 110, 135, 128, 139.9}, 2);
    Files f(BuildFile(MakeHeader(1, 2, 1), recs));
    RecordingHost host;
    host.filter = [](AUVXGroup&, int index) { return index != 3; };
    ASSERT_TRUE(host.IntervalsExec(&f.in, &f.out, 100, 10, nullptr)) << host.m_errMsg.GetString();
    std::vector<std::string> expected = {
        "Init", "Percent 11", "Filter 0 #0 t=95 re0=0", "Drop 0 #0", "Percent 22", "Filter 1 #1 t=100 re0=10",
        "Percent 33", "Filter 2 #2 t=105 re0=20", "Percent 44", "Filter 3 #3 t=107 re0=30", "Percent 56",
        "Filter 4 #4 t=109.5 re0=40", "Percent 67", "Filter 5 #5 t=110 re0=50", "Calculate 100 110 [1 2 4]",
        // A jump over one empty grid step: one close, for the interval that held a record.
        "Percent 78", "Filter 6 #6 t=135 re0=60", "Calculate 110 120 [5]",
        // Backwards below the open interval: dropped.
        "Percent 89", "Filter 7 #7 t=128 re0=70", "Drop 7 #7", "Percent 100", "Filter 8 #8 t=139.9 re0=80",
        "Calculate 130 140 [6 8]", "Finalize"};
    EXPECT_EQ(host.log, expected);
}

TEST(TimeWorks, StepNotAboveZeroGivesOneIntervalPerTimeStamp) {
    for (double step : {0.0, -5.0}) {
        Files f(BuildFile(MakeHeader(1, 1, 1), RecordsAt({50, 60, 60, 70, 65, 70, 80})));
        RecordingHost host;
        ASSERT_TRUE(host.IntervalsExec(&f.in, nullptr, 60, step, nullptr));
        // 50 lies before start, 65 went back below the open interval.
        EXPECT_EQ(Joined(host.log),
                  "Drop 0 #0; Calculate 60 60 [1 2]; Drop 4 #4; Calculate 70 70 [3 5]; Calculate 80 80 [6]")
            << "step " << step;
    }
}

TEST(TimeWorks, IntervalsOnTheGridAndTheScanList) {
    // Runs records at `times` (record `reject` refused by the filter) with a scan list of `scans` on
    // `listDay` behind another table, and compares the calculations and drops.
    auto check = [](const char* label, const std::vector<double>& times, int listDay,
                    const std::vector<std::pair<double, double>>& scans, bool useList, double start,
                    double step, int reject, const std::string& expected) {
        SCOPED_TRACE(label);
        Files f(BuildFile(MakeHeader(1, 1, 1), RecordsAt(times), [&](AUVXFile& out) {
            AddOtherTable(out, "XX", 2);
            AddScanList(out, listDay, scans);
        }));
        RecordingHost host;
        host.m_useSkanList = useList;
        host.filter = [reject](AUVXGroup&, int index) { return index != reject; };
        ASSERT_TRUE(host.IntervalsExec(&f.in, &f.out, start, step, nullptr));
        EXPECT_EQ(Joined(host.log), expected);
    };
    const std::vector<double> times = {102, 108, 112, 125, 136, 150, 205, 255, 259};
    // The first interval lies off the grid, from start, cut at 90 + 20; then the grid restarts at the
    // scan's start 100 and is cut at its end 135; 136 lies outside every scan: the grid origin stays 100,
    // no cut; the second scan puts the grid on 195 and cuts it at 260.
    check("scan list restarts and cuts the grid", times, kRefMJD, {{100, 135}, {195, 260}}, true, 90, 20, -1,
          "Calculate 90 110 [0 1]; Calculate 100 120 [2]; Calculate 120 135 [3]; Calculate 120 140 [4]; "
          "Calculate 140 160 [5]; Calculate 195 215 [6]; Calculate 255 260 [7 8]");
    check("without the list the plain grid from start", times, kRefMJD, {{100, 135}, {195, 260}}, false, 90,
          20, -1,
          "Calculate 90 110 [0 1]; Calculate 110 130 [2 3]; Calculate 130 150 [4]; Calculate 150 170 [5]; "
          "Calculate 190 210 [6]; Calculate 250 270 [7 8]");
    // The first interval runs from start and ends at the end of the scan of its first record.
    check("first interval cut by its scan", {102, 104, 106, 112}, kRefMJD, {{100, 105}}, true, 90, 20, -1,
          "Calculate 90 105 [0 1]; Calculate 100 120 [2 3]");
    // The scan list's day is one day after the file's, so a time t of the file is t + 86400 on the list's
    // axis, and the grid origin (a scan start, 86500) lies far above the records' times. Record 0 closes
    // the empty first interval [0, 20); k = trunc((105 - 86500) / 20) = -4319 gives [120, 140), which
    // takes record 0 all the same; 115 < 120 is dropped; record 3 closes with k = -4318.
    check("truncation toward zero", {105, 115, 125, 140}, kRefMJD + 1, {{86500, 86600}}, true, 0, 20, -1,
          "Drop 1 #1; Calculate 120 140 [0 2]; Calculate 140 160 [3]");
    // A filtered record before start is not dropped, and the first scan look-up waits for the first
    // accepted record: record 1 (t=30) lies in no scan, so the first interval stays [20, 1020). Had
    // the rejected record 0 (t=10, in scan 0) been looked up, it would end at 20.
    check("filtered record", {10, 30, 205, 215}, kRefMJD, {{0, 20}, {200, 212}}, true, 20, 1000, 0,
          "Calculate 20 1020 [1 2 3]");
}

TEST(TimeWorks, ScanLookUp) {
    RecordingHost host;
    AUVXSkanList list;
    list.refDay = kRefMJD;
    list.Add(AUVXSkanListItem{100, 200});
    list.Add(AUVXSkanListItem{150, 300});  // overlaps the first: the lower index wins
    // x = (refDay - mjd) x 86400 + time; the end is exclusive.
    const struct {
        double mjd, time;
        int index;
    } cases[] = {{kRefMJD, 99.999, -1},
                 {kRefMJD, 100, 0},
                 {kRefMJD, 160, 0},
                 {kRefMJD, 200, 1},
                 {kRefMJD, 300, -1},
                 {kRefMJD - 1, 100 - 86400, 0},
                 {kRefMJD - 0.5, 250 - 43200, 1}};
    for (const auto& c : cases) EXPECT_EQ(host.GetIndexFromSL(list, c.mjd, c.time), c.index) << c.time;

    // GetSkanList empties the list first and reports a missing table.
    Files none(BuildFile(MakeHeader(1, 1, 1), {}));
    EXPECT_FALSE(host.GetSkanList(none.in, list));
    EXPECT_EQ(list.count, 0);

    // The list is a table behind the records, read only with a step: reading it costs input reads.
    auto readsOf = [](bool useList, double step) {
        Files f(BuildFile(MakeHeader(1, 1, 1), RecordsAt({100, 101}), [](AUVXFile& out) {
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

TEST(TimeWorks, AbortAndPercent) {
    std::vector<Record> recs = RecordsAt({0, 1, 2, 3, 4, 5});
    Files f(BuildFile(MakeHeader(1, 1, 1), recs));
    RecordingHost host;
    host.logPercent = false;
    int abortFlag = 0;
    host.on = [&](RecordingHost& self, const std::string& line) {
        if (StartsWith(line, "Filter 3 ")) *self.m_abortFlag = 1;  // raised while record 3 is filtered
    };
    EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 2, &abortFlag));
    EXPECT_STREQ(host.m_errMsg.GetString(), "User abort");
    EXPECT_EQ(host.log, (std::vector<std::string>{"Init", "Filter 0 #0 t=0 re0=0", "Filter 1 #1 t=1 re0=10",
                                                  "Filter 2 #2 t=2 re0=20", "Calculate 0 2 [0 1]",
                                                  "Filter 3 #3 t=3 re0=30"}));
    EXPECT_EQ(host.m_abortFlag, &abortFlag);

    // A flag already raised stops the run before the first record.
    Files g(BuildFile(MakeHeader(1, 1, 1), recs));
    RecordingHost early;
    int raised = 7;
    EXPECT_FALSE(early.IntervalsExec(&g.in, nullptr, 0, 2, &raised));
    EXPECT_STREQ(early.m_errMsg.GetString(), "User abort");
    EXPECT_EQ(early.log, std::vector<std::string>{"Init"});

    // Percent: record 0 of 300 gives int(1/3 + 0.5) = 0, silent; from there on each value 1..100 once.
    std::vector<double> times(300);
    for (int i = 0; i < 300; ++i) times[static_cast<std::size_t>(i)] = i;
    Files p(BuildFile(MakeHeader(1, 1, 1), RecordsAt(times)));
    RecordingHost many;
    ASSERT_TRUE(many.IntervalsExec(&p.in, nullptr, 0, 50, nullptr));
    std::vector<int> expected(100);
    for (int i = 0; i < 100; ++i) expected[static_cast<std::size_t>(i)] = i + 1;
    EXPECT_EQ(many.percents, expected);
    EXPECT_EQ(many.log[1], "Filter 0 #0 t=0 re0=0");  // no percent before the first record
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
    f.ExpectSameTables(copy, result);
}

TEST(TimeWorks, InitSeesTheNewHeaderAndTheOldFiles) {
    AUVXHeader h = MakeHeader(1, 1, 1);
    Files f1(BuildFile(h, RecordsAt({1})));
    h.refFreq = 22.2e9;
    Files f2(BuildFile(h, RecordsAt({1})));
    RecordingHost host;
    std::vector<AUVXFile*> seenIn;
    std::vector<double> seenFreq;
    host.on = [&](RecordingHost& self, const std::string& line) {
        if (line != "Init") return;
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
    // Records at 0..4, step 2: intervals [0,2) [2,4) [4,6). A refusing hook ends the run with its own
    // text, no later hook runs (no Finalize after a failure), and the output stays open. The records an
    // interval held, and the one that closed it, are released (the sanitizer build checks).
    for (const char* line : {"Init", "Calculate 2 4 [2 3]", "Calculate 4 6 [4]", "Drop 1 #1", "Finalize"}) {
        SCOPED_TRACE(line);
        Files f(BuildFile(MakeHeader(1, 1, 1), RecordsAt({0, 1, 2, 3, 4})));
        RecordingHost host;
        host.logPercent = false;
        host.refuseAt = line;
        host.filter = [](AUVXGroup& g, int index) {
            if (index == 1) g.time = -1;  // sent back before start
            return true;
        };
        EXPECT_FALSE(host.IntervalsExec(&f.in, &f.out, 0, 2, nullptr));
        EXPECT_EQ(std::string(host.m_errMsg.GetString()), std::string("refused ") + line);
        EXPECT_EQ(host.log.back(), line);
        EXPECT_EQ(Joined(host.log, {"Finalize"}), line[0] == 'F' ? "Finalize" : "");
        EXPECT_TRUE(f.out.IsOpen());
        if (line[0] == 'I') {
            EXPECT_EQ(host.m_outFile, nullptr);
        }
        if (line[0] != 'F') continue;
        // The text stays through a later success.
        Files g(BuildFile(MakeHeader(1, 1, 1), RecordsAt({0, 1, 2, 3, 4})));
        host.refuseAt.clear();
        EXPECT_TRUE(host.IntervalsExec(&g.in, &g.out, 0, 2, nullptr));
        EXPECT_STREQ(host.m_errMsg.GetString(), "refused Finalize");
    }
}
