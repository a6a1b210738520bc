// AAntabCheck: a tolerant reading of an ANTAB text, compared with the exact parser's, and the rewrite.
#include <merovane/antab/AAntabCheck.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

#include <merovane/antab/AAntabData.h>
#include <merovane/antab/AAntabTlsc.h>
#include <merovane/foundation/Calendar.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/AUVXTable.h>

namespace {

// The parser reads lines into a buffer of 1024 bytes.
const std::size_t kMaxLine = 1023;

std::string Upper(std::string s) {
    for (char& c : s)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return s;
}

std::string Trim(const std::string& s) {
    std::size_t a = 0, b = s.size();
    while (a < b && std::isspace(static_cast<unsigned char>(s[a]))) ++a;
    while (b > a && std::isspace(static_cast<unsigned char>(s[b - 1]))) --b;
    return s.substr(a, b - a);
}

// A whole token that strtod reads to its end.
bool IsNumber(const std::string& s, double* value = nullptr) {
    if (s.empty()) return false;
    char* end = nullptr;
    const double v = std::strtod(s.c_str(), &end);
    if (end != s.c_str() + s.size()) return false;
    if (value) *value = v;
    return true;
}

std::string Fmt(const char* format, double v) {
    char b[64];
    std::snprintf(b, sizeof b, format, v);
    return b;
}

std::string Int(long long v) {
    return std::to_string(v);
}

// The line as the parser prepares it for keywords: upper case, tabs as blanks, the comment cut off.
std::string Prepared(const std::string& raw) {
    std::string s = Upper(raw);
    std::replace(s.begin(), s.end(), '\t', ' ');
    const std::size_t bang = s.find('!');
    if (bang != std::string::npos) s.erase(bang);
    return s;
}

std::string FirstWord(const std::string& prepared) {
    std::istringstream in(prepared);
    std::string w;
    in >> w;
    // "GAIN" glued to nothing else is the keyword; "TSYS" likewise.
    return w;
}

bool StartsWithDigit(const std::string& prepared) {
    const std::string t = Trim(prepared);
    return !t.empty() && t[0] >= '0' && t[0] <= '9';
}

const char* const kKeywords[] = {"GAIN", "TSYS",  "DPFU",   "FREQ", "POLY", "TIMEOFF",
                                 "FT",   "INDEX", "INDEX2", "BIF",  "EIF"};

bool IsKeyword(const std::string& w) {
    for (const char* k : kKeywords)
        if (w == k) return true;
    return false;
}

// The order in which the parser searches for the keywords of a line.
int ParserOrder(const std::string& w) {
    static const char* const order[] = {"BIF",  "EIF",     "GAIN", "DPFU",   "FREQ", "POLY",
                                        "TSYS", "TIMEOFF", "FT",   "INDEX2", "INDEX"};
    for (int i = 0; i < 11; ++i)
        if (w == order[i]) return i;
    return -1;
}

struct Token {
    std::string text;  // upper case
    int line;          // index into the lines
    bool lastOnLine;   // nothing follows it on its line
    bool blankBefore;  // white space in front of it
};

// Tokens of keyword lines: words, and "=", ",", "/" on their own.
void Tokenize(const std::string& prepared, int line, std::vector<Token>& out) {
    const std::size_t first = out.size();
    std::string word;
    bool blank = true, wordBlank = true;
    auto flush = [&]() {
        if (!word.empty()) out.push_back({word, line, false, wordBlank});
        word.clear();
    };
    for (char c : prepared) {
        if (std::isspace(static_cast<unsigned char>(c))) {
            flush();
            blank = true;
            continue;
        }
        if (c == '=' || c == ',' || c == '/') {
            flush();
            out.push_back({std::string(1, c), line, false, blank});
            blank = false;
            continue;
        }
        if (word.empty()) wordBlank = blank;
        word += c;
        blank = false;
    }
    flush();
    if (out.size() > first) out.back().lastOnLine = true;
}

std::string Unquote(std::string s) {
    s.erase(std::remove(s.begin(), s.end(), '\''), s.end());
    s.erase(std::remove(s.begin(), s.end(), '"'), s.end());
    return s;
}

struct Observation {
    int line;
    std::string code, kind, text, todo;
    std::string field;  // the keyword whose value the parser may lose ("NAME", "KIND" or a keyword)
};

// What one GAIN block says.
struct GainInfo {
    std::string name, kindWord;
    int polyType = 0;
    std::vector<std::string> dpfu, freq, poly;  // number texts as written
    std::vector<Observation> obs;
};

// What one TSYS header says.
struct TsysInfo {
    std::string name;
    bool hasName = false;
    std::string timeoffText, ftText;
    double timeoff = 0.0;
    std::vector<std::string> items, items2;  // INDEX and INDEX2 items, quotes removed
    bool hasIndex = false, hasIndex2 = false;
    std::vector<Observation> obs;
};

enum SegKind { kLoose, kGain, kTsys };

struct Segment {
    SegKind kind = kLoose;
    int first = 0, last = -1;          // header lines (a GAIN block, a TSYS header, loose lines)
    int bodyFirst = 0, bodyLast = -1;  // TSYS: the lines behind the header up to the next block
    std::string station;
    GainInfo gain;
    TsysInfo tsys;
    int gainSeg = -1;  // TSYS: the GAIN block it belongs to
};

// A data row as the normaliser reads it.
struct Row {
    int line;
    int day = 0;
    double seconds = 0.0;  // of the day, with TIMEOFF applied
    bool timeOk = false;
    std::string text;  // rewritten text
    double sortTime = 0.0;
    std::string why;  // what was rewritten
};

struct Station {
    std::vector<int> gains, tsys;  // segment indices in file order
    int keptGain = -1;
    std::vector<int> keptTsys;
    bool placeGainAtTsys = false;
    bool synthGain = false;
    bool merge = false;
};

// A flat gain curve and DPFU values as the parser reads them from a text (meant or parsed).
struct GainValues {
    std::string name;
    int polyType = 0;
    double dpfu[2] = {1.0, 1.0};
    double freqLow = 0.0, freqHigh = 1e38;
    std::vector<double> poly;
    bool operator==(const GainValues& o) const {
        return name == o.name && polyType == o.polyType && dpfu[0] == o.dpfu[0] && dpfu[1] == o.dpfu[1] &&
               freqLow == o.freqLow && freqHigh == o.freqHigh && poly == o.poly;
    }
};

struct TsysValues {
    double timeoff = 0.0, ft = 1.0;
    std::vector<AColumnInfo> index, index2;
    int nCol = 0;
    bool operator==(const TsysValues& o) const {
        auto same = [](const std::vector<AColumnInfo>& a, const std::vector<AColumnInfo>& b) {
            if (a.size() != b.size()) return false;
            for (std::size_t i = 0; i < a.size(); ++i)
                if (a[i].pol != b[i].pol || a[i].first != b[i].first || a[i].last != b[i].last) return false;
            return true;
        };
        return timeoff == o.timeoff && ft == o.ft && same(index, o.index) && same(index2, o.index2) &&
               nCol == o.nCol;
    }
};

AColumnInfo ParseItem(const std::string& item) {
    AAntabTlsc t;
    CString text(item);
    AColumnInfo info;
    t.ColumnInfoParse(text, info);
    return info;
}

// Splits "R1|L1" into its two halves; a single item gives one.
std::vector<std::string> SplitPair(const std::string& item) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (true) {
        const std::size_t bar = item.find('|', start);
        parts.push_back(item.substr(start, bar == std::string::npos ? std::string::npos : bar - start));
        if (bar == std::string::npos) break;
        start = bar + 1;
    }
    return parts;
}

// Runs the exact parser on `text` without a UVX file; true when only the missing file stopped it.
// Whether a text parses does not depend on the IF count, which only decides the positions filled.
bool ExactParse(const std::string& text, int nIF, AAntabData& data) {
    data.m_nPol = 2;
    data.m_nIF = nIF < 1 ? 1 : nIF;
    std::istringstream in(text);
    data.Load(in);
    return data.m_errMsg == "Error> <AAntabData> uvx == NULL. ";
}

