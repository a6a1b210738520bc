// AAntabData: the ANTAB line parser, the binding to the AN table and the per-record calibration.
#include <merovane/antab/AAntabData.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <merovane/foundation/NumberConversion.h>
#include <merovane/uvx/AUVXAntenns.h>
#include <merovane/uvx/AUVXTable.h>
#include <merovane/uvx/UVXText.h>

template class AArray<AAntabTlsc*>;
template class APtrArray<AAntabTlsc*>;

namespace {

const char kPrefix[] = "Error> <AAntabData> ";

// The polarisation indices of the two antennas of a product (R 0, L polL); false for a code other
// than RR, LL, RL, LR.
bool polarisationsOf(int code, int polL, int& polA, int& polB) {
    switch (code) {
        case -1:
            polA = polB = 0;
            return true;
        case -2:
            polA = polB = polL;
            return true;
        case -3:
            polA = 0;
            polB = polL;
            return true;
        case -4:
            polA = polL;
            polB = 0;
            return true;
        default:
            return false;
    }
}

enum class AFactorResult { Ok, BadGain, BadSefd, BadMul };

// The factor of a product from the Tsys and gains of its two antennas; every way of calibrating
// works it out here, so that they agree to the bit. A negative or NaN SEFD product gives 0 (flag).
AFactorResult factorFrom(double tsysA, double tsysB, double gA, double gB, double& sefdA, double& sefdB,
                         double& m, double& factor) {
    if (gA == 0.0 || std::isnan(gA) || gB == 0.0 || std::isnan(gB)) return AFactorResult::BadGain;
    sefdA = tsysA / gA;
    sefdB = tsysB / gB;
    if (sefdA > 1e15 || sefdB > 1e15) return AFactorResult::BadSefd;
    m = sefdB * sefdA;
    if (!(m >= 0.0)) {
        factor = 0.0;
        return AFactorResult::Ok;
    }
    factor = std::sqrt(m);
    if (factor == 0.0) {
        factor = 1.0;
    } else if (!std::isfinite(factor)) {
        return AFactorResult::BadMul;
    }
    return AFactorResult::Ok;
}

// Scales the nChan x nStokes elements of one band: values times factor[s], weights divided by
// square[s], each in double and rounded to float; a factor of 0 flags instead.
void scaleBand(AUVXComplex* c, int nChan, int nStokes, const double* factor, const double* square) {
    bool flags = false;
    for (int s = 0; s < nStokes; ++s) flags = flags || factor[s] == 0.0;
    if (!flags) {
        for (int iChan = 0; iChan < nChan; ++iChan)
            for (int s = 0; s < nStokes; ++s, ++c) {
                c->re = static_cast<float>(static_cast<double>(c->re) * factor[s]);
                c->im = static_cast<float>(static_cast<double>(c->im) * factor[s]);
                c->wt = static_cast<float>(static_cast<double>(c->wt) / square[s]);
            }
        return;
    }
    for (int iChan = 0; iChan < nChan; ++iChan)
        for (int s = 0; s < nStokes; ++s, ++c) {
            if (factor[s] == 0.0) {
                c->wt = -std::fabs(c->wt);
                continue;
            }
            c->re = static_cast<float>(static_cast<double>(c->re) * factor[s]);
            c->im = static_cast<float>(static_cast<double>(c->im) * factor[s]);
            c->wt = static_cast<float>(static_cast<double>(c->wt) / square[s]);
        }
}

// The rest of a line from its first blank on, left-trimmed; empty if it has no blank.
void dropWord(CString& rest) {
    const int blank = rest.Find(' ');
    if (blank < 0) {
        rest.Empty();
    } else {
        rest = rest.Mid(blank);
        rest.TrimLeft();
    }
}

// The text in front of the first blank, left-trimmed; empty when there is no blank at all.
CString peekWord(const CString& rest) {
    const int blank = rest.Find(' ');
    CString word;
    if (blank >= 0) {
        word = rest.Left(blank);
        word.TrimLeft();
    }
    return word;
}

CString takeWord(CString& rest) {
    CString word = peekWord(rest);
    dropWord(rest);
    return word;
}

// Moves the rest behind the first "=" (whatever stands in front of it is skipped); false if none.
bool passSign(CString& rest) {
    rest.TrimLeft();
    const int sign = rest.Find('=');
    if (sign < 0) return false;
    rest = rest.Mid(sign + 1);
    rest.TrimLeft();
    return true;
}

// The rest in front of the first `terminator` (at most 1000 characters when there is none); the
// rest then starts at the terminator, left-trimmed.
CString takeValue(CString& rest, char terminator) {
    int at = rest.Find(terminator);
    if (at < 0) at = 1000;
    CString value = rest.Left(at);
    rest = rest.Mid(at);
    rest.TrimLeft();
    return value;
}

// The value behind its first `separator`, left-trimmed; empty if it has none.
void nextItem(CString& value, char separator) {
    const int at = value.Find(separator);
    if (at < 0) {
        value.Empty();
    } else {
        value = value.Mid(at + 1);
        value.TrimLeft();
    }
}

// "A-B" of two telescope IDs, as the record messages show a baseline.
CString baselineText(int idA, int idB) {
    return toStr(idA, "%d") + "-" + toStr(idB, "%d");
}

enum Keyword { kBif, kEif, kGain, kDpfu, kFreq, kPoly, kTsys, kTimeOff, kFt, kIndex2, kIndex, kKeywordCount };

// The order of the searches on a keyword line: a keyword in front of a later one is lost with the
// text in front of that later one.
const char* const kKeywords[kKeywordCount] = {"BIF=", "EIF=",    "GAIN", "DPFU",   "FREQ", "POLY",
                                              "TSYS", "TIMEOFF", "FT",   "INDEX2", "INDEX"};

}  // namespace

