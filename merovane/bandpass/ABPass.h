// ABPass: bandpass calculators on the current coefficients, interval bookkeeping and telescope maps.
#pragma once

#include <complex>

#include <merovane/bandpass/ABPass_Base.h>
#include <merovane/foundation/AArray.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXRecords.h>

// A channel range to repair in an autocorrelation spectrum before it becomes a factor.
struct MEROVANE_API ABPCHRange {
    int first;  // first channel; negative: the whole spectrum becomes flat (1.0)
    int last;   // last channel
    int tlsc;   // telescope ID the range is for; 0 or below: every telescope
};

// Per interval a host calls GetTlscMap, InitInernalGain, one or more calculators (each multiplies
// into the current items, so their effects combine) and AddGain; afterwards Calibrate on every
// record. The calculators work on parallel-hand products only and skip the others without remark.
// Copies share items as ABPass_Base describes, and copy the `ranges` pointer.
class MEROVANE_API ABPass : public ABPass_Base {
public:
    ABPass();
    ABPass(const ABPass& other);
    ABPass(ABPass&& other);
    ABPass& operator=(const ABPass& other);
    ABPass& operator=(ABPass&& other);

    // Replaces `map` with the telescope IDs of `groups` (ant1 and ant2, autocorrelations included),
    // ascending and each once, and returns their number. IDs outside 1..64 are left out.
    static int GetTlscMap(AArray<AUVXGroup>& groups, AArray<int>& map);

    // Fresh current items for `ids`, in that order: coefficients 1 + 0i and counts 0, sized nPol x
    // max(1, nIF) x nChan of the header, start and end 0. The previous current items are let go of
    // (those that AddGain passed to `stored` live on there); `coefs` owns the new ones. False when a
    // matrix cannot be sized: the items made before stay in the lists.
    bool InitInernalGain(AArray<int>& ids);
    // Gives every current item the interval [start, end) in seconds and appends it to `stored`, which
    // then owns it (`coefs` stops owning, even when empty). Once between two InitInernalGain calls,
    // with intervals added in ascending time. True in every case.
    bool AddGain(double start, double end);

    // Amplitude bandpass from the autocorrelations of `sourceId`: each spectrum's real parts over their
    // mean (over the channels with weight above 0, in double; a mean of 0 or NaN gives 1.0
    // everywhere), repaired by ModifyAmpl when `ranges` is set, multiplied into the coefficients of
    // ant1 (single precision); the counts of those cells become 1. Several records of one telescope
    // multiply. The two doubles are not read. True in every case.
    bool Calculate_A_AC(APtrArray<AUVXVisibility*>& visibilities, AArray<AUVXGroup>& groups, double start,
                        double end);

    // Phase bandpass from the baselines to telescope `ref` (an ID; negative: GetBestReferenceAntenna
    // chooses), each baseline's unwrapped phases approximated by a polynomial of `order` coefficients
    // and multiplied as a rotation into the other telescope's coefficients. With `fit` false only the
    // counts are marked. The doubles and the first bool are not read. True in every case.
    // The polynomial is fitted over 2 nChan - 1 entries, the nChan unwrapped phases against the
    // channel number and nChan - 1 points (0, 0), so that order 1 gives about half the mean phase.
    // The other telescope gets exp(-i fit) when `ref` is ant1, exp(+i fit) when it is ant2; `ref`'s
    // own coefficients stay, and the counts of its cells and of the turned cells become 1. Records
    // whose shape differs from the header's, and telescopes without an item, are passed over; a
    // negative `ref` on an interval without records does nothing.
    bool Calculate_PHA_CS_APR(APtrArray<AUVXVisibility*>& visibilities, AArray<AUVXGroup>& groups,
                              double start, double end, int ref, int order, bool unused, bool fit);
    // Phase bandpass by least squares over the baseline network for whole unwrapped spectra, then
    // each telescope's rotation from its baselines to `ref`. False if a matrix cannot be had or a
    // kernel reports a status other than 0.
    // The least-squares solve only tests the network (an empty column, fewer cross records than
    // telescopes other than `ref`, no cross record: false). Item t must go with row t of the antenna
    // table; it is multiplied, per channel, by exp(+i phase) of every record with `ref` whose ant1 is
    // that row's telescope and by exp(-i phase) of every one whose ant2 it is, measured phases, `ref`'s
    // own item included. A `ref` that is not in the telescope map of `groups`, or a record read whose
    // shape differs from the header's, ends the call with false before anything has changed, without
    // a message. A failing solve in a later product or IF leaves earlier ones multiplied in.
    bool Calculate_PH_CS_LMS(APtrArray<AUVXVisibility*>& visibilities, AArray<AUVXGroup>& groups,
                             double start, double end, int ref);
    // Least-squares phase per channel and telescope, multiplied as a rotation into the coefficients.
    // False if a kernel reports a status other than 0.
    // Model: the measured (wrapped) phase of a cross record is phase(ant1) - phase(ant2), `ref`'s phase
    // 0; each solved phase x multiplies exp(+i x) into its telescope's cell, `ref`'s item stays. The
    // phases are read a spectrum at a time by PhaseSpectrum (within two float places of
    // AUVXComplex::phase(), and much faster on a whole interval). Every
    // telescope of the map needs a cross record, and the cross records must be at least as many as the
    // telescopes besides `ref`; else false before any change (an empty last column of a square system
    // is not tested by the factorisation and gives NaN coefficients instead).
    // A `ref` that is not in the telescope map of `groups` shows "iref < 0" (AfxMessageBox) and ends
    // the call with false before anything has changed; so does a record whose shape differs from the
    // header's, without a message.
    bool Calculate_PH_CS_LMS1(APtrArray<AUVXVisibility*>& visibilities, AArray<AUVXGroup>& groups,
                              double start, double end, int ref);

    // Channel ranges to repair in Calculate_A_AC; not owned, set by the caller, null for none.
    AArray<ABPCHRange>* ranges;

protected:
    // Walks `ranges` in order over `spectrum` of telescope `tlsc`: a range for another telescope (tlsc
    // above 0 and different) is passed over; a negative first sets every entry to 1.0 and ends the
    // walk; a last beyond the spectrum is passed over; otherwise the entries strictly between first
    // and last become the straight line through the two end entries (single precision). Later ranges
    // see the result of earlier ones.
    virtual void ModifyAmpl(int tlsc, AArray<float>& spectrum, AArray<ABPCHRange>& ranges);
};

// Index of the first entry of `map` equal to `id`, or -1.
MEROVANE_API int IndexInMap(AArray<int>& map, int id);

// Index into `map` (not an ID) of the reference telescope: the first of the stations "AR", "GB",
// "EF", "WB", "YS" (names compared exactly, case included; only a station's first row of `antennas`
// counts) that is in the map; otherwise the last entry, count - 1 (-1 for an empty map).
MEROVANE_API int GetBestReferenceAntenna(AArray<int>& map, AUVXAntenns& antennas);
