// Tests of AReadBuffer and AWriteBuffer: block edges, result conventions and failing streams.
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <vector>

#include <merovane/foundation/AMemFile.h>
#include <merovane/foundation/AReadBuffer.h>
#include <merovane/foundation/AWriteBuffer.h>
#include "support/MessageCapture.h"

namespace {
std::vector<unsigned char> ramp(int n) {
    std::vector<unsigned char> v(static_cast<size_t>(n));
    std::iota(v.begin(), v.end(), static_cast<unsigned char>(0));
    return v;
}
}  // namespace

TEST(AReadBuffer, RecordsStraddlingBlocksArriveWhole) {
    AFailFile f(ramp(23));
    AReadBuffer r;
    ASSERT_TRUE(r.Create(8, &f));
    EXPECT_EQ(r.size, 8);
    EXPECT_EQ(r.remaining, 15);
    unsigned char rec[5];
    for (int k = 0; k < 4; ++k) {  // 5-byte records over 8-byte blocks
        ASSERT_TRUE(r.Read(rec, 5)) << k;
        for (int i = 0; i < 5; ++i) EXPECT_EQ(rec[i], k * 5 + i);
    }
    unsigned char tail[3];
    EXPECT_TRUE(r.Read(tail, 3));  // exactly the last bytes of the stream
    EXPECT_EQ(tail[2], 22);
    EXPECT_FALSE(r.Read(tail, 1));  // nothing left
    EXPECT_TRUE(r.Read(tail, 0));   // and a read of nothing still succeeds

    // One read may span any number of blocks.
    AMemFile g(ramp(50));
    AReadBuffer big;
    ASSERT_TRUE(big.Create(4, &g));
    unsigned char all[50];
    ASSERT_TRUE(big.Read(all, 50));
    EXPECT_EQ(all[49], 49);
}

TEST(AReadBuffer, ReadPastTheEndLeavesAnEmptyBlock) {
    // 10 bytes in blocks of 8: the last block holds 2. A read of 3 from it takes both and then finds
    // the stream used up; the block is refilled all the same, to nothing.
    AFailFile f(ramp(10));
    AReadBuffer r;
    ASSERT_TRUE(r.Create(8, &f));
    unsigned char b[8];
    ASSERT_TRUE(r.Read(b, 5));
    ASSERT_TRUE(r.Read(b, 3));  // exactly the end of the first block: the second (2 bytes) comes in
    EXPECT_EQ(r.size, 2);
    EXPECT_EQ(r.pos, 0);
    EXPECT_EQ(r.remaining, 0);
    EXPECT_FALSE(r.Read(b, 3));
    EXPECT_EQ(b[0], 8);  // the two bytes that were there were delivered
    EXPECT_EQ(b[1], 9);
    EXPECT_EQ(r.size, 0);
    EXPECT_EQ(r.pos, 0);
    EXPECT_EQ(r.remaining, 0);
    EXPECT_EQ(f.readCalls, 2);  // the empty refill costs no call of the stream
    EXPECT_FALSE(r.Read(b, 1));
    EXPECT_EQ(r.size, 0);
    EXPECT_EQ(r.pos, 0);

    // The same in the middle of a block: a read longer than what is left of the stream.
    AFailFile g(ramp(6));
    AReadBuffer s;
    ASSERT_TRUE(s.Create(16, &g));
    ASSERT_TRUE(s.Read(b, 2));
    EXPECT_FALSE(s.Read(b, 5));
    EXPECT_EQ(b[3], 5);
    EXPECT_EQ(s.size, 0);
    EXPECT_EQ(s.pos, 0);
}

TEST(AReadBuffer, StartsAtTheStreamPositionAndCountsTransfers) {
    AFailFile f(ramp(40));
    f.Seek(30);
    AReadBuffer r;
    ASSERT_TRUE(r.Create(4194304, &f));
    EXPECT_EQ(r.size, 10);  // only what is left of the stream
    EXPECT_EQ(f.readCalls, 1);
    unsigned char b[10];
    ASSERT_TRUE(r.Read(b, 10));
    EXPECT_EQ(b[0], 30);
    EXPECT_EQ(f.readCalls, 1);  // a stream that ends inside the first block costs one transfer
    EXPECT_FALSE(r.Read(b, 1));
    EXPECT_EQ(r.Close(), 0);
    EXPECT_EQ(r.block, nullptr);
    EXPECT_EQ(r.file, &f);  // the stream stays named
}

