// Closed loop: a simulated observation with digitiser levels and bits, corrected interval by interval,
// against the simulator's values before digitisation.
#include <gtest/gtest.h>

#if defined(MEROVANE_HAVE_UVXSIM)

#include <cmath>
#include <complex>
#include <map>
#include <memory>
#include <tuple>

#include <merovane/digitisation/AAIShortTbl.h>
#include <merovane/digitisation/ADigErrCorrect.h>
#include <merovane/digitisation/AVanFlakeCorrect.h>
#include <merovane/foundation/AMemFile.h>
#include <merovane/interval/AUVXTimeWorks.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXFile.h>

#include "UVXSimulator.h"

namespace {

enum class Stage { None, PowerOnly, Both };

// What the elements of one baseline, band and product say about their scale against the model M:
// the least-squares gain sum Re(v conj M) / sum |M|^2 and its standard error from the noise.
struct AScaleFit {
    double vm = 0, mm = 0, var = 0;
    double chi2 = 0;
    int n = 0;
    double Gain() const { return vm / mm; }
    double Sigma() const { return std::sqrt(var) / mm; }
};

// The host: the two corrections in each interval, then every good cross-correlation element
// compared with the truth before the records are gone.
class ADigLoopHost : public AUVXTimeWorks {
public:
    ADigLoopHost(const ASimTruth& truth, ADigErrCorrect& dig, AVanFlakeCorrect& van, Stage stage)
        : m_truth(truth), m_dig(dig), m_van(van), m_stage(stage) {}

    std::map<std::tuple<int, int, int, int>, AScaleFit> fits;
    int intervals = 0;
    int records = 0;
    double worstWeight = 0;  // largest relative departure of a corrected weight from the truth's

protected:
    bool IntervalsExec_Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start,
                                 double end) override {
        ++intervals;
        if (m_stage != Stage::None && !m_dig.Calculate(vis, groups, start, end)) return false;
        if (m_stage == Stage::Both && !m_van.Calculate(vis, groups, start, end)) return false;
        for (int i = 0; i < groups.count; ++i) {
            const AUVXGroup& g = groups[i];
            ++records;
            if (g.ant1 == g.ant2) continue;
            AUVXVisibility& v = *vis[i];
            const double f = std::sqrt(m_truth.QuantFactor(g.ant1) * m_truth.QuantFactor(g.ant2));
            for (int iIF = 0; iIF < v.nIF; ++iIF)
                for (int p = 0; p < v.nStokes; ++p) {
                    int h1 = 0, h2 = 0;
                    ASimTruth::Hands(m_truth.stokes[p], h1, h2);
                    const double m =
                        std::sqrt(m_truth.Level(g.ant1, iIF, h1) * m_truth.Level(g.ant2, iIF, h2));
                    AScaleFit& fit = fits[std::make_tuple(g.ant1, g.ant2, iIF, p)];
                    for (int c = 0; c < v.nChan; ++c) {
                        const AUVXComplex& e = v.At(iIF, c, p);
                        if (!(e.wt > 0.0f)) continue;
                        const std::complex<double> model = m_truth.PreDigitisationModel(g, iIF, c, p);
                        const double sigma = m_truth.NoiseSigma(g, iIF, c, p) / (f * m);
                        const std::complex<double> got(e.re, e.im);
                        fit.vm += (got * std::conj(model)).real();
                        fit.mm += std::norm(model);
                        fit.var += sigma * sigma * std::norm(model);
                        fit.chi2 += std::norm(got - model) / (sigma * sigma);
                        ++fit.n;
                        if (m_stage != Stage::None) {
                            const double wt = m_truth.Weight() * m * m;
                            worstWeight = std::max(worstWeight, std::fabs(e.wt / wt - 1.0));
                        }
                    }
                }
        }
        return true;
    }

private:
    const ASimTruth& m_truth;
    ADigErrCorrect& m_dig;
    AVanFlakeCorrect& m_van;
    Stage m_stage;
};

class ClosedLoop : public ::testing::Test {
protected:
    void SetUp() override {
        ASimConfig config;
        config.stations = {"EF", "WB", "ON", "MC"};
        config.bits = {1, 2, 3, 8};
        config.nIF = 2;
        config.nChan = 16;
        config.duration = 540.0;
        config.scanLength = 240.0;
        config.scanGap = 60.0;
        config.seed = 7;
        CString error;
        ASSERT_TRUE(SimulateToStreams(config, &m_stream, nullptr, nullptr, &m_truth, &error))
            << error.GetString();
        ASSERT_TRUE(m_file.Open(&m_stream)) << m_file.m_errMsg.GetString();
        m_header = AUVXHeader(m_file);
        std::unique_ptr<AUVXTable> an(m_file.GetTable("AN"));
        ASSERT_NE(an, nullptr);
        ASSERT_TRUE(m_antennas.Init(*an));
        std::unique_ptr<AUVXTable> ai(m_file.GetTable("AI"));
        ASSERT_NE(ai, nullptr);
        m_levels.Load(ai.get());
    }

