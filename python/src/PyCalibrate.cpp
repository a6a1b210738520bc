// PyCalibrate: the calibration host for Python: keyword options, progress callback, summary as a dict.
#include "PyCalibrate.h"

#include <optional>
#include <string>
#include <vector>

#include <pybind11/stl.h>

#include <merovane/host/ACalOptions.h>
#include <merovane/host/ACalPipeline.h>
#include <merovane/host/ACalSummary.h>

#include "PyErrors.h"

namespace py = pybind11;

namespace {

template <class T>
void Take(py::dict& kw, const char* key, T& value) {
    if (!kw.contains(key)) return;
    value = kw[key].cast<T>();
    PyDict_DelItemString(kw.ptr(), key);
}

// A choice given by name; `names` and `values` in the same order.
template <class E>
void TakeChoice(py::dict& kw, const char* key, const std::vector<std::string>& names,
                const std::vector<E>& values, E& value) {
    if (!kw.contains(key)) return;
    py::object o = kw[key];
    std::string name = o.is_none() ? std::string("none") : o.cast<std::string>();
    for (char& ch : name) ch = static_cast<char>(ch >= 'A' && ch <= 'Z' ? ch - 'A' + 'a' : ch);
    PyDict_DelItemString(kw.ptr(), key);
    for (std::size_t i = 0; i < names.size(); ++i)
        if (names[i] == name) {
            value = values[i];
            return;
        }
    std::string known;
    for (const std::string& n : names) known += (known.empty() ? "" : ", ") + n;
    throw AMerovaneError(std::string("calibrate: ") + key + " must be one of " + known + ", not '" + name +
                         "'");
}

// Calls the Python progress callback with the interpreter held; an exception in it (or Ctrl-C) stops
// the run through the abort flag and is raised again when the run has returned.
class APyListener : public ACalListener {
public:
    APyListener(py::object progress, int* abort) : m_progress(std::move(progress)), m_abort(abort) {}

    void OnProgress(const std::string& stage, int walk, int walks, int percent) override {
        py::gil_scoped_acquire hold;
        if (PyErr_CheckSignals() != 0) {
            m_error = py::error_already_set();
            *m_abort = 1;
            return;
        }
        if (m_progress.is_none() || *m_abort) return;
        try {
            m_progress(stage, walk, walks, percent);
        } catch (py::error_already_set& e) {
            m_error = std::move(e);
            *m_abort = 1;
        }
    }
    void OnMessage(ACalLevel level, const std::string& text) override {
        messages.emplace_back(level == ACalLevel::Error     ? "error"
                              : level == ACalLevel::Warning ? "warning"
                                                            : "info",
                              text);
    }

    std::vector<std::pair<std::string, std::string>> messages;
    py::object m_progress;
    int* m_abort;
    std::optional<py::error_already_set> m_error;
};

py::dict SummaryToDict(const ACalSummary& s) {
    py::dict d;
    d["input"] = s.input;
    d["output"] = s.output;
    d["passes"] = s.passes;
    d["walks"] = s.walks;
    d["records_in"] = s.recordsIn;
    d["records_read"] = s.recordsRead;
    d["records_written"] = s.recordsWritten;
    d["records_averaged"] = s.recordsAveraged;
    py::dict dropped;
    for (const auto& r : s.dropped) dropped[r.first.c_str()] = r.second;
    d["dropped"] = dropped;
    d["intervals"] = s.intervals;
    d["bandpass_intervals"] = s.bandpassIntervals;
    d["flagged_averaged"] = s.flaggedAveraged;
    d["stations_calibrated"] = s.stationsCalibrated;
    d["not_done"] = s.notDone;
    d["warnings"] = s.warnings;
    d["seconds"] = s.seconds;
    d["input_mb"] = s.inputMB;
    d["mb_per_second"] = s.MBPerSecond();
    return d;
}

}  // namespace

ACalOptions OptionsFromKeywords(py::kwargs kwargs) {
    ACalOptions o;
    py::dict kw(kwargs);
    Take(kw, "dig_power", o.digPower);
    Take(kw, "dig_bits", o.digBits);
    Take(kw, "dig_fix_bits", o.digFixBits);
    Take(kw, "dig_step", o.digStep);
    if (kw.contains("antab")) {
        py::object a = kw["antab"];
        o.antab = a.is_none() ? std::string() : py::str(a).cast<std::string>();
        PyDict_DelItemString(kw.ptr(), "antab");
    }
    Take(kw, "antab_fix", o.antabFix);
    TakeChoice(kw, "far_tsys", {"hold", "drop"}, {ACalFarTsys::Hold, ACalFarTsys::Drop}, o.farTsys);
    Take(kw, "far_tsys_minutes", o.farTsysMinutes);
    Take(kw, "bp_amplitude", o.bpAmplitude);
    if (kw.contains("bp_ranges")) {
        for (py::handle item : kw["bp_ranges"]) {
            py::tuple t = py::reinterpret_borrow<py::object>(item).cast<py::tuple>();
            if (t.size() < 2 || t.size() > 3)
                throw AMerovaneError("calibrate: bp_ranges takes (first, last) or (first, last, station)");
            ACalChannelRange r;
            r.first = t[0].cast<int>();
            r.last = t[1].cast<int>();
            if (t.size() == 3) r.station = t[2].cast<std::string>();
            o.bpRanges.push_back(r);
        }
        PyDict_DelItemString(kw.ptr(), "bp_ranges");
    }
    TakeChoice(kw, "bp_phase", {"none", "lms", "lms1", "pha_apr"},
               {ACalPhaseMethod::None, ACalPhaseMethod::LMS, ACalPhaseMethod::LMS1, ACalPhaseMethod::PHA_APR},
               o.bpPhase);
    Take(kw, "bp_phase_order", o.bpPhaseOrder);
    Take(kw, "bp_ref_ant", o.bpRefAnt);
    Take(kw, "bp_source", o.bpSource);
    Take(kw, "bp_step", o.bpStep);
    Take(kw, "avg_step", o.avgStep);
    Take(kw, "use_scan_list", o.useScanList);
    Take(kw, "drop_flagged", o.dropFlagged);
    Take(kw, "source", o.source);
    Take(kw, "start_time", o.startTime);
    TakeChoice(kw, "before_start", {"drop", "copy"}, {ACalBeforeStart::Drop, ACalBeforeStart::CopyRaw},
               o.beforeStart);
    if (!kw.empty()) {
        std::string names;
        for (auto item : kw) names += (names.empty() ? "" : ", ") + item.first.cast<std::string>();
        throw AMerovaneError("calibrate: unknown option " + names);
    }
    const std::string problem = o.Validate();
    if (!problem.empty()) throw AMerovaneError("calibrate: " + problem);
    return o;
}

py::dict CalibrateFiles(const std::string& in, const std::string& out, py::object progress,
                        const std::string& report, py::kwargs kwargs) {
    const ACalOptions options = OptionsFromKeywords(kwargs);
    int abort = 0;
    APyListener listener(progress, &abort);
    ACalPipeline pipeline;
    bool ok;
    {
        py::gil_scoped_release release;
        ok = pipeline.Run(in, out, options, &listener, &abort);
        if (ok && !report.empty()) ok = pipeline.WriteReport(report);
    }
    if (listener.m_error) throw std::move(*listener.m_error);
    if (!ok) throw AMerovaneError(pipeline.m_errMsg);
    py::dict d = SummaryToDict(pipeline.m_summary);
    py::list messages;
    for (const auto& m : listener.messages) messages.append(py::make_tuple(m.first, m.second));
    d["messages"] = messages;
    return d;
}
