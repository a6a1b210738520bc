// ABPass_coef_item and ABPass_Base: the bandpass coefficient store and its application to visibilities.
#pragma once

#include <complex>
#include <memory>

#include <merovane/foundation/AArray.h>
#include <merovane/foundation/AFreeMatrix.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecords.h>

// One telescope's matrix of one interval, addressed (polarisation index, IF index, channel index);
// T is std::complex<float> for coefficients (dimensionless; a sample is divided by them) and int for
// counts. Every construction and assignment copies the matrix deeply, moves included.
// Final: items are deleted through their own type by the owning lists, and the matrix has no virtual
// destructor, so nothing may derive from this record.
template <class T>
struct ABPass_coef_item final : public AFreeMatrix<T> {
    ABPass_coef_item();
    ABPass_coef_item(const ABPass_coef_item& other);
    ABPass_coef_item(ABPass_coef_item&& other);
    ABPass_coef_item& operator=(const ABPass_coef_item& other);
    ABPass_coef_item& operator=(ABPass_coef_item&& other);

    // Sizes the matrix nPol x nIF x nChan (contents not cleared); false when it cannot be allocated
    // or a size is not above 0.
    bool Init(int nPol, int nIF, int nChan);

    double start = 0.0;  // start of the item's interval, seconds of AUVXGroup::time
    double end = 0.0;    // end of the item's interval, same unit
    int tlsc = 0;        // telescope ID, as AUVXGroup::ant1 and AUVXTlscItem::id
};

extern template struct MEROVANE_API ABPass_coef_item<int>;
extern template struct MEROVANE_API ABPass_coef_item<std::complex<float>>;

using ABPassCoefItem = ABPass_coef_item<std::complex<float>>;
using ABPassCountItem = ABPass_coef_item<int>;

// Holds the current coefficients (`coefs`, one item per telescope for the interval in hand, with
// `counts` parallel to it) and the stored ones (`stored`, one item per telescope and finished
// interval, in the order they were added and ascending in time per telescope), and applies the stored
// ones to visibilities with Calibrate. The calculators derive from it.
//
// Shared items. Copies and moves (which copy) share the items: the lists' pointers, growth steps and
// owning flags are copied, never the items. Two objects that share items may then both hold them in
// owning lists. They avoid a double release through one share record common to every object copied
// from the same origin: each copy registers one extra share of every item that it holds in an owning
// list, and an object that lets go of such an item (destructor, assignment, InitInernalGain) only
// gives its share back, leaving the item alive. The last holder deletes it. Objects share items only
// through copying; a caller who puts one item into two unrelated objects' owning lists must clear an
// owning flag himself. Sharing also means that a calculation through one object changes the
// coefficients that the other sees; a host should not run calculators on both.
//
// Assignment lets go of what the target held as its destructor would (items held by nobody else are
// deleted, so nothing leaks), then takes the source's state as a copy does.
//
// The destructor is not virtual: objects are not deleted through a base pointer.
class MEROVANE_API ABPass_Base {
public:
    // Empty lists with growth step 256, each owning its items. sourceId, nPol, antennas and header
    // have no meaning until Init.
    ABPass_Base();
    ABPass_Base(const ABPass_Base& other);
    ABPass_Base(ABPass_Base&& other);
    ABPass_Base& operator=(const ABPass_Base& other);
    ABPass_Base& operator=(ABPass_Base&& other);
    // Destroys `stored`, then `counts`, then `coefs`, each deleting its items while it owns them.
    ~ABPass_Base();

    // Keeps the three arguments (header and antennas are not owned and must outlive this object) and
    // counts in nPol the parallel-hand codes (RR, LL, XX, YY) among the header's first nStokes.
    // The result is false in every case and carries no meaning.
    bool Init(AUVXHeader& header, AUVXAntenns& antennas, int sourceId);

    // Interval calculation, the arguments those of the interval driver's calculation hook. This one
    // does nothing and returns true.
    virtual bool Calculate(APtrArray<AUVXVisibility*>& visibilities, AArray<AUVXGroup>& groups, double start,
                           double end);

    // Index into `coefs` and `counts` of the first item of telescope `tlsc`. Without one the user sees
    // "Error GetTlscIndex <tlsc>" (AfxMessageBox) and the result is -1.
    int GetTlscIndex(int tlsc);

    // Divides every unflagged sample (weight above 0) of `visibility` in place by the principal square
    // root of a x conj(b), a and b being the stored coefficients of ant1 and ant2 for the record's time
    // (1 for a telescope without stored intervals), in single precision; weights stay. Stokes codes
    // map to polarisation indices: RR, XX -> (0, 0); LL, YY -> (nPol-1, nPol-1); RL, XY -> (0, 1);
    // LR, YX -> (1, 0). False, at once and with earlier products already corrected, on a code outside
    // -8..-1; true otherwise. A zero coefficient product gives NaN in both parts of a sample.
    // A cross-hand code with nPol = 1 reads nothing outside the matrix: that side counts as 1.
    bool Calibrate(AUVXGroup& group, AUVXVisibility& visibility);

    // Empties one of this object's lists, deleting its items if the list owns them, but sparing
    // those that a copy still holds (see above); the owning flag stays. A caller who refills `coefs`
    // and `counts` for ABPass_ACorr empties them with this rather than APtrArray::Free.
    void ReleaseList(APtrArray<ABPass_coef_item<std::complex<float>>*>& list);
    void ReleaseList(APtrArray<ABPass_coef_item<int>*>& list);

    int sourceId;                                              // source compared with AUVXGroup::sourceId
    int nPol;                                                  // parallel-hand codes of the header
    AUVXAntenns* antennas;                                     // not owned
    AUVXHeader* header;                                        // not owned
    APtrArray<ABPass_coef_item<std::complex<float>>*> coefs;   // current coefficients, one per telescope
    APtrArray<ABPass_coef_item<int>*> counts;                  // cells of `coefs` that received data
    APtrArray<ABPass_coef_item<std::complex<float>>*> stored;  // finished intervals, in order of adding

protected:
    // The stored item for telescope `tlsc` at `time` (seconds): index into `stored`, or -1 when the
    // telescope has none. `before` and `after` get the telescope's items around the time (each
    // standing in for the other when missing). An item covers [start, end); a time in a gap takes the
    // item whose middle is nearer, the later one on a tie; a time outside every item takes the first
    // or last. Looks at the telescope's own items only, in logarithmic time when their ends ascend.
    // The lookup follows `stored` as it grows (appending is the only change it sees; a list that
    // became shorter or has another first item is indexed afresh): items already stored must not be
    // replaced, given another telescope or another end.
    int SearchIndex(const double& time, int tlsc, int& before, int& after);
    // The same answer by walking all of `stored` from its head, as a reference for the lookup.
    int SearchIndexWalk(const double& time, int tlsc, int& before, int& after);

    // Calibrate finds stored items by walking `stored` while this is set (for comparisons).
    bool m_searchByWalk = false;

private:
    struct AItemShares;
    struct ASearchCache;

    void copyFrom(const ABPass_Base& other);
    void releaseAll();

    std::shared_ptr<AItemShares> m_shares;   // common to every object copied from one origin
    std::unique_ptr<ASearchCache> m_search;  // positions in `stored` per telescope, built on demand
};
