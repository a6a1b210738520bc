// AFitsExport: writes a UVX file as UVFITS random groups with AIPS tables.
#pragma once

#include <cstdint>

#include <merovane/platform/CString.h>

#include "FitsExport.h"

// The output has the axes COMPLEX (3: real, imaginary, weight), STOKES, FREQ, IF, RA, DEC and the
// random parameters UU---SIN, VV---SIN, WW---SIN (seconds), BASELINE, DATE twice (the Julian date of
// 0h of the reference day as PZERO of the first, the time as a float day offset plus its float
// remainder, so that the sum keeps a microsecond), INTTIM, SOURCE, FREQSEL. Tables: AIPS AN, AIPS
// SU, AIPS FQ, AIPS NX (from the scan list) and every other UVX table as "UVX <name>". The file is
// written as "<out>.part" and renamed when complete. See docs/conventions.md.
class MEROVANE_FITS_API AFitsExport {
public:
    // False with m_errMsg naming the file and the problem ("<in>: ..." for the UVX input,
    // "<out>: ..." for the FITS output); nothing is left under `out` then.
    bool Export(const char* in, const char* out);

    std::int64_t m_records = 0;
    CString m_errMsg;
};
