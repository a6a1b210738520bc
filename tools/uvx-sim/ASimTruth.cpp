// ASimTruth: model values of a simulated observation, and its sidecar text file.
#include "ASimTruth.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <istream>
#include <ostream>
#include <sstream>

namespace {

// Day fraction of a second; the ANTAB reader uses this constant for its time conversions.
constexpr double kDayPerSecond = 1.1574074074074073e-5;

struct APosition {
    double zenithDeg;  // zenith angle in degrees
    double hourDeg;    // hour angle in degrees, not reduced to a range
};

// Hour angle and zenith angle of a source at a station, step by step as the gain lookup of the
// ANTAB calibration computes them, so that the simulated gain is the one it will divide by.
APosition SourcePosition(const ASimStationTruth& st, const ASimSourceTruth& src, double mjd) {
    const double lat = std::atan2(st.z, std::sqrt(st.x * st.x + st.y * st.y));
    double lon = std::atan2(st.y, st.x);
    if (lon < 0) lon += 6.283185307179586;
    lon = lon * 3.819718634205488;
    double whole = 0;
    const double frac = std::modf(mjd, &whole);
    const double ut = frac * 24.0;
    const double g0 = std::fmod((whole + 2400000.5 - 2451545.0) * 0.06570982513092122 + 6.697374558, 24.0);
    const double lst = g0 + ut + lon + ut * 0.002738888888888889;
    const double h = (lst - src.ra * 0.06666666666666667) * 15.0;
    const double d = src.dec * 0.017453292519943295;
    const double z = std::acos(std::cos(d) * std::cos(lat) * std::cos(h * 0.017453292519943295) +
                               std::sin(d) * std::sin(lat));
    return {z * 57.29577951308232, h};
}

std::string Fmt(double v) {
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.17g", v);
    return buf;
}

}  // namespace

const ASimStationTruth* ASimTruth::Station(int id) const {
    for (const ASimStationTruth& s : stations)
        if (s.id == id) return &s;
    return nullptr;
}

const ASimSourceTruth* ASimTruth::Source(int id) const {
    for (const ASimSourceTruth& s : sources)
        if (s.id == id) return &s;
    return nullptr;
}

bool ASimTruth::Hands(int code, int& hand1, int& hand2) {
    switch (code) {
        case -1:
            hand1 = 0;
            hand2 = 0;
            return true;
        case -2:
            hand1 = 1;
            hand2 = 1;
            return true;
        case -3:
            hand1 = 0;
            hand2 = 1;
            return true;
        case -4:
            hand1 = 1;
            hand2 = 0;
            return true;
        default:
            return false;
    }
}

double ASimTruth::Mjd(double seconds) const {
    return (refJD - 2400000.5) + seconds * kDayPerSecond;
}

bool ASimTruth::Tsys(int stationId, int position, double mjd, double& tsys) const {
    const ASimStationTruth* st = Station(stationId);
    if (!st) return false;
    // A forward scan over the rows measured in this position, as the ANTAB lookup makes it.
    const ASimTsysRow* prev = nullptr;
    const ASimTsysRow* next = nullptr;
    for (const ASimTsysRow& row : st->tsys) {
        if (position < 0 || position >= static_cast<int>(row.values.size())) return false;
        if (!(row.values[position] > 0.0)) continue;
        if (row.mjd >= mjd) {
            next = &row;
            break;
        }
        prev = &row;
    }
    if (!prev && !next) return false;
    if (!prev) prev = next;
    if (!next) next = prev;
    const double t1 = prev->mjd, y1 = prev->values[position];
    const double t2 = next->mjd, y2 = next->values[position];
    if (t2 == t1)
        tsys = y1 * st->ft;
    else
        tsys = ((y2 - y1) * (mjd - t1) / (t2 - t1) + y1) * st->ft;
    return true;
}

