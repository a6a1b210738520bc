// Damaged and foreign UVX files: each is refused with a clear text, without a crash or a read outside a
// buffer.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <merovane/foundation/AMemFile.h>
#include <merovane/uvx/AUVXFile.h>

#include "UVXTestFiles.h"

using namespace uvxtest;

namespace {

// Opens `bytes`; returns the error text, or "" when the file opened.
std::string OpenError(const std::vector<unsigned char>& bytes) {
    AMemFile mem(bytes);
    AUVXFile in;
    if (in.Open(&mem)) return "";
    EXPECT_FALSE(in.IsOpen());
    EXPECT_EQ(in.nGroups, 0);
    return in.m_errMsg.GetString();
}

// Opens `bytes` and fetches table `name`; returns the error text, or "" when the table came back valid.
std::string TableError(const std::vector<unsigned char>& bytes, const char* name) {
    AMemFile mem(bytes);
    AUVXFile in;
    if (!in.Open(&mem)) return "open: " + std::string(in.m_errMsg.GetString());
    std::unique_ptr<AUVXTable> t(in.GetTable(name));
    if (t) return "";
    return in.m_errMsg.GetString();
}

}  // namespace

TEST(UVXBadInput, MissingFile) {
    const std::string path = std::string(MEROVANE_TEST_TMP) + "/no-such-dir/missing.uvx";
    AUVXFile in;
    EXPECT_FALSE(in.Open(path.c_str()));
    const std::string prefix = "Cannot open UVX file " + path + ": ";
    EXPECT_EQ(std::string(in.m_errMsg.GetString()).substr(0, prefix.size()), prefix);
    EXPECT_GT(in.m_errMsg.GetLength(), static_cast<int>(prefix.size()));  // the system's reason follows
    EXPECT_FALSE(in.IsOpen());
    EXPECT_EQ(in.GetTable("AN"), nullptr);
    EXPECT_EQ(in.m_errMsg, "no file is open");
}

TEST(UVXBadInput, PrologueAndHeader) {
    const std::vector<unsigned char> good = FileBytes(10, false);
    ASSERT_EQ(good.size(), 498u + 10 * 218 + 2);
    ASSERT_EQ(OpenError(good), "");

    std::vector<unsigned char> b = good;
    b[3] = 'x';
    EXPECT_EQ(OpenError(b), "not a UVX file (wrong magic)");

    EXPECT_EQ(OpenError(std::vector<unsigned char>(good.begin(), good.begin() + 20)),
              "truncated prologue: the file has 20 bytes, a UVX file opens with 32");
    EXPECT_EQ(OpenError({}), "truncated prologue: the file has 0 bytes, a UVX file opens with 32");
    // A prologue that ends at 31 bytes is still short; one of 32 with a header cut short is not.
    EXPECT_EQ(OpenError(std::vector<unsigned char>(good.begin(), good.begin() + 31)),
              "truncated prologue: the file has 31 bytes, a UVX file opens with 32");
    EXPECT_EQ(OpenError(std::vector<unsigned char>(good.begin(), good.begin() + 300)),
              "truncated header: the file has 300 bytes, the header ends at 498");
    EXPECT_EQ(OpenError(std::vector<unsigned char>(good.begin(), good.begin() + 497)),
              "truncated header: the file has 497 bytes, the header ends at 498");

    b = good;
    Poke<std::uint32_t>(b, 8, 2);
    EXPECT_EQ(OpenError(b), "unsupported format version 2 (version 1 expected)");
    b = good;
    Poke<std::uint32_t>(b, 12, 465);
    EXPECT_EQ(OpenError(b), "header size 465 (466 expected)");

    b = good;
    Poke<std::int16_t>(b, 32 + 176, 0);
    EXPECT_EQ(OpenError(b), "bad header: nStokes 0 (1..8 expected)");
    Poke<std::int16_t>(b, 32 + 176, 9);
    EXPECT_EQ(OpenError(b), "bad header: nStokes 9 (1..8 expected)");
    b = good;
    Poke<std::int32_t>(b, 32 + 198, 0);
    EXPECT_EQ(OpenError(b), "bad header: nChan 0 (at least 1 expected)");
    b = good;
    Poke<std::int32_t>(b, 32 + 194, -1);
    EXPECT_EQ(OpenError(b), "bad header: nIF -1 (0..32767 expected)");
}

