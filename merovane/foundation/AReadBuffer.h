// AReadBuffer: one block of memory between many small reads and a byte stream.
#pragma once

#include <cstdint>

#include <merovane/foundation/AFile.h>
#include <merovane/platform/Export.h>

// Takes a stream from its current position to its end, block by block. `file` is not owned, and
// nothing else may move the stream's position between Create and the last Read.
class MEROVANE_API AReadBuffer {
public:
    AReadBuffer() = default;
    AReadBuffer(const AReadBuffer&) = delete;
    AReadBuffer& operator=(const AReadBuffer&) = delete;
    virtual ~AReadBuffer();

    // Fills a block of at most `size` bytes from the stream's position. False when `file` is null
    // (after the message "bool AReadBuffer::Create( ABFile = NULL"), when there is no memory, or
    // when the first fill fails.
    bool Create(int size, ABFile* file);
    // True when all n bytes were delivered (n below 1: true, nothing moves); false when a fill
    // failed or the stream ended first. A read that runs past the end of the stream still refills
    // the block as it does at every block edge, which leaves it empty: size 0 and pos 0.
    bool Read(void* dst, int n);
    // Releases the block; `file` stays. Returns 0.
    virtual int Close();

    ABFile* file = nullptr;
    unsigned char* block = nullptr;
    std::int64_t remaining = 0;  // bytes of the stream not yet in the block
    int pos = 0;                 // next byte of the block
    int size = 0;                // valid bytes in the block

private:
    bool fill();
};
