// APhaseUnwrap, and the small pieces that the phase bandpass calculators share.
#pragma once

#include <complex>
#include <cstddef>

#include <merovane/foundation/AFreeMatrix.h>
#include <merovane/uvx/AUVXRecords.h>

// A small value object, one per series (one IF of one product of one record). Set `fresh` before the
// first phase of a series; each Add then gives the phase with every step between neighbours brought
// into the nearest of d, d - 2 pi, d + 2 pi (a step of exactly +-pi stays as it is).
class APhaseUnwrap {
public:
    // The unwrapped phase for the raw phase `phase`, both in radians. The first phase of a series
    // comes back unchanged.
    double Add(double phase);

    double prev = 0.0;   // last raw phase, radians
    double total = 0.0;  // unwrapped phase so far, radians
    bool fresh = true;   // set before the first phase of a series
};

// Polarisation index of a parallel-hand Stokes code: RR and XX 0, LL and YY nPol - 1; -1 for every
// other code, which the phase calculators pass over.
int PhaseParallelIndex(int code, int nPol);

// coef x (cos angle + i sin angle): cosine and sine of the double angle narrowed to single precision,
// the complex product in single precision.
void PhaseRotate(std::complex<float>& coef, double angle);

// out[c x outStride] = the phase in radians of element (iIF, c, iStokes) of `vis`, for c from 0 to
// vis.nChan - 1: AUVXComplex::phase() to the bit (the C library's single-precision atan2, computed
// here four channels at a time with the same operations in the same order), NaN payloads and the
// signs of zeros included. Nothing else of `out` is written.
void PhaseSpectrum(const AUVXVisibility& vis, int iIF, int iStokes, double* out, int outStride);

// True if `vis` is there and holds exactly nIF (at least 1) x nChan x nStokes elements in that
// shape, so that every element the header promises can be read.
bool PhaseRecordFits(const AUVXVisibility* vis, int nIF, int nChan, int nStokes);

// True if a coefficient or count item has exactly the dimensions nPol x nIF x nChan (polarisation,
// IF, channel) that the calculators address; an item of another shape is passed over.
template <class T>
bool PhaseItemFits(const AFreeMatrix<T>& item, int nPol, int nIF, int nChan) {
    return item.data != nullptr && item.GetDims() == 3 && static_cast<int>(item.GetDim(0)) == nPol &&
           static_cast<int>(item.GetDim(1)) == nIF && static_cast<int>(item.GetDim(2)) == nChan;
}

// Offset of cell (p, iIF, iChan) in an item that PhaseItemFits accepts.
template <class T>
std::size_t PhaseCell(const AFreeMatrix<T>& item, int p, int iIF, int iChan) {
    return (static_cast<std::size_t>(p) * item.GetDim(1) + static_cast<std::size_t>(iIF)) * item.GetDim(2) +
           static_cast<std::size_t>(iChan);
}
