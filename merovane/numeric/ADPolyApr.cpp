// ADPolyApr: the Chebyshev recurrence.
#include <merovane/numeric/ADPolyApr.h>

ADPolyApr::~ADPolyApr() {}

void ADPolyApr::Basis(double* out, int n, const double* x) {
    if (n < 1) return;
    out[0] = 1.0;
    if (n < 2) return;
    const double t = *x;
    out[1] = t;
    for (int k = 2; k < n; ++k) out[k] = 2.0 * t * out[k - 1] - out[k - 2];
}
