// AMemFile: a byte stream held in memory; AFailFile: one that fails on command, for tests.
#pragma once

#include <cstdint>
#include <vector>

#include <merovane/foundation/AFile.h>

// A growable in-memory stream with the semantics of a file: writes past the end extend it (a gap
// left by a seek beyond the end reads as zeros), reads past the end fail.
class MEROVANE_API AMemFile : public ABFile {
public:
    AMemFile() = default;
    explicit AMemFile(std::vector<unsigned char> bytes) : m_bytes(std::move(bytes)) {}

    // Nothing to open: the stream is always there. Open and Close keep the contents.
    bool Open(const char*, PlatformOpenMode mode) override;
    bool Close() override { return true; }
    bool IsOpen() const override { return true; }

    std::int64_t GetPos() override { return m_pos; }
    int Read(void* dst, int n) override { return ReadHuge(dst, n); }
    int ReadHuge(void* dst, std::int64_t n) override;
    int Write(const void* src, int n) override { return WriteHuge(src, n); }
    int WriteHuge(const void* src, std::int64_t n) override;
    std::int64_t GetLength() override { return static_cast<std::int64_t>(m_bytes.size()); }
    int Seek(std::int64_t pos) override;

    const std::vector<unsigned char>& Bytes() const { return m_bytes; }
    std::vector<unsigned char>& Bytes() { return m_bytes; }

protected:
    // Moves up to n bytes; returns how many moved.
    std::int64_t readSome(void* dst, std::int64_t n);
    std::int64_t writeSome(const void* src, std::int64_t n);

    std::vector<unsigned char> m_bytes;
    std::int64_t m_pos = 0;
};

// An in-memory stream that fails where a test tells it to: on the n-th call of a kind (counted from
// 1 over the life of the object, 0 for never), or once a total number of bytes has been read or
// written (the transfer that crosses the limit moves the bytes up to it, then fails), or in
// GetLength. The counters show what was asked of it.
class MEROVANE_API AFailFile : public AMemFile {
public:
    AFailFile() = default;
    explicit AFailFile(std::vector<unsigned char> bytes) : AMemFile(std::move(bytes)) {}

    int ReadHuge(void* dst, std::int64_t n) override;
    int WriteHuge(const void* src, std::int64_t n) override;
    int Seek(std::int64_t pos) override;
    std::int64_t GetLength() override;
    int Read(void* dst, int n) override { return ReadHuge(dst, n); }
    int Write(const void* src, int n) override { return WriteHuge(src, n); }

    int failReadCall = 0;
    int failWriteCall = 0;
    int failSeekCall = 0;
    std::int64_t readLimit = -1;   // total bytes that may be read, -1 for no limit
    std::int64_t writeLimit = -1;  // total bytes that may be written, -1 for no limit
    bool failLength = false;

    int readCalls = 0;
    int writeCalls = 0;
    int seekCalls = 0;
    std::int64_t bytesRead = 0;
    std::int64_t bytesWritten = 0;
};
