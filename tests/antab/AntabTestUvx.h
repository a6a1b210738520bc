// AntabTestUvx: a small UVX file in memory (header, AN, SU and FQ tables) for the amplitude tests.
#pragma once

#include <charconv>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <merovane/antab/AAntabData.h>
#include <merovane/foundation/AMemFile.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXTable.h>
#include <merovane/uvx/UVXTableLayouts.h>

struct TestStation {
    std::string name;
    int id;
    double x, y, z;
};

// Fill the public fields, then call Open(); `file` is then a UVX file open for reading. One source,
// ID 1 "SRC" at RA 0, Dec 30 degrees; IF band i starts at refFreq + i x ifStep.
class AntabTestUvx {
public:
    AntabTestUvx() {
        header.refJD = 2459215.5;  // 2021-01-01 0h
        header.refFreq = 1.5e9;
        header.nChan = 1;
        SetProducts({-1, -2}, 2);
    }

    // Product codes from the first on (the codes behind them stay) and the IF count.
    void SetProducts(const std::vector<int>& stokes, int nIF) {
        header.nStokes = static_cast<std::int16_t>(stokes.size());
        for (std::size_t i = 0; i < stokes.size(); ++i)
            header.stokes[i] = static_cast<std::int16_t>(stokes[i]);
        header.nIF = nIF;
    }

    // Writes the file into memory and opens it; a failure ends the calling test.
    void Open() {
        AUVXTable an, su, fq;
        const int nIF = header.nIF > 1 ? header.nIF : 1;
        CreateTable(an, kLayoutAN, nIF);
        CreateTable(su, kLayoutSU, nIF);
        CreateTable(fq, kLayoutFQ, nIF);
        // AN: name, position, ID.
        if (leftHanded) an.SetKeyword(kKeyXyzHand, "LEFT");
        for (const TestStation& s : stations) {
            const int r = an.AddRow();
            an.SetText(r, 0, s.name.c_str());
            const double xyz[3] = {s.x, s.y, s.z};
            for (int k = 0; k < 3; ++k) an.SetDouble(r, 1, xyz[k], k);
            an.SetDouble(r, 2, s.id);
        }
        // SU: ID, name, right ascension, declination.
        su.AddRow();
        su.SetDouble(0, 0, 1);
        su.SetText(0, 1, "SRC");
        su.SetDouble(0, 2, 0.0);
        su.SetDouble(0, 3, 30.0);
        // FQ: one frequency setup; per IF its offset, channel width, bandwidth and sideband.
        fq.AddRow();
        fq.SetDouble(0, 0, 1);
        for (int i = 0; i < nIF; ++i) {
            const double values[4] = {i * ifStep, 1e6, 16e6, 1};
            for (int c = 0; c < 4; ++c) fq.SetDouble(0, c + 1, values[c], i);
        }
        AUVXFile out;
        ASSERT_TRUE(out.Create(&mem, false) && out.Write(header) && (!withAN || out.AddTable(an)) &&
                    (!withSU || out.AddTable(su)) && out.AddTable(fq) && out.Close())
            << out.m_errMsg.GetString();
        ASSERT_TRUE(file.Open(&mem, false)) << file.m_errMsg.GetString();
    }

    AUVXHeader header;
    std::vector<TestStation> stations;
    double ifStep = 16e6;  // Hz
    bool withAN = true;
    bool withSU = true;
    bool leftHanded = false;

    AMemFile mem;
    AUVXFile file;
};

// Several numbers as one list of doubles, so that a group of exact checks reads as one.
template <class... T>
std::vector<double> D(T... values) {
    return {static_cast<double>(values)...};
}

// Loads `text` into `data` as an ANTAB stream.
inline bool LoadText(AAntabData& data, const std::string& text) {
    std::istringstream in(text);
    return data.Load(in);
}

// An AAntabData initialised on a UVX file whose AN table holds `names` (blank-separated, IDs from
// 1, all at one position at latitude 50.52 degrees), then loaded from an ANTAB stream.
struct Bound {
    Bound(const std::string& names, const std::vector<int>& stokes, int nIF) {
        std::istringstream in(names);
        std::string name;
        for (int id = 1; in >> name; ++id) uvx.stations.push_back({name, id, 4033947.2, 486990.8, 4900431.0});
        uvx.SetProducts(stokes, nIF);
    }
    bool Load(std::istream& in) {
        uvx.Open();
        EXPECT_TRUE(data.Init(uvx.file)) << Msg();
        return data.Load(in);
    }
    bool Load(const std::string& text) {
        std::istringstream in(text);
        return Load(in);
    }
    std::string Msg() { return data.GetErrMsg().GetString(); }

    AntabTestUvx uvx;
    AAntabData data;
};

// The message that Load leaves when the parse went through and only the binding failed for want of
// a UVX file: the parser tests load without Init and look at what was parsed.
inline const char* NoUvxMessage() {
    return "Error> <AAntabData> uvx == NULL. ";
}

// What the parser made, in short: "bif N" and "eif N" when set, then each telescope as "[name]" and
// only what differs from a new telescope, numbers in their shortest exact form, telescopes
// separated by " | ". For example "[AA] kind 1 dpfu 0.5 0.6 ncol 2 index R1:2 L1:1 rows 3".
inline std::string Made(const AAntabData& data) {
    auto num = [](double v) {
        char b[32];
        *std::to_chars(b, b + sizeof b - 1, v).ptr = '\0';
        return std::string(" ") + b;
    };
    auto items = [](const char* label, const AArray<AColumnInfo>& list) {
        std::string s = list.count ? std::string(" ") + label : "";
        for (int i = 0; i < list.count; ++i) {
            const AColumnInfo& c = list[i];
            s += c.pol == -1 ? " R" : c.pol == -2 ? " L" : c.pol == 0 ? " X" : " P" + std::to_string(c.pol);
            if (c.pol != 0 || c.first != -1 || c.last != -1)
                s += std::to_string(c.first) + ":" + std::to_string(c.last);
        }
        return s;
    };
    std::string s;
    if (data.m_bif) s += "bif " + std::to_string(data.m_bif) + " ";
    if (data.m_eif) s += "eif " + std::to_string(data.m_eif) + " ";
    for (int i = 0; i < data.m_tlscs.count; ++i) {
        const AAntabTlsc& t = *data.m_tlscs[i];
        s += (i ? " | [" : "[") + std::string(t.m_name.GetString()) + "]";
        if (t.m_polyType) s += " kind " + std::to_string(t.m_polyType);
        if (t.m_dpfu[0] != 1.0 || t.m_dpfu[1] != 1.0) s += " dpfu" + num(t.m_dpfu[0]) + num(t.m_dpfu[1]);
        if (t.m_freqLow != 0.0 || t.m_freqHigh != 1e38) s += " freq" + num(t.m_freqLow) + num(t.m_freqHigh);
        if (t.m_timeOff != 0.0) s += " off" + num(t.m_timeOff);
        if (t.m_ft != 1.0) s += " ft" + num(t.m_ft);
        if (t.m_poly.count) s += " poly";
        for (int k = 0; k < t.m_poly.count; ++k) s += num(t.m_poly[k]);
        if (t.m_nCol) s += " ncol " + std::to_string(t.m_nCol);
        s += items("index", t.m_index) + items("index2", t.m_index2);
        if (t.m_tsys.rows) s += " rows " + std::to_string(t.m_tsys.rows);
    }
    return s;
}
