// UVXSimulator: builds the truth of a simulated observation and writes its UVX, ANTAB and truth files.
#include "UVXSimulator.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <ostream>
#include <sstream>

#include <merovane/foundation/Calendar.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecordStream.h>
#include <merovane/uvx/AUVXTable.h>
#include <merovane/uvx/UVXTableLayouts.h>

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kLightSpeed = 299792458.0;
// The record block handed to the stream at once.
constexpr int kWriteBlock = 4194304;
// The quantisation loss of 1 to 8 bits per sample, as single-precision factors.
constexpr float kQuantFactor[8] = {0.63662f, 0.88f, 0.94f, 0.96f, 0.98f, 0.99f, 0.996f, 0.998f};

// A small generator of its own (splitmix64), so that a seed gives the same observation with any
// standard library.
class ASimRandom {
public:
    explicit ASimRandom(std::uint64_t seed) : m_state(seed) {}
    std::uint64_t Next() {
        std::uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    // Uniform in [0, 1).
    double Uniform() { return static_cast<double>(Next() >> 11) * (1.0 / 9007199254740992.0); }
    double Uniform(double lo, double hi) { return lo + (hi - lo) * Uniform(); }
    // Standard normal by Box-Muller, the second value of a pair kept for the next call.
    double Gauss() {
        if (m_haveSpare) {
            m_haveSpare = false;
            return m_spare;
        }
        double u1 = 0;
        do u1 = Uniform();
        while (u1 <= 0.0);
        const double u2 = Uniform();
        const double r = std::sqrt(-2.0 * std::log(u1));
        m_spare = r * std::sin(2.0 * kPi * u2);
        m_haveSpare = true;
        return r * std::cos(2.0 * kPi * u2);
    }

private:
    std::uint64_t m_state;
    double m_spare = 0;
    bool m_haveSpare = false;
};

struct AScan {
    double start, end;  // seconds from 0h of the reference day
    int sourceId;
    int nInt;  // integrations
};

int StokesCode(const std::string& p) {
    if (p == "RR") return -1;
    if (p == "LL") return -2;
    if (p == "RL") return -3;
    if (p == "LR") return -4;
    return 0;
}

bool Fail(CString* error, const CString& text) {
    if (error) *error = text;
    return false;
}

std::vector<AScan> Schedule(const ASimConfig& c) {
    std::vector<AScan> scans;
    const double stop = c.startTime + c.duration;
    for (int k = 0;; ++k) {
        const double start = c.startTime + k * (c.scanLength + c.scanGap);
        if (start >= stop) break;
        const double end = std::min(start + c.scanLength, stop);
        const int nInt = static_cast<int>(std::floor((end - start) / c.intTime + 1e-9));
        if (nInt < 1) continue;
        scans.push_back({start, start + nInt * c.intTime, 1 + k % static_cast<int>(c.sources.size()), nInt});
    }
    return scans;
}

// Text of a time as an ANTAB row writes it: day of the year and hh:mm.mm, rounded to 0.01 minute.
void AntabTime(int dayOfYear, double seconds, int& day, char* hhmm, std::size_t size) {
    const long long cm = std::llround(seconds / 0.6);  // hundredths of a minute
    day = dayOfYear + static_cast<int>(cm / 144000);
    const long long rem = cm % 144000;
    std::snprintf(hhmm, size, "%02lld:%02lld.%02lld", rem / 6000, rem % 6000 / 100, rem % 100);
}

// The Modified Julian Date that the ANTAB reader makes of a row's day and hh:mm.mm.
double AntabRowMjd(int day, const char* hhmm, int year) {
    const int hh = std::atoi(hhmm);
    const double mm = std::atof(std::strchr(hhmm, ':') + 1);
    const double v = 0.0 * 3600.0 + hh * 60.0 + mm;
    const double fraction = v * 60.0 * 1.1574074074074073e-5;
    const int d = day + (year - 1901) / 4;
    const double mjd0 = static_cast<double>(d) + (year - 1900) * 365.0 - 0.5 + 2415020.0 - 2400000.5;
    return fraction + mjd0;
}

// The complex bandpass of one station, IF and hand: an amplitude ripple with rolled-off edges and
// a phase slope of about one turn across the band, normalised to a mean |B|^2 of 1. With phaseMax
// above 0 the phase is scaled so that its largest magnitude over the channels is phaseMax radians;
// the random draws are the same either way.
void MakeBandpass(ASimRandom& rnd, int nChan, double phaseMax, std::complex<double>* b) {
    const double ripple = rnd.Uniform(0.04, 0.15);
    const double cycles = std::floor(rnd.Uniform(1.0, 4.0));
    const double ripplePhase = rnd.Uniform(0.0, 2.0 * kPi);
    const double phase0 = rnd.Uniform(-kPi, kPi);
    const double turns = rnd.Uniform(0.6, 1.6) * (rnd.Uniform() < 0.5 ? -1.0 : 1.0);
    const double curve = rnd.Uniform(-0.5, 0.5);
    const auto phaseAt = [&](double x) {
        return phase0 + 2.0 * kPi * turns * (x - 0.5) + curve * (x - 0.5) * (x - 0.5);
    };
    double power = 0, phaseScale = 1.0;
    if (phaseMax > 0) {
        double largest = 0;
        for (int c = 0; c < nChan; ++c) largest = std::max(largest, std::fabs(phaseAt((c + 0.5) / nChan)));
        if (largest > 0) phaseScale = phaseMax / largest;
    }
    for (int c = 0; c < nChan; ++c) {
        const double x = (c + 0.5) / nChan;
        double amp = 1.0 + ripple * std::cos(2.0 * kPi * cycles * x + ripplePhase);
        amp *= (1.0 - 0.4 * std::exp(-x / 0.04)) * (1.0 - 0.4 * std::exp(-(1.0 - x) / 0.04));
        double ph = phaseAt(x);
        if (phaseMax > 0) ph *= phaseScale;
        b[c] = std::polar(amp, ph);
        power += amp * amp;
    }
    const double norm = 1.0 / std::sqrt(power / nChan);
    for (int c = 0; c < nChan; ++c) b[c] *= norm;
}

// The truth without Tsys rows: stations, sources, gains, levels, bandpasses.
void BuildTruth(const ASimConfig& c, ASimTruth& t) {
    t = ASimTruth();
    t.refJD = DayOfYearToJulian(c.dayOfYear, c.year);
    t.nIF = c.nIF;
    t.nChan = c.nChan;
    for (const std::string& p : c.products) t.stokes.push_back(StokesCode(p));
    t.nPol = static_cast<int>(
        std::count_if(t.stokes.begin(), t.stokes.end(), [](int s) { return s == -1 || s == -2; }));
    t.refFreq = c.refFreq;
    t.ifBandwidth = c.ifBandwidth;
    t.chanWidth = c.ifBandwidth / c.nChan;
    t.intTime = c.intTime;
    t.noiseScale = c.noiseScale;
    t.bandpassOn = c.bandpass;
    t.levelsOn = c.levels;
    t.quantisationOn = c.quantisation;

    ASimRandom rnd(c.seed * 0x2545F4914F6CDD1Dull + 17);
    for (std::size_t i = 0; i < c.sources.size(); ++i) {
        const ASimSourceInfo* info = ASimCatalogue::Source(c.sources[i]);
        ASimSourceTruth s;
        s.name = info->name;
        s.id = static_cast<int>(i) + 1;
        s.ra = info->ra;
        s.dec = info->dec;
        s.flux = c.fluxes.empty() ? info->flux : c.fluxes[i];
        s.crossFlux = std::polar(s.flux * rnd.Uniform(0.02, 0.06), rnd.Uniform(-kPi, kPi));
        t.sources.push_back(s);
    }

    const double topMHz = (c.refFreq + c.nIF * c.ifBandwidth) / 1e6;
    char text[64];
    for (std::size_t i = 0; i < c.stations.size(); ++i) {
        const ASimStationInfo* info = ASimCatalogue::Station(c.stations[i]);
        ASimStationTruth s;
        s.code = info->code;
        s.id = static_cast<int>(i) + 1;
        s.x = info->x;
        s.y = info->y;
        s.z = info->z;
        s.bits = c.bits.empty() ? info->bits : c.bits[i];
        s.quantFactor = static_cast<double>(kQuantFactor[s.bits - 1]);
        // Numbers that go into the ANTAB file are kept as the reader will see them.
        for (int p = 0; p < 2; ++p) {
            std::snprintf(text, sizeof text, "%.4f", info->dpfu * rnd.Uniform(0.95, 1.05));
            s.dpfu[p] = std::atof(text);
        }
        const int kind = static_cast<int>(i % 4);
        const double e0 = rnd.Uniform(35.0, 60.0);
        const double k = rnd.Uniform(2e-5, 6e-5);
        std::vector<double> coef;
        if (kind == 3) {
            coef = {rnd.Uniform(0.9, 1.0)};
            s.polyType = 1;
        } else if (kind == 1) {
            // In zenith angle: 1 - k (Z - Z0)^2.
            const double z0 = 90.0 - e0;
            coef = {1.0 - k * z0 * z0, 2.0 * k * z0, -k};
            s.polyType = 2;
        } else {
            coef = {1.0 - k * e0 * e0, 2.0 * k * e0, -k};
            s.polyType = 1;
        }
        for (double v : coef) {
            std::snprintf(text, sizeof text, "%.6E", v);
            s.poly.push_back(std::atof(text));
        }
        s.ft = i % 3 == 1 ? 1.05 : 1.0;
        s.freqLow = std::floor(c.refFreq / 1e6 - 100.0) * 1e6;
        if (s.freqLow < 0) s.freqLow = 0;
        s.freqHigh = std::ceil(topMHz + 100.0) * 1e6;
        s.tsysPerIF = i % 2 == 0;
        s.level.resize(static_cast<std::size_t>(c.nIF) * 2);
        for (double& m : s.level) m = std::exp(rnd.Uniform(std::log(0.6), std::log(1.5)));
        s.bandpass.resize(static_cast<std::size_t>(c.nIF) * 2 * c.nChan);
        for (int b = 0; b < c.nIF * 2; ++b)
            MakeBandpass(rnd, c.nChan, c.bandpassPhaseMax,
                         &s.bandpass[static_cast<std::size_t>(b) * c.nChan]);
        t.stations.push_back(s);
    }
}

// Tsys rows of every station, at each scan's start, every tsysStep and at its end; the ANTAB text
// of all stations is written alongside so that the truth holds exactly what the file says.
std::string BuildTsysAndAntab(const ASimConfig& c, const std::vector<AScan>& scans, ASimTruth& t) {
    ASimRandom rnd(c.seed * 0x9E3779B97F4A7C15ull + 29);
    std::ostringstream out;
    const char* hand[2] = {"R", "L"};
    // The hand of each polarisation index: with one parallel hand it is that hand.
    const bool onlyL = t.nPol == 1 && std::find(t.stokes.begin(), t.stokes.end(), -1) == t.stokes.end();
    out << "! ANTAB file of a simulated observation, written by uvx-sim\n";
    out << "! " << t.stations.size() << " stations, " << t.nIF << " IF bands from " << c.refFreq / 1e6
        << " MHz, Tsys in K, DPFU in K/Jy\n";
    out << "! Gain polynomials: ELEV in elevation, ALTAZ in zenith angle, both in degrees\n";
    char line[256];
    for (ASimStationTruth& s : t.stations) {
        const ASimStationInfo* info = ASimCatalogue::Station(s.code);
        out << "!\n! " << s.code << "\n";
        out << "GAIN " << s.code << " " << (s.polyType == 2 ? "ALTAZ" : "ELEV") << " DPFU=";
        std::snprintf(line, sizeof line, "%.4f,%.4f", s.dpfu[0], s.dpfu[1]);
        out << line << " FREQ=" << static_cast<long long>(s.freqLow / 1e6) << ","
            << static_cast<long long>(s.freqHigh / 1e6) << " POLY=";
        for (std::size_t i = 0; i < s.poly.size(); ++i) {
            std::snprintf(line, sizeof line, "%s%.6E", i ? "," : "", s.poly[i]);
            out << line;
        }
        out << " /\n";
        std::snprintf(line, sizeof line, "%.2f", s.ft);
        out << "TSYS " << s.code << " TIMEOFF=0 FT=" << line << " INDEX=";
        int nItems = 0;
        for (int p = 0; p < t.nPol; ++p) {
            const char* h = onlyL ? "L" : hand[p];
            if (s.tsysPerIF) {
                for (int f = 0; f < t.nIF; ++f) out << (nItems++ ? "," : "") << "'" << h << f + 1 << "'";
            } else {
                out << (nItems++ ? "," : "") << "'" << h << "1:" << t.nIF << "'";
            }
        }
        out << " /\n";
        // Zenith Tsys of each position, a few percent apart.
        std::vector<double> zenith(static_cast<std::size_t>(t.nPol * t.nIF));
        for (double& z : zenith) z = info->tsys * rnd.Uniform(0.9, 1.1);
        if (!s.tsysPerIF)
            for (int p = 0; p < t.nPol; ++p)
                for (int f = 1; f < t.nIF; ++f) zenith[p * t.nIF + f] = zenith[p * t.nIF];
        for (const AScan& scan : scans) {
            std::vector<double> times;
            for (double tt = scan.start; tt < scan.end - 1e-6; tt += c.tsysStep) times.push_back(tt);
            times.push_back(scan.end);
            for (std::size_t r = 0; r < times.size(); ++r) {
                int day = 0;
                char hhmm[32];
                AntabTime(c.dayOfYear, times[r], day, hhmm, sizeof hhmm);
                ASimTsysRow row;
                row.mjd = AntabRowMjd(day, hhmm, c.year);
                row.values.assign(zenith.size(), 0.0);
                const double el = std::max(t.Elevation(s.id, scan.sourceId, t.Mjd(times[r])), 3.0);
                const double airmass = 1.0 / std::sin(el * kPi / 180.0);
                out << day << " " << hhmm;
                // One token per INDEX item, in the order of the items.
                for (int p = 0; p < t.nPol; ++p) {
                    const int nTok = s.tsysPerIF ? t.nIF : 1;
                    for (int f = 0; f < nTok; ++f) {
                        double v =
                            zenith[p * t.nIF + f] * (1.0 + 0.06 * airmass) * (1.0 + 0.01 * rnd.Gauss());
                        // Now and then a position without a measurement, never at a scan's start.
                        if (s.tsysPerIF && r > 0 && rnd.Uniform() < 0.03) v = 0.0;
                        std::snprintf(line, sizeof line, "%.1f", v);
                        out << " " << line;
                        const double parsed = std::atof(line);
                        if (s.tsysPerIF) {
                            row.values[p * t.nIF + f] = parsed;
                        } else {
                            for (int g = 0; g < t.nIF; ++g) row.values[p * t.nIF + g] = parsed;
                        }
                    }
                }
                out << "\n";
                s.tsys.push_back(row);
            }
        }
        out << "/\n";
    }
    return out.str();
}

void SetHeaderDate(AUVXHeader& h, int year, int dayOfYear) {
    static const int kMonthDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    int d = dayOfYear, m = 0;
    while (m < 12) {
        const int len =
            kMonthDays[m] + (m == 1 && year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) ? 1 : 0);
        if (d <= len) break;
        d -= len;
        ++m;
    }
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", year, m + 1, d);
    AUVXHeader::SetText(h.dateObs, sizeof h.dateObs, text);
}

