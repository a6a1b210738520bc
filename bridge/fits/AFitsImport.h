// AFitsImport: converts a UVFITS (random groups) or FITS-IDI file into a UVX file.
#pragma once

#include <cstdint>

#include <merovane/platform/CString.h>

#include "FitsExport.h"

// The format is told by the content, never by the name: a primary HDU with GROUPS = T and NAXIS1 = 0
// holds random groups (UVFITS); a file with a binary table named UV_DATA is FITS-IDI. The output is
// written as "<out>.part" and renamed to `out` only when complete, so a failed import leaves nothing
// under either name. The conventions (units, times, baselines, flags, frequencies, handedness) are
// described in docs/conventions.md.
class MEROVANE_FITS_API AFitsImport {
public:
    enum Format { kNotFits = 0, kUVFITS, kFITSIDI, kOtherFits };

    // What `path` holds: kNotFits for a file that does not begin with a FITS header (or cannot be
    // read), kOtherFits for FITS that is neither random groups nor FITS-IDI.
    static Format Detect(const char* path);

    // Converts `in` to the UVX file `out`. From a FITS-IDI file with GAIN_CURVE and
    // SYSTEM_TEMPERATURE tables it also writes their contents as an ANTAB text beside the output
    // (`out` with ".uvx" replaced by ".antab", or ".antab" appended), named in m_antabPath.
    // False with m_errMsg, which names the file and says what is wrong, e.g.
    //   "<in>: not a FITS file", "<in>: the random groups have no STOKES axis",
    //   "<in>: 9 Stokes products; a UVX file holds 1 to 8", "<in>: truncated: ...".
    bool Import(const char* in, const char* out);

    // The ANTAB path beside a UVX path.
    static CString AntabPathFor(const char* uvxPath);

    Format m_format = kNotFits;
    std::int64_t m_records = 0;     // records written
    std::int64_t m_nanFlagged = 0;  // elements flagged because their value or weight was NaN
    CString m_antabPath;            // ANTAB written beside the output; empty if none
    CString m_handedness;           // how the stations' handedness was settled (UVFITS)
    CString m_errMsg;
};
