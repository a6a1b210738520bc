// AUVXFqTbl: the frequency setups of a UVX file.
#include <merovane/uvx/AUVXFqTbl.h>

#include <memory>

#include <merovane/foundation/NumberConversion.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/UVXTableLayouts.h>

bool AUVXFqTbl::Init(AUVXFile& file) {
    refFreq = file.GetHeader().refFreq;
    rows.clear();
    std::unique_ptr<AUVXTable> table(file.GetTable(kLayoutFQ.name));
    if (!table) return false;
    const int cSel = table->ColumnIndex(LayoutColumnName(kLayoutFQ, kFQFrqSel));
    const int cFreq = table->ColumnIndex(LayoutColumnName(kLayoutFQ, kFQIfFreq));
    const int cWidth = table->ColumnIndex(LayoutColumnName(kLayoutFQ, kFQChWidth));
    const int cBand = table->ColumnIndex(LayoutColumnName(kLayoutFQ, kFQTotalBandwidth));
    const int cSide = table->ColumnIndex(LayoutColumnName(kLayoutFQ, kFQSideband));
    if (cSel < 0 || cFreq < 0 || cWidth < 0 || cBand < 0 || cSide < 0) return false;
    const int nIF = table->ParseFormat(cFreq).count;
    // Per-IF columns shorter than "IF FREQ" give 0 for the IFs they lack.
    const int nWidth = table->ParseFormat(cWidth).count;
    const int nBand = table->ParseFormat(cBand).count;
    const int nSide = table->ParseFormat(cSide).count;
    for (int r = 0; r < table->nRows; ++r) {
        Row row;
        row.freqSel = TruncToInt32(table->GetDouble(r, cSel));
        for (int i = 0; i < nIF; ++i) {
            row.ifFreq.push_back(table->GetDouble(r, cFreq, i));
            row.chWidth.push_back(i < nWidth ? table->GetDouble(r, cWidth, i) : 0.0);
            row.bandwidth.push_back(i < nBand ? table->GetDouble(r, cBand, i) : 0.0);
            row.sideband.push_back(i < nSide ? TruncToInt32(table->GetDouble(r, cSide, i)) : 0);
        }
        rows.push_back(row);
    }
    return true;
}

int AUVXFqTbl::GetFreqSelNum(int freqId) const {
    if (rows.empty()) return 0;
    for (std::size_t r = 0; r < rows.size(); ++r)
        if (rows[r].freqSel == freqId) return static_cast<int>(r);
    return -1;
}

double AUVXFqTbl::GetStartIFFq(int iIF, int row) const {
    if (row < 0 || row >= static_cast<int>(rows.size())) return refFreq;
    const Row& r = rows[static_cast<std::size_t>(row)];
    if (iIF < 0 || iIF >= static_cast<int>(r.ifFreq.size())) return refFreq;
    return refFreq + r.ifFreq[static_cast<std::size_t>(iIF)];
}
