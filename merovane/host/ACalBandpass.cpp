// ACalBandpass: the bandpass calculators of a run, interval by interval, and the store they fill.
#include <merovane/host/ACalBandpass.hpp>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <set>

#include <merovane/bandpass/ABPass.h>
#include <merovane/foundation/AFile.h>
#include <merovane/interval/AMeanCalc.h>

namespace {

std::string trimmedName(const AUVXTlscItem& item) {
    std::string s = item.Name().GetString();
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s;
}

}  // namespace

struct ACalBandpass::AImpl {
    ACalOptions opt;
    ABPass bp;
    AArray<ABPCHRange> ranges;
    AArray<int> ids;  // every telescope of the antenna table, in table order
    int ref = -1;     // reference telescope ID, -1 for the automatic choice
    int intervals = 0;
    std::set<std::string> told;
};

ACalBandpass::ACalBandpass(const ACalOptions& options) : m_impl(std::make_unique<AImpl>()) {
    m_impl->opt = options;
}

ACalBandpass::~ACalBandpass() = default;

bool ACalBandpass::Init(AUVXHeader& header, AUVXAntenns& antennas) {
    AImpl& im = *m_impl;
    for (int s = 0; s < header.nStokes && s < 8; ++s)
        if (header.stokes[s] > -1 || header.stokes[s] < -8) {
            m_err =
                "the bandpass needs polarisation products (RR, LL, RL, LR, XX, YY, XY, YX); the file has "
                "Stokes "
                "code " +
                std::to_string(header.stokes[s]);
            return false;
        }
    im.bp.Init(header, antennas, 0);  // its result carries no meaning
    auto idOf = [&](const std::string& name, int& id) {
        for (int r = 0; r < antennas.count; ++r)
            if (trimmedName(antennas[r]) == name) {
                id = antennas[r].id;
                return true;
            }
        return false;
    };
    if (!im.opt.bpRefAnt.empty() && !idOf(im.opt.bpRefAnt, im.ref)) {
        m_err = "no station " + im.opt.bpRefAnt + " in the antenna table for the bandpass reference";
        return false;
    }
    for (const ACalChannelRange& r : im.opt.bpRanges) {
        ABPCHRange range{r.first, r.last, 0};
        if (!r.station.empty() && !idOf(r.station, range.tlsc)) {
            m_err = "no station " + r.station + " in the antenna table for a channel range";
            return false;
        }
        im.ranges.Add(range);
    }
    if (im.ranges.count > 0) im.bp.ranges = &im.ranges;
    for (int r = 0; r < antennas.count; ++r) im.ids.Add(antennas[r].id);
    return true;
}