// A time token "h:m.m" or "h:m:s.s": seconds of the day and the decimals of the minutes.
bool ParseTime(const std::string& token, double& seconds, int& fields, int& minuteDecimals, bool& overflow) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (true) {
        const std::size_t c = token.find(':', start);
        parts.push_back(token.substr(start, c == std::string::npos ? std::string::npos : c - start));
        if (c == std::string::npos) break;
        start = c + 1;
    }
    if (parts.size() < 2 || parts.size() > 3) return false;
    double v[3] = {0, 0, 0};
    for (std::size_t i = 0; i < parts.size(); ++i)
        if (!IsNumber(parts[i], &v[i]) || !(v[i] >= 0) || !std::isfinite(v[i]) ||
            parts[i].find_first_not_of("0123456789.") != std::string::npos)
            return false;
    fields = static_cast<int>(parts.size());
    const std::size_t dot = parts[1].find('.');
    minuteDecimals = dot == std::string::npos ? 0 : static_cast<int>(parts[1].size() - dot - 1);
    overflow = v[1] >= 60.0 || (fields == 3 && v[2] >= 60.0);
    seconds = v[0] * 3600.0 + v[1] * 60.0 + v[2];
    return true;
}

// "HH:MM.mm" of a time of day in seconds, with at least `decimals` decimals of the minute and up to
// six where the time needs them.
std::string FormatTime(double seconds, int decimals) {
    if (decimals < 2) decimals = 2;
    if (decimals > 6) decimals = 6;
    const long long micro = std::llround(seconds / 60.0 * 1e6);  // millionths of a minute
    const long long minutes = micro / 1000000;
    long long frac = micro % 1000000;
    const long long h = minutes / 60, m = minutes % 60;
    char digits[8];
    std::snprintf(digits, sizeof digits, "%06lld", frac);
    std::string f(digits);
    while (static_cast<int>(f.size()) > decimals && f.back() == '0') f.pop_back();
    char b[64];
    std::snprintf(b, sizeof b, "%02lld:%02lld.%s", h, m, f.c_str());
    return b;
}

// Julian date of 0h of day `day` of the year of `refJD`, as the calibration dates the rows.
double RowMjd(int day, int year) {
    const int leapDays = (year - 1901) / 4;
    double mjd = (day + leapDays) + (year - 1900) * 365.0;
    mjd = mjd - 0.5;
    mjd = mjd + 2415020.0;
    return mjd - 2400000.5;
}

std::string MjdText(double mjd) {
    const double frac = mjd - std::floor(mjd);
    const long long s = std::llround(frac * 86400.0);
    char b[64];
    std::snprintf(b, sizeof b, "MJD %lld %02lld:%02lld:%02lld", static_cast<long long>(std::floor(mjd)),
                  s / 3600 % 24, s / 60 % 60, s % 60);
    return b;
}

// The checker's work on one text.
class Checker {
public:
    Checker(const AAntabCheckOptions& options, AAntabCheckResult& out) : m_opt(options), m_out(out) {}

    void Run(const std::string& text);
    bool CheckUvx(AUVXFile& uvx, CString& errMsg);

private:
    void split(const std::string& text);
    void segment();
    void readGain(Segment& s);
    void readTsys(Segment& s);
    void pair();
    void decide();
    void emit();
    void emitGain(int seg, bool moved, int beforeLine);
    void emitTsys(Station& st, int seg);
    void emitLine(int index, const std::string& text, const std::string& why);
    void emitNew(const std::string& text, const std::string& why);
    void remove(int index, const std::string& why);
    bool readRow(const Segment& s, const TsysInfo& t, int index, Row& row, bool dropExtra,
                 bool record = true);
    void rowFinding(const Segment& s, const std::string& code, int line);
    void flushRowFindings();
    void sortFindings() {
        std::stable_sort(m_out.findings.begin(), m_out.findings.end(),
                         [](const AAntabFinding& x, const AAntabFinding& y) { return x.line < y.line; });
    }
    void finding(int line, const std::string& station, const std::string& kind, const std::string& code,
                 const std::string& text, const std::string& todo);
    GainValues meantGain(const GainInfo& g) const;
    TsysValues meantTsys(const TsysInfo& t) const;
    std::string canonicalGain(const GainInfo& g) const;
    std::string canonicalTsys(const TsysInfo& t, bool timeoffApplied) const;
    bool dropExtra(const std::string& station) const;
    int lineNo(int index) const { return index + 1; }

    const AAntabCheckOptions& m_opt;
    AAntabCheckResult& m_out;

    std::vector<std::string> m_raw;   // lines without their ends
    std::vector<std::string> m_prep;  // prepared for keywords
    bool m_finalNewline = true;
    std::vector<Segment> m_segs;
    std::map<std::string, Station> m_stations;
    std::vector<std::string> m_order;  // stations in order of first appearance
    std::vector<std::string> m_output;
    std::set<int> m_rewrittenGain, m_rewrittenTsys;
    // Row findings gathered per TSYS block and rule: first line and count.
    struct RowCount {
        int first = 0, count = 0;
        std::string station;
    };
    std::map<std::pair<int, std::string>, RowCount> m_rowCounts;
    bool m_stop = false;
    bool m_recordRows = true;
};

void Checker::finding(int line, const std::string& station, const std::string& kind, const std::string& code,
                      const std::string& text, const std::string& todo) {
    AAntabFinding f;
    f.line = line;
    f.station = station;
    f.kind = kind;
    f.code = code;
    f.text = text;
    f.todo = todo;
    m_out.findings.push_back(f);
    if (kind == "question") m_stop = true;
}

void Checker::split(const std::string& text) {
    std::size_t start = 0;
    int crLines = 0, firstCr = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        const bool last = end == std::string::npos;
        std::string line = text.substr(start, last ? std::string::npos : end - start);
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
            if (crLines++ == 0) firstCr = static_cast<int>(m_raw.size()) + 1;
            AAntabChange c;
            c.line = static_cast<int>(m_raw.size()) + 1;
            c.before = line + "\\r";
            c.after = line;
            c.why = "CR line end removed";
            m_out.changes.push_back(c);
        }
        m_raw.push_back(line);
        if (last) {
            m_finalNewline = false;
            break;
        }
        start = end + 1;
    }
    if (crLines > 0)
        finding(firstCr, "", "note", "cr-line-end",
                Int(crLines) +
                    " line(s) end in CR LF; the CR stays in the line, where it is white space to "
                    "this parser but part of the last word to others",
                "written with LF line ends");
    for (std::size_t i = 0; i < m_raw.size(); ++i) {
        m_prep.push_back(Prepared(m_raw[i]));
        if (m_raw[i].size() > kMaxLine)
            finding(static_cast<int>(i) + 1, "", "error", "line-too-long",
                    "the line has " + Int(static_cast<long long>(m_raw[i].size())) +
                        " characters; the parser stops at lines of more than 1023 (\"error read file.\")",
                    "split the line by hand");
    }
    for (const AAntabFinding& f : m_out.findings)
        if (f.code == "line-too-long") m_stop = true;
}

void Checker::segment() {
    const int n = static_cast<int>(m_raw.size());
    int i = 0;
    auto isHead = [&](int k) {
        const std::string w = FirstWord(m_prep[k]);
        return w == "GAIN" || w == "TSYS";
    };
    // Continuation lines of a keyword block: not empty, not a row, not a new block.
    auto continues = [&](int k) {
        const std::string t = Trim(m_prep[k]);
        return !t.empty() && !StartsWithDigit(m_prep[k]) && !isHead(k) && Trim(m_raw[k])[0] != '!';
    };
    while (i < n) {
        Segment s;
        const std::string w = FirstWord(m_prep[i]);
        if (w == "GAIN" || w == "TSYS") {
            s.kind = w == "GAIN" ? kGain : kTsys;
            s.first = i;
            int k = i + 1;
            while (k < n && continues(k)) ++k;
            s.last = k - 1;
            if (s.kind == kTsys) {
                s.bodyFirst = k;
                while (k < n && !isHead(k)) ++k;
                s.bodyLast = k - 1;
            }
            i = k;
        } else {
            s.kind = kLoose;
            s.first = i;
            int k = i + 1;
            while (k < n && !isHead(k)) ++k;
            s.last = k - 1;
            i = k;
        }
        m_segs.push_back(s);
    }
}

// The tokens of a block's header lines.
void CollectTokens(const std::vector<std::string>& prep, int first, int last, std::vector<Token>& tokens) {
    for (int k = first; k <= last; ++k) Tokenize(prep[k], k, tokens);
}