AAntabData::AAntabData() {
    m_tlscs.growBy = 256;
    m_tlscs.owner = 1;
}

AAntabData::AAntabData(const AAntabData& other) {
    copyFrom(other);
}

AAntabData& AAntabData::operator=(const AAntabData& other) {
    if (this != &other) copyFrom(other);
    return *this;
}

void AAntabData::copyFrom(const AAntabData& other) {
    m_tlscs.Free();
    m_tlscs.owner = 1;
    m_tlscs.growBy = other.m_tlscs.growBy > 0 ? other.m_tlscs.growBy : 256;
    m_current = nullptr;
    for (int i = 0; i < other.m_tlscs.count; ++i) {
        const AAntabTlsc* source = other.m_tlscs[i];
        AAntabTlsc* copy = source != nullptr ? new AAntabTlsc(*source) : nullptr;
        m_tlscs.Add(copy);
        if (source == other.m_current) m_current = copy;
    }
    m_bif = other.m_bif;
    m_eif = other.m_eif;
    m_nIF = other.m_nIF;
    m_nPol = other.m_nPol;
    m_uvx = other.m_uvx;
    m_sources = other.m_sources;
    m_header = other.m_header;
    m_fqTbl = other.m_fqTbl;
    m_errMsg = other.m_errMsg;
    // Kept lookups belong to the telescopes they were made for.
    m_lookups.clear();
}

bool AAntabData::fail(const CString& text) {
    m_errMsg = text;
    return false;
}

// ---------------------------------------------------------------------------------------------
// Init

bool AAntabData::Init(AUVXFile& uvx) {
    m_header = AUVXHeader(uvx);
    int nStokes = m_header.nStokes;
    if (nStokes > 8) nStokes = 8;
    m_nPol = 0;
    for (int i = 0; i < nStokes; ++i)
        if (m_header.stokes[i] == -1 || m_header.stokes[i] == -2) ++m_nPol;
    m_nIF = uvx.nIF < 1 ? 1 : uvx.nIF;
    m_uvx = &uvx;

    std::unique_ptr<AUVXTable> su(uvx.GetTable("SU"));
    if (!su) return fail(CString(kPrefix) + "SU table not found");
    m_sources.Init(*su);
    su.reset();
    m_fqTbl.Init(uvx);
    if (m_nPol < 1) return fail(CString(kPrefix) + "no RR or LL product in the UVX file");
    return true;
}

