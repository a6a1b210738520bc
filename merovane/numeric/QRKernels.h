// QR least-squares kernels: QRDecompose, QRSolve, QRSolveMany, their status codes and dispatch tables.
#pragma once

#include <cstdint>

// Status of the kernels (32-bit signed).
enum QRStatus : std::int32_t {
    QRStatusOk = 0,
    QRStatusBadSize = -6,       // width or height below 1
    QRStatusNullPointer = -8,   // a pointer argument, buffer included, is null
    QRStatusZeroColumn = -10,   // QRDecompose: a column's squared length left is below 2^-52
    QRStatusBadStride = -182,   // a stride is not a positive multiple of 8
    QRStatusBadCount = -203,    // QRSolveMany: count below 1
    QRStatusWideMatrix = -204,  // width above height
};

// Matrices are a base pointer and two byte strides: element (i, j) is the double at
// base + i x stride1 + j x stride2 bytes. Vectors have one byte stride. Strides must be positive
// multiples of 8. `width` (columns) must not exceed `height` (rows). `buffer` is the caller's scratch
// of `height` doubles; its contents mean nothing afterwards. No kernel allocates on the heap; the
// SSE4.1 and AVX variants of QRSolveMany work on groups of right-hand sides in up to 256 KiB of
// stack.
// Arguments are checked in this order and the first failure is the result: null pointer (-8),
// count below 1 (-203, QRSolveMany only), width or height below 1 (-6), stride (-182), width above
// height (-204).
//
// Every call goes through a dispatch stub that jumps by KernelDispatchIndex to one of four variants.

// Factors the height x width matrix src into dst (which may be src itself, with the same strides;
// other overlaps are not supported) by Householder reflections without pivoting: R on and above the
// diagonal, below the diagonal of column k the reflector of step k with its leading 1.0 implicit. A
// square matrix's last column gets no reflector. Gives 0, or -10 when a column to be reflected has a squared
// length below 2^-52; then dst holds the finished reflectors of the columns before it and the rest partly
// transformed.
int QRDecompose(const double* src, int srcStride1, int srcStride2, double* buffer, double* dst,
                int dstStride1, int dstStride2, int width, int height);

// Least-squares solution x (width elements) of A x = b (height elements) from the factors of
// QRDecompose. b is left unchanged. No test of the diagonal: a zero there gives infinities or NaN in
// x and status 0.
int QRSolve(const double* qr, int qrStride1, int qrStride2, double* buffer, const double* b, int bStride,
            double* x, int xStride, int width, int height);

// QRSolve for `count` right-hand sides: right-hand side c is at b + c x bStride0 bytes with element
// stride bStride1, its solution goes to x + c x xStride0 with element stride xStride1.
int QRSolveMany(const double* qr, int qrStride1, int qrStride2, double* buffer, const double* b, int bStride0,
                int bStride1, double* x, int xStride0, int xStride1, int width, int height, int count);

using QRDecomposeFn = int (*)(const double*, int, int, double*, double*, int, int, int, int);
using QRSolveFn = int (*)(const double*, int, int, double*, const double*, int, double*, int, int, int);
using QRSolveManyFn = int (*)(const double*, int, int, double*, const double*, int, int, double*, int, int,
                              int, int, int);

// The dispatch tables, by KernelDispatchIndex: indices 0 and 1 run the SSE2 variant (packed sum of
// squares in the factorisation), 2 and 3 the scalar one, 4 the SSE4.1 one, 5 the AVX one. Fixed at
// build time.
constexpr int kKernelDispatchCount = 6;
extern const QRDecomposeFn QRDecomposeTable[kKernelDispatchCount];
extern const QRSolveFn QRSolveTable[kKernelDispatchCount];
extern const QRSolveManyFn QRSolveManyTable[kKernelDispatchCount];
