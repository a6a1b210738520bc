// ABPass_Ph_CS_Apr: a straight-line phase bandpass from the time-averaged baselines to telescope 2.
#pragma once

#include <merovane/bandpass/ABPass_Base.h>
#include <merovane/foundation/AArray.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXRecords.h>

// The reference is the telescope with ID 2, fixed. The caller fills `coefs` and `counts` with one
// item per telescope (ABPass_coef_item::Init with nPol, max(1, nIF), nChan; `tlsc` set) before each
// call. Calculate assigns the coefficients and stores nothing in `stored`: a caller who wants
// Calibrate to apply them appends the items there itself. Copies share items as ABPass_Base
// describes.
class MEROVANE_API ABPass_Ph_CS_Apr : public ABPass_Base {
public:
    ABPass_Ph_CS_Apr();
    ABPass_Ph_CS_Apr(const ABPass_Ph_CS_Apr& other);
    ABPass_Ph_CS_Apr(ABPass_Ph_CS_Apr&& other);
    ABPass_Ph_CS_Apr& operator=(const ABPass_Ph_CS_Apr& other);
    ABPass_Ph_CS_Apr& operator=(ABPass_Ph_CS_Apr&& other);

    // Averages the interval per baseline (AMeanCalc, all records, plain means), then for each averaged
    // cross record with telescope 2 at one end, each parallel-hand product and IF: fits straight lines
    // (2 coefficients, against the channel number) to the measured phases (W) and to the unwrapped
    // ones (U), keeps U only if its sum of squared residuals is strictly smaller, doubles the kept
    // line's value at the middle channel (nChan - 1) / 2 by adding it to the constant term, and
    // assigns exp(i sign x line) to the other telescope's coefficients, channel by channel (sign -1
    // when telescope 2 is ant1, +1 when it is ant2), setting the counts of those cells to 1.
    // Telescope 2's own parallel cells become 1 + 0i with count 1. Weights are not read.
    // A telescope without an item draws "Error GetTlscIndex <id>" and is passed over; an averaged
    // record whose shape differs from the header's is passed over. False only if the averaging fails,
    // with nothing changed; true otherwise.
    bool Calculate(APtrArray<AUVXVisibility*>& visibilities, AArray<AUVXGroup>& groups, double start,
                   double end) override;
};
