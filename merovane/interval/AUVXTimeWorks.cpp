// AUVXTimeWorks: the interval driver, the record output and the table copy.
#include <merovane/interval/AUVXTimeWorks.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <merovane/foundation/AReadBuffer.h>
#include <merovane/uvx/AUVXTable.h>
#include <merovane/uvx/UVXText.h>

namespace {

// Both blocks of the run, as the host's file system likes them: large sequential transfers.
constexpr int kBlockBytes = 4194304;

// (t - base) / step truncated toward zero to a 32-bit integer. A quotient outside that range (or NaN)
// gives the integer indefinite value, as the processor's truncating conversion does, instead of
// undefined behaviour.
std::int32_t gridIndex(double quotient) {
    if (quotient > -2147483649.0 && quotient < 2147483648.0) return static_cast<std::int32_t>(quotient);
    return INT32_MIN;
}

// Lowest and highest real and imaginary part of a record's elements (NaN left out), and whether a
// NaN is among them.
struct ARange {
    float reLo, reHi, imLo, imHi;
    bool reNaN, imNaN;
};

ARange rangeOf(const AUVXComplex* e, int n) {
    const float inf = std::numeric_limits<float>::infinity();
    ARange r{inf, -inf, inf, -inf, false, false};
    int k = 0;
#if defined(__SSE2__)
    // Four elements are twelve floats, three vectors; lane j of vector v always holds component
    // (4 v + j) % 3 of an element (re, im, wt), so each vector keeps its own lowest, highest and NaN
    // lanes and they are sorted out at the end. min/max keep their second operand when the first is
    // NaN, so a NaN only shows in the NaN lanes.
    if (n >= 4) {
        const float* p = &e[0].re;
        __m128 lo[3], hi[3], nan[3];
        for (int v = 0; v < 3; ++v) {
            lo[v] = _mm_set1_ps(inf);
            hi[v] = _mm_set1_ps(-inf);
            nan[v] = _mm_setzero_ps();
        }
        for (; k + 4 <= n; k += 4, p += 12) {
            for (int v = 0; v < 3; ++v) {
                __m128 x = _mm_loadu_ps(p + 4 * v);
                lo[v] = _mm_min_ps(x, lo[v]);
                hi[v] = _mm_max_ps(x, hi[v]);
                nan[v] = _mm_or_ps(nan[v], _mm_cmpunord_ps(x, x));
            }
        }
        for (int v = 0; v < 3; ++v) {
            float l[4], h[4];
            _mm_storeu_ps(l, lo[v]);
            _mm_storeu_ps(h, hi[v]);
            int nanBits = _mm_movemask_ps(nan[v]);
            for (int j = 0; j < 4; ++j) {
                int component = (4 * v + j) % 3;
                bool isNaN = (nanBits >> j) & 1;
                if (component == 0) {
                    r.reLo = std::min(r.reLo, l[j]);
                    r.reHi = std::max(r.reHi, h[j]);
                    r.reNaN = r.reNaN || isNaN;
                } else if (component == 1) {
                    r.imLo = std::min(r.imLo, l[j]);
                    r.imHi = std::max(r.imHi, h[j]);
                    r.imNaN = r.imNaN || isNaN;
                }
            }
        }
    }
#endif
    for (; k < n; ++k) {
        float x = e[k].re, y = e[k].im;
        if (x != x) r.reNaN = true;
        r.reLo = std::min(r.reLo, x);
        r.reHi = std::max(r.reHi, x);
        if (y != y) r.imNaN = true;
        r.imLo = std::min(r.imLo, y);
        r.imHi = std::max(r.imHi, y);
    }
    return r;
}

// Widens [lo, hi] by the components at `component` (0 re, 1 im) of n elements, one after the
// other. The lower test is "not at least the minimum", so a NaN takes the minimum and the next value
// takes it back; the upper test never lets a NaN in.
void widenInOrder(const AUVXComplex* e, int n, int component, double& lo, double& hi) {
    for (int k = 0; k < n; ++k) {
        double x = component == 0 ? e[k].re : e[k].im;
        if (!(x >= lo)) lo = x;
        if (x > hi) hi = x;
    }
}

}  // namespace

AUVXTimeWorks::AUVXTimeWorks() = default;
AUVXTimeWorks::AUVXTimeWorks(const AUVXTimeWorks& other) = default;
AUVXTimeWorks& AUVXTimeWorks::operator=(const AUVXTimeWorks& other) = default;
// The block goes with the last share of m_writeBlock; m_writeBuffer frees nothing when destroyed.
AUVXTimeWorks::~AUVXTimeWorks() = default;

bool AUVXTimeWorks::Filter(AUVXVisibility&, AUVXGroup&, int) {
    return true;
}