void Checker::readGain(Segment& s) {
    GainInfo& g = s.gain;
    std::vector<Token> tk;
    CollectTokens(m_prep, s.first, s.last, tk);
    std::size_t p = 1;  // behind GAIN
    if (p < tk.size() && !IsKeyword(tk[p].text) && tk[p].text.size() > 1) {
        g.name = tk[p].text;
        if (tk[p].lastOnLine)
            g.obs.push_back({tk[p].line, "gain-name-at-end", "error",
                             "the GAIN line ends right at the station name " + g.name +
                                 ": the parser takes a name only when a blank follows it, so the station "
                                 "gets an empty name and its TSYS block is refused",
                             "station name, gain-curve kind and values written on one GAIN line", "NAME"});
        ++p;
        if (p < tk.size() && !IsKeyword(tk[p].text) && tk[p].text != "/" && tk[p].text != "=" &&
            !IsNumber(tk[p].text)) {
            g.kindWord = tk[p].text;
            if (tk[p].lastOnLine && tk[p].line == tk[p - 1].line)
                g.obs.push_back({tk[p].line, "gain-kind-at-end", "loss",
                                 "the GAIN line ends right at the gain-curve kind " + g.kindWord +
                                     ": the parser reads a word only when a blank follows it, so the kind "
                                     "is lost and a gain curve of two or more terms cannot be evaluated",
                                 "the kind written with the rest of the GAIN line", "KIND"});
            else if (tk[p].line != tk[p - 1].line)
                g.obs.push_back({tk[p].line, "gain-kind-own-line", "loss",
                                 "the gain-curve kind " + g.kindWord +
                                     " stands on a line of its own, where the parser does not look for it",
                                 "the kind written on the GAIN line", "KIND"});
            ++p;
        }
    } else {
        g.obs.push_back({s.first, "gain-no-name", "error", "the GAIN line names no station",
                         "write the station name behind GAIN", ""});
    }
    g.polyType = g.kindWord == "ELEV" ? 1 : g.kindWord == "ALTAZ" ? 2 : g.kindWord == "EQUAT" ? 3 : 0;
    int lastOrder = ParserOrder("GAIN");
    int lastOrderLine = s.first;
    std::string lastKey = "GAIN";
    while (p < tk.size()) {
        const std::string key = tk[p].text;
        if (key == "/" || key == "," || key == "=") {
            ++p;
            continue;
        }
        if (!IsKeyword(key)) {
            g.obs.push_back({tk[p].line, "unknown-word", "note",
                             "the word " + key + " means nothing to the parser and is passed over",
                             "none: it goes only where the block is rewritten for another reason", ""});
            ++p;
            continue;
        }
        const int order = ParserOrder(key);
        if (tk[p].line == lastOrderLine && order < lastOrder)
            g.obs.push_back({tk[p].line, "keyword-order", "loss",
                             lastKey + " stands in front of " + key +
                                 " on one line; the parser searches for " + key + " first and loses " +
                                 lastKey,
                             "one keyword order on the GAIN line: DPFU, FREQ, POLY", lastKey});
        lastOrder = order;
        lastOrderLine = tk[p].line;
        lastKey = key;
        ++p;
        if (key != "DPFU" && key != "FREQ" && key != "POLY") {
            // BIF, EIF: one number.
            if (p < tk.size() && tk[p].text == "=") ++p;
            if (p < tk.size() && IsNumber(tk[p].text)) ++p;
            continue;
        }
        if (p < tk.size() && tk[p].text == "=") ++p;
        std::vector<std::string>& list = key == "DPFU" ? g.dpfu : key == "FREQ" ? g.freq : g.poly;
        bool blankAfterComma = false;
        int listLine = p < tk.size() ? tk[p].line : s.first;
        while (p < tk.size() && !IsKeyword(tk[p].text) && tk[p].text != "/") {
            if (tk[p].text == ",") {
                if (p + 1 < tk.size() && tk[p + 1].blankBefore && !IsKeyword(tk[p + 1].text))
                    blankAfterComma = true;
                ++p;
                continue;
            }
            if (IsNumber(tk[p].text)) {
                list.push_back(tk[p].text);
            } else {
                g.obs.push_back({tk[p].line, "unknown-word", key == "POLY" ? "loss" : "loss",
                                 "the word " + tk[p].text + " in the " + key +
                                     " list is not a number; the parser takes it as the value 0.0",
                                 "removed from the list", key});
            }
            ++p;
        }
        if (blankAfterComma && key != "POLY")
            g.obs.push_back({listLine, "blank-after-comma", "loss",
                             "the " + key +
                                 " list has a blank after a comma; the parser stops the list at the blank "
                                 "and keeps only the first value",
                             "the list written without blanks", key});
    }
    if (g.dpfu.size() > 2)
        g.obs.push_back({s.first, "dpfu-count", "question",
                         "DPFU has " + Int(static_cast<long long>(g.dpfu.size())) +
                             " values; the parser takes one or two (first and second polarisation)",
                         "give one value, or one per polarisation", "DPFU"});
    if (g.freq.size() > 2)
        g.obs.push_back({s.first, "freq-count", "question",
                         "FREQ has more than two values; the parser takes a lower and an upper limit in MHz",
                         "give the lower and upper limit", "FREQ"});
}

void Checker::readTsys(Segment& s) {
    TsysInfo& t = s.tsys;
    std::vector<Token> tk;
    CollectTokens(m_prep, s.first, s.last, tk);
    std::size_t p = 1;
    if (p < tk.size() && !IsKeyword(tk[p].text) && tk[p].text != "/" && tk[p].text != "=") {
        t.name = tk[p].text;
        t.hasName = true;
        if (tk[p].lastOnLine)
            t.obs.push_back({tk[p].line, "tsys-name-at-end", "error",
                             "the TSYS line ends right at the station name " + t.name +
                                 ": the parser compares the word in front of the next blank with the GAIN "
                                 "station, finds none and refuses the block",
                             "TSYS, station and keywords written on one line", "NAME"});
        ++p;
    }
    int lastOrder = ParserOrder("TSYS");
    int lastOrderLine = s.first;
    std::string lastKey = "TSYS";
    while (p < tk.size()) {
        const std::string key = tk[p].text;
        if (key == "/" || key == "," || key == "=") {
            ++p;
            continue;
        }
        if (!IsKeyword(key)) {
            t.obs.push_back({tk[p].line, "unknown-word", "note",
                             "the word " + key + " means nothing to the parser and is passed over",
                             "none: it goes only where the block is rewritten for another reason", ""});
            ++p;
            continue;
        }
        const int order = ParserOrder(key);
        if (tk[p].line == lastOrderLine && order < lastOrder)
            t.obs.push_back({tk[p].line, "keyword-order", "loss",
                             lastKey + " stands in front of " + key +
                                 " on one line; the parser searches for " + key + " first and loses " +
                                 lastKey,
                             "one keyword order on the TSYS line: TIMEOFF, FT, INDEX", lastKey});
        lastOrder = order;
        lastOrderLine = tk[p].line;
        lastKey = key;
        ++p;
        if (p < tk.size() && tk[p].text == "=") ++p;
        if (key == "TIMEOFF" || key == "FT" || key == "BIF" || key == "EIF") {
            if (p < tk.size() && IsNumber(tk[p].text)) {
                if (key == "TIMEOFF") {
                    t.timeoffText = tk[p].text;
                    // A shift beyond a year is no shift the rows can take.
                    if (!IsNumber(tk[p].text, &t.timeoff) || !(std::fabs(t.timeoff) < 3.2e7)) t.timeoff = 0.0;
                } else if (key == "FT") {
                    t.ftText = tk[p].text;
                }
                ++p;
            }
            continue;
        }
        if (key == "INDEX" || key == "INDEX2") {
            std::vector<std::string>& list = key == "INDEX" ? t.items : t.items2;
            (key == "INDEX" ? t.hasIndex : t.hasIndex2) = true;
            list.clear();
            while (p < tk.size() && tk[p].text != "/" && !IsKeyword(tk[p].text)) {
                if (tk[p].text != ",") list.push_back(Unquote(tk[p].text));
                ++p;
            }
            continue;
        }
        // GAIN-block keywords in a TSYS header.
        while (p < tk.size() && !IsKeyword(tk[p].text) && tk[p].text != "/") ++p;
    }
    for (const std::string& item : t.items)
        if (item.find('|') != std::string::npos) {
            t.obs.push_back({s.first, "index-pair", "loss",
                             "the INDEX item '" + item +
                                 "' serves two polarisations; the parser reads the first letter only, so the "
                                 "other polarisation gets no Tsys",
                             "the second polarisation of each such item listed in INDEX2, which reads the "
                             "same column",
                             "INDEX"});
            break;
        }
}

