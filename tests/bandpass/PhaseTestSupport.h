// PhaseTestSupport: small in-memory intervals of unit-amplitude records with chosen phases, for the
// tests of the phase bandpass calculators.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <merovane/bandpass/ABPass.h>
#include <merovane/foundation/AArray.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecords.h>

// Phase of a record's element (iIF, iChan, iStokes), radians.
using APhaseOf = std::function<double(int iIF, int iChan, int iStokes)>;

// One interval: header, antenna table, records and an ABPass bound to them. Telescope rows of the
// antenna table follow `ids` in order, and the current items are made for the telescope map of the
// records, so that item t goes with row t whenever `ids` is ascending.
class APhaseInterval {
public:
    APhaseInterval(int nIF, int nChan, const std::vector<int>& stokes, const std::vector<int>& ids,
                   const std::vector<std::string>& names = {}) {
        header.nIF = nIF;
        header.nChan = nChan;
        header.nStokes = static_cast<std::int16_t>(stokes.size());
        for (std::size_t s = 0; s < stokes.size(); ++s)
            header.stokes[s] = static_cast<std::int16_t>(stokes[s]);
        for (std::size_t i = 0; i < ids.size(); ++i) {
            AUVXTlscItem item;
            std::memset(&item, 0, sizeof item);
            const std::string name = i < names.size() ? names[i] : "T" + std::to_string(ids[i]);
            std::strncpy(item.name, name.c_str(), sizeof item.name - 1);
            item.id = ids[i];
            antennas.Add(item);
        }
        bp.Init(header, antennas, 1);
    }

    // Appends a record of ant1 x ant2 at `time` with unit amplitude and the given phases (an
    // autocorrelation when the two are equal).
    void Add(int ant1, int ant2, const APhaseOf& phase, double time = 5.0) {
        AUVXGroup g;
        std::memset(&g, 0, sizeof g);
        g.ant1 = static_cast<std::int8_t>(ant1);
        g.ant2 = static_cast<std::int8_t>(ant2);
        g.time = time;
        g.sourceId = 1;
        auto* v = new AUVXVisibility(header.nIF, header.nChan, header.nStokes);
        for (int iIF = 0; iIF < (header.nIF > 1 ? header.nIF : 1); ++iIF)
            for (int c = 0; c < header.nChan; ++c)
                for (int s = 0; s < header.nStokes; ++s) {
                    const double ph = phase(iIF, c, s);
                    v->At(iIF, c, s) =
                        AUVXComplex{static_cast<float>(std::cos(ph)), static_cast<float>(std::sin(ph)), 1.0f};
                }
        groups.Add(g);
        vis.Add(v);
    }

    // Fresh current items for the telescope map of the records (or for `ids` when given).
    void Fresh(const std::vector<int>& ids = {}) {
        AArray<int> map;
        if (ids.empty()) {
            ABPass::GetTlscMap(groups, map);
        } else {
            for (int id : ids) map.Add(id);
        }
        ASSERT_TRUE(bp.InitInernalGain(map));
    }

    int Item(int id) {
        for (int t = 0; t < bp.coefs.count; ++t)
            if (bp.coefs[t]->tlsc == id) return t;
        ADD_FAILURE() << "no item for telescope " << id;
        return 0;
    }
    std::complex<float>& Coef(int id, int p, int iIF, int iChan) {
        return (*bp.coefs[Item(id)])(static_cast<unsigned>(p), static_cast<unsigned>(iIF),
                                     static_cast<unsigned>(iChan));
    }
    int& Count(int id, int p, int iIF, int iChan) {
        return (*bp.counts[Item(id)])(static_cast<unsigned>(p), static_cast<unsigned>(iIF),
                                      static_cast<unsigned>(iChan));
    }
    // The phase the library reads back from a record's element (float atan2 of the stored floats).
    double Measured(int record, int iIF, int iChan, int iStokes) {
        return vis[record]->At(iIF, iChan, iStokes).phase();
    }

    // Every coefficient and count of every current item, for comparisons before and after a call.
    std::vector<std::complex<float>> AllCoefs() {
        std::vector<std::complex<float>> out;
        for (int t = 0; t < bp.coefs.count; ++t)
            out.insert(out.end(), bp.coefs[t]->data, bp.coefs[t]->data + bp.coefs[t]->count());
        return out;
    }
    std::vector<int> AllCounts() {
        std::vector<int> out;
        for (int t = 0; t < bp.counts.count; ++t)
            out.insert(out.end(), bp.counts[t]->data, bp.counts[t]->data + bp.counts[t]->count());
        return out;
    }

    AUVXHeader header;
    AUVXAntenns antennas;
    ABPass bp;
    APtrArray<AUVXVisibility*> vis;
    AArray<AUVXGroup> groups;
};

// The rotation the calculators multiply in: cosine and sine of the angle as floats.
inline std::complex<float> Rotation(double angle) {
    return {static_cast<float>(std::cos(angle)), static_cast<float>(std::sin(angle))};
}

// A coefficient equal to exp(i angle) to float rounding (a few ulp of the product of rotations).
#define EXPECT_ROTATION(coef, angle, what)                    \
    do {                                                      \
        const std::complex<float> got_ = (coef);              \
        const std::complex<float> want_ = Rotation(angle);    \
        EXPECT_NEAR(got_.real(), want_.real(), 2e-6) << what; \
        EXPECT_NEAR(got_.imag(), want_.imag(), 2e-6) << what; \
    } while (0)
