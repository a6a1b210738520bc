// uvx-sim: writes a simulated VLBI observation (OUT.uvx), its ANTAB file and its truth.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "UVXSimulator.h"

namespace {

const char* const kUsage =
    "usage: uvx-sim [options] OUT.uvx\n"
    "Writes OUT.uvx (a simulated observation), OUT.antab (its Tsys and gains) and OUT.truth\n"
    "(what the simulation used); a name without .uvx gets the three suffixes appended.\n"
    "options (defaults in brackets):\n"
    "  --stations EF,WB,...   station codes [EF,WB,ON,MC,NT,YS]\n"
    "  --sources 3C84,...     source names; scans alternate between them [3C84,4C39.25,3C345]\n"
    "  --fluxes 1.5,2,...     Jy per source [the catalogue's]\n"
    "  --bits 2,1,...         bits per sample per station [the catalogue's]\n"
    "  --nif N                IF bands, 1..16 [4]\n"
    "  --nchan N              channels per IF, 1..4096 [32]\n"
    "  --products RR,LL,RL,LR polarisation products, parallel hands first [RR,LL,RL,LR]\n"
    "  --int S                integration time in s [4]\n"
    "  --duration S           length of the observation in s [1800]\n"
    "  --scan S               scan length in s [240]\n"
    "  --gap S                gap between scans in s [60]\n"
    "  --year Y --day D       reference day [2024, 100]\n"
    "  --start S              start of the first scan, s from 0h [72000]\n"
    "  --freq HZ              start frequency of IF 1 [4.99e9]\n"
    "  --bandwidth HZ         bandwidth of one IF [16e6]\n"
    "  --seed N               random seed [1]\n"
    "  --noise X              noise scale, 0 for none [1]\n"
    "  --flag-fraction X      share of flagged cross-correlation elements [0.002]\n"
    "  --min-elevation DEG    stations below record nothing [5]\n"
    "  --tsys-step S          seconds between Tsys rows [60]\n"
    "  --bandpass-phase-max R bandpass phases scaled to a largest magnitude of R rad, 0..pi [0: as drawn]\n"
    "  --no-bandpass --no-levels --no-quantisation --no-noise --no-flags\n"
    "  --list                 print the station and source catalogues and exit\n";

int Usage(const std::string& problem) {
    if (!problem.empty()) std::cerr << "uvx-sim: " << problem << "\n";
    std::cerr << kUsage;
    return 2;
}

std::vector<std::string> Split(const std::string& text) {
    std::vector<std::string> out;
    std::string item;
    for (char ch : text) {
        if (ch == ',') {
            out.push_back(item);
            item.clear();
        } else {
            item += static_cast<char>(ch >= 'a' && ch <= 'z' ? ch - 'a' + 'A' : ch);
        }
    }
    out.push_back(item);
    return out;
}

bool ToDouble(const std::string& text, double& value) {
    if (text.empty()) return false;
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return *end == '\0';
}

bool ToInt(const std::string& text, long long& value) {
    if (text.empty()) return false;
    char* end = nullptr;
    value = std::strtoll(text.c_str(), &end, 10);
    return *end == '\0';
}

}  // namespace

