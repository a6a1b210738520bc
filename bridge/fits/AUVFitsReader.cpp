// AUVFitsReader: UVFITS random groups (axes, random parameters, AIPS AN/SU/FQ/NX tables) to UVX.
#include "AUVFitsReader.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>

#include <merovane/uvx/AUVXRecords.h>
#include <merovane/uvx/UVXTableLayouts.h>

#include "AFitsConventions.h"
#include "AFitsTables.h"
#include "AFitsUVXOutput.h"

namespace {

// One random parameter: name and scaling (value = raw x scale + zero).
struct AParam {
    std::string name;
    double scale = 1.0;
    double zero = 0.0;
};

// Where each random parameter of interest sits (-1: absent); DATE may come twice or more.
struct AParamRoles {
    int u = -1, v = -1, w = -1, baseline = -1, ant1 = -1, ant2 = -1, subarray = -1;
    int source = -1, freqSel = -1, intTim = -1;
    std::vector<int> dates;
};

inline std::uint32_t load32(const unsigned char* p) {
    std::uint32_t x;
    std::memcpy(&x, p, 4);
    return __builtin_bswap32(x);
}

inline std::uint64_t load64(const unsigned char* p) {
    std::uint64_t x;
    std::memcpy(&x, p, 8);
    return __builtin_bswap64(x);
}

// Value number `i` of a big-endian array of BITPIX `bitpix`.
inline double rawValue(const unsigned char* base, long long i, int bitpix) {
    switch (bitpix) {
        case -32: {
            const std::uint32_t x = load32(base + 4 * i);
            float f;
            std::memcpy(&f, &x, 4);
            return f;
        }
        case -64: {
            const std::uint64_t x = load64(base + 8 * i);
            double d;
            std::memcpy(&d, &x, 8);
            return d;
        }
        case 8:
            return base[i];
        case 16:
            return static_cast<std::int16_t>((base[2 * i] << 8) | base[2 * i + 1]);
        case 32:
            return static_cast<std::int32_t>(load32(base + 4 * i));
        case 64:
            return static_cast<double>(static_cast<std::int64_t>(load64(base + 8 * i)));
        default:
            return 0.0;
    }
}

std::string upper(std::string s) {
    for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

bool startsWith(const std::string& s, const char* prefix) {
    return s.compare(0, std::strlen(prefix), prefix) == 0;
}

// The part of a CTYPE or PTYPE before its projection ("UU---SIN" gives "UU", "DEC--SIN" gives "DEC").
std::string stem(const std::string& type) {
    const std::size_t dash = type.find('-');
    return upper(dash == std::string::npos ? type : type.substr(0, dash));
}

}  // namespace

bool AUVFitsReader::fail(const std::string& what) {
    m_err = what;
    return false;
}

bool AUVFitsReader::Read(AFitsFile& fits, const std::string& out) {
    const std::string& path = fits.Path();
    if (!fits.MoveTo(1)) return fail(fits.m_err);

    // --- The array: axes 2..NAXIS (axis 1 has length 0 in random groups).
    long long naxis = 0, bitpix = 0, pcount = 0, gcount = 0;
    if (!fits.ReadKey("NAXIS", naxis) || !fits.ReadKey("BITPIX", bitpix))
        return fail(path + ": the primary header has no NAXIS or BITPIX");
    if (naxis < 2 || fits.KeyOr("NAXIS1", -1LL) != 0)
        return fail(path + ": not a random-group file (NAXIS1 must be 0)");
    if (naxis > 16)
        return fail(path + ": " + std::to_string(naxis) +
                    " axes; random groups of visibilities have at most 16");
    if (!fits.ReadKey("PCOUNT", pcount) || !fits.ReadKey("GCOUNT", gcount))
        return fail(path + ": the random groups have no PCOUNT or GCOUNT");
    if (pcount < 0 || pcount > 999 || gcount < 0 || gcount > 2147483647LL)
        return fail(path + ": PCOUNT " + std::to_string(pcount) + " or GCOUNT " + std::to_string(gcount) +
                    " out of range");
    if (bitpix != 8 && bitpix != 16 && bitpix != 32 && bitpix != 64 && bitpix != -32 && bitpix != -64)
        return fail(path + ": BITPIX " + std::to_string(bitpix) + " is not a FITS data type");
    const double bscale = fits.KeyOr("BSCALE", 1.0);
    const double bzero = fits.KeyOr("BZERO", 0.0);

    std::vector<AFitsAxis> axes;
    for (int j = 2; j <= naxis; ++j) {
        AFitsAxis a;
        char key[FLEN_KEYWORD];
        std::snprintf(key, sizeof key, "NAXIS%d", j);
        if (!fits.ReadKey(key, a.length) || a.length < 1 || a.length > 1000000)
            return fail(path + ": axis " + std::to_string(j) + " has no length or an impossible one");
        std::snprintf(key, sizeof key, "CTYPE%d", j);
        a.type = stem(fits.KeyOr(key, ""));
        std::snprintf(key, sizeof key, "CRVAL%d", j);
        a.crval = fits.KeyOr(key, 0.0);
        std::snprintf(key, sizeof key, "CDELT%d", j);
        a.cdelt = fits.KeyOr(key, 1.0);
        std::snprintf(key, sizeof key, "CRPIX%d", j);
        a.crpix = fits.KeyOr(key, 1.0);
        axes.push_back(a);
    }
    // Strides in values within a group's data, axis by axis in FITS order.
    int iComplex = -1, iStokes = -1, iFreq = -1, iIF = -1, iRA = -1, iDec = -1;
    long long stride[16] = {0};
    long long nData = 1;
    for (std::size_t k = 0; k < axes.size(); ++k) {
        stride[k] = nData;
        nData *= axes[k].length;
        const std::string& t = axes[k].type;
        const int idx = static_cast<int>(k);
        if (t == "COMPLEX")
            iComplex = idx;
        else if (t == "STOKES")
            iStokes = idx;
        else if (t == "FREQ")
            iFreq = idx;
        else if (t == "IF" || t == "BAND")
            iIF = idx;
        else if (t == "RA")
            iRA = idx;
        else if (t == "DEC")
            iDec = idx;
        else if (axes[k].length != 1)
            return fail(path + ": axis " + (t.empty() ? std::to_string(k + 2) : t) + " of length " +
                        std::to_string(axes[k].length) + " is not one of COMPLEX, STOKES, FREQ, IF, RA, DEC");
    }
    if (iComplex < 0) return fail(path + ": the random groups have no COMPLEX axis");
    if (iStokes < 0) return fail(path + ": the random groups have no STOKES axis");
    if (iFreq < 0) return fail(path + ": the random groups have no FREQ axis");
    if ((iRA >= 0 && axes[iRA].length != 1) || (iDec >= 0 && axes[iDec].length != 1))
        return fail(path + ": RA and DEC axes must have length 1");
    const int nCplx = static_cast<int>(axes[iComplex].length);
    if (nCplx != 2 && nCplx != 3)
        return fail(path + ": the COMPLEX axis has length " + std::to_string(nCplx) + ", not 2 or 3");
    const long long nStokes = axes[iStokes].length;
    if (nStokes > 8)
        return fail(path + ": " + std::to_string(nStokes) + " Stokes products; a UVX file holds 1 to 8");
    const long long nChan = axes[iFreq].length;
    const long long nIF = iIF >= 0 ? axes[iIF].length : 1;
    if (nIF > 32767)
        return fail(path + ": " + std::to_string(nIF) + " IF bands; a UVX file holds at most 32767");

    AUVXHeader header;
    header.nStokes = static_cast<std::int16_t>(nStokes);
    for (int s = 0; s < nStokes; ++s) {
        const AFitsAxis& a = axes[iStokes];
        const double code = a.crval + (s + 1 - a.crpix) * a.cdelt;
        const long icode = std::lround(code);
        if (!AFitsStokesSupported(static_cast<int>(icode)) || std::fabs(code - icode) > 1e-3)
            return fail(path + ": Stokes code " + std::to_string(code) + " is not supported");
        header.stokes[s] = static_cast<std::int16_t>(icode);
    }
    header.nIF = static_cast<std::int32_t>(nIF);
    header.nChan = static_cast<std::int32_t>(nChan);
    const long long elemPerRecord = nIF * nChan * nStokes;
    if (26 + 12 * elemPerRecord > 2147483647LL) return fail(path + ": a record would exceed 2^31 - 1 bytes");

    // --- Random parameters.
    std::vector<AParam> params(static_cast<std::size_t>(pcount));
    AParamRoles roles;
    for (int i = 0; i < pcount; ++i) {
        char key[FLEN_KEYWORD];
        std::snprintf(key, sizeof key, "PTYPE%d", i + 1);
        params[i].name = upper(fits.KeyOr(key, ""));
        std::snprintf(key, sizeof key, "PSCAL%d", i + 1);
        params[i].scale = fits.KeyOr(key, 1.0);
        std::snprintf(key, sizeof key, "PZERO%d", i + 1);
        params[i].zero = fits.KeyOr(key, 0.0);
        const std::string& n = params[i].name;
        const std::string s = stem(n);
        if (s == "UU")
            roles.u = i;
        else if (s == "VV")
            roles.v = i;
        else if (s == "WW")
            roles.w = i;
        else if (n == "BASELINE")
            roles.baseline = i;
        else if (n == "ANTENNA1")
            roles.ant1 = i;
        else if (n == "ANTENNA2")
            roles.ant2 = i;
        else if (n == "SUBARRAY")
            roles.subarray = i;
        else if (n == "DATE" || n == "_DATE")
            roles.dates.push_back(i);
        else if (n == "SOURCE")
            roles.source = i;
        else if (n == "FREQSEL")
            roles.freqSel = i;
        else if (n == "INTTIM")
            roles.intTim = i;
    }
    if (roles.u < 0 || roles.v < 0 || roles.w < 0)
        return fail(path + ": the random groups have no UU, VV and WW parameters");
    if (roles.dates.empty()) return fail(path + ": the random groups have no DATE parameter");
    if (roles.baseline < 0 && (roles.ant1 < 0 || roles.ant2 < 0))
        return fail(path +
                    ": the random groups have neither a BASELINE nor ANTENNA1 and ANTENNA2 parameters");
    double dateZero = 0.0;
    for (int d : roles.dates) dateZero += params[d].zero;

    // --- Header texts and the reference day.
    header.equinox = fits.KeyOr("EQUINOX", fits.KeyOr("EPOCH", 2000.0));
    const std::string object = fits.KeyOr("OBJECT", "");
    AUVXHeader::SetText(header.object, sizeof header.object, object.c_str());
    AUVXHeader::SetText(header.telescope, sizeof header.telescope, fits.KeyOr("TELESCOP", "").c_str());
    AUVXHeader::SetText(header.instrument, sizeof header.instrument, fits.KeyOr("INSTRUME", "").c_str());
    AUVXHeader::SetText(header.observer, sizeof header.observer, fits.KeyOr("OBSERVER", "").c_str());
    AUVXHeader::SetText(header.origin, sizeof header.origin, "uvx-import UVFITS");
    header.refFreq = axes[iFreq].crval;
    header.chanWidth = axes[iFreq].cdelt;
    const double crpixFreq = axes[iFreq].crpix;
    if (std::fabs(crpixFreq - std::lround(crpixFreq)) < 1e-9) {
        header.refChan = static_cast<std::int32_t>(std::lround(crpixFreq));
    } else {
        // A reference pixel between channels: move the reference frequency to channel 1.
        header.refFreq += (1.0 - crpixFreq) * header.chanWidth;
        header.refChan = 1;
    }
    header.sideband = header.chanWidth < 0 ? -1 : 1;
    header.totalBandwidth = std::fabs(header.chanWidth) * nChan;
    header.objRA = iRA >= 0 ? axes[iRA].crval : fits.KeyOr("OBSRA", 0.0);
    header.objDec = iDec >= 0 ? axes[iDec].crval : fits.KeyOr("OBSDEC", 0.0);

    // --- The data unit: groups of pcount parameters and nData values.
    LONGLONG headStart = 0, dataStart = 0, dataEnd = 0;
    fits.m_status = 0;
    if (fits_get_hduaddrll(fits.Handle(), &headStart, &dataStart, &dataEnd, &fits.m_status)) {
        fits.Fail("cannot locate the random groups");
        return fail(fits.m_err);
    }
    const int bytesPerValue = static_cast<int>(std::abs(bitpix) / 8);
    const long long groupValues = pcount + nData;
    const long long groupBytes = groupValues * bytesPerValue;
    const bool scaled = bscale != 1.0 || bzero != 0.0;
    // Strides of the UVX element order within the group's data.
    const long long sC = stride[iComplex];
    const long long sS = stride[iStokes];
    const long long sF = stride[iFreq];
    const long long sI = iIF >= 0 ? stride[iIF] : 0;
    // The common layout (COMPLEX, STOKES, FREQ, IF first, 3 floats per element) is the UVX layout.
    const bool direct = bitpix == -32 && !scaled && nCplx == 3 && sC == 1 && sS == 3 && sF == 3 * nStokes &&
                        (nIF == 1 || sI == 3 * nStokes * nChan);

    const long long chunkGroups = std::max(1LL, (4LL << 20) / std::max(1LL, groupBytes));
    std::vector<unsigned char> buffer;
    auto readChunk = [&](long long first, long long count) {
        buffer.resize(static_cast<std::size_t>(count * groupBytes));
        fits.m_status = 0;
        if (count > 0 &&
            ffgextn(fits.Handle(), first * groupBytes, count * groupBytes, buffer.data(), &fits.m_status)) {
            fits.Fail("truncated or unreadable: the data end before group " + std::to_string(first + 1) +
                      " of " + std::to_string(gcount));
            return false;
        }
        return true;
    };
    auto param = [&](const unsigned char* g, int i) { return rawValue(g, i, static_cast<int>(bitpix)); };

    long long firstCount = std::min(chunkGroups, gcount);
    if (!readChunk(0, firstCount)) return fail(fits.m_err);

    // Reference day: DATE-OBS, else a date offset that is 0h of a day, else the day of the first record.
    double refJD = 0.0;
    if (!AFitsParseDate(fits.KeyOr("DATE-OBS", ""), refJD)) {
        if (std::fabs(dateZero - std::floor(dateZero) - 0.5) < 1e-9) {
            refJD = dateZero;
        } else if (gcount > 0) {
            double jd = dateZero;
            for (int d : roles.dates) jd += param(buffer.data(), d) * params[d].scale;
            refJD = std::floor(jd - 0.5) + 0.5;
        } else {
            return fail(path + ": no DATE-OBS and no groups to tell the reference day");
        }
    }
    header.refJD = refJD;
    AUVXHeader::SetText(header.dateObs, sizeof header.dateObs, AFitsDateText(refJD).c_str());
    if (roles.intTim >= 0 && gcount > 0) {
        const double t =
            param(buffer.data(), roles.intTim) * params[roles.intTim].scale + params[roles.intTim].zero;
        // Some writers leave garbage in INTTIM; a UVX header keeps one plausible value or none.
        if (std::isfinite(t) && t > 0 && t < 1e6) header.intTime = static_cast<float>(t);
    }

    // --- Tables.
    std::vector<std::unique_ptr<AUVXTable>> tables;
    const int hdus = fits.HduCount();
    bool haveAN = false, haveSU = false, haveFQ = false, handDeclared = true;
    AUVXTable* stations = nullptr;
    AUVXTable* sources = nullptr;
    int firstSourceId = 1, firstFreqSel = 1;
    for (int h = 2; h <= hdus; ++h) {
        if (!fits.MoveTo(h)) return fail(fits.m_err);
        const std::string ext = fits.CurrentExtName();
        std::unique_ptr<AUVXTable> t;
        if (ext == "AIPS AN") {
            // Subarrays each have their table; a UVX file holds subarray 1 only.
            if (haveAN || fits.KeyOr("EXTVER", 1LL) != 1) continue;
            t = AFitsTables::ReadStations(fits, static_cast<int>(nIF), &handDeclared);
            haveAN = t != nullptr;
            stations = t.get();
        } else if (ext == "AIPS SU") {
            if (haveSU) continue;
            t = AFitsTables::ReadSources(fits, kAipsSourceColumns, static_cast<int>(nIF));
            if (t && t->nRows > 0) firstSourceId = static_cast<int>(t->GetDouble(0, kSUId));
            haveSU = t != nullptr;
            sources = t.get();
        } else if (ext == "AIPS FQ") {
            if (haveFQ) continue;
            t = AFitsTables::ReadFrequencies(fits, kAipsFrequencyColumns, static_cast<int>(nIF));
            if (t && t->nRows > 0) {
                firstFreqSel = static_cast<int>(t->GetDouble(0, kFQFrqSel));
                header.totalBandwidth = t->GetDouble(0, kFQTotalBandwidth, 0);
                header.sideband = t->GetDouble(0, kFQSideband, 0) < 0 ? -1 : 1;
            }
            haveFQ = t != nullptr;
        } else if (ext == "AIPS NX") {
            const int cTime = fits.ColumnNumber("TIME"), cDt = fits.ColumnNumber("TIME INTERVAL");
            const int cSrc = fits.ColumnNumber("SOURCE ID");
            if (cTime == 0 || cDt == 0 || cSrc == 0)
                return fail(path + ": table AIPS NX lacks TIME, TIME INTERVAL or SOURCE ID");
            const long long rows = fits.RowCount();
            std::vector<double> time, dt, src;
            if (rows < 0 || !fits.ReadColumn(cTime, 1, rows, time) || !fits.ReadColumn(cDt, 1, rows, dt) ||
                !fits.ReadColumn(cSrc, 1, rows, src))
                return fail(fits.m_err);
            t = std::make_unique<AUVXTable>();
            CreateTable(*t, kLayoutSL, static_cast<int>(nIF));
            t->SetKeyword(kKeyRefDay, static_cast<std::int64_t>(std::lround(refJD - 2400000.5)));
            for (long long r = 0; r < rows; ++r) {
                const int row = t->AddRow();
                // NX times are days from 0h of the reference day, centred on the scan.
                t->SetDouble(row, kSLStart, (time[r] - 0.5 * dt[r]) * 86400.0);
                t->SetDouble(row, kSLEnd, (time[r] + 0.5 * dt[r]) * 86400.0);
                t->SetDouble(row, kSLSourceId, src[r]);
            }
        } else if (startsWith(ext, "UVX ")) {
            t = AFitsTables::ReadGeneric(fits, ext.substr(4));
        } else {
            continue;
        }
        if (!t) return fail(fits.m_err);
        tables.push_back(std::move(t));
    }
    if (!haveAN) return fail(path + ": no AIPS AN table (the stations)");
    m_handedness = handDeclared ? "declared by XYZHAND" : "";
    if (!handDeclared) {
        // Without XYZHAND the records decide: their u v w follow from one reading of the positions.
        std::vector<AFitsUvwSample> samples;
        for (long long k = 0; k < firstCount && samples.size() < 400; ++k) {
            const unsigned char* g = buffer.data() + k * groupBytes;
            int a1, a2;
            if (roles.baseline >= 0) {
                const AFitsBaseline b = AFitsDecodeBaseline(
                    param(g, roles.baseline) * params[roles.baseline].scale + params[roles.baseline].zero);
                a1 = b.ant1, a2 = b.ant2;
            } else {
                a1 = static_cast<int>(
                    std::lround(param(g, roles.ant1) * params[roles.ant1].scale + params[roles.ant1].zero));
                a2 = static_cast<int>(
                    std::lround(param(g, roles.ant2) * params[roles.ant2].scale + params[roles.ant2].zero));
            }
            int r1 = -1, r2 = -1;
            for (int r = 0; r < stations->nRows; ++r) {
                const int id = static_cast<int>(stations->GetDouble(r, kANNoSta));
                if (id == a1) r1 = r;
                if (id == a2) r2 = r;
            }
            if (a1 == a2 || r1 < 0 || r2 < 0) continue;
            AFitsUvwSample sample;
            sample.ra = header.objRA;
            sample.dec = header.objDec;
            if (sources != nullptr && roles.source >= 0) {
                const long id = std::lround(param(g, roles.source) * params[roles.source].scale +
                                            params[roles.source].zero);
                for (int r = 0; r < sources->nRows; ++r)
                    if (static_cast<long>(sources->GetDouble(r, kSUId)) == id) {
                        sample.ra = sources->GetDouble(r, kSURaEpo);
                        sample.dec = sources->GetDouble(r, kSUDecEpo);
                    }
            }
            double days = dateZero - refJD;
            for (int d : roles.dates) days += param(g, d) * params[d].scale;
            sample.jd = refJD + days;
            sample.u = param(g, roles.u) * params[roles.u].scale + params[roles.u].zero;
            sample.v = param(g, roles.v) * params[roles.v].scale + params[roles.v].zero;
            sample.w = param(g, roles.w) * params[roles.w].scale + params[roles.w].zero;
            for (int c = 0; c < 3; ++c)
                sample.b[c] = stations->GetDouble(r2, kANStabXyz, c) - stations->GetDouble(r1, kANStabXyz, c);
            samples.push_back(sample);
        }
        double right = 0, left = 0;
        AFitsHandednessResiduals(samples.data(), static_cast<int>(samples.size()), right, left);
        char text[160];
        // Only a clear verdict turns the positions; otherwise they stay right-handed as ITRF is.
        if (!samples.empty() && left < 0.5 * right) {
            for (int r = 0; r < stations->nRows; ++r)
                stations->SetDouble(r, kANStabXyz, -stations->GetDouble(r, kANStabXyz, 1), 1);
            std::snprintf(text, sizeof text,
                          "no XYZHAND; left-handed by %d records' u v w (rms %.3g s against %.3g s)",
                          static_cast<int>(samples.size()), left, right);
        } else {
            std::snprintf(text, sizeof text,
                          "no XYZHAND; right-handed by %d records' u v w (rms %.3g s against %.3g s)",
                          static_cast<int>(samples.size()), right, left);
        }
        m_handedness = text;
    }
    if (!haveSU) {
        // A single-source file: its one source comes from OBJECT and the pointing.
        auto su = std::make_unique<AUVXTable>();
        CreateTable(*su, kLayoutSU, static_cast<int>(nIF));
        const int row = su->AddRow();
        su->SetDouble(row, kSUId, 1);
        su->SetText(row, kSUSource, object.c_str());
        su->SetDouble(row, kSURaEpo, header.objRA);
        su->SetDouble(row, kSUDecEpo, header.objDec);
        tables.push_back(std::move(su));
        firstSourceId = 1;
    }
    if (!haveFQ) {
        // Without a frequency table the IF bands are taken to follow each other without gaps.
        auto fq = std::make_unique<AUVXTable>();
        CreateTable(*fq, kLayoutFQ, static_cast<int>(nIF));
        const int row = fq->AddRow();
        fq->SetDouble(row, kFQFrqSel, 1);
        for (int i = 0; i < nIF; ++i) {
            fq->SetDouble(row, kFQIfFreq, i * header.totalBandwidth * header.sideband, i);
            fq->SetDouble(row, kFQChWidth, header.chanWidth, i);
            fq->SetDouble(row, kFQTotalBandwidth, header.totalBandwidth, i);
            fq->SetDouble(row, kFQSideband, header.sideband, i);
        }
        tables.push_back(std::move(fq));
    }
    if (object.empty()) AUVXHeader::SetText(header.object, sizeof header.object, haveSU ? "MULTI" : "");

    // --- Records, back in the primary HDU that the table search left.
    if (!fits.MoveTo(1)) return fail(fits.m_err);
    AFitsUVXOutput output;
    if (!output.Open(out, header)) return fail(output.m_err);
    std::vector<AUVXComplex> elements(static_cast<std::size_t>(elemPerRecord));
    const double dayShift = dateZero - refJD;
    for (long long first = 0; first < gcount; first += chunkGroups) {
        const long long count = std::min(chunkGroups, gcount - first);
        if (first > 0 && !readChunk(first, count)) return fail(fits.m_err);
        for (long long k = 0; k < count; ++k) {
            const unsigned char* g = buffer.data() + k * groupBytes;
            const long long index = first + k;
            AUVXGroup group;
            std::memset(&group, 0, sizeof group);
            group.u = static_cast<float>(param(g, roles.u) * params[roles.u].scale + params[roles.u].zero);
            group.v = static_cast<float>(param(g, roles.v) * params[roles.v].scale + params[roles.v].zero);
            group.w = static_cast<float>(param(g, roles.w) * params[roles.w].scale + params[roles.w].zero);
            // The large Julian-date offsets cancel before the small parts are added, so the time keeps
            // the precision the file gives it.
            double days = dayShift;
            for (int d : roles.dates) days += param(g, d) * params[d].scale;
            group.time = days * 86400.0;
            int a1, a2, sub = 1;
            if (roles.baseline >= 0) {
                const AFitsBaseline b = AFitsDecodeBaseline(
                    param(g, roles.baseline) * params[roles.baseline].scale + params[roles.baseline].zero);
                a1 = b.ant1, a2 = b.ant2, sub = b.subarray;
            } else {
                a1 = static_cast<int>(
                    std::lround(param(g, roles.ant1) * params[roles.ant1].scale + params[roles.ant1].zero));
                a2 = static_cast<int>(
                    std::lround(param(g, roles.ant2) * params[roles.ant2].scale + params[roles.ant2].zero));
                if (roles.subarray >= 0)
                    sub =
                        static_cast<int>(std::lround(param(g, roles.subarray) * params[roles.subarray].scale +
                                                     params[roles.subarray].zero));
            }
            const std::string where = path + ": group " + std::to_string(index + 1);
            if (a1 < 1 || a1 > 64 || a2 < 1 || a2 > 64)
                return fail(where + ": antenna numbers " + std::to_string(a1) + "-" + std::to_string(a2) +
                            " outside 1..64");
            if (sub != 1)
                return fail(where + ": subarray " + std::to_string(sub) +
                            "; only subarray 1 can be converted");
            group.ant1 = static_cast<std::int8_t>(a1);
            group.ant2 = static_cast<std::int8_t>(a2);
            long source = firstSourceId;
            if (haveSU && roles.source >= 0)
                source = std::lround(param(g, roles.source) * params[roles.source].scale +
                                     params[roles.source].zero);
            long freqSel = firstFreqSel;
            if (roles.freqSel >= 0)
                freqSel = std::lround(param(g, roles.freqSel) * params[roles.freqSel].scale +
                                      params[roles.freqSel].zero);
            if (source < -32768 || source > 32767)
                return fail(where + ": source ID " + std::to_string(source) + " outside the UVX range");
            if (freqSel < -128 || freqSel > 127)
                return fail(where + ": FREQSEL " + std::to_string(freqSel) + " outside the UVX range");
            group.sourceId = static_cast<std::int16_t>(source);
            group.freqId = static_cast<std::int8_t>(freqSel);

            const unsigned char* data = g + pcount * bytesPerValue;
            if (direct) {
                for (long long e = 0; e < 3 * elemPerRecord; ++e) {
                    const std::uint32_t x = load32(data + 4 * e);
                    std::memcpy(reinterpret_cast<unsigned char*>(elements.data()) + 4 * e, &x, 4);
                }
            } else {
                AUVXComplex* out = elements.data();
                for (long long i = 0; i < nIF; ++i)
                    for (long long c = 0; c < nChan; ++c)
                        for (long long s = 0; s < nStokes; ++s, ++out) {
                            const long long at = i * sI + c * sF + s * sS;
                            double re = rawValue(data, at, static_cast<int>(bitpix));
                            double im = rawValue(data, at + sC, static_cast<int>(bitpix));
                            double wt =
                                nCplx == 3 ? rawValue(data, at + 2 * sC, static_cast<int>(bitpix)) : 1.0;
                            if (scaled) {
                                re = re * bscale + bzero;
                                im = im * bscale + bzero;
                                if (nCplx == 3) wt = wt * bscale + bzero;
                            }
                            out->re = static_cast<float>(re);
                            out->im = static_cast<float>(im);
                            out->wt = static_cast<float>(wt);
                        }
            }
            // A NaN is flagged and set to 0, never dropped: the element stays, with a weight not above 0.
            for (AUVXComplex& e : elements) {
                if (std::isnan(e.re) || std::isnan(e.im) || std::isnan(e.wt)) {
                    e.wt = std::isnan(e.wt) || e.wt == 0.0f ? 0.0f : -std::fabs(e.wt);
                    if (std::isnan(e.re)) e.re = 0.0f;
                    if (std::isnan(e.im)) e.im = 0.0f;
                    ++m_nanFlagged;
                }
            }
            if (!output.Write(group, elements.data())) return fail(output.m_err);
        }
    }
    if (!output.Finish(tables)) return fail(output.m_err);
    m_records = output.Records();
    return true;
}
