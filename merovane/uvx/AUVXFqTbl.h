// AUVXFqTbl: the frequency setups of the "FQ" table, with the header's reference frequency.
#pragma once

#include <vector>

#include <merovane/platform/Export.h>

class AUVXFile;

// The "FQ" table: columns "FRQSEL" (1J, the AUVXGroup::freqId of its records), "IF FREQ" (nIF D,
// offset of each IF's start from AUVXHeader::refFreq in Hz), "CH WIDTH" (nIF E, Hz), "TOTAL BANDWIDTH"
// (nIF E, Hz), "SIDEBAND" (nIF J, +1 or -1). Copyable.
class MEROVANE_API AUVXFqTbl {
public:
    struct Row {
        int freqSel;
        std::vector<double> ifFreq;  // offsets in Hz
        std::vector<double> chWidth;
        std::vector<double> bandwidth;
        std::vector<int> sideband;
    };

    // Reads the file's FQ table; false if it has none or it lacks a column. Without a table
    // GetFreqSelNum gives row 0 for every setup and GetStartIFFq the header's reference frequency.
    bool Init(AUVXFile& file);
    // Row of setup `freqId`, -1 if none.
    int GetFreqSelNum(int freqId) const;
    // Start frequency in Hz of IF `iIF` in row `row`: the reference frequency plus the IF's offset.
    // A row or IF outside the table gives the reference frequency.
    double GetStartIFFq(int iIF, int row) const;

    double refFreq = 0.0;
    std::vector<Row> rows;
};
