// AFitsFile: cfitsio calls with their status turned into messages that name the file.
#include "AFitsFile.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "AFitsConventions.h"

AFitsFile::~AFitsFile() {
    if (m_fptr != nullptr) {
        int status = 0;
        fits_close_file(m_fptr, &status);
    }
}

bool AFitsFile::OpenRead(const std::string& path) {
    m_path = path;
    m_status = 0;
    if (fits_open_file(&m_fptr, path.c_str(), READONLY, &m_status)) {
        m_fptr = nullptr;
        return Fail("cannot be opened as FITS");
    }
    return true;
}

bool AFitsFile::Create(const std::string& path) {
    m_path = path;
    m_status = 0;
    // A leading '!' makes cfitsio replace an existing file of that name.
    const std::string name = "!" + path;
    if (fits_create_file(&m_fptr, name.c_str(), &m_status)) {
        m_fptr = nullptr;
        return Fail("cannot be created");
    }
    return true;
}

bool AFitsFile::Close() {
    if (m_fptr == nullptr) return true;
    m_status = 0;
    fits_close_file(m_fptr, &m_status);
    m_fptr = nullptr;
    if (m_status) return Fail("cannot be completed");
    return true;
}

bool AFitsFile::Fail(const std::string& what) {
    char text[FLEN_STATUS] = {0};
    fits_get_errstatus(m_status, text);
    m_err = m_path + ": " + what + " (" + text + ")";
    m_status = 0;
    fits_clear_errmsg();
    return false;
}

bool AFitsFile::FailPlain(const std::string& what) {
    m_err = m_path + ": " + what;
    m_status = 0;
    fits_clear_errmsg();
    return false;
}

int AFitsFile::HduCount() {
    int n = 0;
    m_status = 0;
    if (fits_get_num_hdus(m_fptr, &n, &m_status)) {
        Fail("cannot count its HDUs");
        return 0;
    }
    return n;
}

bool AFitsFile::MoveTo(int n) {
    m_status = 0;
    if (fits_movabs_hdu(m_fptr, n, nullptr, &m_status))
        return Fail("cannot move to HDU " + std::to_string(n) + ", the file is damaged or truncated");
    return true;
}

std::string AFitsFile::CurrentExtName() {
    std::string name;
    if (!ReadKey("EXTNAME", name)) return "";
    return name;
}

bool AFitsFile::MoveToTable(const char* extname, int extver) {
    const int n = HduCount();
    for (int i = 2; i <= n; ++i) {
        if (!MoveTo(i)) return false;
        if (CurrentExtName() != extname) continue;
        if (extver != 0 && KeyOr("EXTVER", 1LL) != extver) continue;
        return true;
    }
    return false;
}

std::vector<int> AFitsFile::FindTables(const char* extname) {
    std::vector<int> found;
    const int n = HduCount();
    for (int i = 2; i <= n; ++i) {
        if (!MoveTo(i)) break;
        if (CurrentExtName() == extname) found.push_back(i);
    }
    return found;
}

bool AFitsFile::HasKey(const char* name) {
    char card[FLEN_CARD];
    int status = 0;
    fits_read_card(m_fptr, name, card, &status);
    if (status) fits_clear_errmsg();
    return status == 0;
}

bool AFitsFile::ReadKey(const char* name, double& value) {
    int status = 0;
    if (fits_read_key(m_fptr, TDOUBLE, name, &value, nullptr, &status)) {
        fits_clear_errmsg();
        return false;
    }
    return true;
}

bool AFitsFile::ReadKey(const char* name, long long& value) {
    int status = 0;
    // Integer keywords are sometimes written as floating point ("NAXIS2 = 3.0" does not occur, but
    // EXTVER = 1.0 and similar do): read as double and round.
    double d = 0;
    if (fits_read_key(m_fptr, TDOUBLE, name, &d, nullptr, &status)) {
        fits_clear_errmsg();
        return false;
    }
    // A value no count can have is treated as absent.
    if (!(d > -9e18 && d < 9e18)) return false;
    value = static_cast<long long>(d < 0 ? d - 0.5 : d + 0.5);
    return true;
}

bool AFitsFile::ReadKey(const char* name, std::string& value) {
    char text[FLEN_VALUE] = {0};
    int status = 0;
    if (fits_read_key(m_fptr, TSTRING, name, text, nullptr, &status)) {
        fits_clear_errmsg();
        return false;
    }
    value = AFitsTrimName(text, sizeof text);
    return true;
}

