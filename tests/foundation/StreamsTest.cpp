// Tests of the byte streams: a real file, the in-memory stream and the failing stream.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include <merovane/foundation/AFile.h>
#include <merovane/foundation/AMemFile.h>

namespace {
std::string tempPath(const char* name) {
    return std::string(MEROVANE_TEST_TMP) + "/" + name;
}
}  // namespace

TEST(ABFile, WritesReadsSeeksAndReportsMissingFiles) {
    const std::string path = tempPath("streams_real.bin");
    {
        ABFile f;
        ASSERT_TRUE(f.Open(path.c_str(), PlatformOpenMode::Create)) << f.GetErrorText();
        EXPECT_NE(f.Write("0123456789", 10), 0);
        EXPECT_EQ(f.GetPos(), 10);
        EXPECT_EQ(f.GetLength(), 10);
        EXPECT_NE(f.Write("", 0), 0);  // nothing to do is success
        EXPECT_EQ(f.Write("x", -1), 0);
        EXPECT_TRUE(f.Close());
    }
    ABFile f;
    ASSERT_TRUE(f.Open(path.c_str(), PlatformOpenMode::Read));
    char buf[16] = {};
    EXPECT_NE(f.Seek(6), 0);
    EXPECT_NE(f.Read(buf, 4), 0);  // exactly the last bytes
    EXPECT_EQ(std::string(buf, 4), "6789");
    EXPECT_EQ(f.Read(buf, 1), 0);  // nothing left
    EXPECT_EQ(f.Seek(-1), 0);
    EXPECT_NE(f.Seek(8), 0);
    EXPECT_EQ(f.ReadHuge(buf, 5), 0);  // only 2 of 5 bytes there
    f.Close();
    std::remove(path.c_str());

    ABFile missing;
    const std::string nowhere = tempPath("no/such/file.uvx");
    EXPECT_FALSE(missing.Open(nowhere.c_str(), PlatformOpenMode::Read));
    EXPECT_EQ(missing.GetErrorText(), CString((nowhere + ": No such file or directory").c_str()));
    EXPECT_EQ(missing.Read(buf, 1), 0);  // a closed file transfers nothing
    EXPECT_EQ(missing.GetLength(), -1);
}

TEST(AMemFile, BehavesLikeAFile) {
    AMemFile m;
    EXPECT_NE(m.Write("abc", 3), 0);
    EXPECT_NE(m.Seek(5), 0);  // past the end: the gap reads as zeros once written over
    EXPECT_NE(m.Write("z", 1), 0);
    EXPECT_EQ(m.GetLength(), 6);
    EXPECT_EQ(m.Bytes()[3], 0);
    EXPECT_NE(m.Seek(0), 0);
    char buf[8] = {};
    EXPECT_NE(m.Read(buf, 6), 0);
    EXPECT_EQ(buf[5], 'z');
    EXPECT_EQ(m.Read(buf, 1), 0);
    EXPECT_EQ(m.Seek(-2), 0);
}

TEST(AFailFile, FailsTheCallOrTheByteItIsToldTo) {
    AFailFile f(std::vector<unsigned char>(100, 7));
    f.failReadCall = 2;
    char buf[100];
    EXPECT_NE(f.Read(buf, 10), 0);
    EXPECT_EQ(f.Read(buf, 10), 0);  // the second call
    EXPECT_NE(f.Read(buf, 10), 0);  // and only that one
    EXPECT_EQ(f.readCalls, 3);

    AFailFile g(std::vector<unsigned char>(100, 7));
    g.readLimit = 25;
    EXPECT_NE(g.Read(buf, 20), 0);
    EXPECT_EQ(g.Read(buf, 10), 0);  // crosses the limit: 5 bytes move, then it fails
    EXPECT_EQ(g.bytesRead, 25);
    EXPECT_EQ(g.GetPos(), 25);

    AFailFile w;
    w.writeLimit = 4;
    EXPECT_NE(w.Write("ab", 2), 0);
    EXPECT_EQ(w.Write("cdef", 4), 0);
    EXPECT_EQ(w.GetLength(), 4);
    w.failSeekCall = 1;
    EXPECT_EQ(w.Seek(0), 0);
    EXPECT_NE(w.Seek(0), 0);
    w.failLength = true;
    EXPECT_EQ(w.GetLength(), -1);
}