GainValues Checker::meantGain(const GainInfo& g) const {
    GainValues v;
    v.name = g.name;
    v.polyType = g.polyType;
    if (!g.dpfu.empty()) {
        v.dpfu[0] = std::atof(g.dpfu[0].c_str());
        v.dpfu[1] = g.dpfu.size() > 1 ? std::atof(g.dpfu[1].c_str()) : v.dpfu[0];
    }
    if (!g.freq.empty()) v.freqLow = std::atof(g.freq[0].c_str()) * 1e6;
    if (g.freq.size() > 1) v.freqHigh = std::atof(g.freq[1].c_str()) * 1e6;
    for (const std::string& c : g.poly) v.poly.push_back(std::atof(c.c_str()));
    return v;
}

TsysValues Checker::meantTsys(const TsysInfo& t) const {
    TsysValues v;
    v.timeoff = t.timeoff;
    if (!t.ftText.empty()) v.ft = std::atof(t.ftText.c_str());
    bool pairs = false;
    for (const std::string& item : t.items) pairs |= item.find('|') != std::string::npos;
    for (const std::string& item : t.items) {
        const std::vector<std::string> parts = SplitPair(item);
        v.index.push_back(ParseItem(parts[0]));
        if (pairs && !t.hasIndex2) v.index2.push_back(ParseItem(parts.size() > 1 ? parts[1] : "X"));
    }
    if (t.hasIndex2)
        for (const std::string& item : t.items2) v.index2.push_back(ParseItem(item));
    v.nCol = static_cast<int>(t.items.size());
    if (!t.hasIndex && t.hasIndex2) v.nCol = static_cast<int>(t.items2.size());
    return v;
}

std::string Join(const std::vector<std::string>& v, const char* sep, bool quote) {
    std::string s;
    for (std::size_t i = 0; i < v.size(); ++i) {
        if (i) s += sep;
        s += quote ? "'" + v[i] + "'" : v[i];
    }
    return s;
}

std::string Checker::canonicalGain(const GainInfo& g) const {
    // A kind word is needed: the parser takes the second word behind GAIN as the kind.
    std::string s = "GAIN " + g.name + " " + (g.kindWord.empty() ? std::string("NONE") : g.kindWord);
    if (!g.dpfu.empty()) s += " DPFU=" + Join(g.dpfu, ",", false);
    if (!g.freq.empty()) s += " FREQ=" + Join(g.freq, ",", false);
    if (!g.poly.empty()) s += " POLY=" + Join(g.poly, ",", false);
    return s + " /";
}

std::string Checker::canonicalTsys(const TsysInfo& t, bool timeoffApplied) const {
    std::string s = "TSYS " + t.name;
    if (!t.timeoffText.empty()) s += " TIMEOFF=" + (timeoffApplied ? std::string("0") : t.timeoffText);
    s += " FT=" + (t.ftText.empty() ? std::string("1.0") : t.ftText);
    bool pairs = false;
    for (const std::string& item : t.items) pairs |= item.find('|') != std::string::npos;
    std::vector<std::string> first, second;
    for (const std::string& item : t.items) {
        const std::vector<std::string> parts = SplitPair(item);
        first.push_back(parts[0]);
        second.push_back(parts.size() > 1 ? parts[1] : "X");
    }
    if (t.hasIndex2)
        s += " INDEX2=" + Join(t.items2, ",", true) + " /";
    else if (pairs)
        s += " INDEX2=" + Join(second, ",", true) + " /";
    if (t.hasIndex) s += " INDEX=" + Join(first, ",", true) + " /";
    return s;
}

bool Checker::dropExtra(const std::string& station) const {
    for (const std::string& s : m_opt.dropExtra)
        if (Upper(s) == station || Upper(s) == "ALL") return true;
    return false;
}

void Checker::pair() {
    std::string lastGain;
    int lastGainSeg = -1;
    for (int i = 0; i < static_cast<int>(m_segs.size()); ++i) {
        Segment& s = m_segs[i];
        if (s.kind == kGain) {
            readGain(s);
            s.station = s.gain.name;
            lastGain = s.station;
            lastGainSeg = i;
        } else if (s.kind == kTsys) {
            readTsys(s);
            s.station = s.tsys.hasName ? s.tsys.name : lastGain;
            if (!s.tsys.hasName) s.tsys.name = s.station;
            s.gainSeg = s.station == lastGain ? lastGainSeg : -1;
        } else {
            continue;
        }
        if (s.station.empty()) continue;
        if (!m_stations.count(s.station)) m_order.push_back(s.station);
        Station& st = m_stations[s.station];
        (s.kind == kGain ? st.gains : st.tsys).push_back(i);
    }
    // A TSYS block after other stations' GAIN lines belongs to the last GAIN of its station before
    // it, or else to its first.
    for (int i = 0; i < static_cast<int>(m_segs.size()); ++i) {
        Segment& s = m_segs[i];
        if (s.kind != kTsys || s.gainSeg >= 0 || s.station.empty()) continue;
        const Station& st = m_stations[s.station];
        for (int g : st.gains)
            if (g < i) s.gainSeg = g;
        if (s.gainSeg < 0 && !st.gains.empty()) s.gainSeg = st.gains[0];
    }
}

