// uvx-cal: calibrates a visibility file with the passes asked for, in the one right order.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <merovane/host/ACalPipeline.h>
#include <merovane/platform/Terminal.h>

#include "UVXCalFormats.h"

namespace fs = std::filesystem;

namespace {

const char* kUsage =
    "usage: uvx-cal [options] IN OUT\n"
    "  IN   a UVX file (UVFITS and FITS-IDI through the FITS bridge)\n"
    "  OUT  .uvx, or .uvfits / .fits (FITS bridge) or .ms (Measurement Set bridge)\n"
    "The passes run in this order whatever order the options come in: digitisation by power,\n"
    "digitisation by bits, bandpass (solved in a first walk, applied in the second), amplitude\n"
    "calibration, averaging.\n"
    "options:\n"
    "  --antab FILE          amplitude calibration from an ANTAB file; 'input' takes the\n"
    "                        a-priori tables of a FITS-IDI input\n"
    "  --antab-fix           load the ANTAB text as the checker normalises it, changes listed\n"
    "  --tsys-far hold|drop  records further than --tsys-span from any Tsys row of a station:\n"
    "                        use the nearest Tsys (hold, default) or leave them out (drop)\n"
    "  --tsys-span MIN       what counts as far, in minutes [30]\n"
    "  --dig-power           divide by the antennas' autocorrelated power (needs autocorrelations)\n"
    "  --dig-bits            remove the quantisation loss of the digitiser bits (needs the AI table)\n"
    "  --fix-bits            raise implausible bit counts of the AI table first\n"
    "  --dig-step S          interval for the power when nothing is averaged [60]\n"
    "  --bp-amp              amplitude bandpass from the autocorrelations\n"
    "  --bp-range [ST:]A-B   repair channels strictly between A and B (from 0) of the amplitude\n"
    "                        spectra, of station ST or of all; 'flat' instead of A-B flattens them\n"
    "  --bp-phase METHOD     phase bandpass: lms, lms1 or apr\n"
    "  --bp-order N          coefficients of the apr polynomial [3]\n"
    "  --ref STATION         bandpass reference station [automatic]\n"
    "  --bp-source NAME      solve the bandpass on this source only [every source]\n"
    "  --bp-step S           seconds per bandpass solution [one per scan, at most 600]\n"
    "  --average S           average to S seconds\n"
    "  --no-scan-list        averaging intervals ignore the scan list\n"
    "  --drop-flagged        leave flagged elements out of the means (default: added in)\n"
    "  --source NAME         keep only this source\n"
    "  --start T             start time, seconds or hh:mm:ss of the reference day\n"
    "  --keep-before-start   copy records before the start time raw (default: leave them out)\n"
    "  --all                 every pass: --dig-power --dig-bits --bp-amp --bp-phase lms1\n"
    "                        --average 60, and the a-priori data of IN (IN.antab, or a FITS-IDI\n"
    "                        file's own tables) when there are such\n"
    "  --report DIR          write summary.json, the bandpass store and PNG plots into DIR\n"
    "  --quiet               no progress and no summary\n"
    "  --help                this text\n"
    "exit codes: 0 done, 1 a file could not be read or written or a pass failed, 2 bad arguments,\n"
    "130 interrupted (Ctrl-C)\n";

int g_abort = 0;

int usageError(const std::string& text) {
    std::fprintf(stderr, "uvx-cal: %s\n%s", text.c_str(), kUsage);
    return 2;
}

bool parseNumber(const char* text, double& v) {
    char* end = nullptr;
    v = std::strtod(text, &end);
    return end != text && *end == '\0';
}

bool parseTime(const std::string& text, double& seconds) {
    int h = 0, m = 0;
    double s = 0;
    char tail = 0;
    if (std::sscanf(text.c_str(), "%d:%d:%lf%c", &h, &m, &s, &tail) == 3) {
        seconds = h * 3600.0 + m * 60.0 + s;
        return h >= 0 && m >= 0 && m < 60 && s >= 0 && s < 60;
    }
    return parseNumber(text.c_str(), seconds);
}

// Progress on stderr: one redrawn bar on a terminal, a plain line per tenth otherwise.
class AConsoleListener : public ACalListener {
public:
    AConsoleListener(bool quiet, bool terminal) : m_quiet(quiet), m_terminal(terminal) {}

