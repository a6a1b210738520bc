// ABAprox, AAprox, AAprPoly: normal equations and their Gaussian elimination.
#include <merovane/numeric/AAprox.h>

#include <cmath>
#include <new>

namespace {
// Pivots and eliminated elements at or below this magnitude count as zero.
constexpr double kTolerance = 1e-30;
}  // namespace

template <class T>
T ABAprox<T>::Value(const T&) {
    return T(0);
}

template <class T>
int ABAprox<T>::Fit(const T*, const T*, int, int) {
    return 0;
}

template <class T>
AAprox<T>::AAprox(int n)
    : nCoef(n), basis(nullptr), coef(nullptr), scale(1), offset(0), normal(nullptr), rhs(nullptr) {
    if (n > 0) {
        coef = new T[n];
        basis = new T[n];
        for (int i = 0; i < n; ++i) coef[i] = basis[i] = T(0);
    }
}

template <class T>
AAprox<T>::~AAprox() {
    delete[] coef;
    delete[] basis;
    delete normal;
    delete[] rhs;
}

template <class T>
T AAprox<T>::Value(const T& x) {
    if (nCoef < 1) return T(0);
    const T t = scale * x + offset;
    Basis(basis, nCoef, &t);
    T sum = T(0);
    for (int i = 0; i < nCoef; ++i) sum += coef[i] * basis[i];
    return sum;
}

template <class T>
void AAprox<T>::Basis(T*, int, const T*) {}

template <class T>
void AAprox<T>::SetScale(const T*, const T*, int, int) {
    scale = T(1);
    offset = T(0);
}

template <class T>
void AAprox<T>::Spare() {}

template <class T>
void AAprox<T>::OnSamples(int) {}

template <class T>
void AAprox<T>::OnCoefficients(T*, T*) {}

template <class T>
int AAprox<T>::Fit(const T* x, const T* y, int first, int last) {
    for (int i = 0; i < nCoef; ++i) coef[i] = T(0);
    // The count in 64 bits: first and last may lie anywhere in the int range.
    const long long samples = static_cast<long long>(last) - first + 1;
    if (samples < 2) return 1;
    if (nCoef < 1) return 2;
    if (nCoef > samples) return 3;

    SetScale(x, y, first, last);
    OnSamples(static_cast<int>(samples));

    normal = new AMatrix<T>(nCoef, nCoef);
    if (normal->data == nullptr) {
        delete normal;
        normal = nullptr;
        throw std::bad_alloc();
    }
    normal->Zero();
    rhs = new T[nCoef];
    for (int j = 0; j < nCoef; ++j) rhs[j] = T(0);

    AMatrix<T>& m = *normal;
    for (int i = first; i <= last; ++i) {
        const T t = x[i] * scale + offset;
        Basis(basis, nCoef, &t);
        for (int j = 0; j < nCoef; ++j) {
            rhs[j] += basis[j] * y[i];
            for (int k = j; k < nCoef; ++k) {
                const T p = basis[j] * basis[k];
                m(k, j) += p;
                if (k != j) m(j, k) += p;
            }
        }
    }

    int status = Solve(nCoef) == 0 ? 0 : 4;

    delete[] rhs;
    rhs = nullptr;
    delete normal;
    normal = nullptr;

    if (status == 0)
        OnCoefficients(coef, coef);
    else
        for (int i = 0; i < nCoef; ++i) coef[i] = T(0);
    return status;
}

template <class T>
int AAprox<T>::Solve(int n) {
    if (n < 1) return 1;
    AMatrix<T>& m = *normal;
    T* b = rhs;
    if (n == 1) {
        if (std::fabs(m(0, 0)) >= kTolerance) {
            coef[0] = b[0] / m(0, 0);
            return 0;
        }
        return 2;
    }
    int status = 0;
    for (int k = 0; k <= n - 2 && status == 0; ++k) {
        int best = k;
        for (int r = k + 1; r < n; ++r)
            if (std::fabs(m(r, k)) > std::fabs(m(best, k))) best = r;
        if (best != k) {
            // A swapped-in pivot is used however small it is.
            for (int c = 0; c < n; ++c) {
                T s = m(best, c);
                m(best, c) = m(k, c);
                m(k, c) = s;
            }
            T s = b[best];
            b[best] = b[k];
            b[k] = s;
        } else if (std::fabs(m(k, k)) < kTolerance) {
            status = 2;
            break;
        }
        for (int r = k + 1; r < n; ++r) {
            if (!(std::fabs(m(r, k)) > kTolerance)) continue;
            const T f = -m(r, k) / m(k, k);
            for (int c = 0; c < n; ++c) m(r, c) += f * m(k, c);
            b[r] += f * b[k];
        }
    }
    if (status == 0 && std::fabs(m(n - 1, n - 1)) < kTolerance) status = 2;
    if (status != 0) return status;
    for (int i = n - 1; i >= 0; --i) {
        T s = T(0);
        for (int k = i + 1; k < n; ++k) s += m(i, k) * coef[k];
        coef[i] = (b[i] - s) / m(i, i);
    }
    return 0;
}

template class ABAprox<double>;
template class AAprox<double>;
template class AAprPoly<double>;
