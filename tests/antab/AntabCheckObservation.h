// AntabCheckObservation: a small UVX observation written with the library's record writer and table
// layouts, in memory, for the ANTAB checker tests; and loading a text with the exact parser against it.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <merovane/antab/AAntabCheck.h>
#include <merovane/antab/AAntabData.h>
#include <merovane/foundation/AMemFile.h>
#include <merovane/foundation/Calendar.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/AUVXRecords.h>
#include <merovane/uvx/AUVXTable.h>
#include <merovane/uvx/UVXTableLayouts.h>

#include "AntabTestUvx.h"  // D(): several numbers as one list

// Set the fields, call Open(); `file` is then open for reading. Stations get IDs from 1 in order and
// one position (latitude about 50 degrees); one source at RA 0, Dec 30. Each record is an
// autocorrelation of one station at one time (seconds from 0h of the reference day).
struct CheckObservation {
    std::vector<std::string> stations;
    std::vector<int> stokes{-1, -2};
    int nIF = 1;
    int year = 2021, dayOfYear = 100;
    struct Record {
        double time;
        int ant;
    };
    std::vector<Record> records;

    void Open() {
        AUVXHeader header;
        header.refJD = DayOfYearToJulian(dayOfYear, year);
        header.refFreq = 1.5e9;
        header.nChan = 1;
        header.nIF = nIF;
        header.nStokes = static_cast<std::int16_t>(stokes.size());
        for (std::size_t i = 0; i < stokes.size(); ++i)
            header.stokes[i] = static_cast<std::int16_t>(stokes[i]);

        AUVXFile out;
        ASSERT_TRUE(out.Create(&mem, false)) << out.m_errMsg.GetString();
        AUVXRecordWriter writer;
        ASSERT_TRUE(writer.Open(out, header)) << writer.m_errMsg.GetString();
        AUVXVisibility vis(nIF, 1, static_cast<int>(stokes.size()));
        for (int i = 0; i < vis.count; ++i) vis.data[i] = AUVXComplex{1, 0, 1};
        for (const Record& r : records) {
            AUVXGroup g{};
            g.freqId = 1;
            g.sourceId = 1;
            g.time = r.time;
            g.ant1 = g.ant2 = static_cast<std::int8_t>(r.ant);
            ASSERT_TRUE(writer.Write(g, vis)) << writer.m_errMsg.GetString();
        }
        ASSERT_TRUE(writer.Finish()) << writer.m_errMsg.GetString();

        AUVXTable an, su, fq;
        ASSERT_TRUE(CreateTable(an, kLayoutAN, nIF) && CreateTable(su, kLayoutSU, nIF) &&
                    CreateTable(fq, kLayoutFQ, nIF));
        for (std::size_t s = 0; s < stations.size(); ++s) {
            const int r = an.AddRow();
            an.SetText(r, kANName, stations[s].c_str());
            const double xyz[3] = {4033947.2, 486990.8, 4900431.0};
            for (int k = 0; k < 3; ++k) an.SetDouble(r, kANStabXyz, xyz[k], k);
            an.SetDouble(r, kANNoSta, static_cast<double>(s + 1));
        }
        su.AddRow();
        su.SetDouble(0, kSUId, 1);
        su.SetText(0, kSUSource, "SRC");
        su.SetDouble(0, kSURaEpo, 0.0);
        su.SetDouble(0, kSUDecEpo, 30.0);
        fq.AddRow();
        fq.SetDouble(0, kFQFrqSel, 1);
        for (int i = 0; i < (nIF > 1 ? nIF : 1); ++i) {
            fq.SetDouble(0, kFQIfFreq, i * 16e6, i);
            fq.SetDouble(0, kFQChWidth, 16e6, i);
            fq.SetDouble(0, kFQTotalBandwidth, 16e6, i);
            fq.SetDouble(0, kFQSideband, 1, i);
        }
        ASSERT_TRUE(out.AddTable(an) && out.AddTable(su) && out.AddTable(fq) && out.Close())
            << out.m_errMsg.GetString();
        ASSERT_TRUE(file.Open(&mem, false)) << file.m_errMsg.GetString();
    }

    // MJD of 0h of the reference day plus `day` - dayOfYear days and `hours`.
    double Mjd(int day, double hours) const {
        return DayOfYearToJulian(day, year) - 2400000.5 + hours / 24.0;
    }

    AMemFile mem;
    AUVXFile file;
};

// The exact parser loading `text` against `obs`; false with the message in `msg`.
inline bool LoadAgainst(CheckObservation& obs, const std::string& text, AAntabData& data, std::string& msg) {
    if (!data.Init(obs.file)) {
        msg = data.GetErrMsg().str();
        return false;
    }
    std::istringstream in(text);
    const bool ok = data.Load(in);
    msg = data.GetErrMsg().str();
    return ok;
}

// The telescope named `name` of a loaded AAntabData, or null.
inline AAntabTlsc* Telescope(AAntabData& data, const char* name) {
    for (int i = 0; i < data.m_tlscs.count; ++i)
        if (data.m_tlscs[i]->m_name == name) return data.m_tlscs[i];
    return nullptr;
}

// "kind code line station" of each finding, one per line, for comparing the findings as a whole.
inline std::string FindingList(const AAntabCheckResult& r, bool withNotes = true) {
    std::string s;
    for (const AAntabFinding& f : r.findings)
        if (withNotes || f.kind != "note")
            s += f.kind + " " + f.code + " " + std::to_string(f.line) +
                 (f.station.empty() ? "" : " " + f.station) + "\n";
    return s;
}

// The first finding with `code`, or null.
inline const AAntabFinding* FindCode(const AAntabCheckResult& r, const char* code) {
    for (const AAntabFinding& f : r.findings)
        if (f.code == code) return &f;
    return nullptr;
}
