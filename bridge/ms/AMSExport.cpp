// AMSExport: writes an open UVX file as a Measurement Set.
#include "AMSExport.h"

#include <cmath>
#include <memory>
#include <vector>

#include <casacore/casa/Arrays/Array.h>
#include <casacore/casa/Arrays/Matrix.h>
#include <casacore/casa/Arrays/Vector.h>
#include <casacore/measures/Measures/MDirection.h>
#include <casacore/ms/MeasurementSets/MSColumns.h>
#include <casacore/ms/MeasurementSets/MeasurementSet.h>
#include <casacore/tables/Tables/SetupNewTab.h>
#include <casacore/tables/Tables/TableDesc.h>

#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXFqTbl.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/AUVXSkanList.h>
#include <merovane/uvx/AUVXSources.h>

#include "AMSExtraTables.h"
#include "MSConventions.h"

using namespace casacore;

namespace {

constexpr double kDegree = M_PI / 180.0;

// One frequency setup as the spectral windows need it: per IF the start, width, bandwidth, sideband.
struct ASetup {
    int freqSel;
    std::vector<double> start, width, bandwidth;
    std::vector<int> sideband;
};

bool Fail(CString& error, const char* uvxName, const std::string& text) {
    error = CString(uvxName) + ": " + CString(text.c_str());
    return false;
}

// Reads every table of the file in file order; the stream is moved, so this comes before the records.
bool ReadTables(AUVXFile& in, const char* uvxName, std::vector<std::unique_ptr<AUVXTable>>& tables,
                CString& error) {
    const AArray<std::int64_t>& positions = in.TablePositions();
    for (int i = 0; i < positions.count; ++i) {
        if (!in.Seek(positions[i]))
            return Fail(error, uvxName, "cannot reach its table " + std::to_string(i + 1));
        auto table = std::make_unique<AUVXTable>(*in.file);
        if (!table->IsValid())
            return Fail(error, uvxName,
                        "table " + std::to_string(i + 1) + ": " + table->m_errMsg.GetString());
        tables.push_back(std::move(table));
    }
    return true;
}

AUVXTable* FindTable(std::vector<std::unique_ptr<AUVXTable>>& tables, const char* name) {
    for (auto& t : tables)
        if (t->GetName() == name) return t.get();
    return nullptr;
}

Vector<Double> Direction(double raDeg, double decDeg) {
    Vector<Double> dir(2);
    dir[0] = raDeg * kDegree;
    dir[1] = decDeg * kDegree;
    return dir;
}

}  // namespace

