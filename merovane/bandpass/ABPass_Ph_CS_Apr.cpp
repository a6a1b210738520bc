// ABPass_Ph_CS_Apr: the straight-line phase bandpass on the baselines to telescope 2, wrapped against
// unwrapped fit.
#include <merovane/bandpass/ABPass_Ph_CS_Apr.h>

#include <cmath>
#include <complex>

#include <merovane/bandpass/APhaseUnwrap.h>
#include <merovane/interval/AMeanCalc.h>
#include <merovane/numeric/ADPolyApr.h>

namespace {

constexpr int kReference = 2;

// Sum over the channels of (y[i] - fit(x[i])) squared, in channel order.
double Residual(ADPolyApr& fit, const AArray<double>& x, const AArray<double>& y) {
    double sum = 0.0;
    for (int i = 0; i < x.count; ++i) {
        const double d = y[i] - fit.Value(x[i]);
        sum += d * d;
    }
    return sum;
}

}  // namespace

ABPass_Ph_CS_Apr::ABPass_Ph_CS_Apr() = default;
ABPass_Ph_CS_Apr::ABPass_Ph_CS_Apr(const ABPass_Ph_CS_Apr& other) : ABPass_Base(other) {}
// A move copies, as the base's does: the items are shared either way.
ABPass_Ph_CS_Apr::ABPass_Ph_CS_Apr(ABPass_Ph_CS_Apr&& other) : ABPass_Base(other) {}
ABPass_Ph_CS_Apr& ABPass_Ph_CS_Apr::operator=(const ABPass_Ph_CS_Apr& other) {
    ABPass_Base::operator=(other);
    return *this;
}
ABPass_Ph_CS_Apr& ABPass_Ph_CS_Apr::operator=(ABPass_Ph_CS_Apr&& other) {
    ABPass_Base::operator=(other);
    return *this;
}

bool ABPass_Ph_CS_Apr::Calculate(APtrArray<AUVXVisibility*>& visibilities, AArray<AUVXGroup>& groups,
                                 double start, double end) {
    AMeanCalc mean;
    APtrArray<AUVXVisibility*> avgVis;  // owns the averaged records (not after a pass-through)
    AArray<AUVXGroup> avgGroups;
    if (!mean.Calculate(visibilities, groups, start, end, avgVis, avgGroups, 0)) return false;

    const int nIF = header->nIF > 1 ? header->nIF : 1, nChan = header->nChan, nStokes = header->nStokes;
    const int r = GetTlscIndex(kReference);
    if (r >= 0 && r < counts.count && PhaseItemFits(*coefs[r], nPol, nIF, nChan) &&
        PhaseItemFits(*counts[r], nPol, nIF, nChan)) {
        ABPass_coef_item<std::complex<float>>& coef = *coefs[r];
        ABPass_coef_item<int>& count = *counts[r];
        for (int p = 0; p < nPol; ++p)
            for (int iIF = 0; iIF < nIF; ++iIF)
                for (int iChan = 0; iChan < nChan; ++iChan) {
                    coef.data[PhaseCell(coef, p, iIF, iChan)] = std::complex<float>(1.0f, 0.0f);
                    count.data[PhaseCell(count, p, iIF, iChan)] = 1;
                }
    }
    if (nChan < 1) return true;

    AArray<double> x(nChan), wrapped(nChan), unwrapped(nChan);
    const double mid = (nChan - 1) * 0.5;
    const int nRecords = avgGroups.count < avgVis.count ? avgGroups.count : avgVis.count;
    for (int k = 0; k < nRecords; ++k) {
        const AUVXGroup& g = avgGroups[k];
        if (g.ant1 == g.ant2) continue;
        int other;
        double sign;
        if (g.ant1 == kReference) {
            other = g.ant2;
            sign = -1.0;
        } else if (g.ant2 == kReference) {
            other = g.ant1;
            sign = +1.0;
        } else {
            continue;
        }
        AUVXVisibility* vis = avgVis[k];
        if (!PhaseRecordFits(vis, nIF, nChan, nStokes)) continue;
        const int t = GetTlscIndex(other);
        if (t < 0 || t >= counts.count || !PhaseItemFits(*coefs[t], nPol, nIF, nChan) ||
            !PhaseItemFits(*counts[t], nPol, nIF, nChan))
            continue;
        ABPass_coef_item<std::complex<float>>& coef = *coefs[t];
        ABPass_coef_item<int>& count = *counts[t];
        for (int st = 0; st < nStokes; ++st) {
            const int p = PhaseParallelIndex(header->stokes[st], nPol);
            if (p < 0) continue;
            for (int iIF = 0; iIF < nIF; ++iIF) {
                APhaseUnwrap unwrap;
                for (int iChan = 0; iChan < nChan; ++iChan) {
                    x[iChan] = static_cast<double>(iChan);
                    const double ph = vis->At(iIF, iChan, st).phase();
                    unwrapped[iChan] = unwrap.Add(ph);
                    wrapped[iChan] = ph;
                }
                ADPolyApr w(2), u(2);
                w.Fit(x.data, wrapped.data, 0, nChan - 1);
                u.Fit(x.data, unwrapped.data, 0, nChan - 1);
                // The unwrapped line only when it is strictly better: a tie keeps the measured phases.
                ADPolyApr& chosen = Residual(w, x, wrapped) > Residual(u, x, unwrapped) ? u : w;
                const double atMid = chosen.Value(mid);
                chosen.coef[0] += atMid;
                for (int iChan = 0; iChan < nChan; ++iChan) {
                    const double angle = sign * chosen.Value(x[iChan]);
                    coef.data[PhaseCell(coef, p, iIF, iChan)] = std::complex<float>(
                        static_cast<float>(std::cos(angle)), static_cast<float>(std::sin(angle)));
                    count.data[PhaseCell(count, p, iIF, iChan)] = 1;
                }
            }
        }
    }
    return true;  // avgVis releases the averaged records if it owns them
}
