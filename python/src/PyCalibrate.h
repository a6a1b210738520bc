// PyCalibrate: the calibration passes of uvx-cal for Python.
#pragma once

#include <string>

#include <pybind11/pybind11.h>

#include <merovane/host/ACalOptions.h>

// The options of a run from Python keywords (dig_power, dig_bits, dig_fix_bits, antab, antab_fix,
// far_tsys, bp_amplitude, bp_ranges, bp_phase, bp_phase_order, bp_ref_ant, bp_source, bp_step,
// avg_step, use_scan_list, drop_flagged, source, start_time, before_start). AMerovaneError for an
// unknown keyword, a bad choice or options that do not go together.
ACalOptions OptionsFromKeywords(pybind11::kwargs kwargs);
// Runs the passes from UVX file `in` to UVX file `out` with the interpreter released; `progress`
// (None or a callable (stage, walk, walks, percent)) is called on the way. With `report` a directory,
// the report is written there. The summary as a dict with "messages"; AMerovaneError with the
// library's text on failure ("User abort" when the callback raised or Ctrl-C came; the callback's
// own exception is raised instead where there is one).
pybind11::dict CalibrateFiles(const std::string& in, const std::string& out, pybind11::object progress,
                              const std::string& report, pybind11::kwargs kwargs);
