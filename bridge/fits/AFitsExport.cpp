// AFitsExport: UVX header, records and tables as UVFITS random groups and AIPS tables.
#include "AFitsExport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/AUVXTable.h>
#include <merovane/uvx/UVXTableLayouts.h>

#include "AFitsConventions.h"
#include "AFitsFile.h"
#include "AFitsTables.h"
#include "AFitsUVXOutput.h"

namespace {

const int kParams = 9;
enum { kPU, kPV, kPW, kPBaseline, kPDate1, kPDate2, kPIntTim, kPSource, kPFreqSel };
const char* const kParamNames[kParams] = {"UU---SIN", "VV---SIN", "WW---SIN", "BASELINE", "DATE",
                                          "DATE",     "INTTIM",   "SOURCE",   "FREQSEL"};

// A binary table defined column by column, then filled row by row with doubles or texts.
struct AColumnDef {
    const char* name;
    std::string form;
    const char* unit;
};

bool createTable(AFitsFile& fits, const char* extname, long rows, const std::vector<AColumnDef>& cols) {
    std::vector<char*> t, f, u;
    std::vector<std::string> forms;
    for (const AColumnDef& c : cols) forms.push_back(c.form);
    for (std::size_t i = 0; i < cols.size(); ++i) {
        t.push_back(const_cast<char*>(cols[i].name));
        f.push_back(&forms[i][0]);
        u.push_back(const_cast<char*>(cols[i].unit));
    }
    fits.m_status = 0;
    if (fits_create_tbl(fits.Handle(), BINARY_TBL, rows, static_cast<int>(cols.size()), t.data(), f.data(),
                        u.data(), extname, &fits.m_status))
        return fits.Fail(std::string("cannot write table ") + extname);
    return true;
}

void putDoubles(AFitsFile& fits, int col, long row, const double* v, long n) {
    if (n > 0) fits_write_col(fits.Handle(), TDOUBLE, col, row, 1, n, const_cast<double*>(v), &fits.m_status);
}
void putDouble(AFitsFile& fits, int col, long row, double v) {
    putDoubles(fits, col, row, &v, 1);
}
void putText(AFitsFile& fits, int col, long row, const std::string& text) {
    char* p = const_cast<char*>(text.c_str());
    fits_write_col(fits.Handle(), TSTRING, col, row, 1, 1, &p, &fits.m_status);
}
void keyText(AFitsFile& fits, const char* name, const std::string& value, const char* comment = nullptr) {
    fits_write_key(fits.Handle(), TSTRING, name, const_cast<char*>(value.c_str()), comment, &fits.m_status);
}
void keyDouble(AFitsFile& fits, const char* name, double value, const char* comment = nullptr) {
    // 17 significant digits: every double reads back as itself.
    fits_write_key_dbl(fits.Handle(), name, value, -17, comment, &fits.m_status);
}
void keyInt(AFitsFile& fits, const char* name, long long value, const char* comment = nullptr) {
    LONGLONG v = value;
    fits_write_key(fits.Handle(), TLONGLONG, name, &v, comment, &fits.m_status);
}

}  // namespace

