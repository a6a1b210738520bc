// FitsTestFiles: writers of small UVFITS and FITS-IDI files, straight on cfitsio.
#include "FitsTestFiles.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <vector>

#include <fitsio.h>

#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/UVXTableLayouts.h>

std::string FitsTmpPath(const std::string& name) {
    return std::string(MEROVANE_TEST_TMP) + "/fits-" + name;
}

bool FitsFileExists(const std::string& path) {
    std::ifstream f(path);
    return f.good();
}

void FitsRemove(const std::string& path) {
    std::remove(path.c_str());
}

namespace {

// cfitsio calls collect their status here; the first failure is reported.
struct AWriter {
    fitsfile* f = nullptr;
    int status = 0;
    bool ok(std::string& error, const char* what) {
        if (status == 0) return true;
        char text[FLEN_STATUS];
        fits_get_errstatus(status, text);
        error = std::string(what) + ": " + text;
        return false;
    }
    void key(const char* name, const std::string& v) {
        fits_update_key(f, TSTRING, name, const_cast<char*>(v.c_str()), nullptr, &status);
    }
    void key(const char* name, double v) { fits_update_key(f, TDOUBLE, name, &v, nullptr, &status); }
    void keyInt(const char* name, long v) { fits_update_key(f, TLONG, name, &v, nullptr, &status); }
    void table(const char* extname, long rows, const std::vector<std::vector<std::string>>& cols) {
        std::vector<char*> t, fm, u;
        for (auto& c : cols) {
            t.push_back(const_cast<char*>(c[0].c_str()));
            fm.push_back(const_cast<char*>(c[1].c_str()));
            u.push_back(const_cast<char*>(c.size() > 2 ? c[2].c_str() : ""));
        }
        fits_create_tbl(f, BINARY_TBL, rows, static_cast<int>(cols.size()), t.data(), fm.data(), u.data(),
                        extname, &status);
    }
    void put(int col, long row, const std::vector<double>& v) {
        fits_write_col(f, TDOUBLE, col, row, 1, static_cast<LONGLONG>(v.size()),
                       const_cast<double*>(v.data()), &status);
    }
    void put(int col, long row, double v) { put(col, row, std::vector<double>{v}); }
    void putText(int col, long row, const std::string& s) {
        char* p = const_cast<char*>(s.c_str());
        fits_write_col(f, TSTRING, col, row, 1, 1, &p, &status);
    }
};

}  // namespace

