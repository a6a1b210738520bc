// uvx-export: writes a UVX file in another visibility format.
#include <cstdio>
#include <cstring>
#include <string>

#include <merovane/platform/CString.h>

#ifdef MEROVANE_HAVE_FITS
#include <AFitsExport.h>
#endif
#ifdef MEROVANE_HAVE_MS
#include <AMSBridge.h>
#endif

namespace {

const char kUsage[] =
    "usage: uvx-export IN.uvx OUT.uvfits\n"
    "  writes IN.uvx as UVFITS random groups with AIPS AN, SU, FQ and NX tables.\n"
    "usage: uvx-export IN.uvx OUT.ms\n"
    "  writes IN.uvx as a Measurement Set (a directory; see docs/conventions-ms.md).\n"
    "  Exit codes: 0 success, 1 the conversion failed, 2 bad arguments.\n";

bool EndsWith(const std::string& s, const char* tail) {
    const std::size_t n = std::strlen(tail);
    return s.size() >= n && s.compare(s.size() - n, n, tail) == 0;
}

// The one place that knows the output formats, chosen by the output's name; 0 on success, 1 with
// `error` set otherwise.
int ConvertOutput(const char* in, const char* out, std::string& error, std::string& note) {
    const std::string name = out;
#ifdef MEROVANE_HAVE_MS
    if (EndsWith(name, ".ms") || EndsWith(name, ".MS") || EndsWith(name, ".ms/") ||
        AMSBridge::IsMeasurementSet(out)) {
        AMSBridge bridge;
        if (!bridge.ExportMS(in, out)) {
            error = bridge.m_errMsg.GetString();
            return 1;
        }
        note = std::to_string(bridge.m_records) + " records";
        return 0;
    }
#endif
#ifdef MEROVANE_HAVE_FITS
    if (EndsWith(name, ".uvfits") || EndsWith(name, ".fits") || EndsWith(name, ".uvf") ||
        EndsWith(name, ".UVFITS") || EndsWith(name, ".FITS")) {
        AFitsExport exporter;
        if (!exporter.Export(in, out)) {
            error = exporter.m_errMsg.str();
            return 1;
        }
        note = std::to_string(exporter.m_records) + " records";
        return 0;
    }
#endif
    error = name + ": unknown output format (use a name ending in .uvfits or .fits)";
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
    const int rc = ConvertOutput(argv[1], argv[2], error, note);
    if (rc != 0) {
        std::fprintf(stderr, "uvx-export: %s\n", error.c_str());
        return rc;
    }
    std::printf("uvx-export: %s -> %s: %s\n", argv[1], argv[2], note.c_str());
    return 0;
}