// ---------------------------------------------------------------------------------------------
// Load

bool AAntabData::Load(std::basic_istream<char>& in) {
    if (m_nPol < 1) return fail(CString(kPrefix) + "no RR or LL product in the UVX file");
    char buffer[1024];
    while (!in.eof()) {
        buffer[0] = '\0';
        in.getline(buffer, sizeof buffer);
        if (in.fail() && !in.eof()) return fail(CString(kPrefix) + "error read file.");
        CString line(buffer);
        if (!parseLine(line)) return false;
    }
    return CheckValid();
}

bool AAntabData::parseLine(CString& line) {
    line.MakeUpper();
    line.Replace('\t', ' ');
    const int comment = line.Find('!');
    if (comment == 0) return true;
    if (comment > 0) line = line.Left(comment);
    if (line.IsEmpty()) return true;
    const char first = line.GetAt(0);
    if (first >= '0' && first <= '9' && m_current != nullptr) return parseRow(line);
    return parseKeywords(line);
}

bool AAntabData::parseKeywords(CString& rest) {
    for (int k = 0; k < kKeywordCount; ++k) {
        const int at = rest.Find(kKeywords[k]);
        if (at < 0) continue;
        rest = rest.Mid(at + static_cast<int>(std::strlen(kKeywords[k])));
        if (k >= kDpfu && m_current == nullptr)
            return fail(CString(kPrefix) + kKeywords[k] + " before any GAIN");
        AAntabTlsc* t = m_current;
        switch (k) {
            case kBif:
                m_bif = TruncToInt32(std::atof(rest));
                dropWord(rest);
                break;
            case kEif:
                m_eif = TruncToInt32(std::atof(rest));
                dropWord(rest);
                break;
            case kGain: {
                AAntabTlsc* tlsc = new AAntabTlsc;
                tlsc->m_tsys.SetCols(m_nPol * m_nIF + 2);
                tlsc->m_nPol = m_nPol;
                tlsc->m_nIF = m_nIF;
                m_tlscs.Add(tlsc);
                m_current = tlsc;
                dropWord(rest);
                tlsc->m_name = takeWord(rest);
                const CString kind = takeWord(rest);
                tlsc->m_polyType = kind == "ELEV" ? 1 : kind == "ALTAZ" ? 2 : kind == "EQUAT" ? 3 : 0;
                break;
            }
            case kDpfu: {
                if (!passSign(rest)) return fail(CString(kPrefix) + "error parse DPFU. ");
                CString value = takeValue(rest, ' ');
                if (value.IsEmpty()) return fail(CString(kPrefix) + "error parse DPFU. ");
                int n = 0;
                while (!value.IsEmpty()) {
                    if (n >= 2) return fail(CString(kPrefix) + "error parse DPFU ( > 1). ");
                    t->m_dpfu[n++] = std::atof(value);
                    nextItem(value, ',');
                }
                if (n == 1) t->m_dpfu[1] = t->m_dpfu[0];
                break;
            }
            case kFreq: {
                if (!passSign(rest)) return fail(CString(kPrefix) + "error parse FREQ. ");
                CString value = takeValue(rest, ' ');
                int n = 0;
                while (!value.IsEmpty()) {
                    if (n >= 2) return fail(CString(kPrefix) + "invalid  FREQ range");
                    const double mhz = std::atof(value);
                    if (n == 0)
                        t->m_freqLow = mhz * 1e6;
                    else
                        t->m_freqHigh = mhz * 1e6;
                    ++n;
                    nextItem(value, ',');
                }
                break;
            }
            case kPoly: {
                if (!passSign(rest)) return fail(CString(kPrefix) + "error parse POLY. ");
                rest.Replace(',', ' ');
                CString value = takeValue(rest, '/');
                value.Trim();
                while (!value.IsEmpty()) {
                    t->m_poly.Add(std::atof(value));
                    nextItem(value, ' ');
                }
                break;
            }
            case kTsys: {
                dropWord(rest);
                const CString word = peekWord(rest);
                if (word.Find("TIMEOFF") >= 0) break;
                if (word.IsEmpty() || word != t->m_name)
                    return fail(CString("Error eq antenna in TSYS par ") + word + " " + t->m_name);
                dropWord(rest);
                break;
            }
            case kTimeOff:
                if (!passSign(rest)) return fail(CString(kPrefix) + "error parse TIMEOFF. ");
                t->m_timeOff = std::atof(rest);
                dropWord(rest);
                break;
            case kFt:
                if (!passSign(rest)) return fail(CString(kPrefix) + "error parse FT. ");
                t->m_ft = std::atof(rest);
                dropWord(rest);
                break;
            case kIndex2:
            case kIndex: {
                if (!passSign(rest))
                    return fail(CString(kPrefix) +
                                (k == kIndex2 ? "error parse INDEX2. " : "error parse INDEX. "));
                AArray<AColumnInfo>& list = k == kIndex2 ? t->m_index2 : t->m_index;
                CString value = takeValue(rest, '/');
                t->m_nCol = 0;
                while (!value.IsEmpty()) {
                    CString item;
                    const int comma = value.Find(',');
                    if (comma >= 0) {
                        item = value.Left(comma);
                        item.TrimLeft();
                        value = value.Mid(comma + 1);
                        value.TrimLeft();
                    } else {
                        item = value;
                        value.Empty();
                    }
                    item.Remove('\'');
                    AColumnInfo info;
                    t->ColumnInfoParse(item, info);
                    list.Add(info);
                    ++t->m_nCol;
                }
                break;
            }
            default:
                break;
        }
    }
    return true;
}