// u, v, w in seconds of light travel of the baseline from ant1 to ant2 towards a source.
void Uvw(const ASimTruth& t, const ASimStationTruth& s1, const ASimStationTruth& s2,
         const ASimSourceTruth& src, double mjd, AUVXGroup& g) {
    double whole = 0;
    const double ut = std::modf(mjd, &whole) * 24.0;
    const double g0 = std::fmod((whole + 2400000.5 - 2451545.0) * 0.06570982513092122 + 6.697374558, 24.0);
    const double gmst = g0 + ut + ut * 0.002738888888888889;
    const double h = (gmst * 15.0 - src.ra) * kPi / 180.0;
    const double d = src.dec * kPi / 180.0;
    const double bx = s2.x - s1.x, by = s2.y - s1.y, bz = s2.z - s1.z;
    const double u = std::sin(h) * bx + std::cos(h) * by;
    const double v = -std::sin(d) * std::cos(h) * bx + std::sin(d) * std::sin(h) * by + std::cos(d) * bz;
    const double w = std::cos(d) * std::cos(h) * bx - std::cos(d) * std::sin(h) * by + std::sin(d) * bz;
    (void)t;
    g.u = static_cast<float>(u / kLightSpeed);
    g.v = static_cast<float>(v / kLightSpeed);
    g.w = static_cast<float>(w / kLightSpeed);
}

