// AFitsIdiReader: a FITS-IDI file (ARRAY_GEOMETRY, ANTENNA, SOURCE, FREQUENCY, UV_DATA, FLAG) into UVX.
#pragma once

#include <string>

#include "AFitsFile.h"

class AFitsIdiReader {
public:
    // Reads `fits` and writes the UVX file `out`; with GAIN_CURVE and SYSTEM_TEMPERATURE tables also
    // the ANTAB text `antabPath` (m_antabWritten). False with m_err; nothing is left under either name.
    bool Read(AFitsFile& fits, const std::string& out, const std::string& antabPath);

    std::string m_err;
    long long m_records = 0;
    long long m_nanFlagged = 0;
    long long m_flagRowsApplied = 0;  // FLAG rows that matched at least one record
    bool m_antabWritten = false;

private:
    bool fail(const std::string& what);
};
