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
        if (!ok) return;
        ok = file.Open(&mem, false);
        EXPECT_TRUE(ok) << file.m_errMsg.GetString();
        if (!ok) return;
        ok = data.Init(file);
        EXPECT_TRUE(ok) << data.GetErrMsg().GetString();
        std::istringstream in(antab.str());
        ok = ok && data.Load(in);
        EXPECT_TRUE(ok) << data.GetErrMsg().GetString();
    }

    // Reads record `i` into group and vis.
    bool Read(int i, AUVXGroup& group, AUVXVisibility& vis) {
        const std::int64_t pos = AUVXFile::kFirstRecordPos + i * AUVXFile::RecordBytes(file.GetHeader());
        return file.file->Seek(pos) && file.file->Read(&group, sizeof group) &&
               file.file->Read(vis.data, vis.count * static_cast<int>(sizeof(AUVXComplex)));
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
    const int nStokes = static_cast<int>(sim.truth.stokes.size());
    AUVXGroup g;
    AUVXVisibility vis(sim.file);
    int flagged = 0, autos = 0;
    for (int r = 0; r < sim.file.nGroups; ++r) {
        ASSERT_TRUE(sim.Read(r, g, vis));
        std::vector<AUVXComplex> raw(vis.data, vis.data + vis.count);
        ASSERT_TRUE(sim.data.Calibrate(g, vis)) << r << ": " << sim.data.GetErrMsg().GetString();
        if (g.ant1 == g.ant2) ++autos;
        const double mjd = sim.truth.Mjd(g.time);
        for (int iIF = 0; iIF < sim.truth.nIF; ++iIF)
            for (int iStokes = 0; iStokes < nStokes; ++iStokes) {
                int h1 = 0, h2 = 0;
                ASSERT_TRUE(ASimTruth::Hands(sim.truth.stokes[iStokes], h1, h2));
                const double s1 = sim.truth.Sefd(g.ant1, h1, iIF, g.sourceId, mjd);
                const double s2 = sim.truth.Sefd(g.ant2, h2, iIF, g.sourceId, mjd);
                ASSERT_GT(s1, 0.0);
                ASSERT_GT(s2, 0.0);
                for (int iChan = 0; iChan < sim.truth.nChan; ++iChan) {
                    const int e = vis.Index(iIF, iChan, iStokes);
                    const std::complex<double> model =
                        sim.truth.CalibratedModel(g, iIF, iChan, iStokes, false);
                    const double tol = 1e-5 * std::abs(model) + 1e-9;
                    ASSERT_NEAR(vis.data[e].re, model.real(), tol) << r << " " << iIF << " " << iStokes;
                    ASSERT_NEAR(vis.data[e].im, model.imag(), tol) << r << " " << iIF << " " << iStokes;
                    const double wt = raw[e].wt / (s1 * s2);
                    ASSERT_NEAR(vis.data[e].wt, wt, 1e-5 * std::fabs(wt)) << r;
                    if (raw[e].wt <= 0) ++flagged;
                }
            }
    }
    EXPECT_GT(autos, 0);
    EXPECT_GT(flagged, 0);  // flagged elements were met and kept their flag (sign checked above)
}

// With radiometer noise the mean calibrated cross-correlation of each source and product gives the
// simulated flux back within five standard errors; the raw means are far from it.
TEST(AntabClosedLoop, FluxesRecoveredWithinTheNoise) {
    Simulated sim(SmallObservation(1.0));
    ASSERT_TRUE(sim.ok);
    const int nStokes = static_cast<int>(sim.truth.stokes.size());
    const int nSources = static_cast<int>(sim.truth.sources.size());
    // Sums by [source][product]: calibrated value, raw value, noise variance, count.
    struct Sum {
        std::complex<double> cal, raw;
        double var = 0;
        int n = 0;
    };
    std::vector<std::vector<Sum>> sums(nSources + 1, std::vector<Sum>(nStokes));
    AUVXGroup g;
    AUVXVisibility vis(sim.file);
    for (int r = 0; r < sim.file.nGroups; ++r) {
        ASSERT_TRUE(sim.Read(r, g, vis));
        if (g.ant1 == g.ant2) continue;
        std::vector<AUVXComplex> raw(vis.data, vis.data + vis.count);
        ASSERT_TRUE(sim.data.Calibrate(g, vis)) << sim.data.GetErrMsg().GetString();
        const double mjd = sim.truth.Mjd(g.time);
        for (int iIF = 0; iIF < sim.truth.nIF; ++iIF)
            for (int iStokes = 0; iStokes < nStokes; ++iStokes) {
                int h1 = 0, h2 = 0;
                ASimTruth::Hands(sim.truth.stokes[iStokes], h1, h2);
                const double scale = std::sqrt(sim.truth.Sefd(g.ant1, h1, iIF, g.sourceId, mjd) *
                                               sim.truth.Sefd(g.ant2, h2, iIF, g.sourceId, mjd));
                for (int iChan = 0; iChan < sim.truth.nChan; ++iChan) {
                    const int e = vis.Index(iIF, iChan, iStokes);
                    if (raw[e].wt <= 0) {
                        EXPECT_LE(vis.data[e].wt, 0.0f);
                        continue;
                    }
                    Sum& s = sums[g.sourceId][iStokes];
                    s.cal += std::complex<double>(vis.data[e].re, vis.data[e].im);
                    s.raw += std::complex<double>(raw[e].re, raw[e].im);
                    const double sigma = sim.truth.NoiseSigma(g, iIF, iChan, iStokes) * scale;
                    s.var += sigma * sigma;
                    ++s.n;
                }
            }
    }
    for (const ASimSourceTruth& src : sim.truth.sources) {
        for (int iStokes = 0; iStokes < nStokes; ++iStokes) {
            const int code = sim.truth.stokes[iStokes];
            const std::complex<double> expected =
                code == -1 || code == -2 ? std::complex<double>(src.flux, 0.0)
                                         : (code == -3 ? src.crossFlux : std::conj(src.crossFlux));
            const Sum& s = sums[src.id][iStokes];
            ASSERT_GT(s.n, 1000) << src.name;
            const std::complex<double> mean = s.cal / static_cast<double>(s.n);
            const double error = std::sqrt(s.var) / s.n;  // standard error of each component
            EXPECT_NEAR(mean.real(), expected.real(), 5 * error) << src.name << " " << code;
            EXPECT_NEAR(mean.imag(), expected.imag(), 5 * error) << src.name << " " << code;
            const std::complex<double> rawMean = s.raw / static_cast<double>(s.n);
            if (code == -1 || code == -2) {
                EXPECT_GT(std::abs(rawMean - expected), 50 * error) << src.name;
            }
        }
    }
    EXPECT_NEAR(sim.truth.sources[0].flux, 3.5, 1e-12);
}

#endif  // MEROVANE_HAVE_UVXSIM