int main(int argc, char** argv) {
    ASimConfig config;
    std::string out;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::cout << kUsage;
            return 0;
        }
        if (arg == "--list") {
            for (const ASimStationInfo& s : ASimCatalogue::Stations())
                std::printf("station %-3s %14.3f %14.3f %14.3f  Tsys %5.1f K  DPFU %5.2f K/Jy  %d bit\n",
                            s.code, s.x, s.y, s.z, s.tsys, s.dpfu, s.bits);
            for (const ASimSourceInfo& s : ASimCatalogue::Sources())
                std::printf("source  %-9s RA %11.6f  Dec %10.6f  %5.1f Jy\n", s.name, s.ra, s.dec, s.flux);
            return 0;
        }
        if (arg == "--no-bandpass") {
            config.bandpass = false;
            continue;
        }
        if (arg == "--no-levels") {
            config.levels = false;
            continue;
        }
        if (arg == "--no-quantisation") {
            config.quantisation = false;
            continue;
        }
        if (arg == "--no-noise") {
            config.noiseScale = 0;
            continue;
        }
        if (arg == "--no-flags") {
            config.flags = false;
            continue;
        }
        if (arg.size() > 2 && arg.compare(0, 2, "--") == 0) {
            if (i + 1 >= argc) return Usage("option " + arg + " needs a value");
            const std::string val = argv[++i];
            double d = 0;
            long long n = 0;
            if (arg == "--stations") {
                config.stations = Split(val);
            } else if (arg == "--sources") {
                config.sources = Split(val);
            } else if (arg == "--products") {
                config.products = Split(val);
            } else if (arg == "--fluxes" || arg == "--bits") {
                std::vector<double> values;
                for (const std::string& item : Split(val)) {
                    if (!ToDouble(item, d)) return Usage("bad number in " + arg + ": " + item);
                    values.push_back(d);
                }
                if (arg == "--fluxes") {
                    config.fluxes = values;
                } else {
                    config.bits.clear();
                    for (double v : values) {
                        if (v != static_cast<int>(v)) return Usage("bits must be whole numbers");
                        config.bits.push_back(static_cast<int>(v));
                    }
                }
            } else if (arg == "--nif" || arg == "--nchan" || arg == "--year" || arg == "--day" ||
                       arg == "--seed") {
                if (!ToInt(val, n) || n < 0 || n > 0x7FFFFFFF)
                    return Usage("bad integer for " + arg + ": " + val);
                if (arg == "--nif") config.nIF = static_cast<int>(n);
                if (arg == "--nchan") config.nChan = static_cast<int>(n);
                if (arg == "--year") config.year = static_cast<int>(n);
                if (arg == "--day") config.dayOfYear = static_cast<int>(n);
                if (arg == "--seed") config.seed = static_cast<std::uint64_t>(n);
            } else {
                if (!ToDouble(val, d)) return Usage("bad number for " + arg + ": " + val);
                if (arg == "--int")
                    config.intTime = d;
                else if (arg == "--duration")
                    config.duration = d;
                else if (arg == "--scan")
                    config.scanLength = d;
                else if (arg == "--gap")
                    config.scanGap = d;
                else if (arg == "--start")
                    config.startTime = d;
                else if (arg == "--freq")
                    config.refFreq = d;
                else if (arg == "--bandwidth")
                    config.ifBandwidth = d;
                else if (arg == "--noise")
                    config.noiseScale = d;
                else if (arg == "--flag-fraction")
                    config.flagFraction = d;
                else if (arg == "--min-elevation")
                    config.minElevation = d;
                else if (arg == "--tsys-step")
                    config.tsysStep = d;
                else if (arg == "--bandpass-phase-max")
                    config.bandpassPhaseMax = d;
                else
                    return Usage("unknown option " + arg);
            }
            continue;
        }
        if (!out.empty()) return Usage("more than one output file");
        out = arg;
    }
    if (out.empty()) return Usage("no output file");
    CString problem;
    if (!CheckSimConfig(config, &problem)) return Usage(problem.GetString());

    std::string base = out;
    if (base.size() > 4 && base.compare(base.size() - 4, 4, ".uvx") == 0) base.resize(base.size() - 4);
    const std::string uvx = base + ".uvx", antab = base + ".antab", truth = base + ".truth";
    ASimTruth t;
    if (!Simulate(config, uvx.c_str(), antab.c_str(), truth.c_str(), &t, &problem)) {
        std::cerr << "uvx-sim: " << problem.GetString() << "\n";
        return 1;
    }
    std::cout << "wrote " << uvx << ", " << antab << ", " << truth << "\n";
    return 0;
}
