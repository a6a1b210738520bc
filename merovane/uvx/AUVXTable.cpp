// AUVXTable: reading, building and storing the tables of a UVX file.
#include <merovane/uvx/AUVXTable.h>

#include <cmath>
#include <cstring>
#include <limits>

#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/UVXText.h>

namespace {

// File form of a table: name, then four int32 counts.
#pragma pack(push, 1)
struct ATableHead {
    char name[16];
    std::int32_t nCols;
    std::int32_t nRows;
    std::int32_t rowBytes;
    std::int32_t nKeywords;
};
#pragma pack(pop)
static_assert(sizeof(ATableHead) == 32, "table head is 32 bytes");

// Limits that keep a damaged count from turning into a huge allocation before anything is read.
constexpr std::int32_t kMaxColumns = 4096;
constexpr std::int32_t kMaxKeywords = 4096;

// Rounds to the nearest integer and clamps to [lo, hi]; NaN gives 0.
template <class I>
I toInteger(double value) {
    if (std::isnan(value)) return 0;
    const double lo = static_cast<double>(std::numeric_limits<I>::min());
    const double hi = static_cast<double>(std::numeric_limits<I>::max());
    const double r = std::nearbyint(value);
    if (r <= lo) return std::numeric_limits<I>::min();
    if (r >= hi) return std::numeric_limits<I>::max();
    return static_cast<I>(r);
}

}  // namespace

int AXTblTypeSize(char type) {
    switch (type) {
        case 'A':
        case 'L':
            return 1;
        case 'I':
            return 2;
        case 'J':
        case 'E':
            return 4;
        case 'D':
            return 8;
        default:
            return 0;
    }
}

AUVXTable::AUVXTable() {
    keywords.growBy = 16;
}

AUVXTable::AUVXTable(const char* name) : AUVXTable() {
    SetName(name);
}

AUVXTable::AUVXTable(ABFile& file) : AUVXTable() {
    if (!read(file)) {
        clear();
        m_valid = false;
    }
}

AUVXTable::~AUVXTable() {
    clear();
}

void AUVXTable::clear() {
    delete[] columns;
    delete[] rows;
    columns = nullptr;
    rows = nullptr;
    nRows = nCols = rowBytes = 0;
    m_rowCapacity = 0;
    keywords.Free();
}

void AUVXTable::SetName(const char* name) {
    char field[16];
    AUVXHeader::SetText(field, 16, name);
    m_name = AUVXHeader::Text(field, 16);
}

