// Tests of the record reader and writer, the header statistics rule, the table layouts and the
// column checks of building a table.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include <merovane/foundation/AMemFile.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/UVXTableLayouts.h>

#include "UVXTestFiles.h"

using namespace uvxtest;

namespace {

// A file of `n` records from MakeRecord, opened for reading.
struct AReadableFile {
    AMemFile* mem;
    AUVXFile file;
    explicit AReadableFile(int n, std::vector<unsigned char> bytes = {}) {
        if (bytes.empty()) bytes = FileBytes(n, true);
        mem = new AMemFile(std::move(bytes));
        EXPECT_TRUE(file.Open(mem, true)) << file.m_errMsg.GetString();
    }
};

std::vector<unsigned char> RecordBytes(const AUVXGroup& g, const AUVXVisibility& v) {
    std::vector<unsigned char> out(sizeof g + sizeof(AUVXComplex) * static_cast<std::size_t>(v.count));
    std::memcpy(out.data(), &g, sizeof g);
    std::memcpy(out.data() + sizeof g, v.data, sizeof(AUVXComplex) * static_cast<std::size_t>(v.count));
    return out;
}

}  // namespace

// Every record comes back byte for byte, from the first or from a later one, also when the block is
// smaller than a record and records straddle the refills; the end is no failure.
TEST(AUVXRecordReader, DeliversEveryRecordInOrderWithAnyBlock) {
    for (int block : {7, 218, 1000, AUVXRecordReader::kBlockBytes}) {
        for (int first : {0, 3, 9}) {
            AReadableFile f(9);
            AUVXRecordReader reader;
            ASSERT_TRUE(reader.Open(f.file, first, block)) << reader.m_errMsg.GetString();
            EXPECT_EQ(reader.Count(), 9);
            EXPECT_EQ(reader.ElementCount(), 16);
            AUVXGroup g;
            AUVXVisibility vis(1, 1, 1);  // another shape: the reader gives it the file's
            int k = first;
            while (reader.Next(g, vis)) {
                EXPECT_EQ(RecordBytes(g, vis), MakeRecord(k)) << "block " << block << " record " << k;
                ++k;
            }
            EXPECT_EQ(k, 9) << "block " << block;
            EXPECT_FALSE(reader.Failed()) << reader.m_errMsg.GetString();
            EXPECT_EQ(vis.nIF, 2);
            EXPECT_EQ(vis.nChan, 4);
            EXPECT_EQ(vis.nStokes, 2);
            EXPECT_EQ(reader.Position(), 9);
        }
    }
}

// The tables behind the records are never taken for records, and a start outside the file, a closed
// file and a stream that fails in the middle give their texts.
TEST(AUVXRecordReader, RefusalsAndFailuresSayWhat) {
    AReadableFile f(4);
    AUVXRecordReader reader;
    EXPECT_FALSE(reader.Open(f.file, 5));
    EXPECT_EQ(reader.m_errMsg, "Cannot read from record 5: the file holds 4");
    EXPECT_FALSE(reader.Open(f.file, -1));

    AUVXFile closed;
    EXPECT_FALSE(reader.Open(closed));
    EXPECT_EQ(reader.m_errMsg, "Cannot read records: no file is open");

    // Blocks of 300 bytes: the first holds record 1 and the head of record 2, the second fill fails,
    // so record 1 arrives and the failure names record 2.
    AFailFile* failing = new AFailFile(FileBytes(4, true));
    AUVXFile file;
    ASSERT_TRUE(file.Open(failing, true));
    failing->readLimit = failing->bytesRead + 330;
    ASSERT_TRUE(reader.Open(file, 0, 300));
    AUVXGroup g;
    AUVXVisibility vis(file);
    EXPECT_TRUE(reader.Next(g, vis));
    EXPECT_FALSE(reader.Next(g, vis));
    EXPECT_EQ(reader.m_errMsg, "Cannot read record 2 of 4: the file ends early or a read failed");
    EXPECT_FALSE(reader.Next(g, vis));  // and stays stopped
}

// The statistics widen element by element: a NaN takes the minimum and the next value takes it back,
// the maximum never takes a NaN; flagged elements count. The fast path for records inside the
// range must give what the ordered walk gives.
TEST(WidenStatistics, OrderedRuleWithNaNAndFlags) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    AUVXHeader h;
    h.reMin = 0.0;
    h.reMax = 1.0;
    h.imMin = -1.0;
    h.imMax = 1.0;
    // Inside the range: nothing changes (the fast path).
    std::vector<AUVXComplex> inside(9, AUVXComplex{0.5f, 0.0f, 1.0f});
    WidenStatistics(h, inside.data(), 9);
    EXPECT_EQ(h.reMin, 0.0);
    EXPECT_EQ(h.reMax, 1.0);

    // NaN last leaves the minimum NaN; NaN then a value gives the value back.
    std::vector<AUVXComplex> e = {{2.0f, -3.0f, -1.0f}, {-0.25f, 0.0f, 1.0f}, {nan, nan, 1.0f},
                                  {0.75f, 0.5f, 1.0f},  {1.0f, 0.0f, 1.0f},   {nan, 0.0f, 1.0f}};
    AUVXHeader a = h;
    WidenStatistics(a, e.data(), 6);
    EXPECT_TRUE(std::isnan(a.reMin));
    EXPECT_EQ(a.reMax, 2.0);  // a flagged element counts
    EXPECT_EQ(a.imMin, 0.0);  // NaN took -3 away, 0.5 then 0.0 came back... in order
    EXPECT_EQ(a.imMax, 1.0);
    // Element by element on the same data gives the same (the rule is order-true in one call).
    AUVXHeader b = h;
    for (const AUVXComplex& x : e) WidenStatistics(b, &x, 1);
    EXPECT_TRUE(std::isnan(b.reMin));
    EXPECT_EQ(b.imMin, a.imMin);
    EXPECT_EQ(b.reMax, a.reMax);
}

