// Builders of small UVX files and tables shared by the uvx tests.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <vector>

#include <merovane/foundation/AMemFile.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecords.h>
#include <merovane/uvx/AUVXTable.h>
#include <merovane/uvx/UVXTableLayouts.h>

namespace uvxtest {

// Two IFs, four channels, two products: 26 + 12 x 2 x 4 x 2 = 218 bytes a record. Every byte is set
// (the library interprets only the shape and the reference frequency), so that a byte lost or moved
// on the way shows.
inline AUVXHeader MakeHeader() {
    AUVXHeader h;
    auto* bytes = reinterpret_cast<unsigned char*>(&h);
    for (std::size_t i = 0; i < sizeof(h); ++i) bytes[i] = static_cast<unsigned char>(i * 7 + 1);
    h.refFreq = 4.6e9;
    h.nStokes = 2;
    h.nIF = 2;
    h.nChan = 4;
    return h;
}

inline constexpr int kRecordBytes = 26 + 12 * 2 * 4 * 2;

// The bytes of record k under MakeHeader(): a byte pattern, and the group's time 3600 + 2k s at
// byte 16 so that no two records are alike and a shifted or reordered record shows.
inline std::vector<unsigned char> MakeRecord(int k) {
    std::vector<unsigned char> bytes(kRecordBytes);
    for (int i = 0; i < kRecordBytes; ++i) bytes[i] = static_cast<unsigned char>(i * 7 + k * 31);
    const double time = 3600.0 + 2.0 * k;
    std::memcpy(bytes.data() + 16, &time, 8);
    return bytes;
}

// Bytes of the five tables of WriteFile as stored (head 32, columns 36, keywords 40 each); rows: AN
// 8+24+4, SU 4+16+8+8, FQ 4+16+8+8+8, SL 8+8+4, AI 8+4+4+4+4 bytes.
inline constexpr std::size_t kTableBytes = (32 + 3 * 36 + 1 * 40 + 4 * 36) + (32 + 4 * 36 + 3 * 36) +
                                           (32 + 5 * 36 + 2 * 44) + (32 + 3 * 36 + 40 + 3 * 20) +
                                           (32 + 5 * 36 + 3 * 40 + 4 * 24);

// Appends a row and fills its numeric cells from `values`, column after column and element after
// element; text columns take no value.
inline int AddRow(AUVXTable& t, std::initializer_list<double> values) {
    const int r = t.AddRow();
    const double* v = values.begin();
    for (int c = 0; c < t.nCols; ++c)
        for (int e = 0; t.ParseFormat(c).type != 'A' && e < t.ParseFormat(c).count; ++e)
            t.SetDouble(r, c, *v++, e);
    return r;
}

// A table column: name, type, repeat count, unit.
struct Col {
    const char* name;
    char type;
    int repeat;
    const char* unit;
};

inline void Columns(AUVXTable& t, const char* name, std::initializer_list<Col> cols) {
    t.SetName(name);
    for (const Col& c : cols) t.AddColumn(c.name, c.type, c.repeat, c.unit);
}

// The five tables a complete file holds, in the order WriteFile adds them.
struct Tables {
    AUVXTable an, su, fq, sl, ai;
    explicit Tables(bool leftHanded = false) {
        // Stations with IDs 1, 2, 3, 5.
        CreateTable(an, kLayoutAN, 2);
        an.SetKeyword("XYZHAND", leftHanded ? "LEFT" : "RIGHT");
        const char* stations[] = {"EF", "WB", "JODRELL2", "ON"};
        for (int i = 0; i < 4; ++i)
            an.SetText(AddRow(an, {4033947.0 + i, 486990.5 - i, 4900430.25 * (i + 1), i < 3 ? i + 1.0 : 5.0}),
                       0, stations[i]);
        CreateTable(su, kLayoutSU, 2);
        const char* sources[] = {"J0414+053", "3C84", "A-SIXTEEN-CHARS!"};
        for (int i = 0; i < 3; ++i)
            su.SetText(AddRow(su, {i + 1.0, 63.5 + 10.0 * i, -5.25 + i}), 1, sources[i]);
        CreateTable(fq, kLayoutFQ, 2);
        for (int i = 0; i < 2; ++i)
            AddRow(fq, {i + 1.0, 1.0e8 * i, 8.0e6 + 1.0e8 * i, 2.0e6, 2.0e6, 8.0e6, 8.0e6, 1, -1});
        CreateTable(sl, kLayoutSL, 2);
        sl.SetKeyword("REFDAY", 55554);
        for (int i = 0; i < 3; ++i) AddRow(sl, {3600.0 + 200.0 * i, 3600.0 + 200.0 * i + 150.0, i + 1.0});
        CreateTable(ai, kLayoutAI, 2);
        ai.SetKeyword("OBSCODE", "TEST1");
        ai.SetKeyword("NO_STKD", 2);
        ai.SetKeyword("REF_FREQ", 4.6e9);
        for (int i = 0; i < 4; ++i) AddRow(ai, {0.5, 1.0, i + 1.0, i == 3 ? 2.0 : 4.0, 1});
    }
};

// Writes a complete file through the creation sequence: `nRecords` records from MakeRecord and, with
// `tables`, the tables AN (left-handed if asked), SU, FQ, SL and AI in this order.
inline bool WriteFile(AUVXFile& out, int nRecords, bool tables, bool leftHanded = false) {
    AUVXHeader h = MakeHeader();
    if (!out.Write(h)) return false;
    out.SeekUVGroup(0);
    for (int k = 0; k < nRecords; ++k)
        if (!out.file->Write(MakeRecord(k).data(), kRecordBytes)) return false;
    h.reMin = -1.0;
    h.reMax = 2.0;
    if (!out.Write(h)) return false;
    if (tables) {
        Tables t(leftHanded);
        for (AUVXTable* table : {&t.an, &t.su, &t.fq, &t.sl, &t.ai})
            if (!out.AddTable(*table)) return false;
    }
    return out.Close() != 0;
}

// The bytes `t` stores: its head, columns, keywords and rows.
inline std::vector<unsigned char> Stored(const AUVXTable& t) {
    AMemFile mem;
    return t.Store(mem) ? mem.Bytes() : std::vector<unsigned char>();
}

// A complete file in memory.
inline std::vector<unsigned char> FileBytes(int nRecords, bool tables, bool leftHanded = false) {
    AMemFile mem;
    AUVXFile out;
    if (!out.Create(&mem) || !WriteFile(out, nRecords, tables, leftHanded)) return {};
    return mem.Bytes();
}

// The low `width` bytes of `value` written at `pos`, little-endian as the file is.
inline void Poke(std::vector<unsigned char>& bytes, std::size_t pos, int width, std::int64_t value) {
    std::memcpy(bytes.data() + pos, &value, static_cast<std::size_t>(width));
}

template <class T>
inline T Peek(const std::vector<unsigned char>& bytes, std::size_t pos) {
    T value;
    std::memcpy(&value, bytes.data() + pos, sizeof(T));
    return value;
}

}  // namespace uvxtest
