// uvx-info: prints the header, tables, records, baselines and amplitude statistics of a UVX file.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/AUVXRecords.h>
#include <merovane/uvx/AUVXSources.h>
#include <merovane/uvx/AUVXTable.h>
#include <merovane/uvx/UVXTableLayouts.h>
#include <merovane/uvx/UVXText.h>

namespace {

const char* const kUsage =
    "usage: uvx-info [--rows] [--max-rows N] [--records N] FILE.uvx\n"
    "Prints the header, the tables, the record count, time range, sources, baselines and amplitude\n"
    "statistics of a UVX file.\n"
    "  --rows         also print the rows of every table\n"
    "  --max-rows N   print at most N rows of each table (implies --rows)\n"
    "  --records N    print the first N records (group and the first channel of each IF)\n";

int Usage(const char* problem) {
    if (problem) std::fprintf(stderr, "uvx-info: %s\n", problem);
    std::fputs(kUsage, stderr);
    return 2;
}

const char* StokesName(int code) {
    static const char* names[8] = {"RR", "LL", "RL", "LR", "XX", "YY", "XY", "YX"};
    if (code <= -1 && code >= -8) return names[-code - 1];
    switch (code) {
        case 1:
            return "I";
        case 2:
            return "Q";
        case 3:
            return "U";
        case 4:
            return "V";
        default:
            return "?";
    }
}

// One element of a column as text.
std::string Cell(const AUVXTable& t, int row, int col) {
    const AXTblFormat f = t.ParseFormat(col);
    if (f.type == 'A') return std::string("'") + t.GetText(row, col).GetString() + "'";
    std::string out;
    const int shown = f.count > 8 ? 8 : f.count;
    for (int e = 0; e < shown; ++e) {
        char buf[40];
        const double v = t.GetDouble(row, col, e);
        if (f.type == 'D' || f.type == 'E')
            std::snprintf(buf, sizeof buf, "%.10g", v);
        else
            std::snprintf(buf, sizeof buf, "%.0f", v);
        if (e) out += " ";
        out += buf;
    }
    if (shown < f.count) out += " ...";
    return out;
}

void PrintTable(const AUVXTable& t, bool rows, long long maxRows) {
    std::printf("  %-8s %d rows, %d columns, %d bytes a row\n", t.GetName().GetString(), t.nRows, t.nCols,
                t.rowBytes);
    for (int c = 0; c < t.nCols; ++c) {
        const AXTblFormat f = t.ParseFormat(c);
        const CString unit = AUVXHeader::Text(t.columns[c].unit, sizeof t.columns[c].unit);
        std::printf("    column %-20s %d%c%s%s\n", t.ColumnName(c).GetString(), f.count,
                    f.type ? f.type : '?', unit.IsEmpty() ? "" : "  ", unit.GetString());
    }
    for (int k = 0; k < t.keywords.count; ++k) {
        const AXTblKeyword& kw = t.keywords.data[k];
        const CString name = AUVXHeader::Text(kw.name, sizeof kw.name);
        if (kw.type == 'A')
            std::printf("    keyword %s = '%s'\n", name.GetString(),
                        AUVXHeader::Text(kw.value.s, sizeof kw.value.s).GetString());
        else if (kw.type == 'D')
            std::printf("    keyword %s = %.10g\n", name.GetString(), kw.value.d);
        else
            std::printf("    keyword %s = %lld\n", name.GetString(), static_cast<long long>(kw.value.i));
    }
    if (!rows) return;
    const long long n = maxRows >= 0 && maxRows < t.nRows ? maxRows : t.nRows;
    for (long long r = 0; r < n; ++r) {
        std::printf("    row %lld:", r + 1);
        for (int c = 0; c < t.nCols; ++c)
            std::printf(" %s=%s", t.ColumnName(c).GetString(), Cell(t, static_cast<int>(r), c).c_str());
        std::printf("\n");
    }
    if (n < t.nRows) std::printf("    ... %lld more rows\n", t.nRows - n);
}

struct AProductStats {
    double sumAmp = 0, sumAmp2 = 0;
    long long good = 0, flagged = 0;
    void Add(const AUVXComplex& e) {
        if (!(e.wt > 0)) {
            ++flagged;
            return;
        }
        const double a = std::hypot(static_cast<double>(e.re), static_cast<double>(e.im));
        sumAmp += a;
        sumAmp2 += a * a;
        ++good;
    }
    double Mean() const { return good ? sumAmp / good : 0.0; }
    double Rms() const { return good ? std::sqrt(sumAmp2 / good) : 0.0; }
};

struct ABaselineStats {
    long long records = 0;
    std::vector<AProductStats> products;
};

std::string AntennaName(const AUVXAntenns& ants, int id) {
    const int k = ants.IndexForID(id);
    if (k >= 0) return ants.data[k].Name().GetString();
    char buf[16];
    std::snprintf(buf, sizeof buf, "#%d", id);
    return buf;
}

}  // namespace

