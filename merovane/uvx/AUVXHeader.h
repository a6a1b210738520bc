// AUVXHeader: the 466-byte header of a UVX file, copied by value with all its bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include <merovane/platform/CString.h>
#include <merovane/platform/Export.h>

class AUVXFile;

#pragma pack(push, 1)
// Field by field as it lies in the file (docs/uvx-format.md). Texts are NUL-padded, not always
// NUL-terminated when they fill their field: read them with Text().
struct MEROVANE_API AUVXHeader {
    // All bytes 0.
    AUVXHeader();
    // The header of an open file (all bytes 0 if the file has none).
    explicit AUVXHeader(AUVXFile& file);

    // A text field as CString, stopping at the first NUL or the field's end.
    static CString Text(const char* field, int size);
    // Stores `text` NUL-padded into a field of `size` bytes, cut if longer.
    static void SetText(char* field, int size, const char* text);

    char dateObs[12];        //   0 observation date "YYYY-MM-DD"
    double refJD;            //  12 Julian date of 0h of the reference day
    char object[16];         //  20 target name (single-source files) or "MULTI"
    char telescope[16];      //  36 array or network name, e.g. "EVN"
    char instrument[16];     //  52 correlator or back end
    char observer[16];       //  68 observer or project code
    double refFreq;          //  84 reference frequency in Hz (IF offsets in FQ are relative to it)
    double chanWidth;        //  92 channel width in Hz
    double totalBandwidth;   // 100 bandwidth of one IF in Hz
    double equinox;          // 108 equinox of the source positions in years, e.g. 2000.0
    float intTime;           // 116 integration time of a record in seconds
    std::int32_t refChan;    // 120 channel (from 1) at which an IF's start frequency holds
    std::int32_t sideband;   // 124 +1 upper, -1 lower
    double reMin;            // 128 statistics of the real parts
    double reMax;            // 136
    double imMin;            // 144 statistics of the imaginary parts
    double imMax;            // 152
    double objRA;            // 160 target right ascension in degrees
    double objDec;           // 168 target declination in degrees
    std::int16_t nStokes;    // 176 polarisation products per channel, 1..8
    std::int16_t stokes[8];  // 178 FITS codes: -1 RR, -2 LL, -3 RL, -4 LR, -5 XX, -6 YY, -7 XY, -8 YX
    std::int32_t nIF;        // 194 IF bands; 0 counts as 1
    std::int32_t nChan;      // 198 channels per IF band
    char origin[32];         // 202 program that wrote the file
    char reserved[232];      // 234 zero
};
#pragma pack(pop)

static_assert(sizeof(AUVXHeader) == 466, "AUVXHeader is 466 bytes on disk");
static_assert(offsetof(AUVXHeader, refJD) == 12, "refJD at 12");
static_assert(offsetof(AUVXHeader, reMin) == 128, "statistics at 128");
static_assert(offsetof(AUVXHeader, imMax) == 152, "imMax at 152");
static_assert(offsetof(AUVXHeader, nStokes) == 176, "nStokes at 176");
static_assert(offsetof(AUVXHeader, stokes) == 178, "stokes at 178");
static_assert(offsetof(AUVXHeader, nIF) == 194, "nIF at 194");
static_assert(offsetof(AUVXHeader, nChan) == 198, "nChan at 198");
