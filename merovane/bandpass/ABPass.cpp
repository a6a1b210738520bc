// ABPass: telescope maps, reference antenna, current items per interval, amplitude bandpass.
#include <merovane/bandpass/ABPass.h>

#include <algorithm>
#include <cmath>

#include <merovane/platform/CString.h>

namespace {

// Stations preferred as reference, best first; made once when the module is loaded.
const CString kPreferredReferences[] = {"AR", "GB", "EF", "WB", "YS"};

bool isParallel(int code) {
    return code == -1 || code == -2 || code == -5 || code == -6;
}

// Polarisation index of a parallel-hand code: RR and XX 0, LL and YY the last.
int parallelIndex(int code, int nPol) {
    return (code == -1 || code == -5) ? 0 : nPol - 1;
}

// True if (p, iIF, iChan) lies inside the item's matrix.
template <class T>
bool inside(const ABPass_coef_item<T>& item, int p, int iIF, int iChan) {
    return item.GetDims() == 3 && p >= 0 && static_cast<unsigned>(p) < item.GetDim(0) &&
           static_cast<unsigned>(iIF) < item.GetDim(1) && static_cast<unsigned>(iChan) < item.GetDim(2);
}

template <class T>
T& cell(ABPass_coef_item<T>& item, int p, int iIF, int iChan) {
    return item
        .data[(static_cast<std::size_t>(p) * item.GetDim(1) + static_cast<unsigned>(iIF)) * item.GetDim(2) +
              static_cast<unsigned>(iChan)];
}

}  // namespace

ABPass::ABPass() : ranges(nullptr) {}

ABPass::ABPass(const ABPass& other) : ABPass_Base(other), ranges(other.ranges) {}

ABPass::ABPass(ABPass&& other) : ABPass_Base(static_cast<const ABPass_Base&>(other)), ranges(other.ranges) {}

ABPass& ABPass::operator=(const ABPass& other) {
    ABPass_Base::operator=(other);
    ranges = other.ranges;
    return *this;
}

ABPass& ABPass::operator=(ABPass&& other) {
    return *this = static_cast<const ABPass&>(other);
}

int ABPass::GetTlscMap(AArray<AUVXGroup>& groups, AArray<int>& map) {
    map.Free();
    bool present[64] = {};
    for (int k = 0; k < groups.count; ++k) {
        // Records are packed: copy the IDs out before testing them.
        const int ids[2] = {groups[k].ant1, groups[k].ant2};
        for (int id : ids)
            if (id >= 1 && id <= 64) present[id - 1] = true;
    }
    const int n = static_cast<int>(std::count(present, present + 64, true));
    map.SetCount(n);
    int next = 0;
    for (int i = 0; i < 64; ++i)
        if (present[i]) map[next++] = i + 1;
    return n;
}

int IndexInMap(AArray<int>& map, int id) {
    for (int i = 0; i < map.count; ++i)
        if (map[i] == id) return i;
    return -1;
}

int GetBestReferenceAntenna(AArray<int>& map, AUVXAntenns& antennas) {
    for (const CString& name : kPreferredReferences) {
        for (int row = 0; row < antennas.count; ++row) {
            if (antennas[row].Name() != name) continue;
            const int index = IndexInMap(map, antennas[row].id);
            if (index >= 0) return index;
            break;  // only a station's first row counts
        }
    }
    return map.count - 1;
}

bool ABPass::InitInernalGain(AArray<int>& ids) {
    ReleaseList(coefs);
    ReleaseList(counts);
    coefs.owner = 1;
    const int nIF = header != nullptr ? std::max(1, static_cast<int>(header->nIF)) : 0;
    const int nChan = header != nullptr ? header->nChan : 0;
    for (int k = 0; k < ids.count; ++k) {
        auto* coef = new ABPassCoefItem();
        if (!coef->Init(nPol, nIF, nChan)) {
            delete coef;
            return false;
        }
        auto* count = new ABPassCountItem();
        if (!count->Init(nPol, nIF, nChan)) {
            delete coef;
            delete count;
            return false;
        }
        coef->tlsc = count->tlsc = ids[k];
        coef->Fill(std::complex<float>(1.0f, 0.0f));
        count->ZeroFill();
        coefs.Add(coef);
        counts.Add(count);
    }
    return true;
}

