// AUVXFile: opening, creating and completing UVX files; the table directory.
#include <merovane/uvx/AUVXFile.h>

#include <cstring>

#include <merovane/uvx/AUVXRecords.h>
#include <merovane/uvx/UVXText.h>

namespace {

constexpr char kMagic[8] = {'M', 'E', 'R', 'O', 'V', 'U', 'V', 'X'};
constexpr std::uint32_t kVersion = 1;

#pragma pack(push, 1)
struct AUVXPrologue {
    char magic[8];
    std::uint32_t version;
    std::uint32_t headerSize;
    std::int64_t nRecords;  // records in the UV stream
    std::int64_t dirPos;    // position of the table directory, 0 while the file is being written
};
#pragma pack(pop)
static_assert(sizeof(AUVXPrologue) == AUVXFile::kPrologueBytes, "the prologue is 32 bytes");

// A record must fit the int counts of the arrays and of AFile::Read.
constexpr std::int64_t kMaxRecordBytes = 0x7FFFFFFF;

CString num(std::int64_t value) {
    return toStr(static_cast<double>(value), "%.0f");
}

// Why `h` cannot describe a record stream, or empty text if it can.
CString headerProblem(const AUVXHeader& h) {
    if (h.nStokes < 1 || h.nStokes > 8)
        return "bad header: nStokes " + toStr(static_cast<int>(h.nStokes), "%d") + " (1..8 expected)";
    if (h.nChan < 1)
        return "bad header: nChan " + toStr(static_cast<int>(h.nChan), "%d") + " (at least 1 expected)";
    if (h.nIF < 0 || h.nIF > 0x7FFF)
        return "bad header: nIF " + toStr(static_cast<int>(h.nIF), "%d") + " (0..32767 expected)";
    if (AUVXFile::RecordBytes(h) > kMaxRecordBytes)
        return "bad header: a record of " + num(AUVXFile::RecordBytes(h)) + " bytes is too large";
    return CString();
}

}  // namespace

AUVXFile::~AUVXFile() {
    release();
}

std::int64_t AUVXFile::RecordBytes(const AUVXHeader& header) {
    const std::int64_t nIF = header.nIF > 1 ? header.nIF : 1;
    return static_cast<std::int64_t>(sizeof(AUVXGroup)) +
           12 * nIF * static_cast<std::int64_t>(header.nChan) * static_cast<std::int64_t>(header.nStokes);
}

bool AUVXFile::fail(const CString& text) {
    const CString path = file != nullptr ? file->GetPath() : CString();
    m_errMsg = path.IsEmpty() ? text : path + ": " + text;
    return false;
}

void AUVXFile::release() {
    if (file != nullptr && m_owns) {
        file->Close();
        delete file;
    }
    file = nullptr;
    m_owns = false;
    m_writing = false;
    m_recordsFixed = false;
}

bool AUVXFile::attach(ABFile* stream, bool own) {
    release();
    nGroups = 0;
    nIF = 0;
    m_header = AUVXHeader();
    m_tablePos.Free();
    m_recordsEnd = kFirstRecordPos;
    if (stream == nullptr) {
        m_errMsg = "No stream to open";
        return false;
    }
    file = stream;
    m_owns = own;
    return true;
}

ABFile* AUVXFile::openStream(const char* path, PlatformOpenMode mode, const char* verb) {
    ABFile* stream = new ABFile;
    if (!stream->Open(path, mode)) {
        release();
        m_errMsg = CString(verb) + " UVX file " + stream->GetErrorText();
        delete stream;
        return nullptr;
    }
    return stream;
}

bool AUVXFile::Open(const char* path) {
    ABFile* stream = openStream(path, PlatformOpenMode::Read, "Cannot open");
    return stream != nullptr && Open(stream, true);
}

bool AUVXFile::Open(ABFile* stream, bool own) {
    if (!attach(stream, own)) return false;
    if (!readLayout()) {
        // Keep the text: release() does not touch it.
        release();
        nGroups = 0;
        nIF = 0;
        m_tablePos.Free();
        return false;
    }
    return true;
}