bool AMSExport::Write(AUVXFile& in, const char* uvxName, const std::string& msPath, CString& error) {
    const AUVXHeader header = in.GetHeader();
    const int nIF = header.nIF > 1 ? header.nIF : 1;
    const int nChan = header.nChan;
    const int nCorr = header.nStokes;
    std::vector<int> corrTypes(nCorr);
    bool linear = false;
    for (int p = 0; p < nCorr; ++p) {
        corrTypes[p] = MSCorrTypeOfProduct(header.stokes[p]);
        if (corrTypes[p] == 0)
            return Fail(error, uvxName,
                        "product code " + std::to_string(header.stokes[p]) +
                            " has no Measurement Set correlation type (only RR LL RL LR XX YY XY YX do)");
        linear = linear || MSIsLinearProduct(header.stokes[p]);
    }

    std::vector<std::unique_ptr<AUVXTable>> tables;
    if (!ReadTables(in, uvxName, tables, error)) return false;
    AUVXTable* anTable = FindTable(tables, "AN");
    AUVXAntenns antennas;
    if (anTable == nullptr)
        return Fail(error, uvxName, "no AN table: the Measurement Set needs the stations");
    if (!antennas.Init(*anTable)) return Fail(error, uvxName, "the AN table lacks ANNAME, STABXYZ or NOSTA");
    int antennaRows = 0;
    for (int i = 0; i < antennas.count; ++i) {
        const int id = antennas[i].id;
        if (id < 1 || id > kMSMaxAntennas)
            return Fail(error, uvxName,
                        "the AN table holds telescope ID " + std::to_string(id) + " outside 1..64");
        antennaRows = std::max(antennaRows, id);
    }

    AUVXSources sources;
    AUVXTable* suTable = FindTable(tables, "SU");
    if (suTable != nullptr && !sources.Init(*suTable))
        return Fail(error, uvxName, "the SU table lacks ID. NO., SOURCE, RAEPO or DECEPO");
    const bool haveSources = suTable != nullptr;

    std::vector<ASetup> setups;
    AUVXFqTbl fq;
    if (FindTable(tables, "FQ") != nullptr) {
        if (!fq.Init(in)) return Fail(error, uvxName, "the FQ table lacks a column");
        for (const AUVXFqTbl::Row& row : fq.rows) {
            if (static_cast<int>(row.ifFreq.size()) != nIF)
                return Fail(error, uvxName,
                            "the FQ table holds " + std::to_string(row.ifFreq.size()) + " IFs, the header " +
                                std::to_string(nIF));
            ASetup s{row.freqSel, {}, row.chWidth, row.bandwidth, row.sideband};
            for (double offset : row.ifFreq) s.start.push_back(header.refFreq + offset);
            setups.push_back(s);
        }
    }
    if (setups.empty()) {
        // Without an FQ table every IF starts at the reference frequency, as the lookups read it.
        ASetup s{1, std::vector<double>(nIF, header.refFreq), std::vector<double>(nIF, header.chanWidth),
                 std::vector<double>(nIF, header.totalBandwidth), std::vector<int>(nIF, header.sideband)};
        setups.push_back(s);
    }

    AUVXSkanList scans;
    AUVXTable* slTable = FindTable(tables, "SL");
    if (slTable != nullptr && !scans.Create(*slTable))
        return Fail(error, uvxName, "the SL table lacks START or END");

    // MAIN with the required columns, DATA and WEIGHT_SPECTRUM; the required subtables and SOURCE.
    TableDesc desc = MS::requiredTableDesc();
    MS::addColumnToDesc(desc, MS::DATA, 2);
    MS::addColumnToDesc(desc, MS::WEIGHT_SPECTRUM, 2);
    SetupNewTable setup(msPath, desc, Table::New);
    MeasurementSet ms(setup, 0);
    ms.createDefaultSubtables(Table::New);
    {
        SetupNewTable sourceSetup(ms.sourceTableName(), MSSource::requiredTableDesc(), Table::New);
        ms.rwKeywordSet().defineTable(MS::keywordName(MS::SOURCE), Table(sourceSetup));
    }
    ms.initRefs();
    MSColumns cols(ms);

    const double refDaySeconds = (header.refJD - kMSJulianToMJD) * kMSSecondsPerDay;
    const double intTime = header.intTime;
    const MDirection::Types frame = header.equinox == 1950.0 ? MDirection::B1950 : MDirection::J2000;

    // Records: one MAIN row per record and IF.
    AUVXRecordReader reader;
    if (!reader.Open(in)) return Fail(error, uvxName, reader.m_errMsg.GetString());
    const rownr_t nRows = static_cast<rownr_t>(reader.Count()) * static_cast<rownr_t>(nIF);
    ms.addRow(nRows);
    const IPosition shape(2, nCorr, nChan);
    Array<Complex> data(shape);
    Array<Bool> flag(shape);
    Array<Float> weightSpectrum(shape);
    Vector<Float> weight(nCorr), sigma(nCorr);
    Vector<Double> uvw(3);
    AUVXGroup group;
    AUVXVisibility vis(in);
    rownr_t row = 0;
    int scan = -1;
    double firstTime = 0, lastTime = 0;
    for (int record = 1; reader.Next(group, vis); ++record) {
        const std::string where = "record " + std::to_string(record);
        int field = 0;
        if (haveSources && (field = sources.IndexForID(group.sourceId)) < 0)
            return Fail(
                error, uvxName,
                where + " has source ID " + std::to_string(group.sourceId) + ", which the SU table lacks");
        int setupRow = 0;
        if (!fq.rows.empty() && (setupRow = fq.GetFreqSelNum(group.freqId)) < 0)
            return Fail(error, uvxName,
                        where + " has frequency setup " + std::to_string(group.freqId) +
                            ", which the FQ table lacks");
        if (antennas.IndexForID(group.ant1) < 0 || antennas.IndexForID(group.ant2) < 0)
            return Fail(error, uvxName,
                        where + " has stations " + std::to_string(group.ant1) + " and " +
                            std::to_string(group.ant2) + ", not both in the AN table");
        const double time = refDaySeconds + group.time;
        if (record == 1) firstTime = time;
        firstTime = std::min(firstTime, time);
        lastTime = std::max(lastTime, time);
        // Scans follow each other in time, like the records: the last match is tried first.
        if (scan < 0 || scan >= scans.count || group.time < scans[scan].start ||
            group.time > scans[scan].end) {
            scan = -1;
            for (int s = 0; s < scans.count; ++s)
                if (group.time >= scans[s].start && group.time <= scans[s].end) {
                    scan = s;
                    break;
                }
        }
        uvw[0] = static_cast<double>(group.u) * kMSLightSpeed;
        uvw[1] = static_cast<double>(group.v) * kMSLightSpeed;
        uvw[2] = static_cast<double>(group.w) * kMSLightSpeed;
        const bool rowFlag = (group.flags & 1) != 0;
        for (int iIF = 0; iIF < nIF; ++iIF, ++row) {
            for (int p = 0; p < nCorr; ++p) {
                double sum = 0;
                for (int k = 0; k < nChan; ++k) {
                    const AUVXComplex& e = vis.At(iIF, k, p);
                    const IPosition at(2, p, k);
                    data(at) = Complex(e.re, e.im);
                    flag(at) = rowFlag || !(e.wt > 0);
                    weightSpectrum(at) = std::fabs(e.wt);
                    sum += std::fabs(e.wt);
                }
                weight[p] = static_cast<Float>(sum / nChan);
                sigma[p] = weight[p] > 0 ? static_cast<Float>(1.0 / std::sqrt(static_cast<double>(weight[p])))
                                         : 0.0f;
            }
            cols.time().put(row, time);
            cols.timeCentroid().put(row, time);
            cols.interval().put(row, intTime);
            cols.exposure().put(row, intTime);
            cols.antenna1().put(row, group.ant1 - 1);
            cols.antenna2().put(row, group.ant2 - 1);
            cols.feed1().put(row, 0);
            cols.feed2().put(row, 0);
            cols.dataDescId().put(row, setupRow * nIF + iIF);
            cols.fieldId().put(row, field);
            cols.scanNumber().put(row, scan + 1);
            cols.arrayId().put(row, 0);
            cols.observationId().put(row, 0);
            cols.processorId().put(row, 0);
            cols.stateId().put(row, -1);
            cols.uvw().put(row, uvw);
            cols.data().put(row, data);
            cols.flag().put(row, flag);
            cols.flagRow().put(row, rowFlag);
            cols.weight().put(row, weight);
            cols.sigma().put(row, sigma);
            cols.weightSpectrum().put(row, weightSpectrum);
        }
    }
    if (reader.Failed()) return Fail(error, uvxName, reader.m_errMsg.GetString());
    if (row != nRows) return Fail(error, uvxName, "holds fewer records than its count");
    const double midTime = 0.5 * (firstTime + lastTime);
    const double span = lastTime - firstTime + intTime;

    // ANTENNA: row = telescope ID - 1, so ANTENNA1/2 + 1 are the IDs; an ID the AN table skips is
    // a flagged row without a name.
    MSAntennaColumns& ant = cols.antenna();
    ms.antenna().addRow(antennaRows);
    Vector<Double> position(3), offset(3, 0.0);
    for (int r = 0; r < antennaRows; ++r) {
        const int i = antennas.IndexForID(r + 1);
        position = 0.0;
        if (i >= 0) {
            position[0] = antennas[i].x;
            position[1] = antennas.rightHanded ? antennas[i].y : -antennas[i].y;
            position[2] = antennas[i].z;
        }
        const String name = i >= 0 ? String(antennas[i].Name().GetString()) : String();
        ant.name().put(r, name);
        ant.station().put(r, name);
        ant.type().put(r, "GROUND-BASED");
        ant.mount().put(r, "ALT-AZ");
        ant.position().put(r, position);
        ant.offset().put(r, offset);
        ant.dishDiameter().put(r, 0.0);
        ant.flagRow().put(r, i < 0);
    }

    // FEED: one two-receptor feed per station, valid for the whole observation.
    MSFeedColumns& feed = cols.feed();
    ms.feed().addRow(antennas.count);
    Vector<String> polTypes(2);
    polTypes[0] = linear ? "X" : "R";
    polTypes[1] = linear ? "Y" : "L";
    Matrix<Complex> response(2, 2, Complex(0, 0));
    response(0, 0) = response(1, 1) = Complex(1, 0);
    for (int i = 0; i < antennas.count; ++i) {
        feed.antennaId().put(i, antennas[i].id - 1);
        feed.feedId().put(i, 0);
        feed.spectralWindowId().put(i, -1);
        feed.time().put(i, midTime);
        feed.interval().put(i, span);
        feed.numReceptors().put(i, 2);
        feed.beamId().put(i, -1);
        feed.beamOffset().put(i, Matrix<Double>(2, 2, 0.0));
        feed.polarizationType().put(i, polTypes);
        feed.polResponse().put(i, response);
        feed.position().put(i, Vector<Double>(3, 0.0));
        feed.receptorAngle().put(i, Vector<Double>(2, 0.0));
    }

    // SPECTRAL_WINDOW and DATA_DESCRIPTION: one per IF of each setup, setup by setup; FREQ_GROUP is
    // the setup's FRQSEL. A channel's frequency is its centre: the IF's start holds at refChan.
    MSSpWindowColumns& spw = cols.spectralWindow();
    MSDataDescColumns& dd = cols.dataDescription();
    const int nSpw = static_cast<int>(setups.size()) * nIF;
    ms.spectralWindow().addRow(nSpw);
    ms.dataDescription().addRow(nSpw);
    Vector<Double> chanFreq(nChan), chanWidth(nChan), resolution(nChan);
    for (int s = 0; s < static_cast<int>(setups.size()); ++s)
        for (int iIF = 0; iIF < nIF; ++iIF) {
            const int r = s * nIF + iIF;
            const ASetup& su = setups[s];
            for (int k = 0; k < nChan; ++k)
                chanFreq[k] = su.start[iIF] + static_cast<double>(k + 1 - header.refChan) * su.width[iIF];
            chanWidth = su.width[iIF];
            resolution = std::fabs(su.width[iIF]);
            spw.numChan().put(r, nChan);
            spw.name().put(r, "IF" + std::to_string(iIF + 1));
            spw.refFrequency().put(r, su.start[iIF]);
            spw.chanFreq().put(r, chanFreq);
            spw.chanWidth().put(r, chanWidth);
            spw.effectiveBW().put(r, resolution);
            spw.resolution().put(r, resolution);
            spw.measFreqRef().put(r, MFrequency::TOPO);
            spw.totalBandwidth().put(r, su.bandwidth[iIF]);
            spw.netSideband().put(r, su.sideband[iIF]);
            spw.ifConvChain().put(r, 0);
            spw.freqGroup().put(r, su.freqSel);
            spw.freqGroupName().put(r, "FRQSEL " + std::to_string(su.freqSel));
            spw.flagRow().put(r, false);
            dd.spectralWindowId().put(r, r);
            dd.polarizationId().put(r, 0);
            dd.flagRow().put(r, false);
        }

    // POLARIZATION: the header's products in their order.
    MSPolarizationColumns& pol = cols.polarization();
    ms.polarization().addRow(1);
    Vector<Int> corrType(nCorr);
    Matrix<Int> corrProduct(2, nCorr);
    for (int p = 0; p < nCorr; ++p) {
        corrType[p] = corrTypes[p];
        MSReceptorsOfProduct(header.stokes[p], corrProduct(0, p), corrProduct(1, p));
    }
    pol.numCorr().put(0, nCorr);
    pol.corrType().put(0, corrType);
    pol.corrProduct().put(0, corrProduct);
    pol.flagRow().put(0, false);

    // FIELD and SOURCE: one per source of the SU table (FIELD_ID = its row, SOURCE_ID = its ID), or
    // the header's object.
    MSFieldColumns& fld = cols.field();
    MSSourceColumns& src = cols.source();
    const int nFields = haveSources ? sources.count : 1;
    // The frame is a column property, which casacore allows to change only while the table is empty.
    fld.setDirectionRef(frame);
    src.setDirectionRef(frame);
    ms.field().addRow(nFields);
    ms.source().addRow(nFields);
    for (int f = 0; f < nFields; ++f) {
        const String name = haveSources
                                ? String(sources[f].Name().GetString())
                                : String(AUVXHeader::Text(header.object, sizeof header.object).GetString());
        const int id = haveSources ? sources[f].id : 1;
        const Vector<Double> dir =
            haveSources ? Direction(sources[f].ra, sources[f].dec) : Direction(header.objRA, header.objDec);
        Matrix<Double> dirPoly(2, 1);
        dirPoly.column(0) = dir;
        fld.name().put(f, name);
        fld.code().put(f, "");
        fld.time().put(f, midTime);
        fld.numPoly().put(f, 0);
        fld.delayDir().put(f, dirPoly);
        fld.phaseDir().put(f, dirPoly);
        fld.referenceDir().put(f, dirPoly);
        fld.sourceId().put(f, id);
        fld.flagRow().put(f, false);
        src.sourceId().put(f, id);
        src.time().put(f, midTime);
        src.interval().put(f, span);
        src.spectralWindowId().put(f, -1);
        src.numLines().put(f, 0);
        src.name().put(f, name);
        src.calibrationGroup().put(f, 0);
        src.code().put(f, "");
        src.direction().put(f, dir);
        src.properMotion().put(f, Vector<Double>(2, 0.0));
    }

    // OBSERVATION and PROCESSOR: the header's array, observer and instrument.
    MSObservationColumns& obs = cols.observation();
    ms.observation().addRow(1);
    Vector<Double> range(2);
    range[0] = firstTime - 0.5 * intTime;
    range[1] = lastTime + 0.5 * intTime;
    obs.telescopeName().put(0, AUVXHeader::Text(header.telescope, sizeof header.telescope).GetString());
    obs.timeRange().put(0, range);
    obs.observer().put(0, AUVXHeader::Text(header.observer, sizeof header.observer).GetString());
    obs.log().put(0, Vector<String>(1, ""));
    obs.scheduleType().put(0, "");
    obs.schedule().put(0, Vector<String>(1, ""));
    obs.project().put(0, AUVXHeader::Text(header.observer, sizeof header.observer).GetString());
    obs.releaseDate().put(0, range[1]);
    obs.flagRow().put(0, false);
    MSProcessorColumns& proc = cols.processor();
    ms.processor().addRow(1);
    proc.type().put(0, "CORRELATOR");
    proc.subType().put(0, AUVXHeader::Text(header.instrument, sizeof header.instrument).GetString());
    proc.typeId().put(0, -1);
    proc.modeId().put(0, -1);
    proc.flagRow().put(0, false);

    // The UVX tables that have no place above travel as subtables of their own.
    for (auto& t : tables) {
        if (t->GetName() == "AN" || t->GetName() == "SU" || t->GetName() == "FQ") continue;
        AMSExtraTables::Write(ms, msPath, *t);
    }
    ms.flush(true);
    return true;
}