// Decides per station what the normaliser does, and tells the findings of the blocks.
void Checker::decide() {
    // Observations of the blocks, with the exact parser deciding whether a loss is real here.
    for (int i = 0; i < static_cast<int>(m_segs.size()); ++i) {
        Segment& s = m_segs[i];
        if (s.kind == kLoose) continue;
        std::string text;
        if (s.kind == kTsys)
            text = "GAIN " + (s.station.empty() ? std::string("XX") : s.station) + " ELEV /\n";
        for (int k = s.first; k <= s.last; ++k) text += m_raw[k] + "\n";
        AAntabData exact;
        const bool parsed = ExactParse(text, 1, exact);
        bool same = parsed && exact.m_tlscs.count == 1;
        std::set<std::string> differs;  // fields the parser reads otherwise
        if (same && s.kind == kGain) {
            const AAntabTlsc& t = *exact.m_tlscs[0];
            GainValues got;
            got.name = t.m_name.str();
            got.polyType = t.m_polyType;
            got.dpfu[0] = t.m_dpfu[0];
            got.dpfu[1] = t.m_dpfu[1];
            got.freqLow = t.m_freqLow;
            got.freqHigh = t.m_freqHigh;
            for (int k = 0; k < t.m_poly.count; ++k) got.poly.push_back(t.m_poly[k]);
            const GainValues meant = meantGain(s.gain);
            if (got.name != meant.name) differs.insert("NAME");
            if (got.polyType != meant.polyType) differs.insert("KIND");
            if (got.dpfu[0] != meant.dpfu[0] || got.dpfu[1] != meant.dpfu[1]) differs.insert("DPFU");
            if (got.freqLow != meant.freqLow || got.freqHigh != meant.freqHigh) differs.insert("FREQ");
            if (got.poly != meant.poly) differs.insert("POLY");
            same = got == meant;
        } else if (same) {
            const AAntabTlsc& t = *exact.m_tlscs[0];
            TsysValues got;
            got.timeoff = t.m_timeOff;
            got.ft = t.m_ft;
            for (int k = 0; k < t.m_index.count; ++k) got.index.push_back(t.m_index[k]);
            for (int k = 0; k < t.m_index2.count; ++k) got.index2.push_back(t.m_index2[k]);
            got.nCol = t.m_nCol;
            const TsysValues meant = meantTsys(s.tsys);
            if (got.timeoff != meant.timeoff) differs.insert("TIMEOFF");
            if (got.ft != meant.ft) differs.insert("FT");
            TsysValues a = got, b = meant;
            a.timeoff = b.timeoff;
            a.ft = b.ft;
            if (!(a == b)) differs.insert("INDEX");
            same = got == meant;
        }
        std::vector<Observation>& obs = s.kind == kGain ? s.gain.obs : s.tsys.obs;
        bool explained = false;
        for (Observation& o : obs) {
            std::string kind = o.kind;
            if (kind == "question") {
                m_stop = true;
            } else if (parsed && kind != "note" && !o.field.empty() && !differs.count(o.field)) {
                // The parser ends with what the text means after all.
                kind = "note";
                o.todo = same ? "harmless here: the parser ends with the same value; kept as it is"
                              : "harmless here: the parser ends with the same value";
            } else if (!same && (kind == "error" || kind == "loss")) {
                explained = true;
            }
            finding(lineNo(o.line), s.station, kind, o.code, o.text, o.todo);
        }
        if (!same) {
            (s.kind == kGain ? m_rewrittenGain : m_rewrittenTsys).insert(i);
            if (!explained)
                finding(lineNo(s.first), s.station, parsed ? "loss" : "error", "parser-reads-otherwise",
                        parsed ? "the parser reads this block otherwise than it is written"
                               : "the parser refuses this block: " + exact.m_errMsg.str(),
                        "the block written in one line of the parser's keyword order");
        }
        if (s.kind == kTsys && s.tsys.timeoff != 0.0) {
            finding(lineNo(s.first), s.station, "loss", "timeoff",
                    "TIMEOFF=" + s.tsys.timeoffText +
                        " s is stored by the parser but never added to the row times, so every Tsys is "
                        "used " +
                        s.tsys.timeoffText + " s off",
                    "TIMEOFF added to the row times and set to 0");
            m_rewrittenTsys.insert(i);
        }
        if (s.kind == kTsys && !s.tsys.hasIndex && !s.tsys.hasIndex2) {
            auto it = m_opt.index.find(s.station);
            if (it == m_opt.index.end()) {
                finding(
                    lineNo(s.first), s.station, "question", "no-index",
                    "the TSYS block of " + s.station +
                        " has no INDEX: nothing says which polarisation and IF each value column holds",
                    "say it with --index " + s.station + "=\"'R1','R2',...\" (one item per value column)");
            } else {
                std::vector<Token> tk;
                Tokenize(Upper(it->second), 0, tk);
                for (const Token& t : tk)
                    if (t.text != ",") s.tsys.items.push_back(Unquote(t.text));
                s.tsys.hasIndex = true;
                m_rewrittenTsys.insert(i);
                finding(lineNo(s.first), s.station, "error", "no-index",
                        "the TSYS block of " + s.station + " has no INDEX; the parser refuses its rows",
                        "INDEX=" + Join(s.tsys.items, ",", true) + " from --index");
            }
        }
    }

    for (const std::string& name : m_order) {
        Station& st = m_stations[name];
        // Which GAIN block stays.
        if (st.gains.size() > 1) {
            bool allSame = true;
            const GainValues first = meantGain(m_segs[st.gains[0]].gain);
            for (int g : st.gains) allSame &= meantGain(m_segs[g].gain) == first;
            std::string lines;
            for (int g : st.gains) lines += (lines.empty() ? "" : ", ") + Int(lineNo(m_segs[g].first));
            auto keep = m_opt.keep.find(name);
            if (allSame) {
                st.keptGain = st.gains[0];
                finding(lineNo(m_segs[st.gains[1]].first), name, "loss", "station-twice",
                        "station " + name + " has " + Int(static_cast<long long>(st.gains.size())) +
                            " GAIN blocks (lines " + lines +
                            ") with the same values; the calibration uses the first and never the rows of "
                            "the others",
                        "one GAIN block, all of its Tsys rows under one TSYS block");
            } else if (keep != m_opt.keep.end() && keep->second >= 1 &&
                       keep->second <= static_cast<int>(st.gains.size())) {
                st.keptGain = st.gains[keep->second - 1];
                finding(lineNo(m_segs[st.gains[1]].first), name, "loss", "station-twice",
                        "station " + name + " has GAIN blocks that differ (lines " + lines +
                            "); the calibration would use the first only",
                        "kept block " + Int(keep->second) +
                            " (--keep), the others removed with their TSYS blocks");
            } else {
                st.keptGain = st.gains[0];
                finding(lineNo(m_segs[st.gains[1]].first), name, "question", "station-twice",
                        "station " + name + " has GAIN blocks that differ (lines " + lines +
                            "); the calibration would use the first and silently drop the others' Tsys",
                        "say which to keep with --keep " + name + "=N (N from 1, in file order)");
            }
        } else if (!st.gains.empty()) {
            st.keptGain = st.gains[0];
        }
        for (int t : st.tsys)
            if (st.keptGain < 0 || m_segs[t].gainSeg == st.keptGain ||
                (st.gains.size() > 1 &&
                 meantGain(m_segs[m_segs[t].gainSeg].gain) == meantGain(m_segs[st.keptGain].gain)))
                st.keptTsys.push_back(t);
        if (st.keptTsys.empty()) {
            if (st.keptGain >= 0)
                finding(lineNo(m_segs[st.keptGain].first), name, "warning", "no-tsys",
                        "station " + name +
                            " has a GAIN block but no Tsys rows; if the observation has it, the "
                            "calibration stops at a hole in its INDEX",
                        "add its TSYS block, or leave it if the observation does not have " + name);
            continue;
        }
        const int anchor = st.keptTsys[0];
        if (st.keptGain < 0) {
            auto g = m_opt.gain.find(name);
            if (g == m_opt.gain.end()) {
                finding(lineNo(m_segs[anchor].first), name, "question", "no-gain",
                        "the TSYS block of " + name +
                            " has no GAIN block: without a DPFU the Tsys can only be taken as SEFD in Jy, "
                            "which the file does not say (the parser stops: \"TSYS before any GAIN\" or a "
                            "station mismatch)",
                        "give the gain with --gain " + name + "=DPFU (--gain " + name +
                            "=1 when the Tsys values are SEFDs)");
            } else {
                st.synthGain = true;
                finding(lineNo(m_segs[anchor].first), name, "error", "no-gain",
                        "the TSYS block of " + name + " has no GAIN block; the parser refuses it",
                        "GAIN " + name + " with DPFU=" + g->second + " and a flat gain curve from --gain");
            }
        } else {
            // The GAIN must be the last block before the TSYS block.
            bool direct = true;
            for (int k = st.keptGain + 1; k < anchor; ++k)
                if (m_segs[k].kind != kLoose) direct = false;
            if (!direct) {
                st.placeGainAtTsys = true;
                if (st.keptGain < anchor) {
                    finding(lineNo(m_segs[anchor].first), name, "error", "gain-first",
                            "the TSYS block of " + name + " does not follow its GAIN line (line " +
                                Int(lineNo(m_segs[st.keptGain].first)) +
                                "): the parser ties every TSYS block to the GAIN just before it and refuses "
                                "GAIN lines given all before the TSYS blocks",
                            "GAIN line moved in front of its TSYS block");
                } else {
                    finding(lineNo(m_segs[anchor].first), name, "error", "gain-after-tsys",
                            "the TSYS block of " + name + " comes before its GAIN line (line " +
                                Int(lineNo(m_segs[st.keptGain].first)) + ")",
                            "GAIN line moved in front of its TSYS block");
                }
            }
        }
        if (st.keptTsys.size() > 1) {
            bool adjacent = true, sameHeader = true, timeoffs = false;
            const TsysValues v0 = meantTsys(m_segs[anchor].tsys);
            for (std::size_t j = 0; j < st.keptTsys.size(); ++j) {
                const Segment& s = m_segs[st.keptTsys[j]];
                if (j > 0) {
                    for (int k = st.keptTsys[j - 1] + 1; k < st.keptTsys[j]; ++k)
                        if (m_segs[k].kind != kLoose) adjacent = false;
                    TsysValues v = meantTsys(s.tsys);
                    v.timeoff = v0.timeoff;
                    if (!(v == v0)) sameHeader = false;
                }
                timeoffs |= s.tsys.timeoff != 0.0;
            }
            if (!sameHeader) {
                finding(lineNo(m_segs[st.keptTsys[1]].first), name, "question", "tsys-twice-differ",
                        "station " + name +
                            " has TSYS blocks with different FT or INDEX; the parser reads all rows with the "
                            "first INDEX",
                        "write one TSYS block for the station by hand");
            } else {
                // Rows that do not ascend across the blocks would stop the Tsys search early.
                bool ascending = true;
                double lastTime = -1e300;
                for (int b : st.keptTsys)
                    for (int k = m_segs[b].bodyFirst; k <= m_segs[b].bodyLast && ascending; ++k) {
                        Row r;
                        if (!StartsWithDigit(m_prep[k]) ||
                            !readRow(m_segs[b], m_segs[b].tsys, k, r, true, false))
                            continue;
                        ascending = r.sortTime >= lastTime;
                        lastTime = r.sortTime;
                    }
                st.merge = !adjacent || timeoffs || !ascending || m_rewrittenTsys.count(anchor) > 0;
                if (st.merge || st.gains.size() < 2)
                    finding(lineNo(m_segs[st.keptTsys[1]].first), name, st.merge ? "loss" : "note",
                            "tsys-twice",
                            "station " + name + " has " + Int(static_cast<long long>(st.keptTsys.size())) +
                                " TSYS blocks",
                            st.merge ? "rows merged under the first TSYS block in time order"
                                     : "kept: the parser reads them as one block");
            }
        }
    }
}

