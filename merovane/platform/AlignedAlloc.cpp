// Aligned allocation on the C heap.
#include <merovane/platform/AlignedAlloc.h>

#include <cstdlib>
#include <stdlib.h>

void* AlignedMalloc(std::size_t size, std::size_t alignment) {
    if (alignment < sizeof(void*)) alignment = sizeof(void*);
    // Exactly the size asked for (posix_memalign takes any size), so that a read or write past the
    // end of a row or matrix is seen by the address sanitizer instead of landing in padding.
    void* block = nullptr;
    if (posix_memalign(&block, alignment, size == 0 ? 1 : size) != 0) return nullptr;
    return block;
}

void AlignedFree(void* block) { std::free(block); }
