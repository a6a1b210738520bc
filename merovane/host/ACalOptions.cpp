// ACalOptions: the order of the passes and the checks of a set of options.
#include <merovane/host/ACalOptions.h>

#include <cmath>

std::vector<std::string> ACalOptions::Passes() const {
    std::vector<std::string> passes;
    if (!source.empty()) passes.push_back("select source " + source);
    if (digPower) passes.push_back("digitisation by power");
    if (digBits)
        passes.push_back(digFixBits ? "digitisation by bits (bit counts corrected)" : "digitisation by bits");
    if (bpAmplitude) passes.push_back("amplitude bandpass (solve, apply)");
    switch (bpPhase) {
        case ACalPhaseMethod::None:
            break;
        case ACalPhaseMethod::LMS:
            passes.push_back("phase bandpass LMS (solve, apply)");
            break;
        case ACalPhaseMethod::LMS1:
            passes.push_back("phase bandpass LMS1 (solve, apply)");
            break;
        case ACalPhaseMethod::PHA_APR:
            passes.push_back("phase bandpass APR (solve, apply)");
            break;
    }
    if (!antab.empty()) passes.push_back("amplitude calibration");
    if (avgStep > 0.0) passes.push_back("averaging");
    return passes;
}

std::string ACalOptions::Validate() const {
    if (!(avgStep >= 0.0) || !std::isfinite(avgStep))
        return "the averaging step must be a number of seconds, 0 or more";
    if (!(digStep > 0.0) || !std::isfinite(digStep))
        return "the digitisation interval must be a number of seconds above 0";
    if (!(bpStep >= 0.0) || !std::isfinite(bpStep))
        return "the bandpass solution step must be a number of seconds, 0 or more";
    if (!(farTsysMinutes > 0.0)) return "the Tsys span must be a number of minutes above 0";
    if (!std::isfinite(startTime)) return "the start time must be a number of seconds";
    if (bpPhase == ACalPhaseMethod::PHA_APR && (bpPhaseOrder < 1 || bpPhaseOrder > 32))
        return "the phase polynomial order must lie between 1 and 32 coefficients";
    if (digFixBits && !digBits) return "--fix-bits needs the correction by bits (--dig-bits)";
    if (!bpRanges.empty() && !bpAmplitude) return "channel ranges need the amplitude bandpass (--bp-amp)";
    if (antabFix && antab.empty()) return "--antab-fix needs an ANTAB file (--antab)";
    for (const auto& r : bpRanges)
        if (r.first >= 0 && r.last <= r.first)
            return "a channel range must have its last channel after its first";
    return "";
}
