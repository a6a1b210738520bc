// AVanFlakeCorrect: removes the correlation loss of coarse quantisation, per antenna from its digitiser bits.
#pragma once

#include <merovane/digitisation/AAIShortTbl.h>
#include <merovane/foundation/AArray.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXRecords.h>

// Each antenna of a cross-correlation contributes the factor of its digitiser's bits per sample
// (the row AAIShortTbl::FindItem gives for the record), and every element of the record is divided
// by sqrt(f1 x f2). Autocorrelations and weights are never changed.
//
// A missing measure counts as factor 1.0: an antenna without a row, and a row whose noLevels lies
// outside 1..8 (a value IsOK refuses, or one that Correct raised past 8 bits). Before Init, every
// antenna lacks a row and nothing changes.
//
// Copying copies the pointer: both copies use the same table.
class MEROVANE_API AVanFlakeCorrect {
  public:
    // Factors for 1 to 8 bits per sample; kFactors[noLevels - 1].
    static const float kFactors[8];

    AVanFlakeCorrect() = default;

    // Stores the table's address; the table must outlive the use of this object.
    void Init(AAIShortTbl& table);

    // The factor of `noLevels` bits, widened to double; 1.0 outside 1..8.
    static double Factor(int noLevels);

    // Corrects the interval in place: vis[i] belongs to groups[i]; only the first
    // min(vis.count, groups.count) records are looked at, and a null visibility is skipped. All
    // elements of a record are scaled by one s, flagged ones too. start and end are not used.
    // Always true.
    bool Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start, double end);

    AAIShortTbl* table = nullptr;
};
