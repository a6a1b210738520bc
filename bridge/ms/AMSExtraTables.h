// AMSExtraTables: UVX tables without a Measurement Set equivalent, kept as subtables of MAIN.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <merovane/platform/CString.h>
#include <merovane/uvx/AUVXTable.h>

namespace casacore {
class Table;
}

// A UVX table as a casacore table and back: each UVX column a column of the same name (text as a
// String, logical as uChar, I J E D as Short Int Float Double; a repeat above 1 as a vector of that
// length), with the column keywords "UVX_TYPE", "UVX_REPEAT", "UVX_UNIT"; the UVX keywords as table
// keywords of the same name (integer as Int64, double, text as String) and "UVX_NAME",
// "UVX_COLUMNS" (the columns in order). Defined as keyword kMSExtraPrefix + name of `parent`.
class AMSExtraTables {
public:
    // Writes `table` as a subtable of `parent`; throws casacore::AipsError on failure.
    static void Write(casacore::Table& parent, const std::string& parentPath, const AUVXTable& table);
    // Reads every such subtable of `parent` in the order they were defined; false with `error` for a
    // subtable that does not follow the layout above.
    static bool ReadAll(const casacore::Table& parent, std::vector<std::unique_ptr<AUVXTable>>& tables,
                        CString& error);
};
