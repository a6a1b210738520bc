// AVanFlakeCorrect: the quantisation factors and the per-record rescaling of cross-correlations.
#include <merovane/digitisation/AVanFlakeCorrect.h>

#include <cmath>

// The first is 2/pi, the loss of a one-bit correlator; more bits lose less.
const float AVanFlakeCorrect::kFactors[8] = {0.63662f, 0.88f, 0.94f, 0.96f, 0.98f, 0.99f, 0.996f, 0.998f};

void AVanFlakeCorrect::Init(AAIShortTbl& table) {
    this->table = &table;
}

double AVanFlakeCorrect::Factor(int noLevels) {
    if (noLevels < 1 || noLevels > 8) return 1.0;
    return static_cast<double>(kFactors[noLevels - 1]);
}

bool AVanFlakeCorrect::Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double /*start*/,
                                 double /*end*/) {
    const int nRecords = vis.count < groups.count ? vis.count : groups.count;
    for (int i = 0; i < nRecords; ++i) {
        AUVXGroup& group = groups[i];
        AUVXVisibility* v = vis[i];
        if (v == nullptr) continue;
        double f1 = 1.0, f2 = 1.0;
        if (group.ant1 != group.ant2 && table != nullptr) {
            const AAIShortTblItem* item1 = table->FindItem(group, true);
            const AAIShortTblItem* item2 = table->FindItem(group, false);
            if (item1 != nullptr) f1 = Factor(item1->noLevels);
            if (item2 != nullptr) f2 = Factor(item2->noLevels);
        }
        const double s = 1.0 / std::sqrt(f1 * f2);
        if (s == 1.0) continue;  // x * 1.0 rounds back to x: nothing would change
        AUVXComplex* el = v->data;
        for (int k = 0; k < v->count; ++k, ++el) {
            el->re = static_cast<float>(static_cast<double>(el->re) * s);
            el->im = static_cast<float>(static_cast<double>(el->im) * s);
        }
    }
    return true;
}
