// The exported Measurement Set as casacore reads it: columns, conventions and subtables.
#include <gtest/gtest.h>

#include <cmath>

#include <AMSBridge.h>

#include "MSTestSupport.h"

#ifdef MEROVANE_TEST_CASACORE
#include <casacore/casa/Arrays/ArrayMath.h>
#include <casacore/ms/MeasurementSets/MSColumns.h>
#include <casacore/ms/MeasurementSets/MeasurementSet.h>
#include <casacore/tables/Tables/TableRecord.h>

using namespace casacore;

namespace {

// Exports the simulated observation; `uvx` and `ms` get the paths.
void ExportSimulated(std::string& uvx, std::string& ms) {
    uvx = MSTestPath(".uvx");
    ms = MSTestPath(".ms");
    CString error;
    ASSERT_TRUE(Simulate(MSSimConfig(), uvx.c_str(), nullptr, nullptr, nullptr, &error)) << error.GetString();
    RemoveTree(ms);
    AMSBridge bridge;
    ASSERT_TRUE(bridge.ExportMS(uvx.c_str(), ms.c_str())) << bridge.m_errMsg.GetString();
}

}  // namespace

TEST(MSLayout, MainRowsFollowTheRecordsBandByBand) {
    std::string uvx, path;
    ExportSimulated(uvx, path);
    const AUVXContent c = LoadUVX(uvx);
    ASSERT_EQ(c.error, "");
    const MeasurementSet ms(path, Table::Old);  // the constructor checks the layout against MSv2
    const MSColumns cols(ms);
    const int nIF = c.header.nIF, nChan = c.header.nChan, nCorr = c.header.nStokes;
    ASSERT_EQ(ms.nrow(), c.groups.size() * nIF);
    const double refSeconds = (c.header.refJD - 2400000.5) * 86400.0;
    const double light = 299792458.0;
    for (std::size_t i = 0; i < c.groups.size(); i += 7) {
        const AUVXGroup& g = c.groups[i];
        for (int iIF = 0; iIF < nIF; ++iIF) {
            const rownr_t row = i * nIF + iIF;
            SCOPED_TRACE("record " + std::to_string(i) + " IF " + std::to_string(iIF));
            EXPECT_EQ(cols.time()(row), refSeconds + g.time);
            EXPECT_EQ(cols.timeCentroid()(row), refSeconds + g.time);
            EXPECT_EQ(cols.interval()(row), double(c.header.intTime));
            EXPECT_EQ(cols.exposure()(row), double(c.header.intTime));
            EXPECT_EQ(cols.antenna1()(row), g.ant1 - 1);
            EXPECT_EQ(cols.antenna2()(row), g.ant2 - 1);
            EXPECT_EQ(cols.dataDescId()(row), iIF);
            EXPECT_EQ(cols.fieldId()(row), g.sourceId - 1);
            const Vector<Double> uvw = cols.uvw()(row);
            EXPECT_EQ(uvw[0], double(g.u) * light);
            EXPECT_EQ(uvw[1], double(g.v) * light);
            EXPECT_EQ(uvw[2], double(g.w) * light);
            const Array<Complex> data = cols.data()(row);
            const Array<Bool> flag = cols.flag()(row);
            const Array<Float> spectrum = cols.weightSpectrum()(row);
            const Vector<Float> weight = cols.weight()(row);
            const Vector<Float> sigma = cols.sigma()(row);
            ASSERT_EQ(data.shape(), IPosition(2, nCorr, nChan));
            for (int p = 0; p < nCorr; ++p) {
                double sum = 0;
                for (int k = 0; k < nChan; ++k) {
                    const AUVXComplex& e = c.data[i][(iIF * nChan + k) * nCorr + p];
                    const IPosition at(2, p, k);
                    EXPECT_EQ(data(at), Complex(e.re, e.im));
                    EXPECT_EQ(flag(at), !(e.wt > 0));
                    EXPECT_EQ(spectrum(at), std::fabs(e.wt));
                    sum += std::fabs(e.wt);
                }
                EXPECT_FLOAT_EQ(weight[p], float(sum / nChan));
                EXPECT_FLOAT_EQ(sigma[p], float(1.0 / std::sqrt(sum / nChan)));
            }
            EXPECT_FALSE(cols.flagRow()(row));
        }
    }
}

