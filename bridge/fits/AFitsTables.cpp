// AFitsTables: table conversions shared by the UVFITS and FITS-IDI readers and the UVFITS writer.
#include "AFitsTables.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include <merovane/uvx/UVXTableLayouts.h>

#include "AFitsConventions.h"

const AFitsSourceColumns kAipsSourceColumns = {"ID. NO.", "SOURCE", "RAEPO", "DECEPO"};
const AFitsSourceColumns kIdiSourceColumns = {"SOURCE_ID", "SOURCE", "RAEPO", "DECEPO"};
const AFitsFrequencyColumns kAipsFrequencyColumns = {"FRQSEL", "IF FREQ", "CH WIDTH", "TOTAL BANDWIDTH",
                                                     "SIDEBAND"};
const AFitsFrequencyColumns kIdiFrequencyColumns = {"FREQID", "BANDFREQ", "CH_WIDTH", "TOTAL_BANDWIDTH",
                                                    "SIDEBAND"};

namespace {

std::unique_ptr<AUVXTable> failTable(AFitsFile& fits, const std::string& what) {
    fits.FailPlain(what);
    return nullptr;
}

// Column numbers of `names`; false (with the message) for the first one missing, or for one of the
// first `scalars` columns that does not hold exactly one value.
bool findColumns(AFitsFile& fits, const char* const* names, int n, int* cols, int scalars = 0) {
    for (int i = 0; i < n; ++i) {
        cols[i] = fits.ColumnNumber(names[i]);
        if (cols[i] == 0)
            return fits.FailPlain("table " + fits.CurrentExtName() + " has no column " + names[i]);
        if (i < scalars && fits.ColumnRepeat(cols[i]) != 1)
            return fits.FailPlain("column " + std::string(names[i]) + " of table " + fits.CurrentExtName() +
                                  " does not hold one value per row");
    }
    return true;
}

}  // namespace

std::unique_ptr<AUVXTable> AFitsTables::ReadStations(AFitsFile& fits, int nIF, bool* declared) {
    const char* names[] = {"NOSTA", "ANNAME", "STABXYZ"};
    int colsByName[3];
    if (!findColumns(fits, names, 3, colsByName, 1)) return nullptr;
    const int cols[3] = {colsByName[1], colsByName[2], colsByName[0]};
    const long long rows = fits.RowCount();
    if (rows < 0) return nullptr;
    if (fits.ColumnRepeat(cols[1]) != 3)
        return failTable(fits,
                         "column STABXYZ of table " + fits.CurrentExtName() + " does not hold 3 values");
    std::vector<std::string> anname;
    std::vector<double> xyz, nosta;
    if (!fits.ReadTextColumn(cols[0], 1, rows, anname) || !fits.ReadColumn(cols[1], 1, rows, xyz) ||
        !fits.ReadColumn(cols[2], 1, rows, nosta))
        return nullptr;
    std::string hand;
    const bool said = fits.ReadKey("XYZHAND", hand);
    if (declared != nullptr) *declared = said;
    for (char& c : hand) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    const bool left = hand == "LEFT";

    auto table = std::make_unique<AUVXTable>();
    if (!CreateTable(*table, kLayoutAN, nIF)) return failTable(fits, table->m_errMsg.str());
    table->SetKeyword(kKeyXyzHand, "RIGHT");
    for (long long r = 0; r < rows; ++r) {
        const int row = table->AddRow();
        table->SetText(row, kANName, anname[r].c_str());
        table->SetDouble(row, kANStabXyz, xyz[3 * r], 0);
        table->SetDouble(row, kANStabXyz, left ? -xyz[3 * r + 1] : xyz[3 * r + 1], 1);
        table->SetDouble(row, kANStabXyz, xyz[3 * r + 2], 2);
        table->SetDouble(row, kANNoSta, nosta[r]);
    }
    return table;
}

std::unique_ptr<AUVXTable> AFitsTables::ReadSources(AFitsFile& fits, const AFitsSourceColumns& names,
                                                    int nIF) {
    const char* list[] = {names.id, names.ra, names.dec, names.name};
    int colsByName[4];
    if (!findColumns(fits, list, 4, colsByName, 3)) return nullptr;
    const int cols[4] = {colsByName[0], colsByName[3], colsByName[1], colsByName[2]};
    const long long rows = fits.RowCount();
    if (rows < 0) return nullptr;
    std::vector<double> id, ra, dec;
    std::vector<std::string> source;
    if (!fits.ReadColumn(cols[0], 1, rows, id) || !fits.ReadTextColumn(cols[1], 1, rows, source) ||
        !fits.ReadColumn(cols[2], 1, rows, ra) || !fits.ReadColumn(cols[3], 1, rows, dec))
        return nullptr;
    auto table = std::make_unique<AUVXTable>();
    if (!CreateTable(*table, kLayoutSU, nIF)) return failTable(fits, table->m_errMsg.str());
    for (long long r = 0; r < rows; ++r) {
        const int row = table->AddRow();
        table->SetDouble(row, kSUId, id[r]);
        table->SetText(row, kSUSource, source[r].c_str());
        table->SetDouble(row, kSURaEpo, ra[r]);
        table->SetDouble(row, kSUDecEpo, dec[r]);
    }
    return table;
}

