// ASimTruth: what a simulated observation used, and the model value of its elements at each stage.
#pragma once

#include <complex>
#include <iosfwd>
#include <string>
#include <vector>

#include <merovane/platform/CString.h>
#include <merovane/uvx/AUVXRecords.h>

// One Tsys row as the ANTAB reader holds it after loading: `mjd` is the Modified Julian Date of 0h
// of the row's day plus the day fraction of its hh:mm.mm, computed as the reader does; `values`
// are the numbers written in the file (0.0: no measurement there), one per Tsys position
// polIndex x nIF + iIF, FT not applied.
struct ASimTsysRow {
    double mjd = 0;
    std::vector<double> values;
};

struct ASimStationTruth {
    std::string code;
    int id = 0;                        // telescope ID of the AN table
    double x = 0, y = 0, z = 0;        // metres, as in the AN table (right-handed)
    int bits = 2;                      // bits per sample; the "AI" table's NO_LEVELS is 2^bits
    double quantFactor = 1.0;          // f of `bits` (a float widened); 1 without quantisation
    double dpfu[2] = {1.0, 1.0};       // K/Jy by polarisation index (ASimTruth::PolIndex), as written
    int polyType = 1;                  // 0 none, 1 elevation (ELEV), 2 zenith angle (ALTAZ), 3 hour angle
    std::vector<double> poly;          // gain polynomial, lowest order first, as written (may be empty)
    double ft = 1.0;                   // FT of the TSYS block: factor on every Tsys value
    double freqLow = 0, freqHigh = 0;  // Hz, the FREQ range of the GAIN block
    bool tsysPerIF = true;             // false: one INDEX range per hand, one Tsys value for all IFs
    std::vector<ASimTsysRow> tsys;     // ascending in time
    std::vector<double> level;         // m by [iIF x 2 + hand], hand 0 R, 1 L
    std::vector<std::complex<double>> bandpass;  // B by [(iIF x 2 + hand) x nChan + iChan]
};

struct ASimSourceTruth {
    std::string name;
    int id = 0;                      // ID of the SU table and of AUVXGroup::sourceId
    double ra = 0, dec = 0;          // degrees
    double flux = 0;                 // Jy, parallel hands (RR, LL)
    std::complex<double> crossFlux;  // Jy, RL; LR carries its conjugate
};

// Everything a simulation used. A record is named by its group (time, sourceId, ant1, ant2), an
// element by (iIF, iChan, iStokes). Hands: 0 is R, 1 is L. Model functions give 0 for a station,
// source or product they do not know.
//
// The model of an element, stage by stage:
//   raw (the file, without noise):
//     cross-correlation  Sprod x sqrt(f1 f2) x sqrt(m1 m2) x B1 conj(B2) / sqrt(SEFD2 x SEFD1)
//     autocorrelation    A x sqrt(m1 m2) x B1 conj(B2)
//   before digitisation: raw / (sqrt(f1 f2) x sqrt(m1 m2)), f taken as 1 for an autocorrelation
//   calibrated: before digitisation x sqrt(SEFD1 x SEFD2), which is Flux x B1 conj(B2), and Flux
//     without the bandpass.
// Sprod is the source's flux for RR and LL, crossFlux for RL and its conjugate for LR; A is 1 for
// RR and LL and kCrossHandAutoLeak for RL and LR; Flux is Sprod for a cross-correlation and
// A x sqrt(SEFD1 x SEFD2) for an autocorrelation. SEFD = Tsys x FT / (DPFU x P), with Tsys
// interpolated and P evaluated as the ANTAB calibration does.
class ASimTruth {
  public:
    static constexpr double kCrossHandAutoLeak = 0.05;

    double refJD = 0;  // Julian date of 0h of the reference day
    int nIF = 0, nChan = 0;
    std::vector<int> stokes;  // FITS codes of the products in file order
    int nPol = 0;             // parallel hands among the products, 1 or 2
    double refFreq = 0;       // Hz, start of IF 1
    double chanWidth = 0;     // Hz
    double ifBandwidth = 0;   // Hz
    double intTime = 0;       // s
    double noiseScale = 0;
    bool bandpassOn = true, levelsOn = true, quantisationOn = true;
    std::vector<ASimStationTruth> stations;
    std::vector<ASimSourceTruth> sources;