bool AAntabData::parseRow(CString& line) {
    AAntabTlsc* t = m_current;
    if (t->m_nCol < 1) return fail(CString(kPrefix) + "invalid parse temperature. ncol < 3");
    line.TrimLeft();
    double* row = t->m_tsys.AddRow();
    const int width = t->m_tsys.cols;

    const int length = line.GetLength();
    int pos = 0;
    int token = 0;
    bool timeSeen = false;
    while (true) {
        while (pos < length && line.GetAt(pos) == ' ') ++pos;
        if (pos >= length) break;
        int end = pos;
        while (end < length && line.GetAt(end) != ' ') ++end;
        const CString text = line.Mid(pos, end - pos);
        pos = end;
        if (token == 0) {
            row[0] = std::atof(text);
        } else if (token == 1) {
            CString clock = CString("0:") + text;
            double seconds = 0.0;
            if (!strToTime(clock, seconds)) return fail(CString(kPrefix) + "Time convert error " + text);
            row[1] = seconds * 60.0 * 1.1574074074074073e-5;
            timeSeen = true;
        } else {
            if (token >= t->m_nCol + 2)
                return fail(CString(kPrefix) + "invalid parse temperature, tlsc = " + t->m_name);
            const double value = std::atof(text);
            const int entry = token - 2;
            for (int list = 0; list < 2; ++list) {
                const AArray<AColumnInfo>& index = list == 0 ? t->m_index : t->m_index2;
                if (entry >= index.count) continue;
                int from, to;
                if (!index[entry].Positions(t->m_nPol, t->m_nIF, from, to)) continue;
                for (int p = from; p <= to && p + 2 < width; ++p) row[p + 2] = value;
            }
        }
        ++token;
    }
    if (!timeSeen) return fail(CString(kPrefix) + "Time convert error ");
    return true;
}

// ---------------------------------------------------------------------------------------------
// CheckValid