double ASimTruth::GainPoly(int stationId, int sourceId, double mjd) const {
    const ASimStationTruth* st = Station(stationId);
    const ASimSourceTruth* src = Source(sourceId);
    if (!st || !src) return 0.0;
    if (st->poly.empty()) return 1.0;
    if (st->poly.size() == 1) return st->poly[0];
    const APosition pos = SourcePosition(*st, *src, mjd);
    double x = 0;
    switch (st->polyType) {
        case 1:
            x = 90.0 - pos.zenithDeg;
            break;
        case 2:
            x = pos.zenithDeg;
            break;
        case 3:
            x = pos.hourDeg;
            break;
        default:
            return 0.0;
    }
    double p = st->poly[0];
    double power = x;
    for (std::size_t i = 1; i < st->poly.size(); ++i) {
        p += power * st->poly[i];
        power *= x;
    }
    return p;
}

double ASimTruth::Elevation(int stationId, int sourceId, double mjd) const {
    const ASimStationTruth* st = Station(stationId);
    const ASimSourceTruth* src = Source(sourceId);
    if (!st || !src) return 0.0;
    return 90.0 - SourcePosition(*st, *src, mjd).zenithDeg;
}

double ASimTruth::Sefd(int stationId, int hand, int iIF, int sourceId, double mjd) const {
    const ASimStationTruth* st = Station(stationId);
    if (!st || hand < 0 || hand > 1) return 0.0;
    const int pol = PolIndex(hand);
    double tsys = 0;
    if (!Tsys(stationId, nIF * pol + iIF, mjd, tsys)) return 0.0;
    const double gain = GainPoly(stationId, sourceId, mjd) * st->dpfu[pol];
    return tsys / gain;
}

std::complex<double> ASimTruth::Bandpass(int stationId, int iIF, int hand, int iChan) const {
    const ASimStationTruth* st = Station(stationId);
    if (!st) return 0.0;
    if (!bandpassOn) return 1.0;
    const std::size_t k = static_cast<std::size_t>((iIF * 2 + hand) * nChan + iChan);
    return k < st->bandpass.size() ? st->bandpass[k] : std::complex<double>(0.0);
}

double ASimTruth::Level(int stationId, int iIF, int hand) const {
    const ASimStationTruth* st = Station(stationId);
    if (!st) return 0.0;
    if (!levelsOn) return 1.0;
    const std::size_t k = static_cast<std::size_t>(iIF * 2 + hand);
    return k < st->level.size() ? st->level[k] : 0.0;
}

double ASimTruth::QuantFactor(int stationId) const {
    const ASimStationTruth* st = Station(stationId);
    if (!st) return 0.0;
    return quantisationOn ? st->quantFactor : 1.0;
}

std::complex<double> ASimTruth::RecordScale(const AUVXGroup& group, int iIF, int iStokes) const {
    if (iStokes < 0 || iStokes >= static_cast<int>(stokes.size())) return 0.0;
    int h1 = 0, h2 = 0;
    if (!Hands(stokes[iStokes], h1, h2)) return 0.0;
    const int a1 = group.ant1, a2 = group.ant2;
    if (!Station(a1) || !Station(a2)) return 0.0;
    const double m = std::sqrt(Level(a1, iIF, h1) * Level(a2, iIF, h2));
    if (a1 == a2) return (h1 == h2 ? 1.0 : kCrossHandAutoLeak) * m;
    const ASimSourceTruth* src = Source(group.sourceId);
    if (!src) return 0.0;
    std::complex<double> sprod = src->flux;
    if (h1 != h2) sprod = h1 == 0 ? src->crossFlux : std::conj(src->crossFlux);
    const double mjd = Mjd(group.time);
    const double sefd1 = Sefd(a1, h1, iIF, group.sourceId, mjd);
    const double sefd2 = Sefd(a2, h2, iIF, group.sourceId, mjd);
    const double f = std::sqrt(QuantFactor(a1) * QuantFactor(a2));
    return sprod * f * m / std::sqrt(sefd2 * sefd1);
}

std::complex<double> ASimTruth::BandpassProduct(const AUVXGroup& g, int iIF, int iChan, int iStokes) const {
    int h1 = 0, h2 = 0;
    if (iStokes < 0 || iStokes >= static_cast<int>(stokes.size()) || !Hands(stokes[iStokes], h1, h2))
        return 0.0;
    const std::complex<double> b1 = Bandpass(g.ant1, iIF, h1, iChan);
    if (g.ant1 == g.ant2 && h1 == h2) return std::norm(b1);
    return b1 * std::conj(Bandpass(g.ant2, iIF, h2, iChan));
}

