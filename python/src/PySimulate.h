// PySimulate: uvx-sim's simulated observation and its truth, for Python.
#pragma once

#include <string>

#include <pybind11/pybind11.h>

class ASimTruth;

// The truth as a dict: shape, frequencies, switches, per station code, id, xyz, bits, dpfu, ft,
// bandpass (complex, IF x hand x channel) and level (IF x hand), per source name, id, ra, dec, flux.
pybind11::dict TruthToDict(const ASimTruth& truth);
// Simulates into path (".uvx" added when missing) with its ".antab" and ".truth" beside it; keyword
// options as uvx-sim's (stations, sources, n_if, n_chan, products, duration, seed, bandpass, levels,
// quantisation, noise_scale, flags, ...). Returns {"uvx", "antab", "truth_file", "truth"}. Fails
// with AMerovaneError "simulate: <reason>" for an unknown option or a configuration it cannot run.
pybind11::dict SimulateToFiles(const std::string& path, pybind11::kwargs kwargs);
// A truth file written by the simulator, as TruthToDict gives it.
pybind11::dict LoadTruth(const std::string& path);
