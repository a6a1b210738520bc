// uvx-cal-check: how well a calibrated simulated observation matches the simulator's truth.
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecordStream.h>

#include "ASimTruth.h"

namespace {

const char* kUsage =
    "usage: uvx-cal-check [--tolerance F] CALIBRATED.uvx TRUTH\n"
    "Compares the parallel-hand cross-correlations of a calibrated uvx-sim observation with the\n"
    "simulator's truth: per source the mean amplitude over its flux, and the flatness of the\n"
    "spectra (rms across channels of amplitude over its mean, and of phase about its mean) against\n"
    "the simulated bandpass before calibration. Exit 0 when every source's flux is recovered within\n"
    "the tolerance [0.03], 1 otherwise or when a file cannot be read, 2 for bad arguments.\n";

constexpr double kPi = 3.14159265358979323846;

double wrap(double a) {
    return std::remainder(a, 2.0 * kPi);
}

// rms across channels of amplitude over its mean minus 1, and of phase about its circular mean.
void flatness(const std::vector<std::complex<double>>& spectrum, double& ampRms, double& phaseRms) {
    double mean = 0;
    std::complex<double> dir = 0;
    for (const auto& v : spectrum) {
        mean += std::abs(v);
        dir += std::abs(v) > 0 ? v / std::abs(v) : 0.0;
    }
    mean /= static_cast<double>(spectrum.size());
    const double centre = std::arg(dir);
    ampRms = phaseRms = 0;
    for (const auto& v : spectrum) {
        const double a = mean > 0 ? std::abs(v) / mean - 1.0 : 0.0;
        const double p = wrap(std::arg(v) - centre);
        ampRms += a * a;
        phaseRms += p * p;
    }
    ampRms = std::sqrt(ampRms / static_cast<double>(spectrum.size()));
    phaseRms = std::sqrt(phaseRms / static_cast<double>(spectrum.size()));
}

}  // namespace

int main(int argc, char** argv) {
    double tolerance = 0.03;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--help") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (a == "--tolerance" && i + 1 < argc) {
            tolerance = std::atof(argv[++i]);
        } else if (!a.empty() && a[0] == '-') {
            std::fprintf(stderr, "uvx-cal-check: unknown option %s\n%s", a.c_str(), kUsage);
            return 2;
        } else {
            files.push_back(a);
        }
    }
    if (files.size() != 2 || !(tolerance > 0)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    ASimTruth truth;
    {
        std::ifstream t(files[1]);
        CString err;
        if (!t || !truth.Load(t, &err)) {
            std::fprintf(stderr, "uvx-cal-check: %s: cannot read the truth: %s\n", files[1].c_str(),
                         err.GetString());
            return 1;
        }
    }
    AUVXFile file;
    if (!file.Open(files[0].c_str())) {
        std::fprintf(stderr, "uvx-cal-check: %s\n", file.m_errMsg.GetString());
        return 1;
    }
    AUVXHeader header(file);
    const int nIF = std::max(1, static_cast<int>(header.nIF)), nChan = header.nChan, nStokes = header.nStokes;
    AUVXRecordReader reader;
    if (!reader.Open(file)) {
        std::fprintf(stderr, "uvx-cal-check: %s\n", reader.m_errMsg.GetString());
        return 1;
    }
    // Per source: sum of amplitudes and count; per (ant1, ant2, IF, product): spectrum summed over records.
    std::map<int, std::pair<double, long>> flux;
    std::map<std::tuple<int, int, int, int>, std::vector<std::complex<double>>> spectra;
    AUVXGroup g{};
    AUVXVisibility v(file);
    long records = 0;
    while (reader.Next(g, v)) {
        ++records;
        if (g.ant1 == g.ant2) continue;
        for (int s = 0; s < nStokes && s < 8; ++s) {
            if (header.stokes[s] != -1 && header.stokes[s] != -2) continue;
            for (int f = 0; f < nIF; ++f) {
                auto& spec = spectra[{g.ant1, g.ant2, f, s}];
                if (spec.empty()) spec.assign(static_cast<std::size_t>(nChan), 0.0);
                for (int c = 0; c < nChan; ++c) {
                    const AUVXComplex& x = v.At(f, c, s);
                    if (!(x.wt > 0) || !std::isfinite(x.re) || !std::isfinite(x.im)) continue;
                    auto& acc = flux[g.sourceId];
                    acc.first += std::hypot(static_cast<double>(x.re), static_cast<double>(x.im));
                    ++acc.second;
                    spec[static_cast<std::size_t>(c)] += std::complex<double>(x.re, x.im);
                }
            }
        }
    }
    if (reader.Failed()) {
        std::fprintf(stderr, "uvx-cal-check: %s\n", reader.m_errMsg.GetString());
        return 1;
    }
    bool ok = !flux.empty();
    std::printf("%ld records; fluxes recovered (mean amplitude of RR/LL cross-correlations):\n", records);
    for (const auto& src : truth.sources) {
        auto it = flux.find(src.id);
        if (it == flux.end() || it->second.second == 0) {
            std::printf("  %-10s %8.4f Jy simulated, no calibrated data\n", src.name.c_str(), src.flux);
            ok = false;
            continue;
        }
        const double got = it->second.first / static_cast<double>(it->second.second);
        const double ratio = got / src.flux;
        const bool good = std::fabs(ratio - 1.0) <= tolerance;
        ok = ok && good;
        std::printf("  %-10s %8.4f Jy simulated, %8.4f Jy recovered, ratio %.4f (%+.2f %%) %s\n",
                    src.name.c_str(), src.flux, got, ratio, (ratio - 1.0) * 100.0,
                    good ? "ok" : "OUTSIDE TOLERANCE");
    }
    // Flatness of the calibrated spectra and of the simulated bandpass products they started from.
    double ampAfter = 0, phAfter = 0, ampBefore = 0, phBefore = 0;
    long n = 0;
    for (const auto& [key, spec] : spectra) {
        const auto [a1, a2, f, s] = key;
        int h1 = 0, h2 = 0;
        if (!ASimTruth::Hands(header.stokes[s], h1, h2)) continue;
        std::vector<std::complex<double>> model(static_cast<std::size_t>(nChan));
        for (int c = 0; c < nChan; ++c)
            model[static_cast<std::size_t>(c)] =
                truth.Bandpass(a1, f, h1, c) * std::conj(truth.Bandpass(a2, f, h2, c));
        double a, p;
        flatness(spec, a, p);
        ampAfter += a * a;
        phAfter += p * p;
        flatness(model, a, p);
        ampBefore += a * a;
        phBefore += p * p;
        ++n;
    }
    if (n > 0) {
        std::printf("bandpass residual rms across channels, over %ld baseline spectra:\n", n);
        std::printf("  amplitude: %.4f (simulated bandpass before calibration: %.4f)\n",
                    std::sqrt(ampAfter / n), std::sqrt(ampBefore / n));
        std::printf("  phase:     %.4f rad (simulated bandpass before calibration: %.4f rad)\n",
                    std::sqrt(phAfter / n), std::sqrt(phBefore / n));
    }
    std::printf("%s (tolerance %.1f %%)\n", ok ? "PASS" : "FAIL", tolerance * 100.0);
    return ok ? 0 : 1;
}
