// AColumnInfo, ATsysTable and AAntabTlsc: one telescope of an ANTAB file, its Tsys rows and gain model.
#pragma once

#include <cstdint>

#include <cstddef>
#include <vector>

#include <merovane/foundation/AArray.h>
#include <merovane/platform/CString.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXSources.h>

// What one value column of an ANTAB data row means; copied field by field.
//   pol:   -1 R, -2 L (the Stokes codes of RR and LL), 0 a column to pass over
//   first: first IF band of the column, counted from 1; -1 for a column to pass over
//   last:  last IF band, inclusive; -1 for a column to pass over
// An item with first above last covers nothing.
struct MEROVANE_API AColumnInfo {
    // The Tsys positions (counted from 0) that this item fills in a telescope of nPol parallel hands
    // and nIF bands: `from` to `to`, R from 0 and L from (nPol - 1) x nIF, IFs above nIF passed over.
    // False when it fills none: an X item, a first IF not above 0, a range that ends before it starts.
    bool Positions(int nPol, int nIF, int& from, int& to) const;

    int pol;
    int first;
    int last;
};

extern template class MEROVANE_API AArray<AColumnInfo>;

// A growing table of double rows, row after row in `data`. The width `cols` is fixed while the
// table is empty; rows are appended with AddRow. Storage grows by `growBy` rows when `capacity` is
// reached, the old rows kept. A copy owns its own rows, with capacity equal to rows. The rows are
// held in malloc storage (released with free).
struct MEROVANE_API ATsysTable {
    ATsysTable() = default;
    ATsysTable(const ATsysTable& other);
    ATsysTable& operator=(const ATsysTable& other);
    ~ATsysTable();

    // Sets the width in doubles (below 0 counts as 0) and drops all rows.
    void SetCols(int n);
    // Appends a row of zeros and returns it (cols doubles).
    double* AddRow();
    double* Row(int r) { return data + static_cast<long long>(r) * cols; }
    const double* Row(int r) const { return data + static_cast<long long>(r) * cols; }

    int rows = 0;      // rows in use
    int cols = 0;      // doubles per row
    int capacity = 0;  // rows allocated
    int growBy = 256;  // rows added when full (a value below 1 counts as 1)
    double* data = nullptr;
};

// One telescope of an ANTAB file: what the parser of AAntabData::Load put into it, completed by
// AAntabData::CheckValid (antenna ID, position, row dates), and the two questions of the amplitude
// calibration: Tsys at a time for a polarisation and IF, gain at a time and frequency for a source.
//
// Times are Modified Julian Dates in days (integer day plus fraction). Rows of m_tsys: column 0 the
// day (day of the year until FixDate, then the MJD of 0h of that day), column 1 the fraction of the
// day, then Tsys position p in column p + 2, where p = polarisation index x m_nIF + IF index (R has
// polarisation index 0, L has m_nPol - 1). A Tsys value not above 0.0 means "no measurement".
class MEROVANE_API AAntabTlsc {
public:
    AAntabTlsc() = default;
    ~AAntabTlsc() = default;
    // Member by member with own copies of the lists and the table (capacities equal to counts).
    // The move forms do the same and leave the source unchanged.
    AAntabTlsc(const AAntabTlsc& other);
    AAntabTlsc& operator=(const AAntabTlsc& other);
    AAntabTlsc(AAntabTlsc&& other) : AAntabTlsc(static_cast<const AAntabTlsc&>(other)) {}
    AAntabTlsc& operator=(AAntabTlsc&& other) { return *this = static_cast<const AAntabTlsc&>(other); }

    // One item of an INDEX list, quotes already removed: "R1:4" is R with IFs 1 to 4, "L3" is L with
    // IF 3, "X..." a column to pass over. Always returns true.
    // A text whose first character is none of X, L, R (an empty text included) is taken as a column
    // to pass over, like X: pol 0, first and last -1. Such a column still counts in a data row.
    bool ColumnInfoParse(CString& text, AColumnInfo& info);

    // Turns the day numbers of column 0 into MJDs, the year being that of Julian date refJD (every
    // fourth year a leap year, valid 1901-2099; a day past the year's end runs on into the next).
    // Works in place and cannot be repeated. Throws COleException where JulianToDate does (a refJD
    // before 1900).
    void FixDate(double refJD);