    void OnProgress(const std::string& stage, int walk, int walks, int percent) override {
        if (m_quiet) return;
        if (m_terminal) {
            const int filled = percent * 30 / 100;
            std::fprintf(stderr, "\r%-15s walk %d/%d [%.*s%*s] %3d%%", stage.c_str(), walk, walks, filled,
                         "##############################", 30 - filled, "", percent);
            if (percent == 100) std::fputc('\n', stderr);
            m_open = percent != 100;
        } else if (percent % 10 == 0) {
            std::fprintf(stderr, "uvx-cal: %s (walk %d/%d) %d%%\n", stage.c_str(), walk, walks, percent);
        }
        std::fflush(stderr);
    }

    void OnMessage(ACalLevel level, const std::string& text) override {
        if (level == ACalLevel::Error) return;  // main prints the failure once
        if (m_quiet && level == ACalLevel::Info) return;
        if (m_open) std::fputc('\n', stderr);
        m_open = false;
        std::fprintf(stderr, "uvx-cal: %s%s\n", level == ACalLevel::Warning ? "warning: " : "", text.c_str());
    }

private:
    bool m_quiet, m_terminal, m_open = false;
};

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

}  // namespace

int main(int argc, char** argv) {
    ACalOptions opt;
    std::string report;
    bool quiet = false, all = false, averageGiven = false;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto value = [&](std::string& out) {
            if (i + 1 >= argc) return false;
            out = argv[++i];
            return true;
        };
        auto number = [&](double& out) {
            std::string t;
            return value(t) && parseNumber(t.c_str(), out);
        };
        std::string t;
        double d = 0;
        if (a == "--help" || a == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (a == "--antab") {
            if (!value(opt.antab)) return usageError("--antab needs a file");
        } else if (a == "--antab-fix") {
            opt.antabFix = true;
        } else if (a == "--tsys-far") {
            if (!value(t) || (t != "hold" && t != "drop")) return usageError("--tsys-far takes hold or drop");
            opt.farTsys = t == "hold" ? ACalFarTsys::Hold : ACalFarTsys::Drop;
        } else if (a == "--tsys-span") {
            if (!number(opt.farTsysMinutes)) return usageError("--tsys-span needs minutes");
        } else if (a == "--dig-power") {
            opt.digPower = true;
        } else if (a == "--dig-bits") {
            opt.digBits = true;
        } else if (a == "--fix-bits") {
            opt.digFixBits = true;
        } else if (a == "--dig-step") {
            if (!number(opt.digStep)) return usageError("--dig-step needs seconds");
        } else if (a == "--bp-amp") {
            opt.bpAmplitude = true;
        } else if (a == "--bp-range") {
            if (!value(t)) return usageError("--bp-range needs a range");
            ACalChannelRange r;
            const auto colon = t.find(':');
            if (colon != std::string::npos) {
                r.station = t.substr(0, colon);
                t = t.substr(colon + 1);
            }
            if (t == "flat") {
                r.first = -1;
                r.last = 0;
            } else if (std::sscanf(t.c_str(), "%d-%d", &r.first, &r.last) != 2 || r.first < 0) {
                return usageError("--bp-range takes [STATION:]FIRST-LAST or [STATION:]flat, not " + t);
            }
            opt.bpRanges.push_back(r);
        } else if (a == "--bp-phase") {
            if (!value(t)) return usageError("--bp-phase needs lms, lms1 or apr");
            t = lower(t);
            if (t == "lms")
                opt.bpPhase = ACalPhaseMethod::LMS;
            else if (t == "lms1")
                opt.bpPhase = ACalPhaseMethod::LMS1;
            else if (t == "apr")
                opt.bpPhase = ACalPhaseMethod::PHA_APR;
            else
                return usageError("--bp-phase takes lms, lms1 or apr, not " + t);
        } else if (a == "--bp-order") {
            if (!number(d) || d != static_cast<int>(d)) return usageError("--bp-order needs a whole number");
            opt.bpPhaseOrder = static_cast<int>(d);
        } else if (a == "--ref") {
            if (!value(opt.bpRefAnt)) return usageError("--ref needs a station");
        } else if (a == "--bp-source") {
            if (!value(opt.bpSource)) return usageError("--bp-source needs a source name");
        } else if (a == "--bp-step") {
            if (!number(opt.bpStep)) return usageError("--bp-step needs seconds");
        } else if (a == "--average") {
            if (!number(opt.avgStep) || opt.avgStep <= 0)
                return usageError("--average needs seconds above 0");
            averageGiven = true;
        } else if (a == "--no-scan-list") {
            opt.useScanList = false;
        } else if (a == "--drop-flagged") {
            opt.dropFlagged = true;
        } else if (a == "--source") {
            if (!value(opt.source)) return usageError("--source needs a source name");
        } else if (a == "--start") {
            if (!value(t) || !parseTime(t, opt.startTime))
                return usageError("--start takes seconds or hh:mm:ss");
        } else if (a == "--keep-before-start") {
            opt.beforeStart = ACalBeforeStart::CopyRaw;
        } else if (a == "--all") {
            all = true;
        } else if (a == "--report") {
            if (!value(report)) return usageError("--report needs a folder");
        } else if (a == "--quiet" || a == "-q") {
            quiet = true;
        } else if (a.size() > 1 && a[0] == '-') {
            return usageError("unknown option " + a);
        } else {
            files.push_back(a);
        }
    }
    if (files.size() != 2) return usageError("give one input and one output file");
    const std::string in = files[0], out = files[1];
    if (all) {
        opt.digPower = opt.digBits = opt.bpAmplitude = true;
        if (opt.bpPhase == ACalPhaseMethod::None) opt.bpPhase = ACalPhaseMethod::LMS1;
        if (!averageGiven) opt.avgStep = 60.0;
        if (opt.antab.empty()) {
            const std::string antab = fs::path(in).replace_extension(".antab").string();
            if (fs::exists(antab)) opt.antab = antab;
        }
    }
    const std::string problem = opt.Validate();
    if (!problem.empty()) return usageError(problem);

    AUVXCalFormats formats(out);
    std::string uvxIn, uvxOut;
    if (!formats.PrepareInput(in, uvxIn) || !formats.PrepareOutput(out, uvxOut)) {
        std::fprintf(stderr, "uvx-cal: %s\n", formats.m_err.c_str());
        return 1;
    }
    for (const auto& note : formats.m_notes) std::fprintf(stderr, "uvx-cal: %s\n", note.c_str());
    if (opt.antab == "input" || (all && opt.antab.empty())) {
        // A FITS-IDI file may carry its stations' a-priori data (GAIN_CURVE, SYSTEM_TEMPERATURE).
        if (!formats.m_inputAntab.empty()) {
            opt.antab = formats.m_inputAntab;
            std::fprintf(stderr, "uvx-cal: amplitude calibration from the input's own a-priori tables\n");
        } else if (opt.antab == "input") {
            std::fprintf(stderr,
                         "uvx-cal: %s carries no a-priori tables (GAIN_CURVE and SYSTEM_TEMPERATURE)\n",
                         in.c_str());
            return 1;
        }
    }

    AConsoleListener listener(quiet, PlatformIsTerminal(PlatformStream::Error));
    PlatformCatchInterrupt(&g_abort);
    ACalPipeline pipeline;
    const bool ok = pipeline.Run(uvxIn, uvxOut, opt, &listener, &g_abort);
    PlatformCatchInterrupt(nullptr);
    if (!ok) {
        formats.Discard();
        std::fprintf(stderr, "\nuvx-cal: %s\n", pipeline.m_errMsg.c_str());
        if (pipeline.m_errMsg == "User abort") {
            std::fprintf(stderr, "uvx-cal: %s was not written; %s is untouched\n", out.c_str(), in.c_str());
            return 130;
        }
        return 1;
    }
    if (!formats.FinishOutput(out, uvxOut)) {
        std::fprintf(stderr, "uvx-cal: %s\n", formats.m_err.c_str());
        return 1;
    }
    pipeline.m_summary.input = in;
    pipeline.m_summary.output = out;
    if (!report.empty()) {
        if (!pipeline.WriteReport(report)) {
            std::fprintf(stderr, "uvx-cal: %s\n", pipeline.m_errMsg.c_str());
            return 1;
        }
        std::string why;
        if (!RunPlotScript(argv[0], report, why)) {
            pipeline.m_summary.notDone.push_back("plots: " + why);
            std::fprintf(stderr, "uvx-cal: warning: no plots: %s\n", why.c_str());
            pipeline.WriteReport(report);  // the summary names what is missing
        }
    }
    if (!quiet) std::printf("%s\n", pipeline.m_summary.ToText().c_str());
    return 0;
}