// Records written through the writer read back as written; the stored header holds the widened
// statistics; a reset start from an empty file ends with zeros, not infinities.
TEST(AUVXRecordWriter, RoundTripAndStatistics) {
    AMemFile* mem = new AMemFile();
    AUVXHeader h = MakeHeader();
    {
        AUVXFile out;
        ASSERT_TRUE(out.Create(mem, false));
        AUVXRecordWriter writer;
        ASSERT_TRUE(writer.Open(out, h, true, 100)) << writer.m_errMsg.GetString();
        for (int k = 0; k < 6; ++k) {
            AUVXGroup g;
            AUVXVisibility vis(2, 4, 2);
            for (int i = 0; i < vis.count; ++i) vis.data[i] = {k + 0.5f * i, -k - 0.25f * i, 1.0f};
            std::memset(&g, 0, sizeof g);
            g.time = 100.0 + k;
            g.ant1 = 1;
            g.ant2 = static_cast<std::int8_t>(2 + k % 2);
            ASSERT_TRUE(writer.Write(g, vis)) << writer.m_errMsg.GetString();
        }
        AUVXVisibility wrong(1, 4, 2);
        AUVXGroup g{};
        EXPECT_FALSE(writer.Write(g, wrong));
        EXPECT_EQ(writer.m_errMsg, "A visibility of 8 elements given for records of 16");
        EXPECT_EQ(writer.Records(), 6);
        ASSERT_TRUE(writer.Finish()) << writer.m_errMsg.GetString();
        ASSERT_NE(out.Close(), 0) << out.m_errMsg.GetString();
    }
    AUVXFile in;
    ASSERT_TRUE(in.Open(new AMemFile(mem->Bytes()), true)) << in.m_errMsg.GetString();
    delete mem;
    EXPECT_EQ(in.nGroups, 6);
    EXPECT_EQ(in.GetHeader().reMin, 0.0);
    EXPECT_EQ(in.GetHeader().reMax, 5 + 0.5 * 15);
    EXPECT_EQ(in.GetHeader().imMin, -5 - 0.25 * 15);
    EXPECT_EQ(in.GetHeader().imMax, 0.0);
    // The rest of the header is the one given.
    EXPECT_EQ(std::memcmp(in.GetHeader().dateObs, h.dateObs, 120), 0);
    AUVXRecordReader reader;
    ASSERT_TRUE(reader.Open(in));
    AUVXGroup g;
    AUVXVisibility vis(in);
    for (int k = 0; k < 6; ++k) {
        ASSERT_TRUE(reader.Next(g, vis));
        EXPECT_EQ(g.time, 100.0 + k);
        EXPECT_EQ(g.ant2, 2 + k % 2);
        EXPECT_EQ(vis.data[15].re, k + 7.5f);
    }

    AMemFile empty;
    AUVXFile out;
    ASSERT_TRUE(out.Create(&empty, false));
    AUVXRecordWriter writer;
    ASSERT_TRUE(writer.Open(out, h));
    ASSERT_TRUE(writer.Finish());
    EXPECT_EQ(writer.Header().reMin, 0.0);
    EXPECT_EQ(writer.Header().imMax, 0.0);
    // Without the reset the given statistics are widened, not replaced.
    AMemFile kept;
    AUVXFile out2;
    ASSERT_TRUE(out2.Create(&kept, false));
    h.reMin = -9.0;
    h.reMax = 9.0;
    ASSERT_TRUE(writer.Open(out2, h, false));
    AUVXVisibility one(2, 4, 2);
    for (int i = 0; i < one.count; ++i) one.data[i] = {1.0f, 2.0f, 1.0f};
    AUVXGroup g2{};
    ASSERT_TRUE(writer.Write(g2, one));
    ASSERT_TRUE(writer.Finish());
    EXPECT_EQ(writer.Header().reMin, -9.0);
    EXPECT_EQ(writer.Header().reMax, 9.0);
}