int main(int argc, char** argv) {
    bool rows = false;
    long long maxRows = -1, records = 0;
    const char* path = nullptr;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (arg == "--rows") {
            rows = true;
        } else if (arg == "--max-rows" || arg == "--records") {
            if (i + 1 >= argc) return Usage("an option needs a value");
            char* end = nullptr;
            const long long n = std::strtoll(argv[++i], &end, 10);
            if (*argv[i] == '\0' || *end != '\0' || n < 0)
                return Usage("a count must be a whole number from 0");
            if (arg == "--records") {
                records = n;
            } else {
                maxRows = n;
                rows = true;
            }
        } else if (arg.size() > 1 && arg[0] == '-') {
            return Usage(("unknown option " + arg).c_str());
        } else if (path) {
            return Usage("more than one file");
        } else {
            path = argv[i];
        }
    }
    if (!path) return Usage("no file");

    AUVXFile file;
    if (!file.Open(path)) {
        std::fprintf(stderr, "uvx-info: %s\n", file.m_errMsg.GetString());
        return 1;
    }
    const AUVXHeader h(file);
    const int nIF = h.nIF > 1 ? h.nIF : 1;
    const std::int64_t recBytes = AUVXFile::RecordBytes(h);

    std::printf("File %s\n", path);
    std::printf("  %lld bytes, %d records of %lld bytes\n", static_cast<long long>(file.file->GetLength()),
                file.nGroups, static_cast<long long>(recBytes));
    std::printf("Header\n");
    std::printf("  date %s, reference day JD %.1f (MJD %.1f)\n", AUVXHeader::Text(h.dateObs, 12).GetString(),
                h.refJD, h.refJD - 2400000.5);
    std::printf("  object '%s', telescope '%s', instrument '%s', observer '%s', origin '%s'\n",
                AUVXHeader::Text(h.object, 16).GetString(), AUVXHeader::Text(h.telescope, 16).GetString(),
                AUVXHeader::Text(h.instrument, 16).GetString(), AUVXHeader::Text(h.observer, 16).GetString(),
                AUVXHeader::Text(h.origin, 32).GetString());
    std::printf(
        "  reference frequency %.6f MHz, channel width %.3f kHz, IF bandwidth %.3f MHz, sideband %+d,"
        " reference channel %d\n",
        h.refFreq / 1e6, h.chanWidth / 1e3, h.totalBandwidth / 1e6, h.sideband, h.refChan);
    std::printf("  integration %.3f s, equinox %.1f, target RA %.6f Dec %.6f deg\n", h.intTime, h.equinox,
                h.objRA, h.objDec);
    std::printf("  %d IF x %d channels x %d products (", h.nIF, h.nChan, h.nStokes);
    for (int p = 0; p < h.nStokes; ++p) std::printf("%s%s", p ? " " : "", StokesName(h.stokes[p]));
    std::printf(")\n");
    std::printf("  statistics: real %.6g .. %.6g, imaginary %.6g .. %.6g\n", h.reMin, h.reMax, h.imMin,
                h.imMax);

    const AArray<std::int64_t>& positions = file.TablePositions();
    std::printf("Tables (%d)\n", positions.count);
    AUVXAntenns antennas;
    AUVXSources sources;
    for (int k = 0; k < positions.count; ++k) {
        if (!file.Seek(positions.data[k])) {
            std::fprintf(stderr, "uvx-info: %s\n", file.m_errMsg.GetString());
            return 1;
        }
        AUVXTable table(*file.file);
        if (!table.IsValid()) {
            std::fprintf(stderr, "uvx-info: %s: table %d: %s\n", path, k + 1, table.m_errMsg.GetString());
            return 1;
        }
        PrintTable(table, rows, maxRows);
        if (table.GetName() == kLayoutAN.name && antennas.count == 0) antennas.Init(table);
        if (table.GetName() == kLayoutSU.name && sources.count == 0) sources.Init(table);
    }

    // One pass over the records.
    AUVXRecordReader reader;
    if (!reader.Open(file)) {
        std::fprintf(stderr, "uvx-info: %s: %s\n", path, reader.m_errMsg.GetString());
        return 1;
    }
    AUVXVisibility vis(h.nIF, h.nChan, h.nStokes);
    double tMin = 0, tMax = 0;
    std::map<int, long long> perSource;
    std::map<std::pair<int, int>, ABaselineStats> perBaseline;
    std::vector<AProductStats> cross(static_cast<std::size_t>(h.nStokes)),
        autos(static_cast<std::size_t>(h.nStokes));
    if (records > 0) std::printf("Records (first %lld)\n", records);
    AUVXGroup g;
    for (int r = 0; reader.Next(g, vis); ++r) {
        if (r == 0 || g.time < tMin) tMin = g.time;
        if (r == 0 || g.time > tMax) tMax = g.time;
        ++perSource[g.sourceId];
        ABaselineStats& b = perBaseline[{g.ant1, g.ant2}];
        ++b.records;
        b.products.resize(static_cast<std::size_t>(h.nStokes));
        std::vector<AProductStats>& total = g.ant1 == g.ant2 ? autos : cross;
        for (int e = 0; e < vis.count; ++e) {
            const int p = e % h.nStokes;
            total[p].Add(vis.data[e]);
            b.products[p].Add(vis.data[e]);
        }
        if (r < records) {
            std::printf("  %d: time %s source %d baseline %s-%s freqId %d u %.6g v %.6g w %.6g\n", r + 1,
                        timeToStr(g.time, -1).GetString(), g.sourceId, AntennaName(antennas, g.ant1).c_str(),
                        AntennaName(antennas, g.ant2).c_str(), g.freqId, g.u, g.v, g.w);
            for (int f = 0; f < nIF; ++f) {
                std::printf("     IF %d channel 1:", f + 1);
                for (int p = 0; p < h.nStokes; ++p) {
                    const AUVXComplex& e = vis.data[vis.Index(f, 0, p)];
                    std::printf("  %s %.6g%+.6gi w %.4g", StokesName(h.stokes[p]), e.re, e.im, e.wt);
                }
                std::printf("\n");
            }
        }
    }
    if (reader.Failed()) {
        std::fprintf(stderr, "uvx-info: %s: %s\n", path, reader.m_errMsg.GetString());
        return 1;
    }
    reader.Close();

    std::printf("Records\n");
    std::printf("  %d records", file.nGroups);
    if (file.nGroups > 0)
        std::printf(", time %s .. %s (%.3f s)", timeToStr(tMin, -1).GetString(),
                    timeToStr(tMax, -1).GetString(), tMax - tMin);
    std::printf("\n");
    for (const auto& s : perSource) {
        const int k = sources.IndexForID(s.first);
        std::printf("  source %d %s: %lld records\n", s.first,
                    k >= 0 ? sources.data[k].Name().GetString() : "?", s.second);
    }
    int nAuto = 0;
    for (const auto& b : perBaseline) nAuto += b.first.first == b.first.second;
    std::printf("Baselines (%d: %d autocorrelations, %d cross-correlations)\n",
                static_cast<int>(perBaseline.size()), nAuto, static_cast<int>(perBaseline.size()) - nAuto);
    std::printf("  %-9s %8s", "baseline", "records");
    for (int p = 0; p < h.nStokes; ++p)
        std::printf(" %12s", (std::string("|") + StokesName(h.stokes[p]) + "|").c_str());
    std::printf("   (mean amplitude of unflagged elements)\n");
    for (const auto& b : perBaseline) {
        const std::string name =
            AntennaName(antennas, b.first.first) + "-" + AntennaName(antennas, b.first.second);
        std::printf("  %-9s %8lld", name.c_str(), b.second.records);
        for (const AProductStats& s : b.second.products) std::printf(" %12.5g", s.Mean());
        std::printf("\n");
    }
    std::printf("Amplitudes\n");
    std::printf("  %-7s %-6s %14s %14s %12s %10s\n", "kind", "product", "mean |V|", "rms |V|", "elements",
                "flagged");
    for (int kind = 0; kind < 2; ++kind) {
        const std::vector<AProductStats>& s = kind ? autos : cross;
        for (int p = 0; p < h.nStokes; ++p)
            std::printf("  %-7s %-6s %14.6g %14.6g %12lld %10lld\n", kind ? "auto" : "cross",
                        StokesName(h.stokes[p]), s[p].Mean(), s[p].Rms(), s[p].good, s[p].flagged);
    }
    file.Close();
    return 0;
}
