// UVXTableLayouts: the column lists of the AN, SU, FQ, SL and AI tables.
#include <merovane/uvx/UVXTableLayouts.h>

namespace {

const AUVXColumnLayout kANColumns[] = {
    {"ANNAME", 'A', 8, ""},
    {"STABXYZ", 'D', 3, "METERS"},
    {"NOSTA", 'J', 1, ""},
};
const AUVXColumnLayout kSUColumns[] = {
    {"ID. NO.", 'J', 1, ""},
    {"SOURCE", 'A', 16, ""},
    {"RAEPO", 'D', 1, "DEGREES"},
    {"DECEPO", 'D', 1, "DEGREES"},
};
const AUVXColumnLayout kFQColumns[] = {
    {"FRQSEL", 'J', 1, ""},     {"IF FREQ", 'D', 0, "HZ"},
    {"CH WIDTH", 'E', 0, "HZ"}, {"TOTAL BANDWIDTH", 'E', 0, "HZ"},
    {"SIDEBAND", 'J', 0, ""},
};
const AUVXColumnLayout kSLColumns[] = {
    {"START", 'D', 1, "SECONDS"},
    {"END", 'D', 1, "SECONDS"},
    {"SOURCE ID", 'J', 1, ""},
};
const AUVXColumnLayout kAIColumns[] = {
    {"TIME", 'D', 1, "DAYS"},   {"TIME_INTERVAL", 'E', 1, "DAYS"},
    {"ANTENNA_NO", 'J', 1, ""}, {"NO_LEVELS", 'J', 1, ""},
    {"FREQID", 'J', 1, ""},
};

template <int N>
constexpr int Count(const AUVXColumnLayout (&)[N]) {
    return N;
}

}  // namespace

const AUVXTableLayout kLayoutAN = {"AN", kANColumns, Count(kANColumns)};
const AUVXTableLayout kLayoutSU = {"SU", kSUColumns, Count(kSUColumns)};
const AUVXTableLayout kLayoutFQ = {"FQ", kFQColumns, Count(kFQColumns)};
const AUVXTableLayout kLayoutSL = {"SL", kSLColumns, Count(kSLColumns)};
const AUVXTableLayout kLayoutAI = {"AI", kAIColumns, Count(kAIColumns)};

bool CreateTable(AUVXTable& table, const AUVXTableLayout& layout, int nIF) {
    if (table.nCols > 0 || table.nRows > 0) {
        table.m_errMsg = CString("Table \"") + table.GetName() + "\": already has columns";
        return false;
    }
    table.SetName(layout.name);
    const int perIF = nIF > 1 ? nIF : 1;
    for (int c = 0; c < layout.count; ++c) {
        const AUVXColumnLayout& col = layout.columns[c];
        if (table.AddColumn(col.name, col.type, col.repeat == 0 ? perIF : col.repeat, col.unit) != c)
            return false;
    }
    return true;
}