bool WriteUVFits(const std::string& path, const AUVFitsPlan& plan, std::string& error) {
    AWriter w;
    const std::string name = "!" + path;
    fits_create_file(&w.f, name.c_str(), &w.status);
    if (!w.ok(error, "create")) return false;
    std::vector<long> naxes = {0};
    long nData = 1;
    for (const auto& a : plan.axes) {
        naxes.push_back(a.length);
        nData *= a.length;
    }
    fits_write_grphdr(w.f, TRUE, plan.bitpix, static_cast<int>(naxes.size()), naxes.data(),
                      static_cast<long>(plan.params.size()), plan.gcount, TRUE, &w.status);
    for (std::size_t j = 0; j < plan.axes.size(); ++j) {
        char k[32];
        std::snprintf(k, sizeof k, "CTYPE%zu", j + 2);
        w.key(k, plan.axes[j].type);
        std::snprintf(k, sizeof k, "CRVAL%zu", j + 2);
        w.key(k, plan.axes[j].crval);
        std::snprintf(k, sizeof k, "CDELT%zu", j + 2);
        w.key(k, plan.axes[j].cdelt);
        std::snprintf(k, sizeof k, "CRPIX%zu", j + 2);
        w.key(k, plan.axes[j].crpix);
    }
    for (std::size_t p = 0; p < plan.params.size(); ++p) {
        char k[32];
        std::snprintf(k, sizeof k, "PTYPE%zu", p + 1);
        w.key(k, plan.params[p].name);
        std::snprintf(k, sizeof k, "PSCAL%zu", p + 1);
        w.key(k, plan.params[p].scale);
        std::snprintf(k, sizeof k, "PZERO%zu", p + 1);
        w.key(k, plan.params[p].zero);
    }
    if (plan.bscale != 1.0 || plan.bzero != 0.0) {
        w.key("BSCALE", plan.bscale);
        w.key("BZERO", plan.bzero);
        // cfitsio would apply them to what we write; the test gives raw values.
        fits_set_bscale(w.f, 1.0, 0.0, &w.status);
    }
    if (!plan.dateObs.empty()) w.key("DATE-OBS", plan.dateObs);
    w.key("OBJECT", plan.object);
    w.key("TELESCOP", std::string("TESTARR"));
    fits_set_bscale(w.f, 1.0, 0.0, &w.status);
    std::vector<double> params(plan.params.size()), data(static_cast<std::size_t>(nData));
    for (long g = 0; g < plan.gcount && w.status == 0; ++g) {
        plan.fill(g, params, data);
        fits_write_grppar_dbl(w.f, g + 1, 1, static_cast<long>(params.size()), params.data(), &w.status);
        fits_write_img_dbl(w.f, g + 1, 1, nData, data.data(), &w.status);
    }
    if (!w.ok(error, "groups")) return false;
    if (plan.withAN) {
        w.table("AIPS AN", static_cast<long>(plan.stations.size()),
                {{"ANNAME", "8A"}, {"STABXYZ", "3D", "METERS"}, {"NOSTA", "1J"}});
        for (std::size_t r = 0; r < plan.stations.size(); ++r) {
            w.putText(1, r + 1, plan.stations[r].name);
            w.put(2, r + 1, {plan.stations[r].x, plan.stations[r].y, plan.stations[r].z});
            w.put(3, r + 1, plan.stations[r].id);
        }
        w.keyInt("EXTVER", 1);
        if (!plan.xyzhand.empty()) w.key("XYZHAND", plan.xyzhand);
    }
    if (plan.withFQ) {
        const std::string n = std::to_string(plan.nIF);
        w.table("AIPS FQ", 1,
                {{"FRQSEL", "1J"},
                 {"IF FREQ", n + "D"},
                 {"CH WIDTH", n + "E"},
                 {"TOTAL BANDWIDTH", n + "E"},
                 {"SIDEBAND", n + "J"}});
        std::vector<double> f(plan.nIF), cw(plan.nIF, 1e6), bw(plan.nIF, 8e6), sb(plan.nIF, 1);
        for (int i = 0; i < plan.nIF; ++i) f[i] = plan.ifFreq.empty() ? i * 8e6 : plan.ifFreq[i];
        w.put(1, 1, 1);
        w.put(2, 1, f);
        w.put(3, 1, cw);
        w.put(4, 1, bw);
        w.put(5, 1, sb);
    }
    if (plan.withSU) {
        w.table("AIPS SU", 2, {{"ID. NO.", "1J"}, {"SOURCE", "16A"}, {"RAEPO", "1D"}, {"DECEPO", "1D"}});
        w.put(1, 1, 3);
        w.putText(2, 1, "FIRST");
        w.put(3, 1, 10.5);
        w.put(4, 1, -20.25);
        w.put(1, 2, 7);
        w.putText(2, 2, "SECOND");
        w.put(3, 2, 200.0);
        w.put(4, 2, 45.0);
    }
    fits_close_file(w.f, &w.status);
    if (!w.ok(error, "close")) return false;
    if (plan.truncateData) {
        std::ifstream in(path, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        in.close();
        // The header is 2880-byte blocks; keep it and a little of the data.
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size() * 0.4));
    }
    return true;
}