bool AUVXFile::readLayout() {
    const std::int64_t length = file->GetLength();
    if (length < 0) return fail("cannot tell the length of the file");
    if (length < kPrologueBytes)
        return fail("truncated prologue: the file has " + num(length) + " bytes, a UVX file opens with " +
                    num(kPrologueBytes));
    AUVXPrologue pro;
    if (!file->Seek(0) || !file->Read(&pro, static_cast<int>(sizeof(pro))))
        return fail("cannot read the prologue");
    if (std::memcmp(pro.magic, kMagic, sizeof(kMagic)) != 0) return fail("not a UVX file (wrong magic)");
    if (pro.version != kVersion)
        return fail("unsupported format version " + num(pro.version) + " (version 1 expected)");
    if (pro.headerSize != sizeof(AUVXHeader))
        return fail("header size " + num(pro.headerSize) + " (466 expected)");
    if (length < kFirstRecordPos)
        return fail("truncated header: the file has " + num(length) + " bytes, the header ends at " +
                    num(kFirstRecordPos));
    if (!file->Read(&m_header, static_cast<int>(sizeof(AUVXHeader)))) return fail("cannot read the header");
    const CString problem = headerProblem(m_header);
    if (!problem.IsEmpty()) return fail(problem);

    const std::int64_t recBytes = RecordBytes(m_header);
    if (pro.dirPos == 0) return fail("incomplete file: it has no table directory (it was not closed)");
    if (pro.nRecords < 0 || pro.nRecords > 0x7FFFFFFF) return fail("bad record count " + num(pro.nRecords));
    if (pro.nRecords > (length - kFirstRecordPos) / recBytes)
        return fail("record count " + num(pro.nRecords) + " of " + num(recBytes) +
                    " bytes each does not fit in " + num(length - kFirstRecordPos) +
                    " bytes behind the header");
    const std::int64_t recordsEnd = kFirstRecordPos + pro.nRecords * recBytes;
    if (pro.dirPos < recordsEnd || pro.dirPos > length - 2)
        return fail("table directory at byte " + num(pro.dirPos) + " lies outside [" + num(recordsEnd) +
                    ", " + num(length - 2) + "]");

    std::int16_t nTables = 0;
    if (!file->Seek(pro.dirPos) || !file->Read(&nTables, 2)) return fail("cannot read the table directory");
    if (nTables < 0) return fail("bad table count " + toStr(static_cast<int>(nTables), "%d"));
    if (static_cast<std::int64_t>(nTables) * 8 > length - pro.dirPos - 2)
        return fail("truncated table directory: " + toStr(static_cast<int>(nTables), "%d") +
                    " positions do not fit behind byte " + num(pro.dirPos + 2));
    m_tablePos.SetCount(nTables);
    if (nTables > 0 && !file->Read(m_tablePos.data, nTables * 8))
        return fail("cannot read the table directory");
    for (int t = 0; t < nTables; ++t) {
        const std::int64_t pos = m_tablePos[t];
        if (pos < recordsEnd || pos >= pro.dirPos)
            return fail("table " + toStr(t, "%d") + " at byte " + num(pos) + " lies outside [" +
                        num(recordsEnd) + ", " + num(pro.dirPos) + ")");
    }

    nGroups = static_cast<std::int32_t>(pro.nRecords);
    nIF = static_cast<std::int16_t>(m_header.nIF);
    m_recordsEnd = recordsEnd;
    m_recordsFixed = true;
    if (!file->Seek(kFirstRecordPos)) return fail("cannot move to the first record");
    return true;
}

bool AUVXFile::Create(const char* path) {
    ABFile* stream = openStream(path, PlatformOpenMode::Create, "Cannot create");
    return stream != nullptr && Create(stream, true);
}

bool AUVXFile::Create(ABFile* stream, bool own) {
    if (!attach(stream, own)) return false;
    m_writing = true;
    AUVXPrologue pro;
    std::memset(&pro, 0, sizeof(pro));
    std::memcpy(pro.magic, kMagic, sizeof(kMagic));
    pro.version = kVersion;
    pro.headerSize = sizeof(AUVXHeader);
    if (!file->Seek(0) || !file->Write(&pro, static_cast<int>(sizeof(pro)))) {
        fail("cannot write the prologue");
        release();
        return false;
    }
    return true;
}

int AUVXFile::Write(AUVXHeader& header) {
    if (file == nullptr) return fail("no file is open"), 0;
    if (!m_writing) return fail("the file is open for reading: its header cannot be written"), 0;
    if (!file->Seek(kPrologueBytes) || !file->Write(&header, static_cast<int>(sizeof(AUVXHeader))))
        return fail("cannot write the header"), 0;
    std::memcpy(static_cast<void*>(&m_header), static_cast<const void*>(&header), sizeof(AUVXHeader));
    nIF = static_cast<std::int16_t>(header.nIF);
    if (!file->Seek(kFirstRecordPos)) return fail("cannot move to the first record"), 0;
    return 1;
}

