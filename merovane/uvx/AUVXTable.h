// AUVXTable: a table of a UVX file in memory (columns, keywords, rows), and its column formats.
#pragma once

#include <cstdint>

#include <merovane/foundation/AArray.h>
#include <merovane/foundation/AFile.h>
#include <merovane/platform/CString.h>
#include <merovane/platform/Export.h>

#pragma pack(push, 1)
// Column descriptor, 36 bytes as in the file: the name first.
struct AXTblColumn {
    char name[20];  // NUL-padded
    char unit[8];   // NUL-padded, e.g. "METERS", "DAYS"
    char type;      // 'A' char, 'L' logical, 'I' int16, 'J' int32, 'E' float, 'D' double
    char reserved[3];
    std::int32_t repeat;  // elements of `type` in one row, at least 1
};

// Table keyword, 40 bytes as in the file.
struct AXTblKeyword {
    char name[16];  // NUL-padded
    char type;      // 'J' integer, 'D' double, 'A' text
    char reserved[7];
    union {
        std::int64_t i;
        double d;
        char s[16];  // NUL-padded
    } value;
};
#pragma pack(pop)
static_assert(sizeof(AXTblColumn) == 36, "column descriptors are 36 bytes");
static_assert(sizeof(AXTblKeyword) == 40, "keywords are 40 bytes");

// Format of one column: element type and repeat count.
struct AXTblFormat {
    char type;
    int count;
};

// Bytes of one element of a column type, 0 for an unknown type.
MEROVANE_API int AXTblTypeSize(char type);

// A table: name, keywords, column descriptors and rows, each row `rowBytes` long with its columns in
// order and without gaps. Read from a file with AUVXTable(ABFile&), or built in memory (SetName,
// AddColumn, SetKeyword, AddRow) for a writer. Not copyable.
class MEROVANE_API AUVXTable {
public:
    AUVXTable();
    explicit AUVXTable(const char* name);
    // Reads the table that starts at the stream's position. On bad or short input the table is
    // empty, IsValid() is false and m_errMsg says why.
    explicit AUVXTable(ABFile& file);
    AUVXTable(const AUVXTable&) = delete;
    AUVXTable& operator=(const AUVXTable&) = delete;
    virtual ~AUVXTable();

    bool IsValid() const { return m_valid; }
    const CString& GetName() const { return m_name; }
    void SetName(const char* name);

    // Format of column `col`; type 0 and count 0 for a column outside the table.
    AXTblFormat ParseFormat(int col) const;
    // Index of the column named exactly `name`, -1 if none.
    int ColumnIndex(const char* name) const;
    // Byte offset of column `col` within a row.
    int ColumnOffset(int col) const;
    CString ColumnName(int col) const;

    // Building. Columns come before the first row; AddColumn gives the new column's index, or -1
    // (with m_errMsg) for an unknown type, a repeat below 1, a table that already has rows, or a name
    // longer than 20 or a unit longer than 8 characters (their fields' sizes: nothing is cut).
    int AddColumn(const char* name, char type, int repeat = 1, const char* unit = "");
    // Appends a row of zero bytes and returns its index.
    int AddRow();
    void SetKeyword(const char* name, std::int64_t value);
    // An int literal would be ambiguous between the integer and the double form: it is an integer.
    void SetKeyword(const char* name, int value) { SetKeyword(name, static_cast<std::int64_t>(value)); }
    void SetKeyword(const char* name, double value);
    void SetKeyword(const char* name, const char* value);

    // Keyword lookups: false if there is no keyword of that name (a number keyword converts between
    // integer and double; a text keyword is not a number).
    bool GetKeyword(const char* name, double& value) const;
    bool GetKeyword(const char* name, CString& value) const;

    // Element `elem` of column `col` in row `row`, converted to or from double ('A' and 'L' as the
    // byte's value, 0..255). Integer types are stored rounded to nearest and clamped to their range
    // (NaN as 0); 'E' is rounded to float. No bounds test.
    double GetDouble(int row, int col, int elem = 0) const;
    void SetDouble(int row, int col, double value, int elem = 0);
    // An 'A' column as text, stopping at the first NUL; SetText pads with NULs and cuts.
    CString GetText(int row, int col) const;
    void SetText(int row, int col, const char* text);
    unsigned char* Row(int row) { return rows + static_cast<std::int64_t>(row) * rowBytes; }
    const unsigned char* Row(int row) const { return rows + static_cast<std::int64_t>(row) * rowBytes; }

    // Writes the table in its file form at the stream's position; false if a write failed.
    bool Store(AFile& file) const;
    // Bytes that Store writes.
    std::int64_t StoredBytes() const;

    AXTblColumn* columns = nullptr;  // nCols descriptors
    std::int32_t nRows = 0;
    std::int32_t nCols = 0;
    std::int32_t rowBytes = 0;
    unsigned char* rows = nullptr;  // nRows x rowBytes bytes
    AArray<AXTblKeyword> keywords;

    CString m_errMsg;

private:
    void clear();
    bool read(ABFile& file);
    const AXTblKeyword* findKeyword(const char* name) const;
    AXTblKeyword& keywordSlot(const char* name);

    CString m_name;
    bool m_valid = true;
    std::int32_t m_rowCapacity = 0;
};
