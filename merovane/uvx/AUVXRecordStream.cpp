// AUVXRecordReader and AUVXRecordWriter: record I/O of the UV stream, and the header statistics rule.
#include <merovane/uvx/AUVXRecordStream.h>

#include <algorithm>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <merovane/uvx/UVXText.h>

namespace {

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
int cubeElements(int nIF, int nChan, int nStokes) {
    if (nChan <= 0 || nStokes <= 0) return 0;
    return std::max(nIF, 1) * nChan * nStokes;
}

}  // namespace

void WidenStatistics(AUVXHeader& header, const AUVXComplex* elements, int n) {
    // Most records lie inside the statistics gathered so far and hold no NaN: the rule then changes
    // nothing, which a look at the record's range tells at a fraction of the cost of the ordered walk.
    ARange r = rangeOf(elements, n);
    double lo = header.reMin, hi = header.reMax;
    if (r.reNaN || !(r.reLo >= lo) || !(r.reHi <= hi)) {
        widenInOrder(elements, n, 0, lo, hi);
        header.reMin = lo;
        header.reMax = hi;
    }
    lo = header.imMin;
    hi = header.imMax;
    if (r.imNaN || !(r.imLo >= lo) || !(r.imHi <= hi)) {
        widenInOrder(elements, n, 1, lo, hi);
        header.imMin = lo;
        header.imMax = hi;
    }
}

bool AUVXRecordReader::Open(AUVXFile& file, int first, int blockBytes) {
    Close();
    m_errMsg.Empty();
    if (!file.IsOpen()) {
        m_errMsg = "Cannot read records: no file is open";
        return false;
    }
    const AUVXHeader& h = file.GetHeader();
    m_nIF = h.nIF;
    m_nChan = h.nChan;
    m_nStokes = h.nStokes;
    m_elements = cubeElements(h.nIF, h.nChan, h.nStokes);
    m_count = file.nGroups;
    if (first < 0 || first > m_count) {
        m_errMsg =
            "Cannot read from record " + toStr(first, "%d") + ": the file holds " + toStr(m_count, "%d");
        return false;
    }
    if (!file.Seek(AUVXFile::kFirstRecordPos + static_cast<std::int64_t>(first) * AUVXFile::RecordBytes(h))) {
        m_errMsg = file.m_errMsg;
        return false;
    }
    m_next = first;
    // A block need not be larger than what is left of the records.
    const std::int64_t left = static_cast<std::int64_t>(m_count - first) * AUVXFile::RecordBytes(h);
    const int bytes = static_cast<int>(std::max<std::int64_t>(1, std::min<std::int64_t>(blockBytes, left)));
    if (!m_buffer.Create(bytes, file.file)) {
        m_errMsg = "Cannot read records: no memory for the block, or the first read failed";
        return false;
    }
    return true;
}

bool AUVXRecordReader::Next(AUVXGroup& group, AUVXVisibility& vis) {
    if (vis.count != m_elements || vis.nIF != m_nIF || vis.nChan != m_nChan || vis.nStokes != m_nStokes) {
        vis.SetCount(m_elements);
        vis.nIF = m_nIF;
        vis.nChan = m_nChan;
        vis.nStokes = m_nStokes;
    }
    return Next(group, vis.data);
}

bool AUVXRecordReader::Next(AUVXGroup& group, AUVXComplex* elements) {
    if (m_next >= m_count || m_buffer.block == nullptr) return false;
    if (!m_buffer.Read(&group, static_cast<int>(sizeof group)) ||
        !m_buffer.Read(elements, m_elements * static_cast<int>(sizeof(AUVXComplex)))) {
        m_errMsg = "Cannot read record " + toStr(m_next + 1, "%d") + " of " + toStr(m_count, "%d") +
                   ": the file ends early or a read failed";
        Close();
        return false;
    }
    ++m_next;
    return true;
}

void AUVXRecordReader::Close() {
    m_buffer.Close();
}

AUVXRecordWriter::~AUVXRecordWriter() {
    // The block is this writer's alone.
    m_buffer.Close();
}

bool AUVXRecordWriter::Open(AUVXFile& file, const AUVXHeader& header, bool resetStatistics, int blockBytes) {
    m_errMsg.Empty();
    m_buffer.Close();
    m_file = &file;
    m_header = header;
    m_records = 0;
    m_elements = cubeElements(header.nIF, header.nChan, header.nStokes);
    m_emptyStatistics = resetStatistics;
    if (resetStatistics) {
        const double inf = std::numeric_limits<double>::infinity();
        m_header.reMin = m_header.imMin = inf;
        m_header.reMax = m_header.imMax = -inf;
    }
    if (!file.Write(m_header)) {
        m_errMsg = file.m_errMsg.IsEmpty() ? CString("Cannot store the header") : file.m_errMsg;
        return false;
    }
    file.SeekUVGroup(0);
    if (m_buffer.Create(blockBytes, file.file) <= 0) {
        m_errMsg = "Cannot write records: no memory for the block";
        return false;
    }
    return true;
}

bool AUVXRecordWriter::Write(const AUVXGroup& group, const AUVXVisibility& vis) {
    if (m_buffer.block != nullptr && vis.count != m_elements) {
        m_errMsg = "A visibility of " + toStr(vis.count, "%d") + " elements given for records of " +
                   toStr(m_elements, "%d");
        return false;
    }
    return Write(group, vis.data);
}

bool AUVXRecordWriter::Write(const AUVXGroup& group, const AUVXComplex* elements) {
    if (m_buffer.block == nullptr) {
        m_errMsg = "Cannot write records: the writer is not open";
        return false;
    }
    if (m_buffer.Write(&group, static_cast<int>(sizeof(AUVXGroup))) <= 0) {
        m_errMsg = "Error write UVG data";
        return false;
    }
    if (m_elements > 0 && m_buffer.Write(elements, m_elements * static_cast<int>(sizeof(AUVXComplex))) <= 0) {
        m_errMsg = "Error write Visibility data";
        return false;
    }
    WidenStatistics(m_header, elements, m_elements);
    ++m_records;
    return true;
}

bool AUVXRecordWriter::Finish() {
    if (m_file == nullptr) {
        m_errMsg = "Cannot finish: the writer is not open";
        return false;
    }
    const bool flushed = m_buffer.Flush() >= 0;
    m_buffer.Close();
    if (!flushed) {
        m_errMsg = "Error write Visibility data";
        return false;
    }
    // Statistics that never widened (no element at all, or only NaN) would store infinities.
    if (m_emptyStatistics && !(m_header.reMin <= m_header.reMax)) m_header.reMin = m_header.reMax = 0.0;
    if (m_emptyStatistics && !(m_header.imMin <= m_header.imMax)) m_header.imMin = m_header.imMax = 0.0;
    if (!m_file->Write(m_header)) {
        m_errMsg = m_file->m_errMsg.IsEmpty() ? CString("Cannot store the header") : m_file->m_errMsg;
        return false;
    }
    m_file = nullptr;
    return true;
}
