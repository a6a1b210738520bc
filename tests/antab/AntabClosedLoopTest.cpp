// Closed loop: a simulated observation calibrated record by record with its own ANTAB file.
#ifdef MEROVANE_HAVE_UVXSIM

#include <cmath>
#include <complex>
#include <cstring>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

#include <merovane/antab/AAntabData.h>
#include <merovane/foundation/AMemFile.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecords.h>

#include "UVXSimulator.h"

namespace {

// A small observation without bandpass, power levels or quantisation loss.
ASimConfig SmallObservation(double noise) {
    ASimConfig c;
    c.stations = {"EF", "WB", "ON", "MC"};
    c.sources = {"3C84", "4C39.25"};
    c.fluxes = {3.5, 1.25};
    c.nIF = 2;
    c.nChan = 4;
    c.duration = 1200.0;
    c.bandpass = false;
    c.levels = false;
    c.quantisation = false;
    c.noiseScale = noise;
    c.seed = 11;
    return c;
}

struct Simulated {
    explicit Simulated(const ASimConfig& config) {
        std::ostringstream antab;
        CString error;
        ok = SimulateToStreams(config, &mem, &antab, nullptr, &truth, &error);
        EXPECT_TRUE(ok) << error.GetString();
        ok = ok && file.Open(&mem, false);
        EXPECT_TRUE(ok) << file.m_errMsg.GetString();
        ok = ok && data.Init(file);
        std::istringstream in(antab.str());
        ok = ok && data.Load(in);
        EXPECT_TRUE(ok) << data.GetErrMsg().GetString();
    }

    // Calibrates every record and hands each element to `visit` with the record, its position, the
    // raw and the calibrated element and SEFD A x SEFD B of the model.
    template <class Visit>
    void CalibrateAll(Visit visit) {
        const int nStokes = static_cast<int>(truth.stokes.size());
        const std::int64_t bytes = AUVXFile::RecordBytes(file.GetHeader());
        AUVXGroup g;
        AUVXVisibility vis(file);
        for (int r = 0; r < file.nGroups; ++r) {
            ASSERT_TRUE(file.file->Seek(AUVXFile::kFirstRecordPos + r * bytes) &&
                        file.file->Read(&g, sizeof g) &&
                        file.file->Read(vis.data, vis.count * static_cast<int>(sizeof(AUVXComplex))));
            std::vector<AUVXComplex> raw(vis.data, vis.data + vis.count);
            ASSERT_TRUE(data.Calibrate(g, vis)) << r << ": " << data.GetErrMsg().GetString();
            const double mjd = truth.Mjd(g.time);
            for (int iIF = 0; iIF < truth.nIF; ++iIF)
                for (int iStokes = 0; iStokes < nStokes; ++iStokes) {
                    int h1 = 0, h2 = 0;
                    ASSERT_TRUE(ASimTruth::Hands(truth.stokes[iStokes], h1, h2));
                    const double s1 = truth.Sefd(g.ant1, h1, iIF, g.sourceId, mjd);
                    const double s2 = truth.Sefd(g.ant2, h2, iIF, g.sourceId, mjd);
                    ASSERT_GT(s1, 0.0);
                    ASSERT_GT(s2, 0.0);
                    for (int iChan = 0; iChan < truth.nChan; ++iChan) {
                        const int e = vis.Index(iIF, iChan, iStokes);
                        visit(g, iIF, iChan, iStokes, raw[e], vis.data[e], s1 * s2);
                        if (::testing::Test::HasFatalFailure()) return;
                    }
                }
        }
    }

    AMemFile mem;
    AUVXFile file;
    ASimTruth truth;
    AAntabData data;
    bool ok = false;
};

}  // namespace