double AFitsFile::KeyOr(const char* name, double fallback) {
    double v;
    return ReadKey(name, v) ? v : fallback;
}

long long AFitsFile::KeyOr(const char* name, long long fallback) {
    long long v;
    return ReadKey(name, v) ? v : fallback;
}

std::string AFitsFile::KeyOr(const char* name, const char* fallback) {
    std::string v;
    return ReadKey(name, v) ? v : std::string(fallback);
}

long long AFitsFile::RowCount() {
    LONGLONG rows = 0;
    m_status = 0;
    if (fits_get_num_rowsll(m_fptr, &rows, &m_status)) {
        Fail("cannot read the row count of table " + CurrentExtName());
        return -1;
    }
    return rows;
}

int AFitsFile::ColumnNumber(const char* name) {
    int col = 0;
    int status = 0;
    if (fits_get_colnum(m_fptr, CASEINSEN, const_cast<char*>(name), &col, &status)) {
        fits_clear_errmsg();
        return 0;
    }
    return col;
}

int AFitsFile::ColumnStartingWith(const char* prefix) {
    int ncols = 0;
    int status = 0;
    fits_get_num_cols(m_fptr, &ncols, &status);
    const std::size_t n = std::strlen(prefix);
    for (int c = 1; c <= ncols && status == 0; ++c) {
        const std::string name = ColumnName(c);
        bool same = name.size() >= n;
        for (std::size_t i = 0; same && i < n; ++i)
            same = std::toupper(static_cast<unsigned char>(name[i])) ==
                   std::toupper(static_cast<unsigned char>(prefix[i]));
        if (same) return c;
    }
    fits_clear_errmsg();
    return 0;
}

std::string AFitsFile::ColumnName(int col) {
    char key[FLEN_KEYWORD];
    std::snprintf(key, sizeof key, "TTYPE%d", col);
    return KeyOr(key, "");
}

long long AFitsFile::ColumnRepeat(int col) {
    int type = 0;
    LONGLONG repeat = 0, width = 0;
    int status = 0;
    if (fits_get_coltypell(m_fptr, col, &type, &repeat, &width, &status)) {
        fits_clear_errmsg();
        return 0;
    }
    return repeat;
}

bool AFitsFile::ReadColumn(int col, long long firstRow, long long rows, std::vector<double>& out) {
    const long long repeat = ColumnRepeat(col);
    out.assign(static_cast<std::size_t>(rows * repeat), 0.0);
    if (rows == 0 || repeat == 0) return true;
    m_status = 0;
    int anynul = 0;
    if (fits_read_col(m_fptr, TDOUBLE, col, firstRow, 1, rows * repeat, nullptr, out.data(), &anynul,
                      &m_status))
        return Fail("cannot read column " + ColumnName(col) + " of table " + CurrentExtName());
    return true;
}

bool AFitsFile::ReadColumn(int col, long long firstRow, long long rows, std::vector<float>& out) {
    const long long repeat = ColumnRepeat(col);
    out.assign(static_cast<std::size_t>(rows * repeat), 0.0f);
    if (rows == 0 || repeat == 0) return true;
    m_status = 0;
    int anynul = 0;
    if (fits_read_col(m_fptr, TFLOAT, col, firstRow, 1, rows * repeat, nullptr, out.data(), &anynul,
                      &m_status))
        return Fail("cannot read column " + ColumnName(col) + " of table " + CurrentExtName());
    return true;
}

bool AFitsFile::ReadTextColumn(int col, long long firstRow, long long rows, std::vector<std::string>& out) {
    out.clear();
    const long long width = ColumnRepeat(col);
    std::vector<char> buffer(static_cast<std::size_t>(width + 1));
    for (long long r = 0; r < rows; ++r) {
        char* p = buffer.data();
        std::memset(p, 0, buffer.size());
        m_status = 0;
        int anynul = 0;
        if (fits_read_col(m_fptr, TSTRING, col, firstRow + r, 1, 1, nullptr, &p, &anynul, &m_status))
            return Fail("cannot read column " + ColumnName(col) + " of table " + CurrentExtName());
        out.push_back(AFitsTrimName(p, buffer.size()));
    }
    return true;
}
