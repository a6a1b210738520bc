// Aligned allocation for matrix and cube storage.
#pragma once

#include <cstddef>

#include <merovane/platform/Export.h>

// Kernels read matrices with aligned vector loads, so their storage starts on a 32-byte boundary.
constexpr std::size_t kMatrixAlignment = 32;

// Returns `size` bytes aligned to `alignment` (a power of two), or null when there is no memory.
// A size of 0 gives a valid unique pointer. Release with AlignedFree; null is ignored there.
MEROVANE_API void* AlignedMalloc(std::size_t size, std::size_t alignment = kMatrixAlignment);
MEROVANE_API void AlignedFree(void* block);