bool AAntabData::CheckValid() {
    if (m_uvx == nullptr) return fail(CString(kPrefix) + "uvx == NULL. ");
    AUVXAntenns antennas;
    {
        std::unique_ptr<AUVXTable> an(m_uvx->GetTable("AN"));
        if (!an) return fail(CString(kPrefix) + "not found AN-table.");
        antennas.Init(*an);
    }

    for (int i = 0; i < m_tlscs.count; ++i) {
        AAntabTlsc* t = m_tlscs[i];
        int found = -1;
        for (int a = 0; a < antennas.count; ++a) {
            if (antennas[a].Name() == t->m_name) {
                found = a;
                break;
            }
        }
        if (found >= 0) {
            const AUVXTlscItem& item = antennas[found];
            t->m_antID = item.id;
            t->m_x = item.x;
            t->m_y = antennas.rightHanded ? item.y : -item.y;
            t->m_z = item.z;
            t->FixDate(m_header.refJD);
        } else {
            t->m_antID = -1;
        }

        // The same for every telescope, so the first one settles it.
        if (i == 0) {
            for (int a = 0; a < antennas.count; ++a) {
                const CString name = antennas[a].Name();
                bool has = false;
                for (int j = 0; j < m_tlscs.count && !has; ++j) has = m_tlscs[j]->m_name == name;
                if (!has) return fail(CString(kPrefix) + "non found " + name + " in ANTAB data.");
            }
        }

        if (t->m_dpfu[0] == 0.0 || t->m_dpfu[1] == 0.0)
            return fail(CString(kPrefix) + "DPFU = 0 for " + t->m_name);
    }

    const int positions = m_nPol * m_nIF;
    for (int i = 0; i < m_tlscs.count; ++i) {
        AAntabTlsc* t = m_tlscs[i];
        if (t->m_antID < 0) continue;
        AArray<unsigned char> marked(positions > 0 ? positions : 0);
        marked.ZeroInit();
        for (int list = 0; list < 2; ++list) {
            const AArray<AColumnInfo>& index = list == 0 ? t->m_index : t->m_index2;
            for (int e = 0; e < index.count; ++e) {
                int from, to;
                if (!index[e].Positions(m_nPol, m_nIF, from, to)) continue;
                for (int p = from; p <= to; ++p) marked[p] = 1;
            }
        }
        for (int p = 0; p < positions; ++p)
            if (!marked[p])
                return fail(CString("Error. Has hole INDEX keyword (pos=") + toStr(p, "%d") +
                            ").  Antenn = " + t->m_name);
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// Calibrate

bool AAntabData::Calibrate(AUVXGroup& group, AUVXVisibility& vis) {
    const int nIF = vis.nIF > 1 ? vis.nIF : 1;
    if (vis.nChan < 0 || vis.nStokes < 0 ||
        static_cast<long long>(nIF) * vis.nChan * vis.nStokes > static_cast<long long>(vis.count))
        return fail(CString(kPrefix) + "visibility shape larger than its data");

    const double groupTime = group.time;
    const double t = (m_header.refJD - 2400000.5) + groupTime * 1.1574074074074073e-5;

    AUVXSourceItem* source = nullptr;
    for (int i = 0; i < m_sources.count; ++i) {
        if (m_sources[i].id == group.sourceId) {
            source = &m_sources[i];
            break;
        }
    }
    const int sourceId = group.sourceId;
    if (source == nullptr) return fail(CString(kPrefix) + "not found source ID " + toStr(sourceId, "%d"));

    const int idA = static_cast<std::int8_t>(group.ant1);
    const int idB = static_cast<std::int8_t>(group.ant2);
    AAntabTlsc* a = nullptr;
    AAntabTlsc* b = nullptr;
    int indexA = -1, indexB = -1;
    for (int i = 0; i < m_tlscs.count && a == nullptr; ++i)
        if (m_tlscs[i]->m_antID == idA) a = m_tlscs[indexA = i];
    if (a == nullptr) return fail(CString(kPrefix) + "not found antenna ID " + toStr(idA, "%d"));
    if (idB == idA) {
        b = a;
        indexB = indexA;
    } else {
        for (int i = 0; i < m_tlscs.count && b == nullptr; ++i)
            if (m_tlscs[i]->m_antID == idB) b = m_tlscs[indexB = i];
    }
    if (b == nullptr) return fail(CString(kPrefix) + "not found antenna ID " + toStr(idB, "%d"));

    const int row = m_fqTbl.GetFreqSelNum(group.freqId);

    // Correlators write all baselines of a time stamp together: each telescope's gains and Tsys are
    // kept from the first record of the time stamp that asks for them and serve the others. Any
    // product they cannot give goes the way below, which stops and reports at the first failure. A
    // telescope made to scan for its Tsys always goes that way, as the reference for the kept values.
    if (!a->m_forceScan && !b->m_forceScan) {
        if (m_lookups.size() != static_cast<std::size_t>(m_tlscs.count))
            m_lookups.assign(static_cast<std::size_t>(m_tlscs.count), AStationLookup());
        const AStationLookup* lookupA = stationLookup(indexA, t, *source, nIF, row);
        const AStationLookup* lookupB =
            lookupA == nullptr || b == a ? lookupA : stationLookup(indexB, t, *source, nIF, row);
        if (lookupB != nullptr && calibrateFromLookups(*lookupA, *lookupB, vis, nIF, row)) return true;
    }

    // The gain depends on the frequency only through the range test: once a telescope has given
    // its gain for this record, a band within its range gets the same values without the
    // position being worked out again. A band outside the range goes to GetGain for its message.
    double gainA[2] = {0.0, 0.0}, gainB[2] = {0.0, 0.0};
    bool haveA = false, haveB = false;
    for (int iIF = 0; iIF < nIF; ++iIF) {
        const double freq = m_fqTbl.GetStartIFFq(iIF, row);
        if (!haveA || freq > a->m_freqHigh || freq < a->m_freqLow) {
            if (!a->GetGain(t, freq, *source, gainA)) return fail(a->m_errMsg);
            haveA = true;
        }
        if (b == a) {
            gainB[0] = gainA[0];
            gainB[1] = gainA[1];
        } else if (!haveB || freq > b->m_freqHigh || freq < b->m_freqLow) {
            if (!b->GetGain(t, freq, *source, gainB)) return fail(b->m_errMsg);
            haveB = true;
        }

        // The factors of the products of this band, up to the first that fails; products past
        // the header's eight codes always fail, so at most eight are found.
        double factors[8];
        int found = 0;
        bool failed = false;
        for (int iStokes = 0; iStokes < vis.nStokes && !failed; ++iStokes) {
            if (productFactor(a, b, gainA, gainB, t, iIF, iStokes, group, factors[found]))
                ++found;
            else
                failed = true;
        }

        // Products before a failure are corrected all the same; the record then goes back false.
        const long long stride = vis.nStokes;
        for (int iStokes = 0; iStokes < found; ++iStokes) {
            AUVXComplex* p = vis.data + static_cast<long long>(iIF) * vis.nChan * stride + iStokes;
            const double factor = factors[iStokes];
            if (factor == 0.0) {
                for (int iChan = 0; iChan < vis.nChan; ++iChan)
                    p[iChan * stride].wt = -std::fabs(p[iChan * stride].wt);
                continue;
            }
            const double square = factor * factor;
            for (int iChan = 0; iChan < vis.nChan; ++iChan) {
                AUVXComplex& c = p[iChan * stride];
                c.re = static_cast<float>(static_cast<double>(c.re) * factor);
                c.im = static_cast<float>(static_cast<double>(c.im) * factor);
                c.wt = static_cast<float>(static_cast<double>(c.wt) / square);
            }
        }
        if (failed) return false;
    }
    return true;
}

bool AAntabData::productFactor(AAntabTlsc* a, AAntabTlsc* b, const double* gainA, const double* gainB,
                               double t, int iIF, int iStokes, const AUVXGroup& group, double& factor) {
    const int code = iStokes < 8 ? m_header.stokes[iStokes] : 0;
    int polA = 0, polB = 0;
    if (!polarisationsOf(code, m_nPol - 1, polA, polB))
        return fail(CString(kPrefix) + "not interpret stokes " + toStr(code, "%d"));
    double tsysA = 0.0, tsysB = 0.0;
    if (!a->GetTsys(t, m_nIF * polA + iIF, tsysA)) return fail(a->m_errMsg);
    if (!b->GetTsys(t, m_nIF * polB + iIF, tsysB)) return fail(b->m_errMsg);

    const int idA = static_cast<std::int8_t>(group.ant1);
    const int idB = static_cast<std::int8_t>(group.ant2);
    const double groupTime = group.time;
    // A polarisation index outside 0..1 (m_nPol above 2) has no DPFU member: no gain.
    const double gA = polA >= 0 && polA < 2 ? gainA[polA] : 0.0;
    const double gB = polB >= 0 && polB < 2 ? gainB[polB] : 0.0;
    double sefdA = 0.0, sefdB = 0.0, m = 0.0;
    switch (factorFrom(tsysA, tsysB, gA, gB, sefdA, sefdB, m, factor)) {
        case AFactorResult::Ok:
            return true;
        case AFactorResult::BadGain:
            return fail(CString(" S == 0 => sefd invalid ") + baselineText(idA, idB) + ", " +
                        timeToStr(groupTime, -1));
        case AFactorResult::BadSefd:
            return fail(CString(" Invalid sefd. ") + baselineText(idA, idB) + ", " + toStr(tsysA, "%.5E") +
                        " " + toStr(tsysB, "%.5E") + " " + timeToStr(groupTime, -1));
        case AFactorResult::BadMul:
        default:
            return fail(CString("Invalid value mul =") + toStr(m, "%.5E") + " " + toStr(sefdA, "%.5E") + " " +
                        toStr(sefdB, "%.5E") + " " + baselineText(idA, idB));
    }
}

const AAntabData::AStationLookup* AAntabData::stationLookup(int index, double t, AUVXSourceItem& source,
                                                            int nIF, int row) {
    AAntabTlsc* s = m_tlscs[index];
    AStationLookup& k = m_lookups[static_cast<std::size_t>(index)];
    bool same = k.tlsc == s && k.t == t && k.source == &source && k.ra == source.ra && k.dec == source.dec &&
                k.nIF == nIF && k.fileNIF == m_nIF && k.nPol == m_nPol && k.tsysStamp == s->TsysStamp() &&
                k.tsysData == s->m_tsys.data && k.tsysRows == s->m_tsys.rows &&
                k.tsysCols == s->m_tsys.cols && k.ft == s->m_ft && k.dpfu[0] == s->m_dpfu[0] &&
                k.dpfu[1] == s->m_dpfu[1] && k.freqLow == s->m_freqLow && k.freqHigh == s->m_freqHigh &&
                k.x == s->m_x && k.y == s->m_y && k.z == s->m_z && k.polyType == s->m_polyType &&
                k.poly.size() == static_cast<std::size_t>(s->m_poly.count);
    for (std::size_t i = 0; same && i < k.poly.size(); ++i)
        same = k.poly[i] == s->m_poly[static_cast<int>(i)];
    if (same) return &k;

    // Asked anew. A question that fails here leaves the telescope's message as it was: the record
    // then goes the reporting way, which asks only what it needs.
    k.tlsc = nullptr;
    const CString message = s->m_errMsg;
    if (!s->GetGain(t, m_fqTbl.GetStartIFFq(0, row), source, k.gain)) {
        s->m_errMsg = message;
        return nullptr;
    }
    const std::size_t n = static_cast<std::size_t>(nIF);
    k.tsys.assign(2 * n, 0.0);
    k.have.assign(2 * n, 0);
    bool failed = false;
    for (int slot = 0; slot < 2; ++slot) {
        const int pol = slot == 0 ? 0 : m_nPol - 1;
        for (int iIF = 0; iIF < nIF; ++iIF) {
            const std::size_t at = slot * n + static_cast<std::size_t>(iIF);
            if (slot == 1 && pol == 0) {
                k.tsys[at] = k.tsys[iIF];
                k.have[at] = k.have[iIF];
                continue;
            }
            double value = 0.0;
            if (s->GetTsys(t, m_nIF * pol + iIF, value)) {
                k.tsys[at] = value;
                k.have[at] = 1;
            } else {
                failed = true;
            }
        }
    }
    if (failed) s->m_errMsg = message;
    k.t = t;
    k.source = &source;
    k.ra = source.ra;
    k.dec = source.dec;
    k.nIF = nIF;
    k.fileNIF = m_nIF;
    k.nPol = m_nPol;
    k.tsysStamp = s->TsysStamp();
    k.tsysData = s->m_tsys.data;
    k.tsysRows = s->m_tsys.rows;
    k.tsysCols = s->m_tsys.cols;
    k.ft = s->m_ft;
    k.dpfu[0] = s->m_dpfu[0];
    k.dpfu[1] = s->m_dpfu[1];
    k.freqLow = s->m_freqLow;
    k.freqHigh = s->m_freqHigh;
    k.x = s->m_x;
    k.y = s->m_y;
    k.z = s->m_z;
    k.polyType = s->m_polyType;
    k.poly.assign(s->m_poly.begin(), s->m_poly.end());
    k.tlsc = s;
    return &k;
}

bool AAntabData::calibrateFromLookups(const AStationLookup& a, const AStationLookup& b, AUVXVisibility& vis,
                                      int nIF, int row) {
    const int nStokes = vis.nStokes;
    const std::size_t n = static_cast<std::size_t>(nIF);
    const std::size_t products = n * static_cast<std::size_t>(nStokes);
    if (products > 65536) return false;  // an odd shape: the reporting way copes with it
    m_factorScratch.resize(2 * products);
    double* factors = m_factorScratch.data();
    double* squares = factors + products;
    const int polL = m_nPol - 1;
    for (int iIF = 0; iIF < nIF; ++iIF) {
        // Every band must lie in both telescopes' frequency range, where the kept gain holds.
        const double freq = m_fqTbl.GetStartIFFq(iIF, row);
        if (freq > a.freqHigh || freq < a.freqLow || freq > b.freqHigh || freq < b.freqLow) return false;
        for (int iStokes = 0; iStokes < nStokes; ++iStokes) {
            const int code = iStokes < 8 ? m_header.stokes[iStokes] : 0;
            int polA = 0, polB = 0;
            if (!polarisationsOf(code, polL, polA, polB)) return false;
            const std::size_t atA = (polA == 0 ? 0 : n) + static_cast<std::size_t>(iIF);
            const std::size_t atB = (polB == 0 ? 0 : n) + static_cast<std::size_t>(iIF);
            if (!a.have[atA] || !b.have[atB]) return false;
            const double gA = polA >= 0 && polA < 2 ? a.gain[polA] : 0.0;
            const double gB = polB >= 0 && polB < 2 ? b.gain[polB] : 0.0;
            double sefdA = 0.0, sefdB = 0.0, m = 0.0, factor = 0.0;
            if (factorFrom(a.tsys[atA], b.tsys[atB], gA, gB, sefdA, sefdB, m, factor) != AFactorResult::Ok)
                return false;
            const std::size_t at = static_cast<std::size_t>(iIF) * nStokes + iStokes;
            factors[at] = factor;
            squares[at] = factor * factor;
        }
    }
    const std::size_t bandElements = static_cast<std::size_t>(vis.nChan) * nStokes;
    for (int iIF = 0; iIF < nIF; ++iIF) {
        const std::size_t at = static_cast<std::size_t>(iIF) * nStokes;
        scaleBand(vis.data + iIF * bandElements, vis.nChan, nStokes, factors + at, squares + at);
    }
    return true;
}
