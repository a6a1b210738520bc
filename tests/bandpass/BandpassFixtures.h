// BandpassFixtures: headers, antenna tables, records and stored items built in memory for the bandpass tests.
#pragma once

#include <algorithm>
#include <complex>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <merovane/bandpass/ABPass.h>
#include <merovane/bandpass/ABPass_ACorr.h>
#include <merovane/bandpass/ABPass_Base.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecords.h>

namespace bptest {

using Cf = std::complex<float>;

// A header with these products and shape.
inline AUVXHeader Header(std::initializer_list<int> stokes, int nIF, int nChan) {
    AUVXHeader h;
    h.nStokes = static_cast<std::int16_t>(stokes.size());
    int s = 0;
    for (int code : stokes) h.stokes[s++] = static_cast<std::int16_t>(code);
    h.nIF = nIF;
    h.nChan = nChan;
    return h;
}

// An antenna table of (name, ID) rows in this order.
inline AUVXAntenns Antennas(std::initializer_list<std::pair<const char*, int>> rows) {
    AUVXAntenns a;
    for (const auto& row : rows) {
        AUVXTlscItem item;
        std::memset(&item, 0, sizeof item);
        std::memcpy(item.name, row.first, std::min(std::strlen(row.first), sizeof item.name));
        item.id = row.second;
        a.Add(item);
    }
    return a;
}

inline AUVXGroup Group(int ant1, int ant2, double time = 0.0, int sourceId = 1) {
    AUVXGroup g;
    std::memset(&g, 0, sizeof g);
    g.ant1 = static_cast<std::int8_t>(ant1);
    g.ant2 = static_cast<std::int8_t>(ant2);
    g.time = time;
    g.sourceId = static_cast<std::int16_t>(sourceId);
    return g;
}

// One interval's records, owned by the list as the interval driver owns them.
struct AInterval {
    APtrArray<AUVXVisibility*> vis;
    AArray<AUVXGroup> groups;

    // Deletes the records and empties the lists (an assignment would leave the list not owning).
    void Clear() {
        vis.Free();
        groups.Free();
    }

    // A record whose every element is (re, im, wt); returns it for further changes.
    AUVXVisibility& Add(const AUVXGroup& g, int nIF, int nChan, int nStokes, float re = 1.0f, float im = 0.0f,
                        float wt = 1.0f) {
        auto* v = new AUVXVisibility(nIF, nChan, nStokes);
        for (AUVXComplex& e : *v) e = AUVXComplex{re, im, wt};
        vis.Add(v);
        groups.Add(g);
        return *v;
    }
};

// A coefficient item of telescope `tlsc` over [start, end) with every cell `value`.
inline ABPassCoefItem* Item(int tlsc, double start, double end, int nPol, int nIF, int nChan, Cf value) {
    auto* item = new ABPassCoefItem();
    item->Init(nPol, nIF, nChan);
    item->Fill(value);
    item->tlsc = tlsc;
    item->start = start;
    item->end = end;
    return item;
}

inline Cf& At(ABPassCoefItem& item, int p, int iIF, int iChan) {
    return item(static_cast<unsigned>(p), static_cast<unsigned>(iIF), static_cast<unsigned>(iChan));
}
inline int& At(ABPassCountItem& item, int p, int iIF, int iChan) {
    return item(static_cast<unsigned>(p), static_cast<unsigned>(iIF), static_cast<unsigned>(iChan));
}

// Exposes the protected members to the tests.
class ATestBPass : public ABPass {
public:
    using ABPass::ModifyAmpl;
    using ABPass_Base::m_searchByWalk;
    using ABPass_Base::SearchIndex;
    using ABPass_Base::SearchIndexWalk;
};

}  // namespace bptest
