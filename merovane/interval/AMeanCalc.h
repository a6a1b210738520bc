// AMeanCalc: reduces the records of one interval to one averaged record per baseline.
#pragma once

#include <merovane/foundation/AArray.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXRecords.h>

// Called by a host from AUVXTimeWorks::IntervalsExec_Calculate with the hook's arguments; the results
// go to AUVXTimeWorks::WriteData. Holds nothing between calls. Filter is the one virtual operation,
// so a host can derive its own selection of records; there is no virtual destructor.
//
// Choices where the contract leaves room: the sum of the source IDs is 64 bits wide, so no interval
// can overflow it. A record that has no element at all never counts (it has no element 0 whose
// weight could reach 0.25), and a record whose shape differs from inVis[0] adds only the elements
// the two have in common, so bad input never reads or writes outside a visibility.
class MEROVANE_API AMeanCalc {
public:
    // Flags of a call: bit 0 rejects autocorrelations (ant1 = ant2), bit 1 everything else.
    enum { kNoAutoCorr = 1, kOnlyAutoCorr = 2 };

    // Empties outVis (deleting what it owns) and outGroups, then:
    // - start = end (the driver's mode without a step): passes the records that Filter accepts
    //   through, the same pointers, with outVis's owning flag cleared (inVis keeps ownership; a
    //   caller that reuses outVis for averaging sets `owner` again).
    // - otherwise: one record per baseline (ant1, ant2, bit 0 of AUVXGroup::flags) of the accepted
    //   records, in the order of ABaseLine. Its elements are the float means, element by element,
    //   of the accepted records of that baseline pair whose element 0 has a weight not below 0.25
    //   (a NaN weight counts); u, v, w are float means, sourceId the truncated mean, time =
    //   (start + end) x 0.5, flags and freqId 0. A baseline none of whose records counts gives a
    //   record of zeros. Every result has the shape of inVis[0]; outVis owns the results if its
    //   owning flag is set.
    // Always true. inVis and inGroups have the same length.
    bool Calculate(APtrArray<AUVXVisibility*>& inVis, AArray<AUVXGroup>& inGroups, double start, double end,
                   APtrArray<AUVXVisibility*>& outVis, AArray<AUVXGroup>& outGroups, int flags);

protected:
    // Slot 0. True if record `index` takes part under `flags` (see above); `vis` and `index` are not
    // looked at here.
    virtual bool Filter(AUVXVisibility& vis, AUVXGroup& group, int index, int flags);
};