    const ASimStationTruth* Station(int id) const;
    const ASimSourceTruth* Source(int id) const;
    // Hands of the first and second antenna of a product code; false for codes other than -1..-4.
    static bool Hands(int code, int& hand1, int& hand2);
    // Polarisation index of a hand as the ANTAB calibration counts it: R 0, L nPol - 1.
    int PolIndex(int hand) const { return hand == 0 ? 0 : nPol - 1; }
    // Modified Julian Date of a record time in seconds from 0h of the reference day.
    double Mjd(double seconds) const;
    // Start frequency of IF `iIF` in Hz.
    double IFFreq(int iIF) const { return refFreq + iIF * ifBandwidth; }

    // Tsys in K, FT applied, at `mjd` for a Tsys position, interpolated between the measured rows
    // as the ANTAB lookup does (held at the nearest row outside them); false if the position has
    // no measurement.
    bool Tsys(int stationId, int position, double mjd, double& tsys) const;
    // The gain polynomial at `mjd` towards `sourceId`, DPFU not applied: the first coefficient
    // alone for one, 1.0 for none.
    double GainPoly(int stationId, int sourceId, double mjd) const;
    // Elevation of a source in degrees, as the gain computation derives it.
    double Elevation(int stationId, int sourceId, double mjd) const;
    // System equivalent flux density in Jy: Tsys x FT / (DPFU x P); 0 if unknown.
    double Sefd(int stationId, int hand, int iIF, int sourceId, double mjd) const;
    // Bandpass value; 1 when the bandpass is off.
    std::complex<double> Bandpass(int stationId, int iIF, int hand, int iChan) const;
    // Digitiser power level m; 1 when levels are off.
    double Level(int stationId, int iIF, int hand) const;
    // Quantisation factor f of a station; 1 without quantisation.
    double QuantFactor(int stationId) const;

    // The stages of the model (see the class comment).
    std::complex<double> RawModel(const AUVXGroup& group, int iIF, int iChan, int iStokes) const;
    std::complex<double> PreDigitisationModel(const AUVXGroup& group, int iIF, int iChan, int iStokes) const;
    std::complex<double> CalibratedModel(const AUVXGroup& group, int iIF, int iChan, int iStokes,
                                         bool withBandpass) const;
    // The channel-independent part of RawModel: RawModel = RecordScale x B1 x conj(B2), evaluated in
    // that order. The simulator writes exactly float(RawModel) when there is no noise.
    std::complex<double> RecordScale(const AUVXGroup& group, int iIF, int iStokes) const;
    // B1 x conj(B2) of an element; for one station and one hand |B|^2, exactly real.
    std::complex<double> BandpassProduct(const AUVXGroup& group, int iIF, int iChan, int iStokes) const;
    // Standard deviation of the radiometer noise of each component of an element in raw units:
    //   cross-correlation   noiseScale x sqrt(m1 m2) x |B1 B2| / sqrt(2 x chanWidth x intTime)
    //   RR, LL autocorrelation, real part only   noiseScale x m x |B|^2 / sqrt(chanWidth x intTime)
    //   RL, LR autocorrelation   as a cross-correlation
    double NoiseSigma(const AUVXGroup& group, int iIF, int iChan, int iStokes) const;
    // The weight of an element that is not flagged; a flagged one carries its negative.
    double Weight() const { return chanWidth * intTime * 1e-6; }

    // The sidecar text (docs/uvx-sim.md). Save writes every number so that Load gives it back
    // bit for bit. False with `error` when the stream or file fails or the text is not such a file.
    bool Save(std::ostream& out) const;
    bool Save(const char* path, CString* error) const;
    bool Load(std::istream& in, CString* error);
    bool Load(const char* path, CString* error);
};