    // Tsys at `time` (MJD) for Tsys position `position`, times m_ft: linear interpolation between
    // the measured rows around `time`, held at the nearest measured row outside them. False with
    // "Error> <AAntabTlsc> AN=<m_name>, TSYS for <hh:mm:ss.ss> not found." when the column has no
    // measured row; a position outside the table's Tsys columns counts as such a column.
    //
    // The answer is that of a forward scan from row 0, which stops at the first measured row at or
    // after `time`. Where the measured rows of a column ascend in time (the normal case) the same
    // rows are found by bisection over an index of the column, built at the first query; elsewhere
    // the scan runs. A column measured in every row shares one bisection over the rows with the
    // other such columns, so the positions of one record cost one search. Rows appended after a
    // query are seen; values changed in place, or a table refilled after SetCols, need
    // ResetTsysIndex (FixDate calls it).
    bool GetTsys(double time, int position, double& tsys);

    // Gain of the first and second polarisation into gain[0], gain[1] (m_dpfu applied) at `time`
    // (MJD) and `freq` (Hz) for `source`. False with
    //   "Error> <AAntabTlsc> AN=<m_name>, freq. not in range"  for freq outside [m_freqLow, m_freqHigh];
    //   "Error> <AAntabTlsc> AN=<m_name>, m_polyType == 0"     for 2+ coefficients and no known kind.
    // With no coefficient the gain is m_dpfu, with one it is m_dpfu times it. Otherwise the
    // polynomial runs in elevation (1), zenith angle (2), both in degrees, or hour angle in degrees,
    // not reduced to any range (3), of the source at the station m_x, m_y, m_z.
    bool GetGain(double time, double freq, AUVXSourceItem& source, double* gain);

    // Drops the index of GetTsys; the next query builds it again.
    void ResetTsysIndex();

    // A number that no other telescope object has had and that changes with every ResetTsysIndex:
    // answers of GetTsys kept together with it stay good while it stays the same and the table keeps
    // its rows (values changed in place need ResetTsysIndex, as for the index).
    std::uint64_t TsysStamp() const { return m_tsysStamp; }

    CString m_name;            // station name, upper case
    int m_polyType = 0;        // 0 none, 1 "ELEV", 2 "ALTAZ", 3 "EQUAT"
    double m_ft = 1.0;         // factor on every Tsys value
    double m_timeOff = 0.0;    // TIMEOFF of the file, stored only
    double m_freqLow = 0.0;    // Hz
    double m_freqHigh = 1e38;  // Hz
    double m_dpfu[2] = {1.0, 1.0};
    AArray<double> m_poly;         // coefficients, lowest order first
    int m_nCol = 0;                // value columns a data row may have
    AArray<AColumnInfo> m_index;   // column meanings from INDEX
    AArray<AColumnInfo> m_index2;  // column meanings from INDEX2
    ATsysTable m_tsys;             // the data rows
    int m_nPol = 0;                // polarisations of the file when the telescope was made
    int m_nIF = 0;                 // IF bands of the file when the telescope was made
    int m_antID = -1;              // telescope ID of the AN table, -1 if the table lacks the station
    double m_x = 0.0, m_y = 0.0, m_z = 0.0;  // metres, right-handed
    CString m_errMsg;                        // message of the last failed GetTsys or GetGain

    // Internal, for tests and benchmarks: true makes GetTsys always run the forward scan.
    bool m_forceScan = false;

private:
    // The measured rows of one Tsys column in file order: their times and values. A column measured
    // in every row of a table whose rows ascend keeps no lists: it shares the rows' own times.
    struct ColumnIndex {
        bool built = false;
        bool ascending = false;
        bool full = false;
        std::vector<double> times;
        std::vector<double> values;
    };

    static std::uint64_t nextTsysStamp();

    bool scanTsys(double time, int position, double& tsys);
    const ColumnIndex& columnIndex(int position);
    std::size_t rowBound(double time);
    bool failTsys(double time);

    std::vector<ColumnIndex> m_tsysIndex;
    std::vector<double> m_rowTimes;  // time of every row, when m_rowsAscending
    bool m_rowsAscending = false;
    bool m_rowsIndexed = false;
    double m_lastTime = 0.0;  // the last time looked up in m_rowTimes, and its bound
    std::size_t m_lastBound = 0;
    bool m_haveLast = false;
    const double* m_indexData = nullptr;
    int m_indexRows = 0;
    int m_indexCols = 0;
    std::uint64_t m_tsysStamp = nextTsysStamp();
};
