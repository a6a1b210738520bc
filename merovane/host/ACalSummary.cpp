// ACalSummary: counting, JSON and text forms of a run's account.
#include <merovane/host/ACalSummary.h>

#include <cmath>
#include <cstdio>

namespace {

std::string jsonString(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char buf[8];
                    std::snprintf(buf, sizeof buf, "\\u%04x", c);
                    out += buf;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

std::string jsonNumber(double v) {
    if (!std::isfinite(v)) return "null";
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.6g", v);
    return buf;
}

std::string jsonList(const std::vector<std::string>& items) {
    std::string out = "[";
    for (std::size_t i = 0; i < items.size(); ++i) out += (i ? ", " : "") + jsonString(items[i]);
    return out + "]";
}

std::string joined(const std::vector<std::string>& items, const char* sep) {
    std::string out;
    for (std::size_t i = 0; i < items.size(); ++i) out += (i ? sep : "") + items[i];
    return out;
}

}  // namespace

std::int64_t ACalSummary::DroppedTotal() const {
    std::int64_t n = 0;
    for (const auto& d : dropped) n += d.second;
    return n;
}

void ACalSummary::Drop(const std::string& reason, std::int64_t n) {
    for (auto& d : dropped) {
        if (d.first == reason) {
            d.second += n;
            return;
        }
    }
    dropped.emplace_back(reason, n);
}

std::string ACalSummary::ToJson() const {
    std::string j = "{\n";
    j += "  \"input\": " + jsonString(input) + ",\n";
    j += "  \"output\": " + jsonString(output) + ",\n";
    j += "  \"passes\": " + jsonList(passes) + ",\n";
    j += "  \"walks\": " + std::to_string(walks) + ",\n";
    j += "  \"records_in\": " + std::to_string(recordsIn) + ",\n";
    j += "  \"records_read\": " + std::to_string(recordsRead) + ",\n";
    j += "  \"records_written\": " + std::to_string(recordsWritten) + ",\n";
    j += "  \"records_averaged\": " + std::to_string(recordsAveraged) + ",\n";
    j += "  \"dropped\": {";
    for (std::size_t i = 0; i < dropped.size(); ++i)
        j += (i ? ", " : "") + jsonString(dropped[i].first) + ": " + std::to_string(dropped[i].second);
    j += "},\n";
    j += "  \"intervals\": " + std::to_string(intervals) + ",\n";
    j += "  \"bandpass_intervals\": " + std::to_string(bandpassIntervals) + ",\n";
    j += "  \"flagged_elements_averaged\": " + std::to_string(flaggedAveraged) + ",\n";
    j += "  \"stations_calibrated\": " + jsonList(stationsCalibrated) + ",\n";
    j += "  \"not_done\": " + jsonList(notDone) + ",\n";
    j += "  \"warnings\": " + jsonList(warnings) + ",\n";
    j += "  \"antab_changes\": " + jsonList(antabChanges) + ",\n";
    j += "  \"seconds\": " + jsonNumber(seconds) + ",\n";
    j += "  \"input_mb\": " + jsonNumber(inputMB) + ",\n";
    j += "  \"mb_per_second\": " + jsonNumber(MBPerSecond()) + "\n";
    return j + "}\n";
}

std::string ACalSummary::ToText() const {
    char buf[256];
    std::string t = "passes: " + (passes.empty() ? std::string("none (copy)") : joined(passes, ", ")) + "\n";
    std::snprintf(buf, sizeof buf,
                  "records: %lld in the file, %lld read, %lld written, %lld merged by averaging\n",
                  static_cast<long long>(recordsIn), static_cast<long long>(recordsRead),
                  static_cast<long long>(recordsWritten), static_cast<long long>(recordsAveraged));
    t += buf;
    for (const auto& d : dropped) {
        std::snprintf(buf, sizeof buf, "dropped: %lld, ", static_cast<long long>(d.second));
        t += buf + d.first + "\n";
    }
    std::snprintf(buf, sizeof buf, "intervals: %lld; bandpass solutions: %lld\n",
                  static_cast<long long>(intervals), static_cast<long long>(bandpassIntervals));
    t += buf;
    if (flaggedAveraged > 0) {
        std::snprintf(buf, sizeof buf, "flagged elements added into means: %lld\n",
                      static_cast<long long>(flaggedAveraged));
        t += buf;
    }
    if (!stationsCalibrated.empty()) t += "stations calibrated: " + joined(stationsCalibrated, " ") + "\n";
    for (const auto& c : antabChanges) t += "antab changed: " + c + "\n";
    for (const auto& w : warnings) t += "warning: " + w + "\n";
    for (const auto& n : notDone) t += "not done: " + n + "\n";
    std::snprintf(buf, sizeof buf, "time: %.2f s for %d walk(s) over %.1f MB, %.1f MB/s", seconds, walks,
                  inputMB, MBPerSecond());
    return t + buf;
}

ACalListener::~ACalListener() = default;
void ACalListener::OnProgress(const std::string&, int, int, int) {}
void ACalListener::OnMessage(ACalLevel, const std::string&) {}