bool AUVXTable::read(ABFile& file) {
    const std::int64_t start = file.GetPos();
    ATableHead head;
    if (!file.Read(&head, static_cast<int>(sizeof(head)))) {
        m_errMsg = "Truncated table at byte " + toStr(static_cast<double>(start), "%.0f") +
                   ": its 32-byte head is incomplete";
        return false;
    }
    m_name = AUVXHeader::Text(head.name, 16);
    const CString prefix = "Table \"" + m_name + "\": ";
    if (head.nCols < 0 || head.nCols > kMaxColumns) {
        m_errMsg = prefix + "bad column count " + toStr(static_cast<int>(head.nCols), "%d");
        return false;
    }
    if (head.nRows < 0) {
        m_errMsg = prefix + "bad row count " + toStr(static_cast<int>(head.nRows), "%d");
        return false;
    }
    if (head.rowBytes < 0) {
        m_errMsg = prefix + "bad row size " + toStr(static_cast<int>(head.rowBytes), "%d");
        return false;
    }
    if (head.nKeywords < 0 || head.nKeywords > kMaxKeywords) {
        m_errMsg = prefix + "bad keyword count " + toStr(static_cast<int>(head.nKeywords), "%d");
        return false;
    }

    if (head.nCols > 0) {
        columns = new AXTblColumn[head.nCols];
        if (!file.Read(columns, head.nCols * static_cast<int>(sizeof(AXTblColumn)))) {
            m_errMsg = prefix + "truncated column descriptors";
            return false;
        }
    }
    nCols = head.nCols;
    std::int64_t sum = 0;
    for (int c = 0; c < nCols; ++c) {
        const AXTblColumn& col = columns[c];
        const CString colName = "column " + toStr(c, "%d") + " (\"" + AUVXHeader::Text(col.name, 20) + "\")";
        const int size = AXTblTypeSize(col.type);
        if (size == 0) {
            m_errMsg = prefix + colName + " has unknown type code " +
                       toStr(static_cast<int>(static_cast<unsigned char>(col.type)), "%d");
            return false;
        }
        if (col.repeat < 1) {
            m_errMsg = prefix + colName + " has repeat count " + toStr(static_cast<int>(col.repeat), "%d");
            return false;
        }
        sum += static_cast<std::int64_t>(size) * col.repeat;
    }
    if (sum != head.rowBytes) {
        m_errMsg = prefix + "row size " + toStr(static_cast<int>(head.rowBytes), "%d") +
                   " disagrees with the columns (" + toStr(static_cast<double>(sum), "%.0f") + " bytes)";
        return false;
    }
    rowBytes = head.rowBytes;

    for (int k = 0; k < head.nKeywords; ++k) {
        AXTblKeyword kw;
        if (!file.Read(&kw, static_cast<int>(sizeof(kw)))) {
            m_errMsg = prefix + "truncated keywords";
            return false;
        }
        if (kw.type != 'J' && kw.type != 'D' && kw.type != 'A') {
            m_errMsg = prefix + "keyword \"" + AUVXHeader::Text(kw.name, 16) + "\" has unknown type code " +
                       toStr(static_cast<int>(static_cast<unsigned char>(kw.type)), "%d");
            return false;
        }
        keywords.Add(kw);
    }

    // Check the rows against what the stream still holds before allocating for them.
    const std::int64_t need = static_cast<std::int64_t>(head.nRows) * head.rowBytes;
    const std::int64_t length = file.GetLength();
    const std::int64_t here = file.GetPos();
    if (length < 0 || here < 0) {
        m_errMsg = prefix + "cannot tell the length of the stream";
        return false;
    }
    if (need > length - here) {
        m_errMsg = prefix + "its " + toStr(static_cast<int>(head.nRows), "%d") + " rows need " +
                   toStr(static_cast<double>(need), "%.0f") + " bytes, only " +
                   toStr(static_cast<double>(length - here), "%.0f") + " remain";
        return false;
    }
    if (need > 0) {
        rows = new unsigned char[static_cast<std::size_t>(need)];
        m_rowCapacity = head.nRows;
        if (!file.ReadHuge(rows, need)) {
            m_errMsg = prefix + "truncated rows";
            return false;
        }
    }
    nRows = head.nRows;
    return true;
}

AXTblFormat AUVXTable::ParseFormat(int col) const {
    if (col < 0 || col >= nCols) return AXTblFormat{0, 0};
    return AXTblFormat{columns[col].type, columns[col].repeat};
}

int AUVXTable::ColumnIndex(const char* name) const {
    for (int c = 0; c < nCols; ++c)
        if (AUVXHeader::Text(columns[c].name, 20) == name) return c;
    return -1;
}

int AUVXTable::ColumnOffset(int col) const {
    int offset = 0;
    for (int c = 0; c < col && c < nCols; ++c) offset += AXTblTypeSize(columns[c].type) * columns[c].repeat;
    return offset;
}

CString AUVXTable::ColumnName(int col) const {
    if (col < 0 || col >= nCols) return CString();
    return AUVXHeader::Text(columns[col].name, 20);
}

