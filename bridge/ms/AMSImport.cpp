// AMSImport: reads a Measurement Set into a new UVX file.
#include "AMSImport.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <numeric>
#include <tuple>
#include <vector>

#include <casacore/casa/Arrays/Array.h>
#include <casacore/casa/Arrays/ArrayMath.h>
#include <casacore/casa/Arrays/Matrix.h>
#include <casacore/casa/Arrays/Vector.h>
#include <casacore/measures/Measures/MDirection.h>
#include <casacore/ms/MeasurementSets/MSColumns.h>
#include <casacore/ms/MeasurementSets/MeasurementSet.h>
#include <casacore/tables/Tables/TableRecord.h>

#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/UVXTableLayouts.h>

#include "AMSExtraTables.h"
#include "MSConventions.h"

using namespace casacore;

namespace {

constexpr double kDegree = M_PI / 180.0;

// One UVX record: the rows of its IF bands (-1 where the Measurement Set has none).
struct ARecordRows {
    double time;
    int ant1, ant2, field, group;
    std::vector<std::int64_t> rows;
};

bool Fail(CString& error, const std::string& msPath, const std::string& text) {
    error = CString((msPath + ": " + text).c_str());
    return false;
}

// The reference day of an extra "SL" table's REFDAY keyword, if there is one.
bool ExtraRefDay(const std::vector<std::unique_ptr<AUVXTable>>& extras, long& refDay) {
    for (const auto& t : extras) {
        double day = 0;
        if (t->GetName() == "SL" && t->GetKeyword(kKeyRefDay, day)) {
            refDay = static_cast<long>(day);
            return true;
        }
    }
    return false;
}

}  // namespace