std::complex<double> ASimTruth::RawModel(const AUVXGroup& group, int iIF, int iChan, int iStokes) const {
    return RecordScale(group, iIF, iStokes) * BandpassProduct(group, iIF, iChan, iStokes);
}

std::complex<double> ASimTruth::PreDigitisationModel(const AUVXGroup& group, int iIF, int iChan,
                                                     int iStokes) const {
    int h1 = 0, h2 = 0;
    if (iStokes < 0 || iStokes >= static_cast<int>(stokes.size()) || !Hands(stokes[iStokes], h1, h2))
        return 0.0;
    const int a1 = group.ant1, a2 = group.ant2;
    double f = a1 == a2 ? 1.0 : std::sqrt(QuantFactor(a1) * QuantFactor(a2));
    const double m = std::sqrt(Level(a1, iIF, h1) * Level(a2, iIF, h2));
    if (f == 0.0 || m == 0.0) return 0.0;
    return RawModel(group, iIF, iChan, iStokes) / (f * m);
}

std::complex<double> ASimTruth::CalibratedModel(const AUVXGroup& group, int iIF, int iChan, int iStokes,
                                                bool withBandpass) const {
    int h1 = 0, h2 = 0;
    if (iStokes < 0 || iStokes >= static_cast<int>(stokes.size()) || !Hands(stokes[iStokes], h1, h2))
        return 0.0;
    const int a1 = group.ant1, a2 = group.ant2;
    const ASimSourceTruth* src = Source(group.sourceId);
    if (!Station(a1) || !Station(a2) || !src) return 0.0;
    std::complex<double> flux;
    if (a1 == a2) {
        const double mjd = Mjd(group.time);
        const double s1 = Sefd(a1, h1, iIF, group.sourceId, mjd);
        const double s2 = Sefd(a2, h2, iIF, group.sourceId, mjd);
        flux = (h1 == h2 ? 1.0 : kCrossHandAutoLeak) * std::sqrt(s1 * s2);
    } else {
        flux = src->flux;
        if (h1 != h2) flux = h1 == 0 ? src->crossFlux : std::conj(src->crossFlux);
    }
    return withBandpass ? flux * BandpassProduct(group, iIF, iChan, iStokes) : flux;
}

double ASimTruth::NoiseSigma(const AUVXGroup& group, int iIF, int iChan, int iStokes) const {
    int h1 = 0, h2 = 0;
    if (iStokes < 0 || iStokes >= static_cast<int>(stokes.size()) || !Hands(stokes[iStokes], h1, h2))
        return 0.0;
    const int a1 = group.ant1, a2 = group.ant2;
    if (!Station(a1) || !Station(a2)) return 0.0;
    const double m = std::sqrt(Level(a1, iIF, h1) * Level(a2, iIF, h2));
    const double b = std::abs(Bandpass(a1, iIF, h1, iChan)) * std::abs(Bandpass(a2, iIF, h2, iChan));
    if (a1 == a2 && h1 == h2) return noiseScale * m * b / std::sqrt(chanWidth * intTime);
    return noiseScale * m * b / std::sqrt(2.0 * chanWidth * intTime);
}

// ---------------------------------------------------------------------------------------------
// The sidecar text: one item per line, a keyword first; numbers in full precision.

