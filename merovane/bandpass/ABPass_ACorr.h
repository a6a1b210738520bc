// ABPass_ACorr: the bandpass as the mean complex autocorrelation spectrum of each telescope.
#pragma once

#include <merovane/bandpass/ABPass_Base.h>
#include <merovane/foundation/AArray.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXRecords.h>

// The caller fills `coefs` and `counts` itself with one item per telescope (ABPass_coef_item::Init
// with nPol, max(1, nIF), nChan; `tlsc` set), fresh ones before each interval, since Calculate
// passes the items it stored to `stored`. Copies share items as ABPass_Base describes.
class MEROVANE_API ABPass_ACorr : public ABPass_Base {
public:
    ABPass_ACorr();
    ABPass_ACorr(const ABPass_ACorr& other);
    ABPass_ACorr(ABPass_ACorr&& other);
    ABPass_ACorr& operator=(const ABPass_ACorr& other);
    ABPass_ACorr& operator=(ABPass_ACorr&& other);

    // Zeroes the current items, then sums the parallel-hand samples of the autocorrelations of
    // `sourceId` (weights not read, single precision) per telescope and cell, and divides each cell by
    // its count (cells without data stay 0 + 0i). If any sample was summed, every current item gets
    // [start, end) in seconds and goes to `stored`, which then owns it. True in every case.
    bool Calculate(APtrArray<AUVXVisibility*>& visibilities, AArray<AUVXGroup>& groups, double start,
                   double end) override;
};
