// Builders of small UVX files and tables shared by the uvx tests.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include <merovane/foundation/AMemFile.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecords.h>
#include <merovane/uvx/AUVXTable.h>

namespace uvxtest {

// Two IFs, four channels, two products: 26 + 12 x 2 x 4 x 2 = 218 bytes a record.
inline AUVXHeader MakeHeader() {
    AUVXHeader h;
    AUVXHeader::SetText(h.dateObs, 12, "2010-12-24");
    h.refJD = 2455554.5;
    AUVXHeader::SetText(h.object, 16, "MULTI");
    AUVXHeader::SetText(h.telescope, 16, "TESTARRAY");
    h.refFreq = 4.6e9;
    h.chanWidth = 2.0e6;
    h.totalBandwidth = 8.0e6;
    h.equinox = 2000.0;
    h.intTime = 2.0f;
    h.refChan = 1;
    h.sideband = 1;
    h.nStokes = 2;
    h.stokes[0] = -1;
    h.stokes[1] = -2;
    h.nIF = 2;
    h.nChan = 4;
    std::memset(h.reserved + 100, 0x5A, 8);  // bytes the library does not interpret must survive too
    return h;
}

inline constexpr int kRecordBytes = 26 + 12 * 2 * 4 * 2;

// The bytes of record k under MakeHeader(): a group with distinct fields and a cube whose elements
// all differ, so that a shifted or reordered record shows.
inline std::vector<unsigned char> MakeRecord(int k) {
    std::vector<unsigned char> bytes(kRecordBytes);
    AUVXGroup g;
    g.flags = static_cast<std::uint8_t>(k & 1);
    g.freqId = 1;
    g.sourceId = static_cast<std::int16_t>(1 + k % 3);
    g.u = 1.5f * k;
    g.v = -0.25f * k;
    g.w = 0.125f;
    g.time = 3600.0 + 2.0 * k;
    g.ant1 = static_cast<std::int8_t>(1 + k % 4);
    g.ant2 = static_cast<std::int8_t>(2 + k % 5);
    std::memcpy(bytes.data(), &g, 26);
    for (int e = 0; e < 16; ++e) {
        AUVXComplex c{static_cast<float>(k) + 0.5f * e, -static_cast<float>(e), e == 3 ? -1.0f : 1.0f};
        std::memcpy(bytes.data() + 26 + 12 * e, &c, 12);
    }
    return bytes;
}

inline void AddAN(AUVXTable& t, bool leftHanded) {
    t.SetName("AN");
    t.AddColumn("ANNAME", 'A', 8);
    t.AddColumn("STABXYZ", 'D', 3, "METERS");
    t.AddColumn("NOSTA", 'J');
    t.SetKeyword("XYZHAND", leftHanded ? "LEFT" : "RIGHT");
    const char* names[] = {"EF", "WB", "JODRELL2", "ON"};
    const int ids[] = {1, 2, 3, 5};
    for (int i = 0; i < 4; ++i) {
        int r = t.AddRow();
        t.SetText(r, 0, names[i]);
        t.SetDouble(r, 1, 4033947.0 + i, 0);
        t.SetDouble(r, 1, 486990.5 - i, 1);
        t.SetDouble(r, 1, 4900430.25 * (i + 1), 2);
        t.SetDouble(r, 2, ids[i]);
    }
}

inline void AddSU(AUVXTable& t) {
    t.SetName("SU");
    t.AddColumn("ID. NO.", 'J');
    t.AddColumn("SOURCE", 'A', 16);
    t.AddColumn("RAEPO", 'D', 1, "DEGREES");
    t.AddColumn("DECEPO", 'D', 1, "DEGREES");
    const char* names[] = {"J0414+053", "3C84", "A-SIXTEEN-CHARS!"};
    for (int i = 0; i < 3; ++i) {
        int r = t.AddRow();
        t.SetDouble(r, 0, i + 1);
        t.SetText(r, 1, names[i]);
        t.SetDouble(r, 2, 63.5 + 10.0 * i);
        t.SetDouble(r, 3, -5.25 + i);
    }
}

inline void AddFQ(AUVXTable& t) {
    t.SetName("FQ");
    t.AddColumn("FRQSEL", 'J');
    t.AddColumn("IF FREQ", 'D', 2, "HZ");
    t.AddColumn("CH WIDTH", 'E', 2, "HZ");
    t.AddColumn("TOTAL BANDWIDTH", 'E', 2, "HZ");
    t.AddColumn("SIDEBAND", 'J', 2);
    for (int i = 0; i < 2; ++i) {
        int r = t.AddRow();
        t.SetDouble(r, 0, i + 1);
        t.SetDouble(r, 1, 0.0 + 1.0e8 * i, 0);
        t.SetDouble(r, 1, 8.0e6 + 1.0e8 * i, 1);
        t.SetDouble(r, 2, 2.0e6, 0);
        t.SetDouble(r, 2, 2.0e6, 1);
        t.SetDouble(r, 3, 8.0e6, 0);
        t.SetDouble(r, 3, 8.0e6, 1);
        t.SetDouble(r, 4, 1, 0);
        t.SetDouble(r, 4, -1, 1);
    }
}

inline void AddSL(AUVXTable& t) {
    t.SetName("SL");
    t.AddColumn("START", 'D', 1, "SECONDS");
    t.AddColumn("END", 'D', 1, "SECONDS");
    t.AddColumn("SOURCE ID", 'J');
    t.SetKeyword("REFDAY", 55554);
    for (int i = 0; i < 3; ++i) {
        int r = t.AddRow();
        t.SetDouble(r, 0, 3600.0 + 200.0 * i);
        t.SetDouble(r, 1, 3600.0 + 200.0 * i + 150.0);
        t.SetDouble(r, 2, i + 1);
    }
}

inline void AddAI(AUVXTable& t) {
    t.SetName("AI");
    t.AddColumn("TIME", 'D', 1, "DAYS");
    t.AddColumn("TIME_INTERVAL", 'E', 1, "DAYS");
    t.AddColumn("ANTENNA_NO", 'J');
    t.AddColumn("NO_LEVELS", 'J');
    t.AddColumn("FREQID", 'J');
    t.SetKeyword("OBSCODE", "TEST1");
    t.SetKeyword("NO_STKD", 2);
    t.SetKeyword("REF_FREQ", 4.6e9);
    for (int i = 0; i < 4; ++i) {
        int r = t.AddRow();
        t.SetDouble(r, 0, 0.5);
        t.SetDouble(r, 1, 1.0);
        t.SetDouble(r, 2, i + 1);
        t.SetDouble(r, 3, i == 3 ? 2 : 4);
        t.SetDouble(r, 4, 1);
    }
}

// Writes a complete file through the creation sequence: `nRecords` records from MakeRecord and, with
// `tables`, the tables AN (left-handed if asked), SU, FQ, SL and AI in this order.
inline bool WriteFile(AUVXFile& out, int nRecords, bool tables, bool leftHanded = false) {
    AUVXHeader h = MakeHeader();
    if (!out.Write(h)) return false;
    out.SeekUVGroup(0);
    for (int k = 0; k < nRecords; ++k) {
        std::vector<unsigned char> rec = MakeRecord(k);
        if (!out.file->Write(rec.data(), kRecordBytes)) return false;
    }
    h.reMin = -1.0;
    h.reMax = 2.0;
    if (!out.Write(h)) return false;
    if (tables) {
        AUVXTable an, su, fq, sl, ai;
        AddAN(an, leftHanded);
        AddSU(su);
        AddFQ(fq);
        AddSL(sl);
        AddAI(ai);
        for (AUVXTable* t : {&an, &su, &fq, &sl, &ai})
            if (!out.AddTable(*t)) return false;
    }
    return out.Close() != 0;
}

// A complete file in memory.
inline std::vector<unsigned char> FileBytes(int nRecords, bool tables, bool leftHanded = false) {
    AMemFile mem;
    AUVXFile out;
    if (!out.Create(&mem) || !WriteFile(out, nRecords, tables, leftHanded)) return {};
    return mem.Bytes();
}

template <class T>
inline void Poke(std::vector<unsigned char>& bytes, std::size_t pos, T value) {
    std::memcpy(bytes.data() + pos, &value, sizeof(T));
}

template <class T>
inline T Peek(const std::vector<unsigned char>& bytes, std::size_t pos) {
    T value;
    std::memcpy(&value, bytes.data() + pos, sizeof(T));
    return value;
}

}  // namespace uvxtest
