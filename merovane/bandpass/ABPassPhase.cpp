// ABPass phase calculators: polynomial approximation on the baselines to a reference, and least squares
// over the baseline network per channel and for whole spectra.
#include <merovane/bandpass/ABPass.h>

#include <cmath>
#include <complex>
#include <cstring>

#include <merovane/bandpass/APhaseUnwrap.h>
#include <merovane/foundation/AMatrix.h>
#include <merovane/numeric/ADPolyApr.h>
#include <merovane/numeric/QRKernels.h>
#include <merovane/platform/Afx.h>

namespace {

// The header's shape as the calculators address it: bands counted as at least 1.
struct AShape {
    int nIF, nChan, nStokes, nPol;
};

template <class T>
bool Fits(const AFreeMatrix<T>& item, const AShape& s) {
    return PhaseItemFits(item, s.nPol, s.nIF, s.nChan);
}

AShape ShapeOf(const AUVXHeader& header, int nPol) {
    return AShape{header.nIF > 1 ? header.nIF : 1, header.nChan, header.nStokes, nPol};
}

// Every cell of the parallel polarisations of a count item to 1.
void MarkAll(ABPass_coef_item<int>& counts, const AShape& s) {
    for (int p = 0; p < s.nPol; ++p)
        for (int iIF = 0; iIF < s.nIF; ++iIF)
            for (int iChan = 0; iChan < s.nChan; ++iChan) counts.data[PhaseCell(counts, p, iIF, iChan)] = 1;
}

// The telescope map of the interval, the reference resolved (a negative ref lets the preference list
// choose) and removed from it. False, with the map as it stands, when ref is not in the map; a map
// without entries never has it.
bool ReducedMap(AArray<AUVXGroup>& groups, AUVXAntenns& antennas, int& ref, AArray<int>& map) {
    ABPass::GetTlscMap(groups, map);
    if (ref < 0 && map.count > 0) ref = map[GetBestReferenceAntenna(map, antennas)];
    const int iref = IndexInMap(map, ref);
    if (iref < 0) return false;
    std::memmove(map.data + iref, map.data + iref + 1,
                 sizeof(int) * static_cast<std::size_t>(map.count - iref - 1));
    --map.count;
    return true;
}

// The design matrix: one row per cross record in list order, +1 in the column of ant1 and -1 in
// that of ant2, none for the reference. `rows` gets the record index of each row. False when the
// matrix cannot be had.
bool DesignMatrix(AArray<AUVXGroup>& groups, AArray<int>& reduced, AMatrix<double>& a, AArray<int>& rows) {
    rows.SetCount(0);
    for (int k = 0; k < groups.count; ++k)
        if (groups[k].ant1 != groups[k].ant2) rows.Add(k);
    const int m = rows.count, n = reduced.count;
    if (m < 1 || n < 1) return true;  // the kernel refuses the size
    if (a.Resize(static_cast<std::uint32_t>(m), static_cast<std::uint32_t>(n)) == nullptr) return false;
    a.Zero();
    for (int row = 0; row < m; ++row) {
        const AUVXGroup& g = groups[rows[row]];
        const int c1 = IndexInMap(reduced, g.ant1), c2 = IndexInMap(reduced, g.ant2);
        if (c1 >= 0) a(row, c1) = +1.0;
        if (c2 >= 0) a(row, c2) = -1.0;
    }
    return true;
}

// True if every record that a calculation reads has the header's shape.
bool RecordsFit(APtrArray<AUVXVisibility*>& vis, const AArray<int>& rows, const AShape& s) {
    for (int row = 0; row < rows.count; ++row)
        if (rows[row] >= vis.count || !PhaseRecordFits(vis[rows[row]], s.nIF, s.nChan, s.nStokes))
            return false;
    return true;
}

}  // namespace

