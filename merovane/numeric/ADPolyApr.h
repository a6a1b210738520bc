// ADPolyApr: least-squares polynomial in the Chebyshev basis of the first kind, on raw abscissae.
#pragma once

#include <merovane/numeric/AAprox.h>

// The basis is T0 = 1, T1 = x, Tk = 2 x Tk-1 - Tk-2, evaluated at the abscissa as it comes (scale 1,
// offset 0: channel numbers are not mapped to -1..1). nCoef coefficients give degree nCoef - 1.
class ADPolyApr : public AAprPoly<double> {
public:
    explicit ADPolyApr(int nCoef) : AAprPoly<double>(nCoef) {}
    ~ADPolyApr() override;

    // out[0..n-1] = T0(*x) .. Tn-1(*x); n below 1 writes nothing.
    void Basis(double* out, int n, const double* x) override;
};
