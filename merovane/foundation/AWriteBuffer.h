// ABaseWriteBuffer and AWriteBuffer: one block of memory between many small writes and a byte stream.
#pragma once

#include <merovane/foundation/AFile.h>
#include <merovane/platform/Export.h>

// Abstract output buffer. `file` is not owned.
class MEROVANE_API ABaseWriteBuffer {
public:
    ABaseWriteBuffer() = default;
    virtual ~ABaseWriteBuffer();
    virtual int Create(int size, ABFile* file) = 0;
    virtual int Write(const void* src, int n);  // -1 here
    virtual int Flush();                        // -1 here
    virtual int Close();                        // does nothing here, 0

    ABFile* file = nullptr;
};

// Collects writes in a block from the C heap and hands the stream one large write per full block.
//
// Copies share the block (the pointer is copied as a value). The block is released by Close or by
// the next Create, never by the destructor, because a copy may still be using it: the owner of the
// buffer decides when the block goes (the interval driver shares it among its copies and frees it
// with the last of them).
class MEROVANE_API AWriteBuffer : public ABaseWriteBuffer {
public:
    AWriteBuffer() = default;
    ~AWriteBuffer() override;

    // Discards an earlier block, allocates `size` bytes and returns the block size, 0 when `file` is
    // null (after the message "int AWriteBuffer::Create( ABFile = NULL") or when there is no memory.
    int Create(int size, ABFile* file) override;
    // Above 0 on success (the bytes moved by flushes and the last copy), 0 when n is below 1,
    // -1 when a flush failed. A block that gets exactly full is flushed at once.
    int Write(const void* src, int n) override;
    // Bytes written, 0 for an empty block, the count negated when the stream's write failed; the
    // waiting bytes are dropped in either case and the object stays usable.
    int Flush() override;
    // Flushes, releases the block, returns 0.
    int Close() override;

    unsigned char* block = nullptr;
    int size = 0;  // bytes of the block
    int used = 0;  // bytes waiting in it
};
