// QRKernels: the dispatch stubs and tables, and the argument checks every variant runs first.
#include <merovane/numeric/QRKernels.h>

#include <merovane/numeric/KernelDispatch.h>
#include <merovane/numeric/QRVariants.h>

const QRDecomposeFn QRDecomposeTable[kKernelDispatchCount] = {
    QRDecomposeSSE2, QRDecomposeSSE2, QRDecomposeScalar, QRDecomposeScalar, QRDecomposeSSE41, QRDecomposeAVX,
};
const QRSolveFn QRSolveTable[kKernelDispatchCount] = {
    QRSolveSSE2, QRSolveSSE2, QRSolveScalar, QRSolveScalar, QRSolveSSE41, QRSolveAVX,
};
const QRSolveManyFn QRSolveManyTable[kKernelDispatchCount] = {
    QRSolveManySSE2, QRSolveManySSE2, QRSolveManyScalar, QRSolveManyScalar, QRSolveManySSE41, QRSolveManyAVX,
};

int QRDecompose(const double* src, int srcStride1, int srcStride2, double* buffer, double* dst,
                int dstStride1, int dstStride2, int width, int height) {
    return QRDecomposeTable[KernelDispatchIndex](src, srcStride1, srcStride2, buffer, dst, dstStride1,
                                                 dstStride2, width, height);
}

int QRSolve(const double* qr, int qrStride1, int qrStride2, double* buffer, const double* b, int bStride,
            double* x, int xStride, int width, int height) {
    return QRSolveTable[KernelDispatchIndex](qr, qrStride1, qrStride2, buffer, b, bStride, x, xStride, width,
                                             height);
}

int QRSolveMany(const double* qr, int qrStride1, int qrStride2, double* buffer, const double* b, int bStride0,
                int bStride1, double* x, int xStride0, int xStride1, int width, int height, int count) {
    return QRSolveManyTable[KernelDispatchIndex](qr, qrStride1, qrStride2, buffer, b, bStride0, bStride1, x,
                                                 xStride0, xStride1, width, height, count);
}

namespace {

bool badStride(int stride) {
    return stride <= 0 || stride % 8 != 0;
}

}  // namespace

int QRCheckDecompose(const double* src, int srcStride1, int srcStride2, const double* buffer,
                     const double* dst, int dstStride1, int dstStride2, int width, int height) {
    if (src == nullptr || buffer == nullptr || dst == nullptr) return QRStatusNullPointer;
    if (width < 1 || height < 1) return QRStatusBadSize;
    if (badStride(srcStride1) || badStride(srcStride2) || badStride(dstStride1) || badStride(dstStride2))
        return QRStatusBadStride;
    if (width > height) return QRStatusWideMatrix;
    return QRStatusOk;
}

int QRCheckSolve(const double* qr, int qrStride1, int qrStride2, const double* buffer, const double* b,
                 int bStride, const double* x, int xStride, int width, int height) {
    if (qr == nullptr || buffer == nullptr || b == nullptr || x == nullptr) return QRStatusNullPointer;
    if (width < 1 || height < 1) return QRStatusBadSize;
    if (badStride(qrStride1) || badStride(qrStride2) || badStride(bStride) || badStride(xStride))
        return QRStatusBadStride;
    if (width > height) return QRStatusWideMatrix;
    return QRStatusOk;
}

int QRCheckSolveMany(const double* qr, int qrStride1, int qrStride2, const double* buffer, const double* b,
                     int bStride0, int bStride1, const double* x, int xStride0, int xStride1, int width,
                     int height, int count) {
    if (qr == nullptr || buffer == nullptr || b == nullptr || x == nullptr) return QRStatusNullPointer;
    if (count < 1) return QRStatusBadCount;
    if (width < 1 || height < 1) return QRStatusBadSize;
    if (badStride(qrStride1) || badStride(qrStride2) || badStride(bStride0) || badStride(bStride1) ||
        badStride(xStride0) || badStride(xStride1))
        return QRStatusBadStride;
    if (width > height) return QRStatusWideMatrix;
    return QRStatusOk;
}