void Checker::emitLine(int index, const std::string& text, const std::string& why) {
    if (text != m_raw[index]) {
        AAntabChange c;
        c.line = lineNo(index);
        c.before = m_raw[index];
        c.after = text;
        c.why = why;
        m_out.changes.push_back(c);
    }
    m_output.push_back(text);
}

void Checker::emitNew(const std::string& text, const std::string& why) {
    AAntabChange c;
    c.after = text;
    c.why = why;
    m_out.changes.push_back(c);
    m_output.push_back(text);
}

void Checker::remove(int index, const std::string& why) {
    AAntabChange c;
    c.line = lineNo(index);
    c.before = m_raw[index];
    c.why = why;
    m_out.changes.push_back(c);
}

void Checker::emitGain(int seg, bool moved, int beforeLine) {
    const Segment& s = m_segs[seg];
    const std::string why =
        moved ? "moved in front of the TSYS block of line " + Int(beforeLine) + " that it belongs to" : "";
    if (m_rewrittenGain.count(seg)) {
        const std::string canon = canonicalGain(s.gain);
        AAntabChange c;
        c.line = lineNo(s.first);
        c.before = m_raw[s.first];
        c.after = canon;
        c.why = "GAIN block written as the parser reads it" + (moved ? "; " + why : "");
        m_out.changes.push_back(c);
        m_output.push_back(canon);
        for (int k = s.first + 1; k <= s.last; ++k)
            remove(k, "part of the GAIN block of line " + Int(lineNo(s.first)));
        return;
    }
    for (int k = s.first; k <= s.last; ++k) {
        if (moved) {
            AAntabChange c;
            c.line = lineNo(k);
            c.before = m_raw[k];
            c.after = m_raw[k];
            c.why = why;
            m_out.changes.push_back(c);
        }
        m_output.push_back(m_raw[k]);
    }
}

void Checker::rowFinding(const Segment& s, const std::string& code, int line) {
    if (!m_recordRows) return;
    RowCount& r = m_rowCounts[{s.first, code}];
    if (r.count++ == 0) r.first = line;
    r.station = s.station;
}

bool Checker::readRow(const Segment& s, const TsysInfo& t, int index, Row& row, bool drop, bool record) {
    const std::string& raw = m_raw[index];
    row.line = lineNo(index);
    m_recordRows = record;
    // Tokens with their spans.
    std::vector<std::pair<std::size_t, std::size_t>> spans;
    for (std::size_t k = 0; k < raw.size();) {
        while (k < raw.size() && (raw[k] == ' ' || raw[k] == '\t')) ++k;
        if (k >= raw.size()) break;
        std::size_t e = k;
        while (e < raw.size() && raw[e] != ' ' && raw[e] != '\t') ++e;
        spans.push_back({k, e});
        k = e;
    }
    std::string cut = raw;
    const std::size_t bang = cut.find('!');
    while (!spans.empty() && bang != std::string::npos && spans.back().first >= bang) spans.pop_back();
    if (spans.size() < 2) {
        rowFinding(s, "row-no-time", row.line);
        row.text = raw;
        return false;
    }
    const std::string dayText = raw.substr(spans[0].first, spans[0].second - spans[0].first);
    const std::string timeText = raw.substr(spans[1].first, spans[1].second - spans[1].first);
    double dayValue = 0;
    double seconds = 0;
    int fields = 0, decimals = 0;
    bool overflow = false;
    // A day or time far outside any observation is no time at all (and would not fit an int).
    if (!IsNumber(dayText, &dayValue) || !ParseTime(timeText, seconds, fields, decimals, overflow) ||
        !(std::fabs(dayValue) < 1e6) || !(seconds < 1e9)) {
        rowFinding(s, "row-bad-time", row.line);
        row.text = raw;
        return false;
    }
    row.day = static_cast<int>(dayValue);
    bool rewriteTime = false;
    auto because = [&](const std::string& w) { row.why += (row.why.empty() ? "" : "; ") + w; };
    if (fields == 3) {
        rowFinding(s, "time-hms", row.line);
        because("time hh:mm:ss written as hh:mm.mm");
        rewriteTime = true;
        decimals = 2;  // up to six where the seconds need them
    }
    if (overflow) {
        rowFinding(s, "time-overflow", row.line);
        because("minutes or seconds of 60 carried over");
        rewriteTime = true;
    }
    if (t.timeoff != 0.0) {
        seconds += t.timeoff;
        because("TIMEOFF " + t.timeoffText + " s added");
        rewriteTime = true;
    }
    const double wholeDays = std::floor(seconds / 86400.0);
    const int day = row.day + static_cast<int>(wholeDays);
    seconds -= wholeDays * 86400.0;
    row.day = day;
    row.seconds = seconds;
    row.timeOk = true;
    row.sortTime = day + seconds / 86400.0;

    const int nValues = static_cast<int>(spans.size()) - 2;
    const int nCol = static_cast<int>(!t.hasIndex && t.hasIndex2 ? t.items2.size() : t.items.size());
    std::size_t endOfRow = raw.size();
    if (nValues > nCol && nCol > 0) {
        if (drop) {
            rowFinding(s, "row-extra-dropped", row.line);
            because("values behind the last INDEX item removed");
            endOfRow = spans[static_cast<std::size_t>(nCol) + 1].second;
        } else {
            rowFinding(s, "row-extra", row.line);
        }
    } else if (nValues < nCol) {
        rowFinding(s, "row-short", row.line);
    }
    for (int v = 0; v < nValues && v < nCol; ++v) {
        const auto& sp = spans[static_cast<std::size_t>(v) + 2];
        if (!IsNumber(raw.substr(sp.first, sp.second - sp.first))) {
            rowFinding(s, "row-word", row.line);
            break;
        }
    }
    if (spans[0].first > 0) {
        rowFinding(s, "row-indented", row.line);
        because("indent removed");
    }

    std::string text;
    if (rewriteTime) {
        const std::string newDay = day == static_cast<int>(dayValue) ? dayText : Int(day);
        text = newDay + raw.substr(spans[0].second, spans[1].first - spans[0].second) +
               FormatTime(seconds, decimals) + raw.substr(spans[1].second, endOfRow - spans[1].second);
    } else {
        text = raw.substr(spans[0].first, endOfRow - spans[0].first);
    }
    row.text = text;
    return true;
}

