// AFitsAntabWriter: the GAIN_CURVE and SYSTEM_TEMPERATURE tables of a FITS-IDI file as ANTAB text.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "AFitsFile.h"

// What the writer needs beside the two tables: station names by antenna number, each antenna's
// polarisation hands ('R' or 'L' for polarisation 1 and 2, from the ANTENNA table), the frequency
// range of the data and the reference day.
struct AFitsAntabContext {
    std::map<int, std::string> names;
    std::map<int, std::string> hands;  // two characters per antenna, e.g. "RL"
    int nBand = 1;
    double freqLowHz = 0, freqHighHz = 0;
    double refJD = 0;
    int freqId = 1;  // rows of other setups are left out
};

class AFitsAntabWriter {
public:
    // Reads GAIN_CURVE and SYSTEM_TEMPERATURE from `fits` and writes the ANTAB text to `path` (through
    // a temporary name). False with m_err (naming the input file) when a table is unreadable, an
    // antenna has another hand than R or L, or the file cannot be written. Tabulated gain curves
    // (TYPE 1) cannot be said in ANTAB: such a station gets a comment instead of its GAIN line.
    bool Write(AFitsFile& fits, const AFitsAntabContext& context, const std::string& path);

    std::string m_err;
    int m_gainStations = 0;
    int m_tsysRows = 0;
};
