// Aligned allocation on the C heap.
#include <merovane/platform/AlignedAlloc.h>

#include <cstdlib>

void* AlignedMalloc(std::size_t size, std::size_t alignment) {
    if (alignment < sizeof(void*)) alignment = sizeof(void*);
    // aligned_alloc wants a size that is a multiple of the alignment.
    std::size_t rounded = (size + alignment - 1) / alignment * alignment;
    if (rounded < size) return nullptr;
    if (rounded == 0) rounded = alignment;
    return std::aligned_alloc(alignment, rounded);
}

void AlignedFree(void* block) {
    std::free(block);
}
