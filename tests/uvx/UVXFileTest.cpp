// Round trips of UVX files through the creation sequence, in memory and on disk.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <merovane/foundation/AMemFile.h>
#include <merovane/foundation/AWriteBuffer.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecords.h>

#include "UVXTestFiles.h"

using namespace uvxtest;

// Several hundred records written through a write buffer into a file on disk, the header written again
// with its statistics, all five tables: everything comes back as it went in.
TEST(UVXFile, RoundTripOnDiskWithAllTables) {
    const std::string path = std::string(MEROVANE_TEST_TMP) + "/roundtrip.uvx";
    const int nRecords = 400;
    AUVXHeader h = MakeHeader();
    Tables tables;
    AUVXTable* built[] = {&tables.an, &tables.su, &tables.fq, &tables.sl, &tables.ai};
    {
        AUVXFile out;
        ASSERT_TRUE(out.Create(path.c_str())) << out.m_errMsg.GetString();
        ASSERT_NE(out.Write(h), 0);
        EXPECT_EQ(out.SeekUVGroup(0), 0);
        AWriteBuffer buffer;
        // A block that is no multiple of the record size, so that records straddle the flushes.
        ASSERT_EQ(buffer.Create(1000, out.file), 1000);
        for (int k = 0; k < nRecords; ++k) {
            std::vector<unsigned char> rec = MakeRecord(k);
            ASSERT_GT(buffer.Write(rec.data(), 26), 0);
            ASSERT_GT(buffer.Write(rec.data() + 26, kRecordBytes - 26), 0);
        }
        buffer.Close();
        h.reMin = -3.5;
        h.reMax = 7.25;
        h.imMin = -1.0;
        h.imMax = 1.0;
        ASSERT_NE(out.Write(h), 0);
        EXPECT_EQ(out.file->GetPos(), 498);
        for (AUVXTable* t : built) ASSERT_NE(out.AddTable(*t), 0) << out.m_errMsg.GetString();
        EXPECT_EQ(out.nGroups, nRecords);
        ASSERT_NE(out.Close(), 0) << out.m_errMsg.GetString();
        EXPECT_FALSE(out.IsOpen());
    }

    // The layout, checked on the raw bytes: prologue, header at 32, records from 498, tables, directory.
    std::ifstream stream(path, std::ios::binary);
    ASSERT_TRUE(stream.is_open()) << "cannot open " << path;
    const std::vector<unsigned char> raw{std::istreambuf_iterator<char>(stream), {}};
    const std::size_t recordsEnd = 498 + static_cast<std::size_t>(nRecords) * 218,
                      dirAt = recordsEnd + kTableBytes;
    ASSERT_EQ(raw.size(), dirAt + 2 + 5 * 8);
    EXPECT_EQ(std::memcmp(raw.data(), "MEROVUVX", 8), 0);
    EXPECT_EQ(Peek<std::uint32_t>(raw, 8), 1u);
    EXPECT_EQ(Peek<std::uint32_t>(raw, 12), 466u);
    EXPECT_EQ(Peek<std::int64_t>(raw, 16), nRecords);
    EXPECT_EQ(Peek<std::int64_t>(raw, 24), static_cast<std::int64_t>(dirAt));
    EXPECT_EQ(std::memcmp(raw.data() + 32, &h, 466), 0);
    EXPECT_EQ(Peek<std::int16_t>(raw, dirAt), 5);
    EXPECT_EQ(Peek<std::int64_t>(raw, dirAt + 2), static_cast<std::int64_t>(recordsEnd));

    AUVXFile in;
    ASSERT_TRUE(in.Open(path.c_str())) << in.m_errMsg.GetString();
    EXPECT_EQ(in.nGroups, nRecords);
    EXPECT_EQ(in.nIF, 2);
    AUVXHeader back(in);
    EXPECT_EQ(std::memcmp(&back, &h, sizeof(AUVXHeader)), 0);

    // Open leaves the stream at the first record; records come back byte for byte.
    EXPECT_EQ(in.file->GetPos(), 498);
    std::vector<unsigned char> records(static_cast<std::size_t>(nRecords) * kRecordBytes);
    ASSERT_NE(in.file->ReadHuge(records.data(), static_cast<std::int64_t>(records.size())), 0);
    for (int k = 0; k < nRecords; ++k)
        ASSERT_EQ(std::memcmp(records.data() + static_cast<std::size_t>(k) * kRecordBytes,
                              MakeRecord(k).data(), kRecordBytes),
                  0)
            << "record " << k;
    // SeekUVGroup lands on any record; the cube of the file's shape takes its visibilities.
    EXPECT_EQ(in.SeekUVGroup(123), 0);
    const std::vector<unsigned char> rec = MakeRecord(123);
    AUVXGroup g;
    ASSERT_NE(in.file->Read(&g, 26), 0);
    EXPECT_EQ(std::memcmp(&g, rec.data(), 26), 0);
    AUVXVisibility vis(in);
    ASSERT_EQ(vis.count, 16);
    ASSERT_NE(in.file->Read(vis.data, vis.count * 12), 0);
    EXPECT_EQ(std::memcmp(&vis.At(1, 2, 1), rec.data() + 26 + 12 * ((1 * 4 + 2) * 2 + 1), 12), 0);

    // Tables in the order they were added, each identical to what was written; GetTable leaves the
    // stream where it was.
    AUVXTableHeader dir(in);
    ASSERT_EQ(dir.nTables, 5);
    for (int t = 0; t < 5; ++t) {
        EXPECT_TRUE(t == 0 || dir.positions[t - 1] < dir.positions[t]) << t;
        ASSERT_TRUE(in.Seek(dir.positions[t]));
        std::unique_ptr<AUVXTable> table(in.GetTable(built[t]->GetName()));
        ASSERT_TRUE(table) << built[t]->GetName().GetString();
        ASSERT_TRUE(table->IsValid());
        const std::vector<unsigned char> want = Stored(*built[t]);
        ASSERT_FALSE(want.empty());
        EXPECT_TRUE(Stored(*table) == want) << "table " << t;
        EXPECT_EQ(in.file->GetPos(), dir.positions[t]);
        AUVXTable direct(*in.file);
        EXPECT_EQ(direct.GetName(), built[t]->GetName());
    }
    EXPECT_EQ(in.GetTable("NX"), nullptr);
    EXPECT_EQ(in.Close(), 1);
    std::remove(path.c_str());
}

