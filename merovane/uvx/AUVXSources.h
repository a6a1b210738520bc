// AUVXSources: the sources of the "SU" table.
#pragma once

#include <cstdint>

#include <merovane/foundation/AArray.h>
#include <merovane/platform/CString.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXTable.h>

struct MEROVANE_API AUVXSourceItem {
    CString Name() const;
    std::int32_t id;  // the AUVXGroup::sourceId of its records
    char name[16];    // NUL-padded
    double ra, dec;   // degrees, at the header's equinox
};

// Declared before the class that derives from it, so that the instantiation is exported.
extern template class MEROVANE_API AArray<AUVXSourceItem>;

// The "SU" table: columns "ID. NO." (1J), "SOURCE" (16A), "RAEPO" (1D, degrees), "DECEPO" (1D, degrees).
class MEROVANE_API AUVXSources : public AArray<AUVXSourceItem> {
public:
    AUVXSources() = default;
    // Replaces the contents with the table's rows; false (and empty) if a column is missing.
    bool Init(AUVXTable& table);
    // Row of source `id`, negative if none.
    int IndexForID(int id) const;
};
