// AFile: the byte-stream interface; ABFile: a byte stream on a file of the operating system.
#pragma once

#include <cstdint>

#include <merovane/platform/CString.h>
#include <merovane/platform/Export.h>
#include <merovane/platform/PlatformFile.h>

// A positioned byte stream. The four transfers give nonzero when all the bytes asked for moved and
// 0 otherwise (a negative count also gives 0; a count of 0 succeeds at once). After a failed
// transfer the position is wherever the partial transfer left it.
class MEROVANE_API AFile {
public:
    virtual std::int64_t GetPos() = 0;
    virtual int Read(void* dst, int n) = 0;
    virtual int ReadHuge(void* dst, std::int64_t n) = 0;
    virtual int Write(const void* src, int n) = 0;
    virtual int WriteHuge(const void* src, std::int64_t n) = 0;
    // Length of the stream in bytes, -1 when it cannot be told.
    virtual std::int64_t GetLength() = 0;
    // Moves to an absolute position; nonzero on success. A position below 0 fails.
    virtual int Seek(std::int64_t pos) = 0;
    virtual ~AFile();

protected:
    AFile() = default;
    AFile(const AFile&) = default;
    AFile& operator=(const AFile&) = default;
};

// The stream kind that UVX files and the record buffers work on. This class reads and writes a
// file of the operating system; AMemFile and AFailFile derive from it to stand in for one.
// Not copyable: a copy would share the descriptor.
class MEROVANE_API ABFile : public AFile {
public:
    ABFile() = default;
    ABFile(const ABFile&) = delete;
    ABFile& operator=(const ABFile&) = delete;
    ~ABFile() override;

    // Opens `path`; false with GetErrorText() set ("<path>: <reason>") on failure. Closes an
    // earlier file first.
    virtual bool Open(const char* path, PlatformOpenMode mode);
    // Closes the file; false if the system reported an error (data may not have reached the disk).
    virtual bool Close();
    virtual bool IsOpen() const { return m_fd >= 0; }
    const CString& GetErrorText() const { return m_error; }
    const CString& GetPath() const { return m_path; }

    std::int64_t GetPos() override;
    int Read(void* dst, int n) override;
    int ReadHuge(void* dst, std::int64_t n) override;
    int Write(const void* src, int n) override;
    int WriteHuge(const void* src, std::int64_t n) override;
    std::int64_t GetLength() override;
    int Seek(std::int64_t pos) override;

protected:
    CString m_path;
    CString m_error;

private:
    int m_fd = -1;
};