int AUVXTable::AddColumn(const char* name, char type, int repeat, const char* unit) {
    const int size = AXTblTypeSize(type);
    if (size == 0) {
        m_errMsg = "Table \"" + m_name + "\": unknown column type code " +
                   toStr(static_cast<int>(static_cast<unsigned char>(type)), "%d");
        return -1;
    }
    if (repeat < 1) {
        m_errMsg = "Table \"" + m_name + "\": repeat count " + toStr(repeat, "%d") + " below 1";
        return -1;
    }
    if (nRows > 0) {
        m_errMsg = "Table \"" + m_name + "\": columns must come before the first row";
        return -1;
    }
    // A name or unit cut to fit its field would be found by no reader that asks for the full name.
    if (std::strlen(name) > sizeof(AXTblColumn::name)) {
        m_errMsg = "Table \"" + m_name + "\": column name \"" + name + "\" is longer than " +
                   toStr(static_cast<int>(sizeof(AXTblColumn::name)), "%d") + " characters";
        return -1;
    }
    if (std::strlen(unit) > sizeof(AXTblColumn::unit)) {
        m_errMsg = "Table \"" + m_name + "\": unit \"" + unit + "\" of column \"" + name +
                   "\" is longer than " + toStr(static_cast<int>(sizeof(AXTblColumn::unit)), "%d") +
                   " characters";
        return -1;
    }
    if (static_cast<std::int64_t>(rowBytes) + static_cast<std::int64_t>(size) * repeat > 0x7FFFFFFF) {
        m_errMsg = "Table \"" + m_name + "\": row too large";
        return -1;
    }
    AXTblColumn* grown = new AXTblColumn[nCols + 1];
    if (nCols > 0) std::memcpy(grown, columns, sizeof(AXTblColumn) * static_cast<std::size_t>(nCols));
    AXTblColumn& col = grown[nCols];
    std::memset(&col, 0, sizeof(col));
    AUVXHeader::SetText(col.name, 20, name);
    AUVXHeader::SetText(col.unit, 8, unit);
    col.type = type;
    col.repeat = repeat;
    delete[] columns;
    columns = grown;
    rowBytes += size * repeat;
    return nCols++;
}

int AUVXTable::AddRow() {
    if (nRows >= m_rowCapacity) {
        // Doubling keeps building a table of many rows linear.
        const std::int32_t capacity = m_rowCapacity < 16 ? 16 : m_rowCapacity * 2;
        const std::size_t bytes = static_cast<std::size_t>(capacity) * static_cast<std::size_t>(rowBytes);
        unsigned char* grown = bytes > 0 ? new unsigned char[bytes] : nullptr;
        if (rows != nullptr && nRows > 0 && rowBytes > 0)
            std::memcpy(grown, rows, static_cast<std::size_t>(nRows) * static_cast<std::size_t>(rowBytes));
        delete[] rows;
        rows = grown;
        m_rowCapacity = capacity;
    }
    if (rowBytes > 0) std::memset(Row(nRows), 0, static_cast<std::size_t>(rowBytes));
    return nRows++;
}

const AXTblKeyword* AUVXTable::findKeyword(const char* name) const {
    for (int k = 0; k < keywords.count; ++k)
        if (AUVXHeader::Text(keywords[k].name, 16) == name) return &keywords[k];
    return nullptr;
}

AXTblKeyword& AUVXTable::keywordSlot(const char* name) {
    for (int k = 0; k < keywords.count; ++k)
        if (AUVXHeader::Text(keywords[k].name, 16) == name) {
            std::memset(&keywords[k].value, 0, sizeof(keywords[k].value));
            return keywords[k];
        }
    AXTblKeyword kw;
    std::memset(&kw, 0, sizeof(kw));
    AUVXHeader::SetText(kw.name, 16, name);
    return keywords[keywords.Add(kw)];
}

void AUVXTable::SetKeyword(const char* name, std::int64_t value) {
    AXTblKeyword& kw = keywordSlot(name);
    kw.type = 'J';
    kw.value.i = value;
}

void AUVXTable::SetKeyword(const char* name, double value) {
    AXTblKeyword& kw = keywordSlot(name);
    kw.type = 'D';
    kw.value.d = value;
}

void AUVXTable::SetKeyword(const char* name, const char* value) {
    AXTblKeyword& kw = keywordSlot(name);
    kw.type = 'A';
    AUVXHeader::SetText(kw.value.s, 16, value);
}

