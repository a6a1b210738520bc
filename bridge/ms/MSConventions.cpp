// MSConventions: product codes, dates and temporary names for the Measurement Set bridge.
#include "MSConventions.h"

#include <cstdio>

#include <casacore/measures/Measures/Stokes.h>

namespace {

// UVX codes -1..-8 (RR LL RL LR XX YY XY YX) in order, their casacore types and receptors.
struct AProductCode {
    int fits;
    casacore::Stokes::StokesTypes corr;
    int first, second;
};
const AProductCode kProducts[] = {
    {-1, casacore::Stokes::RR, 0, 0}, {-2, casacore::Stokes::LL, 1, 1}, {-3, casacore::Stokes::RL, 0, 1},
    {-4, casacore::Stokes::LR, 1, 0}, {-5, casacore::Stokes::XX, 0, 0}, {-6, casacore::Stokes::YY, 1, 1},
    {-7, casacore::Stokes::XY, 0, 1}, {-8, casacore::Stokes::YX, 1, 0},
};

}  // namespace

int MSCorrTypeOfProduct(int fitsCode) {
    for (const AProductCode& p : kProducts)
        if (p.fits == fitsCode) return p.corr;
    return 0;
}

int MSProductOfCorrType(int corrType) {
    for (const AProductCode& p : kProducts)
        if (p.corr == corrType) return p.fits;
    return 0;
}

void MSReceptorsOfProduct(int fitsCode, int& first, int& second) {
    first = second = 0;
    for (const AProductCode& p : kProducts)
        if (p.fits == fitsCode) {
            first = p.first;
            second = p.second;
        }
}

bool MSIsLinearProduct(int fitsCode) {
    return fitsCode <= -5 && fitsCode >= -8;
}

std::string MSDateOfMJD(long mjd) {
    // Civil date from a day count (days from 1970-01-01), proleptic Gregorian.
    long z = mjd - 40587 + 719468;
    const long era = (z >= 0 ? z : z - 146096) / 146097;
    const long doe = z - era * 146097;
    const long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const long mp = (5 * doy + 2) / 153;
    const long d = doy - (153 * mp + 2) / 5 + 1;
    const long m = mp < 10 ? mp + 3 : mp - 9;
    const long y = yoe + era * 400 + (m <= 2 ? 1 : 0);
    char text[64];
    std::snprintf(text, sizeof text, "%04ld-%02ld-%02ld", y, m, d);
    return text;
}

std::string MSTemporaryPath(const std::string& path) {
    std::string base = path;
    while (base.size() > 1 && base.back() == '/') base.pop_back();
    return base + ".merovane-partial";
}