bool AddTable(AUVXFile& file, AUVXTable& table, CString* error) {
    if (file.AddTable(table)) return true;
    return Fail(error, "cannot write table " + table.GetName() + ": " + file.m_errMsg);
}

// The UV stream and the tables.
bool WriteUvx(const ASimConfig& c, const std::vector<AScan>& scans, const ASimTruth& t, ABFile* stream,
              CString* error) {
    AUVXFile file;
    if (!file.Create(stream, false)) return Fail(error, file.m_errMsg);
    AUVXHeader h;
    SetHeaderDate(h, c.year, c.dayOfYear);
    h.refJD = t.refJD;
    AUVXHeader::SetText(h.object, sizeof h.object, "MULTI");
    AUVXHeader::SetText(h.telescope, sizeof h.telescope, "VLBI");
    AUVXHeader::SetText(h.instrument, sizeof h.instrument, "SIMCORR");
    AUVXHeader::SetText(h.observer, sizeof h.observer, "SIM");
    AUVXHeader::SetText(h.origin, sizeof h.origin, "uvx-sim");
    h.refFreq = c.refFreq;
    h.chanWidth = t.chanWidth;
    h.totalBandwidth = c.ifBandwidth;
    h.equinox = 2000.0;
    h.intTime = static_cast<float>(c.intTime);
    h.refChan = 1;
    h.sideband = 1;
    h.objRA = t.sources[0].ra;
    h.objDec = t.sources[0].dec;
    h.nStokes = static_cast<std::int16_t>(t.stokes.size());
    for (std::size_t i = 0; i < t.stokes.size(); ++i) h.stokes[i] = static_cast<std::int16_t>(t.stokes[i]);
    h.nIF = c.nIF;
    h.nChan = c.nChan;
    AUVXRecordWriter writer;
    if (!writer.Open(file, h, true, kWriteBlock)) return Fail(error, writer.m_errMsg);
    const int nStokes = static_cast<int>(t.stokes.size());
    AUVXVisibility vis(c.nIF, c.nChan, nStokes);
    ASimRandom noise(c.seed * 0xD1B54A32D192ED03ull + 43);
    ASimRandom flags(c.seed * 0xABC98388FB8FAC03ull + 59);
    const float weight = static_cast<float>(t.Weight());
    bool ok = true;
    std::vector<std::complex<double>> scale(static_cast<std::size_t>(c.nIF * nStokes));
    for (const AScan& scan : scans) {
        const ASimSourceTruth& src = *t.Source(scan.sourceId);
        for (int i = 0; i < scan.nInt && ok; ++i) {
            const double time = scan.start + (i + 0.5) * c.intTime;
            const double mjd = t.Mjd(time);
            std::vector<const ASimStationTruth*> up;
            for (const ASimStationTruth& s : t.stations)
                if (t.Elevation(s.id, src.id, mjd) >= c.minElevation) up.push_back(&s);
            for (std::size_t a = 0; a < up.size() && ok; ++a) {
                for (std::size_t b = a; b < up.size() && ok; ++b) {
                    AUVXGroup g;
                    std::memset(&g, 0, sizeof g);
                    g.freqId = 1;
                    g.sourceId = static_cast<std::int16_t>(src.id);
                    g.time = time;
                    g.ant1 = static_cast<std::int8_t>(up[a]->id);
                    g.ant2 = static_cast<std::int8_t>(up[b]->id);
                    const bool isAuto = a == b;
                    if (!isAuto) Uvw(t, *up[a], *up[b], src, mjd, g);
                    for (int f = 0; f < c.nIF; ++f)
                        for (int p = 0; p < nStokes; ++p) scale[f * nStokes + p] = t.RecordScale(g, f, p);
                    for (int f = 0; f < c.nIF; ++f) {
                        for (int ch = 0; ch < c.nChan; ++ch) {
                            for (int p = 0; p < nStokes; ++p) {
                                std::complex<double> v =
                                    scale[f * nStokes + p] * t.BandpassProduct(g, f, ch, p);
                                if (c.noiseScale > 0) {
                                    const double sigma = t.NoiseSigma(g, f, ch, p);
                                    int h1 = 0, h2 = 0;
                                    ASimTruth::Hands(t.stokes[p], h1, h2);
                                    const bool realOnly = isAuto && h1 == h2;
                                    const double nr = sigma * noise.Gauss();
                                    const double ni = realOnly ? 0.0 : sigma * noise.Gauss();
                                    v = std::complex<double>(v.real() + nr, v.imag() + ni);
                                }
                                AUVXComplex& e = vis.At(f, ch, p);
                                e.re = static_cast<float>(v.real());
                                e.im = static_cast<float>(v.imag());
                                e.wt = weight;
                                if (!isAuto && c.flags && flags.Uniform() < c.flagFraction) e.wt = -weight;
                            }
                        }
                    }
                    if (!writer.Write(g, vis)) ok = false;
                }
            }
        }
    }
    if (!ok) return Fail(error, "cannot write the records: " + writer.m_errMsg);
    if (!writer.Finish()) return Fail(error, "cannot write the records: " + writer.m_errMsg);

    AUVXTable an;
    CreateTable(an, kLayoutAN, c.nIF);
    const int anName = kANName, anXyz = kANStabXyz, anNo = kANNoSta;
    an.SetKeyword(kKeyXyzHand, "RIGHT");
    for (const ASimStationTruth& s : t.stations) {
        const int r = an.AddRow();
        an.SetText(r, anName, s.code.c_str());
        an.SetDouble(r, anXyz, s.x, 0);
        an.SetDouble(r, anXyz, s.y, 1);
        an.SetDouble(r, anXyz, s.z, 2);
        an.SetDouble(r, anNo, s.id);
    }
    if (!AddTable(file, an, error)) return false;

    AUVXTable su;
    CreateTable(su, kLayoutSU, c.nIF);
    const int suId = kSUId, suName = kSUSource, suRa = kSURaEpo, suDec = kSUDecEpo;
    for (const ASimSourceTruth& s : t.sources) {
        const int r = su.AddRow();
        su.SetDouble(r, suId, s.id);
        su.SetText(r, suName, s.name.c_str());
        su.SetDouble(r, suRa, s.ra);
        su.SetDouble(r, suDec, s.dec);
    }
    if (!AddTable(file, su, error)) return false;

    AUVXTable fq;
    CreateTable(fq, kLayoutFQ, c.nIF);
    const int fqSel = kFQFrqSel, fqFreq = kFQIfFreq, fqWidth = kFQChWidth, fqBw = kFQTotalBandwidth,
              fqSide = kFQSideband;
    const int fr = fq.AddRow();
    fq.SetDouble(fr, fqSel, 1);
    for (int f = 0; f < c.nIF; ++f) {
        fq.SetDouble(fr, fqFreq, f * c.ifBandwidth, f);
        fq.SetDouble(fr, fqWidth, t.chanWidth, f);
        fq.SetDouble(fr, fqBw, c.ifBandwidth, f);
        fq.SetDouble(fr, fqSide, 1, f);
    }
    if (!AddTable(file, fq, error)) return false;

    AUVXTable sl;
    CreateTable(sl, kLayoutSL, c.nIF);
    const int slStart = kSLStart, slEnd = kSLEnd, slSource = kSLSourceId;
    sl.SetKeyword(kKeyRefDay, static_cast<std::int64_t>(std::llround(t.refJD - 2400000.5)));
    for (const AScan& s : scans) {
        const int r = sl.AddRow();
        sl.SetDouble(r, slStart, s.start);
        sl.SetDouble(r, slEnd, s.end);
        sl.SetDouble(r, slSource, s.sourceId);
    }
    if (!AddTable(file, sl, error)) return false;

    if (c.quantisation) {
        AUVXTable ai;
        CreateTable(ai, kLayoutAI, c.nIF);
        const int aiTime = kAITime, aiInterval = kAITimeInterval, aiAnt = kAIAntennaNo,
                  aiLevels = kAINoLevels, aiFreq = kAIFreqId;
        const double first = scans.front().start, last = scans.back().end;
        for (const ASimStationTruth& s : t.stations) {
            const int r = ai.AddRow();
            ai.SetDouble(r, aiTime, (first + last) * 0.5 / 86400.0);
            ai.SetDouble(r, aiInterval, (last - first + 2.0 * c.intTime) / 86400.0);
            ai.SetDouble(r, aiAnt, s.id);
            ai.SetDouble(r, aiLevels, 1 << s.bits);
            ai.SetDouble(r, aiFreq, 1);
        }
        if (!AddTable(file, ai, error)) return false;
    }
    if (!file.Close()) return Fail(error, file.m_errMsg);
    return true;
}

}  // namespace

