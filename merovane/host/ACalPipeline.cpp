// ACalPipeline: the walks over a UVX file that run the calibration passes, and the run's report.
#include <merovane/host/ACalPipeline.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include <merovane/antab/AAntabCheck.h>
#include <merovane/antab/AAntabData.h>
#include <merovane/digitisation/AAIShortTbl.h>
#include <merovane/digitisation/ADigErrCorrect.h>
#include <merovane/digitisation/AVanFlakeCorrect.h>
#include <merovane/interval/AMeanCalc.h>
#include <merovane/interval/AUVXTimeWorks.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/AUVXSkanList.h>
#include <merovane/uvx/AUVXSources.h>
#include <merovane/host/ACalBandpass.hpp>

namespace fs = std::filesystem;

namespace {

// Records probed at the start of a file for an autocorrelation: a few integrations of any array.
constexpr int kAutoProbeRecords = 20000;
// The mean's own threshold on the weight of a record's first element.
constexpr float kMeanWeightFloor = 0.25f;

// A failure text with its numbers (times, IDs, values) replaced by '#', so that failures of one kind
// are counted under one reason.
std::string reasonKey(const std::string& text) {
    std::string key;
    bool inNumber = false;
    for (char c : text) {
        const bool digit = c >= '0' && c <= '9';
        if (digit || (inNumber && (c == '.' || c == 'E' || c == 'e' || c == '+' || c == '-'))) {
            if (!inNumber) key += '#';
            inNumber = true;
            continue;
        }
        inNumber = false;
        key += c;
    }
    while (!key.empty() && key.back() == ' ') key.pop_back();
    return key;
}

std::string trimmed(const std::string& s) {
    const auto b = s.find_first_not_of(' ');
    if (b == std::string::npos) return "";
    return s.substr(b, s.find_last_not_of(' ') - b + 1);
}

bool sameNoCase(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (std::toupper(static_cast<unsigned char>(a[i])) != std::toupper(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

std::string number(double v, const char* format = "%.1f") {
    char buf[64];
    std::snprintf(buf, sizeof buf, format, v);
    return buf;
}

// One station's Tsys row times, in seconds from 0h of the reference day, ascending, and how far
// the observation strayed from them.
struct AStationTsys {
    std::string name;
    std::vector<double> times;
    double farthest = 0.0;  // largest distance of a record time from the nearest row, seconds
    std::int64_t farRecords = 0;

    double Distance(double t) const {
        if (times.empty()) return HUGE_VAL;
        auto it = std::lower_bound(times.begin(), times.end(), t);
        double d = HUGE_VAL;
        if (it != times.end()) d = *it - t;
        if (it != times.begin()) d = std::min(d, t - *(it - 1));
        return d;
    }
};

// AMeanCalc that also leaves out the records the host refused (their weight before the amplitude
// calibration was below the mean's threshold).
class AHostMean : public AMeanCalc {
public:
    const std::vector<char>* accept = nullptr;

protected:
    bool Filter(AUVXVisibility& vis, AUVXGroup& group, int index, int flags) override {
        if (!AMeanCalc::Filter(vis, group, index, flags)) return false;
        return accept == nullptr ||
               (index >= 0 && index < static_cast<int>(accept->size()) && (*accept)[index]);
    }
};

int baselineKey(const AUVXGroup& g) {
    return (static_cast<int>(static_cast<std::uint8_t>(g.ant1)) << 8) | static_cast<std::uint8_t>(g.ant2);
}

}  // namespace

struct ACalPipeline::AState {
    ACalOptions opt;
    ACalListener* listener = nullptr;
    ACalSummary* summary = nullptr;
    ACalListener quiet;

    AUVXHeader header;
    AUVXAntenns antennas;
    AUVXSources sources;
    std::vector<std::array<double, 3>> scans;  // start, end (seconds of the reference day), source ID
    bool hasScanList = false;
    bool hasAutoCorr = false;
    int sourceSel = -1;
    int bpSourceSel = -1;

    bool digPower = false, digBits = false;
    ADigErrCorrect power;
    AVanFlakeCorrect quantisation;
    std::unique_ptr<AAIShortTbl> bits;
    std::unique_ptr<AAntabData> antab;
    std::unique_ptr<ACalBandpass> bandpass;

    std::vector<AStationTsys> tsys;  // per ANTAB station bound to the AN table
    std::array<int, 256> tsysOf{};   // telescope ID (as a byte) -> index into tsys, or -1
    double farSeconds = 1800.0;
    std::set<int> calibratedIds;
    std::set<std::string> reasonsTold;
    std::int64_t mixedIntervals = 0;
    std::int64_t mixedFreqIntervals = 0;
    std::int64_t rawBeforeStart = 0;

    std::string stage;
    int walk = 0;

    void Message(ACalLevel level, const std::string& text) { listener->OnMessage(level, text); }
    void Drop(const std::string& reason, const std::string& example = "") {
        summary->Drop(reason);
        if (!example.empty() && reasonsTold.insert(reason).second)
            Message(ACalLevel::Warning,
                    "record dropped: " + example + " (further records of this kind are counted)");
    }
    // Station name of telescope `id`, or "#id".
    std::string StationName(int id) const {
        int row = antennas.IndexForID(id);
        if (row < 0) return "#" + std::to_string(id);
        return trimmed(antennas[row].Name().GetString());
    }
};

namespace {

// The second (or only) walk: the corrections, the calibration, the averaging and the output.
class AApplyWalk : public AUVXTimeWorks {
public:
    explicit AApplyWalk(ACalPipeline::AState& st) : m_st(st) {}

protected:
    bool Filter(AUVXVisibility&, AUVXGroup& group, int) override {
        ACalSummary& sum = *m_st.summary;
        ++sum.recordsRead;
        if (m_st.sourceSel >= 0 && group.sourceId != m_st.sourceSel) {
            m_st.Drop("not the selected source");
            return false;
        }
        if (group.time < m_st.opt.startTime) {
            if (m_st.opt.beforeStart == ACalBeforeStart::CopyRaw) return true;  // to DropTimeData
            m_st.Drop("before the start time");
            return false;
        }
        if (m_st.antab) {
            const std::int8_t ants[2] = {group.ant1, group.ant2};
            for (int a = 0; a < (group.ant1 == group.ant2 ? 1 : 2); ++a) {
                const int idx = m_st.tsysOf[static_cast<std::uint8_t>(ants[a])];
                if (idx < 0) continue;
                AStationTsys& s = m_st.tsys[static_cast<std::size_t>(idx)];
                const double d = s.Distance(group.time);
                if (d <= m_st.farSeconds) continue;
                ++s.farRecords;
                s.farthest = std::max(s.farthest, d);
                if (m_st.opt.farTsys == ACalFarTsys::Drop) {
                    m_st.Drop("no Tsys row of " + s.name + " within " +
                              number(m_st.opt.farTsysMinutes, "%g") + " min");
                    return false;
                }
            }
        }
        return true;
    }

    bool DropTimeData(AUVXGroup& group, AUVXVisibility& vis, int index) override {
        if (m_st.opt.beforeStart == ACalBeforeStart::CopyRaw && group.time < m_st.opt.startTime) {
            ++m_st.rawBeforeStart;
            ++m_st.summary->recordsWritten;
            return AUVXTimeWorks::DropTimeData(group, vis, index);
        }
        // A record earlier than the interval in hand: the file is not in time order here.
        m_st.Drop("earlier than the interval in hand (records out of time order)");
        return true;
    }

    bool IntervalsExec_Init() override {
        // The statistics describe the calibrated values, not the raw ones of the input's header.
        m_header.reMin = m_header.imMin = HUGE_VAL;
        m_header.reMax = m_header.imMax = -HUGE_VAL;
        return true;
    }

    bool IntervalsExec_Finalize() override {
        double* stats[4] = {&m_header.reMin, &m_header.reMax, &m_header.imMin, &m_header.imMax};
        for (double* s : stats)
            if (!std::isfinite(*s)) *s = 0.0;
        return true;
    }

    void ShowPercent(int percent) override {
        m_st.listener->OnProgress(m_st.stage, m_st.walk, m_st.summary->walks, percent);
    }

    bool IntervalsExec_Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start,
                                 double end) override {
        ACalSummary& sum = *m_st.summary;
        ++sum.intervals;
        // 1. Digitisation, on the records as they were read: the power comes from the raw
        //    autocorrelations, which every later pass rescales.
        if (m_st.digPower) m_st.power.Calculate(vis, groups, start, end);
        if (m_st.digBits) m_st.quantisation.Calculate(vis, groups, start, end);

        APtrArray<AUVXVisibility*> keptVis;
        keptVis.owner = 0;  // the driver owns the records
        AArray<AUVXGroup> keptGroups;
        std::vector<float> weightBefore;
        const int n = std::min(vis.count, groups.count);
        for (int k = 0; k < n; ++k) {
            AUVXVisibility& v = *vis[k];
            AUVXGroup& g = groups[k];
            // 2. Bandpass, per record, on the same footing as it was solved on.
            if (m_st.bandpass && !m_st.bandpass->Apply(g, v)) {
                m_errMsg = m_st.bandpass->m_err.c_str();
                return false;
            }
            const float w0 = v.count > 0 ? v.data[0].wt : 0.0f;
            // 3. Amplitude calibration at the record's own time.
            if (m_st.antab) {
                if (!m_st.antab->Calibrate(g, v)) {
                    const std::string text = m_st.antab->GetErrMsg().GetString();
                    m_st.Drop("amplitude calibration failed: " + reasonKey(text), text);
                    continue;
                }
                m_st.calibratedIds.insert(g.ant1);
                m_st.calibratedIds.insert(g.ant2);
            }
            keptVis.Add(&v);
            keptGroups.Add(g);
            weightBefore.push_back(w0);
        }
        if (m_st.opt.avgStep <= 0.0) {
            sum.recordsWritten += keptVis.count;
            return WriteData(keptVis, keptGroups, start, end);
        }
        // 4. Averaging, last.
        APtrArray<AUVXVisibility*> outVis;  // owns the means
        AArray<AUVXGroup> outGroups;
        if (!average(keptVis, keptGroups, weightBefore, start, end, outVis, outGroups)) return false;
        sum.recordsWritten += outVis.count;
        return WriteData(outVis, outGroups, start, end);
    }

private:
    bool average(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups,
                 const std::vector<float>& weightBefore, double start, double end,
                 APtrArray<AUVXVisibility*>& outVis, AArray<AUVXGroup>& outGroups) {
        ACalSummary& sum = *m_st.summary;
        const int n = vis.count;
        if (n == 0) return true;
        const int elements = vis[0]->count;
        // The mean counts a record when its first element's weight is at least 0.25. The amplitude
        // calibration divides weights by SEFD1 x SEFD2 (often 1e4 Jy^2 and more), which would drop
        // every record; so the host decides on the weight before the calibration, and scales the
        // calibrated weights by a power of two (exact in float) for the mean's own test, undoing it
        // afterwards. Without the amplitude calibration the weights are taken as they are.
        std::vector<char> accept(static_cast<std::size_t>(n), 1);
        int exponent = 0;
        if (m_st.antab) {
            // The scale follows from the first elements alone, kept 1e8 below the float range so
            // that other elements of a record (of like weight) cannot overflow either.
            float minW = HUGE_VALF, maxW = 0.0f;
            for (int k = 0; k < n; ++k) {
                AUVXVisibility& v = *vis[k];
                accept[k] = v.count == elements && !(kMeanWeightFloor > weightBefore[k]);
                if (!accept[k]) continue;
                const float w = v.data[0].wt;
                if (w > 0.0f) minW = std::min(minW, w);
                if (std::isfinite(w)) maxW = std::max(maxW, std::fabs(w));
            }
            if (minW < kMeanWeightFloor) {
                exponent = static_cast<int>(std::ceil(std::log2(kMeanWeightFloor / minW)));
                while (exponent > 0 && std::ldexp(static_cast<double>(maxW), exponent) > 1e30) --exponent;
            }
            exponent = std::min(exponent, 120);  // 2^120 is still a float
        } else {
            for (int k = 0; k < n; ++k) accept[k] = vis[k]->count == elements;
        }
        const float up = std::ldexp(1.0f, exponent);  // a power of two: the products are exact
        const bool dropFlagged = m_st.opt.dropFlagged;
        // One pass over the elements: scale the weights, clear flagged elements when they are to be
        // left out (they then add 0 to the sums, and the means are rescaled below by the count of
        // good elements), and count per baseline the records the mean will take by its own rule and
        // per element how many of them were unflagged.
        struct ACount {
            int records = 0;
            std::vector<int> good;
        };
        std::map<int, ACount> counted;
        std::int64_t counting = 0;
        const int interFreq = groups[0].freqId;
        bool mixedFreq = false, mixedSource = false;
        for (int k = 0; k < n; ++k) {
            AUVXVisibility& v = *vis[k];
            float w0 = v.count > 0 ? v.data[0].wt * up : 0.0f;
            if (dropFlagged && !(w0 > 0.0f)) w0 = 0.0f;
            const bool counts = accept[k] && v.count > 0 && !(kMeanWeightFloor > w0);
            ACount* c = nullptr;
            if (counts) {
                ++counting;
                mixedFreq |= groups[k].freqId != interFreq;
                mixedSource |= groups[k].sourceId != groups[0].sourceId;
                c = &counted[baselineKey(groups[k])];
                ++c->records;
                if (dropFlagged && c->good.empty()) c->good.assign(static_cast<std::size_t>(elements), 0);
            } else {
                m_st.Drop("first element's weight below 0.25 or flagged: left out of the average");
            }
            AUVXComplex* d = v.data;
            for (int e = 0; e < v.count; ++e) {
                d[e].wt *= up;
                if (d[e].wt > 0.0f) {
                    if (c != nullptr && dropFlagged) ++c->good[static_cast<std::size_t>(e)];
                } else if (dropFlagged) {
                    d[e].re = d[e].im = d[e].wt = 0.0f;
                } else if (c != nullptr) {
                    ++sum.flaggedAveraged;
                }
            }
        }
        if (mixedSource) ++m_st.mixedIntervals;

        AHostMean mean;
        mean.accept = &accept;
        mean.Calculate(vis, groups, start, end, outVis, outGroups, 0);

        const float down = std::ldexp(1.0f, -exponent);
        // Baselines none of whose records counted give a record of zeros: leave those out.
        int kept = 0;
        for (int b = 0; b < outVis.count; ++b) {
            AUVXVisibility* v = outVis[b];
            AUVXGroup g = outGroups[b];
            auto it = counted.find(baselineKey(g));
            if (it == counted.end()) {
                delete v;
                continue;
            }
            const ACount& c = it->second;
            for (int e = 0; e < v->count; ++e) {
                AUVXComplex& x = v->data[e];
                if (m_st.opt.dropFlagged) {
                    const int good = c.good[static_cast<std::size_t>(e)];
                    if (good > 0 && good < c.records) {
                        const float f = static_cast<float>(c.records) / static_cast<float>(good);
                        x.re *= f;
                        x.im *= f;
                        x.wt *= f;
                    }
                }
                if (exponent > 0) x.wt *= down;
            }
            // The mean writes frequency setup 0, which has no row in the frequency table.
            if (!mixedFreq) g.freqId = static_cast<decltype(g.freqId)>(interFreq);
            outVis[kept] = v;
            outGroups[kept] = g;
            ++kept;
        }
        outVis.count = kept;  // the pointers past `kept` were deleted or moved down
        outGroups.count = kept;
        if (mixedFreq) ++m_st.mixedFreqIntervals;
        sum.recordsAveraged += counting - outVis.count;
        return true;
    }

    ACalPipeline::AState& m_st;
};

// The first walk of a bandpass run: the same digitisation corrections, then the solvers; no output.
class ASolveWalk : public AUVXTimeWorks {
public:
    explicit ASolveWalk(ACalPipeline::AState& st) : m_st(st) {}

protected:
    bool Filter(AUVXVisibility&, AUVXGroup& group, int) override {
        if (m_st.sourceSel >= 0 && group.sourceId != m_st.sourceSel) return false;
        if (m_st.bpSourceSel >= 0 && group.sourceId != m_st.bpSourceSel) return false;
        return true;
    }
    void ShowPercent(int percent) override {
        m_st.listener->OnProgress(m_st.stage, m_st.walk, m_st.summary->walks, percent);
    }
    bool IntervalsExec_Calculate(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double start,
                                 double end) override {
        if (m_st.digPower) m_st.power.Calculate(vis, groups, start, end);
        if (m_st.digBits) m_st.quantisation.Calculate(vis, groups, start, end);
        if (!m_st.bandpass->Solve(vis, groups, start, end, m_st.bpSourceSel)) {
            m_errMsg = m_st.bandpass->m_err.c_str();
            return false;
        }
        return true;
    }

private:
    ACalPipeline::AState& m_st;
};

}  // namespace

ACalPipeline::ACalPipeline() = default;
ACalPipeline::~ACalPipeline() = default;

bool ACalPipeline::fail(const std::string& text) {
    m_errMsg = text;
    if (m_state) {
        m_state->Message(ACalLevel::Error, text);
    }
    return false;
}

bool ACalPipeline::Run(const std::string& in, const std::string& out, const ACalOptions& options,
                       ACalListener* listener, int* abort) {
    const auto t0 = std::chrono::steady_clock::now();
    m_state = std::make_unique<AState>();
    AState& st = *m_state;
    st.opt = options;
    st.listener = listener ? listener : &st.quiet;
    m_summary = ACalSummary();
    st.summary = &m_summary;
    m_summary.input = in;
    m_summary.output = out;
    m_errMsg.clear();
    st.tsysOf.fill(-1);
    auto finish = [&](bool ok) {
        m_summary.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        return ok;
    };

    const std::string problem = options.Validate();
    if (!problem.empty()) return finish(fail(problem));
    std::error_code ec;
    if (in == out || (fs::exists(out, ec) && fs::equivalent(in, out, ec)))
        return finish(fail(out + ": the output would replace the input; choose another name"));

    AUVXFile inFile;
    if (!inFile.Open(in.c_str())) return finish(fail(in + ": " + inFile.m_errMsg.GetString()));
    m_summary.recordsIn = inFile.nGroups;
    const auto size = fs::file_size(in, ec);
    m_summary.inputMB = ec ? 0.0 : static_cast<double>(size) / 1e6;
    st.header = AUVXHeader(inFile);

    // Tables the passes read.
    std::unique_ptr<AUVXTable> an(inFile.GetTable("AN"));
    const bool needAntennas = options.digPower || !options.antab.empty() || options.NeedsBandpassWalk();
    if (an) {
        st.antennas.Init(*an);
    } else if (needAntennas) {
        return finish(fail(in + ": the file has no antenna table (AN), which the digitisation, bandpass and "
                                "amplitude calibration need"));
    }
    std::unique_ptr<AUVXTable> su(inFile.GetTable("SU"));
    if (su) st.sources.Init(*su);
    auto sourceId = [&](const std::string& name, int& id) {
        for (int i = 0; i < st.sources.count; ++i)
            if (sameNoCase(trimmed(st.sources[i].Name().GetString()), trimmed(name))) {
                id = st.sources[i].id;
                return true;
            }
        return false;
    };
    auto sourceList = [&]() {
        std::string names;
        for (int i = 0; i < st.sources.count; ++i)
            names += (i ? " " : "") + trimmed(st.sources[i].Name().GetString());
        return names.empty() ? std::string("none: the file has no source table (SU)") : names;
    };
    if (!options.source.empty() && !sourceId(options.source, st.sourceSel))
        return finish(fail(in + ": no source \"" + options.source + "\" in the source table; the file has " +
                           sourceList()));
    if (!options.bpSource.empty() && !sourceId(options.bpSource, st.bpSourceSel))
        return finish(fail(in + ": no source \"" + options.bpSource + "\" for the bandpass; the file has " +
                           sourceList()));
    std::unique_ptr<AUVXTable> sl(inFile.GetTable("SL"));
    if (sl) {
        AUVXSkanList scans;
        st.hasScanList = scans.Create(*sl) && scans.count > 0;
        for (int i = 0; i < scans.count; ++i) st.scans.push_back({scans[i].start, scans[i].end, 0.0});
    }

    // Is there an autocorrelation? The power correction and the amplitude bandpass read them.
    {
        AUVXRecordReader reader;
        if (!reader.Open(inFile)) return finish(fail(in + ": " + reader.m_errMsg.GetString()));
        AUVXGroup g{};
        AUVXVisibility v(inFile);
        for (int k = 0; k < kAutoProbeRecords && reader.Next(g, v); ++k)
            if (g.ant1 == g.ant2) {
                st.hasAutoCorr = true;
                break;
            }
        if (reader.Failed()) return finish(fail(in + ": " + reader.m_errMsg.GetString()));
        reader.Close();
        inFile.SeekUVGroup(0);
    }
    const bool averaging = options.avgStep > 0.0;

    // Digitisation.
    st.digPower = options.digPower;
    if (st.digPower && !st.hasAutoCorr) {
        st.digPower = false;
        m_summary.notDone.push_back(
            "digitisation by power: the file has no autocorrelations, so the power of the "
            "antennas cannot be measured");
    }
    if (st.digPower) st.power.Init(st.header, st.antennas);
    st.digBits = options.digBits;
    if (st.digBits) {
        std::unique_ptr<AUVXTable> ai(inFile.GetTable("AI"));
        if (!ai) {
            st.digBits = false;
            m_summary.notDone.push_back(
                "digitisation by bits: the file has no antenna-information table (AI), so the "
                "digitiser bits of the stations are unknown");
        } else {
            st.bits = std::make_unique<AAIShortTbl>(ai.get());
            if (!st.bits->IsOK(an.get())) {
                if (options.digFixBits) {
                    st.bits->Correct();
                    m_summary.warnings.push_back(
                        "the antenna-information table failed its check (a station with "
                        "fewer than 4 bits per sample, or fewer than 1 for RA*, as if "
                        "levels had been written for bits); --fix-bits raised the counts");
                } else {
                    m_summary.warnings.push_back(
                        "the antenna-information table failed its check (a station with "
                        "fewer than 4 bits per sample, or fewer than 1 for RA*, as if "
                        "levels had been written for bits); the counts were used as "
                        "they are: --fix-bits raises them");
                }
            }
            st.quantisation.Init(*st.bits);
        }
    }

    // Amplitude calibration.
    if (!options.antab.empty()) {
        for (int s = 0; s < st.header.nStokes && s < 8; ++s)
            if (st.header.stokes[s] > -1 || st.header.stokes[s] < -4)
                return finish(fail(in +
                                   ": the amplitude calibration needs circular products (RR, LL, RL, LR); "
                                   "the file has Stokes code " +
                                   std::to_string(st.header.stokes[s])));
        std::ifstream file(options.antab, std::ios::binary);
        if (!file) return finish(fail(options.antab + ": cannot read the ANTAB file"));
        std::ostringstream whole;
        whole << file.rdbuf();
        // The checker reads the text as the parser would and explains what the parser would refuse
        // or misread; with --antab-fix its normalised text is what gets loaded. (The Tsys coverage of
        // the observation is checked during the walk itself, not by a walk of its own.)
        AAntabCheck checker;
        AAntabCheckResult checked;
        checker.CheckText(whole.str(), options.antab, nullptr, checked);
        bool findings = false;
        for (const AAntabFinding& f : checked.findings)
            if (f.kind == "error" || f.kind == "loss" || f.kind == "question") {
                findings = true;
                if (!options.antabFix) m_summary.warnings.push_back(FormatAntabFinding(options.antab, f));
            }
        std::string antabText = whole.str();
        if (options.antabFix) {
            if (checked.stopped) {
                std::string question;
                for (const AAntabFinding& f : checked.findings)
                    if (f.kind == "question") question += "\n" + FormatAntabFinding(options.antab, f);
                return finish(fail(options.antab +
                                   ": the ANTAB file is ambiguous and was not normalised; answer with "
                                   "antab-check's options and calibrate with its output:" +
                                   question));
            }
            for (const AAntabChange& c : checked.changes)
                m_summary.antabChanges.push_back("line " + std::to_string(c.line) + ": \"" + c.before +
                                                 "\" -> \"" + c.after + "\" (" + c.why + ")");
            if (checked.changed) antabText = checked.normalised;
        }
        std::istringstream text(antabText);
        st.antab = std::make_unique<AAntabData>();
        if (!st.antab->Init(inFile)) return finish(fail(in + ": " + st.antab->GetErrMsg().GetString()));
        if (!st.antab->Load(text)) {
            std::string msg = st.antab->GetErrMsg().GetString();
            if (findings && !options.antabFix)
                msg += " (the checker's findings are listed above; --antab-fix may repair them)";
            const auto at = msg.find("non found ");
            const auto to = msg.find(" in ANTAB data");
            if (at != std::string::npos && to != std::string::npos && to > at + 10) {
                const std::string station = msg.substr(at + 10, to - at - 10);
                return finish(fail(options.antab + ": no GAIN and TSYS data for station " + station +
                                   ", which the observation's antenna table holds (" + msg +
                                   "); add the station's data to the ANTAB file"));
            }
            return finish(fail(options.antab + ": " + msg));
        }
        const double refMJD = st.header.refJD - 2400000.5;
        for (int t = 0; t < st.antab->m_tlscs.count; ++t) {
            AAntabTlsc* tl = st.antab->m_tlscs[t];
            if (tl->m_antID < 0 || tl->m_antID > 255) continue;
            AStationTsys s;
            s.name = tl->m_name.GetString();
            for (int r = 0; r < tl->m_tsys.rows; ++r) {
                const double* row = tl->m_tsys.Row(r);
                s.times.push_back((row[0] + row[1] - refMJD) * 86400.0);
            }
            std::sort(s.times.begin(), s.times.end());
            if (st.tsysOf[static_cast<std::uint8_t>(tl->m_antID)] < 0) {
                st.tsysOf[static_cast<std::uint8_t>(tl->m_antID)] = static_cast<int>(st.tsys.size());
                st.tsys.push_back(std::move(s));
            }
        }
        st.farSeconds = options.farTsysMinutes * 60.0;
    }

    // Bandpass.
    if (options.NeedsBandpassWalk()) {
        if (options.bpAmplitude && !st.hasAutoCorr) {
            m_summary.notDone.push_back(
                "amplitude bandpass: the file has no autocorrelations to derive it from");
        }
        const bool phase = options.bpPhase != ACalPhaseMethod::None;
        if (phase || (options.bpAmplitude && st.hasAutoCorr)) {
            ACalOptions bpOptions = options;
            if (!st.hasAutoCorr) bpOptions.bpAmplitude = false;
            st.bandpass = std::make_unique<ACalBandpass>(bpOptions);
            if (!st.bandpass->Init(st.header, st.antennas))
                return finish(fail(in + ": " + st.bandpass->m_err));
        }
    }

    if (st.bandpass && options.bpPhase != ACalPhaseMethod::None)
        m_summary.warnings.push_back(
            "the bandpass divides a baseline by the square root of its two stations' coefficients, so a "
            "station's "
            "phase acts at half strength: LMS1 and APR solutions remove half of each baseline's bandpass "
            "phase, "
            "LMS removes the whole phase on the baselines to the reference only");
    if (averaging && options.useScanList && !st.hasScanList)
        m_summary.warnings.push_back(
            "the file has no scan list (SL): averaging intervals follow a plain grid of " +
            number(options.avgStep, "%g") + " s and may span two scans");
    if (averaging && !options.dropFlagged)
        m_summary.warnings.push_back(
            "averaging adds flagged elements into the means like any other (a record "
            "counts when its first element's weight is at least 0.25); --drop-flagged "
            "leaves them out");

    m_summary.walks = st.bandpass ? 2 : 1;
    m_summary.passes = options.Passes();

    // Walk 1: solve the bandpass over the whole file, before anything is written.
    if (st.bandpass) {
        st.walk = 1;
        st.stage = "bandpass solve";
        ASolveWalk solve(st);
        solve.m_useSkanList = options.useScanList && st.hasScanList;
        const double step = options.bpStep > 0.0 ? options.bpStep : 600.0;
        if (!solve.IntervalsExec(&inFile, nullptr, options.startTime, step, abort)) {
            const std::string msg = solve.m_errMsg.GetString();
            return finish(fail(msg == "User abort" ? msg : in + ": bandpass solve: " + msg));
        }
        m_summary.bandpassIntervals = st.bandpass->Intervals();
        for (const auto& note : st.bandpass->m_notes) m_summary.notDone.push_back(note);
        if (m_summary.bandpassIntervals == 0)
            m_summary.notDone.push_back("bandpass: no interval gave a solution, so none was applied");
        inFile.SeekUVGroup(0);
    }

    // Walk 2 (or the only one): everything else, into a temporary file beside the output.
    st.walk = m_summary.walks;
    st.stage = "calibrate";
    const std::string part = out + ".part";
    fs::remove(part, ec);
    bool ok;
    std::string walkError;
    {
        AUVXFile outFile;
        if (!outFile.Create(part.c_str()))
            return finish(fail(out + ": cannot be written: " + outFile.m_errMsg.GetString()));
        AApplyWalk apply(st);
        apply.m_useSkanList = options.useScanList && st.hasScanList;
        const double step = averaging ? options.avgStep : options.digStep;
        ok = apply.IntervalsExec(&inFile, &outFile, options.startTime, step, abort);
        if (!ok) walkError = apply.m_errMsg.GetString();
    }
    if (!ok) {
        fs::remove(part, ec);
        return finish(fail(walkError == "User abort" ? walkError : in + ": " + walkError));
    }
    fs::rename(part, out, ec);
    if (ec) {
        fs::remove(part, ec);
        return finish(fail(out + ": cannot be written: " + ec.message()));
    }

    // What the user should know about how it went.
    for (int id : st.calibratedIds) m_summary.stationsCalibrated.push_back(st.StationName(id));
    for (const auto& s : st.tsys)
        if (s.farRecords > 0)
            m_summary.warnings.push_back(
                "station " + s.name + ": " + std::to_string(s.farRecords) + " record(s) lie further than " +
                number(options.farTsysMinutes, "%g") + " min from any Tsys row (up to " +
                number(s.farthest / 60.0) + " min); " +
                (options.farTsys == ACalFarTsys::Hold
                     ? "the nearest Tsys was held for them (--tsys-far drop leaves "
                       "them out)"
                     : "they were left out"));
    if (st.mixedFreqIntervals > 0)
        m_summary.warnings.push_back(
            std::to_string(st.mixedFreqIntervals) +
            " averaging interval(s) held more than one frequency setup; their averaged "
            "records carry setup 0");
    if (st.rawBeforeStart > 0)
        m_summary.warnings.push_back(
            std::to_string(st.rawBeforeStart) +
            " record(s) before the start time were copied raw, uncalibrated, into the output");
    if (st.mixedIntervals > 0)
        m_summary.warnings.push_back(
            std::to_string(st.mixedIntervals) +
            " averaging interval(s) held more than one source; their averaged records carry "
            "the mean source ID: use the scan list or --source");
    for (const auto& w : m_summary.warnings) st.Message(ACalLevel::Warning, w);
    for (const auto& n : m_summary.notDone) st.Message(ACalLevel::Warning, "not done: " + n);
    return finish(true);
}

bool ACalPipeline::WriteReport(const std::string& dir) {
    std::error_code ec;
    fs::create_directories(dir, ec);
    if (ec && !fs::is_directory(dir)) return fail(dir + ": cannot create the report folder: " + ec.message());
    auto writeText = [&](const std::string& name, const std::string& text) {
        const std::string path = (fs::path(dir) / name).string();
        std::ofstream f(path, std::ios::binary | std::ios::trunc);
        f << text;
        f.close();
        if (!f) return fail(path + ": cannot be written");
        return true;
    };
    if (!writeText("summary.json", m_summary.ToJson())) return false;
    if (!m_state) return true;
    AState& st = *m_state;

    std::ostringstream scans;
    scans << "start_s,end_s\n";
    for (const auto& s : st.scans) scans << s[0] << ',' << s[1] << '\n';
    if (!writeText("scans.csv", scans.str())) return false;

    std::ostringstream tsys;
    tsys.precision(10);
    tsys << "station,time_s,position,tsys\n";
    if (st.antab) {
        const double refMJD = st.header.refJD - 2400000.5;
        for (int t = 0; t < st.antab->m_tlscs.count; ++t) {
            AAntabTlsc* tl = st.antab->m_tlscs[t];
            if (tl->m_antID < 0) continue;
            for (int r = 0; r < tl->m_tsys.rows; ++r) {
                const double* row = tl->m_tsys.Row(r);
                const double time = (row[0] + row[1] - refMJD) * 86400.0;
                for (int p = 0; p + 2 < tl->m_tsys.cols; ++p)
                    if (row[p + 2] != 0.0)
                        tsys << tl->m_name.GetString() << ',' << time << ',' << p << ','
                             << row[p + 2] * tl->m_ft << '\n';
            }
        }
    }
    if (!writeText("tsys.csv", tsys.str())) return false;

    const std::string store = (fs::path(dir) / "bandpass.store").string();
    const std::string csv = (fs::path(dir) / "bandpass.csv").string();
    if (st.bandpass) {
        if (!st.bandpass->Write(store, csv)) return fail(st.bandpass->m_err);
    } else {
        if (!writeText("bandpass.csv", "station,start_s,end_s,if,hand,channel,amplitude,phase\n"))
            return false;
        fs::remove(store, ec);
    }
    return true;
}
