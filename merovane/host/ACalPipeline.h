// ACalPipeline: runs the calibration passes a user asked for over one UVX file, in the one right order.
#pragma once

#include <memory>
#include <string>

#include <merovane/host/ACalOptions.h>
#include <merovane/host/ACalSummary.h>
#include <merovane/platform/Export.h>

// The host of the library's passes, for programs and the Python module alike. One call of Run reads
// the input (never changed), makes as many walks over it as the passes need and writes the output.
//
// The order of the passes is fixed, whatever order the options were given in:
//   1. digitisation by power, then by bits, on the raw records of each interval: the power is
//      measured from the autocorrelations, which every later pass rescales;
//   2. bandpass, solved on such corrected records in a first walk and applied in the second;
//   3. amplitude calibration, record by record at the record's own time;
//   4. averaging, last, so that every record was calibrated with its own Tsys and elevation.
//
// The output is written under a temporary name beside OUT and renamed at the very end, so a failed
// or aborted run leaves nothing under OUT (and an existing OUT as it was). Failures return false
// with m_errMsg naming the file and what is wrong; an abort gives "User abort".
//
// One object serves one run at a time; two objects may run side by side on different files.
class MEROVANE_API ACalPipeline {
public:
    ACalPipeline();
    ~ACalPipeline();
    ACalPipeline(const ACalPipeline&) = delete;
    ACalPipeline& operator=(const ACalPipeline&) = delete;

    // Calibrates UVX file `in` into UVX file `out`. `listener` (may be null) hears progress and
    // messages; a nonzero int behind `abort` (may be null) stops the run at the next record.
    bool Run(const std::string& in, const std::string& out, const ACalOptions& options,
             ACalListener* listener = nullptr, int* abort = nullptr);

    // After a run that solved a bandpass or calibrated amplitudes: writes into directory `dir`
    // (created if missing) "summary.json", "bandpass.store" (each stored coefficient matrix in the
    // file form of AFreeMatrix, one after the other) with "bandpass.csv" (station, interval, IF, hand,
    // channel, amplitude, phase) for plotting, "tsys.csv" (station, time, position, Tsys) and
    // "scans.csv" (start, end, source). False with m_errMsg when a file cannot be written.
    bool WriteReport(const std::string& dir);

    ACalSummary m_summary;
    std::string m_errMsg;

    struct AState;

private:
    bool fail(const std::string& text);
    std::unique_ptr<AState> m_state;
};
