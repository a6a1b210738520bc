// AUVXSources: the sources of the "SU" table.
#include <merovane/uvx/AUVXSources.h>

#include <cstring>

#include <merovane/foundation/NumberConversion.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/UVXTableLayouts.h>

template class AArray<AUVXSourceItem>;

CString AUVXSourceItem::Name() const {
    return AUVXHeader::Text(name, 16);
}

bool AUVXSources::Init(AUVXTable& table) {
    Free();
    const int cId = table.ColumnIndex(LayoutColumnName(kLayoutSU, kSUId));
    const int cName = table.ColumnIndex(LayoutColumnName(kLayoutSU, kSUSource));
    const int cRA = table.ColumnIndex(LayoutColumnName(kLayoutSU, kSURaEpo));
    const int cDec = table.ColumnIndex(LayoutColumnName(kLayoutSU, kSUDecEpo));
    if (cId < 0 || cName < 0 || cRA < 0 || cDec < 0) return false;
    if (table.ParseFormat(cName).type != 'A') return false;
    for (int r = 0; r < table.nRows; ++r) {
        AUVXSourceItem item;
        std::memset(&item, 0, sizeof(item));
        item.id = TruncToInt32(table.GetDouble(r, cId));
        AUVXHeader::SetText(item.name, 16, table.GetText(r, cName));
        item.ra = table.GetDouble(r, cRA);
        item.dec = table.GetDouble(r, cDec);
        Add(item);
    }
    return true;
}

int AUVXSources::IndexForID(int id) const {
    for (int i = 0; i < count; ++i)
        if (data[i].id == id) return i;
    return -1;
}
