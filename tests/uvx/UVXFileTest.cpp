// Round trips of UVX files through the creation sequence, in memory and on disk.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <merovane/foundation/AMemFile.h>
#include <merovane/foundation/AWriteBuffer.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecords.h>

#include "UVXTestFiles.h"

using namespace uvxtest;

namespace {

// memcmp that accepts the null storage of an empty array.
bool SameBytes(const void* a, const void* b, std::size_t n) {
    return n == 0 || std::memcmp(a, b, n) == 0;
}

void ExpectSameTable(const AUVXTable& built, const AUVXTable& read) {
    ASSERT_TRUE(read.IsValid()) << read.m_errMsg.GetString();
    EXPECT_EQ(read.GetName(), built.GetName());
    ASSERT_EQ(read.nCols, built.nCols);
    EXPECT_TRUE(SameBytes(read.columns, built.columns, 36 * static_cast<std::size_t>(built.nCols)));
    EXPECT_EQ(read.rowBytes, built.rowBytes);
    ASSERT_EQ(read.nRows, built.nRows);
    EXPECT_TRUE(SameBytes(read.rows, built.rows, static_cast<std::size_t>(built.nRows * built.rowBytes)));
    ASSERT_EQ(read.keywords.count, built.keywords.count);
    EXPECT_TRUE(SameBytes(read.keywords.data, built.keywords.data,
                          40 * static_cast<std::size_t>(built.keywords.count)));
}

std::string TmpPath(const char* name) {
    return std::string(MEROVANE_TEST_TMP) + "/" + name;
}

std::vector<unsigned char> ReadWholeFile(const std::string& path) {
    std::vector<unsigned char> bytes;
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return bytes;
    int c;
    while ((c = std::fgetc(f)) != EOF) bytes.push_back(static_cast<unsigned char>(c));
    std::fclose(f);
    return bytes;
}

}  // namespace