// A block that cannot be flushed is reported and not taken for written.
TEST(AUVXRecordWriter, FailedWritesAreReported) {
    AFailFile failing;
    AUVXFile out;
    ASSERT_TRUE(out.Create(&failing, false));
    AUVXRecordWriter writer;
    ASSERT_TRUE(writer.Open(out, MakeHeader(), true, kRecordBytes));
    failing.failWriteCall = failing.writeCalls + 1;
    AUVXVisibility vis(2, 4, 2);
    vis.ZeroInit();
    AUVXGroup g{};
    // The group fits the block; the visibility fills it and the flush fails.
    EXPECT_FALSE(writer.Write(g, vis));
    EXPECT_EQ(writer.m_errMsg, "Error write Visibility data");

    AUVXRecordWriter notOpen;
    EXPECT_FALSE(notOpen.Write(g, vis));
    EXPECT_EQ(notOpen.m_errMsg, "Cannot write records: the writer is not open");
    EXPECT_FALSE(notOpen.Finish());
}

// A table made from a layout has the columns in the order of its index enum, per-IF columns with
// the file's IF count, and reads back through the library's lookups.
TEST(UVXTableLayouts, CreateTableGivesTheColumnsTheReadersFind) {
    struct ACase {
        const AUVXTableLayout* layout;
        const char* name;
        int nCols;
    } cases[] = {{&kLayoutAN, "AN", 3},
                 {&kLayoutSU, "SU", 4},
                 {&kLayoutFQ, "FQ", 5},
                 {&kLayoutSL, "SL", 3},
                 {&kLayoutAI, "AI", 5}};
    for (const ACase& c : cases) {
        AUVXTable t;
        ASSERT_TRUE(CreateTable(t, *c.layout, 3)) << c.name;
        EXPECT_EQ(t.GetName(), c.name);
        EXPECT_EQ(t.nCols, c.nCols);
        for (int col = 0; col < t.nCols; ++col)
            EXPECT_EQ(t.ColumnIndex(LayoutColumnName(*c.layout, col)), col) << c.name << " " << col;
    }
    AUVXTable fq;
    ASSERT_TRUE(CreateTable(fq, kLayoutFQ, 3));
    EXPECT_EQ(fq.ParseFormat(kFQIfFreq).count, 3);
    EXPECT_EQ(fq.ParseFormat(kFQSideband).count, 3);
    EXPECT_EQ(fq.ParseFormat(kFQFrqSel).count, 1);
    AUVXTable noIF;
    ASSERT_TRUE(CreateTable(noIF, kLayoutFQ, 0));
    EXPECT_EQ(noIF.ParseFormat(kFQChWidth).count, 1);
    EXPECT_FALSE(CreateTable(fq, kLayoutAN, 1));  // a table that has columns already

    AUVXTable an;
    ASSERT_TRUE(CreateTable(an, kLayoutAN, 1));
    an.SetKeyword(kKeyXyzHand, "LEFT");
    const int r = an.AddRow();
    an.SetText(r, kANName, "EF");
    an.SetDouble(r, kANStabXyz, 4033947.2, 0);
    an.SetDouble(r, kANNoSta, 7);
    AUVXAntenns ants(an);
    ASSERT_EQ(ants.count, 1);
    EXPECT_EQ(ants.ForID(7).Name(), "EF");
    EXPECT_FALSE(ants.rightHanded);
}

// A column name or unit that does not fit its field is refused, not cut; exactly full is accepted.
TEST(AUVXTable, AddColumnRefusesNamesThatDoNotFit) {
    AUVXTable t("XX");
    EXPECT_EQ(t.AddColumn("ABCDEFGHIJKLMNOPQRST", 'J'), 0);  // 20 characters fill the field
    EXPECT_EQ(t.ColumnName(0), "ABCDEFGHIJKLMNOPQRST");
    EXPECT_EQ(t.AddColumn("ABCDEFGHIJKLMNOPQRSTU", 'J'), -1);
    EXPECT_EQ(t.m_errMsg, "Table \"XX\": column name \"ABCDEFGHIJKLMNOPQRSTU\" is longer than 20 characters");
    EXPECT_EQ(t.AddColumn("T", 'D', 1, "SECONDS!!"), -1);
    EXPECT_EQ(t.m_errMsg, "Table \"XX\": unit \"SECONDS!!\" of column \"T\" is longer than 8 characters");
    EXPECT_EQ(t.AddColumn("T", 'D', 1, "SECONDS!"), 1);
    EXPECT_EQ(t.nCols, 2);
}

// Telescope and source numbers in floating columns may be NaN or huge: they saturate instead of
// being undefined (the sanitizer build would stop on a plain cast).
TEST(AUVXAntenns, FloatingIdColumnsSaturate) {
    AUVXTable an("AN");
    an.AddColumn("ANNAME", 'A', 8);
    an.AddColumn("STABXYZ", 'D', 3);
    an.AddColumn("NOSTA", 'D');
    const double ids[] = {std::numeric_limits<double>::quiet_NaN(), 1e30, -1e30, 3.9, -2.5};
    const int expect[] = {0, 2147483647, -2147483647 - 1, 3, -2};
    for (double id : ids) an.SetDouble(an.AddRow(), 2, id);
    AUVXAntenns ants(an);
    ASSERT_EQ(ants.count, 5);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(ants.data[i].id, expect[i]) << i;
}