bool AUVXTimeWorks::IntervalsExec_Calculate(APtrArray<AUVXVisibility*>&, AArray<AUVXGroup>&, double, double) {
    return true;
}

bool AUVXTimeWorks::IntervalsExec_Init() {
    return true;
}

bool AUVXTimeWorks::IntervalsExec_Finalize() {
    return true;
}

void AUVXTimeWorks::ShowPercent(int) {}

bool AUVXTimeWorks::DropTimeData(AUVXGroup& group, AUVXVisibility& vis, int) {
    if (m_outFile == nullptr) return true;
    return writeRecord(group, vis);
}

bool AUVXTimeWorks::GetSkanList(AUVXFile& file, AUVXSkanList& list) {
    list.Free();
    AUVXTable* table = file.GetTable("SL");
    if (table == nullptr) return false;
    list.Create(*table);
    delete table;
    return true;
}

int AUVXTimeWorks::GetIndexFromSL(AUVXSkanList& list, double mjd, double time) {
    double x = (static_cast<double>(list.refDay) - mjd) * 86400.0 + time;
    for (int i = 0; i < list.count; ++i) {
        if (list[i].start <= x && x < list[i].end) return i;
    }
    return -1;
}

void AUVXTimeWorks::releaseWriteBlock() {
    // The pointer in m_writeBuffer may be shared with copies of this object (or may be a share this
    // object no longer holds): it is never freed from here, only the share is dropped.
    m_writeBuffer.block = nullptr;
    m_writeBuffer.size = 0;
    m_writeBuffer.used = 0;
    m_writeBlock.reset();
}

bool AUVXTimeWorks::IntervalsExec(AUVXFile* in, AUVXFile* out, double start, double step, int* abort) {
    if (in == nullptr) {
        m_errMsg = "No input UVX-file";
        return false;
    }

    // The header and the state of the run, which lives here and not in the object.
    AUVXHeader inHeader(*in);
    m_header = inHeader;

    double intervalStart = start;
    double intervalEnd = step > 0 ? start + step : start;
    double gridBase = start;
    double lastTime = -1.0;
    bool firstRecord = true;
    int lastPercent = 0;
    const double mjd = m_header.refJD - 2400000.5;
    APtrArray<AUVXVisibility*> vis;
    vis.growBy = 256;
    AArray<AUVXGroup> groups;
    groups.growBy = 256;
    AUVXSkanList skanList;
    AReadBuffer readBuffer;

    // The host's preparation, before anything of this run is stored in the object.
    if (!IntervalsExec_Init()) return false;

    // The scan list; a file without one runs with the empty list.
    if (m_useSkanList && step > 0) GetSkanList(*in, skanList);

    // The input stream from its first record.
    in->SeekUVGroup(0);
    if (!readBuffer.Create(kBlockBytes, in->file)) {
        m_errMsg = "Can`t create read buffer.";
        return false;
    }

    // From here on the hooks see the files of this run.
    m_abortFlag = abort;
    m_inFile = in;
    m_outFile = out;

    // The output: its header now, the records behind it through the write block.
    if (out != nullptr) {
        if (!out->Write(m_header)) {
            m_errMsg = "Error write UVX-header";
            return false;
        }
        out->SeekUVGroup(0);
        releaseWriteBlock();
        if (m_writeBuffer.Create(kBlockBytes, out->file) <= 0) {
            m_errMsg = "Can`t create write buffer";
            return false;
        }
        m_writeBlock.reset(m_writeBuffer.block, [](unsigned char* p) { std::free(p); });
    }

    // Closes the open interval: hands its records to the hook and empties the arrays.
    auto closeInterval = [&]() -> bool {
        if (groups.count > 0 && !IntervalsExec_Calculate(vis, groups, intervalStart, intervalEnd))
            return false;
        vis.Free();
        groups.Free();
        return true;
    };

    // The records.
    const int nGroups = in->nGroups;
    for (int index = 0; index < nGroups; ++index) {
        if (abort != nullptr && *abort != 0) {
            m_errMsg = "User abort";
            return false;
        }

        int percent = static_cast<int>((index + 1) * 100.0 / nGroups + 0.5);
        if (percent != lastPercent) {
            ShowPercent(percent);
            lastPercent = percent;
        }

        AUVXGroup group;
        if (!readBuffer.Read(&group, static_cast<int>(sizeof(AUVXGroup)))) {
            m_errMsg = toStr(index, "Error reading AUVXGroup #%d");
            return false;
        }
        // Owned here until the interval's array takes it; released on every other way out.
        std::unique_ptr<AUVXVisibility> record(new AUVXVisibility(*in));
        if (!readBuffer.Read(record->data, record->count * static_cast<int>(sizeof(AUVXComplex)))) {
            m_errMsg = toStr(index, "Error reading Visibility #%d");
            return false;
        }

        if (!Filter(*record, group, index)) continue;

        double t = group.time;
        if (!(t >= intervalStart)) {
            if (!DropTimeData(group, *record, index)) return false;
            continue;
        }

        if (firstRecord) {
            // The first interval is not put on the grid: it runs from `start`, cut at the end of the
            // scan that holds its first record.
            firstRecord = false;
            int i = GetIndexFromSL(skanList, mjd, t);
            if (i >= 0) {
                gridBase = skanList[i].start;
                intervalEnd = std::min(skanList[i].end, intervalEnd);
            }
        }

        bool closes = step > 0 ? t >= intervalEnd : t != lastTime;
        if (closes) {
            if (!closeInterval()) return false;
            lastTime = t;
            if (!(step > 0)) {
                intervalStart = intervalEnd = t;
            } else {
                // The grid restarts at the scan that holds t; a record outside every scan keeps it.
                int i = GetIndexFromSL(skanList, mjd, t);
                if (i >= 0) gridBase = skanList[i].start;
                std::int32_t k = gridIndex((t - gridBase) / step);
                intervalStart = k * step + gridBase;
                intervalEnd = intervalStart + step;
                if (i >= 0) intervalEnd = std::min(skanList[i].end, intervalEnd);
            }
        }

        groups.Add(group);
        vis.Add(record.get());
        record.release();
    }

    // The last interval.
    if (!closeInterval()) return false;

    if (!IntervalsExec_Finalize()) return false;

    // The end of the output: waiting records, the header with its final statistics, the tables.
    if (m_outFile != nullptr) {
        if (m_writeBuffer.Flush() < 0) {
            m_errMsg = "Error flush UV data";
            return false;
        }
        if (!m_outFile->Write(m_header)) {
            m_errMsg = "Error write UVX-header";
            return false;
        }
        if (!WriteTable(*in, *m_outFile)) {
            m_errMsg = "Error write UVX-table";
            return false;
        }
    }
    return true;
}