int AUVXFile::SeekUVGroup(int index) {
    if (file == nullptr) return 0;
    const std::int64_t recBytes = headerProblem(m_header).IsEmpty() ? RecordBytes(m_header) : 0;
    if (!file->Seek(kFirstRecordPos + static_cast<std::int64_t>(index) * recBytes))
        fail("cannot move to record " + toStr(index, "%d"));
    return 0;
}

int AUVXFile::Seek(const std::int64_t& pos) {
    if (file == nullptr) return fail("no file is open"), 0;
    if (!file->Seek(pos)) return fail("cannot move to byte " + num(pos)), 0;
    return 1;
}

bool AUVXFile::fixRecordCount() {
    const std::int64_t length = file->GetLength();
    if (length < 0) return fail("cannot tell the length of the file");
    if (length < kFirstRecordPos) return fail("the header was not written");
    const CString problem = headerProblem(m_header);
    if (!problem.IsEmpty()) return fail("cannot count the records: " + problem);
    const std::int64_t recBytes = RecordBytes(m_header);
    const std::int64_t stream = length - kFirstRecordPos;
    if (stream % recBytes != 0)
        return fail("the records end at byte " + num(length) +
                    ", which is not a whole number of records of " + num(recBytes) +
                    " bytes behind the header");
    if (stream / recBytes > 0x7FFFFFFF) return fail("too many records: " + num(stream / recBytes));
    nGroups = static_cast<std::int32_t>(stream / recBytes);
    m_recordsEnd = length;
    m_recordsFixed = true;
    return true;
}

int AUVXFile::AddTable(AUVXTable& table) {
    if (file == nullptr) return fail("no file is open"), 0;
    if (!m_writing) return fail("the file is open for reading: no table can be added"), 0;
    if (!table.IsValid()) return fail("table \"" + table.GetName() + "\" is not valid: " + table.m_errMsg), 0;
    if (!m_recordsFixed && !fixRecordCount()) return 0;
    const std::int64_t pos = file->GetLength();
    if (pos < 0 || !file->Seek(pos)) return fail("cannot move to the end of the file"), 0;
    if (!table.Store(*file)) return fail("cannot write table \"" + table.GetName() + "\""), 0;
    if (m_tablePos.count >= 0x7FFF) return fail("too many tables"), 0;
    m_tablePos.Add(pos);
    return 1;
}

int AUVXFile::Close() {
    if (file == nullptr) return 1;
    bool ok = true;
    if (m_writing) {
        ok = m_recordsFixed || fixRecordCount();
        if (ok) {
            const std::int64_t dirPos = file->GetLength();
            const std::int16_t nTables = static_cast<std::int16_t>(m_tablePos.count);
            AUVXPrologue pro;
            std::memcpy(pro.magic, kMagic, sizeof(kMagic));
            pro.version = kVersion;
            pro.headerSize = sizeof(AUVXHeader);
            pro.nRecords = nGroups;
            pro.dirPos = dirPos;
            if (dirPos < 0 || !file->Seek(dirPos) || !file->Write(&nTables, 2) ||
                (nTables > 0 && !file->Write(m_tablePos.data, nTables * 8)))
                ok = fail("cannot write the table directory");
            else if (!file->Seek(0) || !file->Write(&pro, static_cast<int>(sizeof(pro))))
                ok = fail("cannot complete the prologue");
        }
    }
    if (m_owns && !file->Close()) ok = fail("cannot close the file: " + file->GetErrorText());
    release();
    return ok ? 1 : 0;
}

AUVXTable* AUVXFile::GetTable(const CString& name) {
    if (file == nullptr) return fail("no file is open"), nullptr;
    const std::int64_t saved = file->GetPos();
    AUVXTable* found = nullptr;
    for (int t = 0; t < m_tablePos.count && found == nullptr; ++t) {
        char field[16];
        if (!file->Seek(m_tablePos[t]) || !file->Read(field, 16)) {
            fail("cannot read table " + toStr(t, "%d"));
            break;
        }
        if (AUVXHeader::Text(field, 16) != name) continue;
        file->Seek(m_tablePos[t]);
        AUVXTable* table = new AUVXTable(*file);
        if (!table->IsValid()) {
            fail(table->m_errMsg);
            delete table;
            break;
        }
        found = table;
    }
    if (saved >= 0) file->Seek(saved);
    return found;
}

AUVXTableHeader::AUVXTableHeader(AUVXFile& file) {
    nTables = static_cast<std::int16_t>(file.TablePositions().count);
    positions = file.TablePositions();
}