TEST(UVXBadInput, RecordCountAndDirectory) {
    const std::vector<unsigned char> good = FileBytes(10, false);
    const std::int64_t dirPos = 498 + 10 * 218;  // 2678; the file is 2680 bytes
    ASSERT_EQ(Peek<std::int64_t>(good, 24), dirPos);

    std::vector<unsigned char> b = good;
    // 2182 bytes behind the header hold 10 records of 218, not 11.
    Poke<std::int64_t>(b, 16, 11);
    EXPECT_EQ(OpenError(b), "record count 11 of 218 bytes each does not fit in 2182 bytes behind the header");
    Poke<std::int64_t>(b, 16, 1000000000000LL);
    EXPECT_EQ(OpenError(b), "bad record count 1000000000000");
    Poke<std::int64_t>(b, 16, -1);
    EXPECT_EQ(OpenError(b), "bad record count -1");
    // Fewer records than the stream holds leave unused bytes before the directory: that is allowed.
    b = good;
    Poke<std::int64_t>(b, 16, 9);
    EXPECT_EQ(OpenError(b), "");

    b = good;
    Poke<std::int64_t>(b, 24, 5000);
    EXPECT_EQ(OpenError(b), "table directory at byte 5000 lies outside [2678, 2678]");
    Poke<std::int64_t>(b, 24, 2679);  // its count would run past the end
    EXPECT_EQ(OpenError(b), "table directory at byte 2679 lies outside [2678, 2678]");
    Poke<std::int64_t>(b, 24, 600);  // inside the records
    EXPECT_EQ(OpenError(b), "table directory at byte 600 lies outside [2678, 2678]");
    Poke<std::int64_t>(b, 24, 0);
    EXPECT_EQ(OpenError(b), "incomplete file: it has no table directory (it was not closed)");

    b = good;
    Poke<std::int16_t>(b, static_cast<std::size_t>(dirPos), -1);
    EXPECT_EQ(OpenError(b), "bad table count -1");
    Poke<std::int16_t>(b, static_cast<std::size_t>(dirPos), 1);
    EXPECT_EQ(OpenError(b), "truncated table directory: 1 positions do not fit behind byte 2680");

    // A table position outside [end of records, directory).
    std::vector<unsigned char> t = FileBytes(1, true);
    const std::size_t tdir = static_cast<std::size_t>(Peek<std::int64_t>(t, 24));
    b = t;
    Poke<std::int64_t>(b, tdir + 2 + 8 * 2, 700);
    EXPECT_EQ(OpenError(b), "table 2 at byte 700 lies outside [716, " + std::to_string(tdir) + ")");
    Poke<std::int64_t>(b, tdir + 2 + 8 * 2, static_cast<std::int64_t>(tdir));
    EXPECT_EQ(OpenError(b), "table 2 at byte " + std::to_string(tdir) + " lies outside [716, " +
                                std::to_string(tdir) + ")");
}

