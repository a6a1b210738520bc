// AUVXFile: a UVX file (prologue, header, UV stream of records, tables, table directory).
#pragma once

#include <cstdint>

#include <merovane/foundation/AArray.h>
#include <merovane/foundation/AFile.h>
#include <merovane/platform/CString.h>
#include <merovane/platform/Export.h>
#include <merovane/uvx/AUVXHeader.h>
#include <merovane/uvx/AUVXTable.h>

// Byte layout: docs/uvx-format.md. A file is either opened for reading or created; creating goes
//   Create, Write(header), SeekUVGroup(0), records written straight to `file`, Write(header) again,
//   AddTable per table, Close
// and the record count follows from where the records end: nothing passes it.
//
// Operations that can fail return 0 (or false, or null) and leave the reason in m_errMsg.
class MEROVANE_API AUVXFile {
public:
    // Length of the prologue before the header, and where the first record starts.
    static constexpr std::int64_t kPrologueBytes = 32;
    static constexpr std::int64_t kFirstRecordPos =
        kPrologueBytes + static_cast<std::int64_t>(sizeof(AUVXHeader));

    AUVXFile() = default;
    AUVXFile(const AUVXFile&) = delete;
    AUVXFile& operator=(const AUVXFile&) = delete;
    // Releases the stream without completing a created file (a file not closed is incomplete).
    ~AUVXFile();

    // Opens an existing file for reading and checks its prologue, header, record count and table
    // directory against the file's length; the stream is left at the first record. False with the
    // reason in m_errMsg (a file that was never closed has no directory and is refused). Tables are
    // checked when GetTable reads them.
    bool Open(const char* path);
    // The same on a stream the caller made; with `own` the file deletes it.
    bool Open(ABFile* stream, bool own = false);
    // Starts a new file (an existing one is truncated) and writes its prologue. A stream handed in
    // should be empty: the record count is taken from its length.
    bool Create(const char* path);
    bool Create(ABFile* stream, bool own = false);

    // The first table named `name` as a new object that the caller deletes, or null if there is
    // none (or if it cannot be read: m_errMsg says why). The stream position is kept.
    AUVXTable* GetTable(const CString& name);
    // Positions `file` at record `index` (0: the first) and returns 0.
    int SeekUVGroup(int index);
    // Stores the header at its place; nonzero on success, 0 on a file opened for reading. The stream
    // is left at the first record.
    int Write(AUVXHeader& header);
    // Moves `file` to an absolute position; nonzero on success.
    int Seek(const std::int64_t& pos);
    // Appends a table behind the records (on a created file); nonzero on success. The first call
    // fixes the record count from the length of the stream: (length - kFirstRecordPos) / RecordBytes,
    // and fails if that does not divide.
    int AddTable(AUVXTable& table);
    // Completes a created file (record count, table directory) and releases the stream; nonzero on
    // success. On a file opened for reading it only releases the stream; with no stream it gives 1.
    // The stream is released even when completing fails.
    int Close();

    // Bytes of one record under `header`: 26 + 12 x max(1, nIF) x nChan x nStokes.
    static std::int64_t RecordBytes(const AUVXHeader& header);
    const AUVXHeader& GetHeader() const { return m_header; }
    // Positions of the tables, in file order.
    const AArray<std::int64_t>& TablePositions() const { return m_tablePos; }
    bool IsOpen() const { return file != nullptr; }

    ABFile* file = nullptr;
    std::int32_t nGroups = 0;
    std::int16_t nIF = 0;
    CString m_errMsg;

private:
    bool fail(const CString& text);
    bool attach(ABFile* stream, bool own);
    // A file of the system opened in `mode`, or null with m_errMsg "<verb> UVX file <path>: <reason>".
    ABFile* openStream(const char* path, PlatformOpenMode mode, const char* verb);
    bool readLayout();
    bool fixRecordCount();
    void release();

    AUVXHeader m_header;
    AArray<std::int64_t> m_tablePos;
    bool m_owns = false;
    bool m_writing = false;
    bool m_recordsFixed = false;
    std::int64_t m_recordsEnd = kFirstRecordPos;
};

// The directory of a file's tables: their number and each one's position.
class MEROVANE_API AUVXTableHeader {
public:
    explicit AUVXTableHeader(AUVXFile& file);
    std::int16_t nTables = 0;
    AArray<std::int64_t> positions;
};
