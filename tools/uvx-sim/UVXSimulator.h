// UVXSimulator: a simulated VLBI observation (UVX file, ANTAB file, truth) and the model it follows.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include <merovane/foundation/AFile.h>
#include <merovane/platform/CString.h>

#include "ASimCatalogue.h"
#include "ASimTruth.h"

// What to simulate. Every member has a default; the default run gives a file of some tens of MB in
// a few seconds. Stations and sources are codes of the built-in catalogues (ASimCatalogue).
struct ASimConfig {
    std::vector<std::string> stations = {"EF", "WB", "ON",
                                         "MC", "NT", "YS"};           // telescope IDs 1.. in this order
    std::vector<std::string> sources = {"3C84", "4C39.25", "3C345"};  // source IDs 1.., scans alternate
    std::vector<double> fluxes;  // Jy per source; empty: the catalogue's flux of each
    std::vector<int> bits;       // bits per sample per station (1..8); empty: the catalogue's
    int nIF = 4;                 // IF bands, 1..16
    int nChan = 32;              // channels per IF, 1..4096
    std::vector<std::string> products = {"RR", "LL", "RL", "LR"};  // any of RR LL RL LR, parallel hands first
    double intTime = 4.0;                                          // seconds per record
    double duration = 1800.0;   // seconds from the first scan's start to the end of the last scan
    double scanLength = 240.0;  // seconds
    double scanGap = 60.0;      // seconds between scans
    int year = 2024;            // reference day: year and day of the year (1..366)
    int dayOfYear = 100;
    double startTime = 72000.0;   // start of the first scan, seconds from 0h of the reference day
    double refFreq = 4.99e9;      // start frequency of IF 1 in Hz; IFs follow each other upwards
    double ifBandwidth = 16e6;    // Hz per IF
    std::uint64_t seed = 1;       // all random draws follow from it
    bool bandpass = true;         // false: B = 1 for every channel
    bool levels = true;           // false: digitiser power level m = 1 everywhere
    bool quantisation = true;     // false: no quantisation loss (f = 1) and no "AI" table
    double noiseScale = 1.0;      // radiometer noise in units of the radiometer equation; 0: none
    bool flags = true;            // flag a few cross-correlation elements (negative weight)
    double flagFraction = 0.002;  // share of cross-correlation elements flagged when `flags`
    double minElevation = 5.0;    // degrees: a station below it records nothing
    double tsysStep = 60.0;       // seconds between ANTAB Tsys rows (a multiple of 0.6 s)
    double bandpassPhaseMax = 0;  // above 0: each bandpass phase scaled to this largest magnitude, radians
};

// Checks `config`; false with `error` (e.g. "unknown station XX") for one it cannot simulate.
bool CheckSimConfig(const ASimConfig& config, CString* error);

// Simulates `config`: writes the UVX file at `uvxPath`, the ANTAB file at `antabPath` and the truth
// text at `truthPath` (each may be null to skip it) and fills `truth` (may be null). False with
// `error` for a bad configuration or a file that cannot be written.
bool Simulate(const ASimConfig& config, const char* uvxPath, const char* antabPath, const char* truthPath,
              ASimTruth* truth, CString* error);
// The same into streams the caller made (e.g. an AMemFile for the UVX file); the UVX stream is not
// owned. Any of the three may be null.
bool SimulateToStreams(const ASimConfig& config, ABFile* uvx, std::ostream* antab, std::ostream* truthText,
                       ASimTruth* truth, CString* error);
