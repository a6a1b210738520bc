// AAntabCheck: explains why an ANTAB text is refused or misread by AAntabData::Load and rewrites it.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <merovane/platform/CString.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXFile.h>

// One thing the checker found. `line` counts from 1 (0: the whole file); `station` is upper case,
// empty where none applies. Kinds:
//   "error"    the parser refuses the text (or, with a UVX file, the binding or calibration fails);
//   "loss"     the parser loads it but keeps something other than what the file says;
//   "question" the meaning is ambiguous: the normaliser writes nothing until an option answers it;
//   "warning"  the text loads as meant but the data look wrong (nothing is rewritten for it);
//   "note"     harmless here, told for readers of other programs (kept as it is).
// `code` names the rule (docs/antab-check.md lists them), `text` explains it in the user's terms,
// `todo` says what to do, or what the normaliser did.
struct MEROVANE_API AAntabFinding {
    int line = 0;
    std::string station;
    std::string kind;
    std::string code;
    std::string text;
    std::string todo;
};

// One change of the normalised text: the line of the input (0 for a line that is new), the text
// before (empty for an inserted line) and after (empty for a removed line), and why.
struct MEROVANE_API AAntabChange {
    int line = 0;
    std::string before;
    std::string after;
    std::string why;
};

// Answers to the questions, and the limits of the checks.
struct MEROVANE_API AAntabCheckOptions {
    // Station -> DPFU text ("1.0" or "0.35,0.34") for a TSYS block that has no GAIN: a GAIN line
    // with this DPFU and a flat gain curve (POLY=1.0) is written in front of it. DPFU 1 says the
    // Tsys values are SEFDs in Jy.
    std::map<std::string, std::string> gain;
    // Station -> INDEX list ("'R1','R2','L1','L2'") for a TSYS block that has none.
    std::map<std::string, std::string> index;
    // Stations whose rows carry more values than INDEX items: the values behind the last item are
    // removed. "ALL" stands for every station.
    std::vector<std::string> dropExtra;
    // Station -> which of its differing GAIN blocks to keep (1 the first in the file); the others
    // are removed with their TSYS blocks.
    std::map<std::string, int> keep;
    // With a UVX file: observation times further than this from every Tsys row of a station are
    // reported (minutes).
    double coverageMinutes = 30.0;
};

// What a check gives: the findings in line order, the changes, and the normalised text. The text is
// empty when a question stopped the normaliser (`stopped`); `changed` is false when it equals the
// input.
struct MEROVANE_API AAntabCheckResult {
    std::vector<AAntabFinding> findings;
    std::vector<AAntabChange> changes;
    std::string normalised;
    bool stopped = false;
    bool changed = false;
    // Findings of a kind.
    int Count(const char* kind) const;
    // True when nothing of kind "error", "loss" or "question" was found in the input, so that the
    // parser loads it as it stands and as it is meant.
    bool Clean() const;
};

// The checker and normaliser. Usage: set m_options, call CheckFile or CheckText; with a UVX file
// opened for reading (AUVXFile::Open) the text is also checked against the observation: stations
// missing from the AN table or from the text, INDEX ranges against the IF count and the
// polarisations, and Tsys coverage of the records' times. The UVX file's record stream is read from
// its first record and left at an unspecified place.
class MEROVANE_API AAntabCheck {
public:
    // Checks `text`; `name` is the caller's name for it (the findings carry line numbers only, and
    // FormatAntabFinding puts the name in front). Returns false only for a UVX file whose tables or
    // records cannot be read, with the reason in m_errMsg; findings go to `out`, replacing its content.
    bool CheckText(const std::string& text, const std::string& name, AUVXFile* uvx, AAntabCheckResult& out);
    // Reads `path` and checks it. False with m_errMsg "Cannot read ANTAB file <path>: <reason>" when
    // it cannot be read, or as CheckText.
    bool CheckFile(const char* path, AUVXFile* uvx, AAntabCheckResult& out);

    AAntabCheckOptions m_options;
    CString m_errMsg;
};

// Formats a finding as "NAME:LINE: kind [code] STATION: text -> todo" for a terminal.
MEROVANE_API std::string FormatAntabFinding(const std::string& name, const AAntabFinding& finding);
