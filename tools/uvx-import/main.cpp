// uvx-import: converts a visibility file of another format into a UVX file.
#include <cstdio>
#include <cstring>
#include <string>

#include <merovane/platform/CString.h>

#ifdef MEROVANE_HAVE_FITS
#include <AFitsImport.h>
#endif
#ifdef MEROVANE_HAVE_MS
#include <AMSBridge.h>
#endif

namespace {

const char kUsage[] =
    "usage: uvx-import IN OUT.uvx\n"
    "  IN is a UVFITS (random groups) or FITS-IDI file; the format is told by the content.\n"
    "  From FITS-IDI with GAIN_CURVE and SYSTEM_TEMPERATURE tables an ANTAB file is written beside\n"
    "  OUT.uvx (OUT.antab). IN may also be a Measurement Set (a directory).\n"
    "  Exit codes: 0 success, 1 the conversion failed, 2 bad arguments.\n";

// The one place that knows the input formats: returns 0 on success, 1 with `error` set otherwise.
// Each format says by the content whether the input is its own.
int ConvertInput(const char* in, const char* out, std::string& error, std::string& note) {
#ifdef MEROVANE_HAVE_MS
    // Any directory goes to the Measurement Set reader, which says why one that is no such set fails.
    if (AMSBridge::IsDirectory(in)) {
        AMSBridge bridge;
        if (!bridge.ImportMS(in, out)) {
            error = bridge.m_errMsg.GetString();
            return 1;
        }
        note = std::to_string(bridge.m_records) + " records from a Measurement Set";
        return 0;
    }
#endif
#ifdef MEROVANE_HAVE_FITS
    if (AFitsImport::Detect(in) != AFitsImport::kNotFits) {
        AFitsImport import;
        if (!import.Import(in, out)) {
            error = import.m_errMsg.str();
            return 1;
        }
        note = std::to_string(import.m_records) + " records";
        if (import.m_nanFlagged > 0)
            note += ", " + std::to_string(import.m_nanFlagged) + " NaN elements flagged";
        if (!import.m_antabPath.IsEmpty()) note += ", ANTAB " + import.m_antabPath.str();
        if (!import.m_handedness.IsEmpty()) note += "; stations: " + import.m_handedness.str();
        return 0;
    }
#endif
    std::FILE* f = std::fopen(in, "rb");
    if (f == nullptr) {
        error = std::string(in) + ": cannot be opened";
        return 1;
    }
    std::fclose(f);
    error = std::string(in) + ": not a FITS file";
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (argc != 3) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    std::string error, note;
    const int rc = ConvertInput(argv[1], argv[2], error, note);
    if (rc != 0) {
        std::fprintf(stderr, "uvx-import: %s\n", error.c_str());
        return rc;
    }
    std::printf("uvx-import: %s -> %s: %s\n", argv[1], argv[2], note.c_str());
    return 0;
}