bool AFitsExport::Export(const char* in, const char* out) {
    m_records = 0;
    const std::string inPath = in, outPath = out;
    AUVXFile uvx;
    if (!uvx.Open(in)) {
        m_errMsg = (inPath + ": " + uvx.m_errMsg.str()).c_str();
        return false;
    }
    const AUVXHeader h = uvx.GetHeader();
    const int nIF = std::max(1, static_cast<int>(h.nIF));
    const int nStokes = h.nStokes;
    const int nChan = h.nChan;
    for (int s = 0; s < nStokes; ++s) {
        if (!AFitsStokesSupported(h.stokes[s])) {
            m_errMsg =
                (inPath + ": Stokes code " + std::to_string(h.stokes[s]) + " has no UVFITS form").c_str();
            return false;
        }
    }

    // Every table, in file order, before the records are read.
    std::vector<std::unique_ptr<AUVXTable>> tables;
    {
        AUVXTableHeader directory(uvx);
        for (int i = 0; i < directory.nTables; ++i) {
            if (!uvx.Seek(directory.positions[i])) {
                m_errMsg = (inPath + ": cannot reach table " + std::to_string(i + 1)).c_str();
                return false;
            }
            auto t = std::make_unique<AUVXTable>(*uvx.file);
            if (!t->IsValid()) {
                m_errMsg = (inPath + ": table " + std::to_string(i + 1) + ": " + t->m_errMsg.str()).c_str();
                return false;
            }
            tables.push_back(std::move(t));
        }
    }
    auto find = [&](const char* name) -> AUVXTable* {
        for (auto& t : tables)
            if (t->GetName() == name) return t.get();
        return nullptr;
    };
    AUVXTable* an = find(kLayoutAN.name);
    if (an == nullptr) {
        m_errMsg = (inPath + ": no AN table (the stations)").c_str();
        return false;
    }
    AUVXTable* sl = find(kLayoutSL.name);

    const std::string temp = AFitsTempName(outPath);
    AFitsFile fits;
    if (!fits.Create(temp)) {
        m_errMsg = fits.m_err.c_str();
        return false;
    }
    auto failOut = [&](const std::string& what) {
        m_errMsg = what.c_str();
        fits.Close();
        std::remove(temp.c_str());
        return false;
    };

    // --- Primary header: the random-group array.
    long naxes[7] = {0, 3, nStokes, nChan, nIF, 1, 1};
    const long long gcount = uvx.nGroups;
    fits_write_grphdr(fits.Handle(), TRUE, FLOAT_IMG, 7, naxes, kParams, gcount, TRUE, &fits.m_status);
    const char* axisNames[6] = {"COMPLEX", "STOKES", "FREQ", "IF", "RA", "DEC"};
    const double crval[6] = {1.0, static_cast<double>(h.stokes[0]), h.refFreq, 1.0, h.objRA, h.objDec};
    const double cdelt[6] = {
        1.0, nStokes > 1 ? static_cast<double>(h.stokes[1] - h.stokes[0]) : -1.0, h.chanWidth, 1.0, 1.0, 1.0};
    const double crpix[6] = {1.0, 1.0, static_cast<double>(h.refChan > 0 ? h.refChan : 1), 1.0, 1.0, 1.0};
    for (int s = 2; s < nStokes; ++s) {
        if (h.stokes[s] - h.stokes[s - 1] != h.stokes[1] - h.stokes[0])
            return failOut(inPath + ": Stokes codes not evenly spaced cannot be a UVFITS STOKES axis");
    }
    for (int a = 0; a < 6; ++a) {
        char key[FLEN_KEYWORD];
        std::snprintf(key, sizeof key, "CTYPE%d", a + 2);
        keyText(fits, key, axisNames[a]);
        std::snprintf(key, sizeof key, "CRVAL%d", a + 2);
        keyDouble(fits, key, crval[a]);
        std::snprintf(key, sizeof key, "CDELT%d", a + 2);
        keyDouble(fits, key, cdelt[a]);
        std::snprintf(key, sizeof key, "CRPIX%d", a + 2);
        keyDouble(fits, key, crpix[a]);
        std::snprintf(key, sizeof key, "CROTA%d", a + 2);
        keyDouble(fits, key, 0.0);
    }
    for (int p = 0; p < kParams; ++p) {
        char key[FLEN_KEYWORD];
        std::snprintf(key, sizeof key, "PTYPE%d", p + 1);
        keyText(fits, key, kParamNames[p]);
        std::snprintf(key, sizeof key, "PSCAL%d", p + 1);
        keyDouble(fits, key, 1.0);
        std::snprintf(key, sizeof key, "PZERO%d", p + 1);
        keyDouble(fits, key, p == kPDate1 ? h.refJD : 0.0);
    }
    keyText(fits, "OBJECT", AUVXHeader::Text(h.object, sizeof h.object).str());
    keyText(fits, "TELESCOP", AUVXHeader::Text(h.telescope, sizeof h.telescope).str());
    keyText(fits, "INSTRUME", AUVXHeader::Text(h.instrument, sizeof h.instrument).str());
    keyText(fits, "OBSERVER", AUVXHeader::Text(h.observer, sizeof h.observer).str());
    keyText(fits, "DATE-OBS", AFitsDateText(h.refJD), "0h of the reference day");
    keyDouble(fits, "EPOCH", h.equinox);
    keyDouble(fits, "EQUINOX", h.equinox);
    keyDouble(fits, "BSCALE", 1.0);
    keyDouble(fits, "BZERO", 0.0);
    keyText(fits, "BUNIT", "UNCALIB");
    keyDouble(fits, "OBSRA", h.objRA);
    keyDouble(fits, "OBSDEC", h.objDec);
    keyText(fits, "ORIGIN", "uvx-export");
    fits_write_comment(fits.Handle(), "u v w in seconds; DATE = sum of both DATE parameters (Julian date)",
                       &fits.m_status);
    fits_write_comment(fits.Handle(), "BASELINE = 256 ant1 + ant2 + (subarray - 1) / 100", &fits.m_status);
    if (fits.m_status) {
        fits.Fail("cannot write the primary header");
        return failOut(fits.m_err);
    }

    // --- Records. Scans of the scan list collect their first and last record for the NX table.
    std::vector<std::pair<double, double>> scans;
    std::vector<long long> scanFirst, scanLast;
    if (sl != nullptr) {
        for (int r = 0; r < sl->nRows; ++r)
            scans.emplace_back(sl->GetDouble(r, kSLStart), sl->GetDouble(r, kSLEnd));
        scanFirst.assign(scans.size(), 0);
        scanLast.assign(scans.size(), 0);
    }
    AUVXRecordReader reader;
    if (!reader.Open(uvx)) return failOut(inPath + ": " + reader.m_errMsg.str());
    const int nElem = reader.ElementCount();
    std::vector<AUVXComplex> elements(static_cast<std::size_t>(nElem));
    std::vector<float> data(static_cast<std::size_t>(3 * nElem));
    AUVXGroup group;
    long long g = 0;
    while (reader.Next(group, elements.data())) {
        ++g;
        const double days = group.time / 86400.0;
        const float day1 = static_cast<float>(days);
        float params[kParams];
        params[kPU] = group.u;
        params[kPV] = group.v;
        params[kPW] = group.w;
        params[kPBaseline] = static_cast<float>(AFitsEncodeBaseline(group.ant1, group.ant2));
        params[kPDate1] = day1;
        // The float day offset is good to a few milliseconds; its remainder, a float of its own,
        // brings the sum to well below a microsecond.
        params[kPDate2] = static_cast<float>(days - static_cast<double>(day1));
        params[kPIntTim] = h.intTime;
        params[kPSource] = group.sourceId;
        params[kPFreqSel] = group.freqId;
        std::memcpy(data.data(), elements.data(), sizeof(float) * data.size());
        fits_write_grppar_flt(fits.Handle(), g, 1, kParams, params, &fits.m_status);
        fits_write_img_flt(fits.Handle(), g, 1, static_cast<LONGLONG>(data.size()), data.data(),
                           &fits.m_status);
        if (fits.m_status) {
            fits.Fail("cannot write group " + std::to_string(g));
            return failOut(fits.m_err);
        }
        for (std::size_t s = 0; s < scans.size(); ++s) {
            if (group.time < scans[s].first || group.time > scans[s].second) continue;
            if (scanFirst[s] == 0) scanFirst[s] = g;
            scanLast[s] = g;
            break;
        }
    }
    if (reader.Failed()) return failOut(inPath + ": " + reader.m_errMsg.str());
    if (g != gcount)
        return failOut(inPath + ": holds " + std::to_string(g) + " records, its count says " +
                       std::to_string(gcount));
    m_records = g;

    // --- AIPS AN.
    {
        std::vector<AColumnDef> cols = {
            {"ANNAME", "8A", ""}, {"STABXYZ", "3D", "METERS"}, {"ORBPARM", "0D", ""},
            {"NOSTA", "1J", ""},  {"MNTSTA", "1J", ""},        {"STAXOF", "1E", "METERS"},
            {"POLTYA", "1A", ""}, {"POLAA", "1E", "DEGREES"},  {"POLCALA", "0E", ""},
            {"POLTYB", "1A", ""}, {"POLAB", "1E", "DEGREES"},  {"POLCALB", "0E", ""}};
        if (!createTable(fits, "AIPS AN", an->nRows, cols)) return failOut(fits.m_err);
        CString hand;
        const bool left = an->GetKeyword(kKeyXyzHand, hand) && hand.CompareNoCase("LEFT") == 0;
        bool linear = false;
        for (int s = 0; s < nStokes; ++s) linear = linear || (h.stokes[s] <= -5 && h.stokes[s] >= -8);
        const int cName = an->ColumnIndex(LayoutColumnName(kLayoutAN, kANName));
        const int cXyz = an->ColumnIndex(LayoutColumnName(kLayoutAN, kANStabXyz));
        const int cNo = an->ColumnIndex(LayoutColumnName(kLayoutAN, kANNoSta));
        if (cName < 0 || cXyz < 0 || cNo < 0)
            return failOut(inPath + ": the AN table lacks ANNAME, STABXYZ or NOSTA");
        for (int r = 0; r < an->nRows; ++r) {
            const long row = r + 1;
            double xyz[3] = {an->GetDouble(r, cXyz, 0), an->GetDouble(r, cXyz, 1), an->GetDouble(r, cXyz, 2)};
            if (left) xyz[1] = -xyz[1];
            putText(fits, 1, row, an->GetText(r, cName).str());
            putDoubles(fits, 2, row, xyz, 3);
            putDouble(fits, 4, row, an->GetDouble(r, cNo));
            putDouble(fits, 5, row, 0);
            putDouble(fits, 6, row, 0);
            putText(fits, 7, row, linear ? "X" : "R");
            putDouble(fits, 8, row, 0);
            putText(fits, 10, row, linear ? "Y" : "L");
            putDouble(fits, 11, row, 0);
        }
        keyInt(fits, "EXTVER", 1);
        keyDouble(fits, "ARRAYX", 0.0);
        keyDouble(fits, "ARRAYY", 0.0);
        keyDouble(fits, "ARRAYZ", 0.0);
        keyDouble(fits, "GSTIA0", AFitsGmstDegrees(h.refJD), "GMST at 0h UT of RDATE, degrees");
        keyDouble(fits, "DEGPDY", 360.9856449733);
        keyDouble(fits, "FREQ", h.refFreq);
        keyText(fits, "RDATE", AFitsDateText(h.refJD));
        keyDouble(fits, "POLARX", 0.0);
        keyDouble(fits, "POLARY", 0.0);
        keyDouble(fits, "UT1UTC", 0.0);
        keyDouble(fits, "DATUTC", 0.0);
        keyText(fits, "TIMSYS", "UTC");
        keyText(fits, "ARRNAM", AUVXHeader::Text(h.telescope, sizeof h.telescope).str());
        keyText(fits, "XYZHAND", "RIGHT");
        keyText(fits, "FRAME", "ITRF");
        keyInt(fits, "NUMORB", 0);
        keyInt(fits, "NO_IF", nIF);
        keyInt(fits, "NOPCAL", 0);
        keyText(fits, "POLTYPE", "APPROX");
        keyInt(fits, "FREQID", -1);
        keyDouble(fits, "IATUTC", 0.0);
        if (fits.m_status) {
            fits.Fail("cannot write table AIPS AN");
            return failOut(fits.m_err);
        }
    }
    // --- AIPS SU.
    if (AUVXTable* su = find(kLayoutSU.name)) {
        const std::string n = std::to_string(nIF);
        std::vector<AColumnDef> cols = {
            {"ID. NO.", "1J", ""},        {"SOURCE", "16A", ""},       {"QUAL", "1J", ""},
            {"CALCODE", "4A", ""},        {"IFLUX", n + "E", "JY"},    {"QFLUX", n + "E", "JY"},
            {"UFLUX", n + "E", "JY"},     {"VFLUX", n + "E", "JY"},    {"FREQOFF", n + "D", "HZ"},
            {"BANDWIDTH", "1D", "HZ"},    {"RAEPO", "1D", "DEGREES"},  {"DECEPO", "1D", "DEGREES"},
            {"EPOCH", "1D", "YEARS"},     {"RAAPP", "1D", "DEGREES"},  {"DECAPP", "1D", "DEGREES"},
            {"LSRVEL", n + "D", "M/SEC"}, {"RESTFREQ", n + "D", "HZ"}, {"PMRA", "1D", "DEG/DAY"},
            {"PMDEC", "1D", "DEG/DAY"}};
        if (!createTable(fits, "AIPS SU", su->nRows, cols)) return failOut(fits.m_err);
        const int cId = su->ColumnIndex(LayoutColumnName(kLayoutSU, kSUId));
        const int cName = su->ColumnIndex(LayoutColumnName(kLayoutSU, kSUSource));
        const int cRa = su->ColumnIndex(LayoutColumnName(kLayoutSU, kSURaEpo));
        const int cDec = su->ColumnIndex(LayoutColumnName(kLayoutSU, kSUDecEpo));
        if (cId < 0 || cName < 0 || cRa < 0 || cDec < 0)
            return failOut(inPath + ": the SU table lacks a column");
        std::vector<double> zeros(static_cast<std::size_t>(nIF), 0.0);
        for (int r = 0; r < su->nRows; ++r) {
            const long row = r + 1;
            putDouble(fits, 1, row, su->GetDouble(r, cId));
            putText(fits, 2, row, su->GetText(r, cName).str());
            putDouble(fits, 3, row, 0);
            putText(fits, 4, row, "");
            for (int c = 5; c <= 9; ++c) putDoubles(fits, c, row, zeros.data(), nIF);
            putDouble(fits, 10, row, h.totalBandwidth);
            putDouble(fits, 11, row, su->GetDouble(r, cRa));
            putDouble(fits, 12, row, su->GetDouble(r, cDec));
            putDouble(fits, 13, row, h.equinox);
            // Apparent positions are not kept in a UVX file; the mean positions stand in for them.
            putDouble(fits, 14, row, su->GetDouble(r, cRa));
            putDouble(fits, 15, row, su->GetDouble(r, cDec));
            putDoubles(fits, 16, row, zeros.data(), nIF);
            putDoubles(fits, 17, row, zeros.data(), nIF);
            putDouble(fits, 18, row, 0);
            putDouble(fits, 19, row, 0);
        }
        keyInt(fits, "EXTVER", 1);
        keyInt(fits, "NO_IF", nIF);
        keyText(fits, "VELTYP", "GEOCENTR");
        keyText(fits, "VELDEF", "OPTICAL");
        keyInt(fits, "FREQID", -1);
        if (fits.m_status) {
            fits.Fail("cannot write table AIPS SU");
            return failOut(fits.m_err);
        }
    }
    // --- AIPS FQ.
    if (AUVXTable* fq = find(kLayoutFQ.name)) {
        const std::string n = std::to_string(nIF);
        std::vector<AColumnDef> cols = {{"FRQSEL", "1J", ""},
                                        {"IF FREQ", n + "D", "HZ"},
                                        {"CH WIDTH", n + "E", "HZ"},
                                        {"TOTAL BANDWIDTH", n + "E", "HZ"},
                                        {"SIDEBAND", n + "J", ""}};
        if (!createTable(fits, "AIPS FQ", fq->nRows, cols)) return failOut(fits.m_err);
        int c[5];
        for (int k = 0; k < 5; ++k) {
            c[k] = fq->ColumnIndex(LayoutColumnName(kLayoutFQ, k));
            if (c[k] < 0 || (k > 0 && fq->ParseFormat(c[k]).count != nIF))
                return failOut(inPath + ": the FQ table's column " + LayoutColumnName(kLayoutFQ, k) +
                               " is missing or not one value per IF");
        }
        std::vector<double> v(static_cast<std::size_t>(nIF));
        for (int r = 0; r < fq->nRows; ++r) {
            putDouble(fits, 1, r + 1, fq->GetDouble(r, c[0]));
            for (int k = 1; k < 5; ++k) {
                for (int i = 0; i < nIF; ++i) v[i] = fq->GetDouble(r, c[k], i);
                putDoubles(fits, k + 1, r + 1, v.data(), nIF);
            }
        }
        keyInt(fits, "EXTVER", 1);
        keyInt(fits, "NO_IF", nIF);
        if (fits.m_status) {
            fits.Fail("cannot write table AIPS FQ");
            return failOut(fits.m_err);
        }
    }
    // --- AIPS NX from the scan list; TIME and TIME INTERVAL in double so that scan edges survive.
    if (sl != nullptr) {
        std::vector<AColumnDef> cols = {{"TIME", "1D", "DAYS"},  {"TIME INTERVAL", "1D", "DAYS"},
                                        {"SOURCE ID", "1J", ""}, {"SUBARRAY", "1J", ""},
                                        {"START VIS", "1J", ""}, {"END VIS", "1J", ""},
                                        {"FREQ ID", "1J", ""}};
        if (!createTable(fits, "AIPS NX", sl->nRows, cols)) return failOut(fits.m_err);
        for (int r = 0; r < sl->nRows; ++r) {
            const double start = sl->GetDouble(r, kSLStart) / 86400.0,
                         end = sl->GetDouble(r, kSLEnd) / 86400.0;
            putDouble(fits, 1, r + 1, 0.5 * (start + end));
            putDouble(fits, 2, r + 1, end - start);
            putDouble(fits, 3, r + 1, sl->GetDouble(r, kSLSourceId));
            putDouble(fits, 4, r + 1, 1);
            putDouble(fits, 5, r + 1, static_cast<double>(scanFirst[r]));
            putDouble(fits, 6, r + 1, static_cast<double>(scanLast[r]));
            putDouble(fits, 7, r + 1, 1);
        }
        keyInt(fits, "EXTVER", 1);
        if (fits.m_status) {
            fits.Fail("cannot write table AIPS NX");
            return failOut(fits.m_err);
        }
    }
    // --- Every other table as it is.
    for (auto& t : tables) {
        const CString& name = t->GetName();
        if (name == kLayoutAN.name || name == kLayoutSU.name || name == kLayoutFQ.name ||
            name == kLayoutSL.name)
            continue;
        if (!AFitsTables::WriteGeneric(fits, *t, "UVX " + name.str())) return failOut(fits.m_err);
    }
    if (!fits.Close()) return failOut(fits.m_err);
    std::string err;
    if (!AFitsCommitFile(outPath, err)) {
        m_errMsg = err.c_str();
        return false;
    }
    return true;
}
