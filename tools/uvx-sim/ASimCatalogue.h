// ASimCatalogue: the built-in stations and sources that a simulated observation can use.
#pragma once

#include <string>
#include <vector>

// A VLBI station with its public geocentric position and round figures for its receiver.
struct ASimStationInfo {
    const char* code;  // two-letter station code, upper case
    double x, y, z;    // geocentric metres, right-handed (X to Greenwich, Z to the pole)
    double tsys;       // typical zenith system temperature at 5 GHz, K
    double dpfu;       // gain in K/Jy
    int bits;          // bits per sample of the digitiser
};

// A compact radio source with its J2000 position and a round flux density at 5 GHz.
struct ASimSourceInfo {
    const char* name;  // upper case
    double ra, dec;    // degrees
    double flux;       // Jy
};

class ASimCatalogue {
  public:
    // The entry of `code` or `name`, null if the catalogue lacks it (exact, upper-case comparison).
    static const ASimStationInfo* Station(const std::string& code);
    static const ASimSourceInfo* Source(const std::string& name);
    static const std::vector<ASimStationInfo>& Stations();
    static const std::vector<ASimSourceInfo>& Sources();
};
