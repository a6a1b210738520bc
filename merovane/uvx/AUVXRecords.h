// Records of the UV stream: AUVXGroup (26 bytes), AUVXComplex (12 bytes) and AUVXVisibility.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

#include <merovane/foundation/AArray.h>
#include <merovane/platform/Export.h>

class AUVXFile;

#pragma pack(push, 1)
// The group that opens every record, little-endian and without gaps.
struct AUVXGroup {
    std::uint8_t flags;      // bit 0 is read by the averaging (carried into the baseline list)
    std::int8_t freqId;      // frequency setup, a FRQSEL of the FQ table
    std::int16_t sourceId;   // ID of the SU table
    float u, v, w;           // baseline coordinates in seconds of light travel
    double time;             // seconds from 0h of the reference day (AUVXHeader::refJD)
    std::int8_t ant1, ant2;  // telescope IDs 1..64; equal for an autocorrelation
};

// One element of a visibility: a weight not above 0 flags it.
struct AUVXComplex {
    float re, im, wt;
    // Phase in radians, in (-pi, pi].
    float phase() const { return std::atan2(im, re); }
};
#pragma pack(pop)

static_assert(sizeof(AUVXGroup) == 26, "AUVXGroup is 26 bytes on disk");
static_assert(offsetof(AUVXGroup, time) == 16, "AUVXGroup::time at 16");
static_assert(offsetof(AUVXGroup, ant1) == 24, "AUVXGroup::ant1 at 24");
static_assert(sizeof(AUVXComplex) == 12, "AUVXComplex is 12 bytes on disk");

// Declared before AUVXVisibility derives from it, so that the instantiations are exported.
extern template class MEROVANE_API AArray<AUVXGroup>;
extern template class MEROVANE_API AArray<AUVXComplex>;

// The cube of one record. Element (iIF, iChan, iStokes) is data[(iIF * nChan + iChan) * nStokes + iStokes].
// nIF may be 0 (a file without IF axis); the cube then has max(1, nIF) bands all the same.
//
// Final: visibilities are deleted through their own type by the owning arrays of the interval
// driver, and AArray has no virtual destructor, so nothing may derive from this class.
class MEROVANE_API AUVXVisibility final : public AArray<AUVXComplex> {
public:
    // The shape of a record of `file`; the elements are not cleared.
    explicit AUVXVisibility(AUVXFile& file);
    // max(1, nIF) x nChan x nStokes elements, not cleared. A shape with a count of 0 gives no storage.
    AUVXVisibility(int nIF, int nChan, int nStokes);

    int Index(int iIF, int iChan, int iStokes) const { return (iIF * nChan + iChan) * nStokes + iStokes; }
    AUVXComplex& At(int iIF, int iChan, int iStokes) { return data[Index(iIF, iChan, iStokes)]; }

    std::int32_t nIF = 0;
    std::int32_t nChan = 0;
    std::int32_t nStokes = 0;
};