TEST(MSLayout, ScansFieldsWindowsAndProducts) {
    std::string uvx, path;
    ExportSimulated(uvx, path);
    const AUVXContent c = LoadUVX(uvx);
    const MeasurementSet ms(path, Table::Old);
    const MSColumns cols(ms);

    // SCAN_NUMBER: the SL row (from 1) whose span holds the record's time.
    const AUVXTable* sl = c.Table("SL");
    ASSERT_NE(sl, nullptr);
    for (std::size_t i = 0; i < c.groups.size(); ++i) {
        int scan = 0;
        for (int s = 0; s < sl->nRows && scan == 0; ++s)
            if (c.groups[i].time >= sl->GetDouble(s, 0) && c.groups[i].time <= sl->GetDouble(s, 1))
                scan = s + 1;
        ASSERT_GT(scan, 0);
        ASSERT_EQ(cols.scanNumber()(i * c.header.nIF), scan) << "record " << i;
    }

    // POLARIZATION: RR LL RL LR in the header's order, receptors R = 0, L = 1.
    const Vector<Int> corrType = cols.polarization().corrType()(0);
    const Matrix<Int> corrProduct = cols.polarization().corrProduct()(0);
    const int expectedTypes[] = {5, 8, 6, 7};
    const int expectedReceptors[][2] = {{0, 0}, {1, 1}, {0, 1}, {1, 0}};
    ASSERT_EQ(corrType.size(), 4u);
    for (int p = 0; p < 4; ++p) {
        EXPECT_EQ(corrType[p], expectedTypes[p]);
        EXPECT_EQ(corrProduct(0, p), expectedReceptors[p][0]);
        EXPECT_EQ(corrProduct(1, p), expectedReceptors[p][1]);
    }

    // SPECTRAL_WINDOW: one per IF; channel centres from the IF's start at refChan 1.
    ASSERT_EQ(ms.spectralWindow().nrow(), 2u);
    ASSERT_EQ(ms.dataDescription().nrow(), 2u);
    const AUVXTable* fq = c.Table("FQ");
    ASSERT_NE(fq, nullptr);
    for (int s = 0; s < 2; ++s) {
        const Vector<Double> freq = cols.spectralWindow().chanFreq()(s);
        const Vector<Double> width = cols.spectralWindow().chanWidth()(s);
        const double start = c.header.refFreq + fq->GetDouble(0, fq->ColumnIndex("IF FREQ"), s);
        const double step = fq->GetDouble(0, fq->ColumnIndex("CH WIDTH"), s);
        ASSERT_EQ(freq.size(), 8u);
        for (int k = 0; k < 8; ++k) {
            EXPECT_EQ(freq[k], start + k * step);
            EXPECT_EQ(width[k], step);
        }
        EXPECT_EQ(cols.spectralWindow().netSideband()(s), 1);
        EXPECT_EQ(cols.spectralWindow().freqGroup()(s), 1);
        EXPECT_EQ(cols.dataDescription().spectralWindowId()(s), s);
    }

    // FIELD and SOURCE: the SU rows in order, directions in radians.
    const AUVXTable* su = c.Table("SU");
    ASSERT_NE(su, nullptr);
    ASSERT_EQ(ms.field().nrow(), static_cast<rownr_t>(su->nRows));
    ASSERT_EQ(ms.source().nrow(), static_cast<rownr_t>(su->nRows));
    for (int f = 0; f < su->nRows; ++f) {
        EXPECT_EQ(cols.field().name()(f), String(su->GetText(f, 1).GetString()));
        EXPECT_EQ(cols.field().sourceId()(f), su->GetDouble(f, 0));
        const Matrix<Double> dir = cols.field().phaseDir()(f);
        EXPECT_NEAR(dir(0, 0), su->GetDouble(f, 2) * M_PI / 180.0, 1e-15);
        EXPECT_NEAR(dir(1, 0), su->GetDouble(f, 3) * M_PI / 180.0, 1e-15);
    }
    EXPECT_EQ(cols.field().phaseDirMeasCol().getMeasRef().getType(), MDirection::J2000);

    // ANTENNA: row = telescope ID - 1, names and positions of the AN table.
    const AUVXTable* an = c.Table("AN");
    ASSERT_NE(an, nullptr);
    ASSERT_EQ(ms.antenna().nrow(), 3u);
    for (int r = 0; r < an->nRows; ++r) {
        const int row = static_cast<int>(an->GetDouble(r, 2)) - 1;
        EXPECT_EQ(cols.antenna().name()(row), String(an->GetText(r, 0).GetString()));
        const Vector<Double> pos = cols.antenna().position()(row);
        for (int e = 0; e < 3; ++e) EXPECT_EQ(pos[e], an->GetDouble(r, 1, e));
    }
    EXPECT_EQ(ms.feed().nrow(), 3u);
    EXPECT_EQ(ms.observation().nrow(), 1u);
    EXPECT_EQ(cols.observation().telescopeName()(0), "VLBI");

    // The tables without a Measurement Set equivalent travel as subtables of their own.
    EXPECT_TRUE(ms.keywordSet().isDefined("UVX_SL"));
    EXPECT_TRUE(ms.keywordSet().isDefined("UVX_AI"));
    EXPECT_FALSE(ms.keywordSet().isDefined("UVX_AN"));
}