    // One pass over the file with the given corrections.
    void Run(ADigLoopHost& host) {
        ASSERT_TRUE(host.IntervalsExec(&m_file, nullptr, 0.0, 60.0, nullptr)) << host.m_errMsg.GetString();
        ASSERT_GT(host.intervals, 5);
        ASSERT_EQ(host.records, m_file.nGroups);
    }

    AMemFile m_stream;
    AUVXFile m_file;
    ASimTruth m_truth;
    AUVXHeader m_header;
    AUVXAntenns m_antennas;
    AAIShortTbl m_levels;
};

}  // namespace

TEST_F(ClosedLoop, TableCarriesEachStationsBits) {
    ASSERT_EQ(m_levels.count, static_cast<int>(m_truth.stations.size()));
    for (const ASimStationTruth& s : m_truth.stations) {
        AUVXGroup g{};
        g.ant1 = static_cast<std::int8_t>(s.id);
        g.ant2 = g.ant1;
        g.freqId = 1;
        g.time = 72000.0 + 100.0;
        const AAIShortTblItem* item = m_levels.FindItem(g, true);
        ASSERT_NE(item, nullptr) << s.code;
        EXPECT_EQ(item->noLevels, s.bits) << s.code;
        EXPECT_EQ(AVanFlakeCorrect::Factor(item->noLevels), m_truth.QuantFactor(s.id)) << s.code;
    }
}

TEST_F(ClosedLoop, CorrectedAmplitudesMatchValuesBeforeDigitisation) {
    ADigErrCorrect dig;
    dig.Init(m_header, m_antennas);
    AVanFlakeCorrect van;
    van.Init(m_levels);

    // The powers come from the interval's autocorrelations, whose noise (about 3e-5 of the power
    // over 16 channels and 15 time stamps) the fit's own error does not hold; allow for it.
    const double systematic = 3e-4;
    auto within = [&](const AScaleFit& fit, double expected) {
        return std::fabs(fit.Gain() - expected) < 5.0 * fit.Sigma() + systematic * expected;
    };

    ADigLoopHost host(m_truth, dig, van, Stage::Both);
    Run(host);
    ASSERT_EQ(host.fits.size(), 6u * 2u * 4u);  // baselines x bands x products
    double chi2 = 0;
    long n = 0;
    for (const auto& [key, fit] : host.fits) {
        ASSERT_GT(fit.n, 100);
        EXPECT_TRUE(within(fit, 1.0))
            << "baseline " << std::get<0>(key) << "-" << std::get<1>(key) << " band " << std::get<2>(key)
            << " product " << std::get<3>(key) << ": gain " << fit.Gain() << " +- " << fit.Sigma();
        chi2 += fit.chi2;
        n += fit.n;
    }
    // What is left is the noise: two components per element, each of unit variance.
    EXPECT_NEAR(chi2 / (2.0 * n), 1.0, 0.02);
    // Weights went up by the power product.
    EXPECT_LT(host.worstWeight, 5e-3);

    // The same comparison catches data that lack either correction: without any, every fit is off
    // by sqrt(f1 f2 m1 m2); with the power correction alone, by the quantisation loss sqrt(f1 f2).
    ADigLoopHost raw(m_truth, dig, van, Stage::None);
    Run(raw);
    ADigLoopHost powerOnly(m_truth, dig, van, Stage::PowerOnly);
    Run(powerOnly);
    int rawOff = 0, powerOff = 0, powerAsExpected = 0;
    for (const auto& [key, fit] : raw.fits)
        if (!within(fit, 1.0)) ++rawOff;
    for (const auto& [key, fit] : powerOnly.fits) {
        if (!within(fit, 1.0)) ++powerOff;
        const double f =
            std::sqrt(m_truth.QuantFactor(std::get<0>(key)) * m_truth.QuantFactor(std::get<1>(key)));
        if (within(fit, f)) ++powerAsExpected;
    }
    const int all = static_cast<int>(raw.fits.size());
    EXPECT_GE(rawOff, all * 9 / 10);
    // Baselines of the 3- and 8-bit stations lose little; the others must show.
    EXPECT_GE(powerOff, all / 2);
    EXPECT_EQ(powerAsExpected, all);
}

#endif
