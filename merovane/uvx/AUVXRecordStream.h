// AUVXRecordReader and AUVXRecordWriter: the UV stream of a UVX file, record by record, through one block.
#pragma once

#include <cstdint>

#include <merovane/foundation/AReadBuffer.h>
#include <merovane/foundation/AWriteBuffer.h>
#include <merovane/platform/CString.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXFile.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXRecords.h>

// Reads the records of a file opened for reading, in file order: each a 26-byte group and then the
// visibility (max(1, nIF) x nChan x nStokes elements of 12 bytes). Nothing else may move the file's
// stream between Open and the last Next. Not copyable.
class MEROVANE_API AUVXRecordReader {
public:
    // Large sequential transfers suit every file system; 4 MiB as the interval driver uses.
    static constexpr int kBlockBytes = 4194304;

    AUVXRecordReader() = default;
    AUVXRecordReader(const AUVXRecordReader&) = delete;
    AUVXRecordReader& operator=(const AUVXRecordReader&) = delete;

    // Starts at record `first` (0: the first). False with m_errMsg when the file is not open, `first`
    // lies outside 0..nGroups, or the block cannot be had or filled.
    bool Open(AUVXFile& file, int first = 0, int blockBytes = kBlockBytes);
    // The next record into `group` and `vis`, which is given the file's shape if it has another.
    // False at the end of the records (m_errMsg empty) or when a read fails (m_errMsg:
    // "Cannot read record <n> of <count>: the file ends early or a read failed", n from 1).
    bool Next(AUVXGroup& group, AUVXVisibility& vis);
    // The same into `elements`, which holds ElementCount() elements.
    bool Next(AUVXGroup& group, AUVXComplex* elements);
    // Releases the block; the file stays open.
    void Close();

    // Records of the file, and the index of the record that Next gives next.
    int Count() const { return m_count; }
    int Position() const { return m_next; }
    // Elements of one record's visibility.
    int ElementCount() const { return m_elements; }
    bool Failed() const { return !m_errMsg.IsEmpty(); }

    CString m_errMsg;

private:
    AReadBuffer m_buffer;
    int m_count = 0;
    int m_next = 0;
    int m_elements = 0;
    int m_nIF = 0, m_nChan = 0, m_nStokes = 0;
};

// Writes the records of a created file: Open stores the header and positions the stream at record 0,
// Write appends records and widens the header's statistics of the real and imaginary parts as the
// interval driver's output does (element by element, NaN never widening the maximum), Finish flushes
// and stores the header again. Tables then follow with AUVXFile::AddTable, and AUVXFile::Close ends
// the file. Not copyable.
class MEROVANE_API AUVXRecordWriter {
public:
    AUVXRecordWriter() = default;
    AUVXRecordWriter(const AUVXRecordWriter&) = delete;
    AUVXRecordWriter& operator=(const AUVXRecordWriter&) = delete;
    ~AUVXRecordWriter();

    // `file` must come from AUVXFile::Create with nothing written yet. With `resetStatistics` the
    // statistics start empty (a file without elements ends with 0 for all four); otherwise they widen
    // the values of `header`. False with m_errMsg if the header cannot be stored or no block had.
    bool Open(AUVXFile& file, const AUVXHeader& header, bool resetStatistics = true,
              int blockBytes = AUVXRecordReader::kBlockBytes);
    // Appends one record; `vis` must have the header's shape. False with m_errMsg ("Error write UVG
    // data", "Error write Visibility data", or the shape that does not match).
    bool Write(const AUVXGroup& group, const AUVXVisibility& vis);
    // The same from ElementCount() elements.
    bool Write(const AUVXGroup& group, const AUVXComplex* elements);
    // Flushes the block and stores the header with its statistics; false with m_errMsg if a write
    // failed. The writer is done afterwards.
    bool Finish();

    const AUVXHeader& Header() const { return m_header; }
    std::int64_t Records() const { return m_records; }
    int ElementCount() const { return m_elements; }

    CString m_errMsg;

private:
    AUVXFile* m_file = nullptr;
    AUVXHeader m_header;
    AWriteBuffer m_buffer;
    std::int64_t m_records = 0;
    int m_elements = 0;
    bool m_emptyStatistics = false;
};

// Widens the header's reMin/reMax and imMin/imMax by n elements, one after the other: the lower test
// is "not at least the minimum", so a NaN takes the minimum and the next value takes it back; the
// upper test never lets a NaN in. Flagged elements count like any other.
MEROVANE_API void WidenStatistics(AUVXHeader& header, const AUVXComplex* elements, int n);
