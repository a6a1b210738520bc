// Round trips of UVX files through the creation sequence, in memory and on disk.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include <merovane/foundation/AMemFile.h>
#include <merovane/foundation/AWriteBuffer.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecords.h>

namespace {

AUVXHeader smallHeader() {
    AUVXHeader h;
    h.refJD = 2455554.5;
    h.nStokes = 2;
    h.stokes[0] = -1;
    h.stokes[1] = -2;
    h.nIF = 2;
    h.nChan = 3;
    return h;
}

}  // namespace

TEST(UVXFileSmoke, RecordsAndOneTableSurviveReopening) {
    AMemFile mem;
    AUVXFile out;
    ASSERT_TRUE(out.Create(&mem));
    AUVXHeader h = smallHeader();
    ASSERT_NE(out.Write(h), 0);
    EXPECT_EQ(out.SeekUVGroup(0), 0);
    // 26 + 12 x 2 x 3 x 2 bytes a record.
    ASSERT_EQ(AUVXFile::RecordBytes(h), 26 + 144);
    for (int k = 0; k < 5; ++k) {
        AUVXGroup g = {};
        g.time = 10.0 * k;
        g.ant1 = 1;
        g.ant2 = static_cast<std::int8_t>(2 + k);
        AUVXVisibility vis(2, 3, 2);
        for (int i = 0; i < vis.count; ++i) vis[i] = AUVXComplex{float(k), float(i), 1.0f};
        ASSERT_NE(out.file->Write(&g, 26), 0);
        ASSERT_NE(out.file->Write(vis.data, vis.count * 12), 0);
    }
    ASSERT_NE(out.Write(h), 0);
    AUVXTable sl("SL");
    sl.AddColumn("START", 'D');
    sl.AddColumn("END", 'D');
    sl.SetKeyword("REFDAY", 55554);
    int r = sl.AddRow();
    sl.SetDouble(r, 0, 0.0);
    sl.SetDouble(r, 1, 40.0);
    ASSERT_NE(out.AddTable(sl), 0) << out.m_errMsg.GetString();
    ASSERT_NE(out.Close(), 0) << out.m_errMsg.GetString();

    AUVXFile in;
    ASSERT_TRUE(in.Open(&mem)) << in.m_errMsg.GetString();
    EXPECT_EQ(in.nGroups, 5);
    EXPECT_EQ(in.nIF, 2);
    std::unique_ptr<AUVXTable> t(in.GetTable("SL"));
    ASSERT_TRUE(t);
    EXPECT_EQ(t->nRows, 1);
    EXPECT_EQ(t->GetDouble(0, 1), 40.0);
    AUVXGroup g;
    in.SeekUVGroup(3);
    ASSERT_NE(in.file->Read(&g, 26), 0);
    EXPECT_EQ(g.time, 30.0);
    EXPECT_EQ(g.ant2, 5);
}