std::unique_ptr<AUVXTable> AFitsTables::ReadFrequencies(AFitsFile& fits, const AFitsFrequencyColumns& names,
                                                        int nIF) {
    const char* list[] = {names.freqSel, names.ifFreq, names.chWidth, names.bandwidth, names.sideband};
    int cols[5];
    if (!findColumns(fits, list, 5, cols, 1)) return nullptr;
    for (int c = 1; c < 5; ++c) {
        if (fits.ColumnRepeat(cols[c]) != nIF)
            return failTable(fits, "column " + std::string(list[c]) + " of table " + fits.CurrentExtName() +
                                       " holds " + std::to_string(fits.ColumnRepeat(cols[c])) +
                                       " values, the data have " + std::to_string(nIF) + " IF bands");
    }
    const long long rows = fits.RowCount();
    if (rows < 0) return nullptr;
    std::vector<double> values[5];
    for (int c = 0; c < 5; ++c)
        if (!fits.ReadColumn(cols[c], 1, rows, values[c])) return nullptr;
    auto table = std::make_unique<AUVXTable>();
    if (!CreateTable(*table, kLayoutFQ, nIF)) return failTable(fits, table->m_errMsg.str());
    for (long long r = 0; r < rows; ++r) {
        const int row = table->AddRow();
        table->SetDouble(row, kFQFrqSel, values[0][r]);
        for (int i = 0; i < nIF; ++i) {
            table->SetDouble(row, kFQIfFreq, values[1][r * nIF + i], i);
            table->SetDouble(row, kFQChWidth, values[2][r * nIF + i], i);
            table->SetDouble(row, kFQTotalBandwidth, values[3][r * nIF + i], i);
            table->SetDouble(row, kFQSideband, values[4][r * nIF + i], i);
        }
    }
    return table;
}

namespace {

bool isStructuralKey(const std::string& key) {
    static const char* const kFixed[] = {"XTENSION", "BITPIX", "NAXIS",    "PCOUNT",  "GCOUNT",  "TFIELDS",
                                         "EXTNAME",  "EXTVER", "EXTLEVEL", "COMMENT", "HISTORY", ""};
    for (const char* k : kFixed)
        if (key == k) return true;
    static const char* const kIndexed[] = {"NAXIS", "TTYPE", "TFORM", "TUNIT",
                                           "TDIM",  "TNULL", "TSCAL", "TZERO"};
    for (const char* k : kIndexed) {
        const std::size_t n = std::strlen(k);
        if (key.size() > n && key.compare(0, n, k) == 0 &&
            key.find_first_not_of("0123456789", n) == std::string::npos)
            return true;
    }
    return false;
}

}  // namespace

std::unique_ptr<AUVXTable> AFitsTables::ReadGeneric(AFitsFile& fits, const std::string& uvxName) {
    fitsfile* f = fits.Handle();
    int status = 0;
    int ncols = 0;
    fits_get_num_cols(f, &ncols, &status);
    const long long rows = fits.RowCount();
    if (status || rows < 0) return failTable(fits, "table " + fits.CurrentExtName() + " cannot be read");
    auto table = std::make_unique<AUVXTable>(uvxName.c_str());
    std::vector<char> types;
    for (int c = 1; c <= ncols; ++c) {
        int type = 0;
        LONGLONG repeat = 0, width = 0;
        fits_get_coltypell(f, c, &type, &repeat, &width, &status);
        char key[FLEN_KEYWORD];
        std::snprintf(key, sizeof key, "TUNIT%d", c);
        const std::string unit = fits.KeyOr(key, "");
        char t = 0;
        switch (type) {
            case TSTRING:
                t = 'A';
                break;
            case TLOGICAL:
                t = 'L';
                break;
            case TSHORT:
                t = 'I';
                break;
            case TINT:
            case TLONG:
                t = 'J';
                break;
            case TFLOAT:
                t = 'E';
                break;
            case TDOUBLE:
                t = 'D';
                break;
            default:
                break;
        }
        if (status || t == 0 || repeat < 1)
            return failTable(fits, "column " + fits.ColumnName(c) + " of table " + fits.CurrentExtName() +
                                       " has a type a UVX table cannot hold");
        if (table->AddColumn(fits.ColumnName(c).c_str(), t, static_cast<int>(repeat), unit.c_str()) < 0)
            return failTable(fits, table->m_errMsg.str());
        types.push_back(t);
    }
    for (long long r = 0; r < rows; ++r) table->AddRow();
    for (int c = 0; c < ncols; ++c) {
        if (types[c] == 'A') {
            std::vector<std::string> text;
            if (!fits.ReadTextColumn(c + 1, 1, rows, text)) return nullptr;
            for (long long r = 0; r < rows; ++r) table->SetText(static_cast<int>(r), c, text[r].c_str());
        } else if (types[c] == 'L') {
            const int repeat = table->ParseFormat(c).count;
            std::vector<char> flags(static_cast<std::size_t>(rows * repeat));
            int anynul = 0;
            if (rows > 0 && fits_read_col(f, TLOGICAL, c + 1, 1, 1, rows * repeat, nullptr, flags.data(),
                                          &anynul, &status))
                return failTable(fits, "column " + fits.ColumnName(c + 1) + " cannot be read");
            for (long long r = 0; r < rows; ++r)
                for (int e = 0; e < repeat; ++e)
                    table->SetDouble(static_cast<int>(r), c, flags[r * repeat + e] ? 1.0 : 0.0, e);
        } else {
            std::vector<double> values;
            if (!fits.ReadColumn(c + 1, 1, rows, values)) return nullptr;
            const int repeat = table->ParseFormat(c).count;
            for (long long r = 0; r < rows; ++r)
                for (int e = 0; e < repeat; ++e)
                    table->SetDouble(static_cast<int>(r), c, values[r * repeat + e], e);
        }
    }
    int nkeys = 0;
    fits_get_hdrspace(f, &nkeys, nullptr, &status);
    for (int k = 1; k <= nkeys && status == 0; ++k) {
        char name[FLEN_KEYWORD] = {0}, value[FLEN_VALUE] = {0}, comment[FLEN_COMMENT] = {0};
        if (fits_read_keyn(f, k, name, value, comment, &status)) break;
        const std::string key = name;
        if (isStructuralKey(key) || value[0] == '\0') continue;
        char dtype = 0;
        if (fits_get_keytype(value, &dtype, &status)) {
            status = 0;
            continue;
        }
        if (dtype == 'C') {
            std::string text;
            fits.ReadKey(name, text);
            table->SetKeyword(name, text.c_str());
        } else if (dtype == 'I' || dtype == 'L') {
            long long v = 0;
            if (dtype == 'L')
                v = (value[0] == 'T');
            else
                fits.ReadKey(name, v);
            table->SetKeyword(name, static_cast<std::int64_t>(v));
        } else if (dtype == 'F') {
            double v = 0;
            fits.ReadKey(name, v);
            table->SetKeyword(name, v);
        }
    }
    if (status) return failTable(fits, "the keywords of table " + fits.CurrentExtName() + " cannot be read");
    return table;
}

