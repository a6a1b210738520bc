// ACalSummary and ACalListener: what a calibration run did, and how it tells its caller on the way.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <merovane/platform/Export.h>

// The account of one run, filled as it goes; complete when ACalPipeline::Run returns true, and
// as far as the run got when it returns false.
struct MEROVANE_API ACalSummary {
    std::string input, output;
    std::vector<std::string> passes;   // in the order they ran
    int walks = 0;                     // walks over the input made
    std::int64_t recordsIn = 0;        // records of the input file
    std::int64_t recordsRead = 0;      // records read in the last (output) walk
    std::int64_t recordsWritten = 0;   // records in the output
    std::int64_t recordsAveraged = 0;  // records merged into averages (read and not written as such)
    // Records left out, by reason, in the order the reasons first arose.
    std::vector<std::pair<std::string, std::int64_t>> dropped;
    std::int64_t intervals = 0;                   // intervals of the output walk
    std::int64_t bandpassIntervals = 0;           // solution intervals stored by the bandpass walk
    std::int64_t flaggedAveraged = 0;             // flagged elements that went into means
    std::vector<std::string> stationsCalibrated;  // stations with amplitude calibration applied
    std::vector<std::string> notDone;             // what could not be done, and why
    std::vector<std::string> warnings;            // what was done in a way the user may not expect
    std::vector<std::string> antabChanges;        // how --antab-fix rewrote the ANTAB text, line by line
    double seconds = 0.0;                         // wall time of the whole run
    double inputMB = 0.0;                         // size of the input file in MB (1e6 bytes)
    double MBPerSecond() const { return seconds > 0.0 ? inputMB * walks / seconds : 0.0; }
    std::int64_t DroppedTotal() const;

    // Adds n to the count of `reason`.
    void Drop(const std::string& reason, std::int64_t n = 1);
    // The same summary as JSON (UTF-8, one object).
    std::string ToJson() const;
    // Lines for a person, without trailing newline on the last.
    std::string ToText() const;
};

// How severe a message is.
enum class ACalLevel { Info, Warning, Error };

// The caller's ear during a run: progress of each walk and messages as they arise. Both are called on
// the thread of the run. The default implementation ignores everything.
class MEROVANE_API ACalListener {
public:
    virtual ~ACalListener();
    // `stage` names the walk ("bandpass solve", "calibrate"), `walk` counts from 1 to `walks`;
    // percent of that walk, 1 to 100.
    virtual void OnProgress(const std::string& stage, int walk, int walks, int percent);
    virtual void OnMessage(ACalLevel level, const std::string& text);
};
