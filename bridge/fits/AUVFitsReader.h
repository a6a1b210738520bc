// AUVFitsReader: the random groups of a UVFITS file and its AIPS tables into a UVX file.
#pragma once

#include <string>
#include <vector>

#include "AFitsFile.h"

// One axis of the random-group array (CTYPEn and its coordinates).
struct AFitsAxis {
    std::string type;  // CTYPE up to its first '-' ("RA---SIN" gives "RA")
    long long length = 1;
    double crval = 0, cdelt = 1, crpix = 1;
};

class AUVFitsReader {
public:
    // Reads the open file `fits` (positioned anywhere) and writes the UVX file `out`; false with m_err.
    bool Read(AFitsFile& fits, const std::string& out);

    std::string m_err;
    long long m_records = 0;
    long long m_nanFlagged = 0;
    std::string m_handedness;  // how the stations' handedness was settled

private:
    bool fail(const std::string& what);
};
