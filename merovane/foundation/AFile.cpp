// ABFile on the platform's file primitives.
#include <merovane/foundation/AFile.h>

AFile::~AFile() = default;

ABFile::~ABFile() {
    if (m_fd >= 0) PlatformFileClose(m_fd);
}

bool ABFile::Open(const char* path, PlatformOpenMode mode) {
    Close();
    m_path = CString(path);
    CString reason;
    m_fd = PlatformFileOpen(path, mode, &reason);
    if (m_fd < 0) {
        m_error = m_path + ": " + reason;
        return false;
    }
    return true;
}

bool ABFile::Close() {
    if (m_fd < 0) return true;
    bool ok = PlatformFileClose(m_fd);
    m_fd = -1;
    if (!ok) m_error = m_path + ": " + PlatformLastErrorText();
    return ok;
}

std::int64_t ABFile::GetPos() {
    return m_fd < 0 ? -1 : PlatformFileTell(m_fd);
}

int ABFile::Read(void* dst, int n) {
    return ReadHuge(dst, n);
}

int ABFile::ReadHuge(void* dst, std::int64_t n) {
    if (n < 0 || m_fd < 0) return 0;
    if (n == 0) return 1;
    return PlatformFileRead(m_fd, dst, n) == n ? 1 : 0;
}

int ABFile::Write(const void* src, int n) {
    return WriteHuge(src, n);
}

int ABFile::WriteHuge(const void* src, std::int64_t n) {
    if (n < 0 || m_fd < 0) return 0;
    if (n == 0) return 1;
    return PlatformFileWrite(m_fd, src, n) == n ? 1 : 0;
}

std::int64_t ABFile::GetLength() {
    return m_fd < 0 ? -1 : PlatformFileSize(m_fd);
}

int ABFile::Seek(std::int64_t pos) {
    if (m_fd < 0 || pos < 0) return 0;
    return PlatformFileSeek(m_fd, pos) == pos ? 1 : 0;
}
