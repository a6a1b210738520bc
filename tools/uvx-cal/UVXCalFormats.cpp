// AUVXCalFormats: format detection and the bridges of uvx-cal; the plot script's launch.
#include "UVXCalFormats.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#if defined(MEROVANE_UVXCAL_FITS)
#include "AFitsExport.h"
#include "AFitsImport.h"
#endif
#if defined(MEROVANE_UVXCAL_MS)
#include "AMSBridge.h"
#endif

namespace fs = std::filesystem;

namespace {

std::string extensionOf(const std::string& path) {
    std::string e = fs::path(path).extension().string();
    for (char& c : e) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return e;
}

bool isFits(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    char head[9] = {};
    f.read(head, 8);
    return f.gcount() == 8 && std::strncmp(head, "SIMPLE  ", 8) == 0;
}

std::string quoted(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

}  // namespace

AUVXCalFormats::~AUVXCalFormats() {
    Discard();
}

void AUVXCalFormats::Discard() {
    std::error_code ec;
    for (const auto& t : m_temporary) fs::remove_all(t, ec);
    m_temporary.clear();
}

bool AUVXCalFormats::PrepareInput(const std::string& in, std::string& uvx) {
    std::error_code ec;
    if (!fs::is_regular_file(in, ec)) {
        m_err = in + ": no such file";
        return false;
    }
    if (isFits(in)) {
#if defined(MEROVANE_UVXCAL_FITS)
        const AFitsImport::Format format = AFitsImport::Detect(in.c_str());
        if (format != AFitsImport::kUVFITS && format != AFitsImport::kFITSIDI) {
            m_err = in + ": a FITS file that is neither UVFITS (random groups) nor FITS-IDI";
            return false;
        }
        uvx = m_tempBase + ".input.uvx";
        m_temporary.push_back(uvx);
        AFitsImport importer;
        if (!importer.Import(in.c_str(), uvx.c_str())) {
            m_err = importer.m_errMsg.GetString();
            return false;
        }
        const char* kind = format == AFitsImport::kUVFITS ? "UVFITS" : "FITS-IDI";
        m_notes.push_back(std::string("read ") + kind + " " + in + ": " + std::to_string(importer.m_records) +
                          " records" +
                          (importer.m_nanFlagged > 0
                               ? ", " + std::to_string(importer.m_nanFlagged) + " NaN elements flagged"
                               : std::string()));
        if (!importer.m_antabPath.IsEmpty()) {
            m_inputAntab = importer.m_antabPath.GetString();
            m_temporary.push_back(m_inputAntab);
        }
        return true;
#else
        m_err = in +
                ": a FITS file (UVFITS or FITS-IDI); reading it needs the FITS bridge (libmerovane-fits), "
                "which this build does not have: install cfitsio's development files (libcfitsio-dev) and "
                "build again, or convert the file to UVX first";
        return false;
#endif
    }
    uvx = in;
    return true;
}

bool AUVXCalFormats::PrepareOutput(const std::string& out, std::string& uvx) {
    const std::string ext = extensionOf(out);
    if (ext == ".uvfits" || ext == ".fits" || ext == ".fit") {
#if defined(MEROVANE_UVXCAL_FITS)
        m_outKind = kUVFITS;
#else
        m_err = out +
                ": writing UVFITS needs the FITS bridge (libmerovane-fits), which this build does not "
                "have: install libcfitsio-dev and build again, or write a .uvx file";
        return false;
#endif
    } else if (ext == ".ms") {
#if defined(MEROVANE_UVXCAL_MS)
        m_outKind = kMS;
#else
        m_err = out +
                ": writing a Measurement Set needs the MS bridge (libmerovane-ms), which this build does "
                "not have: install casacore-dev and build again, or write a .uvx file";
        return false;
#endif
    } else {
        m_outKind = kUVX;
        uvx = out;
        return true;
    }
    uvx = m_tempBase + ".output.uvx";
    m_temporary.push_back(uvx);
    return true;
}

bool AUVXCalFormats::FinishOutput(const std::string& out, const std::string& uvx) {
    switch (m_outKind) {
        case kUVX:
            return true;
        case kUVFITS: {
#if defined(MEROVANE_UVXCAL_FITS)
            AFitsExport exporter;
            if (!exporter.Export(uvx.c_str(), out.c_str())) {
                m_err = exporter.m_errMsg.GetString();
                return false;
            }
            return true;
#else
            break;
#endif
        }
        case kMS: {
#if defined(MEROVANE_UVXCAL_MS)
            AMSBridge bridge;
            if (!bridge.ExportMS(uvx.c_str(), out.c_str())) {
                m_err = bridge.m_errMsg.GetString();
                return false;
            }
            return true;
#else
            break;
#endif
        }
    }
    m_err = out + ": this build cannot write that format";
    return false;
}

bool RunPlotScript(const char* argv0, const std::string& dir, std::string& why) {
    std::error_code ec;
    std::vector<fs::path> candidates;
    if (const char* env = std::getenv("MEROVANE_PLOT_SCRIPT")) candidates.emplace_back(env);
    fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    if (ec) exe = fs::absolute(argv0, ec);
    const fs::path bin = exe.parent_path();
    candidates.push_back(bin / "uvx-cal-plot.py");
    candidates.push_back(bin.parent_path() / "share" / "merovane" / "uvx-cal-plot.py");
    fs::path script;
    for (const auto& c : candidates)
        if (fs::is_regular_file(c, ec)) {
            script = c;
            break;
        }
    if (script.empty()) {
        why = "the plot script uvx-cal-plot.py was not found beside the program";
        return false;
    }
    const char* python = std::getenv("MEROVANE_PYTHON");
    const std::string interpreter = python != nullptr ? python : "/usr/bin/python3";
    const std::string command = quoted(interpreter) + " " + quoted(script.string()) + " " + quoted(dir);
    const int rc = std::system(command.c_str());
    if (rc != 0) {
        why = "the plot script failed (" + interpreter + " with matplotlib is needed); see its message above";
        return false;
    }
    return true;
}