// Several hundred records written through a write buffer into a file on disk, the header written again
// with its statistics, all five tables: everything comes back as it went in.
TEST(UVXFile, RoundTripOnDiskWithAllTables) {
    const std::string path = TmpPath("roundtrip.uvx");
    const int nRecords = 400;
    AUVXHeader h = MakeHeader();
    AUVXTable an, su, fq, sl, ai;
    AddAN(an, false);
    AddSU(su);
    AddFQ(fq);
    AddSL(sl);
    AddAI(ai);
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
        for (AUVXTable* t : {&an, &su, &fq, &sl, &ai})
            ASSERT_NE(out.AddTable(*t), 0) << out.m_errMsg.GetString();
        EXPECT_EQ(out.nGroups, nRecords);
        ASSERT_NE(out.Close(), 0) << out.m_errMsg.GetString();
        EXPECT_FALSE(out.IsOpen());
    }

    // The layout, checked on the raw bytes: prologue, header at 32, records from 498, tables, directory.
    const std::vector<unsigned char> raw = ReadWholeFile(path);
    const std::size_t recordsEnd = 498 + static_cast<std::size_t>(nRecords) * 218;
    // Rows: AN 8+24+4, SU 4+16+8+8, FQ 4+16+8+8+8, SL 8+8+4, AI 8+4+4+4+4 bytes.
    const std::size_t tableBytes = (32 + 3 * 36 + 1 * 40 + 4 * 36) + (32 + 4 * 36 + 3 * 36) +
                                   (32 + 5 * 36 + 2 * 44) + (32 + 3 * 36 + 40 + 3 * 20) +
                                   (32 + 5 * 36 + 3 * 40 + 4 * 24);
    ASSERT_EQ(raw.size(), recordsEnd + tableBytes + 2 + 5 * 8);
    EXPECT_EQ(std::memcmp(raw.data(), "MEROVUVX", 8), 0);
    EXPECT_EQ(Peek<std::uint32_t>(raw, 8), 1u);
    EXPECT_EQ(Peek<std::uint32_t>(raw, 12), 466u);
    EXPECT_EQ(Peek<std::int64_t>(raw, 16), nRecords);
    EXPECT_EQ(Peek<std::int64_t>(raw, 24), static_cast<std::int64_t>(recordsEnd + tableBytes));
    EXPECT_EQ(std::memcmp(raw.data() + 32, &h, 466), 0);
    EXPECT_EQ(Peek<double>(raw, 32 + 128), -3.5);  // reMin where hosts expect it
    EXPECT_EQ(Peek<std::int16_t>(raw, 32 + 176), 2);
    EXPECT_EQ(Peek<std::int32_t>(raw, 32 + 198), 4);
    EXPECT_EQ(std::memcmp(raw.data() + recordsEnd, "AN\0\0", 4), 0);
    EXPECT_EQ(Peek<std::int32_t>(raw, recordsEnd + 16), 3);   // nCols
    EXPECT_EQ(Peek<std::int32_t>(raw, recordsEnd + 20), 4);   // nRows
    EXPECT_EQ(Peek<std::int32_t>(raw, recordsEnd + 24), 36);  // rowBytes
    EXPECT_EQ(Peek<std::int32_t>(raw, recordsEnd + 28), 1);   // nKeywords
    EXPECT_EQ(std::memcmp(raw.data() + recordsEnd + 32, "ANNAME", 7), 0);
    EXPECT_EQ(raw[recordsEnd + 32 + 28], 'A');
    EXPECT_EQ(Peek<std::int32_t>(raw, recordsEnd + 32 + 32), 8);
    EXPECT_EQ(Peek<std::int16_t>(raw, recordsEnd + tableBytes), 5);
    EXPECT_EQ(Peek<std::int64_t>(raw, recordsEnd + tableBytes + 2), static_cast<std::int64_t>(recordsEnd));

    AUVXFile in;
    ASSERT_TRUE(in.Open(path.c_str())) << in.m_errMsg.GetString();
    EXPECT_EQ(in.nGroups, nRecords);
    EXPECT_EQ(in.nIF, 2);
    AUVXHeader back(in);
    EXPECT_EQ(std::memcmp(&back, &h, sizeof(AUVXHeader)), 0);
    EXPECT_EQ(AUVXHeader::Text(back.telescope, 16), "TESTARRAY");

    // Open leaves the stream at the first record; records come back byte for byte.
    EXPECT_EQ(in.file->GetPos(), 498);
    std::vector<unsigned char> records(static_cast<std::size_t>(nRecords) * kRecordBytes);
    ASSERT_NE(in.file->ReadHuge(records.data(), static_cast<std::int64_t>(records.size())), 0);
    for (int k = 0; k < nRecords; ++k) {
        std::vector<unsigned char> rec = MakeRecord(k);
        ASSERT_EQ(std::memcmp(records.data() + static_cast<std::size_t>(k) * kRecordBytes, rec.data(),
                              kRecordBytes),
                  0)
            << "record " << k;
    }
    // SeekUVGroup lands on any record.
    EXPECT_EQ(in.SeekUVGroup(123), 0);
    AUVXGroup g;
    ASSERT_NE(in.file->Read(&g, 26), 0);
    EXPECT_EQ(static_cast<double>(g.time), 3600.0 + 2.0 * 123);
    AUVXVisibility vis(in);
    ASSERT_EQ(vis.count, 16);
    ASSERT_NE(in.file->Read(vis.data, vis.count * 12), 0);
    EXPECT_EQ(vis.At(1, 2, 1).re, 123.0f + 0.5f * ((1 * 4 + 2) * 2 + 1));

    // Tables in the order they were added, each identical to what was written.
    AUVXTableHeader dir(in);
    ASSERT_EQ(dir.nTables, 5);
    const char* order[] = {"AN", "SU", "FQ", "SL", "AI"};
    const AUVXTable* built[] = {&an, &su, &fq, &sl, &ai};
    for (int t = 0; t < 5; ++t) {
        if (t > 0) {
            EXPECT_LT(dir.positions[t - 1], dir.positions[t]);
        }
        ASSERT_TRUE(in.Seek(dir.positions[t]));
        AUVXTable direct(*in.file);
        EXPECT_EQ(direct.GetName(), order[t]);
        const std::int64_t before = in.file->GetPos();
        std::unique_ptr<AUVXTable> table(in.GetTable(order[t]));
        ASSERT_TRUE(table) << order[t];
        EXPECT_EQ(in.file->GetPos(), before);  // GetTable keeps the stream position
        ExpectSameTable(*built[t], *table);
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
        std::vector<unsigned char> bytes = FileBytes(nRecords, tables);
        ASSERT_FALSE(bytes.empty());
        const std::size_t dirPos = Peek<std::int64_t>(bytes, 24);
        EXPECT_EQ(Peek<std::int16_t>(bytes, dirPos), tables ? 5 : 0);
        EXPECT_EQ(bytes.size(), dirPos + 2 + (tables ? 40 : 0));
        if (!tables) {
            EXPECT_EQ(dirPos, 498u + 218u * nRecords);
        }

        AMemFile mem(bytes);
        AUVXFile in;
        ASSERT_TRUE(in.Open(&mem)) << in.m_errMsg.GetString();
        EXPECT_EQ(in.nGroups, nRecords);
        AUVXTableHeader dir(in);
        EXPECT_EQ(dir.nTables, tables ? 5 : 0);
        std::unique_ptr<AUVXTable> an(in.GetTable("AN"));
        EXPECT_EQ(an != nullptr, tables);
        std::unique_ptr<AUVXTable> ai(in.GetTable("AI"));
        EXPECT_EQ(ai != nullptr, tables);
        if (tables) {
            EXPECT_EQ(ai->nRows, 4);
        }
    }
}

