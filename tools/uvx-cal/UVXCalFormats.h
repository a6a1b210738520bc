// AUVXCalFormats: what uvx-cal reads and writes besides UVX, through the bridges this build has.
#pragma once

#include <string>
#include <vector>

// Turns IN into a UVX file the host layer can walk and OUT into the UVX file it writes, converting
// through the FITS and Measurement Set bridges when they are built, and says clearly when not.
class AUVXCalFormats {
public:
    // Temporary files are named `tempBase` + ".input.uvx" / ".output.uvx", beside the output.
    explicit AUVXCalFormats(const std::string& tempBase) : m_tempBase(tempBase) {}
    ~AUVXCalFormats();
    // `uvx` gets the UVX file to read: IN itself, or a converted copy. False with m_err.
    bool PrepareInput(const std::string& in, std::string& uvx);
    // `uvx` gets the UVX file to write: OUT itself, or a temporary file converted by FinishOutput.
    bool PrepareOutput(const std::string& out, std::string& uvx);
    // Converts the temporary output into OUT (nothing for a UVX output). False with m_err.
    bool FinishOutput(const std::string& out, const std::string& uvx);
    // Removes the temporary files.
    void Discard();

    std::string m_err;
    std::vector<std::string> m_notes;
    // The ANTAB text made from a FITS-IDI input's own GAIN_CURVE and SYSTEM_TEMPERATURE tables, or empty.
    std::string m_inputAntab;

private:
    enum AKind { kUVX, kUVFITS, kMS };
    std::string m_tempBase;
    AKind m_outKind = kUVX;
    std::vector<std::string> m_temporary;
};

// Draws the report's plots with tools/uvx-cal/uvx-cal-plot.py on Debian's python3 (or the
// interpreter in MEROVANE_PYTHON). False with `why` when the script or matplotlib is missing or
// the script failed.
bool RunPlotScript(const char* argv0, const std::string& dir, std::string& why);
