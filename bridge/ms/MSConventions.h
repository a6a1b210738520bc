// MSConventions: the constants and code tables shared by the export to and import from Measurement Sets.
#pragma once

#include <string>

// Speed of light in m/s: UVX keeps u v w in seconds of light travel, a Measurement Set in metres.
inline constexpr double kMSLightSpeed = 299792458.0;
inline constexpr double kMSSecondsPerDay = 86400.0;
// Julian date minus this is the Modified Julian Date; TIME of a Measurement Set is MJD x 86400 s.
inline constexpr double kMSJulianToMJD = 2400000.5;
// UVX tables that have no place of their own in a Measurement Set travel as subtables of MAIN named
// with this prefix and the UVX table's name ("UVX_SL", "UVX_AI").
inline constexpr char kMSExtraPrefix[] = "UVX_";
// Most products a UVX header holds.
inline constexpr int kMSMaxProducts = 8;
// Highest telescope ID of a UVX record.
inline constexpr int kMSMaxAntennas = 64;

// The casacore Stokes type of a UVX (FITS) product code -1..-8, 0 for any other code.
int MSCorrTypeOfProduct(int fitsCode);
// The UVX (FITS) product code of a casacore Stokes type RR..YY, 0 for any other type.
int MSProductOfCorrType(int corrType);
// Receptor indices (0 for R or X, 1 for L or Y) of a UVX product code -1..-8.
void MSReceptorsOfProduct(int fitsCode, int& first, int& second);
// True for the linear products XX, YY, XY, YX.
bool MSIsLinearProduct(int fitsCode);

// "YYYY-MM-DD" of a Modified Julian Date (proleptic Gregorian calendar).
std::string MSDateOfMJD(long mjd);

// `path` with a suffix of its own, beside it, for writing before the rename at the end.
std::string MSTemporaryPath(const std::string& path);
