// AFitsFile: a FITS file open through cfitsio, with keyword and column helpers that report errors as text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <fitsio.h>

// Every helper that can fail returns false and leaves a text in m_err that names the file and what
// was being read; the cfitsio status is cleared afterwards, so a later optional lookup still works.
// Not copyable; the destructor closes the file (and, for a file being created, leaves it as it is:
// the caller removes a half-written output).
class AFitsFile {
public:
    AFitsFile() = default;
    AFitsFile(const AFitsFile&) = delete;
    AFitsFile& operator=(const AFitsFile&) = delete;
    ~AFitsFile();

    bool OpenRead(const std::string& path);
    // Creates (or overwrites) `path`.
    bool Create(const std::string& path);
    // Closes; false if cfitsio reported an error while flushing.
    bool Close();

    fitsfile* Handle() const { return m_fptr; }
    const std::string& Path() const { return m_path; }

    int HduCount();
    // Moves to HDU `n` (1: the primary).
    bool MoveTo(int n);
    // Moves to the first binary table named `extname` with EXTVER `extver` (0: any); false, with no
    // error text, if there is none.
    bool MoveToTable(const char* extname, int extver = 0);
    // Numbers of all HDUs whose EXTNAME is `extname`, in file order.
    std::vector<int> FindTables(const char* extname);
    std::string CurrentExtName();

    // Keywords of the current HDU; the optional forms give `fallback` when the keyword is absent.
    bool HasKey(const char* name);
    bool ReadKey(const char* name, double& value);
    bool ReadKey(const char* name, long long& value);
    bool ReadKey(const char* name, std::string& value);
    double KeyOr(const char* name, double fallback);
    long long KeyOr(const char* name, long long fallback);
    std::string KeyOr(const char* name, const char* fallback);

    // Columns of the current table. ColumnNumber gives 0 if the table has no column of that name (case
    // ignored, exact otherwise); ColumnStartingWith the first column whose name begins with `prefix`.
    long long RowCount();
    int ColumnNumber(const char* name);
    int ColumnStartingWith(const char* prefix);
    // Repeat count of column `col`.
    long long ColumnRepeat(int col);
    std::string ColumnName(int col);
    // Reads `rows` rows from `firstRow` (1 first) of a numeric column as doubles, `repeat` per row.
    bool ReadColumn(int col, long long firstRow, long long rows, std::vector<double>& out);
    bool ReadColumn(int col, long long firstRow, long long rows, std::vector<float>& out);
    // A text column, one string per row, trimmed at the first NUL and trailing blanks.
    bool ReadTextColumn(int col, long long firstRow, long long rows, std::vector<std::string>& out);

    // Turns a cfitsio status into m_err ("<path>: <what>: <cfitsio text>") and clears it; false.
    bool Fail(const std::string& what);
    bool FailPlain(const std::string& what);

    int m_status = 0;
    std::string m_err;

private:
    fitsfile* m_fptr = nullptr;
    std::string m_path;
};