bool AMSImport::Read(const std::string& msPath, AUVXFile& out, CString& error) {
    const MeasurementSet ms(msPath, Table::Old);
    const MSColumns cols(ms);
    if (!ms.tableDesc().isColumn("DATA")) return Fail(error, msPath, "has no DATA column");
    const rownr_t nRows = ms.nrow();
    if (nRows == 0) return Fail(error, msPath, "has no rows in MAIN");
    if (nRows > static_cast<rownr_t>(1) << 40) return Fail(error, msPath, "has more rows than UVX can hold");

    const Vector<Double> times = cols.time().getColumn();
    const Vector<Double> intervals = cols.interval().getColumn();
    const Vector<Int> ant1 = cols.antenna1().getColumn();
    const Vector<Int> ant2 = cols.antenna2().getColumn();
    const Vector<Int> ddIds = cols.dataDescId().getColumn();
    const Vector<Int> fieldIds = cols.fieldId().getColumn();
    const Vector<Int> scanNumbers = cols.scanNumber().getColumn();
    const Vector<Bool> flagRows = cols.flagRow().getColumn();
    const Matrix<Double> uvws = cols.uvw().getColumn();

    // Data descriptions in use, in ascending order: their products must agree, and their spectral
    // windows fall into frequency groups (UVX setups), each an IF band per window in order.
    const int nDD = static_cast<int>(ms.dataDescription().nrow());
    std::vector<bool> ddUsed(nDD, false);
    for (rownr_t r = 0; r < nRows; ++r) {
        if (ddIds[r] < 0 || ddIds[r] >= nDD)
            return Fail(error, msPath,
                        "row " + std::to_string(r) + " has DATA_DESC_ID " + std::to_string(ddIds[r]) +
                            ", which DATA_DESCRIPTION lacks");
        ddUsed[ddIds[r]] = true;
    }
    const MSDataDescColumns& dd = cols.dataDescription();
    const MSSpWindowColumns& spw = cols.spectralWindow();
    const MSPolarizationColumns& pol = cols.polarization();
    const int nSpw = static_cast<int>(ms.spectralWindow().nrow());
    const int nPol = static_cast<int>(ms.polarization().nrow());
    Vector<Int> corrTypes;
    int nChan = -1, firstSpw = -1;
    std::vector<int> groupValues;          // FREQ_GROUP of each group, in order of appearance
    std::vector<std::vector<int>> groups;  // spectral windows of each group
    std::vector<int> ddGroup(nDD, -1), ddIF(nDD, -1);
    for (int d = 0; d < nDD; ++d) {
        if (!ddUsed[d]) continue;
        const int s = dd.spectralWindowId()(d), p = dd.polarizationId()(d);
        if (s < 0 || s >= nSpw || p < 0 || p >= nPol)
            return Fail(error, msPath,
                        "data description " + std::to_string(d) +
                            " names a spectral window or polarisation that is missing");
        const Vector<Int> types = pol.corrType()(p);
        if (corrTypes.empty()) {
            corrTypes.resize(types.size());
            corrTypes = types;
        } else if (types.size() != corrTypes.size() || !allEQ(types, corrTypes)) {
            return Fail(error, msPath,
                        "data descriptions with different correlation products: UVX holds one set of "
                        "products for every IF band");
        }
        const int chans = spw.numChan()(s);
        if (nChan < 0) {
            nChan = chans;
            firstSpw = s;
        } else if (chans != nChan) {
            return Fail(error, msPath,
                        "spectral windows of different channel counts (" + std::to_string(nChan) + " and " +
                            std::to_string(chans) + "): UVX holds one count for every IF band");
        }
        const int value = spw.freqGroup()(s);
        auto it = std::find(groupValues.begin(), groupValues.end(), value);
        if (it == groupValues.end()) {
            groupValues.push_back(value);
            groups.emplace_back();
            it = groupValues.end() - 1;
        }
        const int g = static_cast<int>(it - groupValues.begin());
        ddGroup[d] = g;
        ddIF[d] = static_cast<int>(groups[g].size());
        groups[g].push_back(s);
    }
    const int nCorr = static_cast<int>(corrTypes.size());
    if (nCorr < 1 || nCorr > kMSMaxProducts)
        return Fail(error, msPath, std::to_string(nCorr) + " correlation products: UVX holds 1 to 8");
    if (nChan < 1) return Fail(error, msPath, "spectral windows without channels");
    const int nIF = static_cast<int>(groups[0].size());
    for (const auto& g : groups)
        if (static_cast<int>(g.size()) != nIF)
            return Fail(error, msPath,
                        "frequency groups of different numbers of spectral windows (" + std::to_string(nIF) +
                            " and " + std::to_string(g.size()) +
                            "): UVX holds one number of IF bands for every setup");
    if (nIF > 32767) return Fail(error, msPath, "more than 32767 spectral windows in a frequency group");
    if (groups.size() > 127) return Fail(error, msPath, "more than 127 frequency groups");
    // FRQSEL numbers: the groups' own where they fit a record's byte, else 1.. in order.
    std::vector<int> freqSel(groups.size());
    bool groupNumbersFit = true;
    for (int v : groupValues) groupNumbersFit = groupNumbersFit && v >= 1 && v <= 127;
    for (std::size_t g = 0; g < groups.size(); ++g)
        freqSel[g] = groupNumbersFit ? groupValues[g] : static_cast<int>(g) + 1;
    std::int16_t products[kMSMaxProducts] = {};
    for (int p = 0; p < nCorr; ++p) {
        products[p] = static_cast<std::int16_t>(MSProductOfCorrType(corrTypes[p]));
        if (products[p] == 0)
            return Fail(error, msPath,
                        "correlation type " + std::to_string(corrTypes[p]) +
                            " has no UVX product code (RR LL RL LR XX YY XY YX have)");
    }

    // Antennas: telescope ID = row + 1, so no more rows than UVX numbers may be used.
    const int nAnt = static_cast<int>(ms.antenna().nrow());
    for (rownr_t r = 0; r < nRows; ++r) {
        const int hi = std::max(ant1[r], ant2[r]), lo = std::min(ant1[r], ant2[r]);
        if (lo < 0 || hi >= nAnt)
            return Fail(error, msPath,
                        "row " + std::to_string(r) + " names antenna " + std::to_string(hi) +
                            ", which ANTENNA lacks");
        if (hi >= kMSMaxAntennas)
            return Fail(error, msPath, "antenna " + std::to_string(hi) + " in use: UVX numbers 64 stations");
    }

    // Fields: source ID = SOURCE_ID where those are distinct and fit, else row + 1.
    const MSFieldColumns& fld = cols.field();
    const int nField = static_cast<int>(ms.field().nrow());
    for (rownr_t r = 0; r < nRows; ++r)
        if (fieldIds[r] < 0 || fieldIds[r] >= nField)
            return Fail(error, msPath,
                        "row " + std::to_string(r) + " has FIELD_ID " + std::to_string(fieldIds[r]) +
                            ", which FIELD lacks");
    std::vector<int> sourceIds(nField);
    bool idsFit = true;
    for (int f = 0; f < nField; ++f) {
        sourceIds[f] = fld.sourceId()(f);
        idsFit = idsFit && sourceIds[f] >= 1 && sourceIds[f] <= 32767;
        for (int g = 0; g < f; ++g) idsFit = idsFit && sourceIds[g] != sourceIds[f];
    }
    if (!idsFit) std::iota(sourceIds.begin(), sourceIds.end(), 1);
    std::string frameName = "J2000";
    {
        const TableRecord& measInfo = ms.field().tableDesc().columnDesc("PHASE_DIR").keywordSet();
        if (measInfo.isDefined("MEASINFO")) {
            const TableRecord info = measInfo.asRecord("MEASINFO");
            if (info.isDefined("Ref")) frameName = info.asString("Ref");
        }
    }
    if (frameName != "J2000" && frameName != "B1950")
        return Fail(error, msPath, "field directions in frame " + frameName + ": UVX holds J2000 or B1950");

    std::vector<std::unique_ptr<AUVXTable>> extras;
    if (!AMSExtraTables::ReadAll(ms, extras, error)) {
        error = CString(msPath.c_str()) + ": " + error;
        return false;
    }

    // The reference day: that of the scan list that travelled along, else the day of the first time.
    long refDay = 0;
    if (!ExtraRefDay(extras, refDay)) refDay = static_cast<long>(std::floor(min(times) / kMSSecondsPerDay));
    const double refDaySeconds = static_cast<double>(refDay) * kMSSecondsPerDay;

    // Records: rows of one time, baseline, field and frequency group, ordered by time and, within a
    // time, as they first appear.
    std::vector<ARecordRows> records;
    std::map<std::tuple<double, int, int, int, int>, std::size_t> index;
    for (rownr_t r = 0; r < nRows; ++r) {
        const int d = ddIds[r];
        const auto key = std::make_tuple(times[r], ant1[r], ant2[r], fieldIds[r], ddGroup[d]);
        auto it = index.find(key);
        if (it == index.end()) {
            it = index.emplace(key, records.size()).first;
            records.push_back(
                {times[r], ant1[r], ant2[r], fieldIds[r], ddGroup[d], std::vector<std::int64_t>(nIF, -1)});
        }
        std::int64_t& slot = records[it->second].rows[ddIF[d]];
        if (slot >= 0)
            return Fail(error, msPath,
                        "rows " + std::to_string(slot) + " and " + std::to_string(r) +
                            " hold the same time, baseline, field and spectral window");
        slot = static_cast<std::int64_t>(r);
    }
    if (records.size() > 2147483647u) return Fail(error, msPath, "more records than UVX can hold");
    std::stable_sort(records.begin(), records.end(),
                     [](const ARecordRows& a, const ARecordRows& b) { return a.time < b.time; });

    // Header.
    AUVXHeader header;
    header.refJD = static_cast<double>(refDay) + kMSJulianToMJD;
    AUVXHeader::SetText(header.dateObs, sizeof header.dateObs, MSDateOfMJD(refDay).c_str());
    const String firstName = fld.name()(0);
    AUVXHeader::SetText(header.object, sizeof header.object, nField > 1 ? "MULTI" : firstName.c_str());
    if (ms.observation().nrow() > 0) {
        AUVXHeader::SetText(header.telescope, sizeof header.telescope,
                            cols.observation().telescopeName()(0).c_str());
        AUVXHeader::SetText(header.observer, sizeof header.observer,
                            cols.observation().observer()(0).c_str());
    }
    if (ms.processor().nrow() > 0)
        AUVXHeader::SetText(header.instrument, sizeof header.instrument,
                            cols.processor().subType()(0).c_str());
    AUVXHeader::SetText(header.origin, sizeof header.origin, "merovane MS import");
    const Vector<Double> firstFreq = spw.chanFreq()(firstSpw);
    const Vector<Double> firstWidth = spw.chanWidth()(firstSpw);
    header.refFreq = firstFreq[0];
    header.chanWidth = firstWidth[0];
    header.totalBandwidth = spw.totalBandwidth()(firstSpw);
    header.equinox = frameName == "B1950" ? 1950.0 : 2000.0;
    header.intTime = static_cast<float>(intervals[0]);
    header.refChan = 1;
    header.sideband = spw.netSideband()(firstSpw) < 0 ? -1 : 1;
    const Matrix<Double> firstDir = fld.phaseDir()(0);
    header.objRA = firstDir(0, 0) / kDegree;
    header.objDec = firstDir(1, 0) / kDegree;
    header.nStokes = static_cast<std::int16_t>(nCorr);
    for (int p = 0; p < nCorr; ++p) header.stokes[p] = products[p];
    header.nIF = nIF;
    header.nChan = nChan;

    // Records through the writer.
    AUVXRecordWriter writer;
    if (!writer.Open(out, header)) return Fail(error, msPath, writer.m_errMsg.GetString());
    const bool haveSpectrum = ms.tableDesc().isColumn("WEIGHT_SPECTRUM");
    const IPosition shape(2, nCorr, nChan);
    AUVXVisibility vis(nIF, nChan, nCorr);
    AUVXGroup group;
    for (const ARecordRows& rec : records) {
        std::memset(&group, 0, sizeof group);
        std::int64_t first = -1;
        for (int iIF = 0; iIF < nIF; ++iIF) {
            const std::int64_t r = rec.rows[iIF];
            if (r < 0) {
                // A band the Measurement Set lacks for this record: flagged zeros.
                for (int k = 0; k < nChan; ++k)
                    for (int p = 0; p < nCorr; ++p) vis.At(iIF, k, p) = AUVXComplex{0.0f, 0.0f, 0.0f};
                continue;
            }
            if (first < 0) first = r;
            const Array<Complex> data = cols.data()(r);
            const Array<Bool> flag = cols.flag()(r);
            if (data.shape() != shape || flag.shape() != shape)
                return Fail(error, msPath,
                            "row " + std::to_string(r) + " holds DATA or FLAG of shape " +
                                data.shape().toString() + ", not " + shape.toString());
            Array<Float> weights;
            const bool spectrum = haveSpectrum && cols.weightSpectrum().isDefined(r);
            if (spectrum) {
                weights.reference(cols.weightSpectrum()(r));
                if (weights.shape() != shape)
                    return Fail(error, msPath,
                                "row " + std::to_string(r) + " holds WEIGHT_SPECTRUM of another shape");
            }
            const Vector<Float> weight = cols.weight()(r);
            if (!spectrum && static_cast<int>(weight.size()) != nCorr)
                return Fail(error, msPath, "row " + std::to_string(r) + " holds WEIGHT of another length");
            const bool rowFlag = flagRows[r];
            if (rowFlag) group.flags = 1;
            for (int k = 0; k < nChan; ++k)
                for (int p = 0; p < nCorr; ++p) {
                    const IPosition at(2, p, k);
                    const float w = std::fabs(spectrum ? weights(at) : weight[p]);
                    const bool flagged = rowFlag || flag(at);
                    vis.At(iIF, k, p) =
                        AUVXComplex{data(at).real(), data(at).imag(), flagged ? (w == 0 ? 0.0f : -w) : w};
                }
        }
        group.freqId = static_cast<std::int8_t>(freqSel[rec.group]);
        group.sourceId = static_cast<std::int16_t>(sourceIds[rec.field]);
        group.u = static_cast<float>(uvws(0, first) / kMSLightSpeed);
        group.v = static_cast<float>(uvws(1, first) / kMSLightSpeed);
        group.w = static_cast<float>(uvws(2, first) / kMSLightSpeed);
        group.time = rec.time - refDaySeconds;
        group.ant1 = static_cast<std::int8_t>(rec.ant1 + 1);
        group.ant2 = static_cast<std::int8_t>(rec.ant2 + 1);
        if (!writer.Write(group, vis)) return Fail(error, msPath, writer.m_errMsg.GetString());
    }
    if (!writer.Finish()) return Fail(error, msPath, writer.m_errMsg.GetString());

    // AN: the named or unflagged ANTENNA rows, NOSTA = row + 1, positions right-handed.
    AUVXTable an;
    CreateTable(an, kLayoutAN, nIF);
    an.SetKeyword(kKeyXyzHand, "RIGHT");
    const MSAntennaColumns& ant = cols.antenna();
    for (int a = 0; a < std::min(nAnt, kMSMaxAntennas); ++a) {
        const String name = ant.name()(a);
        if (ant.flagRow()(a) && name.empty()) continue;
        const Vector<Double> pos = ant.position()(a);
        const int row = an.AddRow();
        an.SetText(row, kANName, name.c_str());
        for (int e = 0; e < 3; ++e) an.SetDouble(row, kANStabXyz, pos[e], e);
        an.SetDouble(row, kANNoSta, a + 1);
    }

    // SU: one source per field.
    AUVXTable su;
    CreateTable(su, kLayoutSU, nIF);
    for (int f = 0; f < nField; ++f) {
        const Matrix<Double> dir = fld.phaseDir()(f);
        const int row = su.AddRow();
        su.SetDouble(row, kSUId, sourceIds[f]);
        su.SetText(row, kSUSource, fld.name()(f).c_str());
        su.SetDouble(row, kSURaEpo, dir(0, 0) / kDegree);
        su.SetDouble(row, kSUDecEpo, dir(1, 0) / kDegree);
    }

    // FQ: one setup per frequency group, IF starts as offsets from the header's reference frequency.
    AUVXTable fq;
    CreateTable(fq, kLayoutFQ, nIF);
    for (std::size_t g = 0; g < groups.size(); ++g) {
        const int row = fq.AddRow();
        fq.SetDouble(row, kFQFrqSel, freqSel[g]);
        for (int iIF = 0; iIF < nIF; ++iIF) {
            const int s = groups[g][iIF];
            const Vector<Double> freq = spw.chanFreq()(s);
            const Vector<Double> width = spw.chanWidth()(s);
            fq.SetDouble(row, kFQIfFreq, freq[0] - header.refFreq, iIF);
            fq.SetDouble(row, kFQChWidth, width[0], iIF);
            fq.SetDouble(row, kFQTotalBandwidth, spw.totalBandwidth()(s), iIF);
            fq.SetDouble(row, kFQSideband, spw.netSideband()(s) < 0 ? -1 : 1, iIF);
        }
    }

    if (!out.AddTable(an) || !out.AddTable(su) || !out.AddTable(fq))
        return Fail(error, msPath, out.m_errMsg.GetString());

    // SL: the one that travelled along, else one row per scan number from the rows' times.
    bool haveScanList = false;
    for (const auto& t : extras) haveScanList = haveScanList || t->GetName() == "SL";
    if (!haveScanList) {
        std::map<int, std::tuple<double, double, int>> scans;
        for (rownr_t r = 0; r < nRows; ++r) {
            if (scanNumbers[r] < 1) continue;
            const double start = times[r] - 0.5 * intervals[r] - refDaySeconds;
            const double end = times[r] + 0.5 * intervals[r] - refDaySeconds;
            auto it = scans.find(scanNumbers[r]);
            if (it == scans.end())
                scans.emplace(scanNumbers[r], std::make_tuple(start, end, sourceIds[fieldIds[r]]));
            else {
                std::get<0>(it->second) = std::min(std::get<0>(it->second), start);
                std::get<1>(it->second) = std::max(std::get<1>(it->second), end);
            }
        }
        if (!scans.empty()) {
            AUVXTable sl;
            CreateTable(sl, kLayoutSL, nIF);
            sl.SetKeyword(kKeyRefDay, static_cast<std::int64_t>(refDay));
            for (const auto& s : scans) {
                const int row = sl.AddRow();
                sl.SetDouble(row, kSLStart, std::get<0>(s.second));
                sl.SetDouble(row, kSLEnd, std::get<1>(s.second));
                sl.SetDouble(row, kSLSourceId, std::get<2>(s.second));
            }
            if (!out.AddTable(sl)) return Fail(error, msPath, out.m_errMsg.GetString());
        }
    }
    for (auto& t : extras)
        if (!out.AddTable(*t)) return Fail(error, msPath, out.m_errMsg.GetString());
    return true;
}