TEST(AReadBuffer, FailuresGiveFalse) {
    MessageCapture capture;
    AReadBuffer r;
    EXPECT_FALSE(r.Create(16, nullptr));
    ASSERT_EQ(capture.messages().size(), 1u);
    EXPECT_EQ(capture.messages()[0], "bool AReadBuffer::Create( ABFile = NULL");

    AFailFile first(ramp(10));
    first.failReadCall = 1;
    EXPECT_FALSE(r.Create(16, &first));  // the first fill fails

    AFailFile later(ramp(20));
    later.failReadCall = 2;
    ASSERT_TRUE(r.Create(8, &later));
    unsigned char b[12];
    EXPECT_FALSE(r.Read(b, 12));  // the refill fails
    EXPECT_EQ(r.pos, 0);
}

TEST(AWriteBuffer, ExactlyFullBlockFlushesAtOnce) {
    AFailFile f;
    AWriteBuffer w;
    ASSERT_EQ(w.Create(8, &f), 8);
    EXPECT_EQ(w.Write("abc", 3), 3);
    EXPECT_EQ(w.used, 3);
    EXPECT_EQ(f.writeCalls, 0);
    // Five more bytes fill the block exactly: it goes out now, and the result counts the
    // flushed bytes, the earlier three included.
    EXPECT_EQ(w.Write("defgh", 5), 8);
    EXPECT_EQ(w.used, 0);
    EXPECT_EQ(f.writeCalls, 1);
    EXPECT_EQ(f.GetLength(), 8);

    EXPECT_EQ(w.Write("x", 0), 0);
    EXPECT_EQ(w.Write("x", -4), 0);
    EXPECT_EQ(w.Flush(), 0);  // empty block: no call of the stream
    EXPECT_EQ(f.writeCalls, 1);

    // A record straddling blocks, then Close writes what waits.
    std::vector<unsigned char> rec = ramp(19);
    EXPECT_GT(w.Write(rec.data(), 19), 0);
    EXPECT_EQ(w.used, 3);
    EXPECT_EQ(w.Close(), 0);
    EXPECT_EQ(w.block, nullptr);
    EXPECT_EQ(w.size, 0);
    ASSERT_EQ(f.GetLength(), 27);
    EXPECT_EQ(std::memcmp(f.Bytes().data() + 8, rec.data(), 19), 0);
}

TEST(AWriteBuffer, FailedFlushDropsTheBlockAndStaysUsable) {
    MessageCapture capture;
    AWriteBuffer none;
    EXPECT_EQ(none.Create(8, nullptr), 0);
    ASSERT_EQ(capture.messages().size(), 1u);
    EXPECT_EQ(capture.messages()[0], "int AWriteBuffer::Create( ABFile = NULL");

    AFailFile f;
    f.failWriteCall = 1;
    AWriteBuffer w;
    ASSERT_EQ(w.Create(8, &f), 8);
    EXPECT_EQ(w.Write("abcd", 4), 4);
    EXPECT_EQ(w.Flush(), -4);
    EXPECT_EQ(w.used, 0);
    EXPECT_EQ(w.Write("efghijkl", 8), 8);  // the next flush works again
    EXPECT_EQ(f.GetLength(), 8);
    EXPECT_EQ(std::memcmp(f.Bytes().data(), "efghijkl", 8), 0);

    AFailFile g;
    g.failWriteCall = 1;
    AWriteBuffer v;
    v.Create(4, &g);
    EXPECT_EQ(v.Write("0123456789", 10), -1);  // the flush inside Write failed
    v.Close();

    ABaseWriteBuffer* base = &w;
    EXPECT_EQ(base->Flush(), 0);  // through the slot, the derived Flush runs
    w.Close();
}