bool AFitsTables::WriteGeneric(AFitsFile& fits, const AUVXTable& table, const std::string& extname) {
    fitsfile* f = fits.Handle();
    std::vector<std::string> ttype, tform, tunit;
    for (int c = 0; c < table.nCols; ++c) {
        const AXTblFormat format = table.ParseFormat(c);
        ttype.push_back(table.ColumnName(c).str());
        tform.push_back(std::to_string(format.count) + format.type);
        tunit.push_back(AFitsTrimName(table.columns[c].unit, sizeof table.columns[c].unit));
    }
    std::vector<char*> pt, pf, pu;
    for (int c = 0; c < table.nCols; ++c) {
        pt.push_back(&ttype[c][0]);
        pf.push_back(&tform[c][0]);
        pu.push_back(&tunit[c][0]);
    }
    int& status = fits.m_status;
    status = 0;
    if (fits_create_tbl(f, BINARY_TBL, table.nRows, table.nCols, pt.data(), pf.data(), pu.data(),
                        extname.c_str(), &status))
        return fits.Fail("cannot write table " + extname);
    for (int c = 0; c < table.nCols && status == 0; ++c) {
        const AXTblFormat format = table.ParseFormat(c);
        for (int r = 0; r < table.nRows && status == 0; ++r) {
            if (format.type == 'A') {
                const std::string text = table.GetText(r, c).str();
                char* p = const_cast<char*>(text.c_str());
                fits_write_col(f, TSTRING, c + 1, r + 1, 1, 1, &p, &status);
            } else if (format.type == 'L') {
                std::vector<char> v(format.count);
                for (int e = 0; e < format.count; ++e) v[e] = table.GetDouble(r, c, e) != 0.0;
                fits_write_col(f, TLOGICAL, c + 1, r + 1, 1, format.count, v.data(), &status);
            } else {
                std::vector<double> v(format.count);
                for (int e = 0; e < format.count; ++e) v[e] = table.GetDouble(r, c, e);
                fits_write_col(f, TDOUBLE, c + 1, r + 1, 1, format.count, v.data(), &status);
            }
        }
    }
    for (int k = 0; k < table.keywords.count && status == 0; ++k) {
        const AXTblKeyword& kw = table.keywords[k];
        const std::string name = AFitsTrimName(kw.name, sizeof kw.name);
        if (kw.type == 'A') {
            const std::string text = AFitsTrimName(kw.value.s, sizeof kw.value.s);
            fits_write_key(f, TSTRING, name.c_str(), const_cast<char*>(text.c_str()), nullptr, &status);
        } else if (kw.type == 'J') {
            LONGLONG v = kw.value.i;
            fits_write_key(f, TLONGLONG, name.c_str(), &v, nullptr, &status);
        } else if (kw.type == 'D') {
            double v = kw.value.d;
            fits_write_key(f, TDOUBLE, name.c_str(), &v, nullptr, &status);
        }
    }
    if (status) return fits.Fail("cannot write table " + extname);
    return true;
}