bool WriteIdiFromUvx(const std::string& uvxPath, const ASimTruth* truth, const std::string& out,
                     const AIdiOptions& o, std::string& error) {
    AUVXFile uvx;
    if (!uvx.Open(uvxPath.c_str())) {
        error = uvx.m_errMsg.str();
        return false;
    }
    const AUVXHeader h = uvx.GetHeader();
    const int nIF = std::max(1, static_cast<int>(h.nIF)), nChan = h.nChan, nStokes = h.nStokes;
    std::unique_ptr<AUVXTable> an(uvx.GetTable("AN")), su(uvx.GetTable("SU")), fq(uvx.GetTable("FQ")),
        ai(uvx.GetTable("AI"));
    if (!an || !su || !fq || !ai) {
        error = "the UVX file lacks a table";
        return false;
    }
    AWriter w;
    const std::string name = "!" + out;
    fits_create_file(&w.f, name.c_str(), &w.status);
    long naxes0[1] = {0};
    fits_create_img(w.f, BYTE_IMG, 0, naxes0, &w.status);
    fits_update_key_log(w.f, "GROUPS", TRUE, nullptr, &w.status);
    w.keyInt("GCOUNT", 0);
    w.keyInt("PCOUNT", 0);
    w.key("CORRELAT", std::string("SIMCORR"));
    w.key("FXCORVER", std::string("1.0"));
    const std::string rdate = AUVXHeader::Text(h.dateObs, sizeof h.dateObs).str();
    auto common = [&](int extver) {
        w.keyInt("EXTVER", extver);
        w.keyInt("TABREV", 2);
        w.key("OBSCODE", std::string("TST01"));
        w.keyInt("NO_STKD", nStokes);
        w.keyInt("STK_1", h.stokes[0]);
        w.keyInt("NO_BAND", nIF);
        w.keyInt("NO_CHAN", nChan);
        w.key("REF_FREQ", h.refFreq);
        w.key("CHAN_BW", h.chanWidth);
        w.key("REF_PIXL", static_cast<double>(h.refChan));
        w.key("RDATE", rdate);
    };
    const std::string n = std::to_string(nIF);
    if (o.withGeometry) {
        w.table("ARRAY_GEOMETRY", an->nRows,
                {{"ANNAME", "8A"},
                 {"STABXYZ", "3D", "METERS"},
                 {"DERXYZ", "3E", "METERS/S"},
                 {"ORBPARM", "0D"},
                 {"NOSTA", "1I"},
                 {"MNTSTA", "1J"},
                 {"STAXOF", "3E", "METERS"}});
        for (int r = 0; r < an->nRows; ++r) {
            w.putText(1, r + 1, an->GetText(r, kANName).str());
            w.put(2, r + 1,
                  {an->GetDouble(r, kANStabXyz, 0), an->GetDouble(r, kANStabXyz, 1),
                   an->GetDouble(r, kANStabXyz, 2)});
            w.put(3, r + 1, {0.0, 0.0, 0.0});
            w.put(5, r + 1, an->GetDouble(r, kANNoSta));
            w.put(6, r + 1, 0);
            w.put(7, r + 1, {0.0, 0.0, 0.0});
        }
        common(1);
        w.key("ARRNAM", std::string("SIMVLBI"));
        w.key("FRAME", std::string("GEOCENTRIC"));
        w.key("ARRAYX", 0.0);
        w.key("ARRAYY", 0.0);
        w.key("ARRAYZ", 0.0);
    }
    w.table("SOURCE", su->nRows,
            {{"SOURCE_ID", "1J"},
             {"SOURCE", "16A"},
             {"QUAL", "1J"},
             {"CALCODE", "4A"},
             {"FREQID", "1J"},
             {"IFLUX", n + "E", "JY"},
             {"RAEPO", "1D", "DEGREES"},
             {"DECEPO", "1D", "DEGREES"},
             {"EQUINOX", "8A"}});
    for (int r = 0; r < su->nRows; ++r) {
        w.put(1, r + 1, su->GetDouble(r, kSUId));
        // FITS-IDI pads names with blanks; the reader trims them.
        w.putText(2, r + 1, su->GetText(r, kSUSource).str() + "   ");
        w.put(3, r + 1, 0);
        w.putText(4, r + 1, "");
        w.put(5, r + 1, 1);
        w.put(6, r + 1, std::vector<double>(nIF, 0.0));
        w.put(7, r + 1, su->GetDouble(r, kSURaEpo));
        w.put(8, r + 1, su->GetDouble(r, kSUDecEpo));
        w.putText(9, r + 1, "J2000");
    }
    common(1);
    if (o.withFrequency) {
        w.table("FREQUENCY", fq->nRows,
                {{"FREQID", "1J"},
                 {"BANDFREQ", n + "D", "HZ"},
                 {"CH_WIDTH", n + "E", "HZ"},
                 {"TOTAL_BANDWIDTH", n + "E", "HZ"},
                 {"SIDEBAND", n + "J"},
                 {"BB_CHAN", n + "J"}});
        for (int r = 0; r < fq->nRows; ++r) {
            std::vector<double> f(nIF), cw(nIF), bw(nIF), sb(nIF), bb(nIF, 1);
            for (int i = 0; i < nIF; ++i) {
                f[i] = fq->GetDouble(r, kFQIfFreq, i);
                cw[i] = fq->GetDouble(r, kFQChWidth, i);
                bw[i] = fq->GetDouble(r, kFQTotalBandwidth, i);
                sb[i] = fq->GetDouble(r, kFQSideband, i);
            }
            w.put(1, r + 1, fq->GetDouble(r, kFQFrqSel));
            w.put(2, r + 1, f);
            w.put(3, r + 1, cw);
            w.put(4, r + 1, bw);
            w.put(5, r + 1, sb);
            w.put(6, r + 1, bb);
        }
        common(1);
    }
    w.table("ANTENNA", ai->nRows,
            {{"TIME", "1D", "DAYS"},
             {"TIME_INTERVAL", "1E", "DAYS"},
             {"ANNAME", "8A"},
             {"ANTENNA_NO", "1J"},
             {"ARRAY", "1J"},
             {"FREQID", "1J"},
             {"NO_LEVELS", "1J"},
             {"POLTYA", "1A"},
             {"POLAA", n + "E"},
             {"POLCALA", "0E"},
             {"POLTYB", "1A"},
             {"POLAB", n + "E"},
             {"POLCALB", "0E"}});
    for (int r = 0; r < ai->nRows; ++r) {
        const int id = static_cast<int>(ai->GetDouble(r, kAIAntennaNo));
        std::string anName;
        for (int k = 0; k < an->nRows; ++k)
            if (static_cast<int>(an->GetDouble(k, kANNoSta)) == id) anName = an->GetText(k, kANName).str();
        w.put(1, r + 1, ai->GetDouble(r, kAITime));
        w.put(2, r + 1, ai->GetDouble(r, kAITimeInterval));
        w.putText(3, r + 1, anName);
        w.put(4, r + 1, id);
        w.put(5, r + 1, 1);
        w.put(6, r + 1, ai->GetDouble(r, kAIFreqId));
        w.put(7, r + 1, ai->GetDouble(r, kAINoLevels));
        w.putText(8, r + 1, "R");
        w.put(9, r + 1, std::vector<double>(nIF, 0.0));
        w.putText(11, r + 1, "L");
        w.put(12, r + 1, std::vector<double>(nIF, 0.0));
    }
    common(1);
    if (!w.ok(error, "tables")) return false;

    // Records, over two UV_DATA tables.
    AUVXRecordReader reader;
    if (!reader.Open(uvx)) {
        error = reader.m_errMsg.str();
        return false;
    }
    const long total = uvx.nGroups;
    const long split = o.splitAt >= 0 ? o.splitAt : total / 2;
    const int nCplx = o.weightColumn ? 2 : 3;
    const long nValues = static_cast<long>(nCplx) * nStokes * nChan * nIF;
    const int nElem = reader.ElementCount();
    std::vector<AUVXComplex> e(nElem);
    AUVXGroup g;
    for (int part = 0; part < 2; ++part) {
        const long count = part == 0 ? split : total - split;
        std::vector<std::vector<std::string>> cols = {{"UU---SIN", "1E", "SECONDS"},
                                                      {"VV---SIN", "1E", "SECONDS"},
                                                      {"WW---SIN", "1E", "SECONDS"},
                                                      {"DATE", "1D", "DAYS"},
                                                      {"TIME", "1D", "DAYS"},
                                                      {"BASELINE", "1J"},
                                                      {"ARRAY", "1J"},
                                                      {"SOURCE_ID", "1J"},
                                                      {"FREQID", "1J"},
                                                      {"INTTIM", "1E", "SECONDS"},
                                                      {"FLUX", std::to_string(nValues) + "E", "UNCALIB"}};
        if (o.weightColumn) cols.push_back({"WEIGHT", std::to_string(nStokes * nIF) + "E"});
        w.table("UV_DATA", count, cols);
        const int stokesN = o.nStokesOverride ? o.nStokesOverride : nStokes;
        const std::string tdim = "(" + std::to_string(nCplx) + "," + std::to_string(stokesN) + "," +
                                 std::to_string(nChan) + "," + std::to_string(nIF) + ",1,1)";
        w.key("TDIM11", tdim);
        w.keyInt("NMATRIX", 1);
        w.keyInt("MAXIS", 6);
        const char* types[6] = {"COMPLEX", "STOKES", "FREQ", "BAND", "RA", "DEC"};
        const long lens[6] = {nCplx, stokesN, nChan, nIF, 1, 1};
        const double crval[6] = {1, static_cast<double>(h.stokes[0]), h.refFreq, 1, h.objRA, h.objDec};
        const double cdelt[6] = {
            1, nStokes > 1 ? static_cast<double>(h.stokes[1] - h.stokes[0]) : -1.0, h.chanWidth, 1, 1, 1};
        const double crpix[6] = {1, 1, static_cast<double>(h.refChan), 1, 1, 1};
        for (int j = 0; j < 6; ++j) {
            char k[32];
            std::snprintf(k, sizeof k, "MAXIS%d", j + 1);
            w.keyInt(k, lens[j]);
            std::snprintf(k, sizeof k, "CTYPE%d", j + 1);
            w.key(k, std::string(types[j]));
            std::snprintf(k, sizeof k, "CRVAL%d", j + 1);
            w.key(k, crval[j]);
            std::snprintf(k, sizeof k, "CDELT%d", j + 1);
            w.key(k, cdelt[j]);
            std::snprintf(k, sizeof k, "CRPIX%d", j + 1);
            w.key(k, crpix[j]);
        }
        common(part + 1);
        std::vector<double> flux(nValues), weight(static_cast<std::size_t>(nStokes) * nIF);
        for (long k = 0; k < count && w.status == 0; ++k) {
            if (!reader.Next(g, e.data())) {
                error = "records end early";
                return false;
            }
            const long row = k + 1;
            w.put(1, row, g.u);
            w.put(2, row, g.v);
            w.put(3, row, g.w);
            const double day = std::floor(g.time / 86400.0);
            w.put(4, row, h.refJD + day);
            w.put(5, row, g.time / 86400.0 - day);
            w.put(6, row, 256.0 * g.ant1 + g.ant2);
            w.put(7, row, 1);
            w.put(8, row, g.sourceId);
            w.put(9, row, g.freqId);
            w.put(10, row, h.intTime);
            for (int el = 0; el < nElem; ++el) {
                flux[el * nCplx] = e[el].re;
                flux[el * nCplx + 1] = e[el].im;
                if (nCplx == 3) flux[el * nCplx + 2] = e[el].wt;
            }
            w.put(11, row, flux);
            if (o.weightColumn) {
                // One weight per band and product: the magnitude of the first channel's.
                for (int i = 0; i < nIF; ++i)
                    for (int s = 0; s < nStokes; ++s)
                        weight[i * nStokes + s] = std::fabs(e[(i * nChan) * nStokes + s].wt);
                w.put(12, row, weight);
            }
        }
    }
    if (!w.ok(error, "UV_DATA")) return false;

    if (!o.flags.empty()) {
        w.table("FLAG", static_cast<long>(o.flags.size()),
                {{"SOURCE_ID", "1J"},
                 {"ARRAY", "1J"},
                 {"ANTS", "2J"},
                 {"FREQID", "1J"},
                 {"TIMERANG", "2E", "DAYS"},
                 {"BANDS", n + "J"},
                 {"CHANS", "2J"},
                 {"PFLAGS", std::to_string(nStokes) + "J"},
                 {"REASON", "24A"},
                 {"SEVERITY", "1J"}});
        for (std::size_t r = 0; r < o.flags.size(); ++r) {
            const AIdiFlagRow& f = o.flags[r];
            const long row = static_cast<long>(r) + 1;
            w.put(1, row, f.source);
            w.put(2, row, 1);
            w.put(3, row, {static_cast<double>(f.ant1), static_cast<double>(f.ant2)});
            w.put(4, row, -1);
            w.put(5, row, {f.t0, f.t1});
            std::vector<double> b(nIF, 1), p(nStokes, 1);
            for (std::size_t i = 0; i < f.bands.size() && i < b.size(); ++i) b[i] = f.bands[i];
            for (std::size_t i = 0; i < f.pflags.size() && i < p.size(); ++i) p[i] = f.pflags[i];
            w.put(6, row, b);
            w.put(7, row, {static_cast<double>(f.chan0), static_cast<double>(f.chan1)});
            w.put(8, row, p);
            w.putText(9, row, "TEST");
            w.put(10, row, -1);
        }
        common(1);
    }

    if (o.apriori && truth != nullptr) {
        int nTab = 1;
        for (const auto& s : truth->stations) nTab = std::max<int>(nTab, static_cast<int>(s.poly.size()));
        const std::string nt = std::to_string(nTab * nIF);
        w.table("GAIN_CURVE", static_cast<long>(truth->stations.size()),
                {{"ANTENNA_NO", "1J"},
                 {"ARRAY", "1J"},
                 {"FREQID", "1J"},
                 {"TYPE_1", n + "J"},
                 {"NTERM_1", n + "J"},
                 {"X_TYP_1", n + "J"},
                 {"Y_TYP_1", n + "J"},
                 {"X_VAL_1", n + "E"},
                 {"Y_VAL_1", nt + "E"},
                 {"GAIN_1", nt + "E"},
                 {"SENS_1", n + "E", "K/JY"},
                 {"TYPE_2", n + "J"},
                 {"NTERM_2", n + "J"},
                 {"X_TYP_2", n + "J"},
                 {"Y_TYP_2", n + "J"},
                 {"X_VAL_2", n + "E"},
                 {"Y_VAL_2", nt + "E"},
                 {"GAIN_2", nt + "E"},
                 {"SENS_2", n + "E", "K/JY"}});
        for (std::size_t r = 0; r < truth->stations.size(); ++r) {
            const ASimStationTruth& s = truth->stations[r];
            const long row = static_cast<long>(r) + 1;
            // Elevation polynomials are TYPE 3, zenith-angle ones TYPE 2; none is a constant 1.
            const double type = s.polyType == 2 ? 2 : 3;
            std::vector<double> poly(static_cast<std::size_t>(nTab) * nIF, 0.0);
            const int terms = s.poly.empty() ? 1 : static_cast<int>(s.poly.size());
            for (int i = 0; i < nIF; ++i)
                for (int k = 0; k < terms; ++k) poly[i * nTab + k] = s.poly.empty() ? 1.0 : s.poly[k];
            w.put(1, row, s.id);
            w.put(2, row, 1);
            w.put(3, row, 1);
            for (int pol = 0; pol < 2; ++pol) {
                const int base = 4 + pol * 8;
                w.put(base, row, std::vector<double>(nIF, type));
                w.put(base + 1, row, std::vector<double>(nIF, terms));
                w.put(base + 2, row, std::vector<double>(nIF, type == 2 ? 1 : 2));
                w.put(base + 3, row, std::vector<double>(nIF, 0));
                w.put(base + 4, row, std::vector<double>(nIF, 0));
                w.put(base + 5, row, std::vector<double>(poly.size(), 0.0));
                w.put(base + 6, row, poly);
                w.put(base + 7, row, std::vector<double>(nIF, s.dpfu[pol]));
            }
        }
        common(1);
        w.keyInt("NO_POL", 2);
        w.keyInt("NO_TABS", nTab);
        long rows = 0;
        for (const auto& s : truth->stations) rows += static_cast<long>(s.tsys.size());
        w.table("SYSTEM_TEMPERATURE", rows,
                {{"TIME", "1D", "DAYS"},
                 {"TIME_INTERVAL", "1E", "DAYS"},
                 {"SOURCE_ID", "1J"},
                 {"ANTENNA_NO", "1J"},
                 {"ARRAY", "1J"},
                 {"FREQID", "1J"},
                 {"TSYS_1", n + "E", "K"},
                 {"TANT_1", n + "E", "K"},
                 {"TSYS_2", n + "E", "K"},
                 {"TANT_2", n + "E", "K"}});
        const double refMjd = h.refJD - 2400000.5;
        long row = 0;
        for (const auto& s : truth->stations) {
            for (const ASimTsysRow& t : s.tsys) {
                ++row;
                std::vector<double> t1(nIF), t2(nIF);
                for (int i = 0; i < nIF; ++i) {
                    const double a = t.values[i], b = t.values[(truth->nPol - 1) * nIF + i];
                    // A correlator writes NaN where the station measured nothing.
                    t1[i] = a > 0 ? a * s.ft : NAN;
                    t2[i] = b > 0 ? b * s.ft : NAN;
                }
                w.put(1, row, t.mjd - refMjd);
                w.put(2, row, 0.0);
                w.put(3, row, 0);
                w.put(4, row, s.id);
                w.put(5, row, 1);
                w.put(6, row, 1);
                w.put(7, row, t1);
                w.put(8, row, std::vector<double>(nIF, 0.0));
                w.put(9, row, t2);
                w.put(10, row, std::vector<double>(nIF, 0.0));
            }
        }
        common(1);
        w.keyInt("NO_POL", 2);
    }
    fits_close_file(w.f, &w.status);
    return w.ok(error, "IDI file");
}
