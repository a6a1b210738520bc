// In-memory and failing streams.
#include <merovane/foundation/AMemFile.h>

#include <algorithm>
#include <cstring>

bool AMemFile::Open(const char*, PlatformOpenMode mode) {
    if (mode == PlatformOpenMode::Create) m_bytes.clear();
    m_pos = 0;
    return true;
}

std::int64_t AMemFile::readSome(void* dst, std::int64_t n) {
    const std::int64_t length = static_cast<std::int64_t>(m_bytes.size());
    std::int64_t avail = m_pos < length ? length - m_pos : 0;
    std::int64_t take = std::min(n, avail);
    if (take > 0) std::memcpy(dst, m_bytes.data() + m_pos, static_cast<std::size_t>(take));
    m_pos += take;
    return take;
}

std::int64_t AMemFile::writeSome(const void* src, std::int64_t n) {
    if (n <= 0) return 0;
    const std::size_t end = static_cast<std::size_t>(m_pos + n);
    if (end > m_bytes.size()) m_bytes.resize(end, 0);
    std::memcpy(m_bytes.data() + m_pos, src, static_cast<std::size_t>(n));
    m_pos += n;
    return n;
}

int AMemFile::ReadHuge(void* dst, std::int64_t n) {
    if (n < 0) return 0;
    return readSome(dst, n) == n ? 1 : 0;
}

int AMemFile::WriteHuge(const void* src, std::int64_t n) {
    if (n < 0) return 0;
    return writeSome(src, n) == n ? 1 : 0;
}

int AMemFile::Seek(std::int64_t pos) {
    if (pos < 0) return 0;
    m_pos = pos;
    return 1;
}

int AFailFile::ReadHuge(void* dst, std::int64_t n) {
    ++readCalls;
    if (n < 0) return 0;
    if (failReadCall != 0 && readCalls == failReadCall) return 0;
    std::int64_t allowed = n;
    if (readLimit >= 0) allowed = std::min(n, std::max<std::int64_t>(0, readLimit - bytesRead));
    std::int64_t got = readSome(dst, allowed);
    bytesRead += got;
    return got == n ? 1 : 0;
}

int AFailFile::WriteHuge(const void* src, std::int64_t n) {
    ++writeCalls;
    if (n < 0) return 0;
    if (failWriteCall != 0 && writeCalls == failWriteCall) return 0;
    std::int64_t allowed = n;
    if (writeLimit >= 0) allowed = std::min(n, std::max<std::int64_t>(0, writeLimit - bytesWritten));
    std::int64_t put = writeSome(src, allowed);
    bytesWritten += put;
    return put == n ? 1 : 0;
}

int AFailFile::Seek(std::int64_t pos) {
    ++seekCalls;
    if (failSeekCall != 0 && seekCalls == failSeekCall) return 0;
    return AMemFile::Seek(pos);
}

std::int64_t AFailFile::GetLength() {
    return failLength ? -1 : AMemFile::GetLength();
}
