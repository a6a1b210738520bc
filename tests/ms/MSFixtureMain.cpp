// merovane_ms_fixture DIR: writes the files the Python checks read: a simulated observation and an
// offset point source as UVX files, their Measurement Set exports and (with the FITS bridge) UVFITS.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include <AMSBridge.h>

#ifdef MEROVANE_HAVE_FITS
#include <AFitsExport.h>
#endif

#include "MSTestSupport.h"

namespace {

// The offset of the point source in radians: some tens of milliarcseconds, several turns of phase on
// the longest baselines.
constexpr double kOffsetL = 2.5e-7;
constexpr double kOffsetM = -1.5e-7;

int Fail(const std::string& text) {
    std::fprintf(stderr, "merovane_ms_fixture: %s\n", text.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return Fail("usage: merovane_ms_fixture DIR");
    const std::string dir = argv[1];
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    const std::string sim = dir + "/sim.uvx", simMs = dir + "/sim.ms";
    CString error;
    if (!Simulate(MSSimConfig(), sim.c_str(), nullptr, nullptr, nullptr, &error))
        return Fail(error.GetString());
    AMSBridge bridge;
    RemoveTree(simMs);
    if (!bridge.ExportMS(sim.c_str(), simMs.c_str())) return Fail(bridge.m_errMsg.GetString());

    const std::string offset = dir + "/offset.uvx", offsetMs = dir + "/offset.ms",
                      offsetFits = dir + "/offset.uvfits";
    std::string text;
    if (!WriteUVX(offset, OffsetSourceBuild(kOffsetL, kOffsetM), text)) return Fail(text);
    RemoveTree(offsetMs);
    if (!bridge.ExportMS(offset.c_str(), offsetMs.c_str())) return Fail(bridge.m_errMsg.GetString());
    RemoveTree(offsetFits);
#ifdef MEROVANE_HAVE_FITS
    AFitsExport fits;
    if (!fits.Export(offset.c_str(), offsetFits.c_str())) return Fail(fits.m_errMsg.GetString());
#endif
    std::ofstream truth(dir + "/offset.txt");
    truth.precision(17);
    truth << kOffsetL << " " << kOffsetM << "\n";
    return truth ? 0 : Fail("cannot write " + dir + "/offset.txt");
}