bool ABPass::Calculate_PHA_CS_APR(APtrArray<AUVXVisibility*>& visibilities, AArray<AUVXGroup>& groups, double,
                                  double, int ref, int order, bool, bool fit) {
    AArray<int> map;
    GetTlscMap(groups, map);
    if (ref < 0) {
        if (map.count < 1) return true;  // an interval without records: no reference to choose
        ref = map[GetBestReferenceAntenna(map, *antennas)];
    }
    const AShape s = ShapeOf(*header, nPol);
    const int r = GetTlscIndex(ref);
    if (r >= 0 && r < counts.count && Fits(*counts[r], s)) MarkAll(*counts[r], s);
    if (s.nChan < 1) return true;

    // The fit runs over 2 nChan - 1 entries: the measured channels and nChan - 1 points (0, 0),
    // which pull the polynomial towards zero phase.
    const int nFit = 2 * s.nChan - 1;
    AArray<double> x(nFit), y(nFit);
    x.ZeroInit();
    y.ZeroInit();
    const int nRecords = groups.count < visibilities.count ? groups.count : visibilities.count;
    for (int k = 0; k < nRecords; ++k) {
        const AUVXGroup& g = groups[k];
        if (g.ant1 == g.ant2) continue;
        int other;
        double sign;
        if (g.ant1 == ref) {
            other = g.ant2;
            sign = -1.0;
        } else if (g.ant2 == ref) {
            other = g.ant1;
            sign = +1.0;
        } else {
            continue;
        }
        AUVXVisibility* vis = visibilities[k];
        if (!PhaseRecordFits(vis, s.nIF, s.nChan, s.nStokes)) continue;
        const int t = GetTlscIndex(other);
        if (t < 0 || t >= counts.count || !Fits(*coefs[t], s) || !Fits(*counts[t], s)) continue;
        ABPass_coef_item<std::complex<float>>& coef = *coefs[t];
        ABPass_coef_item<int>& count = *counts[t];
        for (int st = 0; st < s.nStokes; ++st) {
            const int p = PhaseParallelIndex(header->stokes[st], nPol);
            if (p < 0) continue;
            for (int iIF = 0; iIF < s.nIF; ++iIF) {
                APhaseUnwrap unwrap;
                for (int iChan = 0; iChan < s.nChan; ++iChan) {
                    x[iChan] = static_cast<double>(iChan);
                    if (fit) y[iChan] = unwrap.Add(vis->At(iIF, iChan, st).phase());
                }
                ADPolyApr poly(order);
                if (fit) poly.Fit(x.data, y.data, 0, nFit - 1);
                for (int iChan = 0; iChan < s.nChan; ++iChan) {
                    const double angle = fit ? sign * poly.Value(x[iChan]) : 0.0;
                    PhaseRotate(coef.data[PhaseCell(coef, p, iIF, iChan)], angle);
                    count.data[PhaseCell(count, p, iIF, iChan)] = 1;
                }
            }
        }
    }
    return true;
}

bool ABPass::Calculate_PH_CS_LMS1(APtrArray<AUVXVisibility*>& visibilities, AArray<AUVXGroup>& groups, double,
                                  double, int ref) {
    AArray<int> reduced;
    if (!ReducedMap(groups, *antennas, ref, reduced)) {
        AfxMessageBox("iref < 0");
        return false;
    }
    const AShape s = ShapeOf(*header, nPol);
    AMatrix<double> a;
    AArray<int> rows;
    if (!DesignMatrix(groups, reduced, a, rows)) return false;
    const int m = rows.count, n = reduced.count;
    if (!RecordsFit(visibilities, rows, s)) return false;

    AMatrix<double> q(static_cast<std::uint32_t>(m), static_cast<std::uint32_t>(n));
    AArray<double> x(n), work(m);
    const int status = QRDecompose(a.data, n * 8, 8, work.data, q.data, n * 8, 8, n, m);
    if (status != QRStatusOk) return false;
    // The measured phases (AUVXComplex::phase(), to the bit) of one product and IF, channel by
    // channel: row iChan holds the right-hand side of that channel. Filled record by record, each
    // record's spectrum at once, so that the arctangents run four channels at a time and the solves
    // read contiguous rows.
    AMatrix<double> phases(static_cast<std::uint32_t>(s.nChan), static_cast<std::uint32_t>(m));
    if (q.data == nullptr || phases.data == nullptr) return false;

    const int r = GetTlscIndex(ref);
    if (r >= 0 && r < counts.count && Fits(*counts[r], s)) MarkAll(*counts[r], s);
    // The item of each column, looked up once.
    AArray<int> items(n);
    for (int j = 0; j < n; ++j) {
        items[j] = GetTlscIndex(reduced[j]);
        const int t = items[j];
        if (t >= 0 && (t >= counts.count || !Fits(*coefs[t], s) || !Fits(*counts[t], s))) items[j] = -1;
    }

    for (int st = 0; st < s.nStokes; ++st) {
        const int p = PhaseParallelIndex(header->stokes[st], nPol);
        if (p < 0) continue;
        for (int iIF = 0; iIF < s.nIF; ++iIF) {
            // Measured phases, not unwrapped; weights play no part.
            for (int row = 0; row < m; ++row)
                PhaseSpectrum(*visibilities[rows[row]], iIF, st, phases.data + row, m);
            for (int iChan = 0; iChan < s.nChan; ++iChan) {
                const double* b = phases.data + static_cast<std::size_t>(iChan) * m;
                if (QRSolve(q.data, n * 8, 8, work.data, b, 8, x.data, 8, n, m) != QRStatusOk) return false;
                for (int j = 0; j < n; ++j) {
                    const int t = items[j];
                    if (t < 0) continue;
                    ABPass_coef_item<std::complex<float>>& coef = *coefs[t];
                    PhaseRotate(coef.data[PhaseCell(coef, p, iIF, iChan)], x[j]);
                    counts[t]->data[PhaseCell(*counts[t], p, iIF, iChan)] = 1;
                }
            }
        }
    }
    return true;
}