// The record count follows from where the records end; a stream that ends inside a record is refused
// when the count is fixed, and the file is not completed.
TEST(UVXFile, RecordCountMustDivideTheStream) {
    AMemFile mem;
    AUVXFile out;
    ASSERT_TRUE(out.Create(&mem));
    AUVXHeader h = MakeHeader();
    ASSERT_NE(out.Write(h), 0);
    out.SeekUVGroup(0);
    std::vector<unsigned char> rec = MakeRecord(0);
    ASSERT_NE(out.file->Write(rec.data(), kRecordBytes), 0);
    ASSERT_NE(out.file->Write(rec.data(), 100), 0);
    AUVXTable sl;
    AddSL(sl);
    EXPECT_EQ(out.AddTable(sl), 0);
    EXPECT_EQ(
        out.m_errMsg,
        "the records end at byte 816, which is not a whole number of records of 218 bytes behind the header");
    EXPECT_EQ(out.Close(), 0);
    EXPECT_EQ(
        out.m_errMsg,
        "the records end at byte 816, which is not a whole number of records of 218 bytes behind the header");
    // The prologue was never completed, so the stream does not open as a file.
    AUVXFile in;
    EXPECT_FALSE(in.Open(&mem));
    EXPECT_EQ(in.m_errMsg, "incomplete file: it has no table directory (it was not closed)");
}

// Close without any AddTable fixes the count itself; the second Write may change the statistics
// but the file keeps its record count. Writing a header or a table into a file opened for reading fails.
TEST(UVXFile, CloseFixesCountAndReadFilesRefuseWrites) {
    AMemFile mem;
    AUVXFile out;
    ASSERT_TRUE(out.Create(&mem));
    ASSERT_TRUE(WriteFile(out, 7, false));
    AUVXFile in;
    ASSERT_TRUE(in.Open(&mem));
    EXPECT_EQ(in.nGroups, 7);
    AUVXHeader h = MakeHeader();
    EXPECT_EQ(in.Write(h), 0);
    EXPECT_EQ(in.m_errMsg, "the file is open for reading: its header cannot be written");
    AUVXTable sl;
    AddSL(sl);
    EXPECT_EQ(in.AddTable(sl), 0);
    EXPECT_EQ(in.m_errMsg, "the file is open for reading: no table can be added");

    // A header never written: Close cannot count records.
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
