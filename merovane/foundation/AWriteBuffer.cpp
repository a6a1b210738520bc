// Write buffer: flushes whenever the block fills.
#include <merovane/foundation/AWriteBuffer.h>

#include <cstdlib>
#include <cstring>

#include <merovane/platform/Afx.h>

ABaseWriteBuffer::~ABaseWriteBuffer() = default;
int ABaseWriteBuffer::Write(const void*, int) {
    return -1;
}
int ABaseWriteBuffer::Flush() {
    return -1;
}
int ABaseWriteBuffer::Close() {
    return 0;
}

AWriteBuffer::~AWriteBuffer() = default;

int AWriteBuffer::Create(int blockSize, ABFile* stream) {
    if (stream == nullptr) {
        AfxMessageBox("int AWriteBuffer::Create( ABFile = NULL");
        return 0;
    }
    std::free(block);
    block = blockSize > 0 ? static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(blockSize)))
                          : nullptr;
    size = block != nullptr ? blockSize : 0;
    used = 0;
    file = stream;
    return size;
}

int AWriteBuffer::Write(const void* src, int n) {
    if (n < 1) return 0;
    const unsigned char* from = static_cast<const unsigned char*>(src);
    int total = 0;
    while (n > 0) {
        int space = size - used;
        if (n < space) {
            std::memcpy(block + used, from, static_cast<std::size_t>(n));
            used += n;
            total += n;
            break;
        }
        if (space > 0) std::memcpy(block + used, from, static_cast<std::size_t>(space));
        used += space;
        int flushed = Flush();
        if (flushed < 0) return -1;
        // A block of size 0 can never take a byte; stop instead of spinning.
        if (space == 0 && flushed == 0) return -1;
        total += flushed;
        from += space;
        n -= space;
    }
    return total;
}

int AWriteBuffer::Flush() {
    if (used < 1) return 0;
    if (file == nullptr) return -1;
    int n = used;
    used = 0;
    return file->Write(block, n) ? n : -n;
}

int AWriteBuffer::Close() {
    Flush();
    std::free(block);
    block = nullptr;
    size = 0;
    return 0;
}
