// AFitsTables: FITS binary tables to UVX tables and back (stations, sources, frequencies, any table).
#pragma once

#include <memory>
#include <string>

#include <merovane/uvx/AUVXTable.h>

#include "AFitsFile.h"

// Column names of a FITS source or frequency table: AIPS tables and FITS-IDI tables say the same
// with other names.
struct AFitsSourceColumns {
    const char* id;
    const char* name;
    const char* ra;
    const char* dec;
};
struct AFitsFrequencyColumns {
    const char* freqSel;
    const char* ifFreq;
    const char* chWidth;
    const char* bandwidth;
    const char* sideband;
};
extern const AFitsSourceColumns kAipsSourceColumns;
extern const AFitsSourceColumns kIdiSourceColumns;
extern const AFitsFrequencyColumns kAipsFrequencyColumns;
extern const AFitsFrequencyColumns kIdiFrequencyColumns;

// Each reader works on the current HDU of `fits` and gives a new table, or null with fits.m_err.
class AFitsTables {
public:
    // Stations (AIPS AN or FITS-IDI ARRAY_GEOMETRY: ANNAME, STABXYZ, NOSTA). A left-handed table
    // (XYZHAND = 'LEFT') has its Y negated, so the UVX table is always right-handed; `declared` tells
    // whether the table said (without XYZHAND the positions are taken as they are).
    static std::unique_ptr<AUVXTable> ReadStations(AFitsFile& fits, int nIF, bool* declared = nullptr);
    static std::unique_ptr<AUVXTable> ReadSources(AFitsFile& fits, const AFitsSourceColumns& names, int nIF);
    // Frequency setups; the table's IF count must be `nIF`.
    static std::unique_ptr<AUVXTable> ReadFrequencies(AFitsFile& fits, const AFitsFrequencyColumns& names,
                                                      int nIF);
    // A table of any layout, column by column and with its own keywords, named `uvxName`.
    static std::unique_ptr<AUVXTable> ReadGeneric(AFitsFile& fits, const std::string& uvxName);
    // Writes `table` as a binary table named `extname`, columns and keywords one to one.
    static bool WriteGeneric(AFitsFile& fits, const AUVXTable& table, const std::string& extname);
};
