// ABPass_coef_item and ABPass_Base: coefficient items, shared-item release, stored-interval lookup,
// Calibrate.
#include <merovane/bandpass/ABPass_Base.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>
#include <vector>

#include <merovane/platform/Afx.h>
#include <merovane/platform/CString.h>

// ---------------------------------------------------------------------------------------------------
// ABPass_coef_item

template <class T>
ABPass_coef_item<T>::ABPass_coef_item() {}

template <class T>
ABPass_coef_item<T>::ABPass_coef_item(const ABPass_coef_item& other)
    : AFreeMatrix<T>(other), start(other.start), end(other.end), tlsc(other.tlsc) {}

template <class T>
ABPass_coef_item<T>::ABPass_coef_item(ABPass_coef_item&& other)
    : AFreeMatrix<T>(other), start(other.start), end(other.end), tlsc(other.tlsc) {}

template <class T>
ABPass_coef_item<T>& ABPass_coef_item<T>::operator=(const ABPass_coef_item& other) {
    AFreeMatrix<T>::operator=(other);
    start = other.start;
    end = other.end;
    tlsc = other.tlsc;
    return *this;
}

template <class T>
ABPass_coef_item<T>& ABPass_coef_item<T>::operator=(ABPass_coef_item&& other) {
    return *this = static_cast<const ABPass_coef_item&>(other);
}

template <class T>
bool ABPass_coef_item<T>::Init(int nPol, int nIF, int nChan) {
    // A zero would close the extent list early and give a matrix of the wrong rank.
    if (nPol < 1 || nIF < 1 || nChan < 1) return false;
    return this->GrowBy(static_cast<unsigned>(nPol), static_cast<unsigned>(nIF), static_cast<unsigned>(nChan),
                        0u) != 0;
}

template struct ABPass_coef_item<int>;
template struct ABPass_coef_item<std::complex<float>>;

// ---------------------------------------------------------------------------------------------------
// Shares and the per-telescope lookup

// Extra holders of an item beyond the first, for every item that a copy registered. An item that is
// not listed has one holder.
struct ABPass_Base::AItemShares {
    std::unordered_map<const void*, int> extra;

    void add(const void* item) { ++extra[item]; }
    // True if another holder remains, in which case this holder's share is given back.
    bool giveBack(const void* item) {
        auto it = extra.find(item);
        if (it == extra.end()) return false;
        if (--it->second == 0) extra.erase(it);
        return true;
    }
};

// Positions in `stored` of each telescope's items, in store order, for the items looked at so far.
struct ABPass_Base::ASearchCache {
    struct ATlsc {
        std::vector<int> positions;
        bool endsAscend = true;  // ends never fall along `positions`: a bisection finds the walk's item
    };
    int indexed = 0;                         // items of `stored` taken in
    const void* firstItem = nullptr;         // stored[0] when it was taken in: a new list is indexed afresh
    int byId[65];                            // slot in `tlscs` for IDs 0..64, -1 for none
    std::unordered_map<int, int> byOtherId;  // slot for any other ID
    std::vector<ATlsc> tlscs;

    ASearchCache() { std::fill(byId, byId + 65, -1); }

    ATlsc* find(int tlsc) {
        int slot = -1;
        if (tlsc >= 0 && tlsc <= 64) {
            slot = byId[tlsc];
        } else {
            auto it = byOtherId.find(tlsc);
            if (it != byOtherId.end()) slot = it->second;
        }
        return slot < 0 ? nullptr : &tlscs[static_cast<std::size_t>(slot)];
    }

    ATlsc& slotFor(int tlsc) {
        if (ATlsc* known = find(tlsc)) return *known;
        const int slot = static_cast<int>(tlscs.size());
        tlscs.emplace_back();
        if (tlsc >= 0 && tlsc <= 64)
            byId[tlsc] = slot;
        else
            byOtherId[tlsc] = slot;
        return tlscs.back();
    }

    // Takes in the items appended to `stored` since the last call.
    void follow(APtrArray<ABPassCoefItem*>& stored) {
        const void* first = stored.count > 0 ? stored[0] : nullptr;
        if (stored.count < indexed || (indexed > 0 && first != firstItem)) *this = ASearchCache();
        firstItem = first;
        for (int i = indexed; i < stored.count; ++i) {
            const ABPassCoefItem* item = stored[i];
            if (item == nullptr) continue;
            ATlsc& entry = slotFor(item->tlsc);
            if (!entry.positions.empty() && item->end < stored[entry.positions.back()]->end)
                entry.endsAscend = false;
            entry.positions.push_back(i);
        }
        indexed = stored.count;
    }
};

// ---------------------------------------------------------------------------------------------------
// ABPass_Base

ABPass_Base::ABPass_Base()
    : sourceId(0), nPol(0), antennas(nullptr), header(nullptr), m_shares(std::make_shared<AItemShares>()) {}

