// Closed loop: a simulated observation with digitiser levels and bits, corrected interval by interval,
// against the simulator's values before digitisation.
#include <gtest/gtest.h>

#if defined(MEROVANE_HAVE_UVXSIM)

#include <algorithm>
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

#include "DigitisationFixtures.h"
#include "UVXSimulator.h"

namespace {

enum class Stage { None, PowerOnly, Both };

// What the elements of one baseline, band and product say about their scale against the model M:
// the least-squares gain sum Re(v conj M) / sum |M|^2 and its standard error from the noise.
struct AScaleFit {
    double vm = 0, mm = 0, var = 0, chi2 = 0;
    int n = 0;
    double Gain() const { return vm / mm; }
    double Sigma() const { return std::sqrt(var) / mm; }
};
using AFits = std::map<std::tuple<int, int, int, int>, AScaleFit>;

// The host: the corrections of `stage` in each interval, then every good cross-correlation element
// compared with the truth before the records are gone.
class ADigLoopHost : public AUVXTimeWorks {
public:
    ADigLoopHost(const ASimTruth& truth, ADigErrCorrect& dig, AVanFlakeCorrect& van, Stage stage)
        : m_truth(truth), m_dig(dig), m_van(van), m_stage(stage) {}

    AFits fits;
    int intervals = 0, records = 0;
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
                        if (m_stage != Stage::None)
                            worstWeight =
                                std::max(worstWeight, std::fabs(e.wt / (m_truth.Weight() * m * m) - 1.0));
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

}  // namespace

TEST(ClosedLoop, CorrectedAmplitudesMatchValuesBeforeDigitisation) {
    ASimConfig config;
    config.stations = {"EF", "WB", "ON", "MC"};
    config.bits = {1, 2, 3, 8};
    config.nIF = 2;
    config.nChan = 16;
    config.duration = 540.0;
    config.scanLength = 240.0;
    config.scanGap = 60.0;
    config.seed = 7;
    AMemFile stream;
    ASimTruth truth;
    CString error;
    ASSERT_TRUE(SimulateToStreams(config, &stream, nullptr, nullptr, &truth, &error)) << error.GetString();
    AUVXFile file;
    ASSERT_TRUE(file.Open(&stream)) << file.m_errMsg.GetString();
    AUVXHeader header(file);
    std::unique_ptr<AUVXTable> an(file.GetTable("AN")), ai(file.GetTable("AI"));
    ASSERT_NE(an, nullptr);
    ASSERT_NE(ai, nullptr);
    AUVXAntenns antennas;
    ASSERT_TRUE(antennas.Init(*an));
    AAIShortTbl levels(ai.get());

    // The file's table carries each station's bits.
    ASSERT_EQ(levels.count, static_cast<int>(truth.stations.size()));
    for (const ASimStationTruth& s : truth.stations) {
        AUVXGroup g = digtest::Group(s.id, s.id, 1, 72000.0 + 100.0);
        const AAIShortTblItem* item = levels.FindItem(g, true);
        ASSERT_NE(item, nullptr) << s.code;
        EXPECT_EQ(item->noLevels, s.bits) << s.code;
        EXPECT_EQ(AVanFlakeCorrect::Factor(item->noLevels), truth.QuantFactor(s.id)) << s.code;
    }

    ADigErrCorrect dig;
    dig.Init(header, antennas);
    AVanFlakeCorrect van;
    van.Init(levels);
    auto run = [&](Stage stage) {
        ADigLoopHost host(truth, dig, van, stage);
        EXPECT_TRUE(host.IntervalsExec(&file, nullptr, 0.0, 60.0, nullptr)) << host.m_errMsg.GetString();
        EXPECT_GT(host.intervals, 5);
        EXPECT_EQ(host.records, file.nGroups);
        return std::make_pair(host.fits, host.worstWeight);
    };
    // The powers come from the interval's autocorrelations, whose noise (about 3e-5 of the power
    // over 16 channels and 15 time stamps) the fit's own error does not hold; allow for it.
    auto within = [](const AScaleFit& fit, double expected) {
        return std::fabs(fit.Gain() - expected) < 5.0 * fit.Sigma() + 3e-4 * expected;
    };

    const auto [fits, worstWeight] = run(Stage::Both);
    ASSERT_EQ(fits.size(), 6u * 2u * 4u);  // baselines x bands x products
    double chi2 = 0;
    long n = 0;
    for (const auto& [key, fit] : fits) {
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
    EXPECT_LT(worstWeight, 5e-3);

    // The same comparison catches data that lack either correction: without any, every fit is off
    // by sqrt(f1 f2 m1 m2); with the power correction alone, by the quantisation loss sqrt(f1 f2).
    const AFits raw = run(Stage::None).first, powerOnly = run(Stage::PowerOnly).first;
    int rawOff = 0, powerOff = 0, powerAsExpected = 0;
    for (const auto& [key, fit] : raw) rawOff += !within(fit, 1.0);
    for (const auto& [key, fit] : powerOnly) {
        powerOff += !within(fit, 1.0);
        powerAsExpected +=
            within(fit, std::sqrt(truth.QuantFactor(std::get<0>(key)) * truth.QuantFactor(std::get<1>(key))));
    }
    const int all = static_cast<int>(raw.size());
    EXPECT_GE(rawOff, all * 9 / 10);
    // Baselines of the 3- and 8-bit stations lose little; the others must show.
    EXPECT_GE(powerOff, all / 2);
    EXPECT_EQ(powerAsExpected, all);
}

#endif
