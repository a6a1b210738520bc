// UVXTableLayouts: the names and column layouts of the tables that the library reads and the tools write.
#pragma once

#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXTable.h>

// One column of a layout. A repeat of 0 means one element per IF band (the file's nIF, at least 1).
struct AUVXColumnLayout {
    const char* name;
    char type;
    int repeat;
    const char* unit;
};

// A table's name and its columns in order; CreateTable gives the columns these indices.
struct AUVXTableLayout {
    const char* name;
    const AUVXColumnLayout* columns;
    int count;
};

// "AN": the stations. Keyword "XYZHAND" ("RIGHT" or "LEFT"; absent means right-handed).
enum AANColumn { kANName, kANStabXyz, kANNoSta };
// "SU": the sources, positions in degrees at the equinox of the header.
enum ASUColumn { kSUId, kSUSource, kSURaEpo, kSUDecEpo };
// "FQ": the frequency setups; IF offsets in Hz from the header's reference frequency.
enum AFQColumn { kFQFrqSel, kFQIfFreq, kFQChWidth, kFQTotalBandwidth, kFQSideband };
// "SL": the scan list, seconds from 0h of the day in keyword "REFDAY" (a Modified Julian Date).
enum ASLColumn { kSLStart, kSLEnd, kSLSourceId };
// "AI": antenna information for the digitisation corrections; TIME and TIME_INTERVAL in days,
// NO_LEVELS the digitiser's level count (2^bits).
enum AAIColumn { kAITime, kAITimeInterval, kAIAntennaNo, kAINoLevels, kAIFreqId };

MEROVANE_API extern const AUVXTableLayout kLayoutAN;
MEROVANE_API extern const AUVXTableLayout kLayoutSU;
MEROVANE_API extern const AUVXTableLayout kLayoutFQ;
MEROVANE_API extern const AUVXTableLayout kLayoutSL;
MEROVANE_API extern const AUVXTableLayout kLayoutAI;

// Keywords of the layouts.
inline constexpr char kKeyXyzHand[] = "XYZHAND";
inline constexpr char kKeyRefDay[] = "REFDAY";

// Name of column `col` of `layout`.
inline const char* LayoutColumnName(const AUVXTableLayout& layout, int col) {
    return layout.columns[col].name;
}

// Names `table` after `layout` and adds its columns in order, per-IF columns with max(1, nIF)
// elements. False (with the table's m_errMsg) if the table already has columns or rows, or a column
// is refused.
MEROVANE_API bool CreateTable(AUVXTable& table, const AUVXTableLayout& layout, int nIF);
