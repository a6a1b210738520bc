// PyAntabCheck: the ANTAB checker for Python.
#pragma once

#include <string>

#include <pybind11/pybind11.h>

// Checks ANTAB file `path` (and against UVX file `uvx` when not empty): {"findings": [dict of line,
// station, kind, code, text, todo], "changes": [dict of line, before, after, why], "normalised": str
// (empty when a question stopped the normaliser), "stopped": bool, "changed": bool, "clean": bool}.
// Options: gain {station: dpfu text}, index {station: INDEX text}, drop_extra [stations], keep
// {station: block}, coverage_minutes. AMerovaneError when a file cannot be read.
pybind11::dict CheckAntab(const std::string& path, const std::string& uvx, pybind11::kwargs kwargs);
