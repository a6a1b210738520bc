// Read buffer: refills its block whenever a read runs past it.
#include <merovane/foundation/AReadBuffer.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <merovane/platform/Afx.h>

AReadBuffer::~AReadBuffer() {
    AReadBuffer::Close();
}

bool AReadBuffer::Create(int blockSize, ABFile* stream) {
    if (stream == nullptr) {
        AfxMessageBox("bool AReadBuffer::Create( ABFile = NULL");
        return false;
    }
    Close();
    std::int64_t length = stream->GetLength();
    std::int64_t position = stream->GetPos();
    if (length < 0 || position < 0) return false;
    remaining = std::max<std::int64_t>(0, length - position);
    size = static_cast<int>(std::min<std::int64_t>(remaining, std::max(blockSize, 0)));
    // malloc(0) may give null; keep one byte so an empty stream still has a valid block.
    block = static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(std::max(size, 1))));
    if (block == nullptr) {
        size = 0;
        remaining = 0;
        return false;
    }
    file = stream;
    return fill();
}

bool AReadBuffer::fill() {
    // The valid size only shrinks: at the end of the stream the last block is shorter.
    size = static_cast<int>(std::min<std::int64_t>(size, remaining));
    pos = 0;
    // Nothing left to fetch is no transfer at all, so a stream that ends inside the first block
    // costs exactly one call of the stream.
    if (size > 0 && !file->Read(block, size)) return false;
    remaining -= size;
    return true;
}

bool AReadBuffer::Read(void* dst, int n) {
    if (n < 1) return true;
    if (block == nullptr) return false;
    unsigned char* out = static_cast<unsigned char*>(dst);
    for (;;) {
        int avail = size - pos;
        if (n < avail) {
            std::memcpy(out, block + pos, static_cast<std::size_t>(n));
            pos += n;
            return true;
        }
        if (avail > 0) std::memcpy(out, block + pos, static_cast<std::size_t>(avail));
        out += avail;
        n -= avail;
        pos = size;
        const bool streamEnded = remaining <= 0;
        // The block is refilled as soon as it is used up, also when this read needs no more of it
        // and when the stream has nothing left: the block is then empty (size 0, pos 0).
        if (!fill()) return false;
        if (n == 0) return true;
        if (streamEnded) return false;
    }
}

int AReadBuffer::Close() {
    std::free(block);
    block = nullptr;
    remaining = 0;
    pos = 0;
    size = 0;
    return 0;
}