ABPass_Base::ABPass_Base(const ABPass_Base& other) : ABPass_Base() {
    copyFrom(other);
}

ABPass_Base::ABPass_Base(ABPass_Base&& other) : ABPass_Base() {
    copyFrom(other);
}

ABPass_Base& ABPass_Base::operator=(const ABPass_Base& other) {
    if (this == &other) return *this;
    releaseAll();
    copyFrom(other);
    return *this;
}

ABPass_Base& ABPass_Base::operator=(ABPass_Base&& other) {
    return *this = static_cast<const ABPass_Base&>(other);
}

ABPass_Base::~ABPass_Base() {
    releaseAll();
}

void ABPass_Base::copyFrom(const ABPass_Base& other) {
    sourceId = other.sourceId;
    nPol = other.nPol;
    antennas = other.antennas;
    header = other.header;
    m_searchByWalk = other.m_searchByWalk;
    m_shares = other.m_shares;
    m_search.reset();
    auto share = [this](auto& target, const auto& source) {
        // The target is empty here; with owner 0 the pointer copy deletes nothing.
        target.owner = 0;
        target = source;
        target.owner = source.owner;
        if (target.owner == 0) return;
        for (int i = 0; i < target.count; ++i)
            if (target[i] != nullptr) m_shares->add(target[i]);
    };
    share(coefs, other.coefs);
    share(counts, other.counts);
    share(stored, other.stored);
}

void ABPass_Base::ReleaseList(APtrArray<ABPassCoefItem*>& list) {
    if (list.owner != 0)
        for (int i = 0; i < list.count; ++i)
            if (list[i] != nullptr && m_shares->giveBack(list[i])) list[i] = nullptr;
    list.Free();
}

void ABPass_Base::ReleaseList(APtrArray<ABPassCountItem*>& list) {
    if (list.owner != 0)
        for (int i = 0; i < list.count; ++i)
            if (list[i] != nullptr && m_shares->giveBack(list[i])) list[i] = nullptr;
    list.Free();
}

void ABPass_Base::releaseAll() {
    ReleaseList(stored);
    ReleaseList(counts);
    ReleaseList(coefs);
    m_search.reset();
}

bool ABPass_Base::Init(AUVXHeader& hdr, AUVXAntenns& ants, int source) {
    header = &hdr;
    antennas = &ants;
    sourceId = source;
    nPol = 0;
    const int codes = std::min<int>(std::max<int>(hdr.nStokes, 0), 8);
    for (int s = 0; s < codes; ++s) {
        const int code = hdr.stokes[s];
        if (code == -1 || code == -2 || code == -5 || code == -6) ++nPol;
    }
    return false;
}

bool ABPass_Base::Calculate(APtrArray<AUVXVisibility*>&, AArray<AUVXGroup>&, double, double) {
    return true;
}

int ABPass_Base::GetTlscIndex(int tlsc) {
    for (int i = 0; i < coefs.count; ++i)
        if (coefs[i] != nullptr && coefs[i]->tlsc == tlsc) return i;
    CString text;
    text.Format("Error GetTlscIndex %d", tlsc);
    AfxMessageBox(text);
    return -1;
}

namespace {

// Steps 3 to 5 of the search, shared by the walk and the lookup: one side standing in for a missing
// other, and a time in a gap going to the interval whose middle is nearer (the later on a tie).
int chooseInterval(APtrArray<ABPassCoefItem*>& stored, double time, int& before, int& after) {
    if (before < 0 && after < 0) return -1;
    if (before < 0) before = after;
    if (after < 0) after = before;
    if (before == after) return before;
    const ABPassCoefItem& b = *stored[before];
    const ABPassCoefItem& a = *stored[after];
    const double midBefore = b.end * 0.5 + b.start * 0.5;
    const double midAfter = a.end * 0.5 + a.start * 0.5;
    return std::fabs(time - midAfter) > std::fabs(time - midBefore) ? before : after;
}

}  // namespace

int ABPass_Base::SearchIndexWalk(const double& time, int tlsc, int& before, int& after) {
    before = after = -1;
    for (int i = 0; i < stored.count; ++i) {
        const ABPassCoefItem* item = stored[i];
        if (item == nullptr || item->tlsc != tlsc) continue;
        if (item->end > time) {
            after = i;
            if (!(item->start > time)) before = i;
            break;
        }
        before = i;
    }
    return chooseInterval(stored, time, before, after);
}

