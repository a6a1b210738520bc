// PyAntabCheck: the ANTAB checker's findings, changes and normalised text as Python values.
#include "PyAntabCheck.h"

#include <pybind11/stl.h>

#include <merovane/antab/AAntabCheck.h>
#include <merovane/uvx/AUVXFile.h>

#include "PyErrors.h"

namespace py = pybind11;

namespace {

template <class T>
void Take(py::dict& kw, const char* key, T& value) {
    if (!kw.contains(key)) return;
    value = kw[key].cast<T>();
    PyDict_DelItemString(kw.ptr(), key);
}

}  // namespace

py::dict CheckAntab(const std::string& path, const std::string& uvx, py::kwargs kwargs) {
    AAntabCheck check;
    py::dict kw(kwargs);
    Take(kw, "gain", check.m_options.gain);
    Take(kw, "index", check.m_options.index);
    Take(kw, "drop_extra", check.m_options.dropExtra);
    Take(kw, "keep", check.m_options.keep);
    Take(kw, "coverage_minutes", check.m_options.coverageMinutes);
    if (!kw.empty()) {
        std::string names;
        for (auto item : kw) names += (names.empty() ? "" : ", ") + item.first.cast<std::string>();
        throw AMerovaneError("antab.check: unknown option " + names);
    }
    AUVXFile file;
    if (!uvx.empty() && !file.Open(uvx.c_str())) throw AMerovaneError(file.m_errMsg.GetString());
    AAntabCheckResult result;
    bool ok;
    {
        py::gil_scoped_release release;
        ok = check.CheckFile(path.c_str(), uvx.empty() ? nullptr : &file, result);
    }
    if (!ok) throw AMerovaneError(check.m_errMsg.GetString());
    py::list findings, changes;
    for (const AAntabFinding& f : result.findings) {
        py::dict d;
        d["line"] = f.line;
        d["station"] = f.station;
        d["kind"] = f.kind;
        d["code"] = f.code;
        d["text"] = f.text;
        d["todo"] = f.todo;
        findings.append(d);
    }
    for (const AAntabChange& c : result.changes) {
        py::dict d;
        d["line"] = c.line;
        d["before"] = c.before;
        d["after"] = c.after;
        d["why"] = c.why;
        changes.append(d);
    }
    py::dict out;
    out["findings"] = findings;
    out["changes"] = changes;
    out["normalised"] = result.normalised;
    out["stopped"] = result.stopped;
    out["changed"] = result.changed;
    out["clean"] = result.Clean();
    return out;
}