bool ASimTruth::Save(std::ostream& out) const {
    out << "# uvx-sim truth: what the simulated observation used (docs/uvx-sim.md)\n";
    out << "uvx-sim-truth 1\n";
    out << "refJD " << Fmt(refJD) << "\n";
    out << "shape " << nIF << " " << nChan << " " << nPol << "\n";
    out << "stokes " << stokes.size();
    for (int c : stokes) out << " " << c;
    out << "\n";
    out << "frequency " << Fmt(refFreq) << " " << Fmt(chanWidth) << " " << Fmt(ifBandwidth) << "\n";
    out << "inttime " << Fmt(intTime) << "\n";
    out << "noise " << Fmt(noiseScale) << "\n";
    out << "switches " << (bandpassOn ? 1 : 0) << " " << (levelsOn ? 1 : 0) << " " << (quantisationOn ? 1 : 0)
        << "\n";
    out << "# source ID name ra dec flux crossRe crossIm\n";
    for (const ASimSourceTruth& s : sources)
        out << "source " << s.id << " " << s.name << " " << Fmt(s.ra) << " " << Fmt(s.dec) << " "
            << Fmt(s.flux) << " " << Fmt(s.crossFlux.real()) << " " << Fmt(s.crossFlux.imag()) << "\n";
    out << "# station ID code x y z bits f dpfu0 dpfu1 polyType ft freqLow freqHigh tsysPerIF nPoly "
           "poly...\n";
    for (const ASimStationTruth& s : stations) {
        out << "station " << s.id << " " << s.code << " " << Fmt(s.x) << " " << Fmt(s.y) << " " << Fmt(s.z)
            << " " << s.bits << " " << Fmt(s.quantFactor) << " " << Fmt(s.dpfu[0]) << " " << Fmt(s.dpfu[1])
            << " " << s.polyType << " " << Fmt(s.ft) << " " << Fmt(s.freqLow) << " " << Fmt(s.freqHigh) << " "
            << (s.tsysPerIF ? 1 : 0) << " " << s.poly.size();
        for (double c : s.poly) out << " " << Fmt(c);
        out << "\n";
    }
    out << "# level ID iIF hand m   (hand 0 R, 1 L)\n";
    for (const ASimStationTruth& s : stations)
        for (std::size_t k = 0; k < s.level.size(); ++k)
            out << "level " << s.id << " " << k / 2 << " " << k % 2 << " " << Fmt(s.level[k]) << "\n";
    out << "# bandpass ID iIF hand re im for each channel\n";
    for (const ASimStationTruth& s : stations) {
        const std::size_t n = static_cast<std::size_t>(nChan);
        for (std::size_t k = 0; n > 0 && k + n <= s.bandpass.size(); k += n) {
            out << "bandpass " << s.id << " " << k / n / 2 << " " << k / n % 2;
            for (std::size_t c = 0; c < n; ++c)
                out << " " << Fmt(s.bandpass[k + c].real()) << " " << Fmt(s.bandpass[k + c].imag());
            out << "\n";
        }
    }
    out << "# tsys ID mjd value per Tsys position (polIndex x nIF + iIF), FT not applied\n";
    for (const ASimStationTruth& s : stations)
        for (const ASimTsysRow& r : s.tsys) {
            out << "tsys " << s.id << " " << Fmt(r.mjd);
            for (double v : r.values) out << " " << Fmt(v);
            out << "\n";
        }
    out << "end\n";
    return static_cast<bool>(out);
}

bool ASimTruth::Save(const char* path, CString* error) const {
    std::ofstream out(path, std::ios::binary);
    if (!out || !Save(out) || !(out.flush())) {
        if (error) *error = CString("cannot write ") + path;
        return false;
    }
    return true;
}

namespace {

bool Fail(CString* error, int line, const char* what) {
    if (error) error->Format("truth file line %d: %s", line, what);
    return false;
}

}  // namespace

