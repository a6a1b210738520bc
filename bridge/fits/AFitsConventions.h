// AFitsConventions: the conversions between FITS visibility conventions and those of a UVX file.
#pragma once

#include <string>

#include "FitsExport.h"

// Times. A UVX record's time is seconds from 0h of the reference day (a Julian date ending in .5);
// FITS files carry Julian dates, or a date text and days from it.

// Julian date of 0h UT of a Gregorian calendar date.
MEROVANE_FITS_API double AFitsJulianDate(int year, int month, int day);
// The Gregorian calendar date of 0h of the day that holds Julian date `jd`.
MEROVANE_FITS_API void AFitsCalendarDate(double jd, int& year, int& month, int& day);
// Reads a FITS date text ("YYYY-MM-DD", optionally followed by "Thh:mm:ss...", or the old
// "DD/MM/YY" of years 1900 to 1999) into the Julian date of 0h of that day; false for other text.
MEROVANE_FITS_API bool AFitsParseDate(const std::string& text, double& jd0);
// "YYYY-MM-DD" of the day that holds `jd`.
MEROVANE_FITS_API std::string AFitsDateText(double jd);
// Greenwich mean sidereal time at 0h UT of the day that starts at `jd0`, in degrees 0..360.
MEROVANE_FITS_API double AFitsGmstDegrees(double jd0);

// Baselines. A UVFITS BASELINE value is 256 ant1 + ant2 + (subarray - 1) / 100 for antenna numbers up
// to 255, and 2048 ant1 + ant2 + 65536 (plus the same fraction) for larger ones.
struct AFitsBaseline {
    int ant1 = 0;
    int ant2 = 0;
    int subarray = 1;
};
// A code that is NaN, negative or beyond 1e9 gives antennas 0 (no antenna).
MEROVANE_FITS_API AFitsBaseline AFitsDecodeBaseline(double code);
// A table or parameter value as an int: rounded, NaN as 0, clamped to the int range.
MEROVANE_FITS_API int AFitsToInt(double value);
// The code of a baseline; the large form only when an antenna number exceeds 255.
MEROVANE_FITS_API double AFitsEncodeBaseline(int ant1, int ant2, int subarray = 1);

// Stokes codes: true for the codes a UVX file may hold, -8..-1 (circular and linear products) and
// 1..4 (I Q U V).
MEROVANE_FITS_API bool AFitsStokesSupported(int code);
// "RR", "LL", ... "YX", "I", "Q", "U", "V", or "?" for another code.
MEROVANE_FITS_API const char* AFitsStokesName(int code);

// A name from a FITS text field: cut at the first NUL, trailing blanks removed.
MEROVANE_FITS_API std::string AFitsTrimName(const char* text, std::size_t size);
MEROVANE_FITS_API std::string AFitsTrimName(const std::string& text);

// Handedness of station coordinates. A file that does not say (no XYZHAND) is checked against its own
// records: the u v w of a record follow from the baseline between the two stations, the source's
// position and the sidereal time, and only the right reading of the stations' Y reproduces them.
struct AFitsUvwSample {
    double jd = 0;               // time of the record, Julian date (UT)
    double ra = 0, dec = 0;      // source, degrees
    double u = 0, v = 0, w = 0;  // the record's baseline coordinates, seconds
    double b[3] = {0, 0, 0};     // station 2 minus station 1 as the table gives it, metres
};
// Root-mean-square difference in seconds between the samples' u v w and those predicted from the
// positions read as right-handed (`right`) and with Y negated (`left`); either overall sign of the
// baseline is allowed, as writers differ there. Both are 0 without samples.
MEROVANE_FITS_API void AFitsHandednessResiduals(const AFitsUvwSample* samples, int n, double& right,
                                                double& left);
