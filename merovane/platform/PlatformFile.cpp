// POSIX implementation of the file primitives.
#include <merovane/platform/PlatformFile.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>

int PlatformFileOpen(const char* path, PlatformOpenMode mode, CString* error) {
    int flags = O_CLOEXEC;
    switch (mode) {
        case PlatformOpenMode::Read:
            flags |= O_RDONLY;
            break;
        case PlatformOpenMode::ReadWrite:
            flags |= O_RDWR;
            break;
        case PlatformOpenMode::Create:
            flags |= O_RDWR | O_CREAT | O_TRUNC;
            break;
    }
    int fd = ::open(path ? path : "", flags, 0644);
    if (fd < 0 && error) *error = CString(std::strerror(errno));
    return fd;
}

std::int64_t PlatformFileRead(int fd, void* dst, std::int64_t n) {
    std::int64_t done = 0;
    char* out = static_cast<char*>(dst);
    while (done < n) {
        ssize_t got = ::read(fd, out + done, static_cast<size_t>(n - done));
        if (got < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (got == 0) break;
        done += got;
    }
    return done;
}

std::int64_t PlatformFileWrite(int fd, const void* src, std::int64_t n) {
    std::int64_t done = 0;
    const char* in = static_cast<const char*>(src);
    while (done < n) {
        ssize_t put = ::write(fd, in + done, static_cast<size_t>(n - done));
        if (put < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        done += put;
    }
    return done;
}

std::int64_t PlatformFileSeek(int fd, std::int64_t pos) {
    if (pos < 0) return -1;
    return static_cast<std::int64_t>(::lseek(fd, static_cast<off_t>(pos), SEEK_SET));
}

std::int64_t PlatformFileTell(int fd) {
    return static_cast<std::int64_t>(::lseek(fd, 0, SEEK_CUR));
}

std::int64_t PlatformFileSize(int fd) {
    struct stat st;
    if (::fstat(fd, &st) != 0) return -1;
    return static_cast<std::int64_t>(st.st_size);
}

bool PlatformFileClose(int fd) {
    return ::close(fd) == 0;
}

bool PlatformFileRemove(const char* path) {
    return ::unlink(path) == 0;
}

CString PlatformLastErrorText() {
    return CString(std::strerror(errno));
}

std::int64_t PlatformPeakResidentBytes() {
    struct rusage usage;
    if (::getrusage(RUSAGE_SELF, &usage) != 0) return -1;
    return static_cast<std::int64_t>(usage.ru_maxrss) * 1024;
}
