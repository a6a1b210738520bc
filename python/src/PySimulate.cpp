// PySimulate: the simulated observation of uvx-sim for Python, and its truth as plain Python values.
#include "PySimulate.h"

#include <complex>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "PyErrors.h"
#include "UVXSimulator.h"

namespace py = pybind11;

namespace {

// Takes the keyword `key` out of `kw` into `value` when present; every known key is consumed so that
// an unknown one can be named afterwards.
template <class T>
void Take(py::dict& kw, const char* key, T& value) {
    if (!kw.contains(key)) return;
    value = kw[key].cast<T>();
    PyDict_DelItemString(kw.ptr(), key);
}

std::string Stem(const std::string& path) {
    const std::string suffix = ".uvx";
    if (path.size() > suffix.size() && path.compare(path.size() - suffix.size(), suffix.size(), suffix) == 0)
        return path.substr(0, path.size() - suffix.size());
    return path;
}

}  // namespace

py::dict TruthToDict(const ASimTruth& t) {
    py::dict d;
    d["ref_jd"] = t.refJD;
    d["n_if"] = t.nIF;
    d["n_chan"] = t.nChan;
    d["stokes"] = t.stokes;
    d["ref_freq"] = t.refFreq;
    d["chan_width"] = t.chanWidth;
    d["if_bandwidth"] = t.ifBandwidth;
    d["int_time"] = t.intTime;
    d["noise_scale"] = t.noiseScale;
    d["bandpass_on"] = t.bandpassOn;
    d["levels_on"] = t.levelsOn;
    d["quantisation_on"] = t.quantisationOn;
    py::list stations;
    for (const ASimStationTruth& s : t.stations) {
        py::dict st;
        st["code"] = s.code;
        st["id"] = s.id;
        st["xyz"] = std::vector<double>{s.x, s.y, s.z};
        st["bits"] = s.bits;
        st["quant_factor"] = s.quantFactor;
        st["dpfu"] = std::vector<double>{s.dpfu[0], s.dpfu[1]};
        st["ft"] = s.ft;
        // Bandpass by [IF, hand (0 R, 1 L), channel]; digitiser level by [IF, hand].
        py::array_t<std::complex<double>> bp({py::ssize_t(t.nIF), py::ssize_t(2), py::ssize_t(t.nChan)});
        auto b = bp.mutable_unchecked<3>();
        for (int f = 0; f < t.nIF; ++f)
            for (int h = 0; h < 2; ++h)
                for (int c = 0; c < t.nChan; ++c) b(f, h, c) = t.Bandpass(s.id, f, h, c);
        st["bandpass"] = bp;
        py::array_t<double> lv({py::ssize_t(t.nIF), py::ssize_t(2)});
        auto l = lv.mutable_unchecked<2>();
        for (int f = 0; f < t.nIF; ++f)
            for (int h = 0; h < 2; ++h) l(f, h) = t.Level(s.id, f, h);
        st["level"] = lv;
        stations.append(st);
    }
    d["stations"] = stations;
    py::list sources;
    for (const ASimSourceTruth& s : t.sources) {
        py::dict so;
        so["name"] = s.name;
        so["id"] = s.id;
        so["ra"] = s.ra;
        so["dec"] = s.dec;
        so["flux"] = s.flux;
        so["cross_flux"] = s.crossFlux;
        sources.append(so);
    }
    d["sources"] = sources;
    return d;
}

py::dict SimulateToFiles(const std::string& path, py::kwargs kwargs) {
    ASimConfig c;
    py::dict kw(kwargs);
    Take(kw, "stations", c.stations);
    Take(kw, "sources", c.sources);
    Take(kw, "fluxes", c.fluxes);
    Take(kw, "bits", c.bits);
    Take(kw, "n_if", c.nIF);
    Take(kw, "n_chan", c.nChan);
    Take(kw, "products", c.products);
    Take(kw, "int_time", c.intTime);
    Take(kw, "duration", c.duration);
    Take(kw, "scan_length", c.scanLength);
    Take(kw, "scan_gap", c.scanGap);
    Take(kw, "year", c.year);
    Take(kw, "day_of_year", c.dayOfYear);
    Take(kw, "start_time", c.startTime);
    Take(kw, "ref_freq", c.refFreq);
    Take(kw, "if_bandwidth", c.ifBandwidth);
    Take(kw, "seed", c.seed);
    Take(kw, "bandpass", c.bandpass);
    Take(kw, "levels", c.levels);
    Take(kw, "quantisation", c.quantisation);
    Take(kw, "noise_scale", c.noiseScale);
    Take(kw, "flags", c.flags);
    Take(kw, "flag_fraction", c.flagFraction);
    Take(kw, "min_elevation", c.minElevation);
    Take(kw, "tsys_step", c.tsysStep);
    Take(kw, "bandpass_phase_max", c.bandpassPhaseMax);
    if (!kw.empty()) {
        std::string names;
        for (auto item : kw) names += (names.empty() ? "" : ", ") + item.first.cast<std::string>();
        throw AMerovaneError("simulate: unknown option " + names);
    }
    const std::string stem = Stem(path);
    const std::string uvx = stem + ".uvx", antab = stem + ".antab", truthPath = stem + ".truth";
    ASimTruth truth;
    CString error;
    bool ok;
    {
        py::gil_scoped_release release;
        ok = Simulate(c, uvx.c_str(), antab.c_str(), truthPath.c_str(), &truth, &error);
    }
    if (!ok) throw AMerovaneError(std::string("simulate: ") + error.GetString());
    py::dict d;
    d["uvx"] = uvx;
    d["antab"] = antab;
    d["truth_file"] = truthPath;
    d["truth"] = TruthToDict(truth);
    return d;
}

py::dict LoadTruth(const std::string& path) {
    ASimTruth truth;
    CString error;
    if (!truth.Load(path.c_str(), &error)) throw AMerovaneError(path + ": " + error.GetString());
    return TruthToDict(truth);
}