int ABPass_Base::SearchIndex(const double& time, int tlsc, int& before, int& after) {
    before = after = -1;
    if (!m_search) m_search.reset(new ASearchCache());
    m_search->follow(stored);
    const ASearchCache::ATlsc* entry = m_search->find(tlsc);
    if (entry == nullptr) return -1;
    const std::vector<int>& positions = entry->positions;
    const std::size_t n = positions.size();
    // The walk stops at the telescope's first item whose end lies above the time.
    std::size_t j = 0;
    if (entry->endsAscend) {
        j = static_cast<std::size_t>(
            std::upper_bound(positions.begin(), positions.end(), time,
                             [this](double t, int pos) { return t < stored[pos]->end; }) -
            positions.begin());
    } else {
        while (j < n && !(stored[positions[j]]->end > time)) ++j;
    }
    if (j < n) {
        after = positions[j];
        if (!(stored[after]->start > time))
            before = after;
        else if (j > 0)
            before = positions[j - 1];
    } else if (n > 0) {
        before = positions[n - 1];
    }
    return chooseInterval(stored, time, before, after);
}

namespace {

// Polarisation indices of a Stokes code for ant1 and ant2; false for a code outside -8..-1.
bool stokesIndices(int code, int nPol, int& p1, int& p2) {
    switch (code) {
        case -1:
        case -5:
            p1 = p2 = 0;
            return true;
        case -2:
        case -6:
            p1 = p2 = nPol - 1;
            return true;
        case -3:
        case -7:
            p1 = 0;
            p2 = 1;
            return true;
        case -4:
        case -8:
            p1 = 1;
            p2 = 0;
            return true;
        default:
            return false;
    }
}

// The coefficient at (p, iIF, iChan) of `item`, or 1 + 0i without an item or outside its matrix.
std::complex<float> coefficientAt(ABPassCoefItem* item, int p, int iIF, int iChan) {
    if (item == nullptr || item->GetDims() != 3 || p < 0 || static_cast<unsigned>(p) >= item->GetDim(0) ||
        static_cast<unsigned>(iIF) >= item->GetDim(1) || static_cast<unsigned>(iChan) >= item->GetDim(2))
        return std::complex<float>(1.0f, 0.0f);
    return item->data[(static_cast<std::size_t>(p) * item->GetDim(1) + static_cast<unsigned>(iIF)) *
                          item->GetDim(2) +
                      static_cast<unsigned>(iChan)];
}

// (re + i im) / (c + i d) by Smith's method in single precision; NaN in both parts when c or d is NaN,
// both are 0, or the scale m is NaN or 0.
void smithDivide(float& re, float& im, float c, float d) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    if (std::isnan(c) || std::isnan(d) || (c == 0.0f && d == 0.0f)) {
        re = im = nan;
        return;
    }
    float r, m, outRe, outIm;
    if (std::fabs(d) < std::fabs(c)) {
        r = d / c;
        m = r * d + c;
        if (std::isnan(m) || m == 0.0f) {
            re = im = nan;
            return;
        }
        const float inv = 1.0f / m;
        outRe = (re + im * r) * inv;
        outIm = (im - re * r) * inv;
    } else {
        r = c / d;
        m = r * c + d;
        if (std::isnan(m) || m == 0.0f) {
            re = im = nan;
            return;
        }
        const float inv = 1.0f / m;
        outRe = (re * r + im) * inv;
        outIm = (im * r - re) * inv;
    }
    re = outRe;
    im = outIm;
}

}  // namespace

bool ABPass_Base::Calibrate(AUVXGroup& group, AUVXVisibility& visibility) {
    int before = 0, after = 0;
    const double time = group.time;
    ABPassCoefItem* item1 = nullptr;
    ABPassCoefItem* item2 = nullptr;
    const int i1 = m_searchByWalk ? SearchIndexWalk(time, group.ant1, before, after)
                                  : SearchIndex(time, group.ant1, before, after);
    const int i2 = m_searchByWalk ? SearchIndexWalk(time, group.ant2, before, after)
                                  : SearchIndex(time, group.ant2, before, after);
    if (i1 >= 0) item1 = stored[i1];
    if (i2 >= 0) item2 = stored[i2];

    const int nIF = std::max(1, visibility.nIF);
    for (int s = 0; s < visibility.nStokes; ++s) {
        int p1 = 0, p2 = 0;
        if (s >= 8 || header == nullptr || !stokesIndices(header->stokes[s], nPol, p1, p2)) return false;
        for (int iIF = 0; iIF < nIF; ++iIF) {
            for (int iChan = 0; iChan < visibility.nChan; ++iChan) {
                AUVXComplex& sample = visibility.At(iIF, iChan, s);
                if (!(sample.wt > 0.0f)) continue;
                const std::complex<float> a = coefficientAt(item1, p1, iIF, iChan);
                const std::complex<float> b = coefficientAt(item2, p2, iIF, iChan);
                const float prodRe = a.real() * b.real() + a.imag() * b.imag();
                const float prodIm = a.imag() * b.real() - a.real() * b.imag();
                const std::complex<float> g = std::sqrt(std::complex<float>(prodRe, prodIm));
                float re = sample.re, im = sample.im;
                smithDivide(re, im, g.real(), g.imag());
                sample.re = re;
                sample.im = im;
            }
        }
    }
    return true;
}
