// ABPass_ACorr: the mean complex autocorrelation spectrum per telescope, stored for its interval.
#include <merovane/bandpass/ABPass_ACorr.h>

#include <algorithm>

ABPass_ACorr::ABPass_ACorr() {}

ABPass_ACorr::ABPass_ACorr(const ABPass_ACorr& other) : ABPass_Base(other) {}

ABPass_ACorr::ABPass_ACorr(ABPass_ACorr&& other) : ABPass_Base(static_cast<const ABPass_Base&>(other)) {}

ABPass_ACorr& ABPass_ACorr::operator=(const ABPass_ACorr& other) {
    ABPass_Base::operator=(other);
    return *this;
}

ABPass_ACorr& ABPass_ACorr::operator=(ABPass_ACorr&& other) {
    return *this = static_cast<const ABPass_ACorr&>(other);
}

bool ABPass_ACorr::Calculate(APtrArray<AUVXVisibility*>& visibilities, AArray<AUVXGroup>& groups,
                             double start, double end) {
    const int items = std::min(coefs.count, counts.count);
    for (int t = 0; t < items; ++t) {
        coefs[t]->ZeroFill();
        counts[t]->ZeroFill();
    }
    long long total = 0;
    const int records = header != nullptr ? std::min(visibilities.count, groups.count) : 0;
    for (int k = 0; k < records; ++k) {
        const AUVXGroup& group = groups[k];
        AUVXVisibility& vis = *visibilities[k];
        if (group.sourceId != sourceId || group.ant1 != group.ant2) continue;
        const int t = GetTlscIndex(group.ant1);
        if (t < 0 || t >= items) continue;
        ABPassCoefItem& coef = *coefs[t];
        ABPassCountItem& count = *counts[t];
        if (coef.GetDims() != 3 || count.GetDims() != 3) continue;
        const int nIF = std::max(1, vis.nIF);
        for (int iIF = 0; iIF < nIF; ++iIF) {
            for (int s = 0; s < vis.nStokes && s < 8; ++s) {
                const int code = header->stokes[s];
                if (code != -1 && code != -2 && code != -5 && code != -6) continue;
                const int p = (code == -1 || code == -5) ? 0 : nPol - 1;
                for (int iChan = 0; iChan < vis.nChan; ++iChan) {
                    // Cells outside the item's matrix (a record of another shape) are not summed.
                    if (p < 0 || static_cast<unsigned>(p) >= coef.GetDim(0) ||
                        static_cast<unsigned>(iIF) >= coef.GetDim(1) ||
                        static_cast<unsigned>(iChan) >= coef.GetDim(2))
                        continue;
                    const std::size_t at =
                        (static_cast<std::size_t>(p) * coef.GetDim(1) + static_cast<unsigned>(iIF)) *
                            coef.GetDim(2) +
                        static_cast<unsigned>(iChan);
                    if (at >= count.count()) continue;
                    const AUVXComplex& sample = vis.At(iIF, iChan, s);
                    std::complex<float>& c = coef.data[at];
                    c = std::complex<float>(c.real() + sample.re, c.imag() + sample.im);
                    count.data[at] += 1;
                    ++total;
                }
            }
        }
    }
    for (int t = 0; t < items; ++t) {
        ABPassCoefItem& coef = *coefs[t];
        ABPassCountItem& count = *counts[t];
        const std::size_t cells = std::min(coef.count(), count.count());
        for (std::size_t i = 0; i < cells; ++i) {
            if (count.data[i] <= 0) continue;
            const float scale = 1.0f / static_cast<float>(count.data[i]);
            coef.data[i] = std::complex<float>(coef.data[i].real() * scale, coef.data[i].imag() * scale);
        }
    }
    if (total == 0) return true;
    for (int i = 0; i < coefs.count; ++i) {
        coefs[i]->start = start;
        coefs[i]->end = end;
        stored.Add(coefs[i]);
    }
    coefs.owner = 0;
    return true;
}