// A file without records but with tables, one with records but no tables, and one with neither.
TEST(UVXFile, EmptyStreamsAndNoTables) {
    for (int variant = 0; variant < 3; ++variant) {
        const int nRecords = variant == 1 ? 250 : 0;
        const bool tables = variant == 0;
        SCOPED_TRACE(variant);
        std::vector<unsigned char> bytes = FileBytes(nRecords, tables);
        ASSERT_FALSE(bytes.empty());
        const std::size_t dirPos = Peek<std::int64_t>(bytes, 24);
        EXPECT_EQ(Peek<std::int16_t>(bytes, dirPos), tables ? 5 : 0);
        EXPECT_EQ(bytes.size(), dirPos + 2 + (tables ? 40 : 0));
        EXPECT_EQ(dirPos, 498u + 218u * nRecords + (tables ? kTableBytes : 0));

        AMemFile mem(bytes);
        AUVXFile in;
        ASSERT_TRUE(in.Open(&mem)) << in.m_errMsg.GetString();
        EXPECT_EQ(in.nGroups, nRecords);
        EXPECT_EQ(AUVXTableHeader(in).nTables, tables ? 5 : 0);
        std::unique_ptr<AUVXTable> an(in.GetTable("AN")), ai(in.GetTable("AI"));
        EXPECT_EQ(an != nullptr, tables);
        ASSERT_EQ(ai != nullptr, tables);
        if (!tables) continue;
        EXPECT_EQ(ai->nRows, 4);
    }
}

// The record count follows from where the records end: a stream that ends inside a record is refused
// when the count is fixed, and the file is not completed. A file opened for reading refuses writes; a
// header never written leaves Close nothing to count.
TEST(UVXFile, RecordCountAndRefusedWrites) {
    const std::string notWhole =
        "the records end at byte 816, which is not a whole number of records of 218 bytes behind the header";
    AMemFile mem;
    AUVXFile out;
    ASSERT_TRUE(out.Create(&mem));
    AUVXHeader h = MakeHeader();
    ASSERT_NE(out.Write(h), 0);
    out.SeekUVGroup(0);
    ASSERT_NE(out.file->Write(MakeRecord(0).data(), kRecordBytes), 0);
    ASSERT_NE(out.file->Write(MakeRecord(0).data(), 100), 0);
    Tables tables;
    EXPECT_EQ(out.AddTable(tables.sl), 0);
    EXPECT_EQ(out.m_errMsg, notWhole);
    EXPECT_EQ(out.Close(), 0);
    EXPECT_EQ(out.m_errMsg, notWhole);
    AUVXFile in;
    EXPECT_FALSE(in.Open(&mem));
    EXPECT_EQ(in.m_errMsg, "incomplete file: it has no table directory (it was not closed)");

    AMemFile seven;
    AUVXFile out7, in7;
    ASSERT_TRUE(out7.Create(&seven));
    ASSERT_TRUE(WriteFile(out7, 7, false));
    ASSERT_TRUE(in7.Open(&seven));
    EXPECT_EQ(in7.nGroups, 7);
    EXPECT_EQ(in7.Write(h), 0);
    EXPECT_EQ(in7.m_errMsg, "the file is open for reading: its header cannot be written");
    EXPECT_EQ(in7.AddTable(tables.sl), 0);
    EXPECT_EQ(in7.m_errMsg, "the file is open for reading: no table can be added");

    AMemFile empty;
    AUVXFile bare;
    ASSERT_TRUE(bare.Create(&empty));
    EXPECT_EQ(bare.Close(), 0);
    EXPECT_EQ(bare.m_errMsg, "the header was not written");
}

// A failing stream: the error reaches m_errMsg and nothing crashes.
TEST(UVXFile, WriteFailuresAreReported) {
    AFailFile fail;
    fail.failWriteCall = 1;
    AUVXFile out;
    EXPECT_FALSE(out.Create(&fail));
    EXPECT_EQ(out.m_errMsg, "cannot write the prologue");
    EXPECT_FALSE(out.IsOpen());

    // Writes: prologue, header, 3 records, header, then the directory fails.
    AFailFile late;
    late.failWriteCall = 7;
    AUVXFile out2;
    ASSERT_TRUE(out2.Create(&late));
    EXPECT_FALSE(WriteFile(out2, 3, false));
    EXPECT_EQ(out2.m_errMsg, "cannot write the table directory");
}
