// AntabTestUvx: a small UVX file in memory (header, AN, SU and FQ tables) for the amplitude tests.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <merovane/antab/AAntabData.h>
#include <merovane/foundation/AMemFile.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXTable.h>

struct TestStation {
    std::string name;
    int id;
    double x, y, z;
};

struct TestSource {
    int id;
    std::string name;
    double ra, dec;  // degrees
};

// Fill the public fields, then call Open(); `file` is then a UVX file open for reading.
class AntabTestUvx {
public:
    AntabTestUvx() {
        header.refJD = 2459215.5;  // 2021-01-01 0h
        header.refFreq = 1.5e9;
        header.nStokes = 2;
        header.stokes[0] = -1;
        header.stokes[1] = -2;
        header.nIF = 2;
        header.nChan = 1;
        ifOffsets = {0.0, 16e6};
    }

    // Writes the file into memory and opens it; a failure ends the calling test.
    void Open() {
        AUVXFile out;
        ASSERT_TRUE(out.Create(&mem, false)) << out.m_errMsg.GetString();
        ASSERT_TRUE(out.Write(header)) << out.m_errMsg.GetString();
        if (withAN) {
            AUVXTable an("AN");
            const int cName = an.AddColumn("ANNAME", 'A', 8);
            const int cXYZ = an.AddColumn("STABXYZ", 'D', 3, "METERS");
            const int cId = an.AddColumn("NOSTA", 'J');
            if (leftHanded) an.SetKeyword("XYZHAND", "LEFT");
            for (const TestStation& s : stations) {
                const int r = an.AddRow();
                an.SetText(r, cName, s.name.c_str());
                an.SetDouble(r, cXYZ, s.x, 0);
                an.SetDouble(r, cXYZ, s.y, 1);
                an.SetDouble(r, cXYZ, s.z, 2);
                an.SetDouble(r, cId, s.id);
            }
            ASSERT_TRUE(out.AddTable(an)) << out.m_errMsg.GetString();
        }
        if (withSU) {
            AUVXTable su("SU");
            const int cId = su.AddColumn("ID. NO.", 'J');
            const int cName = su.AddColumn("SOURCE", 'A', 16);
            const int cRA = su.AddColumn("RAEPO", 'D', 1, "DEGREES");
            const int cDec = su.AddColumn("DECEPO", 'D', 1, "DEGREES");
            for (const TestSource& s : sources) {
                const int r = su.AddRow();
                su.SetDouble(r, cId, s.id);
                su.SetText(r, cName, s.name.c_str());
                su.SetDouble(r, cRA, s.ra);
                su.SetDouble(r, cDec, s.dec);
            }
            ASSERT_TRUE(out.AddTable(su)) << out.m_errMsg.GetString();
        }
        if (withFQ) {
            const int nIF = header.nIF > 1 ? header.nIF : 1;
            AUVXTable fq("FQ");
            const int cSel = fq.AddColumn("FRQSEL", 'J');
            const int cFreq = fq.AddColumn("IF FREQ", 'D', nIF, "HZ");
            const int cWidth = fq.AddColumn("CH WIDTH", 'E', nIF, "HZ");
            const int cBand = fq.AddColumn("TOTAL BANDWIDTH", 'E', nIF, "HZ");
            const int cSide = fq.AddColumn("SIDEBAND", 'J', nIF);
            const int r = fq.AddRow();
            fq.SetDouble(r, cSel, freqSel);
            for (int i = 0; i < nIF; ++i) {
                fq.SetDouble(r, cFreq, i < static_cast<int>(ifOffsets.size()) ? ifOffsets[i] : 0.0, i);
                fq.SetDouble(r, cWidth, 1e6, i);
                fq.SetDouble(r, cBand, 16e6, i);
                fq.SetDouble(r, cSide, 1, i);
            }
            ASSERT_TRUE(out.AddTable(fq)) << out.m_errMsg.GetString();
        }
        ASSERT_TRUE(out.Close()) << out.m_errMsg.GetString();
        ASSERT_TRUE(file.Open(&mem, false)) << file.m_errMsg.GetString();
    }

    AUVXHeader header;
    std::vector<TestStation> stations;
    std::vector<TestSource> sources{{1, "SRC", 0.0, 30.0}};
    std::vector<double> ifOffsets;  // Hz from header.refFreq, one per IF
    int freqSel = 1;
    bool withAN = true;
    bool withSU = true;
    bool withFQ = true;
    bool leftHanded = false;

    AMemFile mem;
    AUVXFile file;
};

// Loads `text` into `data` as an ANTAB stream.
inline bool LoadText(AAntabData& data, const std::string& text) {
    std::istringstream in(text);
    return data.Load(in);
}

// The message that Load leaves when the parse went through and only the binding failed for want of
// a UVX file: the parser tests load without Init and look at what was parsed.
inline const char* NoUvxMessage() {
    return "Error> <AAntabData> uvx == NULL. ";
}
