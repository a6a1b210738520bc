// AFitsIdiReader: FITS-IDI tables to UVX records, tables, the antenna information and an ANTAB text.
#include "AFitsIdiReader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include <merovane/uvx/AUVXRecords.h>
#include <merovane/uvx/UVXTableLayouts.h>

#include "AFitsAntabWriter.h"
#include "AFitsConventions.h"
#include "AFitsTables.h"
#include "AFitsUVXOutput.h"
#include "AUVFitsReader.h"

namespace {

std::string upperStem(const std::string& type) {
    std::string s = type.substr(0, type.find('-'));
    for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

// The shape of the FLUX column of a UV_DATA table, from its MAXIS keywords.
struct AIdiShape {
    std::vector<AFitsAxis> axes;
    int iComplex = -1, iStokes = -1, iFreq = -1, iBand = -1;
    long long stride[16] = {0};
    long long nCplx = 0, nStokes = 0, nChan = 0, nBand = 1, nValues = 1;

    bool operator==(const AIdiShape& o) const {
        return nCplx == o.nCplx && nStokes == o.nStokes && nChan == o.nChan && nBand == o.nBand &&
               iComplex == o.iComplex && iStokes == o.iStokes && iFreq == o.iFreq && iBand == o.iBand;
    }
};

// One row of the FLAG table, times in days from 0h of the reference day.
struct AIdiFlag {
    int source = 0, ant1 = 0, ant2 = 0, freqId = -1;
    double t0 = 0, t1 = 0;
    std::vector<int> bands;    // nonzero: band flagged
    int chan0 = 0, chan1 = 0;  // 1-based, 0 0: all
    std::vector<int> pflags;   // nonzero: product flagged
    bool used = false;
};

bool readShape(AFitsFile& fits, AIdiShape& shape) {
    const std::string& path = fits.Path();
    long long maxis = 0;
    if (!fits.ReadKey("MAXIS", maxis) || maxis < 2 || maxis > 16)
        return fits.FailPlain("table UV_DATA has no MAXIS keywords describing FLUX");
    for (int j = 1; j <= maxis; ++j) {
        AFitsAxis a;
        char key[FLEN_KEYWORD];
        std::snprintf(key, sizeof key, "MAXIS%d", j);
        if (!fits.ReadKey(key, a.length) || a.length < 1)
            return fits.FailPlain("table UV_DATA lacks " + std::string(key));
        std::snprintf(key, sizeof key, "CTYPE%d", j);
        a.type = upperStem(fits.KeyOr(key, ""));
        std::snprintf(key, sizeof key, "CRVAL%d", j);
        a.crval = fits.KeyOr(key, 0.0);
        std::snprintf(key, sizeof key, "CDELT%d", j);
        a.cdelt = fits.KeyOr(key, 1.0);
        std::snprintf(key, sizeof key, "CRPIX%d", j);
        a.crpix = fits.KeyOr(key, 1.0);
        shape.axes.push_back(a);
    }
    for (std::size_t k = 0; k < shape.axes.size(); ++k) {
        const AFitsAxis& a = shape.axes[k];
        shape.stride[k] = shape.nValues;
        shape.nValues *= a.length;
        const int idx = static_cast<int>(k);
        if (a.type == "COMPLEX")
            shape.iComplex = idx;
        else if (a.type == "STOKES")
            shape.iStokes = idx;
        else if (a.type == "FREQ")
            shape.iFreq = idx;
        else if (a.type == "BAND" || a.type == "IF")
            shape.iBand = idx;
        else if (a.length != 1)
            return fits.FailPlain("FLUX axis " + a.type + " of length " + std::to_string(a.length) +
                                  " is not one of COMPLEX, STOKES, FREQ, BAND, RA, DEC");
    }
    (void)path;
    if (shape.iComplex < 0) return fits.FailPlain("table UV_DATA has no COMPLEX axis");
    if (shape.iStokes < 0) return fits.FailPlain("table UV_DATA has no STOKES axis");
    if (shape.iFreq < 0) return fits.FailPlain("table UV_DATA has no FREQ axis");
    shape.nCplx = shape.axes[shape.iComplex].length;
    shape.nStokes = shape.axes[shape.iStokes].length;
    shape.nChan = shape.axes[shape.iFreq].length;
    shape.nBand = shape.iBand >= 0 ? shape.axes[shape.iBand].length : 1;
    if (shape.nCplx != 2 && shape.nCplx != 3)
        return fits.FailPlain("the COMPLEX axis of UV_DATA has length " + std::to_string(shape.nCplx));
    if (shape.nStokes > 8)
        return fits.FailPlain(std::to_string(shape.nStokes) + " Stokes products; a UVX file holds 1 to 8");
    return true;
}

}  // namespace

bool AFitsIdiReader::fail(const std::string& what) {
    m_err = what;
    return false;
}

bool AFitsIdiReader::Read(AFitsFile& fits, const std::string& out, const std::string& antabPath) {
    const std::string& path = fits.Path();
    const std::vector<int> uvHdus = fits.FindTables("UV_DATA");
    if (uvHdus.empty()) return fail(path + ": no UV_DATA table");

    // --- Shape and frequencies from the first UV_DATA table; the others must agree.
    if (!fits.MoveTo(uvHdus[0])) return fail(fits.m_err);
    AIdiShape shape;
    if (!readShape(fits, shape)) return fail(fits.m_err);
    AUVXHeader header;
    header.nStokes = static_cast<std::int16_t>(shape.nStokes);
    for (int s = 0; s < shape.nStokes; ++s) {
        const AFitsAxis& a = shape.axes[shape.iStokes];
        const double code = a.crval + (s + 1 - a.crpix) * a.cdelt;
        const long icode = std::lround(code);
        if (!AFitsStokesSupported(static_cast<int>(icode)))
            return fail(path + ": Stokes code " + std::to_string(code) + " is not supported");
        header.stokes[s] = static_cast<std::int16_t>(icode);
    }
    header.nIF = static_cast<std::int32_t>(shape.nBand);
    header.nChan = static_cast<std::int32_t>(shape.nChan);
    const int nIF = header.nIF;
    const AFitsAxis& freqAxis = shape.axes[shape.iFreq];
    header.refFreq = fits.KeyOr("REF_FREQ", freqAxis.crval);
    header.chanWidth = fits.KeyOr("CHAN_BW", freqAxis.cdelt);
    header.refChan = static_cast<std::int32_t>(std::lround(fits.KeyOr("REF_PIXL", freqAxis.crpix)));
    header.sideband = header.chanWidth < 0 ? -1 : 1;
    header.totalBandwidth = std::fabs(header.chanWidth) * shape.nChan;
    header.equinox = 2000.0;
    std::string rdate = fits.KeyOr("RDATE", "");
    AUVXHeader::SetText(header.observer, sizeof header.observer, fits.KeyOr("OBSCODE", "").c_str());
    AUVXHeader::SetText(header.origin, sizeof header.origin, "uvx-import FITS-IDI");
    const long long elemPerRecord = shape.nBand * shape.nChan * shape.nStokes;
    if (26 + 12 * elemPerRecord > 2147483647LL) return fail(path + ": a record would exceed 2^31 - 1 bytes");

    // --- Tables.
    std::vector<std::unique_ptr<AUVXTable>> tables;
    AFitsAntabContext antab;
    antab.nBand = nIF;
    if (!fits.MoveTo(1)) return fail(fits.m_err);
    AUVXHeader::SetText(header.instrument, sizeof header.instrument, fits.KeyOr("CORRELAT", "").c_str());
    if (!fits.MoveToTable("ARRAY_GEOMETRY", 1) && !fits.MoveToTable("ARRAY_GEOMETRY"))
        return fail(path + ": no ARRAY_GEOMETRY table (the stations)");
    if (rdate.empty()) rdate = fits.KeyOr("RDATE", "");
    AUVXHeader::SetText(header.telescope, sizeof header.telescope, fits.KeyOr("ARRNAM", "").c_str());
    {
        auto an = AFitsTables::ReadStations(fits, nIF);
        if (!an) return fail(fits.m_err);
        for (int r = 0; r < an->nRows; ++r)
            antab.names[AFitsToInt(an->GetDouble(r, kANNoSta))] = an->GetText(r, kANName).str();
        tables.push_back(std::move(an));
    }
    double refJD = 0;
    if (!AFitsParseDate(rdate, refJD)) return fail(path + ": no readable RDATE (the reference day)");
    header.refJD = refJD;
    antab.refJD = refJD;
    AUVXHeader::SetText(header.dateObs, sizeof header.dateObs, AFitsDateText(refJD).c_str());

    if (!fits.MoveToTable("SOURCE")) return fail(path + ": no SOURCE table");
    {
        AFitsSourceColumns names = kIdiSourceColumns;
        if (fits.ColumnNumber(names.id) == 0 && fits.ColumnNumber("ID_NO.") != 0) names.id = "ID_NO.";
        auto su = AFitsTables::ReadSources(fits, names, nIF);
        if (!su) return fail(fits.m_err);
        if (su->nRows > 0) {
            header.objRA = su->GetDouble(0, kSURaEpo);
            header.objDec = su->GetDouble(0, kSUDecEpo);
        }
        AUVXHeader::SetText(header.object, sizeof header.object,
                            su->nRows == 1 ? su->GetText(0, kSUSource).str().c_str() : "MULTI");
        tables.push_back(std::move(su));
    }
    if (!fits.MoveToTable("FREQUENCY")) return fail(path + ": no FREQUENCY table");
    {
        auto fq = AFitsTables::ReadFrequencies(fits, kIdiFrequencyColumns, nIF);
        if (!fq) return fail(fits.m_err);
        if (fq->nRows > 0) {
            header.totalBandwidth = fq->GetDouble(0, kFQTotalBandwidth, 0);
            header.sideband = fq->GetDouble(0, kFQSideband, 0) < 0 ? -1 : 1;
            antab.freqId = AFitsToInt(fq->GetDouble(0, kFQFrqSel));
            double lo = 1e300, hi = -1e300;
            for (int i = 0; i < nIF; ++i) {
                const double start = header.refFreq + fq->GetDouble(0, kFQIfFreq, i);
                const double end =
                    start + fq->GetDouble(0, kFQTotalBandwidth, i) * fq->GetDouble(0, kFQSideband, i);
                lo = std::min(lo, std::min(start, end));
                hi = std::max(hi, std::max(start, end));
            }
            antab.freqLowHz = lo;
            antab.freqHighHz = hi;
        }
        tables.push_back(std::move(fq));
    }
    if (!fits.MoveToTable("ANTENNA")) return fail(path + ": no ANTENNA table (with NO_LEVELS)");
    {
        const char* names[] = {"TIME", "TIME_INTERVAL", "ANTENNA_NO", "NO_LEVELS", "FREQID"};
        std::vector<double> cols[5];
        const long long rows = fits.RowCount();
        if (rows < 0) return fail(fits.m_err);
        for (int c = 0; c < 5; ++c) {
            const int col = fits.ColumnNumber(names[c]);
            if (col == 0) return fail(path + ": table ANTENNA has no column " + names[c]);
            if (fits.ColumnRepeat(col) != 1)
                return fail(path + ": column " + names[c] +
                            " of table ANTENNA does not hold one value per row");
            if (!fits.ReadColumn(col, 1, rows, cols[c])) return fail(fits.m_err);
        }
        std::vector<std::string> polA, polB;
        const int cA = fits.ColumnNumber("POLTYA"), cB = fits.ColumnNumber("POLTYB");
        if (cA && cB && (!fits.ReadTextColumn(cA, 1, rows, polA) || !fits.ReadTextColumn(cB, 1, rows, polB)))
            return fail(fits.m_err);
        auto ai = std::make_unique<AUVXTable>();
        if (!CreateTable(*ai, kLayoutAI, nIF)) return fail(path + ": " + ai->m_errMsg.str());
        for (long long r = 0; r < rows; ++r) {
            const int row = ai->AddRow();
            ai->SetDouble(row, kAITime, cols[0][r]);
            ai->SetDouble(row, kAITimeInterval, cols[1][r]);
            ai->SetDouble(row, kAIAntennaNo, cols[2][r]);
            ai->SetDouble(row, kAINoLevels, cols[3][r]);
            ai->SetDouble(row, kAIFreqId, cols[4][r]);
            if (!polA.empty()) {
                const std::string hands = (polA[r].empty() ? std::string("?") : polA[r].substr(0, 1)) +
                                          (polB[r].empty() ? std::string("?") : polB[r].substr(0, 1));
                antab.hands[AFitsToInt(cols[2][r])] = hands;
            }
        }
        tables.push_back(std::move(ai));
    }

    // FLAG rows, applied while the records pass.
    std::vector<AIdiFlag> flags;
    if (fits.MoveToTable("FLAG")) {
        const long long rows = fits.RowCount();
        if (rows < 0) return fail(fits.m_err);
        const int cSrc = fits.ColumnNumber("SOURCE_ID"), cAnts = fits.ColumnNumber("ANTS"),
                  cFq = fits.ColumnNumber("FREQID"), cTime = fits.ColumnNumber("TIMERANG"),
                  cBands = fits.ColumnNumber("BANDS"), cChans = fits.ColumnNumber("CHANS"),
                  cPf = fits.ColumnNumber("PFLAGS");
        if (!cAnts || !cTime || !cBands || !cChans || !cPf)
            return fail(path + ": table FLAG lacks one of ANTS, TIMERANG, BANDS, CHANS, PFLAGS");
        std::vector<double> src, ants, fq, time, bands, chans, pf;
        if ((cSrc && !fits.ReadColumn(cSrc, 1, rows, src)) || !fits.ReadColumn(cAnts, 1, rows, ants) ||
            (cFq && !fits.ReadColumn(cFq, 1, rows, fq)) || !fits.ReadColumn(cTime, 1, rows, time) ||
            !fits.ReadColumn(cBands, 1, rows, bands) || !fits.ReadColumn(cChans, 1, rows, chans) ||
            !fits.ReadColumn(cPf, 1, rows, pf))
            return fail(fits.m_err);
        const long long nb = fits.ColumnRepeat(cBands), np = fits.ColumnRepeat(cPf);
        if (fits.ColumnRepeat(cAnts) != 2 || fits.ColumnRepeat(cTime) != 2 ||
            fits.ColumnRepeat(cChans) != 2 || (cSrc && fits.ColumnRepeat(cSrc) != 1) ||
            (cFq && fits.ColumnRepeat(cFq) != 1))
            return fail(path +
                        ": table FLAG: ANTS, TIMERANG and CHANS must hold 2 values, SOURCE_ID and FREQID 1");
        for (long long r = 0; r < rows; ++r) {
            AIdiFlag f;
            f.source = cSrc ? AFitsToInt(src[r]) : 0;
            f.ant1 = AFitsToInt(ants[2 * r]);
            f.ant2 = AFitsToInt(ants[2 * r + 1]);
            f.freqId = cFq ? AFitsToInt(fq[r]) : -1;
            f.t0 = time[2 * r];
            f.t1 = time[2 * r + 1];
            for (long long b = 0; b < nb; ++b) f.bands.push_back(AFitsToInt(bands[r * nb + b]));
            f.chan0 = AFitsToInt(chans[2 * r]);
            f.chan1 = AFitsToInt(chans[2 * r + 1]);
            for (long long p = 0; p < np; ++p) f.pflags.push_back(AFitsToInt(pf[r * np + p]));
            flags.push_back(f);
        }
    }

    // --- Records, table after table.
    AFitsUVXOutput output;
    bool opened = false;
    std::vector<AUVXComplex> elements(static_cast<std::size_t>(elemPerRecord));
    for (std::size_t t = 0; t < uvHdus.size(); ++t) {
        if (!fits.MoveTo(uvHdus[t])) return fail(fits.m_err);
        const std::string table = "UV_DATA table " + std::to_string(t + 1);
        AIdiShape other;
        if (!readShape(fits, other)) return fail(fits.m_err);
        if (!(other == shape)) return fail(path + ": " + table + " has another FLUX shape than the first");
        const int cU = fits.ColumnStartingWith("UU"), cV = fits.ColumnStartingWith("VV"),
                  cW = fits.ColumnStartingWith("WW"), cDate = fits.ColumnNumber("DATE"),
                  cTime = fits.ColumnNumber("TIME"), cBl = fits.ColumnNumber("BASELINE"),
                  cFlux = fits.ColumnNumber("FLUX"), cWt = fits.ColumnNumber("WEIGHT"),
                  cFq = fits.ColumnNumber("FREQID"), cInt = fits.ColumnNumber("INTTIM"),
                  cArr = fits.ColumnNumber("ARRAY");
        int cSrc = fits.ColumnNumber("SOURCE_ID");
        if (cSrc == 0) cSrc = fits.ColumnNumber("SOURCE");
        if (!cU || !cV || !cW) return fail(path + ": " + table + " has no UU, VV, WW columns");
        if (!cDate || !cTime) return fail(path + ": " + table + " has no DATE and TIME columns");
        if (!cBl) return fail(path + ": " + table + " has no BASELINE column");
        if (!cFlux) return fail(path + ": " + table + " has no FLUX column");
        if (fits.ColumnRepeat(cFlux) != shape.nValues)
            return fail(path + ": " + table + ": FLUX holds " + std::to_string(fits.ColumnRepeat(cFlux)) +
                        " values, MAXIS says " + std::to_string(shape.nValues));
        for (int col : {cU, cV, cW, cDate, cTime, cBl, cSrc, cFq, cInt, cArr})
            if (col != 0 && fits.ColumnRepeat(col) != 1)
                return fail(path + ": " + table + ": column " + fits.ColumnName(col) +
                            " does not hold one value per row");
        const long long wRepeat = cWt ? fits.ColumnRepeat(cWt) : 0;
        if (shape.nCplx == 2 && cWt == 0)
            return fail(path + ": " + table + " has neither weights in FLUX nor WEIGHT");
        if (cWt && wRepeat != elemPerRecord && wRepeat != shape.nStokes * shape.nBand &&
            wRepeat != shape.nBand)
            return fail(path + ": " + table + ": WEIGHT holds " + std::to_string(wRepeat) +
                        " values, not one per element, per band and product, or per band");
        const long long rows = fits.RowCount();
        if (rows < 0) return fail(fits.m_err);

        const long long chunk = std::max(1LL, (4LL << 20) / (4 * shape.nValues + 64));
        std::vector<double> u, v, w, date, time, bl, src, fq, inttim, arr;
        std::vector<float> flux, wt;
        for (long long first = 1; first <= rows; first += chunk) {
            const long long n = std::min(chunk, rows - first + 1);
            if (!fits.ReadColumn(cU, first, n, u) || !fits.ReadColumn(cV, first, n, v) ||
                !fits.ReadColumn(cW, first, n, w) || !fits.ReadColumn(cDate, first, n, date) ||
                !fits.ReadColumn(cTime, first, n, time) || !fits.ReadColumn(cBl, first, n, bl) ||
                !fits.ReadColumn(cFlux, first, n, flux) || (cWt && !fits.ReadColumn(cWt, first, n, wt)) ||
                (cSrc && !fits.ReadColumn(cSrc, first, n, src)) ||
                (cFq && !fits.ReadColumn(cFq, first, n, fq)) ||
                (cInt && !fits.ReadColumn(cInt, first, n, inttim)) ||
                (cArr && !fits.ReadColumn(cArr, first, n, arr)))
                return fail(fits.m_err);
            if (!opened) {
                if (cInt && n > 0 && inttim[0] > 0 && inttim[0] < 1e6)
                    header.intTime = static_cast<float>(inttim[0]);
                if (!output.Open(out, header)) return fail(output.m_err);
                opened = true;
            }
            for (long long k = 0; k < n; ++k) {
                const std::string where = path + ": " + table + " row " + std::to_string(first + k);
                AUVXGroup group;
                std::memset(&group, 0, sizeof group);
                group.u = static_cast<float>(u[k]);
                group.v = static_cast<float>(v[k]);
                group.w = static_cast<float>(w[k]);
                const double days = (date[k] - refJD) + time[k];
                group.time = days * 86400.0;
                const AFitsBaseline b = AFitsDecodeBaseline(bl[k]);
                const int array = cArr ? AFitsToInt(arr[k]) : b.subarray;
                if (b.ant1 < 1 || b.ant1 > 64 || b.ant2 < 1 || b.ant2 > 64)
                    return fail(where + ": antenna numbers " + std::to_string(b.ant1) + "-" +
                                std::to_string(b.ant2) + " outside 1..64");
                if (array != 1)
                    return fail(where + ": array " + std::to_string(array) +
                                "; only array 1 can be converted");
                group.ant1 = static_cast<std::int8_t>(b.ant1);
                group.ant2 = static_cast<std::int8_t>(b.ant2);
                const long source = cSrc ? std::lround(src[k]) : 1;
                const long freqId = cFq ? std::lround(fq[k]) : 1;
                if (source < -32768 || source > 32767 || freqId < -128 || freqId > 127)
                    return fail(where + ": source ID or FREQID outside the UVX range");
                group.sourceId = static_cast<std::int16_t>(source);
                group.freqId = static_cast<std::int8_t>(freqId);

                const float* f = flux.data() + k * shape.nValues;
                AUVXComplex* e = elements.data();
                const long long sC = shape.stride[shape.iComplex], sS = shape.stride[shape.iStokes],
                                sF = shape.stride[shape.iFreq],
                                sB = shape.iBand >= 0 ? shape.stride[shape.iBand] : 0;
                for (long long i = 0; i < shape.nBand; ++i)
                    for (long long c = 0; c < shape.nChan; ++c)
                        for (long long s = 0; s < shape.nStokes; ++s, ++e) {
                            const long long at = i * sB + c * sF + s * sS;
                            e->re = f[at];
                            e->im = f[at + sC];
                            if (shape.nCplx == 3) {
                                e->wt = f[at + 2 * sC];
                            } else if (wRepeat == elemPerRecord) {
                                e->wt = wt[k * wRepeat + (i * shape.nChan + c) * shape.nStokes + s];
                            } else if (wRepeat == shape.nStokes * shape.nBand) {
                                e->wt = wt[k * wRepeat + i * shape.nStokes + s];
                            } else {
                                e->wt = wt[k * wRepeat + i];
                            }
                        }
                for (AIdiFlag& fl : flags) {
                    if (days < fl.t0 || days > fl.t1) continue;
                    if (fl.source > 0 && fl.source != group.sourceId) continue;
                    if (fl.freqId > 0 && fl.freqId != group.freqId) continue;
                    if (fl.ant1 > 0 && fl.ant2 > 0) {
                        if (!((fl.ant1 == b.ant1 && fl.ant2 == b.ant2) ||
                              (fl.ant1 == b.ant2 && fl.ant2 == b.ant1)))
                            continue;
                    } else if (fl.ant1 > 0 || fl.ant2 > 0) {
                        const int a = fl.ant1 > 0 ? fl.ant1 : fl.ant2;
                        if (a != b.ant1 && a != b.ant2) continue;
                    }
                    fl.used = true;
                    const int c0 = fl.chan0 > 0 ? fl.chan0 - 1 : 0;
                    const int c1 = fl.chan1 > 0 ? std::min<int>(fl.chan1, static_cast<int>(shape.nChan))
                                                : static_cast<int>(shape.nChan);
                    for (int i = 0; i < nIF; ++i) {
                        if (i < static_cast<int>(fl.bands.size()) && fl.bands[i] == 0) continue;
                        for (int c = c0; c < c1; ++c)
                            for (int s = 0; s < shape.nStokes; ++s) {
                                if (s < static_cast<int>(fl.pflags.size()) && fl.pflags[s] == 0) continue;
                                AUVXComplex& el = elements[(i * shape.nChan + c) * shape.nStokes + s];
                                if (el.wt > 0) el.wt = -el.wt;
                            }
                    }
                }
                for (AUVXComplex& el : elements) {
                    if (std::isnan(el.re) || std::isnan(el.im) || std::isnan(el.wt)) {
                        el.wt = std::isnan(el.wt) || el.wt == 0.0f ? 0.0f : -std::fabs(el.wt);
                        if (std::isnan(el.re)) el.re = 0.0f;
                        if (std::isnan(el.im)) el.im = 0.0f;
                        ++m_nanFlagged;
                    }
                }
                if (!output.Write(group, elements.data())) return fail(output.m_err);
            }
        }
    }
    if (!opened && !output.Open(out, header)) return fail(output.m_err);
    for (const AIdiFlag& f : flags) m_flagRowsApplied += f.used;

    // The stations' a-priori data, when the correlator put them in the file.
    const bool haveGain = fits.MoveToTable("GAIN_CURVE");
    const bool haveTsys = fits.MoveToTable("SYSTEM_TEMPERATURE");
    if (haveGain && haveTsys) {
        AFitsAntabWriter writer;
        if (!writer.Write(fits, antab, antabPath)) return fail(writer.m_err);
        if (!output.Finish(tables)) {
            AFitsDiscardFile(antabPath);
            return fail(output.m_err);
        }
        std::string err;
        if (!AFitsCommitFile(antabPath, err)) {
            std::remove(out.c_str());
            return fail(err);
        }
        m_antabWritten = true;
    } else if (!output.Finish(tables)) {
        return fail(output.m_err);
    }
    m_records = output.Records();
    return true;
}
