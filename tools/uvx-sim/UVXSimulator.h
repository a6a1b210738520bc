// UVXSimulator: a simulated VLBI observation (UVX file, ANTAB file, truth) and the model it follows.
#pragma once

#include <complex>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include <merovane/foundation/AFile.h>
#include <merovane/platform/CString.h>
#include <merovane/uvx/AUVXRecords.h>

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
};

// One built-in station or source.
struct ASimStationInfo {
    const char* code;
    double x, y, z;  // geocentric metres, right-handed
    double tsys;     // typical zenith Tsys in K
    double dpfu;     // K/Jy
    int bits;        // default bits per sample
};
struct ASimSourceInfo {
    const char* name;
    double ra, dec;  // degrees, J2000
    double flux;     // Jy
};
class ASimCatalogue {
  public:
    // The entry of `code`, null if the catalogue lacks it (codes compare exactly, upper case).
    static const ASimStationInfo* Station(const std::string& code);
    static const ASimSourceInfo* Source(const std::string& name);
    static const std::vector<ASimStationInfo>& Stations();
    static const std::vector<ASimSourceInfo>& Sources();
};

// One Tsys row as the amplitude calibration holds it after loading the ANTAB file: the time is the
// Modified Julian Date of 0h of the row's day plus the day fraction of its hh:mm.mm, values are the
// numbers written in the file (0.0: no measurement there), one per Tsys position
// polIndex * nIF + iIF.
struct ASimTsysRow {
    double mjd;
    std::vector<double> values;
};

struct ASimStationTruth {
    std::string code;
    int id = 0;                  // telescope ID of the AN table
    double x = 0, y = 0, z = 0;  // metres, as in the AN table
    int bits = 2;                // bits per sample; NO_LEVELS is 2^bits
    double quantFactor = 1.0;    // f: the quantisation loss of `bits` (float widened), 1 without quantisation
    double dpfu[2] = {1.0, 1.0};       // K/Jy by polarisation index (see ASimTruth::PolIndex)
    int polyType = 1;                  // 0 none, 1 elevation, 2 zenith angle, 3 hour angle
    std::vector<double> poly;          // gain polynomial, lowest order first, as written (may be empty)
    double ft = 1.0;                   // FT of the ANTAB file: factor on every Tsys value
    double freqLow = 0, freqHigh = 0;  // Hz, the FREQ range of the GAIN block
    bool tsysPerIF = true;             // false: one INDEX range per polarisation, one Tsys for all IFs
    std::vector<ASimTsysRow> tsys;     // ascending in time
    std::vector<double> level;         // m per [iIF * 2 + hand], hand 0 R, 1 L
    std::vector<std::complex<double>> bandpass;  // B per [(iIF * 2 + hand) * nChan + iChan]
};

struct ASimSourceTruth {
    std::string name;
    int id = 0;                      // ID of the SU table
    double ra = 0, dec = 0;          // degrees
    double flux = 0;                 // Jy, the parallel hands (RR, LL)
    std::complex<double> crossFlux;  // Jy, RL; LR carries its conjugate
};

// Everything the simulation used, and the model values of each stage of a record's elements.
// A record is named by its group (time, sourceId, ant1, ant2); elements by (iIF, iChan, iStokes).
// The functions do not check their arguments beyond returning 0 for an unknown station or source.
class ASimTruth {
  public:
    // Cross-hand autocorrelations (RL, LR of one station) carry this share of sqrt(mR mL) BR conj(BL).
    static constexpr double kCrossHandAutoLeak = 0.05;

    double refJD = 0;  // Julian date of 0h of the reference day
    int nIF = 0, nChan = 0;
    std::vector<int> stokes;  // FITS codes of the products, in file order
    int nPol = 0;             // parallel hands among the products (1 or 2)
    double refFreq = 0, chanWidth = 0, ifBandwidth = 0, intTime = 0;
    double noiseScale = 0;
    bool bandpassOn = true, levelsOn = true, quantisationOn = true;
    std::vector<ASimStationTruth> stations;
    std::vector<ASimSourceTruth> sources;

    const ASimStationTruth* Station(int id) const;
    const ASimSourceTruth* Source(int id) const;
    // Hands of a product code: hand 0 R, 1 L, for the first and second antenna; false for codes
    // other than -1..-4.
    static bool Hands(int code, int& hand1, int& hand2);
    // Polarisation index of a hand as the amplitude calibration counts it: R 0, L nPol - 1.
    int PolIndex(int hand) const { return hand == 0 ? 0 : nPol - 1; }
    // Modified Julian Date of a record time (seconds from 0h of the reference day).
    double Mjd(double seconds) const;

    // Tsys in K at `mjd` for a Tsys position, FT applied, interpolated between the measured rows
    // exactly as the ANTAB reader's lookup does; false if the position has no measurement.
    bool Tsys(int stationId, int position, double mjd, double& tsys) const;
    // The gain polynomial's value at `mjd` towards `sourceId` (DPFU not applied) as the ANTAB
    // gain lookup computes it; 1.0 without coefficients.
    double GainPoly(int stationId, int sourceId, double mjd) const;
    // Elevation of a source in degrees (90 minus the zenith angle of the gain computation).
    double Elevation(int stationId, int sourceId, double mjd) const;
    // SEFD in Jy of a station for a hand and IF at a record: Tsys / (DPFU x P); 0 if unknown.
    double Sefd(int stationId, int hand, int iIF, int sourceId, double mjd) const;

    // Bandpass value; 1 when the bandpass is off.
    std::complex<double> Bandpass(int stationId, int iIF, int hand, int iChan) const;
    // Digitiser power level m; 1 when levels are off.
    double Level(int stationId, int iIF, int hand) const;

    // The correlator's value of an element without noise: what the file holds but for the noise.
    //   cross: Sprod x sqrt(f1 f2) x sqrt(m1 m2) x B1 conj(B2) / sqrt(SEFD1 x SEFD2)
    //   auto:  A x sqrt(m1 m2) x B1 conj(B2), A = 1 for RR and LL, kCrossHandAutoLeak for RL and LR
    // Sprod is the source's flux for RR and LL, crossFlux for RL and its conjugate for LR.
    std::complex<double> RawModel(const AUVXGroup& group, int iIF, int iChan, int iStokes) const;
    // Before digitisation: RawModel / (sqrt(f1 f2) x sqrt(m1 m2)); f is 1 for an autocorrelation.
    std::complex<double> PreDigitisationModel(const AUVXGroup& group, int iIF, int iChan, int iStokes) const;
    // The calibrated value: the flux (Sprod; for an autocorrelation A x sqrt(SEFD1 x SEFD2)),
    // times B1 conj(B2) when `withBandpass`. PreDigitisationModel x sqrt(SEFD1 x SEFD2) equals it
    // with the bandpass.
    std::complex<double> CalibratedModel(const AUVXGroup& group, int iIF, int iChan, int iStokes,
                                         bool withBandpass) const;
    // The radiometer noise's standard deviation of each component of an element in the file (the
    // imaginary part of an autocorrelation has none).
    double NoiseSigma(const AUVXGroup& group, int iIF, int iChan, int iStokes) const;
    // The weight written for an element that is not flagged (flagged ones have its negative).
    double Weight() const { return chanWidth * intTime * 1e-6; }

    // Writes the sidecar text (docs/uvx-sim.md) and reads it back; false with `error` on failure.
    bool Save(std::ostream& out) const;
    bool Save(const char* path, CString* error) const;
    bool Load(std::istream& in, CString* error);
    bool Load(const char* path, CString* error);
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
