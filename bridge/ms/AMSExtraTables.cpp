// AMSExtraTables: UVX tables without a Measurement Set equivalent, kept as subtables of MAIN.
#include "AMSExtraTables.h"

#include <cctype>

#include <casacore/casa/Arrays/Vector.h>
#include <casacore/tables/Tables/ArrColDesc.h>
#include <casacore/tables/Tables/ArrayColumn.h>
#include <casacore/tables/Tables/ScaColDesc.h>
#include <casacore/tables/Tables/ScalarColumn.h>
#include <casacore/tables/Tables/SetupNewTab.h>
#include <casacore/tables/Tables/Table.h>
#include <casacore/tables/Tables/TableDesc.h>
#include <casacore/tables/Tables/TableRecord.h>

#include <merovane/uvx/AUVXHeader.h>

#include "MSConventions.h"

using namespace casacore;

namespace {

template <typename T>
void AddNumberColumn(TableDesc& desc, const String& name, int repeat) {
    if (repeat == 1)
        desc.addColumn(ScalarColumnDesc<T>(name));
    else
        desc.addColumn(ArrayColumnDesc<T>(name, IPosition(1, repeat), ColumnDesc::FixedShape));
}

template <typename T>
void PutNumberColumn(Table& tab, const AUVXTable& table, int col, int repeat) {
    const String name(table.ColumnName(col).GetString());
    if (repeat == 1) {
        ScalarColumn<T> column(tab, name);
        for (int r = 0; r < table.nRows; ++r) column.put(r, static_cast<T>(table.GetDouble(r, col)));
        return;
    }
    ArrayColumn<T> column(tab, name);
    Vector<T> cell(repeat);
    for (int r = 0; r < table.nRows; ++r) {
        for (int e = 0; e < repeat; ++e) cell[e] = static_cast<T>(table.GetDouble(r, col, e));
        column.put(r, cell);
    }
}

template <typename T>
bool GetNumberColumn(const Table& tab, AUVXTable& table, int col, const String& name, int repeat) {
    if (repeat == 1) {
        ScalarColumn<T> column(tab, name);
        for (int r = 0; r < table.nRows; ++r) table.SetDouble(r, col, static_cast<double>(column(r)));
        return true;
    }
    ArrayColumn<T> column(tab, name);
    for (int r = 0; r < table.nRows; ++r) {
        const Array<T> cell = column(r);
        if (cell.nelements() != static_cast<size_t>(repeat)) return false;
        int e = 0;
        for (const T& value : cell) table.SetDouble(r, col, static_cast<double>(value), e++);
    }
    return true;
}

}  // namespace

void AMSExtraTables::Write(Table& parent, const std::string& parentPath, const AUVXTable& table) {
    const std::string name = table.GetName().GetString();
    // A name the file system or a second table of the same name would trouble gets a plain form.
    std::string base = std::string(kMSExtraPrefix);
    for (char ch : name) base += std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
    std::string key = base;
    for (int n = 2; parent.keywordSet().isDefined(key); ++n) key = base + "_" + std::to_string(n);
    TableDesc desc;
    for (int c = 0; c < table.nCols; ++c) {
        const AXTblFormat format = table.ParseFormat(c);
        const String colName(table.ColumnName(c).GetString());
        switch (format.type) {
            case 'A':
                desc.addColumn(ScalarColumnDesc<String>(colName));
                break;
            case 'L':
                AddNumberColumn<uChar>(desc, colName, format.count);
                break;
            case 'I':
                AddNumberColumn<Short>(desc, colName, format.count);
                break;
            case 'J':
                AddNumberColumn<Int>(desc, colName, format.count);
                break;
            case 'E':
                AddNumberColumn<Float>(desc, colName, format.count);
                break;
            default:
                AddNumberColumn<Double>(desc, colName, format.count);
                break;
        }
        TableRecord& keys = desc.rwColumnDesc(colName).rwKeywordSet();
        keys.define("UVX_TYPE", String(1, format.type));
        keys.define("UVX_REPEAT", Int(format.count));
        keys.define(
            "UVX_UNIT",
            String(AUVXHeader::Text(table.columns[c].unit, sizeof table.columns[c].unit).GetString()));
    }
    SetupNewTable setup(parentPath + "/" + key, desc, Table::New);
    Table sub(setup, table.nRows);
    Vector<String> order(table.nCols);
    for (int c = 0; c < table.nCols; ++c) {
        const AXTblFormat format = table.ParseFormat(c);
        order[c] = table.ColumnName(c).GetString();
        switch (format.type) {
            case 'A': {
                ScalarColumn<String> column(sub, order[c]);
                for (int r = 0; r < table.nRows; ++r) column.put(r, String(table.GetText(r, c).GetString()));
                break;
            }
            case 'L':
                PutNumberColumn<uChar>(sub, table, c, format.count);
                break;
            case 'I':
                PutNumberColumn<Short>(sub, table, c, format.count);
                break;
            case 'J':
                PutNumberColumn<Int>(sub, table, c, format.count);
                break;
            case 'E':
                PutNumberColumn<Float>(sub, table, c, format.count);
                break;
            default:
                PutNumberColumn<Double>(sub, table, c, format.count);
                break;
        }
    }
    TableRecord& keys = sub.rwKeywordSet();
    keys.define("UVX_NAME", String(name));
    keys.define("UVX_COLUMNS", order);
    for (int k = 0; k < table.keywords.count; ++k) {
        const AXTblKeyword& kw = table.keywords[k];
        const String kwName(AUVXHeader::Text(kw.name, sizeof kw.name).GetString());
        if (kw.type == 'J')
            keys.define(kwName, Int64(kw.value.i));
        else if (kw.type == 'D')
            keys.define(kwName, kw.value.d);
        else
            keys.define(kwName, String(AUVXHeader::Text(kw.value.s, sizeof kw.value.s).GetString()));
    }
    sub.flush();
    parent.rwKeywordSet().defineTable(key, sub);
}

