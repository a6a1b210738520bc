// ACalOptions: the passes of a calibration run and their settings, as one record.
#pragma once

#include <string>
#include <vector>

#include <merovane/platform/Export.h>

// The phase bandpass solvers a run can use.
enum class ACalPhaseMethod {
    None,    // no phase bandpass
    LMS,     // network least squares, coefficients from the baselines to the reference
    LMS1,    // network least squares per channel, solved phases applied
    PHA_APR  // polynomial of `bpPhaseOrder` coefficients along the channels, baselines to the reference
};

// What to do with records that lie before `startTime`.
enum class ACalBeforeStart {
    Drop,     // left out of the output (the default: a calibrated file holds only calibrated records)
    CopyRaw,  // copied unchanged, uncalibrated, as the interval driver does by itself
};

// What to do with a station whose Tsys rows lie far from some of its observation times.
enum class ACalFarTsys {
    Hold,  // the nearest Tsys row is used however far away (the amplitude calibration's own rule)
    Drop,  // records of that station at such times are left out of the output
};

// One channel range of the amplitude bandpass to repair: channels strictly between `first` and
// `last` (from 0) are replaced by a straight line through the two. `first` negative flattens the
// whole spectrum. `station` empty: every station.
struct ACalChannelRange {
    int first = 0;
    int last = 0;
    std::string station;
};

// Every pass and option of a run. The passes run in one fixed order whatever order the fields were
// set in (see ACalPipeline). A default record copies the input through unchanged.
struct MEROVANE_API ACalOptions {
    // Digitisation corrections, on the raw visibilities of each interval.
    bool digPower = false;    // divide by the autocorrelated power of each antenna (ADigErrCorrect)
    bool digBits = false;     // remove the quantisation loss of the digitiser bits (AVanFlakeCorrect)
    bool digFixBits = false;  // raise implausible bit counts of the AI table first (AAIShortTbl::Correct)
    double digStep = 60.0;    // seconds over which the power is measured when nothing is averaged

    // Amplitude calibration from an ANTAB file (empty: none).
    std::string antab;
    bool antabFix = false;  // normalise the ANTAB text first (when the checker is built in)
    ACalFarTsys farTsys = ACalFarTsys::Hold;
    double farTsysMinutes = 30.0;  // a Tsys row further than this from an observation time is "far"

    // Bandpass: amplitude from the autocorrelations and/or phase from the cross spectra. Solved over
    // the whole file in a first walk, applied in the second.
    bool bpAmplitude = false;
    std::vector<ACalChannelRange> bpRanges;  // channel ranges to repair in the amplitude spectra
    ACalPhaseMethod bpPhase = ACalPhaseMethod::None;
    int bpPhaseOrder = 3;  // polynomial coefficients for PHA_APR
    std::string bpRefAnt;  // reference station by name; empty: the automatic choice
    std::string bpSource;  // only this source's records are solved on; empty: every source
    double bpStep = 0.0;   // seconds per solution; 0: one per scan (or the whole file without scans)

    // Averaging to `avgStep` seconds (0: no averaging), intervals restarted at each scan when
    // `useScanList` is set and the file has a scan list.
    double avgStep = 0.0;
    bool useScanList = true;
    bool dropFlagged = false;  // leave flagged elements out of the means instead of adding them in

    // Selection.
    std::string source;      // keep only this source's records; empty: all
    double startTime = 0.0;  // seconds from 0h of the reference day; records before it: see beforeStart
    ACalBeforeStart beforeStart = ACalBeforeStart::Drop;

    // The passes that are on, in the order they run, for messages and the report.
    std::vector<std::string> Passes() const;
    // Empty when the options make sense together, else the first problem in the user's words.
    std::string Validate() const;
    bool NeedsBandpassWalk() const { return bpAmplitude || bpPhase != ACalPhaseMethod::None; }
};