// The AN table is the first behind the records: head at `an`, its three column descriptors at an + 32.
TEST(UVXBadInput, DamagedTables) {
    const std::vector<unsigned char> good = FileBytes(0, true);
    const std::size_t an = 498;
    ASSERT_EQ(TableError(good, "AN"), "");

    std::vector<unsigned char> b = good;
    b[an + 32 + 36 + 28] = 'X';  // type of STABXYZ
    EXPECT_EQ(TableError(b, "AN"), "Table \"AN\": column 1 (\"STABXYZ\") has unknown type code 88");
    EXPECT_EQ(TableError(b, "SU"), "");  // the other tables stay readable

    b = good;
    Poke<std::int32_t>(b, an + 32 + 36 * 2 + 32, 0);  // repeat of NOSTA
    EXPECT_EQ(TableError(b, "AN"), "Table \"AN\": column 2 (\"NOSTA\") has repeat count 0");

    b = good;
    Poke<std::int32_t>(b, an + 24, 37);
    EXPECT_EQ(TableError(b, "AN"), "Table \"AN\": row size 37 disagrees with the columns (36 bytes)");
    Poke<std::int32_t>(b, an + 24, -36);
    EXPECT_EQ(TableError(b, "AN"), "Table \"AN\": bad row size -36");

    // Row data that the stream cannot hold: refused before any allocation of that size.
    b = good;
    Poke<std::int32_t>(b, an + 20, 100000000);
    const std::size_t rowsAt = an + 32 + 3 * 36 + 40;
    EXPECT_EQ(TableError(b, "AN"), "Table \"AN\": its 100000000 rows need 3600000000 bytes, only " +
                                       std::to_string(good.size() - rowsAt) + " remain");

    b = good;
    Poke<std::int32_t>(b, an + 16, -1);
    EXPECT_EQ(TableError(b, "AN"), "Table \"AN\": bad column count -1");
    Poke<std::int32_t>(b, an + 16, 1 << 30);
    EXPECT_EQ(TableError(b, "AN"), "Table \"AN\": bad column count 1073741824");
    b = good;
    Poke<std::int32_t>(b, an + 28, -2);
    EXPECT_EQ(TableError(b, "AN"), "Table \"AN\": bad keyword count -2");
    b = good;
    b[an + 32 + 3 * 36 + 16] = '?';  // type of the XYZHAND keyword
    EXPECT_EQ(TableError(b, "AN"), "Table \"AN\": keyword \"XYZHAND\" has unknown type code 63");

    // Reading a table straight from a stream that is empty or ends inside it.
    AMemFile none;
    AUVXTable t0(none);
    EXPECT_FALSE(t0.IsValid());
    EXPECT_EQ(t0.m_errMsg, "Truncated table at byte 0: its 32-byte head is incomplete");
    AMemFile cut(std::vector<unsigned char>(good.begin() + an, good.begin() + an + 32 + 50));
    AUVXTable t1(cut);
    EXPECT_FALSE(t1.IsValid());
    EXPECT_EQ(t1.m_errMsg, "Table \"AN\": truncated column descriptors");
    EXPECT_EQ(t1.nCols, 0);
    EXPECT_EQ(t1.columns, nullptr);
    EXPECT_EQ(t1.rows, nullptr);
}

// Every prefix of a complete file is refused with a text; every byte outside the records, flipped, gives
// either a refusal with a text or tables that are consistent with their own columns.
TEST(UVXBadInput, TruncationsAndFlippedBytes) {
    const std::vector<unsigned char> good = FileBytes(2, true);
    for (std::size_t n = 0; n < good.size(); ++n) {
        const std::string err =
            OpenError(std::vector<unsigned char>(good.begin(), good.begin() + static_cast<long>(n)));
        ASSERT_FALSE(err.empty()) << "prefix of " << n << " bytes opened";
    }
    const char* names[] = {"AN", "SU", "FQ", "SL", "AI"};
    const std::size_t recordsBegin = 498, recordsEnd = 498 + 2 * 218;
    for (std::size_t i = 0; i < good.size(); ++i) {
        if (i >= recordsBegin && i < recordsEnd) continue;
        for (unsigned char mask : {0xFFu, 0x80u, 0x01u}) {
            std::vector<unsigned char> b = good;
            b[i] ^= mask;
            AMemFile mem(b);
            AUVXFile in;
            if (!in.Open(&mem)) {
                ASSERT_FALSE(in.m_errMsg.IsEmpty()) << "byte " << i;
                continue;
            }
            for (const char* name : names) {
                std::unique_ptr<AUVXTable> t(in.GetTable(name));
                if (!t) continue;
                ASSERT_TRUE(t->IsValid());
                int sum = 0;
                for (int c = 0; c < t->nCols; ++c) {
                    const AXTblFormat f = t->ParseFormat(c);
                    ASSERT_GT(AXTblTypeSize(f.type), 0);
                    ASSERT_GE(f.count, 1);
                    sum += AXTblTypeSize(f.type) * f.count;
                }
                ASSERT_EQ(sum, t->rowBytes) << "byte " << i;
            }
        }
    }
}
