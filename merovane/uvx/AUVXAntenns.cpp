// AUVXAntenns: the stations of the "AN" table.
#include <merovane/uvx/AUVXAntenns.h>

#include <cstring>

#include <merovane/foundation/NumberConversion.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/UVXTableLayouts.h>

template class AArray<AUVXTlscItem>;

CString AUVXTlscItem::Name() const {
    return AUVXHeader::Text(name, 16);
}

bool AUVXAntenns::Init(AUVXTable& table) {
    Free();
    rightHanded = true;
    const int cName = table.ColumnIndex(LayoutColumnName(kLayoutAN, kANName));
    const int cXYZ = table.ColumnIndex(LayoutColumnName(kLayoutAN, kANStabXyz));
    const int cId = table.ColumnIndex(LayoutColumnName(kLayoutAN, kANNoSta));
    if (cName < 0 || cXYZ < 0 || cId < 0) return false;
    if (table.ParseFormat(cName).type != 'A' || table.ParseFormat(cXYZ).count < 3) return false;
    CString hand;
    if (table.GetKeyword(kKeyXyzHand, hand)) {
        hand.Trim();
        rightHanded = hand.CompareNoCase("LEFT") != 0;
    }
    for (int r = 0; r < table.nRows; ++r) {
        AUVXTlscItem item;
        std::memset(&item, 0, sizeof(item));
        AUVXHeader::SetText(item.name, 16, table.GetText(r, cName));
        item.x = table.GetDouble(r, cXYZ, 0);
        item.y = table.GetDouble(r, cXYZ, 1);
        item.z = table.GetDouble(r, cXYZ, 2);
        // A 'D' or 'E' column can hold NaN or any magnitude: truncated and saturated, never undefined.
        item.id = TruncToInt32(table.GetDouble(r, cId));
        Add(item);
    }
    return true;
}

int AUVXAntenns::IndexForID(int id) const {
    for (int i = 0; i < count; ++i)
        if (data[i].id == id) return i;
    return -1;
}

const AUVXTlscItem& AUVXAntenns::ForID(int id) const {
    static const AUVXTlscItem none = {};
    const int i = IndexForID(id);
    return i >= 0 ? data[i] : none;
}