bool ASimTruth::Load(std::istream& in, CString* error) {
    *this = ASimTruth();
    std::string line;
    int lineNo = 0;
    bool header = false, ended = false;
    while (std::getline(in, line)) {
        ++lineNo;
        if (line.empty() || line[0] == '#') continue;
        std::istringstream ls(line);
        std::string key;
        ls >> key;
        if (!header) {
            int version = 0;
            if (key != "uvx-sim-truth" || !(ls >> version) || version != 1)
                return Fail(error, lineNo, "not a uvx-sim truth file");
            header = true;
            continue;
        }
        bool ok = true;
        if (key == "refJD") {
            ok = static_cast<bool>(ls >> refJD);
        } else if (key == "shape") {
            ok = static_cast<bool>(ls >> nIF >> nChan >> nPol) && nIF > 0 && nChan > 0 && nPol > 0 &&
                 nPol <= 2;
        } else if (key == "stokes") {
            std::size_t n = 0;
            ok = static_cast<bool>(ls >> n) && n <= 8;
            for (std::size_t i = 0; ok && i < n; ++i) {
                int c = 0;
                ok = static_cast<bool>(ls >> c);
                stokes.push_back(c);
            }
        } else if (key == "frequency") {
            ok = static_cast<bool>(ls >> refFreq >> chanWidth >> ifBandwidth);
        } else if (key == "inttime") {
            ok = static_cast<bool>(ls >> intTime);
        } else if (key == "noise") {
            ok = static_cast<bool>(ls >> noiseScale);
        } else if (key == "switches") {
            int b = 0, l = 0, q = 0;
            ok = static_cast<bool>(ls >> b >> l >> q);
            bandpassOn = b != 0;
            levelsOn = l != 0;
            quantisationOn = q != 0;
        } else if (key == "source") {
            ASimSourceTruth s;
            double re = 0, im = 0;
            ok = static_cast<bool>(ls >> s.id >> s.name >> s.ra >> s.dec >> s.flux >> re >> im);
            s.crossFlux = {re, im};
            sources.push_back(s);
        } else if (key == "station") {
            ASimStationTruth s;
            int perIF = 0;
            std::size_t nPoly = 0;
            ok = static_cast<bool>(ls >> s.id >> s.code >> s.x >> s.y >> s.z >> s.bits >> s.quantFactor >>
                                   s.dpfu[0] >> s.dpfu[1] >> s.polyType >> s.ft >> s.freqLow >> s.freqHigh >>
                                   perIF >> nPoly) &&
                 nPoly < 64;
            s.tsysPerIF = perIF != 0;
            for (std::size_t i = 0; ok && i < nPoly; ++i) {
                double c = 0;
                ok = static_cast<bool>(ls >> c);
                s.poly.push_back(c);
            }
            if (ok && Station(s.id)) return Fail(error, lineNo, "station listed twice");
            stations.push_back(s);
        } else if (key == "level" || key == "bandpass" || key == "tsys") {
            int id = 0;
            ok = static_cast<bool>(ls >> id);
            ASimStationTruth* st = nullptr;
            for (ASimStationTruth& s : stations)
                if (s.id == id) st = &s;
            if (ok && !st) return Fail(error, lineNo, "unknown station");
            if (!ok || nIF < 1 || nChan < 1) return Fail(error, lineNo, "bad line");
            if (key == "tsys") {
                ASimTsysRow row;
                ok = static_cast<bool>(ls >> row.mjd);
                for (int i = 0; ok && i < nPol * nIF; ++i) {
                    double v = 0;
                    ok = static_cast<bool>(ls >> v);
                    row.values.push_back(v);
                }
                st->tsys.push_back(row);
            } else {
                int iIF = 0, hand = 0;
                ok = static_cast<bool>(ls >> iIF >> hand) && iIF >= 0 && iIF < nIF && hand >= 0 && hand <= 1;
                if (ok && key == "level") {
                    st->level.resize(static_cast<std::size_t>(nIF) * 2, 1.0);
                    ok = static_cast<bool>(ls >> st->level[static_cast<std::size_t>(iIF * 2 + hand)]);
                } else if (ok) {
                    st->bandpass.resize(static_cast<std::size_t>(nIF) * 2 * nChan, 1.0);
                    for (int c = 0; ok && c < nChan; ++c) {
                        double re = 0, im = 0;
                        ok = static_cast<bool>(ls >> re >> im);
                        st->bandpass[static_cast<std::size_t>((iIF * 2 + hand) * nChan + c)] = {re, im};
                    }
                }
            }
        } else if (key == "end") {
            ended = true;
            break;
        } else {
            return Fail(error, lineNo, "unknown keyword");
        }
        if (!ok) return Fail(error, lineNo, "bad line");
    }
    if (!header) return Fail(error, lineNo, "not a uvx-sim truth file");
    if (!ended) return Fail(error, lineNo, "truncated (no end line)");
    return true;
}

bool ASimTruth::Load(const char* path, CString* error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        if (error) *error = CString("cannot open ") + path;
        return false;
    }
    return Load(in, error);
}
