// AUVXSkanList: the scans of the "SL" table, as start and end seconds from a reference day.
#pragma once

#include <cstdint>

#include <merovane/foundation/AArray.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXTable.h>

struct AUVXSkanListItem {
    double start;  // seconds from 0h of AUVXSkanList::refDay
    double end;
};

// Declared before the class that derives from it, so that the instantiation is exported.
extern template class MEROVANE_API AArray<AUVXSkanListItem>;

// The "SL" table: columns "START" and "END" (1D each, seconds from 0h of the reference day),
// "SOURCE ID" (1J); keyword "REFDAY" = the reference day as a Modified Julian Date (integer).
class MEROVANE_API AUVXSkanList : public AArray<AUVXSkanListItem> {
public:
    // Replaces the contents with the table's rows; false (and empty) if START or END is missing.
    // A table without REFDAY gives refDay 0.
    bool Create(AUVXTable& table);

    std::int32_t refDay = 0;
};