bool AMSExtraTables::ReadAll(const Table& parent, std::vector<std::unique_ptr<AUVXTable>>& tables,
                             CString& error) {
    const TableRecord& parentKeys = parent.keywordSet();
    const std::string prefix(kMSExtraPrefix);
    for (uInt f = 0; f < parentKeys.nfields(); ++f) {
        const String key = parentKeys.name(f);
        if (parentKeys.type(f) != TpTable || key.compare(0, prefix.size(), prefix) != 0) continue;
        const Table sub = parentKeys.asTable(f);
        const TableRecord& keys = sub.keywordSet();
        if (!keys.isDefined("UVX_NAME") || !keys.isDefined("UVX_COLUMNS")) {
            error = CString(("subtable " + key + " lacks the keywords UVX_NAME and UVX_COLUMNS").c_str());
            return false;
        }
        auto table = std::make_unique<AUVXTable>(keys.asString("UVX_NAME").c_str());
        const Vector<String> order = keys.asArrayString("UVX_COLUMNS");
        for (const String& colName : order) {
            if (!sub.tableDesc().isColumn(colName)) {
                error = CString(("subtable " + key + " lacks its column " + colName).c_str());
                return false;
            }
            const TableRecord& colKeys = sub.tableDesc().columnDesc(colName).keywordSet();
            if (!colKeys.isDefined("UVX_TYPE") || !colKeys.isDefined("UVX_REPEAT")) {
                error = CString(("column " + colName + " of subtable " + key + " has no UVX type").c_str());
                return false;
            }
            const String type = colKeys.asString("UVX_TYPE");
            const String unit = colKeys.isDefined("UVX_UNIT") ? colKeys.asString("UVX_UNIT") : String();
            if (type.size() != 1 ||
                table->AddColumn(colName.c_str(), type[0], colKeys.asInt("UVX_REPEAT"), unit.c_str()) < 0) {
                error =
                    CString(("column " + colName + " of subtable " + key + ": ").c_str()) + table->m_errMsg;
                return false;
            }
        }
        for (rownr_t r = 0; r < sub.nrow(); ++r) table->AddRow();
        for (int c = 0; c < table->nCols; ++c) {
            const AXTblFormat format = table->ParseFormat(c);
            const String& colName = order[c];
            bool ok = true;
            switch (format.type) {
                case 'A': {
                    ScalarColumn<String> column(sub, colName);
                    for (int r = 0; r < table->nRows; ++r) table->SetText(r, c, column(r).c_str());
                    break;
                }
                case 'L':
                    ok = GetNumberColumn<uChar>(sub, *table, c, colName, format.count);
                    break;
                case 'I':
                    ok = GetNumberColumn<Short>(sub, *table, c, colName, format.count);
                    break;
                case 'J':
                    ok = GetNumberColumn<Int>(sub, *table, c, colName, format.count);
                    break;
                case 'E':
                    ok = GetNumberColumn<Float>(sub, *table, c, colName, format.count);
                    break;
                default:
                    ok = GetNumberColumn<Double>(sub, *table, c, colName, format.count);
                    break;
            }
            if (!ok) {
                error = CString(
                    ("column " + colName + " of subtable " + key + " has cells of another length").c_str());
                return false;
            }
        }
        for (uInt k = 0; k < keys.nfields(); ++k) {
            const String kwName = keys.name(k);
            if (kwName == "UVX_NAME" || kwName == "UVX_COLUMNS") continue;
            switch (keys.type(k)) {
                case TpInt64:
                    table->SetKeyword(kwName.c_str(), static_cast<std::int64_t>(keys.asInt64(k)));
                    break;
                case TpInt:
                    table->SetKeyword(kwName.c_str(), static_cast<std::int64_t>(keys.asInt(k)));
                    break;
                case TpDouble:
                    table->SetKeyword(kwName.c_str(), keys.asDouble(k));
                    break;
                case TpString:
                    table->SetKeyword(kwName.c_str(), keys.asString(k).c_str());
                    break;
                default:
                    break;
            }
        }
        tables.push_back(std::move(table));
    }
    return true;
}