bool ABPass::Calculate_PH_CS_LMS(APtrArray<AUVXVisibility*>& visibilities, AArray<AUVXGroup>& groups, double,
                                 double, int ref) {
    AArray<int> reduced;
    if (!ReducedMap(groups, *antennas, ref, reduced)) return false;
    const AShape s = ShapeOf(*header, nPol);
    AMatrix<double> a;
    AArray<int> rows;
    if (!DesignMatrix(groups, reduced, a, rows)) return false;
    const int m = rows.count, n = reduced.count;
    if (!RecordsFit(visibilities, rows, s)) return false;

    AArray<double> work(m);
    if (QRDecompose(a.data, n * 8, 8, work.data, a.data, n * 8, 8, n, m) != QRStatusOk) return false;
    AMatrix<double> bm(static_cast<std::uint32_t>(s.nChan), static_cast<std::uint32_t>(m));
    AMatrix<double> sol(static_cast<std::uint32_t>(s.nChan), static_cast<std::uint32_t>(n));
    if (bm.data == nullptr || sol.data == nullptr) return false;

    const int r = GetTlscIndex(ref);
    if (r >= 0 && r < counts.count && Fits(*counts[r], s)) MarkAll(*counts[r], s);
    // The rows of the baselines to the reference, in list order.
    AArray<int> refRows;
    for (int row = 0; row < m; ++row) {
        const AUVXGroup& g = groups[rows[row]];
        if (g.ant1 == ref || g.ant2 == ref) refRows.Add(row);
    }
    // Item t goes with row t of the antenna table; items beyond its rows have no telescope.
    const int nItems = coefs.count < antennas->count ? coefs.count : antennas->count;

    for (int st = 0; st < s.nStokes; ++st) {
        const int p = PhaseParallelIndex(header->stokes[st], nPol);
        if (p < 0) continue;
        for (int iIF = 0; iIF < s.nIF; ++iIF) {
            // The network test: every baseline's unwrapped spectrum, one right-hand side per channel.
            for (int row = 0; row < m; ++row) {
                const AUVXVisibility& vis = *visibilities[rows[row]];
                APhaseUnwrap unwrap;
                for (int iChan = 0; iChan < s.nChan; ++iChan)
                    bm(iChan, row) = unwrap.Add(vis.data[vis.Index(iIF, iChan, st)].phase());
            }
            if (QRSolveMany(a.data, n * 8, 8, work.data, bm.data, m * 8, 8, sol.data, n * 8, 8, n, m,
                            s.nChan) != QRStatusOk)
                return false;
            // Each telescope's coefficient from the measured phases of its baselines to the reference;
            // the reference's own item takes every one of them, with the sign of its end.
            for (int t = 0; t < nItems; ++t) {
                if (t >= counts.count || !Fits(*coefs[t], s) || !Fits(*counts[t], s)) continue;
                const int id = (*antennas)[t].id;
                ABPass_coef_item<std::complex<float>>& coef = *coefs[t];
                ABPass_coef_item<int>& count = *counts[t];
                for (int iChan = 0; iChan < s.nChan; ++iChan)
                    for (int i = 0; i < refRows.count; ++i) {
                        const int k = rows[refRows[i]];
                        const AUVXGroup& g = groups[k];
                        const AUVXVisibility& vis = *visibilities[k];
                        double angle;
                        if (g.ant1 == id)
                            angle = vis.data[vis.Index(iIF, iChan, st)].phase();
                        else if (g.ant2 == id)
                            angle = -static_cast<double>(vis.data[vis.Index(iIF, iChan, st)].phase());
                        else
                            continue;
                        PhaseRotate(coef.data[PhaseCell(coef, p, iIF, iChan)], angle);
                        count.data[PhaseCell(count, p, iIF, iChan)] = 1;
                    }
            }
        }
    }
    return true;
}