void Checker::emitTsys(Station& st, int anchor) {
    const Segment& a = m_segs[anchor];
    // The header.
    if (m_rewrittenTsys.count(anchor) || st.merge) {
        const std::string canon = canonicalTsys(a.tsys, true);
        AAntabChange c;
        c.line = lineNo(a.first);
        c.before = m_raw[a.first];
        c.after = canon;
        c.why = "TSYS header written as the parser reads it";
        if (canon != c.before) m_out.changes.push_back(c);
        m_output.push_back(canon);
        for (int k = a.first + 1; k <= a.last; ++k)
            remove(k, "part of the TSYS header of line " + Int(lineNo(a.first)));
    } else {
        for (int k = a.first; k <= a.last; ++k) m_output.push_back(m_raw[k]);
    }
    const std::vector<int> blocks = st.merge ? st.keptTsys : std::vector<int>{anchor};
    std::vector<Row> rows;
    std::vector<std::pair<int, std::string>> others;  // lines of the bodies that are not rows
    for (int b : blocks) {
        const Segment& s = m_segs[b];
        const bool drop = dropExtra(s.station);
        if (b != anchor)
            for (int k = s.first; k <= s.last; ++k)
                remove(k, "TSYS header of " + s.station + " merged into the block of line " +
                              Int(lineNo(a.first)));
        for (int k = s.bodyFirst; k <= s.bodyLast; ++k) {
            if (StartsWithDigit(m_prep[k])) {
                Row r;
                readRow(s, s.tsys, k, r, drop);
                rows.push_back(r);
                rows.back().line = k;
            } else {
                others.push_back({k, m_raw[k]});
            }
        }
    }
    if (!st.merge) {
        // Keep every line in place.
        std::size_t r = 0, o = 0;
        for (int k = a.bodyFirst; k <= a.bodyLast; ++k) {
            if (r < rows.size() && rows[r].line == k) {
                emitLine(k, rows[r].text, "row: " + rows[r].why);
                ++r;
            } else if (o < others.size() && others[o].first == k) {
                emitLine(k, m_raw[k], "");
                ++o;
            }
        }
        return;
    }
    // Merged. Rows that ascend in the order of the blocks keep every line where it was.
    bool ascending = true;
    for (std::size_t j = 1; j < rows.size() && ascending; ++j)
        ascending = !rows[j].timeOk || !rows[j - 1].timeOk || rows[j].sortTime >= rows[j - 1].sortTime;
    if (ascending) {
        std::size_t r = 0;
        for (int b : blocks) {
            const Segment& s = m_segs[b];
            if (b != anchor && s.bodyFirst <= s.bodyLast && b != blocks[0]) {
                AAntabChange c;
                c.line = lineNo(s.bodyFirst);
                c.before = c.after = m_raw[s.bodyFirst];
                c.why = "lines " + Int(lineNo(s.bodyFirst)) + "-" + Int(lineNo(s.bodyLast)) +
                        " moved behind the TSYS block of line " + Int(lineNo(a.first)) +
                        ": one block per station";
                m_out.changes.push_back(c);
            }
            for (int k = s.bodyFirst; k <= s.bodyLast; ++k) {
                if (r < rows.size() && rows[r].line == k) {
                    emitLine(k, rows[r].text,
                             "row: " + (rows[r].why.empty() ? std::string() : rows[r].why + "; ") +
                                 "merged with the other TSYS blocks of " + a.station);
                    ++r;
                } else {
                    emitLine(k, m_raw[k], "");
                }
            }
        }
        return;
    }
    // Otherwise the notes first, the rows in time order, one closing "/".
    std::stable_sort(rows.begin(), rows.end(), [](const Row& x, const Row& y) {
        const double tx = x.timeOk ? x.sortTime : 0.0, ty = y.timeOk ? y.sortTime : 0.0;
        return tx < ty;
    });
    for (const auto& o : others)
        if (Trim(o.second) != "/")
            emitLine(o.first, o.second, "");
        else
            remove(o.first, "closing line of a merged TSYS block");
    for (std::size_t j = 0; j < rows.size(); ++j) {
        const Row& r = rows[j];
        AAntabChange c;
        c.line = lineNo(r.line);
        c.before = m_raw[r.line];
        c.after = r.text;
        c.why = "row: " + (r.why.empty() ? std::string() : r.why + "; ") +
                "merged with the other TSYS blocks of " + a.station + " in time order";
        if (c.after != c.before || (j > 0 && rows[j - 1].line > r.line)) m_out.changes.push_back(c);
        m_output.push_back(r.text);
    }
    emitNew("/", "closes the merged TSYS block of " + a.station);
}

void Checker::emit() {
    std::set<int> doneTsys;
    for (int i = 0; i < static_cast<int>(m_segs.size()); ++i) {
        const Segment& s = m_segs[i];
        if (s.kind == kLoose) {
            for (int k = s.first; k <= s.last; ++k) emitLine(k, m_raw[k], "");
            continue;
        }
        if (s.station.empty()) {
            for (int k = s.first; k <= (s.kind == kTsys ? s.bodyLast : s.last); ++k)
                emitLine(k, m_raw[k], "");
            continue;
        }
        Station& st = m_stations[s.station];
        if (s.kind == kGain) {
            if (i != st.keptGain) {
                for (int k = s.first; k <= s.last; ++k)
                    remove(k, "second GAIN block of " + s.station + " removed: one block per station");
                continue;
            }
            if (st.placeGainAtTsys) continue;
            emitGain(i, false, 0);
            continue;
        }
        const bool kept = std::find(st.keptTsys.begin(), st.keptTsys.end(), i) != st.keptTsys.end();
        if (!kept) {
            for (int k = s.first; k <= s.bodyLast; ++k)
                remove(k, "TSYS block of a GAIN block of " + s.station + " that is not kept (--keep)");
            continue;
        }
        if (doneTsys.count(i)) continue;
        if (i != st.keptTsys[0] && st.merge) continue;
        if (i == st.keptTsys[0]) {
            if (st.synthGain)
                emitNew("GAIN " + s.station + " ELEV DPFU=" + m_opt.gain.at(s.station) + " POLY=1.0 /",
                        "GAIN block from --gain: the TSYS block had none");
            else if (st.placeGainAtTsys)
                emitGain(st.keptGain, true, lineNo(s.first));
        }
        emitTsys(st, i);
        doneTsys.insert(i);
    }
}

void Checker::flushRowFindings() {
    struct Rule {
        const char* code;
        const char* kind;
        const char* text;
        const char* todo;
    };
    const Rule rules[] = {
        {"row-extra", "question",
         "rows with more values than INDEX items: the parser refuses them (\"invalid parse temperature\"), "
         "and nothing says which polarisation and IF the extra columns hold",
         "--drop-extra STATION removes the values behind the last INDEX item; or give an INDEX that "
         "names every column"},
        {"row-extra-dropped", "loss", "rows with more values than INDEX items",
         "values behind the last INDEX item removed (--drop-extra)"},
        {"row-short", "warning",
         "rows with fewer values than INDEX items: the missing columns count as no measurement",
         "kept; check the INDEX"},
        {"row-word", "warning",
         "rows with a value that is not a number: the parser takes it as 0.0, no measurement", "kept"},
        {"row-indented", "loss",
         "rows that start with a blank: the parser takes them for keyword lines and drops them",
         "written from the first column"},
        {"time-hms", "note",
         "times written as hh:mm:ss; ANTAB times are hh:mm.mm (decimal minutes), and readers that take the "
         "second field as minutes misplace them",
         "written as hh:mm.mm"},
        {"time-overflow", "loss",
         "times with minutes or seconds of 60 or more (such as 10:60.00): a reader that checks the clock "
         "refuses them, others roll them over",
         "written as the time they mean (10:60.00 is 11:00.00)"},
        {"row-bad-time", "error", "rows whose time the parser cannot read (\"Time convert error\")",
         "write the time as hh:mm.mm"},
        {"row-no-time", "error", "rows with a day but no time", "give each row a day and a time"},
    };
    for (const auto& entry : m_rowCounts) {
        for (const Rule& r : rules) {
            if (entry.first.second != r.code) continue;
            const std::string what =
                Int(entry.second.count) + " " + r.text + " (first at line " + Int(entry.second.first) + ")";
            std::string todo = r.todo;
            if (std::string(r.code) == "row-extra")
                todo = "--drop-extra " + entry.second.station +
                       " removes the "
                       "values behind the last INDEX item; or give an INDEX "
                       "that names every column";
            finding(entry.second.first, entry.second.station, r.kind, r.code, what, todo);
            if (std::string(r.kind) == "error") m_stop = true;
        }
    }
}

void Checker::Run(const std::string& text) {
    split(text);
    segment();
    pair();
    decide();
    for (const Segment& s : m_segs)
        if (s.kind == kTsys && s.station.empty())
            finding(lineNo(s.first), "", "error", "tsys-no-station",
                    "a TSYS line with no station and no GAIN before it",
                    "write the station name behind TSYS");
    emit();
    flushRowFindings();

    // What the parser makes of the text as it stands.
    {
        AAntabData exact;
        if (!ExactParse(text, 1, exact))
            finding(0, "", "error", "parser-refuses", "the parser stops with: " + exact.m_errMsg.str(),
                    "the findings above say why; -o writes a text that it loads");
    }
    if (m_stop) {
        m_out.stopped = true;
        m_out.normalised.clear();
        m_out.changed = false;
        sortFindings();
        return;
    }
    std::string out;
    for (std::size_t i = 0; i < m_output.size(); ++i) {
        out += m_output[i];
        if (i + 1 < m_output.size() || m_finalNewline) out += "\n";
    }
    m_out.normalised = out;
    m_out.changed = out != text;
    if (!m_out.changed) m_out.changes.clear();
    // The normalised text must load.
    AAntabData exact;
    if (!ExactParse(out, 1, exact)) {
        finding(0, "", "error", "normalised-refused",
                "the normalised text is still refused: " + exact.m_errMsg.str(), "report this file");
        m_out.stopped = true;
        m_out.normalised.clear();
    }
    sortFindings();
}

