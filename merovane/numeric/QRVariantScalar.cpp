// QRVariantScalar: the scalar variant of the QR kernels (dispatch indices 2 and 3).
#include <merovane/numeric/QRVariants.h>

// Built without vectorisation: every sum runs element by element in index order. The kernel bodies
// come from the shared include files, compiled here as this file's own copy with internal linkage; only
// the entry points QRDecomposeScalar, QRSolveScalar, QRSolveLoopsScalar, QRSolveManyScalar and
// QRSolveManyLoopsScalar are visible outside.
#define MEROVANE_QR_VARIANT Scalar
#include <merovane/numeric/QRVariantBase.inc>

namespace {

// Sum of v[i] squared for i in [from, to), in index order.
double sumSquares(const double* v, Index from, Index to) {
    double s = 0.0;
    for (Index i = from; i < to; ++i) s += v[i] * v[i];
    return s;
}

}  // namespace

#include <merovane/numeric/QRVariantSerial.inc>

#include <merovane/numeric/QRVariantEntries.inc>
