// AUVXVisibility constructors and the exported record arrays.
#include <merovane/uvx/AUVXRecords.h>

#include <merovane/uvx/AUVXFile.h>

template class AArray<AUVXGroup>;
template class AArray<AUVXComplex>;

namespace {
// Elements of a cube; 0 when a count is not above 0 (nIF counts as at least 1).
int cubeCount(int nIF, int nChan, int nStokes) {
    if (nChan <= 0 || nStokes <= 0) return 0;
    const long long n = static_cast<long long>(nIF > 1 ? nIF : 1) * nChan * nStokes;
    return n > 0x7FFFFFFF ? 0 : static_cast<int>(n);
}
}  // namespace

AUVXVisibility::AUVXVisibility(AUVXFile& file)
    : AUVXVisibility(file.GetHeader().nIF, file.GetHeader().nChan, file.GetHeader().nStokes) {}

AUVXVisibility::AUVXVisibility(int nIF_, int nChan_, int nStokes_)
    : AArray<AUVXComplex>(cubeCount(nIF_, nChan_, nStokes_)), nIF(nIF_), nChan(nChan_), nStokes(nStokes_) {}
