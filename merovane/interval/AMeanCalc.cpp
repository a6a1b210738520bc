// AMeanCalc: the per-baseline mean of an interval's records.
#include <merovane/interval/AMeanCalc.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include <merovane/uvx/ABaseLine.h>

namespace {

// The two antenna bytes of a group as they lie in it: ant1 low, ant2 high.
std::uint16_t antennaBytes(const AUVXGroup& group) {
    std::uint16_t ants;
    std::memcpy(&ants, &group.ant1, sizeof(ants));
    return ants;
}

}  // namespace

bool AMeanCalc::Filter(AUVXVisibility&, AUVXGroup& group, int, int flags) {
    if ((flags & kNoAutoCorr) != 0 && group.ant1 == group.ant2) return false;
    if ((flags & kOnlyAutoCorr) != 0 && group.ant1 != group.ant2) return false;
    return true;
}

bool AMeanCalc::Calculate(APtrArray<AUVXVisibility*>& inVis, AArray<AUVXGroup>& inGroups, double start,
                          double end, APtrArray<AUVXVisibility*>& outVis, AArray<AUVXGroup>& outGroups,
                          int flags) {
    outVis.Free();
    outGroups.Free();

    if (start == end) {
        // No averaging without a span: the accepted records themselves, still owned by inVis.
        outVis.owner = 0;
        for (int k = 0; k < inVis.count; ++k) {
            if (Filter(*inVis[k], inGroups[k], k, flags)) {
                outVis.Add(inVis[k]);
                outGroups.Add(inGroups[k]);
            }
        }
        return true;
    }

    ABaseLine baselines(0, 64);
    for (int k = 0; k < inGroups.count; ++k) {
        if (!Filter(*inVis[k], inGroups[k], k, flags)) continue;
        ABaseLineItem item;
        item.ants = antennaBytes(inGroups[k]);
        item.flag = static_cast<std::uint8_t>(inGroups[k].flags & 1);
        baselines.checkBase(item);
    }

    const int nBase = baselines.count;
    outVis.SetCount(nBase);
    // Null slots until filled, so that an allocation failing half-way leaves an array that can be
    // emptied safely.
    outVis.ZeroInit();
    outGroups.SetCount(nBase);
    if (nBase == 0) return true;

    const double tMid = (start + end) * 0.5;
    const AUVXVisibility& shape = *inVis[0];

    for (int b = 0; b < nBase; ++b) {
        const std::uint16_t ants = baselines[b].ants;
        AUVXVisibility* mean = new AUVXVisibility(std::max(1, shape.nIF), shape.nChan, shape.nStokes);
        outVis[b] = mean;
        mean->ZeroInit();
        AUVXComplex* sum = mean->data;

        int n = 0;
        float su = 0, sv = 0, sw = 0;
        std::int64_t ss = 0;
        for (int k = 0; k < inVis.count; ++k) {
            if (!Filter(*inVis[k], inGroups[k], k, flags)) continue;
            const AUVXGroup& g = inGroups[k];
            if (antennaBytes(g) != ants) continue;
            const AUVXVisibility& v = *inVis[k];
            // Only element 0 decides about the whole record; a NaN weight is not below 0.25.
            if (v.count < 1 || 0.25 > v.data[0].wt) continue;
            const int nElem = std::min(v.count, mean->count);
            for (int e = 0; e < nElem; ++e) {
                sum[e].re += v.data[e].re;
                sum[e].im += v.data[e].im;
                sum[e].wt += v.data[e].wt;
            }
            su += g.u;
            sv += g.v;
            sw += g.w;
            ss += g.sourceId;
            ++n;
        }

        AUVXGroup group;
        std::memset(&group, 0, sizeof(group));
        if (n > 0) {
            const float scale = 1.0f / static_cast<float>(n);
            for (int e = 0; e < mean->count; ++e) {
                sum[e].re *= scale;
                sum[e].im *= scale;
                sum[e].wt *= scale;
            }
            group.u = su * scale;
            group.v = sv * scale;
            group.w = sw * scale;
            group.sourceId = static_cast<std::int16_t>(ss / n);
        }
        group.time = tMid;
        std::memcpy(&group.ant1, &ants, sizeof(ants));
        group.flags = 0;
        group.freqId = 0;
        outGroups[b] = group;
    }
    return true;
}
