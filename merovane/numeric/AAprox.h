// ABAprox, AAprox, AAprPoly: least-squares approximation by a linear combination of basis functions.
#pragma once

#include <merovane/foundation/AMatrix.h>

// Root of the family: no data, three virtual slots (destructor, Value, Fit) that do nothing useful.
template <class T>
class ABAprox {
public:
    virtual ~ABAprox() {}
    // The approximation at x; the root has none and gives 0.
    virtual T Value(const T& x);
    // Fits samples x[first..last], y[first..last]; the root fits nothing and gives 0.
    virtual int Fit(const T* x, const T* y, int first, int last);
};

// Unweighted least-squares fit of nCoef coefficients, solved through the normal equations by Gaussian
// elimination with partial pivoting (absolute tolerance 1e-30). The basis is left to a derived class
// through the Basis slot; here it does nothing.
//
// Choices of this library: the constructor clears `coef` and `basis` and sets `scale` 1.0 and `offset` 0.0,
// so a Value before any Fit gives 0.0 instead of reading unset memory. Objects own their arrays and are not
// copyable. A count below 1 allocates nothing (Fit then gives status 2).
template <class T>
class AAprox : public ABAprox<T> {
public:
    explicit AAprox(int nCoef);
    ~AAprox() override;
    AAprox(const AAprox&) = delete;
    AAprox& operator=(const AAprox&) = delete;

    // Sum of coef[i] x basis[i] at t = scale x x + offset. Writes `basis`.
    T Value(const T& x) override;
    // Fits samples i = first..last (inclusive); the caller keeps x and y. Status: 0 fitted; 1 fewer
    // than 2 samples (also first > last); 2 nCoef below 1; 3 nCoef above the sample count; 4 the
    // normal matrix is singular to the tolerance. On any status but 0 every coefficient is 0.0.
    int Fit(const T* x, const T* y, int first, int last) override;

    // Writes the n basis functions at *x to out[0..n-1]; nothing here.
    virtual void Basis(T* out, int n, const T* x);
    // Chooses scale and offset from the samples; here always 1.0 and 0.0.
    virtual void SetScale(const T* x, const T* y, int first, int last);
    // Reserved slot; no path calls it.
    virtual void Spare();
    // Told the sample count before the normal equations are built; nothing here.
    virtual void OnSamples(int n);
    // Called after a successful fit with coef as both arguments; nothing here.
    virtual void OnCoefficients(T* in, T* out);

    int nCoef;           // number of coefficients, fixed by the constructor
    T* basis;            // nCoef values: the basis functions at the last abscissa
    T* coef;             // nCoef fitted coefficients
    T scale;             // the abscissa used is scale x x + offset
    T offset;            // see scale
    AMatrix<T>* normal;  // nCoef x nCoef normal matrix, alive only inside Fit
    T* rhs;              // nCoef right-hand side of the normal equations, alive only inside Fit

protected:
    // Solves normal x coef = rhs in place of both; 0 solved, 1 n below 1, 2 singular.
    int Solve(int n);
};

// Polynomial family on AAprox; adds nothing.
template <class T>
class AAprPoly : public AAprox<T> {
public:
    explicit AAprPoly(int nCoef) : AAprox<T>(nCoef) {}
    ~AAprPoly() override {}
};

extern template class ABAprox<double>;
extern template class AAprox<double>;
extern template class AAprPoly<double>;
