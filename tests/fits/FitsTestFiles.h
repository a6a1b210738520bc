// FitsTestFiles: UVFITS and FITS-IDI files written with cfitsio for the bridge's tests.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "ASimTruth.h"

// A scratch path of the fits tests: MEROVANE_TEST_TMP/fits-<name>.
std::string FitsTmpPath(const std::string& name);
bool FitsFileExists(const std::string& path);
void FitsRemove(const std::string& path);

// A random-group file described axis by axis and parameter by parameter.
struct AUVFitsAxisPlan {
    std::string type;
    long length;
    double crval, cdelt, crpix;
};
struct AUVFitsParamPlan {
    std::string name;
    double scale = 1.0;
    double zero = 0.0;
};
struct AUVFitsStation {
    std::string name;
    int id;
    double x, y, z;
};
struct AUVFitsPlan {
    int bitpix = -32;
    std::vector<AUVFitsAxisPlan> axes;  // FITS axes 2.. in order
    std::vector<AUVFitsParamPlan> params;
    long gcount = 0;
    // Fills the raw (stored) parameters and data values of group g (from 0).
    std::function<void(long g, std::vector<double>& params, std::vector<double>& data)> fill;
    std::string dateObs = "2020-01-02";
    std::string object = "SRC1";
    double bscale = 1.0, bzero = 0.0;
    bool withAN = true;
    std::string xyzhand = "RIGHT";  // empty: no keyword
    std::vector<AUVFitsStation> stations = {
        {"AA", 1, 1e6, 2e6, 3e6}, {"BB", 2, -4e6, 5e6, 6e6}, {"CC", 3, 7e6, -8e6, 9e6}};
    bool withFQ = true;
    int nIF = 1;
    std::vector<double> ifFreq;  // FQ offsets; empty: 0, 8e6, 16e6, ...
    bool withSU = false;
    bool truncateData = false;  // cut the file inside the data unit
};
// Writes `plan` to `path`; false with `error`.
bool WriteUVFits(const std::string& path, const AUVFitsPlan& plan, std::string& error);

// A FITS-IDI file carrying the records and tables of a UVX file (as the simulator writes it) in the
// layout correlators produce: ARRAY_GEOMETRY, ANTENNA (NO_LEVELS from the AI table), SOURCE,
// FREQUENCY, the records split over two UV_DATA tables, and optionally FLAG, GAIN_CURVE and
// SYSTEM_TEMPERATURE (from `truth`).
struct AIdiFlagRow {
    int source = 0, ant1 = 0, ant2 = 0;
    double t0 = 0, t1 = 0;  // days from 0h of the reference day
    std::vector<int> bands;
    int chan0 = 0, chan1 = 0;
    std::vector<int> pflags;
};
struct AIdiOptions {
    long splitAt = -1;          // first record of the second UV_DATA table; -1: half
    bool weightColumn = false;  // COMPLEX of length 2 and a WEIGHT column per band and product
    bool apriori = true;        // GAIN_CURVE and SYSTEM_TEMPERATURE from the truth
    std::vector<AIdiFlagRow> flags;
    bool withFrequency = true;  // false: leave out FREQUENCY (a broken file)
    bool withGeometry = true;   // false: leave out ARRAY_GEOMETRY
    int nStokesOverride = 0;    // nonzero: claim this many products in MAXIS (a broken file)
};
bool WriteIdiFromUvx(const std::string& uvxPath, const ASimTruth* truth, const std::string& out,
                     const AIdiOptions& options, std::string& error);
