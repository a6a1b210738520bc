// Fuzz target: the exact ANTAB parser, bound to a small observation, then calibrating its records.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include <merovane/antab/AAntabData.h>
#include <merovane/platform/Afx.h>

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::vector<unsigned char> observation = FuzzObservation(4);
    AMemFile* mem = new AMemFile(observation);
    AUVXFile uvx;
    if (!uvx.Open(mem, true)) return 0;
    AAntabData antab;
    if (!antab.Init(uvx)) return 0;
    std::istringstream text(std::string(reinterpret_cast<const char*>(data), size));
    if (!antab.Load(text)) return 0;
    // A loaded file must also calibrate every record without a fault (failures are fine).
    AUVXRecordReader reader;
    if (!reader.Open(uvx)) return 0;
    AUVXGroup g;
    AUVXVisibility vis(uvx);
    while (reader.Next(g, vis)) antab.Calibrate(g, vis);
    return 0;
}
