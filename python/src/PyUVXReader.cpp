// PyUVXReader: a UVX file for Python: header as a dict, tables as raw rows with their columns, records
// in chunks straight into numpy arrays.
#include "PyUVXReader.h"

#include <cstring>
#include <string>

#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXTable.h>

#include "PyErrors.h"

namespace py = pybind11;

namespace {

std::string Text(const char* field, int size) {
    return AUVXHeader::Text(field, size).GetString();
}

}  // namespace

PyUVXReader::PyUVXReader(const std::string& path) : m_path(path) {
    bool ok;
    {
        py::gil_scoped_release release;
        ok = m_file.Open(path.c_str());
    }
    if (!ok) throw AMerovaneError(m_file.m_errMsg.GetString());
}

void PyUVXReader::Close() {
    m_reader.Close();
    m_file.Close();
}

void PyUVXReader::check() const {
    if (!m_file.IsOpen()) throw AMerovaneError(m_path + ": the file is closed");
}

py::dict PyUVXReader::Header() const {
    check();
    const AUVXHeader& h = m_file.GetHeader();
    py::dict d;
    d["date_obs"] = Text(h.dateObs, sizeof h.dateObs);
    d["ref_jd"] = h.refJD;
    d["object"] = Text(h.object, sizeof h.object);
    d["telescope"] = Text(h.telescope, sizeof h.telescope);
    d["instrument"] = Text(h.instrument, sizeof h.instrument);
    d["observer"] = Text(h.observer, sizeof h.observer);
    d["origin"] = Text(h.origin, sizeof h.origin);
    d["ref_freq"] = h.refFreq;
    d["chan_width"] = h.chanWidth;
    d["total_bandwidth"] = h.totalBandwidth;
    d["equinox"] = h.equinox;
    d["int_time"] = h.intTime;
    d["ref_chan"] = h.refChan;
    d["sideband"] = h.sideband;
    d["re_min"] = h.reMin;
    d["re_max"] = h.reMax;
    d["im_min"] = h.imMin;
    d["im_max"] = h.imMax;
    d["obj_ra"] = h.objRA;
    d["obj_dec"] = h.objDec;
    py::list stokes;
    for (int p = 0; p < h.nStokes && p < 8; ++p) stokes.append(static_cast<int>(h.stokes[p]));
    d["stokes"] = stokes;
    d["n_if"] = h.nIF;
    d["n_chan"] = h.nChan;
    d["n_stokes"] = static_cast<int>(h.nStokes);
    d["n_records"] = m_file.nGroups;
    return d;
}

py::list PyUVXReader::Tables() {
    check();
    // Reading tables moves the stream under the record reader: it starts afresh at the next Read.
    m_readerFile = nullptr;
    py::list out;
    const AArray<std::int64_t>& positions = m_file.TablePositions();
    for (int k = 0; k < positions.count; ++k) {
        if (!m_file.Seek(positions.data[k]))
            throw AMerovaneError(m_path + ": " + m_file.m_errMsg.GetString());
        AUVXTable table(*m_file.file);
        if (!table.IsValid())
            throw AMerovaneError(m_path + ": table " + std::to_string(k + 1) + ": " +
                                 table.m_errMsg.GetString());
        py::list columns;
        for (int c = 0; c < table.nCols; ++c) {
            const AXTblColumn& col = table.columns[c];
            columns.append(py::make_tuple(table.ColumnName(c).GetString(), std::string(1, col.type),
                                          static_cast<int>(col.repeat), Text(col.unit, sizeof col.unit)));
        }
        py::dict keywords;
        for (int i = 0; i < table.keywords.count; ++i) {
            const AXTblKeyword& kw = table.keywords.data[i];
            const std::string name = Text(kw.name, sizeof kw.name);
            if (kw.type == 'A')
                keywords[name.c_str()] = Text(kw.value.s, sizeof kw.value.s);
            else if (kw.type == 'D')
                keywords[name.c_str()] = kw.value.d;
            else
                keywords[name.c_str()] = static_cast<long long>(kw.value.i);
        }
        const std::size_t bytes =
            static_cast<std::size_t>(table.nRows) * static_cast<std::size_t>(table.rowBytes);
        py::bytes rows(reinterpret_cast<const char*>(table.rows), bytes);
        out.append(py::make_tuple(table.GetName().GetString(), columns, keywords, table.nRows, rows));
    }
    return out;
}

py::dict PyUVXReader::Read(int start, int count) {
    check();
    if (start < 0 || start > m_file.nGroups)
        throw AMerovaneError(m_path + ": no record " + std::to_string(start));
    if (count < 0 || count > m_file.nGroups - start) count = m_file.nGroups - start;
    const AUVXHeader& h = m_file.GetHeader();
    const py::ssize_t nIF = h.nIF > 1 ? h.nIF : 1, nChan = h.nChan, nStokes = h.nStokes;
    const py::ssize_t n = count;
    py::array_t<double> time(n);
    py::array_t<std::int8_t> ant1(n), ant2(n), freqId(n);
    py::array_t<std::uint8_t> flags(n);
    py::array_t<std::int16_t> source(n);
    py::array_t<float> uvw({n, py::ssize_t(3)});
    py::array_t<std::complex<float>> vis({n, nIF, nChan, nStokes});
    py::array_t<float> weight({n, nIF, nChan, nStokes});
    // The arrays are made while the interpreter is held; filling them needs it no longer.
    double* pTime = time.mutable_data();
    std::int8_t *pAnt1 = ant1.mutable_data(), *pAnt2 = ant2.mutable_data(), *pFreq = freqId.mutable_data();
    std::uint8_t* pFlags = flags.mutable_data();
    std::int16_t* pSource = source.mutable_data();
    float* pUvw = uvw.mutable_data();
    std::complex<float>* pVis = vis.mutable_data();
    float* pWeight = weight.mutable_data();
    std::string error;
    {
        py::gil_scoped_release release;
        if (m_reader.Position() != start || m_readerFile != &m_file) {
            m_readerFile = &m_file;
            if (!m_reader.Open(m_file, start)) error = m_reader.m_errMsg.GetString();
        }
        const int elements = m_reader.ElementCount();
        m_elements.resize(static_cast<std::size_t>(elements > 0 ? elements : 1));
        for (py::ssize_t r = 0; r < n && error.empty(); ++r) {
            AUVXGroup g;
            if (!m_reader.Next(g, m_elements.data())) {
                error = m_reader.m_errMsg.IsEmpty() ? "the records end early" : m_reader.m_errMsg.GetString();
                break;
            }
            pTime[r] = g.time;
            pAnt1[r] = g.ant1;
            pAnt2[r] = g.ant2;
            pFreq[r] = g.freqId;
            pFlags[r] = g.flags;
            pSource[r] = g.sourceId;
            pUvw[3 * r] = g.u;
            pUvw[3 * r + 1] = g.v;
            pUvw[3 * r + 2] = g.w;
            std::complex<float>* v = pVis + r * elements;
            float* w = pWeight + r * elements;
            for (int e = 0; e < elements; ++e) {
                v[e] = std::complex<float>(m_elements[e].re, m_elements[e].im);
                w[e] = m_elements[e].wt;
            }
        }
    }
    if (!error.empty()) {
        m_readerFile = nullptr;
        throw AMerovaneError(m_path + ": " + error);
    }
    py::dict d;
    d["time"] = time;
    d["ant1"] = ant1;
    d["ant2"] = ant2;
    d["uvw"] = uvw;
    d["source"] = source;
    d["freq_id"] = freqId;
    d["flags"] = flags;
    d["vis"] = vis;
    d["weight"] = weight;
    return d;
}