bool CheckSimConfig(const ASimConfig& c, CString* error) {
    if (c.stations.empty() || c.stations.size() > 64) return Fail(error, "give 1 to 64 stations");
    for (std::size_t i = 0; i < c.stations.size(); ++i) {
        if (!ASimCatalogue::Station(c.stations[i]))
            return Fail(error, CString("unknown station ") + c.stations[i]);
        for (std::size_t j = 0; j < i; ++j)
            if (c.stations[j] == c.stations[i])
                return Fail(error, CString("station listed twice: ") + c.stations[i]);
    }
    if (c.sources.empty() || c.sources.size() > 100) return Fail(error, "give 1 to 100 sources");
    for (const std::string& s : c.sources)
        if (!ASimCatalogue::Source(s)) return Fail(error, CString("unknown source ") + s);
    if (!c.fluxes.empty() && c.fluxes.size() != c.sources.size())
        return Fail(error, "give one flux per source");
    for (double f : c.fluxes)
        if (!(f >= 0.0 && f < 1e6)) return Fail(error, "fluxes must be from 0 to 1e6 Jy");
    if (!c.bits.empty() && c.bits.size() != c.stations.size())
        return Fail(error, "give one bit count per station");
    for (int b : c.bits)
        if (b < 1 || b > 8) return Fail(error, "bits per sample must be 1 to 8");
    if (c.nIF < 1 || c.nIF > 16) return Fail(error, "nIF must be 1 to 16");
    if (c.nChan < 1 || c.nChan > 4096) return Fail(error, "nChan must be 1 to 4096");
    if (c.products.empty() || c.products.size() > 4) return Fail(error, "give 1 to 4 products");
    bool crossSeen = false, rr = false, ll = false;
    for (std::size_t i = 0; i < c.products.size(); ++i) {
        const int code = StokesCode(c.products[i]);
        if (code == 0) return Fail(error, CString("unknown product ") + c.products[i]);
        for (std::size_t j = 0; j < i; ++j)
            if (c.products[j] == c.products[i])
                return Fail(error, CString("product listed twice: ") + c.products[i]);
        if (code <= -3)
            crossSeen = true;
        else if (crossSeen)
            return Fail(error, "parallel hands (RR, LL) must come before RL and LR");
        if (code == -1) rr = true;
        if (code == -2) {
            if (!rr && std::find(c.products.begin(), c.products.end(), "RR") != c.products.end())
                return Fail(error, "RR must come before LL");
            ll = true;
        }
    }
    if (!rr && !ll) return Fail(error, "the products need RR or LL");
    if (!(c.intTime > 0 && c.intTime <= 3600))
        return Fail(error, "integration time must be above 0 and at most 3600 s");
    if (!(c.scanLength >= c.intTime)) return Fail(error, "a scan must hold at least one integration");
    if (!(c.scanGap >= 0)) return Fail(error, "the scan gap must not be negative");
    if (!(c.duration >= c.intTime && c.duration <= 30 * 86400.0))
        return Fail(error, "duration must be from one integration to 30 days");
    if (c.year < 1901 || c.year > 2099) return Fail(error, "year must be 1901 to 2099");
    if (c.dayOfYear < 1 || c.dayOfYear > 366) return Fail(error, "day of year must be 1 to 366");
    if (!(c.startTime >= 0 && c.startTime < 86400.0))
        return Fail(error, "start time must be within the reference day");
    if (!(c.refFreq >= 1e6 && c.refFreq < 1e12))
        return Fail(error, "reference frequency must be from 1 MHz to 1 THz");
    if (!(c.ifBandwidth > 0 && c.ifBandwidth <= 4e9))
        return Fail(error, "IF bandwidth must be above 0 and at most 4 GHz");
    if (!(c.noiseScale >= 0 && c.noiseScale < 1e6)) return Fail(error, "noise scale must not be negative");
    if (!(c.flagFraction >= 0 && c.flagFraction <= 1)) return Fail(error, "flag fraction must be 0 to 1");
    if (!(c.minElevation >= -90 && c.minElevation <= 90))
        return Fail(error, "minimum elevation must be -90 to 90 degrees");
    if (!(c.tsysStep >= 0.6)) return Fail(error, "Tsys step must be at least 0.6 s");
    if (!(c.bandpassPhaseMax >= 0 && c.bandpassPhaseMax <= kPi))
        return Fail(error, "bandpass phase limit must be from 0 to pi");
    const double recordBytes = 26.0 + 12.0 * c.nIF * c.nChan * c.products.size();
    const double baselines = c.stations.size() * (c.stations.size() + 1) / 2.0;
    if (recordBytes * baselines * (c.duration / c.intTime) > 8e9)
        return Fail(error, "the file would exceed 8 GB");
    return true;
}