bool ABPass::AddGain(double start, double end) {
    for (int i = 0; i < coefs.count; ++i) {
        coefs[i]->start = start;
        coefs[i]->end = end;
        stored.Add(coefs[i]);
    }
    coefs.owner = 0;
    return true;
}

bool ABPass::Calculate_A_AC(APtrArray<AUVXVisibility*>& visibilities, AArray<AUVXGroup>& groups, double,
                            double) {
    if (visibilities.count < 1 || header == nullptr) return true;
    const int nChan = visibilities[0]->nChan;
    AArray<float> spectrum(nChan);
    const int records = std::min(visibilities.count, groups.count);
    for (int k = 0; k < records; ++k) {
        const AUVXGroup& group = groups[k];
        AUVXVisibility& vis = *visibilities[k];
        if (group.sourceId != sourceId || group.ant1 != group.ant2) continue;
        const int t = GetTlscIndex(group.ant1);
        // A telescope without an item, or a record of another shape than the first, cannot be used.
        if (t < 0 || vis.nChan != nChan) continue;
        ABPassCoefItem& coef = *coefs[t];
        ABPassCountItem& count = *counts[t];
        const int nIF = std::max(1, vis.nIF);
        for (int iIF = 0; iIF < nIF; ++iIF) {
            for (int s = 0; s < vis.nStokes && s < 8; ++s) {
                const int code = header->stokes[s];
                if (!isParallel(code)) continue;
                const int p = parallelIndex(code, nPol);
                double sum = 0.0;
                int used = 0;
                for (int iChan = 0; iChan < nChan; ++iChan) {
                    const AUVXComplex& sample = vis.At(iIF, iChan, s);
                    if (sample.wt > 0.0f) {
                        sum += static_cast<double>(sample.re);
                        ++used;
                    }
                }
                const double mean = used > 0 ? sum / used : 0.0;
                for (int iChan = 0; iChan < nChan; ++iChan)
                    spectrum[iChan] =
                        (mean == 0.0 || std::isnan(mean))
                            ? 1.0f
                            : static_cast<float>(static_cast<double>(vis.At(iIF, iChan, s).re) / mean);
                if (ranges != nullptr) ModifyAmpl(group.ant1, spectrum, *ranges);
                for (int iChan = 0; iChan < nChan; ++iChan) {
                    if (!inside(coef, p, iIF, iChan) || !inside(count, p, iIF, iChan)) continue;
                    std::complex<float>& c = cell(coef, p, iIF, iChan);
                    const float factor = spectrum[iChan];
                    c = std::complex<float>(c.real() * factor, c.imag() * factor);
                    cell(count, p, iIF, iChan) = 1;
                }
            }
        }
    }
    return true;
}

void ABPass::ModifyAmpl(int tlsc, AArray<float>& spectrum, AArray<ABPCHRange>& rangeList) {
    const int lastIndex = spectrum.count - 1;
    for (int r = 0; r < rangeList.count; ++r) {
        const ABPCHRange range = rangeList[r];
        if (range.tlsc > 0 && range.tlsc != tlsc) continue;
        if (range.first < 0) {
            for (int k = 0; k < spectrum.count; ++k) spectrum[k] = 1.0f;
            return;
        }
        if (range.last > lastIndex) continue;
        // With nothing strictly between the ends no entry changes, and the ends need not exist.
        if (static_cast<long long>(range.last) - range.first < 2) continue;
        const float first = spectrum[range.first];
        const float step = 1.0f / static_cast<float>(range.last - range.first);
        for (int k = range.first + 1; k <= range.last - 1; ++k)
            spectrum[k] = static_cast<float>(k - range.first) * (spectrum[range.last] - first) * step + first;
    }
}
