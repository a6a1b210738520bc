// A whole bandpass run on a simulated observation: derive per interval, apply to every record, compare with
// the truth.
#include <gtest/gtest.h>

#if defined(MEROVANE_HAVE_UVXSIM)

#include <cmath>
#include <complex>
#include <cstdio>
#include <memory>

#include <merovane/foundation/AMemFile.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXHeader.h>

#include "BandpassFixtures.h"
#include "BandpassHost.h"
#include "UVXSimulator.h"

using namespace bptest;

namespace {

// Four stations, two sources in alternating scans of 240 s, two IFs of 32 channels, noise on.
struct BandpassRun : ::testing::Test {
    AMemFile stream;
    ASimTruth truth;
    AUVXFile file;
    std::unique_ptr<AUVXHeader> header;
    AUVXAntenns antennas;
    double sigma = 0;  // relative radiometer noise of one autocorrelation channel

    void SetUp() override {
        ASimConfig config;
        config.stations = {"EF", "WB", "ON", "MC"};
        config.sources = {"3C84", "4C39.25"};
        config.nIF = 2;
        config.nChan = 32;
        config.duration = 840.0;
        config.minElevation = -90.0;
        config.seed = 18;
        CString error;
        ASSERT_TRUE(SimulateToStreams(config, &stream, nullptr, nullptr, &truth, &error))
            << error.GetString();
        ASSERT_TRUE(truth.bandpassOn);
        ASSERT_TRUE(file.Open(&stream)) << file.m_errMsg.GetString();
        header.reset(new AUVXHeader(file));
        std::unique_ptr<AUVXTable> an(file.GetTable("AN"));
        ASSERT_NE(an, nullptr);
        ASSERT_TRUE(antennas.Init(*an));
        sigma = truth.noiseScale / std::sqrt(truth.chanWidth * truth.intTime);
    }

    // Derives with the host in 120 s intervals that restart with each scan.
    template <class Calculator>
    void Derive(Calculator& calculator) {
        ABandpassDeriveHost host(calculator);
        host.m_useSkanList = true;
        ASSERT_TRUE(host.IntervalsExec(&file, nullptr, 0.0, 120.0, nullptr)) << host.m_errMsg.GetString();
        EXPECT_EQ(host.intervals, 4);  // two scans of source 1, two intervals each
        EXPECT_EQ(calculator.stored.count, 4 * 4);
    }

    // The flatness of every corrected autocorrelation spectrum, over all records.
    double Apply(ABPass_Base& base) {
        ABandpassApplyHost host(base);
        EXPECT_TRUE(host.IntervalsExec(&file, nullptr, 0.0, 120.0, nullptr)) << host.m_errMsg.GetString();
        EXPECT_EQ(host.records, file.nGroups);
        EXPECT_EQ(host.failures, 0);
        return host.FlatnessRms();
    }

    // Rms over every stored cell of (coefficient - expected), with `expected` from the truth for the
    // item's telescope, IF, hand and channel; with no store, the rms of (1 - expected).
    template <class Expected>
    double Residual(ABPass_Base& base, Expected expected) {
        double sum = 0;
        long long n = 0;
        for (const ASimStationTruth& station : truth.stations)
            for (int iIF = 0; iIF < truth.nIF; ++iIF)
                for (int hand = 0; hand < 2; ++hand)
                    for (int c = 0; c < truth.nChan; ++c) {
                        const std::complex<double> want = expected(station.id, iIF, hand, c);
                        bool any = false;
                        for (ABPassCoefItem* item : base.stored) {
                            if (item->tlsc != station.id) continue;
                            any = true;
                            sum += std::norm(std::complex<double>(At(*item, hand, iIF, c)) - want);
                            ++n;
                        }
                        if (!any) {
                            sum += std::norm(1.0 - want);
                            ++n;
                        }
                    }
        return std::sqrt(sum / n);
    }

    // |B|^2, the amplitude bandpass as the normalised autocorrelation carries it.
    std::complex<double> PowerBandpass(int id, int iIF, int hand, int c) const {
        return std::norm(truth.Bandpass(id, iIF, hand, c));
    }
    // m |B|^2, the mean autocorrelation spectrum.
    std::complex<double> AutoSpectrum(int id, int iIF, int hand, int c) const {
        return truth.Level(id, iIF, hand) * std::norm(truth.Bandpass(id, iIF, hand, c));
    }
};

}  // namespace

TEST_F(BandpassRun, AmplitudeBandpassFromAutocorrelationsFlattensTheSpectra) {
    ABPass pass;
    pass.Init(*header, antennas, 1);
    Derive(pass);
    const double flat = Apply(pass);
    const double residual =
        Residual(pass, [this](int id, int iIF, int hand, int c) { return PowerBandpass(id, iIF, hand, c); });
    std::printf("Calculate_A_AC: flatness rms %.3g (noise %.3g), |B|^2 residual rms %.3g\n", flat, sigma,
                residual);
    // Flat to within the noise of one record and of the interval's mean that made the coefficient.
    EXPECT_LT(flat, 1.3 * sigma);
    EXPECT_GT(flat, 0.7 * sigma);
    // The coefficient is the simulator's |B|^2 up to the noise of a mean over 30 records.
    EXPECT_LT(residual, 3.0 * sigma / std::sqrt(30.0));
}

TEST_F(BandpassRun, MeanAutocorrelationBandpassFlattensTheSpectra) {
    ABPass_ACorr acorr;
    acorr.Init(*header, antennas, 1);
    Derive(acorr);
    const double flat = Apply(acorr);
    const double residual =
        Residual(acorr, [this](int id, int iIF, int hand, int c) { return AutoSpectrum(id, iIF, hand, c); });
    const double relative = residual / 1.0;  // m is about 1: the spectrum's scale
    std::printf("ABPass_ACorr: flatness rms %.3g (noise %.3g), m |B|^2 residual rms %.3g\n", flat, sigma,
                relative);
    EXPECT_LT(flat, 1.3 * sigma);
    EXPECT_GT(flat, 0.7 * sigma);
    EXPECT_LT(residual, 3.0 * 1.5 * sigma / std::sqrt(30.0));  // m reaches 1.5
}

TEST_F(BandpassRun, WithoutTheBandpassPassTheSameChecksFail) {
    ABPass pass;
    pass.Init(*header, antennas, 1);
    const double flat = Apply(pass);
    const double residual =
        Residual(pass, [this](int id, int iIF, int hand, int c) { return PowerBandpass(id, iIF, hand, c); });
    std::printf("no bandpass: flatness rms %.3g, |B|^2 residual rms %.3g\n", flat, residual);
    EXPECT_GT(flat, 20.0 * sigma);
    EXPECT_GT(residual, 20.0 * 3.0 * sigma / std::sqrt(30.0));
}

#endif
