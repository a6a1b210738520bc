// antab-check: checks an ANTAB file against the amplitude calibration's parser and normalises it.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <merovane/antab/AAntabCheck.h>
#include <merovane/uvx/AUVXFile.h>

namespace {

const char* const kUsage =
    "usage: antab-check FILE.antab [--uvx OBS.uvx] [-o FIXED.antab] [options]\n"
    "Explains every line of an ANTAB file that the calibration refuses or reads otherwise than it is\n"
    "written, with the line, the station and what to do. With -o it writes a file that the calibration\n"
    "loads and that means what the original meant, and lists every change (line, before, after, why).\n"
    "  --uvx OBS.uvx         also check against the observation: stations, INDEX against the IF bands\n"
    "                        and polarisations, and Tsys coverage of the record times\n"
    "  -o FIXED.antab        write the normalised file (not written while a question is open)\n"
    "  --gain ST=DPFU        DPFU (one value, or two joined by a comma) for station ST whose TSYS block\n"
    "                        has no GAIN; 1 when its Tsys values are SEFDs in Jy\n"
    "  --index ST=LIST       INDEX list for a TSYS block of ST that has none, e.g. \"'R1','R2'\"\n"
    "  --drop-extra ST       remove the values of ST's rows behind the last INDEX item (ALL: every station)\n"
    "  --keep ST=N           keep the N-th of ST's differing GAIN blocks (from 1), remove the others\n"
    "  --coverage MIN        with --uvx: report record times further than MIN minutes from every Tsys\n"
    "                        row of a station (default 30)\n"
    "  --summary             list the changes as counts per reason instead of line by line\n"
    "Exit codes: 0 the file is clean, or -o wrote a normalised file with no error left; 1 problems\n"
    "found (an open question, a refusal, a loss not fixed), or a file that cannot be read or written;\n"
    "2 bad arguments.\n";

int Usage(const char* problem) {
    if (problem) std::fprintf(stderr, "antab-check: %s\n", problem);
    std::fputs(kUsage, stderr);
    return 2;
}

// "ST=VALUE" into its two halves, the station in upper case; false without "=" or either half.
bool SplitAssign(const char* text, std::string& station, std::string& value) {
    const char* eq = std::strchr(text, '=');
    if (eq == nullptr || eq == text || eq[1] == '\0') return false;
    station.assign(text, eq);
    for (char& c : station)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    value = eq + 1;
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const char* input = nullptr;
    const char* uvxPath = nullptr;
    const char* outPath = nullptr;
    bool summary = false;
    AAntabCheck check;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto next = [&](const char* what) -> const char* {
            if (i + 1 >= argc) return nullptr;
            (void)what;
            return argv[++i];
        };
        if (a == "-h" || a == "--help") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (a == "--uvx") {
            if (!(uvxPath = next("--uvx"))) return Usage("--uvx needs a file");
        } else if (a == "-o") {
            if (!(outPath = next("-o"))) return Usage("-o needs a file");
        } else if (a == "--gain" || a == "--index" || a == "--keep") {
            const char* v = next(a.c_str());
            std::string station, value;
            if (!v || !SplitAssign(v, station, value)) return Usage((a + " needs STATION=VALUE").c_str());
            if (a == "--gain") {
                char* end = nullptr;
                std::strtod(value.c_str(), &end);
                if (end == value.c_str() || (*end != '\0' && *end != ','))
                    return Usage("--gain needs STATION=DPFU with a number");
                check.m_options.gain[station] = value;
            } else if (a == "--index") {
                check.m_options.index[station] = value;
            } else {
                char* end = nullptr;
                const long n = std::strtol(value.c_str(), &end, 10);
                if (*end != '\0' || n < 1) return Usage("--keep needs STATION=N with N from 1");
                check.m_options.keep[station] = static_cast<int>(n);
            }
        } else if (a == "--drop-extra") {
            const char* v = next("--drop-extra");
            if (!v || !*v) return Usage("--drop-extra needs a station");
            check.m_options.dropExtra.push_back(v);
        } else if (a == "--coverage") {
            const char* v = next("--coverage");
            char* end = nullptr;
            const double m = v ? std::strtod(v, &end) : 0.0;
            if (!v || *end != '\0' || !(m > 0.0)) return Usage("--coverage needs minutes above 0");
            check.m_options.coverageMinutes = m;
        } else if (a == "--summary") {
            summary = true;
        } else if (!a.empty() && a[0] == '-') {
            return Usage(("unknown option " + a).c_str());
        } else if (input == nullptr) {
            input = argv[i];
        } else {
            return Usage("more than one ANTAB file");
        }
    }
    if (input == nullptr) return Usage("no ANTAB file");

    AUVXFile uvx;
    if (uvxPath && !uvx.Open(uvxPath)) {
        std::fprintf(stderr, "antab-check: %s\n", uvx.m_errMsg.GetString());
        return 1;
    }
    AAntabCheckResult result;
    if (!check.CheckFile(input, uvxPath ? &uvx : nullptr, result)) {
        std::fprintf(stderr, "antab-check: %s\n", check.m_errMsg.GetString());
        return 1;
    }
    for (const AAntabFinding& f : result.findings) std::printf("%s\n", FormatAntabFinding(input, f).c_str());

    bool written = false;
    if (outPath && !result.stopped) {
        const std::string part = std::string(outPath) + ".part";
        std::ofstream out(part, std::ios::binary | std::ios::trunc);
        out << result.normalised;
        out.close();
        if (!out || std::rename(part.c_str(), outPath) != 0) {
            std::remove(part.c_str());
            std::fprintf(stderr, "antab-check: cannot write %s\n", outPath);
            return 1;
        }
        written = true;
        if (summary) {
            std::map<std::string, int> counts;
            for (const AAntabChange& c : result.changes) ++counts[c.why];
            for (const auto& c : counts) std::printf("change x%d: %s\n", c.second, c.first.c_str());
        } else {
            for (const AAntabChange& c : result.changes) {
                std::printf("change %s:%d: %s\n", input, c.line, c.why.c_str());
                if (!c.before.empty()) std::printf("  - %s\n", c.before.c_str());
                if (!c.after.empty()) std::printf("  + %s\n", c.after.c_str());
            }
        }
        std::printf("%s: written, %d change(s)%s\n", outPath, static_cast<int>(result.changes.size()),
                    result.changed ? "" : " (the same text)");
    } else if (outPath) {
        std::printf("%s: not written: answer the question(s) above first\n", outPath);
    }
    std::printf("%s: %d error(s), %d loss(es), %d question(s), %d warning(s), %d note(s)\n", input,
                result.Count("error"), result.Count("loss"), result.Count("question"),
                result.Count("warning"), result.Count("note"));

    if (result.stopped) return 1;
    if (written) {
        // Errors that the rewrite cannot remove come from the observation.
        for (const AAntabFinding& f : result.findings)
            if (f.kind == "error" &&
                (f.code == "station-missing" || f.code == "index-hole" || f.code == "uvx-load"))
                return 1;
        return 0;
    }
    return result.Clean() ? 0 : 1;
}