// Without noise every calibrated element is the model's flux (SEFD for an autocorrelation) to float
// precision, and every weight the raw weight over SEFD A x SEFD B, flags kept.
TEST(AntabClosedLoop, NoiselessRecordsMatchTheModel) {
    Simulated sim(SmallObservation(0.0));
    ASSERT_TRUE(sim.ok);
    ASSERT_GT(sim.file.nGroups, 100);
    int flagged = 0, autos = 0;
    sim.CalibrateAll([&](const AUVXGroup& g, int iIF, int iChan, int iStokes, const AUVXComplex& raw,
                         const AUVXComplex& cal, double sefds) {
        if (g.ant1 == g.ant2) ++autos;
        const std::complex<double> model = sim.truth.CalibratedModel(g, iIF, iChan, iStokes, false);
        const double tol = 1e-5 * std::abs(model) + 1e-9;
        ASSERT_NEAR(cal.re, model.real(), tol) << g.time << " " << iIF << " " << iStokes;
        ASSERT_NEAR(cal.im, model.imag(), tol) << g.time << " " << iIF << " " << iStokes;
        ASSERT_NEAR(cal.wt, raw.wt / sefds, 1e-5 * std::fabs(raw.wt / sefds)) << g.time;
        if (raw.wt <= 0) ++flagged;
    });
    EXPECT_GT(autos, 0);
    EXPECT_GT(flagged, 0);  // flagged elements were met and kept their flag (sign checked above)
}

// With radiometer noise the mean calibrated cross-correlation of each source and product gives the
// simulated flux back within five standard errors; the raw means are far from it.
TEST(AntabClosedLoop, FluxesRecoveredWithinTheNoise) {
    Simulated sim(SmallObservation(1.0));
    ASSERT_TRUE(sim.ok);
    const int nStokes = static_cast<int>(sim.truth.stokes.size());
    // Sums by [source][product]: calibrated value, raw value, noise variance, count.
    struct Sum {
        std::complex<double> cal, raw;
        double var = 0;
        int n = 0;
    };
    std::vector<std::vector<Sum>> sums(sim.truth.sources.size() + 1, std::vector<Sum>(nStokes));
    sim.CalibrateAll([&](const AUVXGroup& g, int iIF, int iChan, int iStokes, const AUVXComplex& raw,
                         const AUVXComplex& cal, double sefds) {
        if (g.ant1 == g.ant2) return;
        if (raw.wt <= 0) {
            EXPECT_LE(cal.wt, 0.0f);
            return;
        }
        Sum& s = sums[g.sourceId][iStokes];
        s.cal += std::complex<double>(cal.re, cal.im);
        s.raw += std::complex<double>(raw.re, raw.im);
        const double sigma = sim.truth.NoiseSigma(g, iIF, iChan, iStokes) * std::sqrt(sefds);
        s.var += sigma * sigma;
        ++s.n;
    });
    for (const ASimSourceTruth& src : sim.truth.sources) {
        for (int iStokes = 0; iStokes < nStokes; ++iStokes) {
            const int code = sim.truth.stokes[iStokes];
            const bool parallel = code == -1 || code == -2;
            const std::complex<double> expected =
                parallel ? std::complex<double>(src.flux, 0.0)
                         : (code == -3 ? src.crossFlux : std::conj(src.crossFlux));
            const Sum& s = sums[src.id][iStokes];
            ASSERT_GT(s.n, 1000) << src.name;
            const std::complex<double> mean = s.cal / static_cast<double>(s.n);
            const double error = std::sqrt(s.var) / s.n;  // standard error of each component
            EXPECT_NEAR(mean.real(), expected.real(), 5 * error) << src.name << " " << code;
            EXPECT_NEAR(mean.imag(), expected.imag(), 5 * error) << src.name << " " << code;
            if (parallel) {
                EXPECT_GT(std::abs(s.raw / static_cast<double>(s.n) - expected), 50 * error) << src.name;
            }
        }
    }
    EXPECT_NEAR(sim.truth.sources[0].flux, 3.5, 1e-12);
}

#endif  // MEROVANE_HAVE_UVXSIM
