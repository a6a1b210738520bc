// AUVXSkanList: the scans of the "SL" table.
#include <merovane/uvx/AUVXSkanList.h>

#include <cmath>

#include <merovane/uvx/UVXTableLayouts.h>

template class AArray<AUVXSkanListItem>;

bool AUVXSkanList::Create(AUVXTable& table) {
    Free();
    refDay = 0;
    const int cStart = table.ColumnIndex(LayoutColumnName(kLayoutSL, kSLStart));
    const int cEnd = table.ColumnIndex(LayoutColumnName(kLayoutSL, kSLEnd));
    if (cStart < 0 || cEnd < 0) return false;
    double day = 0.0;
    if (table.GetKeyword(kKeyRefDay, day) && std::isfinite(day) && std::fabs(day) < 2147483647.0)
        refDay = static_cast<std::int32_t>(day);
    for (int r = 0; r < table.nRows; ++r) {
        AUVXSkanListItem item;
        item.start = table.GetDouble(r, cStart);
        item.end = table.GetDouble(r, cEnd);
        Add(item);
    }
    return true;
}
