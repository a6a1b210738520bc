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
        std::vector<double> starts;  // the items' starts and ends, so that a search touches no item
        std::vector<double> ends;    // side by side for the bisection
        bool endsAscend = true;      // ends never fall along `positions`: a bisection finds the walk's item
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
            // A NaN end has no place in an order, so its telescope is walked.
            if (std::isnan(item->end) || (!entry.ends.empty() && item->end < entry.ends.back()))
                entry.endsAscend = false;
            entry.positions.push_back(i);
            entry.starts.push_back(item->start);
            entry.ends.push_back(item->end);
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

// A time in the gap between two intervals goes to the one whose middle is nearer, the later on a tie.
inline bool nearerBefore(double time, double startBefore, double endBefore, double startAfter,
                         double endAfter) {
    const double midBefore = endBefore * 0.5 + startBefore * 0.5;
    const double midAfter = endAfter * 0.5 + startAfter * 0.5;
    return std::fabs(time - midAfter) > std::fabs(time - midBefore);
}

// The first index whose end lies above `time` among `n` ascending ends, n when there is none, as
// std::upper_bound gives it; the halving has no branch on the data, so random times cost no
// mispredictions. A NaN time is above no end, as in the walk.
std::size_t upperBound(const double* ends, std::size_t n, double time) {
    const double* base = ends;
    std::size_t len = n;
    while (len > 1) {
        const std::size_t half = len / 2;
        base = !(time < base[half - 1]) ? base + half : base;
        len -= half;
    }
    return static_cast<std::size_t>(base - ends) + ((len == 1 && !(time < *base)) ? 1 : 0);
}

// The end of the walk's search: one side standing in for a missing other, then the gap rule.
int chooseInterval(APtrArray<ABPassCoefItem*>& stored, double time, int& before, int& after) {
    if (before < 0 && after < 0) return -1;
    if (before < 0) before = after;
    if (after < 0) after = before;
    if (before == after) return before;
    const ABPassCoefItem& b = *stored[before];
    const ABPassCoefItem& a = *stored[after];
    return nearerBefore(time, b.start, b.end, a.start, a.end) ? before : after;
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
    if (m_search->indexed != stored.count || (stored.count > 0 && m_search->firstItem != stored[0]))
        m_search->follow(stored);
    const ASearchCache::ATlsc* entry = m_search->find(tlsc);
    if (entry == nullptr) return -1;
    const std::vector<int>& positions = entry->positions;
    const std::vector<double>& starts = entry->starts;
    const std::vector<double>& ends = entry->ends;
    const std::size_t n = positions.size();
    // The walk stops at the telescope's first item whose end lies above the time.
    std::size_t j = 0;
    if (entry->endsAscend) {
        // upper_bound finds the first end with time < end; a NaN time compares false everywhere and,
        // as in the walk, finds none.
        j = upperBound(ends.data(), n, time);
    } else {
        while (j < n && !(ends[j] > time)) ++j;
    }
    // The same choice as the walk's, on positions within the telescope's lists.
    std::size_t jb = n, ja = n;
    if (j < n) {
        ja = j;
        if (!(starts[j] > time))
            jb = j;
        else if (j > 0)
            jb = j - 1;
    } else if (n > 0) {
        jb = n - 1;
    }
    if (jb == n && ja == n) return -1;
    if (jb == n) jb = ja;
    if (ja == n) ja = jb;
    before = positions[jb];
    after = positions[ja];
    if (jb == ja) return before;
    return nearerBefore(time, starts[jb], ends[jb], starts[ja], ends[ja]) ? before : after;
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

// One side's coefficients of one polarisation index, resolved once per product: the (iIF, iChan) plane
// of the item, or none (every coefficient 1 + 0i) without an item or outside its matrix.
struct ACoefPlane {
    const std::complex<float>* data = nullptr;
    unsigned nIF = 0, nChan = 0;

    ACoefPlane(const ABPassCoefItem* item, int p) {
        if (item == nullptr || item->GetDims() != 3 || item->data == nullptr || p < 0 ||
            static_cast<unsigned>(p) >= item->GetDim(0))
            return;
        nIF = item->GetDim(1);
        nChan = item->GetDim(2);
        data = item->data + static_cast<std::size_t>(p) * nIF * nChan;
    }
    std::complex<float> at(int iIF, int iChan) const {
        if (data == nullptr || static_cast<unsigned>(iIF) >= nIF || static_cast<unsigned>(iChan) >= nChan)
            return std::complex<float>(1.0f, 0.0f);
        return data[static_cast<std::size_t>(iIF) * nChan + static_cast<unsigned>(iChan)];
    }
};

// The principal square root of x + iy, real part never negative, the root of 0 being 0. The
// modulus is formed in double, where no float can overflow it, and the result rounded to float.
std::complex<float> principalRoot(float x, float y) {
    if (x == 0.0f && y == 0.0f) return std::complex<float>(0.0f, y);
    const double ax = std::fabs(static_cast<double>(x));
    const double ay = std::fabs(static_cast<double>(y));
    const double t = std::sqrt((std::sqrt(ax * ax + ay * ay) + ax) * 0.5);
    if (std::isinf(y)) return std::complex<float>(std::numeric_limits<float>::infinity(), y);
    if (x >= 0.0f) return std::complex<float>(static_cast<float>(t), static_cast<float>(y / (2.0 * t)));
    return std::complex<float>(static_cast<float>(ay / (2.0 * t)),
                               static_cast<float>(std::copysign(t, static_cast<double>(y))));
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
        const ACoefPlane plane1(item1, p1), plane2(item2, p2);
        for (int iIF = 0; iIF < nIF; ++iIF) {
            for (int iChan = 0; iChan < visibility.nChan; ++iChan) {
                AUVXComplex& sample = visibility.At(iIF, iChan, s);
                if (!(sample.wt > 0.0f)) continue;
                const std::complex<float> a = plane1.at(iIF, iChan);
                const std::complex<float> b = plane2.at(iIF, iChan);
                const float prodRe = a.real() * b.real() + a.imag() * b.imag();
                const float prodIm = a.imag() * b.real() - a.real() * b.imag();
                const std::complex<float> g = principalRoot(prodRe, prodIm);
                float re = sample.re, im = sample.im;
                smithDivide(re, im, g.real(), g.imag());
                sample.re = re;
                sample.im = im;
            }
        }
    }
    return true;
}
