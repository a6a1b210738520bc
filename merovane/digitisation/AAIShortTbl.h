// AAIShortTblItem and AAIShortTbl: digitiser bits per antenna and frequency setup over time, from the "AI"
// table.
#pragma once

#include <cstdint>

#include <merovane/foundation/AArray.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXRecords.h>
#include <merovane/uvx/AUVXTable.h>

// One row of the antenna-information table: which antenna and frequency setup, how many bits per
// sample its digitiser had, and when that holds. Plain data, copied with memcpy.
struct MEROVANE_API AAIShortTblItem {
    std::int32_t antenna;   // telescope ID as in AUVXGroup::ant1 / ant2 and AUVXTlscItem::id ("ANTENNA_NO")
    std::int32_t freqId;    // compared with AUVXGroup::freqId ("FREQID")
    std::int32_t noLevels;  // bits per sample: log2 of the "NO_LEVELS" level count, rounded; 0 for 1 level
    double start;           // seconds from 0h of the reference day, the scale of AUVXGroup::time
    double end;             // seconds, same scale; a record at `end` lies outside the row
};

extern template class MEROVANE_API AArray<AAIShortTblItem>;

// The rows of an antenna-information table, in the table's order (never sorted: FindItem relies on
// the order). Growth step 256.
//
// Rows are read from any table whose columns carry, as substrings of their names, "TIME" ('D' days,
// the centre of the row's validity), "TIME_INTERVAL" ('E' days, its full length), "ANTENNA_NO",
// "NO_LEVELS" (the level count, 2^bits) and "FREQID". Choices where the table is odd:
// - every item is cleared before its row is read, so a column the table lacks leaves 0 in its field
//   (a missing "TIME_INTERVAL" gives an empty range at the centre time);
// - a named column whose type gives no value ('A', 'L', 'I') is stepped over and leaves its field 0;
//   an element type of unknown size ends the reading of that row (its later columns stay 0);
// - a "NO_LEVELS" value not above 0 (or not a number) loads as 0 bits, like a single level;
// - an integer field takes its value truncated towards zero and clamped to the 32-bit range.
class MEROVANE_API AAIShortTbl : public AArray<AAIShortTblItem> {
  public:
    // Empty, growth step 256.
    AAIShortTbl();
    // Empty, then Load(table).
    explicit AAIShortTbl(AUVXTable* table);
    // Deep copy: capacity equals the source's count; an empty source leaves no array.
    AAIShortTbl(const AAIShortTbl& other);
    AAIShortTbl& operator=(const AAIShortTbl& other);
    ~AAIShortTbl();

    // Replaces the whole content by the table's rows (start/end turned from centre and length in
    // days into a range in seconds). A null table leaves the table empty. Cannot fail.
    void Load(AUVXTable* table);

    // The row for antenna ant1 (first true) or ant2 (first false) of `group`: among the rows of that
    // antenna and of group.freqId, the first whose end lies strictly after group.time, else the last
    // of them; null if no row has that antenna and setup. `start` is not consulted. The pointer is
    // valid until the table changes.
    AAIShortTblItem* FindItem(AUVXGroup& group, bool first);

    // False if a row has noLevels below 1, or below 4 for an antenna whose name in the antenna
    // table ("AN", given here, not the table that Load read) does not begin with "RA". An antenna
    // ID the table lacks counts as an empty name. An empty table is OK. Changes nothing.
    bool IsOK(AUVXTable* antennaTable);

    // Sets every noLevels to 2^(t + 1), t = log2(old) + 0.5 truncated (1 -> 2, 2 -> 4, 3..5 -> 8,
    // 6..11 -> 16, 12..22 -> 32, 23..45 -> 64). A value below 1 has no logarithm and stays as it
    // is; the result is capped at 2^30.
    void Correct();
};
