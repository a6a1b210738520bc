// ADigErrCorrect: power measurement from autocorrelations and the per-baseline rescaling.
#include <merovane/digitisation/ADigErrCorrect.h>

#include <cmath>
#include <cstdint>

namespace {

constexpr int kRR = -1;
constexpr int kLL = -2;
constexpr int kRL = -3;
constexpr int kLR = -4;

bool isParallelHand(int code) {
    return code == kRR || code == kLL;
}

// Products of the header that are looked at: nStokes, but never beyond the eight codes it can hold.
int headerProducts(const AUVXHeader& header) {
    int n = header.nStokes;
    if (n < 0) n = 0;
    if (n > 8) n = 8;
    return n;
}

// Bands of a visibility, or -1 if it lacks the elements its shape declares (no element of it may
// then be touched).
int usableBands(const AUVXVisibility* v) {
    if (v == nullptr || v->nChan < 0 || v->nStokes < 0 || v->nIF < 0) return -1;
    const int bands = v->nIF > 0 ? v->nIF : 1;
    const std::int64_t needed = static_cast<std::int64_t>(bands) * v->nChan * v->nStokes;
    if (needed > v->count || (needed > 0 && v->data == nullptr)) return -1;
    return bands;
}

}  // namespace

ADigErrCorrect::~ADigErrCorrect() {
    sums.Free();
    counts.Free();
}

void ADigErrCorrect::Init(AUVXHeader& header, AUVXAntenns& antennas) {
    this->header = &header;
    this->antennas = &antennas;
    const int nStokes = headerProducts(header);
    int nPol = 0;
    for (int p = 0; p < nStokes; ++p)
        if (isParallelHand(header.stokes[p])) ++nPol;
    const int nIF = header.nIF > 0 ? header.nIF : 1;
    sums.Create(antennas.count, nIF, nPol);
    counts.Create(antennas.count, nIF, nPol);
}

double ADigErrCorrect::meanOf(int a, int f, int h) const {
    if (a < 0 || a >= counts.nAnt || f >= counts.nIF || h >= counts.nPol) return 1.0;
    const int n = counts[a][f][h];
    if (n <= 0) return 1.0;
    return sums[a][f][h] / n;
}

bool ADigErrCorrect::Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double /*start*/,
                               double /*end*/) {
    if (header == nullptr || antennas == nullptr) return true;
    sums.Fill(0.0);
    counts.Fill(0);

    const int nRecords = vis.count < groups.count ? vis.count : groups.count;
    const int nStokes = headerProducts(*header);
    const int nPol = sums.nPol;
    const int nIF = sums.nIF;

    // Measure: one mean per autocorrelation record, band and parallel hand.
    for (int i = 0; i < nRecords; ++i) {
        const AUVXGroup& group = groups[i];
        if (group.ant1 != group.ant2) continue;
        AUVXVisibility* v = vis[i];
        const int bands = usableBands(v);
        if (bands < 0) continue;
        const int nChan = v->nChan;
        const int stride = v->nStokes;
        const int fEnd = nIF < bands ? nIF : bands;
        for (int p = 0; p < nPol && p < stride; ++p) {
            if (!isParallelHand(header->stokes[p])) continue;
            for (int f = 0; f < fEnd; ++f) {
                // A float sum in channel order: the rounding of the running sum is part of the result.
                float sum = 0.0f;
                int good = 0;
                const AUVXComplex* el = v->data + static_cast<std::int64_t>(f) * nChan * stride + p;
                for (int c = 0; c < nChan; ++c, el += stride) {
                    if (el->wt > 0.0f) {
                        sum += el->re;
                        ++good;
                    }
                }
                if (good <= 0) continue;
                const int a = antennas->IndexForID(static_cast<std::int8_t>(group.ant1));
                if (a < 0 || a >= sums.nAnt) continue;
                const float mean = sum / static_cast<float>(good);
                sums[a][f][p] += static_cast<double>(mean);
                counts[a][f][p] += 1;
            }
        }
    }

    // Apply: every record, autocorrelations too, by the means of its two antennas.
    for (int i = 0; i < nRecords; ++i) {
        const AUVXGroup& group = groups[i];
        AUVXVisibility* v = vis[i];
        const int bands = usableBands(v);
        if (bands < 0) continue;
        const int nChan = v->nChan;
        const int stride = v->nStokes;
        const int fEnd = nIF < bands ? nIF : bands;
        const int a1 = antennas->IndexForID(static_cast<std::int8_t>(group.ant1));
        const int a2 = antennas->IndexForID(static_cast<std::int8_t>(group.ant2));
        for (int p = 0; p < nStokes && p < stride; ++p) {
            int h1, h2;
            switch (header->stokes[p]) {
                case kRR:
                case kLL:
                    h1 = h2 = p;
                    break;
                case kRL:
                    h1 = 0, h2 = 1;
                    break;
                case kLR:
                    h1 = 1, h2 = 0;
                    break;
                default:
                    continue;
            }
            for (int f = 0; f < fEnd; ++f) {
                const double g = meanOf(a1, f, h1) * meanOf(a2, f, h2);
                const double s = g > 0.0 ? 1.0 / std::sqrt(g) : 1.0;
                AUVXComplex* el = v->data + static_cast<std::int64_t>(f) * nChan * stride + p;
                for (int c = 0; c < nChan; ++c, el += stride) {
                    if (!(el->wt > 0.0f)) continue;
                    el->re = static_cast<float>(static_cast<double>(el->re) * s);
                    el->im = static_cast<float>(static_cast<double>(el->im) * s);
                    el->wt = static_cast<float>(static_cast<double>(el->wt) / (s * s));
                }
            }
        }
    }
    return true;
}
