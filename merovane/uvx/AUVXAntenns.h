// AUVXAntenns: the stations of the "AN" table, looked up by telescope ID.
#pragma once

#include <cstdint>

#include <merovane/foundation/AArray.h>
#include <merovane/platform/CString.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXTable.h>

// One station: name, geocentric position in metres, telescope ID.
struct MEROVANE_API AUVXTlscItem {
    CString Name() const;
    char name[16];   // NUL-padded station code such as "EF"
    double x, y, z;  // metres, earth-centred (y negated where the table is left-handed: see rightHanded)
    std::int32_t id;
};

// Declared before the class that derives from it, so that the instantiation is exported.
extern template class MEROVANE_API AArray<AUVXTlscItem>;

// The "AN" table: columns "ANNAME" (8A), "STABXYZ" (3D, metres), "NOSTA" (1J, the telescope ID);
// keyword "XYZHAND" = "RIGHT" or "LEFT" (absent: right-handed). Rows in table order.
class MEROVANE_API AUVXAntenns : public AArray<AUVXTlscItem> {
public:
    AUVXAntenns() = default;
    explicit AUVXAntenns(AUVXTable& table) { Init(table); }
    // Replaces the contents with the table's rows; false (and empty) if a column is missing.
    bool Init(AUVXTable& table);
    // Row of telescope `id`, negative if there is none.
    int IndexForID(int id) const;
    // The row of telescope `id`; for an ID the table lacks, an item with empty name, id 0 and
    // position 0.
    const AUVXTlscItem& ForID(int id) const;

    // False: the coordinates are in a left-handed frame, and users negate y.
    bool rightHanded = true;
};
