// Fuzz target: the ANTAB checker and normaliser on any text, with and without an observation; a
// normalised text must load with the exact parser.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include <merovane/antab/AAntabCheck.h>
#include <merovane/antab/AAntabData.h>

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::vector<unsigned char> observation = FuzzObservation(2);
    const std::string text(reinterpret_cast<const char*>(data), size);
    AAntabCheck check;
    AAntabCheckResult plain;
    check.CheckText(text, "fuzz.antab", nullptr, plain);
    AUVXFile uvx;
    if (!uvx.Open(new AMemFile(observation), true)) return 0;
    AAntabCheckResult bound;
    check.CheckText(text, "fuzz.antab", &uvx, bound);
    if (!bound.stopped && bound.Count("error") == 0 && !bound.normalised.empty()) {
        AAntabData antab;
        if (antab.Init(uvx)) {
            std::istringstream in(bound.normalised);
            antab.Load(in);
        }
    }
    return 0;
}
