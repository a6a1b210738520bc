// ADigErrCorrect: renormalises the visibilities of an interval by the autocorrelated power of its antennas.
#pragma once

#include <merovane/digitisation/ACube.h>
#include <merovane/foundation/AArray.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecords.h>

// Within one interval, measures each antenna's mean autocorrelated power per IF band and parallel
// hand, then divides every visibility by sqrt(m1 x m2) of its two antennas and multiplies its weight
// by m1 x m2. A measure that is missing (antenna not in the table, no autocorrelation with a good
// channel in this interval, a hand the file does not have) counts as 1.0.
//
// The third index of the tables counts parallel hands: 0 and 1 are the first and second product of
// the header's stokes list, on the rule that a file's polarisation axis opens with its parallel
// hands, R before L. A cross hand (RL, LR) reads hand 0 of one antenna and hand 1 of the other; where
// the file has fewer parallel hands than that index, the hand counts as missing (1.0).
//
// Records whose visibility lacks the elements of the shape it declares, or is null, are left alone;
// a record with fewer bands or products than the header is corrected in those it has.
//
// Not copyable: it owns its tables. The header and antennas given to Init are not owned and must
// outlive the use of this object.
class MEROVANE_API ADigErrCorrect {
  public:
    ADigErrCorrect() = default;
    ADigErrCorrect(const ADigErrCorrect&) = delete;
    ADigErrCorrect& operator=(const ADigErrCorrect&) = delete;
    ~ADigErrCorrect();

    // Stores both and sizes the tables: antennas.count x max(1, header.nIF) x the number of RR/LL
    // codes among the first nStokes (at most 8) stokes entries. May be called again.
    void Init(AUVXHeader& header, AUVXAntenns& antennas);

    // Corrects the interval in place. vis[i] belongs to groups[i]; only the first
    // min(vis.count, groups.count) records are looked at. start and end are not used. Always true;
    // before Init it changes nothing.
    bool Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start, double end);

    // Per antenna row, IF band and parallel hand: the sum over this interval's autocorrelation
    // records of each record's mean real part over its good channels.
    ACube<double> sums;
    // Same shape: the number of records in each sum.
    ACube<int> counts;
    AUVXAntenns* antennas = nullptr;
    AUVXHeader* header = nullptr;

  private:
    // The mean of antenna row `a`, band f, hand h, or 1.0 where there is no measure.
    double meanOf(int a, int f, int h) const;
};