bool Checker::CheckUvx(AUVXFile& uvx, CString& errMsg) {
    AAntabData data;
    if (!data.Init(uvx)) {
        errMsg = data.GetErrMsg();
        return false;
    }
    std::unique_ptr<AUVXTable> an(uvx.GetTable("AN"));
    if (!an) {
        errMsg = "The UVX file has no AN table";
        return false;
    }
    AUVXAntenns antennas(*an);
    an.reset();
    std::map<int, std::string> byId;
    std::set<std::string> inAN;
    for (int a = 0; a < antennas.count; ++a) {
        const std::string name = antennas[a].Name().str();
        byId[antennas[a].id] = name;
        inAN.insert(name);
        if (!m_stations.count(name) || (m_stations[name].gains.empty() && m_stations[name].keptTsys.empty()))
            finding(0, name, "error", "station-missing",
                    "antenna " + name +
                        " of the observation's AN table has no block in the ANTAB text; the "
                        "calibration stops (\"non found " +
                        name + " in ANTAB data.\")",
                    "add a GAIN and TSYS block for " + name);
    }
    for (const std::string& name : m_order)
        if (!inAN.count(name))
            finding(0, name, "note", "station-not-observed",
                    "station " + name + " is not in the observation's AN table; its blocks are not used",
                    "none");

    const int nIF = data.m_nIF, nPol = data.m_nPol;
    int day = 0, month = 0, year = 0;
    JulianToDate(data.m_header.refJD, day, month, year);
    const double refMjd = data.m_header.refJD - 2400000.5;

    // Per station: INDEX against the file, and the times of its Tsys rows.
    std::map<std::string, std::vector<double>> rowTimes;
    for (const std::string& name : m_order) {
        Station& st = m_stations[name];
        if (st.keptTsys.empty() || !inAN.count(name)) continue;
        const Segment& a = m_segs[st.keptTsys[0]];
        const TsysValues v = meantTsys(a.tsys);
        std::vector<bool> marked(static_cast<std::size_t>(nPol * nIF), false);
        int beyond = 0;
        for (const auto* list : {&v.index, &v.index2})
            for (const AColumnInfo& c : *list) {
                if (c.first > nIF || c.last > nIF) ++beyond;
                int from, to;
                if (c.Positions(nPol, nIF, from, to))
                    for (int p = from; p <= to; ++p) marked[static_cast<std::size_t>(p)] = true;
            }
        if (beyond)
            finding(lineNo(a.first), name, "note", "index-beyond-if",
                    Int(beyond) + " INDEX item(s) of " + name + " name IF bands above the observation's " +
                        Int(nIF) + "; those columns are not used",
                    "none");
        std::string holes;
        for (int p = 0; p < nPol * nIF; ++p)
            if (!marked[static_cast<std::size_t>(p)]) {
                const int pol = p / nIF;
                holes += std::string(holes.empty() ? "" : ", ") + (pol == 0 ? "R" : "L") + Int(p % nIF + 1);
            }
        if (!holes.empty())
            finding(lineNo(a.first), name, "error", "index-hole",
                    "the INDEX of " + name + " gives no Tsys for " + holes + " of the observation (" +
                        Int(nIF) + " IF, " + Int(nPol) +
                        " polarisation(s)); the calibration stops (\"Has hole INDEX keyword\")",
                    "add the missing columns, or calibrate a file without those polarisations");
        std::vector<double>& times = rowTimes[name];
        for (int b : st.merge ? st.keptTsys : std::vector<int>{st.keptTsys[0]}) {
            const Segment& s = m_segs[b];
            for (int k = s.bodyFirst; k <= s.bodyLast; ++k) {
                if (!StartsWithDigit(m_prep[k])) continue;
                Row r;
                if (readRow(s, s.tsys, k, r, true, false))
                    times.push_back(RowMjd(r.day, year) + r.seconds / 86400.0);
            }
        }
        std::sort(times.begin(), times.end());
    }

    // Coverage of the records' times.
    AUVXRecordReader reader;
    if (!reader.Open(uvx)) {
        errMsg = reader.m_errMsg;
        return false;
    }
    struct Gap {
        long long count = 0;
        double first = 0, last = 0;
    };
    std::map<std::string, Gap> gaps;
    const double span = m_opt.coverageMinutes / 1440.0;
    AUVXGroup g;
    AUVXVisibility vis(uvx);
    while (reader.Next(g, vis)) {
        const double t = refMjd + g.time / 86400.0;
        for (int id : {static_cast<int>(g.ant1), static_cast<int>(g.ant2)}) {
            auto n = byId.find(id);
            if (n == byId.end()) continue;
            auto rt = rowTimes.find(n->second);
            if (rt == rowTimes.end() || rt->second.empty()) continue;
            const std::vector<double>& times = rt->second;
            auto it = std::lower_bound(times.begin(), times.end(), t);
            double d = 1e300;
            if (it != times.end()) d = std::min(d, *it - t);
            if (it != times.begin()) d = std::min(d, t - *(it - 1));
            if (d > span) {
                Gap& gap = gaps[n->second];
                if (gap.count++ == 0) gap.first = t;
                gap.first = std::min(gap.first, t);
                gap.last = std::max(gap.last, t);
            }
            if (g.ant1 == g.ant2) break;
        }
    }
    if (reader.Failed()) {
        errMsg = reader.m_errMsg;
        return false;
    }
    for (const auto& gp : gaps)
        finding(0, gp.first, "warning", "tsys-coverage",
                Int(gp.second.count) + " record(s) of " + gp.first + " between " + MjdText(gp.second.first) +
                    " and " + MjdText(gp.second.last) + " lie more than " + Fmt("%g", m_opt.coverageMinutes) +
                    " min from any Tsys row; the calibration holds the nearest value for them without a word",
                "check the station's Tsys rows (day numbers, TIMEOFF, a block from another session)");

    // The exact parser against the observation.
    if (!m_out.stopped) {
        const std::string& text = m_out.normalised;
        AAntabData bound;
        if (bound.Init(uvx)) {
            std::istringstream in(text);
            if (!bound.Load(in))
                finding(0, "", "error", "uvx-load",
                        std::string(m_out.changed ? "the normalised text" : "the text") +
                            " does not load against this observation: " + bound.GetErrMsg().str(),
                        "see the findings on stations and INDEX");
        }
    }
    std::stable_sort(m_out.findings.begin(), m_out.findings.end(),
                     [](const AAntabFinding& x, const AAntabFinding& y) { return x.line < y.line; });
    return true;
}

}  // namespace

int AAntabCheckResult::Count(const char* kind) const {
    int n = 0;
    for (const AAntabFinding& f : findings) n += f.kind == kind;
    return n;
}

bool AAntabCheckResult::Clean() const {
    return Count("error") == 0 && Count("loss") == 0 && Count("question") == 0;
}

bool AAntabCheck::CheckText(const std::string& text, const std::string& name, AUVXFile* uvx,
                            AAntabCheckResult& out) {
    (void)name;
    out = AAntabCheckResult();
    Checker checker(m_options, out);
    checker.Run(text);
    if (uvx != nullptr && !checker.CheckUvx(*uvx, m_errMsg)) return false;
    return true;
}

bool AAntabCheck::CheckFile(const char* path, AUVXFile* uvx, AAntabCheckResult& out) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        m_errMsg = CString("Cannot read ANTAB file ") + path + ": it does not exist or cannot be opened";
        return false;
    }
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad()) {
        m_errMsg = CString("Cannot read ANTAB file ") + path + ": a read failed";
        return false;
    }
    return CheckText(text.str(), path, uvx, out);
}

std::string FormatAntabFinding(const std::string& name, const AAntabFinding& f) {
    std::string s = name + ":" + std::to_string(f.line) + ": " + f.kind + " [" + f.code + "]";
    if (!f.station.empty()) s += " " + f.station;
    s += ": " + f.text;
    if (!f.todo.empty()) s += " -> " + f.todo;
    return s;
}
