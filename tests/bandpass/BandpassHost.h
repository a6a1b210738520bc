// BandpassHost: a test host on the interval driver that derives a bandpass in one pass and applies it in a
// second.
#pragma once

#include <algorithm>
#include <cmath>

#include <merovane/bandpass/ABPass.h>
#include <merovane/bandpass/ABPass_ACorr.h>
#include <merovane/interval/AMeanCalc.h>
#include <merovane/interval/AUVXTimeWorks.h>

namespace bptest {

// Derives the bandpass interval by interval: with an ABPass from the interval's averaged
// autocorrelations (one record per telescope, so the factors do not multiply), with an ABPass_ACorr
// from the raw records, giving it fresh items of the interval's telescopes each time. Intervals
// without an autocorrelation of the bandpass source are passed over, so that they store nothing.
class ABandpassDeriveHost : public AUVXTimeWorks {
public:
    explicit ABandpassDeriveHost(ABPass& pass) : m_pass(&pass) {}
    explicit ABandpassDeriveHost(ABPass_ACorr& acorr) : m_acorr(&acorr) {}

    int intervals = 0;  // intervals that gave the store an entry

protected:
    bool IntervalsExec_Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start,
                                 double end) override {
        ABPass_Base& base = m_pass != nullptr ? static_cast<ABPass_Base&>(*m_pass) : *m_acorr;
        bool hasSource = false;
        for (const AUVXGroup& g : groups)
            hasSource = hasSource || (g.ant1 == g.ant2 && g.sourceId == base.sourceId);
        if (!hasSource) return true;
        ++intervals;
        if (m_pass != nullptr) {
            AMeanCalc mean;
            APtrArray<AUVXVisibility*> avgVis;
            AArray<AUVXGroup> avgGroups;
            mean.Calculate(vis, groups, start, end, avgVis, avgGroups, AMeanCalc::kOnlyAutoCorr);
            AArray<int> map;
            ABPass::GetTlscMap(avgGroups, map);
            if (!m_pass->InitInernalGain(map)) {
                m_errMsg = "InitInernalGain failed";
                return false;
            }
            m_pass->Calculate_A_AC(avgVis, avgGroups, start, end);
            m_pass->AddGain(start, end);
            return true;
        }
        AArray<int> map;
        ABPass::GetTlscMap(groups, map);
        m_acorr->ReleaseList(m_acorr->coefs);
        m_acorr->ReleaseList(m_acorr->counts);
        m_acorr->coefs.owner = 1;
        const int nIF = std::max(1, static_cast<int>(m_acorr->header->nIF));  // a packed field: copy it out
        for (int id : map) {
            auto* coef = new ABPassCoefItem();
            auto* count = new ABPassCountItem();
            m_acorr->coefs.Add(coef);
            m_acorr->counts.Add(count);
            if (!coef->Init(m_acorr->nPol, nIF, m_acorr->header->nChan) ||
                !count->Init(m_acorr->nPol, nIF, m_acorr->header->nChan)) {
                m_errMsg = "cannot size an item";
                return false;
            }
            coef->tlsc = count->tlsc = id;
        }
        return m_acorr->Calculate(vis, groups, start, end);
    }

private:
    ABPass* m_pass = nullptr;
    ABPass_ACorr* m_acorr = nullptr;
};

// Applies Calibrate to every record as the driver reads it and measures how flat the corrected
// parallel-hand autocorrelation spectra are: the rms over channels of each spectrum's relative
// departure from its own mean. The records go no further.
class ABandpassApplyHost : public AUVXTimeWorks {
public:
    explicit ABandpassApplyHost(ABPass_Base& base) : m_base(base) {}

    int records = 0, failures = 0;
    double sumSquares = 0;
    long long samples = 0;
    double FlatnessRms() const { return samples > 0 ? std::sqrt(sumSquares / samples) : 0.0; }

protected:
    bool Filter(AUVXVisibility& vis, AUVXGroup& group, int) override {
        ++records;
        if (!m_base.Calibrate(group, vis)) ++failures;
        if (group.ant1 != group.ant2) return false;
        for (int s = 0; s < vis.nStokes; ++s) {
            const int code = m_base.header->stokes[s];
            if (code != -1 && code != -2) continue;
            for (int iIF = 0; iIF < std::max(1, vis.nIF); ++iIF) {
                double mean = 0;
                for (int c = 0; c < vis.nChan; ++c) mean += vis.At(iIF, c, s).re;
                mean /= vis.nChan;
                for (int c = 0; c < vis.nChan; ++c) {
                    const double rel = vis.At(iIF, c, s).re / mean - 1.0;
                    sumSquares += rel * rel;
                    ++samples;
                }
            }
        }
        return false;
    }

private:
    ABPass_Base& m_base;
};

}  // namespace bptest
