// AAntabTlsc: Tsys interpolation, gain polynomial, INDEX items and row dates of one telescope.
#include <merovane/antab/AAntabTlsc.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include <merovane/foundation/Calendar.h>
#include <merovane/foundation/NumberConversion.h>
#include <merovane/uvx/UVXText.h>

template class AArray<AColumnInfo>;

namespace {

// Index of the first of the ascending `times` at or after `time`, times.size() if none. The test is
// the scan's own (t >= time), so a NaN query runs past every row just as the scan does.
std::size_t firstAtOrAfter(const std::vector<double>& times, double time) {
    std::size_t lo = 0, hi = times.size();
    while (lo < hi) {
        const std::size_t mid = lo + (hi - lo) / 2;
        if (times[mid] >= time)
            hi = mid;
        else
            lo = mid + 1;
    }
    return lo;
}

// Tsys at `time` between the bracketing rows (t1, y1) and (t2, y2), times `ft`: held where the two
// rows are one, linear in time between them.
double interpolate(double t1, double y1, double t2, double y2, double time, double ft) {
    if (t2 == t1) return y1 * ft;
    return ((y2 - y1) * (time - t1) / (t2 - t1) + y1) * ft;
}

// The bracket of the scan from the first index whose time is at or after the query: the row before
// and that row, or one row twice at either end.
void Bracket(std::size_t bound, std::size_t n, std::size_t& prev, std::size_t& next) {
    if (bound == n) {
        prev = next = n - 1;
    } else if (bound == 0) {
        prev = next = 0;
    } else {
        prev = bound - 1;
        next = bound;
    }
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// ATsysTable

ATsysTable::ATsysTable(const ATsysTable& other)
    : rows(0), cols(other.cols), capacity(0), growBy(other.growBy) {
    if (other.rows > 0 && other.cols > 0) {
        const long long n = static_cast<long long>(other.rows) * other.cols;
        data = static_cast<double*>(std::malloc(sizeof(double) * static_cast<std::size_t>(n)));
        if (data == nullptr) throw std::bad_alloc();
        std::memcpy(data, other.data, sizeof(double) * static_cast<std::size_t>(n));
        rows = capacity = other.rows;
    } else {
        rows = other.rows;
    }
}

ATsysTable& ATsysTable::operator=(const ATsysTable& other) {
    if (this != &other) {
        ATsysTable copy(other);
        std::free(data);
        rows = copy.rows;
        cols = copy.cols;
        capacity = copy.capacity;
        growBy = copy.growBy;
        data = copy.data;
        copy.data = nullptr;
    }
    return *this;
}

ATsysTable::~ATsysTable() {
    std::free(data);
}

void ATsysTable::SetCols(int n) {
    std::free(data);
    data = nullptr;
    rows = capacity = 0;
    cols = n > 0 ? n : 0;
}

double* ATsysTable::AddRow() {
    if (rows >= capacity) {
        const int step = growBy > 0 ? growBy : 1;
        const int grown = capacity + step;
        const std::size_t n = static_cast<std::size_t>(grown) * static_cast<std::size_t>(cols);
        // realloc keeps the rows; a large block is moved by remapping instead of copying, which
        // keeps the additive growth of a long table from costing quadratic time.
        void* bigger = std::realloc(data, sizeof(double) * (n > 0 ? n : 1));
        if (bigger == nullptr) throw std::bad_alloc();
        data = static_cast<double*>(bigger);
        capacity = grown;
    }
    double* row = Row(rows);
    for (int c = 0; c < cols; ++c) row[c] = 0.0;
    ++rows;
    return row;
}

// ---------------------------------------------------------------------------------------------
// AAntabTlsc

AAntabTlsc::AAntabTlsc(const AAntabTlsc& other)
    : m_name(other.m_name),
      m_polyType(other.m_polyType),
      m_ft(other.m_ft),
      m_timeOff(other.m_timeOff),
      m_freqLow(other.m_freqLow),
      m_freqHigh(other.m_freqHigh),
      m_poly(other.m_poly),
      m_nCol(other.m_nCol),
      m_index(other.m_index),
      m_index2(other.m_index2),
      m_tsys(other.m_tsys),
      m_nPol(other.m_nPol),
      m_nIF(other.m_nIF),
      m_antID(other.m_antID),
      m_x(other.m_x),
      m_y(other.m_y),
      m_z(other.m_z),
      m_errMsg(other.m_errMsg),
      m_forceScan(other.m_forceScan) {
    m_dpfu[0] = other.m_dpfu[0];
    m_dpfu[1] = other.m_dpfu[1];
}

AAntabTlsc& AAntabTlsc::operator=(const AAntabTlsc& other) {
    if (this == &other) return *this;
    m_name = other.m_name;
    m_polyType = other.m_polyType;
    m_ft = other.m_ft;
    m_timeOff = other.m_timeOff;
    m_freqLow = other.m_freqLow;
    m_freqHigh = other.m_freqHigh;
    m_dpfu[0] = other.m_dpfu[0];
    m_dpfu[1] = other.m_dpfu[1];
    m_poly = other.m_poly;
    m_nCol = other.m_nCol;
    m_index = other.m_index;
    m_index2 = other.m_index2;
    m_tsys = other.m_tsys;
    m_nPol = other.m_nPol;
    m_nIF = other.m_nIF;
    m_antID = other.m_antID;
    m_x = other.m_x;
    m_y = other.m_y;
    m_z = other.m_z;
    m_errMsg = other.m_errMsg;
    m_forceScan = other.m_forceScan;
    ResetTsysIndex();
    return *this;
}

bool AColumnInfo::Positions(int nPol, int nIF, int& from, int& to) const {
    if (first <= 0) return false;
    // In 64 bits: first and last come from the file and may lie anywhere in the int range.
    const std::int64_t base = pol == -2 ? static_cast<std::int64_t>(nPol - 1) * nIF : 0;
    const std::int64_t lastBand = std::min<std::int64_t>(static_cast<std::int64_t>(last) - 1, nIF - 1);
    const std::int64_t lo = std::max<std::int64_t>(base + first - 1, 0);
    const std::int64_t hi =
        std::min<std::int64_t>(base + lastBand, static_cast<std::int64_t>(nPol) * nIF - 1);
    if (lo > hi) return false;
    from = static_cast<int>(lo);
    to = static_cast<int>(hi);
    return true;
}

bool AAntabTlsc::ColumnInfoParse(CString& text, AColumnInfo& info) {
    const char kind = text.IsEmpty() ? '\0' : text.GetAt(0);
    if (kind != 'L' && kind != 'R') {
        // X, and any other letter, is a column whose value is read and thrown away.
        info.pol = 0;
        info.first = -1;
        info.last = -1;
        return true;
    }
    info.pol = kind == 'L' ? -2 : -1;
    info.first = TruncToInt32(std::atof(text.Mid(1)));
    const int colon = text.Find(':');
    info.last = colon > 0 ? std::atoi(text.Mid(colon + 1)) : info.first;
    return true;
}

void AAntabTlsc::FixDate(double refJD) {
    int day = 0, month = 0, year = 0;
    JulianToDate(refJD, day, month, year);
    const int leapDays = (year - 1901) / 4;
    for (int r = 0; r < m_tsys.rows; ++r) {
        double* row = m_tsys.Row(r);
        const int days = TruncToInt32(row[0]) + leapDays;
        double mjd = days + (year - 1900) * 365.0;
        mjd = mjd - 0.5;
        mjd = mjd + 2415020.0;
        mjd = mjd - 2400000.5;
        row[0] = mjd;
    }
    ResetTsysIndex();
}

bool AAntabTlsc::failTsys(double time) {
    const double seconds = (time - std::trunc(time)) * 86400.0;
    m_errMsg =
        CString("Error> <AAntabTlsc> AN=") + m_name + ", TSYS for " + timeToStr(seconds, -1) + " not found.";
    return false;
}

bool AAntabTlsc::scanTsys(double time, int position, double& tsys) {
    const int col = position + 2;
    int prev = -1, next = -1;
    for (int r = 0; r < m_tsys.rows; ++r) {
        const double* row = m_tsys.Row(r);
        if (!(row[col] > 0.0)) continue;
        const double t = row[1] + row[0];
        if (t >= time) {
            next = r;
            break;
        }
        prev = r;
    }
    if (prev < 0 && next < 0) return failTsys(time);
    if (prev < 0) prev = next;
    if (next < 0) next = prev;
    const double* r1 = m_tsys.Row(prev);
    const double* r2 = m_tsys.Row(next);
    tsys = interpolate(r1[1] + r1[0], r1[col], r2[1] + r2[0], r2[col], time, m_ft);
    return true;
}

std::uint64_t AAntabTlsc::nextTsysStamp() {
    // Shared by every telescope object of the process; objects on different threads may draw at once.
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

void AAntabTlsc::ResetTsysIndex() {
    m_tsysStamp = nextTsysStamp();
    m_tsysIndex.clear();
    m_rowTimes.clear();
    m_rowsAscending = false;
    m_rowsIndexed = false;
    m_haveLast = false;
}

const AAntabTlsc::ColumnIndex& AAntabTlsc::columnIndex(int position) {
    if (m_indexData != m_tsys.data || m_indexRows != m_tsys.rows || m_indexCols != m_tsys.cols) {
        ResetTsysIndex();
        m_indexData = m_tsys.data;
        m_indexRows = m_tsys.rows;
        m_indexCols = m_tsys.cols;
    }
    if (!m_rowsIndexed) {
        m_rowsAscending = true;
        for (int r = 0; r < m_tsys.rows && m_rowsAscending; ++r) {
            const double* row = m_tsys.Row(r);
            const double t = row[1] + row[0];
            // NaN fails this test too, which keeps such a table off the shared search.
            if (r > 0 && !(t >= m_rowTimes.back())) m_rowsAscending = false;
            m_rowTimes.push_back(t);
        }
        if (!m_rowsAscending) m_rowTimes.clear();
        m_rowsIndexed = true;
    }
    if (m_tsysIndex.size() < static_cast<std::size_t>(m_tsys.cols)) m_tsysIndex.resize(m_tsys.cols);
    ColumnIndex& index = m_tsysIndex[static_cast<std::size_t>(position)];
    if (!index.built) {
        const int col = position + 2;
        index.times.clear();
        index.values.clear();
        index.ascending = true;
        int measured = 0;
        for (int r = 0; r < m_tsys.rows; ++r) {
            const double* row = m_tsys.Row(r);
            if (!(row[col] > 0.0)) continue;
            ++measured;
            const double t = row[1] + row[0];
            if (!index.times.empty() && !(t >= index.times.back())) index.ascending = false;
            index.times.push_back(t);
            index.values.push_back(row[col]);
        }
        index.full = m_rowsAscending && measured > 0 && measured == m_tsys.rows;
        if (index.full) {
            index.times.clear();
            index.times.shrink_to_fit();
            index.values.clear();
            index.values.shrink_to_fit();
        }
        index.built = true;
    }
    return index;
}

// First row whose time is at or after `time`, over all rows of an ascending table. The positions
// of one record ask for the same time one after the other, so the last answer is kept.
std::size_t AAntabTlsc::rowBound(double time) {
    if (m_haveLast && time == m_lastTime) return m_lastBound;
    m_lastTime = time;
    m_lastBound = firstAtOrAfter(m_rowTimes, time);
    m_haveLast = true;
    return m_lastBound;
}

bool AAntabTlsc::GetTsys(double time, int position, double& tsys) {
    if (position < 0 || position > m_tsys.cols - 3) return failTsys(time);
    if (m_forceScan) return scanTsys(time, position, tsys);
    const ColumnIndex& index = columnIndex(position);
    double t1, y1, t2, y2;
    std::size_t prev, next;
    if (index.full) {
        const int col = position + 2;
        Bracket(rowBound(time), m_rowTimes.size(), prev, next);
        t1 = m_rowTimes[prev];
        y1 = m_tsys.Row(static_cast<int>(prev))[col];
        t2 = m_rowTimes[next];
        y2 = m_tsys.Row(static_cast<int>(next))[col];
    } else {
        if (!index.ascending) return scanTsys(time, position, tsys);
        const std::size_t n = index.times.size();
        if (n == 0) return failTsys(time);
        // The first measured row at or after `time` is the row at which the scan stops.
        Bracket(firstAtOrAfter(index.times, time), n, prev, next);
        t1 = index.times[prev];
        y1 = index.values[prev];
        t2 = index.times[next];
        y2 = index.values[next];
    }
    tsys = interpolate(t1, y1, t2, y2, time, m_ft);
    return true;
}

bool AAntabTlsc::GetGain(double time, double freq, AUVXSourceItem& source, double* gain) {
    if (freq > m_freqHigh || freq < m_freqLow) {
        m_errMsg = CString("Error> <AAntabTlsc> AN=") + m_name + ", freq. not in range";
        return false;
    }
    if (m_poly.count == 0) {
        gain[0] = m_dpfu[0];
        gain[1] = m_dpfu[1];
        return true;
    }
    if (m_poly.count == 1) {
        gain[0] = m_dpfu[0] * m_poly[0];
        gain[1] = m_dpfu[1] * m_poly[0];
        return true;
    }

    // Position of the source at the station.
    const double latitude = std::atan2(m_z, std::sqrt(m_x * m_x + m_y * m_y));
    double longitude = std::atan2(m_y, m_x);
    if (longitude < 0) longitude += 6.283185307179586;
    longitude = longitude * 3.819718634205488;  // hours
    double dayPart = 0.0;
    const double fraction = std::modf(time, &dayPart);
    const double ut = fraction * 24.0;
    const double gmst0 =
        std::fmod((dayPart + 2400000.5 - 2451545.0) * 0.06570982513092122 + 6.697374558, 24.0);
    const double lst = gmst0 + ut + longitude + ut * 0.002738888888888889;
    const double hourAngle = (lst - source.ra * 0.06666666666666667) * 15.0;  // degrees
    const double dec = source.dec * 0.017453292519943295;
    const double zenith =
        std::acos(std::cos(dec) * std::cos(latitude) * std::cos(hourAngle * 0.017453292519943295) +
                  std::sin(dec) * std::sin(latitude));
    const double zenithDeg = zenith * 57.29577951308232;

    double x;
    switch (m_polyType) {
        case 1:
            x = 90.0 - zenithDeg;
            break;
        case 2:
            x = zenithDeg;
            break;
        case 3:
            x = hourAngle;
            break;
        default:
            m_errMsg = CString("Error> <AAntabTlsc> AN=") + m_name + ", m_polyType == 0";
            return false;
    }
    double value = m_poly[0];
    double power = x;
    for (int i = 1; i < m_poly.count; ++i) {
        value = value + power * m_poly[i];
        power = power * x;
    }
    gain[0] = value * m_dpfu[0];
    gain[1] = value * m_dpfu[1];
    return true;
}