TEST(MSLayout, ScanListIsRebuiltFromScanNumbersWhenItDidNotTravel) {
    std::string uvx, path;
    ExportSimulated(uvx, path);
    {
        Table main(path, Table::Update);
        main.rwKeywordSet().removeField("UVX_SL");
    }
    RemoveTree(path + "/UVX_SL");
    const std::string back = MSTestPath("-back.uvx");
    AMSBridge bridge;
    ASSERT_TRUE(bridge.ImportMS(path.c_str(), back.c_str())) << bridge.m_errMsg.GetString();
    const AUVXContent original = LoadUVX(uvx);
    const AUVXContent returned = LoadUVX(back);
    const AUVXTable* e = original.Table("SL");
    const AUVXTable* a = returned.Table("SL");
    ASSERT_NE(e, nullptr);
    ASSERT_NE(a, nullptr);
    ASSERT_EQ(a->nRows, e->nRows);
    double refDayE = 0, refDayA = 0;
    ASSERT_TRUE(e->GetKeyword("REFDAY", refDayE));
    ASSERT_TRUE(a->GetKeyword("REFDAY", refDayA));
    EXPECT_EQ(refDayA, refDayE);
    // The simulated scans hold whole integrations, so the rebuilt spans are the scans' own.
    for (int r = 0; r < e->nRows; ++r) {
        EXPECT_NEAR(a->GetDouble(r, 0), e->GetDouble(r, 0), 1e-6) << "scan " << r;
        EXPECT_NEAR(a->GetDouble(r, 1), e->GetDouble(r, 1), 1e-6) << "scan " << r;
        EXPECT_EQ(a->GetDouble(r, 2), e->GetDouble(r, 2)) << "scan " << r;
    }
    // Everything else is still the same.
    EXPECT_EQ(returned.groups.size(), original.groups.size());
    EXPECT_NE(returned.Table("AI"), nullptr);
}

// A Measurement Set from elsewhere may have no WEIGHT_SPECTRUM: each element then takes the WEIGHT
// of its product, made negative where FLAG is set.
TEST(MSLayout, WithoutWeightSpectrumElementsTakeTheProductWeight) {
    std::string uvx, path;
    ExportSimulated(uvx, path);
    const AUVXContent original = LoadUVX(uvx);
    const int nIF = original.header.nIF, nChan = original.header.nChan, nCorr = original.header.nStokes;
    {
        // Distinct weights per row and product, so that a wrong product or row shows.
        Table main(path, Table::Update);
        main.removeColumn("WEIGHT_SPECTRUM");
        ArrayColumn<Float> weight(main, "WEIGHT");
        Vector<Float> w(nCorr);
        for (rownr_t r = 0; r < main.nrow(); ++r) {
            for (int p = 0; p < nCorr; ++p) w[p] = static_cast<Float>(1 + r % 5 + 10 * p);
            weight.put(r, w);
        }
    }
    const std::string back = MSTestPath("-back.uvx");
    AMSBridge bridge;
    ASSERT_TRUE(bridge.ImportMS(path.c_str(), back.c_str())) << bridge.m_errMsg.GetString();
    const AUVXContent returned = LoadUVX(back);
    ASSERT_EQ(returned.error, "");
    ASSERT_EQ(returned.data.size(), original.data.size());
    for (std::size_t i = 0; i < original.data.size(); ++i)
        for (int iIF = 0; iIF < nIF; ++iIF)
            for (int k = 0; k < nChan; ++k)
                for (int p = 0; p < nCorr; ++p) {
                    const std::size_t e = static_cast<std::size_t>((iIF * nChan + k) * nCorr + p);
                    const float expected = static_cast<float>(1 + (i * nIF + iIF) % 5 + 10 * p);
                    const float wt = original.data[i][e].wt > 0 ? expected : -expected;
                    ASSERT_EQ(returned.data[i][e].wt, wt) << "record " << i << " element " << e;
                    ASSERT_EQ(returned.data[i][e].re, original.data[i][e].re);
                }
}

#endif  // MEROVANE_TEST_CASACORE
