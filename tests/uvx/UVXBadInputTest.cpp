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

// One damage to a good file: `width` bytes of `value` written at `pos`, or with width 0 the file cut
// to `pos` bytes; and the text it must give ("" when the file stays readable).
struct Damage {
    std::size_t pos;
    int width;
    std::int64_t value;
    std::string error;
};

std::vector<unsigned char> Apply(std::vector<unsigned char> bytes, const Damage& d) {
    d.width == 0 ? bytes.resize(d.pos) : Poke(bytes, d.pos, d.width, d.value);
    return bytes;
}

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
    return t ? "" : in.m_errMsg.GetString();
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

// Prologue, header, record count and table directory of a file of 10 records and no tables: 32 + 466
// bytes, 10 x 218 of records, the directory (a count of 0) at 2678; 2680 bytes in all.
TEST(UVXBadInput, PrologueHeaderAndDirectory) {
    const std::vector<unsigned char> good = FileBytes(10, false);
    ASSERT_EQ(good.size(), 498u + 10 * 218 + 2);
    ASSERT_EQ(Peek<std::int64_t>(good, 24), 498 + 10 * 218);
    ASSERT_EQ(OpenError(good), "");
    const std::string dir = " lies outside [2678, 2678]";
    const Damage cases[] = {
        {3, 1, 'x', "not a UVX file (wrong magic)"},
        {0, 0, 0, "truncated prologue: the file has 0 bytes, a UVX file opens with 32"},
        {20, 0, 0, "truncated prologue: the file has 20 bytes, a UVX file opens with 32"},
        // A prologue that ends at 31 bytes is still short; one of 32 with a header cut short is not.
        {31, 0, 0, "truncated prologue: the file has 31 bytes, a UVX file opens with 32"},
        {32, 0, 0, "truncated header: the file has 32 bytes, the header ends at 498"},
        {300, 0, 0, "truncated header: the file has 300 bytes, the header ends at 498"},
        {497, 0, 0, "truncated header: the file has 497 bytes, the header ends at 498"},
        {8, 4, 2, "unsupported format version 2 (version 1 expected)"},
        {12, 4, 465, "header size 465 (466 expected)"},
        {32 + 176, 2, 0, "bad header: nStokes 0 (1..8 expected)"},
        {32 + 176, 2, 9, "bad header: nStokes 9 (1..8 expected)"},
        {32 + 198, 4, 0, "bad header: nChan 0 (at least 1 expected)"},
        {32 + 194, 4, -1, "bad header: nIF -1 (0..32767 expected)"},
        // 2182 bytes behind the header hold 10 records of 218, not 11.
        {16, 8, 11, "record count 11 of 218 bytes each does not fit in 2182 bytes behind the header"},
        {16, 8, 1000000000000LL, "bad record count 1000000000000"},
        {16, 8, -1, "bad record count -1"},
        // Fewer records than the stream holds leave unused bytes before the directory: that is allowed.
        {16, 8, 9, ""},
        {24, 8, 5000, "table directory at byte 5000" + dir},
        {24, 8, 2679, "table directory at byte 2679" + dir},  // its count would run past the end
        {24, 8, 600, "table directory at byte 600" + dir},    // inside the records
        {24, 8, 0, "incomplete file: it has no table directory (it was not closed)"},
        {2678, 2, -1, "bad table count -1"},
        {2678, 2, 1, "truncated table directory: 1 positions do not fit behind byte 2680"},
    };
    for (const Damage& d : cases) EXPECT_EQ(OpenError(Apply(good, d)), d.error) << d.pos << " " << d.value;

    // A table position outside [end of records, directory): table 2 of a file of one record.
    const std::vector<unsigned char> one = FileBytes(1, true);
    const std::size_t tdir = static_cast<std::size_t>(Peek<std::int64_t>(one, 24));
    const std::string end = std::to_string(tdir) + ")";
    for (std::int64_t pos : {std::int64_t{700}, static_cast<std::int64_t>(tdir)})
        EXPECT_EQ(OpenError(Apply(one, {tdir + 2 + 8 * 2, 8, pos, ""})),
                  "table 2 at byte " + std::to_string(pos) + " lies outside [716, " + end);
}

// The AN table is the first behind the records: head at `an`, its three column descriptors at an + 32,
// its keyword at an + 140, its rows from an + 180.
TEST(UVXBadInput, DamagedTables) {
    const std::vector<unsigned char> good = FileBytes(0, true);
    const std::size_t an = 498, rowsAt = an + 32 + 3 * 36 + 40;
    ASSERT_EQ(TableError(good, "AN"), "");
    // Row data that the stream cannot hold is refused before any allocation of that size: far too
    // many rows, and just one row more than the stream has left.
    const std::int64_t left = static_cast<std::int64_t>(good.size() - rowsAt), fit = left / 36 + 1;
    const std::string T = "Table \"AN\": ";
    const Damage cases[] = {
        {an + 32 + 36 + 28, 1, 'X', T + "column 1 (\"STABXYZ\") has unknown type code 88"},
        {an + 32 + 36 * 2 + 32, 4, 0, T + "column 2 (\"NOSTA\") has repeat count 0"},
        {an + 24, 4, 37, T + "row size 37 disagrees with the columns (36 bytes)"},
        {an + 24, 4, -36, T + "bad row size -36"},
        {an + 20, 4, -1, T + "bad row count -1"},
        {an + 20, 4, 100000000,
         T + "its 100000000 rows need 3600000000 bytes, only " + std::to_string(left) + " remain"},
        {an + 20, 4, fit,
         T + "its " + std::to_string(fit) + " rows need " + std::to_string(fit * 36) + " bytes, only " +
             std::to_string(left) + " remain"},
        {an + 16, 4, -1, T + "bad column count -1"},
        {an + 16, 4, 1 << 30, T + "bad column count 1073741824"},
        {an + 28, 4, -2, T + "bad keyword count -2"},
        {an + 32 + 3 * 36 + 16, 1, '?', T + "keyword \"XYZHAND\" has unknown type code 63"},
    };
    for (const Damage& d : cases) EXPECT_EQ(TableError(Apply(good, d), "AN"), d.error) << d.pos;
    // The other tables stay readable.
    EXPECT_EQ(TableError(Apply(good, cases[0]), "SU"), "");

    // Reading a table straight from a stream that is empty or ends inside it.
    const Damage cuts[] = {{0, 0, 0, "Truncated table at byte 0: its 32-byte head is incomplete"},
                           {32 + 50, 0, 0, T + "truncated column descriptors"},
                           {32 + 3 * 36 + 20, 0, 0, T + "truncated keywords"}};
    for (const Damage& d : cuts) {
        AMemFile cut(Apply(std::vector<unsigned char>(good.begin() + an, good.end()), d));
        AUVXTable t(cut);
        EXPECT_FALSE(t.IsValid());
        EXPECT_EQ(t.m_errMsg, d.error);
        EXPECT_EQ(t.nCols, 0);
        EXPECT_EQ(t.columns, nullptr);
        EXPECT_EQ(t.rows, nullptr);
    }
}

// Every prefix of a complete file is refused with a text; every byte outside the records, flipped, gives
// either a refusal with a text or tables that are consistent with their own columns.
TEST(UVXBadInput, TruncationsAndFlippedBytes) {
    const std::vector<unsigned char> good = FileBytes(2, true);
    for (std::size_t n = 0; n < good.size(); ++n)
        ASSERT_NE(OpenError(Apply(good, {n, 0, 0, ""})), "") << "prefix of " << n << " bytes opened";
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
            for (const char* name : {"AN", "SU", "FQ", "SL", "AI"}) {
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