bool AUVXTable::GetKeyword(const char* name, double& value) const {
    const AXTblKeyword* kw = findKeyword(name);
    if (kw == nullptr) return false;
    if (kw->type == 'J') {
        value = static_cast<double>(kw->value.i);
        return true;
    }
    if (kw->type == 'D') {
        value = kw->value.d;
        return true;
    }
    return false;
}

bool AUVXTable::GetKeyword(const char* name, CString& value) const {
    const AXTblKeyword* kw = findKeyword(name);
    if (kw == nullptr || kw->type != 'A') return false;
    value = AUVXHeader::Text(kw->value.s, 16);
    return true;
}

double AUVXTable::GetDouble(int row, int col, int elem) const {
    const char type = columns[col].type;
    const unsigned char* p = Row(row) + ColumnOffset(col) + elem * AXTblTypeSize(type);
    switch (type) {
        case 'A':
        case 'L':
            return static_cast<double>(*p);
        case 'I': {
            std::int16_t v;
            std::memcpy(&v, p, sizeof(v));
            return v;
        }
        case 'J': {
            std::int32_t v;
            std::memcpy(&v, p, sizeof(v));
            return v;
        }
        case 'E': {
            float v;
            std::memcpy(&v, p, sizeof(v));
            return v;
        }
        case 'D': {
            double v;
            std::memcpy(&v, p, sizeof(v));
            return v;
        }
        default:
            return 0.0;
    }
}

void AUVXTable::SetDouble(int row, int col, double value, int elem) {
    const char type = columns[col].type;
    unsigned char* p = Row(row) + ColumnOffset(col) + elem * AXTblTypeSize(type);
    switch (type) {
        case 'A':
        case 'L':
            *p = toInteger<unsigned char>(value);
            break;
        case 'I': {
            const std::int16_t v = toInteger<std::int16_t>(value);
            std::memcpy(p, &v, sizeof(v));
            break;
        }
        case 'J': {
            const std::int32_t v = toInteger<std::int32_t>(value);
            std::memcpy(p, &v, sizeof(v));
            break;
        }
        case 'E': {
            const float v = static_cast<float>(value);
            std::memcpy(p, &v, sizeof(v));
            break;
        }
        case 'D':
            std::memcpy(p, &value, sizeof(value));
            break;
        default:
            break;
    }
}

CString AUVXTable::GetText(int row, int col) const {
    const unsigned char* p = Row(row) + ColumnOffset(col);
    const int size = AXTblTypeSize(columns[col].type) * columns[col].repeat;
    return AUVXHeader::Text(reinterpret_cast<const char*>(p), size);
}

void AUVXTable::SetText(int row, int col, const char* text) {
    unsigned char* p = Row(row) + ColumnOffset(col);
    const int size = AXTblTypeSize(columns[col].type) * columns[col].repeat;
    AUVXHeader::SetText(reinterpret_cast<char*>(p), size, text);
}

std::int64_t AUVXTable::StoredBytes() const {
    return static_cast<std::int64_t>(sizeof(ATableHead)) + static_cast<std::int64_t>(nCols) * 36 +
           static_cast<std::int64_t>(keywords.count) * 40 + static_cast<std::int64_t>(nRows) * rowBytes;
}

bool AUVXTable::Store(AFile& file) const {
    ATableHead head;
    std::memset(&head, 0, sizeof(head));
    AUVXHeader::SetText(head.name, 16, m_name);
    head.nCols = nCols;
    head.nRows = nRows;
    head.rowBytes = rowBytes;
    head.nKeywords = keywords.count;
    if (!file.Write(&head, static_cast<int>(sizeof(head)))) return false;
    if (nCols > 0 && !file.Write(columns, nCols * static_cast<int>(sizeof(AXTblColumn)))) return false;
    if (keywords.count > 0 &&
        !file.Write(keywords.data, keywords.count * static_cast<int>(sizeof(AXTblKeyword))))
        return false;
    const std::int64_t bytes = static_cast<std::int64_t>(nRows) * rowBytes;
    if (bytes > 0 && !file.WriteHuge(rows, bytes)) return false;
    return true;
}
