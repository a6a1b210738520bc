// QRVariants: the four processor variants of the QR kernels and the argument checks they share.
#pragma once

// Each variant lives in a source file of its own, compiled with its own instruction-set flags; its
// helpers have internal linkage, so no copy built for one instruction set can reach another variant.
// The kernel bodies are written once, in include files that only the variant files include:
// QRVariantBase.inc (element access, the square 3 to 6 solves), QRVariantSerial.inc (the scalar and
// SSE2 body), QRVariantPacked.inc (the SSE4.1 and AVX body, over the variant's register type) and
// QRVariantEntries.inc (the entry points, named with the variant's suffix). Everything in them sits in
// an anonymous namespace, so each variant file compiles its own copy.
// The *Loops entries are the same solves without the straight-line bodies of square sizes 3 to 6,
// kept so the two can be compared.

// Argument checks in the documented order; 0 when the call may proceed. Built with the baseline
// instruction set, called by every variant.
int QRCheckDecompose(const double* src, int srcStride1, int srcStride2, const double* buffer,
                     const double* dst, int dstStride1, int dstStride2, int width, int height);
int QRCheckSolve(const double* qr, int qrStride1, int qrStride2, const double* buffer, const double* b,
                 int bStride, const double* x, int xStride, int width, int height);
int QRCheckSolveMany(const double* qr, int qrStride1, int qrStride2, const double* buffer, const double* b,
                     int bStride0, int bStride1, const double* x, int xStride0, int xStride1, int width,
                     int height, int count);

// Variant 1: SSE2; the factorisation sums the squares of the reflector in packed pairs.
int QRDecomposeSSE2(const double*, int, int, double*, double*, int, int, int, int);
int QRSolveSSE2(const double*, int, int, double*, const double*, int, double*, int, int, int);
int QRSolveManySSE2(const double*, int, int, double*, const double*, int, int, double*, int, int, int, int,
                    int);
int QRSolveLoopsSSE2(const double*, int, int, double*, const double*, int, double*, int, int, int);
int QRSolveManyLoopsSSE2(const double*, int, int, double*, const double*, int, int, double*, int, int, int,
                         int, int);

// Variant 2: scalar throughout.
int QRDecomposeScalar(const double*, int, int, double*, double*, int, int, int, int);
int QRSolveScalar(const double*, int, int, double*, const double*, int, double*, int, int, int);
int QRSolveManyScalar(const double*, int, int, double*, const double*, int, int, double*, int, int, int, int,
                      int);
int QRSolveLoopsScalar(const double*, int, int, double*, const double*, int, double*, int, int, int);
int QRSolveManyLoopsScalar(const double*, int, int, double*, const double*, int, int, double*, int, int, int,
                           int, int);

// Variant 3: SSE4.1, sums and updates in packed pairs.
int QRDecomposeSSE41(const double*, int, int, double*, double*, int, int, int, int);
int QRSolveSSE41(const double*, int, int, double*, const double*, int, double*, int, int, int);
int QRSolveManySSE41(const double*, int, int, double*, const double*, int, int, double*, int, int, int, int,
                     int);
int QRSolveLoopsSSE41(const double*, int, int, double*, const double*, int, double*, int, int, int);
int QRSolveManyLoopsSSE41(const double*, int, int, double*, const double*, int, int, double*, int, int, int,
                          int, int);

// Variant 4: AVX, sums and updates in 256-bit registers.
int QRDecomposeAVX(const double*, int, int, double*, double*, int, int, int, int);
int QRSolveAVX(const double*, int, int, double*, const double*, int, double*, int, int, int);
int QRSolveManyAVX(const double*, int, int, double*, const double*, int, int, double*, int, int, int, int,
                   int);
int QRSolveLoopsAVX(const double*, int, int, double*, const double*, int, double*, int, int, int);
int QRSolveManyLoopsAVX(const double*, int, int, double*, const double*, int, int, double*, int, int, int,
                        int, int);
