// PyUVXReader: a UVX file opened for Python, read in chunks of records into numpy arrays.
#pragma once

#include <complex>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXRecordStream.h>

// Fails with AMerovaneError and the library's text (the path first) on a file that cannot be opened
// or read. Records are read sequentially: reading the chunk after the last one costs no seek, any
// other start reopens the reader there.
class PyUVXReader {
public:
    explicit PyUVXReader(const std::string& path);
    void Close();

    // Header fields by name, with n_records.
    pybind11::dict Header() const;
    // Per table: (name, [(column, type, repeat, unit)], {keyword: value}, rows, raw row bytes).
    pybind11::list Tables();
    // Records start .. start + count - 1 (count < 0 or beyond the end: to the end) as arrays: time
    // (seconds from 0h of the reference day), ant1, ant2, uvw (n x 3, seconds), source, freq_id,
    // flags, vis (complex64, n x nIF x nChan x nStokes) and weight (float32, same shape).
    pybind11::dict Read(int start, int count);

    const std::string& Path() const { return m_path; }

private:
    void check() const;

    std::string m_path;
    AUVXFile m_file;
    AUVXRecordReader m_reader;
    const AUVXFile* m_readerFile = nullptr;  // null: the reader must be opened before the next record
    std::vector<AUVXComplex> m_elements;
};