bool SimulateToStreams(const ASimConfig& config, ABFile* uvx, std::ostream* antab, std::ostream* truthText,
                       ASimTruth* truthOut, CString* error) {
    if (!CheckSimConfig(config, error)) return false;
    const std::vector<AScan> scans = Schedule(config);
    if (scans.empty()) return Fail(error, "the schedule holds no scan");
    std::unique_ptr<ASimTruth> own;
    ASimTruth* t = truthOut;
    if (!t) {
        own.reset(new ASimTruth);
        t = own.get();
    }
    BuildTruth(config, *t);
    const std::string antabText = BuildTsysAndAntab(config, scans, *t);
    if (antab && !(*antab << antabText)) return Fail(error, "cannot write the ANTAB file");
    if (truthText && !t->Save(*truthText)) return Fail(error, "cannot write the truth file");
    if (uvx && !WriteUvx(config, scans, *t, uvx, error)) return false;
    return true;
}

bool Simulate(const ASimConfig& config, const char* uvxPath, const char* antabPath, const char* truthPath,
              ASimTruth* truth, CString* error) {
    if (!CheckSimConfig(config, error)) return false;
    std::ofstream antab, truthFile;
    if (antabPath) {
        antab.open(antabPath, std::ios::binary);
        if (!antab) return Fail(error, CString("cannot create ") + antabPath);
    }
    if (truthPath) {
        truthFile.open(truthPath, std::ios::binary);
        if (!truthFile) return Fail(error, CString("cannot create ") + truthPath);
    }
    ABFile stream;
    if (uvxPath && !stream.Open(uvxPath, PlatformOpenMode::Create))
        return Fail(error, "cannot create UVX file " + stream.GetErrorText());
    if (!SimulateToStreams(config, uvxPath ? &stream : nullptr, antabPath ? &antab : nullptr,
                           truthPath ? &truthFile : nullptr, truth, error))
        return false;
    if (uvxPath && !stream.Close()) return Fail(error, "cannot close UVX file " + stream.GetErrorText());
    if (antabPath && !antab.flush()) return Fail(error, CString("cannot write ") + antabPath);
    if (truthPath && !truthFile.flush()) return Fail(error, CString("cannot write ") + truthPath);
    return true;
}
