// Tests of the driver's memory: visibilities taken again from interval to interval, and the write
// block of a host that writes outside a run.
#include <gtest/gtest.h>

#include <set>

#include "IntervalFixtures.h"

using namespace ivtest;

#if defined(__SANITIZE_ADDRESS__)
// LeakSanitizer's check on demand: nonzero when memory was lost so far.
extern "C" int __lsan_do_recoverable_leak_check();
#endif

namespace {

// A host that looks at every interval's visibilities: their data must be what the file holds, and
// on request it gives some of them another shape, replaces them or drops them, which the driver must
// not take again as if nothing had happened.
class ReusingHost final : public AUVXTimeWorks {
public:
    using AUVXTimeWorks::m_writeBuffer;
    using AUVXTimeWorks::WriteData;

    const std::vector<Record>* expected = nullptr;
    bool disturb = false;
    bool rejectOdd = false;
    int longestInterval = 0;
    int mismatches = 0;
    std::set<const AUVXVisibility*> seen;

protected:
    bool Filter(AUVXVisibility& vis, AUVXGroup& group, int index) override {
        check(vis, group, index);
        if (rejectOdd && index % 2 == 1) {
            vis.data[0].re = -999.0f;  // changed and passed over: must not reach the next record
            return false;
        }
        return true;
    }
    bool IntervalsExec_Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>&, double,
                                 double) override {
        longestInterval = std::max(longestInterval, vis.count);
        for (int k = 0; k < vis.count; ++k) {
            seen.insert(vis[k]);
            vis[k]->data[0].im = 12345.0f;  // the hook may change records in place
        }
        if (disturb && vis.count >= 3) {
            vis[0]->SetCount(1);  // another size of storage
            vis[0]->nChan = 1;
            delete vis[1];  // the hook replaced this one by a visibility of another shape
            vis[1] = new AUVXVisibility(1, 1, 1);
            delete vis[2];  // and dropped this one
            vis[2] = nullptr;
        }
        return true;
    }

private:
    void check(const AUVXVisibility& vis, const AUVXGroup& group, int index) {
        const Record& r = (*expected)[static_cast<std::size_t>(index)];
        bool same = vis.count == static_cast<int>(r.data.size()) && group.sourceId == r.group.sourceId;
        for (int e = 0; same && e < vis.count; ++e)
            same = vis.data[e].re == r.data[e].re && vis.data[e].im == r.data[e].im &&
                   vis.data[e].wt == r.data[e].wt;
        if (!same) ++mismatches;
    }
};

std::vector<Record> SecondsOfFourRecords(int seconds, int nElem) {
    std::vector<Record> recs;
    for (int s = 0; s < seconds; ++s)
        for (int b = 0; b < 4; ++b) recs.push_back(MakeRecord(s * 4 + b, s, nElem, 1, 2 + b));
    return recs;
}

}  // namespace

TEST(IntervalMemory, VisibilitiesAreTakenAgainOnlyUntouched) {
    const std::vector<Record> recs = SecondsOfFourRecords(12, 6);
    const std::vector<unsigned char> bytes = BuildFile(MakeHeader(2, 3, 1), recs);
    for (int variant = 0; variant < 3; ++variant) {
        SCOPED_TRACE(variant);
        Files f(bytes, false);
        ReusingHost host;
        host.expected = &recs;
        host.disturb = variant == 1;
        host.rejectOdd = variant == 2;
        ASSERT_TRUE(host.IntervalsExec(&f.in, nullptr, 0, 2, nullptr)) << host.m_errMsg.GetString();
        // Every record arrived with the file's data, whatever the hooks did to earlier ones.
        EXPECT_EQ(host.mismatches, 0);
        EXPECT_EQ(host.longestInterval, variant == 2 ? 4 : 8);
        if (variant == 0) {
            // A pass holds no more visibilities than its longest interval and the one being read.
            EXPECT_LE(static_cast<int>(host.seen.size()), host.longestInterval + 1);
        }
    }
}

TEST(IntervalMemory, HostWriteBlockOutsideARunIsReleasedWithTheObject) {
    const std::vector<Record> recs = SecondsOfFourRecords(1, 2);
    APtrArray<AUVXVisibility*> vis;
    AArray<AUVXGroup> groups;
    for (const Record& r : recs) {
        AUVXVisibility* v = new AUVXVisibility(1, 2, 1);
        for (int e = 0; e < 2; ++e) v->data[e] = r.data[static_cast<std::size_t>(e)];
        vis.Add(v);
        groups.Add(r.group);
    }
    const std::int64_t recordBytes = 4 * (26 + 2 * 12);

    // A fresh object, a copy of it, and one that ran before: each writes through a block of its own
    // making and then goes away.
    AFailFile stream;
    {
        ReusingHost host;
        ASSERT_GT(host.m_writeBuffer.Create(64, &stream), 0);
        ASSERT_TRUE(host.WriteData(vis, groups, 0, 0));
        ASSERT_GE(host.m_writeBuffer.Flush(), 0);
        EXPECT_EQ(stream.GetLength(), recordBytes);
        ReusingHost copy(host);
        EXPECT_EQ(copy.m_writeBuffer.block, host.m_writeBuffer.block);
        ReusingHost assigned;
        ASSERT_GT(assigned.m_writeBuffer.Create(32, &stream), 0);
        assigned = copy;  // the block assigned made is let go of; copy's is shared
        EXPECT_EQ(assigned.m_writeBuffer.block, host.m_writeBuffer.block);
    }
    {
        const std::vector<unsigned char> bytes = BuildFile(MakeHeader(1, 2, 1), recs);
        Files f(bytes);
        ReusingHost host;
        host.expected = &recs;
        ASSERT_TRUE(host.IntervalsExec(&f.in, &f.out, 0, 1, nullptr)) << host.m_errMsg.GetString();
        // The host makes a block of its own after the run: the buffer frees the run's block, which
        // the object must then not free a second time.
        ASSERT_GT(host.m_writeBuffer.Create(128, &stream), 0);
        ASSERT_TRUE(host.WriteData(vis, groups, 0, 0));
        ASSERT_GE(host.m_writeBuffer.Flush(), 0);
        EXPECT_EQ(stream.GetLength(), 2 * recordBytes);
        // A second run after it: the host's block is let go of, the run takes a new one.
        Files g(bytes);
        ASSERT_TRUE(host.IntervalsExec(&g.in, &g.out, 0, 1, nullptr)) << host.m_errMsg.GetString();
        ASSERT_GT(host.m_writeBuffer.Create(16, &stream), 0);
        ASSERT_TRUE(host.WriteData(vis, groups, 0, 0));
        ASSERT_GE(host.m_writeBuffer.Flush(), 0);
        EXPECT_EQ(stream.GetLength(), 3 * recordBytes);
    }
#if defined(__SANITIZE_ADDRESS__)
    EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
#endif
}