bool AUVXTimeWorks::writeRecord(const AUVXGroup& group, const AUVXVisibility& vis) {
    if (m_writeBuffer.Write(&group, static_cast<int>(sizeof(AUVXGroup))) <= 0) {
        m_errMsg = "Error write UVG data";
        return false;
    }
    if (m_writeBuffer.Write(vis.data, vis.count * static_cast<int>(sizeof(AUVXComplex))) <= 0) {
        m_errMsg = "Error write Visibility data";
        return false;
    }
    // Every element counts, flagged or not, one after the other (see widenInOrder). Most records lie
    // inside the statistics gathered so far and hold no NaN: the rule then changes nothing, which a
    // look at the record's range tells at a fraction of the cost of the ordered walk.
    ARange r = rangeOf(vis.data, vis.count);
    double lo = m_header.reMin, hi = m_header.reMax;
    if (r.reNaN || !(r.reLo >= lo) || !(r.reHi <= hi)) {
        widenInOrder(vis.data, vis.count, 0, lo, hi);
        m_header.reMin = lo;
        m_header.reMax = hi;
    }
    lo = m_header.imMin;
    hi = m_header.imMax;
    if (r.imNaN || !(r.imLo >= lo) || !(r.imHi <= hi)) {
        widenInOrder(vis.data, vis.count, 1, lo, hi);
        m_header.imMin = lo;
        m_header.imMax = hi;
    }
    return true;
}

bool AUVXTimeWorks::WriteData(APtrArray<AUVXVisibility*>& vis, AArray<AUVXGroup>& groups, double, double) {
    for (int k = 0; k < vis.count; ++k) {
        if (!writeRecord(groups[k], *vis[k])) return false;
    }
    return true;
}

bool AUVXTimeWorks::WriteTable(AUVXFile& in, AUVXFile& out) {
    if (m_outFile == nullptr) return true;
    AUVXTableHeader tables(in);
    for (int i = 0; i < tables.nTables; ++i) {
        if (!in.Seek(tables.positions[i])) {
            m_errMsg = toStr(i, "Error SEEK to UVX-table #%d");
            return false;
        }
        AUVXTable table(*in.file);
        if (!table.IsValid()) {
            m_errMsg = toStr(i, "Error read UVX-table #%d");
            return false;
        }
        if (!m_outFile->AddTable(table)) {
            m_errMsg = toStr(i, "Error add UVX-table #%d");
            return false;
        }
    }
    if (!out.Close()) {
        m_errMsg = "Error close UVX-file";
        return false;
    }
    return true;
}