bool ACalBandpass::Solve(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start, double end,
                         int sourceId) {
    AImpl& im = *m_impl;
    if (vis.count == 0 || groups.count == 0) return true;
    // Every telescope of the table gets an item, in table order: the network solver addresses items
    // by antenna-table row, and a telescope missing from this interval keeps a unit coefficient.
    if (!im.bp.InitInernalGain(im.ids)) {
        m_err = "no memory for the bandpass coefficients";
        return false;
    }
    im.bp.sourceId = sourceId >= 0 ? sourceId : groups[0].sourceId;
    char when[64];
    std::snprintf(when, sizeof when, "interval %.0f-%.0f s", start, end);
    bool solved = false;

    if (im.opt.bpAmplitude) {
        // One mean autocorrelation per telescope: several records of a telescope would multiply.
        AMeanCalc mean;
        APtrArray<AUVXVisibility*> avgVis;
        AArray<AUVXGroup> avgGroups;
        mean.Calculate(vis, groups, start, end, avgVis, avgGroups, AMeanCalc::kOnlyAutoCorr);
        if (start == end) avgVis.owner = 0;  // pass-through: the records stay the driver's
        if (avgVis.count > 0) {
            im.bp.Calculate_A_AC(avgVis, avgGroups, start, end);
            solved = true;
        }
    }
    if (im.opt.bpPhase != ACalPhaseMethod::None) {
        // One mean cross spectrum per baseline gives the solvers the interval's signal to noise.
        AMeanCalc mean;
        APtrArray<AUVXVisibility*> avgVis;
        AArray<AUVXGroup> avgGroups;
        mean.Calculate(vis, groups, start, end, avgVis, avgGroups, AMeanCalc::kNoAutoCorr);
        if (start == end) avgVis.owner = 0;
        // A baseline none of whose records reached the mean's weight threshold comes back as zeros.
        APtrArray<AUVXVisibility*> useVis;
        useVis.owner = 0;
        AArray<AUVXGroup> useGroups;
        for (int b = 0; b < avgVis.count; ++b) {
            if (avgVis[b]->count < 1 || !(avgVis[b]->data[0].wt > 0.0f)) continue;
            useVis.Add(avgVis[b]);
            useGroups.Add(avgGroups[b]);
        }
        AArray<int> map;
        ABPass::GetTlscMap(useGroups, map);
        const bool refHere = im.ref < 0 ? map.count > 0 : IndexInMap(map, im.ref) >= 0;
        if (!refHere) {
            const std::string note =
                "phase bandpass: the reference station " +
                (im.opt.bpRefAnt.empty() ? std::string("(automatic)") : im.opt.bpRefAnt) +
                " has no baseline in some intervals, which got no phase solution";
            if (im.told.insert(note).second) m_notes.push_back(note + " (first: " + when + ")");
        } else if (map.count >= 2) {
            bool ok = true;
            switch (im.opt.bpPhase) {
                case ACalPhaseMethod::LMS:
                    ok = im.bp.Calculate_PH_CS_LMS(useVis, useGroups, start, end, im.ref);
                    break;
                case ACalPhaseMethod::LMS1:
                    ok = im.bp.Calculate_PH_CS_LMS1(useVis, useGroups, start, end, im.ref);
                    break;
                case ACalPhaseMethod::PHA_APR:
                    ok = im.bp.Calculate_PHA_CS_APR(useVis, useGroups, start, end, im.ref,
                                                    im.opt.bpPhaseOrder, false, true);
                    break;
                case ACalPhaseMethod::None:
                    break;
            }
            if (!ok) {
                const std::string note =
                    "phase bandpass: the least-squares network could not be solved in some "
                    "intervals (a station without cross records, or fewer baselines than "
                    "stations); they got no phase solution";
                if (im.told.insert(note).second) m_notes.push_back(note + " (first: " + when + ")");
            } else {
                solved = true;
            }
        }
    }
    if (solved) {
        im.bp.AddGain(start, end);
        ++im.intervals;
    }
    return true;
}

bool ACalBandpass::Apply(AUVXGroup& group, AUVXVisibility& vis) {
    if (m_impl->intervals == 0) return true;
    if (!m_impl->bp.Calibrate(group, vis)) {
        m_err = "the bandpass cannot treat a Stokes code of this file";
        return false;
    }
    return true;
}

int ACalBandpass::Intervals() const {
    return m_impl->intervals;
}

bool ACalBandpass::Write(const std::string& storePath, const std::string& csvPath) {
    AImpl& im = *m_impl;
    const std::string part = storePath + ".part";
    {
        ABFile file;
        if (!file.Open(part.c_str(), PlatformOpenMode::Create)) {
            m_err = std::string(file.GetErrorText().GetString());
            return false;
        }
        for (int i = 0; i < im.bp.stored.count; ++i)
            if (im.bp.stored[i]->Store(file) != 1) {
                m_err = storePath + ": cannot be written";
                file.Close();
                std::remove(part.c_str());
                return false;
            }
        if (!file.Close()) {
            m_err = storePath + ": cannot be written";
            std::remove(part.c_str());
            return false;
        }
    }
    if (std::rename(part.c_str(), storePath.c_str()) != 0) {
        m_err = storePath + ": cannot be written";
        std::remove(part.c_str());
        return false;
    }
    std::ofstream csv(csvPath, std::ios::binary | std::ios::trunc);
    csv << "station,start_s,end_s,if,hand,channel,amplitude,phase\n";
    AUVXAntenns& antennas = *im.bp.antennas;
    for (int i = 0; i < im.bp.stored.count; ++i) {
        ABPassCoefItem& item = *im.bp.stored[i];
        const int row = antennas.IndexForID(item.tlsc);
        const std::string name = row >= 0 ? trimmedName(antennas[row]) : "#" + std::to_string(item.tlsc);
        if (item.GetDims() != 3) continue;
        for (unsigned p = 0; p < item.GetDim(0); ++p)
            for (unsigned f = 0; f < item.GetDim(1); ++f)
                for (unsigned c = 0; c < item.GetDim(2); ++c) {
                    const std::complex<float> v = item(p, f, c);
                    char line[160];
                    std::snprintf(line, sizeof line, ",%.3f,%.3f,%u,%u,%u,%.7g,%.7g\n", item.start, item.end,
                                  f, p, c, std::abs(v), std::arg(v));
                    csv << name << line;
                }
    }
    csv.close();
    if (!csv) {
        m_err = csvPath + ": cannot be written";
        return false;
    }
    return true;
}
